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
  EXPECT_EQ(salida.rfind(kCabecera, 0), 0u);
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

}  // namespace
}  // namespace orvex::gateway
