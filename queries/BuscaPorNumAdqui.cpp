#include "queries/BuscaPorNumAdqui.h"

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Html.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/Instalacion.h"
#include "db/JetSql.h"
#include "cgi/Encabezado.h"
#include "queries/AbreBases.h"
#include "records/CargaFicha.h"
#include "presentation/MuestraFicha.h"

namespace orvex::queries {
namespace {

constexpr std::size_t kLargoNumAdqui = 15;

// The text a message quotes from the command: escaped, unless request text
// is echoed verbatim.
std::string Cita(std::string_view texto, bool ecos_literales) {
  return ecos_literales ? std::string(texto) : EscapaEco(texto);
}

std::string MensajeNumero(std::string_view numero, bool ecos_literales) {
  return "Error de sintaxis en: SHOW_NDA '" + Cita(numero, ecos_literales) +
         Latin1("'... se esperaba un valor apropiado para el número de adquisición");
}

// The footer: the program's version, the institution's lines and a link.
void Pie(cgi::Solicitud& s, std::string_view apertura) {
  const config::Instalacion& ins = s.instalacion;
  EnviaLinea(s.sys.salida, std::string(apertura) + "<font face=Tahoma size=2><b>KORVEL8/" +
                               s.VersionPrograma + " </b><br/>");
  // The institution's lines come from the installation settings, which a
  // refused command has not read yet.
  if (!ins.Institucion.empty()) {
    EnviaLinea(s.sys.salida, Latin1("© ") + ins.Institucion +
                                 ". Todos los derechos reservados.<br/>");
  }
  if (!ins.Departamento.empty()) EnviaLinea(s.sys.salida, ins.Departamento + "<br/>");
  EnviaLinea(s.sys.salida, Latin1("<a href=\"/\">Catálogo en línea (Orvex)</a></font>"));
  EnviaLinea(s.sys.salida, "</BODY></HTML>");
}

// Two or more collections in the multiple-database form of "BASE:".
bool VariasBases(std::string_view base) {
  int colecciones = 0;
  std::size_t inicio = 0;
  while (inicio <= base.size()) {
    std::size_t fin = base.find('\n', inicio);
    if (fin == std::string_view::npos) fin = base.size();
    const std::string_view linea = TrimBlanksView(base.substr(inicio, fin - inicio));
    if (linea.starts_with("##") && !linea.starts_with("##99")) ++colecciones;
    inicio = fin + 1;
  }
  return colecciones >= 2;
}

}  // namespace

ShowNum AnalizaShowNum(std::string_view comando, bool ecos_literales) {
  ShowNum r;
  const std::string parametros = comando.size() > 8 ? std::string(comando.substr(8)) : "";
  if (TrimBlanksView(parametros).empty()) {
    r.correcto = true;
    return r;
  }
  const std::size_t coma = parametros.find(',');
  r.numadqui = TrimBlanks(std::string_view(parametros).substr(0, coma));
  if (r.numadqui.empty() || r.numadqui.size() > kLargoNumAdqui) {
    r.mensaje = MensajeNumero(r.numadqui, ecos_literales);
    return r;
  }
  if (coma != std::string::npos) {
    const std::size_t otra = parametros.find(',', coma + 1);
    const std::string texto = TrimBlanks(std::string_view(parametros).substr(
        coma + 1, otra == std::string::npos ? std::string::npos : otra - coma - 1));
    if (!texto.empty()) {
      const double n = IsWholeNumber(texto) ? LeadingNumber(texto) : 0;
      if (!IsWholeNumber(texto) || n <= 0 || n >= 4) {
        r.mensaje = "Error de sintaxis en: SHOW_NDA '" + Cita(texto, ecos_literales) +
                    Latin1("'.. se esperaba valor entero entre 1 y 3 para el 'Tipo de formato "
                           "de visualización'");
        return r;
      }
      r.formato = ToInt32(n);
    }
  }
  r.correcto = true;
  return r;
}

void BuscaPorNumAdqui(cgi::Solicitud& s, const std::string& comando) {
  Output& salida = s.sys.salida;
  cgi::EnviaEncabezado(s, "");
  EnviaLinea(salida, Latin1("<HTML><BODY><center><h3>Búsqueda por número de adquisición</h3>"));
  const ShowNum consulta = AnalizaShowNum(comando, s.ajustes.ecos_literales);
  if (!consulta.correcto) {
    EnviaLinea(salida, "<h5>Error: " + consulta.mensaje + "</h5>");
    Pie(s, "<p>");
    return;
  }
  if (consulta.numadqui.empty()) {
    EnviaLinea(salida, Latin1("<h5>Error: No se introdujo un valor apropiado para el número de "
                              "adquisición</h5>"));
    Pie(s, "<p>");
    return;
  }
  s.cfg.RutaBase = TrimBlanks(s.Seccion("BASE:"));
  if (VariasBases(s.cfg.RutaBase)) {
    EnviaLinea(salida, Latin1("<h5>Lo sentimos mucho, pero este comando no está disponible para "
                              "múltiples bases...</h5>"));
    Pie(s, "<p>");
    return;
  }
  AbreBasesLibros(s);
  config::CargaConfiguracion(s.instalacion, *s.BDBiblio, s.ACERVO, s.cfg.RutaBase, s.sys);
  EnviaLinea(salida, "<HTML><BODY>");

  std::int32_t numero = 0;
  {
    const auto rs = s.BDBiblio->OpenRecordset(
        "SELECT F.Ficha_No FROM Fichas F, [Ejemplares] E WHERE F.Ficha_No=E.Ficha_No AND "
        "E.Numadqui=" + db::CitaTexto(consulta.numadqui),
        db::RecordsetType::Snapshot);
    if (!rs->Eof()) numero = ToInt32(LeadingNumber(rs->Field("Ficha_No").AsText()));
  }
  if (numero < 1) {
    EnviaLinea(salida, Latin1("<h3>No se encontraron resultados, porque no se localizó ninguna "
                              "ficha asociada al ejemplar:  ") +
                           s.Eco(consulta.numadqui) + " </h3>");
  } else {
    EnviaLinea(salida, Latin1("<center><h3>Búsqueda por número de adquisición</h3><h4>Acervo de ") +
                           s.instalacion.Institucion + "</h4>");
    records::RegFicha ficha;
    records::CargaFicha(*s.BDBiblio, numero, ficha);
    if (ficha.Ficha_no < 1) {
      EnviaLinea(salida, Latin1("<h3>No se localizó el ejemplar ") + s.Eco(consulta.numadqui) + "</h3>");
    } else {
      const char* marcador = consulta.formato == 2   ? "<!FICHA2!>"
                             : consulta.formato == 3 ? "<!FICHA3!>"
                                                     : "<!FICHA!>";
      s.cfg.TextoCFG = std::string("FORMATO:{<table align='center' width='70%' border='0'><tr><td>") +
                       marcador + "</td></tr></table>}";
      presentation::MuestraFicha(s, ficha, 1);
    }
  }
  EnviaLinea(salida, "</TABLE></CENTER><p/><div align='center'>");
  Pie(s, "");
}

}  // namespace orvex::queries
