#pragma once

#include <string_view>

#include "gateway/Solicitud.h"

namespace orvex::gateway {

// The three lines that open every page: "Content-Type: text/html",
// "Cache-Control: public" with the empty line that ends the HTTP header, and
// the program's directory in an HTML comment.
void EnviaCabeceraHTTP(Solicitud& s);

// The standard page header: the three lines above, an empty line and, when
// `titulo` is not empty, "<HTML><HEAD><TITLE>" ... "</TITLE></HEAD>" and
// "<BODY>".
void EnviaEncabezado(Solicitud& s, std::string_view titulo);

}  // namespace orvex::gateway
