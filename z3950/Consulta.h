#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <yaz/z-core.h>

// A search as the protocols send it, reduced to what Orvex's word index can
// answer: terms on one of its indexes, with right truncation or as a phrase,
// combined by AND, OR and AND NOT as a tree. Z39.50's type-1 queries (Bib-1
// attributes) and SRU's CQL both come down to it; whatever the index cannot
// answer becomes the protocol's diagnostic, never a different search.
namespace orvex::z3950 {

// The indexes a term can name, with the word index's field code of each
// (0 any field, 1 title, 2 author, 3 subject, 4 ISBN and ISSN, 7 call
// number). The local number is the record number itself.
enum class Indice { Cualquiera, Titulo, Autor, Tema, Isbn, Issn, Clasificacion, NumeroLocal };

// The word index's field code of `indice`; NumeroLocal has none (-1).
int CampoDe(Indice indice);

// A Bib-1 diagnostic: its code (yaz/diagbib1.h) and the additional text.
// Code 0 is no diagnostic. SRU answers the same codes translated by YAZ.
struct Diagnostico {
  int codigo = 0;
  std::string detalle;
  explicit operator bool() const { return codigo != 0; }
};

struct Nodo {
  enum class Tipo { Termino, Y, O, YNo };
  Tipo tipo = Tipo::Termino;
  // A term: the index, the text as sent (UTF-8), right truncation, and
  // whether its words must follow one another (a phrase) or only all occur.
  Indice indice = Indice::Cualquiera;
  std::string texto;
  bool truncado = false;
  bool frase = false;
  // An operator's operands.
  std::unique_ptr<Nodo> izquierdo, derecho;
};

// The limits of one query: a tree of more terms, or deeper, is refused
// (Bib-1 108, malformed query) before anything is looked up.
inline constexpr int kMaximoTerminos = 64;
inline constexpr int kMaximaProfundidad = 64;
// A term longer than this (bytes of UTF-8) is refused (Bib-1 125), and so
// is a phrase of more words than the word index's phrase search takes.
inline constexpr std::size_t kMaximoTexto = 1024;

// The words of a term's text `utf8` as the word index cut its words: runs
// of the query language's word characters in Windows-1252 ("$" is not one);
// everything else separates them.
std::vector<std::string> PalabrasDelIndice(std::string_view utf8);

// A type-1 query as a tree. Supported: the Bib-1 attribute set (or none);
// use (1 personal name, 1003 author, 4 title, 21 subject, 7 ISBN, 8 ISSN,
// 16 LC call number, 13 Dewey number, 20 local classification, 12 local
// number, 1016 any; none is any); relation 3 (equal); position 1, 2 or 3
// (any position); structure 1 (phrase), 2 (word), 6 (word list) and 4
// (free text: words); truncation 1 (right) and 100 (none); completeness 1,
// 2 and 3. Anything else, proximity, a result set as an operand and a term
// that is not text give their Bib-1 diagnostic in `d` and no tree.
std::unique_ptr<Nodo> DeRPN(const Z_RPNQuery& consulta, Diagnostico& d);

// One type-1 term with its attributes, as a scan names its start (the
// attribute set `conjunto`, null for Bib-1): a Termino node, or its
// diagnostic in `d`.
std::unique_ptr<Nodo> DeTerminoRPN(const Z_AttributesPlusTerm& termino, const Odr_oid* conjunto,
                                   Diagnostico& d);

// A CQL query as a tree: the indexes cql.serverChoice (and none), dc.title,
// dc.creator, dc.subject, bath.isbn, bath.issn, bath.lcCallNumber and
// rec.id, their names compared without regard to case; the relations "=",
// "==", "adj", "all" and "any" (scr: "="); a final "*" for right
// truncation; a quoted term of several words with "=", "==" or "adj" as a
// phrase; and, or, not. Other indexes, relations, modifiers, masking
// characters inside a term, prox and sort give their diagnostic (Bib-1,
// which YAZ translates for SRU) in `d` and no tree.
std::unique_ptr<Nodo> DeCQL(std::string_view cql, Diagnostico& d);

}  // namespace orvex::z3950
