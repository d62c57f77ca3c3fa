#include "base/CodePage.h"

#include <gtest/gtest.h>

namespace orvex {
namespace {

TEST(CodePage, EveryByteSurvivesTheRoundTripThroughUtf8) {
  const CodePage& cp = CodePage::Windows1252();
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_EQ(cp.FromUtf8(cp.ToUtf8(all)), all);
}

TEST(CodePage, ConvertsUtf8ToWindows1252) {
  const CodePage& cp = CodePage::Windows1252();
  struct Case {
    const char* utf8;
    std::string expected;
  } cases[] = {
      {"abc", "abc"},
      {"camión", "cami\xF3n"},
      {"€ 5", "\x80 5"},
      {"œuvre", "\x9Cuvre"},
      {"中文", "??"},             // not in the code page
      {"a\xC3", "a?"},            // truncated sequence
      {"\xC0\xAF", "??"},         // overlong encoding of "/"
      {"\xFF", "?"},              // never valid in UTF-8
  };
  for (const Case& c : cases) EXPECT_EQ(cp.FromUtf8(c.utf8), c.expected) << c.utf8;
  EXPECT_EQ(cp.FromUtf8(std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(CodePage, ConvertsWindows1252ToUtf8) {
  const CodePage& cp = CodePage::Windows1252();
  EXPECT_EQ(cp.ToUtf8("cami\xF3n \x80"), "camión €");
  EXPECT_EQ(cp.ToUtf8("\x81"), "\xC2\x81");
}

TEST(CodePage, Latin1LiteralsBecomeSingleBytes) {
  EXPECT_EQ(Latin1("Versión"), "Versi\xF3n");
  EXPECT_EQ(Latin1("ñÑüÜ"), "\xF1\xD1\xFC\xDC");
  EXPECT_EQ(Latin1("€"), "?");
}

TEST(CodePage, UpperCasesTheLatin1Letters) {
  struct Case {
    unsigned char in;
    unsigned char out;
  } cases[] = {
      {'a', 'A'}, {'z', 'Z'}, {'A', 'A'}, {'1', '1'}, {'_', '_'},
      {0xE1, 0xC1},  // á
      {0xF1, 0xD1},  // ñ
      {0xFE, 0xDE},  // þ
      {0xF7, 0xF7},  // ÷ is not a letter
      {0xDF, 0xDF},  // ß has no single upper case
      {0xB5, 0xB5},  // µ
      {0x9A, 0x8A},  // š
      {0x9C, 0x8C},  // œ
      {0x9E, 0x8E},  // ž
      {0xFF, 0x9F},  // ÿ
  };
  for (const Case& c : cases) {
    EXPECT_EQ(static_cast<unsigned char>(UpperLatin1(static_cast<char>(c.in))), c.out)
        << static_cast<int>(c.in);
  }
}

TEST(CodePage, ComparesIgnoringCase) {
  EXPECT_TRUE(EqualsIgnoringCase("acervo", "ACERVO"));
  EXPECT_TRUE(EqualsIgnoringCase(Latin1("camión"), Latin1("CAMIÓN")));
  EXPECT_FALSE(EqualsIgnoringCase("camion", Latin1("CAMIÓN")));
  EXPECT_FALSE(EqualsIgnoringCase("abc", "abcd"));
}

}  // namespace
}  // namespace orvex
