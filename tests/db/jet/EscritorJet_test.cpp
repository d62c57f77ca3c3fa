// The Jet writer: rows appended to the statistics table read back by the
// Orvex reader and by Debian's mdb-export; a failure after any write leaves
// the file as it was; tables and files it must not touch are refused.
#include "db/jet/EscritorJet.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "base/CodePage.h"
#include "db/jet/Bytes.h"
#include "tests/db/PlazoDeMiradas.h"
#include "tests/support/Fakes.h"

namespace orvex::db::jet {
namespace {

namespace fs = std::filesystem;

const fs::path kCatalogo = fs::path(ORVEX_FIXTURES) / "catalogo";
// A wait for the writers' lock no test should reach: writers take turns.
constexpr int kEsperaLarga = 600000;

// A file in memory that can be made to fail at its k-th write or sync.
class EnMemoria final : public PaginasEnMemoria {
 public:
  explicit EnMemoria(std::string bytes) : PaginasEnMemoria(std::move(bytes), "estadisticas.mdb") {}
  void Escribe(std::uint32_t n, const std::uint8_t* pagina) override {
    Paso("escritura");
    PaginasEnMemoria::Escribe(n, pagina);
  }
  void Sincroniza() override { Paso("sincronización"); }

  int pasos = 0;
  int falla_en = -1;  // the step that fails, counting from 0; -1: none

 private:
  void Paso(const char* que) {
    if (pasos++ == falla_en) throw ErrorJet(std::string("falla provocada en la ") + que);
  }
};

// One statistics row: date, searched text, count, form, client.
std::vector<Valor> Consulta(int i, bool con_columnas_nuevas = true) {
  Valor fecha;
  fecha.tipo = Valor::Tipo::Fecha;
  EXPECT_TRUE(DiasDeFechaISO("2026-11-22 10:" + std::string(i % 60 < 10 ? "0" : "") +
                                 std::to_string(i % 60) + ":05",
                             fecha.real));
  std::vector<Valor> v = {fecha, Valor::DeTexto("CAMION " + std::to_string(i) + " ÑANDÚ"),
                          Valor::DeEntero(i * 7)};
  if (con_columnas_nuevas) {
    v.push_back(Valor::DeTexto(i % 2 == 0 ? "2" : "3"));
    v.push_back(i % 5 == 0 ? Valor::Nulo() : Valor::DeTexto("10.0.0." + std::to_string(i)));
  }
  return v;
}

// Every row of Consultas as "date|text|count|form|client" through the reader.
std::vector<std::string> FilasLeidas(const std::string& bytes) {
  auto a = Archivo::DesdeMemoria(bytes, "estadisticas.mdb");
  const Tabla* t = a->BuscaTabla("Consultas");
  std::vector<std::string> r;
  Filas f(*a, *t);
  while (f.Siguiente()) {
    std::string linea;
    for (std::size_t c = 0; c < t->columnas.size(); ++c) {
      const Valor v = f.Lee(c);
      linea += (c == 0 ? "" : "|") + (v.tipo == Valor::Tipo::Fecha   ? FechaISO(v.real)
                                      : v.tipo == Valor::Tipo::Entero ? std::to_string(v.entero)
                                      : v.tipo == Valor::Tipo::Nulo   ? std::string("\\N")
                                                                      : v.bytes);
    }
    r.push_back(linea);
  }
  EXPECT_EQ(t->filas, r.size()) << "the definition's row count";
  return r;
}

std::string Esperada(int i) {
  return "2026-11-22 10:" + std::string(i % 60 < 10 ? "0" : "") + std::to_string(i % 60) +
         ":05|CAMION " + std::to_string(i) + " ÑANDÚ|" + std::to_string(i * 7) + "|" +
         (i % 2 == 0 ? "2" : "3") + "|" + (i % 5 == 0 ? "\\N" : "10.0.0." + std::to_string(i));
}

void Agrega(EnMemoria& m, const std::vector<Valor>& v, const char* tabla = "Consultas") {
  auto a = Archivo::DesdeMemoria(m.Bytes(), m.Nombre());
  AgregaFila(*a, m, tabla, v);
}

const std::string& Estadisticas() {
  static const std::string bytes = testing::ReadFile(kCatalogo / "jet" / "estadisticas.mdb");
  return bytes;
}

TEST(EscritorJet, AppendedRowsReadBackOnOldAndNewPages) {
  EnMemoria m(Estadisticas());
  const std::vector<std::string> antes = FilasLeidas(m.Bytes());
  ASSERT_EQ(antes.size(), 3u);
  // Enough rows to fill the table's page and two new ones.
  for (int i = 0; i < 150; ++i) Agrega(m, Consulta(i));
  EXPECT_GE(m.Paginas(), Archivo::DesdeMemoria(Estadisticas(), "x")->Paginas() + 2);
  std::vector<std::string> esperadas = antes;
  for (int i = 0; i < 150; ++i) esperadas.push_back(Esperada(i));
  EXPECT_EQ(FilasLeidas(m.Bytes()), esperadas);
  // The other tables are untouched.
  auto original = Archivo::DesdeMemoria(Estadisticas(), "x");
  auto escrito = Archivo::DesdeMemoria(m.Bytes(), "x");
  EXPECT_EQ(escrito->NombresTablas(), original->NombresTablas());
}

// The free space a data page really has: the page less its 14-byte header,
// its row offset table (two bytes a row) and its rows, each of which runs
// from its offset to the previous row's (the first to the page's end).
std::size_t EspacioLibreReal(const std::string& bytes, std::uint32_t pagina) {
  const auto* p =
      reinterpret_cast<const std::uint8_t*>(bytes.data()) + std::size_t{pagina} * kTamanoPagina;
  const std::size_t filas = U16(p + 12);
  std::size_t ocupado = 14 + 2 * filas;
  std::size_t fin = kTamanoPagina;
  for (std::size_t k = 0; k < filas; ++k) {
    const std::size_t inicio = U16(p + 14 + 2 * k) & 0x1FFF;
    EXPECT_LT(inicio, fin) << "page " << pagina << ", row " << k;
    ocupado += fin - inicio;
    fin = inicio;
  }
  return kTamanoPagina - ocupado;
}

// Other Jet readers trust the free-space count in a data page's header
// (bytes 2-3) to decide where a row fits: after every append, on the page
// that took the row and on each new page, it is the space the page really
// has left.
TEST(EscritorJet, TheFreeSpaceCountIsThePagesRealFreeSpace) {
  EnMemoria m(Estadisticas());
  const auto Comprueba = [&](const char* cuando) {
    auto a = Archivo::DesdeMemoria(m.Bytes(), "x");
    const Tabla* t = a->BuscaTabla("Consultas");
    ASSERT_NE(t, nullptr);
    ASSERT_FALSE(t->paginas_datos.empty());
    for (std::uint32_t n : t->paginas_datos) {
      const auto* p =
          reinterpret_cast<const std::uint8_t*>(m.Bytes().data()) + std::size_t{n} * kTamanoPagina;
      ASSERT_EQ(p[0], 0x01) << cuando << ", page " << n;
      EXPECT_EQ(U16(p + 2), EspacioLibreReal(m.Bytes(), n)) << cuando << ", page " << n;
    }
  };
  Comprueba("before any append");
  const std::uint32_t paginas = m.Paginas();
  // Rows of different lengths (a null client is shorter) until two new
  // pages have been started and taken more rows.
  for (int i = 0; i < 150; ++i) {
    Agrega(m, Consulta(i));
    Comprueba(("after row " + std::to_string(i)).c_str());
    if (::testing::Test::HasFailure()) break;
  }
  EXPECT_GE(m.Paginas(), paginas + 2);
}

// Debian's mdbtools reads what Orvex wrote, value by value.
TEST(EscritorJet, MdbExportReadsTheRows) {
  if (std::system("command -v mdb-export >/dev/null 2>&1") != 0) GTEST_SKIP() << "sin mdb-export";
  EnMemoria m(Estadisticas());
  for (int i = 0; i < 120; ++i) Agrega(m, Consulta(i));
  const fs::path ruta = fs::temp_directory_path() / ("orvex-escritor-" + std::to_string(::getpid()) + ".mdb");
  std::ofstream(ruta, std::ios::binary) << m.Bytes();
  const std::string orden = "mdb-export -H -d '|' -q '' -T '%Y-%m-%d %H:%M:%S' '" + ruta.string() +
                            "' Consultas";
  FILE* tubo = ::popen(orden.c_str(), "r");
  ASSERT_NE(tubo, nullptr);
  std::string salida;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, tubo)) > 0;) salida.append(buffer, n);
  ASSERT_EQ(::pclose(tubo), 0) << salida;
  fs::remove(ruta);
  std::vector<std::string> lineas;
  for (std::size_t i = 0; i < salida.size();) {
    const std::size_t fin = salida.find('\n', i);
    lineas.push_back(salida.substr(i, fin - i));
    i = fin == std::string::npos ? salida.size() : fin + 1;
  }
  ASSERT_EQ(lineas.size(), 123u);
  for (int i = 0; i < 120; ++i) {
    std::string esperada = Esperada(i);
    if (i % 5 == 0) esperada.replace(esperada.size() - 2, 2, "");  // null: empty field
    EXPECT_EQ(lineas[static_cast<std::size_t>(i) + 3], esperada);
  }
}

// A failure after any write or sync, on an existing page or on a new one,
// leaves the bytes exactly as they were.
TEST(EscritorJet, AFailureAtAnyStepLeavesTheFileAsItWas) {
  EnMemoria lleno(Estadisticas());
  int i = 0;
  // Up to the last row that fits the table's page.
  for (std::uint32_t paginas = lleno.Paginas(); lleno.Paginas() == paginas; ++i) {
    EnMemoria prueba(lleno.Bytes());
    Agrega(prueba, Consulta(i));
    if (prueba.Paginas() != paginas) break;
    Agrega(lleno, Consulta(i));
  }
  for (const bool pagina_nueva : {false, true}) {
    SCOPED_TRACE(pagina_nueva ? "new page" : "existing page");
    const std::string base = pagina_nueva ? lleno.Bytes() : Estadisticas();
    EnMemoria cuenta(base);
    Agrega(cuenta, Consulta(900));
    ASSERT_GE(cuenta.pasos, pagina_nueva ? 6 : 4);
    for (int paso = 0; paso < cuenta.pasos; ++paso) {
      EnMemoria m(base);
      m.falla_en = paso;
      EXPECT_THROW(Agrega(m, Consulta(900)), ErrorJet) << paso;
      EXPECT_EQ(m.Bytes(), base) << "after a failure at step " << paso;
    }
  }
}

TEST(EscritorJet, RefusesWhatItCannotWriteAndChangesNothing) {
  struct Caso {
    const char* que;
    const char* archivo;
    const char* tabla;
    std::vector<Valor> valores;
    const char* en_mensaje;
  };
  const std::vector<Caso> casos = {
      {"a table with indexes", "KORVEL8.MDB", "Ejemplares", {}, "tiene índices"},
      {"a missing table", "estadisticas.mdb", "NoHay", Consulta(1), "no hay una tabla"},
      {"too few values", "estadisticas.mdb", "Consultas", Consulta(1, false), "número de valores"},
      {"a text longer than its column", "estadisticas.mdb", "Consultas",
       {Valor::Nulo(), Valor::DeTexto(std::string(41, 'x')), Valor::DeEntero(1), Valor::Nulo(),
        Valor::Nulo()},
       "no cabe en la columna Buscado"},
      {"a number out of range", "estadisticas.mdb", "Consultas",
       {Valor::Nulo(), Valor::Nulo(), Valor::DeEntero(int64_t{1} << 40), Valor::Nulo(),
        Valor::Nulo()},
       "no cabe en la columna Encontrados"},
      {"text in a number column", "estadisticas.mdb", "Consultas",
       {Valor::Nulo(), Valor::Nulo(), Valor::DeTexto("7"), Valor::Nulo(), Valor::Nulo()},
       "no admite ese valor"},
  };
  for (const Caso& c : casos) {
    SCOPED_TRACE(c.que);
    const std::string base = testing::ReadFile(kCatalogo / "jet" / c.archivo);
    EnMemoria m(base);
    try {
      Agrega(m, c.valores, c.tabla);
      ADD_FAILURE() << "written";
    } catch (const ErrorJet& e) {
      EXPECT_NE(std::string(e.what()).find(Latin1(c.en_mensaje)), std::string::npos) << e.what();
    }
    EXPECT_EQ(m.Bytes(), base);
  }
}

// A damaged file is refused, not made worse: a usage map pointer that leads
// nowhere, a data page of another table, a definition that is not one.
TEST(EscritorJet, DamagedFilesAreRefusedUntouched) {
  auto a = Archivo::DesdeMemoria(Estadisticas(), "x");
  const Tabla* t = a->BuscaTabla("Consultas");
  const std::size_t def = std::size_t{t->pagina_definicion} * kTamanoPagina;
  const std::size_t datos = std::size_t{t->paginas_datos.back()} * kTamanoPagina;
  struct Dano {
    const char* que;
    std::size_t donde;
    std::uint8_t valor;
  };
  for (const Dano& d : {Dano{"owned-pages map pointer", def + 0x38, 0x7F},
                        Dano{"free-space map row", def + 0x3B, 0x09},
                        Dano{"data page's owner", datos + 4, 0x02},
                        Dano{"data page type", datos, 0x04}}) {
    SCOPED_TRACE(d.que);
    std::string base = Estadisticas();
    base[d.donde] = static_cast<char>(d.valor);
    // Fill the page first so that the new page needs the maps.
    EnMemoria m(base);
    bool rechazada = false;
    for (int i = 0; i < 100 && !rechazada; ++i) {
      const std::string antes = m.Bytes();
      try {
        Agrega(m, Consulta(i));
      } catch (const ErrorJet&) {
        rechazada = true;
        EXPECT_EQ(m.Bytes(), antes);
      }
    }
    EXPECT_TRUE(rechazada);
  }
}

// Random damage to the pages the writer reads: it may still write (the
// damage was somewhere it does not look), or it refuses, and a refusal
// leaves every byte as it was; nothing crashes.
TEST(EscritorJet, RandomDamageIsRefusedOrWrittenNeverWorse) {
  auto a = Archivo::DesdeMemoria(Estadisticas(), "x");
  const Tabla* t = a->BuscaTabla("Consultas");
  const std::vector<std::uint32_t> paginas = {1, t->pagina_definicion, t->paginas_datos.back(),
                                              t->paginas_datos.back() - 1, t->paginas_datos.back() + 1};
  std::mt19937 azar(20261122);
  int rechazadas = 0;
  for (int i = 0; i < 150; ++i) {
    std::string base = Estadisticas();
    for (int k = 0; k < 1 + i % 4; ++k) {
      const std::uint32_t pagina = paginas[azar() % paginas.size()];
      // Mostly the headers and row tables, where the pointers are.
      const std::size_t en = azar() % 2 == 0 ? azar() % 80 : azar() % kTamanoPagina;
      base[std::size_t{pagina} * kTamanoPagina + en] = static_cast<char>(azar());
    }
    EnMemoria m(base);
    for (int n = 0; n < 80; ++n) {
      const std::string antes = m.Bytes();
      try {
        Agrega(m, Consulta(n));
      } catch (const ErrorJet&) {
        ++rechazadas;
        ASSERT_EQ(m.Bytes(), antes) << "damage " << i << ", row " << n;
        break;
      }
    }
  }
  EXPECT_GT(rechazadas, 0);
}

TEST(EscritorJet, OldLayoutWithoutTheNewColumns) {
  const std::string base = testing::ReadFile(kCatalogo / "estadisticas-antigua" / "jet" / "estadisticas.mdb");
  EnMemoria m(base);
  Agrega(m, Consulta(4, false));
  auto a = Archivo::DesdeMemoria(m.Bytes(), "x");
  const Tabla* t = a->BuscaTabla("Consultas");
  ASSERT_EQ(t->columnas.size(), 3u);
  Filas f(*a, *t);
  std::string ultima;
  while (f.Siguiente()) ultima = f.Lee(1).bytes + "|" + std::to_string(f.Lee(2).entero);
  EXPECT_EQ(ultima, "CAMION 4 ÑANDÚ|28");
}

TEST(EscritorJet, IsoDatesBecomeJetDays) {
  double d = 0;
  ASSERT_TRUE(DiasDeFechaISO("1899-12-30", d));
  EXPECT_EQ(d, 0.0);
  ASSERT_TRUE(DiasDeFechaISO("2008-03-05", d));
  EXPECT_EQ(d, 39512.0);
  ASSERT_TRUE(DiasDeFechaISO("2004-03-01 10:30:00", d));
  EXPECT_EQ(FechaISO(d), "2004-03-01 10:30:00");
  ASSERT_TRUE(DiasDeFechaISO("2000-02-29 23:59:59", d));
  EXPECT_EQ(FechaISO(d), "2000-02-29 23:59:59");
  for (const char* mala : {"", "2008-13-01", "ayer", "2008-03-05 25:00:00", "2008-03-05x"}) {
    EXPECT_FALSE(DiasDeFechaISO(mala, d)) << mala;
  }
}

class EnDisco : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("orvex-escritor-" + std::to_string(::getpid()));
    fs::create_directories(dir_);
    ruta_ = dir_ / "estadisticas.mdb";
    fs::copy_file(kCatalogo / "jet" / "estadisticas.mdb", ruta_, fs::copy_options::overwrite_existing);
    fs::permissions(ruta_, fs::perms::owner_read | fs::perms::owner_write);
  }
  void TearDown() override { fs::remove_all(dir_); }

  void AgregaEnDisco(int i) {
    auto destino = AbreParaEscribir(ruta_.string(), kEsperaLarga);
    auto archivo = Archivo::Abre(ruta_.string());
    AgregaFila(*archivo, *destino, "Consultas", Consulta(i));
  }

  fs::path dir_, ruta_;
};

// Fifty processes append at once; the lock makes them take turns.
TEST_F(EnDisco, ConcurrentWritersTakeTurns) {
  std::vector<pid_t> hijos;
  for (int i = 0; i < 50; ++i) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      try {
        AgregaEnDisco(i);
        ::_exit(0);
      } catch (...) {
        ::_exit(1);
      }
    }
    hijos.push_back(pid);
  }
  for (pid_t pid : hijos) {
    int estado = 0;
    ASSERT_EQ(::waitpid(pid, &estado, 0), pid);
    EXPECT_TRUE(WIFEXITED(estado) && WEXITSTATUS(estado) == 0);
  }
  std::vector<std::string> filas = FilasLeidas(testing::ReadFile(ruta_));
  ASSERT_EQ(filas.size(), 53u);
  filas.erase(filas.begin(), filas.begin() + 3);
  std::sort(filas.begin(), filas.end());
  std::vector<std::string> esperadas;
  for (int i = 0; i < 50; ++i) esperadas.push_back(Esperada(i));
  std::sort(esperadas.begin(), esperadas.end());
  EXPECT_EQ(filas, esperadas);
}

// Another writer holds the lock and never lets go: the wait is bounded, by
// its own length (a message in Spanish) or by the deadline (TiempoAgotado),
// and the file stays as it was. Once the lock is free, the writer takes it.
TEST_F(EnDisco, AWriterThatNeverLetsGoIsWaitedForABoundedTime) {
  const std::string antes = testing::ReadFile(ruta_);
  const int otro = ::open(ruta_.c_str(), O_RDWR);
  ASSERT_GE(otro, 0);
  ASSERT_EQ(::flock(otro, LOCK_EX), 0);
  const auto Bloqueada = [&](int ms) {
    return Latin1("No se pudo actualizar; la base de datos Jet '") + ruta_.string() +
           Latin1("' está bloqueada: otra escritura la tuvo más de ") + std::to_string(ms) + " ms.";
  };
  for (const int espera : {0, 30}) {
    try {
      AbreParaEscribir(ruta_.string(), espera);
      ADD_FAILURE() << "locked while another writer holds the lock";
    } catch (const ErrorJet& e) {
      EXPECT_EQ(e.what(), Bloqueada(espera));
    }
  }
  testing::PlazoDeMiradas plazo(3);
  EXPECT_THROW(AbreParaEscribir(ruta_.string(), kEsperaLarga, &plazo), TiempoAgotado);
  EXPECT_EQ(plazo.Miradas(), 4);
  ::close(otro);
  EXPECT_EQ(testing::ReadFile(ruta_), antes);
  EXPECT_NE(AbreParaEscribir(ruta_.string(), 0), nullptr);
}

// Another program's Jet lock file, held: no write. Left behind unlocked: the
// write goes ahead.
TEST_F(EnDisco, ALockedJetLockFileStopsTheWriter) {
  const fs::path ldb = dir_ / "estadisticas.ldb";
  std::ofstream(ldb) << "PC-BIBLIOTECA  Admin";
  const std::string antes = testing::ReadFile(ruta_);
  {
    const int fd = ::open(ldb.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::flock(fd, LOCK_EX), 0);
    try {
      AgregaEnDisco(1);
      ADD_FAILURE() << "written";
    } catch (const ErrorJet& e) {
      EXPECT_NE(std::string(e.what()).find(ldb.string()), std::string::npos) << e.what();
    }
    ::close(fd);
  }
  EXPECT_EQ(testing::ReadFile(ruta_), antes);
  AgregaEnDisco(1);
  EXPECT_EQ(FilasLeidas(testing::ReadFile(ruta_)).size(), 4u);
}

}  // namespace
}  // namespace orvex::db::jet
