#include "cgi/Enlaces.h"

#include <gtest/gtest.h>

#include "cgi/EntradaCGI.h"
#include "tests/support/Fakes.h"

namespace orvex::cgi {
namespace {

class EnlacesTest : public ::testing::Test {
 protected:
  EnlacesTest() : s_(p_.sys, p_.bases) {}
  void Solicita(const char* script, const char* consulta) {
    p_.entorno.vars = {{"SCRIPT_NAME", script}, {"QUERY_STRING", consulta},
                       {"REQUEST_METHOD", "GET"}};
    LeeVariablesCGI(s_.cgi, p_.entorno);
    LeeDatosForma(s_.cgi, p_.entrada);
  }
  testing::FakePlatform p_;
  Solicitud s_;
};

TEST(CadenaConsulta, EncodesEveryByteOutsideTheUnreservedAsUTF8) {
  const struct {
    CamposEnlace campos;
    const char* cadena;
  } cases[] = {
      {{}, ""},
      {{{"txtLIB", "historia"}}, "txtLIB=historia"},
      {{{"txtLIB", "historia de mexico"}, {"Cantidad", "10"}},
       "txtLIB=historia+de+mexico&Cantidad=10"},
      // The query language's own characters, and what would end a field.
      {{{"txtLIB", "\"don quijote\" & comput$ = 100%"}},
       "txtLIB=%22don+quijote%22+%26+comput%24+%3D+100%25"},
      // Windows-1252 text goes as UTF-8, with the field that says so.
      {{{"txtLIB", "m\xE9xico"}}, "txtLIB=m%C3%A9xico&CODIFICACION=utf-8"},
      {{{"t\xEDtulo", "\x80"}}, "t%C3%ADtulo=%E2%82%AC&CODIFICACION=utf-8"},
      {{{"a", "-_.~"}}, "a=-_.~"},
  };
  for (const auto& c : cases) EXPECT_EQ(CadenaConsulta(c.campos), c.cadena);
}

TEST(CadenaConsulta, ReadsBackAsTheSameFields) {
  const CamposEnlace campos = {{"txtLIB", "\"am\xE9rica latina\" & <b>"},
                               {"x", "a+b%20c"},
                               {"ACERVO", "libros"}};
  EntradaCGI cgi;
  SeparaPares(cgi.pares, CadenaConsulta(campos));
  ASSERT_TRUE(PideUTF8(cgi, false));
  LeeCamposUTF8(cgi);
  for (const auto& [nombre, valor] : campos) EXPECT_EQ(ValorCGI(cgi, nombre), valor) << nombre;
}

TEST_F(EnlacesTest, ARecordsLinkNamesOnlyWhatFindsItAgain) {
  Solicita("/cgi-bin/orvex",
           "ArchivoCFG=demo.cfg&ACERVO=libros&txtLIB=historia&FichaINI=11&Cantidad=10");
  EXPECT_EQ(EnlaceFicha(s_, 15),
            "/cgi-bin/orvex?ArchivoCFG=demo.cfg&amp;ACERVO=libros&amp;txtNoFicha=15");
  Solicita("/orvex", "ArchivoCFG=demo.cfg&ACERVO=libros&BaseDTA=2&txtLIB=x");
  EXPECT_EQ(EnlaceFicha(s_, 7),
            "/orvex?ArchivoCFG=demo.cfg&amp;ACERVO=libros&amp;BaseDTA=2&amp;txtNoFicha=7");
}

TEST_F(EnlacesTest, ALinkCannotBreakOutOfItsAttribute) {
  Solicita("/cgi-bin/orvex\"><script>", "ArchivoCFG=a%22b.cfg&ACERVO=libros");
  const std::string enlace = EnlaceFicha(s_, 1);
  EXPECT_EQ(enlace.find_first_of("<>\"'"), std::string::npos) << enlace;
}

TEST_F(EnlacesTest, TheSameSearchWithSomethingChanged) {
  Solicita("/o", "ArchivoCFG=demo.cfg&ACERVO=libros&txtLIB=hist&FichaINI=11&vacio=&Orden=titulo&"
                 "CODIFICACION=utf-8");
  EXPECT_EQ(CamposCambiados(s_, {"fichaini", "ORDEN"}, {{"Orden", "anio"}}),
            (CamposEnlace{{"ArchivoCFG", "demo.cfg"},
                          {"ACERVO", "libros"},
                          {"txtLIB", "hist"},
                          {"Orden", "anio"}}));
}

}  // namespace
}  // namespace orvex::cgi
