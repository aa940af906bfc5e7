#include <QSbase/process.h>

#include <QSbase/lasterrorguard.h>
#include <QSbase/processos.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

namespace {

std::atomic<void*> application{nullptr};

}  // namespace

void QsSetApplication(void* module) { application = module; }

std::string QsGetApplicationFilename() { return qsbase::detail::OsModuleFileName(application); }

void QsSleep(unsigned int ms) {
  const qsbase::detail::LastErrorGuard keepLastError;
  if (ms == 0) {
    std::this_thread::yield();
    return;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));  // goes on after a signal
}

unsigned int QsGetTickCount() { return static_cast<unsigned int>(qsbase::detail::OsTickCount()); }

long QsGetThreadCPUUserTime() { return 0; }

int QsGetCurrentProcessId() { return qsbase::detail::OsProcessId(); }

int QsGetCurrentThreadId() { return qsbase::detail::OsThreadId(); }

bool QsGetMemFree(unsigned int& megabytes) {
  constexpr std::uint64_t limit = std::numeric_limits<unsigned int>::max();
  megabytes = static_cast<unsigned int>(std::min(qsbase::detail::OsFreePhysicalMemory() >> 20U, limit));
  return true;
}
