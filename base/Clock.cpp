#include "base/Clock.h"

#include <cstdio>
#include <ctime>

#include "base/CodePage.h"

namespace orvex {
namespace {

constexpr const char* kMeses[12] = {"ene", "feb", "mar", "abr", "may", "jun",
                                    "jul", "ago", "sep", "oct", "nov", "dic"};
constexpr const char* kDias[7] = {"domingo", "lunes",   "martes", "miércoles",
                                  "jueves",  "viernes", "sábado"};

std::string Printf(const char* format, int a, int b, int c, int d = 0, int e = 0,
                   int f = 0) {
  char buffer[64];
  const int n = std::snprintf(buffer, sizeof buffer, format, a, b, c, d, e, f);
  return std::string(buffer, n > 0 ? static_cast<size_t>(n) : 0);
}

}  // namespace

DateTime SystemClock::Now() { return LocalDateTime(std::time(nullptr)); }

DateTime LocalDateTime(std::time_t instante) {
  std::tm tm{};
  localtime_r(&instante, &tm);
  DateTime t;
  t.year = tm.tm_year + 1900;
  t.month = tm.tm_mon + 1;
  t.day = tm.tm_mday;
  t.hour = tm.tm_hour;
  t.minute = tm.tm_min;
  t.second = tm.tm_sec;
  t.weekday = tm.tm_wday;
  return t;
}

std::int64_t SystemClock::Milliseconds() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

std::string FormatDate(const DateTime& t) {
  const int m = (t.month >= 1 && t.month <= 12) ? t.month - 1 : 0;
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%02d/%s/%04d", t.day, kMeses[m], t.year);
  return buffer;
}

std::string FormatWeekday(const DateTime& t) {
  const int d = (t.weekday >= 0 && t.weekday <= 6) ? t.weekday : 0;
  return Latin1(kDias[d]);
}

std::string FormatTime12(const DateTime& t) {
  int h = t.hour % 12;
  if (h == 0) h = 12;
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "%02d:%02d %s", h, t.minute, t.hour < 12 ? "AM" : "PM");
  return buffer;
}

std::string FormatFileStamp(const DateTime& t) {
  return Printf("%04d%02d%02d_%02d%02d%02d", t.year, t.month, t.day, t.hour, t.minute,
                t.second);
}

std::string FormatUsDateTime(const DateTime& t) {
  return Printf("%02d/%02d/%04d %02d:%02d:%02d", t.month, t.day, t.year, t.hour, t.minute,
                t.second);
}

}  // namespace orvex
