#pragma once

#include <array>
#include <cstring>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/Database.h"
#include "search/MapaFichas.h"

// The reader data of the book catalogue, and the facets of a result.
//
// orvex-catalogo derives, for each book, what the result page needs to count
// a result by year, language, material type, author and subject and to sort
// it by title, author or year (catalogo/DatosLector.h says how each value is
// read from the record). It stores them in two tables of KORVEL8.MDB; for a
// catalogue it did not build (Jet files, another program's SQLite files),
// `orvex-catalogo --lector DIRECTORIO` writes the same two tables into the
// SQLite file LECTOR.MDB beside that KORVEL8.MDB, which is never written.
// The gateway looks for the tables in KORVEL8.MDB, then in LECTOR.MDB
// (BuscaDatosLector); with neither, the page offers no facets and sorts by
// record number.
//
//   ORVEX_LECTOR ("Nombre" TEXT PRIMARY KEY, "Datos" BLOB NOT NULL)
//     one row per array, all indexed by record number (Ficha_No; element 0
//     is unused and 0), so that a request reads only the arrays it needs:
//       anio             the year, 0 when unknown (values below 10000)
//       idioma           the language's id in ORVEX_LECTOR_VALORES, 0 unknown
//       tipo             the material type's id, 0 unknown
//       titulo           the title's rank in the catalogue's title order
//                        (equal titles share a rank), 0 without a title
//       autor            the first author's rank likewise, 0 without author
//       autores.cuentas  how many authors each record has (at most 255)
//       autores.valores  their ids, record after record, in record order
//       temas.cuentas    the same for subjects
//       temas.valores
//     and the row "fuente", only in LECTOR.MDB: the text "tamaño mtime" of
//     the KORVEL8.MDB it was made from (bytes, seconds since 1970), so that
//     a side file left behind by a changed catalogue is not believed.
//   ORVEX_LECTOR_VALORES ("Faceta" TEXT, "Id" INTEGER, "Clave" TEXT,
//     "Texto" TEXT, PRIMARY KEY ("Faceta", "Id")) WITHOUT ROWID, and the
//     index ORVEX_LECTOR_VALORES_CLAVE ("Faceta", "Clave"): the values of
//     the facets idioma, tipo, autor and tema. Ids run 1, 2, 3... in the
//     order of the display texts (folded as the word index folds, then
//     byte by byte), so that ordering by id is ordering by text.
//
// An array's BLOB: a 12-byte header, "O" "L", the width of an element (1, 2
// or 4 bytes), 0, the number of elements (32 bits) and a bound that every
// element lies below (32 bits), then the elements; numbers little-endian.
// A BLOB whose length or width disagrees with its header, or a CSR whose
// counts do not add up to its values, makes that array absent: the facet or
// the sort it serves is not offered. An id at or past its array's bound
// names no value: it is neither counted nor matched. (Checking every element
// when an array is read would cost a request as much again as reading it.)
namespace orvex::search {

inline constexpr std::string_view kTablaLector = "ORVEX_LECTOR";
inline constexpr std::string_view kTablaValores = "ORVEX_LECTOR_VALORES";
// The index CLAVE of ORVEX_LECTOR_VALORES, under its SQLite name.
inline constexpr std::string_view kIndiceClave = "ORVEX_LECTOR_VALORES_CLAVE";
inline constexpr std::string_view kArchivoLateral = "LECTOR.MDB";
inline constexpr std::string_view kFilaFuente = "fuente";

enum class Faceta : std::uint8_t { kAnio, kIdioma, kTipo, kAutor, kTema };
inline constexpr int kNumeroFacetas = 5;

// How a request and ORVEX_LECTOR_VALORES name a facet: "anio", "idioma",
// "tipo", "autor", "tema".
std::string_view NombreFaceta(Faceta faceta);
std::optional<Faceta> FacetaDeNombre(std::string_view nombre);

// One array of ORVEX_LECTOR as stored: a view into the BLOB's bytes.
class Arreglo {
 public:
  // Reads the header of `blob`; false (and an empty array) when the BLOB is
  // not a well-formed array. The elements are not looked at.
  bool Lee(std::string_view blob);
  // The encoded BLOB of `valores`, every one below `limite`, in the
  // narrowest width that holds them.
  static std::string Codifica(const std::vector<std::uint32_t>& valores, std::uint32_t limite);

  std::uint32_t Tamano() const { return n_; }
  std::uint32_t Limite() const { return limite_; }
  int Ancho() const { return ancho_; }
  // Element i, 0 past the end.
  std::uint32_t operator[](std::uint32_t i) const;

  // The elements read at their stored width, for loops over many of them:
  // Visita calls f(v) with a Vista<uint8_t>, Vista<uint16_t> or
  // Vista<uint32_t>, whose v[i] (i below Tamano()) is element i.
  template <typename T>
  struct Vista {
    const unsigned char* datos;
    std::uint32_t operator[](std::uint32_t i) const {
      T v;
      std::memcpy(&v, datos + static_cast<std::size_t>(i) * sizeof(T), sizeof(T));
      return v;
    }
  };
  template <typename F>
  decltype(auto) Visita(F&& f) const {
    switch (ancho_) {
      case 1:
        return f(Vista<std::uint8_t>{datos_});
      case 2:
        return f(Vista<std::uint16_t>{datos_});
      default:
        return f(Vista<std::uint32_t>{datos_});
    }
  }

 private:
  const unsigned char* datos_ = nullptr;
  std::uint32_t n_ = 0, limite_ = 0;
  int ancho_ = 0;
};

// A multi-valued facet as a CSR kept as stored: record f has cuentas[f]
// values, which follow those of records 0 to f - 1 in `valores`. The counts
// are known to add up to the values; a walk in ascending record order keeps
// the running position (Recorre).
struct ValoresMultiples {
  Arreglo cuentas, valores;
  std::uint32_t Registros() const { return cuentas.Tamano(); }

  // Calls f(ficha, first, end) for each record of `fichas` (ascending)
  // within the arrays: its values are valores[first] to valores[end - 1].
  template <typename F>
  void Recorre(const std::vector<std::int32_t>& fichas, F&& f) const {
    cuentas.Visita([&](auto c) {
      std::uint32_t g = 0, posicion = 0;
      for (std::int32_t ficha : fichas) {
        const auto i = static_cast<std::uint32_t>(ficha);
        if (i >= Registros()) break;
        while (g < i) posicion += c[g++];
        f(ficha, posicion, posicion + c[i]);
      }
    });
  }
};

// A value of a facet: its id (the year itself for "anio"), what a request
// names it by (the year "1998", the language code "spa", the material type
// code "libro", the author's or subject's display text), its display text
// (Windows-1252) and, in a count, how many records of the result have it.
struct ValorFaceta {
  std::uint32_t id = 0;
  std::string clave;
  std::string texto;
  std::int32_t cuenta = 0;
};

// The reader data of one catalogue database, read on demand: each array
// the first time a count, a restriction or a sort asks for it. The database
// must outlive the object.
class DatosLector {
 public:
  explicit DatosLector(db::Database& base);
  ~DatosLector();
  DatosLector(const DatosLector&) = delete;
  DatosLector& operator=(const DatosLector&) = delete;

  // Whether the database holds ORVEX_LECTOR at all.
  bool Disponible();

  // The array `nombre` of ORVEX_LECTOR ("anio", "titulo"...), nullptr when
  // it is absent or damaged.
  const Arreglo* Columna(std::string_view nombre);
  // The single-valued array of a facet (anio, idioma, tipo), nullptr for
  // the others or when absent.
  const Arreglo* Simple(Faceta faceta);
  // The CSR of autor or tema, nullptr for the others or when absent.
  const ValoresMultiples* Multiple(Faceta faceta);

  // The value of `faceta` that a request names `clave`; nullopt when the
  // facet has no such value. For "anio" a year of four digits.
  std::optional<std::uint32_t> IdDeClave(Faceta faceta, std::string_view clave);
  // The value with id `id` (its count left 0); nullopt when unknown.
  std::optional<ValorFaceta> ValorDeId(Faceta faceta, std::uint32_t id);

  // The text of the row "fuente", empty when there is none.
  std::string Fuente();

 private:
  struct Estado;
  std::unique_ptr<Estado> e_;
};

// Where the gateway finds the reader data of a book catalogue: in
// `korvel` itself when it holds ORVEX_LECTOR, else in LECTOR.MDB beside
// `ruta_korvel` when that file is SQLite, holds the table and names as its
// source the KORVEL8.MDB now in `ruta_korvel` (same size and modification
// time). `datos` is null when neither: no facets, sorting by record number.
struct FuenteLector {
  std::unique_ptr<db::Database> lateral;  // LECTOR.MDB, when it is used
  std::unique_ptr<DatosLector> datos;
};
FuenteLector BuscaDatosLector(db::Database& korvel, const std::string& ruta_korvel,
                              db::Opener& abridor);

// The "fuente" text that names the file at `ruta` as it is now: its size
// and modification time ("93184000 1795000000"); empty when it cannot be
// read.
std::string IdentidadArchivo(const std::string& ruta);

// The counts of one facet over a result: at most `maximo` values, most
// frequent first, ties in the order of their display texts. `disponible` is
// false when the catalogue has no data for the facet.
struct ConteoFaceta {
  Faceta faceta = Faceta::kAnio;
  bool disponible = false;
  std::int32_t distintos = 0;  // values with at least one record
  std::vector<ValorFaceta> valores;
};

// Counts each facet's values over the records of `resultado`. Records
// beyond the arrays, and records without a value, count for nothing.
std::array<ConteoFaceta, kNumeroFacetas> CuentaFacetas(DatosLector& datos,
                                                       const MapaFichas& resultado,
                                                       int maximo = 10);
// One facet alone.
ConteoFaceta CuentaFaceta(DatosLector& datos, Faceta faceta, const MapaFichas& resultado,
                          int maximo = 10);

// A value chosen by the reader: the facet and the value's request name.
struct Eleccion {
  Faceta faceta = Faceta::kAnio;
  std::string clave;
};

// Keeps in `resultado` only the records that have every chosen value (each
// choice narrows what the previous left). A value the facet does not have
// leaves no record. Returns false, with `resultado` as the choices before
// it left it, at the first choice whose facet has no data: the page cannot
// honour it and says so rather than pretend.
bool Restringe(DatosLector& datos, const std::vector<Eleccion>& elecciones,
               MapaFichas& resultado);

}  // namespace orvex::search
