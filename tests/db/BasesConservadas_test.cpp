#include "db/BasesConservadas.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <vector>

#include "base/RuntimeError.h"
#include "tests/db/PlazoDeMiradas.h"
#include "tests/support/Fakes.h"

namespace orvex::db {
namespace {

namespace fs = std::filesystem;

// A database that only counts what reaches it and keeps the deadline it was
// opened with.
class BaseContada final : public Database {
 public:
  BaseContada(int& cerradas, Plazo* plazo) : cerradas_(cerradas), plazo_(plazo) {}
  std::unique_ptr<Recordset> OpenRecordset(std::string_view, RecordsetType) override {
    return nullptr;
  }
  std::int64_t Execute(std::string_view) override { return ++ejecutadas; }
  std::int64_t Execute(std::string_view, const std::vector<Value>&) override {
    return ++ejecutadas;
  }
  std::vector<std::string> TableNames() override { return {}; }
  std::vector<std::string> ColumnNames(std::string_view) override { return {}; }
  void Close() override { ++cerradas_; }
  Plazo* plazo() const { return plazo_; }
  int ejecutadas = 0;

 private:
  int& cerradas_;
  Plazo* plazo_;
};

// The files as the opener sees them: each path's identity, changed by the
// test; and every open made.
struct Archivos {
  std::map<std::string, IdentidadArchivo> identidades;
  std::vector<std::string> aperturas;
  std::vector<BaseContada*> abiertas;
  int cerradas = 0;
  // Changes the file at each of this many next opens, while it is read.
  int cambia_al_abrir = 0;

  BasesConservadas Opener() {
    return BasesConservadas(
        [this](const std::string& ruta, const OpenOptions& o) -> std::unique_ptr<Database> {
          aperturas.push_back(ruta);
          if (cambia_al_abrir > 0) {
            --cambia_al_abrir;
            ++identidades[ruta].tamano;
          }
          auto base = std::make_unique<BaseContada>(cerradas, o.plazo);
          abiertas.push_back(base.get());
          return base;
        },
        [this](const std::string& ruta) -> std::optional<IdentidadArchivo> {
          auto it = identidades.find(ruta);
          if (it == identidades.end()) return std::nullopt;
          return it->second;
        },
        [](const std::string& ruta) { return ruta.find("jet") == std::string::npos; });
  }
};

constexpr OpenOptions kLectura{.read_only = true};

TEST(BasesConservadas, AnUnchangedFileIsOpenedOnceAndItsCloseLeavesItOpen) {
  Archivos archivos;
  archivos.identidades["/c/KORVEL8.MDB"] = {1, 10, 4096, 5};
  BasesConservadas bases = archivos.Opener();
  for (int solicitud = 0; solicitud < 3; ++solicitud) {
    auto db = bases.Open("/c/KORVEL8.MDB", kLectura);
    EXPECT_EQ(db->Execute("x"), solicitud + 1) << "each request reaches the same database";
    db->Close();
  }
  EXPECT_EQ(archivos.aperturas.size(), 1u);
  EXPECT_EQ(archivos.cerradas, 0);
  EXPECT_EQ(bases.Conservadas(), 1u);
}

// Whatever part of the identity changes, the next request opens the file
// again: a rename over it, an edit in place, a copy back with its old size.
TEST(BasesConservadas, AChangedFileIsOpenedAgain) {
  struct Caso {
    const char* que;
    IdentidadArchivo despues;
  };
  const IdentidadArchivo antes{1, 10, 4096, 5};
  const std::vector<Caso> casos = {
      {"another device", {2, 10, 4096, 5}},
      {"another inode (replaced by a rename)", {1, 11, 4096, 5}},
      {"another size", {1, 10, 8192, 5}},
      {"modified again (nanoseconds count)", {1, 10, 4096, 6}},
  };
  for (const Caso& c : casos) {
    SCOPED_TRACE(c.que);
    Archivos archivos;
    archivos.identidades["/c/b.mdb"] = antes;
    BasesConservadas bases = archivos.Opener();
    bases.Open("/c/b.mdb", kLectura);
    archivos.identidades["/c/b.mdb"] = c.despues;
    auto db = bases.Open("/c/b.mdb", kLectura);
    ASSERT_EQ(archivos.aperturas.size(), 2u);
    EXPECT_EQ(db->Execute("x"), 1) << "the new file's database, not the old one's";
    bases.Open("/c/b.mdb", kLectura);
    EXPECT_EQ(archivos.aperturas.size(), 2u) << "the new file is kept in turn";
  }
}

// A file being rewritten while it is opened is opened again; one that keeps
// changing serves its request and is not kept.
TEST(BasesConservadas, AnOpenDuringWhichTheFileChangedIsNotTrusted) {
  struct Caso {
    int cambios;
    std::size_t aperturas;
    bool conservada;
  };
  for (const Caso c : {Caso{1, 2, true}, Caso{2, 3, true}, Caso{3, 3, false}, Caso{9, 3, false}}) {
    SCOPED_TRACE(c.cambios);
    Archivos archivos;
    archivos.identidades["/c/b.mdb"] = {1, 10, 4096, 5};
    archivos.cambia_al_abrir = c.cambios;
    BasesConservadas bases = archivos.Opener();
    bases.Open("/c/b.mdb", kLectura);
    EXPECT_EQ(archivos.aperturas.size(), c.aperturas);
    EXPECT_EQ(bases.Conservadas(), c.conservada ? 1u : 0u);
  }
}

// What is opened afresh every time: a Jet file, read (its pages would pile
// up in a kept one) or written (a kept one would not see the rows other
// workers append), a database held to a deadline of the caller's own, a
// file that cannot be examined.
TEST(BasesConservadas, SomeDatabasesAreNeverKept) {
  testing::PlazoDeMiradas propio(100);
  struct Caso {
    const char* que;
    std::string ruta;
    OpenOptions opciones;
  };
  const std::vector<Caso> casos = {
      {"written, Jet", "/jet/estadisticas.mdb", {.busy_timeout_ms = 2000}},
      {"read, Jet", "/jet/KORVEL8.MDB", kLectura},
      {"the caller's own deadline", "/c/b.mdb", {.read_only = true, .plazo = &propio}},
      {"a file with no identity", "/c/no-hay.mdb", kLectura},
  };
  for (const Caso& c : casos) {
    SCOPED_TRACE(c.que);
    Archivos archivos;
    archivos.identidades["/c/b.mdb"] = {1, 10, 4096, 5};
    archivos.identidades["/jet/estadisticas.mdb"] = {1, 12, 4096, 5};
    archivos.identidades["/jet/KORVEL8.MDB"] = {1, 13, 4096, 5};
    BasesConservadas bases = archivos.Opener();
    bases.Open(c.ruta, c.opciones)->Close();
    bases.Open(c.ruta, c.opciones)->Close();
    EXPECT_EQ(archivos.aperturas.size(), 2u);
    EXPECT_EQ(archivos.cerradas, 2);
    EXPECT_EQ(bases.Conservadas(), 0u);
  }
}

// A SQLite file that requests write changes with every row (its own and
// other workers'): it is kept until the file is replaced. Its read-only
// and writable opens are two databases.
TEST(BasesConservadas, AWrittenSqliteFileIsKeptUntilItIsReplaced) {
  Archivos archivos;
  const std::string ruta = "/c/estadisticas.mdb";
  archivos.identidades[ruta] = {1, 12, 4096, 5};
  BasesConservadas bases = archivos.Opener();
  const OpenOptions escritura{.busy_timeout_ms = 2000};
  EXPECT_EQ(bases.Open(ruta, escritura)->Execute("INSERT"), 1);
  archivos.identidades[ruta] = {1, 12, 8192, 9};
  EXPECT_EQ(bases.Open(ruta, escritura)->Execute("INSERT"), 2);
  EXPECT_EQ(archivos.aperturas.size(), 1u);
  bases.Open(ruta, kLectura);
  EXPECT_EQ(archivos.aperturas.size(), 2u) << "read-only is another database";
  archivos.identidades[ruta] = {1, 13, 8192, 9};
  EXPECT_EQ(bases.Open(ruta, escritura)->Execute("INSERT"), 1) << "the new file's";
  EXPECT_EQ(archivos.aperturas.size(), 3u);
}

// A kept database watches the deadline of the request that uses it, and
// none between requests.
TEST(BasesConservadas, AKeptDatabaseWatchesTheDeadlineOfTheRequestServed) {
  Archivos archivos;
  archivos.identidades["/c/b.mdb"] = {1, 10, 4096, 5};
  BasesConservadas bases = archivos.Opener();
  testing::PlazoDeMiradas primera(0);  // already passed
  bases.Vigila(&primera);
  bases.Open("/c/b.mdb", kLectura);
  Plazo* visto = archivos.abiertas.at(0)->plazo();
  ASSERT_NE(visto, nullptr);
  EXPECT_TRUE(visto->Vencido());
  bases.Vigila(nullptr);
  EXPECT_FALSE(visto->Vencido());
  testing::PlazoDeMiradas segunda(5);
  bases.Vigila(&segunda);
  bases.Open("/c/b.mdb", kLectura);
  EXPECT_FALSE(visto->Vencido());
  EXPECT_EQ(segunda.Miradas(), 1);
  EXPECT_EQ(archivos.aperturas.size(), 1u);
}

TEST(BasesConservadas, KeepsABoundedNumberOfFiles) {
  Archivos archivos;
  BasesConservadas bases = archivos.Opener();
  for (std::size_t i = 0; i < 3 * BasesConservadas::kMaximo; ++i) {
    const std::string ruta = "/c/" + std::to_string(i) + ".mdb";
    archivos.identidades[ruta] = {1, i, 4096, 5};
    bases.Open(ruta, kLectura);
    ASSERT_LE(bases.Conservadas(), BasesConservadas::kMaximo);
  }
}

// On real files: a catalogue rebuilt and renamed over the old one, as
// orvex-catalogo does, is what the next request reads.
TEST(BasesConservadas, ARebuiltCatalogueIsReadFromTheNextRequest) {
  const fs::path dir = fs::path(::testing::TempDir()) / "bases-conservadas";
  fs::remove_all(dir);
  fs::create_directories(dir);
  const auto crea = [&](const fs::path& ruta, const char* titulo) {
    fs::copy_file(fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "estadisticas.mdb", ruta,
                  fs::copy_options::overwrite_existing);
    fs::permissions(ruta, fs::perms::owner_write, fs::perm_options::add);
    auto db = OpenDatabase(ruta.string(), CodePage::Windows1252());
    db->Execute("CREATE TABLE Fichas (Titulo TEXT)");
    db->Execute(std::string("INSERT INTO Fichas VALUES ('") + titulo + "')");
  };
  const auto titulo = [](Database& db) {
    auto rs = db.OpenRecordset("SELECT Titulo FROM Fichas", RecordsetType::Snapshot);
    return rs->Field("Titulo").AsText();
  };
  crea(dir / "KORVEL8.MDB", "viejo");
  BasesConservadas bases(CodePage::Windows1252());
  const std::string ruta = (dir / "KORVEL8.MDB").string();
  EXPECT_EQ(titulo(*bases.Open(ruta, kLectura)), "viejo");
  crea(dir / "nuevo.tmp", "nuevo");
  fs::rename(dir / "nuevo.tmp", dir / "KORVEL8.MDB");
  EXPECT_EQ(titulo(*bases.Open(ruta, kLectura)), "nuevo");
  fs::remove(dir / "KORVEL8.MDB");
  EXPECT_THROW(bases.Open(ruta, kLectura), RuntimeError);
  fs::remove_all(dir);
}

}  // namespace
}  // namespace orvex::db
