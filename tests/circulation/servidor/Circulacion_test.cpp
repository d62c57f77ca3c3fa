#include "circulation/servidor/Circulacion.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace fs = std::filesystem;
using orvex::circulation::servidor::Circulacion;

namespace {

class CirculacionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("circulacion-" + std::to_string(getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_ / "catalogo");
    // Lower case on purpose: the catalogue file is found regardless of case.
    fs::copy_file(fs::path(ORVEX_FIXTURES) / "catalogo/sqlite/KORVEL8.MDB",
                  dir_ / "catalogo/korvel8.mdb");
    c_ = std::make_unique<Circulacion>((dir_ / "catalogo").string(), (dir_ / "prestamos.db").string());
  }
  void TearDown() override {
    c_.reset();
    fs::remove_all(dir_);
  }
  std::string Reserva(const std::string& numadqui, const std::string& cuenta) {
    return c_->Atiende("<comandoSE class='RESERVA'><NumAdqui>" + numadqui + "</NumAdqui><NumCta>" +
                       cuenta + "</NumCta><PWD/></comandoSE>");
  }
  std::string Disponibilidad(const std::string& ficha) {
    return c_->Atiende("<comandoSE class='DISPONIBILIDAD'><Ficha>" + ficha + "</Ficha></comandoSE>");
  }
  fs::path dir_;
  std::unique_ptr<Circulacion> c_;
};

const std::string kNoReconocido = "<Error Mensaje='Comando no reconocido'/>";

TEST_F(CirculacionTest, RejectsMalformedAndUnknownCommands) {
  const char* casos[] = {
      "",
      "hola</comandoSE>",
      "<comandoSE class='PRESTAMO'><NumAdqui>000123</NumAdqui></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>000123</NumAdqui></comandoSE>",  // no account
      "<comandoSE class='RESERVA'><NumAdqui>000123</NumAdqui><NumCta>A</NumCta><Otro/></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>1</NumAdqui><NumAdqui>2</NumAdqui><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>000123</NumCta><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>a&b</NumAdqui><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>000123</NumAdqui><NumCta>A</NumCta></comandoSE>x",
      "<comandoSE class='DISPONIBILIDAD'><Ficha>15a</Ficha></comandoSE>",
      "<comandoSE class='DISPONIBILIDAD'><Ficha></Ficha></comandoSE>",
      "<comandoSE class='DISPONIBILIDAD'><Ficha>-1</Ficha></comandoSE>",
      "<comandoSE class='DISPONIBILIDAD'><Ficha>1234567890123</Ficha></comandoSE>",
      "<comandoSE class='DISPONIBILIDAD'></comandoSE>",
      "<comandoSE class='DISPONIBILIDAD'><Ficha>15</Ficha>",
      // Character references: character 0, none at all, unended, not a number,
      // a character Windows-1252 lacks, too many digits.
      "<comandoSE class='RESERVA'><NumAdqui>&#0;</NumAdqui><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>&#;</NumAdqui><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>&#48</NumAdqui><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>&#x4G;</NumAdqui><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>&#X41;</NumAdqui><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>&#x4E00;</NumAdqui><NumCta>A</NumCta></comandoSE>",
      "<comandoSE class='RESERVA'><NumAdqui>&#000000048;</NumAdqui><NumCta>A</NumCta></comandoSE>",
  };
  for (const char* caso : casos) EXPECT_EQ(c_->Atiende(caso), kNoReconocido) << caso;
}

TEST_F(CirculacionTest, ReservationOutcomes) {
  struct Caso {
    std::string numadqui, cuenta, esperado;
  } casos[] = {
      {"000123", "A-17", "<Reservacion Estado='0' Mensaje='Reserva registrada'/>"},
      {"000123", "B-2", "<Reservacion Estado='3' Mensaje='Ejemplar ya reservado'/>"},
      {"NOEXISTE", "A-17", "<Reservacion Estado='1' Mensaje='Ejemplar inexistente'/>"},
      {"", "A-17", "<Reservacion Estado='1' Mensaje='Ejemplar inexistente'/>"},
      {"000124", "", "<Reservacion Estado='2' Mensaje='Cuenta de lector no valida'/>"},
      {"000124", "   ", "<Reservacion Estado='2' Mensaje='Cuenta de lector no valida'/>"},
      {"000202", "A-17", "<Reservacion Estado='4' Mensaje='Ejemplar no accesible'/>"},
      // Entities in the text are read: the copy L'0815 exists.
      {"L&apos;0815", "A-17", "<Reservacion Estado='0' Mensaje='Reserva registrada'/>"},
      {" 000125 ", " C ", "<Reservacion Estado='0' Mensaje='Reserva registrada'/>"},
      // Character references, as the gateway writes control characters.
      {"&#48;00200", "&#13;&#10;D&#x2D;1&#9;", "<Reservacion Estado='0' Mensaje='Reserva registrada'/>"},
      {"L&#39;0815", "E", "<Reservacion Estado='3' Mensaje='Ejemplar ya reservado'/>"},
      {"000201&#10;x", "E", "<Reservacion Estado='1' Mensaje='Ejemplar inexistente'/>"},
  };
  for (const auto& caso : casos)
    EXPECT_EQ(Reserva(caso.numadqui, caso.cuenta), caso.esperado) << caso.numadqui << "/" << caso.cuenta;
}

TEST_F(CirculacionTest, AcceptsBlanksAndDoubleQuotes) {
  EXPECT_EQ(c_->Atiende("\r\n <comandoSE class=\"RESERVA\">\n <NumAdqui>000123</NumAdqui>\n"
                        " <NumCta>A-17</NumCta>\n</comandoSE>\n"),
            "<Reservacion Estado='0' Mensaje='Reserva registrada'/>");
}

TEST_F(CirculacionTest, AvailabilityStatesInAccessionOrder) {
  c_->Presta("000217", "A-1", "05/03/2027");
  EXPECT_EQ(Disponibilidad("15"),
            "<Disponibilidad Ficha='15'>"
            "<Ejemplar NumAdqui='000216' Biblioteca='Central' Volumen='' Ejemplar='1' "
            "Estado='disponible' Vence=''/>"
            "<Ejemplar NumAdqui='000217' Biblioteca='Ingenier\xED" "a' Volumen='' Ejemplar='2' "
            "Estado='prestado' Vence='05/03/2027'/>"
            "</Disponibilidad>");
  // A loan outranks a reservation; a reservation outranks inaccessibility.
  Reserva("000217", "B");
  Reserva("000216", "B");
  EXPECT_NE(Disponibilidad("15").find("NumAdqui='000216' Biblioteca='Central' Volumen='' "
                                      "Ejemplar='1' Estado='reservado'"),
            std::string::npos);
  EXPECT_NE(Disponibilidad("15").find("Estado='prestado' Vence='05/03/2027'"), std::string::npos);
  EXPECT_NE(Disponibilidad("4").find("NumAdqui='000202' Biblioteca='Central' Volumen='' "
                                     "Ejemplar='1' Estado='no accesible' Vence=''"),
            std::string::npos);
}

TEST_F(CirculacionTest, AvailabilityEscapesValuesAndHandlesRecordsWithoutCopies) {
  std::string tres = Disponibilidad("3");
  EXPECT_NE(tres.find("NumAdqui='L&apos;0815' Biblioteca='Humanidades'"), std::string::npos) << tres;
  EXPECT_LT(tres.find("000201"), tres.find("L&apos;0815"));
  EXPECT_EQ(Disponibilidad("987654"), "<Disponibilidad Ficha='987654'></Disponibilidad>");
  EXPECT_EQ(Disponibilidad("0015").substr(0, 27), "<Disponibilidad Ficha='15'>");
}

TEST_F(CirculacionTest, LoansAndReservationsSurviveReopening) {
  Reserva("000123", "A");
  c_->Presta("000216", "B", "01/01/2030");
  c_ = std::make_unique<Circulacion>((dir_ / "catalogo").string(), (dir_ / "prestamos.db").string());
  EXPECT_EQ(Reserva("000123", "C"), "<Reservacion Estado='3' Mensaje='Ejemplar ya reservado'/>");
  EXPECT_NE(Disponibilidad("15").find("Estado='prestado' Vence='01/01/2030'"), std::string::npos);
}

TEST(CirculacionSinCatalogo, MissingCatalogueIsAnError) {
  EXPECT_THROW(Circulacion("/nonexistent-dir", "/tmp/x.db"), std::runtime_error);
}

}  // namespace
