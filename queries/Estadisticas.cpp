#include "queries/Estadisticas.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "base/CodePage.h"
#include "base/Platform.h"
#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "config/Plantillas.h"
#include "db/Database.h"
#include "cgi/Bitacora.h"
#include "cgi/EntradaCGI.h"
#include "search/Normalizacion.h"

namespace orvex::queries {
namespace {

// The widths of the text columns the statistics row fills.
constexpr std::size_t kLargoBuscado = 40;
constexpr std::size_t kLargoCliente = 100;  // IP_Address

// Many requests write the statistics at once: the writers wait their turn.
constexpr int kEsperaBloqueoMs = 3000;

bool ContieneIgnorandoCaso(const std::vector<std::string>& nombres, std::string_view nombre) {
  return std::any_of(nombres.begin(), nombres.end(),
                     [&](const std::string& n) { return EqualsIgnoringCase(n, nombre); });
}

// Brings an old "Consultas" (no IP_Address) up to the current layout. Each
// ALTER may fail on its own (the column may already be there) without
// stopping the other or the insert.
void ActualizaConsultas(cgi::Solicitud& s, db::Database& bd) {
  std::vector<std::string> columnas;
  for (const std::string& tabla : bd.TableNames()) {
    if (EqualsIgnoringCase(tabla, "consultas")) columnas = bd.ColumnNames(tabla);
  }
  if (ContieneIgnorandoCaso(columnas, "IP_Address")) return;
  for (const char* sql : {"ALTER TABLE consultas ADD COLUMN IP_Address TEXT(100)",
                          "ALTER TABLE consultas ADD COLUMN AdvSearch TEXT(1)"}) {
    try {
      bd.Execute(sql);
    } catch (const RuntimeError&) {
      // Ignored: the insert reports whatever is still wrong.
    }
    cgi::Cede(s);
  }
}

}  // namespace

bool RegistraConsulta(cgi::Solicitud& s, std::string_view base, std::int32_t encontrados,
                      const std::array<std::string, 4>& cajas) {
  std::string buscado;
  std::int64_t adv_search = 0;  // the form, one digit
  if (s.cfg.BUSQ_AVANZADA != 1) {
    buscado = TrimBlanks(cajas[0] + " " + cajas[1] + " " + cajas[2] + " " + cajas[3]);
    adv_search = 2;
  } else {
    buscado = s.Expresion;
    adv_search = 3;
  }
  // Kept as designed: the client variables' values are looked up as request
  // field names, so the text is usually just "-". Anyone can send those
  // fields, so it is any text at all.
  const std::string cliente = cgi::ValorCGI(s.cgi, s.cgi.Variable("REMOTE_ADDR")) + "-" +
                              cgi::ValorCGI(s.cgi, s.cgi.Variable("REMOTE_HOST"));

  config::ReemplazaTexto(buscado, "  ", " ");
  buscado = search::NormalizaVocales(buscado.substr(0, kLargoBuscado));

  // The values go as parameters, never into the statement's text: whatever
  // the texts hold, the statement inserts exactly one row with exactly them.
  // AdvSearch goes as a number, as it always has.
  return AgregaRegistro(s, base, kCamposConsultas, kTablaConsultas, "?,?,?,?,?",
                        {db::Value::Of(s.sys.reloj.Now()), db::Value::Of(buscado),
                         db::Value::Of(std::int64_t{encontrados}), db::Value::Of(adv_search),
                         db::Value::Of(cliente.substr(0, kLargoCliente))}) > 0;
}

std::int32_t AgregaRegistro(cgi::Solicitud& s, std::string_view base, std::string_view campos,
                            std::string_view tabla, std::string_view valores,
                            const std::vector<db::Value>& parametros) {
  const std::string ruta = JoinPath(base, "estadisticas.mdb");
  try {
    // A file that is not there reaches the opener, whose error is the message.
    std::unique_ptr<db::Database> bd = s.bases.Open(
        FindFile(s.sys.archivos, ruta).value_or(ruta), {.busy_timeout_ms = kEsperaBloqueoMs});
    if (UpperLatin1(tabla) == "CONSULTAS") ActualizaConsultas(s, *bd);
    const std::string sql = "INSERT INTO " + std::string(tabla) + " (" + std::string(campos) +
                            ") " + " VALUES (" + std::string(valores) + ")";
    const auto escritas = static_cast<std::int32_t>(bd->Execute(sql, parametros));
    cgi::Cede(s);
    bd->Close();
    return escritas;
  } catch (const RuntimeError& e) {
    config::MensajeH4(s.sys.salida, "Error: '" + e.description() + "'<br/>" +
                                        Latin1("--Agregar registro estadístico--"));
    return 0;
  }
}

}  // namespace orvex::queries
