#include "tests/support/MARCPrueba.h"

#include <cstdio>
#include <fstream>

namespace orvex::catalogo::prueba {

std::string RegistroISO(const std::vector<CampoISO>& campos, char codificacion, char tipo,
                        char nivel) {
  std::string directorio, datos;
  for (const CampoISO& c : campos) {
    std::string cuerpo = c.contenido;
    if (c.etiqueta.rfind("00", 0) != 0) {
      for (char& ch : cuerpo) {
        if (ch == '$') ch = '\x1F';
      }
    }
    cuerpo += '\x1E';
    char entrada[16];
    std::snprintf(entrada, sizeof entrada, "%.3s%04zu%05zu", c.etiqueta.c_str(), cuerpo.size(),
                  datos.size());
    directorio += entrada;
    datos += cuerpo;
  }
  directorio += '\x1E';
  const std::size_t base = 24 + directorio.size();
  const std::size_t total = base + datos.size() + 1;
  char lider[32];
  std::snprintf(lider, sizeof lider, "%05zun%c%c %c22%05zu a 4500", total, tipo, nivel, codificacion,
                base);
  return std::string(lider) + directorio + datos + '\x1D';
}

std::filesystem::path EscribeArchivo(const std::filesystem::path& ruta, const std::string& bytes) {
  std::ofstream f(ruta, std::ios::binary);
  f << bytes;
  return ruta;
}

std::string IsoCrudo(const std::string& lider, const std::vector<std::string>& campos) {
  std::string directorio, datos;
  for (const std::string& c : campos) {
    char entrada[16];
    std::snprintf(entrada, sizeof entrada, "%.3s%04zu%05zu", c.c_str(), c.size() - 3,
                  datos.size());
    directorio += entrada;
    datos += c.substr(3);
  }
  directorio += '\x1E';
  char cabeza[32];
  std::snprintf(cabeza, sizeof cabeza, "%05zu%.7s%05zu%.7s",
                24 + directorio.size() + datos.size() + 1, lider.c_str(), 24 + directorio.size(),
                lider.c_str() + 7);
  return cabeza + directorio + datos + '\x1D';
}

}  // namespace orvex::catalogo::prueba
