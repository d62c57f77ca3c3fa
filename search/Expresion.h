#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/Platform.h"
#include "search/Busqueda.h"

// The query language: a reader's expression becomes search terms.
namespace orvex::search {

// The characters that may form a word (Windows-1252), "$" last.
extern const std::string CaracteresPalabra;
// Space, asterisk, plus, minus.
inline constexpr std::string_view CaracteresOperador = " *+-";

// `texto` with every occurrence of `busca` (compared upper-cased) replaced by
// `reemplazo`, only outside double-quoted stretches.
std::string ReemplazaFueraComillas(std::string_view texto, std::string_view busca,
                                   std::string_view reemplazo);

// Cuts the next token off the front of `texto`: a run of characters of
// `conjunto`, or a phrase in double quotes (returned with its quotes).
// Raises e.FinExpresion when no token can start there or a phrase is not
// closed; a lone quote at the end gives two quotes and leaves it alone.
std::string SiguienteToken(Estado& e, std::string& texto, std::string_view conjunto);

// Appends the terms of `expresion`, each with field code `campo`, to
// e.Terminos from index `cuenta` on and returns the new count; after a
// syntax error writes the syntax-error message and returns -1. A term
// index outside 0 to 30 raises 9.
std::int16_t AnalizaExpresion(Estado& e, Output& salida, const std::string& expresion,
                              std::int16_t campo, std::int16_t cuenta);

// The one-word form of a code-like expression (call numbers, standard
// numbers): blanks, hyphens and dots outside quotes removed, upper-cased.
std::string LimpiaClave(std::string_view texto);

// Reads the eight fields of the advanced-search form through `campo`, which
// gives a request field's value by name ("" when it is not there).
void LeeCamposAvanzados(Estado& e, const std::function<std::string(std::string_view)>& campo);

// Builds up to three expressions from the advanced-search form, runs the
// book search with them (BuscaPalabras, field-list form) and returns them
// joined for display.
std::string ArmaBusquedaAvanzada(const Entorno& en);

}  // namespace orvex::search
