#include "gateway/Encabezado.h"

#include "base/EnviaLinea.h"

namespace orvex::gateway {

void EnviaCabeceraHTTP(Solicitud& s) {
  Output& salida = s.sys.salida;
  EnviaLinea(salida, "Content-Type: text/html");
  EnviaLinea(salida, "Cache-Control: public\r\n");
  EnviaLinea(salida, "<!--" + s.sys.archivos.ProgramDirectory() + "-->");
}

void EnviaEncabezado(Solicitud& s, std::string_view titulo) {
  EnviaCabeceraHTTP(s);
  EnviaLinea(s.sys.salida, "");
  if (titulo.empty()) return;
  EnviaLinea(s.sys.salida, "<HTML><HEAD><TITLE>" + std::string(titulo) + "</TITLE></HEAD>\r\n");
  EnviaLinea(s.sys.salida, "<BODY>");
}

}  // namespace orvex::gateway
