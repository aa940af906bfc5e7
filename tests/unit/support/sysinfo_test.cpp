#include <QSbase/support/sysinfo.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <common/matchers.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using qsbase::testing::MatchesPattern;

constexpr double kMost = 2147483647;
// To a program of 32 bits Windows tells 4 GiB at most, and less of them for the whole than for what is free.
constexpr bool kTellsLargeSwap = sizeof(void*) > 4;

std::vector<std::string> Roots() {
  std::vector<FSInfo> list;
  QsSysinfo::GetFileSystemInfo(list);
  std::vector<std::string> roots;
  for (const FSInfo& info : list) {
    roots.push_back(info.root);
  }
  return roots;
}

TEST(QsSysinfo, KnowsTheProcessors) {
  const QsSysinfo machine;
  EXPECT_EQ(machine.GetCpuCount(), static_cast<int>(std::thread::hardware_concurrency()));
  EXPECT_GE(machine.GetCpuMhZ(), 0);
  EXPECT_EQ(machine.GetCpuModelName().find('\0'), std::string::npos);
  EXPECT_FALSE(machine.HasCpuHT());
}

TEST(QsSysinfo, GivesAllOfItAtOnce) {
  const QsSysinfo machine;
  const CpuInfo cpu = machine.GetCPUInfo();
  EXPECT_EQ(cpu.count, machine.GetCpuCount());
  EXPECT_EQ(cpu.modelName, machine.GetCpuModelName());
  EXPECT_EQ(cpu.mhz, machine.GetCpuMhZ());
  EXPECT_EQ(cpu.hyperThreading, machine.HasCpuHT());
}

TEST(QsSysinfo, CopiesKeepWhatTheyKnow) {
  const QsSysinfo machine;
  const QsSysinfo copy(machine);
  QsSysinfo assigned;
  assigned = copy;
  EXPECT_EQ(assigned.GetCpuMhZ(), machine.GetCpuMhZ());
  EXPECT_EQ(assigned.GetCpuModelName(), machine.GetCpuModelName());
}

TEST(CpuInfo, IsEmptyAtFirst) {
  const CpuInfo cpu;
  EXPECT_EQ(cpu.count, 0);
  EXPECT_EQ(cpu.modelName, "");
  EXPECT_EQ(cpu.mhz, 0);
  EXPECT_FALSE(cpu.hyperThreading);
}

TEST(SystemMemory, IsInWholeKibibytes) {
  const SystemMemInfo info = QsSysinfo::GetSystemMemInfo();
  for (const double value : {info.memTotal, info.memFree, info.swapTotal, info.swapFree}) {
    EXPECT_GE(value, 0);
    EXPECT_LE(value, kMost);
    EXPECT_EQ(value, static_cast<double>(static_cast<long long>(value)));
  }
  EXPECT_GT(info.memTotal, 1024);
  EXPECT_LE(info.memFree, info.memTotal);
  if (kTellsLargeSwap) {
    EXPECT_LE(info.swapFree, info.swapTotal);
  }
}

TEST(SystemMemory, IsToldOneByOneToo) {
  EXPECT_EQ(QsSysinfo::GetMemTotal(), QsSysinfo::GetSystemMemInfo().memTotal);
  EXPECT_EQ(QsSysinfo::GetSwapTotal(), QsSysinfo::GetSystemMemInfo().swapTotal);
  EXPECT_GT(QsSysinfo::GetMemFree(), 0);
  EXPECT_LE(QsSysinfo::GetMemFree(), QsSysinfo::GetMemTotal());
  EXPECT_GE(QsSysinfo::GetSwapFree(), 0);
}

TEST(FileSystems, AreAppended) {
  std::vector<FSInfo> list(2);
  list[0].root = "mine";
  const int count = QsSysinfo::GetFileSystemInfo(list);
  EXPECT_EQ(list[0].root, "mine");
  EXPECT_EQ(static_cast<std::size_t>(count), list.size());
  EXPECT_EQ(list.size(), 2 + Roots().size());
}

TEST(FileSystems, HaveARootAndNothingElse) {
  std::vector<FSInfo> list;
  ASSERT_GE(QsSysinfo::GetFileSystemInfo(list), 1);
  for (const FSInfo& info : list) {
    EXPECT_NE(info.root, "");
    EXPECT_EQ(info.device, "");
    EXPECT_EQ(info.type, "");
    EXPECT_FALSE(info.removable);
  }
}

TEST(OSVersion, IsANameWithAVersion) { EXPECT_THAT(QsSysinfo::GetOSVersion(), MatchesPattern("[A-Za-z].*[0-9].*")); }

#ifdef _WIN32

TEST(QsSysinfo, ReadsTheRegistry) {
  char name[512] = "";
  DWORD size = sizeof name - 1;
  RegGetValueA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", "ProcessorNameString",
               RRF_RT_REG_SZ, nullptr, name, &size);
  DWORD mhz = 0;
  size = sizeof mhz;
  RegGetValueA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", "~MHz", RRF_RT_REG_DWORD,
               nullptr, &mhz, &size);
  const QsSysinfo machine;
  EXPECT_EQ(machine.GetCpuModelName(), name);
  EXPECT_EQ(machine.GetCpuMhZ(), mhz);
}

TEST(FileSystems, AreTheDrives) {
  std::vector<std::string> drives;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    if ((GetLogicalDrives() >> (letter - 'A') & 1U) != 0) {
      drives.push_back(std::string(1, letter) + ":\\");
    }
  }
  EXPECT_EQ(Roots(), drives);
}

TEST(OSVersion, EndsInTheNumbers) {
  EXPECT_THAT(QsSysinfo::GetOSVersion(), MatchesPattern("(Microsoft )?Windows.* \\([0-9]+\\.[0-9]+\\.[0-9]+\\)"));
}

#else

// The number in a line "name: number kB".
double MemoryLine(const std::string& wanted) {
  std::ifstream file("/proc/meminfo");
  std::string name;
  double number = 0;
  std::string unit;
  while (file >> name >> number) {
    std::getline(file, unit);
    if (name == wanted + ":") {
      return number;
    }
  }
  return -1;
}

TEST(SystemMemory, IsThatOfTheKernelsReport) {
  EXPECT_EQ(QsSysinfo::GetMemTotal(), std::min(MemoryLine("MemTotal"), kMost));
  EXPECT_EQ(QsSysinfo::GetSwapTotal(), std::min(MemoryLine("SwapTotal"), kMost));
}

TEST(FileSystems, BeginWithTheRoot) { EXPECT_EQ(Roots().front(), "/"); }

TEST(FileSystems, AreToldOnceAndKeepFiles) {
  std::set<dev_t> devices;
  for (const std::string& root : Roots()) {
    struct stat status {};
    ASSERT_EQ(stat(root.c_str(), &status), 0) << root;
    EXPECT_TRUE(devices.insert(status.st_dev).second) << root;
  }
  const std::vector<std::string> roots = Roots();
  for (const char* const other : {"/proc", "/sys", "/dev", "/dev/shm", "/dev/pts"}) {
    EXPECT_THAT(roots, ::testing::Not(::testing::Contains(other)));
  }
}

#endif

}  // namespace
