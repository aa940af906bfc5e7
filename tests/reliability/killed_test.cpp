// What is left of processes that are killed at random moments, on every target. The program reliability_kills looks
// closer, on Linux.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/process.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/sync/event.h>
#include <QSbase/sync/globalmutex.h>

namespace {

using qsbase::testing::ChildTask;
using qsbase::testing::ChildTest;
using qsbase::testing::NamesIn;
using qsbase::testing::RemoveEnvironment;
using qsbase::testing::SetEnvironment;
using qsbase::testing::TellParent;
using qsbase::testing::TempDir;

constexpr const char* kPlace = "QSBASE_TEST_PLACE";  // a folder, or a name
constexpr int kKills = 12;
constexpr std::int64_t kTorn = -1;

std::string Content(std::int64_t number) {
  return "content " + std::to_string(number) + "\n" +
         std::string(static_cast<std::size_t>(number % 7) * 50000, static_cast<char>('a' + number % 26));
}

std::int64_t NumberOf(const std::string& content) {
  std::istringstream stream(content);
  std::string word;
  std::int64_t number = kTorn;
  return stream >> word >> number && content == Content(number) ? number : kTorn;
}

std::string Place() { return std::getenv(kPlace); }

class KilledTest : public ::testing::Test {
 protected:
  ~KilledTest() override { RemoveEnvironment(kPlace); }

  // In the child.
  static void WorkForEver(const std::function<void(int)>& work) {
    TellParent("ready");
    for (int number = 1;; ++number) {
      work(number);
    }
  }

  // Starts the running test as a child and kills it in its work.
  void KillOne() {
    const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
    ChildTest child(std::string("KilledTest.") + test.name());
    ASSERT_EQ(child.Hear(), "ready");
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 20000)(_random)));
    ASSERT_TRUE(child.IsRunning());
    child.Kill();
  }

  // The temporary files that are left; takes them away.
  static int TakeStrays(const std::string& folder) {
    int strays = 0;
    for (const std::string& name : NamesIn(folder)) {
      const std::size_t dot = name.rfind('.');
      if (dot != std::string::npos && name.find_first_not_of("0123456789", dot + 1) == std::string::npos) {
        ++strays;
        QsDeleteFile(folder + "/" + name, true);
      }
    }
    return strays;
  }

  std::mt19937 _random{std::random_device()()};
};

TEST_F(KilledTest, AnAtomicSaveLeavesTheOldContentOrTheNew) {
  if (!ChildTask().empty()) {
    return WorkForEver([](int number) { QsAtomicSaveBinaryFile(Place() + "/file", Content(number), true); });
  }
  const TempDir dir;
  SetEnvironment(kPlace, dir.Path());
  const std::string path = dir.Write("file", Content(0));
  for (int i = 0; i < kKills; ++i) {
    KillOne();
    EXPECT_NE(NumberOf(TempDir::Read(path)), kTorn);
    EXPECT_LE(TakeStrays(dir.Path()), 1);
  }
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, Content(3), true));
  EXPECT_EQ(TempDir::Read(path), Content(3));
}

void SaveBackUpAndRestore(int number) {
  const std::string path = Place() + "/file";
  QsAtomicSaveBinaryFile(path, Content(number), true);
  FileLoadAndBackup(path, true);
  QsDeleteFile(path, false);
  FileLoadAndBackup(path, true);
}

TEST_F(KilledTest, FileOrBackupIsWhole) {
  if (!ChildTask().empty()) {
    return WorkForEver(&SaveBackUpAndRestore);
  }
  const TempDir dir;
  SetEnvironment(kPlace, dir.Path());
  const std::string path = dir.Write("file", Content(0));
  dir.Write("file.bak", Content(0));
  for (int i = 0; i < kKills; ++i) {
    KillOne();
    EXPECT_NE(NumberOf(FileLoadAndBackup(path, true)), kTorn);
    EXPECT_NE(NumberOf(TempDir::Read(path)), kTorn);
    EXPECT_NE(NumberOf(TempDir::Read(path + ".bak")), kTorn);
    EXPECT_LE(TakeStrays(dir.Path()), 1);
  }
}

TEST_F(KilledTest, TheMutexIsFreeAtOnce) {
  if (!ChildTask().empty()) {
    return WorkForEver([](int) {
      GlobalMutex mutex(Place());
      mutex.Enter();
      std::this_thread::yield();
      mutex.Leave();
    });
  }
  SetEnvironment(kPlace, "kills\\" + std::to_string(QsGetCurrentProcessId()));
  for (int i = 0; i < kKills; ++i) {
    KillOne();
    GlobalMutex mutex(Place());
    EXPECT_TRUE(mutex.Enter());
    EXPECT_FALSE(GlobalMutex(mutex).Enter());
    EXPECT_TRUE(mutex.Leave());
  }
}

constexpr bool kAuto = false;
constexpr bool kManual = true;
constexpr bool kOwn = true;
constexpr int kLimit = 20000;

TEST_F(KilledTest, ASignalOutlivesAnotherWaiter) {
  if (!ChildTask().empty()) {
    QsNamedEvent event(kAuto, false, Place().c_str(), kOwn);
    return WorkForEver([&](int) { event.WaitFor(-1); });
  }
  SetEnvironment(kPlace, "kills-" + std::to_string(QsGetCurrentProcessId()));
  QsNamedEvent event(kAuto, false, Place().c_str(), kOwn);
  for (int i = 0; i < kKills; ++i) {
    KillOne();
    event.SetEvent();
    EXPECT_EQ(event.WaitFor(kLimit), WaitResult::Signaled);
    EXPECT_FALSE(event.IsSet());
  }
}

TEST_F(KilledTest, AnEventObeysAfterItsSetterIsGone) {
  if (!ChildTask().empty()) {
    QsNamedEvent event(kManual, false, Place().c_str(), kOwn);
    return WorkForEver([&](int number) { number % 2 == 1 ? event.SetEvent() : event.ResetEvent(); });
  }
  SetEnvironment(kPlace, "kills-" + std::to_string(QsGetCurrentProcessId()));
  QsNamedEvent event(kManual, false, Place().c_str(), kOwn);
  for (int i = 0; i < kKills; ++i) {
    KillOne();
    event.ResetEvent();
    EXPECT_FALSE(event.IsSet());
    event.SetEvent();
    EXPECT_EQ(event.WaitFor(kLimit), WaitResult::Signaled);
  }
}

}  // namespace
