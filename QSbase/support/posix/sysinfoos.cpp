#include <QSbase/support/sysinfoos.h>

#include <QSbase/cancelguard.h>
#include <QSbase/support/posix/sysinfotext.h>

#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>

namespace qsbase::detail {

namespace {

/// The content of a file that the system writes; its size is not known before. Empty if there is none.
std::string ReadSystemText(const char* path) {
  const CancelGuard noCancellation;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "re"), &std::fclose);
  std::string text;
  char block[4096];
  for (std::size_t count = sizeof block; file != nullptr && count == sizeof block;) {
    count = std::fread(block, 1, sizeof block, file.get());
    text.append(block, count);
  }
  return text;
}

/// Whether files that are put there stay there: not what the kernel shows as a file system, which has no blocks, nor
/// what is in memory.
bool KeepsFiles(const Mount& mount) {
  constexpr std::string_view kInMemory[] = {"devtmpfs", "ramfs", "rootfs", "tmpfs"};
  struct statvfs status {};
  return std::find(std::begin(kInMemory), std::end(kInMemory), mount.type) == std::end(kInMemory) &&
         statvfs(mount.mountPoint.c_str(), &status) == 0 && status.f_blocks != 0;
}

std::string KernelName() {
  utsname names{};
  return uname(&names) == 0 ? std::string(names.sysname) + " " + names.release : std::string();
}

}  // namespace

Processors OsProcessors() {
  Processors processors = ReadCpuDescription(ReadSystemText("/proc/cpuinfo"));
  processors.count = static_cast<int>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 0L));
  return processors;
}

MemoryReport OsMemoryReport() { return ReadMemoryReport(ReadSystemText("/proc/meminfo")); }

std::vector<std::string> OsFileSystemRoots() {
  const std::vector<Mount> mounts = ReadMounts(ReadSystemText("/proc/self/mountinfo"));
  std::vector<std::string> roots{"/"};
  std::vector<std::string> devices;
  const auto root = std::find_if(mounts.begin(), mounts.end(), [](const Mount& m) { return m.mountPoint == "/"; });
  if (root != mounts.end()) {
    devices.push_back(root->device);
  }
  for (const Mount& mount : mounts) {
    if (std::find(devices.begin(), devices.end(), mount.device) == devices.end() && KeepsFiles(mount)) {
      devices.push_back(mount.device);
      roots.push_back(mount.mountPoint);
    }
  }
  return roots;
}

std::string OsVersionText() {
  for (const char* const path : {"/etc/os-release", "/usr/lib/os-release"}) {
    std::string name = ReadSystemName(ReadSystemText(path));
    if (!name.empty()) {
      return name;
    }
  }
  return KernelName();
}

}  // namespace qsbase::detail
