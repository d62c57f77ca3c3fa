#include "xml/XMLTarjeta.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/CodePage.h"
#include "db/Database.h"
#include "records/CargaFicha.h"

namespace orvex::xml {
namespace {

namespace fs = std::filesystem;

const std::string kDeclaracion = "<?xml version='1.0'?>\r\n";
const std::string kSeccionesVacias =
    "<SECCIONES><Sclas></Sclas><Sa></Sa><S1></S1><S2></S2><Sisbn></Sisbn><Sr1></Sr1><Sr2></Sr2>"
    "</SECCIONES>";

std::string Tarjeta(std::string_view marc, std::string ejemplares = "") {
  records::RegFicha ficha;
  ficha.Ficha_no = 15;
  ficha.EtiquetasMARC = Latin1(marc);
  ficha.Ejemplares = std::move(ejemplares);
  return XMLTarjeta(ficha);
}

// A small well-formedness check of the documents written here: one root
// element, tags balanced and properly nested, attribute values quoted and
// free of "<" and of their own quote, no "<" or ">" in text, and every "&"
// starting one of the five predefined entities.
bool BienFormado(std::string_view doc) {
  if (!doc.starts_with(kDeclaracion)) return false;
  doc.remove_prefix(kDeclaracion.size());
  auto entidad_valida = [](std::string_view resto) {
    for (std::string_view e : {"&amp;", "&lt;", "&gt;", "&apos;", "&quot;"}) {
      if (resto.starts_with(e)) return true;
    }
    return false;
  };
  std::vector<std::string> abiertos;
  bool raiz_cerrada = false;
  for (std::size_t i = 0; i < doc.size();) {
    if (doc[i] == '&' && !entidad_valida(doc.substr(i))) return false;
    if (doc[i] == '>') return false;
    if (doc[i] != '<') {
      if (abiertos.empty()) return false;  // text outside the root
      ++i;
      continue;
    }
    const bool cierre = i + 1 < doc.size() && doc[i + 1] == '/';
    std::size_t j = i + (cierre ? 2 : 1);
    const std::size_t inicio_nombre = j;
    while (j < doc.size() && doc[j] != ' ' && doc[j] != '>' && doc[j] != '/') ++j;
    const std::string nombre(doc.substr(inicio_nombre, j - inicio_nombre));
    if (nombre.empty()) return false;
    // Attributes: name='value' or name="value".
    while (j < doc.size() && doc[j] == ' ') {
      const std::size_t igual = doc.find('=', j);
      if (igual == std::string_view::npos || igual + 1 >= doc.size()) return false;
      const char comilla = doc[igual + 1];
      if (comilla != '\'' && comilla != '"') return false;
      const std::size_t fin = doc.find(comilla, igual + 2);
      if (fin == std::string_view::npos) return false;
      const std::string_view valor = doc.substr(igual + 2, fin - igual - 2);
      if (valor.find('<') != std::string_view::npos) return false;
      for (std::size_t k = valor.find('&'); k != std::string_view::npos;
           k = valor.find('&', k + 1)) {
        if (!entidad_valida(valor.substr(k))) return false;
      }
      j = fin + 1;
    }
    const bool vacio = j < doc.size() && doc[j] == '/';
    if (vacio) ++j;
    if (j >= doc.size() || doc[j] != '>') return false;
    if (cierre) {
      if (abiertos.empty() || abiertos.back() != nombre) return false;
      abiertos.pop_back();
      if (abiertos.empty()) raiz_cerrada = true;
    } else {
      if (raiz_cerrada) return false;  // a second root
      if (!vacio) abiertos.push_back(nombre);
      if (vacio && abiertos.empty()) raiz_cerrada = true;
    }
    i = j + 1;
  }
  return raiz_cerrada && abiertos.empty();
}

TEST(XMLTarjeta, TheWellFormednessCheckRejectsBrokenDocuments) {
  EXPECT_TRUE(BienFormado(kDeclaracion + "<a x='1&amp;' y=\"'\"><b/>t &lt; u</a>"));
  for (std::string cuerpo :
       {"<a>&</a>", "<a>&amp</a>", "<a>x<b></a></b>", "<a x='L'0815'/>", "<a><b></a>", "<a/><b/>",
        "<a>b>c</a>", "x<a/>", "<a x=1/>", "<a x='<'/>", "<a>"}) {
    EXPECT_FALSE(BienFormado(kDeclaracion + cuerpo)) << cuerpo;
  }
}

TEST(XMLTarjeta, WritesEverySectionAndNoteAndEscapesThem) {
  EXPECT_EQ(Tarjeta(""), kDeclaracion + "<FICHA Numero='15'>" + kSeccionesVacias +
                             "<EXISTENCIAS></EXISTENCIAS></FICHA>");
  const std::string doc = Tarjeta(
      "¦082<863> & 'x'¦100O'Brien, Michael J.¦245El teorema de O'Brien : cuando a < b & c."
      "¦300\"212\" p.¦500Nota <1> \\ Nota & 2¦520Resumen¦700Uno & dos¦650A > BÌ",
      "L'0815,Humanidades & <Sala>,2,v. \"3\",,S,14/jun/2004\r\n");
  EXPECT_EQ(doc, kDeclaracion +
                     "<FICHA Numero='15'><SECCIONES><Sclas>&lt;863&gt; &amp; &apos;x&apos;</Sclas>"
                     "<Sa>O&apos;Brien, Michael J.</Sa>"
                     "<S1>El teorema de O&apos;Brien : cuando a &lt; b &amp; c.</S1>"
                     "<S2>&quot;212&quot; p.</S2><Sisbn></Sisbn>"
                     "<Snotas>Nota &lt;1&gt;</Snotas><Snotas>Nota &amp; 2</Snotas>"
                     "<Snotas>Resumen</Snotas><Sr1>1. A &gt; B.</Sr1><Sr2>I. Uno &amp; dos.</Sr2>"
                     "</SECCIONES><EXISTENCIAS>"
                     "<EJEMPLAR NoAdq='L&apos;0815' Biblio='Humanidades &amp; &lt;Sala&gt;' "
                     "Vol='v. &quot;3&quot;' Ejemplar='2' Tomo=''/>"
                     "</EXISTENCIAS></FICHA>");
  EXPECT_TRUE(BienFormado(doc));
}

TEST(XMLTarjeta, TakesTheCopyValuesByPositionEvenWhenAValueHoldsAComma) {
  struct Case {
    const char* linea;
    const char* ejemplar;
  } cases[] = {
      {"A1,Central,3,v. 2,II,S,05/mar/2008",
       "NoAdq='A1' Biblio='Central' Vol='v. 2' Ejemplar='3' Tomo='II'"},
      {"A1,Central", "NoAdq='A1' Biblio='Central' Vol='' Ejemplar='' Tomo=''"},
      {"1998,0042,Central,2,v. 3,,S,15/sep/2002",
       "NoAdq='1998,0042' Biblio='Central' Vol='v. 3' Ejemplar='2' Tomo=''"},
      {"000777,Central, Sala de Consulta,2,,,S,09/abr/2003",
       "NoAdq='000777' Biblio='Central, Sala de Consulta' Vol='' Ejemplar='2' Tomo=''"},
      {"1998,0042,Central, Sala, Planta 2,1,v. 1,t. 2,N,01/ene/2000",
       "NoAdq='1998,0042' Biblio='Central, Sala, Planta 2' Vol='v. 1' Ejemplar='1' Tomo='t. 2'"},
      {"A1, B, C,1,,,S,01/ene/2000", "NoAdq='A1' Biblio=' B, C' Vol='' Ejemplar='1' Tomo=''"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Tarjeta("", std::string(c.linea) + "\r\n"),
              kDeclaracion + "<FICHA Numero='15'>" + kSeccionesVacias + "<EXISTENCIAS><EJEMPLAR " +
                  c.ejemplar + "/></EXISTENCIAS></FICHA>")
        << c.linea;
  }
  // Blank lines give no copy; a last line without its line end does.
  EXPECT_EQ(
      Tarjeta("", "\r\nA,B,1,,,S,x\r\n\r\nC,D,2,,,N,y"),
      kDeclaracion + "<FICHA Numero='15'>" + kSeccionesVacias +
          "<EXISTENCIAS><EJEMPLAR NoAdq='A' Biblio='B' Vol='' Ejemplar='1' Tomo=''/>"
          "<EJEMPLAR NoAdq='C' Biblio='D' Vol='' Ejemplar='2' Tomo=''/></EXISTENCIAS></FICHA>");
}

std::unique_ptr<db::Database> Catalogo() {
  return db::OpenDatabase(
      (fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "KORVEL8.MDB").string(),
      CodePage::Windows1252(), {.read_only = true});
}

TEST(XMLTarjeta, GivesTheCardOfFixtureRecordOne) {
  auto db = Catalogo();
  records::RegFicha ficha;
  records::CargaFicha(*db, 1, ficha);
  EXPECT_EQ(XMLTarjeta(ficha),
            Latin1("<?xml version='1.0'?>\r\n"
                   "<FICHA Numero='1'><SECCIONES><Sclas>PQ8180.17.A73  C5 1987</Sclas>"
                   "<Sa>García Márquez, Gabriel, 1927-2014.</Sa>"
                   "<S1>Cien años de soledad / Gabriel García Márquez ; edición de Jacques Joset. "
                   "-- 2a ed. -- Madrid : Cátedra, 1987.</S1>"
                   "<S2>550 p. ; 18 cm. -- (Letras hispánicas ; 215)</S2>"
                   "<Sisbn>ISBN 84-376-0494-X</Sisbn>"
                   "<Snotas>Bibliografía: p. 53-57.</Snotas>"
                   "<Sr1>1. Novela colombiana -- Siglo XX. 2. Realismo mágico (Literatura). "
                   "3. Macondo (Lugar imaginario) -- Novela.</Sr1>"
                   "<Sr2>I. Joset, Jacques, ed.</Sr2></SECCIONES><EXISTENCIAS>"
                   "<EJEMPLAR NoAdq='000200' Biblio='Ingeniería' Vol='' Ejemplar='1' Tomo=''/>"
                   "<EJEMPLAR NoAdq='1998,0042' Biblio='Central' Vol='v. 3' Ejemplar='2' Tomo=''/>"
                   "</EXISTENCIAS></FICHA>"));
}

TEST(XMLTarjeta, CardsOfAllFixtureRecordsAreWellFormed) {
  auto db = Catalogo();
  std::vector<std::int32_t> numeros;
  auto rs = db->OpenRecordset("select Ficha_no from Fichas", db::RecordsetType::Snapshot);
  for (; !rs->Eof(); rs->MoveNext()) numeros.push_back(std::stoi(rs->Field("Ficha_no").AsText()));
  rs->Close();
  ASSERT_GT(numeros.size(), 300u);
  for (std::int32_t numero : numeros) {
    records::RegFicha ficha;
    records::CargaFicha(*db, numero, ficha);
    ASSERT_EQ(ficha.Ficha_no, numero);
    EXPECT_TRUE(BienFormado(XMLTarjeta(ficha))) << numero;
  }
  // Record 3 holds the copy "L'0815", record 15 a title with "<".
  records::RegFicha ficha;
  records::CargaFicha(*db, 3, ficha);
  EXPECT_NE(XMLTarjeta(ficha).find("NoAdq='L&apos;0815' Biblio='Humanidades'"), std::string::npos);
  records::CargaFicha(*db, 15, ficha);
  EXPECT_NE(XMLTarjeta(ficha).find("cuando a &lt; b"), std::string::npos);
}

}  // namespace
}  // namespace orvex::xml
