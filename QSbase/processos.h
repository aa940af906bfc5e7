/// \file
/// What the process basics ask of the operating system. Twins: posix/processos.cpp, win32/processos.cpp.
/// Every function may be called from any thread and may change the last-error code.
#ifndef QSBASE_PROCESSOS_H
#define QSBASE_PROCESSOS_H

#include <cstdint>
#include <string>

namespace qsbase::detail {

/// The full path of the loaded module \p module (null: the main program), or empty when it is no loaded module or the
/// call fails. Never dereferences a handle that the system does not know.
std::string OsModuleFileName(void* module);

/// Milliseconds since system start, time in suspend included; never goes back.
std::uint64_t OsTickCount() noexcept;

/// The process id.
int OsProcessId() noexcept;

/// The system's id of the calling thread. Cached: no system call but the first of a thread, and of a forked child.
int OsThreadId() noexcept;

#ifdef _WIN32

inline int OsKnownThreadId() noexcept { return OsThreadId(); }

#else

/// What OsThreadId() knows of the calling thread; 0 before its first call.
extern constinit thread_local int knownThreadId __attribute__((tls_model("initial-exec")));

/// OsThreadId(), without a call when the thread has called it before.
inline int OsKnownThreadId() noexcept { return knownThreadId != 0 ? knownThreadId : OsThreadId(); }

#endif

/// Has \p before called by every thread that forks the process, just before, and \p after by the same thread just
/// after, in the parent and in the child. Nothing to do where processes do not fork. Any thread.
void OsAroundFork(void (*before)(), void (*after)()) noexcept;

/// Free physical memory in bytes, 0 when unknown.
std::uint64_t OsFreePhysicalMemory() noexcept;

}  // namespace qsbase::detail

#endif
