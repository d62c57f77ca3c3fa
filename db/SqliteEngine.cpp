#include "db/SqliteEngine.h"

#include <sqlite3.h>

namespace orvex::db {

void ConfigureSqliteEngine() {
  static const bool configured = [] {
    sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);  // one request, one thread
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
    sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
    return true;
  }();
  (void)configured;
}

bool SqliteEngineWorks() {
  ConfigureSqliteEngine();
  // Initialising is the whole check: opening a database costs a request
  // time that only a query should pay.
  return sqlite3_libversion_number() >= 3000000 && sqlite3_initialize() == SQLITE_OK;
}

}  // namespace orvex::db
