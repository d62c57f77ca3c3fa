// The built orvex-circulacion program against real TCP clients.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

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
  int Conecta() const {
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in dir{};
    dir.sin_family = AF_INET;
    dir.sin_port = htons(static_cast<uint16_t>(puerto_));
    inet_pton(AF_INET, "127.0.0.1", &dir.sin_addr);
    EXPECT_EQ(connect(s, reinterpret_cast<sockaddr*>(&dir), sizeof dir), 0);
    return s;
  }
  // Everything the server writes until it closes.
  static std::string LeeHastaCierre(int s) {
    std::string r;
    char b[4096];
    ssize_t n;
    while ((n = read(s, b, sizeof b)) > 0) r.append(b, static_cast<size_t>(n));
    close(s);
    return r;
  }
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

TEST_F(ServidorTest, CommandThatNeverEndsTimesOutAndOthersWait) {
  int lento = Conecta();
  const std::string a_medias = "<comandoSE class='RESERVA'><NumAdqui>000123";
  ASSERT_EQ(write(lento, a_medias.data(), a_medias.size()), static_cast<ssize_t>(a_medias.size()));
  auto inicio = std::chrono::steady_clock::now();
  // Queued behind the silent client, answered once its 5 s are over.
  auto otro = std::async(std::launch::async, [&] { return Pregunta(Reserva("000124", "B")); });
  EXPECT_EQ(LeeHastaCierre(lento), "");
  EXPECT_EQ(otro.get(), "<Reservacion Estado='0' Mensaje='Reserva registrada'/>");
  auto segundos = std::chrono::duration<double>(std::chrono::steady_clock::now() - inicio).count();
  EXPECT_GT(segundos, 4.0);
  EXPECT_LT(segundos, 8.0);
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

}  // namespace
