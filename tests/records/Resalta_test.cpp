#include "records/Resalta.h"

#include <gtest/gtest.h>

#include "base/CodePage.h"
#include "base/RuntimeError.h"

namespace orvex::records {
namespace {

// The occurrence as the page shows it: "{" and "}" stand for the mark-up.
std::string Marcado(const char* texto) {
  std::string r;
  for (char c : Latin1(texto)) {
    if (c == '{') r += kAbreResalte;
    else if (c == '}') r += kCierraResalte;
    else r += c;
  }
  return r;
}

TEST(Resalta, ResaltaPalabraMarksWholeWordsFromTheSecondCharacter) {
  const std::string relleno(34, '.');
  struct Case {
    std::string texto, palabra, esperado;
  } cases[] = {
      {"La Canción de Chile", "cancion", "La {Canción} de Chile"},
      {" ARTE y arte", "arte", " {ARTE} y {arte}"},
      {" arte, arte.", "arte", " {arte}, {arte}."},
      {" artes", "arte", " artes"},
      {" artes arte", "arte", " artes {arte}"},
      // ñ, ü, capitals and grave accents are boundaries; folded acute vowels are not.
      {" ñarteñ üarteÉ àarte", "arte", " ñ{arte}ñ ü{arte}É à{arte}"},
      {" éarte arteó", "arte", " éarte arteó"},
      {" ÓPERA ópera", "opera", " ÓPERA {ópera}"},
      // Inside a link tag nothing is marked, and the next 34 characters are skipped.
      {" <a href=x?arte>arte</a>", "arte", " <a href=x?arte>arte</a>"},
      {" <A HREF=x title=arte>" + relleno + "arte", "arte",
       " <A HREF=x title=arte>" + relleno + "{arte}"},
      {" <a href=x>arte</a>", "arte", " <a href=x>{arte}</a>"},
      {" <img alt=\"arte\">", "arte", " <img alt=\"{arte}\">"},
      // The words are taken as given.
      {" \"arte moderno\" arte moderno", "\"arte moderno\"", " {\"arte moderno\"} arte moderno"},
      {" artes", "art$", " artes"},
      // Nothing is looked for at the first character, or from past the end.
      {"arte arte", "arte", "arte {arte}"},
      {" b", "b", " b"},
      {"", "b", ""},
      {" arte", "", " arte"},
  };
  for (Case& c : cases) {
    std::string texto = Latin1(c.texto);
    const std::string devuelto = ResaltaPalabra(texto, Latin1(c.palabra), 1);
    EXPECT_EQ(texto, Marcado(c.esperado.c_str())) << c.texto << " / " << c.palabra;
    EXPECT_EQ(devuelto, texto);
  }
}

TEST(Resalta, EsPalabraCompletaLooksOnlyAtTheNeighbours) {
  struct Case {
    std::int16_t posicion;
    const char* texto;
    const char* palabra;
    bool completa;
  } cases[] = {
      {1, "arte", "arte", true},   {1, "arte9", "arte", false}, {2, "Zarte", "arte", false},
      {2, "-arte-", "arte", true}, {3, "x arte", "arte", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(EsPalabraCompleta(c.posicion, c.texto, c.palabra), c.completa) << c.texto;
  }
}

TEST(Resalta, ResaltaPalabraOverflowsItsSixteenBitPositions) {
  struct Case {
    std::string texto;
    bool desborda;
  } cases[] = {
      {std::string(32766, 'x'), false},
      {std::string(32767, 'x'), true},
      // Marking the first occurrence pushes the last one past 32767.
      {" arte" + std::string(32740, '.') + " arte", true},
      {"  art" + std::string(32700, '.') + " arte" + std::string(40, '.'), false},
      // The search position after an occurrence near the end overflows too.
      {"  art" + std::string(32740, '.') + " arte", true},
  };
  for (Case& c : cases) {
    try {
      ResaltaPalabra(c.texto, "arte", 1);
      EXPECT_FALSE(c.desborda) << c.texto.size();
    } catch (const RuntimeError& e) {
      EXPECT_TRUE(c.desborda) << c.texto.size();
      EXPECT_EQ(e.number(), kErrDesbordamiento);
    }
  }
}

TEST(Resalta, ResaltaTerminosUsesTheNonEmptyEntriesUpTo29) {
  std::array<search::TerminoBusqueda, search::kMaximoTerminos> terminos;
  terminos[0].palabra = "arte";
  terminos[29].palabra = "chile";
  terminos[30].palabra = "libro";
  std::string texto = " arte de chile, libro";
  ResaltaTerminos(texto, terminos);
  EXPECT_EQ(texto, Marcado(" {arte} de {chile}, libro"));
}

}  // namespace
}  // namespace orvex::records
