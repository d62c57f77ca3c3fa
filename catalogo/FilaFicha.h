#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "catalogo/EtiquetasMARC.h"
#include "catalogo/RegistroMARC.h"

// One row of `Fichas` (KORVEL8.MDB) from a MARC record.
namespace orvex::catalogo {

struct FilaFicha {
  std::int32_t Ficha_No = 0;
  std::string Fecha;                    // "yyyy-mm-dd hh:mm:ss"
  std::optional<std::string> FechaMod;  // null when the record has no usable 005
  std::string DatosFijos;               // the 008, at most 255 characters
  std::string EtiquetasMARC;            // UTF-8
  std::string TipoMaterial;             // "1" or "2"
};

// The row of record number `numero`:
// - Fecha: the date the record was entered on file (008 positions 0-5,
//   yymmdd, at 00:00:00; the century is the latest that does not put the
//   year after the year of `ahora`), else `ahora`.
// - FechaMod: the latest transaction (005, yyyymmddhhmmss.f), when valid.
// - DatosFijos: the 008 as it stands.
// - TipoMaterial: "1" for language material (leader position 6 "a" or "t",
//   or no leader), "2" for any other kind of material.
// - EtiquetasMARC: EtiquetasMARC(grupos).
FilaFicha FichaDeRegistro(const RegistroMARC& registro, const std::vector<Grupo>& grupos,
                          std::int32_t numero, const DateTime& ahora);

// "yyyy-mm-dd hh:mm:ss".
std::string FechaISO(const DateTime& t);

}  // namespace orvex::catalogo
