#include "xml/XMLRevista.h"

#include "base/Html.h"
#include "base/Runtime.h"
#include "records/Ficha.h"
#include "xml/XMLFicha.h"

namespace orvex::xml {
namespace {

bool EsLetraODigito(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

std::string Encabezado(std::string_view hoja) {
  return "<?xml version='1.0'?>\r\n<?xml-stylesheet href=\"" + EscapaEntidadesXML(hoja) +
         "\" type=\"text/xsl\"?>\r\n";
}

std::string Elemento(std::string_view nombre, std::string_view texto) {
  return "<" + std::string(nombre) + ">" + EscapaEntidadesXML(texto) + "</" + std::string(nombre) + ">";
}

// The year between parentheses in the host item entry: "(2003)" gives
// "2003"; the first parenthesis that holds one.
std::string AnioDelHuesped(std::string_view etiquetas) {
  const std::string huesped = records::ExtraeEtiqueta("773", etiquetas);
  for (size_t abre = huesped.find('('); abre != std::string::npos;
       abre = huesped.find('(', abre + 1)) {
    const size_t cierra = huesped.find(')', abre);
    if (cierra == std::string::npos) break;
    const std::string_view dentro = TrimBlanksView(std::string_view(huesped).substr(abre + 1, cierra - abre - 1));
    bool anio = dentro.size() == 4;
    for (char c : dentro) anio = anio && c >= '0' && c <= '9';
    if (anio) return std::string(dentro);
  }
  return "";
}

}  // namespace

std::string CamposXML(std::string_view etiquetas) {
  std::string campos;
  size_t i = etiquetas.find(records::kSeparadorCampo);
  while (i != std::string_view::npos) {
    const size_t inicio = i + 1;
    size_t fin = etiquetas.find_first_of(
        std::string_view("\xA6\xCC", 2), inicio);
    if (fin == std::string_view::npos) fin = etiquetas.size();
    const std::string_view campo = etiquetas.substr(inicio, fin - inicio);
    if (campo.size() >= 3 && EsLetraODigito(campo[0]) && EsLetraODigito(campo[1]) &&
        EsLetraODigito(campo[2])) {
      const std::string nombre = "m" + std::string(campo.substr(0, 3));
      const std::string ocurrencias = records::SeparaRepetidos(campo.substr(3));
      size_t desde = 0;
      while (desde < ocurrencias.size()) {
        size_t corte = ocurrencias.find("\r\n", desde);
        if (corte == std::string::npos) corte = ocurrencias.size();
        campos += Elemento(nombre, std::string_view(ocurrencias).substr(desde, corte - desde));
        desde = corte + 2;
      }
    }
    if (fin >= etiquetas.size() || etiquetas[fin] != records::kSeparadorCampo) break;
    i = fin;
  }
  return campos;
}

std::string XMLRevista(std::int32_t numero, std::string_view etiquetas, std::string_view hoja) {
  return Encabezado(hoja) + "<ficha>" + Elemento("Numero", std::to_string(numero)) +
         "<ETIQUETAS>" + CamposXML(etiquetas) + "</ETIQUETAS></ficha>";
}

std::string XMLAnalitica(std::int32_t id, std::string_view numadqui, std::string_view etiquetas,
                         std::string_view hoja) {
  return Encabezado(hoja) + "<Analitica>" + Elemento("ID", std::to_string(id)) +
         Elemento("Fecha", AnioDelHuesped(etiquetas)) + Elemento("Numero", numadqui) +
         "<ETIQUETAS>" + CamposXML(etiquetas) + "</ETIQUETAS></Analitica>";
}

}  // namespace orvex::xml
