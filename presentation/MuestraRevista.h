#pragma once

#include <cstdint>

#include "cgi/Solicitud.h"

// The displays of one periodical and of one article inside a result page.
namespace orvex::presentation {

// Writes periodical `numero` (its tag string read from "Fichas Revistas";
// FichaSinDatos when there is no such row), shown at position `posicion`,
// through the "FORMATO:" section: the periodical document (xml/XMLRevista.h)
// through XSLFichaPublicaciones in "<!FICHA!>" and "<!FICHA1!>", through
// XSLTablaPublicaciones in "<!FICHA2!>" and through the installation's
// "pp_propia.xsl" (its "Ruta-" made "./XSLs/") in "<!FICHA3!>", each cut to
// its body by CuerpoConEstilos; then the record template tags,
// "<!CLASIFICACION!>", "<!NFICHA!>", "<!PFICHA!>" and the paging numbers,
// and the searched words marked. The separator is the caller's. An
// unexpected failure writes "Error en mod. DisplyRegRevista [" with its
// number and description instead. `formato` is the request's "TipoFormato",
// which only the article display uses.
void DisplyRegRevista(cgi::Solicitud& s, std::int32_t numero, std::int32_t posicion,
                      std::uint8_t formato);

// Writes article `id` (its tag string and copy read from "Analiticas";
// FichaSinDatos when there is no such row) in one presentation, chosen by
// `formato`, named in a comment before it and put in "<!FICHA!>" and its own
// placeholder (the others are emptied):
//   1   "ficha1"        the article document through XSLFichaAnalitica,
//                       "<!FICHA1!>";
//   2   "ficha2"        through XSLTablaAnalitica, "<!FICHA2!>";
//   3   "personalizado" through the installation's "pp_propia_ana.xsl",
//                       "<!FICHA3!>";
//   any other number: "personalizado" when the installation has its sheet,
//   else "ficha1".
// A document that fails to transform is written inside "<!-- <pre>" ...
// "</pre> -->" after the failure's message. Then the same placeholders and
// marking as the periodical display. An unexpected failure writes
// "Error en mod. DisplyReg_ANA [" with its number and description.
void DisplyReg_ANA(cgi::Solicitud& s, std::int32_t id, std::int32_t posicion,
                   std::uint8_t formato);

}  // namespace orvex::presentation
