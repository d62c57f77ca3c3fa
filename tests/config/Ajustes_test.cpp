#include "config/Ajustes.h"

#include <gtest/gtest.h>

#include "tests/support/Fakes.h"

namespace orvex::config {
namespace {

TEST(InterpretaAjustes, RelaxesOnlyWhatEachLineNamesExactly) {
  struct Case {
    std::string texto;
    bool cfg, ecos, reservas;
    std::size_t cuerpo;
  } cases[] = {
      {"", false, false, false, Ajustes::kCuerpoMaximoPredeterminado},
      {"ArchivoCFG = cualquier_ruta", true, false, false, Ajustes::kCuerpoMaximoPredeterminado},
      {"archivocfg=CUALQUIER_RUTA\r\n", true, false, false, Ajustes::kCuerpoMaximoPredeterminado},
      {"Ecos = literales\nReservas = cualquier_servidor\n", false, true, true,
       Ajustes::kCuerpoMaximoPredeterminado},
      {"CuerpoMaximo = 4096", false, false, false, 4096},
      // Comments, whole lines or after the value.
      {"# Ecos = literales\n; ArchivoCFG = cualquier_ruta", false, false, false,
       Ajustes::kCuerpoMaximoPredeterminado},
      {"Ecos = literales ; old pages", false, true, false, Ajustes::kCuerpoMaximoPredeterminado},
      // Anything not spelled as documented keeps the safe default.
      {"Ecos = si\nArchivoCFG = 1\nReservas = todas\nEco = literales", false, false, false,
       Ajustes::kCuerpoMaximoPredeterminado},
      {"Ecos literales", false, false, false, Ajustes::kCuerpoMaximoPredeterminado},
      {"CuerpoMaximo = 12k", false, false, false, Ajustes::kCuerpoMaximoPredeterminado},
      {"CuerpoMaximo = 100", false, false, false, Ajustes::kCuerpoMaximoPredeterminado},
      {"CuerpoMaximo = 99999999999999999999", false, false, false,
       Ajustes::kCuerpoMaximoPredeterminado},
      {"CuerpoMaximo = 67108864", false, false, false, Ajustes::kCuerpoMaximoTope},
      {"CuerpoMaximo = 67108865", false, false, false, Ajustes::kCuerpoMaximoPredeterminado},
  };
  for (const Case& c : cases) {
    const Ajustes a = InterpretaAjustes(c.texto);
    EXPECT_EQ(a.cfg_cualquier_ruta, c.cfg) << c.texto;
    EXPECT_EQ(a.ecos_literales, c.ecos) << c.texto;
    EXPECT_EQ(a.reservas_cualquier_servidor, c.reservas) << c.texto;
    EXPECT_EQ(a.cuerpo_maximo, c.cuerpo) << c.texto;
  }
}

TEST(InterpretaAjustes, SolicitudesTakesOnlyUTF8) {
  const struct {
    const char* texto;
    bool utf8;
  } cases[] = {
      {"", false},
      {"Solicitudes = utf-8", true},
      {"solicitudes=UTF8\r\n", true},
      {"Solicitudes = latin1", false},
      {"Solicitudes = utf-16", false},
      {"# Solicitudes = utf-8", false},
  };
  for (const auto& c : cases) {
    const Ajustes a = InterpretaAjustes(c.texto);
    EXPECT_EQ(a.solicitudes_utf8, c.utf8) << c.texto;
    // It relaxes no safety setting.
    EXPECT_FALSE(a.ecos_literales || a.cfg_cualquier_ruta || a.reservas_cualquier_servidor);
  }
}

TEST(LeeAjustes, ReadsOrvexIniBesideTheProgramOrKeepsTheDefaults) {
  testing::MemoryFileSystem f;
  EXPECT_FALSE(LeeAjustes(f, "/prog").ecos_literales);
  f.files["/prog/orvex.ini"] = "Ecos = literales";
  EXPECT_TRUE(LeeAjustes(f, "/prog").ecos_literales);
  f.unreadable.insert("/prog/orvex.ini");
  EXPECT_FALSE(LeeAjustes(f, "/prog").ecos_literales);
  f.unreadable.clear();
  f.special.insert("/prog/orvex.ini");
  EXPECT_FALSE(LeeAjustes(f, "/prog").ecos_literales);
}

}  // namespace
}  // namespace orvex::config
