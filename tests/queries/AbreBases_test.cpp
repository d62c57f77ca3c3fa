#include "queries/AbreBases.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/PosixPlatform.h"
#include "tests/support/Fakes.h"

namespace orvex::queries {
namespace {

namespace fs = std::filesystem;

const std::string kCatalogo = (fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite").string();

// The fixture catalogue through the real file system; output, clock and the
// database opener are the test's.
class AbreBasesTest : public ::testing::Test {
 protected:
  AbreBasesTest()
      : sys_{p_.entorno, p_.entrada, p_.salida, p_.reloj, archivos_, p_.motores},
        s_(sys_, p_.bases) {}
  testing::FakePlatform p_;
  PosixFileSystem archivos_;
  Servicios sys_;
  cgi::Solicitud s_;
};

TEST_F(AbreBasesTest, FormsPathsWithExactlyOneSeparator) {
  EXPECT_EQ(RutaArchivo("/bases", "KORVEL8.MDB"), "/bases/KORVEL8.MDB");
  EXPECT_EQ(RutaArchivo("/bases/", "KORVEL8.MDB"), "/bases/KORVEL8.MDB");
}

TEST_F(AbreBasesTest, OpensTheBookDatabasesAndSaysWhere) {
  s_.cfg.RutaBase = kCatalogo;
  AbreBasesLibros(s_);
  ASSERT_NE(s_.BDIndice, nullptr);
  ASSERT_NE(s_.BDBiblio, nullptr);
  // "KORVEL8.mdb" is found as the file on disk spells it.
  EXPECT_EQ(p_.bases.opened, (std::vector<std::string>{kCatalogo + "/INDIZADO.MDB",
                                                        kCatalogo + "/KORVEL8.MDB"}));
  EXPECT_EQ(p_.salida.contents, "<!-- [LOAD form] Ruta abierta: " + kCatalogo + "/<br/>-->\r\n");
  EXPECT_EQ(s_.BDIndice->TableNames(), std::vector<std::string>{"TABLA"});
}

TEST_F(AbreBasesTest, PeriodicalsOpenTheirOwnIndex) {
  s_.cfg.RutaBase = kCatalogo + "/";
  AbreBasesRevistas(s_);
  EXPECT_EQ(p_.bases.opened, (std::vector<std::string>{kCatalogo + "/KORVEL8.MDB",
                                                        kCatalogo + "/indizaPP.MDB"}));
  EXPECT_EQ(p_.salida.contents, "");
}

TEST_F(AbreBasesTest, AnOpenFailureIsReportedAndEndsTheRequest) {
  s_.cfg.RutaBase = "/bases";
  p_.bases.failures.emplace("/bases/INDIZADO.MDB", RuntimeError(3051, "No se puede abrir"));
  EXPECT_THROW(AbreBasesLibros(s_), ProcessEnd);
  EXPECT_EQ(p_.salida.contents,
            "<center><p><H4>Abrir BD: Ocurrio el error: 3051 No se puede abrir<br><i>/bases/<i>"
            "</H4><p/></center>\r\n");
}

TEST(ArchivosFaltantes, ListsAndReportsMissingFiles) {
  testing::FakePlatform p_;
  cgi::Solicitud s_(p_.sys, p_.bases);
  p_.archivos.files["/bases/korvel8.mdb"] = "";
  const auto faltantes = ArchivosFaltantes(s_, "/bases");
  EXPECT_EQ(faltantes, std::vector<std::string>{"/bases/INDIZADO.MDB"});
  EXPECT_EQ(s_.Traza, "Ruta1:/bases/KORVEL8.MDB - Ruta2:/bases/INDIZADO.MDB<br/>");
  ReportaArchivosFaltantes(s_, "/bases", faltantes);
  EXPECT_EQ(p_.salida.contents.rfind("<p>No se encontr\xF3: /bases/INDIZADO.MDB\r\n<center><p><H4><P>Los", 0), 0u);
  EXPECT_NE(p_.salida.contents.find("La ruta obtenida es: /bases<center>"), std::string::npos);
}

}  // namespace
}  // namespace orvex::queries
