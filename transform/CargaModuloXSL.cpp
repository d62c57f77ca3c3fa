#include "transform/CargaModuloXSL.h"

#include <dlfcn.h>
#include <unistd.h>

#include "base/Platform.h"
#include "base/PosixPlatform.h"

#ifndef ORVEX_DIRECTORIO_MODULOS
#define ORVEX_DIRECTORIO_MODULOS ""
#endif

namespace orvex::transform {

std::vector<std::string> RutasModuloXSL(const std::string& directorio_programa) {
  return RutasModulo(directorio_programa, xslt::kArchivoModuloXSL, ORVEX_DIRECTORIO_MODULOS);
}

std::string MotorModuloXSL::Encuentra() const { return PrimeraLegible(rutas_); }

bool MotorModuloXSL::Carga() {
  if (intentado_) return transforma_ != nullptr;
  intentado_ = true;
  const std::string ruta = Encuentra();
  if (ruta.empty()) {
    error_ = std::string("no se encontró ") + xslt::kArchivoModuloXSL;
    return false;
  }
  // Both stay loaded until the process ends. Without the stand-in the real
  // ICU is loaded with libxml2.
  const std::string sin_icu = JoinPath(ruta.substr(0, ruta.rfind('/') + 1), xslt::kArchivoSinICU);
  if (::access(sin_icu.c_str(), R_OK) == 0) ::dlopen(sin_icu.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* modulo = ::dlopen(ruta.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (modulo == nullptr) {
    const char* razon = ::dlerror();
    error_ = razon == nullptr ? ruta : razon;
    return false;
  }
  transforma_ = reinterpret_cast<OrvexTransformaXSL>(::dlsym(modulo, xslt::kFuncionTransforma));
  libera_ = reinterpret_cast<OrvexLiberaXSL>(::dlsym(modulo, xslt::kFuncionLibera));
  const auto verifica = reinterpret_cast<OrvexVerificaXSL>(::dlsym(modulo, xslt::kFuncionVerifica));
  if (transforma_ == nullptr || libera_ == nullptr || verifica == nullptr) {
    transforma_ = nullptr;
    error_ = ruta + " no es el módulo XSL de Orvex";
    return false;
  }
  if (verifica() == 0) {
    transforma_ = nullptr;
    error_ = "el analizador XML de " + ruta + " no funciona";
    return false;
  }
  return true;
}

ResultadoXSL MotorModuloXSL::Transforma(std::string_view xml, std::string_view xsl) {
  ResultadoXSL r;
  if (!Carga()) {
    r.estado = ResultadoXSL::Estado::SinProcesador;
    r.descripcion = error_;
    return r;
  }
  // The module keeps the deadline on its own clock, from the time left.
  Plazo* plazo = PlazoVigilado();
  const long long restante_ms = plazo == nullptr ? -1 : plazo->RestanteMs();
  OrvexSalidaXSL salida{};
  if (!transforma_(xml.data(), xml.size(), xsl.data(), xsl.size(), restante_ms, &salida)) {
    libera_(&salida);
    r.estado = ResultadoXSL::Estado::FalloTransformacion;
    r.descripcion = "el procesador XSL se quedó sin memoria";
    return r;
  }
  r.estado = static_cast<ResultadoXSL::Estado>(salida.estado);
  r.texto.assign(salida.texto, salida.largo);
  r.razon = salida.razon;
  r.descripcion = salida.descripcion;
  r.linea = salida.linea;
  r.columna = salida.columna;
  for (std::string_view avisos = salida.avisos; !avisos.empty();) {
    const size_t fin = avisos.find('\n');
    r.avisos.emplace_back(avisos.substr(0, fin));
    avisos.remove_prefix(fin == std::string_view::npos ? avisos.size() : fin + 1);
  }
  libera_(&salida);
  return r;
}

}  // namespace orvex::transform
