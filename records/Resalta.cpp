#include "records/Resalta.h"

#include <cstddef>

#include "base/CodePage.h"
#include "base/RuntimeError.h"

namespace orvex::records {
namespace {

static_assert(kAbreResalte.size() + kCierraResalte.size() == 34);

// Entries of the search-term table that take part in highlighting.
constexpr int kTerminosResaltados = 30;

// A position kept in a 16-bit variable.
std::int16_t Posicion16(std::size_t valor) {
  if (valor > 32767) Raise(kErrDesbordamiento);
  return static_cast<std::int16_t>(valor);
}

// Only the ASCII digits and letters; every other byte is a boundary.
bool EsCaracterPalabra(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The lower-case acute vowels become plain vowels; nothing else changes, so
// the copy has the text's length and positions carry over.
char Pliega(char c) {
  switch (static_cast<unsigned char>(c)) {
    case 0xE1: return 'a';
    case 0xE9: return 'e';
    case 0xED: return 'i';
    case 0xF3: return 'o';
    case 0xFA: return 'u';
    default: return c;
  }
}

std::string CopiaPlegada(std::string_view texto) {
  // The 16-bit counter walks one past the last character.
  if (texto.size() >= 32767) Raise(kErrDesbordamiento);
  std::string plegado(texto);
  for (char& c : plegado) c = Pliega(c);
  return plegado;
}

// 1-based position of `palabra` in `texto` at or after `desde`, letters
// compared without regard to case; 0 when it does not occur.
std::size_t BuscaSinCaso(std::size_t desde, std::string_view texto,
                         std::string_view palabra) {
  if (desde > texto.size() + 1 || palabra.size() > texto.size()) return 0;
  if (palabra.empty()) return desde;
  // The first letter rules out almost every position before the whole
  // word is compared.
  const char primera = UpperLatin1(palabra[0]);
  for (std::size_t i = desde - 1; i + palabra.size() <= texto.size(); ++i) {
    if (UpperLatin1(texto[i]) == primera &&
        EqualsIgnoringCase(texto.substr(i, palabra.size()), palabra)) {
      return i + 1;
    }
  }
  return 0;
}

// True when the occurrence at `p` lies inside a tag whose text before it
// holds "HREF": the link target and attributes of an anchor stay untouched.
bool DentroDeEnlace(std::string_view texto, std::size_t p) {
  const std::size_t anterior = texto.rfind('<', p - 1);
  if (anterior == std::string_view::npos) return false;
  const std::size_t q = anterior + 1;
  if (q >= p) return false;
  const std::string_view tramo = texto.substr(q - 1, p - q);
  if (tramo.find('>') != std::string_view::npos) return false;
  return UpperLatin1(tramo).find("HREF") != std::string::npos;
}

std::string Envuelve(std::string_view texto, std::size_t p, std::size_t largo) {
  std::string r;
  r.reserve(texto.size() + kAbreResalte.size() + kCierraResalte.size());
  r.append(texto.substr(0, p - 1));
  r.append(kAbreResalte);
  r.append(texto.substr(p - 1, largo));
  r.append(kCierraResalte);
  r.append(texto.substr(p - 1 + largo));
  return r;
}

}  // namespace

bool EsPalabraCompleta(std::int16_t posicion, std::string_view texto,
                       std::string_view palabra) {
  const std::int64_t p = posicion;
  const std::int64_t largo = static_cast<std::int64_t>(texto.size());
  if (p > 1 && p - 1 <= largo && EsCaracterPalabra(texto[p - 2])) return false;
  const std::int64_t siguiente = p + static_cast<std::int64_t>(palabra.size());
  if (siguiente <= largo) {
    if (siguiente < 1) Raise(kErrArgumentoNoValido);
    if (EsCaracterPalabra(texto[siguiente - 1])) return false;
  }
  return true;
}

std::string ResaltaPalabra(std::string& texto, std::string_view palabra,
                           std::int16_t offset) {
  if (palabra.empty()) return texto;
  std::string plegado = CopiaPlegada(texto);
  if (offset == 32767) Raise(kErrDesbordamiento);
  std::int16_t pos = static_cast<std::int16_t>(offset + 1);
  if (pos >= static_cast<std::int64_t>(texto.size())) return texto;
  if (pos < 1) Raise(kErrArgumentoNoValido);
  for (;;) {
    const std::int16_t p = Posicion16(BuscaSinCaso(pos, plegado, palabra));
    if (p == 0) return texto;
    if (!EsPalabraCompleta(p, plegado, palabra)) {
      pos = Posicion16(p + palabra.size());
      continue;
    }
    if (!DentroDeEnlace(texto, p)) {
      texto = Envuelve(texto, p, palabra.size());
      plegado = Envuelve(plegado, p, palabra.size());
    }
    // Marked or not, the search resumes as if the mark-up were there.
    pos = Posicion16(p + kAbreResalte.size() + kCierraResalte.size() + palabra.size());
  }
}

void ResaltaTerminos(std::string& texto,
                     const std::array<search::TerminoBusqueda,
                                      search::kMaximoTerminos>& terminos) {
  for (int i = 0; i < kTerminosResaltados; ++i) {
    const std::string& palabra = terminos[i].palabra;
    if (!palabra.empty() && !texto.empty()) ResaltaPalabra(texto, palabra, 1);
  }
}

}  // namespace orvex::records
