#pragma once

#include <string>
#include <string_view>

// The text of MARC records on its way into the catalogue.
//
// Records arrive in UTF-8. The catalogue's SQLite files hold UTF-8 too, so the
// tag string and the copies keep the record's own characters; only the word
// index works in the installation's code page (Windows-1252), because the
// gateway looks words up in that form.
namespace orvex::catalogo {

// True when `texto` is well-formed UTF-8: no stray continuation bytes, no
// truncated or overlong sequences, no surrogates, nothing above U+10FFFF.
bool EsUtf8Valido(std::string_view texto);

// `texto` (valid UTF-8) with every ASCII letter followed by a combining
// grave, acute, circumflex, tilde, diaeresis, ring, caron or cedilla
// (U+0300 U+0301 U+0302 U+0303 U+0308 U+030A U+030C U+0327) written as the
// one precomposed letter, when Windows-1252 has it: "a" U+0301 becomes "á",
// "S" U+030C "Š". Records from many catalogues spell accents that way; the
// gateway shows and searches the precomposed letters. Other sequences are
// left as they are.
std::string ComponeAcentos(std::string_view texto);

// The content of one field for the tag string (valid UTF-8 in, UTF-8 out):
// the characters that the tag string's readers treat as structure are
// replaced, "¦" (the field separator) by "|", "Ì" (the end mark) by "I" and
// "\" (the occurrence separator) by "/"; control characters become blanks.
std::string LimpiaContenido(std::string_view texto);

// `texto` (valid UTF-8) in Windows-1252 for the word index: characters the
// code page lacks become blanks (word separators), combining marks left
// after ComponeAcentos are dropped, so that "s" U+0327 still reads "s".
std::string ParaIndice(std::string_view texto);

// The first `n` characters of `texto` (valid UTF-8).
std::string_view CortaCaracteres(std::string_view texto, std::size_t n);

// `texto` without blanks at either end.
std::string_view SinBlancos(std::string_view texto);

}  // namespace orvex::catalogo
