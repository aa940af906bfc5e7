#include <QSbase/support/sysinfo.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include <QSbase/support/sysinfoos.h>

namespace {

double Limited(std::uint64_t kibibytes) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::int32_t>::max();
  return static_cast<double>(std::min(kibibytes, kMost));
}

}  // namespace

QsSysinfo::QsSysinfo() {
  qsbase::detail::Processors processors = qsbase::detail::OsProcessors();
  _cpu.count = processors.count;
  _cpu.modelName = std::move(processors.name);
  _cpu.mhz = processors.mhz;
}

QsSysinfo::QsSysinfo(const QsSysinfo& other) = default;
QsSysinfo& QsSysinfo::operator=(const QsSysinfo& other) = default;
QsSysinfo::~QsSysinfo() = default;

CpuInfo QsSysinfo::GetCPUInfo() const { return _cpu; }

double QsSysinfo::GetCpuMhZ() const { return _cpu.mhz; }

int QsSysinfo::GetCpuCount() const { return _cpu.count; }

bool QsSysinfo::HasCpuHT() const { return _cpu.hyperThreading; }

std::string QsSysinfo::GetCpuModelName() const { return _cpu.modelName; }

SystemMemInfo QsSysinfo::GetSystemMemInfo() {
  const qsbase::detail::MemoryReport report = qsbase::detail::OsMemoryReport();
  SystemMemInfo info;
  info.memTotal = Limited(report.total);
  info.memFree = Limited(report.free);
  info.swapTotal = Limited(report.swapTotal);
  info.swapFree = Limited(report.swapFree);
  return info;
}

double QsSysinfo::GetMemTotal() { return GetSystemMemInfo().memTotal; }

double QsSysinfo::GetMemFree() { return GetSystemMemInfo().memFree; }

double QsSysinfo::GetSwapTotal() { return GetSystemMemInfo().swapTotal; }

double QsSysinfo::GetSwapFree() { return GetSystemMemInfo().swapFree; }

int QsSysinfo::GetFileSystemInfo(std::vector<FSInfo>& list) {
  for (std::string& root : qsbase::detail::OsFileSystemRoots()) {
    FSInfo info;
    info.root = std::move(root);
    list.push_back(std::move(info));
  }
  return static_cast<int>(list.size());
}

std::string QsSysinfo::GetOSVersion() { return qsbase::detail::OsVersionText(); }
