// The attacks an anonymous client could make on a public catalogue, made
// against the real binary: each must fail, and the page must be what a
// reader should see. Every test here failed while its attack worked.

#include <gtest/gtest.h>

#include "db/JetSql.h"
#include "tests/support/ProgramaCGI.h"

namespace orvex {
namespace {

using namespace testing;

constexpr const char* kKorvel = "bases/KORVEL8.MDB";
const std::string kSinCFG = "No se encontr\xF3 la definici\xF3n del archivo CFG";
const std::string kTiempoAgotado = "Timer Out:52--";

// A book configuration over the catalogue copied into the program's bases/.
const std::string kConfiguracion =
    "BASE:{@BASES@}\r\n"
    "ENCABEZADO:{<html><body>}\r\n"
    "ENCABEZADO2:{<p>Buscado: <!txtEXPR!> | Libre: <!TXTLIB!> | Titulo: <!TXTTIT!> | Acervo: "
    "<!ACERVO!> | <a href=\"orvex?ArchivoCFG=<!ArchivoCFG!>&amp;txtLIB=<!TXTLIB!>\">otra vez</a></p>}\r\n"
    "FORMATO:{<div><!NFICHA!> <!#245!> <!FICHA3!> <!FICHABDL!></div>}\r\n"
    "SEPARADOR:{<hr/>}\r\n"
    "NOENCONTRADO:{<p>Nada para <!TXTLIB!> <!TXTTIT!> en <!ACERVO!></p>}\r\n"
    "FINAL:{</body></html>}\r\n"
    "TABLA:{Ejemplares}\r\n"
    "RESERVA_MATERIAL:{<form><input name=\"direccionIP\" value=\"<!DIRECCIONIP!>\">"
    "<input name=\"puertoTCP\" value=\"<!PUERTOTCP!>\"><input name=\"NumAdqui\" "
    "value=\"<!DISP_NUMADQUI!>\"><input name=\"ArchivoCFG\" value=\"<!ArchivoCFG!>\"></form>}\r\n"
    "MSG_RESERVA_EXITOSA:{<p><!ESTATUS_RESERVA!></p>}\r\n"
    "MSG_RESERVA_ERROR:{<p><!ESTATUS_RESERVA!></p>}\r\n";

// A program directory with the catalogue in bases/ and the configuration
// above as libros.cfg (or the one given).
ProgramaCGI Instalacion(const std::string& nombre, const std::string& cfg = kConfiguracion) {
  return ProgramaCGI("seguridad_" + nombre,
                     {.bases = Bases::Sqlite, .archivos = {{"libros.cfg", cfg}}});
}

// Standard output is a pipe, as web servers give it: a page that writes a
// message and then the error page keeps both.
std::string PorTubo(const ProgramaCGI& programa, const std::string& query) {
  return programa.Pagina(APipe(Get(query)));
}

// The rows of the statistics table, each as "Buscado|IP_Address".
std::vector<std::string> Estadisticas(const ProgramaCGI& programa) {
  return programa.Filas("bases/estadisticas.mdb", "SELECT Buscado, IP_Address FROM Consultas");
}

// --- attacks that one request makes ---------------------------------------------

struct Ataque {
  const char* nombre;
  std::string query;
  std::map<std::string, std::string> variables;  // besides those of a GET
  std::vector<std::string> debe;     // what the page must hold
  std::vector<std::string> no_debe;  // what it must never hold
};

void PrintTo(const Ataque& a, std::ostream* os) { *os << a.nombre; }

const std::string kAgente =
    "BASE:{@BASES@/KORVEL8.MDB} TABLA:{Ejemplares} FORMATO:{FILA-<!#NumAdqui!>} "
    "ENCABEZADO:{<script>alert(1)</script>} DIAGNOSTICO:{127.0.0.1 ::1 0.}";
const std::string kGuion = "\"><script>alert('x')</script>&";
const std::string kGuionEscapado = "&quot;&gt;&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;&amp;";

std::vector<Ataque> Ataques() {
  return {
      // Reading any database: the request's own environment as the configuration.
      {"environ_como_configuracion",
       "ArchivoCFG=/proc/self/environ&ACERVO=CATALOGOS&CAMPO=Biblioteca&txtLIB=a&TIPOBUSQUEDA=1"
       "&Cantidad=50&FichaINI=1",
       {{"HTTP_USER_AGENT", kAgente}},
       {kSinCFG},
       {"FILA-", "<script>"}},
      {"environ_da_administrador", "ArchivoCFG=%2Fproc%2Fself%2Fenviron&txtLIB=DEBUGCFG",
       {{"HTTP_USER_AGENT", kAgente}}, {}, {"TABLA:{Ejemplares}", "DIAGNOSTICO"}},
      {"ruta_relativa", "ArchivoCFG=..%2Fseguridad_ruta_relativa%2Flibros.cfg&ACERVO=libros&txtLIB=novela", {},
       {kSinCFG}, {"<div>"}},
      {"otra_extension", "ArchivoCFG=orvex&ACERVO=libros&txtLIB=novela", {}, {kSinCFG}, {"<div>"}},
      // Reading what is not a file, or too much of one.
      {"dev_zero", "ArchivoCFG=/dev/zero&ACERVO=libros&txtLIB=novela", {}, {kSinCFG}, {}},
      {"passwd_con_debugcfg", "ArchivoCFG=/etc/passwd&txtLIB=DEBUGCFG", {}, {}, {"root:"}},
      // An administrator's command from the loopback (a reverse proxy, the demo).
      {"debugcfg_desde_el_proxy", "ArchivoCFG=libros.cfg&txtLIB=DEBUGCFG", {},
       {"reservado al administrador"}, {"RESERVA_MATERIAL", "@BASES@", "/bases"}},
      {"test_all_desde_el_proxy", "ArchivoCFG=libros.cfg&txtLIB=TEST_ALL", {},
       {"reservado al administrador"}, {"estadisticas.mdb", "/bases"}},
      // Script reflected into the page.
      {"txtlib_reflejado", "ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=" + Codifica(kGuion), {},
       {kGuionEscapado}, {"<script>"}},
      {"titulo_reflejado", "ArchivoCFG=libros.cfg&ACERVO=libros&txtTIT=" + Codifica(kGuion), {},
       {kGuionEscapado}, {"<script>"}},
      {"acervo_reflejado", "ArchivoCFG=libros.cfg&ACERVO=" + Codifica(kGuion) + "&txtLIB=novela", {},
       {"El acervo seleccionado para la consulta (&quot;&gt;&lt;SCRIPT&gt;"}, {"<SCRIPT>"}},
      {"archivocfg_reflejado", "ArchivoCFG=" + Codifica(kGuion + ".cfg") + "&ACERVO=libros&txtLIB=a", {},
       {kSinCFG}, {"<script>"}},
      {"listado_reflejado",
       "ArchivoCFG=libros.cfg&ACERVO=CATALOGOS&CAMPO=Biblioteca&TIPOBUSQUEDA=1&Cantidad=5&FichaINI=1"
       "&txtLIB=" + Codifica(kGuion), {}, {}, {"<script>"}},
      {"show_num_reflejado", "ArchivoCFG=libros.cfg&txtLIB=SHOW_NUM+" + Codifica("<b>x</b>"), {}, {},
       {"<b>x</b>"}},
      {"vreserva_reflejado",
       "ArchivoCFG=libros.cfg&txtLIB=VRESERVA&direccionIP=" + Codifica(kGuion) +
           "&puertoTCP=" + Codifica(kGuion) + "&NumAdqui=" + Codifica(kGuion),
       {}, {"value=\"" + kGuionEscapado + "\""}, {"<script>"}},
      // More than a search form ever sends.
      {"cuerpo_de_5_MB", "", {{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "4800000"}},
       {"La solicitud es demasiado grande"}, {}},
  };
}

class UnaPeticion : public ::testing::TestWithParam<Ataque> {};

TEST_P(UnaPeticion, FailsAndTheReaderSeesAnOrdinaryPage) {
  const Ataque& a = GetParam();
  const ProgramaCGI instalacion = Instalacion(a.nombre);
  Peticion p = APipe(Get(a.query));
  for (const auto& [k, v] : a.variables) p.variables[k] = instalacion.Rellena(v);
  const std::string pagina = instalacion.Pagina(p);
  for (const std::string& texto : a.debe) {
    EXPECT_NE(pagina.find(texto), std::string::npos) << "missing: " << texto << "\n" << pagina;
  }
  for (const std::string& texto : a.no_debe) {
    EXPECT_EQ(pagina.find(texto), std::string::npos) << "present: " << texto << "\n" << pagina;
  }
}

INSTANTIATE_TEST_SUITE_P(Orvex, UnaPeticion, ::testing::ValuesIn(Ataques()),
                         [](const auto& info) { return std::string(info.param.nombre); });

// --- attacks that need more than one request or a setting ----------------------------

// A failed request leaves its log, holding the raw User-Agent, beside the
// program; naming that log as the configuration once served the attacker's
// header to anyone sent the link.
TEST(Ataques, TheLogOfAFailedRequestIsNeverAConfiguration) {
  const ProgramaCGI instalacion = Instalacion("bitacora", "BASE:{ }\r\nENCABEZADO:{<html>}\r\n");
  Peticion falla = APipe(Get("ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=novela"));
  falla.variables["HTTP_USER_AGENT"] = "ENCABEZADO:{<script>alert(1)</script>}";
  const std::string error = instalacion.Pagina(falla);
  ASSERT_NE(error.find("La ruta obtenida para la BD es invalida"), std::string::npos) << error;
  ASSERT_TRUE(fs::exists(instalacion.dir() / "20081215_093011-.log"));
  const std::string pagina =
      PorTubo(instalacion, "ArchivoCFG=20081215_093011-.log&ACERVO=libros&txtLIB=novela");
  EXPECT_NE(pagina.find(kSinCFG), std::string::npos) << pagina;
  EXPECT_EQ(pagina.find("<script>"), std::string::npos) << pagina;
}

// The client text of the statistics row (the value of a field named after
// the client's address, or with an empty name) once went unquoted into the
// INSERT.
TEST(Ataques, TheStatisticsRowTakesTheClientTextAsText) {
  const ProgramaCGI instalacion = Instalacion("estadisticas");
  const std::size_t antes = Estadisticas(instalacion).size();
  struct Caso {
    std::string direccion, campo, texto;
  } casos[] = {
      {"10.0.0.7", "10.0.0.7", "x');DELETE FROM Consultas;--"},
      {"", "", "a'),(#01/01/2000#,'forjada',0,2,'b"},
      {"10.0.0.8", "10.0.0.8", "'||hex(zeroblob(100000000))||'"},
      {"10.0.0.9", "10.0.0.9",
       "'||(WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) SELECT max(x) FROM c)||'"},
  };
  std::size_t filas = antes;
  for (const Caso& c : casos) {
    Peticion p = APipe(Get("ArchivoCFG=libros.cfg&ACERVO=libros&txtLIB=novela&" +
                           Codifica(c.campo) + "=" + Codifica(c.texto)));
    p.variables["REMOTE_ADDR"] = c.direccion;
    const std::string pagina = instalacion.Pagina(p);
    EXPECT_EQ(pagina.find("Agregar registro"), std::string::npos) << pagina;
    const std::vector<std::string> estadisticas = Estadisticas(instalacion);
    ASSERT_EQ(estadisticas.size(), ++filas) << c.texto;
    // The field named after REMOTE_ADDR, "-", the one named after REMOTE_HOST
    // (unset: the field with the empty name).
    const std::string cliente = c.texto + "-" + (c.direccion.empty() ? c.texto : "");
    EXPECT_EQ(estadisticas.back(), "NOVELA|" + cliente.substr(0, 100)) << c.texto;
  }
  EXPECT_LT(fs::file_size(instalacion.dir() / "bases" / "estadisticas.mdb"), 10u << 20);
}

// /proc/self/fd/1 is the process's own output: reading it once blocked the
// process for ever, even with the old rule for names.
TEST(Ataques, ItsOwnOutputPipeIsNeverReadEvenWithTheOldNameRule) {
  const ProgramaCGI instalacion = Instalacion("salida_propia");
  for (const bool antiguo : {false, true}) {
    instalacion.Escribe("orvex.ini", antiguo ? "ArchivoCFG = cualquier_ruta\n" : "");
    Peticion p = APipe(Get("ArchivoCFG=/proc/self/fd/1&ACERVO=libros&txtLIB=novela"));
    p.limite_s = 8;
    const std::string pagina = instalacion.Pagina(p);
    EXPECT_NE(pagina.find(kSinCFG), std::string::npos) << antiguo << pagina;
  }
}

// A body of "=" and "&" signs is a field for every two bytes.
TEST(Ataques, ABodyOfEmptyFieldsTakesASmallMultipleOfItsSize) {
  const ProgramaCGI instalacion = Instalacion("campos_vacios");
  const auto memoria = [&](const std::string& cuerpo) {
    const Respuesta r = instalacion.Ejecuta(Post(cuerpo, "ArchivoCFG=libros.cfg&txtLIB=show_ver"));
    EXPECT_TRUE(r.termino && r.estado == 0) << r.estado;
    return r.memoria_kb;
  };
  const long base = memoria("a=1");
  std::string cuerpo;
  for (std::size_t i = 0; i + 2 <= (1u << 20); i += 2) cuerpo += "=&";
  const long campos = memoria(cuerpo);
  const long mb = static_cast<long>(cuerpo.size() / 1024);
#if defined(__SANITIZE_ADDRESS__)
  // AddressSanitizer keeps freed blocks in quarantine and pads every block.
  constexpr long kVeces = 16;
#else
  constexpr long kVeces = 8;
#endif
  // A fresh CGI process's base already holds what the libraries take once
  // (some 3 MB), which the big request's peak holds too; a FastCGI worker
  // took it with its first request, so the difference is all the body's.
  const long holgura = ModoDePrueba() == Modo::FastCGI ? 3 * 1024 : 0;
  EXPECT_LT(campos - base, kVeces * mb + holgura) << "base " << base << " KB, with fields " << campos << " KB";
}

// The reservation once connected to whatever address and port the request
// named, and sent request text there.
TEST(Ataques, AReservationGoesOnlyToAListedServer) {
  const Escucha escucha;
  ASSERT_TRUE(escucha.abierta());
  const ProgramaCGI instalacion =
      Instalacion("reserva", kConfiguracion + "DISPONIBILIDAD:{##00  127.0.0.1 ## 1\r\n}\r\n");
  const std::string pagina = PorTubo(
      instalacion,
      "ArchivoCFG=libros.cfg&txtLIB=CRESERVA&direccionIP=127.0.0.1&puertoTCP=" + escucha.puerto() +
      "&NumAdqui=" + Codifica("A1\r\nGET / HTTP/1.0\r\n\r\n") + "&NumCta=7");
  EXPECT_NE(pagina.find("<h1>Error: no se pudo establecer la conexion: Conexion TimeOut</h1>"),
            std::string::npos)
      << pagina;
  EXPECT_FALSE(escucha.Tocada()) << "a connection was made";
}

// Catalogue text once became a live "javascript:" link in the table of fields.
TEST(Ataques, CatalogueTextMakesNoScriptLinks) {
  const ProgramaCGI instalacion = Instalacion("enlaces");
  std::string etiquetas =
      instalacion.Filas(kKorvel, "SELECT EtiquetasMARC FROM Fichas WHERE Ficha_No = 15").at(0);
  const std::size_t fin = etiquetas.rfind('\xCC');
  ASSERT_NE(fin, std::string::npos);
  etiquetas.insert(fin, "\xA6" "500[URL{javascript:alert(1)}] [DOC{ JaVa\tScRiPt&#58;x}] "
                        "[URL{http://biblioteca.example/x}]");
  instalacion.Modifica(kKorvel, "UPDATE Fichas SET EtiquetasMARC = " + db::CitaTexto(etiquetas) +
                                    " WHERE Ficha_No = 15");
  const std::string pagina =
      PorTubo(instalacion, "ArchivoCFG=libros.cfg&ACERVO=libros&txtNoFicha=15&mostrarFICHABDL=1");
  EXPECT_NE(pagina.find("<a href=\"http://biblioteca.example/x\""), std::string::npos) << pagina;
  EXPECT_EQ(pagina.find("href=\"javascript"), std::string::npos) << pagina;
  EXPECT_EQ(pagina.find("href=\" JaVa"), std::string::npos) << pagina;
}

// --- the watchdog bounds what once ran past it ---------------------------------------

// An installation sheet whose every level calls the next twice: 2^40 calls.
const std::string kHojaExponencial =
    "<xsl:stylesheet version=\"1.0\" xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\">"
    "<xsl:template match=\"/\"><xsl:call-template name=\"n\"><xsl:with-param name=\"d\" "
    "select=\"40\"/></xsl:call-template></xsl:template>"
    "<xsl:template name=\"n\"><xsl:param name=\"d\"/><xsl:if test=\"$d &gt; 0\">"
    "<xsl:call-template name=\"n\"><xsl:with-param name=\"d\" select=\"$d - 1\"/></xsl:call-template>"
    "<xsl:call-template name=\"n\"><xsl:with-param name=\"d\" select=\"$d - 1\"/></xsl:call-template>"
    "</xsl:if></xsl:template></xsl:stylesheet>";

TEST(Ataques, ARunawaySheetEndsWithTheWatchdogsPage) {
  const ProgramaCGI instalacion = Instalacion("hoja_exponencial");
  instalacion.Escribe("XSLs/fichaWeb.xsl", kHojaExponencial);
  Peticion p = Get("ArchivoCFG=libros.cfg&ACERVO=libros&txtNoFicha=15");
  p.limite_s = 30;
  const std::string pagina = instalacion.Pagina(p);
  EXPECT_NE(pagina.find(kTiempoAgotado), std::string::npos) << pagina;
}

TEST(Ataques, ABodyThatNeverComesEndsWithTheWatchdogsPage) {
  const ProgramaCGI instalacion = Instalacion("cuerpo_lento");
  Peticion p = ConLongitud(Post("ArchivoCFG=libros.cfg&txtLIB=", ""), "1000");
  p.limite_s = 30;
  const std::string pagina = instalacion.Pagina(p);
  EXPECT_NE(pagina.find(kTiempoAgotado), std::string::npos) << pagina;
}

}  // namespace
}  // namespace orvex
