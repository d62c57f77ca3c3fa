#pragma once

#include <string>
#include <string_view>

#include "cgi/Solicitud.h"

namespace orvex::cgi {

// The three lines that open every page: "Content-Type: text/html",
// "Cache-Control: public" with the empty line that ends the HTTP header, and
// the program's directory in an HTML comment.
void EnviaCabeceraHTTP(Solicitud& s);

// The standard page header: the three lines above, an empty line and, when
// `titulo` is not empty, "<HTML><HEAD><TITLE>" ... "</TITLE></HEAD>" and
// "<BODY>".
void EnviaEncabezado(Solicitud& s, std::string_view titulo);

// The header of a page that answers anyone and names nothing of the server
// (the public diagnostic pages, the refusal of a reserved command): the
// standard page header without the line of the program's directory.
void EnviaEncabezadoPublico(Solicitud& s, std::string_view titulo);

// A text that quotes the request, written between tags (an error's
// description that names a field the request gave): "&", "<" and ">" as
// character references, unless the installation echoes request text
// verbatim. Quotes and apostrophes, plain text between tags, stay as they
// are, so that a message that quotes nothing of the request keeps its bytes.
std::string EcoEnTexto(const Solicitud& s, std::string_view texto);

}  // namespace orvex::cgi
