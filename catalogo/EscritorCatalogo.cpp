#include "catalogo/EscritorCatalogo.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <unordered_map>

#include "base/CodePage.h"
#include "catalogo/ConexionSqlite.h"
#include "search/ListasPalabras.h"
#include "search/Sugerencias.h"

namespace orvex::catalogo {
namespace {

void Inicia(Conexion& c) {
  c.Ejecuta("PRAGMA journal_mode=OFF");
  c.Ejecuta("PRAGMA synchronous=OFF");
  c.Ejecuta("PRAGMA locking_mode=EXCLUSIVE");
  c.Ejecuta("PRAGMA cache_size=-262144");
  c.Ejecuta("PRAGMA threads=2");
  c.Ejecuta("BEGIN");
}

void Texto(sqlite3_stmt* st, int i, const std::string& s) {
  sqlite3_bind_text(st, i, s.data(), static_cast<int>(s.size()), SQLITE_STATIC);
}

constexpr const char* kTablaPalabras =
    " (\"palabra\" VARCHAR(50), \"campo\" SMALLINT, \"ficha\" INTEGER, \"posicion\" SMALLINT)";

}  // namespace

struct EscritorCatalogo::Bases {
  explicit Bases(const std::string& dir)
      : korvel(dir + "/KORVEL8.MDB"),
        indizado(dir + "/INDIZADO.MDB"),
        indiza_pp(dir + "/indizaPP.MDB"),
        estadisticas(dir + "/estadisticas.mdb") {}

  Conexion korvel, indizado, indiza_pp, estadisticas;
  sqlite3_stmt* ficha = nullptr;
  sqlite3_stmt* ejemplar = nullptr;
  sqlite3_stmt* configuracion = nullptr;
  sqlite3_stmt* palabra = nullptr;
  sqlite3_stmt* revista = nullptr;
  sqlite3_stmt* analitica = nullptr;
  sqlite3_stmt* origen = nullptr;
  sqlite3_stmt* palabra_revista = nullptr;
  sqlite3_stmt* palabra_articulo = nullptr;
  std::string utf8;  // a word in UTF-8, reused

  // Every row of TABLA, for the word lists written at the end: the word as
  // a number into `palabras` (UTF-8).
  struct Fila {
    std::uint32_t palabra;
    std::int32_t ficha;
    std::int16_t posicion;
    std::int16_t campo;
  };
  std::vector<Fila> filas;
  std::vector<std::string> palabras;
  std::unordered_map<std::string, std::uint32_t> numeros;
};

EscritorCatalogo::EscritorCatalogo(const std::string& directorio)
    : bases_(std::make_unique<Bases>(directorio)) {
  Bases& b = *bases_;
  Inicia(b.korvel);
  b.korvel.Ejecuta(
      "CREATE TABLE \"Fichas\" (\"Ficha_No\" INTEGER PRIMARY KEY, \"Fecha\" DATETIME, "
      "\"FechaMod\" DATETIME, \"DatosFijos\" VARCHAR(255), \"EtiquetasMARC\" LONGTEXT, "
      "\"TipoMaterial\" VARCHAR(10))");
  b.korvel.Ejecuta(
      "CREATE TABLE \"Ejemplares\" (\"NumAdqui\" VARCHAR(15), \"Biblioteca\" VARCHAR(50), "
      "\"Ejemplar\" VARCHAR(10), \"Volumen\" VARCHAR(10), \"Tomo\" VARCHAR(10), "
      "\"Accesible\" VARCHAR(10), \"FechaIngreso\" DATETIME, \"Ficha_No\" INTEGER)");
  b.korvel.Ejecuta(
      "CREATE TABLE \"Configuracion\" (\"Descripción\" VARCHAR(50), \"Valor\" LONGTEXT)");
  b.korvel.Ejecuta(
      "CREATE TABLE \"Fichas Revistas\" (\"Ficha_no\" INTEGER PRIMARY KEY, "
      "\"EtiquetasMARC\" LONGTEXT)");
  b.korvel.Ejecuta(
      "CREATE TABLE \"Analiticas\" (\"ID\" INTEGER PRIMARY KEY, \"numadqui\" VARCHAR(15), "
      "\"EtiquetasMARC\" LONGTEXT)");
  b.korvel.Ejecuta(
      "CREATE TABLE \"ORVEX_MARC\" (\"Ficha_No\" INTEGER PRIMARY KEY, \"Formato\" TEXT NOT NULL, "
      "\"Registro\" BLOB NOT NULL)");
  b.ficha = b.korvel.Prepara("INSERT INTO \"Fichas\" VALUES (?,?,?,?,?,?)");
  b.origen = b.korvel.Prepara("INSERT INTO \"ORVEX_MARC\" VALUES (?,?,?)");
  b.ejemplar = b.korvel.Prepara("INSERT INTO \"Ejemplares\" VALUES (?,?,?,?,?,?,?,?)");
  b.configuracion = b.korvel.Prepara("INSERT INTO \"Configuracion\" VALUES (?,?)");
  b.revista = b.korvel.Prepara("INSERT INTO \"Fichas Revistas\" VALUES (?,?)");
  b.analitica = b.korvel.Prepara("INSERT INTO \"Analiticas\" VALUES (?,?,?)");

  Inicia(b.indizado);
  b.indizado.Ejecuta(std::string("CREATE TABLE \"TABLA\"") + kTablaPalabras);
  b.palabra = b.indizado.Prepara("INSERT INTO \"TABLA\" VALUES (?,?,?,?)");

  Inicia(b.indiza_pp);
  b.indiza_pp.Ejecuta(std::string("CREATE TABLE \"TABLA\"") + kTablaPalabras);
  b.indiza_pp.Ejecuta(std::string("CREATE TABLE \"TABLAANA\"") + kTablaPalabras);
  b.palabra_revista = b.indiza_pp.Prepara("INSERT INTO \"TABLA\" VALUES (?,?,?,?)");
  b.palabra_articulo = b.indiza_pp.Prepara("INSERT INTO \"TABLAANA\" VALUES (?,?,?,?)");

  Inicia(b.estadisticas);
  b.estadisticas.Ejecuta(
      "CREATE TABLE \"Consultas\" (\"Fecha\" DATETIME, \"Buscado\" VARCHAR(40), "
      "\"Encontrados\" INTEGER, \"AdvSearch\" VARCHAR(1), \"IP_Address\" VARCHAR(100))");
}

EscritorCatalogo::~EscritorCatalogo() = default;

void EscritorCatalogo::AgregaConfiguracion(const std::string& descripcion,
                                           const std::string& valor) {
  Bases& b = *bases_;
  Texto(b.configuracion, 1, descripcion);
  Texto(b.configuracion, 2, valor);
  b.korvel.Paso(b.configuracion);
}

void EscritorCatalogo::AgregaFicha(const FilaFicha& f) {
  Bases& b = *bases_;
  sqlite3_stmt* st = b.ficha;
  sqlite3_bind_int(st, 1, f.Ficha_No);
  Texto(st, 2, f.Fecha);
  if (f.FechaMod) {
    Texto(st, 3, *f.FechaMod);
  } else {
    sqlite3_bind_null(st, 3);
  }
  Texto(st, 4, f.DatosFijos);
  Texto(st, 5, f.EtiquetasMARC);
  Texto(st, 6, f.TipoMaterial);
  b.korvel.Paso(st);
}

void EscritorCatalogo::AgregaOrigen(std::int32_t ficha, FormatoOrigen formato,
                                    std::string_view registro) {
  static const std::string kISO2709 = "iso2709", kMARCXML = "marcxml";
  Bases& b = *bases_;
  sqlite3_stmt* st = b.origen;
  sqlite3_bind_int(st, 1, ficha);
  Texto(st, 2, formato == FormatoOrigen::kMARCXML ? kMARCXML : kISO2709);
  // A zero-length blob must still be a blob, not NULL.
  sqlite3_bind_blob(st, 3, registro.empty() ? "" : registro.data(),
                    static_cast<int>(registro.size()), SQLITE_STATIC);
  b.korvel.Paso(st);
}

void EscritorCatalogo::AgregaEjemplar(std::int32_t ficha, const Ejemplar& e) {
  Bases& b = *bases_;
  sqlite3_stmt* st = b.ejemplar;
  Texto(st, 1, e.NumAdqui);
  Texto(st, 2, e.Biblioteca);
  Texto(st, 3, e.Ejemplar);
  Texto(st, 4, e.Volumen);
  Texto(st, 5, e.Tomo);
  Texto(st, 6, e.Accesible);
  Texto(st, 7, e.FechaIngreso);
  sqlite3_bind_int(st, 8, ficha);
  b.korvel.Paso(st);
}

void EscritorCatalogo::AgregaRevista(std::int32_t ficha_no, const std::string& etiquetas) {
  Bases& b = *bases_;
  sqlite3_bind_int(b.revista, 1, ficha_no);
  Texto(b.revista, 2, etiquetas);
  b.korvel.Paso(b.revista);
}

void EscritorCatalogo::AgregaAnalitica(std::int32_t id, const std::string& numadqui,
                                       const std::string& etiquetas) {
  Bases& b = *bases_;
  sqlite3_bind_int(b.analitica, 1, id);
  Texto(b.analitica, 2, numadqui);
  Texto(b.analitica, 3, etiquetas);
  b.korvel.Paso(b.analitica);
}

void EscritorCatalogo::AgregaPalabras(Acervo acervo, std::int32_t ficha,
                                      const std::vector<PalabraIndice>& palabras) {
  // The UTF-8 form of each Windows-1252 byte.
  static const std::array<std::string, 256> utf8 = [] {
    std::array<std::string, 256> t;
    for (int i = 0; i < 256; ++i) {
      t[static_cast<std::size_t>(i)] =
          CodePage::Windows1252().ToUtf8(std::string(1, static_cast<char>(i)));
    }
    return t;
  }();
  Bases& b = *bases_;
  const bool libros = acervo == Acervo::kLibros;
  Conexion& base = libros ? b.indizado : b.indiza_pp;
  sqlite3_stmt* st = libros                          ? b.palabra
                     : acervo == Acervo::kRevistas ? b.palabra_revista
                                                   : b.palabra_articulo;
  sqlite3_bind_int(st, 3, ficha);
  for (const PalabraIndice& p : palabras) {
    b.utf8.clear();
    for (char c : p.palabra) {
      if (static_cast<unsigned char>(c) < 0x80) {
        b.utf8 += c;
      } else {
        b.utf8 += utf8[static_cast<unsigned char>(c)];
      }
    }
    Texto(st, 1, b.utf8);
    sqlite3_bind_int(st, 2, p.campo);
    sqlite3_bind_int(st, 4, p.posicion);
    base.Paso(st);
    if (!libros) continue;
    const auto [numero, nueva] =
        b.numeros.try_emplace(b.utf8, static_cast<std::uint32_t>(b.palabras.size()));
    if (nueva) b.palabras.push_back(b.utf8);
    b.filas.push_back({numero->second, ficha, p.posicion, p.campo});
  }
  palabras_ += static_cast<std::int64_t>(palabras.size());
}

// The word lists of TABLA (search/ListasPalabras.h) from the rows kept:
// sorted as the index FRASE sorts them (the words' UTF-8 bytes, record,
// position; rows equal in all three keep the order they came in), cut into
// chunks, then the row that puts them in force and the triggers that void
// them when anything changes the table.
void EscritorCatalogo::EscribeListas() {
  namespace listas = search::listas;
  Bases& b = *bases_;
  std::vector<std::uint32_t> orden(b.palabras.size());
  for (std::uint32_t i = 0; i < orden.size(); ++i) orden[i] = i;
  std::sort(orden.begin(), orden.end(),
            [&](std::uint32_t x, std::uint32_t y) { return b.palabras[x] < b.palabras[y]; });
  std::vector<std::uint32_t> rango(orden.size());
  for (std::uint32_t i = 0; i < orden.size(); ++i) rango[orden[i]] = i;
  std::stable_sort(b.filas.begin(), b.filas.end(), [&](const auto& x, const auto& y) {
    if (x.palabra != y.palabra) return rango[x.palabra] < rango[y.palabra];
    if (x.ficha != y.ficha) return x.ficha < y.ficha;
    return x.posicion < y.posicion;
  });

  const std::string tabla = "TABLA";
  b.indizado.Ejecuta("CREATE TABLE \"" + std::string(listas::kTablaListas) +
                     "\" (\"tabla\" TEXT NOT NULL, \"palabra\" TEXT NOT NULL, \"trozo\" INTEGER "
                     "NOT NULL, \"filas\" INTEGER NOT NULL, \"lista\" BLOB NOT NULL, PRIMARY KEY "
                     "(\"tabla\", \"palabra\", \"trozo\")) WITHOUT ROWID");
  b.indizado.Ejecuta("CREATE TABLE \"" + std::string(listas::kTablaVigencia) +
                     "\" (\"tabla\" TEXT PRIMARY KEY, \"filas\" INTEGER)");
  sqlite3_stmt* st = b.indizado.Prepara("INSERT INTO \"" + std::string(listas::kTablaListas) +
                                        "\" VALUES (?,?,?,?,?)");
  listas::Codificador trozo;
  int numero_trozo = 0;
  const auto escribe = [&](std::uint32_t palabra) {
    Texto(st, 1, tabla);
    Texto(st, 2, b.palabras[palabra]);
    sqlite3_bind_int(st, 3, numero_trozo++);
    sqlite3_bind_int(st, 4, trozo.Filas());
    sqlite3_bind_blob(st, 5, trozo.Bytes().data(), static_cast<int>(trozo.Bytes().size()),
                      SQLITE_STATIC);
    b.indizado.Paso(st);
    trozo.Limpia();
  };
  for (std::size_t i = 0; i < b.filas.size(); ++i) {
    const auto& f = b.filas[i];
    trozo.Agrega({f.ficha, f.posicion, f.campo});
    const bool ultima = i + 1 == b.filas.size() || b.filas[i + 1].palabra != f.palabra;
    if (ultima || trozo.Filas() == listas::kFilasPorTrozo) escribe(f.palabra);
    if (ultima) numero_trozo = 0;
  }
  EscribeVocabulario(tabla);
  b.indizado.Ejecuta("INSERT INTO \"" + std::string(listas::kTablaVigencia) + "\" VALUES ('" +
                     tabla + "', " + std::to_string(b.filas.size()) + ")");
  const std::pair<std::string_view, std::string_view> sucesos[] = {
      {"ALTA", "INSERT"}, {"BAJA", "DELETE"}, {"CAMBIO", "UPDATE"}};
  for (const auto& [suceso, sentencia] : sucesos) {
    b.indizado.Ejecuta("CREATE TRIGGER \"" + listas::Disparador(tabla, suceso) + "\" AFTER " +
                       std::string(sentencia) + " ON \"" + tabla + "\" BEGIN DELETE FROM \"" +
                       std::string(listas::kTablaVigencia) + "\" WHERE \"tabla\" = '" + tabla +
                       "'; END");
  }
  b.filas = {};
  b.numeros = {};
}

// The vocabulary of TABLA (search/Sugerencias.h) from the rows kept: each
// word in Windows-1252 with its row count, grouped by length and by whether
// it holds three or more digits. It is written
// before the row that puts the lists in force, and the same row and triggers
// guard it.
void EscritorCatalogo::EscribeVocabulario(const std::string& tabla) {
  namespace vocabulario = search::vocabulario;
  Bases& b = *bases_;
  std::vector<std::int64_t> cuentas(b.palabras.size(), 0);
  for (const auto& f : b.filas) ++cuentas[f.palabra];
  std::vector<std::pair<std::string, std::int64_t>> palabras;
  palabras.reserve(b.palabras.size());
  for (std::size_t i = 0; i < b.palabras.size(); ++i) {
    palabras.emplace_back(CodePage::Windows1252().FromUtf8(b.palabras[i]), cuentas[i]);
  }
  const std::string nombre(vocabulario::kTablaVocabulario);
  b.indizado.Ejecuta("CREATE TABLE \"" + nombre +
                     "\" (\"tabla\" TEXT NOT NULL, \"largo\" INTEGER NOT NULL, \"cifras\" INTEGER NOT "
                     "NULL, \"palabras\" BLOB NOT NULL, \"frecuencias\" BLOB NOT NULL, PRIMARY KEY "
                     "(\"tabla\", \"largo\", \"cifras\"))");
  sqlite3_stmt* st = b.indizado.Prepara("INSERT INTO \"" + nombre + "\" VALUES (?,?,?,?,?)");
  for (const vocabulario::Grupo& g : vocabulario::Agrupa(std::move(palabras))) {
    Texto(st, 1, tabla);
    sqlite3_bind_int(st, 2, g.largo);
    sqlite3_bind_int(st, 3, g.cifras ? 1 : 0);
    sqlite3_bind_blob(st, 4, g.palabras.data(), static_cast<int>(g.palabras.size()),
                      SQLITE_STATIC);
    sqlite3_bind_blob(st, 5, g.frecuencias.data(), static_cast<int>(g.frecuencias.size()),
                      SQLITE_STATIC);
    b.indizado.Paso(st);
  }
}

void EscritorCatalogo::Termina() {
  Bases& b = *bases_;
  b.korvel.Ejecuta("CREATE INDEX \"Ejemplares_NumAdqui\" ON \"Ejemplares\" (\"NumAdqui\")");
  b.korvel.Ejecuta("CREATE INDEX \"Ejemplares_Ficha_No\" ON \"Ejemplares\" (\"Ficha_No\")");
  b.indizado.Ejecuta(
      "CREATE INDEX \"TABLA_FRASE\" ON \"TABLA\" (\"palabra\", \"ficha\", \"posicion\")");
  EscribeListas();
  b.korvel.Ejecuta("CREATE INDEX \"Analiticas_numadqui\" ON \"Analiticas\" (\"numadqui\")");
  b.indiza_pp.Ejecuta(
      "CREATE INDEX \"TABLA_FRASE\" ON \"TABLA\" (\"palabra\", \"ficha\", \"posicion\")");
  b.indiza_pp.Ejecuta(
      "CREATE INDEX \"TABLAANA_FRASE\" ON \"TABLAANA\" (\"palabra\", \"ficha\", \"posicion\")");
  for (Conexion* c : {&b.korvel, &b.indizado, &b.indiza_pp, &b.estadisticas}) {
    c->Ejecuta("COMMIT");
    c->Cierra();
  }
}

}  // namespace orvex::catalogo
