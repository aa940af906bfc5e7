#include <QSbase/text/timeos.h>

#include <time.h>

namespace qsbase::detail {

std::int64_t CurrentUtcMilliseconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

bool BreakDownLocal(std::int64_t time, std::tm& parts) noexcept {
  const time_t native = time;
  return localtime_r(&native, &parts) != nullptr;
}

bool BreakDownPresent(std::int64_t now, std::tm& parts) noexcept { return BreakDownLocal(now, parts); }

std::int64_t MakeLocal(std::tm& parts) noexcept { return mktime(&parts); }

void RefreshTimeZone() noexcept { tzset(); }

}  // namespace qsbase::detail
