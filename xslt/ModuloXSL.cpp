// The entry points of the loadable XSL module.

#include "xslt/ModuloXSL.h"

#include <time.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "base/Plazo.h"
#include "xslt/MotorLibxslt.h"

namespace {

char* Copia(const std::string& texto) {
  char* copia = static_cast<char*>(std::malloc(texto.size() + 1));
  if (copia != nullptr) std::memcpy(copia, texto.c_str(), texto.size() + 1);
  return copia;
}

// The request's deadline as the module keeps it, on its own clock: the
// coarse monotonic clock, read in a few nanoseconds and precise to a few
// milliseconds, which is all a deadline of seconds needs.
class PlazoDelModulo final : public orvex::Plazo {
 public:
  // `restante_ms` is capped far beyond any request, so that the sum cannot
  // overflow.
  explicit PlazoDelModulo(std::int64_t restante_ms)
      : vence_ms_(Ahora() + std::min<std::int64_t>(restante_ms, INT64_MAX / 2)) {}
  bool Vencido() noexcept override { return Ahora() >= vence_ms_; }
  std::int64_t RestanteMs() noexcept override {
    const std::int64_t resta = vence_ms_ - Ahora();
    return resta > 0 ? resta : 0;
  }

 private:
  static std::int64_t Ahora() noexcept {
    timespec t{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
  }
  std::int64_t vence_ms_;
};

// Holds `motor` to `plazo` while it lives.
class Vigilado {
 public:
  Vigilado(orvex::MotorXSL& motor, orvex::Plazo* plazo) : motor_(motor) { motor_.Vigila(plazo); }
  ~Vigilado() { motor_.Vigila(nullptr); }
  Vigilado(const Vigilado&) = delete;
  Vigilado& operator=(const Vigilado&) = delete;

 private:
  orvex::MotorXSL& motor_;
};

// The module's one processor, process-wide by design: orvex loads the module
// once and calls orvex_xsl_transforma_vigilada for every document of every
// request, and the sheets compiled for the first record serve all the others.
// It is built on the first transformation (not when the module is loaded, so
// that nothing runs before the module's other statics are ready) and
// destroyed when the module is unloaded or the process exits.
//
// What stays warm in it from one call to the next, and so from one request
// to the next in a process that serves several:
//   - the sheet texts it has seen most recently, each compiled or with the
//     reason it does not compile, and a working-draft sheet's translation
//     notices, which come with every transformation by the sheet (the
//     request shows them once);
//   - the security preferences (no file, no network), fixed when it is built;
//   - libxml2's and libxslt's process-wide setup: the parser, the deadline
//     hooks, the extension functions, the external entity loader.
// Nothing of a request stays: the deadline is set for one call and cleared
// when it returns (Vigilado), and what the libraries report is collected
// per call.
orvex::xslt::MotorLibxslt& MotorDelProceso() {
  static orvex::xslt::MotorLibxslt motor;
  return motor;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int orvex_xsl_transforma_vigilada(
    const char* xml, std::size_t largo_xml, const char* xsl, std::size_t largo_xsl,
    long long restante_ms, OrvexSalidaXSL* salida) {
  try {
    orvex::xslt::MotorLibxslt& motor = MotorDelProceso();
    std::optional<PlazoDelModulo> plazo;
    if (restante_ms >= 0) plazo.emplace(restante_ms);
    const Vigilado vigilado(motor, plazo ? &*plazo : nullptr);
    orvex::ResultadoXSL r =
        motor.Transforma(std::string_view(xml, largo_xml), std::string_view(xsl, largo_xsl));
    salida->estado = static_cast<int>(r.estado);
    salida->texto = Copia(r.texto);
    salida->largo = r.texto.size();
    salida->razon = Copia(r.razon);
    salida->descripcion = Copia(r.descripcion);
    std::string avisos;
    for (const std::string& aviso : r.avisos) avisos += aviso + "\n";
    salida->avisos = Copia(avisos);
    salida->linea = r.linea;
    salida->columna = r.columna;
    return salida->texto != nullptr && salida->razon != nullptr &&
           salida->descripcion != nullptr && salida->avisos != nullptr;
  } catch (...) {
    return 0;
  }
}

extern "C" __attribute__((visibility("default"))) int orvex_xsl_verifica() {
  return orvex::xslt::XmlParserWorks() ? 1 : 0;
}

extern "C" __attribute__((visibility("default"))) void orvex_xsl_libera(OrvexSalidaXSL* salida) {
  std::free(salida->texto);
  std::free(salida->razon);
  std::free(salida->descripcion);
  std::free(salida->avisos);
  salida->texto = salida->razon = salida->descripcion = salida->avisos = nullptr;
}
