// End-to-end pages of the periodical and article collections: the real
// binary on a copy of the fixture catalogue with tests/e2e/cfg/revistas.cfg,
// compared byte for byte with tests/e2e/golden/revistas_*.html and
// articulos_*.html.

#include <gtest/gtest.h>

#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

// The catalogue in bases/ and revistas.cfg.
const Disposicion kRevistas{.bases = Bases::Sqlite, .de_prueba = {"revistas.cfg"}};
constexpr const char* kKorvel = "bases/KORVEL8.MDB";

std::string PaginaRevistas(const ProgramaCGI& programa, const std::string& query) {
  return programa.Pagina("ArchivoCFG=revistas.cfg&" + query);
}

// An installation's own sheet listing every field under `raiz`.
std::string Hoja(const std::string& raiz) {
  return "<?xml version=\"1.0\"?>\r\n<xsl:stylesheet version=\"1.0\" "
         "xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\r\n"
         "<xsl:template match=\"/\"><html><body><dl class=\"margen1\">"
         "<xsl:for-each select=\"" + raiz + "/*[name() != 'ETIQUETAS'] | " + raiz +
         "/ETIQUETAS/*\"><dt><xsl:value-of select=\"name()\"/></dt>"
         "<dd><xsl:value-of select=\".\"/></dd></xsl:for-each>"
         "<img src=\"Ruta-revista.png\"/></dl></body></html></xsl:template>\r\n"
         "</xsl:stylesheet>\r\n";
}

struct Caso {
  const char* nombre;
  const char* query;
  const char* hoja;  // "" or the own sheet written first
};

void PrintTo(const Caso& c, std::ostream* os) { *os << c.nombre; }

class PaginasRevistas : public ::testing::TestWithParam<Caso> {};

TEST_P(PaginasRevistas, MatchTheirGoldenFiles) {
  const Caso& c = GetParam();
  Disposicion d = kRevistas;
  if (*c.hoja) {
    d.archivos[std::string("XSLs/") + c.hoja] =
        Hoja(std::string(c.hoja) == "pp_propia.xsl" ? "ficha" : "Analitica");
  }
  const ProgramaCGI programa(c.nombre, d);
  ComparaConDorado(c.nombre, PaginaRevistas(programa, c.query));
}

INSTANTIATE_TEST_SUITE_P(
    Orvex, PaginasRevistas,
    ::testing::Values(
        // Periodicals: a search over two pages, one record by number, the
        // publisher standing for the free text, nothing found, the own sheet.
        Caso{"revistas_primera", "ACERVO=REVISTAS&txtLIB=publicaciones&Cantidad=4&FichaINI=1", ""},
        Caso{"revistas_segunda", "ACERVO=REVISTAS&txtLIB=publicaciones&Cantidad=4&FichaINI=5", ""},
        Caso{"revistas_ficha", "ACERVO=REVISTAS&txtNoFicha=3&txtLIB=cultura&Cantidad=4&FichaINI=1", ""},
        Caso{"revistas_ficha_inexistente", "ACERVO=REVISTAS&txtNoFicha=999&Cantidad=4&FichaINI=1", ""},
        Caso{"revistas_editorial", "ACERVO=REVISTAS&txtEDIT=colegio&Cantidad=4&FichaINI=1", ""},
        Caso{"revistas_sin_resultado", "ACERVO=REVISTAS&txtLIB=zzzz&Cantidad=4&FichaINI=1", ""},
        Caso{"revistas_hoja_propia",
             "ACERVO=REVISTAS&txtTIT=occidente&Cantidad=4&FichaINI=1", "pp_propia.xsl"},
        // Articles: a search over two pages, one by number in each format,
        // the articles of one issue, an issue without any, nothing found.
        Caso{"articulos_primera", "ACERVO=ARTICULOS&txtLIB=historia&Cantidad=3&FichaINI=1", ""},
        Caso{"articulos_segunda", "ACERVO=ARTICULOS&txtLIB=historia&Cantidad=3&FichaINI=4", ""},
        Caso{"articulos_ficha_formato2",
             "ACERVO=ARTICULOS&txtNoFicha=4&TipoFormato=2&Cantidad=3&FichaINI=1", ""},
        Caso{"articulos_de_ejemplar",
             "ACERVO=ARTICULOS&txtNumadqui=P000777&TipoFormato=3&Cantidad=3&FichaINI=1", "pp_propia_ana.xsl"},
        Caso{"articulos_ejemplar_sin_analiticas",
             "ACERVO=ARTICULOS&txtNumadqui=X999&Cantidad=3&FichaINI=1", ""},
        Caso{"articulos_sin_resultado", "ACERVO=ARTICULOS&txtAUT=zzzz&Cantidad=3&FichaINI=1", ""}),
    [](const ::testing::TestParamInfo<Caso>& info) { return info.param.nombre; });

// Without KORVEL8.MDB the page ends with the database message; without the
// word index the databases do not open and the unexpected-error page ends it.
TEST(Revistas, MissingDatabaseFilesEndThePage) {
  const ProgramaCGI sin_biblio("revistas_sin_biblio", kRevistas);
  fs::remove(sin_biblio.dir() / "bases" / "KORVEL8.MDB");
  ComparaConDorado("revistas_sin_biblio",
                   PaginaRevistas(sin_biblio, "ACERVO=REVISTAS&txtLIB=publicaciones&Cantidad=4"));
  const ProgramaCGI sin_indice("articulos_sin_indice", kRevistas);
  fs::remove(sin_indice.dir() / "bases" / "indizaPP.MDB");
  ComparaConDorado("articulos_sin_indice",
                   PaginaRevistas(sin_indice, "ACERVO=ARTICULOS&txtLIB=historia&Cantidad=3"));
}

// An accession number with an apostrophe finds its copy's articles.
TEST(Revistas, AnAccessionNumberWithAnApostropheFindsItsArticles) {
  const ProgramaCGI programa("articulos_apostrofo", kRevistas);
  programa.Modifica(kKorvel, "INSERT INTO Analiticas (ID, numadqui, EtiquetasMARC) VALUES (41, "
                             "'P''01', '\xA6" "245Entre comillas.\xCC')");
  const std::string pagina =
      PaginaRevistas(programa, "ACERVO=ARTICULOS&txtNumadqui=P%2701&Cantidad=3");
  EXPECT_NE(pagina.find("Ficha 41 (posici\xF3n 1) de 1"), std::string::npos) << pagina;
  EXPECT_NE(pagina.find("<p>Entre comillas.</p>"), std::string::npos);
  EXPECT_EQ(pagina.find("Error"), std::string::npos);
}

// A display that fails says which one and why, and the page goes on.
TEST(Revistas, AFailingDisplayIsReportedAndThePageGoesOn) {
  const ProgramaCGI programa("revistas_display_fallido", kRevistas);
  programa.Modifica(kKorvel, "DROP TABLE [Fichas Revistas]");
  programa.Modifica(kKorvel, "DROP TABLE Analiticas");
  const std::string revistas =
      PaginaRevistas(programa, "ACERVO=REVISTAS&txtLIB=publicaciones&Cantidad=2&FichaINI=1");
  EXPECT_NE(revistas.find("Error en mod. DisplyRegRevista ["), std::string::npos) << revistas;
  EXPECT_NE(revistas.find("<p>Fin: 1-2 de 20"), std::string::npos);
  const std::string articulos =
      PaginaRevistas(programa, "ACERVO=ARTICULOS&txtLIB=historia&Cantidad=2&FichaINI=1");
  EXPECT_NE(articulos.find("Error en mod. DisplyReg_ANA ["), std::string::npos) << articulos;
  EXPECT_NE(articulos.find("<p>Fin: 1-2 de "), std::string::npos);
}

}  // namespace
}  // namespace orvex
