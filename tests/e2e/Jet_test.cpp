// The same catalogue as Jet 4 files and as SQLite files gives the same pages,
// byte for byte: searches of every kind, paging, each presentation,
// periodicals, articles, the sequential listing and the accession-number
// lookup. Each engine writes its search statistics into its own statistics
// file: a failed row would show on the page.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "base/CodePage.h"
#include "db/jet/Jet4.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

// The catalogue in `forma` in bases/, with the configurations libros.cfg,
// revistas.cfg and catalogo.cfg of tests/e2e/cfg.
Disposicion En(Bases forma) {
  return {.bases = forma, .de_prueba = {"libros.cfg", "revistas.cfg", "catalogo.cfg"}};
}

struct Caso {
  const char* nombre;
  const char* query;
  const char* contiene;  // a text the page must hold, so that a shared failure shows
};

void PrintTo(const Caso& c, std::ostream* os) { *os << c.nombre; }

class DosMotores : public ::testing::TestWithParam<Caso> {};

TEST_P(DosMotores, GiveTheSamePage) {
  const Caso& c = GetParam();
  const ProgramaCGI jet(std::string("jet_") + c.nombre, En(Bases::Jet));
  const ProgramaCGI sqlite(std::string("sqlite_") + c.nombre, En(Bases::Sqlite));
  const std::string pagina = sqlite.Pagina(c.query);
  EXPECT_NE(pagina.find(c.contiene), std::string::npos) << pagina.substr(0, 3000);
  EXPECT_EQ(jet.Pagina(c.query), pagina);
}

#define LIBROS "ArchivoCFG=libros.cfg&ACERVO=libros&"
#define REVISTAS "ArchivoCFG=revistas.cfg&"
#define LISTADO "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&"

INSTANTIATE_TEST_SUITE_P(
    Orvex, DosMotores,
    ::testing::Values(
        Caso{"palabra", LIBROS "txtLIB=novela&Cantidad=10&FichaINI=1", "Ficha "},
        Caso{"palabra_segunda_pagina", LIBROS "txtLIB=novela&Cantidad=10&FichaINI=11", "Ficha "},
        Caso{"palabra_con_enie", LIBROS "txtLIB=espa%F1ola&Cantidad=5&FichaINI=1", "Ficha "},
        Caso{"por_campos", LIBROS "txtAUT=cervantes&txtTIT=quijote&Cantidad=5&FichaINI=1", "Ficha "},
        Caso{"tema", LIBROS "txtTEM=historia&Cantidad=5&FichaINI=1", "Ficha "},
        Caso{"truncada", LIBROS "txtLIB=hist%24&Cantidad=5&FichaINI=1", "Ficha "},
        Caso{"truncada_por_titulo", LIBROS "txtTIT=nov%24&Cantidad=5&FichaINI=1", "Ficha "},
        Caso{"frase", LIBROS "txtLIB=%22don+quijote%22&Cantidad=5&FichaINI=1", "Ficha "},
        Caso{"frase_larga", LIBROS "txtLIB=%22historia+de+la%22&Cantidad=5&FichaINI=1", "Ficha "},
        Caso{"y_o_no", LIBROS "txtLIB=siglo+and+novela+or+cuentos&Cantidad=5&FichaINI=1",
             "Ficha "},
        Caso{"avanzada", LIBROS
             "BUSQ_AVANZADA=1&txtEXPR1=cervantes&opCAMPO1=2&opBOOLEAN1=1&txtEXPR2=quijote&"
             "opCAMPO2=1&Cantidad=5&FichaINI=1",
             "Ficha "},
        Caso{"sin_resultado", LIBROS "txtLIB=zzzz&Cantidad=10&FichaINI=1", "No se encontr"},
        Caso{"una_ficha", LIBROS "txtNoFicha=15&txtLIB=algebra&Cantidad=10&FichaINI=1", "Ficha 15"},
        Caso{"breve", LIBROS "txtLIB=quijote&mostrarFICHABIB=1&Cantidad=10&FichaINI=1", "Ficha "},
        Caso{"tabla", LIBROS "txtLIB=quijote&mostrarFICHABDL=1&Cantidad=10&FichaINI=1", "Ficha "},
        Caso{"formato", LIBROS "txtLIB=borges&FormatoFicha=2&Cantidad=10&FichaINI=1", "Ficha "},
        Caso{"revistas", REVISTAS "ACERVO=REVISTAS&txtLIB=publicaciones&Cantidad=4&FichaINI=1",
             "Ficha 1 "},
        Caso{"revistas_segunda", REVISTAS "ACERVO=REVISTAS&txtLIB=publicaciones&Cantidad=4&FichaINI=5",
             "Ficha "},
        Caso{"revistas_editorial", REVISTAS "ACERVO=REVISTAS&txtEDIT=colegio&Cantidad=4&FichaINI=1",
             "Ficha "},
        Caso{"revistas_ficha", REVISTAS "ACERVO=REVISTAS&txtNoFicha=3&txtLIB=cultura&Cantidad=4",
             "Ficha 3"},
        Caso{"articulos", REVISTAS "ACERVO=ARTICULOS&txtLIB=historia&Cantidad=3&FichaINI=1", "ficha"},
        Caso{"articulos_formato2",
             REVISTAS "ACERVO=ARTICULOS&txtLIB=historia&TipoFormato=2&Cantidad=3&FichaINI=1", "ficha"},
        Caso{"articulos_de_ejemplar", REVISTAS "ACERVO=ARTICULOS&txtNumadqui=P000777&Cantidad=9", "ficha"},
        Caso{"listado_texto", LISTADO "CAMPO=Biblioteca&txtLIB=Central&Cantidad=5&FichaINI=1",
             "<td>"},
        Caso{"listado_parcial",
             LISTADO "CAMPO=Biblioteca&txtLIB=cen&TIPOBUSQUEDA=1&Cantidad=5&FichaINI=2", "<td>"},
        Caso{"listado_numero", LISTADO "CAMPO=Ficha_No&txtLIB=15&Cantidad=5&FichaINI=1", "<td>"},
        Caso{"listado_fecha",
             LISTADO "CAMPO=FechaIngreso&txtLIB=29/08/2002&Cantidad=5&FichaINI=1", "Registros"},
        Caso{"numadqui", "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=show_num+000216", "Ficha"},
        Caso{"numadqui_apostrofo", "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=show_num+L%270815",
             "Ficha"},
        Caso{"numadqui_hoja", "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=SHOW_NUM+000216%2C2",
             "Ficha"},
        Caso{"detalle", "ArchivoCFG=libros.cfg&txtLIB=SHOW_SEC+15", "15"}),
    [](const ::testing::TestParamInfo<Caso>& info) { return info.param.nombre; });

// The rows of the Jet statistics file as Debian's mdb-export reads them,
// "Buscado|Encontrados|AdvSearch" each.
std::vector<std::string> FilasMdbExport(const fs::path& archivo) {
  const std::string orden = "mdb-export -H -d '|' -q '' '" + archivo.string() +
                            "' Consultas | cut -d '|' -f 2-4";
  FILE* tubo = ::popen(orden.c_str(), "r");
  std::string salida;
  char buffer[4096];
  for (std::size_t n; tubo != nullptr && (n = std::fread(buffer, 1, sizeof buffer, tubo)) > 0;) {
    salida.append(buffer, n);
  }
  EXPECT_EQ(tubo != nullptr ? ::pclose(tubo) : -1, 0);
  std::vector<std::string> filas;
  for (std::size_t i = 0; i < salida.size();) {
    const std::size_t fin = salida.find('\n', i);
    filas.push_back(salida.substr(i, fin - i));
    i = fin == std::string::npos ? salida.size() : fin + 1;
  }
  return filas;
}

// Fifty requests at once against the Jet catalogue: each leaves its row in
// the Jet statistics file, which mdb-export and Orvex's reader read back.
TEST(EstadisticasJet, FiftyConcurrentRequestsEachLeaveTheirRow) {
  if (std::system("command -v mdb-export >/dev/null 2>&1") != 0) GTEST_SKIP() << "sin mdb-export";
  const ProgramaCGI jet("jet_estadisticas_concurrentes", En(Bases::Jet));
  const fs::path archivo = jet.dir() / "bases" / "estadisticas.mdb";
  const std::vector<std::string> antes = FilasMdbExport(archivo);
  const Peticion peticion = Get(LIBROS "txtLIB=novela&Cantidad=10&FichaINI=1");
  std::vector<pid_t> hijos;
  for (int i = 0; i < 50; ++i) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      std::freopen("/dev/null", "w", stdout);
      std::freopen("/dev/null", "r", stdin);
      for (const auto& [k, v] : peticion.variables) ::setenv(k.c_str(), v.c_str(), 1);
      const std::string programa = (jet.dir() / "orvex").string();
      ::execl(programa.c_str(), programa.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    hijos.push_back(pid);
  }
  for (pid_t pid : hijos) {
    int estado = 0;
    ASSERT_EQ(::waitpid(pid, &estado, 0), pid);
    EXPECT_TRUE(WIFEXITED(estado) && WEXITSTATUS(estado) == 0);
  }
  std::vector<std::string> despues = FilasMdbExport(archivo);
  ASSERT_EQ(despues.size(), antes.size() + 50);
  for (std::size_t i = antes.size(); i < despues.size(); ++i) EXPECT_EQ(despues[i], "NOVELA|29|2");
  auto leido = db::jet::Archivo::Abre(archivo.string());
  EXPECT_EQ(leido->BuscaTabla("Consultas")->filas, despues.size());
}

// The old layout of "Consultas" lacks IP_Address and AdvSearch; Orvex does
// not change a Jet table's design, so the row is not written: the page says
// why and the file is left as it was.
TEST(EstadisticasJet, AnOldTableIsReportedAndLeftAlone) {
  const fs::path antigua =
      fs::path(ORVEX_FIXTURES) / "catalogo" / "estadisticas-antigua" / "jet" / "estadisticas.mdb";
  Disposicion con_antigua = En(Bases::Jet);
  con_antigua.copias["bases/estadisticas.mdb"] = antigua;
  const ProgramaCGI jet("jet_estadisticas_antiguas", con_antigua);
  const std::string pagina = jet.Pagina(LIBROS "txtLIB=novela&Cantidad=10&FichaINI=1");
  EXPECT_NE(pagina.find(Latin1("<H4>Error: 'La instrucción INSERT INTO contiene el siguiente "
                               "nombre de campo desconocido: 'AdvSearch'. Asegúrese de que ha "
                               "escrito el nombre correctamente e intente la operación de nuevo."
                               "'<br/>--Agregar registro estadístico--</H4>")),
            std::string::npos)
      << pagina.substr(0, 3000);
  EXPECT_NE(pagina.find("Ficha "), std::string::npos);
  EXPECT_EQ(ReadFile(jet.dir() / "bases" / "estadisticas.mdb"), ReadFile(antigua));
}

// The library's own program has the statistics file open (its Jet lock
// file is held): the search is served, the row is not written, and the page
// says why in the writer's words.
TEST(EstadisticasJet, AFileOpenInAnotherProgramIsNotWritten) {
  const ProgramaCGI jet("jet_estadisticas_bloqueadas", En(Bases::Jet));
  const fs::path archivo = jet.dir() / "bases" / "estadisticas.mdb";
  const fs::path ldb = jet.dir() / "bases" / "estadisticas.ldb";
  WriteFile(ldb, "PC-BIBLIOTECA                   Admin");
  const std::string antes = ReadFile(archivo);
  const int fd = ::open(ldb.c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  const std::string pagina = jet.Pagina(LIBROS "txtLIB=novela&Cantidad=10&FichaINI=1");
  ::close(fd);
  EXPECT_NE(pagina.find(Latin1("<H4>Error: 'La base de datos Jet '@DIR@/bases/estadisticas.mdb' está "
                               "abierta en otro programa (@DIR@/bases/estadisticas.ldb está "
                               "bloqueado): Orvex no escribe en ella.'<br/>--Agregar registro "
                               "estadístico--</H4>")),
            std::string::npos)
      << pagina.substr(0, 3000);
  EXPECT_NE(pagina.find("Ficha "), std::string::npos);
  EXPECT_EQ(ReadFile(archivo), antes);
}

// Another writer holds the Jet statistics file and never lets go: the
// request waits the statistics' 3 s for its turn, then serves the search
// with the failed-insert message in the writer's words; the file is left
// as it was.
TEST(EstadisticasJet, AWriterThatNeverLetsGoDelaysTheRowNotThePage) {
  const ProgramaCGI jet("jet_estadisticas_escritor_retenido", En(Bases::Jet));
  const fs::path archivo = jet.dir() / "bases" / "estadisticas.mdb";
  const std::string antes = ReadFile(archivo);
  const int fd = ::open(archivo.c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  const std::string pagina = jet.Pagina(LIBROS "txtLIB=novela&Cantidad=10&FichaINI=1");
  ::close(fd);
  EXPECT_NE(pagina.find(Latin1("<H4>Error: 'No se pudo actualizar; la base de datos Jet "
                               "'@DIR@/bases/estadisticas.mdb' está bloqueada: otra escritura la "
                               "tuvo más de 3000 ms.'<br/>--Agregar registro estadístico--</H4>")),
            std::string::npos)
      << pagina.substr(0, 3000);
  EXPECT_NE(pagina.find("Ficha "), std::string::npos);
  EXPECT_EQ(ReadFile(archivo), antes);
}

}  // namespace
}  // namespace orvex
