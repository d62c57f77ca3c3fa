// Each book's source record as orvex-catalogo keeps it (ORVEX_MARC): the
// readers' Original() and the table the catalogue gets.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "base/CodePage.h"
#include "catalogo/Catalogo.h"
#include "catalogo/LectorISO2709.h"
#include "catalogo/LectorMARCXML.h"
#include "catalogo/RegistroMARC.h"
#include "db/Database.h"
#include "tests/support/Fakes.h"
#include "tests/catalogo/Construye.h"
#include "tests/support/MARCPrueba.h"

namespace orvex::catalogo {
namespace {

namespace fs = std::filesystem;
using prueba::RegistroISO;

// What Original() gave after each record read, refused ones included ("-"
// for a refusal, whose Original() must be empty).
std::vector<std::string> Originales(const std::string& datos) {
  std::unique_ptr<LectorRegistros> lector = LectorPara(datos, "prueba");
  std::vector<std::string> originales;
  RegistroMARC r;
  for (int i = 0; i < 20; ++i) {
    const Lectura l = lector->Siguiente(r);
    if (l == Lectura::kFin) {
      EXPECT_TRUE(lector->Original().empty());
      break;
    }
    if (l == Lectura::kRechazado) {
      EXPECT_TRUE(lector->Original().empty()) << lector->Motivo();
      originales.push_back("-");
    } else {
      originales.emplace_back(lector->Original());
    }
  }
  return originales;
}

const std::string kUno = RegistroISO({
    {"001", "r1"},
    {"100", "1 $aGarcía Márquez, Gabriel."},
    {"245", "10$aCien años de soledad."},
});
const std::string kDos = RegistroISO({{"001", "r2"}, {"245", "00$aOtra obra."}}, ' ');

TEST(OrigenMARC, IsoRecordsAreTheirOwnBytes) {
  std::string roto = RegistroISO({{"001", "malo"}, {"245", "10$aNada."}});
  roto[5 + 24] = 'X';  // its directory can no longer be read
  EXPECT_EQ(Originales("\r\n" + kUno + "\n" + roto + kDos + " \x1A"),
            (std::vector<std::string>{kUno, "-", kDos}));
  LectorISO2709 lector(kUno);
  EXPECT_EQ(lector.Formato(), FormatoOrigen::kISO2709);
}

constexpr const char* kMarc = "http://www.loc.gov/MARC21/slim";

// A record element's inside, the same in every document below.
const std::string kCuerpo =
    "<leader>00000nam a2200000 a 4500</leader>\n"
    "    <controlfield tag=\"001\">x1</controlfield>\n"
    "    <datafield tag='245' ind1='1' ind2='0'>\n"
    "      <subfield code=\"a\">Cien a\xC3\xB1os &amp; d&#237;as</subfield>\n"
    "    </datafield>\n  ";

TEST(OrigenMARC, XmlRecordsAreTheirElementsTextStandingAlone) {
  const std::string ns = std::string(" xmlns=\"") + kMarc + "\"";
  const std::string xsi = " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"";
  const std::string registro = "<record>" + kCuerpo + "</record>";
  const std::string con_ns = "<record" + ns + ">" + kCuerpo + "</record>";
  const struct {
    const char* caso;
    std::string documento;
    std::vector<std::string> originales;
  } casos[] = {
      {"a record that declares its namespace", "<?xml version=\"1.0\"?>\n" + con_ns + "\n",
       {con_ns}},
      {"the collection declares it",
       "<collection" + ns + xsi + ">\n  " + registro + "\n  " + registro + "\n</collection>",
       {"<record" + ns + xsi + ">" + kCuerpo + "</record>",
        "<record" + ns + xsi + ">" + kCuerpo + "</record>"}},
      {"no namespace at all", "<collection>" + registro + "</collection>", {registro}},
      {"a prefix, the record's own attributes, an empty record",
       std::string("<marc:collection xmlns:marc='") + kMarc + "'" + xsi +
           ">\n<marc:record xsi:schemaLocation=\"a b\" >" + "<marc:leader>00000nam a2200000 a " +
           "4500</marc:leader></marc:record>\n<marc:record/></marc:collection>",
       {std::string("<marc:record xmlns:marc='") + kMarc + "'" + xsi +
            " xsi:schemaLocation=\"a b\" ><marc:leader>00000nam a2200000 a 4500</marc:leader>"
            "</marc:record>",
        std::string("<marc:record xmlns:marc='") + kMarc + "'" + xsi + "/>"}},
      {"a record that redeclares what the collection declares",
       std::string("<collection xmlns='urn:otro'><record") + ns + ">" + kCuerpo +
           "</record></collection>",
       {con_ns}},
      {"markup that hides tags: comments, CDATA, processing instructions, attribute values",
       "<!-- <record> --><?orvex <record>?><collection" + ns +
           " nota='x>y'><!-- <record/> -->\n<record>" +
           "<datafield tag=\"500\" ind1=\" \" ind2=\" \"><subfield code=\"a\">"
           "<![CDATA[</record><record>]]></subfield></datafield></record>" + registro +
           "</collection>",
       {"<record" + ns + "><datafield tag=\"500\" ind1=\" \" ind2=\" \"><subfield code=\"a\">"
        "<![CDATA[</record><record>]]></subfield></datafield></record>",
        "<record" + ns + ">" + kCuerpo + "</record>"}},
      {"a document type whose internal subset holds '>' and quotes",
       "<!DOCTYPE collection [\n<!ATTLIST collection nota CDATA \"a>b\">\n"
       "<!-- ] > ' -->\n]>\n<collection" + ns + ">" + registro + "</collection>",
       {"<record" + ns + ">" + kCuerpo + "</record>"}},
      {"start tags over several lines",
       "<collection\n" + ns + "\n>\n<record\n  xml:lang=\"es\"\n>" + kCuerpo + "</record>" +
           "<record>" + kCuerpo + "</record></collection>",
       {"<record" + ns + "\n  xml:lang=\"es\"\n>" + kCuerpo + "</record>",
        "<record" + ns + ">" + kCuerpo + "</record>"}},
      {"a harvesting envelope whose own <record> is no MARC record",
       "<OAI xmlns=\"urn:oai\"><record><metadata>" + con_ns + "</metadata></record></OAI>",
       {con_ns}},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(Originales(c.documento), c.originales) << c.caso;
  }
  LectorMARCXML lector("<record/>", "x");
  EXPECT_EQ(lector.Formato(), FormatoOrigen::kMARCXML);
}

// Documents whose bytes are not the record's UTF-8 text give libxml2's
// writing of the element, in UTF-8 and standing alone.
TEST(OrigenMARC, XmlRecordsThatCannotBeCopiedAreWrittenInUtf8) {
  const std::string escrito =
      std::string("<record xmlns=\"") + kMarc +
      "\"><controlfield tag=\"001\">x1</controlfield><datafield tag=\"245\" ind1=\"1\" "
      "ind2=\"0\"><subfield code=\"a\">Cien a\xC3\xB1os &amp; d\xC3\xAD" "as</subfield>"
      "</datafield></record>";
  const std::string latin1 =
      std::string("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<collection xmlns=\"") +
      kMarc +
      "\"><record><controlfield tag=\"001\">x1</controlfield><datafield tag='245' ind1='1' "
      "ind2='0'><subfield code=\"a\">Cien a\xF1os &amp; d&#237;as</subfield></datafield>"
      "</record></collection>";
  EXPECT_EQ(Originales(latin1), (std::vector<std::string>{escrito}));

  const std::string entidad =
      std::string("<!DOCTYPE collection [<!ENTITY iacute \"\xC3\xAD\">]>\n<collection xmlns=\"") +
      kMarc +
      "\"><record><controlfield tag=\"001\">x1</controlfield><datafield tag=\"245\" ind1=\"1\" "
      "ind2=\"0\"><subfield code=\"a\">Cien a\xC3\xB1os &amp; d&iacute;as</subfield>"
      "</datafield></record></collection>";
  EXPECT_EQ(Originales(entidad), (std::vector<std::string>{escrito}));
}

// The rows of ORVEX_MARC, "Ficha_No|Formato|" and the bytes of Registro.
std::vector<std::string> Origenes(const fs::path& korvel) {
  auto base = db::OpenDatabase(korvel.string(), CodePage::Windows1252(), {.read_only = true});
  auto rs = base->OpenRecordset("select * from ORVEX_MARC order by Ficha_No",
                                db::RecordsetType::Snapshot);
  std::vector<std::string> filas;
  for (; !rs->Eof(); rs->MoveNext()) {
    filas.push_back(rs->Field("Ficha_No").AsText() + "|" + rs->Field("Formato").AsText() + "|" +
                    rs->FieldBytes("Registro"));
  }
  return filas;
}

TEST(OrigenMARC, TheCatalogueKeepsEveryBookAsItWasRead) {
  testing::DirectorioTemporal tmp;
  const std::string revista =
      RegistroISO({{"001", "s1"}, {"245", "00$aRevista."}}, 'a', 'a', 's');
  std::string danado = RegistroISO({{"001", "malo"}});
  danado.replace(0, 5, "00099");
  const fs::path iso =
      prueba::EscribeArchivo(tmp.ruta() / "libros.mrc", kUno + revista + danado + "\n" + kDos);
  const std::string registro_xml = std::string("<record>") + kCuerpo + "</record>";
  const fs::path xml = prueba::EscribeArchivo(
      tmp.ruta() / "mas.xml", std::string("<?xml version=\"1.0\"?>\n<collection xmlns=\"") +
                                  kMarc + "\">\n" + registro_xml + "\n</collection>\n");
  const fs::path dir = tmp.ruta() / "catalogo";
  ASSERT_EQ(prueba::Construye(dir, {iso.string(), xml.string()}), "");

  // Books 1 and 2 from the ISO 2709 file (the periodical and the refused
  // record take no book number), book 3 from the MARCXML file.
  EXPECT_EQ(Origenes(dir / "KORVEL8.MDB"),
            (std::vector<std::string>{
                "1|iso2709|" + kUno, "2|iso2709|" + kDos,
                std::string("3|marcxml|<record xmlns=\"") + kMarc + "\">" + kCuerpo +
                    "</record>"}));
}

}  // namespace
}  // namespace orvex::catalogo
