#include "queries/ConsultaLibros.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/ArchivoCFG.h"
#include "config/Instalacion.h"
#include "config/Plantillas.h"
#include "cgi/Bitacora.h"
#include "cgi/Encabezado.h"
#include "cgi/EntradaCGI.h"
#include "queries/AbreBases.h"
#include "queries/Resultados.h"
#include "queries/Estadisticas.h"
#include "queries/Lector.h"
#include "search/Expresion.h"
#include "search/Indice.h"
#include "search/Normalizacion.h"

namespace orvex::queries {
namespace {

using config::ReemplazaTexto;

const std::string kArchivosIncompletos = Latin1(
    "<P>Los archivos están incompletos para consultar o<br> la ruta a los mismos no es "
    "accesible. <br>Verifique la sintaxis de su archivo de configuración y revise la "
    "existencia de los archivos. <br>La ruta obtenida es: ");

std::string Plegado(cgi::Solicitud& s, std::string_view campo) {
  std::string texto = cgi::ValorCGI(s.cgi, campo);
  return search::QuitaAcentos(texto);
}

// A numeric request field: its leading number narrowed to the variable's
// width. Errors are ignored, as the fields have always been read: a value
// that does not fit leaves the variable as it was.
template <typename T, T (*Estrecha)(double)>
void LeeNumero(cgi::Solicitud& s, std::string_view campo, T& destino) {
  try {
    destino = Estrecha(LeadingNumber(cgi::ValorCGI(s.cgi, campo)));
  } catch (const RuntimeError&) {
  }
}

// The library named on the page: the institution of the installation
// settings (empty until they are read).
std::string NombreInstalacion(const cgi::Solicitud& s) { return s.instalacion.Institucion; }

std::string TextoEXPR(const cgi::Solicitud& s, int n) {
  const search::Estado& e = s.busqueda;
  switch (n) {
    case 1: return e.txtEXPR1.empty() ? s.TextoEXPR1 : e.txtEXPR1;
    case 2: return e.txtEXPR2;
    default: return e.txtEXPR3;
  }
}

// The placeholders that "ENCABEZADO2:" and "FINAL:" share, from the total on.
void LlenaComunes(cgi::Solicitud& s, std::string& texto) {
  s.pagina.Llena(texto);
  ReemplazaTexto(texto, "<!NOFORMATO!>", std::to_string(s.NoFormato));
  ReemplazaTexto(texto, "<!ACERVO!>", s.Eco(s.ACERVO));
  ReemplazaTexto(texto, "<!TXTLIB!>", s.Eco(s.TextoLIB));
  ReemplazaTexto(texto, "<!TXTTIT!>", s.Eco(s.TxtTit));
  ReemplazaTexto(texto, "<!TXTAUT!>", s.Eco(s.TxtAut));
  ReemplazaTexto(texto, "<!TXTTEM!>", s.Eco(s.TxtTem));
}

void EscribeEncabezado2(cgi::Solicitud& s, PaginaLector& lector) {
  // A record's own page takes "ENCABEZADO_FICHA:" when the configuration
  // has one: a result's summary and paging mean nothing there.
  std::string texto = s.FichaSola ? s.Seccion("ENCABEZADO_FICHA:") : std::string();
  if (texto.empty()) texto = s.Seccion("ENCABEZADO2:");
  if (texto.empty()) return;
  const search::Estado& e = s.busqueda;
  ReemplazaTexto(texto, "<!NOMBREBIB!>", s.NombreBib);
  ReemplazaTexto(texto, "<!txtEXPR!>", s.Eco(s.Expresion));
  ReemplazaTexto(texto, "<!txtEXPR1!>", s.Eco(TextoEXPR(s, 1)));
  ReemplazaTexto(texto, "<!txtEXPR2!>", s.Eco(TextoEXPR(s, 2)));
  ReemplazaTexto(texto, "<!txtEXPR3!>", s.Eco(TextoEXPR(s, 3)));
  ReemplazaTexto(texto, "<!opCAMPO1!>", std::to_string(e.opCAMPO1));
  ReemplazaTexto(texto, "<!opCAMPO2!>", std::to_string(e.opCAMPO2));
  ReemplazaTexto(texto, "<!opCAMPO3!>", std::to_string(e.opCAMPO3));
  ReemplazaTexto(texto, "<!opBOOLEAN1!>", std::to_string(e.opBOOLEAN1));
  ReemplazaTexto(texto, "<!opBOOLEAN2!>", std::to_string(e.opBOOLEAN2));
  ReemplazaTexto(texto, "<!BUSQ_AVANZADA!>", std::to_string(s.cfg.BUSQ_AVANZADA));
  ReemplazaTexto(texto, "<!ArchivoCFG!>", s.Eco(cgi::ValorCGI(s.cgi, "ArchivoCFG")));
  ReemplazaTexto(texto, "<!mostrarFICHABIB!>", std::to_string(s.MostrarFichaBIB));
  ReemplazaTexto(texto, "<!BaseDTA!>", std::to_string(s.cfg.BaseDTA));
  LlenaComunes(s, texto);
  lector.Llena(texto);
  EnviaLinea(s.sys.salida, texto);
}

void EscribeFinal(cgi::Solicitud& s, PaginaLector& lector) {
  std::string texto = s.Seccion("FINAL:");
  ReemplazaTexto(texto, "<!NOMBREBIB!>", NombreInstalacion(s));
  ReemplazaTexto(texto, "<!txtEXPR!>", s.Eco(s.Expresion));
  LlenaComunes(s, texto);
  ReemplazaTexto(texto, "<!TXTISBN!>", s.Eco(s.TxtIsbn));
  ReemplazaTexto(texto, "<!TXTEDIT!>", s.Eco(s.TxtEdit));
  ReemplazaTexto(texto, "<!TXTSER!>", s.Eco(s.TxtSer));
  ReemplazaTexto(texto, "<!TXTCLAS!>", s.Eco(s.TxtClas));
  lector.Llena(texto);
  EnviaLinea(s.sys.salida, texto);
}

void EscribeNoEncontrado(cgi::Solicitud& s, PaginaLector& lector) {
  std::string texto = s.Seccion("NOENCONTRADO:");
  ReemplazaTexto(texto, "<!TXTLIB!>", s.Eco(s.TextoLIB));
  ReemplazaTexto(texto, "<!TXTTIT!>", s.Eco(s.TxtTit));
  ReemplazaTexto(texto, "<!TXTAUT!>", s.Eco(s.TxtAut));
  ReemplazaTexto(texto, "<!TXTTEM!>", s.Eco(s.TxtTem));
  ReemplazaTexto(texto, "<!ACERVO!>", s.Eco(s.ACERVO));
  s.NombreBib = NombreInstalacion(s);
  ReemplazaTexto(texto, "<!NOMBREBIB!>", s.NombreBib);
  ReemplazaTexto(texto, "<!txtEXPR!>", s.Eco(s.Expresion));
  lector.Llena(texto);
  EnviaLinea(s.sys.salida, texto);
}

// The advanced form's choice of database set. False when the request has
// been answered (the multi-collection page) or refused.
bool EligeBase(cgi::Solicitud& s, std::int32_t no_ficha) {
  Output& salida = s.sys.salida;
  std::string nombre = s.NombreBib;
  std::string ruta = s.cfg.RutaBase;
  if (s.cfg.BaseDTA == 99) {
    std::uint8_t n = s.cfg.BaseDTA;
    if (config::BuscaBase(s.cfg, nombre, ruta, n) == 99) {
      s.cfg.BaseDTA = n;
      ResultadosMultiplesAcervos(s, n);
      return false;
    }
    s.cfg.RutaBase = ruta;
    config::MensajeH4(salida, Latin1("<P>Se ha solicitado hacer una busqueda en multiples "
                                     "acervos, sin embargo <br><br>Verifique la sintaxis de su "
                                     "archivo de configuración y revise la existencia de los "
                                     "archivos. <br>La ruta obtenida es: ") +
                                  s.cfg.RutaBase + "<center>");
    return false;
  }
  std::uint8_t numero = s.cfg.BaseDTA;
  if (config::BuscaBase(s.cfg, nombre, ruta, numero) == 1) {
    s.cfg.RutaBase = ruta;
    s.NombreBib = nombre;
    EnviaLinea(salida, "<!-- Ruta: " + s.cfg.RutaBase + "<br/>Biblio: " + s.NombreBib +
                           "<br/>Indice: " + std::to_string(s.cfg.BaseDTA) + "<br/>NoFicha: " +
                           std::to_string(no_ficha) + "<br/>");
    EnviaLinea(salida, "BusQ_AVAn " + std::to_string(s.cfg.BUSQ_AVANZADA) + "<br/>txtExpr: " +
                           s.Eco(s.Expresion) + "<br/>txtLIB: " + s.Eco(s.TextoLIB) +
                           "<br/>MostrarFichaBIB: " + std::to_string(s.MostrarFichaBIB) + "<br/> -->");
  } else if (s.cfg.BaseDTA > 0) {
    s.cfg.RutaBase = ruta;
    config::MensajeH4(salida, kArchivosIncompletos + s.cfg.RutaBase + "<center>");
    return false;
  }
  s.Traza += "Busqueda avanzada: " + std::to_string(s.cfg.BaseDTA) + ", " + s.NombreBib + "<br/>";
  return true;
}

// Steps from locating the files to the statistics row.
void Busca(cgi::Solicitud& s, std::int32_t no_ficha) {
  Output& salida = s.sys.salida;
  const std::vector<std::string> faltantes = ArchivosFaltantes(s, s.cfg.RutaBase);
  if (!faltantes.empty()) {
    EnviaLinea(salida, "<h2>Error al abrir Bases de Datos de Consulta </h2>");
    ReportaArchivosFaltantes(s, s.cfg.RutaBase, faltantes);
    s.Traza += "Error de ruta de bases de datos...<br/>";
    config::MensajeH4(salida, s.Traza);
    return;
  }
  s.Traza += "Antes de apertura de BD<br/>";
  AbreBasesLibros(s);
  config::CargaConfiguracion(s.instalacion, *s.BDBiblio, s.ACERVO, s.cfg.RutaBase, s.sys);
  if (s.NombreBib.empty()) s.NombreBib = NombreInstalacion(s);
  s.Traza += "Abertura de BD y Lectura de datos generales<br/>";

  const auto sin_textos = [&s] {
    return s.TextoLIB.empty() && s.TxtTit.empty() && s.TxtAut.empty() && s.TxtTem.empty();
  };
  const auto busca_palabras = [&s] {
    search::BuscaPalabras(s.EntornoBusqueda(), {s.TextoLIB, s.TxtTit, s.TxtAut, s.TxtTem}, {0, 0, 0}, false);
  };
  std::int16_t cuenta = 0;
  if (no_ficha > 0) {
    s.FichaSola = true;
    s.Traza += "Recuperar ficha " + std::to_string(no_ficha) + "<br/>";
    if (sin_textos()) s.TextoLIB = s.TextoEXPR1;
    busca_palabras();
    cuenta = 1;
    s.Traza += "Datos ficha: " + std::to_string(no_ficha) + " recuperados<br/>";
  } else {
    BuscaLibros(s, s.EntornoBusqueda());
    cuenta = ToInt16(search::CuentaFichas(s.busqueda.MapaResultado));
  }
  // The facet values the reader chose narrow a search (never one record).
  PaginaLector lector(s);
  if (no_ficha <= 0 && lector.Restringe()) {
    cuenta = ToInt16(search::CuentaFichas(s.busqueda.MapaResultado));
  }
  EnviaLinea(salida, "<!--NoResultados: " + std::to_string(cuenta) + "<br/>-->");

  if (cuenta > 0) {
    s.pagina.Total = cuenta;
    s.pagina.FichaActual = 0;
    EscribeEncabezado2(s, lector);
    std::optional<std::vector<std::int32_t>> ordenada;
    if (no_ficha <= 0) ordenada = lector.PaginaOrdenada();
    if (ordenada) {
      MuestraLibrosEnOrden(s, *ordenada);
    } else {
      MuestraLibros(s, no_ficha > 0 ? no_ficha : 0);
    }
  } else {
    EscribeNoEncontrado(s, lector);
  }
  EscribeFinal(s, lector);
  RegistraConsulta(s, s.cfg.RutaBase, cuenta, {s.TextoLIB, s.TxtTit, s.TxtAut, s.TxtTem});
}

}  // namespace

void BuscaLibros(cgi::Solicitud& s, const search::Entorno& entorno) {
  if (s.cfg.BUSQ_AVANZADA == 1) {
    s.Traza += "Iniciar busqueda avanzada <br/>";
    search::LeeCamposAvanzados(s.busqueda, cgi::Campos(s.cgi));
    s.Expresion = search::ArmaBusquedaAvanzada(entorno);
    s.Traza += "Busqueda avanzada realizada: " + s.Eco(s.Expresion) + "<br/>";
    return;
  }
  s.Traza += "Iniciar busqueda normal <br/>";
  if (s.TextoLIB.empty() && s.TxtTit.empty() && s.TxtAut.empty() && s.TxtTem.empty()) {
    s.TextoLIB = s.TextoEXPR1;
  }
  search::BuscaPalabras(entorno, {s.TextoLIB, s.TxtTit, s.TxtAut, s.TxtTem}, {0, 0, 0}, false);
  s.Traza += "Busqueda normal realizada <br/>";
}

std::int32_t LeeCamposLibros(cgi::Solicitud& s) {
  std::int32_t no_ficha = 0;
  LeeNumero<std::int32_t, ToInt32>(s, "txtNoFicha", no_ficha);
  s.TextoLIB = Plegado(s, "txtLIB");
  LeeNumero<std::uint8_t, ToByte>(s, "mostrarFICHABIB", s.MostrarFichaBIB);
  LeeNumero<std::uint8_t, ToByte>(s, "mostrarFICHABDL", s.MostrarFichaBDL);
  s.TxtTit = Plegado(s, "txtTIT");
  s.TxtAut = Plegado(s, "txtAUT");
  s.TxtTem = Plegado(s, "txtTEM");
  LeeNumero<std::uint8_t, ToByte>(s, "FormatoFicha", s.NoFormato);
  LeeNumero<std::int32_t, ToInt32>(s, "Cantidad", s.pagina.Cantidad);
  LeeNumero<std::int32_t, ToInt32>(s, "FichaINI", s.pagina.Desde);
  LeeNumero<std::uint8_t, ToByte>(s, "BUSQ_AVANZADA", s.cfg.BUSQ_AVANZADA);
  LeeNumero<std::uint8_t, ToByte>(s, "BaseDTA", s.cfg.BaseDTA);
  return no_ficha;
}

void ConsultaLibros(cgi::Solicitud& s) {
  const std::int32_t no_ficha = LeeCamposLibros(s);

  if (s.Expresion.empty()) s.Expresion = s.TextoLIB;
  if (s.Expresion.empty()) s.Expresion = s.TextoEXPR1;
  s.Traza += "Entrada a ConsultaLibros,leidas variables, txtEXP:" + s.Eco(s.Expresion) + ",Ficha:" +
             std::to_string(s.pagina.Desde) + "<br/>";
  cgi::CreaLog(s);
  EnviaLinea(s.sys.salida, s.Seccion("ENCABEZADO:"));

  s.cfg.RutaBase = TrimBlanks(s.Seccion("BASE:"));
  s.NombreBib = NombreInstalacion(s);
  s.Traza += "Leido CFG, RutaBase:" + s.cfg.RutaBase + "-<br/>";
  if (s.cfg.RutaBase.empty()) {
    cgi::PaginaError(s, "La ruta obtenida para la BD es invalida, ruta:" + s.cfg.RutaBase +
                                "<br>");
  }
  if (s.cfg.BUSQ_AVANZADA == 1 && !EligeBase(s, no_ficha)) return;

  try {
    Busca(s, no_ficha);
  } catch (const RuntimeError& error) {
    Output& salida = s.sys.salida;
    EnviaLinea(salida, Latin1("<h4>Se presentó un error inesperado al procesar la Consulta de "
                              "Libros</h4>"));
    EnviaLinea(salida,
               "Error " + std::to_string(error.number()) + ": " +
                   cgi::EcoEnTexto(s, error.description()) + "<br/>");
    EnviaLinea(salida, "ArchivoCFG: " + s.Eco(s.cfg.ArchivoCFG) + "<br/>Ruta base: " + s.cfg.RutaBase +
                           "<br/>Biblio: " + s.NombreBib + "<br/>Indice: " +
                           std::to_string(s.cfg.BaseDTA) + "<br/>NoFicha: " + std::to_string(no_ficha));
    EnviaLinea(salida, "Log registrado:<br/>" + s.Traza);
  }
}

}  // namespace orvex::queries
