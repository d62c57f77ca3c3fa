#pragma once

// The module "orvex-marc.so": marc/'s writers (MARC 21, MARCXML, RIS,
// BibTeX, the citation text) on YAZ, loaded by the gateway only for a
// request that exports records or shows a citation, so that orvex itself
// starts without YAZ and the libraries it pulls in. The gateway reads the
// records and their source records (marc/Origen.h) and hands them over
// through these C declarations only: each side keeps its own C++ runtime.
// This header needs nothing compiled of marc/.

#include <cstddef>
#include <cstdint>

extern "C" {

// One book record handed to the module; the texts are the caller's and stay
// alive during the call.
struct OrvexFichaMarc {
  std::int32_t ficha;          // the record number (Ficha_no)
  std::int16_t tipo_material;  // TipoMaterial: 1 for language material
  const char* etiquetas;       // the tag string, Windows-1252
  std::size_t largo_etiquetas;
  int origen;                  // an orvex::marc::TipoOrigen value
  const char* bytes_origen;    // the source record, when there is one
  std::size_t largo_origen;
};

// Receives the module's text, which lives only during this call.
using OrvexRecibeMarc = void (*)(void* contexto, const char* texto, std::size_t largo);

// Writes the `n` records of `fichas` in `salida` (an orvex::marc::Salida
// value) and hands the whole text to `recibe`, once, with `contexto`.
// Nonzero when it did; zero for an unknown `salida` or when the module ran
// out of memory, and then `recibe` is not called.
using OrvexExportaMarc = int (*)(int salida, const OrvexFichaMarc* fichas, std::size_t n,
                                 OrvexRecibeMarc recibe, void* contexto);

}  // extern "C"

namespace orvex::marc {

inline constexpr const char* kArchivoModuloMarc = "orvex-marc.so";
// The interface's name: a change to the declarations above renames it, so
// that a module left from another build of Orvex is refused, not misread.
inline constexpr const char* kFuncionExporta = "orvex_marc_exporta_1";

enum class TipoOrigen : int { Ninguno = 0, Iso2709 = 1, MarcXml = 2 };

// What the module writes, all UTF-8 but the citation:
enum class Salida : int {
  // RIS records, each ended by "ER  - " and separated by an empty line;
  // CR LF line ends.
  Ris = 1,
  // BibTeX entries separated by an empty line.
  BibTex = 2,
  // An XML document: a MARCXML <collection> of the records.
  MarcXml = 3,
  // The ISO 2709 records one after another.
  Marc21 = 4,
  // The citation text of each record, one a line (LF), Windows-1252.
  Cita = 5,
};

}  // namespace orvex::marc
