#pragma once

#include <string>
#include <string_view>

// The escapes of text written into HTML pages and XML documents. Each one
// replaces "&", "<" and ">" by "&amp;", "&lt;" and "&gt;"; they differ in
// what they do with the quotes. Every byte they do not name passes as it
// is (control characters and bytes above 0x7F included), so they work the
// same on text in any single-byte code page and on UTF-8. Each character
// is replaced once: an existing "&amp;" becomes "&amp;amp;".
namespace orvex {

// Request text as it is echoed into a page: "&", "<", ">", "\"" and "'" as
// character references ("&amp;", "&lt;", "&gt;", "&quot;", "&#39;"), every
// other byte as it is. Inside an element or an attribute value in either
// kind of quotes the browser shows, and a link carries, exactly the text
// the request sent; the text can never open or close markup.
std::string EscapaEco(std::string_view texto);

// Text between tags that may quote the request (an error's description):
// only "&", "<" and ">" as character references, so that quotes and
// apostrophes, harmless there, keep their bytes.
std::string EscapaTexto(std::string_view texto);
// The same, appended to `destino`: for pages built in one string.
void AgregaEscapaTexto(std::string& destino, std::string_view texto);

// "&", "<", ">" and "\"" as character references ("&amp;", "&lt;", "&gt;",
// "&quot;"); "'" keeps its byte. For element text and attribute values in
// double quotes: the record presentations and the diagnostic pages.
std::string EscapaComillaDoble(std::string_view texto);

// The five characters XML predefines entities for, as those entities: "&"
// as "&amp;", "<" as "&lt;", ">" as "&gt;", "'" as "&apos;" and "\"" as
// "&quot;". For element text and attribute values in either kind of quotes
// of XML documents; "&apos;" is XML's own name, which the pages' "&#39;"
// (EscapaEco) is not.
std::string EscapaEntidadesXML(std::string_view texto);

}  // namespace orvex
