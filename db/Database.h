#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/CodePage.h"
#include "base/Plazo.h"

// The database layer: one small interface in the manner the gateway has
// always used its databases (open a database, open recordsets on a table or
// on SQL, walk them, seek an index, execute statements), behind which each
// engine hides. Texts are in the installation's code page on this side.
namespace orvex::db {

// One field value.
struct Value {
  enum class Type { Null, Integer, Real, Text, Date };
  Type type = Type::Null;
  std::int64_t integer = 0;
  double real = 0;
  std::string text;
  DateTime date;

  static Value Null() { return Value(); }
  static Value Of(std::int64_t v);
  static Value Of(double v);
  static Value Of(std::string v);
  static Value Of(const DateTime& v);

  bool IsNull() const { return type == Type::Null; }
  // The value as text: numbers in decimal, dates "yyyy-mm-dd hh:nn:ss",
  // null as empty text.
  std::string AsText() const;
};

// Reads "yyyy-mm-dd" or "yyyy-mm-dd hh:nn:ss", the form in which the
// catalogues store dates, with the day of the week; false for anything else.
bool ParseIsoDate(std::string_view text, DateTime& date);

enum class RecordsetType { Table, Dynaset, Snapshot };

// A position in a table or a result. Recordsets on SQL are read as the
// caller walks them: RecordCount counts the rows reached so far, and the
// total after MoveLast.
class Recordset {
 public:
  virtual ~Recordset() = default;

  virtual bool Eof() = 0;
  virtual void MoveNext() = 0;
  virtual void MoveFirst() = 0;
  virtual void MoveLast() = 0;
  virtual std::int64_t RecordCount() = 0;

  // The field of the current row named `name`, ignoring case. Raises 3265
  // when there is no such field, 3021 when there is no current row.
  virtual Value Field(std::string_view name) = 0;
  // The stored bytes of a binary field, as they are, without the code page
  // conversion of texts. Engines without binary fields give the text.
  virtual std::string FieldBytes(std::string_view name) { return Field(name).AsText(); }
  virtual std::vector<std::string> FieldNames() = 0;

  // Table-type recordsets only (others raise 3251): chooses the index by
  // name, then positions on the first entry that compares `op` ("=", ">=",
  // ">", "<=", "<") with the keys, which may be fewer than the index's
  // columns. The walk goes on in index order from there; NoMatch tells that
  // no entry qualified (for "=", that the entry found is not equal).
  virtual void SetIndex(std::string_view index) = 0;
  // Table-type recordsets: the walks after the next SetIndex or Seek read
  // only these fields (empty: all). A hint for engines that would otherwise
  // read whole rows; the word index reads its keys this way.
  virtual void SetFields(std::vector<std::string> names) = 0;
  virtual void Seek(std::string_view op, const std::vector<Value>& keys) = 0;
  virtual bool NoMatch() = 0;

  virtual void Close() = 0;
};

class Database {
 public:
  virtual ~Database() = default;

  // A number no other database opened by this process has, from one
  // process-wide counter (atomic, so that threads opening databases at once
  // still get distinct numbers): what a caller learned about one database is
  // never taken for another's.
  std::uint64_t Serie() const { return serial_; }

  // A table by name (type Table) or a statement in the catalogue's SQL
  // dialect (Dynaset, Snapshot).
  virtual std::unique_ptr<Recordset> OpenRecordset(std::string_view source,
                                                   RecordsetType type) = 0;
  // Runs a statement; returns the rows it affected.
  virtual std::int64_t Execute(std::string_view sql) = 0;
  // Runs a statement whose parameters ("?", outside its strings) take
  // `params` in order, texts in the code page: a value never becomes part
  // of the statement's text, whatever characters it holds. Raises 3075 when
  // the statement has another number of parameters. Returns the rows it
  // affected.
  virtual std::int64_t Execute(std::string_view sql, const std::vector<Value>& params) = 0;

  virtual std::vector<std::string> TableNames() = 0;
  virtual std::vector<std::string> ColumnNames(std::string_view table) = 0;

  virtual void Close() = 0;

 private:
  inline static std::atomic<std::uint64_t> opened_ = 0;
  const std::uint64_t serial_ = ++opened_;
};

struct OpenOptions {
  bool read_only = false;
  // For databases that many requests write at once (statistics): write-ahead
  // log and a wait for the lock of up to this many milliseconds. Commits
  // are not flushed to disk one by one, and the log stays between requests,
  // written back to the file by the engine's own checkpoints: a crash of
  // the machine can lose the last rows, never the file.
  int busy_timeout_ms = 0;
  // The request's deadline: a statement still running, or a wait for a
  // lock still waiting, when it passes stops with TiempoAgotado. None: only
  // the engine's own limits apply.
  Plazo* plazo = nullptr;
};

// The engine a database file is written for.
enum class Motor {
  Ilegible,     // the file cannot be opened (missing, not allowed)
  Desconocido,  // neither engine's mark
  Sqlite,       // "SQLite format 3" and a 00 byte, at the start
  Jet,          // "Standard Jet DB" at byte 4
};

// The engine of the file in `path`, told by its first bytes: only bytes the
// file has count, so a file shorter than a mark does not bear it. A path
// with a 00 byte names no file (Ilegible).
Motor MotorDeArchivo(const std::string& path);

// Opens the database in `path`, telling the engine by the file's first
// bytes (MotorDeArchivo). Raises a RuntimeError with the engine's number and
// text when the file is missing, unreadable or of a format Orvex cannot read.
std::unique_ptr<Database> OpenDatabase(const std::string& path, const CodePage& page,
                                       const OpenOptions& options = {});

// Opens databases for a request. The real one is OpenDatabase in the
// installation's code page; tests put in one that fails on purpose.
class Opener {
 public:
  virtual ~Opener() = default;
  virtual std::unique_ptr<Database> Open(const std::string& path, const OpenOptions& options) = 0;

  // The deadline that every database opened from now on is held to (its
  // OpenOptions::plazo, unless the caller gave one); nullptr: none.
  void Vigila(Plazo* plazo) { plazo_ = plazo; }

 protected:
  // The deadline that Vigila set, or nullptr.
  Plazo* PlazoVigilado() const { return plazo_; }
  // `options` with the deadline that Vigila set.
  OpenOptions Vigiladas(const OpenOptions& options) const {
    OpenOptions o = options;
    if (o.plazo == nullptr) o.plazo = plazo_;
    return o;
  }

 private:
  Plazo* plazo_ = nullptr;
};

class EngineOpener : public Opener {
 public:
  explicit EngineOpener(const CodePage& page) : page_(page) {}
  std::unique_ptr<Database> Open(const std::string& path, const OpenOptions& options) override {
    return OpenDatabase(path, page_, Vigiladas(options));
  }

 private:
  const CodePage& page_;
};

// Database error numbers, as the catalogue's engine has always numbered them.
inline constexpr int kErrNoRegistroActivo = 3021;
inline constexpr int kErrArchivoBaseNoEncontrado = 3024;
inline constexpr int kErrSoloLectura = 3027;
inline constexpr int kErrNoSePuedeAbrir = 3051;
inline constexpr int kErrSintaxis = 3075;
inline constexpr int kErrCampoDesconocido = 3127;
inline constexpr int kErrTablaNoEncontrada = 3078;
inline constexpr int kErrBloqueado = 3218;
inline constexpr int kErrOperacionNoValida = 3251;
inline constexpr int kErrElementoNoEncontrado = 3265;
inline constexpr int kErrFormatoNoReconocido = 3343;

}  // namespace orvex::db
