#include "catalogo/LectorISO2709.h"

#include <optional>

#include "catalogo/TextoMARC.h"

namespace orvex::catalogo {
namespace {

constexpr char kFinCampo = '\x1E';
constexpr char kDelimitador = '\x1F';
constexpr char kFinRegistro = '\x1D';
constexpr std::size_t kLargoLider = 24;

// The decimal number written in `texto`, when it is all digits.
std::optional<std::size_t> Numero(std::string_view texto) {
  if (texto.empty()) return std::nullopt;
  std::size_t n = 0;
  for (char c : texto) {
    if (c < '0' || c > '9') return std::nullopt;
    n = n * 10 + static_cast<std::size_t>(c - '0');
  }
  return n;
}

std::size_t Digito(char c, std::size_t omision) {
  return c >= '1' && c <= '9' ? static_cast<std::size_t>(c - '0') : omision;
}

bool EsEtiqueta(std::string_view t) {
  for (char c : t) {
    const bool alfanumerico =
        (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (!alfanumerico) return false;
  }
  return t.size() == 3;
}

// The layout read from a leader: base address and the directory's entry map.
struct Estructura {
  std::size_t base = 0;
  std::size_t largo_longitud = 4;  // digits of a field's length
  std::size_t largo_inicio = 5;    // digits of a field's starting position
  std::size_t Entrada() const { return 3 + largo_longitud + largo_inicio; }
};

std::optional<Estructura> LeeEstructura(std::string_view bytes) {
  if (bytes.size() < kLargoLider) return std::nullopt;
  const std::optional<std::size_t> base = Numero(bytes.substr(12, 5));
  if (!base || *base <= kLargoLider || *base > bytes.size()) return std::nullopt;
  Estructura e;
  e.base = *base;
  e.largo_longitud = Digito(bytes[20], 4);
  e.largo_inicio = Digito(bytes[21], 5);
  return e;
}

// The 001 of a record that may be damaged, for the messages: empty unless
// the leader, the directory entry and the field itself are sound.
std::string Busca001(std::string_view bytes) {
  const std::optional<Estructura> e = LeeEstructura(bytes);
  if (!e) return std::string();
  const std::size_t entrada = e->Entrada();
  for (std::size_t p = kLargoLider; p + entrada < e->base; p += entrada) {
    if (bytes.substr(p, 3) != "001") continue;
    const auto largo = Numero(bytes.substr(p + 3, e->largo_longitud));
    const auto inicio = Numero(bytes.substr(p + 3 + e->largo_longitud, e->largo_inicio));
    if (!largo || !inicio || *largo == 0 || e->base + *inicio + *largo > bytes.size()) break;
    std::string_view dato = bytes.substr(e->base + *inicio, *largo - 1);
    if (!EsUtf8Valido(dato)) break;
    for (char c : dato) {
      if (static_cast<unsigned char>(c) < 0x20) return std::string();
    }
    return std::string(CortaCaracteres(SinBlancos(dato), 40));
  }
  return std::string();
}

// A data field's content after its terminator was removed.
void LeeCampoDatos(std::string_view contenido, std::size_t indicadores, std::size_t largo_codigo,
                   Campo& campo) {
  if (indicadores >= 1 && contenido.size() >= 1) campo.ind1 = contenido[0];
  if (indicadores >= 2 && contenido.size() >= 2) campo.ind2 = contenido[1];
  std::size_t p = contenido.find(kDelimitador);
  while (p != std::string_view::npos) {
    const std::size_t siguiente = contenido.find(kDelimitador, p + 1);
    std::string_view pieza =
        contenido.substr(p + 1, siguiente == std::string_view::npos ? std::string_view::npos
                                                                    : siguiente - p - 1);
    if (!pieza.empty()) {
      Subcampo s;
      s.codigo = pieza[0];
      const std::size_t salto = std::min(pieza.size(), largo_codigo - 1);
      s.valor.assign(pieza.substr(salto));
      campo.subcampos.push_back(std::move(s));
    }
    p = siguiente;
  }
}

}  // namespace

Lectura LectorISO2709::Siguiente(RegistroMARC& registro) {
  original_ = {};
  while (pos_ < datos_.size()) {
    const char c = datos_[pos_];
    if (c != '\r' && c != '\n' && c != ' ' && c != '\0' && c != '\x1A') break;
    ++pos_;
  }
  if (pos_ >= datos_.size()) return Lectura::kFin;

  ++posicion_;
  identificador_.clear();
  motivo_.clear();
  const std::string_view resto = datos_.substr(pos_);
  const std::size_t terminador = resto.find(kFinRegistro);
  const std::optional<std::size_t> longitud = Numero(resto.substr(0, 5));

  if (longitud && *longitud > kLargoLider && *longitud <= resto.size() &&
      resto[*longitud - 1] == kFinRegistro) {
    const std::string_view bytes = resto.substr(0, *longitud);
    pos_ += *longitud;
    identificador_ = Busca001(bytes);
    registro = RegistroMARC();
    if (!Analiza(bytes, registro)) return Lectura::kRechazado;
    original_ = bytes;
    return Lectura::kRegistro;
  }

  // The length cannot be trusted: the record ends at its terminator.
  const std::string_view bytes =
      terminador == std::string_view::npos ? resto : resto.substr(0, terminador + 1);
  pos_ += bytes.size();
  identificador_ = Busca001(bytes);
  if (terminador == std::string_view::npos) {
    motivo_ = "registro incompleto: el archivo termina antes del fin del registro";
  } else if (!longitud) {
    motivo_ = "longitud del registro no válida en el líder (\"" +
              std::string(CortaCaracteres(resto.substr(0, 5), 5)) + "\")";
  } else {
    motivo_ = "longitud del registro no válida: el líder dice " + std::to_string(*longitud) +
              " bytes y el registro tiene " + std::to_string(bytes.size());
  }
  return Lectura::kRechazado;
}

bool LectorISO2709::Analiza(std::string_view bytes, RegistroMARC& registro) {
  const std::optional<Estructura> estructura = LeeEstructura(bytes);
  if (!estructura) {
    motivo_ = "dirección base de los datos no válida en el líder";
    return false;
  }
  const Estructura& e = *estructura;
  const char codificacion = bytes[9];
  if (codificacion != 'a' && codificacion != ' ') {
    motivo_ = std::string("codificación de caracteres desconocida (posición 9 del líder: \"") +
              (static_cast<unsigned char>(codificacion) < 0x80 ? std::string(1, codificacion)
                                                               : std::string("?")) +
              "\")";
    return false;
  }
  const bool marc8 = codificacion == ' ';
  registro.lider.assign(bytes.substr(0, kLargoLider));
  if (!EsUtf8Valido(registro.lider)) registro.lider.assign(kLargoLider, ' ');
  const std::size_t indicadores = Digito(bytes[10], 2);
  const std::size_t largo_codigo = Digito(bytes[11], 2);

  if (bytes[e.base - 1] != kFinCampo) {
    motivo_ = "directorio no válido: falta su terminador";
    return false;
  }
  const std::size_t largo_directorio = e.base - 1 - kLargoLider;
  const std::size_t entrada = e.Entrada();
  if (largo_directorio % entrada != 0) {
    motivo_ = "directorio no válido: su longitud (" + std::to_string(largo_directorio) +
              ") no es múltiplo de " + std::to_string(entrada);
    return false;
  }
  // The fields lie between the base address and the record terminator.
  const std::string_view zona = bytes.substr(e.base, bytes.size() - 1 - e.base);
  if (marc8 && zona.find('\x1B') != std::string_view::npos) {
    motivo_ = "codificación MARC-8 no admitida";
    return false;
  }

  registro.campos.reserve(largo_directorio / entrada);
  for (std::size_t p = kLargoLider; p < e.base - 1; p += entrada) {
    const std::string_view etiqueta = bytes.substr(p, 3);
    const auto largo = Numero(bytes.substr(p + 3, e.largo_longitud));
    const auto inicio = Numero(bytes.substr(p + 3 + e.largo_longitud, e.largo_inicio));
    const std::string nombre = EsEtiqueta(etiqueta) ? std::string(etiqueta) : std::string("?");
    if (!EsEtiqueta(etiqueta) || !largo || !inicio) {
      motivo_ = "directorio no válido: entrada " +
                std::to_string((p - kLargoLider) / entrada + 1) + " ilegible";
      return false;
    }
    if (*largo == 0 || *inicio > zona.size() || *largo > zona.size() - *inicio) {
      motivo_ = "directorio no válido: el campo " + nombre + " cae fuera del registro";
      return false;
    }
    const std::string_view campo_bytes = zona.substr(*inicio, *largo);
    if (campo_bytes.back() != kFinCampo) {
      motivo_ = "el campo " + nombre + " no termina con el terminador de campo";
      return false;
    }
    const std::string_view contenido = campo_bytes.substr(0, campo_bytes.size() - 1);
    if (!EsUtf8Valido(contenido)) {
      motivo_ = marc8 ? "codificación MARC-8 no admitida"
                      : "el campo " + nombre + " no es UTF-8 válido";
      return false;
    }
    Campo campo;
    campo.etiqueta = nombre;
    if (campo.EsControl()) {
      campo.datos.assign(contenido);
    } else {
      LeeCampoDatos(contenido, indicadores, largo_codigo, campo);
    }
    registro.campos.push_back(std::move(campo));
  }
  return true;
}

}  // namespace orvex::catalogo
