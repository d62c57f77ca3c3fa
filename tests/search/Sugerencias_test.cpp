#include "search/Sugerencias.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>

#include "base/CodePage.h"
#include "search/ListasPalabras.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

namespace fs = std::filesystem;
using vocabulario::Agrupa;
using vocabulario::Grupo;
using Palabras = std::vector<std::pair<std::string, std::int64_t>>;

const fs::path kFixtures = fs::path(ORVEX_FIXTURES) / "catalogo";

// The suggestions as "WORD count edits" lines, to compare whole lists.
std::vector<std::string> Texto(const std::vector<Sugerencia>& s) {
  std::vector<std::string> v;
  for (const Sugerencia& x : s) {
    v.push_back(x.palabra + " " + std::to_string(x.frecuencia) + " " + std::to_string(x.ediciones));
  }
  return v;
}

// Edit distance with adjacent swaps, the whole table: what the walk over
// the sorted groups must agree with.
int Distancia(std::string_view a, std::string_view b) {
  std::vector<std::vector<int>> t(a.size() + 1, std::vector<int>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) t[i][0] = static_cast<int>(i);
  for (std::size_t j = 0; j <= b.size(); ++j) t[0][j] = static_cast<int>(j);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j) {
      t[i][j] = std::min({t[i - 1][j] + 1, t[i][j - 1] + 1,
                          t[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        t[i][j] = std::min(t[i][j], t[i - 2][j - 2] + 1);
      }
    }
  }
  return t[a.size()][b.size()];
}

TEST(Vocabulario, GroupsByLengthSortedWithLittleEndianCounts) {
  const auto grupos = Agrupa({{"GATO", 3},
                              {"DE", 70000},
                              {"ARBOL", 1},
                              {"CASA", 2},
                              {"GATO", 4},
                              {"", 9},
                              {std::string(kLargoMaximo + 1, 'A'), 9},
                              {std::string(kLargoMaximo, 'B'), 5000000000},
                              {"NI\xD1O", -3},
                              {"1987", 6},
                              {"X1X2", 1}});
  ASSERT_EQ(grupos.size(), 5u);
  EXPECT_EQ(grupos[0].largo, 2);
  EXPECT_EQ(grupos[0].palabras, "DE");
  EXPECT_EQ(grupos[0].frecuencias, std::string("\x70\x11\x01\x00", 4));
  EXPECT_EQ(grupos[1].largo, 4);
  EXPECT_FALSE(grupos[1].cifras);
  // Bytes compare unsigned: Ñ (D1) after every letter A-Z. Two digits are
  // not a word of digits.
  EXPECT_EQ(grupos[1].palabras, "CASAGATONI\xD1OX1X2");
  EXPECT_EQ(grupos[1].frecuencias,
            std::string("\x02\0\0\0\x07\0\0\0\0\0\0\0\x01\0\0\0", 16));
  EXPECT_EQ(grupos[2].largo, 4);
  EXPECT_TRUE(grupos[2].cifras);
  EXPECT_EQ(grupos[2].palabras, "1987");
  EXPECT_EQ(grupos[3].palabras, "ARBOL");
  EXPECT_EQ(grupos[4].largo, static_cast<int>(kLargoMaximo));
  EXPECT_EQ(grupos[4].frecuencias, "\xFF\xFF\xFF\xFF");
}

// A small vocabulary and what each word gets from it: the most frequent
// first, then the fewer edits, then by bytes; never the word itself.
TEST(Vocabulario, SuggestsWithinTwoEditsMostFrequentFirst) {
  const auto grupos = Agrupa({{"HISTORIA", 500}, {"HISTORIAS", 40}, {"HISTERIA", 7},
                              {"MEXICO", 900},   {"MEDICO", 30},    {"MEJICO", 2},
                              {"LIBRO", 50},     {"LIBROS", 60},    {"LIBRE", 5},
                              {"CASA", 20},      {"CASI", 10},      {"CASAS", 10},
                              {"COSA", 10},      {"CAZA", 10},      {"NI\xD1O", 15},
                              {"A", 100},        {"DE", 1000},      {"AB", 4},
                              {"LAS", 8},        {std::string(63, 'Q'), 1},
                              {"1987", 6},       {"XX1", 2}});
  const struct {
    std::string palabra;
    int maximo;
    std::vector<std::string> esperadas;
  } casos[] = {
      // A swap is one edit; a swap and a change, or a swap and an insertion, two.
      {"HITSORIA", 5, {"HISTORIA 500 1", "HISTORIAS 40 2", "HISTERIA 7 2"}},
      // The word itself is in the index: only its neighbours.
      {"MEXICO", 5, {"MEDICO 30 1", "MEJICO 2 1"}},
      // Equal counts: one edit before two, then by bytes.
      {"CASO", 5, {"CASA 20 1", "CASI 10 1", "CASAS 10 2", "CAZA 10 2", "COSA 10 2"}},
      {"CASO", 2, {"CASA 20 1", "CASI 10 1"}},
      {"CASO", 0, {}},
      {"CASO", -1, {}},
      // Insertions and deletions at either end.
      {"IBROS", 5, {"LIBROS 60 1", "LIBRO 50 2"}},
      {"LIBROSS", 5, {"LIBROS 60 1", "LIBRO 50 2"}},
      // Ñ is one character: NINO is one edit from NIÑO.
      {"NINO", 5, {"NI\xD1O 15 1"}},
      // Three edits are too many.
      {"LIBRXYZ", 5, {}},
      // A word of two characters admits one edit (LAS is two away), of one
      // character none.
      {"DA", 5, {"DE 1000 1", "A 100 1"}},
      {"X", 5, {}},
      {"", 5, {}},
      // Bytes outside the word characters are characters like any other.
      {"HIST\x01ORIA", 1, {"HISTORIA 500 1"}},
      {"\x01\x02\x03", 5, {}},
      // Still the most frequent first: LAS is one edit away, A two.
      {"\x01" "AS", 5, {"A 100 2", "CASA 20 2", "CASI 10 2", "LAS 8 1", "AB 4 2"}},
      // Words of digits answer words with digits; two digits are one
      // edit from a word without.
      {"19877", 5, {"1987 6 1"}},
      {"XXI", 5, {"XX1 2 1"}},
      // The longest word suggested from, and one character more.
      {std::string(kLargoMaximo, 'Q'), 5, {std::string(63, 'Q') + " 1 1"}},
      {std::string(kLargoMaximo + 1, 'Q'), 5, {}},
      {std::string(62, 'Q'), 5, {std::string(63, 'Q') + " 1 1"}},
      {std::string(61, 'Q') + "R", 5, {std::string(63, 'Q') + " 1 2"}},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(Texto(vocabulario::Sugiere(grupos, c.palabra, c.maximo)), c.esperadas)
        << c.palabra << " " << c.maximo;
  }
}

// Groups whose bytes do not hold whole words, or a count for each, are
// skipped; the sound ones still answer. A group out of order is read
// without harm.
TEST(Vocabulario, DamagedGroupsAreSkipped) {
  const std::vector<Grupo> grupos = {
      {4, false, "GATOPATO", std::string(8, '\x01')},
      {5, false, "GATOSGATA", std::string(8, '\x01')},             // bytes not whole words
      {3, false, "GAT", std::string(3, '\x01')},                   // a count cut short
      {0, false, "", ""},                                          // no length
      {70, false, std::string(70, 'G'), std::string(4, '\x01')},   // too long
      {4, false, "RATOMATOGATA", std::string("\x09\0\0\0\x08\0\0\0\x07\0\0\0", 12)},  // unsorted
  };
  const auto s = vocabulario::Sugiere(grupos, "GATE", 10);
  const auto tiene = [&](const std::string& w) {
    return std::any_of(s.begin(), s.end(), [&](const Sugerencia& x) { return x.palabra == w; });
  };
  EXPECT_TRUE(tiene("GATO"));
  EXPECT_TRUE(tiene("PATO"));
  for (const Sugerencia& x : s) {
    EXPECT_TRUE(x.palabra == "GATO" || x.palabra == "PATO" || x.palabra == "RATO" ||
                x.palabra == "MATO" || x.palabra == "GATA")
        << x.palabra;
  }
}

// The walk over the sorted groups, with its prefix reuse and its jumps,
// finds exactly the words the whole edit table finds, on random
// vocabularies over a few letters (so that words share long prefixes) and
// random words typed against them.
TEST(Vocabulario, AgreesWithTheWholeEditTable) {
  std::mt19937 azar(20261124);
  const std::string letras = "AB1\xD1";
  const auto palabra = [&](int largo) {
    std::string w;
    for (int i = 0; i < largo; ++i) w += letras[azar() % letras.size()];
    return w;
  };
  for (int vuelta = 0; vuelta < 40; ++vuelta) {
    Palabras palabras;
    for (int i = 0; i < 300; ++i) {
      palabras.emplace_back(palabra(1 + static_cast<int>(azar() % 9)), 1 + azar() % 5);
    }
    const auto grupos = Agrupa(palabras);
    std::map<std::string, std::int64_t> cuentas;
    for (const auto& [w, n] : palabras) cuentas[w] += n;
    for (int q = 0; q < 50; ++q) {
      const std::string buscada = palabra(1 + static_cast<int>(azar() % 10));
      const int k = std::min<int>(kMaximoEdiciones, static_cast<int>(buscada.size()) - 1);
      std::vector<std::string> esperadas;
      for (const auto& [w, n] : cuentas) {
        const int d = Distancia(buscada, w);
        if (d > 0 && d <= k) esperadas.push_back(w + " " + std::to_string(n) + " " + std::to_string(d));
      }
      std::vector<std::string> halladas = Texto(vocabulario::Sugiere(grupos, buscada, 100000));
      std::sort(halladas.begin(), halladas.end());
      ASSERT_EQ(halladas, esperadas) << buscada;
    }
  }
}

// Through the database: the word table's own words when the file has no
// vocabulary in force.
class SugerenciasIndice : public ::testing::Test {
 protected:
  testing::DirectorioTemporal tmp_;

  std::unique_ptr<db::Database> Copia(const std::string& carpeta) {
    return db::OpenDatabase(
        tmp_.Copia(kFixtures / carpeta / "INDIZADO.MDB", carpeta + ".MDB").string(),
        CodePage::Windows1252());
  }
};

// The fixture's word table (17038 rows) is gathered whole, by either
// engine, with the same answers; the word is trimmed and folded first.
TEST_F(SugerenciasIndice, WithoutVocabularyTheWordTableAnswers) {
  auto sqlite = Copia("sqlite");
  auto jet = Copia("jet");
  const auto s = Sugiere(*sqlite, "  histr\xF3ia ", 3);
  ASSERT_FALSE(s.empty());
  EXPECT_EQ(Texto({s[0]}), std::vector<std::string>{"HISTORIA 341 1"});
  for (const char* w : {"HISTROIA", "NINO", "MEXIKO", "CAPITULOS", "ENSENANZA", "XQZW", "DA"}) {
    const auto de_sqlite = Texto(Sugiere(*sqlite, w, 5));
    EXPECT_EQ(de_sqlite, Texto(Sugiere(*jet, w, 5))) << w;
    if (std::string_view(w) != "XQZW") {
      EXPECT_FALSE(de_sqlite.empty()) << w;
    }
  }
  EXPECT_EQ(Texto(Sugiere(*sqlite, "NINO", 3)),
            (std::vector<std::string>{"NI\xD1OS 65 2", "NI\xD1O 57 1", "CANO 26 2"}));
  EXPECT_EQ(Texto(Sugiere(*sqlite, "DA", 4)),
            (std::vector<std::string>{"DE 1109 1", "LA 516 1", "A 52 1", "DU 13 1"}));
  EXPECT_TRUE(Sugiere(*sqlite, std::string(10000, 'H'), 5).empty());
}

// A word table of kFilasSinVocabulario rows is gathered; one row more and
// it gives nothing.
TEST_F(SugerenciasIndice, ABiggerWordTableWithoutVocabularyGivesNothing) {
  auto bd = Copia("sqlite");
  bd->Execute("INSERT INTO TABLA SELECT * FROM TABLA");
  bd->Execute("INSERT INTO TABLA SELECT * FROM TABLA");
  bd->Execute("DELETE FROM TABLA WHERE rowid > " + std::to_string(kFilasSinVocabulario));
  EXPECT_FALSE(Sugiere(*bd, "HISTROIA", 5).empty());
  bd->Execute("INSERT INTO TABLA VALUES ('HISTORIA', 1, 1, 1)");
  EXPECT_TRUE(Sugiere(*bd, "HISTROIA", 5).empty());
}

// A vocabulary in force is read instead of the table; once a change to the
// table voids it (or a trigger is missing), the table answers again.
TEST_F(SugerenciasIndice, TheVocabularyIsReadWhileInForce) {
  auto bd = Copia("sqlite");
  const std::string tabla(vocabulario::kTablaVocabulario);
  bd->Execute("CREATE TABLE " + tabla +
              " (tabla TEXT NOT NULL, largo INTEGER NOT NULL, cifras INTEGER NOT NULL, "
              "palabras BLOB NOT NULL, frecuencias BLOB NOT NULL, "
              "PRIMARY KEY (tabla, largo, cifras))");
  // HISTORIAL (3 rows) and HISTERIA (2), none of them in TABLA; HISTR123,
  // three edits away, and a group of another table.
  for (const char* fila : {"('TABLA', 8, 0, x'4849535445524941', x'02000000')",
                           "('TABLA', 9, 0, x'484953544F5249414C', x'03000000')",
                           "('TABLA', 8, 1, x'4849535452313233', x'09000000')",
                           "('TABLAANA', 8, 0, x'4849535452494F41', x'05000000')"}) {
    bd->Execute("INSERT INTO " + tabla + " VALUES " + fila);
  }
  bd->Execute("CREATE TABLE " + std::string(listas::kTablaVigencia) +
              " (tabla TEXT PRIMARY KEY, filas INTEGER)");
  bd->Execute("INSERT INTO " + std::string(listas::kTablaVigencia) + " VALUES ('TABLA', 17038)");
  const auto dispara = [&](std::string_view suceso, const char* sentencia) {
    bd->Execute("CREATE TRIGGER " + listas::Disparador("TABLA", suceso) + " AFTER " + sentencia +
                " ON TABLA BEGIN DELETE FROM " + std::string(listas::kTablaVigencia) +
                " WHERE tabla = 'TABLA'; END");
  };
  dispara("ALTA", "INSERT");
  dispara("BAJA", "DELETE");
  const std::vector<std::string> de_la_tabla = Texto(Sugiere(*bd, "HISTROIA", 5));
  EXPECT_EQ(de_la_tabla, (std::vector<std::string>{"HISTORIA 341 1", "HISTORIAS 1 2"}));

  dispara("CAMBIO", "UPDATE");
  EXPECT_EQ(Texto(Sugiere(*bd, "HISTROIA", 5)),
            (std::vector<std::string>{"HISTORIAL 3 2", "HISTERIA 2 2"}));
  // A damaged length is skipped; the others still answer.
  bd->Execute("INSERT INTO " + tabla + " VALUES ('TABLA', 7, 0, x'00', x'')");
  EXPECT_EQ(Texto(Sugiere(*bd, "HISTROIA", 1)), std::vector<std::string>{"HISTORIAL 3 2"});

  bd->Execute("UPDATE TABLA SET campo = campo WHERE rowid = 1");
  EXPECT_EQ(Texto(Sugiere(*bd, "HISTROIA", 5)), de_la_tabla);
}

}  // namespace
}  // namespace orvex::search
