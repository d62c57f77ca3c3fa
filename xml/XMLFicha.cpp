#include "xml/XMLFicha.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

#include "base/Html.h"
#include "base/Runtime.h"

namespace orvex::xml {
namespace {

constexpr std::string_view kFinLinea = "\r\n";
constexpr std::string_view kSeparadorRepetidos = " \\ ";

// The pieces of `texto` between the occurrences of `separador`, in order,
// empty pieces included.
std::vector<std::string_view> Corta(std::string_view texto, std::string_view separador) {
  std::vector<std::string_view> piezas;
  std::size_t inicio = 0;
  for (std::size_t p; (p = texto.find(separador, inicio)) != std::string_view::npos;
       inicio = p + separador.size()) {
    piezas.push_back(texto.substr(inicio, p - inicio));
  }
  piezas.push_back(texto.substr(inicio));
  return piezas;
}

bool EsRepetible(std::string_view etiqueta) {
  return etiqueta == "856" || etiqueta == "700" || etiqueta == "500" || etiqueta == "650";
}

bool SoloDigitos(std::string_view texto) {
  return !texto.empty() && std::all_of(texto.begin(), texto.end(), [](char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
  });
}

// One EJEMPLAR line for a copies line, its values taken by position.
std::string LineaEJEMPLAR(std::string_view linea) {
  static constexpr std::array<std::string_view, 7> kAtributos = {
      "NoAdq", "Biblio", "Vol", "Ejemplar", "Tomo", "Acceso", "Fecha"};
  std::string salida = "   <EJEMPLAR ";
  for (std::size_t i = 0; i < kAtributos.size(); ++i) {
    std::string_view valor = linea;
    if (i + 1 < kAtributos.size()) {
      const std::size_t coma = linea.find(',');
      valor = linea.substr(0, coma);
      linea = coma == std::string_view::npos ? std::string_view() : linea.substr(coma + 1);
    }
    salida.append(kAtributos[i]).append("='").append(valor).append("' ");
  }
  salida.append("/>").append(kFinLinea);
  return salida;
}

// The imprint recomposed from its ISBD punctuation: place, publishers and
// date joined by ", ", a numeric date marked with "c" after it.
std::string Compone260(std::string_view contenido) {
  std::vector<std::string> piezas;
  for (std::string_view pieza : Corta(contenido, " : ")) piezas.push_back(TrimBlanks(pieza));
  std::string& ultima = piezas.back();
  const std::size_t coma = ultima.rfind(", ");
  if (coma != std::string::npos) {
    std::string fecha = TrimBlanks(std::string_view(ultima).substr(coma + 2));
    ultima = TrimBlanks(std::string_view(ultima).substr(0, coma));
    if (!fecha.empty() && fecha.back() == '.') fecha = TrimBlanks(fecha.substr(0, fecha.size() - 1));
    if (SoloDigitos(fecha)) fecha += 'c';
    piezas.push_back(std::move(fecha));
  }
  std::string compuesto;
  for (const std::string& pieza : piezas) {
    if (pieza.empty()) continue;
    if (!compuesto.empty()) compuesto += ", ";
    compuesto += pieza;
  }
  return compuesto;
}

void Elemento(std::string& doc, std::string_view etiqueta, std::string_view texto) {
  doc.append("   <m").append(etiqueta).append(">").append(texto);
  doc.append("</m").append(etiqueta).append(">").append(kFinLinea);
}

void Elemento856(std::string& doc, std::string_view ocurrencia) {
  std::string direccion(ocurrencia);
  std::string texto(ocurrencia);
  if (const std::size_t p = ocurrencia.find(';'); p != std::string_view::npos) {
    direccion = TrimBlanks(ocurrencia.substr(0, p));
    texto = TrimBlanks(ocurrencia.substr(p + 1));
    if (texto.empty()) texto = direccion;
  }
  doc.append("   <m856 url=\"").append(EscapaEntidadesXML(direccion)).append("\">");
  doc.append(EscapaEntidadesXML(texto)).append("</m856>").append(kFinLinea);
}

}  // namespace

std::string XMLFicha(const records::RegFicha& ficha, const config::Instalacion& ins) {
  std::string doc = "<?xml version='1.0' encoding='ISO-8859-1'?>";
  doc.append(kFinLinea);
  doc.append("<FICHAS><FICHA Numero='").append(std::to_string(ficha.Ficha_no)).append("'>");
  doc.append(kFinLinea);
  doc.append(" <EXISTENCIAS>").append(kFinLinea);
  for (std::string_view linea : records::LineasEjemplares(ficha.Ejemplares)) {
    doc += LineaEJEMPLAR(linea);
  }
  doc.append(" </EXISTENCIAS>").append(kFinLinea);
  doc.append(" <ETIQUETAS>").append(kFinLinea);
  for (const std::string& entrada : ins.EtiquetasXML) {
    const std::string etiqueta = TrimBlanks(entrada);
    const std::string contenido =
        TrimBlanks(records::ExtraeEtiqueta(etiqueta, ficha.EtiquetasMARC));
    if (contenido.empty()) continue;
    if (etiqueta == "260") {
      Elemento(doc, etiqueta, EscapaEntidadesXML(Compone260(contenido)));
    } else if (EsRepetible(etiqueta)) {
      for (std::string_view pieza : Corta(contenido, kSeparadorRepetidos)) {
        const std::string ocurrencia = TrimBlanks(pieza);
        if (ocurrencia.empty()) continue;
        if (etiqueta == "856") {
          Elemento856(doc, ocurrencia);
        } else {
          Elemento(doc, etiqueta, EscapaEntidadesXML(ocurrencia));
        }
      }
    } else {
      Elemento(doc, etiqueta, EscapaEntidadesXML(contenido));
    }
  }
  doc.append(" </ETIQUETAS>").append(kFinLinea);
  doc.append("</FICHA></FICHAS>").append(kFinLinea);
  return doc;
}

std::string EnvuelveCDATA(std::string_view texto) {
  return "<![CDATA[" + std::string(texto) + "]]>";
}

}  // namespace orvex::xml
