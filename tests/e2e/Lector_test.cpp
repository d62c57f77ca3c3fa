// End-to-end pages of what Orvex offers readers beyond the pages a library's
// configuration already has: the real binary on the fixture catalogue with
// tests/e2e/cfg/lector.cfg, which uses the placeholders and fields for it.

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

// Each test lays out its own program directory, named after it: ctest runs
// the tests of one binary at once.
class Lector : public ::testing::Test {
 protected:
  void SetUp() override {
    programa_ = new ProgramaCGI(
        std::string("lector_") + ::testing::UnitTest::GetInstance()->current_test_info()->name(),
        {.bases = Bases::Sqlite,
                   .archivos = {{"lector.cfg", ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" /
                                                        "lector.cfg")}}});
    // The fixture catalogue was not built by orvex-catalogo: its reader data
    // go into LECTOR.MDB beside it, as a library's webmaster would make them.
    const std::string orden = std::string(ORVEX_CATALOGO) + " --lector " +
                              (programa_->dir() / "bases").string() + " 2>&1";
    ASSERT_EQ(std::system(orden.c_str()), 0) << orden;
  }
  void TearDown() override {
    delete programa_;
    programa_ = nullptr;
  }
  static std::string Pagina(const std::string& query) {
    return programa_->Pagina("ArchivoCFG=lector.cfg&ACERVO=libros&" + query);
  }
  static ProgramaCGI* programa_;
};
ProgramaCGI* Lector::programa_ = nullptr;

// Every match of the first group of `patron` in `texto`.
std::vector<std::string> Todos(const std::string& texto, const std::string& patron) {
  std::vector<std::string> v;
  const std::regex re(patron);
  for (auto it = std::sregex_iterator(texto.begin(), texto.end(), re); it != std::sregex_iterator();
       ++it) {
    v.push_back((*it)[1]);
  }
  return v;
}

TEST_F(Lector, AUTF8RequestFindsWhatItsWindows1252FormFinds) {
  const std::string latin = Pagina("txtLIB=espa%F1a&Cantidad=5&FichaINI=1");
  ASSERT_NE(latin.find("<p id=\"total\">"), std::string::npos) << latin;
  // The request says it is UTF-8...
  EXPECT_EQ(Pagina("txtLIB=espa%C3%B1a&CODIFICACION=utf-8&Cantidad=5&FichaINI=1"), latin);
  EXPECT_EQ(Pagina("CODIFICACION=UTF8&txtLIB=espa%C3%B1a&Cantidad=5&FichaINI=1"), latin);
  // ...and text that is not UTF-8 is read as it always was.
  EXPECT_EQ(Pagina("txtLIB=espa%F1a&CODIFICACION=utf-8&Cantidad=5&FichaINI=1"), latin);
  // Without the field, the bytes are Windows-1252, as they have always been.
  const std::string sin_campo = Pagina("txtLIB=espa%C3%B1a&Cantidad=5&FichaINI=1");
  EXPECT_NE(sin_campo.find("<p id=\"nada\">"), std::string::npos) << sin_campo;
}

TEST_F(Lector, TheInstallationSettingReadsEveryRequestAsUTF8) {
  ProgramaCGI programa("lector_utf8",
                       {.bases = Bases::Sqlite,
                        .archivos = {{"lector.cfg", ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" /
                                                             "lector.cfg")},
                                     {"orvex.ini", "Solicitudes = utf-8\n"}}});
  const std::string utf8 =
      programa.Pagina("ArchivoCFG=lector.cfg&ACERVO=libros&txtLIB=espa%C3%B1a&Cantidad=5");
  const std::string latin =
      programa.Pagina("ArchivoCFG=lector.cfg&ACERVO=libros&txtLIB=espa%F1a&Cantidad=5");
  EXPECT_NE(utf8.find("<p id=\"total\">"), std::string::npos) << utf8;
  EXPECT_EQ(utf8, latin);
}

TEST_F(Lector, EveryResultLinksToItsRecordsOwnPage) {
  const std::string pagina = Pagina("txtLIB=novela&Cantidad=10&FichaINI=1");
  const std::vector<std::string> numeros = Todos(pagina, "<p class=\"nficha\">([0-9]+)</p>");
  const std::vector<std::string> enlaces =
      Todos(pagina, "<p class=\"titulo\"><a href=\"([^\"]*)\">");
  ASSERT_EQ(numeros.size(), 10u);
  ASSERT_EQ(enlaces.size(), numeros.size());
  for (std::size_t i = 0; i < numeros.size(); ++i) {
    EXPECT_EQ(enlaces[i], "/cgi-bin/orvex?ArchivoCFG=lector.cfg&amp;ACERVO=libros&amp;txtNoFicha=" +
                              numeros[i]);
    // The link, as a browser follows it, shows that record alone.
    const std::string query = Reemplaza(enlaces[i].substr(enlaces[i].find('?') + 1), "&amp;", "&");
    const std::string ficha = programa_->Pagina(query);
    EXPECT_NE(ficha.find("<!--NoResultados: 1<br/>-->"), std::string::npos) << ficha;
    EXPECT_EQ(Todos(ficha, "txtNoFicha=([0-9]+)&amp;Exportar=ris"),
              std::vector<std::string>{numeros[i]});
  }
}

// The query string of a link as the page writes it.
std::string Consulta(const std::string& enlace) {
  return Reemplaza(enlace.substr(enlace.find('?') + 1), "&amp;", "&");
}

TEST_F(Lector, AWordThatFindsNothingGetsCorrectionsThatFindSomething) {
  const std::string pagina = Pagina("txtLIB=novle&Cantidad=5&FichaINI=1");
  ASSERT_NE(pagina.find("<p id=\"nada\">"), std::string::npos) << pagina;
  const std::vector<std::string> enlaces =
      Todos(pagina, "<a href=\"([^\"]*)\">novela</a>");
  ASSERT_EQ(enlaces.size(), 1u) << pagina;
  EXPECT_NE(pagina.find(Latin1("<p class=\"sugerencias\">¿Quiso decir <a href=")), std::string::npos);
  const std::string corregida = programa_->Pagina(Consulta(enlaces[0]));
  EXPECT_NE(corregida.find("fichas para novela;"), std::string::npos) << corregida;
  // A search that finds something, and a phrase, are not corrected.
  EXPECT_EQ(Pagina("txtLIB=novela&Cantidad=5").find("sugerencias\">"), std::string::npos);
  const std::string frase = Pagina("txtLIB=%22novle+ejemplar%22&Cantidad=5");
  EXPECT_NE(frase.find("<div id=\"sugerencias\"></div>"), std::string::npos) << frase;
}

TEST_F(Lector, TheCorrectionKeepsTheOtherWordsAndFieldsOfTheSearch) {
  const std::string pagina = Pagina("txtTIT=quijote&txtLIB=novle+cervantes&Cantidad=5");
  const std::vector<std::string> enlaces =
      Todos(pagina, "<a href=\"([^\"]*)\">novela cervantes</a>");
  ASSERT_EQ(enlaces.size(), 1u) << pagina;
  const std::string consulta = Consulta(enlaces[0]);
  EXPECT_NE(consulta.find("txtTIT=quijote"), std::string::npos) << consulta;
  EXPECT_NE(consulta.find("txtLIB=novela+cervantes"), std::string::npos) << consulta;
}

TEST_F(Lector, NumberedPagesLeadThroughTheResult) {
  const std::string primera = Pagina("txtLIB=novela&Cantidad=5&FichaINI=1");
  const std::vector<std::string> numeros = Todos(primera, "<li><a href=\"[^\"]*\">([0-9]+)</a></li>");
  ASSERT_FALSE(numeros.empty()) << primera;
  EXPECT_NE(primera.find("<span aria-current=\"page\">1</span>"), std::string::npos);
  const std::vector<std::string> siguiente =
      Todos(primera, "<a href=\"([^\"]*)\" rel=\"next\">Siguiente</a>");
  ASSERT_EQ(siguiente.size(), 1u);
  const std::string segunda = programa_->Pagina(Consulta(siguiente[0]));
  EXPECT_NE(segunda.find("de la 6 a la 10."), std::string::npos) << segunda;
  EXPECT_NE(segunda.find("<span aria-current=\"page\">2</span>"), std::string::npos);
  // The neighbours' links of the same page agree.
  const std::vector<std::string> vecina = Todos(primera, "<a rel=\"next\" href=\"([^\"]*)\">");
  ASSERT_EQ(vecina.size(), 1u);
  EXPECT_EQ(programa_->Pagina(Consulta(vecina[0])), segunda);
  // A result that fits in one page has no page links.
  const std::string una = Pagina("txtLIB=novela&Cantidad=200&FichaINI=1");
  EXPECT_NE(una.find("<div id=\"paginas\"></div>"), std::string::npos) << una;
}

TEST_F(Lector, ARecordsOwnPageHasItsCitationAndExports) {
  const std::string ficha = Pagina("txtNoFicha=15&txtLIB=novela");
  ASSERT_NE(ficha.find("<article class=\"ficha-sola\">"), std::string::npos) << ficha;
  // The citation: author, year, title, publisher, escaped for the page.
  const std::vector<std::string> cita = Todos(ficha, "<p class=\"cita\">([^<]*)</p>");
  ASSERT_EQ(cita.size(), 1u) << ficha;
  EXPECT_NE(cita[0].find("O&#39;Brien, M"), std::string::npos) << cita[0];
  EXPECT_NE(cita[0].find("(1994)"), std::string::npos) << cita[0];
  EXPECT_NE(cita[0].find("&lt; b"), std::string::npos) << cita[0];
  // Its header is ENCABEZADO_FICHA:, not the result's summary.
  EXPECT_NE(ficha.find("<p id=\"encabezado-ficha\">"), std::string::npos) << ficha;
  EXPECT_EQ(ficha.find("<p id=\"total\">"), std::string::npos) << ficha;
  // A search page keeps ENCABEZADO2: and FORMATO: for its records.
  EXPECT_EQ(Pagina("txtLIB=novela&Cantidad=3").find("encabezado-ficha"), std::string::npos);
  EXPECT_EQ(Pagina("txtLIB=novela&Cantidad=3").find("ficha-sola"), std::string::npos);

  const std::vector<std::string> enlaces = Todos(ficha, "<a href=\"([^\"]*)\">RIS</a>");
  ASSERT_EQ(enlaces.size(), 1u);
  const std::string ris = programa_->Pagina(Consulta(enlaces[0]));
  EXPECT_EQ(ris.rfind("Content-Type: application/x-research-info-systems; charset=utf-8\r\n"
                      "Content-Disposition: attachment; filename=\"orvex-ficha-15.ris\"\r\n\r\n"
                      "TY  - BOOK\r\n",
                      0),
            0u)
      << ris;
  EXPECT_NE(ris.find("PY  - 1994\r\n"), std::string::npos) << ris;
  // RIS and the other formats are UTF-8, whatever the page's code page.
  EXPECT_NE(ris.find("CY  - M\xC3\xA9xico\r\n"), std::string::npos) << ris;
}

TEST_F(Lector, AResultsPageExportsItsRecordsInItsOrder) {
  const std::string pagina = Pagina("txtLIB=novela&Cantidad=3&FichaINI=4");
  const std::vector<std::string> numeros = Todos(pagina, "<p class=\"nficha\">([0-9]+)</p>");
  ASSERT_EQ(numeros.size(), 3u);
  const std::string bib = Pagina("txtLIB=novela&Cantidad=3&FichaINI=4&Exportar=BibTeX");
  EXPECT_EQ(bib.rfind("Content-Type: application/x-bibtex; charset=utf-8\r\n"
                      "Content-Disposition: attachment; filename=\"orvex-resultados.bib\"\r\n\r\n",
                      0),
            0u)
      << bib;
  EXPECT_EQ(Todos(bib, "@book\\{orvex([0-9]+),"), numeros) << bib;
  const std::string xml = Pagina("txtLIB=novela&Cantidad=3&FichaINI=4&Exportar=marcxml");
  EXPECT_EQ(Todos(xml, "<controlfield tag=\"001\">([0-9]+)</controlfield>"), numeros) << xml;
}

TEST_F(Lector, AnExportThatCannotBeGivenSaysWhy) {
  const struct {
    const char* query;
    const char* estado;
  } cases[] = {
      {"txtNoFicha=15&Exportar=pdf", "Status: 400 Bad Request\r\n"},
      {"txtLIB=zzzz&Exportar=ris", "Status: 404 Not Found\r\n"},
      {"txtNoFicha=999999&Exportar=ris", "Status: 404 Not Found\r\n"},
  };
  for (const auto& c : cases) {
    const std::string respuesta = Pagina(c.query);
    EXPECT_EQ(respuesta.rfind(c.estado, 0), 0u) << c.query << "\n" << respuesta;
    EXPECT_NE(respuesta.find("<html lang=\"es\">"), std::string::npos) << respuesta;
  }
}

// The record numbers of a page, in the order shown.
std::vector<std::string> Numeros(const std::string& pagina) {
  return Todos(pagina, "<p class=\"nficha\">([0-9]+)</p>");
}

TEST_F(Lector, ASortedResultPagesThroughTheSameOrder) {
  const std::string base = "txtLIB=novela&Orden=titulo&Cantidad=";
  const std::vector<std::string> todas = Numeros(Pagina(base + "100&FichaINI=1"));
  ASSERT_GT(todas.size(), 10u);
  // Page by page, the same order.
  std::vector<std::string> paginadas;
  for (std::size_t desde = 1; desde <= todas.size(); desde += 4) {
    const std::vector<std::string> pagina =
        Numeros(Pagina(base + "4&FichaINI=" + std::to_string(desde)));
    paginadas.insert(paginadas.end(), pagina.begin(), pagina.end());
  }
  EXPECT_EQ(paginadas, todas);
  // The same records as in record-number order, in another order.
  std::vector<std::string> por_numero = Numeros(Pagina("txtLIB=novela&FichaINI=1&Cantidad=100"));
  EXPECT_NE(por_numero, todas);
  std::vector<std::string> a = por_numero, b = todas;
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  EXPECT_EQ(a, b);
  // Descending keeps the set; the order links name the current one.
  std::vector<std::string> desc = Numeros(Pagina("txtLIB=novela&Orden=titulo&Sentido=desc&FichaINI=1&Cantidad=100"));
  EXPECT_NE(desc, todas);
  std::sort(desc.begin(), desc.end());
  EXPECT_EQ(desc, b);
  const std::string pagina = Pagina(base + "5&FichaINI=1");
  EXPECT_NE(pagina.find("Orden=titulo&amp;Sentido=asc&amp;FichaINI=1\" aria-current=\"true\">"), std::string::npos)
      << pagina;
  // An order that is not one gives the record-number page.
  EXPECT_EQ(Numeros(Pagina("txtLIB=novela&Orden=precio&FichaINI=1&Cantidad=100")), por_numero);
}

TEST_F(Lector, AFacetValueNarrowsTheResultAndCanBeRemoved) {
  const std::string pagina = Pagina("txtLIB=novela&Cantidad=5");
  const std::regex valor("<li><a href=\"([^\"]*Faceta=anio%3A([0-9]{4})&amp;FichaINI=1)\">[0-9]{4}</a> "
                         "<span class=\"cuenta\">([0-9]+)</span></li>");
  std::smatch m;
  ASSERT_TRUE(std::regex_search(pagina, m, valor)) << pagina;
  const std::string anio = m[2], cuenta = m[3];
  const std::string filtrada = programa_->Pagina(Consulta(m[1]));
  EXPECT_NE(filtrada.find("<p id=\"total\">" + cuenta + " fichas"), std::string::npos) << filtrada;
  EXPECT_NE(filtrada.find(Latin1("<li>Año: ") + anio + " <a href="), std::string::npos) << filtrada;
  // The value chosen is not offered again; removing it gives the whole result.
  EXPECT_EQ(filtrada.find("Faceta=anio%3A" + anio + "&amp;Faceta=anio%3A" + anio), std::string::npos);
  const std::vector<std::string> quitar =
      Todos(filtrada, "<a href=\"([^\"]*)\" aria-label=\"Quitar el filtro");
  ASSERT_EQ(quitar.size(), 1u);
  EXPECT_EQ(Numeros(programa_->Pagina(Consulta(quitar[0]))), Numeros(pagina));
  // A value the catalogue does not have leaves nothing, and says what was chosen.
  const std::string nada = Pagina("txtLIB=novela&Faceta=anio:1066&Cantidad=5");
  EXPECT_NE(nada.find("<p id=\"nada\">"), std::string::npos) << nada;
  EXPECT_NE(nada.find(Latin1("<li>Año: 1066")), std::string::npos) << nada;
}

TEST(LectorSinDatos, WithoutReaderDataThePageOffersNeitherFacetsNorOrders) {
  ProgramaCGI programa("lector_sin_datos",
                       {.bases = Bases::Sqlite,
                        .archivos = {{"lector.cfg", ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" /
                                                             "lector.cfg")}}});
  const auto pagina = [&](const std::string& q) {
    return programa.Pagina("ArchivoCFG=lector.cfg&ACERVO=libros&" + q);
  };
  const std::string simple = pagina("txtLIB=novela&Cantidad=5");
  EXPECT_NE(simple.find("<div id=\"orden\"></div>"), std::string::npos) << simple;
  EXPECT_NE(simple.find("<div id=\"facetas\"></div>"), std::string::npos) << simple;
  EXPECT_EQ(Numeros(pagina("txtLIB=novela&Orden=titulo&Cantidad=5")), Numeros(simple));
  // A chosen value cannot narrow: the whole result, and a word why.
  const std::string elegida = pagina("txtLIB=novela&Faceta=anio:1998&Cantidad=5");
  EXPECT_EQ(Numeros(elegida), Numeros(simple));
  EXPECT_NE(elegida.find("filtros-aviso"), std::string::npos) << elegida;
}

}  // namespace
}  // namespace orvex
