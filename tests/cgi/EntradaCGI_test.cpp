#include "cgi/EntradaCGI.h"

#include <gtest/gtest.h>

#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex::cgi {
namespace {

std::vector<std::pair<std::string, std::string>> Campos(const ParesCGI& pares) {
  std::vector<std::pair<std::string, std::string>> v;
  for (const ParCGI& p : pares.Campos()) v.emplace_back(p.nombre, p.valor);
  return v;
}

using Pares = std::vector<std::pair<std::string, std::string>>;

TEST(SeparaPares, SplitsFieldsAsTheGatewayAlwaysHas) {
  struct Case {
    std::string texto;
    Pares campos;
    std::size_t entradas;  // entry 0 included
  } cases[] = {
      {"ACERVO=libros&txtLIB=a+b%E1", {{"ACERVO", "libros"}, {"txtLIB", "a b\xE1"}}, 3},
      {"a=b=c", {{"a", "b=c"}}, 3},          // one trailing empty entry
      {"x&y=1", {{"x&y", "1"}}, 2},          // a segment without "=" joins the next name
      {"a=1&a=2", {{"a", "1"}, {"a", "2"}}, 3},
      {"a=&=b&", {{"a", ""}, {"", "b"}}, 3},
      {"sin_igual", {}, 1},
      {"", {}, 1},
      {"==", {{"", "="}}, 3},
      {"%41%3D=%3D", {{"A=", "="}}, 2},
  };
  for (const Case& c : cases) {
    ParesCGI pares;
    SeparaPares(pares, c.texto);
    EXPECT_EQ(Campos(pares), c.campos) << c.texto;
    EXPECT_EQ(pares.Entradas(), c.entradas) << c.texto;
  }
}

TEST(SeparaPares, KeepsEmptyEntriesBetweenTwoTexts) {
  ParesCGI pares;
  SeparaPares(pares, "a=b=c");
  SeparaPares(pares, "d=1");
  EXPECT_EQ(Campos(pares), (Pares{{"a", "b=c"}, {"", ""}, {"d", "1"}}));
  EXPECT_EQ(pares.Entradas(), 4u);
}

TEST(SeparaPares, AMillionEqualsSignsCostNoEntries) {
  ParesCGI pares;
  SeparaPares(pares, "a=" + std::string(1000000, '='));
  EXPECT_EQ(pares.Campos().size(), 1u);
  EXPECT_EQ(pares.Entradas(), 1000002u);
}

TEST(DecodificaURL, DecodesPlusAndPercent) {
  struct Case {
    std::string texto, resultado;
  } cases[] = {
      {"", ""},
      {"a+b", "a b"},
      {"%41", "A"},
      {"%2541", "%41"},  // a decoded "%" is not decoded again
      {"%2B", "+"},
      {"%e1", "\xE1"},
      {"%00x", std::string("\0x", 2)},
      {"%4", "\x04"},    // one digit at the end
      {"100%25", "100%"},
      {"\xE1\xFF", "\xE1\xFF"},
  };
  for (const Case& c : cases) EXPECT_EQ(DecodificaURL(c.texto), c.resultado) << c.texto;
}

TEST(DecodificaURL, DecodesAFewMegabytesInOnePass) {
  // Decoding once went back over the rest of the text at every escape.
  std::string texto;
  for (int i = 0; i < 400000; ++i) texto += "%41+";
  const std::string decodificado = DecodificaURL(texto);
  ASSERT_EQ(decodificado.size(), 800000u);
  EXPECT_EQ(decodificado.substr(0, 6), "A A A ");
}

TEST(DecodificaURL, AMalformedEscapeRaisesATypeMismatch) {
  for (const char* bad : {"%", "a%", "%G1", "%4G", "%-1", "% 1", "%%"}) {
    EXPECT_EQ(testing::ErrorNumberOf([&] { DecodificaURL(bad); }), kErrTiposNoCoinciden) << bad;
  }
}

// The hexadecimal digits at the edges of their ranges, in either case and
// either position, and the characters just outside them: '/' and ':' around
// the digits, '@' and 'G' around the capitals, '`' and 'g' around the small
// letters. A character outside the ranges raises a type mismatch; it is
// never passed through.
TEST(DecodificaURL, HexadecimalDigitsAtTheirBounds) {
  using namespace std::string_literals;
  struct Case {
    std::string texto, resultado;
  } aceptados[] = {
      {"%00", "\0"s},  {"%09", "\x09"}, {"%90", "\x90"}, {"%0A", "\x0A"},
      {"%0a", "\x0A"}, {"%A0", "\xA0"}, {"%a0", "\xA0"}, {"%0F", "\x0F"},
      {"%0f", "\x0F"}, {"%F0", "\xF0"}, {"%f0", "\xF0"}, {"%FF", "\xFF"},
      {"%ff", "\xFF"}, {"%Ff", "\xFF"}, {"%fF", "\xFF"}, {"%99", "\x99"},
      {"%AA", "\xAA"}, {"%aa", "\xAA"}, {"x%0ay", "x\ny"}, {"%9", "\x09"},
      {"%F", "\x0F"},  {"%f", "\x0F"},  {"%0", "\0"s},
  };
  for (const Case& c : aceptados) EXPECT_EQ(DecodificaURL(c.texto), c.resultado) << c.texto;

  for (const char* bad : {"%0G", "%0g", "%0/", "%0:", "%0@", "%0`", "%G0", "%g0", "%/0", "%:0",
                          "%@0", "%`0", "%/", "%:", "%@", "%`", "%G", "%g", "a%0Gb", "%41%/0"}) {
    EXPECT_EQ(testing::ErrorNumberOf([&] { DecodificaURL(bad); }), kErrTiposNoCoinciden) << bad;
  }
}

TEST(ValorCGI, FindsTheFirstFieldIgnoringCaseAndTrims) {
  EntradaCGI cgi;
  SeparaPares(cgi.pares, "ACERVO=libros&txt=++x++&a=1&a=2&%E1rbol=%C1&vacio=");
  EXPECT_EQ(ValorCGI(cgi, "acervo"), "libros");
  EXPECT_EQ(ValorCGI(cgi, "ACERVO"), "libros");
  EXPECT_EQ(ValorCGI(cgi, "txt"), "x");
  EXPECT_EQ(ValorCGI(cgi, "a"), "1");
  EXPECT_EQ(ValorCGI(cgi, "\xC1RBOL"), "\xC1");
  EXPECT_EQ(ValorCGI(cgi, "vacio"), "");
  EXPECT_EQ(ValorCGI(cgi, "ausente"), "");
}

TEST(EsUTF8, AcceptsOnlyWellFormedSequences) {
  const struct {
    const char* texto;
    bool bien;
  } cases[] = {
      {"", true},
      {"mexico", true},
      {"m\xC3\xA9xico", true},                // é
      {"\xE2\x82\xAC", true},                // €
      {"\xF0\x9F\x93\x9A", true},            // a book, outside the code page
      {"\xEF\xBF\xBD", true},                // U+FFFD itself
      {"m\xE9xico", false},                   // Windows-1252 é
      {"\xC3", false},                        // cut short
      {"\xE2\x82", false},
      {"\xC0\xAF", false},                    // overlong "/"
      {"\xED\xA0\x80", false},                // a surrogate
      {"\xF4\x90\x80\x80", false},            // above U+10FFFF
      {"\xBF", false},                        // a lone continuation byte
  };
  for (const auto& c : cases) EXPECT_EQ(EsUTF8(c.texto), c.bien) << c.texto;
}

TEST(LeeCamposUTF8, ConvertsWellFormedTextAndKeepsTheRest) {
  EntradaCGI cgi;
  SeparaPares(cgi.pares,
              "txtLIB=m%C3%A9xico&txtAUT=garc%EDa&t%C3%ADtulo=%E2%82%AC+%F0%9F%93%9A&"
              "ACERVO=libros&vacio=");
  const std::size_t entradas = cgi.pares.Entradas();
  LeeCamposUTF8(cgi);
  EXPECT_EQ(Campos(cgi.pares), (Pares{{"txtLIB", "m\xE9xico"},
                                      {"txtAUT", "garc\xED" "a"},  // not UTF-8: as sent
                                      {"t\xEDtulo", "\x80 ?"},
                                      {"ACERVO", "libros"},
                                      {"vacio", ""}}));
  EXPECT_EQ(cgi.pares.Entradas(), entradas);
}

TEST(PideUTF8, TheSettingOrTheRequestField) {
  const struct {
    const char* campos;
    bool siempre, utf8;
  } cases[] = {
      {"txtLIB=x", false, false},
      {"txtLIB=x", true, true},
      {"CODIFICACION=utf-8", false, true},
      {"codificacion=UTF8", false, true},
      {"CODIFICACION=+utf-8+", false, true},
      {"CODIFICACION=latin1", false, false},
      {"CODIFICACION=", false, false},
  };
  for (const auto& c : cases) {
    EntradaCGI cgi;
    SeparaPares(cgi.pares, c.campos);
    EXPECT_EQ(PideUTF8(cgi, c.siempre), c.utf8) << c.campos;
  }
}

class LecturaTest : public ::testing::Test {
 protected:
  void Variables(std::map<std::string, std::string> vars) {
    p_.entorno.vars = std::move(vars);
    LeeVariablesCGI(cgi_, p_.entorno);
  }
  testing::FakePlatform p_;
  EntradaCGI cgi_;
};

TEST_F(LecturaTest, CapturesTheVariablesAndTheContentLength) {
  Variables({{"SCRIPT_NAME", "/cgi-bin/orvex"}, {"CONTENT_LENGTH", "12abc"}});
  EXPECT_EQ(cgi_.Variable("SCRIPT_NAME"), "/cgi-bin/orvex");
  EXPECT_EQ(cgi_.Variable("REMOTE_HOST"), "");
  EXPECT_EQ(cgi_.LongitudContenido, 12);
  struct Case {
    const char* valor;
    std::int32_t longitud;
  } cases[] = {{"", 0}, {"abc", 0}, {"10.5", 10}, {"11.5", 12}, {"-3", -3}};
  for (const Case& c : cases) {
    Variables({{"CONTENT_LENGTH", c.valor}});
    EXPECT_EQ(cgi_.LongitudContenido, c.longitud) << c.valor;
  }
}

TEST_F(LecturaTest, AnEnormousContentLengthOverflows) {
  p_.entorno.vars = {{"CONTENT_LENGTH", "99999999999"}};
  EXPECT_EQ(testing::ErrorNumberOf([&] { LeeVariablesCGI(cgi_, p_.entorno); }), kErrDesbordamiento);
}

TEST_F(LecturaTest, APostGivesBodyFieldsBeforeQueryFields) {
  Variables({{"REQUEST_METHOD", "POST"},
             {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
             {"CONTENT_LENGTH", "11"},
             {"QUERY_STRING", "q=3&a=9"}});
  p_.entrada.chunks = {"a=1&", "b=22222"};
  LeeDatosForma(cgi_, p_.entrada);
  EXPECT_EQ(cgi_.DatosPost, "a=1&b=22222");
  EXPECT_EQ(Campos(cgi_.pares), (Pares{{"a", "1"}, {"b", "22222"}, {"q", "3"}, {"a", "9"}}));
  EXPECT_EQ(ValorCGI(cgi_, "a"), "1");
}

TEST_F(LecturaTest, EveryReadAsksForTheFullLength) {
  Variables({{"REQUEST_METHOD", "POST"},
             {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
             {"CONTENT_LENGTH", "6"}});
  p_.entrada.chunks = {"a=1", "&b=2&c=3"};
  LeeDatosForma(cgi_, p_.entrada);
  EXPECT_EQ(p_.entrada.requested, (std::vector<std::size_t>{6, 6}));
  // The second read brings more than the remainder, and all of it is kept.
  EXPECT_EQ(cgi_.DatosPost, "a=1&b=2&c");
  EXPECT_EQ(Campos(cgi_.pares), (Pares{{"a", "1"}, {"b", "2"}}));
}

TEST_F(LecturaTest, AShortBodyKeepsTheReaderWaiting) {
  Variables({{"REQUEST_METHOD", "POST"},
             {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
             {"CONTENT_LENGTH", "10"}});
  p_.entrada.chunks = {"a=1"};
  p_.entrada.max_pauses = 5;
  EXPECT_THROW(LeeDatosForma(cgi_, p_.entrada), testing::ScriptedInput::InputStillWaiting);
  EXPECT_EQ(p_.entrada.pauses, 5);
  EXPECT_EQ(cgi_.DatosPost, "a=1");
}

// A deadline that passes after a given number of looks at it.
class PlazoContado : public Plazo {
 public:
  explicit PlazoContado(int miradas) : restantes_(miradas) {}
  bool Vencido() noexcept override { return --restantes_ < 0; }
  std::int64_t RestanteMs() noexcept override { return restantes_ > 0 ? 1000 : 0; }

 private:
  int restantes_;
};

TEST_F(LecturaTest, AShortBodyWaitsNoLongerThanTheDeadline) {
  Variables({{"REQUEST_METHOD", "POST"},
             {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
             {"CONTENT_LENGTH", "10"}});
  p_.entrada.chunks = {"a=1", "&b"};
  p_.entrada.max_pauses = 1000;
  PlazoContado plazo(7);
  EXPECT_THROW(LeeDatosForma(cgi_, p_.entrada, &plazo), TiempoAgotado);
  EXPECT_EQ(cgi_.DatosPost, "a=1&b");
  EXPECT_EQ(p_.entrada.pauses, 5);
}

TEST_F(LecturaTest, ABodyThatArrivesInTimeIsRead) {
  Variables({{"REQUEST_METHOD", "POST"},
             {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
             {"CONTENT_LENGTH", "5"}});
  p_.entrada.chunks = {"a=1", "&b"};
  PlazoContado plazo(2);
  LeeDatosForma(cgi_, p_.entrada, &plazo);
  EXPECT_EQ(Campos(cgi_.pares), (Pares{{"a", "1"}}));
}

TEST_F(LecturaTest, ARequestIsExcessiveByItsDeclaredBodyOrItsQueryString) {
  struct Case {
    std::map<std::string, std::string> vars;
    bool excesiva;
  } cases[] = {
      {{{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "100"}}, false},
      {{{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "101"}}, true},
      {{{"REQUEST_METHOD", "post"}, {"CONTENT_LENGTH", "101"}}, false},  // its body is not read
      {{{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "-5"}}, false},   // the error page's
      {{{"QUERY_STRING", std::string(100, 'q')}}, false},
      {{{"QUERY_STRING", std::string(101, 'q')}}, true},
  };
  for (const Case& c : cases) {
    Variables(c.vars);
    EXPECT_EQ(SolicitudExcesiva(cgi_, 100), c.excesiva)
        << c.vars.begin()->second << " " << cgi_.LongitudContenido;
  }
}

TEST_F(LecturaTest, OtherContentTypesLeaveTheBodyUnparsed) {
  Variables({{"REQUEST_METHOD", "POST"},
             {"CONTENT_TYPE", "multipart/form-data; boundary=x"},
             {"CONTENT_LENGTH", "3"},
             {"QUERY_STRING", "q=1"}});
  p_.entrada.chunks = {"a=1"};
  LeeDatosForma(cgi_, p_.entrada);
  EXPECT_EQ(cgi_.DatosPost, "a=1");
  EXPECT_EQ(Campos(cgi_.pares), (Pares{{"q", "1"}}));
}

TEST_F(LecturaTest, TheContentTypeMatchesInAnyCase) {
  Variables({{"REQUEST_METHOD", "POST"},
             {"CONTENT_TYPE", "APPLICATION/X-WWW-FORM-URLENCODED; charset=windows-1252"},
             {"CONTENT_LENGTH", "3"}});
  p_.entrada.chunks = {"a=1"};
  LeeDatosForma(cgi_, p_.entrada);
  EXPECT_EQ(ValorCGI(cgi_, "a"), "1");
}

TEST_F(LecturaTest, OnlyAnUpperCasePostReadsTheBody) {
  Variables({{"REQUEST_METHOD", "post"},
             {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
             {"CONTENT_LENGTH", "3"},
             {"QUERY_STRING", "q=1"}});
  p_.entrada.chunks = {"a=1"};
  LeeDatosForma(cgi_, p_.entrada);
  EXPECT_TRUE(p_.entrada.requested.empty());
  EXPECT_EQ(Campos(cgi_.pares), (Pares{{"q", "1"}}));
}

TEST_F(LecturaTest, ANegativeLengthIsAnInvalidArgument) {
  Variables({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "-1"}});
  EXPECT_EQ(testing::ErrorNumberOf([&] { LeeDatosForma(cgi_, p_.entrada); }), kErrArgumentoNoValido);
}

}  // namespace
}  // namespace orvex::cgi
