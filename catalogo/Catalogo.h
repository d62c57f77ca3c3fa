#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "base/Clock.h"

// orvex-catalogo: builds a catalogue's databases from MARC 21 records.
//
//   orvex-catalogo [--biblioteca NOMBRE] [--institucion TEXTO]
//                  [--departamento TEXTO] [--silencioso] DIRECTORIO ARCHIVO...
//
// Each ARCHIVO holds records in ISO 2709 or MARCXML, told by its content
// (see LectorPara). Each record goes to the books, the periodicals or the
// articles by its bibliographic level (see Acervos.h); each collection
// numbers its records 1, 2, 3... in the order they are read, file after
// file; a refused record takes no number. Record numbers stop at 800008, the
// highest a search can return: records of a collection past it are refused.
// The catalogue (see EscritorCatalogo) is written into a new directory and
// put in place of DIRECTORIO only when complete (see Directorio.h);
// DIRECTORIO may not exist yet.
//
//   --biblioteca NOMBRE     records without holdings get one copy in this
//                           library; holdings without a library take it
//   --institucion TEXTO     the installation settings' "Institucion" row
//   --departamento TEXTO    the installation settings' "Departamento" row
//   --silencioso            no progress lines and no summary
//
// Standard error gets, in Spanish and UTF-8: every refused record (file,
// position in the file, 001 when readable, reason) and every warning; unless
// --silencioso a line every 10 000 records and a summary (books, periodicals
// and articles written, records refused, words indexed, seconds).
//
// Exit status: 0 when the catalogue was written, refused records or not;
// 1 when nothing was written and DIRECTORIO is as it was (an input file that
// cannot be read, no readable record at all, a failure writing or putting
// the catalogue in place, a DIRECTORIO holding other files); 2 for bad usage.
namespace orvex::catalogo {

inline constexpr int kSalidaExito = 0;
inline constexpr int kSalidaFallo = 1;
inline constexpr int kSalidaUso = 2;

struct Opciones {
  std::optional<std::string> biblioteca, institucion, departamento;  // UTF-8
  bool silencioso = false;
  std::string directorio;
  std::vector<std::string> archivos;
};

// The usage line.
extern const char* const kUso;

// Reads the arguments (without the program name). Options come before
// DIRECTORIO, as "--opcion VALOR" or "--opcion=VALOR"; "--" ends them.
// Returns kSalidaExito, or kSalidaUso with `error` saying what is wrong.
// Values must be UTF-8 and --biblioteca at most 50 characters.
int LeeOpciones(const std::vector<std::string>& argumentos, Opciones& opciones,
                std::string& error);

// Builds the catalogue; `ahora` is the run's date and time. Messages go to
// `mensajes`. Returns the exit status.
int ConstruyeCatalogo(const Opciones& opciones, const DateTime& ahora, std::ostream& mensajes);

// The whole program: arguments, clock, standard error.
int Principal(int argc, char** argv);

}  // namespace orvex::catalogo
