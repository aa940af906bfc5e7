/// \file
/// How many handles of this process its child processes inherit. For the Windows tests only.
#ifndef QSBASE_TESTS_COMMON_INHERITEDHANDLES_H
#define QSBASE_TESTS_COMMON_INHERITEDHANDLES_H

#include <QSbase/win32/windowsapi.h>

#include <cstdint>

namespace qsbase::testing {

/// While no other thread opens or closes any.
inline int CountInheritedHandles() {
  constexpr std::uintptr_t kLast = 0x1000;  // the system gives the lowest ones first, in steps of 4
  int count = 0;
  for (std::uintptr_t value = 4; value < kLast; value += 4) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != 0 && (flags & HANDLE_FLAG_INHERIT) != 0) {
      ++count;
    }
  }
  return count;
}

}  // namespace qsbase::testing

#endif
