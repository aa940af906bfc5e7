#include <QSbase/errors.h>
#include <QSbase/process.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <csignal>
#endif

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(QsGetApplicationFilename, AnInvalidHandleGivesAnEmptyName) {
  int here = 0;
  for (void* const handle : {static_cast<void*>(&here), reinterpret_cast<void*>(std::uintptr_t{1}),
                             reinterpret_cast<void*>(~std::uintptr_t{0})}) {
    QsSetApplication(handle);
    EXPECT_EQ(QsGetApplicationFilename(), "");
  }
  QsSetApplication(nullptr);
  EXPECT_NE(QsGetApplicationFilename(), "");
}

TEST(QsSleep, LastsAsLongAsAsked) {
  const auto start = steady_clock::now();
  QsSleep(30);
  EXPECT_GE(steady_clock::now() - start, milliseconds(30));
}

TEST(QsSleep, LeavesTheLastErrorAlone) {
  QsSetLastError(77);
  QsSleep(0);
  QsSleep(1);
  EXPECT_EQ(QsGetLastError(), 77);
}

TEST(QsGetTickCount, RunsWithTheClock) {
  const unsigned int before = QsGetTickCount();
  std::this_thread::sleep_for(milliseconds(50));
  const unsigned int passed = QsGetTickCount() - before;
  EXPECT_GE(passed, 49U);
  EXPECT_LT(passed, 10000U);
}

TEST(QsGetThreadCPUUserTime, IsNotMeasured) {
  const auto start = steady_clock::now();
  while (steady_clock::now() - start < milliseconds(20)) {
  }
  EXPECT_EQ(QsGetThreadCPUUserTime(), 0);
}

TEST(QsGetCurrentThreadId, TellsLivingThreadsApart) {
  std::vector<int> ids(8);
  {
    std::vector<std::thread> threads;
    for (int& id : ids) {
      threads.emplace_back([&id] {
        id = QsGetCurrentThreadId();
        std::this_thread::sleep_for(milliseconds(50));
        EXPECT_EQ(QsGetCurrentThreadId(), id);
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  EXPECT_EQ(std::set<int>(ids.begin(), ids.end()).count(QsGetCurrentThreadId()), 0U);
  EXPECT_EQ(std::set<int>(ids.begin(), ids.end()).count(0), 0U);
}

TEST(QsGetMemFree, NeverFails) {
  unsigned int megabytes = 0;
  EXPECT_TRUE(QsGetMemFree(megabytes));
  EXPECT_GT(megabytes, 0U);
}

#ifdef _WIN32

std::string NameOf(HMODULE module) {
  char name[MAX_PATH] = {};
  EXPECT_NE(GetModuleFileNameA(module, name, MAX_PATH), 0U);
  return name;
}

TEST(QsGetApplicationFilename, NullIsTheProgram) {
  const std::string program = NameOf(nullptr);
  EXPECT_EQ(QsGetApplicationFilename(), program);
  EXPECT_NE(program.find("unit_process.exe"), std::string::npos);
  QsSetApplication(GetModuleHandleA(nullptr));
  EXPECT_EQ(QsGetApplicationFilename(), program);
}

TEST(QsGetApplicationFilename, AModuleIsFoundWhileItIsLoaded) {
  const char* const name = "msacm32.dll";
  ASSERT_EQ(GetModuleHandleA(name), nullptr);
  const HMODULE module = LoadLibraryA(name);
  ASSERT_NE(module, nullptr);
  QsSetApplication(module);
  const std::string path = QsGetApplicationFilename();
  EXPECT_EQ(path, NameOf(module));
  EXPECT_EQ(path.substr(1, 2), ":\\");
  EXPECT_NE(GetFileAttributesA(path.c_str()), INVALID_FILE_ATTRIBUTES);
  FreeLibrary(module);
  EXPECT_EQ(QsGetApplicationFilename(), "");
  QsSetApplication(GetModuleHandleA("kernel32.dll"));
  EXPECT_EQ(QsGetApplicationFilename(), NameOf(GetModuleHandleA("kernel32.dll")));
}

TEST(QsGetApplicationFilename, IsFoundWhileOtherThreadsLoadAndUnload) {
  std::thread loader([] {
    for (int i = 0; i < 50; ++i) {
      if (const HMODULE module = LoadLibraryA("msacm32.dll")) {
        FreeLibrary(module);
      }
    }
  });
  int here = 0;
  QsSetApplication(&here);
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(QsGetApplicationFilename(), "");
  }
  loader.join();
}

TEST(QsGetTickCount, IsTheSystemsCountCutTo32Bits) {
  const DWORD before = GetTickCount();
  const unsigned int ticks = QsGetTickCount();
  const DWORD after = GetTickCount();
  EXPECT_LE(ticks - before, after - before);
}

TEST(QsGetCurrentProcessId, IsTheProcessId) {
  EXPECT_EQ(QsGetCurrentProcessId(), static_cast<int>(GetCurrentProcessId()));
}

TEST(QsGetCurrentThreadId, IsTheSystemsId) {
  EXPECT_EQ(QsGetCurrentThreadId(), static_cast<int>(GetCurrentThreadId()));
  std::thread([] { EXPECT_EQ(QsGetCurrentThreadId(), static_cast<int>(GetCurrentThreadId())); }).join();
}

unsigned int AvailableMegabytes() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  EXPECT_TRUE(GlobalMemoryStatusEx(&status));
  return static_cast<unsigned int>(status.ullAvailPhys >> 20U);
}

#else

TEST(QsGetApplicationFilename, NullIsTheProgram) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  EXPECT_EQ(QsGetApplicationFilename(), program);
  void* const self = dlopen(nullptr, RTLD_LAZY);
  QsSetApplication(self);
  EXPECT_EQ(QsGetApplicationFilename(), program);
  dlclose(self);
}

TEST(QsGetApplicationFilename, AModuleIsFoundWhileItIsLoaded) {
  void* const module = dlopen("libz.so.1", RTLD_LAZY);
  ASSERT_NE(module, nullptr);
  QsSetApplication(module);
  const std::filesystem::path path = QsGetApplicationFilename();
  EXPECT_TRUE(path.is_absolute());
  EXPECT_EQ(path.filename(), "libz.so.1");
  EXPECT_TRUE(std::filesystem::exists(path));
  dlclose(module);
}

TEST(QsGetApplicationFilename, IsFoundWhileOtherThreadsLoadAndUnload) {
  std::thread loader([] {
    for (int i = 0; i < 200; ++i) {
      if (void* const module = dlopen("libresolv.so.2", RTLD_NOW)) {
        dlclose(module);
      }
    }
  });
  int here = 0;
  QsSetApplication(&here);
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(QsGetApplicationFilename(), "");
  }
  loader.join();
}

TEST(QsSleep, GoesOnAfterASignal) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const pthread_t sleeper = pthread_self();
  std::thread sender([sleeper] {
    for (int i = 0; i < 5; ++i) {
      std::this_thread::sleep_for(milliseconds(5));
      pthread_kill(sleeper, SIGUSR1);
    }
  });
  const auto start = steady_clock::now();
  QsSleep(80);
  EXPECT_GE(steady_clock::now() - start, milliseconds(80));
  sender.join();
}

TEST(QsGetTickCount, IsTheSystemsCountCutTo32Bits) {
  const auto bootTime = [] {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                                      static_cast<std::uint64_t>(now.tv_nsec) / 1000000);
  };
  const std::uint32_t before = bootTime();
  const std::uint32_t ticks = QsGetTickCount();
  const std::uint32_t after = bootTime();
  EXPECT_LE(ticks - before, after - before);
}

TEST(QsGetCurrentProcessId, IsTheProcessId) { EXPECT_EQ(QsGetCurrentProcessId(), getpid()); }

TEST(QsGetCurrentThreadId, IsTheSystemsId) {
  EXPECT_EQ(QsGetCurrentThreadId(), getpid());  // the main thread
  std::thread([] { EXPECT_EQ(QsGetCurrentThreadId(), static_cast<int>(syscall(SYS_gettid))); }).join();
}

TEST(QsGetCurrentThreadId, IsRightInAForkedChild) {
  const int parent = QsGetCurrentThreadId();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    _exit(QsGetCurrentThreadId() == getpid() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(QsGetCurrentThreadId(), parent);
}

unsigned int AvailableMegabytes() {
  std::ifstream file("/proc/meminfo");
  for (std::string name, unit; file >> name;) {
    std::uint64_t kibibytes = 0;
    file >> kibibytes;
    std::getline(file, unit);
    if (name == "MemAvailable:") {
      return static_cast<unsigned int>(kibibytes / 1024);
    }
  }
  return 0;
}

#endif

TEST(QsGetMemFree, IsWhatTheSystemCallsAvailable) {
  // Other processes move the figure meanwhile.
  constexpr unsigned int slack = 1024;
  const unsigned int before = AvailableMegabytes();
  unsigned int megabytes = 0;
  QsGetMemFree(megabytes);
  const unsigned int after = AvailableMegabytes();
  EXPECT_GE(megabytes + slack, std::min(before, after));
  EXPECT_LE(megabytes, std::max(before, after) + slack);
}

}  // namespace
