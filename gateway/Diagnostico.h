#pragma once

#include <string>
#include <string_view>

#include "cgi/Solicitud.h"

// The diagnostic commands typed into the search box. Each writes a whole
// page, HTTP header included, and leaves every database as it found it.
//
// "SHOW_VER" and "SHOW_BDT" answer anyone, and their pages name no path of
// the server (not even the program's directory of the standard header).
// "DEBUGCFG", "SHOW_SEC" and "TEST_ALL" show the installation's insides and
// answer in full only to the administrator (see ClienteAdministrador);
// anyone else gets a short page, as free of paths, saying the command is
// reserved.
namespace orvex::gateway {

// True when the request's REMOTE_ADDR is listed in the "DIAGNOSTICO:"
// section of the request's configuration: one entry per line, blank lines
// ignored; an entry ending in "." or ":" is a prefix ("192.168.1." admits
// 192.168.1.0 to 192.168.1.255), any other entry must equal the address.
// No address is trusted for itself: behind a reverse proxy every client
// comes from the loopback, which is the administrator only when listed.
// Only a configuration that was read from a "*.cfg" file of the program's
// directory (s.cfg.ArchivoCFG is that directory and the name) lists the
// administrator: a file that the old rule for "ArchivoCFG" reaches elsewhere
// may hold text the client wrote.
bool ClienteAdministrador(const cgi::Solicitud& s);

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

// "TEST_ALL": the installation checklist, one line per item: the
// configuration's sections, the safety settings of "orvex.ini" in effect,
// each catalogue's files (SQLite or Jet), tables and columns, a write check
// of the statistics file that leaves it as it was (a rolled-back row in
// SQLite; in Jet, where a row cannot be taken back, the writer's opening
// and lock-file check alone), the style sheets and the circulation servers.
void TestAll(cgi::Solicitud& s, const std::string& expresion);

}  // namespace orvex::gateway
