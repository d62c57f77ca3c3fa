#include "circulation/servidor/Servidor.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "circulation/servidor/Circulacion.h"

namespace orvex::circulacion {
namespace {

using Reloj = std::chrono::steady_clock;

// The command of one connection: bytes up to and including "</comandoSE>".
// Empty when the client closes, exceeds the size or the time, or the server
// is told to end.
std::string LeeComando(int cliente, int fin) {
  static constexpr std::string_view kCierre = "</comandoSE>";
  std::string leido;
  const auto limite = Reloj::now() + std::chrono::milliseconds(kEsperaComandoMs);
  for (;;) {
    auto resta = std::chrono::duration_cast<std::chrono::milliseconds>(limite - Reloj::now());
    if (resta.count() <= 0) return "";
    pollfd fds[2] = {{cliente, POLLIN, 0}, {fin, POLLIN, 0}};
    int n = poll(fds, 2, static_cast<int>(resta.count()) + 1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 || fds[1].revents) return "";
    if (n == 0) continue;
    char bloque[4096];
    ssize_t r = read(cliente, bloque, sizeof bloque);
    if (r < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (r <= 0) return "";
    // Only the newly read bytes (and the tail before them) can complete the end tag.
    size_t desde = leido.size() >= kCierre.size() ? leido.size() - kCierre.size() + 1 : 0;
    leido.append(bloque, static_cast<size_t>(r));
    size_t pos = leido.find(kCierre, desde);
    if (pos != std::string::npos) return leido.substr(0, pos + kCierre.size());
    if (leido.size() > kMaximoComando) return "";
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
  int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
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

void Sirve(Circulacion& circulacion, int escucha, int fin) {
  for (;;) {
    pollfd fds[2] = {{escucha, POLLIN, 0}, {fin, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[1].revents) return;
    if (!(fds[0].revents & POLLIN)) continue;
    int cliente = accept4(escucha, nullptr, nullptr, SOCK_CLOEXEC);
    if (cliente < 0) continue;
    std::string comando = LeeComando(cliente, fin);
    if (!comando.empty()) {
      std::string respuesta = circulacion.Atiende(comando);
      // One write: the answer is small and the socket's buffer takes it whole.
      if (send(cliente, respuesta.data(), respuesta.size(), MSG_NOSIGNAL) < 0) {
        // The client went away; nothing to tell it.
      }
    }
    close(cliente);
  }
}

}  // namespace orvex::circulacion
