#pragma once

#include <string>
#include <string_view>

// The catalogue's SQL dialect (the one its statements have always been
// written in) on an SQL engine of another family.
namespace orvex::db {

// Rewrites a statement of the catalogue's dialect for SQLite, text in the
// code page on both sides:
// - '...' and "..." strings become '...' strings compared without regard to
//   letter case (COLLATE JET), every byte of their text kept: nothing inside
//   a string is rewritten, and a NUL byte, which would end an SQLite
//   literal, joins the string's pieces as char(0);
// - [bracketed names] become "quoted" names;
// - #mm/dd/yyyy# and #mm/dd/yyyy hh:nn:ss# dates become the ISO text
//   'yyyy-mm-dd hh:nn:ss' in which the catalogues store dates;
// - "&" (text concatenation) becomes "||".
// LIKE keeps its operands: the engine's like() speaks the dialect's
// wildcards (see JetLike).
std::string JetToSqlite(std::string_view jet);

// LIKE as the catalogue's dialect has it, letters compared without regard to
// case: "*" any run, "?" one character, "#" one digit, "[abc]", "[a-z]" and
// "[!abc]" one character of (or not of) a set. Code-page text.
// Takes at most the pattern's length times the text's steps.
bool JetLike(std::string_view pattern, std::string_view text);

// A text as a literal of the dialect: between apostrophes, its own
// apostrophes doubled ("P'01" gives "'P''01'").
std::string CitaTexto(std::string_view text);

// Compares two code-page texts without regard to letter case (Latin-1
// folding): negative, zero or positive.
int CompareIgnoringCase(std::string_view a, std::string_view b);

}  // namespace orvex::db
