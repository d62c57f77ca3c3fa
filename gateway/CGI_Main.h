#pragma once

#include <string>
#include <string_view>

#include "cgi/Solicitud.h"

namespace orvex::gateway {

inline constexpr std::string_view kVersionPrograma = "Orvex.exe act. 4.0 [20081215]";

// The request driver: version, watchdog, configuration file, expression, the
// diagnostic commands' chance, page prologue and the collection's procedure.
void CGI_Main(cgi::Solicitud& s);

// True when the first eight characters of `expresion`, upper-cased and
// trimmed, name a diagnostic command; the command has then written the whole
// response, HTTP header included (except "SHOW_VAR", which writes nothing).
bool ComandoDiagnostico(cgi::Solicitud& s, const std::string& expresion);

// The entry procedure: captures the request, checks the two engines, runs
// CGI_Main and deletes the request log; an unexpected error gives the error
// page. `red` is the network that the record pages' circulation server
// checks use; without one every server counts as unreachable. Returns the
// process's exit status (always 0).
int Principal(Servicios& sys, db::Opener& bases, Red* red = nullptr);

}  // namespace orvex::gateway
