// genera_indice: writes a synthetic book word index (table TABLA of
// INDIZADO.MDB, SQLite) large enough to time the search on: by default
// 100 000 records and about five million postings.
//
//   genera_indice OUT.MDB [records] [seed]
//
// The words follow the indexer's rules (upper case, vowel accents folded,
// positions consecutive inside a field and 10 skipped between fields and
// between occurrences) and a Zipf-like vocabulary, so that the benchmark
// finds what a real catalogue has:
//   - glue words (DE, LA, EL ...) in most records and subject words such as
//     HISTORIA and MEXICO in tens of thousands;
//   - a long tail of made-up words, each in a handful of records, and the
//     word QUETZALCOATL in exactly the records f with f % 20000 == 4321;
//   - the COMPUT... family (COMPUTACION, COMPUTADORA, COMPUTO ...) for
//     truncation;
//   - the phrase MEXICO ANTIGUO at consecutive positions in about 2% of the
//     titles, and ANTIGUO alone elsewhere.
// The output is deterministic for a given record count and seed. It is
// written to OUT.MDB.parcial and renamed when complete.

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unordered_set>
#include <vector>

#include "bench/Azar.h"

namespace {

// --- vocabulary ------------------------------------------------------------------

// Subject and title words, most frequent first.
const char kComunes[] =
    "HISTORIA EDUCACION MEXICO DESARROLLO SOCIEDAD POLITICA CULTURA ECONOMIA LITERATURA "
    "ARTE CIENCIA ANALISIS ESTUDIO TEORIA PRACTICA INTRODUCCION MANUAL GUIA PROBLEMAS "
    "DERECHO SALUD POBLACION NIÑOS MUJERES TRABAJO LENGUA ESPAÑOL FILOSOFIA "
    "ADMINISTRACION SISTEMAS COMPUTACION COMPUTADORAS COMPUTACIONAL COMPUTO COMPUTADORA "
    "QUIMICA FISICA MATEMATICAS BIOLOGIA AGRICULTURA MEDICINA PSICOLOGIA GEOGRAFIA "
    "ANTROPOLOGIA SOCIOLOGIA COMUNICACION TECNOLOGIA INFORMACION INVESTIGACION METODOS "
    "EVALUACION GESTION AMBIENTE AGUA TIERRA CIUDAD REGION NACIONAL SOCIAL ECONOMICA "
    "MEXICANA LATINA MODERNA CONTEMPORANEA COLONIAL REVOLUCION INDEPENDENCIA SIGLO EPOCA "
    "MUNDO VIDA OBRA POESIA NOVELA TEATRO CUENTOS ENSAYOS MEMORIAS CRONICA DICCIONARIO "
    "ATLAS ENCICLOPEDIA GRAMATICA ORTOGRAFIA ARITMETICA ALGEBRA GEOMETRIA CALCULO "
    "ESTADISTICA CONTABILIDAD FINANZAS MERCADO EMPRESA INDUSTRIA COMERCIO BANCO CREDITO "
    "IMPUESTOS PRESUPUESTO GOBIERNO ESTADO MUNICIPIO CONSTITUCION LEYES JUSTICIA CRIMEN "
    "CARCEL FAMILIA MATRIMONIO INFANCIA JUVENTUD VEJEZ MUERTE RELIGION IGLESIA FE MUSICA "
    "DANZA PINTURA ESCULTURA ARQUITECTURA FOTOGRAFIA CINE RADIO TELEVISION PRENSA "
    "PERIODISMO LIBROS BIBLIOTECAS LECTURA ESCRITURA ENSEÑANZA APRENDIZAJE ESCUELA "
    "UNIVERSIDAD MAESTROS ALUMNOS CURRICULO DIDACTICA PEDAGOGIA NUTRICION ALIMENTOS MAIZ "
    "FRIJOL CAFE CAÑA ALGODON GANADERIA PESCA BOSQUES SELVA DESIERTO MONTAÑA RIO LAGO "
    "MAR COSTA ISLA CLIMA LLUVIA SEQUIA ENERGIA PETROLEO ELECTRICIDAD MINERIA ORO PLATA "
    "COBRE HIERRO ACERO TRANSPORTE FERROCARRIL CARRETERAS PUERTOS AVIACION TURISMO "
    "MIGRACION FRONTERA INDIGENAS PUEBLOS COMUNIDADES CAMPESINOS OBREROS SINDICATOS "
    "MOVIMIENTOS PARTIDOS ELECCIONES DEMOCRACIA CIUDADANIA DERECHOS HUMANOS PAZ GUERRA "
    "EJERCITO CONFLICTO DIPLOMACIA RELACIONES INTERNACIONALES AMERICA EUROPA ESPAÑA "
    "FRANCIA ESTADOS UNIDOS GUATEMALA CUBA PERU CHILE ARGENTINA COLOMBIA VENEZUELA BRASIL "
    "OAXACA CHIAPAS YUCATAN JALISCO PUEBLA VERACRUZ MICHOACAN SONORA CHIHUAHUA ZACATECAS "
    "GUANAJUATO QUERETARO HIDALGO MORELOS TLAXCALA TABASCO CAMPECHE DURANGO NIÑO NIÑA "
    "AÑO AÑOS SEÑOR SEÑORA PEQUEÑO MAÑANA SUEÑO DISEÑO COMPAÑIA ENSEÑANZAS "
    "MONTAÑAS OTOÑO";
const char kNombres[] =
    "JOSE JUAN LUIS CARLOS JORGE MIGUEL PEDRO ANTONIO FRANCISCO MANUEL JAVIER RAFAEL "
    "FERNANDO ALEJANDRO RICARDO ROBERTO SERGIO EDUARDO ARTURO ENRIQUE MARIA GUADALUPE ANA "
    "ROSA CARMEN ELENA PATRICIA LAURA SILVIA TERESA MARTHA LUCIA SOFIA ISABEL BEATRIZ "
    "GABRIELA VERONICA ADRIANA LETICIA MONICA INES ANGEL JESUS RAMON RAUL OSCAR ANDRES "
    "MARTIN TOMAS NICOLAS";
const char kApellidos[] =
    "GARCIA HERNANDEZ MARTINEZ LOPEZ GONZALEZ PEREZ RODRIGUEZ SANCHEZ RAMIREZ CRUZ FLORES "
    "GOMEZ MORALES VAZQUEZ REYES JIMENEZ TORRES DIAZ GUTIERREZ RUIZ MENDOZA AGUILAR ORTIZ "
    "MORENO CASTILLO ROMERO ALVAREZ MENDEZ CHAVEZ RIVERA JUAREZ RAMOS DOMINGUEZ HERRERA "
    "MEDINA CASTRO VARGAS GUZMAN VELAZQUEZ MUÑOZ ROJAS CONTRERAS SALAZAR LUNA ORTEGA "
    "SANTIAGO GUERRERO ESTRADA BAUTISTA CORTES SOTO ALVARADO ESPINOZA LARA AVILA RIOS "
    "CERVANTES SILVA DELGADO VEGA MARQUEZ SANDOVAL CARRILLO LEON MEJIA SOLIS NUÑEZ ROSAS "
    "VALDEZ IBARRA CAMACHO NAVARRO PEÑA CAMPOS ZUÑIGA OROZCO ACOSTA TOLEDO FIGUEROA "
    "IBAÑEZ VILLASEÑOR CADENA MONTAÑO";

const char* const kEnlaces[] = {"DE",   "LA",  "EL",  "LOS",   "LAS", "DEL", "Y",  "EN",
                                "PARA", "POR", "CON", "SOBRE", "A",   "UNA", "UN", "SUS"};
const char* const kColas[] = {"EN EL SIGLO XX",         "EN MEXICO",
                              "DE AMERICA LATINA",      "PARA PRINCIPIANTES",
                              "Y SUS PROBLEMAS",        "DEL ESTADO",
                              "CONTEMPORANEA",          "EN LA EPOCA COLONIAL",
                              "DE LA REVOLUCION",       "Y SOCIEDAD",
                              "DEL MUNDO MODERNO",      "PARA NIÑOS",
                              "EN LA CIUDAD DE MEXICO", "Y DESARROLLO REGIONAL",
                              "DEL MUNDO ANTIGUO",      "EN EL ANTIGUO REGIMEN"};
const char* const kCiudades[] = {"MEXICO",   "GUADALAJARA", "MONTERREY",    "PUEBLA", "OAXACA",
                                 "MADRID",   "BARCELONA",   "BUENOS AIRES", "BOGOTA", "LIMA",
                                 "SANTIAGO", "LA HABANA",   "MERIDA",       "XALAPA", "MORELIA"};
const char* const kEditoriales[] = {"FONDO DE CULTURA ECONOMICA",
                                    "SIGLO XXI",
                                    "PORRUA",
                                    "TRILLAS",
                                    "LIMUSA",
                                    "ALIANZA",
                                    "PAIDOS",
                                    "GRIJALBO",
                                    "UNAM",
                                    "EL COLEGIO DE MEXICO",
                                    "PLANETA",
                                    "ANAGRAMA",
                                    "ERA",
                                    "JOAQUIN MORTIZ",
                                    "CATEDRA",
                                    "OCEANO"};
const char* const kSubdivisiones[] = {"HISTORIA",
                                      "ASPECTOS SOCIALES",
                                      "ASPECTOS ECONOMICOS",
                                      "ENSEÑANZA",
                                      "ESTUDIO Y ENSEÑANZA",
                                      "POLITICA GUBERNAMENTAL",
                                      "INVESTIGACION",
                                      "LEGISLACION",
                                      "ESTADISTICAS",
                                      "DICCIONARIOS",
                                      "CRITICA E INTERPRETACION",
                                      "SIGLO XX",
                                      "SIGLO XIX",
                                      "OBRAS DE DIVULGACION",
                                      "MANUALES",
                                      "ANTIGUEDADES"};
const char* const kGeograficos[] = {"MEXICO",         "AMERICA LATINA", "OAXACA MEXICO",
                                    "CHIAPAS MEXICO", "YUCATAN MEXICO", "JALISCO MEXICO",
                                    "ESPAÑA",         "GUATEMALA",      "ESTADOS UNIDOS",
                                    "CUBA",           "PERU",           "ARGENTINA"};
const char* const kClases[] = {"QA", "F", "PQ", "HD", "HN", "LB", "R", "TK", "Z", "GN", "JL", "BF"};
// Syllables of the made-up words.
const char* const kSilabas[] = {"TA",  "LO",  "MI",  "XO",  "CHI", "PAN", "TZI", "CA",  "NE", "RU",
                                "QUE", "BA",  "DO",  "GUA", "ZA",  "TLA", "NI",  "HUE", "MA", "PE",
                                "CO",  "YA",  "TE",  "SO",  "RI",  "NA",  "CU",  "LI",  "PO", "XI",
                                "TEC", "MOL", "ZIN", "JU",  "GI",  "VE",  "FA",  "BO",  "DE", "SU"};

constexpr const char* kPalabraRara = "QUETZALCOATL";

template <std::size_t N>
std::vector<std::string> Lista(const char* const (&a)[N]) {
  return std::vector<std::string>(a, a + N);
}

using orvex::bench::Azar;

// Draws from a list with weight 1 / rank^s.
class Zipf {
 public:
  Zipf(std::vector<std::string> palabras, double s) : palabras_(std::move(palabras)) {
    double total = 0;
    for (std::size_t i = 0; i < palabras_.size(); ++i) {
      total += 1.0 / std::pow(static_cast<double>(i + 1), s);
      acumulado_.push_back(total);
    }
    for (double& a : acumulado_) a /= total;
  }
  const std::string& Saca(Azar& azar) const {
    const auto it = std::lower_bound(acumulado_.begin(), acumulado_.end(), azar.Real());
    return palabras_[std::min<std::size_t>(static_cast<std::size_t>(it - acumulado_.begin()),
                                           palabras_.size() - 1)];
  }

 private:
  std::vector<std::string> palabras_;
  std::vector<double> acumulado_;
};

// The made-up words: two to four syllables, none equal to a real word.
std::vector<std::string> PalabrasInventadas(std::size_t cuantas, Azar& azar,
                                            const std::unordered_set<std::string>& reales) {
  std::unordered_set<std::string> vistas(reales);
  std::vector<std::string> out;
  const std::size_t n = std::size(kSilabas);
  while (out.size() < cuantas) {
    std::string w;
    const int silabas = azar.Entre(2, 4);
    for (int i = 0; i < silabas; ++i) w += kSilabas[azar.Siguiente() % n];
    if (w.rfind("COMPUT", 0) == 0 || !vistas.insert(w).second) continue;
    out.push_back(std::move(w));
  }
  return out;
}

// Splits a phrase of the lists on blanks.
std::vector<std::string> Palabras(const std::string& frase) {
  std::vector<std::string> out;
  std::size_t i = 0;
  while (i < frase.size()) {
    const std::size_t j = std::min(frase.find(' ', i), frase.size());
    if (j > i) out.push_back(frase.substr(i, j - i));
    i = j + 1;
  }
  return out;
}

// --- writing ---------------------------------------------------------------------

void Falla(sqlite3* db, const char* que) {
  std::fprintf(stderr, "genera_indice: %s: %s\n", que, db ? sqlite3_errmsg(db) : "?");
  std::exit(1);
}

void Ejecuta(sqlite3* db, const char* sql) {
  char* error = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
    std::fprintf(stderr, "genera_indice: %s: %s\n", sql, error ? error : "?");
    std::exit(1);
  }
}

// The postings of one record: words of the current field at consecutive
// positions; Cierra() ends an occurrence and skips 10 positions.
class Ficha {
 public:
  Ficha(sqlite3* db, sqlite3_stmt* inserta) : db_(db), inserta_(inserta) {}

  void Empieza(std::int32_t ficha) {
    ficha_ = ficha;
    posicion_ = 1;
    abierta_ = false;
  }
  void Campo(int campo) { campo_ = campo; }
  void Palabra(const std::string& w) {
    sqlite3_bind_text(inserta_, 1, w.data(), static_cast<int>(w.size()), SQLITE_STATIC);
    sqlite3_bind_int(inserta_, 2, campo_);
    sqlite3_bind_int(inserta_, 3, ficha_);
    sqlite3_bind_int(inserta_, 4, posicion_++);
    if (sqlite3_step(inserta_) != SQLITE_DONE) Falla(db_, "INSERT");
    sqlite3_reset(inserta_);
    abierta_ = true;
    ++filas_;
  }
  void Frase(const std::string& frase) {
    for (const std::string& w : Palabras(frase)) Palabra(w);
  }
  void Cierra() {
    if (abierta_) posicion_ += 10;
    abierta_ = false;
  }
  std::int64_t filas() const { return filas_; }

 private:
  sqlite3* db_;
  sqlite3_stmt* inserta_;
  std::int32_t ficha_ = 0;
  int campo_ = 0;
  int posicion_ = 1;
  bool abierta_ = false;
  std::int64_t filas_ = 0;
};

std::string Digitos(Azar& azar, int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += static_cast<char>('0' + azar.Siguiente() % 10);
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "uso: genera_indice SALIDA.MDB [fichas] [semilla]\n");
    return 2;
  }
  const std::string salida = argv[1];
  const std::int32_t fichas = argc > 2 ? std::atoi(argv[2]) : 100000;
  const std::uint64_t semilla = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1957;
  if (fichas < 1 || fichas > 800008) {
    std::fprintf(stderr, "genera_indice: fichas fuera de 1 a 800008\n");
    return 2;
  }
  const auto inicio = std::chrono::steady_clock::now();

  Azar azar(semilla);
  const std::vector<std::string> comunes = Palabras(kComunes);
  std::unordered_set<std::string> reales(comunes.begin(), comunes.end());
  for (const char* w : kEnlaces) reales.insert(w);
  reales.insert(kPalabraRara);
  const std::vector<std::string> inventadas = PalabrasInventadas(60000, azar, reales);
  const Zipf temas(comunes, 0.9);
  const Zipf enlaces(Lista(kEnlaces), 1.1);
  const std::vector<std::string> nombres = Palabras(kNombres), apellidos = Palabras(kApellidos),
                                 colas = Lista(kColas), ciudades = Lista(kCiudades),
                                 editoriales = Lista(kEditoriales),
                                 subdivisiones = Lista(kSubdivisiones),
                                 geograficos = Lista(kGeograficos), clases = Lista(kClases);
  const std::string rara = kPalabraRara, mexico = "MEXICO", antiguo = "ANTIGUO",
                    coleccion = "COLECCION", bibliografia = "BIBLIOGRAFIA", p = "P";
  std::vector<std::string> enlaceFrase = {"EN", "EL"};

  // A word of running text: mostly the vocabulary, sometimes the tail.
  auto palabraTexto = [&]() -> const std::string& {
    return azar.Prob(0.7) ? temas.Saca(azar) : azar.Uno(inventadas);
  };

  const std::string parcial = salida + ".parcial";
  std::remove(parcial.c_str());
  sqlite3* db = nullptr;
  if (sqlite3_open(parcial.c_str(), &db) != SQLITE_OK) Falla(db, parcial.c_str());
  Ejecuta(db, "PRAGMA journal_mode=OFF");
  Ejecuta(db, "PRAGMA synchronous=OFF");
  Ejecuta(db, "PRAGMA cache_size=-262144");
  Ejecuta(db,
          "CREATE TABLE \"TABLA\" (\"palabra\" VARCHAR(50), \"campo\" SMALLINT, "
          "\"ficha\" INTEGER, \"posicion\" SMALLINT)");
  Ejecuta(db, "BEGIN");
  sqlite3_stmt* inserta = nullptr;
  if (sqlite3_prepare_v2(db, "INSERT INTO \"TABLA\" VALUES (?, ?, ?, ?)", -1, &inserta, nullptr) !=
      SQLITE_OK) {
    Falla(db, "INSERT");
  }

  Ficha r(db, inserta);
  std::string texto;  // words made for one record (ISBN, call number, year)
  for (std::int32_t f = 1; f <= fichas; ++f) {
    r.Empieza(f);
    const int anio = azar.Entre(1950, 2010);
    // 020: ISBN
    if (azar.Prob(0.7)) {
      r.Campo(4);
      texto = "978" + Digitos(azar, 10);
      r.Palabra(texto);
      r.Cierra();
    }
    // 050: call number, one word without blanks or dots
    if (azar.Prob(0.95)) {
      r.Campo(7);
      texto = azar.Uno(clases) + std::to_string(azar.Entre(1, 9999)) +
              char('A' + azar.Entre(0, 25)) + std::to_string(azar.Entre(10, 99)) +
              std::to_string(anio);
      r.Palabra(texto);
      r.Cierra();
    }
    // 100: author
    const std::string& ape1 = azar.Uno(apellidos);
    const std::string& ape2 = azar.Uno(apellidos);
    const std::string& nom = azar.Uno(nombres);
    if (azar.Prob(0.9)) {
      r.Campo(2);
      r.Palabra(ape1);
      r.Palabra(ape2);
      r.Palabra(nom);
      r.Cierra();
    }
    // 245: title, subtitle and statement of responsibility
    r.Campo(1);
    const int nt = azar.Entre(2, 6);
    for (int k = 0; k < nt; ++k) {
      r.Palabra(palabraTexto());
      if (k < nt - 1 && azar.Prob(0.5)) r.Palabra(enlaces.Saca(azar));
    }
    if (azar.Prob(0.02)) {
      for (const std::string& w : enlaceFrase) r.Palabra(w);
      r.Palabra(mexico);
      r.Palabra(antiguo);
    } else if (azar.Prob(0.3)) {
      r.Frase(azar.Uno(colas));
    }
    if (azar.Prob(0.4)) {
      const int ns = azar.Entre(1, 4);
      for (int k = 0; k < ns; ++k) r.Palabra(palabraTexto());
    }
    r.Palabra(nom);
    r.Palabra(ape1);
    r.Palabra(ape2);
    r.Cierra();
    // 260: publisher
    r.Campo(5);
    r.Frase(azar.Uno(ciudades));
    r.Frase(azar.Uno(editoriales));
    texto = std::to_string(anio);
    r.Palabra(texto);
    r.Cierra();
    // 490: series, another title occurrence
    if (azar.Prob(0.15)) {
      r.Campo(1);
      r.Palabra(coleccion);
      r.Palabra(temas.Saca(azar));
      r.Cierra();
    }
    // 500, 504, 520: notes
    r.Campo(8);
    if (azar.Prob(0.3)) {
      const int n = azar.Entre(4, 14);
      for (int k = 0; k < n; ++k) r.Palabra(azar.Prob(0.6) ? palabraTexto() : enlaces.Saca(azar));
      r.Cierra();
    }
    if (azar.Prob(0.5)) {
      r.Palabra(bibliografia);
      r.Palabra(p);
      texto = std::to_string(azar.Entre(100, 400));
      r.Palabra(texto);
      texto = std::to_string(azar.Entre(401, 500));
      r.Palabra(texto);
      r.Cierra();
    }
    if (azar.Prob(0.5)) {
      const int n = azar.Entre(15, 60);
      for (int k = 0; k < n; ++k) r.Palabra(azar.Prob(0.6) ? palabraTexto() : enlaces.Saca(azar));
      r.Cierra();
    }
    // 650, 651: subjects
    r.Campo(3);
    const int nm = azar.Entre(1, 3);
    for (int k = 0; k < nm; ++k) {
      r.Palabra(temas.Saca(azar));
      if (azar.Prob(0.4)) r.Palabra(palabraTexto());
      if (azar.Prob(0.5)) r.Frase(azar.Uno(geograficos));
      if (azar.Prob(0.6)) r.Frase(azar.Uno(subdivisiones));
      r.Cierra();
    }
    if (azar.Prob(0.2)) {
      r.Frase(azar.Uno(geograficos));
      r.Frase(azar.Uno(subdivisiones));
      r.Cierra();
    }
    if (f % 20000 == 4321) {
      r.Palabra(rara);
      r.Cierra();
    }
    // 700: added authors
    r.Campo(2);
    const int na = std::vector<int>{0, 0, 0, 1, 1, 2}[azar.Siguiente() % 6];
    for (int k = 0; k < na; ++k) {
      r.Palabra(azar.Uno(apellidos));
      r.Palabra(azar.Uno(apellidos));
      r.Palabra(azar.Uno(nombres));
      r.Cierra();
    }
  }
  sqlite3_finalize(inserta);
  Ejecuta(db, "COMMIT");
  const auto insertadas = std::chrono::steady_clock::now();
  Ejecuta(db, "CREATE INDEX \"TABLA_FRASE\" ON \"TABLA\" (\"palabra\", \"ficha\", \"posicion\")");
  if (sqlite3_close(db) != SQLITE_OK) Falla(db, "close");
  if (std::rename(parcial.c_str(), salida.c_str()) != 0) {
    std::perror(salida.c_str());
    return 1;
  }
  const auto fin = std::chrono::steady_clock::now();
  const auto seg = [](auto a, auto b) { return std::chrono::duration<double>(b - a).count(); };
  std::printf("%s: %d fichas, %lld filas; %.1f s insertando, %.1f s el indice\n", salida.c_str(),
              fichas, static_cast<long long>(r.filas()), seg(inicio, insertadas),
              seg(insertadas, fin));
  return 0;
}
