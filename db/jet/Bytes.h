#pragma once

#include <cstdint>

// Little-endian fields of Jet 4 pages (index keys are big endian and are read
// where they are used).
namespace orvex::db::jet {

inline std::uint16_t U16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | p[1] << 8); }
inline std::uint32_t U32(const std::uint8_t* p) {
  return p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}
inline std::uint64_t U64(const std::uint8_t* p) {
  return U32(p) | static_cast<std::uint64_t>(U32(p + 4)) << 32;
}
inline void Pon16(std::uint8_t* p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void Pon32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

}  // namespace orvex::db::jet
