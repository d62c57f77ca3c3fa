#include "circulation/Reserva.h"

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
#include "config/Plantillas.h"
#include "gateway/Bitacora.h"
#include "gateway/EntradaCGI.h"

namespace orvex::circulation {
namespace {

using config::ReemplazaTexto;

// Each wait for the server lasts this long before the request's timers get
// their turn.
constexpr int kPasoMs = 50;

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

void Cabecera(Output& salida) {
  EnviaLinea(salida, "Content-Type: text/html");
  EnviaLinea(salida, "Cache-Control: public\r\n");
}

// The answer's first "Reservacion" element, read by the XSL processor: the
// name and value of its first attribute and the value of its second, one
// per line; "-" alone when there is no such element.
constexpr std::string_view kLeeRespuesta =
    "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
    "<xsl:output method=\"text\"/>"
    "<xsl:template match=\"/\"><xsl:variable name=\"r\" select=\"(//Reservacion)[1]\"/>"
    "<xsl:choose><xsl:when test=\"not($r)\">-</xsl:when><xsl:otherwise>"
    "<xsl:value-of select=\"name($r/@*[1])\"/><xsl:text>&#10;</xsl:text>"
    "<xsl:value-of select=\"$r/@*[1]\"/><xsl:text>&#10;</xsl:text>"
    "<xsl:value-of select=\"$r/@*[2]\"/></xsl:otherwise></xsl:choose>"
    "</xsl:template></xsl:stylesheet>";

void MuestraRespuesta(gateway::Solicitud& s, const std::string& respuesta) {
  Output& salida = s.sys.salida;
  const CodePage& pagina = CodePage::Windows1252();
  const ResultadoXSL r =
      s.sys.motores.Xsl().Transforma(pagina.ToUtf8("<?xml version='1.0'?>\r\n" + respuesta),
                                     kLeeRespuesta);
  if (r.estado != ResultadoXSL::Estado::Correcto) {
    EnviaLinea(salida, "<h1>Error: al cargar doc. XML de respuesta a comando de reservacion</h1>");
    return;
  }
  if (r.texto == "-") {
    EnviaLinea(salida, "<h1>Error: al cargar Nodo de Respuesta de Reservacion</h1>");
    return;
  }
  std::string nombre, estado, mensaje;
  {
    const size_t a = r.texto.find('\n');
    const size_t b = a == std::string::npos ? std::string::npos : r.texto.find('\n', a + 1);
    nombre = r.texto.substr(0, a);
    if (a != std::string::npos) estado = r.texto.substr(a + 1, b == std::string::npos ? b : b - a - 1);
    if (b != std::string::npos) mensaje = r.texto.substr(b + 1);
  }
  if (nombre != "Estado") {
    EnviaLinea(salida, "<h1>Error al leer codigo de respuesta de reservacion</h1>");
    return;
  }
  std::string seccion;
  if (TrimBlanks(estado) == "0") {
    seccion = s.Seccion("MSG_RESERVA_EXITOSA:");
    ReemplazaTexto(seccion, "<!ESTATUS_RESERVA!>", "<b>Reserva exitosa</b>");
  } else {
    seccion = s.Seccion("MSG_RESERVA_ERROR:");
    ReemplazaTexto(seccion, "<!ESTATUS_RESERVA!>", mensaje);
  }
  EnviaLinea(salida, seccion);
}

}  // namespace

std::unique_ptr<Enchufe> EnchufePosix() { return std::make_unique<EnchufeReal>(); }

void PaginaReserva(gateway::Solicitud& s, const std::string&) {
  Output& salida = s.sys.salida;
  Cabecera(salida);
  EnviaLinea(salida, Latin1("<HTML><HEAD><title>KORVEL8 - Autentificación de usuario para "
                            "reserva de ejemplares</title></HEAD><BODY>"));
  std::string seccion = s.Seccion("RESERVA_MATERIAL:");
  ReemplazaTexto(seccion, "<!COMANDO_SE!>", "CRESERVA");
  ReemplazaTexto(seccion, "<!DIRECCIONIP!>", gateway::ValorCGI(s.cgi, "direccionIP"));
  ReemplazaTexto(seccion, "<!PUERTOTCP!>", gateway::ValorCGI(s.cgi, "puertoTCP"));
  ReemplazaTexto(seccion, "<!DISP_NUMADQUI!>", gateway::ValorCGI(s.cgi, "NumAdqui"));
  ReemplazaTexto(seccion, "<!ArchivoCFG!>", s.cfg.ArchivoCFG);
  EnviaLinea(salida, seccion);
  EnviaLinea(salida, "</BODY></HTML>");
}

void Reserva(gateway::Solicitud& s, const std::string&) {
  const std::unique_ptr<Enchufe> enchufe = EnchufePosix();
  Reserva(s, *enchufe);
}

void Reserva(gateway::Solicitud& s, Enchufe& enchufe) {
  Output& salida = s.sys.salida;
  const std::string direccion = gateway::ValorCGI(s.cgi, "direccionIP");
  const std::string puerto_texto = gateway::ValorCGI(s.cgi, "puertoTCP");
  const std::string numadqui = gateway::ValorCGI(s.cgi, "NumAdqui");
  const std::string cuenta = gateway::ValorCGI(s.cgi, "NumCta");
  (void)gateway::ValorCGI(s.cgi, "PWD");  // read, and never sent
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
    return;
  }
  for (int rondas = 1;; ++rondas) {
    const int estado = enchufe.Conectado(kPasoMs, razon);
    if (estado > 0) break;
    if (estado < 0) {
      EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: " + razon + "</h1>");
      return;
    }
    gateway::Cede(s);
    if (s.CONSULTA.ConexionCerrada) {
      EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: Conexion TimeOut</h1>");
      return;
    }
    if (rondas == 1000000) {
      EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: error desconocido: " +
                             std::to_string(rondas) + "</h1>");
      return;
    }
  }
  s.CONSULTA.Timer2.activo = false;

  const std::string comando = "<comandoSE class='RESERVA'><NumAdqui>" + numadqui +
                              "</NumAdqui><NumCta>" + cuenta + "</NumCta><PWD/></comandoSE>";
  std::string respuesta;
  if (enchufe.Envia(comando)) {
    // Only the watchdog limits the wait for the answer.
    std::optional<std::string> llegada;
    while (!(llegada = enchufe.Recibe(kPasoMs))) gateway::Cede(s);
    respuesta = std::move(*llegada);
  }
  Cabecera(salida);
  MuestraRespuesta(s, respuesta);
}

}  // namespace orvex::circulation
