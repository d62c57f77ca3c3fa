#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/MotorXSL.h"

namespace orvex::xslt {

// The XSL processor on libxml2 and libxslt.
//
// Data documents are parsed as UTF-8 whatever their declaration says, with
// entities substituted and no network; one that declares a document type is
// validated against it and rejected when it does not follow it. The first
// error the parser reports gives the reason, line and column.
//
// Style sheets are XSLT 1.0 (the namespace
// http://www.w3.org/1999/XSL/Transform, as a whole sheet or as a literal
// result element), or working-draft sheets, which TraduceHojaBorrador turns
// into XSLT first; any other document does not load. Each sheet text is compiled
// the first time it is used and kept, with its compile failure if it had one,
// for the life of the processor. msxsl:node-set() is available to the sheets.
// Sheets can read no file and no network resource: xsl:include, xsl:import
// and document() fail. Under a deadline (Vigila) a transformation looks at
// it every few instructions and stops with PlazoVencido once it has passed;
// the XPath it evaluates between two looks may make a number of operations
// proportional to the time left, and exceeding them stops it the same way.
//
// What the libraries report is collected by each step of a call (parse,
// validation, compilation, transformation) in an object of the step's own,
// never written to standard error; the error handlers found in place are
// restored when the call returns. libxslt's generic error handler is one for
// the whole process, so processors are used from one thread at a time.
class MotorLibxslt final : public MotorXSL {
 public:
  MotorLibxslt();
  ~MotorLibxslt() override;
  MotorLibxslt(const MotorLibxslt&) = delete;
  MotorLibxslt& operator=(const MotorLibxslt&) = delete;

  ResultadoXSL Transforma(std::string_view xml, std::string_view xsl) override;

  // At most this many sheet texts are kept compiled.
  static constexpr std::size_t kHojasRetenidas = 64;
  // How many sheet texts are kept compiled now.
  int HojasCompiladas() const { return static_cast<int>(hojas_.size()); }

  struct Hoja;  // a compiled sheet, or why it does not compile

 private:
  Hoja& Compila(std::string_view xsl);

  // Looked up by the sheet's text as given, without copying it.
  struct HashTexto {
    using is_transparent = void;
    std::size_t operator()(std::string_view texto) const {
      return std::hash<std::string_view>{}(texto);
    }
  };
  std::unordered_map<std::string, std::unique_ptr<Hoja>, HashTexto, std::equal_to<>> hojas_;
  void* seguridad_;  // xsltSecurityPrefsPtr
};

// One sheet as the sheet-checking tool sees it: its dialect, its XSLT
// translation, and whether libxslt compiles it.
struct RevisionHoja {
  enum class Dialecto { Ninguno, XSLT, Borrador };
  Dialecto dialecto = Dialecto::Ninguno;
  bool compila = false;
  std::string xslt;   // the translation of a working-draft sheet, indented
  std::string error;  // why the sheet does not load, translate or compile (UTF-8)
  std::vector<std::string> avisos;  // what the translation left out
};
RevisionHoja RevisaHoja(std::string_view xsl);

// True when the XML parser can be created and made to parse a small
// document; whether that document parsed is not examined, only that the
// parser ran, as the gateway has always checked.
bool XmlParserWorks();

}  // namespace orvex::xslt
