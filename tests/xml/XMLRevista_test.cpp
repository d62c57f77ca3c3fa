#include "xml/XMLRevista.h"

#include <gtest/gtest.h>

namespace orvex::xml {
namespace {

const std::string kCabecera =
    "<?xml version='1.0'?>\r\n<?xml-stylesheet href=\"pp_propia.xsl\" type=\"text/xsl\"?>\r\n";

TEST(XMLRevista, OneElementPerOccurrenceInTheRecordsOrder) {
  struct Caso {
    const char* etiquetas;
    const char* campos;
  };
  const Caso casos[] = {
      {"\xA6" "022" "0041-3011\xA6" "245El trimestre econ\xF3mico.\xCC",
       "<m022>0041-3011</m022><m245>El trimestre econ\xF3mico.</m245>"},
      // Occurrences divided at "\", trimmed, the empty ones dropped.
      {"\xA6" "650Econom\xED" "a \\  \\ Historia -- Siglo XX\xCC",
       "<m650>Econom\xED" "a</m650><m650>Historia -- Siglo XX</m650>"},
      // Texts escaped; a field without a usable tag gives nothing.
      {"\xA6" "245A & B <c> 'd' \"e\"\xA6" "1 " "nada\xA6" "50" "\xCC",
       "<m245>A &amp; B &lt;c&gt; &apos;d&apos; &quot;e&quot;</m245>"},
      // No end mark: the last field runs to the end.
      {"\xA6" "500Nota", "<m500>Nota</m500>"},
      {"", ""},
      {"sin separador", ""},
  };
  for (const Caso& c : casos) {
    EXPECT_EQ(CamposXML(c.etiquetas), c.campos) << c.etiquetas;
  }
  EXPECT_EQ(XMLRevista(12, "\xA6" "245T\xCC", "pp_propia.xsl"),
            kCabecera + "<ficha><Numero>12</Numero><ETIQUETAS><m245>T</m245></ETIQUETAS></ficha>");
}

TEST(XMLAnalitica, CarriesItsNumberCopyAndTheYearOfItsHost) {
  struct Caso {
    const char* huesped;
    const char* fecha;
  };
  const Caso casos[] = {
      {"Artes de M\xE9xico. Vol. 42, no. 2 (1985), p. 197-213", "1985"},
      {"Revista (nueva serie) (2003)", "2003"},
      {"Revista (c2003)", ""},
      {"Revista 2003", ""},
      {"Revista (2003", ""},
  };
  for (const Caso& c : casos) {
    const std::string etiquetas = std::string("\xA6" "245Art\xA6" "773") + c.huesped + "\xCC";
    const std::string documento = XMLAnalitica(7, "P'01", etiquetas, "pp_propia.xsl");
    EXPECT_EQ(documento.substr(0, documento.find("<ETIQUETAS>")),
              kCabecera + "<Analitica><ID>7</ID><Fecha>" + c.fecha +
                  "</Fecha><Numero>P&apos;01</Numero>")
        << c.huesped;
    EXPECT_TRUE(documento.ends_with("</m773></ETIQUETAS></Analitica>")) << documento;
  }
}

}  // namespace
}  // namespace orvex::xml
