#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// Orvex's own read-only reader of Jet 4 files (Access 2000-2007 format), the
// catalogue files that libraries keep and that another program fills and
// rewrites while Orvex serves them. Pages are read with pread into a cache
// that lives as long as the file object (no mmap: a file truncated by its
// writer gives a short read, reported as an error, never a signal).
//
// Nothing here knows SQL or the gateway: db/JetDatabase builds the
// database layer's engine on top of it.
namespace orvex::db::jet {

// Every failure of the reader: a file that is missing, not Jet, Jet 3, or
// damaged (truncated, zeroed pages, wrong page types, pointers out of range,
// cycles in page chains), or a feature the reader does not support. The
// message is Spanish text in Windows-1252 and names the file.
class ErrorJet : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline constexpr std::uint32_t kTamanoPagina = 4096;

// Pages by number. Pointers stay valid as long as the source lives.
class FuentePaginas {
 public:
  virtual ~FuentePaginas() = default;
  virtual std::uint32_t Paginas() const = 0;
  // Page `n`, kTamanoPagina bytes; throws ErrorJet when n is out of range or
  // the page cannot be read whole.
  virtual const std::uint8_t* Pagina(std::uint32_t n) const = 0;
  // The file's name, for messages.
  virtual const std::string& Nombre() const = 0;
};

// Column types as Jet numbers them.
enum class TipoColumna : std::uint8_t {
  Booleano = 0x01,
  Byte = 0x02,
  Entero = 0x03,   // 16-bit
  Largo = 0x04,    // 32-bit
  Moneda = 0x05,   // 64-bit, 4 decimals
  Simple = 0x06,   // float
  Doble = 0x07,
  Fecha = 0x08,    // double: days since 1899-12-30
  Binario = 0x09,
  Texto = 0x0A,
  Ole = 0x0B,
  Memo = 0x0C,
  Guid = 0x0F,
  Numerico = 0x10,
};

struct Columna {
  std::string nombre;          // UTF-8
  TipoColumna tipo{};
  std::uint16_t numero = 0;    // the column's number in rows
  std::uint16_t indice_variable = 0;  // place among the variable columns
  std::uint16_t desplazamiento_fijo = 0;  // offset among the fixed columns
  std::uint16_t tamano = 0;    // bytes (text: 2 per character)
  std::uint8_t banderas = 0;   // 0x01 fixed length, 0x02 may be null, ...
  std::uint16_t orden = 0;     // text sort order (1033: General (legacy))
  bool comprimido = false;     // text stored with the Jet 4 Unicode compression
  bool Fija() const { return (banderas & 0x01) != 0; }
};

struct ColumnaIndice {
  std::size_t columna = 0;     // position in Tabla::columnas
  bool ascendente = true;
};

struct Indice {
  std::string nombre;          // UTF-8, as the table definition names it
  std::vector<ColumnaIndice> columnas;
  std::uint32_t pagina_raiz = 0;  // the B-tree's first page
  bool unico = false;
  bool primario = false;
};

struct Tabla {
  std::string nombre;          // UTF-8
  std::uint32_t pagina_definicion = 0;
  std::uint32_t filas = 0;     // the row count the definition holds
  std::vector<Columna> columnas;  // in the order the definition lists them
  std::vector<Indice> indices;
  // How many indexes the definition declares, relations' keys included.
  std::uint32_t indices_declarados = 0;
  std::vector<std::uint32_t> paginas_datos;  // from the usage map, in order
};

// A row's place: data page and row number within it.
struct PosicionFila {
  std::uint32_t pagina = 0;
  std::uint16_t fila = 0;
  bool operator==(const PosicionFila&) const = default;
};

// One decoded value.
struct Valor {
  enum class Tipo { Nulo, Entero, Real, Texto, Fecha, Binario };
  Tipo tipo = Tipo::Nulo;
  std::int64_t entero = 0;     // Entero: booleans are -1 (true) and 0
  double real = 0;             // Real; Fecha: days since 1899-12-30
  std::string bytes;           // Texto: UTF-8; Binario: the stored bytes

  static Valor Nulo() { return Valor(); }
  static Valor DeEntero(std::int64_t v) { Valor r; r.tipo = Tipo::Entero; r.entero = v; return r; }
  static Valor DeTexto(std::string v) { Valor r; r.tipo = Tipo::Texto; r.bytes = std::move(v); return r; }
};

// "YYYY-MM-DD HH:MM:SS" for a Jet date (days since 1899-12-30, the fraction
// the time of day, rounded to the second), as the SQLite catalogues store
// dates.
std::string FechaISO(double dias);

// A Jet 4 file.
class Archivo : public FuentePaginas {
 public:
  // Opens `ruta` read-only and reads its definition page and catalogue.
  // Throws ErrorJet for a missing or unreadable file, one that is not a Jet
  // file, a Jet 3 file, or a damaged definition or catalogue.
  static std::unique_ptr<Archivo> Abre(const std::string& ruta);
  // The same over bytes in memory (tests, fuzzing); `nombre` for messages.
  static std::unique_ptr<Archivo> DesdeMemoria(std::string bytes, std::string nombre);

  // The user tables that the catalogue (MSysObjects) lists, in its order.
  virtual std::vector<std::string> NombresTablas() const = 0;
  // The table named `nombre`, ignoring case (ASCII and Latin letters); null
  // when there is none. The definition is read on first use and kept.
  // Throws ErrorJet when the definition is damaged or unsupported.
  virtual const Tabla* BuscaTabla(std::string_view nombre) const = 0;
};

// The rows of a table: walked in storage order (data pages of the usage
// map, rows in page order, deleted rows skipped, overflow rows followed), or
// reached one at a time by position (from an index).
class Filas {
 public:
  Filas(const FuentePaginas& archivo, const Tabla& tabla);
  ~Filas();
  Filas(const Filas&) = delete;
  Filas& operator=(const Filas&) = delete;

  // Back before the first row.
  void Reinicia();
  // The next row; false after the last.
  bool Siguiente();
  // Goes to the row at `posicion`; false when it is deleted or not a row
  // of this table.
  bool Ve(PosicionFila posicion);
  PosicionFila Posicion() const;
  // The value of the current row's column at `columna` (position in
  // Tabla::columnas), decoded on demand. Throws ErrorJet on damage.
  Valor Lee(std::size_t columna) const;

 private:
  struct Estado;
  std::unique_ptr<Estado> e_;
};

// A walk over an index's B-tree in key order.
class CursorIndice {
 public:
  CursorIndice(const FuentePaginas& archivo, const Tabla& tabla, const Indice& indice);
  ~CursorIndice();
  CursorIndice(const CursorIndice&) = delete;
  CursorIndice& operator=(const CursorIndice&) = delete;

  // The key bytes of `claves`, values for the index's first claves.size()
  // columns: each column's marker and encoded value, so that an entry whose
  // first columns equal them has a key that begins with these bytes.
  // Nothing when a value cannot be encoded: a text column whose sort order
  // is not General (legacy), a character outside the alphabet the encoder
  // knows, a column type without a key encoding. The caller then scans.
  std::optional<std::string> Clave(const std::vector<Valor>& claves) const;

  // Positions on the first entry whose key is >= `clave` (compared as
  // bytes); false when there is none.
  bool Busca(std::string_view clave);
  // The first entry; false when the index is empty.
  bool Primero();
  // The next entry in key order; false after the last.
  bool Siguiente();
  bool Valido() const;
  // The current entry's whole key (its page's shared prefix restored), and
  // the row it points to.
  std::string_view ClaveActual() const;
  PosicionFila Fila() const;
  // The value of the index's column `k` read back from the current key,
  // when the key holds it whole: long and integer columns, and texts of the
  // word alphabet, which come back in upper case (the case is not in the
  // key). Nothing otherwise; the caller then reads the row.
  std::optional<Valor> ValorDeClave(std::size_t k) const;

 private:
  struct Estado;
  std::unique_ptr<Estado> e_;
};

}  // namespace orvex::db::jet
