#include "search/Facetas.h"

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <map>

namespace orvex::search {

static_assert(std::endian::native == std::endian::little,
              "the arrays are read in place as little-endian numbers");

namespace {

constexpr std::size_t kCabecera = 12;
// No catalogue has more records (MapaFichas) nor dictionaries anywhere near
// this: a bound above it is a damaged header, and the counts it would size
// are not allocated.
constexpr std::uint32_t kMaximoElementos = 1u << 24;

std::uint32_t Lee32(const unsigned char* p) {
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

void Pon32(std::string& s, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
}

constexpr std::string_view kNombres[kNumeroFacetas] = {"anio", "idioma", "tipo", "autor", "tema"};

// The rows of the CSR of autor and tema.
constexpr std::string_view kCuentas[2] = {"autores.cuentas", "temas.cuentas"};
constexpr std::string_view kValores[2] = {"autores.valores", "temas.valores"};

int IndiceMultiple(Faceta f) {
  return f == Faceta::kAutor ? 0 : f == Faceta::kTema ? 1 : -1;
}

std::string Anio(std::uint32_t anio) {
  std::string s = std::to_string(anio);
  return std::string(s.size() < 4 ? 4 - s.size() : 0, '0') + s;
}

}  // namespace

std::string_view NombreFaceta(Faceta faceta) {
  return kNombres[static_cast<int>(faceta)];
}

std::optional<Faceta> FacetaDeNombre(std::string_view nombre) {
  for (int i = 0; i < kNumeroFacetas; ++i) {
    if (kNombres[i] == nombre) return static_cast<Faceta>(i);
  }
  return std::nullopt;
}

// --- Arreglo ------------------------------------------------------------------

bool Arreglo::Lee(std::string_view blob) {
  *this = Arreglo();
  if (blob.size() < kCabecera || blob[0] != 'O' || blob[1] != 'L' || blob[3] != 0) return false;
  const auto* p = reinterpret_cast<const unsigned char*>(blob.data());
  const int ancho = p[2];
  if (ancho != 1 && ancho != 2 && ancho != 4) return false;
  const std::uint32_t n = Lee32(p + 4), limite = Lee32(p + 8);
  if (n > kMaximoElementos || limite > kMaximoElementos) return false;
  if (blob.size() != kCabecera + static_cast<std::size_t>(n) * static_cast<std::size_t>(ancho)) {
    return false;
  }
  Arreglo a;
  a.datos_ = p + kCabecera;
  a.n_ = n;
  a.limite_ = limite;
  a.ancho_ = ancho;
  *this = a;
  return true;
}

std::string Arreglo::Codifica(const std::vector<std::uint32_t>& valores, std::uint32_t limite) {
  std::uint32_t maximo = 0;
  for (std::uint32_t v : valores) maximo = std::max(maximo, v);
  const int ancho = maximo < 0x100 ? 1 : maximo < 0x10000 ? 2 : 4;
  std::string s = "OL";
  s += static_cast<char>(ancho);
  s += '\0';
  Pon32(s, static_cast<std::uint32_t>(valores.size()));
  Pon32(s, limite);
  s.reserve(s.size() + valores.size() * static_cast<std::size_t>(ancho));
  for (std::uint32_t v : valores) {
    for (int i = 0; i < ancho; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
  }
  return s;
}

std::uint32_t Arreglo::operator[](std::uint32_t i) const {
  if (i >= n_) return 0;
  return Visita([&](auto v) { return v[i]; });
}

// --- DatosLector ------------------------------------------------------------

struct DatosLector::Estado {
  explicit Estado(db::Database& b) : base(b) {}
  db::Database& base;
  std::optional<bool> disponible;

  struct Fila {
    std::string bytes;
    Arreglo arreglo;
    bool valida = false;
  };
  // Loaded rows by name; a row read and found absent or damaged stays here
  // as not valid, so that it is read once.
  std::map<std::string, std::unique_ptr<Fila>, std::less<>> filas;
  std::unique_ptr<db::Recordset> lector;

  struct Csr {
    bool leido = false;
    bool valido = false;
    ValoresMultiples valores;
  } multiples[2];

  std::unique_ptr<db::Recordset> por_id, por_clave;

  // The BLOB of row `nombre`, nullopt when there is none.
  std::optional<std::string> LeeFila(std::string_view nombre) {
    if (!lector) {
      lector = base.OpenRecordset(kTablaLector, db::RecordsetType::Table);
      lector->SetIndex("PrimaryKey");
    }
    lector->Seek("=", {db::Value::Of(std::string(nombre))});
    if (lector->NoMatch()) return std::nullopt;
    return lector->FieldBytes("Datos");
  }
};

DatosLector::DatosLector(db::Database& base) : e_(std::make_unique<Estado>(base)) {}
DatosLector::~DatosLector() = default;

bool DatosLector::Disponible() {
  if (!e_->disponible) {
    // Opening the table on its primary key is what the first array's read
    // does anyway; a database without the table refuses it.
    try {
      e_->lector = e_->base.OpenRecordset(kTablaLector, db::RecordsetType::Table);
      e_->lector->SetIndex("PrimaryKey");
      e_->disponible = true;
    } catch (const std::exception&) {
      e_->lector.reset();
      e_->disponible = false;
    }
  }
  return *e_->disponible;
}

const Arreglo* DatosLector::Columna(std::string_view nombre) {
  auto it = e_->filas.find(nombre);
  if (it == e_->filas.end()) {
    auto fila = std::make_unique<Estado::Fila>();
    if (Disponible()) {
      try {
        std::optional<std::string> bytes = e_->LeeFila(nombre);
        if (bytes) {
          fila->bytes = std::move(*bytes);
          fila->valida = fila->arreglo.Lee(fila->bytes);
        }
      } catch (const std::exception&) {
        fila->valida = false;
      }
    }
    it = e_->filas.emplace(std::string(nombre), std::move(fila)).first;
  }
  return it->second->valida ? &it->second->arreglo : nullptr;
}

const Arreglo* DatosLector::Simple(Faceta faceta) {
  if (faceta != Faceta::kAnio && faceta != Faceta::kIdioma && faceta != Faceta::kTipo) {
    return nullptr;
  }
  return Columna(NombreFaceta(faceta));
}

const ValoresMultiples* DatosLector::Multiple(Faceta faceta) {
  const int i = IndiceMultiple(faceta);
  if (i < 0) return nullptr;
  Estado::Csr& csr = e_->multiples[i];
  if (!csr.leido) {
    csr.leido = true;
    const Arreglo* cuentas = Columna(kCuentas[i]);
    const Arreglo* valores = Columna(kValores[i]);
    if (cuentas != nullptr && valores != nullptr) {
      // At most 2^24 counts below 2^32 each: the sum fits in 64 bits, and
      // must equal the values, so that no walk reads past them.
      const std::uint64_t suma = cuentas->Visita([&](auto c) {
        std::uint64_t s = 0;
        for (std::uint32_t f = 0; f < cuentas->Tamano(); ++f) s += c[f];
        return s;
      });
      csr.valido = suma == valores->Tamano();
      if (csr.valido) csr.valores = {*cuentas, *valores};
    }
  }
  return csr.valido ? &csr.valores : nullptr;
}

std::optional<std::uint32_t> DatosLector::IdDeClave(Faceta faceta, std::string_view clave) {
  if (faceta == Faceta::kAnio) {
    if (clave.size() != 4 ||
        !std::all_of(clave.begin(), clave.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      return std::nullopt;
    }
    const std::uint32_t anio = static_cast<std::uint32_t>(std::stoi(std::string(clave)));
    if (anio == 0) return std::nullopt;
    return anio;
  }
  if (!Disponible()) return std::nullopt;
  try {
    if (!e_->por_clave) {
      e_->por_clave = e_->base.OpenRecordset(kTablaValores, db::RecordsetType::Table);
      // The engine names a table's indexes "TABLE_NAME": this is
      // ORVEX_LECTOR_VALORES_CLAVE.
      e_->por_clave->SetIndex("CLAVE");
    }
    e_->por_clave->Seek("=", {db::Value::Of(std::string(NombreFaceta(faceta))),
                              db::Value::Of(std::string(clave))});
    if (e_->por_clave->NoMatch()) return std::nullopt;
    const db::Value id = e_->por_clave->Field("Id");
    if (id.type != db::Value::Type::Integer || id.integer <= 0 || id.integer >= kMaximoElementos) {
      return std::nullopt;
    }
    return static_cast<std::uint32_t>(id.integer);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<ValorFaceta> DatosLector::ValorDeId(Faceta faceta, std::uint32_t id) {
  if (id == 0) return std::nullopt;
  ValorFaceta v;
  v.id = id;
  if (faceta == Faceta::kAnio) {
    if (id > 9999) return std::nullopt;
    v.clave = v.texto = Anio(id);
    return v;
  }
  if (!Disponible()) return std::nullopt;
  try {
    if (!e_->por_id) {
      e_->por_id = e_->base.OpenRecordset(kTablaValores, db::RecordsetType::Table);
      e_->por_id->SetIndex("PrimaryKey");
    }
    e_->por_id->Seek("=", {db::Value::Of(std::string(NombreFaceta(faceta))),
                           db::Value::Of(static_cast<std::int64_t>(id))});
    if (e_->por_id->NoMatch()) return std::nullopt;
    v.clave = e_->por_id->Field("Clave").AsText();
    v.texto = e_->por_id->Field("Texto").AsText();
    return v;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::string DatosLector::Fuente() {
  if (!Disponible()) return std::string();
  try {
    std::optional<std::string> fuente = e_->LeeFila(kFilaFuente);
    return fuente ? *fuente : std::string();
  } catch (const std::exception&) {
    return std::string();
  }
}

// --- finding the data -------------------------------------------------------

std::string IdentidadArchivo(const std::string& ruta) {
  struct stat st;
  if (ruta.find('\0') != std::string::npos || stat(ruta.c_str(), &st) != 0) return std::string();
  return std::to_string(static_cast<long long>(st.st_size)) + " " +
         std::to_string(static_cast<long long>(st.st_mtime));
}

FuenteLector BuscaDatosLector(db::Database& korvel, const std::string& ruta_korvel,
                              db::Opener& abridor) {
  FuenteLector r;
  auto propios = std::make_unique<DatosLector>(korvel);
  if (propios->Disponible()) {
    r.datos = std::move(propios);
    return r;
  }
  const std::size_t barra = ruta_korvel.find_last_of('/');
  const std::string lateral =
      (barra == std::string::npos ? std::string() : ruta_korvel.substr(0, barra + 1)) +
      std::string(kArchivoLateral);
  if (db::MotorDeArchivo(lateral) != db::Motor::Sqlite) return r;
  const std::string identidad = IdentidadArchivo(ruta_korvel);
  if (identidad.empty()) return r;
  try {
    db::OpenOptions opciones;
    opciones.read_only = true;
    std::unique_ptr<db::Database> base = abridor.Open(lateral, opciones);
    auto datos = std::make_unique<DatosLector>(*base);
    if (datos->Disponible() && datos->Fuente() == identidad) {
      r.lateral = std::move(base);
      r.datos = std::move(datos);
    }
  } catch (const std::exception&) {
    // A side file that cannot be opened is no side file.
  }
  return r;
}

// --- counts -----------------------------------------------------------------

namespace {

// The `maximo` values of `cuentas` (indexed by id) most frequent first, ties
// by id; `tocados` lists the ids counted at least once.
std::vector<std::pair<std::uint32_t, std::uint32_t>> Primeros(
    const std::vector<std::uint32_t>& cuentas, std::vector<std::uint32_t>& tocados, int maximo) {
  const auto antes = [&](std::uint32_t a, std::uint32_t b) {
    return cuentas[a] != cuentas[b] ? cuentas[a] > cuentas[b] : a < b;
  };
  const std::size_t k = std::min<std::size_t>(tocados.size(), static_cast<std::size_t>(std::max(maximo, 0)));
  std::partial_sort(tocados.begin(), tocados.begin() + static_cast<std::ptrdiff_t>(k), tocados.end(),
                    antes);
  std::vector<std::pair<std::uint32_t, std::uint32_t>> r;
  r.reserve(k);
  for (std::size_t i = 0; i < k; ++i) r.emplace_back(tocados[i], cuentas[tocados[i]]);
  return r;
}

ConteoFaceta Cuenta(DatosLector& datos, Faceta faceta, const std::vector<std::int32_t>& fichas,
                    int maximo) {
  ConteoFaceta conteo;
  conteo.faceta = faceta;
  std::vector<std::uint32_t> cuentas, tocados;
  if (const Arreglo* a = datos.Simple(faceta)) {
    conteo.disponible = true;
    const std::uint32_t limite = a->Limite();
    cuentas.assign(limite, 0);
    const std::uint32_t n = a->Tamano();
    a->Visita([&](auto v) {
      for (std::int32_t f : fichas) {
        const auto i = static_cast<std::uint32_t>(f);
        if (i >= n) break;  // the list ascends
        const std::uint32_t id = v[i];
        if (id != 0 && id < limite && cuentas[id]++ == 0) tocados.push_back(id);
      }
    });
  } else if (const ValoresMultiples* m = datos.Multiple(faceta)) {
    conteo.disponible = true;
    const std::uint32_t limite = m->valores.Limite();
    cuentas.assign(limite, 0);
    m->valores.Visita([&](auto v) {
      m->Recorre(fichas, [&](std::int32_t, std::uint32_t desde, std::uint32_t hasta) {
        for (std::uint32_t j = desde; j < hasta; ++j) {
          const std::uint32_t id = v[j];
          if (id != 0 && id < limite && cuentas[id]++ == 0) tocados.push_back(id);
        }
      });
    });
  } else {
    return conteo;
  }
  conteo.distintos = static_cast<std::int32_t>(tocados.size());
  for (const auto& [id, cuenta] : Primeros(cuentas, tocados, maximo)) {
    std::optional<ValorFaceta> v = datos.ValorDeId(faceta, id);
    if (!v) continue;  // a value without its text cannot be shown nor chosen
    v->cuenta = static_cast<std::int32_t>(cuenta);
    conteo.valores.push_back(std::move(*v));
  }
  return conteo;
}

}  // namespace

std::array<ConteoFaceta, kNumeroFacetas> CuentaFacetas(DatosLector& datos,
                                                       const MapaFichas& resultado, int maximo) {
  const std::vector<std::int32_t> fichas = resultado.Lista();
  std::array<ConteoFaceta, kNumeroFacetas> r;
  for (int i = 0; i < kNumeroFacetas; ++i) {
    r[static_cast<std::size_t>(i)] = Cuenta(datos, static_cast<Faceta>(i), fichas, maximo);
  }
  return r;
}

ConteoFaceta CuentaFaceta(DatosLector& datos, Faceta faceta, const MapaFichas& resultado,
                          int maximo) {
  return Cuenta(datos, faceta, resultado.Lista(), maximo);
}

bool Restringe(DatosLector& datos, const std::vector<Eleccion>& elecciones,
               MapaFichas& resultado) {
  for (const Eleccion& e : elecciones) {
    const Arreglo* simple = datos.Simple(e.faceta);
    const ValoresMultiples* multiple = simple == nullptr ? datos.Multiple(e.faceta) : nullptr;
    if (simple == nullptr && multiple == nullptr) return false;
    const std::optional<std::uint32_t> id = datos.IdDeClave(e.faceta, e.clave);
    MapaFichas quedan;
    const std::uint32_t limite = simple != nullptr ? simple->Limite() : multiple->valores.Limite();
    const bool posible = id && *id < limite;  // an id past the bound names nothing
    const std::vector<std::int32_t> fichas = posible ? resultado.Lista() : std::vector<std::int32_t>();
    if (simple != nullptr) {
      for (std::int32_t f : fichas) {
        if ((*simple)[static_cast<std::uint32_t>(f)] == *id) quedan.Pon(f);
      }
    } else {
      multiple->Recorre(fichas, [&](std::int32_t f, std::uint32_t desde, std::uint32_t hasta) {
        for (std::uint32_t j = desde; j < hasta; ++j) {
          if (multiple->valores[j] == *id) {
            quedan.Pon(f);
            break;
          }
        }
      });
    }
    resultado = quedan;
  }
  return true;
}

}  // namespace orvex::search
