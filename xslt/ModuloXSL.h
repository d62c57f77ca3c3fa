#pragma once

// The XSL processor as a loadable module, "orvex-xsl.so". orvex loads it the
// first time a request transforms a document, so that requests which never
// do are not slowed by libxml2, libxslt and the libraries they pull in. The
// module and the program meet through these C declarations only: each side
// keeps its own C++ runtime.

#include <cstddef>

extern "C" {

// One transformation's outcome; the module owns the texts until
// orvex_xsl_libera is called.
struct OrvexSalidaXSL {
  int estado;           // an orvex::ResultadoXSL::Estado value
  char* texto;          // the page text
  std::size_t largo;    // its length
  char* razon;          // NUL-terminated
  char* descripcion;    // NUL-terminated
  char* avisos;         // NUL-terminated, one line each, each ended by '\n'
  int linea;
  int columna;
};

// Transforms `xml` with `xsl` into `salida`; zero when the module ran out
// of memory. `restante_ms` is the time the request has left, in
// milliseconds, negative when it has no deadline: the module keeps the
// deadline on its own monotonic clock and stops a transformation that passes
// it (PlazoVencido).
using OrvexTransformaXSL = int (*)(const char* xml, std::size_t largo_xml, const char* xsl,
                                   std::size_t largo_xsl, long long restante_ms,
                                   OrvexSalidaXSL* salida);
using OrvexLiberaXSL = void (*)(OrvexSalidaXSL* salida);
// Nonzero when the XML parser can be created and parses a small document.
using OrvexVerificaXSL = int (*)();

}  // extern "C"

namespace orvex::xslt {

inline constexpr const char* kArchivoModuloXSL = "orvex-xsl.so";
// The stand-in for ICU, loaded first from the module's directory when it is
// there (see SinICU.c).
inline constexpr const char* kArchivoSinICU = "orvex-sin-icu.so";
// Named apart from the transformation without a deadline of earlier modules,
// so that an old module left beside a newer orvex is refused, not misread.
inline constexpr const char* kFuncionTransforma = "orvex_xsl_transforma_vigilada";
inline constexpr const char* kFuncionLibera = "orvex_xsl_libera";
inline constexpr const char* kFuncionVerifica = "orvex_xsl_verifica";

}  // namespace orvex::xslt
