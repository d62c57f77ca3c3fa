#include "catalogo/RegistroMARC.h"

#include "catalogo/LectorISO2709.h"
#include "catalogo/LectorMARCXML.h"

namespace orvex::catalogo {

std::string_view Campo::Valor(char codigo) const {
  for (const auto& s : subcampos) {
    if (s.codigo == codigo) return s.valor;
  }
  return {};
}

std::string_view RegistroMARC::Control(std::string_view etiqueta) const {
  for (const Campo& c : campos) {
    if (c.etiqueta == etiqueta) return c.datos;
  }
  return {};
}

bool EsMARCXML(std::string_view datos) {
  if (datos.substr(0, 3) == "\xEF\xBB\xBF") datos.remove_prefix(3);
  const std::size_t p = datos.find_first_not_of(" \t\r\n");
  return p != std::string_view::npos && datos[p] == '<';
}

std::unique_ptr<LectorRegistros> LectorPara(std::string_view datos, const std::string& nombre) {
  if (EsMARCXML(datos)) return std::make_unique<LectorMARCXML>(datos, nombre);
  return std::make_unique<LectorISO2709>(datos);
}

}  // namespace orvex::catalogo
