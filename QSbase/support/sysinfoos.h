/// \file
/// What the system information asks of the operating system. Twins: posix/sysinfoos.cpp, win32/sysinfoos.cpp.
/// Every function may be called from any thread and may change the last-error code; what the system does not tell stays
/// empty or 0. May throw std::bad_alloc.
#ifndef QSBASE_SUPPORT_SYSINFOOS_H
#define QSBASE_SUPPORT_SYSINFOOS_H

#include <cstdint>
#include <string>
#include <vector>

namespace qsbase::detail {

struct Processors {
  int count = 0;
  std::string name;
  double mhz = 0;
};

/// In KiB.
struct MemoryReport {
  std::uint64_t total = 0;
  std::uint64_t free = 0;
  std::uint64_t swapTotal = 0;
  std::uint64_t swapFree = 0;
};

Processors OsProcessors();

MemoryReport OsMemoryReport();

/// Where the trees of the file systems begin, in the order in which they are to be told.
std::vector<std::string> OsFileSystemRoots();

/// Name and version of the system, for people.
std::string OsVersionText();

}  // namespace qsbase::detail

#endif
