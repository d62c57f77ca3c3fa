#pragma once

#include "cgi/Solicitud.h"

// Export of book records: the request of a book page with the field
// "Exportar" ("ris", "bibtex", "marcxml" or "marc") answers with the
// records it would show, as a file in that format instead of the page.
//
//   txtNoFicha=15&Exportar=ris          record 15
//   txtLIB=historia&FichaINI=11&Cantidad=10&Orden=titulo&Exportar=bibtex
//                                       the records of that results page,
//                                       in its order and with its facets
//
// The answer carries the format's content type and a file name
// (orvex-ficha-15.ris, orvex-resultados.bib...). A page of more than
// kMaximoExportacion records, or one with no page size, exports the first
// kMaximoExportacion. A search that finds nothing, an unknown format, a
// catalogue that cannot be opened or a missing module answer with a short
// Spanish page and an HTTP status that says so. An export is not a search a
// reader made: it writes no statistics row and no request log.
namespace orvex::queries {

inline constexpr int kMaximoExportacion = 255;

// True when the request asks for an export of book records: "Exportar" is
// not empty and "ACERVO" is LIBROS or missing.
bool PideExportacion(const cgi::Solicitud& s);

void ExportaLibros(cgi::Solicitud& s);

}  // namespace orvex::queries
