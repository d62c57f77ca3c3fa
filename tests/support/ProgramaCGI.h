#pragma once

// The harness of the end-to-end tests: the real orvex binary run the way a
// web server runs it, in a program directory of its own laid out for the
// test, with the clock pinned by libfaketime at Monday 15 December 2008,
// 09:30:11 UTC. It runs it either way a web server does (Modo):
//   - as a CGI program, a process per request, with the CGI variables in
//     its environment, the body on its standard input and the page on its
//     standard output;
//   - as a FastCGI worker, one process started in the program directory on
//     a listening socket of the loopback and kept for all the directory's
//     requests, each sent to it by Debian's cgi-fcgi (the variables as the
//     request's parameters, the body as its input). A request that asks
//     for the page on a pipe runs as CGI: the kind of standard output is a
//     CGI program's alone.
// The environment variable ORVEX_E2E_MODO=fastcgi makes FastCGI the mode of
// every ProgramaCGI (ctest runs the end-to-end tests once in each mode).

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/Formulario.h"

namespace orvex::testing {

namespace fs = std::filesystem;

// `texto` with every `de` replaced by `a`.
std::string Reemplaza(std::string texto, const std::string& de, const std::string& a);

struct Peticion {
  std::map<std::string, std::string> variables;
  std::string cuerpo;
  bool salida_a_archivo = true;  // standard output is a file, else a pipe
  double limite_s = 10;
};

struct Respuesta {
  std::string salida;
  bool termino = false;  // false when the harness had to stop it
  int estado = -1;       // the exit status; as FastCGI, cgi-fcgi's
  long memoria_kb = 0;   // the process's (the worker's) peak resident memory
};

enum class Modo { CGI, FastCGI };
// The mode that ORVEX_E2E_MODO chooses, CGI when it is not set.
Modo ModoDePrueba();

// Requests as a web server passes them.
Peticion Get(const std::string& query);
Peticion Post(const std::string& cuerpo, const std::string& query = "",
              const std::string& tipo = "application/x-www-form-urlencoded");
Peticion APipe(Peticion p);
Peticion ConLongitud(Peticion p, const std::string& longitud);

// The fixture catalogue (tests/fixtures/catalogo) in each of its forms.
enum class Bases { Ninguna, Sqlite, Jet };
fs::path CatalogoDePrueba(Bases forma);

// What a program directory holds besides the binary (linked as "orvex"),
// laid out in this order.
struct Disposicion {
  Bases bases = Bases::Ninguna;  // the fixture catalogue copied into bases/,
  bool bases2 = false;           // and into bases2/ too
  // Configurations of tests/e2e/cfg, each under its own name.
  std::vector<std::string> de_prueba = {};
  // Files by their path in the program directory, their text filled in as
  // ProgramaCGI::Rellena does.
  std::map<std::string, std::string> archivos = {};
  // Files copied byte for byte (and left writable), by their path in the
  // program directory.
  std::map<std::string, fs::path> copias = {};
};

class ProgramaCGI {
 public:
  // The directory `nombre` of the mode's scratch directory, emptied and
  // laid out.
  explicit ProgramaCGI(const std::string& nombre, const Disposicion& disposicion = {},
                       Modo modo = ModoDePrueba());
  ~ProgramaCGI();
  ProgramaCGI(const ProgramaCGI&) = delete;
  ProgramaCGI& operator=(const ProgramaCGI&) = delete;

  const fs::path& dir() const { return dir_; }

  // `texto` with "@BASES@", "@BASES2@" and "@DIR@" naming bases/, bases2/
  // and the program directory.
  std::string Rellena(const std::string& texto) const;
  // Writes `texto`, filled in, as the file `nombre` of the program
  // directory, making its folders.
  void Escribe(const std::string& nombre, const std::string& texto) const;

  // Runs the request with its variables, body and output kind; stops it
  // after its time limit. As FastCGI, the worker is started by the first
  // request and started again after one that it did not survive, which
  // then reports status -1 (as a CGI process that died would).
  Respuesta Ejecuta(const Peticion& p) const;
  // As FastCGI, the worker's pid (0 before the first request); a test can
  // tell from it that one process served several requests.
  int Trabajador() const { return trabajador_; }
  // The output of a request that must end by itself with status 0, the
  // program directory written "@DIR@" in it.
  std::string Pagina(const Peticion& p) const;
  std::string Pagina(const std::string& query) const { return Pagina(Get(query)); }

  // The rows `consulta` reads in the database `base` (a path in the program
  // directory), each one its columns' text joined by "|".
  std::vector<std::string> Filas(const std::string& base, const std::string& consulta) const;
  // Runs `sentencia` on the database `base`.
  void Modifica(const std::string& base, const std::string& sentencia) const;

 private:
  Respuesta EjecutaCGI(const Peticion& p) const;
  Respuesta EjecutaFastCGI(const Peticion& p) const;
  bool IniciaTrabajador() const;
  void DetieneTrabajador() const;

  fs::path dir_;
  Modo modo_;
  mutable int trabajador_ = 0;  // the FastCGI worker's pid
  mutable int puerto_ = 0;      // the port it listens on
  mutable bool ocupado_ = false;  // the harness gave up on its last request
};

// Compares `salida` with tests/e2e/golden/<nombre>.html byte for byte;
// UPDATE_GOLDEN=1 rewrites the file instead.
void ComparaConDorado(const std::string& nombre, const std::string& salida);

// A socket listening on a free port of the loopback that nobody serves: the
// kernel completes connections to it, and it shows whether any was made.
class Escucha {
 public:
  Escucha();
  ~Escucha();
  Escucha(const Escucha&) = delete;
  Escucha& operator=(const Escucha&) = delete;
  bool abierta() const { return fd_ >= 0 && puerto_ > 0; }
  std::string puerto() const { return std::to_string(puerto_); }
  int fd() const { return fd_; }
  // True when a connection is waiting to be taken.
  bool Tocada() const;

 private:
  int fd_ = -1;
  int puerto_ = 0;
};

}  // namespace orvex::testing
