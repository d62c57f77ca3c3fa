#include "db/jet/Jet4.h"

#include "base/CodePage.h"

// The index B-tree walk is not read yet: Clave gives no key, so every seek
// is answered by the engine's sorted scan of the table, and the walk itself
// reports that it is not available.
namespace orvex::db::jet {

struct CursorIndice::Estado {
  const FuentePaginas& f;
};

CursorIndice::CursorIndice(const FuentePaginas& archivo, const Tabla&, const Indice&)
    : e_(std::make_unique<Estado>(Estado{archivo})) {}
CursorIndice::~CursorIndice() = default;

std::optional<std::string> CursorIndice::Clave(const std::vector<Valor>&) const { return std::nullopt; }

namespace {
[[noreturn]] void SinRecorrido(const FuentePaginas& f) {
  throw ErrorJet(Latin1("Los índices de la base de datos Jet '") + f.Nombre() +
                 Latin1("' se leen recorriendo la tabla: esta versión de Orvex no recorre sus árboles."));
}
}  // namespace

bool CursorIndice::Busca(std::string_view) { SinRecorrido(e_->f); }
bool CursorIndice::Primero() { SinRecorrido(e_->f); }
bool CursorIndice::Siguiente() { SinRecorrido(e_->f); }
bool CursorIndice::Valido() const { return false; }
std::string_view CursorIndice::ClaveActual() const { return {}; }
PosicionFila CursorIndice::Fila() const { return {}; }

}  // namespace orvex::db::jet
