#include "gateway/Revision.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "base/CodePage.h"
#include "base/Html.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "circulation/ChecaIP.h"
#include "circulation/Disponibilidad.h"
#include "config/Instalacion.h"
#include "db/Database.h"
#include "db/jet/EscritorJet.h"
#include "gateway/PaginaDiagnostico.h"
#include "queries/AbreBases.h"

namespace orvex::gateway {
namespace {

constexpr std::string_view kEstadisticas = "estadisticas.mdb";
// The longest round trip, in milliseconds, that counts as a circulation
// server answering during the checklist.
constexpr std::int32_t kEsperaServidorMs = 500;
// How long the write check of a Jet statistics file waits for another
// writer of the file, in milliseconds: as long as a statistics row waits.
constexpr int kEsperaEscritorMs = 3000;

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

// The checklist's items as the page lists them, counted for its last line.
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
    // closed at once. The Jet writer opens and locks the file itself, beside
    // the request's database opener, as it does for every statistics row.
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
  // The engine is told by the file's first bytes, which the database layer
  // reads itself: the request's file system reads no file in part.
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

}  // namespace

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
