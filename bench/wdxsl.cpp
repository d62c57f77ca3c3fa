// Times what a request pays to make a working-draft sheet runnable: reading
// the sheet, translating it to XSLT and compiling the result with libxslt,
// once per process as the gateway does.
//
//   wdxsl HOJA... [--rondas N]
//
// For each sheet (Windows-1252 text, as installations keep them) prints the
// median over N rounds of: parse + translate; parse + translate + compile;
// and, as the baseline, parse + compile of the same XSLT read from text, as
// if the library had written it in XSLT 1.0 to begin with. The built-in
// record sheet is always measured too.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <libxml/parser.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include "base/CodePage.h"
#include "config/Instalacion.h"
#include "xslt/FuncionesWD.h"
#include "xslt/TraduceWD.h"

namespace {

using Reloj = std::chrono::steady_clock;

double Mediana(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

xmlDocPtr Lee(const std::string& texto) {
  return xmlReadMemory(texto.data(), static_cast<int>(texto.size()), nullptr, "UTF-8",
                       XML_PARSE_NONET | XML_PARSE_NOENT | XML_PARSE_NOCDATA);
}

void Silencio(void*, const char*, ...) {}

template <typename F>
double MedianaDe(int rondas, F&& paso) {
  std::vector<double> tiempos;
  tiempos.reserve(static_cast<size_t>(rondas));
  for (int i = 0; i < rondas; ++i) {
    const auto inicio = Reloj::now();
    paso();
    tiempos.push_back(std::chrono::duration<double, std::micro>(Reloj::now() - inicio).count());
  }
  return Mediana(std::move(tiempos));
}

bool Mide(const std::string& nombre, const std::string& texto_1252, int rondas) {
  const std::string texto = orvex::CodePage::Windows1252().ToUtf8(texto_1252);
  std::string xslt;
  {
    xmlDocPtr doc = Lee(texto);
    if (doc == nullptr) {
      std::fprintf(stderr, "%s: no es XML bien formado\n", nombre.c_str());
      return false;
    }
    orvex::xslt::HojaTraducida t = orvex::xslt::TraduceHojaBorrador(doc);
    xmlFreeDoc(doc);
    if (t.xslt == nullptr) {
      std::fprintf(stderr, "%s: %s\n", nombre.c_str(), t.error.c_str());
      return false;
    }
    xslt = orvex::xslt::TextoDeHoja(t.xslt.get());
  }
  const double traduce = MedianaDe(rondas, [&] {
    xmlDocPtr doc = Lee(texto);
    orvex::xslt::HojaTraducida t = orvex::xslt::TraduceHojaBorrador(doc);
    xmlFreeDoc(doc);
  });
  const double traduce_compila = MedianaDe(rondas, [&] {
    xmlDocPtr doc = Lee(texto);
    orvex::xslt::HojaTraducida t = orvex::xslt::TraduceHojaBorrador(doc);
    xmlFreeDoc(doc);
    xsltFreeStylesheet(xsltParseStylesheetDoc(t.xslt.release()));
  });
  const double solo_xslt = MedianaDe(rondas, [&] {
    xsltFreeStylesheet(xsltParseStylesheetDoc(Lee(xslt)));
  });
  std::printf("%-28s %8zu %12.1f %16.1f %14.1f %8.2f\n", nombre.c_str(), texto_1252.size(),
              traduce, traduce_compila, solo_xslt, traduce_compila / solo_xslt);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int rondas = 500;
  std::vector<std::string> archivos;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--rondas" && i + 1 < argc) {
      rondas = std::max(1, std::atoi(argv[++i]));
    } else {
      archivos.push_back(arg);
    }
  }
  xmlInitParser();
  orvex::xslt::RegistraFuncionesWD();
  xsltSetGenericErrorFunc(nullptr, Silencio);

  std::printf("medianas en microsegundos, %d rondas\n", rondas);
  std::printf("%-28s %8s %12s %16s %14s %8s\n", "hoja", "bytes", "traducir", "traducir+compilar",
              "compilar XSLT", "razon");
  bool bien = Mide("ficha integrada", orvex::config::HojaFichaIntegrada(), rondas);
  for (const std::string& archivo : archivos) {
    std::ifstream entrada(archivo, std::ios::binary);
    std::ostringstream texto;
    texto << entrada.rdbuf();
    const std::string nombre = archivo.substr(archivo.rfind('/') + 1);
    bien = Mide(nombre, texto.str(), rondas) && bien;
  }
  return bien ? 0 : 1;
}
