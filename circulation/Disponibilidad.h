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

}  // namespace orvex::circulation
