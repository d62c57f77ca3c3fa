#include "search/Paginacion.h"

#include "config/Plantillas.h"

namespace orvex::search {
namespace {

// A result that fits 32 bits, or the runtime's overflow error.
std::int32_t Acota(std::int64_t valor) {
  return static_cast<std::int32_t>(ToInt32(static_cast<double>(valor)));
}

}  // namespace

std::int32_t Paginacion::HastaPagina() const {
  const std::int64_t hasta = static_cast<std::int64_t>(Desde) + Cantidad - 1;
  return hasta < Total ? Acota(hasta) : Total;
}

std::int32_t Paginacion::DesdeAnterior() const {
  const std::int64_t anterior = static_cast<std::int64_t>(Desde) - Cantidad;
  return anterior > 1 ? Acota(anterior) : 1;
}

std::int32_t Paginacion::DesdeSiguiente() const {
  const std::int64_t siguiente = static_cast<std::int64_t>(Desde) + Cantidad;
  return siguiente < Total ? Acota(siguiente) : Total;
}

void Paginacion::LlenaPosicion(std::string& texto) {
  config::ReemplazaTexto(texto, "<!TOTAL!>", std::to_string(Total));
  config::ReemplazaTexto(texto, "<!CANTIDAD!>", std::to_string(Cantidad));
  config::ReemplazaTexto(texto, "<!DESDE!>", std::to_string(Desde));
  Hasta = HastaPagina();
  config::ReemplazaTexto(texto, "<!HASTA!>", std::to_string(Hasta));
}

void Paginacion::Llena(std::string& texto) {
  LlenaPosicion(texto);
  config::ReemplazaTexto(texto, "<!DESDEANTERIOR!>", std::to_string(DesdeAnterior()));
  config::ReemplazaTexto(texto, "<!DESDESIGUIENTE!>", std::to_string(DesdeSiguiente()));
}

}  // namespace orvex::search
