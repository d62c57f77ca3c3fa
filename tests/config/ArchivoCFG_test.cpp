#include "config/ArchivoCFG.h"

#include <gtest/gtest.h>

#include "base/RuntimeError.h"
#include "tests/support/Fakes.h"

namespace orvex::config {
namespace {

const std::string kMensajeFalta =
    "<center><p><H4>No se encontr\xF3 la definici\xF3n del archivo CFG (";
const std::string kMensajeFaltaCola =
    "). Verifique la sintaxis de su p\xE1gina HTML de consulta y asegurese que contiene una "
    "</H4><p/></center>\r\n";

class CargaCFGTest : public ::testing::Test {
 protected:
  std::string Carga(std::string& archivo) { return CargaCFG(archivo, p_.sys, ajustes_); }

  testing::FakePlatform p_;
  Ajustes ajustes_;
};

TEST_F(CargaCFGTest, CompletesABareNameInTheProgramDirectory) {
  p_.archivos.files["/prog/libros.cfg"] = "BASE:{/bases}";
  std::string archivo = "libros.cfg";
  EXPECT_EQ(Carga(archivo), "BASE:{/bases}");
  EXPECT_EQ(archivo, "/prog/libros.cfg");
  EXPECT_TRUE(p_.salida.contents.empty());
}

TEST_F(CargaCFGTest, FindsTheFileRegardlessOfLetterCase) {
  p_.archivos.files["/prog/Libros.CFG"] = "z";
  std::string archivo = "libros.cfg";
  EXPECT_EQ(Carga(archivo), "z");
}

TEST_F(CargaCFGTest, ReportsAMissingFileAndReturnsNothing) {
  std::string archivo = "noexiste.cfg";
  EXPECT_EQ(Carga(archivo), "");
  EXPECT_EQ(p_.salida.contents, kMensajeFalta + "/prog/noexiste.cfg" + kMensajeFaltaCola);
}

TEST_F(CargaCFGTest, AnUnreadableFileRaises) {
  p_.archivos.files["/prog/x.cfg"] = "x";
  p_.archivos.unreadable.insert("/prog/x.cfg");
  std::string archivo = "x.cfg";
  EXPECT_EQ(testing::ErrorNumberOf([&] { Carga(archivo); }), kErrPermisoDenegado);
}

// What a request may name: by default a plain "*.cfg" name of a regular
// file of at most 1 MiB in the program's directory, and nothing else; with
// "ArchivoCFG = cualquier_ruta" a path is used as it stands, but a device,
// a pipe or a huge file is still never read.
TEST_F(CargaCFGTest, TakesOnlyPlainCfgNamesOfSmallRegularFilesOfTheProgramDirectory) {
  auto& f = p_.archivos;
  f.files["/prog/libros.cfg"] = "libros";
  f.files["/prog/a..b.cfg"] = "puntos";
  f.files["/prog/20081215_093011-.log"] = "ENCABEZADO:{<script>}";
  f.files["/prog/orvex.ini"] = "Ecos = literales";
  f.files["/prog/sin_extension"] = "x";
  f.files["/prog/enlace.cfg"] = "root:x:0:0";  // the system follows the link
  f.links["/prog/enlace.cfg"] = "/etc/passwd.cfg";
  f.files["/etc/passwd.cfg"] = "root:x:0:0";
  f.files["/prog/dentro.cfg"] = "libros";
  f.links["/prog/dentro.cfg"] = "/prog/libros.cfg";
  f.files["/proc/self/environ"] = "BASE:{/} DIAGNOSTICO:{0.0.0.0}";
  f.files["/prog/tubo.cfg"] = "";
  f.special.insert("/prog/tubo.cfg");
  f.files["/prog/enorme.cfg"] = std::string(kLargoMaximoCFG + 1, 'x');
  f.files["/prog/justo.cfg"] = std::string(kLargoMaximoCFG, 'x');
  f.files["/dev/zero"] = "";
  f.special.insert("/dev/zero");

  struct Case {
    std::string nombre;
    bool seguro;   // read with the default settings
    bool antiguo;  // read with "ArchivoCFG = cualquier_ruta"
    std::string texto;  // what is read when it is
  } cases[] = {
      {"libros.cfg", true, true, "libros"},
      {"LIBROS.CFG", true, true, "libros"},
      {"justo.cfg", true, true, std::string(kLargoMaximoCFG, 'x')},
      {"dentro.cfg", true, true, "libros"},       // a link to a file of the directory
      {"enlace.cfg", false, true, "root:x:0:0"},  // a link out of it
      {"a..b.cfg", false, true, "puntos"},
      {"20081215_093011-.log", false, true, "ENCABEZADO:{<script>}"},
      {"orvex.ini", false, true, "Ecos = literales"},
      {"sin_extension", false, true, "x"},
      {".cfg", false, false, ""},
      {"/prog/libros.cfg", false, true, "libros"},
      {"\\prog\\libros.cfg", false, true, "libros"},
      {"/proc/self/environ", false, true, "BASE:{/} DIAGNOSTICO:{0.0.0.0}"},
      {std::string("libros.cfg\0.log", 15), false, false, ""},
      {"tubo.cfg", false, false, ""},
      {"enorme.cfg", false, false, ""},
      {"/dev/zero", false, false, ""},
      {"", false, false, ""},
  };
  for (const Case& c : cases) {
    for (const bool antiguo : {false, true}) {
      ajustes_.cfg_cualquier_ruta = antiguo;
      p_.salida.contents.clear();
      p_.salida.position = 0;
      std::string archivo = c.nombre;
      const std::string texto = Carga(archivo);
      const bool leido = p_.salida.contents.empty();
      EXPECT_EQ(leido, antiguo ? c.antiguo : c.seguro)
          << c.nombre << (antiguo ? " (cualquier_ruta)" : "");
      EXPECT_EQ(texto, leido ? c.texto : "") << c.nombre;
      if (!leido) {
        EXPECT_TRUE(p_.salida.contents.starts_with(kMensajeFalta)) << c.nombre;
      }
    }
  }
}

TEST_F(CargaCFGTest, TheMissingFileMessageEscapesTheNameUnlessEchoesAreVerbatim) {
  std::string archivo = "<b onmouseover='x' class=\"y\">&.cfg";
  Carga(archivo);
  EXPECT_EQ(p_.salida.contents,
            kMensajeFalta + "/prog/&lt;b onmouseover=&#39;x&#39; class=&quot;y&quot;&gt;&amp;.cfg" +
                kMensajeFaltaCola);
  p_.salida.contents.clear();
  p_.salida.position = 0;
  ajustes_.ecos_literales = true;
  archivo = "<b>.cfg";
  Carga(archivo);
  EXPECT_EQ(p_.salida.contents, kMensajeFalta + "/prog/<b>.cfg" + kMensajeFaltaCola);
}

TEST(UbicaArchivoCFG, GivesTheResolvedPathOfAFileOfTheDirectory) {
  testing::MemoryFileSystem f;
  f.files["/prog/Libros.cfg"] = "x";
  f.files["/prog/alias.cfg"] = "";
  f.links["/prog/alias.cfg"] = "/prog/Libros.cfg";
  EXPECT_EQ(UbicaArchivoCFG("libros.cfg", f, false), "/prog/Libros.cfg");
  EXPECT_EQ(UbicaArchivoCFG("alias.cfg", f, false), "/prog/Libros.cfg");
  EXPECT_EQ(UbicaArchivoCFG("otro.cfg", f, false), std::nullopt);
}

TEST(SeccionCFG, CutsTheFirstLabelledBody) {
  testing::FixedClock reloj;
  struct Case {
    std::string texto, etiqueta, cuerpo;
  } cases[] = {
      {"ENCABEZADO:\r\n{<h1>Hola</h1>}", "ENCABEZADO:", "<h1>Hola</h1>"},
      {"ENCABEZADO2:{dos} ENCABEZADO:{uno}", "ENCABEZADO:", "uno"},
      {"ENCABEZADO2:{dos} ENCABEZADO:{uno}", "ENCABEZADO2:", "dos"},
      // A label inside another body is found there, and its body is the next "{...}".
      {"FINAL:{ FORMATO: dentro } FORMATO:{fuera}", "FORMATO:", "fuera"},
      {"ENCABEZADO:{a}b}", "ENCABEZADO:", "a"},
      {"ENCABEZADO:{ *[x]* }", "ENCABEZADO:", " {x} "},
      {"ENCABEZADO:{ ]**[ }", "ENCABEZADO:", " }{ "},
      {"ENCABEZADO:{sin cierre", "ENCABEZADO:", "sin cierre"},
      {"ENCABEZADO: sin llave", "ENCABEZADO:", ""},
      {"encabezado:{x}", "ENCABEZADO:", ""},
      {"", "BASE:", ""},
      {"BASE:{\r\n /bases \r\n}", "BASE:", "\r\n /bases \r\n"},
      {"}}{{ BASE: {{a}", "BASE:", "{a"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(SeccionCFG(c.texto, c.etiqueta, reloj), c.cuerpo) << c.texto << " / " << c.etiqueta;
  }
}

TEST(SeccionCFG, FillsTheDatePlaceholders) {
  testing::FixedClock reloj;
  reloj.now = testing::SampleDate();
  EXPECT_EQ(SeccionCFG("FINAL:{<!FECHA!> <!DIA!> <!HORA!>}", "FINAL:", reloj),
            "15/dic/2008 lunes 09:30 AM");
}

struct BuscaBaseCase {
  const char* nombre;
  std::string cuerpo;
  std::uint8_t base_dta;
  std::int32_t resultado;
  std::string base, ruta;
  std::uint8_t numero_final;
};

void PrintTo(const BuscaBaseCase& c, std::ostream* os) { *os << c.nombre; }

class BuscaBaseTest : public ::testing::TestWithParam<BuscaBaseCase> {};

TEST_P(BuscaBaseTest, ReadsTheDatabaseList) {
  const BuscaBaseCase& c = GetParam();
  Configuracion cfg;
  cfg.RutaBase = c.cuerpo;
  cfg.BaseDTA = c.base_dta;
  std::string base = "antes";
  std::string ruta = "sin tocar";
  std::uint8_t numero = c.base_dta;
  EXPECT_EQ(BuscaBase(cfg, base, ruta, numero), c.resultado);
  EXPECT_EQ(base, c.base);
  EXPECT_EQ(ruta, c.ruta);
  EXPECT_EQ(numero, c.numero_final);
}

const std::string kLista =
    "##01  Biblioteca Central ## /bases/central\r\n"
    "##02  Hemeroteca##/bases/hemeroteca\r\n"
    "##03  Sin ruta ##   \r\n"
    "##99";

INSTANTIATE_TEST_SUITE_P(
    Formas, BuscaBaseTest,
    ::testing::Values(
        BuscaBaseCase{"cero", kLista, 0, 0, "antes", "", 0},
        BuscaBaseCase{"primera", kLista, 1, 1, "Biblioteca Central", "/bases/central", 1},
        BuscaBaseCase{"segunda", kLista, 2, 1, "Hemeroteca", "/bases/hemeroteca", 2},
        BuscaBaseCase{"sin_ruta", kLista, 3, 0, "antes", "", 3},
        BuscaBaseCase{"ausente", kLista, 7, 0, "antes", "", 7},
        BuscaBaseCase{"sin_marcas", "/bases", 1, 0, "antes", "", 1},
        BuscaBaseCase{"fuera_de_rango", kLista, 120, 0, "antes", "sin tocar", 120},
        BuscaBaseCase{"todas", kLista + "\r\n", 99, 99, "antes", "", 4},
        BuscaBaseCase{"todas_sin_cierre", kLista, 99, 0, "antes",
                      "error en sntaxis de CFG BASE: para Bases multiples", 99},
        BuscaBaseCase{"todas_linea_mala", "##01 a##b\r\nbasura\r\n##99\r\n", 99, 0, "antes",
                      "error en sntaxis de CFG BASE: para Bases multiples", 99},
        BuscaBaseCase{"todas_lineas_dobles", "##01 a##b\r\n\r\n##02 c##d\r\n##99\r\n", 99, 99,
                      "antes", "", 3}),
    [](const ::testing::TestParamInfo<BuscaBaseCase>& info) { return info.param.nombre; });

TEST(BuscaBase, ListsEveryLineWithItsTexts) {
  Configuracion cfg;
  cfg.RutaBase = kLista + "\r\n";
  cfg.BaseDTA = 99;
  std::string base, ruta;
  std::uint8_t numero = 99;
  ASSERT_EQ(BuscaBase(cfg, base, ruta, numero), 99);
  ASSERT_EQ(cfg.TablaBases.size(), 5u);
  EXPECT_EQ(cfg.TablaBases[0].numero, 1);
  EXPECT_EQ(cfg.TablaBases[0].antes, "Biblioteca Central");
  EXPECT_EQ(cfg.TablaBases[0].despues, "/bases/central");
  EXPECT_EQ(cfg.TablaBases[2].antes, "Sin ruta");
  EXPECT_EQ(cfg.TablaBases[2].despues, "");
  EXPECT_EQ(cfg.TablaBases[3].numero, 99);
}

class UbicaEstadisticasTest : public ::testing::Test {
 protected:
  testing::FakePlatform p_;
  Configuracion cfg_;
  std::string ruta_ = "x";
};

TEST_F(UbicaEstadisticasTest, FindsTheStatisticsFileInTheBaseDirectory) {
  cfg_.TextoCFG = "BASE:{/bases}";
  p_.archivos.files["/bases/Estadisticas.mdb"] = "";
  EXPECT_EQ(UbicaEstadisticas(cfg_, "", "", ruta_, true, p_.sys), 1);
  EXPECT_EQ(ruta_, "/bases/");
  EXPECT_EQ(cfg_.RutaBase, "/bases");
  EXPECT_TRUE(p_.salida.contents.empty());
}

TEST_F(UbicaEstadisticasTest, ReportsAMissingStatisticsFileOnlyWhenAsked) {
  cfg_.TextoCFG = "BASE:{/bases/}";
  EXPECT_EQ(UbicaEstadisticas(cfg_, "0", "0", ruta_, false, p_.sys), 0);
  EXPECT_EQ(ruta_, "");
  EXPECT_TRUE(p_.salida.contents.empty());
  EXPECT_EQ(UbicaEstadisticas(cfg_, "0", "0", ruta_, true, p_.sys), 0);
  EXPECT_EQ(p_.salida.contents,
            "<center><p><H4>No se pudo cargar la informaci\xF3n estad\xEDstica del inventario, "
            "porque no se localiz\xF3 la base de Estadisticas en <BR/>/bases/</H4><p/></center>\r\n");
}

TEST_F(UbicaEstadisticasTest, UsesTheDatabaseListInTheAdvancedSearch) {
  cfg_.TextoCFG = "BASE:{" + kLista + "\r\n}";
  EXPECT_EQ(UbicaEstadisticas(cfg_, "1", "2", ruta_, true, p_.sys), 1);
  EXPECT_EQ(ruta_, "/bases/hemeroteca");
  EXPECT_EQ(UbicaEstadisticas(cfg_, "1", "99", ruta_, true, p_.sys), 4);
  EXPECT_EQ(cfg_.BaseDTA, 4);
  EXPECT_TRUE(p_.salida.contents.empty());
  EXPECT_EQ(UbicaEstadisticas(cfg_, "1", "5", ruta_, true, p_.sys), 0);
  EXPECT_EQ(ruta_, "");
  EXPECT_NE(p_.salida.contents.find(
                "<P>Se ha solicitado hacer una busqueda en multiples acervos, sin embargo <br>"),
            std::string::npos);
}

TEST_F(UbicaEstadisticasTest, ANumberThatDoesNotFitAByteOverflows) {
  EXPECT_EQ(testing::ErrorNumberOf([&] { UbicaEstadisticas(cfg_, "1", "300", ruta_, true, p_.sys); }), kErrDesbordamiento);
}

}  // namespace
}  // namespace orvex::config
