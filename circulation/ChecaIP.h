#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/Platform.h"

// The host check made before the availability client talks to the
// circulation server: resolve the server's host to an IPv4 address and send
// it one echo request, so that a dead server does not hold up a result page.
namespace orvex::circulation {

// Echo statuses, numbered as the circulation code has always reported them.
inline constexpr int kIpSuccess = 0;
inline constexpr int kIpDestNetUnreachable = 11002;
inline constexpr int kIpDestHostUnreachable = 11003;
inline constexpr int kIpDestProtUnreachable = 11004;
inline constexpr int kIpDestPortUnreachable = 11005;
inline constexpr int kIpReqTimedOut = 11010;
inline constexpr int kIpGeneralFailure = 11050;

// The network as the host check sees it.
class Red {
 public:
  virtual ~Red() = default;
  // The first IPv4 address of `host` in dotted form; nullopt when the lookup
  // fails, with the resolver's error number in `error`.
  virtual std::optional<std::string> Resuelve(const std::string& host, int& error) = 0;
  // This machine's own name; nullopt on failure, with the error in `error`.
  virtual std::optional<std::string> NombreLocal(int& error) = 0;
  // Sends one echo request carrying `payload` to `address` (first octet most
  // significant) and waits at most `timeout_ms` for the answer. Returns the
  // status (kIpSuccess when answered); sets `rtt_ms` to the round trip in
  // whole milliseconds, `reply` to the data that came back and `metodo` to the
  // name of the probe used.
  virtual int Eco(std::uint32_t address, const std::string& payload, int timeout_ms,
                  int& rtt_ms, std::string& reply, std::string& metodo) = 0;
};

// The real network. Echo probes, tried in this order:
//   "icmp-dgram"  unprivileged ICMP echo socket, where net.ipv4.ping_group_range
//                 admits the process's group;
//   "icmp-raw"    raw ICMP socket (root or CAP_NET_RAW);
//   "tcp/7"       a TCP connection to the echo port. A refused connection is an
//                 answer from the host (its round trip counts and the payload is
//                 taken as echoed); an accepted one gets the payload written and
//                 whatever the service sends back within the time-out is the
//                 reply. No answer in time is kIpReqTimedOut, as for ICMP.
// The constructor can pin one probe (tests use it to exercise each of them);
// a pinned probe that cannot be opened gives kIpGeneralFailure.
class RedPosix : public Red {
 public:
  enum class Sondeo { kAuto, kIcmpDgram, kIcmpRaw, kTcp };
  explicit RedPosix(Sondeo sondeo = Sondeo::kAuto) : sondeo_(sondeo) {}

  std::optional<std::string> Resuelve(const std::string& host, int& error) override;
  std::optional<std::string> NombreLocal(int& error) override;
  int Eco(std::uint32_t address, const std::string& payload, int timeout_ms, int& rtt_ms,
          std::string& reply, std::string& metodo) override;

 private:
  Sondeo sondeo_;
};

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
