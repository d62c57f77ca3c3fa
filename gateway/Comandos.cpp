#include "gateway/Comandos.h"

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "circulation/Reserva.h"
#include "circulation/VerDisponibilidad.h"
#include "gateway/Diagnostico.h"
#include "gateway/Revision.h"
#include "queries/ConsultaLibros.h"
#include "queries/BuscaPorNumAdqui.h"
#include "queries/ConsultaCatalogo.h"
#include "queries/ConsultaRevistas.h"

namespace orvex::gateway {
namespace {

// Kept on purpose: "SHOW_VAR" is recognised and answers with nothing at all,
// not even an HTTP header.
void ShowVar(cgi::Solicitud&, const std::string&) {}

constexpr Coleccion kColecciones[] = {
    {"LIBROS", 0, queries::ConsultaLibros},
    {"", 0, queries::ConsultaLibros},
    {"REVISTAS", 1, queries::ConsultaRevistas},
    {"ARTICULOS", 2, queries::ConsultaArticulos},
    {"CATALOGOS", std::nullopt, queries::ConsultaCatalogo},
};

const Comando kComandos[] = {
    {"DEBUGCFG", DebugCfg},
    {"SHOW_NUM", queries::BuscaPorNumAdqui},
    {"SHOW_VER", ShowVer},
    {"SHOW_BDT", ShowBdt},
    {"SHOW_VAR", ShowVar},
    {"SHOW_SEC", ShowSec},
    {"CVERDISP", circulation::VerDisponibilidad},
    {"VRESERVA", circulation::PaginaReserva},
    {"CRESERVA", circulation::Reserva},
    {"TEST_ALL", TestAll},
};

}  // namespace

std::string NombreDeComando(std::string_view expresion) {
  return TrimBlanks(UpperLatin1(expresion.substr(0, 8)));
}

const Coleccion* BuscaColeccion(std::string_view acervo) {
  for (const Coleccion& c : kColecciones) {
    if (c.acervo == acervo) return &c;
  }
  return nullptr;
}

const Comando* BuscaComando(std::string_view nombre) {
  for (const Comando& c : kComandos) {
    if (c.nombre == nombre) return &c;
  }
  return nullptr;
}

}  // namespace orvex::gateway
