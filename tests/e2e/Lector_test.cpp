// End-to-end pages of what Orvex offers readers beyond the pages a library's
// configuration already has: the real binary on the fixture catalogue with
// tests/e2e/cfg/lector.cfg, which uses the placeholders and fields for it.

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

class Lector : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    programa_ = new ProgramaCGI(
        "lector", {.bases = Bases::Sqlite,
                   .archivos = {{"lector.cfg", ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" /
                                                        "lector.cfg")}}});
  }
  static void TearDownTestSuite() {
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
  const std::vector<std::string> enlaces = Todos(pagina, "<a href=\"([^\"]*)\">");
  ASSERT_EQ(numeros.size(), 10u);
  ASSERT_EQ(enlaces.size(), numeros.size());
  for (std::size_t i = 0; i < numeros.size(); ++i) {
    EXPECT_EQ(enlaces[i], "/cgi-bin/orvex?ArchivoCFG=lector.cfg&amp;ACERVO=libros&amp;txtNoFicha=" +
                              numeros[i]);
    // The link, as a browser follows it, shows that record alone.
    const std::string query = Reemplaza(enlaces[i].substr(enlaces[i].find('?') + 1), "&amp;", "&");
    const std::string ficha = programa_->Pagina(query);
    EXPECT_NE(ficha.find("<p id=\"total\">1 fichas"), std::string::npos) << ficha;
    EXPECT_EQ(Todos(ficha, "<p class=\"nficha\">([0-9]+)</p>"), std::vector<std::string>{numeros[i]});
  }
}

}  // namespace
}  // namespace orvex
