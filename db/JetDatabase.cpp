#include "db/JetDatabase.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "base/RuntimeError.h"
#include "db/JetEngineErrors.h"
#include "db/JetSql.h"
#include "db/JetVirtualTables.h"
#include "db/jet/Jet4.h"

namespace orvex::db {
namespace {

using jet::ErrorJet;

// --- values ----------------------------------------------------------------------

Value ToValue(const jet::Valor& v, const CodePage& page) {
  switch (v.tipo) {
    case jet::Valor::Tipo::Nulo: return Value::Null();
    case jet::Valor::Tipo::Entero: return Value::Of(v.entero);
    case jet::Valor::Tipo::Real: return Value::Of(v.real);
    case jet::Valor::Tipo::Texto: return Value::Of(page.FromUtf8(v.bytes));
    case jet::Valor::Tipo::Fecha: {
      DateTime t;
      if (ParseIsoDate(jet::FechaISO(v.real), t)) return Value::Of(t);
      return Value::Null();
    }
    case jet::Valor::Tipo::Binario: return Value::Of(v.bytes);
  }
  return Value::Null();
}

jet::Valor ToJetValue(const Value& v, const CodePage& page) {
  switch (v.type) {
    case Value::Type::Null: return jet::Valor::Nulo();
    case Value::Type::Integer: return jet::Valor::DeEntero(v.integer);
    case Value::Type::Real:
      if (v.real == static_cast<double>(static_cast<std::int64_t>(v.real))) {
        return jet::Valor::DeEntero(static_cast<std::int64_t>(v.real));
      }
      break;
    case Value::Type::Text: return jet::Valor::DeTexto(page.ToUtf8(v.text));
    case Value::Type::Date: break;
  }
  // A value no index key is made of: the caller scans.
  jet::Valor r;
  r.tipo = jet::Valor::Tipo::Real;
  r.real = v.type == Value::Type::Real ? v.real : 0;
  return r;
}

// Orders two values of one index column as the index does: nulls first,
// numbers by value, texts without regard to letter case.
int CompareKeyValues(const Value& a, const Value& b) {
  if (a.IsNull() || b.IsNull()) return (a.IsNull() ? 0 : 1) - (b.IsNull() ? 0 : 1);
  const bool na = a.type == Value::Type::Integer || a.type == Value::Type::Real;
  const bool nb = b.type == Value::Type::Integer || b.type == Value::Type::Real;
  if (na && nb) {
    const double x = a.type == Value::Type::Integer ? static_cast<double>(a.integer) : a.real;
    const double y = b.type == Value::Type::Integer ? static_cast<double>(b.integer) : b.real;
    return x < y ? -1 : (x > y ? 1 : 0);
  }
  return CompareIgnoringCase(a.AsText(), b.AsText());
}

const jet::Indice* FindIndex(const jet::Tabla& table, std::string_view name, const CodePage& page) {
  for (const jet::Indice& i : table.indices) {
    if (EqualsIgnoringCase(page.FromUtf8(i.nombre), name)) return &i;
  }
  return nullptr;
}

// --- table-type recordsets ---------------------------------------------------------

class JetTableRecordset : public Recordset {
 public:
  JetTableRecordset(const jet::Archivo& file, const jet::Tabla& table, const CodePage& page,
                    Plazo* deadline)
      : file_(file), table_(table), page_(page), deadline_(deadline),
        rows_(std::make_unique<jet::Filas>(file, table)) {}

  bool Eof() override {
    StartPending();
    return closed_ || !on_row_;
  }

  void MoveNext() override {
    StartPending();
    RequireRow();
    row_loaded_ = false;
    WithJetEngineErrors([&] {
      switch (mode_) {
        case Mode::Storage: on_row_ = rows_->Siguiente(); row_loaded_ = on_row_; break;
        case Mode::Index: on_row_ = cursor_->Siguiente(); break;
        case Mode::Sorted: on_row_ = ++sorted_pos_ < sorted_.size(); break;
        case Mode::Last: on_row_ = false; break;
      }
    });
    if (on_row_) reached_ = std::max(reached_, ++position_);
  }

  void MoveFirst() override {
    StartPending();
    RequireOpen();
    row_loaded_ = false;
    WithJetEngineErrors([&] {
      switch (mode_) {
        case Mode::Last:
          mode_ = Mode::Storage;
          [[fallthrough]];
        case Mode::Storage:
          rows_->Reinicia();
          on_row_ = rows_->Siguiente();
          row_loaded_ = on_row_;
          break;
        case Mode::Index: on_row_ = cursor_->Primero(); break;
        case Mode::Sorted: on_row_ = !sorted_.empty(), sorted_pos_ = 0; break;
      }
    });
    position_ = on_row_ ? 1 : 0;
    reached_ = std::max(reached_, position_);
  }

  void MoveLast() override {
    StartPending();
    RequireRow();
    WithJetEngineErrors([&] {
      LoadRow();
      jet::PosicionFila last = rows_->Posicion();
      for (std::size_t seen = 0;; ++seen) {
        CheckDeadline(seen);
        MoveNext();
        if (!on_row_) break;
        LoadRow();
        last = rows_->Posicion();
      }
      mode_ = Mode::Last;
      on_row_ = rows_->Ve(last);
      row_loaded_ = on_row_;
    });
  }

  std::int64_t RecordCount() override {
    StartPending();
    return reached_;
  }

  Value Field(std::string_view name) override {
    StartPending();
    const size_t i = ColumnIndex(name);
    RequireRow();
    return WithJetEngineErrors([&] {
      // On an index walk, a column of the key is read back from it without
      // reading the row: the word index's walks read nothing else.
      if (mode_ == Mode::Index && !row_loaded_) {
        for (size_t k = 0; k < index_->columnas.size(); ++k) {
          if (index_->columnas[k].columna != i) continue;
          if (const auto v = cursor_->ValorDeClave(k)) return ToValue(*v, page_);
          break;
        }
      }
      LoadRow();
      return ToValue(rows_->Lee(i), page_);
    });
  }

  std::string FieldBytes(std::string_view name) override {
    StartPending();
    const size_t i = ColumnIndex(name);
    RequireRow();
    return WithJetEngineErrors([&] {
      LoadRow();
      const jet::Valor v = rows_->Lee(i);
      return v.tipo == jet::Valor::Tipo::Binario ? v.bytes : ToValue(v, page_).AsText();
    });
  }

  std::vector<std::string> FieldNames() override {
    RequireOpen();
    std::vector<std::string> names;
    for (const jet::Columna& c : table_.columnas) names.push_back(page_.FromUtf8(c.nombre));
    return names;
  }

  void SetIndex(std::string_view name) override {
    RequireOpen();
    const jet::Indice* index = FindIndex(table_, name, page_);
    if (index == nullptr) {
      throw RuntimeError(3800, "'" + std::string(name) + Latin1("' no es un índice de esta tabla."));
    }
    if (index != index_) {
      index_ = index;
      cursor_ = WithJetEngineErrors(
          [&] { return std::make_unique<jet::CursorIndice>(file_, table_, *index); });
      sorted_.clear();
      sorted_built_ = false;
    }
    mode_ = Mode::Index;
    pending_ = true;
  }

  // Rows are read column by column as asked: nothing to prepare.
  void SetFields(std::vector<std::string>) override { RequireOpen(); }

  void Seek(std::string_view op, const std::vector<Value>& keys) override {
    RequireOpen();
    pending_ = false;
    if (index_ == nullptr) {
      throw RuntimeError(kErrOperacionNoValida, Latin1("No se ha establecido el índice."));
    }
    if (keys.empty() || keys.size() > index_->columnas.size()) {
      throw RuntimeError(kErrSintaxis, Latin1("Número de claves incorrecto para el índice."));
    }
    if (op != "=" && op != ">=" && op != ">" && op != "<=" && op != "<") {
      throw RuntimeError(kErrSintaxis, Latin1("Operador de búsqueda no válido: ") + std::string(op));
    }
    row_loaded_ = false;
    WithJetEngineErrors([&] {
      std::vector<jet::Valor> values;
      for (const Value& k : keys) values.push_back(ToJetValue(k, page_));
      const std::optional<std::string> key =
          op[0] == '<' ? std::nullopt : cursor_->Clave(values);
      if (key) {
        mode_ = Mode::Index;
        on_row_ = cursor_->Busca(*key);
        if (op == ">") {
          while (on_row_ && cursor_->ClaveActual().starts_with(*key)) on_row_ = cursor_->Siguiente();
        }
        no_match_ = !on_row_ || (op == "=" && !cursor_->ClaveActual().starts_with(*key));
      } else {
        SeekInSorted(op, keys);
      }
    });
    position_ = on_row_ ? 1 : 0;
    reached_ = position_;
  }

  bool NoMatch() override { return no_match_; }

  void Close() override {
    cursor_.reset();
    rows_.reset();
    sorted_.clear();
    closed_ = true;
    on_row_ = false;
  }

 private:
  // How the walk goes on: the table's rows in storage order, the index's
  // entries in key order, the rows sorted as the index sorts them (a seek
  // the key encoding does not cover), or the one row MoveLast found, after
  // which the walk ends.
  enum class Mode { Storage, Index, Sorted, Last };

  struct SortedEntry {
    jet::PosicionFila row;
    std::vector<Value> keys;
  };

  // A table opened, or an index chosen, is on its first row once read.
  void StartPending() {
    if (!pending_) return;
    pending_ = false;
    row_loaded_ = false;
    WithJetEngineErrors([&] {
      if (mode_ == Mode::Index) {
        on_row_ = cursor_->Primero();
      } else {
        rows_->Reinicia();
        on_row_ = rows_->Siguiente();
        row_loaded_ = on_row_;
      }
    });
    position_ = on_row_ ? 1 : 0;
    reached_ = position_;
  }

  // The row of the current index entry.
  void LoadRow() {
    if (row_loaded_) return;
    const jet::PosicionFila row = mode_ == Mode::Sorted ? sorted_[sorted_pos_].row : cursor_->Fila();
    if (!rows_->Ve(row)) {
      throw ErrorJet(Latin1("Base de datos Jet dañada '") + file_.Nombre() +
                     Latin1("': el índice ") + index_->nombre +
                     Latin1(" apunta a una fila que no existe."));
    }
    row_loaded_ = true;
  }

  // The table's rows with their index keys, sorted as the index sorts them
  // (once per index).
  void BuildSorted() {
    if (sorted_built_) return;
    sorted_.clear();
    rows_->Reinicia();
    for (std::size_t seen = 0; rows_->Siguiente(); ++seen) {
      CheckDeadline(seen);
      SortedEntry e{rows_->Posicion(), {}};
      for (const jet::ColumnaIndice& c : index_->columnas) {
        e.keys.push_back(ToValue(rows_->Lee(c.columna), page_));
      }
      sorted_.push_back(std::move(e));
    }
    std::stable_sort(sorted_.begin(), sorted_.end(), [&](const SortedEntry& a, const SortedEntry& b) {
      return CompareKeys(a.keys, b.keys, index_->columnas.size()) < 0;
    });
    sorted_built_ = true;
  }

  // A seek the index's key encoding does not cover, searched by comparison
  // in the sorted rows.
  void SeekInSorted(std::string_view op, const std::vector<Value>& keys) {
    BuildSorted();
    const size_t n = keys.size();
    auto below = [&](const SortedEntry& e, const std::vector<Value>& k) {
      return CompareKeys(e.keys, k, n) < 0;
    };
    auto above = [&](const std::vector<Value>& k, const SortedEntry& e) {
      return CompareKeys(k, e.keys, n) < 0;
    };
    const auto first = std::lower_bound(sorted_.begin(), sorted_.end(), keys, below);
    const auto past = std::upper_bound(sorted_.begin(), sorted_.end(), keys, above);
    auto chosen = sorted_.end();
    if (op == "=" || op == ">=") chosen = first;
    if (op == ">") chosen = past;
    if (op == "<=" && past != sorted_.begin()) chosen = past - 1;
    if (op == "<" && first != sorted_.begin()) chosen = first - 1;
    mode_ = Mode::Sorted;
    sorted_pos_ = static_cast<size_t>(chosen - sorted_.begin());
    on_row_ = chosen != sorted_.end();
    no_match_ = !on_row_ || (op == "=" && chosen == past);
  }

  // The walks of a whole table in one call (MoveLast, the sorted rows) look
  // at the deadline every so many rows.
  void CheckDeadline(std::size_t seen) const {
    constexpr std::size_t kRowsBetweenLooks = 1024;
    if (deadline_ != nullptr && seen % kRowsBetweenLooks == 0 && deadline_->Vencido()) {
      throw TiempoAgotado{};
    }
  }

  int CompareKeys(const std::vector<Value>& a, const std::vector<Value>& b, size_t n) const {
    for (size_t i = 0; i < n && i < a.size() && i < b.size(); ++i) {
      int c = CompareKeyValues(a[i], b[i]);
      if (!index_->columnas[i].ascendente) c = -c;
      if (c != 0) return c;
    }
    return 0;
  }

  size_t ColumnIndex(std::string_view name) {
    RequireOpen();
    for (const auto& [known, i] : known_columns_) {
      if (known == name) return i;
    }
    for (size_t i = 0; i < table_.columnas.size(); ++i) {
      if (EqualsIgnoringCase(page_.FromUtf8(table_.columnas[i].nombre), name)) {
        known_columns_.emplace_back(std::string(name), i);
        return i;
      }
    }
    throw RuntimeError(kErrElementoNoEncontrado,
                       Latin1("Elemento no encontrado en esta colección: ") + std::string(name));
  }

  void RequireOpen() const {
    if (closed_) throw RuntimeError(kErrOperacionNoValida, Latin1("El Recordset está cerrado."));
  }
  void RequireRow() const {
    RequireOpen();
    if (!on_row_) throw RuntimeError(kErrNoRegistroActivo, Latin1("No hay registro activo."));
  }

  const jet::Archivo& file_;
  const jet::Tabla& table_;
  const CodePage& page_;
  Plazo* deadline_;
  std::unique_ptr<jet::Filas> rows_;
  const jet::Indice* index_ = nullptr;
  std::unique_ptr<jet::CursorIndice> cursor_;
  std::vector<SortedEntry> sorted_;
  bool sorted_built_ = false;
  size_t sorted_pos_ = 0;
  // Field names already looked up, with their columns.
  std::vector<std::pair<std::string, size_t>> known_columns_;
  Mode mode_ = Mode::Storage;
  bool pending_ = true;  // the walk starts at the first read
  bool on_row_ = false;
  bool row_loaded_ = false;  // rows_ is on the current entry's row
  bool no_match_ = false;
  bool closed_ = false;
  std::int64_t position_ = 0;
  std::int64_t reached_ = 0;
};

// --- the database ------------------------------------------------------------------

// The statement's first word, upper-cased.
std::string Verbo(std::string_view sql) {
  std::string verb;
  for (char c : sql) {
    if (std::isalpha(static_cast<unsigned char>(c))) {
      verb += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    } else if (!verb.empty()) {
      break;
    }
  }
  return verb;
}

class JetDatabase : public Database {
 public:
  JetDatabase(std::unique_ptr<jet::Archivo> file, const CodePage& page, const OpenOptions& options)
      : file_(std::move(file)), page_(page), deadline_(options.plazo),
        lock_wait_ms_(std::max(options.busy_timeout_ms, 0)), read_only_(options.read_only) {}
  ~JetDatabase() override { Close(); }

  std::unique_ptr<Recordset> OpenRecordset(std::string_view source, RecordsetType type) override {
    RequireOpen();
    if (type == RecordsetType::Table) {
      const jet::Tabla* table =
          WithJetEngineErrors([&] { return file_->BuscaTabla(page_.ToUtf8(source)); });
      if (table == nullptr) {
        throw RuntimeError(kErrTablaNoEncontrada, Latin1("No se encuentra la tabla o consulta de entrada '") +
                                                      std::string(source) + "'.");
      }
      return std::make_unique<JetTableRecordset>(*file_, *table, page_, deadline_);
    }
    const std::string verb = Verbo(source);
    if (verb == "INSERT" || verb == "UPDATE" || verb == "DELETE") RequireWritable();
    return Sql().OpenRecordset(source, type);
  }

  std::int64_t Execute(std::string_view sql) override { return Execute(sql, {}); }

  // INSERT appends rows (tables without indexes only, see jet::AgregaFila),
  // waiting for the writers' lock as long as the options say and never past
  // the deadline; every other statement that would change the file is
  // refused.
  std::int64_t Execute(std::string_view sql, const std::vector<Value>& params) override {
    RequireOpen();
    const std::string verb = Verbo(sql);
    if (verb == "INSERT") {
      RequireWritable();
      const std::int64_t rows = Sql().Insert(sql, params);
      // What this database had read of the file is out of date; it is read
      // again if the database is used again.
      reread_ = true;
      return rows;
    }
    if (verb == "ALTER" || verb == "CREATE" || verb == "DROP") {
      throw RuntimeError(kErrSoloLectura,
                         Latin1("No se puede cambiar el diseño de las tablas de la base de datos '") +
                             file_->Nombre() + Latin1("': Orvex sólo agrega filas a los archivos Jet."));
    }
    throw RuntimeError(kErrSoloLectura,
                       Latin1("No se puede actualizar. La base de datos '") + file_->Nombre() +
                           Latin1("' sólo admite filas nuevas: Orvex no cambia ni borra filas de los "
                                  "archivos Jet."));
  }

  std::vector<std::string> TableNames() override {
    RequireOpen();
    std::vector<std::string> names;
    for (const std::string& n : WithJetEngineErrors([&] { return file_->NombresTablas(); })) {
      names.push_back(page_.FromUtf8(n));
    }
    return names;
  }

  std::vector<std::string> ColumnNames(std::string_view table) override {
    RequireOpen();
    std::vector<std::string> names;
    const jet::Tabla* t = WithJetEngineErrors([&] { return file_->BuscaTabla(page_.ToUtf8(table)); });
    if (t != nullptr) {
      for (const jet::Columna& c : t->columnas) names.push_back(page_.FromUtf8(c.nombre));
    }
    return names;
  }

  void Close() override {
    sql_.reset();
    file_.reset();
  }

 private:
  // After an INSERT the file is read afresh before it is used again.
  void RequireOpen() {
    if (!file_) throw RuntimeError(kErrOperacionNoValida, Latin1("La base de datos está cerrada."));
    if (reread_) {
      reread_ = false;
      const std::string path = file_->Nombre();
      sql_.reset();
      file_ = WithJetEngineErrors([&] { return jet::Archivo::Abre(path); });
    }
  }
  // A database opened read-only is never written, as on SQLite.
  void RequireWritable() const {
    if (read_only_) {
      throw RuntimeError(kErrSoloLectura,
                         Latin1("No se puede actualizar. La base de datos es de sólo lectura (") +
                             file_->Nombre() + ").");
    }
  }

  // The SQL connection over the file's tables, made at the first statement.
  JetSqlConnection& Sql() {
    if (!sql_) sql_ = std::make_unique<JetSqlConnection>(*file_, page_, deadline_, lock_wait_ms_);
    return *sql_;
  }

  std::unique_ptr<jet::Archivo> file_;
  bool reread_ = false;
  const CodePage& page_;
  Plazo* deadline_;   // the request's deadline; none: no deadline
  int lock_wait_ms_;  // the longest wait for the writers' lock on an INSERT
  bool read_only_;
  std::unique_ptr<JetSqlConnection> sql_;  // after file_, whose tables it presents
};

}  // namespace

std::unique_ptr<Database> OpenJetDatabase(const std::string& path, const CodePage& page,
                                          const OpenOptions& options) {
  std::unique_ptr<jet::Archivo> file;
  try {
    file = jet::Archivo::Abre(path);
  } catch (const ErrorJet& e) {
    RaiseJetDamage(e);
  }
  return std::make_unique<JetDatabase>(std::move(file), page, options);
}

}  // namespace orvex::db
