#include <QSbase/text/timeos.h>

#include <time.h>

#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

namespace {

// The Gregorian calendar repeats itself, weekdays included, every 400 years.
constexpr int kCycleYears = 400;
constexpr std::int64_t kCycleSeconds = std::int64_t{146097} * 86400;

// 3000-01-01: the C runtime ends a year later, its versions differ in the hour.
constexpr std::int64_t kLastNativeTime = 32503680000;

constexpr std::int64_t kLastTime = std::int64_t{2000000000} * 31556952;  // its year still is an int

// File times count hundreds of nanoseconds since 1601.
constexpr std::int64_t kTicksPerMillisecond = 10000;
constexpr std::int64_t kTicksPerSecond = 1000 * kTicksPerMillisecond;
constexpr std::int64_t kUnixEpoch = 116444736000000000;

// The C runtime reads its zone variables without a lock while _tzset sets them anew, by way of wrong values.
SRWLOCK zoneLock = SRWLOCK_INIT;

class ZoneReader {
 public:
  ZoneReader() noexcept { AcquireSRWLockShared(&zoneLock); }
  ~ZoneReader() { ReleaseSRWLockShared(&zoneLock); }
  ZoneReader(const ZoneReader&) = delete;
  ZoneReader& operator=(const ZoneReader&) = delete;
};

// How many calendar cycles earlier the C runtime can break down a time: it knows the years 1970 to 3000 only.
std::int64_t CyclesBeyond(std::int64_t time) {
  if (time < 0) {
    return (time + 1) / kCycleSeconds - 1;
  }
  return time <= kLastNativeTime ? 0 : (time - kLastNativeTime) / kCycleSeconds + 1;
}

}  // namespace

std::int64_t CurrentUtcMilliseconds() noexcept {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  const std::uint64_t ticks = (std::uint64_t{now.dwHighDateTime} << 32U) | now.dwLowDateTime;
  return (static_cast<std::int64_t>(ticks) - kUnixEpoch) / kTicksPerMillisecond;
}

bool BreakDownLocal(std::int64_t time, std::tm& parts) noexcept {
  if (time < -kLastTime || time > kLastTime) {
    return false;
  }
  const std::int64_t cycles = CyclesBeyond(time);
  const __time64_t native = time - cycles * kCycleSeconds;
  const ZoneReader reader;
  if (_localtime64_s(&parts, &native) != 0) {
    return false;
  }
  parts.tm_year += static_cast<int>(cycles * kCycleYears);
  return true;
}

// By the offset that GetLocalTime has, too.
bool BreakDownPresent(std::int64_t now, std::tm& parts) noexcept {
  if (now < 0 || now > kLastNativeTime) {
    return false;
  }
  const auto ticks = static_cast<std::uint64_t>(now * kTicksPerSecond + kUnixEpoch);
  const FILETIME utc = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32U)};
  FILETIME local;
  SYSTEMTIME clock;
  if (FileTimeToLocalFileTime(&utc, &local) == 0 || FileTimeToSystemTime(&local, &clock) == 0) {
    return false;
  }
  parts = std::tm{};
  parts.tm_year = clock.wYear - 1900;
  parts.tm_mon = clock.wMonth - 1;
  parts.tm_mday = clock.wDay;
  parts.tm_hour = clock.wHour;
  parts.tm_min = clock.wMinute;
  parts.tm_sec = clock.wSecond;
  return true;
}

std::int64_t MakeLocal(std::tm& parts) noexcept {
  RefreshTimeZone();
  const ZoneReader reader;
  return _mktime64(&parts);
}

void RefreshTimeZone() noexcept {
  AcquireSRWLockExclusive(&zoneLock);
  _tzset();
  ReleaseSRWLockExclusive(&zoneLock);
}

}  // namespace qsbase::detail
