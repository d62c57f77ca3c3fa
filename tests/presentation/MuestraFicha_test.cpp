#include "presentation/MuestraFicha.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/CodePage.h"
#include "circulation/ChecaIP.h"
#include "cgi/EntradaCGI.h"
#include "config/Instalacion.h"
#include "records/CargaFicha.h"
#include "tests/support/Fakes.h"
#include "xslt/MotorLibxslt.h"

namespace orvex::presentation {
namespace {

namespace fs = std::filesystem;

class MuestraFichaTest : public ::testing::Test {
 protected:
  MuestraFichaTest() : s_(p_.sys, p_.bases) {
    p_.motores.xsl = &xsl_;
    auto db = db::OpenDatabase(
        (fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "KORVEL8.MDB").string(),
        CodePage::Windows1252(), {.read_only = true});
    for (int n : {1, 3, 41}) records::CargaFicha(*db, n, fichas_[n]);
    s_.instalacion.XSLFichaLibros = config::HojaFichaIntegrada();
    s_.instalacion.XSLTablaLibros = config::HojaAviso("XSL_Tabla_Libros");
    s_.instalacion.EtiquetasXML = {"245"};
    s_.pagina.Total = 7;
    s_.pagina.Cantidad = 5;
    s_.pagina.Desde = 6;
  }
  std::string Muestra(int numero, const std::string& cfg) {
    p_.salida.contents.clear();
    p_.salida.position = 0;
    s_.cfg.TextoCFG = cfg;
    MuestraFicha(s_, fichas_[numero], 6);
    return p_.salida.contents;
  }

  testing::FakePlatform p_;
  xslt::MotorLibxslt xsl_;
  cgi::Solicitud s_;
  std::map<int, records::RegFicha> fichas_;
};

TEST_F(MuestraFichaTest, TheCardGoesThroughTheStyleSheetsAndLosesItsClasses) {
  const std::string pagina =
      Muestra(1, "FORMATO:{<!FICHA!>#<!FICHA2!>#<!FICHA3!>#<!CLASIFICACION!>#<!NFICHA!>@"
                 "<!PFICHA!> <!DESDE!>-<!HASTA!>/<!TOTAL!>}SEPARADOR:{<hr>}");
  // The card's body, with its classes made inline styles.
  EXPECT_EQ(pagina.find("<table width=\"100%\" bgcolor=\"#ccffcc\"><tr><td>Ficha No. "
                        "<font color=\"red\"><b>1</b></font>"),
            0u)
      << pagina;
  EXPECT_NE(pagina.find("<div style=\"font-family:arial;  color=#000000; text-indent=-10pt;"),
            std::string::npos);
  EXPECT_EQ(pagina.find("class=\"margen"), std::string::npos);
  EXPECT_NE(pagina.find(Latin1("#<center><font face=\"arial\" size=\"5\"><font color=\"red\"><b> "
                               "No se encontró la referencia XSL_Tabla_Libros </b></font></font>"
                               "</center>##PQ8180.17.A73<BR/>C5<BR/>1987#1@6 6-7/7\r\n")),
            std::string::npos)
      << pagina;
  EXPECT_EQ(s_.pagina.Hasta, 7);
  EXPECT_TRUE(pagina.ends_with("<hr>\r\n"));
}

TEST_F(MuestraFichaTest, TheTablePresentationIsNeverHighlighted) {
  s_.TextoLIB = "soledad";
  s_.busqueda.Terminos[0].palabra = "SOLEDAD";
  const std::string cfg = "FORMATO:{<!FICHABDL!><!FICHAB!>}SEPARADOR:{}";
  s_.MostrarFichaBDL = 1;
  const std::string tabla = Muestra(1, cfg);
  EXPECT_NE(tabla.find("<table class=\"campos\">"), std::string::npos);
  EXPECT_EQ(tabla.find("<font color=#0000ff>"), std::string::npos) << tabla;
  s_.MostrarFichaBDL = 0;
  s_.MostrarFichaBIB = 1;
  const std::string breve = Muestra(1, cfg);
  EXPECT_NE(breve.find("<font color=#0000ff><b>soledad</b></font>"), std::string::npos) << breve;
  // The brief presentation offers no availability.
  EXPECT_EQ(breve.find("Prep: BAseDTA"), std::string::npos);
}

TEST_F(MuestraFichaTest, ListsOfHeadingsNotesAndAddedEntries) {
  s_.MostrarFichaBIB = 1;
  EXPECT_EQ(Muestra(41, "FORMATO:{<!ENCABEZAMIENTOS!>|<!NOTAS!>|<!ASIENTOS_SECUNDARIOS!>}"),
            Latin1("1. Gatos. 2. Perros.|Incluye índice.|\r\n"
                   "<!-- Antes de Disponibilidad, Ficha:41, MOSTRARFichaBIB: 1 -->\r\n\r\n"));
  EXPECT_TRUE(Muestra(3, "FORMATO:{<!ASIENTOS_SECUNDARIOS!>}").starts_with(
            Latin1("I. Rico, Francisco, ed. II. Real Academia Española. III. Asociación de "
                   "Academias de la Lengua Española.\r\n")));
}

TEST_F(MuestraFichaTest, TheAvailabilityServerIsCheckedOncePerRequest) {
  testing::RedQueResponde red;
  s_.red = &red;
  s_.MostrarFichaBDL = 1;  // no style sheets needed
  p_.entorno.vars["QUERY_STRING"] = "ArchivoCFG=libros.cfg";
  cgi::LeeVariablesCGI(s_.cgi, p_.entorno);
  cgi::LeeDatosForma(s_.cgi, p_.entrada);
  const std::string cfg =
      "FORMATO:{}SEPARADOR:{<hr>}DISPONIBILIDAD:{##00  servidor ## 7700\r\n}"
      "CHECA_DISPONIBILIDAD:{[<!COMANDO_SE!> <!ArchivoCFG!> <!DIRECCIONIP!>:<!PUERTOTCP!> "
      "<!NFICHA!> <!BaseDTA!>]}";
  const std::string primera = Muestra(1, cfg);
  const std::string segunda = Muestra(41, cfg);
  EXPECT_EQ(red.ecos, 1);
  const std::string esperado =
      "\r\n<!-- Antes de Disponibilidad, Ficha:41, MOSTRARFichaBIB: 0 -->\r\n"
      "<!-- Prep: BAseDTA0<br> -->\r\n"
      "<!-- ChecaIP: 10.1.2.3-->\r\n"
      "<!-- OK--IP-Port: 10.1.2.3: 7700<br> -->\r\n"
      "[cVERDISP libros.cfg 10.1.2.3:7700 41 0]\r\n"
      "<!-- OK--ChecaDisponibilidad: CVERDISP, libros.cfg, 10.1.2.3, 7700, 41, 0<br> -->\r\n"
      "<hr>\r\n";
  EXPECT_NE(segunda.find(esperado), std::string::npos) << segunda;
  EXPECT_NE(primera.find("[cVERDISP libros.cfg 10.1.2.3:7700 1 0]"), std::string::npos);

  // A database set without a server, or no network at all: no offer.
  s_.cfg.BaseDTA = 4;
  EXPECT_NE(Muestra(1, cfg).find("<!-- Ups---IP-Port: : <br> -->\r\n<hr>\r\n"),
            std::string::npos);
  s_.cfg.BaseDTA = 0;
  s_.red = nullptr;
  s_.servidores_revisados.clear();
  EXPECT_NE(Muestra(1, cfg).find("<!-- Ups---IP-Port: servidor: 7700<br> -->"),
            std::string::npos);
}

TEST(CuerpoConEstilos, CutsTheBodyAndInlinesTheClasses) {
  struct Caso {
    const char* html;
    const char* cuerpo;
  } casos[] = {
      {"<html><BoDy bgcolor=\"x\"><p class=\"resalta3\">a</p></bOdY></html>",
       "<p style=\"font-family:arial; font-size=12pt; color=red; vertical-align=top; "
       "font-weight=bold;\">a</p>"},
      {"<body><i class=\"resalta1\">1</i><i class=\"resalta2\">2</i><i class='margen1'>3</i>",
       "<i style=\"font-family:arial; font-size=10pt; color=blue; vertical-align=top; "
       "font-weight=bold;\">1</i><i style=\"font-family:arial; font-size=11pt; color=blue; "
       "vertical-align=top; \">2</i><i class='margen1'>3</i>"},
      // Without a body, or with an empty one, the text comes back whole.
      {"<center class=\"margen1\">x</center>", "<center class=\"margen1\">x</center>"},
      {"<html><body></body></html>", "<html><body></body></html>"},
      {"", ""},
  };
  for (const Caso& c : casos) EXPECT_EQ(CuerpoConEstilos(c.html), c.cuerpo) << c.html;
}

}  // namespace
}  // namespace orvex::presentation
