// Named events between processes: children of the test that open, wait, signal and are killed.
#include <QSbase/process.h>
#include <QSbase/sync/event.h>

#include <common/logcapture.h>
#include <common/platform.h>
#include <common/sanitized.h>
#include <common/waiter.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>

#include <common/inheritedhandles.h>
#else
#include <QSbase/sync/posix/sharedfile.h>
#include <QSbase/sync/posix/sharedrecord.h>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/futex.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fstream>
#endif

namespace {

using qsbase::testing::ChildTask;
using qsbase::testing::ChildTest;
using qsbase::testing::HearParent;
using qsbase::testing::LogCapture;
using qsbase::testing::RemoveEnvironment;
using qsbase::testing::SetEnvironment;
using qsbase::testing::TellParent;
using qsbase::testing::Waiter;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Children = std::vector<std::unique_ptr<ChildTest>>;

constexpr const char* kName = "QSBASE_TEST_EVENT";
constexpr int kNoLimit = -1;
constexpr bool kManual = true;
constexpr bool kAuto = false;
constexpr bool kOwn = true;  // default security
constexpr bool kEveryones = false;

// A name of this test's own, which its children learn by the environment.
class NamedEventTest : public ::testing::Test {
 protected:
  NamedEventTest() {
    if (ChildTask().empty()) {
      SetEnvironment(kName, "qsbase test " + std::to_string(QsGetCurrentProcessId()));
    }
  }
  ~NamedEventTest() override { RemoveEnvironment(kName); }

  static const char* Name() { return std::getenv(kName); }

  // Starts so many children of the running test, and waits until each has opened its event.
  static Children Start(int count, const std::string& task) {
    const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
    Children children;
    for (int i = 0; i < count; ++i) {
      children.push_back(std::make_unique<ChildTest>(std::string("NamedEventTest.") + test.name(), task));
      EXPECT_EQ(children.back()->Hear(), "ready");
    }
    return children;
  }

  static std::unique_ptr<ChildTest> Start(const std::string& task) { return std::move(Start(1, task)[0]); }
};

const char* Word(WaitResult result) { return result == WaitResult::Signaled ? "signalled" : "not signalled"; }

std::string Obey(QsNamedEvent& event, const std::string& order) {
  if (order == "set") {
    event.SetEvent();
  } else if (order == "reset") {
    event.ResetEvent();
  } else if (order == "test") {
    return Word(event.WaitFor(0));
  } else {
    return Word(event.WaitFor(kNoLimit));
  }
  return "done";
}

// Opens the event and does with it what the parent says.
void Serve(bool manualReset, bool initialState, bool security) {
  QsNamedEvent event(manualReset, initialState, std::getenv(kName), security);
  ASSERT_TRUE(event.IsInit());
  TellParent("ready");
  for (std::string order = HearParent(); !order.empty(); order = HearParent()) {
    TellParent(Obey(event, order));
  }
}

std::string Ask(ChildTest& child, const std::string& order) {
  child.Tell(order);
  return child.Hear();
}

// ---- one process ----

TEST_F(NamedEventTest, WithoutANameIsNothing) {
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    const LogCapture log;
    QsNamedEvent event(kManual, true, name, kOwn);
    EXPECT_FALSE(event.IsInit());
    EXPECT_EQ(event.GetName(), "");
    event.SetEvent();
    event.ResetEvent();
    EXPECT_EQ(event.WaitFor(kNoLimit), WaitResult::Failed);
    EXPECT_FALSE(event.IsSet());
    EXPECT_THAT(log.Texts(), ElementsAre("Cannot create QsNamedEvent without a name"));
    EXPECT_EQ(log.Messages().front().flags, 0x40000000U);
  }
}

TEST_F(NamedEventTest, StartsAsAsked) {
  const LogCapture log;
  for (const bool security : {kOwn, kEveryones}) {
    for (const bool manual : {kManual, kAuto}) {
      for (const bool initial : {true, false}) {
        QsNamedEvent event(manual, initial, Name(), security);
        ASSERT_TRUE(event.IsInit());
        EXPECT_EQ(event.GetName(), Name());
        EXPECT_EQ(event.IsSet(), initial);
        EXPECT_EQ(event.IsSet(), initial && manual);
        event.SetEvent();
        EXPECT_EQ(event.WaitFor(kNoLimit), WaitResult::Signaled);
        event.ResetEvent();
        EXPECT_EQ(event.WaitFor(1), WaitResult::Timeout);
      }
    }
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(NamedEventTest, IsOneEventWithinAProcessToo) {
  QsNamedEvent first(kAuto, false, Name(), kOwn);
  QsNamedEvent second(kManual, true, Name(), kOwn);
  ASSERT_TRUE(second.IsInit());
  EXPECT_FALSE(second.IsSet());
  second.SetEvent();
  EXPECT_TRUE(first.IsSet());
  EXPECT_FALSE(second.IsSet());
}

TEST_F(NamedEventTest, NamesAreTakenByTheLetter) {
  const std::string name = Name();
  std::vector<std::unique_ptr<QsNamedEvent>> events;
  for (const std::string& other : {name, name + "x", name + "X", name + " ", name + "/..", name + "%", name + "\xE4"}) {
    events.push_back(std::make_unique<QsNamedEvent>(kAuto, true, other.c_str(), kOwn));
    ASSERT_TRUE(events.back()->IsInit()) << other;
    EXPECT_TRUE(events.back()->IsSet()) << other;
  }
}

TEST_F(NamedEventTest, LocalNamesArePlainOnesAndGlobalNamesNot) {
  const std::string name = Name();
  QsNamedEvent plain(kManual, true, name.c_str(), kOwn);
  QsNamedEvent local(kManual, false, ("Local\\" + name).c_str(), kOwn);
  EXPECT_TRUE(local.IsSet());
  for (const bool security : {kOwn, kEveryones}) {
    QsNamedEvent global(kManual, false, ("Global\\" + name).c_str(), security);
    ASSERT_TRUE(global.IsInit());
    EXPECT_FALSE(global.IsSet());
    EXPECT_EQ(global.GetName(), "Global\\" + name);
  }
}

// ---- several processes ----

TEST_F(NamedEventTest, ASignalReachesTheOtherProcess) {
  if (!ChildTask().empty()) {
    return Serve(kManual, true, ChildTask() == "own");
  }
  for (const bool security : {kOwn, kEveryones}) {
    QsNamedEvent event(kManual, false, Name(), security);
    ASSERT_TRUE(event.IsInit());
    const auto child = Start(security == kOwn ? "own" : "everyone's");
    EXPECT_EQ(Ask(*child, "test"), "not signalled");
    child->Tell("wait");
    event.SetEvent();
    EXPECT_EQ(child->Hear(), "signalled");
    EXPECT_EQ(Ask(*child, "reset"), "done");
    EXPECT_FALSE(event.IsSet());
    EXPECT_EQ(Ask(*child, "set"), "done");
    EXPECT_EQ(event.WaitFor(kNoLimit), WaitResult::Signaled);
    child->Tell("");
    EXPECT_EQ(child->Wait(), 0);
  }
}

TEST_F(NamedEventTest, OpeningOneIgnoresTheFlags) {
  if (!ChildTask().empty()) {
    return Serve(kManual, true, kOwn);
  }
  QsNamedEvent event(kAuto, false, Name(), kOwn);
  const auto child = Start("open");
  EXPECT_EQ(Ask(*child, "test"), "not signalled");
  event.SetEvent();
  EXPECT_EQ(Ask(*child, "test"), "signalled");
  EXPECT_EQ(Ask(*child, "test"), "not signalled");
  EXPECT_FALSE(event.IsSet());
}

TEST_F(NamedEventTest, AManualResetEventReleasesAllProcesses) {
  if (!ChildTask().empty()) {
    return Serve(kManual, false, kOwn);
  }
  QsNamedEvent event(kManual, false, Name(), kOwn);
  const Children children = Start(5, "wait");
  for (const auto& child : children) {
    child->Tell("wait");
  }
  event.SetEvent();
  for (const auto& child : children) {
    EXPECT_EQ(child->Hear(), "signalled");
  }
}

/// The children that have taken a signal, as each tells by another event.
class Takers {
 public:
  explicit Takers(std::string name) : _name(std::move(name)) {}

  // In a child: waits for one signal and says so.
  void Take() const {
    QsNamedEvent event(kAuto, false, _name.c_str(), kOwn);
    QsNamedEvent taken(kAuto, false, (_name + " taken").c_str(), kOwn);
    TellParent("ready");
    ASSERT_EQ(event.WaitFor(kNoLimit), WaitResult::Signaled);
    taken.SetEvent();
    HearParent();
  }

 private:
  std::string _name;
};

TEST_F(NamedEventTest, AnAutoResetEventReleasesExactlyOneOfTenProcesses) {
  const Takers takers(Name());
  if (!ChildTask().empty()) {
    return takers.Take();
  }
  QsNamedEvent event(kAuto, false, Name(), kOwn);
  QsNamedEvent taken(kAuto, false, (std::string(Name()) + " taken").c_str(), kOwn);
  const Children children = Start(10, "take");
  for (int i = 0; i < 10; ++i) {
    event.SetEvent();
    EXPECT_EQ(taken.WaitFor(kNoLimit), WaitResult::Signaled);
    EXPECT_EQ(taken.WaitFor(20), WaitResult::Timeout) << "a signal has released two";
    EXPECT_FALSE(event.IsSet());
  }
}

// Those that are killed wait as the first, so that they would be woken first.
TEST_F(NamedEventTest, AKilledWaiterTakesNoSignalWithIt) {
  const Takers takers(Name());
  if (!ChildTask().empty()) {
    return takers.Take();
  }
  QsNamedEvent event(kAuto, false, Name(), kOwn);
  QsNamedEvent taken(kAuto, false, (std::string(Name()) + " taken").c_str(), kOwn);
  const Children victims = Start(3, "take");
  const Children children = Start(3, "take");
  std::this_thread::sleep_for(milliseconds(20));
  for (const auto& victim : victims) {
    victim->Kill();
  }
  for (int i = 0; i < 3; ++i) {
    event.SetEvent();
    EXPECT_EQ(taken.WaitFor(kNoLimit), WaitResult::Signaled);
  }
  EXPECT_FALSE(event.IsSet());
}

TEST_F(NamedEventTest, LivesOnAsLongAsAnybodyHasIt) {
  if (!ChildTask().empty()) {
    return Serve(kManual, true, kOwn);
  }
  auto event = std::make_unique<QsNamedEvent>(kAuto, false, Name(), kOwn);
  const auto child = Start("keep");
  event->SetEvent();
  event.reset();
  QsNamedEvent again(kManual, false, Name(), kOwn);
  EXPECT_TRUE(again.IsSet());
  EXPECT_FALSE(again.IsSet());
}

TEST_F(NamedEventTest, StartsAfreshWhenNobodyHasItAnyMore) {
  if (!ChildTask().empty()) {
    return Serve(kManual, true, ChildTask() == "own");
  }
  for (const bool security : {kOwn, kEveryones}) {
    for (const bool isKilled : {true, false}) {
      const auto child = Start(security == kOwn ? "own" : "everyone's");
      EXPECT_EQ(Ask(*child, "test"), "signalled");
      if (isKilled) {
        child->Kill();
      } else {
        child->Tell("");
        EXPECT_EQ(child->Wait(), 0);
      }
      QsNamedEvent event(kAuto, false, Name(), security);
      EXPECT_FALSE(event.IsSet());
      event.SetEvent();
      EXPECT_TRUE(event.IsSet());
      EXPECT_FALSE(event.IsSet()) << "the kind of reset is the old one";
    }
  }
}

// The child makes and destroys the event as fast as it can, while the parent does the same.
TEST_F(NamedEventTest, MakersAndLeaversAgreeAllTheTime) {
  const std::string name = Name();
  if (!ChildTask().empty()) {
    TellParent("ready");
    for (int i = 0; i < 500; ++i) {
      QsNamedEvent event(kManual, true, name.c_str(), kEveryones);
      ASSERT_TRUE(event.IsInit());
      ASSERT_TRUE(event.IsSet());
    }
    return;
  }
  const Children children = Start(3, "make");
  for (int i = 0; i < 500; ++i) {
    QsNamedEvent first(kManual, true, name.c_str(), kEveryones);
    QsNamedEvent second(kAuto, false, name.c_str(), kEveryones);
    ASSERT_TRUE(first.IsInit());
    ASSERT_TRUE(second.IsInit());
    ASSERT_TRUE(second.IsSet());
    ASSERT_TRUE(second.IsSet());
  }
  for (const auto& child : children) {
    EXPECT_EQ(child->Wait(), 0);
  }
}

// Wherever a process is killed, nobody lives afterwards, and what it leaves stops nobody.
TEST_F(NamedEventTest, AProcessMayBeKilledAtAnyMoment) {
  if (!ChildTask().empty()) {
    TellParent("ready");
    for (;;) {
      const QsNamedEvent event(kManual, true, std::getenv(kName), kEveryones);
    }
  }
  for (int i = 0; i < 20; ++i) {
    const auto child = Start("make");
    std::this_thread::sleep_for(std::chrono::microseconds(i * 137));
    child->Kill();
    QsNamedEvent event(kAuto, false, Name(), kEveryones);
    ASSERT_TRUE(event.IsInit());
    ASSERT_FALSE(event.IsSet());
    event.SetEvent();
    ASSERT_TRUE(event.IsSet());
    ASSERT_FALSE(event.IsSet());
  }
}

TEST_F(NamedEventTest, ManySignalsBetweenTwoProcesses) {
  const std::string ping = std::string(Name()) + " ping";
  const std::string pong = std::string(Name()) + " pong";
  constexpr int kRounds = 2000;
  QsNamedEvent there(kAuto, false, ping.c_str(), kOwn);
  QsNamedEvent back(kAuto, false, pong.c_str(), kOwn);
  if (!ChildTask().empty()) {
    TellParent("ready");
    for (int i = 0; i < kRounds; ++i) {
      there.WaitFor(kNoLimit);
      back.SetEvent();
    }
    return;
  }
  const auto child = Start("answer");
  for (int i = 0; i < kRounds; ++i) {
    there.SetEvent();
    ASSERT_EQ(back.WaitFor(kNoLimit), WaitResult::Signaled);
  }
  EXPECT_EQ(child->Wait(), 0);
}

TEST_F(NamedEventTest, WhatCannotBeMadeLogsItsName) {
#ifdef _WIN32
  const std::string name = "no such namespace\\event";
#else
  const std::string name = Name();
  const std::string path = qsbase::detail::SharedFilePath("event", name, qsbase::detail::SharedFileScope::User);
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
#endif
  const LogCapture log;
  QsNamedEvent event(kManual, true, name.c_str(), kOwn);
  EXPECT_FALSE(event.IsInit());
  EXPECT_EQ(event.GetName(), name);
  event.SetEvent();
  event.ResetEvent();
  EXPECT_EQ(event.WaitFor(kNoLimit), WaitResult::Failed);
  EXPECT_FALSE(event.IsSet());
  EXPECT_THAT(log.Texts(), ElementsAre("Could not not initialise QsNamedEvent (name=" + name + ")",
                                       "QsNamedEvent::SetEvent: not initialised (name=" + name + ")",
                                       "QsNamedEvent::ResetEvent: not initialised (name=" + name + ")",
                                       "QsNamedEvent::WaitFor: not initialised (name=" + name + ")",
                                       "QsNamedEvent::IsSet: not initialised (name=" + name + ")"));
  for (const LogCapture::Message& message : log.Messages()) {
    EXPECT_EQ(message.flags, 0x40000000U);
  }
#ifndef _WIN32
  EXPECT_EQ(rmdir(path.c_str()), 0);
#endif
}

#ifdef _WIN32

// ---- the system's events ----

using qsbase::testing::CountInheritedHandles;

class SystemEvent {
 public:
  explicit SystemEvent(HANDLE handle) : _handle(handle) {}
  ~SystemEvent() { CloseHandle(_handle); }
  SystemEvent(const SystemEvent&) = delete;
  SystemEvent& operator=(const SystemEvent&) = delete;

  HANDLE Get() const { return _handle; }
  bool IsSet() const { return WaitForSingleObject(_handle, 0) == WAIT_OBJECT_0; }

  // Whether anyone may use it: it has an access list, and that is null.
  bool IsEveryones() const {
    alignas(SECURITY_DESCRIPTOR) char descriptor[1000];
    DWORD size = 0;
    BOOL isPresent = FALSE;
    BOOL isDefault = TRUE;
    ACL* list = reinterpret_cast<ACL*>(descriptor);
    EXPECT_NE(GetKernelObjectSecurity(_handle, DACL_SECURITY_INFORMATION, descriptor, sizeof descriptor, &size), 0);
    EXPECT_NE(GetSecurityDescriptorDacl(descriptor, &isPresent, &list, &isDefault), 0);
    return isPresent != FALSE && list == nullptr;
  }

 private:
  HANDLE _handle;
};

TEST_F(NamedEventTest, IsTheSystemsEventOfItsName) {
  QsNamedEvent event(kManual, false, Name(), kOwn);
  const SystemEvent opened(OpenEventA(EVENT_ALL_ACCESS, FALSE, Name()));
  ASSERT_NE(opened.Get(), nullptr);
  event.SetEvent();
  EXPECT_TRUE(opened.IsSet());
  EXPECT_NE(::ResetEvent(opened.Get()), 0);
  EXPECT_FALSE(event.IsSet());
}

TEST_F(NamedEventTest, OpensTheEventOfAnotherProgram) {
  const SystemEvent made(CreateEventA(nullptr, FALSE, TRUE, Name()));
  QsNamedEvent event(kManual, false, Name(), kEveryones);
  ASSERT_TRUE(event.IsInit());
  EXPECT_TRUE(event.IsSet());
  EXPECT_FALSE(event.IsSet());
  EXPECT_FALSE(made.IsEveryones());
}

TEST_F(NamedEventTest, IsForEveryoneWhenAsked) {
  const int inherited = CountInheritedHandles();
  for (const bool security : {kOwn, kEveryones}) {
    const QsNamedEvent event(kManual, false, Name(), security);
    EXPECT_EQ(CountInheritedHandles() - inherited, security == kEveryones ? 1 : 0);
    const SystemEvent opened(OpenEventA(EVENT_ALL_ACCESS, FALSE, Name()));
    ASSERT_NE(opened.Get(), nullptr);
    EXPECT_EQ(opened.IsEveryones(), security == kEveryones);
  }
}

TEST_F(NamedEventTest, ANameOfSomethingElseMakesNoEvent) {
  const SystemEvent other(CreateSemaphoreA(nullptr, 1, 1, Name()));
  const LogCapture log;
  const QsNamedEvent event(kManual, false, Name(), kOwn);
  EXPECT_FALSE(event.IsInit());
  EXPECT_EQ(log.Messages().size(), 1U);
}

#else

// ---- files ----

using qsbase::detail::EventRecord;
using qsbase::detail::FutexWord;
using qsbase::detail::SharedFilePath;
using qsbase::detail::SharedFileScope;
using qsbase::detail::SharedRecord;

class NamedEventFileTest : public NamedEventTest {
 protected:
  ~NamedEventFileTest() override {
    unlink(OwnPath().c_str());
    unlink(EveryonesPath().c_str());
  }

  static std::string OwnPath() { return SharedFilePath("event", Name(), SharedFileScope::User); }
  static std::string EveryonesPath() { return SharedFilePath("event", Name(), SharedFileScope::Machine); }

  static unsigned ModeOf(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
  }

  static bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

  // What a process leaves that is killed.
  static void Leave(bool manualReset, bool initialState, bool security) {
    const pid_t child = fork();
    if (child == 0) {
      const QsNamedEvent event(manualReset, initialState, Name(), security);
      raise(SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
  }
};

TEST_F(NamedEventFileTest, HasTheRightsAskedForWhateverTheUmask) {
  const mode_t before = umask(077);
  {
    const QsNamedEvent own(kManual, false, Name(), kOwn);
    const QsNamedEvent everyones(kManual, false, Name(), kEveryones);
    umask(0);
    EXPECT_EQ(ModeOf(OwnPath()), 0600U);
    EXPECT_EQ(ModeOf(EveryonesPath()), 0666U);
  }
  umask(before);
  EXPECT_FALSE(Exists(OwnPath()));
  EXPECT_FALSE(Exists(EveryonesPath()));
}

TEST_F(NamedEventFileTest, GlobalNamesKeepTheRightsOfTheirMakerWhileTheyLive) {
  const std::string name = std::string("Global\\") + Name();
  const std::string path = SharedFilePath("event", name, SharedFileScope::Machine);
  for (const bool security : {kOwn, kEveryones}) {
    QsNamedEvent first(kManual, true, name.c_str(), security);
    const unsigned mode = ModeOf(path);
    EXPECT_EQ(mode, security == kOwn ? 0600U : 0666U);
    QsNamedEvent second(kManual, false, name.c_str(), !security);
    EXPECT_TRUE(second.IsSet());
    EXPECT_EQ(ModeOf(path), mode);
  }
  EXPECT_FALSE(Exists(path));
}

TEST_F(NamedEventFileTest, OtherwiseTheUsersEventAndEveryonesAreTwo) {
  QsNamedEvent own(kManual, true, Name(), kOwn);
  QsNamedEvent everyones(kManual, false, Name(), kEveryones);
  EXPECT_TRUE(own.IsSet());
  EXPECT_FALSE(everyones.IsSet());
}

TEST_F(NamedEventFileTest, TheFileOfTheKilledIsUsedAgain) {
  Leave(kManual, true, kEveryones);
  ASSERT_TRUE(Exists(EveryonesPath()));
  {
    QsNamedEvent event(kAuto, false, Name(), kEveryones);
    ASSERT_TRUE(event.IsInit());
    EXPECT_FALSE(event.IsSet());
    event.SetEvent();
    EXPECT_TRUE(event.IsSet());
    EXPECT_FALSE(event.IsSet());
  }
  EXPECT_FALSE(Exists(EveryonesPath()));
}

TEST_F(NamedEventFileTest, AnEmptyFileIsOneWhoseMakerWasKilled) {
  std::ofstream(OwnPath()).close();
  QsNamedEvent event(kAuto, true, Name(), kOwn);
  EXPECT_TRUE(event.IsSet());
  EXPECT_EQ(ModeOf(OwnPath()), 0600U);
}

TEST_F(NamedEventFileTest, ForeignContentIsLeftAlone) {
  for (const std::string& content : {std::string("x"), std::string("QSEVENT"), std::string(100, 'x')}) {
    std::ofstream(OwnPath()) << content;
    const LogCapture log;
    const QsNamedEvent event(kAuto, true, Name(), kOwn);
    EXPECT_FALSE(event.IsInit());
    EXPECT_THAT(log.Texts(), ElementsAre("Could not not initialise QsNamedEvent (name=" + event.GetName() + ")"));
    std::string left;
    std::getline(std::ifstream(OwnPath()), left);
    EXPECT_EQ(left, content);
  }
}

// Somebody lives, but what stands in the file is no record of this name.
TEST_F(NamedEventFileTest, ARecordThatIsDamagedWhileItLivesIsRefused) {
  const auto damage = [](const std::string& path, off_t size, char byte, off_t position) {
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_TRUE(size == -1 || ftruncate(file, size) == 0);
    EXPECT_TRUE(size != -1 || pwrite(file, &byte, 1, position) == 1);
    close(file);
  };
  constexpr off_t kNameAt = sizeof(EventRecord);
  struct Damage {
    off_t size;
    off_t position;
  };
  for (const Damage& step : {Damage{-1, 0}, Damage{-1, kNameAt}, Damage{kNameAt, 0}, Damage{4096, 0}}) {
    const QsNamedEvent living(kAuto, false, Name(), kOwn);
    ASSERT_TRUE(living.IsInit());
    damage(OwnPath(), step.size, '#', step.position);
    EXPECT_FALSE(QsNamedEvent(kAuto, false, Name(), kOwn).IsInit());
    unlink(OwnPath().c_str());
  }
}

TEST_F(NamedEventFileTest, FollowsNoLink) {
  const std::string target = OwnPath() + "-target";
  std::ofstream(target).close();
  ASSERT_EQ(symlink(target.c_str(), OwnPath().c_str()), 0);
  EXPECT_FALSE(QsNamedEvent(kAuto, true, Name(), kOwn).IsInit());
  EXPECT_TRUE(std::ifstream(target).peek() == std::ifstream::traits_type::eof());
  unlink(target.c_str());
}

TEST_F(NamedEventFileTest, LongNamesAndAnyBytes) {
  std::string bytes(Name());
  for (int c = 1; c < 256; ++c) {
    bytes += static_cast<char>(c);
  }
  const std::string huge = Name() + std::string(100000, 'n');
  for (const std::string& name : {bytes, huge, huge + "n"}) {
    QsNamedEvent first(kAuto, true, name.c_str(), kOwn);
    ASSERT_TRUE(first.IsInit());
    EXPECT_EQ(first.GetName(), name);
    QsNamedEvent second(kManual, false, name.c_str(), kOwn);
    EXPECT_TRUE(second.IsSet());
    EXPECT_FALSE(first.IsSet());
  }
}

TEST_F(NamedEventFileTest, WhoStaysInTheGateKeepsOthersOutForATime) {
  const int file = open(OwnPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = qsbase::detail::kGate;
  lock.l_len = 1;
  ASSERT_EQ(fcntl(file, F_OFD_SETLK, &lock), 0);
  SharedRecord early({OwnPath(), 0600, Name()});
  EXPECT_FALSE(early.Join(false, false, milliseconds(10)));
  EXPECT_EQ(errno, EBUSY);
  close(file);
  SharedRecord late({OwnPath(), 0600, Name()});
  EXPECT_TRUE(late.Join(false, false, milliseconds(10)));
}

TEST_F(NamedEventFileTest, AFullFileSystemLeavesNothing) {
  struct rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit tight{8, before.rlim_max};
  const auto ignored = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
  const bool isInit = QsNamedEvent(kAuto, true, Name(), kOwn).IsInit();
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, ignored);
  EXPECT_FALSE(isInit);
  EXPECT_FALSE(Exists(OwnPath()));
}

TEST_F(NamedEventFileTest, NoDescriptorsNoEvent) {
  struct rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const bool isInit = QsNamedEvent(kAuto, true, Name(), kOwn).IsInit();
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_FALSE(isInit);
}

// The child of a fork uses what it inherited; the record is left when both have left it.
TEST_F(NamedEventFileTest, AForkedChildIsAUserToo) {
  auto event = std::make_unique<QsNamedEvent>(kAuto, false, Name(), kOwn);
  QsNamedEvent go(kAuto, false, (std::string(Name()) + " go").c_str(), kOwn);
  const pid_t child = fork();
  if (child == 0) {
    const bool hasGone = go.WaitFor(kNoLimit) == WaitResult::Signaled;
    event->SetEvent();
    event.reset();
    _exit(hasGone ? 0 : 1);
  }
  event.reset();
  EXPECT_TRUE(Exists(OwnPath()));
  QsNamedEvent again(kManual, false, Name(), kOwn);
  EXPECT_FALSE(again.IsSet());
  go.SetEvent();
  EXPECT_EQ(again.WaitFor(kNoLimit), WaitResult::Signaled);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// The kernel kills the child at the first call that it makes for a signal. Were the word changed by then, nobody would
// wake who sleeps, and no later signal either.
TEST_F(NamedEventFileTest, AKilledSetterHasSignalledWhollyOrNotAtAll) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer makes system calls, and its own thread outlives the end of the child's";
#endif
  for (const bool manual : {kManual, kAuto}) {
    QsNamedEvent event(manual, false, Name(), kOwn);
    const pid_t child = fork();
    if (child == 0) {
      if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
        _exit(2);
      }
      event.SetEvent();
      syscall(SYS_exit, 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 2) {
      GTEST_SKIP() << "this kernel or container lets no process forbid its own system calls";
    }
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_FALSE(event.IsSet());
  }
}

// As some sandboxes have it.
bool RefuseToSetAndWakeAtOnce() {
  constexpr unsigned kNumber = offsetof(seccomp_data, nr);
  constexpr unsigned kOperation = offsetof(seccomp_data, args) + sizeof(std::uint64_t);  // its lower half
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kNumber),           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_futex, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kOperation),        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, FUTEX_WAKE_OP, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog filter{sizeof(steps) / sizeof(steps[0]), steps};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(NamedEventFileTest, SignalsWhereTheKernelDoesNotDoSoInOneStep) {
  QsNamedEvent event(kAuto, false, Name(), kOwn);
  WaitResult result = WaitResult::Failed;
  Waiter waiter([&] { result = event.WaitFor(kNoLimit); });
  waiter.UntilAsleep();
  const pid_t child = fork();
  if (child == 0) {
    if (!RefuseToSetAndWakeAtOnce()) {
      _exit(2);
    }
    FutexWord word{0};
    const bool isRefused = syscall(SYS_futex, &word, FUTEX_WAKE_OP, 1, 1, &word, 0) == -1 && errno == ENOSYS;
    event.SetEvent();
    _exit(isRefused && errno == ENOSYS ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 2) {
    event.SetEvent();
    GTEST_SKIP() << "this kernel or container lets no process forbid its own system calls";
  }
  waiter.Join();
  EXPECT_EQ(status, 0);
  EXPECT_EQ(result, WaitResult::Signaled);
  EXPECT_FALSE(event.IsSet());
}

TEST_F(NamedEventFileTest, AForkedChildThatLeavesTakesNothingFromItsParent) {
  QsNamedEvent event(kManual, true, Name(), kOwn);
  const pid_t child = fork();
  if (child == 0) {
    event.~QsNamedEvent();
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  ASSERT_TRUE(Exists(OwnPath()));
  QsNamedEvent again(kAuto, false, Name(), kOwn);
  EXPECT_TRUE(again.IsSet());
}

TEST_F(NamedEventFileTest, AnotherUserHasHisOwnAndSharesWhatIsEveryones) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  QsNamedEvent own(kManual, true, Name(), kOwn);
  QsNamedEvent everyones(kManual, true, Name(), kEveryones);
  const std::string name = std::string("Global\\") + Name();
  QsNamedEvent global(kManual, true, name.c_str(), kOwn);
  const pid_t child = fork();
  if (child == 0) {
    bool isRight = setuid(65534) == 0;
    QsNamedEvent his(kManual, false, Name(), kOwn);
    isRight = isRight && his.IsInit() && !his.IsSet();
    QsNamedEvent shared(kManual, false, Name(), kEveryones);
    isRight = isRight && shared.IsSet();
    shared.ResetEvent();
    isRight = isRight && !QsNamedEvent(kManual, false, name.c_str(), kEveryones).IsInit();
    his.~QsNamedEvent();
    _exit(isRight ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(own.IsSet());
  EXPECT_FALSE(everyones.IsSet());
}

#endif

}  // namespace
