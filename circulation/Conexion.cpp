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
#include "circulation/Disponibilidad.h"
#include "cgi/Bitacora.h"

namespace orvex::circulation {
namespace {

class EnchufeReal : public Enchufe {
 public:
  ~EnchufeReal() override {
    if (fd_ >= 0) ::close(fd_);
  }

  EstadoConexion Inicia(const std::string& host, int puerto, std::string& razon) override {
    addrinfo pista{};
    pista.ai_family = AF_UNSPEC;
    pista.ai_socktype = SOCK_STREAM;
    addrinfo* lista = nullptr;
    const int rc = ::getaddrinfo(host.c_str(), std::to_string(puerto).c_str(), &pista, &lista);
    if (rc != 0 || lista == nullptr) {
      razon = ::gai_strerror(rc);
      if (lista != nullptr) ::freeaddrinfo(lista);
      return EstadoConexion::kSinNombre;
    }
    int error = 0;
    fd_ = ::socket(lista->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
      error = errno;
    } else if (::connect(fd_, lista->ai_addr, lista->ai_addrlen) != 0 && errno != EINPROGRESS) {
      error = errno;
    }
    ::freeaddrinfo(lista);
    return Termina(error, razon);
  }

  EstadoConexion Conectado(int espera_ms, std::string& razon) override {
    pollfd p{fd_, POLLOUT, 0};
    if (::poll(&p, 1, espera_ms) <= 0) return EstadoConexion::kEnCurso;
    int error = 0;
    socklen_t largo = sizeof error;
    if (::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &largo) != 0) error = errno;
    return error == 0 ? EstadoConexion::kEstablecida : Termina(error, razon);
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
  // The state for the system's error `error` (0: still connecting).
  static EstadoConexion Termina(int error, std::string& razon) {
    if (error == 0) return EstadoConexion::kEnCurso;
    if (error == ECONNREFUSED) return EstadoConexion::kRechazada;
    razon = std::strerror(error);
    return EstadoConexion::kFallida;
  }

  int fd_ = -1;
};

}  // namespace

std::unique_ptr<Enchufe> EnchufePosix() { return std::make_unique<EnchufeReal>(); }

void CabeceraCirculacion(Output& salida) {
  EnviaLinea(salida, "Content-Type: text/html");
  EnviaLinea(salida, "Cache-Control: public\r\n");
}

bool ConectaServidor(cgi::Solicitud& s, Enchufe& enchufe, const std::string& direccion,
                     const std::string& puerto_texto, AvisoRechazo rechazo) {
  Output& salida = s.sys.salida;
  const auto falla = [&](const std::string& razon) {
    EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: " + razon + "</h1>");
    return false;
  };
  const int puerto = PuertoTCP(puerto_texto);

  s.CONSULTA.Timer2.Activa(s.sys.reloj.Milliseconds());
  s.CONSULTA.ConexionCerrada = false;
  if (puerto == 0) return falla(Latin1("puerto TCP no válido: ") + s.Eco(puerto_texto));
  std::string razon;
  EstadoConexion estado = enchufe.Inicia(direccion, puerto, razon);
  for (int rondas = 1; estado == EstadoConexion::kEnCurso; ++rondas) {
    estado = enchufe.Conectado(kPasoMs, razon);
    if (estado != EstadoConexion::kEnCurso) break;
    cgi::Cede(s);
    if (s.CONSULTA.ConexionCerrada) return falla("Conexion TimeOut");
    if (rondas == 1000000) return falla("error desconocido: " + std::to_string(rondas));
  }
  switch (estado) {
    case EstadoConexion::kEstablecida:
      s.CONSULTA.Timer2.activo = false;
      return true;
    case EstadoConexion::kRechazada:
      return falla(rechazo == AvisoRechazo::kTimeOut
                       ? std::string("Conexion TimeOut")
                       : Latin1("el servidor rechazó la conexión"));
    case EstadoConexion::kSinNombre:
      return falla(Latin1("no se encontró el servidor ") + s.Eco(direccion) + " (" + razon + ")");
    default:
      return falla(razon);
  }
}

}  // namespace orvex::circulation
