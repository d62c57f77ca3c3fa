#pragma once

#include <cstdint>

#include "db/Database.h"
#include "records/Ficha.h"

namespace orvex::records {

// Loads record `numero` from the bibliographic database into `ficha`: its
// tag string, dates (only when the column holds a valid date), fixed data,
// material type and one line per copy (the copies query runs first and keeps
// its own order). Without such a record Ficha_no becomes 0 and the other
// members keep their values. A database error ends the load where it is,
// silently. The status is always 0.
std::int16_t CargaFicha(db::Database& BDBiblio, std::int32_t numero, RegFicha& ficha);

}  // namespace orvex::records
