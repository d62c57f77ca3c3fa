#include "circulation/VerDisponibilidad.h"

#include <gtest/gtest.h>

#include "base/RuntimeError.h"
#include "cgi/Bitacora.h"
#include "cgi/EntradaCGI.h"
#include "tests/circulation/ServidorGuionado.h"
#include "tests/support/Fakes.h"
#include "xslt/MotorLibxslt.h"

namespace orvex::circulation {
namespace {

constexpr const char* kCabecera = "Content-Type: text/html\r\nCache-Control: public\r\n\r\n";

constexpr const char* kSecciones =
    "ENCABEZADO_DISPONIBILIDAD:{<h2>Ficha <!NFICHA!> (base <!BaseDTA!>): <!TOTAL!> ejemplares, "
    "<!DISPONIBLES!> disponibles</h2>}\r\n"
    "DETALLE_DISPONIBILIDAD:{<tr class='<!CODIGO_ESTADO!>'><td><!NUMADQUI!></td><td><!BIBLIOTECA!>"
    "</td><td><!VOLUMEN!>/<!EJEMPLAR!></td><td><!ESTADO!> <!VENCE!></td><td><!ACCION!></td></tr>}\r\n"
    "ACCION_DISPONIBILIDAD:{[<!COMANDO_SE!> <!DIRECCIONIP!>:<!PUERTOTCP!> <!DISP_NUMADQUI!> "
    "<!NFICHA!> <!ArchivoCFG!>]}\r\n"
    "FINAL_DISPONIBILIDAD:{<p>Fin de <!NFICHA!>, <!ArchivoCFG!></p>}\r\n";

// One request, with the configuration naming the server at `puerto` for
// BaseDTA 0.
struct Peticion {
  testing::FakePlatform p;
  xslt::MotorLibxslt motor;
  cgi::Solicitud s{p.sys, p.bases};

  Peticion(const std::string& host, int puerto, const std::string& campos) {
    p.motores.xsl = &motor;
    s.cfg.TextoCFG = "DISPONIBILIDAD:{##00  " + host + " ## " + std::to_string(puerto) +
                     "\r\n}\r\n" + kSecciones;
    s.cfg.ArchivoCFG = "/usr/lib/cgi-bin/libros.cfg";
    cgi::IniciaVigilancia(s);
    p.entorno.vars["QUERY_STRING"] = campos;
    cgi::LeeVariablesCGI(s.cgi, p.entorno);
    cgi::LeeDatosForma(s.cgi, p.entrada);
  }
  const std::string& Salida() const { return p.salida.contents; }
};

TEST(VerDisponibilidadTest, TheAnswerDecidesThePage) {
  using M = ServidorGuionado::Modo;
  const std::string kDoc =
      "<?xml version='1.0'?>\r\n"
      "<Disponibilidad Ficha='41'>"
      "<Ejemplar NumAdqui=\"L'01\" Biblioteca='Central &amp; Norte' Volumen='1' Ejemplar='1' "
      "Estado='disponible' Vence=''/>"
      "<Ejemplar NumAdqui='L-02' Biblioteca='Bibliot\xE9" "ca del Sur' Volumen='2' Ejemplar='1' "
      "Estado='prestado' Vence='03/12/2026'/>"
      "<Ejemplar Biblioteca='&lt;b&gt;' Estado='reservado' NumAdqui='L-03'/>"
      "<Ejemplar NumAdqui='L-04' Estado='no accesible'/>"
      "</Disponibilidad>";
  const std::string kCopias =
      "<h2>Ficha 41 (base 0): 4 ejemplares, 1 disponibles</h2>\r\n"
      "<tr class='disponible'><td>L&#39;01</td><td>Central &amp; Norte</td><td>1/1</td>"
      "<td>Disponible </td><td>[VRESERVA 127.0.0.1:@ L&#39;01 41 libros.cfg]</td></tr>\r\n"
      "<tr class='prestado'><td>L-02</td><td>Bibliot\xE9" "ca del Sur</td><td>2/1</td>"
      "<td>Prestado 03/12/2026</td><td>[VRESERVA 127.0.0.1:@ L-02 41 libros.cfg]</td></tr>\r\n"
      "<tr class='reservado'><td>L-03</td><td>&lt;b&gt;</td><td>/</td><td>Reservado </td>"
      "<td></td></tr>\r\n"
      "<tr class='no accesible'><td>L-04</td><td></td><td>/</td><td>No accesible </td>"
      "<td></td></tr>\r\n"
      "<p>Fin de 41, libros.cfg</p>\r\n";
  const std::string kDocumento =
      "<h1>Error: al cargar doc. XML de respuesta a comando de disponibilidad</h1>\r\n";
  struct Caso {
    M modo;
    std::string respuesta;
    std::string pagina;
  };
  const Caso casos[] = {
      {M::Responde, kDoc.substr(23), kCopias},
      // The closing tag ends the answer even when the server keeps the line.
      {M::Mantiene, kDoc.substr(23), kCopias},
      {M::Responde, "<Disponibilidad Ficha='41'/>",
       "<h2>Ficha 41 (base 0): 0 ejemplares, 0 disponibles</h2>\r\n<p>Fin de 41, libros.cfg</p>\r\n"},
      {M::Responde, "<Error Mensaje='Ficha &lt;inexistente&gt;'/>",
       "<h1>Error: el servidor de circulacion respondio: Ficha &lt;inexistente&gt;</h1>\r\n"},
      {M::Responde, "<Reservacion Estado='0'/>",
       "<h1>Error: al cargar Nodo de Respuesta de Disponibilidad</h1>\r\n"},
      {M::Responde, "\x01\x02 basura <<", kDocumento},
      {M::Responde, kDoc.substr(23, 120), kDocumento},
      {M::Responde, kDoc, kDocumento},  // its own declaration after ours
      {M::Cierra, "", kDocumento},
      {M::Responde,
       "<Disponibilidad>" + std::string(kMaxRespuestaDisponibilidad, ' ') + "</Disponibilidad>",
       "<h1>Error: la respuesta del servidor de circulacion excede 1 MB</h1>\r\n"},
  };
  for (const Caso& c : casos) {
    ServidorGuionado servidor(c.modo, c.respuesta);
    Peticion r("127.0.0.1", servidor.puerto(),
               "txtLIB=cVERDISP&ArchivoCFG=+libros.cfg+&NoFicha=41&BaseDTA=0&direccionIP=10.9.9.9&"
               "puertoTCP=1");
    VerDisponibilidad(r.s, "CVERDISP");
    std::string esperada = std::string(kCabecera) + c.pagina;
    for (size_t at; (at = esperada.find(":@")) != std::string::npos;)
      esperada.replace(at + 1, 1, std::to_string(servidor.puerto()));
    EXPECT_EQ(r.Salida(), esperada) << c.respuesta.substr(0, 80);
    // The server of the configuration is asked, not the one in the request.
    EXPECT_EQ(servidor.comando(), "<comandoSE class='DISPONIBILIDAD'><Ficha>41</Ficha></comandoSE>");
  }
}

TEST(VerDisponibilidadTest, RequestFieldsThatAreNotNumbersAskForRecordZero) {
  ServidorGuionado servidor(ServidorGuionado::Modo::Responde, "<Disponibilidad/>");
  Peticion r("127.0.0.1", servidor.puerto(), "NoFicha=41%3Cx%3E&BaseDTA=x");
  VerDisponibilidad(r.s, "CVERDISP");
  EXPECT_EQ(servidor.comando(), "<comandoSE class='DISPONIBILIDAD'><Ficha>0</Ficha></comandoSE>");
  EXPECT_NE(r.Salida().find("Ficha 0 (base 0)"), std::string::npos) << r.Salida();
}

TEST(VerDisponibilidadTest, ConnectionFailuresAreOneLineWithoutHeader) {
  const std::string kLinea = "<h1>Error: no se pudo establecer la conexion: ";
  {
    Peticion r("127.0.0.1", 7700, "NoFicha=41&BaseDTA=3");
    VerDisponibilidad(r.s, "CVERDISP");
    EXPECT_EQ(r.Salida(), kLinea + Latin1("la configuración no nombra servidor de circulación "
                                          "para la base 3</h1>\r\n"));
  }
  int cerrado = 0;
  {
    ServidorGuionado servidor(ServidorGuionado::Modo::Cierra, "");
    cerrado = servidor.puerto();
  }  // nobody listens there now
  {
    Peticion r("127.0.0.1", cerrado, "NoFicha=41");
    VerDisponibilidad(r.s, "CVERDISP");
    EXPECT_EQ(r.Salida(), kLinea + Latin1("el servidor rechazó la conexión</h1>\r\n"));
  }
  {
    Peticion r("servidor-que-no-existe.invalid", 7700, "NoFicha=41");
    VerDisponibilidad(r.s, "CVERDISP");
    EXPECT_EQ(r.Salida().rfind(kLinea + "no se encontr", 0), 0u) << r.Salida();
  }
  {
    Peticion r("127.0.0.1", 70000, "NoFicha=41");
    VerDisponibilidad(r.s, "CVERDISP");
    EXPECT_EQ(r.Salida(), kLinea + Latin1("puerto TCP no válido: 70000</h1>\r\n"));
  }
  {
    Peticion r("127.0.0.1", 7700, "NoFicha=41");
    EnchufeLento sordo(r.p.reloj, false);
    const std::int64_t inicio = r.p.reloj.millis;
    VerDisponibilidad(r.s, sordo);
    EXPECT_EQ(r.Salida(), kLinea + "Conexion TimeOut</h1>\r\n");
    EXPECT_GE(r.p.reloj.millis - inicio, 2000);
    EXPECT_LT(r.p.reloj.millis - inicio, 2100);
  }
}

// The availability page keeps the refusal's own words, written as soon as
// the refusal is known; the request's address and port are never used.
TEST(VerDisponibilidadTest, ARefusalIsSaidAtOnce) {
  for (const EstadoConexion al_iniciar : {EstadoConexion::kRechazada, EstadoConexion::kEnCurso}) {
    Peticion r("Circulacion.example", 7700,
               "NoFicha=41&direccionIP=10.9.9.9&puertoTCP=1&ArchivoCFG=libros.cfg");
    EnchufeGrabador enchufe(r.p.reloj, al_iniciar, EstadoConexion::kRechazada);
    const std::int64_t inicio = r.p.reloj.millis;
    VerDisponibilidad(r.s, enchufe);
    EXPECT_EQ(r.Salida(), Latin1("<h1>Error: no se pudo establecer la conexion: el servidor "
                                 "rechazó la conexión</h1>\r\n"));
    EXPECT_LE(r.p.reloj.millis - inicio, kPasoMs);
    EXPECT_EQ(enchufe.host, "Circulacion.example");
    EXPECT_EQ(enchufe.puerto, 7700);
  }
}

TEST(VerDisponibilidadTest, AServerThatNeverAnswersMeetsTheWatchdog) {
  Peticion r("127.0.0.1", 7700, "NoFicha=41");
  EnchufeLento mudo(r.p.reloj, true);
  EXPECT_THROW(VerDisponibilidad(r.s, mudo), ProcessEnd);
  EXPECT_EQ(r.Salida().find("Content-Type"), std::string::npos);
}

}  // namespace
}  // namespace orvex::circulation
