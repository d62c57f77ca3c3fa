#include "base/Html.h"

namespace orvex {
namespace {

// `texto` with "&", "<" and ">" as character references, and the quotes too
// when `comillas`.
std::string Escapa(std::string_view texto, bool comillas) {
  std::string salida;
  salida.reserve(texto.size());
  for (const char c : texto) {
    switch (c) {
      case '&': salida += "&amp;"; break;
      case '<': salida += "&lt;"; break;
      case '>': salida += "&gt;"; break;
      case '"': salida += comillas ? "&quot;" : "\""; break;
      case '\'': salida += comillas ? "&#39;" : "'"; break;
      default: salida += c;
    }
  }
  return salida;
}

}  // namespace

std::string EscapaEco(std::string_view texto) { return Escapa(texto, true); }

std::string EscapaTexto(std::string_view texto) { return Escapa(texto, false); }

}  // namespace orvex
