#pragma once

namespace orvex::xml {

// True when the XML parser can be created and made to parse a small
// document. As the gateway has always checked, whether the document parsed
// is not examined: only that the parser ran.
bool XmlParserWorks();

}  // namespace orvex::xml
