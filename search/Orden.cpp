#include "search/Orden.h"

#include <algorithm>

namespace orvex::search {
namespace {

constexpr std::string_view kNombres[] = {"ficha", "titulo", "autor", "anio"};

const Arreglo* ArregloDe(DatosLector* datos, ClaveOrden clave) {
  if (datos == nullptr) return nullptr;
  switch (clave) {
    case ClaveOrden::kTitulo: return datos->Columna("titulo");
    case ClaveOrden::kAutor: return datos->Columna("autor");
    case ClaveOrden::kAnio: return datos->Columna("anio");
    case ClaveOrden::kFicha: break;
  }
  return nullptr;
}

// Each record as one 64-bit number whose ascending order is the page's
// order: the key in the high half (turned around for a descending order;
// a missing key all ones, after every key), the record number in the low.
std::vector<std::uint64_t> Claves(const Arreglo& a, const std::vector<std::int32_t>& fichas,
                                  bool descendente) {
  std::vector<std::uint64_t> claves(fichas.size());
  const std::uint32_t n = a.Tamano();
  a.Visita([&](auto v) {
    for (std::size_t i = 0; i < fichas.size(); ++i) {
      const auto f = static_cast<std::uint32_t>(fichas[i]);
      const std::uint32_t k = f < n ? v[f] : 0;
      // Keys lie below the array's bound (at most 2^24): neither form
      // reaches the missing key's all ones.
      const std::uint64_t alto = k == 0 ? 0xFFFFFFFFu : descendente ? 0xFFFFFFFEu - k : k;
      claves[i] = (alto << 32) | f;
    }
  });
  return claves;
}

}  // namespace

std::optional<Orden> LeeOrden(std::string_view clave, std::string_view sentido) {
  Orden o;
  if (clave.empty()) clave = kNombres[0];
  bool hallada = false;
  for (int i = 0; i < 4; ++i) {
    if (clave == kNombres[i]) {
      o.clave = static_cast<ClaveOrden>(i);
      hallada = true;
    }
  }
  if (!hallada) return std::nullopt;
  if (sentido == "desc") {
    o.descendente = true;
  } else if (!sentido.empty() && sentido != "asc") {
    return std::nullopt;
  }
  return o;
}

std::string_view NombreClaveOrden(ClaveOrden clave) {
  return kNombres[static_cast<int>(clave)];
}

Orden OrdenPosible(DatosLector* datos, Orden pedido) {
  if (pedido.clave == ClaveOrden::kFicha || ArregloDe(datos, pedido.clave) != nullptr) {
    return pedido;
  }
  return Orden{};
}

std::vector<std::int32_t> PaginaOrdenada(DatosLector* datos, const MapaFichas& resultado,
                                         Orden pedido, std::int32_t desde,
                                         std::int32_t cantidad) {
  const Orden orden = OrdenPosible(datos, pedido);
  std::vector<std::int32_t> fichas = resultado.Lista();
  const auto total = static_cast<std::int64_t>(fichas.size());
  const std::int64_t inicio = std::max<std::int64_t>(desde, 1) - 1;
  const std::int64_t fin = std::min<std::int64_t>(inicio + std::max(cantidad, 0), total);
  if (inicio >= fin) return {};
  const auto a = static_cast<std::ptrdiff_t>(inicio), b = static_cast<std::ptrdiff_t>(fin);

  if (orden.clave == ClaveOrden::kFicha) {
    if (orden.descendente) std::reverse(fichas.begin(), fichas.end());
    return std::vector<std::int32_t>(fichas.begin() + a, fichas.begin() + b);
  }
  std::vector<std::uint64_t> claves =
      Claves(*ArregloDe(datos, orden.clave), fichas, orden.descendente);
  // The slice's records are the (b - a) after the first a: two selections
  // put them in place, and only they are sorted.
  if (b < static_cast<std::ptrdiff_t>(claves.size())) {
    std::nth_element(claves.begin(), claves.begin() + b, claves.end());
  }
  if (a > 0) std::nth_element(claves.begin(), claves.begin() + a, claves.begin() + b);
  std::sort(claves.begin() + a, claves.begin() + b);
  std::vector<std::int32_t> pagina;
  pagina.reserve(static_cast<std::size_t>(b - a));
  for (auto it = claves.begin() + a; it != claves.begin() + b; ++it) {
    pagina.push_back(static_cast<std::int32_t>(*it & 0xFFFFFFFFu));
  }
  return pagina;
}

std::vector<std::int32_t> Ordena(DatosLector* datos, const MapaFichas& resultado, Orden pedido) {
  return PaginaOrdenada(datos, resultado, pedido, 1, MapaFichas::kMaximaFicha);
}

}  // namespace orvex::search
