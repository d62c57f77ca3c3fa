#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/Html.h"
#include "base/Plazo.h"
#include "base/Platform.h"
#include "base/Red.h"
#include "config/Ajustes.h"
#include "config/ArchivoCFG.h"
#include "config/Instalacion.h"
#include "db/Database.h"
#include "cgi/EntradaCGI.h"
#include "search/Busqueda.h"
#include "search/Paginacion.h"

namespace orvex::cgi {

// A timer of the hidden form: a deadline checked at yield points.
struct Temporizador {
  std::int64_t intervalo_ms = 0;
  bool activo = false;
  std::int64_t vence_ms = 0;

  void Activa(std::int64_t ahora_ms) {
    activo = true;
    vence_ms = ahora_ms + intervalo_ms;
  }
  bool Vencido(std::int64_t ahora_ms) const { return activo && ahora_ms >= vence_ms; }
};

// The hidden form that carries the timers.
struct FormaConsulta {
  bool creada = false;
  Temporizador Timer1{10000};  // watchdog
  Temporizador Timer2{2000};   // connection time-out of the circulation socket
  bool ConexionCerrada = false;
};

struct Solicitud;

// The watchdog's deadline as the operations below the driver see it: Timer1
// of the request's hidden form. Without a running watchdog there is no
// deadline.
class Vigilancia final : public Plazo {
 public:
  explicit Vigilancia(Solicitud& s) : s_(s) {}
  bool Vencido() noexcept override;
  std::int64_t RestanteMs() noexcept override;

 private:
  Solicitud& s_;
};

// Everything one request knows, owned by the entry procedure and passed down.
struct Solicitud {
  Solicitud(Servicios& servicios, db::Opener& abridor) : sys(servicios), bases(abridor) {}

  Servicios& sys;
  db::Opener& bases;
  config::Ajustes ajustes;  // the installation's safety settings (orvex.ini)
  Vigilancia plazo{*this};  // the watchdog's deadline
  EntradaCGI cgi;
  config::Configuracion cfg;
  config::Instalacion instalacion;  // the settings of the bibliographic database
  search::Estado busqueda;          // terms, advanced form and result bitmaps

  std::string VersionPrograma;
  std::string TextoLIB;
  std::string TextoEXPR1;
  std::string Expresion;

  // The book query's request fields (BUSQ_AVANZADA and BaseDTA live in cfg).
  std::uint8_t MostrarFichaBIB = 0;
  std::uint8_t MostrarFichaBDL = 0;
  // The book page shows one record asked for by its number ("txtNoFicha"):
  // its record takes "FORMATO_FICHA:" when the configuration has one.
  bool FichaSola = false;
  // The title of the record whose copies the availability and reservation
  // pages speak of ("<!TITULO!>"), when the gateway looked it up.
  std::string TituloFicha;
  std::uint8_t NoFormato = 0;
  std::string TxtTit, TxtAut, TxtTem;
  std::string TxtIsbn, TxtEdit, TxtSer, TxtClas;  // never read from the request
  std::string NombreBib;  // the library named on the page

  search::Paginacion pagina;  // the paging of the result page
  std::string ACERVO;
  bool GeneraLinksURL = true;
  std::int16_t TipoAcervo = 0;

  std::string Traza;       // HTML fragments, shown by the error page and the log
  // The style sheets (their texts) whose translation notices are already in
  // the trace: each sheet gives them once per request.
  std::set<std::string> HojasAvisadas;
  std::string TextoError;  // the last unexpected error
  std::string ArchivoLog;  // the request log, empty until one is made

  FormaConsulta CONSULTA;

  // The network of the circulation server checks; main() sets the real one.
  Red* red = nullptr;
  // Host checks already made in this request: the comments each wrote and
  // its outcome, by server, so that a page of records pings each server once.
  struct ChequeoServidor {
    std::vector<std::string> escrituras;  // what the check wrote to the page
    std::string direccion;                // the address it resolved
    bool disponible = false;
  };
  std::map<std::string, ChequeoServidor> servidores_revisados;

  // Request text as a page echoes it: escaped, unless the installation
  // asked for the old verbatim echo ("Ecos = literales").
  std::string Eco(std::string_view texto) const {
    return ajustes.ecos_literales ? std::string(texto) : EscapaEco(texto);
  }

  // The body of the configuration section `etiqueta`, dates filled in.
  std::string Seccion(std::string_view etiqueta) const {
    return config::SeccionCFG(cfg.TextoCFG, etiqueta, sys.reloj);
  }

  // The catalogue databases of the request, open until the process ends.
  std::unique_ptr<db::Database> BDBiblio;  // KORVEL8.MDB
  std::unique_ptr<db::Database> BDIndice;  // INDIZADO.MDB or indizaPP.MDB

  // What the search takes from the request: its state, its word index and
  // its output.
  search::Entorno EntornoBusqueda() { return {busqueda, BDIndice.get(), sys.salida}; }
};

}  // namespace orvex::cgi
