#pragma once

#include <cstdint>
#include <string>

#include "base/Runtime.h"
#include "search/MapaFichas.h"

namespace orvex::search {

// The paging of a result page: the first position it shows (Desde), how many
// it shows (Cantidad), how many were found (Total), the last position it
// shows (Hasta, once computed) and the record the walk stands on. The
// numbers are used as the request and the search left them, never clamped.
struct Paginacion {
  std::int32_t Total = 0;
  std::int32_t Cantidad = 0;
  std::int32_t Desde = 0;
  std::int32_t Hasta = 0;
  std::int32_t FichaActual = 0;

  // The last position: Desde + Cantidad - 1 when below Total, else Total.
  std::int32_t HastaPagina() const;
  // The previous page's start: Desde - Cantidad when above 1, else 1.
  std::int32_t DesdeAnterior() const;
  // The next page's start: Desde + Cantidad when below Total, else Total.
  std::int32_t DesdeSiguiente() const;

  // Fills "<!TOTAL!>", "<!CANTIDAD!>", "<!DESDE!>" and "<!HASTA!>" (setting
  // Hasta), in that order: what a record's display shows of the page.
  void LlenaPosicion(std::string& texto);
  // LlenaPosicion, then "<!DESDEANTERIOR!>" and "<!DESDESIGUIENTE!>": the
  // page's header, footer and listing rows.
  void Llena(std::string& texto);

  // The paged walk over `mapa`: steps over the records before Desde, then
  // calls muestra(record, position) for positions Desde to Total, at most
  // Cantidad of them, and entre() between two records shown (never after
  // the last). The records shown are counted in a byte, as the pages always
  // have: a page of more than 255 records raises 6 after the 255th.
  template <typename Muestra, typename Entre>
  void Recorre(const MapaFichas& mapa, Muestra muestra, Entre entre) {
    for (std::int32_t i = 1; i < Desde; ++i) FichaActual = mapa.Siguiente(FichaActual);
    std::uint8_t mostradas = 0;
    for (std::int64_t i = Desde; i <= Total; ++i) {
      FichaActual = mapa.Siguiente(FichaActual);
      muestra(FichaActual, static_cast<std::int32_t>(i));
      mostradas = ToByte(mostradas + 1.0);
      if (i + 1 > Total || mostradas == Cantidad) break;
      entre();
    }
  }
};

}  // namespace orvex::search
