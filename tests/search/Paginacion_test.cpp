#include "search/Paginacion.h"

#include <gtest/gtest.h>

#include <string>

#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

TEST(Paginacion, FollowsTheSameRulesEverywhere) {
  struct Caso {
    std::int32_t total, cantidad, desde;
    std::int32_t hasta, anterior, siguiente;
  } casos[] = {
      {23, 10, 21, 23, 11, 23},  // last page: the next start stays on the total
      {23, 10, 1, 10, 1, 11},
      {23, 10, 11, 20, 1, 21},
      {5, 1, 2, 2, 1, 3},        // 2 - 1 = 1 is not above 1
      {0, 10, 1, 0, 1, 0},       // nothing found
      {23, 0, 5, 4, 5, 5},       // a page size of 0, used as given
      {23, 10, 40, 23, 30, 23},  // a start beyond the results, not clamped
      {10, 2147483647, 2147483647, 10, 1, 10},  // no overflow on the way
  };
  for (const Caso& c : casos) {
    SCOPED_TRACE(::testing::Message() << c.total << " " << c.cantidad << " " << c.desde);
    Paginacion p{.Total = c.total, .Cantidad = c.cantidad, .Desde = c.desde};
    EXPECT_EQ(p.HastaPagina(), c.hasta);
    EXPECT_EQ(p.DesdeAnterior(), c.anterior);
    EXPECT_EQ(p.DesdeSiguiente(), c.siguiente);

    std::string texto =
        "<!DESDEANTERIOR!> <!DESDE!>-<!HASTA!> de <!TOTAL!> (<!CANTIDAD!>) <!DESDESIGUIENTE!>";
    p.Llena(texto);
    EXPECT_EQ(texto, std::to_string(c.anterior) + " " + std::to_string(c.desde) + "-" +
                         std::to_string(c.hasta) + " de " + std::to_string(c.total) + " (" +
                         std::to_string(c.cantidad) + ") " + std::to_string(c.siguiente));
    EXPECT_EQ(p.Hasta, c.hasta);
  }
}

// The walk over the records 2, 3, 5, 7 and 11: record@position, "|" between.
TEST(Paginacion, WalksItsSliceOfTheBitmap) {
  struct Caso {
    std::int32_t total, cantidad, desde;
    const char* esperado;
  } casos[] = {
      {5, 2, 2, "3@2|5@3"},
      {5, 10, 5, "11@5"},                   // the last page stops at the total
      {5, 10, 1, "2@1|3@2|5@3|7@4|11@5"},   // no separator after the last
      {5, 0, 1, "2@1|3@2|5@3|7@4|11@5"},    // a size of 0 never ends the page
      {3, 10, 1, "2@1|3@2|5@3"},            // the total, not the bitmap, ends it
      {5, 3, 6, ""},                        // a start beyond the results
      {5, 2, 0, "2@0|3@1"},                 // a start of 0, used as given
      {0, 10, 1, ""},
  };
  MapaFichas mapa;
  for (int f : {2, 3, 5, 7, 11}) mapa.Pon(f);
  for (const Caso& c : casos) {
    Paginacion p{.Total = c.total, .Cantidad = c.cantidad, .Desde = c.desde};
    std::string visto;
    p.Recorre(
        mapa,
        [&](std::int32_t ficha, std::int32_t posicion) {
          visto += std::to_string(ficha) + "@" + std::to_string(posicion);
        },
        [&] { visto += "|"; });
    EXPECT_EQ(visto, c.esperado) << c.total << " " << c.cantidad << " " << c.desde;
  }
}

TEST(Paginacion, APageOfMoreThan255RecordsOverflowsItsCounter) {
  MapaFichas mapa;
  for (int f = 1; f <= 300; ++f) mapa.Pon(f);
  Paginacion p{.Total = 300, .Cantidad = 0, .Desde = 1};  // a size that never matches
  int mostradas = 0;
  EXPECT_EQ(testing::ErrorNumberOf(
                [&] { p.Recorre(mapa, [&](std::int32_t, std::int32_t) { ++mostradas; }, [] {}); }),
            6);
  EXPECT_EQ(mostradas, 256);  // the 256th record was shown before the count failed
  EXPECT_EQ(p.FichaActual, 256);
}

}  // namespace
}  // namespace orvex::search
