#include "config/ArchivoCFG.h"

#include "base/CodePage.h"
#include "base/Html.h"
#include "base/Runtime.h"
#include "config/Plantillas.h"

namespace orvex::config {
namespace {

// The lines of a text separated by CR LF; an empty text is one empty line.
std::vector<std::string> Lineas(std::string_view texto) {
  std::vector<std::string> lineas;
  std::size_t desde = 0;
  for (;;) {
    const std::size_t p = texto.find("\r\n", desde);
    if (p == std::string_view::npos) {
      lineas.emplace_back(texto.substr(desde));
      return lineas;
    }
    lineas.emplace_back(texto.substr(desde, p - desde));
    desde = p + 2;
  }
}

// The text from character 7 of a database line, split at its first "##"
// after its first character. False when there is no such "##".
bool PartesDeLinea(const std::string& linea, std::string& antes, std::string& despues) {
  const std::string resto = linea.size() > 6 ? linea.substr(6) : std::string();
  const std::size_t k = InStr(2, resto, "##");
  if (k == 0) return false;
  antes = TrimBlanks(resto.substr(0, k - 1));
  despues = TrimBlanks(resto.substr(k + 1));
  return true;
}

double NumeroDeLinea(const std::string& linea) {
  return LeadingNumber(linea.size() > 2 ? linea.substr(2, 2) : std::string());
}

bool EmpiezaConMarca(const std::string& linea) { return linea.compare(0, 2, "##") == 0; }

std::string MensajeBasesMultiples(const std::string& ruta_base) {
  return Latin1(
             "<P>Se ha solicitado hacer una busqueda en multiples acervos, sin embargo <br>"
             "<br>Verifique la sintaxis de su archivo de configuración y revise la "
             "existencia de los archivos. <br>La ruta obtenida es: ") +
         ruta_base + "<center>";
}

}  // namespace

bool EsNombreCFG(std::string_view nombre) {
  constexpr std::string_view kExtension = ".cfg";
  return nombre.size() > kExtension.size() && !HasSeparator(nombre) &&
         nombre.find("..") == std::string_view::npos &&
         nombre.find('\0') == std::string_view::npos &&
         EqualsIgnoringCase(nombre.substr(nombre.size() - kExtension.size()), kExtension);
}

std::optional<std::string> UbicaArchivoCFG(std::string_view nombre, FileSystem& archivos,
                                           bool cualquier_ruta) {
  if (nombre.empty() || nombre.find('\0') != std::string_view::npos) return std::nullopt;
  const std::string directorio = archivos.ProgramDirectory();
  if (cualquier_ruta) {
    return FindFile(archivos, HasSeparator(nombre) ? std::string(nombre) : JoinPath(directorio, nombre));
  }
  if (!EsNombreCFG(nombre)) return std::nullopt;
  const std::optional<std::string> ruta = FindFile(archivos, JoinPath(directorio, nombre));
  if (!ruta) return std::nullopt;
  // A link may stand in the directory, but only for a file of the directory.
  // The program's directory comes resolved already when it is absolute.
  const std::optional<std::string> real = archivos.RealPath(*ruta);
  const std::optional<std::string> real_directorio =
      directorio.starts_with('/') ? directorio : archivos.RealPath(directorio);
  if (!real || !real_directorio) return std::nullopt;
  const std::size_t barra = real->rfind('/');
  if (barra == std::string::npos) return std::nullopt;
  const std::string_view padre = std::string_view(*real).substr(0, barra == 0 ? 1 : barra);
  if (padre != *real_directorio) return std::nullopt;
  return real;
}

std::optional<std::string> LeeTextoCFG(FileSystem& archivos, const std::string& ruta) {
  return archivos.ReadRegularFile(ruta, kLargoMaximoCFG);
}

std::string CargaCFG(std::string& archivo, Servicios& sys, const Ajustes& ajustes) {
  const std::string nombre = archivo;
  if (!archivo.empty() && !HasSeparator(archivo)) {
    archivo = JoinPath(sys.archivos.ProgramDirectory(), archivo);
  }
  const auto ruta = UbicaArchivoCFG(nombre, sys.archivos, ajustes.cfg_cualquier_ruta);
  std::optional<std::string> texto;
  if (ruta) texto = LeeTextoCFG(sys.archivos, *ruta);
  if (!texto) {
    MensajeH4(sys.salida,
              Latin1("No se encontró la definición del archivo CFG (") + (ajustes.ecos_literales ? archivo : EscapaEco(archivo)) +
                  Latin1("). Verifique la sintaxis de su página HTML de consulta y "
                         "asegurese que contiene una "));
    return std::string();
  }
  return std::move(*texto);
}

std::string SeccionCFG(std::string_view texto, std::string_view etiqueta, Clock& reloj) {
  std::string cuerpo;
  const std::size_t p = texto.find(etiqueta);
  if (p != std::string_view::npos) {
    const std::size_t abre = texto.find('{', p);
    if (abre != std::string_view::npos) {
      const std::size_t cierra = texto.find('}', abre + 1);
      cuerpo = std::string(texto.substr(
          abre + 1, cierra == std::string_view::npos ? std::string_view::npos : cierra - abre - 1));
    }
  }
  if (cuerpo.find("]*") != std::string::npos) ReemplazaTexto(cuerpo, "]*", "}");
  if (cuerpo.find("*[") != std::string::npos) ReemplazaTexto(cuerpo, "*[", "{");
  ReemplazaFechas(cuerpo, reloj);
  return cuerpo;
}

std::int32_t BuscaBase(Configuracion& cfg, std::string& base, std::string& ruta,
                       std::uint8_t& numero) {
  if (numero == 0) {
    ruta.clear();
    return 0;
  }
  if (numero <= 98) {
    if (cfg.RutaBase.find("##") == std::string::npos) {
      ruta.clear();
      return 0;
    }
    for (const std::string& linea : Lineas(cfg.RutaBase)) {
      if (!EmpiezaConMarca(linea) || NumeroDeLinea(linea) != cfg.BaseDTA) continue;
      std::string antes;
      std::string despues;
      if (!PartesDeLinea(linea, antes, despues) || antes.empty() || despues.empty()) continue;
      base = antes;
      ruta = despues;
      return 1;
    }
    ruta.clear();
    return 0;
  }
  if (numero != 99) return 0;

  std::string cuerpo = cfg.RutaBase;
  ReemplazaTexto(cuerpo, "\r\n\r\n", "\r\n");
  const std::size_t p = cuerpo.find("##99");
  if (p != std::string::npos && cuerpo.find("\r\n", p + 4) == std::string::npos) {
    ruta = std::string(kErrorBasesMultiples);
    return 0;
  }
  const std::vector<std::string> lineas = Lineas(cuerpo);
  cfg.TablaBases.assign(lineas.size(), BaseDeDatos());
  for (std::size_t i = 0; i + 1 < lineas.size(); ++i) {
    const std::string& linea = lineas[i];
    if (!EmpiezaConMarca(linea)) {
      ruta = std::string(kErrorBasesMultiples);
      return 0;
    }
    BaseDeDatos& entrada = cfg.TablaBases[i];
    entrada.numero = ToByte(NumeroDeLinea(linea));
    PartesDeLinea(linea, entrada.antes, entrada.despues);
  }
  ruta.clear();
  numero = ToByte(static_cast<double>(lineas.size() - 1));
  return 99;
}

std::int32_t UbicaEstadisticas(Configuracion& cfg, std::string_view busq_avanzada,
                               std::string_view base_dta, std::string& ruta, bool avisar,
                               Servicios& sys) {
  cfg.RutaBase = SeccionCFG(cfg.TextoCFG, "BASE:", sys.reloj);
  cfg.BUSQ_AVANZADA = ToByte(LeadingNumber(busq_avanzada));
  cfg.BaseDTA = ToByte(LeadingNumber(base_dta));

  if (cfg.BUSQ_AVANZADA != 1) {
    const std::string directorio = JoinPath(cfg.RutaBase, "");
    if (!FindFile(sys.archivos, directorio + "estadisticas.MDB")) {
      if (avisar) {
        MensajeH4(sys.salida,
                  Latin1("No se pudo cargar la información estadística del inventario, "
                         "porque no se localizó la base de Estadisticas en <BR/>") +
                      cfg.RutaBase);
      }
      ruta.clear();
      return 0;
    }
    ruta = directorio;
    return 1;
  }

  std::string base;
  const bool todas = cfg.BaseDTA == 99;
  const std::int32_t resultado = BuscaBase(cfg, base, ruta, cfg.BaseDTA);
  if (resultado != (todas ? 99 : 1)) {
    if (avisar) MensajeH4(sys.salida, MensajeBasesMultiples(cfg.RutaBase));
    ruta.clear();
    return 0;
  }
  return todas ? cfg.BaseDTA : 1;
}

}  // namespace orvex::config
