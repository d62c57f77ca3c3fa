#include "queries/Lector.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "base/CodePage.h"
#include "base/Html.h"
#include "base/Runtime.h"
#include "cgi/EntradaCGI.h"
#include "cgi/Enlaces.h"
#include "config/Plantillas.h"
#include "queries/AbreBases.h"
#include "search/Expresion.h"
#include "search/Indice.h"
#include "search/Normalizacion.h"
#include "search/Sugerencias.h"

namespace orvex::queries {
namespace {

using config::ReemplazaTexto;

// A request names at most this many facet values; more are not read, so
// that a request cannot make the page narrow its result without end.
constexpr std::size_t kMaximoElecciones = 16;
// Values shown per facet, and corrections per word.
constexpr int kValoresPorFaceta = 10;
constexpr int kSugerenciasPorPalabra = 3;

constexpr std::string_view kCampoOrden = "Orden";
constexpr std::string_view kCampoSentido = "Sentido";
constexpr std::string_view kCampoFaceta = "Faceta";
constexpr std::string_view kCampoDesde = "FichaINI";

// A link that changes what the result holds or its order starts again at
// its first page.
std::pair<std::string, std::string> PrimeraPagina() { return {std::string(kCampoDesde), "1"}; }

std::string Titulo(search::Faceta faceta) {
  switch (faceta) {
    case search::Faceta::kAnio: return Latin1("Año");
    case search::Faceta::kIdioma: return "Idioma";
    case search::Faceta::kTipo: return "Tipo de material";
    case search::Faceta::kAutor: return "Autor";
    case search::Faceta::kTema: return "Tema";
  }
  return {};
}

// The lower case of a folded Windows-1252 word, for showing it.
std::string Minusculas(std::string_view palabra) {
  std::string texto(palabra);
  for (char& c : texto) {
    const auto b = static_cast<unsigned char>(c);
    if ((b >= 'A' && b <= 'Z') || (b >= 0xC0 && b <= 0xDE && b != 0xD7)) c = static_cast<char>(b + 0x20);
  }
  return texto;
}

// `texto` with every word equal to `palabra` (upper-cased and folded alike)
// replaced by `reemplazo`.
std::string ReemplazaPalabra(std::string_view texto, std::string_view palabra,
                             std::string_view reemplazo) {
  const std::string buscada = UpperLatin1(palabra);
  const auto de_palabra = [](char c) {
    return c != '$' && search::CaracteresPalabra.find(UpperLatin1(c)) != std::string::npos;
  };
  std::string resultado;
  std::size_t i = 0;
  while (i < texto.size()) {
    if (!de_palabra(texto[i])) {
      resultado += texto[i++];
      continue;
    }
    std::size_t fin = i;
    while (fin < texto.size() && de_palabra(texto[fin])) ++fin;
    std::string token(texto.substr(i, fin - i));
    std::string plegado = token;
    search::QuitaAcentos(plegado);
    resultado += UpperLatin1(plegado) == buscada ? std::string(reemplazo) : token;
    i = fin;
  }
  return resultado;
}

struct OpcionOrden {
  search::Orden orden;
  const char* texto;  // UTF-8 of the source, Latin-1 only
};
const std::array<OpcionOrden, 7> kOpcionesOrden = {{
    {{search::ClaveOrden::kFicha, false}, "Número de ficha"},
    {{search::ClaveOrden::kTitulo, false}, "Título (A-Z)"},
    {{search::ClaveOrden::kTitulo, true}, "Título (Z-A)"},
    {{search::ClaveOrden::kAutor, false}, "Autor (A-Z)"},
    {{search::ClaveOrden::kAutor, true}, "Autor (Z-A)"},
    {{search::ClaveOrden::kAnio, true}, "Año (más reciente primero)"},
    {{search::ClaveOrden::kAnio, false}, "Año (más antiguo primero)"},
}};

}  // namespace

PaginaLector::PaginaLector(cgi::Solicitud& s) : s_(s) {
  orden_ = search::LeeOrden(cgi::ValorCGI(s.cgi, kCampoOrden), cgi::ValorCGI(s.cgi, kCampoSentido))
               .value_or(search::Orden{});
  for (std::size_t i = 0; i < s.cgi.pares.NumeroCampos(); ++i) {
    if (elecciones_.size() == kMaximoElecciones) break;
    const cgi::ParCGI par = s.cgi.pares.Campo(i);
    if (!EqualsIgnoringCase(par.nombre, kCampoFaceta)) continue;
    const std::size_t dos_puntos = par.valor.find(':');
    if (dos_puntos == std::string_view::npos) continue;
    const std::optional<search::Faceta> faceta =
        search::FacetaDeNombre(TrimBlanks(par.valor.substr(0, dos_puntos)));
    const std::string clave = TrimBlanks(par.valor.substr(dos_puntos + 1));
    if (faceta && !clave.empty()) elecciones_.push_back({*faceta, clave});
  }
}

PaginaLector::~PaginaLector() = default;

search::DatosLector* PaginaLector::Datos() {
  if (!buscado_) {
    buscado_ = true;
    if (s_.BDBiblio) {
      fuente_ = search::BuscaDatosLector(*s_.BDBiblio, RutaArchivo(s_.cfg.RutaBase, kBiblio), s_.bases);
    }
  }
  return fuente_.datos.get();
}

bool PaginaLector::Restringe() {
  if (elecciones_.empty()) return false;
  search::DatosLector* datos = Datos();
  // A catalogue without the data cannot narrow: the result stays whole and
  // <!FILTROS!> says so.
  honradas_ = datos != nullptr && search::Restringe(*datos, elecciones_, s_.busqueda.MapaResultado);
  return true;
}

std::optional<std::vector<std::int32_t>> PaginaLector::PaginaOrdenada() {
  if (orden_ == search::Orden{}) return std::nullopt;
  const search::Orden posible = search::OrdenPosible(Datos(), orden_);
  if (posible == search::Orden{}) return std::nullopt;
  const search::Paginacion& p = s_.pagina;
  // The positions the page shows, as the record-number walk shows them:
  // from Desde to Total, at most Cantidad of them (all, with Cantidad 0).
  std::int64_t n = static_cast<std::int64_t>(p.Total) - p.Desde + 1;
  if (p.Cantidad > 0) n = std::min<std::int64_t>(n, p.Cantidad);
  if (n <= 0) return std::vector<std::int32_t>{};
  return search::PaginaOrdenada(Datos(), s_.busqueda.MapaResultado, posible, std::max(p.Desde, 1),
                                static_cast<std::int32_t>(n));
}

std::string PaginaLector::EnlacePagina(std::int32_t desde) const {
  return cgi::Enlace(s_, cgi::CamposCambiados(s_, {kCampoDesde}, {{std::string(kCampoDesde),
                                                                     std::to_string(desde)}}));
}

std::string PaginaLector::Facetas() {
  search::DatosLector* datos = Datos();
  if (datos == nullptr || !datos->Disponible()) return {};
  const auto conteos = search::CuentaFacetas(*datos, s_.busqueda.MapaResultado, kValoresPorFaceta);
  std::string html;
  for (const search::ConteoFaceta& conteo : conteos) {
    std::string lista;
    for (const search::ValorFaceta& valor : conteo.valores) {
      const bool elegido = std::any_of(elecciones_.begin(), elecciones_.end(), [&](const auto& e) {
        return e.faceta == conteo.faceta && e.clave == valor.clave;
      });
      if (elegido || valor.cuenta <= 0) continue;
      const std::string enlace = cgi::Enlace(
          s_, cgi::CamposCambiados(s_, {kCampoDesde},
                                   {{std::string(kCampoFaceta),
                                     std::string(search::NombreFaceta(conteo.faceta)) + ":" +
                                         valor.clave},
                                    PrimeraPagina()}));
      lista += "<li><a href=\"" + enlace + "\">" + EscapaEco(valor.texto) +
               "</a> <span class=\"cuenta\">" + std::to_string(valor.cuenta) + "</span></li>\n";
    }
    if (lista.empty()) continue;
    html += "<section class=\"faceta\"><h2>" + Titulo(conteo.faceta) + "</h2>\n<ul>\n" + lista +
            "</ul></section>\n";
  }
  if (html.empty()) return {};
  return "<nav class=\"facetas\" aria-label=\"Filtrar los resultados\">\n" + html + "</nav>";
}

std::string PaginaLector::Filtros() {
  if (elecciones_.empty()) return {};
  search::DatosLector* datos = Datos();
  std::string html = "<ul class=\"filtros\" aria-label=\"Filtros elegidos\">\n";
  for (std::size_t i = 0; i < elecciones_.size(); ++i) {
    const search::Eleccion& e = elecciones_[i];
    std::string texto = e.clave;
    if (datos != nullptr) {
      if (const auto id = datos->IdDeClave(e.faceta, e.clave)) {
        if (const auto valor = datos->ValorDeId(e.faceta, *id)) texto = valor->texto;
      }
    }
    // The link without this choice: every other one stays.
    cgi::CamposEnlace otras;
    for (std::size_t j = 0; j < elecciones_.size(); ++j) {
      if (j == i) continue;
      otras.emplace_back(std::string(kCampoFaceta),
                         std::string(search::NombreFaceta(elecciones_[j].faceta)) + ":" +
                             elecciones_[j].clave);
    }
    otras.push_back(PrimeraPagina());
    const std::string etiqueta = Titulo(e.faceta) + ": " + EscapaEco(texto);
    html += "<li>" + etiqueta + " <a href=\"" +
            cgi::Enlace(s_, cgi::CamposCambiados(s_, {kCampoDesde, kCampoFaceta}, otras)) +
            "\" aria-label=\"Quitar el filtro " + etiqueta + "\">Quitar</a></li>\n";
  }
  html += "</ul>";
  if (!honradas_) {
    html += Latin1("\n<p class=\"filtros-aviso\">Este catálogo no tiene los datos para filtrar "
                   "así; se muestran todos los resultados.</p>");
  }
  return html;
}

std::string PaginaLector::Ordenes() {
  search::DatosLector* datos = Datos();
  std::string lista;
  int posibles = 0;
  const search::Orden efectivo = search::OrdenPosible(datos, orden_);
  for (const OpcionOrden& opcion : kOpcionesOrden) {
    if (!(search::OrdenPosible(datos, opcion.orden) == opcion.orden)) continue;
    ++posibles;
    const std::string enlace = cgi::Enlace(
        s_, cgi::CamposCambiados(
                s_, {kCampoDesde, kCampoOrden, kCampoSentido},
                {{std::string(kCampoOrden), std::string(search::NombreClaveOrden(opcion.orden.clave))},
                 {std::string(kCampoSentido), opcion.orden.descendente ? "desc" : "asc"},
                 PrimeraPagina()}));
    lista += "<li><a href=\"" + enlace + "\"" +
             (efectivo == opcion.orden ? " aria-current=\"true\"" : "") + ">" +
             Latin1(opcion.texto) + "</a></li>\n";
  }
  // Record number alone is no choice to offer.
  if (posibles < 2) return {};
  return "<ul class=\"orden\" aria-label=\"Ordenar por\">\n" + lista + "</ul>";
}

std::string PaginaLector::Paginas() {
  const search::Paginacion& p = s_.pagina;
  if (p.Cantidad <= 0 || p.Total <= p.Cantidad) return {};
  const std::int64_t paginas = (static_cast<std::int64_t>(p.Total) + p.Cantidad - 1) / p.Cantidad;
  const std::int64_t actual =
      std::clamp<std::int64_t>((static_cast<std::int64_t>(std::max(p.Desde, 1)) - 1) / p.Cantidad + 1,
                               1, paginas);
  const auto desde = [&](std::int64_t pagina) {
    return static_cast<std::int32_t>((pagina - 1) * p.Cantidad + 1);
  };
  std::string html = Latin1("<nav class=\"paginas\" aria-label=\"Páginas de resultados\"><ul>\n");
  if (actual > 1) {
    html += "<li><a href=\"" + EnlacePagina(desde(actual - 1)) + "\" rel=\"prev\">Anterior</a></li>\n";
  }
  // The first and last pages, and two on either side of the current one.
  std::vector<std::int64_t> visibles = {1, paginas};
  for (std::int64_t pagina = actual - 2; pagina <= actual + 2; ++pagina) {
    if (pagina >= 1 && pagina <= paginas) visibles.push_back(pagina);
  }
  std::sort(visibles.begin(), visibles.end());
  visibles.erase(std::unique(visibles.begin(), visibles.end()), visibles.end());
  std::int64_t anterior = 0;
  for (const std::int64_t pagina : visibles) {
    if (pagina > anterior + 1) html += "<li aria-hidden=\"true\">&hellip;</li>\n";
    if (pagina == actual) {
      html += "<li><span aria-current=\"page\">" + std::to_string(pagina) + "</span></li>\n";
    } else {
      html += "<li><a href=\"" + EnlacePagina(desde(pagina)) + "\">" + std::to_string(pagina) +
              "</a></li>\n";
    }
    anterior = pagina;
  }
  if (actual < paginas) {
    html += "<li><a href=\"" + EnlacePagina(desde(actual + 1)) + "\" rel=\"next\">Siguiente</a></li>\n";
  }
  html += "</ul></nav>";
  return html;
}

std::string PaginaLector::Sugerencias() {
  if (s_.cfg.BUSQ_AVANZADA == 1 || !s_.BDIndice) return {};
  // The request field each term came from, by its field code.
  const bool con_libre = !cgi::ValorCGI(s_.cgi, "txtLIB").empty();
  const std::array<std::string_view, 4> cajas = {con_libre ? "txtLIB" : "txtEXPR1", "txtTIT",
                                                 "txtAUT", "txtTEM"};
  struct Correccion {
    std::string_view caja;
    std::string palabra;
    std::vector<search::Sugerencia> sugerencias;
  };
  std::vector<Correccion> correcciones;
  for (const search::TerminoBusqueda& termino : s_.busqueda.Terminos) {
    const std::string& palabra = termino.palabra;
    if (palabra.empty() || termino.campo < 0 || termino.campo > 3) continue;
    if (palabra.find_first_of("\"$") != std::string::npos) continue;
    // Only a word that finds nothing alone is corrected.
    search::Estado prueba;
    std::string buscada = palabra;
    std::string tabla;
    search::BuscaPalabra(prueba, *s_.BDIndice, buscada, 0, tabla);
    if (search::CuentaFichas(prueba.MapaTermino) > 0) continue;
    std::vector<search::Sugerencia> sugerencias =
        search::Sugiere(*s_.BDIndice, palabra, kSugerenciasPorPalabra);
    if (!sugerencias.empty()) {
      correcciones.push_back({cajas[static_cast<std::size_t>(termino.campo)], palabra,
                              std::move(sugerencias)});
    }
  }
  if (correcciones.empty()) return {};
  // Each suggestion corrects its own word, and every other word that found
  // nothing by its most frequent correction.
  std::string enlaces;
  std::vector<std::string> vistos;
  for (const Correccion& c : correcciones) {
    for (const search::Sugerencia& sugerencia : c.sugerencias) {
      cgi::CamposEnlace cambios;
      std::vector<std::string_view> quitar = {kCampoDesde};
      std::string corregido;  // the corrected boxes, as the reader reads them
      for (std::string_view caja : cajas) {
        std::string texto = cgi::ValorCGI(s_.cgi, caja);
        bool cambiada = false;
        for (const Correccion& otra : correcciones) {
          if (otra.caja != caja) continue;
          const std::string& nueva =
              &otra == &c ? sugerencia.palabra : otra.sugerencias.front().palabra;
          texto = ReemplazaPalabra(texto, otra.palabra, Minusculas(nueva));
          cambiada = true;
        }
        if (!cambiada) continue;
        quitar.push_back(caja);
        if (!corregido.empty()) corregido += " / ";
        corregido += texto;
        cambios.emplace_back(std::string(caja), texto);
      }
      cambios.push_back(PrimeraPagina());
      const std::string enlace = cgi::Enlace(s_, cgi::CamposCambiados(s_, quitar, cambios));
      if (std::find(vistos.begin(), vistos.end(), enlace) != vistos.end()) continue;
      vistos.push_back(enlace);
      if (!enlaces.empty()) enlaces += ", ";
      enlaces += "<a href=\"" + enlace + "\">" + EscapaEco(corregido) + "</a>";
    }
  }
  return Latin1("<p class=\"sugerencias\">¿Quiso decir ") + enlaces + "?</p>";
}

void PaginaLector::Llena(std::string& texto) {
  const auto llena = [&texto](std::string_view marca, auto calcula) {
    if (texto.find(marca) != std::string::npos) ReemplazaTexto(texto, std::string(marca), calcula());
  };
  // The page of one record has nothing to narrow, sort or page through.
  const bool resultados = !s_.FichaSola;
  llena("<!FACETAS!>", [&] { return resultados ? Facetas() : std::string(); });
  llena("<!FILTROS!>", [&] { return resultados ? Filtros() : std::string(); });
  llena("<!ORDEN!>", [&] { return resultados ? Ordenes() : std::string(); });
  llena("<!PAGINAS!>", [&] { return resultados ? Paginas() : std::string(); });
  llena("<!ENLACEANTERIOR!>", [this] { return EnlacePagina(s_.pagina.DesdeAnterior()); });
  llena("<!ENLACESIGUIENTE!>", [this] { return EnlacePagina(s_.pagina.DesdeSiguiente()); });
  llena("<!ENLACEBUSQUEDA!>", [this] { return cgi::Enlace(s_, cgi::CamposCambiados(s_, {}, {})); });
  llena("<!SUGERENCIAS!>", [this] { return Sugerencias(); });
  llena("<!ERRORSINTAXIS!>", [this] {
    if (!s_.busqueda.ErrorSintaxis) return std::string();
    return Latin1("<p class=\"error-sintaxis\" role=\"alert\">Error de sintaxis en la expresión. "
                  "Por favor verifique los términos que introdujo como su expresión de búsqueda "
                  "e intente de nuevo.</p>");
  });
}

}  // namespace orvex::queries
