#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "cgi/Solicitud.h"
#include "records/Ficha.h"

// The display of one book record inside a result page.
namespace orvex::presentation {

// Writes record `ficha`, shown at position `posicion` of the result list,
// through the "FORMATO:" section of the configuration, in the presentation
// the request chose:
//   - "mostrarFICHABDL" 1: the table of the record's fields in "<!FICHABDL!>";
//   - else "mostrarFICHABIB" 1: the brief description in "<!FICHAB!>";
//   - else the catalogue card: the card document through XSLFichaLibros in
//     "<!FICHA!>" and "<!FICHA1!>", the record document through
//     XSLTablaLibros in "<!FICHA2!>", and through the installation's own
//     sheet (its "Ruta-" made "./XSLs/") in "<!FICHA3!>", each result cut to
//     its body by CuerpoConEstilos.
// Then the record template tags, "<!CLASIFICACION!>" (the call number, one
// part per line), "<!NFICHA!>", "<!PFICHA!>", the numbered subject headings
// "<!ENCABEZAMIENTOS!>", the notes "<!NOTAS!>", the numbered added entries
// "<!ASIENTOS_SECUNDARIOS!>" and the paging numbers; the searched words are
// marked (not in the table presentation); the record is written, then the
// availability offer ("CHECA_DISPONIBILIDAD:", when the circulation server
// of the page's database set answers) and the "SEPARADOR:" section.
// `opcion` is the table presentation's option, passed on by the callers and
// not used by the presentations of this build.
void MuestraFicha(cgi::Solicitud& s, const records::RegFicha& ficha, std::int32_t posicion,
                  std::int32_t opcion = 0);

// The body of an HTML text: what follows the ">" of its "<BODY" (any case)
// up to its "</BODY" (any case), with the classes margen1, margen2, resalta1,
// resalta2 and resalta3 replaced by inline styles. A text without a body, or
// with an empty one, comes back whole and unchanged.
std::string CuerpoConEstilos(const std::string& html);

// "<!CLASIFICACION!>": the call number (050, 082 or 090), trimmed, a double
// blank made single once, each part on a line of its own ("<BR/>").
std::string Clasificacion(std::string_view marc);

}  // namespace orvex::presentation
