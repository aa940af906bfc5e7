/// \file
/// Waiting for a kernel object (internal).
#ifndef QSBASE_SYNC_WIN32_HANDLEWAIT_H
#define QSBASE_SYNC_WIN32_HANDLEWAIT_H

#include <QSbase/sync/event.h>
#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

/// Waits for \p handle at most \p timeoutMs milliseconds, without limit when negative. Timeout comes not before that
/// time has passed on the steady clock, though the system's own waits end up to a tick early.
WaitResult WaitForHandle(HANDLE handle, int timeoutMs) noexcept;

}  // namespace qsbase::detail

#endif
