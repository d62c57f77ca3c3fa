#include "transform/TransformaXML.h"

#include "base/Html.h"
#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Plazo.h"
#include "config/Plantillas.h"
#include "transform/HojasNativas.h"

namespace orvex::transform {
namespace {

constexpr std::string_view kMarcaUtf8 = "\xEF\xBB\xBF";

std::string ComoUtf8(const std::string& texto) {
  if (texto.starts_with(kMarcaUtf8)) return texto.substr(kMarcaUtf8.size());
  return CodePage::Windows1252().ToUtf8(texto);
}

std::string DeUtf8(const std::string& texto) { return CodePage::Windows1252().FromUtf8(texto); }

}  // namespace

std::string LineaDelTexto(const std::string& texto, int linea) {
  if (linea < 1) return "";
  size_t inicio = 0;
  for (int n = 1; n < linea; ++n) {
    inicio = texto.find('\n', inicio);
    if (inicio == std::string::npos) return "";
    ++inicio;
  }
  size_t fin = texto.find('\n', inicio);
  if (fin == std::string::npos) fin = texto.size();
  if (fin > inicio && texto[fin - 1] == '\r') --fin;
  return texto.substr(inicio, fin - inicio);
}

std::string TransformadorXSL::TransformaXML(const std::string& xml, const std::string& xsl) {
  // The built-in sheets on the gateway's own documents need no processor: a
  // page of default cards never loads it.
  fallo_ = false;
  if (auto nativa = TransformacionNativa(xml, xsl)) return std::move(*nativa);
  ResultadoXSL r = motor_.Transforma(ComoUtf8(xml), ComoUtf8(xsl));
  if (traza_ != nullptr && !r.avisos.empty() && avisadas_->insert(xsl).second) {
    for (const std::string& aviso : r.avisos) {
      *traza_ += "Hoja XSL: " + EscapaEntidadesXML(DeUtf8(aviso)) + "<br/>";
    }
  }
  if (r.estado != ResultadoXSL::Estado::Correcto) fallo_ = true;
  switch (r.estado) {
    case ResultadoXSL::Estado::Correcto:
      return std::move(r.texto);
    case ResultadoXSL::Estado::DocumentoInvalido: {
      // The reason ends with CR LF, as the page has always shown it.
      config::MensajeH4(salida_, "Error al cargar el documento XML: " + DeUtf8(r.razon) +
                                     "\r\n : " + LineaDelTexto(xml, r.linea));
      EnviaLinea(salida_, "<!--\r\n\r\n\r\n" + xml + "\r\n\r\n\r\n-->");
      break;
    }
    case ResultadoXSL::Estado::HojaInvalida:
      config::MensajeH4(salida_, "Error al cargar la hoja de estilo XSL");
      break;
    case ResultadoXSL::Estado::FalloTransformacion:
      config::MensajeH4(salida_, "Error executing the Transform: " + DeUtf8(r.descripcion) +
                                     "\r\n line: 0 col: 0 text: ");
      break;
    case ResultadoXSL::Estado::PlazoVencido:
      throw TiempoAgotado{};
    case ResultadoXSL::Estado::SinProcesador:
      config::MensajeH4(salida_, Latin1("No se pudo cargar el procesador XSL de Orvex: ") +
                                     DeUtf8(r.descripcion));
      break;
  }
  return "";
}

}  // namespace orvex::transform
