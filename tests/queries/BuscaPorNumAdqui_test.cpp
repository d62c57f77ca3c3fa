#include "queries/BuscaPorNumAdqui.h"

#include <gtest/gtest.h>

namespace orvex::queries {
namespace {

TEST(AnalizaShowNum, ReadsTheNumberAndTheFormat) {
  struct Caso {
    const char* comando;
    bool correcto;
    const char* numadqui;
    int formato;
    const char* mensaje;  // the start of the refusal
  };
  const Caso casos[] = {
      {"SHOW_NUM", true, "", 1, ""},
      {"SHOW_NUM   ", true, "", 1, ""},
      {"show_num 000123", true, "000123", 1, ""},
      {"SHOW_NUM  000123 , 3 ", true, "000123", 3, ""},
      {"SHOW_NUM000123,2,9", true, "000123", 2, ""},
      {"SHOW_NUM 000123,", true, "000123", 1, ""},
      {"SHOW_NUM 000123,2.6", true, "000123", 3, ""},
      {"SHOW_NUM 123456789012345", true, "123456789012345", 1, ""},
      {"SHOW_NUM 1234567890123456", false, "", 0,
       "Error de sintaxis en: SHOW_NDA '1234567890123456'... se esperaba un valor apropiado"},
      {"SHOW_NUM ,2", false, "", 0, "Error de sintaxis en: SHOW_NDA ''..."},
      {"SHOW_NUM 000123,4", false, "", 0, "Error de sintaxis en: SHOW_NDA '4'.. se esperaba valor"},
      {"SHOW_NUM 000123,0", false, "", 0, "Error de sintaxis en: SHOW_NDA '0'.."},
      {"SHOW_NUM 000123,dos", false, "", 0, "Error de sintaxis en: SHOW_NDA 'dos'.."},
  };
  for (const Caso& c : casos) {
    const ShowNum r = AnalizaShowNum(c.comando, false);
    EXPECT_EQ(r.correcto, c.correcto) << c.comando;
    if (c.correcto) {
      EXPECT_EQ(r.numadqui, c.numadqui) << c.comando;
      EXPECT_EQ(r.formato, c.formato) << c.comando;
    } else {
      EXPECT_EQ(r.mensaje.rfind(c.mensaje, 0), 0u) << c.comando << ": " << r.mensaje;
    }
  }
}

// The refused text is quoted as the page shows it: escaped, or as typed
// when the installation echoes request text verbatim.
TEST(AnalizaShowNum, QuotesTheRefusedTextEscapedUnlessEchoesAreLiteral) {
  struct Caso {
    const char* comando;
    bool literales;
    const char* cita;  // what the message quotes between its apostrophes
  } casos[] = {
      {"SHOW_NUM <b>\"x\"</b>&'yy'#", false, "&lt;b&gt;&quot;x&quot;&lt;/b&gt;&amp;&#39;yy&#39;#"},
      {"SHOW_NUM <b>\"x\"</b>&'yy'#", true, "<b>\"x\"</b>&'yy'#"},
      {"SHOW_NUM 1,<i>", false, "&lt;i&gt;"},
      {"SHOW_NUM 1,<i>", true, "<i>"},
  };
  for (const Caso& c : casos) {
    const ShowNum r = AnalizaShowNum(c.comando, c.literales);
    ASSERT_FALSE(r.correcto) << c.comando;
    EXPECT_EQ(r.mensaje.rfind("Error de sintaxis en: SHOW_NDA '" + std::string(c.cita) + "'.", 0), 0u)
        << c.comando << ": " << r.mensaje;
  }
}

}  // namespace
}  // namespace orvex::queries
