#pragma once

namespace orvex::db {

// True when the SQLite engine initialises: the gateway's check that its
// database engine is installed and working.
bool SqliteEngineWorks();

}  // namespace orvex::db
