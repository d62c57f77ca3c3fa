#pragma once

#include <string>

#include "cgi/Solicitud.h"

// The diagnostic commands that show the program, the request's
// configuration, the catalogues and one record. Each writes a whole page,
// HTTP header included, and leaves every database as it found it.
//
// "SHOW_VER" and "SHOW_BDT" answer anyone, on public pages that name no path
// of the server. "DEBUGCFG" and "SHOW_SEC" answer in full only to the
// administrator (gateway/PaginaDiagnostico.h says who that is).
namespace orvex::gateway {

// "SHOW_VER": the program's version and its components (database engine and
// its version, XSL processor module found or not).
void ShowVer(cgi::Solicitud& s, const std::string& expresion);

// "DEBUGCFG": the name and whole text of the configuration the request
// loaded, escaped; nothing else is read.
void DebugCfg(cgi::Solicitud& s, const std::string& expresion);

// "SHOW_BDT": per catalogue of "BASE:" (each line of the multiple-database
// form), named by its collection's name or else "Catálogo" and its number,
// the number of titles and copies, and when the books' word index was last
// built. A catalogue that cannot be read is reported with the error's
// number alone, since its description names the file.
void ShowBdt(cgi::Solicitud& s, const std::string& expresion);

// "SHOW_SEC n": every presentation of book record n and its XML documents.
void ShowSec(cgi::Solicitud& s, const std::string& expresion);

}  // namespace orvex::gateway
