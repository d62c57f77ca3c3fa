#pragma once

#include <filesystem>
#include <string>
#include <vector>

// Building MARC records for the catalogue builder's tests.
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

// Writes `bytes` to `ruta` and returns it.
std::filesystem::path EscribeArchivo(const std::filesystem::path& ruta, const std::string& bytes);

}  // namespace orvex::catalogo::prueba
