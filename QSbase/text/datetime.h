/// \file
/// The date-time type, its text forms, tick counts and the local time zone.
#ifndef QSBASE_TEXT_DATETIME_H
#define QSBASE_TEXT_DATETIME_H

#include <cstdint>
#include <ctime>
#include <string>

#include <QSbase/export.h>

class QSBASE_API QsDateTime {
 public:
  QsDateTime() noexcept : _days(0.0) {}
  QsDateTime(double days) noexcept : _days(days) {}
  QsDateTime(int year, int month, int day, int hour, int minute, int second, int millisecond);

  operator double() const noexcept { return _days; }

  void GetDatePart(int* year, int* month, int* day) const;
  void GetTimePart(int* hour, int* minute, int* second, int* millisecond) const;

  QsDateTime ToUTC() const;
  QsDateTime ToLocal() const;

  static QsDateTime Now();
  static QsDateTime UTCNow();
  static int DayOfWeek(int year, int month, int day);
  static int DaysOfMonth(int year, int month);
  static int GetCurrentDayOfWeek();

 private:
  double _days;
};

QSBASE_API unsigned int TimeDiff(const QsDateTime& from, const QsDateTime& to);
QSBASE_API std::string TimeDiffToStr(const QsDateTime& span);
QSBASE_API std::string Time2string(const QsDateTime& time, bool withMilliseconds);
QSBASE_API std::string DateTime2string(const QsDateTime& time, bool withTime, bool withMilliseconds);
QSBASE_API std::string DateTime2StringWithoutDelimiter(const QsDateTime& time);
QSBASE_API std::string DateTime2InternationalString(std::int64_t time, char separator);

QSBASE_API QsDateTime ConvertTimeT(std::int64_t time);
QSBASE_API std::int64_t ConvertQsDateTime(const QsDateTime& time);
QSBASE_API QsDateTime InternationalString2DateTime(const std::string& text);
QSBASE_API QsDateTime string2DateTime(const std::string& text);

QSBASE_API bool TIME_PASSED(unsigned int start, unsigned int duration);
QSBASE_API unsigned int TIME_DIFF(unsigned int start, unsigned int end);
QSBASE_API std::string ticks2str(unsigned int milliseconds);

QSBASE_API std::string QsGetTimeZone();
QSBASE_API unsigned int Qs_time32();
QSBASE_API int Qs_mktime32(struct tm* parts);

#endif
