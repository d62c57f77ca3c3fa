#pragma once

#include <string>
#include <vector>

#include "catalogo/RegistroMARC.h"

// From a MARC record to the catalogue's tag string (`Fichas.EtiquetasMARC`),
// the text that the gateway reads (see records/Ficha.h).
namespace orvex::catalogo {

// The occurrences of one tag as the tag string holds them (UTF-8).
struct Grupo {
  std::string etiqueta;
  std::vector<std::string> ocurrencias;
};

// The record's fields grouped by tag, the groups in the order of each tag's
// first appearance and the occurrences in record order.
//
// Control fields (00X) give their data as it stands. A data field gives what
// a cataloguer reads: its subfield values trimmed of blanks and joined by
// one blank, codes and indicators dropped, empty values skipped. Subfields
// with numeric codes (authority links, sources, linkage) are not read,
// except $3 (the part of the item described). In subject headings (6XX) the
// subdivisions $v $x $y $z are joined by " -- ". An electronic location (856)
// gives "address;link text": the first $u, then the first $y, else the first
// $3; the address alone when there is no text; nothing without $u.
//
// Accents spelt with combining marks are composed (ComponeAcentos) and the
// tag string's own marks are replaced inside the content (LimpiaContenido).
// Occurrences that come out empty are dropped, and a tag left without
// occurrences is dropped.
std::vector<Grupo> AgrupaCampos(const RegistroMARC& registro);

// The tag string of `grupos`: for each group the field separator "¦", the
// tag and its occurrences joined by " \ ", then the end mark "Ì" (UTF-8):
//   "¦100García Márquez, Gabriel, 1927-2014.¦245Cien años de soledad.Ì"
std::string EtiquetasMARC(const std::vector<Grupo>& grupos);

}  // namespace orvex::catalogo
