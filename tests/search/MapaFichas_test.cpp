#include "search/MapaFichas.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include <vector>

#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

MapaFichas De(std::initializer_list<std::int32_t> fichas) {
  MapaFichas m;
  for (std::int32_t f : fichas) m.Pon(f);
  return m;
}

std::vector<std::int32_t> Recorre(const MapaFichas& m) {
  std::vector<std::int32_t> v;
  for (std::int32_t f = m.Siguiente(0); f > (v.empty() ? 0 : v.back()); f = m.Siguiente(f)) v.push_back(f);
  return v;
}

TEST(MapaFichas, KeepsTheOldBitLayout) {
  const MapaFichas m = De({1, 8, 9, 800008});
  EXPECT_EQ(m.Byte(0), 0x81);  // record 1 is the most significant bit
  EXPECT_EQ(m.Byte(1), 0x80);
  EXPECT_EQ(m.Byte(100000), 0x01);
  EXPECT_EQ(m.Cuenta(), 4);
}

TEST(MapaFichas, RecordsOutsideTheBitmapRaise) {
  MapaFichas m;
  for (std::int32_t f : {0, -1, -8, 800009, 2000000000}) {
    EXPECT_EQ(testing::ErrorNumberOf([&] { m.Pon(f); }), kErrSubindice) << f;
  }
  EXPECT_EQ(m.Cuenta(), 0);
}

TEST(MapaFichas, CombinesAWordAtATime) {
  MapaFichas a = De({1, 5, 64, 65, 700000, 800008});
  const MapaFichas b = De({5, 65, 66, 800008});
  MapaFichas y = a, o = a, no = a;
  y.Interseca(b);
  o.Une(b);
  no.Excluye(b);
  EXPECT_EQ(Recorre(y), (std::vector<std::int32_t>{5, 65, 800008}));
  EXPECT_EQ(Recorre(o), (std::vector<std::int32_t>{1, 5, 64, 65, 66, 700000, 800008}));
  EXPECT_EQ(Recorre(no), (std::vector<std::int32_t>{1, 64, 700000}));
  EXPECT_EQ(o.Cuenta(), 7);
}

TEST(MapaFichas, WalksUpAndEndsWithANumberNotAboveTheLast) {
  const MapaFichas m = De({3, 6, 17, 640, 641, 799999});
  struct Case {
    std::int32_t actual, siguiente;
  } cases[] = {
      {0, 3},      {3, 6},           {6, 17},  {16, 17},   {17, 640}, {639, 640},
      {640, 641},  {641, 799999},    {7, 17},
      {799999, 799999},               // the last record: not above, the walk ends
      {800008, 0}, {800016, 0},       // past the last byte
  };
  for (const Case& c : cases) EXPECT_EQ(m.Siguiente(c.actual), c.siguiente) << c.actual;
  EXPECT_EQ(MapaFichas().Siguiente(0), 0);
  EXPECT_EQ(De({5}).Siguiente(6), 5);  // the last bit met in the starting byte
}

// The operations go only as far as the highest word ever set: what lay
// above it in a set that shrank must not come back.
// The whole set in one pass: what walking it record by record gives, on
// random sets from empty to dense, including both ends of the bitmap.
TEST(MapaFichas, ListsWhatTheWalkFinds) {
  std::mt19937 azar(1124);
  for (int vuelta = 0; vuelta < 40; ++vuelta) {
    MapaFichas m;
    const int n = vuelta == 0 ? 0 : static_cast<int>(azar() % (vuelta * 500));
    for (int i = 0; i < n; ++i) m.Pon(1 + static_cast<std::int32_t>(azar() % MapaFichas::kMaximaFicha));
    if (vuelta % 5 == 1) {
      m.Pon(1);
      m.Pon(MapaFichas::kMaximaFicha);
    }
    std::vector<std::int32_t> recorrido;
    for (std::int32_t f = m.Siguiente(0); f > 0; f = m.Siguiente(f)) {
      if (!recorrido.empty() && f <= recorrido.back()) break;
      recorrido.push_back(f);
    }
    EXPECT_EQ(m.Lista(), recorrido) << vuelta;
    EXPECT_EQ(m.Lista().size(), static_cast<std::size_t>(m.Cuenta()));
  }
}

TEST(MapaFichas, HighRecordsDoNotSurviveWhenTheSetShrinks) {
  MapaFichas alto, bajo, vacio;
  const auto llena = [&] {
    alto.Limpia();
    alto.Pon(3);
    alto.Pon(700000);
  };
  bajo.Pon(3);

  llena();
  alto = bajo;  // a smaller set copied over a larger one
  EXPECT_EQ(alto.Cuenta(), 1);
  EXPECT_EQ(alto.Siguiente(3), 3);
  EXPECT_FALSE(alto.Tiene(700000));

  llena();
  alto.Interseca(bajo);
  EXPECT_EQ(alto.Cuenta(), 1);
  EXPECT_FALSE(alto.Tiene(700000));
  alto.Une(bajo);
  EXPECT_EQ(alto.Siguiente(3), 3);

  llena();
  alto.Limpia();
  alto.Pon(5);
  EXPECT_EQ(alto.Cuenta(), 1);
  EXPECT_EQ(alto.Siguiente(5), 5);

  llena();
  bajo.Une(alto);  // a larger set joined into a smaller one
  EXPECT_EQ(bajo.Cuenta(), 2);
  EXPECT_EQ(bajo.Siguiente(3), 700000);
  bajo.Excluye(alto);
  EXPECT_EQ(bajo.Cuenta(), 0);
  bajo = vacio;
  EXPECT_EQ(bajo.Cuenta(), 0);
  bajo.Pon(800008);
  EXPECT_EQ(bajo.Siguiente(1), 800008);
  EXPECT_EQ(bajo.Byte(100000), 0x01);
}

}  // namespace
}  // namespace orvex::search
