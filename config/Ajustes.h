#pragma once

#include <cstddef>
#include <string_view>

#include "base/Platform.h"

// The installation's settings. Most are safety settings: Orvex refuses by
// default whatever in a request could make it read, write or stall the
// server, and an installation whose pages depend on the old, unguarded
// behaviour gets it back one setting at a time; "Solicitudes" says how the
// request's text is encoded. All live in "orvex.ini" beside the program:
//
//   # orvex.ini
//   ArchivoCFG   = cualquier_ruta       ; any path, as "ArchivoCFG" once took
//   Ecos         = literales            ; request text echoed into pages as sent
//   Reservas     = cualquier_servidor   ; reservations to the server the request names
//   CuerpoMaximo = 1048576              ; the largest request body, in bytes
//   Solicitudes  = utf-8                ; every request's text read as UTF-8
//
// One "clave = valor" per line; blank lines and lines starting with "#" or
// ";" are comments, and so is anything after a ";" or "#" on a line. Keys
// and values are compared without regard to letter case. A missing file, an
// unknown key or a value the key does not take leaves the safe default.
namespace orvex::config {

struct Ajustes {
  // "ArchivoCFG": false, only a plain "*.cfg" name of a regular file in the
  // program's directory; true ("cualquier_ruta"), a name with a path is used
  // as it stands.
  bool cfg_cualquier_ruta = false;
  // "Ecos": false, request text is HTML-escaped wherever a page echoes it;
  // true ("literales"), it is written as the request sent it.
  bool ecos_literales = false;
  // "Reservas": false, a reservation goes only to a server that the
  // configuration's "DISPONIBILIDAD:" section lists; true
  // ("cualquier_servidor"), to the request's "direccionIP":"puertoTCP".
  bool reservas_cualquier_servidor = false;
  // "Solicitudes": false, a request's fields are Windows-1252 unless the
  // request says "CODIFICACION=utf-8"; true ("utf-8"), every request's fields
  // are read as UTF-8 wherever they are well-formed UTF-8 (cgi/EntradaCGI.h).
  // Not a safety setting: an installation whose forms and links are UTF-8
  // turns it on.
  bool solicitudes_utf8 = false;
  // "CuerpoMaximo": the largest request body (and query string) accepted, in
  // bytes, from 1024 to kCuerpoMaximoTope.
  std::size_t cuerpo_maximo = kCuerpoMaximoPredeterminado;

  static constexpr std::size_t kCuerpoMaximoPredeterminado = std::size_t{1} << 20;
  static constexpr std::size_t kCuerpoMaximoTope = std::size_t{64} << 20;
};

// The settings file's name, in the program's directory, spelled exactly so.
inline constexpr std::string_view kArchivoAjustes = "orvex.ini";

// The settings of the text of a settings file.
Ajustes InterpretaAjustes(std::string_view texto);

// The settings of the installation whose program lives in `directorio`:
// those of its "orvex.ini", the defaults when there is none (or it cannot be
// read, or it is not a regular file of at most 64 KB).
Ajustes LeeAjustes(FileSystem& archivos, std::string_view directorio);

}  // namespace orvex::config
