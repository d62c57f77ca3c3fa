#include "search/Facetas.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "base/CodePage.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

namespace fs = std::filesystem;
using Fichas = std::vector<std::int32_t>;

const fs::path kKorvel = fs::path(ORVEX_FIXTURES) / "catalogo/sqlite/KORVEL8.MDB";

struct Valor {
  const char* faceta;
  int id;
  std::string clave, texto;
};

// Writes the reader tables into `bd`: the rows of ORVEX_LECTOR as given
// (name, BLOB) and the values.
void EscribeTablas(db::Database& bd, const std::map<std::string, std::string>& filas,
                   const std::vector<Valor>& valores) {
  bd.Execute("CREATE TABLE [ORVEX_LECTOR] ([Nombre] TEXT PRIMARY KEY, [Datos] BLOB NOT NULL)");
  bd.Execute(
      "CREATE TABLE [ORVEX_LECTOR_VALORES] ([Faceta] TEXT NOT NULL, [Id] INTEGER NOT NULL, "
      "[Clave] TEXT NOT NULL, [Texto] TEXT NOT NULL, PRIMARY KEY ([Faceta], [Id])) WITHOUT ROWID");
  bd.Execute(
      "CREATE INDEX [ORVEX_LECTOR_VALORES_CLAVE] ON [ORVEX_LECTOR_VALORES] ([Faceta], [Clave])");
  for (const auto& [nombre, bytes] : filas) {
    bd.Execute("INSERT INTO [ORVEX_LECTOR] VALUES ('" + nombre + "', " + testing::LiteralBlob(bytes) + ")");
  }
  for (const Valor& v : valores) {
    bd.Execute("INSERT INTO [ORVEX_LECTOR_VALORES] VALUES (?, ?, ?, ?)",
               {db::Value::Of(std::string(v.faceta)), db::Value::Of(std::int64_t{v.id}),
                db::Value::Of(v.clave), db::Value::Of(v.texto)});
  }
}

std::string Codifica(const std::vector<std::uint32_t>& v, std::uint32_t limite) {
  return Arreglo::Codifica(v, limite);
}

// Eight books (records 1 to 8; 9 and 10 lie beyond the arrays):
//   f  year  language  type     authors                 subjects
//   1  1998  spa       libro    Alvarez, Bravo          Historia
//   2  1998  spa       libro    Bravo                   Historia, México
//   3  2001  eng       mapa     Cruz                    México
//   4  -     -         libro    -                       -
//   5  2001  spa       revista  Bravo, García Márquez   Historia, Poesía
//   6  1998  nah       libro    García Márquez          -
//   7  1750  eng       libro    Alvarez                 México
//   8  2001  spa       libro    -                       Historia
std::map<std::string, std::string> Filas() {
  return {
      {"anio", Codifica({0, 1998, 1998, 2001, 0, 2001, 1998, 1750, 2001}, 10000)},
      {"idioma", Codifica({0, 1, 1, 2, 0, 1, 3, 2, 1}, 4)},
      {"tipo", Codifica({0, 1, 1, 2, 1, 3, 1, 1, 1}, 4)},
      {"autores.cuentas", Codifica({0, 2, 1, 1, 0, 2, 1, 1, 0}, 256)},
      {"autores.valores", Codifica({1, 2, 2, 3, 2, 4, 4, 1}, 5)},
      {"temas.cuentas", Codifica({0, 1, 2, 1, 0, 2, 0, 1, 1}, 256)},
      {"temas.valores", Codifica({1, 1, 2, 2, 1, 3, 2, 1}, 4)},
  };
}

std::vector<Valor> Valores() {
  return {
      {"idioma", 1, "spa", Latin1("Español")},
      {"idioma", 2, "eng", Latin1("Inglés")},
      {"idioma", 3, "nah", Latin1("Náhuatl")},
      {"tipo", 1, "libro", "Libro"},
      {"tipo", 2, "mapa", "Mapa"},
      {"tipo", 3, "revista", "Revista"},
      {"autor", 1, "Alvarez, Ana", "Alvarez, Ana"},
      {"autor", 2, "Bravo, Beto", "Bravo, Beto"},
      {"autor", 3, "Cruz, Carla", "Cruz, Carla"},
      {"autor", 4, Latin1("García Márquez, Gabriel"), Latin1("García Márquez, Gabriel")},
      {"tema", 1, "Historia", "Historia"},
      {"tema", 2, Latin1("México"), Latin1("México")},
      {"tema", 3, Latin1("Poesía"), Latin1("Poesía")},
  };
}

MapaFichas Mapa(const Fichas& fichas) {
  MapaFichas m;
  for (std::int32_t f : fichas) m.Pon(f);
  return m;
}

// "clave:cuenta" of each value, in order.
std::vector<std::string> Resumen(const ConteoFaceta& c) {
  std::vector<std::string> r;
  for (const ValorFaceta& v : c.valores) r.push_back(v.clave + ":" + std::to_string(v.cuenta));
  return r;
}

class FacetasTest : public ::testing::Test {
 protected:
  testing::DirectorioTemporal tmp_;

  std::unique_ptr<db::Database> Base(const std::map<std::string, std::string>& filas,
                                     const std::vector<Valor>& valores,
                                     const std::string& nombre = "KORVEL8.MDB") {
    auto bd = db::OpenDatabase(tmp_.Copia(kKorvel, nombre).string(), CodePage::Windows1252());
    EscribeTablas(*bd, filas, valores);
    return bd;
  }
};

// --- the arrays -------------------------------------------------------------

TEST(Arreglo, RoundTripsInTheNarrowestWidth) {
  const struct {
    std::vector<std::uint32_t> valores;
    int ancho;
  } casos[] = {
      {{}, 1},
      {{0, 7, 255}, 1},
      {{0, 256, 3}, 2},
      {{65535, 1}, 2},
      {{65536, 0, 16777215}, 4},
  };
  for (const auto& c : casos) {
    const std::string blob = Arreglo::Codifica(c.valores, 1u << 24);
    Arreglo a;
    ASSERT_TRUE(a.Lee(blob));
    EXPECT_EQ(a.Ancho(), c.ancho);
    ASSERT_EQ(a.Tamano(), c.valores.size());
    for (std::uint32_t i = 0; i < a.Tamano(); ++i) EXPECT_EQ(a[i], c.valores[i]) << i;
    EXPECT_EQ(a[a.Tamano()], 0u);  // past the end
  }
}

TEST(Arreglo, DamagedBlobsAreAbsent) {
  const std::string bueno = Arreglo::Codifica({1, 2, 300}, 301);  // width 2
  ASSERT_EQ(bueno.size(), 12u + 6u);
  const auto con = [&](std::size_t i, char c) {
    std::string b = bueno;
    b[i] = c;
    return b;
  };
  const struct {
    const char* que;
    std::string blob;
  } casos[] = {
      {"empty", ""},
      {"header cut", bueno.substr(0, 11)},
      {"one element short", bueno.substr(0, bueno.size() - 2)},
      {"one byte more", bueno + "x"},
      {"bad mark", con(0, 'X')},
      {"width 3", con(2, 3)},
      {"width 0", con(2, 0)},
      {"reserved byte set", con(3, 1)},
      {"count past the bytes", con(4, 4)},
      {"count that overflows", con(7, '\x7F')},
      {"bound beyond any catalogue", con(11, 0x10)},
  };
  for (const auto& c : casos) {
    Arreglo a;
    EXPECT_FALSE(a.Lee(c.blob)) << c.que;
    EXPECT_EQ(a.Tamano(), 0u) << c.que;
    EXPECT_EQ(a[0], 0u) << c.que;
  }
}

TEST(Facetas, NamesRoundTrip) {
  for (int i = 0; i < kNumeroFacetas; ++i) {
    const auto f = static_cast<Faceta>(i);
    EXPECT_EQ(FacetaDeNombre(NombreFaceta(f)), f);
  }
  EXPECT_EQ(FacetaDeNombre("Anio"), std::nullopt);
  EXPECT_EQ(FacetaDeNombre(""), std::nullopt);
}

// --- counts -------------------------------------------------------------------

TEST_F(FacetasTest, CountsEachFacetMostFrequentFirstTiesByText) {
  auto bd = Base(Filas(), Valores());
  DatosLector datos(*bd);
  ASSERT_TRUE(datos.Disponible());
  const auto conteos = CuentaFacetas(datos, Mapa({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  const std::vector<std::vector<std::string>> esperado = {
      {"1998:3", "2001:3", "1750:1"},
      {"spa:4", "eng:2", "nah:1"},
      {"libro:6", "mapa:1", "revista:1"},
      {"Bravo, Beto:3", "Alvarez, Ana:2", Latin1("García Márquez, Gabriel:2"), "Cruz, Carla:1"},
      {"Historia:4", Latin1("México:3"), Latin1("Poesía:1")},
  };
  for (int i = 0; i < kNumeroFacetas; ++i) {
    const ConteoFaceta& c = conteos[static_cast<std::size_t>(i)];
    EXPECT_EQ(c.faceta, static_cast<Faceta>(i));
    EXPECT_TRUE(c.disponible) << i;
    EXPECT_EQ(Resumen(c), esperado[static_cast<std::size_t>(i)]) << i;
    EXPECT_EQ(c.distintos, static_cast<std::int32_t>(esperado[static_cast<std::size_t>(i)].size()));
  }
  EXPECT_EQ(conteos[1].valores[1].texto, Latin1("Inglés"));
  EXPECT_EQ(conteos[0].valores[2].texto, "1750");
}

TEST_F(FacetasTest, CountsOnlyTheResultAndAtMostMaximo) {
  auto bd = Base(Filas(), Valores());
  DatosLector datos(*bd);
  const struct {
    Faceta faceta;
    Fichas resultado;
    int maximo;
    std::vector<std::string> valores;
    int distintos;
  } casos[] = {
      {Faceta::kAutor, {1, 2, 3, 5, 6, 7}, 2, {"Bravo, Beto:3", "Alvarez, Ana:2"}, 4},
      {Faceta::kAutor, {3, 5, 7}, 10, {"Alvarez, Ana:1", "Bravo, Beto:1", "Cruz, Carla:1",
                                       Latin1("García Márquez, Gabriel:1")}, 4},
      {Faceta::kAnio, {3, 5, 7}, 10, {"2001:2", "1750:1"}, 2},
      {Faceta::kAnio, {4}, 10, {}, 0},          // no year known
      {Faceta::kTema, {4, 6, 9, 10}, 10, {}, 0},  // none, or beyond the arrays
      {Faceta::kTipo, {}, 10, {}, 0},
      {Faceta::kIdioma, {1, 2, 3}, 0, {}, 2},
  };
  for (const auto& c : casos) {
    const ConteoFaceta conteo = CuentaFaceta(datos, c.faceta, Mapa(c.resultado), c.maximo);
    EXPECT_TRUE(conteo.disponible);
    EXPECT_EQ(Resumen(conteo), c.valores) << NombreFaceta(c.faceta);
    EXPECT_EQ(conteo.distintos, c.distintos) << NombreFaceta(c.faceta);
  }
}

// --- narrowing ----------------------------------------------------------------

TEST_F(FacetasTest, RestrictsToTheRecordsWithEveryChosenValue) {
  auto bd = Base(Filas(), Valores());
  DatosLector datos(*bd);
  const struct {
    std::vector<Eleccion> elecciones;
    Fichas quedan;
  } casos[] = {
      {{}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
      {{{Faceta::kAnio, "1998"}}, {1, 2, 6}},
      {{{Faceta::kAnio, "1750"}}, {7}},
      {{{Faceta::kIdioma, "eng"}}, {3, 7}},
      {{{Faceta::kTipo, "mapa"}}, {3}},
      {{{Faceta::kAutor, "Bravo, Beto"}}, {1, 2, 5}},
      {{{Faceta::kAutor, Latin1("García Márquez, Gabriel")}}, {5, 6}},
      {{{Faceta::kTema, "Historia"}}, {1, 2, 5, 8}},
      {{{Faceta::kIdioma, "spa"}, {Faceta::kTema, Latin1("México")}}, {2}},
      {{{Faceta::kAnio, "1998"}, {Faceta::kAnio, "2001"}}, {}},
      {{{Faceta::kAutor, "Nadie"}}, {}},
      {{{Faceta::kAutor, "bravo, beto"}}, {}},  // values are named exactly
      {{{Faceta::kAnio, "19x8"}}, {}},
      {{{Faceta::kAnio, "0000"}}, {}},
      {{{Faceta::kIdioma, ""}}, {}},
  };
  for (const auto& c : casos) {
    MapaFichas m = Mapa({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    EXPECT_TRUE(Restringe(datos, c.elecciones, m));
    EXPECT_EQ(m.Lista(), c.quedan) << (c.elecciones.empty() ? "" : c.elecciones[0].clave);
  }
}

TEST_F(FacetasTest, NamesAndIdsOfValues) {
  auto bd = Base(Filas(), Valores());
  DatosLector datos(*bd);
  EXPECT_EQ(datos.IdDeClave(Faceta::kTipo, "revista"), 3u);
  EXPECT_EQ(datos.IdDeClave(Faceta::kTema, Latin1("México")), 2u);
  EXPECT_EQ(datos.IdDeClave(Faceta::kTema, "Mexico"), std::nullopt);
  EXPECT_EQ(datos.IdDeClave(Faceta::kAnio, "0987"), 987u);
  EXPECT_EQ(datos.ValorDeId(Faceta::kAnio, 987)->clave, "0987");
  EXPECT_EQ(datos.ValorDeId(Faceta::kAutor, 3)->texto, "Cruz, Carla");
  EXPECT_EQ(datos.ValorDeId(Faceta::kAutor, 5), std::nullopt);
  EXPECT_EQ(datos.ValorDeId(Faceta::kTipo, 0), std::nullopt);
}

// --- damaged or missing data --------------------------------------------------

TEST_F(FacetasTest, DamagedArraysTakeOnlyTheirFacetAway) {
  const struct {
    const char* que;
    std::string fila, blob;
    Faceta faceta;
  } casos[] = {
      {"counts that do not add up", "autores.cuentas", Codifica({0, 2, 1, 1, 0, 2, 1, 1, 1}, 256),
       Faceta::kAutor},
      {"values fewer than the counts say", "temas.valores", Codifica({1, 1, 2, 2, 1, 3, 2}, 4),
       Faceta::kTema},
      {"a cut BLOB", "tipo", Codifica({0, 1, 1, 2, 1, 3, 1, 1, 1}, 4).substr(0, 15), Faceta::kTipo},
      {"a header that lies about its length", "anio", Codifica({0, 1998}, 10000) + "xx",
       Faceta::kAnio},
      {"not an array at all", "idioma", "spa", Faceta::kIdioma},
  };
  for (const auto& c : casos) {
    std::map<std::string, std::string> filas = Filas();
    filas[c.fila] = c.blob;
    auto bd = Base(filas, Valores(), std::string("K") + std::to_string(&c - casos));
    DatosLector datos(*bd);
    const auto conteos = CuentaFacetas(datos, Mapa({1, 2, 3, 4, 5, 6, 7, 8}));
    for (const ConteoFaceta& conteo : conteos) {
      EXPECT_EQ(conteo.disponible, conteo.faceta != c.faceta) << c.que;
      if (!conteo.disponible) {
        EXPECT_TRUE(conteo.valores.empty()) << c.que;
      }
    }
    MapaFichas m = Mapa({1, 2, 3});
    EXPECT_FALSE(Restringe(datos, {{c.faceta, "x"}}, m)) << c.que;
    EXPECT_EQ(m.Lista(), (Fichas{1, 2, 3})) << c.que;
  }
}

TEST_F(FacetasTest, IdsPastTheirBoundNameNothing) {
  std::map<std::string, std::string> filas = Filas();
  filas["anio"] = Codifica({0, 1998, 1998, 2001, 0, 2001, 1998, 1750, 2001}, 2000);
  filas["temas.valores"] = Codifica({1, 1, 2, 2, 1, 9, 2, 1}, 4);  // record 5's Poesía is 9
  auto bd = Base(filas, Valores());
  DatosLector datos(*bd);
  const MapaFichas todo = Mapa({1, 2, 3, 4, 5, 6, 7, 8});
  const ConteoFaceta anios = CuentaFaceta(datos, Faceta::kAnio, todo);
  EXPECT_TRUE(anios.disponible);
  EXPECT_EQ(Resumen(anios), (std::vector<std::string>{"1998:3", "1750:1"}));
  EXPECT_EQ(Resumen(CuentaFaceta(datos, Faceta::kTema, todo)),
            (std::vector<std::string>{"Historia:4", Latin1("México:3")}));
  for (const Eleccion& e : {Eleccion{Faceta::kAnio, "2001"}, Eleccion{Faceta::kAnio, "9999"}}) {
    MapaFichas m = todo;
    EXPECT_TRUE(Restringe(datos, {e}, m));
    EXPECT_EQ(m.Cuenta(), 0) << e.clave;
  }
}

TEST_F(FacetasTest, ValuesWithoutTextAreNotShown) {
  std::vector<Valor> valores = Valores();
  std::erase_if(valores, [](const Valor& v) { return std::string(v.faceta) == "autor" && v.id == 2; });
  auto bd = Base(Filas(), valores);
  DatosLector datos(*bd);
  const ConteoFaceta c = CuentaFaceta(datos, Faceta::kAutor, Mapa({1, 2, 5}));
  EXPECT_EQ(Resumen(c), (std::vector<std::string>{"Alvarez, Ana:1", Latin1("García Márquez, Gabriel:1")}));
  EXPECT_EQ(c.distintos, 3);
}

TEST_F(FacetasTest, WithoutTheTablesNothingIsOfferedAndChoicesAreRefused) {
  auto bd = db::OpenDatabase(tmp_.Copia(kKorvel, "KORVEL8.MDB").string(), CodePage::Windows1252());
  DatosLector datos(*bd);
  EXPECT_FALSE(datos.Disponible());
  for (const ConteoFaceta& c : CuentaFacetas(datos, Mapa({1, 2, 3}))) {
    EXPECT_FALSE(c.disponible);
    EXPECT_TRUE(c.valores.empty());
  }
  MapaFichas m = Mapa({1, 2});
  EXPECT_FALSE(Restringe(datos, {{Faceta::kAnio, "1998"}}, m));
  EXPECT_EQ(m.Lista(), (Fichas{1, 2}));
  EXPECT_TRUE(Restringe(datos, {}, m));
}

// --- where the data is found --------------------------------------------------

TEST_F(FacetasTest, FindsTheDataInTheCatalogueOrInAFreshSideFile) {
  db::EngineOpener abridor(CodePage::Windows1252());
  const fs::path dir = tmp_.ruta() / "cat";
  fs::create_directory(dir);
  const fs::path korvel = dir / "KORVEL8.MDB";
  fs::copy_file(kKorvel, korvel);
  fs::permissions(korvel, fs::perms::owner_read | fs::perms::owner_write);
  const fs::path lateral = dir / "LECTOR.MDB";

  const auto lateral_con_fuente = [&](const std::string& fuente) {
    fs::remove(lateral);
    fs::copy_file(kKorvel, lateral);
    fs::permissions(lateral, fs::perms::owner_read | fs::perms::owner_write);
    auto bd = db::OpenDatabase(lateral.string(), CodePage::Windows1252());
    std::map<std::string, std::string> filas = Filas();
    filas["fuente"] = fuente;
    EscribeTablas(*bd, filas, Valores());
  };
  const auto anios = [](FuenteLector& f) {
    return Resumen(CuentaFaceta(*f.datos, Faceta::kAnio, Mapa({1, 2, 3})));
  };

  {
    auto bd = db::OpenDatabase(korvel.string(), CodePage::Windows1252());
    EXPECT_EQ(BuscaDatosLector(*bd, korvel.string(), abridor).datos, nullptr) << "no data at all";
  }
  const std::string identidad = IdentidadArchivo(korvel.string());
  ASSERT_FALSE(identidad.empty());
  EXPECT_EQ(IdentidadArchivo((dir / "nada").string()), "");
  for (const auto& [fuente, usada] : {std::pair{identidad, true}, std::pair{std::string("1 2"), false},
                                      std::pair{std::string(), false}}) {
    lateral_con_fuente(fuente);
    auto bd = db::OpenDatabase(korvel.string(), CodePage::Windows1252());
    FuenteLector f = BuscaDatosLector(*bd, korvel.string(), abridor);
    EXPECT_EQ(f.datos != nullptr, usada) << fuente;
    EXPECT_EQ(f.lateral != nullptr, usada) << fuente;
    if (usada) {
      EXPECT_EQ(anios(f), (std::vector<std::string>{"1998:2", "2001:1"}));
    }
  }

  testing::WriteFile(lateral, "no es una base");
  {
    auto bd = db::OpenDatabase(korvel.string(), CodePage::Windows1252());
    EXPECT_EQ(BuscaDatosLector(*bd, korvel.string(), abridor).datos, nullptr) << "not SQLite";
  }

  // The catalogue's own tables come first, whatever lies beside it.
  lateral_con_fuente(identidad);
  auto bd = db::OpenDatabase(korvel.string(), CodePage::Windows1252());
  std::map<std::string, std::string> filas = Filas();
  filas["anio"] = Codifica({0, 2020, 2020, 2020}, 10000);
  EscribeTablas(*bd, filas, Valores());
  FuenteLector f = BuscaDatosLector(*bd, korvel.string(), abridor);
  ASSERT_NE(f.datos, nullptr);
  EXPECT_EQ(f.lateral, nullptr);
  EXPECT_EQ(anios(f), (std::vector<std::string>{"2020:3"}));
}

}  // namespace
}  // namespace orvex::search
