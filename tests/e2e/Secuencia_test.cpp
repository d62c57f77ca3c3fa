// A long seeded random sequence of requests, and of the changes a library
// makes to its files between them, given to one FastCGI worker and, request
// by request, to fresh CGI processes in a twin program directory: every
// page must be the same bytes, the worker must serve the whole sequence,
// and both statistics databases must end with the same rows. Nothing of one
// request may reach the next, and nothing the worker keeps warm may outlive
// a change of its file.
//
// ORVEX_SEMILLA=<n> replays another sequence; a failure names its seed and
// the step.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

constexpr int kPasos = 300;

const Disposicion kSitio{
    .bases = Bases::Sqlite,
    .bases2 = true,
    .de_prueba = {"libros.cfg", "multibase.cfg", "revistas.cfg", "catalogo.cfg"},
    .copias = {{"jet/INDIZADO.MDB", CatalogoDePrueba(Bases::Jet) / "INDIZADO.MDB"},
               {"jet/KORVEL8.MDB", CatalogoDePrueba(Bases::Jet) / "KORVEL8.MDB"},
               {"jet/indizaPP.MDB", CatalogoDePrueba(Bases::Jet) / "indizaPP.MDB"},
               {"jet/estadisticas.mdb", CatalogoDePrueba(Bases::Jet) / "estadisticas.mdb"}}};

// Picks from the sequence's generator.
class Azar {
 public:
  explicit Azar(unsigned semilla) : g_(semilla) {}
  int Entre(int a, int b) { return std::uniform_int_distribution<int>(a, b)(g_); }
  bool Uno(int de) { return Entre(1, de) == 1; }
  template <class T>
  const T& De(const std::vector<T>& v) {
    return v[static_cast<std::size_t>(Entre(0, static_cast<int>(v.size()) - 1))];
  }

 private:
  std::mt19937 g_;
};

// A request of the sequence: every collection, the diagnostic commands,
// the forms, malformed and hostile fields, errors.
Peticion PeticionAlAzar(Azar& azar) {
  static const std::vector<std::string> kPalabras = {
      "novela", "quijote", "cervantes", "historia", "zzzz", "algebra", "revoluci$",
      "novela+(", "%22historia+de%22", "novela+AND+quijote", "m%E9xico", "%FF%00", "100%",
      "publicaciones", "cultura"};
  static const std::vector<std::string> kCantidades = {"1", "4", "10", "0", "-3", "abc", ""};
  static const std::vector<std::string> kDesde = {"1", "5", "11", "21", "999", "0", "x"};
  static const std::vector<std::string> kComandos = {
      "show_ver", "show_var", "show_sec", "test_all", "show_bdt", "show_num+000216",
      "show_num+999999", "SHOW_VER"};
  const std::string pagina = "&Cantidad=" + azar.De(kCantidades) + "&FichaINI=" + azar.De(kDesde);
  const std::string palabra = azar.De(kPalabras);
  std::string q;
  switch (azar.Entre(0, 13)) {
    case 0:
    case 1:
      q = "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=" + palabra + pagina;
      break;
    case 2:
      q = "ArchivoCFG=" + azar.De(std::vector<std::string>{"libros.cfg", "jet.cfg"}) +
          "&ACERVO=libros&txtAUT=cervantes&txtTIT=" + palabra + pagina +
          (azar.Uno(2) ? "&mostrarFICHABIB=1" : "&mostrarFICHABDL=1");
      break;
    case 3:
      q = "ArchivoCFG=libros.cfg&ACERVO=libros&BUSQ_AVANZADA=1&txtEXPR1=" + palabra +
          "&opCAMPO1=" + std::to_string(azar.Entre(0, 4)) + "&opBOOLEAN1=" +
          std::to_string(azar.Entre(0, 3)) + "&txtEXPR2=quijote&opCAMPO2=1" + pagina;
      break;
    case 4:
      q = "ArchivoCFG=multibase.cfg&ACERVO=libros&BUSQ_AVANZADA=1&BaseDTA=" +
          azar.De(std::vector<std::string>{"1", "2", "3", "99", "x"}) + "&txtEXPR1=" + palabra +
          "&opCAMPO1=0" + pagina;
      break;
    case 5:
      q = "ArchivoCFG=libros.cfg&ACERVO=libros&txtNoFicha=" + std::to_string(azar.Entre(0, 40)) +
          "&txtLIB=" + palabra + pagina;
      break;
    case 6:
      q = "ArchivoCFG=revistas.cfg&ACERVO=" +
          azar.De(std::vector<std::string>{"REVISTAS", "ARTICULOS", "revistas"}) + "&txtLIB=" +
          palabra + pagina + (azar.Uno(3) ? "&txtNoFicha=" + std::to_string(azar.Entre(1, 9)) : "");
      break;
    case 7:
      q = "ArchivoCFG=catalogo.cfg&ACERVO=CATALOGOS&CAMPO=" +
          azar.De(std::vector<std::string>{"Biblioteca", "Ficha_No", "FechaIngreso", ""}) +
          "&txtLIB=" + azar.De(std::vector<std::string>{"Central", "sala", "15", "29/08/2002"}) +
          (azar.Uno(2) ? "&TIPOBUSQUEDA=1" : "") + pagina;
      break;
    case 8:
      q = "ArchivoCFG=" + azar.De(std::vector<std::string>{"libros.cfg", "jet.cfg"}) +
          "&ACERVO=libros&txtLIB=" + azar.De(kComandos);
      break;
    case 9:
      q = azar.De(std::vector<std::string>{
          "ACERVO=libros", "ArchivoCFG=noexiste.cfg&ACERVO=libros",
          "ArchivoCFG=../libros.cfg&txtLIB=novela", "ArchivoCFG=libros.cfg&ACERVO=Revista",
          "ArchivoCFG=libros.cfg&generaLINKsURL=quizas", "ArchivoCFG=libros.cfg&txtEXPR1=debugcfg",
          "ArchivoCFG=libros.cfg&txt%00LIB=%FF&ACERVO=%E1rbol%00x%7F",
          "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=%3Cscript%3E"});
      break;
    case 10: {
      Peticion p = Post("ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=" + palabra + pagina);
      if (azar.Uno(3)) p = Post("txtLIB=" + palabra, "ArchivoCFG=libros.cfg&ACERVO=libros");
      return p;
    }
    case 11:
      return Post("ArchivoCFG=libros.cfg", "", "multipart/form-data; boundary=z");
    case 12:
      // Longer than the largest body accepted, or shorter than declared
      // by a few bytes (the page that follows the wait is the same).
      if (azar.Uno(2)) return Post("ArchivoCFG=libros.cfg&x=" + std::string(1100000, 'a'));
      return ConLongitud(Post("ArchivoCFG=libros.cfg&txtLIB=novela"), "5");
    default:
      q = "ArchivoCFG=jet.cfg&ACERVO=libros&txtLIB=" + palabra + pagina;
      break;
  }
  return Get(q);
}

// What a library changes between two requests, done to both directories.
using Cambio = std::function<void(const ProgramaCGI&)>;

std::vector<std::pair<std::string, Cambio>> Cambios(Azar& azar) {
  const std::string libros = ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" / "libros.cfg");
  const std::string hoja = ReadFile(fs::path(ORVEX_E2E_DIR) / ".." / "xslt" / "wd" / "fichaWeb.xsl");
  const int n = azar.Entre(1, 1000);
  return {
      {"the configuration is edited",
       [libros, n](const ProgramaCGI& p) {
         p.Escribe("libros.cfg", Reemplaza(libros, "<h1>Cat", "<h1>" + std::to_string(n) + " Cat"));
       }},
      {"the configuration is restored",
       [libros](const ProgramaCGI& p) { p.Escribe("libros.cfg", libros); }},
      {"an own sheet is installed",
       [hoja](const ProgramaCGI& p) { p.Escribe("XSLs/fichaWeb.xsl", hoja); }},
      {"the own sheet is removed",
       [](const ProgramaCGI& p) { fs::remove(p.dir() / "XSLs" / "fichaWeb.xsl"); }},
      {"a record is deleted",
       [n](const ProgramaCGI& p) {
         // Jet files take no DELETE: once the catalogue is Jet, nothing changes.
         try {
           p.Modifica("bases/KORVEL8.MDB",
                      "DELETE FROM Fichas WHERE Ficha_no = " + std::to_string(n % 30 + 1));
         } catch (const std::exception&) {
         }
       }},
      {"the word index is taken away",
       [](const ProgramaCGI& p) {
         if (fs::exists(p.dir() / "bases" / "INDIZADO.MDB")) {
           fs::rename(p.dir() / "bases" / "INDIZADO.MDB", p.dir() / "INDIZADO.fuera");
         }
       }},
      {"the word index is put back",
       [](const ProgramaCGI& p) {
         if (fs::exists(p.dir() / "INDIZADO.fuera")) {
           fs::rename(p.dir() / "INDIZADO.fuera", p.dir() / "bases" / "INDIZADO.MDB");
         }
       }},
      {"the catalogue is rebuilt from the Jet files",
       [](const ProgramaCGI& p) {
         for (const char* archivo : {"KORVEL8.MDB", "indizaPP.MDB"}) {
           fs::copy_file(p.dir() / "jet" / archivo, p.dir() / "bases" / "nuevo",
                         fs::copy_options::overwrite_existing);
           fs::rename(p.dir() / "bases" / "nuevo", p.dir() / "bases" / archivo);
         }
       }},
      {"the settings echo request text literally",
       [](const ProgramaCGI& p) { p.Escribe("orvex.ini", "Ecos = literales\n"); }},
      {"the settings are removed", [](const ProgramaCGI& p) { fs::remove(p.dir() / "orvex.ini"); }},
  };
}

std::string Describe(const Peticion& p) {
  std::string d;
  for (const auto& [k, v] : p.variables) {
    if (k == "QUERY_STRING" || k == "REQUEST_METHOD" || k == "CONTENT_LENGTH") {
      d += k + "=" + v + " ";
    }
  }
  return d + "body " + std::to_string(p.cuerpo.size()) + " bytes: " + p.cuerpo.substr(0, 80);
}

TEST(Secuencia, AWarmWorkerGivesEveryPageThatFreshProcessesGive) {
  if (ModoDePrueba() == Modo::FastCGI) GTEST_SKIP() << "the test runs both modes itself";
  const char* semilla_texto = std::getenv("ORVEX_SEMILLA");
  const unsigned semilla = semilla_texto != nullptr ? std::strtoul(semilla_texto, nullptr, 10) : 24;
  SCOPED_TRACE("ORVEX_SEMILLA=" + std::to_string(semilla));
  Azar azar(semilla);

  const ProgramaCGI cgi("secuencia", kSitio, Modo::CGI);
  const ProgramaCGI fastcgi("secuencia", kSitio, Modo::FastCGI);
  for (const ProgramaCGI* p : {&cgi, &fastcgi}) {
    p->Escribe("jet.cfg", Reemplaza(ReadFile(fs::path(ORVEX_E2E_DIR) / "cfg" / "libros.cfg"),
                                    "{@BASES@}", "{@DIR@/jet}"));
  }
  // One request waits out the watchdog, at a place of the sequence's own.
  const int espera = azar.Entre(0, kPasos - 1);
  int trabajador = 0;
  int cambios = 0;
  std::string ultimo_cambio = "none";
  for (int paso = 0; paso < kPasos; ++paso) {
    if (azar.Uno(12)) {
      auto cambio = Cambios(azar);
      const auto& [que, hace] = cambio[static_cast<std::size_t>(
          azar.Entre(0, static_cast<int>(cambio.size()) - 1))];
      hace(cgi);
      hace(fastcgi);
      ++cambios;
      ultimo_cambio = que + " (before step " + std::to_string(paso) + ")";
    }
    Peticion p = PeticionAlAzar(azar);
    if (paso == espera) {
      p = ConLongitud(Post("ArchivoCFG=libros.cfg&txtLIB=novela"), "1000");
      p.limite_s = 20;
    }
    SCOPED_TRACE("step " + std::to_string(paso) + ": " + Describe(p) +
                 "; last change: " + ultimo_cambio);
    const std::string esperada = cgi.Pagina(p);
    const std::string pagina = fastcgi.Pagina(p);
    ASSERT_EQ(pagina, esperada);
    if (trabajador == 0) trabajador = fastcgi.Trabajador();
    ASSERT_EQ(fastcgi.Trabajador(), trabajador) << "the worker was replaced";
  }
  EXPECT_GT(cambios, 0);
  const std::string consultas = "SELECT * FROM Consultas ORDER BY 1";
  for (const char* base :
       {"bases/estadisticas.mdb", "bases2/estadisticas.mdb", "jet/estadisticas.mdb"}) {
    const std::vector<std::string> filas = cgi.Filas(base, consultas);
    EXPECT_EQ(fastcgi.Filas(base, consultas), filas) << base;
  }
  EXPECT_GT(cgi.Filas("bases/estadisticas.mdb", consultas).size(), 50u);
}

}  // namespace
}  // namespace orvex
