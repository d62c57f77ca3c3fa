#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace orvex {

// A local calendar date and time, as the regional settings show it.
struct DateTime {
  int year = 1899;
  int month = 12;  // 1-12
  int day = 30;    // 1-31
  int hour = 0;    // 0-23
  int minute = 0;
  int second = 0;
  int weekday = 6;  // 0 Sunday ... 6 Saturday
};

// `t` in the local time zone.
DateTime LocalDateTime(std::time_t t);

// The clock: local wall time for dates in pages and file names, and a
// monotonic millisecond count for timers.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual DateTime Now() = 0;
  virtual std::int64_t Milliseconds() = 0;
};

// The system clock (local time zone; tests pin it with faketime).
class SystemClock : public Clock {
 public:
  DateTime Now() override;
  std::int64_t Milliseconds() override;
};

// Spanish formats of the regional settings.
// "dd/mmm/yyyy": 05/mar/2008.
std::string FormatDate(const DateTime& t);
// "dddd": miércoles.
std::string FormatWeekday(const DateTime& t);
// "hh:mm AM/PM": 03:07 PM, 12:00 AM at midnight.
std::string FormatTime12(const DateTime& t);
// "yyyymmdd_hhmmss": 20081215_093011.
std::string FormatFileStamp(const DateTime& t);
// "mm/dd/yyyy hh:nn:ss": 12/15/2008 09:30:11.
std::string FormatUsDateTime(const DateTime& t);

}  // namespace orvex
