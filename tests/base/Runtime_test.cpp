#include "base/Runtime.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>

#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex {
namespace {

TEST(Runtime, ReadsTheLeadingNumberAsTheOldRuntimeDid) {
  struct Case {
    const char* text;
    double value;
  } cases[] = {
      {"", 0},          {"abc", 0},        {"12abc", 12},   {"  42", 42},
      {"1 2 3", 123},   {"\t\n7", 7},      {"-3.5e2x", -350}, {"+7", 7},
      {".5", 0.5},      {"1,5", 1},        {"1e", 1},       {"2D2", 200},
      {"&HFF", 255},    {"&HFFFF", -1},    {"&H10000", 65536}, {"&O17", 15},
      {"&Hzz", 0},      {"&", 0},          {"-", 0},        {"12\r34", 12},
  };
  for (const Case& c : cases) EXPECT_DOUBLE_EQ(LeadingNumber(c.text), c.value) << c.text;
  EXPECT_EQ(testing::ErrorNumberOf([] { LeadingNumber("1e999"); }), kErrDesbordamiento);
}

TEST(Runtime, RoundsHalfToEven) {
  struct Case {
    double in;
    double out;
  } cases[] = {{0.5, 0}, {1.5, 2}, {2.5, 2}, {3.5, 4}, {-2.5, -2}, {2.4999, 2}, {2.5001, 3}};
  for (const Case& c : cases) EXPECT_EQ(RoundHalfEven(c.in), c.out) << c.in;
}

TEST(Runtime, NarrowsWithOverflow) {
  EXPECT_EQ(ToByte(255.4), 255);
  EXPECT_EQ(ToByte(-0.5), 0);
  EXPECT_EQ(ToInt16(-32768), -32768);
  EXPECT_EQ(ToInt32(2147483647.4), 2147483647);
  EXPECT_EQ(ToInt32(10.5), 10);
  EXPECT_EQ(testing::ErrorNumberOf([] { ToByte(255.5); }), kErrDesbordamiento);
  EXPECT_EQ(testing::ErrorNumberOf([] { ToByte(-1); }), kErrDesbordamiento);
  EXPECT_EQ(testing::ErrorNumberOf([] { ToInt16(32768); }), kErrDesbordamiento);
  EXPECT_EQ(testing::ErrorNumberOf([] { ToInt32(2147483647.5); }), kErrDesbordamiento);
  EXPECT_EQ(testing::ErrorNumberOf([] { ToInt32(-2147483649.0); }), kErrDesbordamiento);
}

TEST(Runtime, ConvertsTextToBoolean) {
  struct Case {
    const char* text;
    bool value;
  } cases[] = {{"True", true}, {"FALSE", false}, {" true ", true}, {"1", true},
               {"0", false},   {"-1", true},     {"0.0", false},   {"2.5", true},
               {"&H0", false}, {"&H1", true}};
  for (const Case& c : cases) EXPECT_EQ(ToBoolean(c.text), c.value) << c.text;
  for (const char* bad : {"", "yes", "1x", "tru", "1 2", "&Hzz"}) {
    EXPECT_EQ(testing::ErrorNumberOf([&] { ToBoolean(bad); }), kErrTiposNoCoinciden) << bad;
  }
}

TEST(Runtime, TrimsBlanksOnly) {
  EXPECT_EQ(TrimBlanks("  x  "), "x");
  EXPECT_EQ(TrimBlanks(" \tx\r\n "), "\tx\r\n");
  EXPECT_EQ(TrimBlanks("   "), "");
}

TEST(Runtime, FindsFromOneBasedPositions) {
  EXPECT_EQ(InStr(1, "a=b&c=d", "="), 2u);
  EXPECT_EQ(InStr(3, "a=b&c=d", "="), 6u);
  EXPECT_EQ(InStr(7, "a=b&c=d", "="), 0u);
  EXPECT_EQ(InStr(9, "abc", "c"), 0u);
}

// BuscaTexto jumps between a rare byte of what it looks for: whatever the
// text, the needle and the starting point, it must find what
// std::string_view::find finds. Texts and needles are drawn from a small
// alphabet of common and rare bytes so that near misses, overlaps and
// matches at both ends happen often.
TEST(Runtime, BuscaTextoFindsWhatFindFinds) {
  const struct {
    std::string_view texto, buscar;
    std::size_t desde, esperado;
  } casos[] = {
      {"<p><!FICHA!></p>", "<!FICHA!>", 0, 3},
      {"<!FICHA!>", "<!FICHA!>", 0, 0},
      {"<!FICHA!>", "<!FICHA!>", 1, std::string_view::npos},
      {"<!FICHA1!><!FICHA!>", "<!FICHA!>", 0, 10},
      {"ab!!>", "!>", 0, 3},
      {"x]*", "]*", 0, 1},
      {"!", "<!", 0, std::string_view::npos},
      {"<!", "<!", 5, std::string_view::npos},
      {"abc", "", 3, 3},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(BuscaTexto(c.texto, c.buscar, c.desde), c.esperado) << c.texto << " / " << c.buscar;
  }

  std::mt19937 azar(20261124);
  const std::string_view alfabeto = "<!>a \xA6*]";
  auto cadena = [&](std::size_t largo) {
    std::string s;
    for (std::size_t i = 0; i < largo; ++i) s += alfabeto[azar() % alfabeto.size()];
    return s;
  };
  for (int vuelta = 0; vuelta < 20000; ++vuelta) {
    const std::string texto = cadena(azar() % 40);
    const std::string buscar = cadena(azar() % 5);
    const std::size_t desde = azar() % (texto.size() + 3);
    ASSERT_EQ(BuscaTexto(texto, buscar, desde), std::string_view(texto).find(buscar, desde))
        << "texto '" << texto << "' buscar '" << buscar << "' desde " << desde;
  }
}

TEST(RuntimeError, CarriesTheSpanishDescriptions) {
  EXPECT_EQ(RuntimeError::Standard(52).description(), "Nombre o n\xFAmero de archivo incorrecto");
  EXPECT_EQ(RuntimeError::Standard(5).description(),
            "Llamada a procedimiento o argumento no v\xE1lidos");
  EXPECT_EQ(RuntimeError::Standard(9).description(), "El sub\xEDndice est\xE1 fuera del intervalo");
  EXPECT_EQ(RuntimeError::Standard(53).number(), 53);
}

}  // namespace
}  // namespace orvex
