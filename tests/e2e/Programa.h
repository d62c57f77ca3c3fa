#pragma once

// The harness of the end-to-end tests: the real orvex binary run the way a
// web server runs it, in a program directory of its own, with the CGI
// variables in its environment, the body on its standard input and the clock
// pinned by libfaketime.

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "tests/support/Formulario.h"

namespace orvex::e2e {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path);
void WriteFile(const fs::path& path, const std::string& content);

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

// A program directory of its own holding a link to the binary and the
// configuration file "libros.cfg".
class ProgramaCGI {
 public:
  ProgramaCGI(const std::string& nombre, const std::string& configuracion)
      : dir_(fs::path(ORVEX_SCRATCH_DIR) / nombre) {
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    std::error_code ec;
    fs::create_hard_link(ORVEX_BINARY, dir_ / "orvex", ec);
    if (ec) fs::copy_file(ORVEX_BINARY, dir_ / "orvex");
    WriteFile(dir_ / "libros.cfg", configuracion);
  }
  ~ProgramaCGI() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  const fs::path& dir() const { return dir_; }

  // Copies the catalogue directory `origen` (every file, writable) to
  // `destino` in the program directory and returns its path there.
  fs::path Catalogo(const fs::path& origen, const std::string& destino = "bases") const;
  // Writes `texto` as the program's configuration `nombre`, with "@BASES@"
  // and "@BASES2@" naming its bases/ and bases2/ and "@DIR@" the program
  // directory.
  void Configuracion(const std::string& nombre, const std::string& texto) const;
  // The same for the configuration `archivo` of tests/e2e/cfg, named
  // `nombre` (by default as it is named there).
  void ConfiguracionDePrueba(const std::string& archivo, const std::string& nombre = "") const;
  // The output of a GET, which must end by itself with status 0, with the
  // program directory written "@DIR@".
  std::string Pagina(const std::string& query) const;

  // Runs the binary under libfaketime (2008-12-15 09:30:11 UTC) with the
  // request's variables, body and output kind; stops it after its time limit.
  Respuesta Ejecuta(const Peticion& p) const;

 private:
  fs::path dir_;
};

using testing::Codifica;

// `texto` with every `de` replaced by `a`.
std::string Reemplaza(std::string texto, const std::string& de, const std::string& a);

// Compares `salida` with tests/e2e/golden/<nombre>.html byte for byte;
// UPDATE_GOLDEN=1 rewrites the file instead.
void ComparaConDorado(const std::string& nombre, const std::string& salida);

// Requests as a web server passes them.
Peticion Get(const std::string& query);
Peticion Post(const std::string& cuerpo, const std::string& query = "",
              const std::string& tipo = "application/x-www-form-urlencoded");
Peticion APipe(Peticion p);
Peticion ConLongitud(Peticion p, const std::string& longitud);

}  // namespace orvex::e2e
