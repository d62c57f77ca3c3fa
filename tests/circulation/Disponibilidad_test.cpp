#include "circulation/Disponibilidad.h"

#include <gtest/gtest.h>

#include <string>

namespace orvex::circulation {
namespace {

TEST(Disponibilidad, FindsTheServerOfTheDatabaseSet) {
  const std::string seccion =
      "##00  127.0.0.1 ## 7700\r\n"
      "##01xxcirculacion.example##7701 \r\n"
      "##02  sin puerto ## \r\n"
      "  ##03  10.0.0.3 ## 7703\r\n"
      "#04  10.0.0.4 ## 7704\r\n"
      "##05  sin marca 7705\r\n";
  struct Caso {
    std::uint8_t base;
    bool hallado;
    const char* direccion;
    const char* puerto;
  } casos[] = {{0, true, "127.0.0.1", "7700"},
               {1, true, "circulacion.example", "7701"},
               {2, false, "", ""},
               {3, true, "10.0.0.3", "7703"},
               {4, false, "", ""},
               {5, false, "", ""},
               {99, false, "", ""}};
  for (const Caso& c : casos) {
    ServidorCirculacion servidor;
    EXPECT_EQ(BuscaServidor(seccion, c.base, servidor), c.hallado) << int(c.base);
    EXPECT_EQ(servidor.direccion, c.direccion) << int(c.base);
    EXPECT_EQ(servidor.puerto, c.puerto) << int(c.base);
  }
  ServidorCirculacion servidor;
  EXPECT_FALSE(BuscaServidor("", 0, servidor));
}

}  // namespace
}  // namespace orvex::circulation
