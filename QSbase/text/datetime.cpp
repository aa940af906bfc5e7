#include <QSbase/process.h>
#include <QSbase/text/chartables.h>
#include <QSbase/text/datetime.h>
#include <QSbase/text/qsstring.h>
#include <QSbase/text/timeos.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>
#include <string_view>

using namespace qsbase::detail;

// ---- The day count ----

namespace {

constexpr int kMsPerSecond = 1000;
constexpr int kMsPerMinute = 60 * kMsPerSecond;
constexpr int kMsPerHour = 60 * kMsPerMinute;
constexpr int kMsPerDay = 24 * kMsPerHour;
constexpr int kSecondsPerDay = 86400;

constexpr int kUnixEpochDay = 25569;  // 1970-01-01
constexpr int kFirstDay = -693593;    // 0001-01-01
constexpr int kLastDay = 2958465;     // 9999-12-31

// The bounds of the conversions: 1970-01-01 00:00:00 to 3000-12-31 23:59:59 UTC.
constexpr std::int64_t kMaxTime = 32535215999;

struct Date {
  int year = 0;
  int month = 0;
  int day = 0;
};

struct TimeOfDay {
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;
};

int DayNumber(const Date& date) {
  const std::chrono::year_month_day civil(std::chrono::year(date.year),
                                          std::chrono::month(static_cast<unsigned int>(date.month)),
                                          std::chrono::day(static_cast<unsigned int>(date.day)));
  return static_cast<int>(std::chrono::sys_days(civil).time_since_epoch().count()) + kUnixEpochDay;
}

bool IsDate(const Date& date) {
  return date.year >= 1 && date.year <= 9999 && date.month >= 1 && date.month <= 12 && date.day >= 1 &&
         date.day <= QsDateTime::DaysOfMonth(date.year, date.month);
}

bool IsTime(const TimeOfDay& time) {
  return time.hour < 24 && time.minute < 60 && time.second < 60 && time.millisecond < 1000;
}

// All zero outside the years 1 to 9999.
Date DateOf(double days) {
  const double whole = std::trunc(days);
  if (!(whole >= kFirstDay && whole <= kLastDay)) {
    return {};
  }
  const std::chrono::year_month_day civil{
      std::chrono::sys_days(std::chrono::days(static_cast<int>(whole) - kUnixEpochDay))};
  return {static_cast<int>(civil.year()), static_cast<int>(static_cast<unsigned int>(civil.month())),
          static_cast<int>(static_cast<unsigned int>(civil.day()))};
}

// A binary fraction lies up to 0.02 ms (in the year 9999) below the instant it stands for: 0.05 ms brings it back.
int MillisecondsOf(double days) {
  if (!std::isfinite(days)) {
    return 0;
  }
  const double exact = (days - std::trunc(days)) * kMsPerDay;
  const int milliseconds = static_cast<int>(exact + std::copysign(0.05, days));
  return std::clamp(milliseconds, 1 - kMsPerDay, kMsPerDay - 1);
}

TimeOfDay TimeOf(double days) {
  const int ms = MillisecondsOf(days);
  return {ms / kMsPerHour, ms / kMsPerMinute % 60, ms % kMsPerMinute / kMsPerSecond, ms % kMsPerSecond};
}

// A sum or difference may lie a rounding error below a whole day: midnight of that day is meant, not the last
// millisecond before it.
double CarryToMidnight(double days) {
  const double midnight = std::round(days);
  return std::abs(days - midnight) * kMsPerDay < 0.05 ? midnight : days;
}

int WholeDays(double days) {
  constexpr double limit = std::numeric_limits<int>::max();
  return std::isnan(days) ? 0 : static_cast<int>(std::clamp(days, -limit, limit));
}

void Store(int* out, int value) {
  if (out != nullptr) {
    *out = value;
  }
}

}  // namespace

QsDateTime::QsDateTime(int year, int month, int day, int hour, int minute, int second, int millisecond) : _days(0.0) {
  if (IsTime({hour, minute, second, millisecond})) {
    const std::int64_t seconds = (std::int64_t{hour} * 60 + minute) * 60 + second;
    _days = static_cast<double>(seconds * kMsPerSecond + millisecond) / kMsPerDay;
  }
  if (const Date date{year, month, day}; IsDate(date)) {
    _days += DayNumber(date);
  }
}

void QsDateTime::GetDatePart(int* year, int* month, int* day) const {
  const Date date = DateOf(_days);
  Store(year, date.year);
  Store(month, date.month);
  Store(day, date.day);
}

void QsDateTime::GetTimePart(int* hour, int* minute, int* second, int* millisecond) const {
  const TimeOfDay time = TimeOf(_days);
  Store(hour, time.hour);
  Store(minute, time.minute);
  Store(second, time.second);
  Store(millisecond, time.millisecond);
}

int QsDateTime::DayOfWeek(int year, int month, int day) {
  if (year < 1582 || year > 4902 || month < 1 || month > 12 || day < 1 || day > 31) {
    return 0;
  }
  if (month <= 2) {
    month += 12;
    --year;
  }
  const int k = year % 100;
  const int j = year / 100;
  return (day + 26 * (month + 1) / 10 + k + k / 4 + j / 4 + 5 * j + 6) % 7 + 1;
}

int QsDateTime::DaysOfMonth(int year, int month) {
  constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 0 || month < 1 || month > 12) {
    return 0;
  }
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return lengths[month - 1] + (month == 2 && leap ? 1 : 0);
}

// ---- The clock ----

namespace {

QsDateTime FromUtcMilliseconds(std::int64_t milliseconds) {
  const std::chrono::milliseconds sinceEpoch(milliseconds);
  const auto day = std::chrono::floor<std::chrono::days>(sinceEpoch);
  return static_cast<double>((sinceEpoch - day).count()) / kMsPerDay + static_cast<double>(day.count() + kUnixEpochDay);
}

QsDateTime FromParts(const std::tm& parts, int millisecond) {
  // A leap second, where the system counts them, is the second before it once more.
  return {parts.tm_year + 1900, parts.tm_mon + 1,           parts.tm_mday, parts.tm_hour,
          parts.tm_min,         std::min(parts.tm_sec, 59), millisecond};
}

// `breakDown` decides what local is.
QsDateTime ToLocalTime(std::int64_t utcMilliseconds, bool (*breakDown)(std::int64_t, std::tm&)) {
  std::tm parts{};
  const auto seconds = std::chrono::floor<std::chrono::seconds>(std::chrono::milliseconds(utcMilliseconds)).count();
  if (!breakDown(seconds, parts)) {
    return FromUtcMilliseconds(utcMilliseconds);
  }
  return FromParts(parts, static_cast<int>(utcMilliseconds - seconds * kMsPerSecond));
}

// Local time minus UTC of one instant in milliseconds, free of the rounding of the two day counts.
double OffsetMilliseconds(const QsDateTime& local, std::int64_t utcMilliseconds) {
  return std::round((local - FromUtcMilliseconds(utcMilliseconds)) * kMsPerDay);
}

double CurrentOffset() {
  const std::int64_t now = CurrentUtcMilliseconds();
  return OffsetMilliseconds(ToLocalTime(now, &BreakDownPresent), now) / kMsPerDay;
}

}  // namespace

QsDateTime QsDateTime::Now() { return ToLocalTime(CurrentUtcMilliseconds(), &BreakDownPresent); }

QsDateTime QsDateTime::UTCNow() { return FromUtcMilliseconds(CurrentUtcMilliseconds()); }

int QsDateTime::GetCurrentDayOfWeek() {
  const Date today = DateOf(Now());
  return DayOfWeek(today.year, today.month, today.day);
}

QsDateTime QsDateTime::ToUTC() const { return CarryToMidnight(_days - CurrentOffset()); }

QsDateTime QsDateTime::ToLocal() const { return CarryToMidnight(_days + CurrentOffset()); }

// ---- Differences ----

unsigned int TimeDiff(const QsDateTime& from, const QsDateTime& to) {
  const double span = CarryToMidnight(to - from);
  if (!(span > 0) || std::isinf(span)) {
    return 0;
  }
  constexpr double kWrap = 33554432;  // days: a multiple of 2^32 seconds, before the longest spans become infinite
  const double days = std::fmod(std::trunc(span), kWrap);
  // NOLINTNEXTLINE(bugprone-integer-division): whole seconds
  const double seconds = days * kSecondsPerDay + MillisecondsOf(span) / kMsPerSecond;
  return static_cast<unsigned int>(std::fmod(seconds, 4294967296.0));
}

// ---- Formatting ----

namespace {

// As "%0*d" writes it.
void AppendPadded(std::string& text, int value, int width) {
  char digits[12];
  const std::int64_t magnitude = std::abs(std::int64_t{value});
  const char* end = std::to_chars(digits, digits + sizeof digits, magnitude).ptr;
  if (value < 0) {
    text.push_back('-');
    --width;
  }
  const auto length = static_cast<int>(end - digits);
  text.append(static_cast<std::size_t>(std::max(width - length, 0)), '0');
  text.append(digits, static_cast<std::size_t>(length));
}

void AppendTime(std::string& text, const TimeOfDay& time) {
  AppendPadded(text, time.hour, 2);
  text.push_back(':');
  AppendPadded(text, time.minute, 2);
  text.push_back(':');
  AppendPadded(text, time.second, 2);
}

void AppendMilliseconds(std::string& text, const TimeOfDay& time, char separator) {
  text.push_back(separator);
  AppendPadded(text, time.millisecond, 3);
}

void AppendDate(std::string& text, const Date& date) {
  AppendPadded(text, date.year, 4);
  text.push_back('-');
  AppendPadded(text, date.month, 2);
  text.push_back('-');
  AppendPadded(text, date.day, 2);
}

QsDateTime NowIfUnset(const QsDateTime& time) { return time == 0.0 ? QsDateTime::Now() : time; }

}  // namespace

std::string TimeDiffToStr(const QsDateTime& span) {
  constexpr std::size_t maxLength = 24;
  const double carried = CarryToMidnight(span);
  const int days = WholeDays(carried);
  const TimeOfDay time = TimeOf(carried);
  std::string text;
  if (days != 0) {
    text = std::to_string(days) + " days ";
  }
  AppendTime(text, time);
  AppendMilliseconds(text, time, ',');
  return text.substr(0, maxLength);
}

std::string Time2string(const QsDateTime& time, bool withMilliseconds) {
  const TimeOfDay parts = TimeOf(NowIfUnset(time));
  std::string text;
  AppendTime(text, parts);
  if (withMilliseconds) {
    AppendMilliseconds(text, parts, '.');
  }
  return text;
}

std::string DateTime2string(const QsDateTime& time, bool withTime, bool withMilliseconds) {
  const QsDateTime shown = NowIfUnset(time);
  std::string text;
  text.reserve(23);
  AppendDate(text, DateOf(shown));
  if (!withTime) {
    return text;
  }
  const TimeOfDay parts = TimeOf(shown);
  text.push_back(' ');
  AppendTime(text, parts);
  if (withMilliseconds) {
    AppendMilliseconds(text, parts, '.');
  }
  return text;
}

std::string DateTime2StringWithoutDelimiter(const QsDateTime& time) {
  const QsDateTime shown = NowIfUnset(time);
  const Date date = DateOf(shown);
  const TimeOfDay parts = TimeOf(shown);
  std::string text;
  AppendPadded(text, date.year, 4);
  for (const int part : {date.month, date.day, parts.hour, parts.minute, parts.second}) {
    AppendPadded(text, part, 2);
  }
  AppendPadded(text, parts.millisecond, 3);
  return text;
}

std::string DateTime2InternationalString(std::int64_t time, char separator) {
  std::tm parts{};
  RefreshTimeZone();
  if (time < 0 || time > kMaxTime || !BreakDownLocal(time, parts)) {
    return {};
  }
  return strprintf("%04i/%02i/%02i%c%02i:%02i:%02i", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, separator,
                   parts.tm_hour, parts.tm_min, parts.tm_sec);
}

// ---- Conversions ----

QsDateTime ConvertTimeT(std::int64_t time) {
  if (time < 0 || time > kMaxTime) {
    return 0.0;
  }
  return FromUtcMilliseconds(time * kMsPerSecond);
}

std::int64_t ConvertQsDateTime(const QsDateTime& time) {
  const Date date = DateOf(time);
  const TimeOfDay parts = TimeOf(time);
  std::tm local{};
  local.tm_year = date.year - 1900;
  local.tm_mon = date.month - 1;
  local.tm_mday = date.day;
  local.tm_hour = parts.hour;
  local.tm_min = parts.minute;
  local.tm_sec = parts.second;
  local.tm_isdst = 0;
  const std::int64_t converted = MakeLocal(local);
  return converted >= 0 && converted <= kMaxTime ? converted : -1;
}

namespace {

// Leading white space, a sign, digits; values out of range stop at the limits.
int ReadInt(std::string_view text) {
  while (!text.empty() && HasClass(text.front(), kWhiteSpace)) {
    text.remove_prefix(1);
  }
  const bool negative = !text.empty() && text.front() == '-';
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') {
      return 0;
    }
  }
  int value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    return negative ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
  }
  return value;
}

using Pieces = std::array<std::string_view, 3>;

// What stands between separators, as far as it has characters: how many pieces, one more than a date or time has at
// most, of which the first three are kept.
std::size_t Split(std::string_view text, char separator, Pieces& pieces) {
  std::size_t count = 0;
  while (!text.empty() && count <= pieces.size()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    if (end != 0 && count < pieces.size()) {
      pieces[count] = text.substr(0, end);
    }
    count += end != 0 ? 1 : 0;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return count;
}

// Cuts ".digits" off the seconds and gives the digits as milliseconds.
int TakeMilliseconds(std::string_view& seconds) {
  const std::size_t point = seconds.find('.');
  if (point == std::string_view::npos) {
    return 0;
  }
  const int milliseconds = ReadInt(seconds.substr(point + 1));
  seconds = seconds.substr(0, point);
  return milliseconds;
}

TimeOfDay ReadTime(std::string_view text, bool withFraction) {
  Pieces pieces;
  if (Split(text, ':', pieces) != pieces.size()) {
    return {};
  }
  const int milliseconds = withFraction ? TakeMilliseconds(pieces[2]) : 0;
  return {ReadInt(pieces[0]), ReadInt(pieces[1]), ReadInt(pieces[2]), milliseconds};
}

QsDateTime ReadDateTime(std::string_view text, char dateSeparator, bool withFraction) {
  Pieces halves;
  Pieces date;
  const std::size_t count = Split(text, ' ', halves);
  if (count == 0 || Split(halves[0], dateSeparator, date) != date.size()) {
    return 0.0;
  }
  const TimeOfDay time = count > 1 ? ReadTime(halves[1], withFraction) : TimeOfDay{};
  return {ReadInt(date[0]), ReadInt(date[1]), ReadInt(date[2]), time.hour, time.minute, time.second, time.millisecond};
}

}  // namespace

QsDateTime InternationalString2DateTime(const std::string& text) { return ReadDateTime(text, '/', false); }

QsDateTime string2DateTime(const std::string& text) { return ReadDateTime(text, '-', true); }

// ---- Tick counts ----

bool TIME_PASSED(unsigned int start, unsigned int duration) {
  const unsigned int now = QsGetTickCount();
  return start > now || now - start > duration;
}

unsigned int TIME_DIFF(unsigned int start, unsigned int end) { return end - start; }

std::string ticks2str(unsigned int milliseconds) {
  const unsigned int seconds = milliseconds / kMsPerSecond;
  const unsigned int days = seconds / kSecondsPerDay;
  const std::string time =
      strprintf("%u:%02u:%02u", seconds % kSecondsPerDay / 3600, seconds % 3600 / 60, seconds % 60);
  return days == 0 ? time : strprintf("%u days ", days) + time;
}

// ---- The time zone ----

namespace {

// Seconds east of UTC at noon UTC on the first of a month.
int OffsetInMonth(int year, int month) {
  const std::int64_t day = DayNumber({year, month, 1}) - kUnixEpochDay;
  const std::int64_t noon = (day * kSecondsPerDay + 43200) * kMsPerSecond;
  return static_cast<int>(OffsetMilliseconds(ToLocalTime(noon, &BreakDownLocal), noon) / kMsPerSecond);
}

}  // namespace

std::string QsGetTimeZone() {
  RefreshTimeZone();
  const int year = DateOf(QsDateTime::Now()).year;
  const int january = OffsetInMonth(year, 1);
  const int july = OffsetInMonth(year, 7);
  const int west = -std::min(january, july);
  const int daylightHours = january != july ? 1 : 0;
  const int hours = daylightHours - west / 3600;
  const int minutes = (west % 3600) / -60;

  std::string text = hours > 0 ? "+" : "-";
  AppendPadded(text, std::abs(hours), 2);
  return text + (minutes == 0 ? "00" : std::to_string(minutes));
}

unsigned int Qs_time32() { return static_cast<unsigned int>(CurrentUtcMilliseconds() / kMsPerSecond); }

int Qs_mktime32(struct tm* parts) {
  if (parts == nullptr) {
    return -1;
  }
  std::tm completed = *parts;
  const std::int64_t time = MakeLocal(completed);
  if (time < 0 || time > std::numeric_limits<std::int32_t>::max()) {
    return -1;
  }
  *parts = completed;
  return static_cast<int>(time);
}
