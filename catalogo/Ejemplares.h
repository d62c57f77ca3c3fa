#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "catalogo/RegistroMARC.h"

// The copies of a record (`KORVEL8.MDB`, table `Ejemplares`), taken from its
// holdings fields in record order.
//
// 852 (location), MARC 21's own holdings field:
//   NumAdqui    $p (piece designation, the barcode), else $j (shelving number)
//   Biblioteca  $b (sublocation or collection), else $a (location)
//   Ejemplar    $t (copy number)
//   Volumen     $3 (the part of the item it holds, e.g. "v. 3")
// 949, the local item field in the layout many catalogues export:
//   NumAdqui    $p, else $i
//   Biblioteca  $a
//   Ejemplar    $c
//   Volumen     $v
//   Tomo        $t
//   FechaIngreso $d as yyyymmdd or yyyy-mm-dd
//
// What a field does not give: Biblioteca is the run's library (--biblioteca),
// Ejemplar the copy's place among the record's copies ("1", "2", ...),
// NumAdqui the record number in six digits ("000017"), followed by "-" and
// the copy's place from the second copy on ("000017-2"), FechaIngreso the
// run's date; Accesible is always "S". A record without holdings fields gets,
// when the run names a library, one copy: NumAdqui its number in six digits,
// that library, Ejemplar "1", Accesible "S", the run's date; otherwise none.
//
// Values are trimmed and cut to the columns' widths (NumAdqui 15, Biblioteca
// 50, Ejemplar, Volumen, Tomo 10 characters); an accession number that had
// to be cut is reported, since two copies may then share it.
namespace orvex::catalogo {

// One row of `Ejemplares` (UTF-8 texts, FechaIngreso "yyyy-mm-dd hh:mm:ss").
struct Ejemplar {
  std::string NumAdqui, Biblioteca, Ejemplar, Volumen, Tomo, Accesible, FechaIngreso;
};

struct OpcionesEjemplares {
  std::string biblioteca;    // empty: no default copies
  std::string fecha_ingreso;  // the run's date, "yyyy-mm-dd 00:00:00"
};

// The copies of record number `ficha`. Warnings (Spanish) go to `avisos`.
std::vector<Ejemplar> EjemplaresDeRegistro(const RegistroMARC& registro, std::int32_t ficha,
                                           const OpcionesEjemplares& opciones,
                                           std::vector<std::string>& avisos);

// The accession number that holdings field `campo` gives as above (852 $p
// else $j, 949 $p else $i), trimmed and cleaned for the tag string's marks
// but not cut; empty for any other field or when it gives none.
std::string NumeroAdquisicion(const Campo& campo);

// "yyyy-mm-dd 00:00:00" from "yyyymmdd" or "yyyy-mm-dd" (a valid calendar
// date), empty otherwise.
std::string FechaDeTexto(std::string_view texto);

}  // namespace orvex::catalogo
