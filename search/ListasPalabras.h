#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The word lists that orvex-catalogo keeps beside a word table (TABLA) of a
// SQLite index file, so that a lookup reads a word's rows as a few compact
// chunks instead of one index entry per occurrence:
//
//   ORVEX_LISTAS (tabla, palabra, trozo, filas, lista), primary key
//     (tabla, palabra, trozo): for each word of the table `tabla`, its rows
//     in the order of the index FRASE (record, then position), split into
//     chunks numbered from 0 of at most kFilasPorTrozo rows; `filas` is the
//     chunk's row count and `lista` its rows, encoded as below. The words
//     are stored as the table stores them (UTF-8), so both sort alike.
//   ORVEX_VIGENCIA (tabla, filas): one row per table whose lists are
//     complete, with the table's row count when they were written.
//   Triggers on the word table (ORVEX_LISTAS_<tabla>_ALTA, _BAJA, _CAMBIO)
//     delete the table's ORVEX_VIGENCIA row on any insert, delete or update.
//
// The lists are read only while the table's ORVEX_VIGENCIA row and its
// three triggers are there: a program that changes the table afterwards
// voids them, and one that drops and rebuilds it drops the triggers with
// it. Every lookup then reads the table itself, as for any other file.
//
// A chunk's rows follow one another; each row is, in LEB128 variable-length
// numbers, the record's difference from the previous row's record (from 0
// for the first), the position (its difference from the previous row's when
// the record is the same) and the field code, both signed numbers in zigzag
// form.
namespace orvex::search::listas {

inline constexpr std::string_view kTablaListas = "ORVEX_LISTAS";
inline constexpr std::string_view kTablaVigencia = "ORVEX_VIGENCIA";
inline constexpr int kFilasPorTrozo = 4096;

// The name of one of the triggers that guard the lists of `tabla`.
inline std::string Disparador(std::string_view tabla, std::string_view suceso) {
  return std::string(kTablaListas) + "_" + std::string(tabla) + "_" + std::string(suceso);
}
inline constexpr std::string_view kSucesos[] = {"ALTA", "BAJA", "CAMBIO"};

// One row of a word table, as the lists hold it.
struct Fila {
  std::int64_t ficha = 0;
  std::int64_t posicion = 0;
  std::int64_t campo = 0;
};

// Appends the rows of one chunk.
class Codificador {
 public:
  void Agrega(const Fila& f) {
    Numero(static_cast<std::uint64_t>(f.ficha - anterior_.ficha));
    Signo(f.ficha == anterior_.ficha ? f.posicion - anterior_.posicion : f.posicion);
    Signo(f.campo);
    anterior_ = f;
    ++filas_;
  }
  const std::string& Bytes() const { return bytes_; }
  int Filas() const { return filas_; }
  void Limpia() {
    bytes_.clear();
    anterior_ = Fila();
    filas_ = 0;
  }

 private:
  void Numero(std::uint64_t v) {
    while (v >= 0x80) {
      bytes_ += static_cast<char>((v & 0x7F) | 0x80);
      v >>= 7;
    }
    bytes_ += static_cast<char>(v);
  }
  void Signo(std::int64_t v) {
    Numero((static_cast<std::uint64_t>(v) << 1) ^ static_cast<std::uint64_t>(v >> 63));
  }

  std::string bytes_;
  Fila anterior_;
  int filas_ = 0;
};

// Reads the rows of one chunk back. Siguiente is false at the end of the
// bytes; Danado tells that they ended inside a row or held a number too
// long to be one.
class Decodificador {
 public:
  explicit Decodificador(std::string_view bytes) : bytes_(bytes) {}

  bool Siguiente(Fila& f) {
    if (i_ >= bytes_.size() || danado_) return false;
    const std::uint64_t delta = Numero();
    const std::int64_t posicion = Signo();
    const std::int64_t campo = Signo();
    if (danado_) return false;
    f.ficha = anterior_.ficha + static_cast<std::int64_t>(delta);
    f.posicion = delta == 0 ? anterior_.posicion + posicion : posicion;
    f.campo = campo;
    anterior_ = f;
    return true;
  }
  bool Danado() const { return danado_; }

 private:
  std::uint64_t Numero() {
    // Most numbers are below 128: one byte.
    if (i_ < bytes_.size() && static_cast<unsigned char>(bytes_[i_]) < 0x80) {
      return static_cast<unsigned char>(bytes_[i_++]);
    }
    std::uint64_t v = 0;
    for (int corrimiento = 0; corrimiento < 64; corrimiento += 7) {
      if (i_ >= bytes_.size()) break;
      const auto b = static_cast<unsigned char>(bytes_[i_++]);
      v |= static_cast<std::uint64_t>(b & 0x7F) << corrimiento;
      if ((b & 0x80) == 0) return v;
    }
    danado_ = true;
    return 0;
  }
  std::int64_t Signo() {
    const std::uint64_t v = Numero();
    return static_cast<std::int64_t>(v >> 1) ^ -static_cast<std::int64_t>(v & 1);
  }

  std::string_view bytes_;
  std::size_t i_ = 0;
  Fila anterior_;
  bool danado_ = false;
};

// The phrase search's keys of a chunk's rows, appended to `claves`: the
// record in the high half and the position minus `j`, shifted by 2^31, in
// the low half, so that the rows of word j of a phrase and those of word 0
// meet on equal keys. A row whose record or shifted position does not fit
// gives no key. The keys must come in ascending order, from `anterior` on
// (the last key of the word's previous chunk; updated). Returns the chunk's
// row count, or -1 when its bytes are damaged or its keys out of order.
//
// One tight pass: a phrase reads a few hundred thousand rows, and most rows
// are three bytes below 0x80 (a record step, a position step, a field), which
// are taken together. The field plays no part in the key.
inline std::int64_t ClavesDeFrase(std::string_view bytes, std::int64_t j,
                                  std::vector<std::uint64_t>& claves, std::uint64_t& anterior) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* const fin = p + bytes.size();
  const auto lee = [&](std::uint64_t& v) {
    v = 0;
    for (int corrimiento = 0; corrimiento < 64 && p < fin; corrimiento += 7) {
      const unsigned char b = *p++;
      v |= static_cast<std::uint64_t>(b & 0x7F) << corrimiento;
      if ((b & 0x80) == 0) return true;
    }
    return false;
  };
  // Zigzag form back to a signed step, kept as its two's complement: the
  // sums below wrap instead of overflowing.
  const auto signo = [](std::uint64_t v) { return (v >> 1) ^ (0 - (v & 1)); };
  // Every row takes at least three bytes.
  const std::size_t base = claves.size();
  claves.resize(base + bytes.size() / 3);
  std::uint64_t* salida = claves.data() + base;
  const std::uint64_t desplazamiento = (std::uint64_t{1} << 31) - static_cast<std::uint64_t>(j);
  std::uint64_t ficha = 0, posicion = 0, ultima = anterior;
  std::int64_t filas = 0;
  while (p < fin) {
    std::uint64_t delta, pos, campo;
    if (fin - p >= 3 && ((p[0] | p[1] | p[2]) & 0x80) == 0) {
      delta = p[0];
      pos = p[1];
      p += 3;
    } else if (!lee(delta) || !lee(pos) || !lee(campo)) {
      claves.resize(base);
      return -1;
    }
    ficha += delta;
    posicion = delta == 0 ? posicion + signo(pos) : signo(pos);
    ++filas;
    // Record 0 to 2^31 - 1; position - j + 2^31 from 0 to 2^32 - 1.
    const std::uint64_t bajo = posicion + desplazamiento;
    if (ficha > 0x7FFFFFFF || static_cast<std::int64_t>(posicion) < -(std::int64_t{1} << 31) + j ||
        static_cast<std::int64_t>(posicion) > (std::int64_t{1} << 32) - (std::int64_t{1} << 31) + j - 1) {
      continue;
    }
    const std::uint64_t clave = (ficha << 32) | bajo;
    if (clave < ultima) {
      claves.resize(base);
      return -1;
    }
    ultima = clave;
    *salida++ = clave;
  }
  claves.resize(static_cast<std::size_t>(salida - claves.data()));
  anterior = ultima;
  return filas;
}

}  // namespace orvex::search::listas
