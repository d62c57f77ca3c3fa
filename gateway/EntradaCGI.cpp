#include "gateway/EntradaCGI.h"

#include <algorithm>
#include <utility>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"

namespace orvex::gateway {
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

void ParesCGI::Agrega(ParCGI par) {
  if (vacias_ > 0) {
    campos_.resize(campos_.size() + vacias_);
    vacias_ = 0;
  }
  campos_.push_back(std::move(par));
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

void LeeDatosForma(EntradaCGI& cgi, Input& entrada) {
  if (cgi.Variable("REQUEST_METHOD") == "POST") {
    if (cgi.LongitudContenido < 0) Raise(kErrArgumentoNoValido);
    const auto longitud = static_cast<std::size_t>(cgi.LongitudContenido);
    std::string buffer(std::min(longitud, kMaximoLectura), '\0');
    // Kept: every read asks for the full length, not the remainder, and the
    // loop has no other exit than a body of the declared length.
    while (cgi.DatosPost.size() < longitud) {
      const std::size_t n = entrada.Read(buffer.data(), buffer.size());
      if (n == 0) {
        entrada.Pause();
        continue;
      }
      cgi.DatosPost.append(buffer.data(), n);
    }
    if (UpperLatin1(cgi.Variable("CONTENT_TYPE")).find("WWW-FORM-URLENCODED") !=
        std::string::npos) {
      SeparaPares(cgi.pares, cgi.DatosPost);
    }
  }
  SeparaPares(cgi.pares, cgi.Variable("QUERY_STRING"));
}

void SeparaPares(ParesCGI& pares, std::string_view texto) {
  const auto n = static_cast<std::size_t>(std::count(texto.begin(), texto.end(), '='));
  std::size_t start = 1;
  std::size_t llenas = 0;
  for (; llenas < n; ++llenas) {
    const std::size_t e = InStr(start, texto, "=");
    if (e == 0) break;
    std::size_t a = InStr(e, texto, "&");
    if (a == 0) a = texto.size() + 1;
    ParCGI par;
    par.nombre = DecodificaURL(texto.substr(start - 1, e - start));
    par.valor = DecodificaURL(texto.substr(e, a - e - 1));
    pares.Agrega(std::move(par));
    start = a + 1;
  }
  pares.AgregaVacias(n - llenas);
}

std::string DecodificaURL(std::string_view texto) {
  std::string s(texto);
  std::replace(s.begin(), s.end(), '+', ' ');
  std::size_t p = s.find('%');
  while (p != std::string::npos) {
    const std::size_t disponibles = std::min<std::size_t>(2, s.size() - p - 1);
    if (disponibles == 0) Raise(kErrTiposNoCoinciden);
    int valor = 0;
    for (std::size_t k = 1; k <= disponibles; ++k) {
      const int d = HexDigit(s[p + k]);
      if (d < 0) Raise(kErrTiposNoCoinciden);
      valor = valor * 16 + d;
    }
    s[p] = static_cast<char>(valor);
    s.erase(p + 1, disponibles);
    p = s.find('%', p + 1);
  }
  return s;
}

std::string ValorCGI(const EntradaCGI& cgi, std::string_view nombre) {
  const std::string buscado = UpperLatin1(nombre);
  for (const ParCGI& par : cgi.pares.Campos()) {
    if (par.nombre.size() == buscado.size() && UpperLatin1(par.nombre) == buscado) {
      return TrimBlanks(par.valor);
    }
  }
  return std::string();
}

}  // namespace orvex::gateway
