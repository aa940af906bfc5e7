#include <QSbase/process.h>
#include <QSbase/text/datetime.h>

#include <common/platform.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <time.h>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

namespace {

using qsbase::testing::IsWine;
using qsbase::testing::kOnWindows;
using qsbase::testing::RemoveEnvironment;

using Parts = std::tuple<int, int, int, int, int, int, int>;

constexpr double kMillisecond = 1.0 / 86400000;

/// Of the C library. That of Windows knows offsets ("XXX-5:30") and no names.
void UseZone(const std::string& zone) { qsbase::testing::SetEnvironment("TZ", zone); }

/// One hour ahead of UTC, and two in summer.
const char* const kCentralEurope = kOnWindows ? "CET-1CEST" : "Europe/Berlin";

Parts PartsOf(const QsDateTime& time) {
  int year = -1, month = -1, day = -1, hour = -1, minute = -1, second = -1, ms = -1;
  time.GetDatePart(&year, &month, &day);
  time.GetTimePart(&hour, &minute, &second, &ms);
  return {year, month, day, hour, minute, second, ms};
}

QsDateTime FromParts(const Parts& parts) { return std::make_from_tuple<QsDateTime>(parts); }

QsDateTime Date(int year, int month, int day) { return {year, month, day, 0, 0, 0, 0}; }

QsDateTime TimeOnly(int hour, int minute, int second, int ms) { return {0, 0, 0, hour, minute, second, ms}; }

double Days(const QsDateTime& time) { return time; }

#ifdef _WIN32

/// Seconds by which the system's clock is ahead of UTC right now.
int CurrentOffset() {
  TIME_ZONE_INFORMATION zone;
  const bool summer = GetTimeZoneInformation(&zone) == TIME_ZONE_ID_DAYLIGHT;
  return -60 * static_cast<int>(zone.Bias + (summer ? zone.DaylightBias : zone.StandardBias));
}

/// A program cannot change the zone of the system: the check runs once, in the one that is set. (Wine takes the
/// variable TZ of its host for that, so CTest sets one.) The C runtime must not see the variable.
void ForEachZone(const std::vector<std::string>& /*zones*/, const std::function<void(const std::string&)>& check) {
  RemoveEnvironment("TZ");
  check("the system's");
}

#else

/// Seconds by which local time is ahead of UTC right now, as the C library has it.
int CurrentOffset() {
  const time_t now = time(nullptr);
  std::tm local = *std::localtime(&now);
  std::tm utc = *std::gmtime(&now);
  local.tm_isdst = utc.tm_isdst = 0;
  return static_cast<int>(std::difftime(std::mktime(&local), std::mktime(&utc)));
}

/// Runs the check in each zone.
void ForEachZone(const std::vector<std::string>& zones, const std::function<void(const std::string&)>& check) {
  for (const std::string& zone : zones) {
    UseZone(zone);
    check(zone);
  }
}

#endif

}  // namespace

// ---- The value ----

TEST(QsDateTime, NumbersDaysFromThe30thOfDecember1899) {
  EXPECT_EQ(Days(QsDateTime()), 0.0);
  EXPECT_EQ(Days(Date(1899, 12, 30)), 0.0);
  EXPECT_EQ(Days(Date(1900, 1, 1)), 2.0);
  EXPECT_EQ(Days(Date(1970, 1, 1)), 25569.0);
  EXPECT_EQ(Days(Date(1, 1, 1)), -693593.0);
  EXPECT_EQ(Days(Date(9999, 12, 31)), 2958465.0);
  EXPECT_EQ(Days(QsDateTime(1970, 1, 1, 18, 0, 0, 0)), 25569.75);
}

TEST(QsDateTime, InvalidPartsFallBack) {
  EXPECT_EQ(Days(QsDateTime(2000, 2, 30, 12, 0, 0, 0)), 0.5);
  EXPECT_EQ(Days(QsDateTime(2000, 1, 1, 24, 0, 0, 0)), Days(Date(2000, 1, 1)));
  EXPECT_EQ(Days(QsDateTime(2000, 1, 1, 0, 60, 0, 0)), Days(Date(2000, 1, 1)));
  EXPECT_EQ(Days(QsDateTime(2000, 1, 1, 0, 0, 60, 0)), Days(Date(2000, 1, 1)));
  EXPECT_EQ(Days(QsDateTime(2000, 1, 1, 0, 0, 0, 1000)), Days(Date(2000, 1, 1)));
  for (const auto& [year, month, day] :
       {std::tuple{0, 1, 1}, std::tuple{10000, 1, 1}, std::tuple{2000, 0, 1}, std::tuple{2000, 13, 1},
        std::tuple{2000, 1, 0}, std::tuple{2000, 1, 32}, std::tuple{2001, 2, 29}, std::tuple{-5, 1, 1}}) {
    EXPECT_EQ(Days(QsDateTime(year, month, day, 6, 0, 0, 0)), 0.25) << year << " " << month << " " << day;
  }
}

TEST(QsDateTime, TimePartsHaveNoLowerBound) {
  EXPECT_EQ(Days(QsDateTime(1970, 1, 2, -6, 0, 0, 0)), 25569.75);
  EXPECT_EQ(Days(TimeOnly(0, -720, 0, 0)), -0.5);
  const int lowest = std::numeric_limits<int>::min();
  EXPECT_LT(Days(TimeOnly(lowest, lowest, lowest, lowest)), 0.0);
}

TEST(QsDateTime, IsANumber) {
  const QsDateTime early = Date(2000, 1, 1);
  const QsDateTime late = 36527.0;
  EXPECT_LT(early, late);
  EXPECT_EQ(late - early, 1.0);
  QsDateTime copy = early;
  EXPECT_EQ(copy, early);
  copy = late;
  EXPECT_EQ(copy, late);
  std::multimap<QsDateTime, int> order{{late, 2}, {early, 1}, {late, 3}};
  EXPECT_EQ(order.begin()->second, 1);
  EXPECT_EQ(order.count(36527.0), 2U);
}

TEST(QsDateTime, EveryDateOfTheCalendarComesBack) {
  std::chrono::sys_days day = std::chrono::year(1) / 1 / 1;
  for (int number = -693593; number <= 2958465; ++number, day += std::chrono::days(1)) {
    const std::chrono::year_month_day civil = day;
    const int year = static_cast<int>(civil.year());
    const int month = static_cast<int>(static_cast<unsigned int>(civil.month()));
    const int dayOfMonth = static_cast<int>(static_cast<unsigned int>(civil.day()));
    int y, m, d;
    QsDateTime(static_cast<double>(number)).GetDatePart(&y, &m, &d);
    ASSERT_TRUE(y == year && m == month && d == dayOfMonth) << number;
    ASSERT_EQ(Days(Date(year, month, dayOfMonth)), number);
  }
}

TEST(QsDateTime, DayNumberIsTheClosedFormula) {
  const int before[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  for (int year = 1; year <= 9999; ++year) {
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    for (int month = 1; month <= 12; ++month) {
      const int number = (year - 1) * 365 + (year - 1) / 4 - (year - 1) / 100 + (year - 1) / 400 + before[month - 1] +
                         (leap && month > 2 ? 1 : 0) + 1 - 693594;
      ASSERT_EQ(Days(Date(year, month, 1)), number) << year << "-" << month;
    }
  }
}

TEST(QsDateTime, EverySecondOfADayComesBack) {
  for (const int year : {1900, 1989, 2013, 2079, 9999}) {
    for (int second = 0; second < 86400; ++second) {
      for (const int ms : {0, 1, 499, 999}) {
        const Parts parts{year, 12, 31, second / 3600, second / 60 % 60, second % 60, ms};
        ASSERT_EQ(PartsOf(FromParts(parts)), parts) << year << " " << second << " " << ms;
      }
    }
  }
}

TEST(QsDateTime, RandomInstantsComeBack) {
  std::mt19937 random(3);
  const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned int>(limit)); };
  for (int i = 0; i < 1000000; ++i) {
    const int year = 1900 + below(8100);
    const int month = 1 + below(12);
    const Parts parts{year,      month,      1 + below(QsDateTime::DaysOfMonth(year, month)), below(24), below(60),
                      below(60), below(1000)};
    ASSERT_EQ(PartsOf(FromParts(parts)), parts);
  }
}

TEST(QsDateTime, TheLastMillisecondIsNotPassed) {
  EXPECT_EQ(PartsOf(36526.0 - 1e-11), Parts(1999, 12, 31, 23, 59, 59, 999));
  EXPECT_EQ(PartsOf(-0.9999999999999), Parts(1899, 12, 30, -23, -59, -59, -999));
}

TEST(QsDateTime, NegativeValuesHaveNegativeTimeParts) {
  EXPECT_EQ(PartsOf(-1.25), Parts(1899, 12, 29, -6, 0, 0, 0));
  EXPECT_EQ(PartsOf(-kMillisecond), Parts(1899, 12, 30, 0, 0, 0, -1));
}

TEST(QsDateTime, ValuesBeyondTheCalendar) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double days : {2958466.0, -693594.0, 1e300, -1e300, infinity, -infinity, std::nan("")}) {
    EXPECT_EQ(PartsOf(days), Parts(0, 0, 0, 0, 0, 0, 0)) << days;
    EXPECT_EQ(DateTime2string(days, true, true), "0000-00-00 00:00:00.000") << days;
    EXPECT_LE(TimeDiffToStr(days).size(), 24U) << days;
    EXPECT_EQ(ConvertQsDateTime(days), -1) << days;
  }
}

TEST(QsDateTime, PartsNotWantedMayBeNull) {
  int year = 0;
  int minute = 0;
  const QsDateTime time(2013, 2, 13, 10, 11, 12, 250);
  time.GetDatePart(&year, nullptr, nullptr);
  time.GetTimePart(nullptr, &minute, nullptr, nullptr);
  EXPECT_EQ(year, 2013);
  EXPECT_EQ(minute, 11);
}

TEST(QsDateTime, DayOfWeek) {
  EXPECT_EQ(QsDateTime::DayOfWeek(2013, 2, 13), 4);
  EXPECT_EQ(QsDateTime::DayOfWeek(1581, 1, 1), 0);
  EXPECT_EQ(QsDateTime::DayOfWeek(4903, 1, 1), 0);
  EXPECT_EQ(QsDateTime::DayOfWeek(2013, 0, 1), 0);
  EXPECT_EQ(QsDateTime::DayOfWeek(2013, 13, 1), 0);
  EXPECT_EQ(QsDateTime::DayOfWeek(2013, 1, 0), 0);
  EXPECT_EQ(QsDateTime::DayOfWeek(2013, 1, 32), 0);
}

TEST(QsDateTime, DayOfWeekOfEveryDay) {
  const std::chrono::sys_days end = std::chrono::year(4903) / 1 / 1;
  for (std::chrono::sys_days day = std::chrono::year(1582) / 1 / 1; day < end; day += std::chrono::days(1)) {
    const std::chrono::year_month_day civil = day;
    const int expected = static_cast<int>(std::chrono::weekday(day).c_encoding()) + 1;
    ASSERT_EQ(QsDateTime::DayOfWeek(static_cast<int>(civil.year()),
                                    static_cast<int>(static_cast<unsigned int>(civil.month())),
                                    static_cast<int>(static_cast<unsigned int>(civil.day()))),
              expected);
  }
}

TEST(QsDateTime, DaysOfMonth) {
  const int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int month = 1; month <= 12; ++month) {
    EXPECT_EQ(QsDateTime::DaysOfMonth(2013, month), lengths[month - 1]);
  }
  EXPECT_EQ(QsDateTime::DaysOfMonth(0, 2), 29);
  EXPECT_EQ(QsDateTime::DaysOfMonth(1900, 2), 28);
  EXPECT_EQ(QsDateTime::DaysOfMonth(2000, 2), 29);
  EXPECT_EQ(QsDateTime::DaysOfMonth(2012, 2), 29);
  EXPECT_EQ(QsDateTime::DaysOfMonth(-4, 2), 0);
  EXPECT_EQ(QsDateTime::DaysOfMonth(2013, 0), 0);
  EXPECT_EQ(QsDateTime::DaysOfMonth(2013, 13), 0);
}

// ---- The clock ----

TEST(QsDateTimeClock, UtcIsTheSystemClock) {
  const auto before = std::chrono::system_clock::now();
  const double days = QsDateTime::UTCNow();
  const auto after = std::chrono::system_clock::now();
  const auto toDays = [](std::chrono::system_clock::time_point time) {
    return std::chrono::duration<double, std::ratio<86400>>(time.time_since_epoch()).count() + 25569.0;
  };
  EXPECT_GE(days, toDays(before) - 2 * kMillisecond);
  EXPECT_LE(days, toDays(after) + 2 * kMillisecond);
}

TEST(QsDateTimeClock, LocalTimeIsAheadByTheZonesOffset) {
  ForEachZone({"UTC", "Europe/Berlin", "Asia/Kathmandu", "America/St_Johns", "Pacific/Kiritimati"},
              [](const std::string& zone) {
                const double utc = QsDateTime::UTCNow();
                const double local = QsDateTime::Now();
                EXPECT_NEAR((local - utc) * 86400, CurrentOffset(), 5) << zone;
              });
}

TEST(QsDateTimeClock, ShiftsByTheCurrentOffset) {
  ForEachZone({"UTC", "Asia/Kolkata", "America/St_Johns", "Pacific/Marquesas"}, [](const std::string& zone) {
    const QsDateTime noon(2013, 2, 13, 12, 0, 0, 0);
    EXPECT_NEAR((noon.ToLocal() - noon) * 86400, CurrentOffset(), 1e-5) << zone;
    EXPECT_NEAR((noon.ToUTC() - noon) * 86400, -CurrentOffset(), 1e-5) << zone;
    EXPECT_EQ(PartsOf(noon.ToLocal().ToUTC()), PartsOf(noon)) << zone;
  });
}

TEST(QsDateTimeClock, AShiftToMidnightIsMidnight) {
  ForEachZone({"Asia/Kolkata"}, [](const std::string&) {
    const int minutes = CurrentOffset() / 60 + 1440;
    for (int day = 2; day <= 28; ++day) {
      const QsDateTime local(2013, 2, day + minutes / 1440 - 1, minutes / 60 % 24, minutes % 60, 0, 0);
      EXPECT_EQ(PartsOf(local.ToUTC()), Parts(2013, 2, day, 0, 0, 0, 0));
    }
  });
}

TEST(QsDateTimeClock, AShiftToMidnightAcrossAChangeOfPrecisionIsMidnight) {
  // A power of two of days: below it the day count is finer, and the shifted value may lie just under midnight.
  ForEachZone({"XXX-5:30", "XXX3:30", "XXX-5:45", "XXX-13:59"}, [](const std::string& zone) {
    for (int day = 64; day <= 2097152; day *= 2) {
      const QsDateTime midnight = day;
      const double offset = CurrentOffset() / 86400.0;
      EXPECT_EQ(PartsOf(QsDateTime(midnight + offset).ToUTC()), PartsOf(midnight)) << zone << " " << day;
      EXPECT_EQ(PartsOf(QsDateTime(midnight - offset).ToLocal()), PartsOf(midnight)) << zone << " " << day;
    }
  });
}

// What the C library is told is one thing, the system's clock another.
TEST(QsDateTimeClock, OnWindowsGoesByTheSystemWhateverTheVariableSays) {
  UseZone("XXX-23:59");
  const double ahead = (QsDateTime::Now() - QsDateTime::UTCNow()) * 86400;
  EXPECT_NEAR(ahead, CurrentOffset(), 5);
  if (kOnWindows) {
    EXPECT_LT(ahead, 15 * 3600) << "no machine is set to this zone";
    EXPECT_EQ(DateTime2InternationalString(0, ' '), "1970/01/01 23:59:00");
  } else {
    EXPECT_NEAR(ahead, 23 * 3600 + 59 * 60, 5);
  }
}

TEST(QsDateTimeClock, WeekdayOfToday) {
  ForEachZone({"UTC", "Pacific/Kiritimati", "Pacific/Pago_Pago"}, [](const std::string& zone) {
    const auto weekday = [] {
      const auto local = std::chrono::system_clock::now() + std::chrono::seconds(CurrentOffset());
      return static_cast<int>(std::chrono::weekday(std::chrono::floor<std::chrono::days>(local)).c_encoding()) + 1;
    };
    const int before = weekday();
    const int today = QsDateTime::GetCurrentDayOfWeek();
    const int after = weekday();
    EXPECT_TRUE(today == before || today == after) << zone << " " << today;
  });
}

// ---- Differences ----

TEST(TimeDiff, WholeSeconds) {
  const QsDateTime ten(2013, 2, 13, 10, 0, 0, 0);
  EXPECT_EQ(TimeDiff(ten, QsDateTime(2013, 2, 13, 10, 0, 5, 0)), 5U);
  EXPECT_EQ(TimeDiff(ten, QsDateTime(2013, 2, 13, 10, 0, 5, 999)), 5U);
  EXPECT_EQ(TimeDiff(ten, QsDateTime(2013, 2, 15, 11, 1, 1, 0)), 2 * 86400U + 3661U);
  EXPECT_EQ(TimeDiff(ten, ten), 0U);
  EXPECT_EQ(TimeDiff(QsDateTime(2013, 2, 13, 10, 0, 5, 0), ten), 0U);
}

TEST(TimeDiff, EverySecondOfADay) {
  const QsDateTime from(2013, 2, 13, 17, 23, 41, 617);
  for (int second = 1; second < 86400; ++second) {
    const int clock = 17 * 3600 + 23 * 60 + 41 + second;
    const QsDateTime to(2013, 2, 13 + clock / 86400, clock / 3600 % 24, clock / 60 % 60, clock % 60, 617);
    ASSERT_EQ(TimeDiff(from, to), static_cast<unsigned int>(second));
  }
}

TEST(TimeDiff, WholeDaysAcrossAChangeOfPrecision) {
  // The day count passes 65536 on 2079-06-06: fractions on both sides are rounded differently.
  for (int second = 0; second < 86400; second += 7) {
    const QsDateTime from(2079, 6, 1, second / 3600, second / 60 % 60, second % 60, 0);
    const QsDateTime to(2079, 6, 30, second / 3600, second / 60 % 60, second % 60, 0);
    ASSERT_EQ(TimeDiff(from, to), 29 * 86400U) << second;
    ASSERT_EQ(TimeDiffToStr(to - from), "29 days 00:00:00,000") << second;
    ASSERT_EQ(TimeDiffToStr(from - to), "-29 days 00:00:00,000") << second;
  }
}

TEST(TimeDiff, RandomSpansOverAllYears) {
  std::mt19937_64 random(4);
  constexpr std::int64_t day = 86400000;
  const auto instant = [](std::int64_t ms) {
    const std::chrono::year_month_day civil{std::chrono::sys_days(std::chrono::days(ms / day - 25569))};
    const int time = static_cast<int>(ms % day);
    return QsDateTime(static_cast<int>(civil.year()), static_cast<int>(static_cast<unsigned int>(civil.month())),
                      static_cast<int>(static_cast<unsigned int>(civil.day())), time / 3600000, time / 60000 % 60,
                      time / 1000 % 60, time % 1000);
  };
  for (int i = 0; i < 300000; ++i) {
    const auto from = static_cast<std::int64_t>(random() % (2958466 * day - 2 * day)) + 2 * day;
    // Whole days, whole seconds and any span in turn.
    const std::int64_t unit = i % 3 == 0 ? day : i % 3 == 1 ? 1000 : 1;
    const std::int64_t span = static_cast<std::int64_t>(random() % (2958466 * day - 2 * day)) / unit * unit;
    if (from + span >= 2958466 * day) {
      continue;
    }
    ASSERT_EQ(TimeDiff(instant(from), instant(from + span)), static_cast<unsigned int>(span / 1000 % 4294967296))
        << from << " " << span;
  }
}

TEST(TimeDiff, CountsModulo32Bits) {
  EXPECT_EQ(TimeDiff(0.0, 50000.0), static_cast<unsigned int>(50000LL * 86400 % 4294967296LL));
  EXPECT_EQ(TimeDiff(0.0, std::numeric_limits<double>::infinity()), 0U);
  EXPECT_EQ(TimeDiff(0.0, 1e15 + 1), static_cast<std::uint32_t>(1000000000000001) * 86400U);  // unsigned numbers wrap
  EXPECT_EQ(TimeDiff(0.0, std::numeric_limits<double>::max()), 0U);  // a multiple of any such power of two
  EXPECT_EQ(TimeDiff(0.0, std::nan("")), 0U);
}

TEST(TimeDiffToStr, DaysOnlyWhenThereAreAny) {
  EXPECT_EQ(TimeDiffToStr(TimeOnly(1, 2, 3, 4)), "01:02:03,004");
  EXPECT_EQ(TimeDiffToStr(3 + TimeOnly(1, 2, 3, 4)), "3 days 01:02:03,004");
  EXPECT_EQ(TimeDiffToStr(0.0), "00:00:00,000");
  EXPECT_EQ(TimeDiffToStr(1.0), "1 days 00:00:00,000");
}

TEST(TimeDiffToStr, IsCutAt24Characters) {
  EXPECT_EQ(TimeDiffToStr(123456.5), "123456 days 12:00:00,000");
  EXPECT_EQ(TimeDiffToStr(1234567.5), "1234567 days 12:00:00,00");
}

TEST(TimeDiffToStr, NegativeSpans) {
  EXPECT_EQ(TimeDiffToStr(-1.5), "-1 days -12:00:00,000");
  EXPECT_EQ(TimeDiffToStr(-0.5), "-12:00:00,000");
  EXPECT_EQ(TimeDiffToStr(-2 * kMillisecond), "00:00:00,-02");
}

// ---- Texts ----

TEST(DateTimeTexts, Forms) {
  const QsDateTime time(2013, 2, 3, 4, 5, 6, 7);
  EXPECT_EQ(Time2string(time, false), "04:05:06");
  EXPECT_EQ(Time2string(time, true), "04:05:06.007");
  EXPECT_EQ(DateTime2string(time, false, false), "2013-02-03");
  EXPECT_EQ(DateTime2string(time, false, true), "2013-02-03");
  EXPECT_EQ(DateTime2string(time, true, false), "2013-02-03 04:05:06");
  EXPECT_EQ(DateTime2string(time, true, true), "2013-02-03 04:05:06.007");
  EXPECT_EQ(DateTime2StringWithoutDelimiter(time), "20130203040506007");
  EXPECT_EQ(DateTime2string(Date(1, 1, 1), false, false), "0001-01-01");
  EXPECT_EQ(DateTime2string(QsDateTime(9999, 12, 31, 23, 59, 59, 999), true, true), "9999-12-31 23:59:59.999");
}

TEST(DateTimeTexts, NotSetIsNow) {
  UseZone("Asia/Kathmandu");
  const auto isNow = [](const QsDateTime& shown, const QsDateTime& before) {
    return shown >= before - 1.0 / 86400 && shown <= QsDateTime::Now() + 1.0 / 86400;
  };
  const QsDateTime before = QsDateTime::Now();
  EXPECT_TRUE(isNow(string2DateTime(DateTime2string(QsDateTime(), true, true)), before));
  EXPECT_TRUE(isNow(string2DateTime(DateTime2string(0.0, false, false) + " " + Time2string(0.0, true)), before) ||
              Time2string(0.0, false) < "00:01:00");
  const std::string packed = DateTime2StringWithoutDelimiter(QsDateTime());
  ASSERT_EQ(packed.size(), 17U);
  const auto number = [&](std::size_t at, std::size_t length) { return std::stoi(packed.substr(at, length)); };
  EXPECT_TRUE(isNow(
      QsDateTime(number(0, 4), number(4, 2), number(6, 2), number(8, 2), number(10, 2), number(12, 2), number(14, 3)),
      before));
}

TEST(DateTimeTexts, InternationalFormIsLocal) {
  UseZone("UTC");
  EXPECT_EQ(DateTime2InternationalString(0, ' '), "1970/01/01 00:00:00");
  EXPECT_EQ(DateTime2InternationalString(1360750272, 'T'), "2013/02/13T10:11:12");
  UseZone(kCentralEurope);
  EXPECT_EQ(DateTime2InternationalString(1360750272, ' '), "2013/02/13 11:11:12");
  UseZone("XXX3:30");
  EXPECT_EQ(DateTime2InternationalString(1360750272, ' '), "2013/02/13 06:41:12");
  EXPECT_EQ(DateTime2InternationalString(0, ' '), "1969/12/31 20:30:00");
  EXPECT_EQ(DateTime2InternationalString(4102444800, ' '), "2099/12/31 20:30:00");
}

TEST(DateTimeTexts, InternationalFormHasSummerTime) {
  if (IsWine()) {
    GTEST_SKIP() << "Wine's C runtime has no summer time for a zone that the variable TZ names";
  }
  UseZone(kCentralEurope);
  EXPECT_EQ(DateTime2InternationalString(1373710272, ' '), "2013/07/13 12:11:12");
}

#ifdef _WIN32
std::string SystemsText(std::int64_t time) {
  const std::uint64_t ticks = static_cast<std::uint64_t>(time) * 10000000U + 116444736000000000U;
  const FILETIME utc = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32U)};
  SYSTEMTIME clock;
  SYSTEMTIME local;
  EXPECT_TRUE(FileTimeToSystemTime(&utc, &clock) && SystemTimeToTzSpecificLocalTime(nullptr, &clock, &local));
  return DateTime2string(
      QsDateTime(local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond, 0), true, false);
}
#else
std::string SystemsText(std::int64_t time) {
  char text[40];
  const time_t native = time;
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&native));
  return text;
}
#endif

TEST(DateTimeTexts, InternationalFormHasTheSystemsRules) {
  ForEachZone({"Europe/Berlin", "America/New_York", "Australia/Sydney", "Asia/Kolkata"}, [](const std::string& zone) {
    int year = 0;
    QsDateTime::Now().GetDatePart(&year, nullptr, nullptr);
    const std::int64_t start = (static_cast<std::int64_t>(Date(year, 1, 1)) - 25569) * 86400;
    for (int halfHour = 0; halfHour < 365 * 48; ++halfHour) {
      const std::int64_t time = start + halfHour * 1800;
      std::string expected = SystemsText(time);
      expected[4] = expected[7] = '/';
      ASSERT_EQ(DateTime2InternationalString(time, ' '), expected) << zone;
    }
  });
}

TEST(DateTimeTexts, InternationalFormHasBounds) {
  UseZone("UTC");
  EXPECT_EQ(DateTime2InternationalString(-1, ' '), "");
  EXPECT_EQ(DateTime2InternationalString(std::numeric_limits<std::int64_t>::min(), ' '), "");
  EXPECT_EQ(DateTime2InternationalString(32535215999, ' '), "3000/12/31 23:59:59");
  EXPECT_EQ(DateTime2InternationalString(32535216000, ' '), "");
  EXPECT_EQ(DateTime2InternationalString(std::numeric_limits<std::int64_t>::max(), ' '), "");
}

// ---- The same on every target ----

namespace {

/// FNV-1a.
class Checksum {
 public:
  void Add(const std::string& text) {
    for (const char c : text) {
      _value = (_value ^ static_cast<unsigned char>(c)) * 1099511628211U;
    }
    _value = (_value ^ 0xFFU) * 1099511628211U;
  }

  void Add(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    Add(std::to_string(bits));
  }

  std::uint64_t Value() const { return _value; }

 private:
  std::uint64_t _value = 14695981039346656037U;
};

}  // namespace

// The sums are those of x86-64 Linux: wherever arithmetic rounds another way, a date has another text.
TEST(EveryTarget, HasTheSameTextsOfAnyDayCount) {
  std::mt19937_64 random(20130213);
  Checksum sum;
  for (int i = 0; i < 200000; ++i) {
    const double days = static_cast<double>(random() >> 11U) * (3652059.0 / 9007199254740992.0) - 693593.0;
    const QsDateTime time = days;
    sum.Add(DateTime2string(time, true, true));
    sum.Add(DateTime2StringWithoutDelimiter(time));
    sum.Add(TimeDiffToStr(time));
    sum.Add(std::to_string(TimeDiff(time, days / 3 + 1e6)));
  }
  EXPECT_EQ(sum.Value(), 12183856446268289739U);
}

TEST(EveryTarget, HasTheSameDayCountOfAnyParts) {
  std::mt19937 random(20130213);
  Checksum sum;
  const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned int>(limit)); };
  for (int i = 0; i < 200000; ++i) {
    const int year = below(10001);
    const int month = below(14);
    const int day = below(33);
    const int hour = below(30) - 5;
    const int minute = below(70) - 5;
    const int second = below(70) - 5;
    const QsDateTime time(year, month, day, hour, minute, second, below(1010) - 5);
    sum.Add(Days(time));
    sum.Add(time == 0.0 ? 0.0 : Days(string2DateTime(DateTime2string(time, true, true))));  // 0.0 would be the present
  }
  EXPECT_EQ(sum.Value(), 10356306848278149221U);
}

TEST(EveryTarget, HasTheSameConversions) {
  std::mt19937_64 random(20130213);
  Checksum sum;
  for (const char* zone : {"UTC0", "XXX-5:30", "XXX3:30", "XXX-13:59"}) {
    UseZone(zone);
    for (int i = 0; i < 20000; ++i) {
      const auto time = static_cast<std::int64_t>(random() % 32535302399) - 86400;
      sum.Add(DateTime2InternationalString(time, 'T'));
      sum.Add(Days(ConvertTimeT(time)));
      const double days = static_cast<double>(random() >> 11U) * (500000.0 / 9007199254740992.0);
      sum.Add(std::to_string(ConvertQsDateTime(days)));
    }
  }
  EXPECT_EQ(sum.Value(), 16906500115894945730U);
}

// ---- Conversions ----

TEST(Conversions, FromTimeTInUtc) {
  UseZone("Europe/Berlin");
  EXPECT_EQ(PartsOf(ConvertTimeT(0)), Parts(1970, 1, 1, 0, 0, 0, 0));
  EXPECT_EQ(PartsOf(ConvertTimeT(1360750272)), Parts(2013, 2, 13, 10, 11, 12, 0));
  EXPECT_EQ(Days(ConvertTimeT(1360750272)), Days(QsDateTime(2013, 2, 13, 10, 11, 12, 0)));
  EXPECT_EQ(PartsOf(ConvertTimeT(32535215999)), Parts(3000, 12, 31, 23, 59, 59, 0));
  EXPECT_EQ(Days(ConvertTimeT(32535216000)), 0.0);
  EXPECT_EQ(Days(ConvertTimeT(-1)), 0.0);
}

TEST(Conversions, ToTimeTFromLocalStandardTime) {
  UseZone(kCentralEurope);
  EXPECT_EQ(ConvertQsDateTime(QsDateTime(2013, 2, 13, 11, 11, 12, 999)), 1360750272);
  // 12:11:12 on the clock in summer, but read as standard time.
  EXPECT_EQ(ConvertQsDateTime(QsDateTime(2013, 7, 13, 12, 11, 12, 0)), 1373710272 + 3600);
  UseZone("XXX-5:30");
  EXPECT_EQ(ConvertQsDateTime(QsDateTime(2013, 2, 13, 15, 41, 12, 0)), 1360750272);
}

TEST(Conversions, ARoundTripShiftsByTheOffset) {
  UseZone("XXX-5:30");
  EXPECT_EQ(ConvertQsDateTime(ConvertTimeT(1360750272)), 1360750272 - 19800);
  UseZone("UTC");
  EXPECT_EQ(ConvertQsDateTime(ConvertTimeT(1360750272)), 1360750272);
}

TEST(Conversions, ToTimeTHasBounds) {
  UseZone("UTC");
  EXPECT_EQ(ConvertQsDateTime(Date(1970, 1, 1)), 0);
  EXPECT_EQ(ConvertQsDateTime(QsDateTime(1969, 12, 31, 23, 59, 59, 999)), -1);
  EXPECT_EQ(ConvertQsDateTime(Date(1950, 1, 1)), -1);
  EXPECT_EQ(ConvertQsDateTime(QsDateTime()), -1);
  EXPECT_EQ(ConvertQsDateTime(QsDateTime(3000, 12, 31, 23, 59, 59, 0)), 32535215999);
  EXPECT_EQ(ConvertQsDateTime(Date(3001, 1, 1)), -1);
  UseZone("XXX-1");
  EXPECT_EQ(ConvertQsDateTime(Date(1970, 1, 1)), -1);
  EXPECT_EQ(ConvertQsDateTime(QsDateTime(1970, 1, 1, 1, 0, 0, 0)), 0);
}

// Where time_t has 32 bits too.
TEST(Conversions, GoOnAfter2038) {
  UseZone("XXX-5:30");
  for (const std::int64_t time :
       {2147483647LL, 2147483648LL, 4102444800LL, 4294967295LL, 4294967296LL, 32535215999LL}) {
    const QsDateTime utc = ConvertTimeT(time);
    const QsDateTime local(Days(utc) + 19800.0 / 86400);
    EXPECT_EQ(ConvertQsDateTime(utc), time - 19800) << time;
    std::string text = DateTime2string(local, true, false);
    text[4] = text[7] = '/';
    EXPECT_EQ(DateTime2InternationalString(time, ' '), text);
  }
  EXPECT_EQ(DateTime2string(ConvertTimeT(4102444800), true, false), "2100-01-01 00:00:00");
}

TEST(Parsing, InternationalForm) {
  EXPECT_EQ(PartsOf(InternationalString2DateTime("2013/02/13 10:11:12")), Parts(2013, 2, 13, 10, 11, 12, 0));
  EXPECT_EQ(PartsOf(InternationalString2DateTime("2013/2/3")), Parts(2013, 2, 3, 0, 0, 0, 0));
  EXPECT_EQ(PartsOf(InternationalString2DateTime("2013/02/13 10:11")), Parts(2013, 2, 13, 0, 0, 0, 0));
  EXPECT_EQ(PartsOf(InternationalString2DateTime("2013/02/13 10:11:12:13")), Parts(2013, 2, 13, 0, 0, 0, 0));
  EXPECT_EQ(PartsOf(InternationalString2DateTime("2013/02/13 10:11:12 x")), Parts(2013, 2, 13, 10, 11, 12, 0));
  EXPECT_EQ(PartsOf(InternationalString2DateTime("2013/02/13 10:11:12.5")), Parts(2013, 2, 13, 10, 11, 12, 0));
}

TEST(Parsing, WithoutThreeDatePartsNothingIsSet) {
  for (const char* text : {"", " ", "2013/02", "2013/02/13/1", "2013-02-13", "10:11:12", "x"}) {
    EXPECT_EQ(Days(InternationalString2DateTime(text)), 0.0) << text;
  }
  for (const char* text : {"", " ", "2013-02", "2013-02-13-1", "2013/02/13", "10:11:12", "x"}) {
    EXPECT_EQ(Days(string2DateTime(text)), 0.0) << text;
  }
}

TEST(Parsing, InvalidPartsFallBack) {
  EXPECT_EQ(Days(InternationalString2DateTime("2013/02/30 12:00:00")), 0.5);
  EXPECT_EQ(Days(InternationalString2DateTime("a/b/c 12:00:00")), 0.5);
  EXPECT_EQ(PartsOf(InternationalString2DateTime("2013/02/13 24:00:00")), Parts(2013, 2, 13, 0, 0, 0, 0));
  EXPECT_EQ(PartsOf(InternationalString2DateTime("2013/02/13 99999999999:00:00")), Parts(2013, 2, 13, 0, 0, 0, 0));
  EXPECT_EQ(Days(InternationalString2DateTime("99999999999/02/13 12:00:00")), 0.5);
}

TEST(Parsing, NumbersEndAtTheFirstOtherCharacter) {
  EXPECT_EQ(PartsOf(InternationalString2DateTime("+2013x/\t02/13 10:11y:+-1")), Parts(2013, 2, 13, 10, 11, 0, 0));
}

TEST(Parsing, DashedFormWithMilliseconds) {
  EXPECT_EQ(PartsOf(string2DateTime("2013-02-13 10:11:12.250")), Parts(2013, 2, 13, 10, 11, 12, 250));
  EXPECT_EQ(PartsOf(string2DateTime("2013-02-13 10:11:12.5")), Parts(2013, 2, 13, 10, 11, 12, 5));
  EXPECT_EQ(PartsOf(string2DateTime("2013-02-13 10:11:12.")), Parts(2013, 2, 13, 10, 11, 12, 0));
  EXPECT_EQ(PartsOf(string2DateTime("2013-02-13 10:11:12")), Parts(2013, 2, 13, 10, 11, 12, 0));
  EXPECT_EQ(PartsOf(string2DateTime("2013-02-13 10:11:12.1234")), Parts(2013, 2, 13, 0, 0, 0, 0));
  EXPECT_EQ(PartsOf(string2DateTime("2013-02-13")), Parts(2013, 2, 13, 0, 0, 0, 0));
  EXPECT_EQ(Days(string2DateTime("2013/02/13")), 0.0);
}

TEST(Parsing, ReadsWhatFormattingWrites) {
  const Parts parts{2013, 2, 13, 10, 11, 12, 250};
  EXPECT_EQ(PartsOf(string2DateTime(DateTime2string(FromParts(parts), true, true))), parts);
}

// ---- Tick counts ----

TEST(TickCounts, Passed) {
  EXPECT_TRUE(TIME_PASSED(QsGetTickCount() + 100000, 1000)) << "a start in the future means that the counter wrapped";
  EXPECT_FALSE(TIME_PASSED(QsGetTickCount(), 100000));
  const unsigned int start = QsGetTickCount();
  EXPECT_FALSE(TIME_PASSED(start, start == 0 ? 1000 : 0xFFFFFFFF - start));
}

TEST(TickCounts, JustReachedIsNotPassed) {
  // Asked again until the counter stood still around the call.
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const unsigned int before = QsGetTickCount();
    const bool reached = TIME_PASSED(before, 0);
    const bool passed = TIME_PASSED(before - 1, 0);
    if (QsGetTickCount() == before) {
      EXPECT_FALSE(reached);
      EXPECT_TRUE(passed);
      return;
    }
  }
  FAIL() << "the tick count never stood still";
}

TEST(TickCounts, PassedAfterTheCounterWrapped) {
  if (QsGetTickCount() >= 0xFFFFFF00) {
    GTEST_SKIP() << "the machine's counter is about to wrap";
  }
  EXPECT_TRUE(TIME_PASSED(0xFFFFFF00, 1000));
}

TEST(TickCounts, Difference) {
  EXPECT_EQ(TIME_DIFF(5, 5), 0U);
  EXPECT_EQ(TIME_DIFF(5, 8), 3U);
  EXPECT_EQ(TIME_DIFF(0xFFFFFFFF, 1), 2U);
  EXPECT_EQ(TIME_DIFF(8, 5), 0xFFFFFFFDU);
}

TEST(TickCounts, AsText) {
  EXPECT_EQ(ticks2str(0), "0:00:00");
  EXPECT_EQ(ticks2str(999), "0:00:00");
  EXPECT_EQ(ticks2str(61000), "0:01:01");
  EXPECT_EQ(ticks2str(86399999), "23:59:59");
  EXPECT_EQ(ticks2str(86400000), "1 days 0:00:00");
  EXPECT_EQ(ticks2str(90061000), "1 days 1:01:01");
  EXPECT_EQ(ticks2str(4294967295U), "49 days 17:02:47");
}

// ---- The zone ----

#ifdef _WIN32
TEST(QsGetTimeZone, OffsetsOfZones) {
  RemoveEnvironment("TZ");
  TIME_ZONE_INFORMATION zone;
  GetTimeZoneInformation(&zone);
  const int west = 60 * static_cast<int>(zone.Bias + zone.StandardBias);
  const int hours = (zone.DaylightDate.wMonth != 0 ? 1 : 0) - west / 3600;
  const int minutes = west % 3600 / -60;
  std::string expected = hours > 0 ? "+" : "-";
  expected += std::abs(hours) < 10 ? "0" : "";
  expected += std::to_string(std::abs(hours)) + (minutes == 0 ? "00" : std::to_string(minutes));
  EXPECT_EQ(QsGetTimeZone(), expected);
}
#else
TEST(QsGetTimeZone, OffsetsOfZones) {
  const struct {
    const char* zone;
    const char* text;
  } rows[] = {{"Europe/Berlin", "+0200"},     {"Europe/London", "+0100"},      {"America/New_York", "-0400"},
              {"Asia/Kolkata", "+0530"},      {"Asia/Tokyo", "+0900"},         {"Asia/Kathmandu", "+0545"},
              {"America/St_Johns", "-02-30"}, {"Pacific/Marquesas", "-09-30"}, {"UTC", "-0000"},
              {"Australia/Sydney", "+1100"},  {"Pacific/Kiritimati", "+1400"}, {"Pacific/Pago_Pago", "-1100"},
              {"America/Phoenix", "-0700"},   {"Australia/Adelaide", "+1030"}};
  for (const auto& row : rows) {
    UseZone(row.zone);
    EXPECT_EQ(QsGetTimeZone(), row.text) << row.zone;
  }
}
#endif

TEST(QsGetTimeZone, ZonesInTheSystemsOwnNotation) {
  const struct {
    const char* zone;
    const char* text;
  } rows[] = {{"XXX-5:30", "+0530"}, {"XXX3:30", "-03-30"}, {"XXX0:30", "-00-30"}, {"XXX-0:05", "-005"}};
  for (const auto& row : rows) {
    UseZone(row.zone);
    EXPECT_EQ(QsGetTimeZone(), row.text) << row.zone;
  }
}

TEST(QsGetTimeZone, NoticesAChangeByItself) {
  const auto set = [](const char* zone) {
#ifdef _WIN32
    return _putenv_s("TZ", zone);
#else
    return setenv("TZ", zone, 1);
#endif
  };
  ASSERT_EQ(set("XXX-5:30"), 0);
  EXPECT_EQ(QsGetTimeZone(), "+0530");
  ASSERT_EQ(set("XXX-9"), 0);
  EXPECT_EQ(QsGetTimeZone(), "+0900");
}

TEST(Time32, IsTheSystemTime) {
  const auto before = static_cast<unsigned int>(time(nullptr));
  const unsigned int now = Qs_time32();
  EXPECT_GE(now + 1, before);
  EXPECT_LE(now, static_cast<unsigned int>(time(nullptr)) + 1);
}

TEST(Mktime32, ReadsLocalParts) {
  UseZone("XXX-1");
  std::tm parts{};
  parts.tm_year = 113;
  parts.tm_mon = 1;
  parts.tm_mday = 13;
  parts.tm_hour = 11;
  parts.tm_min = 11;
  parts.tm_sec = 12;
  EXPECT_EQ(Qs_mktime32(&parts), 1360750272);
  EXPECT_EQ(parts.tm_wday, 3);
  EXPECT_EQ(parts.tm_yday, 43);
}

TEST(Mktime32, NormalisesParts) {
  UseZone("UTC");
  std::tm parts{};
  parts.tm_year = 113;
  parts.tm_mon = 1;
  parts.tm_mday = 30;
  EXPECT_EQ(Qs_mktime32(&parts), 1362182400);
  EXPECT_EQ(parts.tm_mon, 2);
  EXPECT_EQ(parts.tm_mday, 2);
}

TEST(Mktime32, HasBounds) {
  UseZone("UTC");
  std::tm last{};
  last.tm_year = 138;
  last.tm_mday = 19;
  last.tm_hour = 3;
  last.tm_min = 14;
  last.tm_sec = 7;
  EXPECT_EQ(Qs_mktime32(&last), 2147483647);
  last.tm_sec = 8;
  EXPECT_EQ(Qs_mktime32(&last), -1);
  EXPECT_EQ(last.tm_sec, 8);
  std::tm early{};
  early.tm_year = 69;
  early.tm_mon = 11;
  early.tm_mday = 31;
  EXPECT_EQ(Qs_mktime32(&early), -1);
  EXPECT_EQ(Qs_mktime32(nullptr), -1);
}
