#pragma once

#include <filesystem>
#include <string>

// Putting a new catalogue in place of the old one without ever leaving a
// half-written catalogue where the gateway looks.
//
// The new files are written into a temporary directory beside the catalogue
// directory (same parent, so the same file system); only when they are
// complete does the temporary directory take the catalogue directory's name.
// Where the file system allows it the two directories are exchanged in one
// step (renameat2 with RENAME_EXCHANGE), so that the name never points at
// nothing; otherwise the old directory is renamed aside, the new one renamed
// in, and the old one put back if that fails. The old catalogue is then
// removed. Requests already reading the old files keep reading them.
namespace orvex::catalogo {

// Throws ErrorCatalogo unless `destino` can be replaced: it does not exist
// and its parent directory does, or it is a directory holding nothing but
// catalogue files (KORVEL8.MDB, INDIZADO.MDB, indizaPP.MDB, estadisticas.mdb
// in any letter case, with their -journal, -wal, -shm and .ldb companions)
// and the installation's own record sheet fichaWeb.xsl, which the gateway
// also looks for beside the databases. Anything else there is refused
// rather than deleted with the old catalogue.
void CompruebaDestino(const std::filesystem::path& destino);

// Copies the installation's record sheet (fichaWeb.xsl, in any letter case)
// from `destino`, when it has one, into the new catalogue `nuevo`.
void ConservaHoja(const std::filesystem::path& destino, const std::filesystem::path& nuevo);

// Carries the search statistics of the old catalogue over to the new one:
// when `destino` holds an estadisticas.mdb (any letter case) that SQLite can
// read, a consistent copy of it, rows still in its write-ahead log included,
// takes the place of the new, empty one. A rebuilt catalogue thus keeps its
// library's statistics. A file SQLite cannot read (a Jet file, a damaged
// one) is left out with a warning on `aviso`, and the new file stays empty.
// Rows that requests add between the copy and the replacement are lost.
void ConservaEstadisticas(const std::filesystem::path& destino, const std::filesystem::path& nuevo,
                          std::string& aviso);

// Creates an empty temporary directory beside `destino`, with the old
// directory's permissions when there is one (else those the umask allows).
std::filesystem::path CreaTemporal(const std::filesystem::path& destino);

// Puts `nuevo` in place of `destino` as described above and removes the old
// catalogue. Throws ErrorCatalogo, with `destino` as it was, on failure.
void Reemplaza(const std::filesystem::path& nuevo, const std::filesystem::path& destino);

// Removes `ruta` and everything in it, quietly.
void Elimina(const std::filesystem::path& ruta);

// `ruta` made absolute, without a trailing separator, its symbolic links
// resolved when it exists, so that the replacement renames the directory
// itself.
std::filesystem::path RutaDestino(const std::filesystem::path& ruta);

}  // namespace orvex::catalogo
