#include "db/JetSql.h"

#include <cstdio>
#include <optional>

#include "base/CodePage.h"

namespace orvex::db {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads an unsigned number at `i`; false when there is none.
bool Number(std::string_view s, std::size_t& i, int& value) {
  const std::size_t start = i;
  value = 0;
  while (i < s.size() && IsDigit(s[i]) && i - start < 4) value = value * 10 + (s[i++] - '0');
  return i > start;
}

bool Skip(std::string_view s, std::size_t& i, char c) {
  if (i < s.size() && s[i] == c) {
    ++i;
    return true;
  }
  return false;
}

// "mm/dd/yyyy" with an optional " hh:nn[:ss]" and " AM"/" PM"; nullopt when
// the text is not such a date.
std::optional<std::string> IsoDate(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size() && s[i] == ' ') ++i;
  int month = 0, day = 0, year = 0, hour = 0, minute = 0, second = 0;
  if (!Number(s, i, month) || !Skip(s, i, '/') || !Number(s, i, day) || !Skip(s, i, '/') ||
      !Number(s, i, year)) {
    return std::nullopt;
  }
  while (i < s.size() && s[i] == ' ') ++i;
  if (i < s.size()) {
    if (!Number(s, i, hour) || !Skip(s, i, ':') || !Number(s, i, minute)) return std::nullopt;
    if (Skip(s, i, ':') && !Number(s, i, second)) return std::nullopt;
    while (i < s.size() && s[i] == ' ') ++i;
    const std::string resto = UpperLatin1(s.substr(i));
    if (resto == "PM" && hour < 12) hour += 12;
    else if (resto == "AM" && hour == 12) hour = 0;
    else if (!resto.empty() && resto != "AM" && resto != "PM") return std::nullopt;
  }
  if (year < 100) year += year < 30 ? 2000 : 1900;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour,
                minute, second);
  return std::string(buffer);
}

void AppendQuoted(std::string& out, std::string_view text, char quote) {
  out += quote;
  for (char c : text) {
    if (c == quote) out += quote;
    out += c;
  }
  out += quote;
}

bool MatchSet(std::string_view pattern, std::size_t& p, char c) {
  // pattern[p] is just after "["; leaves p after "]".
  bool negate = false;
  if (p < pattern.size() && pattern[p] == '!') {
    negate = true;
    ++p;
  }
  bool found = false;
  bool first = true;
  while (p < pattern.size() && (pattern[p] != ']' || first)) {
    first = false;
    const char lo = UpperLatin1(pattern[p]);
    char hi = lo;
    if (p + 2 < pattern.size() && pattern[p + 1] == '-' && pattern[p + 2] != ']') {
      hi = UpperLatin1(pattern[p + 2]);
      p += 2;
    }
    const auto uc = static_cast<unsigned char>(c);
    if (uc >= static_cast<unsigned char>(lo) && uc <= static_cast<unsigned char>(hi)) found = true;
    ++p;
  }
  if (p < pattern.size()) ++p;  // the "]"
  return found != negate;
}

bool Like(std::string_view pattern, std::size_t p, std::string_view text, std::size_t t) {
  while (p < pattern.size()) {
    const char pc = pattern[p];
    if (pc == '*') {
      while (p < pattern.size() && pattern[p] == '*') ++p;
      if (p == pattern.size()) return true;
      for (std::size_t k = t; k <= text.size(); ++k) {
        if (Like(pattern, p, text, k)) return true;
      }
      return false;
    }
    if (t >= text.size()) return false;
    const char tc = UpperLatin1(text[t]);
    if (pc == '?') {
      ++p;
    } else if (pc == '#') {
      if (!IsDigit(tc)) return false;
      ++p;
    } else if (pc == '[') {
      ++p;
      if (!MatchSet(pattern, p, tc)) return false;
    } else {
      if (UpperLatin1(pc) != tc) return false;
      ++p;
    }
    ++t;
  }
  return t == text.size();
}

}  // namespace

std::string JetToSqlite(std::string_view jet) {
  std::string out;
  out.reserve(jet.size() + 32);
  for (std::size_t i = 0; i < jet.size();) {
    const char c = jet[i];
    if (c == '\'' || c == '"') {
      std::string literal;
      std::size_t j = i + 1;
      for (; j < jet.size(); ++j) {
        if (jet[j] == c) {
          if (j + 1 < jet.size() && jet[j + 1] == c) {
            literal += c;
            ++j;
            continue;
          }
          break;
        }
        literal += jet[j];
      }
      if (j >= jet.size()) {  // unterminated: leave it for the engine to refuse
        out.append(jet.substr(i));
        break;
      }
      AppendQuoted(out, literal, '\'');
      out += " COLLATE JET";
      i = j + 1;
    } else if (c == '[') {
      const std::size_t j = jet.find(']', i + 1);
      if (j == std::string_view::npos) {
        out.append(jet.substr(i));
        break;
      }
      AppendQuoted(out, jet.substr(i + 1, j - i - 1), '"');
      i = j + 1;
    } else if (c == '#') {
      const std::size_t j = jet.find('#', i + 1);
      const auto fecha = j == std::string_view::npos
                             ? std::nullopt
                             : IsoDate(jet.substr(i + 1, j - i - 1));
      if (!fecha) {
        out += c;
        ++i;
        continue;
      }
      out += '\'' + *fecha + '\'';
      i = j + 1;
    } else if (c == '&') {
      out += "||";
      ++i;
    } else {
      out += c;
      ++i;
    }
  }
  return out;
}

std::string CitaTexto(std::string_view texto) {
  std::string citado = "'";
  for (char c : texto) {
    citado += c;
    if (c == '\'') citado += '\'';
  }
  return citado + "'";
}

bool JetLike(std::string_view pattern, std::string_view text) { return Like(pattern, 0, text, 0); }

int CompareIgnoringCase(std::string_view a, std::string_view b) {
  const std::size_t n = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < n; ++i) {
    const auto x = static_cast<unsigned char>(UpperLatin1(a[i]));
    const auto y = static_cast<unsigned char>(UpperLatin1(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

}  // namespace orvex::db
