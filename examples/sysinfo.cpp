// What the machine is and has, and how long it took to find out.
#include <QSbase/qsbase.h>

#include <cstdio>
#include <vector>

int main() {
  PerfMon watch;  // already running
  const QsSysinfo machine;
  const SystemMemInfo memory = QsSysinfo::GetSystemMemInfo();
  std::vector<FSInfo> fileSystems;
  QsSysinfo::GetFileSystemInfo(fileSystems);

  std::printf("system: %s\n", QsSysinfo::GetOSVersion().c_str());
  std::printf("processors: %d, %s\n", machine.GetCpuCount(), machine.GetCpuModelName().c_str());
  std::printf("memory: %.0f MiB, %.0f MiB free\n", memory.memTotal / 1024, memory.memFree / 1024);
  for (const FSInfo& fileSystem : fileSystems) {
    std::printf("file system: %s\n", fileSystem.root.c_str());
  }
  const double milliseconds = watch.Stop();
  std::printf("measured: %s\n", milliseconds > 0 ? "yes" : "no");
}
