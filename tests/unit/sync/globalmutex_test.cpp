// The machine-wide mutex within one process; integration/globalmutex_test.cpp has the others.
#include <QSbase/sync/globalmutex.h>

#include <common/failingallocation.h>
#include <common/logcapture.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/process.h>
#include <QSbase/sync/globalmutexos.h>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>

#include <common/inheritedhandles.h>
#else
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QSbase/sync/posix/sharedfile.h>
#endif

namespace {

using qsbase::detail::GlobalMutexName;
using qsbase::testing::failingAllocation;
using qsbase::testing::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned int kError = 0x40000000;
constexpr unsigned int kWarning = 0x20000000;
constexpr unsigned int kInfo4 = 0x10000004;

// A name that no other process has, and the one that the texts show.
std::string Unique(const std::string& name) { return name + "-" + std::to_string(QsGetCurrentProcessId()); }
std::string Shown(const std::string& name) { return GlobalMutexName(Unique(name), true); }

static_assert(std::has_virtual_destructor_v<GlobalMutex>);
static_assert(std::is_copy_constructible_v<GlobalMutex>);
static_assert(std::is_copy_assignable_v<GlobalMutex>);

TEST(GlobalMutexName, IsInTheGlobalNamespaceInUpperCaseWithoutBackslashes) {
  EXPECT_EQ(GlobalMutexName("app\\lock", true), "Global\\APP/LOCK");
  EXPECT_EQ(GlobalMutexName("\\\\a/B\\", true), "Global\\//A/B/");
  EXPECT_EQ(GlobalMutexName("", true), "Global\\");
  EXPECT_EQ(GlobalMutexName("\xE4\xFF\x9C 1", true), "Global\\\xC4\x9F\x8C 1");
  EXPECT_EQ(GlobalMutexName(std::string("a\0b", 3), true), std::string("Global\\A\0B", 10));
}

TEST(GlobalMutexName, SaysSoItselfWhereTheSystemHasNoNamespaces) {
  EXPECT_EQ(GlobalMutexName("app\\lock", false), "Global\\Global-APP/LOCK");
}

TEST(GlobalMutexName, TheSystemsOfTodayHaveNamespaces) { EXPECT_TRUE(qsbase::detail::HasGlobalNamespace()); }

TEST(GlobalMutex, IsTakenByTheFirst) {
  GlobalMutex first(Unique("first"));
  GlobalMutex second(Unique("first"));
  EXPECT_TRUE(first.Enter());
  EXPECT_FALSE(second.Enter());
  EXPECT_FALSE(second.Enter());
  EXPECT_TRUE(first.Leave());
  EXPECT_TRUE(second.Enter());
  EXPECT_FALSE(first.Enter());
}

TEST(GlobalMutex, OthersNamesAreOthers) {
  GlobalMutex first(Unique("first"));
  GlobalMutex second(Unique("second"));
  EXPECT_TRUE(first.Enter());
  EXPECT_TRUE(second.Enter());
}

TEST(GlobalMutex, NeitherCaseNorKindOfSlashTellsNamesApart) {
  GlobalMutex first(Unique("app\\lock\xE4"));
  GlobalMutex second(Unique("App/LOCK\xC4"));
  EXPECT_TRUE(first.Enter());
  EXPECT_FALSE(second.Enter());
}

TEST(GlobalMutex, LogsWhatItDoes) {
  LogCapture log;
  {
    GlobalMutex mutex(Unique("a\\b"));
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_TRUE(mutex.Enter());
    EXPECT_TRUE(mutex.Leave());
  }
  EXPECT_THAT(log.Texts(),
              ElementsAre("Entering global mutex " + Shown("a/b"), "Leaving global mutex " + Shown("a/b")));
  EXPECT_EQ(log.Messages()[0].flags, kInfo4);
  EXPECT_EQ(log.Messages()[1].flags, kInfo4);
}

TEST(GlobalMutex, EnteredTwiceItWarnsOnce) {
  GlobalMutex mutex(Unique("twice"));
  EXPECT_TRUE(mutex.Enter());
  LogCapture log;
  EXPECT_TRUE(mutex.Enter());
  ASSERT_THAT(log.Texts(), ElementsAre("Entering global mutex " + Shown("twice"),
                                       "GlobalMutex::Enter " + Shown("twice") + " already owner!"));
  EXPECT_EQ(log.Messages()[1].flags, kWarning);
  EXPECT_TRUE(mutex.Leave());
  EXPECT_TRUE(GlobalMutex(Unique("twice")).Enter());  // one Leave undid both
}

TEST(GlobalMutex, ThatIsRefusedSaysNothingOfIt) {
  GlobalMutex owner(Unique("owner"));
  EXPECT_TRUE(owner.Enter());
  LogCapture log;
  GlobalMutex mutex(Unique("owner"));
  EXPECT_FALSE(mutex.Enter());
  EXPECT_THAT(log.Texts(), ElementsAre("Entering global mutex " + Shown("owner")));
}

TEST(GlobalMutex, LeavingWhatIsNotOwnedDoesNothing) {
  GlobalMutex owner(Unique("owner"));
  GlobalMutex mutex(Unique("owner"));
  EXPECT_TRUE(mutex.Leave());
  EXPECT_TRUE(owner.Enter());
  EXPECT_FALSE(mutex.Enter());
  EXPECT_TRUE(mutex.Leave());
  EXPECT_FALSE(mutex.Enter());
}

TEST(GlobalMutex, TheDestructorLeaves) {
  LogCapture log;
  {
    GlobalMutex mutex(Unique("scope"));
    EXPECT_TRUE(mutex.Enter());
    log.Clear();
  }
  EXPECT_THAT(log.Texts(), ElementsAre("Leaving global mutex " + Shown("scope")));
  log.Clear();
  {
    GlobalMutex mutex(Unique("scope"));
    EXPECT_TRUE(mutex.Enter());
    EXPECT_TRUE(mutex.Leave());
    log.Clear();
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST(GlobalMutex, ACopyIsClosedAndHasTheSameName) {
  GlobalMutex original(Unique("a\\b"));
  EXPECT_TRUE(original.Enter());
  {
    GlobalMutex copy(original);
    LogCapture log;
    EXPECT_FALSE(copy.Enter());
    EXPECT_THAT(log.Texts(), ElementsAre("Entering global mutex " + Shown("a/b")));
  }
  EXPECT_FALSE(GlobalMutex(Unique("a\\b")).Enter());  // the copy's end frees nothing
  EXPECT_TRUE(original.Leave());
  GlobalMutex copy(original);
  EXPECT_TRUE(copy.Enter());
  EXPECT_FALSE(original.Enter());
}

TEST(GlobalMutex, AssignmentLeavesFirst) {
  GlobalMutex mutex(Unique("first"));
  GlobalMutex other(Unique("second"));
  EXPECT_TRUE(mutex.Enter());
  EXPECT_TRUE(other.Enter());
  {
    LogCapture log;
    mutex = other;
    EXPECT_THAT(log.Texts(), ElementsAre("Leaving global mutex " + Shown("first")));
    log.Clear();
    mutex = other;
    EXPECT_THAT(log.Texts(), IsEmpty());
  }
  EXPECT_TRUE(GlobalMutex(Unique("first")).Enter());
  EXPECT_FALSE(mutex.Enter());
  EXPECT_TRUE(other.Leave());
  EXPECT_TRUE(mutex.Enter());
}

TEST(GlobalMutex, AssignedToItselfItStaysAsItIs) {
  GlobalMutex mutex(Unique("self"));
  GlobalMutex& same = mutex;
  EXPECT_TRUE(mutex.Enter());
  LogCapture log;
  mutex = same;
  EXPECT_THAT(log.Texts(), IsEmpty());
  EXPECT_FALSE(GlobalMutex(Unique("self")).Enter());
  EXPECT_TRUE(mutex.Leave());
  EXPECT_TRUE(mutex.Enter());
}

TEST(GlobalMutex, CanBeTakenAgainAndAgain) {
  GlobalMutex mutex(Unique("again"));
  for (int i = 0; i < 1000; ++i) {
    ASSERT_TRUE(mutex.Enter()) << i;
    ASSERT_TRUE(mutex.Leave()) << i;
  }
}

TEST(GlobalMutex, WithoutMemoryThereIsNone) {
  const std::string name = "a";
  const GlobalMutex existing(name);
  const auto textOf = [](auto make) -> std::string {
    failingAllocation = 1;
    try {
      make();
    } catch (const ExMemoryAllocation& error) {
      return error.GetErrorText();
    }
    return "";
  };
  const std::string made = textOf([&] { GlobalMutex mutex(name); });
  const std::string copied = textOf([&] { GlobalMutex mutex(existing); });
  EXPECT_EQ(failingAllocation, 0);
  EXPECT_EQ(
      made,
      "Memory allocation error: GlobalMutex::GlobalMutex (GlobalMutexImpl (file QSbase/sync/globalmutex, line 25");
  EXPECT_EQ(copied, made);
}

TEST(GlobalMutex, WithoutItsImplementationItThrows) {
  GlobalMutex mutex("none");
  // The pointer behind the one to the virtual functions.
  unsigned char* const pointer = reinterpret_cast<unsigned char*>(&mutex) + sizeof(void*);
  unsigned char kept[sizeof(void*)];
  static_assert(sizeof(GlobalMutex) == 2 * sizeof(void*));
  std::memcpy(kept, pointer, sizeof kept);
  std::memset(pointer, 0, sizeof kept);
  const auto textOf = [&mutex](bool (GlobalMutex::*operation)()) -> std::string {
    try {
      (mutex.*operation)();
    } catch (const ExPrecondition& error) {
      return error.GetErrorText();
    }
    return "";
  };
  EXPECT_EQ(textOf(&GlobalMutex::Enter), "GlobalMutex::Enter: _impl is NULL");
  EXPECT_EQ(textOf(&GlobalMutex::Leave), "GlobalMutex::Leave: _impl is NULL");
  std::memcpy(pointer, kept, sizeof kept);
}

void ThrowAlways(unsigned int, const char*) { throw std::runtime_error("refused"); }

TEST(GlobalMutex, ADestructorLeavesEvenWhenTheLogThrows) {
  {
    GlobalMutex mutex(Unique("throwing"));
    EXPECT_TRUE(mutex.Enter());
    SetLogCallback(&ThrowAlways);
  }
  DisableLogCallback(&ThrowAlways);
  EXPECT_TRUE(GlobalMutex(Unique("throwing")).Enter());
}

#ifdef _WIN32

using qsbase::testing::CountInheritedHandles;

TEST(GlobalMutex, CannotBeLeftByAnotherThread) {
  GlobalMutex mutex(Unique("thread"));
  EXPECT_TRUE(mutex.Enter());
  LogCapture log;
  std::thread([&mutex] { EXPECT_FALSE(mutex.Leave()); }).join();
  ASSERT_THAT(log.Texts(), ElementsAre("Leaving global mutex " + Shown("thread"),
                                       "GlobalMutex " + Shown("thread") +
                                           " cannot release mutex: " + QsErrorMessage(ERROR_NOT_OWNER)));
  EXPECT_EQ(log.Messages()[1].flags, kError);
  EXPECT_TRUE(GlobalMutex(Unique("thread")).Enter());  // it is closed all the same
}

TEST(GlobalMutex, AMutexOfTheSystemCountsAsTakenThoughNobodyHoldsIt) {
  GlobalMutex mutex(Unique("foreign"));
  const HANDLE foreign = CreateMutexA(nullptr, FALSE, Shown("foreign").c_str());
  ASSERT_NE(foreign, nullptr);
  EXPECT_FALSE(mutex.Enter());
  CloseHandle(foreign);
  EXPECT_TRUE(mutex.Enter());
}

TEST(GlobalMutex, IsAMutexOfTheSystemForEveryone) {
  GlobalMutex mutex(Unique("system"));
  EXPECT_EQ(OpenMutexA(SYNCHRONIZE, FALSE, Shown("system").c_str()), nullptr);
  const int inherited = CountInheritedHandles();
  EXPECT_TRUE(mutex.Enter());
  EXPECT_EQ(CountInheritedHandles(), inherited + 1);  // child processes have it too
  const HANDLE opened = OpenMutexA(MUTEX_ALL_ACCESS, FALSE, Shown("system").c_str());
  ASSERT_NE(opened, nullptr);
  alignas(SECURITY_DESCRIPTOR) char descriptor[1000];
  DWORD size = 0;
  BOOL isPresent = FALSE;
  BOOL isDefault = TRUE;
  ACL* list = reinterpret_cast<ACL*>(descriptor);
  EXPECT_NE(GetKernelObjectSecurity(opened, DACL_SECURITY_INFORMATION, descriptor, sizeof descriptor, &size), 0);
  EXPECT_NE(GetSecurityDescriptorDacl(descriptor, &isPresent, &list, &isDefault), 0);
  EXPECT_TRUE(isPresent);
  EXPECT_EQ(list, nullptr);
  DWORD waited = WAIT_FAILED;
  std::thread([&] { waited = WaitForSingleObject(opened, 0); }).join();
  EXPECT_EQ(waited, static_cast<DWORD>(WAIT_TIMEOUT));  // this thread owns it
  CloseHandle(opened);
}

// Something else has the name.
TEST(GlobalMutex, WhatTheSystemRefusesIsLogged) {
  GlobalMutex mutex(Unique("event"));
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, Shown("event").c_str());
  ASSERT_NE(event, nullptr);
  const std::string refusal =
      "GlobalMutex " + Shown("event") + " cannot create mutex: " + QsErrorMessage(ERROR_INVALID_HANDLE);
  {
    LogCapture log;
    EXPECT_FALSE(mutex.Enter());
    ASSERT_THAT(log.Texts(), ElementsAre("Entering global mutex " + Shown("event"), refusal));
    EXPECT_EQ(log.Messages()[1].flags, kError);
  }
  CloseHandle(event);
  EXPECT_TRUE(mutex.Enter());
}

TEST(GlobalMutex, WithoutMemoryForTheDescriptorItIsNotEntered) {
  GlobalMutex mutex(Unique("descriptor"));
  LogCapture log;
  failingAllocation = 1;
  EXPECT_FALSE(mutex.Enter());
  EXPECT_EQ(failingAllocation, 0);
  ASSERT_EQ(log.Texts().size(), 2u);
  EXPECT_EQ(log.Texts()[1], "GlobalMutex::Enter " + Shown("descriptor") +
                                " >>> Memory allocation error: SECURITY_DESCRIPTOR (file "
                                "QSbase/sync/win32/globalmutexos, line 82");
  EXPECT_EQ(log.Messages()[1].flags, kError);
  EXPECT_TRUE(mutex.Enter());
}

#else

using qsbase::detail::SharedFilePath;

std::string PathOf(const std::string& name) { return SharedFilePath("mutex", Shown(name)); }

void ThrowOnErrors(unsigned int flags, const char*) {
  if (flags == kError) {
    throw std::runtime_error("refused");
  }
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

TEST(GlobalMutex, CanBeLeftByAnotherThread) {
  GlobalMutex mutex(Unique("thread"));
  EXPECT_TRUE(mutex.Enter());
  std::thread([&mutex] { EXPECT_TRUE(mutex.Leave()); }).join();
  EXPECT_TRUE(GlobalMutex(Unique("thread")).Enter());
}

TEST(GlobalMutex, IsAFileForEveryoneAsLongAsItIsOwned) {
  const mode_t mask = umask(077);
  GlobalMutex mutex(Unique("file"));
  EXPECT_FALSE(Exists(PathOf("file")));
  EXPECT_TRUE(mutex.Enter());
  struct stat status = {};
  EXPECT_EQ(stat(PathOf("file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0666u);
  EXPECT_FALSE(GlobalMutex(Unique("file")).Enter());
  EXPECT_TRUE(Exists(PathOf("file")));
  EXPECT_TRUE(mutex.Leave());
  EXPECT_FALSE(Exists(PathOf("file")));
  umask(mask);
}

TEST(GlobalMutex, AFileThatNobodyHasLockedMeansNothing) {
  close(qsbase::detail::OpenSharedFile(PathOf("left"), qsbase::detail::kMachineFileMode));
  GlobalMutex mutex(Unique("left"));
  EXPECT_TRUE(mutex.Enter());
  EXPECT_TRUE(mutex.Leave());
  EXPECT_FALSE(Exists(PathOf("left")));
}

// As a cleaner of the folder may do it. What came in its place is somebody else's.
TEST(GlobalMutex, AFileThatSomebodyElseMadeIsNotRemoved) {
  GlobalMutex mutex(Unique("replaced"));
  EXPECT_TRUE(mutex.Enter());
  EXPECT_EQ(unlink(PathOf("replaced").c_str()), 0);
  GlobalMutex other(Unique("replaced"));
  EXPECT_TRUE(other.Enter());
  EXPECT_TRUE(mutex.Leave());
  EXPECT_FALSE(mutex.Enter());
}

TEST(GlobalMutex, TakesNamesOfAnyLengthAndBytes) {
  for (const std::string& name : {std::string(1000000, 'x'), std::string("a\0b", 3), std::string(300, '\xFC')}) {
    GlobalMutex mutex(Unique(name));
    GlobalMutex other(Unique(name));
    EXPECT_TRUE(mutex.Enter());
    EXPECT_FALSE(other.Enter());
    EXPECT_TRUE(GlobalMutex(Unique(name + "y")).Enter());
  }
  GlobalMutex mutex(Unique(std::string("a\0b", 3)));
  GlobalMutex other(Unique(std::string("a\0c", 3)));
  EXPECT_TRUE(mutex.Enter());
  EXPECT_TRUE(other.Enter());
}

TEST(GlobalMutex, FollowsNoLink) {
  ASSERT_EQ(symlink("/dev/shm/qsbase-test-target", PathOf("link").c_str()), 0);
  const std::string refusal = "GlobalMutex " + Shown("link") + " cannot create mutex: " + QsErrorMessage(ELOOP);
  LogCapture log;
  EXPECT_FALSE(GlobalMutex(Unique("link")).Enter());
  ASSERT_THAT(log.Texts(), ElementsAre("Entering global mutex " + Shown("link"), refusal));
  EXPECT_EQ(log.Messages()[1].flags, kError);
  EXPECT_FALSE(Exists("/dev/shm/qsbase-test-target"));
  EXPECT_EQ(unlink(PathOf("link").c_str()), 0);
}

TEST(GlobalMutex, AnExceptionWhileEnteringIsLogged) {
  ASSERT_EQ(mkdir(PathOf("folder").c_str(), 0700), 0);
  LogCapture log;
  SetLogCallback(&ThrowOnErrors);
  EXPECT_THROW(GlobalMutex(Unique("folder")).Enter(), std::runtime_error);  // from the log of the exception
  DisableLogCallback(&ThrowOnErrors);
  EXPECT_EQ(rmdir(PathOf("folder").c_str()), 0);
  EXPECT_THAT(log.Texts(),
              ElementsAre("Entering global mutex " + Shown("folder"),
                          "GlobalMutex " + Shown("folder") + " cannot create mutex: " + QsErrorMessage(EISDIR),
                          "GlobalMutex::Enter " + Shown("folder") + " >>> std::exception: refused"));
}

// The destructor lets nothing out, so not the exception of a cancellation either.
TEST(GlobalMutex, ACancelledThreadIsNotStoppedInside) {
  bool isEntered = false;
  bool isLeft = false;
  std::thread thread([&] {
    {
      GlobalMutex mutex(Unique("cancelled"));
      pthread_cancel(pthread_self());
      isEntered = mutex.Enter();
    }
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    isLeft = true;
  });
  thread.join();
  EXPECT_TRUE(isEntered);
  EXPECT_TRUE(isLeft);
  EXPECT_TRUE(GlobalMutex(Unique("cancelled")).Enter());
}

TEST(GlobalMutex, IsNotInheritedByPrograms) {
  GlobalMutex mutex(Unique("program"));
  const int before = dup(0);
  close(before);
  EXPECT_TRUE(mutex.Enter());
  EXPECT_NE(fcntl(before, F_GETFD) & FD_CLOEXEC, 0);  // it got the lowest free descriptor
  EXPECT_TRUE(mutex.Leave());
  EXPECT_EQ(fcntl(before, F_GETFD), -1);
}

#endif

}  // namespace
