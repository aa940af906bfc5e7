/// \file
/// Process basics: identity, clock, sleep, free memory. Every function may be called from any thread.
#ifndef QSBASE_PROCESS_H
#define QSBASE_PROCESS_H

#include <string>

#include <QSbase/export.h>

/// Remembers the module whose file name QsGetApplicationFilename() reports: a handle of `dlopen` on Linux, an
/// `HMODULE` on Windows. Null, the initial value, means the process's main program. The handle is not owned.
QSBASE_API void QsSetApplication(void* module);

/// The full path of that module, as the operating system spells it (on Linux with "/"). Empty when the handle is no
/// loaded module (a handle that is none is never dereferenced) or the path cannot be had.
QSBASE_API std::string QsGetApplicationFilename();

/// Blocks the calling thread for \p ms milliseconds, also when signals arrive meanwhile. 0 gives up the time slice.
/// Leaves the last-error code alone.
QSBASE_API void QsSleep(unsigned int ms);

/// Milliseconds since system start, time in suspend included. Wraps after about 49.7 days; see TIME_DIFF().
QSBASE_API unsigned int QsGetTickCount();

/// Always 0: not measured. Kept: callers rely on the fixed answer.
QSBASE_API long QsGetThreadCPUUserTime();

/// The process id.
QSBASE_API int QsGetCurrentProcessId();

/// The operating system's id of the calling thread (`gettid` on Linux). Costs no system call after the first; right in
/// a forked child too.
QSBASE_API int QsGetCurrentThreadId();

/// Stores the free physical memory in MiB (rounded down) in \p megabytes: on Linux what programs can get without
/// swapping (MemAvailable). Always true; 0 MiB when the system does not tell.
QSBASE_API bool QsGetMemFree(unsigned int& megabytes);

#endif
