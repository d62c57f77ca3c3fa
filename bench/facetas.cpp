// facetas: what the book result page pays for its facets and its orders,
// over a catalogue of orvex-catalogo (bench/facetas builds one of 100 000
// synthetic records).
//
//   facetas DIRECTORIO [rondas]          (default 50 rounds)
//
// DIRECTORIO holds KORVEL8.MDB with the reader data, in it or in LECTOR.MDB
// beside it (search/Facetas.h). The result is 10 000 records drawn from the
// catalogue's by a fixed sequence, the same on every run. Each round opens
// the database afresh, as a request does, and times:
//   abrir      opening KORVEL8.MDB (what every request pays anyway)
//   carga      finding the reader data and reading the arrays of the five
//              facets and of the title order
//   facetas    the five facets' counts over the result, ten values each
//              with their texts
//   pagina     the first page (10 records) of the result by title
//   orden      the whole result by title
//   recorrido  the baseline: the result's records listed (MapaFichas::Lista),
//              the walk every count and sort starts from
// and prints each median and minimum, and each median over the baseline's.
// Exit status 1 when the catalogue has no reader data, 2 on bad usage.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "db/Database.h"
#include "search/Facetas.h"
#include "search/MapaFichas.h"
#include "search/Orden.h"

namespace {

using namespace orvex;
using Reloj = std::chrono::steady_clock;

double Ms(Reloj::time_point a, Reloj::time_point b) {
  return std::chrono::duration<double, std::milli>(b - a).count();
}

struct Medida {
  const char* nombre;
  std::vector<double> ms = {};
  double Mediana() const {
    std::vector<double> v = ms;
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
  }
  double Minimo() const { return ms.empty() ? 0 : *std::min_element(ms.begin(), ms.end()); }
};

// 10 000 records of 1..maximo, the same on every run (splitmix64).
search::MapaFichas Resultado(std::uint32_t maximo, std::uint32_t cuantos) {
  search::MapaFichas m;
  std::uint64_t x = 2709;
  while (m.Cuenta() < static_cast<std::int32_t>(std::min(cuantos, maximo))) {
    x += 0x9E3779B97F4A7C15ull;
    std::uint64_t z = x;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    m.Pon(static_cast<std::int32_t>(z % maximo) + 1);
  }
  return m;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "uso: facetas DIRECTORIO [rondas]\n");
    return 2;
  }
  const std::string korvel = std::string(argv[1]) + "/KORVEL8.MDB";
  const int rondas = argc == 3 ? std::max(1, std::atoi(argv[2])) : 50;
  db::EngineOpener abridor(CodePage::Windows1252());
  db::OpenOptions solo_lectura;
  solo_lectura.read_only = true;

  search::MapaFichas resultado;
  {
    auto base = abridor.Open(korvel, solo_lectura);
    search::FuenteLector fuente = search::BuscaDatosLector(*base, korvel, abridor);
    const search::Arreglo* anios = fuente.datos ? fuente.datos->Columna("anio") : nullptr;
    if (anios == nullptr) {
      std::fprintf(stderr, "facetas: %s no tiene datos del lector (ORVEX_LECTOR ni LECTOR.MDB)\n",
                   korvel.c_str());
      return 1;
    }
    resultado = Resultado(anios->Tamano() - 1, 10000);
    std::printf("catalogo: %u registros (%s), resultado: %d registros\n", anios->Tamano() - 1,
                fuente.lateral ? "LECTOR.MDB" : "KORVEL8.MDB", resultado.Cuenta());
  }

  Medida abrir{"abrir"}, carga{"carga"}, facetas{"facetas"}, pagina{"pagina"}, orden{"orden"},
      recorrido{"recorrido"};
  std::size_t control = 0;  // keeps the work from being optimized away
  const search::Orden por_titulo{search::ClaveOrden::kTitulo, false};
  for (int r = 0; r <= rondas; ++r) {
    const auto t0 = Reloj::now();
    auto base = abridor.Open(korvel, solo_lectura);
    const auto t1 = Reloj::now();
    search::FuenteLector fuente = search::BuscaDatosLector(*base, korvel, abridor);
    search::DatosLector& datos = *fuente.datos;
    for (int f = 0; f < search::kNumeroFacetas; ++f) {
      const auto faceta = static_cast<search::Faceta>(f);
      if (datos.Simple(faceta) == nullptr && datos.Multiple(faceta) == nullptr) {
        std::fprintf(stderr, "facetas: falta la faceta %s\n",
                     std::string(search::NombreFaceta(faceta)).c_str());
        return 1;
      }
    }
    if (datos.Columna("titulo") == nullptr) return 1;
    const auto t2 = Reloj::now();
    const auto conteos = search::CuentaFacetas(datos, resultado, 10);
    const auto t3 = Reloj::now();
    const auto primeros = search::PaginaOrdenada(&datos, resultado, por_titulo, 1, 10);
    const auto t4 = Reloj::now();
    const auto todos = search::Ordena(&datos, resultado, por_titulo);
    const auto t5 = Reloj::now();
    const auto lista = resultado.Lista();
    const auto t6 = Reloj::now();
    control += conteos[3].valores.size() + primeros.size() + todos.size() + lista.size();
    if (r == 0) {  // warm-up, and what the page would show
      for (const auto& c : conteos) {
        std::printf("  %-6s", std::string(search::NombreFaceta(c.faceta)).c_str());
        for (std::size_t i = 0; i < c.valores.size() && i < 3; ++i) {
          std::printf("  %s (%d)",
                      CodePage::Windows1252().ToUtf8(c.valores[i].texto).c_str(),
                      c.valores[i].cuenta);
        }
        std::printf("  [%d valores]\n", c.distintos);
      }
      continue;
    }
    abrir.ms.push_back(Ms(t0, t1));
    carga.ms.push_back(Ms(t1, t2));
    facetas.ms.push_back(Ms(t2, t3));
    pagina.ms.push_back(Ms(t3, t4));
    orden.ms.push_back(Ms(t4, t5));
    recorrido.ms.push_back(Ms(t5, t6));
  }

  const double base = recorrido.Mediana();
  std::printf("\n%d rondas                    mediana ms   minimo ms   / recorrido\n", rondas);
  for (const Medida* m : {&abrir, &carga, &facetas, &pagina, &orden, &recorrido}) {
    std::printf("  %-24s %10.3f %11.3f %12.1f\n", m->nombre, m->Mediana(), m->Minimo(),
                base > 0 ? m->Mediana() / base : 0.0);
  }
  return control == 0 ? 1 : 0;
}
