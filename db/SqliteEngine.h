#pragma once

namespace orvex::db {

// True when the SQLite engine initialises and opens an in-memory database:
// the gateway's check that its database engine is installed and working.
bool SqliteEngineWorks();

}  // namespace orvex::db
