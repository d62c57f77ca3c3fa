#include "circulation/Reserva.h"

#include <gtest/gtest.h>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "cgi/Bitacora.h"
#include "cgi/EntradaCGI.h"
#include "tests/circulation/ServidorGuionado.h"
#include "tests/support/Fakes.h"
#include "xslt/MotorLibxslt.h"

namespace orvex::circulation {
namespace {

constexpr const char* kSecciones =
    "MSG_RESERVA_EXITOSA:{<p>Listo: <!ESTATUS_RESERVA!></p>}\r\n"
    "MSG_RESERVA_ERROR:{<p>No se pudo: <!ESTATUS_RESERVA!></p>}\r\n"
    "RESERVA_MATERIAL:{<form action='/cgi-bin/orvex'><input name='txtLIB' value='<!COMANDO_SE!>'>"
    "<input name='direccionIP' value='<!DIRECCIONIP!>'><input name='puertoTCP' "
    "value='<!PUERTOTCP!>'><input name='NumAdqui' value='<!DISP_NUMADQUI!>'><input "
    "name='ArchivoCFG' value='<!ArchivoCFG!>'></form>}\r\n";

constexpr const char* kCabecera = "Content-Type: text/html\r\nCache-Control: public\r\n\r\n";
const std::string kTimeOut =
    "<h1>Error: no se pudo establecer la conexion: Conexion TimeOut</h1>\r\n";

// One request: the configuration's "DISPONIBILIDAD:" lines and the request's
// fields as a query string.
struct Peticion {
  testing::FakePlatform p;
  xslt::MotorLibxslt motor;
  cgi::Solicitud s{p.sys, p.bases};

  Peticion(const std::string& disponibilidad, const std::string& campos) {
    p.motores.xsl = &motor;
    s.cfg.TextoCFG = "DISPONIBILIDAD:{" + disponibilidad + "\r\n}\r\n" + kSecciones;
    s.cfg.ArchivoCFG = "/srv/orvex/cgi-bin/libros.cfg";
    cgi::IniciaVigilancia(s);
    p.entorno.vars["QUERY_STRING"] = campos;
    cgi::LeeVariablesCGI(s.cgi, p.entorno);
    cgi::LeeDatosForma(s.cgi, p.entrada);
  }
  const std::string& Salida() const { return p.salida.contents; }
};

std::string Linea(const std::string& host, int puerto) {
  return "##00  " + host + " ## " + std::to_string(puerto);
}

std::string Campos(const std::string& host, const std::string& puerto,
                   const std::string& resto = "NumAdqui=000123&NumCta=A-17&PWD=secreto") {
  return "direccionIP=" + host + "&puertoTCP=" + puerto + "&" + resto;
}

TEST(ReservaTest, TheAnswerDecidesThePage) {
  struct Caso {
    ServidorGuionado::Modo modo;
    const char* respuesta;
    const char* pagina;
  };
  using M = ServidorGuionado::Modo;
  const Caso casos[] = {
      {M::Responde, "<Reservacion Estado='0'/>", "<p>Listo: <b>Reserva exitosa</b></p>\r\n"},
      {M::Responde, "<Reservacion Estado='3' Mensaje='Ejemplar prestado'/>",
       "<p>No se pudo: Ejemplar prestado</p>\r\n"},
      // A listed server's words go on the page as they are.
      {M::Responde, "<r><Reservacion Estado=\"2\" Razon=\"Cuenta vencida &amp; multa\"/></r>",
       "<p>No se pudo: Cuenta vencida & multa</p>\r\n"},
      {M::Responde, "<Reservacion Codigo='0' Estado='0'/>",
       "<h1>Error al leer codigo de respuesta de reservacion</h1>\r\n"},
      {M::Responde, "<Prestamo Estado='0'/>",
       "<h1>Error: al cargar Nodo de Respuesta de Reservacion</h1>\r\n"},
      {M::Responde, "<<<basura",
       "<h1>Error: al cargar doc. XML de respuesta a comando de reservacion</h1>\r\n"},
      {M::Responde, "<Reservacion Estado='0'",
       "<h1>Error: al cargar doc. XML de respuesta a comando de reservacion</h1>\r\n"},
      {M::Cierra, "",
       "<h1>Error: al cargar doc. XML de respuesta a comando de reservacion</h1>\r\n"},
  };
  for (const Caso& c : casos) {
    ServidorGuionado servidor(c.modo, c.respuesta);
    Peticion r(Linea("127.0.0.1", servidor.puerto()),
               Campos("127.0.0.1", std::to_string(servidor.puerto())));
    Reserva(r.s, "CRESERVA");
    EXPECT_EQ(r.Salida(), std::string(kCabecera) + c.pagina) << c.respuesta;
    // The password is read and never sent.
    EXPECT_EQ(servidor.comando(),
              "<comandoSE class='RESERVA'><NumAdqui>000123</NumAdqui><NumCta>A-17</NumCta>"
              "<PWD/></comandoSE>");
  }
}

// Request addresses and ports that no line of the configuration lists: the
// page is the time-out line, no name is looked up and neither the listed
// server nor the one the request names hears a thing.
TEST(ReservaTest, OnlyTheServersOfTheConfigurationAreAsked) {
  ServidorGuionado listado(ServidorGuionado::Modo::Responde, "<Reservacion Estado='0'/>");
  ServidorGuionado trampa(ServidorGuionado::Modo::Responde, "<Reservacion Estado='0'/>");
  const std::string L = std::to_string(listado.puerto());
  const std::string T = std::to_string(trampa.puerto());
  const std::string lineas = Linea("127.0.0.1", listado.puerto()) + "\r\n" +
                             "##01  circulacion.biblioteca.example ## 7701";
  const struct {
    std::string host, puerto;
  } casos[] = {
      {"127.0.0.1", T},                    // a port the configuration does not list
      {"localhost", L},                    // the same machine, named otherwise
      {"127.1", L},
      {"0x7f000001", L},
      {"[::1]", L},
      {"127.0.0.2", L},
      {"127.0.0.1%0D%0AX-Otro:+1", L},     // a line break in the host
      {"%09127.0.0.1", L},                 // a tab before the host
      {"127.0.0.1:" + T, L},
      {"127.0.0.1", ""},
      {"127.0.0.1", "0"},
      {"127.0.0.1", "-" + L},
      {"127.0.0.1", std::to_string(listado.puerto() + 65536)},
      {"127.0.0.1", "99999999999999999999"},
      {"", L},
      {"circulacion.biblioteca.example", L},  // a listed host with another line's port
      {"circulacion.biblioteca.example", T},
      {"circulacion.biblioteca.example.", "7701"},
      {"evil.example", "7701"},
  };
  for (const auto& c : casos) {
    Peticion r(lineas, Campos(c.host, c.puerto));
    Reserva(r.s, "CRESERVA");
    EXPECT_EQ(r.Salida(), kTimeOut) << c.host << " " << c.puerto;

    Peticion g(lineas, Campos(c.host, c.puerto));
    EnchufeGrabador enchufe(g.p.reloj, EstadoConexion::kEnCurso, EstadoConexion::kEstablecida);
    Reserva(g.s, enchufe);
    EXPECT_EQ(g.Salida(), kTimeOut) << c.host << " " << c.puerto;
    EXPECT_EQ(enchufe.inicios, 0) << c.host << " " << c.puerto;
  }
  EXPECT_EQ(listado.PrimerComando(), ServidorGuionado::kSonda);
  EXPECT_EQ(trampa.PrimerComando(), ServidorGuionado::kSonda);
}

// A request that names a listed server, as the availability page writes it or
// with another letter case or spelling of the same port number, reaches it
// under the configuration's own host and port.
TEST(ReservaTest, AListedServerIsReachedUnderItsOwnName) {
  const std::string lineas =
      "##00  127.0.0.1 ## 7700\r\n##03  Circulacion.Biblioteca.example ## 7701";
  const struct {
    std::string host, puerto, host_usado;
    int puerto_usado;
  } casos[] = {
      {"127.0.0.1", "7700", "127.0.0.1", 7700},
      {"127.0.0.1", "07700", "127.0.0.1", 7700},
      {"circulacion.biblioteca.example", "7701", "Circulacion.Biblioteca.example", 7701},
      {"CIRCULACION.BIBLIOTECA.EXAMPLE", "+7701", "Circulacion.Biblioteca.example", 7701},
  };
  for (const auto& c : casos) {
    Peticion r(lineas, Campos(c.host, c.puerto));
    EnchufeGrabador enchufe(r.p.reloj, EstadoConexion::kEnCurso, EstadoConexion::kEstablecida);
    Reserva(r.s, enchufe);
    EXPECT_EQ(enchufe.inicios, 1) << c.host;
    EXPECT_EQ(enchufe.host, c.host_usado);
    EXPECT_EQ(enchufe.puerto, c.puerto_usado);
    EXPECT_EQ(r.Salida(), std::string(kCabecera) + "<p>Listo: <b>Reserva exitosa</b></p>\r\n");
  }
}

// "Reservas = cualquier_servidor": the server the request names, listed or
// not; the words of one that is not listed are request text.
TEST(ReservaTest, AnyServerWhenTheInstallationAllowsIt) {
  ServidorGuionado servidor(ServidorGuionado::Modo::Responde,
                            "<Reservacion Estado='5' Mensaje='&lt;script&gt;x&lt;/script&gt;'/>");
  for (const bool literales : {false, true}) {
    ServidorGuionado otro(ServidorGuionado::Modo::Responde,
                          "<Reservacion Estado='5' Mensaje='&lt;script&gt;x&lt;/script&gt;'/>");
    Peticion r(Linea("127.0.0.1", 7700), Campos("127.0.0.1", std::to_string(otro.puerto())));
    r.s.ajustes.reservas_cualquier_servidor = true;
    r.s.ajustes.ecos_literales = literales;
    Reserva(r.s, "CRESERVA");
    EXPECT_EQ(r.Salida(), std::string(kCabecera) + "<p>No se pudo: " +
                              (literales ? "<script>x</script>" : "&lt;script&gt;x&lt;/script&gt;") +
                              "</p>\r\n");
    EXPECT_EQ(otro.comando().substr(0, 26), "<comandoSE class='RESERVA'");
  }
  // The configuration's own server keeps its words as they are.
  Peticion r(Linea("127.0.0.1", servidor.puerto()),
             Campos("127.0.0.1", std::to_string(servidor.puerto())));
  r.s.ajustes.reservas_cualquier_servidor = true;
  Reserva(r.s, "CRESERVA");
  EXPECT_EQ(r.Salida(), std::string(kCabecera) + "<p>No se pudo: <script>x</script></p>\r\n");
}

TEST(ReservaTest, TheFieldsAreTextInsideTheCommand) {
  const struct {
    const char* campo;  // as the query string carries it
    const char* en_comando;
  } casos[] = {
      {"000123", "000123"},
      {"L%270815", "L&apos;0815"},
      {"A%26B", "A&amp;B"},
      {"%3C%2FNumAdqui%3E%3CNumAdqui%3E9", "&lt;/NumAdqui&gt;&lt;NumAdqui&gt;9"},
      {"%22x%22", "&quot;x&quot;"},
      {"%3C%2FcomandoSE%3E", "&lt;/comandoSE&gt;"},
      {"a%0D%0Ab", "a&#13;&#10;b"},
      {"%09%00%1F%7F", "&#9;&#0;&#31;&#127;"},
      {"Bibliotec%E1+%80", "Bibliotec\xE1 \x80"},  // Windows-1252 as it is
      {"%26amp%3B", "&amp;amp;"},
  };
  for (const auto& c : casos) {
    for (const bool es_cuenta : {false, true}) {
      ServidorGuionado servidor(ServidorGuionado::Modo::Responde, "<Reservacion Estado='0'/>");
      const std::string campo = std::string(es_cuenta ? "NumCta=" : "NumAdqui=") + c.campo;
      Peticion r(Linea("127.0.0.1", servidor.puerto()),
                 Campos("127.0.0.1", std::to_string(servidor.puerto()),
                        campo + (es_cuenta ? "&NumAdqui=000123" : "&NumCta=A-17") + "&PWD=x%3Cy"));
      Reserva(r.s, "CRESERVA");
      const std::string valor = c.en_comando;
      EXPECT_EQ(servidor.comando(),
                "<comandoSE class='RESERVA'><NumAdqui>" + (es_cuenta ? "000123" : valor) +
                    "</NumAdqui><NumCta>" + (es_cuenta ? valor : "A-17") +
                    "</NumCta><PWD/></comandoSE>")
          << c.campo;
    }
  }
}

TEST(ReservaTest, ConnectionFailuresAreOneLineWithoutHeader) {
  int cerrado = 0;
  {
    ServidorGuionado servidor(ServidorGuionado::Modo::Cierra, "");
    cerrado = servidor.puerto();
  }  // nobody listens there now
  {
    // Refused, as a server that does not answer.
    Peticion r(Linea("127.0.0.1", cerrado), Campos("127.0.0.1", std::to_string(cerrado)));
    Reserva(r.s, "CRESERVA");
    EXPECT_EQ(r.Salida(), kTimeOut);
  }
  {
    Peticion r(Linea("servidor-que-no-existe.invalid", 7700),
               Campos("servidor-que-no-existe.invalid", "7700"));
    Reserva(r.s, "CRESERVA");
    EXPECT_EQ(r.Salida().rfind(Latin1("<h1>Error: no se pudo establecer la conexion: no se "
                                      "encontró el servidor servidor-que-no-existe.invalid ("),
                               0),
              0u)
        << r.Salida();
  }
  {
    // A server that never accepts: the time-out after 2 s of the clock.
    Peticion r(Linea("127.0.0.1", 7700), Campos("127.0.0.1", "7700"));
    EnchufeLento sordo(r.p.reloj, false);
    const std::int64_t inicio = r.p.reloj.millis;
    Reserva(r.s, sordo);
    EXPECT_EQ(r.Salida(), kTimeOut);
    EXPECT_GE(r.p.reloj.millis - inicio, 2000);
    EXPECT_LT(r.p.reloj.millis - inicio, 2100);
  }
}

// Where any server is allowed, the request's host and port reach the failure
// lines, echoed as request text.
TEST(ReservaTest, FailureLinesEchoTheRequest) {
  const std::string kLinea = "<h1>Error: no se pudo establecer la conexion: ";
  const struct {
    const char* campos;
    bool literales;
    std::string inicio;
  } casos[] = {
      {"direccionIP=127.0.0.1&puertoTCP=%3Cb%3E%27", false,
       kLinea + Latin1("puerto TCP no válido: &lt;b&gt;&#39;</h1>\r\n")},
      {"direccionIP=127.0.0.1&puertoTCP=%3Cb%3E%27", true,
       kLinea + Latin1("puerto TCP no válido: <b>'</h1>\r\n")},
      {"direccionIP=%3Cb%3E.invalid&puertoTCP=7700", false,
       kLinea + Latin1("no se encontró el servidor &lt;b&gt;.invalid (")},
  };
  for (const auto& c : casos) {
    Peticion r(Linea("127.0.0.1", 7700), c.campos);
    r.s.ajustes.reservas_cualquier_servidor = true;
    r.s.ajustes.ecos_literales = c.literales;
    Reserva(r.s, "CRESERVA");
    EXPECT_EQ(r.Salida().substr(0, c.inicio.size()), c.inicio) << c.campos;
  }
}

// A refusal is the time-out line as soon as it is known: at the start or at
// the first wait, with no more of the clock spent than that one wait.
TEST(ReservaTest, ARefusalDoesNotWaitForTheTimeOut) {
  const struct {
    EstadoConexion al_iniciar, al_esperar;
    std::int64_t espera_ms;
  } casos[] = {
      {EstadoConexion::kRechazada, EstadoConexion::kEstablecida, 0},
      {EstadoConexion::kEnCurso, EstadoConexion::kRechazada, kPasoMs},
  };
  for (const auto& c : casos) {
    Peticion r(Linea("127.0.0.1", 7700), Campos("127.0.0.1", "7700"));
    EnchufeGrabador enchufe(r.p.reloj, c.al_iniciar, c.al_esperar);
    const std::int64_t inicio = r.p.reloj.millis;
    Reserva(r.s, enchufe);
    EXPECT_EQ(r.Salida(), kTimeOut);
    EXPECT_EQ(r.p.reloj.millis - inicio, c.espera_ms);
    EXPECT_EQ(enchufe.enviado, "");
  }
}

TEST(ReservaTest, AServerThatNeverAnswersMeetsTheWatchdog) {
  Peticion r(Linea("127.0.0.1", 7700), Campos("127.0.0.1", "7700"));
  EnchufeLento mudo(r.p.reloj, true);
  EXPECT_THROW(Reserva(r.s, mudo), ProcessEnd);
}

TEST(ReservaTest, TheSignInPageEchoesTheRequest) {
  const std::string kInicio =
      std::string(kCabecera) +
      "<HTML><HEAD><title>KORVEL8 - Autentificaci\xF3n de usuario para reserva de "
      "ejemplares</title></HEAD><BODY>\r\n"
      "<form action='/cgi-bin/orvex'><input name='txtLIB' value='CRESERVA'><input "
      "name='direccionIP' value='";
  const std::string kFin = "'></form>\r\n</BODY></HTML>\r\n";
  const struct {
    const char* campos;
    bool literales, cualquier_ruta;
    std::string pagina;  // between kInicio and kFin
  } casos[] = {
      {"direccionIP=10.0.0.5&puertoTCP=7701&NumAdqui=000123&ArchivoCFG=+libros.cfg", false, false,
       "10.0.0.5'><input name='puertoTCP' value='7701'><input name='NumAdqui' value='000123'>"
       "<input name='ArchivoCFG' value='libros.cfg"},
      {"direccionIP=%27%3E%3Cscript%3Ea()%3C/script%3E&puertoTCP=1%22+onx=%22&NumAdqui=L%270815"
       "%26%3C&ArchivoCFG=libros.cfg",
       false, false,
       "&#39;&gt;&lt;script&gt;a()&lt;/script&gt;'><input name='puertoTCP' "
       "value='1&quot; onx=&quot;'><input name='NumAdqui' value='L&#39;0815&amp;&lt;'>"
       "<input name='ArchivoCFG' value='libros.cfg"},
      // "Ecos = literales": as the request sent it.
      {"direccionIP=%27%3E&puertoTCP=7701&NumAdqui=L%270815&ArchivoCFG=libros.cfg", true, false,
       "'>'><input name='puertoTCP' value='7701'><input name='NumAdqui' value='L'0815'>"
       "<input name='ArchivoCFG' value='libros.cfg"},
      // "ArchivoCFG = cualquier_ruta": the loader's completed path.
      {"direccionIP=10.0.0.5&puertoTCP=7701&NumAdqui=1&ArchivoCFG=libros.cfg", false, true,
       "10.0.0.5'><input name='puertoTCP' value='7701'><input name='NumAdqui' value='1'>"
       "<input name='ArchivoCFG' value='/srv/orvex/cgi-bin/libros.cfg"},
  };
  for (const auto& c : casos) {
    Peticion r("", c.campos);
    r.s.ajustes.ecos_literales = c.literales;
    r.s.ajustes.cfg_cualquier_ruta = c.cualquier_ruta;
    PaginaReserva(r.s, "VRESERVA");
    EXPECT_EQ(r.Salida(), kInicio + c.pagina + kFin) << c.campos;
  }
}

TEST(ReservaTest, AConfigurationMayOpenTheSignInPageItself) {
  Peticion r("", "direccionIP=10.0.0.5&puertoTCP=7701&NumAdqui=1&ArchivoCFG=libros.cfg");
  r.s.cfg.TextoCFG +=
      "ENCABEZADO_RESERVA:{<!DOCTYPE html><html lang=\"es\"><title><!TITULO!></title><body>}\r\n";
  r.s.TituloFicha = "Cien a\xF1os <de> \"soledad\"";
  PaginaReserva(r.s, "VRESERVA");
  EXPECT_EQ(r.Salida().rfind(std::string(kCabecera) +
                                 "<!DOCTYPE html><html lang=\"es\"><title>Cien a\xF1os &lt;de&gt; "
                                 "&quot;soledad&quot;</title><body>\r\n"
                                 "<form action='/cgi-bin/orvex'>",
                             0),
            0u)
      << r.Salida();
}

}  // namespace
}  // namespace orvex::circulation
