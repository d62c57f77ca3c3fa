#pragma once

#include <cstdint>
#include <compare>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "base/CodePage.h"
#include "db/Database.h"

namespace orvex::db {

// What tells one file from another, and a file from itself after a change:
// its device and inode (a file replaced by a rename is another file), its
// size and its modification time in nanoseconds.
struct IdentidadArchivo {
  std::uint64_t dispositivo = 0;
  std::uint64_t inodo = 0;
  std::int64_t tamano = 0;
  std::int64_t modificado_ns = 0;
  bool operator==(const IdentidadArchivo&) const = default;
};

// The identity of the file `ruta` names (following links), none when it
// cannot be examined.
std::optional<IdentidadArchivo> IdentidadDe(const std::string& ruta);

// The opener of a process that serves request after request (a FastCGI
// worker): it keeps SQLite databases open from one request to the next,
// each only while its file is the same file:
//   - a database opened read-only (the catalogue) while its file is also
//     unchanged: a file that has been replaced or changed is opened afresh,
//     so a library that rebuilds its catalogue serves the new one from the
//     next request on;
//   - a database that requests write (the statistics) while its file has
//     not been replaced: its changes are the writers' own, which SQLite's
//     locks keep in order between the workers.
// Jet files, and databases held to a deadline of the caller's own, are
// opened afresh every time: a Jet file keeps every page it has read, which
// in a kept file would grow towards the whole catalogue, and a written one
// would not see the rows another worker appends.
//
// Before each use of a kept database the file's identity is read again. An
// open during which the file changed (its identity before and after
// differ) is not trusted: it is made again, up to three times, and a
// database whose file will not hold still is used for its request only.
//
// A kept database is handed out wrapped: the request's Close leaves it
// open, and the deadline it watches is the one Vigila set for the request
// that uses it. Requests are served one at a time.
class BasesConservadas final : public Opener {
 public:
  using Identifica = std::function<std::optional<IdentidadArchivo>(const std::string&)>;
  using Abre = std::function<std::unique_ptr<Database>(const std::string&, const OpenOptions&)>;

  // Opens with OpenDatabase in the code page `page` and reads identities
  // from the file system.
  explicit BasesConservadas(const CodePage& page);
  // For tests: opens with `abre`, reads identities with `identifica`, and
  // tells SQLite files by `es_sqlite`.
  BasesConservadas(Abre abre, Identifica identifica,
                   std::function<bool(const std::string&)> es_sqlite);
  ~BasesConservadas() override;
  BasesConservadas(const BasesConservadas&) = delete;
  BasesConservadas& operator=(const BasesConservadas&) = delete;

  std::unique_ptr<Database> Open(const std::string& path, const OpenOptions& options) override;

  // How many databases are kept open now.
  std::size_t Conservadas() const { return bases_.size(); }
  // At most this many files are kept open.
  static constexpr std::size_t kMaximo = 32;

 private:
  class PlazoVigente;
  struct Clave {
    std::string ruta;
    bool solo_lectura;
    int espera_ms;
    auto operator<=>(const Clave&) const = default;
  };
  struct Conservada {
    IdentidadArchivo identidad;
    std::shared_ptr<Database> base;
  };

  Abre abre_;
  Identifica identifica_;
  std::function<bool(const std::string&)> es_sqlite_;
  std::unique_ptr<PlazoVigente> plazo_;
  std::map<Clave, Conservada> bases_;
};

}  // namespace orvex::db
