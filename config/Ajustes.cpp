#include "config/Ajustes.h"

#include <charconv>
#include <string>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"

namespace orvex::config {
namespace {

constexpr std::size_t kLargoMaximoArchivo = 64 * 1024;

std::string_view Recorta(std::string_view texto) {
  const std::size_t inicio = texto.find_first_not_of(" \t\r");
  if (inicio == std::string_view::npos) return {};
  const std::size_t fin = texto.find_last_not_of(" \t\r");
  return texto.substr(inicio, fin - inicio + 1);
}

void Aplica(Ajustes& a, std::string_view clave, std::string_view valor) {
  if (EqualsIgnoringCase(clave, "ArchivoCFG")) {
    if (EqualsIgnoringCase(valor, "cualquier_ruta")) a.cfg_cualquier_ruta = true;
  } else if (EqualsIgnoringCase(clave, "Ecos")) {
    if (EqualsIgnoringCase(valor, "literales")) a.ecos_literales = true;
  } else if (EqualsIgnoringCase(clave, "Reservas")) {
    if (EqualsIgnoringCase(valor, "cualquier_servidor")) a.reservas_cualquier_servidor = true;
  } else if (EqualsIgnoringCase(clave, "Solicitudes")) {
    if (EqualsIgnoringCase(valor, "utf-8") || EqualsIgnoringCase(valor, "utf8")) {
      a.solicitudes_utf8 = true;
    }
  } else if (EqualsIgnoringCase(clave, "CuerpoMaximo")) {
    std::size_t n = 0;
    const auto [fin, error] = std::from_chars(valor.data(), valor.data() + valor.size(), n);
    if (error == std::errc() && fin == valor.data() + valor.size() && n >= 1024 &&
        n <= Ajustes::kCuerpoMaximoTope) {
      a.cuerpo_maximo = n;
    }
  }
}

}  // namespace

Ajustes InterpretaAjustes(std::string_view texto) {
  Ajustes a;
  while (!texto.empty()) {
    const std::size_t fin = texto.find('\n');
    std::string_view linea = texto.substr(0, fin);
    texto.remove_prefix(fin == std::string_view::npos ? texto.size() : fin + 1);
    const std::size_t comentario = linea.find_first_of("#;");
    if (comentario != std::string_view::npos) linea = linea.substr(0, comentario);
    const std::size_t igual = linea.find('=');
    if (igual == std::string_view::npos) continue;
    Aplica(a, Recorta(linea.substr(0, igual)), Recorta(linea.substr(igual + 1)));
  }
  return a;
}

Ajustes LeeAjustes(FileSystem& archivos, std::string_view directorio) {
  try {
    const std::optional<std::string> texto =
        archivos.ReadRegularFile(JoinPath(directorio, kArchivoAjustes), kLargoMaximoArchivo);
    if (texto) return InterpretaAjustes(*texto);
  } catch (const RuntimeError&) {
    // An unreadable file leaves the defaults, which are the safe ones.
  }
  return Ajustes();
}

}  // namespace orvex::config
