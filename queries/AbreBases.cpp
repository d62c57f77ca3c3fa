#include "queries/AbreBases.h"

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/RuntimeError.h"
#include "config/ArchivoCFG.h"
#include "config/Plantillas.h"
#include "cgi/EntradaCGI.h"

namespace orvex::queries {
namespace {

// Catalogue databases are only read by the gateway.
constexpr db::OpenOptions kSoloLectura{.read_only = true};

std::unique_ptr<db::Database> Abre(cgi::Solicitud& s, const std::string& ruta) {
  return s.bases.Open(FindFile(s.sys.archivos, ruta).value_or(ruta), kSoloLectura);
}

void AbreRevistasOArticulos(cgi::Solicitud& s) {
  s.BDBiblio = Abre(s, RutaArchivo(s.cfg.RutaBase, kBiblio));
  s.BDIndice = Abre(s, RutaArchivo(s.cfg.RutaBase, kIndiceRevistas));
}

}  // namespace

std::string RutaArchivo(std::string_view ruta_base, std::string_view archivo) {
  return JoinPath(ruta_base, archivo);
}

void AbreBasesLibros(cgi::Solicitud& s) {
  const std::string directorio = RutaArchivo(s.cfg.RutaBase, "");
  try {
    s.BDIndice = Abre(s, directorio + std::string(kIndiceLibros));
    s.BDBiblio = Abre(s, directorio + "KORVEL8.mdb");
  } catch (const RuntimeError& error) {
    config::MensajeH4(s.sys.salida, "Abrir BD: Ocurrio el error: " + std::to_string(error.number()) +
                                        " " + error.description() + "<br><i>" + directorio + "<i>");
    throw ProcessEnd{};
  }
  EnviaLinea(s.sys.salida, "<!-- [LOAD form] Ruta abierta: " + directorio + "<br/>-->");
}

void AbreBasesLibrosSinAviso(cgi::Solicitud& s) {
  s.BDIndice = Abre(s, RutaArchivo(s.cfg.RutaBase, kIndiceLibros));
  s.BDBiblio = Abre(s, RutaArchivo(s.cfg.RutaBase, kBiblio));
}

void AbreBasesRevistas(cgi::Solicitud& s) { AbreRevistasOArticulos(s); }

void AbreBasesArticulos(cgi::Solicitud& s) { AbreRevistasOArticulos(s); }

std::vector<std::string> ArchivosFaltantes(cgi::Solicitud& s, std::string_view directorio) {
  const std::string biblio = RutaArchivo(directorio, kBiblio);
  const std::string indice = RutaArchivo(directorio, kIndiceLibros);
  s.Traza += "Ruta1:" + biblio + " - Ruta2:" + indice + "<br/>";
  std::vector<std::string> faltantes;
  for (const std::string& ruta : {biblio, indice}) {
    if (!FindFile(s.sys.archivos, ruta)) faltantes.push_back(ruta);
  }
  return faltantes;
}

bool LeeArchivoCFG(cgi::Solicitud& s) {
  Servicios& sys = s.sys;
  const std::string archivo = cgi::ValorCGI(s.cgi, "ArchivoCFG");
  const auto ruta = config::UbicaArchivoCFG(archivo, sys.archivos, s.ajustes.cfg_cualquier_ruta);
  std::optional<std::string> texto;
  if (ruta) texto = config::LeeTextoCFG(sys.archivos, *ruta);
  if (!texto) {
    config::MensajeH4(sys.salida, Latin1("No se encontró la definición del archivo CFG. "
                                         "Verifique la sintaxis de su página HTML"));
    return false;
  }
  s.cfg.TextoCFG = std::move(*texto);
  return true;
}

void ReportaArchivosFaltantes(cgi::Solicitud& s, std::string_view directorio,
                              const std::vector<std::string>& faltantes) {
  for (const std::string& ruta : faltantes) {
    EnviaLinea(s.sys.salida, Latin1("<p>No se encontró: ") + ruta);
  }
  config::MensajeH4(
      s.sys.salida,
      Latin1("<P>Los archivos están incompletos para consultar o<br> la ruta a los mismos no es "
             "accesible. <br>Verifique la sintaxis de su archivo de configuración y revise la "
             "existencia de los archivos. <br>La ruta obtenida es: ") +
          std::string(directorio) + "<center>");
}

}  // namespace orvex::queries
