#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The record documents of the periodical and article displays, in the form
// an installation's own style sheets ("pp_propia.xsl", "pp_propia_ana.xsl")
// read. Both are Windows-1252 text without an encoding declaration, as the
// gateway's style sheet step reads them, and name the sheet they are shown
// with in a style-sheet processing instruction:
//
//   <?xml version='1.0'?>                                        CR LF
//   <?xml-stylesheet href="SHEET" type="text/xsl"?>               CR LF
//   <ficha><Numero>12</Numero><ETIQUETAS>FIELDS</ETIQUETAS></ficha>
//
//   <?xml version='1.0'?>                                        CR LF
//   <?xml-stylesheet href="SHEET" type="text/xsl"?>               CR LF
//   <Analitica><ID>7</ID><Fecha>2003</Fecha><Numero>P006647</Numero>
//   <ETIQUETAS>FIELDS</ETIQUETAS></Analitica>
//
// (the last lines shown wrapped). FIELDS holds one element "m" + tag for
// every occurrence of every field of the tag string, in the record's order:
// a field's occurrences, divided at "\", each trimmed, the empty ones
// dropped, give one element each ("<m650>Cocina mexicana</m650><m650>
// Computadoras</m650>"). A field whose tag is not three letters or digits
// gives none. Every text goes through EscapaEntidadesXML, so the document is
// well-formed whatever the catalogue holds, save characters that XML does
// not allow at all.
namespace orvex::xml {

// The periodical `numero` with tag string `etiquetas`, for the sheet named
// `hoja`.
std::string XMLRevista(std::int32_t numero, std::string_view etiquetas, std::string_view hoja);

// The analytic `id` held by the copy `numadqui`: its Fecha is the year the
// host item entry (field 773) gives between parentheses, "(2003)", empty
// when it gives none.
std::string XMLAnalitica(std::int32_t id, std::string_view numadqui, std::string_view etiquetas,
                         std::string_view hoja);

// The fields of a tag string as FIELDS above.
std::string CamposXML(std::string_view etiquetas);

}  // namespace orvex::xml
