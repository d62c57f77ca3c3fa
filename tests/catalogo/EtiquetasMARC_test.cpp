#include "catalogo/EtiquetasMARC.h"

#include <gtest/gtest.h>

#include "base/CodePage.h"
#include "catalogo/FilaFicha.h"
#include "catalogo/TextoMARC.h"
#include "tests/support/Fakes.h"

namespace orvex::catalogo {
namespace {

Campo Control(const std::string& etiqueta, const std::string& datos) {
  Campo c;
  c.etiqueta = etiqueta;
  c.datos = datos;
  return c;
}

Campo Datos(const std::string& etiqueta, std::vector<Subcampo> subcampos) {
  Campo c;
  c.etiqueta = etiqueta;
  c.subcampos = std::move(subcampos);
  return c;
}

const std::string k008 = "951029s2005    mx            000 0 spa d";

RegistroMARC Ejemplo() {
  RegistroMARC r;
  r.campos = {
      Control("001", "ocm123"),
      Control("008", k008),
      Datos("100", {{'a', "Maldonado, Luisa,"}, {'d', "1950-"}, {'0', "(viaf)123"}, {'4', "aut"}}),
      Datos("245", {{'a', " Mi gato y mi perro :"},
                    {'b', "guía para su cuidado /"},
                    {'n', "  "},
                    {'c', "Luisa Maldonado. "}}),
      Datos("650", {{'a', "Gatos"}, {'x', "Cuidado"}, {'z', "México"}, {'2', "lcsh"}}),
      Datos("700", {{'a', "Pérez, Ana."}}),
      Datos("650", {{'a', "Perros"}, {'v', "Manuales"}}),
      Datos("650", {{'2', "lcsh"}}),
      Datos("500", {{'a', "Nota con ¦ barra \\ invertida y Ì;\tfin."}}),
      Datos("856", {{'u', "http://a.example/x"}, {'y', "Texto completo"}, {'3', "no"}}),
      Datos("856", {{'u', "http://b.example"}, {'3', "Reseña"}}),
      Datos("856", {{'u', "http://c.example"}}),
      Datos("856", {{'y', "sin dirección"}}),
      Datos("246", {{'a', "Cien an\xCC\x83os de Sa\xCC\x81nchez"}}),
      Datos("600", {{'a', "Cervantes, Miguel de"}, {'t', "Quijote"}, {'x', "Crítica"}}),
      Datos("999", {}),
  };
  return r;
}

TEST(EtiquetasMARC, GroupsTagsJoinsSubfieldsAndCleansTheContent) {
  EXPECT_EQ(EtiquetasMARC(AgrupaCampos(Ejemplo())),
            "¦001ocm123"
            "¦008" + k008 +
            "¦100Maldonado, Luisa, 1950-"
            "¦245Mi gato y mi perro : guía para su cuidado / Luisa Maldonado."
            "¦650Gatos -- Cuidado -- México \\ Perros -- Manuales"
            "¦700Pérez, Ana."
            "¦500Nota con | barra / invertida y I; fin."
            "¦856http://a.example/x;Texto completo \\ http://b.example;Reseña \\ http://c.example"
            "¦246Cien años de Sánchez"
            "¦600Cervantes, Miguel de Quijote -- Crítica"
            "Ì");
}

TEST(TextoMARC, ComposesAccentsThatTheCodePageHas) {
  struct {
    const char* entrada;
    const char* salida;
  } casos[] = {
      {"Sa\xCC\x81nchez", "Sánchez"},
      {"Espan\xCC\x83ol", "Español"},
      {"Franc\xCC\xA7ois", "François"},
      {"S\xCC\x8C" "koda", "Škoda"},
      {"Y\xCC\x88", "Ÿ"},
      {"s\xCC\xA7", "s\xCC\xA7"},          // ş is not in the code page: left alone
      {"a\xCC\x81\xCC\x81", "á\xCC\x81"},  // one mark per letter
      {"\xCC\x81" "a", "\xCC\x81" "a"},    // a mark without a letter before it
      {"1\xCC\x81", "1\xCC\x81"},
  };
  for (const auto& c : casos) EXPECT_EQ(ComponeAcentos(c.entrada), c.salida) << c.entrada;
}

TEST(TextoMARC, IndexTextIsWindows1252WithLackingCharactersAsBlanks) {
  EXPECT_EQ(ParaIndice("Łódź"), Latin1(" ód "));
  EXPECT_EQ(ParaIndice("s\xCC\xA7" "ehir"), "sehir");
  EXPECT_EQ(ParaIndice("€ œ"), "\x80 \x9C");
  EXPECT_EQ(ParaIndice("日本"), "  ");
}

struct CasoFicha {
  const char* lider;
  const char* f008;
  const char* f005;
  const char* fecha;
  std::optional<std::string> fecha_mod;
  const char* tipo;
};

TEST(FichaDeRegistro, DatesAndMaterialComeFromTheRecord) {
  const DateTime ahora = testing::SampleDate();  // 2008-12-15 09:30:11
  const CasoFicha casos[] = {
      {"00000nam a2200000 a 4500", "951029s2005", "20040323174829.0", "1995-10-29 00:00:00",
       "2004-03-23 17:48:29", "1"},
      {"00000ngm a2200000 a 4500", "090101s2005", "2004", "1909-01-01 00:00:00", std::nullopt,
       "2"},
      {"", "950231s2005", "20040399174829.0", "2008-12-15 09:30:11", std::nullopt, "1"},
  };
  for (const CasoFicha& c : casos) {
    RegistroMARC r;
    r.lider = c.lider;
    if (*c.f008) r.campos.push_back(Control("008", c.f008));
    if (*c.f005) r.campos.push_back(Control("005", c.f005));
    const FilaFicha f = FichaDeRegistro(r, AgrupaCampos(r), 7, ahora);
    EXPECT_EQ(f.Ficha_No, 7);
    EXPECT_EQ(f.Fecha, c.fecha) << c.f008;
    EXPECT_EQ(f.FechaMod, c.fecha_mod) << c.f005;
    EXPECT_EQ(f.TipoMaterial, c.tipo) << c.lider;
    EXPECT_EQ(f.DatosFijos, c.f008);
  }
}

}  // namespace
}  // namespace orvex::catalogo
