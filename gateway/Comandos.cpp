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
#include "queries/TituloFicha.h"
#include "cgi/EntradaCGI.h"

namespace orvex::gateway {
namespace {

// The availability and reservation pages, with the record's title looked
// up only for a configuration whose sections show it ("<!TITULO!>").
bool MuestraTitulo(const cgi::Solicitud& s) {
  return s.cfg.TextoCFG.find("<!TITULO!>") != std::string::npos;
}
void Disponibilidad(cgi::Solicitud& s, const std::string& comando) {
  if (MuestraTitulo(s)) {
    const std::string ficha = cgi::ValorCGI(s.cgi, "NoFicha");
    if (IsWholeNumber(ficha) && ficha.size() <= 9) {
      s.TituloFicha = queries::TituloDeFicha(s, static_cast<std::int32_t>(LeadingNumber(ficha)));
    }
  }
  circulation::VerDisponibilidad(s, comando);
}
void PaginaReserva(cgi::Solicitud& s, const std::string& comando) {
  if (MuestraTitulo(s)) {
    s.TituloFicha = queries::TituloDeEjemplar(s, TrimBlanks(cgi::ValorCGI(s.cgi, "NumAdqui")));
  }
  circulation::PaginaReserva(s, comando);
}

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
    {"CVERDISP", Disponibilidad},
    {"VRESERVA", PaginaReserva},
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
