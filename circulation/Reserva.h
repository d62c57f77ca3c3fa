#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/Solicitud.h"

// The reservation of a copy: the sign-in page ("VRESERVA") and the exchange
// with the library's circulation server ("CRESERVA").
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

// "VRESERVA": the HTTP header and the page with the section
// "RESERVA_MATERIAL:", its "<!COMANDO_SE!>" (CRESERVA), "<!DIRECCIONIP!>",
// "<!PUERTOTCP!>", "<!DISP_NUMADQUI!>" and "<!ArchivoCFG!>" filled from the
// request.
void PaginaReserva(gateway::Solicitud& s, const std::string& expresion);

// "CRESERVA": connects to "direccionIP":"puertoTCP" within 2 s (else the
// "Conexion TimeOut" line, with no HTTP header before it), sends
// "<comandoSE class='RESERVA'><NumAdqui>..</NumAdqui><NumCta>..</NumCta>
// <PWD/></comandoSE>" (the password is never sent) and waits for the answer
// as long as the watchdog allows; then the header and "MSG_RESERVA_EXITOSA:"
// or "MSG_RESERVA_ERROR:" by the first "Reservacion" element's first
// attribute "Estado" (0: accepted; otherwise its second attribute is the
// reason), or the line that says what was wrong with the answer.
void Reserva(gateway::Solicitud& s, const std::string& expresion);

// The same with the connection given (tests).
void Reserva(gateway::Solicitud& s, Enchufe& enchufe);

}  // namespace orvex::circulation
