#include "db/Database.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/RuntimeError.h"
#include "tests/db/PlazoDeMiradas.h"
#include "tests/support/Fakes.h"

namespace orvex::db {
namespace {

namespace fs = std::filesystem;

const fs::path kSqlite = fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite";
const CodePage& kPage = CodePage::Windows1252();

std::unique_ptr<Database> Catalogo(const char* archivo) {
  return OpenDatabase((kSqlite / archivo).string(), kPage, {.read_only = true});
}

std::vector<std::string> Column(Recordset& rs, const char* field) {
  std::vector<std::string> values;
  for (; !rs.Eof(); rs.MoveNext()) values.push_back(rs.Field(field).AsText());
  return values;
}

TEST(SqliteDatabase, WalksAStatementInItsOrder) {
  auto db = Catalogo("KORVEL8.MDB");
  auto rs = db->OpenRecordset("select * from EJEMPLARES where ficha_no=2", RecordsetType::Snapshot);
  EXPECT_EQ(rs->RecordCount(), 1);
  EXPECT_EQ(Column(*rs, "numadqui"), (std::vector<std::string>{"000123", "000124", "000125"}));
  EXPECT_EQ(rs->RecordCount(), 3);
  EXPECT_EQ(testing::ErrorNumberOf([&] { rs->MoveNext(); }), kErrNoRegistroActivo);
  rs->MoveFirst();
  EXPECT_EQ(rs->Field("NUMADQUI").AsText(), "000123");
  rs->MoveLast();
  EXPECT_EQ(rs->Field("NumAdqui").AsText(), "000125");
  rs->MoveNext();
  EXPECT_TRUE(rs->Eof());
}

TEST(SqliteDatabase, CountsTheRowsAfterMoveLast) {
  auto db = Catalogo("KORVEL8.MDB");
  auto rs = db->OpenRecordset("select * from Fichas", RecordsetType::Dynaset);
  rs->MoveLast();
  EXPECT_EQ(rs->RecordCount(), 347);
  auto vacio = db->OpenRecordset("select * from Fichas where Ficha_No = 2000000", RecordsetType::Dynaset);
  EXPECT_TRUE(vacio->Eof());
  EXPECT_EQ(vacio->RecordCount(), 0);
}

TEST(SqliteDatabase, ConvertsTextAndDatesAtTheBoundary) {
  auto db = Catalogo("KORVEL8.MDB");
  auto rs = db->OpenRecordset("select * from [Configuracion] where [Descripci\xF3n] = 'INSTITUCION'",
                              RecordsetType::Snapshot);
  ASSERT_FALSE(rs->Eof());
  EXPECT_EQ(rs->Field("valor").AsText(), "Universidad Aut\xF3noma de San Telmo");
  EXPECT_EQ(rs->Field("DESCRIPCI\xD3N").AsText(), "Institucion");

  auto ficha = db->OpenRecordset("select * from Fichas where Ficha_No = 1", RecordsetType::Snapshot);
  const Value fecha = ficha->Field("Fecha");
  ASSERT_EQ(fecha.type, Value::Type::Date);
  EXPECT_GE(fecha.date.year, 1900);
  EXPECT_EQ(ficha->Field("Ficha_No").integer, 1);
  const std::string marc = ficha->Field("EtiquetasMARC").AsText();
  EXPECT_EQ(marc.substr(0, 1), "\xA6");                      // field separator, one byte
  EXPECT_NE(marc.find("Cien a\xF1os de soledad"), std::string::npos);
  auto sin_fecha = db->OpenRecordset("select * from Fichas where Ficha_No = 45", RecordsetType::Snapshot);
  EXPECT_TRUE(sin_fecha->Field("Fecha").IsNull());
}

TEST(SqliteDatabase, ComparesTextIgnoringCaseAndTakesTheDialectsWildcards) {
  auto db = Catalogo("KORVEL8.MDB");
  auto igual = db->OpenRecordset("select * from Ejemplares where NumAdqui = 'C-0042'", RecordsetType::Snapshot);
  EXPECT_EQ(Column(*igual, "NumAdqui"), std::vector<std::string>{"c-0042"});
  auto comodin = db->OpenRecordset("select * from Ejemplares where NumAdqui like 'l''0*'", RecordsetType::Snapshot);
  EXPECT_EQ(Column(*comodin, "NumAdqui"), std::vector<std::string>{"L'0815"});
  auto union_ = db->OpenRecordset(
      "select f.Ficha_No, e.NumAdqui from Fichas f, Ejemplares e where f.Ficha_No = e.Ficha_No "
      "and e.Biblioteca like '*sala de consulta*' ORDER by 1 DESC",
      RecordsetType::Snapshot);
  EXPECT_EQ(Column(*union_, "NumAdqui"), std::vector<std::string>{"000777"});
}

TEST(SqliteDatabase, SeeksAnIndexAndWalksOnInIndexOrder) {
  auto db = Catalogo("INDIZADO.MDB");
  auto rs = db->OpenRecordset("TABLA", RecordsetType::Table);
  rs->SetIndex("FRASE");
  rs->Seek(">=", {Value::Of(std::string("ALGEBRA"))});
  ASSERT_FALSE(rs->NoMatch());
  EXPECT_EQ(rs->Field("palabra").AsText(), "ALGEBRA");
  std::int64_t ficha = -1;
  for (; !rs->Eof() && rs->Field("palabra").AsText() == "ALGEBRA"; rs->MoveNext()) {
    EXPECT_GE(rs->Field("ficha").integer, ficha);  // index order: word, record, position
    ficha = rs->Field("ficha").integer;
  }
  ASSERT_FALSE(rs->Eof());
  EXPECT_GT(rs->Field("palabra").AsText(), "ALGEBRA");

  rs->Seek("=", {Value::Of(std::string("ALGEBRA")), Value::Of(std::int64_t{19})});
  EXPECT_FALSE(rs->NoMatch());
  EXPECT_EQ(rs->Field("ficha").integer, 19);
  rs->Seek("=", {Value::Of(std::string("ZZZNOEXISTE"))});
  EXPECT_TRUE(rs->NoMatch());
  rs->Seek("<", {Value::Of(std::string("ALGEBRA"))});
  EXPECT_FALSE(rs->NoMatch());
  EXPECT_LT(rs->Field("palabra").AsText(), "ALGEBRA");
  rs->MoveNext();
  EXPECT_EQ(rs->Field("palabra").AsText(), "ALGEBRA");
}

// A seek backwards finds the last entry before the keys and walks on from
// it, also when the walk reads fewer fields than the index has columns.
TEST(SqliteDatabase, SeeksBackwardsWhateverTheFieldsRead) {
  auto db = Catalogo("INDIZADO.MDB");
  for (const std::vector<std::string>& campos :
       {std::vector<std::string>{}, {"palabra"}, {"palabra", "campo"}}) {
    auto rs = db->OpenRecordset("TABLA", RecordsetType::Table);
    rs->SetFields(campos);
    rs->SetIndex("FRASE");
    rs->Seek("<", {Value::Of(std::string("ALGEBRA"))});
    ASSERT_FALSE(rs->NoMatch()) << campos.size();
    const std::string anterior = rs->Field("palabra").AsText();
    EXPECT_LT(anterior, "ALGEBRA") << campos.size();
    for (; !rs->Eof() && rs->Field("palabra").AsText() == anterior; rs->MoveNext()) {
    }
    ASSERT_FALSE(rs->Eof());
    EXPECT_EQ(rs->Field("palabra").AsText(), "ALGEBRA") << campos.size();
  }
}

// Seeks keep their prepared statements; a change of the fields read or of
// the index must still be seen by the next seek.
TEST(SqliteDatabase, SeeksFollowTheFieldsAndIndexInForce) {
  auto db = Catalogo("INDIZADO.MDB");
  auto rs = db->OpenRecordset("TABLA", RecordsetType::Table);
  rs->SetIndex("FRASE");
  rs->SetFields({"palabra", "ficha"});
  const std::vector<Value> clave = {Value::Of(std::string("ALGEBRA")), Value::Of(std::int64_t{19})};
  rs->Seek("=", clave);
  ASSERT_FALSE(rs->NoMatch());
  EXPECT_EQ(testing::ErrorNumberOf([&] { rs->Field("posicion"); }), 3265);
  rs->SetFields({"palabra", "ficha", "posicion"});
  rs->Seek("=", clave);
  ASSERT_FALSE(rs->NoMatch());
  EXPECT_GT(rs->Field("posicion").integer, 0);
  // A key the fields read do not hold cannot be compared.
  rs->SetFields({"palabra"});
  EXPECT_EQ(testing::ErrorNumberOf([&] { rs->Seek("=", clave); }), 3265);
  // A whole key that differs in its last part is no match.
  rs->SetFields({"palabra", "ficha", "posicion"});
  rs->Seek("=", {Value::Of(std::string("ALGEBRA")), Value::Of(std::int64_t{19}),
                 Value::Of(std::int64_t{30000})});
  EXPECT_TRUE(rs->NoMatch());
  rs->Seek(">", {Value::Of(std::string("ALGEBRA"))});
  ASSERT_FALSE(rs->NoMatch());
  EXPECT_GT(rs->Field("palabra").AsText(), "ALGEBRA");
}

TEST(SqliteDatabase, SeeksThePrimaryKey) {
  auto db = Catalogo("KORVEL8.MDB");
  auto rs = db->OpenRecordset("fichas", RecordsetType::Table);
  rs->SetIndex("PrimaryKey");
  rs->Seek("=", {Value::Of(std::int64_t{1500})});
  ASSERT_FALSE(rs->NoMatch());
  EXPECT_NE(rs->Field("EtiquetasMARC").AsText().find("Rayuela"), std::string::npos);
}

TEST(SqliteDatabase, RaisesTheEnginesErrors) {
  auto db = Catalogo("KORVEL8.MDB");
  auto rs = db->OpenRecordset("select * from Fichas", RecordsetType::Snapshot);
  EXPECT_EQ(testing::ErrorNumberOf([&] { rs->Field("NoExiste"); }), kErrElementoNoEncontrado);
  EXPECT_EQ(testing::ErrorNumberOf([&] { rs->SetIndex("FRASE"); }), kErrOperacionNoValida);
  EXPECT_EQ(testing::ErrorNumberOf([&] { db->OpenRecordset("NoHay", RecordsetType::Table); }),
            kErrTablaNoEncontrada);
  auto tabla = db->OpenRecordset("Fichas", RecordsetType::Table);
  EXPECT_EQ(testing::ErrorNumberOf([&] { tabla->SetIndex("NoEsIndice"); }), 3800);
  EXPECT_EQ(testing::ErrorNumberOf([&] { db->OpenRecordset("selec mal", RecordsetType::Snapshot); }),
            kErrSintaxis);
  EXPECT_EQ(testing::ErrorNumberOf([&] { db->Execute("delete from Fichas"); }), kErrSoloLectura);
}

class CopiaEscribible : public ::testing::Test {
 protected:
  testing::DirectorioTemporal tmp_;
  const std::string copia_ = tmp_.Copia(kSqlite / "estadisticas.mdb", "estadisticas.mdb").string();
};

TEST_F(CopiaEscribible, InsertsWithDateLiteralsAndCountsTheRows) {
  auto db = OpenDatabase(copia_, kPage, {.busy_timeout_ms = 5000});
  EXPECT_EQ(db->Execute("INSERT INTO Consultas (Fecha,Buscado,Encontrados,AdvSearch,IP_Address)  "
                        "VALUES (#12/15/2008 09:30:11#,'CAMION D''ARC',7,2,'-')"),
            1);
  auto rs = db->OpenRecordset("select * from Consultas where Buscado = 'camion d''arc'",
                              RecordsetType::Snapshot);
  ASSERT_FALSE(rs->Eof());
  EXPECT_EQ(rs->Field("Fecha").AsText(), "2008-12-15 09:30:11");
  EXPECT_EQ(rs->Field("AdvSearch").AsText(), "2");
  EXPECT_EQ(db->TableNames(), std::vector<std::string>{"Consultas"});
  EXPECT_EQ(db->ColumnNames("consultas"),
            (std::vector<std::string>{"Fecha", "Buscado", "Encontrados", "AdvSearch", "IP_Address"}));
}

TEST_F(CopiaEscribible, RunsOnlyOneStatement) {
  auto db = OpenDatabase(copia_, kPage);
  EXPECT_EQ(testing::ErrorNumberOf([&] {
              db->OpenRecordset("select * from Consultas; delete from Consultas",
                                RecordsetType::Snapshot);
            }),
            3142);
  auto rs = db->OpenRecordset("select * from Consultas", RecordsetType::Snapshot);
  rs->MoveLast();
  EXPECT_EQ(rs->RecordCount(), 3);
}

// Recordsets of one database share its prepared statements and what it
// knows of its schema: a statement is never shared by two recordsets in use
// at once, and what a statement changes in the schema is seen next.
TEST_F(CopiaEscribible, RecordsetsShareStatementsButNeverAtOnce) {
  auto db = OpenDatabase(copia_, kPage);
  db->Execute("CREATE TABLE Listas (clave TEXT PRIMARY KEY, datos BLOB)");  // after no table list
  EXPECT_EQ(db->TableNames().size(), 2u);
  db->Execute("CREATE TABLE Otra (clave TEXT)");
  EXPECT_EQ(db->TableNames().size(), 3u);
  db->Execute("INSERT INTO Listas VALUES ('A', x'00FF0041'), ('B', 'texto'), ('C', x'01')");

  auto abre = [&](const char* clave) {
    auto rs = db->OpenRecordset("listas", RecordsetType::Table);
    rs->SetIndex("PrimaryKey");
    rs->Seek(">=", {Value::Of(std::string(clave))});
    return rs;
  };
  auto a = abre("A");
  auto b = abre("B");  // the same seek statement, while the first is still walked
  EXPECT_EQ(a->Field("clave").AsText(), "A");
  EXPECT_EQ(a->FieldBytes("datos"), std::string("\x00\xFF\x00\x41", 4));
  EXPECT_EQ(b->FieldBytes("datos"), "texto");
  a->MoveNext();
  EXPECT_EQ(a->Field("clave").AsText(), "B");
  b->MoveNext();
  EXPECT_EQ(b->Field("clave").AsText(), "C");
  a.reset();
  b.reset();
  auto c = abre("C");  // a statement given back is reset and rebound
  EXPECT_EQ(c->Field("clave").AsText(), "C");
  c->MoveNext();
  EXPECT_TRUE(c->Eof());

  // An index chosen but never sought walks the table in its order.
  auto todo = db->OpenRecordset("Listas", RecordsetType::Table);
  todo->SetIndex("PrimaryKey");
  EXPECT_EQ(Column(*todo, "clave"), (std::vector<std::string>{"A", "B", "C"}));
  db->Close();  // the recordset's statements are finalised after it, not given back
}

// Each request opens the statistics, writes one row and closes. The log
// stays between requests but never grows past a few dozen pages, and every
// row is in the file for the next reader.
TEST_F(CopiaEscribible, TheWriteAheadLogStaysShortAcrossManyWriters) {
  for (int i = 0; i < 300; ++i) {
    auto db = OpenDatabase(copia_, kPage, {.busy_timeout_ms = 5000});
    db->Execute("INSERT INTO Consultas (Fecha,Buscado,Encontrados,AdvSearch,IP_Address)  "
                "VALUES (#12/15/2008 09:30:11#,'" + std::string(200, 'x') + "'," +
                std::to_string(i) + ",2,'-')");
    db->Close();
    ASSERT_LT(fs::file_size(copia_ + "-wal"), 80u * 4096) << "after " << i + 1 << " writers";
  }
  auto db = OpenDatabase(copia_, kPage, {.read_only = true});
  auto rs = db->OpenRecordset("select * from Consultas", RecordsetType::Snapshot);
  rs->MoveLast();
  EXPECT_EQ(rs->RecordCount(), 303);
}

std::int64_t Cuenta(const std::string& archivo) {
  auto db = OpenDatabase(archivo, kPage, {.read_only = true});
  auto rs = db->OpenRecordset("SELECT count(*) AS n FROM Consultas", RecordsetType::Snapshot);
  return rs->Field("n").integer;
}

// The schema cannot be written behind the engine's back, even by a
// statement that asks to.
TEST_F(CopiaEscribible, TheSchemaCannotBeWrittenDirectly) {
  auto db = OpenDatabase(copia_, kPage, {.busy_timeout_ms = 5000});
  db->Execute("PRAGMA writable_schema=ON");
  EXPECT_NE(testing::ErrorNumberOf([&] {
              db->Execute("UPDATE sqlite_master SET sql = 'CREATE TABLE Consultas (x)' "
                          "WHERE name = 'Consultas'");
            }),
            0);
  EXPECT_NE(testing::ErrorNumberOf([&] { db->Execute("DELETE FROM sqlite_master"); }), 0);
  db->Close();
  EXPECT_EQ(OpenDatabase(copia_, kPage)->ColumnNames("Consultas"),
            (std::vector<std::string>{"Fecha", "Buscado", "Encontrados", "AdvSearch", "IP_Address"}));
  EXPECT_EQ(Cuenta(copia_), 3);
}

// Another writer holds the file: the wait for it ends at the deadline,
// whether the file is already in write-ahead log mode (the engine's busy
// wait) or is being switched to it (the switch's own wait); without a
// deadline, at the wait's end with the engine's lock error.
TEST_F(CopiaEscribible, TheWaitForAnotherWriterEndsAtTheDeadline) {
  for (const bool ya_en_registro : {true, false}) {
    SCOPED_TRACE(ya_en_registro ? "write-ahead log" : "switch to the log");
    testing::DirectorioTemporal tmp;
    const std::string copia = tmp.Copia(kSqlite / "estadisticas.mdb", "estadisticas.mdb").string();
    const OpenOptions del_otro = ya_en_registro ? OpenOptions{.busy_timeout_ms = 100} : OpenOptions{};
    auto otro = OpenDatabase(copia, kPage, del_otro);
    otro->Execute("BEGIN EXCLUSIVE");
    const std::string insert =
        "INSERT INTO Consultas (Fecha,Buscado,Encontrados,AdvSearch,IP_Address)  "
        "VALUES (#12/15/2008 09:30:11#,'GATO',1,2,'-')";

    testing::PlazoDeMiradas plazo(3);
    EXPECT_THROW(OpenDatabase(copia, kPage, {.busy_timeout_ms = 600000, .plazo = &plazo})->Execute(insert),
                 TiempoAgotado);
    EXPECT_GT(plazo.Miradas(), 3);
    if (ya_en_registro) {
      EXPECT_EQ(testing::ErrorNumberOf([&] {
                  OpenDatabase(copia, kPage, {.busy_timeout_ms = 30})->Execute(insert);
                }),
                kErrBloqueado);
    }
    otro->Execute("ROLLBACK");
    otro.reset();
    EXPECT_EQ(Cuenta(copia), 3);
  }
}

TEST(OpenDatabase, RefusesMissingFilesAndOtherFormats) {
  EXPECT_EQ(testing::ErrorNumberOf([] { OpenDatabase("/no/existe/KORVEL8.MDB", kPage); }),
            kErrArchivoBaseNoEncontrado);
  EXPECT_EQ(testing::ErrorNumberOf([] {
              OpenDatabase((fs::path(ORVEX_FIXTURES) / "catalogo" / "README.md").string(), kPage);
            }),
            kErrFormatoNoReconocido);
}

}  // namespace
}  // namespace orvex::db

namespace orvex::db {
namespace {

// The engine is told by the marks the file holds, never by bytes it lacks.
TEST(MotorDeArchivo, TellsTheEngineByTheMarkTheFileHolds) {
  const testing::DirectorioTemporal tmp;
  const auto escribe = [&](const std::string& nombre, const std::string& bytes) {
    std::ofstream(tmp.ruta() / nombre, std::ios::binary) << bytes;
    return (tmp.ruta() / nombre).string();
  };
  const std::string jet_sin_fin = std::string("\0\1\0\0Standard Jet DB", 19);
  const struct {
    std::string ruta;
    Motor motor;
  } casos[] = {
      {(kSqlite / "KORVEL8.MDB").string(), Motor::Sqlite},
      {(fs::path(ORVEX_FIXTURES) / "catalogo" / "jet" / "KORVEL8.MDB").string(), Motor::Jet},
      {escribe("sqlite16", std::string("SQLite format 3\0", 16)), Motor::Sqlite},
      {escribe("sqlite15", "SQLite format 3"), Motor::Desconocido},
      {escribe("jet19", jet_sin_fin), Motor::Jet},
      {escribe("jet18", jet_sin_fin.substr(0, 18)), Motor::Desconocido},
      {escribe("vacio", ""), Motor::Desconocido},
      {escribe("texto", "Ficha_No;Fecha\r\n1;2004-03-01\r\n"), Motor::Desconocido},
      {(tmp.ruta() / "no-existe").string(), Motor::Ilegible},
      {std::string("KORVEL8.MDB\0x", 13), Motor::Ilegible},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(MotorDeArchivo(c.ruta), c.motor) << c.ruta;
  }
}

}  // namespace
}  // namespace orvex::db
