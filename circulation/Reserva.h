#pragma once

#include <string>

#include "circulation/Conexion.h"
#include "cgi/Solicitud.h"

// The reservation of a copy: the sign-in page ("VRESERVA") and the exchange
// with the library's circulation server ("CRESERVA").
namespace orvex::circulation {

// "VRESERVA": the HTTP header and the page with the section
// "RESERVA_MATERIAL:", its "<!COMANDO_SE!>" (CRESERVA), "<!DIRECCIONIP!>",
// "<!PUERTOTCP!>", "<!DISP_NUMADQUI!>" and "<!ArchivoCFG!>" filled from the
// request through its Eco; "<!ArchivoCFG!>" is the name as the request gave
// it (trimmed), or the loader's completed path where the installation lets
// "ArchivoCFG" be any path.
void PaginaReserva(cgi::Solicitud& s, const std::string& expresion);

// "CRESERVA": the server is "direccionIP":"puertoTCP" only when a line of
// "DISPONIBILIDAD:" (any BaseDTA) lists that host (letter case aside) and
// port (as a number), and then the line's own host and port are used; any
// other gets "<h1>Error: no se pudo establecer la conexion: Conexion
// TimeOut</h1>" with nothing looked up or connected, unless the installation
// lets reservations go to any server. Connects within 2 s (a refusal, or the
// time-out, is the same "Conexion TimeOut" line; a failure is one line; none
// has an HTTP header before it), sends "<comandoSE class='RESERVA'>
// <NumAdqui>..</NumAdqui><NumCta>..</NumCta><PWD/></comandoSE>" with both
// values XML-escaped and their control characters as character references
// (the password is never sent) and waits for the answer as long as the
// watchdog allows; then the header and "MSG_RESERVA_EXITOSA:" or
// "MSG_RESERVA_ERROR:" by the first "Reservacion" element's first attribute
// "Estado" (0: accepted; otherwise its second attribute is the reason,
// echoed as request text when the server is not a listed one), or the line
// that says what was wrong with the answer.
void Reserva(cgi::Solicitud& s, const std::string& expresion);

// The same with the connection given (tests).
void Reserva(cgi::Solicitud& s, Enchufe& enchufe);

}  // namespace orvex::circulation
