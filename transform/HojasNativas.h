#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvex::transform {

// The page that the XSL processor gives, with status Correcto, for the data
// document `xml` and the style sheet `xsl` (both Windows-1252, as
// TransformadorXSL::TransformaXML receives them), written here without the
// processor; nothing when this cannot be sure of the processor's answer, and
// the processor then runs as always. Two cases are rendered:
//   - the built-in record sheet (config::HojaFichaIntegrada) on a card
//     document exactly as XMLTarjeta writes it: the declaration, FICHA with
//     its Numero, the sections Sclas, Sa, S1, S2, Sisbn, Snotas*, Sr1, Sr2
//     and the EJEMPLAR elements with their five attributes in that order;
//     their texts may hold the five predefined entities and any character
//     but the C0 controls other than tab, line feed and carriage return;
//   - a notice sheet (config::HojaAviso) whose name holds no control
//     character, on any document that is certainly well-formed: an optional
//     declaration (version 1.0, encoding ISO-8859-1 or UTF-8), elements with
//     ASCII names, quoted attributes, text with the five predefined
//     entities, CDATA sections and comments, within sizes well below the
//     parser's limits. A document type, a processing instruction, a
//     character reference, a byte order mark, a namespace prefix or
//     declaration sends the document to the processor.
std::optional<std::string> TransformacionNativa(std::string_view xml, std::string_view xsl);

}  // namespace orvex::transform
