#include "gateway/Revision.h"

#include <gtest/gtest.h>

#include <sys/file.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "base/CodePage.h"
#include "base/Red.h"
#include "tests/gateway/SolicitudDiagnostico.h"
#include "tests/support/Fakes.h"

namespace orvex::gateway {
namespace {

namespace fs = std::filesystem;

class RevisionTest : public SolicitudDiagnostico {};

TEST_F(RevisionTest, TestAllPassesOnAGoodCatalogueAndLeavesNoRow) {
  testing::RedQueResponde red;
  s_.red = &red;
  Configura(s_.cfg.TextoCFG + "DISPONIBILIDAD:{##00  127.0.0.1 ## 7700\r\n##01  circ ## 7701\r\n}");
  const auto filas = FilasDeConsultas();
  const std::string pagina = Pagina(TestAll, "TEST_ALL");
  EXPECT_EQ(FilasDeConsultas(), filas);
  EXPECT_FALSE(Contiene(pagina, Latin1("falló"))) << pagina;
  EXPECT_TRUE(Contiene(pagina, " 0 fallaron.</p>"));
  for (const char* linea :
       {"<li>Secci\xF3n NOENCONTRADO: correcto</li>", "<li>Archivo indizaPP.MDB: correcto</li>",
        "<li>Formato de KORVEL8.MDB (SQLite): correcto</li>",
        "<li>Tabla Consultas de estadisticas.mdb: correcto</li>",
        "<li>Tabla TABLAANA de indizaPP.MDB: correcto</li>",
        "<li>Escritura en estadisticas.mdb: correcto</li>",
        "<li>Hoja de estilo pp_propia_ana.xsl: no instalada</li>",
        "<li>Ecos: el texto de la solicitud se escribe escapado</li>",
        "<li>CuerpoMaximo: 1048576 bytes</li>",
        "<li>Servidor de circulaci\xF3n ##01 circ:7701: correcto</li>"}) {
    EXPECT_TRUE(Contiene(pagina, linea)) << linea;
  }
  EXPECT_TRUE(pagina.ends_with(kFin));
  s_.red = nullptr;
  EXPECT_TRUE(Contiene(Pagina(TestAll, "TEST_ALL"), "##00 127.0.0.1:7700: sin red"));
}

TEST_F(RevisionTest, TestAllMarksMissingFilesColumnsAndSections) {
  fs::remove(dir_.ruta() / "indizaPP.MDB");
  db::OpenDatabase((dir_.ruta() / "KORVEL8.MDB").string(), CodePage::Windows1252())
      ->Execute("ALTER TABLE Ejemplares DROP COLUMN Tomo");
  Configura("BASE:{" + dir_.ruta().string() + "}FORMATO:{x}");
  const std::string pagina = Pagina(TestAll, "TEST_ALL");
  for (const char* linea :
       {"<li>Archivo indizaPP.MDB: fall\xF3: no se encuentra en ",
        "<li>Tabla Ejemplares de KORVEL8.MDB: fall\xF3: faltan las columnas Tomo</li>",
        "<li>Tabla Fichas de KORVEL8.MDB: correcto</li>",
        "<li>Secci\xF3n FINAL: fall\xF3: no existe</li>", "<li>Secci\xF3n FORMATO: correcto</li>"}) {
    EXPECT_TRUE(Contiene(pagina, linea)) << linea << "\n" << pagina;
  }
  EXPECT_FALSE(Contiene(pagina, "Apertura de indizaPP.MDB"));
  EXPECT_TRUE(pagina.ends_with(kFin));

  Configura("BASE:{/no/hay/tal}");
  EXPECT_TRUE(Contiene(Pagina(TestAll, "TEST_ALL"), "<li>Directorio /no/hay/tal: fall\xF3: "));
}

// The settings that orvex.ini brought back are named as the old behaviour.
TEST_F(RevisionTest, TestAllNamesTheSafetySettingsInEffect) {
  s_.ajustes.cfg_cualquier_ruta = true;
  s_.ajustes.ecos_literales = true;
  s_.ajustes.cuerpo_maximo = 4096;
  const std::string pagina = Pagina(TestAll, "TEST_ALL");
  for (const char* linea :
       {"<H4>Ajustes de seguridad (orvex.ini)</H4>",
        "<li>ArchivoCFG: cualquier ruta (el comportamiento anterior)</li>",
        "<li>Ecos: literales: el texto de la solicitud se escribe tal como llega (el comportamiento "
        "anterior)</li>",
        "<li>Reservas: s\xF3lo a los servidores de DISPONIBILIDAD:</li>",
        "<li>CuerpoMaximo: 4096 bytes</li>"}) {
    EXPECT_TRUE(Contiene(pagina, linea)) << linea << "\n" << pagina;
  }
}

// "fichaWeb.xsl" is looked for in the program's "XSLs" folder and then in
// the first catalogue's directory; the other sheets in "XSLs" alone. Names
// match regardless of letter case, and the note gives the path found.
TEST_F(RevisionTest, TestAllFindsTheStyleSheetsWhereTheGatewayLoadsThem) {
  const fs::path xsls = programa_.ruta() / "XSLs";
  const fs::path catalogo = dir_.ruta();
  fs::create_directory(xsls);
  const auto instalada = [](const char* hoja, const fs::path& ruta) {
    return std::string("<li>Hoja de estilo ") + hoja + ": instalada en " + ruta.string() + "</li>";
  };
  const auto no_instalada = [](const char* hoja) {
    return std::string("<li>Hoja de estilo ") + hoja + ": no instalada</li>";
  };
  struct Caso {
    std::vector<fs::path> hojas;
    std::vector<std::string> lineas;
  } casos[] = {
      {{},
       {no_instalada("fichaWeb.xsl"), no_instalada("pp_propia.xsl"), no_instalada("pp_propia_ana.xsl")}},
      {{xsls / "fichaWeb.xsl", catalogo / "fichaWeb.xsl"},
       {instalada("fichaWeb.xsl", xsls / "fichaWeb.xsl")}},
      {{catalogo / "fichaWeb.xsl"}, {instalada("fichaWeb.xsl", catalogo / "fichaWeb.xsl")}},
      {{xsls / "PP_PROPIA.XSL", xsls / "pp_propia_ana.xsl"},
       {instalada("pp_propia.xsl", xsls / "PP_PROPIA.XSL"),
        instalada("pp_propia_ana.xsl", xsls / "pp_propia_ana.xsl")}},
      {{catalogo / "pp_propia.xsl", catalogo / "pp_propia_ana.xsl"},
       {no_instalada("pp_propia.xsl"), no_instalada("pp_propia_ana.xsl")}},
  };
  for (const Caso& c : casos) {
    for (const fs::path& hoja : c.hojas) std::ofstream(hoja) << "<xsl:stylesheet/>";
    const std::string pagina = Pagina(TestAll, "TEST_ALL");
    for (const std::string& linea : c.lineas) EXPECT_TRUE(Contiene(pagina, linea)) << linea << "\n" << pagina;
    for (const fs::path& hoja : c.hojas) fs::remove(hoja);
  }
}

// The checklist sees the installation through the request's file system: a
// file or directory that it does not show is missing, whatever the disk
// holds, and no database is opened in it.
TEST_F(RevisionTest, TestAllLooksForTheCatalogueThroughTheRequestsFileSystem) {
  const std::string dir = dir_.ruta().string();
  struct Caso {
    std::string oculto;
    std::vector<std::string> lineas;
  } casos[] = {
      {JoinPath(dir, "KORVEL8.MDB"),
       {"<li>Archivo KORVEL8.MDB: fall\xF3: no se encuentra en " + dir + "</li>",
        "<li>Archivo INDIZADO.MDB: correcto</li>"}},
      {dir,
       {"<li>Directorio " + dir + ": fall\xF3: no existe, no se puede leer o no tiene archivos</li>",
        " 1 fallaron.</p>"}},
  };
  for (const Caso& c : casos) {
    archivos_.ocultos = {c.oculto};
    p_.bases.opened.clear();
    const std::string pagina = Pagina(TestAll, "TEST_ALL");
    for (const std::string& linea : c.lineas) EXPECT_TRUE(Contiene(pagina, linea)) << linea << "\n" << pagina;
    for (const std::string& abierto : p_.bases.opened) EXPECT_NE(abierto.rfind(c.oculto, 0), 0u) << abierto;
  }
}

// A catalogue of Jet files, as a library keeps them: every check passes,
// and the write check of the statistics file adds no row, since the Jet
// engine cannot take one back.
class RevisionJetTest : public RevisionTest {
 protected:
  RevisionJetTest() {
    for (const std::string& archivo : kArchivosDelCatalogo) jet_.Copia(kCatalogos / "jet" / archivo, archivo);
    Configura("BASE:{" + jet_.ruta().string() +
              "}ENCABEZADO:{<h1>}FORMATO:{<!FICHA!>}SEPARADOR:{<hr>}NOENCONTRADO:{nada}FINAL:{fin}");
  }
  fs::path Estadisticas() const { return jet_.ruta() / "estadisticas.mdb"; }

  testing::DirectorioTemporal jet_;
};

TEST_F(RevisionJetTest, TestAllPassesAndLeavesTheStatisticsFileAsItWas) {
  const std::int64_t filas = FilasDeConsultas(jet_.ruta());
  const std::string antes = testing::ReadFile(Estadisticas());
  const std::string pagina = Pagina(TestAll, "TEST_ALL");
  EXPECT_FALSE(Contiene(pagina, Latin1("falló"))) << pagina;
  EXPECT_TRUE(Contiene(pagina, " 0 fallaron.</p>")) << pagina;
  for (const char* linea : {"<li>Formato de KORVEL8.MDB (Jet): correcto</li>",
                            "<li>Formato de estadisticas.mdb (Jet): correcto</li>",
                            "<li>Tabla Consultas de estadisticas.mdb: correcto</li>",
                            "<li>Escritura en estadisticas.mdb: correcto</li>"}) {
    EXPECT_TRUE(Contiene(pagina, linea)) << linea;
  }
  EXPECT_EQ(FilasDeConsultas(jet_.ruta()), filas);
  EXPECT_EQ(testing::ReadFile(Estadisticas()), antes);
}

// The lock file of a statistics file that another program has open: no row
// could be written, and the check says so.
TEST_F(RevisionJetTest, TestAllFailsTheWriteCheckWhileAnotherProgramHoldsTheLockFile) {
  const fs::path bloqueo = jet_.ruta() / "estadisticas.ldb";
  std::ofstream(bloqueo) << "";
  const int fd = ::open(bloqueo.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  const std::string antes = testing::ReadFile(Estadisticas());
  const std::string pagina = Pagina(TestAll, "TEST_ALL");
  ::close(fd);
  EXPECT_TRUE(Contiene(pagina, Latin1("<li>Escritura en estadisticas.mdb: falló: "))) << pagina;
  EXPECT_TRUE(Contiene(pagina, " 1 fallaron.</p>")) << pagina;
  EXPECT_EQ(testing::ReadFile(Estadisticas()), antes);
}

}  // namespace
}  // namespace orvex::gateway
