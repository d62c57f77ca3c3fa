#pragma once

#include <cstdint>

#include "cgi/Solicitud.h"
#include "search/Busqueda.h"

namespace orvex::queries {

// The book catalogue query ("ACERVO" LIBROS): reads the query fields, checks
// and opens the databases of "BASE:" (or of the database set that
// "BaseDTA" names), runs one of three lookups (one record by "txtNoFicha",
// the advanced form, or the normal search), writes "ENCABEZADO:",
// "ENCABEZADO2:", one page of records (or "NOENCONTRADO:") and "FINAL:" with
// their placeholders, and records the search in the statistics database. An
// advanced search over every database set ("BaseDTA" 99) is answered by the
// multi-collection page instead. An unexpected failure after the databases
// are located ends the page with the error block (and no "FINAL:").
void ConsultaLibros(cgi::Solicitud& s);

// Reads the book query's fields into the request ("txtLIB", "txtTIT",
// "txtAUT", "txtTEM" folded; the display switches, "FormatoFicha",
// "Cantidad", "FichaINI", "BUSQ_AVANZADA", "BaseDTA"), errors ignored, and
// returns "txtNoFicha".
std::int32_t LeeCamposLibros(cgi::Solicitud& s);

// The search of a book request into s.busqueda.MapaResultado: the advanced
// form when "BUSQ_AVANZADA" is 1 (its display form left in Expresion), else
// the four boxes (the first advanced box when all four are empty), with
// their lines in the trace. A syntax error is reported on the entorno's
// output.
void BuscaLibros(cgi::Solicitud& s, const search::Entorno& entorno);

}  // namespace orvex::queries
