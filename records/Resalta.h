#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "search/Busqueda.h"

// Highlighting of the search words in a record shown as the answer to a word
// search, so that the reader sees why the record matched.
namespace orvex::records {

// The mark-up put around each highlighted occurrence (34 characters together).
inline constexpr std::string_view kAbreResalte = "<font color=#0000ff><b>";
inline constexpr std::string_view kCierraResalte = "</b></font>";

// True when the occurrence of `palabra` at the 1-based `posicion` of `texto`
// is a whole word: neither the character before it nor the one after it is a
// word character. Word characters are the ASCII digits and letters only, so
// "ñ", accented letters, blanks and punctuation are all boundaries (kept on
// purpose). `texto` is the folded copy (see ResaltaPalabra), in which the
// lower-case acute vowels already read as plain vowels and so do count as
// word characters. An occurrence at the first or last character has no
// neighbour on that side and is not held back by it.
bool EsPalabraCompleta(std::int16_t posicion, std::string_view texto,
                       std::string_view palabra);

// Wraps every whole-word occurrence of `palabra` in `texto` (record HTML in
// Windows-1252) in kAbreResalte / kCierraResalte, and returns the result,
// which is also left in `texto`.
//
// The search starts at position `offset` + 1 (1-based), so with the offset 1
// every caller passes, an occurrence at the first character is never marked;
// a text no longer than that start position, or an empty word, comes back
// unchanged. Occurrences are looked for in a folded copy of the text, where
// "á é í ó ú" read as "a e i o u" (capitals, "ü" and "ñ" are not folded), ASCII
// letters compared without regard to case; the mark-up wraps the characters as
// written. `palabra` is used as given: a phrase keeps its quotes and a
// truncation its "$".
//
// An occurrence inside a tag whose text before it holds "HREF" (any case) is
// left unmarked; inside any other tag it is marked all the same, which breaks
// that tag. After each whole-word occurrence, marked or not, the search goes on
// Len(kAbreResalte) + Len(kCierraResalte) + Len(palabra) characters after its
// start: an unmarked occurrence therefore hides any other that begins within
// the 34 characters after it (kept on purpose).
//
// Positions are 16-bit: raises 6 (Desbordamiento) when the text has 32767
// characters or more (its walking counter steps one past the last character),
// or when an occurrence or the next search position lies beyond 32767. An
// offset below 0 raises 5 (Argumento no válido) unless the text is empty.
std::string ResaltaPalabra(std::string& texto, std::string_view palabra,
                           std::int16_t offset);

// Highlights in `texto` the words of the entries 0 to 29 of the search-term
// table, in order, each with ResaltaPalabra and the offset 1; empty words are
// skipped, and nothing is done to an empty text. Entry 30 is never used.
void ResaltaTerminos(std::string& texto,
                     const std::array<search::TerminoBusqueda,
                                      search::kMaximoTerminos>& terminos);

}  // namespace orvex::records
