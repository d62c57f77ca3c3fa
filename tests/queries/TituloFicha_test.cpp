#include "queries/TituloFicha.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/PosixPlatform.h"
#include "tests/support/Fakes.h"

namespace orvex::queries {
namespace {

namespace fs = std::filesystem;

const std::string kCatalogo = (fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite").string();

class TituloFichaTest : public ::testing::Test {
 protected:
  TituloFichaTest()
      : sys_{p_.entorno, p_.entrada, p_.salida, p_.reloj, archivos_, p_.motores},
        s_(sys_, p_.bases) {}
  void Base(const std::string& base) { s_.cfg.TextoCFG = "BASE:{" + base + "}\r\n"; }
  testing::FakePlatform p_;
  PosixFileSystem archivos_;
  Servicios sys_;
  cgi::Solicitud s_;
};

TEST_F(TituloFichaTest, TheTitleAreaOfARecordOrOfTheRecordOfACopy) {
  Base(kCatalogo);
  EXPECT_EQ(TituloDeFicha(s_, 15), "El teorema de O'Brien : cuando a < b");
  EXPECT_EQ(TituloDeEjemplar(s_, "000216"), "El teorema de O'Brien : cuando a < b");
  // Nothing of it reaches the page.
  EXPECT_EQ(p_.salida.contents, "");
}

TEST_F(TituloFichaTest, NothingToNameGivesNoTitle) {
  const struct {
    const char* base;
    std::int32_t ficha;
    const char* numadqui;
  } casos[] = {
      {"", 15, "000216"},                          // no catalogue
      {"/no/existe", 15, "000216"},                // files missing
      {"##1 Central|/a\r\n##2 Norte|/b", 15, "000216"},  // several collections
      {nullptr, 0, ""},                            // no record, no copy
      {nullptr, 999999, "NO-EXISTE"},
      {nullptr, -3, "x' OR '1'='1"},               // the copy's number is quoted
  };
  for (const auto& c : casos) {
    s_.BDBiblio.reset();
    s_.BDIndice.reset();
    Base(c.base != nullptr ? c.base : kCatalogo);
    EXPECT_EQ(TituloDeFicha(s_, c.ficha), "") << c.ficha;
    EXPECT_EQ(TituloDeEjemplar(s_, c.numadqui), "") << c.numadqui;
  }
  EXPECT_EQ(p_.salida.contents, "");
}

}  // namespace
}  // namespace orvex::queries
