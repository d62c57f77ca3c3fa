#include "records/CargaFicha.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/Fakes.h"

namespace orvex::records {
namespace {

namespace fs = std::filesystem;

class CargaFichaTest : public ::testing::Test {
 protected:
  CargaFichaTest()
      : db_(db::OpenDatabase(
            (fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "KORVEL8.MDB").string(),
            CodePage::Windows1252(), {.read_only = true})) {}
  std::unique_ptr<db::Database> db_;
};

TEST_F(CargaFichaTest, LoadsTheRecordWithItsCopiesInTheirOrder) {
  RegFicha ficha;
  EXPECT_EQ(CargaFicha(*db_, 2, ficha), 0);
  EXPECT_EQ(ficha.Ficha_no, 2);
  ASSERT_TRUE(ficha.Fecha.has_value());
  EXPECT_EQ(ficha.EtiquetasMARC.front(), kSeparadorCampo);
  const std::vector<std::string> lineas = [&] {
    std::vector<std::string> v;
    for (std::size_t p = 0, q; (q = ficha.Ejemplares.find("\r\n", p)) != std::string::npos; p = q + 2) {
      v.push_back(ficha.Ejemplares.substr(p, q - p));
    }
    return v;
  }();
  ASSERT_EQ(lineas.size(), 3u);
  EXPECT_EQ(lineas[0].substr(0, 7), "000123,");
  EXPECT_EQ(lineas[1].substr(0, 7), "000124,");
  EXPECT_EQ(lineas[2].substr(0, 7), "000125,");
  // The seventh value is the date of entry as dd/mmm/yyyy.
  const std::string fecha = lineas[0].substr(lineas[0].rfind(',') + 1);
  EXPECT_EQ(fecha.size(), 11u) << fecha;
  EXPECT_EQ(fecha[2], '/');
}

TEST_F(CargaFichaTest, KeepsCommasInsideValuesUnquoted) {
  RegFicha ficha;
  CargaFicha(*db_, 5, ficha);
  EXPECT_NE(ficha.Ejemplares.find("000777,Central, Sala de Consulta,"), std::string::npos)
      << ficha.Ejemplares;
}

TEST_F(CargaFichaTest, AMissingRecordLeavesOnlyItsNumberAtZero) {
  RegFicha ficha;
  ficha.Ficha_no = 7;
  ficha.EtiquetasMARC = "anterior";
  CargaFicha(*db_, 424242, ficha);  // only an orphan copy has this number
  EXPECT_EQ(ficha.Ficha_no, 0);
  EXPECT_EQ(ficha.EtiquetasMARC, "anterior");
}

TEST_F(CargaFichaTest, NullDatesLeaveTheOldOnesAndNoCopiesGiveNoLines) {
  RegFicha ficha;
  ficha.Fecha = testing::SampleDate();
  ficha.Ejemplares = "x";
  CargaFicha(*db_, 45, ficha);
  EXPECT_EQ(ficha.Ficha_no, 45);
  ASSERT_TRUE(ficha.Fecha.has_value());
  EXPECT_EQ(ficha.Fecha->year, 2008);  // unchanged
  EXPECT_EQ(ficha.Ejemplares, "");
  EXPECT_EQ(ExtraeEtiqueta("245", ficha.EtiquetasMARC), "1");
}

TEST_F(CargaFichaTest, ANullTagStringAndATextMaterialTypeReadAsEmptyAndZero) {
  RegFicha ficha;
  CargaFicha(*db_, 43, ficha);
  EXPECT_EQ(ficha.Ficha_no, 43);
  EXPECT_EQ(ficha.EtiquetasMARC, "");
  CargaFicha(*db_, 17, ficha);
  EXPECT_EQ(ficha.TipoMaterial, 0);  // "Libro"
}

TEST(CargaFicha, ADatabaseErrorEndsTheLoadSilently) {
  testing::DirectorioTemporal tmp;
  auto db = db::OpenDatabase(
      tmp.Copia(fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "KORVEL8.MDB", "KORVEL8.MDB").string(),
      CodePage::Windows1252());
  db->Execute("DROP TABLE Ejemplares");
  RegFicha ficha;
  ficha.Ficha_no = 9;
  EXPECT_EQ(CargaFicha(*db, 2, ficha), 0);
  EXPECT_EQ(ficha.Ficha_no, 9);  // nothing read
}

}  // namespace
}  // namespace orvex::records
