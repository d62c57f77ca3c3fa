#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "search/Facetas.h"
#include "search/MapaFichas.h"

// The order of a book result page: by record number (the order the pages
// have always had, and the default), title, author or year, ascending or
// descending. Title and author sort by the ranks that orvex-catalogo stored
// (ORVEX_LECTOR's titulo and autor, search/Facetas.h): the folded text,
// then byte by byte; year by the year. Records with equal keys keep record
// number order, ascending in both directions, and records without a key (no
// title, no author, no known year, or beyond the arrays) come after all the
// others in both directions, in record number order.
namespace orvex::search {

enum class ClaveOrden : std::uint8_t { kFicha, kTitulo, kAutor, kAnio };

struct Orden {
  ClaveOrden clave = ClaveOrden::kFicha;
  bool descendente = false;
  bool operator==(const Orden&) const = default;
};

// A request's order: `clave` "ficha", "titulo", "autor" or "anio" (empty:
// "ficha"), `sentido` "asc" or "desc" (empty: "asc"); nullopt for anything
// else.
std::optional<Orden> LeeOrden(std::string_view clave, std::string_view sentido);
// "ficha", "titulo", "autor", "anio".
std::string_view NombreClaveOrden(ClaveOrden clave);

// The order that a page can actually give: `pedido` when its key's array is
// there (`datos` null: none is), else record number ascending.
Orden OrdenPosible(DatosLector* datos, Orden pedido);

// The records of `resultado` at positions `desde` to desde + cantidad - 1
// (from 1) in the order OrdenPosible(datos, pedido); fewer, or none, when
// the result ends before. Only that slice is sorted: the rest of the result
// is only partitioned around it.
std::vector<std::int32_t> PaginaOrdenada(DatosLector* datos, const MapaFichas& resultado,
                                         Orden pedido, std::int32_t desde, std::int32_t cantidad);

// Every record of `resultado` in that order.
std::vector<std::int32_t> Ordena(DatosLector* datos, const MapaFichas& resultado, Orden pedido);

}  // namespace orvex::search
