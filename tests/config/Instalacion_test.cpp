#include "config/Instalacion.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "config/Plantillas.h"
#include "tests/support/Fakes.h"

namespace orvex::config {
namespace {

namespace fs = std::filesystem;

const fs::path kKorvel = fs::path(ORVEX_FIXTURES) / "catalogo" / "sqlite" / "KORVEL8.MDB";
const std::string kNoCargo = "No se carg\xF3 XSL_personal<br>\r\n";

class InstalacionTest : public ::testing::Test {
 protected:
  void Carga(std::string_view acervo, std::string_view ruta_base = "/bases") {
    CargaConfiguracion(ins_, *db_, acervo, ruta_base, p_.sys);
  }
  void VaciaSalida() {
    p_.salida.contents.clear();
    p_.salida.position = 0;
  }
  std::unique_ptr<db::Database> db_ =
      db::OpenDatabase(kKorvel.string(), CodePage::Windows1252(), {.read_only = true});
  testing::FakePlatform p_;
  Instalacion ins_;
};

TEST_F(InstalacionTest, ReadsTheTableAndFillsTheBookDefaults) {
  Carga("LIBROS");
  EXPECT_EQ(ins_.Institucion, "Universidad Aut\xF3noma de San Telmo");
  EXPECT_EQ(ins_.Departamento, "Direcci\xF3n General de Bibliotecas");
  EXPECT_EQ(ins_.XMLEtiquetasGlobal, "008,020,100,245,260,650");
  EXPECT_TRUE(ins_.AnaNumeraEncabezamientos);
  EXPECT_EQ(ins_.CatalogoLibrosDefault, "020,082,100,110,111,245,250,260,300,440,500,600,650,700");
  ASSERT_EQ(ins_.EtiquetasXML.size(), 42u);
  EXPECT_EQ(ins_.EtiquetasXML[2], "050");
  EXPECT_EQ(ins_.EtiquetasXML[40], "590");
  EXPECT_EQ(ins_.EtiquetasXML[41], "856");
  EXPECT_EQ(ins_.XSLFichaLibros, HojaFichaIntegrada());
  EXPECT_EQ(ins_.XSLTablaLibros, HojaAviso("XSL_Tabla_Libros"));
  EXPECT_EQ(ins_.XSLFichaPublicaciones, "");  // the periodicals' sheets wait for their collection
  EXPECT_EQ(ins_.XSLPersonalLibros, "");
  // The comment opened here stays open.
  EXPECT_EQ(p_.salida.contents, "<!-- Ruta BD: /bases/<br>\r\n" + kNoCargo);
}

TEST(InstalacionHojas, TheNoticeNamesTheMissingSheet) {
  EXPECT_EQ(HojaAviso("XSL_Tabla_Libros"),
            "<?xml version='1.0'?><xsl:stylesheet xmlns:xsl='http://www.w3.org/TR/WD-xsl'>"
            "<xsl:template><html><body><center><font face='arial' size='5'><font color='red'> "
            "<b> No se encontr\xF3 la referencia XSL_Tabla_Libros </b> </font></font></center> "
            "</body></html></xsl:template></xsl:stylesheet>");
}

TEST(InstalacionHojas, TheBuiltInRecordSheetIsWorkingDraftXslInCrLfLines) {
  const std::string& hoja = HojaFichaIntegrada();
  EXPECT_EQ(hoja.rfind("<?xml", 0), 0u);
  std::string una_linea = hoja;
  ReemplazaTexto(una_linea, "\r\n", "");
  EXPECT_EQ(una_linea.find_first_of("\r\n"), std::string::npos);  // no bare CR or LF
  EXPECT_NE(una_linea, hoja);
  for (const char* parte : {"xmlns:xsl=\"http://www.w3.org/TR/WD-xsl\"", "FICHA/@Numero",
                            "No. Adquisici\xF3n</th>", "FICHA/EXISTENCIAS/EJEMPLAR\">\r\n<tr>"}) {
    EXPECT_NE(hoja.find(parte), std::string::npos) << parte;
  }
}

TEST_F(InstalacionTest, LoadsTheBooksPersonalSheetFromTheProgramOrTheDatabases) {
  struct Case {
    std::string archivo, ruta_base, salida, hoja;
  } cases[] = {
      {"/prog/XSLs/fichaWeb.xsl", "/bases",
       "<!-- Ruta app: /prog/XSLs/<br>\r\nXSL_personal cargado, <br> -->\r\n", "<hoja/>"},
      {"/bases/FICHAWEB.XSL", "/bases/",
       "<!-- Ruta BD: /bases/<br>\r\nXSL_personal cargado, <br> -->\r\n", "<hoja/>"},
      {"/prog/fichaWeb.xsl", "", "<!-- Ruta BD: /<br>\r\n" + kNoCargo, ""},
  };
  for (const Case& c : cases) {
    VaciaSalida();
    p_.archivos.files = {{c.archivo, "<hoja/>"}};
    ins_.XSLPersonalLibros.clear();
    Carga("", c.ruta_base);
    EXPECT_EQ(p_.salida.contents, c.salida) << c.archivo;
    EXPECT_EQ(ins_.XSLPersonalLibros, c.hoja) << c.archivo;
  }
  VaciaSalida();
  ins_.XSLPersonalLibros = "ya";
  Carga("LIBROS");  // a sheet already loaded is not looked for again
  EXPECT_EQ(p_.salida.contents, "");
}

TEST_F(InstalacionTest, OtherCollectionsGetNoticesAndTheirOwnPersonalSheets) {
  Carga("REVISTAS");
  EXPECT_EQ(p_.salida.contents,
            "<!--/prog/XSLs/pp_propia.xsl -->\r\n"
            "<!-- UPSSS no se pudo cargar XSLpersonalRev -->\r\n"
            "<!--/prog/XSLs/pp_propia_ana.xsl -->\r\n"
            "<!-- UPSSS no se pudo cargar XSLpersonalANA -->\r\n");
  EXPECT_EQ(ins_.XSLFichaPublicaciones, HojaAviso("XSL_Ficha_Publicaciones"));
  EXPECT_EQ(ins_.XSLTablaPublicaciones, HojaAviso("XSL_Tabla_Publicaciones"));
  EXPECT_EQ(ins_.XSLFichaAnalitica, HojaAviso("XSL_Ficha_Publicaciones"));
  EXPECT_EQ(ins_.XSLTablaAnalitica, HojaAviso("XSL_Tabla_Publicaciones"));
  EXPECT_EQ(ins_.XSLTablaLibros, "");
  EXPECT_EQ(ins_.XSLFichaLibros, HojaFichaIntegrada());

  VaciaSalida();
  p_.archivos.files = {{"/prog/XSLs/pp_propia.xsl", "rev"},
                       {"/prog/XSLs/PP_Propia_Ana.xsl", "ana"}};
  Carga("ARTICULOS");
  EXPECT_EQ(p_.salida.contents,
            "<!--/prog/XSLs/pp_propia.xsl -->\r\n"
            "<!-- XSLpersonalRev cargado con exito-->\r\n"
            "<!--/prog/XSLs/pp_propia_ana.xsl -->\r\n"
            "<!-- XSLpersonalRevANA cargadao con exito-->\r\n");
  EXPECT_EQ(ins_.XSLPersonalRevistas, "rev");
  EXPECT_EQ(ins_.XSLPersonalAnalitica, "ana");
}

TEST(InstalacionTabla, ReadsKeysInAnyCaseAndRaisesOnBadValuesOrNoTable) {
  testing::DirectorioTemporal tmp;
  auto db = db::OpenDatabase(tmp.Copia(kKorvel, "KORVEL8.MDB").string(), CodePage::Windows1252());
  db->Execute("INSERT INTO Configuracion VALUES ('xslfichalibros', 'mia')");
  db->Execute("INSERT INTO Configuracion VALUES ('INSTITUCION', 'Otra')");
  db->Execute("INSERT INTO Configuracion VALUES ('CatalogoLibrosDefault', '245')");
  testing::FakePlatform p;
  Instalacion ins;
  CargaConfiguracion(ins, *db, "LIBROS", "/bases", p.sys);
  EXPECT_EQ(ins.XSLFichaLibros, "mia");
  EXPECT_EQ(ins.Institucion, "Otra");  // the later row wins
  EXPECT_EQ(ins.CatalogoLibrosDefault, "245");

  const std::string cambia_ana =
      "UPDATE Configuracion SET Valor = '%' WHERE [Descripci\xF3n] = 'ANA_NUMERA_ENCABEZAMIENTOS'";
  struct Case {
    std::string valor;
    int error;
  } cases[] = {{"quizas", kErrTiposNoCoinciden}, {"", 0}, {"-1", 0}};
  for (const Case& c : cases) {
    std::string sql = cambia_ana;
    db->Execute(sql.replace(sql.find('%'), 1, c.valor));
    Instalacion otra;
    EXPECT_EQ(testing::ErrorNumberOf([&] { CargaConfiguracion(otra, *db, "", "", p.sys); }),
              c.error)
        << c.valor;
    EXPECT_EQ(otra.AnaNumeraEncabezamientos, c.valor == "-1") << c.valor;
  }

  db->Execute("DROP TABLE Configuracion");
  EXPECT_EQ(testing::ErrorNumberOf([&] { CargaConfiguracion(ins, *db, "", "", p.sys); }),
            db::kErrTablaNoEncontrada);
  db->Close();
}

}  // namespace
}  // namespace orvex::config
