#pragma once

#include <string>

namespace orvex::search {

// Folds the accents a reader types early in the request's expressions:
// acute vowels, grave lower-case vowels and ü/Ü lose their marks, letter case
// kept. Upper-case grave, circumflex and other diaereses stay for
// NormalizaVocales. A text of blanks is left alone. The folded text is
// returned and left in `texto`.
std::string QuitaAcentos(std::string& texto);

// The upper-cased copy of `texto` with every accented vowel folded to its
// plain letter (Ñ and Ç stay), the form of the words in the index.
std::string NormalizaVocales(const std::string& texto);

}  // namespace orvex::search
