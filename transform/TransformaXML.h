#pragma once

#include <set>
#include <string>

#include "base/MotorXSL.h"
#include "base/Platform.h"

namespace orvex::transform {

// Record documents and style sheets through the XSL processor, for one
// request's pages.
class TransformadorXSL {
 public:
  // `traza`, when given, receives a line (an HTML fragment) for each thing
  // the translation of a working-draft sheet left out, with the sheet's
  // first transformation in the request: `avisadas` holds the texts of the
  // request's sheets whose notices are already in its trace (without it,
  // this transformer's own set).
  TransformadorXSL(MotorXSL& motor, Output& salida, std::string* traza = nullptr,
                   std::set<std::string>* avisadas = nullptr)
      : motor_(motor), salida_(salida), traza_(traza),
        avisadas_(avisadas != nullptr ? avisadas : &propias_) {}

  // The page text (Windows-1252) of the data document `xml` transformed by
  // the style sheet `xsl`, both Windows-1252 texts as the gateway holds them;
  // a text that starts with a UTF-8 byte order mark is read as UTF-8 instead.
  // Sheets in the working-draft dialect, the built-in ones included, run
  // through their XSLT 1.0 translation.
  //
  // A failure returns empty after writing its message to the page through
  // MensajeH4, and the request goes on:
  //   - the data document does not load: "Error al cargar el documento XML: ",
  //     the reason, " : " and the document's line where the parser stopped;
  //     then the whole document inside an HTML comment, "<!--" and three
  //     CR LF before it, three CR LF and "-->" after it;
  //   - the sheet does not load: "Error al cargar la hoja de estilo XSL";
  //   - the sheet does not compile or the transformation fails:
  //     "Error executing the Transform: ", the description, CR LF, then
  //     " line: 0 col: 0 text: " (the data document's load error, which is
  //     empty once it has loaded);
  //   - the processor cannot be loaded: "No se pudo cargar el procesador XSL
  //     de Orvex: " and the reason.
  // When the motor's deadline stops the transformation, the request cannot go
  // on: TiempoAgotado is thrown and nothing is written on the page.
  std::string TransformaXML(const std::string& xml, const std::string& xsl);

  // True when the last TransformaXML failed (and wrote its message).
  bool Fallo() const { return fallo_; }

 private:
  MotorXSL& motor_;
  Output& salida_;
  std::string* traza_;
  std::set<std::string> propias_;
  std::set<std::string>* avisadas_;
  bool fallo_ = false;
};

// The `linea`-th line (from 1) of `texto`, without its line end; empty when
// there is no such line.
std::string LineaDelTexto(const std::string& texto, int linea);

}  // namespace orvex::transform
