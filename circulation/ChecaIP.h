#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/Platform.h"
#include "base/Red.h"

// The host check made before the availability client talks to the
// circulation server: resolve the server's host to an IPv4 address and send
// it one echo request, so that a dead server does not hold up a result page.
namespace orvex::circulation {

// Resolves `host`, writes "<!-- ChecaIP: <address>-->", sends a 32-byte echo
// with a 200 ms time-out and writes "<!-- ChecaIP: Error en ping-<address> -->"
// when it fails. True when the reply matches and came within `maxMs`
// milliseconds; then `host` becomes the address. A line naming the probe used
// and its outcome is appended to `traza` (a fragment for the request trace).
bool ChecaIP(Red& red, Output& salida, std::string& host, std::int32_t& maxMs,
             std::string& traza);

// The first IPv4 address of `host` (trimmed) in dotted form; an empty host
// means this machine. On failure returns empty text and sets `error` to
// "Windows Sockets error <n> has occurred. Unable to successfully get Host
// Name." and CR LF, <n> being the resolver's error number.
std::string ResuelveHost(Red& red, const std::string& host, std::string& error);

// One echo to `host` (resolved first unless it is a dotted address) with a
// payload of `tamano` random characters coded 1 to 255 (`tamano` below 1
// becomes 10) and a time-out of `espera` ms. Returns the status; `tiempo` is
// the round trip as "<n> ms"; `respuestaOk` tells whether the reply, cut at its
// first NUL and at 250 characters, equals the payload. The probe used and the
// outcome are appended to `traza`.
int HacePing(Red& red, std::string host, std::string& tiempo, bool& respuestaOk,
             std::int32_t& tamano, int espera, std::string& traza);

// The address written in `texto` as four decimal numbers 0 to 255 joined by
// "." (first octet most significant); 0 when the text is anything else,
// blanks included.
std::uint32_t DireccionIP(const std::string& texto);

// Socket start and release. Linux sockets need neither, so the start always
// succeeds and leaves `error` alone; they stay so that the check keeps its
// shape.
bool IniciaWinsock(std::string& error);
void TerminaWinsock();

}  // namespace orvex::circulation
