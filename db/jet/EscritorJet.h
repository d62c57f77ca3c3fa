#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Plazo.h"
#include "db/jet/Jet4.h"

// The smallest writer Orvex needs in a Jet 4 file: one row appended to a
// table without indexes, which is what a search statistics row is. Nothing
// else in a Jet file is ever changed.
namespace orvex::db::jet {

// The pages of a Jet file as the writer sees them, read and written whole.
class DestinoPaginas {
 public:
  virtual ~DestinoPaginas() = default;
  virtual std::uint32_t Paginas() const = 0;
  virtual void Lee(std::uint32_t n, std::uint8_t* pagina) const = 0;
  // Writes page n; n == Paginas() extends the file by one page.
  virtual void Escribe(std::uint32_t n, const std::uint8_t* pagina) = 0;
  // Puts what was written on disk before anything else is written.
  virtual void Sincroniza() = 0;
  // Cuts the file back to `paginas` pages.
  virtual void Trunca(std::uint32_t paginas) = 0;
  virtual const std::string& Nombre() const = 0;
};

// A Jet file held in memory, for tests and fuzzing: pages are read and
// written in `Bytes()`, and nothing needs flushing.
class PaginasEnMemoria : public DestinoPaginas {
 public:
  PaginasEnMemoria(std::string bytes, std::string nombre);
  std::uint32_t Paginas() const override;
  void Lee(std::uint32_t n, std::uint8_t* pagina) const override;
  void Escribe(std::uint32_t n, const std::uint8_t* pagina) override;
  void Sincroniza() override {}
  void Trunca(std::uint32_t paginas) override;
  const std::string& Nombre() const override { return nombre_; }
  const std::string& Bytes() const { return bytes_; }

 private:
  std::string bytes_;
  std::string nombre_;
};

// Appends a row to the table `tabla` of `archivo` (the same file as
// `destino`, read after the writer's lock was taken), with one value per
// column in Tabla::columnas order:
//   - Nulo for null; Entero for booleans, bytes, integers and longs; Real or
//     Fecha (days since 1899-12-30) for dates and doubles; Texto (UTF-8) for
//     text, compressed as the column says.
// The row goes on the table's last data page when it has room, otherwise on
// a new page at the end of the file, which the table's usage maps (and the
// file's global map) then list. Writes go in this order, each step on disk
// before the next: the data page, the maps, the row count in the table's
// definition, so that no page ever points to one that is not there.
//
// Throws ErrorJet, with the file left as it was, when the table is missing,
// has indexes, a value does not fit its column, the usage maps cannot list
// a new page, a page is not what the definition says, or a write fails (the
// pages written until then are put back and the file cut to its size).
void AgregaFila(const Archivo& archivo, DestinoPaginas& destino, std::string_view tabla,
                const std::vector<Valor>& valores);

// A Jet file opened for writing. The object holds an exclusive advisory lock
// (flock) on the file until it is destroyed, so that writers of the same
// file take turns: while another writer holds it, the lock is tried again
// for up to `espera_ms` milliseconds (0: once). Throws ErrorJet when the
// file cannot be opened, when the lock is not had in that time, or when the
// Jet lock file beside it (".ldb") exists and another program holds a lock
// on it; throws TiempoAgotado when `plazo` (none: no deadline) passes while
// it waits.
std::unique_ptr<DestinoPaginas> AbreParaEscribir(const std::string& ruta, int espera_ms,
                                                 Plazo* plazo = nullptr);

// The days since 1899-12-30 of an ISO date "YYYY-MM-DD[ HH:MM:SS]", as Jet
// stores dates; false for any other text.
bool DiasDeFechaISO(std::string_view iso, double& dias);

}  // namespace orvex::db::jet
