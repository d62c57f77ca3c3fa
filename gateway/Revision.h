#pragma once

#include <string>

#include "cgi/Solicitud.h"

// The installation checklist, the diagnostic command "TEST_ALL".
namespace orvex::gateway {

// "TEST_ALL": one line per item, each "correcto", "falló: " and the reason,
// or a note that is neither: the configuration's sections, the safety
// settings of "orvex.ini" in effect, each catalogue's directory and files
// (SQLite or Jet), tables and columns, a write check of the statistics file
// that leaves it as it was (a rolled-back row in SQLite; in Jet, where a row
// cannot be taken back, the writer's opening and lock-file check alone), the
// style sheets and the circulation servers; then how many items were checked
// and how many failed. It shows the installation's insides, so it answers in
// full only to the administrator (gateway/PaginaDiagnostico.h).
void TestAll(cgi::Solicitud& s, const std::string& expresion);

}  // namespace orvex::gateway
