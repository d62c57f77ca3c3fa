#include "db/BasesConservadas.h"

#include <sys/stat.h>

#include <cstdint>
#include <utility>

namespace orvex::db {

std::optional<IdentidadArchivo> IdentidadDe(const std::string& ruta) {
  struct stat st {};
  if (ruta.find('\0') != std::string::npos || ::stat(ruta.c_str(), &st) != 0) return std::nullopt;
  return IdentidadArchivo{static_cast<std::uint64_t>(st.st_dev),
                          static_cast<std::uint64_t>(st.st_ino),
                          static_cast<std::int64_t>(st.st_size),
                          static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 +
                              st.st_mtim.tv_nsec};
}

// The deadline every kept database watches: the one Vigila set for the
// request being served, none between requests.
class BasesConservadas::PlazoVigente final : public Plazo {
 public:
  explicit PlazoVigente(const BasesConservadas& dueno) : dueno_(dueno) {}
  bool Vencido() noexcept override {
    Plazo* p = dueno_.PlazoVigilado();
    return p != nullptr && p->Vencido();
  }
  std::int64_t RestanteMs() noexcept override {
    Plazo* p = dueno_.PlazoVigilado();
    return p != nullptr ? p->RestanteMs() : INT64_MAX / 4;
  }

 private:
  const BasesConservadas& dueno_;
};

namespace {

// A kept database as one request sees it: everything goes to the database,
// but its Close, which leaves it open for the next request.
class BaseCompartida final : public Database {
 public:
  explicit BaseCompartida(std::shared_ptr<Database> base) : base_(std::move(base)) {}
  std::unique_ptr<Recordset> OpenRecordset(std::string_view source, RecordsetType type) override {
    return base_->OpenRecordset(source, type);
  }
  std::int64_t Execute(std::string_view sql) override { return base_->Execute(sql); }
  std::int64_t Execute(std::string_view sql, const std::vector<Value>& params) override {
    return base_->Execute(sql, params);
  }
  std::vector<std::string> TableNames() override { return base_->TableNames(); }
  std::vector<std::string> ColumnNames(std::string_view table) override {
    return base_->ColumnNames(table);
  }
  void Close() override {}

 private:
  std::shared_ptr<Database> base_;
};

}  // namespace

BasesConservadas::BasesConservadas(const CodePage& page)
    : BasesConservadas(
          [&page](const std::string& ruta, const OpenOptions& opciones) {
            return OpenDatabase(ruta, page, opciones);
          },
          IdentidadDe,
          [](const std::string& ruta) { return MotorDeArchivo(ruta) == Motor::Sqlite; }) {}

BasesConservadas::BasesConservadas(Abre abre, Identifica identifica,
                                   std::function<bool(const std::string&)> es_sqlite)
    : abre_(std::move(abre)),
      identifica_(std::move(identifica)),
      es_sqlite_(std::move(es_sqlite)),
      plazo_(std::make_unique<PlazoVigente>(*this)) {}

BasesConservadas::~BasesConservadas() = default;

std::unique_ptr<Database> BasesConservadas::Open(const std::string& path,
                                                 const OpenOptions& options) {
  if (options.plazo != nullptr) return abre_(path, Vigiladas(options));
  // What must stay the same for a kept database to serve: a written file
  // changes with every row, and only its replacement counts.
  const auto identidad_de = [&](const std::string& ruta) {
    std::optional<IdentidadArchivo> i = identifica_(ruta);
    if (i && !options.read_only) i->tamano = i->modificado_ns = 0;
    return i;
  };
  const Clave clave{path, options.read_only, options.busy_timeout_ms};
  const std::optional<IdentidadArchivo> antes = identidad_de(path);
  if (antes) {
    if (auto it = bases_.find(clave); it != bases_.end()) {
      if (it->second.identidad == *antes) return std::make_unique<BaseCompartida>(it->second.base);
      bases_.erase(it);
    }
  }
  // Only a SQLite file is kept; its engine is read from the file when it is
  // opened, not at every use.
  if (!es_sqlite_(path)) return abre_(path, Vigiladas(options));
  OpenOptions opciones = options;
  opciones.plazo = plazo_.get();
  // A file that cannot be examined opens (or fails, when it is missing) as
  // it always has, and is not kept.
  if (!antes) return abre_(path, opciones);
  IdentidadArchivo identidad = *antes;
  for (int intento = 1;; ++intento) {
    std::unique_ptr<Database> base = abre_(path, opciones);
    const std::optional<IdentidadArchivo> despues = identidad_de(path);
    if (despues && *despues == identidad) {
      if (bases_.size() >= kMaximo) bases_.clear();
      std::shared_ptr<Database> compartida(std::move(base));
      bases_[clave] = Conservada{identidad, compartida};
      return std::make_unique<BaseCompartida>(std::move(compartida));
    }
    if (!despues || intento == 3) return base;
    identidad = *despues;
  }
}

}  // namespace orvex::db
