#include "circulation/Reserva.h"

#include <gtest/gtest.h>

#include "base/RuntimeError.h"
#include "gateway/Bitacora.h"
#include "gateway/EntradaCGI.h"
#include "tests/circulation/ServidorGuionado.h"
#include "tests/support/Fakes.h"
#include "xml/MotorLibxslt.h"

namespace orvex::circulation {
namespace {

constexpr const char* kCfg =
    "MSG_RESERVA_EXITOSA:{<p>Listo: <!ESTATUS_RESERVA!></p>}\r\n"
    "MSG_RESERVA_ERROR:{<p>No se pudo: <!ESTATUS_RESERVA!></p>}\r\n"
    "RESERVA_MATERIAL:{<form action='/cgi-bin/orvex'><input name='txtLIB' value='<!COMANDO_SE!>'>"
    "<input name='direccionIP' value='<!DIRECCIONIP!>'><input name='puertoTCP' "
    "value='<!PUERTOTCP!>'><input name='NumAdqui' value='<!DISP_NUMADQUI!>'><input "
    "name='ArchivoCFG' value='<!ArchivoCFG!>'></form>}\r\n";

class ReservaTest : public ::testing::Test {
 protected:
  testing::FakePlatform p_;
  xml::MotorLibxslt motor_;
  gateway::Solicitud s_{p_.sys, p_.bases};

  void SetUp() override {
    p_.motores.xsl = &motor_;
    s_.cfg.TextoCFG = kCfg;
    s_.cfg.ArchivoCFG = "libros.cfg";
    gateway::IniciaVigilancia(s_);
  }
  void Campos(const std::string& host, int puerto) {
    p_.entorno.vars["QUERY_STRING"] = "direccionIP=" + host + "&puertoTCP=" +
                                      std::to_string(puerto) +
                                      "&NumAdqui=000123&NumCta=A-17&PWD=secreto";
    s_.cgi = gateway::EntradaCGI();
    gateway::LeeVariablesCGI(s_.cgi, p_.entorno);
    gateway::LeeDatosForma(s_.cgi, p_.entrada);
  }
  std::string Salida() const { return p_.salida.contents; }
};

constexpr const char* kCabecera = "Content-Type: text/html\r\nCache-Control: public\r\n\r\n";

TEST_F(ReservaTest, TheAnswerDecidesThePage) {
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
    testing::FakePlatform p;
    xml::MotorLibxslt motor;
    p.motores.xsl = &motor;
    gateway::Solicitud s(p.sys, p.bases);
    s.cfg.TextoCFG = kCfg;
    gateway::IniciaVigilancia(s);
    ServidorGuionado servidor(c.modo, c.respuesta);
    p.entorno.vars["QUERY_STRING"] = "direccionIP=127.0.0.1&puertoTCP=" +
                                     std::to_string(servidor.puerto()) +
                                     "&NumAdqui=000123&NumCta=A-17&PWD=secreto";
    gateway::LeeVariablesCGI(s.cgi, p.entorno);
    gateway::LeeDatosForma(s.cgi, p.entrada);
    Reserva(s, "CRESERVA");
    EXPECT_EQ(p.salida.contents, std::string(kCabecera) + c.pagina) << c.respuesta;
    // The password is read and never sent.
    EXPECT_EQ(servidor.comando(),
              "<comandoSE class='RESERVA'><NumAdqui>000123</NumAdqui><NumCta>A-17</NumCta>"
              "<PWD/></comandoSE>");
  }
}

TEST_F(ReservaTest, ConnectionFailuresAreOneLineWithoutHeader) {
  int cerrado = 0;
  {
    ServidorGuionado servidor(ServidorGuionado::Modo::Cierra, "");
    cerrado = servidor.puerto();
  }  // nobody listens there now
  Campos("127.0.0.1", cerrado);
  Reserva(s_, "CRESERVA");
  EXPECT_EQ(Salida().rfind("<h1>Error: no se pudo establecer la conexion: ", 0), 0u) << Salida();

  p_.salida.contents.clear();
  p_.salida.Rewind();
  Campos("servidor-que-no-existe.invalid", 7700);
  Reserva(s_, "CRESERVA");
  EXPECT_EQ(Salida().rfind("<h1>Error: no se pudo establecer la conexion: no se encontr", 0), 0u)
      << Salida();

  // A server that never accepts: the time-out after 2 s of the clock.
  p_.salida.contents.clear();
  p_.salida.Rewind();
  Campos("127.0.0.1", 7700);
  EnchufeLento sordo(p_.reloj, false);
  const std::int64_t inicio = p_.reloj.millis;
  Reserva(s_, sordo);
  EXPECT_EQ(Salida(), "<h1>Error: no se pudo establecer la conexion: Conexion TimeOut</h1>\r\n");
  EXPECT_GE(p_.reloj.millis - inicio, 2000);
  EXPECT_LT(p_.reloj.millis - inicio, 2100);
}

TEST_F(ReservaTest, AServerThatNeverAnswersMeetsTheWatchdog) {
  Campos("127.0.0.1", 7700);
  EnchufeLento mudo(p_.reloj, true);
  EXPECT_THROW(Reserva(s_, mudo), ProcessEnd);
}

TEST_F(ReservaTest, TheSignInPageCarriesTheRequestOn) {
  Campos("10.0.0.5", 7701);
  PaginaReserva(s_, "VRESERVA");
  EXPECT_EQ(Salida(),
            std::string(kCabecera) +
                "<HTML><HEAD><title>KORVEL8 - Autentificaci\xF3n de usuario para reserva de "
                "ejemplares</title></HEAD><BODY>\r\n"
                "<form action='/cgi-bin/orvex'><input name='txtLIB' value='CRESERVA'><input "
                "name='direccionIP' value='10.0.0.5'><input name='puertoTCP' value='7701'><input "
                "name='NumAdqui' value='000123'><input name='ArchivoCFG' value='libros.cfg'>"
                "</form>\r\n</BODY></HTML>\r\n");
}

}  // namespace
}  // namespace orvex::circulation
