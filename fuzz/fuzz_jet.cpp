// Arbitrary bytes as a Jet file: the catalogue, every table definition,
// every row and value. The reader must answer with ErrorJet or with values,
// never crash, hang or read out of bounds.
#include <cstddef>
#include <cstdint>
#include <string>

#include "db/jet/Jet4.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* datos, std::size_t largo) {
  using namespace orvex::db::jet;
  try {
    const auto archivo =
        Archivo::DesdeMemoria(std::string(reinterpret_cast<const char*>(datos), largo), "fuzz.mdb");
    for (const std::string& nombre : archivo->NombresTablas()) {
      try {
        const Tabla* tabla = archivo->BuscaTabla(nombre);
        if (tabla == nullptr) continue;
        Filas filas(*archivo, *tabla);
        for (int n = 0; n < 100000 && filas.Siguiente(); ++n) {
          for (std::size_t i = 0; i < tabla->columnas.size(); ++i) {
            const Valor v = filas.Lee(i);
            if (v.tipo == Valor::Tipo::Fecha) FechaISO(v.real);
          }
        }
      } catch (const ErrorJet&) {
      }
    }
  } catch (const ErrorJet&) {
  }
  return 0;
}
