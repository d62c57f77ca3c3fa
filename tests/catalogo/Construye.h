#pragma once

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "catalogo/Catalogo.h"
#include "tests/support/Fakes.h"

namespace orvex::catalogo::prueba {

// Builds the catalogue of `archivos` into `directorio`, as
// "orvex-catalogo --silencioso directorio archivos..." does, dated
// testing::SampleDate(). "" when it was built, else what went wrong.
inline std::string Construye(const std::filesystem::path& directorio,
                             const std::vector<std::string>& archivos) {
  std::vector<std::string> args = {"--silencioso", directorio.string()};
  args.insert(args.end(), archivos.begin(), archivos.end());
  Opciones o;
  std::string error;
  if (LeeOpciones(args, o, error) != kSalidaExito) return error;
  std::ostringstream mensajes;
  if (ConstruyeCatalogo(o, testing::SampleDate(), mensajes) != kSalidaExito) {
    return "no se construyó: " + mensajes.str();
  }
  return "";
}

}  // namespace orvex::catalogo::prueba
