#pragma once

#include <string>

#include <libxml/tree.h>

namespace orvex::xslt {

// Writes the children of `documento` (a transformation's result) as HTML
// text in Windows-1252, for pages that browsers read:
//   - elements as <name attr="value">...</name>, attributes always in double
//     quotes, in their order, with nothing added or reordered: a page's
//     class="margen1" stays findable as written;
//   - the HTML void elements (br, hr, img, input, meta, link, ...) without an
//     end tag, every other element with one even when empty (<div></div>);
//   - "&", "<", ">" escaped in text, and "\"" too in attribute values, which
//     are never URI-escaped: an href built from catalogue data keeps its
//     accented letters and blanks;
//   - the text of script and style elements, and text the sheet asked to
//     write unescaped, as it is;
//   - comments, processing instructions and a document type as in XML;
//   - no XML declaration, no added meta element, no indentation.
// A character that Windows-1252 lacks becomes a character reference.
std::string SerializaHTML(xmlDocPtr documento);

// The text nodes of `documento` in document order, unescaped, in
// Windows-1252: the result of a sheet whose output method is "text".
std::string SerializaTexto(xmlDocPtr documento);

}  // namespace orvex::xslt
