#pragma once

#include <string>

// The TCP side of the circulation server: one connection at a time, read the
// command (up to "</comandoSE>", at most 64 KB and 5 s), answer in one write,
// close.
namespace orvex::circulacion {

class Circulacion;

constexpr size_t kMaximoComando = 64 * 1024;
constexpr int kEsperaComandoMs = 5000;

// A listening IPv4 socket on `direccion`:`puerto` (0 takes a free port);
// -1 with `error` set when it cannot be had. `puerto` receives the real port.
int Escucha(const std::string& direccion, int& puerto, std::string& error);

// Serves connections on `escucha` until `fin` becomes readable (the signal
// handler writes to it).
void Sirve(Circulacion& circulacion, int escucha, int fin);

}  // namespace orvex::circulacion
