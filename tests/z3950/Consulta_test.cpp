#include "z3950/Consulta.h"

#include <gtest/gtest.h>

#include <yaz/diagbib1.h>
#include <yaz/odr.h>
#include <yaz/pquery.h>

#include <random>
#include <string>

#include "search/Indice.h"

namespace orvex::z3950 {
namespace {

const char* NombreIndice(Indice i) {
  switch (i) {
    case Indice::Cualquiera: return "any";
    case Indice::Titulo: return "title";
    case Indice::Autor: return "author";
    case Indice::Tema: return "subject";
    case Indice::Isbn: return "isbn";
    case Indice::Issn: return "issn";
    case Indice::Clasificacion: return "callno";
    case Indice::NumeroLocal: return "local";
  }
  return "?";
}

// The tree written out: index:text, a phrase in quotes, "*" for truncation,
// operators in parentheses.
std::string Texto(const Nodo& n) {
  switch (n.tipo) {
    case Nodo::Tipo::Termino: {
      std::string t = std::string(NombreIndice(n.indice)) + ":";
      t += n.frase ? "\"" + n.texto + "\"" : n.texto;
      return t + (n.truncado ? "*" : "");
    }
    case Nodo::Tipo::Y: return "(" + Texto(*n.izquierdo) + " AND " + Texto(*n.derecho) + ")";
    case Nodo::Tipo::O: return "(" + Texto(*n.izquierdo) + " OR " + Texto(*n.derecho) + ")";
    case Nodo::Tipo::YNo: return "(" + Texto(*n.izquierdo) + " NOT " + Texto(*n.derecho) + ")";
  }
  return "?";
}

// A PQF query (yaz-client's notation) through YAZ's parser, then mapped.
std::string DesdePQF(const std::string& pqf, Diagnostico& d) {
  ODR odr = odr_createmem(ODR_ENCODE);
  YAZ_PQF_Parser p = yaz_pqf_create();
  Z_RPNQuery* rpn = yaz_pqf_parse(p, odr, pqf.c_str());
  std::string resultado = "<pqf error>";
  if (rpn != nullptr) {
    auto arbol = DeRPN(*rpn, d);
    resultado = arbol ? Texto(*arbol) : "";
  }
  yaz_pqf_destroy(p);
  odr_destroy(odr);
  return resultado;
}

std::string DesdeCQL(const std::string& cql, Diagnostico& d) {
  auto arbol = DeCQL(cql, d);
  return arbol ? Texto(*arbol) : "";
}

TEST(Consulta, TypeOneQueriesBecomeTrees) {
  const struct {
    const char* pqf;
    const char* arbol;
  } casos[] = {
      {"historia", "any:historia"},
      {"@attr 1=4 revolucion", "title:revolucion"},
      {"@attr 1=1003 garcia", "author:garcia"},
      {"@attr 1=1 garcia", "author:garcia"},
      {"@attr 1=21 mexico", "subject:mexico"},
      {"@attr 1=7 84-376-0494-X", "isbn:84-376-0494-X"},
      {"@attr 1=8 0028-0836", "issn:0028-0836"},
      {"@attr 1=16 PQ8180", "callno:PQ8180"},
      {"@attr 1=12 42", "local:42"},
      {"@attr 1=1016 @attr 5=1 comput", "any:comput*"},
      {"@attr 5=100 @attr 2=3 @attr 3=3 @attr 6=1 casa", "any:casa"},
      {"@attr 4=1 \"historia de mexico\"", "any:\"historia de mexico\""},
      {"@attr 4=2 \"historia mexico\"", "any:historia mexico"},
      {"@and historia mexico", "(any:historia AND any:mexico)"},
      {"@or @attr 1=4 a @not b c", "(title:a OR (any:b NOT any:c))"},
      {"@attrset bib-1 @attr 1=4 x", "title:x"},
  };
  for (const auto& c : casos) {
    Diagnostico d;
    EXPECT_EQ(DesdePQF(c.pqf, d), c.arbol) << c.pqf;
    EXPECT_FALSE(d) << c.pqf << ": " << d.codigo;
  }
}

TEST(Consulta, TypeOneQueriesOrvexCannotAnswerGetTheirDiagnostic) {
  const struct {
    const char* pqf;
    int codigo;
  } casos[] = {
      {"@attr 1=9999 x", YAZ_BIB1_UNSUPP_USE_ATTRIBUTE},
      {"@attr 2=5 x", YAZ_BIB1_UNSUPP_RELATION_ATTRIBUTE},
      {"@attr 3=7 x", YAZ_BIB1_UNSUPP_POSITION_ATTRIBUTE},
      {"@attr 4=105 x", YAZ_BIB1_UNSUPP_STRUCTURE_ATTRIBUTE},
      {"@attr 5=2 x", YAZ_BIB1_UNSUPP_TRUNCATION_ATTRIBUTE},
      {"@attr 5=101 x", YAZ_BIB1_UNSUPP_TRUNCATION_ATTRIBUTE},
      {"@attr 6=9 x", YAZ_BIB1_UNSUPP_COMPLETENESS_ATTRIBUTE},
      {"@attr 9=1 x", YAZ_BIB1_UNSUPP_ATTRIBUTE_TYPE},
      {"@attr 1=4 @attr exp-1 1=1 x", YAZ_BIB1_UNSUPP_ATTRIBUTE_SET},
      {"@attrset exp-1 x", YAZ_BIB1_UNSUPP_ATTRIBUTE_SET},
      {"@prox 0 1 0 2 k 2 a b", YAZ_BIB1_UNSUPP_SEARCH},
      {"@set previo", YAZ_BIB1_RESULT_SET_UNSUPP_AS_A_SEARCH_TERM},
      {"@and a @attr 1=9999 b", YAZ_BIB1_UNSUPP_USE_ATTRIBUTE},
  };
  for (const auto& c : casos) {
    Diagnostico d;
    EXPECT_EQ(DesdePQF(c.pqf, d), "") << c.pqf;
    EXPECT_EQ(d.codigo, c.codigo) << c.pqf;
  }
}

TEST(Consulta, CqlQueriesBecomeTrees) {
  const struct {
    const char* cql;
    const char* arbol;
  } casos[] = {
      {"historia", "any:historia"},
      {"cql.serverChoice = historia", "any:historia"},
      {"dc.title=revolucion", "title:revolucion"},
      {"DC.Creator = garcia", "author:garcia"},
      {"dc.subject any \"mexico oaxaca\"", "(subject:mexico OR subject:oaxaca)"},
      {"dc.title all \"cien anos\"", "(title:cien AND title:anos)"},
      {"\"historia de mexico\"", "any:\"historia de mexico\""},
      {"dc.title adj \"cien anos\"", "title:\"cien anos\""},
      {"comput*", "any:comput*"},
      {"dc.title all \"historia comput*\"", "(title:historia AND title:comput*)"},
      {"bath.isbn = 843760494X", "isbn:843760494X"},
      {"bath.issn=0028-0836", "issn:0028-0836"},
      {"rec.id = 42", "local:42"},
      {"a and b or c", "((any:a AND any:b) OR any:c)"},
      {"a not (b or c)", "(any:a NOT (any:b OR any:c))"},
      {"a\\*b", "any:a*b"},
  };
  for (const auto& c : casos) {
    Diagnostico d;
    EXPECT_EQ(DesdeCQL(c.cql, d), c.arbol) << c.cql;
    EXPECT_FALSE(d) << c.cql << ": " << d.codigo << " " << d.detalle;
  }
}

TEST(Consulta, CqlQueriesOrvexCannotAnswerGetTheirDiagnostic) {
  const struct {
    const char* cql;
    int codigo;
  } casos[] = {
      {"dc.date = 1999", YAZ_BIB1_UNSUPP_USE_ATTRIBUTE},
      {"dc.title > a", YAZ_BIB1_UNSUPP_RELATION_ATTRIBUTE},
      {"dc.title =/stem a", YAZ_BIB1_UNSUPP_RELATION_ATTRIBUTE},
      {"a*b", YAZ_BIB1_UNSUPP_TRUNCATION_ATTRIBUTE},
      {"?ab", YAZ_BIB1_UNSUPP_TRUNCATION_ATTRIBUTE},
      {"a prox b", YAZ_BIB1_UNSUPP_SEARCH},
      {"a and/x b", YAZ_BIB1_UNSUPP_SEARCH},
      {"(a and", YAZ_BIB1_MALFORMED_QUERY},
      {"", YAZ_BIB1_MALFORMED_QUERY},
      {"a sortby dc.title", YAZ_BIB1_UNSUPP_SEARCH},
  };
  for (const auto& c : casos) {
    Diagnostico d;
    EXPECT_EQ(DesdeCQL(c.cql, d), "") << c.cql;
    EXPECT_EQ(d.codigo, c.codigo) << c.cql;
  }
}

// A query of many terms or deep nesting is refused before anything is
// looked up, whichever protocol brings it.
TEST(Consulta, LargeQueriesAreRefused) {
  std::string cql = "a";
  for (int i = 1; i < kMaximoTerminos; ++i) cql += " or a";
  Diagnostico d;
  EXPECT_NE(DesdeCQL(cql, d), "");
  EXPECT_FALSE(d);
  EXPECT_EQ(DesdeCQL(cql + " or a", d), "");
  EXPECT_EQ(d.codigo, YAZ_BIB1_MALFORMED_QUERY);

  std::string profunda;
  for (int i = 0; i < kMaximaProfundidad + 2; ++i) profunda += "@and a ";
  profunda += "a";
  Diagnostico d2;
  EXPECT_EQ(DesdePQF(profunda, d2), "");
  EXPECT_EQ(d2.codigo, YAZ_BIB1_MALFORMED_QUERY);

  Diagnostico d3;
  EXPECT_EQ(DesdeCQL("dc.title=" + std::string(kMaximoTexto + 1, 'a'), d3), "");
  EXPECT_EQ(d3.codigo, YAZ_BIB1_MALFORMED_SEARCH_TERM);

  // A phrase of more words than the phrase search takes, the words counted
  // as the index cuts them; the same words as "all" are words of their own.
  const auto palabras = [](int n, const char* separador) {
    std::string s = "w";
    for (int i = 1; i < n; ++i) s += separador + std::string("w");
    return s;
  };
  const int maximo = search::kMaximoPalabrasFrase;
  const struct {
    std::string consulta;
    bool pqf;
    int codigo;
  } frases[] = {
      {"\"" + palabras(maximo, " ") + "\"", false, 0},
      {"\"" + palabras(maximo + 1, " ") + "\"", false, YAZ_BIB1_MALFORMED_SEARCH_TERM},
      {"dc.title adj \"" + palabras(maximo, " ") + "-w\"", false, YAZ_BIB1_MALFORMED_SEARCH_TERM},
      {"cql.serverChoice all \"" + palabras(maximo + 1, " ") + "\"", false, 0},
      {"@attr 4=1 \"" + palabras(maximo, " ") + "\"", true, 0},
      {"@attr 4=1 \"" + palabras(maximo + 1, "/") + "\"", true, YAZ_BIB1_MALFORMED_SEARCH_TERM},
      {"@attr 4=2 \"" + palabras(maximo + 1, " ") + "\"", true, 0},
  };
  for (const auto& f : frases) {
    Diagnostico df;
    const std::string arbol = f.pqf ? DesdePQF(f.consulta, df) : DesdeCQL(f.consulta, df);
    EXPECT_EQ(df.codigo, f.codigo) << f.consulta;
    EXPECT_EQ(arbol.empty(), f.codigo != 0) << f.consulta;
  }
}

// Random bytes as CQL: a tree or a diagnostic, never both, never neither.
TEST(Consulta, AnyCqlTextGivesATreeOrADiagnostic) {
  std::mt19937 azar(25);
  const std::string alfabeto = "ab =()\"*?\\/<>.andorNOT\xC3\xB1\x01";
  for (int vuelta = 0; vuelta < 3000; ++vuelta) {
    std::string cql;
    const int largo = static_cast<int>(azar() % 30);
    for (int i = 0; i < largo; ++i) cql += alfabeto[azar() % alfabeto.size()];
    Diagnostico d;
    const auto arbol = DeCQL(cql, d);
    EXPECT_NE(arbol != nullptr, static_cast<bool>(d)) << cql;
  }
}

}  // namespace
}  // namespace orvex::z3950
