// The machine-wide mutex between processes: children of the test that take, keep, leave and lose a name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/process.h>
#include <QSbase/sync/globalmutex.h>

#ifndef _WIN32
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace {

namespace fs = std::filesystem;
using qsbase::testing::ChildTask;
using qsbase::testing::ChildTest;
using qsbase::testing::HearParent;
using qsbase::testing::RemoveEnvironment;
using qsbase::testing::SetEnvironment;
using qsbase::testing::TellParent;
using qsbase::testing::TempDir;

using Children = std::vector<std::unique_ptr<ChildTest>>;

constexpr const char* kName = "QSBASE_TEST_MUTEX";
constexpr const char* kFolder = "QSBASE_TEST_FOLDER";

// A name of this test's own, which its children learn by the environment.
class GlobalMutexTest : public ::testing::Test {
 protected:
  GlobalMutexTest() {
    if (ChildTask().empty()) {
      SetEnvironment(kName, "test\\" + std::to_string(QsGetCurrentProcessId()));
    }
  }
  ~GlobalMutexTest() override { RemoveEnvironment(kName); }

  static std::string Name() { return std::getenv(kName); }

  // Starts so many children of the running test.
  static Children Start(int count, const std::string& task) {
    const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
    Children children;
    for (int i = 0; i < count; ++i) {
      children.push_back(std::make_unique<ChildTest>(std::string("GlobalMutexTest.") + test.name(), task));
    }
    return children;
  }

  static std::unique_ptr<ChildTest> Start(const std::string& task) { return std::move(Start(1, task)[0]); }
};

const char* Word(bool result) { return result ? "true" : "false"; }

// Does with the name what the parent says, and answers with the result.
void Obey(const std::string& name) {
  GlobalMutex mutex(name);
  for (std::string order = HearParent(); !order.empty(); order = HearParent()) {
    TellParent(Word(order == "enter" ? mutex.Enter() : mutex.Leave()));
  }
}

std::string Ask(ChildTest& child, const std::string& order) {
  child.Tell(order);
  return child.Hear();
}

TEST_F(GlobalMutexTest, OneOfTwoProcessesHasTheName) {
  if (ChildTask() == "obey") {
    return Obey(Name());
  }
  GlobalMutex mutex(Name());
  ASSERT_TRUE(mutex.Enter());
  const auto child = Start("obey");
  EXPECT_EQ(Ask(*child, "enter"), "false");
  EXPECT_EQ(Ask(*child, "leave"), "true");
  EXPECT_EQ(Ask(*child, "enter"), "false");
  EXPECT_TRUE(mutex.Leave());
  EXPECT_EQ(Ask(*child, "enter"), "true");
  EXPECT_FALSE(mutex.Enter());
  EXPECT_EQ(Ask(*child, "leave"), "true");
  EXPECT_TRUE(mutex.Enter());
}

TEST_F(GlobalMutexTest, AKilledOwnerFreesTheName) {
  if (ChildTask() == "obey") {
    return Obey(Name());
  }
  GlobalMutex mutex(Name());
  for (int round = 0; round < 20; ++round) {
    const auto child = Start("obey");
    ASSERT_EQ(Ask(*child, "enter"), "true");
    ASSERT_FALSE(mutex.Enter());
    child->Kill();
    ASSERT_TRUE(mutex.Enter());
    ASSERT_TRUE(mutex.Leave());
  }
}

TEST_F(GlobalMutexTest, AnOwnerThatEndsWithoutLeavingFreesTheName) {
  if (ChildTask() == "exit") {
    GlobalMutex* const lost = new GlobalMutex(Name());
    TellParent(Word(lost->Enter()));
    HearParent();
    std::_Exit(0);
  }
  const auto child = Start("exit");
  ASSERT_EQ(child->Hear(), "true");
  GlobalMutex mutex(Name());
  EXPECT_FALSE(mutex.Enter());
  child->Tell("end");
  EXPECT_EQ(child->Wait(), 0);
  EXPECT_TRUE(mutex.Enter());
}

TEST_F(GlobalMutexTest, OfTenThatRaceOneWins) {
  if (ChildTask() == "obey") {
    return Obey(Name());
  }
  constexpr int kRounds = 100;
  const Children children = Start(10, "obey");
  for (const auto& child : children) {
    ASSERT_EQ(Ask(*child, "leave"), "true");  // it has come so far
  }
  for (int round = 0; round < kRounds; ++round) {
    for (const auto& child : children) {
      child->Tell("enter");
    }
    int winners = 0;
    for (const auto& child : children) {
      winners += child->Hear() == "true" ? 1 : 0;
    }
    ASSERT_EQ(winners, 1) << round;
    for (const auto& child : children) {
      ASSERT_EQ(Ask(*child, "leave"), "true");
    }
  }
}

// Enters and leaves; who has the name finds nobody else's folder.
void EnterAndLeave(const std::string& name, const std::string& folder) {
  constexpr int kWins = 100;
  TellParent("ready");
  HearParent();
  for (int wins = 0; wins < kWins;) {
    GlobalMutex mutex(name);
    if (!mutex.Enter()) {
      continue;
    }
    ++wins;
    ASSERT_TRUE(fs::create_directory(folder)) << "not alone";
    ASSERT_TRUE(fs::remove(folder));
    ASSERT_TRUE(mutex.Leave());
  }
}

TEST_F(GlobalMutexTest, NoTwoHaveTheNameAtATimeWhileOthersLeave) {
  if (ChildTask() == "compete") {
    return EnterAndLeave(Name(), std::getenv(kFolder));
  }
  const TempDir dir;
  SetEnvironment(kFolder, dir / "owned");
  const Children children = Start(4, "compete");
  RemoveEnvironment(kFolder);
  for (const auto& child : children) {
    ASSERT_EQ(child->Hear(), "ready");
  }
  for (const auto& child : children) {
    child->Tell("go");
  }
  for (const auto& child : children) {
    EXPECT_EQ(child->Wait(), 0);
  }
  EXPECT_TRUE(GlobalMutex(Name()).Enter());
}

#ifndef _WIN32  // of processes that fork, and of users

// Whether the action holds in a forked child.
template <class Action>
bool InForkedChild(Action action) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(action() ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status == 0;
}

TEST_F(GlobalMutexTest, AForkedChildDoesNotOwnTheNameOfItsParent) {
  GlobalMutex mutex(Name());
  ASSERT_TRUE(mutex.Enter());
  EXPECT_TRUE(InForkedChild([&] { return !mutex.Enter() && !GlobalMutex(mutex).Enter(); }));
  EXPECT_TRUE(InForkedChild([&] { return mutex.Leave() && !mutex.Enter(); }));
  EXPECT_FALSE(GlobalMutex(Name()).Enter());
  EXPECT_TRUE(mutex.Leave());
  EXPECT_TRUE(mutex.Enter());
}

TEST_F(GlobalMutexTest, TheDestructorInAForkedChildFreesNothing) {
  auto mutex = std::make_unique<GlobalMutex>(Name());
  ASSERT_TRUE(mutex->Enter());
  EXPECT_TRUE(InForkedChild([&] {
    mutex.reset();
    return !GlobalMutex(Name()).Enter();
  }));
  EXPECT_FALSE(GlobalMutex(Name()).Enter());
  mutex.reset();
  EXPECT_TRUE(GlobalMutex(Name()).Enter());
}

// Without the handlers that fork() runs.
TEST_F(GlobalMutexTest, NorDoesAChildThatKnowsNothingOfTheFork) {
  auto mutex = std::make_unique<GlobalMutex>(Name());
  ASSERT_TRUE(mutex->Enter());
  const pid_t child = _Fork();
  if (child == 0) {
    const bool result = mutex->Leave() && !mutex->Enter();
    mutex.reset();
    _exit(result && !GlobalMutex(Name()).Enter() ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(GlobalMutex(Name()).Enter());
  EXPECT_TRUE(mutex->Leave());
  EXPECT_TRUE(mutex->Enter());
}

TEST_F(GlobalMutexTest, AKilledOwnerFreesTheNameThoughItsForkedChildLives) {
  if (ChildTask() == "fork") {
    auto mutex = std::make_unique<GlobalMutex>(Name());
    ASSERT_TRUE(mutex->Enter());
    const pid_t child = fork();
    if (child == 0) {
      TellParent("forked");
      HearParent();
      TellParent(Word(mutex->Enter()));
      HearParent();
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return;
  }
  const auto child = Start("fork");
  ASSERT_EQ(child->Hear(), "forked");
  GlobalMutex mutex(Name());
  EXPECT_FALSE(mutex.Enter());
  child->Kill();  // its own child lives on
  EXPECT_TRUE(mutex.Enter());
  EXPECT_EQ(Ask(*child, "enter"), "false");
  EXPECT_TRUE(mutex.Leave());
}

TEST_F(GlobalMutexTest, AForkedChildTakesTheNameThatItsParentHasLeft) {
  GlobalMutex mutex(Name());
  ASSERT_TRUE(mutex.Enter());
  int end[2];
  ASSERT_EQ(pipe(end), 0);
  const pid_t child = fork();
  if (child == 0) {
    char byte = 0;
    close(end[1]);
    const bool toldToGoOn = read(end[0], &byte, 1) == 0;
    _exit(toldToGoOn && mutex.Enter() && mutex.Leave() ? 0 : 1);
  }
  int status = -1;
  close(end[0]);
  EXPECT_TRUE(mutex.Leave());
  close(end[1]);
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// A process for another user of the machine.
bool BecomeNobody() {
  constexpr uid_t kNobody = 65534;
  return setgid(kNobody) == 0 && setuid(kNobody) == 0;
}

TEST_F(GlobalMutexTest, IsSeenByOtherUsersWhateverTheUmask) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become somebody else";
  }
  const mode_t mask = umask(077);
  GlobalMutex mutex(Name());
  ASSERT_TRUE(mutex.Enter());
  EXPECT_TRUE(InForkedChild([&] { return BecomeNobody() && !mutex.Enter(); }));
  EXPECT_TRUE(mutex.Leave());
  EXPECT_TRUE(InForkedChild([&] { return BecomeNobody() && mutex.Enter() && mutex.Leave(); }));
  EXPECT_TRUE(mutex.Enter());
  umask(mask);
}

// The file of a killed owner belongs to somebody else, who alone may remove it.
TEST_F(GlobalMutexTest, TheFileOfAnotherUserIsNoObstacle) {
  if (ChildTask() == "obey") {
    return Obey(Name());
  }
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become somebody else";
  }
  const auto child = Start("obey");
  ASSERT_EQ(Ask(*child, "enter"), "true");
  child->Kill();
  EXPECT_TRUE(InForkedChild([&] {
    GlobalMutex mutex(Name());
    return BecomeNobody() && mutex.Enter() && mutex.Leave() && mutex.Enter();
  }));
  GlobalMutex mutex(Name());
  EXPECT_TRUE(mutex.Enter());
  EXPECT_TRUE(mutex.Leave());
}

#endif

}  // namespace
