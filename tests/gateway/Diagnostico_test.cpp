#include "gateway/Diagnostico.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/CodePage.h"
#include "gateway/PaginaDiagnostico.h"
#include "gateway/Revision.h"
#include "tests/gateway/SolicitudDiagnostico.h"

namespace orvex::gateway {
namespace {

namespace fs = std::filesystem;

class DiagnosticoTest : public SolicitudDiagnostico {};

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

// The word index keeps no date of its builds: SHOW_BDT shows the index
// file's modification time, in local time, day first.
TEST_F(DiagnosticoTest, ShowBdtDatesTheLastIndexingByTheIndexFile) {
  testing::PonFechaArchivo(dir_.ruta() / "INDIZADO.MDB",
                           {.year = 2008, .month = 12, .day = 5, .hour = 9, .minute = 3, .second = 7});
  Desde("203.0.113.9");
  EXPECT_TRUE(Contiene(Pagina(ShowBdt, "SHOW_BDT"),
                       Latin1("<li>Última indización: 05/12/2008 09:03:07 (fecha de modificación del "
                              "archivo INDIZADO.MDB)</li>")));

  fs::remove(dir_.ruta() / "INDIZADO.MDB");
  EXPECT_TRUE(Contiene(Pagina(ShowBdt, "SHOW_BDT"),
                       Latin1("<li>Última indización: desconocida (no se encontró INDIZADO.MDB)</li>")));
}

}  // namespace
}  // namespace orvex::gateway
