#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "cgi/Solicitud.h"

// The accession-number lookup (command "SHOW_NUM"): the record that owns one
// copy, shown in one of the three record formats on a page of its own.
namespace orvex::queries {

struct ShowNum {
  bool correcto = false;
  std::string numadqui;   // the accession number, trimmed
  std::int32_t formato = 1;
  std::string mensaje;    // why the command was refused
};

// Parses the command text "SHOW_NUM number[,format]": blank parameters give
// an empty number and format 1; the number must be 1 to 15 characters; the
// format, when given, a number above 0 and below 4 (rounded). The messages
// name the command "SHOW_NDA", as they always have, and quote the text they
// refuse HTML-escaped (EscapaEco), or as it was typed when the installation
// echoes request text verbatim (`ecos_literales`).
ShowNum AnalizaShowNum(std::string_view comando, bool ecos_literales);

// Writes the whole page: the header, the heading, then the refusal, the
// "not found" heading or the record through a one-section template with
// "<!FICHA!>", "<!FICHA2!>" or "<!FICHA3!>" by the format; then the footer
// with the program's version and the institution's lines of the
// installation settings. Refuses a "BASE:" that lists several collections.
// The accession number is quoted in the statement with its apostrophes
// doubled.
void BuscaPorNumAdqui(cgi::Solicitud& s, const std::string& comando);

}  // namespace orvex::queries
