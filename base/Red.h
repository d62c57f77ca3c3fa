#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The network as Orvex's checks of the circulation servers see it: name
// lookups and one echo request, behind an interface so that tests drive
// every outcome.
namespace orvex {

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

}  // namespace orvex
