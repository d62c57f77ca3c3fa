// Times the book search in one process: each search of a fixed list runs
// once to warm the caches, then `repeticiones` times, and the median and the
// minimum are printed in microseconds with the number of records found. The
// result bitmap's operations are timed alone as well. Meant for the
// synthetic index of bench/genera_indice (100 000 records); bench/busqueda
// builds both and runs them.
//
//   busqueda INDIZADO.MDB [repeticiones [--solo] [expresion...]]
//
// Extra expressions are timed after the fixed list, without a target; with
// --solo only they are (to profile one search alone). The exit status is 1
// when a search misses its target.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/CodePage.h"
#include "base/PosixPlatform.h"
#include "base/RuntimeError.h"
#include "db/Database.h"
#include "db/SqliteEngine.h"
#include "search/Indice.h"
#include "search/MapaFichas.h"

namespace {

using Reloj = std::chrono::steady_clock;

// The search writes its messages (a syntax error) to the page; here they go
// to standard error so that they cannot rewind or cut the report.
class SalidaAErrores : public orvex::Output {
 public:
  void Write(std::string_view bytes) override {
    std::fwrite(bytes.data(), 1, bytes.size(), stderr);
  }
  void TruncateHere() override {}
  void Rewind() override {}
};

class Motores : public orvex::Engines {
 public:
  bool DatabaseEngineWorks() override { return orvex::db::SqliteEngineWorks(); }
  bool XmlParserWorks() override { return true; }  // the search parses no XML
  orvex::MotorXSL& Xsl() override { return xsl_; }

 private:
  orvex::MotorXSLAusente xsl_{"la medición de la búsqueda no transforma documentos"};
};

struct Tiempos {
  double mediana_us = 0;
  double minimo_us = 0;
};

// Runs `trabajo` once to warm up, then `veces` times, each timed alone.
// `prepara` runs before each one, outside the timing.
template <class Prepara, class Trabajo>
Tiempos Mide(int veces, Prepara prepara, Trabajo trabajo) {
  prepara();
  trabajo();
  std::vector<double> us;
  us.reserve(static_cast<std::size_t>(veces));
  for (int i = 0; i < veces; ++i) {
    prepara();
    const auto t0 = Reloj::now();
    trabajo();
    const auto t1 = Reloj::now();
    us.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
  }
  std::sort(us.begin(), us.end());
  const std::size_t n = us.size();
  const double mediana = n % 2 ? us[n / 2] : (us[n / 2 - 1] + us[n / 2]) / 2;
  return {mediana, us.front()};
}

// What keeps the compiler from dropping a result nobody reads.
volatile std::int64_t sumidero = 0;

struct Busqueda {
  const char* nombre;
  std::string expresion;
  double meta_us;  // 0: no target
};

int fallidas = 0;

// One line of the report; `fichas` below 0 leaves its column blank.
void Linea(const char* nombre, const std::string& que, long long fichas, const Tiempos& t,
           double meta_us) {
  char cuantas[24] = "";
  if (fichas >= 0) std::snprintf(cuantas, sizeof cuantas, "%lld", fichas);
  char meta[48] = "";
  if (meta_us > 0) {
    const bool ok = t.mediana_us < meta_us;
    if (!ok) ++fallidas;
    std::snprintf(meta, sizeof meta, "< %g ms %s", meta_us / 1000, ok ? "ok" : "NO");
  }
  std::printf("%-20s %-26s %8s %12.1f %12.1f  %s\n", nombre, que.c_str(), cuantas, t.mediana_us,
              t.minimo_us, meta);
}

// A bitmap with record f for every f in [1, hasta] that `cada` divides
// after a shift: a set of known size spread over the whole range.
orvex::search::MapaFichas Mapa(std::int32_t hasta, std::int32_t cada, std::int32_t desde) {
  orvex::search::MapaFichas m;
  for (std::int32_t f = desde; f <= hasta; f += cada) m.Pon(f);
  return m;
}

void MideMapas(int veces) {
  using orvex::search::MapaFichas;
  const MapaFichas pares = Mapa(MapaFichas::kMaximaFicha, 2, 2);
  const MapaFichas tercios = Mapa(MapaFichas::kMaximaFicha, 3, 1);
  MapaFichas m = pares;
  const auto nada = [] {};
  const auto copia = [&] { m = pares; };
  const std::string todo = "1-800008";

  Linea("Interseca", todo, -1, Mide(veces, copia, [&] { m.Interseca(tercios); }), 0);
  Linea("Une", todo, -1, Mide(veces, copia, [&] { m.Une(tercios); }), 0);
  Linea("Excluye", todo, -1, Mide(veces, copia, [&] { m.Excluye(tercios); }), 0);
  Linea("Cuenta", todo, pares.Cuenta(), Mide(veces, nada, [&] { sumidero = pares.Cuenta(); }), 0);
  Linea("CuentaFichas", todo, orvex::search::CuentaFichas(pares),
        Mide(veces, nada, [&] { sumidero = orvex::search::CuentaFichas(pares); }), 0);
  Linea("copia de un mapa", todo, -1, Mide(veces, nada, copia), 0);

  // Walking a result as the result pages do, to the end: a dense one (every
  // other record of 100 000) and a sparse one (one in 1000 of 800 008).
  const struct {
    const char* que;
    MapaFichas mapa;
  } recorridos[] = {{"1-100000 de 2 en 2", Mapa(100000, 2, 1)},
                    {"1-800008 de 1000 en 1000", Mapa(MapaFichas::kMaximaFicha, 1000, 1000)}};
  for (const auto& r : recorridos) {
    long long pasos = 0;
    const auto camina = [&] {
      pasos = 0;
      std::int32_t actual = 0;
      for (;;) {
        const std::int32_t f = orvex::search::SiguienteFicha(r.mapa, actual);
        if (f <= actual) break;
        actual = f;
        ++pasos;
      }
      sumidero = actual;
    };
    const Tiempos t = Mide(veces, nada, camina);
    Linea("SiguienteFicha", r.que, pasos, t, 0);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "uso: busqueda INDIZADO.MDB [repeticiones [--solo] [expresion...]]\n");
    return 2;
  }
  const std::string ruta = argv[1];
  const int veces = argc > 2 ? std::max(1, std::atoi(argv[2])) : 50;

  SalidaAErrores salida;
  Motores motores;
  if (!motores.DatabaseEngineWorks()) {
    std::fprintf(stderr, "busqueda: el motor de base de datos no inicia\n");
    return 2;
  }
  const orvex::CodePage& pagina = orvex::CodePage::Windows1252();
  orvex::search::Estado estado;
  std::unique_ptr<orvex::db::Database> indice;

  std::vector<Busqueda> busquedas = {
      {"palabra rara", "QUETZALCOATL", 500},
      {"palabra frecuente", "HISTORIA", 0},
      {"dos frecuentes (Y)", "HISTORIA MEXICO", 10000},
      {"truncada", "COMPUT$", 0},
      {"frase", "\"MEXICO ANTIGUO\"", 0},
  };
  int primera = 3;
  const bool solo = argc > 3 && std::string_view(argv[3]) == "--solo";
  if (solo) {
    busquedas.clear();
    ++primera;
  }
  for (int i = primera; i < argc; ++i) busquedas.push_back({"otra", argv[i], 0});

  std::printf("%-20s %-26s %8s %12s %12s  %s\n", "", "", "fichas", "mediana us", "minimo us",
              "meta");
  try {
    // Opening as a request opens: the file, then the word table on its index.
    const auto abre = [&] {
      indice = orvex::db::OpenDatabase(ruta, pagina, {.read_only = true});
      const auto tabla = indice->OpenRecordset("TABLA", orvex::db::RecordsetType::Table);
      tabla->SetIndex("FRASE");
      sumidero = tabla->Eof();
    };
    Linea("abrir el indice", "y la tabla TABLA", -1, Mide(veces, [] {}, abre), 0);

    for (const Busqueda& b : busquedas) {
      const std::array<std::string, 4> expr = {b.expresion, "", "", ""};
      const Tiempos t = Mide(
          veces, [&] { orvex::search::IniciaBusqueda(estado); },
          [&] {
            orvex::search::BuscaPalabras({estado, indice.get(), salida}, expr, {0, 0, 0}, false);
          });
      Linea(b.nombre, b.expresion, orvex::search::CuentaFichas(estado.MapaResultado), t,
            b.meta_us);
    }
  } catch (const orvex::RuntimeError& e) {
    std::fprintf(stderr, "busqueda: error %d: %s\n", e.number(),
                 pagina.ToUtf8(e.description()).c_str());
    return 2;
  }

  if (!solo) MideMapas(std::max(veces, 200));
  return fallidas == 0 ? 0 : 1;
}
