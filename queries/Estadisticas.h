#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "db/Database.h"
#include "cgi/Solicitud.h"

// The search statistics: one row in "Consultas" of the statistics database
// beside the bibliographic database for every catalogue search.
namespace orvex::queries {

// The column list and table that RegistraConsulta writes.
inline constexpr std::string_view kCamposConsultas =
    "Fecha,Buscado,Encontrados,AdvSearch,IP_Address";
inline constexpr std::string_view kTablaConsultas = "Consultas";

// Records one search in the statistics database of `base` (the "BASE:"
// directory): the clock's date and time, the searched text, `encontrados`,
// the form ("2" simple, "3" advanced when s.cfg.BUSQ_AVANZADA is 1) and the
// client text. The simple form records the four box texts `cajas`, in box
// order, joined by single spaces and trimmed; the advanced form records
// s.Expresion. The searched text has its double blanks halved once, is cut
// to 40 characters and folded by NormalizaVocales; the client text is cut
// to 100 characters. Every text reaches the row as it is, whatever
// characters it holds, and one call adds at most one row. True when a row
// was written; a failure shows AgregaRegistro's message and never stops
// the search.
bool RegistraConsulta(cgi::Solicitud& s, std::string_view base, std::int32_t encontrados,
                      const std::array<std::string, 4>& cajas);

// The general insert into the statistics database "estadisticas.mdb" in
// `base` (found regardless of letter case): runs
// "INSERT INTO tabla (campos)  VALUES (valores)" and returns the rows the
// database reports written. `valores` is SQL text, quotes already doubled;
// each "?" in it takes the next of `parametros` (code-page texts, numbers,
// dates), which never become part of the statement's text.
// For table "Consultas" an old layout without IP_Address first gains the
// columns IP_Address and AdvSearch. Any database error is shown with
// MensajeH4 ("Error: '<description>'<br/>--Agregar registro estadístico--")
// and gives 0. Yields (cgi::Cede) after each statement; the watchdog's
// ProcessEnd passes through.
std::int32_t AgregaRegistro(cgi::Solicitud& s, std::string_view base, std::string_view campos,
                            std::string_view tabla, std::string_view valores,
                            const std::vector<db::Value>& parametros = {});

}  // namespace orvex::queries
