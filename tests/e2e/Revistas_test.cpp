// End-to-end pages of the periodical and article collections: the real
// binary on a copy of the fixture catalogue with tests/e2e/cfg/revistas.cfg,
// compared byte for byte with tests/e2e/golden/revistas_*.html and
// articulos_*.html.

#include <gtest/gtest.h>

#include "base/CodePage.h"
#include "db/Database.h"
#include "tests/e2e/Programa.h"

namespace orvex {
namespace {

using namespace e2e;

const fs::path kCatalogo = fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite";

// A program directory with the catalogue in bases/ and revistas.cfg.
class ProgramaRevistas {
 public:
  explicit ProgramaRevistas(const std::string& nombre) : programa_(nombre, "") {
    programa_.Catalogo(kCatalogo);
    programa_.ConfiguracionDePrueba("revistas.cfg");
  }
  const fs::path& dir() const { return programa_.dir(); }

  std::string Pagina(const std::string& query) const {
    return programa_.Pagina("ArchivoCFG=revistas.cfg&" + query);
  }

  // An installation's own sheet in the program's XSLs folder.
  void Hoja(const std::string& archivo, const std::string& raiz) const {
    fs::create_directories(dir() / "XSLs");
    WriteFile(dir() / "XSLs" / archivo,
              "<?xml version=\"1.0\"?>\r\n<xsl:stylesheet version=\"1.0\" "
              "xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\r\n"
              "<xsl:template match=\"/\"><html><body><dl class=\"margen1\">"
              "<xsl:for-each select=\"" + raiz + "/*[name() != 'ETIQUETAS'] | " + raiz +
              "/ETIQUETAS/*\"><dt><xsl:value-of select=\"name()\"/></dt>"
              "<dd><xsl:value-of select=\".\"/></dd></xsl:for-each>"
              "<img src=\"Ruta-revista.png\"/></dl></body></html></xsl:template>\r\n"
              "</xsl:stylesheet>\r\n");
  }

 private:
  ProgramaCGI programa_;
};

struct Caso {
  const char* nombre;
  const char* query;
  const char* hoja;  // "" or the own sheet written first
};

void PrintTo(const Caso& c, std::ostream* os) { *os << c.nombre; }

class PaginasRevistas : public ::testing::TestWithParam<Caso> {};

TEST_P(PaginasRevistas, MatchTheirGoldenFiles) {
  const Caso& c = GetParam();
  const ProgramaRevistas programa(c.nombre);
  if (std::string(c.hoja) == "pp_propia.xsl") programa.Hoja(c.hoja, "ficha");
  if (std::string(c.hoja) == "pp_propia_ana.xsl") programa.Hoja(c.hoja, "Analitica");
  ComparaConDorado(c.nombre, programa.Pagina(c.query));
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
  const ProgramaRevistas sin_biblio("revistas_sin_biblio");
  fs::remove(sin_biblio.dir() / "bases" / "KORVEL8.MDB");
  ComparaConDorado("revistas_sin_biblio",
                   sin_biblio.Pagina("ACERVO=REVISTAS&txtLIB=publicaciones&Cantidad=4"));
  const ProgramaRevistas sin_indice("articulos_sin_indice");
  fs::remove(sin_indice.dir() / "bases" / "indizaPP.MDB");
  ComparaConDorado("articulos_sin_indice",
                   sin_indice.Pagina("ACERVO=ARTICULOS&txtLIB=historia&Cantidad=3"));
}

// An accession number with an apostrophe finds its copy's articles.
TEST(Revistas, AnAccessionNumberWithAnApostropheFindsItsArticles) {
  const ProgramaRevistas programa("articulos_apostrofo");
  {
    auto db = db::OpenDatabase((programa.dir() / "bases" / "KORVEL8.MDB").string(),
                               CodePage::Windows1252());
    db->Execute("INSERT INTO Analiticas (ID, numadqui, EtiquetasMARC) VALUES (41, 'P''01', "
                "'\xA6" "245Entre comillas.\xCC')");
  }
  const std::string pagina =
      programa.Pagina("ACERVO=ARTICULOS&txtNumadqui=P%2701&Cantidad=3");
  EXPECT_NE(pagina.find("Ficha 41 (posici\xF3n 1) de 1"), std::string::npos) << pagina;
  EXPECT_NE(pagina.find("<p>Entre comillas.</p>"), std::string::npos);
  EXPECT_EQ(pagina.find("Error"), std::string::npos);
}

// A display that fails says which one and why, and the page goes on.
TEST(Revistas, AFailingDisplayIsReportedAndThePageGoesOn) {
  const ProgramaRevistas programa("revistas_display_fallido");
  {
    auto db = db::OpenDatabase((programa.dir() / "bases" / "KORVEL8.MDB").string(),
                               CodePage::Windows1252());
    db->Execute("DROP TABLE [Fichas Revistas]");
    db->Execute("DROP TABLE Analiticas");
  }
  const std::string revistas =
      programa.Pagina("ACERVO=REVISTAS&txtLIB=publicaciones&Cantidad=2&FichaINI=1");
  EXPECT_NE(revistas.find("Error en mod. DisplyRegRevista ["), std::string::npos) << revistas;
  EXPECT_NE(revistas.find("<p>Fin: 1-2 de 20"), std::string::npos);
  const std::string articulos =
      programa.Pagina("ACERVO=ARTICULOS&txtLIB=historia&Cantidad=2&FichaINI=1");
  EXPECT_NE(articulos.find("Error en mod. DisplyReg_ANA ["), std::string::npos) << articulos;
  EXPECT_NE(articulos.find("<p>Fin: 1-2 de "), std::string::npos);
}

}  // namespace
}  // namespace orvex
