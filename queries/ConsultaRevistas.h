#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "cgi/Solicitud.h"

// The periodical ("ACERVO" REVISTAS) and article (ARTICULOS) queries: they
// work like the book query over indizaPP.MDB, with their own displays
// (presentation/MuestraRevista.h), the record-format number of "TipoFormato" and
// "SEPARADOR:" between records. Their text fields are taken as the request
// gives them, without folding, and they write no statistics row.
namespace orvex::queries {

// Reads "txtNoFicha" (a number only when the whole field is one, else 0),
// the text fields, "Cantidad", "FichaINI" and "TipoFormato"; creates the
// request log; locates the configuration file and KORVEL8.MDB in its
// "BASE:" (each missing one ends the request with its message); writes
// "ENCABEZADO:", opens the databases and reads the installation settings;
// searches (the publisher words in the author's place, and as the free text
// when neither the free text nor the title is given); writes
// "NOENCONTRADO:" as it stands, or "ENCABEZADO2:" and the periodicals;
// then "FINAL:".
void ConsultaRevistas(cgi::Solicitud& s);

// The same for articles, with "txtNumadqui": when given, no search runs and
// the articles of that copy are listed.
void ConsultaArticulos(cgi::Solicitud& s);

// Periodical `no_ficha` when above 0; otherwise the results from Desde, at
// most Cantidad of them (counted in a byte) and never past Total, with
// "SEPARADOR:" between two of them.
void MuestraRevistas(cgi::Solicitud& s, std::int32_t no_ficha, std::uint8_t formato);

// The articles of copy `numadqui` when it is given: "NOENCONTRADO2:" when it
// has none, else each of them newest first (Total becomes their number),
// each followed by "SEPARADOR:". Otherwise as MuestraRevistas.
void MuestraArticulos(cgi::Solicitud& s, std::int32_t no_ficha, std::string_view numadqui,
                      std::uint8_t formato);

// The analytic numbers of copy `numadqui`, highest first, joined by ",";
// empty when it has none. The accession number is quoted in the statement
// with its apostrophes doubled, so that any accession number finds its copy.
std::string AnaliticasDeEjemplar(cgi::Solicitud& s, std::string_view numadqui);

}  // namespace orvex::queries
