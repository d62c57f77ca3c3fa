#include "base/Html.h"

namespace orvex {
namespace {

// Appends `texto` to `salida` with "&", "<" and ">" as character references,
// "\"" as `comilla` and "'" as `apostrofo`.
void Agrega(std::string& salida, std::string_view texto, std::string_view comilla,
            std::string_view apostrofo) {
  for (const char c : texto) {
    switch (c) {
      case '&': salida += "&amp;"; break;
      case '<': salida += "&lt;"; break;
      case '>': salida += "&gt;"; break;
      case '"': salida += comilla; break;
      case '\'': salida += apostrofo; break;
      default: salida += c;
    }
  }
}

std::string Escapa(std::string_view texto, std::string_view comilla, std::string_view apostrofo) {
  std::string salida;
  salida.reserve(texto.size());
  Agrega(salida, texto, comilla, apostrofo);
  return salida;
}

}  // namespace

std::string EscapaEco(std::string_view texto) { return Escapa(texto, "&quot;", "&#39;"); }

std::string EscapaTexto(std::string_view texto) { return Escapa(texto, "\"", "'"); }

void AgregaEscapaTexto(std::string& destino, std::string_view texto) {
  Agrega(destino, texto, "\"", "'");
}

std::string EscapaComillaDoble(std::string_view texto) {
  return Escapa(texto, "&quot;", "'");
}

std::string EscapaEntidadesXML(std::string_view texto) {
  return Escapa(texto, "&quot;", "&apos;");
}

}  // namespace orvex
