#include <QSbase/text/datetime.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

// Local time is UTC, so that what reads local time is the inverse of what writes it.
// NOLINTNEXTLINE(concurrency-mt-unsafe): before main() there are no other threads
[[maybe_unused]] const int zoneIsSet = putenv(const_cast<char*>("TZ=UTC0"));

constexpr double kFirst = -693593;  // 0001-01-01
constexpr double kBehindLast = 2958466;
constexpr std::int64_t kMaxTime = 32535215999;  // 3000-12-31 23:59:59

std::uint64_t Number(fuzz::Input& input, int bytes) {
  std::uint64_t number = 0;
  for (int i = 0; i < bytes; ++i) {
    number = number << 8 | input.Parameter();
  }
  return number;
}

bool IsClose(double one, double other) { return std::abs(one - other) * 86400000 < 0.5; }

// ---- What was read ----

void CheckRead(const QsDateTime& read) {
  const bool isInRange = read == 0.0 || (read > kFirst - 1 && read < kBehindLast);
  fuzz::Demand(std::isfinite(static_cast<double>(read)) ? "" : "no number was read");
  // Parts of a time may be negative without a bound.
  fuzz::Demand(isInRange || read < 0.0 ? "" : "a date beyond the year 9999 was read");
  if (read <= 0.0 || read >= kBehindLast) {
    return;
  }
  const std::string text = DateTime2string(read, true, true);
  fuzz::Demand(text.size() == 23 && IsClose(string2DateTime(text), read) ? "" : "it does not come back from " + text);
}

int IntOf(const std::string& text) {
  const long long value = std::strtoll(text.c_str(), nullptr, 10);
  return static_cast<int>(
      std::clamp<long long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// By lists of all pieces, and the C library for the numbers.
QsDateTime ReadSlowly(const std::string& text, const char* separator, bool withFraction) {
  std::vector<std::string> halves;
  std::vector<std::string> date;
  std::vector<std::string> time;
  SplitString(text, " ", halves, false);
  if (halves.empty() || SplitString(halves[0], separator, date, false) != 3) {
    return 0.0;
  }
  if (halves.size() < 2 || SplitString(halves[1], ":", time, false) != 3) {
    time.assign(3, "0");
  }
  const std::size_t point = withFraction ? time[2].find('.') : std::string::npos;
  const int milliseconds = point == std::string::npos ? 0 : IntOf(time[2].substr(point + 1));
  time[2] = time[2].substr(0, point);
  return {IntOf(date[0]), IntOf(date[1]), IntOf(date[2]), IntOf(time[0]), IntOf(time[1]), IntOf(time[2]), milliseconds};
}

void CheckTexts(const std::string& text) {
  fuzz::Demand(string2DateTime(text) == ReadSlowly(text, "-", true) ? "" : "string2DateTime");
  fuzz::Demand(InternationalString2DateTime(text) == ReadSlowly(text, "/", false) ? "" : "the international form");
  CheckRead(string2DateTime(text));
  CheckRead(InternationalString2DateTime(text));
}

// ---- Parts ----

struct Parts {
  int year, month, day, hour, minute, second, millisecond;
};

// The day count by the calendar of the C++ library.
double DaysOf(const Parts& parts) {
  using namespace std::chrono;
  const year_month_day date(year(parts.year), month(static_cast<unsigned int>(parts.month)),
                            day(static_cast<unsigned int>(parts.day)));
  const bool isDate = parts.year >= 1 && parts.year <= 9999 && date.ok();
  const auto days = isDate ? (sys_days(date) - sys_days(year_month_day(year(1899), month(12), day(30)))).count() : 0;
  const bool isTime = parts.hour < 24 && parts.minute < 60 && parts.second < 60 && parts.millisecond < 1000;
  const auto time = hours(parts.hour) + minutes(parts.minute) + seconds(parts.second) + milliseconds(parts.millisecond);
  return static_cast<double>(days) + (isTime ? static_cast<double>(time.count()) / 86400000 : 0.0);
}

void CheckComeBack(const QsDateTime& value, const Parts& parts) {
  Parts got{};
  value.GetDatePart(&got.year, &got.month, &got.day);
  value.GetTimePart(&got.hour, &got.minute, &got.second, &got.millisecond);
  fuzz::Demand(std::memcmp(&got, &parts, sizeof parts) == 0 ? "" : "parts do not come back");
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", parts.year, parts.month, parts.day, parts.hour,
                parts.minute, parts.second, parts.millisecond);
  fuzz::DemandEqual(text, DateTime2string(value, true, true), "DateTime2string");
  fuzz::Demand(string2DateTime(text) == value ? "" : "string2DateTime reads another time");
  fuzz::DemandEqual(std::string(text, 10), DateTime2string(value, false, false), "the date");
  fuzz::DemandEqual(std::string(text + 11, 12), Time2string(value, true), "the time");
  std::string digits(text);
  std::erase_if(digits, [](char c) { return c < '0' || c > '9'; });
  fuzz::DemandEqual(digits, DateTime2StringWithoutDelimiter(value), "the digits");
}

void CheckParts(fuzz::Input& input) {
  Parts parts{static_cast<int>(Number(input, 2) % 10100), static_cast<int>(input.Parameter() % 14),
              static_cast<int>(input.Parameter() % 33),   static_cast<int>(input.Parameter() % 25),
              static_cast<int>(input.Parameter() % 61),   static_cast<int>(input.Parameter() % 61),
              static_cast<int>(Number(input, 2) % 1001)};
  const QsDateTime value(parts.year, parts.month, parts.day, parts.hour, parts.minute, parts.second, parts.millisecond);
  const double expected = DaysOf(parts);
  fuzz::Demand(IsClose(expected, value) ? "" : "another day count");
  const bool isTime = parts.hour < 24 && parts.minute < 60 && parts.second < 60 && parts.millisecond < 1000;
  if (isTime && std::floor(expected) > 0 && parts.year > 1899) {
    CheckComeBack(value, parts);
  }
}

// ---- Seconds since 1970 ----

void CheckSeconds(std::int64_t time) {
  const QsDateTime value = ConvertTimeT(time);
  const std::string text = DateTime2InternationalString(time, ' ');
  if (time < 0 || time > kMaxTime) {
    fuzz::Demand(value == 0.0 && text.empty() ? "" : "a time out of range");
    return;
  }
  fuzz::Demand(ConvertQsDateTime(value) == time ? "" : "seconds do not come back");
  fuzz::Demand(IsClose(value, 25569 + static_cast<double>(time) / 86400) ? "" : "another day count of seconds");
  fuzz::Demand(IsClose(InternationalString2DateTime(text), value) ? "" : "seconds do not come back from " + text);
}

// ---- Any number ----

void CheckAny(double days, double others) {
  const QsDateTime value(days);
  Parts got{};
  value.GetDatePart(&got.year, &got.month, &got.day);
  value.GetTimePart(&got.hour, &got.minute, &got.second, &got.millisecond);
  fuzz::Demand(got.year >= 0 && got.year <= 9999 && got.month <= 12 && got.day <= 31 ? "" : "a date out of range");
  fuzz::Demand(std::abs(got.hour) < 24 && std::abs(got.minute) < 60 && std::abs(got.second) < 60 &&
                       std::abs(got.millisecond) < 1000
                   ? ""
                   : "a time out of range");
  fuzz::Demand(TimeDiffToStr(value).size() <= 24 ? "" : "a long span");
  fuzz::Demand(DateTime2string(value, true, true).size() <= 27 ? "" : "a long text");
  const unsigned int span = TimeDiff(value, others);
  fuzz::Demand(others > days || span == 0 ? "" : "a span backwards");
  const std::int64_t seconds = ConvertQsDateTime(value);
  fuzz::Demand(seconds >= -1 && seconds <= kMaxTime ? "" : "seconds out of range");
  value.ToUTC();
  value.ToLocal();
}

double Any(fuzz::Input& input) {
  const std::uint64_t bits = Number(input, 8);
  double number = 0;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

// ---- Weekdays and ticks ----

void CheckWeekday(int year, int month, int day) {
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned int>(month)),
                                         std::chrono::day(static_cast<unsigned int>(day))};
  if (year >= 1583 && year <= 4902 && date.ok()) {
    const int expected = static_cast<int>(std::chrono::weekday(std::chrono::sys_days(date)).c_encoding()) + 1;
    fuzz::Demand(QsDateTime::DayOfWeek(year, month, day) == expected ? "" : "another weekday");
  }
  const int weekday = QsDateTime::DayOfWeek(year, month, day);
  fuzz::Demand(weekday >= 0 && weekday <= 7 ? "" : "a weekday out of range");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  CheckTexts(std::string(input.Rest()));
  fuzz::DemandBounds("string2DateTime", input.Rest(),
                     [](const std::string& in) { return string2DateTime(in), sizeof(double); });
  fuzz::DemandBounds("InternationalString2DateTime", input.Rest(),
                     [](const std::string& in) { return InternationalString2DateTime(in), sizeof(double); });
  CheckParts(input);
  CheckSeconds(static_cast<std::int64_t>(Number(input, 5)) - 1000);
  CheckWeekday(static_cast<int>(Number(input, 2)), static_cast<int>(input.Parameter() % 16),
               static_cast<int>(input.Parameter() % 40));
  const double any = Any(input);
  CheckAny(any, Any(input));
  const auto ticks = static_cast<unsigned int>(Number(input, 4));
  fuzz::Demand(TIME_DIFF(ticks, ticks + 5) == 5 && ticks2str(ticks).size() <= 16 ? "" : "ticks");
  return 0;
}
