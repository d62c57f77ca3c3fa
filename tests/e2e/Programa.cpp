#include "tests/e2e/Programa.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

namespace orvex::e2e {
namespace {

constexpr const char* kLibFaketime = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1";

}  // namespace

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteFile(const fs::path& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

Respuesta ProgramaCGI::Ejecuta(const Peticion& p) const {
  const fs::path entrada = dir_ / ".stdin";
  const fs::path salida = dir_ / ".stdout";
  WriteFile(entrada, p.cuerpo);
  int tubo[2] = {-1, -1};
  if (!p.salida_a_archivo && pipe(tubo) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    const int in = open(entrada.c_str(), O_RDONLY);
    dup2(in, 0);
    if (p.salida_a_archivo) {
      dup2(open(salida.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644), 1);
    } else {
      dup2(tubo[1], 1);
      close(tubo[0]);
    }
    // libfaketime itself rather than its wrapper, which needs a named
    // semaphore per run and fails now and then when many tests run at once.
    std::vector<std::string> env = {"TZ=UTC", "PATH=/usr/bin:/bin",
                                    "ASAN_OPTIONS=verify_asan_link_order=0",
                                    "LD_PRELOAD=" + std::string(kLibFaketime),
                                    "FAKETIME=2008-12-15 09:30:11", "DONT_FAKE_MONOTONIC=1"};
    for (const auto& [k, v] : p.variables) env.push_back(k + "=" + v);
    std::vector<char*> envp;
    for (std::string& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    const std::string programa = (dir_ / "orvex").string();
    const char* argv[] = {programa.c_str(), nullptr};
    execve(programa.c_str(), const_cast<char**>(argv), envp.data());
    _exit(127);
  }
  Respuesta r;
  if (!p.salida_a_archivo) {
    close(tubo[1]);
    fcntl(tubo[0], F_SETFL, O_NONBLOCK);
  }
  const auto fin = std::chrono::steady_clock::now() + std::chrono::duration<double>(p.limite_s);
  for (;;) {
    if (!p.salida_a_archivo) {
      char buffer[4096];
      ssize_t n;
      while ((n = read(tubo[0], buffer, sizeof buffer)) > 0) r.salida.append(buffer, n);
    }
    int status = 0;
    struct rusage uso {};
    if (wait4(pid, &status, WNOHANG, &uso) == pid) {
      r.termino = true;
      r.estado = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      r.memoria_kb = uso.ru_maxrss;
      break;
    }
    if (std::chrono::steady_clock::now() > fin) {
      kill(-pid, SIGKILL);
      waitpid(pid, nullptr, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (p.salida_a_archivo) {
    r.salida = ReadFile(salida);
  } else {
    char buffer[4096];
    ssize_t n;
    while ((n = read(tubo[0], buffer, sizeof buffer)) > 0) r.salida.append(buffer, n);
    close(tubo[0]);
  }
  return r;
}

fs::path ProgramaCGI::Catalogo(const fs::path& origen, const std::string& destino) const {
  const fs::path bases = dir_ / destino;
  fs::copy(origen, bases, fs::copy_options::recursive);
  for (const auto& e : fs::recursive_directory_iterator(bases)) {
    fs::permissions(e.path(), fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::add);
  }
  return bases;
}

void ProgramaCGI::Configuracion(const std::string& nombre, const std::string& texto) const {
  std::string cfg = Reemplaza(texto, "@BASES2@", (dir_ / "bases2").string());
  cfg = Reemplaza(cfg, "@BASES@", (dir_ / "bases").string());
  WriteFile(dir_ / nombre, Reemplaza(cfg, "@DIR@", dir_.string()));
}

void ProgramaCGI::ConfiguracionDePrueba(const std::string& archivo,
                                        const std::string& nombre) const {
  Configuracion(nombre.empty() ? archivo : nombre,
                ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" / archivo));
}

std::string ProgramaCGI::Pagina(const std::string& query) const {
  const Respuesta r = Ejecuta(Get(query));
  EXPECT_TRUE(r.termino) << query;
  EXPECT_EQ(r.estado, 0) << query;
  return Reemplaza(r.salida, dir_.string(), "@DIR@");
}

std::string Reemplaza(std::string texto, const std::string& de, const std::string& a) {
  for (std::size_t p = texto.find(de); p != std::string::npos; p = texto.find(de, p + a.size())) {
    texto.replace(p, de.size(), a);
  }
  return texto;
}

void ComparaConDorado(const std::string& nombre, const std::string& salida) {
  const fs::path dorado = fs::path(ORVEX_GOLDEN_DIR) / (nombre + ".html");
  if (std::getenv("UPDATE_GOLDEN") != nullptr) {
    WriteFile(dorado, salida);
    return;
  }
  ASSERT_TRUE(fs::exists(dorado)) << dorado << " is missing; run with UPDATE_GOLDEN=1";
  EXPECT_EQ(salida, ReadFile(dorado)) << "output differs from " << dorado;
}

Peticion Get(const std::string& query) {
  Peticion p;
  p.variables = {{"REQUEST_METHOD", "GET"},
                 {"QUERY_STRING", query},
                 {"SCRIPT_NAME", "/cgi-bin/orvex"},
                 {"REMOTE_ADDR", "127.0.0.1"},
                 {"GATEWAY_INTERFACE", "CGI/1.1"}};
  return p;
}

Peticion Post(const std::string& cuerpo, const std::string& query, const std::string& tipo) {
  Peticion p = Get(query);
  p.variables["REQUEST_METHOD"] = "POST";
  p.variables["CONTENT_TYPE"] = tipo;
  p.variables["CONTENT_LENGTH"] = std::to_string(cuerpo.size());
  p.cuerpo = cuerpo;
  return p;
}

Peticion APipe(Peticion p) {
  p.salida_a_archivo = false;
  return p;
}

Peticion ConLongitud(Peticion p, const std::string& longitud) {
  p.variables["CONTENT_LENGTH"] = longitud;
  return p;
}

}  // namespace orvex::e2e
