#include "queries/ConsultaCatalogo.h"

#include <cstdio>
#include <string>

#include "base/CodePage.h"
#include "base/EnviaLinea.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/Plantillas.h"
#include "cgi/EntradaCGI.h"
#include "queries/AbreBases.h"
#include "queries/Resultados.h"

namespace orvex::queries {
namespace {

using config::ReemplazaTexto;

template <typename T, T (*Estrecha)(double)>
T Numero(cgi::Solicitud& s, std::string_view campo) {
  return Estrecha(LeadingNumber(cgi::ValorCGI(s.cgi, campo)));
}

// A number as the statement writes it: whole numbers without decimals.
std::string TextoNumero(double n) {
  char texto[64];
  if (n == static_cast<double>(static_cast<long long>(n))) {
    std::snprintf(texto, sizeof texto, "%lld", static_cast<long long>(n));
  } else {
    std::snprintf(texto, sizeof texto, "%.15g", n);
  }
  return texto;
}

// The search text as a date "mm/dd/yyyy": it is read day first
// ("15/12/2008", "15-12-2008") or as "2008-12-15". Anything else is not a
// date (13, as the runtime has it).
std::string TextoFecha(std::string_view texto) {
  const std::string t(TrimBlanksView(texto));
  int a = 0, b = 0, c = 0;
  char s1 = 0, s2 = 0;
  int dia = 0, mes = 0, anio = 0;
  if (std::sscanf(t.c_str(), "%d%c%d%c%d", &a, &s1, &b, &s2, &c) == 5 && s1 == s2 &&
      (s1 == '/' || s1 == '-' || s1 == '.')) {
    if (a > 31) {
      anio = a, mes = b, dia = c;
    } else {
      dia = a, mes = b, anio = c;
    }
  }
  if (mes < 1 || mes > 12 || dia < 1 || dia > 31 || anio < 100) {
    throw RuntimeError::Standard(kErrTiposNoCoinciden);
  }
  char fecha[48];
  std::snprintf(fecha, sizeof fecha, "%02d/%02d/%04d", mes, dia, anio);
  return fecha;
}

bool ContieneSelect(std::string_view texto) {
  return UpperLatin1(texto).find("SELECT") != std::string::npos;
}

// "ENCABEZADO2:" or "FINAL:" with the paging numbers and "<!BUSCADO!>".
void EscribeSeccion(cgi::Solicitud& s, std::string_view etiqueta) {
  std::string texto = s.Seccion(etiqueta);
  s.pagina.Llena(texto);
  ReemplazaTexto(texto, "<!BUSCADO!>", s.Eco(s.TextoLIB));
  EnviaLinea(s.sys.salida, texto);
}

}  // namespace

void ConsultaCatalogo(cgi::Solicitud& s) {
  Output& salida = s.sys.salida;
  s.TextoLIB = cgi::ValorCGI(s.cgi, "txtLIB");
  const std::string campo = cgi::ValorCGI(s.cgi, "CAMPO");
  const std::int16_t tipo_busqueda = Numero<std::int16_t, ToInt16>(s, "TIPOBUSQUEDA");
  s.pagina.Cantidad = Numero<std::int32_t, ToInt32>(s, "Cantidad");
  s.pagina.Desde = Numero<std::int32_t, ToInt32>(s, "FichaINI");

  if (campo.empty()) {
    config::MensajeH4(salida, Latin1("no ha especificado un campo de busquedas... verifique el "
                                     "parámetro 'CAMPO'."));
    return;
  }
  if (s.pagina.Cantidad <= 0) {
    config::MensajeH4(salida, Latin1("La cantidad de registros mostrados es incorrecta... "
                                     "verifique el parámetro 'Cantidad'."));
    return;
  }
  if (s.pagina.Desde <= 0) {
    config::MensajeH4(salida, Latin1("La ficha inicial es incorrecta... verifique el parámetro "
                                     "'FichaINI'."));
    return;
  }
  if (s.TextoLIB.empty()) {
    config::MensajeH4(salida, Latin1("No ha introducido ninguna expresión a buscar."));
    return;
  }
  if (!LeeArchivoCFG(s)) return;

  EnviaLinea(salida, s.Seccion("ENCABEZADO:"));
  const std::string ruta = TrimBlanks(s.Seccion("BASE:"));
  const std::string tabla = TrimBlanks(s.Seccion("TABLA:"));
  // The listed database is only read: a statement that would write fails.
  const std::unique_ptr<db::Database> base =
      s.bases.Open(FindFile(s.sys.archivos, ruta).value_or(ruta), {.read_only = true});

  std::string buscado;
  for (char c : s.TextoLIB) {
    if (c != '*' && c != '\'' && c != '#') buscado += c;
  }
  s.TextoLIB = buscado;

  // The comparison, as the column's first value is.
  std::string comparacion;
  {
    const std::unique_ptr<db::Recordset> sonda =
        base->OpenRecordset(tabla, db::RecordsetType::Dynaset);
    const db::Value primero = sonda->Field(campo);
    sonda->Close();
    if (primero.type == db::Value::Type::Integer || primero.type == db::Value::Type::Real) {
      comparacion = campo + "=" + TextoNumero(LeadingNumber(buscado));
    } else if (primero.type == db::Value::Type::Date) {
      comparacion = campo + "=#" + TextoFecha(buscado) + "#";
    } else if (tipo_busqueda == 0) {
      comparacion = campo + "='" + buscado + "'";
    } else if (ContieneSelect(campo)) {
      comparacion = campo + "='*" + buscado + "*'";
    } else {
      comparacion = campo + " like '*" + buscado + "*'";
    }
  }
  std::string sentencia;
  if (ContieneSelect(campo)) {
    sentencia = tabla;
    ReemplazaTexto(sentencia, "<!BUSCADO!>", comparacion);
  } else {
    sentencia = "SELECT * from " + tabla + " WHERE " + comparacion;
  }

  const std::unique_ptr<db::Recordset> filas =
      base->OpenRecordset(sentencia, db::RecordsetType::Dynaset);
  if (filas->RecordCount() > 0) {
    filas->MoveLast();
    filas->MoveFirst();
  }
  s.pagina.Total = static_cast<std::int32_t>(filas->RecordCount());
  if (s.pagina.Total < 1) {
    EnviaLinea(salida, s.Seccion("NOENCONTRADO:"));
  } else {
    EscribeSeccion(s, "ENCABEZADO2:");
    MuestraCatalogo(s, *filas);
  }
  EscribeSeccion(s, "FINAL:");
}

}  // namespace orvex::queries
