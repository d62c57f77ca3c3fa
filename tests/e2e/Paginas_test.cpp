// End-to-end: the real orvex binary run the way a web server runs it, in a
// program directory of its own, with the CGI variables in its environment,
// the body on its standard input and the clock pinned by faketime. The whole
// output is compared byte for byte with tests/e2e/golden (UPDATE_GOLDEN=1
// rewrites those files). The program directory appears there as "@DIR@".

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

namespace orvex {
namespace {

namespace fs = std::filesystem;

const char kConfiguracion[] =
    "Configuracion de prueba\r\n"
    "BASE:\r\n{/srv/orvex/bases}\r\n"
    "ENCABEZADO:\r\n{<html><body><h1>Cat\xE1logo</h1>}\r\n"
    "FINAL:\r\n{</body></html>}\r\n";

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
};

// A program directory holding the binary and a configuration file.
class ProgramaCGI {
 public:
  explicit ProgramaCGI(const std::string& nombre)
      : dir_(fs::path(ORVEX_SCRATCH_DIR) / nombre) {
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    std::error_code ec;
    fs::create_hard_link(ORVEX_BINARY, dir_ / "orvex", ec);
    if (ec) fs::copy_file(ORVEX_BINARY, dir_ / "orvex");
    WriteFile(dir_ / "libros.cfg", kConfiguracion);
  }
  ~ProgramaCGI() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  const fs::path& dir() const { return dir_; }

  Respuesta Ejecuta(const Peticion& p) const {
    const fs::path entrada = dir_ / ".stdin";
    const fs::path salida = dir_ / ".stdout";
    WriteFile(entrada, p.cuerpo);
    int tubo[2] = {-1, -1};
    if (!p.salida_a_archivo && pipe(tubo) != 0) return {};
    const pid_t pid = fork();
    if (pid == 0) {
      setpgid(0, 0);  // faketime runs orvex as its child: stop them together
      const int in = open(entrada.c_str(), O_RDONLY);
      dup2(in, 0);
      if (p.salida_a_archivo) {
        dup2(open(salida.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644), 1);
      } else {
        dup2(tubo[1], 1);
        close(tubo[0]);
      }
      std::vector<std::string> env = {"TZ=UTC", "PATH=/usr/bin:/bin",
                                      "ASAN_OPTIONS=verify_asan_link_order=0"};
      for (const auto& [k, v] : p.variables) env.push_back(k + "=" + v);
      std::vector<char*> envp;
      for (std::string& e : env) envp.push_back(e.data());
      envp.push_back(nullptr);
      const std::string programa = (dir_ / "orvex").string();
      const char* argv[] = {"faketime", "2008-12-15 09:30:11", programa.c_str(), nullptr};
      execve("/usr/bin/faketime", const_cast<char**>(argv), envp.data());
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
      if (waitpid(pid, &status, WNOHANG) == pid) {
        r.termino = true;
        r.estado = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

 private:
  fs::path dir_;
};

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

struct Caso {
  const char* nombre;
  Peticion peticion;
  // A request that ends on the error page after its log was made leaves the
  // log behind for the administrator.
  bool deja_log = false;
};

void PrintTo(const Caso& c, std::ostream* os) { *os << c.nombre; }

Peticion Get(const std::string& query) {
  Peticion p;
  p.variables = {{"REQUEST_METHOD", "GET"},
                 {"QUERY_STRING", query},
                 {"SCRIPT_NAME", "/cgi-bin/orvex"},
                 {"REMOTE_ADDR", "127.0.0.1"},
                 {"GATEWAY_INTERFACE", "CGI/1.1"}};
  return p;
}

Peticion Post(const std::string& cuerpo, const std::string& query = "",
              const std::string& tipo = "application/x-www-form-urlencoded") {
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

class Paginas : public ::testing::TestWithParam<Caso> {};

TEST_P(Paginas, MatchTheirGoldenFiles) {
  const Caso& c = GetParam();
  ProgramaCGI programa(c.nombre);
  const Respuesta r = programa.Ejecuta(c.peticion);
  ASSERT_TRUE(r.termino);
  EXPECT_EQ(r.estado, 0);
  ComparaConDorado(c.nombre, Reemplaza(r.salida, programa.dir().string(), "@DIR@"));
  int logs = 0;
  for (const auto& entrada : fs::directory_iterator(programa.dir())) {
    if (entrada.path().extension() == ".log") ++logs;
  }
  EXPECT_EQ(logs, c.deja_log ? 1 : 0) << "request logs left behind";
}

INSTANTIATE_TEST_SUITE_P(
    Orvex, Paginas,
    ::testing::Values(
        Caso{"sin_archivocfg", Get("ACERVO=libros")},
        Caso{"cfg_inexistente", APipe(Get("ArchivoCFG=noexiste.cfg&ACERVO=libros")), true},
        Caso{"acervo_incorrecto", Get("ArchivoCFG=libros.cfg&ACERVO=Revista")},
        Caso{"libros", Get("ArchivoCFG=LIBROS.CFG&txtLIB=historia+de+M%E9xico")},
        Caso{"post_con_consulta",
             Post("ArchivoCFG=libros.cfg&txtLIB=show_ver", "txtLIB=ignorado&ACERVO=x")},
        Caso{"post_multipart",
             Post("ArchivoCFG=libros.cfg", "ACERVO=revistas", "multipart/form-data; boundary=z")},
        Caso{"post_minusculas",
             [] {
               Peticion p = Post("ArchivoCFG=libros.cfg");
               p.variables["REQUEST_METHOD"] = "post";
               return p;
             }()},
        Caso{"cuerpo_mas_largo", ConLongitud(Post("ArchivoCFG=libros.cfg"), "5")},
        Caso{"show_var", Get("ArchivoCFG=libros.cfg&txtLIB=show_var")},
        Caso{"debugcfg", Get("ArchivoCFG=libros.cfg&txtEXPR1=debugcfg")},
        Caso{"bytes_raros",
             Post("ArchivoCFG=libros.cfg&txt%00LIB=%FF&ACERVO=%E1rbol%00x\xE9%7F")},
        Caso{"escape_malformado", Get("ArchivoCFG=libros.cfg&txtLIB=100%")},
        Caso{"error_en_archivo", Get("ArchivoCFG=libros.cfg&generaLINKsURL=quizas")},
        Caso{"error_en_tubo", APipe(Get("ArchivoCFG=libros.cfg&generaLINKsURL=quizas"))},
        Caso{"muchos_campos",
             Post("ArchivoCFG=libros.cfg&ACERVO=catalogos&" + std::string(200000, '=') +
                  [] {
                    std::string s;
                    for (int i = 0; i < 20000; ++i) s += "&c" + std::to_string(i) + "=v";
                    return s;
                  }())}),
    [](const ::testing::TestParamInfo<Caso>& info) { return info.param.nombre; });

TEST(Cuerpo, AShortBodyKeepsTheProgramWaitingForTheServer) {
  ProgramaCGI programa("cuerpo_corto");
  Peticion p = ConLongitud(Post("ArchivoCFG=libros.cfg"), "100");
  p.limite_s = 1.5;
  const Respuesta r = programa.Ejecuta(p);
  EXPECT_FALSE(r.termino) << "the program did not wait for the rest of the body";
  EXPECT_EQ(r.salida, "");
}

TEST(Configuracion, BracesOutOfBalanceAndNoSectionsStillGiveAPage) {
  for (const char* texto : {"ENCABEZADO:{ {{ BASE:{/x", "}}}}", "sin secciones", "",
                            "BASE:{\xFF\x00}"}) {
    ProgramaCGI programa("cfg_rara");
    WriteFile(programa.dir() / "libros.cfg", texto);
    const Respuesta r = programa.Ejecuta(Get("ArchivoCFG=libros.cfg&ACERVO=libros"));
    ASSERT_TRUE(r.termino);
    // Either the error page of a missing "BASE:" or the missing files' page.
    const bool pagina_error = r.salida.rfind("<H4>Error en /cgi-bin/orvex</H4>\r\n", 0) == 0;
    const bool sin_archivos =
        r.salida.rfind("Content-Type: text/html\r\n", 0) == 0 &&
        r.salida.find("<h2>Error al abrir Bases de Datos de Consulta </h2>") != std::string::npos;
    EXPECT_TRUE(pagina_error || sin_archivos) << texto << "\n" << r.salida;
  }
}

TEST(Configuracion, ADirectoryNamedLikeTheFileIsAMissingFile) {
  ProgramaCGI programa("cfg_directorio");
  fs::create_directory(programa.dir() / "dir.cfg");
  Peticion peticion = Get("ArchivoCFG=dir.cfg");
  peticion.salida_a_archivo = false;  // the books' error page follows, appended
  const Respuesta r = programa.Ejecuta(peticion);
  ASSERT_TRUE(r.termino);
  EXPECT_EQ(r.salida.find("<center><p><H4>No se encontr\xF3 la definici\xF3n del archivo CFG ("), 0u);
}

}  // namespace
}  // namespace orvex
