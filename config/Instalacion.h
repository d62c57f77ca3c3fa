#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/Platform.h"
#include "db/Database.h"

namespace orvex::config {

// The installation's settings, read from the "Configuracion" table of the
// bibliographic database. They hold for every page, unlike the per-page
// configuration file.
struct Instalacion {
  std::string Departamento;
  std::string Institucion;
  std::string XMLEtiquetasGlobal;
  std::string CatalogoLibrosDefault;  // comma-separated MARC tags
  std::string XSLFichaLibros;
  std::string XSLTablaLibros;
  std::string XSLFichaPublicaciones;
  std::string XSLTablaPublicaciones;
  std::string XSLFichaAnalitica;
  std::string XSLTablaAnalitica;
  bool AnaNumeraEncabezamientos = false;
  std::vector<std::string> EtiquetasXML;  // the 42 tags of the XML record documents
  // The installation's own style sheet files; empty when there is none.
  std::string XSLPersonalLibros;
  std::string XSLPersonalRevistas;
  std::string XSLPersonalAnalitica;
};

// The book tags used when the table names none.
inline constexpr std::string_view kCatalogoLibrosDefault =
    "020,082,100,110,111,245,250,260,300,440,500,600,650,700";

// The notice style sheet that stands in for the missing sheet `nombre`
// ("XSL_Tabla_Libros", "XSL_Ficha_Publicaciones", "XSL_Tabla_Publicaciones"):
// it ignores the record and shows "No se encontró la referencia " and the
// name, centred, large, red and bold.
std::string HojaAviso(std::string_view nombre);

// The built-in record style sheet (the default of XSLFichaLibros), in the
// working-draft XSL dialect, lines separated by CR LF.
const std::string& HojaFichaIntegrada();

// Reads every row of the table "Configuracion" of `BDBiblio` (key column
// "Descripción", upper-cased before it is compared; value column "Valor";
// unknown keys are ignored and a repeated key keeps its later value), then
// fills the defaults and loads the personal style sheets that `ins` does not
// hold yet: for books (`acervo` "LIBROS" or empty) "XSLs/fichaWeb.xsl" in the
// program's directory, else "fichaWeb.xsl" in `ruta_base`; for the other
// collections "XSLs/pp_propia.xsl" and "XSLs/pp_propia_ana.xsl" in the
// program's directory. Each attempt is reported in the page as it happens.
// A missing table or a database error raises, and so does an
// "ANA_NUMERA_ENCABEZAMIENTOS" value that is neither boolean text nor a
// number (13); missing files are not errors.
void CargaConfiguracion(Instalacion& ins, db::Database& BDBiblio, std::string_view acervo,
                        std::string_view ruta_base, Servicios& sys);

}  // namespace orvex::config
