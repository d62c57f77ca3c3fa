#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "base/CodePage.h"
#include "base/Plazo.h"
#include "db/Database.h"
#include "db/jet/Jet4.h"

// Private to db/: the SQL side of the Jet engine. Statements on a Jet file
// run in an SQLite connection in memory (OpenSqliteInMemory), which speaks
// the catalogue's dialect and in which every table of the file is a virtual
// table of the same name (module "orvex_jet"), so that they read exactly as
// on the SQLite catalogues:
// - a table is walked in storage order; an "=" on the first column of an
//   index (a long, integer, byte or text column) and a LIKE with a fixed
//   start on a text one descend the index's B-tree instead, SQLite checking
//   the condition again on every row it gets;
// - dates come out as ISO text, binary columns as blobs;
// - INSERT appends its row to the file itself (jet::AgregaFila), under the
//   writers' lock, from a fresh reading of the file; an UPDATE or DELETE
//   that reaches a table fails.
namespace orvex::db {

struct JetVirtualTableContext;  // what the tables share; JetVirtualTables.cpp

class JetSqlConnection {
 public:
  // A new connection presenting every table of `file` as read now. Its
  // statements stop with TiempoAgotado once `deadline` passes (none: no
  // deadline), and an INSERT waits up to `lock_wait_ms` for the writers'
  // lock. Raises 3343 when a table cannot be presented.
  JetSqlConnection(const jet::Archivo& file, const CodePage& page, Plazo* deadline,
                   int lock_wait_ms);
  ~JetSqlConnection();
  JetSqlConnection(const JetSqlConnection&) = delete;
  JetSqlConnection& operator=(const JetSqlConnection&) = delete;

  // A statement of the dialect, walked as on the SQLite catalogues.
  std::unique_ptr<Recordset> OpenRecordset(std::string_view sql, RecordsetType type);

  // Runs an INSERT and returns the rows appended. A row the writer refuses
  // (a table with indexes, a value its column cannot hold, the writers'
  // lock not had in time or another program's lock on the file) raises
  // 3027 with the writer's message; a column the table does not have raises
  // 3127 in Jet's words; a wait for the lock that reaches the deadline
  // raises TiempoAgotado. Once a row is appended, the file this connection
  // read is out of date: its owner reads the file afresh (and makes a new
  // connection) before using it again.
  std::int64_t Insert(std::string_view sql, const std::vector<Value>& params);

 private:
  std::unique_ptr<JetVirtualTableContext> context_;  // before sql_, whose tables point to it
  std::unique_ptr<Database> sql_;
};

}  // namespace orvex::db
