#include "search/Estadisticas.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <vector>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "gateway/Bitacora.h"
#include "gateway/EntradaCGI.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

namespace fs = std::filesystem;

const fs::path kActual = fs::path(ORVEX_FIXTURES) / "catalogo/sqlite/estadisticas.mdb";
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
    gateway::Solicitud s(p.sys, p.bases);
    gateway::LeeVariablesCGI(s.cgi, p.entorno);
    gateway::SeparaPares(s.cgi.pares, c.pares);
    s.cfg.BUSQ_AVANZADA = c.avanzada;
    s.Expresion = c.expresion;

    EXPECT_TRUE(RegistraConsulta(s, dir_.string(), c.encontrados, c.cajas)) << c.buscado;
    EXPECT_EQ(p.salida.contents, "");
    const auto filas = Filas(archivo);
    ASSERT_EQ(filas.size(), 4u);
    EXPECT_EQ(filas.back(), Registro(c.buscado, c.encontrados, c.adv_search, c.cliente));
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
      gateway::Solicitud s(p.sys, p.bases);
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
  gateway::Solicitud s(p.sys, p.bases);
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
    gateway::Solicitud s(p.sys, p.bases);
    const bool escrito = c.tabla == "Consultas"
                             ? RegistraConsulta(s, dir_.string(), 3, {"gato"})
                             : AgregaRegistro(s, dir_.string(), "Buscado", c.tabla, "'GATO'") > 0;
    EXPECT_FALSE(escrito) << c.nombre;
    EXPECT_EQ(p.salida.contents, MensajeFalla(c.descripcion)) << c.nombre;
  }
}

TEST_F(Estadisticas, AFileLockedTooLongIsReportedAndTheRowIsNotForced) {
  const fs::path archivo = Copia(kActual);
  auto otro = db::OpenDatabase(archivo.string(), CodePage::Windows1252(), {.busy_timeout_ms = 100});
  otro->Execute("BEGIN EXCLUSIVE");  // another writer holds the file past the wait
  testing::FakePlatform p;
  gateway::Solicitud s(p.sys, p.bases);
  EXPECT_FALSE(RegistraConsulta(s, dir_.string(), 1, {"gato"}));
  EXPECT_NE(p.salida.contents.find(Latin1("bloqueada")), std::string::npos) << p.salida.contents;
  otro->Execute("ROLLBACK");
  EXPECT_EQ(Filas(archivo).size(), 3u);
}

TEST_F(Estadisticas, LetsTheWatchdogEndTheProcess) {
  const fs::path archivo = Copia(kActual);
  testing::FakePlatform p;
  gateway::Solicitud s(p.sys, p.bases);
  gateway::IniciaVigilancia(s);
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
        gateway::Solicitud s(p.sys, p.bases);
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
}  // namespace orvex::search
