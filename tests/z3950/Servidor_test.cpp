// The built orvex-z3950 over the test catalogue, asked by real clients:
// Debian's yaz-client in both protocols, curl for SRU GET and POST, and
// yaz-marcdump reading the MARC records back. Hit counts are checked
// against the word index itself (distinct records of a word in a field,
// read with SQL), an oracle independent of the search code.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>

#include "base/CodePage.h"
#include "db/Database.h"
#include "tests/support/Fakes.h"

namespace orvex::z3950 {
namespace {

namespace fs = std::filesystem;

int PuertoLibre() {
  const int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t largo = sizeof a;
  ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &largo);
  ::close(s);
  return ntohs(a.sin_port);
}

// What a shell command writes on its standard output.
std::string Ejecuta(const std::string& orden) {
  std::string salida;
  FILE* f = ::popen(orden.c_str(), "r");
  if (f == nullptr) return salida;
  std::array<char, 4096> bloque;
  std::size_t n;
  while ((n = std::fread(bloque.data(), 1, bloque.size(), f)) > 0) salida.append(bloque.data(), n);
  ::pclose(f);
  return salida;
}

class Servidor : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    tmp_ = new testing::DirectorioTemporal();
    const fs::path origen = fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite";
    for (const char* archivo : {"KORVEL8.MDB", "INDIZADO.MDB"}) tmp_->Copia(origen / archivo, archivo);
    std::ofstream(tmp_->ruta() / "z.cfg") << "BASE:\n{" << tmp_->ruta().string() << "}\n";
    puerto_ = PuertoLibre();
    pid_ = ::fork();
    if (pid_ == 0) {
      const std::string cfg = (tmp_->ruta() / "z.cfg").string();
      const std::string escucha = "tcp:127.0.0.1:" + std::to_string(puerto_);
      ::execl(ORVEX_Z3950_BINARY, "orvex-z3950", "-l", "/dev/null", "-c", cfg.c_str(), escucha.c_str(),
              static_cast<char*>(nullptr));
      ::_exit(127);
    }
    for (int i = 0; i < 100 && Ejecuta(Curl("")).empty(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  static void TearDownTestSuite() {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
    delete tmp_;
  }

  static std::string Url(const std::string& consulta) {
    return "http://127.0.0.1:" + std::to_string(puerto_) + "/libros" + consulta;
  }
  static std::string Curl(const std::string& consulta) {
    return "curl -s --max-time 10 '" + Url(consulta) + "'";
  }
  // yaz-client's session: `ordenes` one per line after opening `destino`.
  static std::string YazClient(const std::string& ordenes, bool sru = false) {
    const std::string destino = sru ? Url("") : "tcp:127.0.0.1:" + std::to_string(puerto_) + "/libros";
    std::ofstream(tmp_->ruta() / "ordenes") << (sru ? "sru get 1.2\n" : "") << "open " << destino << "\n"
                                             << ordenes << "\nquit\n";
    return Ejecuta("timeout 20 yaz-client -q < " + (tmp_->ruta() / "ordenes").string() + " 2>&1");
  }
  // Distinct records with `palabra` (as the index stores it) in field
  // `campo` (0: any), read straight from the word table.
  static long Oraculo(const std::string& palabra, int campo) {
    auto indice = db::OpenDatabase((tmp_->ruta() / "INDIZADO.MDB").string(), CodePage::Windows1252(),
                                   {.read_only = true});
    auto rs = indice->OpenRecordset("select distinct ficha from TABLA where palabra='" + palabra + "'" +
                                        (campo != 0 ? " and campo=" + std::to_string(campo) : ""),
                                    db::RecordsetType::Snapshot);
    long n = 0;
    for (; !rs->Eof(); rs->MoveNext()) ++n;
    return n;
  }
  static long Aciertos(const std::string& texto, const std::regex& patron) {
    std::smatch m;
    return std::regex_search(texto, m, patron) ? std::stol(m[1]) : -1;
  }

  inline static testing::DirectorioTemporal* tmp_ = nullptr;
  inline static int puerto_ = 0;
  inline static pid_t pid_ = 0;
};

const std::regex kHitsZ("Number of hits: ([0-9]+)");
const std::regex kHitsSRU("<(?:zs:)?numberOfRecords>([0-9]+)<");

TEST_F(Servidor, BothProtocolsCountWhatTheWordIndexHolds) {
  const struct {
    const char* pqf;
    const char* cql;
    const char* palabra;
    int campo;
  } casos[] = {
      {"historia", "historia", "HISTORIA", 0},
      {"@attr 1=4 historia", "dc.title=historia", "HISTORIA", 1},
      {"@attr 1=21 mexico", "dc.subject=mexico", "MEXICO", 3},
      {"@attr 1=4 siglo", "dc.title=siglo", "SIGLO", 1},
      {"@attr 1=1003 zzzzqq", "dc.creator=zzzzqq", "ZZZZQQ", 2},
  };
  for (const auto& c : casos) {
    const long esperado = Oraculo(c.palabra, c.campo);
    EXPECT_EQ(Aciertos(YazClient(std::string("find ") + c.pqf), kHitsZ), esperado) << c.pqf;
    EXPECT_EQ(Aciertos(Ejecuta(Curl(std::string("?version=1.2&operation=searchRetrieve&maximumRecords=0&query=") +
                                    c.cql)),
                       kHitsSRU),
              esperado)
        << c.cql;
  }
}

TEST_F(Servidor, RecordsComeBackInEachFormat) {
  // Z39.50: MARC 21 read back by yaz-marcdump, then MARCXML and the card.
  const std::string marc = YazClient("find @attr 1=4 historia\nset_marcdump " +
                                     (tmp_->ruta() / "registros.mrc").string() + "\nshow 1+3");
  EXPECT_GT(Aciertos(marc, kHitsZ), 3) << marc;
  const std::string volcado = Ejecuta("yaz-marcdump -i marc -o line " + (tmp_->ruta() / "registros.mrc").string());
  EXPECT_NE(volcado.find("245"), std::string::npos) << volcado;
  EXPECT_NE(volcado.find("001"), std::string::npos) << volcado;

  const std::string xml = YazClient("find @attr 1=4 historia\nformat xml\nelements marcxml\nshow 1");
  EXPECT_NE(xml.find("<datafield tag=\"245\""), std::string::npos) << xml;
  const std::string dc = YazClient("find @attr 1=4 historia\nformat xml\nelements dc\nshow 1");
  EXPECT_NE(dc.find("<dc:title>"), std::string::npos) << dc;
  const std::string texto = YazClient("find @attr 1=4 historia\nformat sutrs\nshow 1");
  EXPECT_EQ(texto.find("Diagnostic"), std::string::npos) << texto;

  // SRU: MARCXML and Dublin Core by GET, by POST, and from yaz-client.
  const std::string sru = Ejecuta(Curl(
      "?version=1.1&operation=searchRetrieve&query=dc.title%3Dhistoria&maximumRecords=2&recordSchema=marcxml"));
  EXPECT_NE(sru.find("<datafield tag=\"245\""), std::string::npos) << sru;
  const std::string post = Ejecuta(
      "curl -s --max-time 10 -d 'version=2.0&operation=searchRetrieve&query=historia&maximumRecords=1&"
      "recordSchema=dc' '" + Url("") + "'");
  EXPECT_NE(post.find("<dc:title>"), std::string::npos) << post;
  const std::string cliente_sru = YazClient("find dc.title=historia\nshow 1", true);
  EXPECT_EQ(Aciertos(cliente_sru, kHitsZ), Oraculo("HISTORIA", 1)) << cliente_sru;
}

// Scan lists the index's words with the hits a search for each gives, in
// both protocols; explain describes the indexes and schemas.
TEST_F(Servidor, ScanAndExplainDescribeTheIndex) {
  const std::string sru = Ejecuta(Curl("?version=1.2&operation=scan&scanClause=dc.title%3Dhistori&maximumTerms=3"));
  EXPECT_NE(sru.find("<zs:value>HISTORIA</zs:value><zs:numberOfRecords>" + std::to_string(Oraculo("HISTORIA", 1)) +
                     "</zs:numberOfRecords>"),
            std::string::npos)
      << sru;
  const std::string z = YazClient("scan @attr 1=4 historia");
  EXPECT_NE(z.find("HISTORIA (" + std::to_string(Oraculo("HISTORIA", 1)) + ")"), std::string::npos) << z;
  const std::string explica = Ejecuta(Curl(""));
  for (const char* parte : {"<name set=\"dc\">title</name>", "<name set=\"rec\">id</name>",
                            "name=\"marcxml\"", "name=\"dc\""}) {
    EXPECT_NE(explica.find(parte), std::string::npos) << parte << "\n" << explica;
  }
}

TEST_F(Servidor, WhatItCannotAnswerGetsADiagnostic) {
  const struct {
    const char* consulta;
    const char* diagnostico;
  } sru[] = {
      {"?version=1.2&operation=searchRetrieve&query=dc.date%3D1999", "info:srw/diagnostic/1/16"},
      {"?version=1.2&operation=searchRetrieve&query=(historia", "info:srw/diagnostic/1/10"},
      {"?version=1.2&operation=searchRetrieve&query=historia&recordSchema=mods&maximumRecords=1",
       "info:srw/diagnostic/1/66<"},
      {"?version=1.2&operation=searchRetrieve&query=historia&startRecord=-5&maximumRecords=1",
       "info:srw/diagnostic/1/6<"},
      {"?version=1.2&operation=searchRetrieve&query=historia&startRecord=100000&maximumRecords=1",
       "info:srw/diagnostic/1/61<"},
      {"?version=1.2&operation=scan&scanClause=rec.id%3D1", "info:srw/diagnostic/1/16<"},
  };
  for (const auto& c : sru) {
    const std::string respuesta = Ejecuta(Curl(c.consulta));
    EXPECT_NE(respuesta.find(c.diagnostico), std::string::npos) << c.consulta << "\n" << respuesta;
  }
  const std::string z = YazClient("find @attr 1=9999 x\nfind @attr 2=5 x\nbase otra\nfind x");
  EXPECT_NE(z.find("114"), std::string::npos) << z;
  EXPECT_NE(z.find("117"), std::string::npos) << z;
  EXPECT_NE(z.find("235"), std::string::npos) << z;

  // Garbage on the port and a client that sends half a message and waits:
  // the server goes on answering.
  Ejecuta("head -c 5000 /dev/urandom | timeout 3 curl -s --max-time 2 --data-binary @- '" + Url("") +
          "' >/dev/null; timeout 3 bash -c 'exec 3<>/dev/tcp/127.0.0.1/" + std::to_string(puerto_) +
          "; printf \"\\x30\\x84\\xff\\xff\" >&3; sleep 2' >/dev/null 2>&1");
  EXPECT_EQ(Aciertos(YazClient("find @attr 1=4 historia"), kHitsZ), Oraculo("HISTORIA", 1));
}

}  // namespace
}  // namespace orvex::z3950
