#include "xslt/SerializaHTML.h"

#include <array>
#include <string_view>

#include <libxml/parserInternals.h>

#include "base/CodePage.h"

namespace orvex::xslt {
namespace {

enum class Escape { Texto, Atributo, Ninguno };

std::string_view Vista(const xmlChar* s) {
  return s == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(s));
}

bool IgualSinMayusculas(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

bool EsUnaDe(std::string_view nombre, std::initializer_list<std::string_view> nombres) {
  for (std::string_view n : nombres) {
    if (IgualSinMayusculas(nombre, n)) return true;
  }
  return false;
}

// HTML elements are the ones without a namespace or in the XHTML namespace.
bool EsHTML(xmlNodePtr nodo) {
  return nodo->ns == nullptr || Vista(nodo->ns->href) == "http://www.w3.org/1999/xhtml";
}

bool EsVacio(xmlNodePtr nodo) {
  return EsHTML(nodo) &&
         EsUnaDe(Vista(nodo->name), {"area", "base", "basefont", "br", "col", "embed", "frame",
                                     "hr", "img", "input", "isindex", "link", "meta", "param",
                                     "source", "track", "wbr"});
}

bool EsCrudo(xmlNodePtr nodo) {
  return EsHTML(nodo) && EsUnaDe(Vista(nodo->name), {"script", "style"});
}

class Escritor {
 public:
  std::string Resultado() && { return std::move(salida_); }

  void Hijos(xmlNodePtr padre, bool crudo) {
    for (xmlNodePtr n = padre->children; n != nullptr; n = n->next) Nodo(n, crudo);
  }

  void Texto(std::string_view s, Escape escape) {
    const CodePage& pagina = CodePage::Windows1252();
    for (size_t i = 0; i < s.size();) {
      const char c = s[i];
      if (escape != Escape::Ninguno && (c == '&' || c == '<' || c == '>' || c == '"')) {
        ++i;
        switch (c) {
          case '&': salida_ += "&amp;"; break;
          case '<': salida_ += "&lt;"; break;
          case '>': salida_ += "&gt;"; break;
          default: salida_ += escape == Escape::Atributo ? "&quot;" : "\""; break;
        }
        continue;
      }
      const char32_t u = NextUtf8(s, i);
      if (const auto byte = pagina.ByteFor(u)) {
        salida_ += *byte;
      } else {
        salida_ += "&#" + std::to_string(static_cast<unsigned long>(u)) + ";";
      }
    }
  }

 private:
  void Nombre(xmlNodePtr nodo) {
    if (nodo->ns != nullptr && nodo->ns->prefix != nullptr) {
      salida_ += Vista(nodo->ns->prefix);
      salida_ += ':';
    }
    salida_ += Vista(nodo->name);
  }

  void Atributos(xmlNodePtr elemento) {
    for (xmlNsPtr ns = elemento->nsDef; ns != nullptr; ns = ns->next) {
      salida_ += " xmlns";
      if (ns->prefix != nullptr) {
        salida_ += ':';
        salida_ += Vista(ns->prefix);
      }
      salida_ += "=\"";
      Texto(Vista(ns->href), Escape::Atributo);
      salida_ += '"';
    }
    for (xmlAttrPtr a = elemento->properties; a != nullptr; a = a->next) {
      salida_ += ' ';
      Nombre(reinterpret_cast<xmlNodePtr>(a));
      salida_ += "=\"";
      for (xmlNodePtr v = a->children; v != nullptr; v = v->next) {
        if (v->type == XML_TEXT_NODE) {
          Texto(Vista(v->content), Escape::Atributo);
        } else if (v->type == XML_ENTITY_REF_NODE) {
          salida_ += '&';
          salida_ += Vista(v->name);
          salida_ += ';';
        }
      }
      salida_ += '"';
    }
  }

  void Elemento(xmlNodePtr nodo) {
    salida_ += '<';
    Nombre(nodo);
    Atributos(nodo);
    salida_ += '>';
    if (EsVacio(nodo) && nodo->children == nullptr) return;
    Hijos(nodo, EsCrudo(nodo));
    salida_ += "</";
    Nombre(nodo);
    salida_ += '>';
  }

  void TipoDeDocumento(xmlDtdPtr dtd) {
    salida_ += "<!DOCTYPE ";
    salida_ += Vista(dtd->name);
    if (dtd->ExternalID != nullptr) {
      salida_ += " PUBLIC \"";
      salida_ += Vista(dtd->ExternalID);
      salida_ += '"';
      if (dtd->SystemID != nullptr) {
        salida_ += " \"";
        salida_ += Vista(dtd->SystemID);
        salida_ += '"';
      }
    } else if (dtd->SystemID != nullptr) {
      salida_ += " SYSTEM \"";
      salida_ += Vista(dtd->SystemID);
      salida_ += '"';
    }
    salida_ += '>';
  }

  void Nodo(xmlNodePtr n, bool crudo) {
    switch (n->type) {
      case XML_ELEMENT_NODE:
        Elemento(n);
        break;
      case XML_TEXT_NODE:
        Texto(Vista(n->content),
              crudo || n->name == xmlStringTextNoenc ? Escape::Ninguno : Escape::Texto);
        break;
      case XML_CDATA_SECTION_NODE:
        salida_ += "<![CDATA[";
        Texto(Vista(n->content), Escape::Ninguno);
        salida_ += "]]>";
        break;
      case XML_ENTITY_REF_NODE:
        salida_ += '&';
        salida_ += Vista(n->name);
        salida_ += ';';
        break;
      case XML_COMMENT_NODE:
        salida_ += "<!--";
        Texto(Vista(n->content), Escape::Ninguno);
        salida_ += "-->";
        break;
      case XML_PI_NODE:
        salida_ += "<?";
        salida_ += Vista(n->name);
        if (n->content != nullptr && *n->content != 0) {
          salida_ += ' ';
          Texto(Vista(n->content), Escape::Ninguno);
        }
        salida_ += "?>";
        break;
      case XML_DTD_NODE:
        TipoDeDocumento(reinterpret_cast<xmlDtdPtr>(n));
        break;
      default:
        break;
    }
  }

  std::string salida_;
};

void TextoDe(xmlNodePtr padre, Escritor& escritor) {
  for (xmlNodePtr n = padre->children; n != nullptr; n = n->next) {
    if (n->type == XML_TEXT_NODE || n->type == XML_CDATA_SECTION_NODE) {
      escritor.Texto(Vista(n->content), Escape::Ninguno);
    } else if (n->type == XML_ELEMENT_NODE) {
      TextoDe(n, escritor);
    }
  }
}

}  // namespace

std::string SerializaHTML(xmlDocPtr documento) {
  Escritor escritor;
  escritor.Hijos(reinterpret_cast<xmlNodePtr>(documento), false);
  return std::move(escritor).Resultado();
}

std::string SerializaTexto(xmlDocPtr documento) {
  Escritor escritor;
  TextoDe(reinterpret_cast<xmlNodePtr>(documento), escritor);
  return std::move(escritor).Resultado();
}

}  // namespace orvex::xslt
