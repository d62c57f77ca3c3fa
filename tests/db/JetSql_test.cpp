#include "db/JetSql.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "base/CodePage.h"

namespace orvex::db {
namespace {

TEST(JetToSqlite, RewritesTheDialectOutsideStrings) {
  struct Case {
    const char* jet;
    const char* sqlite;
  } cases[] = {
      {"select * from EJEMPLARES where ficha_no=5", "select * from EJEMPLARES where ficha_no=5"},
      {"select * from [Fichas Revistas] where Ficha_no=3",
       "select * from \"Fichas Revistas\" where Ficha_no=3"},
      {"where NumAdqui='L''0815'", "where NumAdqui='L''0815' COLLATE JET"},
      {"where a=\"dice \"\"hola\"\" y 'adios'\"",
       "where a='dice \"hola\" y ''adios''' COLLATE JET"},
      {"VALUES (#12/15/2008 09:30:11#,'x')",
       "VALUES ('2008-12-15 09:30:11','x' COLLATE JET)"},
      {"where Fecha >= #1/2/2008#", "where Fecha >= '2008-01-02 00:00:00'"},
      {"where Fecha < #12/15/2008 3:07 PM#", "where Fecha < '2008-12-15 15:07:00'"},
      {"where x = '#12/15/2008#'", "where x = '#12/15/2008#' COLLATE JET"},  // inside a string
      {"where [a\"b] = 1", "where \"a\"\"b\" = 1"},
      {"select a & b from t", "select a || b from t"},
      {"where a like '*ab?[!c]#'", "where a like '*ab?[!c]#' COLLATE JET"},
      {"select 'sin cerrar", "select 'sin cerrar"},
      {"select #no es fecha#", "select #no es fecha#"},
      {"ORDER by 1 DESC", "ORDER by 1 DESC"},
  };
  for (const Case& c : cases) EXPECT_EQ(JetToSqlite(c.jet), c.sqlite) << c.jet;
}

// A date literal's hour on the 12-hour clock: 12 AM is midnight (hour 0),
// 12 PM is noon (hour 12), and every other PM hour is twelve later.
TEST(JetToSqlite, TwelveAmIsMidnightAndTwelvePmIsNoon) {
  struct Case {
    const char* jet;
    const char* sqlite;
  } cases[] = {
      {"#1/2/2004 12:00:00 AM#", "'2004-01-02 00:00:00'"},
      {"#1/2/2004 12:59:59 AM#", "'2004-01-02 00:59:59'"},
      {"#1/2/2004 12:59 am#", "'2004-01-02 00:59:00'"},
      {"#1/2/2004 1:00:00 AM#", "'2004-01-02 01:00:00'"},
      {"#1/2/2004 11:59:59 AM#", "'2004-01-02 11:59:59'"},
      {"#1/2/2004 12:00:00 PM#", "'2004-01-02 12:00:00'"},
      {"#1/2/2004 12:30:00 PM#", "'2004-01-02 12:30:00'"},
      {"#1/2/2004 12:59:59 PM#", "'2004-01-02 12:59:59'"},
      {"#1/2/2004 12:59 pm#", "'2004-01-02 12:59:00'"},
      {"#1/2/2004 1:00:00 PM#", "'2004-01-02 13:00:00'"},
      {"#1/2/2004 11:59:59 PM#", "'2004-01-02 23:59:59'"},
      {"#1/2/2004 11:59PM#", "'2004-01-02 23:59:00'"},
      {"#1/2/2004 00:00:00#", "'2004-01-02 00:00:00'"},  // the 24-hour clock as it is
      {"#1/2/2004 12:00:00#", "'2004-01-02 12:00:00'"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(JetToSqlite(std::string("where Fecha = ") + c.jet),
              std::string("where Fecha = ") + c.sqlite)
        << c.jet;
  }
}

// Nothing inside a string is rewritten, whatever it holds; a NUL byte,
// which would end the engine's literal, joins the string's pieces.
TEST(JetToSqlite, KeepsEveryByteOfAString) {
  using namespace std::string_literals;
  struct Case {
    std::string jet, sqlite;
  } cases[] = {
      {"VALUES ('#12/15/2008# [x] & \"y\" -- ; \\ \r\n')",
       "VALUES ('#12/15/2008# [x] & \"y\" -- ; \\ \r\n' COLLATE JET)"},
      {"VALUES (\"it's [x] #1/2/2000#\")", "VALUES ('it''s [x] #1/2/2000#' COLLATE JET)"},
      {"VALUES ('a\0b')"s, "VALUES (('a'||char(0)||'b' COLLATE JET))"},
      {"VALUES ('\0''\0')"s, "VALUES ((''||char(0)||''''||char(0)||'' COLLATE JET))"},
      {"VALUES ('\xE9\x80\xFF')", "VALUES ('\xE9\x80\xFF' COLLATE JET)"},
  };
  for (const Case& c : cases) EXPECT_EQ(JetToSqlite(c.jet), c.sqlite) << c.jet;
}

TEST(JetLike, MatchesTheDialectsWildcardsIgnoringCase) {
  struct Case {
    const char* pattern;
    const char* text;
    bool match;
  } cases[] = {
      {"hist*", "Historia", true},       {"HIST*", "historia", true},
      {"*ria", "historia", true},        {"*", "", true},
      {"?", "", false},                  {"h?st", "hist", true},
      {"h?st", "hst", false},            {"#-#", "3-4", true},
      {"#", "x", false},                 {"[a-c]*", "Bola", true},
      {"[!a-c]*", "bola", false},        {"[!a-c]*", "dado", true},
      {"a*b*c", "axxbyyc", true},        {"a*b*c", "axxbyy", false},
      {"cami\xF3n", "CAMI\xD3N", true},  // accented letters fold too
      {"100%", "100%", true},            {"a_c", "abc", false},  // % and _ are plain
      {"[*]*", "*x", true},
  };
  for (const Case& c : cases) EXPECT_EQ(JetLike(c.pattern, c.text), c.match) << c.pattern << " / " << c.text;
}

// The matcher as it was first written: each "*" tries every length in turn,
// which takes exponential time on some patterns. The reference for the
// answers.
bool SetDeReferencia(std::string_view pattern, std::size_t& p, char c) {
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
  if (p < pattern.size()) ++p;
  return found != negate;
}

bool LikeDeReferencia(std::string_view pattern, std::size_t p, std::string_view text, std::size_t t) {
  while (p < pattern.size()) {
    const char pc = pattern[p];
    if (pc == '*') {
      while (p < pattern.size() && pattern[p] == '*') ++p;
      if (p == pattern.size()) return true;
      for (std::size_t k = t; k <= text.size(); ++k) {
        if (LikeDeReferencia(pattern, p, text, k)) return true;
      }
      return false;
    }
    if (t >= text.size()) return false;
    const char tc = UpperLatin1(text[t]);
    if (pc == '?') {
      ++p;
    } else if (pc == '#') {
      if (tc < '0' || tc > '9') return false;
      ++p;
    } else if (pc == '[') {
      ++p;
      if (!SetDeReferencia(pattern, p, tc)) return false;
    } else {
      if (UpperLatin1(pc) != tc) return false;
      ++p;
    }
    ++t;
  }
  return t == text.size();
}

// Random short patterns and texts over the characters that matter (the
// wildcards, the set syntax, letters in both cases, digits): the same
// answers as the reference.
TEST(JetLike, AnswersAsTheBacktrackingMatcherOnRandomPatterns) {
  std::mt19937 azar(20081215);
  const std::string patron_de = "aAb1*?#[]!-";
  const std::string texto_de = "aAb1-]!*";
  auto Texto = [&](const std::string& de, std::size_t maximo) {
    std::string r(azar() % (maximo + 1), ' ');
    for (char& c : r) c = de[azar() % de.size()];
    return r;
  };
  int coinciden = 0;
  constexpr int kCasos = 200000;
  for (int i = 0; i < kCasos; ++i) {
    const std::string patron = Texto(patron_de, 8);
    const std::string texto = Texto(texto_de, 8);
    const bool esperado = LikeDeReferencia(patron, 0, texto, 0);
    ASSERT_EQ(JetLike(patron, texto), esperado) << "'" << texto << "' LIKE '" << patron << "'";
    coinciden += esperado ? 1 : 0;
  }
  // Both answers are well represented.
  EXPECT_GT(coinciden, kCasos / 50);
  EXPECT_LT(coinciden, kCasos - kCasos / 50);
}

// Patterns on which trying every length of every "*" takes exponential
// time answer at once.
TEST(JetLike, ManyWildcardsAgainstALongTextAnswerAtOnce) {
  std::string estrellas_a, estrellas_set;
  for (int i = 0; i < 40; ++i) estrellas_a += "*a";
  for (int i = 0; i < 40; ++i) estrellas_set += "*[a-c]";
  const std::string aes(20000, 'a');
  std::string abc;
  for (int i = 0; i < 5000; ++i) abc += "abc";
  EXPECT_FALSE(JetLike(estrellas_a + "b", aes));
  EXPECT_TRUE(JetLike(estrellas_a, aes));
  EXPECT_TRUE(JetLike(estrellas_a + "*", aes + "b"));
  EXPECT_FALSE(JetLike(estrellas_set + "d", abc));
  EXPECT_TRUE(JetLike(estrellas_set + "?", abc));
  EXPECT_FALSE(JetLike(estrellas_a + "[!a]", aes));
}

TEST(CompareIgnoringCase, OrdersAfterFolding) {
  EXPECT_EQ(CompareIgnoringCase("abc", "ABC"), 0);
  EXPECT_LT(CompareIgnoringCase("abc", "abd"), 0);
  EXPECT_GT(CompareIgnoringCase("abcd", "ABC"), 0);
  EXPECT_EQ(CompareIgnoringCase("\xF1", "\xD1"), 0);  // ñ Ñ
}

}  // namespace
}  // namespace orvex::db
