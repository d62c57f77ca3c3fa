#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct _xmlDoc;

namespace orvex::xslt {

inline constexpr std::string_view kEspacioXSLT = "http://www.w3.org/1999/XSL/Transform";
inline constexpr std::string_view kEspacioBorrador = "http://www.w3.org/TR/WD-xsl";

struct LiberaDocumento {
  void operator()(_xmlDoc* doc) const;
};
using DocumentoXML = std::unique_ptr<_xmlDoc, LiberaDocumento>;

// An XSLT 1.0 sheet: xsl:stylesheet or xsl:transform in the XSLT namespace,
// or a literal result element carrying xsl:version.
bool EsHojaXSLT(const _xmlDoc* doc);

// A sheet in the working-draft dialect: its root is in the dialect's
// namespace, or it is a literal result element that declares it.
bool EsHojaBorrador(const _xmlDoc* doc);

// A working-draft sheet rewritten as an XSLT 1.0 sheet.
struct HojaTraducida {
  DocumentoXML xslt;  // null when the sheet cannot be translated
  // Why not (Spanish, naming the sheet's line), when `xslt` is null.
  std::string error;
  // What the translation left out or could only approximate (Spanish, one
  // line each, with the sheet's line): scripts, unknown elements, and the like.
  std::vector<std::string> avisos;
};

// Translates the working-draft sheet `hoja` (not changed) into an XSLT 1.0
// document that libxslt compiles. The working-draft processing model is kept:
//   - no built-in template rules: a node no template matches gives nothing;
//   - a template without `match` matches every node;
//   - of the templates that match, the last one in the sheet wins;
//   - the data's whitespace-only text does not exist;
//   - for-each without `select` walks the children, value-of without
//     `select` gives the current node's value;
//   - `order-by` keys sort, '+' or nothing ascending, '-' descending;
//   - braces in attributes are text, not attribute value templates;
//   - templates inside apply-templates apply to those nodes only.
// Every pattern goes through TraducePatron. Scripts cannot run: xsl:script is
// dropped, xsl:eval gives its XSLT equivalent for the usual idioms and
// nothing otherwise, and a condition with `expr` is false; each of these
// leaves a line in `avisos`.
HojaTraducida TraduceHojaBorrador(const _xmlDoc* hoja);

// The XSLT text of a translated sheet, indented for reading.
std::string TextoDeHoja(const _xmlDoc* hoja);

}  // namespace orvex::xslt
