#include "fastcgi/ServidorFastCGI.h"

#include <fcgiapp.h>
#include <poll.h>
#include <time.h>

#include <algorithm>
#include <climits>
#include <optional>
#include <string>

namespace orvex::fastcgi {
namespace {

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

// The request's body. A read never waits more than a tenth of a second for
// bytes that have not come, so that the reader can look at the request's
// deadline between reads, as on a CGI standard input.
class EntradaFastCGI final : public Input {
 public:
  EntradaFastCGI(FCGX_Stream* flujo, int socket) : flujo_(flujo), socket_(socket) {}

  std::size_t Read(char* buffer, std::size_t size) override {
    if (flujo_->isClosed || FCGX_HasSeenEOF(flujo_)) {
      fin_ = true;
      return 0;
    }
    // Bytes already received are read at once; otherwise the socket is
    // given a tenth of a second to bring some.
    if (flujo_->rdNext == flujo_->stop) {
      pollfd p{socket_, POLLIN, 0};
      if (::poll(&p, 1, 100) <= 0) {
        fin_ = false;
        return 0;
      }
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
  int socket_;
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

bool EsFastCGI() { return !FCGX_IsCGI(); }

int Sirve(const Atiende& atiende) {
  if (FCGX_Init() != 0) return 1;
  FCGX_Request peticion;
  if (FCGX_InitRequest(&peticion, 0, 0) != 0) return 1;
  while (FCGX_Accept_r(&peticion) == 0) {
    {
      EntornoFastCGI entorno(peticion.envp);
      EntradaFastCGI entrada(peticion.in, peticion.ipcFd);
      SalidaEnMemoria salida;
      atiende(entorno, entrada, salida);
      const std::string& pagina = salida.pagina();
      for (std::size_t enviado = 0; enviado < pagina.size();) {
        const int trozo = static_cast<int>(std::min<std::size_t>(pagina.size() - enviado, 1 << 20));
        if (FCGX_PutStr(pagina.data() + enviado, trozo, peticion.out) != trozo) break;
        enviado += static_cast<std::size_t>(trozo);
      }
    }
    FCGX_Finish_r(&peticion);
  }
  return 0;
}

}  // namespace orvex::fastcgi
