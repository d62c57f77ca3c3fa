#include "gateway/Diagnostico.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "base/CodePage.h"
#include "base/Html.h"
#include "base/RuntimeError.h"
#include "config/Instalacion.h"
#include "config/Plantillas.h"
#include "db/Database.h"
#include "db/SqliteEngine.h"
#include "gateway/PaginaDiagnostico.h"
#include "presentation/MuestraFicha.h"
#include "queries/AbreBases.h"
#include "records/CargaFicha.h"
#include "records/Presentaciones.h"
#include "xml/XMLFicha.h"
#include "xml/XMLTarjeta.h"

namespace orvex::gateway {
namespace {

// The catalogue as a public page names it: by its collection's name, or by
// its number, never by its directory.
std::string NombrePublico(const Catalogo& c) {
  return c.nombre.empty() ? Latin1("Catálogo ") + std::to_string(c.numero) : EscapaComillaDoble(c.nombre);
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
std::string FechaModificacion(FileSystem& archivos, const std::string& ruta) {
  const std::optional<DateTime> cuando = archivos.ModificationTime(ruta);
  if (!cuando) return "";
  return Dos(cuando->day) + "/" + Dos(cuando->month) + "/" + std::to_string(cuando->year) + " " +
         Dos(cuando->hour) + ":" + Dos(cuando->minute) + ":" + Dos(cuando->second);
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
    const std::string fecha = indice ? FechaModificacion(s.sys.archivos, *indice) : "";
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

}  // namespace orvex::gateway
