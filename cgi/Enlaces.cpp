#include "cgi/Enlaces.h"

#include <algorithm>

#include "base/CodePage.h"
#include "base/Html.h"
#include "cgi/EntradaCGI.h"

namespace orvex::cgi {
namespace {

bool NoReservado(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         c == '-' || c == '_' || c == '.' || c == '~';
}

void AgregaCodificado(std::string& destino, std::string_view texto) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  const std::string utf8 = CodePage::Windows1252().ToUtf8(texto);
  for (const char ch : utf8) {
    const auto c = static_cast<unsigned char>(ch);
    if (NoReservado(c)) {
      destino += ch;
    } else if (c == ' ') {
      destino += '+';
    } else {
      destino += '%';
      destino += kHex[c >> 4];
      destino += kHex[c & 0x0F];
    }
  }
}

bool HayNoASCII(const CamposEnlace& campos) {
  const auto no_ascii = [](std::string_view t) {
    return std::any_of(t.begin(), t.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
  };
  return std::any_of(campos.begin(), campos.end(), [&](const auto& campo) {
    return no_ascii(campo.first) || no_ascii(campo.second);
  });
}

}  // namespace

std::string CadenaConsulta(const CamposEnlace& campos) {
  std::string cadena;
  for (const auto& [nombre, valor] : campos) {
    if (!cadena.empty()) cadena += '&';
    AgregaCodificado(cadena, nombre);
    cadena += '=';
    AgregaCodificado(cadena, valor);
  }
  if (HayNoASCII(campos)) {
    if (!cadena.empty()) cadena += '&';
    cadena += std::string(kCampoCodificacion) + "=utf-8";
  }
  return cadena;
}

std::string Enlace(const Solicitud& s, const CamposEnlace& campos) {
  return EscapaEco(s.cgi.Variable("SCRIPT_NAME") + "?" + CadenaConsulta(campos));
}

CamposEnlace CamposCambiados(const Solicitud& s, const std::vector<std::string_view>& quitar,
                             const CamposEnlace& agregar) {
  CamposEnlace campos;
  for (std::size_t i = 0; i < s.cgi.pares.NumeroCampos(); ++i) {
    const ParCGI par = s.cgi.pares.Campo(i);
    if (par.nombre.empty() || par.valor.empty()) continue;
    if (EqualsIgnoringCase(par.nombre, kCampoCodificacion)) continue;
    const bool quitado = std::any_of(quitar.begin(), quitar.end(), [&](std::string_view q) {
      return EqualsIgnoringCase(par.nombre, q);
    });
    if (!quitado) campos.emplace_back(par.nombre, par.valor);
  }
  campos.insert(campos.end(), agregar.begin(), agregar.end());
  return campos;
}

std::string EnlaceFicha(const Solicitud& s, std::int32_t ficha) {
  CamposEnlace campos = {{"ArchivoCFG", ValorCGI(s.cgi, "ArchivoCFG")},
                         {"ACERVO", ValorCGI(s.cgi, "ACERVO")}};
  const std::string base = ValorCGI(s.cgi, "BaseDTA");
  if (!base.empty()) campos.emplace_back("BaseDTA", base);
  campos.emplace_back("txtNoFicha", std::to_string(ficha));
  return Enlace(s, campos);
}

}  // namespace orvex::cgi
