// The Jet engine against the SQLite engine on the same catalogue: every
// table, statement and index seek the gateway makes must answer alike.
#include "db/Database.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "base/RuntimeError.h"
#include "db/JetSql.h"
#include "tests/db/PlazoDeMiradas.h"
#include "tests/support/Fakes.h"

namespace orvex::db {
namespace {

namespace fs = std::filesystem;

const fs::path kCatalogo = fs::path(ORVEX_FIXTURES) / "catalogo";
const CodePage& kPage = CodePage::Windows1252();

std::unique_ptr<Database> Abre(const char* motor, const char* archivo) {
  return OpenDatabase((kCatalogo / motor / archivo).string(), kPage, {.read_only = true});
}

// Every row of `rs` from where it stands, each value as "type:text".
std::vector<std::string> Filas(Recordset& rs, const std::vector<std::string>& campos,
                               size_t limite = SIZE_MAX) {
  std::vector<std::string> filas;
  for (; !rs.Eof() && filas.size() < limite; rs.MoveNext()) {
    std::string fila;
    for (const std::string& campo : campos) {
      const Value v = rs.Field(campo);
      fila += std::to_string(static_cast<int>(v.type)) + ":" + v.AsText() + "|";
    }
    filas.push_back(fila);
  }
  return filas;
}

// The text of the RuntimeError that `f` raises; empty when it raises none.
std::string DescripcionDelError(const std::function<void()>& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e.description();
  }
  return "";
}

struct Tabla {
  const char* archivo;
  const char* tabla;
};

constexpr Tabla kTablas[] = {
    {"KORVEL8.MDB", "Fichas"},        {"KORVEL8.MDB", "Ejemplares"},
    {"KORVEL8.MDB", "Configuracion"}, {"KORVEL8.MDB", "Fichas Revistas"},
    {"KORVEL8.MDB", "Analiticas"},    {"INDIZADO.MDB", "TABLA"},
    {"indizaPP.MDB", "TABLA"},        {"indizaPP.MDB", "TABLAANA"},
    {"estadisticas.mdb", "Consultas"},
};

TEST(JetDatabase, EveryTableReadsAsInSqliteThroughSqlAndAsATable) {
  for (const Tabla& t : kTablas) {
    SCOPED_TRACE(std::string(t.archivo) + " " + t.tabla);
    auto jet = Abre("jet", t.archivo);
    auto sqlite = Abre("sqlite", t.archivo);
    EXPECT_EQ(jet->ColumnNames(t.tabla), sqlite->ColumnNames(t.tabla));
    const std::vector<std::string> campos = sqlite->ColumnNames(t.tabla);
    const std::string sql = std::string("SELECT * FROM [") + t.tabla + "]";
    auto esperado = sqlite->OpenRecordset(sql, RecordsetType::Snapshot);
    const std::vector<std::string> filas = Filas(*esperado, campos);
    ASSERT_FALSE(filas.empty());
    auto por_sql = jet->OpenRecordset(sql, RecordsetType::Snapshot);
    EXPECT_EQ(Filas(*por_sql, campos), filas);
    auto como_tabla = jet->OpenRecordset(t.tabla, RecordsetType::Table);
    EXPECT_EQ(Filas(*como_tabla, campos), filas);
  }
}

TEST(JetDatabase, StatementsOfTheGatewayAnswerAsInSqlite) {
  struct Caso {
    const char* archivo;
    const char* sql;
  };
  const Caso casos[] = {
      {"KORVEL8.MDB", "select * from EJEMPLARES where ficha_no=3"},
      {"KORVEL8.MDB", "select * from FICHAS where ficha_no=15"},
      {"KORVEL8.MDB", "select * from FICHAS where ficha_no=0"},
      {"KORVEL8.MDB", "SELECT Ficha_No FROM Ejemplares WHERE NumAdqui='l''0815'"},
      {"KORVEL8.MDB", "SELECT Ficha_No FROM Ejemplares WHERE NumAdqui='000216'"},
      {"KORVEL8.MDB", "SELECT * FROM Ejemplares WHERE Biblioteca like 'cen*' ORDER BY NumAdqui DESC"},
      {"KORVEL8.MDB", "SELECT EtiquetasMARC FROM [Fichas Revistas] WHERE Ficha_no=3"},
      {"KORVEL8.MDB", "SELECT * FROM analiticas WHERE numadqui = 'P001' ORDER BY ID DESC"},
      {"KORVEL8.MDB",
       "SELECT F.Ficha_No, E.NumAdqui FROM Fichas AS F INNER JOIN Ejemplares AS E ON "
       "F.Ficha_No = E.Ficha_No WHERE E.NumAdqui = '000216'"},
      {"KORVEL8.MDB", "SELECT * FROM Ejemplares WHERE FechaIngreso = #08/29/2002#"},
      {"KORVEL8.MDB", "SELECT count(*) AS n FROM Fichas"},
      {"INDIZADO.MDB", "SELECT * FROM TABLA WHERE palabra='NOVELA' ORDER BY ficha, posicion"},
      {"INDIZADO.MDB", "SELECT ficha FROM TABLA WHERE palabra like 'COMPUT*' and campo= 1"},
      {"INDIZADO.MDB", "SELECT ficha FROM TABLA WHERE palabra like '*ISMO'"},
      {"INDIZADO.MDB", "SELECT ficha, posicion FROM TABLA WHERE palabra='espa\xD1ola'"},
      {"indizaPP.MDB", "SELECT * FROM TABLAANA WHERE palabra like 'HIST*'"},
  };
  for (const Caso& c : casos) {
    SCOPED_TRACE(c.sql);
    auto jet = Abre("jet", c.archivo);
    auto sqlite = Abre("sqlite", c.archivo);
    auto esperado = sqlite->OpenRecordset(c.sql, RecordsetType::Snapshot);
    const std::vector<std::string> campos = esperado->FieldNames();
    auto obtenido = jet->OpenRecordset(c.sql, RecordsetType::Snapshot);
    EXPECT_EQ(obtenido->FieldNames(), campos);
    // Rows whose order the statement does not fix are compared as sets.
    std::vector<std::string> a = Filas(*obtenido, campos), b = Filas(*esperado, campos);
    if (std::string(c.sql).find("ORDER BY") == std::string::npos) {
      std::sort(a.begin(), a.end());
      std::sort(b.begin(), b.end());
    }
    EXPECT_EQ(a, b);
  }
}

// The word index's seeks, as the search makes them, walked on from the
// entry found.
TEST(JetDatabase, IndexSeeksFindWhatSqliteFinds) {
  struct Caso {
    const char* archivo;
    const char* tabla;
    const char* indice;
    const char* op;
    std::vector<Value> claves;
  };
  const auto T = [](const char* s) { return Value::Of(std::string(s)); };
  const auto N = [](std::int64_t n) { return Value::Of(n); };
  const Caso casos[] = {
      {"INDIZADO.MDB", "TABLA", "FRASE", "=", {T("NOVELA")}},
      {"INDIZADO.MDB", "TABLA", "frase", "=", {T("QUIJOTE")}},
      {"INDIZADO.MDB", "TABLA", "FRASE", "=", {T("ESPA\xD1OLA")}},
      {"INDIZADO.MDB", "TABLA", "FRASE", "=", {T("ZZZZ")}},
      {"INDIZADO.MDB", "TABLA", "FRASE", ">=", {T("COMPUT")}},
      {"INDIZADO.MDB", "TABLA", "FRASE", ">=", {T("ZZZZZZ")}},
      {"INDIZADO.MDB", "TABLA", "FRASE", ">", {T("NOVELA")}},
      {"INDIZADO.MDB", "TABLA", "FRASE", "=", {T("QUIJOTE"), N(3)}},
      {"INDIZADO.MDB", "TABLA", "FRASE", "=", {T("DON"), N(3), N(2)}},
      {"INDIZADO.MDB", "TABLA", "FRASE", "=", {T("DON"), N(3), N(999)}},
      {"INDIZADO.MDB", "TABLA", "FRASE", "<=", {T("NOVELA"), N(3)}},
      {"INDIZADO.MDB", "TABLA", "FRASE", "<", {T("NOVELA")}},
      // A "*" is no letter of the key: the sorted scan answers.
      {"INDIZADO.MDB", "TABLA", "FRASE", "=", {T("COMPUT*"), N(3), N(2)}},
      {"indizaPP.MDB", "TABLAANA", "FRASE", "=", {T("HISTORIA")}},
      {"KORVEL8.MDB", "Fichas", "PrimaryKey", "=", {N(15)}},
      {"KORVEL8.MDB", "Ejemplares", "Ficha_No", "=", {N(3)}},
      {"KORVEL8.MDB", "Ejemplares", "NumAdqui", "=", {T("000216")}},
      {"KORVEL8.MDB", "Ejemplares", "NumAdqui", "=", {T("L'0815")}},
      {"KORVEL8.MDB", "Ejemplares", "NumAdqui", ">=", {T("000300")}},
  };
  for (const Caso& c : casos) {
    SCOPED_TRACE(std::string(c.tabla) + "." + c.indice + " " + c.op + " " + c.claves[0].AsText());
    auto jet = Abre("jet", c.archivo);
    auto sqlite = Abre("sqlite", c.archivo);
    const std::vector<std::string> campos = sqlite->ColumnNames(c.tabla);
    auto a = jet->OpenRecordset(c.tabla, RecordsetType::Table);
    auto b = sqlite->OpenRecordset(c.tabla, RecordsetType::Table);
    a->SetIndex(c.indice);
    b->SetIndex(c.indice);
    a->Seek(c.op, c.claves);
    b->Seek(c.op, c.claves);
    EXPECT_EQ(a->NoMatch(), b->NoMatch());
    // Jet orders texts by its own alphabet (letter case ignored, Ñ with N)
    // and the SQLite file by bytes: after an "=" seek only the entries that
    // match are compared; the other seeks stay among plain upper-case words.
    std::vector<std::string> fa = Filas(*a, campos, 40), fb = Filas(*b, campos, 40);
    if (std::string(c.op) == "=") {
      const auto fuera = [&](const std::string& fila) {
        return fila.find(":" + c.claves[0].AsText() + "|") == std::string::npos;
      };
      fa.erase(std::find_if(fa.begin(), fa.end(), fuera), fa.end());
      fb.erase(std::find_if(fb.begin(), fb.end(), fuera), fb.end());
    }
    EXPECT_EQ(fa, fb);
  }
}

TEST(JetDatabase, AnIndexChosenWalksInKeyOrderAndSeeksRepeat) {
  auto jet = Abre("jet", "INDIZADO.MDB");
  auto sqlite = Abre("sqlite", "INDIZADO.MDB");
  auto a = jet->OpenRecordset("TABLA", RecordsetType::Table);
  auto b = sqlite->OpenRecordset("TABLA", RecordsetType::Table);
  a->SetIndex("FRASE");
  b->SetIndex("FRASE");
  const std::vector<std::string> campos = {"palabra", "ficha", "posicion"};
  EXPECT_EQ(Filas(*a, campos, 500), Filas(*b, campos, 500));
  // A phrase seeks the same recordset again and again.
  for (std::int64_t posicion : {1, 2, 3, 4, 5, 6}) {
    const std::vector<Value> clave = {Value::Of(std::string("QUIJOTE")), Value::Of(std::int64_t{3}),
                                      Value::Of(posicion)};
    a->Seek("=", clave);
    b->Seek("=", clave);
    EXPECT_EQ(a->NoMatch(), b->NoMatch()) << posicion;
  }
}

// The statistics row as the gateway inserts it: the Jet file gets it, both
// engines read it back alike, and nothing but INSERT changes a Jet file.
TEST(JetDatabase, InsertsStatisticsRowsAndNothingElse) {
  const fs::path dir = fs::temp_directory_path() / ("orvex-jet-insert-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::vector<std::string> leidas;
  for (const char* motor : {"jet", "sqlite"}) {
    const fs::path copia = dir / (std::string(motor) + ".mdb");
    fs::copy_file(kCatalogo / motor / "estadisticas.mdb", copia, fs::copy_options::overwrite_existing);
    fs::permissions(copia, fs::perms::owner_read | fs::perms::owner_write);
    auto bd = OpenDatabase(copia.string(), kPage);
    EXPECT_EQ(bd->Execute("INSERT INTO Consultas (Fecha,Buscado,Encontrados,AdvSearch,IP_Address)  "
                          "VALUES (#11/22/2026 21:05:09#,'CAMION DE O''HIGGINS',12,2,'-')"),
              1);
    auto rs = bd->OpenRecordset("SELECT * FROM Consultas", RecordsetType::Snapshot);
    const auto filas = Filas(*rs, {"Fecha", "Buscado", "Encontrados", "AdvSearch", "IP_Address"});
    ASSERT_EQ(filas.size(), 4u) << motor;
    leidas.push_back(filas.back());
    if (std::string(motor) == "jet") {
      EXPECT_EQ(testing::ErrorNumberOf([&] {
                  bd->Execute("ALTER TABLE consultas ADD COLUMN IP_Address TEXT(100)");
                }),
                kErrSoloLectura);
      EXPECT_EQ(testing::ErrorNumberOf([&] { bd->Execute("DELETE FROM Consultas"); }), kErrSoloLectura);
      EXPECT_EQ(testing::ErrorNumberOf([&] {
                  bd->Execute("INSERT INTO Consultas (Fecha,Buscado,Nada) VALUES (#1/1/2000#,'a',1)");
                }),
                kErrCampoDesconocido);
    }
  }
  EXPECT_EQ(leidas[0], leidas[1]);
  fs::remove_all(dir);
}

// A row the writer does not append is error 3027 in the writer's words and
// leaves the file as it was; what one refusal left behind never becomes
// the next statement's error; a wait for the writers' lock that reaches the
// deadline is TiempoAgotado.
TEST(JetDatabase, RowsNotAppendedLeaveTheFileAsItWas) {
  struct Caso {
    const char* que;
    const char* archivo;
    const char* tabla;
    const char* insert;
    bool bloqueado;        // another writer holds the file's lock throughout
    const char* palabras;  // in the message
  };
  const Caso casos[] = {
      {"a table with indexes", "KORVEL8.MDB", "Fichas",
       "INSERT INTO Fichas (ficha_no) VALUES (999999)", false, "tiene índices"},
      {"a value its column cannot hold", "estadisticas.mdb", "Consultas",
       "INSERT INTO Consultas (Buscado,Encontrados) VALUES ('gato','muchos')", false,
       "no coinciden en la columna 'Encontrados'"},
      {"the writers' lock held past the wait", "estadisticas.mdb", "Consultas",
       "INSERT INTO Consultas (Buscado,Encontrados) VALUES ('gato',1)", true,
       "otra escritura la tuvo más de 20 ms"},
  };
  testing::DirectorioTemporal tmp;
  for (const Caso& c : casos) {
    SCOPED_TRACE(c.que);
    const fs::path copia = tmp.Copia(kCatalogo / "jet" / c.archivo, c.archivo);
    const auto bytes = [&] { return testing::ReadFile(copia); };
    const std::string antes = bytes();
    const int fd = ::open(copia.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    if (c.bloqueado) {
      ASSERT_EQ(::flock(fd, LOCK_EX), 0);
    }
    auto db = OpenDatabase(copia.string(), kPage, {.busy_timeout_ms = 20});
    std::string mensaje;
    try {
      db->Execute(c.insert);
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), kErrSoloLectura);
      mensaje = e.description();
    }
    EXPECT_NE(mensaje.find(Latin1(c.palabras)), std::string::npos) << mensaje;
    EXPECT_EQ(testing::ErrorNumberOf([&] {
                db->Execute(std::string("INSERT INTO ") + c.tabla + " (Nada) VALUES (1)");
              }),
              kErrCampoDesconocido);
    if (c.bloqueado) {
      testing::PlazoDeMiradas plazo(3);
      auto con_plazo =
          OpenDatabase(copia.string(), kPage, {.busy_timeout_ms = 60000, .plazo = &plazo});
      EXPECT_THROW(con_plazo->Execute(c.insert), TiempoAgotado);
    }
    ::close(fd);
    EXPECT_EQ(bytes(), antes);
  }
}

TEST(JetDatabase, RefusesDeletesAndReportsWhatIsMissing) {
  auto jet = Abre("jet", "KORVEL8.MDB");
  EXPECT_EQ(testing::ErrorNumberOf([&] { jet->Execute("DELETE FROM Fichas"); }), kErrSoloLectura);
  EXPECT_EQ(testing::ErrorNumberOf([&] { jet->OpenRecordset("NoHay", RecordsetType::Table); }),
            kErrTablaNoEncontrada);
  auto rs = jet->OpenRecordset("Fichas", RecordsetType::Table);
  EXPECT_EQ(testing::ErrorNumberOf([&] { rs->SetIndex("NoHay"); }), 3800);
  EXPECT_EQ(testing::ErrorNumberOf([&] { rs->Field("NoHay"); }), kErrElementoNoEncontrado);
  EXPECT_EQ(testing::ErrorNumberOf([&] { jet->OpenRecordset("SELECT * FROM NoHay", RecordsetType::Snapshot); }),
            kErrSintaxis);
  const std::vector<std::string> tablas = jet->TableNames();
  EXPECT_EQ(std::set<std::string>(tablas.begin(), tablas.end()),
            (std::set<std::string>{"Fichas", "Ejemplares", "Configuracion", "Fichas Revistas",
                                   "Analiticas"}));
}

constexpr const char* kMotores[] = {"jet", "sqlite"};

// A database opened read-only is never written, in either engine: a
// statement that changes rows is refused with 3027, through Execute or
// OpenRecordset, and the file keeps its bytes.
TEST(AmbosMotores, AReadOnlyDatabaseIsNeverWritten) {
  testing::DirectorioTemporal tmp;
  for (const char* motor : kMotores) {
    SCOPED_TRACE(motor);
    const fs::path copia =
        tmp.Copia(kCatalogo / motor / "estadisticas.mdb", std::string(motor) + ".mdb");
    const auto bytes = [&] { return testing::ReadFile(copia); };
    const std::string antes = bytes();
    auto bd = OpenDatabase(copia.string(), kPage, {.read_only = true});
    const std::string insert = "INSERT INTO Consultas (Buscado,Encontrados) VALUES ('gato',1)";
    EXPECT_EQ(testing::ErrorNumberOf([&] { bd->Execute(insert); }), kErrSoloLectura);
    EXPECT_EQ(testing::ErrorNumberOf([&] { bd->OpenRecordset(insert, RecordsetType::Dynaset); }),
              kErrSoloLectura);
    EXPECT_EQ(testing::ErrorNumberOf(
                  [&] { bd->OpenRecordset(" delete FROM Consultas", RecordsetType::Dynaset); }),
              kErrSoloLectura);
    bd->Close();
    EXPECT_EQ(bytes(), antes);
  }
}

// A statement that would run for ever ends when the deadline passes, in
// either engine (Jet statements run in an SQLite connection of their own).
TEST(AmbosMotores, ARunawayStatementEndsAtTheDeadline) {
  const std::string kSinFin =
      "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) "
      "SELECT max(x) AS n FROM c, Configuracion";
  for (const char* motor : kMotores) {
    SCOPED_TRACE(motor);
    testing::PlazoDeMiradas plazo(5);
    auto db = OpenDatabase((kCatalogo / motor / "KORVEL8.MDB").string(), kPage,
                           {.read_only = true, .plazo = &plazo});
    EXPECT_THROW(db->OpenRecordset(kSinFin, RecordsetType::Snapshot), TiempoAgotado);
    EXPECT_GT(plazo.Miradas(), 5);
  }
}

// Without a deadline, or before it passes, statements answer as always.
TEST(AmbosMotores, BeforeTheDeadlineStatementsAnswerAsAlways) {
  const std::string kLarga =
      "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c WHERE x < 100000) "
      "SELECT max(x) AS n FROM c";
  for (const char* motor : kMotores) {
    SCOPED_TRACE(motor);
    const std::string archivo = (kCatalogo / motor / "KORVEL8.MDB").string();
    testing::PlazoDeMiradas nunca(1 << 30);
    for (Plazo* plazo : {static_cast<Plazo*>(nullptr), static_cast<Plazo*>(&nunca)}) {
      auto db = OpenDatabase(archivo, kPage, {.read_only = true, .plazo = plazo});
      EXPECT_EQ(db->OpenRecordset(kLarga, RecordsetType::Snapshot)->Field("n").integer, 100000);
      auto fichas = db->OpenRecordset("Fichas", RecordsetType::Table);
      fichas->MoveLast();
      EXPECT_EQ(fichas->RecordCount(), 347);
    }
    EXPECT_GT(nunca.Miradas(), 0);  // the statement was watched
  }
}

// The Jet engine's own walks of a whole table look at the deadline too.
TEST(JetDatabase, WholeTableWalksEndAtTheDeadline) {
  struct Caso {
    const char* nombre;
    std::function<void(Recordset&)> recorre;
  } casos[] = {
      {"MoveLast", [](Recordset& rs) { rs.MoveLast(); }},
      {"sorted scan",
       [](Recordset& rs) {
         rs.SetIndex("FRASE");
         rs.Seek("=", {Value::Of(std::string("COMPUT*"))});
       }},
  };
  for (const Caso& c : casos) {
    testing::PlazoDeMiradas plazo(1);
    auto db = OpenDatabase((kCatalogo / "jet" / "INDIZADO.MDB").string(), kPage,
                           {.read_only = true, .plazo = &plazo});
    auto rs = db->OpenRecordset("TABLA", RecordsetType::Table);
    EXPECT_THROW(c.recorre(*rs), TiempoAgotado) << c.nombre;
  }
}

// What no page asks for and only an attacker would: each engine's SQL
// connection refuses it, and still takes what pages ask for.
TEST(AmbosMotores, TheConnectionsRefuseWhatNoPageAsksFor) {
  testing::DirectorioTemporal tmp;
  const std::string otra = tmp.Copia(kCatalogo / "sqlite" / "KORVEL8.MDB", "otra.mdb").string();
  const auto cadena = [](int n) {  // an expression tree n deep
    std::string sql = "SELECT 1";
    for (int i = 1; i < n; ++i) sql += "+1";
    return sql + " AS v";
  };
  const auto patron = [](std::size_t n) {
    return "SELECT 1 AS v WHERE 'abc' LIKE '" + std::string(n - 1, '?') + "*'";
  };
  const std::string refusadas[] = {
      "SELECT length(zeroblob(100000000)) AS v",  // a value of 100 MB
      "SELECT hex(zeroblob(5000000)) AS v",       // a text of 10 MB
      "SELECT load_extension('/no/existe.so') AS v",
      "ATTACH DATABASE '" + otra + "' AS otra",
      "SELECT fts3_tokenizer('simple', x'0000000000000000') AS v",
      cadena(300),
      patron(1001),
      "SELECT ?101 AS v",
  };
  const std::string admitidas[] = {
      "SELECT length(zeroblob(1000000)) AS v",
      cadena(150),
      patron(1000),
  };
  for (const char* motor : kMotores) {
    SCOPED_TRACE(motor);
    const fs::path copia = tmp.Copia(kCatalogo / motor / "estadisticas.mdb", "estadisticas.mdb");
    auto db = OpenDatabase(copia.string(), kPage, {.busy_timeout_ms = 3000});
    for (const std::string& sql : refusadas) {
      EXPECT_NE(testing::ErrorNumberOf([&] { db->OpenRecordset(sql, RecordsetType::Snapshot); }), 0)
          << sql.substr(0, 80);
    }
    for (const std::string& sql : admitidas) {
      EXPECT_EQ(testing::ErrorNumberOf([&] { db->OpenRecordset(sql, RecordsetType::Snapshot); }), 0)
          << sql.substr(0, 80);
    }
    // The reader whose search text is too long for a pattern is told so.
    try {
      db->OpenRecordset(patron(1001), RecordsetType::Snapshot);
      ADD_FAILURE() << "a pattern of 1001 characters was taken";
    } catch (const RuntimeError& e) {
      EXPECT_NE(e.description().find("el texto buscado es demasiado largo"), std::string::npos)
          << e.description();
    }
  }
}

// Any text, as a literal of the dialect, reaches the engine byte for byte,
// and as a parameter too.
TEST(AmbosMotores, TextsReachTheEngineWhole) {
  using namespace std::string_literals;
  const std::string textos[] = {
      "#12/15/2008#", "[x]", "\"dice\"", "a & b", "-- nada", "a; b", "\\'\\", "\r\n",
      "'');DELETE FROM Consultas;--", "\xD1" "and\xFA \x80\x81\x9D\xFF", "antes\0despu\xE9s"s,
      "\0"s, "\0\0'\0"s, "?",
  };
  testing::DirectorioTemporal tmp;
  for (const char* motor : kMotores) {
    SCOPED_TRACE(motor);
    const fs::path copia = tmp.Copia(kCatalogo / motor / "estadisticas.mdb", "estadisticas.mdb");
    auto db = OpenDatabase(copia.string(), kPage, {.busy_timeout_ms = 3000});
    for (const std::string& texto : textos) {
      auto rs = db->OpenRecordset("SELECT " + CitaTexto(texto) + " AS v", RecordsetType::Snapshot);
      EXPECT_EQ(rs->Field("v").AsText(), texto);
      EXPECT_EQ(db->Execute("INSERT INTO Consultas (Buscado,Encontrados,IP_Address) VALUES (?,?,?)",
                            {Value::Of(texto.substr(0, 40)), Value::Of(std::int64_t{7}),
                             Value::Of(texto)}),
                1);
      auto fila = db->OpenRecordset("SELECT * FROM Consultas", RecordsetType::Snapshot);
      fila->MoveLast();
      EXPECT_EQ(fila->Field("IP_Address").AsText(), texto);
      EXPECT_EQ(fila->Field("Encontrados").integer, 7);
    }
    EXPECT_EQ(testing::ErrorNumberOf([&] {
                db->Execute("INSERT INTO Consultas (Buscado) VALUES (?)", {});
              }),
              kErrSintaxis);
    auto todas = db->OpenRecordset("SELECT count(*) AS n FROM Consultas", RecordsetType::Snapshot);
    EXPECT_EQ(todas->Field("n").integer, 3 + static_cast<std::int64_t>(std::size(textos)));
  }
}

TEST(JetDatabase, DamageIsAnEngineErrorNamingTheFile) {
  const fs::path dir = fs::temp_directory_path() / ("orvex-jet-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  const std::string bytes = testing::ReadFile(kCatalogo / "jet" / "INDIZADO.MDB");
  struct Caso {
    const char* nombre;
    std::string contenido;
  };
  std::string ceros = bytes;
  std::fill(ceros.begin() + 4096 * 2, ceros.begin() + 4096 * 3, '\0');  // the catalogue
  std::string jet3 = bytes;
  jet3[0x14] = 0;
  const Caso casos[] = {
      {"truncado.mdb", bytes.substr(0, 4096 * 5 + 100)},
      {"catalogo.mdb", ceros},
      {"jet3.mdb", jet3},
  };
  for (const Caso& c : casos) {
    const fs::path ruta = dir / c.nombre;
    std::ofstream(ruta, std::ios::binary) << c.contenido;
    const int n = testing::ErrorNumberOf([&] {
      auto db = OpenDatabase(ruta.string(), kPage, {.read_only = true});
      auto rs = db->OpenRecordset("SELECT * FROM TABLA", RecordsetType::Snapshot);
      while (!rs->Eof()) rs->MoveNext();
    });
    EXPECT_EQ(n, kErrFormatoNoReconocido) << c.nombre;
    const std::string mensaje = DescripcionDelError([&] {
      auto db = OpenDatabase(ruta.string(), kPage, {.read_only = true});
      auto rs = db->OpenRecordset("TABLA", RecordsetType::Table);
      rs->SetIndex("FRASE");
      rs->Seek("=", {Value::Of(std::string("NOVELA"))});
      while (!rs->Eof()) rs->MoveNext();
    });
    EXPECT_NE(mensaje.find(c.nombre), std::string::npos) << mensaje;
  }
  fs::remove_all(dir);
}

}  // namespace
}  // namespace orvex::db
