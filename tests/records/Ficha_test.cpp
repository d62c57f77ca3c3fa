#include "records/Ficha.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex::records {
namespace {

TEST(Ficha, FichaSinDatosIsTheBracketedAuthorAndTitleInSingleBytes) {
  EXPECT_EQ(FichaSinDatos(),
            "\xA6" "100- [sin autor] -\xA6" "245- [sin t\xEDtulo] -\xCC");
}

TEST(Ficha, ExtraeEtiquetaReturnsTheFirstListedFieldPresent) {
  struct Case {
    const char* lista;
    const char* etiquetas;
    const char* contenido;
  } cases[] = {
      // List order decides, not string order.
      {"100110111", "¦245Título¦111Congreso¦110SociedadÌ", "Sociedad"},
      {"100110111", "¦110Sociedad¦100AutorÌ", "Autor"},
      {"245", "¦100Autor¦245TítuloÌ", "Título"},
      {"100", "¦100Autor¦245TítuloÌ", "Autor"},
      // A string without the end mark: the last field runs to its end.
      {"245", "¦245Historia de Chile", "Historia de Chile"},
      {"100", "¦100Autor¦245Título", "Autor"},
      // A one-character content; the tag never leaks into it.
      {"245", "¦2451Ì", "1"},
      {"245", "¦245Ì", ""},
      {"245", "¦245", ""},
      // Repeated occurrences come back raw; a second field of a tag is unseen.
      {"650", "¦650Gatos\\Perros¦245TítuloÌ", "Gatos\\Perros"},
      {"650", "¦650Uno¦650DosÌ", "Uno"},
      // A tag only in content text, or in another letter case, is not found.
      {"245", "¦100Véase 245Ì", ""},
      {"abc", "¦ABCtextoÌ", ""},
      {"", "¦245TítuloÌ", ""},
      {"245", "", ""},
      // "Ì" inside a content ends it there, before the next "¦".
      {"245", "¦245Libro ÌI¦100AutorÌ", "Libro "},
      {"245", "¦245Ìndice¦100AutorÌ", ""},
      // "¦" before "Ì": the next field ends the content.
      {"100", "¦100Autor¦245ÌndiceÌ", "Autor"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ExtraeEtiqueta(Latin1(c.lista), Latin1(c.etiquetas)), Latin1(c.contenido))
        << c.lista << " in " << c.etiquetas;
  }
}

// Random tag lists and records over a few bytes (separators, end marks,
// tag digits, blanks) give what the rule gives read literally: for each
// listed tag in turn, the first place where the separator and the tag
// (the last piece blank-filled to three) stand, its content up to the next
// separator or end mark.
TEST(Ficha, ExtraeEtiquetaFollowsTheRuleOnRandomRecords) {
  const auto regla = [](std::string_view lista, std::string_view etiquetas) {
    const auto cuenta =
        static_cast<std::size_t>(ToByte(static_cast<double>(lista.size()) / 3));
    for (std::size_t i = 0; i < cuenta; ++i) {
      std::string clave = Latin1("¦") + std::string(lista.substr(i * 3, 3));
      clave.resize(4, ' ');
      const std::size_t inicio = etiquetas.find(clave);
      if (inicio == std::string_view::npos) continue;
      const std::string_view resto = etiquetas.substr(inicio + 4);
      return std::string(resto.substr(0, resto.find_first_of(Latin1("¦Ì"))));
    }
    return std::string();
  };
  std::mt19937 azar(11);
  const std::vector<std::string> marcas = {"245", "100", "110", "650", "24 ", "2  ", "24"};
  const std::string relleno = Latin1("ab Ì¦");
  const auto una = [&](const std::vector<std::string>& de) { return de[azar() % de.size()]; };
  for (int caso = 0; caso < 5000; ++caso) {
    std::string lista;
    for (std::size_t n = azar() % 5; n > 0; --n) lista += una(marcas).substr(0, 3);
    if (azar() % 3 == 0 && !lista.empty()) lista.resize(lista.size() - 1 - azar() % 2);
    std::string etiquetas;
    for (std::size_t n = azar() % 8; n > 0; --n) {
      etiquetas += Latin1("¦") + una(marcas);
      for (std::size_t k = azar() % 4; k > 0; --k) etiquetas += relleno[azar() % relleno.size()];
    }
    ASSERT_EQ(ExtraeEtiqueta(lista, etiquetas), regla(lista, etiquetas))
        << "list \"" << lista << "\" in \"" << etiquetas << "\"";
  }
}

TEST(Ficha, ExtraeEtiquetaReadsThePlaceholderRecord) {
  EXPECT_EQ(ExtraeEtiqueta("100", FichaSinDatos()), "- [sin autor] -");
  EXPECT_EQ(ExtraeEtiqueta("245", FichaSinDatos()), Latin1("- [sin título] -"));
  EXPECT_EQ(ExtraeEtiqueta("650", FichaSinDatos()), "");
}

TEST(Ficha, ExtraeEtiquetaCountsTagsByRoundingAndPadsTheShortLastPiece) {
  struct Case {
    const char* lista;
    const char* etiquetas;
    const char* contenido;
  } cases[] = {
      // 4 characters: one tag; the trailing "2" is not a tag.
      {"1002", "¦002Dos¦100CienÌ", "Cien"},
      {"1002", "¦002Dos¦2  DosÌ", ""},
      // 5 characters: two tags, the second "11 " with a blank.
      {"10011", "¦11 OnceÌ", "Once"},
      {"10011", "¦110CientodiezÌ", ""},
      {"10011", "¦100Cien¦11 OnceÌ", "Cien"},
      // 8 characters: three tags.
      {"24510011", "¦11 OnceÌ", "Once"},
      // 2 characters: one padded tag; 1 character: none.
      {"24", "¦24 VeinticuatroÌ", "Veinticuatro"},
      {"2", "¦2  DosÌ", ""},
      // A separator followed by fewer than three characters never matches.
      {"24", "¦24Ì", ""},
      {"24", "¦100Cien¦24", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ExtraeEtiqueta(Latin1(c.lista), Latin1(c.etiquetas)), Latin1(c.contenido))
        << c.lista << " in " << c.etiquetas;
  }
}

TEST(Ficha, ExtraeEtiquetaOverflowsPastTwoHundredFiftyFiveTags) {
  std::string lista;
  for (int i = 0; i < 254; ++i) lista += "999";
  lista += "245";
  const std::string etiquetas = Latin1("¦245TítuloÌ");
  ASSERT_EQ(lista.size(), 765u);
  EXPECT_EQ(ExtraeEtiqueta(lista, etiquetas), Latin1("Título"));
  // 766 characters still round to 255 tags; 767 round to 256.
  EXPECT_EQ(ExtraeEtiqueta(lista + "9", etiquetas), Latin1("Título"));
  EXPECT_EQ(testing::ErrorNumberOf([&] { ExtraeEtiqueta(lista + "99", etiquetas); }),
            kErrDesbordamiento);
  EXPECT_EQ(testing::ErrorNumberOf([&] { ExtraeEtiqueta("245" + lista, etiquetas); }),
            kErrDesbordamiento);
}

TEST(Ficha, SeparaRepetidosPutsEachNonEmptyOccurrenceOnItsOwnLine) {
  struct Case {
    const char* contenido;
    const char* resultado;
  } cases[] = {
      {"Gatos \\  \\ Perros", "Gatos\r\nPerros"},
      {"Gatos\\Perros\\Aves", "Gatos\r\nPerros\r\nAves"},
      {"  Gatos  ", "Gatos"},
      {"Gatos\\", "Gatos"},
      {"\\Gatos", "Gatos"},
      {" \\ Gatos \\ ", "Gatos"},
      {"\\\\", ""},
      {"   ", ""},
      {"", ""},
      // Only blanks are trimmed.
      {"\tGatos \\ Perros\t", "\tGatos\r\nPerros\t"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(SeparaRepetidos(c.contenido), c.resultado) << c.contenido;
  }
}

TEST(Ficha, LineaEjemplarJoinsTheSevenValuesWithoutQuoting) {
  EXPECT_EQ(LineaEjemplar({"00123", "Central", "1", "", "", "S", "05/mar/2008"}),
            "00123,Central,1,,,S,05/mar/2008\r\n");
  EXPECT_EQ(LineaEjemplar({"7", "Sala 2, norte", "1", "II", "3", "N", ""}),
            "7,Sala 2, norte,1,II,3,N,\r\n");
}

}  // namespace
}  // namespace orvex::records
