// libFuzzer target for what a request and a configuration file can bring:
// form data through SeparaPares, DecodificaURL and ValorCGI, any text
// through SeccionCFG and the database list of BuscaBase, search
// expressions through the query language, and whole requests through the
// entry procedure: its body limit, the body read and the watchdog, on a
// clock that runs a tenth of a second at every look. Run-time errors are the
// expected answer to bad input; anything else is a finding.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/RuntimeError.h"
#include "config/ArchivoCFG.h"
#include "gateway/CGI_Main.h"
#include "cgi/EntradaCGI.h"
#include "search/Expresion.h"
#include "tests/support/Fakes.h"

namespace {

constexpr std::string_view kEtiquetas[] = {"BASE:", "ENCABEZADO:", "ENCABEZADO2:", "FORMATO:",
                                           "SEPARADOR:", "FINAL:", "NOENCONTRADO:", "TABLA:"};

void Solicitud(std::string_view datos) {
  orvex::cgi::EntradaCGI cgi;
  try {
    orvex::cgi::SeparaPares(cgi.pares, datos);
  } catch (const orvex::RuntimeError&) {
  }
  for (std::string_view campo : {"ArchivoCFG", "txtLIB", "ACERVO", ""}) {
    (void)orvex::cgi::ValorCGI(cgi, campo);
  }
}

void Configuracion(std::uint8_t selector, std::string_view texto) {
  orvex::testing::FixedClock reloj;
  const std::string_view etiqueta = kEtiquetas[selector % std::size(kEtiquetas)];
  orvex::config::Configuracion cfg;
  cfg.RutaBase = orvex::config::SeccionCFG(texto, etiqueta, reloj);
  cfg.BaseDTA = selector;
  std::string base;
  std::string ruta;
  std::uint8_t numero = selector;
  try {
    orvex::config::BuscaBase(cfg, base, ruta, numero);
  } catch (const orvex::RuntimeError&) {
  }
}

void Expresion(std::string_view texto) {
  orvex::testing::MemoryOutput salida;
  orvex::search::Estado estado;
  const std::string expresion(texto);
  try {
    std::int16_t n = orvex::search::AnalizaExpresion(estado, salida, expresion, 0, 0);
    if (n > 0) n = orvex::search::AnalizaExpresion(estado, salida, expresion, 1, n);
    (void)orvex::search::LimpiaClave(texto);
  } catch (const orvex::RuntimeError&) {
  }
}

// A clock whose every reading is a tenth of a second after the last: a
// request that waits is met by its watchdog within a hundred looks.
class RelojQueCorre : public orvex::testing::FixedClock {
 public:
  std::int64_t Milliseconds() override { return millis += 100; }
};

// A whole request through the entry procedure. `variante` chooses the
// method, the content type, and whether CONTENT_LENGTH says the body's size,
// less, more (the body never completes), or a number beside it; `datos` is
// the query string up to the first NUL, the body after it. The installation
// accepts bodies of at most 4 KB.
void Entrada(std::uint8_t variante, std::string_view datos) {
  orvex::testing::FakePlatform p;
  RelojQueCorre reloj;
  orvex::Servicios sys{p.entorno, p.entrada, p.salida, reloj, p.archivos, p.motores};
  p.archivos.files["/prog/orvex.ini"] = "CuerpoMaximo = 4096";
  p.archivos.files["/prog/libros.cfg"] = "BASE:{/no/hay}ENCABEZADO:{<!TXTLIB!>}";
  const std::size_t corte = datos.find('\0');
  const std::string_view query = datos.substr(0, corte);
  const std::string_view cuerpo = corte == std::string_view::npos ? "" : datos.substr(corte + 1);
  std::size_t longitud = cuerpo.size();
  switch (variante & 3) {
    case 1: longitud /= 2; break;
    case 2: longitud += 1 + (variante >> 4); break;
    case 3: longitud = 4000 + (std::size_t{variante} << 6); break;
    default: break;
  }
  p.entorno.vars = {{"REQUEST_METHOD", (variante & 4) ? "POST" : "GET"},
                    {"CONTENT_TYPE", (variante & 8) ? "application/x-www-form-urlencoded" : "text/plain"},
                    {"CONTENT_LENGTH", std::to_string(longitud)},
                    {"QUERY_STRING", std::string(query)},
                    {"REMOTE_ADDR", "127.0.0.1"}};
  p.entrada.chunks = {std::string(cuerpo.substr(0, cuerpo.size() / 2)),
                      std::string(cuerpo.substr(cuerpo.size() / 2))};
  p.entrada.max_pauses = 1 << 30;
  if (orvex::gateway::Principal(sys, p.bases) != 0) __builtin_trap();
  const bool excesiva = query.size() > 4096 || ((variante & 4) && longitud > 4096);
  if (excesiva && p.salida.contents.find("La solicitud es demasiado grande") == std::string::npos) {
    __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view resto(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] >= 0xF0) {
    Entrada(static_cast<std::uint8_t>(data[0] & 0x0F), resto);
  } else if ((data[0] & 3) == 3) {
    Expresion(resto);
  } else if (data[0] & 1) {
    Solicitud(resto);
  } else {
    Configuracion(static_cast<std::uint8_t>(data[0] >> 1), resto);
  }
  return 0;
}
