#include "queries/ExportaLibros.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "base/CodePage.h"
#include "base/Html.h"
#include "base/Runtime.h"
#include "cgi/EntradaCGI.h"
#include "config/ArchivoCFG.h"
#include "exportacion/Exporta.h"
#include "queries/AbreBases.h"
#include "queries/ConsultaLibros.h"
#include "queries/Lector.h"
#include "records/CargaFicha.h"
#include "search/Indice.h"

namespace orvex::queries {
namespace {

constexpr std::string_view kCampoExportar = "Exportar";

// The short page of an export that cannot be given.
void Rechaza(cgi::Solicitud& s, std::string_view estado, const std::string& mensaje) {
  s.sys.salida.Write("Status: " + std::string(estado) +
                     "\r\nContent-Type: text/html; charset=windows-1252\r\n\r\n"
                     "<!DOCTYPE html>\r\n<html lang=\"es\"><head><title>" +
                     Latin1("Exportación") + "</title></head><body><p>" + mensaje +
                     "</p></body></html>\r\n");
}

// The records the request's page would show, in its order: the one record,
// or the page of the search's result.
std::vector<std::int32_t> FichasDeLaPagina(cgi::Solicitud& s, std::int32_t no_ficha,
                                           PaginaLector& lector) {
  if (no_ficha > 0) return {no_ficha};
  // The search reports syntax errors into the page it would write: here
  // there is none.
  Descarte descarte;
  BuscaLibros(s, {s.busqueda, s.BDIndice.get(), descarte});
  lector.Restringe();
  search::Paginacion& p = s.pagina;
  p.Total = search::CuentaFichas(s.busqueda.MapaResultado);
  if (p.Cantidad <= 0 || p.Cantidad > kMaximoExportacion) p.Cantidad = kMaximoExportacion;
  if (const auto ordenada = lector.PaginaOrdenada()) return *ordenada;
  return search::PaginaOrdenada(nullptr, s.busqueda.MapaResultado, search::Orden{},
                                std::max(p.Desde, 1), p.Cantidad);
}

}  // namespace

bool PideExportacion(const cgi::Solicitud& s) {
  if (cgi::ValorCGI(s.cgi, kCampoExportar).empty()) return false;
  const std::string acervo = UpperLatin1(cgi::ValorCGI(s.cgi, "ACERVO"));
  return acervo.empty() || acervo == "LIBROS";
}

void ExportaLibros(cgi::Solicitud& s) {
  const std::optional<exportacion::Formato> formato =
      exportacion::FormatoDeNombre(cgi::ValorCGI(s.cgi, kCampoExportar));
  if (!formato) {
    Rechaza(s, "400 Bad Request",
            Latin1("El formato de exportación no existe: pida ris, bibtex, marcxml o marc."));
    return;
  }
  const std::int32_t no_ficha = LeeCamposLibros(s);
  s.cfg.RutaBase = TrimBlanks(s.Seccion("BASE:"));
  if (s.cfg.BUSQ_AVANZADA == 1 && s.cfg.BaseDTA != 0) {
    std::string nombre = s.NombreBib;
    std::string ruta = s.cfg.RutaBase;
    std::uint8_t numero = s.cfg.BaseDTA;
    if (s.cfg.BaseDTA == 99 || config::BuscaBase(s.cfg, nombre, ruta, numero) != 1) {
      Rechaza(s, "404 Not Found",
              Latin1("Sólo se exportan las fichas de una colección a la vez."));
      return;
    }
    s.cfg.RutaBase = ruta;
  }
  if (s.cfg.RutaBase.empty() || !ArchivosFaltantes(s, s.cfg.RutaBase).empty()) {
    Rechaza(s, "500 Internal Server Error",
            Latin1("No se encontró el catálogo de esta página; avise a la biblioteca."));
    return;
  }
  AbreBasesLibrosSinAviso(s);

  PaginaLector lector(s);
  const std::vector<std::int32_t> numeros = FichasDeLaPagina(s, no_ficha, lector);
  std::vector<records::RegFicha> fichas;
  for (const std::int32_t numero : numeros) {
    records::RegFicha ficha;
    records::CargaFicha(*s.BDBiblio, numero, ficha);
    if (ficha.Ficha_no > 0) fichas.push_back(std::move(ficha));
  }
  if (fichas.empty()) {
    Rechaza(s, "404 Not Found", Latin1("No hay fichas que exportar en esta página."));
    return;
  }
  const exportacion::Exportacion resultado = exportacion::Exporta(*formato, fichas, *s.BDBiblio);
  if (!resultado.correcta) {
    Rechaza(s, "500 Internal Server Error", EscapaTexto(resultado.error));
    return;
  }
  const std::string nombre = no_ficha > 0 ? "orvex-ficha-" + std::to_string(no_ficha)
                                          : std::string("orvex-resultados");
  const bool texto = *formato != exportacion::Formato::Marc21;
  s.sys.salida.Write("Content-Type: " + resultado.tipoContenido +
                     (texto ? "; charset=utf-8" : "") +
                     "\r\nContent-Disposition: attachment; filename=\"" + nombre + "." +
                     resultado.extension + "\"\r\n\r\n");
  s.sys.salida.Write(resultado.contenido);
}

}  // namespace orvex::queries
