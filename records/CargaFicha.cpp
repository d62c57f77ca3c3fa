#include "records/CargaFicha.h"

#include <string>

#include "base/Runtime.h"
#include "base/RuntimeError.h"

namespace orvex::records {
namespace {

std::string Fecha(const db::Value& v) {
  return v.type == db::Value::Type::Date ? FormatDate(v.date) : v.AsText();
}

void LeeFicha(db::Recordset& ficha_rs, RegFicha& ficha) {
  ficha.EtiquetasMARC = ficha_rs.Field("EtiquetasMARC").AsText();
  const db::Value fecha = ficha_rs.Field("Fecha");
  if (fecha.type == db::Value::Type::Date) ficha.Fecha = fecha.date;
  const db::Value fecha_mod = ficha_rs.Field("FechaMod");
  if (fecha_mod.type == db::Value::Type::Date) ficha.FechaMod = fecha_mod.date;
  ficha.Ficha_no = ToInt32(LeadingNumber(ficha_rs.Field("ficha_no").AsText()));
  ficha.DatosFijos = ficha_rs.Field("DatosFijos").AsText();
  ficha.TipoMaterial = ToInt16(LeadingNumber(ficha_rs.Field("TipoMaterial").AsText()));
  ficha.Ejemplares.clear();
}

}  // namespace

std::int16_t CargaFicha(db::Database& BDBiblio, std::int32_t numero, RegFicha& ficha) {
  const std::string n = std::to_string(numero);
  try {
    auto ejemplares =
        BDBiblio.OpenRecordset("select * from EJEMPLARES where ficha_no=" + n, db::RecordsetType::Dynaset);
    auto ficha_rs =
        BDBiblio.OpenRecordset("select * from FICHAS where ficha_no=" + n, db::RecordsetType::Dynaset);
    if (ficha_rs->Eof()) {
      ficha.Ficha_no = 0;
    } else {
      LeeFicha(*ficha_rs, ficha);
      for (; !ejemplares->Eof(); ejemplares->MoveNext()) {
        ficha.Ejemplares += LineaEjemplar({ejemplares->Field("NumAdqui").AsText(),
                                           ejemplares->Field("Biblioteca").AsText(),
                                           ejemplares->Field("Ejemplar").AsText(),
                                           ejemplares->Field("Volumen").AsText(),
                                           ejemplares->Field("Tomo").AsText(),
                                           ejemplares->Field("Accesible").AsText(),
                                           Fecha(ejemplares->Field("FechaIngreso"))});
      }
    }
    ejemplares->Close();
    ficha_rs->Close();
  } catch (const RuntimeError&) {
    // Kept: a failed load is silent; the caller tells a found record by
    // its number.
  }
  return 0;
}

}  // namespace orvex::records
