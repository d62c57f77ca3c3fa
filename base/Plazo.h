#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace orvex {

// The time a request may still run. The request's watchdog keeps it; the
// operations that could run away below the driver (reading the body, SQL
// statements, waits for a database lock, style sheet transformations) look
// at it between their steps and stop with TiempoAgotado once it has passed.
// Both looks never throw: they are made from inside the engines' callbacks.
class Plazo {
 public:
  virtual ~Plazo() = default;
  // True once the request's time is up.
  virtual bool Vencido() noexcept = 0;
  // Milliseconds left, 0 once the time is up: for a processor that keeps
  // its own clock (the XSL module).
  virtual std::int64_t RestanteMs() noexcept = 0;
};

// A wait for something another writer holds (a database's lock): pauses
// that grow from 1 ms to 100 ms, for at most `espera_ms` in all, and never
// past the deadline `plazo` (none: no deadline).
class EsperaAcotada {
 public:
  EsperaAcotada(int espera_ms, Plazo* plazo) noexcept;

  enum class Paso {
    Sigue,    // one more pause is over: try again
    Agotada,  // the wait has lasted espera_ms
    Vencida,  // the deadline has passed
  };
  // Pauses once more, unless the wait or the deadline is over.
  Paso Pausa() noexcept;

 private:
  std::chrono::steady_clock::time_point desde_;
  int espera_ms_;
  Plazo* plazo_;
  std::size_t pausas_ = 0;
};

// Thrown by an operation that stopped because the request's time was up.
// Like ProcessEnd it is not a std::exception, so that no handler of ordinary
// errors swallows it: the entry procedure answers with the watchdog's page.
struct TiempoAgotado {};

}  // namespace orvex
