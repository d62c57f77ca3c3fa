#include "circulation/servidor/Circulacion.h"

#include <sqlite3.h>

#include <cctype>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>

#include "base/CodePage.h"
#include "base/Html.h"

namespace orvex::circulation::servidor {
namespace {

// A prepared statement that finalizes itself.
class Sentencia {
 public:
  Sentencia(sqlite3* db, const char* sql) {
    if (sqlite3_prepare_v2(db, sql, -1, &st_, nullptr) != SQLITE_OK)
      throw std::runtime_error(sqlite3_errmsg(db));
  }
  ~Sentencia() { sqlite3_finalize(st_); }
  Sentencia& Texto(int i, const std::string& v) {
    sqlite3_bind_text(st_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    return *this;
  }
  bool Fila() {
    int rc = sqlite3_step(st_);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    throw std::runtime_error(sqlite3_errmsg(sqlite3_db_handle(st_)));
  }
  std::string Columna(int i) {
    const unsigned char* t = sqlite3_column_text(st_, i);
    return t ? reinterpret_cast<const char*>(t) : "";
  }
  sqlite3_stmt* st_ = nullptr;
};

std::string Recorta(std::string_view s) {
  size_t a = 0, b = s.size();
  while (a < b && std::isspace(static_cast<unsigned char>(s[a]))) ++a;
  while (b > a && std::isspace(static_cast<unsigned char>(s[b - 1]))) --b;
  return std::string(s.substr(a, b - a));
}

bool Accesible(const std::string& valor) {
  std::string v = Recorta(valor);
  return v == "S" || v == "s";
}

// KORVEL8.MDB in `directorio`, whatever its letter case.
std::string BuscaKorvel(const std::string& directorio) {
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(directorio, ec)) {
    std::string nombre = e.path().filename().string();
    if (EqualsIgnoringCase(nombre, "KORVEL8.MDB")) return e.path().string();
  }
  throw std::runtime_error("no hay KORVEL8.MDB en " + directorio);
}

std::string Hoy() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  localtime_r(&t, &tm);
  char b[16];
  std::strftime(b, sizeof b, "%d/%m/%Y", &tm);
  return b;
}

// The strict reader of the commands: blanks, <comandoSE class='X'>, child
// elements <Nombre>texto</Nombre> or <Nombre/> separated by blanks,
// </comandoSE>, blanks. Each child at most once; text with the five entities
// and character references only.
struct Comando {
  std::string clase;
  std::map<std::string, std::string> hijos;
};

class Lector {
 public:
  explicit Lector(std::string_view t) : t_(t) {}

  std::optional<Comando> Lee() {
    Comando c;
    Blancos();
    if (!Toma("<comandoSE class=")) return std::nullopt;
    if (p_ >= t_.size() || (t_[p_] != '\'' && t_[p_] != '"')) return std::nullopt;
    char q = t_[p_++];
    size_t fin = t_.find(q, p_);
    if (fin == std::string_view::npos) return std::nullopt;
    c.clase = std::string(t_.substr(p_, fin - p_));
    p_ = fin + 1;
    if (!Toma(">")) return std::nullopt;
    for (;;) {
      Blancos();
      if (Toma("</comandoSE>")) break;
      if (!Toma("<")) return std::nullopt;
      std::string nombre = Nombre();
      if (nombre.empty() || c.hijos.count(nombre)) return std::nullopt;
      std::string valor;
      if (!Toma("/>")) {
        if (!Toma(">") || !Texto(valor) || !Toma("</" + nombre + ">")) return std::nullopt;
      }
      c.hijos[nombre] = valor;
    }
    Blancos();
    if (p_ != t_.size()) return std::nullopt;
    return c;
  }

 private:
  void Blancos() {
    while (p_ < t_.size() && std::isspace(static_cast<unsigned char>(t_[p_]))) ++p_;
  }
  bool Toma(std::string_view s) {
    if (t_.substr(p_, s.size()) != s) return false;
    p_ += s.size();
    return true;
  }
  std::string Nombre() {
    size_t a = p_;
    while (p_ < t_.size() && std::isalnum(static_cast<unsigned char>(t_[p_]))) ++p_;
    return std::string(t_.substr(a, p_ - a));
  }
  bool Texto(std::string& v) {
    static const std::pair<std::string_view, char> kEntidades[] = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&apos;", '\''}, {"&quot;", '"'}};
    while (p_ < t_.size() && t_[p_] != '<') {
      if (t_[p_] != '&') {
        v += t_[p_++];
        continue;
      }
      bool conocida = false;
      for (const auto& [e, ch] : kEntidades) {
        if (Toma(e)) {
          v += ch;
          conocida = true;
          break;
        }
      }
      if (!conocida && !Referencia(v)) return false;
    }
    return true;
  }
  // A character reference, "&#" and decimal digits or "&#x" and hexadecimal
  // ones, then ";": the gateway writes control characters so. Appends the
  // character's byte; false for character 0, one the code page lacks, or
  // anything else.
  bool Referencia(std::string& v) {
    if (!Toma("&#")) return false;
    const int base = Toma("x") ? 16 : 10;
    char32_t codigo = 0;
    size_t cifras = 0;
    for (; p_ < t_.size() && cifras < 8; ++p_, ++cifras) {
      const int cifra = CifraEn(t_[p_], base);
      if (cifra < 0) break;
      codigo = codigo * base + static_cast<char32_t>(cifra);
    }
    if (cifras == 0 || codigo == 0 || !Toma(";")) return false;
    const std::optional<char> byte = CodePage::Windows1252().ByteFor(codigo);
    if (!byte) return false;
    v += *byte;
    return true;
  }
  static int CifraEn(char c, int base) {
    if (c >= '0' && c <= '9') return c - '0';
    if (base == 16 && c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (base == 16 && c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }

  std::string_view t_;
  size_t p_ = 0;
};

const std::string kNoReconocido = "<Error Mensaje='Comando no reconocido'/>";

}  // namespace

Circulacion::Circulacion(const std::string& directorio_catalogo,
                         const std::string& archivo_prestamos) {
  std::string korvel = BuscaKorvel(directorio_catalogo);
  if (sqlite3_open_v2(korvel.c_str(), &catalogo_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
    throw std::runtime_error(korvel + ": " + sqlite3_errmsg(catalogo_));
  // Fails here, not at the first command, when the file has no copies table.
  Sentencia(catalogo_, "SELECT NumAdqui FROM Ejemplares LIMIT 1").Fila();
  if (sqlite3_open_v2(archivo_prestamos.c_str(), &prestamos_,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK)
    throw std::runtime_error(archivo_prestamos + ": " + sqlite3_errmsg(prestamos_));
  char* error = nullptr;
  if (sqlite3_exec(prestamos_,
                   "CREATE TABLE IF NOT EXISTS Prestamos(NumAdqui TEXT PRIMARY KEY, NumCta TEXT,"
                   " Vence TEXT);"
                   "CREATE TABLE IF NOT EXISTS Reservas(NumAdqui TEXT, NumCta TEXT, Fecha TEXT);",
                   nullptr, nullptr, &error) != SQLITE_OK) {
    std::string mensaje = archivo_prestamos + ": " + (error ? error : "?");
    sqlite3_free(error);
    throw std::runtime_error(mensaje);
  }
}

Circulacion::~Circulacion() {
  sqlite3_close(catalogo_);
  sqlite3_close(prestamos_);
}

void Circulacion::Presta(const std::string& numadqui, const std::string& cuenta,
                         const std::string& vence) {
  Sentencia(prestamos_, "INSERT OR REPLACE INTO Prestamos(NumAdqui, NumCta, Vence) VALUES(?,?,?)")
      .Texto(1, numadqui).Texto(2, cuenta).Texto(3, vence).Fila();
}

std::string Circulacion::Atiende(std::string_view comando) {
  const CodePage& cp = CodePage::Windows1252();
  std::optional<Comando> c = Lector(comando).Lee();
  if (!c) return kNoReconocido;
  auto tiene = [&](std::initializer_list<const char*> nombres, size_t opcionales) {
    size_t hallados = 0;
    for (const char* n : nombres) hallados += c->hijos.count(n);
    return hallados == c->hijos.size() && hallados + opcionales >= nombres.size();
  };
  try {
    if (c->clase == "RESERVA" && tiene({"NumAdqui", "NumCta", "PWD"}, 1) &&
        c->hijos.count("NumAdqui") && c->hijos.count("NumCta")) {
      return cp.FromUtf8(Reserva(cp.ToUtf8(Recorta(c->hijos["NumAdqui"])),
                                 cp.ToUtf8(Recorta(c->hijos["NumCta"]))));
    }
    if (c->clase == "DISPONIBILIDAD" && tiene({"Ficha"}, 0)) {
      std::string ficha = Recorta(c->hijos["Ficha"]);
      if (ficha.empty() || ficha.size() > 9) return kNoReconocido;
      for (char d : ficha)
        if (!std::isdigit(static_cast<unsigned char>(d))) return kNoReconocido;
      return cp.FromUtf8(Disponibilidad(std::stoll(ficha)));
    }
  } catch (const std::runtime_error& e) {
    return "<Error Mensaje='" + EscapaEntidadesXML(cp.FromUtf8(e.what())) + "'/>";
  }
  return kNoReconocido;
}

std::string Circulacion::Reserva(const std::string& numadqui, const std::string& cuenta) {
  auto rechazo = [](int estado, const char* mensaje) {
    return "<Reservacion Estado='" + std::to_string(estado) + "' Mensaje='" + mensaje + "'/>";
  };
  Sentencia copia(catalogo_, "SELECT Accesible FROM Ejemplares WHERE NumAdqui = ?");
  copia.Texto(1, numadqui);
  if (numadqui.empty() || !copia.Fila()) return rechazo(1, "Ejemplar inexistente");
  if (cuenta.empty()) return rechazo(2, "Cuenta de lector no valida");
  if (!Accesible(copia.Columna(0))) return rechazo(4, "Ejemplar no accesible");
  if (Sentencia(prestamos_, "SELECT 1 FROM Reservas WHERE NumAdqui = ?").Texto(1, numadqui).Fila())
    return rechazo(3, "Ejemplar ya reservado");
  Sentencia(prestamos_, "INSERT INTO Reservas(NumAdqui, NumCta, Fecha) VALUES(?,?,?)")
      .Texto(1, numadqui).Texto(2, cuenta).Texto(3, Hoy()).Fila();
  return rechazo(0, "Reserva registrada");
}

std::string Circulacion::Disponibilidad(long long ficha) {
  std::string r = "<Disponibilidad Ficha='" + std::to_string(ficha) + "'>";
  Sentencia copias(catalogo_,
                   "SELECT NumAdqui, Biblioteca, Volumen, Ejemplar, Accesible FROM Ejemplares"
                   " WHERE Ficha_No = ? ORDER BY NumAdqui");
  sqlite3_bind_int64(copias.st_, 1, ficha);
  Sentencia prestamo(prestamos_, "SELECT Vence FROM Prestamos WHERE NumAdqui = ?");
  Sentencia reserva(prestamos_, "SELECT 1 FROM Reservas WHERE NumAdqui = ?");
  while (copias.Fila()) {
    std::string numadqui = copias.Columna(0);
    std::string estado = "disponible", vence;
    sqlite3_reset(prestamo.st_);
    sqlite3_reset(reserva.st_);
    if (prestamo.Texto(1, numadqui).Fila()) {
      estado = "prestado";
      vence = prestamo.Columna(0);
    } else if (reserva.Texto(1, numadqui).Fila()) {
      estado = "reservado";
    } else if (!Accesible(copias.Columna(4))) {
      estado = "no accesible";
    }
    r += "<Ejemplar NumAdqui='" + EscapaEntidadesXML(numadqui) +
         "' Biblioteca='" + EscapaEntidadesXML(copias.Columna(1)) +
         "' Volumen='" + EscapaEntidadesXML(copias.Columna(2)) +
         "' Ejemplar='" + EscapaEntidadesXML(copias.Columna(3)) + "' Estado='" + estado +
         "' Vence='" + EscapaEntidadesXML(vence) + "'/>";
  }
  return r + "</Disponibilidad>";
}

}  // namespace orvex::circulation::servidor
