#include "config/Instalacion.h"

#include <initializer_list>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Runtime.h"

namespace orvex::config {
namespace {

// The text settings of the table, by upper-case key.
struct Clave {
  std::string_view nombre;
  std::string Instalacion::*campo;
};

constexpr Clave kClaves[] = {
    {"DEPARTAMENTO", &Instalacion::Departamento},
    {"INSTITUCION", &Instalacion::Institucion},
    {"XMLETIQUETASGLOBAL", &Instalacion::XMLEtiquetasGlobal},
    {"CATALOGOLIBROSDEFAULT", &Instalacion::CatalogoLibrosDefault},
    {"XSLFICHALIBROS", &Instalacion::XSLFichaLibros},
    {"XSLTABLALIBROS", &Instalacion::XSLTablaLibros},
    {"XSLFICHAPUBLICACIONES", &Instalacion::XSLFichaPublicaciones},
    {"XSLTABLAPUBLICACIONES", &Instalacion::XSLTablaPublicaciones},
    {"XSLFICHAANALITICA", &Instalacion::XSLFichaAnalitica},
    {"XSLTABLAANALITICA", &Instalacion::XSLTablaAnalitica},
};

// The MARC tags that the XML record documents carry, in their order.
const std::vector<std::string>& EtiquetasXML() {
  static const std::vector<std::string> etiquetas = {
      "008", "020", "050", "041", "043", "045", "082", "090", "100", "110", "111",
      "130", "240", "245", "250", "260", "300", "400", "410", "411", "440", "490",
      "500", "501", "502", "503", "504", "505", "520", "600", "610", "611", "630",
      "650", "651", "700", "710", "711", "730", "740", "590", "856"};
  return etiquetas;
}

void Guarda(Instalacion& ins, const std::string& clave, const std::string& valor) {
  if (clave == "ANA_NUMERA_ENCABEZAMIENTOS") {
    ins.AnaNumeraEncabezamientos = valor.empty() ? false : ToBoolean(valor);
    return;
  }
  for (const Clave& c : kClaves) {
    if (clave == c.nombre) {
      ins.*c.campo = valor;
      return;
    }
  }
}

void PonAviso(std::string& hoja, std::string_view nombre) {
  if (hoja.empty()) hoja = HojaAviso(nombre);
}

// Loads a periodicals' personal sheet from the program's "XSLs" folder,
// reporting the path and the outcome in HTML comments.
void CargaPersonalRevistas(std::string& destino, std::string_view archivo,
                           std::string_view exito, std::string_view fracaso, Servicios& sys) {
  const std::string ruta =
      JoinPath(JoinPath(sys.archivos.ProgramDirectory(), "XSLs"), archivo);
  EnviaLinea(sys.salida, "<!--" + ruta + " -->");
  if (const auto encontrado = FindFile(sys.archivos, ruta)) {
    destino = sys.archivos.ReadAll(*encontrado);
    EnviaLinea(sys.salida, std::string(exito));
  } else {
    EnviaLinea(sys.salida, std::string(fracaso));
  }
}

// Loads the books' personal sheet "fichaWeb.xsl": the program's "XSLs"
// folder first, then the databases' directory.
void CargaPersonalLibros(Instalacion& ins, std::string_view ruta_base, Servicios& sys) {
  const std::string carpeta_app = JoinPath(JoinPath(sys.archivos.ProgramDirectory(), "XSLs"), "");
  if (const auto encontrado = FindFile(sys.archivos, carpeta_app + "fichaWeb.xsl")) {
    ins.XSLPersonalLibros = sys.archivos.ReadAll(*encontrado);
    EnviaLinea(sys.salida, "<!-- Ruta app: " + carpeta_app + "<br>");
    EnviaLinea(sys.salida, "XSL_personal cargado, <br> -->");
    return;
  }
  const std::string carpeta_bd = JoinPath(ruta_base, "");
  EnviaLinea(sys.salida, "<!-- Ruta BD: " + carpeta_bd + "<br>");
  if (const auto encontrado = FindFile(sys.archivos, carpeta_bd + "fichaWeb.xsl")) {
    ins.XSLPersonalLibros = sys.archivos.ReadAll(*encontrado);
    EnviaLinea(sys.salida, "XSL_personal cargado, <br> -->");
  } else {
    // Kept: the comment opened above stays open until the next "-->" of the page.
    EnviaLinea(sys.salida, Latin1("No se cargó XSL_personal<br>"));
  }
}

std::string ConstruyeHojaFicha() {
  const std::initializer_list<std::string_view> lineas = {
      "<?xml version=\"1.0\"?>",
      "<xsl:stylesheet xmlns:xsl=\"http://www.w3.org/TR/WD-xsl\">",
      "<xsl:template match=\"/\">",
      "<html>",
      "<head>",
      "<style type=\"text/css\">",
      ".margen1 { font-family: Arial; color: black; text-indent: -10pt; margin-left: 30pt; "
      "text-align: justify }",
      ".margen2 { font-family: Arial; color: #000055; text-indent: 20pt; margin-left: 20pt; "
      "text-align: justify }",
      "table.numadq { empty-cells: show; font-size: 9pt; font-family: Arial; text-align: "
      "center }",
      "</style>",
      "</head>",
      "<body>",
      "<table width=\"100%\" bgcolor=\"#ccffcc\">",
      "<tr>",
      "<td>Ficha No. <font color=\"red\"><b><xsl:value-of select=\"FICHA/@Numero\"/></b></font>"
      "</td>",
      "<td align=\"right\"><xsl:value-of select=\"FICHA/SECCIONES/Sclas\"/></td>",
      "</tr>",
      "</table>",
      "<div class=\"margen1\"><xsl:value-of select=\"FICHA/SECCIONES/Sa\"/></div>",
      "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/S1\"/></div>",
      "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/S2\"/></div>",
      "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/Sisbn\"/></div>",
      "<xsl:for-each select=\"FICHA/SECCIONES/Snotas\">",
      "<div class=\"margen2\"><xsl:value-of select=\".\"/></div>",
      "</xsl:for-each>",
      "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/Sr1\"/></div>",
      "<div class=\"margen2\"><xsl:value-of select=\"FICHA/SECCIONES/Sr2\"/></div>",
      "<table class=\"numadq\" align=\"right\" bgcolor=\"#eeeeff\" border=\"1\">",
      "<tr><th>No. Adquisición</th><th>Biblioteca</th><th>Volumen</th><th>Ejemplar</th>"
      "<th>Tomo</th></tr>",
      "<xsl:for-each select=\"FICHA/EXISTENCIAS/EJEMPLAR\">",
      "<tr>",
      "<td><xsl:value-of select=\"@NoAdq\"/></td>",
      "<td><xsl:value-of select=\"@Biblio\"/></td>",
      "<td><xsl:value-of select=\"@Vol\"/></td>",
      "<td><xsl:value-of select=\"@Ejemplar\"/></td>",
      "<td><xsl:value-of select=\"@Tomo\"/></td>",
      "</tr>",
      "</xsl:for-each>",
      "</table>",
      "</body>",
      "</html>",
      "</xsl:template>",
      "</xsl:stylesheet>",
  };
  std::string hoja;
  for (std::string_view linea : lineas) {
    if (!hoja.empty()) hoja += "\r\n";
    hoja += Latin1(linea);
  }
  return hoja;
}

}  // namespace

std::string HojaAviso(std::string_view nombre) {
  return Latin1(
             "<?xml version='1.0'?><xsl:stylesheet xmlns:xsl='http://www.w3.org/TR/WD-xsl'>"
             "<xsl:template><html><body><center><font face='arial' size='5'><font "
             "color='red'> <b> No se encontró la referencia ") +
         std::string(nombre) +
         " </b> </font></font></center> </body></html></xsl:template></xsl:stylesheet>";
}

const std::string& HojaFichaIntegrada() {
  static const std::string hoja = ConstruyeHojaFicha();
  return hoja;
}

void CargaConfiguracion(Instalacion& ins, db::Database& BDBiblio, std::string_view acervo,
                        std::string_view ruta_base, Servicios& sys) {
  const std::string columna_clave = Latin1("Descripción");
  auto tabla = BDBiblio.OpenRecordset("Configuracion", db::RecordsetType::Table);
  for (; !tabla->Eof(); tabla->MoveNext()) {
    Guarda(ins, UpperLatin1(tabla->Field(columna_clave).AsText()),
           tabla->Field("Valor").AsText());
  }
  tabla->Close();

  if (ins.CatalogoLibrosDefault.empty()) ins.CatalogoLibrosDefault = kCatalogoLibrosDefault;
  ins.EtiquetasXML = EtiquetasXML();
  if (ins.XSLFichaLibros.empty()) ins.XSLFichaLibros = HojaFichaIntegrada();

  if (acervo != "LIBROS" && !acervo.empty()) {
    PonAviso(ins.XSLFichaPublicaciones, "XSL_Ficha_Publicaciones");
    PonAviso(ins.XSLTablaPublicaciones, "XSL_Tabla_Publicaciones");
    if (ins.XSLPersonalRevistas.empty()) {
      CargaPersonalRevistas(ins.XSLPersonalRevistas, "pp_propia.xsl",
                            "<!-- XSLpersonalRev cargado con exito-->",
                            "<!-- UPSSS no se pudo cargar XSLpersonalRev -->", sys);
    }
    // The articles reuse the periodicals' notices on purpose.
    PonAviso(ins.XSLFichaAnalitica, "XSL_Ficha_Publicaciones");
    PonAviso(ins.XSLTablaAnalitica, "XSL_Tabla_Publicaciones");
    if (ins.XSLPersonalAnalitica.empty()) {
      CargaPersonalRevistas(ins.XSLPersonalAnalitica, "pp_propia_ana.xsl",
                            "<!-- XSLpersonalRevANA cargadao con exito-->",  // spelled so
                            "<!-- UPSSS no se pudo cargar XSLpersonalANA -->", sys);
    }
    return;
  }
  PonAviso(ins.XSLTablaLibros, "XSL_Tabla_Libros");
  if (ins.XSLPersonalLibros.empty()) CargaPersonalLibros(ins, ruta_base, sys);
}

}  // namespace orvex::config
