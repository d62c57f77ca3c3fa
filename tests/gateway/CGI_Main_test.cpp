#include "gateway/CGI_Main.h"

#include <gtest/gtest.h>

#include "tests/support/Fakes.h"

namespace orvex::gateway {
namespace {

const std::string kCabecera =
    "Content-Type: text/html\r\nCache-Control: public\r\n\r\n<!--/prog-->\r\n";
const std::string kPrologo = kCabecera +
                             "<!--Versi\xF3n 1.2 -->\r\n"
                             "<!--Orvex, ultimo cambio: 4-DIC-03 : corregido el mensaje de XML "
                             "incorrecto en libros -->\r\n"
                             "\r\n";

class PrincipalTest : public ::testing::Test {
 protected:
  std::string Ejecuta(const std::string& query) {
    p_.entorno.vars["QUERY_STRING"] = query;
    p_.entorno.vars["SCRIPT_NAME"] = "/cgi-bin/orvex";
    EXPECT_EQ(Principal(p_.sys, p_.bases), 0);
    return p_.salida.contents;
  }
  testing::FakePlatform p_;
};

TEST_F(PrincipalTest, EveryLineIsItsOwnWrite) {
  Ejecuta("");
  ASSERT_EQ(p_.salida.writes.size(), 8u);
  EXPECT_EQ(p_.salida.writes[0], "Content-Type: text/html\r\n");
  EXPECT_EQ(p_.salida.writes[1], "Cache-Control: public\r\n\r\n");
}

TEST_F(PrincipalTest, AMissingConfigurationIsReportedBeforeTheHeader) {
  // On a pipe the error page that follows (no "BASE:") cannot rewind it away.
  p_.salida.is_pipe = true;
  const std::string salida = Ejecuta("ArchivoCFG=nada.cfg&ACERVO=libros");
  const std::size_t mensaje = salida.find("No se encontr\xF3 la definici\xF3n del archivo CFG (/prog/nada.cfg)");
  const std::size_t cabecera = salida.find("Content-Type: text/html");
  ASSERT_NE(mensaje, std::string::npos);
  ASSERT_NE(cabecera, std::string::npos);
  EXPECT_LT(mensaje, cabecera);
}

TEST_F(PrincipalTest, EachCollectionReachesItsProcedure) {
  struct Case {
    const char* acervo;
    const char* mensaje;
  } cases[] = {{"", "Entrada a ConsultaLibros"},
               {"libros", "Entrada a ConsultaLibros"},
               {"REVISTAS", "Error al accesar a la base de datos"},
               {"articulos", "<!-- txtNumAdqui:   -->"},
               {"Catalogos", "no ha especificado un campo de busquedas"}};
  for (const Case& c : cases) {
    testing::FakePlatform p;
    p.salida.is_pipe = true;  // keeps the prologue ahead of the books' error page
    p.archivos.files["/prog/libros.cfg"] = "";
    p.entorno.vars["QUERY_STRING"] = std::string("ArchivoCFG=libros.cfg&ACERVO=") + c.acervo;
    Principal(p.sys, p.bases);
    EXPECT_EQ(p.salida.contents.rfind(kPrologo, 0), 0u) << c.acervo;
    EXPECT_NE(p.salida.contents.find(c.mensaje), std::string::npos) << c.acervo;
  }
}

TEST_F(PrincipalTest, DiagnosticCommandsTakeTheFirstEightCharacters) {
  p_.archivos.files["/prog/libros.cfg"] = "";
  const std::string salida = Ejecuta("ArchivoCFG=libros.cfg&txtLIB=show_version+completa");
  // A public page names no directory of the server.
  EXPECT_EQ(salida.rfind("Content-Type: text/html\r\nCache-Control: public\r\n\r\n\r\n<HTML>", 0), 0u)
      << salida;
  EXPECT_NE(salida.find("Orvex - "), std::string::npos) << salida;  // the version page
  EXPECT_EQ(salida.find("Versi\xF3n 1.2"), std::string::npos);  // no prologue
}

TEST_F(PrincipalTest, TheSecondExpressionIsUsedWhenTheFirstIsEmpty) {
  p_.archivos.files["/prog/libros.cfg"] = "";
  const std::string salida = Ejecuta("ArchivoCFG=libros.cfg&txtLIB=+&txtEXPR1=test_all");
  EXPECT_NE(salida.find("<H3>TEST_ALL</H3>"), std::string::npos) << salida;
}

TEST_F(PrincipalTest, ShowVarAnswersWithNothing) {
  p_.archivos.files["/prog/libros.cfg"] = "";
  EXPECT_EQ(Ejecuta("ArchivoCFG=libros.cfg&txtLIB=SHOW_VAR"), "");
}

TEST_F(PrincipalTest, AWordThatIsNotACommandIsASearch) {
  p_.archivos.files["/prog/libros.cfg"] = "";
  p_.salida.is_pipe = true;
  const std::string salida = Ejecuta("ArchivoCFG=libros.cfg&txtLIB=show+ver");
  EXPECT_EQ(salida.rfind(kPrologo, 0), 0u);
  EXPECT_NE(salida.find("txtEXP:show ver,"), std::string::npos) << salida;
}

TEST_F(PrincipalTest, AnInvalidLinksFlagGivesTheErrorPage) {
  p_.archivos.files["/prog/libros.cfg"] = "BASE:{/bases}";
  const std::string salida = Ejecuta("ArchivoCFG=libros.cfg&generaLINKsURL=quizas");
  EXPECT_EQ(salida.rfind("<H4>Error en /cgi-bin/orvex</H4>\r\n", 0), 0u);  // rewound
  EXPECT_NE(salida.find("<PRE>No coinciden los tipos Error Number = 13<br>"), std::string::npos);
  EXPECT_NE(salida.find("Entrada a CGI_Main, ArchivoCFG:libros.cfg[]<br/>"), std::string::npos)
      << salida;
}

TEST_F(PrincipalTest, TheEngineChecksHaveTheirFixedPages) {
  p_.motores.database = false;
  EXPECT_EQ(Ejecuta("ArchivoCFG=libros.cfg"),
            "<html><body> <center> <h1> No se encontr\xF3 el DAO 3.6 <br> instalado en el Servidor "
            "de Web </h1> <p> Es necesario instalar algunos componentes en el Servidor </html> \r\n");
  testing::FakePlatform p;
  p.motores.xml = false;
  Principal(p.sys, p.bases);
  EXPECT_EQ(p.salida.contents,
            "<html><body> <center> <h1> No se encontr\xF3 el XML versi\xF3n 3 <br> instalado en el "
            "Servidor de Web </h1> <p> Es necesario instalar algunos componentes en el Servidor "
            "</html> \r\n");
}

// A request larger than the installation accepts is answered before a byte
// of its body is read; "CuerpoMaximo" in orvex.ini moves the limit.
TEST_F(PrincipalTest, ARequestOverTheBodyLimitGetsItsPageAtOnce) {
  struct Case {
    std::string ini, metodo, longitud, query;
    bool excede;
  } cases[] = {
      {"", "POST", "1048576", "", false},
      {"", "POST", "1048577", "", true},
      {"", "GET", "99999999", "", false},  // a GET has no body to read
      {"", "GET", "", std::string(1048577, 'a'), true},
      {"CuerpoMaximo = 2048", "POST", "2049", "", true},
      {"CuerpoMaximo = 2048", "POST", "2048", "", false},
  };
  for (const Case& c : cases) {
    testing::FakePlatform p;
    if (!c.ini.empty()) p.archivos.files["/prog/orvex.ini"] = c.ini;
    p.entorno.vars = {{"REQUEST_METHOD", c.metodo},
                      {"CONTENT_LENGTH", c.longitud},
                      {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
                      {"QUERY_STRING", c.query}};
    try {
      Principal(p.sys, p.bases);
    } catch (const testing::ScriptedInput::InputStillWaiting&) {
      // Accepted: the reader waits for a body that this test never sends.
    }
    const bool pagina = p.salida.contents.find("La solicitud es demasiado grande") != std::string::npos;
    EXPECT_EQ(pagina, c.excede) << c.ini << " " << c.metodo << " " << c.longitud;
    if (c.excede) {
      EXPECT_TRUE(p.entrada.requested.empty());
      EXPECT_EQ(p.salida.contents.rfind(kCabecera, 0), 0u);
    }
  }
}

// A body that stops short of CONTENT_LENGTH holds the request only until
// the watchdog's ten seconds are up: then the watchdog's page.
TEST_F(PrincipalTest, ABodyThatNeverComesEndsWithTheWatchdogsPage) {
  class RelojQueAvanza : public testing::FixedClock {
   public:
    std::int64_t Milliseconds() override { return millis += 100; }
  };
  RelojQueAvanza reloj;
  Servicios sys{p_.entorno, p_.entrada, p_.salida, reloj, p_.archivos, p_.motores};
  p_.entorno.vars = {{"REQUEST_METHOD", "POST"},
                     {"CONTENT_LENGTH", "10"},
                     {"CONTENT_TYPE", "application/x-www-form-urlencoded"}};
  p_.entrada.chunks = {"a=1"};
  p_.entrada.max_pauses = 1000000;
  EXPECT_EQ(Principal(sys, p_.bases), 0);
  EXPECT_NE(p_.salida.contents.find("Timer Out:52--"), std::string::npos) << p_.salida.contents;
  EXPECT_LT(p_.entrada.pauses, 200);  // about ten seconds of tenths
}

// The watchdog's deadline reaches every database the request opens, and is
// taken away when the request ends.
TEST_F(PrincipalTest, TheOpenerIsHeldToTheRequestsDeadlineOnlyDuringIt) {
  class Espia : public testing::FaultyOpener {
   public:
    std::unique_ptr<db::Database> Open(const std::string& path, const db::OpenOptions& o) override {
      plazos.push_back(Vigiladas(o).plazo);
      return FaultyOpener::Open(path, o);
    }
    Plazo* Actual() const { return Vigiladas({}).plazo; }
    std::vector<Plazo*> plazos;
  } espia;
  p_.archivos.files["/prog/libros.cfg"] = "BASE:{/no/existe}";
  p_.entorno.vars["QUERY_STRING"] = "ArchivoCFG=libros.cfg&txtLIB=show_bdt";
  p_.archivos.files["/no/existe/KORVEL8.MDB"] = "";
  Principal(p_.sys, espia);
  ASSERT_FALSE(espia.plazos.empty());
  EXPECT_NE(espia.plazos.front(), nullptr);
  EXPECT_EQ(espia.Actual(), nullptr);
}

}  // namespace
}  // namespace orvex::gateway
