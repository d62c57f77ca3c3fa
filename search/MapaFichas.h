#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace orvex::search {

// A set of record numbers 1 to 800008 as the search has always kept it: one
// bit per record in 100 001 bytes, record f in byte (f - 1) / 8, the lowest
// record of a byte in its most significant bit. The bytes lie in machine
// words so that the set operations, counting and walking go a word at a time.
// The memory is taken at the first change, already zero from the system, and
// the operations go only as far as the highest word ever set: a catalogue of
// a few thousand records touches a page or two of the 100 KB, and each page
// not touched is a page fault a short request does not pay.
class MapaFichas {
 public:
  static constexpr std::int32_t kBytes = 100001;
  static constexpr std::int32_t kMaximaFicha = kBytes * 8;  // 800008

  MapaFichas() = default;
  MapaFichas(const MapaFichas& otro);
  MapaFichas& operator=(const MapaFichas& otro);

  // Empties the set.
  void Limpia();

  // Sets record f's bit. Raises 9 ("El subíndice está fuera del intervalo")
  // for a record outside 1 to 800008.
  void Pon(std::int32_t f);
  bool Tiene(std::int32_t f) const;

  // This set becomes its AND, OR or AND NOT with `otro`.
  void Interseca(const MapaFichas& otro);
  void Une(const MapaFichas& otro);
  void Excluye(const MapaFichas& otro);

  // The number of records in the set.
  std::int32_t Cuenta() const;

  // The next record after `actual`, in ascending order. When there is none,
  // the highest record not above `actual` in the byte of `actual`, or 0:
  // a result not above `actual` ends the walk. 0 also when `actual` / 8 lies
  // past the last byte.
  std::int32_t Siguiente(std::int32_t actual) const;

  // Every record of the set, ascending, in one pass over its words.
  std::vector<std::int32_t> Lista() const;

  // Byte b (0 to 100 000) as the search has always stored it.
  std::uint8_t Byte(std::int32_t b) const { return palabras_ ? Bytes()[b] : 0; }

 private:
  static constexpr std::size_t kPalabras = (kBytes + 7) / 8;
  const std::uint8_t* Bytes() const { return reinterpret_cast<const std::uint8_t*>(palabras_.get()); }
  std::uint8_t* Bytes();  // allocates

  struct Libera {
    void operator()(std::uint64_t* p) const;
  };
  // Null while the set is empty and untouched. Words from alto_ on are zero,
  // and so are the padding bytes past kBytes.
  std::unique_ptr<std::uint64_t[], Libera> palabras_;
  std::size_t alto_ = 0;
};

}  // namespace orvex::search
