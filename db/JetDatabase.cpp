#include "db/JetDatabase.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>

#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "db/JetSql.h"
#include "db/SqliteDatabase.h"
#include "db/jet/EscritorJet.h"
#include "db/jet/Jet4.h"

namespace orvex::db {
namespace {

using jet::ErrorJet;

[[noreturn]] void Dano(const ErrorJet& e) { throw RuntimeError(kErrFormatoNoReconocido, e.what()); }

// Runs `f`, turning the reader's errors into the engine's.
template <typename F>
auto Protege(F&& f) -> decltype(f()) {
  try {
    return f();
  } catch (const ErrorJet& e) {
    Dano(e);
  }
}

// --- values ----------------------------------------------------------------------

Value ValorDe(const jet::Valor& v, const CodePage& page) {
  switch (v.tipo) {
    case jet::Valor::Tipo::Nulo: return Value::Null();
    case jet::Valor::Tipo::Entero: return Value::Of(v.entero);
    case jet::Valor::Tipo::Real: return Value::Of(v.real);
    case jet::Valor::Tipo::Texto: return Value::Of(page.FromUtf8(v.bytes));
    case jet::Valor::Tipo::Fecha: {
      DateTime t;
      if (LeeFechaIso(jet::FechaISO(v.real), t)) return Value::Of(t);
      return Value::Null();
    }
    case jet::Valor::Tipo::Binario: return Value::Of(v.bytes);
  }
  return Value::Null();
}

jet::Valor ValorJet(const Value& v, const CodePage& page) {
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
int ComparaValores(const Value& a, const Value& b) {
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

bool EmpiezaCon(std::string_view texto, std::string_view prefijo) {
  return texto.substr(0, prefijo.size()) == prefijo;
}

const jet::Indice* BuscaIndice(const jet::Tabla& tabla, std::string_view nombre,
                               const CodePage& page) {
  for (const jet::Indice& i : tabla.indices) {
    if (EqualsIgnoringCase(page.FromUtf8(i.nombre), nombre)) return &i;
  }
  return nullptr;
}

// --- table-type recordsets ---------------------------------------------------------

class JetTablaRecordset : public Recordset {
 public:
  JetTablaRecordset(const jet::Archivo& archivo, const jet::Tabla& tabla, const CodePage& page,
                    Plazo* plazo)
      : archivo_(archivo), tabla_(tabla), page_(page), plazo_(plazo),
        filas_(std::make_unique<jet::Filas>(archivo, tabla)) {}

  bool Eof() override {
    Asegura();
    return cerrado_ || !en_fila_;
  }

  void MoveNext() override {
    Asegura();
    RequiereFila();
    cargada_ = false;
    Protege([&] {
      switch (modo_) {
        case Modo::Almacen: en_fila_ = filas_->Siguiente(); cargada_ = en_fila_; break;
        case Modo::Indice: en_fila_ = cursor_->Siguiente(); break;
        case Modo::Lista: en_fila_ = ++lista_i_ < lista_.size(); break;
        case Modo::Fija: en_fila_ = false; break;
      }
    });
    if (en_fila_) alcanzadas_ = std::max(alcanzadas_, ++posicion_);
  }

  void MoveFirst() override {
    Asegura();
    RequiereAbierto();
    cargada_ = false;
    Protege([&] {
      switch (modo_) {
        case Modo::Fija:
          modo_ = Modo::Almacen;
          [[fallthrough]];
        case Modo::Almacen:
          filas_->Reinicia();
          en_fila_ = filas_->Siguiente();
          cargada_ = en_fila_;
          break;
        case Modo::Indice: en_fila_ = cursor_->Primero(); break;
        case Modo::Lista: en_fila_ = !lista_.empty(), lista_i_ = 0; break;
      }
    });
    posicion_ = en_fila_ ? 1 : 0;
    alcanzadas_ = std::max(alcanzadas_, posicion_);
  }

  void MoveLast() override {
    Asegura();
    RequiereFila();
    Protege([&] {
      Carga();
      jet::PosicionFila ultima = filas_->Posicion();
      for (std::size_t vistas = 0;; ++vistas) {
        MiraPlazo(vistas);
        MoveNext();
        if (!en_fila_) break;
        Carga();
        ultima = filas_->Posicion();
      }
      modo_ = Modo::Fija;
      en_fila_ = filas_->Ve(ultima);
      cargada_ = en_fila_;
    });
  }

  std::int64_t RecordCount() override {
    Asegura();
    return alcanzadas_;
  }

  Value Field(std::string_view name) override {
    Asegura();
    const size_t i = Columna(name);
    RequiereFila();
    return Protege([&] {
      // On an index walk, a column of the key is read back from it without
      // reading the row: the word index's walks read nothing else.
      if (modo_ == Modo::Indice && !cargada_) {
        for (size_t k = 0; k < indice_->columnas.size(); ++k) {
          if (indice_->columnas[k].columna != i) continue;
          if (const auto v = cursor_->ValorDeClave(k)) return ValorDe(*v, page_);
          break;
        }
      }
      Carga();
      return ValorDe(filas_->Lee(i), page_);
    });
  }

  std::string FieldBytes(std::string_view name) override {
    Asegura();
    const size_t i = Columna(name);
    RequiereFila();
    return Protege([&] {
      Carga();
      const jet::Valor v = filas_->Lee(i);
      return v.tipo == jet::Valor::Tipo::Binario ? v.bytes : ValorDe(v, page_).AsText();
    });
  }

  std::vector<std::string> FieldNames() override {
    RequiereAbierto();
    std::vector<std::string> nombres;
    for (const jet::Columna& c : tabla_.columnas) nombres.push_back(page_.FromUtf8(c.nombre));
    return nombres;
  }

  void SetIndex(std::string_view nombre) override {
    RequiereAbierto();
    const jet::Indice* indice = BuscaIndice(tabla_, nombre, page_);
    if (indice == nullptr) {
      throw RuntimeError(3800, "'" + std::string(nombre) + Latin1("' no es un índice de esta tabla."));
    }
    if (indice != indice_) {
      indice_ = indice;
      cursor_ = Protege([&] { return std::make_unique<jet::CursorIndice>(archivo_, tabla_, *indice); });
      lista_.clear();
      lista_hecha_ = false;
    }
    modo_ = Modo::Indice;
    pendiente_ = true;
  }

  // Rows are read column by column as asked: nothing to prepare.
  void SetFields(std::vector<std::string>) override { RequiereAbierto(); }

  void Seek(std::string_view op, const std::vector<Value>& keys) override {
    RequiereAbierto();
    pendiente_ = false;
    if (indice_ == nullptr) {
      throw RuntimeError(kErrOperacionNoValida, Latin1("No se ha establecido el índice."));
    }
    if (keys.empty() || keys.size() > indice_->columnas.size()) {
      throw RuntimeError(kErrSintaxis, Latin1("Número de claves incorrecto para el índice."));
    }
    if (op != "=" && op != ">=" && op != ">" && op != "<=" && op != "<") {
      throw RuntimeError(kErrSintaxis, Latin1("Operador de búsqueda no válido: ") + std::string(op));
    }
    cargada_ = false;
    Protege([&] {
      std::vector<jet::Valor> valores;
      for (const Value& k : keys) valores.push_back(ValorJet(k, page_));
      const std::optional<std::string> clave =
          op[0] == '<' ? std::nullopt : cursor_->Clave(valores);
      if (clave) {
        modo_ = Modo::Indice;
        en_fila_ = cursor_->Busca(*clave);
        if (op == ">") {
          while (en_fila_ && EmpiezaCon(cursor_->ClaveActual(), *clave)) en_fila_ = cursor_->Siguiente();
        }
        no_match_ = !en_fila_ || (op == "=" && !EmpiezaCon(cursor_->ClaveActual(), *clave));
      } else {
        BuscaEnLista(op, keys);
      }
    });
    posicion_ = en_fila_ ? 1 : 0;
    alcanzadas_ = posicion_;
  }

  bool NoMatch() override { return no_match_; }

  void Close() override {
    cursor_.reset();
    filas_.reset();
    lista_.clear();
    cerrado_ = true;
    en_fila_ = false;
  }

 private:
  enum class Modo { Almacen, Indice, Lista, Fija };

  struct Entrada {
    jet::PosicionFila fila;
    std::vector<Value> claves;
  };

  // A table opened, or an index chosen, is on its first row once read.
  void Asegura() {
    if (!pendiente_) return;
    pendiente_ = false;
    cargada_ = false;
    Protege([&] {
      if (modo_ == Modo::Indice) {
        en_fila_ = cursor_->Primero();
      } else {
        filas_->Reinicia();
        en_fila_ = filas_->Siguiente();
        cargada_ = en_fila_;
      }
    });
    posicion_ = en_fila_ ? 1 : 0;
    alcanzadas_ = posicion_;
  }

  // The row of the current index entry.
  void Carga() {
    if (cargada_) return;
    const jet::PosicionFila fila =
        modo_ == Modo::Lista ? lista_[lista_i_].fila : cursor_->Fila();
    if (!filas_->Ve(fila)) {
      throw ErrorJet(Latin1("Base de datos Jet dañada '") + archivo_.Nombre() +
                     Latin1("': el índice ") + indice_->nombre +
                     Latin1(" apunta a una fila que no existe."));
    }
    cargada_ = true;
  }

  // The table's rows with their index keys, sorted as the index sorts them
  // (once per index).
  void HazLista() {
    if (lista_hecha_) return;
    lista_.clear();
    filas_->Reinicia();
    for (std::size_t vistas = 0; filas_->Siguiente(); ++vistas) {
      MiraPlazo(vistas);
      Entrada e{filas_->Posicion(), {}};
      for (const jet::ColumnaIndice& c : indice_->columnas) {
        e.claves.push_back(ValorDe(filas_->Lee(c.columna), page_));
      }
      lista_.push_back(std::move(e));
    }
    std::stable_sort(lista_.begin(), lista_.end(), [&](const Entrada& a, const Entrada& b) {
      return Compara(a.claves, b.claves, indice_->columnas.size()) < 0;
    });
    lista_hecha_ = true;
  }

  // A seek the index's key encoding does not cover, searched by comparison
  // in the sorted rows.
  void BuscaEnLista(std::string_view op, const std::vector<Value>& keys) {
    HazLista();
    const size_t n = keys.size();
    auto menor = [&](const Entrada& e, const std::vector<Value>& k) { return Compara(e.claves, k, n) < 0; };
    auto mayor = [&](const std::vector<Value>& k, const Entrada& e) { return Compara(k, e.claves, n) < 0; };
    const auto desde = std::lower_bound(lista_.begin(), lista_.end(), keys, menor);
    const auto hasta = std::upper_bound(lista_.begin(), lista_.end(), keys, mayor);
    auto elegida = lista_.end();
    if (op == "=" || op == ">=") elegida = desde;
    if (op == ">") elegida = hasta;
    if (op == "<=" && hasta != lista_.begin()) elegida = hasta - 1;
    if (op == "<" && desde != lista_.begin()) elegida = desde - 1;
    modo_ = Modo::Lista;
    lista_i_ = static_cast<size_t>(elegida - lista_.begin());
    en_fila_ = elegida != lista_.end();
    no_match_ = !en_fila_ || (op == "=" && elegida == hasta);
  }

  // The walks of a whole table in one call (MoveLast, the sorted rows) look
  // at the deadline every so many rows.
  void MiraPlazo(std::size_t vistas) const {
    constexpr std::size_t kFilasEntreMiradas = 1024;
    if (plazo_ != nullptr && vistas % kFilasEntreMiradas == 0 && plazo_->Vencido()) {
      throw TiempoAgotado{};
    }
  }

  int Compara(const std::vector<Value>& a, const std::vector<Value>& b, size_t n) const {
    for (size_t i = 0; i < n && i < a.size() && i < b.size(); ++i) {
      int c = ComparaValores(a[i], b[i]);
      if (!indice_->columnas[i].ascendente) c = -c;
      if (c != 0) return c;
    }
    return 0;
  }

  size_t Columna(std::string_view nombre) {
    RequiereAbierto();
    for (const auto& [conocido, i] : columnas_) {
      if (conocido == nombre) return i;
    }
    for (size_t i = 0; i < tabla_.columnas.size(); ++i) {
      if (EqualsIgnoringCase(page_.FromUtf8(tabla_.columnas[i].nombre), nombre)) {
        columnas_.emplace_back(std::string(nombre), i);
        return i;
      }
    }
    throw RuntimeError(kErrElementoNoEncontrado,
                       Latin1("Elemento no encontrado en esta colección: ") + std::string(nombre));
  }

  void RequiereAbierto() const {
    if (cerrado_) throw RuntimeError(kErrOperacionNoValida, Latin1("El Recordset está cerrado."));
  }
  void RequiereFila() const {
    RequiereAbierto();
    if (!en_fila_) throw RuntimeError(kErrNoRegistroActivo, Latin1("No hay registro activo."));
  }

  const jet::Archivo& archivo_;
  const jet::Tabla& tabla_;
  const CodePage& page_;
  Plazo* plazo_;
  std::unique_ptr<jet::Filas> filas_;
  const jet::Indice* indice_ = nullptr;
  std::unique_ptr<jet::CursorIndice> cursor_;
  std::vector<Entrada> lista_;
  bool lista_hecha_ = false;
  size_t lista_i_ = 0;
  std::vector<std::pair<std::string, size_t>> columnas_;
  Modo modo_ = Modo::Almacen;
  bool pendiente_ = true;
  bool en_fila_ = false;
  bool cargada_ = false;  // filas_ is on the current entry's row
  bool no_match_ = false;
  bool cerrado_ = false;
  std::int64_t posicion_ = 0;
  std::int64_t alcanzadas_ = 0;
};

// --- the virtual tables of the SQL connection -------------------------------------

// What the SQL connection's tables share with their database: the file as
// read, the writers' lock wait, and what the last INSERT met, for Execute
// to report once SQLite has returned.
struct ContextoJet {
  const jet::Archivo* archivo = nullptr;
  Plazo* plazo = nullptr;  // the request's deadline; none: no deadline
  int espera_ms = 0;       // the longest wait for the writers' lock
  std::string error_escritura;  // why the last row was not written (Windows-1252)
  bool vencido = false;         // the wait for the lock reached the deadline
};

struct VTabla {
  sqlite3_vtab base{};
  ContextoJet* contexto = nullptr;
  const jet::Archivo* archivo = nullptr;
  const jet::Tabla* tabla = nullptr;
};

struct VCursor {
  sqlite3_vtab_cursor base{};
  std::unique_ptr<jet::Filas> filas;
  std::unique_ptr<jet::CursorIndice> indice;
  std::string clave;  // the seek's key: entries that begin with it qualify
  bool eof = true;
  sqlite3_int64 fila = 0;
};

// Kinds of plan in idxNum: the index's place in the table, times 4, plus
// the kind.
constexpr int kRecorre = 0, kIgual = 1, kComienzo = 2;

int ErrorEn(sqlite3_vtab* vtab, const std::exception& e, int rc) {
  sqlite3_free(vtab->zErrMsg);
  vtab->zErrMsg = sqlite3_mprintf("%s", e.what());
  return rc;
}

std::string TipoDeclarado(const jet::Columna& c) {
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

std::string Citado(std::string_view nombre) {
  std::string r = "\"";
  for (char c : nombre) {
    if (c == '"') r += '"';
    r += c;
  }
  return r + "\"";
}

int VConecta(sqlite3* db, void* aux, int argc, const char* const* argv, sqlite3_vtab** vtab,
             char** error) {
  auto* contexto = static_cast<ContextoJet*>(aux);
  const jet::Archivo* archivo = contexto->archivo;
  try {
    if (argc < 4) return SQLITE_ERROR;
    const std::vector<std::string> nombres = archivo->NombresTablas();
    const size_t n = static_cast<size_t>(std::atoi(argv[3]));
    const jet::Tabla* tabla = n < nombres.size() ? archivo->BuscaTabla(nombres[n]) : nullptr;
    if (tabla == nullptr) return SQLITE_ERROR;
    std::string esquema = "CREATE TABLE x(";
    for (size_t i = 0; i < tabla->columnas.size(); ++i) {
      esquema += (i == 0 ? "" : ", ") + Citado(tabla->columnas[i].nombre) + " " +
                 TipoDeclarado(tabla->columnas[i]);
    }
    esquema += ")";
    const int rc = sqlite3_declare_vtab(db, esquema.c_str());
    if (rc != SQLITE_OK) return rc;
    auto* v = new VTabla();
    v->contexto = contexto;
    v->archivo = archivo;
    v->tabla = tabla;
    *vtab = &v->base;
    return SQLITE_OK;
  } catch (const std::exception& e) {
    *error = sqlite3_mprintf("%s", e.what());
    return SQLITE_CORRUPT;
  }
}

int VDesconecta(sqlite3_vtab* vtab) {
  delete reinterpret_cast<VTabla*>(vtab);
  return SQLITE_OK;
}

bool ClaveSeekable(const jet::Tabla& tabla, const jet::Indice& indice, bool texto) {
  if (indice.columnas.empty()) return false;
  const jet::TipoColumna t = tabla.columnas[indice.columnas[0].columna].tipo;
  if (texto) return t == jet::TipoColumna::Texto;
  return t == jet::TipoColumna::Largo || t == jet::TipoColumna::Entero ||
         t == jet::TipoColumna::Byte || t == jet::TipoColumna::Texto;
}

int VMejorIndice(sqlite3_vtab* vtab, sqlite3_index_info* info) {
  const jet::Tabla& tabla = *reinterpret_cast<VTabla*>(vtab)->tabla;
  info->idxNum = kRecorre;
  info->estimatedCost = 10.0 + tabla.filas;
  info->estimatedRows = tabla.filas;
  for (int c = 0; c < info->nConstraint; ++c) {
    const auto& r = info->aConstraint[c];
    if (!r.usable || r.iColumn < 0) continue;
    const bool igual = r.op == SQLITE_INDEX_CONSTRAINT_EQ;
    const bool like = r.op == SQLITE_INDEX_CONSTRAINT_LIKE;
    if (!igual && !like) continue;
    for (size_t i = 0; i < tabla.indices.size(); ++i) {
      const jet::Indice& indice = tabla.indices[i];
      if (indice.columnas.empty() ||
          indice.columnas[0].columna != static_cast<size_t>(r.iColumn) ||
          !ClaveSeekable(tabla, indice, like)) {
        continue;
      }
      // The engine checks the constraint again on each row it gets.
      info->aConstraintUsage[c].argvIndex = 1;
      info->aConstraintUsage[c].omit = 0;
      info->idxNum = static_cast<int>(i) * 4 + (igual ? kIgual : kComienzo);
      info->estimatedCost = igual ? 10.0 : 100.0;
      info->estimatedRows = igual ? 10 : 100;
      return SQLITE_OK;
    }
  }
  return SQLITE_OK;
}

int VAbre(sqlite3_vtab* vtab, sqlite3_vtab_cursor** cursor) {
  auto* v = reinterpret_cast<VTabla*>(vtab);
  try {
    auto* c = new VCursor();
    c->filas = std::make_unique<jet::Filas>(*v->archivo, *v->tabla);
    *cursor = &c->base;
    return SQLITE_OK;
  } catch (const std::exception& e) {
    return ErrorEn(vtab, e, SQLITE_CORRUPT);
  }
}

int VCierra(sqlite3_vtab_cursor* cursor) {
  delete reinterpret_cast<VCursor*>(cursor);
  return SQLITE_OK;
}

// Puts the cursor on the row of its index entry, or at the end when the
// entry no longer begins with the key.
void SigueIndice(VCursor& c, const jet::Archivo& archivo) {
  if (c.eof || !EmpiezaCon(c.indice->ClaveActual(), c.clave)) {
    c.eof = true;
    return;
  }
  if (!c.filas->Ve(c.indice->Fila())) {
    throw ErrorJet(Latin1("Base de datos Jet dañada '") + archivo.Nombre() +
                   Latin1("': un índice apunta a una fila que no existe."));
  }
}

// The fixed start of a LIKE pattern of the dialect: the text before its
// first wildcard.
std::string Comienzo(std::string_view patron) {
  return std::string(patron.substr(0, std::min(patron.find_first_of("*?#[%_"), patron.size())));
}

int VFiltra(sqlite3_vtab_cursor* cursor, int idx, const char*, int argc, sqlite3_value** argv) {
  auto& c = *reinterpret_cast<VCursor*>(cursor);
  auto* v = reinterpret_cast<VTabla*>(cursor->pVtab);
  try {
    c.fila = 0;
    c.indice.reset();
    const int tipo = idx % 4;
    if (tipo != kRecorre && argc == 1) {
      const jet::Indice& indice = v->tabla->indices[static_cast<size_t>(idx / 4)];
      std::vector<jet::Valor> claves(1);
      sqlite3_value* valor = argv[0];
      if (sqlite3_value_type(valor) == SQLITE_INTEGER) {
        claves[0] = jet::Valor::DeEntero(sqlite3_value_int64(valor));
      } else if (sqlite3_value_type(valor) == SQLITE_TEXT) {
        const std::string texto(reinterpret_cast<const char*>(sqlite3_value_text(valor)),
                                static_cast<size_t>(sqlite3_value_bytes(valor)));
        claves[0] = jet::Valor::DeTexto(tipo == kComienzo ? Comienzo(texto) : texto);
      }
      auto cursor_indice = std::make_unique<jet::CursorIndice>(*v->archivo, *v->tabla, indice);
      std::optional<std::string> clave;
      if (claves[0].tipo != jet::Valor::Tipo::Nulo && !(tipo == kComienzo && claves[0].bytes.empty())) {
        clave = cursor_indice->Clave(claves);
      }
      // A fixed start is every key that begins with its letters: the text's
      // key without its end marks. One with marked letters is scanned.
      if (clave && tipo == kComienzo) {
        if (clave->size() >= 2 && clave->ends_with(std::string_view("\x01\x00", 2))) {
          clave->resize(clave->size() - 2);
        } else {
          clave.reset();
        }
      }
      if (clave) {
        c.indice = std::move(cursor_indice);
        c.clave = std::move(*clave);
        c.eof = !c.indice->Busca(c.clave);
        SigueIndice(c, *v->archivo);
        return SQLITE_OK;
      }
    }
    c.filas->Reinicia();
    c.eof = !c.filas->Siguiente();
    return SQLITE_OK;
  } catch (const std::exception& e) {
    return ErrorEn(cursor->pVtab, e, SQLITE_CORRUPT);
  }
}

int VSiguiente(sqlite3_vtab_cursor* cursor) {
  auto& c = *reinterpret_cast<VCursor*>(cursor);
  try {
    ++c.fila;
    if (c.indice) {
      c.eof = !c.indice->Siguiente();
      SigueIndice(c, *reinterpret_cast<VTabla*>(cursor->pVtab)->archivo);
    } else {
      c.eof = !c.filas->Siguiente();
    }
    return SQLITE_OK;
  } catch (const std::exception& e) {
    return ErrorEn(cursor->pVtab, e, SQLITE_CORRUPT);
  }
}

int VFin(sqlite3_vtab_cursor* cursor) { return reinterpret_cast<VCursor*>(cursor)->eof ? 1 : 0; }

int VColumna(sqlite3_vtab_cursor* cursor, sqlite3_context* ctx, int i) {
  auto& c = *reinterpret_cast<VCursor*>(cursor);
  try {
    const jet::Valor v = c.filas->Lee(static_cast<size_t>(i));
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
    return ErrorEn(cursor->pVtab, e, SQLITE_CORRUPT);
  }
}

int VFila(sqlite3_vtab_cursor* cursor, sqlite3_int64* fila) {
  *fila = reinterpret_cast<VCursor*>(cursor)->fila;
  return SQLITE_OK;
}

// A value of an INSERT as the column stores it.
jet::Valor ValorParaColumna(const jet::Columna& c, sqlite3_value* v) {
  const int tipo = sqlite3_value_type(v);
  if (tipo == SQLITE_NULL) return jet::Valor::Nulo();
  const char* texto = reinterpret_cast<const char*>(sqlite3_value_text(v));
  const std::string como_texto =
      texto == nullptr ? "" : std::string(texto, static_cast<std::size_t>(sqlite3_value_bytes(v)));
  jet::Valor r;
  switch (c.tipo) {
    case jet::TipoColumna::Texto:
    case jet::TipoColumna::Memo:
      return jet::Valor::DeTexto(como_texto);
    case jet::TipoColumna::Fecha:
      r.tipo = jet::Valor::Tipo::Fecha;
      if (tipo == SQLITE_TEXT) {
        if (!jet::DiasDeFechaISO(como_texto, r.real)) break;
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
      const int numerico = sqlite3_value_numeric_type(v);
      if (numerico != SQLITE_INTEGER && numerico != SQLITE_FLOAT) break;
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
int VActualiza(sqlite3_vtab* vtab, int argc, sqlite3_value** argv, sqlite3_int64*) {
  auto& v = *reinterpret_cast<VTabla*>(vtab);
  ContextoJet& contexto = *v.contexto;
  try {
    if (argc < 2 || sqlite3_value_type(argv[0]) != SQLITE_NULL) {
      throw ErrorJet(Latin1("No se puede actualizar. La base de datos '") + v.archivo->Nombre() +
                     Latin1("' sólo admite filas nuevas."));
    }
    std::vector<jet::Valor> valores;
    for (std::size_t i = 0; i < v.tabla->columnas.size() && static_cast<int>(i) + 2 < argc; ++i) {
      valores.push_back(ValorParaColumna(v.tabla->columnas[i], argv[i + 2]));
    }
    const std::string& ruta = v.archivo->Nombre();
    auto destino = jet::AbreParaEscribir(ruta, contexto.espera_ms, contexto.plazo);
    auto fresco = jet::Archivo::Abre(ruta);
    jet::AgregaFila(*fresco, *destino, v.tabla->nombre, valores);
    return SQLITE_OK;
  } catch (const std::exception& e) {
    contexto.error_escritura = e.what();
    sqlite3_free(vtab->zErrMsg);
    vtab->zErrMsg = sqlite3_mprintf("%s", e.what());
    return SQLITE_ERROR;
  } catch (const TiempoAgotado&) {
    contexto.vencido = true;
    return SQLITE_ERROR;
  }
}

const sqlite3_module kModulo = {
    /* iVersion */ 0,
    /* xCreate */ VConecta,
    /* xConnect */ VConecta,
    /* xBestIndex */ VMejorIndice,
    /* xDisconnect */ VDesconecta,
    /* xDestroy */ VDesconecta,
    /* xOpen */ VAbre,
    /* xClose */ VCierra,
    /* xFilter */ VFiltra,
    /* xNext */ VSiguiente,
    /* xEof */ VFin,
    /* xColumn */ VColumna,
    /* xRowid */ VFila,
    /* xUpdate */ VActualiza,
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

// --- the database ------------------------------------------------------------------

class JetDatabase : public Database {
 public:
  JetDatabase(std::unique_ptr<jet::Archivo> archivo, const CodePage& page,
              const OpenOptions& options)
      : archivo_(std::move(archivo)), page_(page) {
    contexto_.plazo = options.plazo;
    contexto_.espera_ms = std::max(options.busy_timeout_ms, 0);
  }
  ~JetDatabase() override { Close(); }

  std::unique_ptr<Recordset> OpenRecordset(std::string_view source, RecordsetType type) override {
    RequiereAbierta();
    if (type == RecordsetType::Table) {
      const jet::Tabla* tabla = Protege([&] { return archivo_->BuscaTabla(page_.ToUtf8(source)); });
      if (tabla == nullptr) {
        throw RuntimeError(kErrTablaNoEncontrada, Latin1("No se encuentra la tabla o consulta de entrada '") +
                                                      std::string(source) + "'.");
      }
      return std::make_unique<JetTablaRecordset>(*archivo_, *tabla, page_, contexto_.plazo);
    }
    return Sql().OpenRecordset(source, type);
  }

  std::int64_t Execute(std::string_view sql) override { return Execute(sql, {}); }

  // INSERT appends rows (tables without indexes only, see jet::AgregaFila),
  // waiting for the writers' lock as long as the options say and never past
  // the deadline; every other statement that would change the file is
  // refused.
  std::int64_t Execute(std::string_view sql, const std::vector<Value>& params) override {
    RequiereAbierta();
    std::string verbo;
    for (char c : sql) {
      if (std::isalpha(static_cast<unsigned char>(c))) {
        verbo += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      } else if (!verbo.empty()) {
        break;
      }
    }
    if (verbo == "INSERT") {
      std::int64_t filas = 0;
      contexto_.error_escritura.clear();
      contexto_.vencido = false;
      try {
        filas = Sql().Execute(sql, params);
      } catch (const RuntimeError& e) {
        if (contexto_.vencido) throw TiempoAgotado{};
        if (!contexto_.error_escritura.empty()) {
          throw RuntimeError(kErrSoloLectura, contexto_.error_escritura);
        }
        // A column the table does not have, in Jet's words.
        constexpr std::string_view kSinColumna = "has no column named ";
        const std::string& d = e.description();
        const std::size_t i = d.find(kSinColumna);
        if (i == std::string::npos) throw;
        throw RuntimeError(kErrCampoDesconocido,
                           Latin1("La instrucción INSERT INTO contiene el siguiente nombre de campo "
                                  "desconocido: '") +
                               d.substr(i + kSinColumna.size()) +
                               Latin1("'. Asegúrese de que ha escrito el nombre correctamente e "
                                      "intente la operación de nuevo."));
      }
      // What this connection had read of the file is out of date; it is
      // read again if the connection is used again.
      releer_ = true;
      return filas;
    }
    if (verbo == "ALTER" || verbo == "CREATE" || verbo == "DROP") {
      throw RuntimeError(kErrSoloLectura,
                         Latin1("No se puede cambiar el diseño de las tablas de la base de datos '") +
                             archivo_->Nombre() + Latin1("': Orvex sólo agrega filas a los archivos Jet."));
    }
    throw RuntimeError(kErrSoloLectura,
                       Latin1("No se puede actualizar. La base de datos '") + archivo_->Nombre() +
                           Latin1("' sólo admite filas nuevas: Orvex no cambia ni borra filas de los "
                                  "archivos Jet."));
  }

  std::vector<std::string> TableNames() override {
    RequiereAbierta();
    std::vector<std::string> nombres;
    for (const std::string& n : Protege([&] { return archivo_->NombresTablas(); })) {
      nombres.push_back(page_.FromUtf8(n));
    }
    return nombres;
  }

  std::vector<std::string> ColumnNames(std::string_view table) override {
    RequiereAbierta();
    std::vector<std::string> nombres;
    const jet::Tabla* tabla = Protege([&] { return archivo_->BuscaTabla(page_.ToUtf8(table)); });
    if (tabla != nullptr) {
      for (const jet::Columna& c : tabla->columnas) nombres.push_back(page_.FromUtf8(c.nombre));
    }
    return nombres;
  }

  void Close() override {
    sql_.reset();
    archivo_.reset();
  }

 private:
  // After an INSERT the file is read afresh before it is used again.
  void RequiereAbierta() {
    if (!archivo_) throw RuntimeError(kErrOperacionNoValida, Latin1("La base de datos está cerrada."));
    if (releer_) {
      releer_ = false;
      const std::string ruta = archivo_->Nombre();
      sql_.reset();
      archivo_ = Protege([&] { return jet::Archivo::Abre(ruta); });
    }
  }

  // The SQL connection, made at the first statement: every table of the
  // file is a virtual table of the same name.
  Database& Sql() {
    if (sql_) return *sql_;
    const std::vector<std::string> nombres = Protege([&] { return archivo_->NombresTablas(); });
    contexto_.archivo = archivo_.get();
    sql_ = OpenSqliteEnMemoria(page_, [&](sqlite3* db) {
      sqlite3_create_module(db, "orvex_jet", &kModulo, &contexto_);
      for (size_t i = 0; i < nombres.size(); ++i) {
        const std::string sql = "CREATE VIRTUAL TABLE " + Citado(nombres[i]) +
                                " USING orvex_jet(" + std::to_string(i) + ")";
        char* error = nullptr;
        if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
          const std::string detalle = error != nullptr ? error : "";
          sqlite3_free(error);
          throw RuntimeError(kErrFormatoNoReconocido,
                             Latin1("No se pudo leer la tabla '") + page_.FromUtf8(nombres[i]) +
                                 "' de '" + archivo_->Nombre() + "': " + detalle);
        }
      }
    }, contexto_.plazo);
    return *sql_;
  }

  std::unique_ptr<jet::Archivo> archivo_;
  bool releer_ = false;
  const CodePage& page_;
  ContextoJet contexto_;  // before sql_, whose tables point to it
  std::unique_ptr<Database> sql_;
};

}  // namespace

std::unique_ptr<Database> OpenJetDatabase(const std::string& path, const CodePage& page,
                                          const OpenOptions& options) {
  std::unique_ptr<jet::Archivo> archivo;
  try {
    archivo = jet::Archivo::Abre(path);
  } catch (const ErrorJet& e) {
    throw RuntimeError(kErrFormatoNoReconocido, e.what());
  }
  return std::make_unique<JetDatabase>(std::move(archivo), page, options);
}

}  // namespace orvex::db
