#include "marc/Citas.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "marc/Registros.h"

namespace orvex::marc {
namespace {

constexpr const char* kMarc = "http://www.loc.gov/MARC21/slim";

// --- records to export -----------------------------------------------------------

std::string EscapaXml(std::string_view s) {
  std::string r;
  for (char c : s) {
    if (c == '&') r += "&amp;";
    else if (c == '<') r += "&lt;";
    else if (c == '>') r += "&gt;";
    else if (c == '\n') r += "&#10;";
    else r += c;
  }
  return r;
}

// A MARCXML source record: `campos` as lines, "001 r1" for a control field,
// "245 10$aTítulo$bresto" for a data field (indicators, then "$", code and
// text of each subfield).
Origen Xml(const std::string& lider, const std::vector<std::string>& campos) {
  std::string x = std::string("<record xmlns=\"") + kMarc + "\"><leader>" + lider + "</leader>";
  for (const std::string& c : campos) {
    const std::string tag = c.substr(0, 3);
    if (tag.starts_with("00")) {
      x += "<controlfield tag=\"" + tag + "\">" + EscapaXml(c.substr(4)) + "</controlfield>";
      continue;
    }
    x += "<datafield tag=\"" + tag + "\" ind1=\"" + c[4] + "\" ind2=\"" + c[5] + "\">";
    for (std::size_t p = c.find('$'); p != std::string::npos;) {
      const std::size_t q = c.find('$', p + 1);
      const std::string sub = c.substr(p + 1, q == std::string::npos ? q : q - p - 1);
      x += "<subfield code=\"" + sub.substr(0, 1) + "\">" + EscapaXml(sub.substr(1)) +
           "</subfield>";
      p = q;
    }
    x += "</datafield>";
  }
  return {true, x + "</record>"};
}

records::RegFicha Ficha(std::int32_t numero, const std::string& etiquetas,
                        std::int16_t tipo = 1) {
  records::RegFicha f;
  f.Ficha_no = numero;
  f.EtiquetasMARC = etiquetas;
  f.TipoMaterial = tipo;
  return f;
}

const std::vector<std::string> kCampos = {
    "001 r1",
    "008 870212s1987    sp            000 1 spa d",
    "020   $a84-376-0494-X :$c900 pts.",
    "022   $a0000-0019",
    "100 1 $aGarcía Márquez, Gabriel,$d1927-2014.",
    "245 10$aCien años de soledad :$bnovela /$cGabriel García Márquez.",
    "250   $a2a ed.",
    "260   $aMadrid :$bCátedra ;$aBarcelona :$bAriel,$c1987.",
    "300   $axii, 550 p. ;$c18 cm.",
    "490 0 $aLetras hispánicas ;$v215",
    "500   $aEdición <revisada> & aumentada.",
    "650  4$aNovela colombiana$zColombia$ySiglo XX.",
    "700 1 $aPérez, Juan,$eed.",
    "710 2 $aUniversidad Nacional Autónoma de México.$bInstituto de Filología.",
    "856 40$uhttp://x.mx/libro?id=1&f=2$yTexto",
};
const Origen kOrigen = Xml("00000nam a2200000 a 4500", kCampos);

// The tag string of the catalogue's record 15 (Windows-1252: "€" is 0x80).
const std::string kEtiquetas =
    Latin1("¦008850710s1987    sp            000 1 spa d¦020 84-376-0494-X \\ 968-16-1234-5 "
           "¦100García Márquez, Gabriel, 1927-2014.¦245Cien años de soledad / Gabriel García "
           "Márquez.¦260Madrid : Cátedra, 1987.¦650Novela colombiana \\ Realismo mágico¦500Precio "
           "15 ") +
    "\x80.\xCC";

std::vector<std::string> LineasRis(const std::string& ris) {
  std::vector<std::string> lineas;
  for (std::size_t p = 0; p < ris.size();) {
    const std::size_t fin = ris.find("\r\n", p);
    if (fin == std::string::npos) {
      lineas.push_back("(sin CR LF) " + ris.substr(p));
      break;
    }
    lineas.push_back(ris.substr(p, fin - p));
    p = fin + 2;
  }
  return lineas;
}

// The value of each line of `ris` with tag `tag`.
std::vector<std::string> Valores(const std::string& ris, const std::string& tag) {
  std::vector<std::string> v;
  for (const std::string& l : LineasRis(ris)) {
    if (l.starts_with(tag + "  - ")) v.push_back(l.substr(6));
  }
  return v;
}

// --- RIS and BibTeX of whole records ---------------------------------------------------

TEST(Citas, RisOfASourceRecordAndOfATagString) {
  const struct {
    const char* caso;
    records::RegFicha ficha;
    std::optional<Origen> origen;
    std::vector<std::string> lineas;
  } casos[] = {
      {"source record: subfields",
       Ficha(15, Latin1("¦245OtroÌ")),
       kOrigen,
       {"TY  - BOOK", "AU  - García Márquez, Gabriel", "AU  - Pérez, Juan",
        "AU  - Universidad Nacional Autónoma de México. Instituto de Filología",
        "TI  - Cien años de soledad : novela", "PY  - 1987", "ET  - 2a ed.", "CY  - Madrid",
        "PB  - Cátedra", "SP  - 550", "T3  - Letras hispánicas ; 215", "SN  - 84-376-0494-X",
        "SN  - 0000-0019", "N1  - Edición <revisada> & aumentada.",
        "KW  - Novela colombiana -- Colombia -- Siglo XX.", "LA  - spa",
        "UR  - http://x.mx/libro?id=1&f=2", "ID  - 15", "ER  - "}},
      {"tag string: whole texts",
       Ficha(15, kEtiquetas),
       std::nullopt,
       {"TY  - BOOK", "AU  - García Márquez, Gabriel", "TI  - Cien años de soledad",
        "PY  - 1987", "CY  - Madrid", "PB  - Cátedra", "SN  - 84-376-0494-X",
        "SN  - 968-16-1234-5", "N1  - Precio 15 €.", "KW  - Novela colombiana",
        "KW  - Realismo mágico", "LA  - spa", "ID  - 15", "ER  - "}},
      {"a damaged source: the tag string",
       Ficha(15, kEtiquetas),
       Origen{true, "<record><leader>corto</leader></record>"},
       {"TY  - BOOK", "AU  - García Márquez, Gabriel", "TI  - Cien años de soledad",
        "PY  - 1987", "CY  - Madrid", "PB  - Cátedra", "SN  - 84-376-0494-X",
        "SN  - 968-16-1234-5", "N1  - Precio 15 €.", "KW  - Novela colombiana",
        "KW  - Realismo mágico", "LA  - spa", "ID  - 15", "ER  - "}},
      {"an ISO 2709 source",
       Ficha(8, ""),
       Origen{false, *RegistroDeOrigen(Xml("00000nam a2200000 a 4500",
                                           {"245 00$aSolo t\xC3\xADtulo.", "300   $a2 v."}),
                                       Formato::Marc21)},
       {"TY  - BOOK", "TI  - Solo título", "ID  - 8", "ER  - "}},
      {"nothing at all", Ficha(3, "", 2), std::nullopt, {"TY  - GEN", "ID  - 3", "ER  - "}},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.caso);
    EXPECT_EQ(LineasRis(Ris(c.ficha, c.origen)), c.lineas);
  }
}

TEST(Citas, BibTexOfASourceRecordAndOfATagString) {
  EXPECT_EQ(BibTex(Ficha(15, ""), kOrigen),
            "@book{orvex15,\n"
            "  author = {García Márquez, Gabriel and Pérez, Juan and {Universidad Nacional "
            "Autónoma de México. Instituto de Filología}},\n"
            "  title = {Cien años de soledad : novela},\n"
            "  edition = {2a ed.},\n"
            "  address = {Madrid},\n"
            "  publisher = {Cátedra},\n"
            "  year = {1987},\n"
            "  series = {Letras hispánicas ; 215},\n"
            "  pagetotal = {550},\n"
            "  isbn = {84-376-0494-X},\n"
            "  issn = {0000-0019},\n"
            "  note = {Edición <revisada> \\& aumentada.},\n"
            "  keywords = {Novela colombiana -- Colombia -- Siglo XX.},\n"
            "  language = {spa},\n"
            "  url = {http://x.mx/libro?id=1&f=2},\n"
            "}\n");
  EXPECT_EQ(BibTex(Ficha(15, kEtiquetas), std::nullopt),
            "@book{orvex15,\n"
            "  author = {García Márquez, Gabriel},\n"
            "  title = {Cien años de soledad},\n"
            "  address = {Madrid},\n"
            "  publisher = {Cátedra},\n"
            "  year = {1987},\n"
            "  isbn = {84-376-0494-X, 968-16-1234-5},\n"
            "  note = {Precio 15 €.},\n"
            "  keywords = {Novela colombiana; Realismo mágico},\n"
            "  language = {spa},\n"
            "}\n");
}

// --- the parts of the description ---------------------------------------------------

TEST(Citas, PublicationStatementOfTheTagString) {
  const struct {
    const char* declaracion;
    std::vector<std::string> lugar, editorial, anio;
  } casos[] = {
      {"Madrid : Cátedra, 1987.", {"Madrid"}, {"Cátedra"}, {"1987"}},
      {"México : Siglo XXI Editores, S.A. de C.V., c1990", {"México"},
       {"Siglo XXI Editores, S.A. de C.V."}, {"1990"}},
      {"Madrid : Cátedra ; Barcelona : Ariel, 1987", {"Madrid"}, {"Cátedra"}, {"1987"}},
      {"México : FCE, c1934-2001", {"México"}, {"FCE"}, {"2001"}},
      {"Trillas, 1990", {}, {"Trillas"}, {"1990"}},
      {"[S.l.] : [s.n.], [199-]", {"[S.l.]"}, {"[s.n.]"}, {}},
      {"1990.", {}, {}, {"1990"}},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.declaracion);
    const std::string ris =
        Ris(Ficha(1, Latin1(std::string("¦245T¦260") + c.declaracion + "Ì")), std::nullopt);
    EXPECT_EQ(Valores(ris, "CY"), c.lugar);
    EXPECT_EQ(Valores(ris, "PB"), c.editorial);
    EXPECT_EQ(Valores(ris, "PY"), c.anio);
  }
  // A 264 when there is no 260; an 008's year first.
  EXPECT_EQ(Valores(Ris(Ficha(1, Latin1("¦264Lima : PUCP, 2003¦245TÌ")), std::nullopt), "PB"),
            std::vector<std::string>{"PUCP"});
  EXPECT_EQ(Valores(Ris(Ficha(1, Latin1("¦008850710s1985    pe¦260Lima : PUCP, 2003Ì")),
                        std::nullopt),
                    "PY"),
            std::vector<std::string>{"1985"});
}

TEST(Citas, SourcePublicationYearAndPages) {
  const struct {
    const char* caso;
    std::vector<std::string> campos;
    std::vector<std::string> lugar, editorial, anio, paginas;
  } casos[] = {
      {"a 264 of publication; a copyright date is none",
       {"264  4$c©1986", "264  1$aLima :$bPUCP,$c[2003?]", "300   $a350 páginas"},
       {"Lima"}, {"PUCP"}, {"2003"}, {"350"}},
      {"no $c: the 008's year", {"008 870212s1986    mx", "260   $bINEGI", "300   $a120 h."},
       {}, {"INEGI"}, {"1986"}, {"120"}},
      {"no pages in the extent", {"260   $aMéxico", "300   $a1 mapa ;$c30 x 40 cm"},
       {"México"}, {}, {}, {}},
      {"two volumes", {"300   $a2 v. (xx, 900 p.)"}, {}, {}, {}, {"900"}},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.caso);
    const std::string ris = Ris(Ficha(1, ""), Xml("00000nam a2200000 a 4500", c.campos));
    EXPECT_EQ(Valores(ris, "CY"), c.lugar);
    EXPECT_EQ(Valores(ris, "PB"), c.editorial);
    EXPECT_EQ(Valores(ris, "PY"), c.anio);
    EXPECT_EQ(Valores(ris, "SP"), c.paginas);
  }
}

TEST(Citas, AuthorsAsNames) {
  const struct {
    const char* caso;
    std::optional<Origen> origen;
    std::string etiquetas;
    std::vector<std::string> autores;
    std::string bibtex;
  } casos[] = {
      {"tag string: dates and final stops",
       std::nullopt,
       Latin1("¦100Juan Pablo II, Papa, 1920-2005.¦700Pérez, J. \\ Platón. \\ Ruiz, Ana,Ì"),
       {"Juan Pablo II, Papa", "Pérez, J.", "Platón", "Ruiz, Ana"},
       "Juan Pablo II, Papa and Pérez, J. and Platón and Ruiz, Ana"},
      {"source: a body and a meeting in braces",
       Xml("00000nam a2200000 a 4500",
           {"110 2 $aUNAM.$bFacultad de Ciencias.", "111 2 $aCongreso de Física$n(3o :$d1990)",
            "700 1 $aSmith & Wesson, John,$d1900-"}),
       "",
       {"UNAM. Facultad de Ciencias", "Congreso de Física", "Smith & Wesson, John"},
       "{UNAM. Facultad de Ciencias} and {Congreso de Física} and Smith \\& Wesson, John"},
      {"source: dates kept in $a are cut off as in $d",
       Xml("00000nam a2200000 a 4500", {"100 1 $aCastellanos, Rosario, 1925-1974."}),
       "",
       {"Castellanos, Rosario"},
       "Castellanos, Rosario"},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.caso);
    const records::RegFicha ficha = Ficha(2, c.etiquetas);
    EXPECT_EQ(Valores(Ris(ficha, c.origen), "AU"), c.autores);
    EXPECT_NE(BibTex(ficha, c.origen).find("  author = {" + c.bibtex + "},\n"), std::string::npos)
        << BibTex(ficha, c.origen);
  }
}

TEST(Citas, TypeByLeaderAndMaterial) {
  const struct {
    std::string tipo_nivel;  // leader positions 6 and 7; "" for the tag string
    std::int16_t material;
    const char* ris;
    const char* bibtex;
  } casos[] = {
      {"am", 1, "BOOK", "@book{"},      {"aa", 1, "CHAP", "@inbook{"},
      {"ab", 1, "JOUR", "@article{"},   {"as", 1, "JFULL", "@misc{"},
      {"tm", 1, "MANSCPT", "@misc{"},   {"cm", 1, "MUSIC", "@misc{"},
      {"jm", 1, "MUSIC", "@misc{"},     {"em", 1, "MAP", "@misc{"},
      {"gm", 1, "VIDEO", "@misc{"},     {"im", 1, "SOUND", "@misc{"},
      {"km", 1, "ART", "@misc{"},       {"mm", 1, "COMP", "@misc{"},
      {"rm", 1, "GEN", "@misc{"},       {"", 1, "BOOK", "@book{"},
      {"", 2, "GEN", "@misc{"},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.tipo_nivel + " " + std::to_string(c.material));
    const records::RegFicha ficha = Ficha(4, Latin1("¦245TÌ"), c.material);
    std::optional<Origen> origen;
    if (!c.tipo_nivel.empty()) {
      origen = Xml("00000n" + c.tipo_nivel + " a2200000 a 4500", {"245 00$aT"});
    }
    EXPECT_EQ(Valores(Ris(ficha, origen), "TY"), std::vector<std::string>{c.ris});
    EXPECT_TRUE(BibTex(ficha, origen).starts_with(std::string(c.bibtex) + "orvex4,\n"))
        << BibTex(ficha, origen);
  }
}

// --- escaping -------------------------------------------------------------------------------

TEST(Citas, TextsAreEscapedForEachFormat) {
  // "DOLAR" stands for "$", which Xml reads as a subfield delimiter.
  Origen origen =
      Xml("00000nam a2200000 a 4500",
          {"245 00$a50% de {todo} & DOLAR5 #1 a_b ~x^2 \\ fin",
           "500   $aLínea uno\nLínea dos\tTab",
           "856 40$uhttp://x.mx/a b{c}\\d?q=%20#f"});
  origen.bytes.replace(origen.bytes.find("DOLAR"), 5, "$");
  const records::RegFicha ficha = Ficha(6, "");
  const std::string bib = BibTex(ficha, origen);
  EXPECT_NE(bib.find("  title = {50\\% de \\{todo\\} \\& \\$5 \\#1 a\\_b \\textasciitilde{}x"
                     "\\textasciicircum{}2 \\textbackslash{} fin},\n"),
            std::string::npos)
      << bib;
  EXPECT_NE(bib.find("  note = {Línea uno Línea dos Tab},\n"), std::string::npos) << bib;
  EXPECT_NE(bib.find("  url = {http://x.mx/a%20b%7Bc%7D%5Cd?q=%20#f},\n"), std::string::npos)
      << bib;
  // RIS takes every character but line breaks.
  const std::string ris = Ris(ficha, origen);
  EXPECT_EQ(Valores(ris, "TI"),
            std::vector<std::string>{"50% de {todo} & $5 #1 a_b ~x^2 \\ fin"});
  EXPECT_EQ(Valores(ris, "N1"), std::vector<std::string>{"Línea uno Línea dos Tab"});
  EXPECT_EQ(LineasRis(ris).back(), "ER  - ");
  EXPECT_EQ(ris.find('\n'), ris.find("\r\n") + 1);
}

// --- the citation ------------------------------------------------------------------------------

TEST(Citas, CitationText) {
  std::string veintiuno;
  for (int i = 1; i <= 21; ++i) veintiuno += "¦700Autor" + std::to_string(i) + ", Nombre";
  const struct {
    const char* caso;
    std::string etiquetas;
    std::optional<Origen> origen;
    std::string cita;
  } casos[] = {
      {"one author", kEtiquetas, std::nullopt,
       "García Márquez, G. (1987). Cien años de soledad. Cátedra."},
      {"source: three authors, subtitle and edition", "", kOrigen,
       "García Márquez, G., Pérez, J., & Universidad Nacional Autónoma de México. Instituto de "
       "Filología. (1987). Cien años de soledad: novela (2a ed.). Cátedra."},
      {"two authors, compound and accented forenames",
       "¦100Sartre, Jean-Paul¦700Pérez López, Álvaro José¦245La náusea¦260Buenos Aires : "
       "Losada, 1947Ì",
       std::nullopt, "Sartre, J.-P., & Pérez López, Á. J. (1947). La náusea. Losada."},
      {"no author", "¦245Anuario estadístico.¦260México : INEGI, 2001Ì", std::nullopt,
       "Anuario estadístico. (2001). INEGI."},
      {"no year, no publisher, a question", "¦100Platón¦245¿Qué es la virtud?Ì", std::nullopt,
       "Platón. (s. f.). ¿Qué es la virtud?"},
      {"a title ending in an ellipsis keeps it", "¦245Y sin embargo...Ì", std::nullopt,
       "Y sin embargo... (s. f.)."},
      {"more than 20 authors", veintiuno + "¦245VariosÌ", std::nullopt,
       "Autor1, N., Autor2, N., Autor3, N., Autor4, N., Autor5, N., Autor6, N., Autor7, N., "
       "Autor8, N., Autor9, N., Autor10, N., Autor11, N., Autor12, N., Autor13, N., Autor14, "
       "N., Autor15, N., Autor16, N., Autor17, N., Autor18, N., Autor19, N., . . . Autor21, N. "
       "(s. f.). Varios."},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.caso);
    const std::string etiquetas = c.etiquetas == kEtiquetas ? c.etiquetas : Latin1(c.etiquetas);
    EXPECT_EQ(Cita(Ficha(15, etiquetas), c.origen), c.cita);
  }
}

// --- several records ----------------------------------------------------------------------------

std::vector<FichaConOrigen> Varias() {
  return {{Ficha(15, Latin1("¦245OtroÌ")), kOrigen},
          {Ficha(16, kEtiquetas), std::nullopt},
          {Ficha(17, Latin1("¦100Ruiz, Ana¦245Tercero & cuartoÌ")), std::nullopt}};
}

TEST(Exporta, SeveralRecordsInEachFormat) {
  const std::vector<FichaConOrigen> fichas = Varias();
  std::string ris, bib, iso;
  for (const FichaConOrigen& f : fichas) {
    ris += (ris.empty() ? "" : "\r\n") + Ris(f.ficha, f.origen);
    bib += (bib.empty() ? "" : "\n") + BibTex(f.ficha, f.origen);
    iso += Registro(f.ficha, f.origen, Formato::Marc21);
  }
  EXPECT_EQ(Exporta(Salida::Ris, fichas), ris);
  EXPECT_EQ(Valores(ris, "ID"), (std::vector<std::string>{"15", "16", "17"}));
  EXPECT_EQ(Exporta(Salida::BibTex, fichas), bib);
  EXPECT_EQ(Exporta(Salida::Marc21, fichas), iso);
  EXPECT_EQ(Exporta(Salida::Cita, fichas),
            Latin1("García Márquez, G., Pérez, J., & Universidad Nacional Autónoma de México. "
                   "Instituto de Filología. (1987). Cien años de soledad: novela (2a ed.). "
                   "Cátedra.\n"
                   "García Márquez, G. (1987). Cien años de soledad. Cátedra.\n"
                   "Ruiz, A. (s. f.). Tercero & cuarto.\n"));
  for (Salida s : {Salida::Ris, Salida::BibTex, Salida::Marc21, Salida::Cita}) {
    EXPECT_EQ(Exporta(s, {}), "") << static_cast<int>(s);
  }

  // MARCXML: one document, a <collection> of the records, each the record
  // Registro gives.
  const std::string xml = Exporta(Salida::MarcXml, fichas);
  EXPECT_TRUE(xml.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n")) << xml;
  xmlDoc* doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                              XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  ASSERT_NE(doc, nullptr) << xml;
  xmlNode* raiz = xmlDocGetRootElement(doc);
  EXPECT_STREQ(reinterpret_cast<const char*>(raiz->name), "collection");
  ASSERT_NE(raiz->ns, nullptr);
  EXPECT_STREQ(reinterpret_cast<const char*>(raiz->ns->href), kMarc);
  std::vector<std::string> registros;
  for (xmlNode* n = raiz->children; n != nullptr; n = n->next) {
    if (n->type != XML_ELEMENT_NODE) continue;
    EXPECT_STREQ(reinterpret_cast<const char*>(n->name), "record");
    EXPECT_TRUE(n->ns != nullptr &&
                std::strcmp(reinterpret_cast<const char*>(n->ns->href), kMarc) == 0);
    registros.emplace_back();
  }
  EXPECT_EQ(registros.size(), 3u);
  xmlFreeDoc(doc);
  for (const FichaConOrigen& f : fichas) {
    EXPECT_NE(xml.find(Registro(f.ficha, f.origen, Formato::MarcXml)), std::string::npos);
  }
  EXPECT_EQ(Exporta(Salida::MarcXml, {}),
            std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<collection xmlns=\"") +
                kMarc + "\">\n</collection>\n");
}

}  // namespace
}  // namespace orvex::marc
