#include "z3950/Servidor.h"

#include <yaz/backend.h>
#include <yaz/diagbib1.h>
#include <yaz/oid_db.h>
#include <yaz/oid_std.h>
#include <yaz/oid_util.h>

#include <algorithm>
#include <cstring>
#include <strings.h>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Clock.h"
#include "base/CodePage.h"
#include "base/PosixPlatform.h"
#include "base/RuntimeError.h"
#include "db/Database.h"
#include "marc/Origen.h"
#include "marc/Registros.h"
#include "z3950/Acervo.h"
#include "z3950/Consulta.h"
#include "z3950/Tarjeta.h"

namespace orvex::z3950 {
namespace {

// The names the catalogue answers to, compared without regard to case.
constexpr const char* kBases[] = {"libros", "Default"};
constexpr const char* kBase = "libros";

// Result sets a connection keeps; the oldest goes when a new name comes.
constexpr std::size_t kMaximoConjuntos = 16;

// One connection: its catalogue, opened on the first search, and its named
// result sets (record numbers, ascending).
struct Sesion {
  std::unique_ptr<Acervo> acervo;
  std::deque<std::pair<std::string, std::vector<std::int32_t>>> conjuntos;

  std::vector<std::int32_t>* Conjunto(const std::string& nombre) {
    for (auto& [n, fichas] : conjuntos) {
      if (n == nombre) return &fichas;
    }
    return nullptr;
  }
  void Guarda(const std::string& nombre, std::vector<std::int32_t> fichas) {
    if (auto* existente = Conjunto(nombre)) {
      *existente = std::move(fichas);
      return;
    }
    if (conjuntos.size() == kMaximoConjuntos) conjuntos.pop_front();
    conjuntos.emplace_back(nombre, std::move(fichas));
  }
};

// The platform, once per process (a forked connection inherits it).
PosixFileSystem& Archivos() {
  static PosixFileSystem archivos;
  return archivos;
}
SystemClock& Reloj() {
  static SystemClock reloj;
  return reloj;
}

bool EsBase(const char* nombre) {
  for (const char* b : kBases) {
    if (nombre != nullptr && strcasecmp(nombre, b) == 0) return true;
  }
  return false;
}

void Diagnostica(ODR odr, int& codigo, char*& texto, const Diagnostico& d) {
  codigo = d.codigo;
  texto = d.detalle.empty() ? nullptr : odr_strdup(odr, d.detalle.c_str());
}

// The catalogue of the configuration file given with -c, opened once per
// connection; a Bib-1 109 (database unavailable) when it cannot be.
Acervo* AbreAcervo(Sesion& s, Diagnostico& d) {
  if (s.acervo) return s.acervo.get();
  const std::string cfg = statserv_getcontrol()->configname;
  const std::optional<std::string> directorio = DirectorioDeCFG(cfg, Archivos(), Reloj());
  if (!directorio) {
    d = {YAZ_BIB1_DATABASE_UNAVAILABLE, "no BASE: in " + cfg};
    return nullptr;
  }
  static db::EngineOpener bases(CodePage::Windows1252());
  try {
    s.acervo = std::make_unique<Acervo>(*directorio, Archivos(), bases);
  } catch (const RuntimeError& error) {
    d = {YAZ_BIB1_DATABASE_UNAVAILABLE, CodePage::Windows1252().ToUtf8(error.description())};
    return nullptr;
  }
  return s.acervo.get();
}

int Busca(void* handle, bend_search_rr* rr) {
  Sesion& s = *static_cast<Sesion*>(handle);
  Diagnostico d;
  if (rr->num_bases != 1) {
    d = {YAZ_BIB1_COMBI_OF_SPECIFIED_DATABASES_UNSUPP, ""};
  } else if (!EsBase(rr->basenames[0])) {
    d = {YAZ_BIB1_DATABASE_DOES_NOT_EXIST, rr->basenames[0] != nullptr ? rr->basenames[0] : ""};
  }
  std::unique_ptr<Nodo> arbol;
  if (!d) {
    const Z_Query* q = rr->query;
    if (q != nullptr && (q->which == Z_Query_type_1 || q->which == Z_Query_type_101) &&
        q->u.type_1 != nullptr) {
      arbol = DeRPN(*q->u.type_1, d);
    } else if (q != nullptr && q->which == Z_Query_type_104 && q->u.type_104 != nullptr &&
               q->u.type_104->which == Z_External_CQL && q->u.type_104->u.cql != nullptr) {
      arbol = DeCQL(q->u.type_104->u.cql, d);
    } else {
      d = {YAZ_BIB1_QUERY_TYPE_UNSUPP, ""};
    }
  }
  Acervo* acervo = d ? nullptr : AbreAcervo(s, d);
  if (d || acervo == nullptr || !arbol) {
    if (!d) d = {YAZ_BIB1_MALFORMED_QUERY, ""};
    Diagnostica(rr->stream, rr->errcode, rr->errstring, d);
    return 0;
  }
  std::vector<std::int32_t> fichas = acervo->Busca(*arbol, d);
  if (d) {
    Diagnostica(rr->stream, rr->errcode, rr->errstring, d);
    return 0;
  }
  rr->hits = static_cast<Odr_int>(fichas.size());
  s.Guarda(rr->setname != nullptr ? rr->setname : "default", std::move(fichas));
  return 0;
}

// The record form a fetch asks for: its syntax, and for XML its schema
// (SRU's recordSchema, or Z39.50's element set name), the catalogue card
// (SUTRS) as nullopt; false for a syntax or schema Orvex does not give.
bool FormatoPedido(const bend_fetch_rr& rr, std::optional<marc::Formato>& formato,
                   const Odr_oid*& sintaxis) {
  using marc::Formato;
  std::string esquema = rr.schema != nullptr ? rr.schema : "";
  if (esquema.empty() && rr.comp != nullptr && rr.comp->which == Z_RecordComp_simple &&
      rr.comp->u.simple != nullptr && rr.comp->u.simple->which == Z_ElementSetNames_generic &&
      rr.comp->u.simple->u.generic != nullptr) {
    esquema = rr.comp->u.simple->u.generic;
  }
  const Odr_oid* pedida = rr.request_format;
  if (pedida == nullptr || !oid_oidcmp(pedida, yaz_oid_recsyn_usmarc) ||
      !oid_oidcmp(pedida, yaz_oid_recsyn_marc21)) {
    formato = Formato::Marc21;
    sintaxis = yaz_oid_recsyn_usmarc;
    return true;
  }
  if (!oid_oidcmp(pedida, yaz_oid_recsyn_sutrs)) {
    formato = std::nullopt;
    sintaxis = yaz_oid_recsyn_sutrs;
    return true;
  }
  if (!oid_oidcmp(pedida, yaz_oid_recsyn_xml) || !oid_oidcmp(pedida, yaz_oid_recsyn_text_xml)) {
    sintaxis = yaz_oid_recsyn_xml;
    if (esquema.empty() || esquema == "F" || esquema == "B" || esquema == "marcxml" ||
        esquema == "info:srw/schema/1/marcxml-v1.1" || esquema == "MARC21-xml") {
      formato = Formato::MarcXml;
      return true;
    }
    if (esquema == "dc" || esquema == "info:srw/schema/1/dc-v1.1" || esquema == "DC") {
      formato = Formato::DublinCore;
      return true;
    }
  }
  return false;
}

int Trae(void* handle, bend_fetch_rr* rr) {
  Sesion& s = *static_cast<Sesion*>(handle);
  const std::vector<std::int32_t>* fichas = s.Conjunto(rr->setname != nullptr ? rr->setname : "default");
  if (fichas == nullptr || !s.acervo) {
    rr->errcode = YAZ_BIB1_SPECIFIED_RESULT_SET_DOES_NOT_EXIST;
    rr->errstring = odr_strdup_null(rr->stream, rr->setname);
    return 0;
  }
  if (rr->number < 1 || static_cast<std::size_t>(rr->number) > fichas->size()) {
    rr->errcode = YAZ_BIB1_PRESENT_REQUEST_OUT_OF_RANGE;
    return 0;
  }
  std::optional<marc::Formato> formato;
  const Odr_oid* sintaxis = nullptr;
  if (!FormatoPedido(*rr, formato, sintaxis)) {
    const bool xml = rr->request_format != nullptr && !oid_oidcmp(rr->request_format, yaz_oid_recsyn_xml);
    rr->errcode = xml ? YAZ_BIB1_SPECIFIED_ELEMENT_SET_NAME_NOT_VALID_FOR_SPECIFIED_
                      : YAZ_BIB1_RECORD_SYNTAX_UNSUPP;
    rr->errstring = odr_strdup_null(rr->stream, rr->schema);
    return 0;
  }
  const std::int32_t numero = (*fichas)[static_cast<std::size_t>(rr->number - 1)];
  records::RegFicha ficha;
  std::string registro;
  try {
    // MARC from a kept source needs nothing else of the catalogue.
    const std::optional<marc::Origen> origen =
        formato ? marc::LeeOrigen(s.acervo->Biblio(), numero) : std::nullopt;
    std::optional<std::string> directo =
        origen ? marc::RegistroDeOrigen(*origen, *formato) : std::nullopt;
    if (directo) {
      registro = std::move(*directo);
    } else if (!s.acervo->Carga(numero, ficha)) {
      rr->errcode = YAZ_BIB1_RECORD_DELETED;
      return 0;
    } else {
      registro = formato ? marc::Registro(ficha, origen, *formato) : Tarjeta(ficha);
    }
  } catch (const RuntimeError& error) {
    rr->errcode = YAZ_BIB1_TEMPORARY_SYSTEM_ERROR;
    rr->errstring = odr_strdup(rr->stream, CodePage::Windows1252().ToUtf8(error.description()).c_str());
    return 0;
  }
  rr->basename = odr_strdup(rr->stream, kBase);
  rr->output_format = odr_oiddup(rr->stream, sintaxis);
  rr->len = static_cast<int>(registro.size());
  rr->record = odr_strdupn(rr->stream, registro.data(), registro.size());
  rr->last_in_set = static_cast<std::size_t>(rr->number) == fichas->size();
  return 0;
}

// The largest scan answered; a client asking for more gets this many.
constexpr int kMaximoEntradas = 100;

// A scan of the word index from its start term (Z39.50 with attributes,
// SRU with a CQL clause of one term).
int Explora(void* handle, bend_scan_rr* rr) {
  Sesion& s = *static_cast<Sesion*>(handle);
  Diagnostico d;
  std::unique_ptr<Nodo> termino;
  if (rr->num_bases != 1) {
    d = {YAZ_BIB1_COMBI_OF_SPECIFIED_DATABASES_UNSUPP, ""};
  } else if (!EsBase(rr->basenames[0])) {
    d = {YAZ_BIB1_DATABASE_DOES_NOT_EXIST, rr->basenames[0] != nullptr ? rr->basenames[0] : ""};
  } else if (rr->scanClause != nullptr) {
    termino = DeCQL(rr->scanClause, d);
  } else if (rr->term != nullptr) {
    termino = DeTerminoRPN(*rr->term, rr->attributeset, d);
  } else {
    d = {YAZ_BIB1_MALFORMED_QUERY, ""};
  }
  if (!d && termino && termino->tipo != Nodo::Tipo::Termino) {
    d = {YAZ_BIB1_UNSUPP_SEARCH, "a scan takes one term"};
  }
  if (!d && termino && termino->indice == Indice::NumeroLocal) {
    d = {YAZ_BIB1_UNSUPP_USE_ATTRIBUTE, "12"};
  }
  Acervo* acervo = d ? nullptr : AbreAcervo(s, d);
  if (d || acervo == nullptr || !termino) {
    if (!d) d = {YAZ_BIB1_MALFORMED_QUERY, ""};
    Diagnostica(rr->stream, rr->errcode, rr->errstring, d);
    rr->num_entries = 0;
    return 0;
  }
  const int cuantas = std::clamp(rr->num_entries, 0, kMaximoEntradas);
  int antes = std::clamp(rr->term_position - 1, 0, cuantas);
  bool completa = true;
  std::vector<Acervo::Entrada> entradas;
  try {
    entradas = acervo->Explora(termino->indice, termino->texto, antes, cuantas, completa);
  } catch (const RuntimeError& error) {
    d = {YAZ_BIB1_TEMPORARY_SYSTEM_ERROR, CodePage::Windows1252().ToUtf8(error.description())};
    Diagnostica(rr->stream, rr->errcode, rr->errstring, d);
    rr->num_entries = 0;
    return 0;
  }
  for (std::size_t i = 0; i < entradas.size(); ++i) {
    rr->entries[i].term = odr_strdup(rr->stream, entradas[i].palabra.c_str());
    rr->entries[i].display_term = rr->entries[i].term;
    rr->entries[i].occurrences = entradas[i].fichas;
    rr->entries[i].errcode = 0;
    rr->entries[i].errstring = nullptr;
  }
  rr->num_entries = static_cast<int>(entradas.size());
  rr->term_position = antes + 1;
  rr->status = completa ? BEND_SCAN_SUCCESS : BEND_SCAN_PARTIAL;
  return 0;
}

// The SRU explain record (ZeeRex) of the catalogue: its indexes in the
// context sets the queries take, the record schemas, and whether the MARC
// records are the catalogue's own or built from its tag strings.
int Explica(void* handle, bend_explain_rr* rr) {
  Sesion& s = *static_cast<Sesion*>(handle);
  if (rr->database != nullptr && !EsBase(rr->database)) return 0;
  Diagnostico d;
  Acervo* acervo = AbreAcervo(s, d);
  const bool origenes = acervo != nullptr && acervo->GuardaOrigenes();
  std::string x =
      "<explain xmlns=\"http://explain.z3950.org/dtd/2.0/\">\n"
      " <serverInfo protocol=\"SRU\" version=\"1.2\"><database>libros</database></serverInfo>\n"
      " <databaseInfo><title lang=\"es\" primary=\"true\">Cat\xC3\xA1logo de libros</title>\n"
      "  <description lang=\"es\" primary=\"true\">";
  x += origenes ? "Los registros MARC son los del cat\xC3\xA1logo, tal como se cargaron."
                : "El cat\xC3\xA1logo no guarda sus registros MARC: se arman de sus etiquetas, cada una con "
                  "su contenido en el subcampo $a.";
  x += "</description></databaseInfo>\n <indexInfo>\n"
       "  <set name=\"cql\" identifier=\"info:srw/cql-context-set/1/cql-v1.2\"/>\n"
       "  <set name=\"dc\" identifier=\"info:srw/cql-context-set/1/dc-v1.1\"/>\n"
       "  <set name=\"bath\" identifier=\"http://zing.z3950.org/cql/bath/2.0/\"/>\n"
       "  <set name=\"rec\" identifier=\"info:srw/cql-context-set/2/rec-1.1\"/>\n";
  const char* indices[][3] = {
      {"cql", "serverChoice", "cualquier campo"}, {"dc", "title", "t\xC3\xADtulo"},
      {"dc", "creator", "autor"},                 {"dc", "subject", "tema"},
      {"bath", "isbn", "ISBN"},                   {"bath", "issn", "ISSN"},
      {"bath", "lcCallNumber", "clasificaci\xC3\xB3n"}, {"rec", "id", "n\xC3\xBAmero de ficha"},
  };
  for (const auto& i : indices) {
    x += std::string("  <index><title lang=\"es\">") + i[2] + "</title><map><name set=\"" + i[0] + "\">" +
         i[1] + "</name></map></index>\n";
  }
  x += " </indexInfo>\n <schemaInfo>\n"
       "  <schema identifier=\"info:srw/schema/1/marcxml-v1.1\" name=\"marcxml\"><title>MARCXML</title></schema>\n"
       "  <schema identifier=\"info:srw/schema/1/dc-v1.1\" name=\"dc\"><title>Dublin Core</title></schema>\n"
       " </schemaInfo>\n <configInfo>\n"
       "  <default type=\"numberOfRecords\">0</default>\n"
       "  <setting type=\"maximumRecords\">100</setting>\n"
       "  <supports type=\"relation\">=</supports><supports type=\"relation\">==</supports>\n"
       "  <supports type=\"relation\">adj</supports><supports type=\"relation\">all</supports>\n"
       "  <supports type=\"relation\">any</supports><supports type=\"maskingCharacter\">*</supports>\n"
       " </configInfo>\n</explain>\n";
  rr->explain_buf = odr_strdup(rr->stream, x.c_str());
  return 0;
}

bend_initresult* Inicia(bend_initrequest* r) {
  auto* resultado = static_cast<bend_initresult*>(odr_malloc(r->stream, sizeof(bend_initresult)));
  resultado->errcode = 0;
  resultado->errstring = nullptr;
  resultado->handle = new Sesion();
  r->bend_search = Busca;
  r->bend_fetch = Trae;
  r->bend_scan = Explora;
  r->bend_srw_scan = Explora;
  r->bend_explain = Explica;
  r->named_result_sets = 1;
  r->query_charset = odr_strdup(r->stream, "UTF-8");
  r->records_in_same_charset = 1;
  r->implementation_name = odr_strdup(r->stream, "Orvex");
  r->implementation_id = odr_strdup(r->stream, "orvex-z3950");
  return resultado;
}

void Cierra(void* handle) { delete static_cast<Sesion*>(handle); }

}  // namespace

int Principal(int argc, char** argv) {
  // A connection idle for two minutes is closed unless -t says otherwise:
  // a client that connects and waits holds a process only that long.
  std::vector<char*> argumentos(argv, argv + argc);
  const bool con_espera = std::any_of(argumentos.begin(), argumentos.end(),
                                      [](const char* a) { return a != nullptr && std::strncmp(a, "-t", 2) == 0; });
  static char opcion[] = "-t", minutos[] = "2";
  if (!con_espera && !argumentos.empty()) {
    argumentos.insert(argumentos.begin() + 1, {opcion, minutos});
  }
  argumentos.push_back(nullptr);
  return statserv_main(static_cast<int>(argumentos.size()) - 1, argumentos.data(), Inicia, Cierra);
}

}  // namespace orvex::z3950
