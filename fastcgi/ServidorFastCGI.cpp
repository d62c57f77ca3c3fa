#include "fastcgi/ServidorFastCGI.h"

#include <fcgiapp.h>
#include <malloc.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <optional>
#include <string>

namespace orvex::fastcgi {
namespace {

// Seconds a read of the request's body, or a write of its page, may wait
// for the server.
constexpr time_t kEsperaLectura = 1;
constexpr time_t kEsperaEscritura = 10;
// Bytes of freed memory a worker may keep between requests.
constexpr std::size_t kLibreRetenido = 4 << 20;

// The request's parameters, as a CGI program finds them in its environment.
class EntornoFastCGI final : public Environment {
 public:
  explicit EntornoFastCGI(FCGX_ParamArray parametros) : parametros_(parametros) {}
  std::optional<std::string> Get(const std::string& name) override {
    if (name.find('\0') != std::string::npos) return std::nullopt;
    const char* valor = FCGX_GetParam(name.c_str(), parametros_);
    if (valor == nullptr) return std::nullopt;
    return std::string(valor);
  }

 private:
  FCGX_ParamArray parametros_;
};

// The request's body. A read that needs bytes from the server waits for
// them at most kEsperaLectura (the socket's receive time-out, set for the
// request by Sirve); past it the body counts as ended, and the reader waits
// out the request's deadline between reads, as on a CGI standard input that
// has reached its end. A web server sends the body it has received at once,
// so only a server that holds back a body it promised meets the time-out.
class EntradaFastCGI final : public Input {
 public:
  explicit EntradaFastCGI(FCGX_Stream* flujo) : flujo_(flujo) {}

  std::size_t Read(char* buffer, std::size_t size) override {
    if (flujo_->isClosed || FCGX_HasSeenEOF(flujo_)) {
      fin_ = true;
      return 0;
    }
    const int pedido = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    const int n = FCGX_GetStr(buffer, pedido, flujo_);
    fin_ = n <= 0;
    return n > 0 ? static_cast<std::size_t>(n) : 0;
  }

  void Pause() override {
    // At the end of the body there is nothing to wait for but the deadline.
    if (!fin_) return;
    const timespec pausa{0, 100 * 1000 * 1000};
    nanosleep(&pausa, nullptr);
  }

 private:
  FCGX_Stream* flujo_;
  bool fin_ = false;
};

// The page, kept as a file is: written at a position, rewound and truncated.
class SalidaEnMemoria final : public Output {
 public:
  void Write(std::string_view bytes) override {
    const std::size_t encima = std::min(bytes.size(), pagina_.size() - posicion_);
    pagina_.replace(posicion_, encima, bytes);
    posicion_ += bytes.size();
  }
  void TruncateHere() override { pagina_.resize(posicion_); }
  void Rewind() override { posicion_ = 0; }
  const std::string& pagina() const { return pagina_; }

 private:
  std::string pagina_;
  std::size_t posicion_ = 0;
};

}  // namespace

bool EsFastCGI() {
  // Asking sets libfcgi up, which puts its own handlers on TERM, USR1 and
  // PIPE; a CGI process keeps the defaults, so that the web server's TERM
  // still ends it and a closed pipe still stops it, as always.
  constexpr int kSenales[] = {SIGTERM, SIGUSR1, SIGPIPE};
  struct sigaction antes[std::size(kSenales)] {};
  for (std::size_t i = 0; i < std::size(kSenales); ++i) ::sigaction(kSenales[i], nullptr, &antes[i]);
  if (!FCGX_IsCGI()) return true;
  for (std::size_t i = 0; i < std::size(kSenales); ++i) ::sigaction(kSenales[i], &antes[i], nullptr);
  return false;
}

int Sirve(const Atiende& atiende) {
  // A server that closes the connection before the page is sent must not
  // end the worker: the write fails and the next request is taken.
  ::signal(SIGPIPE, SIG_IGN);
  if (FCGX_Init() != 0) return 1;
  FCGX_Request peticion;
  if (FCGX_InitRequest(&peticion, 0, 0) != 0) return 1;
  while (FCGX_Accept_r(&peticion) == 0) {
    // No read or write of the request's connection waits without bound for
    // a server that has stopped sending or reading.
    const timeval espera{kEsperaLectura, 0};
    ::setsockopt(peticion.ipcFd, SOL_SOCKET, SO_RCVTIMEO, &espera, sizeof espera);
    const timeval espera_escritura{kEsperaEscritura, 0};
    ::setsockopt(peticion.ipcFd, SOL_SOCKET, SO_SNDTIMEO, &espera_escritura,
                 sizeof espera_escritura);
    {
      EntornoFastCGI entorno(peticion.envp);
      EntradaFastCGI entrada(peticion.in);
      SalidaEnMemoria salida;
      atiende(entorno, entrada, salida);
      const std::string& pagina = salida.pagina();
      for (std::size_t enviado = 0; enviado < pagina.size();) {
        const int trozo = static_cast<int>(std::min<std::size_t>(pagina.size() - enviado, 1 << 20));
        if (FCGX_PutStr(pagina.data() + enviado, trozo, peticion.out) != trozo) break;
        enviado += static_cast<std::size_t>(trozo);
      }
    }
    // What a large request freed goes back to the system, so that the
    // worker does not keep its memory; an ordinary request leaves too
    // little to be worth the system calls.
    if (::mallinfo2().fordblks > kLibreRetenido) ::malloc_trim(0);
    // A connection the server keeps for its next request waits idle for it.
    const timeval sin_limite{0, 0};
    ::setsockopt(peticion.ipcFd, SOL_SOCKET, SO_RCVTIMEO, &sin_limite, sizeof sin_limite);
    FCGX_Finish_r(&peticion);
  }
  return 0;
}

}  // namespace orvex::fastcgi
