#include "records/Ficha.h"

#include <utility>

#include "base/CodePage.h"
#include "base/Runtime.h"

namespace orvex::records {

const std::string& FichaSinDatos() {
  static const std::string ficha = Latin1("¦100- [sin autor] -¦245- [sin título] -Ì");
  return ficha;
}

std::string LineaEjemplar(const std::array<std::string, 7>& valores) {
  std::string linea = valores[0];
  for (std::size_t i = 1; i < valores.size(); ++i) {
    linea += ',';
    linea += valores[i];
  }
  linea += "\r\n";
  return linea;
}

std::vector<std::string_view> LineasEjemplares(std::string_view ejemplares) {
  constexpr std::string_view kFinLinea = "\r\n";
  std::vector<std::string_view> lineas;
  while (!ejemplares.empty()) {
    const std::size_t fin = ejemplares.find(kFinLinea);
    const std::string_view linea = ejemplares.substr(0, fin);
    ejemplares = fin == std::string_view::npos ? std::string_view()
                                               : ejemplares.substr(fin + kFinLinea.size());
    if (!linea.empty()) lineas.push_back(linea);
  }
  return lineas;
}

std::string ExtraeEtiqueta(std::string_view lista, std::string_view etiquetas) {
  // The counter is a byte: a list of more than 255 tags overflows. The
  // rounding never makes a piece start past the end of the list.
  const std::uint8_t cuenta = ToByte(static_cast<double>(lista.size()) / 3);
  std::size_t inicio = std::string_view::npos;
  for (std::size_t i = 0; i < cuenta && inicio == std::string_view::npos; ++i) {
    std::string clave(1, kSeparadorCampo);
    clave += lista.substr(i * 3, 3);
    clave.resize(4, ' ');
    inicio = etiquetas.find(clave);
  }
  if (inicio == std::string_view::npos) return {};

  // The content ends at whichever of "¦" and "Ì" comes first; with neither
  // it runs to the end of the string.
  const std::string_view resto = etiquetas.substr(inicio + 4);
  const char fines[] = {kSeparadorCampo, kFinEtiquetas};
  return std::string(resto.substr(0, resto.find_first_of(std::string_view(fines, 2))));
}

std::string SeparaRepetidos(std::string_view contenido) {
  std::string resto = TrimBlanks(contenido);
  std::string resultado;
  while (!resto.empty()) {
    std::string pieza;
    const std::size_t barra = resto.find('\\');
    if (barra == std::string::npos) {
      pieza = std::move(resto);
      resto.clear();
    } else {
      pieza = TrimBlanks(std::string_view(resto).substr(0, barra));
      resto = TrimBlanks(std::string_view(resto).substr(barra + 1));
    }
    if (pieza.empty()) continue;
    if (!resultado.empty()) resultado += "\r\n";
    resultado += pieza;
  }
  return resultado;
}

}  // namespace orvex::records
