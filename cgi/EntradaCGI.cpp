#include "cgi/EntradaCGI.h"

#include <algorithm>
#include <utility>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/Ajustes.h"

namespace orvex::cgi {
namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A read never asks for more than this at once, so that a huge declared
// length does not reserve memory before any byte has arrived.
constexpr std::size_t kMaximoLectura = 1 << 20;

}  // namespace

ParCGI ParesCGI::Campo(std::size_t i) const {
  const Indice& x = indices_[i];
  const std::size_t fin = i + 1 < indices_.size() ? indices_[i + 1].nombre : textos_.size();
  const std::string_view textos = textos_;
  return {textos.substr(x.nombre, x.valor - x.nombre), textos.substr(x.valor, fin - x.valor)};
}

std::vector<ParCGI> ParesCGI::Campos() const {
  std::vector<ParCGI> campos;
  campos.reserve(indices_.size());
  for (std::size_t i = 0; i < indices_.size(); ++i) campos.push_back(Campo(i));
  return campos;
}

void ParesCGI::Cierra() {
  const auto fin = static_cast<std::uint32_t>(textos_.size());
  indices_.insert(indices_.end(), vacias_, Indice{fin, fin});
  vacias_ = 0;
}

void ParesCGI::Separa(std::string_view texto) {
  const auto n = static_cast<std::size_t>(std::count(texto.begin(), texto.end(), '='));
  if (n == 0) return;
  // Every field but the last ends at an "&": no more fields than that can
  // come, however many "=" the text holds.
  const auto y = static_cast<std::size_t>(std::count(texto.begin(), texto.end(), '&'));
  if (vacias_ > 0) Cierra();
  indices_.reserve(indices_.size() + std::min(n, y + 1));
  textos_.reserve(textos_.size() + texto.size());
  std::size_t start = 1;
  std::size_t llenas = 0;
  for (; llenas < n; ++llenas) {
    const std::size_t e = InStr(start, texto, "=");
    if (e == 0) break;
    std::size_t a = InStr(e, texto, "&");
    if (a == 0) a = texto.size() + 1;
    Indice x{};
    x.nombre = static_cast<std::uint32_t>(textos_.size());
    DecodificaURL(texto.substr(start - 1, e - start), textos_);
    x.valor = static_cast<std::uint32_t>(textos_.size());
    DecodificaURL(texto.substr(e, a - e - 1), textos_);
    indices_.push_back(x);
    start = a + 1;
  }
  vacias_ += n - llenas;
}

const std::string& EntradaCGI::Variable(std::string_view nombre) const {
  static const std::string kVacia;
  for (std::size_t i = 0; i < kVariablesCGI.size(); ++i) {
    if (nombre == kVariablesCGI[i]) return variables[i];
  }
  return kVacia;
}

void LeeVariablesCGI(EntradaCGI& cgi, Environment& entorno) {
  for (std::size_t i = 0; i < kVariablesCGI.size(); ++i) {
    cgi.variables[i] = entorno.Get(kVariablesCGI[i]).value_or("");
  }
  cgi.LongitudContenido = ToInt32(LeadingNumber(cgi.Variable("CONTENT_LENGTH")));
  cgi.pares = ParesCGI();
}

bool SolicitudExcesiva(const EntradaCGI& cgi, std::size_t maximo) {
  if (cgi.Variable("QUERY_STRING").size() > maximo) return true;
  return cgi.Variable("REQUEST_METHOD") == "POST" && cgi.LongitudContenido > 0 &&
         static_cast<std::size_t>(cgi.LongitudContenido) > maximo;
}

void LeeDatosForma(EntradaCGI& cgi, Input& entrada, Plazo* plazo) {
  if (cgi.Variable("REQUEST_METHOD") == "POST") {
    if (cgi.LongitudContenido < 0) Raise(kErrArgumentoNoValido);
    const auto longitud = static_cast<std::size_t>(cgi.LongitudContenido);
    {
      std::string buffer(std::min(longitud, kMaximoLectura), '\0');
      // The body arrives in pieces from a FastCGI server: the declared
      // length (the entry procedure has held it to the largest body
      // accepted) is taken at once rather than grown into.
      cgi.DatosPost.reserve(std::min(longitud, config::Ajustes::kCuerpoMaximoTope));
      // Kept: every read asks for the full length, not the remainder, and
      // the loop has no other exit than a body of the declared length, or
      // the request's deadline.
      while (cgi.DatosPost.size() < longitud) {
        if (plazo != nullptr && plazo->Vencido()) throw TiempoAgotado{};
        const std::size_t n = entrada.Read(buffer.data(), buffer.size());
        if (n == 0) {
          entrada.Pause();
          continue;
        }
        cgi.DatosPost.append(buffer.data(), n);
      }
    }
    if (UpperLatin1(cgi.Variable("CONTENT_TYPE")).find("WWW-FORM-URLENCODED") !=
        std::string::npos) {
      SeparaPares(cgi.pares, cgi.DatosPost);
    }
  }
  SeparaPares(cgi.pares, cgi.Variable("QUERY_STRING"));
}

void SeparaPares(ParesCGI& pares, std::string_view texto) { pares.Separa(texto); }

std::string DecodificaURL(std::string_view texto) {
  std::string s;
  DecodificaURL(texto, s);
  return s;
}

void DecodificaURL(std::string_view texto, std::string& destino) {
  for (std::size_t i = 0; i < texto.size(); ++i) {
    const char c = texto[i];
    if (c == '+') {
      destino += ' ';
    } else if (c != '%') {
      destino += c;
    } else {
      // The up to two characters after the "%", read as a hexadecimal number.
      const std::size_t disponibles = std::min<std::size_t>(2, texto.size() - i - 1);
      if (disponibles == 0) Raise(kErrTiposNoCoinciden);
      int valor = 0;
      for (std::size_t k = 1; k <= disponibles; ++k) {
        const int d = HexDigit(texto[i + k]);
        if (d < 0) Raise(kErrTiposNoCoinciden);
        valor = valor * 16 + d;
      }
      destino += static_cast<char>(valor);
      i += disponibles;
    }
  }
}

std::string ValorCGI(const EntradaCGI& cgi, std::string_view nombre) {
  const std::string buscado = UpperLatin1(nombre);
  for (std::size_t i = 0; i < cgi.pares.NumeroCampos(); ++i) {
    const ParCGI par = cgi.pares.Campo(i);
    if (par.nombre.size() == buscado.size() && UpperLatin1(par.nombre) == buscado) {
      return TrimBlanks(par.valor);
    }
  }
  return std::string();
}

bool EsUTF8(std::string_view texto) {
  for (std::size_t i = 0; i < texto.size();) {
    const std::size_t inicio = i;
    const char32_t c = NextUtf8(texto, i);
    // NextUtf8 gives U+FFFD for a malformed sequence: only its own three
    // bytes stand for it.
    if (c == 0xFFFD && texto.substr(inicio, 3) != "\xEF\xBF\xBD") return false;
    if (c >= 0xD800 && c <= 0xDFFF) return false;
  }
  return true;
}

bool PideUTF8(const EntradaCGI& cgi, bool siempre) {
  if (siempre) return true;
  const std::string valor = ValorCGI(cgi, kCampoCodificacion);
  return EqualsIgnoringCase(valor, "utf-8") || EqualsIgnoringCase(valor, "utf8");
}

void LeeCamposUTF8(EntradaCGI& cgi) {
  const CodePage& cp = CodePage::Windows1252();
  cgi.pares.Convierte([&cp](std::string_view texto) {
    const bool ascii = std::all_of(texto.begin(), texto.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (ascii || !EsUTF8(texto)) return std::string(texto);
    return cp.FromUtf8(texto);
  });
}

}  // namespace orvex::cgi
