/// \file
/// The wall clock of ExecuteEvery (internal), which a test may replace.
#ifndef QSBASE_THREAD_WALLCLOCK_H
#define QSBASE_THREAD_WALLCLOCK_H

#include <atomic>
#include <cstdint>

namespace qsbase::detail {

/// Seconds since 1970.
using WallClock = std::int64_t (*)();

/// The machine's clock, unless a test has put another in its place. Any thread.
extern std::atomic<WallClock> wallClock;

}  // namespace qsbase::detail

#endif
