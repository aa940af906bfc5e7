#include "sysinfo.h"

#include <QSbase/support/sysinfo.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fetch.h"
#include "text.h"

namespace qs {
namespace {

void Print(const char* name, const std::string& value) {
  if (!value.empty()) {
    std::printf("%-12s %s\n", name, Printable(value).c_str());
  }
}

// A whole number.
std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.0f", value);
  return text;
}

void PrintMemory(const char* name, double total, double free) {
  Print(name, Number(total) + " KiB, " + Number(free) + " KiB free");
}

}  // namespace

int RunSysinfo() {
  const QsSysinfo machine;
  Print("system", QsSysinfo::GetOSVersion());
  Print("processor", machine.GetCpuModelName());
  Print("processors", std::to_string(machine.GetCpuCount()));
  Print("clock", machine.GetCpuMhZ() > 0 ? Number(machine.GetCpuMhZ()) + " MHz" : "");
  const SystemMemInfo memory = QsSysinfo::GetSystemMemInfo();
  PrintMemory("memory", memory.memTotal, memory.memFree);
  PrintMemory("swap", memory.swapTotal, memory.swapFree);
  std::vector<FSInfo> fileSystems;
  QsSysinfo::GetFileSystemInfo(fileSystems);
  for (const FSInfo& fileSystem : fileSystems) {
    Print("file system", fileSystem.root);
  }
  return kExitGood;
}

}  // namespace qs
