#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "cgi/Solicitud.h"

// The title of a book record for the pages that speak of one of its copies
// (availability and the reservation's sign-in), which reach the circulation
// server and not the catalogue: the title area of tag 245 before its
// statement of responsibility (" / "), Windows-1252, not escaped. Read from
// the catalogue of "BASE:" when it names one directory; empty when it names
// several, when the files cannot be opened or when there is no such record
// or copy. Nothing is written to the page.
namespace orvex::queries {

std::string TituloDeFicha(cgi::Solicitud& s, std::int32_t ficha);
// The title of the record that owns the copy `numadqui`.
std::string TituloDeEjemplar(cgi::Solicitud& s, std::string_view numadqui);

}  // namespace orvex::queries
