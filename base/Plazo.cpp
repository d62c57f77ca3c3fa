#include "base/Plazo.h"

#include <algorithm>
#include <iterator>
#include <thread>

namespace orvex {

EsperaAcotada::EsperaAcotada(int espera_ms, Plazo* plazo) noexcept
    : desde_(std::chrono::steady_clock::now()), espera_ms_(espera_ms), plazo_(plazo) {}

EsperaAcotada::Paso EsperaAcotada::Pausa() noexcept {
  // Short pauses first, as the other writer usually lets go at once.
  static constexpr std::int64_t kPausasMs[] = {1, 2, 5, 10, 15, 20, 25, 25, 25, 50, 50, 100};
  if (plazo_ != nullptr && plazo_->Vencido()) return Paso::Vencida;
  const std::int64_t esperado = std::chrono::duration_cast<std::chrono::milliseconds>(
                                    std::chrono::steady_clock::now() - desde_)
                                    .count();
  if (esperado >= espera_ms_) return Paso::Agotada;
  std::int64_t pausa = std::min(kPausasMs[std::min(pausas_++, std::size(kPausasMs) - 1)],
                                espera_ms_ - esperado);
  if (plazo_ != nullptr) pausa = std::min(pausa, plazo_->RestanteMs());
  std::this_thread::sleep_for(std::chrono::milliseconds(std::max<std::int64_t>(pausa, 1)));
  return Paso::Sigue;
}

}  // namespace orvex
