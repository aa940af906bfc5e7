/// \file
/// Sleeping on a 32-bit word until another thread wakes it: the kernel's part of every lock of the library on Linux. No
/// state but the word, so a waiter may be killed at any time.
#ifndef QSBASE_SYNC_POSIX_FUTEX_H
#define QSBASE_SYNC_POSIX_FUTEX_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace qsbase::detail {

using FutexWord = std::atomic<std::uint32_t>;
using FutexDeadline = std::optional<std::chrono::steady_clock::time_point>;

/// Who sleeps on the word: threads of this process, or of every process that has it in shared memory.
enum class FutexScope { Process, Machine };

/// The end of a wait of \p timeoutMs milliseconds from now; none for a negative number.
FutexDeadline FutexDeadlineAfter(int timeoutMs);

/// Sleeps while \p word holds \p expected, until a wake, a signal or the deadline. False only when the deadline has
/// passed; the caller looks at the word again either way. Leaves `errno` alone.
bool FutexWait(FutexWord& word, std::uint32_t expected, const FutexDeadline& deadline = {},
               FutexScope scope = FutexScope::Process) noexcept;

/// Wakes at most \p count sleepers. The word need not exist any more (then nobody is woken, or somebody in vain).
/// Leaves `errno` alone.
void FutexWake(FutexWord& word, int count, FutexScope scope = FutexScope::Process) noexcept;

/// Sets \p bits, some of the lowest 11, in \p word and wakes all sleepers, in one step that a process which is killed
/// has done wholly or not at all. The word must exist. Leaves `errno` alone.
void FutexSetBitsAndWakeAll(FutexWord& word, std::uint32_t bits, FutexScope scope) noexcept;

/// To wake all.
inline constexpr int kFutexAll = 0x7FFFFFFF;

}  // namespace qsbase::detail

#endif
