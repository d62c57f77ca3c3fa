#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/CodePage.h"
#include "base/RuntimeError.h"
#include "db/Database.h"

// The source MARC record that orvex-catalogo keeps beside a book's tag
// string: table ORVEX_MARC of KORVEL8.MDB (see catalogo/EscritorCatalogo.h),
// one row per record, its Formato "iso2709" or "marcxml" and the record's
// bytes in Registro.
//
// This header needs no YAZ and nothing compiled of marc/: the gateway reads
// the source record here and hands its bytes to the module orvex-marc.so,
// which carries YAZ; orvex-z3950 reads it here too.
namespace orvex::marc {

// A source record as orvex-catalogo kept it: `bytes` holds an ISO 2709
// record (`xml` false) or the text of a MARCXML <record> element (`xml`
// true).
struct Origen {
  bool xml = false;
  std::string bytes;
};

// The source record of book record `ficha` in the catalogue `biblio`
// (KORVEL8.MDB), if the catalogue keeps one. A catalogue without the table
// ORVEX_MARC (those of other programs, Jet files) or without a row for
// `ficha` gives nullopt, and so do a row whose Formato is neither
// "iso2709" nor "marcxml" and a table of that name with other columns or
// another key. Only the engine's own failures (a file that cannot be read)
// raise their RuntimeError.
inline std::optional<Origen> LeeOrigen(db::Database& biblio, std::int32_t ficha) {
  static constexpr std::string_view kTabla = "ORVEX_MARC";
  // The engine's "not an index of this table" (db/SqliteDatabase.cpp).
  static constexpr int kErrNoEsIndice = 3800;
  const std::vector<std::string> tablas = biblio.TableNames();
  if (std::none_of(tablas.begin(), tablas.end(),
                   [](const std::string& t) { return EqualsIgnoringCase(t, kTabla); })) {
    return std::nullopt;
  }
  try {
    auto rs = biblio.OpenRecordset(kTabla, db::RecordsetType::Table);
    rs->SetIndex("PrimaryKey");
    rs->Seek("=", {db::Value::Of(std::int64_t{ficha})});
    if (rs->NoMatch() || rs->Eof()) return std::nullopt;
    const std::string formato = rs->Field("Formato").AsText();
    if (formato != "iso2709" && formato != "marcxml") return std::nullopt;
    Origen origen;
    origen.xml = formato == "marcxml";
    origen.bytes = rs->FieldBytes("Registro");
    return origen;
  } catch (const RuntimeError& e) {
    // A table of that name that is not orvex-catalogo's (another key,
    // other columns) keeps no source record.
    if (e.number() == db::kErrElementoNoEncontrado || e.number() == kErrNoEsIndice ||
        e.number() == db::kErrTablaNoEncontrada) {
      return std::nullopt;
    }
    throw;
  }
}

}  // namespace orvex::marc
