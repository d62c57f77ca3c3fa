#include "presentation/MuestraRevista.h"

#include <string>

#include "base/EnviaLinea.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/Plantillas.h"
#include "records/Ficha.h"
#include "presentation/MuestraFicha.h"
#include "records/Plantilla.h"
#include "records/Resalta.h"
#include "transform/TransformaXML.h"
#include "xml/XMLRevista.h"

namespace orvex::presentation {
namespace {

using config::ReemplazaTexto;

// The first row of `sql`, or none.
std::unique_ptr<db::Recordset> PrimeraFila(cgi::Solicitud& s, const std::string& sql) {
  if (!s.BDBiblio) {
    throw RuntimeError(91, Latin1("Variable de objeto o bloque With no establecida"));
  }
  auto rs = s.BDBiblio->OpenRecordset(sql, db::RecordsetType::Snapshot);
  if (rs->Eof()) return nullptr;
  return rs;
}

// The installation's own sheet result, its "Ruta-" made "./XSLs/".
std::string Propia(std::string resultado) {
  ReemplazaTexto(resultado, "Ruta-", "./XSLs/");
  return CuerpoConEstilos(resultado);
}

// The placeholders both displays fill after their presentations, the record
// written, the searched words marked.
void Completa(cgi::Solicitud& s, std::string& html, std::string_view marc,
              std::int32_t numero, std::int32_t posicion) {
  ReemplazaTexto(html, "<!CLASIFICACION!>", Clasificacion(marc));
  ReemplazaTexto(html, "<!NFICHA!>", std::to_string(numero));
  ReemplazaTexto(html, "<!PFICHA!>", std::to_string(posicion));
  s.pagina.LlenaPosicion(html);
  if (s.TextoLIB.empty() && !s.Expresion.empty()) s.TextoLIB = s.Expresion;
  if (!s.TextoLIB.empty()) records::ResaltaTerminos(html, s.busqueda.Terminos);
  EnviaLinea(s.sys.salida, html);
}

void ErrorDeDisplay(cgi::Solicitud& s, std::string_view rutina, const RuntimeError& error) {
  config::MensajeH4(s.sys.salida, "Error en mod. " + std::string(rutina) + " [" +
                                      std::to_string(error.number()) + "] " + error.description());
}

}  // namespace

void DisplyRegRevista(cgi::Solicitud& s, std::int32_t numero, std::int32_t posicion,
                      std::uint8_t /*formato*/) {
  try {
    if (s.Expresion.empty()) s.Expresion = s.TextoLIB;
    const auto fila = PrimeraFila(
        s, "SELECT EtiquetasMARC FROM [Fichas Revistas] WHERE Ficha_no=" + std::to_string(numero));
    const std::string marc = fila ? fila->Field("EtiquetasMARC").AsText() : records::FichaSinDatos();

    const config::Instalacion& ins = s.instalacion;
    transform::TransformadorXSL transformador(s.sys.motores.Xsl(), s.sys.salida, &s.Traza,
                                            &s.HojasAvisadas);
    const std::string tarjeta = CuerpoConEstilos(transformador.TransformaXML(
        xml::XMLRevista(numero, marc, "XSLFichaPublicaciones"), ins.XSLFichaPublicaciones));
    const std::string tabla = CuerpoConEstilos(transformador.TransformaXML(
        xml::XMLRevista(numero, marc, "XSLTablaPublicaciones"), ins.XSLTablaPublicaciones));
    std::string propia;
    if (!ins.XSLPersonalRevistas.empty()) {
      propia = Propia(transformador.TransformaXML(xml::XMLRevista(numero, marc, "pp_propia.xsl"),
                                                  ins.XSLPersonalRevistas));
    }
    std::string html = records::LlenaEtiquetas(s.Seccion("FORMATO:"), marc, numero);
    ReemplazaTexto(html, "<!FICHA!>", tarjeta);
    ReemplazaTexto(html, "<!FICHA1!>", tarjeta);
    ReemplazaTexto(html, "<!FICHA2!>", tabla);
    ReemplazaTexto(html, "<!FICHA3!>", propia);
    Completa(s, html, marc, numero, posicion);
  } catch (const RuntimeError& error) {
    ErrorDeDisplay(s, "DisplyRegRevista", error);
  }
}

void DisplyReg_ANA(cgi::Solicitud& s, std::int32_t id, std::int32_t posicion,
                   std::uint8_t formato) {
  try {
    if (s.Expresion.empty()) s.Expresion = s.TextoLIB;
    const auto fila = PrimeraFila(
        s, "SELECT EtiquetasMARC, numadqui FROM analiticas WHERE ID=" + std::to_string(id));
    const std::string marc = fila ? fila->Field("EtiquetasMARC").AsText() : records::FichaSinDatos();
    const std::string numadqui = fila ? TrimBlanks(fila->Field("numadqui").AsText()) : "";

    const config::Instalacion& ins = s.instalacion;
    struct Presentacion {
      const char* nombre;
      const char* hoja;
      const std::string* texto;
      const char* marcador;
    };
    const Presentacion ficha1{"ficha1", "XSLFichaAnalitica", &ins.XSLFichaAnalitica, "<!FICHA1!>"};
    const Presentacion ficha2{"ficha2", "XSLTablaAnalitica", &ins.XSLTablaAnalitica, "<!FICHA2!>"};
    const Presentacion propia{"personalizado", "pp_propia_ana.xsl", &ins.XSLPersonalAnalitica,
                              "<!FICHA3!>"};
    const Presentacion& elegida = formato == 1   ? ficha1
                                  : formato == 2 ? ficha2
                                  : formato == 3 || !ins.XSLPersonalAnalitica.empty() ? propia
                                                                                      : ficha1;
    EnviaLinea(s.sys.salida, "<!-- " + std::string(elegida.nombre) + "  -->");

    transform::TransformadorXSL transformador(s.sys.motores.Xsl(), s.sys.salida, &s.Traza,
                                            &s.HojasAvisadas);
    const std::string documento = xml::XMLAnalitica(id, numadqui, marc, elegida.hoja);
    std::string resultado = transformador.TransformaXML(documento, *elegida.texto);
    if (transformador.Fallo()) EnviaLinea(s.sys.salida, "<!-- <pre>" + documento + "</pre> -->");
    resultado = &elegida == &propia ? Propia(resultado) : CuerpoConEstilos(resultado);

    std::string html = records::LlenaEtiquetas(s.Seccion("FORMATO:"), marc, id);
    ReemplazaTexto(html, "<!FICHA!>", resultado);
    for (const Presentacion* p : {&ficha1, &ficha2, &propia}) {
      ReemplazaTexto(html, p->marcador, p == &elegida ? resultado : std::string());
    }
    Completa(s, html, marc, id, posicion);
  } catch (const RuntimeError& error) {
    ErrorDeDisplay(s, "DisplyReg_ANA", error);
  }
}

}  // namespace orvex::presentation
