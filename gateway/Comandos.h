#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "cgi/Solicitud.h"

// The dispatch table: the collections that "ACERVO" selects and the
// diagnostic commands typed into the search box.
namespace orvex::gateway {

struct Coleccion {
  std::string_view acervo;                // the upper-cased "ACERVO" value
  std::optional<std::int16_t> tipo;       // TipoAcervo it sets, if any
  void (*consulta)(cgi::Solicitud& s);         // writes the page after the prologue
};

struct Comando {
  std::string_view nombre;  // eight characters
  void (*ejecuta)(cgi::Solicitud& s, const std::string& expresion);  // writes the whole response
};

// The command name an expression gives: its first eight characters,
// upper-cased, blanks trimmed.
std::string NombreDeComando(std::string_view expresion);

// The collection for an upper-cased "ACERVO" value, or nullptr.
const Coleccion* BuscaColeccion(std::string_view acervo);

// The command named exactly `nombre`, or nullptr.
const Comando* BuscaComando(std::string_view nombre);

}  // namespace orvex::gateway
