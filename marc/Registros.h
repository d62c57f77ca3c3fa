#pragma once

#include <optional>
#include <string>

#include "marc/Origen.h"
#include "records/Ficha.h"

// A book record of the catalogue as the library world exchanges it: MARC 21
// (ISO 2709), MARCXML or SRU's Dublin Core, always in UTF-8. orvex-z3950
// gives these; the module orvex-marc.so gives the MARC forms, RIS and BibTeX
// (marc/Citas.h) to the gateway's export.
//
// A record comes from one of two places. orvex-catalogo keeps each book's
// source MARC record beside the tag string (table ORVEX_MARC of KORVEL8.MDB,
// see catalogo/EscritorCatalogo.h); when the catalogue has it and YAZ can
// read it, the MARC forms and Dublin Core come from it, so a
// client gets the record that was loaded, subfields, indicators and leader
// included. Otherwise (catalogues of other programs, Jet files, a source
// record that is damaged) they are built from the tag string, which keeps
// only each tag's texts (records/Ficha.h).
//
// Every MARC reading and writing is YAZ's (yaz_marc_t): ISO 2709, MARCXML,
// the MARC-8 to UTF-8 conversion. Nothing here throws for a damaged record;
// a damaged source record is passed over for the tag string.
namespace orvex::marc {

// The record formats.
enum class Formato {
  // MARC 21 in ISO 2709, UTF-8 (leader position 9 "a").
  Marc21,
  // MARCXML: one <record> element in the namespace
  // http://www.loc.gov/MARC21/slim, without an XML declaration.
  MarcXml,
  // SRU's Dublin Core schema: one <srw_dc:dc> element, without an XML
  // declaration.
  DublinCore,
};

// Record in MARC 21 or MARCXML from its source alone, as Registro gives it
// from a usable source; nullopt for a damaged source or another format,
// which need the catalogue's record.
std::optional<std::string> RegistroDeOrigen(const Origen& origen, Formato formato);

// Record `ficha` in `formato`, UTF-8 text.
//
// Marc21 and MarcXml, with a usable `origen`: the source record. An ISO 2709
// source gives its own bytes as Marc21 when it is already UTF-8 (leader
// position 9 "a"); one with a blank position 9 is read as UTF-8 when its
// bytes are UTF-8 without escape sequences (as orvex-catalogo reads it) and
// converted from MARC-8 by YAZ otherwise, and comes out with position 9 set
// to "a". As MarcXml it is YAZ's MARCXML of the record. A MARCXML source
// gives its own text as MarcXml when that text is one <record> element of
// the MARC 21 namespace and nothing else, and YAZ's writing of it otherwise
// (by way of ISO 2709 when YAZ noted something about it, so that its notes
// do not turn into XML comments); as Marc21, YAZ's ISO 2709 of it with
// leader position 9 "a", when the record fits in ISO 2709.
//
// A source is usable when YAZ reads it: an ISO 2709 record whose length is
// the leader's, ending with the record terminator, whose coding (position 9)
// is "a" or blank, whose text is valid UTF-8 once converted and which YAZ
// reads without any complaint; a MARCXML record that libxml2 parses as UTF-8
// and whose <record> YAZ reads: only <leader> (of 24 characters; YAZ makes
// one up when there is none, and takes blank lengths), <controlfield> and
// <datafield> with <subfield> in it. Anything else is damaged, and the
// record is built from the tag string instead.
//
// Built from the tag string (Windows-1252, converted to UTF-8): one field per
// occurrence, in the tag string's order with the control fields first.
// Control fields (tags 001 to 009, any "00" tag) hold each occurrence of the
// field's content as it stands, the occurrences split at " \ ". Any other
// tag gives data fields with blank indicators and the occurrence in subfield
// $a, the occurrences split at every "\" and trimmed of blanks, as the
// catalogue's presentations read them; blank occurrences are dropped. A tag
// that is not three ASCII letters or digits is left out, and so are control
// characters in the texts (they would break the record's structure). When
// the tag string has no 001, one holding the record number comes first. The
// leader is "00000nam a2200000uu 4500": a new record (5 "n") of language
// material (6 "a") at the monograph level (7 "m", the books' collection),
// UTF-8 (9 "a"), encoding level and cataloguing form unknown (17, 18 "u");
// YAZ writes the record's length and base address into the ISO 2709 form,
// MARCXML keeps the zeros. In ISO 2709 a field longer than the format's
// 9 999 bytes has its text cut at a character boundary to fit, and the
// fields that would take the record past 99 999 bytes are left out.
//
// DublinCore: from the source record's fields when it is usable, else from
// the tag string's; every element is written only when it has a text, one
// per line, in this order:
//   dc:title        245 $a $b $f $g $k $n $p $s (tag string: all of 245)
//   dc:creator      each 100, 110, 111, 700, 710, 711 (their lettered
//                   subfields)
//   dc:subject      each 600, 610, 611, 630, 650, 651; the subdivisions $v
//                   $x $y $z joined by " -- "
//   dc:description  each note 500 to 520
//   dc:publisher    each $b of 260 and of a 264 of publication (second
//                   indicator "1"); tag string: the whole first 260, else
//                   264
//   dc:date         the first $c of those fields, without its final full
//                   stop, else 008 positions 7-10 when they are a year; tag
//                   string: 008 positions 7-10, else the last run of four
//                   digits in that 260 or 264
//   dc:type         "Text", "Image", "MovingImage", "Sound", "Software",
//                   "PhysicalObject" or "Collection" by leader position 6;
//                   tag string: "Text" for a record of language material
//                   (TipoMaterial 1)
//   dc:format       each 300 (physical description)
//   dc:identifier   "ISBN " and each 020 $a, "ISSN " and each 022 $a, each
//                   856 $u (tag string: the address before the ";" of each
//                   856), and "orvex:ficha:" with the record number, which
//                   names the record among the catalogue's books (the
//                   periodicals and articles number theirs apart)
//   dc:language     008 positions 35-37, when they hold three letters
// Subfields are joined by one blank; a text ends without the blanks and the
// ISBD marks " /", " :", " ;", " =", "," that lead to the next part. Texts
// are XML-escaped and control characters left out. The element is
//   <srw_dc:dc xmlns:srw_dc="info:srw/schema/1/dc-schema"
//       xmlns:dc="http://purl.org/dc/elements/1.1/"> ... </srw_dc:dc>
std::string Registro(const records::RegFicha& ficha, const std::optional<Origen>& origen,
                     Formato formato);

}  // namespace orvex::marc
