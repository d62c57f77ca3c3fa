#include "search/ListasPalabras.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <sstream>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "catalogo/Catalogo.h"
#include "db/Database.h"
#include "search/Indice.h"
#include "tests/catalogo/Construye.h"
#include "tests/support/MARCPrueba.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

namespace fs = std::filesystem;
using catalogo::prueba::RegistroISO;

TEST(ListasPalabras, RowsComeBackAsTheyWereWritten) {
  const std::vector<listas::Fila> filas = {
      {1, 1, 1},      {1, 1, 3},           {1, 0, 1},       {1, -5, 2},
      {300, 32767, 8}, {300, -32768, 1},   {70000, 2, 1},   {2147483647, 129, 200}};
  listas::Codificador c;
  for (const listas::Fila& f : filas) c.Agrega(f);
  EXPECT_EQ(c.Filas(), 8);
  listas::Decodificador d(c.Bytes());
  listas::Fila f;
  for (const listas::Fila& esperada : filas) {
    ASSERT_TRUE(d.Siguiente(f));
    EXPECT_EQ(f.ficha, esperada.ficha);
    EXPECT_EQ(f.posicion, esperada.posicion);
    EXPECT_EQ(f.campo, esperada.campo);
  }
  EXPECT_FALSE(d.Siguiente(f));
  EXPECT_FALSE(d.Danado());

  // Cut inside a row, or a number that never ends: damaged.
  for (const std::string& malo : {c.Bytes().substr(0, c.Bytes().size() - 1),
                                  std::string(11, '\x80')}) {
    listas::Decodificador m(malo);
    while (m.Siguiente(f)) {
    }
    EXPECT_TRUE(m.Danado());
  }
}

// The phrase keys of a chunk: record in the high half, position - j + 2^31
// in the low half, ascending from the previous chunk's last key. Checked
// against the rows the plain decoder gives, on random chunks with large and
// negative steps (the three-byte short cut and the long numbers both), and
// on chunks whose keys go backwards or whose bytes are cut.
TEST(ListasPalabras, PhraseKeysAreTheRowsRecordAndShiftedPosition) {
  std::mt19937 azar(241124);
  for (int vuelta = 0; vuelta < 300; ++vuelta) {
    listas::Codificador c;
    std::int64_t ficha = azar() % 3 == 0 ? 2147483600 : 1;
    std::int64_t posicion = 0;
    const int filas = 1 + static_cast<int>(azar() % 200);
    for (int i = 0; i < filas; ++i) {
      const bool misma = azar() % 3 != 0;
      if (!misma) ficha += 1 + azar() % (azar() % 4 == 0 ? 5000 : 60);
      posicion = misma ? posicion + static_cast<std::int64_t>(azar() % 70)
                       : static_cast<std::int64_t>(azar() % 4 == 0 ? azar() % 5000000000ull : azar() % 60) -
                             (azar() % 5 == 0 ? 2200000000ll : 0);
      c.Agrega({ficha, posicion, static_cast<std::int64_t>(azar() % 300)});
    }
    const std::int64_t j = azar() % 4;
    std::vector<std::uint64_t> esperadas;
    listas::Decodificador d(c.Bytes());
    for (listas::Fila f; d.Siguiente(f);) {
      const std::int64_t bajo = f.posicion - j + (std::int64_t{1} << 31);
      if (f.ficha > 0x7FFFFFFF || bajo < 0 || bajo > 0xFFFFFFFF) continue;
      esperadas.push_back((static_cast<std::uint64_t>(f.ficha) << 32) | static_cast<std::uint64_t>(bajo));
    }
    std::vector<std::uint64_t> claves = {7};  // keys already there stay
    std::uint64_t anterior = 0;
    ASSERT_EQ(listas::ClavesDeFrase(c.Bytes(), j, claves, anterior), filas);
    esperadas.insert(esperadas.begin(), 7);
    ASSERT_EQ(claves, esperadas);
    if (esperadas.size() > 1) {
      EXPECT_EQ(anterior, esperadas.back());
    }
  }

  listas::Codificador c;
  c.Agrega({5, 10, 1});
  c.Agrega({5, 12, 1});
  const std::uint64_t primera = (std::uint64_t{5} << 32) | ((std::uint64_t{1} << 31) + 10);
  listas::Codificador atras;  // same record, position going back
  atras.Agrega({5, 12, 1});
  atras.Agrega({5, 10, 1});
  const struct {
    std::string bytes;
    std::uint64_t anterior;
  } danados[] = {
      {c.Bytes(), primera + 1},                         // below the previous chunk's last key
      {atras.Bytes(), 0},                               // backwards inside the chunk
      {c.Bytes().substr(0, c.Bytes().size() - 1), 0},  // cut inside a row
      {std::string(11, '\x80'), 0},                     // a number that never ends
  };
  for (const auto& caso : danados) {
    std::vector<std::uint64_t> claves = {1, 2};
    std::uint64_t anterior = caso.anterior;
    EXPECT_EQ(listas::ClavesDeFrase(caso.bytes, 0, claves, anterior), -1);
    EXPECT_EQ(claves, (std::vector<std::uint64_t>{1, 2}));
  }
  std::vector<std::uint64_t> claves;
  std::uint64_t anterior = primera;  // equal keys are in order
  EXPECT_EQ(listas::ClavesDeFrase(c.Bytes(), 0, claves, anterior), 2);
}

// A catalogue built by orvex-catalogo answers every lookup the same from its
// word lists as from its word table: words in any field or one field, the
// 30001-row cap, truncation, phrases. Then the lists are damaged on purpose
// (a lookup that reads them says so), and a change to the word table voids
// them: the same lookups read the table and give the same answers.
class ListasCatalogo : public ::testing::Test {
 protected:
  testing::DirectorioTemporal tmp_;

  void SetUp() override {
    // Titles, authors and subjects from a small vocabulary with accents and
    // Ñ; GATO fills the first 330 titles a hundred times, so that the cap
    // cuts it.
    const std::vector<std::string> vocabulario = {
        "historia", "de", "méxico", "la", "revolución", "niño", "nina", "árbol",
        "gato",     "perro", "casa", "historias", "america", "latina"};
    std::mt19937 azar(20261122);
    std::string archivo;
    for (int r = 1; r <= 420; ++r) {
      auto frase = [&](int n) {
        std::string s;
        for (int i = 0; i < n; ++i) {
          s += (i ? " " : "") + vocabulario[azar() % vocabulario.size()];
        }
        return s;
      };
      std::string titulo = frase(3 + static_cast<int>(azar() % 6));
      if (r <= 330) {
        for (int i = 0; i < 100; ++i) titulo += " gato";
      }
      archivo += RegistroISO({{"001", "r" + std::to_string(r)},
                              {"100", "1 $a" + frase(2)},
                              {"245", "10$a" + titulo},
                              {"650", " 4$a" + frase(1 + static_cast<int>(azar() % 4))}});
    }
    const fs::path marc = catalogo::prueba::EscribeArchivo(tmp_.ruta() / "c.mrc", archivo);
    ASSERT_EQ(catalogo::prueba::Construye(tmp_.ruta() / "cat", {marc.string()}), "");
    indice_ = db::OpenDatabase((tmp_.ruta() / "cat" / "INDIZADO.MDB").string(),
                               CodePage::Windows1252());
  }

  // Every lookup of the table below, each as the list of its records.
  std::vector<std::vector<std::int32_t>> Busquedas() {
    std::vector<std::vector<std::int32_t>> resultados;
    const auto guarda = [&] {
      std::vector<std::int32_t> v;
      for (std::int32_t f = SiguienteFicha(e_.MapaTermino, 0); f > 0 && (v.empty() || f > v.back());
           f = SiguienteFicha(e_.MapaTermino, f)) {
        v.push_back(f);
      }
      resultados.push_back(v);
    };
    for (const char* w : {"HISTORIA", "GATO", "NI\xD1O", "ARBOL", "DE", "NADA", "HISTORI"}) {
      for (std::int16_t campo : {0, 1, 2, 3}) {
        std::string palabra = w, tabla;
        BuscaPalabra(e_, *indice_, palabra, campo, tabla);
        guarda();
      }
    }
    for (const char* w : {"HISTORI$", "NI$", "G$", "A$T$", "Z$"}) {
      for (std::int16_t campo : {0, 1, 3}) {
        std::string palabra = w, tabla;
        BuscaTruncada(e_, *indice_, palabra, campo, tabla);
        guarda();
      }
    }
    for (const char* f : {"historia de mexico", "america latina", "gato gato", "de la",
                          "la revolucion de", "nina gato", "perro casa arbol", "gato nada",
                          "mexico", "de$ la"}) {
      BuscaFrase(e_, *indice_, f, 0, false);
      guarda();
    }
    return resultados;
  }

  Estado e_;
  std::unique_ptr<db::Database> indice_;
};

TEST_F(ListasCatalogo, AnswerAsTheWordTableDoes) {
  const auto con_listas = Busquedas();
  // GATO in any field: the first 30001 of its 33000-odd rows, in record
  // order, fill exactly the first records' titles.
  EXPECT_LT(con_listas[4].size(), 330u);
  EXPECT_GT(con_listas[4].size(), 250u);
  EXPECT_FALSE(con_listas[0].empty());

  // The lists are what the lookups read.
  indice_->Execute("UPDATE ORVEX_LISTAS SET lista = x'80' WHERE palabra = 'GATO' AND trozo = 0");
  std::string gato = "GATO", tabla;
  EXPECT_EQ(testing::ErrorNumberOf([&] { BuscaPalabra(e_, *indice_, gato, 0, tabla); }),
            db::kErrFormatoNoReconocido);
  EXPECT_EQ(testing::ErrorNumberOf([&] { BuscaFrase(e_, *indice_, "casa gato", 0, false); }),
            db::kErrFormatoNoReconocido);
  // A chunk whose rows go back in position is damaged too.
  indice_->Execute("UPDATE ORVEX_LISTAS SET lista = x'050602000302', filas = 2 "
                   "WHERE palabra = 'GATO' AND trozo = 0");
  EXPECT_EQ(testing::ErrorNumberOf([&] { BuscaFrase(e_, *indice_, "casa gato", 0, false); }),
            db::kErrFormatoNoReconocido);

  // A row added to the word table and taken away voids them for good.
  indice_->Execute("INSERT INTO TABLA VALUES ('GATO', 1, 1, 1)");
  indice_->Execute("DELETE FROM TABLA WHERE palabra = 'GATO' AND ficha = 1 AND posicion = 1 "
                   "AND rowid = (SELECT max(rowid) FROM TABLA)");
  e_ = Estado();  // as the next request finds the file
  const auto sin_listas = Busquedas();
  ASSERT_EQ(sin_listas.size(), con_listas.size());
  for (std::size_t i = 0; i < con_listas.size(); ++i) {
    EXPECT_EQ(con_listas[i], sin_listas[i]) << "búsqueda " << i;
  }
}

}  // namespace
}  // namespace orvex::search
