#include "search/Indice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <vector>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "search/Busqueda.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

namespace fs = std::filesystem;
using Fichas = std::vector<std::int32_t>;
using Cajas = std::array<std::string, 4>;

const fs::path kSqlite = fs::path(ORVEX_FIXTURES) / "catalogo/sqlite";

struct Fila {
  const char* palabra;
  int campo, ficha, posicion;
};

// GATO: any field 3 5 7, field 1 3 7, field 2 5. PERRO: any 3 5 11 13,
// field 1 3 11, field 2 5, field 3 13. GATO PERRO is a phrase in 3 and 5.
const std::vector<Fila> kPalabras = {
    {"GATO", 1, 3, 1},  {"GATO", 2, 5, 1},   {"GATO", 1, 7, 4},        {"GATOS", 1, 9, 1},
    {"PERRO", 1, 3, 2}, {"PERRO", 2, 5, 2},  {"PERRO", 1, 11, 1},      {"PERRO", 3, 13, 1},
    {"BIG", 1, 800008, 1},                   {"HUGE", 1, 800009, 1}};

Fichas Lista(const MapaFichas& m) {
  Fichas v;
  for (std::int32_t f = SiguienteFicha(m, 0); f > (v.empty() ? 0 : v.back());
       f = SiguienteFicha(m, f)) {
    v.push_back(f);
  }
  EXPECT_EQ(CuentaFichas(m), static_cast<std::int32_t>(v.size()));
  return v;
}

class IndiceTest : public ::testing::Test {
 protected:
  testing::DirectorioTemporal tmp_;

  // A copy of `archivo` whose word table `tabla` holds exactly `filas`, in
  // that order (the other word table, if any, emptied).
  std::unique_ptr<db::Database> Indice(const std::string& archivo, const std::string& tabla,
                                       const std::vector<Fila>& filas) {
    auto bd = db::OpenDatabase(tmp_.Copia(kSqlite / archivo, archivo).string(), CodePage::Windows1252());
    for (const std::string& t : bd->TableNames()) bd->Execute("DELETE FROM " + t);
    bd->Execute("BEGIN");
    for (const Fila& f : filas) {
      bd->Execute("INSERT INTO " + tabla + " (palabra,campo,ficha,posicion) VALUES ('" + f.palabra +
                  "'," + std::to_string(f.campo) + "," + std::to_string(f.ficha) + "," +
                  std::to_string(f.posicion) + ")");
    }
    bd->Execute("COMMIT");
    return bd;
  }
};

using Busca = std::function<void(Estado&, db::Database&, std::string, std::int16_t)>;

// The lookups with the table left empty: it becomes TABLA unless the word
// is blank and nothing is looked up.
template <auto busca>
void Con(Estado& e, db::Database& bd, std::string palabra, std::int16_t campo) {
  std::string tabla;
  const bool en_blanco = palabra.find_first_not_of(' ') == std::string::npos;
  busca(e, bd, palabra, campo, tabla);
  EXPECT_EQ(tabla, en_blanco ? "" : "TABLA");
}
const Busca kPalabra = Con<BuscaPalabra>;
const Busca kSQL = Con<BuscaPalabraSQL>;
const Busca kTruncada = Con<BuscaTruncada>;
const Busca kFrase = [](Estado& e, db::Database& bd, std::string p, std::int16_t c) { BuscaFrase(e, bd, p, c, false); };

TEST_F(IndiceTest, LookupsFindTheWordInTheField) {
  auto bd = Indice("INDIZADO.MDB", "TABLA", kPalabras);
  const struct {
    Busca busca;
    const char* palabra;
    std::int16_t campo;
    Fichas esperadas;
  } casos[] = {
      {kPalabra, "gato", 0, {3, 5, 7}},  {kPalabra, "g\xe1to", 1, {3, 7}},
      {kPalabra, "GATO", 2, {5}},        {kPalabra, "gato", 3, {}},
      {kPalabra, "gatos", 0, {9}},       {kPalabra, "gat", 0, {}},
      {kPalabra, "  ", 0, {}},           {kSQL, "gato", 0, {3, 5, 7}},
      {kSQL, "gato", 1, {3, 7}},         {kSQL, "perro", 3, {13}},
      {kSQL, "gat", 0, {}},              {kTruncada, "gat$", 0, {3, 5, 7, 9}},
      {kTruncada, "gat$", 2, {5}},       {kTruncada, "g$o", 0, {3, 5, 7}},
      {kFrase, "gato perro", 2, {3, 5}},  // the field is not applied
      {kPalabra, "big", 0, {800008}},    {kSQL, "big", 0, {800008}},
      {kTruncada, "bi$", 0, {800008}},   {kFrase, "big", 0, {800008}},
  };
  for (std::size_t i = 0; i < std::size(casos); ++i) {
    Estado e;
    e.MapaTermino.Pon(100);  // cleared by every lookup
    casos[i].busca(e, *bd, casos[i].palabra, casos[i].campo);
    EXPECT_EQ(Lista(e.MapaTermino), casos[i].esperadas) << "case " << i;
  }
  for (const Busca& busca : {kPalabra, kSQL, kTruncada, kFrase}) {
    Estado e;
    EXPECT_EQ(testing::ErrorNumberOf([&] { busca(e, *bd, "huge", 0); }), kErrSubindice);
  }
}

TEST_F(IndiceTest, ALookupCountsAtMost30001Hits) {
  // MUCHO in records 30005 down to 1 (inserted against index order), plus a
  // field-2 posting in records 1 to 4 that sorts before each field-1 one.
  std::vector<Fila> filas;
  for (int f = 30005; f >= 1; --f) filas.push_back({"MUCHO", 1, f, 2});
  for (int f = 1; f <= 4; ++f) filas.push_back({"MUCHO", 2, f, 1});
  auto bd = Indice("INDIZADO.MDB", "TABLA", filas);
  const struct {
    Busca busca;
    const char* palabra;
    std::int16_t campo;
    std::int32_t cuenta, ultima;  // ultima 0: any 30001 of them
  } casos[] = {
      {kPalabra, "mucho", 0, 29997, 29997},  // 8 postings of records 1 to 4 first
      {kPalabra, "mucho", 1, 30001, 30001},  // the skipped rows are not counted
      {kPalabra, "mucho", 2, 4, 4},
      {kSQL, "mucho", 1, 30001, 0},
      {kTruncada, "much$", 1, 30001, 0},
  };
  for (const auto& c : casos) {
    Estado e;
    c.busca(e, *bd, c.palabra, c.campo);
    const Fichas v = Lista(e.MapaTermino);
    EXPECT_EQ(v.size(), static_cast<std::size_t>(c.cuenta)) << c.palabra << " " << c.campo;
    if (c.ultima != 0 && !v.empty()) {
      EXPECT_EQ(v.back(), c.ultima) << c.palabra << " " << c.campo;
    }
  }
  Estado e;
  kFrase(e, *bd, "mucho", 0);  // phrases have no limit
  EXPECT_EQ(CuentaFichas(e.MapaTermino), 30005);
}

TEST_F(IndiceTest, APhraseNeedsItsWordsAtConsecutivePositionsOfOneRecord) {
  auto bd = Indice("INDIZADO.MDB", "TABLA",
                   {{"LA", 1, 1, 1}, {"CASA", 1, 1, 2}, {"VERDE", 1, 1, 3},  // la casa verde
                    {"CASA", 1, 2, 1}, {"LA", 1, 2, 2},                      // reversed
                    {"LA", 1, 3, 1}, {"X", 1, 3, 2}, {"CASA", 1, 3, 3},      // a gap
                    {"LA", 1, 4, 5}, {"CASA", 1, 5, 6},                      // two records
                    {"LA", 2, 6, 20}, {"CASA", 3, 6, 21},                    // two fields
                    {"MEXICO", 1, 10, 1}, {"ANTIGUO*", 1, 10, 2},
                    {"MEXICO", 1, 11, 1}, {"ANTIGUO$", 1, 11, 2},
                    {"MEXICO", 1, 12, 4}, {"ANTIGUO", 1, 12, 5},
                    {"MEDICINA", 1, 13, 1}, {"X*", 1, 13, 2},
                    {"MEDICINA", 1, 14, 1}, {"X$", 1, 14, 2},
                    {"MEDICINA", 1, 15, 7},
                    {"LA", 1, 16, 1}, {"MEDICINA", 1, 16, 2}});
  const struct {
    const char* frase;
    Fichas esperadas;
  } casos[] = {
      {"la casa", {1, 6}},
      {"  la   casa verde ", {1}},
      {"casa la", {2}},
      {"m\xc9xico antiguo", {12}},
      // The pivot is read as written, the other words with "$" as "*":
      // ANTIGUO$ is the pivot here (MEXICO is a common word) ...
      {"mexico antiguo$", {11}},
      // ... and MEDICINA here (X$ is shorter): X$ is sought as X*.
      {"medicina x$", {13}},
      {"medicina", {13, 14, 15, 16}},
      {"la medicina", {16}},
      {"", {}},
  };
  for (const auto& c : casos) {
    Estado e;
    BuscaFrase(e, *bd, c.frase, 1, false);
    EXPECT_EQ(Lista(e.MapaTermino), c.esperadas) << c.frase;
  }
  std::string frase;
  for (int i = 0; i < 31; ++i) frase += "LA ";
  Estado e;
  EXPECT_EQ(testing::ErrorNumberOf([&] { BuscaFrase(e, *bd, frase, 0, false); }), 0);
  EXPECT_EQ(testing::ErrorNumberOf([&] { BuscaFrase(e, *bd, frase + "LA", 0, false); }),
            kErrSubindice);
}

TEST_F(IndiceTest, TermsMergeStrictlyInOrder) {
  auto bd = Indice("INDIZADO.MDB", "TABLA", kPalabras);
  const struct {
    Cajas expr;
    std::array<std::int16_t, 3> campos;
    bool conCampos;
    Fichas esperadas;
  } casos[] = {
      {{"gato perro"}, {}, false, {3, 5}},
      {{"gato o perro"}, {}, false, {3, 5, 7, 11, 13}},
      {{"gato no perro"}, {}, false, {7}},
      {{"gato -perro +perro"}, {}, false, {3, 5, 7, 11, 13}},
      {{"-gato"}, {}, false, {}},
      {{"mono +gato"}, {}, false, {3, 5, 7}},
      {{"mono huge"}, {}, false, {}},  // the AND term is skipped, never looked up
      {{"gat$ -gatos"}, {}, false, {3, 5, 7}},
      {{"\"gato perro\" gato"}, {}, false, {3, 5}},
      {{"gato -"}, {}, false, {}},
      {{"huge -"}, {}, false, {}},  // a syntax error: nothing is looked up
      // The four boxes search fields 0, 1, 2, 3.
      {{"", "gato"}, {}, false, {3, 7}},
      {{"", "", "gato"}, {}, false, {5}},
      {{"", "", "", "perro"}, {}, false, {13}},
      {{"gato", "perro"}, {}, false, {3}},
      // The field list; the fourth box is not used.
      {{"perro", "+gato", "", "+huge"}, {3, 2, 0}, true, {5, 13}},
      {{"", "", "perro"}, {9, 9, 1}, true, {3, 11}},
  };
  for (const auto& c : casos) {
    testing::FakePlatform p;
    Estado e;
    const Entorno en{e, bd.get(), p.sys.salida};
    e.MapaResultado.Pon(100);  // cleared by the search
    BuscaPalabras(en, c.expr, c.campos, c.conCampos);
    EXPECT_EQ(Lista(e.MapaResultado), c.esperadas) << c.expr[0] << "|" << c.expr[1];
    EXPECT_EQ(p.salida.contents.find("Error de sintaxis") != std::string::npos,
              c.expr[0].ends_with('-'))
        << c.expr[0];
  }
  for (const char* expr : {"gato huge", "mono +huge", "mono -huge"}) {
    testing::FakePlatform p;
    Estado e;
    const Entorno en{e, bd.get(), p.sys.salida};
    EXPECT_EQ(testing::ErrorNumberOf([&] { BuscaPalabras(en, {expr}, {}, false); }), kErrSubindice)
        << expr;
  }
}

TEST_F(IndiceTest, ArticlesAreSearchedInTheirOwnTableWithoutSkipping) {
  auto bd = Indice("indizaPP.MDB", "TABLAANA", kPalabras);
  bd->Execute("INSERT INTO TABLA (palabra,campo,ficha,posicion) VALUES ('GATO',1,100,1)");
  const struct {
    Cajas expr;
    Fichas esperadas;
    int error;
  } casos[] = {
      {{"gato"}, {3, 5, 7}, 0},          {{"gato perro"}, {3, 5}, 0},
      {{"gat$ no gatos"}, {3, 5, 7}, 0}, {{"\"gato perro\""}, {3, 5}, 0},
      {{"", "gato"}, {3, 7}, 0},         {{"", "", "", "perro"}, {13}, 0},
      {{"mono huge"}, {}, kErrSubindice},
  };
  for (const auto& c : casos) {
    testing::FakePlatform p;
    Estado e;
    const Entorno en{e, bd.get(), p.sys.salida};
    EXPECT_EQ(testing::ErrorNumberOf([&] { BuscaPalabrasAna(en, c.expr); }), c.error) << c.expr[0];
    if (c.error == 0) {
      EXPECT_EQ(Lista(e.MapaResultado), c.esperadas) << c.expr[0];
    }
  }
}

TEST(IndiceCatalogo, FindsTheNotableRecordsOfTheCatalogue) {
  const struct {
    const char* archivo;
    bool articulos;
    Cajas expr;
    Fichas esperadas;  // when short; else one record among them
    std::int32_t cuenta;
  } casos[] = {
      {"INDIZADO.MDB", false, {"\"mexico antiguo\""}, {28, 29, 172, 321, 390, 398}, 6},
      {"INDIZADO.MDB", false, {"\xc1lgebra"}, {15, 19}, 2},
      {"INDIZADO.MDB", false, {"gato no perro"}, {39, 201, 268, 347, 364, 381}, 6},
      {"INDIZADO.MDB", false, {"\"la casa\""}, {9}, 17},
      {"INDIZADO.MDB", false, {"comput$"}, {}, 102},
      {"INDIZADO.MDB", false, {"", "", "", "medicina"}, {}, 69},
      {"indizaPP.MDB", true, {"\"mexico antiguo\""}, {5, 16, 20, 21, 26, 31}, 6},
      {"indizaPP.MDB", true, {"", "a\xf1o"}, {12, 13, 18, 23, 25, 33, 34, 35, 37}, 9},
  };
  for (const auto& c : casos) {
    testing::FakePlatform p;
    Estado e;
    const auto indice = db::OpenDatabase((kSqlite / c.archivo).string(), CodePage::Windows1252(),
                                          {.read_only = true});
    const Entorno en{e, indice.get(), p.sys.salida};
    if (c.articulos) {
      BuscaPalabrasAna(en, c.expr);
    } else {
      BuscaPalabras(en, c.expr, {}, false);
    }
    const Fichas v = Lista(e.MapaResultado);
    EXPECT_EQ(static_cast<std::int32_t>(v.size()), c.cuenta) << c.expr[0];
    if (c.esperadas.size() == v.size()) {
      EXPECT_EQ(v, c.esperadas) << c.expr[0];
    } else {
      for (std::int32_t f : c.esperadas) EXPECT_TRUE(e.MapaResultado.Tiene(f)) << f;
    }
  }
}

}  // namespace
}  // namespace orvex::search
