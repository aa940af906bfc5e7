/// \file
/// Process basics: identity, clock, sleep, free memory.
#ifndef QSBASE_PROCESS_H
#define QSBASE_PROCESS_H

#include <string>

#include <QSbase/export.h>

QSBASE_API void QsSetApplication(void* module);
QSBASE_API std::string QsGetApplicationFilename();
QSBASE_API void QsSleep(unsigned int ms);
QSBASE_API unsigned int QsGetTickCount();
QSBASE_API long QsGetThreadCPUUserTime();
QSBASE_API int QsGetCurrentProcessId();
QSBASE_API int QsGetCurrentThreadId();
QSBASE_API bool QsGetMemFree(unsigned int& megabytes);

#endif
