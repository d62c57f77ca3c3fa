#include "cgi/Bitacora.h"

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/RuntimeError.h"

namespace orvex::cgi {
namespace {

// The host part of a log name. Kept as it always was: the routine tested its
// own still-empty result instead of the host name, so the part is always
// empty and every log is named "yyyymmdd_hhmmss-.log"; two requests that
// begin in the same second share one log.
std::string ParteHost(const std::string& /*remote_host*/) { return std::string(); }

void Timer1_Timer(Solicitud& s) { PaginaTiempoAgotado(s); }

void Timer2_Timer(Solicitud& s) {
  s.CONSULTA.ConexionCerrada = true;
  s.CONSULTA.Timer2.activo = false;
}

}  // namespace

void PaginaTiempoAgotado(Solicitud& s) {
  s.CONSULTA.Timer1.activo = false;
  const std::string archivo_err = FormatFileStamp(s.sys.reloj.Now()) + ".err";
  // Kept on purpose: the error record is opened on file number 0, which is
  // never valid, so the open fails with 52 and the watchdog never creates its
  // ".err" file; the failure path shows the "Timer Out:" page.
  const RuntimeError error = RuntimeError::Standard(kErrNombreArchivo);
  PaginaError(s, "Timer Out:" + std::to_string(error.number()) + "--" + error.description() +
                     "<br>ArchivoErr:" + archivo_err);
}

bool Vigilancia::Vencido() noexcept {
  return s_.CONSULTA.Timer1.Vencido(s_.sys.reloj.Milliseconds());
}

std::int64_t Vigilancia::RestanteMs() noexcept {
  // No watchdog, no deadline: a day stands for "unbounded".
  constexpr std::int64_t kSinPlazo = 24 * 3600 * 1000;
  if (!s_.CONSULTA.Timer1.activo) return kSinPlazo;
  const std::int64_t resta = s_.CONSULTA.Timer1.vence_ms - s_.sys.reloj.Milliseconds();
  return resta > 0 ? resta : 0;
}

void PaginaError(Solicitud& s, const std::string& mensaje) {
  Output& salida = s.sys.salida;
  salida.TruncateHere();
  salida.Rewind();
  if (!mensaje.empty()) s.TextoError = mensaje;
  EnviaLinea(salida, "<H4>Error en " + s.cgi.Variable("SCRIPT_NAME") + "</H4>");
  EnviaLinea(salida, "<p>Ha ocurrido el siguiente error interno:</p>");
  EnviaLinea(salida, "<PRE>" + s.TextoError + "<br>");
  EnviaLinea(salida, s.cfg.RutaBase + "<br>");
  EnviaLinea(salida, s.Traza + "</PRE>");
  EnviaLinea(salida, "<I>Por favor</I> ");
  EnviaLinea(salida, "notifiquelo al departamento de soporte de KORVEL: " +
                         std::string(kContactoSoporte) + "</p>");
  EnviaLinea(salida, std::string(s.VersionPrograma));
  salida.TruncateHere();
  throw ProcessEnd{};
}

void CreaLog(Solicitud& s) {
  const std::string nombre =
      FormatFileStamp(s.sys.reloj.Now()) + "-" + ParteHost(s.cgi.Variable("REMOTE_HOST")) + ".log";
  s.ArchivoLog = s.sys.archivos.ProgramDirectory() + "/" + nombre;
  s.Traza += "Creando log:" + s.ArchivoLog + "<br/>";
  Cede(s);
  std::string registro;
  const auto linea = [&registro](const std::string& texto) { registro += texto + "\r\n"; };
  linea("1 " + s.Traza);
  linea("2 " + s.cgi.Variable("REMOTE_ADDR"));
  linea("3 " + s.cgi.Variable("REMOTE_HOST"));
  linea("4 " + s.cgi.Variable("HTTP_USER_AGENT"));
  linea("5 Expresion: " + s.Expresion);
  linea("6 ArchivoCFG: " + s.cfg.ArchivoCFG);
  linea("7 " + s.VersionPrograma);
  s.sys.archivos.WriteAll(s.ArchivoLog, registro);
  s.Traza += "Log creado:" + s.ArchivoLog + "<br/>";
}

void BorraLog(Solicitud& s) {
  if (s.ArchivoLog.empty()) return;
  if (s.sys.archivos.Exists(s.ArchivoLog)) s.sys.archivos.Remove(s.ArchivoLog);
  s.Traza += "Log borrado:" + s.ArchivoLog + "<br/>";
}

void IniciaVigilancia(Solicitud& s) {
  const std::int64_t ahora = s.sys.reloj.Milliseconds();
  if (!s.CONSULTA.creada) {
    s.CONSULTA.creada = true;
    s.CONSULTA.Timer2.Activa(ahora);
  }
  if (!s.CONSULTA.Timer1.activo) s.CONSULTA.Timer1.Activa(ahora);
}

void Cede(Solicitud& s) {
  if (!s.CONSULTA.creada) return;
  const std::int64_t ahora = s.sys.reloj.Milliseconds();
  if (s.CONSULTA.Timer1.Vencido(ahora)) Timer1_Timer(s);
  if (s.CONSULTA.Timer2.Vencido(ahora)) Timer2_Timer(s);
}

}  // namespace orvex::cgi
