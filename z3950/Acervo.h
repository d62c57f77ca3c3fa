#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Platform.h"
#include "db/Database.h"
#include "records/Ficha.h"
#include "search/Busqueda.h"
#include "z3950/Consulta.h"

// The book catalogue as the protocol servers see it: the databases that a
// configuration file's "BASE:" names, searched with the same lookups as the
// gateway's book search, so that a query gives the hits its HTML page
// gives.
namespace orvex::z3950 {

class Acervo {
 public:
  // The catalogue in directory `directorio` (KORVEL8.MDB and INDIZADO.MDB,
  // found regardless of letter case), opened read-only through `bases`.
  // Raises the database layer's error when either cannot be opened.
  Acervo(const std::string& directorio, FileSystem& archivos, db::Opener& bases);

  // The records that `consulta` finds, ascending. A term is looked up as
  // the gateway's book search looks up the same words typed in the field
  // box of its index: its words AND-ed, a phrase in double quotes, "$"
  // after a truncated word, a call number or standard number as one word.
  // A term without any word finds nothing. Damaged index files give Bib-1
  // 2 (temporary system error) in `d`.
  std::vector<std::int32_t> Busca(const Nodo& consulta, Diagnostico& d);

  // Record `numero`; false when the catalogue has no such record.
  bool Carga(std::int32_t numero, records::RegFicha& ficha);

  db::Database& Biblio() { return *biblio_; }
  db::Database& Indice() { return *indice_; }

 private:
  void Evalua(const Nodo& n, search::MapaFichas& mapa);
  void BuscaTermino(const Nodo& n, search::MapaFichas& mapa);
  void BuscaExpresion(const std::string& expresion, int campo, search::MapaFichas& mapa);

  std::unique_ptr<db::Database> biblio_;
  std::unique_ptr<db::Database> indice_;
  std::unique_ptr<search::Estado> estado_ = std::make_unique<search::Estado>();
};

// The directory of the book catalogue that the configuration file at
// `ruta_cfg` names in its "BASE:" section (the first line of the
// multiple-database form); nullopt when the file cannot be read or names
// none.
std::optional<std::string> DirectorioDeCFG(const std::string& ruta_cfg, FileSystem& archivos,
                                           Clock& reloj);

}  // namespace orvex::z3950
