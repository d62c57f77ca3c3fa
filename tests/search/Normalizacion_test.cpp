#include "search/Normalizacion.h"

#include <gtest/gtest.h>

#include "base/CodePage.h"

namespace orvex::search {
namespace {

TEST(QuitaAcentos, FoldsOnlyItsSeventeenLetters) {
  struct Case {
    const char* texto;
    const char* resultado;
  } cases[] = {
      {"Ángel ÀLGEBRA", "Angel ÀLGEBRA"},
      {"áéíóú üÜ àèìòù ÁÉÍÓÚ", "aeiou uU aeiou AEIOU"},
      {"ÂÊÎÔÛ âêîôû ÄËÏÖ äëïö ÈÌÒÙ", "ÂÊÎÔÛ âêîôû ÄËÏÖ äëïö ÈÌÒÙ"},
      {"año Ñandú çÇ", "año Ñandu çÇ"},
      {"\"histo*\" $ camión", "\"histo*\" $ camion"},
      {"   ", "   "},
      {"", ""},
  };
  for (const Case& c : cases) {
    std::string texto = Latin1(c.texto);
    EXPECT_EQ(QuitaAcentos(texto), Latin1(c.resultado)) << c.texto;
    EXPECT_EQ(texto, Latin1(c.resultado)) << "left in the argument: " << c.texto;
  }
}

TEST(NormalizaVocales, UpperCasesAndFoldsEveryAccentedVowel) {
  struct Case {
    const char* texto;
    const char* resultado;
  } cases[] = {
      {"camión", "CAMION"},
      {"pingüino", "PINGUINO"},
      {"año", "AÑO"},
      {"façade", "FAÇADE"},
      {"àâäá èêëé ìîïí òôöó ùûüú", "AAAA EEEE IIII OOOO UUUU"},
      {"ÀÂÄÁ ÈÊËÉ ÌÎÏÍ ÒÔÖÓ ÙÛÜÚ", "AAAA EEEE IIII OOOO UUUU"},
      {"ý õ ã", "Ý Õ Ã"},  // not vowels of the table: upper-cased only
      {"\"hist*\" $", "\"HIST*\" $"},
  };
  for (const Case& c : cases) {
    const std::string texto = Latin1(c.texto);
    const std::string antes = texto;
    EXPECT_EQ(NormalizaVocales(texto), Latin1(c.resultado)) << c.texto;
    EXPECT_EQ(texto, antes);
  }
}

}  // namespace
}  // namespace orvex::search
