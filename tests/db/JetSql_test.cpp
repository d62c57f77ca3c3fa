#include "db/JetSql.h"

#include <gtest/gtest.h>

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

TEST(CompareIgnoringCase, OrdersAfterFolding) {
  EXPECT_EQ(CompareIgnoringCase("abc", "ABC"), 0);
  EXPECT_LT(CompareIgnoringCase("abc", "abd"), 0);
  EXPECT_GT(CompareIgnoringCase("abcd", "ABC"), 0);
  EXPECT_EQ(CompareIgnoringCase("\xF1", "\xD1"), 0);  // ñ Ñ
}

}  // namespace
}  // namespace orvex::db
