/// \file
/// The handles of this process, descriptors on Linux: to count them, and to close one behind the library's back.
#ifndef QSBASE_TESTS_COMMON_OPENHANDLES_H
#define QSBASE_TESTS_COMMON_OPENHANDLES_H

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

#include <QSbase/errors.h>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace qsbase::testing {

using NativeHandle = std::intptr_t;

#ifdef _WIN32
inline HANDLE ToHandle(NativeHandle handle) { return reinterpret_cast<HANDLE>(handle); }

inline bool IsOpenHandle(NativeHandle handle) {
  DWORD flags = 0;
  return GetHandleInformation(ToHandle(handle), &flags) != 0;
}

inline bool IsInheritedHandle(NativeHandle handle) {
  DWORD flags = 0;
  return GetHandleInformation(ToHandle(handle), &flags) != 0 && (flags & HANDLE_FLAG_INHERIT) != 0;
}

inline void CloseBehind(NativeHandle handle) { CloseHandle(ToHandle(handle)); }

inline constexpr NativeHandle kHandleStep = 4;
#else
inline bool IsOpenHandle(NativeHandle handle) { return fcntl(static_cast<int>(handle), F_GETFD) != -1; }

inline bool IsInheritedHandle(NativeHandle handle) {
  return (fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC) == 0;
}

inline void CloseBehind(NativeHandle handle) { close(static_cast<int>(handle)); }

inline constexpr NativeHandle kHandleStep = 1;
#endif

/// In rising order, while no other thread opens or closes any. The system gives the lowest ones first. Keeps the last
/// error.
inline std::vector<NativeHandle> OpenHandles() {
  const int error = QsGetLastError();
  std::vector<NativeHandle> open;
  for (NativeHandle handle = 0; handle < 1024 * kHandleStep; handle += kHandleStep) {
    if (IsOpenHandle(handle)) {
      open.push_back(handle);
    }
  }
  QsSetLastError(error);
  return open;
}

/// What \p action opens and leaves open.
template <class Action>
std::vector<NativeHandle> HandlesOpenedBy(Action action) {
  const std::vector<NativeHandle> before = OpenHandles();
  action();
  const std::vector<NativeHandle> after = OpenHandles();
  std::vector<NativeHandle> opened;
  std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(opened));
  return opened;
}

}  // namespace qsbase::testing

#endif
