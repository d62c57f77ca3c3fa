#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/Platform.h"

namespace orvex::gateway {

// The CGI variables captured at start, in the order they are read.
inline constexpr std::array<const char*, 21> kVariablesCGI = {
    "HTTP_ACCEPT",     "AUTH_TYPE",       "CONTENT_LENGTH", "CONTENT_TYPE",
    "HTTP_COOKIE",     "GATEWAY_INTERFACE", "PATH_INFO",    "PATH_TRANSLATED",
    "QUERY_STRING",    "HTTP_REFERER",    "REMOTE_ADDR",    "REMOTE_HOST",
    "REMOTE_IDENT",    "REMOTE_USER",     "REQUEST_METHOD", "SCRIPT_NAME",
    "SERVER_SOFTWARE", "SERVER_NAME",     "SERVER_PORT",    "SERVER_PROTOCOL",
    "HTTP_USER_AGENT"};

// One request field, decoded, name in the case it was sent.
struct ParCGI {
  std::string nombre;
  std::string valor;
};

// The request fields. Entry 0 exists before any parsing and is never
// consulted; real fields follow in arrival order (body first, then query
// string). A pair text with more "=" than fields leaves trailing empty
// entries: they are counted, not stored, so a body of a million "=" costs no
// memory.
class ParesCGI {
 public:
  // Number of entries, entry 0 included (the upper bound plus one).
  std::size_t Entradas() const { return 1 + campos_.size() + vacias_; }
  // The real fields in order (the trailing empty entries left out).
  const std::vector<ParCGI>& Campos() const { return campos_; }

  // Appends one field; closes any run of empty entries first.
  void Agrega(ParCGI par);
  // Appends `n` empty entries.
  void AgregaVacias(std::size_t n) { vacias_ += n; }

 private:
  std::vector<ParCGI> campos_;
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

// Reads the body of a POST (REQUEST_METHOD exactly "POST") until it holds
// LongitudContenido bytes, asking for the full length on every read; a body
// that ends early keeps the process waiting until the web server ends it.
// Splits the body when CONTENT_TYPE contains "www-form-urlencoded" (any
// case), then always the query string. Raises 5 on a negative length.
void LeeDatosForma(EntradaCGI& cgi, Input& entrada);

// Appends the fields of one "name=value&name=value" text.
void SeparaPares(ParesCGI& pares, std::string_view texto);

// Form-URL decoding: "+" is a blank and "%hh" the byte hh. A decoded "%" is
// not decoded again. A "%" followed by no hexadecimal digit raises 13.
std::string DecodificaURL(std::string_view texto);

// The blank-trimmed value of the first field named `nombre`, ignoring case;
// empty when there is none. A field sent empty reads the same.
std::string ValorCGI(const EntradaCGI& cgi, std::string_view nombre);

}  // namespace orvex::gateway
