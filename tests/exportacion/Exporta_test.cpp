#include "exportacion/Exporta.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "base/CodePage.h"
#include "tests/support/Fakes.h"
#include "tests/support/MARCPrueba.h"

namespace orvex::exportacion {
namespace {

using catalogo::prueba::IsoCrudo;

namespace fs = std::filesystem;


// Record 1's source: UTF-8, a title with a subtitle.
const std::string kIso =
    IsoCrudo("nam a22 a 4500", {"001r1\x1E", "100  \x1F" "aPaz, Octavio,\x1F" "d1914-1998.\x1E",
                                "24510\x1F" "aEl laberinto de la soledad :\x1F" "bensayo.\x1E",
                                "260  \x1F" "aM\xC3\xA9xico :\x1F" "bFCE,\x1F" "c1950.\x1E"});
// Record 2's source: MARCXML.
const std::string kXml =
    "<record xmlns=\"http://www.loc.gov/MARC21/slim\"><leader>00000nam a2200000 a "
    "4500</leader><controlfield tag=\"001\">r2</controlfield><datafield tag=\"245\" ind1=\"0\" "
    "ind2=\"0\"><subfield code=\"a\">Piedra de sol.</subfield></datafield></record>";

records::RegFicha Ficha(std::int32_t numero, const std::string& etiquetas) {
  records::RegFicha f;
  f.Ficha_no = numero;
  f.EtiquetasMARC = etiquetas;
  f.TipoMaterial = 1;
  return f;
}

// Records 1 and 2 with their sources (whose texts differ from the tag
// strings), record 3 with none.
std::vector<records::RegFicha> Fichas() {
  return {Ficha(1, Latin1("¦245Otro título¦260Otra, 2000Ì")),
          Ficha(2, Latin1("¦245Otro títuloÌ")),
          Ficha(3, Latin1("¦100Ruiz, Ana¦245Tercero & último¦260Lima : PUCP, 2003Ì"))};
}

// A catalogue that keeps the sources of records 1 and 2.
class Catalogo : public ::testing::Test {
 protected:
  void SetUp() override {
    const fs::path ruta = tmp_.ruta() / "KORVEL8.MDB";
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(ruta.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db,
                           "CREATE TABLE \"ORVEX_MARC\" (\"Ficha_No\" INTEGER PRIMARY KEY, "
                           "\"Formato\" TEXT NOT NULL, \"Registro\" BLOB NOT NULL)",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    for (const auto& [ficha, formato, registro] :
         {std::tuple<int, std::string, std::string>{1, "iso2709", kIso}, {2, "marcxml", kXml}}) {
      sqlite3_stmt* st = nullptr;
      ASSERT_EQ(sqlite3_prepare_v2(db, "INSERT INTO ORVEX_MARC VALUES (?,?,?)", -1, &st, nullptr),
                SQLITE_OK);
      sqlite3_bind_int(st, 1, ficha);
      sqlite3_bind_text(st, 2, formato.data(), static_cast<int>(formato.size()), SQLITE_STATIC);
      sqlite3_bind_blob(st, 3, registro.data(), static_cast<int>(registro.size()), SQLITE_STATIC);
      EXPECT_EQ(sqlite3_step(st), SQLITE_DONE);
      sqlite3_finalize(st);
    }
    sqlite3_close(db);
    biblio_ = db::OpenDatabase(ruta.string(), CodePage::Windows1252(), {.read_only = true});
  }

  testing::DirectorioTemporal tmp_;
  std::unique_ptr<db::Database> biblio_;
};

TEST(FormatoDeNombre, NamesOfTheRequestField) {
  const struct {
    const char* nombre;
    std::optional<Formato> formato;
  } casos[] = {
      {"ris", Formato::Ris},        {"RIS", Formato::Ris},         {"bibtex", Formato::BibTex},
      {"BibTeX", Formato::BibTex},  {"marcxml", Formato::MarcXml}, {"MarcXML", Formato::MarcXml},
      {"marc", Formato::Marc21},    {"MARC", Formato::Marc21},     {"marc21", std::nullopt},
      {"bib", std::nullopt},        {"", std::nullopt},            {"ris ", std::nullopt},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(FormatoDeNombre(c.nombre), c.formato) << "'" << c.nombre << "'";
  }
}

TEST_F(Catalogo, ExportsThroughTheBuiltModule) {
  ModuloMarc modulo({"/no/existe/orvex-marc.so", ORVEX_MODULO_MARC});
  EXPECT_EQ(modulo.Encuentra(), ORVEX_MODULO_MARC);
  const struct {
    Formato formato;
    const char* tipo;
    const char* extension;
    std::vector<std::string> contiene;
  } casos[] = {
      {Formato::Ris, "application/x-research-info-systems", "ris",
       {"TY  - BOOK\r\nAU  - Paz, Octavio\r\nTI  - El laberinto de la soledad : ensayo\r\n"
        "PY  - 1950\r\nCY  - México\r\nPB  - FCE\r\nID  - 1\r\nER  - \r\n\r\n",
        "TI  - Piedra de sol\r\nID  - 2\r\nER  - \r\n\r\nTY  - BOOK\r\n",
        "TI  - Tercero & último\r\nPY  - 2003\r\nCY  - Lima\r\nPB  - PUCP\r\nID  - 3\r\nER  - "
        "\r\n"}},
      {Formato::BibTex, "application/x-bibtex", "bib",
       {"@book{orvex1,\n  author = {Paz, Octavio},\n", "}\n\n@book{orvex2,\n",
        "@book{orvex3,\n  author = {Ruiz, Ana},\n  title = {Tercero \\& último},\n"}},
      {Formato::MarcXml, "application/marcxml+xml", "xml",
       {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<collection ", kXml + "\n",
        "<subfield code=\"a\">El laberinto de la soledad :</subfield>",
        "<subfield code=\"a\">Tercero &amp; último</subfield>", "</collection>\n"}},
      // An UTF-8 ISO 2709 source is given as it is, bytes and all.
      {Formato::Marc21, "application/marc", "mrc", {kIso}},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.extension);
    const Exportacion e = modulo.Exporta(c.formato, Fichas(), *biblio_);
    ASSERT_TRUE(e.correcta) << e.error;
    EXPECT_EQ(e.error, "");
    EXPECT_EQ(e.tipoContenido, c.tipo);
    EXPECT_EQ(e.extension, c.extension);
    for (const std::string& parte : c.contiene) {
      EXPECT_NE(e.contenido.find(parte), std::string::npos) << parte << "\nin\n" << e.contenido;
    }
  }
  // MARC 21: three records, the first the source's bytes.
  const std::string iso = modulo.Exporta(Formato::Marc21, Fichas(), *biblio_).contenido;
  EXPECT_TRUE(iso.starts_with(kIso));
  std::size_t registros = 0;
  for (std::size_t p = 0; p + 5 <= iso.size(); p += std::stoul(iso.substr(p, 5))) ++registros;
  EXPECT_EQ(registros, 3u);
  EXPECT_EQ(iso.back(), '\x1D');

  // A record that does not exist is left out; no records, no text.
  std::vector<records::RegFicha> con_vacia = {records::RegFicha{}, Fichas()[2]};
  const std::string ris = modulo.Exporta(Formato::Ris, con_vacia, *biblio_).contenido;
  EXPECT_TRUE(ris.starts_with("TY  - BOOK\r\nAU  - Ruiz, Ana\r\n")) << ris;
  const Exportacion nada = modulo.Exporta(Formato::BibTex, {}, *biblio_);
  EXPECT_TRUE(nada.correcta);
  EXPECT_EQ(nada.contenido, "");
}

TEST_F(Catalogo, CitationIsWindows1252) {
  ModuloMarc modulo({ORVEX_MODULO_MARC});
  EXPECT_EQ(modulo.Cita(Fichas()[0], *biblio_),
            Latin1("Paz, O. (1950). El laberinto de la soledad: ensayo. FCE."));
  EXPECT_EQ(modulo.Cita(Fichas()[2], *biblio_),
            Latin1("Ruiz, A. (2003). Tercero & último. PUCP."));
  // The process's loader finds the module where orvex was built.
  EXPECT_EQ(Cita(Fichas()[2], *biblio_), Latin1("Ruiz, A. (2003). Tercero & último. PUCP."));
  EXPECT_TRUE(Exporta(Formato::Ris, Fichas(), *biblio_).correcta);
}

// A file to load that is not the module.
std::string OtraBiblioteca() {
  Dl_info info{};
  EXPECT_NE(::dladdr(reinterpret_cast<void*>(&::sqlite3_libversion), &info), 0);
  // sqlite3 may be linked into the program: then the C library is used.
  if (info.dli_fname == nullptr || std::strstr(info.dli_fname, ".so") == nullptr) {
    EXPECT_NE(::dladdr(reinterpret_cast<void*>(&::dlopen), &info), 0);
  }
  return info.dli_fname != nullptr ? info.dli_fname : "";
}

TEST_F(Catalogo, WithoutTheModuleEveryExportSaysWhy) {
  testing::DirectorioTemporal otro;
  const std::string basura = (otro.ruta() / "orvex-marc.so").string();
  std::ofstream(basura) << "no es una biblioteca";
  const struct {
    const char* caso;
    std::vector<std::string> rutas;
    std::string error;
  } casos[] = {
      {"missing", {"/no/existe/orvex-marc.so"},
       Latin1("no se encontró orvex-marc.so: la exportación de fichas no está instalada")},
      {"not a library", {basura}, Latin1("no se pudo cargar ") + basura},
      {"another library", {OtraBiblioteca()},
       OtraBiblioteca() + Latin1(" no es el módulo de exportación de esta versión de Orvex")},
  };
  for (const auto& c : casos) {
    SCOPED_TRACE(c.caso);
    ModuloMarc modulo(c.rutas);
    for (Formato f : {Formato::Ris, Formato::Marc21}) {
      const Exportacion e = modulo.Exporta(f, Fichas(), *biblio_);
      EXPECT_FALSE(e.correcta);
      EXPECT_EQ(e.contenido, "");
      EXPECT_TRUE(e.error.starts_with(c.error)) << e.error;
      EXPECT_EQ(e.extension, f == Formato::Ris ? "ris" : "mrc");
    }
    EXPECT_EQ(modulo.Cita(Fichas()[0], *biblio_), "");
  }
}

// Whether YAZ is mapped into this process.
bool YazCargado() {
  std::ifstream mapas("/proc/self/maps");
  std::stringstream texto;
  texto << mapas.rdbuf();
  return texto.str().find("libyaz") != std::string::npos;
}

TEST_F(Catalogo, YazIsLoadedOnlyWithTheModule) {
  // In a fresh process: the program's side links no YAZ.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const bool antes = YazCargado();
        ModuloMarc modulo({ORVEX_MODULO_MARC});
        const bool exporta = modulo.Exporta(Formato::Ris, Fichas(), *biblio_).correcta;
        std::exit(!antes && exporta && YazCargado() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvex::exportacion
