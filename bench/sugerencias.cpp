// Times the search's suggestions for a word that found nothing, in one
// process, against the exact lookup of a rare word measured in the same run:
// each runs once to warm the caches, then `repeticiones` times, and the
// median and the minimum are printed in microseconds with the ratio of the
// median to the baseline's. Meant for the book index of a catalogue of
// 100 000 records that orvex-catalogo wrote (with its vocabulary); with a
// second index without one (bench/genera_indice's), the time to find out
// that its word table is too big to gather a vocabulary from is timed too.
// bench/sugerencias builds them and runs this.
//
//   sugerencias INDIZADO.MDB [repeticiones [SIN_VOCABULARIO.MDB]]
//
// Target: every suggestion under 5 ms; the exit status is 1 when one is
// missed.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "db/Database.h"
#include "search/Indice.h"
#include "search/Sugerencias.h"

namespace {

using Reloj = std::chrono::steady_clock;

struct Tiempos {
  double mediana_us = 0;
  double minimo_us = 0;
};

template <class Trabajo>
Tiempos Mide(int veces, Trabajo trabajo) {
  trabajo();
  std::vector<double> us;
  for (int i = 0; i < veces; ++i) {
    const auto t0 = Reloj::now();
    trabajo();
    us.push_back(std::chrono::duration<double, std::micro>(Reloj::now() - t0).count());
  }
  std::sort(us.begin(), us.end());
  const std::size_t n = us.size();
  return {n % 2 ? us[n / 2] : (us[n / 2 - 1] + us[n / 2]) / 2, us.front()};
}

constexpr double kMetaUs = 5000;
int fallidas = 0;

void Linea(const char* nombre, const std::string& que, const std::string& resultado,
           const Tiempos& t, double base_us, bool con_meta) {
  std::string meta;
  if (con_meta) {
    const bool ok = t.mediana_us < kMetaUs;
    if (!ok) ++fallidas;
    meta = ok ? "< 5 ms ok" : "< 5 ms NO";
  }
  const std::string w = que.size() > 24 ? que.substr(0, 10) + "... (" + std::to_string(que.size()) + ")" : que;
  std::printf("%-18s %-24s %10.1f %10.1f %8.1f  %-9s %s\n", nombre,
              orvex::CodePage::Windows1252().ToUtf8(w).c_str(), t.mediana_us, t.minimo_us,
              t.mediana_us / base_us, meta.c_str(),
              orvex::CodePage::Windows1252().ToUtf8(resultado).c_str());
}

std::string Resumen(const std::vector<orvex::search::Sugerencia>& s) {
  std::string r = std::to_string(s.size());
  for (std::size_t i = 0; i < s.size() && i < 3; ++i) {
    r += (i ? ", " : ": ") + s[i].palabra + " (" + std::to_string(s[i].frecuencia) + ", " +
         std::to_string(s[i].ediciones) + ")";
  }
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "uso: sugerencias INDIZADO.MDB [repeticiones [SIN_VOCABULARIO.MDB]]\n");
    return 2;
  }
  const int veces = argc > 2 ? std::max(1, std::atoi(argv[2])) : 200;
  const orvex::CodePage& pagina = orvex::CodePage::Windows1252();
  try {
    auto indice = orvex::db::OpenDatabase(argv[1], pagina, {.read_only = true});
    orvex::search::Estado estado;

    // The baseline: the exact lookup of a rare word through the word lists.
    const std::string rara = "QUETZIBAMA";
    const auto busca = [&](const std::string& w) {
      std::string palabra = w, tabla;
      orvex::search::BuscaPalabra(estado, *indice, palabra, 0, tabla);
    };
    const Tiempos base = Mide(veces, [&] { busca(rara); });
    busca(rara);
    std::printf("%-18s %-24s %10s %10s %8s  %-9s %s\n", "", "", "mediana us", "minimo us",
                "razon", "meta", "resultado");
    Linea("palabra rara", rara, std::to_string(orvex::search::CuentaFichas(estado.MapaTermino)) +
                                    " fichas",
          base, base.mediana_us, false);
    const std::string ausente = "HISTROIA";
    Linea("palabra ausente", ausente, "0 fichas", Mide(veces, [&] { busca(ausente); }),
          base.mediana_us, false);

    const struct {
      const char* nombre;
      std::string palabra;
    } casos[] = {
        {"una edicion", "HISTROIA"},
        {"dos ediciones", "VILLASENIOR"},
        {"larga", "INTERPRETACOIN"},
        {"larga, dos", "ADMINISTRACIOENS"},
        {"corta", "DA"},
        {"tres letras", "EDL"},
        {"sin vecinas", "XQZWKJ"},
        {"con cifras", "968441082"},
        {"de 10 000", std::string(10000, 'H')},
    };
    for (const auto& c : casos) {
      std::vector<orvex::search::Sugerencia> s;
      const Tiempos t = Mide(veces, [&] { s = orvex::search::Sugiere(*indice, c.palabra, 5); });
      Linea(c.nombre, c.palabra, Resumen(s), t, base.mediana_us, true);
    }

    // The same over the whole vocabulary already in memory: the walk alone,
    // without reading the groups from the file.
    std::vector<orvex::search::vocabulario::Grupo> grupos;
    {
      const auto rs = indice->OpenRecordset(
          "SELECT largo, cifras, palabras, frecuencias FROM ORVEX_VOCABULARIO WHERE tabla = "
          "'TABLA' ORDER BY largo, cifras",
          orvex::db::RecordsetType::Snapshot);
      for (; !rs->Eof(); rs->MoveNext()) {
        grupos.push_back({static_cast<int>(rs->Field("largo").integer),
                          rs->Field("cifras").integer != 0, rs->FieldBytes("palabras"),
                          rs->FieldBytes("frecuencias")});
      }
    }
    for (const auto& c : casos) {
      std::vector<orvex::search::Sugerencia> s;
      const Tiempos t =
          Mide(veces, [&] { s = orvex::search::vocabulario::Sugiere(grupos, c.palabra, 5); });
      Linea("  en memoria", c.palabra, Resumen(s), t, base.mediana_us, false);
    }

    if (argc > 3) {
      auto sin = orvex::db::OpenDatabase(argv[3], pagina, {.read_only = true});
      std::vector<orvex::search::Sugerencia> s;
      const Tiempos t =
          Mide(std::min(veces, 20), [&] { s = orvex::search::Sugiere(*sin, "HISTROIA", 5); });
      Linea("sin vocabulario", "HISTROIA", Resumen(s), t, base.mediana_us, false);
    }
  } catch (const orvex::RuntimeError& e) {
    std::fprintf(stderr, "sugerencias: error %d: %s\n", e.number(),
                 pagina.ToUtf8(e.description()).c_str());
    return 2;
  }
  return fallidas == 0 ? 0 : 1;
}
