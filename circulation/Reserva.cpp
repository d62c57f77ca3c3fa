#include "circulation/Reserva.h"

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/Plantillas.h"
#include "gateway/Bitacora.h"
#include "gateway/EntradaCGI.h"

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

void MuestraRespuesta(gateway::Solicitud& s, const std::string& respuesta) {
  Output& salida = s.sys.salida;
  const CodePage& pagina = CodePage::Windows1252();
  const ResultadoXSL r =
      s.sys.motores.Xsl().Transforma(pagina.ToUtf8("<?xml version='1.0'?>\r\n" + respuesta),
                                     kLeeRespuesta);
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
    ReemplazaTexto(seccion, "<!ESTATUS_RESERVA!>", mensaje);
  }
  EnviaLinea(salida, seccion);
}

}  // namespace

void PaginaReserva(gateway::Solicitud& s, const std::string&) {
  Output& salida = s.sys.salida;
  CabeceraCirculacion(salida);
  EnviaLinea(salida, Latin1("<HTML><HEAD><title>KORVEL8 - Autentificación de usuario para "
                            "reserva de ejemplares</title></HEAD><BODY>"));
  std::string seccion = s.Seccion("RESERVA_MATERIAL:");
  ReemplazaTexto(seccion, "<!COMANDO_SE!>", "CRESERVA");
  ReemplazaTexto(seccion, "<!DIRECCIONIP!>", gateway::ValorCGI(s.cgi, "direccionIP"));
  ReemplazaTexto(seccion, "<!PUERTOTCP!>", gateway::ValorCGI(s.cgi, "puertoTCP"));
  ReemplazaTexto(seccion, "<!DISP_NUMADQUI!>", gateway::ValorCGI(s.cgi, "NumAdqui"));
  ReemplazaTexto(seccion, "<!ArchivoCFG!>", s.cfg.ArchivoCFG);
  EnviaLinea(salida, seccion);
  EnviaLinea(salida, "</BODY></HTML>");
}

void Reserva(gateway::Solicitud& s, const std::string&) {
  const std::unique_ptr<Enchufe> enchufe = EnchufePosix();
  Reserva(s, *enchufe);
}

void Reserva(gateway::Solicitud& s, Enchufe& enchufe) {
  Output& salida = s.sys.salida;
  const std::string direccion = gateway::ValorCGI(s.cgi, "direccionIP");
  const std::string puerto_texto = gateway::ValorCGI(s.cgi, "puertoTCP");
  const std::string numadqui = gateway::ValorCGI(s.cgi, "NumAdqui");
  const std::string cuenta = gateway::ValorCGI(s.cgi, "NumCta");
  (void)gateway::ValorCGI(s.cgi, "PWD");  // read, and never sent
  if (!ConectaServidor(s, enchufe, direccion, puerto_texto)) return;

  const std::string comando = "<comandoSE class='RESERVA'><NumAdqui>" + numadqui +
                              "</NumAdqui><NumCta>" + cuenta + "</NumCta><PWD/></comandoSE>";
  std::string respuesta;
  if (enchufe.Envia(comando)) {
    // Only the watchdog limits the wait for the answer.
    std::optional<std::string> llegada;
    while (!(llegada = enchufe.Recibe(kPasoMs))) gateway::Cede(s);
    respuesta = std::move(*llegada);
  }
  CabeceraCirculacion(salida);
  MuestraRespuesta(s, respuesta);
}

}  // namespace orvex::circulation
