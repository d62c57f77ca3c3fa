#pragma once

#include <string>

#include "base/Platform.h"

namespace orvex {

// The one output routine: appends CR LF to the caller's text (which keeps it
// afterwards) and writes the text with a single write. Every byte of every
// page, HTTP header lines included, passes through here.
void EnviaLinea(Output& salida, std::string& texto);
void EnviaLinea(Output& salida, std::string&& texto);

}  // namespace orvex
