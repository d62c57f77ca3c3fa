#include "xslt/TraduceWD.h"

#include <cctype>
#include <map>
#include <optional>
#include <set>

#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include "xslt/PatronWD.h"

namespace orvex::xslt {

void LiberaDocumento::operator()(_xmlDoc* doc) const { xmlFreeDoc(doc); }

namespace {

std::string_view Vista(const xmlChar* s) {
  return s == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(s));
}

const xmlChar* Xml(const char* s) { return reinterpret_cast<const xmlChar*>(s); }

bool EnBorrador(const xmlNode* n) {
  return n != nullptr && n->type == XML_ELEMENT_NODE && n->ns != nullptr &&
         Vista(n->ns->href) == kEspacioBorrador;
}

bool SoloBlancos(std::string_view texto) {
  return texto.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

std::optional<std::string> Atributo(const xmlNode* n, const char* nombre) {
  xmlChar* valor = xmlGetNoNsProp(n, Xml(nombre));
  if (valor == nullptr) return std::nullopt;
  std::string texto(Vista(valor));
  xmlFree(valor);
  return texto;
}

// Braces are plain text in the dialect's attributes; in XSLT they open an
// attribute value template unless doubled.
std::string DuplicaLlaves(std::string_view texto) {
  std::string r;
  r.reserve(texto.size());
  for (char c : texto) {
    r += c;
    if (c == '{' || c == '}') r += c;
  }
  return r;
}

// The key patterns of `order-by`: separated by ';' outside quotes, each
// with an optional leading '+' or '-'.
struct Clave {
  std::string patron;
  bool descendente = false;
};

std::vector<Clave> ClavesDeOrden(std::string_view orden) {
  std::vector<Clave> claves;
  std::string actual;
  char comilla = 0;
  auto cierra = [&] {
    std::string_view t = actual;
    while (!t.empty() && std::isspace(static_cast<unsigned char>(t.front()))) t.remove_prefix(1);
    while (!t.empty() && std::isspace(static_cast<unsigned char>(t.back()))) t.remove_suffix(1);
    Clave c;
    if (!t.empty() && (t.front() == '+' || t.front() == '-')) {
      c.descendente = t.front() == '-';
      t.remove_prefix(1);
    }
    while (!t.empty() && std::isspace(static_cast<unsigned char>(t.front()))) t.remove_prefix(1);
    c.patron = std::string(t);
    if (!c.patron.empty()) claves.push_back(std::move(c));
    actual.clear();
  };
  for (char c : orden) {
    if (comilla != 0) {
      if (c == comilla) comilla = 0;
    } else if (c == '\'' || c == '"') {
      comilla = c;
    } else if (c == ';') {
      cierra();
      continue;
    }
    actual += c;
  }
  cierra();
  return claves;
}

// An error that ends the translation; the message names the sheet's line.
struct ErrorTraduccion {
  std::string mensaje;
};

// The XSLT for the script code of xsl:eval that the sheets commonly hold:
// its instruction name and attributes, or nothing.
struct Idioma {
  const char* instruccion;
  std::string atributo;
  std::string valor;
};

std::optional<Idioma> IdiomaDeScript(std::string_view codigo) {
  std::string c;
  for (char ch : codigo) {
    if (!std::isspace(static_cast<unsigned char>(ch))) c += ch;
  }
  while (!c.empty() && c.back() == ';') c.pop_back();
  if (c == "childNumber(this)") return Idioma{"number", "", ""};
  if (c == "absoluteChildNumber(this)") {
    return Idioma{"value-of", "select", "count(preceding-sibling::node()) + 1"};
  }
  if (c == "depth(this)") return Idioma{"value-of", "select", "count(ancestor::node())"};
  if (c == "uniqueID(this)") return Idioma{"value-of", "select", "generate-id()"};
  if (c == "this.text" || c == "this.nodeValue" || c == "this.nodeTypedValue") {
    return Idioma{"value-of", "select", "."};
  }
  for (const char* formato : {"1", "01", "a", "A", "i", "I"}) {
    for (char q : {'"', '\''}) {
      if (c == std::string("formatIndex(childNumber(this),") + q + formato + q + ")") {
        return Idioma{"number", "format", formato};
      }
    }
  }
  // this.getAttribute("name")
  constexpr std::string_view kAtributo = "this.getAttribute(";
  if (c.starts_with(kAtributo) && c.size() > kAtributo.size() + 3 && c.back() == ')') {
    const std::string_view dentro =
        std::string_view(c).substr(kAtributo.size(), c.size() - kAtributo.size() - 1);
    if (dentro.size() >= 3 && (dentro.front() == '"' || dentro.front() == '\'') &&
        dentro.back() == dentro.front()) {
      const std::string_view nombre = dentro.substr(1, dentro.size() - 2);
      if (xmlValidateName(Xml(std::string(nombre).c_str()), 0) == 0) {
        return Idioma{"value-of", "select", "@" + std::string(nombre)};
      }
    }
  }
  return std::nullopt;
}

std::string Recorta(std::string_view texto, size_t maximo = 60) {
  std::string r(texto.substr(0, maximo));
  for (char& c : r) {
    if (c == '\r' || c == '\n' || c == '\t') c = ' ';
  }
  if (texto.size() > maximo) r += "...";
  return r;
}

class Traductor {
 public:
  explicit Traductor(const xmlDoc* hoja) : hoja_(hoja) {}

  HojaTraducida Traduce() {
    HojaTraducida r;
    salida_.reset(xmlNewDoc(Xml("1.0")));
    raiz_ = xmlNewDocNode(salida_.get(), nullptr, Xml("stylesheet"), nullptr);
    xmlDocSetRootElement(salida_.get(), raiz_);
    xsl_ = xmlNewNs(raiz_, Xml(kEspacioXSLT.data()), Xml("xsl"));
    xmlSetNs(raiz_, xsl_);
    xmlSetProp(raiz_, Xml("version"), Xml("1.0"));
    try {
      const xmlNode* fuente = xmlDocGetRootElement(const_cast<xmlDoc*>(hoja_));
      if (fuente == nullptr) throw ErrorTraduccion{"la hoja de estilo está vacía"};
      raiz_->line = fuente->line;
      CopiaEspacios(fuente, raiz_);
      xmlNodePtr espacios = NuevoXSL(raiz_, "strip-space", fuente);
      xmlSetProp(espacios, Xml("elements"), Xml("*"));
      PlantillaVacia("");
      if (EnBorrador(fuente)) {
        if (Vista(fuente->name) != "stylesheet") {
          throw ErrorTraduccion{"línea " + Linea(fuente) + ": el elemento raíz xsl:" +
                                std::string(Vista(fuente->name)) + " no es una hoja de estilo"};
        }
        Nivel(fuente);
      } else {
        // A literal result element as the whole sheet is the template for
        // the document node.
        xmlNodePtr plantilla = NuevoXSL(raiz_, "template", fuente);
        xmlSetProp(plantilla, Xml("match"), Xml("/"));
        PonPrioridad(plantilla);
        Ambito a{{plantilla}, ""};
        Literal(fuente, plantilla, a, false);
      }
      if (usa_funciones_) {
        xmlNewNs(raiz_, Xml(kEspacioFuncionesWD), Xml("wd"));
        xmlSetProp(raiz_, Xml("exclude-result-prefixes"), Xml("wd"));
      }
      r.xslt = std::move(salida_);
    } catch (const ErrorTraduccion& e) {
      r.error = e.mensaje;
      salida_.reset();
    }
    r.avisos = std::move(avisos_);
    return r;
  }

 private:
  // The bodies that enclose the instruction being translated: the
  // template's, then one for each xsl:for-each. A pattern at depth d reads
  // the context node of body K through the variable $wd-ctxK.
  struct Ambito {
    std::vector<xmlNodePtr> cuerpos;
    std::string modo;  // the mode of a template nested in apply-templates
  };

  static std::string Linea(const xmlNode* n) {
    return std::to_string(xmlGetLineNo(n));
  }

  void Aviso(const xmlNode* n, const std::string& texto) {
    avisos_.push_back("línea " + Linea(n) + ": " + texto);
  }

  xmlNodePtr NuevoXSL(xmlNodePtr padre, const char* nombre, const xmlNode* fuente) {
    xmlNodePtr n = xmlNewDocNode(salida_.get(), xsl_, Xml(nombre), nullptr);
    n->line = fuente->line;
    return xmlAddChild(padre, n);
  }

  void PonPrioridad(xmlNodePtr plantilla) {
    xmlSetProp(plantilla, Xml("priority"), Xml(std::to_string(++prioridad_).c_str()));
  }

  // The template that stands for the missing built-in rules: lower than
  // every template of the sheet, it matches everything and gives nothing.
  void PlantillaVacia(const std::string& modo) {
    xmlNodePtr t = xmlNewDocNode(salida_.get(), xsl_, Xml("template"), nullptr);
    xmlAddChild(raiz_, t);
    xmlSetProp(t, Xml("match"), Xml("/|@*|node()"));
    xmlSetProp(t, Xml("priority"), Xml("-100"));
    if (!modo.empty()) xmlSetProp(t, Xml("mode"), Xml(modo.c_str()));
  }

  // The namespace declarations of a sheet element, but the dialect's own,
  // so that prefixes in patterns and literal names keep their meaning.
  void CopiaEspacios(const xmlNode* fuente, xmlNodePtr destino) {
    for (const xmlNs* ns = fuente->nsDef; ns != nullptr; ns = ns->next) {
      if (Vista(ns->href) == kEspacioBorrador || Vista(ns->href) == kEspacioXSLT) continue;
      if (ns->prefix != nullptr && Vista(ns->prefix) == "xsl") continue;
      xmlNewNs(destino, ns->href, ns->prefix);
    }
  }

  xmlNsPtr EspacioEnSalida(xmlNodePtr destino, const xmlNs* ns) {
    if (ns == nullptr) return nullptr;
    if (xmlNsPtr hallado = xmlSearchNsByHref(salida_.get(), destino, ns->href)) {
      const bool mismo_prefijo =
          (hallado->prefix == nullptr) == (ns->prefix == nullptr) &&
          (ns->prefix == nullptr || Vista(hallado->prefix) == Vista(ns->prefix));
      if (mismo_prefijo) return hallado;
    }
    return xmlNewNs(destino, ns->href, ns->prefix);
  }

  std::string Patron(const xmlNode* fuente, const std::string& texto, UsoPatron uso,
                     Ambito& a, int profundidad) {
    PatronTraducido t = TraducePatron(texto, uso, profundidad);
    if (!t.ok) throw ErrorTraduccion{"línea " + Linea(fuente) + ": " + t.error};
    for (const std::string& aviso : t.avisos) Aviso(fuente, aviso);
    if (t.usa_funciones_wd) usa_funciones_ = true;
    for (int k : t.contextos) DeclaraContexto(fuente, a, k);
    return t.xpath;
  }

  // Declares $wd-ctxK, the context node of body K, at that body's start
  // (after its sort keys), once.
  void DeclaraContexto(const xmlNode* fuente, Ambito& a, int k) {
    if (k < 1 || k > static_cast<int>(a.cuerpos.size())) {
      throw ErrorTraduccion{"línea " + Linea(fuente) + ": context() sale de la plantilla"};
    }
    xmlNodePtr cuerpo = a.cuerpos[static_cast<size_t>(k - 1)];
    if (!declarados_[cuerpo].insert(k).second) return;
    const std::string nombre = "wd-ctx" + std::to_string(k);
    xmlNodePtr variable = xmlNewDocNode(salida_.get(), xsl_, Xml("variable"), nullptr);
    variable->line = cuerpo->line;
    xmlSetProp(variable, Xml("name"), Xml(nombre.c_str()));
    xmlSetProp(variable, Xml("select"), Xml("."));
    xmlNodePtr despues = cuerpo->children;
    while (despues != nullptr && despues->ns == xsl_ && Vista(despues->name) == "sort") {
      despues = despues->next;
    }
    if (despues == nullptr) {
      xmlAddChild(cuerpo, variable);
    } else {
      xmlAddPrevSibling(despues, variable);
    }
  }

  // The children of xsl:stylesheet (or of xsl:define-template-set).
  void Nivel(const xmlNode* padre) {
    for (const xmlNode* n = padre->children; n != nullptr; n = n->next) {
      if (n->type == XML_TEXT_NODE || n->type == XML_CDATA_SECTION_NODE) {
        if (!SoloBlancos(Vista(n->content))) {
          Aviso(n, "texto fuera de las plantillas: se omite");
        }
        continue;
      }
      if (n->type != XML_ELEMENT_NODE) continue;
      if (!EnBorrador(n)) {
        Aviso(n, "elemento <" + std::string(Vista(n->name)) +
                     "> fuera de las plantillas: se omite");
        continue;
      }
      const std::string_view nombre = Vista(n->name);
      if (nombre == "template") {
        Plantilla(n, "");
      } else if (nombre == "script") {
        Aviso(n, "xsl:script no se ejecuta: se omite");
      } else if (nombre == "define-template-set") {
        Aviso(n, "xsl:define-template-set: sus plantillas se toman como las demás");
        Nivel(n);
      } else {
        Aviso(n, "xsl:" + std::string(nombre) + " no existe en el dialecto: se omite");
      }
    }
  }

  void Plantilla(const xmlNode* fuente, const std::string& modo) {
    xmlNodePtr t = NuevoXSL(raiz_, "template", fuente);
    Ambito a{{t}, modo};
    const auto coincide = Atributo(fuente, "match");
    const std::string patron =
        coincide ? Patron(fuente, *coincide, UsoPatron::Coincidencia, a, 1) : "/|@*|node()";
    xmlSetProp(t, Xml("match"), Xml(patron.c_str()));
    PonPrioridad(t);
    if (!modo.empty()) xmlSetProp(t, Xml("mode"), Xml(modo.c_str()));
    Contenido(fuente, t, a, false);
  }

  // Template content. `crudo`: inside xsl:cdata, where text and values are
  // written without escaping.
  void Contenido(const xmlNode* fuente, xmlNodePtr destino, Ambito& a, bool crudo) {
    for (const xmlNode* n = fuente->children; n != nullptr; n = n->next) {
      switch (n->type) {
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
          Texto(n, destino, crudo);
          break;
        case XML_ELEMENT_NODE:
          if (EnBorrador(n)) {
            Instruccion(n, destino, a, crudo);
          } else {
            Literal(n, destino, a, crudo);
          }
          break;
        default:
          // Comments and processing instructions of the sheet are not output.
          break;
      }
    }
  }

  void Texto(const xmlNode* n, xmlNodePtr destino, bool crudo) {
    const std::string_view texto = Vista(n->content);
    if (texto.empty()) return;
    const bool preserva = xmlNodeGetSpacePreserve(n->parent) == 1;
    if (SoloBlancos(texto) && !preserva) return;
    if (!crudo && !SoloBlancos(texto)) {
      xmlAddChild(destino, xmlNewDocTextLen(salida_.get(), n->content,
                                            static_cast<int>(texto.size())));
      return;
    }
    xmlNodePtr t = NuevoXSL(destino, "text", n);
    if (crudo) xmlSetProp(t, Xml("disable-output-escaping"), Xml("yes"));
    xmlAddChild(t, xmlNewDocTextLen(salida_.get(), n->content, static_cast<int>(texto.size())));
  }

  void Literal(const xmlNode* fuente, xmlNodePtr destino, Ambito& a, bool crudo) {
    xmlNodePtr e = xmlNewDocNode(salida_.get(), nullptr, fuente->name, nullptr);
    e->line = fuente->line;
    xmlAddChild(destino, e);
    CopiaEspacios(fuente, e);
    xmlSetNs(e, EspacioEnSalida(e, fuente->ns));
    for (const xmlAttr* at = fuente->properties; at != nullptr; at = at->next) {
      if (at->ns != nullptr && Vista(at->ns->href) == kEspacioBorrador) {
        Aviso(fuente, "atributo xsl:" + std::string(Vista(at->name)) + " desconocido: se omite");
        continue;
      }
      xmlChar* valor = xmlNodeListGetString(fuente->doc, at->children, 1);
      const std::string texto(Vista(valor));
      xmlFree(valor);
      AvisaLlaves(fuente, texto);
      xmlNewNsProp(e, EspacioEnSalida(e, at->ns), at->name,
                   Xml(DuplicaLlaves(texto).c_str()));
    }
    Contenido(fuente, e, a, crudo);
  }

  void AvisaLlaves(const xmlNode* n, std::string_view texto) {
    if (llaves_avisadas_ || texto.find_first_of("{}") == std::string_view::npos) return;
    llaves_avisadas_ = true;
    Aviso(n, "las llaves de los atributos se escriben tal cual (\"" + Recorta(texto) + "\")");
  }

  void Ordena(const xmlNode* fuente, xmlNodePtr destino, Ambito& a) {
    const auto orden = Atributo(fuente, "order-by");
    if (!orden) return;
    // Keys are read from each selected node, one level below.
    for (const Clave& clave : ClavesDeOrden(*orden)) {
      xmlNodePtr s = NuevoXSL(destino, "sort", fuente);
      const std::string xpath = Patron(fuente, clave.patron, UsoPatron::Valor, a,
                                       static_cast<int>(a.cuerpos.size()) + 1);
      xmlSetProp(s, Xml("select"), Xml(xpath.c_str()));
      if (clave.descendente) xmlSetProp(s, Xml("order"), Xml("descending"));
    }
  }

  std::string Condicion(const xmlNode* fuente, Ambito& a) {
    const std::string nombre = "xsl:" + std::string(Vista(fuente->name));
    const int profundidad = static_cast<int>(a.cuerpos.size());
    if (Atributo(fuente, "expr")) {
      Aviso(fuente, nombre + " con expr (script) no se evalúa: la condición es falsa");
      return "false()";
    }
    if (const auto prueba = Atributo(fuente, "test")) {
      return Patron(fuente, *prueba, UsoPatron::Prueba, a, profundidad);
    }
    if (const auto coincide = Atributo(fuente, "match")) {
      Aviso(fuente, nombre + " con match: se toma como test");
      return Patron(fuente, *coincide, UsoPatron::Prueba, a, profundidad);
    }
    Aviso(fuente, nombre + " sin test: la condición es verdadera");
    return "true()";
  }

  void Instruccion(const xmlNode* fuente, xmlNodePtr destino, Ambito& a, bool crudo) {
    const std::string_view nombre = Vista(fuente->name);
    const int profundidad = static_cast<int>(a.cuerpos.size());
    if (nombre == "apply-templates") {
      AplicaPlantillas(fuente, destino, a);
    } else if (nombre == "for-each") {
      xmlNodePtr f = NuevoXSL(destino, "for-each", fuente);
      const std::string seleccion = Atributo(fuente, "select").value_or("node()");
      const std::string xpath = Patron(fuente, seleccion, UsoPatron::Seleccion, a, profundidad);
      xmlSetProp(f, Xml("select"), Xml(xpath.c_str()));
      Ordena(fuente, f, a);
      a.cuerpos.push_back(f);
      Contenido(fuente, f, a, crudo);
      a.cuerpos.pop_back();
    } else if (nombre == "value-of") {
      xmlNodePtr v = NuevoXSL(destino, "value-of", fuente);
      const std::string seleccion = Atributo(fuente, "select").value_or(".");
      const std::string xpath = Patron(fuente, seleccion, UsoPatron::Valor, a, profundidad);
      xmlSetProp(v, Xml("select"), Xml(xpath.c_str()));
      if (crudo) xmlSetProp(v, Xml("disable-output-escaping"), Xml("yes"));
    } else if (nombre == "if") {
      xmlNodePtr i = NuevoXSL(destino, "if", fuente);
      xmlSetProp(i, Xml("test"), Xml(Condicion(fuente, a).c_str()));
      Contenido(fuente, i, a, crudo);
    } else if (nombre == "choose") {
      Elige(fuente, destino, a, crudo);
    } else if (nombre == "attribute" || nombre == "element" || nombre == "pi") {
      const auto nombre_resultado = Atributo(fuente, "name");
      if (!nombre_resultado) {
        throw ErrorTraduccion{"línea " + Linea(fuente) + ": xsl:" + std::string(nombre) +
                              " sin el atributo name"};
      }
      if (nombre == "pi" && *nombre_resultado == "xml") {
        Aviso(fuente, "xsl:pi name=\"xml\" no se puede producir: se omite");
        return;
      }
      AvisaLlaves(fuente, *nombre_resultado);
      xmlNodePtr e = NuevoXSL(destino, nombre == "pi" ? "processing-instruction"
                                                      : std::string(nombre).c_str(),
                              fuente);
      xmlSetProp(e, Xml("name"), Xml(DuplicaLlaves(*nombre_resultado).c_str()));
      Contenido(fuente, e, a, false);
    } else if (nombre == "comment" || nombre == "copy") {
      Contenido(fuente, NuevoXSL(destino, std::string(nombre).c_str(), fuente), a, crudo);
    } else if (nombre == "cdata") {
      // XSLT builds no CDATA sections: the section is written as text.
      Crudo(destino, fuente, "<![CDATA[");
      Contenido(fuente, destino, a, true);
      Crudo(destino, fuente, "]]>");
    } else if (nombre == "entity-ref") {
      const auto entidad = Atributo(fuente, "name");
      if (!entidad || xmlValidateName(Xml(entidad->c_str()), 0) != 0) {
        Aviso(fuente, "xsl:entity-ref sin un nombre válido: se omite");
        return;
      }
      Crudo(destino, fuente, "&" + *entidad + ";");
    } else if (nombre == "node-name") {
      xmlSetProp(NuevoXSL(destino, "value-of", fuente), Xml("select"), Xml("name()"));
    } else if (nombre == "eval") {
      Evalua(fuente, destino);
    } else if (nombre == "script") {
      Aviso(fuente, "xsl:script no se ejecuta: se omite");
    } else if (nombre == "template") {
      Aviso(fuente, "xsl:template dentro de una plantilla: se omite");
    } else {
      Aviso(fuente, "xsl:" + std::string(nombre) + " no existe en el dialecto: se omite");
    }
  }

  void Crudo(xmlNodePtr destino, const xmlNode* fuente, const std::string& texto) {
    xmlNodePtr t = NuevoXSL(destino, "text", fuente);
    xmlSetProp(t, Xml("disable-output-escaping"), Xml("yes"));
    xmlAddChild(t, xmlNewDocTextLen(salida_.get(), Xml(texto.c_str()),
                                    static_cast<int>(texto.size())));
  }

  void Elige(const xmlNode* fuente, xmlNodePtr destino, Ambito& a, bool crudo) {
    xmlNodePtr elige = NuevoXSL(destino, "choose", fuente);
    bool alguna = false;
    for (const xmlNode* n = fuente->children; n != nullptr; n = n->next) {
      if (n->type != XML_ELEMENT_NODE) continue;
      const std::string_view nombre = Vista(n->name);
      if (EnBorrador(n) && nombre == "when") {
        xmlNodePtr cuando = NuevoXSL(elige, "when", n);
        xmlSetProp(cuando, Xml("test"), Xml(Condicion(n, a).c_str()));
        Contenido(n, cuando, a, crudo);
        alguna = true;
      } else if (EnBorrador(n) && nombre == "otherwise") {
        Contenido(n, NuevoXSL(elige, "otherwise", n), a, crudo);
      } else {
        Aviso(n, "<" + std::string(nombre) + "> dentro de xsl:choose: se omite");
      }
    }
    if (!alguna) {
      // XSLT wants at least one xsl:when.
      xmlNodePtr nunca = xmlNewDocNode(salida_.get(), xsl_, Xml("when"), nullptr);
      xmlSetProp(nunca, Xml("test"), Xml("false()"));
      if (elige->children == nullptr) {
        xmlAddChild(elige, nunca);
      } else {
        xmlAddPrevSibling(elige->children, nunca);
      }
    }
  }

  void AplicaPlantillas(const xmlNode* fuente, xmlNodePtr destino, Ambito& a) {
    xmlNodePtr ap = NuevoXSL(destino, "apply-templates", fuente);
    if (const auto seleccion = Atributo(fuente, "select")) {
      const std::string xpath = Patron(fuente, *seleccion, UsoPatron::Seleccion, a,
                                       static_cast<int>(a.cuerpos.size()));
      xmlSetProp(ap, Xml("select"), Xml(xpath.c_str()));
    }
    Ordena(fuente, ap, a);
    std::vector<const xmlNode*> locales;
    for (const xmlNode* n = fuente->children; n != nullptr; n = n->next) {
      if (n->type == XML_ELEMENT_NODE && EnBorrador(n) && Vista(n->name) == "template") {
        locales.push_back(n);
      } else if (n->type == XML_ELEMENT_NODE) {
        Aviso(n, "<" + std::string(Vista(n->name)) + "> dentro de xsl:apply-templates: se omite");
      }
    }
    if (locales.empty()) {
      if (!a.modo.empty()) xmlSetProp(ap, Xml("mode"), Xml(a.modo.c_str()));
      return;
    }
    // Templates given inside apply-templates serve those nodes alone: a mode
    // of their own, with no rule but theirs.
    const std::string modo = "wd-m" + std::to_string(++modos_);
    Aviso(fuente, "plantillas dentro de xsl:apply-templates: se aplican sólo ahí (modo " +
                      modo + ")");
    xmlSetProp(ap, Xml("mode"), Xml(modo.c_str()));
    PlantillaVacia(modo);
    for (const xmlNode* t : locales) Plantilla(t, modo);
  }

  void Evalua(const xmlNode* fuente, xmlNodePtr destino) {
    xmlChar* contenido = xmlNodeGetContent(fuente);
    const std::string codigo(Vista(contenido));
    xmlFree(contenido);
    const auto idioma = IdiomaDeScript(codigo);
    if (!idioma) {
      Aviso(fuente, "xsl:eval \"" + Recorta(codigo) + "\" no se ejecuta: no escribe nada");
      return;
    }
    xmlNodePtr e = NuevoXSL(destino, idioma->instruccion, fuente);
    if (!idioma->atributo.empty()) {
      xmlSetProp(e, Xml(idioma->atributo.c_str()), Xml(idioma->valor.c_str()));
    }
  }

  const xmlDoc* hoja_;
  DocumentoXML salida_;
  xmlNodePtr raiz_ = nullptr;
  xmlNsPtr xsl_ = nullptr;
  int prioridad_ = 0;
  int modos_ = 0;
  bool usa_funciones_ = false;
  bool llaves_avisadas_ = false;
  std::map<xmlNodePtr, std::set<int>> declarados_;
  std::vector<std::string> avisos_;
};

}  // namespace

bool EsHojaXSLT(const _xmlDoc* doc) {
  xmlNodePtr raiz = xmlDocGetRootElement(const_cast<xmlDoc*>(doc));
  if (raiz == nullptr) return false;
  if (raiz->ns != nullptr && Vista(raiz->ns->href) == kEspacioXSLT) {
    return Vista(raiz->name) == "stylesheet" || Vista(raiz->name) == "transform";
  }
  return xmlHasNsProp(raiz, Xml("version"), Xml(kEspacioXSLT.data())) != nullptr;
}

bool EsHojaBorrador(const _xmlDoc* doc) {
  xmlDocPtr d = const_cast<xmlDoc*>(doc);
  xmlNodePtr raiz = xmlDocGetRootElement(d);
  return raiz != nullptr &&
         (EnBorrador(raiz) || xmlSearchNsByHref(d, raiz, Xml(kEspacioBorrador.data())) != nullptr);
}

HojaTraducida TraduceHojaBorrador(const _xmlDoc* hoja) { return Traductor(hoja).Traduce(); }

std::string TextoDeHoja(const _xmlDoc* hoja) {
  xmlBufferPtr buffer = xmlBufferCreate();
  if (buffer == nullptr) return "";
  xmlSaveCtxtPtr ctxt = xmlSaveToBuffer(buffer, "UTF-8", XML_SAVE_FORMAT);
  std::string texto;
  if (ctxt != nullptr) {
    xmlSaveDoc(ctxt, const_cast<xmlDoc*>(hoja));
    xmlSaveClose(ctxt);
    texto.assign(reinterpret_cast<const char*>(xmlBufferContent(buffer)),
                 static_cast<size_t>(xmlBufferLength(buffer)));
  }
  xmlBufferFree(buffer);
  return texto;
}

}  // namespace orvex::xslt
