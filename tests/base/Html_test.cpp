#include "base/Html.h"

#include <gtest/gtest.h>

#include <string>

namespace orvex {
namespace {

// Each input through the four escapes. They agree on "&", "<" and ">" and
// on every other byte, and differ only in the quotes.
TEST(Html, EachEscapeReplacesItsCharactersAndNoOther) {
  // Control characters, 00, DEL and bytes above 0x7F (Windows-1252 or
  // UTF-8), none of which any escape names.
  const std::string otros("\t\r\n\x01\0\x7F\x80\xE9\xFF", 9);
  struct Caso {
    std::string texto, eco, solo_texto, comilla_doble, entidades_xml;
  } casos[] = {
      {"", "", "", "", ""},
      {"a&b<c>d", "a&amp;b&lt;c&gt;d", "a&amp;b&lt;c&gt;d", "a&amp;b&lt;c&gt;d",
       "a&amp;b&lt;c&gt;d"},
      {"\"x\"", "&quot;x&quot;", "\"x\"", "&quot;x&quot;", "&quot;x&quot;"},
      {"l'a", "l&#39;a", "l'a", "l'a", "l&apos;a"},
      // An existing reference is escaped again, not kept.
      {"&amp;&#39;", "&amp;amp;&amp;#39;", "&amp;amp;&amp;#39;", "&amp;amp;&amp;#39;",
       "&amp;amp;&amp;#39;"},
      {otros, otros, otros, otros, otros},
  };
  for (const Caso& c : casos) {
    EXPECT_EQ(EscapaEco(c.texto), c.eco) << c.texto;
    EXPECT_EQ(EscapaTexto(c.texto), c.solo_texto) << c.texto;
    EXPECT_EQ(EscapaComillaDoble(c.texto), c.comilla_doble) << c.texto;
    EXPECT_EQ(EscapaEntidadesXML(c.texto), c.entidades_xml) << c.texto;
  }
}

}  // namespace
}  // namespace orvex
