#pragma once

#include <string>
#include <string_view>

#include "gateway/Solicitud.h"

// The diagnostic commands typed into the search box. Each writes a whole
// page, HTTP header included, and leaves every database as it found it.
//
// "SHOW_VER" and "SHOW_BDT" answer anyone. "DEBUGCFG", "SHOW_SEC" and
// "TEST_ALL" show the installation's insides and answer in full only to the
// administrator (see ClienteAdministrador); anyone else gets a short page
// saying the command is reserved.
namespace orvex::gateway {

// True when the request's REMOTE_ADDR is a loopback address (127.0.0.0/8,
// "::1", "::ffff:127.x.x.x") or is listed in the configuration's optional
// "DIAGNOSTICO:" section: one entry per line, blank lines ignored; an entry
// ending in "." or ":" is a prefix ("192.168.1." admits 192.168.1.0 to
// 192.168.1.255), any other entry must equal the address.
bool ClienteAdministrador(const Solicitud& s);

// `texto` with "&", "<", ">" and "\"" written as character references.
std::string EscapaHTML(std::string_view texto);

// "SHOW_VER": the program's version and its components (database engine and
// its version, XSL processor module found or not).
void ShowVer(Solicitud& s, const std::string& expresion);

// "DEBUGCFG": the configuration file's name and whole text.
void DebugCfg(Solicitud& s, const std::string& expresion);

// "SHOW_BDT": per catalogue of "BASE:" (each line of the multiple-database
// form), the number of titles and copies, and when the books' word index was
// last built.
void ShowBdt(Solicitud& s, const std::string& expresion);

// "SHOW_SEC n": every presentation of book record n and its XML documents.
void ShowSec(Solicitud& s, const std::string& expresion);

// "TEST_ALL": the installation checklist, one line per item.
void TestAll(Solicitud& s, const std::string& expresion);

}  // namespace orvex::gateway
