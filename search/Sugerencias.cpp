#include "search/Sugerencias.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "search/Indice.h"
#include "search/ListasPalabras.h"
#include "search/Normalizacion.h"

namespace orvex::search {
namespace {

using vocabulario::Grupo;

constexpr std::uint32_t kFrecuenciaMaxima = 0xFFFFFFFFu;

// The edits a word of `largo` characters admits.
int Presupuesto(std::size_t largo) {
  return static_cast<int>(std::min<std::size_t>(kMaximoEdiciones, largo == 0 ? 0 : largo - 1));
}

// True when a group's bytes hold whole words and a count for each.
bool GrupoSano(const Grupo& g) {
  if (g.largo < 1 || static_cast<std::size_t>(g.largo) > kLargoMaximo) return false;
  const std::size_t largo = static_cast<std::size_t>(g.largo);
  return g.palabras.size() % largo == 0 && g.frecuencias.size() == g.palabras.size() / largo * 4;
}

// Three or more digits: no word without digits is within two edits.
bool ConCifras(std::string_view w) {
  return std::count_if(w.begin(), w.end(), [](char c) { return c >= '0' && c <= '9'; }) >= 3;
}

bool TieneCifra(std::string_view w) {
  return std::any_of(w.begin(), w.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::int64_t Frecuencia(const Grupo& g, std::size_t i) {
  const auto* b = reinterpret_cast<const unsigned char*>(g.frecuencias.data()) + i * 4;
  return static_cast<std::int64_t>(b[0]) | static_cast<std::int64_t>(b[1]) << 8 |
         static_cast<std::int64_t>(b[2]) << 16 | static_cast<std::int64_t>(b[3]) << 24;
}

struct Acierto {
  const Grupo* grupo;
  std::size_t i;
  int ediciones;
};

// The words of group `g` within `k` edits of `q`, other than `q`, appended
// to `aciertos`.
//
// The group's words are sorted, so they are walked as the leaves of a trie:
// row d of the edit table (the first d characters of the word against every
// prefix of `q`) is computed once for all the words that share those d
// characters, and a word reuses the rows of the prefix it shares with the
// word before it. Every word of the group has the same length, so from cell
// (d, j) at least |(largo - d) - (|q| - j)| more edits are needed; when no
// cell of row d can end within `k`, no word with that prefix can, and the
// walk jumps past them all by a binary search. A swap of two adjacent
// characters reads row d - 2; row d - 1 always holds a cell no greater than
// the swap's result, so pruning on it loses nothing.
void BuscaEnGrupo(const Grupo& g, std::string_view q, int k, std::vector<Acierto>& aciertos,
                  std::vector<int>& tabla) {
  const int m = g.largo;
  const int lq = static_cast<int>(q.size());
  if (std::abs(m - lq) > k) return;
  const std::size_t n = g.palabras.size() / static_cast<std::size_t>(m);
  const int ancho = lq + 1;
  tabla.assign(static_cast<std::size_t>((m + 1) * ancho), 0);
  for (int j = 0; j <= lq; ++j) tabla[static_cast<std::size_t>(j)] = j;
  const auto* palabras = reinterpret_cast<const unsigned char*>(g.palabras.data());
  const auto* b = reinterpret_cast<const unsigned char*>(q.data());
  const auto palabra = [&](std::size_t i) { return palabras + i * static_cast<std::size_t>(m); };

  const unsigned char* anterior = nullptr;
  int validas = 0;  // rows 1..validas hold the prefixes of `anterior`
  std::size_t i = 0;
  while (i < n) {
    const unsigned char* w = palabra(i);
    int d = 0;
    if (anterior != nullptr) {
      while (d < validas && w[d] == anterior[d]) ++d;
    }
    bool podada = false;
    for (++d; d <= m; ++d) {
      int* fila = &tabla[static_cast<std::size_t>(d * ancho)];
      const int* arriba = fila - ancho;
      const unsigned char c = w[d - 1];
      fila[0] = d;
      int cota = d + std::abs((m - d) - lq);
      for (int j = 1; j <= lq; ++j) {
        int v = std::min(std::min(arriba[j], fila[j - 1]) + 1, arriba[j - 1] + (c != b[j - 1]));
        if (d > 1 && j > 1 && c == b[j - 2] && w[d - 2] == b[j - 1]) {
          v = std::min(v, tabla[static_cast<std::size_t>((d - 2) * ancho + j - 2)] + 1);
        }
        fila[j] = v;
        cota = std::min(cota, v + std::abs((m - d) - (lq - j)));
      }
      if (cota > k) {
        podada = true;
        break;
      }
    }
    anterior = w;
    if (podada) {
      validas = d;
      // The first word whose first d characters come after w's.
      const std::size_t largo_prefijo = static_cast<std::size_t>(d);
      std::size_t bajo = i + 1, alto = n;
      while (bajo < alto) {
        const std::size_t medio = bajo + (alto - bajo) / 2;
        if (std::memcmp(palabra(medio), w, largo_prefijo) <= 0) {
          bajo = medio + 1;
        } else {
          alto = medio;
        }
      }
      i = bajo;
      continue;
    }
    validas = m;
    const int ediciones = tabla[static_cast<std::size_t>(m * ancho + lq)];
    if (ediciones > 0 && ediciones <= k) aciertos.push_back({&g, i, ediciones});
    ++i;
  }
}

// The groups of lengths `desde` to `hasta` of the vocabulary of `tabla`, into
// `grupos`, those of words with three or more digits only `conCifras`: one
// seek each. False when the file has no vocabulary in force for it.
bool LeeVocabulario(db::Database& indice, const std::string& tabla, int desde, int hasta,
                    bool conCifras, std::vector<Grupo>& grupos) {
  try {
    if (!ListasVigentes(indice, tabla)) return false;
    const std::unique_ptr<db::Recordset> rs =
        indice.OpenRecordset(vocabulario::kTablaVocabulario, db::RecordsetType::Table);
    rs->SetFields({"tabla", "largo", "cifras", "palabras", "frecuencias"});
    rs->SetIndex("PrimaryKey");
    for (int largo = desde; largo <= hasta; ++largo) {
      for (const bool cifras : {false, true}) {
        if (cifras && !conCifras) continue;
        rs->Seek("=", {db::Value::Of(tabla), db::Value::Of(std::int64_t{largo}),
                       db::Value::Of(std::int64_t{cifras})});
        if (rs->NoMatch()) continue;
        grupos.push_back({largo, cifras, rs->FieldBytes("palabras"), rs->FieldBytes("frecuencias")});
      }
    }
    return true;
  } catch (const RuntimeError&) {
    grupos.clear();
    return false;
  }
}

// The vocabulary of `tabla` from its rows, walked in the order of its index
// FRASE, when it has at most kFilasSinVocabulario of them. False when it has
// more.
bool JuntaDeLaTabla(db::Database& indice, const std::string& tabla, std::vector<Grupo>& grupos) {
  const std::unique_ptr<db::Recordset> rs = indice.OpenRecordset(tabla, db::RecordsetType::Table);
  rs->SetFields({"palabra"});
  rs->SetIndex("FRASE");
  std::unordered_map<std::string, std::int64_t> cuentas;
  std::int64_t filas = 0;
  for (; !rs->Eof(); rs->MoveNext()) {
    if (++filas > kFilasSinVocabulario) return false;
    const db::Value v = rs->Field("palabra");
    const std::string texto = v.type == db::Value::Type::Text ? v.text : v.AsText();
    const std::string_view w = TrimBlanksView(texto);
    if (w.empty() || w.size() > kLargoMaximo) continue;
    ++cuentas[std::string(w)];
  }
  grupos = vocabulario::Agrupa({cuentas.begin(), cuentas.end()});
  return true;
}

}  // namespace

namespace vocabulario {

std::vector<Grupo> Agrupa(std::vector<std::pair<std::string, std::int64_t>> palabras) {
  std::erase_if(palabras, [](const auto& p) { return p.first.empty() || p.first.size() > kLargoMaximo; });
  std::sort(palabras.begin(), palabras.end(), [](const auto& x, const auto& y) {
    if (x.first.size() != y.first.size()) return x.first.size() < y.first.size();
    const bool cx = ConCifras(x.first), cy = ConCifras(y.first);
    if (cx != cy) return cy;
    return x.first < y.first;
  });
  std::vector<Grupo> grupos;
  for (std::size_t i = 0; i < palabras.size();) {
    const std::string& w = palabras[i].first;
    std::int64_t cuenta = 0;
    for (; i < palabras.size() && palabras[i].first == w; ++i) {
      cuenta += std::max<std::int64_t>(palabras[i].second, 0);
      cuenta = std::min<std::int64_t>(cuenta, kFrecuenciaMaxima);
    }
    const bool cifras = ConCifras(w);
    if (grupos.empty() || grupos.back().largo != static_cast<int>(w.size()) ||
        grupos.back().cifras != cifras) {
      grupos.push_back({static_cast<int>(w.size()), cifras, {}, {}});
    }
    Grupo& g = grupos.back();
    g.palabras += w;
    const auto f = static_cast<std::uint32_t>(cuenta);
    for (int corrimiento = 0; corrimiento < 32; corrimiento += 8) {
      g.frecuencias += static_cast<char>((f >> corrimiento) & 0xFF);
    }
  }
  return grupos;
}

std::vector<Sugerencia> Sugiere(const std::vector<Grupo>& grupos, std::string_view palabra,
                                int maximo) {
  if (maximo <= 0 || palabra.empty() || palabra.size() > kLargoMaximo) return {};
  const int k = Presupuesto(palabra.size());
  if (k == 0) return {};
  std::vector<Acierto> aciertos;
  std::vector<int> tabla;
  const bool con_cifras = TieneCifra(palabra);
  for (const Grupo& g : grupos) {
    if ((con_cifras || !g.cifras) && GrupoSano(g)) BuscaEnGrupo(g, palabra, k, aciertos, tabla);
  }
  std::vector<Sugerencia> sugerencias;
  sugerencias.reserve(aciertos.size());
  for (const Acierto& a : aciertos) {
    const auto largo = static_cast<std::size_t>(a.grupo->largo);
    sugerencias.push_back({a.grupo->palabras.substr(a.i * largo, largo), Frecuencia(*a.grupo, a.i),
                           a.ediciones});
  }
  // A word given in two groups of the same length counts once.
  std::sort(sugerencias.begin(), sugerencias.end(),
            [](const Sugerencia& x, const Sugerencia& y) { return x.palabra < y.palabra; });
  sugerencias.erase(std::unique(sugerencias.begin(), sugerencias.end(),
                                [](const Sugerencia& x, const Sugerencia& y) {
                                  return x.palabra == y.palabra;
                                }),
                    sugerencias.end());
  const auto antes = [](const Sugerencia& x, const Sugerencia& y) {
    if (x.frecuencia != y.frecuencia) return x.frecuencia > y.frecuencia;
    if (x.ediciones != y.ediciones) return x.ediciones < y.ediciones;
    return x.palabra < y.palabra;
  };
  const std::size_t n = std::min(sugerencias.size(), static_cast<std::size_t>(maximo));
  std::partial_sort(sugerencias.begin(), sugerencias.begin() + static_cast<std::ptrdiff_t>(n),
                    sugerencias.end(), antes);
  sugerencias.resize(n);
  return sugerencias;
}

}  // namespace vocabulario

std::vector<Sugerencia> Sugiere(db::Database& indice, std::string_view palabra, int maximo,
                                const std::string& tabla) {
  const std::string_view recortada = TrimBlanksView(palabra);
  if (maximo <= 0 || recortada.empty() || recortada.size() > kLargoMaximo) return {};
  const std::string buscada = NormalizaVocales(std::string(recortada));
  const int k = Presupuesto(buscada.size());
  if (k == 0) return {};
  const int lq = static_cast<int>(buscada.size());
  const int desde = std::max(1, lq - k);
  const int hasta = std::min(static_cast<int>(kLargoMaximo), lq + k);
  std::vector<Grupo> grupos;
  if (!LeeVocabulario(indice, tabla, desde, hasta, TieneCifra(buscada), grupos) &&
      !JuntaDeLaTabla(indice, tabla, grupos)) {
    return {};
  }
  return vocabulario::Sugiere(grupos, buscada, maximo);
}

}  // namespace orvex::search
