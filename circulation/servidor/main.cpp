// orvex-circulacion: the circulation server that the gateway's reservation
// and availability pages ask over TCP.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "circulation/servidor/Circulacion.h"
#include "circulation/servidor/Servidor.h"

namespace {

int g_fin[2] = {-1, -1};

void AlTerminar(int) {
  int e = errno;
  if (write(g_fin[1], "x", 1) < 0) {
  }
  errno = e;
}

int Uso() {
  std::fprintf(stderr,
               "uso: orvex-circulacion --puerto N [--direccion 127.0.0.1] --catalogo DIR"
               " --prestamos ARCHIVO [--presta NUMADQUI:CUENTA:dd/mm/yyyy ...]\n");
  return 2;
}

bool FechaValida(const std::string& f) {
  if (f.size() != 10 || f[2] != '/' || f[5] != '/') return false;
  for (size_t i : {0, 1, 3, 4, 6, 7, 8, 9})
    if (f[i] < '0' || f[i] > '9') return false;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace orvex::circulation::servidor;
  std::string direccion = "127.0.0.1", catalogo, prestamos, puerto_texto;
  std::vector<std::string> presta;
  for (int i = 1; i < argc; ++i) {
    std::string op = argv[i];
    if (i + 1 >= argc) return Uso();
    std::string valor = argv[++i];
    if (op == "--puerto") puerto_texto = valor;
    else if (op == "--direccion") direccion = valor;
    else if (op == "--catalogo") catalogo = valor;
    else if (op == "--prestamos") prestamos = valor;
    else if (op == "--presta") presta.push_back(valor);
    else return Uso();
  }
  if (puerto_texto.empty() || catalogo.empty() || prestamos.empty()) return Uso();
  int puerto = 0;
  try {
    size_t usado = 0;
    puerto = std::stoi(puerto_texto, &usado);
    if (usado != puerto_texto.size() || puerto < 0 || puerto > 65535) return Uso();
  } catch (const std::exception&) {
    return Uso();
  }

  try {
    Circulacion circulacion(catalogo, prestamos);
    for (const std::string& p : presta) {
      // NUMADQUI:CUENTA:dd/mm/yyyy; the accession number may itself hold ':'.
      size_t f = p.rfind(':');
      size_t c = f == std::string::npos || f == 0 ? std::string::npos : p.rfind(':', f - 1);
      if (c == std::string::npos || c == 0 || !FechaValida(p.substr(f + 1))) {
        std::fprintf(stderr, "orvex-circulacion: --presta no valido: %s\n", p.c_str());
        return 2;
      }
      circulacion.Presta(p.substr(0, c), p.substr(c + 1, f - c - 1), p.substr(f + 1));
    }

    if (pipe2(g_fin, O_CLOEXEC | O_NONBLOCK) != 0) {
      std::perror("orvex-circulacion: pipe");
      return 1;
    }
    struct sigaction sa{};
    sa.sa_handler = AlTerminar;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    std::string error;
    int escucha = Escucha(direccion, puerto, error);
    if (escucha < 0) {
      std::fprintf(stderr, "orvex-circulacion: %s\n", error.c_str());
      return 1;
    }
    std::printf("orvex-circulacion: escuchando en %s:%d\n", direccion.c_str(), puerto);
    std::fflush(stdout);
    Sirve([&](std::string_view comando) { return circulacion.Atiende(comando); }, escucha,
          g_fin[0]);
    close(escucha);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "orvex-circulacion: %s\n", e.what());
    return 1;
  }
  return 0;
}
