#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cgi/Solicitud.h"

// The links that Orvex writes into its pages for the reader's next step: a
// record's own page, the same search narrowed, sorted, corrected or on
// another page. A link is the program's address (SCRIPT_NAME, as the web
// server gave it) and a query string; every text in it is percent-encoded
// as UTF-8, and a link that carries a character beyond ASCII also carries
// "CODIFICACION=utf-8", so that it reads back the same text whatever the
// installation's setting, and looks, shared by a reader, as links from any
// modern site do. Links come HTML-escaped, ready for an href="..." in double
// or single quotes.
namespace orvex::cgi {

using CamposEnlace = std::vector<std::pair<std::string, std::string>>;

// "name=value&name=value" of `campos` (names and values Windows-1252):
// unreserved ASCII characters as they are, a blank as "+", every other byte
// of their UTF-8 as "%HH". Not HTML-escaped.
std::string CadenaConsulta(const CamposEnlace& campos);

// The link to the program with `campos`, HTML-escaped.
std::string Enlace(const Solicitud& s, const CamposEnlace& campos);

// The request's own fields in arrival order, without those named in
// `quitar` (compared without regard to case) and without the empty ones and
// "CODIFICACION", followed by `agregar`: the same search with something
// changed.
CamposEnlace CamposCambiados(const Solicitud& s, const std::vector<std::string_view>& quitar,
                             const CamposEnlace& agregar);

// The permanent link of book record `ficha`: the configuration file, the
// collection, the database set when the request chose one, and
// "txtNoFicha". HTML-escaped.
std::string EnlaceFicha(const Solicitud& s, std::int32_t ficha);

}  // namespace orvex::cgi
