#include "marc/Registros.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <yaz/marcdisp.h>
#include <yaz/wrbuf.h>
#include <yaz/yaz-iconv.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

#include "base/CodePage.h"
#include "base/Runtime.h"
#include "marc/Campos.h"

namespace orvex::marc {
namespace {

constexpr const char* kEspacioMARC = "http://www.loc.gov/MARC21/slim";
constexpr char kFinRegistro = '\x1D';
constexpr char kEscape = '\x1B';
// The longest ISO 2709 record and field: five and four digits of length.
constexpr std::size_t kMaximoRegistro = 99999;
constexpr std::size_t kMaximoCampo = 9999;
constexpr std::size_t kLargoLider = 24;
// YAZ reads a few bytes past a field's indicators without looking at the
// record's end: the record is handed over with this many zero bytes after it.
constexpr std::size_t kRelleno = 16;

// The leader of a record built from the tag string: a new record of language
// material at the monograph level, UTF-8, two indicators and one-character
// subfield codes, encoding level and cataloguing form unknown, the usual
// directory map. YAZ writes the lengths (positions 0-4 and 12-16).
constexpr const char* kLiderEtiquetas = "00000nam a2200000uu 4500";

const char* Texto(const xmlChar* s) { return reinterpret_cast<const char*>(s); }

// --- text ------------------------------------------------------------------

// True when `s` is well-formed UTF-8 (no overlong forms, no surrogates,
// nothing past U+10FFFF).
bool EsUtf8(std::string_view s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const auto* fin = p + s.size();
  while (p < fin) {
    const unsigned char c = *p;
    if (c < 0x80) {
      ++p;
      continue;
    }
    std::size_t n = 0;
    unsigned char min = 0x80, max = 0xBF;  // bounds of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      n = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      n = 2;
      if (c == 0xE0) min = 0xA0;
      if (c == 0xED) max = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      n = 3;
      if (c == 0xF0) min = 0x90;
      if (c == 0xF4) max = 0x8F;
    } else {
      return false;
    }
    if (static_cast<std::size_t>(fin - p) <= n) return false;
    if (p[1] < min || p[1] > max) return false;
    for (std::size_t i = 2; i <= n; ++i) {
      if (p[i] < 0x80 || p[i] > 0xBF) return false;
    }
    p += n + 1;
  }
  return true;
}

// `s` cut to at most `n` bytes, at a character boundary.
std::string_view CortaUtf8(std::string_view s, std::size_t n) {
  if (s.size() <= n) return s;
  while (n > 0 && (static_cast<unsigned char>(s[n]) & 0xC0) == 0x80) --n;
  return s.substr(0, n);
}

bool EsControlC0(char c) { return static_cast<unsigned char>(c) < 0x20; }

bool EsBlanco(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Appends `texto` to the XML text `xml` as element content: "&", "<" and
// ">" escaped, control characters XML does not admit left out.
void AgregaEscapado(std::string& xml, std::string_view texto) {
  for (char c : texto) {
    switch (c) {
      case '&': xml += "&amp;"; break;
      case '<': xml += "&lt;"; break;
      case '>': xml += "&gt;"; break;
      default:
        if (!EsControlC0(c) || c == '\t' || c == '\n' || c == '\r') xml += c;
    }
  }
}

// --- the record as fields ----------------------------------------------------

bool EsEtiquetaMARC(std::string_view t) {
  return t.size() == 3 && std::all_of(t.begin(), t.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
         });
}

// UTF-8 without the control characters, which would break an ISO 2709
// record's structure.
std::string Utf8SinControles(std::string_view cp1252) {
  std::string limpio;
  limpio.reserve(cp1252.size());
  for (char c : cp1252) {
    if (!EsControlC0(c)) limpio += c;
  }
  return CodePage::Windows1252().ToUtf8(limpio);
}

// The fields of the tag string, read as the presentations read them (see
// records/Presentaciones.h), one per occurrence, control fields first.
Marc DeEtiquetas(const records::RegFicha& ficha) {
  static constexpr char kDelimitadores[] = {records::kSeparadorCampo, records::kFinEtiquetas};
  const std::string_view delimitadores(kDelimitadores, 2);
  const std::string_view marc = ficha.EtiquetasMARC;
  Marc r;
  r.lider = kLiderEtiquetas;
  r.de_etiquetas = true;
  std::vector<Campo> control, datos;
  for (std::size_t p = marc.find_first_of(delimitadores);
       p != std::string_view::npos && marc[p] == records::kSeparadorCampo;) {
    const std::size_t siguiente = marc.find_first_of(delimitadores, p + 1);
    const std::size_t fin = siguiente == std::string_view::npos ? marc.size() : siguiente;
    if (fin >= p + 4 && EsEtiquetaMARC(marc.substr(p + 1, 3))) {
      Campo modelo;
      modelo.etiqueta = std::string(marc.substr(p + 1, 3));
      std::string_view contenido = marc.substr(p + 4, fin - p - 4);
      if (modelo.EsControl()) {
        // The catalogue joins a control field's occurrences by " \ " and
        // keeps each as it stands: its positions mean something.
        for (;;) {
          const std::size_t corte = contenido.find(" \\ ");
          const std::string_view pieza = contenido.substr(0, corte);
          if (!TrimBlanksView(pieza).empty()) {
            control.push_back(modelo);
            control.back().datos = Utf8SinControles(pieza);
          }
          if (corte == std::string_view::npos) break;
          contenido.remove_prefix(corte + 3);
        }
      } else {
        for (;;) {
          const std::size_t barra = contenido.find('\\');
          const std::string_view pieza = TrimBlanksView(contenido.substr(0, barra));
          if (!pieza.empty()) {
            datos.push_back(modelo);
            datos.back().subcampos.push_back({'a', Utf8SinControles(pieza)});
          }
          if (barra == std::string_view::npos) break;
          contenido.remove_prefix(barra + 1);
        }
      }
    }
    p = siguiente;
  }
  const bool con_001 = std::any_of(control.begin(), control.end(),
                                   [](const Campo& c) { return c.etiqueta == "001"; });
  if (!con_001) {
    Campo numero;
    numero.etiqueta = "001";
    numero.datos = std::to_string(ficha.Ficha_no);
    r.campos.push_back(std::move(numero));
  }
  for (auto* grupo : {&control, &datos}) {
    for (Campo& c : *grupo) r.campos.push_back(std::move(c));
  }
  return r;
}

// `r` cut to what ISO 2709 holds: each field's text shortened to fit the
// field's 9 999 bytes, and the fields that would take the record past 99 999
// bytes left out.
Marc ParaIso2709(Marc r) {
  // Leader, end of directory, record terminator.
  std::size_t total = kLargoLider + 1 + 1;
  std::vector<Campo> campos;
  for (Campo& c : r.campos) {
    std::size_t largo = 0;
    if (c.EsControl()) {
      c.datos = std::string(CortaUtf8(c.datos, kMaximoCampo - 1));
      largo = c.datos.size() + 1;
    } else {
      largo = 2 + 1;  // indicators, field terminator
      std::vector<Subcampo> subcampos;
      for (Subcampo& s : c.subcampos) {
        if (largo + 2 > kMaximoCampo) break;  // no room for a delimiter and a code
        s.valor = std::string(CortaUtf8(s.valor, kMaximoCampo - largo - 2));
        largo += 2 + s.valor.size();
        subcampos.push_back(std::move(s));
      }
      c.subcampos = std::move(subcampos);
    }
    if (total + 12 + largo > kMaximoRegistro) break;
    total += 12 + largo;
    campos.push_back(std::move(c));
  }
  r.campos = std::move(campos);
  return r;
}

// --- YAZ -------------------------------------------------------------------------

// The fields of a MARCXML <record> element, which YAZ has read: its
// <leader>, <controlfield> and <datafield> elements, whatever their
// namespace, as YAZ reads them.
Marc CamposDeArbol(xmlNode* registro) {
  const auto atributo = [](xmlNode* n, const char* nombre) {
    xmlChar* v = xmlGetProp(n, reinterpret_cast<const xmlChar*>(nombre));
    std::string s = v != nullptr ? Texto(v) : "";
    xmlFree(v);
    return s;
  };
  const auto contenido = [](xmlNode* n) {
    xmlChar* v = xmlNodeGetContent(n);
    std::string s = v != nullptr ? Texto(v) : "";
    xmlFree(v);
    return s;
  };
  Marc r;
  for (xmlNode* n = registro->children; n != nullptr; n = n->next) {
    if (n->type != XML_ELEMENT_NODE) continue;
    const std::string_view nombre = Texto(n->name);
    if (nombre == "leader") {
      r.lider = contenido(n);
      continue;
    }
    Campo c;
    c.etiqueta = atributo(n, "tag");
    if (nombre == "controlfield") {
      c.datos = contenido(n);
    } else if (nombre == "datafield") {
      const std::string ind2 = atributo(n, "ind2");
      c.ind2 = ind2.empty() ? ' ' : ind2[0];
      for (xmlNode* s = n->children; s != nullptr; s = s->next) {
        if (s->type != XML_ELEMENT_NODE) continue;
        const std::string codigo = atributo(s, "code");
        c.subcampos.push_back({codigo.empty() ? ' ' : codigo[0], contenido(s)});
      }
    } else {
      continue;
    }
    r.campos.push_back(std::move(c));
  }
  return r;
}

// A WRBUF that frees itself.
class Buffer {
 public:
  Buffer() : w_(wrbuf_alloc()) {}
  ~Buffer() { wrbuf_destroy(w_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  operator WRBUF() const { return w_; }
  std::string Texto() const { return std::string(wrbuf_buf(w_), wrbuf_len(w_)); }
  bool Vacio() const { return wrbuf_len(w_) == 0; }

 private:
  WRBUF w_;
};

// A MARC handle of YAZ.
class ManejadorMarc {
 public:
  ManejadorMarc() : mt_(yaz_marc_create()) {}
  ~ManejadorMarc() {
    yaz_marc_destroy(mt_);
    if (cd_ != nullptr) yaz_iconv_close(cd_);
  }
  ManejadorMarc(const ManejadorMarc&) = delete;
  ManejadorMarc& operator=(const ManejadorMarc&) = delete;

  yaz_marc_t mt() const { return mt_; }

  // From now on the record's texts are MARC-8, written in UTF-8.
  bool DesdeMarc8() {
    cd_ = yaz_iconv_open("utf8", "marc8");
    if (cd_ == nullptr) return false;
    yaz_marc_iconv(mt_, cd_);
    return true;
  }

  // Reads the ISO 2709 record `bytes`: true when YAZ reads all of it without
  // a complaint.
  bool LeeIso2709(std::string_view bytes) {
    if (bytes.size() <= kLargoLider || bytes.size() > kMaximoRegistro ||
        bytes.back() != kFinRegistro) {
      return false;
    }
    std::size_t largo = 0;
    for (char c : bytes.substr(0, 5)) {
      if (c < '0' || c > '9') return false;
      largo = largo * 10 + static_cast<std::size_t>(c - '0');
    }
    if (largo != bytes.size()) return false;
    std::string copia(bytes);
    copia.append(kRelleno, '\0');
    const int leido = yaz_marc_read_iso2709(mt_, copia.data(), static_cast<int>(bytes.size()));
    return leido == static_cast<int>(bytes.size()) && SinQuejas();
  }

  // True when YAZ noted nothing about the record it read.
  bool SinQuejas() {
    Buffer quejas;
    yaz_marc_xml(mt_, YAZ_MARC_CHECK);
    return yaz_marc_write_mode(mt_, quejas) == 0 && quejas.Vacio();
  }

  // The record in ISO 2709 (YAZ_MARC_ISO2709) or MARCXML (YAZ_MARC_MARCXML).
  // MARCXML comes without indentation: the SRU server parses every record
  // into its response, and the blanks between elements were a third of the
  // nodes it built.
  std::optional<std::string> Escribe(int forma) {
    if (forma == YAZ_MARC_MARCXML) return XmlCompacto();
    Buffer salida;
    yaz_marc_xml(mt_, forma);
    if (yaz_marc_write_mode(mt_, salida) != 0) return std::nullopt;
    return salida.Texto();
  }

  std::optional<std::string> XmlCompacto() {
    // Texts converted from MARC-8 are UTF-8 now, and the leader says so.
    if (cd_ != nullptr) yaz_marc_modify_leader(mt_, 9, "a");
    xmlNode* raiz = nullptr;
    if (yaz_marc_write_xml(mt_, &raiz, kEspacioMARC, nullptr, nullptr) != 0 || raiz == nullptr) {
      return std::nullopt;
    }
    xmlBuffer* b = xmlBufferCreate();
    std::optional<std::string> xml;
    if (b != nullptr && xmlNodeDump(b, nullptr, raiz, 0, 0) >= 0) {
      xml.emplace(reinterpret_cast<const char*>(xmlBufferContent(b)),
                  static_cast<std::size_t>(xmlBufferLength(b)));
    }
    if (b != nullptr) xmlBufferFree(b);
    xmlFreeNode(raiz);
    return xml;
  }

  // The record's fields, from YAZ's MARCXML tree of it.
  Marc Campos() {
    xmlNode* raiz = nullptr;
    if (yaz_marc_write_xml(mt_, &raiz, kEspacioMARC, nullptr, nullptr) != 0 || raiz == nullptr) {
      return Marc();
    }
    Marc r = CamposDeArbol(raiz);
    xmlFreeNode(raiz);
    return r;
  }

 private:
  yaz_marc_t mt_;
  yaz_iconv_t cd_ = nullptr;
};

// `r` (UTF-8) in ISO 2709 (YAZ_MARC_ISO2709) or MARCXML (YAZ_MARC_MARCXML).
std::string EscribeMarc(const Marc& r, int forma) {
  ManejadorMarc m;
  int indicadores, identificador, base, largo_longitud, largo_inicio, largo_implementacion;
  yaz_marc_set_leader(m.mt(), r.lider.c_str(), &indicadores, &identificador, &base,
                      &largo_longitud, &largo_inicio, &largo_implementacion);
  std::string codigo_valor;
  for (const Campo& c : r.campos) {
    if (c.EsControl()) {
      yaz_marc_add_controlfield(m.mt(), c.etiqueta.c_str(), c.datos.data(), c.datos.size());
      continue;
    }
    const char indicadores_campo[] = {' ', c.ind2};
    yaz_marc_add_datafield(m.mt(), c.etiqueta.c_str(), indicadores_campo, 2);
    for (const Subcampo& s : c.subcampos) {
      codigo_valor.assign(1, s.codigo).append(s.valor);
      yaz_marc_add_subfield(m.mt(), codigo_valor.data(), codigo_valor.size());
    }
  }
  return m.Escribe(forma).value_or(std::string());
}

// --- the source record ---------------------------------------------------------------

void IniciaXml() {
  static const bool iniciado = [] {
    xmlInitParser();
    return true;
  }();
  (void)iniciado;
}

// A source record that YAZ has read.
class Fuente {
 public:
  Fuente() = default;
  ~Fuente() {
    if (doc_ != nullptr) xmlFreeDoc(doc_);
  }
  Fuente(const Fuente&) = delete;
  Fuente& operator=(const Fuente&) = delete;

  // Reads `origen` (kept alive by the caller); false when it is damaged.
  bool Lee(const Origen& origen) {
    origen_ = &origen;
    return origen.xml ? LeeXml(origen.bytes) : LeeIso(origen.bytes);
  }

  std::optional<std::string> Iso2709() {
    if (!origen_->xml && propio_) return origen_->bytes;
    if (!origen_->xml && solo_posicion_9_) {
      std::string bytes = origen_->bytes;
      bytes[9] = 'a';
      return bytes;
    }
    yaz_marc_modify_leader(marc_.mt(), 9, "a");
    std::optional<std::string> iso = marc_.Escribe(YAZ_MARC_ISO2709);
    // What YAZ wrote must be a sound record: a MARCXML source may be longer
    // than ISO 2709 admits.
    ManejadorMarc prueba;
    if (!iso || !EsUtf8(*iso) || !prueba.LeeIso2709(*iso)) return std::nullopt;
    return iso;
  }

  std::optional<std::string> MarcXml() {
    if (origen_->xml && propio_) return std::string(texto_propio_);
    std::optional<std::string> xml;
    if (con_quejas_) {
      // YAZ would write its notes as XML comments: the record goes through
      // ISO 2709 first, which keeps none.
      const std::optional<std::string> iso = Iso2709();
      ManejadorMarc limpio;
      if (!iso || !limpio.LeeIso2709(*iso)) return std::nullopt;
      xml = limpio.Escribe(YAZ_MARC_MARCXML);
    } else {
      xml = marc_.Escribe(YAZ_MARC_MARCXML);
    }
    if (!xml || !EsUtf8(*xml)) return std::nullopt;
    return xml;
  }

  // The source's fields: those of the MARCXML text already parsed, or of
  // YAZ's tree of the ISO 2709 record.
  Marc Campos() {
    if (doc_ != nullptr) return CamposDeArbol(xmlDocGetRootElement(doc_));
    return marc_.Campos();
  }

 private:
  bool LeeIso(std::string_view bytes) {
    if (bytes.size() <= kLargoLider) return false;
    const char codificacion = bytes[9];
    if (codificacion == 'a') {
      if (!EsUtf8(bytes)) return false;
      propio_ = true;
    } else if (codificacion == ' ') {
      // orvex-catalogo reads such a record as UTF-8 when its bytes are,
      // since many exporters leave the position blank on UTF-8 records.
      if (bytes.find(kEscape) == std::string_view::npos && EsUtf8(bytes)) {
        solo_posicion_9_ = true;
      } else if (!marc_.DesdeMarc8()) {
        return false;
      }
    } else {
      return false;
    }
    return marc_.LeeIso2709(bytes);
  }

  bool LeeXml(std::string_view texto) {
    if (texto.size() > static_cast<std::size_t>(INT_MAX)) return false;
    IniciaXml();
    // Whitespace between elements is dropped (a text of blanks alone in an
    // element stays), for speed: it is not part of the record.
    doc_ = xmlReadMemory(texto.data(), static_cast<int>(texto.size()), nullptr, "UTF-8",
                         XML_PARSE_NONET | XML_PARSE_NOCDATA | XML_PARSE_COMPACT |
                             XML_PARSE_NOBLANKS | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc_ == nullptr) return false;
    xmlNode* raiz = xmlDocGetRootElement(doc_);
    if (raiz == nullptr || yaz_marc_read_xml(marc_.mt(), raiz) != 0) return false;
    con_quejas_ = !marc_.SinQuejas();
    // The text is given as it stands when it is a bare <record> element of
    // the MARC 21 namespace, nothing before or after it.
    const std::string_view nombre = Texto(raiz->name);
    if (nombre != "record" || raiz->ns == nullptr || raiz->ns->href == nullptr ||
        std::strcmp(Texto(raiz->ns->href), kEspacioMARC) != 0) {
      return true;
    }
    std::string cualificado = raiz->ns->prefix != nullptr ? Texto(raiz->ns->prefix) : "";
    if (!cualificado.empty()) cualificado += ':';
    cualificado += nombre;
    const std::string_view recortado = SinBlancos(texto);
    const std::string_view tras_nombre =
        recortado.substr(std::min(recortado.size(), cualificado.size() + 1));
    propio_ = recortado.starts_with("<" + cualificado) && !tras_nombre.empty() &&
              (EsBlanco(tras_nombre[0]) || tras_nombre[0] == '>') &&
              recortado.ends_with("</" + cualificado + ">");
    texto_propio_ = recortado;
    return true;
  }

  const Origen* origen_ = nullptr;
  ManejadorMarc marc_;
  xmlDoc* doc_ = nullptr;
  // The source's own bytes are the answer in its own form.
  bool propio_ = false;
  std::string_view texto_propio_;
  // An ISO 2709 source in UTF-8 with a blank leader position 9.
  bool solo_posicion_9_ = false;
  // YAZ read a MARCXML source but noted something about it.
  bool con_quejas_ = false;
};

// --- Dublin Core -------------------------------------------------------------------

std::string DublinCore(const Descripcion& d) {
  std::string xml =
      "<srw_dc:dc xmlns:srw_dc=\"info:srw/schema/1/dc-schema\" "
      "xmlns:dc=\"http://purl.org/dc/elements/1.1/\">\n";
  const auto elemento = [&xml](const char* nombre, std::string_view texto) {
    if (texto.empty()) return;
    xml.append("  <").append(nombre).append(">");
    AgregaEscapado(xml, texto);
    xml.append("</").append(nombre).append(">\n");
  };
  const auto cada = [&elemento](const char* nombre, const std::vector<std::string>& textos) {
    for (const std::string& t : textos) elemento(nombre, t);
  };
  cada("dc:title", d.titulos);
  cada("dc:creator", d.creadores);
  cada("dc:subject", d.temas);
  cada("dc:description", d.notas);
  cada("dc:publisher", d.editoriales);
  elemento("dc:date", d.fecha);
  elemento("dc:type", d.tipo_dc != nullptr ? d.tipo_dc : "");
  cada("dc:format", d.formatos);
  cada("dc:identifier", d.identificadores);
  elemento("dc:identifier", "orvex:ficha:" + std::to_string(d.ficha));
  elemento("dc:language", d.idioma);
  xml += "</srw_dc:dc>\n";
  return xml;
}
}  // namespace

std::string_view SinBlancos(std::string_view s) {
  while (!s.empty() && EsBlanco(s.front())) s.remove_prefix(1);
  while (!s.empty() && EsBlanco(s.back())) s.remove_suffix(1);
  return s;
}

std::string Limpia(std::string_view s, bool punto) {
  s = SinBlancos(s);
  while (!s.empty() && (std::strchr("/:;=,", s.back()) != nullptr || EsBlanco(s.back()) ||
                        (punto && s.back() == '.'))) {
    s.remove_suffix(1);
  }
  return std::string(s);
}

Marc CamposDeFicha(const records::RegFicha& ficha, const std::optional<Origen>& origen) {
  if (origen) {
    Fuente fuente;
    if (fuente.Lee(*origen)) return fuente.Campos();
  }
  return DeEtiquetas(ficha);
}

std::optional<std::string> RegistroDeOrigen(const Origen& origen, Formato formato) {
  if (formato != Formato::Marc21 && formato != Formato::MarcXml) return std::nullopt;
  Fuente fuente;
  if (!fuente.Lee(origen)) return std::nullopt;
  return formato == Formato::Marc21 ? fuente.Iso2709() : fuente.MarcXml();
}

std::string Registro(const records::RegFicha& ficha, const std::optional<Origen>& origen,
                     Formato formato) {
  if (formato == Formato::DublinCore) return DublinCore(Describe(CamposDeFicha(ficha, origen), ficha));
  if (origen) {
    if (std::optional<std::string> registro = RegistroDeOrigen(*origen, formato)) return *registro;
  }
  const Marc marc = DeEtiquetas(ficha);
  switch (formato) {
    case Formato::Marc21: return EscribeMarc(ParaIso2709(marc), YAZ_MARC_ISO2709);
    case Formato::MarcXml: return EscribeMarc(marc, YAZ_MARC_MARCXML);
    case Formato::DublinCore: break;
  }
  return std::string();
}

}  // namespace orvex::marc
