#include "transform/TransformaXML.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <libxslt/xsltutils.h>

#include "base/CodePage.h"
#include "base/Plazo.h"
#include "config/Instalacion.h"
#include "tests/support/Fakes.h"
#include "transform/CargaModuloXSL.h"
#include "tests/transform/HojasEquivalentes.h"
#include "xslt/MotorLibxslt.h"

namespace orvex::transform {
namespace {

namespace fs = std::filesystem;

const fs::path kPruebas = fs::path(__FILE__).parent_path().parent_path();
// The record documents and their pages that the XML tests keep.
const fs::path kGolden = kPruebas / "xml" / "golden";

// An XSLT 1.0 sheet whose template for the document node holds `cuerpo`.
std::string Hoja(std::string_view cuerpo, std::string_view extra = "") {
  return "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>" +
         std::string(extra) + "<xsl:template match='/'>" + std::string(cuerpo) +
         "</xsl:template></xsl:stylesheet>";
}

const std::string kTarjeta = Latin1(
    "<?xml version='1.0'?>\r\n"
    "<FICHA Numero='15'><SECCIONES><Sclas>863 G216c</Sclas><Sa>García, Ana.</Sa>"
    "<S1>Cien años de bibliotecas / Ana García. -- 2a ed.</S1><S2>México : UNAM, 2001.</S2>"
    "<Sisbn>ISBN 968-36-0000-0</Sisbn><Snotas>Incluye índice.</Snotas>"
    "<Snotas>Bibliografía: p. 201-210.</Snotas><Sr1>1. Bibliotecas -- Historia.</Sr1>"
    "<Sr2>I. t.</Sr2></SECCIONES><EXISTENCIAS>"
    "<EJEMPLAR NoAdq='A1' Biblio='Central' Vol='2' Ejemplar='3' Tomo=''/>"
    "<EJEMPLAR NoAdq='A2' Biblio='Norte' Vol='1' Ejemplar='' Tomo='II'/>"
    "</EXISTENCIAS></FICHA>");

class Transformacion : public ::testing::Test {
 protected:
  // What the page received, followed by the returned text after "=>".
  std::string Pagina(const std::string& xml, const std::string& xsl) {
    salida_.contents.clear();
    salida_.position = 0;
    const std::string texto = transformador_.TransformaXML(xml, xsl);
    return salida_.contents + "=>" + texto;
  }

  xslt::MotorLibxslt motor_;
  testing::MemoryOutput salida_;
  TransformadorXSL transformador_{motor_, salida_};
};

TEST_F(Transformacion, BuiltInRecordSheetShowsTheCard) {
  const std::string pagina = Pagina(kTarjeta, config::HojaFichaIntegrada());
  const fs::path archivo = kGolden / "tarjeta15.html";
  if (std::getenv("UPDATE_GOLDEN") != nullptr) std::ofstream(archivo, std::ios::binary) << pagina;
  EXPECT_EQ(pagina, testing::ReadFile(archivo));
}

// The built-in sheets on the record documents of the fixture records. The
// record sheet reads FICHA/... from the document node, which the FICHAS
// documents do not have: its fields stay empty, as they always have.
// Record 3's document is not well-formed and gives the XML error message.
TEST_F(Transformacion, BuiltInSheetsOnFixtureRecordDocuments) {
  const std::string aviso = config::HojaAviso("XSL_Tabla_Libros");
  for (int numero : {1, 3, 20, 41, 45}) {
    const std::string doc = testing::ReadFile(kGolden / ("ficha" + std::to_string(numero) + ".xml"));
    ASSERT_FALSE(doc.empty()) << numero;
    const std::string pagina =
        Pagina(doc, config::HojaFichaIntegrada()) + "\n----\n" + Pagina(doc, aviso);
    const fs::path archivo = kGolden / ("ficha" + std::to_string(numero) + ".html");
    if (std::getenv("UPDATE_GOLDEN") != nullptr) {
      std::ofstream(archivo, std::ios::binary) << pagina;
    }
    EXPECT_EQ(pagina, testing::ReadFile(archivo)) << archivo;
  }
}

// The working-draft originals stay the reference: turned into XSLT 1.0 by
// the few changes these sheets need (namespace, version, a match for the
// template without one), they must give what the shipped equivalents give.
std::string ReferenciaXSLT(std::string hoja) {
  const auto cambia = [&hoja](std::string_view de, std::string_view a) {
    const size_t i = hoja.find(de);
    if (i != std::string::npos) hoja.replace(i, de.size(), a);
  };
  cambia("http://www.w3.org/TR/WD-xsl",
         "http://www.w3.org/1999/XSL/Transform' version='1.0");
  cambia("http://www.w3.org/TR/WD-xsl\"", "http://www.w3.org/1999/XSL/Transform\"");
  cambia("<xsl:template>", "<xsl:template match='/'>");
  return hoja;
}

// The built-in sheets run through the translator; the hand-written XSLT
// equivalents, and the originals with only their namespace changed, are the
// reference.
TEST_F(Transformacion, BuiltInSheetsTranslateToWhatTheirHandWrittenEquivalentsGive) {
  const std::string ficha = config::HojaFichaIntegrada();
  std::string ficha_ref = ficha;
  ficha_ref.replace(ficha_ref.find("http://www.w3.org/TR/WD-xsl\""),
                    std::string_view("http://www.w3.org/TR/WD-xsl\"").size(),
                    "http://www.w3.org/1999/XSL/Transform\" version=\"1.0\"");
  const std::string hojas[][2] = {
      {ficha, ficha_ref},
      {config::HojaAviso("XSL_Tabla_Libros"),
       ReferenciaXSLT(config::HojaAviso("XSL_Tabla_Libros"))},
      {config::HojaAviso("XSL_Ficha_Publicaciones"),
       ReferenciaXSLT(config::HojaAviso("XSL_Ficha_Publicaciones"))},
      {config::HojaAviso("XSL_Tabla_Publicaciones"),
       ReferenciaXSLT(config::HojaAviso("XSL_Tabla_Publicaciones"))},
  };
  const auto utf8 = [](const std::string& t) { return CodePage::Windows1252().ToUtf8(t); };
  const std::string documentos[] = {kTarjeta, testing::ReadFile(kGolden / "ficha1.xml"), "<x/>",
                                    "<FICHA Numero='7'/>", testing::ReadFile(kGolden / "ficha20.xml")};
  for (const auto& par : hojas) {
    const std::string equivalente = EquivalenteXSLT(par[0]).value();
    for (const std::string& doc : documentos) {
      const ResultadoXSL traducida = motor_.Transforma(utf8(doc), utf8(par[0]));
      ASSERT_EQ(traducida.estado, ResultadoXSL::Estado::Correcto) << traducida.descripcion;
      EXPECT_TRUE(traducida.avisos.empty());
      EXPECT_EQ(traducida.texto, motor_.Transforma(utf8(doc), equivalente).texto) << doc;
      EXPECT_EQ(traducida.texto, motor_.Transforma(utf8(doc), utf8(par[1])).texto) << doc;
    }
  }
}

// Any working-draft sheet runs, not only the built-in texts; one that is not
// well-formed does not load.
TEST_F(Transformacion, AnyWorkingDraftSheetRuns) {
  std::string cambiada = config::HojaFichaIntegrada();
  cambiada.replace(cambiada.find("Biblioteca"), 10, "Acervo");
  const std::string pagina = Pagina(kTarjeta, cambiada);
  EXPECT_NE(pagina.find("<th>Acervo</th>"), std::string::npos) << pagina;
  EXPECT_EQ(pagina.find("<H4>"), std::string::npos) << pagina;
  // A name with "&" or "<" never made a sheet that loads.
  EXPECT_EQ(Pagina(kTarjeta, config::HojaAviso("a & b")),
            "<center><p><H4>Error al cargar la hoja de estilo XSL</H4><p/></center>\r\n=>");
  EXPECT_EQ(Pagina("<x/>", config::HojaAviso(Latin1("Hoja de préstamos"))),
            Latin1("=><html><body><center><font face=\"arial\" size=\"5\"><font color=\"red\">"
                   "<b> No se encontró la referencia Hoja de préstamos </b></font></font>"
                   "</center></body></html>"));
}

// What the translation leaves out reaches the request's trace, once per
// request however many records and transformers use the sheet; the next
// request, served by the same processor, traces it again.
TEST_F(Transformacion, TranslationNoticesGoToTheTraceOncePerRequest) {
  const std::string hoja =
      "<xsl:stylesheet xmlns:xsl='http://www.w3.org/TR/WD-xsl'><xsl:template>"
      "<p><xsl:eval>a < b</xsl:eval></p></xsl:template></xsl:stylesheet>";
  const std::string escapada = std::string(hoja).replace(hoja.find("a < b"), 5, "a &lt; b");
  const std::string aviso = Latin1(
      "Hoja XSL: línea 1: xsl:eval &quot;a &lt; b&quot; no se ejecuta: no escribe nada<br/>");
  for (int solicitud = 0; solicitud < 2; ++solicitud) {
    std::string traza;
    std::set<std::string> avisadas;
    for (int ficha = 0; ficha < 3; ++ficha) {
      TransformadorXSL transformador(motor_, salida_, &traza, &avisadas);
      EXPECT_EQ(transformador.TransformaXML(kTarjeta, escapada), "<p></p>");
      EXPECT_EQ(transformador.TransformaXML(kTarjeta, escapada), "<p></p>");
    }
    EXPECT_EQ(traza, aviso) << solicitud;
  }
  // A transformer on its own traces it once too.
  std::string traza;
  TransformadorXSL solo(motor_, salida_, &traza);
  solo.TransformaXML(kTarjeta, escapada);
  solo.TransformaXML(kTarjeta, escapada);
  EXPECT_EQ(traza, aviso);
}

TEST_F(Transformacion, DataDocumentThatDoesNotLoadIsReportedAndKeptInAComment) {
  const std::string doc = Latin1("<?xml version='1.0'?>\r\n<FICHAS>\r\n <m245>Perros & gatos</m245>\r\n</FICHAS>");
  EXPECT_EQ(Pagina(doc, Hoja("x")),
            Latin1("<center><p><H4>Error al cargar el documento XML: Se esperaba un nombre "
                   "después de \"&\" (un \"&\" suelto debe escribirse &amp;)\r\n :  "
                   "<m245>Perros & gatos</m245></H4><p/></center>\r\n"
                   "<!--\r\n\r\n\r\n") +
                doc + "\r\n\r\n\r\n-->\r\n=>");

  struct Caso {
    const char* xml;
    const char* razon;
  } casos[] = {
      {"", "El documento está vacío\r\n : "},
      {"<a><b></a>", "La etiqueta final no corresponde a la etiqueta inicial\r\n : <a><b></a>"},
      {"<a/><b/>", "Hay contenido después del elemento raíz\r\n : <a/><b/>"},
      {"<a x='1<2'/>", "Un valor de atributo contiene \"<\"\r\n : <a x='1<2'/>"},
      {"<a>&nada;</a>", "Referencia a una entidad no declarada\r\n : <a>&nada;</a>"},
      {"<a>\r\n<b>\r\n", "Falta la etiqueta final de un elemento\r\n : "},
      // A declared document type is followed, or the document is rejected.
      {"<!DOCTYPE a [<!ELEMENT a EMPTY>]>\n<a>texto</a>",
       "El documento no sigue su tipo de documento: Element a was declared EMPTY this one "
       "has content\r\n : <a>texto</a>"},
      // No external DTD is ever read.
      {"<!DOCTYPE a SYSTEM 'file:///etc/hostname'>\n<a/>", nullptr},
  };
  for (const Caso& c : casos) {
    const std::string pagina = Pagina(c.xml, Hoja("x"));
    const std::string inicio = "<center><p><H4>Error al cargar el documento XML: ";
    EXPECT_TRUE(pagina.starts_with(inicio)) << c.xml << "\n" << pagina;
    if (c.razon != nullptr) {
      EXPECT_EQ(pagina.substr(inicio.size(), pagina.find("</H4>") - inicio.size()),
                Latin1(c.razon))
          << c.xml;
    }
    EXPECT_TRUE(pagina.ends_with("\r\n\r\n\r\n-->\r\n=>")) << c.xml;
  }
  // A document that follows its own document type loads.
  EXPECT_EQ(Pagina("<!DOCTYPE a [<!ELEMENT a (#PCDATA)>]><a>texto</a>",
                   Hoja("<xsl:value-of select='a'/>")),
            "=>texto");
}

TEST_F(Transformacion, SheetFailuresGiveTheirMessages) {
  const std::string no_carga =
      "<center><p><H4>Error al cargar la hoja de estilo XSL</H4><p/></center>\r\n=>";
  const std::string borrador = "<xsl:stylesheet xmlns:xsl='http://www.w3.org/TR/WD-xsl'>"
                               "<xsl:template>X</xsl:template></xsl:stylesheet>";
  for (const std::string& hoja :
       {std::string(), std::string("<xsl:stylesheet"), std::string("<html>sin hoja</html>")}) {
    EXPECT_EQ(Pagina("<a/>", hoja), no_carga) << hoja;
  }
  const std::string fallo = "<center><p><H4>Error executing the Transform: ";
  const std::string cola = "\r\n line: 0 col: 0 text: </H4><p/></center>\r\n=>";
  for (const std::string& hoja :
       {Hoja("<xsl:value-of select='a[[1]'/>"), Hoja("<xsl:call-template name='nada'/>"),
        Hoja("<xsl:message terminate='yes'>alto</xsl:message>"),
        Hoja("<xsl:value-of select='no-such-function(1)'/>"),
        // Working-draft sheets: a pattern that does not parse, one that
        // translates but does not compile.
        std::string(borrador).replace(borrador.find("<xsl:template>"), 14,
                                      "<xsl:template match='a[[1]'>"),
        std::string(borrador).replace(borrador.find("<xsl:template>"), 14,
                                      "<xsl:template match='zz:a'>")}) {
    const std::string pagina = Pagina("<a/>", hoja);
    EXPECT_TRUE(pagina.starts_with(fallo)) << hoja << "\n" << pagina;
    EXPECT_TRUE(pagina.ends_with(cola)) << pagina;
    EXPECT_GT(pagina.size(), fallo.size() + cola.size()) << "no description: " << pagina;
  }
  EXPECT_EQ(Pagina("<a/>", borrador), "=>X");
}

TEST_F(Transformacion, SheetsReadNoFilesAndNoNetwork) {
  for (const std::string& hoja :
       {Hoja("<xsl:copy-of select=\"document('file:///etc/passwd')\"/>"),
        Hoja("x", "<xsl:include href='file:///etc/passwd'/>"),
        Hoja("x", "<xsl:import href='/etc/passwd'/>")}) {
    const std::string pagina = Pagina("<a/>", hoja);
    EXPECT_EQ(pagina.find("root:"), std::string::npos) << pagina;
  }
}

TEST_F(Transformacion, ResultIsWrittenWithHtmlRulesInWindows1252) {
  struct Caso {
    std::string cuerpo;
    std::string esperado;
  } casos[] = {
      // Links keep their accented letters and blanks.
      {Latin1("<a href='buscar?t=año nuevo&amp;x=1'>Año</a>"),
       Latin1("<a href=\"buscar?t=año nuevo&amp;x=1\">Año</a>")},
      {"<img src='a b.png'/><br/><div/><p></p><hr/>",
       "<img src=\"a b.png\"><br><div></div><p></p><hr>"},
      {"<td class=\"margen1\" title='di \"no\"'>1 &lt; 2 &amp; 3 &gt; 2</td>",
       "<td class=\"margen1\" title=\"di &quot;no&quot;\">1 &lt; 2 &amp; 3 &gt; 2</td>"},
      {"<style>td > b { color: red }</style><script>if (a &lt; b &amp;&amp; c) x();</script>",
       "<style>td > b { color: red }</style><script>if (a < b && c) x();</script>"},
      {"<xsl:text disable-output-escaping='yes'>&lt;b&gt;</xsl:text>", "<b>"},
      // The euro sign has a byte in Windows-1252; other characters become references.
      {"<p>&#8364; &#8220;&#8221; &#945; &#8734;</p>",
       "<p>\x80 \x93\x94 &#945; &#8734;</p>"},
      {"<xsl:comment> nota </xsl:comment><xsl:processing-instruction name='pi'>x</xsl:processing-instruction>",
       "<!-- nota --><?pi x?>"},
      {"<svg:g xmlns:svg='urn:svg'><svg:br/></svg:g>",
       "<svg:g xmlns:svg=\"urn:svg\"><svg:br></svg:br></svg:g>"},
  };
  for (const Caso& c : casos) {
    EXPECT_EQ(Pagina("<a/>", Hoja(c.cuerpo)), "=>" + c.esperado) << c.cuerpo;
  }
  EXPECT_EQ(Pagina("<a>uno <b>dos</b> &amp; tres</a>",
                   Hoja("<xsl:value-of select='a'/><xsl:copy-of select='a/b'/>",
                        "<xsl:output method='text'/>")),
            "=>uno dos & tresdos");
  EXPECT_EQ(Pagina("<a/>", Hoja("<html><body>x</body></html>",
                                "<xsl:output method='html' doctype-public='-//W3C//DTD HTML "
                                "4.01//EN'/>")),
            "=><!DOCTYPE html PUBLIC \"-//W3C//DTD HTML 4.01//EN\"><html><body>x</body></html>");
}

TEST_F(Transformacion, TextsAreWindows1252UnlessMarkedAsUtf8) {
  // Declarations are not believed: the gateway's texts are Windows-1252.
  EXPECT_EQ(Pagina(Latin1("<?xml version='1.0' encoding='UTF-8'?><a>Año ") + "\x80</a>",
                   Hoja("<xsl:value-of select='a'/>")),
            Latin1("=>Año ") + "\x80");
  const std::string hoja_utf8 =
      "\xEF\xBB\xBF" + Hoja("<p>A\xC3\xB1o</p>");
  EXPECT_EQ(Pagina("<a/>", hoja_utf8), Latin1("=><p>Año</p>"));
}

TEST_F(Transformacion, EachSheetIsCompiledOnce) {
  const std::string buena = Hoja("<xsl:value-of select='a'/>");
  const std::string mala = Hoja("<xsl:value-of select='a[['/>");
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(Pagina("<a>" + std::to_string(i) + "</a>", buena), "=>" + std::to_string(i));
    Pagina("<a/>", mala);
    Pagina("<a/>", config::HojaFichaIntegrada());
  }
  EXPECT_EQ(motor_.HojasCompiladas(), 3);
}

TEST_F(Transformacion, MicrosoftNodeSetIsAvailable) {
  const std::string hoja =
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform' "
      "xmlns:msxsl='urn:schemas-microsoft-com:xslt'><xsl:template match='/'>"
      "<xsl:variable name='v'><b>1</b><b>2</b></xsl:variable>"
      "<xsl:value-of select='count(msxsl:node-set($v)/b)'/></xsl:template></xsl:stylesheet>";
  EXPECT_EQ(Pagina("<a/>", hoja), "=>2");
}

// A deadline for the tests: it passes at the `miradas`-th look (never when
// negative), and reports `restante_ms` as the time left.
class PlazoDePrueba : public Plazo {
 public:
  PlazoDePrueba(int miradas, std::int64_t restante_ms)
      : miradas_(miradas), restante_ms_(restante_ms) {}
  bool Vencido() noexcept override {
    ++vistas;
    return miradas_ >= 0 && vistas >= miradas_;
  }
  std::int64_t RestanteMs() noexcept override { return restante_ms_; }

  int vistas = 0;  // how many times it was looked at

 private:
  int miradas_;
  std::int64_t restante_ms_;
};

constexpr int kNunca = -1;
constexpr std::int64_t kUnaHora = 3600 * 1000;

// Two calls of itself per level, as deep as the document's <n> says: 2^n
// leaves, each writing "x".
const std::string kExponencial = Hoja(
    "<xsl:call-template name='r'><xsl:with-param name='n' select='number(n)'/>"
    "</xsl:call-template>",
    "<xsl:template name='r'><xsl:param name='n'/><xsl:choose><xsl:when test='$n &gt; 0'>"
    "<xsl:call-template name='r'><xsl:with-param name='n' select='$n - 1'/></xsl:call-template>"
    "<xsl:call-template name='r'><xsl:with-param name='n' select='$n - 1'/></xsl:call-template>"
    "</xsl:when><xsl:otherwise>x</xsl:otherwise></xsl:choose></xsl:template>");

// `niveles` levels of templates, each calling the next ten times:
// 10^niveles calls and not one XPath expression.
std::string SinXPath(int niveles) {
  std::string plantillas;
  for (int nivel = 0; nivel < niveles; ++nivel) {
    plantillas += "<xsl:template name='t" + std::to_string(nivel) + "'>";
    for (int i = 0; i < 10; ++i) {
      plantillas += "<xsl:call-template name='t" + std::to_string(nivel + 1) + "'/>";
    }
    plantillas += "</xsl:template>";
  }
  return Hoja("<xsl:call-template name='t0'/>",
              plantillas + "<xsl:template name='t" + std::to_string(niveles) + "'/>");
}

std::string Bes(int cuantas) {
  std::string doc = "<a>";
  for (int i = 0; i < cuantas; ++i) doc += "<b/>";
  return doc + "</a>";
}

// 100^4 node tests in one expression.
const std::string kCuentaCuadruple =
    Hoja("<xsl:value-of select='count(//b[count(//b[count(//b[count(//b) &gt; 1]) &gt; 1]) "
         "&gt; 1])'/>");

// Sheets that take millions of steps stop at the look that finds the
// deadline passed, whether they spend their time in instructions or inside
// one XPath expression, and the page gets the watchdog's (TiempoAgotado),
// nothing else.
TEST_F(Transformacion, ADeadlineStopsRunawaySheets) {
  struct Caso {
    const char* que;
    std::string xsl;
    std::string xml;
    int miradas;
    std::int64_t restante_ms;
  } casos[] = {
      {"exponential recursion", kExponencial, "<n>20</n>", 1000, kUnaHora},
      {"calls without XPath", SinXPath(6), "<a/>", 1000, kUnaHora},
      {"apply-templates doubling",
       Hoja("<xsl:apply-templates select='*' mode='m'><xsl:with-param name='n' select='20'/>"
            "</xsl:apply-templates>",
            "<xsl:template match='*' mode='m'><xsl:param name='n'/><xsl:if test='$n &gt; 0'>"
            "<xsl:apply-templates select='.' mode='m'><xsl:with-param name='n' select='$n - 1'/>"
            "</xsl:apply-templates><xsl:apply-templates select='.' mode='m'>"
            "<xsl:with-param name='n' select='$n - 1'/></xsl:apply-templates></xsl:if>"
            "</xsl:template>"),
       "<a/>", 1000, kUnaHora},
      {"nested loops",
       Hoja("<xsl:for-each select='//b'><xsl:for-each select='//b'><xsl:for-each select='//b'>"
            "<i/></xsl:for-each></xsl:for-each></xsl:for-each>"),
       Bes(100), 1000, kUnaHora},
      // With 1 ms left: 20 000 operations.
      {"one XPath expression", kCuentaCuadruple, Bes(100), kNunca, 1},
      // A transformation asked for once the time is up does not start.
      {"deadline already passed", Hoja("x"), "<a/>", 1, kUnaHora},
  };
  for (const Caso& c : casos) {
    PlazoDePrueba plazo(c.miradas, c.restante_ms);
    motor_.Vigila(&plazo);
    const ResultadoXSL r = motor_.Transforma(c.xml, c.xsl);
    EXPECT_EQ(r.estado, ResultadoXSL::Estado::PlazoVencido) << c.que << ": " << r.descripcion;
    EXPECT_EQ(r.texto, "") << c.que;
    // The transformation stopped at the look that found the deadline passed:
    // unwinding its loops may take a few more, not the rest of its work.
    if (c.miradas != kNunca) {
      EXPECT_GE(plazo.vistas, c.miradas) << c.que;
      EXPECT_LT(plazo.vistas, c.miradas + 50) << c.que;
    }

    PlazoDePrueba otro(c.miradas, c.restante_ms);
    motor_.Vigila(&otro);
    salida_.contents.clear();
    EXPECT_THROW(transformador_.TransformaXML(c.xml, c.xsl), TiempoAgotado) << c.que;
    EXPECT_EQ(salida_.contents, "") << c.que;
  }
}

// Without a deadline nothing is stopped: the runaway sheet on a small input,
// and an expression of 90 000 operations, run to their end as they always
// have.
TEST_F(Transformacion, WithoutADeadlineSheetsRunToTheirEnd) {
  EXPECT_EQ(Pagina("<n>3</n>", kExponencial), "=>xxxxxxxx");
  EXPECT_EQ(Pagina("<n>0</n>", kExponencial), "=>x");
  EXPECT_EQ(Pagina(Bes(300), Hoja("<xsl:value-of select='count(//b[count(//b) &gt; 1])'/>")),
            "=>300");
}

// The XPath budget follows the time left: an expression of some 90 000
// operations does not fit in 1 ms (20 000 operations), in an instruction or
// in a match pattern, but does in 10 ms; small expressions fit however many
// there are, as the budget starts again at each look at the deadline. Stops
// that are not the deadline's remain failures of the sheet.
TEST_F(Transformacion, XPathBudgetFollowsTheTimeLeft) {
  const std::string cuenta = Hoja("<xsl:value-of select='count(//b[count(//b) &gt; 1])'/>");
  // Only the first <b> costs the 90 000 operations; the rest match cheaply.
  const std::string primera_cara =
      Hoja("<xsl:apply-templates select='//b'/>",
           "<xsl:template match='b[not(preceding-sibling::b) and count(//b[count(//b) &gt; 1]) "
           "&gt; 1]'><xsl:value-of select='name()'/></xsl:template>"
           "<xsl:template match='b'><xsl:value-of select='\"-\"'/></xsl:template>");
  const std::string pequenas =
      Hoja("<xsl:for-each select='//b'><xsl:if test='count(//b) = 300'>.</xsl:if>"
           "</xsl:for-each>");
  struct Caso {
    std::string xsl;
    std::int64_t restante_ms;
    ResultadoXSL::Estado estado;
    std::string texto;
  } casos[] = {
      {cuenta, 1, ResultadoXSL::Estado::PlazoVencido, ""},
      {cuenta, 0, ResultadoXSL::Estado::PlazoVencido, ""},
      {cuenta, 10, ResultadoXSL::Estado::Correcto, "300"},
      {cuenta, INT64_MAX, ResultadoXSL::Estado::Correcto, "300"},
      {primera_cara, 1, ResultadoXSL::Estado::PlazoVencido, ""},
      {primera_cara, kUnaHora, ResultadoXSL::Estado::Correcto, "b" + std::string(299, '-')},
      {pequenas, 1, ResultadoXSL::Estado::Correcto, std::string(300, '.')},
      {Hoja("<xsl:message terminate='yes'>alto</xsl:message>"), kUnaHora,
       ResultadoXSL::Estado::FalloTransformacion, ""},
      {Hoja("<xsl:value-of select='no-such-function(1)'/>"), kUnaHora,
       ResultadoXSL::Estado::FalloTransformacion, ""},
  };
  for (const Caso& c : casos) {
    PlazoDePrueba plazo(kNunca, c.restante_ms);
    motor_.Vigila(&plazo);
    const ResultadoXSL r = motor_.Transforma(Bes(300), c.xsl);
    EXPECT_EQ(r.estado, c.estado) << c.restante_ms << " " << c.xsl;
    EXPECT_EQ(r.texto, c.texto) << c.restante_ms;
  }
}

// Transformations that end give the same bytes under a deadline as without
// one, while the deadline is looked at all along.
TEST_F(Transformacion, SheetsThatEndGiveTheSameBytesUnderADeadline) {
  const std::string ficha_web =
      CodePage::Windows1252().ToUtf8(testing::ReadFile(kPruebas / "xslt" / "wd" / "fichaWeb.xsl"));
  const std::string fichas =
      CodePage::Windows1252().ToUtf8(testing::ReadFile(kPruebas / "xslt" / "wd" / "fichas2.xml"));
  const std::string utf8_tarjeta = CodePage::Windows1252().ToUtf8(kTarjeta);
  const std::string utf8_ficha = CodePage::Windows1252().ToUtf8(config::HojaFichaIntegrada());
  const std::pair<std::string, std::string> casos[] = {
      {fichas, ficha_web},
      {utf8_tarjeta, utf8_ficha},
      {"<n>6</n>", kExponencial},
      {Bes(30), Hoja("<xsl:for-each select='//b'><i><xsl:value-of select='position()'/></i>"
                     "</xsl:for-each>")},
  };
  for (const auto& [xml, xsl] : casos) {
    motor_.Vigila(nullptr);
    const ResultadoXSL libre = motor_.Transforma(xml, xsl);
    ASSERT_EQ(libre.estado, ResultadoXSL::Estado::Correcto) << libre.descripcion;
    ASSERT_FALSE(libre.texto.empty());
    PlazoDePrueba plazo(kNunca, 10000);
    motor_.Vigila(&plazo);
    const ResultadoXSL vigilada = motor_.Transforma(xml, xsl);
    EXPECT_EQ(vigilada.estado, ResultadoXSL::Estado::Correcto) << vigilada.descripcion;
    EXPECT_EQ(vigilada.texto, libre.texto);
    EXPECT_GT(plazo.vistas, 1) << xml;
  }
}

// What the libraries report is collected call by call: a run of calls that
// fail in different ways, read, validation, compilation and transformation
// interleaved, gives each call in one processor what it gives alone in a
// fresh one, and each failure names its own fault only.
TEST(ErroresXSL, EachCallReportsOnlyItsOwnErrors) {
  const std::string valor = Hoja("<xsl:value-of select='a'/>");
  const std::string alto_uno = Hoja("<xsl:message terminate='yes'>alto-uno</xsl:message>");
  const std::string alto_dos = Hoja("<xsl:message terminate='yes'>alto-dos</xsl:message>");
  struct Paso {
    std::string xml;
    std::string xsl;
    const char* propio;  // in the reason or description; nullptr: nothing to look for
    const char* ajeno;   // what an earlier call reported, never here
  } pasos[] = {
      {"<a>\n<b></a>", valor, "La etiqueta final no corresponde", nullptr},
      {"<a>\n\n&nada;</a>", valor, "entidad no declarada", "etiqueta final"},
      // Reads with a namespace error, then fails its validation: the reason
      // is the validation's.
      {"<!DOCTYPE a [<!ELEMENT a EMPTY>]>\n<a><p:b/></a>", valor, "no sigue su tipo",
       "entidad"},
      {"<a/>", alto_uno, "alto-uno", "no sigue"},
      {"<a/>", Hoja("<xsl:value-of select='a[[1]'/>"), nullptr, "alto-uno"},
      {"<a/>", alto_uno, "alto-uno", nullptr},  // compiled before, fails again
      {"<a/>", alto_dos, "alto-dos", "alto-uno"},
      {"<a>\n<b></a>", alto_dos, "La etiqueta final no corresponde", "alto-dos"},
      {"<a/>", "<xsl:stylesheet", nullptr, nullptr},
      {"<a/>", Hoja("<xsl:value-of select='no-such-function(1)'/>"), nullptr, "alto-dos"},
      {"<a>texto</a>", valor, nullptr, nullptr},
  };
  xslt::MotorLibxslt motor;
  for (const Paso& p : pasos) {
    const ResultadoXSL r = motor.Transforma(p.xml, p.xsl);
    xslt::MotorLibxslt solo;
    const ResultadoXSL esperado = solo.Transforma(p.xml, p.xsl);
    EXPECT_EQ(r.estado, esperado.estado) << p.xml << " " << p.xsl;
    EXPECT_EQ(r.razon, esperado.razon) << p.xml << " " << p.xsl;
    EXPECT_EQ(r.linea, esperado.linea) << p.xml << " " << p.xsl;
    EXPECT_EQ(r.columna, esperado.columna) << p.xml << " " << p.xsl;
    EXPECT_EQ(r.descripcion, esperado.descripcion) << p.xml << " " << p.xsl;
    EXPECT_EQ(r.texto, esperado.texto) << p.xml << " " << p.xsl;
    const std::string informe = r.razon + r.descripcion;
    if (p.propio != nullptr) {
      EXPECT_NE(informe.find(p.propio), std::string::npos) << informe;
    }
    if (p.ajeno != nullptr) {
      EXPECT_EQ(informe.find(p.ajeno), std::string::npos) << informe;
    }
  }
  EXPECT_EQ(motor.Transforma("<a>texto</a>", valor).texto, "texto");
  // The sheet check takes its line and message from its own sheet, after
  // the failures above.
  const xslt::RevisionHoja mal_formada = xslt::RevisaHoja("<hoja>\n\n<a></b></hoja>");
  EXPECT_NE(mal_formada.error.find("(línea 3)"), std::string::npos) << mal_formada.error;
  EXPECT_EQ(mal_formada.error.find("alto"), std::string::npos) << mal_formada.error;
  const xslt::RevisionHoja no_compila = xslt::RevisaHoja(Hoja("<xsl:value-of select='a[[1]'/>"));
  EXPECT_FALSE(no_compila.compila);
  EXPECT_FALSE(no_compila.error.empty());
  EXPECT_EQ(no_compila.error, xslt::RevisaHoja(Hoja("<xsl:value-of select='a[[1]'/>")).error);
}

// The error handlers a caller has set, libxml2's and libxslt's, receive
// nothing while the processor works and are in place again after each call.
struct Anotados {
  int estructurados = 0;
  int genericos = 0;
};
void AnotaEstructurado(void* contexto, xmlErrorPtr) {
  ++static_cast<Anotados*>(contexto)->estructurados;
}
void AnotaGenerico(void* contexto, const char*, ...) {
  ++static_cast<Anotados*>(contexto)->genericos;
}

class ManejadoresPropios : public ::testing::Test {
 protected:
  void SetUp() override {
    xmlSetStructuredErrorFunc(&anotados_, AnotaEstructurado);
    xmlSetGenericErrorFunc(&anotados_, AnotaGenerico);
    xsltSetGenericErrorFunc(&anotados_, AnotaGenerico);
  }
  void TearDown() override {
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    xmlSetGenericErrorFunc(nullptr, nullptr);
    xsltSetGenericErrorFunc(nullptr, nullptr);
  }
  void EsperaLosPropios(const std::string& tras) {
    EXPECT_EQ(xmlStructuredError, &AnotaEstructurado) << tras;
    EXPECT_EQ(xmlStructuredErrorContext, &anotados_) << tras;
    EXPECT_EQ(xmlGenericError, &AnotaGenerico) << tras;
    EXPECT_EQ(xmlGenericErrorContext, &anotados_) << tras;
    EXPECT_EQ(xsltGenericError, &AnotaGenerico) << tras;
    EXPECT_EQ(xsltGenericErrorContext, &anotados_) << tras;
    EXPECT_EQ(anotados_.estructurados, 0) << tras;
    EXPECT_EQ(anotados_.genericos, 0) << tras;
  }

  Anotados anotados_;
};

TEST_F(ManejadoresPropios, AreRestoredAfterEveryCall) {
  xslt::MotorLibxslt motor;
  struct Caso {
    std::string xml;
    std::string xsl;
  } casos[] = {
      {"<a>texto</a>", Hoja("<xsl:value-of select='a'/>")},
      {"<a><b></a>", Hoja("x")},
      {"<!DOCTYPE a [<!ELEMENT a EMPTY>]><a>x</a>", Hoja("x")},
      {"<a/>", "<xsl:stylesheet"},
      {"<a/>", Hoja("<xsl:value-of select='a[[1]'/>")},
      {"<a/>", Hoja("<xsl:message terminate='yes'>alto</xsl:message>")},
  };
  for (const Caso& c : casos) {
    motor.Transforma(c.xml, c.xsl);
    EsperaLosPropios("Transforma " + c.xml + " " + c.xsl);
  }
  xslt::RevisaHoja("<xsl:stylesheet");
  EsperaLosPropios("RevisaHoja of a sheet that is not well-formed");
  xslt::RevisaHoja(Hoja("<xsl:value-of select='a[[1]'/>"));
  EsperaLosPropios("RevisaHoja of a sheet that does not compile");
  EXPECT_TRUE(xslt::XmlParserWorks());
  EsperaLosPropios("XmlParserWorks");
  // And they work: the caller's own parse reports to them.
  xmlFreeDoc(xmlReadMemory("<a>", 3, nullptr, nullptr, XML_PARSE_NONET));
  EXPECT_GT(anotados_.estructurados, 0);
}

TEST(LineaDelTexto, CutsTheNumberedLineWithoutItsEnd) {
  const std::string texto = "uno\r\ndos\ntres";
  EXPECT_EQ(LineaDelTexto(texto, 1), "uno");
  EXPECT_EQ(LineaDelTexto(texto, 2), "dos");
  EXPECT_EQ(LineaDelTexto(texto, 3), "tres");
  EXPECT_EQ(LineaDelTexto(texto, 4), "");
  EXPECT_EQ(LineaDelTexto(texto, 0), "");
  EXPECT_EQ(LineaDelTexto("", 1), "");
}

TEST(MotorModuloXSL, MissingModuleIsReportedOnThePage) {
  MotorModuloXSL motor({"/no/existe/orvex-xsl.so"});
  EXPECT_EQ(motor.Encuentra(), "");
  testing::MemoryOutput salida;
  TransformadorXSL transformador(motor, salida);
  EXPECT_EQ(transformador.TransformaXML("<a/>", Hoja("x")), "");
  EXPECT_EQ(salida.contents,
            Latin1("<center><p><H4>No se pudo cargar el procesador XSL de Orvex: no se "
                   "encontró orvex-xsl.so</H4><p/></center>\r\n"));
}

TEST(MotorModuloXSL, BuiltModuleTransformsLikeTheLibrary) {
  MotorModuloXSL motor({"/no/existe/orvex-xsl.so", ORVEX_MODULO_XSL});
  ASSERT_EQ(motor.Encuentra(), ORVEX_MODULO_XSL);
  xslt::MotorLibxslt directo;
  const std::string borrador =
      "<xsl:stylesheet xmlns:xsl='http://www.w3.org/TR/WD-xsl'><xsl:template>"
      "<xsl:eval>f()</xsl:eval><xsl:script/></xsl:template></xsl:stylesheet>";
  for (const std::string& xsl : {config::HojaFichaIntegrada(), Hoja("<xsl:value-of select='a[['/>"),
                                 std::string("<a/>"), borrador}) {
    const std::string hoja = CodePage::Windows1252().ToUtf8(xsl);
    for (const std::string& xml : {CodePage::Windows1252().ToUtf8(kTarjeta), std::string("<a>&</a>")}) {
      const ResultadoXSL a = motor.Transforma(xml, hoja);
      const ResultadoXSL b = directo.Transforma(xml, hoja);
      EXPECT_EQ(a.estado, b.estado);
      EXPECT_EQ(a.texto, b.texto);
      EXPECT_EQ(a.razon, b.razon);
      EXPECT_EQ(a.linea, b.linea);
      EXPECT_EQ(a.columna, b.columna);
      EXPECT_EQ(a.descripcion, b.descripcion);
      EXPECT_EQ(a.avisos, b.avisos);
    }
  }
}

// The module keeps the deadline on its own clock from the time left: a sheet
// of 10^8 calls, which no machine makes in 200 ms, stops and the request gets
// the watchdog's page; no time left stops even a trivial sheet; without a
// deadline, or with one that never comes, the module transforms as before.
TEST(MotorModuloXSL, TheModuleKeepsTheDeadline) {
  MotorModuloXSL motor({ORVEX_MODULO_XSL});
  xslt::MotorLibxslt directo;
  testing::MemoryOutput salida;
  TransformadorXSL transformador(motor, salida);
  struct Caso {
    std::string xml;
    std::string xsl;
    std::int64_t restante_ms;
  } vencen[] = {
      {"<a/>", SinXPath(8), 200},
      {Bes(100), kCuentaCuadruple, 1},
      {"<a/>", Hoja("x"), 0},
  };
  for (const Caso& c : vencen) {
    PlazoDePrueba plazo(kNunca, c.restante_ms);
    motor.Vigila(&plazo);
    const ResultadoXSL r = motor.Transforma(c.xml, c.xsl);
    EXPECT_EQ(r.estado, ResultadoXSL::Estado::PlazoVencido) << c.xml << ": " << r.descripcion;
    EXPECT_EQ(r.texto, "");
    EXPECT_THROW(transformador.TransformaXML(c.xml, c.xsl), TiempoAgotado) << c.xml;
    EXPECT_EQ(salida.contents, "");
  }
  const std::string hoja = CodePage::Windows1252().ToUtf8(config::HojaFichaIntegrada());
  const std::string tarjeta = CodePage::Windows1252().ToUtf8(kTarjeta);
  PlazoDePrueba nunca(kNunca, INT64_MAX);
  PlazoDePrueba largo(kNunca, kUnaHora);
  for (Plazo* plazo : {static_cast<Plazo*>(nullptr), static_cast<Plazo*>(&nunca),
                       static_cast<Plazo*>(&largo)}) {
    motor.Vigila(plazo);
    EXPECT_EQ(transformador.TransformaXML("<n>3</n>", kExponencial), "xxxxxxxx");
    const ResultadoXSL r = motor.Transforma(tarjeta, hoja);
    EXPECT_EQ(r.estado, ResultadoXSL::Estado::Correcto) << r.descripcion;
    EXPECT_EQ(r.texto, directo.Transforma(tarjeta, hoja).texto);
  }
}

}  // namespace
}  // namespace orvex::transform
