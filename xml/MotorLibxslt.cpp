#include "xml/MotorLibxslt.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <optional>

#include <libxml/parser.h>
#include <libxml/valid.h>
#include <libxml/xpath.h>
#include <libxml/xmlerror.h>
#include <libxslt/extensions.h>
#include <libxslt/extra.h>
#include <libxslt/imports.h>
#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include "base/CodePage.h"
#include "base/Plazo.h"
#include "xml/FuncionesWD.h"
#include "xml/SerializaHTML.h"
#include "xml/TraduceWD.h"

// The deadline is enforced through libxslt's debugger hooks: without them a
// sheet that recurses without end would hold the request far past its
// watchdog.
#ifndef WITH_DEBUGGER
#error "libxslt lacks its debugger hooks (WITH_DEBUGGER): transformations could not be stopped"
#endif

namespace orvex::xml {
namespace {

constexpr int kOpcionesLectura = XML_PARSE_NONET | XML_PARSE_NOENT | XML_PARSE_NOCDATA;

std::string_view Vista(const xmlChar* s) {
  return s == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(s));
}

const xmlChar* Xml(const char* s) { return reinterpret_cast<const xmlChar*>(s); }

std::string SinSaltoFinal(std::string texto) {
  while (!texto.empty() && (texto.back() == '\n' || texto.back() == '\r' || texto.back() == ' '))
    texto.pop_back();
  return texto;
}

// Collects what libxml2 and libxslt report while one document is parsed or
// transformed, instead of letting them write to standard error.
struct Errores {
  bool hay = false;
  xmlError primero{};
  std::string mensaje_primero;
  std::string generico;

  void Limpia() {
    hay = false;
    mensaje_primero.clear();
    generico.clear();
  }
  std::string Descripcion() const {
    std::string d = SinSaltoFinal(generico);
    if (d.empty()) d = mensaje_primero;
    return d;
  }
};

Errores g_errores;

// The reader's words for the faults a record document can have; any other
// fault keeps the parser's own text.
std::string RazonEnEspanol(const xmlError& e, const std::string& mensaje) {
  if (e.domain == XML_FROM_VALID) {
    return "El documento no sigue su tipo de documento: " +
           mensaje;
  }
  switch (e.code) {
    case XML_ERR_NAME_REQUIRED:
      return "Se esperaba un nombre después de \"&\" (un \"&\" suelto debe escribirse &amp;)";
    case XML_ERR_ENTITYREF_SEMICOL_MISSING:
      return "Falta el \";\" que cierra la referencia a una entidad";
    case XML_ERR_UNDECLARED_ENTITY:
    case XML_WAR_UNDECLARED_ENTITY:
      return "Referencia a una entidad no declarada";
    case XML_ERR_TAG_NAME_MISMATCH:
      return "La etiqueta final no corresponde a la etiqueta inicial";
    case XML_ERR_TAG_NOT_FINISHED:
      return "Falta la etiqueta final de un elemento";
    case XML_ERR_DOCUMENT_EMPTY:
      return "El documento está vacío";
    case XML_ERR_DOCUMENT_END:
      return "Hay contenido después del elemento raíz";
    case XML_ERR_INVALID_CHAR:
      return "Carácter no válido en el documento";
    case XML_ERR_LT_IN_ATTRIBUTE:
      return "Un valor de atributo contiene \"<\"";
    case XML_ERR_ATTRIBUTE_NOT_STARTED:
    case XML_ERR_ATTRIBUTE_NOT_FINISHED:
      return "Falta una comilla en el valor de un atributo";
    case XML_ERR_SPACE_REQUIRED:
      return "Error en los atributos de una etiqueta (falta un espacio o sobra una comilla)";
    case XML_ERR_LT_REQUIRED:
    case XML_ERR_GT_REQUIRED:
      return "Una etiqueta no está bien cerrada";
    default:
      return mensaje;
  }
}


void AlErrorEstructurado(void*, xmlErrorPtr error) {
  if (error == nullptr || error->level < XML_ERR_ERROR || g_errores.hay) return;
  g_errores.hay = true;
  g_errores.primero = *error;
  g_errores.mensaje_primero = SinSaltoFinal(error->message == nullptr ? "" : error->message);
  // The copy must not keep the library's pointers.
  g_errores.primero.message = nullptr;
  g_errores.primero.file = nullptr;
  g_errores.primero.str1 = g_errores.primero.str2 = g_errores.primero.str3 = nullptr;
  g_errores.primero.ctxt = g_errores.primero.node = nullptr;
}

void AlErrorGenerico(void*, const char* formato, ...) {
  char buffer[1024];
  va_list args;
  va_start(args, formato);
  const int n = std::vsnprintf(buffer, sizeof buffer, formato, args);
  va_end(args);
  if (n > 0 && g_errores.generico.size() < 4096) g_errores.generico.append(buffer);
}

xmlParserInputPtr NingunaEntidadExterna(const char*, const char*, xmlParserCtxtPtr) {
  return nullptr;
}

// Takes the libraries' error reports for the step about to run. The handlers
// are global to the libraries, so they are set again before every step.
void CapturaErrores() {
  g_errores.Limpia();
  xmlSetStructuredErrorFunc(nullptr, AlErrorEstructurado);
  xmlSetGenericErrorFunc(nullptr, AlErrorGenerico);
  xsltSetGenericErrorFunc(nullptr, AlErrorGenerico);
  xmlSetExternalEntityLoader(NingunaEntidadExterna);
}

// How a transformation under a deadline watches it. libxslt calls AlPaso
// before every instruction of a context whose debugStatus asks for it, and
// checks the context's state right after. On every kPasosPorMirada-th call
// AlPaso looks at the deadline, and once it has passed it stops the context.
// A look costs a few nanoseconds and comes every sixteenth instruction:
// ordinary sheets do not notice it, and however much work a few instructions
// do (a copy of a tree, a loop over nodes) the transformation ends soon after
// its deadline. An XPath expression runs whole between two instructions, so
// XPath has a budget instead: from the start and from each look on, the
// transformation may make kOperacionesXPathPorMs XPath operations (as
// libxml2 counts them) per millisecond it has left, about a fifth of what a
// current machine makes in a millisecond; the expression that exceeds them
// fails. Only what the few instructions between two looks evaluate counts
// against it, so that no ordinary sheet comes near it.
constexpr unsigned kPasosPorMirada = 16;
constexpr unsigned long kOperacionesXPathPorMs = 20000;

// What AlPaso keeps for one transformation, through the context's _private.
struct Vigia {
  Plazo& plazo;
  unsigned pasos = 0;
  bool vencido = false;  // the deadline stopped the transformation
};

// The XPath operations a transformation may make with `restante_ms` left;
// never 0, which libxml2 reads as no limit.
unsigned long OperacionesXPath(std::int64_t restante_ms) {
  constexpr std::int64_t kMaximoMs = 24 * 3600 * 1000;
  const std::int64_t ms = std::clamp<std::int64_t>(restante_ms, 1, kMaximoMs);
  return static_cast<unsigned long>(ms) * kOperacionesXPathPorMs;
}

void AlPaso(xmlNodePtr, xmlNodePtr, xsltTemplatePtr, xsltTransformContextPtr ctxt) {
  auto* vigia = static_cast<Vigia*>(ctxt->_private);
  if (vigia == nullptr || ++vigia->pasos % kPasosPorMirada != 0) return;
  // An expression that exceeded the budget (libxml2 leaves the count at the
  // limit) may have failed where libxslt goes on, in a match pattern say:
  // the transformation stops as if the deadline had passed.
  xmlXPathContextPtr xpath = ctxt->xpathCtxt;
  if (xpath->opCount >= xpath->opLimit || vigia->plazo.Vencido()) {
    vigia->vencido = true;
    ctxt->state = XSLT_STATE_STOPPED;
    return;
  }
  xpath->opLimit = xpath->opCount + OperacionesXPath(vigia->plazo.RestanteMs());
}

// The debugger's template calls, which the deadline does not need.
int AlEntrarEnPlantilla(xsltTemplatePtr, xmlNodePtr) { return 0; }
void AlSalirDePlantilla() {}

// The three hooks as xsltSetDebuggerCallbacks takes them.
struct Ganchos {
  xsltHandleDebuggerCallback paso;
  xsltAddCallCallback entra;
  xsltDropCallCallback sale;
};

void IniciaBibliotecas() {
  static const bool iniciadas = [] {
    xmlInitParser();
    static Ganchos ganchos{AlPaso, AlEntrarEnPlantilla, AlSalirDePlantilla};
    xsltSetDebuggerCallbacks(3, &ganchos);
    xsltRegisterExtModuleFunction(Xml("node-set"), Xml("urn:schemas-microsoft-com:xslt"),
                                  xsltFunctionNodeSet);
    RegistraFuncionesWD();
    return true;
  }();
  (void)iniciadas;
}

xmlDocPtr Lee(std::string_view texto) {
  CapturaErrores();
  xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
  if (ctxt == nullptr) return nullptr;
  xmlDocPtr doc = xmlCtxtReadMemory(ctxt, texto.data(), static_cast<int>(texto.size()), nullptr,
                                    "UTF-8", kOpcionesLectura);
  if (doc != nullptr && !ctxt->wellFormed) {
    xmlFreeDoc(doc);
    doc = nullptr;
  }
  xmlFreeParserCtxt(ctxt);
  return doc;
}

bool Valida(xmlDocPtr doc) {
  if (doc->intSubset == nullptr && doc->extSubset == nullptr) return true;
  CapturaErrores();
  xmlValidCtxtPtr validador = xmlNewValidCtxt();
  if (validador == nullptr) return false;
  const bool valido = xmlValidateDocument(validador, doc) == 1;
  xmlFreeValidCtxt(validador);
  return valido;
}

}  // namespace

struct MotorLibxslt::Hoja {
  xsltStylesheetPtr compilada = nullptr;
  ResultadoXSL::Estado fallo = ResultadoXSL::Estado::Correcto;
  std::string descripcion;
  bool texto = false;  // output method "text"
  // What the translation of a working-draft sheet left out; reported with
  // the first transformation only.
  std::vector<std::string> avisos;
  bool avisos_dados = false;

  ~Hoja() {
    if (compilada != nullptr) xsltFreeStylesheet(compilada);
  }
};

MotorLibxslt::MotorLibxslt() {
  IniciaBibliotecas();
  xsltSecurityPrefsPtr prefs = xsltNewSecurityPrefs();
  for (xsltSecurityOption opcion :
       {XSLT_SECPREF_READ_FILE, XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY,
        XSLT_SECPREF_READ_NETWORK, XSLT_SECPREF_WRITE_NETWORK}) {
    xsltSetSecurityPrefs(prefs, opcion, xsltSecurityForbid);
  }
  seguridad_ = prefs;
}

MotorLibxslt::~MotorLibxslt() {
  hojas_.clear();
  xsltFreeSecurityPrefs(static_cast<xsltSecurityPrefsPtr>(seguridad_));
}

namespace {

// Compiles an XSLT document into `hoja`, which takes it over.
void CompilaDocumento(MotorLibxslt::Hoja& hoja, xmlDocPtr doc) {
  CapturaErrores();
  hoja.compilada = xsltParseStylesheetDoc(doc);
  if (hoja.compilada == nullptr) xmlFreeDoc(doc);
  if (hoja.compilada == nullptr || hoja.compilada->errors > 0) {
    hoja.fallo = ResultadoXSL::Estado::FalloTransformacion;
    hoja.descripcion = g_errores.Descripcion();
    if (hoja.descripcion.empty()) hoja.descripcion = "la hoja de estilo no compila";
  } else {
    const xmlChar* metodo = nullptr;
    XSLT_GET_IMPORT_PTR(metodo, hoja.compilada, method)
    hoja.texto = Vista(metodo) == "text";
  }
}

// A sheet text made ready for libxslt: read, told apart by its dialect, and
// translated when it is a working-draft sheet.
struct Preparada {
  RevisionHoja::Dialecto dialecto = RevisionHoja::Dialecto::Ninguno;
  DocumentoXML xslt;  // null when there is nothing to compile
  bool legible = false;  // the text is well-formed XML
  ResultadoXSL::Estado fallo = ResultadoXSL::Estado::Correcto;  // when `xslt` is null
  std::string error;
  std::vector<std::string> avisos;
};

Preparada Prepara(std::string_view xsl) {
  Preparada p;
  DocumentoXML doc(Lee(xsl));
  if (doc == nullptr) {
    p.fallo = ResultadoXSL::Estado::HojaInvalida;
    p.error = g_errores.mensaje_primero;
    return p;
  }
  p.legible = true;
  if (EsHojaXSLT(doc.get())) {
    p.dialecto = RevisionHoja::Dialecto::XSLT;
    p.xslt = std::move(doc);
  } else if (EsHojaBorrador(doc.get())) {
    p.dialecto = RevisionHoja::Dialecto::Borrador;
    HojaTraducida traducida = TraduceHojaBorrador(doc.get());
    p.avisos = std::move(traducida.avisos);
    p.xslt = std::move(traducida.xslt);
    if (p.xslt == nullptr) {
      p.fallo = ResultadoXSL::Estado::FalloTransformacion;
      p.error = std::move(traducida.error);
    }
  } else {
    p.fallo = ResultadoXSL::Estado::HojaInvalida;
    p.error = "el documento no es una hoja de estilo XSL";
  }
  return p;
}

// The result of `hoja` on `datos` under the security preferences
// `seguridad` and the deadline `plazo` (none when null), or null when the
// transformation failed or was stopped; `vencido` tells that the deadline
// stopped it, or had passed before it started.
xmlDocPtr Aplica(MotorLibxslt::Hoja& hoja, xmlDocPtr datos, xsltSecurityPrefsPtr seguridad,
                 Plazo* plazo, bool& vencido) {
  if (plazo != nullptr && plazo->Vencido()) {
    vencido = true;
    return nullptr;
  }
  CapturaErrores();
  xsltTransformContextPtr ctxt = xsltNewTransformContext(hoja.compilada, datos);
  if (ctxt == nullptr) return nullptr;
  xsltSetCtxtSecurityPrefs(seguridad, ctxt);
  xsltSetTransformErrorFunc(ctxt, nullptr, AlErrorGenerico);
  std::optional<Vigia> vigia;
  if (plazo != nullptr) {
    vigia.emplace(Vigia{*plazo});
    ctxt->_private = &*vigia;
    ctxt->debugStatus = XSLT_DEBUG_CONT;
    ctxt->xpathCtxt->opLimit = OperacionesXPath(plazo->RestanteMs());
    ctxt->xpathCtxt->opCount = 0;
  }
  xmlDocPtr resultado =
      xsltApplyStylesheetUser(hoja.compilada, datos, nullptr, nullptr, nullptr, ctxt);
  if (ctxt->state == XSLT_STATE_ERROR || ctxt->state == XSLT_STATE_STOPPED) {
    xmlFreeDoc(resultado);
    resultado = nullptr;
  }
  // libxml2 leaves the count at the limit when an expression exceeds it, and
  // every expression after that fails at once.
  vencido = vigia && (vigia->vencido || ctxt->xpathCtxt->opCount >= ctxt->xpathCtxt->opLimit);
  xsltFreeTransformContext(ctxt);
  return resultado;
}

}  // namespace

MotorLibxslt::Hoja& MotorLibxslt::Compila(std::string_view xsl) {
  if (auto it = hojas_.find(xsl); it != hojas_.end()) return *it->second;
  auto hoja = std::make_unique<Hoja>();
  Preparada p = Prepara(xsl);
  hoja->avisos = std::move(p.avisos);
  if (p.xslt != nullptr) {
    CompilaDocumento(*hoja, p.xslt.release());
  } else {
    hoja->fallo = p.fallo;
    hoja->descripcion = std::move(p.error);
  }
  return *hojas_.emplace(std::string(xsl), std::move(hoja)).first->second;
}

ResultadoXSL MotorLibxslt::Transforma(std::string_view xml, std::string_view xsl) {
  ResultadoXSL r;
  xmlDocPtr datos = Lee(xml);
  if (datos != nullptr && !Valida(datos)) {
    xmlFreeDoc(datos);
    datos = nullptr;
  }
  if (datos == nullptr) {
    r.estado = ResultadoXSL::Estado::DocumentoInvalido;
    if (g_errores.hay) {
      r.razon = RazonEnEspanol(g_errores.primero, g_errores.mensaje_primero);
      r.linea = g_errores.primero.line;
      r.columna = g_errores.primero.int2;
    } else {
      r.razon = "El documento no se pudo leer";
    }
    return r;
  }

  Hoja& hoja = Compila(xsl);
  if (!hoja.avisos_dados) {
    hoja.avisos_dados = true;
    r.avisos = hoja.avisos;
  }
  if (hoja.fallo != ResultadoXSL::Estado::Correcto) {
    xmlFreeDoc(datos);
    r.estado = hoja.fallo;
    r.descripcion = hoja.descripcion;
    return r;
  }

  bool vencido = false;
  xmlDocPtr resultado = Aplica(hoja, datos, static_cast<xsltSecurityPrefsPtr>(seguridad_),
                               PlazoVigilado(), vencido);
  xmlFreeDoc(datos);
  if (vencido) {
    xmlFreeDoc(resultado);
    r.estado = ResultadoXSL::Estado::PlazoVencido;
    return r;
  }
  if (resultado == nullptr) {
    r.estado = ResultadoXSL::Estado::FalloTransformacion;
    r.descripcion = g_errores.Descripcion();
    if (r.descripcion.empty()) r.descripcion = "la transformación no produjo resultado";
    return r;
  }
  r.texto = hoja.texto ? SerializaTexto(resultado) : SerializaHTML(resultado);
  xmlFreeDoc(resultado);
  return r;
}

RevisionHoja RevisaHoja(std::string_view xsl) {
  IniciaBibliotecas();
  RevisionHoja r;
  Preparada p = Prepara(xsl);
  r.dialecto = p.dialecto;
  r.avisos = std::move(p.avisos);
  if (!p.legible) {
    r.error = "la hoja no es XML bien formado: " + p.error;
    if (g_errores.hay) r.error += " (línea " + std::to_string(g_errores.primero.line) + ")";
    return r;
  }
  if (p.xslt == nullptr) {
    r.error = std::move(p.error);
    return r;
  }
  if (p.dialecto == RevisionHoja::Dialecto::Borrador) r.xslt = TextoDeHoja(p.xslt.get());
  MotorLibxslt::Hoja hoja;
  CompilaDocumento(hoja, p.xslt.release());
  r.compila = hoja.fallo == ResultadoXSL::Estado::Correcto;
  if (!r.compila) r.error = hoja.descripcion;
  return r;
}

bool XmlParserWorks() {
  static const char kDocumento[] = "<?xml version='1.0'?>\r\n<algo> </algo>";
  IniciaBibliotecas();
  CapturaErrores();
  xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
  if (ctxt == nullptr) return false;
  xmlDocPtr doc = xmlCtxtReadMemory(ctxt, kDocumento, sizeof kDocumento - 1, nullptr, nullptr,
                                    XML_PARSE_NONET);
  xmlFreeDoc(doc);
  xmlFreeParserCtxt(ctxt);
  return true;
}

}  // namespace orvex::xml
