// libFuzzer target for what a request and a configuration file can bring:
// form data through SeparaPares, DecodificaURL and ValorCGI, any text
// through SeccionCFG and the database list of BuscaBase, and search
// expressions through the query language. Run-time errors are the expected
// answer to bad input; anything else is a finding.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/RuntimeError.h"
#include "config/ArchivoCFG.h"
#include "gateway/EntradaCGI.h"
#include "search/Expresion.h"
#include "tests/support/Fakes.h"

namespace {

constexpr std::string_view kEtiquetas[] = {"BASE:", "ENCABEZADO:", "ENCABEZADO2:", "FORMATO:",
                                           "SEPARADOR:", "FINAL:", "NOENCONTRADO:", "TABLA:"};

void Solicitud(std::string_view datos) {
  orvex::gateway::EntradaCGI cgi;
  try {
    orvex::gateway::SeparaPares(cgi.pares, datos);
  } catch (const orvex::RuntimeError&) {
  }
  for (std::string_view campo : {"ArchivoCFG", "txtLIB", "ACERVO", ""}) {
    (void)orvex::gateway::ValorCGI(cgi, campo);
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view resto(reinterpret_cast<const char*>(data) + 1, size - 1);
  if ((data[0] & 3) == 3) {
    Expresion(resto);
  } else if (data[0] & 1) {
    Solicitud(resto);
  } else {
    Configuracion(static_cast<std::uint8_t>(data[0] >> 1), resto);
  }
  return 0;
}
