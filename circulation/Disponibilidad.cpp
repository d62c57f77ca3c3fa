#include "circulation/Disponibilidad.h"

#include "base/Runtime.h"

namespace orvex::circulation {

bool BuscaServidor(std::string_view seccion, std::uint8_t base_dta,
                   ServidorCirculacion& servidor) {
  size_t inicio = 0;
  while (inicio <= seccion.size()) {
    size_t fin = seccion.find('\n', inicio);
    if (fin == std::string_view::npos) fin = seccion.size();
    std::string_view linea = TrimBlanksView(seccion.substr(inicio, fin - inicio));
    if (!linea.empty() && linea.back() == '\r') linea.remove_suffix(1);
    inicio = fin + 1;
    if (linea.size() < 7 || !linea.starts_with("##")) continue;
    const char d1 = linea[2], d2 = linea[3];
    if (d1 < '0' || d1 > '9' || d2 < '0' || d2 > '9') continue;
    if ((d1 - '0') * 10 + (d2 - '0') != base_dta) continue;
    const std::string_view resto = linea.substr(6);
    const size_t marca = resto.find("##", 1);
    if (marca == std::string_view::npos) continue;
    const std::string_view host = TrimBlanksView(resto.substr(0, marca));
    const std::string_view puerto = TrimBlanksView(resto.substr(marca + 2));
    if (host.empty() || puerto.empty()) continue;
    servidor.direccion = std::string(host);
    servidor.puerto = std::string(puerto);
    return true;
  }
  return false;
}

}  // namespace orvex::circulation
