#include "config/Plantillas.h"

#include <gtest/gtest.h>

#include "tests/support/Fakes.h"

namespace orvex::config {
namespace {

TEST(ReemplazaTexto, ReplacesLeftToRightWithoutRescanning) {
  struct Case {
    std::string texto, buscar, reemplazo, resultado;
  } cases[] = {
      {"aba", "a", "aa", "aabaa"},
      {"xyz", "q", "r", "xyz"},
      {"aaa", "aa", "b", "ba"},
      {"<!fecha!> <!FECHA!>", "<!FECHA!>", "hoy", "<!fecha!> hoy"},
      {"a]*b]*", "]*", "}", "a}b}"},
      {"abc", "abc", "", ""},
      {"", "a", "b", ""},
  };
  for (Case& c : cases) {
    std::string texto = c.texto;
    EXPECT_EQ(ReemplazaTexto(texto, c.buscar, c.reemplazo), c.resultado) << c.texto;
    EXPECT_EQ(texto, c.resultado) << "changed in place: " << c.texto;
  }
}

TEST(ReemplazaFechas, FillsDateWeekdayAndTime) {
  testing::FixedClock reloj;
  reloj.now.year = 2008, reloj.now.month = 3, reloj.now.day = 5;
  reloj.now.hour = 15, reloj.now.minute = 7, reloj.now.weekday = 3;
  std::string texto = "Hoy es <!DIA!>, <!FECHA!> a las <!HORA!>; <!DIA!> otra vez; <!hora!>";
  ReemplazaFechas(texto, reloj);
  EXPECT_EQ(texto, "Hoy es mi\xE9rcoles, 05/mar/2008 a las 03:07 PM; mi\xE9rcoles otra vez; <!hora!>");
}

TEST(MensajeH4, WritesOneUnescapedLine) {
  testing::MemoryOutput salida;
  MensajeH4(salida, "<b>x</b> & y");
  ASSERT_EQ(salida.writes.size(), 1u);
  EXPECT_EQ(salida.writes[0], "<center><p><H4><b>x</b> & y</H4><p/></center>\r\n");
}

}  // namespace
}  // namespace orvex::config
