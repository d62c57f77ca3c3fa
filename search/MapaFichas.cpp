#include "search/MapaFichas.h"

#include <algorithm>
#include <bit>
#include <sys/mman.h>

#include <new>

#include "base/RuntimeError.h"

namespace orvex::search {

MapaFichas::MapaFichas(const MapaFichas& otro) { *this = otro; }

void MapaFichas::Libera::operator()(std::uint64_t* p) const {
  munmap(p, kPalabras * sizeof(std::uint64_t));
}

MapaFichas& MapaFichas::operator=(const MapaFichas& otro) {
  if (this == &otro) return *this;
  if (!otro.palabras_) {
    palabras_.reset();
    alto_ = 0;
    return *this;
  }
  Bytes();
  std::copy_n(otro.palabras_.get(), otro.alto_, palabras_.get());
  if (alto_ > otro.alto_) std::fill(palabras_.get() + otro.alto_, palabras_.get() + alto_, 0);
  alto_ = otro.alto_;
  return *this;
}

void MapaFichas::Limpia() {
  if (palabras_) std::fill_n(palabras_.get(), alto_, 0);
  alto_ = 0;
}

std::uint8_t* MapaFichas::Bytes() {
  if (!palabras_) {
    // Pages of their own, which the system hands over zero and maps only
    // when touched (calloc would take them from the heap and clear them).
    void* palabras = mmap(nullptr, kPalabras * sizeof(std::uint64_t), PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (palabras == MAP_FAILED) throw std::bad_alloc();
    palabras_.reset(static_cast<std::uint64_t*>(palabras));
  }
  return reinterpret_cast<std::uint8_t*>(palabras_.get());
}

void MapaFichas::Pon(std::int32_t f) {
  // A record below 1 has no mask (its remainder is negative) and one above
  // 800008 no byte: both are outside the bitmap.
  if (f < 1 || f > kMaximaFicha) Raise(kErrSubindice);
  Bytes()[(f - 1) / 8] |= static_cast<std::uint8_t>(0x80u >> ((f - 1) % 8));
  alto_ = std::max(alto_, static_cast<std::size_t>((f - 1) / 64) + 1);
}

bool MapaFichas::Tiene(std::int32_t f) const {
  if (f < 1 || f > kMaximaFicha || !palabras_) return false;
  return (Bytes()[(f - 1) / 8] & (0x80u >> ((f - 1) % 8))) != 0;
}

void MapaFichas::Interseca(const MapaFichas& otro) {
  if (!palabras_) return;
  if (!otro.palabras_) {
    Limpia();
    return;
  }
  const std::size_t comun = std::min(alto_, otro.alto_);
  for (std::size_t i = 0; i < comun; ++i) palabras_[i] &= otro.palabras_[i];
  std::fill(palabras_.get() + comun, palabras_.get() + alto_, 0);
  alto_ = comun;
}

void MapaFichas::Une(const MapaFichas& otro) {
  if (!otro.palabras_) return;
  Bytes();
  for (std::size_t i = 0; i < otro.alto_; ++i) palabras_[i] |= otro.palabras_[i];
  alto_ = std::max(alto_, otro.alto_);
}

void MapaFichas::Excluye(const MapaFichas& otro) {
  if (!palabras_ || !otro.palabras_) return;
  const std::size_t comun = std::min(alto_, otro.alto_);
  for (std::size_t i = 0; i < comun; ++i) palabras_[i] &= ~otro.palabras_[i];
}

std::int32_t MapaFichas::Cuenta() const {
  std::int32_t n = 0;
  if (!palabras_) return 0;
  for (std::size_t i = 0; i < alto_; ++i) n += std::popcount(palabras_[i]);
  return n;
}

std::vector<std::int32_t> MapaFichas::Lista() const {
  std::vector<std::int32_t> fichas;
  if (!palabras_) return fichas;
  fichas.reserve(static_cast<std::size_t>(Cuenta()));
  const std::uint8_t* bytes = Bytes();
  for (std::size_t w = 0; w < alto_; ++w) {
    if (palabras_[w] == 0) continue;
    for (std::size_t c = w * 8; c < w * 8 + 8 && c < static_cast<std::size_t>(kBytes); ++c) {
      // Record 8c + 1 is the byte's highest bit.
      for (unsigned b = bytes[c]; b != 0; b &= ~(0x80u >> (std::countl_zero(static_cast<std::uint8_t>(b))))) {
        fichas.push_back(static_cast<std::int32_t>(c) * 8 + std::countl_zero(static_cast<std::uint8_t>(b)) + 1);
      }
    }
  }
  return fichas;
}

std::int32_t MapaFichas::Siguiente(std::int32_t actual) const {
  const std::int32_t inicio = actual / 8;
  if (inicio > kBytes - 1 || inicio < 0 || !palabras_) return 0;
  const std::uint8_t* bytes = Bytes();
  // The starting byte, bit by bit: its bits may lie on either side of actual.
  std::int32_t ultima = 0;
  for (int k = 0; k < 8; ++k) {
    if ((bytes[inicio] & (0x80u >> k)) == 0) continue;
    const std::int32_t f = inicio * 8 + k + 1;
    if (f > actual) return f;
    ultima = f;
  }
  // Then the rest, skipping empty bytes up to a word boundary and empty
  // words after it; every record there lies above actual.
  std::int32_t b = inicio + 1;
  for (; b < kBytes && b % 8 != 0; ++b) {
    if (bytes[b] != 0) return b * 8 + std::countl_zero(bytes[b]) + 1;
  }
  for (std::size_t w = static_cast<std::size_t>(b) / 8; w < alto_; ++w) {
    if (palabras_[w] == 0) continue;
    for (std::int32_t c = static_cast<std::int32_t>(w) * 8; c < kBytes; ++c) {
      if (bytes[c] != 0) return c * 8 + std::countl_zero(bytes[c]) + 1;
    }
  }
  return ultima;
}

}  // namespace orvex::search
