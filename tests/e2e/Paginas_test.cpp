// End-to-end: the real orvex binary run the way a web server runs it, in a
// program directory of its own, with the CGI variables in its environment,
// the body on its standard input and the clock pinned by libfaketime. The whole
// output is compared byte for byte with tests/e2e/golden (UPDATE_GOLDEN=1
// rewrites those files). The program directory appears there as "@DIR@".

#include <gtest/gtest.h>

#include "db/SqliteEngine.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

// libros.cfg, over a catalogue that is not there.
const Disposicion kLibros{.archivos = {{"libros.cfg",
                                        "Configuracion de prueba\r\n"
                                        "BASE:\r\n{/srv/orvex/bases}\r\n"
                                        "ENCABEZADO:\r\n{<html><body><h1>Cat\xE1logo</h1>}\r\n"
                                        "FINAL:\r\n{</body></html>}\r\n"
                                        "DIAGNOSTICO:\r\n{127.0.0.1}\r\n"}}};

struct Caso {
  const char* nombre;
  Peticion peticion;
  // A request that ends on the error page after its log was made leaves the
  // log behind for the administrator.
  bool deja_log = false;
};

void PrintTo(const Caso& c, std::ostream* os) { *os << c.nombre; }

class Paginas : public ::testing::TestWithParam<Caso> {};

TEST_P(Paginas, MatchTheirGoldenFiles) {
  const Caso& c = GetParam();
  const ProgramaCGI programa(c.nombre, kLibros);
  // The engine's version (the version page names it) is the build's.
  ComparaConDorado(c.nombre, Reemplaza(programa.Pagina(c.peticion),
                                       std::string("SQLite ") + db::VersionSqlite(),
                                       "SQLite @VERSION@"));
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
  const ProgramaCGI programa("cuerpo_corto", kLibros);
  Peticion p = ConLongitud(Post("ArchivoCFG=libros.cfg"), "100");
  p.limite_s = 1.5;
  const Respuesta r = programa.Ejecuta(p);
  EXPECT_FALSE(r.termino) << "the program did not wait for the rest of the body";
  EXPECT_EQ(r.salida, "");
}

TEST(Configuracion, BracesOutOfBalanceAndNoSectionsStillGiveAPage) {
  for (const char* texto : {"ENCABEZADO:{ {{ BASE:{/x", "}}}}", "sin secciones", "",
                            "BASE:{\xFF\x00}"}) {
    const ProgramaCGI programa("cfg_rara", {.archivos = {{"libros.cfg", texto}}});
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
  const ProgramaCGI programa("cfg_directorio", kLibros);
  fs::create_directory(programa.dir() / "dir.cfg");
  Peticion peticion = Get("ArchivoCFG=dir.cfg");
  peticion.salida_a_archivo = false;  // the books' error page follows, appended
  const Respuesta r = programa.Ejecuta(peticion);
  ASSERT_TRUE(r.termino);
  EXPECT_EQ(r.salida.find("<center><p><H4>No se encontr\xF3 la definici\xF3n del archivo CFG ("), 0u);
}

}  // namespace
}  // namespace orvex
