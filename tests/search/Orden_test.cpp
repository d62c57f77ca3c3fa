#include "search/Orden.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>

#include "base/CodePage.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

namespace fs = std::filesystem;
using Fichas = std::vector<std::int32_t>;

const fs::path kKorvel = fs::path(ORVEX_FIXTURES) / "catalogo/sqlite/KORVEL8.MDB";

// A copy of the fixture catalogue whose ORVEX_LECTOR holds `filas`.
std::unique_ptr<db::Database> Base(const testing::DirectorioTemporal& tmp, const std::string& nombre,
                                   const std::map<std::string, std::vector<std::uint32_t>>& filas) {
  auto bd = db::OpenDatabase(tmp.Copia(kKorvel, nombre).string(), CodePage::Windows1252());
  bd->Execute("CREATE TABLE [ORVEX_LECTOR] ([Nombre] TEXT PRIMARY KEY, [Datos] BLOB NOT NULL)");
  for (const auto& [n, v] : filas) {
    const std::uint32_t limite = n == "anio" ? 10000 : 1u << 20;
    bd->Execute("INSERT INTO [ORVEX_LECTOR] VALUES ('" + n + "', " +
                testing::LiteralBlob(Arreglo::Codifica(v, limite)) + ")");
  }
  return bd;
}

MapaFichas Mapa(const Fichas& fichas) {
  MapaFichas m;
  for (std::int32_t f : fichas) m.Pon(f);
  return m;
}

TEST(Orden, ReadsTheRequestsOrder) {
  const struct {
    const char* clave;
    const char* sentido;
    std::optional<Orden> orden;
  } casos[] = {
      {"", "", Orden{}},
      {"ficha", "asc", Orden{}},
      {"titulo", "", Orden{ClaveOrden::kTitulo, false}},
      {"autor", "desc", Orden{ClaveOrden::kAutor, true}},
      {"anio", "asc", Orden{ClaveOrden::kAnio, false}},
      {"", "desc", Orden{ClaveOrden::kFicha, true}},
      {"Titulo", "", std::nullopt},
      {"fecha", "", std::nullopt},
      {"titulo", "DESC", std::nullopt},
      {"titulo", "abajo", std::nullopt},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(LeeOrden(c.clave, c.sentido), c.orden) << c.clave << " " << c.sentido;
  }
  for (ClaveOrden k : {ClaveOrden::kFicha, ClaveOrden::kTitulo, ClaveOrden::kAutor, ClaveOrden::kAnio}) {
    EXPECT_EQ(LeeOrden(NombreClaveOrden(k), "")->clave, k);
  }
}

// Records 1 to 5 have data, 6 and 7 lie beyond the arrays:
//   f  title rank  author rank  year
//   1  3           -            1998
//   2  1           2            -
//   3  -           1            2001
//   4  3           -            1990
//   5  2           2            2001
class OrdenTest : public ::testing::Test {
 protected:
  testing::DirectorioTemporal tmp_;
  std::unique_ptr<db::Database> bd_ = Base(tmp_, "KORVEL8.MDB",
                                           {{"titulo", {0, 3, 1, 0, 3, 2}},
                                            {"autor", {0, 0, 2, 1, 0, 2}},
                                            {"anio", {0, 1998, 0, 2001, 1990, 2001}}});
  DatosLector datos_{*bd_};
  const MapaFichas todo_ = Mapa({1, 2, 3, 4, 5, 6, 7});
};

TEST_F(OrdenTest, OrdersByEachKeyWithTiesByRecordAndMissingKeysLast) {
  const struct {
    Orden orden;
    Fichas fichas;
  } casos[] = {
      {{ClaveOrden::kFicha, false}, {1, 2, 3, 4, 5, 6, 7}},
      {{ClaveOrden::kFicha, true}, {7, 6, 5, 4, 3, 2, 1}},
      {{ClaveOrden::kTitulo, false}, {2, 5, 1, 4, 3, 6, 7}},
      {{ClaveOrden::kTitulo, true}, {1, 4, 5, 2, 3, 6, 7}},
      {{ClaveOrden::kAutor, false}, {3, 2, 5, 1, 4, 6, 7}},
      {{ClaveOrden::kAutor, true}, {2, 5, 3, 1, 4, 6, 7}},
      {{ClaveOrden::kAnio, false}, {4, 1, 3, 5, 2, 6, 7}},
      {{ClaveOrden::kAnio, true}, {3, 5, 1, 4, 2, 6, 7}},
  };
  for (const auto& c : casos) {
    const std::string que = std::string(NombreClaveOrden(c.orden.clave)) +
                            (c.orden.descendente ? " desc" : " asc");
    EXPECT_EQ(OrdenPosible(&datos_, c.orden), c.orden) << que;
    EXPECT_EQ(Ordena(&datos_, todo_, c.orden), c.fichas) << que;
    // Every page is its slice of the whole order.
    for (std::int32_t cantidad = 1; cantidad <= 8; ++cantidad) {
      for (std::int32_t desde = 1; desde <= 8; ++desde) {
        const auto a = std::min<std::size_t>(static_cast<std::size_t>(desde - 1), c.fichas.size());
        const auto b = std::min<std::size_t>(a + static_cast<std::size_t>(cantidad), c.fichas.size());
        EXPECT_EQ(PaginaOrdenada(&datos_, todo_, c.orden, desde, cantidad),
                  Fichas(c.fichas.begin() + static_cast<std::ptrdiff_t>(a),
                         c.fichas.begin() + static_cast<std::ptrdiff_t>(b)))
            << que << " desde " << desde << " cantidad " << cantidad;
      }
    }
  }
}

TEST_F(OrdenTest, PagesOutsideTheResult) {
  const Orden titulo{ClaveOrden::kTitulo, false};
  EXPECT_EQ(PaginaOrdenada(&datos_, todo_, titulo, 0, 2), (Fichas{2, 5}));
  EXPECT_EQ(PaginaOrdenada(&datos_, todo_, titulo, -5, 1), (Fichas{2}));
  EXPECT_TRUE(PaginaOrdenada(&datos_, todo_, titulo, 8, 10).empty());
  EXPECT_TRUE(PaginaOrdenada(&datos_, todo_, titulo, 1, 0).empty());
  EXPECT_TRUE(PaginaOrdenada(&datos_, todo_, titulo, 1, -3).empty());
  EXPECT_TRUE(PaginaOrdenada(&datos_, MapaFichas(), titulo, 1, 10).empty());
  EXPECT_EQ(PaginaOrdenada(&datos_, Mapa({800008, 3}), titulo, 1, 10), (Fichas{3, 800008}));
}

TEST_F(OrdenTest, WithoutTheKeysArrayTheOrderIsRecordNumber) {
  auto sin_titulo = Base(tmp_, "SIN.MDB", {{"anio", {0, 1998}}, {"titulo", {}}});
  // A damaged array: its BLOB cut short.
  sin_titulo->Execute("UPDATE [ORVEX_LECTOR] SET [Datos] = X'4F4C0100' WHERE [Nombre] = 'titulo'");
  DatosLector datos(*sin_titulo);
  const Fichas ascendente = {1, 2, 3, 4, 5, 6, 7};
  for (DatosLector* d : {static_cast<DatosLector*>(nullptr), &datos}) {
    for (ClaveOrden k : {ClaveOrden::kTitulo, ClaveOrden::kAutor}) {
      for (bool desc : {false, true}) {
        EXPECT_EQ(OrdenPosible(d, {k, desc}), Orden{});
        EXPECT_EQ(Ordena(d, todo_, {k, desc}), ascendente);
      }
    }
    EXPECT_EQ(OrdenPosible(d, {ClaveOrden::kFicha, true}), (Orden{ClaveOrden::kFicha, true}));
  }
  EXPECT_EQ(OrdenPosible(&datos, {ClaveOrden::kAnio, true}), (Orden{ClaveOrden::kAnio, true}));
}

// A larger result against a plain stable sort: the partial sorts must give
// every page exactly as the whole order has it.
TEST_F(OrdenTest, PagesOfALargeResultMatchAFullSort) {
  std::mt19937 azar(2709);
  const int n = 3000;
  std::vector<std::uint32_t> titulo(n + 1), anio(n + 1);
  for (int f = 1; f <= n; ++f) {
    titulo[static_cast<std::size_t>(f)] = azar() % 5 == 0 ? 0 : azar() % 200 + 1;  // many ties
    anio[static_cast<std::size_t>(f)] = azar() % 7 == 0 ? 0 : 1900 + azar() % 120;
  }
  auto bd = Base(tmp_, "GRANDE.MDB", {{"titulo", titulo}, {"anio", anio}});
  DatosLector datos(*bd);
  Fichas resultado;
  for (int f = 1; f <= n + 50; ++f) {
    if (azar() % 3 == 0) resultado.push_back(f);
  }
  const MapaFichas mapa = Mapa(resultado);
  for (const auto& [nombre, clave, valores] :
       {std::tuple{"titulo", ClaveOrden::kTitulo, &titulo}, std::tuple{"anio", ClaveOrden::kAnio, &anio}}) {
    for (bool desc : {false, true}) {
      Fichas esperado = resultado;
      const auto clave_de = [&](std::int32_t f) -> std::int64_t {
        const std::uint32_t k = f <= n ? (*valores)[static_cast<std::size_t>(f)] : 0;
        if (k == 0) return INT64_MAX;
        return desc ? -static_cast<std::int64_t>(k) : k;
      };
      std::stable_sort(esperado.begin(), esperado.end(),
                       [&](std::int32_t a, std::int32_t b) { return clave_de(a) < clave_de(b); });
      EXPECT_EQ(Ordena(&datos, mapa, {clave, desc}), esperado) << nombre << desc;
      for (const auto& [desde, cantidad] :
           {std::pair{1, 10}, std::pair{11, 10}, std::pair{491, 20}, std::pair{995, 40}}) {
        const auto a = static_cast<std::ptrdiff_t>(std::min<std::size_t>(desde - 1, esperado.size()));
        const auto b = static_cast<std::ptrdiff_t>(
            std::min<std::size_t>(static_cast<std::size_t>(a + cantidad), esperado.size()));
        EXPECT_EQ(PaginaOrdenada(&datos, mapa, {clave, desc}, desde, cantidad),
                  Fichas(esperado.begin() + a, esperado.begin() + b))
            << nombre << desc << " desde " << desde;
      }
    }
  }
}

}  // namespace
}  // namespace orvex::search
