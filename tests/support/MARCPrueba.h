#pragma once

#include <filesystem>
#include <string>
#include <vector>

// Building MARC records for the tests of the catalogue builder and of the
// MARC writers.
namespace orvex::catalogo::prueba {

// One field of RegistroISO: for a control field (00X) its data; for a data
// field the two indicators followed by the subfields, each written "$a...".
struct CampoISO {
  std::string etiqueta;
  std::string contenido;
};

// The record in ISO 2709 with leader positions 6 (`tipo`), 7 (`nivel`, the
// bibliographic level) and 9 (`codificacion`), the directory in the usual
// "4500" layout.
std::string RegistroISO(const std::vector<CampoISO>& campos, char codificacion = 'a',
                        char tipo = 'a', char nivel = 'm');

// An ISO 2709 record assembled byte by byte from `lider`, the leader's
// positions 5-11 then 17-23 (14 characters), and each field's bytes, tag
// first and field terminator included: for records that a MARC library would
// not write the same way.
std::string IsoCrudo(const std::string& lider, const std::vector<std::string>& campos);

// Writes `bytes` to `ruta` and returns it.
std::filesystem::path EscribeArchivo(const std::filesystem::path& ruta, const std::string& bytes);

}  // namespace orvex::catalogo::prueba
