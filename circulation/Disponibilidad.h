#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Where the availability of a record's copies is asked: the "DISPONIBILIDAD:"
// section of the configuration file lists one circulation server per
// database set, in the line form of the multiple-database "BASE:" section:
//
//   DISPONIBILIDAD:
//   {##00  127.0.0.1 ## 7700
//   ##01  circulacion.biblioteca.example ## 7701
//   }
//
// "##", the two-digit BaseDTA, two characters that are skipped, the server's
// host (name or IPv4 address), "##", its TCP port. BaseDTA 0 (a page that
// names no database set) takes the line "##00".
namespace orvex::circulation {

struct ServidorCirculacion {
  std::string direccion;  // trimmed
  std::string puerto;     // trimmed, as written
};

// The server of the line numbered `base_dta` in `seccion` (the section's
// body); false when no line has that number, or its host or port is empty.
bool BuscaServidor(std::string_view seccion, std::uint8_t base_dta,
                   ServidorCirculacion& servidor);

// The TCP port that a connection to `texto` uses: the number at its start as
// the old runtime reads it, rounded; 0 when that is not a port from 1 to
// 65535.
int PuertoTCP(std::string_view texto);

// The first line of `seccion`, whatever its BaseDTA, whose host is `host`
// (letter case aside, nothing trimmed) and whose port is the port `puerto`
// (PuertoTCP of the line's); false when no line has both, or `puerto` is 0.
bool ServidorListado(std::string_view seccion, std::string_view host, int puerto,
                     ServidorCirculacion& servidor);

}  // namespace orvex::circulation
