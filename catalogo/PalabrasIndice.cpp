#include "catalogo/PalabrasIndice.h"

#include <array>

#include "catalogo/TextoMARC.h"
#include "search/Expresion.h"
#include "search/Normalizacion.h"

namespace orvex::catalogo {
namespace {

// Per byte: 0 when it is no word character, else its folded form.
// NormalizaVocales maps byte to byte, so folding a word is folding its bytes.
const std::array<char, 256>& TablaPalabra() {
  static const std::array<char, 256> tabla = [] {
    std::array<char, 256> t{};
    for (char c : search::CaracteresPalabra) {
      if (c == '$') continue;
      t[static_cast<unsigned char>(c)] = search::NormalizaVocales(std::string(1, c))[0];
    }
    return t;
  }();
  return tabla;
}

enum class Clase { kTexto, kNumeroNormalizado, kClasificacion };

Clase ClaseDe(std::int16_t campo) {
  if (campo == 4) return Clase::kNumeroNormalizado;
  if (campo == 7) return Clase::kClasificacion;
  return Clase::kTexto;
}

std::string NumeroNormalizado(std::string_view texto) {
  std::string palabra;
  const std::size_t inicio = texto.find_first_of("0123456789");
  if (inicio == std::string_view::npos) return palabra;
  for (std::size_t i = inicio; i < texto.size(); ++i) {
    const char c = texto[i];
    if (c >= '0' && c <= '9') {
      palabra += c;
    } else if (c == 'X' || c == 'x') {
      palabra += 'X';
    } else if (c != '-') {
      break;
    }
  }
  return palabra;
}

std::string Clasificacion(std::string_view texto) {
  std::string palabra;
  for (char c : texto) {
    if (c == ' ' || c == '-' || c == '.') continue;
    palabra += c;
  }
  return search::NormalizaVocales(palabra);
}

}  // namespace

std::int16_t CampoIndice(std::string_view e, Acervo acervo) {
  if (e.size() != 3) return 0;
  if (e == "130" || e == "240" || e == "245" || e == "246" || e == "440" || e == "490") return 1;
  if (e == "600" || e == "610" || e == "611" || e == "630" || e == "650" || e == "651") return 3;
  const bool autor =
      e == "100" || e == "110" || e == "111" || e == "700" || e == "710" || e == "711";
  switch (acervo) {
    case Acervo::kRevistas:
      return e == "260" ? 2 : 0;
    case Acervo::kArticulos:
      return autor ? 2 : 0;
    case Acervo::kLibros:
      break;
  }
  if (autor) return 2;
  if (e == "020" || e == "022") return 4;
  if (e == "260") return 5;
  if (e == "050" || e == "082" || e == "090") return 7;
  if (e >= "500" && e <= "520" && e[1] >= '0' && e[1] <= '9' && e[2] >= '0' && e[2] <= '9') {
    return 8;
  }
  return 0;
}

void PartePalabras(std::string_view texto, std::vector<std::string>& palabras) {
  const std::array<char, 256>& tabla = TablaPalabra();
  std::size_t i = 0;
  while (i < texto.size()) {
    while (i < texto.size() && tabla[static_cast<unsigned char>(texto[i])] == 0) ++i;
    if (i >= texto.size()) break;
    std::string palabra;
    for (; i < texto.size(); ++i) {
      const char c = tabla[static_cast<unsigned char>(texto[i])];
      if (c == 0) break;
      if (palabra.size() < kLargoPalabra) palabra += c;
    }
    palabras.push_back(std::move(palabra));
  }
}

void PalabrasDeFicha(const std::vector<Grupo>& grupos, std::vector<PalabraIndice>& salida,
                     Acervo acervo) {
  salida.clear();
  int ultima = 1 - kHuecoPosiciones - 1;  // the first word goes to position 1
  std::vector<std::string> palabras;
  for (const Grupo& g : grupos) {
    const std::int16_t campo = CampoIndice(g.etiqueta, acervo);
    if (campo == 0) continue;
    const Clase clase = ClaseDe(campo);
    for (const std::string& ocurrencia : g.ocurrencias) {
      palabras.clear();
      const std::string texto = ParaIndice(ocurrencia);
      if (clase == Clase::kTexto) {
        PartePalabras(texto, palabras);
      } else {
        // Characters the code page lacks became blanks, which a call
        // number drops.
        std::string palabra = clase == Clase::kClasificacion ? Clasificacion(texto)
                                                             : NumeroNormalizado(texto);
        if (!palabra.empty()) palabras.push_back(palabra.substr(0, kLargoPalabra));
      }
      int posicion = ultima + kHuecoPosiciones + 1;
      for (std::string& p : palabras) {
        if (posicion > kMaximaPosicion) return;
        salida.push_back({std::move(p), campo, static_cast<std::int16_t>(posicion)});
        ultima = posicion++;
      }
    }
  }
}

}  // namespace orvex::catalogo
