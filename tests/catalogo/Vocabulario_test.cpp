#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>

#include "base/CodePage.h"
#include "catalogo/Catalogo.h"
#include "db/Database.h"
#include "search/Sugerencias.h"
#include "tests/support/Fakes.h"
#include "tests/catalogo/Construye.h"
#include "tests/support/MARCPrueba.h"

namespace orvex::search {
namespace {

namespace fs = std::filesystem;
using catalogo::prueba::RegistroISO;

std::vector<std::string> Texto(const std::vector<Sugerencia>& s) {
  std::vector<std::string> v;
  for (const Sugerencia& x : s) {
    v.push_back(x.palabra + " " + std::to_string(x.frecuencia) + " " + std::to_string(x.ediciones));
  }
  return v;
}

// A catalogue built by orvex-catalogo: its vocabulary holds each word of
// TABLA once, in Windows-1252, with its row count, and answers as the word
// table itself does once a change to the table voids it.
class VocabularioCatalogo : public ::testing::Test {
 protected:
  testing::DirectorioTemporal tmp_;
  std::unique_ptr<db::Database> indice_;

  void SetUp() override {
    const std::vector<std::string> palabras = {
        "historia", "historias", "de",    "méxico", "la",     "revolución", "niño",
        "niña",     "árbol",     "gato",  "gatos",  "perro",  "casa",       "cosas",
        "español",  "peña",      "américa", "latina", "lingüística", "a"};
    std::mt19937 azar(1124);
    std::string archivo;
    for (int r = 1; r <= 120; ++r) {
      const auto frase = [&](int n) {
        std::string s;
        for (int i = 0; i < n; ++i) s += (i ? " " : "") + palabras[azar() % palabras.size()];
        return s;
      };
      archivo += RegistroISO({{"001", "r" + std::to_string(r)},
                              {"100", "1 $a" + frase(2)},
                              {"245", "10$a" + frase(3 + static_cast<int>(azar() % 5))},
                              {"260", "  $aMéxico :$bUNAM,$c" + std::to_string(1950 + r % 40)},
                              {"650", " 4$a" + frase(2)}});
    }
    const fs::path marc = catalogo::prueba::EscribeArchivo(tmp_.ruta() / "c.mrc", archivo);
    ASSERT_EQ(catalogo::prueba::Construye(tmp_.ruta() / "cat", {marc.string()}), "");
    indice_ = db::OpenDatabase((tmp_.ruta() / "cat" / "INDIZADO.MDB").string(),
                               CodePage::Windows1252());
  }

  // Every word of the vocabulary with its count; each word's length and
  // digits are its row's.
  std::map<std::string, std::int64_t> Vocabulario() {
    std::map<std::string, std::int64_t> v;
    const auto rs = indice_->OpenRecordset(
        "SELECT tabla, largo, cifras, palabras, frecuencias FROM ORVEX_VOCABULARIO",
        db::RecordsetType::Snapshot);
    for (; !rs->Eof(); rs->MoveNext()) {
      EXPECT_EQ(rs->Field("tabla").AsText(), "TABLA");
      const int largo = static_cast<int>(rs->Field("largo").integer);
      const bool cifras = rs->Field("cifras").integer == 1;
      const std::string w = rs->FieldBytes("palabras");
      const std::string f = rs->FieldBytes("frecuencias");
      EXPECT_EQ(f.size(), w.size() / static_cast<std::size_t>(largo) * 4) << largo;
      for (std::size_t i = 0; i * static_cast<std::size_t>(largo) < w.size() && i * 4 < f.size();
           ++i) {
        std::int64_t n = 0;
        for (int b = 3; b >= 0; --b) n = n * 256 + static_cast<unsigned char>(f[i * 4 + b]);
        const std::string palabra =
            w.substr(i * static_cast<std::size_t>(largo), static_cast<std::size_t>(largo));
        EXPECT_EQ(std::count_if(palabra.begin(), palabra.end(), ::isdigit) >= 3, cifras) << palabra;
        EXPECT_EQ(v.count(palabra), 0u) << palabra;
        v[palabra] = n;
      }
    }
    return v;
  }
};

TEST_F(VocabularioCatalogo, HoldsEveryWordOfTheTableWithItsRows) {
  std::map<std::string, std::int64_t> de_la_tabla;
  const auto rs = indice_->OpenRecordset("SELECT palabra, COUNT(*) AS n FROM TABLA GROUP BY palabra",
                                         db::RecordsetType::Snapshot);
  for (; !rs->Eof(); rs->MoveNext()) {
    de_la_tabla[rs->Field("palabra").AsText()] = rs->Field("n").integer;
  }
  const auto vocabulario = Vocabulario();
  EXPECT_EQ(vocabulario, de_la_tabla);
  // One byte a character: NIÑO is four long, LINGÜISTICA folded to eleven.
  EXPECT_EQ(vocabulario.count("NI\xD1O"), 1u);
  EXPECT_EQ(vocabulario.count("LINGUISTICA"), 1u);
  EXPECT_EQ(vocabulario.count("1984"), 1u);
}

TEST_F(VocabularioCatalogo, AnswersAsTheWordTableDoesUntilVoided) {
  const std::vector<std::string> buscadas = {"HISTROIA", "NINO", "NIÑAS", "GATA", "ESPANOL",
                                             "PENA", "AMERIKA", "LINGUISTIKA", "DA", "1894",
                                             "19840", "XYZ"};
  std::vector<std::vector<std::string>> con_vocabulario;
  for (const std::string& w : buscadas) {
    con_vocabulario.push_back(Texto(Sugiere(*indice_, CodePage::Windows1252().FromUtf8(w), 3)));
  }
  EXPECT_EQ(con_vocabulario[0], (std::vector<std::string>{"HISTORIAS 59 2", "HISTORIA 54 1"}));
  EXPECT_EQ(con_vocabulario[1], (std::vector<std::string>{"NI\xD1O 68 1", "NI\xD1" "A 59 2"}));
  EXPECT_TRUE(con_vocabulario.back().empty());

  // What is read is the vocabulary: a change to it shows.
  indice_->Execute("UPDATE ORVEX_VOCABULARIO SET palabras = x'484953544F524941', "
                   "frecuencias = x'FFFFFF7F' WHERE largo = 8 AND cifras = 0");
  const auto cambiada = Texto(Sugiere(*indice_, "HISTROIA", 1));
  EXPECT_EQ(cambiada, std::vector<std::string>{"HISTORIA 2147483647 1"});

  // A row added to the word table and taken away voids it for good: the
  // table answers, as the vocabulary did before the change.
  indice_->Execute("INSERT INTO TABLA VALUES ('GATO', 1, 1, 1)");
  indice_->Execute("DELETE FROM TABLA WHERE rowid = (SELECT max(rowid) FROM TABLA)");
  for (std::size_t i = 0; i < buscadas.size(); ++i) {
    EXPECT_EQ(Texto(Sugiere(*indice_, CodePage::Windows1252().FromUtf8(buscadas[i]), 3)),
              con_vocabulario[i])
        << buscadas[i];
  }
}

}  // namespace
}  // namespace orvex::search
