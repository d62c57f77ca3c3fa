#include "catalogo/LectorMARCXML.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlreader.h>

#include <climits>
#include <cstring>

#include "catalogo/TextoMARC.h"

namespace orvex::catalogo {
namespace {

constexpr const char* kEspacioMARC = "http://www.loc.gov/MARC21/slim";

const char* Texto(const xmlChar* s) { return reinterpret_cast<const char*>(s); }

bool EspacioAdmitido(const xmlNode* nodo) {
  return nodo->ns == nullptr || nodo->ns->href == nullptr ||
         std::strcmp(Texto(nodo->ns->href), kEspacioMARC) == 0;
}

bool EsElemento(const xmlNode* nodo, const char* nombre) {
  return nodo->type == XML_ELEMENT_NODE && EspacioAdmitido(nodo) &&
         std::strcmp(Texto(nodo->name), nombre) == 0;
}

std::string Contenido(const xmlNode* nodo) {
  xmlChar* c = xmlNodeGetContent(nodo);
  std::string s = c != nullptr ? Texto(c) : "";
  xmlFree(c);
  return s;
}

std::string Atributo(xmlNode* nodo, const char* nombre) {
  xmlChar* v = xmlGetProp(nodo, reinterpret_cast<const xmlChar*>(nombre));
  std::string s = v != nullptr ? Texto(v) : "";
  xmlFree(v);
  return s;
}

char PrimerCaracter(const std::string& s) { return s.empty() ? ' ' : s[0]; }

bool EsEtiqueta(const std::string& t) {
  if (t.size() != 3) return false;
  for (char c : t) {
    const bool alfanumerico =
        (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (!alfanumerico) return false;
  }
  return true;
}

// libxml2's structured error callback; its error parameter changed constness
// between releases, so the callback takes whatever this release declares.
template <typename Funcion>
struct Aviso;
template <typename Error>
struct Aviso<void (*)(void*, Error)> {
  static void Llama(void* datos, Error error) {
    if (error == nullptr) return;
    std::string mensaje = error->message != nullptr ? error->message : "";
    for (char& c : mensaje) {
      if (c == '\n' || c == '\r') c = ' ';
    }
    while (!mensaje.empty() && mensaje.back() == ' ') mensaje.pop_back();
    static_cast<LectorMARCXML*>(datos)->AnotaError(mensaje, error->line);
  }
};

}  // namespace

struct LectorMARCXML::Estado {
  xmlTextReaderPtr lector = nullptr;
  bool terminado = false;
  bool saltar = false;  // the last record was expanded: move past it
  std::string error;
  int linea = 0;
};

LectorMARCXML::LectorMARCXML(std::string_view datos, const std::string& nombre)
    : estado_(new Estado) {
  xmlInitParser();
  if (datos.size() > static_cast<std::size_t>(INT_MAX)) {
    estado_->error = "el archivo es demasiado grande para leerlo como XML";
    return;
  }
  estado_->lector = xmlReaderForMemory(datos.data(), static_cast<int>(datos.size()),
                                       nombre.c_str(), nullptr, XML_PARSE_NONET);
  if (estado_->lector == nullptr) {
    estado_->error = "no se pudo iniciar la lectura del XML";
    return;
  }
  xmlTextReaderSetStructuredErrorHandler(estado_->lector,
                                         &Aviso<xmlStructuredErrorFunc>::Llama, this);
}

LectorMARCXML::~LectorMARCXML() {
  if (estado_->lector != nullptr) xmlFreeTextReader(estado_->lector);
  delete estado_;
}

void LectorMARCXML::AnotaError(const std::string& mensaje, int linea) {
  if (!estado_->error.empty()) return;  // the first error is the cause
  estado_->error = mensaje;
  estado_->linea = linea;
}

namespace {

// Reads one <record> element; false with `motivo` when a field lacks its tag.
bool LeeRegistro(xmlNode* nodo, RegistroMARC& registro, std::string& identificador,
                 std::string& motivo) {
  for (xmlNode* hijo = nodo->children; hijo != nullptr; hijo = hijo->next) {
    if (EsElemento(hijo, "controlfield") && Atributo(hijo, "tag") == "001") {
      identificador = std::string(CortaCaracteres(SinBlancos(Contenido(hijo)), 40));
      break;
    }
  }
  for (xmlNode* hijo = nodo->children; hijo != nullptr; hijo = hijo->next) {
    const bool control = EsElemento(hijo, "controlfield");
    const bool datos = EsElemento(hijo, "datafield");
    if (EsElemento(hijo, "leader")) {
      registro.lider = Contenido(hijo);
      registro.lider.resize(24, ' ');
      continue;
    }
    if (!control && !datos) continue;
    Campo campo;
    campo.etiqueta = Atributo(hijo, "tag");
    if (!EsEtiqueta(campo.etiqueta)) {
      motivo = "campo sin etiqueta de tres caracteres (tag=\"" +
               std::string(CortaCaracteres(campo.etiqueta, 10)) + "\", línea " +
               std::to_string(xmlGetLineNo(hijo)) + ")";
      return false;
    }
    if (control) {
      campo.datos = Contenido(hijo);
    } else {
      campo.ind1 = PrimerCaracter(Atributo(hijo, "ind1"));
      campo.ind2 = PrimerCaracter(Atributo(hijo, "ind2"));
      for (xmlNode* s = hijo->children; s != nullptr; s = s->next) {
        if (!EsElemento(s, "subfield")) continue;
        Subcampo sub;
        sub.codigo = PrimerCaracter(Atributo(s, "code"));
        sub.valor = Contenido(s);
        if (campo.EsControl()) {
          campo.datos += sub.valor;
        } else {
          campo.subcampos.push_back(std::move(sub));
        }
      }
    }
    registro.campos.push_back(std::move(campo));
  }
  return true;
}

}  // namespace

Lectura LectorMARCXML::Siguiente(RegistroMARC& registro) {
  Estado& e = *estado_;
  if (e.terminado) return Lectura::kFin;
  auto falla = [&]() {
    e.terminado = true;
    ++posicion_;
    identificador_.clear();
    motivo_ = "XML mal formado";
    if (e.linea > 0) motivo_ += " en la línea " + std::to_string(e.linea);
    if (!e.error.empty()) motivo_ += " (" + e.error + ")";
    motivo_ += "; el resto del archivo no se lee";
    return Lectura::kRechazado;
  };
  if (e.lector == nullptr) return falla();

  for (;;) {
    const int rc = e.saltar ? xmlTextReaderNext(e.lector) : xmlTextReaderRead(e.lector);
    e.saltar = false;
    if (rc == 0) {
      e.terminado = true;
      return Lectura::kFin;
    }
    if (rc < 0) return falla();
    if (xmlTextReaderNodeType(e.lector) != XML_READER_TYPE_ELEMENT) continue;
    const xmlChar* nombre = xmlTextReaderConstLocalName(e.lector);
    const xmlChar* espacio = xmlTextReaderConstNamespaceUri(e.lector);
    if (nombre == nullptr || std::strcmp(Texto(nombre), "record") != 0) continue;
    if (espacio != nullptr && std::strcmp(Texto(espacio), kEspacioMARC) != 0) continue;

    xmlNode* nodo = xmlTextReaderExpand(e.lector);
    if (nodo == nullptr) return falla();
    e.saltar = true;
    ++posicion_;
    identificador_.clear();
    motivo_.clear();
    registro = RegistroMARC();
    return LeeRegistro(nodo, registro, identificador_, motivo_) ? Lectura::kRegistro
                                                                 : Lectura::kRechazado;
  }
}

}  // namespace orvex::catalogo
