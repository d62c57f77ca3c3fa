#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

// The random numbers of the synthetic catalogues that the benchmarks and the
// tests make: splitmix64, small, fast and the same on every machine, so that
// a seed always gives the same records and the same queries. Every draw is
// integer arithmetic on the one sequence (Real aside), so two programs that
// make the same calls get the same answers.
namespace orvex::bench {

class Azar {
 public:
  explicit Azar(std::uint64_t semilla) : s_(semilla) {}
  std::uint64_t Siguiente() {
    std::uint64_t z = (s_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // Uniform in [0, n) for n far below 2^64 (the modulo's bias is negligible).
  std::uint64_t Menor(std::uint64_t n) { return Siguiente() % n; }
  // Uniform in [a, b].
  int Entre(int a, int b) {
    return a + static_cast<int>(Menor(static_cast<std::uint64_t>(b - a + 1)));
  }
  // True once in n draws, on average.
  bool UnaEn(std::uint64_t n) { return Menor(n) == 0; }
  // True with probability por_mil / 1000.
  bool PorMil(int por_mil) { return Menor(1000) < static_cast<std::uint64_t>(por_mil); }
  // Uniform in [0, 1), from the top 53 bits.
  double Real() { return static_cast<double>(Siguiente() >> 11) * 0x1.0p-53; }
  // True with probability p.
  bool Prob(double p) { return Real() < p; }
  // One item of an array, a std::array or a vector, each as likely.
  template <class Lista>
  const auto& Uno(const Lista& lista) {
    return lista[Menor(std::size(lista))];
  }

 private:
  std::uint64_t s_;
};

}  // namespace orvex::bench
