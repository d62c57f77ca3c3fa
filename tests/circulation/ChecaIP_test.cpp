#include "circulation/ChecaIP.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <vector>

#include "tests/support/Fakes.h"

namespace orvex::circulation {
namespace {

// A scripted network: known names, and an echo that answers as told.
class FakeRed : public Red {
 public:
  std::optional<std::string> Resuelve(const std::string& host, int& error) override {
    lookups.push_back(host);
    if (DireccionIP(host) != 0) return host;  // numeric text reads as itself
    auto it = hosts.find(host);
    if (it == hosts.end()) {
      error = 11001;
      return std::nullopt;
    }
    return it->second;
  }
  std::optional<std::string> NombreLocal(int&) override { return "biblioteca"; }
  int Eco(std::uint32_t address, const std::string& payload, int timeout_ms, int& rtt_ms,
          std::string& reply, std::string& metodo) override {
    echoed_to = address;
    sent = payload;
    timeout = timeout_ms;
    rtt_ms = rtt;
    reply = garble ? payload.substr(1) : payload;
    metodo = "falso";
    return status;
  }

  std::map<std::string, std::string> hosts{{"circ.local", "10.0.0.7"},
                                           {"biblioteca", "10.0.0.1"}};
  std::vector<std::string> lookups;
  int status = kIpSuccess;
  int rtt = 0;
  bool garble = false;
  std::uint32_t echoed_to = 0;
  std::string sent;
  int timeout = 0;
};

struct Check {
  bool ok;
  std::string host;
  std::string page;
  std::string traza;
};

Check Checa(FakeRed& red, std::string host, std::int32_t max_ms = 30) {
  testing::MemoryOutput out;
  Check c;
  c.ok = ChecaIP(red, out, host, max_ms, c.traza);
  c.host = host;
  c.page = out.contents;
  return c;
}

TEST(ChecaIP, DottedHostIsNotLookedUpAgain) {
  FakeRed red;
  Check c = Checa(red, "10.1.2.3");
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(red.lookups, std::vector<std::string>{"10.1.2.3"});  // the resolver's own numeric read
  EXPECT_EQ(red.echoed_to, 0x0A010203u);
  EXPECT_EQ(red.sent.size(), 32u);
  EXPECT_EQ(red.timeout, 200);
  EXPECT_EQ(c.page, "<!-- ChecaIP: 10.1.2.3-->\r\n");
}

TEST(ChecaIP, NamedHostBecomesItsAddressOnSuccess) {
  FakeRed red;
  Check c = Checa(red, " circ.local ");
  EXPECT_TRUE(c.ok);
  EXPECT_EQ(c.host, "10.0.0.7");
  EXPECT_EQ(red.lookups, std::vector<std::string>{"circ.local"});
}

TEST(ChecaIP, ComparesTheRoundTripWithTheLimit) {
  struct Case {
    int rtt;
    std::int32_t max_ms;
    bool ok;
  } cases[] = {{35, 30, false}, {35, 35, true}, {0, 0, true}, {36, 35, false}};
  for (const Case& k : cases) {
    FakeRed red;
    red.rtt = k.rtt;
    Check c = Checa(red, "circ.local", k.max_ms);
    EXPECT_EQ(c.ok, k.ok) << k.rtt << " vs " << k.max_ms;
    EXPECT_EQ(c.host, "10.0.0.7");  // answered: the address replaces the host either way
  }
}

TEST(ChecaIP, FailedEchoIsReportedInThePage) {
  for (int status : {kIpReqTimedOut, kIpGeneralFailure, kIpDestHostUnreachable}) {
    FakeRed red;
    red.status = status;
    Check c = Checa(red, "circ.local");
    EXPECT_FALSE(c.ok);
    EXPECT_EQ(c.host, "circ.local");
    EXPECT_EQ(c.page,
              "<!-- ChecaIP: 10.0.0.7-->\r\n<!-- ChecaIP: Error en ping-10.0.0.7 -->\r\n");
    EXPECT_NE(c.traza.find("falso: estado " + std::to_string(status)), std::string::npos);
  }
}

TEST(ChecaIP, MismatchedReplyFailsWithoutComment) {
  FakeRed red;
  red.garble = true;
  Check c = Checa(red, "circ.local");
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.host, "circ.local");
  EXPECT_EQ(c.page, "<!-- ChecaIP: 10.0.0.7-->\r\n");
}

TEST(ResuelveHost, ReportsAFailedLookup) {
  FakeRed red;
  std::string error;
  EXPECT_EQ(ResuelveHost(red, "nadie.invalid", error), "");
  EXPECT_EQ(error,
            "Windows Sockets error 11001 has occurred. Unable to successfully get Host Name.\r\n");
  error.clear();
  EXPECT_EQ(ResuelveHost(red, "", error), "10.0.0.1");  // empty: this machine
  EXPECT_EQ(error, "");
}

TEST(HacePing, SmallPayloadBecomesTenRandomNonNulCharacters) {
  FakeRed red;
  std::string tiempo, traza;
  bool ok = false;
  std::int32_t tamano = 0;
  EXPECT_EQ(HacePing(red, "10.0.0.7", tiempo, ok, tamano, 200, traza), kIpSuccess);
  EXPECT_EQ(tamano, 10);
  ASSERT_EQ(red.sent.size(), 10u);
  EXPECT_EQ(red.sent.find('\0'), std::string::npos);
  EXPECT_TRUE(ok);
  EXPECT_EQ(tiempo, "0 ms");
}

// A fixed payload would let a late answer to an earlier echo pass for the
// answer to this one.
TEST(HacePing, EveryEchoCarriesAPayloadOfItsOwn) {
  FakeRed red;
  std::set<std::string> cargas;
  for (int i = 0; i < 8; ++i) {
    std::string tiempo, traza;
    bool ok = false;
    std::int32_t tamano = 32;
    HacePing(red, "10.0.0.7", tiempo, ok, tamano, 200, traza);
    cargas.insert(red.sent);
  }
  EXPECT_EQ(cargas.size(), 8u);
}

TEST(DireccionIP, ReadsOnlyFourDecimalOctets) {
  struct Case {
    const char* text;
    std::uint32_t value;
  } cases[] = {
      {"127.0.0.1", 0x7F000001},  {"255.255.255.255", 0xFFFFFFFF}, {"10.1.2.3", 0x0A010203},
      {"1.2.3", 0},               {"1.2.3.4.5", 0},                {"256.1.1.1", 0},
      {"1.2.3.999", 0},           {"1.2.3.0001", 0},               {"", 0},
      {" 1.2.3.4", 0},            {"1.2.3.4 ", 0},                 {"1. 2.3.4", 0},
      {"a.b.c.d", 0},             {"1..2.3", 0},                   {"-1.2.3.4", 0},
  };
  for (const Case& c : cases) EXPECT_EQ(DireccionIP(c.text), c.value) << c.text;
}

// The real network, on loopback only.
TEST(RedPosix, LocalhostResolvesToLoopback) {
  RedPosix red;
  std::string error;
  EXPECT_EQ(ResuelveHost(red, "localhost", error), "127.0.0.1") << error;
}

TEST(RedPosix, LoopbackAnswersThroughEveryAvailableProbe) {
  using S = RedPosix::Sondeo;
  for (S sondeo : {S::kAuto, S::kIcmpDgram, S::kIcmpRaw, S::kTcp}) {
    RedPosix red(sondeo);
    testing::MemoryOutput out;
    std::string host = "127.0.0.1", traza;
    std::int32_t max_ms = 1000;
    bool ok = ChecaIP(red, out, host, max_ms, traza);
    if (sondeo != S::kAuto && !ok &&
        traza.find("estado " + std::to_string(kIpGeneralFailure)) != std::string::npos) {
      continue;  // this probe cannot be opened here
    }
    EXPECT_TRUE(ok) << traza;
    EXPECT_EQ(out.contents, "<!-- ChecaIP: 127.0.0.1-->\r\n") << traza;
  }
}

}  // namespace
}  // namespace orvex::circulation
