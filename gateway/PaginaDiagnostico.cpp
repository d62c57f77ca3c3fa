#include "gateway/PaginaDiagnostico.h"

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Html.h"
#include "cgi/Encabezado.h"
#include "config/ArchivoCFG.h"
#include "config/Instalacion.h"
#include "config/Plantillas.h"
#include "queries/AbreBases.h"

namespace orvex::gateway {
namespace {

// True when the request's configuration is a "*.cfg" file of the program's
// directory, the only kind whose "DIAGNOSTICO:" names the administrator.
bool ConfiguracionDelPrograma(const cgi::Solicitud& s) {
  const std::string& archivo = s.cfg.ArchivoCFG;
  if (s.cfg.TextoCFG.empty()) return false;
  const std::size_t barra = archivo.find_last_of("/\\");
  if (barra == std::string::npos) return false;
  const std::string_view nombre = std::string_view(archivo).substr(barra + 1);
  return config::EsNombreCFG(nombre) && archivo == JoinPath(s.sys.archivos.ProgramDirectory(), nombre);
}

}  // namespace

bool ClienteAdministrador(const cgi::Solicitud& s) {
  const std::string ip = Recorta(s.cgi.Variable("REMOTE_ADDR"));
  if (ip.empty() || !ConfiguracionDelPrograma(s)) return false;
  for (const std::string& entrada : LineasNoVacias(s.Seccion("DIAGNOSTICO:"))) {
    const bool prefijo = entrada.back() == '.' || entrada.back() == ':';
    if (prefijo ? ip.rfind(entrada, 0) == 0 : ip == entrada) return true;
  }
  return false;
}

bool Autorizado(cgi::Solicitud& s, std::string_view comando) {
  if (ClienteAdministrador(s)) return true;
  AbrePaginaPublica(s, std::string(comando));
  config::MensajeH4(s.sys.salida,
                    Latin1("Este comando está reservado al administrador del sistema."));
  CierraPagina(s);
  return false;
}

void Linea(cgi::Solicitud& s, std::string texto) { EnviaLinea(s.sys.salida, std::move(texto)); }

void AbrePagina(cgi::Solicitud& s, std::string_view titulo) {
  cgi::EnviaEncabezado(s, "Orvex - " + std::string(titulo));
  Linea(s, "<H3>" + std::string(titulo) + "</H3>");
}

void AbrePaginaPublica(cgi::Solicitud& s, std::string_view titulo) {
  cgi::EnviaEncabezadoPublico(s, "Orvex - " + std::string(titulo));
  Linea(s, "<H3>" + std::string(titulo) + "</H3>");
}

void CierraPagina(cgi::Solicitud& s) { Linea(s, "</BODY></HTML>"); }

std::string Recorta(std::string_view texto) {
  const std::size_t inicio = texto.find_first_not_of(" \t\r\n");
  if (inicio == std::string_view::npos) return "";
  const std::size_t fin = texto.find_last_not_of(" \t\r\n");
  return std::string(texto.substr(inicio, fin - inicio + 1));
}

std::vector<std::string> LineasNoVacias(std::string_view texto) {
  std::vector<std::string> lineas;
  std::size_t inicio = 0;
  while (inicio <= texto.size()) {
    std::size_t fin = texto.find('\n', inicio);
    if (fin == std::string_view::npos) fin = texto.size();
    std::string linea = Recorta(texto.substr(inicio, fin - inicio));
    if (!linea.empty()) lineas.push_back(std::move(linea));
    inicio = fin + 1;
  }
  return lineas;
}

std::vector<Catalogo> Catalogos(const cgi::Solicitud& s, std::string& error) {
  const std::string base = Recorta(s.Seccion("BASE:"));
  if (base.empty()) {
    error = Latin1("La sección BASE: no existe o está vacía.");
    return {};
  }
  if (base.find("##") == std::string::npos) return {{"", 1, base}};
  // The list is read as the advanced search reads it, every line ended by
  // CR LF: a last line without one is listed too.
  config::Configuracion cfg;
  cfg.RutaBase = base;
  if (!cfg.RutaBase.ends_with("\r\n")) cfg.RutaBase += "\r\n";
  std::string nombre;
  std::string ruta;
  std::uint8_t numero = 99;
  std::vector<Catalogo> lista;
  if (config::BuscaBase(cfg, nombre, ruta, numero) == 99) {
    for (const config::BaseDeDatos& b : cfg.TablaBases) {
      if (!b.despues.empty()) lista.push_back({b.antes, b.numero, b.despues});
    }
  }
  if (lista.empty()) error = std::string(config::kErrorBasesMultiples);
  return lista;
}

std::string TituloCatalogo(const Catalogo& c) {
  return c.nombre.empty() ? EscapaComillaDoble(c.ruta)
                          : EscapaComillaDoble(c.nombre) + " (" + EscapaComillaDoble(c.ruta) + ")";
}

std::optional<std::string> BuscaArchivo(cgi::Solicitud& s, std::string_view dir, std::string_view nombre) {
  return FindFile(s.sys.archivos, queries::RutaArchivo(dir, nombre));
}

}  // namespace orvex::gateway
