#include "db/jet/EscritorJet.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>

#include "base/CodePage.h"
#include "db/jet/Bytes.h"

namespace orvex::db::jet {
namespace {

using Pagina = std::vector<std::uint8_t>;

constexpr std::uint8_t kPaginaDatos = 0x01, kPaginaDefinicion = 0x02, kPaginaMapa = 0x05;
constexpr std::size_t kCabeceraDatos = 14;  // type, free space, owner, row count
constexpr std::uint16_t kMaximoFilasPorPagina = 255;  // a row pointer keeps the row in one byte
constexpr std::uint32_t kPaginasPorMapa = (kTamanoPagina - 4) * 8;
constexpr std::uint32_t kPaginaMapaGlobal = 1;

[[noreturn]] void Falla(const std::string& archivo, const std::string& que) {
  throw ErrorJet(Latin1("No se pudo agregar la fila a la base de datos Jet '") + archivo + "': " +
                 Latin1(que) + ".");
}

// UTF-8 to UTF-16 code units; false for bytes that are not UTF-8.
bool Utf16(std::string_view utf8, std::u16string& r) {
  for (std::size_t i = 0; i < utf8.size();) {
    const std::size_t antes = i;
    char32_t cp = NextUtf8(utf8, i);
    if (cp == 0xFFFD && i == antes + 1) return false;  // a malformed sequence, not U+FFFD itself
    if (cp >= 0x10000) {
      cp -= 0x10000;
      r += static_cast<char16_t>(0xD800 + (cp >> 10));
      r += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    } else {
      r += static_cast<char16_t>(cp);
    }
  }
  return true;
}

// A text value as the column stores it: UCS-2, or, when the column asks for
// compression and every character is one byte wide, the 0xFF 0xFE mark and
// one byte per character.
std::string BytesDeTexto(const Columna& c, const std::string& utf8, const std::string& archivo) {
  std::u16string unidades;
  if (!Utf16(utf8, unidades)) Falla(archivo, "el texto de " + c.nombre + " no es UTF-8");
  if (unidades.size() * 2 > c.tamano) {
    Falla(archivo, "el texto no cabe en la columna " + c.nombre + " (" +
                       std::to_string(c.tamano / 2) + " caracteres)");
  }
  const bool angosto = std::all_of(unidades.begin(), unidades.end(),
                                   [](char16_t u) { return u >= 0x01 && u <= 0xFF; });
  std::string r;
  if (c.comprimido && angosto && !unidades.empty()) {
    r = "\xFF\xFE";
    for (char16_t u : unidades) r += static_cast<char>(u);
  } else {
    for (char16_t u : unidades) {
      r += static_cast<char>(u & 0xFF);
      r += static_cast<char>(u >> 8);
    }
  }
  return r;
}

std::size_t TamanoFijo(TipoColumna t) {
  switch (t) {
    case TipoColumna::Byte: return 1;
    case TipoColumna::Entero: return 2;
    case TipoColumna::Largo:
    case TipoColumna::Simple: return 4;
    case TipoColumna::Moneda:
    case TipoColumna::Doble:
    case TipoColumna::Fecha: return 8;
    default: return 0;
  }
}

// The bytes of a fixed-length value.
std::string BytesFijos(const Columna& c, const Valor& v, const std::string& archivo) {
  std::string r(TamanoFijo(c.tipo), '\0');
  auto* p = reinterpret_cast<std::uint8_t*>(r.data());
  const bool numero = v.tipo == Valor::Tipo::Entero || v.tipo == Valor::Tipo::Real ||
                      v.tipo == Valor::Tipo::Fecha;
  if (!numero || r.empty() || c.tamano != r.size()) {
    Falla(archivo, "la columna " + c.nombre + " no admite ese valor");
  }
  const double real = v.tipo == Valor::Tipo::Entero ? static_cast<double>(v.entero) : v.real;
  auto entero = [&](std::int64_t minimo, std::int64_t maximo) {
    if (v.tipo != Valor::Tipo::Entero || v.entero < minimo || v.entero > maximo) {
      Falla(archivo, "el valor no cabe en la columna " + c.nombre);
    }
    return v.entero;
  };
  switch (c.tipo) {
    case TipoColumna::Byte: p[0] = static_cast<std::uint8_t>(entero(0, 255)); break;
    case TipoColumna::Entero: Pon16(p, static_cast<std::uint16_t>(entero(-32768, 32767))); break;
    case TipoColumna::Largo:
      Pon32(p, static_cast<std::uint32_t>(entero(INT32_MIN, INT32_MAX)));
      break;
    case TipoColumna::Simple: {
      const float f = static_cast<float>(real);
      std::memcpy(p, &f, 4);
      break;
    }
    case TipoColumna::Doble:
    case TipoColumna::Fecha:
      if (!std::isfinite(real)) Falla(archivo, "el valor de " + c.nombre + " no es un número");
      std::memcpy(p, &real, 8);
      break;
    case TipoColumna::Moneda: {
      const double escalado = std::round(real * 10000.0);
      if (!(std::fabs(escalado) < 9.2e18)) Falla(archivo, "el valor no cabe en " + c.nombre);
      const auto m = static_cast<std::int64_t>(escalado);
      Pon32(p, static_cast<std::uint32_t>(m));
      Pon32(p + 4, static_cast<std::uint32_t>(static_cast<std::uint64_t>(m) >> 32));
      break;
    }
    default: break;
  }
  return r;
}

// A row in the Jet 4 layout: the column count, the fixed columns at their
// offsets, the variable columns one after the other, their offsets (last
// column first, the end of the data leading), the variable column count,
// and the null mask, where a set bit is a value present (a boolean's value).
std::string CodificaFila(const Tabla& t, const std::vector<Valor>& valores,
                         const std::string& archivo) {
  if (valores.size() != t.columnas.size()) Falla(archivo, "el número de valores no es el de columnas");
  std::size_t columnas = 0, fijo = 0, variables = 0;
  for (const Columna& c : t.columnas) {
    columnas = std::max<std::size_t>(columnas, c.numero + 1u);
    if (c.tipo == TipoColumna::Booleano) continue;
    if (c.Fija()) {
      fijo = std::max<std::size_t>(fijo, c.desplazamiento_fijo + std::size_t{c.tamano});
    } else {
      variables = std::max<std::size_t>(variables, c.indice_variable + 1u);
    }
  }
  std::string fila(2 + fijo, '\0');
  Pon16(reinterpret_cast<std::uint8_t*>(fila.data()), static_cast<std::uint16_t>(columnas));
  std::string mascara((columnas + 7) / 8, '\0');
  std::vector<std::string> datos_variables(variables);
  for (std::size_t i = 0; i < t.columnas.size(); ++i) {
    const Columna& c = t.columnas[i];
    const Valor& v = valores[i];
    const bool presente =
        c.tipo == TipoColumna::Booleano ? v.tipo == Valor::Tipo::Entero && v.entero != 0
                                        : v.tipo != Valor::Tipo::Nulo;
    if (presente) mascara[c.numero / 8] = static_cast<char>(mascara[c.numero / 8] | 1 << (c.numero % 8));
    if (!presente || c.tipo == TipoColumna::Booleano) continue;
    if (c.Fija()) {
      const std::string b = BytesFijos(c, v, archivo);
      fila.replace(2 + c.desplazamiento_fijo, b.size(), b);
    } else if (c.tipo == TipoColumna::Texto && v.tipo == Valor::Tipo::Texto) {
      datos_variables[c.indice_variable] = BytesDeTexto(c, v.bytes, archivo);
    } else {
      Falla(archivo, "Orvex no escribe valores en la columna " + c.nombre);
    }
  }
  std::vector<std::uint16_t> desplazamientos;
  for (const std::string& d : datos_variables) {
    desplazamientos.push_back(static_cast<std::uint16_t>(fila.size()));
    fila += d;
  }
  desplazamientos.push_back(static_cast<std::uint16_t>(fila.size()));
  for (auto it = desplazamientos.rbegin(); it != desplazamientos.rend(); ++it) {
    fila += static_cast<char>(*it & 0xFF);
    fila += static_cast<char>(*it >> 8);
  }
  fila += static_cast<char>(variables & 0xFF);
  fila += static_cast<char>(variables >> 8);
  fila += mascara;
  if (fila.size() + kCabeceraDatos + 2 > kTamanoPagina) Falla(archivo, "la fila no cabe en una página");
  return fila;
}

// A usage map row: where it lies and what kind it is.
struct Mapa {
  std::uint32_t pagina = 0;   // the data page that holds the row
  std::size_t inicio = 0;     // the row's bytes within that page
  std::size_t fin = 0;
};

// The map row that `puntero` (row in the low byte, page above) names, in
// its page `p`.
Mapa UbicaMapa(const Pagina& p, std::uint32_t puntero, const std::string& archivo) {
  const std::uint16_t fila = puntero & 0xFF;
  if (p[0] != kPaginaDatos || fila >= U16(p.data() + 12)) {
    Falla(archivo, "un mapa de uso no está donde la definición dice");
  }
  const std::size_t inicio = U16(p.data() + kCabeceraDatos + 2 * fila) & 0x1FFF;
  const std::size_t fin =
      fila == 0 ? kTamanoPagina : U16(p.data() + kCabeceraDatos + 2 * (fila - 1)) & 0x1FFF;
  if (inicio >= fin || fin > kTamanoPagina || fin - inicio < 5) {
    Falla(archivo, "un mapa de uso está dañado");
  }
  return Mapa{puntero >> 8, inicio, fin};
}

// The pages the writer changes, read once and written in a fixed order.
class Cambios {
 public:
  Cambios(DestinoPaginas& d, std::string archivo) : d_(d), archivo_(std::move(archivo)) {}

  Pagina& Toma(std::uint32_t n) {
    auto it = paginas_.find(n);
    if (it != paginas_.end()) return it->second;
    if (n >= d_.Paginas()) Falla(archivo_, "la página " + std::to_string(n) + " no está en el archivo");
    Pagina p(kTamanoPagina);
    d_.Lee(n, p.data());
    originales_[n] = p;
    return paginas_.emplace(n, std::move(p)).first->second;
  }

  // Writes, each step on disk before the next: the new page (when there is
  // one), the page `primera` (when not 0), every other changed page, and
  // the page `ultima`. On any failure puts back what was written, cuts the
  // file to its size and throws.
  void Escribe(const Pagina* nueva, std::uint32_t numero_nueva, std::uint32_t primera,
               std::uint32_t ultima) {
    std::vector<std::vector<std::uint32_t>> orden;
    if (primera != 0) orden.push_back({primera});
    orden.emplace_back();
    for (const auto& [n, p] : paginas_) {
      if (n != primera && n != ultima) orden.back().push_back(n);
    }
    orden.push_back({ultima});
    const std::uint32_t tamano = d_.Paginas();
    std::vector<std::uint32_t> escritas;
    try {
      if (nueva != nullptr) {
        d_.Escribe(numero_nueva, nueva->data());
        d_.Sincroniza();
      }
      for (const auto& grupo : orden) {
        bool escrito = false;
        for (std::uint32_t n : grupo) {
          if (paginas_.at(n) == originales_.at(n)) continue;
          escritas.push_back(n);
          d_.Escribe(n, paginas_.at(n).data());
          escrito = true;
        }
        if (escrito) d_.Sincroniza();
      }
    } catch (const std::exception& e) {
      try {
        for (std::uint32_t n : escritas) d_.Escribe(n, originales_.at(n).data());
        d_.Trunca(tamano);
        d_.Sincroniza();
      } catch (const std::exception&) {
        // The file keeps what the failure left; the error below says so.
      }
      Falla(archivo_, std::string("falló la escritura (") + e.what() + ")");
    }
  }

 private:
  DestinoPaginas& d_;
  std::string archivo_;
  std::map<std::uint32_t, Pagina> paginas_, originales_;
};

// Sets page `n`'s bit in a table's usage map (inline or by reference);
// false when the map cannot list that page.
bool MarcaEnMapa(Cambios& cambios, const Mapa& m, std::uint32_t n) {
  Pagina& fila = cambios.Toma(m.pagina);
  std::uint8_t* r = fila.data() + m.inicio;
  const std::size_t largo = m.fin - m.inicio;
  std::uint8_t* byte = nullptr;
  int bit = 0;
  if (r[0] == 0) {
    const std::uint32_t inicio = U32(r + 1);
    if (n < inicio || (n - inicio) / 8 >= largo - 5) return false;
    byte = r + 5 + (n - inicio) / 8;
    bit = static_cast<int>((n - inicio) % 8);
  } else if (r[0] == 1) {
    const std::size_t j = n / kPaginasPorMapa;
    if (1 + 4 * j + 4 > largo) return false;
    const std::uint32_t pagina_mapa = U32(r + 1 + 4 * j);
    if (pagina_mapa == 0) return false;
    Pagina& mapa = cambios.Toma(pagina_mapa);
    if (mapa[0] != kPaginaMapa) return false;
    byte = mapa.data() + 4 + (n % kPaginasPorMapa) / 8;
    bit = static_cast<int>(n % 8);
  } else {
    return false;
  }
  *byte = static_cast<std::uint8_t>(*byte | 1 << bit);
  return true;
}

// The file's global usage map (page 1, row 0), inline: the bit it gives
// page `n`, when it covers it.
std::optional<bool> BitGlobal(Cambios& cambios, std::uint32_t n, std::size_t& byte, int& bit) {
  Pagina& p = cambios.Toma(kPaginaMapaGlobal);
  if (p[0] != kPaginaDatos || U16(p.data() + 12) == 0) return std::nullopt;
  const std::size_t inicio = U16(p.data() + kCabeceraDatos) & 0x1FFF;
  if (inicio + 5 > kTamanoPagina || p[inicio] != 0) return std::nullopt;
  const std::uint32_t primera = U32(p.data() + inicio + 1);
  if (n < primera || inicio + 5 + (n - primera) / 8 >= kTamanoPagina) return std::nullopt;
  byte = inicio + 5 + (n - primera) / 8;
  bit = static_cast<int>((n - primera) % 8);
  return (p[byte] >> bit & 1) != 0;
}

// A Jet file on disk, locked for the writer's turn.
class ArchivoEnDisco final : public DestinoPaginas {
 public:
  ArchivoEnDisco(int fd, std::string ruta, std::uint32_t paginas)
      : fd_(fd), ruta_(std::move(ruta)), paginas_(paginas) {}
  ~ArchivoEnDisco() override { ::close(fd_); }  // closing releases the lock

  std::uint32_t Paginas() const override { return paginas_; }
  const std::string& Nombre() const override { return ruta_; }

  void Lee(std::uint32_t n, std::uint8_t* pagina) const override {
    if (::pread(fd_, pagina, kTamanoPagina, Desplazamiento(n)) != static_cast<ssize_t>(kTamanoPagina)) {
      throw ErrorJet("no se pudo leer la página " + std::to_string(n));
    }
  }
  void Escribe(std::uint32_t n, const std::uint8_t* pagina) override {
    if (::pwrite(fd_, pagina, kTamanoPagina, Desplazamiento(n)) != static_cast<ssize_t>(kTamanoPagina)) {
      throw ErrorJet("no se pudo escribir la página " + std::to_string(n) + ": " + std::strerror(errno));
    }
    paginas_ = std::max(paginas_, n + 1);
  }
  void Sincroniza() override {
    if (::fdatasync(fd_) != 0) throw ErrorJet(std::string("fdatasync: ") + std::strerror(errno));
  }
  void Trunca(std::uint32_t paginas) override {
    if (::ftruncate(fd_, Desplazamiento(paginas)) != 0) {
      throw ErrorJet(std::string("ftruncate: ") + std::strerror(errno));
    }
    paginas_ = paginas;
  }

 private:
  static off_t Desplazamiento(std::uint32_t n) { return static_cast<off_t>(n) * kTamanoPagina; }
  int fd_;
  std::string ruta_;
  std::uint32_t paginas_;
};

// The lock file that Jet keeps beside a database while a program has it
// open: the same name with ".ldb".
std::string ArchivoDeBloqueo(const std::string& ruta) {
  const std::size_t barra = ruta.rfind('/');
  const std::size_t punto = ruta.rfind('.');
  const std::string base =
      punto != std::string::npos && (barra == std::string::npos || punto > barra) ? ruta.substr(0, punto)
                                                                                  : ruta;
  return base + ".ldb";
}

// True when some process holds a lock on the file at `ruta` (which exists).
bool BloqueadoPorOtro(const std::string& ruta) {
  const int fd = ::open(ruta.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return false;
  struct flock prueba{};
  prueba.l_type = F_WRLCK;
  prueba.l_whence = SEEK_SET;
  prueba.l_start = 0;
  prueba.l_len = 0;
  const bool bloqueado = ::fcntl(fd, F_GETLK, &prueba) == 0 && prueba.l_type != F_UNLCK;
  bool con_flock = false;
  if (!bloqueado) {
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      con_flock = errno == EWOULDBLOCK;
    } else {
      ::flock(fd, LOCK_UN);
    }
  }
  ::close(fd);
  return bloqueado || con_flock;
}

// Takes the writers' exclusive lock on `fd`. Writers of the same file take
// turns: while another holds the lock, tries again after short pauses for
// at most `espera_ms`, and never past the deadline. A blocking lock would
// wait for ever on a writer that never lets go.
void EsperaTurno(int fd, const std::string& ruta, int espera_ms, Plazo* plazo) {
  EsperaAcotada espera(espera_ms, plazo);
  for (;;) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return;
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) {
      throw ErrorJet(Latin1("No se pudo bloquear la base de datos Jet '") + ruta + "'.");
    }
    switch (espera.Pausa()) {
      case EsperaAcotada::Paso::Sigue: break;
      case EsperaAcotada::Paso::Vencida: throw TiempoAgotado{};
      case EsperaAcotada::Paso::Agotada:
        throw ErrorJet(Latin1("No se pudo actualizar; la base de datos Jet '") + ruta +
                       Latin1("' está bloqueada: otra escritura la tuvo más de ") +
                       std::to_string(espera_ms) + " ms.");
    }
  }
}

}  // namespace

PaginasEnMemoria::PaginasEnMemoria(std::string bytes, std::string nombre)
    : bytes_(std::move(bytes)), nombre_(std::move(nombre)) {}

std::uint32_t PaginasEnMemoria::Paginas() const {
  return static_cast<std::uint32_t>(bytes_.size() / kTamanoPagina);
}

void PaginasEnMemoria::Lee(std::uint32_t n, std::uint8_t* pagina) const {
  std::memcpy(pagina, bytes_.data() + std::size_t{n} * kTamanoPagina, kTamanoPagina);
}

void PaginasEnMemoria::Escribe(std::uint32_t n, const std::uint8_t* pagina) {
  const std::size_t desde = std::size_t{n} * kTamanoPagina;
  if (bytes_.size() < desde + kTamanoPagina) bytes_.resize(desde + kTamanoPagina);
  std::memcpy(bytes_.data() + desde, pagina, kTamanoPagina);
}

void PaginasEnMemoria::Trunca(std::uint32_t paginas) {
  bytes_.resize(std::size_t{paginas} * kTamanoPagina);
}

std::unique_ptr<DestinoPaginas> AbreParaEscribir(const std::string& ruta, int espera_ms,
                                                 Plazo* plazo) {
  const int fd = ::open(ruta.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    throw ErrorJet(Latin1("No se pudo abrir para escribir la base de datos Jet '") + ruta + "': " +
                   std::strerror(errno) + ".");
  }
  try {
    EsperaTurno(fd, ruta, espera_ms, plazo);
  } catch (...) {
    ::close(fd);
    throw;
  }
  const std::string bloqueo = ArchivoDeBloqueo(ruta);
  if (::access(bloqueo.c_str(), F_OK) == 0 && BloqueadoPorOtro(bloqueo)) {
    ::close(fd);
    throw ErrorJet(Latin1("La base de datos Jet '") + ruta + Latin1("' está abierta en otro programa (") +
                   bloqueo + Latin1(" está bloqueado): Orvex no escribe en ella."));
  }
  struct stat st{};
  if (::fstat(fd, &st) != 0 || st.st_size % kTamanoPagina != 0 || st.st_size < 3 * off_t{kTamanoPagina}) {
    ::close(fd);
    throw ErrorJet(Latin1("La base de datos Jet '") + ruta +
                   Latin1("' no tiene un tamaño de páginas enteras: Orvex no escribe en ella."));
  }
  return std::make_unique<ArchivoEnDisco>(fd, ruta, static_cast<std::uint32_t>(st.st_size / kTamanoPagina));
}

bool DiasDeFechaISO(std::string_view iso, double& dias) {
  int a = 0, m = 0, d = 0, h = 0, mi = 0, se = 0;
  const std::string texto(iso);
  if (texto.size() != 10 && texto.size() != 19) return false;
  const int n = std::sscanf(texto.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &a, &m, &d, &h, &mi, &se);
  if (n != (texto.size() == 10 ? 3 : 6) || m < 1 || m > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || se > 59 ||
      h < 0 || mi < 0 || se < 0 || a < 100) {
    return false;
  }
  using namespace std::chrono;
  // Days past a month's end run on into the next month.
  const long desde_1899 =
      (sys_days(year(a) / month(static_cast<unsigned>(m)) / day(static_cast<unsigned>(d))) -
       sys_days(year(1899) / December / day(30)))
          .count();
  const double fraccion = (h * 3600 + mi * 60 + se) / 86400.0;
  // Before 1899-12-30 Jet counts the day back and the time forward.
  dias = desde_1899 >= 0 ? desde_1899 + fraccion : desde_1899 - fraccion;
  return true;
}

void AgregaFila(const Archivo& archivo, DestinoPaginas& destino, std::string_view nombre_tabla,
                const std::vector<Valor>& valores) {
  const std::string& nombre = destino.Nombre();
  const Tabla* t = archivo.BuscaTabla(nombre_tabla);
  if (t == nullptr) Falla(nombre, "no hay una tabla " + std::string(nombre_tabla));
  if (t->indices_declarados > 0) {
    Falla(nombre, "la tabla " + t->nombre + " tiene índices, y Orvex sólo agrega filas a tablas sin índices");
  }
  const std::string fila = CodificaFila(*t, valores, nombre);

  Cambios cambios(destino, nombre);
  Pagina& definicion = cambios.Toma(t->pagina_definicion);
  if (definicion[0] != kPaginaDefinicion) Falla(nombre, "la definición de la tabla no es una definición");
  const std::uint32_t filas = U32(definicion.data() + 0x10);

  // The last data page, when the row fits there.
  std::uint32_t ultima = 0;
  for (std::uint32_t n : t->paginas_datos) ultima = std::max(ultima, n);
  bool cabe = false;
  if (ultima != 0) {
    Pagina& p = cambios.Toma(ultima);
    if (p[0] != kPaginaDatos || U32(p.data() + 4) != t->pagina_definicion) {
      Falla(nombre, "la página " + std::to_string(ultima) + " no es de la tabla " + t->nombre);
    }
    const std::uint16_t n = U16(p.data() + 12);
    std::size_t mas_baja = kTamanoPagina;
    for (std::uint16_t k = 0; k < n; ++k) {
      mas_baja = std::min<std::size_t>(mas_baja, U16(p.data() + kCabeceraDatos + 2 * k) & 0x1FFF);
    }
    const std::size_t libre = U16(p.data() + 2);
    const std::size_t tabla_hasta = kCabeceraDatos + 2 * (n + 1u);
    cabe = n < kMaximoFilasPorPagina && libre >= fila.size() + 2 && mas_baja >= fila.size() &&
           mas_baja - fila.size() >= tabla_hasta;
    if (cabe) {
      const std::size_t inicio = mas_baja - fila.size();
      std::memcpy(p.data() + inicio, fila.data(), fila.size());
      Pon16(p.data() + kCabeceraDatos + 2 * n, static_cast<std::uint16_t>(inicio));
      Pon16(p.data() + 12, static_cast<std::uint16_t>(n + 1));
      Pon16(p.data() + 2, static_cast<std::uint16_t>(libre - fila.size() - 2));
    }
  }

  Pagina nueva;
  const std::uint32_t numero_nueva = destino.Paginas();
  if (!cabe) {
    nueva.assign(kTamanoPagina, 0);
    nueva[0] = kPaginaDatos;
    nueva[1] = 0x01;
    Pon16(nueva.data() + 2, static_cast<std::uint16_t>(kTamanoPagina - kCabeceraDatos - 2 - fila.size()));
    Pon32(nueva.data() + 4, t->pagina_definicion);
    Pon16(nueva.data() + 12, 1);
    const std::size_t inicio = kTamanoPagina - fila.size();
    Pon16(nueva.data() + kCabeceraDatos, static_cast<std::uint16_t>(inicio));
    std::memcpy(nueva.data() + inicio, fila.data(), fila.size());

    // The table's two maps: the pages it owns and the pages with room.
    for (std::size_t desplazamiento : {0x37u, 0x3Bu}) {
      const std::uint32_t puntero = U32(definicion.data() + desplazamiento);
      const Mapa m = UbicaMapa(cambios.Toma(puntero >> 8), puntero, nombre);
      if (!MarcaEnMapa(cambios, m, numero_nueva)) {
        Falla(nombre, "el mapa de uso de la tabla " + t->nombre + " no alcanza la página " +
                          std::to_string(numero_nueva));
      }
    }
    // The global map marks the new page as it marks the table's other data
    // pages; a map that does not cover them is left alone.
    std::size_t byte = 0, byte_ultima = 0;
    int bit = 0, bit_ultima = 0;
    const auto actual = BitGlobal(cambios, numero_nueva, byte, bit);
    const auto como = ultima != 0 ? BitGlobal(cambios, ultima, byte_ultima, bit_ultima) : std::nullopt;
    if (actual && como && *actual != *como) {
      Pagina& g = cambios.Toma(kPaginaMapaGlobal);
      g[byte] = static_cast<std::uint8_t>(g[byte] ^ (1 << bit));
    }
  }
  Pon32(definicion.data() + 0x10, filas + 1);

  // Data first, then whatever points to it, then the count.
  cambios.Escribe(cabe ? nullptr : &nueva, numero_nueva, cabe ? ultima : 0, t->pagina_definicion);
}

}  // namespace orvex::db::jet
