#include "xslt/TraduceWD.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <libxml/parser.h>

#include "base/CodePage.h"
#include "xslt/MotorLibxslt.h"
#include "tests/support/Fakes.h"

namespace orvex::xslt {
namespace {

namespace fs = std::filesystem;

// The record document of the cases: three copies, repeated tags, CR LF and
// indentation between the elements.
const std::string& Fichas() {
  static const std::string texto = CodePage::Windows1252().ToUtf8(
      testing::ReadFile(fs::path(__FILE__).parent_path() / "wd" / "fichas2.xml"));
  return texto;
}

// Pages come out in Windows-1252.
std::string Utf8(const std::string& pagina) { return CodePage::Windows1252().ToUtf8(pagina); }

const std::string kH = "<xsl:stylesheet xmlns:xsl='http://www.w3.org/TR/WD-xsl'>";
const std::string kF = "</xsl:stylesheet>";

struct Caso {
  const char* que;
  std::string hoja;
  std::string esperado;
  // A text that must be among the translation's notices, when not empty.
  const char* aviso = "";
};

std::string Avisos(const ResultadoXSL& r) {
  std::string todos;
  for (const std::string& a : r.avisos) todos += a + "\n";
  return todos;
}

class HojasBorrador : public ::testing::Test {
 protected:
  ResultadoXSL Aplica(const std::string& hoja, const std::string& xml = Fichas()) {
    return motor_.Transforma(xml, hoja);
  }
  MotorLibxslt motor_;
};

TEST_F(HojasBorrador, ProcessingModelElementsAndDegradation) {
  const std::vector<Caso> casos = {
      {"no template matches the root: no built-in rules, nothing comes out",
       kH + "<xsl:template match='FICHA'><p>never</p></xsl:template>" + kF, ""},
      {"a template without match takes the root",
       kH + "<xsl:template><p>hola</p></xsl:template>" + kF, "<p>hola</p>"},
      {"the last matching template wins over a more specific earlier one",
       kH +
           "<xsl:template match='/'><xsl:apply-templates "
           "select='FICHAS/FICHA/EXISTENCIAS/EJEMPLAR'/></xsl:template>"
           "<xsl:template match='EJEMPLAR'>A</xsl:template><xsl:template match='*'>B</xsl:template>" +
           kF,
       "BBB"},
      {"and a later specific one wins over an earlier generic one",
       kH +
           "<xsl:template match='*'>B</xsl:template><xsl:template match='EJEMPLAR'>A</xsl:template>"
           "<xsl:template match='/'><xsl:apply-templates "
           "select='FICHAS/FICHA/EXISTENCIAS/EJEMPLAR'/></xsl:template>" +
           kF,
       "AAA"},
      {"the usual emulation of built-in rules: generic template and text() template",
       kH +
           "<xsl:template><xsl:apply-templates/></xsl:template>"
           "<xsl:template match='text()'><xsl:value-of/></xsl:template>"
           "<xsl:template match='EXISTENCIAS'/>" +
           kF,
       "Cien años de bibliotecasBibliotecas -- HistoriaLibros y lecturaTexto completo"},
      {"apply-templates without select visits children, not attributes",
       kH +
           "<xsl:template match='/'><xsl:apply-templates "
           "select='FICHAS/FICHA/EXISTENCIAS/EJEMPLAR[0]'/></xsl:template>"
           "<xsl:template match='EJEMPLAR'>[<xsl:apply-templates/>]</xsl:template>"
           "<xsl:template match='@*'>x</xsl:template>" +
           kF,
       "[]"},
      {"for-each without select walks the children",
       kH +
           "<xsl:template match='/'><xsl:for-each select='FICHAS/FICHA/ETIQUETAS'><xsl:for-each>"
           "<xsl:node-name/>;</xsl:for-each></xsl:for-each></xsl:template>" +
           kF,
       "m245;m650;m650;m856;"},
      {"order-by with two keys, descending then ascending",
       kH +
           "<xsl:template match='/'><xsl:for-each select='//EJEMPLAR' order-by='-@Biblio; "
           "+@NoAdq'><xsl:value-of select='@NoAdq'/></xsl:for-each></xsl:template>" +
           kF,
       "A2A1A3"},
      {"order-by on apply-templates",
       kH +
           "<xsl:template match='/'><xsl:apply-templates select='//EJEMPLAR' "
           "order-by='-@NoAdq'/></xsl:template>"
           "<xsl:template match='EJEMPLAR'><xsl:value-of select='@NoAdq'/></xsl:template>" +
           kF,
       "A3A2A1"},
      {"element, attribute, comment, pi and copy",
       kH +
           "<xsl:template match='/'><xsl:for-each select='//m856'><xsl:element name='a'>"
           "<xsl:attribute name='title'><xsl:value-of select='@url'/></xsl:attribute>"
           "<xsl:value-of/></xsl:element><xsl:comment>c</xsl:comment><xsl:pi "
           "name='php'>echo 1;</xsl:pi><xsl:copy/></xsl:for-each></xsl:template>" +
           kF,
       "<a title=\"http://example.org/a b?q=año\">Texto completo</a><!--c--><?php echo "
       "1;?><m856></m856>"},
      {"entity-ref and cdata are written unescaped",
       kH +
           "<xsl:template match='/'><p><xsl:entity-ref name='copy'/> <xsl:cdata>x &lt; "
           "y</xsl:cdata></p></xsl:template>" +
           kF,
       "<p>&copy;<![CDATA[x < y]]></p>"},
      {"braces in literal attributes are text",
       kH + "<xsl:template match='/'><p onclick='if (a) {b()}'>x</p></xsl:template>" + kF,
       "<p onclick=\"if (a) {b()}\">x</p>", "llaves"},
      {"an unknown eval writes nothing and is reported",
       kH +
           "<xsl:template match='/'><p>[<xsl:eval>hoy()</xsl:eval>]</p></xsl:template>"
           "<xsl:script>function hoy(){return 1;}</xsl:script>" +
           kF,
       "<p>[]</p>", "xsl:eval \"hoy()\" no se ejecuta"},
      {"a script block is reported",
       kH + "<xsl:template match='/'>x</xsl:template><xsl:script>var a;</xsl:script>" + kF, "x",
       "xsl:script no se ejecuta"},
      {"a condition written as a script is false",
       kH +
           "<xsl:template match='/'><p><xsl:if expr='true'>si</xsl:if>|<xsl:if "
           "test='FICHAS'>no-expr</xsl:if></p></xsl:template>" +
           kF,
       "<p>|no-expr</p>", "con expr"},
      {"a literal result element as the whole sheet",
       "<html xmlns:xsl='http://www.w3.org/TR/WD-xsl'><body><xsl:value-of "
       "select='FICHAS/FICHA/@Numero'/></body></html>",
       "<html><body>15</body></html>"},
      {"templates inside apply-templates apply there only",
       kH +
           "<xsl:template match='/'><xsl:apply-templates select='//m650'><xsl:template "
           "match='m650'>(<xsl:value-of/>)</xsl:template></xsl:apply-templates></xsl:template>"
           "<xsl:template match='m650'>GLOBAL</xsl:template>" +
           kF,
       "(Bibliotecas -- Historia)(Libros y lectura)", "modo wd-m1"},
      {"the identity idiom copies attributes and children",
       kH +
           "<xsl:template><xsl:copy><xsl:apply-templates select='@*'/><xsl:apply-templates/>"
           "</xsl:copy></xsl:template><xsl:template match='EXISTENCIAS|ETIQUETAS'/>" +
           kF,
       "<FICHAS><FICHA Numero=\"15\"></FICHA></FICHAS>"},
      {"whitespace-only text of the sheet is dropped, other text kept as it is",
       kH + "<xsl:template match='/'><b> <i>x</i> </b><b> y </b></xsl:template>" + kF,
       "<b><i>x</i></b><b> y </b>"},
      {"xml:space='preserve' keeps the sheet's blanks",
       kH + "<xsl:template match='/'><pre xml:space='preserve'> <i>x</i> </pre></xsl:template>" +
           kF,
       "<pre xml:space=\"preserve\"> <i>x</i> </pre>"},
      {"context(-n) in nested for-each reads the enclosing levels' nodes",
       kH +
           "<xsl:template match='FICHA'><xsl:for-each select='EXISTENCIAS'><xsl:for-each "
           "select='EJEMPLAR[0]'><xsl:value-of select='context(-3)/@Numero'/>-<xsl:value-of "
           "select='context(-2)!nodeName()'/>-<xsl:value-of select='context(-1)/@NoAdq'/>"
           "</xsl:for-each></xsl:for-each></xsl:template>"
           "<xsl:template match='/'><xsl:apply-templates select='FICHAS/FICHA'/></xsl:template>" +
           kF,
       "15-EXISTENCIAS-A1"},
      {"eval idioms: childNumber, formatIndex, attributes and text",
       kH +
           "<xsl:template match='/'><xsl:for-each select='//m650'>[<xsl:eval>childNumber(this)"
           "</xsl:eval>|<xsl:eval>formatIndex(childNumber(this), \"i\")</xsl:eval>|<xsl:eval>"
           "this.text;</xsl:eval>]</xsl:for-each><xsl:for-each select='//m856'><xsl:eval>"
           "this.getAttribute('url')</xsl:eval></xsl:for-each></xsl:template>" +
           kF,
       "[1|i|Bibliotecas -- Historia][2|ii|Libros y lectura]http://example.org/a b?q=año"},
      {"a processing instruction named xml cannot be written",
       kH + "<xsl:template match='/'><xsl:pi name='xml'>version='1.0'</xsl:pi>x</xsl:template>" +
           kF,
       "x", "xsl:pi name=\"xml\""},
      {"when, otherwise, and the helper functions in a test",
       kH +
           "<xsl:template match='/'><xsl:for-each select='//EJEMPLAR'><xsl:choose><xsl:when "
           "test=\"@Biblio $lt$ 'M'\">c</xsl:when><xsl:otherwise>n</xsl:otherwise>"
           "</xsl:choose></xsl:for-each></xsl:template>" +
           kF,
       "cnc"},
      {"or-equal comparisons hold at the bound, and the i forms ignore case",
       kH +
           "<xsl:template match='/'><xsl:for-each select='//EJEMPLAR'>[<xsl:if "
           "test='@Vol $le$ 1'>L</xsl:if><xsl:if test='@Vol $ge$ 2'>G</xsl:if><xsl:if "
           "test=\"@Biblio $ile$ 'CENTRAL'\">l</xsl:if><xsl:if "
           "test=\"@Acceso $ige$ 's'\">g</xsl:if>]</xsl:for-each></xsl:template>" +
           kF,
       "[Glg][Lg][Ll]"},
      {"an element the dialect does not have is dropped and reported",
       kH + "<xsl:template match='/'>a<xsl:number/>b</xsl:template>" + kF, "ab",
       "xsl:number no existe"},
  };
  for (const Caso& c : casos) {
    SCOPED_TRACE(c.que);
    const ResultadoXSL r = Aplica(c.hoja);
    EXPECT_EQ(r.estado, ResultadoXSL::Estado::Correcto) << r.descripcion;
    EXPECT_EQ(Utf8(r.texto), c.esperado);
    if (*c.aviso != '\0') {
      EXPECT_NE(Avisos(r).find(c.aviso), std::string::npos) << Avisos(r);
    }
  }
}

// A notice names the sheet's line and comes with every transformation by
// the sheet, from the one compilation: a process that serves many requests
// gives each of them the notices (the request shows them once).
TEST_F(HojasBorrador, NoticesComeWithEveryTransformationAndNameTheLine) {
  const std::string hoja = kH + "\n<xsl:template match='/'>\n<xsl:eval>x()</xsl:eval>\n" +
                           "</xsl:template>" + kF;
  for (int vez = 0; vez < 2; ++vez) {
    const ResultadoXSL r = Aplica(hoja);
    ASSERT_EQ(r.avisos.size(), 1u) << vez;
    EXPECT_EQ(r.avisos[0], "línea 3: xsl:eval \"x()\" no se ejecuta: no escribe nada");
  }
  EXPECT_EQ(motor_.HojasCompiladas(), 1);
}

// Edited sheets are new texts: the compilations kept stay bounded, and a
// sheet dropped with the others compiles again and gives its notices again.
TEST_F(HojasBorrador, CompiledSheetsStayBounded) {
  const auto hoja = [](int n) {
    return kH + "\n<xsl:template match='/'>\n<xsl:eval>x" + std::to_string(n) +
           "()</xsl:eval>\n</xsl:template>" + kF;
  };
  for (int n = 0; n < 3 * static_cast<int>(xslt::MotorLibxslt::kHojasRetenidas); ++n) {
    const ResultadoXSL r = Aplica(hoja(n));
    ASSERT_EQ(r.estado, ResultadoXSL::Estado::Correcto) << n;
    ASSERT_EQ(r.avisos.size(), 1u) << n;
    ASSERT_LE(motor_.HojasCompiladas(), static_cast<int>(xslt::MotorLibxslt::kHojasRetenidas));
  }
  EXPECT_EQ(Aplica(hoja(0)).avisos.size(), 1u);
}

TEST_F(HojasBorrador, SheetsThatCannotRunSayWhy) {
  struct Fallo {
    const char* que;
    std::string hoja;
    ResultadoXSL::Estado estado;
    const char* en_descripcion;
  };
  const std::vector<Fallo> fallos = {
      {"a pattern that does not parse",
       kH + "\n<xsl:template match='/'><xsl:value-of select='FICHA[[@x]'/></xsl:template>" + kF,
       ResultadoXSL::Estado::FalloTransformacion, "línea 2: "},
      {"a match pattern with no XSLT form",
       kH + "<xsl:template match='ancestor(FICHA)'>x</xsl:template>" + kF,
       ResultadoXSL::Estado::FalloTransformacion, "línea 1: "},
      {"xsl:attribute without a name", kH + "<xsl:template><xsl:attribute/></xsl:template>" + kF,
       ResultadoXSL::Estado::FalloTransformacion, "sin el atributo name"},
      {"a root instruction that is not a sheet",
       "<xsl:template xmlns:xsl='http://www.w3.org/TR/WD-xsl'/>",
       ResultadoXSL::Estado::FalloTransformacion, "no es una hoja de estilo"},
      {"a document in no XSL namespace", "<html><body/></html>",
       ResultadoXSL::Estado::HojaInvalida, "no es una hoja de estilo XSL"},
  };
  for (const Fallo& f : fallos) {
    SCOPED_TRACE(f.que);
    const ResultadoXSL r = Aplica(f.hoja);
    EXPECT_EQ(r.estado, f.estado);
    EXPECT_NE(r.descripcion.find(f.en_descripcion), std::string::npos) << r.descripcion;
  }
}

// XSLT 1.0 sheets are not translated: what they say is what runs, with
// msxsl:node-set() at hand.
TEST_F(HojasBorrador, XsltSheetsPassUnchanged) {
  const std::string hoja =
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform' "
      "xmlns:msxsl='urn:schemas-microsoft-com:xslt'>"
      "<xsl:variable name='v'><a>1</a><a>2</a></xsl:variable>"
      "<xsl:template match='/'>{<xsl:value-of select='count(msxsl:node-set($v)/a)'/>}"
      "<xsl:apply-templates select='//m245'/></xsl:template></xsl:stylesheet>";
  const ResultadoXSL r = Aplica(hoja);
  EXPECT_EQ(Utf8(r.texto), "{2}Cien años de bibliotecas");  // built-in rules apply
  EXPECT_TRUE(r.avisos.empty());
  EXPECT_EQ(RevisaHoja(hoja).dialecto, RevisionHoja::Dialecto::XSLT);
}

TEST(RevisaHoja, ReportsDialectTranslationAndFailures) {
  const RevisionHoja buena = RevisaHoja(
      kH + "<xsl:template match='FICHA[@Numero $gt$ 3]'><xsl:eval>f()</xsl:eval></xsl:template>" +
      kF);
  EXPECT_EQ(buena.dialecto, RevisionHoja::Dialecto::Borrador);
  EXPECT_TRUE(buena.compila) << buena.error;
  EXPECT_NE(buena.xslt.find("match=\"FICHA[@Numero &gt; 3]\" priority=\"1\""), std::string::npos)
      << buena.xslt;
  EXPECT_EQ(buena.avisos.size(), 1u);

  const RevisionHoja mal = RevisaHoja("<xsl:stylesheet");
  EXPECT_EQ(mal.dialecto, RevisionHoja::Dialecto::Ninguno);
  EXPECT_NE(mal.error.find("no es XML bien formado"), std::string::npos) << mal.error;

  // Translated, but libxslt refuses the result: a prefix nothing declares.
  const RevisionHoja no_compila =
      RevisaHoja(kH + "<xsl:template match='zz:a'>x</xsl:template>" + kF);
  EXPECT_EQ(no_compila.dialecto, RevisionHoja::Dialecto::Borrador);
  EXPECT_FALSE(no_compila.compila);
  EXPECT_FALSE(no_compila.error.empty());
}

// The translated document: the processing model's scaffolding, the
// priorities in sheet order, and the helper namespace only when used.
TEST(TraduceHojaBorrador, WritesTheScaffoldingAndPriorities) {
  auto traduce = [](const std::string& hoja) {
    DocumentoXML doc(xmlReadMemory(hoja.data(), static_cast<int>(hoja.size()), nullptr, "UTF-8",
                                   XML_PARSE_NONET));
    HojaTraducida t = TraduceHojaBorrador(doc.get());
    return t.xslt ? TextoDeHoja(t.xslt.get()) : "ERROR " + t.error;
  };
  const std::string simple = traduce(kH + "<xsl:template match='a'/><xsl:template/>" + kF);
  EXPECT_EQ(simple,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<xsl:stylesheet xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\" version=\"1.0\">\n"
            "  <xsl:strip-space elements=\"*\"/>\n"
            "  <xsl:template match=\"/|@*|node()\" priority=\"-100\"/>\n"
            "  <xsl:template match=\"a\" priority=\"1\"/>\n"
            "  <xsl:template match=\"/|@*|node()\" priority=\"2\"/>\n"
            "</xsl:stylesheet>\n");
  const std::string con_funciones =
      traduce(kH + "<xsl:template><xsl:if test=\"@a $lt$ 'b'\">x</xsl:if></xsl:template>" + kF);
  EXPECT_NE(con_funciones.find("xmlns:wd=\"urn:x-wdxsl:runtime\""), std::string::npos);
  EXPECT_NE(con_funciones.find("exclude-result-prefixes=\"wd\""), std::string::npos);
}

}  // namespace
}  // namespace orvex::xslt
