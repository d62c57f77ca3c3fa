#pragma once

#include <string>

#include "db/Database.h"

// The engine for Jet 4 catalogue files, read by Orvex's own reader
// (db/jet/Jet4.h). The only change it makes to a file is an INSERT into a
// table without indexes (the statistics row, db/jet/EscritorJet.h); every
// other statement that would change the file is an engine error.
//
// - Table-type recordsets walk the table in storage order, or an index of
//   the file in key order: SetIndex takes the file's index names (ignoring
//   case) and Seek descends the index's B-tree. A key the index encoding
//   does not cover (a text column in another sort order, characters outside
//   the word alphabet, a descending column) is sought in a sorted scan of
//   the table instead.
// - SQL runs in an SQLite connection in memory in which every table of the
//   file is a virtual table, so statements read exactly as on the SQLite
//   catalogues (dates as ISO text, the dialect's comparisons). An "=" on the
//   first column of an index, and a LIKE with a fixed start on a text one,
//   become seeks.
// - Execute appends the rows of an INSERT (jet::AgregaFila), waiting for the
//   writers' lock up to OpenOptions::busy_timeout_ms; a lock not had in time
//   raises 3027 with the writer's message. Any other change raises 3027:
//   the file is otherwise read-only to Orvex.
// - With OpenOptions::plazo, statements, whole-table walks and the wait for
//   the writers' lock stop with TiempoAgotado once the deadline passes.
// Damage found in the file raises 3343 with the reader's message, which
// names the file.
namespace orvex::db {

// Opens the Jet file in `path` (the caller has checked its first bytes).
std::unique_ptr<Database> OpenJetDatabase(const std::string& path, const CodePage& page,
                                          const OpenOptions& options);

}  // namespace orvex::db
