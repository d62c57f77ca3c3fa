#include "transform/HojasNativas.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "base/Html.h"
#include "base/CodePage.h"
#include "config/Instalacion.h"
#include "tests/support/Fakes.h"
#include "xslt/MotorLibxslt.h"
#include "transform/TransformaXML.h"
#include "xml/XMLFicha.h"
#include "xml/XMLTarjeta.h"

namespace orvex::transform {
namespace {

const std::string kAviso = config::HojaAviso("XSL_Tabla_Libros");

// What the processor gives for `xml` with the built-in sheet `xsl`, as
// TransformaXML asks it.
ResultadoXSL Procesador(const std::string& xml, const std::string& xsl) {
  static xslt::MotorLibxslt motor;
  return motor.Transforma(CodePage::Windows1252().ToUtf8(xml), CodePage::Windows1252().ToUtf8(xsl));
}

// The native page, checked against the processor's: whenever there is one,
// the processor loads the document and gives the same bytes.
std::optional<std::string> Nativa(const std::string& xml, const std::string& xsl) {
  const auto nativa = TransformacionNativa(xml, xsl);
  if (nativa) {
    const ResultadoXSL r = Procesador(xml, xsl);
    EXPECT_EQ(r.estado, ResultadoXSL::Estado::Correcto) << r.razon << "\n" << xml;
    EXPECT_EQ(*nativa, r.texto) << xml;
  }
  return nativa;
}

bool Rechazado(const std::string& xml, const std::string& xsl) {
  return Procesador(xml, xsl).estado == ResultadoXSL::Estado::DocumentoInvalido;
}

// A card document in XMLTarjeta's shape from already escaped pieces.
std::string Tarjeta(std::string numero, const std::vector<std::string>& secciones,
                    const std::vector<std::string>& notas, const std::vector<std::string>& copias) {
  static const char* const kNombres[] = {"Sclas", "Sa", "S1", "S2", "Sisbn", "Sr1", "Sr2"};
  std::string doc = "<?xml version='1.0'?>\r\n<FICHA Numero=" + numero + "><SECCIONES>";
  for (std::size_t k = 0; k < 7; ++k) {
    if (k == 5) {
      for (const auto& n : notas) doc += "<Snotas>" + n + "</Snotas>";
    }
    const std::string t = k < secciones.size() ? secciones[k] : "";
    doc += std::string("<") + kNombres[k] + ">" + t + "</" + kNombres[k] + ">";
  }
  doc += "</SECCIONES><EXISTENCIAS>";
  for (const auto& c : copias) doc += "<EJEMPLAR " + c + "/>";
  return doc + "</EXISTENCIAS></FICHA>";
}

std::string Copia(std::string_view a, std::string_view b = "x") {
  return "NoAdq='" + std::string(a) + "' Biblio='" + std::string(b) +
         "' Vol='1' Ejemplar='' Tomo=\"II\"";
}

// A document, whether it is rendered natively, and whether the processor
// rejects it (checked only when true).
struct Caso {
  std::string xml;
  bool nativa;
  bool mal_formado = false;
};

void Comprueba(const std::vector<Caso>& casos, const std::string& hoja) {
  for (const Caso& c : casos) {
    EXPECT_EQ(Nativa(c.xml, hoja).has_value(), c.nativa) << c.xml;
    EXPECT_TRUE(!c.mal_formado || Rechazado(c.xml, hoja)) << c.xml;
  }
}

TEST(TransformacionNativa, HandWrittenCardsMatchTheProcessorOrFallBack) {
  const std::vector<Caso> casos = {
      {Tarjeta("'15'", {}, {}, {}), true},
      {Tarjeta("'7'", {"863 G216c", Latin1("García, Ana."), "  \t ", "\r\n", " x "},
               {"Uno", "", " ", "Tres &amp; &lt;4&gt; ]]&gt;"}, {Copia("A1"), Copia(" A2 ")}),
       true},
      {Tarjeta("\"1\r\n2\t3\r4\n5\"", {"a\r\nb\rc\n\r\nd", "\"comillas\" y 'ap\xF3strofos'"}, {},
               {Copia("a\r\nb\rc", "\t\n"), Copia("&apos;&quot;&amp;")}),
       true},
      {Tarjeta("'1'", {"\x80\x81\x8D\x8F\x90\x9D\x9F\x7F\xFF\xA0"}, {}, {Copia("\x8A\x9C")}), true},
      // Control characters and "]]>" are not XML: the processor rejects them.
      {Tarjeta("'1'", {"a\x01"}, {}, {}), false, true},
      {Tarjeta("'1'", {}, {}, {Copia("\x1F")}), false, true},
      {Tarjeta("'1'", {"a]]>b"}, {}, {}), false, true},
      {Tarjeta("'1'", {"a & b"}, {}, {}), false, true},
      {Tarjeta("'1'", {"&nada;"}, {}, {}), false, true},
      {Tarjeta("'1'", {}, {}, {Copia("a<b")}), false, true},
      {Tarjeta("'1", {}, {}, {}), false, true},
      // Well-formed, but not the shape XMLTarjeta writes.
      {Tarjeta("'1'", {"&#65;"}, {}, {}), false},
      {Tarjeta("'1'", {"<b>x</b>"}, {}, {}), false},
      {Tarjeta("'1'", {"<![CDATA[x]]>"}, {}, {}), false},
      {Tarjeta("'1'", {}, {}, {"NoAdq='1' Vol='1' Biblio='' Ejemplar='' Tomo=''"}), false},
      {Tarjeta("'1'", {}, {}, {}) + "\r\n", false},
      {"\xEF\xBB\xBF" + Tarjeta("'1'", {}, {}, {}), false},
      {"<FICHA Numero='1'/>", false},
  };
  Comprueba(casos, config::HojaFichaIntegrada());
}

TEST(TransformacionNativa, NoticeSheetsOnHandWrittenDocuments) {
  std::string hondo, muy_hondo;
  for (int i = 0; i < 150; ++i) hondo = "<a>" + hondo + "</a>";
  for (int i = 0; i < 300; ++i) muy_hondo = "<a>" + muy_hondo + "</a>";
  const std::vector<Caso> casos = {
      {"<a/>", true},
      {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a\n b = \"1\"\tc='&lt;&amp;'></a >", true},
      {"<!-- c -->\r\n<a>x<![CDATA[<&]]>y<!-- - -->]]&gt;</a>\r\n<!---->  ", true},
      {Latin1("<?xml version='1.0' encoding='ISO-8859-1'?><b>Año \x81\x9D</b>"), true},
      {hondo, true},
      // The periodical and article documents name their sheet.
      {"<?xml version='1.0'?>\r\n<?xml-stylesheet href=\"a.xsl\" type=\"text/xsl\"?>\r\n"
       "<ficha><Numero>1</Numero></ficha><?fin?>",
       true},
      {"", false, true},
      {"<?xml-stylesheet href='\x01'?><a/>", false, true},
      {"<?xml-stylesheet href='a'<a/>", false, true},
      {"<a/><?XML x?>", false, true},
      {"<a>", false, true},
      {"<a></b>", false, true},
      {"<a/><b/>", false, true},
      {"<a/>x", false, true},
      {"<a x='1' x='2'/>", false, true},
      {"<a x='1'y='2'/>", false, true},
      {"<a x='<'/>", false, true},
      {"<a>&nada;</a>", false, true},
      {"<a>a]]>b</a>", false, true},
      {"<a><!-- a -- b --></a>", false, true},
      {"<a><!--x---></a>", false, true},
      {"<a><![CDATA[x</a>", false, true},
      {"<a>\x0B</a>", false, true},
      {"<a b='\x01'/>", false, true},
      {"<1a/>", false, true},
      {"<?xml version='1.0' encoding='foo'?><a/>", false, true},
      {"<a>x</a", false, true},
      {muy_hondo, false, true},
      // Loaded by the processor, but beyond what is vouched for here.
      {"<a>&#65;</a>", false},
      {"<!DOCTYPE a><a/>", false},
      {"<?xml version='1.0' standalone='yes'?><a/>", false},
      {"<x:a xmlns:x='urn:x'/>", false},
  };
  Comprueba(casos, kAviso);
}

TEST(TransformacionNativa, NoticeNamesAndOtherSheets) {
  for (const char* nombre :
       {"XSL_Ficha_Publicaciones", "", "a > b \"c\" 'd'", "Pr\xE9stamos \x80"}) {
    EXPECT_TRUE(Nativa("<a/>", config::HojaAviso(nombre)).has_value()) << nombre;
  }
  // Sheets that do not load, or are not built-in, are the processor's.
  std::string cambiada = config::HojaFichaIntegrada();
  cambiada.replace(cambiada.find("Biblioteca"), 10, "Acervo");
  for (const std::string& hoja : {config::HojaAviso("a & b"), config::HojaAviso("a\tb"),
                                  config::HojaAviso("a < b"), cambiada, std::string("<a/>")}) {
    EXPECT_FALSE(TransformacionNativa("<a/>", hoja).has_value()) << hoja;
  }
}

// Random Windows-1252 texts over what matters to the page: the XML
// characters, blanks and line ends, letters outside ASCII and the bytes
// 0x7F-0x9F, the five unassigned ones included.
class Azar {
 public:
  int Entre(int a, int b) { return std::uniform_int_distribution<int>(a, b)(gen_); }
  std::string Texto(int piezas) {
    static const char* const kPiezas[] = {
        "a",    "Zz",   "09",   " ",    "  ",   "\t",   "\r\n", "\r",   "\n",   "&",
        "<",    ">",    "'",    "\"",   "]]>",  "--",   ",",    "\xE1", "\xF1", "\xC9",
        "\x80", "\x81", "\x8D", "\x8F", "\x90", "\x9D", "\x9F", "\x7F", "\xFF", "\xA0"};
    std::string t;
    for (int n = Entre(0, piezas); n > 0; --n) t += kPiezas[Entre(0, std::size(kPiezas) - 1)];
    return t;
  }
  // One text in `cada` gets a C0 control.
  std::string ConControl(std::string t, int cada) {
    if (Entre(1, cada) > 1) return t;
    static const char kControles[] = {'\x01', '\x08', '\x0B', '\x0C', '\x1B', '\x1F'};
    return t.insert(Entre(0, t.size()), 1, kControles[Entre(0, std::size(kControles) - 1)]);
  }
  std::string Marc(std::initializer_list<const char*> etiquetas) {
    std::string marc;
    for (const char* e : etiquetas) {
      if (Entre(0, 2) > 0) marc += "\xA6" + std::string(e) + Texto(6);
    }
    return marc + "\xCC";
  }

 private:
  std::mt19937 gen_{20240517};
};

bool TieneControl(std::string_view doc) {
  for (char c : doc) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') return true;
  }
  return false;
}

TEST(TransformacionNativa, RandomCardsMatchTheProcessor) {
  Azar azar;
  int nativas = 0;
  for (int i = 0; i < 400; ++i) {
    std::string doc;
    if (i % 2 == 0) {
      records::RegFicha ficha;
      ficha.Ficha_no = azar.Entre(-5, 99999);
      ficha.EtiquetasMARC = azar.Marc({"050", "082", "100", "110", "245", "250", "260", "300",
                                       "440", "020", "500", "505", "520", "650", "700"});
      for (int n = azar.Entre(0, 4); n > 0; --n) {
        ficha.Ejemplares += azar.ConControl(azar.Texto(12), 30) + "\r\n";
      }
      doc = xml::XMLTarjeta(ficha);
    } else {
      std::vector<std::string> secciones, notas, copias;
      for (int k = 0; k < 7; ++k) {
        secciones.push_back(EscapaEntidadesXML(azar.ConControl(azar.Texto(5), 40)));
      }
      for (int n = azar.Entre(0, 3); n > 0; --n) notas.push_back(EscapaEntidadesXML(azar.Texto(4)));
      for (int n = azar.Entre(0, 3); n > 0; --n) copias.push_back(Copia(EscapaEntidadesXML(azar.Texto(4))));
      doc = Tarjeta("'" + EscapaEntidadesXML(azar.Texto(3)) + "'", secciones, notas, copias);
    }
    const bool control = TieneControl(doc);
    EXPECT_EQ(Nativa(doc, config::HojaFichaIntegrada()).has_value(), !control) << doc;
    EXPECT_TRUE(!control || Rechazado(doc, config::HojaFichaIntegrada())) << doc;
    nativas += !control;
  }
  EXPECT_GT(nativas, 300);
}

// The record documents hold copy values unescaped: a "'", "&" or "<" in one
// leaves a document that does not load, which the processor must report.
TEST(TransformacionNativa, RandomRecordDocumentsUnderANoticeSheet) {
  Azar azar;
  config::Instalacion ins;
  ins.EtiquetasXML = {"020", "050", "100", "245", "260", "300", "500", "650", "700", "856"};
  int nativas = 0, rechazados = 0;
  for (int i = 0; i < 300; ++i) {
    records::RegFicha ficha;
    ficha.Ficha_no = i;
    ficha.EtiquetasMARC =
        azar.Marc({"020", "050", "100", "245", "260", "300", "500", "650", "700", "856"});
    for (int n = azar.Entre(0, 3); n > 0; --n) {
      ficha.Ejemplares += (azar.Entre(0, 2) == 0 ? azar.Texto(3) : "A1,Central") + ",1,2\r\n";
    }
    ficha.EtiquetasMARC = azar.ConControl(ficha.EtiquetasMARC, 20);
    const std::string doc = xml::XMLFicha(ficha, ins);
    const bool nativa = Nativa(doc, kAviso).has_value();
    const bool rechazado = Rechazado(doc, kAviso);
    EXPECT_NE(nativa, rechazado) << doc;
    nativas += nativa;
    rechazados += rechazado;
  }
  EXPECT_GT(nativas, 100);
  EXPECT_GT(rechazados, 30);
}

// Counts the transformations asked of it, and gives none.
class MotorContado final : public MotorXSL {
 public:
  ResultadoXSL Transforma(std::string_view, std::string_view) override {
    ++llamadas;
    return MotorXSLAusente("no se usa").Transforma("", "");
  }
  int llamadas = 0;
};

TEST(TransformacionNativa, DefaultPagesNeverAskTheProcessor) {
  MotorContado motor;
  testing::MemoryOutput salida;
  TransformadorXSL transformador(motor, salida);
  records::RegFicha ficha;
  ficha.Ficha_no = 15;
  ficha.EtiquetasMARC = Latin1("¦100García, Ana¦245Cien años & más¦500Nota¦500OtraÌ");
  ficha.Ejemplares = "A1,Central,1,,,S,01/01/2001\r\n";
  config::Instalacion ins;
  ins.EtiquetasXML = {"100", "245", "500"};
  const std::string tarjeta = xml::XMLTarjeta(ficha);
  EXPECT_EQ(transformador.TransformaXML(tarjeta, config::HojaFichaIntegrada()),
            Procesador(tarjeta, config::HojaFichaIntegrada()).texto);
  EXPECT_EQ(transformador.TransformaXML(xml::XMLFicha(ficha, ins), kAviso),
            Procesador(xml::XMLFicha(ficha, ins), kAviso).texto);
  EXPECT_EQ(motor.llamadas, 0);
  EXPECT_EQ(salida.contents, "");
  // Anything else still goes to the processor.
  transformador.TransformaXML("<a>&#65;</a>", kAviso);
  EXPECT_EQ(motor.llamadas, 1);
}

}  // namespace
}  // namespace orvex::transform
