#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#else
#include <dlfcn.h>
#endif

#include <QSbase/net/libraryloader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <common/logcapture.h>
#include <common/platform.h>

#include <QSbase/process.h>
#include <QSbase/support/paths.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using qsbase::testing::kOnWindows;
using qsbase::testing::LogCapture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr unsigned int kError = 0x40000000;

// Beside this program.
std::string TestModule(const char* name = QSBASE_TEST_MODULE) {
  return ExtractFilePath(QsGetApplicationFilename()) + name;
}

int Call(FARPROC function) { return reinterpret_cast<int (*)()>(reinterpret_cast<void*>(function))(); }

class LibraryLoader : public ::testing::Test {
 protected:
  void SetUp() override {
    _module = QsLoadLibrary(TestModule().c_str(), nullptr);
    ASSERT_NE(_module, nullptr);
  }
  void TearDown() override {
    if (_module != nullptr) {
      EXPECT_EQ(QsFreeLibrary(_module), 1);
    }
  }

  LogCapture _log;
  HINSTANCE _module = nullptr;
};

TEST(QsLoadLibrary, ANullOrEmptyPathIsNothingToSpeakOf) {
  const LogCapture log;
  std::string error = "as it was";
  EXPECT_EQ(QsLoadLibrary(nullptr, &error), nullptr);
  EXPECT_EQ(QsLoadLibrary("", &error), nullptr);
  EXPECT_EQ(error, "as it was");
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(QsLoadLibrary, TellsWhatIsNotThere) {
  const LogCapture log;
  std::string error;
  EXPECT_EQ(QsLoadLibrary("no/such/module", &error), nullptr);
  EXPECT_THAT(error, StartsWith("QsLoadLibrary of no/such/module failed: "));
  EXPECT_GT(error.size(), std::string("QsLoadLibrary of no/such/module failed: ").size());
  if (!kOnWindows) {
    EXPECT_THAT(error, HasSubstr("cannot open shared object file"));
  }
  ASSERT_THAT(log.Texts(), ElementsAre(error));
  EXPECT_EQ(log.Messages().front().flags, kError);
}

TEST(QsLoadLibrary, NeedsNoPlaceForTheText) {
  const LogCapture log;
  EXPECT_EQ(QsLoadLibrary("no-such-module", nullptr), nullptr);
  EXPECT_THAT(log.Texts(), ElementsAre(StartsWith("QsLoadLibrary of no-such-module failed: ")));
}

TEST(QsLoadLibrary, ThePathMayStandInTheTextThatIsReplaced) {
  const LogCapture log;
  std::string error = "no-such-module-with-a-name-that-takes-memory-of-its-own";
  const std::string path = error;
  EXPECT_EQ(QsLoadLibrary(error.c_str(), &error), nullptr);
  EXPECT_THAT(error, StartsWith("QsLoadLibrary of " + path + " failed: "));
  EXPECT_THAT(log.Texts(), ElementsAre(error));
}

TEST(QsLoadLibrary, APercentSignInThePathIsNoFormat) {
  const LogCapture log;
  EXPECT_EQ(QsLoadLibrary("100%s-sure%n", nullptr), nullptr);
  EXPECT_THAT(log.Texts(), ElementsAre(StartsWith("QsLoadLibrary of 100%s-sure%n failed: ")));
}

TEST(QsLoadLibrary, AFileThatIsNoModuleIsAnError) {
  const LogCapture log;
  std::string error;
  EXPECT_EQ(QsLoadLibrary((ExtractFilePath(QsGetApplicationFilename()) + ".").c_str(), &error), nullptr);
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(log.Messages().size(), 1U);
}

TEST(QsLoadLibrary, TakesEitherSeparator) {
  const LogCapture log;
  for (const char separator : {'/', '\\'}) {
    std::string path = TestModule();
    for (char& c : path) {
      c = c == '/' || c == '\\' ? separator : c;
    }
    std::string error = "as it was";
    const HINSTANCE module = QsLoadLibrary(path.c_str(), &error);
    EXPECT_NE(module, nullptr) << path << ": " << error;
    EXPECT_EQ(error, "as it was");
    EXPECT_EQ(QsFreeLibrary(module), 1);
  }
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(QsLoadLibrary, ANameAloneIsLookedForWhereTheSystemHasItsOwn) {
  const HINSTANCE module = QsLoadLibrary(kOnWindows ? "ws2_32.dll" : "libm.so.6", nullptr);
  ASSERT_NE(module, nullptr);
  EXPECT_NE(QsGetProcAddress(module, kOnWindows ? "ntohl" : "cos"), nullptr);
  EXPECT_EQ(QsFreeLibrary(module), 1);
}

TEST_F(LibraryLoader, FindsFunctionsAndObjects) {
  EXPECT_EQ(Call(QsGetProcAddress(_module, "Answer")), 42);
  const auto number = reinterpret_cast<int*>(reinterpret_cast<void*>(QsGetProcAddress(_module, "number")));
  ASSERT_NE(number, nullptr);
  EXPECT_EQ(*number, 7);
  EXPECT_THAT(_log.Messages(), IsEmpty());
}

TEST_F(LibraryLoader, NothingIsFoundWithoutModuleOrName) {
  EXPECT_EQ(QsGetProcAddress(nullptr, "Answer"), nullptr);
  EXPECT_EQ(QsGetProcAddress(_module, nullptr), nullptr);
  EXPECT_EQ(QsGetProcAddress(_module, ""), nullptr);
  EXPECT_THAT(_log.Messages(), IsEmpty());
}

TEST_F(LibraryLoader, TellsWhatAModuleLacks) {
  EXPECT_EQ(QsGetProcAddress(_module, "NoSuchFunction"), nullptr);
  ASSERT_THAT(_log.Texts(), ElementsAre(StartsWith("QsGetProcAddress of NoSuchFunction failed: ")));
  EXPECT_GT(_log.Texts().front().size(), std::string("QsGetProcAddress of NoSuchFunction failed: ").size());
  EXPECT_EQ(_log.Messages().front().flags, kError);
}

TEST_F(LibraryLoader, EachLoadTakesOneRelease) {
  EXPECT_EQ(QsLoadLibrary(TestModule().c_str(), nullptr), _module);
  EXPECT_EQ(QsFreeLibrary(_module), 1);
  EXPECT_EQ(Call(QsGetProcAddress(_module, "Answer")), 42);
}

TEST_F(LibraryLoader, OneReleaseTooManyIsAnError) {
  const HINSTANCE module = _module;
  EXPECT_EQ(QsFreeLibrary(module), 1);
  _module = nullptr;
  EXPECT_THAT(_log.Messages(), IsEmpty());
  EXPECT_EQ(QsFreeLibrary(module), 0);
  ASSERT_THAT(_log.Texts(), ElementsAre(StartsWith("QsFreeLibrary failed: ")));
  EXPECT_GT(_log.Texts().front().size(), std::string("QsFreeLibrary failed: ").size());
  EXPECT_EQ(_log.Messages().front().flags, kError);
}

TEST(QsFreeLibrary, NothingIsReleasedWithSuccess) {
  const LogCapture log;
  EXPECT_EQ(QsFreeLibrary(nullptr), 1);
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(QsFreeLibrary, AHandleThatIsNoneIsAnError) {
  const LogCapture log;
  alignas(16) static char something[16] = "no module";
  EXPECT_EQ(QsFreeLibrary(reinterpret_cast<HINSTANCE>(something)), 0);
  EXPECT_THAT(log.Texts(), ElementsAre(StartsWith("QsFreeLibrary failed: ")));
}

TEST_F(LibraryLoader, ServesManyThreads) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&failures] {
      const std::string path = TestModule();
      for (int round = 0; round < 50; ++round) {
        const HINSTANCE module = QsLoadLibrary(path.c_str(), nullptr);
        failures += Call(QsGetProcAddress(module, "Answer")) == 42 && QsFreeLibrary(module) == 1 ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures, 0);
}

#ifdef _WIN32

constexpr unsigned int kNoDialogs = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;

TEST(QsLoadLibrary, TheSystemShowsNoDialogMeanwhile) {
  SetErrorMode(SEM_NOGPFAULTERRORBOX);
  const HINSTANCE module = QsLoadLibrary(TestModule().c_str(), nullptr);
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(static_cast<unsigned int>(Call(QsGetProcAddress(module, "ModeAtLoad"))), kNoDialogs);
  EXPECT_EQ(GetErrorMode(), static_cast<unsigned int>(SEM_NOGPFAULTERRORBOX));
  EXPECT_EQ(QsFreeLibrary(module), 1);
}

TEST(QsLoadLibrary, ManyThreadsLeaveTheErrorModeAsItWas) {
  const LogCapture log;
  SetErrorMode(SEM_NOGPFAULTERRORBOX);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 50; ++round) {
        QsLoadLibrary("no-such-module.dll", nullptr);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(GetErrorMode(), static_cast<unsigned int>(SEM_NOGPFAULTERRORBOX));
  EXPECT_EQ(log.Messages().size(), 400U);
}

#else

// Of the linker: a name whose address is null.
TEST_F(LibraryLoader, NullIsAnAddressToo) {
  EXPECT_EQ(dlopen("no-such-module", RTLD_LAZY), nullptr);  // leaves its report behind
  EXPECT_EQ(QsGetProcAddress(_module, "Nothing"), nullptr);
  EXPECT_THAT(_log.Messages(), IsEmpty());
}

TEST(QsLoadLibrary, WhatAModuleNeedsMustBeThere) {
  const LogCapture log;
  std::string error;
  EXPECT_EQ(QsLoadLibrary(TestModule(QSBASE_TEST_NEEDY_MODULE).c_str(), &error), nullptr);
  EXPECT_THAT(error, HasSubstr("undefined symbol: NobodyHasThis"));
}

#endif

}  // namespace
