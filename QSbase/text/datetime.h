/// \file
/// The date-time type, its text forms, tick counts and the local time zone.
///
/// "Local" is the zone that the C library has: a change of the environment variable TZ while the process runs counts
/// once the host has called tzset(). On Windows Now(), ToUTC(), ToLocal() and GetCurrentDayOfWeek() go by the system's
/// clock and its zone instead, whatever TZ says; the rest goes by the C runtime, which takes the system's zone, too,
/// unless there is a TZ of the form "tzn[+-]hh[:mm[:ss]][dzn]": summer time then follows the rules of the United
/// States, and names such as "Europe/Berlin" mean nothing. Thread safety: all functions are safe from any thread; a
/// QsDateTime is a plain value.
#ifndef QSBASE_TEXT_DATETIME_H
#define QSBASE_TEXT_DATETIME_H

#include <cstdint>
#include <ctime>
#include <string>

#include <QSbase/export.h>

/// A calendar date and time: days since 1899-12-30 00:00, the fraction being the time of day. 0.0 also means "not set".
/// It converts from and to `double`, so values compare and subtract as numbers. It carries no zone.
class QSBASE_API QsDateTime {
 public:
  /// Not set.
  QsDateTime() noexcept : _days(0.0) {}
  /// From a day count.
  QsDateTime(double days) noexcept : _days(days) {}
  /// From its parts. The time counts only when hour < 24, minute < 60, second < 60 and millisecond < 1000 (there is no
  /// lower bound: negative parts count backwards); else it is 00:00. The date counts only when it exists in the years 1
  /// to 9999; else it is day 0, 1899-12-30: 2000-02-30 12:00 is 0.5.
  QsDateTime(int year, int month, int day, int hour, int minute, int second, int millisecond);

  /// The day count.
  operator double() const noexcept { return _days; }

  /// The date of the whole part of the value. All three are 0 outside the years 1 to 9999. Null pointers are skipped.
  /// Before 1899-12-30 the fraction counts backwards from the whole part, so parts with a time do not come back there.
  void GetDatePart(int* year, int* month, int* day) const;
  /// The time of day of the fraction, rounded so that a time built from parts gives these parts back from 1900 to 9999.
  /// A negative value gives negative parts. Null pointers are skipped.
  void GetTimePart(int* hour, int* minute, int* second, int* millisecond) const;

  /// This local time as UTC, by the offset that the zone has *now* (not at the time that the value stands for).
  QsDateTime ToUTC() const;
  /// This UTC time as local time, by the offset that the zone has now.
  QsDateTime ToLocal() const;

  /// The current local time, to the millisecond.
  static QsDateTime Now();
  /// The current UTC time, to the millisecond.
  static QsDateTime UTCNow();
  /// 1 Sunday to 7 Saturday; 0 for a year outside 1582-4902, a month outside 1-12 or a day outside 1-31.
  static int DayOfWeek(int year, int month, int day);
  /// 28 to 31; 0 for a negative year or a month outside 1-12. The year 0 is a leap year.
  static int DaysOfMonth(int year, int month);
  /// Today's local weekday, 1 Sunday to 7 Saturday.
  static int GetCurrentDayOfWeek();

 private:
  double _days;
};

/// Whole seconds from `from` to `to`, modulo 2^32 (136 years); 0 when `to` is not later.
QSBASE_API unsigned int TimeDiff(const QsDateTime& from, const QsDateTime& to);
/// A span as "3 days 01:02:03,004", without days below one: "01:02:03,004". Cut at 24 characters. A difference of two
/// date-times that a rounding error keeps below a whole day is shown as that day.
QSBASE_API std::string TimeDiffToStr(const QsDateTime& span);
/// "10:11:12" or "10:11:12.250". A time not set is the current one, here and in the next two.
QSBASE_API std::string Time2string(const QsDateTime& time, bool withMilliseconds);
/// "2013-02-13", "2013-02-13 10:11:12" or "2013-02-13 10:11:12.250"; `withMilliseconds` needs `withTime`.
QSBASE_API std::string DateTime2string(const QsDateTime& time, bool withTime, bool withMilliseconds);
/// "20130213101112250".
QSBASE_API std::string DateTime2StringWithoutDelimiter(const QsDateTime& time);
/// Seconds since 1970-01-01 00:00 UTC as local time, "2013/02/13 10:11:12" with the separator where the blank is. Empty
/// for a negative time and after 3000-12-31 23:59:59 UTC.
QSBASE_API std::string DateTime2InternationalString(std::int64_t time, char separator);

/// Seconds since 1970-01-01 00:00 UTC as a date-time in **UTC**; not set for a negative time and after
/// 3000-12-31 23:59:59. Not the inverse of ConvertQsDateTime, which reads local time: kept, callers rely on it.
QSBASE_API QsDateTime ConvertTimeT(std::int64_t time);
/// A date-time in **local standard time** (also in summer) as seconds since 1970-01-01 00:00 UTC; milliseconds are
/// dropped. -1 before 1970 and after 3000-12-31 23:59:59 UTC. Standard is what the system's zone data call so: on Linux
/// that is the summer time of Dublin, also in winter.
QSBASE_API std::int64_t ConvertQsDateTime(const QsDateTime& time);
/// Reads "2013/02/13 10:11:12" or "2013/02/13". Not set when the date has not three parts; 00:00:00 when the time has
/// not. Numbers that make no date or time fall back as in QsDateTime's constructor.
QSBASE_API QsDateTime InternationalString2DateTime(const std::string& text);
/// Reads "2013-02-13 10:11:12.250", the time optional, as InternationalString2DateTime does. The digits behind the
/// point are a count of milliseconds: ".5" is 5 ms, and ".1234" no valid time, which leaves 00:00:00.
QSBASE_API QsDateTime string2DateTime(const std::string& text);

/// True when more than `duration` ms have passed since the tick count `start` (QsGetTickCount), and whenever `start` is
/// greater than the current count, since the counter has wrapped then.
QSBASE_API bool TIME_PASSED(unsigned int start, unsigned int duration);
/// Milliseconds from one tick count to another, across a wrap of the counter too.
QSBASE_API unsigned int TIME_DIFF(unsigned int start, unsigned int end);
/// A count of milliseconds as "1:01:01" or "1 days 1:01:01", the milliseconds dropped.
QSBASE_API std::string ticks2str(unsigned int milliseconds);

/// The local zone's offset as text, such as "+0530". An hour is added for a zone that has daylight saving this year, at
/// any date: Berlin is always "+0200". Kept as callers know it: a zone without an offset is "-0000", and west of
/// Greenwich the minutes have their own sign ("-03-30"). Calls tzset(), so a changed TZ counts.
QSBASE_API std::string QsGetTimeZone();
/// Seconds since 1970-01-01 00:00 UTC in 32 bits (until 2106).
QSBASE_API unsigned int Qs_time32();
/// The time of local parts, which are normalised and completed as by std::mktime. -1, with the parts untouched, for a
/// null pointer, before 1970 and after 2038-01-19 03:14:07 UTC.
QSBASE_API int Qs_mktime32(struct tm* parts);

#endif
