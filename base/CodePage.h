#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orvex {

// The installation's single-byte code page. Every text inside Orvex is a byte
// string in this code page (one byte, one character); conversions happen only
// at the edges, where databases and the XML parser hand over UTF-8.
class CodePage {
 public:
  // Windows-1252, the code page of the installations Orvex serves.
  static const CodePage& Windows1252();

  // Converts UTF-8 to the code page; a character the code page lacks, and any
  // malformed UTF-8 sequence, becomes "?".
  std::string FromUtf8(std::string_view utf8) const;
  // Converts code-page text to UTF-8.
  std::string ToUtf8(std::string_view text) const;
  // The byte of character `c`, if the code page has it.
  std::optional<char> ByteFor(char32_t c) const;

 private:
  explicit CodePage(const std::array<char32_t, 256>& to_unicode);
  std::array<char32_t, 256> to_unicode_;
};

// Decodes the UTF-8 sequence at `i` and advances `i` past it; a malformed or
// overlong sequence gives U+FFFD and consumes one byte.
char32_t NextUtf8(std::string_view utf8, size_t& i);

// Appends the UTF-8 sequence of `c` (up to U+10FFFF): one to four bytes. A
// surrogate code point (U+D800 to U+DFFF) is written as its own three bytes
// like any other, not replaced; callers that join pairs do so first.
void AppendUtf8(std::string& out, char32_t c);

// Converts a UTF-8 literal of the source code (characters up to U+00FF only)
// to its single-byte form, which is the same in Windows-1252 and Latin-1.
// Used for the Spanish texts that Orvex writes itself.
std::string Latin1(std::string_view utf8);

// Upper-casing of the Latin-1 letters: a-z, à-þ except ÷, and š œ ž ÿ of
// Windows-1252. Every other byte is left alone (ß, µ included).
namespace codepage_detalle {
// The upper case of each Latin-1 byte, as UpperLatin1 gives it.
constexpr std::array<char, 256> TablaMayusculas() {
  std::array<char, 256> t{};
  for (int b = 0; b < 256; ++b) {
    int m = b;
    if ((b >= 'a' && b <= 'z') || (b >= 0xE0 && b <= 0xFE && b != 0xF7)) m = b - 0x20;
    if (b == 0x9A) m = 0x8A;  // š
    if (b == 0x9C) m = 0x8C;  // œ
    if (b == 0x9E) m = 0x8E;  // ž
    if (b == 0xFF) m = 0x9F;  // ÿ
    t[static_cast<std::size_t>(b)] = static_cast<char>(m);
  }
  return t;
}
inline constexpr std::array<char, 256> kMayusculas = TablaMayusculas();
}  // namespace codepage_detalle

// Inline, from a table: the searches and the highlighting compare every
// byte of a page's records through it.
inline char UpperLatin1(char c) {
  return codepage_detalle::kMayusculas[static_cast<unsigned char>(c)];
}
std::string UpperLatin1(std::string_view text);

// Equality after upper-casing both sides as above.
bool EqualsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace orvex
