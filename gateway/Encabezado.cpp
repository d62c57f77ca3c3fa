#include "gateway/Encabezado.h"

#include "base/EnviaLinea.h"

namespace orvex::gateway {
namespace {

void EnviaTipoYCache(Solicitud& s) {
  EnviaLinea(s.sys.salida, "Content-Type: text/html");
  EnviaLinea(s.sys.salida, "Cache-Control: public\r\n");
}

void EnviaTitulo(Solicitud& s, std::string_view titulo) {
  EnviaLinea(s.sys.salida, "");
  if (titulo.empty()) return;
  EnviaLinea(s.sys.salida, "<HTML><HEAD><TITLE>" + std::string(titulo) + "</TITLE></HEAD>\r\n");
  EnviaLinea(s.sys.salida, "<BODY>");
}

}  // namespace

void EnviaCabeceraHTTP(Solicitud& s) {
  EnviaTipoYCache(s);
  EnviaLinea(s.sys.salida, "<!--" + s.sys.archivos.ProgramDirectory() + "-->");
}

void EnviaEncabezado(Solicitud& s, std::string_view titulo) {
  EnviaCabeceraHTTP(s);
  EnviaTitulo(s, titulo);
}

void EnviaEncabezadoPublico(Solicitud& s, std::string_view titulo) {
  EnviaTipoYCache(s);
  EnviaTitulo(s, titulo);
}

std::string EcoEnTexto(const Solicitud& s, std::string_view texto) {
  if (s.ajustes.ecos_literales) return std::string(texto);
  std::string salida;
  salida.reserve(texto.size());
  for (const char c : texto) {
    switch (c) {
      case '&': salida += "&amp;"; break;
      case '<': salida += "&lt;"; break;
      case '>': salida += "&gt;"; break;
      default: salida += c;
    }
  }
  return salida;
}

}  // namespace orvex::gateway
