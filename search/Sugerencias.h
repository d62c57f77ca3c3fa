#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "db/Database.h"

// "Did you mean": for a word that found nothing, the words of the word index
// within two edits of it.
//
// Words are compared as the index holds them, folded (NormalizaVocales), in
// Windows-1252: one byte per character, the code page of the `palabra` that
// BuscaPalabra takes and of every text on this side of db::Database. An edit
// is inserting, deleting or replacing one character, or swapping two
// adjacent ones.
//
// The vocabulary comes from ORVEX_VOCABULARIO, which orvex-catalogo writes
// into INDIZADO.MDB beside the word lists of TABLA:
//
//   ORVEX_VOCABULARIO (tabla, largo, cifras, palabras, frecuencias), primary
//     key (tabla, largo, cifras): for each word length `largo` (1 to
//     kLargoMaximo), the distinct words of that length of the word table
//     `tabla`, in Windows-1252, sorted by their bytes and laid end to end
//     with no separator (`palabras`, largo bytes each), and their row counts
//     in the same order (`frecuencias`, 4 bytes each, little-endian
//     unsigned, saturated at 2^32 - 1). Words with three or more digits
//     (ISBNs, call numbers, years) have rows of their own, `cifras` 1, the
//     others 0: a word without digits is at least three edits from them, so
//     its suggestions read neither their bytes nor their counts.
//
// It is read under the same guard as the word lists (search/ListasPalabras.h):
// only while the table's ORVEX_VIGENCIA row and its three triggers are there,
// so that a program that changes the word table voids it. Without it (Jet
// files, older catalogues, catalogues of other programs, a voided one) the
// vocabulary is gathered from the word table itself, walking its index FRASE,
// when the table holds at most kFilasSinVocabulario rows; a bigger table
// gives no suggestions.
namespace orvex::search {

struct Sugerencia {
  std::string palabra;  // Windows-1252, folded
  std::int64_t frecuencia = 0;  // rows of the word in the word table
  int ediciones = 0;  // 1 or 2
};

// At most this many edits; fewer for short words: a word of n characters
// admits at most n - 1, so that a suggestion keeps at least one of its
// characters (a word of one character gets none).
inline constexpr int kMaximoEdiciones = 2;
// Longer words get no suggestions; words of the index are at most 50.
inline constexpr std::size_t kLargoMaximo = 64;
// The biggest word table whose vocabulary is gathered from its rows: a walk
// of 20 000 rows costs about 2 ms, and so does finding out that a table is
// bigger.
inline constexpr std::int64_t kFilasSinVocabulario = 20000;

// At most `maximo` words of the word table `tabla` of `indice` within
// kMaximoEdiciones of `palabra` and other than it: the most frequent first,
// then the fewer edits, then by their bytes. `palabra` (Windows-1252) is
// trimmed of blanks and folded as the search folds words, which leaves a
// folded word as it is. A damaged length of the vocabulary is skipped.
std::vector<Sugerencia> Sugiere(db::Database& indice, std::string_view palabra, int maximo,
                                const std::string& tabla = "TABLA");

namespace vocabulario {

inline constexpr std::string_view kTablaVocabulario = "ORVEX_VOCABULARIO";

// The words of one length, with or without three digits, as one row of
// ORVEX_VOCABULARIO holds them.
struct Grupo {
  int largo = 0;
  bool cifras = false;  // words with three or more digits
  std::string palabras;
  std::string frecuencias;
};

// The groups of a word table's vocabulary, by ascending length and `cifras`
// (false first), from its words (Windows-1252, folded) and their row counts,
// in any order: a word given twice adds its counts; empty words and words
// longer than kLargoMaximo are left out.
std::vector<Grupo> Agrupa(std::vector<std::pair<std::string, std::int64_t>> palabras);

// Sugiere over groups already read: `palabra` is taken as it is (not
// trimmed or folded). Groups of a length they do not hold (bytes not a
// multiple of the length, counts not four bytes a word) are skipped.
std::vector<Sugerencia> Sugiere(const std::vector<Grupo>& grupos, std::string_view palabra,
                                int maximo);

}  // namespace vocabulario
}  // namespace orvex::search
