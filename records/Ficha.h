#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"

// A catalogue record and the readers of its tag string.
//
// The tag string (`EtiquetasMARC`) holds all MARC fields of a record in one
// text: a field separator "¦" before every field, then exactly three tag
// characters, then the field content, which runs up to the next "¦" or the
// end mark "Ì", whichever comes first. Repeated occurrences of a tag share one
// field, separated by "\". The end mark follows the last field:
//   "¦" tag content "¦" tag content ... "Ì"
namespace orvex::records {

// The field separator and the end mark, in Windows-1252.
inline constexpr char kSeparadorCampo = '\xA6';  // "¦"
inline constexpr char kFinEtiquetas = '\xCC';    // "Ì"

// The placeholder record shown when a record cannot be read:
// "¦100- [sin autor] -¦245- [sin título] -Ì".
const std::string& FichaSinDatos();

// One book record as loaded for display.
struct RegFicha {
  std::int32_t Ficha_no = 0;  // 0: no such record
  std::optional<DateTime> Fecha;
  std::optional<DateTime> FechaMod;
  std::string DatosFijos;
  std::string EtiquetasMARC;
  std::int16_t TipoMaterial = 0;
  // One line per copy, as LineaEjemplar forms it.
  std::string Ejemplares;
};

// One line of `RegFicha::Ejemplares`: the copy's NumAdqui, Biblioteca,
// Ejemplar, Volumen, Tomo, Accesible and FechaIngreso (already formatted),
// joined by "," and ended by CR LF. Nothing is quoted: a "," inside a value
// shifts the later values for whoever splits the line.
std::string LineaEjemplar(const std::array<std::string, 7>& valores);

// The non-empty lines of `ejemplares` (RegFicha::Ejemplares), without their
// CR LF, in order.
std::vector<std::string_view> LineasEjemplares(std::string_view ejemplares);

// The content of the first field, in the order of `lista`, whose tag occurs in
// the tag string `etiquetas`; empty when none does.
//
// `lista` is a run of three-character tags ("100110111" is 100, 110, 111).
// It counts length / 3 tags, rounded half to even, so "1002" is one tag and
// "10011" two, the second a short piece padded with blanks ("11 "). A field
// matches when "¦" and its three tag characters occur exactly (case-sensitive)
// in `etiquetas`; a separator followed by fewer than three characters never
// matches. When a tag occurs twice, the first field counts.
//
// The content runs from just after the tag to the next "¦" or "Ì", or to the
// end of `etiquetas` when neither follows. It is returned raw, "\" separators
// included. Raises 6 (Desbordamiento) when `lista` counts more than 255 tags.
std::string ExtraeEtiqueta(std::string_view lista, std::string_view etiquetas);

// The occurrences held in one field content, one per line: the content is
// split at every "\", each piece is trimmed of blanks, empty pieces are
// dropped and the rest joined by CR LF. "Gatos \  \ Perros" gives
// "Gatos" CR LF "Perros".
std::string SeparaRepetidos(std::string_view contenido);

}  // namespace orvex::records
