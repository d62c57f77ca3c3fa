// End-to-end: the real orvex binary asking the real orvex-circulacion for
// availability and reservations over the loopback, as the demo runs them.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "base/CodePage.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

// orvex-circulacion on a free port of the loopback, serving a copy of the
// fixture catalogue with copy 000217 on loan.
class ServidorCirculacion {
 public:
  explicit ServidorCirculacion(const fs::path& dir) {
    fs::create_directories(dir);
    fs::copy_file(CatalogoDePrueba(Bases::Sqlite) / "KORVEL8.MDB", dir / "KORVEL8.MDB",
                  fs::copy_options::overwrite_existing);
    int tubo[2];
    if (pipe(tubo) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(tubo[1], 1);
      close(tubo[0]);
      const std::string catalogo = dir.string(), prestamos = (dir / "prestamos.db").string();
      execl(ORVEX_CIRCULACION, "orvex-circulacion", "--puerto", "0", "--catalogo",
            catalogo.c_str(), "--prestamos", prestamos.c_str(), "--presta",
            "000217:A-9:05/03/2027", nullptr);
      _exit(127);
    }
    close(tubo[1]);
    std::string linea;
    char c;
    while (read(tubo[0], &c, 1) == 1 && c != '\n') linea += c;
    close(tubo[0]);
    const std::string prefijo = "orvex-circulacion: escuchando en 127.0.0.1:";
    if (linea.starts_with(prefijo)) puerto_ = std::stoi(linea.substr(prefijo.size()));
  }
  ~ServidorCirculacion() { Detiene(); }
  void Detiene() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  int puerto() const { return puerto_; }

 private:
  pid_t pid_ = -1;
  int puerto_ = 0;
};

const char* const kSecciones =
    "ENCABEZADO_DISPONIBILIDAD:\r\n{<html><body><h1>Ficha <!NFICHA!>: <!DISPONIBLES!> de "
    "<!TOTAL!> ejemplares disponibles</h1><table>}\r\n"
    "DETALLE_DISPONIBILIDAD:\r\n{<tr class=\"<!CODIGO_ESTADO!>\"><td><!NUMADQUI!></td>"
    "<td><!BIBLIOTECA!></td><td><!VOLUMEN!></td><td><!EJEMPLAR!></td><td><!ESTADO!></td>"
    "<td><!VENCE!></td><td><!ACCION!></td></tr>}\r\n"
    "ACCION_DISPONIBILIDAD:\r\n{<form method=\"post\" action=\"orvex\"><input type=\"hidden\" "
    "name=\"txtLIB\" value=\"<!COMANDO_SE!>\"><input type=\"hidden\" name=\"ArchivoCFG\" "
    "value=\"<!ArchivoCFG!>\"><input type=\"hidden\" name=\"direccionIP\" "
    "value=\"<!DIRECCIONIP!>\"><input type=\"hidden\" name=\"puertoTCP\" value=\"<!PUERTOTCP!>\">"
    "<input type=\"hidden\" name=\"NumAdqui\" value=\"<!DISP_NUMADQUI!>\"><button>Reservar"
    "</button></form>}\r\n"
    "FINAL_DISPONIBILIDAD:\r\n{</table></body></html>}\r\n"
    "RESERVA_MATERIAL:\r\n{<form method=\"post\" action=\"orvex\"><input type=\"hidden\" "
    "name=\"txtLIB\" value=\"<!COMANDO_SE!>\"><input type=\"hidden\" name=\"direccionIP\" "
    "value=\"<!DIRECCIONIP!>\"><input type=\"hidden\" name=\"puertoTCP\" value=\"<!PUERTOTCP!>\">"
    "<input type=\"hidden\" name=\"NumAdqui\" value=\"<!DISP_NUMADQUI!>\"><input type=\"hidden\" "
    "name=\"ArchivoCFG\" value=\"<!ArchivoCFG!>\"><input name=\"NumCta\">"
    "<input type=\"password\" name=\"PWD\"></form>}\r\n"
    "MSG_RESERVA_EXITOSA:\r\n{<p class=\"bien\"><!ESTATUS_RESERVA!></p>}\r\n"
    "MSG_RESERVA_ERROR:\r\n{<p class=\"mal\">No se pudo reservar: <!ESTATUS_RESERVA!></p>}\r\n";

class Circulacion : public ::testing::Test {
 protected:
  // A directory per test, since ctest runs them side by side.
  ProgramaCGI programa_{
      std::string("circulacion-") +
          ::testing::UnitTest::GetInstance()->current_test_info()->name()};
  ServidorCirculacion servidor_{programa_.dir() / "circulacion"};

  void SetUp() override {
    ASSERT_GT(servidor_.puerto(), 0);
    programa_.Escribe("libros.cfg", "DISPONIBILIDAD:\r\n{##00  127.0.0.1 ## " +
                                        std::to_string(servidor_.puerto()) + "\r\n}\r\n" +
                                        kSecciones);
  }
  // The page for a form posted with `cuerpo`, the server's port written
  // as @PUERTO@.
  std::string Pagina(const std::string& cuerpo) const {
    const Respuesta r = programa_.Ejecuta(Post("ArchivoCFG=libros.cfg&" + cuerpo));
    EXPECT_TRUE(r.termino);
    return Reemplaza(r.salida, std::to_string(servidor_.puerto()), "@PUERTO@");
  }
  std::string Disponibilidad(int ficha) const {
    return Pagina("txtLIB=cVERDISP&NoFicha=" + std::to_string(ficha) + "&BaseDTA=0");
  }
  std::string Reserva(const std::string& numadqui, const std::string& cuenta) const {
    return Pagina("txtLIB=CRESERVA&direccionIP=127.0.0.1&puertoTCP=" +
                  std::to_string(servidor_.puerto()) + "&NumAdqui=" + numadqui +
                  "&NumCta=" + cuenta + "&PWD=secreta");
  }
};

TEST_F(Circulacion, AReaderSeesTheCopiesReservesOneAndSeesItReserved) {
  // Record 15: one copy on the shelf, one on loan.
  ComparaConDorado("circulacion_disponibilidad", Disponibilidad(15));

  const std::string ingreso = Pagina("txtLIB=VRESERVA&direccionIP=127.0.0.1&puertoTCP=" +
                                     std::to_string(servidor_.puerto()) + "&NumAdqui=000216");
  EXPECT_NE(ingreso.find("value=\"CRESERVA\"><input type=\"hidden\" name=\"direccionIP\" "
                         "value=\"127.0.0.1\"><input type=\"hidden\" name=\"puertoTCP\" "
                         "value=\"@PUERTO@\"><input type=\"hidden\" name=\"NumAdqui\" "
                         "value=\"000216\"><input type=\"hidden\" name=\"ArchivoCFG\" "
                         "value=\"libros.cfg\">"),
            std::string::npos)
      << ingreso;

  EXPECT_EQ(Reserva("000216", "A-17"),
            "Content-Type: text/html\r\nCache-Control: public\r\n\r\n"
            "<p class=\"bien\"><b>Reserva exitosa</b></p>\r\n");
  EXPECT_NE(Disponibilidad(15).find("<tr class=\"reservado\"><td>000216</td><td>Central</td><td>"
                                    "</td><td>1</td><td>Reservado</td><td></td><td></td></tr>"),
            std::string::npos);
  EXPECT_NE(Reserva("000216", "B-2").find("No se pudo reservar: Ejemplar ya reservado"),
            std::string::npos);
}

TEST_F(Circulacion, AccessionNumbersWithQuotesAndCopiesNotLent) {
  // Record 3's second copy is L'0815; record 4's only copy is not lent.
  EXPECT_EQ(Reserva("L%270815", "A-17").find("<b>Reserva exitosa</b>") != std::string::npos, true);
  const std::string tres = Disponibilidad(3);
  EXPECT_NE(tres.find("<tr class=\"reservado\"><td>L&#39;0815</td><td>Humanidades</td>"),
            std::string::npos)
      << tres;
  EXPECT_NE(tres.find("Ficha 3: 1 de 2 ejemplares disponibles"), std::string::npos);
  EXPECT_NE(Disponibilidad(4).find("<tr class=\"no accesible\"><td>000202</td><td>Central</td>"
                                   "<td></td><td>1</td><td>No accesible</td><td></td><td></td>"),
            std::string::npos);
  EXPECT_NE(Reserva("000202", "A-17").find("No se pudo reservar: Ejemplar no accesible"),
            std::string::npos);
}

TEST_F(Circulacion, AServerThatIsGoneIsOneLine) {
  servidor_.Detiene();
  EXPECT_EQ(Disponibilidad(15),
            Latin1("<h1>Error: no se pudo establecer la conexion: el servidor rechazó la "
                   "conexión</h1>\r\n"));
  // A reservation says of a refusal what it says of a server that does not answer.
  EXPECT_EQ(Reserva("000216", "A-17"),
            "<h1>Error: no se pudo establecer la conexion: Conexion TimeOut</h1>\r\n");
}

// A reservation that names a port or host the configuration does not list:
// the time-out line, and nothing is connected, however the fields are dressed.
TEST_F(Circulacion, AReservationGoesOnlyToAListedServer) {
  const Escucha trampa;
  ASSERT_TRUE(trampa.abierta());
  const std::string listado = std::to_string(servidor_.puerto());
  const struct {
    std::string host, puerto;
  } casos[] = {
      {"127.0.0.1", trampa.puerto()},
      {"localhost", trampa.puerto()},
      {"127.0.0.1%0D%0AHost:+x", trampa.puerto()},
      {"127.0.0.1", trampa.puerto() + "%0D%0A" + listado},
      {"localhost", listado},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(Pagina("txtLIB=CRESERVA&direccionIP=" + c.host + "&puertoTCP=" + c.puerto +
                     "&NumAdqui=000216&NumCta=A-17&PWD=x"),
              "<h1>Error: no se pudo establecer la conexion: Conexion TimeOut</h1>\r\n")
        << c.host << " " << c.puerto;
    EXPECT_FALSE(trampa.Tocada()) << c.host << " " << c.puerto;
  }
  // The listed server was not asked either: the copy is still free.
  EXPECT_EQ(Reserva("000216", "A-17"),
            "Content-Type: text/html\r\nCache-Control: public\r\n\r\n"
            "<p class=\"bien\"><b>Reserva exitosa</b></p>\r\n");
}

// The sign-in page echoes its fields escaped, and the accession number goes
// to the server as text inside the command.
TEST_F(Circulacion, HostileFieldsStayText) {
  const std::string ingreso =
      Pagina("txtLIB=VRESERVA&direccionIP=%22%3E%3Cscript%3Ex()%3C/script%3E&puertoTCP=1%27&"
             "NumAdqui=L%270815%3C/NumAdqui%3E");
  EXPECT_NE(ingreso.find("name=\"direccionIP\" value=\"&quot;&gt;&lt;script&gt;x()&lt;/script&gt;\">"
                         "<input type=\"hidden\" name=\"puertoTCP\" value=\"1&#39;\"><input "
                         "type=\"hidden\" name=\"NumAdqui\" value=\"L&#39;0815&lt;/NumAdqui&gt;\">"),
            std::string::npos)
      << ingreso;
  // An accession number that tries to close its element is an unknown copy.
  EXPECT_NE(Reserva("000216%3C/NumAdqui%3E%3CNumAdqui%3E000216", "A-17")
                .find("No se pudo reservar: Ejemplar inexistente"),
            std::string::npos);
  EXPECT_NE(Reserva("L%270815", "A-17%0D%0A").find("<b>Reserva exitosa</b>"), std::string::npos);
}

// Idle connections held open against the real server do not delay the
// availability page or a reservation.
TEST_F(Circulacion, IdleConnectionsDoNotDelayTheServer) {
  std::vector<int> ociosas;
  for (int i = 0; i < 30; ++i) {
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in dir{};
    dir.sin_family = AF_INET;
    dir.sin_port = htons(static_cast<uint16_t>(servidor_.puerto()));
    dir.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(s, reinterpret_cast<sockaddr*>(&dir), sizeof dir), 0);
    if (i % 2) {
      ASSERT_EQ(write(s, "<comandoSE", 10), 10);
    }
    ociosas.push_back(s);
  }
  ComparaConDorado("circulacion_disponibilidad", Disponibilidad(15));
  EXPECT_NE(Reserva("000216", "A-17").find("<b>Reserva exitosa</b>"), std::string::npos);
  for (const int s : ociosas) {
    // Still open: the answers did not wait for them to time out.
    pollfd p{s, POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 0), 0);
    close(s);
  }
}

// A server that takes the connection (the kernel completes it from the
// listening queue) and never answers: the real binary ends at the 10 s
// watchdog with the "Timer Out:" page, for availability and reservations.
TEST(CirculacionMuda, TheWatchdogEndsTheWait) {
  const Escucha muda;
  ASSERT_TRUE(muda.abierta());
  const std::string puerto = muda.puerto();
  const std::string cfg = "DISPONIBILIDAD:\r\n{##00  127.0.0.1 ## " + puerto + "\r\n}\r\n";
  const ProgramaCGI programa("circulacion-muda", {.archivos = {{"libros.cfg", cfg}}});
  for (const std::string& cuerpo :
       {std::string("txtLIB=cVERDISP&NoFicha=15"), "txtLIB=CRESERVA&direccionIP=127.0.0.1&puertoTCP=" +
                                          puerto + "&NumAdqui=000216&NumCta=A-17"}) {
    Peticion p = Post("ArchivoCFG=libros.cfg&" + cuerpo);
    p.limite_s = 30;
    const Respuesta r = programa.Ejecuta(p);
    EXPECT_TRUE(r.termino) << cuerpo;
    EXPECT_EQ(r.salida.rfind("<H4>Error en /cgi-bin/orvex</H4>", 0), 0u) << r.salida;
    EXPECT_NE(r.salida.find("Timer Out:52--"), std::string::npos) << r.salida;
  }
}

}  // namespace
}  // namespace orvex
