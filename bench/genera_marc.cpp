// genera_marc: writes N synthetic MARC 21 bibliographic records in ISO 2709
// (UTF-8), the catalogue that bench/side-by-side serves from Orvex and Zebra.
//
//   genera_marc N SALIDA.mrc [semilla]
//
// The records are books (leader/07 "m", so orvex-catalogo files them as
// books) of a Spanish-language academic library in Oaxaca: 001, 003, 005,
// 008 (year, place, language "spa" but for some English books), 020 on most
// books after 1970 (ISBN-10 before 2007, ISBN-13 from then, check digits
// right), 040, 050 or 082, 100 (Spanish names, Villaseñor among the
// surnames) or now and then 110, 245, 250, 260 (AACR2) or 264 with 336-338
// (RDA, from 2012 on), 300, 490, 500, 504, 520, several 650, 651, 700 and
// 852 (one to three copies, each with its own barcode).
//
// The words are what the side-by-side queries look for:
//   - each record has a subject area (history, education, computing...)
//     that gives its call number, its first subject heading and often the
//     first word of its title; the areas and the words inside each follow
//     Zipf-like laws, so that at 100 000 records a few words are in tens of
//     thousands of records and most in few;
//   - glue words (de, la, el, y...) between the title words, the article
//     chosen by the word's gender;
//   - "historia" and "México" in most of the collection (titles, the
//     subdivision "Historia", "México" in places and subjects), "Oaxaca",
//     the library's region, in about half of it (titles, places of
//     publication, geographic subjects);
//   - the phrases "historia de México" (titles) and "América Latina"
//     (titles, subjects);
//   - the family computación, computadora(s), cómputo, computacional for
//     truncation;
//   - "Revolución" in some 3% of the titles, and in subject periods;
//   - a long tail of made-up names of towns (two to four syllables) in
//     titles, subjects and summaries, most of them in one record or two.
//
// The output depends only on N and the seed (default 2709): the random
// numbers are splitmix64 and every draw is integer arithmetic, so the bytes
// are the same on any machine. The file is written to SALIDA.mrc.parcial and
// renamed when complete. Exit status 0 on success, 1 when the file cannot be
// written, 2 on bad usage.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "bench/Azar.h"

namespace {

// --- random numbers ------------------------------------------------------------

using orvex::bench::Azar;

// Draws from a list, the i-th item (from 0) with weight 1 / (i + desplazamiento):
// a Zipf-like law whose head flattens as the shift grows. The weights are
// integers, so the draws do not depend on the machine's floating point.
template <class T>
class Zipf {
 public:
  Zipf(std::vector<T> lista, std::uint64_t desplazamiento) : lista_(std::move(lista)) {
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < lista_.size(); ++i) {
      total += (std::uint64_t{1} << 32) / (i + desplazamiento);
      acumulado_.push_back(total);
    }
  }
  const T& Saca(Azar& azar) const {
    const std::uint64_t r = azar.Menor(acumulado_.back());
    const auto it = std::upper_bound(acumulado_.begin(), acumulado_.end(), r);
    return lista_[static_cast<std::size_t>(it - acumulado_.begin())];
  }

 private:
  std::vector<T> lista_;
  std::vector<std::uint64_t> acumulado_;
};

// --- ISO 2709 ----------------------------------------------------------------------

// Appends `n` in `digitos` decimal digits, zero-padded.
void Digitos(std::string& s, std::size_t n, int digitos) {
  char buf[24];
  for (int i = digitos - 1; i >= 0; --i) {
    buf[i] = static_cast<char>('0' + n % 10);
    n /= 10;
  }
  s.append(buf, static_cast<std::size_t>(digitos));
}

// One record being written: control fields, data fields opened with their
// indicators, given their subfields and closed, then the whole record with
// its leader. Lengths and positions are in bytes, as ISO 2709 counts them.
class RegistroISO {
 public:
  void Empieza() {
    directorio_.clear();
    datos_.clear();
    cabe_ = true;
  }
  void Control(std::string_view etiqueta, std::string_view datos) {
    const std::size_t inicio = datos_.size();
    datos_ += datos;
    Cierra(etiqueta, inicio);
  }
  void Abre(std::string_view etiqueta, char ind1, char ind2) {
    etiqueta_ = etiqueta;
    inicio_ = datos_.size();
    datos_ += ind1;
    datos_ += ind2;
  }
  void Sub(char codigo, std::string_view valor) {
    datos_ += '\x1F';
    datos_ += codigo;
    datos_ += valor;
  }
  void Cierra() { Cierra(etiqueta_, inicio_); }

  // Appends the record to `salida`: leader (status "n", type "a", level "m",
  // UTF-8, positions 17 and 18 as given, entry map 4500), directory, fields
  // and record terminator. False when the record outgrows the format's
  // 99 999 bytes or a field its 9 999.
  bool Escribe(std::string& salida, char nivel_codificacion, char forma_catalogacion) const {
    const std::size_t base = 24 + directorio_.size() + 1;
    const std::size_t total = base + datos_.size() + 1;
    if (!cabe_ || total > 99999) return false;
    Digitos(salida, total, 5);
    salida += "nam a22";
    Digitos(salida, base, 5);
    salida += nivel_codificacion;
    salida += forma_catalogacion;
    salida += " 4500";
    salida += directorio_;
    salida += '\x1E';
    salida += datos_;
    salida += '\x1D';
    return true;
  }

 private:
  void Cierra(std::string_view etiqueta, std::size_t inicio) {
    datos_ += '\x1E';
    const std::size_t largo = datos_.size() - inicio;
    if (largo > 9999 || inicio > 99999) cabe_ = false;
    directorio_ += etiqueta;
    Digitos(directorio_, largo, 4);
    Digitos(directorio_, inicio, 5);
  }

  std::string directorio_, datos_;
  std::string_view etiqueta_;
  std::size_t inicio_ = 0;
  bool cabe_ = true;
};

// --- vocabulary ----------------------------------------------------------------------

// The items of `texto` separated by `separador`.
std::vector<std::string_view> Lista(std::string_view texto, char separador = '|') {
  std::vector<std::string_view> out;
  std::size_t i = 0;
  while (i < texto.size()) {
    const std::size_t j = std::min(texto.find(separador, i), texto.size());
    if (j > i) out.push_back(texto.substr(i, j - i));
    i = j + 1;
  }
  return out;
}

// Title and summary words, most frequent first.
const std::vector<std::string_view> kVocabulario = Lista(
    "historia educación desarrollo sociedad política cultura economía literatura arte ciencia "
    "análisis estudio teoría práctica introducción manual guía problemas derecho salud "
    "población niños mujeres trabajo lengua filosofía administración sistemas computación "
    "química física matemáticas biología agricultura medicina psicología geografía antropología "
    "sociología comunicación tecnología información investigación métodos evaluación gestión "
    "ambiente agua tierra ciudad región revolución independencia siglo época mundo vida obra "
    "computadoras poesía novela teatro cuentos ensayos memorias crónica diccionario atlas "
    "gramática aritmética álgebra geometría cálculo estadística contabilidad finanzas mercado "
    "empresa industria comercio crédito impuestos gobierno estado municipio constitución leyes "
    "justicia cómputo familia matrimonio infancia juventud muerte religión iglesia música danza "
    "pintura escultura arquitectura fotografía cine radio prensa periodismo libros bibliotecas "
    "lectura escritura enseñanza aprendizaje escuela universidad maestros currículo didáctica "
    "pedagogía computadora nutrición alimentos maíz frijol café caña algodón ganadería pesca "
    "bosques selva montaña río costa clima lluvia energía petróleo minería plata transporte "
    "ferrocarril caminos turismo migración frontera indígenas pueblos comunidades campesinos "
    "obreros sindicatos movimientos partidos elecciones democracia ciudadanía derechos paz "
    "guerra conflicto diplomacia relaciones artesanías textiles mercados fiestas tradiciones "
    "mitos leyendas computacional códices arqueología lenguas zapotecos mixtecos mixes "
    "chinantecos mazatecos",
    ' ');

// What joins the words of a title or a summary, most frequent first; the
// articles (el, la, los, las) come with the nouns.
const std::vector<std::string_view> kConectores = Lista("de y en para sobre con por", ' ');

// Places, the library's region first; the article, when the name takes one,
// is part of it.
const std::vector<std::string_view> kLugares = Lista(
    "Oaxaca|México|América Latina|la Mixteca|la Sierra Juárez|Chiapas|el Istmo de Tehuantepec|"
    "Guerrero|la Ciudad de México|Puebla|Veracruz|Yucatán|la Costa Chica|Juchitán|Tlaxiaco|Mitla|"
    "Monte Albán|Guatemala|España|Cuba|Perú|Mesoamérica|la Nueva España");

// Endings of titles, most frequent first.
const std::vector<std::string_view> kColas = Lista(
    "en Oaxaca|en México|de Oaxaca|en América Latina|en el siglo XX|de América Latina|"
    "en la época colonial|de la Revolución|en el siglo XIX|y sociedad|del México contemporáneo|"
    "en la Mixteca|para niños|y desarrollo regional|en la ciudad de Oaxaca|en el México actual");

const std::vector<std::string_view> kSubtitulos = Lista(
    "un estudio de caso|antología|ensayos|análisis y perspectivas|siglos XVI-XIX|"
    "una visión histórica|teoría y práctica|textos y documentos|1910-1920|manual para el maestro|"
    "una propuesta metodológica|memoria del coloquio|nuevas perspectivas|balance y perspectivas|"
    "fuentes para su estudio|guía para el estudiante");

const std::vector<std::string_view> kHistoriaDeMexico = Lista(
    "Historia de México|Nueva historia de México|Compendio de historia de México|"
    "Lecturas de historia de México|Temas de historia de México|Síntesis de historia de México");

const std::vector<std::string_view> kRevolucion = Lista(
    "La Revolución en Oaxaca|La Revolución Mexicana|Oaxaca en la Revolución|"
    "La Revolución Mexicana en Oaxaca|Historia de la Revolución|Los años de la Revolución|"
    "Crónica de la Revolución en la Sierra Juárez|Maestros y campesinos en la Revolución");

// Openings of summaries (520), and the word that joins them to what follows.
const std::vector<std::pair<std::string_view, std::string_view>> kAperturas = {
    {"Estudio", "sobre"},
    {"Análisis", "de"},
    {"Este libro examina", ""},
    {"Se presenta un panorama", "de"},
    {"Recopilación de textos", "sobre"},
    {"La obra aborda", ""},
    {"Investigación", "sobre"},
    {"Reúne trabajos acerca", "de"}};

// English titles, for the few English books.
const std::vector<std::string_view> kVocabularioIngles = Lista(
    "history education development society politics culture economy art indigenous peoples "
    "language music land revolution women migration religion computing archaeology",
    ' ');
const std::vector<std::string_view> kLugaresIngles =
    Lista("Mexico|Oaxaca|Latin America|Mesoamerica|the Mixteca");

// Names.
const std::vector<std::string_view> kNombresHombre = Lista(
    "José Juan Luis Carlos Jorge Miguel Pedro Antonio Francisco Manuel Javier Rafael Fernando "
    "Alejandro Ricardo Roberto Sergio Eduardo Arturo Enrique Ángel Jesús Ramón Raúl Óscar Andrés "
    "Martín Tomás Nicolás",
    ' ');
const std::vector<std::string_view> kNombresMujer = Lista(
    "María Guadalupe Ana Rosa Carmen Elena Patricia Laura Silvia Teresa Martha Lucía Sofía Isabel "
    "Beatriz Gabriela Verónica Adriana Leticia Mónica Inés",
    ' ');
const std::vector<std::string_view> kApellidos = Lista(
    "García Hernández Martínez López González Pérez Rodríguez Sánchez Ramírez Cruz Flores Gómez "
    "Morales Vázquez Reyes Jiménez Torres Díaz Gutiérrez Ruiz Mendoza Aguilar Ortiz Moreno "
    "Castillo Romero Álvarez Méndez Chávez Rivera Juárez Ramos Domínguez Herrera Medina Castro "
    "Vargas Guzmán Velázquez Muñoz Rojas Contreras Salazar Luna Ortega Santiago Guerrero Estrada "
    "Bautista Cortés Soto Alvarado Espinoza Lara Ávila Ríos Cervantes Silva Delgado Vega Márquez "
    "Sandoval Carrillo León Mejía Solís Núñez Rosas Valdez Ibarra Camacho Navarro Peña Campos "
    "Zúñiga Orozco Acosta Toledo Figueroa Ibáñez Villaseñor Cadena Montaño Matus Pineda",
    ' ');

// Corporate authors (110), for some of the records without a personal author.
const std::vector<std::string_view> kInstituciones = Lista(
    "Universidad Autónoma Benito Juárez de Oaxaca|Instituto Nacional de Antropología e Historia|"
    "Comisión Económica para América Latina y el Caribe|"
    "Instituto Nacional de Estadística y Geografía|"
    "Oaxaca (México : Estado). Secretaría de Educación");

// Subject headings: subdivisions, geographic names and periods, most
// frequent first.
const std::vector<std::string_view> kSubdivisiones = Lista(
    "Historia|Condiciones sociales|Política y gobierno|Aspectos sociales|Aspectos económicos|"
    "Estudio y enseñanza|Vida social y costumbres|Crítica e interpretación|Legislación|"
    "Estadísticas|Investigación|Diccionarios|Obras de divulgación|Manuales");
const std::vector<std::string_view> kGeograficos = Lista(
    "Oaxaca (México)|México|América Latina|Oaxaca (México : Estado)|Mixteca (México)|"
    "Chiapas (México)|Istmo de Tehuantepec (México)|Guerrero (México)|Yucatán (México)|"
    "Puebla (México : Estado)|Veracruz (México : Estado)|Guatemala|España|Estados Unidos");
const std::vector<std::string_view> kPeriodos = Lista(
    "Siglo XX|Siglo XIX|Época colonial, 1521-1810|Revolución, 1910-1920|Siglo XXI|Siglo XVI|"
    "1940-1970");

// A subject area: its title words (most frequent first), its subject
// headings, its call number classes.
struct Area {
  std::vector<std::string_view> palabras, encabezamientos;
  std::string_view lc, dewey;
};

// The areas, most frequent first.
const std::vector<Area> kAreas = {
    {Lista("historia|crónica|memorias|documentos|archivo"),
     Lista("Historia local|Historia social|Historiografía|Archivos"), "F1321", "972.74"},
    {Lista("educación|enseñanza|escuela|maestros|pedagogía|didáctica|aprendizaje"),
     Lista("Educación|Educación indígena|Educación rural|Maestros|Enseñanza primaria|"
           "Educación superior"),
     "LA422", "370.972"},
    {Lista("computación|computadoras|cómputo|programación|sistemas de información|"
           "redes de computadoras|bases de datos"),
     Lista("Computadoras|Computación|Programación (Computadoras)|Redes de computadoras|"
           "Bases de datos|Sistemas de información"),
     "QA76", "004"},
    {Lista("zapotecos|mixtecos|pueblos indígenas|comunidades|etnografía|identidad"),
     Lista("Zapotecos|Mixtecos|Indios de México|Mixes|Chatinos|Etnología"), "F1221", "305.897"},
    {Lista("economía|desarrollo|mercado|comercio|finanzas|crecimiento"),
     Lista("Desarrollo económico|Economía|Comercio|Política económica|Mercados"), "HC137",
     "330.972"},
    {Lista("política|gobierno|elecciones|democracia|partidos|municipio"),
     Lista("Partidos políticos|Elecciones|Democracia|Gobierno municipal"), "JL1281", "320.972"},
    {Lista("cuentos|poesía|novela|teatro|ensayos|antología"),
     Lista("Literatura mexicana|Cuentos mexicanos|Poesía mexicana|Novela mexicana"), "PQ7297",
     "M863"},
    {Lista("agricultura|maíz|café|milpa|campesinos|tierra"),
     Lista("Agricultura|Maíz|Café|Campesinos|Tenencia de la tierra"), "S477", "630.972"},
    {Lista("arte|pintura|arquitectura|artesanías|textiles|fotografía"),
     Lista("Arte mexicano|Pintura mexicana|Arquitectura colonial|Artesanías|Textiles"), "N6550",
     "709.72"},
    {Lista("salud|medicina tradicional|nutrición|enfermedades"),
     Lista("Salud pública|Medicina tradicional|Nutrición|Plantas medicinales"), "RA450", "362.1"},
    {Lista("lengua|gramática|vocabulario|diccionario|lenguas"),
     Lista("Lengua zapoteca|Lenguas indígenas|Lengua mixteca|Lingüística|Español (Lengua)"),
     "PM4196", "497.6"},
    {Lista("derecho|leyes|constitución|justicia|derechos"),
     Lista("Derecho constitucional|Derechos humanos|Derecho agrario|Legislación"), "KGF", "342.72"},
    {Lista("ecología|recursos naturales|bosques|agua|flora|fauna"),
     Lista("Ecología|Recursos naturales|Bosques y silvicultura|Flora|Fauna"), "QH107", "508.72"},
    {Lista("matemáticas|álgebra|cálculo|geometría|estadística|aritmética"),
     Lista("Matemáticas|Álgebra|Cálculo|Estadística"), "QA39", "510"},
    {Lista("migración|sociedad|familia|mujeres|juventud|movimientos sociales"),
     Lista("Migración interna|Emigración e inmigración|Mujeres|Movimientos sociales|Familia"),
     "HN120", "306.0972"},
    {Lista("arqueología|códices|zonas arqueológicas|cerámica"),
     Lista("Arqueología|Códices|Antigüedades|Monte Albán (Sitio arqueológico)"), "F1219", "972.01"},
    {Lista("religión|iglesia|fiestas|tradiciones|santos"),
     Lista("Iglesia Católica|Fiestas religiosas|Religión|Conventos"), "BX1428", "282.72"},
    {Lista("administración|empresa|gestión|contabilidad|recursos humanos"),
     Lista("Administración de empresas|Contabilidad|Pequeñas y medianas empresas|Gestión"), "HD70",
     "658"},
    {Lista("música|danza|bandas|sones|fiestas"),
     Lista("Música popular|Danza|Bandas (Música)|Guelaguetza"), "ML210", "780.972"},
    {Lista("filosofía|psicología|ética|pensamiento"), Lista("Filosofía mexicana|Psicología|Ética"),
     "B1019", "199.72"}};

// A place of publication: as AACR2 and RDA write it, its MARC country code
// (008/15-17), its ISBN groups (ISBN-10, and ISBN-13 after 978) and its
// publishers.
struct Editorial {
  std::string_view aacr2, rda, pais, grupo10, grupo13;
  std::vector<std::string_view> editoriales;
};

// Most frequent first.
const std::vector<Editorial> kEditoriales = {
    {"México", "Ciudad de México", "mx ", "968", "607",
     Lista("Fondo de Cultura Económica|Siglo XXI Editores|Porrúa|Trillas|Limusa|"
           "El Colegio de México|Universidad Nacional Autónoma de México|"
           "Instituto Nacional de Antropología e Historia|Ediciones Era|Grijalbo|CIESAS")},
    {"Oaxaca, Oax.", "Oaxaca de Juárez, Oaxaca", "mx ", "968", "607",
     Lista("Universidad Autónoma Benito Juárez de Oaxaca|Instituto Oaxaqueño de las Culturas|"
           "Gobierno del Estado de Oaxaca|Carteles Editores|Fondo Editorial IEEPO|"
           "CIESAS Pacífico Sur")},
    {"Madrid", "Madrid", "sp ", "84", "84", Lista("Alianza|Cátedra|Tecnos|Akal|Síntesis")},
    {"Guadalajara, Jal.", "Guadalajara, Jalisco", "mx ", "968", "607",
     Lista("Universidad de Guadalajara|El Colegio de Jalisco")},
    {"Buenos Aires", "Buenos Aires", "ag ", "950", "987",
     Lista("Paidós|Eudeba|Losada|Sudamericana|CLACSO")},
    {"Barcelona", "Barcelona", "sp ", "84", "84", Lista("Anagrama|Gedisa|Crítica|Ariel")},
    {"Puebla, Pue.", "Puebla, Puebla", "mx ", "968", "607",
     Lista("Benemérita Universidad Autónoma de Puebla")},
    {"Xalapa, Ver.", "Xalapa, Veracruz", "mx ", "968", "607", Lista("Universidad Veracruzana")},
    {"Bogotá", "Bogotá", "ck ", "958", "958",
     Lista("Siglo del Hombre|Universidad Nacional de Colombia")},
    {"Lima", "Lima", "pe ", "9972", "612",
     Lista("Instituto de Estudios Peruanos|Fondo Editorial PUCP")},
    {"Santiago de Chile", "Santiago de Chile", "cl ", "956", "956",
     Lista("LOM Ediciones|Editorial Universitaria")},
    {"La Habana", "La Habana", "cu ", "959", "959",
     Lista("Editorial de Ciencias Sociales|Casa de las Américas")}};
const std::vector<Editorial> kEditorialesIngles = {
    {"Austin", "Austin", "txu", "0", "0", Lista("University of Texas Press")},
    {"Stanford, Calif.", "Stanford, California", "cau", "0", "1",
     Lista("Stanford University Press")},
    {"Cambridge", "Cambridge", "enk", "0", "1", Lista("Cambridge University Press")},
    {"New York", "New York", "nyu", "0", "1", Lista("Oxford University Press|Routledge")}};

// Towns: a saint's name, sometimes, and a made-up name of syllables.
const std::vector<std::string_view> kSantos = Lista(
    "San Juan|Santa María|San Pedro|Santiago|Santo Domingo|San Pablo|San Miguel|San Andrés|"
    "Santa Catarina|San Bartolomé");
const std::vector<std::string_view> kSilabas = Lista(
    "ta lo mi xo chi pan tzi ca ne ru que ba do gua za tla ni hue ma pe co ya te so ri na cu li "
    "po xi tec mol zin ju gi ve fa bo de su",
    ' ');

// Copies, series, notes, the functions of added authors.
const std::vector<std::string_view> kColecciones =
    Lista("Colección general|Fondo Oaxaca|Consulta|Fondo reservado");
const std::vector<std::string_view> kSeries = Lista(
    "Colección Biblioteca de Oaxaca|Serie Historia|Colección Textos Universitarios|"
    "Sección de Obras de Historia|Colección Popular|Serie Antropología Social|"
    "Cuadernos de Investigación");
// The first two are what an index gives (008/31).
const std::vector<std::string_view> kNotas = Lista(
    "Incluye índice.|Incluye índices.|Texto en español e inglés.|Incluye un disco compacto.|"
    "Edición conmemorativa.|Incluye glosario.|"
    "Ponencias presentadas en el Congreso de Historia Regional.");
const std::vector<std::string_view> kFunciones =
    Lista("editor.|compilador.|coordinador.|traductor.|prologuista.");

// --- text ------------------------------------------------------------------------------

// `s` with its first letter in upper case (ASCII, or the Latin-1 letters
// "á" to "þ" in UTF-8).
std::string Mayuscula(std::string s) {
  if (s.empty()) return s;
  const unsigned char c = static_cast<unsigned char>(s[0]);
  if (c >= 'a' && c <= 'z') {
    s[0] = static_cast<char>(c - 32);
  } else if (c == 0xC3 && s.size() > 1) {
    const unsigned char d = static_cast<unsigned char>(s[1]);
    if (d >= 0xA0 && d <= 0xBE && d != 0xB7) s[1] = static_cast<char>(d - 0x20);
  }
  return s;
}

bool Termina(std::string_view s, std::string_view fin) {
  return s.size() >= fin.size() && s.substr(s.size() - fin.size()) == fin;
}

// The definite article of a common noun (of its first word): "la" for the
// feminine endings, "las" and "los" in the plural, "el" otherwise.
std::string_view Articulo(std::string_view frase) {
  const std::string_view w = frase.substr(0, frase.find(' '));
  static const std::vector<std::pair<std::string_view, std::string_view>> kExcepciones = {
      {"sistemas", "los"}, {"problemas", "los"}, {"programas", "los"}, {"atlas", "el"},
      {"sones", "los"},    {"códices", "los"},   {"indígenas", "los"}, {"leyes", "las"},
      {"mujeres", "las"},  {"clima", "el"},      {"agua", "el"},       {"álgebra", "el"},
      {"paz", "la"},       {"muerte", "la"},     {"radio", "la"},      {"análisis", "el"},
      {"identidad", "la"}, {"gestión", "la"}};
  for (const auto& [palabra, articulo] : kExcepciones) {
    if (w == palabra) return articulo;
  }
  if (Termina(w, "s")) {
    return Termina(w, "as") || Termina(w, "ones") || Termina(w, "des") ? "las" : "los";
  }
  if (Termina(w, "a") || Termina(w, "ión") || Termina(w, "dad") || Termina(w, "ud") ||
      Termina(w, "ie")) {
    return "la";
  }
  return "el";
}

// Appends " enlace articulo palabra", either of the first two possibly empty;
// "de el" contracts to "del".
void Junta(std::string& t, std::string_view enlace, std::string_view articulo,
           std::string_view palabra) {
  if (enlace == "de" && articulo == "el") {
    t += " del";
  } else {
    if (!enlace.empty()) {
      t += ' ';
      t += enlace;
    }
    if (!articulo.empty()) {
      t += ' ';
      t += articulo;
    }
  }
  t += ' ';
  t += palabra;
}

// A made-up place name, capitalised: two to four syllables.
std::string Inventada(Azar& azar) {
  std::string w;
  const int n = azar.Entre(2, 4);
  for (int i = 0; i < n; ++i) w += azar.Uno(kSilabas);
  return Mayuscula(std::move(w));
}

// A check-digit-correct ISBN, hyphenated: ISBN-10 in `grupo10`, or ISBN-13
// (prefix 978) in `grupo13`.
std::string Isbn(Azar& azar, const Editorial& e, bool trece) {
  const std::string_view grupo = trece ? e.grupo13 : e.grupo10;
  const int libres = 9 - static_cast<int>(grupo.size());  // publisher and title digits
  const int editor = azar.Entre(2, std::min(4, libres - 1));
  std::string digitos(trece ? "978" : "");
  digitos += grupo;
  for (int i = 0; i < libres; ++i) digitos += static_cast<char>('0' + azar.Menor(10));
  char control;
  if (trece) {
    int suma = 0;
    for (std::size_t i = 0; i < 12; ++i) suma += (digitos[i] - '0') * (i % 2 ? 3 : 1);
    control = static_cast<char>('0' + (10 - suma % 10) % 10);
  } else {
    int suma = 0;
    for (std::size_t i = 0; i < 9; ++i) suma += (digitos[i] - '0') * static_cast<int>(10 - i);
    const int c = (11 - suma % 11) % 11;
    control = c == 10 ? 'X' : static_cast<char>('0' + c);
  }
  const std::size_t p = trece ? 3 : 0;  // where the group starts
  std::string s = trece ? "978-" : "";
  s += std::string_view(digitos).substr(p, grupo.size());
  s += '-';
  s += std::string_view(digitos).substr(p + grupo.size(), static_cast<std::size_t>(editor));
  s += '-';
  s += std::string_view(digitos).substr(p + grupo.size() + static_cast<std::size_t>(editor));
  s += '-';
  s += control;
  return s;
}

// A Cutter-like number from a name: its first letter in upper case without
// accent, and two digits.
std::string Cutter(Azar& azar, std::string_view nombre) {
  char inicial = 'A';
  const unsigned char c = static_cast<unsigned char>(nombre[0]);
  if (c >= 'A' && c <= 'Z') {
    inicial = static_cast<char>(c);
  } else if (c >= 'a' && c <= 'z') {
    inicial = static_cast<char>(c - 32);
  } else if (c == 0xC3 && nombre.size() > 1) {
    // The Latin-1 letters U+00C0 to U+00DE, and their lower case 0x20 above.
    static const char kSinAcento[] = "AAAAAAACEEEEIIIIDNOOOOO?OUUUUYT";
    const unsigned char d = static_cast<unsigned char>(nombre[1]) & 0xDF;
    if (d >= 0x80 && d <= 0x9E) inicial = kSinAcento[d - 0x80];
  }
  std::string s(1, inicial);
  s += std::to_string(azar.Entre(11, 98));
  return s;
}

// --- the records -----------------------------------------------------------------

struct Persona {
  std::string nombre, apellidos;
  // "Apellidos, Nombre" as a heading, "Nombre Apellidos" as written.
  std::string Encabezamiento() const { return apellidos + ", " + nombre; }
  std::string Directo() const { return nombre + " " + apellidos; }
};

class Generador {
 public:
  explicit Generador(std::uint64_t semilla)
      : azar_(semilla),
        vocabulario_(kVocabulario, 2),
        conectores_(kConectores, 1),
        lugares_(kLugares, 2),
        colas_(kColas, 2),
        areas_(Indices(kAreas.size()), 1),
        subdivisiones_(kSubdivisiones, 1),
        geograficos_(kGeograficos, 3),
        periodos_(kPeriodos, 1),
        editoriales_(Indices(kEditoriales.size()), 1),
        ingles_(kVocabularioIngles, 1) {
    for (const Area& a : kAreas) palabras_area_.emplace_back(a.palabras, 1);
    // The long tail: made-up names, none equal to another, to a word of the
    // vocabulary (in lower case) or to a place.
    std::set<std::string> vistas;
    for (std::string_view w : kVocabulario) vistas.emplace(w);
    for (std::string_view w : kLugares) vistas.emplace(w);
    while (inventadas_.size() < 30000) {
      std::string w = Inventada(azar_);
      std::string minuscula = w;
      minuscula[0] = static_cast<char>(minuscula[0] + 32);
      if (vistas.insert(minuscula).second && !vistas.count(w)) inventadas_.push_back(std::move(w));
    }
  }

  // Appends record number `numero` to `salida`; false when it does not fit
  // the format.
  bool Registro(int numero, std::string& salida);

 private:
  static std::vector<std::size_t> Indices(std::size_t n) {
    std::vector<std::size_t> v(n);
    for (std::size_t i = 0; i < n; ++i) v[i] = i;
    return v;
  }
  Persona UnaPersona() {
    Persona p;
    const std::vector<std::string_view>& nombres =
        azar_.PorMil(550) ? kNombresHombre : kNombresMujer;
    const std::string_view nombre = azar_.Uno(nombres);
    p.nombre = nombre;
    if (azar_.PorMil(300)) {
      const std::string_view segundo = azar_.Uno(nombres);
      if (segundo != nombre) {
        p.nombre += ' ';
        p.nombre += segundo;
      }
    }
    p.apellidos = std::string(azar_.Uno(kApellidos));
    if (azar_.PorMil(850)) {
      p.apellidos += ' ';
      p.apellidos += azar_.Uno(kApellidos);
    }
    return p;
  }
  std::string Pueblo() {
    std::string s;
    if (azar_.PorMil(550)) {
      s = azar_.Uno(kSantos);
      s += ' ';
    }
    return s + azar_.Uno(inventadas_);
  }
  // A common noun not yet in the title or summary being written (`usadas_`).
  std::string_view Nueva() {
    std::string_view w = vocabulario_.Saca(azar_);
    for (int intento = 0;
         intento < 4 && std::find(usadas_.begin(), usadas_.end(), w) != usadas_.end(); ++intento) {
      w = vocabulario_.Saca(azar_);
    }
    usadas_.push_back(w);
    return w;
  }
  // Appends `enlace` and what it introduces: a common noun, with its article
  // more or less often by the word that joins it, or for "de" and "en" a
  // place or a town.
  void Complemento(std::string& t, std::string_view enlace) {
    int lugar = 0, articulo = 600;
    if (enlace == "de") lugar = 250, articulo = 500;
    if (enlace == "en") lugar = 700, articulo = 700;
    if (enlace == "y" || enlace.empty()) articulo = 300;
    const int r = static_cast<int>(azar_.Menor(1000));
    if (r < lugar * 7 / 10) {
      Junta(t, enlace, "", lugares_.Saca(azar_));
    } else if (r < lugar) {
      Junta(t, enlace, "", Pueblo());
    } else {
      const std::string_view w = Nueva();
      Junta(t, enlace, azar_.PorMil(articulo) ? Articulo(w) : "", w);
    }
  }
  // A Spanish title of the record's area; `subtitulo` and `pueblo` (the town
  // of a town's monograph) are left empty when there is none.
  std::string TituloEspanol(std::size_t indice_area, std::string& subtitulo, std::string& pueblo);
  std::string TituloIngles();
  std::string Resumen();

  Azar azar_;
  Zipf<std::string_view> vocabulario_, conectores_, lugares_, colas_;
  Zipf<std::size_t> areas_;
  std::vector<Zipf<std::string_view>> palabras_area_;
  Zipf<std::string_view> subdivisiones_, geograficos_, periodos_;
  Zipf<std::size_t> editoriales_;
  Zipf<std::string_view> ingles_;
  std::vector<std::string> inventadas_;
  std::vector<std::string_view> usadas_;
  RegistroISO iso_;
};

std::string Generador::TituloEspanol(std::size_t indice_area, std::string& subtitulo,
                                     std::string& pueblo) {
  std::string t;
  if (azar_.PorMil(12)) {
    t = azar_.Uno(kHistoriaDeMexico);
  } else if (azar_.PorMil(18)) {
    t = azar_.Uno(kRevolucion);
  } else if (azar_.PorMil(40)) {
    pueblo = Pueblo();
    switch (azar_.Menor(3)) {
      case 0:
        t = "Monografía de " + pueblo;
        break;
      case 1:
        subtitulo = "historia y tradiciones";
        return pueblo;
      default:
        t = "Crónica de " + pueblo;
        break;
    }
  } else {
    // A head word (of the area's, or of the whole vocabulary), up to two
    // complements, and sometimes an ending.
    usadas_.clear();
    const std::string_view cabeza =
        azar_.PorMil(500) ? palabras_area_[indice_area].Saca(azar_) : Nueva();
    usadas_.push_back(cabeza);
    if (azar_.PorMil(150)) {
      t = Mayuscula(std::string(Articulo(cabeza))) + " " + std::string(cabeza);
    } else {
      t = Mayuscula(std::string(cabeza));
    }
    const int complementos = azar_.PorMil(300) ? 0 : azar_.Entre(1, 2);
    for (int k = 0; k < complementos; ++k) Complemento(t, conectores_.Saca(azar_));
    if (azar_.PorMil(250)) {
      t += ' ';
      t += colas_.Saca(azar_);
    }
  }
  if (azar_.PorMil(350)) {
    const int r = static_cast<int>(azar_.Menor(10));
    if (r < 4) {
      subtitulo = azar_.Uno(kSubtitulos);
    } else if (r < 6) {
      subtitulo = "el caso de " + Pueblo();
    } else {
      usadas_.clear();
      subtitulo = Nueva();
      if (azar_.PorMil(600)) Complemento(subtitulo, conectores_.Saca(azar_));
    }
  }
  return t;
}

std::string Generador::TituloIngles() {
  std::string t = azar_.PorMil(400) ? "The " : "";
  t += ingles_.Saca(azar_);
  const int complementos = azar_.Entre(0, 2);
  for (int k = 0; k < complementos; ++k) {
    t += azar_.PorMil(500) ? " of " : " and ";
    t += ingles_.Saca(azar_);
  }
  if (azar_.PorMil(600)) {
    t += " in ";
    t += azar_.Uno(kLugaresIngles);
  }
  return Mayuscula(std::move(t));
}

// A sentence: the opening, then two to five noun phrases (a noun with its
// article, now and then a complement) joined by commas and a final "y".
std::string Generador::Resumen() {
  const auto& [apertura, enlace] = azar_.Uno(kAperturas);
  std::string t(apertura);
  usadas_.clear();
  const int frases = azar_.Entre(2, 5);
  for (int k = 0; k < frases; ++k) {
    if (k > 0) t += k + 1 == frases ? " y" : ",";
    const std::string_view w = Nueva();
    Junta(t, k == 0 ? enlace : "", Articulo(w), w);
    if (azar_.PorMil(600)) Complemento(t, azar_.PorMil(700) ? "de" : "en");
  }
  t += '.';
  return t;
}

bool Generador::Registro(int numero, std::string& salida) {
  RegistroISO& r = iso_;
  r.Empieza();

  // What the fields share, decided first.
  const int anio = azar_.Entre(1945, 2023);
  const bool rda = anio >= 2012;
  const bool ingles = azar_.PorMil(40);
  const std::size_t indice_area = areas_.Saca(azar_);
  const Area& area = kAreas[indice_area];
  const Editorial& ed =
      ingles ? azar_.Uno(kEditorialesIngles) : kEditoriales[editoriales_.Saca(azar_)];
  const bool ilustrado = azar_.PorMil(550);
  const bool bibliografia = azar_.PorMil(450);
  const bool indice = azar_.PorMil(200);
  const bool con_autor = azar_.PorMil(880);
  const bool institucion = !con_autor && azar_.PorMil(400);
  const Persona autor = UnaPersona();
  std::vector<Persona> otros(azar_.Menor(10) < 7 ? 0 : azar_.Entre(1, 2));
  for (Persona& p : otros) p = UnaPersona();

  // 001, 003, 005, 008
  r.Control("001", std::to_string(numero));
  r.Control("003", "MX-OaBC");
  const int alta = std::min(2023, std::max(anio, 1985) + azar_.Entre(0, 3));
  const int mes = azar_.Entre(1, 12), dia = azar_.Entre(1, 28);
  std::string s;
  Digitos(s, static_cast<std::size_t>(alta), 4);
  Digitos(s, static_cast<std::size_t>(mes), 2);
  Digitos(s, static_cast<std::size_t>(dia), 2);
  Digitos(s, static_cast<std::size_t>(azar_.Entre(8, 19)), 2);  // hour, minute, second
  Digitos(s, static_cast<std::size_t>(azar_.Entre(0, 59)), 2);
  Digitos(s, static_cast<std::size_t>(azar_.Entre(0, 59)), 2);
  s += ".0";
  r.Control("005", s);
  s.clear();
  Digitos(s, static_cast<std::size_t>(alta % 100), 2);
  Digitos(s, static_cast<std::size_t>(mes), 2);
  Digitos(s, static_cast<std::size_t>(dia), 2);
  s += 's';
  Digitos(s, static_cast<std::size_t>(anio), 4);
  s += "    ";
  s += ed.pais;
  s += ilustrado ? "a   " : "    ";
  s += "  ";  // audience, form of item
  s += bibliografia ? "b   " : "    ";
  s += " 00";  // government publication, conference, festschrift
  s += indice ? '1' : '0';
  s += " 0 ";  // undefined, literary form, biography
  s += ingles ? "eng" : "spa";
  s += " d";
  r.Control("008", s);

  // 020: ISBN
  if (anio >= 1970 && azar_.PorMil(750)) {
    s = Isbn(azar_, ed, anio >= 2007);
    r.Abre("020", ' ', ' ');
    if (azar_.PorMil(300)) {
      const std::string_view encuadernacion = azar_.PorMil(700) ? "rústica" : "empastado";
      if (rda) {
        r.Sub('a', s);
        r.Sub('q', encuadernacion);
      } else {
        r.Sub('a', s + " (" + std::string(encuadernacion) + ")");
      }
    } else {
      r.Sub('a', s);
    }
    r.Cierra();
  }

  // 040: cataloguing source
  r.Abre("040", ' ', ' ');
  r.Sub('a', "MX-OaBC");
  r.Sub('b', "spa");
  if (rda) r.Sub('e', "rda");
  r.Sub('c', "MX-OaBC");
  r.Cierra();

  // 050 or 082: call number; the same goes to the copies (852 $h).
  const std::string cutter = Cutter(azar_, con_autor ? autor.apellidos : area.palabras[0]);
  std::string signatura;
  const bool lc = azar_.PorMil(700);
  if (lc) {
    std::string clase(area.lc);
    if (azar_.PorMil(600)) clase += "." + std::to_string(azar_.Entre(1, 9));
    r.Abre("050", ' ', '4');
    r.Sub('a', clase);
    r.Sub('b', "." + cutter + " " + std::to_string(anio));
    r.Cierra();
    signatura = clase + " ." + cutter + " " + std::to_string(anio);
  } else {
    r.Abre("082", '0', '4');
    r.Sub('a', area.dewey);
    r.Sub('2', rda ? "23" : "21");
    r.Cierra();
    signatura = std::string(area.dewey) + " " + cutter;
  }

  // 100 or 110: main entry
  if (con_autor) {
    r.Abre("100", '1', ' ');
    if (azar_.PorMil(400)) {
      const int nace = anio - azar_.Entre(25, 75);
      std::string fechas = std::to_string(nace) + "-";
      if (nace < 1935 && azar_.PorMil(600)) fechas += std::to_string(nace + azar_.Entre(50, 88));
      r.Sub('a', autor.Encabezamiento() + ",");
      r.Sub('d', fechas);
    } else {
      r.Sub('a', autor.Encabezamiento() + ".");
    }
    r.Cierra();
  } else if (institucion) {
    r.Abre("110", '2', ' ');
    r.Sub('a', std::string(azar_.Uno(kInstituciones)) + ".");
    r.Cierra();
  }

  // 245: title, subtitle, statement of responsibility
  std::string subtitulo, pueblo;
  const std::string titulo =
      ingles ? TituloIngles() : TituloEspanol(indice_area, subtitulo, pueblo);
  char no_alfabetiza = '0';
  for (std::string_view a : {"El ", "La ", "Un ", "Los ", "Las ", "Una ", "The ", "A "}) {
    if (titulo.starts_with(a)) no_alfabetiza = static_cast<char>('0' + a.size());
  }
  std::string responsable;
  if (con_autor) responsable = autor.Directo();
  for (std::size_t k = 0; k < otros.size(); ++k) {
    if (!responsable.empty()) responsable += k + 1 == otros.size() ? " y " : ", ";
    responsable += otros[k].Directo();
  }
  r.Abre("245", con_autor || institucion ? '1' : '0', no_alfabetiza);
  if (!subtitulo.empty()) {
    r.Sub('a', titulo + " :");
    r.Sub('b', responsable.empty() ? subtitulo + "." : subtitulo + " /");
  } else {
    r.Sub('a', responsable.empty() ? titulo + "." : titulo + " /");
  }
  if (!responsable.empty()) r.Sub('c', responsable + ".");
  r.Cierra();

  // 250: edition
  if (azar_.PorMil(150)) {
    r.Abre("250", ' ', ' ');
    r.Sub('a', std::to_string(azar_.Entre(2, 9)) + (rda ? "a edición." : "a ed."));
    r.Cierra();
  }

  // 260 or 264: publication
  const std::string_view editorial = azar_.Uno(ed.editoriales);
  if (rda) {
    r.Abre("264", ' ', '1');
    r.Sub('a', std::string(ed.rda) + " :");
    r.Sub('b', std::string(editorial) + ",");
    r.Sub('c', std::to_string(anio));
    r.Cierra();
    if (azar_.PorMil(300)) {
      r.Abre("264", ' ', '4');
      r.Sub('c', "©" + std::to_string(anio));
      r.Cierra();
    }
  } else {
    r.Abre("260", ' ', ' ');
    r.Sub('a', std::string(ed.aacr2) + " :");
    r.Sub('b', std::string(editorial) + ",");
    r.Sub('c', std::to_string(anio) + ".");
    r.Cierra();
  }

  // 300: physical description
  const int paginas = azar_.Entre(40, 900);
  std::string extension;
  if (azar_.PorMil(200)) {
    static const std::string_view kRomanos[] = {"ix", "xii", "xv", "xxiv", "viii"};
    extension = std::string(azar_.Uno(kRomanos)) + ", ";
  }
  extension += std::to_string(paginas) + (rda ? " páginas" : " p.");
  static const int kAltos[] = {17, 21, 21, 23, 23, 23, 24, 28};
  const std::string tamano = std::to_string(azar_.Uno(kAltos)) + (rda ? " cm" : " cm.");
  r.Abre("300", ' ', ' ');
  if (ilustrado) {
    r.Sub('a', extension + " :");
    std::string ilustraciones = rda ? "ilustraciones" : "il.";
    if (azar_.PorMil(250)) ilustraciones += ", mapas";
    r.Sub('b', ilustraciones + " ;");
  } else {
    r.Sub('a', extension + " ;");
  }
  r.Sub('c', tamano);
  r.Cierra();
  if (rda) {
    r.Abre("336", ' ', ' ');
    r.Sub('a', "texto");
    r.Sub('b', "txt");
    r.Sub('2', "rdacontent");
    r.Cierra();
    r.Abre("337", ' ', ' ');
    r.Sub('a', "sin medio");
    r.Sub('b', "n");
    r.Sub('2', "rdamedia");
    r.Cierra();
    r.Abre("338", ' ', ' ');
    r.Sub('a', "volumen");
    r.Sub('b', "nc");
    r.Sub('2', "rdacarrier");
    r.Cierra();
  }

  // 490: series
  if (azar_.PorMil(120)) {
    r.Abre("490", '0', ' ');
    r.Sub('a', std::string(azar_.Uno(kSeries)) + " ;");
    r.Sub('v', std::to_string(azar_.Entre(1, 60)));
    r.Cierra();
  }

  // 500, 504, 520: notes
  if (indice || azar_.PorMil(150)) {
    r.Abre("500", ' ', ' ');
    r.Sub('a', indice ? kNotas[azar_.Menor(2)] : azar_.Uno(kNotas));
    r.Cierra();
  }
  if (bibliografia) {
    const int desde = paginas - azar_.Entre(4, std::min(30, paginas - 10));
    const int hasta = std::min(paginas, desde + azar_.Entre(3, 20));
    r.Abre("504", ' ', ' ');
    r.Sub('a',
          rda ? "Incluye referencias bibliográficas (páginas " + std::to_string(desde) + "-" +
                    std::to_string(hasta) + ")."
              : "Bibliografía: p. " + std::to_string(desde) + "-" + std::to_string(hasta) + ".");
    r.Cierra();
  }
  if (azar_.PorMil(180)) {
    r.Abre("520", ' ', ' ');
    r.Sub('a', Resumen());
    r.Cierra();
  }

  // 650: subjects, the first from the record's area
  const int materias = azar_.Entre(1, 4);
  for (int k = 0; k < materias; ++k) {
    const std::string tema = k == 0 || azar_.PorMil(600)
                                 ? std::string(azar_.Uno(area.encabezamientos))
                                 : Mayuscula(std::string(vocabulario_.Saca(azar_)));
    r.Abre("650", ' ', '4');
    r.Sub('a', tema);
    if (azar_.PorMil(400)) r.Sub('z', geograficos_.Saca(azar_));
    if (azar_.PorMil(500)) {
      const std::string_view subdivision = subdivisiones_.Saca(azar_);
      if (subdivision != tema) r.Sub('x', subdivision);
    }
    if (azar_.PorMil(150)) r.Sub('y', periodos_.Saca(azar_));
    r.Cierra();
  }

  // 651: geographic subject; a town's own for the monographs of towns
  if (!pueblo.empty()) {
    r.Abre("651", ' ', '4');
    r.Sub('a', pueblo + " (Oaxaca, México)");
    r.Sub('x', "Historia");
    r.Cierra();
  } else if (azar_.PorMil(450)) {
    r.Abre("651", ' ', '4');
    r.Sub('a', geograficos_.Saca(azar_));
    r.Sub('x', subdivisiones_.Saca(azar_));
    if (azar_.PorMil(250)) r.Sub('y', periodos_.Saca(azar_));
    r.Cierra();
  }

  // 700: added authors
  for (const Persona& p : otros) {
    r.Abre("700", '1', ' ');
    if (azar_.PorMil(500)) {
      r.Sub('a', p.Encabezamiento() + ",");
      r.Sub('e', azar_.Uno(kFunciones));
    } else {
      r.Sub('a', p.Encabezamiento() + ".");
    }
    r.Cierra();
  }

  // 852: the copies
  static const int kCopias[] = {1, 1, 1, 1, 2, 2, 3};
  const int copias = azar_.Uno(kCopias);
  const std::string_view coleccion =
      kColecciones[azar_.PorMil(800) ? 0 : 1 + azar_.Menor(kColecciones.size() - 1)];
  for (int c = 1; c <= copias; ++c) {
    std::string barras = "B";
    Digitos(barras, static_cast<std::size_t>(numero), 7);
    barras += static_cast<char>('0' + c);
    r.Abre("852", lc ? '0' : '1', ' ');
    r.Sub('a', "Biblioteca Central");
    r.Sub('b', coleccion);
    r.Sub('h', signatura);
    r.Sub('p', barras);
    if (c > 1) r.Sub('t', std::to_string(c));
    r.Cierra();
  }

  return r.Escribe(salida, ' ', rda ? 'i' : 'a');
}

// The decimal number `texto`, all digits and at most `maximo`; false otherwise.
bool LeeNumero(const char* texto, std::uint64_t maximo, std::uint64_t& n) {
  n = 0;
  if (*texto == '\0') return false;
  for (const char* p = texto; *p; ++p) {
    if (*p < '0' || *p > '9') return false;
    const std::uint64_t d = static_cast<std::uint64_t>(*p - '0');
    if (n > (maximo - d) / 10) return false;
    n = n * 10 + d;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::uint64_t n = 0, semilla = 2709;
  if (argc < 3 || argc > 4 || !LeeNumero(argv[1], 9999999, n) || n == 0 ||
      (argc == 4 && !LeeNumero(argv[3], UINT64_MAX, semilla))) {
    std::fprintf(stderr,
                 "uso: genera_marc N SALIDA.mrc [semilla]   (N registros, de 1 a 9999999)\n");
    return 2;
  }
  const auto inicio = std::chrono::steady_clock::now();
  const std::string salida = argv[2];
  const std::string parcial = salida + ".parcial";
  std::FILE* f = std::fopen(parcial.c_str(), "wb");
  if (!f) {
    std::fprintf(stderr, "genera_marc: %s: %s\n", parcial.c_str(), std::strerror(errno));
    return 1;
  }
  const auto falla = [&](const char* que) {
    std::fprintf(stderr, "genera_marc: %s: %s\n", parcial.c_str(), que);
    if (f) std::fclose(f);
    std::remove(parcial.c_str());
    return 1;
  };

  Generador generador(semilla);
  std::string bloque;
  std::uint64_t bytes = 0;
  for (std::uint64_t i = 1; i <= n; ++i) {
    if (!generador.Registro(static_cast<int>(i), bloque)) return falla("registro demasiado largo");
    if (bloque.size() >= (1u << 20) || i == n) {
      if (std::fwrite(bloque.data(), 1, bloque.size(), f) != bloque.size()) {
        return falla(std::strerror(errno));
      }
      bytes += bloque.size();
      bloque.clear();
    }
  }
  const int cierre = std::fclose(f);
  f = nullptr;
  if (cierre != 0) return falla(std::strerror(errno));
  if (std::rename(parcial.c_str(), salida.c_str()) != 0) return falla(std::strerror(errno));
  const double segundos =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - inicio).count();
  std::printf("%s: %llu registros, %llu bytes, %.2f s\n", salida.c_str(),
              static_cast<unsigned long long>(n), static_cast<unsigned long long>(bytes), segundos);
  return 0;
}
