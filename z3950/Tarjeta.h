#pragma once

#include <string>

#include "records/Ficha.h"

namespace orvex::z3950 {

// The catalogue card of records::ArmaTarjeta as plain text (SUTRS), UTF-8:
// one line (LF) per non-empty section in the card's order (call number,
// main entry, title and publication, physical description and series, ISBN,
// each note, subjects, added entries), each line ended by LF. The card
// comes from the tag string alone.
std::string Tarjeta(const records::RegFicha& ficha);

}  // namespace orvex::z3950
