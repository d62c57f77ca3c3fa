#include "circulation/Reserva.h"

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

// The answer's first "Reservacion" element, read by the XSL processor: the
// name and value of its first attribute and the value of its second, one
// per line; "-" alone when there is no such element.
constexpr std::string_view kLeeRespuesta =
    "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
    "<xsl:output method=\"text\"/>"
    "<xsl:template match=\"/\"><xsl:variable name=\"r\" select=\"(//Reservacion)[1]\"/>"
    "<xsl:choose><xsl:when test=\"not($r)\">-</xsl:when><xsl:otherwise>"
    "<xsl:value-of select=\"name($r/@*[1])\"/><xsl:text>&#10;</xsl:text>"
    "<xsl:value-of select=\"$r/@*[1]\"/><xsl:text>&#10;</xsl:text>"
    "<xsl:value-of select=\"$r/@*[2]\"/></xsl:otherwise></xsl:choose>"
    "</xsl:template></xsl:stylesheet>";

// A request field as the text of an element of the command: the five XML
// characters as entities and each control character (CR, LF, tab...) as a
// character reference, so that no field can close its element, add another
// or break the command into lines. Other bytes travel as they are
// (Windows-1252).
std::string TextoComando(std::string_view texto) {
  std::string r;
  for (const char c : EscapaEntidadesXML(texto)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      r += "&#" + std::to_string(byte) + ";";
    } else {
      r += c;
    }
  }
  return r;
}

// The answer's page. `de_confianza`: the server is one the configuration
// lists, whose words go on the page as they are; the words of a server that
// only the request named are request text, echoed as such.
void MuestraRespuesta(cgi::Solicitud& s, const std::string& respuesta, bool de_confianza) {
  Output& salida = s.sys.salida;
  const CodePage& pagina = CodePage::Windows1252();
  const ResultadoXSL r =
      s.sys.motores.Xsl().Transforma(pagina.ToUtf8("<?xml version='1.0'?>\r\n" + respuesta),
                                     kLeeRespuesta);
  // The answer is read within the request's time like any transformation.
  if (r.estado == ResultadoXSL::Estado::PlazoVencido) throw TiempoAgotado{};
  if (r.estado != ResultadoXSL::Estado::Correcto) {
    EnviaLinea(salida, "<h1>Error: al cargar doc. XML de respuesta a comando de reservacion</h1>");
    return;
  }
  if (r.texto == "-") {
    EnviaLinea(salida, "<h1>Error: al cargar Nodo de Respuesta de Reservacion</h1>");
    return;
  }
  std::string nombre, estado, mensaje;
  {
    const size_t a = r.texto.find('\n');
    const size_t b = a == std::string::npos ? std::string::npos : r.texto.find('\n', a + 1);
    nombre = r.texto.substr(0, a);
    if (a != std::string::npos) estado = r.texto.substr(a + 1, b == std::string::npos ? b : b - a - 1);
    if (b != std::string::npos) mensaje = r.texto.substr(b + 1);
  }
  if (nombre != "Estado") {
    EnviaLinea(salida, "<h1>Error al leer codigo de respuesta de reservacion</h1>");
    return;
  }
  std::string seccion;
  if (TrimBlanks(estado) == "0") {
    seccion = s.Seccion("MSG_RESERVA_EXITOSA:");
    ReemplazaTexto(seccion, "<!ESTATUS_RESERVA!>", "<b>Reserva exitosa</b>");
  } else {
    seccion = s.Seccion("MSG_RESERVA_ERROR:");
    ReemplazaTexto(seccion, "<!ESTATUS_RESERVA!>", de_confianza ? mensaje : s.Eco(mensaje));
  }
  EnviaLinea(salida, seccion);
}

}  // namespace

void PaginaReserva(cgi::Solicitud& s, const std::string&) {
  Output& salida = s.sys.salida;
  CabeceraCirculacion(salida);
  // A configuration may give the page its own opening (a language, a title
  // and styles for readers); without one it opens as it always has.
  std::string apertura = s.Seccion("ENCABEZADO_RESERVA:");
  if (apertura.empty()) {
    apertura = Latin1("<HTML><HEAD><title>KORVEL8 - Autentificación de usuario para reserva de "
                      "ejemplares</title></HEAD><BODY>");
  }
  ReemplazaTexto(apertura, "<!TITULO!>", EscapaEco(s.TituloFicha));
  EnviaLinea(salida, apertura);
  std::string seccion = s.Seccion("RESERVA_MATERIAL:");
  ReemplazaTexto(seccion, "<!TITULO!>", EscapaEco(s.TituloFicha));
  ReemplazaTexto(seccion, "<!COMANDO_SE!>", "CRESERVA");
  ReemplazaTexto(seccion, "<!DIRECCIONIP!>", s.Eco(cgi::ValorCGI(s.cgi, "direccionIP")));
  ReemplazaTexto(seccion, "<!PUERTOTCP!>", s.Eco(cgi::ValorCGI(s.cgi, "puertoTCP")));
  ReemplazaTexto(seccion, "<!DISP_NUMADQUI!>", s.Eco(cgi::ValorCGI(s.cgi, "NumAdqui")));
  // The name as the request gave it, which the form posts back and the
  // loader takes again; the completed path only where any path is allowed.
  ReemplazaTexto(seccion, "<!ArchivoCFG!>",
                 s.Eco(s.ajustes.cfg_cualquier_ruta
                           ? s.cfg.ArchivoCFG
                           : TrimBlanks(cgi::ValorCGI(s.cgi, "ArchivoCFG"))));
  EnviaLinea(salida, seccion);
  EnviaLinea(salida, "</BODY></HTML>");
}

void Reserva(cgi::Solicitud& s, const std::string&) {
  const std::unique_ptr<Enchufe> enchufe = EnchufePosix();
  Reserva(s, *enchufe);
}

void Reserva(cgi::Solicitud& s, Enchufe& enchufe) {
  Output& salida = s.sys.salida;
  const std::string direccion = cgi::ValorCGI(s.cgi, "direccionIP");
  const std::string puerto_texto = cgi::ValorCGI(s.cgi, "puertoTCP");
  const std::string numadqui = cgi::ValorCGI(s.cgi, "NumAdqui");
  const std::string cuenta = cgi::ValorCGI(s.cgi, "NumCta");
  (void)cgi::ValorCGI(s.cgi, "PWD");  // read, and never sent
  ServidorCirculacion servidor{direccion, puerto_texto};
  const bool listado = ServidorListado(s.Seccion("DISPONIBILIDAD:"), direccion,
                                       PuertoTCP(puerto_texto), servidor);
  if (!listado && !s.ajustes.reservas_cualquier_servidor) {
    // Not a server of the configuration: nothing is looked up or connected,
    // and the page says what it says of a server that does not answer.
    EnviaLinea(salida, "<h1>Error: no se pudo establecer la conexion: Conexion TimeOut</h1>");
    return;
  }
  if (!ConectaServidor(s, enchufe, servidor.direccion, servidor.puerto, AvisoRechazo::kTimeOut)) {
    return;
  }

  const std::string comando = "<comandoSE class='RESERVA'><NumAdqui>" + TextoComando(numadqui) +
                              "</NumAdqui><NumCta>" + TextoComando(cuenta) +
                              "</NumCta><PWD/></comandoSE>";
  std::string respuesta;
  if (enchufe.Envia(comando)) {
    // Only the watchdog limits the wait for the answer.
    std::optional<std::string> llegada;
    while (!(llegada = enchufe.Recibe(kPasoMs))) cgi::Cede(s);
    respuesta = std::move(*llegada);
  }
  CabeceraCirculacion(salida);
  MuestraRespuesta(s, respuesta, listado);
}

}  // namespace orvex::circulation
