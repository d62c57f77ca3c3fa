#include "queries/ConsultaRevistas.h"

#include <array>
#include <vector>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/ArchivoCFG.h"
#include "config/Instalacion.h"
#include "config/Plantillas.h"
#include "db/JetSql.h"
#include "cgi/Bitacora.h"
#include "cgi/EntradaCGI.h"
#include "queries/AbreBases.h"
#include "queries/Resultados.h"
#include "presentation/MuestraRevista.h"
#include "search/Indice.h"

namespace orvex::queries {
namespace {

using config::ReemplazaTexto;

// The request fields of one of these queries.
struct Campos {
  std::int32_t no_ficha = 0;
  std::uint8_t formato = 0;
  std::string numadqui;  // articles only
};

// A number only when the whole trimmed text is one ("12", "-3", "4.5"),
// rounded to a whole number that fits; anything else is 0.
std::int32_t NumeroEstricto(std::string_view texto) {
  if (!IsWholeNumber(texto)) return 0;
  try {
    return ToInt32(LeadingNumber(TrimBlanksView(texto)));
  } catch (const RuntimeError&) {
    return 0;
  }
}

// A lenient numeric field; a value that does not fit leaves `destino` as it
// was.
void LeeNumero(cgi::Solicitud& s, std::string_view campo, std::int32_t& destino) {
  try {
    destino = ToInt32(LeadingNumber(cgi::ValorCGI(s.cgi, campo)));
  } catch (const RuntimeError&) {
  }
}

// "TipoFormato" when it is a number that fits a byte, else 0.
std::uint8_t Formato(cgi::Solicitud& s) {
  const std::int32_t n = NumeroEstricto(cgi::ValorCGI(s.cgi, "TipoFormato"));
  return n >= 0 && n <= 255 ? static_cast<std::uint8_t>(n) : 0;
}

// The configuration file and the bibliographic database: false, after the
// message that ends the request, when either is missing.
bool LocalizaBase(cgi::Solicitud& s) {
  if (!LeeArchivoCFG(s)) return false;
  s.cfg.RutaBase = TrimBlanks(s.Seccion("BASE:"));
  if (s.cfg.RutaBase.empty() || s.cfg.RutaBase.back() != '/') s.cfg.RutaBase += '/';
  if (!FindFile(s.sys.archivos, RutaArchivo(s.cfg.RutaBase, "Korvel8.mdb"))) {
    config::MensajeH4(s.sys.salida, "Error al accesar a la base de datos. Verifique la ruta de "
                                    "acceso <p><center>" + s.cfg.RutaBase);
    return false;
  }
  return true;
}

// "ENCABEZADO2:" or "FINAL:" with the placeholders both collections fill.
std::string Seccion(cgi::Solicitud& s, std::string_view etiqueta) {
  std::string texto = s.Seccion(etiqueta);
  s.pagina.Llena(texto);
  ReemplazaTexto(texto, "<!ACERVO!>", s.Eco(s.ACERVO));
  ReemplazaTexto(texto, "<!TXTLIB!>", s.Eco(s.TextoLIB));
  ReemplazaTexto(texto, "<!TXTTIT!>", s.Eco(s.TxtTit));
  ReemplazaTexto(texto, "<!TXTAUT!>", s.Eco(s.TxtAut));
  ReemplazaTexto(texto, "<!TXTTEM!>", s.Eco(s.TxtTem));
  return texto;
}

// The result page of either collection once the count is known.
template <typename Muestra>
void Pagina(cgi::Solicitud& s, std::int16_t cuenta, bool revistas, Muestra muestra) {
  Output& salida = s.sys.salida;
  if (cuenta < 1) {
    EnviaLinea(salida, s.Seccion("NOENCONTRADO:"));
  } else {
    s.pagina.Total = cuenta;
    s.pagina.FichaActual = 0;
    std::string encabezado = Seccion(s, "ENCABEZADO2:");
    if (revistas) {
      ReemplazaTexto(encabezado, "<!TXTISBN!>", s.Eco(s.TxtIsbn));
      ReemplazaTexto(encabezado, "<!TXTEDIT!>", s.Eco(s.TxtEdit));
    }
    EnviaLinea(salida, encabezado);
    muestra();
  }
  std::string final = Seccion(s, "FINAL:");
  if (revistas) {
    ReemplazaTexto(final, "<!TXTISBN!>", s.Eco(s.TxtIsbn));
    ReemplazaTexto(final, "<!TXTEDIT!>", s.Eco(s.TxtEdit));
    ReemplazaTexto(final, "<!TXTSER!>", s.Eco(s.TxtSer));
    ReemplazaTexto(final, "<!TXTCLAS!>", s.Eco(s.TxtClas));
  }
  EnviaLinea(salida, final);
}

// Steps shared by both queries up to the search: the fields, the log, the
// files, "ENCABEZADO:", the databases and the settings. False when the
// request has ended.
bool Prepara(cgi::Solicitud& s, Campos& c, bool articulos) {
  c.no_ficha = NumeroEstricto(cgi::ValorCGI(s.cgi, "txtNoFicha"));
  if (articulos) {
    c.numadqui = cgi::ValorCGI(s.cgi, "txtNumadqui");
    EnviaLinea(s.sys.salida, "<!-- txtNumAdqui: " + s.Eco(c.numadqui) + "  -->");
  }
  s.TextoLIB = cgi::ValorCGI(s.cgi, "txtLIB");
  s.TxtTit = cgi::ValorCGI(s.cgi, "txtTIT");
  s.TxtAut = cgi::ValorCGI(s.cgi, "txtAUT");
  s.TxtTem = cgi::ValorCGI(s.cgi, "txtTEM");
  if (!articulos) {
    s.TxtIsbn = cgi::ValorCGI(s.cgi, "txtISBN");
    s.TxtEdit = cgi::ValorCGI(s.cgi, "txtEDIT");
  }
  LeeNumero(s, "Cantidad", s.pagina.Cantidad);
  LeeNumero(s, "FichaINI", s.pagina.Desde);
  c.formato = Formato(s);
  if (s.Expresion.empty()) s.Expresion = s.TextoLIB;
  cgi::CreaLog(s);
  if (!LocalizaBase(s)) return false;
  EnviaLinea(s.sys.salida, s.Seccion("ENCABEZADO:"));
  if (articulos) {
    AbreBasesArticulos(s);
  } else {
    AbreBasesRevistas(s);
  }
  config::CargaConfiguracion(s.instalacion, *s.BDBiblio, s.ACERVO, s.cfg.RutaBase, s.sys);
  return true;
}

std::int16_t Cuenta(cgi::Solicitud& s, std::int32_t no_ficha) {
  if (no_ficha >= 1) return 1;
  return ToInt16(search::CuentaFichas(s.busqueda.MapaResultado));
}

}  // namespace

void ConsultaRevistas(cgi::Solicitud& s) {
  Campos c;
  if (!Prepara(s, c, false)) return;
  if (s.TextoLIB.empty() && s.TxtTit.empty() && !s.TxtEdit.empty()) s.TextoLIB = s.TxtEdit;
  search::BuscaPalabras(s.EntornoBusqueda(), {s.TextoLIB, s.TxtTit, s.TxtEdit, s.TxtTem}, {0, 0, 0}, false);
  Pagina(s, Cuenta(s, c.no_ficha), true, [&] { MuestraRevistas(s, c.no_ficha, c.formato); });
}

void ConsultaArticulos(cgi::Solicitud& s) {
  Campos c;
  if (!Prepara(s, c, true)) return;
  std::int16_t cuenta = 1;
  if (c.numadqui.empty()) {
    search::BuscaPalabrasAna(s.EntornoBusqueda(), {s.TextoLIB, s.TxtTit, s.TxtAut, s.TxtTem});
    cuenta = Cuenta(s, c.no_ficha);
  }
  Pagina(s, cuenta, false,
         [&] { MuestraArticulos(s, c.no_ficha, c.numadqui, c.formato); });
}

void MuestraRevistas(cgi::Solicitud& s, std::int32_t no_ficha, std::uint8_t formato) {
  if (no_ficha > 0) {
    presentation::DisplyRegRevista(s, no_ficha, 1, formato);
    return;
  }
  s.pagina.Recorre(s.busqueda.MapaResultado,
                   [&](std::int32_t numero, std::int32_t posicion) {
                     presentation::DisplyRegRevista(s, numero, posicion, formato);
                   },
                   [&] { EnviaLinea(s.sys.salida, s.Seccion("SEPARADOR:")); });
}

void MuestraArticulos(cgi::Solicitud& s, std::int32_t no_ficha, std::string_view numadqui,
                      std::uint8_t formato) {
  if (!numadqui.empty()) {
    const std::string lista = AnaliticasDeEjemplar(s, numadqui);
    if (lista.empty()) {
      EnviaLinea(s.sys.salida, s.Seccion("NOENCONTRADO2:"));
      return;
    }
    std::vector<std::string_view> ids;
    for (std::size_t desde = 0; desde <= lista.size();) {
      std::size_t coma = lista.find(',', desde);
      if (coma == std::string::npos) coma = lista.size();
      ids.push_back(std::string_view(lista).substr(desde, coma - desde));
      desde = coma + 1;
    }
    s.pagina.Total = static_cast<std::int32_t>(ids.size());
    std::int32_t posicion = 0;
    for (std::string_view id : ids) {
      presentation::DisplyReg_ANA(s, ToInt32(LeadingNumber(id)), ++posicion, formato);
      EnviaLinea(s.sys.salida, s.Seccion("SEPARADOR:"));
    }
    return;
  }
  if (no_ficha >= 1) {
    presentation::DisplyReg_ANA(s, no_ficha, 1, formato);
    return;
  }
  s.pagina.Recorre(s.busqueda.MapaResultado,
                   [&](std::int32_t numero, std::int32_t posicion) {
                     presentation::DisplyReg_ANA(s, numero, posicion, formato);
                   },
                   [&] { EnviaLinea(s.sys.salida, s.Seccion("SEPARADOR:")); });
}

std::string AnaliticasDeEjemplar(cgi::Solicitud& s, std::string_view numadqui) {
  const auto rs = s.BDBiblio->OpenRecordset(
      "SELECT [ID] as IdAnalitica FROM Analiticas WHERE Analiticas.numadqui=" +
          db::CitaTexto(numadqui) + " ORDER by 1 DESC",
      db::RecordsetType::Snapshot);
  std::string lista;
  for (; !rs->Eof(); rs->MoveNext()) {
    if (!lista.empty()) lista += ',';
    lista += TrimBlanks(rs->Field("IdAnalitica").AsText());
  }
  return lista;
}

}  // namespace orvex::queries
