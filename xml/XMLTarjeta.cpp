#include "xml/XMLTarjeta.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/Html.h"
#include "records/Presentaciones.h"
#include "xml/XMLFicha.h"

namespace orvex::xml {
namespace {

constexpr std::string_view kFinLinea = "\r\n";
constexpr std::size_t kValores = 7;
// Positions of the values in a copies line.
enum : std::size_t { kNumAdqui, kBiblioteca, kEjemplar, kVolumen, kTomo };

// The seven values of a copies line (see the header).
std::array<std::string, kValores> ValoresEjemplar(std::string_view linea) {
  std::vector<std::string_view> piezas;
  for (std::size_t coma; (coma = linea.find(',')) != std::string_view::npos;
       linea.remove_prefix(coma + 1)) {
    piezas.push_back(linea.substr(0, coma));
  }
  piezas.push_back(linea);

  std::array<std::string, kValores> valores;
  if (piezas.size() <= kValores) {
    for (std::size_t i = 0; i < piezas.size(); ++i) valores[i] = piezas[i];
    return valores;
  }
  const std::size_t delante = piezas.size() - (kValores - 2);
  for (std::size_t i = 2; i < kValores; ++i) valores[i] = piezas[delante + i - 2];
  std::string frente(piezas[0]);
  for (std::size_t i = 1; i < delante; ++i) frente.append(",").append(piezas[i]);
  std::size_t corte = std::string::npos;
  for (std::size_t p = frente.rfind(','); p != std::string::npos && corte == std::string::npos;
       p = p == 0 ? std::string::npos : frente.rfind(',', p - 1)) {
    if (p + 1 < frente.size() && frente[p + 1] != ' ') corte = p;
  }
  if (corte == std::string::npos) corte = frente.find(',');
  valores[kNumAdqui] = frente.substr(0, corte);
  valores[kBiblioteca] = frente.substr(corte + 1);
  return valores;
}

void Elemento(std::string& doc, std::string_view nombre, std::string_view texto) {
  doc.append("<").append(nombre).append(">").append(EscapaEntidadesXML(texto));
  doc.append("</").append(nombre).append(">");
}

void Atributo(std::string& doc, std::string_view nombre, std::string_view valor) {
  doc.append(" ").append(nombre).append("='").append(EscapaEntidadesXML(valor)).append("'");
}

}  // namespace

std::string XMLTarjeta(const records::RegFicha& ficha) {
  const records::Tarjeta tarjeta = records::ArmaTarjeta(ficha);
  std::string doc = "<?xml version='1.0'?>";
  doc.append(kFinLinea);
  doc.append("<FICHA Numero='").append(std::to_string(ficha.Ficha_no)).append("'><SECCIONES>");
  Elemento(doc, "Sclas", tarjeta.Sclas);
  Elemento(doc, "Sa", tarjeta.Sa);
  Elemento(doc, "S1", tarjeta.S1);
  Elemento(doc, "S2", tarjeta.S2);
  Elemento(doc, "Sisbn", tarjeta.Sisbn);
  for (const std::string& nota : tarjeta.Snotas) Elemento(doc, "Snotas", nota);
  Elemento(doc, "Sr1", tarjeta.Sr1);
  Elemento(doc, "Sr2", tarjeta.Sr2);
  doc.append("</SECCIONES><EXISTENCIAS>");
  for (std::string_view linea : records::LineasEjemplares(ficha.Ejemplares)) {
    const std::array<std::string, kValores> v = ValoresEjemplar(linea);
    doc.append("<EJEMPLAR");
    Atributo(doc, "NoAdq", v[kNumAdqui]);
    Atributo(doc, "Biblio", v[kBiblioteca]);
    Atributo(doc, "Vol", v[kVolumen]);
    Atributo(doc, "Ejemplar", v[kEjemplar]);
    Atributo(doc, "Tomo", v[kTomo]);
    doc.append("/>");
  }
  doc.append("</EXISTENCIAS></FICHA>");
  return doc;
}

}  // namespace orvex::xml
