#include <algorithm>
#include <array>
#include <memory>
#include <set>
#include <unordered_map>

#include "base/CodePage.h"
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

std::uint32_t U32(const std::uint8_t* p) {
  return p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}
std::uint32_t BE(const std::uint8_t* p, int n) {
  std::uint32_t v = 0;
  for (int i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

struct Entrada {
  std::string clave;
  std::uint32_t pagina = 0;  // leaf: the data page; intermediate: the child
  std::uint16_t fila = 0;
};

// The entries of an index page, in order, their shared prefix restored.
std::vector<Entrada> Entradas(const FuentePaginas& f, std::uint32_t n, std::uint8_t& tipo) {
  const std::uint8_t* p = f.Pagina(n);
  tipo = p[0];
  if (tipo != kIntermedia && tipo != kHoja) Danado(f, "con una página " + std::to_string(n) + " que no es suya");
  const std::size_t prefijo = p[24] | p[25] << 8;
  const std::size_t cola = tipo == kHoja ? 4 : 8;
  std::vector<Entrada> r;
  std::string compartido;
  std::size_t inicio = kInicioEntradas;
  for (std::size_t i = 0; i < (kInicioEntradas - kInicioMapa) * 8; ++i) {
    if (!(p[kInicioMapa + i / 8] >> (i % 8) & 1)) continue;
    const std::size_t fin = kInicioEntradas + i;
    if (fin <= inicio || fin > kTamanoPagina) Danado(f, "con entradas imposibles en la página " + std::to_string(n));
    std::string bytes(reinterpret_cast<const char*>(p) + inicio, fin - inicio);
    if (r.empty()) {
      if (prefijo > bytes.size()) Danado(f, "con un prefijo mayor que su entrada");
      compartido = bytes.substr(0, prefijo);
    } else {
      bytes = compartido + bytes;
    }
    if (bytes.size() < cola) Danado(f, "con una entrada demasiado corta");
    Entrada e;
    e.clave = bytes.substr(0, bytes.size() - cola);
    const auto* b = reinterpret_cast<const std::uint8_t*>(bytes.data() + bytes.size() - cola);
    if (tipo == kHoja) {
      e.pagina = BE(b, 3);
      e.fila = b[3];
    } else {
      e.pagina = BE(b + 4, 4);
    }
    r.push_back(std::move(e));
    inicio = fin;
  }
  return r;
}

// Parsed pages by number, with their type.
struct Parseada {
  std::uint8_t tipo = 0;
  std::shared_ptr<const std::vector<Entrada>> entradas;
};
using Paginas = std::unordered_map<std::uint32_t, Parseada>;

const Parseada& Parsea(const FuentePaginas& f, Paginas& paginas, std::uint32_t n) {
  auto it = paginas.find(n);
  if (it == paginas.end()) {
    Parseada p;
    p.entradas = std::make_shared<const std::vector<Entrada>>(Entradas(f, n, p.tipo));
    it = paginas.emplace(n, std::move(p)).first;
  }
  return it->second;
}

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
  std::shared_ptr<const std::vector<Entrada>> hoja = std::make_shared<std::vector<Entrada>>();
  Paginas paginas;  // the pages read, parsed: a phrase seeks the same ones again and again
  std::size_t i = 0;
  std::uint32_t siguiente = 0;  // the next leaf
  bool valido = false;
  std::size_t hojas = 0;  // leaves read since the last seek: more than pages is a cycle
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

namespace {

// Descends from the root to the leaf that holds the first key >= `clave`
// (the first leaf when `clave` is null); its entries and next leaf.
std::uint32_t Desciende(const FuentePaginas& f, Paginas& paginas, std::uint32_t raiz,
                        const std::string* clave, std::shared_ptr<const std::vector<Entrada>>& hoja) {
  std::uint32_t n = raiz;
  std::set<std::uint32_t> vistas;
  for (int nivel = 0; nivel < kProfundidadMaxima; ++nivel) {
    if (!vistas.insert(n).second) Danado(f, "en ciclo");
    const Parseada& pagina = Parsea(f, paginas, n);
    const std::uint8_t* p = f.Pagina(n);
    if (pagina.tipo == kHoja) {
      hoja = pagina.entradas;
      return U32(p + 16);
    }
    std::uint32_t hijo = U32(p + 20);  // the tail: keys above every entry
    for (const Entrada& e : *pagina.entradas) {
      if (clave == nullptr || e.clave >= *clave) {
        hijo = e.pagina;
        break;
      }
    }
    if (hijo == 0) {
      hoja = std::make_shared<const std::vector<Entrada>>();
      return 0;
    }
    n = hijo;
  }
  Danado(f, "demasiado profundo");
}

}  // namespace

bool CursorIndice::Busca(std::string_view clave) {
  Estado& e = *e_;
  const std::string buscada(clave);
  e.siguiente = Desciende(e.f, e.paginas, e.indice.pagina_raiz, &buscada, e.hoja);
  e.hojas = 0;
  e.i = 0;
  const std::vector<Entrada>& hoja = *e.hoja;
  e.i = static_cast<std::size_t>(
      std::lower_bound(hoja.begin(), hoja.end(), buscada,
                       [](const Entrada& a, const std::string& b) { return a.clave < b; }) -
      hoja.begin());
  e.valido = true;
  if (e.i < hoja.size()) return true;
  e.hoja = std::make_shared<const std::vector<Entrada>>();
  return Siguiente();
}

bool CursorIndice::Primero() {
  Estado& e = *e_;
  e.siguiente = Desciende(e.f, e.paginas, e.indice.pagina_raiz, nullptr, e.hoja);
  e.hojas = 0;
  e.i = 0;
  e.valido = !e.hoja->empty();
  if (e.valido) return true;
  e.valido = true;
  return Siguiente();
}

bool CursorIndice::Siguiente() {
  Estado& e = *e_;
  if (!e.valido) return false;
  if (!e.hoja->empty() && ++e.i < e.hoja->size()) return true;
  while (e.siguiente != 0) {
    if (++e.hojas > e.f.Paginas()) Danado(e.f, "con hojas en ciclo");
    const std::uint32_t n = e.siguiente;
    const Parseada& pagina = Parsea(e.f, e.paginas, n);
    if (pagina.tipo != kHoja) Danado(e.f, "con una hoja que no lo es");
    e.hoja = pagina.entradas;
    e.siguiente = U32(e.f.Pagina(n) + 16);
    e.i = 0;
    if (!e.hoja->empty()) return true;
  }
  e.valido = false;
  e.hoja = std::make_shared<const std::vector<Entrada>>();
  return false;
}

bool CursorIndice::Valido() const { return e_->valido && e_->i < e_->hoja->size(); }

std::string_view CursorIndice::ClaveActual() const {
  return Valido() ? std::string_view((*e_->hoja)[e_->i].clave) : std::string_view();
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
        if (c.orden != 1033) return std::nullopt;
        std::vector<std::uint32_t> letras;
        for (; o < clave.size() && p[o] != 0x01; ++o) {
          const std::uint32_t letra = DeLetra(p[o]);
          if (letra == 0) return std::nullopt;
          letras.push_back(letra);
        }
        if (o >= clave.size()) return std::nullopt;
        ++o;
        std::size_t en = 0;
        for (; o < clave.size() && p[o] != 0x00; ++o) {
          if (p[o] == 0x02) {
            ++en;
          } else if ((p[o] == 0x19 && en < letras.size() && letras[en] == 'N') ||
                     (p[o] == 0x1C && en < letras.size() && letras[en] == 'C')) {
            letras[en++] = p[o] == 0x19 ? 0xD1 : 0xC7;
          } else {
            return std::nullopt;
          }
        }
        if (o >= clave.size()) return std::nullopt;
        ++o;
        if (i == k) {
          std::string texto;
          for (std::uint32_t l : letras) {
            if (l < 0x80) {
              texto += static_cast<char>(l);
            } else {
              texto += static_cast<char>(0xC0 | l >> 6);
              texto += static_cast<char>(0x80 | (l & 0x3F));
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
  return {(*e_->hoja)[e_->i].pagina, (*e_->hoja)[e_->i].fila};
}

}  // namespace orvex::db::jet
