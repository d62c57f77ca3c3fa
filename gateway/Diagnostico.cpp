#include "gateway/Diagnostico.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <optional>
#include <vector>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Html.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "circulation/ChecaIP.h"
#include "circulation/Disponibilidad.h"
#include "config/ArchivoCFG.h"
#include "config/Instalacion.h"
#include "config/Plantillas.h"
#include "db/Database.h"
#include "db/SqliteEngine.h"
#include "db/jet/EscritorJet.h"
#include "cgi/Encabezado.h"
#include "queries/AbreBases.h"
#include "records/CargaFicha.h"
#include "presentation/MuestraFicha.h"
#include "records/Presentaciones.h"
#include "xml/XMLFicha.h"
#include "xml/XMLTarjeta.h"

namespace orvex::gateway {
namespace {

constexpr std::string_view kEstadisticas = "estadisticas.mdb";
constexpr db::OpenOptions kSoloLectura{.read_only = true};
// The longest round trip, in milliseconds, that counts as a circulation
// server answering during the checklist.
constexpr std::int32_t kEsperaServidorMs = 500;
// How long the write check of a Jet statistics file waits for another
// writer of the file, in milliseconds: as long as a statistics row waits.
constexpr int kEsperaEscritorMs = 3000;

// An output that drops what is written to it, for the steps that report into
// the page as they go when the diagnostic page wants only their outcome.
class Descarte : public Output {
 public:
  void Write(std::string_view) override {}
  void TruncateHere() override {}
  void Rewind() override {}
};

void Linea(cgi::Solicitud& s, std::string texto) { EnviaLinea(s.sys.salida, std::move(texto)); }

// The page of a command that only the administrator gets.
void AbrePagina(cgi::Solicitud& s, std::string_view titulo) {
  cgi::EnviaEncabezado(s, "Orvex - " + std::string(titulo));
  Linea(s, "<H3>" + std::string(titulo) + "</H3>");
}

// The page that anyone may get: it names nothing of the server.
void AbrePaginaPublica(cgi::Solicitud& s, std::string_view titulo) {
  cgi::EnviaEncabezadoPublico(s, "Orvex - " + std::string(titulo));
  Linea(s, "<H3>" + std::string(titulo) + "</H3>");
}

void CierraPagina(cgi::Solicitud& s) { Linea(s, "</BODY></HTML>"); }

// The refusal for a client that is not the administrator; true when the
// command may go on.
bool Autorizado(cgi::Solicitud& s, std::string_view comando) {
  if (ClienteAdministrador(s)) return true;
  AbrePaginaPublica(s, std::string(comando));
  config::MensajeH4(s.sys.salida,
                    Latin1("Este comando está reservado al administrador del sistema."));
  CierraPagina(s);
  return false;
}

// `texto` without leading and trailing blanks, tabs and line ends.
std::string Recorta(std::string_view texto) {
  const std::size_t inicio = texto.find_first_not_of(" \t\r\n");
  if (inicio == std::string_view::npos) return "";
  const std::size_t fin = texto.find_last_not_of(" \t\r\n");
  return std::string(texto.substr(inicio, fin - inicio + 1));
}

// The lines of a section body, trimmed, blank ones left out.
std::vector<std::string> LineasNoVacias(std::string_view texto) {
  std::vector<std::string> lineas;
  std::size_t inicio = 0;
  while (inicio <= texto.size()) {
    std::size_t fin = texto.find('\n', inicio);
    if (fin == std::string_view::npos) fin = texto.size();
    std::string linea = Recorta(texto.substr(inicio, fin - inicio));
    if (!linea.empty()) lineas.push_back(std::move(linea));
    inicio = fin + 1;
  }
  return lineas;
}

bool EsDigito(char c) { return c >= '0' && c <= '9'; }

// True when the request's configuration is a "*.cfg" file of the program's
// directory, the only kind whose "DIAGNOSTICO:" names the administrator.
bool ConfiguracionDelPrograma(const cgi::Solicitud& s) {
  const std::string& archivo = s.cfg.ArchivoCFG;
  if (s.cfg.TextoCFG.empty()) return false;
  const std::size_t barra = archivo.find_last_of("/\\");
  if (barra == std::string::npos) return false;
  const std::string_view nombre = std::string_view(archivo).substr(barra + 1);
  return config::EsNombreCFG(nombre) && archivo == JoinPath(s.sys.archivos.ProgramDirectory(), nombre);
}

// One catalogue of "BASE:": its name (empty in the single-base form), its
// number (1 in the single-base form) and its directory.
struct Catalogo {
  std::string nombre;
  int numero = 1;
  std::string ruta;
};

// The catalogues "BASE:" names; an empty list with `error` set when the
// section is missing or its list cannot be read.
std::vector<Catalogo> Catalogos(const cgi::Solicitud& s, std::string& error) {
  const std::string base = Recorta(s.Seccion("BASE:"));
  if (base.empty()) {
    error = Latin1("La sección BASE: no existe o está vacía.");
    return {};
  }
  if (base.find("##") == std::string::npos) return {{"", 1, base}};
  // The list is read as the advanced search reads it, every line ended by
  // CR LF: a last line without one is listed too.
  config::Configuracion cfg;
  cfg.RutaBase = base;
  if (!cfg.RutaBase.ends_with("\r\n")) cfg.RutaBase += "\r\n";
  std::string nombre;
  std::string ruta;
  std::uint8_t numero = 99;
  std::vector<Catalogo> lista;
  if (config::BuscaBase(cfg, nombre, ruta, numero) == 99) {
    for (const config::BaseDeDatos& b : cfg.TablaBases) {
      if (!b.despues.empty()) lista.push_back({b.antes, b.numero, b.despues});
    }
  }
  if (lista.empty()) error = std::string(config::kErrorBasesMultiples);
  return lista;
}

std::string TituloCatalogo(const Catalogo& c) {
  return c.nombre.empty() ? EscapaComillaDoble(c.ruta)
                          : EscapaComillaDoble(c.nombre) + " (" + EscapaComillaDoble(c.ruta) + ")";
}

// The catalogue as a public page names it: by its collection's name, or by
// its number, never by its directory.
std::string NombrePublico(const Catalogo& c) {
  return c.nombre.empty() ? Latin1("Catálogo ") + std::to_string(c.numero) : EscapaComillaDoble(c.nombre);
}

std::optional<std::string> BuscaArchivo(cgi::Solicitud& s, std::string_view dir, std::string_view nombre) {
  return FindFile(s.sys.archivos, queries::RutaArchivo(dir, nombre));
}

// The first value of a one-row query, as text.
std::string Consulta(db::Database& db, const std::string& sql) {
  auto rs = db.OpenRecordset(sql, db::RecordsetType::Snapshot);
  if (rs->Eof()) return "";
  return rs->Field("v").AsText();
}

std::string Dos(int n) { return (n < 10 ? "0" : "") + std::to_string(n); }

// The file's modification time as local "dd/mm/yyyy hh:nn:ss"; empty when it
// cannot be read.
std::string FechaModificacion(const std::string& ruta) {
  std::error_code ec;
  const auto cuando = std::filesystem::last_write_time(ruta, ec);
  if (ec) return "";
  const std::time_t t = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(
          std::filesystem::file_time_type::clock::to_sys(cuando)));
  std::tm local{};
  if (localtime_r(&t, &local) == nullptr) return "";
  return Dos(local.tm_mday) + "/" + Dos(local.tm_mon + 1) + "/" + std::to_string(local.tm_year + 1900) +
         " " + Dos(local.tm_hour) + ":" + Dos(local.tm_min) + ":" + Dos(local.tm_sec);
}

// The name of the engine a database file is written for, as the checklist
// shows it: "SQLite", "Jet" or empty when neither.
std::string NombreDelMotor(db::Motor motor) {
  switch (motor) {
    case db::Motor::Sqlite: return "SQLite";
    case db::Motor::Jet: return "Jet";
    case db::Motor::Ilegible:
    case db::Motor::Desconocido: break;
  }
  return "";
}

// --- the checklist -------------------------------------------------------------

class ListaRevision {
 public:
  explicit ListaRevision(cgi::Solicitud& s) : s_(s) {}

  // `que` is page text already escaped.
  void Item(const std::string& que, bool correcto, const std::string& razon) {
    ++total_;
    if (!correcto) ++fallas_;
    Linea(s_, "<li>" + que + ": " +
                  (correcto ? std::string("correcto") : Latin1("falló: ") + EscapaComillaDoble(razon)) +
                  "</li>");
  }
  // An item that is neither right nor wrong ("no instalada", "sin red").
  void Nota(const std::string& que, const std::string& texto) {
    Linea(s_, "<li>" + que + ": " + EscapaComillaDoble(texto) + "</li>");
  }
  int total() const { return total_; }
  int fallas() const { return fallas_; }

 private:
  cgi::Solicitud& s_;
  int total_ = 0;
  int fallas_ = 0;
};

struct TablaEsperada {
  std::string nombre;
  std::vector<std::string> columnas;
};

// The tables and columns the gateway reads in each catalogue file.
std::vector<TablaEsperada> TablasEsperadas(std::string_view archivo) {
  const std::vector<std::string> palabras = {"palabra", "campo", "ficha", "posicion"};
  if (archivo == queries::kBiblio) {
    return {{"Fichas", {"Ficha_No", "Fecha", "FechaMod", "DatosFijos", "EtiquetasMARC", "TipoMaterial"}},
            {"Ejemplares",
             {"NumAdqui", "Biblioteca", "Ejemplar", "Volumen", "Tomo", "Accesible", "FechaIngreso",
              "Ficha_No"}},
            {"Configuracion", {Latin1("Descripción"), "Valor"}}};
  }
  if (archivo == queries::kIndiceLibros) return {{"TABLA", palabras}};
  if (archivo == queries::kIndiceRevistas) return {{"TABLA", palabras}, {"TABLAANA", palabras}};
  return {{"Consultas", {"Fecha", "Buscado", "Encontrados", "AdvSearch", "IP_Address"}}};
}

void RevisaTablas(ListaRevision& lista, db::Database& db, std::string_view archivo) {
  const std::vector<std::string> tablas = db.TableNames();
  for (const TablaEsperada& esperada : TablasEsperadas(archivo)) {
    const std::string que = "Tabla " + EscapaComillaDoble(esperada.nombre) + " de " + std::string(archivo);
    const auto tabla = std::find_if(tablas.begin(), tablas.end(), [&](const std::string& t) {
      return EqualsIgnoringCase(t, esperada.nombre);
    });
    if (tabla == tablas.end()) {
      lista.Item(que, false, "no existe la tabla");
      continue;
    }
    const std::vector<std::string> columnas = db.ColumnNames(*tabla);
    std::string faltan;
    for (const std::string& c : esperada.columnas) {
      const bool esta = std::any_of(columnas.begin(), columnas.end(),
                                    [&](const std::string& x) { return EqualsIgnoringCase(x, c); });
      if (!esta) faltan += (faltan.empty() ? "" : ", ") + c;
    }
    lista.Item(que, faltan.empty(), "faltan las columnas " + faltan);
  }
}

// A Jet statistics file takes the next row when it opens for writing and no
// other program holds its lock file: the check the writer makes before each
// row, made here without writing one (the Jet engine cannot take a row back).
void PruebaEscrituraJet(cgi::Solicitud& s, ListaRevision& lista, const std::string& que,
                        const std::string& ruta) {
  try {
    // Opened as the writer opens it, waiting as long for another writer, and
    // closed at once.
    db::jet::AbreParaEscribir(ruta, kEsperaEscritorMs, &s.plazo).reset();
    lista.Item(que, true, "");
  } catch (const db::jet::ErrorJet& e) {
    lista.Item(que, false, e.what());
  }
}

// Checks that the statistics file can take a row, and leaves it with every
// row it had and no other: a SQLite file gets a row inside a transaction
// that is rolled back; a Jet file the writer's own checks.
void PruebaEscritura(cgi::Solicitud& s, ListaRevision& lista, const std::string& ruta,
                     db::Motor motor) {
  const std::string que = "Escritura en " + std::string(kEstadisticas);
  if (motor == db::Motor::Jet) {
    PruebaEscrituraJet(s, lista, que, ruta);
    return;
  }
  try {
    std::unique_ptr<db::Database> db = s.bases.Open(ruta, {});
    db->Execute("BEGIN TRANSACTION");
    std::int64_t filas = 0;
    try {
      filas = db->Execute("INSERT INTO Consultas (Buscado, Encontrados) VALUES ('TEST_ALL', 0)");
    } catch (const RuntimeError&) {
      db->Execute("ROLLBACK");
      throw;
    }
    db->Execute("ROLLBACK");
    lista.Item(que, filas == 1, "la fila de prueba no se pudo insertar");
  } catch (const RuntimeError& e) {
    lista.Item(que, false, e.description());
  }
}

void RevisaArchivo(cgi::Solicitud& s, ListaRevision& lista, const std::string& dir,
                   std::string_view archivo) {
  const std::string nombre(archivo);
  const std::optional<std::string> ruta = BuscaArchivo(s, dir, archivo);
  lista.Item("Archivo " + nombre, ruta.has_value(), "no se encuentra en " + dir);
  if (!ruta) return;
  const db::Motor motor = db::MotorDeArchivo(*ruta);
  const std::string nombre_motor = NombreDelMotor(motor);
  lista.Item("Formato de " + nombre + (nombre_motor.empty() ? "" : " (" + nombre_motor + ")"),
             !nombre_motor.empty(), "formato no reconocido");
  std::unique_ptr<db::Database> db;
  try {
    db = s.bases.Open(*ruta, kSoloLectura);
    lista.Item("Apertura de " + nombre, true, "");
  } catch (const RuntimeError& e) {
    lista.Item("Apertura de " + nombre, false, e.description());
    return;
  }
  try {
    RevisaTablas(lista, *db, archivo);
  } catch (const RuntimeError& e) {
    lista.Item("Tablas de " + nombre, false, e.description());
  }
  db->Close();
  if (archivo == kEstadisticas) PruebaEscritura(s, lista, *ruta, motor);
}

// The safety settings in effect, for the webmaster: each either the safe
// default or the old behaviour that "orvex.ini" brought back.
void RevisaAjustes(cgi::Solicitud& s, ListaRevision& lista) {
  const config::Ajustes& a = s.ajustes;
  lista.Nota("ArchivoCFG", a.cfg_cualquier_ruta
                               ? Latin1("cualquier ruta (el comportamiento anterior)")
                               : Latin1("sólo archivos *.cfg del directorio del programa"));
  lista.Nota("Ecos", a.ecos_literales
                         ? Latin1("literales: el texto de la solicitud se escribe tal como llega "
                                  "(el comportamiento anterior)")
                         : Latin1("el texto de la solicitud se escribe escapado"));
  lista.Nota("Reservas", a.reservas_cualquier_servidor
                             ? Latin1("a cualquier servidor que nombre la solicitud (el "
                                      "comportamiento anterior)")
                             : Latin1("sólo a los servidores de DISPONIBILIDAD:"));
  lista.Nota("CuerpoMaximo", std::to_string(a.cuerpo_maximo) + " bytes");
}

void RevisaHoja(cgi::Solicitud& s, ListaRevision& lista, std::string_view archivo,
                std::string_view otra_carpeta = {}) {
  const std::string carpeta = JoinPath(s.sys.archivos.ProgramDirectory(), "XSLs");
  std::optional<std::string> ruta = FindFile(s.sys.archivos, JoinPath(carpeta, archivo));
  if (!ruta && !otra_carpeta.empty()) ruta = FindFile(s.sys.archivos, JoinPath(otra_carpeta, archivo));
  const std::string que = "Hoja de estilo " + std::string(archivo);
  if (ruta) {
    lista.Nota(que, "instalada en " + *ruta);
  } else {
    lista.Nota(que, "no instalada");
  }
}

void RevisaServidores(cgi::Solicitud& s, ListaRevision& lista) {
  const std::string seccion = s.Seccion("DISPONIBILIDAD:");
  bool alguno = false;
  for (const std::string& linea : LineasNoVacias(seccion)) {
    if (linea.size() < 4 || linea.compare(0, 2, "##") != 0 || !EsDigito(linea[2]) ||
        !EsDigito(linea[3])) {
      continue;
    }
    alguno = true;
    const auto numero = static_cast<std::uint8_t>((linea[2] - '0') * 10 + (linea[3] - '0'));
    circulation::ServidorCirculacion servidor;
    const std::string que = Latin1("Servidor de circulación ") + EscapaComillaDoble(linea.substr(0, 4));
    if (!circulation::BuscaServidor(seccion, numero, servidor)) {
      lista.Item(que, false, Latin1("la línea no tiene servidor y puerto"));
      continue;
    }
    const std::string destino = EscapaComillaDoble(servidor.direccion + ":" + servidor.puerto);
    if (s.red == nullptr) {
      lista.Nota(que + " " + destino, "sin red");
      continue;
    }
    Descarte descarte;
    std::string host = servidor.direccion;
    std::int32_t espera = kEsperaServidorMs;
    std::string traza;
    const bool responde = circulation::ChecaIP(*s.red, descarte, host, espera, traza);
    lista.Item(que + " " + destino, responde, "no responde");
  }
  if (!alguno) {
    lista.Nota(Latin1("Servidores de circulación"),
               Latin1("la configuración no tiene sección DISPONIBILIDAD:"));
  }
}

// The record number after the command name; nullopt when there is none or it
// is not a whole positive number.
std::optional<std::int32_t> NumeroDeFicha(const std::string& expresion, std::string& texto) {
  texto = Recorta(expresion.size() > 8 ? std::string_view(expresion).substr(8) : "");
  if (texto.empty() || texto.size() > 9) return std::nullopt;
  if (!std::all_of(texto.begin(), texto.end(), [](char c) { return EsDigito(c); })) return std::nullopt;
  const std::int32_t n = std::stoi(texto);
  if (n < 1) return std::nullopt;
  return n;
}

}  // namespace

bool ClienteAdministrador(const cgi::Solicitud& s) {
  const std::string ip = Recorta(s.cgi.Variable("REMOTE_ADDR"));
  if (ip.empty() || !ConfiguracionDelPrograma(s)) return false;
  for (const std::string& entrada : LineasNoVacias(s.Seccion("DIAGNOSTICO:"))) {
    const bool prefijo = entrada.back() == '.' || entrada.back() == ':';
    if (prefijo ? ip.rfind(entrada, 0) == 0 : ip == entrada) return true;
  }
  return false;
}

void ShowVer(cgi::Solicitud& s, const std::string&) {
  AbrePaginaPublica(s, Latin1("Versión de Orvex"));
  Linea(s, Latin1("<p>Versión: ") + EscapaComillaDoble(s.VersionPrograma) + "</p>");
  Linea(s, Latin1("<p>Orvex, pasarela web del catálogo de la biblioteca.</p>"));
  Linea(s, "<ul>");

  const std::string motor = std::string("SQLite ") + db::VersionSqlite() +
                            (s.sys.motores.DatabaseEngineWorks() ? "" : " (no funciona)");
  Linea(s, "<li>Motor de bases de datos: " + motor + "</li>");
  Linea(s, Latin1("<li>Módulo del procesador XSL: ") +
               (s.sys.motores.XmlParserWorks() ? std::string("encontrado")
                                                : std::string("no encontrado")) +
               "</li>");
  Linea(s, Latin1("<li>Lenguaje de consulta, índice de palabras, presentaciones de fichas "
                  "(tarjeta, descripción breve, tabla de campos) y enlace con el servidor de "
                  "circulación: Orvex</li>"));
  Linea(s, "</ul>");
  CierraPagina(s);
}

void DebugCfg(cgi::Solicitud& s, const std::string&) {
  if (!Autorizado(s, "DEBUGCFG")) return;
  AbrePagina(s, Latin1("Archivo de configuración"));
  Linea(s, "<p>Archivo: " + EscapaComillaDoble(s.cfg.ArchivoCFG) + "</p>");
  if (s.cfg.TextoCFG.empty()) {
    Linea(s, Latin1("<p>El archivo está vacío o no se encontró.</p>"));
  } else {
    Linea(s, "<pre>" + EscapaComillaDoble(s.cfg.TextoCFG) + "</pre>");
  }
  CierraPagina(s);
}

void ShowBdt(cgi::Solicitud& s, const std::string&) {
  AbrePaginaPublica(s, Latin1("Bases de datos del catálogo"));
  std::string error;
  const std::vector<Catalogo> catalogos = Catalogos(s, error);
  if (catalogos.empty()) Linea(s, "<p>" + EscapaComillaDoble(error) + "</p>");
  for (const Catalogo& c : catalogos) {
    Linea(s, "<H4>" + NombrePublico(c) + "</H4>");
    Linea(s, "<ul>");
    if (const auto ruta = BuscaArchivo(s, c.ruta, queries::kBiblio)) {
      try {
        std::unique_ptr<db::Database> db = s.bases.Open(*ruta, kSoloLectura);
        Linea(s, Latin1("<li>Títulos: ") +
                     EscapaComillaDoble(Consulta(*db, "SELECT COUNT(*) AS v FROM Fichas")) + "</li>");
        Linea(s, "<li>Ejemplares: " +
                     EscapaComillaDoble(Consulta(*db, "SELECT COUNT(*) AS v FROM Ejemplares")) + "</li>");
      } catch (const RuntimeError& e) {
        // The description would name the file's path.
        Linea(s, "<li>No se pudo leer " + std::string(queries::kBiblio) + " (error " +
                     std::to_string(e.number()) + ")</li>");
      }
    } else {
      Linea(s, Latin1("<li>No se encontró ") + std::string(queries::kBiblio) + "</li>");
    }
    // The word index keeps no record of its builds: the file's modification
    // time is the moment the last one finished.
    Linea(s, Latin1("<li>La base de índice no registra la fecha ni la duración de su "
                    "indización.</li>"));
    const auto indice = BuscaArchivo(s, c.ruta, queries::kIndiceLibros);
    const std::string fecha = indice ? FechaModificacion(*indice) : "";
    if (fecha.empty()) {
      Linea(s, Latin1("<li>Última indización: desconocida (no se encontró ") +
                   std::string(queries::kIndiceLibros) + ")</li>");
    } else {
      Linea(s, Latin1("<li>Última indización: ") + fecha + Latin1(" (fecha de modificación del "
                                                                   "archivo ") +
                   std::string(queries::kIndiceLibros) + ")</li>");
    }
    Linea(s, Latin1("<li>Duración de la indización: no registrada</li>"));
    Linea(s, "</ul>");
  }
  CierraPagina(s);
}

void ShowSec(cgi::Solicitud& s, const std::string& expresion) {
  if (!Autorizado(s, "SHOW_SEC")) return;
  AbrePagina(s, Latin1("Presentaciones de una ficha"));
  std::string texto;
  const std::optional<std::int32_t> numero = NumeroDeFicha(expresion, texto);
  std::string error;
  const std::vector<Catalogo> catalogos = Catalogos(s, error);
  std::optional<std::string> ruta;
  if (!numero) {
    error = texto.empty()
                ? Latin1("Escriba el número de la ficha después del comando, por ejemplo: SHOW_SEC 15")
                : Latin1("El número de ficha «") + texto + Latin1("» no es válido.");
  } else if (!catalogos.empty()) {
    ruta = BuscaArchivo(s, catalogos.front().ruta, queries::kBiblio);
    if (!ruta) error = Latin1("No se encontró ") + std::string(queries::kBiblio) + " en " + catalogos.front().ruta;
  }
  if (!ruta) {
    config::MensajeH4(s.sys.salida, EscapaComillaDoble(error));
    CierraPagina(s);
    return;
  }
  Linea(s, "<p>Ficha " + std::to_string(*numero) + " del " + Latin1("catálogo ") +
               TituloCatalogo(catalogos.front()) + "</p>");

  records::RegFicha ficha;
  try {
    s.BDBiblio = s.bases.Open(*ruta, kSoloLectura);
    // The settings report their style sheets as they load them; this page
    // shows the record only.
    Descarte descarte;
    Servicios callado{s.sys.entorno, s.sys.entrada, descarte, s.sys.reloj, s.sys.archivos,
                      s.sys.motores};
    config::CargaConfiguracion(s.instalacion, *s.BDBiblio, "LIBROS", catalogos.front().ruta, callado);
    records::CargaFicha(*s.BDBiblio, *numero, ficha);
  } catch (const RuntimeError& e) {
    config::MensajeH4(s.sys.salida, "No se pudo leer el " + Latin1("catálogo: ") +
                                        EscapaComillaDoble(e.description()));
    CierraPagina(s);
    return;
  }
  if (ficha.Ficha_no == 0) {
    config::MensajeH4(s.sys.salida, "No existe la ficha " + std::to_string(*numero) + Latin1(" en el catálogo."));
    CierraPagina(s);
    return;
  }

  Linea(s, Latin1("<H4>Tarjeta catalográfica</H4>"));
  // The card goes through the page's "FORMATO:"; without one it is shown
  // alone.
  const std::string texto_cfg = s.cfg.TextoCFG;
  if (s.Seccion("FORMATO:").empty()) s.cfg.TextoCFG = "FORMATO:{<!FICHA!>}" + texto_cfg;
  s.MostrarFichaBIB = 0;
  s.MostrarFichaBDL = 0;
  s.pagina.Total = s.pagina.Cantidad = s.pagina.Desde = 1;
  presentation::MuestraFicha(s, ficha, 1);
  s.cfg.TextoCFG = texto_cfg;

  Linea(s, Latin1("<H4>Descripción breve</H4>"));
  Linea(s, "<p>" + records::FichaBreve(ficha) + "</p>");
  Linea(s, "<H4>Tabla de campos</H4>");
  Linea(s, records::TablaCampos(ficha));
  Linea(s, "<H4>Documento XML de la tarjeta</H4>");
  Linea(s, "<pre>" + EscapaComillaDoble(xml::XMLTarjeta(ficha)) + "</pre>");
  Linea(s, "<H4>Documento XML de la ficha</H4>");
  Linea(s, "<pre>" + EscapaComillaDoble(xml::XMLFicha(ficha, s.instalacion)) + "</pre>");
  CierraPagina(s);
}

void TestAll(cgi::Solicitud& s, const std::string&) {
  if (!Autorizado(s, "TEST_ALL")) return;
  AbrePagina(s, Latin1("Revisión de la instalación"));
  ListaRevision lista(s);

  Linea(s, Latin1("<H4>Archivo de configuración</H4>"));
  Linea(s, "<p>" + EscapaComillaDoble(s.cfg.ArchivoCFG) + "</p>");
  Linea(s, "<ul>");
  for (std::string_view seccion :
       {"BASE:", "ENCABEZADO:", "FORMATO:", "SEPARADOR:", "NOENCONTRADO:", "FINAL:"}) {
    const std::size_t p = s.cfg.TextoCFG.find(seccion);
    const bool presente = p != std::string::npos &&
                          s.cfg.TextoCFG.find('{', p + seccion.size()) != std::string::npos;
    // "Sección BASE", not "Sección BASE:", ahead of the item's own ": ".
    lista.Item(Latin1("Sección ") + std::string(seccion.substr(0, seccion.size() - 1)), presente,
               "no existe");
  }
  Linea(s, "</ul>");

  Linea(s, "<H4>Ajustes de seguridad (" + std::string(config::kArchivoAjustes) + ")</H4>");
  Linea(s, "<ul>");
  RevisaAjustes(s, lista);
  Linea(s, "</ul>");

  std::string error;
  const std::vector<Catalogo> catalogos = Catalogos(s, error);
  if (catalogos.empty()) {
    Linea(s, "<ul>");
    lista.Item("Directorio de BASE:", false, error);
    Linea(s, "</ul>");
  }
  for (const Catalogo& c : catalogos) {
    Linea(s, Latin1("<H4>Catálogo ") + TituloCatalogo(c) + "</H4>");
    Linea(s, "<ul>");
    const bool hay_directorio = !s.sys.archivos.List(c.ruta).empty();
    lista.Item("Directorio " + EscapaComillaDoble(c.ruta), hay_directorio,
               "no existe, no se puede leer o no tiene archivos");
    if (hay_directorio) {
      for (std::string_view archivo :
           {queries::kBiblio, queries::kIndiceLibros, queries::kIndiceRevistas, kEstadisticas}) {
        RevisaArchivo(s, lista, c.ruta, archivo);
      }
    }
    Linea(s, "</ul>");
  }

  Linea(s, "<H4>Hojas de estilo</H4>");
  Linea(s, "<ul>");
  Linea(s, Latin1("<li>Módulo del procesador XSL: ") +
               (s.sys.motores.XmlParserWorks() ? std::string("encontrado") : std::string("no encontrado")) +
               "</li>");
  RevisaHoja(s, lista, "fichaWeb.xsl", catalogos.empty() ? "" : catalogos.front().ruta);
  RevisaHoja(s, lista, "pp_propia.xsl");
  RevisaHoja(s, lista, "pp_propia_ana.xsl");
  Linea(s, "</ul>");

  Linea(s, Latin1("<H4>Servidores de circulación</H4>"));
  Linea(s, "<ul>");
  RevisaServidores(s, lista);
  Linea(s, "</ul>");

  Linea(s, "<p>" + std::to_string(lista.total()) + " comprobaciones, " +
               std::to_string(lista.fallas()) + Latin1(" fallaron.</p>"));
  CierraPagina(s);
}

}  // namespace orvex::gateway
