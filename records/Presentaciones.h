#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "records/Ficha.h"

// The designed presentations of a book record: the catalogue card, the brief
// description of a result list and the table of the record's fields.
//
// All of them read the tag string field by field: a field starts at "¦",
// its tag is the three characters after it and its content runs to the next
// "¦" or "Ì"; nothing after the end mark "Ì" is read. A separator whose three
// tag characters hold "¦" or "Ì" starts no field. A tag that occurs in
// several fields contributes the occurrences of all of them, in record order.
// An occurrence is a piece of a content between "\" separators, trimmed of
// blanks; blank pieces are no occurrence. Contents are used as the cataloguer
// punctuated them, apart from the joining rules described below.
namespace orvex::records {

// The sections of a catalogue card, plain Windows-1252 texts (nothing is
// escaped; the card document escapes them). A section whose fields are all
// missing or blank is empty.
struct Tarjeta {
  // Call number: the first occurrence of the first of 050, 082, 090 that has
  // one.
  std::string Sclas;
  // Main entry: the first occurrence of the first of 100, 110, 111, 130 that
  // has one.
  std::string Sa;
  // Title and statement of responsibility (245), edition (250) and
  // publication area (260), each its first occurrence, joined by ". -- ";
  // a piece that already ends with "." is followed by " -- " only, and the
  // whole ends with exactly one full stop added the same way.
  std::string S1;
  // Physical description (first occurrence of 300) with "páginas"/"paginas",
  // "ilustraciones" and "centímetros"/"centimetros" written "p.", "il." and
  // "cm." (whole words, first letter in either case; a full stop right after
  // the word is not doubled), then every occurrence of the series (440, else
  // 490) in parentheses, separated by a blank; the two parts joined by ". -- "
  // as in S1, without a final full stop: "550 p. ; 18 cm. -- (Letras
  // hispánicas ; 215)".
  std::string S2;
  // "ISBN " and the occurrence of 020; several occurrences are each written
  // "ISBN ..." and joined by ". -- " as in S1, without a final full stop.
  std::string Sisbn;
  // One entry per occurrence of 500, 501, 502, 503, 504, 505 and 520, the
  // tags in that order, each as written.
  std::vector<std::string> Snotas;
  // Subject tracings: the occurrences of 600, 610, 611, 630, 650 and 651, in
  // that order of tags, as one ListaNumerada in arabic numerals.
  std::string Sr1;
  // Added entries: the occurrences of 700, 710, 711, 730 and 740, in that
  // order of tags, as one ListaNumerada in roman numerals.
  std::string Sr2;
};

Tarjeta ArmaTarjeta(const RegFicha& ficha);

enum class Numeracion { Arabiga, Romana };

// The occurrences of `contenido` (pieces between "\" separators, trimmed,
// blank ones dropped) numbered "1. ", "2. ", ... or "I. ", "II. ", ..., each
// ending with exactly one full stop (final full stops already there are
// reduced to one; a piece made only of full stops is dropped), joined by a
// blank: "Gatos \ Perros." gives "1. Gatos. 2. Perros." Empty when there is no
// occurrence. Roman numerals use the subtractive forms (IV, IX, XIV, XL, ...).
std::string ListaNumerada(std::string_view contenido, Numeracion numeracion);

// The brief description of a record for a result list:
//   "<b>" name "</b> " title
// The name is the first occurrence of the first of 100, 110, 111 that has
// one, else of the first of 700, 710, 711. The title is the first occurrence
// of the first of 130, 240, 245 that has one; a title taken from 245 is cut
// before its statement of responsibility (the first " /"), as the name is
// already shown. Without a name the line is the title alone; without a title
// it is "<b>" name "</b>"; without both it is empty. Both texts are
// HTML-escaped ("&", "<", ">" and "\"").
std::string FichaBreve(const RegFicha& ficha);

// The table of the record's fields, for the cataloguer's view:
//   <table class="campos"> CR LF
//   <tr><td class="etiqueta">Título</td><td class="contenido">...</td></tr> CR LF
//   ... one row per field ...
//   </table> CR LF
// One row per field in record order. Control fields (tags starting with
// "00", such as the coded 008) are not shown: their content is positional
// codes, not text for a reader. A field without any occurrence gives no row.
// The label is the Spanish name of the tag (see the table in
// Presentaciones.cpp: 020 ISBN, 082 Clasificación Dewey, 100 Autor personal,
// 245 Título, 600 to 651 Tema, 700 to 711 Autor secundario, 856 Recurso
// electrónico, ...); any other tag is labelled "Etiqueta " and the tag. The
// content cell holds the field's occurrences, each HTML-escaped and then
// passed through EnlacesMedios, joined by "<br>". Labels are escaped too.
// A record without shown fields gives the table with no rows.
std::string TablaCampos(const RegFicha& ficha);

// `texto`, already HTML-escaped, with the media links that cataloguers write
// in field contents turned into HTML:
//   "[IMG{address}]"  ->  <img src="address">
//   "[DOC{address}]"  ->  <a href="address" target="_blank">Documento</a>
//   "[URL{address}]"  ->  <a href="address" target="_blank">address</a>
// The marker names are upper case. The address is everything between "{" and
// the first "}]" after it; a marker without a closing "}]", or with an empty
// address, stays as text. Markers hold none of the characters HTML escaping
// changes, so escaping the text first leaves them whole, and an address
// arrives with its "&", "<", ">" and "\"" already escaped and is copied as it
// stands (never URI-escaped). Whatever the caller passes, an address can not
// leave its attribute: a raw "\"", "<" or ">" in it is escaped, and so is an
// "&" that does not start a character reference ("&amp;", "&#39;", "&#x27;").
// Only addresses that EnlaceSeguro admits become links or images; any other
// ("javascript:", "data:", ...) is written as the text of the address alone,
// escaped the same way. Text outside markers is copied unchanged.
std::string EnlacesMedios(std::string_view texto);

// True when `direccion`, the text of an attribute as the page writes it,
// takes a browser only to an "http", "https" or "mailto" address or to one
// relative to the page. The scheme is read as a browser reads it: character
// references decoded (decimal and hexadecimal ones with or without their
// ";", and the named ones that give scheme characters, such as "&colon;" and
// "&Tab;"), blanks and control characters at the start skipped, tabs, line
// ends and any other control character left out, letter case ignored. The
// scheme is all that comes before a ":" that no "/", "?" or "#" precedes, so
// an address that only some browsers would read as relative is refused too.
// The references are decoded again as long as that changes the address, and
// every reading must pass: a reference that the catalogue holds as text
// ("&amp;#58;" in the page) never becomes a scheme in a later reading. An
// address still changing after eight readings is refused.
bool EnlaceSeguro(std::string_view direccion);

}  // namespace orvex::records
