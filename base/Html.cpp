#include "base/Html.h"

namespace orvex {

std::string EscapaEco(std::string_view texto) {
  std::string salida;
  salida.reserve(texto.size());
  for (const char c : texto) {
    switch (c) {
      case '&': salida += "&amp;"; break;
      case '<': salida += "&lt;"; break;
      case '>': salida += "&gt;"; break;
      case '"': salida += "&quot;"; break;
      case '\'': salida += "&#39;"; break;
      default: salida += c;
    }
  }
  return salida;
}

}  // namespace orvex
