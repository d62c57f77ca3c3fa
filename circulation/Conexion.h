#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/Platform.h"
#include "gateway/Solicitud.h"

// The connection to the library's circulation server, shared by the
// reservation and the availability pages.
namespace orvex::circulation {

// A TCP connection to the circulation server, driven in short steps so that
// the request's timers run between them.
class Enchufe {
 public:
  virtual ~Enchufe() = default;
  // Starts connecting to `host` (a name or an address) at `puerto`. False,
  // with the reason, when it cannot even start (the name does not resolve).
  virtual bool Inicia(const std::string& host, int puerto, std::string& razon) = 0;
  // Waits at most `espera_ms` for the connection: 1 connected, 0 not yet,
  // -1 refused or failed (with the reason).
  virtual int Conectado(int espera_ms, std::string& razon) = 0;
  // Sends all of `datos`; false when the connection broke.
  virtual bool Envia(std::string_view datos) = 0;
  // Waits at most `espera_ms` for data: the bytes of one arrival, an empty
  // text when the server closed without sending, nothing when none came yet.
  virtual std::optional<std::string> Recibe(int espera_ms) = 0;
};

// The real one, over POSIX sockets.
std::unique_ptr<Enchufe> EnchufePosix();

// Connects `enchufe` to `direccion`:`puerto_texto` within Timer2's 2 s,
// serving the request's timers at each 50 ms step. On failure writes the one
// line that says why, with no HTTP header before it, and returns false:
// "<h1>Error: no se pudo establecer la conexion: " and "Conexion TimeOut",
// the reason the system gives, or "error desconocido: " and the rounds.
bool ConectaServidor(gateway::Solicitud& s, Enchufe& enchufe, const std::string& direccion,
                     const std::string& puerto_texto);

// "Content-Type: text/html" and "Cache-Control: public" with the blank line.
void CabeceraCirculacion(Output& salida);

// How long each wait for the server lasts before the timers get their turn.
inline constexpr int kPasoMs = 50;

}  // namespace orvex::circulation
