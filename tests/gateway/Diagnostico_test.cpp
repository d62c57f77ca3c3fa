#include "gateway/Diagnostico.h"

#include <gtest/gtest.h>

#include <sys/file.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/CodePage.h"
#include "base/PosixPlatform.h"
#include "circulation/ChecaIP.h"
#include "tests/support/Fakes.h"

namespace orvex::gateway {
namespace {

namespace fs = std::filesystem;

const fs::path kCatalogos = fs::path(ORVEX_FIXTURES) / "catalogo";
const fs::path kCatalogo = kCatalogos / "sqlite";
const std::vector<std::string> kArchivos = {"KORVEL8.MDB", "INDIZADO.MDB", "indizaPP.MDB",
                                            "estadisticas.mdb"};

// The administrator's address in every configuration of these tests.
const std::string kDiagnostico = "\r\nDIAGNOSTICO:{127.0.0.1}";

std::string Bytes(const fs::path& archivo) {
  std::ifstream entrada(archivo, std::ios::binary);
  std::ostringstream bytes;
  bytes << entrada.rdbuf();
  return bytes.str();
}

bool Contiene(const std::string& pagina, const std::string& texto) {
  return pagina.find(texto) != std::string::npos;
}

// A circulation server that always answers.
class RedQueResponde : public Red {
 public:
  std::optional<std::string> Resuelve(const std::string&, int&) override { return "10.1.2.3"; }
  std::optional<std::string> NombreLocal(int&) override { return "local"; }
  int Eco(std::uint32_t, const std::string& payload, int, int& rtt_ms, std::string& reply,
          std::string& metodo) override {
    rtt_ms = 1;
    reply = payload;
    metodo = "prueba";
    return kIpSuccess;
  }
};

// A request from `ip` on a writable copy of the fixture catalogue, through
// the real file system.
class DiagnosticoTest : public ::testing::Test {
 protected:
  DiagnosticoTest()
      : sys_{p_.entorno, p_.entrada, p_.salida, p_.reloj, archivos_, p_.motores}, s_(sys_, p_.bases) {
    for (const std::string& archivo : kArchivos) dir_.Copia(kCatalogo / archivo, archivo);
    s_.VersionPrograma = "Orvex 4.0 prueba";
    s_.cfg.ArchivoCFG = JoinPath(archivos_.ProgramDirectory(), "libros.cfg");
    Configura("BASE:{" + dir_.ruta().string() +
              "}ENCABEZADO:{<h1>}FORMATO:{<!FICHA!>}SEPARADOR:{<hr>}NOENCONTRADO:{nada}FINAL:{fin}");
    Desde("127.0.0.1");
  }
  // The configuration `texto`, which lists the loopback as the
  // administrator's address.
  void Configura(const std::string& texto) { s_.cfg.TextoCFG = texto + kDiagnostico; }
  void Desde(const std::string& ip) {
    p_.entorno.vars["REMOTE_ADDR"] = ip;
    cgi::LeeVariablesCGI(s_.cgi, p_.entorno);
  }
  std::string Pagina(void (*comando)(cgi::Solicitud&, const std::string&), const std::string& expresion) {
    p_.salida.contents.clear();
    p_.salida.position = 0;
    comando(s_, expresion);
    return p_.salida.contents;
  }
  std::int64_t FilasDeConsultas(const fs::path& dir) {
    auto db = db::OpenDatabase((dir / "estadisticas.mdb").string(), CodePage::Windows1252(),
                               {.read_only = true});
    auto rs = db->OpenRecordset("SELECT COUNT(*) AS n FROM Consultas", db::RecordsetType::Snapshot);
    return rs->Field("n").integer;
  }
  std::int64_t FilasDeConsultas() { return FilasDeConsultas(dir_.ruta()); }

  testing::FakePlatform p_;
  PosixFileSystem archivos_;
  Servicios sys_;
  cgi::Solicitud s_;
  testing::DirectorioTemporal dir_;
};

const std::string kFin = "</BODY></HTML>\r\n";

// Behind a reverse proxy every client comes from the loopback: only the
// addresses that "DIAGNOSTICO:" lists are the administrator.
TEST_F(DiagnosticoTest, OnlyListedAddressesAreTheAdministrator) {
  struct Caso {
    const char* ip;
    const char* lista;  // the body of "DIAGNOSTICO:"; nullptr: no section
    bool admin;
  } casos[] = {
      {"127.0.0.1", nullptr, false},
      {"127.200.3.4", nullptr, false},
      {"::1", nullptr, false},
      {"::ffff:127.0.0.1", nullptr, false},
      {"127.0.0.1", "10.0.0.5", false},
      {"127.0.0.1", "127.0.0.1", true},
      {" 127.0.0.1 ", "127.0.0.1", true},
      {"127.0.0.2", "127.0.0.1", false},
      {"127.0.0.2", "127.", true},
      {"::1", "::1", true},
      {"", nullptr, false},
      {"", "\r\n", false},
      {"128.0.0.1", "127.", false},
      {"1127.0.0.1", "127.", false},
      {"192.168.1.20", "192.168.1.", true},
      {"192.168.10.2", "192.168.1.", false},
      {"192.168.1.2", "\r\n\r\n  10.0.0.5\r\n192.168.1.2  \r\n", true},
      {"10.0.0.5", "\r\n\r\n  10.0.0.5\r\n192.168.1.2  \r\n", true},
      {"192.168.1.25", "192.168.1.2", false},  // an address is no prefix
      {"10.9.9.9", "\r\n\r\n", false},
      {"fe80::1", "fe80:", true},
  };
  for (const Caso& c : casos) {
    s_.cfg.TextoCFG =
        c.lista == nullptr ? "BASE:{/x}" : std::string("BASE:{/x}DIAGNOSTICO:{") + c.lista + "}";
    Desde(c.ip);
    EXPECT_EQ(ClienteAdministrador(s_), c.admin) << "[" << c.ip << "] " << (c.lista ? c.lista : "-");
  }
}

// A file that the old rule for "ArchivoCFG" reaches anywhere could be one
// whose text the client wrote (its own environment, an upload): only a
// "*.cfg" file of the program's directory names the administrator.
TEST_F(DiagnosticoTest, OnlyAConfigurationOfTheProgramsDirectoryNamesTheAdministrator) {
  const std::string programa = archivos_.ProgramDirectory();
  struct Caso {
    std::string archivo;
    bool admin;
  } casos[] = {
      {JoinPath(programa, "libros.cfg"), true},
      {JoinPath(programa, "LIBROS.CFG"), true},
      {"/proc/self/environ", false},
      {"/tmp/subido/libros.cfg", false},
      {JoinPath(programa, "sub/libros.cfg"), false},
      {JoinPath(programa, "../libros.cfg"), false},
      {JoinPath(programa, "20081215_093011-.log"), false},
      {JoinPath(programa, ".cfg"), false},
      {"libros.cfg", false},
  };
  Desde("127.0.0.1");
  for (const Caso& c : casos) {
    s_.cfg.ArchivoCFG = c.archivo;
    Configura("BASE:{/x}");
    EXPECT_EQ(ClienteAdministrador(s_), c.admin) << c.archivo;
  }
  // A configuration that was not found has no administrator either.
  s_.cfg.ArchivoCFG = JoinPath(programa, "libros.cfg");
  s_.cfg.TextoCFG.clear();
  EXPECT_FALSE(ClienteAdministrador(s_));
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
    EXPECT_FALSE(Contiene(pagina, archivos_.ProgramDirectory())) << pagina;
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
  EXPECT_TRUE(Contiene(pagina, "Archivo: " + s_.cfg.ArchivoCFG + "</p>"));
  EXPECT_TRUE(Contiene(pagina, "<pre>BASE:{/x}\r\nFINAL:{&lt;b&gt;Tom &amp; &quot;Jerry&quot;&lt;/b&gt;}" +
                                   kDiagnostico + "</pre>"));
  EXPECT_FALSE(Contiene(pagina, "<b>Tom"));
  EXPECT_TRUE(pagina.ends_with(kFin));
}

TEST_F(DiagnosticoTest, ShowVerNamesVersionEngineAndXslModule) {
  p_.motores.xml = false;
  Desde("203.0.113.9");
  const std::string pagina = Pagina(ShowVer, "SHOW_VER");
  EXPECT_FALSE(Contiene(pagina, archivos_.ProgramDirectory())) << pagina;
  EXPECT_TRUE(Contiene(pagina, Latin1("<p>Versión: Orvex 4.0 prueba</p>")));
  EXPECT_TRUE(Contiene(pagina, "<li>Motor de bases de datos: SQLite 3.")) << pagina;
  EXPECT_TRUE(Contiene(pagina, Latin1("Módulo del procesador XSL: no encontrado")));
  EXPECT_TRUE(pagina.ends_with(kFin));
}

// SHOW_BDT answers anyone: it names each catalogue by its collection's name
// or number, and no directory or other path of the server.
TEST_F(DiagnosticoTest, ShowBdtCountsTitlesAndCopiesOfEachCatalogueNamingNoPath) {
  const std::string ruta = dir_.ruta().string();
  struct Caso {
    std::string base;
    int catalogos;
    std::vector<std::string> titulos;
  } casos[] = {
      {ruta, 1, {Latin1("<H4>Catálogo 1</H4>")}},
      {"##01  Central ## " + ruta + "\r\n##02  Anexo <b> ## " + ruta + "\r\n##03   ## " + ruta, 3,
       {"<H4>Central</H4>", "<H4>Anexo &lt;b&gt;</H4>", Latin1("<H4>Catálogo 3</H4>")}},
  };
  Desde("203.0.113.9");
  for (const Caso& c : casos) {
    Configura("BASE:{" + c.base + "}");
    const std::string pagina = Pagina(ShowBdt, "SHOW_BDT");
    for (const std::string& titulo : c.titulos) EXPECT_TRUE(Contiene(pagina, titulo)) << titulo << pagina;
    EXPECT_FALSE(Contiene(pagina, ruta)) << pagina;
    EXPECT_FALSE(Contiene(pagina, archivos_.ProgramDirectory())) << pagina;
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
  Configura("FINAL:{}");
  EXPECT_TRUE(Contiene(Pagina(ShowBdt, ""), Latin1("La sección BASE: no existe")));
}

// A catalogue that cannot be read is reported without the engine's
// description, which names the file's path.
TEST_F(DiagnosticoTest, ShowBdtReportsAnUnreadableCatalogueWithoutItsPath) {
  std::ofstream(dir_.ruta() / "KORVEL8.MDB", std::ios::binary | std::ios::trunc) << "no es una base";
  Configura("BASE:{" + dir_.ruta().string() + "}");
  const std::string pagina = Pagina(ShowBdt, "SHOW_BDT");
  EXPECT_TRUE(Contiene(pagina, "<li>No se pudo leer KORVEL8.MDB (error ")) << pagina;
  EXPECT_FALSE(Contiene(pagina, dir_.ruta().string())) << pagina;
  fs::remove(dir_.ruta() / "KORVEL8.MDB");
  const std::string sin_archivo = Pagina(ShowBdt, "SHOW_BDT");
  EXPECT_TRUE(Contiene(sin_archivo, Latin1("<li>No se encontró KORVEL8.MDB</li>"))) << sin_archivo;
  EXPECT_FALSE(Contiene(sin_archivo, dir_.ruta().string())) << sin_archivo;
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
        "<li>Ecos: el texto de la solicitud se escribe escapado</li>",
        "<li>CuerpoMaximo: 1048576 bytes</li>",
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

// The settings that orvex.ini brought back are named as the old behaviour.
TEST_F(DiagnosticoTest, TestAllNamesTheSafetySettingsInEffect) {
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

// A catalogue of Jet files, as a library keeps them: every check passes,
// and the write check of the statistics file adds no row, since the Jet
// engine cannot take one back.
class DiagnosticoJetTest : public DiagnosticoTest {
 protected:
  DiagnosticoJetTest() {
    for (const std::string& archivo : kArchivos) jet_.Copia(kCatalogos / "jet" / archivo, archivo);
    Configura("BASE:{" + jet_.ruta().string() +
              "}ENCABEZADO:{<h1>}FORMATO:{<!FICHA!>}SEPARADOR:{<hr>}NOENCONTRADO:{nada}FINAL:{fin}");
  }
  fs::path Estadisticas() const { return jet_.ruta() / "estadisticas.mdb"; }

  testing::DirectorioTemporal jet_;
};

TEST_F(DiagnosticoJetTest, TestAllPassesAndLeavesTheStatisticsFileAsItWas) {
  const std::int64_t filas = FilasDeConsultas(jet_.ruta());
  const std::string antes = Bytes(Estadisticas());
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
  EXPECT_EQ(Bytes(Estadisticas()), antes);
}

// The lock file of a statistics file that another program has open: no row
// could be written, and the check says so.
TEST_F(DiagnosticoJetTest, TestAllFailsTheWriteCheckWhileAnotherProgramHoldsTheLockFile) {
  const fs::path bloqueo = jet_.ruta() / "estadisticas.ldb";
  std::ofstream(bloqueo) << "";
  const int fd = ::open(bloqueo.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  const std::string antes = Bytes(Estadisticas());
  const std::string pagina = Pagina(TestAll, "TEST_ALL");
  ::close(fd);
  EXPECT_TRUE(Contiene(pagina, Latin1("<li>Escritura en estadisticas.mdb: falló: "))) << pagina;
  EXPECT_TRUE(Contiene(pagina, " 1 fallaron.</p>")) << pagina;
  EXPECT_EQ(Bytes(Estadisticas()), antes);
}

}  // namespace
}  // namespace orvex::gateway
