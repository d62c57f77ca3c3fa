#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cgi/Solicitud.h"

namespace orvex::queries {

// The catalogue's file names, spelled as the system spells them (found on
// disk regardless of letter case).
inline constexpr std::string_view kBiblio = "KORVEL8.MDB";
inline constexpr std::string_view kIndiceLibros = "INDIZADO.MDB";
inline constexpr std::string_view kIndiceRevistas = "indizaPP.MDB";

// `ruta_base`, a separator only when it does not already end in one, and
// the file name.
std::string RutaArchivo(std::string_view ruta_base, std::string_view archivo);

// Opens INDIZADO.MDB into BDIndice and KORVEL8.MDB into BDBiblio in
// RutaBase and writes "<!-- [LOAD form] Ruta abierta: " with the directory.
// When either cannot be opened it writes the "Abrir BD: Ocurrio el error: "
// message and ends the process (ProcessEnd): no later section is written.
void AbreBasesLibros(cgi::Solicitud& s);

// The same databases without a word on the page: a failure raises its
// RuntimeError. For the answers that are not pages (an export).
void AbreBasesLibrosSinAviso(cgi::Solicitud& s);

// Open KORVEL8.MDB into BDBiblio, then indizaPP.MDB into BDIndice, without
// a comment; a failure raises.
void AbreBasesRevistas(cgi::Solicitud& s);
void AbreBasesArticulos(cgi::Solicitud& s);

// The check before a book search: notes "Ruta1:" and "Ruta2:" in the trace
// and returns the paths of KORVEL8.MDB and INDIZADO.MDB in `directorio`
// that do not exist.
std::vector<std::string> ArchivosFaltantes(cgi::Solicitud& s, std::string_view directorio);

// The configuration file the request names, read again as the periodical,
// article and listing queries do: a bare name is taken in the program's
// directory. Without it (no name, or no such file) writes "No se encontró la
// definición del archivo CFG. Verifique la sintaxis de su página HTML" and
// gives nothing; otherwise its text becomes the request's configuration text.
bool LeeArchivoCFG(cgi::Solicitud& s);

// Reports missing files: one "<p>No se encontró: " line per path, then the
// message that the files are incomplete, naming `directorio`.
void ReportaArchivosFaltantes(cgi::Solicitud& s, std::string_view directorio,
                              const std::vector<std::string>& faltantes);

}  // namespace orvex::queries
