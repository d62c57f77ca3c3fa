#pragma once

#include <string>

#include "db/Database.h"

// The engine for Jet 4 catalogue files, read by Orvex's own reader
// (db/jet/Jet4.h). It reads every table, and writes one thing: the rows of
// an INSERT, appended to a table without indexes (the statistics row,
// db/jet/EscritorJet.h). No other statement changes the file.
//
// - Table-type recordsets (JetDatabase.cpp) walk the table in storage
//   order, or an index of the file in key order: SetIndex takes the file's
//   index names (ignoring case) and Seek descends the index's B-tree. A key
//   the index encoding does not cover (a text column in another sort order,
//   characters outside the word alphabet, a descending column) is sought in
//   a sorted scan of the table instead.
// - SQL (JetVirtualTables.cpp) runs in an SQLite connection in memory in
//   which every table of the file is a virtual table, so statements read
//   exactly as on the SQLite catalogues (dates as ISO text, the dialect's
//   comparisons). An "=" on the first column of an index, and a LIKE with a
//   fixed start on a text one, become seeks.
// - Execute of an INSERT appends its rows to the file (jet::AgregaFila),
//   waiting for the writers' lock up to OpenOptions::busy_timeout_ms; a row
//   the writer refuses (the lock not had in time among them) raises 3027
//   with the writer's message, and a column the table does not have raises
//   3127. The file is then read afresh before the database is used again.
//   Execute of any other statement raises 3027 (ALTER, CREATE and DROP
//   with a message of their own).
// - OpenRecordset runs its statement in the same connection: an INSERT
//   given to it appends too (without the reading afresh, and with the
//   SQL error 3075 for a row refused), and an UPDATE or DELETE fails with
//   3075.
// - With OpenOptions::read_only, as on SQLite, nothing is ever written: an
//   INSERT, UPDATE or DELETE, through Execute or OpenRecordset, raises 3027
//   before it reaches the file.
// - With OpenOptions::plazo, statements, whole-table walks and the wait for
//   the writers' lock stop with TiempoAgotado once the deadline passes.
// Damage found in the file raises 3343 with the reader's message, which
// names the file.
namespace orvex::db {

// Opens the Jet file in `path` (the caller has checked its first bytes).
std::unique_ptr<Database> OpenJetDatabase(const std::string& path, const CodePage& page,
                                          const OpenOptions& options);

}  // namespace orvex::db
