// libFuzzer target for whole requests: any request fields, in the query
// string and in the body, go through the entry procedure from intake to the
// last byte of the page, against three forms of one small catalogue built by
// orvex-catalogo (tests/support/Catalogos.h): with its word lists, with the
// lists voided (every book lookup reads the word table) and the Jet test
// catalogue. Every request must end with status 0 and a page that starts
// with its HTTP header (or is one of the few answers that come without it,
// see kComienzos); the lists and the table must give the same page byte for
// byte, the table being the reference. The Jet catalogue's pages differ and
// are not compared.
//
// Input: the first byte chooses the configuration file and where its field
// goes; the rest is the query string up to the first NUL, and the form body
// after it (a body makes the request a POST). Inputs over 4 KB are refused.
//
//   byte 0, bits 0-3: the configuration named by the "ArchivoCFG" field put
//     in front of the query string: the installation's files (kNombres, then
//     "fuzz_admin.cfg", then any other the installation has, up to 11); 12
//     puts an unknown name, 13 an empty one, 14 a path outside the program's
//     directory; any other value puts nothing, and the request's own
//     "ArchivoCFG" decides.
//   byte 0, bit 4: the field goes at the end of the query string instead,
//     where the request's own fields with that name come first.
//   byte 0, bit 5 clear: "Cantidad=10" ends the query string, so that a
//     request that names no page size shows ten records, not every record
//     found (a thousand records' page takes a second); set, nothing is added.

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "db/Database.h"
#include "gateway/Comandos.h"
#include "cgi/EntradaCGI.h"
#include "search/Normalizacion.h"
#include "tests/support/Catalogos.h"

namespace {

namespace fs = std::filesystem;
using orvex::testing::CatalogosPrueba;
using orvex::testing::Forma;
using orvex::testing::Instalacion;

constexpr std::size_t kLargoMaximo = 4096;

// Synthetic records of the catalogue: enough that the most frequent word
// (MEXICO, some three times a record) has more rows than one chunk of the
// word lists holds, so that lookups and phrases cross chunks.
constexpr int kRegistrosSinteticos = 1500;
constexpr std::string_view kPrefijoDirectorio = "orvex-fuzz-peticion.";

// The configurations in a fixed order, so that a seed's first byte names the
// same file on every machine, whatever order the directory lists them in.
constexpr std::string_view kNombres[] = {
    "demo.cfg",       "revistas.cfg",     "articulos.cfg",    "listado.cfg",
    "e2e_libros.cfg", "e2e_revistas.cfg", "e2e_catalogo.cfg", "e2e_disponibilidad.cfg",
    "e2e_multibase.cfg"};

// A copy of e2e_libros.cfg whose "DIAGNOSTICO:" lists the client address of
// the installation's requests, so that DEBUGCFG, SHOW_SEC and TEST_ALL run
// instead of answering that they are reserved.
constexpr std::string_view kAdministrador = "fuzz_admin.cfg";
constexpr std::string_view kClienteInstalacion = "192.0.2.7";

struct Entorno {
  fs::path dir;
  std::unique_ptr<CatalogosPrueba> catalogos;
  std::unique_ptr<Instalacion> listas, tabla, jet;
  std::vector<std::string> nombres;  // what bits 0-3 of the first byte choose
};

// Never destroyed: the installations' processors outlive every input, and
// the directory goes at exit.
Entorno* g = nullptr;

void BorraDirectorio() {
  if (g == nullptr || g->dir.empty()) return;
  std::error_code ec;
  fs::remove_all(g->dir, ec);
}

// The directories that runs killed by a crash or a timeout left behind:
// those whose process is gone.
void BorraHuerfanos(const fs::path& tmp) {
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(tmp, ec)) {
    const std::string nombre = e.path().filename().string();
    if (!nombre.starts_with(kPrefijoDirectorio)) continue;
    const std::size_t punto = nombre.find('.', kPrefijoDirectorio.size());
    if (punto == std::string::npos) continue;
    const std::string numero =
        nombre.substr(kPrefijoDirectorio.size(), punto - kPrefijoDirectorio.size());
    const pid_t pid = static_cast<pid_t>(std::atol(numero.c_str()));
    if (pid <= 0 || kill(pid, 0) == 0 || errno != ESRCH) continue;
    std::error_code ignorado;
    fs::remove_all(e.path(), ignorado);
  }
}

// True when some word's rows fill more than one chunk of the word lists.
bool HayPalabraDeVariosTrozos(const fs::path& indice) {
  const std::unique_ptr<orvex::db::Database> bd =
      orvex::db::OpenDatabase(indice.string(), orvex::CodePage::Windows1252());
  const std::unique_ptr<orvex::db::Recordset> rs = bd->OpenRecordset(
      "SELECT COUNT(*) AS n FROM ORVEX_LISTAS WHERE trozo > 0", orvex::db::RecordsetType::Snapshot);
  return !rs->Eof() && rs->Field("n").AsText() != "0";
}

std::string Lee(const fs::path& ruta) {
  std::ifstream f(ruta, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

// The administrator's configuration beside the installation's others.
void InstalaAdministrador(const fs::path& programa) {
  std::string texto = Lee(programa / "e2e_libros.cfg");
  const std::size_t seccion = texto.find("DIAGNOSTICO:");
  const std::size_t llave = texto.find('{', seccion == std::string::npos ? 0 : seccion);
  if (seccion == std::string::npos || llave == std::string::npos) {
    std::fprintf(stderr, "fuzz_peticion: e2e_libros.cfg sin DIAGNOSTICO:\n");
    std::abort();
  }
  texto.insert(llave + 1, std::string(kClienteInstalacion) + "\r\n");
  std::ofstream(programa / kAdministrador, std::ios::binary) << texto;
}

// True when the request names the one command that answers with nothing at
// all, "SHOW_VAR": a configuration file and the command in the search box,
// read as the driver reads them (body fields first, then the query string).
bool PideShowVar(std::string_view query, std::string_view cuerpo) {
  orvex::cgi::EntradaCGI cgi;
  try {
    orvex::cgi::SeparaPares(cgi.pares, cuerpo);
    orvex::cgi::SeparaPares(cgi.pares, query);
  } catch (const orvex::RuntimeError&) {
    return false;
  }
  if (orvex::cgi::ValorCGI(cgi, "ArchivoCFG").empty()) return false;
  std::string expresion = orvex::cgi::ValorCGI(cgi, "txtLIB");
  orvex::search::QuitaAcentos(expresion);
  if (expresion.empty()) {
    expresion = orvex::cgi::ValorCGI(cgi, "txtEXPR1");
    orvex::search::QuitaAcentos(expresion);
  }
  return orvex::gateway::NombreDeComando(expresion) == "SHOW_VAR";
}

std::string Imprimible(std::string_view texto) {
  std::string s;
  for (const char c : texto) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '\n' || (u >= 0x20 && u < 0x7F)) {
      s += c;
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", u);
      s += hex;
    }
  }
  return s;
}

[[noreturn]] void Falla(const char* forma, const char* que, std::string_view query,
                        std::string_view cuerpo, std::string_view pagina) {
  std::fprintf(stderr, "fuzz_peticion: %s: %s\n  query: %s\n  cuerpo: %s\n", forma, que,
               Imprimible(query).c_str(), Imprimible(cuerpo).c_str());
  std::fprintf(stderr, "  pagina (%zu bytes):\n%s\n", pagina.size(),
               Imprimible(pagina.substr(0, 1200)).c_str());
  __builtin_trap();
}

// How a page may begin: with its HTTP header (an export that cannot be
// given opens it with its status); with the error page, which on
// an output that is a file (as the installation's is) is written over
// whatever went before it; with the message of a configuration file that
// cannot be found, which comes before the header; or with the one line of a
// circulation server that cannot be reached, which has no header.
constexpr std::string_view kComienzos[] = {
    "Content-Type: ", "Status: 400 ", "Status: 404 ", "Status: 500 ",
    "<H4>Error en /cgi-bin/orvex</H4>\r\n",
    "<center><p><H4>No se encontr\xF3 la definici\xF3n del archivo CFG (",
    "<h1>Error: no se pudo establecer la conexion: "};

// One request through one installation: status 0 and a page that begins as
// a page may, or nothing at all for SHOW_VAR.
std::string Pide(Instalacion& instalacion, const char* forma, std::string_view query,
                 std::string_view cuerpo, bool show_var) {
  int estado = -1;
  std::string pagina = instalacion.Pagina(query, cuerpo, &estado);
  if (estado != 0) Falla(forma, "Principal no devolvio 0", query, cuerpo, pagina);
  if (pagina.empty() && show_var) return pagina;
  if (pagina.empty()) Falla(forma, "pagina vacia", query, cuerpo, pagina);
  if (std::none_of(std::begin(kComienzos), std::end(kComienzos),
                   [&pagina](std::string_view c) { return pagina.starts_with(c); })) {
    Falla(forma, "la pagina no empieza con su encabezado HTTP", query, cuerpo, pagina);
  }
  return pagina;
}

void Compara(std::string_view query, std::string_view cuerpo, const std::string& listas,
             const std::string& tabla) {
  if (listas == tabla) return;
  std::size_t i = 0;
  while (i < listas.size() && i < tabla.size() && listas[i] == tabla[i]) ++i;
  const std::size_t desde = i > 300 ? i - 300 : 0;
  std::fprintf(stderr,
               "fuzz_peticion: las listas y la tabla dan paginas distintas\n"
               "  query: %s\n  cuerpo: %s\n"
               "  primera diferencia en el byte %zu (listas %zu bytes, tabla %zu bytes)\n"
               "--- listas, desde el byte %zu:\n%s\n--- tabla, desde el byte %zu:\n%s\n",
               Imprimible(query).c_str(), Imprimible(cuerpo).c_str(), i, listas.size(),
               tabla.size(), desde, Imprimible(std::string_view(listas).substr(desde, 900)).c_str(),
               desde, Imprimible(std::string_view(tabla).substr(desde, 900)).c_str());
  __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const auto inicio = std::chrono::steady_clock::now();
  const fs::path tmp = fs::temp_directory_path();
  BorraHuerfanos(tmp);
  std::string plantilla =
      (tmp / (std::string(kPrefijoDirectorio) + std::to_string(getpid()) + ".XXXXXX")).string();
  if (mkdtemp(plantilla.data()) == nullptr) {
    std::perror("fuzz_peticion: mkdtemp");
    std::abort();
  }
  g = new Entorno;
  g->dir = plantilla;
  std::atexit(BorraDirectorio);
  try {
    g->catalogos =
        std::make_unique<CatalogosPrueba>(g->dir / "cat", ORVEX_RAIZ, kRegistrosSinteticos);
    if (!HayPalabraDeVariosTrozos(g->catalogos->Bases(Forma::Listas) / "INDIZADO.MDB")) {
      std::fprintf(stderr, "fuzz_peticion: ninguna palabra ocupa mas de un trozo de las listas\n");
      std::abort();
    }
    g->listas = std::make_unique<Instalacion>(g->dir / "programa-listas",
                                              g->catalogos->Bases(Forma::Listas), ORVEX_RAIZ);
    g->tabla = std::make_unique<Instalacion>(g->dir / "programa-tabla",
                                             g->catalogos->Bases(Forma::Tabla), ORVEX_RAIZ);
    g->jet = std::make_unique<Instalacion>(g->dir / "programa-jet",
                                           g->catalogos->Bases(Forma::Jet), ORVEX_RAIZ);
    for (const char* programa : {"programa-listas", "programa-tabla", "programa-jet"}) {
      InstalaAdministrador(g->dir / programa);
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "fuzz_peticion: no se pudo preparar el catalogo: %s\n", e.what());
    std::abort();
  }

  const std::vector<std::string>& instaladas = g->listas->Configuraciones();
  for (std::string_view nombre : kNombres) {
    if (std::find(instaladas.begin(), instaladas.end(), nombre) == instaladas.end()) {
      std::fprintf(stderr, "fuzz_peticion: la instalacion no tiene %s\n",
                   std::string(nombre).c_str());
      std::abort();
    }
    g->nombres.emplace_back(nombre);
  }
  g->nombres.emplace_back(kAdministrador);
  std::vector<std::string> otras;
  for (const std::string& nombre : instaladas) {
    if (std::find(g->nombres.begin(), g->nombres.end(), nombre) == g->nombres.end()) {
      otras.push_back(nombre);
    }
  }
  std::sort(otras.begin(), otras.end());
  for (const std::string& nombre : otras) {
    if (g->nombres.size() < 12) g->nombres.push_back(nombre);
  }
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - inicio);
  std::fprintf(stderr, "fuzz_peticion: catalogos en %s, preparados en %lld ms\n", g->dir.c_str(),
               static_cast<long long>(ms.count()));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* datos, std::size_t largo) {
  if (largo == 0) return 0;
  if (largo > kLargoMaximo) return -1;
  const std::uint8_t selector = datos[0];
  const std::string_view resto(reinterpret_cast<const char*>(datos) + 1, largo - 1);
  const std::size_t corte = resto.find('\0');
  std::string query(resto.substr(0, corte));
  const std::string_view cuerpo =
      corte == std::string_view::npos ? std::string_view() : resto.substr(corte + 1);

  std::string archivo;
  bool con_campo = true;
  const std::size_t eleccion = selector & 0x0F;
  if (eleccion < g->nombres.size()) {
    archivo = g->nombres[eleccion];
  } else {
    switch (eleccion) {
      case 12: archivo = "no_existe.cfg"; break;
      case 13: archivo = ""; break;
      case 14: archivo = "../demo.cfg"; break;
      default: con_campo = false; break;
    }
  }
  if (con_campo) {
    const std::string campo = "ArchivoCFG=" + archivo;
    query = (selector & 0x10) ? query + "&" + campo : campo + "&" + query;
  }
  if ((selector & 0x20) == 0) query += "&Cantidad=10";

  const bool show_var = PideShowVar(query, cuerpo);
  const std::string listas = Pide(*g->listas, "listas", query, cuerpo, show_var);
  const std::string tabla = Pide(*g->tabla, "tabla", query, cuerpo, show_var);
  Compara(query, cuerpo, orvex::testing::SinSugerencias(listas),
          orvex::testing::SinSugerencias(tabla));
  const std::string jet = Pide(*g->jet, "jet", query, cuerpo, show_var);
  // ORVEX_FUZZ_VUELCA=1 writes the pages out, to look at what a seed reaches.
  static const bool vuelca = std::getenv("ORVEX_FUZZ_VUELCA") != nullptr;
  if (vuelca) {
    std::fprintf(stderr, "=== query: %s\n=== cuerpo: %s\n=== listas y tabla:\n%s\n=== jet:\n%s\n",
                 Imprimible(query).c_str(), Imprimible(cuerpo).c_str(), Imprimible(listas).c_str(),
                 Imprimible(jet).c_str());
  }
  return 0;
}
