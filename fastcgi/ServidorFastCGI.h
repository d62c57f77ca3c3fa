#pragma once

#include <functional>
#include <string>

#include "base/Platform.h"

// Orvex as a FastCGI worker: the web server keeps the process and hands it
// one request after another over the socket it started it with.
namespace orvex::fastcgi {

// True when the process was started by a FastCGI server (its standard
// input is the listening socket), false when it runs as a CGI program.
bool EsFastCGI();

// What one request brings and takes: its parameters as the environment,
// its body as the input and its page as the output.
using Atiende = std::function<void(Environment& entorno, Input& entrada, Output& salida)>;

// Accepts requests on the socket the server started the process with,
// until the server closes it, and runs `atiende` for each with an
// environment, input and output of that request alone. The page is kept
// in memory while the request runs, as a file: a rewind and truncation
// (the error page over what was written) work as on a CGI output to a
// file, and the bytes go to the server when the request ends. Returns the
// process's exit status.
int Sirve(const Atiende& atiende);

}  // namespace orvex::fastcgi
