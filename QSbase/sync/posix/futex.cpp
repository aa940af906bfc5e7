#include <QSbase/sync/posix/futex.h>

#include <QSbase/lasterrorguard.h>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace qsbase::detail {

static_assert(sizeof(FutexWord) == sizeof(std::uint32_t) && FutexWord::is_always_lock_free);

namespace {

int Operation(int command, FutexScope scope) {
  return scope == FutexScope::Process ? command | FUTEX_PRIVATE_FLAG : command;
}

// steady_clock is CLOCK_MONOTONIC, whose absolute time FUTEX_WAIT_BITSET takes.
timespec ToTimespec(std::chrono::steady_clock::time_point time) {
  const std::chrono::nanoseconds sinceStart = time.time_since_epoch();
  const std::chrono::seconds seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
  return {seconds.count(), (sinceStart - seconds).count()};
}

}  // namespace

FutexDeadline FutexDeadlineAfter(int timeoutMs) {
  if (timeoutMs < 0) {
    return std::nullopt;
  }
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
}

bool FutexWait(FutexWord& word, std::uint32_t expected, const FutexDeadline& deadline, FutexScope scope) noexcept {
  const LastErrorGuard keepLastError;
  const timespec end = ToTimespec(deadline.value_or(std::chrono::steady_clock::time_point()));
  const long result = syscall(SYS_futex, &word, Operation(FUTEX_WAIT_BITSET, scope), expected,
                              deadline ? &end : nullptr, nullptr, FUTEX_BITSET_MATCH_ANY);
  return result == 0 || errno != ETIMEDOUT;
}

void FutexWake(FutexWord& word, int count, FutexScope scope) noexcept {
  const LastErrorGuard keepLastError;
  syscall(SYS_futex, &word, Operation(FUTEX_WAKE, scope), count, nullptr, nullptr, 0);
}

// The kernel sets the bits, after which it finishes the call whatever happens to the caller. It can wake the sleepers
// on two words, here both times on one.
void FutexSetBitsAndWakeAll(FutexWord& word, std::uint32_t bits, FutexScope scope) noexcept {
  const LastErrorGuard keepLastError;
  word.fetch_or(0, std::memory_order_release);  // what the kernel writes is unknown to the memory model
  const long woken = syscall(SYS_futex, &word, Operation(FUTEX_WAKE_OP, scope), kFutexAll, kFutexAll, &word,
                             FUTEX_OP(FUTEX_OP_OR, bits, FUTEX_OP_CMP_EQ, 0));
  if (woken == -1) {  // a sandbox that does not have the operation
    word.fetch_or(bits, std::memory_order_seq_cst);
    FutexWake(word, kFutexAll, scope);
  }
}

}  // namespace qsbase::detail
