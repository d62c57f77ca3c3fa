#include "config/Plantillas.h"

#include "base/EnviaLinea.h"
#include "base/Runtime.h"

namespace orvex::config {

const std::string& ReemplazaTexto(std::string& texto, std::string_view buscar,
                                  std::string_view reemplazo) {
  if (buscar.empty()) return texto;
  std::size_t p = BuscaTexto(texto, buscar);
  if (p == std::string::npos) return texto;
  // Built in one pass: same result as rebuilding the text per occurrence.
  std::string resultado;
  resultado.reserve(texto.size());
  std::size_t desde = 0;
  while (p != std::string::npos) {
    resultado.append(texto, desde, p - desde);
    resultado.append(reemplazo);
    desde = p + buscar.size();
    p = BuscaTexto(texto, buscar, desde);
  }
  resultado.append(texto, desde, std::string::npos);
  texto = std::move(resultado);
  return texto;
}

void ReemplazaFechas(std::string& texto, Clock& reloj) {
  if (BuscaTexto(texto, "<!") == std::string::npos) return;
  if (BuscaTexto(texto, "<!FECHA!>") != std::string::npos) {
    ReemplazaTexto(texto, "<!FECHA!>", FormatDate(reloj.Now()));
  }
  if (BuscaTexto(texto, "<!DIA!>") != std::string::npos) {
    ReemplazaTexto(texto, "<!DIA!>", FormatWeekday(reloj.Now()));
  }
  if (BuscaTexto(texto, "<!HORA!>") != std::string::npos) {
    ReemplazaTexto(texto, "<!HORA!>", FormatTime12(reloj.Now()));
  }
}

void MensajeH4(Output& salida, std::string_view mensaje) {
  std::string linea = "<center><p><H4>";
  linea += mensaje;
  linea += "</H4><p/></center>";
  EnviaLinea(salida, linea);
}

}  // namespace orvex::config
