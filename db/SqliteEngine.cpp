#include "db/SqliteEngine.h"

#include <sqlite3.h>

namespace orvex::db {

bool SqliteEngineWorks() {
  // Initialising is the whole check: opening a database costs a request
  // time that only a query should pay.
  return sqlite3_libversion_number() >= 3000000 && sqlite3_initialize() == SQLITE_OK;
}

}  // namespace orvex::db
