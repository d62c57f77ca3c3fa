#include "z3950/Acervo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "base/Clock.h"
#include "base/CodePage.h"
#include "base/PosixPlatform.h"
#include "search/Indice.h"
#include "tests/support/Fakes.h"

namespace orvex::z3950 {
namespace {

namespace fs = std::filesystem;

// The test catalogue (347 records built by orvex-catalogo) searched in
// this process, against the word table read with plain SQL.
class AcervoPrueba : public ::testing::Test {
 protected:
  AcervoPrueba()
      : bases_(CodePage::Windows1252()),
        acervo_((fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite").string(), archivos_, bases_) {}

  std::set<std::int32_t> Tabla(const std::string& palabra, int campo) {
    auto rs = acervo_.BaseIndice().OpenRecordset(
        "select distinct ficha from TABLA where palabra='" + palabra + "'" +
            (campo != 0 ? " and campo=" + std::to_string(campo) : ""),
        db::RecordsetType::Snapshot);
    std::set<std::int32_t> fichas;
    for (; !rs->Eof(); rs->MoveNext()) fichas.insert(static_cast<std::int32_t>(rs->Field("ficha").integer));
    return fichas;
  }
  std::vector<std::int32_t> Busca(const std::string& cql) {
    Diagnostico d;
    auto arbol = DeCQL(cql, d);
    EXPECT_TRUE(arbol) << cql;
    if (!arbol) return {};
    auto fichas = acervo_.Busca(*arbol, d);
    EXPECT_FALSE(d) << cql << ": " << d.detalle;
    EXPECT_TRUE(std::is_sorted(fichas.begin(), fichas.end())) << cql;
    return fichas;
  }
  static std::set<std::int32_t> Conjunto(const std::vector<std::int32_t>& v) { return {v.begin(), v.end()}; }

  PosixFileSystem archivos_;
  db::EngineOpener bases_;
  Acervo acervo_;
};

TEST_F(AcervoPrueba, TermsFindTheRecordsOfTheirWordInTheirField) {
  const struct {
    const char* cql;
    const char* palabra;
    int campo;
  } casos[] = {
      {"historia", "HISTORIA", 0},       {"dc.title=historia", "HISTORIA", 1},
      {"dc.subject=MÉXICO", "MEXICO", 3}, {"dc.creator=zzzzqq", "ZZZZQQ", 2},
      {"dc.title=siglo", "SIGLO", 1},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(Conjunto(Busca(c.cql)), Tabla(c.palabra, c.campo)) << c.cql;
  }
}

TEST_F(AcervoPrueba, OperatorsCombineTheSetsOfTheirOperands) {
  const auto historia = Tabla("HISTORIA", 3), mexico = Tabla("MEXICO", 3);
  std::set<std::int32_t> y, o, no;
  std::set_intersection(historia.begin(), historia.end(), mexico.begin(), mexico.end(), std::inserter(y, y.end()));
  std::set_union(historia.begin(), historia.end(), mexico.begin(), mexico.end(), std::inserter(o, o.end()));
  std::set_difference(historia.begin(), historia.end(), mexico.begin(), mexico.end(), std::inserter(no, no.end()));
  EXPECT_EQ(Conjunto(Busca("dc.subject=historia and dc.subject=mexico")), y);
  EXPECT_EQ(Conjunto(Busca("dc.subject=historia or dc.subject=mexico")), o);
  EXPECT_EQ(Conjunto(Busca("dc.subject=historia not dc.subject=mexico")), no);
  EXPECT_EQ(Conjunto(Busca("dc.subject all \"historia mexico\"")), y);
  // A word that is one of the query language's operators stays a word.
  EXPECT_EQ(Conjunto(Busca("dc.subject all \"historia or mexico\"")),
            Conjunto(Busca("dc.subject=historia and dc.subject=or and dc.subject=mexico")));
}

TEST_F(AcervoPrueba, PhrasesAndTruncationNarrowAndWiden) {
  const auto frase = Conjunto(Busca("\"mexico historia\""));
  const auto todas = Conjunto(Busca("cql.serverChoice all \"mexico historia\""));
  EXPECT_FALSE(frase.empty());
  EXPECT_TRUE(std::includes(todas.begin(), todas.end(), frase.begin(), frase.end()));
  EXPECT_LT(frase.size(), todas.size());
  // The longest phrase the mapping lets through is searched.
  std::string larga = "historia";
  for (int i = 1; i < search::kMaximoPalabrasFrase; ++i) larga += " de";
  EXPECT_TRUE(Busca("\"" + larga + "\"").empty());
  const auto truncada = Conjunto(Busca("histori*"));
  const auto exacta = Tabla("HISTORIA", 0);
  EXPECT_TRUE(std::includes(truncada.begin(), truncada.end(), exacta.begin(), exacta.end()));
}

TEST_F(AcervoPrueba, TheLocalNumberFindsOneRecordOrNone) {
  EXPECT_EQ(Busca("rec.id=1"), (std::vector<std::int32_t>{1}));
  EXPECT_TRUE(Busca("rec.id=999999").empty());
  EXPECT_TRUE(Busca("rec.id=abc").empty());
  EXPECT_TRUE(Busca("rec.id=\"-3\"").empty());
  records::RegFicha ficha;
  EXPECT_TRUE(acervo_.Carga(1, ficha));
  EXPECT_FALSE(acervo_.Carga(999999, ficha));
}

// A scan lists the index's words in order around its start term, each with
// the records a search for it finds, and only words that find some.
TEST_F(AcervoPrueba, ScanListsWordsInOrderWithTheirHits) {
  bool completa = false;
  int antes = 2;
  const auto entradas = acervo_.Explora(Indice::Tema, "históri", antes, 8, completa);
  ASSERT_EQ(entradas.size(), 8u);
  EXPECT_TRUE(completa);
  EXPECT_EQ(antes, 2);
  EXPECT_LT(entradas[1].palabra, "HISTORI");
  EXPECT_GE(entradas[2].palabra, "HISTORI");
  EXPECT_EQ(entradas[2].palabra, "HISTORIA");
  for (std::size_t i = 0; i < entradas.size(); ++i) {
    if (i > 0) {
      EXPECT_LT(entradas[i - 1].palabra, entradas[i].palabra);
    }
    EXPECT_GT(entradas[i].fichas, 0) << entradas[i].palabra;
    EXPECT_EQ(static_cast<std::size_t>(entradas[i].fichas),
              Busca("dc.subject=\"" + entradas[i].palabra + "\"").size())
        << entradas[i].palabra;
  }
  // Past the last word: nothing; before the first: the list starts there.
  antes = 0;
  EXPECT_TRUE(acervo_.Explora(Indice::Tema, "zzzzzz", antes, 5, completa).empty());
  antes = 3;
  EXPECT_EQ(acervo_.Explora(Indice::Cualquiera, "", antes, 4, completa).size(), 4u);
  EXPECT_EQ(antes, 0);
  EXPECT_TRUE(acervo_.Explora(Indice::NumeroLocal, "1", antes, 5, completa).empty());
}

}  // namespace
}  // namespace orvex::z3950
