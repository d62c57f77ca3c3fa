#include "gateway/CGI_Main.h"

#include <new>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Plazo.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/ArchivoCFG.h"
#include "config/Plantillas.h"
#include "cgi/Bitacora.h"
#include "gateway/Comandos.h"
#include "queries/ExportaLibros.h"
#include "cgi/Encabezado.h"
#include "search/Normalizacion.h"

namespace orvex::gateway {
namespace {

void PaginaSinArchivoCFG(cgi::Solicitud& s) {
  Output& salida = s.sys.salida;
  cgi::EnviaEncabezado(s, "");
  EnviaLinea(salida, "<HTML><BODY>");
  EnviaLinea(salida, Latin1("<h3>No se recibió parametro de ArchivoCFG. Ejecución finalizada </h3>"));
  EnviaLinea(salida, "<h4>" + s.VersionPrograma + "</h4>");
  EnviaLinea(salida, "</BODY></HTML>");
}

// The answer to a request larger than the installation accepts, given
// before its body is read.
void PaginaSolicitudExcesiva(cgi::Solicitud& s) {
  Output& salida = s.sys.salida;
  cgi::EnviaEncabezado(s, "");
  EnviaLinea(salida, "<HTML><BODY>");
  EnviaLinea(salida, Latin1("<h3>La solicitud es demasiado grande: Orvex acepta formularios de "
                            "hasta ") +
                         std::to_string(s.ajustes.cuerpo_maximo) +
                         Latin1(" bytes. Revise la página de consulta que la envió.</h3>"));
  EnviaLinea(salida, "<h4>" + std::string(kVersionPrograma) + "</h4>");
  EnviaLinea(salida, "</BODY></HTML>");
}

void EnviaPrologo(cgi::Solicitud& s) {
  Output& salida = s.sys.salida;
  cgi::EnviaCabeceraHTTP(s);
  EnviaLinea(salida, Latin1("<!--Versión 1.2 -->"));
  EnviaLinea(salida,
             "<!--Orvex, ultimo cambio: 4-DIC-03 : corregido el mensaje de XML incorrecto en "
             "libros -->");
  EnviaLinea(salida, "");
}

std::string ExpresionNormalizada(cgi::Solicitud& s, std::string_view campo) {
  std::string texto = cgi::ValorCGI(s.cgi, campo);
  return search::QuitaAcentos(texto);
}

// The entry procedure's handler: the error's description and number on the
// error page, which ends the process.
// A description may quote request text (a column the listing was asked
// for), so it is echoed.
[[noreturn]] void ErrorInesperado(cgi::Solicitud& s, const RuntimeError& error) {
  s.TextoError = cgi::EcoEnTexto(s, error.description()) + " Error Number = " + std::to_string(error.number());
  cgi::PaginaError(s, "");
}

}  // namespace

void CGI_Main(cgi::Solicitud& s) {
  s.VersionPrograma = std::string(kVersionPrograma);
  cgi::IniciaVigilancia(s);
  s.cfg.ArchivoCFG = cgi::ValorCGI(s.cgi, "ArchivoCFG");
  s.Traza += "Entrada a CGI_Main, ArchivoCFG:" + s.Eco(s.cfg.ArchivoCFG) + "[]<br/>";
  if (s.cfg.ArchivoCFG.empty()) {
    PaginaSinArchivoCFG(s);
    return;
  }
  s.cfg.TextoCFG = config::CargaCFG(s.cfg.ArchivoCFG, s.sys, s.ajustes);

  s.TextoLIB = ExpresionNormalizada(s, "txtLIB");
  std::string expresion = s.TextoLIB;
  if (expresion.empty()) {
    s.TextoEXPR1 = ExpresionNormalizada(s, "txtEXPR1");
    if (!s.TextoEXPR1.empty()) expresion = s.TextoEXPR1;
  }
  s.Expresion = expresion;
  if (ComandoDiagnostico(s, expresion)) return;
  // An export answers with a file, not a page: no prologue.
  if (queries::PideExportacion(s)) {
    queries::ExportaLibros(s);
    return;
  }

  EnviaPrologo(s);
  s.ACERVO = UpperLatin1(cgi::ValorCGI(s.cgi, "ACERVO"));
  const std::string links = cgi::ValorCGI(s.cgi, "generaLINKsURL");
  s.GeneraLinksURL = links.empty() ? true : ToBoolean(links);
  s.Traza += "Entrada a rutina de Acervo: " + s.Eco(s.ACERVO) + "<br>";

  const Coleccion* coleccion = BuscaColeccion(s.ACERVO);
  if (coleccion == nullptr) {
    config::MensajeH4(s.sys.salida,
                      "El acervo seleccionado para la consulta (" + s.Eco(s.ACERVO) +
                          Latin1(") es incorrecto. Verifique la sintaxis de su página HTML"));
    return;
  }
  if (coleccion->tipo) s.TipoAcervo = *coleccion->tipo;
  coleccion->consulta(s);
}

bool ComandoDiagnostico(cgi::Solicitud& s, const std::string& expresion) {
  if (expresion.empty()) return false;
  const Comando* comando = BuscaComando(NombreDeComando(expresion));
  if (comando == nullptr) return false;
  comando->ejecuta(s, expresion);
  return true;
}

int Principal(Servicios& sys, db::Opener& bases, Red* red) {
  cgi::Solicitud s(sys, bases);
  s.red = red;
  s.ajustes = config::LeeAjustes(sys.archivos, sys.archivos.ProgramDirectory());
  // Every database and every transformation of the request stops when the
  // request's time is up; the deadline goes with the request.
  struct Vigilante {
    db::Opener& bases;
    MotorXSL& xsl;
    ~Vigilante() {
      bases.Vigila(nullptr);
      xsl.Vigila(nullptr);
    }
  } vigilante{bases, sys.motores.Xsl()};
  bases.Vigila(&s.plazo);
  sys.motores.Xsl().Vigila(&s.plazo);
  try {
    try {
      // The watchdog runs from the start, so that a body that never comes
      // holds the request no longer than any other step.
      cgi::IniciaVigilancia(s);
      cgi::LeeVariablesCGI(s.cgi, sys.entorno);
      if (cgi::SolicitudExcesiva(s.cgi, s.ajustes.cuerpo_maximo)) {
        PaginaSolicitudExcesiva(s);
        return 0;
      }
      cgi::LeeDatosForma(s.cgi, sys.entrada, &s.plazo);
      if (cgi::PideUTF8(s.cgi, s.ajustes.solicitudes_utf8)) cgi::LeeCamposUTF8(s.cgi);
      if (!sys.motores.DatabaseEngineWorks()) {
        EnviaLinea(sys.salida,
                   Latin1("<html><body> <center> <h1> No se encontró el DAO 3.6 <br> instalado en "
                          "el Servidor de Web </h1> <p> Es necesario instalar algunos "
                          "componentes en el Servidor </html> "));
      } else if (!sys.motores.XmlParserWorks()) {
        EnviaLinea(sys.salida,
                   Latin1("<html><body> <center> <h1> No se encontró el XML versión 3 <br> "
                          "instalado en el Servidor de Web </h1> <p> Es necesario instalar "
                          "algunos componentes en el Servidor </html> "));
      } else {
        s.Traza = "CGI inicializado, comienza ...";
        CGI_Main(s);
      }
      cgi::BorraLog(s);
    } catch (const TiempoAgotado&) {
      cgi::PaginaTiempoAgotado(s);
    } catch (const RuntimeError& error) {
      ErrorInesperado(s, error);
    } catch (const std::bad_alloc&) {
      ErrorInesperado(s, RuntimeError::Standard(kErrMemoriaInsuficiente));
    } catch (const std::exception&) {
      ErrorInesperado(s, RuntimeError::Standard(kErrInterno));
    }
  } catch (const ProcessEnd&) {
  }
  return 0;
}

}  // namespace orvex::gateway
