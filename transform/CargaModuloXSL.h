#pragma once

#include <string>
#include <vector>

#include "base/MotorXSL.h"
#include "xslt/ModuloXSL.h"

namespace orvex::transform {

// The XSL processor of the module "orvex-xsl.so", loaded on the first
// transformation from the first of `rutas` that exists, which must then
// show that its XML parser works. When that fails, every transformation
// reports SinProcesador with the reason. The deadline set by Vigila reaches
// the module as the time left when each transformation starts.
class MotorModuloXSL final : public MotorXSL {
 public:
  explicit MotorModuloXSL(std::vector<std::string> rutas) : rutas_(std::move(rutas)) {}

  ResultadoXSL Transforma(std::string_view xml, std::string_view xsl) override;

  // The first of `rutas` that names a readable file, or empty.
  std::string Encuentra() const;

 private:
  bool Carga();

  std::vector<std::string> rutas_;
  bool intentado_ = false;
  std::string error_;
  OrvexTransformaXSL transforma_ = nullptr;
  OrvexLiberaXSL libera_ = nullptr;
};

// Where orvex looks for the module: beside the program, then in the
// directory it was built for.
std::vector<std::string> RutasModuloXSL(const std::string& directorio_programa);

}  // namespace orvex::transform
