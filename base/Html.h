#pragma once

#include <string>
#include <string_view>

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

}  // namespace orvex
