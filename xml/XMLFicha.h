#pragma once

#include <string>
#include <string_view>

#include "config/Instalacion.h"
#include "records/Ficha.h"

// The XML record document of a book: the text that the installation's book
// style sheets turn into HTML. Its element and attribute names are what those
// sheets select, so they never change:
//
//   <?xml version='1.0' encoding='ISO-8859-1'?>
//   <FICHAS><FICHA Numero='15'>
//    <EXISTENCIAS>
//      <EJEMPLAR NoAdq='A1' Biblio='Central' Vol='2' Ejemplar='3' Tomo='' Acceso='S' Fecha='05/mar/2008' />
//    </EXISTENCIAS>
//    <ETIQUETAS>
//      <m245>Cien años de bibliotecas</m245>
//      <m856 url="http://example.org/">Texto completo</m856>
//    </ETIQUETAS>
//   </FICHA></FICHAS>
//
// Every line ends with CR LF. The document is Windows-1252 text; the
// declaration names ISO-8859-1 all the same, as the sheets have always read it.
namespace orvex::xml {

// The document of `ficha`, carrying the tags of `ins.EtiquetasXML` (nothing
// else of `ins` is read).
//
// Copies: one EJEMPLAR per non-empty line of `ficha.Ejemplares`. The seven
// values are taken by position, each up to the next "," and the seventh the
// rest of the line, and written unescaped into NoAdq, Biblio, Vol, Ejemplar,
// Tomo, Acceso and Fecha. Copy lines hold the copy number third and the volume
// fourth, so "Vol" receives the copy number and "Ejemplar" the volume: kept,
// the installations' sheets are written against this pairing. A value holding
// "," shifts the later ones, as the copies line was never quoted. A line with
// fewer values leaves the missing attributes empty. Copy values are not
// escaped: kept, so a value holding "'", "&" or "<" (an accession number
// "L'0815") leaves a document that is not well-formed, and the style sheet
// step reports it as a data document that does not load.
//
// Tags: for each entry of `ins.EtiquetasXML`, in list order, the trimmed
// content of the first field with that (trimmed) tag; a tag the record lacks,
// or holds empty, gives no element at all. Then, by tag:
//   - "260" gives one element with the imprint recomposed from its ISBD
//     punctuation: the content is cut at " : " into the place and the
//     publishers, the last piece is cut at its last ", " to separate the date,
//     the date loses the full stop that closes the area, and the non-empty
//     pieces are joined by ", " in the order place, publishers, date. A date
//     that is all digits gets the year mark "c" appended after it ("1987"
//     gives "1987c"); any other date ("c1972", "[1987?]") stays as written.
//     "Madrid : Real Academia Española : Alfaguara, 2004." gives
//     "Madrid, Real Academia Española, Alfaguara, 2004c". Without a ", " in
//     the last piece there is no date and the pieces stay as written.
//   - "500", "650", "700" and "856" are repeatable: the content is split at
//     " \ " and every occurrence that is not blank, trimmed, gives its own
//     element, in order.
//   - "856" elements carry the address in a "url" attribute, in double quotes:
//     an occurrence without ";" is both the address and the text; otherwise
//     it is divided at its first ";" into the address and the text, both
//     trimmed, and an empty text shows the address. No "/" is ever turned
//     into ";": addresses keep their slashes.
//   - every other tag gives one element with the content.
// All tag contents, occurrences, addresses and link texts are escaped with
// EscapaEntidadesXML (base/Html.h), so any catalogue text in the tags keeps
// the document well-formed.
std::string XMLFicha(const records::RegFicha& ficha, const config::Instalacion& ins);

// "<![CDATA[" + `texto` + "]]>". A "]]>" inside `texto` is not split, so such
// a text ends the section early; callers pass texts without it.
std::string EnvuelveCDATA(std::string_view texto);

}  // namespace orvex::xml
