#include "tests/transform/HojasEquivalentes.h"

#include "base/Html.h"
#include "base/CodePage.h"
#include "config/Instalacion.h"
#include "xml/XMLFicha.h"

namespace orvex::transform {
namespace {

// The working-draft dialect has no built-in template rules and reads
// documents without their whitespace-only text: the equivalents say so
// explicitly, so that they behave the same on any document, not only on
// the ones the gateway builds.
constexpr std::string_view kCabecera =
    "<?xml version=\"1.0\"?>\n"
    "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">\n"
    "<xsl:strip-space elements=\"*\"/>\n"
    "<xsl:template match=\"/|@*|node()\" priority=\"-100\"/>\n";

// The record sheet. Its style block keeps the line breaks of the original,
// which are part of the page.
constexpr std::string_view kFicha =
    "<xsl:template match=\"/\" priority=\"1\">\n"
    "<html><head><style type=\"text/css\">\n"
    ".margen1 { font-family: Arial; color: black; text-indent: -10pt; margin-left: 30pt; "
    "text-align: justify }\n"
    ".margen2 { font-family: Arial; color: #000055; text-indent: 20pt; margin-left: 20pt; "
    "text-align: justify }\n"
    "table.numadq { empty-cells: show; font-size: 9pt; font-family: Arial; text-align: center "
    "}\n"
    "</style></head>\n"
    "<body>\n"
    "<table width=\"100%\" bgcolor=\"#ccffcc\"><tr>\n"
    "<td>Ficha No. <font color=\"red\"><b><xsl:value-of select=\"FICHA/@Numero\"/></b></font>"
    "</td>\n"
    "<td align=\"right\"><xsl:value-of select=\"FICHA/SECCIONES/Sclas\"/></td>\n"
    "</tr></table>\n"
    "<div class=\"margen1\"><xsl:value-of select=\"FICHA/SECCIONES/Sa\"/></div>\n"
    "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/S1\"/></div>\n"
    "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/S2\"/></div>\n"
    "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/Sisbn\"/></div>\n"
    "<xsl:for-each select=\"FICHA/SECCIONES/Snotas\">"
    "<div class=\"margen2\"><xsl:value-of select=\".\"/></div></xsl:for-each>\n"
    "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/Sr1\"/></div>\n"
    "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/Sr2\"/></div>\n"
    "<table class=\"numadq\" align=\"right\" bgcolor=\"#eeeeff\" border=\"1\">\n"
    "<tr><th>No. Adquisición</th><th>Biblioteca</th><th>Volumen</th><th>Ejemplar</th>"
    "<th>Tomo</th></tr>\n"
    "<xsl:for-each select=\"FICHA/EXISTENCIAS/EJEMPLAR\"><tr>"
    "<td><xsl:value-of select=\"@NoAdq\"/></td>"
    "<td><xsl:value-of select=\"@Biblio\"/></td>"
    "<td><xsl:value-of select=\"@Vol\"/></td>"
    "<td><xsl:value-of select=\"@Ejemplar\"/></td>"
    "<td><xsl:value-of select=\"@Tomo\"/></td>"
    "</tr></xsl:for-each>\n"
    "</table>\n"
    "</body></html>\n"
    "</xsl:template>\n"
    "</xsl:stylesheet>\n";

// The name inside a notice sheet, when `hoja` is one.
std::optional<std::string_view> NombreDeAviso(std::string_view hoja) {
  static const std::string vacio = config::HojaAviso("");
  static const std::string_view marca = "No se encontr";
  const size_t corte = vacio.find(marca);
  const size_t fin_prefijo = vacio.find(" </b>", corte);
  const std::string_view prefijo = std::string_view(vacio).substr(0, fin_prefijo);
  const std::string_view sufijo = std::string_view(vacio).substr(fin_prefijo);
  if (hoja.size() < vacio.size() || !hoja.starts_with(prefijo) || !hoja.ends_with(sufijo)) {
    return std::nullopt;
  }
  const std::string_view nombre =
      hoja.substr(prefijo.size(), hoja.size() - prefijo.size() - sufijo.size());
  if (nombre.find_first_of("<&") != std::string_view::npos) return std::nullopt;
  return nombre;
}

}  // namespace

std::optional<std::string> EquivalenteXSLT(std::string_view hoja) {
  if (hoja == config::HojaFichaIntegrada()) {
    static const std::string ficha = std::string(kCabecera) + std::string(kFicha);
    return ficha;
  }
  if (const auto nombre = NombreDeAviso(hoja)) {
    // The notice's texts keep their blanks; the blanks between its tags are
    // dropped, as the working-draft parser dropped them.
    return std::string(kCabecera) +
           "<xsl:template match=\"/\" priority=\"1\"><html><body><center>"
           "<font face=\"arial\" size=\"5\"><font color=\"red\"><b> No se encontró la "
           "referencia " +
           CodePage::Windows1252().ToUtf8(EscapaEntidadesXML(*nombre)) +
           " </b></font></font></center></body></html></xsl:template>\n"
           "</xsl:stylesheet>\n";
  }
  return std::nullopt;
}

}  // namespace orvex::transform
