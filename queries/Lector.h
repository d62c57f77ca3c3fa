#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cgi/Solicitud.h"
#include "search/Facetas.h"
#include "search/Orden.h"

// What the book result page offers a reader beyond the pages a library's
// configuration has always had: the results narrowed by facets (year,
// language, material type, author, subject), sorted, paged by numbered
// links, and, when a search finds nothing, corrected.
//
// All of it comes through request fields and placeholders that existing
// configurations and forms do not use, so their pages stay as they were;
// and a page pays for a feature only when its request or its sections ask
// for it.
//
// Request fields:
//   Orden    ficha (the default: record number), titulo, autor or anio
//   Sentido  asc (the default) or desc
//   Faceta   "facet:value", as many as the reader chose: anio:1998,
//            idioma:spa, tipo:libro, autor:<text>, tema:<text>
//
// Placeholders (each filled only where the section holds it):
//   <!FACETAS!>          ENCABEZADO2:, FINAL:   the facets' most frequent values over the
//                                                result, each a link that narrows it
//   <!FILTROS!>          ENCABEZADO2:, FINAL:, NOENCONTRADO:   the chosen values, each with a
//                                                link that removes it
//   <!ORDEN!>            ENCABEZADO2:, FINAL:   the orders the catalogue can give, as links,
//                                                the current one marked
//   <!PAGINAS!>          ENCABEZADO2:, FINAL:   numbered links to the result's pages; empty
//                                                when it fits in one
//   <!ENLACEANTERIOR!>, <!ENLACESIGUIENTE!>      the previous and next page of the same search
//   <!ENLACEBUSQUEDA!>   ENCABEZADO2:, FINAL:, NOENCONTRADO:   this same page
//   <!ERRORSINTAXIS!>    NOENCONTRADO:          the message that the search could not be read,
//                                                where the reader sees it (the parser's own
//                                                message stands where the page has always had it)
//   <!SUGERENCIAS!>      NOENCONTRADO:          "did you mean": corrections of the words that
//                                                found nothing, each a link that runs it
namespace orvex::queries {

class PaginaLector {
 public:
  // Reads the request's order and facet choices.
  explicit PaginaLector(cgi::Solicitud& s);
  ~PaginaLector();

  // After the search, with the databases open: keeps in the result only the
  // records with every chosen facet value. False when nothing was chosen;
  // the count must then be taken again when true.
  bool Restringe();

  // The order the page is shown in, when it is not record number: the
  // records of the page, in order (empty when the page has none).
  // nullopt: record number order, the bitmap's walk.
  std::optional<std::vector<std::int32_t>> PaginaOrdenada();

  // Fills this feature's placeholders present in a section's text.
  void Llena(std::string& texto);

 private:
  search::DatosLector* Datos();
  std::string Facetas();
  std::string Filtros();
  std::string Ordenes();
  std::string Paginas();
  std::string Sugerencias();
  std::string EnlacePagina(std::int32_t desde) const;

  cgi::Solicitud& s_;
  search::Orden orden_;
  std::vector<search::Eleccion> elecciones_;
  bool buscado_ = false;
  bool honradas_ = true;  // the chosen facet values narrowed the result
  search::FuenteLector fuente_;
};

}  // namespace orvex::queries
