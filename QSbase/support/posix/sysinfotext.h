/// \file
/// What Linux writes down about the machine, read from the texts themselves (internal). Whatever a text lacks stays
/// empty or 0.
#ifndef QSBASE_SUPPORT_POSIX_SYSINFOTEXT_H
#define QSBASE_SUPPORT_POSIX_SYSINFOTEXT_H

#include <string>
#include <string_view>
#include <vector>

#include <QSbase/support/sysinfoos.h>

namespace qsbase::detail {

/// Name and clock of the first processor of /proc/cpuinfo; the count stays 0.
Processors ReadCpuDescription(std::string_view cpuinfo);

/// Of /proc/meminfo. Free is what programs can get without swapping; an old kernel tells only what nothing uses.
MemoryReport ReadMemoryReport(std::string_view meminfo);

struct Mount {
  std::string device;      ///< "major:minor", which tells file systems apart
  std::string mountPoint;  ///< as the file system has it, without escapes
  std::string type;
};

/// The mounts of /proc/self/mountinfo in their order. Of several at one place only the last, which hides the others.
std::vector<Mount> ReadMounts(std::string_view mountinfo);

/// The name for people in an os-release file (PRETTY_NAME), without quotes and escapes.
std::string ReadSystemName(std::string_view osRelease);

}  // namespace qsbase::detail

#endif
