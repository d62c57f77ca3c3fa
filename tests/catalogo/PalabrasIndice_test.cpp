#include "catalogo/PalabrasIndice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/CodePage.h"
#include "catalogo/LectorISO2709.h"
#include "catalogo/TextoMARC.h"
#include "tests/support/MARCPrueba.h"

namespace orvex::catalogo {
namespace {

using Palabras = std::vector<std::string>;

Palabras Parte(const std::string& utf8) {
  Palabras p;
  PartePalabras(ParaIndice(utf8), p);
  for (std::string& w : p) w = CodePage::Windows1252().ToUtf8(w);
  return p;
}

TEST(PartePalabras, FollowsTheSearchWordRules) {
  struct {
    const char* texto;
    Palabras palabras;
  } casos[] = {
      {"Álgebra", {"ALGEBRA"}},
      {"Curso de lingüística", {"CURSO", "DE", "LINGUISTICA"}},
      {"Cien años", {"CIEN", "AÑOS"}},
      {"Grammaire du français, Maïa", {"GRAMMAIRE", "DU", "FRANÇAIS", "MAIA"}},
      {"O'Brien", {"O", "BRIEN"}},
      {"$100 y 20%", {"100", "Y", "20"}},
      {"pâté", {"P", "TE"}},  // â is no word character
      {"Łódź 1999", {"OD", "1999"}},  // Ł and ź are not in the code page
      {"  ", {}},
      {"ÀÈÌÒÙ àèìòù ÄËÏÖÜ", {"AEIOU", "AEIOU", "AEIOU"}},
  };
  for (const auto& c : casos) EXPECT_EQ(Parte(c.texto), c.palabras) << c.texto;
}

TEST(PartePalabras, CutsLongWordsToTheColumn) {
  const Palabras p = Parte(std::string(60, 'x') + " ñ" + std::string(60, 'y'));
  ASSERT_EQ(p.size(), 2u);
  EXPECT_EQ(p[0], std::string(50, 'X'));
  EXPECT_EQ(p[1], "Ñ" + std::string(49, 'Y'));
}

struct Entrada {
  std::string palabra;
  int campo, posicion;
  bool operator==(const Entrada&) const = default;
};

std::ostream& operator<<(std::ostream& o, const Entrada& e) {
  return o << e.palabra << "/" << e.campo << "/" << e.posicion;
}

std::vector<Entrada> Entradas(const std::vector<Grupo>& grupos, Acervo acervo = Acervo::kLibros) {
  std::vector<PalabraIndice> salida = {{"basura", 1, 1}};
  PalabrasDeFicha(grupos, salida, acervo);
  std::vector<Entrada> v;
  for (const PalabraIndice& p : salida) {
    v.push_back({CodePage::Windows1252().ToUtf8(p.palabra), p.campo, p.posicion});
  }
  return v;
}

TEST(PalabrasDeFicha, PositionsLeaveGapsBetweenOccurrencesAndFields) {
  const std::vector<Grupo> grupos = {
      {"001", {"123"}},
      {"020", {"84-376-0494-X (rústica)", "ISBN 0-19-852663-6 15.00 EUR", "sin número"}},
      {"082", {"Co863  G216c", "QA76.73 .C15 2001"}},
      {"245", {"El niño / Ana"}},
      {"300", {"212 p."}},
      {"650", {"Gatos", "--", "Perros -- Siglo XX"}},
      {"260", {"México : Trillas, 2005."}},
  };
  EXPECT_EQ(Entradas(grupos), (std::vector<Entrada>{
                                  {"843760494X", 4, 1},
                                  {"0198526636", 4, 12},
                                  {"CO863G216C", 7, 23},
                                  {"QA7673C152001", 7, 34},
                                  {"EL", 1, 45},
                                  {"NIÑO", 1, 46},
                                  {"ANA", 1, 47},
                                  {"GATOS", 3, 58},
                                  {"PERROS", 3, 69},
                                  {"SIGLO", 3, 70},
                                  {"XX", 3, 71},
                                  {"MEXICO", 5, 82},
                                  {"TRILLAS", 5, 83},
                                  {"2005", 5, 84},
                              }));
}

TEST(CampoIndice, EachCollectionIndexesItsOwnFields) {
  const struct {
    const char* etiqueta;
    int libros, revistas, articulos;
  } casos[] = {
      {"245", 1, 1, 1}, {"130", 1, 1, 1}, {"490", 1, 1, 1}, {"100", 2, 0, 2},
      {"710", 2, 0, 2}, {"650", 3, 3, 3}, {"651", 3, 3, 3}, {"020", 4, 0, 0},
      {"022", 4, 0, 0}, {"260", 5, 2, 0}, {"082", 7, 0, 0}, {"505", 8, 0, 0},
      {"310", 0, 0, 0}, {"773", 0, 0, 0}, {"852", 0, 0, 0}, {"65", 0, 0, 0},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(CampoIndice(c.etiqueta, Acervo::kLibros), c.libros) << c.etiqueta;
    EXPECT_EQ(CampoIndice(c.etiqueta, Acervo::kRevistas), c.revistas) << c.etiqueta;
    EXPECT_EQ(CampoIndice(c.etiqueta, Acervo::kArticulos), c.articulos) << c.etiqueta;
  }
}

// The gaps fall between indexed fields only: unindexed ones leave none.
TEST(PalabrasDeFicha, PeriodicalsPutThePublisherWhereBooksPutTheAuthor) {
  const std::vector<Grupo> grupos = {
      {"022", {"0041-3011"}},
      {"110", {"Fondo de Cultura"}},
      {"245", {"Ciencia"}},
      {"260", {"México : FCE"}},
      {"310", {"Trimestral"}},
      {"650", {"Economía"}},
  };
  EXPECT_EQ(Entradas(grupos, Acervo::kRevistas), (std::vector<Entrada>{
                                                     {"CIENCIA", 1, 1},
                                                     {"MEXICO", 2, 12},
                                                     {"FCE", 2, 13},
                                                     {"ECONOMIA", 3, 24},
                                                 }));
  EXPECT_EQ(Entradas(grupos, Acervo::kArticulos), (std::vector<Entrada>{
                                                      {"FONDO", 2, 1},
                                                      {"DE", 2, 2},
                                                      {"CULTURA", 2, 3},
                                                      {"CIENCIA", 1, 14},
                                                      {"ECONOMIA", 3, 25},
                                                  }));
}

TEST(PalabrasDeFicha, StopsAtTheLastSixteenBitPosition) {
  std::string nota;
  for (int i = 0; i < 33000; ++i) nota += "a ";
  std::vector<PalabraIndice> salida;
  PalabrasDeFicha({{"500", {nota}}, {"245", {"titulo"}}}, salida);
  ASSERT_EQ(salida.size(), static_cast<std::size_t>(kMaximaPosicion));
  EXPECT_EQ(salida.back().posicion, kMaximaPosicion);
  EXPECT_EQ(salida.back().campo, 8);
}

// The fixture catalogue's rows (descripcion/*.tsv), built by a reference
// indexer from records like the ones below.
std::vector<std::vector<std::string>> FilasTSV(const std::string& archivo) {
  std::ifstream f(std::filesystem::path(ORVEX_FIXTURES) / "catalogo/descripcion" / archivo);
  std::vector<std::vector<std::string>> filas;
  std::string linea;
  while (std::getline(f, linea)) {
    if (linea.empty() || linea[0] == '#') continue;
    std::vector<std::string> campos(1);
    for (std::size_t i = 0; i < linea.size(); ++i) {
      const char c = linea[i];
      if (c == '\t') {
        campos.emplace_back();
      } else if (c == '\\' && i + 1 < linea.size()) {
        const char e = linea[++i];
        campos.back() += e == 't' ? '\t' : e == 'n' ? '\n' : e == 'r' ? '\r' : e;
      } else {
        campos.back() += c;
      }
    }
    filas.push_back(std::move(campos));
  }
  return filas;
}

struct FichaFixture {
  int numero;
  std::vector<prueba::CampoISO> campos;
  Acervo acervo = Acervo::kLibros;
};

const FichaFixture kFichasFixture[] = {
    {1,
     {{"008", "020823s1987    sp                  spa d"},
      {"020", "  $a84-376-0494-X"},
      {"041", "0 $aspa"},
      {"050", " 4$aPQ8180.17.A73  C5 1987"},
      {"082", "04$aCo863  G216c"},
      {"100", "1 $aGarcía Márquez, Gabriel,$d1927-2014."},
      {"245", "10$aCien años de soledad /$cGabriel García Márquez ; edición de Jacques Joset."},
      {"250", "  $a2a ed."},
      {"260", "  $aMadrid :$bCátedra,$c1987."},
      {"300", "  $a550 p. ;$c18 cm."},
      {"490", "0 $aLetras hispánicas ;$v215"},
      {"504", "  $aBibliografía: p. 53-57."},
      {"650", " 4$aNovela colombiana$ySiglo XX$2lcsh"},
      {"650", " 4$aRealismo mágico (Literatura)"},
      {"651", " 4$aMacondo (Lugar imaginario)$vNovela"},
      {"700", "1 $aJoset, Jacques,$eed."}}},
    {3,
     {{"008", "040522s2004    sp                  spa d"},
      {"020", "  $a84-204-6728-3"},
      {"041", "0 $aspa"},
      {"050", " 4$aPQ6323  .A1 2004"},
      {"082", "04$a863.3  C419q"},
      {"100", "1 $aCervantes Saavedra, Miguel de,$d1547-1616."},
      {"240", "10$aDon Quijote de la Mancha"},
      {"245", "13$aEl ingenioso hidalgo don Quijote de la Mancha /$cMiguel de Cervantes ; "
              "edición de Francisco Rico."},
      {"250", "  $aEd. del IV centenario."},
      {"260", "  $aMadrid :$bReal Academia Española :$bAlfaguara,$c2004."},
      {"300", "  $alxxxvi, 1249 p. :$bil. ;$c24 cm."},
      {"500", "  $aEdición conmemorativa del IV centenario de la primera parte."},
      {"600", "14$aQuijote (Personaje ficticio)"},
      {"650", " 4$aNovela española$ySiglo XVII"},
      {"650", " 4$aCaballeros y caballería$vNovela"},
      {"700", "1 $aRico, Francisco,$eed."},
      {"710", "2 $aReal Academia Española."},
      {"856", "40$uhttp://www.cervantesvirtual.com/obra/"
              "el-ingenioso-hidalgo-don-quijote-de-la-mancha--0/"
              "$yTexto completo en la Biblioteca Virtual"},
      {"710", "2 $aAsociación de Academias de la Lengua Española."},
      {"856", "41$uhttp://www.gutenberg.org/ebooks/2000"}}},
    {2,
     {{"022", "0 $a0185-0121"},
      {"245", "00$aNueva revista de filología hispánica."},
      {"260", "  $aMéxico :$bEl Colegio de México,$c1947-"},
      {"300", "  $av. :$bil. ;$c21 cm."},
      {"310", "  $aSemestral"},
      {"650", " 4$aFilología hispánica$vPublicaciones periódicas"},
      {"650", " 4$aLiteratura española$xHistoria y crítica$vPublicaciones periódicas"}},
     Acervo::kRevistas},
    {1,
     {{"100", "1 $aNúñez Ordóñez, Carlos Héctor."},
      {"245", "13$aLa casa y las haciendas en Oaxaca /$cCarlos Héctor Núñez Ordóñez."},
      {"773", "0 $tEl trimestre económico.$gVol. 47, no. 2 (2003), p. 326-335"},
      {"650", " 4$aCocina mexicana"},
      {"650", " 4$aComputadoras"}},
     Acervo::kArticulos},
};

// The fixture's tables of one collection: the records' table, the column of
// their tag string there, and the word table.
struct TablasFixture {
  const char* fichas;
  std::size_t etiquetas;
  const char* palabras;
};

TablasFixture TablasDe(Acervo acervo) {
  switch (acervo) {
    case Acervo::kRevistas:
      return {"KORVEL8.Fichas_Revistas.tsv", 1, "indizaPP.TABLA.tsv"};
    case Acervo::kArticulos:
      return {"KORVEL8.Analiticas.tsv", 2, "indizaPP.TABLAANA.tsv"};
    case Acervo::kLibros:
      break;
  }
  return {"KORVEL8.Fichas.tsv", 4, "INDIZADO.TABLA.tsv"};
}

TEST(Fixture, TagStringAndWordsMatchTheReferenceCatalogue) {
  for (const FichaFixture& f : kFichasFixture) {
    const TablasFixture tablas = TablasDe(f.acervo);
    const auto fichas = FilasTSV(tablas.fichas);
    const auto palabras = FilasTSV(tablas.palabras);
    ASSERT_FALSE(fichas.empty()) << tablas.fichas;
    const std::string numero = std::to_string(f.numero);
    const std::string iso = prueba::RegistroISO(f.campos);
    LectorISO2709 lector(iso);
    RegistroMARC registro;
    ASSERT_EQ(lector.Siguiente(registro), Lectura::kRegistro) << lector.Motivo();
    const std::vector<Grupo> grupos = AgrupaCampos(registro);

    std::string esperada;
    for (const auto& fila : fichas) {
      if (fila[0] == numero) esperada = fila[tablas.etiquetas];
    }
    EXPECT_EQ(EtiquetasMARC(grupos), esperada) << tablas.fichas << " " << numero;

    std::vector<Entrada> esperadas;
    for (const auto& fila : palabras) {
      if (fila[2] == numero) esperadas.push_back({fila[0], std::stoi(fila[1]), std::stoi(fila[3])});
    }
    std::sort(esperadas.begin(), esperadas.end(),
              [](const Entrada& a, const Entrada& b) { return a.posicion < b.posicion; });
    EXPECT_EQ(Entradas(grupos, f.acervo), esperadas) << tablas.palabras << " " << numero;
  }
}

}  // namespace
}  // namespace orvex::catalogo
