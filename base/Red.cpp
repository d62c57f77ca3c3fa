#include "base/Red.h"

#include <arpa/inet.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/EnviaLinea.h"
#include "base/Runtime.h"

namespace orvex {
namespace {

constexpr int kPuertoEco = 7;

using Reloj = std::chrono::steady_clock;

int MilisegundosDesde(Reloj::time_point inicio) {
  return static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Reloj::now() - inicio).count());
}

// Waits for `eventos` on `fd` until `limite`; false on time-out.
bool Espera(int fd, short eventos, Reloj::time_point limite) {
  for (;;) {
    auto resta = std::chrono::duration_cast<std::chrono::milliseconds>(limite - Reloj::now());
    if (resta.count() <= 0) return false;
    pollfd p{fd, eventos, 0};
    int n = poll(&p, 1, static_cast<int>(resta.count()));
    if (n > 0) return true;
    if (n == 0) return false;
    if (errno != EINTR) return true;  // let the following call report the error
  }
}

int EstadoDeErrno(int e) {
  switch (e) {
    case ENETUNREACH: return kIpDestNetUnreachable;
    case EHOSTUNREACH: return kIpDestHostUnreachable;
    case ETIMEDOUT: return kIpReqTimedOut;
    default: return kIpGeneralFailure;
  }
}

int EstadoDeInalcanzable(int codigo) {
  switch (codigo) {
    case 0: return kIpDestNetUnreachable;
    case 2: return kIpDestProtUnreachable;
    case 3: return kIpDestPortUnreachable;
    default: return kIpDestHostUnreachable;
  }
}

std::uint16_t SumaVerificacion(const unsigned char* datos, std::size_t n) {
  std::uint32_t suma = 0;
  for (std::size_t i = 0; i + 1 < n; i += 2) suma += (datos[i] << 8) | datos[i + 1];
  if (n % 2) suma += datos[n - 1] << 8;
  while (suma >> 16) suma = (suma & 0xFFFF) + (suma >> 16);
  return static_cast<std::uint16_t>(~suma);
}

std::uint16_t Lee16(const unsigned char* p) { return static_cast<std::uint16_t>((p[0] << 8) | p[1]); }

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

sockaddr_in Destino(std::uint32_t address, int puerto) {
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = htonl(address);
  sa.sin_port = htons(static_cast<std::uint16_t>(puerto));
  return sa;
}

// One ICMP echo on an open socket. A raw socket delivers the IP header and
// every ICMP message of the machine (our own request too on loopback), so its
// answers are matched by source, identifier and sequence; an unprivileged
// socket delivers only the ICMP message, and the kernel sets the identifier.
//
// The sequence number is counted for the whole process on purpose: on a raw
// socket every echo of the process carries the same identifier (the process
// id), so the sequence number is what tells one check's answer from
// another's, and a counter per check would give two checks the same numbers.
// It carries nothing else from one check to the next; it is atomic so that
// checks made at the same time from several threads still get distinct
// numbers.
std::atomic<std::uint16_t> secuencia_eco{0};

int EcoIcmp(int fd, bool crudo, std::uint32_t address, const std::string& payload,
            int timeout_ms, int& rtt_ms, std::string& reply) {
  const std::uint16_t id = static_cast<std::uint16_t>(getpid());
  const std::uint16_t seq = ++secuencia_eco;
  std::string paquete(8, '\0');
  paquete[0] = 8;  // echo request
  paquete[4] = static_cast<char>(id >> 8);
  paquete[5] = static_cast<char>(id & 0xFF);
  paquete[6] = static_cast<char>(seq >> 8);
  paquete[7] = static_cast<char>(seq & 0xFF);
  paquete += payload;
  std::uint16_t suma =
      SumaVerificacion(reinterpret_cast<const unsigned char*>(paquete.data()), paquete.size());
  paquete[2] = static_cast<char>(suma >> 8);
  paquete[3] = static_cast<char>(suma & 0xFF);

  sockaddr_in sa = Destino(address, 0);
  const auto inicio = Reloj::now();
  const auto limite = inicio + std::chrono::milliseconds(timeout_ms);
  if (sendto(fd, paquete.data(), paquete.size(), 0, reinterpret_cast<sockaddr*>(&sa),
             sizeof sa) < 0) {
    return EstadoDeErrno(errno);
  }
  unsigned char buffer[65536];
  for (;;) {
    if (!Espera(fd, POLLIN, limite)) {
      rtt_ms = MilisegundosDesde(inicio);
      return kIpReqTimedOut;
    }
    sockaddr_in origen{};
    socklen_t largo_origen = sizeof origen;
    ssize_t n = recvfrom(fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&origen),
                         &largo_origen);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      rtt_ms = MilisegundosDesde(inicio);
      return EstadoDeErrno(errno);
    }
    std::size_t desde = 0;
    if (crudo) {
      if (n < 20 || ntohl(origen.sin_addr.s_addr) != address) continue;
      desde = static_cast<std::size_t>(buffer[0] & 0x0F) * 4;
    }
    if (static_cast<std::size_t>(n) < desde + 8) continue;
    const unsigned char* icmp = buffer + desde;
    const std::size_t largo = static_cast<std::size_t>(n) - desde;
    if (icmp[0] == 0 && Lee16(icmp + 6) == seq && (!crudo || Lee16(icmp + 4) == id)) {
      rtt_ms = MilisegundosDesde(inicio);
      reply.assign(reinterpret_cast<const char*>(icmp + 8), largo - 8);
      return kIpSuccess;
    }
    if (crudo && icmp[0] == 3 && largo >= 8 + 20 + 8) {
      // Destination unreachable: the original header and 8 bytes follow.
      const unsigned char* original = icmp + 8;
      const unsigned char* eco = original + (original[0] & 0x0F) * 4;
      if (eco + 8 <= icmp + largo && eco[0] == 8 && Lee16(eco + 4) == id &&
          Lee16(eco + 6) == seq) {
        rtt_ms = MilisegundosDesde(inicio);
        return EstadoDeInalcanzable(icmp[1]);
      }
    }
  }
}

int EcoTcp(std::uint32_t address, const std::string& payload, int timeout_ms, int& rtt_ms,
           std::string& reply) {
  Descriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (fd.get() < 0) return kIpGeneralFailure;
  sockaddr_in sa = Destino(address, kPuertoEco);
  const auto inicio = Reloj::now();
  const auto limite = inicio + std::chrono::milliseconds(timeout_ms);
  int resultado = 0;
  if (connect(fd.get(), reinterpret_cast<sockaddr*>(&sa), sizeof sa) < 0) {
    if (errno != EINPROGRESS) {
      resultado = errno;
    } else if (!Espera(fd.get(), POLLOUT, limite)) {
      rtt_ms = MilisegundosDesde(inicio);
      return kIpReqTimedOut;
    } else {
      socklen_t largo = sizeof resultado;
      if (getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &resultado, &largo) < 0) resultado = errno;
    }
  }
  rtt_ms = MilisegundosDesde(inicio);
  if (resultado == ECONNREFUSED) {
    // The host itself answered; there is no data to compare.
    reply = payload;
    return kIpSuccess;
  }
  if (resultado != 0) return EstadoDeErrno(resultado);
  // Connected to an echo service: the reply is what it sends back in time.
  if (send(fd.get(), payload.data(), payload.size(), MSG_NOSIGNAL) < 0) {
    return EstadoDeErrno(errno);
  }
  char buffer[512];
  while (reply.size() < payload.size() && Espera(fd.get(), POLLIN, limite)) {
    ssize_t n = recv(fd.get(), buffer, sizeof buffer, 0);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (n <= 0) break;
    reply.append(buffer, static_cast<std::size_t>(n));
  }
  rtt_ms = MilisegundosDesde(inicio);
  return kIpSuccess;
}

}  // namespace

std::optional<std::string> RedPosix::Resuelve(const std::string& host, int& error) {
  addrinfo pista{};
  pista.ai_family = AF_INET;
  addrinfo* lista = nullptr;
  int rc = getaddrinfo(host.c_str(), nullptr, &pista, &lista);
  if (rc != 0 || lista == nullptr) {
    error = rc == EAI_SYSTEM ? errno : rc;
    if (lista) freeaddrinfo(lista);
    return std::nullopt;
  }
  const auto* sa = reinterpret_cast<const sockaddr_in*>(lista->ai_addr);
  char texto[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &sa->sin_addr, texto, sizeof texto);
  freeaddrinfo(lista);
  return std::string(texto);
}

std::optional<std::string> RedPosix::NombreLocal(int& error) {
  char nombre[256] = {};
  if (gethostname(nombre, sizeof nombre - 1) != 0) {
    error = errno;
    return std::nullopt;
  }
  return std::string(nombre);
}

int RedPosix::Eco(std::uint32_t address, const std::string& payload, int timeout_ms,
                  int& rtt_ms, std::string& reply, std::string& metodo) {
  rtt_ms = 0;
  reply.clear();
  const bool automatico = sondeo_ == Sondeo::kAuto;
  if (automatico || sondeo_ == Sondeo::kIcmpDgram) {
    metodo = "icmp-dgram";
    Descriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP));
    if (fd.get() >= 0) return EcoIcmp(fd.get(), false, address, payload, timeout_ms, rtt_ms, reply);
    if (!automatico) return kIpGeneralFailure;
  }
  if (automatico || sondeo_ == Sondeo::kIcmpRaw) {
    metodo = "icmp-raw";
    Descriptor fd(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
    if (fd.get() >= 0) return EcoIcmp(fd.get(), true, address, payload, timeout_ms, rtt_ms, reply);
    if (!automatico) return kIpGeneralFailure;
  }
  metodo = "tcp/" + std::to_string(kPuertoEco);
  return EcoTcp(address, payload, timeout_ms, rtt_ms, reply);
}

}  // namespace orvex
