#pragma once

#include "cgi/Solicitud.h"

// The sequential listing ("ACERVO" CATALOGOS): the rows of any table or
// statement of the database that "BASE:" names (the path of the file),
// filtered by one column, one page at a time, through "FORMATO:".
namespace orvex::queries {

// Reads "txtLIB", "CAMPO", "TIPOBUSQUEDA", "Cantidad", "FichaINI" and
// "ArchivoCFG"; refuses, in this order and each with its message, a missing
// "CAMPO", a page size or first position below 1, an empty search text and
// a missing configuration file; writes "ENCABEZADO:"; opens the database
// read-only and compares "CAMPO" with the search text (without "*", "'" and
// "#") as a number, a date "mm/dd/yyyy" or a text (equal, or anywhere with
// "TIPOBUSQUEDA" other than 0), as the column's first value is; writes
// "NOENCONTRADO:" as it stands, or "ENCABEZADO2:" and the rows; then
// "FINAL:". When "CAMPO" holds "select", "TABLA:" is the statement and the
// comparison replaces its "<!BUSCADO!>". One statement runs, and nothing can
// be written: anything else raises the database's error.
void ConsultaCatalogo(cgi::Solicitud& s);

}  // namespace orvex::queries
