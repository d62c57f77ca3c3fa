#include "z3950/Tarjeta.h"

#include <gtest/gtest.h>

#include "base/CodePage.h"

namespace orvex::z3950 {
namespace {

TEST(Tarjeta, IsTheCatalogueCardAsText) {
  records::RegFicha ficha;
  ficha.Ficha_no = 15;
  ficha.TipoMaterial = 1;
  ficha.EtiquetasMARC =
      Latin1("¦050PQ8180.17.A73 C5¦100García Márquez, Gabriel, 1927-2014.¦245Cien años de "
             "soledad / Gabriel García Márquez¦260Madrid : Cátedra, 1987.¦300550 páginas ; "
             "18 centímetros¦02084-376-0494-X¦500Novela. \\ Primera edición¦650Novela "
             "colombiana \\ Realismo mágico¦700Pérez, JuanÌ");
  EXPECT_EQ(Tarjeta(ficha),
            "PQ8180.17.A73 C5\n"
            "García Márquez, Gabriel, 1927-2014.\n"
            "Cien años de soledad / Gabriel García Márquez. -- Madrid : Cátedra, 1987.\n"
            "550 p. ; 18 cm.\n"
            "ISBN 84-376-0494-X\n"
            "Novela.\n"
            "Primera edición\n"
            "1. Novela colombiana. 2. Realismo mágico.\n"
            "I. Pérez, Juan.\n");
  // Empty sections give no line.
  ficha.EtiquetasMARC = Latin1("¦245Sólo título.Ì");
  EXPECT_EQ(Tarjeta(ficha), "Sólo título.\n");
}

}  // namespace
}  // namespace orvex::z3950
