#include "db/SqliteDatabase.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "db/JetSql.h"
#include "db/SqliteEngine.h"

namespace orvex::db {
namespace {

// --- the request's deadline -------------------------------------------------------

// What a connection's handlers know of the request's deadline and of the
// wait for a lock. The handlers run inside SQLite and never throw: they note
// that the deadline passed and make the engine stop, and the statement's
// caller throws TiempoAgotado once SQLite has returned.
struct DeadlineWatch {
  Plazo* deadline = nullptr;  // none: only the engine's own limits apply
  int lock_wait_ms = 0;       // the longest wait for another writer's lock
  bool stopped = false;       // a handler stopped the engine at the deadline
  std::optional<EsperaAcotada> lock_wait;  // the wait for a lock under way

  // True once the deadline has passed, as noted or as the deadline says.
  bool Passed() noexcept {
    if (!stopped && deadline != nullptr) stopped = deadline->Vencido();
    return stopped;
  }
};

// VM steps between two looks at the deadline: a look costs a clock read,
// and a few thousand steps take some microseconds.
constexpr int kStepsBetweenLooks = 4096;

int CheckDeadline(void* watch) { return static_cast<DeadlineWatch*>(watch)->Passed() ? 1 : 0; }

// The wait for a lock that another connection holds, for at most
// lock_wait_ms, never past the deadline. SQLite counts the calls of one wait
// in `calls`.
int WaitForLock(void* data, int calls) {
  auto& watch = *static_cast<DeadlineWatch*>(data);
  if (calls == 0) watch.lock_wait.emplace(watch.lock_wait_ms, watch.deadline);
  switch (watch.lock_wait->Pausa()) {
    case EsperaAcotada::Paso::Sigue: return 1;
    case EsperaAcotada::Paso::Vencida: watch.stopped = true; return 0;
    case EsperaAcotada::Paso::Agotada: return 0;
  }
  return 0;
}

// The longest LIKE pattern: one like() call runs to its end between two
// looks at the deadline, in time that grows with the pattern's length.
constexpr int kLikePatternMax = 1000;

// --- errors --------------------------------------------------------------------

// Raises the engine's error `rc` as a RuntimeError; TiempoAgotado instead
// when a handler of the connection stopped the engine at the deadline.
[[noreturn]] void RaiseEngine(sqlite3* db, int rc, const DeadlineWatch* watch = nullptr) {
  if (watch != nullptr && watch->stopped) throw TiempoAgotado{};
  const std::string detail = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
  switch (rc & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw RuntimeError(kErrBloqueado,
                         Latin1("No se pudo actualizar; la base de datos está bloqueada (") +
                             detail + ").");
    case SQLITE_READONLY:
      throw RuntimeError(kErrSoloLectura,
                         Latin1("No se puede actualizar. La base de datos es de sólo lectura (") +
                             detail + ").");
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      throw RuntimeError(kErrFormatoNoReconocido,
                         Latin1("La base de datos está dañada o no tiene un formato reconocido (") +
                             detail + ").");
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_IOERR:
      throw RuntimeError(kErrNoSePuedeAbrir,
                         Latin1("No se puede abrir o leer el archivo de la base de datos (") +
                             detail + ").");
    default:
      throw RuntimeError(kErrSintaxis, Latin1("Error en la instrucción SQL: ") + detail);
  }
}

// --- the dialect's comparisons, registered on every connection -----------------

const CodePage* PageOf(void* user) { return static_cast<const CodePage*>(user); }

int CollateJet(void* user, int na, const void* a, int nb, const void* b) {
  const CodePage& page = *PageOf(user);
  return CompareIgnoringCase(
      page.FromUtf8(std::string_view(static_cast<const char*>(a), static_cast<size_t>(na))),
      page.FromUtf8(std::string_view(static_cast<const char*>(b), static_cast<size_t>(nb))));
}

std::string_view TextArg(sqlite3_value* v) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(v));
  return text == nullptr ? std::string_view()
                         : std::string_view(text, static_cast<size_t>(sqlite3_value_bytes(v)));
}

void LikeFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (sqlite3_value_type(argv[0]) == SQLITE_NULL || sqlite3_value_type(argv[1]) == SQLITE_NULL) {
    sqlite3_result_null(ctx);
    return;
  }
  (void)argc;
  const CodePage& page = *PageOf(sqlite3_user_data(ctx));
  // like(pattern, text): "text LIKE pattern". One call runs to its end
  // between two looks at the deadline: the pattern's length is bounded, as
  // SQLite bounds its own LIKE's.
  const std::string_view pattern = TextArg(argv[0]);
  if (pattern.size() > static_cast<std::size_t>(sqlite3_limit(
                           sqlite3_context_db_handle(ctx), SQLITE_LIMIT_LIKE_PATTERN_LENGTH, -1))) {
    // Plain ASCII: the message reaches the page as it is.
    const std::string message = "el texto buscado es demasiado largo: se comparan a lo sumo " +
                                std::to_string(kLikePatternMax) + " caracteres";
    sqlite3_result_error(ctx, message.c_str(), -1);
    return;
  }
  const bool match = JetLike(page.FromUtf8(pattern), page.FromUtf8(TextArg(argv[1])));
  sqlite3_result_int(ctx, match ? 1 : 0);
}

// --- values ----------------------------------------------------------------------

bool IsDateType(const char* decltype_) {
  if (decltype_ == nullptr) return false;
  const std::string t = UpperLatin1(decltype_);
  return t.find("DATE") != std::string::npos || t.find("TIME") != std::string::npos;
}

Value ColumnValue(sqlite3_stmt* stmt, int i, const CodePage& page) {
  switch (sqlite3_column_type(stmt, i)) {
    case SQLITE_NULL: return Value::Null();
    case SQLITE_INTEGER: return Value::Of(static_cast<std::int64_t>(sqlite3_column_int64(stmt, i)));
    case SQLITE_FLOAT: return Value::Of(sqlite3_column_double(stmt, i));
    default: {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, i));
      const std::string_view utf8(text == nullptr ? "" : text,
                                  static_cast<size_t>(sqlite3_column_bytes(stmt, i)));
      DateTime t;
      if (IsDateType(sqlite3_column_decltype(stmt, i)) && ParseIsoDate(utf8, t)) return Value::Of(t);
      return Value::Of(page.FromUtf8(utf8));
    }
  }
}

void Bind(sqlite3* db, sqlite3_stmt* stmt, int i, const Value& v, const CodePage& page) {
  int rc = SQLITE_OK;
  switch (v.type) {
    case Value::Type::Null: rc = sqlite3_bind_null(stmt, i); break;
    case Value::Type::Integer: rc = sqlite3_bind_int64(stmt, i, v.integer); break;
    case Value::Type::Real: rc = sqlite3_bind_double(stmt, i, v.real); break;
    case Value::Type::Text:
    case Value::Type::Date: {
      const std::string utf8 = v.type == Value::Type::Text ? page.ToUtf8(v.text) : v.AsText();
      rc = sqlite3_bind_text(stmt, i, utf8.data(), static_cast<int>(utf8.size()), SQLITE_TRANSIENT);
      break;
    }
  }
  if (rc != SQLITE_OK) RaiseEngine(db, rc);
}

std::string Quoted(std::string_view name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

// What a database keeps between the statements of its recordsets: the
// tables and index columns already asked for, and the statements that
// finished, ready for the next recordset that runs the same text. A request
// opens a recordset per lookup, and preparing the same few statements again
// and again cost more than running them.
struct ConnectionState {
  DeadlineWatch watch;  // the connection's handlers look at it
  std::optional<std::vector<std::string>> tables;
  std::map<std::string, std::vector<std::string>, std::less<>> index_columns;
  std::multimap<std::string, sqlite3_stmt*, std::less<>> idle;
  bool closed = false;

  ~ConnectionState() { Close(); }
  void Close() {
    for (auto& [sql, st] : idle) sqlite3_finalize(st);
    idle.clear();
    closed = true;
  }
  // A statement may have changed the schema.
  void ForgetSchema() {
    tables.reset();
    index_columns.clear();
  }
};

// A prepared statement that owns its handle; one taken from a database's
// memory goes back there, reset, when it is done.
class Statement {
 public:
  Statement(std::shared_ptr<ConnectionState> state, sqlite3* db, const std::string& utf8_sql)
      : db_(db), watch_(&state->watch), state_(std::move(state)) {
    const auto idle = state_->idle.find(utf8_sql);
    if (idle != state_->idle.end()) {
      stmt_ = idle->second;
      state_->idle.erase(idle);
    } else {
      Prepare(utf8_sql);
    }
    sql_ = utf8_sql;
  }
  Statement(const DeadlineWatch& watch, sqlite3* db, const std::string& utf8_sql)
      : db_(db), watch_(&watch) {
    Prepare(utf8_sql);
  }
  ~Statement() {
    if (state_ && !state_->closed && stmt_ != nullptr) {
      sqlite3_reset(stmt_);
      sqlite3_clear_bindings(stmt_);
      state_->idle.emplace(std::move(sql_), stmt_);
    } else {
      sqlite3_finalize(stmt_);
    }
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  sqlite3_stmt* get() const { return stmt_; }
  // One step: true on a row, false at the end; raises on an error.
  bool Step() {
    const int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    RaiseEngine(db_, rc, watch_);
  }
  void Reset() { sqlite3_reset(stmt_); }

 private:
  void Prepare(const std::string& utf8_sql) {
    const char* tail = nullptr;
    const int rc = sqlite3_prepare_v2(db_, utf8_sql.c_str(), static_cast<int>(utf8_sql.size()),
                                      &stmt_, &tail);
    if (rc != SQLITE_OK) RaiseEngine(db_, rc, watch_);
    if (stmt_ == nullptr) throw RuntimeError(kErrSintaxis, Latin1("Instrucción SQL vacía."));
    for (; tail != nullptr && *tail != '\0'; ++tail) {
      if (*tail != ' ' && *tail != '\t' && *tail != '\r' && *tail != '\n' && *tail != ';') {
        sqlite3_finalize(stmt_);
        stmt_ = nullptr;
        throw RuntimeError(3142, Latin1("Se encontraron caracteres después del final de la "
                                        "instrucción SQL."));
      }
    }
  }

  sqlite3* db_;
  const DeadlineWatch* watch_;
  std::shared_ptr<ConnectionState> state_;
  std::string sql_;
  sqlite3_stmt* stmt_ = nullptr;
};

// --- recordsets -----------------------------------------------------------------

class SqliteRecordset : public Recordset {
 public:
  SqliteRecordset(sqlite3* db, std::shared_ptr<ConnectionState> state, const CodePage& page,
                  std::string sql, std::string table)
      : db_(db), state_(std::move(state)), page_(page), table_(std::move(table)) {
    // A table is walked from its first row only if the caller walks before
    // choosing an index or seeking; SQL runs at once, so that its errors
    // come from opening it.
    if (table_.empty()) {
      Open(std::move(sql), {});
    } else {
      pending_ = std::move(sql);
    }
  }

  bool Eof() override {
    StartPending();
    return closed_ || !on_row_;
  }

  void MoveNext() override {
    StartPending();
    RequireRow();
    if (cached_) {
      cached_ = false;
      on_row_ = false;
      return;
    }
    on_row_ = stmt_->Step();
    if (on_row_) reached_ = std::max(reached_, ++position_);
  }

  void MoveFirst() override {
    StartPending();
    RequireOpen();
    cached_ = false;
    stmt_->Reset();
    on_row_ = stmt_->Step();
    position_ = on_row_ ? 1 : 0;
    reached_ = std::max(reached_, position_);
  }

  void MoveLast() override {
    StartPending();
    RequireRow();
    if (cached_) return;
    std::vector<Value> last = CurrentRow();
    while (stmt_->Step()) {
      ++position_;
      last = CurrentRow();
    }
    reached_ = std::max(reached_, position_);
    row_ = std::move(last);
    cached_ = true;
  }

  std::int64_t RecordCount() override {
    StartPending();
    return reached_;
  }

  Value Field(std::string_view name) override {
    StartPending();
    const int i = ColumnIndex(name);
    RequireRow();
    if (cached_) return row_[static_cast<size_t>(i)];
    return ColumnValue(stmt_->get(), i, page_);
  }

  std::string FieldBytes(std::string_view name) override {
    StartPending();
    const int i = ColumnIndex(name);
    RequireRow();
    if (cached_ || sqlite3_column_type(stmt_->get(), i) != SQLITE_BLOB) return Field(name).AsText();
    const void* bytes = sqlite3_column_blob(stmt_->get(), i);
    return std::string(static_cast<const char*>(bytes),
                       static_cast<size_t>(sqlite3_column_bytes(stmt_->get(), i)));
  }

  std::vector<std::string> FieldNames() override {
    StartPending();
    RequireOpen();
    std::vector<std::string> names;
    const int n = sqlite3_column_count(stmt_->get());
    for (int i = 0; i < n; ++i) names.push_back(page_.FromUtf8(sqlite3_column_name(stmt_->get(), i)));
    return names;
  }

  void SetIndex(std::string_view index) override {
    RequireTable();
    index_columns_ = IndexColumns(index);
    ++generation_;
    pending_ = "SELECT " + (select_.empty() ? std::string("*") : select_) + " FROM " +
                 Quoted(page_.ToUtf8(table_)) + " ORDER BY " + ColumnList("");
  }

  void SetFields(std::vector<std::string> names) override {
    RequireTable();
    select_.clear();
    for (const std::string& name : names) select_ += (select_.empty() ? "" : ",") + Quoted(page_.ToUtf8(name));
    ++generation_;
  }

  void Seek(std::string_view op, const std::vector<Value>& keys) override {
    RequireTable();
    pending_.reset();
    if (index_columns_.empty()) {
      throw RuntimeError(kErrOperacionNoValida, Latin1("No se ha establecido el índice."));
    }
    if (keys.empty() || keys.size() > index_columns_.size()) {
      throw RuntimeError(kErrSintaxis, Latin1("Número de claves incorrecto para el índice."));
    }
    if (op == "=" || op == ">=" || op == ">") {
      SeekForward(op, keys);
      return;
    }
    std::vector<std::string> key_columns(index_columns_.begin(),
                                         index_columns_.begin() + static_cast<long>(keys.size()));
    const std::string lhs = "(" + Join(key_columns) + ")";
    const std::string rhs = "(" + Placeholders(keys.size()) + ")";
    const std::string from =
        "SELECT " + (select_.empty() ? std::string("*") : select_) + " FROM " + Quoted(page_.ToUtf8(table_));
    const std::string order = " ORDER BY " + ColumnList("");
    if (op != "<" && op != "<=") {
      throw RuntimeError(kErrSintaxis, Latin1("Operador de búsqueda no válido: ") + std::string(op));
    }
    // The last entry that qualifies, then the walk forward from it. The
    // entry's index columns are read whatever fields the walk reads.
    Statement last(state_, db_, "SELECT " + Join(index_columns_) + " FROM " + Quoted(page_.ToUtf8(table_)) +
                                    " WHERE " + lhs + " " + std::string(op) + " " + rhs + " ORDER BY " +
                                    ColumnList(" DESC") + " LIMIT 1");
    for (size_t i = 0; i < keys.size(); ++i) Bind(db_, last.get(), static_cast<int>(i + 1), keys[i], page_);
    if (!last.Step()) {
      no_match_ = true;
      on_row_ = false;
      cached_ = false;
      return;
    }
    std::vector<Value> start;
    for (const std::string& column : index_columns_) {
      start.push_back(ColumnValue(last.get(), ColumnIndexIn(last.get(), page_.FromUtf8(column)), page_));
    }
    Open(from + " WHERE (" + Join(index_columns_) + ") >= (" + Placeholders(start.size()) + ")" +
             order,
         start, true);
    no_match_ = !on_row_;
  }

  bool NoMatch() override { return no_match_; }

  void Close() override {
    pending_.reset();
    stmt_ = nullptr;
    owned_.reset();
    seeks_.clear();
    prepared_seeks_.clear();
    retired_.clear();
    closed_ = true;
  }

 private:
  // A seek from the first entry at or after (">=", "=") or after (">") the
  // keys. Its statement is prepared once per shape and index, with the
  // result columns of the keys, and only rebound afterwards: a phrase makes
  // a seek per occurrence of a word, and building the statement's text each
  // time cost more than the engine's own work.
  struct PreparedSeek {
    std::string op;
    size_t key_count = 0;
    unsigned generation = 0;
    std::unique_ptr<Statement> stmt;
    std::vector<int> key_columns;  // the result column of each key, -1 when not read
  };

  void SeekForward(std::string_view op, const std::vector<Value>& keys) {
    const std::string_view start_op = op == "=" ? ">=" : op;
    PreparedSeek* seek = nullptr;
    for (PreparedSeek& s : prepared_seeks_) {
      if (s.op == start_op && s.key_count == keys.size()) seek = &s;
    }
    if (seek == nullptr) {
      seek = &prepared_seeks_.emplace_back();
      seek->op = std::string(start_op);
      seek->key_count = keys.size();
    }
    if (!seek->stmt || seek->generation != generation_) {
      // The statement being walked may be the old one: it stays until Close.
      if (seek->stmt) retired_.push_back(std::move(seek->stmt));
      const std::vector<std::string> key_columns(
          index_columns_.begin(), index_columns_.begin() + static_cast<long>(keys.size()));
      seek->stmt = std::make_unique<Statement>(
          state_, db_, "SELECT " + (select_.empty() ? std::string("*") : select_) + " FROM " +
                           Quoted(page_.ToUtf8(table_)) + " WHERE (" + Join(key_columns) + ") " +
                           std::string(start_op) + " (" + Placeholders(keys.size()) + ") ORDER BY " +
                           ColumnList(""));
      seek->key_columns.clear();
      for (const std::string& column : key_columns) {
        seek->key_columns.push_back(ColumnIndexIn(seek->stmt->get(), page_.FromUtf8(column)));
      }
      seek->generation = generation_;
    }
    Statement* st = seek->stmt.get();
    Walk(st, keys);
    no_match_ = !on_row_;
    if (!on_row_ || op != "=") return;
    for (size_t i = 0; i < keys.size() && !no_match_; ++i) {
      const int column = seek->key_columns[i];
      if (column < 0) RaiseNoSuchField(page_.FromUtf8(index_columns_[i]));
      if (keys[i].type == Value::Type::Integer &&
          sqlite3_column_type(st->get(), column) == SQLITE_INTEGER) {
        no_match_ = sqlite3_column_int64(st->get(), column) != keys[i].integer;
      } else {
        no_match_ = ColumnValue(st->get(), column, page_).AsText() != keys[i].AsText();
      }
    }
  }

  // Makes `utf8_sql` the statement walked, bound to `params`; a seek's
  // statement is kept for the next seek of the same shape.
  void Open(std::string utf8_sql, const std::vector<Value>& params, bool reusable = false) {
    Statement* st = nullptr;
    if (reusable) {
      std::unique_ptr<Statement>& cached = seeks_[utf8_sql];
      if (!cached) cached = std::make_unique<Statement>(state_, db_, utf8_sql);
      st = cached.get();
    } else {
      owned_ = std::make_unique<Statement>(state_, db_, utf8_sql);
      stmt_ = nullptr;  // a new statement: no field looked up yet
      st = owned_.get();
    }
    Walk(st, params);
  }

  // Makes `st` the statement walked, bound afresh to `params`, on its first
  // row.
  void Walk(Statement* st, const std::vector<Value>& params) {
    st->Reset();
    sqlite3_clear_bindings(st->get());
    if (stmt_ != st) known_columns_.clear();
    stmt_ = st;
    for (size_t i = 0; i < params.size(); ++i) Bind(db_, st->get(), static_cast<int>(i + 1), params[i], page_);
    cached_ = false;
    closed_ = false;
    on_row_ = st->Step();
    position_ = on_row_ ? 1 : 0;
    reached_ = position_;
  }

  // Opens the walk that SetIndex or the table's opening left for later.
  void StartPending() {
    if (!pending_) return;
    std::string sql = std::move(*pending_);
    pending_.reset();
    Open(std::move(sql), {});
  }

  [[noreturn]] static void RaiseNoSuchField(std::string_view name) {
    throw RuntimeError(kErrElementoNoEncontrado,
                       Latin1("Elemento no encontrado en esta colección: ") + std::string(name));
  }


  void RequireOpen() {
    if (closed_) throw RuntimeError(kErrOperacionNoValida, Latin1("El Recordset está cerrado."));
  }
  void RequireRow() {
    RequireOpen();
    if (!on_row_) throw RuntimeError(kErrNoRegistroActivo, Latin1("No hay registro activo."));
  }
  void RequireTable() {
    RequireOpen();
    if (table_.empty()) {
      throw RuntimeError(kErrOperacionNoValida,
                         Latin1("La operación no es válida para este tipo de objeto."));
    }
  }

  // The column named `name` (code page), ignoring case; -1 when none.
  int ColumnIndexIn(sqlite3_stmt* stmt, std::string_view name) const {
    const int n = sqlite3_column_count(stmt);
    for (int i = 0; i < n; ++i) {
      if (EqualsIgnoringCase(page_.FromUtf8(sqlite3_column_name(stmt, i)), name)) return i;
    }
    return -1;
  }

  int ColumnIndex(std::string_view name) {
    RequireOpen();
    for (const auto& [known, column] : known_columns_) {
      if (known == name) return column;
    }
    const int i = ColumnIndexIn(stmt_->get(), name);
    if (i < 0) RaiseNoSuchField(name);
    known_columns_.emplace_back(std::string(name), i);
    return i;
  }

  std::vector<Value> CurrentRow() {
    std::vector<Value> row;
    const int n = sqlite3_column_count(stmt_->get());
    for (int i = 0; i < n; ++i) row.push_back(ColumnValue(stmt_->get(), i, page_));
    return row;
  }

  // The columns of an index named as the catalogue names it: SQLite files
  // call it "<table>_<index>"; "PrimaryKey" is the table's primary key.
  std::vector<std::string> IndexColumns(std::string_view index) {
    const std::string name = page_.ToUtf8(table_) + "_" + page_.ToUtf8(index);
    const std::string key = UpperLatin1(page_.FromUtf8(name));
    const auto known = state_->index_columns.find(key);
    if (known != state_->index_columns.end()) return known->second;
    std::vector<std::string> columns;
    {
      Statement info(state_->watch, db_, "SELECT name FROM pragma_index_info(?) ORDER BY seqno");
      sqlite3_bind_text(info.get(), 1, name.c_str(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
      while (info.Step()) columns.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(info.get(), 0)));
    }
    if (columns.empty() && EqualsIgnoringCase(index, "PrimaryKey")) {
      Statement info(state_->watch, db_, "SELECT name FROM pragma_table_info(?) WHERE pk > 0 ORDER BY pk");
      const std::string table = page_.ToUtf8(table_);
      sqlite3_bind_text(info.get(), 1, table.c_str(), static_cast<int>(table.size()), SQLITE_TRANSIENT);
      while (info.Step()) columns.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(info.get(), 0)));
    }
    if (columns.empty()) {
      throw RuntimeError(3800, "'" + std::string(index) + Latin1("' no es un índice de esta tabla."));
    }
    state_->index_columns.emplace(key, columns);
    return columns;
  }

  std::string Join(const std::vector<std::string>& columns) const {
    std::string out;
    for (const std::string& c : columns) out += (out.empty() ? "" : ",") + Quoted(c);
    return out;
  }
  std::string ColumnList(const char* suffix) const {
    std::string out;
    for (const std::string& c : index_columns_) out += (out.empty() ? "" : ",") + Quoted(c) + suffix;
    return out;
  }
  static std::string Placeholders(size_t n) {
    std::string out;
    for (size_t i = 0; i < n; ++i) out += i == 0 ? "?" : ",?";
    return out;
  }

  sqlite3* db_;
  std::shared_ptr<ConnectionState> state_;
  const CodePage& page_;
  std::string table_;  // the table of a table-type recordset; empty for SQL
  // The walk to open when the recordset is first read, if no seek comes
  // before.
  std::optional<std::string> pending_;
  std::vector<std::string> index_columns_;  // UTF-8
  std::string select_;  // the fields walks read, quoted, UTF-8; empty for all
  Statement* stmt_ = nullptr;          // the statement being walked
  std::unique_ptr<Statement> owned_;   // a statement used once
  // Seeks prepared once per text and rebound at every call: a phrase makes
  // one seek per posting.
  std::map<std::string, std::unique_ptr<Statement>> seeks_;
  std::vector<PreparedSeek> prepared_seeks_;
  std::vector<std::unique_ptr<Statement>> retired_;
  unsigned generation_ = 0;  // changes with the index and the fields read
  // Field names already looked up in the current statement.
  std::vector<std::pair<std::string, int>> known_columns_;
  bool on_row_ = false;
  bool closed_ = false;
  bool cached_ = false;  // positioned by MoveLast on the copy in row_
  bool no_match_ = false;
  std::vector<Value> row_;
  std::int64_t position_ = 0;
  std::int64_t reached_ = 0;
};

// --- the database ---------------------------------------------------------------

class SqliteDatabase : public Database {
 public:
  // Holds the statements of `db` to `deadline` (none: no deadline) and
  // waits up to `lock_wait_ms` for another connection's lock (0: no wait).
  SqliteDatabase(sqlite3* db, const CodePage& page, Plazo* deadline, int lock_wait_ms)
      : db_(db), page_(page), state_(std::make_shared<ConnectionState>()) {
    DeadlineWatch& watch = state_->watch;
    watch.deadline = deadline;
    watch.lock_wait_ms = lock_wait_ms;
    if (deadline != nullptr) sqlite3_progress_handler(db, kStepsBetweenLooks, CheckDeadline, &watch);
    if (lock_wait_ms > 0) sqlite3_busy_handler(db, WaitForLock, &watch);
  }
  ~SqliteDatabase() override { Close(); }

  std::unique_ptr<Recordset> OpenRecordset(std::string_view source, RecordsetType type) override {
    RequireOpen();
    if (type == RecordsetType::Table) {
      const std::string table(source);
      if (!HasTable(table)) {
        throw RuntimeError(kErrTablaNoEncontrada,
                           Latin1("No se encuentra la tabla o consulta de entrada '") + table + "'.");
      }
      return std::make_unique<SqliteRecordset>(db_, state_, page_, "SELECT * FROM " + Quoted(page_.ToUtf8(table)),
                                               table);
    }
    // A table's name alone (or in brackets) opens all its rows, as the
    // catalogue's engine has always opened a table as a dynaset.
    std::string_view name = TrimBlanksView(source);
    const bool bracketed = name.size() > 2 && name.front() == '[' && name.back() == ']' &&
                           name.find(']') == name.size() - 1;
    if (bracketed) name = name.substr(1, name.size() - 2);
    if (!name.empty() &&
        (bracketed || name.find_first_of(" \t\r\n;()'\"") == std::string_view::npos) &&
        HasTable(std::string(name))) {
      return std::make_unique<SqliteRecordset>(
          db_, state_, page_, "SELECT * FROM " + Quoted(page_.ToUtf8(name)), "");
    }
    return std::make_unique<SqliteRecordset>(db_, state_, page_, page_.ToUtf8(JetToSqlite(source)),
                                             "");
  }

  std::int64_t Execute(std::string_view sql) override { return Execute(sql, {}); }

  std::int64_t Execute(std::string_view sql, const std::vector<Value>& params) override {
    RequireOpen();
    state_->ForgetSchema();
    Statement statement(state_->watch, db_, page_.ToUtf8(JetToSqlite(sql)));
    if (static_cast<size_t>(sqlite3_bind_parameter_count(statement.get())) != params.size()) {
      throw RuntimeError(kErrSintaxis, Latin1("Número de parámetros incorrecto para la instrucción SQL."));
    }
    for (size_t i = 0; i < params.size(); ++i) {
      Bind(db_, statement.get(), static_cast<int>(i + 1), params[i], page_);
    }
    while (statement.Step()) {
    }
    return sqlite3_stmt_readonly(statement.get()) ? 0 : sqlite3_changes64(db_);
  }

  std::vector<std::string> TableNames() override {
    RequireOpen();
    if (state_->tables) return *state_->tables;
    std::vector<std::string> names;
    Statement list(state_->watch, db_, "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' ORDER BY rowid");
    while (list.Step()) names.push_back(page_.FromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(list.get(), 0))));
    state_->tables = names;
    return names;
  }

  std::vector<std::string> ColumnNames(std::string_view table) override {
    RequireOpen();
    std::vector<std::string> names;
    Statement info(state_->watch, db_, "SELECT name FROM pragma_table_info(?) ORDER BY cid");
    const std::string utf8 = page_.ToUtf8(table);
    sqlite3_bind_text(info.get(), 1, utf8.c_str(), static_cast<int>(utf8.size()), SQLITE_TRANSIENT);
    while (info.Step()) names.push_back(page_.FromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(info.get(), 0))));
    return names;
  }

  void Close() override {
    state_->Close();
    if (db_ != nullptr) sqlite3_close_v2(db_);
    db_ = nullptr;
  }

  DeadlineWatch& watch() { return state_->watch; }

 private:
  void RequireOpen() const {
    if (db_ == nullptr) throw RuntimeError(kErrOperacionNoValida, Latin1("La base de datos está cerrada."));
  }
  bool HasTable(const std::string& table) {
    // The engine finds a table by its name without regard to ASCII case,
    // from the schema it has read; the list answers for other letters.
    if (!state_->tables &&
        sqlite3_table_column_metadata(db_, "main", page_.ToUtf8(table).c_str(), nullptr, nullptr,
                                      nullptr, nullptr, nullptr, nullptr) == SQLITE_OK) {
      return true;
    }
    for (const std::string& name : TableNames()) {
      if (EqualsIgnoringCase(name, table)) return true;
    }
    return false;
  }

  sqlite3* db_;
  const CodePage& page_;
  std::shared_ptr<ConnectionState> state_;
};

// How many pages the write-ahead log may hold before a commit writes it back.
constexpr int kLogPagesBeforeCheckpoint = 64;

int CheckpointLongLog(void*, sqlite3* db, const char* schema, int pages) {
  if (pages >= kLogPagesBeforeCheckpoint) {
    // A reader or writer of another request may hold the log: then a later
    // commit does it.
    sqlite3_wal_checkpoint_v2(db, schema, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
  }
  return SQLITE_OK;
}

// True when the SQLite file in `path` is in write-ahead log mode.
bool IsInWalMode(const std::string& path) {
  unsigned char header[20] = {};
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t n = ::pread(fd, header, sizeof header, 0);
  ::close(fd);
  return n == static_cast<ssize_t>(sizeof header) && header[18] == 2 && header[19] == 2;
}

// The dialect's comparisons on a new connection. like() has no side
// effects, so a view or trigger of a catalogue may use it even though the
// schema is not trusted.
void RegisterDialect(sqlite3* db, const CodePage& page) {
  void* user = const_cast<CodePage*>(&page);
  sqlite3_create_collation(db, "JET", SQLITE_UTF8, user, CollateJet);
  sqlite3_create_function(db, "like", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS,
                          user, LikeFunction, nullptr, nullptr);
}

// The engine's limits on what one statement may ask for. Each is many times
// what the catalogue and the pages need: the largest values are a record's
// tag string (under 100 000 bytes, the most a MARC record holds) and a
// word's list chunk (4096 postings, some tens of kilobytes); statements
// are a few hundred bytes with a handful of parameters, and a LIKE pattern
// is a word or a value the reader typed. What they stop is a statement
// that builds a value of hundreds of megabytes, nests or chains without
// end, or reaches another file.
constexpr std::pair<int, int> kLimits[] = {
    {SQLITE_LIMIT_LENGTH, 8 << 20},          // a text, a blob, a row: 8 MB
    {SQLITE_LIMIT_SQL_LENGTH, 1 << 20},      // a statement: 1 MB, the request body's limit
    {SQLITE_LIMIT_EXPR_DEPTH, 200},
    {SQLITE_LIMIT_COMPOUND_SELECT, 100},
    {SQLITE_LIMIT_VDBE_OP, 250000},
    {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, kLikePatternMax},
    {SQLITE_LIMIT_VARIABLE_NUMBER, 100},
    {SQLITE_LIMIT_TRIGGER_DEPTH, 10},
    {SQLITE_LIMIT_ATTACHED, 0},              // no statement opens another file
    {SQLITE_LIMIT_WORKER_THREADS, 0},
};

// Closes what a statement or a database's own schema could use against the
// server: writes to the schema and to the file's pages behind the engine's
// back, functions and virtual tables run from a schema the file brings
// along, tokenizers given as pointers, loadable extensions; and sets the
// limits above.
void Harden(sqlite3* db) {
  sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_FTS3_TOKENIZER, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
  for (const auto& [limit, value] : kLimits) sqlite3_limit(db, limit, value);
}

}  // namespace

std::unique_ptr<Database> OpenSqliteInMemory(const CodePage& page,
                                             const std::function<void(sqlite3*)>& prepare,
                                             Plazo* deadline) {
  ConfigureSqliteEngine();
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(db);
    throw RuntimeError(kErrNoSePuedeAbrir, Latin1("No se pudo preparar el motor SQL (") +
                                               sqlite3_errstr(rc) + ").");
  }
  Harden(db);
  auto database = std::make_unique<SqliteDatabase>(db, page, deadline, 0);
  RegisterDialect(db, page);
  prepare(db);
  return database;
}

std::unique_ptr<Database> OpenSqliteDatabase(const std::string& path, const CodePage& page,
                                             const OpenOptions& options) {
  ConfigureSqliteEngine();
  sqlite3* db = nullptr;
  const int flags = (options.read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) |
                    SQLITE_OPEN_NOMUTEX;
  int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
  if (rc != SQLITE_OK) {
    const std::string detail = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close_v2(db);
    throw RuntimeError(kErrNoSePuedeAbrir,
                       Latin1("No se puede abrir el archivo '") + path + "' (" + detail + ").");
  }
  Harden(db);
  auto database = std::make_unique<SqliteDatabase>(db, page, options.plazo,
                                                   std::max(options.busy_timeout_ms, 0));
  RegisterDialect(db, page);
  if (options.busy_timeout_ms > 0) {
    // Switching a file to write-ahead logging takes an exclusive lock, and
    // SQLite answers a writer that holds it at that moment with "busy"
    // straight away, without its busy handler: wait here instead, as long
    // as the handler would have, and never past the deadline.
    // A file already in that mode says so in its header (read and write
    // format versions 2), and it stays so.
    if (!IsInWalMode(path)) {
      DeadlineWatch& watch = database->watch();
      int waited_ms = 0;
      while ((rc = sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr)) ==
                 SQLITE_BUSY &&
             waited_ms < options.busy_timeout_ms && !watch.Passed()) {
        waited_ms += sqlite3_sleep(2);
      }
      if (rc != SQLITE_OK) RaiseEngine(db, rc, &watch);
    }
    // A request writes one row: creating, flushing, checkpointing and
    // deleting the log for each would cost more than the search. The log
    // stays, and is written back (and emptied) once it holds a few dozen
    // pages: every request re-reads it on opening, so it must stay short.
    sqlite3_exec(db, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    int persist = 1;
    sqlite3_file_control(db, "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_wal_hook(db, CheckpointLongLog, nullptr);
  }
  return database;
}

}  // namespace orvex::db
