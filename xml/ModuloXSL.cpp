// The entry points of the loadable XSL module.

#include "xml/ModuloXSL.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "xml/MotorLibxslt.h"

namespace {

char* Copia(const std::string& texto) {
  char* copia = static_cast<char*>(std::malloc(texto.size() + 1));
  if (copia != nullptr) std::memcpy(copia, texto.c_str(), texto.size() + 1);
  return copia;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int orvex_xsl_transforma(
    const char* xml, std::size_t largo_xml, const char* xsl, std::size_t largo_xsl,
    OrvexSalidaXSL* salida) {
  // One processor for the life of the process: its compiled sheets serve
  // every record of the page.
  static orvex::xml::MotorLibxslt motor;
  try {
    orvex::ResultadoXSL r =
        motor.Transforma(std::string_view(xml, largo_xml), std::string_view(xsl, largo_xsl));
    salida->estado = static_cast<int>(r.estado);
    salida->texto = Copia(r.texto);
    salida->largo = r.texto.size();
    salida->razon = Copia(r.razon);
    salida->descripcion = Copia(r.descripcion);
    std::string avisos;
    for (const std::string& aviso : r.avisos) avisos += aviso + "\n";
    salida->avisos = Copia(avisos);
    salida->linea = r.linea;
    salida->columna = r.columna;
    return salida->texto != nullptr && salida->razon != nullptr &&
           salida->descripcion != nullptr && salida->avisos != nullptr;
  } catch (...) {
    return 0;
  }
}

extern "C" __attribute__((visibility("default"))) int orvex_xsl_verifica() {
  return orvex::xml::XmlParserWorks() ? 1 : 0;
}

extern "C" __attribute__((visibility("default"))) void orvex_xsl_libera(OrvexSalidaXSL* salida) {
  std::free(salida->texto);
  std::free(salida->razon);
  std::free(salida->descripcion);
  std::free(salida->avisos);
  salida->texto = salida->razon = salida->descripcion = salida->avisos = nullptr;
}
