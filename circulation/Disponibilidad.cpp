#include "circulation/Disponibilidad.h"

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"

namespace orvex::circulation {
namespace {

// Calls `visita(numero, servidor)` for each well-formed line of `seccion`
// in order until it returns true; true when one did.
template <typename Visita>
bool RecorreServidores(std::string_view seccion, Visita visita) {
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
    const std::string_view resto = linea.substr(6);
    const size_t marca = resto.find("##", 1);
    if (marca == std::string_view::npos) continue;
    const std::string_view host = TrimBlanksView(resto.substr(0, marca));
    const std::string_view puerto = TrimBlanksView(resto.substr(marca + 2));
    if (host.empty() || puerto.empty()) continue;
    if (visita((d1 - '0') * 10 + (d2 - '0'),
               ServidorCirculacion{std::string(host), std::string(puerto)})) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool BuscaServidor(std::string_view seccion, std::uint8_t base_dta,
                   ServidorCirculacion& servidor) {
  return RecorreServidores(seccion, [&](int numero, ServidorCirculacion&& linea) {
    if (numero != base_dta) return false;
    servidor = std::move(linea);
    return true;
  });
}

int PuertoTCP(std::string_view texto) {
  int puerto = 0;
  try {
    puerto = ToInt32(LeadingNumber(texto));
  } catch (const RuntimeError&) {
  }
  return puerto >= 1 && puerto <= 65535 ? puerto : 0;
}

bool ServidorListado(std::string_view seccion, std::string_view host, int puerto,
                     ServidorCirculacion& servidor) {
  if (puerto == 0) return false;
  return RecorreServidores(seccion, [&](int, ServidorCirculacion&& linea) {
    if (!EqualsIgnoringCase(linea.direccion, host) || PuertoTCP(linea.puerto) != puerto) {
      return false;
    }
    servidor = std::move(linea);
    return true;
  });
}

}  // namespace orvex::circulation
