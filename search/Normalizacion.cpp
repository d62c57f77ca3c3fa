#include "search/Normalizacion.h"

#include <array>

#include "base/CodePage.h"
#include "base/Runtime.h"

namespace orvex::search {
namespace {

// Byte-to-byte folding tables built from the replace-all passes: each pass
// replaces one accented letter by one plain letter, so applying them in order
// is the same as mapping every byte once.
using Tabla = std::array<unsigned char, 256>;

Tabla Identidad() {
  Tabla t{};
  for (int i = 0; i < 256; ++i) t[i] = static_cast<unsigned char>(i);
  return t;
}

// "á" -> "a" and so on; pairs given as UTF-8 source text.
Tabla TablaDe(const char* const pares[][2], std::size_t n) {
  Tabla t = Identidad();
  for (std::size_t i = 0; i < n; ++i) {
    const std::string de = Latin1(pares[i][0]);
    const std::string a = Latin1(pares[i][1]);
    t[static_cast<unsigned char>(de[0])] = static_cast<unsigned char>(a[0]);
  }
  return t;
}

const Tabla& TablaQuitaAcentos() {
  static const char* const pares[][2] = {
      {"á", "a"}, {"é", "e"}, {"í", "i"}, {"ó", "o"}, {"ú", "u"}, {"ü", "u"},
      {"Ü", "U"}, {"à", "a"}, {"è", "e"}, {"ì", "i"}, {"ò", "o"}, {"ù", "u"},
      {"Á", "A"}, {"É", "E"}, {"Í", "I"}, {"Ó", "O"}, {"Ú", "U"}};
  static const Tabla tabla = TablaDe(pares, std::size(pares));
  return tabla;
}

const Tabla& TablaNormalizaVocales() {
  static const char* const pares[][2] = {
      {"Á", "A"}, {"É", "E"}, {"Í", "I"}, {"Ó", "O"}, {"Ú", "U"},
      {"Ä", "A"}, {"Ë", "E"}, {"Ï", "I"}, {"Ö", "O"}, {"Ü", "U"},
      {"Â", "A"}, {"Ê", "E"}, {"Î", "I"}, {"Ô", "O"}, {"Û", "U"},
      {"À", "A"}, {"È", "E"}, {"Ì", "I"}, {"Ò", "O"}, {"Ù", "U"}};
  static const Tabla tabla = TablaDe(pares, std::size(pares));
  return tabla;
}

}  // namespace

std::string QuitaAcentos(std::string& texto) {
  if (TrimBlanks(texto).empty()) return texto;
  const Tabla& tabla = TablaQuitaAcentos();
  for (char& c : texto) c = static_cast<char>(tabla[static_cast<unsigned char>(c)]);
  return texto;
}

std::string NormalizaVocales(const std::string& texto) {
  const Tabla& tabla = TablaNormalizaVocales();
  std::string resultado = UpperLatin1(texto);
  for (char& c : resultado) c = static_cast<char>(tabla[static_cast<unsigned char>(c)]);
  return resultado;
}

}  // namespace orvex::search
