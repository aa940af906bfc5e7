/// \file
/// Kernel objects behind a handle: owning and waiting (internal).
#ifndef QSBASE_SYNC_WIN32_HANDLEWAIT_H
#define QSBASE_SYNC_WIN32_HANDLEWAIT_H

#include <QSbase/sync/event.h>
#include <QSbase/win32/windowsapi.h>

#include <memory>
#include <new>

namespace qsbase::detail {

/// Waits for \p handle at most \p timeoutMs milliseconds, without limit when negative. Timeout comes not before that
/// time has passed on the steady clock, though the system's own waits end up to a tick early.
WaitResult WaitForHandle(HANDLE handle, int timeoutMs) noexcept;

/// An Object that owns \p handle from here on; null for no handle, and without memory.
template <class Object>
std::unique_ptr<Object> AdoptHandle(HANDLE handle) noexcept {
  if (handle == nullptr) {
    return nullptr;
  }
  std::unique_ptr<Object> object(new (std::nothrow) Object(handle));
  if (!object) {
    CloseHandle(handle);
  }
  return object;
}

}  // namespace qsbase::detail

#endif
