#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The conversions of the runtime the gateway was written for, kept exactly
// because pages, paging numbers and messages depend on them.
namespace orvex {

// The number at the start of `text`, as the old runtime's Val reads it:
// blanks, tabs and line feeds are skipped wherever they stand, then an
// optional sign, digits, a decimal point and an exponent ("E" or "D"); "&H"
// and "&O" prefixes read hexadecimal and octal. Reading stops at the first
// other character: "12abc" is 12, "" and "abc" are 0. Raises 6 on overflow.
double LeadingNumber(std::string_view text);

// Rounds to the nearest integer, ties to the even one (2.5 is 2, 3.5 is 4).
double RoundHalfEven(double value);

// Rounding half to even, then narrowing; a value out of range raises 6
// ("Desbordamiento").
std::uint8_t ToByte(double value);
std::int16_t ToInt16(double value);
std::int32_t ToInt32(double value);

// "True" or "False" in any letter case, or a number (0 is false, any other
// number true); surrounding blanks are ignored. Anything else raises 13
// ("No coinciden los tipos").
bool ToBoolean(std::string_view text);

// True when the whole of `text`, blanks around it aside, is a number: an
// optional sign, digits and at most one decimal point, with a digit.
bool IsWholeNumber(std::string_view text);

// Removes leading and trailing blanks (only U+0020: tabs and line ends stay).
std::string TrimBlanks(std::string_view text);
// The same, as a view into `text` (no copy).
std::string_view TrimBlanksView(std::string_view text);

// 1-based position of `find` in `text` at or after position `start` (1-based);
// 0 when it does not occur. An empty `find` is found at `start`.
std::size_t InStr(std::size_t start, std::string_view text, std::string_view find);

// The position of `find` in `text` at or after `from`, as
// std::string_view::find gives it (npos when absent, `from` for an empty
// `find` that fits). Pages and templates are full of '<', '>', blanks and
// letters, and the marks looked for in them ("<!FICHA!>", "]*") hold a byte
// that is rare there: the scan jumps from one occurrence of that byte to the
// next instead of stopping at every '<'.
std::size_t BuscaTexto(std::string_view text, std::string_view find, std::size_t from = 0);

}  // namespace orvex
