/// \file
/// What the machine is and has: processor, memory, swap, file systems; the operating system's name.
///
/// Thread safety: an object belongs to one thread at a time; the static functions may be called from any thread.
///
/// \code
/// const QsSysinfo machine;
/// QsLogMsg(0x10000000, "%s, %d x %s", QsSysinfo::GetOSVersion().c_str(), machine.GetCpuCount(),
///          machine.GetCpuModelName().c_str());
/// \endcode
#ifndef QSBASE_SUPPORT_SYSINFO_H
#define QSBASE_SUPPORT_SYSINFO_H

#include <string>
#include <vector>

#include <QSbase/export.h>

/// The processors.
struct QSBASE_API CpuInfo {
  /// How many run; cores and hyper-threads count alike.
  int count = 0;
  /// The first one's name, as the system describes it; empty when it does not.
  std::string modelName;
  /// The first one's clock in MHz; 0 when the system does not tell. On Linux that of the moment.
  double mhz = 0;
  /// Not detected: always false.
  bool hyperThreading = false;
};

/// Memory of the machine in whole KiB, from 0 to 2147483647, which also stands for more.
struct QSBASE_API SystemMemInfo {
  /// Physical memory.
  double memTotal = 0;
  /// Physical memory that programs can get without swapping.
  double memFree = 0;
  /// Swap space; on Windows what the page file and the memory hold together.
  double swapTotal = 0;
  /// What of that is unused.
  double swapFree = 0;
};

/// A file system.
struct QSBASE_API FSInfo {
  /// Not filled: always empty.
  std::string device;
  /// Where its tree begins: "/" and the mount points on Linux, "C:\" on Windows.
  std::string root;
  /// Not filled: always empty.
  std::string type;
  /// Not filled: always false.
  bool removable = false;
};

/// The processors as they were when the object was made, and static functions for the rest.
class QSBASE_API QsSysinfo {
 public:
  /// Asks the system for the processors. What it does not tell keeps its initial value.
  QsSysinfo();
  /// Copies what is known.
  QsSysinfo(const QsSysinfo& other);
  /// Copies what is known.
  QsSysinfo& operator=(const QsSysinfo& other);
  ~QsSysinfo();

  /// All of it.
  CpuInfo GetCPUInfo() const;
  /// CpuInfo::mhz.
  double GetCpuMhZ() const;
  /// CpuInfo::count.
  int GetCpuCount() const;
  /// CpuInfo::hyperThreading: false.
  bool HasCpuHT() const;
  /// CpuInfo::modelName.
  std::string GetCpuModelName() const;

  /// Memory and swap at this moment; zeros when the system does not tell.
  static SystemMemInfo GetSystemMemInfo();
  /// GetSystemMemInfo().memTotal.
  static double GetMemTotal();
  /// GetSystemMemInfo().memFree.
  static double GetMemFree();
  /// GetSystemMemInfo().swapTotal.
  static double GetSwapTotal();
  /// GetSystemMemInfo().swapFree.
  static double GetSwapFree();

  /// Appends the file systems and returns the size of \p list then, with what was in it before. On Windows one entry
  /// for each drive letter there is, in their order. On Linux "/" and one entry for each further file system with room
  /// for files that is mounted, on a disk or over the network but not in memory, in the order of mounting; one that is
  /// mounted at several places counts once, at the first.
  static int GetFileSystemInfo(std::vector<FSInfo>& list);

  /// Name and version of the operating system for people: "Debian GNU/Linux 12 (bookworm)",
  /// "Windows 11 Pro 23H2 (10.0.22631)". Empty when the system does not tell.
  static std::string GetOSVersion();

 private:
  CpuInfo _cpu;
};

#endif
