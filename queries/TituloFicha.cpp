#include "queries/TituloFicha.h"

#include "base/Runtime.h"
#include "base/RuntimeError.h"
#include "db/Database.h"
#include "db/JetSql.h"
#include "queries/AbreBases.h"
#include "records/CargaFicha.h"
#include "records/Ficha.h"

namespace orvex::queries {
namespace {

// Opens the catalogue of "BASE:" without a word on the page; false when it
// names several collections or cannot be opened.
bool AbreCatalogo(cgi::Solicitud& s) {
  if (s.BDBiblio) return true;
  s.cfg.RutaBase = TrimBlanks(s.Seccion("BASE:"));
  if (s.cfg.RutaBase.empty() || s.cfg.RutaBase.starts_with("##")) return false;
  if (!ArchivosFaltantes(s, s.cfg.RutaBase).empty()) return false;
  try {
    AbreBasesLibrosSinAviso(s);
  } catch (const RuntimeError&) {
    return false;
  }
  return true;
}

}  // namespace

std::string TituloDeFicha(cgi::Solicitud& s, std::int32_t ficha) {
  if (ficha < 1 || !AbreCatalogo(s)) return {};
  try {
    records::RegFicha registro;
    records::CargaFicha(*s.BDBiblio, ficha, registro);
    if (registro.Ficha_no < 1) return {};
    const std::string titulo = records::ExtraeEtiqueta("245", registro.EtiquetasMARC);
    return TrimBlanks(titulo.substr(0, titulo.find(" / ")));
  } catch (const RuntimeError&) {
    return {};
  }
}

std::string TituloDeEjemplar(cgi::Solicitud& s, std::string_view numadqui) {
  if (numadqui.empty() || numadqui.size() > 15 || !AbreCatalogo(s)) return {};
  std::int32_t ficha = 0;
  try {
    const auto rs = s.BDBiblio->OpenRecordset(
        "SELECT Ficha_No FROM [Ejemplares] WHERE NumAdqui=" + db::CitaTexto(std::string(numadqui)),
        db::RecordsetType::Snapshot);
    if (!rs->Eof()) ficha = ToInt32(LeadingNumber(rs->Field("Ficha_No").AsText()));
  } catch (const RuntimeError&) {
    return {};
  }
  return TituloDeFicha(s, ficha);
}

}  // namespace orvex::queries
