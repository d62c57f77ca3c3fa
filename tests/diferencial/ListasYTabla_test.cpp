// The word lists that orvex-catalogo keeps beside the book word table are an
// acceleration: every request must give, byte for byte, the page that the
// word table gives. Thousands of seeded random reader queries (words in
// every spelling, "$" anywhere, phrases of 0 to 33 words, quotes in odd
// places, every operator spelling, the simple form's boxes and the advanced
// form's, paging) run through the whole request in this process, once over
// a catalogue with its lists and once over the same files with the lists
// voided.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/CodePage.h"
#include "bench/Azar.h"
#include "db/Database.h"
#include "tests/support/Catalogos.h"
#include "tests/support/Fakes.h"
#include "tests/support/Formulario.h"

namespace orvex {
namespace {

using testing::CatalogosPrueba;
using testing::Forma;
using testing::Instalacion;
using testing::Codifica;

constexpr int kConsultasPorTanda = 250;
constexpr int kTandas = 12;

using bench::Azar;

// Texts of the catalogue's own records (titles, subjects, notes...), split
// into words in the form's code page, for phrases that find something.
std::vector<std::vector<std::string>> TextosDelCatalogo() {
  const std::string bytes = testing::RegistrosSinteticos(400, 1957);
  std::vector<std::vector<std::string>> textos;
  std::size_t i = 0;
  while ((i = bytes.find('\x1F', i)) != std::string::npos) {
    const std::size_t fin = bytes.find_first_of("\x1E\x1F", i + 1);
    const std::string sub = bytes.substr(i + 2, fin - i - 2);
    i = fin;
    std::vector<std::string> palabras;
    std::string w;
    for (std::size_t k = 0; k <= sub.size(); ++k) {
      const unsigned char c = k < sub.size() ? static_cast<unsigned char>(sub[k]) : ' ';
      if (c == 0xC3 && k + 1 < sub.size()) {  // UTF-8 of Latin-1 letters: one byte
        w += static_cast<char>(static_cast<unsigned char>(sub[++k]) + 0x40);
      } else if (c == ' ' || c == ',' || c == '.' || c == ':' || c == ';') {
        if (!w.empty()) palabras.push_back(w);
        w.clear();
      } else {
        w += static_cast<char>(c);
      }
    }
    if (palabras.size() >= 2) textos.push_back(palabras);
  }
  return textos;
}

constexpr std::array<std::string_view, 30> kPalabras = {
    "historia", "HISTORIA", "Historia", "mexico", "M\xC9XICO", "m\xE9xico", "medicina",
    "MEDICINA", "de", "DE", "la", "el", "y", "arte", "artes", "comput", "computaci\xF3n",
    "c\xF3mputo", "ni\xF1o", "a\xF1os", "ling\xFC\xEDstica", "fran\xE7" "ais", "1910", "xx",
    "o'brien", "villase\xF1or", "tamo", "xir\xFA", "zzzz", "casa"};

// The operators in each spelling the language reads, and the signs with
// and without blanks.
constexpr std::array<std::string_view, 17> kOperadores = {
    " ", " Y ", " y ", " AND ", " and ", " O ", " o ", " OR ", " Or ", " NO ", " no ",
    " NOT ", "*", " * ", "+", " +", "-"};

// A word with "$" now and then: at the end, in the middle, at the start,
// doubled, or alone.
std::string Palabra(Azar& azar, const std::vector<std::vector<std::string>>& textos) {
  std::string w = azar.UnaEn(3) ? textos[azar.Menor(textos.size())][0] : std::string(azar.Uno(kPalabras));
  switch (azar.Menor(12)) {
    case 0: w += "$"; break;
    case 1: w.insert(azar.Menor(w.size() + 1), "$"); break;
    case 2: w = "$" + w; break;
    case 3: w += "$$"; break;
    case 4: if (azar.UnaEn(4)) w = "$"; break;
    default: break;
  }
  return w;
}

// A phrase of 0 to 33 words: mostly a run of a record's own words, else
// random words; quotes closed or not.
std::string Frase(Azar& azar, const std::vector<std::vector<std::string>>& textos) {
  std::vector<std::string> palabras;
  const std::size_t n = azar.UnaEn(8) ? azar.Menor(34) : azar.Menor(5);
  if (azar.UnaEn(2)) {
    const auto& t = textos[azar.Menor(textos.size())];
    const std::size_t desde = azar.Menor(t.size());
    for (std::size_t k = desde; k < t.size() && palabras.size() < n; ++k) palabras.push_back(t[k]);
  }
  while (palabras.size() < n) palabras.push_back(Palabra(azar, textos));
  std::string f = "\"";
  for (std::size_t k = 0; k < palabras.size(); ++k) {
    if (k > 0) f += azar.UnaEn(10) ? "  " : " ";
    f += palabras[k];
    if (azar.UnaEn(15)) f += "$";
  }
  if (azar.UnaEn(6)) f.insert(1, " ");
  if (!azar.UnaEn(8)) f += "\"";
  return f;
}

// A reader's expression: terms joined by operators, with quotes, blanks and
// signs in odd places now and then.
std::string Expresion(Azar& azar, const std::vector<std::vector<std::string>>& textos) {
  std::string e;
  // Mostly one or two terms, as readers type them; now and then none or many.
  constexpr std::array<std::size_t, 16> kTerminos = {0, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 4, 6};
  const std::size_t terminos = azar.Uno(kTerminos);
  for (std::size_t t = 0; t < terminos; ++t) {
    if (t > 0) e += azar.Uno(kOperadores);
    e += azar.UnaEn(4) ? Frase(azar, textos) : Palabra(azar, textos);
  }
  if (e.empty() && !azar.UnaEn(4)) e = Palabra(azar, textos);
  switch (azar.Menor(24)) {
    case 0: e.insert(azar.Menor(e.size() + 1), "\""); break;
    case 1: e.insert(azar.Menor(e.size() + 1), "\"\""); break;
    case 2: e = "\"\"" + e + "\"\""; break;
    case 3: e += " \" \""; break;
    case 4: e.insert(0, azar.UnaEn(2) ? " -" : "+ "); break;
    case 5: e += azar.UnaEn(2) ? " Y" : " -"; break;
    default: break;
  }
  return e;
}

// One request of the book forms: the simple one (the search box, and the
// title, author and subject boxes) or the advanced one, with paging.
std::string Consulta(Azar& azar, const std::vector<std::vector<std::string>>& textos) {
  constexpr std::array<std::string_view, 3> kCfg = {"demo.cfg", "e2e_libros.cfg", "demo.cfg"};
  std::string q = "ArchivoCFG=" + std::string(azar.Uno(kCfg)) + "&ACERVO=libros";
  if (azar.UnaEn(3)) {
    q += "&BUSQ_AVANZADA=1";
    for (int caja = 1; caja <= 3; ++caja) {
      if (caja == 1 || azar.UnaEn(3)) {
        q += "&txtEXPR" + std::to_string(caja) + "=" + Codifica(Expresion(azar, textos));
      }
      constexpr std::array<int, 10> kCampos = {0, 1, 2, 3, 4, 5, 7, 8, 10, 11};
      q += "&opCAMPO" + std::to_string(caja) + "=" + std::to_string(azar.Uno(kCampos));
      if (caja < 3) q += "&opBOOLEAN" + std::to_string(caja) + "=" + std::to_string(azar.Menor(3));
    }
  } else {
    q += "&txtLIB=" + Codifica(Expresion(azar, textos));
    for (const char* caja : {"txtTIT", "txtAUT", "txtTEM"}) {
      if (azar.UnaEn(8)) q += std::string("&") + caja + "=" + Codifica(Expresion(azar, textos));
    }
  }
  constexpr std::array<std::string_view, 8> kDesde = {"1", "1", "11", "21", "0", "-5", "97", "x"};
  constexpr std::array<std::string_view, 5> kCantidad = {"10", "10", "1", "25", "3"};
  q += "&FichaINI=" + std::string(azar.Uno(kDesde)) + "&Cantidad=" + std::string(azar.Uno(kCantidad));
  if (azar.UnaEn(3)) q += "&mostrarFICHABIB=1";
  return q;
}

// Where two pages part, with some bytes of each around it.
std::string Diferencia(const std::string& a, const std::string& b) {
  std::size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
  const std::size_t desde = i < 80 ? 0 : i - 80;
  return "byte " + std::to_string(i) + "\n  listas: " + a.substr(desde, 240) +
         "\n  tabla:  " + b.substr(desde, 240);
}

// The records a page says it found (its "NoResultados" comment), -1 when
// it says none.
long Encontradas(const std::string& pagina) {
  const std::size_t i = pagina.find("<!--NoResultados: ");
  if (i == std::string::npos) return -1;
  return std::strtol(pagina.c_str() + i + 18, nullptr, 10);
}

// The two installations, made once for each suite.
class ListasYTabla : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (dir_ != nullptr) return;
    dir_ = new testing::DirectorioTemporal();
    catalogos_ = new CatalogosPrueba(dir_->ruta() / "catalogos", ORVEX_RAIZ);
    listas_ = new Instalacion(dir_->ruta() / "listas", catalogos_->Bases(Forma::Listas), ORVEX_RAIZ);
    tabla_ = new Instalacion(dir_->ruta() / "tabla", catalogos_->Bases(Forma::Tabla), ORVEX_RAIZ);
    textos_ = new std::vector<std::vector<std::string>>(TextosDelCatalogo());
  }
  static void TearDownTestSuite() {
    delete textos_;
    delete tabla_;
    delete listas_;
    delete catalogos_;
    delete dir_;
    dir_ = nullptr;
  }

  static testing::DirectorioTemporal* dir_;
  static CatalogosPrueba* catalogos_;
  static Instalacion* listas_;
  static Instalacion* tabla_;
  static std::vector<std::vector<std::string>>* textos_;
};

testing::DirectorioTemporal* ListasYTabla::dir_ = nullptr;
CatalogosPrueba* ListasYTabla::catalogos_ = nullptr;
Instalacion* ListasYTabla::listas_ = nullptr;
Instalacion* ListasYTabla::tabla_ = nullptr;
std::vector<std::vector<std::string>>* ListasYTabla::textos_ = nullptr;

class Tandas : public ListasYTabla, public ::testing::WithParamInterface<int> {};

TEST_P(Tandas, RandomReaderQueriesGiveTheSamePageThroughBothForms) {
  Azar azar(0x6F72766578ull + static_cast<std::uint64_t>(GetParam()));
  int con_fichas = 0, con_varias = 0;
  for (int n = 0; n < kConsultasPorTanda; ++n) {
    const std::string q = Consulta(azar, *textos_);
    int estado_listas = -1, estado_tabla = -1;
    const std::string a = testing::SinSugerencias(listas_->Pagina(q, {}, &estado_listas));
    const std::string b = testing::SinSugerencias(tabla_->Pagina(q, {}, &estado_tabla));
    ASSERT_EQ(estado_listas, 0) << q;
    ASSERT_EQ(estado_tabla, 0) << q;
    ASSERT_FALSE(a.empty()) << q;
    ASSERT_TRUE(a == b) << q << "\n" << Diferencia(a, b);
    const long encontradas = Encontradas(a);
    con_fichas += encontradas > 0;
    con_varias += encontradas > 10;
  }
  // The comparison means something only when the searches find records,
  // enough of them to page through.
  EXPECT_GT(con_fichas, kConsultasPorTanda / 5);
  EXPECT_GT(con_varias, kConsultasPorTanda / 20);
}

INSTANTIATE_TEST_SUITE_P(ListasYTabla, Tandas, ::testing::Range(0, kTandas));

// The catalogue reaches what the lists do differently from the table: a
// word whose rows fill more than one chunk, and lists that are in force in
// one copy and void in the other.
TEST_F(ListasYTabla, TheCatalogueHasWordsOverSeveralChunksAndVoidLists) {
  const auto consulta = [](Forma forma, const char* sql) {
    auto db = db::OpenDatabase((catalogos_->Bases(forma) / "INDIZADO.MDB").string(),
                               CodePage::Windows1252(), {.read_only = true});
    return db->OpenRecordset(sql, db::RecordsetType::Snapshot)->Field("n").integer;
  };
  EXPECT_GE(consulta(Forma::Listas, "SELECT max(trozo) AS n FROM ORVEX_LISTAS"), 1);
  EXPECT_EQ(consulta(Forma::Listas, "SELECT count(*) AS n FROM ORVEX_VIGENCIA"), 1);
  EXPECT_EQ(consulta(Forma::Tabla, "SELECT count(*) AS n FROM ORVEX_VIGENCIA"), 0);
}

// The phrases that hold no word, which once stopped the process, in every
// box that takes them: each gives a page, the same through both.
TEST_F(ListasYTabla, PhrasesWithoutWordsGiveAPage) {
  for (const char* texto : {"\"\"", "\"", "\" \"", "\"\"historia\"\"", "a \"\"", "\"$\"", "\"  \""}) {
    for (const char* caja : {"txtLIB=", "txtTIT=", "txtAUT=", "txtTEM=", "BUSQ_AVANZADA=1&txtEXPR1=",
                             "BUSQ_AVANZADA=1&txtEXPR1=historia&txtEXPR2="}) {
      const std::string q = std::string("ArchivoCFG=demo.cfg&ACERVO=libros&") + caja + Codifica(texto);
      int estado = -1;
      const std::string a = listas_->Pagina(q, {}, &estado);
      EXPECT_EQ(estado, 0) << q;
      EXPECT_NE(a.find("</html>"), std::string::npos) << q;
      EXPECT_EQ(a, tabla_->Pagina(q)) << q;
    }
  }
}

}  // namespace
}  // namespace orvex
