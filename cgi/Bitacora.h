#pragma once

#include <string>

#include "cgi/Solicitud.h"

namespace orvex::cgi {

// The support address on the error page.
inline constexpr std::string_view kContactoSoporte = "soporte@orvex.example";

// Writes the error page over whatever was written (a seekable output is
// rewound and truncated; on a pipe the page follows the earlier output) and
// ends the process by throwing ProcessEnd. A non-empty `mensaje` replaces
// TextoError. Writes no HTTP header.
[[noreturn]] void PaginaError(Solicitud& s, const std::string& mensaje);

// Creates the request log "yyyymmdd_hhmmss-.log" in the program's directory
// with its seven lines; a yield point. Raises when the file cannot be made.
void CreaLog(Solicitud& s);

// Deletes the request log, if one was made, and notes it in the trace.
void BorraLog(Solicitud& s);

// Creates the hidden form on first use (Timer2 starts with it) and enables
// the watchdog Timer1. A watchdog already running keeps its deadline: the
// entry procedure starts it before reading the body, and the request's ten
// seconds count from then.
void IniciaVigilancia(Solicitud& s);

// The watchdog's page ("Timer Out:" with error 52), which ends the process:
// what a request gets when its time is up, at a yield point or inside an
// operation that stopped with TiempoAgotado.
[[noreturn]] void PaginaTiempoAgotado(Solicitud& s);

// A yield point: delivers the timer events that are due. The watchdog ends
// the process from here; the connection time-out sets ConexionCerrada.
void Cede(Solicitud& s);

}  // namespace orvex::cgi
