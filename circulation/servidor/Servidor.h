#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

// The TCP side of the circulation server: one thread serves every connection
// at once through poll, so that a client that is slow to send its command or
// to take its answer never holds up another. A connection sends one command,
// up to and including "</comandoSE>", gets the answer and is closed.
namespace orvex::circulation::servidor {

// What the server does with one command: the answer to write back. It runs
// on the serving thread, one command at a time.
using Atencion = std::function<std::string(std::string_view comando)>;

// What each connection may take.
struct Limites {
  // The longest command, its end tag included; a connection that sends more
  // without completing one is closed without an answer.
  std::size_t maximo_comando = 64 * 1024;
  // From the connection to the command's end tag.
  std::chrono::milliseconds espera_comando{5000};
  // From the command's end tag until the client has taken the whole answer.
  std::chrono::milliseconds espera_respuesta{5000};
  // Connections served at once; a new one beyond them closes the oldest.
  std::size_t maximo_conexiones = 256;
};

// A listening, non-blocking IPv4 socket on `direccion`:`puerto` (0 takes a
// free port); -1 with `error` set when it cannot be had. `puerto` receives
// the real port.
int Escucha(const std::string& direccion, int& puerto, std::string& error);

// Serves the connections of `escucha` (from Escucha) with `atiende` within
// `limites` until `fin` becomes readable (the signal handler writes to it);
// then closes every connection still open. A connection that exceeds a
// limit, or is closed to make room, is reset: the client sees it end at
// once and the server keeps nothing of it.
void Sirve(const Atencion& atiende, int escucha, int fin, const Limites& limites = {});

}  // namespace orvex::circulation::servidor
