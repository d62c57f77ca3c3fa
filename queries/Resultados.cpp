#include "queries/Resultados.h"

#include <array>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Runtime.h"
#include "config/ArchivoCFG.h"
#include "config/Plantillas.h"
#include "cgi/Bitacora.h"
#include "queries/AbreBases.h"
#include "records/CargaFicha.h"
#include "presentation/MuestraFicha.h"
#include "records/Plantilla.h"
#include "queries/Estadisticas.h"
#include "search/Expresion.h"
#include "search/Indice.h"

namespace orvex::queries {
namespace {

using config::ReemplazaTexto;

void MuestraNumero(cgi::Solicitud& s, std::int32_t numero, std::int32_t posicion) {
  records::RegFicha ficha;
  records::CargaFicha(*s.BDBiblio, numero, ficha);
  presentation::MuestraFicha(s, ficha, posicion);
}

}  // namespace

void MuestraLibros(cgi::Solicitud& s, std::int32_t no_ficha) {
  if (no_ficha > 0) {
    MuestraNumero(s, no_ficha, 1);
    return;
  }
  s.pagina.Recorre(
      s.busqueda.MapaResultado,
      [&](std::int32_t ficha, std::int32_t posicion) { MuestraNumero(s, ficha, posicion); }, [] {});
}

void MuestraLibrosEnOrden(cgi::Solicitud& s, const std::vector<std::int32_t>& fichas) {
  std::uint8_t mostradas = 0;
  std::int64_t posicion = s.pagina.Desde;
  for (const std::int32_t ficha : fichas) {
    s.pagina.FichaActual = ficha;
    MuestraNumero(s, ficha, static_cast<std::int32_t>(posicion++));
    mostradas = ToByte(mostradas + 1.0);
  }
}

void RenglonCatalogo(cgi::Solicitud& s, db::Recordset& fila) {
  std::string renglon = records::LlenaColumnas(s.Seccion("FORMATO:"), fila);
  s.pagina.Llena(renglon);
  ReemplazaTexto(renglon, "<!BUSCADO!>", s.Eco(s.TextoLIB));
  EnviaLinea(s.sys.salida, renglon);
}

void MuestraCatalogo(cgi::Solicitud& s, db::Recordset& filas) {
  for (std::int32_t i = 1; i < s.pagina.Desde && !filas.Eof(); ++i) filas.MoveNext();
  if (filas.Eof()) return;
  std::uint8_t mostradas = 0;
  for (std::int64_t i = 1; i <= s.pagina.Total; ++i) {
    RenglonCatalogo(s, filas);
    mostradas = ToByte(mostradas + 1.0);
    filas.MoveNext();
    if (filas.Eof() || mostradas == s.pagina.Cantidad) break;
    EnviaLinea(s.sys.salida, s.Seccion("SEPARADOR:"));
  }
}

bool VerificaArchivosBase(cgi::Solicitud& s, std::string_view directorio) {
  std::vector<std::string> faltantes;
  for (std::string_view archivo : {kBiblio, kIndiceLibros}) {
    const std::string ruta = RutaArchivo(directorio, archivo);
    if (!FindFile(s.sys.archivos, ruta)) faltantes.push_back(ruta);
  }
  if (faltantes.empty()) return true;
  ReportaArchivosFaltantes(s, directorio, faltantes);
  return false;
}

void ResultadosMultiplesAcervos(cgi::Solicitud& s, std::int32_t n) {
  Output& salida = s.sys.salida;
  search::Estado& e = s.busqueda;
  std::int32_t sin_resultado = 0;
  bool encabezado = false;
  for (std::int32_t k = 0; k < n; ++k) {
    const config::BaseDeDatos& coleccion = s.cfg.TablaBases.at(static_cast<size_t>(k));
    std::string renglon = s.Seccion("FORMATO:");
    std::int32_t encontrados = 0;
    if (VerificaArchivosBase(s, coleccion.despues)) {
      s.cfg.RutaBase = coleccion.despues;
      AbreBasesLibros(s);
      search::LeeCamposAvanzados(e, cgi::Campos(s.cgi));
      s.Expresion = search::ArmaBusquedaAvanzada(s.EntornoBusqueda());
      if (!encabezado) {
        encabezado = true;
        std::string cabeza = s.Seccion("ENCABEZADO2:");
        ReemplazaTexto(cabeza, "<!TXTLIB!>", s.Eco(s.TextoLIB));
        ReemplazaTexto(cabeza, "<!txtEXPR1!>", s.Eco(s.TextoEXPR1));
        if (s.Expresion.empty()) s.Expresion = s.TextoEXPR1;
        ReemplazaTexto(cabeza, "<!txtEXPR!>", s.Eco(s.Expresion));
        ReemplazaTexto(cabeza, "<!TXTTIT!>", s.Eco(s.TxtTit));
        ReemplazaTexto(cabeza, "<!TXTAUT!>", s.Eco(s.TxtAut));
        ReemplazaTexto(cabeza, "<!TXTTEM!>", s.Eco(s.TxtTem));
        ReemplazaTexto(cabeza, "<!NOMBREBIB!>", coleccion.antes);
        EnviaLinea(salida, cabeza);
        cgi::Cede(s);
      }
      encontrados = search::CuentaFichas(e.MapaResultado);
      s.pagina.FichaActual = s.pagina.Desde - 1;
      ReemplazaTexto(renglon, "<!txtEXPR!>", s.Eco(s.Expresion));
      ReemplazaTexto(renglon, "<!TOTAL!>", std::to_string(encontrados));
      ReemplazaTexto(renglon, "<!CANTIDAD!>", std::to_string(s.pagina.Cantidad));
      ReemplazaTexto(renglon, "<!DESDE!>", std::to_string(s.pagina.Desde));
      ReemplazaTexto(renglon, "<!HASTA!>",
                     std::to_string(static_cast<std::int64_t>(s.pagina.Desde) + s.pagina.Cantidad));
      ReemplazaTexto(renglon, "<!txtEXPR1!>", s.Eco(e.txtEXPR1));
      ReemplazaTexto(renglon, "<!txtEXPR2!>", s.Eco(e.txtEXPR2));
      ReemplazaTexto(renglon, "<!txtEXPR3!>", s.Eco(e.txtEXPR3));
      ReemplazaTexto(renglon, "<!opCAMPO1!>", std::to_string(e.opCAMPO1));
      ReemplazaTexto(renglon, "<!opCAMPO2!>", std::to_string(e.opCAMPO2));
      ReemplazaTexto(renglon, "<!opCAMPO3!>", std::to_string(e.opCAMPO3));
      ReemplazaTexto(renglon, "<!opBOOLEAN1!>", std::to_string(e.opBOOLEAN1));
      ReemplazaTexto(renglon, "<!opBOOLEAN2!>", std::to_string(e.opBOOLEAN2));
    } else {
      ReemplazaTexto(renglon, "<!TOTAL!>", "-1");
      ReemplazaTexto(renglon, "<!CANTIDAD!>", "0");
      ReemplazaTexto(renglon, "<!DESDE!>", "0");
      ReemplazaTexto(renglon, "<!HASTA!>", "0");
    }
    ReemplazaTexto(renglon, "<!NOMBREBIB!>", coleccion.antes);
    ReemplazaTexto(renglon, "<!BaseDTA!>", std::to_string(coleccion.numero));
    if (encontrados > 0) {
      EnviaLinea(salida, renglon);
      cgi::Cede(s);
    } else {
      ++sin_resultado;
    }
    RegistraConsulta(s, s.cfg.RutaBase, encontrados, {});
    // A collection's databases are open only while it is searched.
    s.BDBiblio.reset();
    s.BDIndice.reset();
  }
  if (sin_resultado == n) {
    EnviaLinea(salida, Latin1("<center><h5>No hubo ningún resultado...</h5></center>"));
  } else {
    EnviaLinea(salida, Latin1("<!--<center><h4>No hubo ningún resultado...") +
                           std::to_string(sin_resultado) + "," + std::to_string(n - 1) + "</h4></center> -->");
  }
  EnviaLinea(salida, s.Seccion("FINAL:"));
}

}  // namespace orvex::queries
