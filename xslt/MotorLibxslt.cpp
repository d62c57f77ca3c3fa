#include "xslt/MotorLibxslt.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <utility>

#include <libxml/globals.h>
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
#include "xslt/FuncionesWD.h"
#include "xslt/SerializaHTML.h"
#include "xslt/TraduceWD.h"

// The deadline is enforced through libxslt's debugger hooks: without them a
// sheet that recurses without end would hold the request far past its
// watchdog.
#ifndef WITH_DEBUGGER
#error "libxslt lacks its debugger hooks (WITH_DEBUGGER): transformations could not be stopped"
#endif

namespace orvex::xslt {
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

// What libxml2 and libxslt report during one step (a parse, a validation,
// a compilation or a transformation), instead of writing it to standard
// error. Every step collects into an object of its own, which Captura hands
// to the libraries as their handlers' context.
struct Errores {
  bool hay = false;  // a report of level error or worse came
  xmlError primero{};  // the first of them, without the library's pointers
  std::string mensaje_primero;
  std::string generico;  // the generic reports, as libxslt words its messages

  std::string Descripcion() const {
    std::string d = SinSaltoFinal(generico);
    if (d.empty()) d = mensaje_primero;
    return d;
  }
};

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


// `contexto` is the Errores of the step under way.
void AlErrorEstructurado(void* contexto, xmlErrorPtr error) {
  auto* errores = static_cast<Errores*>(contexto);
  if (errores == nullptr || error == nullptr || error->level < XML_ERR_ERROR || errores->hay) {
    return;
  }
  errores->hay = true;
  errores->primero = *error;
  errores->mensaje_primero = SinSaltoFinal(error->message == nullptr ? "" : error->message);
  // The copy must not keep the library's pointers.
  errores->primero.message = nullptr;
  errores->primero.file = nullptr;
  errores->primero.str1 = errores->primero.str2 = errores->primero.str3 = nullptr;
  errores->primero.ctxt = errores->primero.node = nullptr;
}

void AlErrorGenerico(void* contexto, const char* formato, ...) {
  auto* errores = static_cast<Errores*>(contexto);
  if (errores == nullptr) return;
  char buffer[1024];
  va_list args;
  va_start(args, formato);
  const int n = std::vsnprintf(buffer, sizeof buffer, formato, args);
  va_end(args);
  if (n > 0 && errores->generico.size() < 4096) errores->generico.append(buffer);
}

xmlParserInputPtr NingunaEntidadExterna(const char*, const char*, xmlParserCtxtPtr) {
  return nullptr;
}

// While it lives, what libxml2 and libxslt report goes to `errores`: libxml2's
// structured and generic handlers and libxslt's generic one are pointed at it,
// and the handlers found in place, whoever set them, are put back when it
// ends. Captures nest: the inner one collects, the outer one resumes after.
// libxml2 keeps its handlers per thread but libxslt's generic handler is one
// for the process, so processors are used from one thread at a time.
class Captura {
 public:
  explicit Captura(Errores& errores)
      : estructurado_(xmlStructuredError),
        contexto_estructurado_(xmlStructuredErrorContext),
        generico_(xmlGenericError),
        contexto_generico_(xmlGenericErrorContext),
        generico_xslt_(xsltGenericError),
        contexto_generico_xslt_(xsltGenericErrorContext) {
    xmlSetStructuredErrorFunc(&errores, AlErrorEstructurado);
    xmlSetGenericErrorFunc(&errores, AlErrorGenerico);
    xsltSetGenericErrorFunc(&errores, AlErrorGenerico);
  }
  ~Captura() {
    xmlSetStructuredErrorFunc(contexto_estructurado_, estructurado_);
    xmlSetGenericErrorFunc(contexto_generico_, generico_);
    xsltSetGenericErrorFunc(contexto_generico_xslt_, generico_xslt_);
  }
  Captura(const Captura&) = delete;
  Captura& operator=(const Captura&) = delete;

 private:
  xmlStructuredErrorFunc estructurado_;
  void* contexto_estructurado_;
  xmlGenericErrorFunc generico_;
  void* contexto_generico_;
  xmlGenericErrorFunc generico_xslt_;
  void* contexto_generico_xslt_;
};

// What the libraries report between the steps of a call (while a sheet is
// translated or a result serialized) is dropped, not written to standard
// error: each public entry point runs under a Silencio, each step under a
// Captura of its own inside it.
class Silencio {
 public:
  Silencio() : captura_(descartados_) {}

 private:
  Errores descartados_;
  Captura captura_;
};

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
    // libxslt copies the three pointers; the block need not outlive the call.
    Ganchos ganchos{AlPaso, AlEntrarEnPlantilla, AlSalirDePlantilla};
    xsltSetDebuggerCallbacks(3, &ganchos);
    xsltRegisterExtModuleFunction(Xml("node-set"), Xml("urn:schemas-microsoft-com:xslt"),
                                  xsltFunctionNodeSet);
    RegistraFuncionesWD();
    // No document, sheet or DTD ever reads an external entity.
    xmlSetExternalEntityLoader(NingunaEntidadExterna);
    return true;
  }();
  (void)iniciadas;
}

// The document in `texto`, or null when it is not well-formed; `errores`
// tells why.
xmlDocPtr Lee(std::string_view texto, Errores& errores) {
  const Captura captura(errores);
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

// Whether `doc` follows the document type it declares, if any; `errores`
// tells why not.
bool Valida(xmlDocPtr doc, Errores& errores) {
  if (doc->intSubset == nullptr && doc->extSubset == nullptr) return true;
  const Captura captura(errores);
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
  // every transformation by the sheet.
  std::vector<std::string> avisos;

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
  Errores errores;
  const Captura captura(errores);
  hoja.compilada = xsltParseStylesheetDoc(doc);
  if (hoja.compilada == nullptr) xmlFreeDoc(doc);
  if (hoja.compilada == nullptr || hoja.compilada->errors > 0) {
    hoja.fallo = ResultadoXSL::Estado::FalloTransformacion;
    hoja.descripcion = errores.Descripcion();
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
  Errores lectura;  // what the reader reported on the text
};

Preparada Prepara(std::string_view xsl) {
  Preparada p;
  DocumentoXML doc(Lee(xsl, p.lectura));
  if (doc == nullptr) {
    p.fallo = ResultadoXSL::Estado::HojaInvalida;
    p.error = p.lectura.mensaje_primero;
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
// stopped it, or had passed before it started. What the transformation
// reported goes to `errores`.
xmlDocPtr Aplica(MotorLibxslt::Hoja& hoja, xmlDocPtr datos, xsltSecurityPrefsPtr seguridad,
                 Plazo* plazo, bool& vencido, Errores& errores) {
  if (plazo != nullptr && plazo->Vencido()) {
    vencido = true;
    return nullptr;
  }
  const Captura captura(errores);
  xsltTransformContextPtr ctxt = xsltNewTransformContext(hoja.compilada, datos);
  if (ctxt == nullptr) return nullptr;
  xsltSetCtxtSecurityPrefs(seguridad, ctxt);
  xsltSetTransformErrorFunc(ctxt, &errores, AlErrorGenerico);
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
  // A process that serves request after request sees every edit of every
  // sheet as a new text: past the bound, the old compilations are dropped
  // and the sheets in use are compiled again on their next use.
  if (hojas_.size() >= kHojasRetenidas) hojas_.clear();
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
  const Silencio silencio;
  ResultadoXSL r;
  Errores errores_datos;  // why the data document did not load
  xmlDocPtr datos = Lee(xml, errores_datos);
  if (datos != nullptr) {
    // A document that reads well fails by its validation's reports only.
    Errores errores_validacion;
    if (!Valida(datos, errores_validacion)) {
      xmlFreeDoc(datos);
      datos = nullptr;
      errores_datos = std::move(errores_validacion);
    }
  }
  if (datos == nullptr) {
    r.estado = ResultadoXSL::Estado::DocumentoInvalido;
    if (errores_datos.hay) {
      r.razon = RazonEnEspanol(errores_datos.primero, errores_datos.mensaje_primero);
      r.linea = errores_datos.primero.line;
      r.columna = errores_datos.primero.int2;
    } else {
      r.razon = "El documento no se pudo leer";
    }
    return r;
  }

  Hoja& hoja = Compila(xsl);
  r.avisos = hoja.avisos;
  if (hoja.fallo != ResultadoXSL::Estado::Correcto) {
    xmlFreeDoc(datos);
    r.estado = hoja.fallo;
    r.descripcion = hoja.descripcion;
    return r;
  }

  bool vencido = false;
  Errores errores_transformacion;
  xmlDocPtr resultado = Aplica(hoja, datos, static_cast<xsltSecurityPrefsPtr>(seguridad_),
                               PlazoVigilado(), vencido, errores_transformacion);
  xmlFreeDoc(datos);
  if (vencido) {
    xmlFreeDoc(resultado);
    r.estado = ResultadoXSL::Estado::PlazoVencido;
    return r;
  }
  if (resultado == nullptr) {
    r.estado = ResultadoXSL::Estado::FalloTransformacion;
    r.descripcion = errores_transformacion.Descripcion();
    if (r.descripcion.empty()) r.descripcion = "la transformación no produjo resultado";
    return r;
  }
  r.texto = hoja.texto ? SerializaTexto(resultado) : SerializaHTML(resultado);
  xmlFreeDoc(resultado);
  return r;
}

RevisionHoja RevisaHoja(std::string_view xsl) {
  IniciaBibliotecas();
  const Silencio silencio;
  RevisionHoja r;
  Preparada p = Prepara(xsl);
  r.dialecto = p.dialecto;
  r.avisos = std::move(p.avisos);
  if (!p.legible) {
    r.error = "la hoja no es XML bien formado: " + p.error;
    if (p.lectura.hay) r.error += " (línea " + std::to_string(p.lectura.primero.line) + ")";
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
  Errores errores;  // not examined
  const Captura captura(errores);
  xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
  if (ctxt == nullptr) return false;
  xmlDocPtr doc = xmlCtxtReadMemory(ctxt, kDocumento, sizeof kDocumento - 1, nullptr, nullptr,
                                    XML_PARSE_NONET);
  xmlFreeDoc(doc);
  xmlFreeParserCtxt(ctxt);
  return true;
}

}  // namespace orvex::xslt
