#pragma once

#include <cstdint>

namespace orvex {

// The time a request may still run. The request's watchdog keeps it; the
// operations that could run away below the driver (reading the body, SQL
// statements, waits for a database lock, style sheet transformations) look
// at it between their steps and stop with TiempoAgotado once it has passed.
class Plazo {
 public:
  virtual ~Plazo() = default;
  // True once the request's time is up.
  virtual bool Vencido() = 0;
  // Milliseconds left, 0 once the time is up: for a processor that keeps
  // its own clock (the XSL module).
  virtual std::int64_t RestanteMs() = 0;
};

// Thrown by an operation that stopped because the request's time was up.
// Like ProcessEnd it is not a std::exception, so that no handler of ordinary
// errors swallows it: the entry procedure answers with the watchdog's page.
struct TiempoAgotado {};

}  // namespace orvex
