#include "tests/support/ProgramaCGI.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "base/CodePage.h"
#include "db/Database.h"

namespace orvex::testing {
namespace {

constexpr const char* kLibFaketime = "/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1";

// Reads what is ready on the non-blocking `fd` into `salida`.
void Lee(int fd, std::string& salida) {
  char buffer[4096];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) salida.append(buffer, n);
}

void HazEscribible(const fs::path& ruta) {
  fs::permissions(ruta, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::add);
}

}  // namespace

std::string Reemplaza(std::string texto, const std::string& de, const std::string& a) {
  for (std::size_t p = texto.find(de); p != std::string::npos; p = texto.find(de, p + a.size())) {
    texto.replace(p, de.size(), a);
  }
  return texto;
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

fs::path CatalogoDePrueba(Bases forma) {
  return fs::path(ORVEX_FIXTURES) / "catalogo" / (forma == Bases::Jet ? "jet" : "sqlite");
}

ProgramaCGI::ProgramaCGI(const std::string& nombre, const Disposicion& d, Modo modo)
    : dir_(fs::path(modo == Modo::FastCGI ? ORVEX_SCRATCH_DIR "-fastcgi" : ORVEX_SCRATCH_DIR) /
           nombre),
      modo_(modo) {
  fs::remove_all(dir_);
  fs::create_directories(dir_);
  std::error_code ec;
  fs::create_hard_link(ORVEX_BINARY, dir_ / "orvex", ec);
  if (ec) fs::copy_file(ORVEX_BINARY, dir_ / "orvex");
  const auto copia_catalogo = [&](const char* destino) {
    fs::copy(CatalogoDePrueba(d.bases), dir_ / destino, fs::copy_options::recursive);
    for (const auto& e : fs::recursive_directory_iterator(dir_ / destino)) HazEscribible(e.path());
  };
  if (d.bases != Bases::Ninguna) copia_catalogo("bases");
  if (d.bases != Bases::Ninguna && d.bases2) copia_catalogo("bases2");
  for (const std::string& archivo : d.de_prueba) {
    Escribe(archivo, ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" / archivo));
  }
  for (const auto& [nombre_archivo, texto] : d.archivos) Escribe(nombre_archivo, texto);
  for (const auto& [destino, origen] : d.copias) {
    fs::create_directories((dir_ / destino).parent_path());
    fs::copy_file(origen, dir_ / destino, fs::copy_options::overwrite_existing);
    HazEscribible(dir_ / destino);
  }
}

ProgramaCGI::~ProgramaCGI() {
  DetieneTrabajador();
  std::error_code ec;
  fs::remove_all(dir_, ec);
}

std::string ProgramaCGI::Rellena(const std::string& texto) const {
  std::string r = Reemplaza(texto, "@BASES2@", (dir_ / "bases2").string());
  r = Reemplaza(r, "@BASES@", (dir_ / "bases").string());
  return Reemplaza(r, "@DIR@", dir_.string());
}

void ProgramaCGI::Escribe(const std::string& nombre, const std::string& texto) const {
  fs::create_directories((dir_ / nombre).parent_path());
  WriteFile(dir_ / nombre, Rellena(texto));
}

namespace {

// The environment every run starts from: the clock pinned, the sanitizer
// told about the preloaded library.
std::vector<std::string> EntornoBase() {
  // libfaketime itself rather than its wrapper, which needs a named
  // semaphore per run and fails now and then when many tests run at once.
  // Only the clock is pinned: files keep their real times, which Orvex
  // compares with what other programs (orvex-catalogo) recorded of them.
  return {"TZ=UTC",
          "NO_FAKE_STAT=1",
          "PATH=/usr/bin:/bin",
          "ASAN_OPTIONS=verify_asan_link_order=0",
          "LD_PRELOAD=" + std::string(kLibFaketime),
          "FAKETIME=2008-12-15 09:30:11",
          "DONT_FAKE_MONOTONIC=1"};
}

// Replaces the child of a fork by `argv`, run with `env`; never returns.
[[noreturn]] void SustituyeProceso(const std::vector<std::string>& argv, std::vector<std::string> env) {
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  execve(args[0], args.data(), envp.data());
  _exit(127);
}

// Runs `argv` in a process group of its own with `env`, the file `entrada` as
// its standard input and its standard output to the file `salida` or to a
// pipe; stops it after `limite_s` seconds.
Respuesta Corre(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                const fs::path& entrada, const fs::path& salida, bool a_archivo,
                double limite_s) {
  int tubo[2] = {-1, -1};
  if (!a_archivo && pipe(tubo) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    dup2(open(entrada.c_str(), O_RDONLY), 0);
    if (a_archivo) {
      dup2(open(salida.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644), 1);
    } else {
      dup2(tubo[1], 1);
      close(tubo[0]);
    }
    SustituyeProceso(argv, env);
  }
  Respuesta r;
  if (!a_archivo) {
    close(tubo[1]);
    fcntl(tubo[0], F_SETFL, O_NONBLOCK);
  }
  const auto fin = std::chrono::steady_clock::now() + std::chrono::duration<double>(limite_s);
  for (;;) {
    if (!a_archivo) Lee(tubo[0], r.salida);
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
  if (a_archivo) {
    r.salida = ReadFile(salida);
  } else {
    Lee(tubo[0], r.salida);
    close(tubo[0]);
  }
  return r;
}

// The peak resident memory of the process `pid`, in KB (0 when unknown).
long MemoriaPico(int pid) {
  std::ifstream estado("/proc/" + std::to_string(pid) + "/status");
  std::string linea;
  while (std::getline(estado, linea)) {
    if (linea.rfind("VmHWM:", 0) == 0) return std::strtol(linea.c_str() + 6, nullptr, 10);
  }
  return 0;
}

}  // namespace

Modo ModoDePrueba() {
  const char* modo = std::getenv("ORVEX_E2E_MODO");
  return modo != nullptr && std::string_view(modo) == "fastcgi" ? Modo::FastCGI : Modo::CGI;
}

Respuesta ProgramaCGI::Ejecuta(const Peticion& p) const {
  return modo_ == Modo::FastCGI && p.salida_a_archivo ? EjecutaFastCGI(p) : EjecutaCGI(p);
}

Respuesta ProgramaCGI::EjecutaCGI(const Peticion& p) const {
  const fs::path entrada = dir_ / ".stdin";
  WriteFile(entrada, p.cuerpo);
  std::vector<std::string> env = EntornoBase();
  for (const auto& [k, v] : p.variables) env.push_back(k + "=" + v);
  return Corre({(dir_ / "orvex").string()}, env, entrada, dir_ / ".stdout", p.salida_a_archivo,
               p.limite_s);
}

bool ProgramaCGI::IniciaTrabajador() const {
  // The worker's listening socket; the parent's copy closes with it.
  const Escucha escucha;
  if (!escucha.abierta()) return false;
  const std::string registro = (dir_ / ".trabajador.salida").string();
  const pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    // As a FastCGI server starts a worker: the listening socket is its
    // standard input.
    dup2(escucha.fd(), 0);
    close(escucha.fd());
    const int log = open(registro.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(log, 1);
    dup2(log, 2);
    SustituyeProceso({(dir_ / "orvex").string()}, EntornoBase());
  }
  if (pid < 0) return false;
  trabajador_ = pid;
  puerto_ = std::stoi(escucha.puerto());
  return true;
}

void ProgramaCGI::DetieneTrabajador() const {
  if (trabajador_ <= 0) return;
  const pid_t pid = trabajador_;
  trabajador_ = 0;
  if (ocupado_) {
    // A request the harness gave up on may hold the worker until its
    // deadline: there is nothing to learn from waiting.
    kill(-pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return;
  }
  // A FastCGI server stops its workers with TERM: the worker ends its
  // accept loop and exits with 0 (under the sanitizers, after their checks
  // at exit).
  kill(pid, SIGTERM);
  int status = 0;
  const auto fin = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (waitpid(pid, &status, WNOHANG) != pid) {
    if (std::chrono::steady_clock::now() > fin) {
      kill(-pid, SIGKILL);
      waitpid(pid, nullptr, 0);
      ADD_FAILURE() << "the FastCGI worker did not stop on TERM";
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
      << "the FastCGI worker ended with status " << status << ":\n"
      << ReadFile(dir_ / ".trabajador.salida");
}

Respuesta ProgramaCGI::EjecutaFastCGI(const Peticion& p) const {
  if (trabajador_ > 0 && waitpid(trabajador_, nullptr, WNOHANG) == trabajador_) trabajador_ = 0;
  if (trabajador_ == 0 && !IniciaTrabajador()) return {};
  const fs::path entrada = dir_ / ".stdin";
  WriteFile(entrada, p.cuerpo);
  std::vector<std::string> env = EntornoBase();
  for (const auto& [k, v] : p.variables) env.push_back(k + "=" + v);
  Respuesta r = Corre({"/usr/bin/cgi-fcgi", "-bind", "-connect",
                       "127.0.0.1:" + std::to_string(puerto_)},
                      env, entrada, dir_ / ".stdout", true, p.limite_s);
  ocupado_ = !r.termino;
  r.memoria_kb = MemoriaPico(trabajador_);
  int status = 0;
  if (waitpid(trabajador_, &status, WNOHANG) == trabajador_) {
    // The worker did not survive the request.
    ADD_FAILURE() << "the FastCGI worker ended with status " << status << ":\n"
                  << ReadFile(dir_ / ".trabajador.salida");
    trabajador_ = 0;
    ocupado_ = false;
    r.estado = -1;
  }
  return r;
}

std::string ProgramaCGI::Pagina(const Peticion& p) const {
  const auto query = p.variables.find("QUERY_STRING");
  const std::string& nombre = query == p.variables.end() ? p.cuerpo : query->second;
  const Respuesta r = Ejecuta(p);
  EXPECT_TRUE(r.termino) << nombre << ": the request did not end in time";
  EXPECT_EQ(r.estado, 0) << nombre;
  return Reemplaza(r.salida, dir_.string(), "@DIR@");
}

std::vector<std::string> ProgramaCGI::Filas(const std::string& base,
                                            const std::string& consulta) const {
  auto db = db::OpenDatabase((dir_ / base).string(), CodePage::Windows1252(), {.read_only = true});
  std::vector<std::string> filas;
  for (auto rs = db->OpenRecordset(consulta, db::RecordsetType::Snapshot); !rs->Eof();
       rs->MoveNext()) {
    std::string fila;
    for (const std::string& columna : rs->FieldNames()) {
      fila += (fila.empty() ? "" : "|") + rs->Field(columna).AsText();
    }
    filas.push_back(fila);
  }
  return filas;
}

void ProgramaCGI::Modifica(const std::string& base, const std::string& sentencia) const {
  db::OpenDatabase((dir_ / base).string(), CodePage::Windows1252())->Execute(sentencia);
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

Escucha::Escucha() : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in dir{};
  dir.sin_family = AF_INET;
  dir.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t largo = sizeof dir;
  if (bind(fd_, reinterpret_cast<sockaddr*>(&dir), sizeof dir) == 0 &&
      getsockname(fd_, reinterpret_cast<sockaddr*>(&dir), &largo) == 0 && listen(fd_, 4) == 0) {
    puerto_ = ntohs(dir.sin_port);
  }
}

Escucha::~Escucha() {
  if (fd_ >= 0) close(fd_);
}

bool Escucha::Tocada() const {
  pollfd p{fd_, POLLIN, 0};
  return poll(&p, 1, 0) == 1;
}

}  // namespace orvex::testing
