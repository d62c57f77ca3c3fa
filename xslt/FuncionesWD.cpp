#include "xslt/FuncionesWD.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>
#include <libxslt/extensions.h>

#include "base/CodePage.h"
#include "xslt/PatronWD.h"

namespace orvex::xslt {
namespace {

const xmlChar* Xml(const char* s) { return reinterpret_cast<const xmlChar*>(s); }

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The code points of UTF-8 text. A byte that does not begin a valid
// sequence stands for the Latin-1 character of its value, so that any text
// still has an order.
std::u32string Decodifica(std::string_view s) {
  std::u32string r;
  r.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    const size_t antes = i;
    const char32_t cp = NextUtf8(s, i);
    r.push_back(cp == 0xFFFD && i == antes + 1 ? static_cast<unsigned char>(s[antes]) : cp);
  }
  return r;
}

// Small Latin-1 letters à..ÿ without their accents; ÷ (0xF7) stays itself.
constexpr const char* kSinAcento[32] = {
    "a", "a", "a", "a", "a", "a", "ae", "c", "e", "e", "e", "e", "i", "i", "i", "i",
    "d", "n", "o", "o", "o", "o", "o", nullptr, "o", "u", "u", "u", "u", "y", "th", "y",
};

// The primary key of the order: small letters, Latin-1 accents removed.
std::u32string ClavePrimaria(const std::u32string& texto) {
  std::u32string clave;
  clave.reserve(texto.size());
  for (char32_t c : texto) {
    if (c >= U'A' && c <= U'Z') c += 32;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) c += 0x20;
    if (c == 0xDF) {
      clave += U"ss";
    } else if (c >= 0xE0 && c <= 0xFF && kSinAcento[c - 0xE0] != nullptr) {
      for (const char* p = kSinAcento[c - 0xE0]; *p != '\0'; ++p) clave.push_back(char32_t(*p));
    } else {
      clave.push_back(c);
    }
  }
  return clave;
}

int Signo(int n) { return n < 0 ? -1 : n > 0 ? 1 : 0; }

int Compara(std::string_view a, std::string_view b) {
  const std::u32string ca = Decodifica(a);
  const std::u32string cb = Decodifica(b);
  const int primaria = Signo(ClavePrimaria(ca).compare(ClavePrimaria(cb)));
  return primaria != 0 ? primaria : Signo(ca.compare(cb));
}

// yyyy-mm-dd, optionally followed by T (or a blank) and hh:mm[:ss[.fff]]
// and a zone (Z or +hh:mm), as a day number counted from 1899-12-30 with
// the time as its fraction. The zone is accepted and not applied: the
// values are clock times of the catalogue.
std::optional<double> FechaISO(std::string_view s) {
  auto blanco = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!s.empty() && blanco(s.front())) s.remove_prefix(1);
  while (!s.empty() && blanco(s.back())) s.remove_suffix(1);
  size_t i = 0;
  auto numero = [&](size_t cifras, int* valor) {
    if (i + cifras > s.size()) return false;
    int v = 0;
    for (size_t k = 0; k < cifras; ++k) {
      const char c = s[i + k];
      if (c < '0' || c > '9') return false;
      v = v * 10 + (c - '0');
    }
    i += cifras;
    *valor = v;
    return true;
  };
  auto signo = [&](char c) {
    if (i >= s.size() || s[i] != c) return false;
    ++i;
    return true;
  };
  int anio = 0, mes = 0, dia = 0, hora = 0, minuto = 0, segundo = 0;
  if (!numero(4, &anio) || !signo('-') || !numero(2, &mes) || !signo('-') || !numero(2, &dia)) {
    return std::nullopt;
  }
  const std::chrono::year_month_day fecha{std::chrono::year(anio),
                                          std::chrono::month(static_cast<unsigned>(mes)),
                                          std::chrono::day(static_cast<unsigned>(dia))};
  if (!fecha.ok()) return std::nullopt;
  double fraccion = 0;
  if (signo('T') || signo(' ')) {
    if (!numero(2, &hora) || !signo(':') || !numero(2, &minuto)) return std::nullopt;
    double segundos = 0;
    if (signo(':')) {
      if (!numero(2, &segundo)) return std::nullopt;
      segundos = segundo;
      if (signo('.')) {
        double peso = 0.1;
        const size_t inicio = i;
        for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i, peso /= 10) {
          segundos += (s[i] - '0') * peso;
        }
        if (i == inicio) return std::nullopt;
      }
    }
    if (hora > 23 || minuto > 59 || segundo > 59) return std::nullopt;
    fraccion = (hora * 3600 + minuto * 60 + segundos) / 86400;
    int zona_h = 0, zona_m = 0;
    if (!signo('Z') && (signo('+') || signo('-'))) {
      if (!numero(2, &zona_h) || !signo(':') || !numero(2, &zona_m)) return std::nullopt;
      if (zona_h > 14 || zona_m > 59) return std::nullopt;
    }
  }
  if (i != s.size()) return std::nullopt;
  const std::chrono::sys_days origen{std::chrono::year(1899) / std::chrono::December / 30};
  return static_cast<double>((std::chrono::sys_days(fecha) - origen).count()) + fraccion;
}

// The string arguments, popped in order; false after an XPath error.
bool Cadenas(xmlXPathParserContextPtr ctxt, std::string* a, std::string* b) {
  std::string* destinos[] = {b, a};
  for (std::string* d : destinos) {
    if (d == nullptr) continue;
    xmlChar* s = xmlXPathPopString(ctxt);
    if (ctxt->error != XPATH_EXPRESSION_OK) {
      xmlFree(s);
      return false;
    }
    d->assign(s == nullptr ? "" : reinterpret_cast<const char*>(s));
    xmlFree(s);
  }
  return true;
}

void Strcmp(xmlXPathParserContextPtr ctxt, int nargs) {
  CHECK_ARITY(2);
  std::string a, b;
  if (!Cadenas(ctxt, &a, &b)) return;
  xmlXPathReturnNumber(ctxt, Compara(a, b));
}

void Date(xmlXPathParserContextPtr ctxt, int nargs) {
  CHECK_ARITY(1);
  std::string a;
  if (!Cadenas(ctxt, &a, nullptr)) return;
  xmlXPathReturnNumber(ctxt, FechaISO(a).value_or(kNaN));
}

// The first node, in document order, of the node-set argument; nullptr
// when it is empty. Takes the argument off the stack.
bool PrimerNodo(xmlXPathParserContextPtr ctxt, int nargs, xmlNodePtr* nodo) {
  if (ctxt == nullptr) return false;
  if (nargs != 1) {
    xmlXPathErr(ctxt, XPATH_INVALID_ARITY);
    return false;
  }
  if (ctxt->valueNr < ctxt->valueFrame + 1) {
    xmlXPathErr(ctxt, XPATH_STACK_ERROR);
    return false;
  }
  xmlXPathObjectPtr arg = valuePop(ctxt);
  if (arg == nullptr || (arg->type != XPATH_NODESET && arg->type != XPATH_XSLT_TREE)) {
    xmlXPathFreeObject(arg);
    xmlXPathErr(ctxt, XPATH_INVALID_TYPE);
    return false;
  }
  *nodo = nullptr;
  if (arg->nodesetval != nullptr && arg->nodesetval->nodeNr > 0) {
    xmlXPathNodeSetSort(arg->nodesetval);
    *nodo = arg->nodesetval->nodeTab[0];
  }
  xmlXPathFreeObject(arg);
  return true;
}

// The DOM number and name of a node's type; 0 for kinds the DOM lacks.
// Namespace declarations are attributes in the DOM.
int TipoDOM(const xmlNode* n) {
  switch (n->type) {
    case XML_ELEMENT_NODE: return 1;
    case XML_ATTRIBUTE_NODE: case XML_NAMESPACE_DECL: return 2;
    case XML_TEXT_NODE: return 3;
    case XML_CDATA_SECTION_NODE: return 4;
    case XML_ENTITY_REF_NODE: return 5;
    case XML_ENTITY_NODE: case XML_ENTITY_DECL: return 6;
    case XML_PI_NODE: return 7;
    case XML_COMMENT_NODE: return 8;
    case XML_DOCUMENT_NODE: case XML_HTML_DOCUMENT_NODE: return 9;
    case XML_DOCUMENT_TYPE_NODE: case XML_DTD_NODE: return 10;
    case XML_DOCUMENT_FRAG_NODE: return 11;
    case XML_NOTATION_NODE: return 12;
    default: return 0;
  }
}

// Indexed by TipoDOM.
constexpr const char* kNombresDeTipo[] = {
    "",        "element",          "attribute",    "text",     "cdatasection",
    "entityreference", "entity",   "processinginstruction", "comment", "document",
    "documenttype",    "documentfragment", "notation",
};

void NodeType(xmlXPathParserContextPtr ctxt, int nargs) {
  xmlNodePtr n = nullptr;
  if (!PrimerNodo(ctxt, nargs, &n)) return;
  const int tipo = n == nullptr ? 0 : TipoDOM(n);
  xmlXPathReturnNumber(ctxt, tipo == 0 ? kNaN : tipo);
}

void NodeTypeString(xmlXPathParserContextPtr ctxt, int nargs) {
  xmlNodePtr n = nullptr;
  if (!PrimerNodo(ctxt, nargs, &n)) return;
  xmlXPathReturnString(ctxt, xmlStrdup(Xml(kNombresDeTipo[n == nullptr ? 0 : TipoDOM(n)])));
}

struct FuncionWD {
  const char* nombre;
  xmlXPathFunction funcion;
};

constexpr FuncionWD kFuncionesWD[] = {
    {"strcmp", Strcmp},
    {"date", Date},
    {"nodeType", NodeType},
    {"nodeTypeString", NodeTypeString},
};

}  // namespace

void RegistraFuncionesWD() {
  static const bool registradas = [] {
    for (const FuncionWD& f : kFuncionesWD) {
      xsltRegisterExtModuleFunction(Xml(f.nombre), Xml(kEspacioFuncionesWD), f.funcion);
    }
    return true;
  }();
  (void)registradas;
}

void RegistraFuncionesWD(_xmlXPathContext* contexto) {
  if (contexto == nullptr) return;
  for (const FuncionWD& f : kFuncionesWD) {
    xmlXPathRegisterFuncNS(contexto, Xml(f.nombre), Xml(kEspacioFuncionesWD), f.funcion);
  }
}

}  // namespace orvex::xslt
