#include "base/Html.h"

namespace orvex {
namespace {

// `texto` with "&", "<" and ">" as character references, "\"" as `comilla`
// and "'" as `apostrofo`; a null replacement keeps the character's byte.
std::string Escapa(std::string_view texto, const char* comilla, const char* apostrofo) {
  std::string salida;
  salida.reserve(texto.size());
  for (const char c : texto) {
    switch (c) {
      case '&': salida += "&amp;"; break;
      case '<': salida += "&lt;"; break;
      case '>': salida += "&gt;"; break;
      case '"':
        if (comilla != nullptr) {
          salida += comilla;
        } else {
          salida += c;
        }
        break;
      case '\'':
        if (apostrofo != nullptr) {
          salida += apostrofo;
        } else {
          salida += c;
        }
        break;
      default: salida += c;
    }
  }
  return salida;
}

}  // namespace

std::string EscapaEco(std::string_view texto) { return Escapa(texto, "&quot;", "&#39;"); }

std::string EscapaTexto(std::string_view texto) { return Escapa(texto, nullptr, nullptr); }

std::string EscapaComillaDoble(std::string_view texto) {
  return Escapa(texto, "&quot;", nullptr);
}

std::string EscapaEntidadesXML(std::string_view texto) {
  return Escapa(texto, "&quot;", "&apos;");
}

}  // namespace orvex
