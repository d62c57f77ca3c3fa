#pragma once

namespace orvex::db {

// True when the SQLite engine initialises: the gateway's check that its
// database engine is installed and working.
bool SqliteEngineWorks();

// Sets the engine up for a process of one thread that opens a database or
// two and ends: no mutexes, no memory statistics, no lookaside allocations
// at open, and the page cache in one block of memory that the kernel may
// back with a huge page (see SqliteEngine.cpp). Takes effect only before the
// engine initialises; harmless afterwards.
void ConfigureSqliteEngine();

// The engine's version, "3.40.1".
const char* VersionSqlite();

}  // namespace orvex::db
