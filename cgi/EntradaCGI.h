#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Plazo.h"
#include "base/Platform.h"

namespace orvex::cgi {

// The CGI variables captured at start, in the order they are read.
inline constexpr std::array<const char*, 21> kVariablesCGI = {
    "HTTP_ACCEPT",     "AUTH_TYPE",       "CONTENT_LENGTH", "CONTENT_TYPE",
    "HTTP_COOKIE",     "GATEWAY_INTERFACE", "PATH_INFO",    "PATH_TRANSLATED",
    "QUERY_STRING",    "HTTP_REFERER",    "REMOTE_ADDR",    "REMOTE_HOST",
    "REMOTE_IDENT",    "REMOTE_USER",     "REQUEST_METHOD", "SCRIPT_NAME",
    "SERVER_SOFTWARE", "SERVER_NAME",     "SERVER_PORT",    "SERVER_PROTOCOL",
    "HTTP_USER_AGENT"};

// One request field, decoded, name in the case it was sent. The texts live
// in the ParesCGI that gave them, and only as long as it is not changed.
struct ParCGI {
  std::string_view nombre;
  std::string_view valor;
};

// The request fields. Entry 0 exists before any parsing and is never
// consulted; real fields follow in arrival order (body first, then query
// string). A pair text with more "=" than fields leaves trailing empty
// entries: they are counted, not stored, so a body of a million "=" costs no
// memory. The decoded names and values share one buffer, one after another,
// and each field costs eight bytes beside it (where its name and its value
// begin), so the fields of any text take at most about five times its size.
class ParesCGI {
 public:
  // Number of entries, entry 0 included (the upper bound plus one).
  std::size_t Entradas() const { return 1 + indices_.size() + vacias_; }
  // The number of stored fields (the trailing empty entries left out), and
  // field `i` of them, in order.
  std::size_t NumeroCampos() const { return indices_.size(); }
  ParCGI Campo(std::size_t i) const;
  // The stored fields in order.
  std::vector<ParCGI> Campos() const;

  // Appends the fields of one "name=value&name=value" text (SeparaPares).
  void Separa(std::string_view texto);

  // Replaces every stored field's name and value by `convierte` of it; the
  // fields keep their order and the trailing empty entries their count.
  template <typename F>
  void Convierte(F convierte) {
    std::string textos;
    textos.reserve(textos_.size());
    std::vector<Indice> indices;
    indices.reserve(indices_.size());
    for (std::size_t i = 0; i < indices_.size(); ++i) {
      const ParCGI par = Campo(i);
      Indice x{};
      x.nombre = static_cast<std::uint32_t>(textos.size());
      textos += convierte(par.nombre);
      x.valor = static_cast<std::uint32_t>(textos.size());
      textos += convierte(par.valor);
      indices.push_back(x);
    }
    textos_ = std::move(textos);
    indices_ = std::move(indices);
  }

 private:
  // Where a field's name and value begin in textos_; the value ends where
  // the next field's name begins.
  struct Indice {
    std::uint32_t nombre, valor;
  };
  void Cierra();  // stores the run of empty entries before a new field

  std::string textos_;  // every decoded name and value, one after another
  std::vector<Indice> indices_;
  std::size_t vacias_ = 0;  // empty entries after the last stored field
};

// What the request brought: the CGI variables, the body and the fields.
struct EntradaCGI {
  std::array<std::string, kVariablesCGI.size()> variables;
  std::int32_t LongitudContenido = 0;
  std::string DatosPost;
  ParesCGI pares;

  // The captured value of a CGI variable ("" when absent or not one of the
  // twenty-one).
  const std::string& Variable(std::string_view nombre) const;
};

// Captures the twenty-one variables and computes LongitudContenido (the
// leading number of CONTENT_LENGTH rounded half to even; raises 6 when it
// does not fit in 32 bits).
void LeeVariablesCGI(EntradaCGI& cgi, Environment& entorno);

// True when the request is larger than `maximo` bytes: a POST whose
// CONTENT_LENGTH says so, or a query string of that size. Such a request is
// answered before its body is read.
bool SolicitudExcesiva(const EntradaCGI& cgi, std::size_t maximo);

// Reads the body of a POST (REQUEST_METHOD exactly "POST") until it holds
// LongitudContenido bytes, asking for the full length on every read; a body
// that ends early keeps the process waiting until the web server ends it or
// `plazo` passes (then TiempoAgotado is thrown). Splits the body when
// CONTENT_TYPE contains "www-form-urlencoded" (any case), then always the
// query string. Raises 5 on a negative length.
void LeeDatosForma(EntradaCGI& cgi, Input& entrada, Plazo* plazo = nullptr);

// Appends the fields of one "name=value&name=value" text.
void SeparaPares(ParesCGI& pares, std::string_view texto);

// The request field that tells that a form or a link sends its text in
// UTF-8 ("CODIFICACION=utf-8"), as modern forms and the links that browsers
// share do.
inline constexpr std::string_view kCampoCodificacion = "CODIFICACION";

// True when the request's fields are to be read as UTF-8: the installation
// says so for every request (`siempre`), or the request carries
// "CODIFICACION" with "utf-8" or "utf8" (any case).
bool PideUTF8(const EntradaCGI& cgi, bool siempre);

// Reads the fields as UTF-8: every name and value that is well-formed UTF-8
// and holds some byte above 127 becomes its Windows-1252 text (a character
// the code page lacks becomes "?"). A text that is not well-formed UTF-8
// (the bytes of a Windows-1252 form) is kept as it came.
void LeeCamposUTF8(EntradaCGI& cgi);

// True when `texto` is well-formed UTF-8 (no overlong form, no surrogate,
// nothing above U+10FFFF, no sequence cut short).
bool EsUTF8(std::string_view texto);

// Form-URL decoding: "+" is a blank and "%hh" the byte hh, in one pass over
// the text. A decoded "%" is not decoded again. A "%" followed by no
// hexadecimal digit raises 13.
std::string DecodificaURL(std::string_view texto);
// The same, appended to `destino`.
void DecodificaURL(std::string_view texto, std::string& destino);

// The blank-trimmed value of the first field named `nombre`, ignoring case;
// empty when there is none. A field sent empty reads the same.
std::string ValorCGI(const EntradaCGI& cgi, std::string_view nombre);

// The request's fields as a lookup by name (ValorCGI), for what reads a form
// without knowing the request.
inline auto Campos(const EntradaCGI& cgi) {
  return [&cgi](std::string_view nombre) { return ValorCGI(cgi, nombre); };
}

}  // namespace orvex::cgi
