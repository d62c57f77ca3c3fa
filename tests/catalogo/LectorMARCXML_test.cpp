#include "catalogo/LectorMARCXML.h"

#include <gtest/gtest.h>

#include "catalogo/RegistroMARC.h"

namespace orvex::catalogo {
namespace {

struct Leido {
  std::vector<RegistroMARC> registros;
  std::vector<std::string> rechazos;  // "posición: motivo"
};

Leido Lee(const std::string& xml) {
  std::unique_ptr<LectorRegistros> lector = LectorPara(xml, "prueba.xml");
  Leido leido;
  RegistroMARC r;
  for (int i = 0; i < 20; ++i) {
    const Lectura l = lector->Siguiente(r);
    if (l == Lectura::kFin) break;
    if (l == Lectura::kRegistro) {
      leido.registros.push_back(r);
    } else {
      leido.rechazos.push_back(std::to_string(lector->Posicion()) + ": " + lector->Motivo());
    }
  }
  return leido;
}

const char* const kRegistro = R"(
  <record>
    <leader>00000nam a2200000 a 4500</leader>
    <controlfield tag="001">x-1</controlfield>
    <datafield tag="245" ind1="1" ind2="0">
      <subfield code="a">Cien años &amp; días /</subfield>
      <subfield code="c">G. García.</subfield>
    </datafield>
  </record>)";

void EsperaRegistro(const RegistroMARC& r) {
  EXPECT_EQ(r.lider, "00000nam a2200000 a 4500");
  ASSERT_EQ(r.campos.size(), 2u);
  EXPECT_EQ(r.Control("001"), "x-1");
  const Campo& t = r.campos[1];
  EXPECT_EQ(t.etiqueta + t.ind1 + t.ind2, "24510");
  ASSERT_EQ(t.subcampos.size(), 2u);
  EXPECT_EQ(t.Valor('a'), "Cien años & días /");
  EXPECT_EQ(t.Valor('c'), "G. García.");
}

TEST(LectorMARCXML, ReadsCollectionsWithAndWithoutNamespaceAndSingleRecords) {
  const std::string formas[] = {
      std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                  "<collection xmlns=\"http://www.loc.gov/MARC21/slim\">") +
          kRegistro + kRegistro + "</collection>",
      std::string("\xEF\xBB\xBF  <collection>") + kRegistro + kRegistro + "</collection>",
  };
  for (const std::string& xml : formas) {
    ASSERT_TRUE(EsMARCXML(xml));
    const Leido l = Lee(xml);
    EXPECT_TRUE(l.rechazos.empty());
    ASSERT_EQ(l.registros.size(), 2u) << xml;
    EsperaRegistro(l.registros[0]);
    EsperaRegistro(l.registros[1]);
  }
  const Leido uno = Lee(kRegistro);
  ASSERT_EQ(uno.registros.size(), 1u);
  EsperaRegistro(uno.registros[0]);

  // A namespace prefix; an empty record is still a record.
  const Leido prefijo = Lee(
      "<marc:collection xmlns:marc=\"http://www.loc.gov/MARC21/slim\">"
      "<marc:record><marc:controlfield tag=\"001\">x-1</marc:controlfield>"
      "</marc:record><marc:record/></marc:collection>");
  ASSERT_EQ(prefijo.registros.size(), 2u);
  EXPECT_EQ(prefijo.registros[0].Control("001"), "x-1");
  EXPECT_TRUE(prefijo.registros[1].campos.empty());
}

TEST(LectorMARCXML, PassesOverElementsOfOtherNamespaces) {
  // A harvesting envelope whose own <record> is not a MARC record.
  const std::string xml = std::string(
      "<OAI-PMH xmlns=\"http://www.openarchives.org/OAI/2.0/\"><ListRecords><record><metadata>"
      "<record xmlns=\"http://www.loc.gov/MARC21/slim\">"
      "<datafield tag=\"245\" ind1=\"0\" ind2=\"0\"><subfield code=\"a\">Uno</subfield>"
      "<x:subfield xmlns:x=\"urn:otro\" code=\"b\">no</x:subfield></datafield>"
      "</record></metadata></record></ListRecords></OAI-PMH>");
  const Leido l = Lee(xml);
  ASSERT_EQ(l.registros.size(), 1u);
  ASSERT_EQ(l.registros[0].campos.size(), 1u);
  ASSERT_EQ(l.registros[0].campos[0].subcampos.size(), 1u);
  EXPECT_EQ(l.registros[0].campos[0].Valor('a'), "Uno");
}

TEST(LectorMARCXML, RecordWithoutTagIsRefusedAndReadingGoesOn) {
  const std::string xml = std::string("<collection><record><datafield tag=\"24\">"
                                      "<subfield code=\"a\">x</subfield></datafield></record>") +
                          kRegistro + "</collection>";
  const Leido l = Lee(xml);
  ASSERT_EQ(l.rechazos.size(), 1u);
  EXPECT_EQ(l.rechazos[0].rfind("1: campo sin etiqueta de tres caracteres (tag=\"24\"", 0), 0u)
      << l.rechazos[0];
  ASSERT_EQ(l.registros.size(), 1u);
  EsperaRegistro(l.registros[0]);
}

TEST(LectorMARCXML, MalformedDocumentRefusesTheRecordWhereItBrokeAndEnds) {
  const std::string xml = std::string("<collection>") + kRegistro +
                          "\n<record><controlfield tag=\"001\">a & b</controlfield></record>" +
                          kRegistro + "</collection>";
  const Leido l = Lee(xml);
  ASSERT_EQ(l.registros.size(), 1u);
  ASSERT_EQ(l.rechazos.size(), 1u);
  EXPECT_EQ(l.rechazos[0].rfind("2: XML mal formado en la línea 10 (", 0), 0u) << l.rechazos[0];
  EXPECT_NE(l.rechazos[0].find("el resto del archivo no se lee"), std::string::npos);
}

TEST(LectorMARCXML, ContentDecidesTheFormat) {
  EXPECT_TRUE(EsMARCXML(" \r\n<collection/>"));
  EXPECT_TRUE(EsMARCXML("\xEF\xBB\xBF<record/>"));
  EXPECT_FALSE(EsMARCXML("00123nam a2200049 a 4500"));
  EXPECT_FALSE(EsMARCXML(""));
}

}  // namespace
}  // namespace orvex::catalogo
