// End-to-end pages of the sequential listing (ACERVO=CATALOGOS, with
// tests/e2e/cfg/catalogo.cfg) and of the accession-number lookup (SHOW_NUM,
// with tests/e2e/cfg/libros.cfg), on a copy of the fixture catalogue,
// compared byte for byte with tests/e2e/golden/catalogo_*.html and
// numadqui_*.html.

#include <gtest/gtest.h>

#include "base/CodePage.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

// The catalogue in bases/ with the configurations catalogo.cfg and
// libros.cfg.
const Disposicion kCatalogo{.bases = Bases::Sqlite, .de_prueba = {"catalogo.cfg", "libros.cfg"}};

std::string Ejemplares(const ProgramaCGI& programa) {
  return programa.Filas("bases/KORVEL8.MDB", "SELECT count(*) AS n FROM Ejemplares").at(0);
}

struct Caso {
  const char* nombre;
  const char* query;
};

void PrintTo(const Caso& c, std::ostream* os) { *os << c.nombre; }

class PaginasCatalogo : public ::testing::TestWithParam<Caso> {};

TEST_P(PaginasCatalogo, MatchTheirGoldenFiles) {
  const Caso& c = GetParam();
  const ProgramaCGI programa(c.nombre, kCatalogo);
  ComparaConDorado(c.nombre, programa.Pagina(c.query));
}

constexpr const char* kListado = "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&";

INSTANTIATE_TEST_SUITE_P(
    Orvex, PaginasCatalogo,
    ::testing::Values(
        // A text column, exact and anywhere; the search text loses its
        // "*", "'" and "#".
        Caso{"catalogo_texto_exacto",
             "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=Biblioteca&txtLIB=Cen%27tral*"
             "&Cantidad=4&FichaINI=1"},
        Caso{"catalogo_texto_parcial",
             "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=Biblioteca&txtLIB=sala&"
             "TIPOBUSQUEDA=1&Cantidad=4&FichaINI=1"},
        // A numeric column takes the leading number; the second page.
        Caso{"catalogo_numero",
             "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=Ficha_No&txtLIB=15abc&Cantidad=1"
             "&FichaINI=2"},
        // A date column compares with the date read day first.
        Caso{"catalogo_fecha",
             "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=FechaIngreso&txtLIB=29/08/2002&"
             "Cantidad=4&FichaINI=1"},
        Caso{"catalogo_sin_resultado",
             "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=Biblioteca&txtLIB=Nada&"
             "Cantidad=4&FichaINI=1"},
        // Each refusal, in its order.
        Caso{"catalogo_sin_campo", "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&txtLIB=x&Cantidad=0"},
        Caso{"catalogo_cantidad_cero",
             "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=Biblioteca&txtLIB=x&Cantidad=0"
             "&FichaINI=1"},
        Caso{"catalogo_ficha_inicial",
             "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=Biblioteca&txtLIB=x&Cantidad=2"},
        Caso{"catalogo_sin_texto",
             "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=Biblioteca&Cantidad=2&FichaINI=1"},
        // The accession-number lookup in each format, and its refusals.
        Caso{"numadqui_formato1", "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=show_num+000216"},
        Caso{"numadqui_formato3",
             "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=SHOW_NUM+000216%2C3"},
        Caso{"numadqui_formato_erroneo",
             "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=SHOW_NUM+000216%2C4"},
        Caso{"numadqui_largo",
             "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=SHOW_NUM+0123456789ABCDEF"},
        Caso{"numadqui_inexistente",
             "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=SHOW_NUM+L%27999"}),
    [](const ::testing::TestParamInfo<Caso>& info) { return info.param.nombre; });

// When "CAMPO" holds "select", "TABLA:" is the statement, its "<!BUSCADO!>"
// replaced by the comparison: a "TABLA:" that names a table without one lists
// the whole table.
TEST(Catalogo, ACampoHoldingSelectMakesTablaTheStatement) {
  const ProgramaCGI programa("catalogo_select", kCatalogo);
  programa.Modifica("bases/KORVEL8.MDB", "ALTER TABLE Ejemplares ADD COLUMN Autoselect TEXT");
  const std::string pagina = programa.Pagina(
      "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=Autoselect&txtLIB=x&Cantidad=2&FichaINI=1");
  EXPECT_NE(pagina.find("Registros 1 a 2 de 452"), std::string::npos) << pagina;
}

// The diagnostic pages on the same catalogue, through libros.cfg with the
// loopback listed as the administrator's address.
TEST(Diagnostico, PagesOfTheCommands) {
  const ProgramaCGI programa("diagnostico", kCatalogo);
  programa.Escribe("libros.cfg", ReadFile(programa.dir() / "libros.cfg") +
                                     "\r\nDIAGNOSTICO:\r\n{127.0.0.1\r\n}\r\n");
  ComparaConDorado("diagnostico_show_sec",
                   programa.Pagina("ArchivoCFG=libros.cfg&txtLIB=SHOW_SEC+15"));
  ComparaConDorado("diagnostico_test_all",
                   programa.Pagina("ArchivoCFG=libros.cfg&txtLIB=test_all"));
  // The indexing date is the index file's, which the copy has just made.
  // SHOW_BDT answers anyone and names no path of the server.
  const std::string bdt = programa.Pagina("ArchivoCFG=libros.cfg&txtLIB=SHOW_BDT");
  EXPECT_NE(bdt.find("347"), std::string::npos) << bdt;
  EXPECT_NE(bdt.find("452"), std::string::npos) << bdt;
  EXPECT_NE(bdt.find("INDIZADO.MDB"), std::string::npos) << bdt;
  EXPECT_NE(bdt.find(Latin1("<H4>Catálogo 1</H4>")), std::string::npos) << bdt;
  EXPECT_EQ(bdt.find("@DIR@"), std::string::npos) << bdt;
  EXPECT_EQ(bdt.find("/bases"), std::string::npos) << bdt;
}

// A client that "DIAGNOSTICO:" does not list gets the refusal for the
// reserved commands, and the public ones in full.
TEST(Diagnostico, ReservedCommandsRefuseOtherClients) {
  const ProgramaCGI cgi("diagnostico_reservado", {.archivos = {{"libros.cfg", ""}}});
  Peticion p = Get("ArchivoCFG=libros.cfg&txtLIB=DEBUGCFG");
  p.variables["REMOTE_ADDR"] = "10.0.0.7";
  ComparaConDorado("diagnostico_reservado", cgi.Pagina(p));
  p.variables["QUERY_STRING"] = "ArchivoCFG=libros.cfg&txtLIB=SHOW_VER";
  EXPECT_NE(cgi.Pagina(p).find("Motor de bases de datos"), std::string::npos);
}

// The listing runs one statement and never writes: a field that appends a
// second statement, or a "TABLA:" that would write, gets the database's
// error page, and the table keeps its rows.
TEST(Catalogo, OneStatementAndNothingWritten) {
  const ProgramaCGI programa("catalogo_inyeccion", kCatalogo);
  const std::string antes = Ejemplares(programa);
  ASSERT_EQ(antes, "452");
  const std::string pagina = programa.Pagina(
      std::string(kListado) +
      "CAMPO=Biblioteca%3D%27x%27%3B+DELETE+FROM+Ejemplares%3B+--&txtLIB=x&Cantidad=2&FichaINI=1");
  EXPECT_NE(pagina.find("Ha ocurrido el siguiente error interno"), std::string::npos) << pagina;
  EXPECT_EQ(Ejemplares(programa), antes);

  std::string cfg = ReadFile(programa.dir() / "catalogo.cfg");
  cfg.replace(cfg.find("{Ejemplares}"), 12, "{Ejemplares WHERE 1=1; DELETE FROM Ejemplares}");
  programa.Escribe("catalogo.cfg", cfg);
  const std::string otra = programa.Pagina(std::string(kListado) +
                                           "CAMPO=Biblioteca&txtLIB=Central&Cantidad=2&FichaINI=1");
  EXPECT_NE(otra.find("Ha ocurrido el siguiente error interno"), std::string::npos) << otra;
  EXPECT_EQ(Ejemplares(programa), antes);
}

}  // namespace
}  // namespace orvex
