/// \file
/// What this process holds of the system, to be compared before and after something that must leave nothing behind.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_HOLDINGS_H
#define QSBASE_TESTS_INTEGRATION_COMMON_HOLDINGS_H

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

#include <QSbase/process.h>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>

#include <psapi.h>
#else
#include <malloc.h>
#include <unistd.h>
#endif

namespace qsbase::testing {

/// What the process holds. In bytes: the heap in use, the memory that is there, the addresses taken.
struct Holdings {
  std::int64_t threads = 0;
  std::int64_t handles = 0;
  std::int64_t heap = 0;
  std::int64_t resident = 0;
  std::int64_t addresses = 0;
};

inline std::ostream& operator<<(std::ostream& out, const Holdings& held) {
  return out << held.threads << " threads, " << held.handles << " handles, heap " << held.heap << ", resident "
             << held.resident << ", addresses " << held.addresses;
}

#ifdef _WIN32

inline Holdings Held() {
  Holdings held;
  DWORD handles = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  held.handles = handles;  // of the threads, too
  PROCESS_MEMORY_COUNTERS_EX memory{};
  K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory), sizeof memory);
  held.resident = static_cast<std::int64_t>(memory.WorkingSetSize);
  held.addresses = static_cast<std::int64_t>(memory.PrivateUsage);
  return held;
}

#else

inline std::int64_t EntriesOf(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

/// What was joined stays in the system's list for a moment; how many threads are left when those are gone, unless that
/// takes strangely long.
inline std::int64_t ThreadsLeft() {
  static const std::int64_t atFirst = EntriesOf("/proc/self/task");
  std::int64_t threads = 0;
  for (int i = 0; i < 1000 && (threads = EntriesOf("/proc/self/task")) > atFirst; ++i) {
    QsSleep(10);
  }
  return threads;
}

inline Holdings Held() {
  Holdings held;
  held.threads = ThreadsLeft();
  held.handles = EntriesOf("/proc/self/fd");
  const struct mallinfo2 heap = mallinfo2();
  held.heap = static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
  std::ifstream("/proc/self/statm") >> held.addresses >> held.resident;  // in pages
  held.addresses *= getpagesize();
  held.resident *= getpagesize();
  return held;
}

#endif

}  // namespace qsbase::testing

#endif
