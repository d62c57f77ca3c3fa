#pragma once

namespace orvex::db {

// True when the SQLite engine initialises: the gateway's check that its
// database engine is installed and working.
bool SqliteEngineWorks();

// Sets the engine up for a process of one thread that opens a database or
// two and ends: no mutexes, no memory statistics, and no bulk page-cache or
// lookaside allocations at open (their memory would be touched, page by
// page, before the first query). Takes effect only before
// the engine initialises; harmless afterwards.
void ConfigureSqliteEngine();

}  // namespace orvex::db
