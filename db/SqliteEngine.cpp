#include "db/SqliteEngine.h"

#include <sqlite3.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace orvex::db {
namespace {

// The page cache in one block of 2 MB, which the kernel backs with a single
// huge page where it can: every page a request reads needs a buffer, and on
// the machines Orvex runs on touching each fresh 4 KB buffer costs more than
// reading the page. Where the kernel keeps to small pages, the block costs
// what separate buffers cost; if it cannot be had, SQLite allocates buffers
// itself as before. Pages beyond the block's share are allocated too.
void GivePageCacheOneBlock() {
  constexpr std::size_t kBlock = std::size_t{2} << 20;
  int header = 0;
  if (sqlite3_config(SQLITE_CONFIG_PCACHE_HDRSZ, &header) != SQLITE_OK) return;
  const int slot = 4096 + header;
  // Twice the block, so that an aligned block lies inside it.
  void* region = mmap(nullptr, 2 * kBlock, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (region == MAP_FAILED) return;
  void* block = reinterpret_cast<void*>((reinterpret_cast<std::uintptr_t>(region) + kBlock - 1) &
                                        ~std::uintptr_t{kBlock - 1});
  madvise(block, kBlock, MADV_HUGEPAGE);
  sqlite3_config(SQLITE_CONFIG_PAGECACHE, block, slot, static_cast<int>(kBlock / slot));
}

}  // namespace

void ConfigureSqliteEngine() {
  static const bool configured = [] {
    sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);  // one request, one thread
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    GivePageCacheOneBlock();
    sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
    return true;
  }();
  (void)configured;
}

const char* VersionSqlite() { return sqlite3_libversion(); }

bool SqliteEngineWorks() {
  ConfigureSqliteEngine();
  // Initialising is the whole check: opening a database costs a request
  // time that only a query should pay.
  return sqlite3_libversion_number() >= 3000000 && sqlite3_initialize() == SQLITE_OK;
}

}  // namespace orvex::db
