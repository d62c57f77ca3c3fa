#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "base/Platform.h"
#include "db/Database.h"
#include "search/MapaFichas.h"

namespace orvex::search {

// One parsed search term.
struct TerminoBusqueda {
  // A word (it may end in "$"), or a phrase with its surrounding double quotes.
  std::string palabra;
  // Exactly "+" is OR, exactly "-" is AND NOT; anything else is AND.
  std::string operador;
  // The field to search in; 0 is any field.
  std::int16_t campo = 0;
};

inline constexpr int kMaximoTerminos = 31;

// The search state of one request.
struct Estado {
  std::array<TerminoBusqueda, kMaximoTerminos> Terminos;
  bool FinExpresion = false;
  // An expression of the request could not be read (the syntax-error
  // message was written): kept for the page to tell the reader.
  bool ErrorSintaxis = false;

  // The advanced-search form.
  std::string txtEXPR1, txtEXPR2, txtEXPR3;
  std::int16_t opCAMPO1 = 0, opCAMPO2 = 0, opCAMPO3 = 0;
  std::uint8_t opBOOLEAN1 = 0, opBOOLEAN2 = 0;

  MapaFichas MapaResultado;  // the answer
  MapaFichas MapaTermino;    // the hits of the term being looked up

  // Whether the word lists of `tabla` in the database numbered `base` are
  // in force, once asked (search/ListasPalabras.h).
  struct Listas {
    std::uint64_t base = 0;
    std::string tabla;
    bool vigentes = false;
  } listas;
};

// What a search works with, and all it takes from its caller: the search
// state it fills, the word index (none when it is not open, which a lookup
// reports as error 91) and the output a syntax error is written to.
struct Entorno {
  Estado& estado;
  db::Database* indice;
  Output& salida;
};

}  // namespace orvex::search
