#include "catalogo/Acervos.h"

#include <gtest/gtest.h>

namespace orvex::catalogo {
namespace {

Campo Datos(const std::string& etiqueta, std::vector<Subcampo> subcampos) {
  Campo c;
  c.etiqueta = etiqueta;
  c.subcampos = std::move(subcampos);
  return c;
}

TEST(AcervoDeRegistro, TheBibliographicLevelDecides) {
  const struct {
    const char* lider;
    Acervo acervo;
  } casos[] = {
      {"00000nas a2200000 a 4500", Acervo::kRevistas},
      {"00000naa a2200000 a 4500", Acervo::kArticulos},
      {"00000nab a2200000 a 4500", Acervo::kArticulos},
      {"00000nam a2200000 a 4500", Acervo::kLibros},
      {"00000nac a2200000 a 4500", Acervo::kLibros},   // collection
      {"00000nai a2200000 a 4500", Acervo::kLibros},   // integrating resource
      {"00000nz  a2200000 n 4500", Acervo::kLibros},   // authority record
      {"00000naS a2200000 a 4500", Acervo::kLibros},   // the code is lower case
      {"00000na", Acervo::kLibros},                    // too short to have one
      {"", Acervo::kLibros},                           // no leader at all
  };
  for (const auto& c : casos) {
    RegistroMARC r;
    r.lider = c.lider;
    EXPECT_EQ(AcervoDeRegistro(r), c.acervo) << '"' << c.lider << '"';
  }
}

TEST(NumAdquiDeArticulo, TheIssuesAccessionNumberFromHoldingsElseTheHostEntry) {
  const struct {
    const char* que;
    std::vector<Campo> campos;
    std::string numadqui;
  } casos[] = {
      {"852 $p",
       {Datos("773", {{'t', "Revista."}, {'o', "OTRO"}}),
        Datos("852", {{'a', "Hemeroteca"}, {'j', "J1"}, {'p', " P006647 "}})},
       "P006647"},
      {"852 $j when there is no $p", {Datos("852", {{'j', "J-0001"}})}, "J-0001"},
      {"949 $i", {Datos("949", {{'a', "Central"}, {'i', "P000777"}})}, "P000777"},
      {"the first holdings field that gives one",
       {Datos("852", {{'a', "Hemeroteca"}}), Datos("949", {{'p', "P2"}}),
        Datos("852", {{'p', "P3"}})},
       "P2"},
      {"773 $o without holdings",
       {Datos("773", {{'t', "Revista."}, {'g', "No. 4 (1983)"}, {'o', "P004177"}})},
       "P004177"},
      {"the first 773 that has $o",
       {Datos("773", {{'t', "Revista."}}), Datos("773", {{'o', "P5"}})},
       "P5"},
      {"holdings without a number fall back to 773",
       {Datos("852", {{'a', "Hemeroteca"}}), Datos("773", {{'o', "P6"}})},
       "P6"},
      {"nothing", {Datos("773", {{'t', "Revista."}}), Datos("650", {{'a', "Tema"}})}, ""},
      {"the tag string's marks are replaced", {Datos("852", {{'p', "P\\7"}})}, "P/7"},
  };
  for (const auto& c : casos) {
    RegistroMARC r;
    r.campos = c.campos;
    std::vector<std::string> avisos;
    EXPECT_EQ(NumAdquiDeArticulo(r, avisos), c.numadqui) << c.que;
    EXPECT_TRUE(avisos.empty()) << c.que;
  }
}

TEST(NumAdquiDeArticulo, ALongNumberIsCutToTheColumnAndReported) {
  RegistroMARC r;
  r.campos = {Datos("773", {{'o', "ÑÑÑÑÑ-1234567890-XYZ"}})};
  std::vector<std::string> avisos;
  EXPECT_EQ(NumAdquiDeArticulo(r, avisos), "ÑÑÑÑÑ-123456789");
  ASSERT_EQ(avisos.size(), 1u);
  EXPECT_EQ(avisos[0],
            "número de adquisición del fascículo \"ÑÑÑÑÑ-1234567890-XYZ\" cortado a 15 caracteres");
}

}  // namespace
}  // namespace orvex::catalogo
