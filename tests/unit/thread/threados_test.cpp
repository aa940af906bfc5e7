// QsThread::Kill() takes threads away from under the sanitizers, which then wait for them for good: not tested there.
#include <QSbase/errors.h>
#include <QSbase/killguard.h>
#include <QSbase/log/filelog.h>
#include <QSbase/log/log.h>
#include <QSbase/process.h>
#include <QSbase/sync/event.h>
#include <QSbase/text/datetime.h>
#include <QSbase/thread/messagequeue.h>
#include <QSbase/thread/qsthread.h>
#include <QSbase/thread/qsthreadimpl.h>
#include <QSbase/thread/threadmq.h>

#include <common/logcapture.h>
#include <common/platform.h>
#include <common/sanitized.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#else
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using qsbase::testing::ChildTask;
using qsbase::testing::ChildTest;
using qsbase::testing::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr unsigned int kError = 0x40000000;
constexpr unsigned int kWarning = 0x20000000;
constexpr unsigned int kInfoLevel1 = 0x10000001;
constexpr unsigned int kFailed = 0xFFFFFFFFU;

#ifdef _WIN32
constexpr int kRounds = 30;  // each takes Wine a while
#else
constexpr int kRounds = 1000;
#endif

/// The thread steps over nothing that allocates or locks, so that its end leaves nothing of the C library locked.
class Victim : public QsThread {
 public:
  using Body = std::function<void(Victim&)>;

  explicit Victim(Body body, QsThreadManagerIntf* manager = nullptr)
      : QsThread("%s", manager), _body(std::move(body)) {}

  void Execute() override { _body(*this); }
  void AtTermination() override { ADD_FAILURE(); }

  QsThreadImpl& Impl() { return *_impl; }

  void CreateAndReach() {
    Create();
    while (!reached) {
      std::this_thread::yield();
    }
  }

  std::atomic<bool> reached{false};
  std::atomic<unsigned int> steps{0};

 private:
  Body _body;
};

void Sleep(Victim& self) {
  QsSleep(1);  // the first time takes memory on Windows
  self.reached = true;
  for (;;) {
    QsSleep(100000);
  }
}

void Compute(Victim& self) {
  self.reached = true;
  for (;;) {
    self.steps.fetch_add(1, std::memory_order_relaxed);
  }
}

class KillTest : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef QSBASE_TESTS_SANITIZED
    GTEST_SKIP() << "the sanitizers wait for threads that were killed";
#endif
  }

  /// Kills threads one after the other that go through \p body.
  static void KillMany(const Victim::Body& body) {
    for (int round = 0; round < kRounds; ++round) {
      Victim thread(body);
      thread.CreateAndReach();
      ASSERT_EQ(thread.Kill(), 0U);
      ASSERT_EQ(thread.WaitFor(0), 0U);
    }
  }
};

TEST_F(KillTest, NeedsAThread) {
  const LogCapture log;
  Victim thread(&Sleep);
  EXPECT_EQ(thread.Kill(), kFailed);
  ASSERT_EQ(log.Messages().size(), 1U);
  EXPECT_EQ(log.Messages()[0].text, "QsThread not initialized (QsThread::WaitFor (%s))");
  EXPECT_EQ(log.Messages()[0].flags, kError);
}

TEST_F(KillTest, SaysWhatItDoes) {
  Victim thread(&Sleep);
  thread.CreateAndReach();
  const LogCapture log;
  EXPECT_EQ(thread.Kill(), 0U);
  EXPECT_THAT(log.Texts(), ElementsAre("Killing thread %s", "Thread %s killed"));
  EXPECT_EQ(log.Messages()[0].flags, kWarning);
  EXPECT_EQ(log.Messages()[1].flags, kInfoLevel1);
}

class NoCalls : public QsThreadManagerIntf {
 public:
  void ThreadAdded(int) override { added = true; }
  void ThreadRemoved(int) override { ADD_FAILURE(); }
  std::atomic<bool> added{false};
};

TEST_F(KillTest, LeavesTheStateOfARunningThread) {
  const LogCapture log;
  NoCalls manager;
  {
    Victim thread(&Sleep, &manager);
    thread.CreateAndReach();
    EXPECT_EQ(thread.Kill(), 0U);
    EXPECT_TRUE(thread.InWorkerFunction());
    EXPECT_FALSE(thread.Terminated());
    EXPECT_EQ(thread.WaitFor(-1), 0U);
    EXPECT_EQ(thread.WaitFor(0), 0U);
  }
  EXPECT_TRUE(manager.added);
  ASSERT_EQ(log.Texts().size(), 3U);
  EXPECT_EQ(log.Texts()[2],
            "QsThread::~QsThread(%s): thread is still running (termination flag is not set / has been waited for)");
}

TEST_F(KillTest, TheBodyDoesNotGoOn) {
  Victim thread(&Compute);
  thread.CreateAndReach();
  EXPECT_EQ(thread.Kill(), 0U);
  const unsigned int steps = thread.steps;
  QsSleep(20);
  EXPECT_EQ(thread.steps, steps);
}

TEST_F(KillTest, TheThreadIsNotStartedAgain) {
  Victim thread(&Sleep);
  thread.CreateAndReach();
  EXPECT_EQ(thread.Kill(), 0U);
  const LogCapture log;
  thread.Create();
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::Create (%s) - QsThread already initialized"));
}

TEST_F(KillTest, EndsThreadsThatSleep) { KillMany(&Sleep); }

TEST_F(KillTest, EndsThreadsThatCompute) { KillMany(&Compute); }

TEST_F(KillTest, EndsThreadsThatWaitForAnEvent) {
  QsEvent event(false, false);
  KillMany([&](Victim& self) {
    self.reached = true;
    for (;;) {
      event.WaitFor(-1);
    }
  });
  event.SetEvent();  // nobody takes it any more
  EXPECT_EQ(event.WaitFor(0), WaitResult::Signaled);
}

TEST_F(KillTest, EndsThreadsThatWaitForAnother) {
  Victim other(&Sleep);
  other.CreateAndReach();
  KillMany([&](Victim& self) {
    self.reached = true;
    other.WaitFor(-1);
  });
  EXPECT_EQ(other.Kill(), 0U);
}

/// Reads its queue for good.
class Reader : public QsThreadMQ {
 public:
  Reader() : QsThreadMQ("reader", nullptr) {}
  void Execute() override {
    QsMSG message;
    while (GetMsg(message, 0, 0)) {
    }
  }
};

TEST_F(KillTest, EndsThreadsThatReadTheirQueue) {
  for (int round = 0; round < kRounds; ++round) {
    Reader thread;
    thread.Create();
    ASSERT_TRUE(thread.PostMsg(2000, 1, 2));
    ASSERT_EQ(thread.Kill(), 0U);
    ASSERT_FALSE(thread.PostMsg(2000, 1, 2));
    ASSERT_EQ(thread.WaitFor(0), 0U);
  }
}

TEST_F(KillTest, FreesWhoWaits) {
  for (int round = 0; round < 50; ++round) {
    Victim thread(&Sleep);
    thread.CreateAndReach();
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
      waiters.emplace_back([&] { EXPECT_EQ(thread.WaitFor(-1), 0U); });
    }
    EXPECT_EQ(thread.Kill(), 0U);
    for (std::thread& waiter : waiters) {
      waiter.join();
    }
  }
}

TEST_F(KillTest, MayBeAskedForByManyAtOnce) {
  for (int round = 0; round < 50; ++round) {
    Victim thread(&Compute);
    thread.CreateAndReach();
    std::vector<std::thread> killers;
    for (int i = 0; i < 4; ++i) {
      killers.emplace_back([&] { EXPECT_EQ(thread.Kill(), 0U); });
    }
    for (std::thread& killer : killers) {
      killer.join();
    }
    EXPECT_EQ(thread.WaitFor(0), 0U);
  }
}

TEST_F(KillTest, OfAThreadByItselfEndsIt) {
  const LogCapture log;
  {
    Victim thread([](Victim& self) {
      self.Kill();
      ADD_FAILURE();
    });
    thread.Create();
    while (!thread.Impl().thread.HasEnded()) {
      std::this_thread::yield();
    }
    EXPECT_EQ(thread.WaitFor(-1), 0U);
    EXPECT_TRUE(thread.InWorkerFunction());
    EXPECT_FALSE(thread.Terminated());
  }
  ASSERT_EQ(log.Texts().size(), 2U);
  EXPECT_EQ(log.Texts()[0], "Killing thread %s");
  EXPECT_THAT(log.Texts()[1], StartsWith("QsThread::~QsThread(%s): thread is still running"));
}

/// A thread whose body ends.
class Short : public QsThread {
 public:
  Short() : QsThread("short", nullptr) {}
  void Execute() override {}
};

TEST_F(KillTest, OfAnEndedThreadSucceeds) {
  for (int round = 0; round < kRounds; ++round) {
    Short thread;
    thread.Create();
    const LogCapture log;
    ASSERT_EQ(thread.Kill(), 0U);
    ASSERT_EQ(thread.WaitFor(-1), 0U);
    ASSERT_THAT(log.Texts(), ElementsAre("Killing thread short", "Thread short killed"));
  }
}

TEST_F(KillTest, FreesTheStateOfTheThread) {
  Victim thread(&Sleep);
  thread.CreateAndReach();
  EXPECT_TRUE(thread.Impl().bodyHasShare);
  EXPECT_EQ(thread.Kill(), 0U);
  EXPECT_FALSE(thread.Impl().bodyHasShare);
  EXPECT_EQ(thread.Impl().bodyShare, nullptr);
}

#ifndef _WIN32  // which ends a thread whatever it does

std::size_t EntriesIn(const std::string& folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST_F(KillTest, LeavesNoThreadAndNoDescriptorBehind) {
  Short().Create();
  const std::size_t threads = EntriesIn("/proc/self/task");
  const std::size_t descriptors = EntriesIn("/proc/self/fd");
  KillMany(&Sleep);
  EXPECT_LE(EntriesIn("/proc/self/task"), threads);
  EXPECT_EQ(EntriesIn("/proc/self/fd"), descriptors);
}

/// In and out of the lock of the list, without memory from the C library.
void AskForNames(Victim& self) {
  std::string name;
  self.reached = true;
  for (;;) {
    QsGetThreadName(-1, name);
  }
}

TEST_F(KillTest, SparesTheLocksOfTheLibrary) { KillMany(&AskForNames); }

/// Their zone is locked by the C library while somebody asks for it.
TEST_F(KillTest, SparesWhoAsksForTheTime) {
  KillMany([](Victim& self) {
    self.reached = true;
    for (;;) {
      QsDateTime::Now();
    }
  });
  EXPECT_GT(QsDateTime::Now(), 0.0);
}

/// Stands in for the console: a pipe that takes little, and nobody reads before Drain().
class BlockedConsole {
 public:
  BlockedConsole() : _before(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    EXPECT_EQ(pipe(_ends), 0);
    fcntl(_ends[1], F_SETPIPE_SZ, 1);
    dup2(_ends[1], STDOUT_FILENO);
    close(_ends[1]);
  }

  ~BlockedConsole() {
    std::fflush(stdout);
    dup2(_before, STDOUT_FILENO);
    close(_before);
    if (_reader.joinable()) {
      _reader.join();
    }
    close(_ends[0]);
  }

  BlockedConsole(const BlockedConsole&) = delete;
  BlockedConsole& operator=(const BlockedConsole&) = delete;

  bool IsFull() const {
    int held = 0;
    return ioctl(_ends[0], FIONREAD, &held) == 0 && held == fcntl(_ends[0], F_GETPIPE_SZ);
  }

  void Drain() {
    _reader = std::thread([end = _ends[0]] {
      char bytes[4096];
      while (read(end, bytes, sizeof bytes) > 0) {
      }
    });
  }

 private:
  int _before;
  int _ends[2] = {-1, -1};
  std::thread _reader;
};

TEST_F(KillTest, SparesWhoWritesToTheConsole) {
  const LogCapture log;
  SetEnabledLog(false, true);
  const std::string line(100000, 'x');
  Victim thread([&](Victim&) { DoLogMsg(line); });
  BlockedConsole console;
  thread.Create();
  while (!console.IsFull()) {
    std::this_thread::yield();
  }
  const unsigned int result = thread.Kill();
  console.Drain();
  DoLogMsg(line);  // waits for the stream's lock
  EXPECT_EQ(result, 0U);
}

TEST_F(KillTest, SparesWhoHoldsItBack) {
  for (int round = 0; round < 100; ++round) {
    std::atomic<bool> wentOn{false};
    Victim thread([&](Victim& self) {
      {
        const qsbase::detail::KillGuard guard;
        self.reached = true;
        QsSleep(3);
        wentOn = true;
      }
      Compute(self);
    });
    thread.CreateAndReach();
    ASSERT_EQ(thread.Kill(), 0U);
    ASSERT_TRUE(wentOn);
  }
}

/// What becomes of a child that the thread forks while it is to end.
int StatusOfAChildForkedUnderAKill() {
  std::atomic<int> status{-1};
  Victim thread([&](Victim& self) {
    const qsbase::detail::KillGuard guard;
    self.reached = true;
    while (qsbase::detail::killState.asked == 0) {
      QsSleep(1);
    }
    const pid_t child = fork();
    if (child == 0) {
      qsbase::detail::AllowKill();
      { const qsbase::detail::KillGuard aLock; }
      _exit(qsbase::detail::killState.asked == 0 ? 0 : 1);
    }
    int found = -1;
    while (waitpid(child, &found, 0) == -1 && errno == EINTR) {  // the killer asks again and again
    }
    status = found;
  });
  thread.CreateAndReach();
  EXPECT_EQ(thread.Kill(), 0U);
  return status;
}

TEST_F(KillTest, IsNotForAForkedChildOfTheThread) { EXPECT_EQ(StatusOfAChildForkedUnderAKill(), 0); }

/// Its body may end.
class Survivor : public QsThread {
 public:
  Survivor() : QsThread("%s", nullptr) {}

  void Execute() override {
    {
      const qsbase::detail::KillGuard guard;
      inside = true;
      while (!leave) {
        QsSleep(1);
      }
    }
    survived = true;
  }

  std::atomic<bool> inside{false};
  std::atomic<bool> leave{false};
  std::atomic<bool> survived{false};
};

TEST_F(KillTest, GivesUpAfterTwoSecondsAndSparesTheThread) {
  Survivor thread;
  thread.Create();
  while (!thread.inside) {
    std::this_thread::yield();
  }
  const LogCapture log;
  EXPECT_EQ(thread.Kill(), kFailed);
  ASSERT_EQ(log.Messages().size(), 2U);
  EXPECT_EQ(log.Messages()[1].text, "Thread %s could not be killed: " + QsErrorMessage(ETIMEDOUT));
  EXPECT_EQ(log.Messages()[1].flags, kInfoLevel1);
  thread.leave = true;
  EXPECT_EQ(thread.WaitFor(-1), 0U);
  EXPECT_TRUE(thread.survived);
  EXPECT_FALSE(thread.InWorkerFunction());
}

TEST_F(KillTest, DoesNotReachAThreadThatBlocksEverySignal) {
  std::atomic<bool> unblock{false};
  Victim thread([&](Victim& self) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    self.reached = true;
    while (!unblock) {
      QsSleep(1);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);  // the signal comes, too late
    Compute(self);
  });
  thread.CreateAndReach();
  EXPECT_EQ(thread.Kill(), kFailed);
  unblock = true;
  while (thread.steps == 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(thread.WaitFor(0), 258U);
  EXPECT_EQ(thread.Kill(), 0U);
}

/// The signal that the library has taken: the last real-time one with a handler.
int KillSignal() {
  for (int signal = SIGRTMAX; signal >= SIGRTMIN; --signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if ((action.sa_flags & SA_SIGINFO) != 0) {
      return signal;
    }
  }
  return 0;
}

TEST_F(KillTest, SignalsOfOthersKillNothing) {
  std::atomic<pthread_t> handle{};
  Victim thread([&](Victim& self) {
    handle = pthread_self();
    Compute(self);
  });
  thread.CreateAndReach();
  const int signal = KillSignal();
  ASSERT_NE(signal, 0);
  sigval value{};
  for (int round = 0; round < 20; ++round) {
    value.sival_ptr = &value;
    EXPECT_EQ(pthread_kill(handle, signal), 0);
    EXPECT_EQ(pthread_sigqueue(handle, signal, value), 0);
    EXPECT_EQ(pthread_kill(pthread_self(), signal), 0);
    EXPECT_EQ(sigqueue(getpid(), signal, value), 0);
  }
  const unsigned int steps = thread.steps;
  while (thread.steps == steps) {
    std::this_thread::yield();
  }
  EXPECT_EQ(thread.WaitFor(20), 258U);
  EXPECT_EQ(thread.Kill(), 0U);
}

TEST_F(KillTest, TakesASignalThatIsFree) {
  if (ChildTask().empty()) {
    ChildTest child("KillTest.TakesASignalThatIsFree");
    EXPECT_EQ(child.Wait(), 0);
    return;
  }
  // Two of the host's own.
  signal(SIGRTMAX, SIG_IGN);
  signal(SIGRTMAX - 1, [](int) {});
  Victim thread(&Sleep);
  thread.CreateAndReach();
  EXPECT_EQ(thread.Kill(), 0U);
  EXPECT_EQ(KillSignal(), SIGRTMAX - 2);
}

TEST_F(KillTest, WorksInAThreadWhoseMakerBlocksAllSignals) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  Victim thread(&Sleep);
  thread.CreateAndReach();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(thread.Kill(), 0U);
}

#endif

}  // namespace
