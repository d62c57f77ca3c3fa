#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "base/CodePage.h"
#include "db/jet/Bytes.h"
#include "db/jet/Jet4.h"

// An index of a Jet 4 file is a B-tree of pages: intermediate pages (type
// 0x03) whose entries hold the largest key of a child and the child's page,
// with a "tail" page (bytes 20-23) for the keys above all of them, and leaf
// pages (type 0x04) whose entries hold a key and the row it indexes, chained
// by their previous (bytes 12-15) and next (bytes 16-19) pages. Bytes 24-25
// give how many leading bytes the page's entries share: the first entry is
// stored whole, the others without them. Bit i of the bitmap at bytes
// 27-479 marks that an entry ends at byte 480 + i.
//
// A leaf entry is the key, the data page (3 bytes, big endian) and the row
// (1 byte); an intermediate entry is the key, the row of that key, and the
// child page (4 bytes, big endian). Keys compare as bytes.
namespace orvex::db::jet {
namespace {

constexpr std::uint8_t kIntermedia = 0x03, kHoja = 0x04;
constexpr std::size_t kInicioEntradas = 480, kInicioMapa = 27;
constexpr int kProfundidadMaxima = 32;

[[noreturn]] void Danado(const FuentePaginas& f, const std::string& que) {
  throw ErrorJet(Latin1("Base de datos Jet dañada '") + f.Nombre() + Latin1("': índice ") + que);
}

std::uint32_t BE(const std::uint8_t* p, int n) {
  std::uint32_t v = 0;
  for (int i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

// Calls `cada(delante, resto, cola)` for each entry of index page `p` in
// order: the entry's key is `delante` followed by `resto` (the first entry
// is stored whole, the others without the page's shared prefix), and
// `cola` holds the bytes after the key (4 on a leaf, 8 on an intermediate
// page). Stops early when `cada` returns false. Nothing is copied but the
// tail: a seek reads the pages it descends in place.
template <typename Cada>
void RecorreEntradas(const FuentePaginas& f, std::uint32_t n, const std::uint8_t* p, Cada cada) {
  const std::uint8_t tipo = p[0];
  const std::size_t prefijo = p[24] | p[25] << 8;
  const std::size_t cola = tipo == kHoja ? 4 : 8;
  std::string_view compartido;
  std::size_t inicio = kInicioEntradas;
  bool primera = true;
  for (std::size_t byte = 0; byte < kInicioEntradas - kInicioMapa; ++byte) {
    const std::uint8_t bits = p[kInicioMapa + byte];
    if (bits == 0) continue;
    for (std::size_t bit = 0; bit < 8; ++bit) {
      if (!(bits >> bit & 1)) continue;
      const std::size_t fin = kInicioEntradas + byte * 8 + bit;
      if (fin <= inicio || fin > kTamanoPagina) {
        Danado(f, "con entradas imposibles en la página " + std::to_string(n));
      }
      std::string_view guardada(reinterpret_cast<const char*>(p) + inicio, fin - inicio);
      inicio = fin;
      std::string_view delante;
      if (primera) {
        if (prefijo > guardada.size()) Danado(f, "con un prefijo mayor que su entrada");
        compartido = guardada.substr(0, prefijo);
        primera = false;
      } else {
        delante = compartido;
      }
      if (delante.size() + guardada.size() < cola) Danado(f, "con una entrada demasiado corta");
      // The tail lies at the end of the restored entry, in the stored bytes
      // unless the entry is shorter than it.
      std::uint8_t bytes_cola[8];
      const std::size_t de_guardada = std::min(cola, guardada.size());
      const std::size_t de_delante = cola - de_guardada;
      if (de_delante > 0) std::memcpy(bytes_cola, delante.data() + delante.size() - de_delante, de_delante);
      std::memcpy(bytes_cola + de_delante, guardada.data() + guardada.size() - de_guardada, de_guardada);
      delante.remove_suffix(de_delante);
      guardada.remove_suffix(de_guardada);
      if (!cada(delante, guardada, static_cast<const std::uint8_t*>(bytes_cola))) return;
    }
  }
}

// `a` followed by `b` compared with `c`, as bytes: <0, 0 or >0.
int ComparaPartida(std::string_view a, std::string_view b, std::string_view c) {
  const std::size_t n = std::min(a.size(), c.size());
  if (const int r = a.substr(0, n).compare(c.substr(0, n)); r != 0) return r;
  if (a.size() > c.size()) return 1;
  return b.compare(c.substr(a.size()));
}

// A leaf page parsed: its entries' keys restored end to end in `claves`.
struct Hoja {
  struct Entrada {
    std::uint32_t inicio = 0;  // of the key in `claves`
    std::uint32_t largo = 0;
    std::uint32_t pagina = 0;  // the data page
    std::uint16_t fila = 0;
  };
  std::string claves;
  std::vector<Entrada> entradas;
  std::uint32_t siguiente = 0;  // the next leaf

  std::string_view Clave(std::size_t i) const {
    return std::string_view(claves).substr(entradas[i].inicio, entradas[i].largo);
  }
};

Hoja LeeHoja(const FuentePaginas& f, std::uint32_t n, const std::uint8_t* p) {
  Hoja h;
  h.claves.reserve(2 * kTamanoPagina);
  h.entradas.reserve(64);
  RecorreEntradas(f, n, p, [&h](std::string_view delante, std::string_view resto, const std::uint8_t* cola) {
    Hoja::Entrada e;
    e.inicio = static_cast<std::uint32_t>(h.claves.size());
    e.largo = static_cast<std::uint32_t>(delante.size() + resto.size());
    e.pagina = BE(cola, 3);
    e.fila = cola[3];
    h.claves += delante;
    h.claves += resto;
    h.entradas.push_back(e);
    return true;
  });
  h.siguiente = U32(p + 16);
  return h;
}

// Leaves parsed, by page: a phrase seeks the same ones again and again.
using Hojas = std::unordered_map<std::uint32_t, std::shared_ptr<const Hoja>>;

// "General (legacy)" sort order: one primary byte per character of the word
// alphabet, letters without regard to case.
int Primario(std::uint32_t c) {
  if (c >= '0' && c <= '9') return 0x36 + 2 * static_cast<int>(c - '0');
  if (c >= 'a' && c <= 'z') c -= 'a' - 'A';
  static constexpr std::uint8_t kLetras[26] = {0x4A, 0x4C, 0x4D, 0x4F, 0x51, 0x53, 0x55, 0x57, 0x59,
                                               0x5B, 0x5C, 0x5E, 0x60, 0x62, 0x64, 0x66, 0x68, 0x69,
                                               0x6B, 0x6D, 0x6F, 0x71, 0x73, 0x75, 0x76, 0x78};
  if (c >= 'A' && c <= 'Z') return kLetras[c - 'A'];
  return -1;
}

// The character of a primary byte of the word alphabet; 0 for any other.
std::uint32_t DeLetra(std::uint8_t b) {
  static const auto kTabla = [] {
    std::array<std::uint8_t, 256> t{};
    for (std::uint32_t c = '0'; c <= 'Z'; ++c) {
      if (c <= '9' || c >= 'A') t[static_cast<std::size_t>(Primario(c))] = static_cast<std::uint8_t>(c);
    }
    return t;
  }();
  return kTabla[b];
}

// The code points of a UTF-8 text; nothing when it is not UTF-8.
std::optional<std::vector<std::uint32_t>> Caracteres(std::string_view s) {
  std::vector<std::uint32_t> r;
  for (std::size_t i = 0; i < s.size();) {
    const auto b = static_cast<std::uint8_t>(s[i]);
    if (b < 0x80) {
      r.push_back(b);
      ++i;
    } else if ((b & 0xE0) == 0xC0 && i + 1 < s.size()) {
      r.push_back((b & 0x1Fu) << 6 | (static_cast<std::uint8_t>(s[i + 1]) & 0x3Fu));
      i += 2;
    } else {
      return std::nullopt;
    }
  }
  return r;
}

bool ClaveTexto(std::string_view texto, std::string& clave) {
  const auto caracteres = Caracteres(texto);
  if (!caracteres || caracteres->empty()) return false;
  std::string marcas;
  int sencillos = 0;
  bool marcada = false;
  for (std::uint32_t c : *caracteres) {
    int primario = Primario(c);
    std::uint8_t marca = 0;
    if (c == 0xD1 || c == 0xF1) primario = Primario('N'), marca = 0x19;
    if (c == 0xC7 || c == 0xE7) primario = Primario('C'), marca = 0x1C;
    if (primario < 0) return false;
    clave += static_cast<char>(primario);
    if (marca == 0) {
      ++sencillos;
      continue;
    }
    marcas.append(static_cast<std::size_t>(sencillos), '\x02');
    marcas += static_cast<char>(marca);
    sencillos = 0;
    marcada = true;
  }
  clave += '\x01';
  if (marcada) clave += marcas;
  clave += '\x00';
  return true;
}

}  // namespace

struct CursorIndice::Estado {
  Estado(const FuentePaginas& archivo, const Tabla& t, const Indice& i) : f(archivo), tabla(t), indice(i) {}
  const FuentePaginas& f;
  const Tabla& tabla;
  const Indice& indice;
  std::shared_ptr<const Hoja> hoja = std::make_shared<const Hoja>();
  std::size_t i = 0;
  std::uint32_t siguiente = 0;  // the leaf after the current one
  bool valido = false;
  std::size_t hojas = 0;  // leaves read since the last seek: more than pages is a cycle
  Hojas leidas;

  // Makes leaf `n` (page `p`) the current one, at its first entry.
  void EntraEnHoja(std::uint32_t n, const std::uint8_t* p) {
    auto it = leidas.find(n);
    if (it == leidas.end()) it = leidas.emplace(n, std::make_shared<const Hoja>(LeeHoja(f, n, p))).first;
    hoja = it->second;
    siguiente = hoja->siguiente;
    i = 0;
  }

  // Descends from the root to the leaf that holds the first key >= `clave`
  // (the first leaf when `clave` is null) and enters it; no leaf when every
  // key is below `clave`. Intermediate pages are read in place.
  void Desciende(const std::string_view* clave) {
    std::uint32_t n = indice.pagina_raiz;
    std::array<std::uint32_t, kProfundidadMaxima> vistas{};
    for (std::size_t nivel = 0; nivel < vistas.size(); ++nivel) {
      const auto hasta = vistas.begin() + static_cast<std::ptrdiff_t>(nivel);
      if (std::find(vistas.begin(), hasta, n) != hasta) Danado(f, "en ciclo");
      vistas[nivel] = n;
      const std::uint8_t* p = f.Pagina(n);
      if (p[0] == kHoja) return EntraEnHoja(n, p);
      if (p[0] != kIntermedia) Danado(f, "con una página " + std::to_string(n) + " que no es suya");
      std::uint32_t hijo = U32(p + 20);  // the tail: keys above every entry
      RecorreEntradas(f, n, p, [&](std::string_view delante, std::string_view resto, const std::uint8_t* cola) {
        if (clave != nullptr && ComparaPartida(delante, resto, *clave) < 0) return true;
        hijo = BE(cola + 4, 4);
        return false;
      });
      if (hijo == 0) {
        hoja = std::make_shared<const Hoja>();
        siguiente = 0;
        i = 0;
        return;
      }
      n = hijo;
    }
    Danado(f, "demasiado profundo");
  }
};

CursorIndice::CursorIndice(const FuentePaginas& archivo, const Tabla& tabla, const Indice& indice)
    : e_(std::make_unique<Estado>(archivo, tabla, indice)) {}
CursorIndice::~CursorIndice() = default;

std::optional<std::string> CursorIndice::Clave(const std::vector<Valor>& claves) const {
  std::string r;
  for (std::size_t k = 0; k < claves.size(); ++k) {
    if (k >= e_->indice.columnas.size() || !e_->indice.columnas[k].ascendente) return std::nullopt;
    const Columna& c = e_->tabla.columnas[e_->indice.columnas[k].columna];
    const Valor& v = claves[k];
    r += '\x7F';
    switch (c.tipo) {
      case TipoColumna::Texto:
        if (c.orden != 1033 || v.tipo != Valor::Tipo::Texto || !ClaveTexto(v.bytes, r)) return std::nullopt;
        break;
      case TipoColumna::Largo: {
        if (v.tipo != Valor::Tipo::Entero || v.entero < INT32_MIN || v.entero > INT32_MAX) return std::nullopt;
        const std::uint32_t u = static_cast<std::uint32_t>(static_cast<std::int32_t>(v.entero)) ^ 0x80000000u;
        for (int s = 24; s >= 0; s -= 8) r += static_cast<char>(u >> s & 0xFF);
        break;
      }
      case TipoColumna::Entero: {
        if (v.tipo != Valor::Tipo::Entero || v.entero < INT16_MIN || v.entero > INT16_MAX) return std::nullopt;
        const std::uint16_t u = static_cast<std::uint16_t>(static_cast<std::int16_t>(v.entero)) ^ 0x8000u;
        r += static_cast<char>(u >> 8);
        r += static_cast<char>(u & 0xFF);
        break;
      }
      default:
        return std::nullopt;
    }
  }
  return r;
}

bool CursorIndice::Busca(std::string_view clave) {
  Estado& e = *e_;
  e.Desciende(&clave);
  e.hojas = 0;
  const Hoja& hoja = *e.hoja;
  std::size_t desde = 0, hasta = hoja.entradas.size();
  while (desde < hasta) {
    const std::size_t medio = desde + (hasta - desde) / 2;
    if (hoja.Clave(medio) < clave) {
      desde = medio + 1;
    } else {
      hasta = medio;
    }
  }
  e.i = desde;
  e.valido = true;
  if (e.i < hoja.entradas.size()) return true;
  return Siguiente();
}

bool CursorIndice::Primero() {
  Estado& e = *e_;
  e.Desciende(nullptr);
  e.hojas = 0;
  e.valido = true;
  if (!e.hoja->entradas.empty()) return true;
  return Siguiente();
}

bool CursorIndice::Siguiente() {
  Estado& e = *e_;
  if (!e.valido) return false;
  if (++e.i < e.hoja->entradas.size()) return true;
  while (e.siguiente != 0) {
    if (++e.hojas > e.f.Paginas()) Danado(e.f, "con hojas en ciclo");
    const std::uint32_t n = e.siguiente;
    const std::uint8_t* p = e.f.Pagina(n);
    if (p[0] != kHoja) Danado(e.f, "con una hoja que no lo es");
    e.EntraEnHoja(n, p);
    if (!e.hoja->entradas.empty()) return true;
  }
  e.valido = false;
  return false;
}

bool CursorIndice::Valido() const { return e_->valido && e_->i < e_->hoja->entradas.size(); }

std::string_view CursorIndice::ClaveActual() const {
  return Valido() ? e_->hoja->Clave(e_->i) : std::string_view();
}

std::optional<Valor> CursorIndice::ValorDeClave(std::size_t k) const {
  if (!Valido() || k >= e_->indice.columnas.size()) return std::nullopt;
  const std::string_view clave = ClaveActual();
  std::size_t o = 0;
  for (std::size_t i = 0; i <= k; ++i) {
    if (!e_->indice.columnas[i].ascendente || o >= clave.size() || clave[o] != '\x7F') return std::nullopt;
    ++o;
    const Columna& c = e_->tabla.columnas[e_->indice.columnas[i].columna];
    const auto* p = reinterpret_cast<const std::uint8_t*>(clave.data());
    switch (c.tipo) {
      case TipoColumna::Largo: {
        if (o + 4 > clave.size()) return std::nullopt;
        const std::uint32_t u = BE(p + o, 4) ^ 0x80000000u;
        o += 4;
        if (i == k) return Valor::DeEntero(static_cast<std::int32_t>(u));
        break;
      }
      case TipoColumna::Entero: {
        if (o + 2 > clave.size()) return std::nullopt;
        const std::uint16_t u = static_cast<std::uint16_t>(BE(p + o, 2) ^ 0x8000u);
        o += 2;
        if (i == k) return Valor::DeEntero(static_cast<std::int16_t>(u));
        break;
      }
      case TipoColumna::Texto: {
        // Primary bytes up to 0x01, then the marks up to 0x00: a 0x02 for
        // each plain letter before a mark, 0x19 for Ñ (on an N), 0x1C for Ç
        // (on a C).
        if (c.orden != 1033) return std::nullopt;
        const std::size_t letras = o;
        for (; o < clave.size() && p[o] != 0x01; ++o) {
          if (DeLetra(p[o]) == 0) return std::nullopt;
        }
        if (o >= clave.size()) return std::nullopt;
        const std::size_t fin_letras = o++;
        const std::size_t marcas = o;
        std::size_t en = letras;
        for (; o < clave.size() && p[o] != 0x00; ++o) {
          if (p[o] == 0x02) {
            ++en;
          } else if ((p[o] == 0x19 && en < fin_letras && DeLetra(p[en]) == 'N') ||
                     (p[o] == 0x1C && en < fin_letras && DeLetra(p[en]) == 'C')) {
            ++en;
          } else {
            return std::nullopt;
          }
        }
        if (o >= clave.size()) return std::nullopt;
        const std::size_t fin_marcas = o++;
        if (i == k) {
          std::string texto;
          texto.reserve(fin_letras - letras + 4);
          std::size_t m = marcas;
          for (std::size_t l = letras; l < fin_letras; ++l) {
            // The mark of this letter, if the marks reach it.
            std::uint8_t marca = 0;
            if (m < fin_marcas) {
              marca = p[m] == 0x02 ? 0 : p[m];
              ++m;
            }
            if (marca == 0x19) {
              texto += "\xC3\x91";  // Ñ
            } else if (marca == 0x1C) {
              texto += "\xC3\x87";  // Ç
            } else {
              texto += static_cast<char>(DeLetra(p[l]));
            }
          }
          return Valor::DeTexto(std::move(texto));
        }
        break;
      }
      default:
        return std::nullopt;
    }
  }
  return std::nullopt;
}

PosicionFila CursorIndice::Fila() const {
  if (!Valido()) return {};
  const Hoja::Entrada& entrada = e_->hoja->entradas[e_->i];
  return {entrada.pagina, entrada.fila};
}

}  // namespace orvex::db::jet
