#include "base/Clock.h"

#include <gtest/gtest.h>

namespace orvex {
namespace {

DateTime At(int y, int mo, int d, int h, int mi, int s, int wd) {
  DateTime t;
  t.year = y, t.month = mo, t.day = d, t.hour = h, t.minute = mi, t.second = s, t.weekday = wd;
  return t;
}

TEST(Clock, FormatsDatesInSpanish) {
  const DateTime t = At(2008, 3, 5, 15, 7, 9, 3);
  EXPECT_EQ(FormatDate(t), "05/mar/2008");
  EXPECT_EQ(FormatWeekday(t), "mi\xE9rcoles");
  EXPECT_EQ(FormatTime12(t), "03:07 PM");
  EXPECT_EQ(FormatFileStamp(t), "20080305_150709");
  EXPECT_EQ(FormatUsDateTime(t), "03/05/2008 15:07:09");
  EXPECT_EQ(FormatWeekday(At(2008, 3, 8, 0, 0, 0, 6)), "s\xE1" "bado");
  EXPECT_EQ(FormatDate(At(2008, 1, 31, 0, 0, 0, 4)), "31/ene/2008");
  EXPECT_EQ(FormatDate(At(2008, 12, 1, 0, 0, 0, 1)), "01/dic/2008");
}

TEST(Clock, UsesTheTwelveHourClock) {
  struct Case {
    int hour, minute;
    const char* text;
  } cases[] = {{0, 0, "12:00 AM"}, {0, 59, "12:59 AM"}, {11, 5, "11:05 AM"},
               {12, 0, "12:00 PM"}, {13, 30, "01:30 PM"}, {23, 59, "11:59 PM"}};
  for (const Case& c : cases) {
    EXPECT_EQ(FormatTime12(At(2008, 1, 1, c.hour, c.minute, 0, 2)), c.text);
  }
}

}  // namespace
}  // namespace orvex
