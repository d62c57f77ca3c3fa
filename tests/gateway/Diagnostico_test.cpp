#include "gateway/Diagnostico.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/CodePage.h"
#include "base/PosixPlatform.h"
#include "circulation/ChecaIP.h"
#include "tests/support/Fakes.h"

namespace orvex::gateway {
namespace {

namespace fs = std::filesystem;

const fs::path kCatalogo =
    fs::path(__FILE__).parent_path() / ".." / ".." / ".." / "shared" / "fixtures" / "catalogo" / "sqlite";

bool Contiene(const std::string& pagina, const std::string& texto) {
  return pagina.find(texto) != std::string::npos;
}

// A circulation server that always answers.
class RedQueResponde : public circulation::Red {
 public:
  std::optional<std::string> Resuelve(const std::string&, int&) override { return "10.1.2.3"; }
  std::optional<std::string> NombreLocal(int&) override { return "local"; }
  int Eco(std::uint32_t, const std::string& payload, int, int& rtt_ms, std::string& reply,
          std::string& metodo) override {
    rtt_ms = 1;
    reply = payload;
    metodo = "prueba";
    return circulation::kIpSuccess;
  }
};

// A request from `ip` on a writable copy of the fixture catalogue, through
// the real file system.
class DiagnosticoTest : public ::testing::Test {
 protected:
  DiagnosticoTest()
      : sys_{p_.entorno, p_.entrada, p_.salida, p_.reloj, archivos_, p_.motores}, s_(sys_, p_.bases) {
    for (const char* archivo : {"KORVEL8.MDB", "INDIZADO.MDB", "indizaPP.MDB", "estadisticas.mdb"}) {
      dir_.Copia(kCatalogo / archivo, archivo);
    }
    s_.VersionPrograma = "Orvex 4.0 prueba";
    s_.cfg.ArchivoCFG = "/prog/libros.cfg";
    Configura("BASE:{" + dir_.ruta().string() +
              "}ENCABEZADO:{<h1>}FORMATO:{<!FICHA!>}SEPARADOR:{<hr>}NOENCONTRADO:{nada}FINAL:{fin}");
    Desde("127.0.0.1");
  }
  void Configura(const std::string& texto) { s_.cfg.TextoCFG = texto; }
  void Desde(const std::string& ip) {
    p_.entorno.vars["REMOTE_ADDR"] = ip;
    LeeVariablesCGI(s_.cgi, p_.entorno);
  }
  std::string Pagina(void (*comando)(Solicitud&, const std::string&), const std::string& expresion) {
    p_.salida.contents.clear();
    p_.salida.position = 0;
    comando(s_, expresion);
    return p_.salida.contents;
  }
  std::int64_t FilasDeConsultas() {
    auto db = db::OpenDatabase((dir_.ruta() / "estadisticas.mdb").string(), CodePage::Windows1252(),
                               {.read_only = true});
    auto rs = db->OpenRecordset("SELECT COUNT(*) AS n FROM Consultas", db::RecordsetType::Snapshot);
    return rs->Field("n").integer;
  }

  testing::FakePlatform p_;
  PosixFileSystem archivos_;
  Servicios sys_;
  Solicitud s_;
  testing::DirectorioTemporal dir_;
};

const std::string kFin = "</BODY></HTML>\r\n";

TEST_F(DiagnosticoTest, OnlyLoopbackAndListedAddressesAreTheAdministrator) {
  struct Caso {
    const char* ip;
    const char* lista;  // the body of "DIAGNOSTICO:"; nullptr: no section
    bool admin;
  } casos[] = {
      {"127.0.0.1", nullptr, true},
      {"127.200.3.4", nullptr, true},
      {"::1", nullptr, true},
      {"::ffff:127.0.0.1", nullptr, true},
      {" 127.0.0.1 ", nullptr, true},
      {"", nullptr, false},
      {"128.0.0.1", nullptr, false},
      {"10.0.0.127", nullptr, false},
      {"1127.0.0.1", nullptr, false},
      {"127.0.0", nullptr, false},
      {"::2", nullptr, false},
      {"192.168.1.20", "192.168.1.", true},
      {"192.168.10.2", "192.168.1.", false},
      {"192.168.1.2", "\r\n\r\n  10.0.0.5\r\n192.168.1.2  \r\n", true},
      {"10.0.0.5", "\r\n\r\n  10.0.0.5\r\n192.168.1.2  \r\n", true},
      {"192.168.1.25", "192.168.1.2", false},  // an address is no prefix
      {"10.9.9.9", "\r\n\r\n", false},
      {"fe80::1", "fe80:", true},
  };
  for (const Caso& c : casos) {
    Configura(c.lista == nullptr ? "BASE:{/x}" : std::string("BASE:{/x}DIAGNOSTICO:{") + c.lista + "}");
    Desde(c.ip);
    EXPECT_EQ(ClienteAdministrador(s_), c.admin) << "[" << c.ip << "] " << (c.lista ? c.lista : "-");
  }
}

TEST_F(DiagnosticoTest, ReservedCommandsRefuseOtherClientsWithACompletePage) {
  Configura("BASE:{" + dir_.ruta().string() + "}SECRETO:{clave}");
  Desde("203.0.113.9");
  const auto filas = FilasDeConsultas();
  for (auto comando : {DebugCfg, ShowSec, TestAll}) {
    const std::string pagina = Pagina(comando, "SHOW_SEC 1");
    EXPECT_EQ(pagina.rfind("Content-Type: text/html\r\n", 0), 0u);
    EXPECT_TRUE(Contiene(pagina, Latin1("Este comando está reservado al administrador del sistema.")));
    EXPECT_FALSE(Contiene(pagina, "clave"));
    EXPECT_FALSE(Contiene(pagina, dir_.ruta().string()));
    EXPECT_TRUE(pagina.ends_with(kFin));
  }
  EXPECT_TRUE(p_.bases.opened.empty());
  EXPECT_EQ(FilasDeConsultas(), filas);
  // The public ones answer anyone.
  EXPECT_TRUE(Contiene(Pagina(ShowVer, "SHOW_VER"), "Orvex 4.0 prueba"));
  EXPECT_TRUE(Contiene(Pagina(ShowBdt, "SHOW_BDT"), Latin1("Títulos: 347")));
}

TEST_F(DiagnosticoTest, DebugCfgShowsTheWholeFileEscaped) {
  Configura("BASE:{/x}\r\nFINAL:{<b>Tom & \"Jerry\"</b>}");
  const std::string pagina = Pagina(DebugCfg, "DEBUGCFG");
  EXPECT_TRUE(Contiene(pagina, "Archivo: /prog/libros.cfg"));
  EXPECT_TRUE(Contiene(pagina, "<pre>BASE:{/x}\r\nFINAL:{&lt;b&gt;Tom &amp; &quot;Jerry&quot;&lt;/b&gt;}</pre>"));
  EXPECT_FALSE(Contiene(pagina, "<b>Tom"));
  EXPECT_TRUE(pagina.ends_with(kFin));
}

TEST_F(DiagnosticoTest, ShowVerNamesVersionEngineAndXslModule) {
  p_.motores.xml = false;
  const std::string pagina = Pagina(ShowVer, "SHOW_VER");
  EXPECT_TRUE(Contiene(pagina, Latin1("<p>Versión: Orvex 4.0 prueba</p>")));
  EXPECT_TRUE(Contiene(pagina, "<li>Motor de bases de datos: SQLite 3.")) << pagina;
  EXPECT_TRUE(Contiene(pagina, Latin1("Módulo del procesador XSL: no encontrado")));
  EXPECT_TRUE(pagina.ends_with(kFin));
}

TEST_F(DiagnosticoTest, ShowBdtCountsTitlesAndCopiesOfEachCatalogue) {
  struct Caso {
    std::string base;
    int catalogos;
  } casos[] = {
      {dir_.ruta().string(), 1},
      {"##01  Central ## " + dir_.ruta().string() + "\r\n##02  Anexo ## " + dir_.ruta().string(), 2},
  };
  for (const Caso& c : casos) {
    Configura("BASE:{" + c.base + "}");
    const std::string pagina = Pagina(ShowBdt, "SHOW_BDT");
    int titulos = 0;
    for (std::size_t p = 0; (p = pagina.find(Latin1("<li>Títulos: 347</li>"), p)) != std::string::npos; ++p) {
      ++titulos;
    }
    EXPECT_EQ(titulos, c.catalogos) << pagina;
    EXPECT_TRUE(Contiene(pagina, "<li>Ejemplares: 452</li>"));
    EXPECT_TRUE(Contiene(pagina, Latin1("no registra la fecha ni la duración")));
    EXPECT_TRUE(Contiene(pagina, Latin1("(fecha de modificación del archivo INDIZADO.MDB)")));
    EXPECT_TRUE(pagina.ends_with(kFin));
  }
  EXPECT_TRUE(Contiene(Pagina(ShowBdt, ""), "<H4>Anexo ("));
  Configura("FINAL:{}");
  EXPECT_TRUE(Contiene(Pagina(ShowBdt, ""), Latin1("La sección BASE: no existe")));
}

TEST_F(DiagnosticoTest, ShowSecShowsEveryPresentationAndTheXmlSource) {
  const std::string pagina = Pagina(ShowSec, "SHOW_SEC 1");
  EXPECT_TRUE(Contiene(pagina, Latin1("<H4>Tarjeta catalográfica</H4>")));
  EXPECT_TRUE(Contiene(pagina, Latin1("<H4>Descripción breve</H4>\r\n<p><b>")));
  EXPECT_TRUE(Contiene(pagina, "<table class=\"campos\">"));
  EXPECT_TRUE(Contiene(pagina, "&lt;FICHA Numero='1'&gt;&lt;SECCIONES&gt;"));
  EXPECT_TRUE(Contiene(pagina, "<H4>Documento XML de la ficha</H4>\r\n<pre>&lt;?xml"));
  EXPECT_TRUE(Contiene(pagina, "<hr>"));  // the page's separator after the card
  EXPECT_TRUE(pagina.ends_with(kFin));
}

TEST_F(DiagnosticoTest, ShowSecExplainsAMissingOrBadNumber) {
  struct Caso {
    const char* expresion;
    const char* mensaje;
  } casos[] = {
      {"SHOW_SEC", "Escriba el n\xFAmero de la ficha"},
      {"SHOW_SEC   ", "Escriba el n\xFAmero de la ficha"},
      {"SHOW_SEC <x>", "El n\xFAmero de ficha \xAB&lt;x&gt;\xBB no es v\xE1lido."},
      {"SHOW_SEC -3", "no es v\xE1lido"},
      {"SHOW_SEC 0", "no es v\xE1lido"},
      {"SHOW_SEC 99999999999", "no es v\xE1lido"},
      {"SHOW_SEC 9999", "No existe la ficha 9999 en el cat\xE1logo."},
  };
  for (const Caso& c : casos) {
    const std::string pagina = Pagina(ShowSec, c.expresion);
    EXPECT_TRUE(Contiene(pagina, c.mensaje)) << c.expresion << "\n" << pagina;
    EXPECT_FALSE(Contiene(pagina, "Documento XML")) << c.expresion;
    EXPECT_TRUE(pagina.ends_with(kFin)) << c.expresion;
  }
}

TEST_F(DiagnosticoTest, TestAllPassesOnAGoodCatalogueAndLeavesNoRow) {
  RedQueResponde red;
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
        "<li>Servidor de circulaci\xF3n ##01 circ:7701: correcto</li>"}) {
    EXPECT_TRUE(Contiene(pagina, linea)) << linea;
  }
  EXPECT_TRUE(pagina.ends_with(kFin));
  s_.red = nullptr;
  EXPECT_TRUE(Contiene(Pagina(TestAll, "TEST_ALL"), "##00 127.0.0.1:7700: sin red"));
}

TEST_F(DiagnosticoTest, TestAllMarksMissingFilesColumnsAndSections) {
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

}  // namespace
}  // namespace orvex::gateway
