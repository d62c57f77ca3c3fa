#pragma once

#include <string>
#include <vector>

#include "catalogo/RegistroMARC.h"

// The three collections a catalogue holds, and what decides where a MARC
// record goes.
//
// The bibliographic level (leader position 7) decides:
//   "s" (serial)                        a periodical: a row of
//                                       "Fichas Revistas", words in indizaPP's
//                                       TABLA
//   "a" or "b" (monographic or serial   an article: a row of Analiticas, words
//   component part)                     in indizaPP's TABLAANA
//   anything else, or no leader         a book: Fichas, Ejemplares and
//                                       INDIZADO's TABLA
// Each collection numbers its own records 1, 2, 3... in reading order.
// Periodicals and articles get no copies: an article names the issue that
// holds it by the accession number (NumAdquiDeArticulo).
namespace orvex::catalogo {

enum class Acervo { kLibros, kRevistas, kArticulos };

Acervo AcervoDeRegistro(const RegistroMARC& registro);

// The accession number of the issue that holds an article, for
// Analiticas.numadqui: the first accession number of the record's own
// holdings fields, read as copies are (852 $p else $j, 949 $p else $i; see
// Ejemplares.h), else the first 773 (host item entry) $o, else empty. Cut to the
// column's 15 characters; a cut is reported in `avisos` (Spanish), since two
// issues may then share the number.
std::string NumAdquiDeArticulo(const RegistroMARC& registro, std::vector<std::string>& avisos);

}  // namespace orvex::catalogo
