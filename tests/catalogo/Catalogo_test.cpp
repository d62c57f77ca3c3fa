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
#include "tests/catalogo/MARCPrueba.h"
#include "tests/support/Fakes.h"

namespace orvex::catalogo {
namespace {

namespace fs = std::filesystem;
using prueba::RegistroISO;

std::string Lee(const fs::path& p) {
  std::ifstream f(p, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

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
  EXPECT_NE(mensajes_.find("orvex-catalogo: 3 fichas escritas en " + dir.string() +
                           ", 1 registros rechazados, "),
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

// A run that cannot finish leaves the previous catalogue exactly as it was.
TEST_F(CatalogoTest, FailingRunsLeaveThePreviousCatalogueUntouched) {
  const fs::path dir = tmp_.ruta() / "catalogo";
  Previo(dir);
  const std::string antes = Lee(dir / "KORVEL8.MDB");
  const std::string indice_antes = Lee(dir / "INDIZADO.MDB");
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
    EXPECT_EQ(Lee(dir / "KORVEL8.MDB"), antes) << c.mensaje;
    EXPECT_EQ(Lee(dir / "INDIZADO.MDB"), indice_antes) << c.mensaje;
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
  EXPECT_EQ(Lee(dir / "FichaWeb.XSL"), "<hoja/>");
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
