// Arbitrary bytes as a Jet file: the catalogue, every table definition,
// every row and value, every index walked and sought, and a statistics row
// appended to each table. The reader and the writer must answer with
// ErrorJet or do their work, never crash, hang or touch memory out of bounds;
// a refused row must leave the bytes as they were.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "db/jet/EscritorJet.h"
#include "db/jet/Jet4.h"

namespace {

using namespace orvex::db::jet;

// One value of each kind the statistics row has, for each column.
std::vector<Valor> Fila(const Tabla& t) {
  std::vector<Valor> v;
  for (const Columna& c : t.columnas) {
    if (c.tipo == TipoColumna::Texto) {
      v.push_back(Valor::DeTexto("CAMION"));
    } else if (c.tipo == TipoColumna::Fecha) {
      Valor f;
      f.tipo = Valor::Tipo::Fecha;
      f.real = 46000.5;
      v.push_back(f);
    } else {
      v.push_back(Valor::DeEntero(7));
    }
  }
  return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* datos, std::size_t largo) {
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
      // The writer takes whole pages only, as it does from a file.
      if (largo % kTamanoPagina != 0) continue;
      PaginasEnMemoria destino(std::string(reinterpret_cast<const char*>(datos), largo), "fuzz.mdb");
      try {
        const Tabla* tabla = archivo->BuscaTabla(nombre);
        if (tabla != nullptr) AgregaFila(*archivo, destino, nombre, Fila(*tabla));
      } catch (const ErrorJet&) {
        if (destino.Bytes() != std::string(reinterpret_cast<const char*>(datos), largo)) std::abort();
      }
    }
  } catch (const ErrorJet&) {
  }
  return 0;
}
