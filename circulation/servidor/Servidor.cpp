#include "circulation/servidor/Servidor.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace orvex::circulation::servidor {
namespace {

using Reloj = std::chrono::steady_clock;

constexpr std::string_view kCierre = "</comandoSE>";
// Connections taken from the listening queue per round, so that a flood of
// them cannot keep the served ones waiting.
constexpr int kAceptacionesPorRonda = 64;

// One client: first its command is read, then its answer written.
struct Cliente {
  int fd = -1;
  bool respondiendo = false;
  std::string datos;   // the bytes read so far; then the answer
  size_t enviados = 0;  // of the answer
  Reloj::time_point limite;
};

// Closes the client. `reinicia`: with a reset, so that no unsent byte keeps
// the connection alive in the kernel after a limit was exceeded.
void Cierra(Cliente& c, bool reinicia) {
  if (c.fd < 0) return;
  if (reinicia) {
    const linger inmediato{1, 0};
    setsockopt(c.fd, SOL_SOCKET, SO_LINGER, &inmediato, sizeof inmediato);
  } else {
    // Bytes the client sent after its command would turn the close into a
    // reset that can destroy the answer on the way: those already there are
    // read first (a few blocks at most, for a client that keeps sending).
    char resto[4096];
    for (int i = 0; i < 16 && recv(c.fd, resto, sizeof resto, MSG_DONTWAIT) > 0; ++i) {
    }
  }
  close(c.fd);
  c.fd = -1;
}

// Writes what the socket takes of the answer; the client is closed once it
// has all of it, or when the connection broke.
void Escribe(Cliente& c) {
  while (c.enviados < c.datos.size()) {
    const ssize_t n = send(c.fd, c.datos.data() + c.enviados, c.datos.size() - c.enviados,
                           MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (n <= 0) return Cierra(c, true);
    c.enviados += static_cast<size_t>(n);
  }
  Cierra(c, false);
}

// Reads what has arrived of the command; once its end tag is there, the
// answer is made and its writing starts.
void Lee(Cliente& c, const Atencion& atiende, const Limites& limites) {
  char bloque[4096];
  for (;;) {
    const ssize_t n = recv(c.fd, bloque, sizeof bloque, MSG_DONTWAIT);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (n <= 0) return Cierra(c, false);  // the client left without a command
    // Only the new bytes, and the tail before them, can complete the end tag.
    const size_t desde = c.datos.size() >= kCierre.size() ? c.datos.size() - kCierre.size() + 1 : 0;
    c.datos.append(bloque, static_cast<size_t>(n));
    const size_t pos = c.datos.find(kCierre, desde);
    const size_t largo = pos == std::string::npos ? c.datos.size() : pos + kCierre.size();
    if (largo > limites.maximo_comando) return Cierra(c, true);
    if (pos == std::string::npos) continue;
    c.datos = atiende(std::string_view(c.datos).substr(0, largo));
    c.respondiendo = true;
    c.limite = Reloj::now() + limites.espera_respuesta;
    return Escribe(c);
  }
}

// Milliseconds until the nearest limit of `clientes`, for poll; -1 without
// clients.
int Espera(const std::vector<Cliente>& clientes) {
  if (clientes.empty()) return -1;
  Reloj::time_point cercano = clientes.front().limite;
  for (const Cliente& c : clientes) cercano = std::min(cercano, c.limite);
  const auto resta =
      std::chrono::ceil<std::chrono::milliseconds>(cercano - Reloj::now()).count();
  return static_cast<int>(std::clamp<long long>(resta, 0, 60 * 60 * 1000));
}

// Takes the waiting connections, closing the oldest clients to stay within
// the limit (or when the process runs out of descriptors).
void Acepta(int escucha, std::vector<Cliente>& clientes, const Limites& limites) {
  const auto cierra_el_mas_viejo = [&] {
    Cierra(clientes.front(), true);
    clientes.erase(clientes.begin());
  };
  for (int i = 0; i < kAceptacionesPorRonda; ++i) {
    const int fd = accept4(escucha, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if ((errno == EMFILE || errno == ENFILE) && !clientes.empty()) {
        cierra_el_mas_viejo();
        continue;
      }
      return;
    }
    if (!clientes.empty() && clientes.size() >= std::max<size_t>(limites.maximo_conexiones, 1)) {
      cierra_el_mas_viejo();
    }
    clientes.push_back(Cliente{fd, false, {}, 0, Reloj::now() + limites.espera_comando});
  }
}

}  // namespace

int Escucha(const std::string& direccion, int& puerto, std::string& error) {
  sockaddr_in dir{};
  dir.sin_family = AF_INET;
  dir.sin_port = htons(static_cast<uint16_t>(puerto));
  if (inet_pton(AF_INET, direccion.c_str(), &dir.sin_addr) != 1) {
    error = "direccion IPv4 no valida: " + direccion;
    return -1;
  }
  int s = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (s < 0) {
    error = std::strerror(errno);
    return -1;
  }
  int uno = 1;
  setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &uno, sizeof uno);
  socklen_t largo = sizeof dir;
  if (bind(s, reinterpret_cast<sockaddr*>(&dir), sizeof dir) != 0 || listen(s, 128) != 0 ||
      getsockname(s, reinterpret_cast<sockaddr*>(&dir), &largo) != 0) {
    error = direccion + ":" + std::to_string(puerto) + ": " + std::strerror(errno);
    close(s);
    return -1;
  }
  puerto = ntohs(dir.sin_port);
  return s;
}

void Sirve(const Atencion& atiende, int escucha, int fin, const Limites& limites) {
  std::vector<Cliente> clientes;
  std::vector<pollfd> fds;
  for (;;) {
    fds.assign({{fin, POLLIN, 0}, {escucha, POLLIN, 0}});
    for (const Cliente& c : clientes) {
      fds.push_back({c.fd, static_cast<short>(c.respondiendo ? POLLOUT : POLLIN), 0});
    }
    const int n = poll(fds.data(), fds.size(), Espera(clientes));
    if (n < 0 && errno != EINTR) break;
    if (n > 0 && fds[0].revents) break;

    const Reloj::time_point ahora = Reloj::now();
    for (size_t i = 0; i < clientes.size(); ++i) {
      Cliente& c = clientes[i];
      if (n > 0 && fds[i + 2].revents) {
        if (c.respondiendo) {
          Escribe(c);
        } else {
          Lee(c, atiende, limites);
        }
      }
      if (c.fd >= 0 && ahora >= c.limite) Cierra(c, true);
    }
    std::erase_if(clientes, [](const Cliente& c) { return c.fd < 0; });
    if (n > 0 && fds[1].revents) Acepta(escucha, clientes, limites);
  }
  for (Cliente& c : clientes) Cierra(c, true);
}

}  // namespace orvex::circulation::servidor
