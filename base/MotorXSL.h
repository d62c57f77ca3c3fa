#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Plazo.h"

namespace orvex {

// What one XSL transformation gave.
struct ResultadoXSL {
  enum class Estado {
    Correcto,            // `texto` holds the page text
    DocumentoInvalido,   // the data document did not load
    HojaInvalida,        // the style sheet did not load
    FalloTransformacion, // the sheet did not compile or the transformation failed
    SinProcesador,       // the XSL processor itself could not be loaded
    PlazoVencido,        // the request's time ran out before the transformation ended
  };
  Estado estado = Estado::Correcto;
  // The result, serialized with HTML rules into Windows-1252; a character the
  // code page lacks is written as a character reference.
  std::string texto;
  // The data document's load error: its reason (UTF-8; Spanish for the
  // common faults), and the line and column where the parser stopped (0 when not
  // known).
  std::string razon;
  int linea = 0;
  int columna = 0;
  // What went wrong with the sheet or the transformation, or why the
  // processor could not be loaded (UTF-8).
  std::string descripcion;
  // What the translation of a working-draft sheet left out (UTF-8, one line
  // each), given with every transformation by the sheet: the caller decides
  // how often to show them.
  std::vector<std::string> avisos;
};

// The XSL processor. Style sheets are compiled once per process, however
// many documents they transform.
class MotorXSL {
 public:
  virtual ~MotorXSL() = default;
  // Transforms the data document `xml` with the style sheet `xsl`; both are
  // UTF-8 texts, whatever encoding their declarations name. A document that
  // declares a document type is validated against it; no external entity,
  // DTD, file or network resource is ever read. Under a deadline (Vigila) a
  // transformation that has not ended when the deadline passes is stopped and
  // reports PlazoVencido; so does one asked for after it has passed.
  virtual ResultadoXSL Transforma(std::string_view xml, std::string_view xsl) = 0;

  // The deadline that every transformation from now on is held to; nullptr:
  // none, transformations run to their end.
  void Vigila(Plazo* plazo) { plazo_ = plazo; }

 protected:
  // The deadline that Vigila set, or nullptr.
  Plazo* PlazoVigilado() const { return plazo_; }

 private:
  Plazo* plazo_ = nullptr;
};

// A processor that is not there, for programs that transform nothing: every
// transformation reports SinProcesador with `razon`.
class MotorXSLAusente final : public MotorXSL {
 public:
  explicit MotorXSLAusente(std::string razon) : razon_(std::move(razon)) {}
  ResultadoXSL Transforma(std::string_view, std::string_view) override {
    ResultadoXSL r;
    r.estado = ResultadoXSL::Estado::SinProcesador;
    r.descripcion = razon_;
    return r;
  }

 private:
  std::string razon_;
};

}  // namespace orvex
