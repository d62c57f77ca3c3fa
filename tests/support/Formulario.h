#pragma once

#include <string>
#include <string_view>

namespace orvex::testing {

// Every byte but ASCII letters and digits percent-encoded, as a form sends
// a field's text.
inline std::string Codifica(std::string_view texto) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string r;
  for (const char ch : texto) {
    const auto c = static_cast<unsigned char>(ch);
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
      r += ch;
    } else {
      r += '%';
      r += kHex[c >> 4];
      r += kHex[c & 15];
    }
  }
  return r;
}

}  // namespace orvex::testing
