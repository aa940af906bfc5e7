/// \file
/// What the error functions ask of the operating system. Twins: posix/errorsos.cpp, win32/errorsos.cpp.
#ifndef QSBASE_ERRORSOS_H
#define QSBASE_ERRORSOS_H

#include <string>

namespace qsbase::detail {

/// The calling thread's last-error code. Any thread.
int OsGetLastError() noexcept;

/// Sets the calling thread's last-error code. Any thread.
void OsSetLastError(int code) noexcept;

/// The system's text for \p code as the system gives it, line break included; empty when it has none. Any thread.
/// May change the last-error code; may throw std::bad_alloc.
std::string OsErrorText(int code);

}  // namespace qsbase::detail

#endif
