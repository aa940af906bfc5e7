/// \file
/// Takes system calls from a thread, to see what becomes of their failure. Linux only.
#ifndef QSBASE_TESTS_COMMON_FORBIDDENCALL_H
#define QSBASE_TESTS_COMMON_FORBIDDENCALL_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cstddef>

namespace qsbase::testing {

/// Lets a program of these steps judge the calling thread's calls from now on. False where it may not.
template <std::size_t count>
bool Filter(sock_filter (&steps)[count]) {
  const sock_fprog filter{count, steps};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

/// From now on the call of this number (SYS_...) fails with `error` in the calling thread and in those that it starts.
/// False where a kernel or container lets no thread forbid its own system calls. There is no way back.
inline bool ForbidSystemCall(unsigned int number, unsigned int error) {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  return Filter(steps);
}

/// Only calls in whose argument (counted from 0) these bits of the lower 32 have these values.
inline bool ForbidSystemCall(unsigned int number, unsigned int argument, unsigned int bits, unsigned int values,
                             unsigned int error) {
  const auto low = static_cast<unsigned int>(offsetof(seccomp_data, args) + 8 * argument);
  sock_filter steps[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 4),
                         BPF_STMT(BPF_LD | BPF_W | BPF_ABS, low),
                         BPF_STMT(BPF_ALU | BPF_AND | BPF_K, bits),
                         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, values, 0, 1),
                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  return Filter(steps);
}

/// Why a test is skipped where neither can be.
inline constexpr const char* kForbidsNoCalls = "this kernel or container lets no thread forbid its own system calls";

}  // namespace qsbase::testing

#endif
