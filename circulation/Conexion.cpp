#include "circulation/Conexion.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "gateway/Bitacora.h"

namespace orvex::circulation {
namespace {

class EnchufeReal : public Enchufe {
 public:
  ~EnchufeReal() override {
    if (fd_ >= 0) ::close(fd_);
  }

  bool Inicia(const std::string& host, int puerto, std::string& razon) override {
    addrinfo pista{};
    pista.ai_family = AF_UNSPEC;
    pista.ai_socktype = SOCK_STREAM;
    addrinfo* lista = nullptr;
    const int rc = ::getaddrinfo(host.c_str(), std::to_string(puerto).c_str(), &pista, &lista);
    if (rc != 0 || lista == nullptr) {
      razon = Latin1("no se encontró el servidor ") + host + " (" + ::gai_strerror(rc) + ")";
      return false;
    }
    fd_ = ::socket(lista->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ >= 0 && ::connect(fd_, lista->ai_addr, lista->ai_addrlen) != 0 &&
        errno != EINPROGRESS) {
      error_ = errno;
    }
    ::freeaddrinfo(lista);
    if (fd_ < 0) {
      razon = std::strerror(errno);
      return false;
    }
    return true;
  }

  int Conectado(int espera_ms, std::string& razon) override {
    if (error_ == 0) {
      pollfd p{fd_, POLLOUT, 0};
      if (::poll(&p, 1, espera_ms) <= 0) return 0;
      socklen_t largo = sizeof error_;
      ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error_, &largo);
      if (error_ == 0) return 1;
    }
    razon = error_ == ECONNREFUSED ? Latin1("el servidor rechazó la conexión")
                                   : std::string(std::strerror(error_));
    return -1;
  }

  bool Envia(std::string_view datos) override {
    while (!datos.empty()) {
      const ssize_t n = ::send(fd_, datos.data(), datos.size(), MSG_NOSIGNAL);
      if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
        pollfd p{fd_, POLLOUT, 0};
        ::poll(&p, 1, kPasoMs);
        continue;
      }
      if (n <= 0) return false;
      datos.remove_prefix(static_cast<size_t>(n));
    }
    return true;
  }

  std::optional<std::string> Recibe(int espera_ms) override {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, espera_ms) <= 0) return std::nullopt;
    std::string datos(65536, '\0');
    const ssize_t n = ::recv(fd_, datos.data(), datos.size(), 0);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return std::nullopt;
    datos.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return datos;
  }

 private:
  int fd_ = -1;
  int error_ = 0;
};

}  // namespace

std::unique_ptr<Enchufe> EnchufePosix() { return std::make_unique<EnchufeReal>(); }

void CabeceraCirculacion(Output& salida) {
  EnviaLinea(salida, "Content-Type: text/html");
  EnviaLinea(salida, "Cache-Control: public\r\n");
}

bool ConectaServidor(gateway::Solicitud& s, Enchufe& enchufe, const std::string& direccion,
                     const std::string& puerto_texto) {
  Output& salida = s.sys.salida;
  int puerto = 0;
  try {
    puerto = ToInt32(LeadingNumber(puerto_texto));
  } catch (const RuntimeError&) {
  }

  s.CONSULTA.Timer2.Activa(s.sys.reloj.Milliseconds());
  s.CONSULTA.ConexionCerrada = false;
  std::string razon;
  if (puerto < 1 || puerto > 65535 || !enchufe.Inicia(direccion, puerto, razon)) {
    if (razon.empty()) razon = Latin1("puerto TCP no válido: ") + puerto_texto;
    EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: " + razon + "</h1>");
    return false;
  }
  for (int rondas = 1;; ++rondas) {
    const int estado = enchufe.Conectado(kPasoMs, razon);
    if (estado > 0) break;
    if (estado < 0) {
      EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: " + razon + "</h1>");
      return false;
    }
    gateway::Cede(s);
    if (s.CONSULTA.ConexionCerrada) {
      EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: Conexion TimeOut</h1>");
      return false;
    }
    if (rondas == 1000000) {
      EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: error desconocido: " +
                             std::to_string(rondas) + "</h1>");
      return false;
    }
  }
  s.CONSULTA.Timer2.activo = false;
  return true;
}

}  // namespace orvex::circulation
