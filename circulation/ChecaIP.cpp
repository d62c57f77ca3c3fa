#include "circulation/ChecaIP.h"

#include <algorithm>
#include <random>

#include "base/EnviaLinea.h"
#include "base/Runtime.h"

namespace orvex::circulation {
namespace {

constexpr std::size_t kBufferRespuesta = 250;  // the reply is compared through this

// `tamano` random characters coded 1 to 255, from a generator of the call's
// own: the payload needs no sequence shared between checks.
std::string Aleatorio(std::int32_t tamano) {
  std::mt19937 generador{std::random_device{}()};
  std::uniform_int_distribution<int> codigo(1, 255);
  std::string texto(static_cast<std::size_t>(tamano), '\0');
  for (char& c : texto) c = static_cast<char>(codigo(generador));
  return texto;
}

}  // namespace

bool IniciaWinsock(std::string& /*error*/) { return true; }

void TerminaWinsock() {}

std::uint32_t DireccionIP(const std::string& texto) {
  std::uint32_t valor = 0;
  std::size_t i = 0;
  for (int parte = 0; parte < 4; ++parte) {
    if (parte > 0) {
      if (i >= texto.size() || texto[i] != '.') return 0;
      ++i;
    }
    std::size_t inicio = i;
    unsigned octeto = 0;
    while (i < texto.size() && i - inicio < 3 && texto[i] >= '0' && texto[i] <= '9') {
      octeto = octeto * 10 + static_cast<unsigned>(texto[i] - '0');
      ++i;
    }
    if (i == inicio || octeto > 255) return 0;
    valor = (valor << 8) | octeto;
  }
  return i == texto.size() ? valor : 0;
}

std::string ResuelveHost(Red& red, const std::string& host, std::string& error) {
  if (!IniciaWinsock(error)) return "";
  int numero = 0;
  std::optional<std::string> nombre = TrimBlanks(host);
  if (host.empty()) nombre = red.NombreLocal(numero);
  std::optional<std::string> direccion;
  if (nombre) direccion = red.Resuelve(*nombre, numero);
  if (!direccion) {
    error = "Windows Sockets error " + std::to_string(numero) +
            " has occurred. Unable to successfully get Host Name.\r\n";
    TerminaWinsock();
    return "";
  }
  return *direccion;
}

int HacePing(Red& red, std::string host, std::string& tiempo, bool& respuestaOk,
             std::int32_t& tamano, int espera, std::string& traza) {
  std::string error;
  // Kept: a host that does not resolve comes back empty, and an empty host
  // means this machine, so the echo then goes to the local address.
  if (DireccionIP(host) == 0) host = ResuelveHost(red, host, error);
  if (!IniciaWinsock(error)) return kIpGeneralFailure;
  if (tamano < 1) tamano = 10;
  const std::string payload = Aleatorio(tamano);

  int estado = kIpGeneralFailure;
  int rtt_ms = 0;
  std::string reply;
  std::string metodo = "ninguno";
  if (const std::uint32_t direccion = DireccionIP(host); direccion != 0) {
    estado = red.Eco(direccion, payload, espera, rtt_ms, reply, metodo);
  }
  tiempo = std::to_string(rtt_ms) + " ms";
  reply.resize(std::min(reply.size(), kBufferRespuesta));
  reply.resize(std::min(reply.size(), reply.find('\0')));
  respuestaOk = reply == payload;
  traza += "HacePing " + host + " por " + metodo + ": estado " + std::to_string(estado) + ", " +
           tiempo + (respuestaOk ? "" : ", respuesta distinta") + "<br/>";
  TerminaWinsock();
  return estado;
}

bool ChecaIP(Red& red, Output& salida, std::string& host, std::int32_t& maxMs,
             std::string& traza) {
  std::string error;
  const std::string direccion = ResuelveHost(red, host, error);
  if (!error.empty()) traza += error;
  EnviaLinea(salida, "<!-- ChecaIP: " + direccion + "-->");
  std::string tiempo;
  bool respuestaOk = false;
  std::int32_t tamano = 32;
  const int estado = HacePing(red, direccion, tiempo, respuestaOk, tamano, 200, traza);
  if (estado != kIpSuccess) {
    EnviaLinea(salida, "<!-- ChecaIP: Error en ping-" + direccion + " -->");
    return false;
  }
  if (!respuestaOk) return false;
  host = direccion;
  return LeadingNumber(tiempo) <= maxMs;
}

}  // namespace orvex::circulation
