#pragma once

#include "base/RuntimeError.h"
#include "db/Database.h"
#include "db/jet/Jet4.h"

// Private to db/: how the Jet engine's two halves (the recordsets of
// JetDatabase.cpp and the SQL tables of JetVirtualTables.cpp) report what
// the reader finds. Damage in the file is the engine's error 3343 with the
// reader's message, which names the file.
namespace orvex::db {

[[noreturn]] inline void RaiseJetDamage(const jet::ErrorJet& e) {
  throw RuntimeError(kErrFormatoNoReconocido, e.what());
}

// Runs `f`, raising the reader's errors as the engine's.
template <typename F>
auto WithJetEngineErrors(F&& f) -> decltype(f()) {
  try {
    return f();
  } catch (const jet::ErrorJet& e) {
    RaiseJetDamage(e);
  }
}

}  // namespace orvex::db
