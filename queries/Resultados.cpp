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

std::int32_t Acota(std::int64_t valor) {
  return static_cast<std::int32_t>(ToInt32(static_cast<double>(valor)));
}

void MuestraNumero(cgi::Solicitud& s, std::int32_t numero, std::int32_t posicion) {
  records::RegFicha ficha;
  records::CargaFicha(*s.BDBiblio, numero, ficha);
  presentation::MuestraFicha(s, ficha, posicion);
}

}  // namespace

std::int32_t HastaPagina(std::int32_t desde, std::int32_t cantidad, std::int32_t total) {
  const std::int64_t hasta = static_cast<std::int64_t>(desde) + cantidad - 1;
  return hasta < total ? Acota(hasta) : total;
}

std::int32_t DesdeAnterior(std::int32_t desde, std::int32_t cantidad) {
  const std::int64_t anterior = static_cast<std::int64_t>(desde) - cantidad;
  return anterior > 1 ? Acota(anterior) : 1;
}

std::int32_t DesdeSiguiente(std::int32_t desde, std::int32_t cantidad, std::int32_t total) {
  const std::int64_t siguiente = static_cast<std::int64_t>(desde) + cantidad;
  return siguiente < total ? Acota(siguiente) : total;
}

void MuestraLibros(cgi::Solicitud& s, std::int32_t no_ficha) {
  if (no_ficha > 0) {
    MuestraNumero(s, no_ficha, 1);
    return;
  }
  const search::MapaFichas& mapa = s.busqueda.MapaResultado;
  for (std::int32_t i = 1; i < s.Desde; ++i) {
    s.FichaActual = search::SiguienteFicha(mapa, s.FichaActual);
  }
  std::uint8_t mostradas = 0;
  for (std::int64_t i = s.Desde; i <= s.Total; ++i) {
    s.FichaActual = search::SiguienteFicha(mapa, s.FichaActual);
    MuestraNumero(s, s.FichaActual, static_cast<std::int32_t>(i));
    mostradas = ToByte(mostradas + 1.0);
    if (mostradas == s.Cantidad) break;
  }
}

void LlenaPaginacion(cgi::Solicitud& s, std::string& texto) {
  ReemplazaTexto(texto, "<!TOTAL!>", std::to_string(s.Total));
  ReemplazaTexto(texto, "<!CANTIDAD!>", std::to_string(s.Cantidad));
  ReemplazaTexto(texto, "<!DESDE!>", std::to_string(s.Desde));
  s.Hasta = HastaPagina(s.Desde, s.Cantidad, s.Total);
  ReemplazaTexto(texto, "<!HASTA!>", std::to_string(s.Hasta));
  ReemplazaTexto(texto, "<!DESDEANTERIOR!>", std::to_string(DesdeAnterior(s.Desde, s.Cantidad)));
  ReemplazaTexto(texto, "<!DESDESIGUIENTE!>",
                 std::to_string(DesdeSiguiente(s.Desde, s.Cantidad, s.Total)));
}

void RenglonCatalogo(cgi::Solicitud& s, db::Recordset& fila) {
  std::string renglon = records::LlenaColumnas(s.Seccion("FORMATO:"), fila);
  LlenaPaginacion(s, renglon);
  ReemplazaTexto(renglon, "<!BUSCADO!>", s.Eco(s.TextoLIB));
  EnviaLinea(s.sys.salida, renglon);
}

void MuestraCatalogo(cgi::Solicitud& s, db::Recordset& filas) {
  for (std::int32_t i = 1; i < s.Desde && !filas.Eof(); ++i) filas.MoveNext();
  if (filas.Eof()) return;
  std::uint8_t mostradas = 0;
  for (std::int64_t i = 1; i <= s.Total; ++i) {
    RenglonCatalogo(s, filas);
    mostradas = ToByte(mostradas + 1.0);
    filas.MoveNext();
    if (filas.Eof() || mostradas == s.Cantidad) break;
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
      s.FichaActual = s.Desde - 1;
      ReemplazaTexto(renglon, "<!txtEXPR!>", s.Eco(s.Expresion));
      ReemplazaTexto(renglon, "<!TOTAL!>", std::to_string(encontrados));
      ReemplazaTexto(renglon, "<!CANTIDAD!>", std::to_string(s.Cantidad));
      ReemplazaTexto(renglon, "<!DESDE!>", std::to_string(s.Desde));
      ReemplazaTexto(renglon, "<!HASTA!>",
                     std::to_string(static_cast<std::int64_t>(s.Desde) + s.Cantidad));
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
