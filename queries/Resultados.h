#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "db/Database.h"
#include "cgi/Solicitud.h"

// What the result pages share: the page of book results,
// the page of a sequential listing and the page of a search over several
// collections.
namespace orvex::queries {

// The book results: record `no_ficha` alone when it is above 0 (shown at
// position 1); otherwise the records of the result bitmap at positions Desde
// to Total, at most Cantidad of them. The records shown are counted in a
// byte: a page of more than 255 records raises 6 after the 255th.
void MuestraLibros(cgi::Solicitud& s, std::int32_t no_ficha);

// The book results of a page in an order of the reader's (queries/Lector.h):
// the records `fichas`, shown at positions Desde on, counted in a byte as
// above.
void MuestraLibrosEnOrden(cgi::Solicitud& s, const std::vector<std::int32_t>& fichas);

// The page of a sequential listing over `filas`: skips Desde - 1 rows, then
// writes one row per position up to Total, at most Cantidad of them (counted
// in a byte), with "SEPARADOR:" between two rows and never after the last.
void MuestraCatalogo(cgi::Solicitud& s, db::Recordset& filas);

// One row of the listing: "FORMATO:" filled from the row's columns, the
// paging numbers and "<!BUSCADO!>" (TextoLIB).
void RenglonCatalogo(cgi::Solicitud& s, db::Recordset& fila);

// The page of an advanced search over the `n` collections of
// s.cfg.TablaBases: the header once, from the first collection whose files
// are there; one "FORMATO:" row per collection that found something, with
// "<!HASTA!>" as Desde + Cantidad (the single-base rule does not apply
// here); a statistics row per collection; the no-result message; "FINAL:".
void ResultadosMultiplesAcervos(cgi::Solicitud& s, std::int32_t n);

// True when KORVEL8.MDB and INDIZADO.MDB are both in `directorio`; otherwise
// writes a "<p>No se encontró: " line per missing file and the message that
// the files are incomplete, and gives false.
bool VerificaArchivosBase(cgi::Solicitud& s, std::string_view directorio);

}  // namespace orvex::queries
