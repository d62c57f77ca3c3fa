#include "presentation/MuestraFicha.h"

#include <initializer_list>
#include <vector>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Runtime.h"
#include "base/Html.h"
#include "cgi/Enlaces.h"
#include "exportacion/Exporta.h"
#include "circulation/ChecaIP.h"
#include "circulation/Disponibilidad.h"
#include "config/ArchivoCFG.h"
#include "config/Plantillas.h"
#include "cgi/EntradaCGI.h"
#include "records/Plantilla.h"
#include "records/Presentaciones.h"
#include "records/Resalta.h"
#include "transform/TransformaXML.h"
#include "xml/XMLFicha.h"
#include "xml/XMLTarjeta.h"

namespace orvex::presentation {
namespace {

// The template of one record: "FORMATO_FICHA:" on the page of one record
// asked for by its number, when the configuration has that section; else
// "FORMATO:", as every page has always used.
std::string SeccionFormato(cgi::Solicitud& s) {
  if (s.FichaSola) {
    std::string ficha = s.Seccion("FORMATO_FICHA:");
    if (!ficha.empty()) return ficha;
  }
  return s.Seccion("FORMATO:");
}

using config::ReemplazaTexto;

// How long a circulation server may take to answer the host check.
constexpr std::int32_t kEsperaServidorMs = 200;

// The first fields of `etiquetas` present in the record, joined by "\" as
// the occurrences of one field are.
std::string Une(std::string_view marc, std::initializer_list<std::string_view> etiquetas) {
  std::string unidos;
  for (std::string_view etiqueta : etiquetas) {
    const std::string contenido = records::ExtraeEtiqueta(etiqueta, marc);
    if (TrimBlanksView(contenido).empty()) continue;
    if (!unidos.empty()) unidos += " \\ ";
    unidos += contenido;
  }
  return unidos;
}

// The notes, one per line.
std::string Notas(std::string_view marc) {
  std::string notas = records::SeparaRepetidos(Une(marc, {"500", "501", "502", "503", "504", "505", "520"}));
  ReemplazaTexto(notas, "\r\n", "<br/>");
  return notas;
}

// The three presentations of the card: the card document through the record
// sheet, the record document through the table sheet and through the
// installation's own sheet.
std::string PresentacionTarjeta(cgi::Solicitud& s, const records::RegFicha& ficha) {
  transform::TransformadorXSL transformador(s.sys.motores.Xsl(), s.sys.salida, &s.Traza,
                                            &s.HojasAvisadas);
  const config::Instalacion& ins = s.instalacion;
  const std::string tarjeta =
      CuerpoConEstilos(transformador.TransformaXML(xml::XMLTarjeta(ficha), ins.XSLFichaLibros));
  const std::string documento = xml::XMLFicha(ficha, ins);
  const std::string tabla = CuerpoConEstilos(transformador.TransformaXML(documento, ins.XSLTablaLibros));
  std::string propia;
  if (!ins.XSLPersonalLibros.empty()) {
    std::string resultado = transformador.TransformaXML(documento, ins.XSLPersonalLibros);
    ReemplazaTexto(resultado, "Ruta-", "./XSLs/");
    propia = CuerpoConEstilos(resultado);
  }
  std::string html = records::LlenaEtiquetas(SeccionFormato(s), ficha.EtiquetasMARC, ficha.Ficha_no);
  ReemplazaTexto(html, "<!FICHA!>", tarjeta);
  ReemplazaTexto(html, "<!FICHA1!>", tarjeta);
  ReemplazaTexto(html, "<!FICHA2!>", tabla);
  ReemplazaTexto(html, "<!FICHA3!>", propia);
  return html;
}

// Writes page text collected aside, one write per line as it came.
class Captura : public Output {
 public:
  void Write(std::string_view bytes) override { escrituras.emplace_back(bytes); }
  void TruncateHere() override {}
  void Rewind() override {}
  std::vector<std::string> escrituras;
};

// The host check of a circulation server, made once per request and server:
// later records of the page get the same comments and outcome.
bool ServidorDisponible(cgi::Solicitud& s, std::string& host) {
  if (s.red == nullptr) return false;
  auto [chequeo, nuevo] = s.servidores_revisados.try_emplace(host);
  if (nuevo) {
    Captura captura;
    std::string direccion = host;
    std::int32_t espera = kEsperaServidorMs;
    chequeo->second.disponible =
        circulation::ChecaIP(*s.red, captura, direccion, espera, s.Traza);
    chequeo->second.direccion = direccion;
    chequeo->second.escrituras = std::move(captura.escrituras);
  }
  for (const std::string& escritura : chequeo->second.escrituras) s.sys.salida.Write(escritura);
  if (chequeo->second.disponible) host = chequeo->second.direccion;
  return chequeo->second.disponible;
}

void OfreceDisponibilidad(cgi::Solicitud& s, const records::RegFicha& ficha) {
  Output& salida = s.sys.salida;
  const std::string base_dta = std::to_string(s.cfg.BaseDTA);
  EnviaLinea(salida, "<!-- Prep: BAseDTA" + base_dta + "<br> -->");
  circulation::ServidorCirculacion servidor;
  const bool configurado =
      circulation::BuscaServidor(s.Seccion("DISPONIBILIDAD:"), s.cfg.BaseDTA, servidor);
  if (!configurado || !ServidorDisponible(s, servidor.direccion)) {
    EnviaLinea(salida,
               "<!-- Ups---IP-Port: " + servidor.direccion + ": " + servidor.puerto + "<br> -->");
    return;
  }
  std::string fragmento = s.Seccion("CHECA_DISPONIBILIDAD:");
  EnviaLinea(salida,
             "<!-- OK--IP-Port: " + servidor.direccion + ": " + servidor.puerto + "<br> -->");
  if (fragmento.empty()) return;
  const std::string archivo_cfg = s.Eco(cgi::ValorCGI(s.cgi, "ArchivoCFG"));
  const std::string numero = std::to_string(ficha.Ficha_no);
  ReemplazaTexto(fragmento, "<!COMANDO_SE!>", "cVERDISP");
  ReemplazaTexto(fragmento, "<!ArchivoCFG!>", archivo_cfg);
  ReemplazaTexto(fragmento, "<!DIRECCIONIP!>", servidor.direccion);
  ReemplazaTexto(fragmento, "<!PUERTOTCP!>", servidor.puerto);
  ReemplazaTexto(fragmento, "<!NFICHA!>", numero);
  ReemplazaTexto(fragmento, "<!BaseDTA!>", base_dta);
  EnviaLinea(salida, fragmento);
  EnviaLinea(salida, "<!-- OK--ChecaDisponibilidad: CVERDISP, " + archivo_cfg + ", " +
                         servidor.direccion + ", " + servidor.puerto + ", " + numero + ", " +
                         base_dta + "<br> -->");
}

}  // namespace

void MuestraFicha(cgi::Solicitud& s, const records::RegFicha& ficha, std::int32_t posicion,
                  std::int32_t opcion) {
  (void)opcion;
  if (s.Expresion.empty()) s.Expresion = s.TextoEXPR1;
  if (s.Expresion.empty()) s.Expresion = s.TextoLIB;

  const std::string& marc = ficha.EtiquetasMARC;
  std::string html;
  if (s.MostrarFichaBDL == 1) {
    const std::string tabla = records::TablaCampos(ficha);
    html = records::LlenaEtiquetas(SeccionFormato(s), marc, ficha.Ficha_no);
    ReemplazaTexto(html, "<!FICHABDL!>", tabla);
  } else if (s.MostrarFichaBIB == 1) {
    const std::string breve = records::FichaBreve(ficha);
    html = records::LlenaEtiquetas(SeccionFormato(s), marc, ficha.Ficha_no);
    ReemplazaTexto(html, "<!FICHAB!>", breve);
  } else {
    html = PresentacionTarjeta(s, ficha);
  }

  ReemplazaTexto(html, "<!CLASIFICACION!>", Clasificacion(marc));
  ReemplazaTexto(html, "<!NFICHA!>", std::to_string(ficha.Ficha_no));
  ReemplazaTexto(html, "<!PFICHA!>", std::to_string(posicion));
  if (html.find("<!ENLACEFICHA!>") != std::string::npos) {
    ReemplazaTexto(html, "<!ENLACEFICHA!>", cgi::EnlaceFicha(s, ficha.Ficha_no));
  }
  if (html.find("<!CITA!>") != std::string::npos && s.BDBiblio) {
    ReemplazaTexto(html, "<!CITA!>", EscapaEco(exportacion::Cita(ficha, *s.BDBiblio)));
  }
  ReemplazaTexto(html, "<!ENCABEZAMIENTOS!>",
                 records::ListaNumerada(Une(marc, {"600", "610", "611", "630", "651", "650"}),
                               records::Numeracion::Arabiga));
  ReemplazaTexto(html, "<!NOTAS!>", Notas(marc));
  ReemplazaTexto(html, "<!ASIENTOS_SECUNDARIOS!>",
                 records::ListaNumerada(Une(marc, {"700", "710", "711", "730", "750", "751"}),
                               records::Numeracion::Romana));

  s.pagina.LlenaPosicion(html);

  if (s.MostrarFichaBDL != 1) {
    if (s.TextoLIB.empty() && !s.Expresion.empty()) s.TextoLIB = s.Expresion;
    if (!s.TextoLIB.empty()) records::ResaltaTerminos(html, s.busqueda.Terminos);
  }
  EnviaLinea(s.sys.salida, html);

  EnviaLinea(s.sys.salida, "<!-- Antes de Disponibilidad, Ficha:" +
                               std::to_string(ficha.Ficha_no) + ", MOSTRARFichaBIB: " +
                               std::to_string(s.MostrarFichaBIB) + " -->");
  if (ficha.Ficha_no >= 1 && s.MostrarFichaBIB != 1) OfreceDisponibilidad(s, ficha);
  EnviaLinea(s.sys.salida, s.Seccion("SEPARADOR:"));
}

std::string Clasificacion(std::string_view marc) {
  std::string clasificacion = TrimBlanks(records::ExtraeEtiqueta("050082090", marc));
  ReemplazaTexto(clasificacion, "  ", " ");
  ReemplazaTexto(clasificacion, " ", "<BR/>");
  return clasificacion;
}

namespace {

// The first position from `desde` where `marca` (upper-case ASCII) stands
// in `html` in any letter case; npos when it does not.
size_t BuscaMarca(std::string_view html, std::string_view marca, size_t desde) {
  for (size_t p = html.find(marca[0], desde); p != std::string_view::npos;
       p = html.find(marca[0], p + 1)) {
    if (EqualsIgnoringCase(html.substr(p, marca.size()), marca)) return p;
  }
  return std::string_view::npos;
}

}  // namespace

std::string CuerpoConEstilos(const std::string& html) {
  std::string cuerpo;
  const size_t body = BuscaMarca(html, "<BODY", 0);
  if (body != std::string::npos) {
    const size_t cierre = html.find('>', body);
    if (cierre != std::string::npos) {
      const size_t fin = BuscaMarca(html, "</BODY", cierre + 1);
      cuerpo = html.substr(cierre + 1, fin == std::string::npos ? std::string::npos : fin - cierre - 1);
    }
  }
  if (cuerpo.empty()) return html;
  ReemplazaTexto(cuerpo, "class=\"margen1\"",
                 "style=\"font-family:arial;  color=#000000; text-indent=-10pt;  "
                 "margin-left=30pt; text-align=justify;\"");
  ReemplazaTexto(cuerpo, "class=\"margen2\"",
                 "style=\"font-family:arial;  color=#000055; text-indent=20pt;  "
                 "margin-left=20pt; text-align=justify;\"");
  ReemplazaTexto(cuerpo, "class=\"resalta1\"",
                 "style=\"font-family:arial; font-size=10pt; color=blue; vertical-align=top; "
                 "font-weight=bold;\"");
  ReemplazaTexto(cuerpo, "class=\"resalta2\"",
                 "style=\"font-family:arial; font-size=11pt; color=blue; vertical-align=top; \"");
  ReemplazaTexto(cuerpo, "class=\"resalta3\"",
                 "style=\"font-family:arial; font-size=12pt; color=red; vertical-align=top; "
                 "font-weight=bold;\"");
  return cuerpo;
}

}  // namespace orvex::presentation
