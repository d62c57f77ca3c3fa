#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Platform.h"
#include "config/Ajustes.h"

namespace orvex::config {

// One line of the multiple-database form of "BASE:".
struct BaseDeDatos {
  std::uint8_t numero = 0;
  std::string antes;    // the trimmed text before the "##" (the collection's name)
  std::string despues;  // the trimmed text after it (the collection's directory)
};

// The configuration of one request.
struct Configuracion {
  std::string ArchivoCFG;  // the file named by the request, completed into a path
  std::string TextoCFG;    // the whole file; empty when it is missing
  std::string RutaBase;    // the "BASE:" section
  std::uint8_t BUSQ_AVANZADA = 0;
  std::uint8_t BaseDTA = 0;
  std::vector<BaseDeDatos> TablaBases;
};

// The message of a database list that cannot be read (spelled so).
inline constexpr std::string_view kErrorBasesMultiples =
    "error en sntaxis de CFG BASE: para Bases multiples";

// The largest configuration file Orvex reads.
inline constexpr std::size_t kLargoMaximoCFG = std::size_t{1} << 20;

// True when `nombre` is a plain file name ending in ".cfg" (any letter
// case): no "/" or "\\", no "..", no NUL. The only names a request may give
// by default.
bool EsNombreCFG(std::string_view nombre);

// Where the configuration file a request names is, when Orvex may read it.
// By default only a plain name ending in ".cfg" (any letter case) names a
// file, and only one in the program's directory (found regardless of letter
// case): a name with "/" or "\", "..", a NUL, or a symbolic link that leads
// out of the directory names none. With `cualquier_ruta` (the old rule) a
// name with a separator is used as it stands and a plain one is taken in the
// program's directory. nullopt when there is no such file.
std::optional<std::string> UbicaArchivoCFG(std::string_view nombre, FileSystem& archivos,
                                           bool cualquier_ruta);

// The text of the configuration file at `ruta`; nullopt when it is not a
// regular file of at most kLargoMaximoCFG bytes (a device, a pipe or a
// directory is never read). Raises 70 when it cannot be read.
std::optional<std::string> LeeTextoCFG(FileSystem& archivos, const std::string& ruta);

// Completes `archivo` into a path in the program's directory when it holds no
// separator, and returns the file's whole text. When the name is empty, names
// no file Orvex may read (UbicaArchivoCFG) or names one that is not a regular
// file of at most 1 MiB, it writes the "No se encontró la definición del
// archivo CFG (" message, before any HTTP header (the name escaped unless the
// installation echoes request text verbatim), and returns empty text. The
// settings `ajustes` say which names Orvex takes. A file that exists but
// cannot be read raises.
std::string CargaCFG(std::string& archivo, Servicios& sys, const Ajustes& ajustes);

// The body of the first section labelled `etiqueta` (exact, case-sensitive,
// anywhere in the text): the characters after the next "{" up to the next
// "}" or the end, with "]*" made "}" and "*[" made "{", and the date and time
// placeholders filled. Empty when the label or the "{" is missing.
std::string SeccionCFG(std::string_view texto, std::string_view etiqueta, Clock& reloj);

// Reads the multiple-database form of the "BASE:" body held in
// cfg.RutaBase. `numero` 1-98 looks for the line numbered cfg.BaseDTA and
// returns 1 with its two texts in `base` and `ruta`; 99 lists every line in
// cfg.TablaBases, sets `numero` to the number of lines less one and returns
// 99; 0 and 100-255 return 0. Failures return 0 with `ruta` empty or holding
// kErrorBasesMultiples.
std::int32_t BuscaBase(Configuracion& cfg, std::string& base, std::string& ruta,
                       std::uint8_t& numero);

// Locates the statistics database. Sets cfg.RutaBase from "BASE:" and
// BUSQ_AVANZADA and BaseDTA from the two request values given (their leading
// numbers; 6 is raised when they do not fit a byte). Without the advanced
// search the result is 1 when "estadisticas.MDB" is in RutaBase (its
// directory in `ruta`); with it, BuscaBase decides: 1, or the new BaseDTA
// when all databases are listed. Failures give 0, an empty `ruta` and, when
// `avisar`, a message in the page.
std::int32_t UbicaEstadisticas(Configuracion& cfg, std::string_view busq_avanzada,
                               std::string_view base_dta, std::string& ruta, bool avisar,
                               Servicios& sys);

}  // namespace orvex::config
