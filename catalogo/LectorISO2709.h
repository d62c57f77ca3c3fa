#pragma once

#include <string_view>

#include "catalogo/RegistroMARC.h"

namespace orvex::catalogo {

// Records in ISO 2709 (MARC 21 exchange format), one after another.
//
// A record is its 24-character leader, the directory (one entry per field:
// tag, field length and starting position, 12 characters with the usual
// entry map "4500", or as leader positions 20 and 21 say), a field
// terminator 0x1E, the fields (each ended by 0x1E; in data fields the
// indicators and then subfields, each opened by the delimiter 0x1F and its
// code) and the record terminator 0x1D. Leader positions 0-4 give the record
// length and 12-16 the base address of the data. Line ends, blanks and NULs
// between records are skipped.
//
// Character coding (leader position 9): "a" is UTF-8 and every field must
// be valid UTF-8. A blank declares MARC-8; such a record is read when its
// data is plain valid UTF-8 with no escape sequence (pure ASCII is the same
// in both, and many exporters leave the position blank on UTF-8 records),
// and refused as "codificación MARC-8 no admitida" otherwise. Any other
// value is refused.
//
// A record that cannot be read is refused and reading goes on after it: a
// wrong length is recovered from by looking for its record terminator; a
// truncated end of file refuses the last record. The reason names the fault
// (length, base address, directory, a field outside the record or without
// its terminator, the coding). Subfields keep whatever code they carry; bytes
// of a data field between its indicators and its first delimiter are
// ignored.
class LectorISO2709 : public LectorRegistros {
 public:
  explicit LectorISO2709(std::string_view datos) : datos_(datos) {}
  Lectura Siguiente(RegistroMARC& registro) override;
  FormatoOrigen Formato() const override { return FormatoOrigen::kISO2709; }

 private:
  // Reads the record `bytes` (terminator included) into `registro`; false
  // with motivo_ set when it cannot be read.
  bool Analiza(std::string_view bytes, RegistroMARC& registro);

  std::string_view datos_;
  std::size_t pos_ = 0;
};

}  // namespace orvex::catalogo
