#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Platform.h"
#include "cgi/Solicitud.h"
#include "db/Database.h"

// What the diagnostic commands typed into the search box share: who may see
// the reserved ones, the frame of their pages, and the catalogues that
// "BASE:" names. Every page is whole, HTTP header included.
//
// A public page (AbrePaginaPublica) names no path of the server, not even
// the program's directory of the standard header. A reserved command shows
// the installation's insides and answers in full only to the administrator
// (ClienteAdministrador); anyone else gets a short public page saying the
// command is reserved (Autorizado).
namespace orvex::gateway {

// True when the request's REMOTE_ADDR is listed in the "DIAGNOSTICO:"
// section of the request's configuration: one entry per line, blank lines
// ignored; an entry ending in "." or ":" is a prefix ("192.168.1." admits
// 192.168.1.0 to 192.168.1.255), any other entry must equal the address.
// No address is trusted for itself: behind a reverse proxy every client
// comes from the loopback, which is the administrator only when listed.
// Only a configuration that was read from a "*.cfg" file of the program's
// directory (s.cfg.ArchivoCFG is that directory and the name) lists the
// administrator: a file that the old rule for "ArchivoCFG" reaches elsewhere
// may hold text the client wrote.
bool ClienteAdministrador(const cgi::Solicitud& s);

// For a reserved command: true when the client is the administrator;
// otherwise writes the whole refusal page, titled `comando`, and is false.
bool Autorizado(cgi::Solicitud& s, std::string_view comando);

// One line of the page, CR LF ended.
void Linea(cgi::Solicitud& s, std::string texto);
// The header of a reserved command's page (the standard one) and its title.
void AbrePagina(cgi::Solicitud& s, std::string_view titulo);
// The header that names nothing of the server, and the title.
void AbrePaginaPublica(cgi::Solicitud& s, std::string_view titulo);
void CierraPagina(cgi::Solicitud& s);

// `texto` without leading and trailing blanks, tabs and line ends.
std::string Recorta(std::string_view texto);
// The lines of a section body, trimmed, blank ones left out.
std::vector<std::string> LineasNoVacias(std::string_view texto);
inline bool EsDigito(char c) { return c >= '0' && c <= '9'; }

// How the diagnostic pages open a catalogue file: for reading, so that they
// leave every database as they found it.
inline constexpr db::OpenOptions kSoloLectura{.read_only = true};

// One catalogue of "BASE:": its name (empty in the single-base form), its
// number (1 in the single-base form) and its directory.
struct Catalogo {
  std::string nombre;
  int numero = 1;
  std::string ruta;
};

// The catalogues "BASE:" names, read as the advanced search reads the
// multiple-database form; an empty list with `error` set when the section is
// missing or its list cannot be read.
std::vector<Catalogo> Catalogos(const cgi::Solicitud& s, std::string& error);

// The catalogue as a reserved page names it: its directory, after its
// collection's name when it has one; escaped.
std::string TituloCatalogo(const Catalogo& c);

// The path of the file `nombre` of the catalogue directory `dir`, found
// through the request's file system regardless of letter case; nullopt when
// there is none.
std::optional<std::string> BuscaArchivo(cgi::Solicitud& s, std::string_view dir, std::string_view nombre);

}  // namespace orvex::gateway
