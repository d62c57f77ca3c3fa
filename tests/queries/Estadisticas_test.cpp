#include "queries/Estadisticas.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <vector>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "cgi/Bitacora.h"
#include "cgi/EntradaCGI.h"
#include "tests/db/PlazoDeMiradas.h"
#include "tests/support/Fakes.h"

namespace orvex::queries {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

const fs::path kActual = fs::path(ORVEX_FIXTURES) / "catalogo/sqlite/estadisticas.mdb";
const fs::path kActualJet = fs::path(ORVEX_FIXTURES) / "catalogo/jet/estadisticas.mdb";
const fs::path kAntigua =
    fs::path(ORVEX_FIXTURES) / "catalogo/estadisticas-antigua/sqlite/estadisticas.mdb";

using Fila = std::map<std::string, std::string>;  // column name -> value as text

// The rows of Consultas in table order.
std::vector<Fila> Filas(const fs::path& archivo) {
  auto bd = db::OpenDatabase(archivo.string(), CodePage::Windows1252());
  auto rs = bd->OpenRecordset("select * from Consultas", db::RecordsetType::Snapshot);
  std::vector<Fila> filas;
  for (; !rs->Eof(); rs->MoveNext()) {
    Fila fila;
    for (const std::string& campo : rs->FieldNames()) fila[campo] = rs->Field(campo).AsText();
    filas.push_back(fila);
  }
  return filas;
}

Fila Registro(const std::string& buscado, std::int32_t encontrados, const std::string& adv_search,
              const std::string& cliente) {
  return {{"Fecha", "2008-12-15 09:30:11"}, {"Buscado", buscado},
          {"Encontrados", std::to_string(encontrados)}, {"AdvSearch", adv_search},
          {"IP_Address", cliente}};
}

std::vector<std::string> Columnas(const fs::path& archivo) {
  return db::OpenDatabase(archivo.string(), CodePage::Windows1252())->ColumnNames("Consultas");
}

std::string MensajeFalla(const std::string& descripcion) {
  return "<center><p><H4>Error: '" + descripcion + "'<br/>" +
         Latin1("--Agregar registro estadístico--") + "</H4><p/></center>\r\n";
}

class Estadisticas : public ::testing::Test {
 protected:
  fs::path Copia(const fs::path& origen, const std::string& nombre = "estadisticas.mdb") {
    return tmp_.Copia(origen, nombre);
  }

  testing::DirectorioTemporal tmp_;
  const fs::path dir_ = tmp_.ruta();
};

TEST_F(Estadisticas, RecordsTheSearchOfEitherForm) {
  struct Case {
    std::uint8_t avanzada;
    std::array<std::string, 4> cajas;
    std::string expresion;
    std::string pares;
    std::int32_t encontrados;
    std::string buscado, adv_search, cliente;
  } cases[] = {
      // Double blanks halved once, accents folded, the apostrophe kept once.
      {0, {"  historia  de", "", Latin1("Camión"), "d'Arc   "}, "ignorada", "", 12,
       "HISTORIA DE CAMION D'ARC", "2", "-"},
      // Halved before the cut to 40: the cut keeps 35 of the x's.
      {0, {"a  b", "", "", std::string(45, 'x')}, "", "", 0,
       "A B  " + std::string(35, 'X'), "2", "-"},
      // The client values name request fields (kept as designed).
      {1, {"ignorada", "", "", ""}, Latin1("TITULO=\"Camión  rojo\""), "pc7=sala&10.0.0.7=x",
       30001, "TITULO=\"CAMION ROJO\"", "3", "x-sala"},
  };
  for (const Case& c : cases) {
    const fs::path archivo = Copia(kActual);
    testing::FakePlatform p;
    p.entorno.vars = {{"REMOTE_ADDR", "10.0.0.7"}, {"REMOTE_HOST", "pc7"}};
    cgi::Solicitud s(p.sys, p.bases);
    cgi::LeeVariablesCGI(s.cgi, p.entorno);
    cgi::SeparaPares(s.cgi.pares, c.pares);
    s.cfg.BUSQ_AVANZADA = c.avanzada;
    s.Expresion = c.expresion;

    EXPECT_TRUE(RegistraConsulta(s, dir_.string(), c.encontrados, c.cajas)) << c.buscado;
    EXPECT_EQ(p.salida.contents, "");
    const auto filas = Filas(archivo);
    ASSERT_EQ(filas.size(), 4u);
    EXPECT_EQ(filas.back(), Registro(c.buscado, c.encontrados, c.adv_search, c.cliente));
  }
}

// "%hh" for every byte: any text as a request field.
std::string CodificaTodo(std::string_view texto) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string r;
  for (char c : texto) {
    const auto b = static_cast<unsigned char>(c);
    r += {'%', kHex[b >> 4], kHex[b & 15]};
  }
  return r;
}

// The client text is the value of a request field named after the client's
// address: anyone can send any text there. Each gives one row holding that
// text (with the "-" and the empty REMOTE_HOST field's value), cut to the
// column's 100 characters, in an SQLite statistics file and in a Jet one.
TEST_F(Estadisticas, AnyClientTextIsOneRowHoldingExactlyThatText) {
  const std::string kRecursiva =
      "'||(WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) SELECT max(x) FROM c)||'";
  const std::string textos[] = {
      "');DELETE FROM Consultas;--",
      "'||hex(zeroblob(100000000))||'",
      kRecursiva,
      "a'),(#01/01/2000#,'forjada',0,2,'b",
      "#12/15/2008#",
      "[x]",
      "\"dice\" & 'x' -- ; \\ \r\n fin",
      "?,?",
      "\xD1" "and\xFA \x80 \x81 \x9D \xFF",  // Windows-1252, its unassigned bytes too
      "antes\0despu\xE9s"s,
      std::string(300, 'x'),
      std::string(99, 'y') + "'" + std::string(50, 'z'),  // the cut falls just after the apostrophe
  };
  for (const fs::path& origen : {kActual, kActualJet}) {
    const fs::path archivo = Copia(origen);
    std::size_t filas = Filas(archivo).size();
    for (const std::string& texto : textos) {
      SCOPED_TRACE(origen.parent_path().filename().string() + ": " + texto.substr(0, 60));
      testing::FakePlatform p;
      p.entorno.vars = {{"REMOTE_ADDR", "10.0.0.7"}};
      cgi::Solicitud s(p.sys, p.bases);
      cgi::LeeVariablesCGI(s.cgi, p.entorno);
      cgi::SeparaPares(s.cgi.pares, "10.0.0.7=" + CodificaTodo(texto));
      EXPECT_TRUE(RegistraConsulta(s, dir_.string(), 3, {"gato"}));
      EXPECT_EQ(p.salida.contents, "");
      const auto despues = Filas(archivo);
      ASSERT_EQ(despues.size(), ++filas);
      EXPECT_EQ(despues.back(), Registro("GATO", 3, "2", (texto + "-").substr(0, 100)));
    }
  }
}

// The searched text is the reader's, and goes into the row as it is too.
TEST_F(Estadisticas, TheSearchedTextIsTakenAsText) {
  for (const fs::path& origen : {kActual, kActualJet}) {
    const fs::path archivo = Copia(origen);
    testing::FakePlatform p;
    cgi::Solicitud s(p.sys, p.bases);
    EXPECT_TRUE(RegistraConsulta(s, dir_.string(), 1, {"#12/15/2008# [x]", "& 'a'", "--", ";"}));
    EXPECT_EQ(Filas(archivo).back(), Registro("#12/15/2008# [X] & 'A' -- ;", 1, "2", "-"))
        << origen;
  }
}

// An ordinary search's row is the one the statistics have always had: in
// SQLite the same values of the same types, in Jet the same bytes of the
// file, as the literal statement of the same values writes them.
TEST_F(Estadisticas, AnOrdinaryRowIsWhatTheLiteralStatementWrites) {
  const std::string literal =
      "INSERT INTO Consultas (Fecha,Buscado,Encontrados,AdvSearch,IP_Address)  VALUES "
      "(#12/15/2008 09:30:11#,'D''ARC',5,2,'-')";
  auto Ultima = [](const fs::path& archivo) {
    auto bd = db::OpenDatabase(archivo.string(), CodePage::Windows1252());
    auto rs = bd->OpenRecordset(
        "SELECT quote(Fecha) || quote(Buscado) || quote(Encontrados) || quote(AdvSearch) || "
        "quote(IP_Address) AS fila FROM Consultas",
        db::RecordsetType::Snapshot);
    rs->MoveLast();
    return rs->Field("fila").AsText();
  };
  for (const fs::path& origen : {kActual, kActualJet}) {
    SCOPED_TRACE(origen);
    const fs::path esperado = tmp_.Copia(origen, "literal.mdb");
    db::OpenDatabase(esperado.string(), CodePage::Windows1252(), {.busy_timeout_ms = 3000})
        ->Execute(literal);
    const fs::path archivo = Copia(origen);
    testing::FakePlatform p;
    cgi::Solicitud s(p.sys, p.bases);
    EXPECT_TRUE(RegistraConsulta(s, dir_.string(), 5, {"d'arc"}));
    EXPECT_EQ(Ultima(archivo), Ultima(esperado));
    EXPECT_EQ(Ultima(archivo), "'2008-12-15 09:30:11''D''ARC'5'2''-'");
    if (origen == kActualJet) {
      EXPECT_EQ(testing::ReadFile(archivo), testing::ReadFile(esperado));
    }
    fs::remove(esperado);
  }
}

TEST_F(Estadisticas, AddsTheNewColumnsOnlyToAnOldTable) {
  struct Case {
    fs::path origen;
    std::vector<std::string> columnas;
  } cases[] = {
      {kAntigua, {"Fecha", "Buscado", "Encontrados", "IP_Address", "AdvSearch"}},
      {kActual, {"Fecha", "Buscado", "Encontrados", "AdvSearch", "IP_Address"}},
  };
  for (const Case& c : cases) {
    const fs::path archivo = Copia(c.origen);
    for (std::size_t vez = 1; vez <= 2; ++vez) {
      testing::FakePlatform p;
      cgi::Solicitud s(p.sys, p.bases);
      EXPECT_TRUE(RegistraConsulta(s, dir_.string(), 5, {"gato"}));
      EXPECT_EQ(p.salida.contents, "");
      EXPECT_EQ(Columnas(archivo), c.columnas) << c.origen;
      const auto filas = Filas(archivo);
      ASSERT_EQ(filas.size(), 3 + vez);
      EXPECT_EQ(filas.back(), Registro("GATO", 5, "2", "-"));
    }
  }
}

TEST_F(Estadisticas, FindsTheFileRegardlessOfLetterCase) {
  const fs::path archivo = Copia(kActual, "Estadisticas.MDB");
  testing::FakePlatform p;
  p.archivos.files[archivo.string()] = "";
  cgi::Solicitud s(p.sys, p.bases);
  EXPECT_TRUE(RegistraConsulta(s, dir_.string(), 1, {"gato"}));
  EXPECT_EQ(Filas(archivo).size(), 4u);
}

TEST_F(Estadisticas, ReportsFailuresInThePageAndGoesOn) {
  const std::string ruta = (dir_ / "estadisticas.mdb").string();
  const RuntimeError solo_lectura(
      db::kErrSoloLectura,
      Latin1("No se puede actualizar. Base de datos u objeto de sólo lectura."));
  struct Case {
    const char* nombre;
    std::function<void(testing::FakePlatform&)> prepara;
    std::string tabla;
    std::string descripcion;
  } cases[] = {
      {"missing file", [](testing::FakePlatform&) {}, "Consultas",
       "No se pudo encontrar el archivo '" + ruta + "'."},
      {"read-only file",
       [&](testing::FakePlatform& p) {
         Copia(kActual);
         p.bases.failures.emplace(ruta, solo_lectura);
       },
       "Consultas", solo_lectura.description()},
      {"corrupt file",
       [&](testing::FakePlatform&) {
         std::ofstream(ruta, std::ios::binary) << std::string(4096, '\x5A');
       },
       "Consultas", "No se reconoce el formato de la base de datos '" + ruta + "'."},
      // Only a missing IP_Address brings the upgrade: AdvSearch stays missing.
      {"IP_Address without AdvSearch",
       [&](testing::FakePlatform&) {
         db::OpenDatabase(Copia(kActual).string(), CodePage::Windows1252())
             ->Execute("ALTER TABLE Consultas DROP COLUMN AdvSearch");
       },
       "Consultas",
       Latin1("Error en la instrucción SQL: table Consultas has no column named AdvSearch")},
      {"insert refused", [&](testing::FakePlatform&) { Copia(kActual); }, "NoHay",
       Latin1("Error en la instrucción SQL: no such table: NoHay")},
  };
  for (const Case& c : cases) {
    fs::remove(ruta);
    testing::FakePlatform p;
    c.prepara(p);
    cgi::Solicitud s(p.sys, p.bases);
    const bool escrito = c.tabla == "Consultas"
                             ? RegistraConsulta(s, dir_.string(), 3, {"gato"})
                             : AgregaRegistro(s, dir_.string(), "Buscado", c.tabla, "'GATO'") > 0;
    EXPECT_FALSE(escrito) << c.nombre;
    EXPECT_EQ(p.salida.contents, MensajeFalla(c.descripcion)) << c.nombre;
  }
}

// Another writer holds the statistics: the wait for it ends at the deadline
// (the request then ends with the watchdog's page), not at the 3 s the
// statistics wait, and no row is forced in.
TEST_F(Estadisticas, TheWaitForAnotherWriterEndsAtTheDeadline) {
  for (const fs::path& origen : {kActual, kActualJet}) {
    SCOPED_TRACE(origen);
    const fs::path archivo = Copia(origen);
    const std::size_t antes = Filas(archivo).size();
    // The other writer: a transaction held open, or the Jet writers' lock.
    std::unique_ptr<db::Database> otro;
    int fd = -1;
    if (origen == kActual) {
      otro = db::OpenDatabase(archivo.string(), CodePage::Windows1252(), {.busy_timeout_ms = 100});
      otro->Execute("BEGIN EXCLUSIVE");
    } else {
      fd = ::open(archivo.c_str(), O_RDWR);
      ASSERT_GE(fd, 0);
      ASSERT_EQ(::flock(fd, LOCK_EX), 0);
    }
    testing::FakePlatform p;
    testing::PlazoDeMiradas plazo(3);
    p.bases.Vigila(&plazo);
    cgi::Solicitud s(p.sys, p.bases);
    EXPECT_THROW(RegistraConsulta(s, dir_.string(), 1, {"gato"}), TiempoAgotado);
    EXPECT_EQ(p.salida.contents, "");
    if (otro) otro->Execute("ROLLBACK");
    if (fd >= 0) ::close(fd);
    otro.reset();
    EXPECT_EQ(Filas(archivo).size(), antes);
  }
}

TEST_F(Estadisticas, AFileLockedTooLongIsReportedAndTheRowIsNotForced) {
  {
    const fs::path archivo = Copia(kActual);
    auto otro = db::OpenDatabase(archivo.string(), CodePage::Windows1252(), {.busy_timeout_ms = 100});
    otro->Execute("BEGIN EXCLUSIVE");  // another writer holds the file past the wait
    testing::FakePlatform p;
    cgi::Solicitud s(p.sys, p.bases);
    EXPECT_FALSE(RegistraConsulta(s, dir_.string(), 1, {"gato"}));
    EXPECT_NE(p.salida.contents.find(Latin1("bloqueada")), std::string::npos) << p.salida.contents;
    otro->Execute("ROLLBACK");
    EXPECT_EQ(Filas(archivo).size(), 3u);
  }
  {
    // A Jet writer that never lets go: the wait ends, in the writer's words.
    const fs::path archivo = Copia(kActualJet);
    const std::string antes = testing::ReadFile(archivo);
    const int fd = ::open(archivo.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::flock(fd, LOCK_EX), 0);
    testing::FakePlatform p;
    cgi::Solicitud s(p.sys, p.bases);
    EXPECT_FALSE(RegistraConsulta(s, dir_.string(), 1, {"gato"}));
    ::close(fd);
    EXPECT_EQ(p.salida.contents,
              MensajeFalla(Latin1("No se pudo actualizar; la base de datos Jet '") + archivo.string() +
                           Latin1("' está bloqueada: otra escritura la tuvo más de 3000 ms.")));
    EXPECT_EQ(testing::ReadFile(archivo), antes);
  }
}

TEST_F(Estadisticas, LetsTheWatchdogEndTheProcess) {
  const fs::path archivo = Copia(kActual);
  testing::FakePlatform p;
  cgi::Solicitud s(p.sys, p.bases);
  cgi::IniciaVigilancia(s);
  p.reloj.millis += s.CONSULTA.Timer1.intervalo_ms;
  EXPECT_THROW(RegistraConsulta(s, dir_.string(), 1, {"gato"}), ProcessEnd);
  EXPECT_EQ(Filas(archivo).size(), 4u);  // the insert came before the yield
}

TEST_F(Estadisticas, FiftyConcurrentSearchesAllRecorded) {
  constexpr int kProcesos = 50;
  const fs::path archivo = Copia(kActual);
  std::vector<pid_t> hijos;
  for (int i = 0; i < kProcesos; ++i) {
    const pid_t pid = ::fork();
    ASSERT_NE(pid, -1);
    if (pid == 0) {
      bool ok = false;
      try {
        testing::FakePlatform p;
        cgi::Solicitud s(p.sys, p.bases);
        ok = RegistraConsulta(s, dir_.string(), i, {"proceso", std::to_string(i)});
      } catch (...) {
      }
      ::_exit(ok ? 0 : 1);
    }
    hijos.push_back(pid);
  }
  for (const pid_t pid : hijos) {
    int estado = 0;
    ASSERT_EQ(::waitpid(pid, &estado, 0), pid);
    EXPECT_TRUE(WIFEXITED(estado) && WEXITSTATUS(estado) == 0) << "child " << pid;
  }
  EXPECT_EQ(Filas(archivo).size(), 3u + kProcesos);
  auto bd = db::OpenDatabase(archivo.string(), CodePage::Windows1252());
  auto rs = bd->OpenRecordset("PRAGMA integrity_check", db::RecordsetType::Snapshot);
  EXPECT_EQ(rs->Field("integrity_check").AsText(), "ok");
}

}  // namespace
}  // namespace orvex::queries
