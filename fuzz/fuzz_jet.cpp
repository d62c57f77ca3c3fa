// Arbitrary bytes as a Jet file: the catalogue, every table definition,
// every row and value, every index walked and sought. The reader must answer with ErrorJet or with values,
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
        for (const Indice& indice : tabla->indices) {
          CursorIndice cursor(*archivo, *tabla, indice);
          for (int n = 0; n < 100000 && (n == 0 ? cursor.Primero() : cursor.Siguiente()); ++n) {
            filas.Ve(cursor.Fila());
          }
          if (const auto clave = cursor.Clave({Valor::DeTexto("HISTORIA")})) cursor.Busca(*clave);
        }
      } catch (const ErrorJet&) {
      }
    }
  } catch (const ErrorJet&) {
  }
  return 0;
}
