#include "cgi/Encabezado.h"

#include "base/EnviaLinea.h"
#include "base/Html.h"

namespace orvex::cgi {
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
  return s.ajustes.ecos_literales ? std::string(texto) : EscapaTexto(texto);
}

}  // namespace orvex::cgi
