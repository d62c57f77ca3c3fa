#include "db/jet/Jet4.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <unordered_map>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "db/jet/Bytes.h"

namespace orvex::db::jet {
namespace {

[[noreturn]] void Danada(const std::string& nombre, const std::string& que) {
  throw ErrorJet(Latin1("Base de datos Jet dañada '") + nombre + "': " + que);
}

// A span of bytes whose reads are checked against its end.
struct Trozo {
  const std::uint8_t* p = nullptr;
  std::size_t n = 0;
  const std::string* nombre = nullptr;

  void Pide(std::size_t desde, std::size_t largo) const {
    if (desde > n || largo > n - desde) {
      Danada(*nombre, "un dato sale de su página o definición (" + std::to_string(desde) + "+" +
                          std::to_string(largo) + " > " + std::to_string(n) + ")");
    }
  }
  std::uint8_t B(std::size_t i) const { Pide(i, 1); return p[i]; }
  std::uint16_t W(std::size_t i) const { Pide(i, 2); return U16(p + i); }
  std::uint32_t L(std::size_t i) const { Pide(i, 4); return U32(p + i); }
};

// Jet 4 text: UCS-2 little endian, or, when it begins with FF FE, runs of
// one-byte characters and two-byte characters that each 00 byte switches
// (one-byte first). Surrogate pairs are joined; a surrogate without its
// other half is written as its own three bytes, as it was stored.
std::string Texto(const std::uint8_t* p, std::size_t n) {
  std::string r;
  std::vector<std::uint16_t> unidades;
  if (n >= 2 && p[0] == 0xFF && p[1] == 0xFE) {
    bool corto = true;
    for (std::size_t i = 2; i < n;) {
      if (p[i] == 0) {
        corto = !corto;
        ++i;
      } else if (corto) {
        unidades.push_back(p[i++]);
      } else {
        if (i + 1 >= n) break;
        unidades.push_back(U16(p + i));
        i += 2;
      }
    }
  } else {
    for (std::size_t i = 0; i + 1 < n; i += 2) unidades.push_back(U16(p + i));
  }
  for (std::size_t i = 0; i < unidades.size(); ++i) {
    char32_t c = unidades[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < unidades.size() && unidades[i + 1] >= 0xDC00 &&
        unidades[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (unidades[++i] - 0xDC00);
    }
    AppendUtf8(r, c);
  }
  return r;
}

// ASCII and Latin-1 letters folded to upper case, for names.
std::string Mayusculas(std::string_view utf8) {
  const CodePage& cp = CodePage::Windows1252();
  return UpperLatin1(cp.FromUtf8(utf8));
}

// --- the file -------------------------------------------------------------------

constexpr std::uint8_t kPaginaDatos = 0x01, kPaginaDefinicion = 0x02;
constexpr std::size_t kMaximoPaginasDefinicion = 256;

class ArchivoJet : public Archivo {
 public:
  ArchivoJet(int fd, std::string memoria, std::string nombre, std::uint64_t tamano)
      : fd_(fd), memoria_(std::move(memoria)), nombre_(std::move(nombre)),
        paginas_(static_cast<std::uint32_t>(std::min<std::uint64_t>(tamano / kTamanoPagina, 0xFFFFFFu))) {}
  ~ArchivoJet() override {
    if (fd_ >= 0) ::close(fd_);
  }

  std::uint32_t Paginas() const override { return paginas_; }
  const std::string& Nombre() const override { return nombre_; }

  const std::uint8_t* Pagina(std::uint32_t n) const override {
    if (n >= paginas_) Danada(nombre_, "página " + std::to_string(n) + " fuera del archivo");
    if (fd_ < 0) return reinterpret_cast<const std::uint8_t*>(memoria_.data()) + std::size_t{n} * kTamanoPagina;
    auto& lugar = cache_[n];
    if (!lugar) {
      auto pagina = std::make_unique<std::uint8_t[]>(kTamanoPagina);
      std::size_t leidos = 0;
      while (leidos < kTamanoPagina) {
        const ssize_t r = ::pread(fd_, pagina.get() + leidos, kTamanoPagina - leidos,
                                  static_cast<off_t>(std::uint64_t{n} * kTamanoPagina + leidos));
        if (r <= 0) {
          cache_.erase(n);
          Danada(nombre_, "no se pudo leer la página " + std::to_string(n) + " completa");
        }
        leidos += static_cast<std::size_t>(r);
      }
      lugar = std::move(pagina);
    }
    return lugar.get();
  }

  void Inicia() {
    const std::uint8_t* p0 = Pagina(0);
    if (std::memcmp(p0 + 4, "Standard Jet DB", 15) != 0) {
      throw ErrorJet(Latin1("El archivo '") + nombre_ + "' no es una base de datos Jet.");
    }
    if (p0[0x14] == 0) {
      throw ErrorJet(Latin1("El archivo '") + nombre_ +
                     Latin1("' es una base de datos Jet 3 (Access 97), que Orvex no lee: "
                            "conviértala al formato de Access 2000."));
    }
    if (p0[0x14] > 3) {
      throw ErrorJet(Latin1("El archivo '") + nombre_ + Latin1("' tiene una versión de Jet que Orvex no lee (") +
                     std::to_string(p0[0x14]) + ").");
    }
  }

  std::vector<std::string> NombresTablas() const override {
    Catalogo();
    std::vector<std::string> r;
    for (const auto& t : catalogo_) r.push_back(t.first);
    return r;
  }

  const Tabla* BuscaTabla(std::string_view nombre) const override {
    Catalogo();
    const std::string clave = Mayusculas(nombre);
    const auto leida = tablas_.find(clave);
    if (leida != tablas_.end()) return leida->second.get();
    for (const auto& [n, pagina] : catalogo_) {
      if (Mayusculas(n) != clave) continue;
      auto t = std::make_unique<Tabla>(LeeDefinicion(pagina, n));
      const Tabla* r = t.get();
      tablas_.emplace(clave, std::move(t));
      return r;
    }
    return nullptr;
  }

  Tabla LeeDefinicion(std::uint32_t pagina, const std::string& nombre) const;

 private:
  void Catalogo() const;
  std::vector<std::uint32_t> MapaDeUso(std::uint32_t puntero, std::uint32_t definicion) const;

  int fd_;
  std::string memoria_;
  std::string nombre_;
  std::uint32_t paginas_;
  mutable std::unordered_map<std::uint32_t, std::unique_ptr<std::uint8_t[]>> cache_;
  mutable bool catalogo_leido_ = false;
  mutable std::vector<std::pair<std::string, std::uint32_t>> catalogo_;
  mutable std::map<std::string, std::unique_ptr<Tabla>> tablas_;
};

// The bytes of row `fila` of data page `pagina`, and its flags.
struct FilaCruda {
  Trozo datos;
  bool borrada = false;
  bool remitida = false;  // the row holds a pointer to the real one
  std::uint32_t definicion = 0;
};

FilaCruda LeeFilaCruda(const FuentePaginas& f, std::uint32_t pagina, std::uint16_t fila) {
  const std::uint8_t* p = f.Pagina(pagina);
  if (p[0] != kPaginaDatos) Danada(f.Nombre(), "la página " + std::to_string(pagina) + " no es de datos");
  const std::uint16_t filas = U16(p + 0x0C);
  if (filas > (kTamanoPagina - 0x0E) / 2 || fila >= filas) {
    Danada(f.Nombre(), "fila " + std::to_string(fila) + " fuera de la página " + std::to_string(pagina));
  }
  const std::uint16_t desplazamiento = U16(p + 0x0E + 2 * fila);
  const std::size_t inicio = desplazamiento & 0x1FFF;
  const std::size_t fin = fila == 0 ? kTamanoPagina : (U16(p + 0x0E + 2 * (fila - 1)) & 0x1FFF);
  FilaCruda r;
  r.definicion = U32(p + 4);
  r.borrada = (desplazamiento & 0x4000) != 0;
  r.remitida = (desplazamiento & 0x8000) != 0;
  if (r.borrada) return r;
  if (inicio < 0x0E + 2u * filas || fin > kTamanoPagina || inicio > fin) {
    Danada(f.Nombre(), "fila " + std::to_string(fila) + " de la página " + std::to_string(pagina) +
                           " con límites imposibles");
  }
  r.datos = Trozo{p + inicio, fin - inicio, &f.Nombre()};
  return r;
}

// The row a pointer (row in the low byte, page above) names.
Trozo FilaApuntada(const FuentePaginas& f, std::uint32_t puntero) {
  FilaCruda r = LeeFilaCruda(f, puntero >> 8, static_cast<std::uint16_t>(puntero & 0xFF));
  if (r.borrada) Danada(f.Nombre(), "un puntero lleva a una fila borrada");
  return r.datos;
}

Tabla ArchivoJet::LeeDefinicion(std::uint32_t pagina, const std::string& nombre) const {
  // The definition, its pages joined: the first whole, the others without
  // their 8-byte header.
  std::string def;
  std::set<std::uint32_t> vistas;
  for (std::uint32_t n = pagina; n != 0;) {
    if (!vistas.insert(n).second || vistas.size() > kMaximoPaginasDefinicion) {
      Danada(nombre_, "la definición de la tabla " + nombre + " forma un ciclo");
    }
    const std::uint8_t* p = Pagina(n);
    if (p[0] != kPaginaDefinicion) {
      Danada(nombre_, "la página " + std::to_string(n) + " no es una definición de tabla");
    }
    def.append(reinterpret_cast<const char*>(p) + (def.empty() ? 0 : 8), def.empty() ? kTamanoPagina : kTamanoPagina - 8);
    n = U32(p + 4);
  }
  const Trozo t{reinterpret_cast<const std::uint8_t*>(def.data()), def.size(), &nombre_};
  Tabla tabla;
  tabla.nombre = nombre;
  tabla.pagina_definicion = pagina;
  tabla.filas = t.L(0x10);
  const std::size_t columnas = t.W(0x2D);
  const std::size_t indices = t.L(0x2F);
  const std::size_t reales = t.L(0x33);
  if (columnas > 4096 || indices > 1024 || reales > 1024) Danada(nombre_, "definición de " + nombre + " imposible");
  tabla.indices_declarados = static_cast<std::uint32_t>(indices + reales);
  std::size_t o = 0x3F + reales * 12;
  for (std::size_t i = 0; i < columnas; ++i, o += 25) {
    Columna c;
    c.tipo = static_cast<TipoColumna>(t.B(o));
    c.numero = t.W(o + 5);
    c.indice_variable = t.W(o + 7);
    c.orden = t.W(o + 11);
    c.banderas = t.B(o + 15);
    c.comprimido = (t.B(o + 16) & 0x01) != 0;
    c.desplazamiento_fijo = t.W(o + 21);
    c.tamano = t.W(o + 23);
    tabla.columnas.push_back(c);
  }
  for (Columna& c : tabla.columnas) {
    const std::size_t largo = t.W(o);
    t.Pide(o + 2, largo);
    c.nombre = Texto(t.p + o + 2, largo);
    o += 2 + largo;
  }
  struct Real {
    std::vector<ColumnaIndice> columnas;
    std::uint32_t primera = 0;
    std::uint8_t banderas = 0;
  };
  std::vector<Real> indices_reales(reales);
  for (Real& r : indices_reales) {
    for (std::size_t k = 0; k < 10; ++k) {
      const std::uint16_t numero = t.W(o + 4 + 3 * k);
      if (numero == 0xFFFF) continue;
      for (std::size_t c = 0; c < tabla.columnas.size(); ++c) {
        if (tabla.columnas[c].numero == numero) r.columnas.push_back({c, t.B(o + 6 + 3 * k) != 2});
      }
    }
    r.primera = t.L(o + 38);
    r.banderas = t.B(o + 42);
    o += 52;
  }
  std::vector<std::pair<std::uint32_t, std::uint8_t>> logicos;
  for (std::size_t i = 0; i < indices; ++i, o += 28) logicos.emplace_back(t.L(o + 8), t.B(o + 23));
  for (const auto& [real, tipo] : logicos) {
    const std::size_t largo = t.W(o);
    t.Pide(o + 2, largo);
    Indice indice;
    indice.nombre = Texto(t.p + o + 2, largo);
    o += 2 + largo;
    if (tipo == 2 || real >= indices_reales.size()) continue;  // a relation's foreign key
    indice.columnas = indices_reales[real].columnas;
    indice.pagina_raiz = indices_reales[real].primera;
    indice.unico = (indices_reales[real].banderas & 0x01) != 0;
    indice.primario = tipo == 1;
    tabla.indices.push_back(std::move(indice));
  }
  tabla.paginas_datos = MapaDeUso(t.L(0x37), pagina);
  return tabla;
}

// The pages a usage map lists: inline (a start page and a bitmap) or by
// reference (bitmap pages, each covering (4096 - 4) * 8 pages).
std::vector<std::uint32_t> ArchivoJet::MapaDeUso(std::uint32_t puntero, std::uint32_t definicion) const {
  const Trozo m = FilaApuntada(*this, puntero);
  std::vector<std::uint32_t> r;
  // Pages are checked when they are walked (Filas::Siguiente), so that
  // opening a table does not read all of them.
  (void)definicion;
  auto agrega = [&](std::uint32_t n) {
    if (n != 0 && n < paginas_) r.push_back(n);
  };
  if (m.B(0) == 0) {
    const std::uint32_t inicio = m.L(1);
    for (std::size_t i = 5; i < m.n; ++i) {
      for (int b = 0; b < 8; ++b) {
        if (m.p[i] >> b & 1) agrega(inicio + static_cast<std::uint32_t>((i - 5) * 8 + b));
      }
    }
  } else if (m.B(0) == 1) {
    constexpr std::uint32_t kPorMapa = (kTamanoPagina - 4) * 8;
    for (std::size_t j = 0; 1 + 4 * j + 4 <= m.n; ++j) {
      const std::uint32_t mapa = m.L(1 + 4 * j);
      if (mapa == 0) continue;
      const std::uint8_t* p = Pagina(mapa);
      if (p[0] != 0x05) Danada(nombre_, "la página " + std::to_string(mapa) + " no es un mapa de uso");
      for (std::size_t i = 4; i < kTamanoPagina; ++i) {
        for (int b = 0; b < 8; ++b) {
          if (p[i] >> b & 1) agrega(static_cast<std::uint32_t>(j * kPorMapa + (i - 4) * 8 + b));
        }
      }
    }
  } else {
    Danada(nombre_, "mapa de uso de tipo desconocido");
  }
  return r;
}

}  // namespace

// --- rows -------------------------------------------------------------------------

struct Filas::Estado {
  const FuentePaginas& f;
  const Tabla& t;
  std::size_t pagina_i = 0;
  int fila = -1;  // in the current page; -1 before the first
  bool en_fila = false;
  PosicionFila posicion;
  Trozo datos;
};

Filas::Filas(const FuentePaginas& archivo, const Tabla& tabla)
    : e_(std::make_unique<Estado>(Estado{archivo, tabla, 0, -1, false, {}, {}})) {}
Filas::~Filas() = default;

void Filas::Reinicia() {
  e_->pagina_i = 0;
  e_->fila = -1;
  e_->en_fila = false;
}

namespace {

// Follows a row's forwarding pointers to the row itself.
bool Resuelve(const FuentePaginas& f, std::uint32_t definicion, std::uint32_t pagina,
              std::uint16_t fila, Trozo& datos, bool seguir_primera) {
  for (int saltos = 0; saltos < 16; ++saltos) {
    const FilaCruda r = LeeFilaCruda(f, pagina, fila);
    if (r.borrada || r.definicion != definicion) return false;
    if (!r.remitida || !seguir_primera) {
      datos = r.datos;
      return !r.remitida;
    }
    const std::uint32_t puntero = r.datos.L(0);
    pagina = puntero >> 8;
    fila = static_cast<std::uint16_t>(puntero & 0xFF);
  }
  Danada(f.Nombre(), "las filas remitidas forman un ciclo");
}

}  // namespace

bool Filas::Siguiente() {
  Estado& e = *e_;
  while (e.pagina_i < e.t.paginas_datos.size()) {
    const std::uint32_t pagina = e.t.paginas_datos[e.pagina_i];
    const std::uint8_t* p = e.f.Pagina(pagina);
    // A page the map lists that is not one of the table's data pages (freed
    // and reused since) has no rows of it.
    const int filas = p[0] == kPaginaDatos && U32(p + 4) == e.t.pagina_definicion ? U16(p + 0x0C) : 0;
    while (++e.fila < filas) {
      const FilaCruda r = LeeFilaCruda(e.f, pagina, static_cast<std::uint16_t>(e.fila));
      // A forwarded row is read where its pointer leads.
      if (r.borrada || r.datos.n == 0) continue;
      Trozo datos;
      if (!Resuelve(e.f, e.t.pagina_definicion, pagina, static_cast<std::uint16_t>(e.fila), datos, true)) {
        continue;
      }
      e.datos = datos;
      e.posicion = {pagina, static_cast<std::uint16_t>(e.fila)};
      e.en_fila = true;
      return true;
    }
    ++e.pagina_i;
    e.fila = -1;
  }
  e.en_fila = false;
  return false;
}

bool Filas::Ve(PosicionFila posicion) {
  Estado& e = *e_;
  Trozo datos;
  if (!Resuelve(e.f, e.t.pagina_definicion, posicion.pagina, posicion.fila, datos, true)) {
    e.en_fila = false;
    return false;
  }
  e.datos = datos;
  e.posicion = posicion;
  e.en_fila = true;
  return true;
}

PosicionFila Filas::Posicion() const { return e_->posicion; }

namespace {

// A long value (memo, OLE) from its 12-byte header.
std::string ValorLargo(const FuentePaginas& f, const Trozo& d, std::size_t o, std::size_t n) {
  if (n < 12) Danada(f.Nombre(), "cabecera de memo incompleta");
  const std::uint32_t largo = d.L(o) & 0x00FFFFFF;
  const std::uint8_t banderas = d.B(o + 3);
  if (banderas & 0x80) {
    d.Pide(o + 12, largo);
    return std::string(reinterpret_cast<const char*>(d.p + o + 12), largo);
  }
  std::uint32_t puntero = d.L(o + 4);
  if (banderas & 0x40) {
    const Trozo r = FilaApuntada(f, puntero);
    r.Pide(0, largo);
    return std::string(reinterpret_cast<const char*>(r.p), largo);
  }
  std::string r;
  std::set<std::uint32_t> vistos;
  while (r.size() < largo) {
    if (puntero == 0 || !vistos.insert(puntero).second) Danada(f.Nombre(), "cadena de memo rota o en ciclo");
    const Trozo t = FilaApuntada(f, puntero);
    puntero = t.L(0);
    r.append(reinterpret_cast<const char*>(t.p + 4), t.n - 4);
  }
  r.resize(largo);
  return r;
}

std::string Guid(const std::uint8_t* p) {
  char b[40];
  std::snprintf(b, sizeof b, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", U32(p), U16(p + 4),
                U16(p + 6), p[8], p[9], p[10], p[11], p[12], p[13], p[14], p[15]);
  return b;
}

}  // namespace

Valor Filas::Lee(std::size_t i) const {
  const Estado& e = *e_;
  if (!e.en_fila) Danada(e.f.Nombre(), "no hay fila");
  const Columna& c = e.t.columnas.at(i);
  const Trozo& d = e.datos;
  const std::size_t columnas = d.W(0);
  const std::size_t mascara = (columnas + 7) / 8;
  if (d.n < 2 + mascara) Danada(e.f.Nombre(), "fila demasiado corta");
  const std::size_t fin_datos = d.n - mascara;
  const bool presente =
      c.numero < columnas && (d.p[fin_datos + c.numero / 8] >> (c.numero % 8) & 1) != 0;
  if (c.tipo == TipoColumna::Booleano) return Valor::DeEntero(presente ? -1 : 0);
  if (!presente) return Valor::Nulo();
  std::size_t o = 0, n = 0;
  if (c.Fija()) {
    o = 2 + c.desplazamiento_fijo;
    n = c.tamano;
  } else {
    const std::size_t variables = d.W(fin_datos - 2);
    if (c.indice_variable >= variables) return Valor::Nulo();
    const std::size_t tabla = fin_datos - 2;  // the offsets lie below the count
    o = d.W(tabla - 2 - 2 * c.indice_variable);
    const std::size_t hasta = d.W(tabla - 4 - 2 * c.indice_variable);
    if (hasta < o) Danada(e.f.Nombre(), "columna variable con largo negativo");
    n = hasta - o;
  }
  d.Pide(o, n);
  const std::uint8_t* p = d.p + o;
  Valor v;
  switch (c.tipo) {
    case TipoColumna::Byte: return Valor::DeEntero(p[0]);
    case TipoColumna::Entero: return Valor::DeEntero(static_cast<std::int16_t>(U16(p)));
    case TipoColumna::Largo: return Valor::DeEntero(static_cast<std::int32_t>(U32(p)));
    case TipoColumna::Moneda:
      v.tipo = Valor::Tipo::Real;
      v.real = static_cast<double>(static_cast<std::int64_t>(U64(p))) / 10000.0;
      return v;
    case TipoColumna::Simple: {
      float x;
      std::memcpy(&x, p, 4);
      v.tipo = Valor::Tipo::Real;
      v.real = x;
      return v;
    }
    case TipoColumna::Doble:
    case TipoColumna::Fecha: {
      double x;
      std::memcpy(&x, p, 8);
      v.tipo = c.tipo == TipoColumna::Fecha ? Valor::Tipo::Fecha : Valor::Tipo::Real;
      v.real = x;
      return v;
    }
    case TipoColumna::Texto: return Valor::DeTexto(Texto(p, n));
    case TipoColumna::Memo: {
      const std::string bytes = ValorLargo(e.f, d, o, n);
      return Valor::DeTexto(Texto(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    }
    case TipoColumna::Ole:
      v.tipo = Valor::Tipo::Binario;
      v.bytes = ValorLargo(e.f, d, o, n);
      return v;
    case TipoColumna::Binario:
      v.tipo = Valor::Tipo::Binario;
      v.bytes.assign(reinterpret_cast<const char*>(p), n);
      return v;
    case TipoColumna::Guid:
      if (n < 16) Danada(e.f.Nombre(), "GUID incompleto");
      return Valor::DeTexto(Guid(p));
    default:
      throw ErrorJet(Latin1("La base de datos Jet '") + e.f.Nombre() + Latin1("' tiene una columna de tipo ") +
                     std::to_string(static_cast<int>(c.tipo)) + Latin1(" que Orvex no lee (") + c.nombre + ").");
  }
}

// --- the catalogue ------------------------------------------------------------------

namespace {
constexpr std::uint32_t kBanderasSistema = 0x80000002;
}

void ArchivoJet::Catalogo() const {
  if (catalogo_leido_) return;
  const Tabla sistema = LeeDefinicion(2, "MSysObjects");
  auto columna = [&](const char* nombre) -> std::size_t {
    for (std::size_t i = 0; i < sistema.columnas.size(); ++i) {
      if (Mayusculas(sistema.columnas[i].nombre) == nombre) return i;
    }
    Danada(nombre_, std::string("el catálogo no tiene la columna ") + nombre);
  };
  const std::size_t id = columna("ID"), nombre = columna("NAME"), tipo = columna("TYPE"),
                    banderas = columna("FLAGS");
  Filas filas(*this, sistema);
  while (filas.Siguiente()) {
    const Valor t = filas.Lee(tipo);
    if (t.tipo != Valor::Tipo::Entero || (t.entero & 0x7F) != 1) continue;
    const Valor b = filas.Lee(banderas);
    if (b.tipo == Valor::Tipo::Entero && (static_cast<std::uint32_t>(b.entero) & kBanderasSistema) != 0) continue;
    const Valor n = filas.Lee(nombre);
    const Valor i = filas.Lee(id);
    if (n.tipo != Valor::Tipo::Texto || i.tipo != Valor::Tipo::Entero) continue;
    if (Mayusculas(n.bytes).rfind("MSYS", 0) == 0) continue;
    catalogo_.emplace_back(n.bytes, static_cast<std::uint32_t>(i.entero) & 0x00FFFFFF);
  }
  catalogo_leido_ = true;
}

std::unique_ptr<Archivo> Archivo::Abre(const std::string& ruta) {
  const int fd = ::open(ruta.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw ErrorJet(Latin1("No se pudo abrir el archivo '") + ruta + "'.");
  struct stat st{};
  if (::fstat(fd, &st) != 0 || st.st_size < static_cast<off_t>(3 * kTamanoPagina)) {
    ::close(fd);
    throw ErrorJet(Latin1("El archivo '") + ruta + Latin1("' es demasiado corto para una base de datos Jet."));
  }
  auto a = std::make_unique<ArchivoJet>(fd, std::string(), ruta, static_cast<std::uint64_t>(st.st_size));
  a->Inicia();
  return a;
}

std::unique_ptr<Archivo> Archivo::DesdeMemoria(std::string bytes, std::string nombre) {
  if (bytes.size() < 3 * kTamanoPagina) {
    throw ErrorJet(Latin1("El archivo '") + nombre + Latin1("' es demasiado corto para una base de datos Jet."));
  }
  const std::uint64_t tamano = bytes.size();
  auto a = std::make_unique<ArchivoJet>(-1, std::move(bytes), std::move(nombre), tamano);
  a->Inicia();
  return a;
}

std::string FechaISO(double dias) {
  if (!std::isfinite(dias) || dias < -657434 || dias >= 2958466) return "";
  // Negative days count back from 1899-12-30 with the time of day forward.
  double entero = std::trunc(dias);
  double fraccion = std::fabs(dias - entero);
  long long segundos = std::llround(fraccion * 86400.0);
  if (segundos >= 86400) {
    segundos -= 86400;
    entero += dias < 0 ? -1 : 1;
  }
  // The civil date of a day count (era arithmetic of 400-year cycles from
  // 0000-03-01); 1970-01-01 is day 25569 of the Jet calendar.
  long long d = static_cast<long long>(entero) - 25569 + 719468;
  const long long era = (d >= 0 ? d : d - 146096) / 146097;
  const long long doe = d - era * 146097;
  const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  long long y = yoe + era * 400;
  const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const long long mp = (5 * doy + 2) / 153;
  const long long dia = doy - (153 * mp + 2) / 5 + 1;
  const long long mes = mp < 10 ? mp + 3 : mp - 9;
  if (mes <= 2) ++y;
  char b[160];
  std::snprintf(b, sizeof b, "%04lld-%02lld-%02lld %02lld:%02lld:%02lld", y, mes, dia, segundos / 3600,
                segundos / 60 % 60, segundos % 60);
  return b;
}

}  // namespace orvex::db::jet
