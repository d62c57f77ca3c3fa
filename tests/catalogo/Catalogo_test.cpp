#include "catalogo/Catalogo.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/CodePage.h"
#include "db/Database.h"
#include "records/CargaFicha.h"
#include "search/Indice.h"
#include "tests/support/MARCPrueba.h"
#include "tests/support/Fakes.h"

namespace orvex::catalogo {
namespace {

namespace fs = std::filesystem;
using prueba::RegistroISO;

std::vector<std::string> Nombres(const fs::path& dir) {
  std::vector<std::string> v;
  for (const auto& e : fs::directory_iterator(dir)) v.push_back(e.path().filename().string());
  std::sort(v.begin(), v.end());
  return v;
}

const std::string kPrimero = RegistroISO({
    {"001", "r1"},
    {"008", "020823s1987    sp                  spa d"},
    {"020", "  $a84-376-0494-X"},
    {"100", "1 $aGarcía Márquez, Gabriel,$d1927-2014."},
    {"245", "10$aCien años de soledad /$cGabriel García Márquez."},
    {"260", "  $aMadrid :$bCátedra,$c1987."},
    {"650", " 4$aNovela colombiana"},
    {"852", "  $aCentral$p000123"},
});

std::string Danado() {
  std::string r = RegistroISO({{"001", "malo"}, {"245", "10$aNada."}});
  return r.replace(0, 5, "00099");
}

const std::string kSegundo = RegistroISO({
    {"001", "r2"},
    {"245", "13$aLa casa de los espíritus /$cIsabel Allende."},
    {"260", "  $aBarcelona :$bPlaza & Janés,$c1982."},
});

const std::string kXML =
    "<?xml version=\"1.0\"?><collection xmlns=\"http://www.loc.gov/MARC21/slim\"><record>"
    "<leader>00000nam a2200000 a 4500</leader><controlfield tag=\"001\">r3</controlfield>"
    "<datafield tag=\"245\" ind1=\"0\" ind2=\"0\"><subfield code=\"a\">Historia de América "
    "Latina</subfield></datafield></record></collection>";

class CatalogoTest : public ::testing::Test {
 protected:
  testing::DirectorioTemporal tmp_;
  std::string mensajes_;

  fs::path Archivo(const std::string& nombre, const std::string& bytes) {
    return prueba::EscribeArchivo(tmp_.ruta() / nombre, bytes);
  }

  int Construye(const std::vector<std::string>& args) {
    Opciones o;
    std::string error;
    EXPECT_EQ(LeeOpciones(args, o, error), kSalidaExito) << error;
    std::ostringstream m;
    const int r = ConstruyeCatalogo(o, testing::SampleDate(), m);
    mensajes_ = m.str();
    return r;
  }

  // A catalogue of one record in `dir`.
  void Previo(const fs::path& dir) {
    ASSERT_EQ(Construye({"--silencioso", dir.string(), Archivo("previo.mrc", kSegundo).string()}),
              kSalidaExito);
    EXPECT_EQ(mensajes_, "");  // neither progress nor summary
  }

  // The parent holds the catalogue and the inputs, no temporary directory.
  void SinRestos() {
    for (const std::string& n : Nombres(tmp_.ruta())) {
      EXPECT_EQ(n.find(".nuevo-"), std::string::npos) << n;
      EXPECT_EQ(n.find(".anterior-"), std::string::npos) << n;
    }
  }
};

TEST_F(CatalogoTest, BuildsACatalogueTheGatewayReads) {
  const fs::path dir = tmp_.ruta() / "catalogo";
  const fs::path mrc = Archivo("libros.mrc", kPrimero + Danado() + "\n" + kSegundo);
  const fs::path xml = Archivo("mas.xml", kXML);
  ASSERT_EQ(Construye({"--biblioteca", "Sala", "--institucion", "Universidad Autónoma",
                       "--departamento=Biblioteca", dir.string(), mrc.string(), xml.string()}),
            kSalidaExito)
      << mensajes_;
  EXPECT_NE(mensajes_.find("orvex-catalogo: " + mrc.string() +
                           ": registro 2 (001 malo): longitud del registro no válida"),
            std::string::npos)
      << mensajes_;
  EXPECT_NE(mensajes_.find("orvex-catalogo: 3 libros, 0 revistas y 0 artículos escritos en " +
                           dir.string() + ", 1 registros rechazados, "),
            std::string::npos)
      << mensajes_;
  EXPECT_EQ(Nombres(dir), (std::vector<std::string>{"INDIZADO.MDB", "KORVEL8.MDB",
                                                    "estadisticas.mdb", "indizaPP.MDB"}));
  SinRestos();

  const CodePage& cp = CodePage::Windows1252();
  auto korvel = db::OpenDatabase((dir / "KORVEL8.MDB").string(), cp, {.read_only = true});
  records::RegFicha ficha;
  records::CargaFicha(*korvel, 1, ficha);
  ASSERT_EQ(ficha.Ficha_no, 1);
  EXPECT_NE(ficha.EtiquetasMARC.find(Latin1("¦245Cien años de soledad / Gabriel García Márquez.¦")),
            std::string::npos)
      << ficha.EtiquetasMARC;
  EXPECT_EQ(ficha.DatosFijos, "020823s1987    sp                  spa d");
  EXPECT_EQ(ficha.TipoMaterial, 1);
  ASSERT_TRUE(ficha.Fecha.has_value());
  EXPECT_EQ(ficha.Fecha->year, 2002);
  EXPECT_EQ(ficha.Ejemplares.rfind("000123,Central,1,,,S,", 0), 0u) << ficha.Ejemplares;

  records::CargaFicha(*korvel, 2, ficha);
  ASSERT_EQ(ficha.Ficha_no, 2);  // the refused record took no number
  EXPECT_NE(ficha.EtiquetasMARC.find(Latin1("espíritus")), std::string::npos);
  EXPECT_EQ(ficha.Ejemplares.rfind("000002,Sala,1,,,S,", 0), 0u) << ficha.Ejemplares;
  records::CargaFicha(*korvel, 3, ficha);
  ASSERT_EQ(ficha.Ficha_no, 3);
  EXPECT_EQ(ficha.EtiquetasMARC, Latin1("¦001r3¦245Historia de América LatinaÌ"));
  records::CargaFicha(*korvel, 4, ficha);
  EXPECT_EQ(ficha.Ficha_no, 0);

  auto conf = korvel->OpenRecordset("select * from Configuracion", db::RecordsetType::Snapshot);
  std::vector<std::string> filas;
  for (; !conf->Eof(); conf->MoveNext()) {
    filas.push_back(conf->Field(Latin1("Descripción")).AsText() + "=" +
                    conf->Field("Valor").AsText());
  }
  EXPECT_EQ(filas, (std::vector<std::string>{Latin1("Institucion=Universidad Autónoma"),
                                             "Departamento=Biblioteca"}));
  for (const char* vacia : {"Fichas Revistas", "Analiticas"}) {
    EXPECT_TRUE(korvel->OpenRecordset(vacia, db::RecordsetType::Table)->Eof()) << vacia;
  }

  // Words and phrases through the search's own lookups.
  auto indice = db::OpenDatabase((dir / "INDIZADO.MDB").string(), cp, {.read_only = true});
  const struct {
    const char* texto;
    std::int16_t campo;  // -1: a phrase
    std::vector<std::int32_t> fichas;
  } busquedas[] = {
      {"años", 0, {1}},        {"historia", 1, {3}},        {"historia", 2, {}},
      {"espíritus", 0, {2}},   {"843760494X", 4, {1}},      {"catedra", 5, {1}},
      {"américa latina", -1, {3}}, {"soledad gabriel", -1, {1}},
      {"marquez madrid", -1, {}},  // the end of the title and the publisher are no phrase
  };
  for (const auto& b : busquedas) {
    search::Estado e;
    std::string palabra = Latin1(b.texto), tabla;
    if (b.campo < 0) {
      search::BuscaFrase(e, *indice, palabra, 0, false);
    } else {
      search::BuscaPalabra(e, *indice, palabra, b.campo, tabla);
    }
    std::vector<std::int32_t> fichas;
    for (std::int32_t f = 1; f <= 10; ++f) {
      if (e.MapaTermino.Tiene(f)) fichas.push_back(f);
    }
    EXPECT_EQ(fichas, b.fichas) << b.texto;
  }
  auto pp = db::OpenDatabase((dir / "indizaPP.MDB").string(), cp, {.read_only = true});
  EXPECT_EQ(pp->TableNames(), (std::vector<std::string>{"TABLA", "TABLAANA"}));
  auto est = db::OpenDatabase((dir / "estadisticas.mdb").string(), cp, {.read_only = true});
  EXPECT_TRUE(est->OpenRecordset("Consultas", db::RecordsetType::Table)->Eof());
}

// The rows of `sql`, each row's columns joined by "|", in UTF-8.
std::vector<std::string> Filas(db::Database& base, const std::string& sql) {
  std::vector<std::string> filas;
  auto rs = base.OpenRecordset(sql, db::RecordsetType::Snapshot);
  for (; !rs->Eof(); rs->MoveNext()) {
    std::string fila;
    for (const std::string& columna : rs->FieldNames()) {
      if (!fila.empty()) fila += "|";
      fila += CodePage::Windows1252().ToUtf8(rs->Field(columna).AsText());
    }
    filas.push_back(fila);
  }
  return filas;
}

// Records whose word `palabra` (UTF-8) is in field `campo` of word table
// `tabla` (0: any field), by the search's own lookup.
std::vector<std::int32_t> Encuentra(db::Database& indice, const std::string& tabla,
                                    const char* palabra, std::int16_t campo) {
  search::Estado e;
  std::string p = Latin1(palabra), t = tabla;
  search::BuscaPalabraSQL(e, indice, p, campo, t);
  std::vector<std::int32_t> fichas;
  for (std::int32_t f = 1; f <= 10; ++f) {
    if (e.MapaTermino.Tiene(f)) fichas.push_back(f);
  }
  return fichas;
}

// Periodicals (leader/7 "s") and articles (leader/7 "a" or "b") go to their
// own tables and word tables, numbered among their own kind; books keep
// theirs.
TEST_F(CatalogoTest, SortsPeriodicalsAndArticlesIntoTheirOwnTables) {
  const std::string revista = RegistroISO(
      {
          {"001", "s1"},
          {"022", "  $a0041-3011"},
          {"245", "00$aEl trimestre económico."},
          {"260", "  $aMéxico :$bFondo de Cultura Económica,$c1934-"},
          {"310", "  $aTrimestral"},
          {"650", " 4$aEconomía$vPublicaciones periódicas"},
          {"852", "  $aHemeroteca$pP000001"},
      },
      'a', 'a', 's');
  const std::string con852 = RegistroISO(
      {
          {"001", "a1"},
          {"100", "1 $aNúñez Ordóñez, Carlos."},
          {"245", "10$aLa casa y las haciendas en Oaxaca /$cCarlos Núñez."},
          {"773", "0 $tEl trimestre económico.$gVol. 47, no. 2 (2003), p. 326-335$oX-773"},
          {"650", " 4$aHaciendas"},
          {"852", "  $aHemeroteca$pP006647"},
          {"852", "  $aHemeroteca$pP009999"},
      },
      'a', 'a', 'a');
  const std::string con773 = RegistroISO(
      {
          {"001", "b1"},
          {"100", "1 $aGüemes, Julián."},
          {"245", "10$aNotas sobre la infancia en Chiapas."},
          {"773", "0 $tCuadernos americanos.$gNo. 4 (1983)$oP004177"},
      },
      'a', 'a', 'b');
  const std::string sin_numero = RegistroISO(
      {{"001", "a3"}, {"245", "10$aReseñas."}, {"773", "0 $tCuadernos americanos."}}, 'a', 'a',
      'a');
  const fs::path dir = tmp_.ruta() / "catalogo";
  ASSERT_EQ(Construye({"--biblioteca", "Sala", dir.string(),
                       Archivo("mixto.mrc", con852 + kPrimero + revista + con773 + sin_numero +
                                                kSegundo)
                           .string()}),
            kSalidaExito)
      << mensajes_;
  EXPECT_NE(mensajes_.find("orvex-catalogo: 2 libros, 1 revistas y 3 artículos escritos en "),
            std::string::npos)
      << mensajes_;

  const CodePage& cp = CodePage::Windows1252();
  auto korvel = db::OpenDatabase((dir / "KORVEL8.MDB").string(), cp, {.read_only = true});
  EXPECT_EQ(Filas(*korvel, "select Ficha_No from Fichas order by Ficha_No"),
            (std::vector<std::string>{"1", "2"}));
  records::RegFicha ficha;
  records::CargaFicha(*korvel, 2, ficha);
  EXPECT_NE(ficha.EtiquetasMARC.find(Latin1("espíritus")), std::string::npos);
  // Only books have copies: neither the periodical's 852 nor the articles'.
  EXPECT_EQ(Filas(*korvel, "select NumAdqui, Ficha_No from Ejemplares order by Ficha_No"),
            (std::vector<std::string>{"000123|1", "000002|2"}));
  EXPECT_EQ(Filas(*korvel, "select * from [Fichas Revistas]"),
            (std::vector<std::string>{
                "1|¦001s1¦0220041-3011¦245El trimestre económico.¦260México : Fondo de Cultura "
                "Económica, 1934-¦310Trimestral¦650Economía -- Publicaciones periódicas"
                "¦852Hemeroteca P000001Ì"}));
  EXPECT_EQ(Filas(*korvel, "select * from Analiticas order by ID"),
            (std::vector<std::string>{
                "1|P006647|¦001a1¦100Núñez Ordóñez, Carlos.¦245La casa y las haciendas en Oaxaca "
                "/ Carlos Núñez.¦773El trimestre económico. Vol. 47, no. 2 (2003), p. 326-335 "
                "X-773¦650Haciendas¦852Hemeroteca P006647 \\ Hemeroteca P009999Ì",
                "2|P004177|¦001b1¦100Güemes, Julián.¦245Notas sobre la infancia en Chiapas."
                "¦773Cuadernos americanos. No. 4 (1983) P004177Ì",
                "3||¦001a3¦245Reseñas.¦773Cuadernos americanos.Ì"}));
  // The articles of one issue, as the article page asks for them.
  EXPECT_EQ(Filas(*korvel, "SELECT [ID] as IdAnalitica FROM Analiticas WHERE "
                           "Analiticas.numadqui='P004177' ORDER by 1 DESC"),
            (std::vector<std::string>{"2"}));

  auto libros = db::OpenDatabase((dir / "INDIZADO.MDB").string(), cp, {.read_only = true});
  auto pp = db::OpenDatabase((dir / "indizaPP.MDB").string(), cp, {.read_only = true});
  const struct {
    db::Database* indice;
    const char* tabla;
    const char* palabra;
    std::int16_t campo;
    std::vector<std::int32_t> fichas;
  } busquedas[] = {
      // Books: the first and the last record of the file are books 1 and 2.
      {libros.get(), "TABLA", "soledad", 1, {1}},
      {libros.get(), "TABLA", "espíritus", 0, {2}},
      {libros.get(), "TABLA", "trimestre", 0, {}},
      {libros.get(), "TABLA", "casa", 0, {2}},  // the book's title, not the article's
      {libros.get(), "TABLA", "infancia", 0, {}},
      // Periodicals: title 1, publisher 2, subject 3; the ISSN and 310 not at all.
      {pp.get(), "TABLA", "trimestre", 1, {1}},
      {pp.get(), "TABLA", "fondo", 2, {1}},
      {pp.get(), "TABLA", "economia", 3, {1}},
      {pp.get(), "TABLA", "00413011", 0, {}},
      {pp.get(), "TABLA", "trimestral", 0, {}},
      {pp.get(), "TABLA", "casa", 0, {}},
      // Articles: title 1, author 2, subject 3; the host entry (773) not at all.
      {pp.get(), "TABLAANA", "casa", 1, {1}},
      {pp.get(), "TABLAANA", "nuñez", 2, {1}},
      {pp.get(), "TABLAANA", "haciendas", 3, {1}},
      {pp.get(), "TABLAANA", "guemes", 2, {2}},
      {pp.get(), "TABLAANA", "reseñas", 1, {3}},
      {pp.get(), "TABLAANA", "americanos", 0, {}},
      {pp.get(), "TABLAANA", "trimestre", 0, {}},
  };
  for (const auto& b : busquedas) {
    EXPECT_EQ(Encuentra(*b.indice, b.tabla, b.palabra, b.campo), b.fichas)
        << b.tabla << " " << b.palabra << " " << b.campo;
  }
  // A phrase over the article words.
  search::Estado e;
  search::BuscaFrase(e, *pp, Latin1("la infancia en chiapas"), 0, true);
  EXPECT_TRUE(e.MapaTermino.Tiene(2));
  EXPECT_FALSE(e.MapaTermino.Tiene(1));
  // The word lists beside the book TABLA count the book rows only.
  const std::vector<std::string> filas_libros = Filas(*libros, "select count(*) from TABLA");
  EXPECT_EQ(Filas(*libros, "select filas from ORVEX_VIGENCIA"), filas_libros);
  for (const char* indice : {"TABLA_FRASE", "TABLAANA_FRASE"}) {
    EXPECT_EQ(Filas(*pp, std::string("select name from sqlite_master where name='") + indice +
                             "'"),
              (std::vector<std::string>{indice}));
  }
}

// A run that cannot finish leaves the previous catalogue exactly as it was.
TEST_F(CatalogoTest, FailingRunsLeaveThePreviousCatalogueUntouched) {
  const fs::path dir = tmp_.ruta() / "catalogo";
  Previo(dir);
  const std::string antes = testing::ReadFile(dir / "KORVEL8.MDB");
  const std::string indice_antes = testing::ReadFile(dir / "INDIZADO.MDB");
  ASSERT_FALSE(antes.empty());
  const std::string bueno = Archivo("bueno.mrc", kPrimero).string();
  const struct {
    std::vector<std::string> args;
    const char* mensaje;
  } casos[] = {
      {{dir.string(), bueno, (tmp_.ruta() / "no-existe.mrc").string()}, "no se puede leer"},
      {{dir.string(), bueno, tmp_.ruta().string()}, "no es un archivo"},
      {{dir.string(), Archivo("malo.mrc", Danado()).string()}, "ningún registro pudo leerse"},
      {{dir.string(), Archivo("vacio.mrc", "").string()}, "ningún registro pudo leerse"},
      {{(dir / "KORVEL8.MDB").string(), bueno}, "existe y no es un directorio"},
      {{(tmp_.ruta() / "no" / "hay").string(), bueno}, "no existe el directorio"},
  };
  for (const auto& c : casos) {
    EXPECT_EQ(Construye(c.args), kSalidaFallo) << c.mensaje;
    EXPECT_NE(mensajes_.find(c.mensaje), std::string::npos) << mensajes_;
    EXPECT_NE(mensajes_.find("no se modificó"), std::string::npos) << mensajes_;
    EXPECT_EQ(testing::ReadFile(dir / "KORVEL8.MDB"), antes) << c.mensaje;
    EXPECT_EQ(testing::ReadFile(dir / "INDIZADO.MDB"), indice_antes) << c.mensaje;
    SinRestos();
  }
}

TEST_F(CatalogoTest, DirectoryHoldingOtherFilesIsNotReplaced) {
  const fs::path dir = tmp_.ruta() / "catalogo";
  Previo(dir);
  prueba::EscribeArchivo(dir / "libros.cfg", "BASE:{.}");
  EXPECT_EQ(Construye({dir.string(), Archivo("b.mrc", kPrimero).string()}), kSalidaFallo);
  EXPECT_NE(mensajes_.find("contiene \"libros.cfg\""), std::string::npos) << mensajes_;
  EXPECT_TRUE(fs::exists(dir / "libros.cfg"));
  EXPECT_TRUE(fs::exists(dir / "KORVEL8.MDB"));
}

TEST_F(CatalogoTest, RebuildReplacesTheCatalogueAndKeepsItsPermissions) {
  const fs::path dir = tmp_.ruta() / "catalogo";
  Previo(dir);
  // Companions of the old files go with them; the installation's sheet stays.
  prueba::EscribeArchivo(dir / "estadisticas.mdb-wal", "x");
  prueba::EscribeArchivo(dir / "FichaWeb.XSL", "<hoja/>");
  ASSERT_EQ(chmod(dir.c_str(), 0750), 0);
  ASSERT_EQ(Construye({"--silencioso", dir.string() + "/", Archivo("b.mrc", kPrimero).string()}),
            kSalidaExito)
      << mensajes_;
  struct stat st;
  ASSERT_EQ(stat(dir.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0750u);
  EXPECT_FALSE(fs::exists(dir / "estadisticas.mdb-wal"));
  EXPECT_EQ(testing::ReadFile(dir / "FichaWeb.XSL"), "<hoja/>");
  auto korvel = db::OpenDatabase((dir / "KORVEL8.MDB").string(), CodePage::Windows1252(),
                                 {.read_only = true});
  records::RegFicha ficha;
  records::CargaFicha(*korvel, 1, ficha);
  EXPECT_NE(ficha.EtiquetasMARC.find(Latin1("Cien años")), std::string::npos);
  SinRestos();
}

// A rebuild keeps the library's search statistics, rows still in the
// write-ahead log included; a statistics file SQLite cannot read is reported
// and the rebuilt catalogue starts with empty statistics.
TEST_F(CatalogoTest, RebuildKeepsTheSearchStatistics) {
  const fs::path dir = tmp_.ruta() / "catalogo";
  Previo(dir);
  {
    auto estadisticas = db::OpenDatabase((dir / "estadisticas.mdb").string(),
                                         CodePage::Windows1252(), {.busy_timeout_ms = 1000});
    for (int i = 0; i < 3; ++i) {
      estadisticas->Execute(
          "INSERT INTO Consultas (Fecha,Buscado,Encontrados,AdvSearch,IP_Address) VALUES "
          "(#12/15/2008 09:30:11#,'HISTORIA'," + std::to_string(i) + ",2,'-')");
    }
  }
  ASSERT_TRUE(fs::exists(dir / "estadisticas.mdb-wal"));  // the rows wait in the log
  const auto filas = [&dir] {
    auto bd = db::OpenDatabase((dir / "estadisticas.mdb").string(), CodePage::Windows1252(),
                               {.read_only = true});
    auto rs = bd->OpenRecordset("select * from Consultas", db::RecordsetType::Snapshot);
    int n = 0;
    for (; !rs->Eof(); rs->MoveNext()) ++n;
    return n;
  };
  ASSERT_EQ(Construye({"--silencioso", dir.string(), Archivo("b.mrc", kPrimero).string()}),
            kSalidaExito);
  EXPECT_EQ(mensajes_, "");
  EXPECT_EQ(filas(), 3);

  prueba::EscribeArchivo(dir / "estadisticas.mdb", "no es una base de datos");
  fs::remove(dir / "estadisticas.mdb-wal");
  fs::remove(dir / "estadisticas.mdb-shm");
  ASSERT_EQ(Construye({"--silencioso", dir.string(), Archivo("b.mrc", kPrimero).string()}),
            kSalidaExito);
  EXPECT_NE(mensajes_.find("no se conservaron las estad"), std::string::npos) << mensajes_;
  EXPECT_EQ(filas(), 0);
  SinRestos();
}

TEST(LeeOpciones, BadUsageSaysWhatIsWrong) {
  std::string error;
  const struct {
    std::vector<std::string> args;
    const char* error;
  } casos[] = {
      {{"dir"}, "falta al menos un ARCHIVO de registros MARC"},
      {{"--biblioteca"}, "falta el valor de --biblioteca"},
      {{"--otra", "dir", "a"}, "opción desconocida: --otra"},
      {{"--biblioteca", std::string(51, 'x'), "dir", "a"},
       "--biblioteca admite a lo sumo 50 caracteres"},
      {{"--departamento", "Direcci\xF3n", "dir", "a"},
       "el valor de --departamento no es UTF-8 válido"},
  };
  for (const auto& c : casos) {
    Opciones p;
    EXPECT_EQ(LeeOpciones(c.args, p, error), kSalidaUso) << c.error;
    EXPECT_EQ(error, c.error);
  }
}

}  // namespace
}  // namespace orvex::catalogo
