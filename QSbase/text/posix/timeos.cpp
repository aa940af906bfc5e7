#include <QSbase/text/timeos.h>

#include <time.h>

namespace qsbase::detail {

bool BreakDownLocal(std::int64_t time, std::tm& parts) noexcept {
  const time_t native = time;
  return localtime_r(&native, &parts) != nullptr;
}

std::int64_t MakeLocal(std::tm& parts) noexcept { return mktime(&parts); }

void RefreshTimeZone() noexcept { tzset(); }

}  // namespace qsbase::detail
