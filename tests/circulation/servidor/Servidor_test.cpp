// The built orvex-circulacion program against real TCP clients.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <thread>
#include <string>
#include <vector>

#include "circulation/servidor/Servidor.h"

namespace fs = std::filesystem;

namespace {

// A client connected to the loopback's `puerto`.
int ConectaA(int puerto) {
  int s = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in dir{};
  dir.sin_family = AF_INET;
  dir.sin_port = htons(static_cast<uint16_t>(puerto));
  inet_pton(AF_INET, "127.0.0.1", &dir.sin_addr);
  EXPECT_EQ(connect(s, reinterpret_cast<sockaddr*>(&dir), sizeof dir), 0);
  return s;
}

// Everything the server writes until it closes or resets the connection.
std::string LeeHastaCierre(int s) {
  std::string r;
  char b[4096];
  ssize_t n;
  while ((n = read(s, b, sizeof b)) > 0) r.append(b, static_cast<size_t>(n));
  close(s);
  return r;
}

std::string Reserva(const std::string& numadqui, const std::string& cuenta) {
  return "<comandoSE class='RESERVA'><NumAdqui>" + numadqui + "</NumAdqui><NumCta>" + cuenta +
         "</NumCta><PWD/></comandoSE>";
}

const std::string kDisponibilidad15 = "<comandoSE class='DISPONIBILIDAD'><Ficha>15</Ficha></comandoSE>";

class ServidorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("servidor-" + std::to_string(getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    fs::copy_file(fs::path(ORVEX_FIXTURES) / "catalogo/sqlite/KORVEL8.MDB", dir_ / "KORVEL8.MDB");
    int tubo[2];
    ASSERT_EQ(pipe(tubo), 0);
    pid_ = fork();
    ASSERT_GE(pid_, 0);
    if (pid_ == 0) {
      dup2(tubo[1], 1);
      close(tubo[0]);
      std::string catalogo = dir_.string(), prestamos = (dir_ / "prestamos.db").string();
      execl(ORVEX_CIRCULACION, "orvex-circulacion", "--puerto", "0", "--catalogo", catalogo.c_str(),
            "--prestamos", prestamos.c_str(), "--presta", "000217:A-9:05/03/2027", nullptr);
      _exit(127);
    }
    close(tubo[1]);
    salida_ = tubo[0];
    // "orvex-circulacion: escuchando en 127.0.0.1:PORT\n"
    std::string linea;
    char c;
    while (read(salida_, &c, 1) == 1 && c != '\n') linea += c;
    const std::string prefijo = "orvex-circulacion: escuchando en 127.0.0.1:";
    ASSERT_EQ(linea.substr(0, prefijo.size()), prefijo) << linea;
    puerto_ = std::stoi(linea.substr(prefijo.size()));
    ASSERT_GT(puerto_, 0);
  }
  void TearDown() override {
    if (pid_ > 0 && !terminado_) Termina();
    if (salida_ >= 0) close(salida_);
    fs::remove_all(dir_);
  }
  int Termina() {
    kill(pid_, SIGTERM);
    int estado = 0;
    waitpid(pid_, &estado, 0);
    terminado_ = true;
    return estado;
  }
  int Conecta() const { return ConectaA(puerto_); }
  // A client as the gateway is one: sends the command without a line end and
  // keeps its side open until the answer arrives.
  std::string Pregunta(const std::string& comando) const {
    int s = Conecta();
    EXPECT_EQ(write(s, comando.data(), comando.size()), static_cast<ssize_t>(comando.size()));
    return LeeHastaCierre(s);
  }
  fs::path dir_;
  pid_t pid_ = -1;
  int salida_ = -1;
  int puerto_ = 0;
  bool terminado_ = false;
};

TEST_F(ServidorTest, ReservationsOverTcp) {
  EXPECT_EQ(Pregunta(Reserva("000123", "A-17")), "<Reservacion Estado='0' Mensaje='Reserva registrada'/>");
  EXPECT_EQ(Pregunta(Reserva("000123", "B-1")), "<Reservacion Estado='3' Mensaje='Ejemplar ya reservado'/>");
  EXPECT_EQ(Pregunta(Reserva("NOEXISTE", "A-17")), "<Reservacion Estado='1' Mensaje='Ejemplar inexistente'/>");
  EXPECT_EQ(Pregunta(Reserva("000124", "")), "<Reservacion Estado='2' Mensaje='Cuenta de lector no valida'/>");
}

TEST_F(ServidorTest, AvailabilityWithALoanFromTheCommandLine) {
  EXPECT_EQ(Pregunta(kDisponibilidad15),
            "<Disponibilidad Ficha='15'>"
            "<Ejemplar NumAdqui='000216' Biblioteca='Central' Volumen='' Ejemplar='1' "
            "Estado='disponible' Vence=''/>"
            "<Ejemplar NumAdqui='000217' Biblioteca='Ingenier\xED" "a' Volumen='' Ejemplar='2' "
            "Estado='prestado' Vence='05/03/2027'/>"
            "</Disponibilidad>");
}

TEST_F(ServidorTest, CommandSentInPiecesIsAnswered) {
  int s = Conecta();
  std::string comando = Reserva("000216", "A");
  for (char c : comando) {
    ASSERT_EQ(write(s, &c, 1), 1);
  }
  EXPECT_EQ(LeeHastaCierre(s), "<Reservacion Estado='0' Mensaje='Reserva registrada'/>");
}

TEST_F(ServidorTest, GarbageGetsNoAnswerAndTheServerGoesOn) {
  EXPECT_EQ(Pregunta("</comandoSE>"), "<Error Mensaje='Comando no reconocido'/>");
  // More than 64 KB without the end tag: closed without a word.
  int s = Conecta();
  std::string basura(70 * 1024, 'x');
  signal(SIGPIPE, SIG_IGN);
  (void)!write(s, basura.data(), basura.size());
  EXPECT_EQ(LeeHastaCierre(s), "");
  // A client that connects and says nothing closes without an answer.
  s = Conecta();
  close(s);
  EXPECT_EQ(Pregunta(Reserva("000123", "A")), "<Reservacion Estado='0' Mensaje='Reserva registrada'/>");
}

// Whether `s` has nothing to say yet: no data, no end, no reset.
bool Callada(int s) {
  pollfd p{s, POLLIN, 0};
  return poll(&p, 1, 0) == 0;
}

// Clients that connect and say nothing, or half a command, or never take
// their answer, do not keep another client waiting: it is answered while
// they are all still open.
TEST_F(ServidorTest, IdleConnectionsDoNotDelayOthers) {
  std::vector<int> ociosas;
  for (int i = 0; i < 40; ++i) ociosas.push_back(Conecta());
  const std::string a_medias = "<comandoSE class='RESERVA'><NumAdqui>000123";
  for (int i = 0; i < 5; ++i) {
    ociosas.push_back(Conecta());
    ASSERT_EQ(write(ociosas.back(), a_medias.data(), a_medias.size()),
              static_cast<ssize_t>(a_medias.size()));
  }
  EXPECT_EQ(Pregunta(Reserva("000124", "B")), "<Reservacion Estado='0' Mensaje='Reserva registrada'/>");
  EXPECT_EQ(Pregunta(kDisponibilidad15).substr(0, 27), "<Disponibilidad Ficha='15'>");
  for (size_t i = 0; i < ociosas.size(); ++i) {
    EXPECT_TRUE(Callada(ociosas[i])) << i;
    close(ociosas[i]);
  }
}

// More connections than the server serves at once: each new one closes the
// oldest, so a real client is still answered and the first idle one is gone.
TEST_F(ServidorTest, BeyondItsConnectionsTheOldestGoes) {
  std::vector<int> ociosas;
  for (int i = 0; i < 300; ++i) ociosas.push_back(Conecta());
  EXPECT_EQ(Pregunta(Reserva("000124", "B")), "<Reservacion Estado='0' Mensaje='Reserva registrada'/>");
  EXPECT_EQ(LeeHastaCierre(ociosas.front()), "");
  EXPECT_TRUE(Callada(ociosas.back()));
  for (size_t i = 1; i < ociosas.size(); ++i) close(ociosas[i]);
}

TEST_F(ServidorTest, ConcurrentClientsEachGetTheirAnswer) {
  const std::vector<std::string> copias = {"000123", "000124", "000125", "000200", "000201",
                                           "000203", "000216", "000217", "000777", "000202"};
  std::vector<std::future<std::string>> respuestas;
  for (size_t i = 0; i < copias.size(); ++i) {
    respuestas.push_back(std::async(std::launch::async, [&, i] {
      return i % 2 ? Pregunta(kDisponibilidad15) : Pregunta(Reserva(copias[i], "C-" + std::to_string(i)));
    }));
  }
  for (size_t i = 0; i < copias.size(); ++i) {
    std::string r = respuestas[i].get();
    if (i % 2) {
      EXPECT_EQ(r.substr(0, 27), "<Disponibilidad Ficha='15'>") << i;
      EXPECT_EQ(r.substr(r.size() - 17), "</Disponibilidad>") << i;
      EXPECT_NE(r.find("<Ejemplar NumAdqui='000216'"), std::string::npos) << i;
      EXPECT_NE(r.find("<Ejemplar NumAdqui='000217'"), std::string::npos) << i;
    } else {
      EXPECT_EQ(r, "<Reservacion Estado='0' Mensaje='Reserva registrada'/>") << i;
    }
  }
}

TEST_F(ServidorTest, SigtermEndsItCleanly) {
  EXPECT_EQ(Pregunta(Reserva("000123", "A")), "<Reservacion Estado='0' Mensaje='Reserva registrada'/>");
  int estado = Termina();
  EXPECT_TRUE(WIFEXITED(estado)) << estado;
  EXPECT_EQ(WEXITSTATUS(estado), 0);
}

// Sirve in a thread of the test, with limits of the test's choosing and an
// answer that is the command itself, or 32 MB for the command "grande".
class SirveEnHilo {
 public:
  explicit SirveEnHilo(const orvex::circulation::servidor::Limites& limites) {
    std::string error;
    escucha_ = orvex::circulation::servidor::Escucha("127.0.0.1", puerto_, error);
    EXPECT_GE(escucha_, 0) << error;
    EXPECT_EQ(pipe(fin_), 0);
    hilo_ = std::thread([this, limites] {
      orvex::circulation::servidor::Sirve(
          [](std::string_view comando) {
            return comando == "grande</comandoSE>" ? std::string(kGrande, 'g')
                                                    : "R:" + std::string(comando);
          },
          escucha_, fin_[0], limites);
    });
  }
  ~SirveEnHilo() {
    EXPECT_EQ(write(fin_[1], "x", 1), 1);
    hilo_.join();
    close(fin_[0]);
    close(fin_[1]);
    close(escucha_);
  }
  int Conecta() const { return ConectaA(puerto_); }
  std::string Pregunta(const std::string& comando) const {
    const int s = Conecta();
    EXPECT_EQ(write(s, comando.data(), comando.size()), static_cast<ssize_t>(comando.size()));
    return LeeHastaCierre(s);
  }
  static constexpr size_t kGrande = 32 << 20;

 private:
  int escucha_ = -1;
  int puerto_ = 0;
  int fin_[2] = {-1, -1};
  std::thread hilo_;
};

// Waits (at most a minute, a guard against hanging) until the server ends
// the connection `s`; true when it did.
bool Terminada(int s) {
  pollfd p{s, POLLRDHUP, 0};
  return poll(&p, 1, 60000) == 1 && (p.revents & (POLLRDHUP | POLLHUP | POLLERR));
}

TEST(SirveTest, TheCommandsSizeLimit) {
  orvex::circulation::servidor::Limites limites;
  limites.maximo_comando = 100;
  SirveEnHilo servidor(limites);
  const std::string kCierre = "</comandoSE>";
  const struct {
    std::string comando;
    std::string respuesta;
  } casos[] = {
      {std::string(100 - kCierre.size(), 'a') + kCierre,
       "R:" + std::string(100 - kCierre.size(), 'a') + kCierre},
      {std::string(101 - kCierre.size(), 'a') + kCierre, ""},
      {std::string(101, 'a'), ""},
      {std::string(5000, 'a') + kCierre, ""},
      // What follows the end tag is not part of the command.
      {"abc" + kCierre + std::string(200, 'z'), "R:abc" + kCierre},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(servidor.Pregunta(c.comando), c.respuesta) << c.comando.size();
  }
}

// A client that never completes its command is cut off at the limit, with
// no answer, and meanwhile another one is served.
TEST(SirveTest, TheTimeToSendTheCommand) {
  orvex::circulation::servidor::Limites limites;
  limites.espera_comando = std::chrono::milliseconds(1000);
  SirveEnHilo servidor(limites);
  const int callada = servidor.Conecta();
  const int a_medias = servidor.Conecta();
  ASSERT_EQ(write(a_medias, "<comandoSE", 10), 10);
  EXPECT_EQ(servidor.Pregunta("hola</comandoSE>"), "R:hola</comandoSE>");
  for (const int s : {callada, a_medias}) {
    EXPECT_TRUE(Terminada(s));
    EXPECT_EQ(LeeHastaCierre(s), "");
  }
}

// A client that does not take its answer holds no one up, since the answer
// is written only as the socket takes it, and is cut off at the limit with
// the rest of its answer unsent.
TEST(SirveTest, TheTimeToTakeTheAnswer) {
  orvex::circulation::servidor::Limites limites;
  limites.espera_respuesta = std::chrono::milliseconds(300);
  SirveEnHilo servidor(limites);
  const int lenta = servidor.Conecta();
  const std::string grande = "grande</comandoSE>";
  ASSERT_EQ(write(lenta, grande.data(), grande.size()), static_cast<ssize_t>(grande.size()));
  EXPECT_EQ(servidor.Pregunta("hola</comandoSE>"), "R:hola</comandoSE>");
  EXPECT_TRUE(Terminada(lenta));
  EXPECT_LT(LeeHastaCierre(lenta).size(), SirveEnHilo::kGrande);
}

TEST(SirveTest, ANewConnectionBeyondTheLimitClosesTheOldest) {
  orvex::circulation::servidor::Limites limites;
  limites.maximo_conexiones = 3;
  SirveEnHilo servidor(limites);
  std::vector<int> ociosas;
  for (int i = 0; i < 3; ++i) ociosas.push_back(servidor.Conecta());
  EXPECT_EQ(servidor.Pregunta("hola</comandoSE>"), "R:hola</comandoSE>");
  EXPECT_TRUE(Terminada(ociosas[0]));
  EXPECT_EQ(LeeHastaCierre(ociosas[0]), "");
  EXPECT_TRUE(Callada(ociosas[1]));
  EXPECT_TRUE(Callada(ociosas[2]));
  close(ociosas[1]);
  close(ociosas[2]);
}

}  // namespace
