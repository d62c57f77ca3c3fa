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

  // One entry of a scan: a word of the index (UTF-8, as the index folds
  // it) and the records a search for it in the scanned index finds.
  struct Entrada {
    std::string palabra;
    std::int32_t fichas = 0;
  };
  // The words of the index `indice` in the word table's order around
  // `termino` (folded as the index folds words): up to `antes` words before
  // it and the word at or after it with those that follow, `cuantas` in
  // all. A word counts only when a search for it in `indice` finds
  // records; at most kMaximoPalabrasExploradas words are read for one scan,
  // after which the list ends short (`completa` false). `antes` becomes
  // the number of words placed before the start term.
  std::vector<Entrada> Explora(Indice indice, const std::string& termino, int& antes, int cuantas,
                               bool& completa);
  static constexpr int kMaximoPalabrasExploradas = 2000;

  // Record `numero`; false when the catalogue has no such record.
  bool Carga(std::int32_t numero, records::RegFicha& ficha);

  // Whether the catalogue keeps its source MARC records (orvex-catalogo's
  // table ORVEX_MARC).
  bool GuardaOrigenes();

  db::Database& Biblio() { return *biblio_; }
  db::Database& BaseIndice() { return *indice_; }

 private:
  void Evalua(const Nodo& n, search::MapaFichas& mapa);
  void BuscaTermino(const Nodo& n, search::MapaFichas& mapa);
  void BuscaExpresion(const std::string& expresion, int campo, search::MapaFichas& mapa);
  std::int32_t Cuenta(Indice indice, const std::string& palabra);

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
