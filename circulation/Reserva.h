#pragma once

#include <string>

#include "circulation/Conexion.h"
#include "gateway/Solicitud.h"

// The reservation of a copy: the sign-in page ("VRESERVA") and the exchange
// with the library's circulation server ("CRESERVA").
namespace orvex::circulation {


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
