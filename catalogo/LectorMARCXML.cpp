#include "catalogo/LectorMARCXML.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlreader.h>

#include <strings.h>

#include <climits>
#include <cstring>
#include <unordered_set>
#include <vector>

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

bool EsBlancoXML(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// One <record> element found in the document's bytes.
struct Tramo {
  std::size_t inicio = 0, fin = 0;  // from its "<" to just after its end tag
  std::size_t fin_nombre = 0;       // just after the element's name in its start tag
  // The namespace declarations in scope from the elements around it that it
  // does not make itself, as the file writes them (` xmlns="..."`).
  std::string declaraciones;
  std::size_t elementos = 0;  // elements in it, itself included
  int linea = 1;              // the line where its start tag ends
};

// Finds, in a document's own bytes, the <record> elements that the reader
// takes, in the same order: a <record> in the MARC 21 namespace or in none,
// not inside one taken before. It reads the markup as the parser does, so
// that comments, CDATA sections, processing instructions, the document type
// and quoted attribute values hide no tag from it, and resolves namespace
// prefixes from the declarations in scope. It only runs over bytes the
// parser has already accepted; on markup it cannot read it stops for good.
class Localizador {
 public:
  explicit Localizador(std::string_view datos) : d_(datos) {}

  // The next record element; false when there is none or the markup cannot
  // be read.
  bool Siguiente(Tramo& t) {
    for (;;) {
      Marca m;
      if (!Avanza(m)) return false;
      if (m.tipo != Marca::kInicio || !EsRegistro(m)) continue;
      t.inicio = m.inicio;
      t.fin_nombre = m.fin_nombre;
      t.linea = linea_;
      t.declaraciones = EnAmbito(m.vacio ? marcas_vacio_ : marcas_.back());
      t.elementos = 1;
      const std::size_t nivel = marcas_.size();
      while (!m.vacio && marcas_.size() >= nivel) {
        Marca dentro;
        if (!Avanza(dentro)) return false;
        if (dentro.tipo == Marca::kInicio) ++t.elementos;
      }
      t.fin = p_;
      return true;
    }
  }

 private:
  struct Declaracion {
    std::string_view prefijo;  // empty: the default namespace
    std::string_view uri;
    std::string_view texto;    // the attribute as written
  };
  struct Marca {
    enum Tipo { kInicio, kFin, kOtra } tipo = kOtra;
    std::size_t inicio = 0, fin_nombre = 0;
    std::string_view nombre;
    bool vacio = false;
  };

  // Reads the next piece of markup, with the text before it; keeps the open
  // elements and their declarations. An empty element's declarations stay on
  // the stack (from marcas_vacio_) until the next piece is read.
  bool Avanza(Marca& m) {
    if (vacio_pendiente_) {
      decls_.resize(marcas_vacio_);
      vacio_pendiente_ = false;
    }
    const std::size_t lt = d_.find('<', p_);
    if (lt == std::string_view::npos) return false;
    Lineas(lt);
    m.inicio = lt;
    const std::string_view resto = d_.substr(lt);
    std::size_t fin = std::string_view::npos;
    if (resto.starts_with("<!--")) {
      fin = Tras(lt + 4, "-->");
    } else if (resto.starts_with("<![CDATA[")) {
      fin = Tras(lt + 9, "]]>");
    } else if (resto.starts_with("<?")) {
      fin = Tras(lt + 2, "?>");
    } else if (resto.starts_with("<!")) {
      fin = FinDeclaracionTipo(lt + 2);
    } else if (resto.starts_with("</")) {
      const std::size_t cierre = d_.find('>', lt);
      if (cierre == std::string_view::npos || marcas_.empty()) return false;
      fin = cierre + 1;
      m.tipo = Marca::kFin;
      decls_.resize(marcas_.back());
      marcas_.pop_back();
    } else {
      m.tipo = Marca::kInicio;
      fin = LeeInicio(lt, m);
    }
    if (fin == std::string_view::npos) return false;
    Lineas(fin);
    p_ = fin;
    return true;
  }

  // Past the first `cierre` at or after `desde`.
  std::size_t Tras(std::size_t desde, std::string_view cierre) const {
    const std::size_t p = d_.find(cierre, desde);
    return p == std::string_view::npos ? p : p + cierre.size();
  }

  // Past the document type declaration whose body starts at `p`: quoted
  // literals, comments and processing instructions in its internal subset
  // included.
  std::size_t FinDeclaracionTipo(std::size_t p) const {
    int corchetes = 0;
    while (p < d_.size()) {
      const char c = d_[p];
      if (c == '"' || c == '\'') {
        const std::size_t q = d_.find(c, p + 1);
        if (q == std::string_view::npos) return q;
        p = q + 1;
      } else if (d_.substr(p, 4) == "<!--") {
        p = Tras(p + 4, "-->");
        if (p == std::string_view::npos) return p;
      } else if (d_.substr(p, 2) == "<?") {
        p = Tras(p + 2, "?>");
        if (p == std::string_view::npos) return p;
      } else {
        if (c == '[') ++corchetes;
        if (c == ']') --corchetes;
        ++p;
        if (c == '>' && corchetes <= 0) return p;
      }
    }
    return std::string_view::npos;
  }

  // Reads the start tag at `lt`: its name, its namespace declarations (onto
  // the stack) and whether it is empty; the position past it.
  std::size_t LeeInicio(std::size_t lt, Marca& m) {
    std::size_t i = lt + 1;
    while (i < d_.size() && !EsBlancoXML(d_[i]) && d_[i] != '/' && d_[i] != '>') ++i;
    m.nombre = d_.substr(lt + 1, i - lt - 1);
    m.fin_nombre = i;
    const std::size_t marca = decls_.size();
    for (;;) {
      while (i < d_.size() && EsBlancoXML(d_[i])) ++i;
      if (i >= d_.size()) return std::string_view::npos;
      if (d_[i] == '>') {
        ++i;
        break;
      }
      if (d_[i] == '/') {
        if (d_.substr(i, 2) != "/>") return std::string_view::npos;
        i += 2;
        m.vacio = true;
        break;
      }
      const std::size_t inicio = i;
      while (i < d_.size() && !EsBlancoXML(d_[i]) && d_[i] != '=' && d_[i] != '>') ++i;
      const std::string_view nombre = d_.substr(inicio, i - inicio);
      while (i < d_.size() && EsBlancoXML(d_[i])) ++i;
      if (i >= d_.size() || d_[i] != '=') return std::string_view::npos;
      ++i;
      while (i < d_.size() && EsBlancoXML(d_[i])) ++i;
      if (i >= d_.size() || (d_[i] != '"' && d_[i] != '\'')) return std::string_view::npos;
      const std::size_t cierre = d_.find(d_[i], i + 1);
      if (cierre == std::string_view::npos) return cierre;
      const std::string_view valor = d_.substr(i + 1, cierre - i - 1);
      i = cierre + 1;
      if (nombre == "xmlns") {
        decls_.push_back({{}, valor, d_.substr(inicio, i - inicio)});
      } else if (nombre.starts_with("xmlns:")) {
        decls_.push_back({nombre.substr(6), valor, d_.substr(inicio, i - inicio)});
      }
    }
    if (m.vacio) {
      marcas_vacio_ = marca;
      vacio_pendiente_ = true;
    } else {
      marcas_.push_back(marca);
    }
    return i;
  }

  // The namespace of the element `m` just read.
  std::string_view Espacio(const Marca& m) const {
    const std::size_t dos_puntos = m.nombre.find(':');
    const std::string_view prefijo =
        dos_puntos == std::string_view::npos ? std::string_view() : m.nombre.substr(0, dos_puntos);
    for (std::size_t i = decls_.size(); i-- > 0;) {
      if (decls_[i].prefijo == prefijo) return decls_[i].uri;
    }
    return {};
  }

  bool EsRegistro(const Marca& m) const {
    const std::size_t dos_puntos = m.nombre.find(':');
    const std::string_view local =
        dos_puntos == std::string_view::npos ? m.nombre : m.nombre.substr(dos_puntos + 1);
    if (local != "record") return false;
    const std::string_view espacio = Espacio(m);
    return espacio.empty() || espacio == kEspacioMARC;
  }

  // The declarations below `marca` (those of the enclosing elements) that
  // the element whose own declarations start at `marca` does not remake,
  // the innermost of each prefix, outermost first.
  std::string EnAmbito(std::size_t marca) const {
    std::vector<const Declaracion*> elegidas;
    std::unordered_set<std::string_view> vistos;
    for (std::size_t i = decls_.size(); i-- > 0;) {
      const bool tapada = !vistos.insert(decls_[i].prefijo).second;
      if (!tapada && i < marca) elegidas.push_back(&decls_[i]);
    }
    std::string texto;
    for (std::size_t k = elegidas.size(); k-- > 0;) {
      texto.append(" ").append(elegidas[k]->texto);
    }
    return texto;
  }

  // Counts the line ends up to `hasta`.
  void Lineas(std::size_t hasta) {
    for (; contado_ < hasta && contado_ < d_.size(); ++contado_) {
      if (d_[contado_] == '\n') ++linea_;
    }
  }

  std::string_view d_;
  std::size_t p_ = 0;
  std::vector<Declaracion> decls_;
  std::vector<std::size_t> marcas_;  // per open element, where its declarations start
  std::size_t marcas_vacio_ = 0;     // the same for the last empty element
  bool vacio_pendiente_ = false;     // its declarations are still on the stack
  std::size_t contado_ = 0;
  int linea_ = 1;
};

// The elements in the tree of `nodo`, itself included.
std::size_t CuentaElementos(const xmlNode* nodo) {
  std::size_t n = 1;
  for (const xmlNode* h = nodo->children; h != nullptr; h = h->next) {
    if (h->type == XML_ELEMENT_NODE) n += CuentaElementos(h);
  }
  return n;
}

// True when every "&" of `texto` starts a reference the parser knows
// without a document type: the five predefined entities and character
// references.
bool SinEntidadesPropias(std::string_view texto) {
  for (std::size_t p = texto.find('&'); p != std::string_view::npos; p = texto.find('&', p + 1)) {
    const std::string_view r = texto.substr(p + 1);
    if (!(r.starts_with("#") || r.starts_with("amp;") || r.starts_with("lt;") ||
          r.starts_with("gt;") || r.starts_with("quot;") || r.starts_with("apos;"))) {
      return false;
    }
  }
  return true;
}

bool EsCodificacionUtf8(const char* nombre) {
  if (nombre == nullptr) return true;
  for (const char* c : {"UTF-8", "UTF8", "US-ASCII", "ASCII"}) {
    if (strcasecmp(nombre, c) == 0) return true;
  }
  return false;
}

// Replaces the references to the document type's entities under `nodo` by
// their text.
void ExpandeEntidades(xmlNode* nodo) {
  for (xmlNode* h = nodo->children; h != nullptr;) {
    xmlNode* siguiente = h->next;
    if (h->type == XML_ENTITY_REF_NODE) {
      xmlChar* contenido = xmlNodeGetContent(h);
      xmlNode* texto = xmlNewDocText(h->doc, contenido != nullptr ? contenido : BAD_CAST "");
      xmlFree(contenido);
      if (texto != nullptr) {
        xmlReplaceNode(h, texto);
        xmlFreeNode(h);
      }
    } else if (h->type == XML_ELEMENT_NODE) {
      ExpandeEntidades(h);
    }
    h = siguiente;
  }
}

// The record `nodo` written by libxml2 in UTF-8, with the declarations of the
// namespaces it uses from the elements around it and its entities expanded.
std::string Escrito(xmlNode* nodo) {
  std::string texto;
  xmlNode* copia = xmlDocCopyNode(nodo, nodo->doc, 1);
  if (copia != nullptr) ExpandeEntidades(copia);
  xmlBuffer* buffer = xmlBufferCreate();
  if (copia != nullptr && buffer != nullptr && xmlNodeDump(buffer, nodo->doc, copia, 0, 0) >= 0) {
    texto.assign(Texto(xmlBufferContent(buffer)),
                 static_cast<std::size_t>(xmlBufferLength(buffer)));
  }
  if (buffer != nullptr) xmlBufferFree(buffer);
  if (copia != nullptr) xmlFreeNode(copia);
  return texto;
}

}  // namespace

struct LectorMARCXML::Estado {
  explicit Estado(std::string_view d) : datos(d), localizador(d) {}

  xmlTextReaderPtr lector = nullptr;
  bool terminado = false;
  bool saltar = false;  // the last record was expanded: move past it
  std::string error;
  int linea = 0;

  std::string_view datos;
  // The records are taken from the file's bytes while these are UTF-8 and
  // the localizer keeps step with the reader; otherwise libxml2 writes them.
  Localizador localizador;
  bool bytes_propios = true;
  bool codificacion_vista = false;
  std::string original;  // the record's text when it is not a piece of `datos`
};

LectorMARCXML::LectorMARCXML(std::string_view datos, const std::string& nombre)
    : estado_(new Estado(datos)) {
  xmlInitParser();
  // A document in UTF-16 (a byte order mark, or a 00 byte among its first)
  // cannot give its records as UTF-8 pieces.
  const std::string_view inicio = datos.substr(0, 4);
  if (inicio.starts_with("\xFE\xFF") || inicio.starts_with("\xFF\xFE") ||
      inicio.find('\0') != std::string_view::npos) {
    estado_->bytes_propios = false;
  }
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
  original_ = {};
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
    const bool leido = LeeRegistro(nodo, registro, identificador_, motivo_);
    TomaOriginal(nodo);
    if (!leido) {
      original_ = {};
      return Lectura::kRechazado;
    }
    return Lectura::kRegistro;
  }
}

void LectorMARCXML::TomaOriginal(xmlNode* nodo) {
  Estado& e = *estado_;
  if (!e.codificacion_vista) {
    e.codificacion_vista = true;
    if (!EsCodificacionUtf8(Texto(xmlTextReaderConstEncoding(e.lector)))) e.bytes_propios = false;
  }
  if (e.bytes_propios) {
    // The localizer must find the same element: same size, same line
    // (libxml2 counts lines up to 65 535).
    Tramo t;
    const long linea = xmlGetLineNo(nodo);
    if (!e.localizador.Siguiente(t) || t.elementos != CuentaElementos(nodo) ||
        (linea > 0 && linea < 65535 && linea != t.linea)) {
      e.bytes_propios = false;
    } else {
      const std::string_view bytes = e.datos.substr(t.inicio, t.fin - t.inicio);
      if (SinEntidadesPropias(bytes)) {
        if (t.declaraciones.empty()) {
          original_ = bytes;
        } else {
          const std::size_t nombre = t.fin_nombre - t.inicio;
          e.original.assign(bytes.substr(0, nombre));
          e.original.append(t.declaraciones).append(bytes.substr(nombre));
          original_ = e.original;
        }
        return;
      }
    }
  }
  e.original = Escrito(nodo);
  original_ = e.original;
}

}  // namespace orvex::catalogo
