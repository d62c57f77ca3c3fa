#include "catalogo/TextoMARC.h"

#include <algorithm>

#include "base/CodePage.h"

namespace orvex::catalogo {
namespace {

// Length of the sequence that `b` starts, 0 when `b` cannot start one.
int LongitudSecuencia(unsigned char b) {
  if (b < 0x80) return 1;
  if (b >= 0xC2 && b <= 0xDF) return 2;
  if (b >= 0xE0 && b <= 0xEF) return 3;
  if (b >= 0xF0 && b <= 0xF4) return 4;
  return 0;
}

bool EsMarcaCombinante(char32_t c) { return c >= 0x300 && c <= 0x36F; }

struct Composicion {
  char32_t marca;
  const char* bases;        // ASCII letters
  const char32_t* letras;   // the precomposed letter of each base
};

constexpr char32_t kGrave[] = {0xC0, 0xC8, 0xCC, 0xD2, 0xD9, 0xE0, 0xE8, 0xEC, 0xF2, 0xF9};
constexpr char32_t kAgudo[] = {0xC1, 0xC9, 0xCD, 0xD3, 0xDA, 0xDD,
                               0xE1, 0xE9, 0xED, 0xF3, 0xFA, 0xFD};
constexpr char32_t kCircunflejo[] = {0xC2, 0xCA, 0xCE, 0xD4, 0xDB, 0xE2, 0xEA, 0xEE, 0xF4, 0xFB};
constexpr char32_t kTilde[] = {0xC3, 0xD1, 0xD5, 0xE3, 0xF1, 0xF5};
constexpr char32_t kDieresis[] = {0xC4, 0xCB, 0xCF, 0xD6, 0xDC, 0x178,
                                  0xE4, 0xEB, 0xEF, 0xF6, 0xFC, 0xFF};
constexpr char32_t kAnillo[] = {0xC5, 0xE5};
constexpr char32_t kCaron[] = {0x160, 0x17D, 0x161, 0x17E};
constexpr char32_t kCedilla[] = {0xC7, 0xE7};

constexpr Composicion kComposiciones[] = {
    {0x300, "AEIOUaeiou", kGrave},     {0x301, "AEIOUYaeiouy", kAgudo},
    {0x302, "AEIOUaeiou", kCircunflejo}, {0x303, "ANOano", kTilde},
    {0x308, "AEIOUYaeiouy", kDieresis}, {0x30A, "Aa", kAnillo},
    {0x30C, "SZsz", kCaron},           {0x327, "Cc", kCedilla},
};

// The precomposed letter of `base` with `marca`, 0 when there is none.
char32_t Compone(char base, char32_t marca) {
  for (const Composicion& c : kComposiciones) {
    if (c.marca != marca) continue;
    for (std::size_t k = 0; c.bases[k] != '\0'; ++k) {
      if (c.bases[k] == base) return c.letras[k];
    }
    return 0;
  }
  return 0;
}

bool EsLetraASCII(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

}  // namespace

bool EsUtf8Valido(std::string_view s) {
  std::size_t i = 0;
  const std::size_t n = s.size();
  while (i < n) {
    const auto b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      ++i;
      continue;
    }
    const int largo = LongitudSecuencia(b);
    if (largo == 0 || i + static_cast<std::size_t>(largo) > n) return false;
    const auto b1 = static_cast<unsigned char>(s[i + 1]);
    // The second byte's range rules out overlong forms, surrogates and
    // code points above U+10FFFF.
    unsigned char bajo = 0x80, alto = 0xBF;
    if (b == 0xE0) bajo = 0xA0;
    if (b == 0xED) alto = 0x9F;
    if (b == 0xF0) bajo = 0x90;
    if (b == 0xF4) alto = 0x8F;
    if (b1 < bajo || b1 > alto) return false;
    for (int k = 2; k < largo; ++k) {
      if ((static_cast<unsigned char>(s[i + static_cast<std::size_t>(k)]) & 0xC0) != 0x80) {
        return false;
      }
    }
    i += static_cast<std::size_t>(largo);
  }
  return true;
}

std::string ComponeAcentos(std::string_view texto) {
  // Combining marks U+0300-U+036F are encoded as CC 80 to CD AF.
  if (texto.find_first_of("\xCC\xCD") == std::string_view::npos) return std::string(texto);
  std::string out;
  out.reserve(texto.size());
  std::size_t i = 0;
  bool base_pendiente = false;  // the last character written is a bare ASCII letter
  while (i < texto.size()) {
    const std::size_t inicio = i;
    const char32_t c = NextUtf8(texto, i);
    if (EsMarcaCombinante(c) && base_pendiente) {
      if (const char32_t letra = Compone(out.back(), c)) {
        out.pop_back();
        AppendUtf8(out, letra);
        base_pendiente = false;
        continue;
      }
    }
    out.append(texto.substr(inicio, i - inicio));
    base_pendiente = c < 0x80 && EsLetraASCII(static_cast<char>(c));
  }
  return out;
}

std::string LimpiaContenido(std::string_view texto) {
  std::string out;
  out.reserve(texto.size());
  for (std::size_t i = 0; i < texto.size(); ++i) {
    const char c = texto[i];
    const auto b = static_cast<unsigned char>(c);
    if (b < 0x20 || b == 0x7F) {
      out += ' ';
    } else if (c == '\\') {
      out += '/';
    } else if (b == 0xC2 && i + 1 < texto.size() && texto[i + 1] == '\xA6') {
      out += '|';
      ++i;
    } else if (b == 0xC3 && i + 1 < texto.size() && texto[i + 1] == '\x8C') {
      out += 'I';
      ++i;
    } else {
      out += c;
    }
  }
  return out;
}

std::string ParaIndice(std::string_view texto) {
  static const CodePage& pagina = CodePage::Windows1252();
  std::string out;
  out.reserve(texto.size());
  std::size_t i = 0;
  while (i < texto.size()) {
    const auto b = static_cast<unsigned char>(texto[i]);
    if (b < 0x80) {
      out += static_cast<char>(b);
      ++i;
      continue;
    }
    const char32_t c = NextUtf8(texto, i);
    if (EsMarcaCombinante(c)) continue;
    out += pagina.ByteFor(c).value_or(' ');
  }
  return out;
}

std::string_view CortaCaracteres(std::string_view texto, std::size_t n) {
  std::size_t i = 0;
  for (std::size_t k = 0; k < n && i < texto.size(); ++k) {
    const int largo = LongitudSecuencia(static_cast<unsigned char>(texto[i]));
    i += largo == 0 ? 1 : static_cast<std::size_t>(largo);
  }
  return texto.substr(0, std::min(i, texto.size()));
}

std::string_view SinBlancos(std::string_view texto) {
  const std::size_t a = texto.find_first_not_of(' ');
  if (a == std::string_view::npos) return {};
  const std::size_t z = texto.find_last_not_of(' ');
  return texto.substr(a, z - a + 1);
}

}  // namespace orvex::catalogo
