#pragma once

// The harness of the end-to-end tests: the real orvex binary run the way a
// web server runs it, in a program directory of its own laid out for the
// test, with the CGI variables in its environment, the body on its standard
// input and the clock pinned by libfaketime at Monday 15 December 2008,
// 09:30:11 UTC.

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
  int estado = -1;
  long memoria_kb = 0;   // the process's peak resident memory
};

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
  // The directory `nombre` of the scratch directory, emptied and laid out.
  explicit ProgramaCGI(const std::string& nombre, const Disposicion& disposicion = {});
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

  // Runs the binary with the request's variables, body and output kind;
  // stops it after its time limit.
  Respuesta Ejecuta(const Peticion& p) const;
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
  fs::path dir_;
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
  // True when a connection is waiting to be taken.
  bool Tocada() const;

 private:
  int fd_ = -1;
  int puerto_ = 0;
};

}  // namespace orvex::testing
