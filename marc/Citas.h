#pragma once

#include <optional>
#include <string>
#include <vector>

#include "marc/ModuloMarc.h"
#include "marc/Origen.h"
#include "records/Ficha.h"

// A book record for a reference manager (RIS, BibTeX) and as a citation
// text, UTF-8. Each is written from the record's description, read from the
// same fields and by the same rules as its Dublin Core (marc/Registros.h):
// from the source record when YAZ reads it, else from the tag string.
//
//   title       the first 245 ($a $b $f $g $k $n $p $s; tag string: its
//               text before " / ", the statement of responsibility), without
//               a final full stop
//   authors     each 100, 110, 111, 700, 710, 711 in the record's order:
//               $a $b of a person or a body, $a of a meeting, without a
//               final full stop unless it ends an initial; tag string: the
//               heading before its dates (", " and a digit)
//   year        the first four digits in a row of dc:date
//   place       the first $a of a publication statement (260, 264 with
//               second indicator "1"); tag string: the first 260, else 264,
//               read as ISBD: the text before ":"
//   publisher   the first $b of a publication statement; tag string: the
//               text after ":", up to a ";", without the date (from the last
//               "," that a digit follows)
//   edition     the first 250 ($a $b)
//   pages       the first number followed by "p" or "h" in the first 300
//   series      each 490 and 440 ($a $n $p $v)
//   notes       each 500 to 520; subjects each 600, 610, 611, 630, 650, 651
//   ISBN, ISSN  each 020 $a, each 022 $a
//   URL         each 856 $u (tag string: the address before ";")
//   language    008 positions 35-37
// The record number is the RIS ID and the BibTeX key "orvex" + number.
namespace orvex::marc {

// One RIS record: "TY  - " with the type, then AU (each author), TI, PY, ET,
// CY, PB, SP (pages), T3 (each series), SN (each ISBN, each ISSN), N1 (each
// note), KW (each subject), LA, UR (each URL), ID, and "ER  - ", each line
// ended by CR LF. Line breaks and control characters in a text become
// blanks. The type by leader positions 6 and 7: BOOK (language material,
// a monograph), CHAP (a part of one), JOUR (a part of a serial), JFULL
// (a serial), MANSCPT, MUSIC, MAP, VIDEO, SOUND, ART, COMP, else GEN; tag
// string: BOOK for language material (TipoMaterial 1), else GEN.
std::string Ris(const records::RegFicha& ficha, const std::optional<Origen>& origen);

// One BibTeX entry, "@book{orvex15," then one field a line ("  author =
// {...},") and "}": author (the authors joined by " and ", a body's or
// meeting's name in braces so that it is not read as a person's), title,
// edition, address, publisher, year, series (joined by "; "), pagetotal,
// isbn and issn (joined by ", "), note (joined by " "), keywords (joined by
// "; "), language, url (the first). The type is @book for a monograph of
// language material (tag string: TipoMaterial 1), @inbook for a part of
// one, @article for a part of a serial, else @misc. In the texts BibTeX's
// special characters are escaped: \{ \} \% \& \$ \# \_ \textbackslash{}
// \textasciitilde{} \textasciicircum{}; in the URL, blanks, braces and
// backslashes are percent-encoded instead, which keeps the address.
std::string BibTex(const records::RegFicha& ficha, const std::optional<Origen>& origen);

// The citation text: "Apellido, N., & Otro, M. (Año). Título (Edición).
// Editorial." A person's forenames become initials ("García Márquez, G.");
// a body's name stays whole; two authors are joined by ", & ", more by ", "
// and ", & " before the last. Without authors the title comes first
// ("Título. (Año). Editorial."); without a year "(s. f.)"; without an
// edition or a publisher those parts are left out. A part that already ends
// with ".", "?" or "!" takes no other full stop.
std::string Cita(const records::RegFicha& ficha, const std::optional<Origen>& origen);

// A record and its source record, as the module receives them.
struct FichaConOrigen {
  records::RegFicha ficha;
  std::optional<Origen> origen;
};

// The records of `fichas` in `salida`, as the module hands them to the
// gateway (see Salida).
std::string Exporta(Salida salida, const std::vector<FichaConOrigen>& fichas);

}  // namespace orvex::marc
