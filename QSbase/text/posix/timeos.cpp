#include <QSbase/text/timeos.h>

#include <QSbase/killguard.h>

#include <time.h>

namespace qsbase::detail {

std::int64_t CurrentUtcMilliseconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Whoever asks for the zone locks it in the C library: a thread killed there would stop every later line of the log.

bool BreakDownLocal(std::int64_t time, std::tm& parts) noexcept {
  const KillGuard guard;
  const time_t native = time;
  return localtime_r(&native, &parts) != nullptr;
}

bool BreakDownPresent(std::int64_t now, std::tm& parts) noexcept { return BreakDownLocal(now, parts); }

std::int64_t MakeLocal(std::tm& parts) noexcept {
  const KillGuard guard;
  return mktime(&parts);
}

void RefreshTimeZone() noexcept {
  const KillGuard guard;
  tzset();
}

}  // namespace qsbase::detail
