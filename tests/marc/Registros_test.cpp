#include "marc/Registros.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sqlite3.h>
#include <yaz/marcdisp.h>
#include <yaz/wrbuf.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "db/Database.h"
#include "tests/support/Fakes.h"
#include "tests/support/MARCPrueba.h"

namespace orvex::marc {
namespace {

using catalogo::prueba::IsoCrudo;

namespace fs = std::filesystem;

constexpr const char* kMarc = "http://www.loc.gov/MARC21/slim";

// --- reading what Registro gives, with YAZ ------------------------------------

// A record read by YAZ, as lines: "001 x1" for a control field,
// "245 10$aCien años /$cG. García." for a data field (the indicators, then
// each subfield as "$", its code and its text).
struct Leido {
  std::string lider;
  std::vector<std::string> campos;
};

std::string Atributo(xmlNode* n, const char* nombre) {
  xmlChar* v = xmlGetProp(n, reinterpret_cast<const xmlChar*>(nombre));
  std::string s = v != nullptr ? reinterpret_cast<const char*>(v) : "";
  xmlFree(v);
  return s;
}

std::string Nombre(const xmlNode* n) { return reinterpret_cast<const char*>(n->name); }

std::string Contenido(xmlNode* n) {
  xmlChar* v = xmlNodeGetContent(n);
  std::string s = v != nullptr ? reinterpret_cast<const char*>(v) : "";
  xmlFree(v);
  return s;
}

Leido Lineas(yaz_marc_t mt) {
  Leido l;
  xmlNode* raiz = nullptr;
  EXPECT_EQ(yaz_marc_write_xml(mt, &raiz, kMarc, nullptr, nullptr), 0);
  for (xmlNode* n = raiz != nullptr ? raiz->children : nullptr; n != nullptr; n = n->next) {
    const std::string nombre = n->type == XML_ELEMENT_NODE ? Nombre(n) : "";
    if (nombre == "leader") l.lider = Contenido(n);
    if (nombre == "controlfield") l.campos.push_back(Atributo(n, "tag") + " " + Contenido(n));
    if (nombre != "datafield") continue;
    std::string linea = Atributo(n, "tag") + " " + Atributo(n, "ind1") + Atributo(n, "ind2");
    for (xmlNode* s = n->children; s != nullptr; s = s->next) {
      if (s->type == XML_ELEMENT_NODE) linea += "$" + Atributo(s, "code") + Contenido(s);
    }
    l.campos.push_back(linea);
  }
  xmlFreeNode(raiz);
  return l;
}

// What YAZ noted while reading the record in `mt`.
std::string Quejas(yaz_marc_t mt) {
  WRBUF w = wrbuf_alloc();
  yaz_marc_xml(mt, YAZ_MARC_CHECK);
  yaz_marc_write_mode(mt, w);
  std::string s = wrbuf_cstr(w);
  wrbuf_destroy(w);
  return s;
}

// The ISO 2709 record `iso` as YAZ reads it; the test fails when YAZ does
// not take all of it without a complaint.
Leido DeIso(const std::string& iso) {
  yaz_marc_t mt = yaz_marc_create();
  std::string copia = iso + std::string(16, '\0');
  EXPECT_EQ(yaz_marc_read_iso2709(mt, copia.data(), static_cast<int>(iso.size())),
            static_cast<int>(iso.size()));
  EXPECT_EQ(Quejas(mt), "");
  Leido l = Lineas(mt);
  yaz_marc_destroy(mt);
  return l;
}

// The MARCXML `xml` as YAZ reads it; the test fails unless it is one
// <record> of the MARC 21 namespace that YAZ reads.
Leido DeXml(const std::string& xml) {
  Leido l;
  xmlDoc* doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                              XML_PARSE_NONET);
  EXPECT_NE(doc, nullptr) << xml;
  if (doc == nullptr) return l;
  xmlNode* raiz = xmlDocGetRootElement(doc);
  EXPECT_EQ(Nombre(raiz), "record");
  EXPECT_TRUE(raiz->ns != nullptr &&
              std::strcmp(reinterpret_cast<const char*>(raiz->ns->href), kMarc) == 0)
      << xml;
  yaz_marc_t mt = yaz_marc_create();
  EXPECT_EQ(yaz_marc_read_xml(mt, raiz), 0) << xml;
  l = Lineas(mt);
  yaz_marc_destroy(mt);
  xmlFreeDoc(doc);
  return l;
}

// --- building source records with YAZ ---------------------------------------------

// The record of `lider` and `campos` (lines as Leido writes them, "$" before
// each subfield code), written by YAZ in ISO 2709.
std::string Iso(const std::string& lider, const std::vector<std::string>& campos) {
  yaz_marc_t mt = yaz_marc_create();
  int i, j, k, l, m, n;
  yaz_marc_set_leader(mt, lider.c_str(), &i, &j, &k, &l, &m, &n);
  for (const std::string& c : campos) {
    const std::string tag = c.substr(0, 3);
    if (tag.starts_with("00")) {
      yaz_marc_add_controlfield(mt, tag.c_str(), c.data() + 4, c.size() - 4);
      continue;
    }
    yaz_marc_add_datafield(mt, tag.c_str(), c.data() + 4, 2);
    for (std::size_t p = c.find('$'); p != std::string::npos;) {
      const std::size_t q = c.find('$', p + 1);
      const std::string sub = c.substr(p + 1, q == std::string::npos ? q : q - p - 1);
      yaz_marc_add_subfield(mt, sub.data(), sub.size());
      p = q;
    }
  }
  WRBUF w = wrbuf_alloc();
  yaz_marc_xml(mt, YAZ_MARC_ISO2709);
  EXPECT_EQ(yaz_marc_write_mode(mt, w), 0);
  std::string iso(wrbuf_buf(w), wrbuf_len(w));
  wrbuf_destroy(w);
  yaz_marc_destroy(mt);
  return iso;
}

records::RegFicha Ficha(std::int32_t numero, const std::string& etiquetas) {
  records::RegFicha f;
  f.Ficha_no = numero;
  f.EtiquetasMARC = etiquetas;
  f.TipoMaterial = 1;
  return f;
}

Origen OrigenIso(std::string bytes) { return {false, std::move(bytes)}; }
Origen OrigenXml(std::string texto) { return {true, std::move(texto)}; }

// --- records built from the tag string -------------------------------------------

// Windows-1252: the accents of Latin1 and "€" (0x80), "œ" (0x9C).
const std::string kEtiquetas =
    Latin1("¦008850710s1987    sp            000 1 spa d¦020 84-376-0494-X \\ 968-16-1234-5 "
           "¦100García Márquez, Gabriel, 1927-2014.¦245Cien años de soledad / Gabriel García "
           "Márquez.¦260Madrid : Cátedra, 1987.¦650Novela colombiana \\ Realismo mágico¦500Precio "
           "15 ") +
    "\x80; ed. c\x9Cur.\xCC";
const std::vector<std::string> kCamposEtiquetas = {
    "001 15",
    "008 850710s1987    sp            000 1 spa d",
    "020   $a84-376-0494-X",
    "020   $a968-16-1234-5",
    "100   $aGarcía Márquez, Gabriel, 1927-2014.",
    "245   $aCien años de soledad / Gabriel García Márquez.",
    "260   $aMadrid : Cátedra, 1987.",
    "650   $aNovela colombiana",
    "650   $aRealismo mágico",
    "500   $aPrecio 15 €; ed. cœur.",
};

TEST(Registros, TagStringGivesMarcInBothForms) {
  const struct {
    const char* caso;
    std::string etiquetas;
    std::vector<std::string> campos;
  } casos[] = {
      {"accents, repeated occurrences, a control field, no 001", kEtiquetas, kCamposEtiquetas},
      {"its own 001; control occurrences split at \" \\ \" only; blank and bad pieces",
       Latin1("ante¦001 abc ¦007ta \\ cr\\x¦245Uno\\Dos \\  \\ Tres¦2 4Malo¦5¦500Con\x01"
              "control\x1D.¦650 ÌTras¦500no"),
       {"001  abc ", "007 ta", "007 cr\\x", "245   $aUno", "245   $aDos", "245   $aTres",
        "500   $aConcontrol."}},
      {"nothing at all", "", {"001 15"}},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.caso);
    const records::RegFicha ficha = Ficha(15, c.etiquetas);
    const std::string iso = Registro(ficha, std::nullopt, Formato::Marc21);
    const Leido de_iso = DeIso(iso);
    EXPECT_EQ(de_iso.campos, c.campos);
    // A new record of language material, UTF-8, encoding level and form
    // unknown; YAZ's lengths.
    EXPECT_EQ(iso.substr(5, 5), "nam a");
    EXPECT_EQ(iso.substr(17, 7), "uu 4500");
    EXPECT_EQ(std::stoul(iso.substr(0, 5)), iso.size());

    const Leido de_xml = DeXml(Registro(ficha, std::nullopt, Formato::MarcXml));
    EXPECT_EQ(de_xml.campos, c.campos);
    EXPECT_EQ(de_xml.lider.substr(5), "nam a2200000uu 4500");
  }
}

TEST(Registros, TagStringMarc21FitsIso2709) {
  // A 12 000-byte note (a two-byte character at the cut) and 30 fields of
  // 4 000 bytes: more than a field and a record of ISO 2709 hold.
  std::string etiquetas = "\xA6" "505" + std::string(9991, 'x') + std::string(1005, '\xE1');
  for (int i = 0; i < 30; ++i) etiquetas += "\xA6" "500" + std::string(4000, 'n');
  etiquetas += "\xCC";
  const records::RegFicha ficha = Ficha(3, etiquetas);
  const std::string iso = Registro(ficha, std::nullopt, Formato::Marc21);
  EXPECT_LE(iso.size(), 99999u);
  const Leido l = DeIso(iso);
  ASSERT_GE(l.campos.size(), 3u);
  EXPECT_LT(l.campos.size(), 32u);
  // 9 999 bytes: 2 indicators, "$a" (2), the text, the terminator.
  const std::string nota = l.campos[1];
  EXPECT_EQ(nota, "505   $a" + std::string(9991, 'x') + "\xC3\xA1");
  // MARCXML has no such limits.
  const Leido x = DeXml(Registro(ficha, std::nullopt, Formato::MarcXml));
  ASSERT_EQ(x.campos.size(), 32u);
  EXPECT_EQ(x.campos[1].size(), 8u + 9991 + 2 * 1005);
}

TEST(Registros, TagStringGivesDublinCore) {
  const std::string etiquetas =
      kEtiquetas.substr(0, kEtiquetas.size() - 1) +
      Latin1("¦245Ciencia & técnica <siglo XX> /¦300550 p. ; 18 cm.¦700Pérez, Juan,¦856"
             "http://x.mx/a?b=1&c=2;Texto completoÌ");
  const std::string esperado =
      "<srw_dc:dc xmlns:srw_dc=\"info:srw/schema/1/dc-schema\" "
      "xmlns:dc=\"http://purl.org/dc/elements/1.1/\">\n"
      "  <dc:title>Cien años de soledad / Gabriel García Márquez.</dc:title>\n"
      "  <dc:title>Ciencia &amp; técnica &lt;siglo XX&gt;</dc:title>\n"
      "  <dc:creator>García Márquez, Gabriel, 1927-2014.</dc:creator>\n"
      "  <dc:creator>Pérez, Juan</dc:creator>\n"
      "  <dc:subject>Novela colombiana</dc:subject>\n"
      "  <dc:subject>Realismo mágico</dc:subject>\n"
      "  <dc:description>Precio 15 €; ed. cœur.</dc:description>\n"
      "  <dc:publisher>Madrid : Cátedra, 1987.</dc:publisher>\n"
      "  <dc:date>1987</dc:date>\n"
      "  <dc:type>Text</dc:type>\n"
      "  <dc:format>550 p. ; 18 cm.</dc:format>\n"
      "  <dc:identifier>ISBN 84-376-0494-X</dc:identifier>\n"
      "  <dc:identifier>ISBN 968-16-1234-5</dc:identifier>\n"
      "  <dc:identifier>http://x.mx/a?b=1&amp;c=2</dc:identifier>\n"
      "  <dc:identifier>orvex:ficha:15</dc:identifier>\n"
      "  <dc:language>spa</dc:language>\n"
      "</srw_dc:dc>\n";
  EXPECT_EQ(Registro(Ficha(15, etiquetas), std::nullopt, Formato::DublinCore), esperado);

  // Without an 008 the year comes from the publication statement; a record
  // that is not language material has no type.
  records::RegFicha otra = Ficha(7, Latin1("¦264México : FCE, c1934-2001¦245Uno.Ì"));
  otra.TipoMaterial = 2;
  EXPECT_EQ(Registro(otra, std::nullopt, Formato::DublinCore),
            "<srw_dc:dc xmlns:srw_dc=\"info:srw/schema/1/dc-schema\" "
            "xmlns:dc=\"http://purl.org/dc/elements/1.1/\">\n"
            "  <dc:title>Uno.</dc:title>\n"
            "  <dc:publisher>México : FCE, c1934-2001</dc:publisher>\n"
            "  <dc:date>2001</dc:date>\n"
            "  <dc:identifier>orvex:ficha:7</dc:identifier>\n"
            "</srw_dc:dc>\n");
}

// --- records from their source ------------------------------------------------------

const std::vector<std::string> kCamposOrigen = {
    "001 r1",
    "008 870212s1987    sp            000 1 spa d",
    "020   $a84-376-0494-X :$c900 pts.",
    "100 1 $aGarcía Márquez, Gabriel,$d1927-2014.",
    "245 10$aCien años de soledad :$bnovela /$cGabriel García Márquez.",
    "260   $aMadrid :$bCátedra ;$aBarcelona :$bAriel,$c1987.",
    "264  4$c©1986",
    "300   $a550 p. ;$c18 cm.",
    "500   $aEdición <revisada> & aumentada.",
    "650  4$aNovela colombiana$zColombia$ySiglo XX.",
    "700 1 $aPérez, Juan,$eed.",
    "856 40$uhttp://x.mx/libro?id=1&f=2$yTexto",
};

TEST(Registros, Iso2709SourceComesBackAsItIs) {
  const std::string utf8 = Iso("00000nam a2200000 a 4500", kCamposOrigen);
  const records::RegFicha ficha = Ficha(15, Latin1("¦245OtroÌ"));
  EXPECT_EQ(Registro(ficha, OrigenIso(utf8), Formato::Marc21), utf8);
  const Leido xml = DeXml(Registro(ficha, OrigenIso(utf8), Formato::MarcXml));
  EXPECT_EQ(xml.campos, kCamposOrigen);
  EXPECT_EQ(xml.lider.substr(5), utf8.substr(5, 19));

  // A blank coding on UTF-8 bytes: the same record, coding "a".
  const std::string blanco = Iso("00000nam  2200000 a 4500", kCamposOrigen);
  std::string como_utf8 = blanco;
  como_utf8[9] = 'a';
  EXPECT_EQ(Registro(ficha, OrigenIso(blanco), Formato::Marc21), como_utf8);
  EXPECT_EQ(DeXml(Registro(ficha, OrigenIso(blanco), Formato::MarcXml)).campos, kCamposOrigen);
}


TEST(Registros, Iso2709SourceKeepsBytesYazWouldWriteOtherwise) {
  // An empty subfield (two delimiters in a row) YAZ reads past and would not
  // write again.
  const std::string crudo =
      IsoCrudo("nam a22 a 4500", {"001r9\x1E", "24510\x1F\x1F" "aCien a\xC3\xB1os.\x1E"});
  const records::RegFicha ficha = Ficha(15, Latin1("¦245OtroÌ"));
  EXPECT_EQ(Registro(ficha, OrigenIso(crudo), Formato::Marc21), crudo);
  EXPECT_EQ(DeXml(Registro(ficha, OrigenIso(crudo), Formato::MarcXml)).campos,
            (std::vector<std::string>{"001 r9", "245 10$aCien años."}));
}

TEST(Registros, Marc8SourceIsConvertedToUtf8) {
  // MARC-8 writes a diacritic before its letter: 0xE4 tilde, 0xE2 acute.
  const std::string marc8 = Iso("00000nam  2200000 a 4500",
                                {"001 m8", std::string("245 10$aCien a\xE4nos de \xE2") + "exito"});
  const std::vector<std::string> campos = {"001 m8", "245 10$aCien an\xCC\x83os de e\xCC\x81xito"};
  const records::RegFicha ficha = Ficha(4, Latin1("¦245OtroÌ"));
  const std::string iso = Registro(ficha, OrigenIso(marc8), Formato::Marc21);
  EXPECT_EQ(iso[9], 'a');
  EXPECT_EQ(DeIso(iso).campos, campos);
  const Leido xml = DeXml(Registro(ficha, OrigenIso(marc8), Formato::MarcXml));
  EXPECT_EQ(xml.campos, campos);
  EXPECT_EQ(xml.lider[9], 'a');
}

TEST(Registros, MarcXmlSourceComesBackAsItIs) {
  const std::string registro =
      std::string("<record xmlns=\"") + kMarc +
      "\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n"
      "  <leader>00000nam  2200000 a 4500</leader>\n"
      "  <controlfield tag='001'>x1</controlfield>\n"
      "  <datafield tag=\"245\" ind1=\"1\" ind2=\"0\"><subfield code=\"a\">Cien a&#241;os "
      "&amp; m&#225;s</subfield><subfield code=\"c\">G. García.</subfield></datafield>\n"
      "</record>";
  const std::vector<std::string> campos = {"001 x1", "245 10$aCien años & más$cG. García."};
  const records::RegFicha ficha = Ficha(9, Latin1("¦245OtroÌ"));
  EXPECT_EQ(Registro(ficha, OrigenXml(registro), Formato::MarcXml), registro);
  const std::string iso = Registro(ficha, OrigenXml(registro), Formato::Marc21);
  EXPECT_EQ(iso[9], 'a');
  EXPECT_EQ(DeIso(iso).campos, campos);

  // A prefixed record is given as it is too.
  const std::string prefijo = std::string("<m:record xmlns:m=\"") + kMarc +
                              "\"><m:leader>00000nam a2200000 a 4500</m:leader>"
                              "<m:controlfield tag=\"001\">x1</m:controlfield></m:record>";
  EXPECT_EQ(Registro(ficha, OrigenXml(prefijo), Formato::MarcXml), prefijo);

  // A leader with blank lengths is a sound MARCXML leader: the text as it
  // is, and a sound ISO 2709 record.
  const std::string blancos = std::string("<record xmlns=\"") + kMarc +
                              "\"><leader>     nam a22     4a 4500</leader><controlfield "
                              "tag=\"001\">x1</controlfield></record>";
  EXPECT_EQ(Registro(ficha, OrigenXml(blancos), Formato::MarcXml), blancos);
  const std::string iso_blancos = Registro(ficha, OrigenXml(blancos), Formato::Marc21);
  EXPECT_EQ(DeIso(iso_blancos).campos, std::vector<std::string>{"001 x1"});
  EXPECT_EQ(iso_blancos.substr(5, 19), "nam a22000374a 4500");

  // Without the namespace YAZ writes it, with the namespace, the same fields
  // and none of its notes about the leader (blank lengths, none at all: YAZ
  // makes one up) as comments.
  const std::string sin_espacio =
      "<record><controlfield tag=\"001\">x1</controlfield><datafield tag=\"245\" ind1=\"1\" "
      "ind2=\"0\"><subfield code=\"a\">Cien años &amp; más</subfield><subfield code=\"c\">G. "
      "García.</subfield></datafield></record>";
  for (const char* lider : {"<leader>00000nam a2200000 a 4500</leader>",
                            "<leader>     nam a22     4a 4500</leader>", ""}) {
    std::string texto = sin_espacio;
    texto.insert(8, lider);
    const std::string xml = Registro(ficha, OrigenXml(texto), Formato::MarcXml);
    EXPECT_EQ(xml.find("<!--"), std::string::npos) << xml;
    EXPECT_EQ(DeXml(xml).campos, campos) << lider;
    EXPECT_EQ(DeIso(Registro(ficha, OrigenXml(texto), Formato::Marc21)).campos, campos) << lider;
  }
}

TEST(Registros, DublinCoreComesFromTheSourceSubfields) {
  const std::string esperado =
      "<srw_dc:dc xmlns:srw_dc=\"info:srw/schema/1/dc-schema\" "
      "xmlns:dc=\"http://purl.org/dc/elements/1.1/\">\n"
      "  <dc:title>Cien años de soledad : novela</dc:title>\n"
      "  <dc:creator>García Márquez, Gabriel, 1927-2014.</dc:creator>\n"
      "  <dc:creator>Pérez, Juan, ed.</dc:creator>\n"
      "  <dc:subject>Novela colombiana -- Colombia -- Siglo XX.</dc:subject>\n"
      "  <dc:description>Edición &lt;revisada&gt; &amp; aumentada.</dc:description>\n"
      "  <dc:publisher>Cátedra</dc:publisher>\n"
      "  <dc:publisher>Ariel</dc:publisher>\n"
      "  <dc:date>1987</dc:date>\n"
      "  <dc:type>Text</dc:type>\n"
      "  <dc:format>550 p. ; 18 cm.</dc:format>\n"
      "  <dc:identifier>ISBN 84-376-0494-X</dc:identifier>\n"
      "  <dc:identifier>http://x.mx/libro?id=1&amp;f=2</dc:identifier>\n"
      "  <dc:identifier>orvex:ficha:15</dc:identifier>\n"
      "  <dc:language>spa</dc:language>\n"
      "</srw_dc:dc>\n";
  const records::RegFicha ficha = Ficha(15, Latin1("¦245OtroÌ"));
  const std::string iso = Iso("00000nam a2200000 a 4500", kCamposOrigen);
  EXPECT_EQ(Registro(ficha, OrigenIso(iso), Formato::DublinCore), esperado);
  // The same from its MARCXML.
  const std::string xml = Registro(ficha, OrigenIso(iso), Formato::MarcXml);
  EXPECT_EQ(Registro(ficha, OrigenXml(xml), Formato::DublinCore), esperado);

  // The type by leader position 6; the date from 008 when there is no $c of
  // publication (a 264 of copyright is none).
  const std::string mapa = Iso("00000nem a2200000 a 4500",
                               {"008 870212s1986    mx            000 1 spa d", "245 00$aMapa.",
                                "264  4$c©1986", "264  1$aMéxico :$bINEGI"});
  EXPECT_EQ(Registro(Ficha(2, ""), OrigenIso(mapa), Formato::DublinCore),
            "<srw_dc:dc xmlns:srw_dc=\"info:srw/schema/1/dc-schema\" "
            "xmlns:dc=\"http://purl.org/dc/elements/1.1/\">\n"
            "  <dc:title>Mapa.</dc:title>\n"
            "  <dc:publisher>INEGI</dc:publisher>\n"
            "  <dc:date>1986</dc:date>\n"
            "  <dc:type>Image</dc:type>\n"
            "  <dc:identifier>orvex:ficha:2</dc:identifier>\n"
            "  <dc:language>spa</dc:language>\n"
            "</srw_dc:dc>\n");
}

TEST(Registros, DamagedSourceFallsBackToTheTagString) {
  const std::string bueno = Iso("00000nam a2200000 a 4500", kCamposOrigen);
  const auto cambia = [&bueno](std::size_t posicion, const std::string& por) {
    std::string r = bueno;
    return r.replace(posicion, por.size(), por);
  };
  const std::string xml_bueno = std::string("<record xmlns=\"") + kMarc +
                                "\"><leader>00000nam a2200000 a 4500</leader>"
                                "<controlfield tag=\"001\">x1</controlfield></record>";
  const struct {
    const char* caso;
    Origen origen;
  } casos[] = {
      {"empty", OrigenIso("")},
      {"garbage", OrigenIso(std::string(300, '\x1E'))},
      {"length other than the leader's", OrigenIso(bueno + "x")},
      {"cut short", OrigenIso(bueno.substr(0, bueno.size() - 30))},
      {"no record terminator", OrigenIso(cambia(bueno.size() - 1, "\x1E"))},
      {"non-digit length", OrigenIso(cambia(0, "0a"))},
      {"base address past the record", OrigenIso(cambia(12, "99999"))},
      {"a directory entry off the record", OrigenIso(cambia(24 + 3, "9999"))},
      {"unknown coding", OrigenIso(cambia(9, "z"))},
      {"coding a on bytes that are not UTF-8", OrigenIso(cambia(bueno.size() - 10, "\xFF"))},
      {"not well-formed XML", OrigenXml(xml_bueno.substr(0, xml_bueno.size() - 3))},
      {"XML with a short leader", OrigenXml("<record><leader>00000nam</leader></record>")},
      {"XML of something else", OrigenXml("<collection>" + xml_bueno + "</collection>")},
      {"XML with a foreign element in the record",
       OrigenXml("<record><leader>00000nam a2200000 a 4500</leader><otro/></record>")},
      {"XML that is not UTF-8", OrigenXml("<record><leader>00000nam a2200000 a 4500</leader>"
                                          "<controlfield tag=\"001\">a\xF1o</controlfield>"
                                          "</record>")},
      {"an ISO 2709 record stored as MARCXML", OrigenXml(bueno)},
      {"MARCXML stored as ISO 2709", OrigenIso(xml_bueno)},
  };
  const records::RegFicha ficha = Ficha(15, kEtiquetas);
  for (const auto& c : casos) {
    for (Formato f : {Formato::Marc21, Formato::MarcXml, Formato::DublinCore}) {
      EXPECT_EQ(Registro(ficha, c.origen, f), Registro(ficha, std::nullopt, f))
          << c.caso << " " << static_cast<int>(f);
      // The source alone says it cannot give the record.
      EXPECT_FALSE(RegistroDeOrigen(c.origen, f)) << c.caso << " " << static_cast<int>(f);
    }
  }
  // The good ones are not taken for damaged, with or without the record.
  EXPECT_EQ(Registro(ficha, OrigenIso(bueno), Formato::Marc21), bueno);
  EXPECT_EQ(Registro(ficha, OrigenXml(xml_bueno), Formato::MarcXml), xml_bueno);
  EXPECT_EQ(RegistroDeOrigen(OrigenIso(bueno), Formato::Marc21), bueno);
  EXPECT_EQ(RegistroDeOrigen(OrigenXml(xml_bueno), Formato::MarcXml), xml_bueno);
  EXPECT_EQ(RegistroDeOrigen(OrigenIso(bueno), Formato::MarcXml),
            Registro(ficha, OrigenIso(bueno), Formato::MarcXml));
  EXPECT_FALSE(RegistroDeOrigen(OrigenIso(bueno), Formato::DublinCore));
}

// --- the source record in the catalogue ------------------------------------------------

// Creates the SQLite file `ruta` by running `sql`.
void CreaBase(const fs::path& ruta, const std::string& sql,
              const std::vector<std::tuple<int, std::string, std::string>>& filas = {}) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(ruta.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
  for (const auto& [ficha, formato, registro] : filas) {
    sqlite3_stmt* st = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, "INSERT INTO ORVEX_MARC VALUES (?,?,?)", -1, &st, nullptr),
              SQLITE_OK);
    sqlite3_bind_int(st, 1, ficha);
    sqlite3_bind_text(st, 2, formato.data(), static_cast<int>(formato.size()), SQLITE_STATIC);
    sqlite3_bind_blob(st, 3, registro.data(), static_cast<int>(registro.size()), SQLITE_STATIC);
    EXPECT_EQ(sqlite3_step(st), SQLITE_DONE);
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
}

std::unique_ptr<db::Database> Abre(const fs::path& ruta) {
  return db::OpenDatabase(ruta.string(), CodePage::Windows1252(), {.read_only = true});
}

TEST(LeeOrigen, ReadsTheRowOfTheRecordWhenTheCatalogueKeepsOne) {
  testing::DirectorioTemporal tmp;
  const std::string iso = Iso("00000nam a2200000 a 4500", kCamposOrigen);
  const std::string xml =
      std::string("<record xmlns=\"") + kMarc + "\"><leader>x</leader></record>";
  const fs::path ruta = tmp.ruta() / "KORVEL8.MDB";
  CreaBase(ruta,
           "CREATE TABLE \"Fichas\" (\"Ficha_No\" INTEGER PRIMARY KEY, \"EtiquetasMARC\" TEXT);"
           "CREATE TABLE \"ORVEX_MARC\" (\"Ficha_No\" INTEGER PRIMARY KEY, \"Formato\" TEXT NOT "
           "NULL, \"Registro\" BLOB NOT NULL)",
           {{1, "iso2709", iso}, {2, "marcxml", xml}, {4, "json", "{}"}});
  auto base = Abre(ruta);
  const std::optional<Origen> uno = LeeOrigen(*base, 1);
  ASSERT_TRUE(uno.has_value());
  EXPECT_FALSE(uno->xml);
  EXPECT_EQ(uno->bytes, iso);
  const std::optional<Origen> dos = LeeOrigen(*base, 2);
  ASSERT_TRUE(dos.has_value());
  EXPECT_TRUE(dos->xml);
  EXPECT_EQ(dos->bytes, xml);
  EXPECT_FALSE(LeeOrigen(*base, 3).has_value());  // no row
  EXPECT_FALSE(LeeOrigen(*base, 4).has_value());  // a format Orvex does not write
  EXPECT_FALSE(LeeOrigen(*base, 0).has_value());
  // Again, on the same database: the lookups do not depend on each other.
  EXPECT_EQ(LeeOrigen(*base, 1)->bytes, iso);
}

TEST(LeeOrigen, CataloguesWithoutTheTableKeepNoSource) {
  testing::DirectorioTemporal tmp;
  const fs::path otra = tmp.ruta() / "otra.mdb";
  CreaBase(otra, "CREATE TABLE \"ORVEX_MARC\" (\"Texto\" TEXT)");
  const fs::path catalogos = fs::path(ORVEX_FIXTURES) / "catalogo";
  for (const fs::path& ruta :
       {catalogos / "sqlite" / "KORVEL8.MDB", catalogos / "jet" / "KORVEL8.MDB", otra}) {
    auto base = Abre(ruta);
    EXPECT_FALSE(LeeOrigen(*base, 1).has_value()) << ruta;
  }
}

}  // namespace
}  // namespace orvex::marc
