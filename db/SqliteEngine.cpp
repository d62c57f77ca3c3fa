#include "db/SqliteEngine.h"

#include <sqlite3.h>

namespace orvex::db {

bool SqliteEngineWorks() {
  if (sqlite3_initialize() != SQLITE_OK) return false;
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READWRITE, nullptr);
  sqlite3_close(db);
  return rc == SQLITE_OK;
}

}  // namespace orvex::db
