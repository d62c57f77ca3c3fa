#pragma once

#include <cstdint>

#include "base/Plazo.h"

namespace orvex::testing {

// A deadline that passes after a given number of looks at it, so that a test
// says where an operation stops without depending on the clock.
class PlazoDeMiradas final : public Plazo {
 public:
  // The first `miradas` looks find time left; every later one finds it up.
  explicit PlazoDeMiradas(int miradas) : permitidas_(miradas) {}
  bool Vencido() noexcept override { return ++miradas_ > permitidas_; }
  std::int64_t RestanteMs() noexcept override { return miradas_ >= permitidas_ ? 0 : 60000; }
  // The looks so far.
  int Miradas() const { return miradas_; }

 private:
  int permitidas_;
  int miradas_ = 0;
};

}  // namespace orvex::testing
