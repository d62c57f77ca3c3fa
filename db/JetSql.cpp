#include "db/JetSql.h"

#include <algorithm>
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
    const std::string rest = UpperLatin1(s.substr(i));
    if (rest == "PM" && hour < 12) hour += 12;
    else if (rest == "AM" && hour == 12) hour = 0;
    else if (!rest.empty() && rest != "AM" && rest != "PM") return std::nullopt;
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

// A text literal compared without regard to letter case. SQLite ends a
// literal at a NUL byte, so a text that holds one is written as the
// concatenation of its pieces with char(0) between them: every byte of the
// text reaches the engine.
void AppendTextLiteral(std::string& out, std::string_view text) {
  if (text.find('\0') == std::string_view::npos) {
    AppendQuoted(out, text, '\'');
    out += " COLLATE JET";
    return;
  }
  out += '(';
  for (std::size_t i = 0;; ++i) {
    const std::size_t nul = std::min(text.find('\0', i), text.size());
    AppendQuoted(out, text.substr(i, nul - i), '\'');
    if (nul == text.size()) break;
    out += "||char(0)||";
    i = nul;
  }
  out += " COLLATE JET)";
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

// Matches one character against the pattern element at `p` (anything but
// "*") and leaves `p` after the element.
bool MatchOne(std::string_view pattern, std::size_t& p, char c) {
  const char pc = pattern[p++];
  const char tc = UpperLatin1(c);
  if (pc == '?') return true;
  if (pc == '#') return IsDigit(tc);
  if (pc == '[') return MatchSet(pattern, p, tc);
  return UpperLatin1(pc) == tc;
}

// Every element but "*" takes exactly one character, so when an element
// fails only the last "*" seen needs to take one character more: the
// earlier ones can keep what they took. The work is at most the pattern's
// length times the text's, whatever the pattern.
bool Like(std::string_view pattern, std::string_view text) {
  constexpr std::size_t kNoStar = std::string_view::npos;
  std::size_t p = 0, t = 0;
  std::size_t after_star = kNoStar;  // the pattern just after the last "*"
  std::size_t star_end = 0;          // where that "*"'s run ends in the text
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      while (p < pattern.size() && pattern[p] == '*') ++p;
      after_star = p;
      star_end = t;
      continue;
    }
    std::size_t next = p;
    if (p < pattern.size() && MatchOne(pattern, next, text[t])) {
      p = next;
      ++t;
      continue;
    }
    if (after_star == kNoStar) return false;
    p = after_star;
    t = ++star_end;
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
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
      AppendTextLiteral(out, literal);
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
      const auto date = j == std::string_view::npos
                             ? std::nullopt
                             : IsoDate(jet.substr(i + 1, j - i - 1));
      if (!date) {
        out += c;
        ++i;
        continue;
      }
      out += '\'' + *date + '\'';
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

std::string CitaTexto(std::string_view text) {
  std::string quoted = "'";
  for (char c : text) {
    quoted += c;
    if (c == '\'') quoted += '\'';
  }
  return quoted + "'";
}

bool JetLike(std::string_view pattern, std::string_view text) { return Like(pattern, text); }

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
