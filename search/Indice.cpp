#include "search/Indice.h"

#include <sys/mman.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "db/JetSql.h"
#include "search/Expresion.h"
#include "search/ListasPalabras.h"
#include "search/Normalizacion.h"

namespace orvex::search {
namespace {

// Hits one exact-word or query lookup may contribute; the rest are dropped.
constexpr std::int32_t kLimiteAciertos = 30001;

// The words that never serve as a phrase's pivot when another word can:
// each is frequent enough that reading its postings costs more than
// verifying it by seeks.
constexpr std::string_view kPalabrasComunes = "-MEXICO-MEDICINA-";

// A numeric column as the record loop reads it: a whole number, or the
// number at the start of its text. A null value cannot be read as a number.
std::int64_t Numero(const db::Value& v) {
  if (v.type == db::Value::Type::Integer) return v.integer;
  if (v.IsNull()) Raise(94);
  return ToInt32(LeadingNumber(v.AsText()));
}

// Sets record f's bit; a record outside the bitmap raises 9.
void PonFicha(MapaFichas& mapa, std::int64_t f) {
  if (f < 1 || f > MapaFichas::kMaximaFicha) Raise(kErrSubindice);
  mapa.Pon(static_cast<std::int32_t>(f));
}

// True when the row's word, trimmed, is `palabra`.
bool EsPalabra(const db::Value& v, std::string_view palabra) {
  if (v.type == db::Value::Type::Text) return TrimBlanksView(v.text) == palabra;
  return TrimBlanksView(v.AsText()) == palabra;
}

// Sets the bit of the "ficha" of each row of `sql`, at most 30001 rows.
void LeeFichas(MapaFichas& mapa, db::Database& indice, const std::string& sql) {
  const std::unique_ptr<db::Recordset> rs = indice.OpenRecordset(sql, db::RecordsetType::Snapshot);
  for (std::int32_t filas = 0; filas < kLimiteAciertos && !rs->Eof(); ++filas) {
    PonFicha(mapa, Numero(rs->Field("ficha")));
    rs->MoveNext();
  }
}

// The fields a walk over the word index reads: the keys it needs, and the
// field code only when it filters by it (that one is not in the index).
std::vector<std::string> CamposLeidos(std::int16_t campo) {
  std::vector<std::string> campos = {"palabra", "ficha"};
  if (campo != 0) campos.emplace_back("campo");
  return campos;
}

// Walks the word table in the order of its index FRASE, from the first
// word not below `prefijo` while the words begin with it, and sets the bit of
// each row whose word `acepta` takes and whose field is `campo` (any field
// when 0), at most 30001 rows. This is what the lookup's query selects,
// read through the index instead of a scan of the table.
template <typename Acepta>
void LeePorIndice(MapaFichas& mapa, db::Database& indice, const std::string& tabla,
                  const std::string& prefijo, std::int16_t campo, Acepta acepta) {
  const std::unique_ptr<db::Recordset> rs = indice.OpenRecordset(tabla, db::RecordsetType::Table);
  rs->SetFields(CamposLeidos(campo));
  rs->SetIndex("FRASE");
  rs->Seek(">=", {db::Value::Of(prefijo)});
  std::int32_t filas = 0;
  for (; !rs->Eof() && filas < kLimiteAciertos; rs->MoveNext()) {
    const db::Value palabra = rs->Field("palabra");
    const std::string_view w = palabra.type == db::Value::Type::Text ? std::string_view(palabra.text)
                                                                    : std::string_view();
    if (w.substr(0, prefijo.size()) != prefijo) break;
    if (!acepta(w)) continue;
    if (campo != 0) {
      const db::Value campo_fila = rs->Field("campo");
      if (campo_fila.IsNull() || Numero(campo_fila) != campo) continue;
    }
    PonFicha(mapa, Numero(rs->Field("ficha")));
    ++filas;
  }
}

// --- the word lists kept beside the table ------------------------------------

// ListasVigentes, asked once per database and table in a request.
bool ListasVigentes(Estado& e, db::Database& indice, const std::string& tabla) {
  if (e.listas.base != indice.Serie() || e.listas.tabla != tabla) {
    e.listas = {indice.Serie(), tabla, search::ListasVigentes(indice, tabla)};
  }
  return e.listas.vigentes;
}

// What a walk over the lists does with a word's rows.
enum class Paso { Lee, Salta, Termina };

// Walks the lists of `tabla` from the first word not below `desde`, in the
// order of the index FRASE: `palabra(w)` tells for each word whether to read
// its rows, skip them or stop; `fila(f)` receives each row read and returns
// false to stop. A chunk that does not decode is a damaged file.
// Walks the lists of `tabla` from the first word not below `desde`, in the
// order of the index FRASE: `palabra(w)` tells for each word whether to read
// its chunks, skip them or stop; `trozo(bytes, filas, w)` receives each chunk
// read, with its row count, and returns false to stop.
template <typename Palabra, typename Trozo>
void RecorreTrozos(db::Database& indice, const std::string& tabla, const std::string& desde,
                   Palabra palabra, Trozo trozo) {
  const std::unique_ptr<db::Recordset> rs =
      indice.OpenRecordset(listas::kTablaListas, db::RecordsetType::Table);
  rs->SetFields({"tabla", "palabra", "filas", "lista"});
  rs->SetIndex("PrimaryKey");
  rs->Seek(">=", {db::Value::Of(tabla), db::Value::Of(desde)});
  std::string actual;
  Paso paso = Paso::Lee;
  for (; !rs->Eof(); rs->MoveNext()) {
    if (rs->Field("tabla").AsText() != tabla) return;
    std::string w = rs->Field("palabra").AsText();
    if (w != actual || actual.empty()) {
      actual = std::move(w);
      paso = palabra(std::string_view(actual));
    }
    if (paso == Paso::Termina) return;
    if (paso == Paso::Salta) continue;
    if (!trozo(rs->FieldBytes("lista"), Numero(rs->Field("filas")), actual)) return;
  }
}

[[noreturn]] void ListaDanada(const std::string& palabra) {
  throw RuntimeError(db::kErrFormatoNoReconocido,
                     Latin1("La lista de la palabra ") + palabra + Latin1(" está dañada."));
}

// RecorreTrozos row by row: `fila(f)` receives each row and returns false to
// stop. A chunk that does not decode to its row count is a damaged file.
template <typename Palabra, typename FilaLeida>
void RecorreListas(db::Database& indice, const std::string& tabla, const std::string& desde,
                   Palabra palabra, FilaLeida fila) {
  RecorreTrozos(indice, tabla, desde, palabra,
                [&](const std::string& bytes, std::int64_t filas, const std::string& w) {
                  listas::Decodificador d(bytes);
                  listas::Fila f;
                  std::int64_t leidas = 0;
                  while (d.Siguiente(f)) {
                    ++leidas;
                    if (!fila(f)) return false;
                  }
                  if (d.Danado() || leidas != filas) ListaDanada(w);
                  return true;
                });
}

// LeePorIndice over the lists: from the first word not below `prefijo`
// while the words begin with it, the bits of the rows of the words `acepta`
// takes whose field is `campo` (any field when 0), at most 30001 rows.
template <typename Acepta>
void LeePorListas(MapaFichas& mapa, db::Database& indice, const std::string& tabla,
                  const std::string& prefijo, std::int16_t campo, Acepta acepta) {
  std::int32_t filas = 0;
  RecorreListas(
      indice, tabla, prefijo,
      [&](std::string_view w) {
        if (w.substr(0, prefijo.size()) != prefijo) return Paso::Termina;
        return acepta(w) ? Paso::Lee : Paso::Salta;
      },
      [&](const listas::Fila& f) {
        if (campo != 0 && f.campo != campo) return true;
        PonFicha(mapa, f.ficha);
        return ++filas < kLimiteAciertos;
      });
}

db::Database& IndiceDe(const Entorno& en) {
  if (en.indice == nullptr) {
    throw RuntimeError(91, Latin1("Variable de objeto o bloque With no establecida"));
  }
  return *en.indice;
}

// Looks up terms 0 to n - 1 in order and merges each one into the result.
// Books skip an AND term against an empty result; articles look every term
// up, exact words by a query on TABLAANA.
void EvaluaTerminos(const Entorno& en, std::int16_t n, bool enArticulos) {
  Estado& e = en.estado;
  for (std::int16_t i = 0; i < n; ++i) {
    const TerminoBusqueda& termino = e.Terminos[static_cast<std::size_t>(i)];
    const bool es_o = termino.operador == "+";
    const bool es_no = termino.operador == "-";
    std::string w = TrimBlanks(termino.palabra);
    // An empty word merges the term bitmap as the previous term left it.
    if (!w.empty()) {
      if (!enArticulos && !es_o && !es_no && e.MapaResultado.Cuenta() == 0) continue;
      db::Database& indice = IndiceDe(en);
      std::string tabla = enArticulos ? "TABLAANA" : "TABLA";
      if (w.size() >= 2 && w.front() == '"' && w.back() == '"') {
        BuscaFrase(e, indice, w.substr(1, w.size() - 2), termino.campo, enArticulos);
      } else if (w.back() == '$') {
        BuscaTruncada(e, indice, w, termino.campo, tabla);
      } else if (enArticulos) {
        BuscaPalabraSQL(e, indice, w, termino.campo, tabla);
      } else {
        BuscaPalabra(e, indice, w, termino.campo, tabla);
      }
    }
    if (es_o) {
      e.MapaResultado.Une(e.MapaTermino);
    } else if (es_no) {
      e.MapaResultado.Excluye(e.MapaTermino);
    } else {
      e.MapaResultado.Interseca(e.MapaTermino);
    }
  }
}

// The start of every word lookup: the term bitmap emptied, the word folded
// and the table named. False when the word is blank: nothing to look up.
bool PreparaPalabra(Estado& e, std::string& palabra, std::string& tabla) {
  e.MapaTermino.Limpia();
  if (TrimBlanksView(palabra).empty()) return false;
  palabra = NormalizaVocales(palabra);
  if (tabla.empty()) tabla = "TABLA";
  return true;
}

// The rows of `palabra` in the lists of `tabla`, from the chunks' counts
// alone (their rows are not read).
std::int64_t FilasDe(db::Database& indice, const std::string& tabla, const std::string& palabra) {
  const std::unique_ptr<db::Recordset> rs =
      indice.OpenRecordset(listas::kTablaListas, db::RecordsetType::Table);
  rs->SetFields({"tabla", "palabra", "filas"});
  rs->SetIndex("PrimaryKey");
  std::int64_t filas = 0;
  for (rs->Seek("=", {db::Value::Of(tabla), db::Value::Of(palabra)}); !rs->NoMatch() && !rs->Eof();
       rs->MoveNext()) {
    if (rs->Field("tabla").AsText() != tabla || rs->Field("palabra").AsText() != palabra) break;
    filas += Numero(rs->Field("filas"));
  }
  return filas;
}

// A phrase's candidate keys, in memory of their own that the kernel may
// back with huge pages: the candidates of a common word fill half a
// megabyte, and faulting it in 4 KB at a time cost more than the search.
class Candidatos {
 public:
  explicit Candidatos(std::size_t capacidad) : bytes_(Redondea(capacidad * sizeof(std::uint64_t))) {
    void* p = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    madvise(p, bytes_, MADV_HUGEPAGE);
    datos_ = static_cast<std::uint64_t*>(p);
    capacidad_ = bytes_ / sizeof(std::uint64_t);
  }
  ~Candidatos() { munmap(datos_, bytes_); }
  Candidatos(const Candidatos&) = delete;
  Candidatos& operator=(const Candidatos&) = delete;

  // False when full: the word had more rows than it said.
  bool Agrega(std::uint64_t c) {
    if (n_ == capacidad_) return false;
    datos_[n_++] = c;
    return true;
  }
  std::uint64_t* begin() { return datos_; }
  std::uint64_t* end() { return datos_ + n_; }
  std::size_t size() const { return n_; }
  bool empty() const { return n_ == 0; }
  std::uint64_t& operator[](std::size_t i) { return datos_[i]; }
  void resize(std::size_t n) { n_ = n; }

 private:
  static std::size_t Redondea(std::size_t n) {
    constexpr std::size_t k2M = std::size_t{2} << 20;
    return n == 0 ? 4096 : (n + k2M - 1) / k2M * k2M;
  }
  std::size_t bytes_;
  std::uint64_t* datos_ = nullptr;
  std::size_t capacidad_ = 0;
  std::size_t n_ = 0;
};

// A phrase over the lists: the records where every word j of the phrase
// occurs at position s + j for some s, which is what the seeks from the
// pivot's rows find, whichever word is the pivot. Each word's rows become
// keys (record, position - j); the keys of the word with the fewest rows
// are the candidates, and the other words' rows, from the next fewest on,
// each keep the candidates they hold, so that no long list is held in
// memory. Each record left sets its bit. The pivot is sought as it is
// written and every other word with its "$" as "*", as the seeks do. A
// phrase with no word at all is its empty first word alone, as the seeks
// read it: the records where the index holds an empty word.
void FrasePorListas(MapaFichas& mapa, db::Database& indice, const std::string& tabla,
                    const std::array<std::string, kMaximoPalabrasFrase>& palabras, int k,
                    int pivote) {
  struct Palabra {
    std::string buscada;
    int j;
    std::int64_t filas;
  };
  std::vector<Palabra> orden;
  for (int j = 0; j < std::max(k, 1); ++j) {
    std::string buscada = palabras[static_cast<std::size_t>(j)];
    if (j != pivote) std::replace(buscada.begin(), buscada.end(), '$', '*');
    const std::int64_t filas = FilasDe(indice, tabla, buscada);
    if (filas == 0) return;
    orden.push_back({std::move(buscada), j, filas});
  }
  std::stable_sort(orden.begin(), orden.end(),
                   [](const Palabra& a, const Palabra& b) { return a.filas < b.filas; });

  // A word's keys, chunk by chunk. The chunks follow one another in key
  // order and so do the rows inside each: keys out of order are a damaged
  // list.
  const auto claves_de = [&](const Palabra& p, auto&& con_trozo) {
    std::vector<std::uint64_t> claves;
    std::uint64_t anterior = 0;
    RecorreTrozos(
        indice, tabla, p.buscada,
        [&p](std::string_view w) { return w == p.buscada ? Paso::Lee : Paso::Termina; },
        [&](const std::string& bytes, std::int64_t filas, const std::string& w) {
          claves.clear();
          if (listas::ClavesDeFrase(bytes, p.j, claves, anterior) != filas) ListaDanada(w);
          return con_trozo(claves);
        });
  };

  Candidatos candidatos(static_cast<std::size_t>(orden[0].filas));
  claves_de(orden[0], [&](const std::vector<std::uint64_t>& claves) {
    for (const std::uint64_t c : claves) {
      if (!candidatos.Agrega(c)) ListaDanada(orden[0].buscada);
    }
    return true;
  });
  candidatos.resize(static_cast<std::size_t>(
      std::unique(candidatos.begin(), candidatos.end()) - candidatos.begin()));

  for (std::size_t w = 1; w < orden.size() && !candidatos.empty(); ++w) {
    // One pass over the word's keys keeps the candidates it holds.
    std::size_t i = 0, quedan = 0;
    claves_de(orden[w], [&](const std::vector<std::uint64_t>& claves) {
      for (const std::uint64_t c : claves) {
        while (i < candidatos.size() && candidatos[i] < c) ++i;
        if (i == candidatos.size()) return false;
        if (candidatos[i] == c) candidatos[quedan++] = candidatos[i++];
      }
      return true;
    });
    candidatos.resize(quedan);
  }
  for (const std::uint64_t c : candidatos) PonFicha(mapa, static_cast<std::int64_t>(c >> 32));
}

}  // namespace

bool ListasVigentes(db::Database& indice, const std::string& tabla) {
  try {
    const std::unique_ptr<db::Recordset> vigencia =
        indice.OpenRecordset(listas::kTablaVigencia, db::RecordsetType::Table);
    vigencia->SetIndex("PrimaryKey");
    vigencia->Seek("=", {db::Value::Of(tabla)});
    if (vigencia->NoMatch()) return false;
    const std::unique_ptr<db::Recordset> disparadores = indice.OpenRecordset(
        "SELECT name, tbl_name FROM sqlite_master WHERE type = 'trigger'",
        db::RecordsetType::Snapshot);
    int presentes = 0;
    for (; !disparadores->Eof(); disparadores->MoveNext()) {
      const std::string nombre = disparadores->Field("name").AsText();
      if (!EqualsIgnoringCase(disparadores->Field("tbl_name").AsText(), tabla)) continue;
      for (std::string_view suceso : listas::kSucesos) {
        if (EqualsIgnoringCase(nombre, listas::Disparador(tabla, suceso))) ++presentes;
      }
    }
    return presentes == static_cast<int>(std::size(listas::kSucesos));
  } catch (const RuntimeError&) {
    return false;
  }
}

void IniciaBusqueda(Estado& e) {
  e.MapaResultado.Limpia();
  for (int i = 0; i < kMaximoTerminos - 1; ++i) {
    TerminoBusqueda& t = e.Terminos[static_cast<std::size_t>(i)];
    t.palabra.clear();
    t.operador.clear();
    t.campo = 0;
  }
}

void BuscaPalabras(const Entorno& en, const std::array<std::string, 4>& expr,
                   const std::array<std::int16_t, 3>& campos, bool conCampos) {
  Estado& e = en.estado;
  IniciaBusqueda(e);
  std::int16_t n = 0;
  if (conCampos) {
    for (std::size_t i = 0; i < 3; ++i) n = AnalizaExpresion(e, en.salida, expr[i], campos[i], n);
  } else {
    for (std::size_t i = 0; i < 4; ++i) {
      n = AnalizaExpresion(e, en.salida, expr[i], static_cast<std::int16_t>(i), n);
    }
  }
  if (n < 1) return;  // no terms, or a syntax error
  EvaluaTerminos(en, n, false);
}

void BuscaPalabrasAna(const Entorno& en, const std::array<std::string, 4>& expr) {
  Estado& e = en.estado;
  IniciaBusqueda(e);
  std::int16_t n = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    n = AnalizaExpresion(e, en.salida, expr[i], static_cast<std::int16_t>(i), n);
  }
  if (n < 1) return;
  EvaluaTerminos(en, n, true);
}

void BuscaPalabra(Estado& e, db::Database& indice, std::string& palabra, std::int16_t campo,
                  std::string& tabla) {
  if (!PreparaPalabra(e, palabra, tabla)) return;
  if (ListasVigentes(e, indice, tabla)) {
    std::int32_t aciertos = 0;
    RecorreListas(
        indice, tabla, palabra,
        [&palabra](std::string_view w) { return w == palabra ? Paso::Lee : Paso::Termina; },
        [&](const listas::Fila& f) {
          if (campo != 0 && f.campo != campo) return true;
          PonFicha(e.MapaTermino, f.ficha);
          return ++aciertos < kLimiteAciertos;
        });
    return;
  }
  const std::unique_ptr<db::Recordset> rs = indice.OpenRecordset(tabla, db::RecordsetType::Table);
  rs->SetFields(CamposLeidos(campo));
  rs->SetIndex("FRASE");
  rs->Seek("=", {db::Value::Of(palabra)});
  if (rs->NoMatch()) return;
  // The index keeps the word's postings together, by record and position.
  std::int32_t aciertos = 0;
  while (!rs->Eof()) {
    if (!EsPalabra(rs->Field("palabra"), palabra)) break;
    bool cuenta = true;
    if (campo != 0) {
      const db::Value campo_fila = rs->Field("campo");
      // A null field code compares as unknown and does not exclude the row.
      cuenta = campo_fila.IsNull() || Numero(campo_fila) == campo;
    }
    if (cuenta) {
      PonFicha(e.MapaTermino, Numero(rs->Field("ficha")));
      ++aciertos;
    }
    rs->MoveNext();
    if (aciertos >= kLimiteAciertos) break;
  }
  // The lookup has always timed itself and thrown the time away; it is not
  // measured here.
}

void BuscaPalabraSQL(Estado& e, db::Database& indice, std::string& palabra, std::int16_t campo,
                     std::string& tabla) {
  if (!PreparaPalabra(e, palabra, tabla)) return;
  // The rows of "SELECT * FROM <tabla> WHERE palabra='<palabra>' [and
  // campo= <campo>]", read through the index.
  const auto igual = [&palabra](std::string_view w) { return w == palabra; };
  if (ListasVigentes(e, indice, tabla)) {
    LeePorListas(e.MapaTermino, indice, tabla, palabra, campo, igual);
  } else {
    LeePorIndice(e.MapaTermino, indice, tabla, palabra, campo, igual);
  }
}

void BuscaTruncada(Estado& e, db::Database& indice, std::string& palabra, std::int16_t campo,
                   std::string& tabla) {
  // Every "$" becomes the LIKE wildcard, one in the middle of the word too.
  for (char& c : palabra) {
    if (c == '$') c = '*';
  }
  if (!PreparaPalabra(e, palabra, tabla)) return;
  // With a fixed start ("COMPUT*") the words lie together in the index and
  // are read through it; a pattern that starts with a wildcard needs the
  // query, which reads the whole table.
  const std::size_t comodin = palabra.find_first_of("*?#[");
  if (comodin != 0 && comodin != std::string::npos) {
    const auto casa = [&palabra](std::string_view w) { return db::JetLike(palabra, w); };
    if (ListasVigentes(e, indice, tabla)) {
      LeePorListas(e.MapaTermino, indice, tabla, palabra.substr(0, comodin), campo, casa);
    } else {
      LeePorIndice(e.MapaTermino, indice, tabla, palabra.substr(0, comodin), campo, casa);
    }
    return;
  }
  // No quoting: the parser keeps apostrophes out of words.
  std::string sql = "SELECT ficha FROM " + tabla + " WHERE palabra like '" + palabra + "'";
  if (campo != 0) sql += " and campo= " + std::to_string(campo);
  LeeFichas(e.MapaTermino, indice, sql);
}

// The field code is not applied: a phrase is found in any field. A "$" in a
// word other than the pivot is sought literally as "*", and a "$" in the
// pivot as "$"; both match only where the index holds that character.
void BuscaFrase(Estado& e, db::Database& indice, std::string frase, std::int16_t /*campo*/,
                bool enArticulos) {
  std::string resto(TrimBlanksView(NormalizaVocales(frase)));

  // The words, in order. A character that cannot start a word yields an
  // empty word without advancing, so such a phrase runs into the 32nd word
  // and fails like an over-long one.
  std::array<std::string, kMaximoPalabrasFrase> palabras;
  int k = 0;
  while (!resto.empty()) {
    if (k >= kMaximoPalabrasFrase) Raise(kErrSubindice);
    palabras[static_cast<std::size_t>(k)] = SiguienteToken(e, resto, CaracteresPalabra);
    resto = TrimBlanks(resto);
    ++k;
  }

  // The pivot: the first word at least as long as the first one that is not
  // one of the common words (the words are upper case already).
  int pivote = 0;
  for (int i = 0; i < k; ++i) {
    const std::string& p = palabras[static_cast<std::size_t>(i)];
    if (p.size() < palabras[0].size()) continue;
    if (kPalabrasComunes.find("-" + p + "-") == std::string_view::npos) {
      pivote = i;
      break;
    }
  }

  e.MapaTermino.Limpia();
  const std::string tabla = enArticulos ? "TABLAANA" : "TABLA";
  if (ListasVigentes(e, indice, tabla)) {
    FrasePorListas(e.MapaTermino, indice, tabla, palabras, k, pivote);
    return;
  }
  // The pivot's postings (the rows of "SELECT * FROM <tabla> WHERE
  // palabra='<pivot>'"), read through the index before the seeks begin.
  std::vector<std::pair<std::int64_t, std::int64_t>> postings;
  {
    const std::string& pivot = palabras[static_cast<std::size_t>(pivote)];
    const std::unique_ptr<db::Recordset> rs = indice.OpenRecordset(tabla, db::RecordsetType::Table);
    rs->SetFields({"palabra", "ficha", "posicion"});
    rs->SetIndex("FRASE");
    rs->Seek("=", {db::Value::Of(pivot)});
    for (; !rs->NoMatch() && !rs->Eof() && EsPalabra(rs->Field("palabra"), pivot); rs->MoveNext()) {
      postings.emplace_back(Numero(rs->Field("Ficha")), Numero(rs->Field("posicion")));
    }
  }
  if (postings.empty()) return;

  const std::unique_ptr<db::Recordset> frases = indice.OpenRecordset(tabla, db::RecordsetType::Table);
  frases->SetFields({"palabra", "ficha", "posicion"});  // the keys only: no row is read
  frases->SetIndex("Frase");

  // One full key per other word, (word, record, position); only the numbers
  // change from one posting to the next.
  std::vector<int> otras;
  std::vector<std::vector<db::Value>> claves(static_cast<std::size_t>(k));
  for (int j = 0; j < k; ++j) {
    if (j == pivote) continue;
    std::string& p = palabras[static_cast<std::size_t>(j)];
    for (char& c : p) {
      if (c == '$') c = '*';
    }
    otras.push_back(j);
    claves[static_cast<std::size_t>(j)] = {db::Value::Of(p), db::Value::Of(std::int64_t{0}),
                                           db::Value::Of(std::int64_t{0})};
  }

  for (const auto& [f, p] : postings) {
    bool coincide = true;
    for (int j : otras) {
      std::vector<db::Value>& clave = claves[static_cast<std::size_t>(j)];
      clave[1].integer = f;
      clave[2].integer = p - (pivote - j);
      frases->Seek("=", clave);
      if (frases->NoMatch()) {
        coincide = false;
        break;
      }
    }
    if (coincide) PonFicha(e.MapaTermino, f);
  }
}

std::int32_t CuentaFichas(const MapaFichas& mapa) { return mapa.Cuenta(); }

std::int32_t SiguienteFicha(const MapaFichas& mapa, std::int32_t actual) {
  return mapa.Siguiente(actual);
}

}  // namespace orvex::search
