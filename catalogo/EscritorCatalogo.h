#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "catalogo/Acervos.h"
#include "catalogo/Ejemplares.h"
#include "catalogo/FilaFicha.h"
#include "catalogo/PalabrasIndice.h"

// Writes a new catalogue's four SQLite files with the tables, columns and
// index names the gateway reads:
//   KORVEL8.MDB       Fichas, Ejemplares (indexes Ejemplares_NumAdqui,
//                     Ejemplares_Ficha_No), Configuracion, "Fichas Revistas"
//                     and Analiticas (Analiticas_numadqui); and ORVEX_MARC,
//                     each book's source record for orvex-z3950:
//                       "Ficha_No" INTEGER PRIMARY KEY (the row of Fichas),
//                       "Formato"  TEXT NOT NULL: 'iso2709' or 'marcxml',
//                       "Registro" BLOB NOT NULL: the record as the input
//                                  file holds it (LectorRegistros::Original:
//                                  ISO 2709 bytes, or the UTF-8 text of a
//                                  MARCXML <record> element)
//   INDIZADO.MDB      TABLA, the book words (index TABLA_FRASE on palabra,
//                     ficha, posicion), TABLA's word lists
//                     (search/ListasPalabras.h) and its vocabulary for the
//                     search's suggestions, ORVEX_VOCABULARIO
//                     (search/Sugerencias.h), both under the lists' guard
//   indizaPP.MDB      TABLA, the periodical words, and TABLAANA, the article
//                     words (TABLA_FRASE, TABLAANA_FRASE); no word lists
//   estadisticas.mdb  empty Consultas (Fecha, Buscado, Encontrados,
//                     AdvSearch, IP_Address)
// Texts are stored in UTF-8, dates as "yyyy-mm-dd hh:mm:ss", empty texts as
// empty strings. The files are new and are put in place only when complete,
// so each is written in one transaction without a journal and without
// waiting for the disk; the indexes on the big tables are built after their
// rows. The files end up in SQLite's default (rollback journal) mode.
namespace orvex::catalogo {

// A failure writing the catalogue (Spanish message).
class ErrorCatalogo : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class EscritorCatalogo {
 public:
  // Creates the four files in `directorio`, an existing empty directory.
  explicit EscritorCatalogo(const std::string& directorio);
  ~EscritorCatalogo();
  EscritorCatalogo(const EscritorCatalogo&) = delete;
  EscritorCatalogo& operator=(const EscritorCatalogo&) = delete;

  // One row of Configuracion (UTF-8).
  void AgregaConfiguracion(const std::string& descripcion, const std::string& valor);
  void AgregaFicha(const FilaFicha& ficha);
  // The source record of book `ficha` (ORVEX_MARC), stored as it is.
  void AgregaOrigen(std::int32_t ficha, FormatoOrigen formato, std::string_view registro);
  void AgregaEjemplar(std::int32_t ficha, const Ejemplar& ejemplar);
  // One row of "Fichas Revistas" / Analiticas (UTF-8 texts).
  void AgregaRevista(std::int32_t ficha_no, const std::string& etiquetas);
  void AgregaAnalitica(std::int32_t id, const std::string& numadqui, const std::string& etiquetas);
  // The words of record `ficha` of `acervo` into that collection's word table.
  void AgregaPalabras(Acervo acervo, std::int32_t ficha,
                      const std::vector<PalabraIndice>& palabras);

  // Builds the indexes, commits and closes every file. Nothing may be added
  // afterwards.
  void Termina();

  // Rows written to the three word tables.
  std::int64_t Palabras() const { return palabras_; }

 private:
  struct Bases;
  void EscribeListas();
  void EscribeVocabulario(const std::string& tabla);
  std::unique_ptr<Bases> bases_;
  std::int64_t palabras_ = 0;
};

}  // namespace orvex::catalogo
