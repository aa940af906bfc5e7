/// \file
/// What stands between the calls of a program and the fault in force (internal to faults.h).
#ifndef QSBASE_TESTS_RELIABILITY_COMMON_FAULTPOINT_H
#define QSBASE_TESTS_RELIABILITY_COMMON_FAULTPOINT_H

#include <cstddef>

#include <reliability/common/faults.h>

namespace qsbase::testing {

/// Counts a call. Whether it fails; the last error is then set. Calls that no signal interrupts pass by such a fault.
bool FailsNow(FaultKind kind, bool mayBeInterrupted = true) noexcept;

/// Counts a call that moves bytes.
inline constexpr std::size_t kTransferFails = static_cast<std::size_t>(-1);

/// How many of the bytes it is to move: all, half of them, or kTransferFails with the last error set.
std::size_t Allowed(FaultKind kind, std::size_t size) noexcept;

/// Counts a block that was got (1) or given back (-1).
void CountBlock(long change) noexcept;

// ---- given by posixfaults.cpp and win32faults.cpp ----

/// How many NoFaults this thread has. Allocates nothing.
long SuspendedHere() noexcept;
void ChangeSuspended(long change) noexcept;

void SetError(int error) noexcept;

/// After a fault has hit for the first time.
void TellOfHit() noexcept;

/// Puts the fault points in their places, where they are not there from the start.
void Install();

}  // namespace qsbase::testing

#endif
