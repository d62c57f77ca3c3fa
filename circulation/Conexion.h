#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/Platform.h"
#include "cgi/Solicitud.h"

// The connection to the library's circulation server, shared by the
// reservation and the availability pages.
namespace orvex::circulation {

// Where a connection stands.
enum class EstadoConexion {
  kEnCurso,      // not connected yet
  kEstablecida,  // connected
  kRechazada,    // the host answered that nobody listens at the port
  kSinNombre,    // the host's name does not resolve
  kFallida,      // any other failure
};

// A TCP connection to the circulation server, driven in short steps so that
// the request's timers run between them.
class Enchufe {
 public:
  virtual ~Enchufe() = default;
  // Starts connecting to `host` (a name or an address) at `puerto`: kEnCurso,
  // or how it already ended when that is known at once (kRechazada; kSinNombre
  // with the resolver's words in `razon`; kFallida with the system's).
  virtual EstadoConexion Inicia(const std::string& host, int puerto, std::string& razon) = 0;
  // Waits at most `espera_ms` for the connection: kEnCurso while it is not
  // made yet, kEstablecida, kRechazada, or kFallida with the system's reason.
  virtual EstadoConexion Conectado(int espera_ms, std::string& razon) = 0;
  // Sends all of `datos`; false when the connection broke.
  virtual bool Envia(std::string_view datos) = 0;
  // Waits at most `espera_ms` for data: the bytes of one arrival, an empty
  // text when the server closed without sending, nothing when none came yet.
  virtual std::optional<std::string> Recibe(int espera_ms) = 0;
};

// The real one, over POSIX sockets.
std::unique_ptr<Enchufe> EnchufePosix();

// What the page says of a host that refuses the connection: the reason
// ("el servidor rechazó la conexión"), or "Conexion TimeOut" as for a server
// that never answers.
enum class AvisoRechazo { kRazon, kTimeOut };

// Connects `enchufe` to `direccion`:`puerto_texto` (the port as PuertoTCP
// reads it) within Timer2's 2 s, serving the request's timers at each 50 ms
// step. On failure writes the one line that says why, with no HTTP header
// before it, and returns false: "<h1>Error: no se pudo establecer la
// conexion: " and "puerto TCP no válido: " with the port's text, "no se
// encontró el servidor " with the host and the resolver's words, the refusal
// as `rechazo` says, "Conexion TimeOut", the reason the system gives, or
// "error desconocido: " and the rounds. The host and the port's text are
// echoed through the request's Eco. A failure known at once is written at
// once: nothing waits for Timer2.
bool ConectaServidor(cgi::Solicitud& s, Enchufe& enchufe, const std::string& direccion,
                     const std::string& puerto_texto, AvisoRechazo rechazo);

// "Content-Type: text/html" and "Cache-Control: public" with the blank line.
void CabeceraCirculacion(Output& salida);

// How long each wait for the server lasts before the timers get their turn.
inline constexpr int kPasoMs = 50;

}  // namespace orvex::circulation
