#include "fastcgi/ServidorFastCGI.h"

#include <gtest/gtest.h>
#include <signal.h>

namespace orvex::fastcgi {
namespace {

void (*Manejador(int senal))(int) {
  struct sigaction actual {};
  sigaction(senal, nullptr, &actual);
  return actual.sa_handler;
}

// The test runs as a CGI program does: its standard input is no socket.
// Telling so sets libfcgi up, which would put its own handlers on TERM,
// USR1 and PIPE: the web server's TERM would no longer end a CGI request.
// The process keeps what it had, a default or a handler of its own.
TEST(ServidorFastCGI, TellingACgiProcessLeavesItsSignalsAlone) {
  signal(SIGUSR1, SIG_IGN);
  ASSERT_EQ(Manejador(SIGTERM), SIG_DFL);
  ASSERT_EQ(Manejador(SIGPIPE), SIG_DFL);
  EXPECT_FALSE(EsFastCGI());
  EXPECT_EQ(Manejador(SIGTERM), SIG_DFL);
  EXPECT_EQ(Manejador(SIGPIPE), SIG_DFL);
  EXPECT_EQ(Manejador(SIGUSR1), SIG_IGN);
}

}  // namespace
}  // namespace orvex::fastcgi
