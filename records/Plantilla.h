#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "db/Database.h"

// Record template tags: the markers in a record's HTML fragment that name
// MARC fields (or, in the sequential listing, columns of the listed row).
//
// A tag runs from "<!#" to the first "!>" after it. What lies between is its
// tag definition, in one of two forms:
//   plain     <!#100110111!>             the content of the first field listed
//   labelled  <!#x:"Autor: <E>":100110111!>
//             the label, every "<E>" in it replaced by the content
// Contents go in raw: repeated occurrences keep their "\" separators and
// nothing is escaped. A tag whose content is empty is removed whole, label
// included, so a label without "<E>" works as a field-presence flag.
namespace orvex::records {

// The first stretch of `texto` that starts with `abre` and ends with
// `cierra`; empty when `abre` does not occur or no `cierra` follows it. The
// closing delimiter is searched from one character after the opening one.
//
// The stretch is always (closing position - opening position + 2) characters
// long: it takes in the whole closing delimiter only because every closing
// delimiter used here ("!>" and the quote-colon pair) has two characters. A
// one-character `cierra` yields one character past it (cut at the end).
std::string ExtraeEntre(std::string_view texto, std::string_view abre, std::string_view cierra);

// `plantilla` with every record template tag filled from the tag string
// `etiquetas` of record `ficha_no`, or removed when its content is empty.
//
// The loop always works on the leftmost remaining tag and replaces every
// occurrence of that same tag text at once. Contents are not protected: a
// tag inside an inserted content is filled on a later pass. A "<!#" with no
// "!>" after it ends the filling; it and the rest of the text stay as written.
//
// A tag definition holding ":" anywhere is the labelled form. It needs a label
// of at least two characters between a colon-quote pair and a quote-colon
// pair; otherwise (a single ":" in a plain list, a label of 0 or 1
// characters) it raises 5 (invalid argument) and nothing is returned. The
// tag list is read after the first quote-colon pair found from position
// (label length - 1) of the tag definition. ExtraeEtiqueta's own errors (6
// for a list of more than 255 tags) pass through.
//
// The labelled list "PPP" yields the column Imagen of the row of `imagenes`
// that an "=" seek on `ficha_no` finds, with the table's record-number index
// already chosen by whoever opened it; empty when the seek finds no row.
// The picture table belongs to the request, not to the record: no request
// opens one today, so callers pass nullptr and a labelled "PPP" tag is always
// removed. In the plain form "PPP" is an ordinary tag that never occurs.
std::string LlenaEtiquetas(std::string plantilla, std::string_view etiquetas,
                           std::int32_t ficha_no, db::Recordset* imagenes = nullptr);

// The same filling for the sequential listing, from the current row of the
// listing's recordset `fila` (owned by the listing, which walks it): the
// names in the tags are column names, read as text (null as empty text).
// Two differences are kept on purpose:
//   - the labelled form is recognised only when the tag definition holds a
//     double quote directly followed by ":"; a bare ":" is part of a plain
//     column name;
//   - "PPP" has no special meaning.
// A column the row does not have raises the database's 3265 (item not
// found); a malformed labelled tag definition raises 5 as in LlenaEtiquetas.
std::string LlenaColumnas(std::string plantilla, db::Recordset& fila);

}  // namespace orvex::records
