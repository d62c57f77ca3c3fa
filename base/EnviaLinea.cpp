#include "base/EnviaLinea.h"

namespace orvex {

void EnviaLinea(Output& salida, std::string& texto) {
  texto += "\r\n";
  salida.Write(texto);
}

void EnviaLinea(Output& salida, std::string&& texto) {
  std::string linea = std::move(texto);
  EnviaLinea(salida, linea);
}

}  // namespace orvex
