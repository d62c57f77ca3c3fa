#include "tests/support/Catalogos.h"

#include <array>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "base/CodePage.h"
#include "bench/Azar.h"
#include "base/PosixPlatform.h"
#include "catalogo/Catalogo.h"
#include "db/Database.h"
#include "gateway/CGI_Main.h"
#include "tests/support/MARCPrueba.h"
#include "tests/support/Fakes.h"
#include "xslt/MotorLibxslt.h"

namespace orvex::testing {
namespace fs = std::filesystem;

namespace {

using bench::Azar;

// Zipf-like: index i of n with weight about 1 / (i + 1).
std::size_t Zipf(Azar& azar, std::size_t n) {
  const std::size_t a = azar.Menor(n), b = azar.Menor(n);
  return a < b ? a : b;
}

constexpr std::array<const char*, 12> kGlue = {"de", "la", "el", "y", "en", "los", "del", "las",
                                               "a", "por", "con", "De"};
constexpr std::array<const char*, 40> kTemas = {
    "historia", "México", "MEXICO", "mexico", "medicina", "Medicina", "arte", "artes", "Arte",
    "computación", "computadora", "cómputo", "computo", "niño", "niños", "año", "años",
    "lingüística", "français", "antiguo", "casa", "Casa", "revolución", "siglo", "XX", "1910",
    "álgebra", "Álgebra", "economía", "política", "guerra", "mujeres", "Oaxaca", "Chiapas",
    "literatura", "poesía", "ciencia", "educación", "enseñanza", "teatro"};
constexpr std::array<const char*, 16> kNombres = {
    "García", "Márquez", "O'Brien", "Villaseñor", "Ibargüengoitia", "Cosío", "Paz", "Reyes",
    "Fuentes", "Garro", "Castellanos", "Azuela", "Rulfo", "Poniatowska", "Monsiváis", "Núñez"};
constexpr std::array<const char*, 8> kEditoriales = {
    "Fondo de Cultura Económica", "Porrúa", "Siglo XXI", "El Colegio de México", "Era",
    "Joaquín Mortiz", "UNAM", "Ciencia & Arte"};

// A made-up word of the long tail: syllables from the index.
std::string Inventada(Azar& azar, std::size_t i) {
  static constexpr std::array<const char*, 12> kSilabas = {"ta", "mo", "xi", "rú", "ña", "be",
                                                           "co", "li", "qué", "za", "pu", "ge"};
  std::string w;
  for (std::size_t k = 0; k < 2 + i % 3; ++k) w += kSilabas[(i / (k + 1) + k * 5) % kSilabas.size()];
  if (azar.Menor(4) == 0) w += "s";
  return w;
}

std::string Palabra(Azar& azar) {
  switch (azar.Menor(8)) {
    case 0:
    case 1:
    case 2: return kGlue[Zipf(azar, kGlue.size())];
    case 3:
    case 4:
    case 5: return kTemas[Zipf(azar, kTemas.size())];
    default: return Inventada(azar, Zipf(azar, 400));
  }
}

std::string Frase(Azar& azar, std::size_t palabras) {
  std::string t;
  for (std::size_t i = 0; i < palabras; ++i) {
    if (!t.empty()) t += ' ';
    t += Palabra(azar);
    // DE joins words as often as in Spanish titles: its rows fill more
    // than one chunk of the lists.
    if (i + 1 < palabras && azar.Menor(3) == 0) t += " de";
    // A word said twice in a row now and then: a phrase of one word
    // repeated must match at consecutive positions only.
    if (azar.Menor(20) == 0) t += ' ' + t.substr(t.rfind(' ') + 1);
  }
  return t;
}

std::string Nombre(Azar& azar) {
  return std::string(azar.Uno(kNombres)) + ", " + Inventada(azar, azar.Menor(50));
}

std::string Lee(const fs::path& ruta) {
  std::ifstream f(ruta, std::ios::binary);
  if (!f) throw std::runtime_error("no se puede leer " + ruta.string());
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

void Escribe(const fs::path& ruta, std::string_view texto) {
  std::ofstream f(ruta, std::ios::binary);
  f << texto;
  if (!f) throw std::runtime_error("no se puede escribir " + ruta.string());
}

std::string Reemplaza(std::string texto, std::string_view de, std::string_view por) {
  if (de.empty()) return texto;
  for (std::size_t i = texto.find(de); i != std::string::npos; i = texto.find(de, i + por.size())) {
    texto.replace(i, de.size(), por);
  }
  return texto;
}

// The program directory's file system, everything else as the program has it.
class ArchivosDelPrograma : public PosixFileSystem {
 public:
  explicit ArchivosDelPrograma(std::string dir) : dir_(std::move(dir)) {}
  std::string ProgramDirectory() override { return dir_; }

 private:
  std::string dir_;
};

}  // namespace

std::string RegistrosSinteticos(int n, std::uint64_t semilla) {
  using catalogo::prueba::CampoISO;
  Azar azar(semilla);
  std::string bytes;
  for (int i = 1; i <= n; ++i) {
    std::vector<CampoISO> campos;
    campos.push_back({"001", "sin" + std::to_string(i)});
    campos.push_back({"008", "081215s" + std::to_string(1900 + azar.Menor(110)) + "    mx            000 0 spa d"});
    if (azar.Menor(3) == 0) {
      std::string isbn = std::to_string(9680000000ull + azar.Menor(9999999));
      if (azar.Menor(4) == 0) isbn.back() = 'X';
      campos.push_back({"020", "  $a" + isbn.substr(0, 3) + "-" + isbn.substr(3)});
    }
    if (azar.Menor(2) == 0) {
      campos.push_back({"050", "00$aF" + std::to_string(1200 + azar.Menor(200)) + "$b.M" +
                                   std::to_string(azar.Menor(90)) + "  " +
                                   std::to_string(1950 + azar.Menor(60))});
    }
    if (azar.Menor(5) != 0) campos.push_back({"100", "1 $a" + Nombre(azar)});
    std::string titulo = Frase(azar, 1 + azar.Menor(7));
    titulo[0] = static_cast<char>(titulo[0] >= 'a' && titulo[0] <= 'z' ? titulo[0] - 32 : titulo[0]);
    std::string t245 = "10$a" + titulo;
    if (azar.Menor(2) == 0) t245 += " :$b" + Frase(azar, 1 + azar.Menor(5));
    campos.push_back({"245", t245});
    if (azar.Menor(4) == 0) campos.push_back({"246", "3 $a" + Frase(azar, 2 + azar.Menor(3))});
    campos.push_back({"260", "  $aMéxico :$b" + std::string(azar.Uno(kEditoriales)) + ",$c" +
                                 std::to_string(1900 + azar.Menor(110)) + "."});
    if (azar.Menor(3) == 0) campos.push_back({"500", "  $a" + Frase(azar, 3 + azar.Menor(12))});
    for (std::size_t k = azar.Menor(4); k > 0; --k) {
      campos.push_back({"650", " 4$a" + Frase(azar, 1 + azar.Menor(3)) + "$zMéxico$xHistoria."});
    }
    for (std::size_t k = azar.Menor(3); k > 0; --k) campos.push_back({"700", "1 $a" + Nombre(azar)});
    bytes += catalogo::prueba::RegistroISO(campos);
  }
  return bytes;
}

CatalogosPrueba::CatalogosPrueba(const fs::path& dir, const fs::path& raiz, int n,
                                 std::uint64_t semilla)
    : dir_(dir) {
  fs::create_directories(dir_);
  const fs::path sinteticos = dir_ / "sinteticos.mrc";
  Escribe(sinteticos, RegistrosSinteticos(n, semilla));

  catalogo::Opciones opciones;
  opciones.biblioteca = "Biblioteca Central";
  opciones.institucion = "Biblioteca de pruebas de Orvex";
  opciones.silencioso = true;
  opciones.directorio = Bases(Forma::Listas).string();
  opciones.archivos = {(raiz / "demo/registros/muestra.xml").string(),
                       (raiz / "demo/registros/revistas.xml").string(), sinteticos.string()};
  std::ostringstream mensajes;
  DateTime ahora;
  ahora.year = 2008;
  ahora.month = 12;
  ahora.day = 15;
  if (catalogo::ConstruyeCatalogo(opciones, ahora, mensajes) != catalogo::kSalidaExito) {
    throw std::runtime_error("orvex-catalogo: " + mensajes.str());
  }

  fs::copy(Bases(Forma::Listas), Bases(Forma::Tabla), fs::copy_options::recursive);
  // Only the book index has word lists.
  db::OpenDatabase((Bases(Forma::Tabla) / "INDIZADO.MDB").string(), CodePage::Windows1252())
      ->Execute("DELETE FROM ORVEX_VIGENCIA");

  fs::copy(raiz / "tests/fixtures/catalogo/jet", Bases(Forma::Jet), fs::copy_options::recursive);
  for (const auto& e : fs::recursive_directory_iterator(dir_)) {
    fs::permissions(e.path(), fs::perms::owner_write, fs::perm_options::add);
  }
}

fs::path CatalogosPrueba::Bases(Forma forma) const {
  switch (forma) {
    case Forma::Listas: return dir_ / "listas";
    case Forma::Tabla: return dir_ / "tabla";
    case Forma::Jet: return dir_ / "jet";
  }
  return {};
}

struct Instalacion::Servicios {
  explicit Servicios(const fs::path& programa) : archivos(programa.string()) {
    motores.xsl = &xsl;
  }
  xslt::MotorLibxslt xsl;
  ArchivosDelPrograma archivos;
  FakeEngines motores;
};

Instalacion::Instalacion(const fs::path& programa, const fs::path& bases, const fs::path& raiz)
    : programa_(programa), bases_(bases), servicios_(std::make_unique<Servicios>(programa)) {
  fs::create_directories(programa_);
  const auto instala = [&](const fs::path& origen, const std::string& nombre) {
    std::string texto = Lee(origen);
    texto = Reemplaza(texto, "@BASES2@", bases_.string());
    texto = Reemplaza(texto, "@BASES@", bases_.string());
    texto = Reemplaza(texto, "@DIR@", programa_.string());
    texto = Reemplaza(texto, "@CIRCULACION@", "##00  127.0.0.1 ## 9");
    Escribe(programa_ / nombre, texto);
    configuraciones_.push_back(nombre);
  };
  for (const char* cfg : {"demo.cfg", "revistas.cfg", "articulos.cfg", "listado.cfg"}) {
    instala(raiz / "demo" / cfg, cfg);
  }
  for (const auto& e : fs::directory_iterator(raiz / "tests/e2e/cfg")) {
    if (e.path().extension() == ".cfg") instala(e.path(), "e2e_" + e.path().filename().string());
  }
  fs::copy(raiz / "demo/XSLs", programa_ / "XSLs",
           fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

Instalacion::~Instalacion() = default;

std::string Instalacion::Pagina(std::string_view query, std::string_view cuerpo, int* estado) {
  FakeEnvironment entorno;
  ScriptedInput entrada;
  MemoryOutput salida;
  FixedClock reloj;
  reloj.now = SampleDate();
  orvex::Servicios sys{entorno, entrada, salida, reloj, servicios_->archivos, servicios_->motores};
  entorno.vars = {{"REQUEST_METHOD", cuerpo.empty() ? "GET" : "POST"},
                  {"QUERY_STRING", std::string(query)},
                  {"CONTENT_LENGTH", std::to_string(cuerpo.size())},
                  {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
                  {"SCRIPT_NAME", "/cgi-bin/orvex"},
                  {"REMOTE_ADDR", "192.0.2.7"}};
  if (!cuerpo.empty()) entrada.chunks = {std::string(cuerpo)};
  db::EngineOpener bases(CodePage::Windows1252());
  const int r = gateway::Principal(sys, bases);
  if (estado != nullptr) *estado = r;
  return Reemplaza(Reemplaza(salida.contents, bases_.string(), "@BASES@"), programa_.string(), "@DIR@");
}

std::string SinSugerencias(std::string pagina) {
  static constexpr std::string_view kAbre = "<p class=\"sugerencias\">";
  const std::size_t inicio = pagina.find(kAbre);
  if (inicio == std::string::npos) return pagina;
  const std::size_t fin = pagina.find("</p>", inicio);
  pagina.erase(inicio, fin == std::string::npos ? std::string::npos : fin + 4 - inicio);
  return pagina;
}

}  // namespace orvex::testing
