#include "cgi/Bitacora.h"

#include <gtest/gtest.h>

#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex::cgi {
namespace {

class BitacoraTest : public ::testing::Test {
 protected:
  BitacoraTest() : s_(p_.sys, p_.bases) {
    p_.entorno.vars = {{"SCRIPT_NAME", "/cgi-bin/orvex"},
                       {"REMOTE_ADDR", "10.1.2.3"},
                       {"REMOTE_HOST", "lector.biblioteca.mx"},
                       {"HTTP_USER_AGENT", "Lynx/2.8"}};
    LeeVariablesCGI(s_.cgi, p_.entorno);
    s_.VersionPrograma = "Orvex.exe act. 4.0 [20081215]";
    s_.Traza = "CGI inicializado, comienza ...";
  }
  testing::FakePlatform p_;
  Solicitud s_;
};

const std::string kPaginaError =
    "<H4>Error en /cgi-bin/orvex</H4>\r\n"
    "<p>Ha ocurrido el siguiente error interno:</p>\r\n"
    "<PRE>falla<br>\r\n"
    "/bases<br>\r\n"
    "CGI inicializado, comienza ...</PRE>\r\n"
    "<I>Por favor</I> \r\n"
    "notifiquelo al departamento de soporte de KORVEL: soporte@orvex.example</p>\r\n"
    "Orvex.exe act. 4.0 [20081215]\r\n";

TEST_F(BitacoraTest, TheErrorPageReplacesASeekableOutput) {
  p_.salida.Write(std::string(5000, 'x'));
  s_.cfg.RutaBase = "/bases";
  EXPECT_THROW(PaginaError(s_, "falla"), ProcessEnd);
  EXPECT_EQ(p_.salida.contents, kPaginaError);
  EXPECT_EQ(s_.TextoError, "falla");
}

TEST_F(BitacoraTest, TheErrorPageFollowsWhatAPipeAlreadyCarried) {
  p_.salida.is_pipe = true;
  p_.salida.Write("Content-Type: text/html\r\n");
  s_.cfg.RutaBase = "/bases";
  s_.TextoError = "falla";
  EXPECT_THROW(PaginaError(s_, ""), ProcessEnd);
  EXPECT_EQ(p_.salida.contents, "Content-Type: text/html\r\n" + kPaginaError);
}

TEST_F(BitacoraTest, TheLogHoldsSevenLinesAndIsDeletedAtTheEnd) {
  s_.Expresion = "historia";
  s_.cfg.ArchivoCFG = "/prog/libros.cfg";
  CreaLog(s_);
  const std::string ruta = "/prog/20081215_093011-.log";
  EXPECT_EQ(s_.ArchivoLog, ruta);
  ASSERT_TRUE(p_.archivos.files.count(ruta));
  EXPECT_EQ(p_.archivos.files[ruta],
            "1 CGI inicializado, comienza ...Creando log:/prog/20081215_093011-.log<br/>\r\n"
            "2 10.1.2.3\r\n"
            "3 lector.biblioteca.mx\r\n"
            "4 Lynx/2.8\r\n"
            "5 Expresion: historia\r\n"
            "6 ArchivoCFG: /prog/libros.cfg\r\n"
            "7 Orvex.exe act. 4.0 [20081215]\r\n");
  BorraLog(s_);
  EXPECT_FALSE(p_.archivos.files.count(ruta));
  EXPECT_EQ(s_.Traza,
            "CGI inicializado, comienza ...Creando log:" + ruta + "<br/>Log creado:" + ruta +
                "<br/>Log borrado:" + ruta + "<br/>");
}

TEST_F(BitacoraTest, WithoutALogNothingIsDeletedOrTraced) {
  BorraLog(s_);
  EXPECT_EQ(s_.Traza, "CGI inicializado, comienza ...");
}

TEST_F(BitacoraTest, ALogThatCannotBeWrittenRaises) {
  p_.archivos.read_only = true;
  EXPECT_THROW(CreaLog(s_), RuntimeError);
}

TEST_F(BitacoraTest, TheWatchdogFiresAtTheFirstYieldAfterTenSeconds) {
  IniciaVigilancia(s_);
  p_.reloj.millis += 9999;
  Cede(s_);  // not yet
  EXPECT_TRUE(p_.salida.contents.empty());
  p_.reloj.millis += 1;
  try {
    Cede(s_);
    ADD_FAILURE() << "the watchdog did not end the request";
  } catch (const ProcessEnd&) {
  }
  EXPECT_EQ(s_.TextoError,
            "Timer Out:52--Nombre o n\xFAmero de archivo incorrecto<br>ArchivoErr:20081215_093011.err");
  EXPECT_NE(p_.salida.contents.find("<PRE>Timer Out:52--"), std::string::npos);
  EXPECT_FALSE(s_.CONSULTA.Timer1.activo);
  EXPECT_TRUE(p_.archivos.files.empty());  // no ".err" file, ever
}

TEST_F(BitacoraTest, TheWatchdogCanFireInsideTheLogCreation) {
  IniciaVigilancia(s_);
  p_.reloj.millis += 10000;
  EXPECT_THROW(CreaLog(s_), ProcessEnd);
  EXPECT_TRUE(p_.archivos.files.empty());  // ended before the log was written
}

TEST_F(BitacoraTest, TheConnectionTimerClosesAfterTwoSecondsOnce) {
  IniciaVigilancia(s_);
  p_.reloj.millis += 1999;
  Cede(s_);
  EXPECT_FALSE(s_.CONSULTA.ConexionCerrada);
  p_.reloj.millis += 1;
  Cede(s_);
  EXPECT_TRUE(s_.CONSULTA.ConexionCerrada);
  EXPECT_FALSE(s_.CONSULTA.Timer2.activo);
}

TEST_F(BitacoraTest, YieldingBeforeTheTimersExistDoesNothing) {
  p_.reloj.millis += 60000;
  Cede(s_);
  EXPECT_TRUE(p_.salida.contents.empty());
}

}  // namespace
}  // namespace orvex::cgi
