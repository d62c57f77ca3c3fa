// End-to-end pages of the book catalogue: the real binary on a copy of the
// fixture catalogue, with the configuration files of tests/e2e/cfg (their
// "@BASES@", "@BASES2@" and "@DIR@" filled in), compared byte for byte with
// tests/e2e/golden/libros_*.html.

#include <gtest/gtest.h>

#include <cctype>
#include <vector>

#include "base/CodePage.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

// The catalogue copied into bases/ and bases2/, and `archivo_cfg` of
// tests/e2e/cfg as libros.cfg.
ProgramaCGI ProgramaLibros(const std::string& nombre, const std::string& archivo_cfg) {
  return ProgramaCGI(nombre, {.bases = Bases::Sqlite, .bases2 = true,
                              .archivos = {{"libros.cfg", ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" /
                                                                   archivo_cfg)}}});
}

std::string PaginaLibros(const ProgramaCGI& programa, const std::string& query) {
  return programa.Pagina("ArchivoCFG=libros.cfg&ACERVO=libros&" + query);
}

// The rows of "Consultas" in the statistics database of `bases`:
// Buscado, Encontrados and AdvSearch of each.
std::vector<std::string> Estadisticas(const ProgramaCGI& programa, const char* bases = "bases") {
  return programa.Filas(std::string(bases) + "/estadisticas.mdb",
                        "SELECT Buscado, Encontrados, AdvSearch FROM Consultas");
}

struct Caso {
  const char* nombre;
  const char* cfg;
  const char* query;
};

void PrintTo(const Caso& c, std::ostream* os) { *os << c.nombre; }

class PaginasLibros : public ::testing::TestWithParam<Caso> {};

TEST_P(PaginasLibros, MatchTheirGoldenFiles) {
  const Caso& c = GetParam();
  const ProgramaCGI programa = ProgramaLibros(std::string("libros_") + c.nombre, c.cfg);
  ComparaConDorado(std::string("libros_") + c.nombre, PaginaLibros(programa, c.query));
}

INSTANTIATE_TEST_SUITE_P(
    Orvex, PaginasLibros,
    ::testing::Values(
        // One record by its number, whatever the search words say.
        Caso{"ficha", "libros.cfg", "txtNoFicha=15&txtLIB=algebra&Cantidad=10&FichaINI=1"},
        // A normal search over three pages, words highlighted.
        Caso{"pagina_primera", "libros.cfg", "txtLIB=novela&Cantidad=10&FichaINI=1"},
        Caso{"pagina_media", "libros.cfg", "txtLIB=novela&Cantidad=10&FichaINI=11"},
        Caso{"pagina_ultima", "libros.cfg", "txtLIB=novela&Cantidad=10&FichaINI=21"},
        Caso{"por_campos", "libros.cfg", "txtAUT=cervantes&txtTIT=quijote&Cantidad=5&FichaINI=1"},
        Caso{"avanzada", "libros.cfg",
             "BUSQ_AVANZADA=1&txtEXPR1=cervantes&opCAMPO1=2&opBOOLEAN1=1&txtEXPR2=quijote&"
             "opCAMPO2=1&Cantidad=5&FichaINI=1"},
        Caso{"varios_acervos", "multibase.cfg",
             "BUSQ_AVANZADA=1&BaseDTA=99&txtEXPR1=novela&opCAMPO1=0&Cantidad=10&FichaINI=1"},
        Caso{"un_acervo_de_varios", "multibase.cfg",
             "BUSQ_AVANZADA=1&BaseDTA=2&txtEXPR1=quijote&opCAMPO1=0&Cantidad=10&FichaINI=1"},
        Caso{"acervo_sin_archivos", "multibase.cfg",
             "BUSQ_AVANZADA=1&BaseDTA=3&txtEXPR1=quijote&opCAMPO1=0&Cantidad=10&FichaINI=1"},
        Caso{"sin_resultado", "libros.cfg", "txtLIB=zzzz&Cantidad=10&FichaINI=1"},
        Caso{"error_de_sintaxis", "libros.cfg", "txtLIB=novela+(&Cantidad=10&FichaINI=1"},
        Caso{"breve", "libros.cfg", "txtLIB=quijote&mostrarFICHABIB=1&Cantidad=10&FichaINI=1"},
        Caso{"tabla", "libros.cfg", "txtLIB=quijote&mostrarFICHABDL=1&Cantidad=10&FichaINI=1"},
        Caso{"disponibilidad", "disponibilidad.cfg", "txtLIB=quijote&Cantidad=10&FichaINI=1"}),
    [](const ::testing::TestParamInfo<Caso>& info) { return info.param.nombre; });

TEST(Libros, MissingDatabaseFilesGiveTheirPage) {
  const ProgramaCGI programa = ProgramaLibros("libros_sin_archivos", "libros.cfg");
  fs::remove(programa.dir() / "bases" / "INDIZADO.MDB");
  ComparaConDorado("libros_sin_archivos",
                   PaginaLibros(programa, "txtLIB=novela&Cantidad=10&FichaINI=1"));
}

// The installation's own sheet "XSLs/fichaWeb.xsl" fills "<!FICHA3!>", with
// "Ruta-" pointing into the program's XSLs folder.
TEST(Libros, TheInstallationsOwnSheetFillsItsPlaceholder) {
  const ProgramaCGI programa = ProgramaLibros("libros_hoja_propia", "libros.cfg");
  programa.Escribe("XSLs/fichaWeb.xsl",
                   Latin1("<?xml version=\"1.0\"?>\r\n"
                   "<xsl:stylesheet version=\"1.0\" "
                   "xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\r\n"
                   "<xsl:template match=\"/\"><html><body>"
                   "<div class=\"margen2\"><img src=\"Ruta-libro.png\"/> Título: "
                   "<xsl:value-of select=\"FICHAS/FICHA/ETIQUETAS/m245\"/></div>"
                   "<xsl:for-each select=\"FICHAS/FICHA/ETIQUETAS/m856\">"
                   "<a href=\"{@url}\"><xsl:value-of select=\".\"/></a></xsl:for-each>"
                   "</body></html></xsl:template>\r\n</xsl:stylesheet>\r\n"));
  ComparaConDorado("libros_hoja_propia",
                   PaginaLibros(programa, "txtLIB=quijote&Cantidad=10&FichaINI=1"));
}

// The same placeholder filled by a sheet in the working-draft dialect, as
// libraries wrote them: Windows-1252 text without an encoding declaration,
// sorted copies, zero-based indexes, case-insensitive tests, a script
// idiom, and a script that cannot run and leaves the rest of the card alone.
TEST(Libros, TheInstallationsWorkingDraftSheetFillsItsPlaceholder) {
  const ProgramaCGI programa = ProgramaLibros("libros_hoja_borrador", "libros.cfg");
  programa.Escribe("XSLs/fichaWeb.xsl",
                   ReadFile(fs::path(ORVEX_E2E_DIR) / ".." / "xslt" / "wd" / "fichaWeb.xsl"));
  const std::string pagina = PaginaLibros(programa, "txtLIB=quijote&Cantidad=10&FichaINI=1");
  EXPECT_EQ(pagina.find("Error executing"), std::string::npos);
  ComparaConDorado("libros_hoja_borrador", pagina);
}

TEST(Libros, EverySearchLeavesOneStatisticsRow) {
  const ProgramaCGI programa = ProgramaLibros("libros_estadisticas", "libros.cfg");
  const std::vector<std::string> antes = Estadisticas(programa);
  PaginaLibros(programa, "txtLIB=novela&Cantidad=10&FichaINI=11");
  PaginaLibros(programa, "txtLIB=zzzz&Cantidad=10&FichaINI=1");
  PaginaLibros(programa, "BUSQ_AVANZADA=1&txtEXPR1=cervantes&opCAMPO1=2&Cantidad=5&FichaINI=1");
  std::vector<std::string> despues = Estadisticas(programa);
  ASSERT_EQ(despues.size(), antes.size() + 3);
  despues.erase(despues.begin(), despues.begin() + static_cast<long>(antes.size()));
  EXPECT_EQ(despues, (std::vector<std::string>{"NOVELA|29|2", "ZZZZ|0|2", "CERVANTES|1|3"}));
}

TEST(Libros, AnAdvancedSearchOverEveryCollectionRecordsOneRowEach) {
  const ProgramaCGI programa = ProgramaLibros("libros_estadisticas_varias", "multibase.cfg");
  const size_t antes1 = Estadisticas(programa, "bases").size();
  const size_t antes2 = Estadisticas(programa, "bases2").size();
  PaginaLibros(programa,
               "BUSQ_AVANZADA=1&BaseDTA=99&txtEXPR1=novela&opCAMPO1=0&Cantidad=10&FichaINI=1");
  EXPECT_EQ(Estadisticas(programa, "bases").size(), antes1 + 1);
  // A collection whose files are missing does not change RutaBase: its row,
  // and the row of the "##99" line that closes the list, go to the
  // statistics of the collection searched before it.
  EXPECT_EQ(Estadisticas(programa, "bases2").size(), antes2 + 3);
}

// --- request text echoed into pages ---------------------------------------------

// A text that, echoed as it came, would run a script in the reader's
// browser, from inside an element or an attribute in either quotes.
const std::string kHostil = "\"><script>alert('x')</script>&";
// A configuration file can bear such a name, but for the "/".
const std::string kCfgHostil = "x\"><script>alert('x')&.cfg";

std::string Minusculas(std::string texto) {
  for (char& c : texto) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return texto;
}

// Configurations that echo every placeholder of request text they can hold,
// in text and in attributes.
const char kCfgLibros[] =
    "BASE:{@BASES@}\r\n"
    "DISPONIBILIDAD:{##00  127.0.0.1 ## 7700\r\n}\r\n"
    "CHECA_DISPONIBILIDAD:{<form><input name=\"ArchivoCFG\" value=\"<!ArchivoCFG!>\"></form>}\r\n"
    "ENCABEZADO:{<html><body>}\r\n"
    "ENCABEZADO2:{<p title=\"<!txtEXPR!>\">[<!txtEXPR!>|<!txtEXPR1!>|<!txtEXPR2!>|<!txtEXPR3!>|"
    "<!TXTLIB!>|<!TXTTIT!>|<!TXTAUT!>|<!TXTTEM!>|<!ACERVO!>]"
    "<a href='orvex?ArchivoCFG=<!ArchivoCFG!>&amp;txtLIB=<!TXTLIB!>'>otra</a></p>}\r\n"
    "FORMATO:{<div><!NFICHA!></div>}\r\n"
    "NOENCONTRADO:{<p>[<!TXTLIB!>|<!TXTTIT!>|<!TXTAUT!>|<!TXTTEM!>|<!ACERVO!>|<!txtEXPR!>]</p>}\r\n"
    "FINAL:{<p>[<!txtEXPR!>|<!TXTLIB!>|<!TXTTIT!>|<!TXTAUT!>|<!TXTTEM!>|<!ACERVO!>]</p>}\r\n";
const char kCfgVarios[] =
    "BASE:{##01  Central ## @BASES@\r\n##02  Norte ## @BASES@\r\n##99\r\n}\r\n"
    "ENCABEZADO:{<html><body>}\r\n"
    "ENCABEZADO2:{<p>[<!txtEXPR!>|<!txtEXPR1!>|<!TXTLIB!>|<!TXTTIT!>|<!TXTAUT!>|<!TXTTEM!>]</p>}\r\n"
    "FORMATO:{<tr><td title=\"<!txtEXPR!>\"><!NOMBREBIB!> <!TOTAL!> "
    "[<!txtEXPR1!>|<!txtEXPR2!>|<!txtEXPR3!>]</td></tr>}\r\n"
    "FINAL:{</body></html>}\r\n";
const char kCfgListado[] =
    "BASE:{@BASES@/KORVEL8.MDB}\r\nTABLA:{Ejemplares}\r\n"
    "ENCABEZADO:{<html><body>}\r\nENCABEZADO2:{<p>[<!BUSCADO!>]</p>}\r\n"
    "FORMATO:{<div><!#NumAdqui!> <!BUSCADO!></div>}\r\nNOENCONTRADO:{<p>nada</p>}\r\n"
    "FINAL:{<p><input value=\"<!BUSCADO!>\"></p></body></html>}\r\n";
const char kCfgRevistas[] =
    "BASE:{@BASES@}\r\n"
    "ENCABEZADO:{<html><body>}\r\n"
    "ENCABEZADO2:{<p>[<!ACERVO!>|<!TXTLIB!>|<!TXTTIT!>|<!TXTAUT!>|<!TXTTEM!>|<!TXTISBN!>|"
    "<!TXTEDIT!>]</p>}\r\n"
    "FORMATO:{<div><!NFICHA!></div>}\r\nNOENCONTRADO:{<p>nada</p>}\r\nNOENCONTRADO2:{<p>nada</p>}\r\n"
    "FINAL:{<p><input value=\"<!ACERVO!>|<!TXTLIB!>|<!TXTTIT!>|<!TXTAUT!>|<!TXTTEM!>|"
    "<!TXTISBN!>|<!TXTEDIT!>\"></p></body></html>}\r\n";

// The catalogue and the configurations above, the book one also under the
// hostile name; "Ecos = literales" in orvex.ini when `literales`.
Disposicion DisposicionEcos(bool literales) {
  Disposicion d{.bases = Bases::Sqlite,
                .archivos = {{"libros.cfg", kCfgLibros}, {kCfgHostil, kCfgLibros},
                             {"varios.cfg", kCfgVarios}, {"listado.cfg", kCfgListado},
                             {"revistas.cfg", kCfgRevistas}}};
  if (literales) d.archivos["orvex.ini"] = "Ecos = literales\n";
  return d;
}

struct Eco {
  const char* nombre;
  std::string query;
  // A piece the escaped page must hold as it stands (in lower case), when
  // the text lands in an attribute.
  std::string atributo = {};
};

void PrintTo(const Eco& e, std::ostream* os) { *os << e.nombre; }

std::vector<Eco> CasosDeEco() {
  const std::string h = Codifica(kHostil);
  const std::string libros = "ArchivoCFG=libros.cfg&ACERVO=libros&Cantidad=5&FichaINI=1&";
  const std::string avanzada = libros + "BUSQ_AVANZADA=1&txtEXPR1=novela&opBOOLEAN1=2&";
  const std::string listado =
      "ArchivoCFG=listado.cfg&ACERVO=CATALOGOS&TIPOBUSQUEDA=0&Cantidad=5&FichaINI=1&";
  const std::string revistas = "ArchivoCFG=revistas.cfg&Cantidad=5&FichaINI=1&";
  return {
      // The book query's fields, its advanced form, the configuration's name
      // in a link and in the availability form, the collection, and the
      // trace on the error page.
      {"libre", libros + "txtLIB=" + h},
      {"titulo", libros + "txtTIT=" + h},
      {"autor", libros + "txtAUT=" + h},
      {"tema", libros + "txtTEM=" + h},
      {"libre_tras_una_palabra", libros + "txtLIB=novela+o+" + h},
      {"segunda_caja", avanzada + "txtEXPR2=" + h},
      {"tercera_caja", avanzada + "txtEXPR2=cuentos&opBOOLEAN2=2&txtEXPR3=" + h},
      {"archivocfg", "ArchivoCFG=" + Codifica(kCfgHostil) + "&ACERVO=libros&txtLIB=quijote",
       "<input name=\"archivocfg\" value=\"x&quot;&gt;&lt;script&gt;alert(&#39;x&#39;)&amp;.cfg\">"},
      {"archivocfg_en_la_traza", "ArchivoCFG=" + h + "&ACERVO=libros&txtLIB=novela"},
      {"acervo", "ArchivoCFG=libros.cfg&txtLIB=novela&ACERVO=" + h},
      // Every collection of "BASE:" at once.
      {"varios_acervos", "ArchivoCFG=varios.cfg&ACERVO=libros&BUSQ_AVANZADA=1&BaseDTA=99&"
                         "txtEXPR1=novela&opBOOLEAN1=2&Cantidad=5&FichaINI=1&txtEXPR2=" + h +
                         "&txtLIB=" + h + "&txtTIT=" + h},
      // The listing, and the column it is asked for in the error page.
      {"listado", listado + "CAMPO=Biblioteca&txtLIB=" + h,
       "<input value=\"&quot;&gt;&lt;script&gt;alert(x)&lt;/script&gt;&amp;\">"},
      {"listado_columna", listado + "txtLIB=Central&CAMPO=" + h},
      // The accession-number lookup and its refusals.
      {"numadqui", "ArchivoCFG=libros.cfg&txtLIB=SHOW_NUM+" + Codifica("<script>\"x")},
      {"numadqui_largo", "ArchivoCFG=libros.cfg&txtLIB=SHOW_NUM+" + h},
      {"numadqui_formato", "ArchivoCFG=libros.cfg&txtLIB=SHOW_NUM+000216%2C" + Codifica("<script>")},
      // Periodicals and articles.
      {"revistas", revistas + "ACERVO=REVISTAS&txtLIB=publicaciones&txtISBN=" + h + "&txtTIT=" + h,
       "|&quot;&gt;&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;&amp;||"},
      {"revistas_editorial", revistas + "ACERVO=REVISTAS&txtLIB=publicaciones&txtEDIT=" + h},
      {"articulos", revistas + "ACERVO=ARTICULOS&txtLIB=historia&txtAUT=" + h},
      {"articulos_de_ejemplar", revistas + "ACERVO=ARTICULOS&txtNumadqui=" + h},
  };
}

class Ecos : public ::testing::TestWithParam<Eco> {};

// Each page holds the request's text only escaped; with "Ecos = literales"
// it holds it as the request sent it, as it always did.
TEST_P(Ecos, RequestTextIsEscapedUnlessTheInstallationAsksForLiteralEchoes) {
  const Eco& e = GetParam();
  const ProgramaCGI escapado(std::string("ecos_") + e.nombre, DisposicionEcos(false));
  const std::string pagina = Minusculas(escapado.Pagina(e.query));
  EXPECT_EQ(pagina.find("<script"), std::string::npos) << pagina;
  EXPECT_NE(pagina.find("&lt;script&gt;"), std::string::npos) << pagina;
  EXPECT_NE(pagina.find(e.atributo), std::string::npos) << e.atributo << "\n" << pagina;

  const ProgramaCGI literal(std::string("ecos_literales_") + e.nombre, DisposicionEcos(true));
  const std::string antigua = Minusculas(literal.Pagina(e.query));
  EXPECT_NE(antigua.find("<script>"), std::string::npos) << antigua;
  EXPECT_EQ(antigua.find("&lt;script&gt;"), std::string::npos) << antigua;
}

INSTANTIATE_TEST_SUITE_P(Orvex, Ecos, ::testing::ValuesIn(CasosDeEco()),
                         [](const auto& info) { return std::string(info.param.nombre); });

}  // namespace
}  // namespace orvex
