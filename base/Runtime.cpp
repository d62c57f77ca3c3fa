#include "base/Runtime.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/CodePage.h"
#include "base/RuntimeError.h"

namespace orvex {
namespace {

bool IsStripped(char c) { return c == ' ' || c == '\t' || c == '\n'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads "&H..." or "&O..." (the prefix already checked). Up to four hex
// digits are a 16-bit value and more a 32-bit one, both signed, as the old
// runtime reads them ("&HFFFF" is -1).
double RadixNumber(const std::string& s, size_t i, int radix) {
  std::uint64_t value = 0;
  int digits = 0;
  for (; i < s.size(); ++i) {
    const char c = UpperLatin1(s[i]);
    int d = -1;
    if (IsDigit(c)) d = c - '0';
    else if (radix == 16 && c >= 'A' && c <= 'F') d = c - 'A' + 10;
    if (d < 0 || d >= radix) break;
    value = value * radix + d;
    ++digits;
    if (value > 0xFFFFFFFFull) Raise(kErrDesbordamiento);
  }
  const bool small = radix == 16 ? digits <= 4 : value <= 0xFFFF;
  if (small) return static_cast<double>(static_cast<std::int16_t>(value));
  return static_cast<double>(static_cast<std::int32_t>(value));
}

// The longest prefix of `s` that is a decimal number, or empty.
size_t DecimalPrefix(const std::string& s) {
  size_t i = 0;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  size_t digits = 0;
  while (i < s.size() && IsDigit(s[i])) ++i, ++digits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && IsDigit(s[i])) ++i, ++digits;
  }
  if (digits == 0) return 0;
  if (i < s.size() && (s[i] == 'E' || s[i] == 'e' || s[i] == 'D' || s[i] == 'd')) {
    size_t j = i + 1;
    if (j < s.size() && (s[j] == '+' || s[j] == '-')) ++j;
    if (j < s.size() && IsDigit(s[j])) {
      while (j < s.size() && IsDigit(s[j])) ++j;
      i = j;
    }
  }
  return i;
}

double ParseDecimal(std::string number) {
  for (char& c : number) {
    if (c == 'D' || c == 'd') c = 'E';
  }
  errno = 0;
  const double value = std::strtod(number.c_str(), nullptr);
  if (errno == ERANGE && std::isinf(value)) Raise(kErrDesbordamiento);
  return value;
}

// A whole text read strictly as a number, as the old runtime converts a text
// it is told to treat as numeric; false when the text is not a number.
bool StrictNumber(std::string_view text, double& value) {
  const std::string s = TrimBlanks(text);
  if (s.empty()) return false;
  if (s.size() > 2 && s[0] == '&' && (UpperLatin1(s[1]) == 'H' || UpperLatin1(s[1]) == 'O')) {
    const int radix = UpperLatin1(s[1]) == 'H' ? 16 : 8;
    for (size_t i = 2; i < s.size(); ++i) {
      const char c = UpperLatin1(s[i]);
      const bool ok = radix == 16 ? (IsDigit(c) || (c >= 'A' && c <= 'F')) : (c >= '0' && c <= '7');
      if (!ok) return false;
    }
    value = RadixNumber(s, 2, radix);
    return true;
  }
  const size_t n = DecimalPrefix(s);
  if (n != s.size()) return false;
  value = ParseDecimal(s);
  return true;
}

template <typename T>
T Narrow(double value) {
  const double r = RoundHalfEven(value);
  if (std::isnan(r) || r < static_cast<double>(std::numeric_limits<T>::min()) ||
      r > static_cast<double>(std::numeric_limits<T>::max())) {
    Raise(kErrDesbordamiento);
  }
  return static_cast<T>(r);
}

}  // namespace

double LeadingNumber(std::string_view text) {
  std::string s;
  s.reserve(text.size());
  for (char c : text) {
    if (!IsStripped(c)) s += c;
  }
  if (s.size() >= 2 && s[0] == '&') {
    const char p = UpperLatin1(s[1]);
    if (p == 'H') return RadixNumber(s, 2, 16);
    if (p == 'O') return RadixNumber(s, 2, 8);
    return 0;
  }
  const size_t n = DecimalPrefix(s);
  if (n == 0) return 0;
  return ParseDecimal(s.substr(0, n));
}

double RoundHalfEven(double value) { return std::nearbyint(value); }

std::uint8_t ToByte(double value) { return Narrow<std::uint8_t>(value); }
std::int16_t ToInt16(double value) { return Narrow<std::int16_t>(value); }
std::int32_t ToInt32(double value) { return Narrow<std::int32_t>(value); }

bool ToBoolean(std::string_view text) {
  const std::string s = TrimBlanks(text);
  if (EqualsIgnoringCase(s, "TRUE")) return true;
  if (EqualsIgnoringCase(s, "FALSE")) return false;
  double value = 0;
  if (!StrictNumber(s, value)) Raise(kErrTiposNoCoinciden);
  return value != 0;
}

bool IsWholeNumber(std::string_view text) {
  const std::string_view t = TrimBlanksView(text);
  std::size_t i = (!t.empty() && (t[0] == '+' || t[0] == '-')) ? 1 : 0;
  std::size_t digitos = 0;
  bool punto = false;
  for (; i < t.size(); ++i) {
    if (t[i] >= '0' && t[i] <= '9') {
      ++digitos;
    } else if (t[i] == '.' && !punto) {
      punto = true;
    } else {
      return false;
    }
  }
  return digitos > 0;
}

std::string_view TrimBlanksView(std::string_view text) {
  size_t b = 0;
  size_t e = text.size();
  while (b < e && text[b] == ' ') ++b;
  while (e > b && text[e - 1] == ' ') --e;
  return text.substr(b, e - b);
}

std::string TrimBlanks(std::string_view text) { return std::string(TrimBlanksView(text)); }

std::size_t InStr(std::size_t start, std::string_view text, std::string_view find) {
  if (start < 1) start = 1;
  if (start > text.size() + 1) return 0;
  const size_t p = BuscaTexto(text, find, start - 1);
  return p == std::string_view::npos ? 0 : p + 1;
}

namespace {

// Bytes that fill pages and records: letters, digits, blanks, line ends and
// the characters of tags and attributes. Any other byte is taken as rare.
constexpr bool EsComun(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         c == ' ' || c == '\r' || c == '\n' || c == '\t' || c == '<' || c == '>' || c == '/' ||
         c == '=' || c == '"' || c == '\'' || c == '.' || c == ',' || c == ';' || c == ':' ||
         c == '-' || c == '_' || c == '&' || c == '#';
}

}  // namespace

std::size_t BuscaTexto(std::string_view text, std::string_view find, std::size_t from) {
  std::size_t i = 0;  // the byte of `find` the scan jumps between
  while (i < find.size() && EsComun(static_cast<unsigned char>(find[i]))) ++i;
  if (find.size() < 2 || i == find.size()) return text.find(find, from);
  if (from > text.size() || text.size() - from < find.size()) return std::string_view::npos;
  const char* const inicio = text.data();
  const char* const ultimo = inicio + (text.size() - find.size());  // last possible start
  const char* candidato = inicio + from;
  while (candidato <= ultimo) {
    const void* raro = std::memchr(candidato + i, find[i], static_cast<std::size_t>(ultimo - candidato) + 1);
    if (raro == nullptr) break;
    candidato = static_cast<const char*>(raro) - i;
    if (std::memcmp(candidato, find.data(), find.size()) == 0) {
      return static_cast<std::size_t>(candidato - inicio);
    }
    ++candidato;
  }
  return std::string_view::npos;
}

}  // namespace orvex
