#include "catalogo/DatosLector.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unordered_map>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "catalogo/Catalogo.h"
#include "catalogo/ConexionSqlite.h"
#include "catalogo/EscritorCatalogo.h"
#include "catalogo/TextoMARC.h"
#include "db/Database.h"
#include "records/Ficha.h"
#include "search/Expresion.h"
#include "search/Facetas.h"
#include "search/MapaFichas.h"
#include "search/Normalizacion.h"

namespace orvex::catalogo {
namespace {

constexpr std::size_t kLargoTexto = 250;
constexpr std::size_t kPorFicha = 255;

bool EsDigito(char c) { return c >= '0' && c <= '9'; }
bool EsLetraAscii(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// The year of four digits `s`, 0 when it is not one or is 0000 or 9999.
std::uint16_t AnioDe(std::string_view s) {
  if (s.size() != 4 || !std::all_of(s.begin(), s.end(), EsDigito)) return 0;
  const int v = (s[0] - '0') * 1000 + (s[1] - '0') * 100 + (s[2] - '0') * 10 + (s[3] - '0');
  return v == 0 || v == 9999 ? 0 : static_cast<std::uint16_t>(v);
}

// The last run of exactly four digits in `s`, as a year.
std::uint16_t UltimoAnio(std::string_view s) {
  std::uint16_t anio = 0;
  for (std::size_t i = 0; i < s.size();) {
    std::size_t j = i;
    while (j < s.size() && EsDigito(s[j])) ++j;
    if (j - i == 4 && AnioDe(s.substr(i, 4)) != 0) anio = AnioDe(s.substr(i, 4));
    i = j == i ? i + 1 : j;
  }
  return anio;
}

std::uint16_t AnioDe008(std::string_view f008) {
  return f008.size() >= 11 ? AnioDe(f008.substr(7, 4)) : 0;
}

// Three letters, lower-cased; empty when `s` does not start with them.
std::string Idioma(std::string_view s) {
  if (s.size() < 3 || !std::all_of(s.begin(), s.begin() + 3, EsLetraAscii)) return std::string();
  std::string c(s.substr(0, 3));
  for (char& ch : c) ch = static_cast<char>(ch | 0x20);
  return c;
}

std::string Idioma008(std::string_view f008) {
  return f008.size() >= 38 ? Idioma(f008.substr(35, 3)) : std::string();
}

std::string_view Recorta(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

// A subfield value as the catalogue shows it, in Windows-1252.
std::string Muestra(std::string_view utf8) {
  return CodePage::Windows1252().FromUtf8(SinBlancos(LimpiaContenido(ComponeAcentos(utf8))));
}

// Adds `texto` (a heading) to `lista` once, cut and cleaned.
void AgregaValor(std::vector<std::string>& lista, std::string_view texto) {
  std::string v = LimpiaEncabezado(texto);
  if (v.size() > kLargoTexto) v = LimpiaEncabezado(v.substr(0, kLargoTexto));
  if (v.empty() || lista.size() >= kPorFicha) return;
  if (std::find(lista.begin(), lista.end(), v) == lista.end()) lista.push_back(std::move(v));
}

bool EsAutor(int n) { return n == 100 || n == 110 || n == 111 || n == 700 || n == 710 || n == 711; }
bool EsTema(int n) { return n == 600 || n == 610 || n == 611 || n == 630 || n == 650 || n == 651; }

int Numero(std::string_view etiqueta) {
  if (etiqueta.size() != 3 || !std::all_of(etiqueta.begin(), etiqueta.end(), EsDigito)) return -1;
  return (etiqueta[0] - '0') * 100 + (etiqueta[1] - '0') * 10 + (etiqueta[2] - '0');
}

// A final ", 1927-2014." of dates after a name in the tag string.
std::string_view SinFechas(std::string_view s) {
  const std::size_t coma = s.rfind(", ");
  if (coma == std::string_view::npos) return s;
  const std::string_view cola = s.substr(coma + 2);
  bool digito = false;
  for (char c : cola) {
    if (EsDigito(c)) {
      digito = true;
    } else if (c != '-' && c != '?' && c != '.' && c != ' ') {
      return s;
    }
  }
  return digito ? s.substr(0, coma) : s;
}

}  // namespace

const std::vector<TipoMaterialLector>& TiposMaterial() {
  static const std::vector<TipoMaterialLector> tipos = {
      {"libro", "Libro"},
      {"revista", "Revista"},
      {"manuscrito", "Manuscrito"},
      {"partitura", "Partitura"},
      {"mapa", "Mapa"},
      {"video", "Video"},
      {"sonido", "Grabación sonora"},
      {"imagen", "Imagen"},
      {"electronico", "Recurso electrónico"},
      {"conjunto", "Conjunto"},
      {"mixto", "Materiales mixtos"},
      {"objeto", "Objeto"},
      {"otro", "Otro"},
  };
  return tipos;
}

std::string_view TipoDeLider(char tipo, char nivel) {
  switch (tipo) {
    case 'a': return nivel == 'b' || nivel == 'i' || nivel == 's' ? "revista" : "libro";
    case 't': return "manuscrito";
    case 'c': case 'd': return "partitura";
    case 'e': case 'f': return "mapa";
    case 'g': return "video";
    case 'i': case 'j': return "sonido";
    case 'k': return "imagen";
    case 'm': return "electronico";
    case 'o': return "conjunto";
    case 'p': return "mixto";
    case 'r': return "objeto";
    default: return "otro";
  }
}

std::string NombreIdioma(std::string_view codigo) {
  static const std::pair<std::string_view, std::string_view> nombres[] = {
      {"spa", "Español"},   {"eng", "Inglés"},    {"fre", "Francés"},
      {"ger", "Alemán"},    {"ita", "Italiano"},  {"por", "Portugués"},
      {"lat", "Latín"},     {"cat", "Catalán"},   {"glg", "Gallego"},
      {"baq", "Vasco"},     {"dut", "Neerlandés"}, {"rus", "Ruso"},
      {"chi", "Chino"},     {"jpn", "Japonés"},   {"ara", "Árabe"},
      {"heb", "Hebreo"},    {"grc", "Griego antiguo"}, {"gre", "Griego"},
      {"nah", "Náhuatl"},   {"zap", "Zapoteco"},  {"mix", "Mixteco"},
      {"myn", "Lenguas mayas"}, {"que", "Quechua"}, {"grn", "Guaraní"},
      {"mul", "Varias lenguas"}, {"und", "Indeterminado"},
      {"zxx", "Sin contenido lingüístico"}};
  for (const auto& [c, n] : nombres) {
    if (c == codigo) return Latin1(n);
  }
  return std::string(codigo);
}

std::string ClaveOrden(std::string_view texto) {
  static const std::string& palabra = search::CaracteresPalabra;
  const std::string plegado = search::NormalizaVocales(std::string(texto));
  std::string clave;
  bool hueco = false;
  for (char c : plegado) {
    if (c == '$' || palabra.find(c) == std::string::npos) {
      hueco = !clave.empty();
      continue;
    }
    if (hueco) clave += ' ';
    hueco = false;
    if (c == '\xC7') {  // Ç
      clave += 'C';
    } else if (c == '\xD1') {  // Ñ
      clave += "N~";
    } else {
      clave += c;
    }
  }
  return clave;
}

std::string LimpiaEncabezado(std::string_view texto) {
  std::string_view s = Recorta(texto);
  bool punto = false;
  for (;;) {
    s = Recorta(s);
    if (s.empty()) break;
    const char c = s.back();
    if (c == ',' || c == ';' || c == ':' || c == '/' || c == '=') {
      s.remove_suffix(1);
      continue;
    }
    if (c == '.' && !punto) {
      // "Smith, J." keeps the full stop of its initial.
      const std::string_view antes = s.substr(0, s.size() - 1);
      const std::size_t corte = antes.find_last_of(" ,.");
      const std::string_view ultima =
          corte == std::string_view::npos ? antes : antes.substr(corte + 1);
      const auto u = ultima.empty() ? 0u : static_cast<unsigned char>(ultima[0]);
      const bool inicial = ultima.size() == 1 && ((u >= 'A' && u <= 'Z') || (u >= 0xC0 && u <= 0xDE));
      if (inicial) break;
      s.remove_suffix(1);
      punto = true;
      continue;
    }
    break;
  }
  return std::string(s);
}

DatosFicha DatosDeRegistro(const RegistroMARC& r) {
  DatosFicha d;
  const std::string_view f008 = r.Control("008");
  d.anio = AnioDe008(f008);
  d.idioma = Idioma008(f008);
  d.tipo = r.lider.size() > 7 ? std::string(TipoDeLider(r.lider[6], r.lider[7])) : "libro";
  const Campo* c260 = nullptr;
  const Campo* c264_1 = nullptr;
  const Campo* c264 = nullptr;
  const Campo* c041 = nullptr;
  bool titulo = false;
  for (const Campo& c : r.campos) {
    if (c.EsControl()) continue;
    const int n = Numero(c.etiqueta);
    if (EsAutor(n) || EsTema(n)) {
      const std::string_view a = c.Valor('a');
      if (!a.empty()) AgregaValor(EsAutor(n) ? d.autores : d.temas, Muestra(a));
    } else if (n == 245 && !titulo) {
      titulo = true;
      std::string t = ParaIndice(ComponeAcentos(c.Valor('a')));
      const std::size_t salto = EsDigito(c.ind2) ? static_cast<std::size_t>(c.ind2 - '0') : 0;
      d.titulo = ClaveOrden(std::string_view(t).substr(std::min(salto, t.size())));
    } else if (n == 260 && c260 == nullptr) {
      c260 = &c;
    } else if (n == 264) {
      if (c264 == nullptr) c264 = &c;
      if (c264_1 == nullptr && c.ind2 == '1') c264_1 = &c;
    } else if (n == 41 && c041 == nullptr) {
      c041 = &c;
    }
  }
  if (d.anio == 0) {
    for (const Campo* c : {c260, c264_1, c264}) {
      if (c == nullptr) continue;
      for (const Subcampo& s : c->subcampos) {
        if (s.codigo == 'c' && d.anio == 0) d.anio = UltimoAnio(s.valor);
      }
      if (d.anio != 0) break;
    }
  }
  if (d.idioma.empty() && c041 != nullptr) d.idioma = Idioma(Recorta(c041->Valor('a')));
  return d;
}

DatosFicha DatosDeEtiquetas(std::string_view etiquetas, std::string_view datos_fijos,
                            std::string_view tipo_material) {
  DatosFicha d;
  d.anio = AnioDe008(datos_fijos);
  d.idioma = Idioma008(datos_fijos);
  d.tipo = Recorta(tipo_material) == "1" ? "libro" : "otro";
  std::string_view c260, c264, c041;
  bool h260 = false, h264 = false, h041 = false, titulo = false;
  std::size_t i = etiquetas.find(records::kSeparadorCampo);
  while (i != std::string_view::npos) {
    const std::size_t inicio = i + 1;
    std::size_t fin = etiquetas.find_first_of(
        std::string_view("\xA6\xCC", 2), inicio);
    if (fin == std::string_view::npos) fin = etiquetas.size();
    const std::string_view campo = etiquetas.substr(inicio, fin - inicio);
    i = fin < etiquetas.size() && etiquetas[fin] == records::kSeparadorCampo ? fin : std::string_view::npos;
    if (campo.size() < 3) continue;
    const int n = Numero(campo.substr(0, 3));
    const std::string_view contenido = campo.substr(3);
    if (EsAutor(n) || EsTema(n)) {
      std::size_t p = 0;
      while (p <= contenido.size()) {
        std::size_t q = contenido.find('\\', p);
        if (q == std::string_view::npos) q = contenido.size();
        const std::string_view ocurrencia = Recorta(contenido.substr(p, q - p));
        if (EsTema(n)) {
          AgregaValor(d.temas, ocurrencia.substr(0, ocurrencia.find(" -- ")));
        } else {
          const std::string nombre = LimpiaEncabezado(ocurrencia);
          AgregaValor(d.autores, SinFechas(nombre));
        }
        p = q + 1;
      }
    } else if (n == 245 && !titulo) {
      titulo = true;
      const std::string_view primero = contenido.substr(0, contenido.find('\\'));
      d.titulo = ClaveOrden(primero.substr(0, primero.find(" / ")));
    } else if (n == 260 && !h260) {
      h260 = true;
      c260 = contenido;
    } else if (n == 264 && !h264) {
      h264 = true;
      c264 = contenido;
    } else if (n == 41 && !h041) {
      h041 = true;
      c041 = contenido;
    }
  }
  if (d.anio == 0) d.anio = UltimoAnio(h260 ? c260 : c264);
  if (d.anio == 0 && h260) d.anio = UltimoAnio(c264);
  if (d.idioma.empty()) d.idioma = Idioma(Recorta(c041));
  return d;
}

// --- the accumulator --------------------------------------------------------

namespace {

// The values of one facet as they come: each text its provisional number.
struct Diccionario {
  std::unordered_map<std::string, std::uint32_t> numeros;
  std::vector<std::string> claves, textos;

  std::uint32_t Numero(const std::string& clave, const std::string& texto) {
    const auto [it, nueva] = numeros.try_emplace(clave, static_cast<std::uint32_t>(claves.size()) + 1);
    if (nueva) {
      claves.push_back(clave);
      textos.push_back(texto);
    }
    return it->second;
  }

  // The final id of each provisional number (index 0 unused): 1, 2, 3...
  // in the order of the display texts' sort keys, then their bytes.
  std::vector<std::uint32_t> Ids() const {
    std::vector<std::pair<std::string, std::uint32_t>> orden;
    orden.reserve(textos.size());
    for (std::uint32_t i = 0; i < textos.size(); ++i) orden.emplace_back(ClaveOrden(textos[i]), i);
    std::sort(orden.begin(), orden.end(), [&](const auto& a, const auto& b) {
      if (a.first != b.first) return a.first < b.first;
      return textos[a.second] < textos[b.second];
    });
    std::vector<std::uint32_t> ids(textos.size() + 1, 0);
    for (std::uint32_t i = 0; i < orden.size(); ++i) ids[orden[i].second + 1] = i + 1;
    return ids;
  }
};

// Dense ranks (from 1) of `claves`, empty keys 0.
std::vector<std::uint32_t> Rangos(const std::vector<std::string>& claves) {
  std::vector<std::uint32_t> orden;
  for (std::uint32_t i = 0; i < claves.size(); ++i) {
    if (!claves[i].empty()) orden.push_back(i);
  }
  std::sort(orden.begin(), orden.end(),
            [&](std::uint32_t a, std::uint32_t b) { return claves[a] < claves[b]; });
  std::vector<std::uint32_t> rangos(claves.size(), 0);
  std::uint32_t rango = 0;
  for (std::size_t i = 0; i < orden.size(); ++i) {
    if (i == 0 || claves[orden[i]] != claves[orden[i - 1]]) ++rango;
    rangos[orden[i]] = rango;
  }
  return rangos;
}

// Binds a copy of `s`: the texts bound here are temporaries.
void TextoCopiado(sqlite3_stmt* st, int i, const std::string& s) {
  sqlite3_bind_text(st, i, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

}  // namespace

struct AcumuladorLector::Datos {
  std::vector<std::uint32_t> anio, idioma, tipo;
  std::vector<std::string> titulo, autor;
  std::vector<std::vector<std::uint32_t>> autores, temas;
  Diccionario idiomas, tipos, nombres, materias;

  void Crece(std::size_t n) {
    if (anio.size() >= n) return;
    anio.resize(n);
    idioma.resize(n);
    tipo.resize(n);
    titulo.resize(n);
    autor.resize(n);
    autores.resize(n);
    temas.resize(n);
  }
};

AcumuladorLector::AcumuladorLector() : d_(std::make_unique<Datos>()) {}
AcumuladorLector::~AcumuladorLector() = default;

void AcumuladorLector::Agrega(std::int32_t ficha, const DatosFicha& datos) {
  if (ficha < 1 || ficha > search::MapaFichas::kMaximaFicha) return;
  Datos& d = *d_;
  const auto f = static_cast<std::size_t>(ficha);
  d.Crece(f + 1);
  d.anio[f] = datos.anio;
  d.idioma[f] = datos.idioma.empty() ? 0 : d.idiomas.Numero(datos.idioma, NombreIdioma(datos.idioma));
  d.tipo[f] = 0;
  for (const TipoMaterialLector& t : TiposMaterial()) {
    if (t.clave == datos.tipo) {
      d.tipo[f] = d.tipos.Numero(std::string(t.clave), Latin1(t.nombre));
    }
  }
  d.titulo[f] = datos.titulo;
  d.autor[f] = datos.autores.empty() ? std::string() : ClaveOrden(datos.autores.front());
  const auto numeros = [](Diccionario& dic, const std::vector<std::string>& textos) {
    std::vector<std::uint32_t> v;
    for (const std::string& t : textos) {
      if (v.size() < kPorFicha && !t.empty()) v.push_back(dic.Numero(t, t));
    }
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
    return v;
  };
  d.autores[f] = numeros(d.nombres, datos.autores);
  d.temas[f] = numeros(d.materias, datos.temas);
}

void AcumuladorLector::Escribe(const std::string& ruta, const std::string& fuente) const {
  using search::Arreglo;
  const Datos& d = *d_;
  const std::size_t n = std::max<std::size_t>(d.anio.size(), 1);
  const auto por_ficha = [&](const std::vector<std::uint32_t>& origen,
                             const std::vector<std::uint32_t>& ids) {
    std::vector<std::uint32_t> v(n, 0);
    for (std::size_t f = 0; f < origen.size(); ++f) v[f] = ids.empty() ? origen[f] : ids[origen[f]];
    return v;
  };
  const auto maximo = [](const std::vector<std::uint32_t>& v) {
    return v.empty() ? 0u : *std::max_element(v.begin(), v.end());
  };
  std::vector<std::pair<std::string, std::string>> filas;
  filas.emplace_back("anio", Arreglo::Codifica(por_ficha(d.anio, {}), 10000));
  const std::vector<std::uint32_t> ids_idioma = d.idiomas.Ids(), ids_tipo = d.tipos.Ids();
  filas.emplace_back("idioma", Arreglo::Codifica(por_ficha(d.idioma, ids_idioma),
                                                 static_cast<std::uint32_t>(ids_idioma.size())));
  filas.emplace_back("tipo", Arreglo::Codifica(por_ficha(d.tipo, ids_tipo),
                                               static_cast<std::uint32_t>(ids_tipo.size())));
  for (const auto& [nombre, claves] : {std::pair{"titulo", &d.titulo}, std::pair{"autor", &d.autor}}) {
    const std::vector<std::uint32_t> rangos = por_ficha(Rangos(*claves), {});
    filas.emplace_back(nombre, Arreglo::Codifica(rangos, maximo(rangos) + 1));
  }
  const std::vector<std::uint32_t> ids_nombre = d.nombres.Ids(), ids_materia = d.materias.Ids();
  const auto csr = [&](const char* prefijo, const std::vector<std::vector<std::uint32_t>>& listas,
                       const std::vector<std::uint32_t>& ids) {
    std::vector<std::uint32_t> cuentas(n, 0), valores;
    for (std::size_t f = 0; f < listas.size(); ++f) {
      cuentas[f] = static_cast<std::uint32_t>(listas[f].size());
      std::vector<std::uint32_t> v;
      for (std::uint32_t x : listas[f]) v.push_back(ids[x]);
      std::sort(v.begin(), v.end());
      valores.insert(valores.end(), v.begin(), v.end());
    }
    filas.emplace_back(std::string(prefijo) + ".cuentas", Arreglo::Codifica(cuentas, 256));
    filas.emplace_back(std::string(prefijo) + ".valores",
                       Arreglo::Codifica(valores, static_cast<std::uint32_t>(ids.size())));
  };
  csr("autores", d.autores, ids_nombre);
  csr("temas", d.temas, ids_materia);
  if (!fuente.empty()) filas.emplace_back(std::string(search::kFilaFuente), fuente);

  Conexion base(ruta);
  base.Ejecuta("PRAGMA journal_mode=OFF");
  base.Ejecuta("PRAGMA synchronous=OFF");
  base.Ejecuta("BEGIN");
  const std::string tabla = std::string(search::kTablaLector);
  const std::string valores = std::string(search::kTablaValores);
  base.Ejecuta("DROP TABLE IF EXISTS \"" + tabla + "\"");
  base.Ejecuta("DROP TABLE IF EXISTS \"" + valores + "\"");
  base.Ejecuta("CREATE TABLE \"" + tabla +
               "\" (\"Nombre\" TEXT PRIMARY KEY, \"Datos\" BLOB NOT NULL)");
  base.Ejecuta("CREATE TABLE \"" + valores +
               "\" (\"Faceta\" TEXT NOT NULL, \"Id\" INTEGER NOT NULL, \"Clave\" TEXT NOT NULL, "
               "\"Texto\" TEXT NOT NULL, PRIMARY KEY (\"Faceta\", \"Id\")) WITHOUT ROWID");
  sqlite3_stmt* fila = base.Prepara("INSERT INTO \"" + tabla + "\" VALUES (?,?)");
  for (const auto& [nombre, bytes] : filas) {
    TextoCopiado(fila, 1, nombre);
    sqlite3_bind_blob(fila, 2, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
    base.Paso(fila);
  }
  sqlite3_stmt* valor = base.Prepara("INSERT INTO \"" + valores + "\" VALUES (?,?,?,?)");
  const CodePage& cp = CodePage::Windows1252();
  const auto escribe = [&](search::Faceta faceta, const Diccionario& dic,
                           const std::vector<std::uint32_t>& ids) {
    const std::string nombre(search::NombreFaceta(faceta));
    for (std::size_t i = 0; i < dic.claves.size(); ++i) {
      TextoCopiado(valor, 1, nombre);
      sqlite3_bind_int64(valor, 2, ids[i + 1]);
      TextoCopiado(valor, 3, cp.ToUtf8(dic.claves[i]));
      TextoCopiado(valor, 4, cp.ToUtf8(dic.textos[i]));
      base.Paso(valor);
    }
  };
  escribe(search::Faceta::kIdioma, d.idiomas, ids_idioma);
  escribe(search::Faceta::kTipo, d.tipos, ids_tipo);
  escribe(search::Faceta::kAutor, d.nombres, ids_nombre);
  escribe(search::Faceta::kTema, d.materias, ids_materia);
  base.Ejecuta("CREATE INDEX \"" + std::string(search::kIndiceClave) + "\" ON \"" + valores +
               "\" (\"Faceta\", \"Clave\")");
  base.Ejecuta("COMMIT");
  base.Cierra();
}

// --- the side file ----------------------------------------------------------

int EscribeLectorLateral(const std::string& directorio, std::ostream& mensajes, bool silencioso) {
  namespace fs = std::filesystem;
  constexpr const char* kPrograma = "orvex-catalogo: ";
  std::error_code ec;
  fs::path korvel;
  if (fs::is_regular_file(directorio, ec)) {
    korvel = directorio;
  } else {
    for (const fs::directory_entry& e : fs::directory_iterator(directorio, ec)) {
      if (EqualsIgnoringCase(e.path().filename().string(), "KORVEL8.MDB")) korvel = e.path();
    }
  }
  if (korvel.empty()) {
    mensajes << kPrograma << "no hay KORVEL8.MDB en " << directorio << '\n';
    return kSalidaFallo;
  }
  const fs::path destino = korvel.parent_path() / std::string(search::kArchivoLateral);
  const fs::path parcial = fs::path(destino.string() + ".parcial");
  try {
    const std::string fuente = search::IdentidadArchivo(korvel.string());
    if (fuente.empty()) throw ErrorCatalogo("no se puede leer " + korvel.string());
    AcumuladorLector acumulador;
    std::int64_t fichas = 0;
    {
      db::OpenOptions opciones;
      opciones.read_only = true;
      const std::unique_ptr<db::Database> base =
          db::OpenDatabase(korvel.string(), CodePage::Windows1252(), opciones);
      const std::unique_ptr<db::Recordset> rs =
          base->OpenRecordset("Fichas", db::RecordsetType::Table);
      for (; !rs->Eof(); rs->MoveNext()) {
        const double numero = LeadingNumber(rs->Field("Ficha_No").AsText());
        if (!(numero >= 1 && numero <= search::MapaFichas::kMaximaFicha)) continue;
        const auto ficha = static_cast<std::int32_t>(numero);
        acumulador.Agrega(ficha, DatosDeEtiquetas(rs->Field("EtiquetasMARC").AsText(),
                                                  rs->Field("DatosFijos").AsText(),
                                                  rs->Field("TipoMaterial").AsText()));
        ++fichas;
      }
    }
    fs::remove(parcial, ec);
    acumulador.Escribe(parcial.string(), fuente);
    fs::rename(parcial, destino);
    if (!silencioso) {
      mensajes << kPrograma << fichas << " libros de " << korvel.string() << " escritos en "
               << destino.string() << std::endl;
    }
    return kSalidaExito;
  } catch (const RuntimeError& e) {
    fs::remove(parcial, ec);
    mensajes << kPrograma << korvel.string() << ": " << CodePage::Windows1252().ToUtf8(e.what())
             << '\n';
  } catch (const std::exception& e) {
    fs::remove(parcial, ec);
    mensajes << kPrograma << e.what() << '\n';
  }
  return kSalidaFallo;
}

}  // namespace orvex::catalogo
