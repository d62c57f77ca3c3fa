#pragma once

#include <string>

#include "circulation/Conexion.h"
#include "cgi/Solicitud.h"

// The availability of a record's copies ("CVERDISP"), asked of the library's
// circulation server and shown through five sections of the configuration.
//
// The request carries "NoFicha" (the record number) and "BaseDTA" (the
// database set, 0 when absent). The server is the one that the
// "DISPONIBILIDAD:" section names for that BaseDTA: the address and port in
// the request, which the record display also writes, are not used, so a
// request cannot make Orvex connect elsewhere.
//
// Command, sent as is with no line end:
//   <comandoSE class='DISPONIBILIDAD'><Ficha>N</Ficha></comandoSE>
// Answer, read until the server closes the connection or the closing tag
// arrives (at most 1 MB):
//   <Disponibilidad Ficha='N'>
//     <Ejemplar NumAdqui='..' Biblioteca='..' Volumen='..' Ejemplar='..'
//               Estado='disponible|prestado|reservado|no accesible'
//               Vence='dd/mm/yyyy'/> ...
//   </Disponibilidad>
// or <Error Mensaje='..'/>. Attributes are taken by name; a missing one is
// empty. Texts travel in Windows-1252.
//
// The page, after the HTTP header:
//   "ENCABEZADO_DISPONIBILIDAD:", then "DETALLE_DISPONIBILIDAD:" once per
//   copy in the server's order, then "FINAL_DISPONIBILIDAD:". The head and
//   foot get <!NFICHA!>, <!BaseDTA!>, <!ArchivoCFG!> (the request's field,
//   as the record display writes it), <!TOTAL!> (copies) and
//   <!DISPONIBLES!> (copies whose state is "disponible"). Each copy gets
//   <!NUMADQUI!>, <!BIBLIOTECA!>, <!VOLUMEN!>, <!EJEMPLAR!>, <!VENCE!>,
//   <!ESTADO!> (the state in words: "Disponible", "Prestado", "Reservado",
//   "No accesible", or as sent), <!CODIGO_ESTADO!> (the state as sent), the
//   head's placeholders, and <!ACCION!>: for a copy that can be asked for
//   ("disponible" or "prestado") the section "ACCION_DISPONIBILIDAD:" with
//   <!COMANDO_SE!> ("VRESERVA"), <!DIRECCIONIP!>, <!PUERTOTCP!>,
//   <!DISP_NUMADQUI!>, <!NFICHA!> and <!ArchivoCFG!>; otherwise nothing.
//   Every value from the server is written with "&", "<", ">" and both quotes as
//   character references.
//
// Failures, one line each:
//   - no server for BaseDTA, a refused or unresolvable address, the 2 s
//     connection time-out: the connection lines of ConectaServidor, with no
//     HTTP header before them (a refusal in its own words, "el servidor
//     rechazó la conexión", since the server is the configuration's);
//   - after the header: "<h1>Error: al cargar doc. XML de respuesta a
//     comando de disponibilidad</h1>" (not a document),
//     "<h1>Error: al cargar Nodo de Respuesta de Disponibilidad</h1>" (no
//     "Disponibilidad" element), "<h1>Error: el servidor de circulacion
//     respondio: " and its message "</h1>" (an "Error" element), or
//     "<h1>Error: la respuesta del servidor de circulacion excede 1 MB</h1>".
//   A server that never answers keeps the request until the watchdog.
namespace orvex::circulation {

void VerDisponibilidad(cgi::Solicitud& s, const std::string& expresion);

// The same with the connection given (tests).
void VerDisponibilidad(cgi::Solicitud& s, Enchufe& enchufe);

// The most of an answer that is read.
inline constexpr std::size_t kMaxRespuestaDisponibilidad = 1 << 20;

}  // namespace orvex::circulation
