#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "catalogo/Acervos.h"
#include "catalogo/EtiquetasMARC.h"

// The word indexes: the words of each record with their field code and
// position, by the same word rules the gateway's search applies to what a
// reader types. Books go to `INDIZADO.MDB` `TABLA`, periodicals to
// `indizaPP.MDB` `TABLA`, articles to `indizaPP.MDB` `TABLAANA` (Acervos.h).
//
// A word is a maximal run of the query language's word characters other
// than "$" (search::CaracteresPalabra: A-Z, a-z, Ñ, ñ, digits, the accented
// vowels of the set, Ç, ç) in the Windows-1252 form of the text (ParaIndice:
// characters the code page lacks separate words), folded with
// search::NormalizaVocales ("Álgebra" ALGEBRA, "lingüística" LINGUISTICA,
// "año" AÑO, "français" FRANÇAIS, "O'Brien" O and BRIEN). Words are cut to
// the column's 50 characters.
//
// Field codes (`campo`) by tag, for books:
//   1 title         130 240 245 246 440 490
//   2 author        100 110 111 700 710 711
//   3 subject       600 610 611 630 650 651
//   4 ISBN/ISSN     020 022
//   5 publisher     260 (the whole publication area: place, publisher, date)
//   7 call number   050 082 090
//   8 notes         500 to 520
// Periodicals: 1 title, 2 publisher (260), 3 subject, the tags as above; the
// periodical search looks the publisher's words up where the book search
// looks up the author's. Articles: 1 title, 2 author, 3 subject. Other tags
// are not indexed (an article's 773 neither: its words are the periodical's). An ISBN or ISSN occurrence is one word: from
// its first digit, the run of digits, X and hyphens, keeping the digits and
// X ("84-376-0494-X (rústica)" gives 843760494X). A call number occurrence is
// one word: blanks, hyphens and dots removed, folded as above ("PQ8180.17.A73
// C5 1987" gives PQ818017A73C51987), characters the code page lacks dropped.
//
// Positions count from 1 in the order of the tag string (groups in order,
// occurrences in order) and are consecutive inside an occurrence; between
// two occurrences, of one field or of the next indexed field, 10 positions
// are left unused, so that no phrase matches across them. An occurrence
// without words leaves no gap of its own. The column is 16-bit: words past
// position 32767 are not indexed.
namespace orvex::catalogo {

struct PalabraIndice {
  std::string palabra;  // Windows-1252
  std::int16_t campo = 0;
  std::int16_t posicion = 0;
};

inline constexpr std::size_t kLargoPalabra = 50;
inline constexpr int kHuecoPosiciones = 10;
inline constexpr int kMaximaPosicion = 32767;

// The field code of `etiqueta` in the index of `acervo`, 0 when the tag is
// not indexed there.
std::int16_t CampoIndice(std::string_view etiqueta, Acervo acervo = Acervo::kLibros);

// Appends to `palabras` the words of Windows-1252 `texto`, folded and cut.
void PartePalabras(std::string_view texto, std::vector<std::string>& palabras);

// The index entries of one record's groups in the index of `acervo`,
// replacing `salida`'s content.
void PalabrasDeFicha(const std::vector<Grupo>& grupos, std::vector<PalabraIndice>& salida,
                     Acervo acervo = Acervo::kLibros);

}  // namespace orvex::catalogo
