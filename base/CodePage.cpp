#include "base/CodePage.h"

namespace orvex {
namespace {

// Windows-1252 positions 0x80-0x9F; the five unassigned bytes map to the C1
// control of the same number, so that every byte survives a round trip.
constexpr char32_t kWindows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};


}  // namespace

char32_t NextUtf8(std::string_view s, size_t& i) {
  const auto b0 = static_cast<unsigned char>(s[i]);
  if (b0 < 0x80) {
    ++i;
    return b0;
  }
  int extra = 0;
  char32_t c = 0;
  char32_t min = 0;
  if ((b0 & 0xE0) == 0xC0) {
    extra = 1, c = b0 & 0x1F, min = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    extra = 2, c = b0 & 0x0F, min = 0x800;
  } else if ((b0 & 0xF8) == 0xF0) {
    extra = 3, c = b0 & 0x07, min = 0x10000;
  } else {
    ++i;
    return 0xFFFD;
  }
  if (i + extra >= s.size()) {
    ++i;
    return 0xFFFD;
  }
  for (int k = 1; k <= extra; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) {
      ++i;
      return 0xFFFD;
    }
    c = (c << 6) | (b & 0x3F);
  }
  if (c < min || c > 0x10FFFF) {
    ++i;
    return 0xFFFD;
  }
  i += extra + 1;
  return c;
}

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

namespace {

std::array<char32_t, 256> Windows1252Table() {
  std::array<char32_t, 256> t{};
  for (int b = 0; b < 256; ++b) t[b] = static_cast<char32_t>(b);
  for (int b = 0; b < 32; ++b) t[0x80 + b] = kWindows1252High[b];
  return t;
}

}  // namespace

CodePage::CodePage(const std::array<char32_t, 256>& to_unicode)
    : to_unicode_(to_unicode) {}

const CodePage& CodePage::Windows1252() {
  static const CodePage page(Windows1252Table());
  return page;
}

std::string CodePage::FromUtf8(std::string_view utf8) const {
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    // Runs of ASCII, most of a catalogue's text, are copied as they are.
    size_t ascii = i;
    while (ascii < utf8.size() && static_cast<unsigned char>(utf8[ascii]) < 0x80) ++ascii;
    out.append(utf8.substr(i, ascii - i));
    i = ascii;
    if (i < utf8.size()) out += ByteFor(NextUtf8(utf8, i)).value_or('?');
  }
  return out;
}

std::optional<char> CodePage::ByteFor(char32_t c) const {
  if (c < 0x80 || (c <= 0xFF && to_unicode_[c] == c)) return static_cast<char>(c);
  for (int b = 0x80; b < 256; ++b) {
    if (to_unicode_[b] == c) return static_cast<char>(b);
  }
  return std::nullopt;
}

std::string CodePage::ToUtf8(std::string_view text) const {
  std::string out;
  out.reserve(text.size() + text.size() / 4);
  for (char ch : text) AppendUtf8(out, to_unicode_[static_cast<unsigned char>(ch)]);
  return out;
}

std::string Latin1(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    const char32_t c = NextUtf8(utf8, i);
    out += c <= 0xFF ? static_cast<char>(c) : '?';
  }
  return out;
}

std::string UpperLatin1(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = UpperLatin1(c);
  return out;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (UpperLatin1(a[i]) != UpperLatin1(b[i])) return false;
  }
  return true;
}

}  // namespace orvex
