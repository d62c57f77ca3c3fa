#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvex::xslt {

// Where a working-draft pattern stands in its sheet, which decides how it is
// written in XPath 1.0.
enum class UsoPatron {
  Seleccion,    // select of xsl:for-each and xsl:apply-templates: a node set
  Valor,        // select of xsl:value-of, and the keys of order-by
  Prueba,       // test of xsl:if and xsl:when: true when it selects a node
  Coincidencia, // match of xsl:template: must come out as an XSLT pattern
};

// The namespace of the helper functions that translated patterns call
// (wd:strcmp, wd:date, wd:nodeType, wd:nodeTypeString).
inline constexpr const char* kEspacioFuncionesWD = "urn:x-wdxsl:runtime";

// The XPath 1.0 form of one working-draft pattern, or why it has none.
struct PatronTraducido {
  bool ok = false;
  std::string xpath;
  // Why the pattern cannot be translated (Spanish, with the pattern and the
  // position where reading stopped), when !ok.
  std::string error;
  // What the translation could not carry over exactly (Spanish, one line
  // each): a function the dialect did not have, a right-hand side that may
  // hold several nodes, and the like. The pattern is still usable.
  std::vector<std::string> avisos;
  // The translation calls functions of the wd: namespace.
  bool usa_funciones_wd = false;
  // Levels K whose context node the pattern reads through $wd-ctxK
  // (context(-n) with n >= 2, at nesting depth d: K = d - n + 1), each once.
  std::vector<int> contextos;
};

// Translates `patron` for the use `uso`. `profundidad` is the nesting depth
// of the pattern's context: 1 directly in a template, one more in each
// enclosing xsl:for-each.
PatronTraducido TraducePatron(std::string_view patron, UsoPatron uso, int profundidad = 1);

// `texto` as an XPath 1.0 string literal: in the quotes it does not contain,
// or as concat() of pieces when it contains both.
std::string LiteralXPath(std::string_view texto);

}  // namespace orvex::xslt
