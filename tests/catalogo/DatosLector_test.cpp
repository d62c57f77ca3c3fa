// The reader data as orvex-catalogo derives and stores it, read back as the
// gateway reads it (search/Facetas.h, search/Orden.h).
#include "catalogo/DatosLector.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "base/CodePage.h"
#include "catalogo/Catalogo.h"
#include "db/Database.h"
#include "search/Facetas.h"
#include "search/Orden.h"
#include "tests/support/Fakes.h"

namespace orvex::catalogo {
namespace {

namespace fs = std::filesystem;
using search::Faceta;
using Textos = std::vector<std::string>;

const fs::path kFixtures = fs::path(ORVEX_FIXTURES) / "catalogo";

Campo Control(const std::string& etiqueta, const std::string& datos) {
  Campo c;
  c.etiqueta = etiqueta;
  c.datos = datos;
  return c;
}

Campo Datos(const std::string& etiqueta, char ind2, std::vector<Subcampo> subcampos) {
  Campo c;
  c.etiqueta = etiqueta;
  c.ind2 = ind2;
  c.subcampos = std::move(subcampos);
  return c;
}

RegistroMARC Registro(std::vector<Campo> campos, std::string lider = "00000nam a2200000 a 4500") {
  RegistroMARC r;
  r.lider = std::move(lider);
  r.campos = std::move(campos);
  return r;
}

// An 008 with `fecha` at 7-10 and `idioma` at 35-37.
std::string F008(const std::string& fecha, const std::string& idioma) {
  std::string s = "020823s" + fecha + "    sp                  " + idioma + " d";
  EXPECT_EQ(s.size(), 40u);
  return s;
}

TEST(DatosLector, SortKeysFoldAsTheWordIndexAndPutÑAfterN) {
  const struct {
    const char* texto;  // UTF-8 here, Windows-1252 to the function
    const char* clave;
  } casos[] = {
      {"Álgebra lineal", "ALGEBRA LINEAL"},
      {"  ¿Quién sabe?  ", "QUIEN SABE"},
      {"[Mapa] de Oaxaca...", "MAPA DE OAXACA"},
      {"El niño", "EL NIN~O"},
      {"Français", "FRANCAIS"},
      {"lingüística 2.0", "LINGUISTICA 2 0"},
      {"---", ""},
      {"", ""},
  };
  for (const auto& c : casos) EXPECT_EQ(ClaveOrden(Latin1(c.texto)), c.clave) << c.texto;
  // Spanish order: N, then Ñ, then O.
  EXPECT_LT(ClaveOrden("Nube"), ClaveOrden(Latin1("Ñandú")));
  EXPECT_LT(ClaveOrden(Latin1("Ñandú")), ClaveOrden("Oso"));
  EXPECT_LT(ClaveOrden("Zorro 2"), ClaveOrden("zorros"));
}

TEST(DatosLector, HeadingsLoseTheirFinalMarks) {
  const struct {
    const char* texto;
    const char* limpio;
  } casos[] = {
      {"Paz, Octavio,", "Paz, Octavio"},
      {"Historia.", "Historia"},
      {"Universidad Nacional. ", "Universidad Nacional"},
      {"Smith, J.", "Smith, J."},
      {"Smith, J. ;", "Smith, J."},
      {"Fuentes, Carlos :", "Fuentes, Carlos"},
      {"Obras completas...", "Obras completas.."},
      {" , ; ", ""},
      {"Sor Juana Inés de la Cruz", "Sor Juana Inés de la Cruz"},
  };
  for (const auto& c : casos) EXPECT_EQ(LimpiaEncabezado(c.texto), c.limpio) << c.texto;
}

TEST(DatosLector, TypesComeFromTheLeader) {
  const struct {
    char tipo, nivel;
    const char* clave;
  } casos[] = {
      {'a', 'm', "libro"}, {'a', 's', "revista"}, {'a', 'i', "revista"}, {'t', 'm', "manuscrito"},
      {'c', 'm', "partitura"}, {'e', 'm', "mapa"}, {'g', 'm', "video"}, {'j', 'm', "sonido"},
      {'m', 'm', "electronico"}, {'r', 'm', "objeto"}, {'z', 'm', "otro"}, {' ', 'm', "otro"},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(TipoDeLider(c.tipo, c.nivel), c.clave) << c.tipo << c.nivel;
    bool listado = false;
    for (const TipoMaterialLector& t : TiposMaterial()) listado = listado || t.clave == c.clave;
    EXPECT_TRUE(listado) << c.clave;
  }
}

TEST(DatosLector, FromMarcRecords) {
  const struct {
    const char* que;
    RegistroMARC registro;
    std::uint16_t anio;
    const char* idioma;
    const char* tipo;
    std::string titulo;
    Textos autores, temas;
  } casos[] = {
      {"a whole record",
       Registro({Control("008", F008("1987", "spa")),
                 Datos("100", ' ', {{'a', "García Márquez, Gabriel,"}, {'d', "1927-2014."}}),
                 Datos("245", '0', {{'a', "Cien años de soledad /"}, {'c', "Gabriel García Márquez."}}),
                 Datos("260", ' ', {{'c', "1990."}}),
                 Datos("650", '0', {{'a', "Novela colombiana."}, {'y', "Siglo XX."}}),
                 Datos("700", ' ', {{'a', "García Márquez, Gabriel."}}),
                 Datos("700", ' ', {{'a', "Smith, J."}}),
                 Datos("710", ' ', {{'a', "Universidad Nacional."}}),
                 Datos("651", '0', {{'a', "Macondo (Lugar imaginario)"}})}),
       1987, "spa", "libro", "CIEN AN~OS DE SOLEDAD",
       {Latin1("García Márquez, Gabriel"), "Smith, J.", "Universidad Nacional"},
       {"Novela colombiana", "Macondo (Lugar imaginario)"}},
      {"nonfiling characters",
       Registro({Datos("245", '4', {{'a', "The Hobbit"}}), Datos("041", ' ', {{'a', "ENGspa"}})}),
       0, "eng", "libro", "HOBBIT", {}, {}},
      {"year from 260 $c, its last four digits",
       Registro({Control("008", F008("uuuu", "   ")), Datos("260", ' ', {{'b', "Siglo XXI,"}, {'c', "c1998, 2003 [i.e. 200]."}})}),
       2003, "", "libro", "", {}, {}},
      {"a 264 of publication before a copyright date",
       Registro({Control("008", F008("0000", "|||")), Datos("264", '4', {{'c', "©2015"}}),
                 Datos("264", '1', {{'c', "2014."}})},
                "00000cem a2200000 a 4500"),
       2014, "", "mapa", "", {}, {}},
      {"a year of 9999 is unknown",
       Registro({Control("008", F008("9999", "fre")), Datos("264", '4', {{'c', "[19--]"}})},
                "00000njm a2200000 a 4500"),
       0, "fre", "sonido", "", {}, {}},
      {"no leader, nonfiling past the title",
       Registro({Datos("245", '9', {{'a', "Año"}})}, ""), 0, "", "libro", "", {}, {}},
      {"a serial's level",
       Registro({Datos("245", '0', {{'a', "Año 2000"}})}, "00000nas a2200000 a 4500"),
       0, "", "revista", "AN~O 2000", {}, {}},
  };
  for (const auto& c : casos) {
    const DatosFicha d = DatosDeRegistro(c.registro);
    EXPECT_EQ(d.anio, c.anio) << c.que;
    EXPECT_EQ(d.idioma, c.idioma) << c.que;
    EXPECT_EQ(d.tipo, c.tipo) << c.que;
    EXPECT_EQ(d.titulo, c.titulo) << c.que;
    EXPECT_EQ(d.autores, c.autores) << c.que;
    EXPECT_EQ(d.temas, c.temas) << c.que;
  }
}

TEST(DatosLector, FromTagStrings) {
  const auto etiquetas = [](const std::string& utf8) { return Latin1(utf8); };
  const struct {
    const char* que;
    std::string etiquetas, fijos, tipo_material;
    std::uint16_t anio;
    const char* idioma;
    const char* tipo;
    std::string titulo;
    Textos autores, temas;
  } casos[] = {
      {"a whole record",
       etiquetas("¦100García Márquez, Gabriel, 1927-2014.¦245Cien años de soledad / Gabriel García "
                 "Márquez.¦260Madrid : Cátedra, 1987.¦650Novela colombiana -- Siglo XX \\ "
                 "Historia.¦700Rulfo, Juan, 1917-1986. \\ García Márquez, Gabriel \\ Smith, J.Ì"),
       F008("1990", "spa"), "1", 1990, "spa", "libro", "CIEN AN~OS DE SOLEDAD",
       {Latin1("García Márquez, Gabriel"), "Rulfo, Juan", "Smith, J."},
       {"Novela colombiana", "Historia"}},
      {"year and language from the fields",
       etiquetas("¦041engspa¦245The end¦260London : Penguin, c1998, 2001.Ì"), "", "2", 2001, "eng",
       "otro", "THE END", {}, {}},
      {"264 when there is no 260", etiquetas("¦264México : FCE, 2010Ì"), "   ", " 1 ", 2010, "",
       "libro", "", {}, {}},
      {"no end mark, empty occurrences", etiquetas("¦650 \\  \\ Poesía¦100"), "", "", 0, "", "otro",
       "", {}, {Latin1("Poesía")}},
      {"nothing at all", "", "", "", 0, "", "otro", "", {}, {}},
  };
  for (const auto& c : casos) {
    const DatosFicha d = DatosDeEtiquetas(c.etiquetas, c.fijos, c.tipo_material);
    EXPECT_EQ(d.anio, c.anio) << c.que;
    EXPECT_EQ(d.idioma, c.idioma) << c.que;
    EXPECT_EQ(d.tipo, c.tipo) << c.que;
    EXPECT_EQ(d.titulo, c.titulo) << c.que;
    EXPECT_EQ(d.autores, c.autores) << c.que;
    EXPECT_EQ(d.temas, c.temas) << c.que;
  }
}

// --- written, then read as the gateway reads it ---------------------------------

DatosFicha Ficha(std::uint16_t anio, std::string idioma, std::string tipo, std::string titulo,
                 Textos autores, Textos temas) {
  DatosFicha d;
  d.anio = anio;
  d.idioma = std::move(idioma);
  d.tipo = std::move(tipo);
  d.titulo = ClaveOrden(titulo);
  d.autores = std::move(autores);
  d.temas = std::move(temas);
  return d;
}

search::MapaFichas Mapa(const std::vector<std::int32_t>& fichas) {
  search::MapaFichas m;
  for (std::int32_t f : fichas) m.Pon(f);
  return m;
}

std::vector<std::string> Resumen(const search::ConteoFaceta& c) {
  std::vector<std::string> r;
  for (const search::ValorFaceta& v : c.valores) {
    r.push_back(v.clave + "=" + v.texto + ":" + std::to_string(v.cuenta));
  }
  return r;
}

TEST(DatosLector, WhatIsWrittenIsWhatTheGatewayCountsAndSorts) {
  testing::DirectorioTemporal tmp;
  const std::string ruta = (tmp.ruta() / "KORVEL8.MDB").string();
  AcumuladorLector a;
  a.Agrega(1, Ficha(1998, "spa", "libro", "Zapotecos", {"Paz, Octavio", "Rulfo, Juan"}, {"Historia"}));
  a.Agrega(2, Ficha(2001, "eng", "mapa", "Atlas", {"Rulfo, Juan"}, {"Mapas", "Historia"}));
  a.Agrega(3, Ficha(0, "", "otro", "", {}, {}));
  a.Agrega(5, Ficha(1998, "spa", "libro", Latin1("Ñandúes"), {Latin1("Álvarez, Ana")}, {}));
  a.Agrega(4, Ficha(1750, "nah", "revista", "Nube", {"Paz, Octavio"}, {"Historia", "Historia"}));
  a.Agrega(800009, Ficha(2000, "spa", "libro", "Fuera", {"Nadie"}, {}));  // ignored
  a.Escribe(ruta);
  a.Escribe(ruta);  // a second time replaces the tables

  auto bd = db::OpenDatabase(ruta, CodePage::Windows1252());
  search::DatosLector datos(*bd);
  ASSERT_TRUE(datos.Disponible());
  EXPECT_EQ(datos.Fuente(), "");
  const auto c = search::CuentaFacetas(datos, Mapa({1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(Resumen(c[0]), (Textos{"1998=1998:2", "1750=1750:1", "2001=2001:1"}));
  EXPECT_EQ(Resumen(c[1]), (Textos{Latin1("spa=Español:2"), Latin1("eng=Inglés:1"),
                                   Latin1("nah=Náhuatl:1")}));
  EXPECT_EQ(Resumen(c[2]), (Textos{"libro=Libro:2", "mapa=Mapa:1", "otro=Otro:1",
                                   "revista=Revista:1"}));
  // Ties in the order of the texts folded: Álvarez before Paz.
  EXPECT_EQ(Resumen(c[3]), (Textos{"Paz, Octavio=Paz, Octavio:2", "Rulfo, Juan=Rulfo, Juan:2",
                                   Latin1("Álvarez, Ana=Álvarez, Ana:1")}));
  EXPECT_EQ(Resumen(search::CuentaFaceta(datos, Faceta::kAutor, Mapa({1, 5}))),
            (Textos{Latin1("Álvarez, Ana=Álvarez, Ana:1"), "Paz, Octavio=Paz, Octavio:1",
                    "Rulfo, Juan=Rulfo, Juan:1"}));
  EXPECT_EQ(Resumen(c[4]), (Textos{"Historia=Historia:3", "Mapas=Mapas:1"}));

  search::MapaFichas m = Mapa({1, 2, 3, 4, 5});
  EXPECT_TRUE(search::Restringe(datos, {{Faceta::kAutor, "Paz, Octavio"}, {Faceta::kIdioma, "spa"}}, m));
  EXPECT_EQ(m.Lista(), (std::vector<std::int32_t>{1}));

  using search::ClaveOrden;
  const auto orden = [&](ClaveOrden k, bool desc) {
    return search::Ordena(&datos, Mapa({1, 2, 3, 4, 5}), {k, desc});
  };
  EXPECT_EQ(orden(ClaveOrden::kTitulo, false), (std::vector<std::int32_t>{2, 4, 5, 1, 3}));
  EXPECT_EQ(orden(ClaveOrden::kTitulo, true), (std::vector<std::int32_t>{1, 5, 4, 2, 3}));
  EXPECT_EQ(orden(ClaveOrden::kAutor, false), (std::vector<std::int32_t>{5, 1, 4, 2, 3}));
  EXPECT_EQ(orden(ClaveOrden::kAnio, true), (std::vector<std::int32_t>{2, 1, 5, 4, 3}));
}

TEST(DatosLector, AnEmptyCatalogueStillWritesUsableTables) {
  testing::DirectorioTemporal tmp;
  const std::string ruta = (tmp.ruta() / "VACIO.MDB").string();
  AcumuladorLector().Escribe(ruta);
  auto bd = db::OpenDatabase(ruta, CodePage::Windows1252());
  search::DatosLector datos(*bd);
  for (const search::ConteoFaceta& c : search::CuentaFacetas(datos, Mapa({1, 2}))) {
    EXPECT_TRUE(c.disponible);
    EXPECT_TRUE(c.valores.empty());
  }
}

// --- the side file --------------------------------------------------------------

TEST(DatosLector, TheSideFileServesAnotherProgramsCatalogueWithoutWritingIt) {
  for (const char* motor : {"sqlite", "jet"}) {
    testing::DirectorioTemporal tmp;
    const fs::path korvel = tmp.Copia(kFixtures / motor / "KORVEL8.MDB", "korvel8.mdb");
    const std::string antes = testing::ReadFile(korvel);
    std::ostringstream mensajes;
    ASSERT_EQ(EscribeLectorLateral(tmp.ruta().string(), mensajes), kSalidaExito)
        << motor << mensajes.str();
    EXPECT_NE(mensajes.str().find("347 libros"), std::string::npos) << mensajes.str();
    EXPECT_EQ(testing::ReadFile(korvel), antes) << motor;
    EXPECT_FALSE(fs::exists(tmp.ruta() / "LECTOR.MDB.parcial"));

    db::EngineOpener abridor(CodePage::Windows1252());
    auto bd = db::OpenDatabase(korvel.string(), CodePage::Windows1252());
    search::FuenteLector fuente = search::BuscaDatosLector(*bd, korvel.string(), abridor);
    ASSERT_NE(fuente.datos, nullptr) << motor;
    ASSERT_NE(fuente.lateral, nullptr) << motor;
    // Record 1 of the fixture: García Márquez's novel of 1987, in Spanish.
    search::MapaFichas uno = Mapa({1});
    const auto c = search::CuentaFacetas(*fuente.datos, uno);
    EXPECT_EQ(Resumen(c[0]), (Textos{"1987=1987:1"})) << motor;
    EXPECT_EQ(Resumen(c[1]), (Textos{Latin1("spa=Español:1")})) << motor;
    EXPECT_EQ(Resumen(c[3]), (Textos{Latin1("García Márquez, Gabriel=García Márquez, Gabriel:1"),
                                     "Joset, Jacques, ed=Joset, Jacques, ed:1"}))
        << motor;
    // The highest record of the fixture is counted too.
    EXPECT_GT(search::CuentaFaceta(*fuente.datos, Faceta::kTipo, Mapa({799999})).distintos, 0)
        << motor;
  }
}

TEST(DatosLector, TheSideFileModeRefusesWhatItCannotRead) {
  testing::DirectorioTemporal tmp;
  std::ostringstream mensajes;
  EXPECT_EQ(EscribeLectorLateral((tmp.ruta() / "no-existe").string(), mensajes), kSalidaFallo);
  EXPECT_EQ(EscribeLectorLateral(tmp.ruta().string(), mensajes), kSalidaFallo);
  testing::WriteFile(tmp.ruta() / "KORVEL8.MDB", "esto no es una base");
  EXPECT_EQ(EscribeLectorLateral(tmp.ruta().string(), mensajes), kSalidaFallo);
  EXPECT_FALSE(fs::exists(tmp.ruta() / "LECTOR.MDB"));
  EXPECT_FALSE(fs::exists(tmp.ruta() / "LECTOR.MDB.parcial"));
  EXPECT_NE(mensajes.str().find("no hay KORVEL8.MDB"), std::string::npos) << mensajes.str();
}

}  // namespace
}  // namespace orvex::catalogo
