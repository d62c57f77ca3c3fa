#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "db/Database.h"
#include "search/Busqueda.h"

// Looking the terms up in the word index and combining their hits.
namespace orvex::search {

// True when `indice` holds word lists of `tabla` that are still in force
// (search/ListasPalabras.h): the table's row in ORVEX_VIGENCIA and its three
// triggers are there. Any file without them (older catalogues, other
// engines) reads the table. The vocabulary (search/Sugerencias.h) is kept
// under the same guard.
bool ListasVigentes(db::Database& indice, const std::string& tabla);

// Clears the result and empties terms 0 to 29 (term 30 is left as it is).
void IniciaBusqueda(Estado& e);

// A phrase holds at most this many words; a longer one raises 9.
inline constexpr int kMaximoPalabrasFrase = 31;

// The book search over the word index of `en`. With `conCampos`, `expr[0..2]` are
// analysed with `campos[0..2]` (the advanced form); otherwise `expr[0..3]`
// with field codes 0, 1, 2, 3. Terms are then looked up in TABLA and merged
// into the state's MapaResultado strictly in order; an AND term against an
// empty result is skipped. After a syntax error (reported on the output by
// the parser) nothing is looked up and the result stays empty. A term whose
// word is empty merges the term bitmap as the previous term left it.
void BuscaPalabras(const Entorno& en, const std::array<std::string, 4>& expr,
                   const std::array<std::int16_t, 3>& campos, bool conCampos);

// The article search over the word index's TABLAANA, four-box form, no skipping;
// exact words by a query instead of a seek.
void BuscaPalabrasAna(const Entorno& en, const std::array<std::string, 4>& expr);

// The lookups, each into e.MapaTermino. `palabra` receives its normalised
// form and an empty `tabla` becomes "TABLA". A record number outside the
// bitmap raises 9.
// Exact word by a seek on the index FRASE; at most 30001 hits.
void BuscaPalabra(Estado& e, db::Database& indice, std::string& palabra, std::int16_t campo,
                  std::string& tabla);
// Exact word by a query; at most 30001 rows.
void BuscaPalabraSQL(Estado& e, db::Database& indice, std::string& palabra, std::int16_t campo,
                     std::string& tabla);
// A word with "$" by a LIKE query; at most 30001 rows.
void BuscaTruncada(Estado& e, db::Database& indice, std::string& palabra, std::int16_t campo,
                   std::string& tabla);
// A phrase: the postings of one pivot word, the others verified by seeks on
// (word, record, position). The pivot is the first word at least as long as
// the first word that is neither MEXICO nor MEDICINA, else the first word.
// `campo` is not applied. A 32nd word raises 9. No hit limit.
void BuscaFrase(Estado& e, db::Database& indice, std::string frase, std::int16_t campo,
                bool enArticulos);

// Counting and walking a bitmap, as the result pages do.
std::int32_t CuentaFichas(const MapaFichas& mapa);
std::int32_t SiguienteFicha(const MapaFichas& mapa, std::int32_t actual);

}  // namespace orvex::search
