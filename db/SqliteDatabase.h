#pragma once

#include <functional>
#include <string>

#include "db/Database.h"

struct sqlite3;

namespace orvex::db {

// Opens an SQLite catalogue file (the caller has checked its first bytes).
// The connection speaks the catalogue's SQL dialect (JetSql.h): its text
// comparisons ignore letter case, LIKE takes the dialect's wildcards, and
// index names are looked up as "<table>_<index>", the form SQLite files of
// the catalogue use. Raises 3051 when the file cannot be opened.
// Every connection the gateway opens is hardened: the schema cannot be
// written behind the engine's back, a file's own schema runs no function
// with side effects, extensions cannot load, no other file can be attached,
// and values, statements and LIKE patterns have bounded sizes. With
// options.plazo, a statement still running, or a wait for a lock still
// waiting, when the deadline passes stops with TiempoAgotado.
std::unique_ptr<Database> OpenSqliteDatabase(const std::string& path, const CodePage& page,
                                             const OpenOptions& options);

// A connection in memory that speaks the same dialect, hardened as above,
// for an engine that presents its own tables to SQLite as virtual tables:
// `prepare` registers them on the new connection before any statement
// runs. Its statements are held to `deadline` (none: no deadline).
std::unique_ptr<Database> OpenSqliteInMemory(const CodePage& page,
                                             const std::function<void(sqlite3*)>& prepare,
                                             Plazo* deadline = nullptr);

}  // namespace orvex::db
