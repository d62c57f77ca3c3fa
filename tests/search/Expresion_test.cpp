#include "search/Expresion.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "db/Database.h"
#include "tests/support/Fakes.h"

namespace orvex::search {
namespace {

using Termino = std::tuple<std::string, std::string, std::int16_t>;  // operador, palabra, campo

// Terms 0 to n - 1, and the term after them, which must still be empty.
std::vector<Termino> Terminos(const Estado& e, std::size_t n) {
  std::vector<Termino> t;
  for (std::size_t i = 0; i < n; ++i) {
    t.emplace_back(e.Terminos[i].operador, e.Terminos[i].palabra, e.Terminos[i].campo);
  }
  EXPECT_EQ(e.Terminos[n].palabra + e.Terminos[n].operador, "") << "term " << n;
  return t;
}

const std::string kErrorSintaxis =
    "<center><p><H4>" +
    Latin1("Error de sintaxis en la expresión<br>Por favor verifique los términos que "
           "introdujo como su expresión de búsqueda e intente de nuevo") +
    "</H4><p/></center>\r\n";

// -1 stands for a syntax error, which writes its message and no count.
TEST(AnalizaExpresion, ReadsWordsOperatorsAndPhrases) {
  const struct {
    std::string expresion;
    std::vector<Termino> terminos;
  } casos[] = {
      {"gato perro", {{"+", "GATO", 2}, {" ", "PERRO", 2}}},
      {"gato y perro", {{"+", "GATO", 2}, {"*", "PERRO", 2}}},
      {"gato AND perro", {{"+", "GATO", 2}, {"*", "PERRO", 2}}},
      {"gato*perro", {{"+", "GATO", 2}, {"*", "PERRO", 2}}},
      {"gato * perro", {{"+", "GATO", 2}, {"*", "PERRO", 2}}},
      {"gato o perro", {{"+", "GATO", 2}, {"+", "PERRO", 2}}},
      {"gato no perro", {{"+", "GATO", 2}, {"-", "PERRO", 2}}},
      {"a Or b NOT  c + d - e", {{"+", "A", 2}, {"+", "B", 2}, {"-", "C", 2}, {"+", "D", 2},
                                 {"-", "E", 2}}},
      {"  -gato", {{"-", "GATO", 2}}}, {"*gato", {{"*", "GATO", 2}}},
      {Latin1("canción comput$"), {{"+", Latin1("CANCIÓN"), 2}, {" ", "COMPUT$", 2}}},
      // The quotes stand apart: one blank inside each, two before VERDE.
      {"\"la casa\" verde", {{"+", "\" LA CASA \"", 2}, {"  ", "VERDE", 2}}},
      {"\"gato y perro\"", {{"+", "\" GATO Y PERRO \"", 2}}},
      {"gato \"", {{"+", "GATO", 2}, {"  ", "\"\"", 2}}},
      {"gato -", {}}, {"gato, perro", {}}, {"libro de c++", {}}, {"\"la casa", {}}, {"+", {}},
  };
  for (const auto& c : casos) {
    testing::FakePlatform p;
    Estado e;
    const std::int16_t n = AnalizaExpresion(e, p.salida, c.expresion, 2, 0);
    if (c.terminos.empty()) {
      EXPECT_EQ(n, -1) << c.expresion;
      EXPECT_EQ(p.salida.contents, kErrorSintaxis) << c.expresion;
      EXPECT_TRUE(e.ErrorSintaxis) << c.expresion;
      continue;
    }
    EXPECT_FALSE(e.ErrorSintaxis) << c.expresion;
    EXPECT_EQ(n, static_cast<std::int16_t>(c.terminos.size())) << c.expresion;
    EXPECT_EQ(Terminos(e, c.terminos.size()), c.terminos) << c.expresion;
    EXPECT_EQ(p.salida.contents, "") << c.expresion;
  }
}

TEST(AnalizaExpresion, LaterExpressionContinuesTheCount) {
  testing::FakePlatform p;
  Estado e;
  EXPECT_EQ(AnalizaExpresion(e, p.salida, "gato", 0, 0), 1);
  EXPECT_EQ(AnalizaExpresion(e, p.salida, "   ", 1, 1), 1);
  EXPECT_EQ(AnalizaExpresion(e, p.salida, "perro", 3, 1), 2);
  EXPECT_EQ(AnalizaExpresion(e, p.salida, "+raton", 4, 2), 3);
  EXPECT_EQ(Terminos(e, 3),
            (std::vector<Termino>{{"+", "GATO", 0}, {"*", "PERRO", 3}, {"+", "RATON", 4}}));
}

TEST(AnalizaExpresion, ThirtyOneTermsAtMost) {
  std::string treinta_y_uno;
  for (int i = 0; i < 31; ++i) treinta_y_uno += "a ";
  testing::FakePlatform p;
  Estado e;
  EXPECT_EQ(AnalizaExpresion(e, p.salida, treinta_y_uno, 0, 0), 31);
  EXPECT_EQ(testing::ErrorNumberOf([&] { AnalizaExpresion(e, p.salida, treinta_y_uno + "b", 0, 0); }),
            kErrSubindice);
  EXPECT_EQ(testing::ErrorNumberOf([&] { AnalizaExpresion(e, p.salida, "a b", 0, 30); }),
            kErrSubindice);
  // After a syntax error the next non-empty expression starts outside the table.
  EXPECT_EQ(testing::ErrorNumberOf([&] { AnalizaExpresion(e, p.salida, "a", 0, -1); }),
            kErrSubindice);
  EXPECT_EQ(AnalizaExpresion(e, p.salida, "", 0, -1), -1);
}

TEST(SiguienteToken, CutsRunsAndPhrases) {
  const struct {
    std::string texto, token, resto;
    bool fin;
  } casos[] = {
      {"", "", "", true},
      {"GATO PERRO", "GATO", " PERRO", false},
      {",GATO", "", ",GATO", true},
      {"AB\"C\"", "AB", "\"C\"", false},
      {"\" LA CASA \" X", "\" LA CASA \"", " X", false},
      {"\"LA, CASA", "\"LA, CASA\"", "", true},
      {"\"", "\"\"", "", false},
  };
  for (const auto& c : casos) {
    Estado e;
    std::string texto = c.texto;
    EXPECT_EQ(SiguienteToken(e, texto, CaracteresPalabra), c.token) << c.texto;
    EXPECT_EQ(texto, c.resto) << c.texto;
    EXPECT_EQ(e.FinExpresion, c.fin) << c.texto;
  }
}

TEST(ReemplazaFueraComillas, IgnoresCaseAndQuotedStretches) {
  EXPECT_EQ(ReemplazaFueraComillas("a y b Y c", " Y ", "*"), "a*b*c");
  EXPECT_EQ(ReemplazaFueraComillas("\"a y b\" y c \"y ", " Y ", "*"), "\"a y b\"*c \"y ");
  EXPECT_EQ(ReemplazaFueraComillas(Latin1("año"), Latin1("Ñ"), "n"), "ano");
  EXPECT_EQ(ReemplazaFueraComillas("aaa", "aa", "b"), "ba");
}

TEST(LimpiaClave, MakesOneWordOutsideQuotes) {
  EXPECT_EQ(LimpiaClave("968-36 1.2"), "9683612");
  EXPECT_EQ(LimpiaClave("qa76.9  .c65 \"a-b\" c"), "QA769C65\" A-B \"C");
}

TEST(AvanzadaLeeCampos, ReadsNumbersAsTheRuntimeDoes) {
  const std::map<std::string, std::string, std::less<>> campos = {
      {"txtEXPR1", "perro"}, {"opCAMPO1", "3abc"},   {"opCAMPO3", "x"},
      {"txtEXPR3", "gato"},  {"opBOOLEAN1", "2.5"}, {"opBOOLEAN2", "1.5"}};
  Estado e;
  LeeCamposAvanzados(e, [&](std::string_view nombre) {
    const auto it = campos.find(nombre);
    return it == campos.end() ? std::string() : it->second;
  });
  EXPECT_EQ(std::tie(e.txtEXPR1, e.txtEXPR2, e.txtEXPR3),
            std::make_tuple(std::string("perro"), std::string(""), std::string("gato")));
  EXPECT_EQ(std::tie(e.opCAMPO1, e.opCAMPO2, e.opCAMPO3), std::make_tuple(3, 0, 0));
  EXPECT_EQ(std::tie(e.opBOOLEAN1, e.opBOOLEAN2), std::make_tuple(2, 2));
}

TEST(AvanzadaArmaBusqueda, BuildsTheExpressionsOfTheBoxes) {
  const struct {
    std::string caja1, caja2, caja3;
    std::int16_t campo1, campo2, campo3;
    std::uint8_t booleano1, booleano2;
    std::string mostrada;
    std::vector<Termino> terminos;
  } casos[] = {
      {"perro", "gato", "", 1, 3, 0, 2, 0, "perro-gato", {{"+", "PERRO", 1}, {"-", "GATO", 3}}},
      {"perro", " gato", "", 0, 0, 0, 1, 0, "perro+gato", {{"+", "PERRO", 0}, {"+", "GATO", 0}}},
      {"perro", "gato", "raton", 2, 0, 11, 0, 2, "perro*gato-raton",
       {{"+", "PERRO", 2}, {"*", "GATO", 0}, {"-", "RATON", 5}}},
      {"968-36 1.2", "", "", 4, 0, 0, 0, 0, "9683612", {{"+", "9683612", 4}}},
      {"perro", "qa-76", "", 0, 7, 0, 2, 0, "perroQA76", {{"+", "PERRO", 0}, {"*", "QA76", 7}}},
      {"qa76", "", "", 10, 0, 0, 0, 0, "Cqa76", {{"+", "CQA76", 9}}},
      {"perro", "qa76", "", 0, 10, 0, 1, 0, "perroC+qa76",
       {{"+", "PERRO", 0}, {"*", "C", 9}, {"+", "QA76", 9}}},
      {"l'amour", "", "", 0, 0, 0, 0, 0, "l amour", {{"+", "L", 0}, {" ", "AMOUR", 0}}},
  };
  for (const auto& c : casos) {
    testing::FakePlatform p;
    Estado e;
    const auto indice = db::OpenDatabase(std::string(ORVEX_FIXTURES) + "/catalogo/sqlite/INDIZADO.MDB",
                                          CodePage::Windows1252(), {.read_only = true});
    const Entorno en{e, indice.get(), p.sys.salida};
    std::tie(e.txtEXPR1, e.txtEXPR2, e.txtEXPR3) = std::tie(c.caja1, c.caja2, c.caja3);
    std::tie(e.opCAMPO1, e.opCAMPO2, e.opCAMPO3) = std::tie(c.campo1, c.campo2, c.campo3);
    std::tie(e.opBOOLEAN1, e.opBOOLEAN2) = std::tie(c.booleano1, c.booleano2);
    EXPECT_EQ(ArmaBusquedaAvanzada(en), c.mostrada) << c.caja1;
    EXPECT_EQ(Terminos(e, c.terminos.size()), c.terminos) << c.caja1;
  }
}

TEST(AvanzadaArmaBusqueda, ThirdBoxWithoutSecondSearchesNothing) {
  testing::FakePlatform p;
  Estado e;
  const Entorno en{e, nullptr, p.sys.salida};  // no index open: a search would fail
  e.txtEXPR1 = "o'brien";
  e.txtEXPR3 = "gato";
  e.Terminos[0].palabra = "sin tocar";
  EXPECT_EQ(ArmaBusquedaAvanzada(en), "");
  EXPECT_EQ(e.txtEXPR1, "o brien");
  EXPECT_EQ(e.Terminos[0].palabra, "sin tocar");
}

}  // namespace
}  // namespace orvex::search
