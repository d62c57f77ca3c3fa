#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "circulation/Conexion.h"
#include "tests/support/Fakes.h"

namespace orvex::circulation {

// A circulation server on the loopback that answers one connection as told:
// with `respuesta` and then closing, with `respuesta` and then waiting for
// the client to close, or closing at once.
class ServidorGuionado {
 public:
  enum class Modo { Responde, Mantiene, Cierra };
  ServidorGuionado(Modo modo, std::string respuesta) : modo_(modo), respuesta_(std::move(respuesta)) {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in dir{};
    dir.sin_family = AF_INET;
    dir.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd_, reinterpret_cast<sockaddr*>(&dir), sizeof dir);
    socklen_t largo = sizeof dir;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&dir), &largo);
    puerto_ = ntohs(dir.sin_port);
    ::listen(fd_, 4);
    hilo_ = std::thread([this] { Atiende(); });
  }
  ~ServidorGuionado() {
    ::shutdown(fd_, SHUT_RDWR);
    hilo_.join();
    ::close(fd_);
  }
  int puerto() const { return puerto_; }
  std::string comando() {
    hilo_listo_.wait(false);
    return comando_;
  }
  // The first command that reached the server, once the test's own probe
  // has connected and sent kSonda behind whatever came before: kSonda itself
  // when nobody else connected.
  std::string PrimerComando() {
    const int c = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in dir{};
    dir.sin_family = AF_INET;
    dir.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    dir.sin_port = htons(static_cast<uint16_t>(puerto_));
    if (::connect(c, reinterpret_cast<sockaddr*>(&dir), sizeof dir) == 0) {
      ::send(c, kSonda, sizeof kSonda - 1, MSG_NOSIGNAL);
    }
    std::string primero = comando();
    ::close(c);
    return primero;
  }
  static constexpr char kSonda[] = "<sonda/></comandoSE>";

 private:
  void Atiende() {
    const int c = ::accept(fd_, nullptr, nullptr);
    if (c >= 0) {
      char buffer[4096];
      while (comando_.find("</comandoSE>") == std::string::npos) {
        const ssize_t n = ::recv(c, buffer, sizeof buffer, 0);
        if (n <= 0) break;
        comando_.append(buffer, static_cast<size_t>(n));
      }
      hilo_listo_ = true;
      hilo_listo_.notify_all();
      if (modo_ != Modo::Cierra) ::send(c, respuesta_.data(), respuesta_.size(), MSG_NOSIGNAL);
      if (modo_ == Modo::Mantiene) {
        while (::recv(c, buffer, sizeof buffer, 0) > 0) {
        }
      }
      ::close(c);
    }
    hilo_listo_ = true;
    hilo_listo_.notify_all();
  }

  Modo modo_;
  std::string respuesta_;
  int fd_ = -1;
  int puerto_ = 0;
  std::string comando_;
  std::atomic<bool> hilo_listo_ = false;
  std::thread hilo_;
};

// A connection driven by the test's clock: it never connects, or never
// hears back, while each wait moves the clock on.
class EnchufeLento : public Enchufe {
 public:
  EnchufeLento(testing::FixedClock& reloj, bool conecta) : reloj_(reloj), conecta_(conecta) {}
  EstadoConexion Inicia(const std::string&, int, std::string&) override {
    return EstadoConexion::kEnCurso;
  }
  EstadoConexion Conectado(int espera_ms, std::string&) override {
    reloj_.millis += espera_ms;
    return conecta_ ? EstadoConexion::kEstablecida : EstadoConexion::kEnCurso;
  }
  bool Envia(std::string_view) override { return true; }
  std::optional<std::string> Recibe(int espera_ms) override {
    reloj_.millis += espera_ms;
    return std::nullopt;
  }

 private:
  testing::FixedClock& reloj_;
  bool conecta_;
};

// A connection that keeps a record of what it was asked and ends as told:
// at the start (`al_iniciar` other than kEnCurso), or at the first wait with
// `al_esperar`; each wait moves the test's clock on. Once connected it takes
// the command and answers `respuesta`.
class EnchufeGrabador : public Enchufe {
 public:
  EnchufeGrabador(testing::FixedClock& reloj, EstadoConexion al_iniciar, EstadoConexion al_esperar,
                  std::string respuesta = "<Reservacion Estado='0'/>")
      : reloj_(reloj), al_iniciar_(al_iniciar), al_esperar_(al_esperar),
        respuesta_(std::move(respuesta)) {}
  EstadoConexion Inicia(const std::string& host, int puerto, std::string& razon) override {
    ++inicios;
    this->host = host;
    this->puerto = puerto;
    razon = "razon del sistema";
    return al_iniciar_;
  }
  EstadoConexion Conectado(int espera_ms, std::string& razon) override {
    reloj_.millis += espera_ms;
    razon = "razon del sistema";
    return al_esperar_;
  }
  bool Envia(std::string_view datos) override {
    enviado += datos;
    return true;
  }
  std::optional<std::string> Recibe(int) override { return respuesta_; }

  int inicios = 0;
  std::string host;
  int puerto = 0;
  std::string enviado;

 private:
  testing::FixedClock& reloj_;
  EstadoConexion al_iniciar_, al_esperar_;
  std::string respuesta_;
};

}  // namespace orvex::circulation
