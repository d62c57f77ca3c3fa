#include "queries/Resultados.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/PosixPlatform.h"
#include "base/RuntimeError.h"
#include "db/Database.h"
#include "tests/support/Fakes.h"

namespace orvex::queries {
namespace {

namespace fs = std::filesystem;

// The fixture catalogue read through the real file system.
class PaginaTest : public ::testing::Test {
 protected:
  PaginaTest()
      : sys_{p_.entorno, p_.entrada, p_.salida, p_.reloj, archivos_, p_.motores},
        s_(sys_, p_.bases) {
    s_.BDBiblio = db::OpenDatabase(
        (fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "KORVEL8.MDB").string(),
        CodePage::Windows1252(), {.read_only = true});
  }
  testing::FakePlatform p_;
  PosixFileSystem archivos_;
  Servicios sys_;
  cgi::Solicitud s_;
};

TEST_F(PaginaTest, TheBookPageShowsItsSliceOfTheResults) {
  // The brief presentation needs no style sheet and offers no availability.
  s_.cfg.TextoCFG = "FORMATO:{[<!NFICHA!>@<!PFICHA!> <!DESDE!>-<!HASTA!>/<!TOTAL!>]}SEPARADOR:{|}";
  s_.MostrarFichaBIB = 1;
  for (int f : {2, 3, 5, 7, 11}) s_.busqueda.MapaResultado.Pon(f);
  s_.pagina.Total = 5;
  s_.pagina.Cantidad = 2;
  s_.pagina.Desde = 2;
  MuestraLibros(s_, 0);
  EXPECT_EQ(p_.salida.contents,
            "[3@2 2-3/5]\r\n<!-- Antes de Disponibilidad, Ficha:3, MOSTRARFichaBIB: 1 -->\r\n|\r\n"
            "[5@3 2-3/5]\r\n<!-- Antes de Disponibilidad, Ficha:5, MOSTRARFichaBIB: 1 -->\r\n|\r\n");
  EXPECT_EQ(s_.pagina.FichaActual, 5);

  // The last page stops at the total, whatever the page size.
  p_.salida.contents.clear();
  p_.salida.position = 0;
  s_.pagina.FichaActual = 0;
  s_.pagina.Desde = 5;
  s_.pagina.Cantidad = 10;
  MuestraLibros(s_, 0);
  EXPECT_EQ(p_.salida.contents.find("[11@5 5-5/5]"), 0u) << p_.salida.contents;
  EXPECT_EQ(p_.salida.contents.find("[", 1), std::string::npos);

  // One record by number, whatever the bitmap says.
  p_.salida.contents.clear();
  p_.salida.position = 0;
  MuestraLibros(s_, 41);
  EXPECT_EQ(p_.salida.contents.find("[41@1 "), 0u) << p_.salida.contents;
}

TEST_F(PaginaTest, TheListingPutsSeparatorsBetweenRowsOnly) {
  s_.cfg.TextoCFG =
      "FORMATO:{<!#NumAdqui!> <!DESDE!>-<!HASTA!>/<!TOTAL!> <!DESDEANTERIOR!> "
      "<!DESDESIGUIENTE!> <!BUSCADO!>}SEPARADOR:{--}";
  s_.TextoLIB = "gatos";
  struct Caso {
    std::int32_t desde, cantidad;
    const char* esperado;
  } casos[] = {
      {1, 10,
       "000123 1-3/3 1 3 gatos\r\n--\r\n000124 1-3/3 1 3 gatos\r\n--\r\n"
       "000125 1-3/3 1 3 gatos\r\n"},
      {2, 1, "000124 2-2/3 1 3 gatos\r\n"},
      {4, 10, ""},  // the rows end while skipping
  };
  for (const Caso& c : casos) {
    p_.salida.contents.clear();
    p_.salida.position = 0;
    auto filas = s_.BDBiblio->OpenRecordset(
        "SELECT NumAdqui FROM Ejemplares WHERE Ficha_No=2 ORDER BY NumAdqui",
        db::RecordsetType::Dynaset);
    s_.pagina.Total = 3;
    s_.pagina.Desde = c.desde;
    s_.pagina.Cantidad = c.cantidad;
    MuestraCatalogo(s_, *filas);
    EXPECT_EQ(p_.salida.contents, c.esperado) << c.desde;
  }
}

TEST_F(PaginaTest, MissingCollectionFilesAreNamedOneByOne) {
  testing::DirectorioTemporal dir;
  dir.Copia(fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "KORVEL8.MDB", "korvel8.mdb");
  EXPECT_FALSE(VerificaArchivosBase(s_, dir.ruta().string()));
  EXPECT_EQ(p_.salida.contents.find(Latin1("<p>No se encontró: ") + dir.ruta().string() +
                                    "/INDIZADO.MDB\r\n<center><p><H4><P>Los archivos"),
            0u)
      << p_.salida.contents;
  dir.Copia(fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "INDIZADO.MDB", "Indizado.mdb");
  p_.salida.contents.clear();
  p_.salida.position = 0;
  EXPECT_TRUE(VerificaArchivosBase(s_, dir.ruta().string()));
  EXPECT_EQ(p_.salida.contents, "");
}

}  // namespace
}  // namespace orvex::queries
