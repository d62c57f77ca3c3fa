#include "circulation/VerDisponibilidad.h"

#include <array>
#include <vector>

#include "base/CodePage.h"
#include "base/Plazo.h"
#include "base/EnviaLinea.h"
#include "base/Html.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "circulation/Disponibilidad.h"
#include "config/Plantillas.h"
#include "cgi/Bitacora.h"
#include "cgi/EntradaCGI.h"

namespace orvex::circulation {
namespace {

using config::ReemplazaTexto;

// The answer read by the XSL processor into lines: "D" and then one line per
// copy with its six attributes separated by tabs; "E", a tab and the
// message for an "Error" element; "-" when there is neither. Tabs and line
// ends inside values become blanks, so the lines cannot be confused.
constexpr std::string_view kLeeRespuesta =
    "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
    "<xsl:output method=\"text\"/>"
    "<xsl:template name=\"v\"><xsl:param name=\"a\"/>"
    "<xsl:value-of select=\"translate($a, '&#9;&#10;&#13;', '   ')\"/></xsl:template>"
    "<xsl:template match=\"/\"><xsl:variable name=\"d\" select=\"(//Disponibilidad)[1]\"/>"
    "<xsl:choose><xsl:when test=\"$d\"><xsl:text>D</xsl:text>"
    "<xsl:for-each select=\"$d/Ejemplar\"><xsl:text>&#10;</xsl:text>"
    "<xsl:call-template name=\"v\"><xsl:with-param name=\"a\" select=\"@NumAdqui\"/></xsl:call-template><xsl:text>&#9;</xsl:text>"
    "<xsl:call-template name=\"v\"><xsl:with-param name=\"a\" select=\"@Biblioteca\"/></xsl:call-template><xsl:text>&#9;</xsl:text>"
    "<xsl:call-template name=\"v\"><xsl:with-param name=\"a\" select=\"@Volumen\"/></xsl:call-template><xsl:text>&#9;</xsl:text>"
    "<xsl:call-template name=\"v\"><xsl:with-param name=\"a\" select=\"@Ejemplar\"/></xsl:call-template><xsl:text>&#9;</xsl:text>"
    "<xsl:call-template name=\"v\"><xsl:with-param name=\"a\" select=\"@Estado\"/></xsl:call-template><xsl:text>&#9;</xsl:text>"
    "<xsl:call-template name=\"v\"><xsl:with-param name=\"a\" select=\"@Vence\"/></xsl:call-template>"
    "</xsl:for-each></xsl:when>"
    "<xsl:when test=\"//Error\"><xsl:text>E&#9;</xsl:text>"
    "<xsl:call-template name=\"v\"><xsl:with-param name=\"a\" select=\"(//Error)[1]/@Mensaje\"/></xsl:call-template>"
    "</xsl:when><xsl:otherwise>-</xsl:otherwise></xsl:choose>"
    "</xsl:template></xsl:stylesheet>";

struct Copia {
  enum Campo { kNumAdqui, kBiblioteca, kVolumen, kEjemplar, kEstado, kVence, kCampos };
  std::array<std::string, kCampos> v;
};

std::vector<std::string_view> Parte(std::string_view texto, char separador) {
  std::vector<std::string_view> partes;
  for (;;) {
    const size_t fin = texto.find(separador);
    partes.push_back(texto.substr(0, fin));
    if (fin == std::string_view::npos) return partes;
    texto.remove_prefix(fin + 1);
  }
}

// A value from the server as page text: the characters that could end a
// text or either kind of attribute value, as character references.
std::string Escapa(std::string_view texto) { return EscapaEco(texto); }

std::string EstadoEnPalabras(const std::string& estado) {
  if (estado == "disponible") return "Disponible";
  if (estado == "prestado") return "Prestado";
  if (estado == "reservado") return "Reservado";
  if (estado == "no accesible") return "No accesible";
  return estado;
}

// What the head, the foot and each copy share.
struct Pagina {
  std::string ficha, base_dta, archivo_cfg, total, disponibles, titulo;

  void Llena(std::string& texto) const {
    ReemplazaTexto(texto, "<!NFICHA!>", ficha);
    ReemplazaTexto(texto, "<!TITULO!>", titulo);
    ReemplazaTexto(texto, "<!BaseDTA!>", base_dta);
    ReemplazaTexto(texto, "<!ArchivoCFG!>", archivo_cfg);
    ReemplazaTexto(texto, "<!TOTAL!>", total);
    ReemplazaTexto(texto, "<!DISPONIBLES!>", disponibles);
  }
};

void MuestraCopias(cgi::Solicitud& s, const std::vector<Copia>& copias,
                   const ServidorCirculacion& servidor, Pagina pagina) {
  Output& salida = s.sys.salida;
  size_t disponibles = 0;
  for (const Copia& c : copias) disponibles += c.v[Copia::kEstado] == "disponible";
  pagina.total = std::to_string(copias.size());
  pagina.disponibles = std::to_string(disponibles);

  std::string encabezado = s.Seccion("ENCABEZADO_DISPONIBILIDAD:");
  pagina.Llena(encabezado);
  EnviaLinea(salida, encabezado);
  const std::string detalle = s.Seccion("DETALLE_DISPONIBILIDAD:");
  const std::string accion = s.Seccion("ACCION_DISPONIBILIDAD:");
  for (const Copia& c : copias) {
    const std::string& estado = c.v[Copia::kEstado];
    std::string numadqui = Escapa(c.v[Copia::kNumAdqui]);
    std::string boton;
    if (estado == "disponible" || estado == "prestado") {
      boton = accion;
      ReemplazaTexto(boton, "<!COMANDO_SE!>", "VRESERVA");
      ReemplazaTexto(boton, "<!DIRECCIONIP!>", Escapa(servidor.direccion));
      ReemplazaTexto(boton, "<!PUERTOTCP!>", Escapa(servidor.puerto));
      ReemplazaTexto(boton, "<!DISP_NUMADQUI!>", numadqui);
      ReemplazaTexto(boton, "<!NFICHA!>", pagina.ficha);
      ReemplazaTexto(boton, "<!ArchivoCFG!>", pagina.archivo_cfg);
    }
    std::string linea = detalle;
    ReemplazaTexto(linea, "<!NUMADQUI!>", numadqui);
    ReemplazaTexto(linea, "<!BIBLIOTECA!>", Escapa(c.v[Copia::kBiblioteca]));
    ReemplazaTexto(linea, "<!VOLUMEN!>", Escapa(c.v[Copia::kVolumen]));
    ReemplazaTexto(linea, "<!EJEMPLAR!>", Escapa(c.v[Copia::kEjemplar]));
    ReemplazaTexto(linea, "<!VENCE!>", Escapa(c.v[Copia::kVence]));
    ReemplazaTexto(linea, "<!ESTADO!>", Escapa(EstadoEnPalabras(estado)));
    ReemplazaTexto(linea, "<!CODIGO_ESTADO!>", Escapa(estado));
    pagina.Llena(linea);
    ReemplazaTexto(linea, "<!ACCION!>", boton);
    EnviaLinea(salida, linea);
  }
  std::string final = s.Seccion("FINAL_DISPONIBILIDAD:");
  pagina.Llena(final);
  EnviaLinea(salida, final);
}

void MuestraRespuesta(cgi::Solicitud& s, const std::string& respuesta,
                      const ServidorCirculacion& servidor, const Pagina& pagina) {
  Output& salida = s.sys.salida;
  const ResultadoXSL r = s.sys.motores.Xsl().Transforma(
      CodePage::Windows1252().ToUtf8("<?xml version='1.0'?>\r\n" + respuesta), kLeeRespuesta);
  // The answer is read within the request's time like any transformation.
  if (r.estado == ResultadoXSL::Estado::PlazoVencido) throw TiempoAgotado{};
  if (r.estado != ResultadoXSL::Estado::Correcto) {
    EnviaLinea(salida,
               "<h1>Error: al cargar doc. XML de respuesta a comando de disponibilidad</h1>");
    return;
  }
  const std::vector<std::string_view> lineas = Parte(r.texto, '\n');
  if (lineas[0].starts_with("E\t")) {
    EnviaLinea(salida, "<h1>Error: el servidor de circulacion respondio: " +
                           Escapa(lineas[0].substr(2)) + "</h1>");
    return;
  }
  if (lineas[0] != "D") {
    EnviaLinea(salida, "<h1>Error: al cargar Nodo de Respuesta de Disponibilidad</h1>");
    return;
  }
  std::vector<Copia> copias;
  for (size_t i = 1; i < lineas.size(); ++i) {
    const std::vector<std::string_view> campos = Parte(lineas[i], '\t');
    Copia& c = copias.emplace_back();
    for (size_t k = 0; k < c.v.size() && k < campos.size(); ++k) c.v[k] = std::string(campos[k]);
  }
  MuestraCopias(s, copias, servidor, pagina);
}

}  // namespace

void VerDisponibilidad(cgi::Solicitud& s, const std::string&) {
  const std::unique_ptr<Enchufe> enchufe = EnchufePosix();
  VerDisponibilidad(s, *enchufe);
}

void VerDisponibilidad(cgi::Solicitud& s, Enchufe& enchufe) {
  Output& salida = s.sys.salida;
  const std::string ficha_texto = cgi::ValorCGI(s.cgi, "NoFicha");
  const std::string base_texto = cgi::ValorCGI(s.cgi, "BaseDTA");
  Pagina pagina;
  std::uint8_t base_dta = 0;
  long long ficha = 0;
  try {
    if (IsWholeNumber(ficha_texto)) ficha = ToInt32(LeadingNumber(ficha_texto));
    if (IsWholeNumber(base_texto)) base_dta = ToByte(LeadingNumber(base_texto));
  } catch (const RuntimeError&) {
  }
  pagina.ficha = std::to_string(ficha);
  pagina.base_dta = std::to_string(base_dta);
  // The name as the request gave it, as the record display writes it: the
  // loader's full path would show where the program lives.
  pagina.archivo_cfg = Escapa(TrimBlanks(cgi::ValorCGI(s.cgi, "ArchivoCFG")));
  pagina.titulo = Escapa(s.TituloFicha);

  ServidorCirculacion servidor;
  if (!BuscaServidor(s.Seccion("DISPONIBILIDAD:"), base_dta, servidor)) {
    EnviaLinea(salida, Latin1("<h1>Error: no se pudo establecer la conexion: la configuración "
                              "no nombra servidor de circulación para la base ") +
                           pagina.base_dta + "</h1>");
    return;
  }
  // The refusal keeps its own words here: the server is the configuration's,
  // and its administrator learns from the page that it is not running.
  if (!ConectaServidor(s, enchufe, servidor.direccion, servidor.puerto, AvisoRechazo::kRazon)) {
    return;
  }

  const std::string comando =
      "<comandoSE class='DISPONIBILIDAD'><Ficha>" + pagina.ficha + "</Ficha></comandoSE>";
  std::string respuesta;
  bool excede = false;
  if (enchufe.Envia(comando)) {
    // Only the watchdog limits the wait; the answer ends when the server
    // closes the connection or its closing tag has come.
    for (;;) {
      std::optional<std::string> llegada = enchufe.Recibe(kPasoMs);
      if (!llegada) {
        cgi::Cede(s);
        continue;
      }
      if (llegada->empty()) break;
      respuesta += *llegada;
      if (respuesta.size() > kMaxRespuestaDisponibilidad) {
        excede = true;
        break;
      }
      if (respuesta.find("</Disponibilidad>") != std::string::npos) break;
    }
  }
  CabeceraCirculacion(salida);
  if (excede) {
    EnviaLinea(salida, "<h1>Error: la respuesta del servidor de circulacion excede 1 MB</h1>");
    return;
  }
  MuestraRespuesta(s, respuesta, servidor, pagina);
}

}  // namespace orvex::circulation
