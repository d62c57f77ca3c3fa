#pragma once

#include <string>
#include <string_view>

#include "base/Clock.h"
#include "base/Platform.h"

namespace orvex::config {

// Replaces every occurrence of `buscar` in `texto`, in place, left to right
// and case-sensitively; the inserted text is never searched again ("a" by
// "aa" in "aba" gives "aabaa"). Returns the changed text itself.
// `buscar` is never empty.
const std::string& ReemplazaTexto(std::string& texto, std::string_view buscar,
                                  std::string_view reemplazo);

// Fills "<!FECHA!>" (dd/mmm/yyyy), "<!DIA!>" (weekday) and "<!HORA!>"
// (hh:mm AM/PM), in that order, reading the clock for each.
void ReemplazaFechas(std::string& texto, Clock& reloj);

// Writes "<center><p><H4>", the message, "</H4><p/></center>" as one line.
// No escaping and no HTTP header: it can come before the header.
void MensajeH4(Output& salida, std::string_view mensaje);

}  // namespace orvex::config
