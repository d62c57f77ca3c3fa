#include "z3950/Consulta.h"

#include <yaz/cql.h>
#include <yaz/diagbib1.h>
#include <yaz/oid_db.h>
#include <yaz/oid_std.h>
#include <yaz/oid_util.h>

#include <cctype>
#include <utility>
#include <vector>

#include "base/CodePage.h"
#include "search/Expresion.h"
#include "search/Indice.h"

namespace orvex::z3950 {
namespace {

// Bib-1 attribute types.
constexpr Odr_int kUso = 1, kRelacion = 2, kPosicion = 3, kEstructura = 4, kTruncamiento = 5,
                  kCompletitud = 6;

std::unique_ptr<Nodo> Falla(Diagnostico& d, int codigo, std::string detalle) {
  if (!d) {
    d.codigo = codigo;
    d.detalle = std::move(detalle);
  }
  return nullptr;
}

std::unique_ptr<Nodo> Operador(Nodo::Tipo tipo, std::unique_ptr<Nodo> a, std::unique_ptr<Nodo> b) {
  auto n = std::make_unique<Nodo>();
  n->tipo = tipo;
  n->izquierdo = std::move(a);
  n->derecho = std::move(b);
  return n;
}

std::unique_ptr<Nodo> Termino(Indice indice, std::string texto, bool truncado, bool frase) {
  auto n = std::make_unique<Nodo>();
  n->indice = indice;
  n->texto = std::move(texto);
  n->truncado = truncado;
  n->frase = frase;
  return n;
}

// A phrase the word index's phrase search can take.
bool FraseAdmisible(const std::string& texto, Diagnostico& d) {
  if (PalabrasDelIndice(texto).size() <= static_cast<std::size_t>(search::kMaximoPalabrasFrase)) {
    return true;
  }
  Falla(d, YAZ_BIB1_MALFORMED_SEARCH_TERM,
        "phrase of more than " + std::to_string(search::kMaximoPalabrasFrase) + " words");
  return false;
}

// Counts terms and depth as the tree is built, so that a query of
// thousands of operands is refused before it costs anything.
struct Limites {
  int terminos = 0;
  bool Termino(Diagnostico& d) {
    if (++terminos > kMaximoTerminos) {
      Falla(d, YAZ_BIB1_MALFORMED_QUERY, "more than " + std::to_string(kMaximoTerminos) + " terms");
      return false;
    }
    return true;
  }
  static bool Profundidad(int profundidad, Diagnostico& d) {
    if (profundidad > kMaximaProfundidad) {
      Falla(d, YAZ_BIB1_MALFORMED_QUERY,
            "nested deeper than " + std::to_string(kMaximaProfundidad) + " levels");
      return false;
    }
    return true;
  }
};

// --- type-1 --------------------------------------------------------------------------

// Bib-1 use attributes and the index each names.
constexpr std::pair<Odr_int, Indice> kUsos[] = {
    {1016, Indice::Cualquiera}, {4, Indice::Titulo},        {1, Indice::Autor},
    {1003, Indice::Autor},      {21, Indice::Tema},         {7, Indice::Isbn},
    {8, Indice::Issn},          {13, Indice::Clasificacion}, {16, Indice::Clasificacion},
    {20, Indice::Clasificacion}, {12, Indice::NumeroLocal},
};

bool IndiceDeUso(Odr_int uso, Indice& indice) {
  for (const auto& [valor, nombrado] : kUsos) {
    if (valor == uso) {
      indice = nombrado;
      return true;
    }
  }
  return false;
}

std::unique_ptr<Nodo> TerminoRPN(const Z_AttributesPlusTerm& apt, bool bib1_por_omision,
                                 Diagnostico& d) {
  Indice indice = Indice::Cualquiera;
  bool truncado = false;
  int estructura = 0;  // 0: none given
  const int n = apt.attributes != nullptr ? apt.attributes->num_attributes : 0;
  for (int i = 0; i < n; ++i) {
    const Z_AttributeElement* a = apt.attributes->attributes[i];
    if (a == nullptr || a->attributeType == nullptr) {
      return Falla(d, YAZ_BIB1_MALFORMED_QUERY, "attribute without a type");
    }
    const bool bib1 = a->attributeSet == nullptr ? bib1_por_omision
                                                 : oid_oidcmp(a->attributeSet, yaz_oid_attset_bib_1) == 0;
    if (!bib1) return Falla(d, YAZ_BIB1_UNSUPP_ATTRIBUTE_SET, "");
    const Odr_int tipo = *a->attributeType;
    if (a->which != Z_AttributeValue_numeric || a->value.numeric == nullptr) {
      return Falla(d, YAZ_BIB1_UNSUPP_ATTRIBUTE_TYPE, std::to_string(tipo));
    }
    const Odr_int valor = *a->value.numeric;
    const std::string v = std::to_string(valor);
    switch (tipo) {
      case kUso:
        if (!IndiceDeUso(valor, indice)) return Falla(d, YAZ_BIB1_UNSUPP_USE_ATTRIBUTE, v);
        break;
      case kRelacion:
        if (valor != 3) return Falla(d, YAZ_BIB1_UNSUPP_RELATION_ATTRIBUTE, v);
        break;
      case kPosicion:
        if (valor < 1 || valor > 3) return Falla(d, YAZ_BIB1_UNSUPP_POSITION_ATTRIBUTE, v);
        break;
      case kEstructura:
        if (valor != 1 && valor != 2 && valor != 4 && valor != 6) {
          return Falla(d, YAZ_BIB1_UNSUPP_STRUCTURE_ATTRIBUTE, v);
        }
        estructura = static_cast<int>(valor);
        break;
      case kTruncamiento:
        if (valor != 1 && valor != 100) return Falla(d, YAZ_BIB1_UNSUPP_TRUNCATION_ATTRIBUTE, v);
        truncado = valor == 1;
        break;
      case kCompletitud:
        if (valor < 1 || valor > 3) return Falla(d, YAZ_BIB1_UNSUPP_COMPLETENESS_ATTRIBUTE, v);
        break;
      default:
        return Falla(d, YAZ_BIB1_UNSUPP_ATTRIBUTE_TYPE, std::to_string(tipo));
    }
  }
  const Z_Term* t = apt.term;
  std::string texto;
  if (t != nullptr && t->which == Z_Term_general && t->u.general != nullptr) {
    texto.assign(t->u.general->buf, static_cast<std::size_t>(std::max(t->u.general->len, 0)));
  } else if (t != nullptr && t->which == Z_Term_characterString && t->u.characterString != nullptr) {
    texto = t->u.characterString;
  } else if (t != nullptr && t->which == Z_Term_numeric && t->u.numeric != nullptr) {
    texto = std::to_string(*t->u.numeric);
  } else {
    return Falla(d, YAZ_BIB1_UNSUPP_CODED_VALUE_FOR_TERM, "");
  }
  if (texto.size() > kMaximoTexto) return Falla(d, YAZ_BIB1_MALFORMED_SEARCH_TERM, "term too long");
  // A term of several words is a phrase when its structure says so (or,
  // for the call number and the standard numbers, always: they are one
  // word in the index); otherwise its words must all occur.
  if (estructura == 1 && !FraseAdmisible(texto, d)) return nullptr;
  return Termino(indice, std::move(texto), truncado, estructura == 1);
}

std::unique_ptr<Nodo> DeEstructura(const Z_RPNStructure* s, bool bib1, int profundidad, Limites& l,
                                   Diagnostico& d) {
  if (s == nullptr) return Falla(d, YAZ_BIB1_MALFORMED_QUERY, "");
  if (!Limites::Profundidad(profundidad, d)) return nullptr;
  if (s->which == Z_RPNStructure_simple) {
    const Z_Operand* o = s->u.simple;
    if (o == nullptr) return Falla(d, YAZ_BIB1_MALFORMED_QUERY, "");
    if (o->which != Z_Operand_APT || o->u.attributesPlusTerm == nullptr) {
      return Falla(d, YAZ_BIB1_RESULT_SET_UNSUPP_AS_A_SEARCH_TERM, "");
    }
    if (!l.Termino(d)) return nullptr;
    return TerminoRPN(*o->u.attributesPlusTerm, bib1, d);
  }
  if (s->which != Z_RPNStructure_complex || s->u.complex == nullptr ||
      s->u.complex->roperator == nullptr) {
    return Falla(d, YAZ_BIB1_MALFORMED_QUERY, "");
  }
  const Z_Complex& c = *s->u.complex;
  Nodo::Tipo tipo;
  switch (c.roperator->which) {
    case Z_Operator_and:
      tipo = Nodo::Tipo::Y;
      break;
    case Z_Operator_or:
      tipo = Nodo::Tipo::O;
      break;
    case Z_Operator_and_not:
      tipo = Nodo::Tipo::YNo;
      break;
    default:
      return Falla(d, YAZ_BIB1_UNSUPP_SEARCH, "proximity");
  }
  auto a = DeEstructura(c.s1, bib1, profundidad + 1, l, d);
  if (!a) return nullptr;
  auto b = DeEstructura(c.s2, bib1, profundidad + 1, l, d);
  if (!b) return nullptr;
  return Operador(tipo, std::move(a), std::move(b));
}

// --- CQL -----------------------------------------------------------------------------

std::string Minusculas(std::string_view s) {
  std::string r(s);
  for (char& c : r) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return r;
}

bool IndiceCQL(std::string_view nombre, Indice& indice) {
  static const std::pair<std::string_view, Indice> kIndices[] = {
      {"cql.serverchoice", Indice::Cualquiera}, {"serverchoice", Indice::Cualquiera},
      {"cql.anywhere", Indice::Cualquiera},     {"dc.title", Indice::Titulo},
      {"dc.creator", Indice::Autor},            {"dc.subject", Indice::Tema},
      {"bath.isbn", Indice::Isbn},              {"bath.issn", Indice::Issn},
      {"bath.lccallnumber", Indice::Clasificacion}, {"rec.id", Indice::NumeroLocal},
  };
  const std::string n = Minusculas(nombre);
  for (const auto& [clave, valor] : kIndices) {
    if (n == clave) {
      indice = valor;
      return true;
    }
  }
  return false;
}

// The term's text without CQL's escapes; a final unescaped "*" is right
// truncation, and any other unescaped "*", "?" or "^" is a masking or
// anchoring character Orvex's index cannot answer.
bool TextoCQL(std::string_view termino, std::string& texto, bool& truncado, Diagnostico& d) {
  texto.clear();
  truncado = false;
  for (std::size_t i = 0; i < termino.size(); ++i) {
    const char c = termino[i];
    if (c == '\\' && i + 1 < termino.size()) {
      texto += termino[++i];
    } else if (c == '*' && i + 1 == termino.size() && i > 0) {
      truncado = true;
    } else if (c == '*' || c == '?' || c == '^') {
      Falla(d, YAZ_BIB1_UNSUPP_TRUNCATION_ATTRIBUTE, std::string(termino));
      return false;
    } else {
      texto += c;
    }
  }
  if (texto.size() > kMaximoTexto) {
    Falla(d, YAZ_BIB1_MALFORMED_SEARCH_TERM, "term too long");
    return false;
  }
  return true;
}

std::vector<std::string> Palabras(std::string_view texto) {
  std::vector<std::string> palabras;
  std::string actual;
  for (const char c : texto) {
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      if (!actual.empty()) palabras.push_back(std::move(actual));
      actual.clear();
    } else {
      actual += c;
    }
  }
  if (!actual.empty()) palabras.push_back(std::move(actual));
  return palabras;
}

std::unique_ptr<Nodo> TerminoCQL(const cql_node& n, Limites& l, Diagnostico& d) {
  if (n.u.st.modifiers != nullptr) {
    return Falla(d, YAZ_BIB1_UNSUPP_RELATION_ATTRIBUTE, "relation modifiers");
  }
  Indice indice = Indice::Cualquiera;
  const std::string nombre = n.u.st.index != nullptr ? n.u.st.index : "cql.serverChoice";
  if (!IndiceCQL(nombre, indice)) return Falla(d, YAZ_BIB1_UNSUPP_USE_ATTRIBUTE, nombre);
  const std::string relacion = Minusculas(n.u.st.relation != nullptr ? n.u.st.relation : "=");
  const bool frase = relacion == "=" || relacion == "==" || relacion == "adj" || relacion == "scr";
  if (!frase && relacion != "all" && relacion != "any") {
    return Falla(d, YAZ_BIB1_UNSUPP_RELATION_ATTRIBUTE, relacion);
  }
  std::string texto;
  bool truncado = false;
  if (!TextoCQL(n.u.st.term != nullptr ? n.u.st.term : "", texto, truncado, d)) return nullptr;
  if (frase) {
    if (!l.Termino(d)) return nullptr;
    const bool varias = Palabras(texto).size() > 1;
    if (varias && !FraseAdmisible(texto, d)) return nullptr;
    return Termino(indice, std::move(texto), truncado, varias);
  }
  // "all" and "any": each word a term of its own, joined by AND or OR; a
  // final "*" truncates the last word.
  const std::vector<std::string> palabras = Palabras(texto);
  if (palabras.empty()) {
    if (!l.Termino(d)) return nullptr;
    return Termino(indice, "", false, false);
  }
  std::unique_ptr<Nodo> arbol;
  for (std::size_t i = 0; i < palabras.size(); ++i) {
    if (!l.Termino(d)) return nullptr;
    auto t = Termino(indice, palabras[i], truncado && i + 1 == palabras.size(), false);
    arbol = arbol ? Operador(relacion == "all" ? Nodo::Tipo::Y : Nodo::Tipo::O, std::move(arbol),
                             std::move(t))
                  : std::move(t);
  }
  return arbol;
}

std::unique_ptr<Nodo> DeNodoCQL(const cql_node* n, int profundidad, Limites& l, Diagnostico& d) {
  if (n == nullptr) return Falla(d, YAZ_BIB1_MALFORMED_QUERY, "");
  if (!Limites::Profundidad(profundidad, d)) return nullptr;
  switch (n->which) {
    case CQL_NODE_ST:
      return TerminoCQL(*n, l, d);
    case CQL_NODE_BOOL: {
      if (n->u.boolean.modifiers != nullptr) {
        return Falla(d, YAZ_BIB1_UNSUPP_SEARCH, "boolean modifiers");
      }
      const std::string op = Minusculas(n->u.boolean.value != nullptr ? n->u.boolean.value : "");
      Nodo::Tipo tipo;
      if (op == "and") {
        tipo = Nodo::Tipo::Y;
      } else if (op == "or") {
        tipo = Nodo::Tipo::O;
      } else if (op == "not") {
        tipo = Nodo::Tipo::YNo;
      } else {
        return Falla(d, YAZ_BIB1_UNSUPP_SEARCH, op);
      }
      auto a = DeNodoCQL(n->u.boolean.left, profundidad + 1, l, d);
      if (!a) return nullptr;
      auto b = DeNodoCQL(n->u.boolean.right, profundidad + 1, l, d);
      if (!b) return nullptr;
      return Operador(tipo, std::move(a), std::move(b));
    }
    default:
      return Falla(d, YAZ_BIB1_UNSUPP_SEARCH, "sortBy");
  }
}

}  // namespace

int CampoDe(Indice indice) {
  switch (indice) {
    case Indice::Cualquiera:
      return 0;
    case Indice::Titulo:
      return 1;
    case Indice::Autor:
      return 2;
    case Indice::Tema:
      return 3;
    case Indice::Isbn:
    case Indice::Issn:
      return 4;
    case Indice::Clasificacion:
      return 7;
    case Indice::NumeroLocal:
      return -1;
  }
  return -1;
}

std::unique_ptr<Nodo> DeRPN(const Z_RPNQuery& consulta, Diagnostico& d) {
  const bool bib1 =
      consulta.attributeSetId == nullptr || oid_oidcmp(consulta.attributeSetId, yaz_oid_attset_bib_1) == 0;
  if (!bib1) return Falla(d, YAZ_BIB1_UNSUPP_ATTRIBUTE_SET, "");
  Limites l;
  return DeEstructura(consulta.RPNStructure, true, 1, l, d);
}

std::unique_ptr<Nodo> DeTerminoRPN(const Z_AttributesPlusTerm& termino, const Odr_oid* conjunto,
                                   Diagnostico& d) {
  if (conjunto != nullptr && oid_oidcmp(conjunto, yaz_oid_attset_bib_1) != 0) {
    return Falla(d, YAZ_BIB1_UNSUPP_ATTRIBUTE_SET, "");
  }
  return TerminoRPN(termino, true, d);
}

std::unique_ptr<Nodo> DeCQL(std::string_view cql, Diagnostico& d) {
  if (cql.size() > 16 * kMaximoTexto) return Falla(d, YAZ_BIB1_MALFORMED_QUERY, "query too long");
  CQL_parser p = cql_parser_create();
  const std::string texto(cql);
  std::unique_ptr<Nodo> arbol;
  if (cql_parser_string(p, texto.c_str()) != 0) {
    Falla(d, YAZ_BIB1_MALFORMED_QUERY, texto);
  } else {
    Limites l;
    arbol = DeNodoCQL(cql_parser_result(p), 1, l, d);
  }
  cql_parser_destroy(p);
  return arbol;
}

std::vector<std::string> PalabrasDelIndice(std::string_view utf8) {
  std::vector<std::string> palabras;
  std::string actual;
  for (const char c : CodePage::Windows1252().FromUtf8(utf8)) {
    if (c != '$' && search::CaracteresPalabra.find(c) != std::string::npos) {
      actual += c;
    } else if (!actual.empty()) {
      palabras.push_back(std::move(actual));
      actual.clear();
    }
  }
  if (!actual.empty()) palabras.push_back(std::move(actual));
  return palabras;
}

}  // namespace orvex::z3950
