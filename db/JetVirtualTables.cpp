#include "db/JetVirtualTables.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

#include "base/RuntimeError.h"
#include "db/JetEngineErrors.h"
#include "db/SqliteDatabase.h"
#include "db/jet/EscritorJet.h"

namespace orvex::db {

// What the connection's tables share with it: the file as read, the
// writers' lock wait, and what the last INSERT met, for Insert to report
// once SQLite has returned (nothing is thrown through SQLite).
struct JetVirtualTableContext {
  const jet::Archivo* file = nullptr;
  Plazo* deadline = nullptr;  // the request's deadline; none: no deadline
  int lock_wait_ms = 0;       // the longest wait for the writers' lock
  std::string write_error;    // why the last row was not written (Windows-1252)
  bool lock_wait_expired = false;  // the wait for the lock reached the deadline
};

namespace {

using jet::ErrorJet;

struct VirtualTable {
  sqlite3_vtab base{};
  JetVirtualTableContext* context = nullptr;
  const jet::Archivo* file = nullptr;
  const jet::Tabla* table = nullptr;
};

struct VirtualCursor {
  sqlite3_vtab_cursor base{};
  std::unique_ptr<jet::Filas> rows;
  std::unique_ptr<jet::CursorIndice> index;
  std::string key;  // the seek's key: entries that begin with it qualify
  bool eof = true;
  sqlite3_int64 rowid = 0;
};

// Kinds of plan in idxNum: the index's place in the table, times 4, plus
// the kind.
constexpr int kPlanScan = 0, kPlanEqual = 1, kPlanPrefix = 2;

int ReportError(sqlite3_vtab* vtab, const std::exception& e, int rc) {
  sqlite3_free(vtab->zErrMsg);
  vtab->zErrMsg = sqlite3_mprintf("%s", e.what());
  return rc;
}

// The column's type as a Jet table declares it, which SQLite reads for the
// column's affinity and the engine for telling dates.
std::string DeclaredType(const jet::Columna& c) {
  switch (c.tipo) {
    case jet::TipoColumna::Booleano: return "BIT";
    case jet::TipoColumna::Byte: return "TINYINT";
    case jet::TipoColumna::Entero: return "SMALLINT";
    case jet::TipoColumna::Largo: return "INTEGER";
    case jet::TipoColumna::Moneda: return "CURRENCY";
    case jet::TipoColumna::Simple:
    case jet::TipoColumna::Doble: return "DOUBLE";
    case jet::TipoColumna::Fecha: return "DATETIME";
    case jet::TipoColumna::Texto: return "VARCHAR(" + std::to_string(c.tamano / 2) + ")";
    case jet::TipoColumna::Memo: return "LONGTEXT";
    case jet::TipoColumna::Guid: return "VARCHAR(38)";
    case jet::TipoColumna::Numerico: return "DECIMAL";
    case jet::TipoColumna::Binario:
    case jet::TipoColumna::Ole: return "BLOB";
  }
  return "";
}

std::string QuotedName(std::string_view name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

// A table of the file, by its place in the catalogue's list (the module's
// one argument).
int VtConnect(sqlite3* db, void* aux, int argc, const char* const* argv, sqlite3_vtab** vtab,
              char** error) {
  auto* context = static_cast<JetVirtualTableContext*>(aux);
  const jet::Archivo* file = context->file;
  try {
    if (argc < 4) return SQLITE_ERROR;
    const std::vector<std::string> names = file->NombresTablas();
    const size_t n = static_cast<size_t>(std::atoi(argv[3]));
    const jet::Tabla* table = n < names.size() ? file->BuscaTabla(names[n]) : nullptr;
    if (table == nullptr) return SQLITE_ERROR;
    std::string schema = "CREATE TABLE x(";
    for (size_t i = 0; i < table->columnas.size(); ++i) {
      schema += (i == 0 ? "" : ", ") + QuotedName(table->columnas[i].nombre) + " " +
                DeclaredType(table->columnas[i]);
    }
    schema += ")";
    const int rc = sqlite3_declare_vtab(db, schema.c_str());
    if (rc != SQLITE_OK) return rc;
    auto* v = new VirtualTable();
    v->context = context;
    v->file = file;
    v->table = table;
    *vtab = &v->base;
    return SQLITE_OK;
  } catch (const std::exception& e) {
    *error = sqlite3_mprintf("%s", e.what());
    return SQLITE_CORRUPT;
  }
}

int VtDisconnect(sqlite3_vtab* vtab) {
  delete reinterpret_cast<VirtualTable*>(vtab);
  return SQLITE_OK;
}

// True when the index's first column takes a key the plan can seek: a text
// for a LIKE's fixed start, a long, integer, byte or text value for "=".
bool KeyIsSeekable(const jet::Tabla& table, const jet::Indice& index, bool for_like) {
  if (index.columnas.empty()) return false;
  const jet::TipoColumna t = table.columnas[index.columnas[0].columna].tipo;
  if (for_like) return t == jet::TipoColumna::Texto;
  return t == jet::TipoColumna::Largo || t == jet::TipoColumna::Entero ||
         t == jet::TipoColumna::Byte || t == jet::TipoColumna::Texto;
}

int VtBestIndex(sqlite3_vtab* vtab, sqlite3_index_info* info) {
  const jet::Tabla& table = *reinterpret_cast<VirtualTable*>(vtab)->table;
  info->idxNum = kPlanScan;
  info->estimatedCost = 10.0 + table.filas;
  info->estimatedRows = table.filas;
  for (int c = 0; c < info->nConstraint; ++c) {
    const auto& r = info->aConstraint[c];
    if (!r.usable || r.iColumn < 0) continue;
    const bool equal = r.op == SQLITE_INDEX_CONSTRAINT_EQ;
    const bool like = r.op == SQLITE_INDEX_CONSTRAINT_LIKE;
    if (!equal && !like) continue;
    for (size_t i = 0; i < table.indices.size(); ++i) {
      const jet::Indice& index = table.indices[i];
      if (index.columnas.empty() ||
          index.columnas[0].columna != static_cast<size_t>(r.iColumn) ||
          !KeyIsSeekable(table, index, like)) {
        continue;
      }
      // The engine checks the constraint again on each row it gets.
      info->aConstraintUsage[c].argvIndex = 1;
      info->aConstraintUsage[c].omit = 0;
      info->idxNum = static_cast<int>(i) * 4 + (equal ? kPlanEqual : kPlanPrefix);
      info->estimatedCost = equal ? 10.0 : 100.0;
      info->estimatedRows = equal ? 10 : 100;
      return SQLITE_OK;
    }
  }
  return SQLITE_OK;
}

int VtOpen(sqlite3_vtab* vtab, sqlite3_vtab_cursor** cursor) {
  auto* v = reinterpret_cast<VirtualTable*>(vtab);
  try {
    auto* c = new VirtualCursor();
    c->rows = std::make_unique<jet::Filas>(*v->file, *v->table);
    *cursor = &c->base;
    return SQLITE_OK;
  } catch (const std::exception& e) {
    return ReportError(vtab, e, SQLITE_CORRUPT);
  }
}

int VtClose(sqlite3_vtab_cursor* cursor) {
  delete reinterpret_cast<VirtualCursor*>(cursor);
  return SQLITE_OK;
}

// Puts the cursor on the row of its index entry, or at the end when the
// entry no longer begins with the key.
void FollowIndex(VirtualCursor& c, const jet::Archivo& file) {
  if (c.eof || !c.index->ClaveActual().starts_with(c.key)) {
    c.eof = true;
    return;
  }
  if (!c.rows->Ve(c.index->Fila())) {
    throw ErrorJet(Latin1("Base de datos Jet dañada '") + file.Nombre() +
                   Latin1("': un índice apunta a una fila que no existe."));
  }
}

// The fixed start of a LIKE pattern of the dialect: the text before its
// first wildcard.
std::string FixedStart(std::string_view pattern) {
  return std::string(pattern.substr(0, std::min(pattern.find_first_of("*?#[%_"), pattern.size())));
}

int VtFilter(sqlite3_vtab_cursor* cursor, int idx, const char*, int argc, sqlite3_value** argv) {
  auto& c = *reinterpret_cast<VirtualCursor*>(cursor);
  auto* v = reinterpret_cast<VirtualTable*>(cursor->pVtab);
  try {
    c.rowid = 0;
    c.index.reset();
    const int plan = idx % 4;
    if (plan != kPlanScan && argc == 1) {
      const jet::Indice& index = v->table->indices[static_cast<size_t>(idx / 4)];
      std::vector<jet::Valor> keys(1);
      sqlite3_value* value = argv[0];
      if (sqlite3_value_type(value) == SQLITE_INTEGER) {
        keys[0] = jet::Valor::DeEntero(sqlite3_value_int64(value));
      } else if (sqlite3_value_type(value) == SQLITE_TEXT) {
        const std::string text(reinterpret_cast<const char*>(sqlite3_value_text(value)),
                               static_cast<size_t>(sqlite3_value_bytes(value)));
        keys[0] = jet::Valor::DeTexto(plan == kPlanPrefix ? FixedStart(text) : text);
      }
      auto index_cursor = std::make_unique<jet::CursorIndice>(*v->file, *v->table, index);
      std::optional<std::string> key;
      if (keys[0].tipo != jet::Valor::Tipo::Nulo &&
          !(plan == kPlanPrefix && keys[0].bytes.empty())) {
        key = index_cursor->Clave(keys);
      }
      // A fixed start is every key that begins with its letters: the text's
      // key without its end marks. One with marked letters is scanned.
      if (key && plan == kPlanPrefix) {
        if (key->size() >= 2 && key->ends_with(std::string_view("\x01\x00", 2))) {
          key->resize(key->size() - 2);
        } else {
          key.reset();
        }
      }
      if (key) {
        c.index = std::move(index_cursor);
        c.key = std::move(*key);
        c.eof = !c.index->Busca(c.key);
        FollowIndex(c, *v->file);
        return SQLITE_OK;
      }
    }
    c.rows->Reinicia();
    c.eof = !c.rows->Siguiente();
    return SQLITE_OK;
  } catch (const std::exception& e) {
    return ReportError(cursor->pVtab, e, SQLITE_CORRUPT);
  }
}

int VtNext(sqlite3_vtab_cursor* cursor) {
  auto& c = *reinterpret_cast<VirtualCursor*>(cursor);
  try {
    ++c.rowid;
    if (c.index) {
      c.eof = !c.index->Siguiente();
      FollowIndex(c, *reinterpret_cast<VirtualTable*>(cursor->pVtab)->file);
    } else {
      c.eof = !c.rows->Siguiente();
    }
    return SQLITE_OK;
  } catch (const std::exception& e) {
    return ReportError(cursor->pVtab, e, SQLITE_CORRUPT);
  }
}

int VtEof(sqlite3_vtab_cursor* cursor) {
  return reinterpret_cast<VirtualCursor*>(cursor)->eof ? 1 : 0;
}

int VtColumn(sqlite3_vtab_cursor* cursor, sqlite3_context* ctx, int i) {
  auto& c = *reinterpret_cast<VirtualCursor*>(cursor);
  try {
    const jet::Valor v = c.rows->Lee(static_cast<size_t>(i));
    switch (v.tipo) {
      case jet::Valor::Tipo::Nulo: sqlite3_result_null(ctx); break;
      case jet::Valor::Tipo::Entero: sqlite3_result_int64(ctx, v.entero); break;
      case jet::Valor::Tipo::Real: sqlite3_result_double(ctx, v.real); break;
      case jet::Valor::Tipo::Texto:
        sqlite3_result_text(ctx, v.bytes.data(), static_cast<int>(v.bytes.size()), SQLITE_TRANSIENT);
        break;
      case jet::Valor::Tipo::Fecha: {
        const std::string iso = jet::FechaISO(v.real);
        sqlite3_result_text(ctx, iso.data(), static_cast<int>(iso.size()), SQLITE_TRANSIENT);
        break;
      }
      case jet::Valor::Tipo::Binario:
        sqlite3_result_blob(ctx, v.bytes.data(), static_cast<int>(v.bytes.size()), SQLITE_TRANSIENT);
        break;
    }
    return SQLITE_OK;
  } catch (const std::exception& e) {
    return ReportError(cursor->pVtab, e, SQLITE_CORRUPT);
  }
}

int VtRowid(sqlite3_vtab_cursor* cursor, sqlite3_int64* rowid) {
  *rowid = reinterpret_cast<VirtualCursor*>(cursor)->rowid;
  return SQLITE_OK;
}

// A value of an INSERT as the column stores it.
jet::Valor ValueForColumn(const jet::Columna& c, sqlite3_value* v) {
  const int type = sqlite3_value_type(v);
  if (type == SQLITE_NULL) return jet::Valor::Nulo();
  const char* text = reinterpret_cast<const char*>(sqlite3_value_text(v));
  const std::string as_text =
      text == nullptr ? "" : std::string(text, static_cast<std::size_t>(sqlite3_value_bytes(v)));
  jet::Valor r;
  switch (c.tipo) {
    case jet::TipoColumna::Texto:
    case jet::TipoColumna::Memo:
      return jet::Valor::DeTexto(as_text);
    case jet::TipoColumna::Fecha:
      r.tipo = jet::Valor::Tipo::Fecha;
      if (type == SQLITE_TEXT) {
        if (!jet::DiasDeFechaISO(as_text, r.real)) break;
      } else {
        r.real = sqlite3_value_double(v);
      }
      return r;
    case jet::TipoColumna::Booleano:
    case jet::TipoColumna::Byte:
    case jet::TipoColumna::Entero:
    case jet::TipoColumna::Largo:
      if (sqlite3_value_numeric_type(v) == SQLITE_INTEGER) {
        return jet::Valor::DeEntero(sqlite3_value_int64(v));
      }
      break;
    case jet::TipoColumna::Simple:
    case jet::TipoColumna::Doble:
    case jet::TipoColumna::Moneda: {
      const int numeric = sqlite3_value_numeric_type(v);
      if (numeric != SQLITE_INTEGER && numeric != SQLITE_FLOAT) break;
      r.tipo = jet::Valor::Tipo::Real;
      r.real = sqlite3_value_double(v);
      return r;
    }
    default:
      break;
  }
  throw ErrorJet(Latin1("Los tipos de datos no coinciden en la columna '") +
                 CodePage::Windows1252().FromUtf8(c.nombre) + "'.");
}

// INSERT: the row is appended to the file itself, under the writers' lock,
// from a fresh reading of the file. Nothing else changes a Jet table. Why a
// row was not written is left in the context, in the writer's own words;
// nothing is thrown through SQLite.
int VtUpdate(sqlite3_vtab* vtab, int argc, sqlite3_value** argv, sqlite3_int64*) {
  auto& v = *reinterpret_cast<VirtualTable*>(vtab);
  JetVirtualTableContext& context = *v.context;
  try {
    if (argc < 2 || sqlite3_value_type(argv[0]) != SQLITE_NULL) {
      throw ErrorJet(Latin1("No se puede actualizar. La base de datos '") + v.file->Nombre() +
                     Latin1("' sólo admite filas nuevas."));
    }
    std::vector<jet::Valor> values;
    for (std::size_t i = 0; i < v.table->columnas.size() && static_cast<int>(i) + 2 < argc; ++i) {
      values.push_back(ValueForColumn(v.table->columnas[i], argv[i + 2]));
    }
    const std::string& path = v.file->Nombre();
    auto target = jet::AbreParaEscribir(path, context.lock_wait_ms, context.deadline);
    auto fresh = jet::Archivo::Abre(path);
    jet::AgregaFila(*fresh, *target, v.table->nombre, values);
    return SQLITE_OK;
  } catch (const std::exception& e) {
    context.write_error = e.what();
    sqlite3_free(vtab->zErrMsg);
    vtab->zErrMsg = sqlite3_mprintf("%s", e.what());
    return SQLITE_ERROR;
  } catch (const TiempoAgotado&) {
    context.lock_wait_expired = true;
    return SQLITE_ERROR;
  }
}

const sqlite3_module kModule = {
    /* iVersion */ 0,
    /* xCreate */ VtConnect,
    /* xConnect */ VtConnect,
    /* xBestIndex */ VtBestIndex,
    /* xDisconnect */ VtDisconnect,
    /* xDestroy */ VtDisconnect,
    /* xOpen */ VtOpen,
    /* xClose */ VtClose,
    /* xFilter */ VtFilter,
    /* xNext */ VtNext,
    /* xEof */ VtEof,
    /* xColumn */ VtColumn,
    /* xRowid */ VtRowid,
    /* xUpdate */ VtUpdate,
    /* xBegin */ nullptr,
    /* xSync */ nullptr,
    /* xCommit */ nullptr,
    /* xRollback */ nullptr,
    /* xFindFunction */ nullptr,
    /* xRename */ nullptr,
    /* xSavepoint */ nullptr,
    /* xRelease */ nullptr,
    /* xRollbackTo */ nullptr,
    /* xShadowName */ nullptr,
};

}  // namespace

JetSqlConnection::JetSqlConnection(const jet::Archivo& file, const CodePage& page,
                                   Plazo* deadline, int lock_wait_ms)
    : context_(std::make_unique<JetVirtualTableContext>()) {
  context_->file = &file;
  context_->deadline = deadline;
  context_->lock_wait_ms = lock_wait_ms;
  const std::vector<std::string> names = WithJetEngineErrors([&] { return file.NombresTablas(); });
  sql_ = OpenSqliteInMemory(page, [&](sqlite3* db) {
    sqlite3_create_module(db, "orvex_jet", &kModule, context_.get());
    for (size_t i = 0; i < names.size(); ++i) {
      const std::string sql = "CREATE VIRTUAL TABLE " + QuotedName(names[i]) +
                              " USING orvex_jet(" + std::to_string(i) + ")";
      char* error = nullptr;
      if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
        const std::string detail = error != nullptr ? error : "";
        sqlite3_free(error);
        throw RuntimeError(kErrFormatoNoReconocido,
                           Latin1("No se pudo leer la tabla '") + page.FromUtf8(names[i]) +
                               "' de '" + file.Nombre() + "': " + detail);
      }
    }
  }, deadline);
}

JetSqlConnection::~JetSqlConnection() = default;

std::unique_ptr<Recordset> JetSqlConnection::OpenRecordset(std::string_view sql,
                                                           RecordsetType type) {
  return sql_->OpenRecordset(sql, type);
}

std::int64_t JetSqlConnection::Insert(std::string_view sql, const std::vector<Value>& params) {
  context_->write_error.clear();
  context_->lock_wait_expired = false;
  try {
    return sql_->Execute(sql, params);
  } catch (const RuntimeError& e) {
    if (context_->lock_wait_expired) throw TiempoAgotado{};
    if (!context_->write_error.empty()) {
      throw RuntimeError(kErrSoloLectura, context_->write_error);
    }
    // A column the table does not have, in Jet's words.
    constexpr std::string_view kNoSuchColumn = "has no column named ";
    const std::string& d = e.description();
    const std::size_t i = d.find(kNoSuchColumn);
    if (i == std::string::npos) throw;
    throw RuntimeError(kErrCampoDesconocido,
                       Latin1("La instrucción INSERT INTO contiene el siguiente nombre de campo "
                              "desconocido: '") +
                           d.substr(i + kNoSuchColumn.size()) +
                           Latin1("'. Asegúrese de que ha escrito el nombre correctamente e "
                                  "intente la operación de nuevo."));
  }
}

}  // namespace orvex::db
