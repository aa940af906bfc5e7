/// \file
/// What date and time need of the operating system (internal): the clock and the local zone's rules. Twins:
/// posix/timeos.cpp, win32/timeos.cpp. Every function may be called from any thread at any time and may change the last
/// error.
#ifndef QSBASE_TEXT_TIMEOS_H
#define QSBASE_TEXT_TIMEOS_H

#include <cstdint>
#include <ctime>

namespace qsbase::detail {

/// Milliseconds since 1970-01-01 00:00 UTC, rounded down. Not std::chrono's clock, which ends in 2038 where time_t has
/// 32 bits.
std::int64_t CurrentUtcMilliseconds() noexcept;

/// Breaks a time (seconds since 1970-01-01 00:00 UTC) down as local time of the C library. False when it cannot be
/// broken down; `parts` is then undefined. Need not notice that the zone changed since the last RefreshTimeZone.
bool BreakDownLocal(std::int64_t time, std::tm& parts) noexcept;

/// Breaks the present time down as the system's clock shows it. On Windows that is the system's zone as it is set now,
/// whatever the variable TZ says; elsewhere what BreakDownLocal does. Only year to second are filled in.
bool BreakDownPresent(std::int64_t now, std::tm& parts) noexcept;

/// The time of local parts (tm_isdst as given: 0 reads them as standard time, below 0 lets the system find out), which
/// it normalises and completes (tm_wday, tm_yday, tm_isdst). -1 when there is no such time; `parts` is then undefined.
/// Notices a changed zone.
std::int64_t MakeLocal(std::tm& parts) noexcept;

/// Takes over a change of the zone (of the variable TZ; on Windows without one, of the system's setting).
void RefreshTimeZone() noexcept;

}  // namespace qsbase::detail

#endif
