#include "records/Presentaciones.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "base/CodePage.h"

namespace orvex::records {
namespace {

RegFicha Ficha(std::string_view marc) {
  RegFicha ficha;
  ficha.Ficha_no = 7;
  ficha.EtiquetasMARC = Latin1(marc);
  return ficha;
}

TEST(ArmaTarjeta, JoinsTitleEditionAndPublicationWithoutDoubledFullStops) {
  struct Case {
    const char* marc;
    const char* s1;
  } cases[] = {
      {"¦245Cien años de soledad / Gabriel García Márquez ; edición de Jacques Joset."
       "¦2502a ed.¦260Madrid : Cátedra, 1987.Ì",
       "Cien años de soledad / Gabriel García Márquez ; edición de Jacques Joset. -- 2a ed. "
       "-- Madrid : Cátedra, 1987."},
      // Pieces without a final full stop get one, the last one too.
      {"¦245Álgebra / A. Baldor¦2502a ed¦260México : Cultural, 1983Ì",
       "Álgebra / A. Baldor. -- 2a ed. -- México : Cultural, 1983."},
      // Missing or blank pieces leave no empty area behind.
      {"¦245Rayuela.¦250  ¦260Buenos Aires : Sudamericana, 1963.Ì",
       "Rayuela. -- Buenos Aires : Sudamericana, 1963."},
      {"¦260México : [s.n.], [1987?]Ì", "México : [s.n.], [1987?]."},
      {"¦245 Rayuela. ¦250 3a ed. Ì", "Rayuela. -- 3a ed."},
      // Only the first occurrence of each area; the order is that of the card.
      {"¦2502a ed.¦245Uno \\ Dos¦008x¦100AutorÌ", "Uno. -- 2a ed."},
      {"¦100Autor¦300 p.Ì", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ArmaTarjeta(Ficha(c.marc)).S1, Latin1(c.s1)) << c.marc;
  }
}

TEST(ArmaTarjeta, WritesThePhysicalDescriptionAbbreviatedWithTheSeriesInParentheses) {
  struct Case {
    const char* marc;
    const char* s2;
  } cases[] = {
      {"¦300550 p. ; 18 cm.¦490Letras hispánicas ; 215Ì",
       "550 p. ; 18 cm. -- (Letras hispánicas ; 215)"},
      {"¦300xii, 238 p¦440Sepan cuantos ; 202Ì", "xii, 238 p. -- (Sepan cuantos ; 202)"},
      // 440 wins over 490; every occurrence gets its own parentheses.
      {"¦490Otra¦440Sepan cuantos \\ Serie B¦30091 p.Ì", "91 p. -- (Sepan cuantos) (Serie B)"},
      {"¦490 Letras mexicanas ; 19 Ì", "(Letras mexicanas ; 19)"},
      {"¦300 3 v. : il. ; 24 cm. Ì", "3 v. : il. ; 24 cm."},
      // Spelled-out units, whole words, a full stop after them not doubled.
      {"¦300350 páginas : ilustraciones ; 24 centímetros.Ì", "350 p. : il. ; 24 cm."},
      {"¦300Páginas varias : Ilustraciones col. ; 20 Centimetros¦490SÌ",
       "p. varias : il. col. ; 20 cm. -- (S)"},
      {"¦300120 paginas, ilustraciones.Ì", "120 p., il."},
      {"¦300subpáginas : ilustracionesx ; centímetrosÌ", "subpáginas : ilustracionesx ; cm."},
      {"¦300PÁGINASÌ", "PÁGINAS"},
      {"¦245TítuloÌ", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ArmaTarjeta(Ficha(c.marc)).S2, Latin1(c.s2)) << c.marc;
  }
}

TEST(ArmaTarjeta, FillsTheOtherSectionsFromTheirTagsInOrder) {
  const Tarjeta t = ArmaTarjeta(
      Ficha("¦008020823s1987¦082 Co863  G216c ¦090REF 1¦050 ¦130Popol vuh. Español."
            "¦700Recinos, Adrián, tr.¦520Resumen.¦504Bibliografía: p. 53-57.¦500Nota uno \\  \\ Nota dos¦020 84-376-0494-X "
            "¦650Novela colombiana -- Siglo XX \\ Realismo mágico (Literatura)¦600Quijote."
            "¦740Título añadido¦710Academia.¦651Macondo¦999otroÌ¦500tras el finÌ"));
  EXPECT_EQ(t.Sclas, "Co863  G216c");  // 050 is blank, 082 comes before 090
  EXPECT_EQ(t.Sa, "Popol vuh. Espa\xF1ol.");
  EXPECT_EQ(t.Sisbn, "ISBN 84-376-0494-X");
  EXPECT_EQ(t.Snotas, (std::vector<std::string>{"Nota uno", "Nota dos",
                                                Latin1("Bibliografía: p. 53-57."), "Resumen."}));
  EXPECT_EQ(t.Sr1, Latin1("1. Quijote. 2. Novela colombiana -- Siglo XX. "
                          "3. Realismo mágico (Literatura). 4. Macondo."));
  EXPECT_EQ(t.Sr2, Latin1("I. Recinos, Adrián, tr. II. Academia. III. Título añadido."));

  const Tarjeta otra =
      ArmaTarjeta(Ficha("¦090 FOLL 116 ¦110Instituto¦100 ¦020a \\ b (rústica).¦020cÌ"));
  EXPECT_EQ(otra.Sclas, "FOLL 116");
  EXPECT_EQ(otra.Sa, "Instituto");  // a blank 100 does not hide 110
  EXPECT_EQ(otra.Sisbn, Latin1("ISBN a. -- ISBN b (rústica). -- ISBN c"));
  EXPECT_TRUE(otra.Snotas.empty());
  EXPECT_EQ(otra.Sr1, "");
  EXPECT_EQ(otra.Sr2, "");
}

TEST(ListaNumerada, NumbersTheOccurrencesEachWithOneFullStop) {
  struct Case {
    const char* contenido;
    Numeracion numeracion;
    const char* lista;
  } cases[] = {
      {"Gatos \\ Perros.", Numeracion::Arabiga, "1. Gatos. 2. Perros."},
      {"Gatos \\ Perros.", Numeracion::Romana, "I. Gatos. II. Perros."},
      {"  \\ Gatos \\\\ . \\ Perros -- Historia..  \\", Numeracion::Arabiga,
       "1. Gatos. 2. Perros -- Historia."},
      {"Problemas, ejercicios, etc. .", Numeracion::Arabiga, "1. Problemas, ejercicios, etc."},
      {"Rico, Francisco, ed.", Numeracion::Romana, "I. Rico, Francisco, ed."},
      {"", Numeracion::Romana, ""},
      {" \\ ", Numeracion::Arabiga, ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ListaNumerada(c.contenido, c.numeracion), c.lista) << c.contenido;
  }
}

TEST(ListaNumerada, WritesRomanNumeralsWithSubtractiveForms) {
  const char* const romanos[] = {"I",    "II", "III", "IV", "V",   "VI",   "VII",
                                 "VIII", "IX", "X",   "XI", "XII", "XIII", "XIV"};
  std::string contenido;
  std::string esperado_romano;
  std::string esperado_arabigo;
  for (int i = 1; i <= 49; ++i) {
    const std::string pieza = "e" + std::to_string(i);
    contenido += (i > 1 ? " \\ " : "") + pieza;
    if (i <= 14) {
      esperado_romano += std::string(i > 1 ? " " : "") + romanos[i - 1] + ". " + pieza + ".";
    }
    esperado_arabigo += (i > 1 ? " " : "") + std::to_string(i) + ". " + pieza + ".";
  }
  const std::string romana = ListaNumerada(contenido, Numeracion::Romana);
  EXPECT_EQ(romana.substr(0, esperado_romano.size() + 1), esperado_romano + " ");
  EXPECT_NE(romana.find(" XIX. e19. XX. e20. "), std::string::npos);
  EXPECT_NE(romana.find(" XL. e40. XLI. e41. "), std::string::npos);
  EXPECT_TRUE(
      romana.ends_with(" XLIV. e44. XLV. e45. XLVI. e46. XLVII. e47. XLVIII. e48. XLIX. e49."));
  EXPECT_EQ(ListaNumerada(contenido, Numeracion::Arabiga), esperado_arabigo);
}

TEST(EnlacesMedios, TurnsClosedMarkersIntoLinks) {
  struct Case {
    const char* texto;
    const char* html;
  } cases[] = {
      {"Portada [IMG{fotos/p1.jpg}] final", "Portada <img src=\"fotos/p1.jpg\"> final"},
      {"[DOC{http://a.mx/t.pdf}]", "<a href=\"http://a.mx/t.pdf\" target=\"_blank\">Documento</a>"},
      {"[URL{http://a.mx/}]", "<a href=\"http://a.mx/\" target=\"_blank\">http://a.mx/</a>"},
      // Escaped text passes as it is: the address keeps its references.
      {"[URL{http://a.mx/?p=1&amp;q=&quot;x&quot;}]",
       "<a href=\"http://a.mx/?p=1&amp;q=&quot;x&quot;\" target=\"_blank\">"
       "http://a.mx/?p=1&amp;q=&quot;x&quot;</a>"},
      // Raw characters never leave the attribute.
      {"[IMG{a\" onerror=\"x<y>&b&#39;&#x27;&c}]",
       "<img src=\"a&quot; onerror=&quot;x&lt;y&gt;&amp;b&#39;&#x27;&amp;c\">"},
      // No address without its closing "}]", nor an empty one.
      {"[IMG{a.jpg} y [URL{b", "[IMG{a.jpg} y [URL{b"},
      {"[IMG{}] [DOC{d}]", "[IMG{}] <a href=\"d\" target=\"_blank\">Documento</a>"},
      {"[img{a}] [URL{", "[img{a}] [URL{"},
      // Several markers, the leftmost first; the address ends at the first "}]".
      {"[URL{u}][IMG{i}]x[DOC{d}]}]",
       "<a href=\"u\" target=\"_blank\">u</a><img src=\"i\">x"
       "<a href=\"d\" target=\"_blank\">Documento</a>}]"},
      {"[DOC{a [IMG{b}]", "<a href=\"a [IMG{b\" target=\"_blank\">Documento</a>"},
      {"sin marcas &amp; nada", "sin marcas &amp; nada"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(EnlacesMedios(c.texto), c.html) << c.texto;
  }
}

// Each address as the page writes it (already escaped), and whether a
// browser following it could only reach an http, https or mailto address or
// one relative to the page.
TEST(EnlaceSeguro, AdmitsOnlyWebMailAndRelativeAddressesAsABrowserReadsThem) {
  using namespace std::literals;
  struct Case {
    std::string_view direccion;
    bool seguro;
  } cases[] = {
      {"http://a.mx/", true},
      {"HTTPS://a.mx/x?y=1&amp;z=2", true},
      {"mailto:biblioteca@a.mx", true},
      {" \t http://a.mx/", true},
      {"fotos/p1.jpg", true},
      {"/portadas/p1.jpg", true},
      {"//a.mx/p.jpg", true},
      {"?ficha=15", true},
      {"#notas", true},
      {"p.html?hora=10:30", true},
      {"carpeta/a:b.jpg", true},
      {"", true},
      {"javascript:alert(1)", false},
      {"JaVaScRiPt:alert(1)", false},
      {"  javascript:alert(1)", false},
      {"\x01\x1F javascript:x", false},
      {"java\tscript:x", false},
      {"java\r\nscript:x", false},
      {"java\x00script:x"sv, false},
      {"javascript&#58;x", false},
      {"javascript&#058x", false},
      {"javascript&#x3A;x", false},
      {"javascript&#X3a x", false},
      {"javascript&colon;x", false},
      {"java&Tab;script:x", false},
      {"java&NewLine;script:x", false},
      {"&#106;avascript:x", false},
      {"&#x6A&#x61vascript:x", false},
      {"&#0000106;avascript:x", false},
      {"j&#x0D;avascript:x", false},
      {"data:text/html,<b>", false},
      {"vbscript:msgbox(1)", false},
      {"file:///etc/passwd", false},
      {"http&#58;//a.mx", true},
      {"http&Tab;s://a.mx", true},
      {"ftp://a.mx/", false},
      {":x", false},
      // What some browser might still read as a scheme is refused.
      {"java script:x", false},
      {"java&#0;script:x", false},
      {"&fjlig;avascript:x", false},
      // A named reference the browser does not know stays as written.
      {"javascript&colon x", true},
      // A reference held as text is no scheme in a later reading either.
      {"javascript&amp;colon;x", false},
      {" JaVa\tScRiPt&amp;#58;x", false},
      {"javascript&amp;amp;amp;#58;x", false},
      {"http://a.mx/?a=1&amp;amp;b=2", true},
      // An address still changing after eight readings is refused.
      {"a&amp;amp;amp;amp;amp;amp;amp;amp;amp;b", false},
      {"a&amp;amp;amp;amp;amp;amp;b", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(EnlaceSeguro(c.direccion), c.seguro) << c.direccion;
  }
}

TEST(EnlacesMedios, WritesAnAddressOfAnyOtherSchemeAsText) {
  struct Case {
    const char* texto;
    const char* html;
  } cases[] = {
      {"[URL{javascript:alert(1)}]", "javascript:alert(1)"},
      {"a [DOC{ JaVa\tScRiPt&#58;x}] b", "a  JaVa\tScRiPt&#58;x b"},
      {"[IMG{data:image/svg+xml,&lt;svg onload=x&gt;}]", "data:image/svg+xml,&lt;svg onload=x&gt;"},
      {"[URL{vbscript:\"x\"<y>}]", "vbscript:&quot;x&quot;&lt;y&gt;"},
      {"[URL{javascript:x}] [URL{http://a.mx/}]",
       "javascript:x <a href=\"http://a.mx/\" target=\"_blank\">http://a.mx/</a>"},
      {"[IMG{mailto:a@a.mx}]", "<img src=\"mailto:a@a.mx\">"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(EnlacesMedios(c.texto), c.html) << c.texto;
  }
}

TEST(TablaCampos, ShowsOneLabelledRowPerFieldInRecordOrder) {
  EXPECT_EQ(
      TablaCampos(Ficha("¦008020823s1987 sp¦001x¦245Ciencia & magia <i> / \"E. R.\"."
                        "¦100Rangel, Elena.¦500  ¦650Ciencia \\  \\ Magia -- México"
                        "¦999raro¦<1>x¦856[URL{http://a.mx/?a=1&b=2}] \\ [IMG{p\".jpg}]"
                        "¦300198 páginasÌ¦245tras el finÌ")),
      Latin1("<table class=\"campos\">\r\n"
             "<tr><td class=\"etiqueta\">Título</td><td class=\"contenido\">"
             "Ciencia &amp; magia &lt;i&gt; / &quot;E. R.&quot;.</td></tr>\r\n"
             "<tr><td class=\"etiqueta\">Autor personal</td><td class=\"contenido\">"
             "Rangel, Elena.</td></tr>\r\n"
             "<tr><td class=\"etiqueta\">Tema</td><td class=\"contenido\">"
             "Ciencia<br>Magia -- México</td></tr>\r\n"
             "<tr><td class=\"etiqueta\">Etiqueta 999</td><td class=\"contenido\">"
             "raro</td></tr>\r\n"
             "<tr><td class=\"etiqueta\">Etiqueta &lt;1&gt;</td><td class=\"contenido\">"
             "x</td></tr>\r\n"
             "<tr><td class=\"etiqueta\">Recurso electrónico</td><td class=\"contenido\">"
             "<a href=\"http://a.mx/?a=1&amp;b=2\" target=\"_blank\">http://a.mx/?a=1&amp;b=2</a>"
             "<br><img src=\"p&quot;.jpg\"></td></tr>\r\n"
             "<tr><td class=\"etiqueta\">Descripción física</td><td class=\"contenido\">"
             "198 páginas</td></tr>\r\n"
             "</table>\r\n"));
  EXPECT_EQ(TablaCampos(Ficha("¦008x¦24Ì")), "<table class=\"campos\">\r\n</table>\r\n");
}

TEST(FichaBreve, ShowsTheNameInBoldAndTheTitle) {
  struct Case {
    const char* marc;
    const char* breve;
  } cases[] = {
      {"¦100García Márquez, Gabriel.¦245Cien años de soledad / Gabriel García Márquez.Ì",
       "<b>García Márquez, Gabriel.</b> Cien años de soledad"},
      // 110, 111, then the added entries; 130 and 240 before 245.
      {"¦700Uno \\ Dos¦111Congreso (5o : 1998)¦245Memorias.Ì",
       "<b>Congreso (5o : 1998)</b> Memorias."},
      {"¦245Historia mínima / Daniel Cosío ... [et al.].¦700 \\ Cosío, Daniel \\ "
       "Bernal¦710ColegioÌ",
       "<b>Cosío, Daniel</b> Historia mínima"},
      {"¦100 ¦710Colegio.¦245Anuario.Ì", "<b>Colegio.</b> Anuario."},
      {"¦100Cervantes¦245El ingenioso hidalgo¦240Don Quijote¦130Quijote.Ì",
       "<b>Cervantes</b> Quijote."},
      {"¦240The boy. Español¦245El niño / John Boyne.Ì", "The boy. Español"},
      {"¦100Rulfo, Juan.Ì", "<b>Rulfo, Juan.</b>"},
      {"¦008x¦650TemaÌ", ""},
      // Escaped, the name and the title alike.
      {"¦100O'Brien & \"Hijos\" <ed.>¦245a < b / él.Ì",
       "<b>O'Brien &amp; &quot;Hijos&quot; &lt;ed.&gt;</b> a &lt; b"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(FichaBreve(Ficha(c.marc)), Latin1(c.breve)) << c.marc;
  }
}

}  // namespace
}  // namespace orvex::records
