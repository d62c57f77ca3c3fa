#include "records/Plantilla.h"

#include <gtest/gtest.h>

#include <map>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex::records {
namespace {

// One row of a listing, or a picture table whose "=" seek finds only `clave`.
class FilaFija : public db::Recordset {
 public:
  explicit FilaFija(std::map<std::string, db::Value> campos, std::int64_t clave = 0)
      : campos_(std::move(campos)), clave_(clave) {}
  db::Value Field(std::string_view name) override {
    auto it = campos_.find(std::string(name));
    if (it == campos_.end()) throw RuntimeError(db::kErrElementoNoEncontrado, "no existe");
    return it->second;
  }
  void Seek(std::string_view, const std::vector<db::Value>& keys) override {
    no_match_ = keys.at(0).integer != clave_;
  }
  bool NoMatch() override { return no_match_; }
  bool Eof() override { return false; }
  void MoveNext() override {}
  void MoveFirst() override {}
  void MoveLast() override {}
  std::int64_t RecordCount() override { return 1; }
  std::vector<std::string> FieldNames() override { return {}; }
  void SetIndex(std::string_view) override {}
  void SetFields(std::vector<std::string>) override {}
  void Close() override {}

 private:
  std::map<std::string, db::Value> campos_;
  std::int64_t clave_;
  bool no_match_ = true;
};

const std::string kFicha =
    Latin1("¦100Borges, Jorge Luis¦245Ficciones¦650Cuentos\\Literatura argentinaÌ");

TEST(PlantillaExtraeEntre, TakesTwoCharactersFromTheClosingPosition) {
  struct Case {
    const char* texto;
    const char* abre;
    const char* cierra;
    const char* resultado;
  } cases[] = {
      {"x<!#245!>y<!#100!>", "<!#", "!>", "<!#245!>"},
      {"a:\"L\":245", ":\"", "\":", ":\"L\":"},
      // The closing search starts one character after the opening one.
      {":\":245", ":\"", "\":", ":\":"},
      // A one-character closing delimiter takes one character past it.
      {"a<b>cd", "<", ">", "<b>c"},
      {"ab>", "a", ">", "ab>"},
      {"sin etiqueta", "<!#", "!>", ""},
      {"<!#245 sin cierre", "<!#", "!>", ""},
      {"!> antes <!#245", "<!#", "!>", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ExtraeEntre(c.texto, c.abre, c.cierra), c.resultado) << c.texto;
  }
}

TEST(PlantillaLlenaEtiquetas, FillsOrRemovesEachTag) {
  struct Case {
    const char* plantilla;
    const char* resultado;
  } cases[] = {
      {"<p><!#245!></p>", "<p>Ficciones</p>"},
      {"<!#245!>|<!#245!>", "Ficciones|Ficciones"},
      {"<!#110100!>", "Borges, Jorge Luis"},
      {"<!#650!>", "Cuentos\\Literatura argentina"},
      {"a<!#490!>b", "ab"},
      {"a<!#PPP!>b", "ab"},
      {"<!#!>", ""},
      // Labelled: the label around the content, or nothing at all.
      {"<!#a:\"<b>Autor:</b> <E><br>\":100110111!>", "<b>Autor:</b> Borges, Jorge Luis<br>"},
      {"[<!#s:\"<i>Serie: <E></i>\":440490!>]", "[]"},
      {"<!#t:\"[con autor]\":100!>", "[con autor]"},
      {"<!#:\"<E>/<E>\":245!>", "Ficciones/Ficciones"},
      {"<!#:\"AB\":245!>", "AB"},
      {"<!#f:\"Foto: <E>\":PPP!>", ""},
      // Kept: the list is searched from (label length - 1), so a quote-colon
      // pair before the label is taken as the list's start.
      {"<!#ab\":x:\"Lbl\":245!>", ""},
      {"<!#\":x:\"Lbl\":245!>", "Lbl"},
      // An unclosed tag ends the filling there.
      {"x<!#245!>y<!#100 z!", "xFicciones" "y<!#100 z!"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(LlenaEtiquetas(c.plantilla, kFicha, 7), c.resultado) << c.plantilla;
  }
}

TEST(PlantillaLlenaEtiquetas, FillsATagFoundInsideAnInsertedContent) {
  EXPECT_EQ(LlenaEtiquetas("<!#245!>", Latin1("¦245Obras de <!#100!>¦100BorgesÌ"), 1),
            "Obras de Borges");
}

TEST(PlantillaLlenaEtiquetas, ARecordNamingItselfNeverHangsThePage) {
  // A field whose content is its own tag ends the filling where it stands.
  const std::string eco = "\xA6" "245<!#245!>\xCC";
  EXPECT_EQ(LlenaEtiquetas("a <!#245!> b <!#100!>", eco, 1), "a <!#245!> b <!#100!>");
  // One that holds its tag among other text grows the page on every pass:
  // the filling stops with the runtime's out-of-string-space error.
  const std::string crece = "\xA6" "245x<!#245!>x\xCC";
  EXPECT_EQ(testing::ErrorNumberOf([&] { LlenaEtiquetas("<!#245!>", crece, 1); }), kErrEspacioCadenas);
}

TEST(PlantillaLlenaEtiquetas, MalformedLabelsRaiseInvalidArgument) {
  for (const char* plantilla : {"<!#245:!>", "<!#:\"\":245!>", "<!#:\"A\":245!>",
                                "<!#:\":245!>", "ok <!#x:\"sin cierre!>"}) {
    EXPECT_EQ(testing::ErrorNumberOf([&] { LlenaEtiquetas(plantilla, kFicha, 7); }),
              kErrArgumentoNoValido)
        << plantilla;
  }
}

TEST(PlantillaLlenaEtiquetas, PPPReadsAnOpenPictureTableByRecordNumber) {
  FilaFija imagenes({{"Imagen", db::Value::Of(std::string("tapa7.jpg"))}}, 7);
  const std::string plantilla = "<!#f:\"<img src=<E>>\":PPP!><!#PPP!>";
  EXPECT_EQ(LlenaEtiquetas(plantilla, kFicha, 7, &imagenes), "<img src=tapa7.jpg>");
  EXPECT_EQ(LlenaEtiquetas(plantilla, kFicha, 8, &imagenes), "");
}

TEST(PlantillaLlenaColumnas, FillsFromTheRowAndKeepsItsDifferences) {
  FilaFija fila({{"Titulo", db::Value::Of(std::string("Rayuela"))},
                 {"Nota", db::Value::Null()},
                 {"Hora:Min", db::Value::Of(std::string("10:30"))},
                 {"Copias", db::Value::Of(std::int64_t{3})}});
  struct Case {
    const char* plantilla;
    const char* resultado;
  } cases[] = {
      {"<td><!#Titulo!></td>", "<td>Rayuela</td>"},
      {"<!#Copias!>", "3"},
      {"[<!#Nota!>]", "[]"},
      // A bare ":" belongs to a plain column name here.
      {"<!#Hora:Min!>", "10:30"},
      {"<!#x:\"<b><E></b>\":Titulo!>", "<b>Rayuela</b>"},
      {"[<!#x:\"Nota: <E>\":Nota!>]", "[]"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(LlenaColumnas(c.plantilla, fila), c.resultado) << c.plantilla;
  }
  // "PPP" is an ordinary column name, and a missing column is the database's error.
  for (const char* plantilla : {"<!#Autor!>", "<!#x:\"<E>\":PPP!>"}) {
    EXPECT_EQ(testing::ErrorNumberOf([&] { LlenaColumnas(plantilla, fila); }),
              db::kErrElementoNoEncontrado)
        << plantilla;
  }
  EXPECT_EQ(testing::ErrorNumberOf([&] { LlenaColumnas("<!#x:\"A\":Titulo!>", fila); }),
            kErrArgumentoNoValido);
}

}  // namespace
}  // namespace orvex::records
