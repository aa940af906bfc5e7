#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/process.h>
#include <QSbase/thread/qsthread.h>
#include <QSbase/thread/qsthreadimpl.h>

#include <common/logcapture.h>
#include <common/sanitized.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#else
#include <common/forbiddencall.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

thread_local bool failNextAllocation = false;

}  // namespace

// Both forms, so that they belong together; not inlined, since GCC takes a half-inlined pair for a mismatched one.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = failNextAllocation ? nullptr : std::malloc(size == 0 ? 1 : size);
  failNextAllocation = false;
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using qsbase::testing::LogCapture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

constexpr unsigned int kError = 0x40000000;
constexpr unsigned int kWarning = 0x20000000;
constexpr unsigned int kVerbose = 0x10000004;
constexpr unsigned int kTimeout = 258;
constexpr unsigned int kFailed = 0xFFFFFFFFU;
#ifdef _WIN32
constexpr int kInvalidParameter = ERROR_INVALID_PARAMETER;
#else
constexpr int kInvalidParameter = EINVAL;
#endif

/// Closed until Open(). Who passes may destroy it at once.
class Gate {
 public:
  void Open() {
    const std::shared_ptr<State> state = _state;
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->open = true;
    state->opened.notify_all();
  }

  void Pass() {
    std::unique_lock<std::mutex> lock(_state->mutex);
    _state->opened.wait(lock, [this] { return _state->open; });
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable opened;
    bool open = false;
  };

  const std::shared_ptr<State> _state = std::make_shared<State>();
};

/// What happened, in order, as several threads tell.
class Events {
 public:
  void Add(const std::string& event) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _events.push_back(event);
  }

  std::vector<std::string> Get() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _events;
  }

 private:
  mutable std::mutex _mutex;
  std::vector<std::string> _events;
};

class TestThread : public QsThread {
 public:
  using Step = std::function<void(TestThread&)>;

  explicit TestThread(Step body = {}, const std::string& name = "w", QsThreadManagerIntf* manager = nullptr)
      : QsThread(name, manager), _body(std::move(body)) {}

  void Execute() override {
    if (_body) {
      _body(*this);
    }
  }

  void AtTermination() override {
    if (atTermination) {
      atTermination(*this);
    }
  }

  QsThreadImpl& Impl() { return *_impl; }
  void LoseImpl() { _impl.reset(); }

  void CreateAndWait() {
    Create();
    EXPECT_EQ(WaitFor(-1), 0U);
  }

  Step atTermination;

 private:
  Step _body;
};

class TestManager : public QsThreadManagerIntf {
 public:
  void ThreadAdded(int threadId) override { added(threadId); }
  void ThreadRemoved(int threadId) override { removed(threadId); }

  std::function<void(int)> added = [](int) {};
  std::function<void(int)> removed = [](int) {};
};

/// Sets the log level without the message about it.
class LevelScope {
 public:
  explicit LevelScope(int level) { Set(level); }
  ~LevelScope() { Set(0); }
  LevelScope(const LevelScope&) = delete;
  LevelScope& operator=(const LevelScope&) = delete;

 private:
  static void Set(int level) {
    DisableLogCallbacks();
    QsSetLogLevel(level);
    EnableLogCallbacks();
  }
};

std::vector<unsigned int> Flags(const LogCapture& log) {
  std::vector<unsigned int> flags;
  for (const LogCapture::Message& message : log.Messages()) {
    flags.push_back(message.flags);
  }
  return flags;
}

template <typename Error, typename Call>
std::string ErrorOf(Call call) {
  try {
    call();
  } catch (const Error& error) {
    return error.GetErrorText();
  }
  return "threw nothing";
}

std::string Number(int number) { return std::to_string(number); }

// ---- the class ------------------------------------------------------------------------------------------------------

/// The place of a virtual operation; the destructor has the first two.
template <typename Operation>
std::size_t SlotOf(Operation operation) {
  static_assert(sizeof operation == 2 * sizeof(std::size_t));
  std::size_t words[2];
  std::memcpy(words, &operation, sizeof words);
  return (words[0] - 1) / sizeof(void*);
}

TEST(QsThread, HasItsVirtualOperationsInOrder) {
  EXPECT_EQ(SlotOf(&QsThread::Execute), 2U);
  EXPECT_EQ(SlotOf(&QsThread::AtTermination), 3U);
  EXPECT_EQ(SlotOf(&QsThread::Terminate), 4U);
  EXPECT_EQ(SlotOf(&QsThread::Priority), 5U);
  EXPECT_EQ(SlotOf(&QsThread::InWorkerFunction), 6U);
  EXPECT_EQ(SlotOf(&QsThread::ThreadId), 7U);
  EXPECT_EQ(SlotOf(&QsThread::GetThreadManager), 8U);
  EXPECT_EQ(SlotOf(&QsThread::Create), 9U);
  EXPECT_EQ(SlotOf(&QsThread::Terminated), 10U);
  EXPECT_EQ(SlotOf(&QsThread::WaitFor), 11U);
  EXPECT_EQ(SlotOf(&QsThread::Kill), 12U);
  EXPECT_EQ(SlotOf(&QsThread::GetPriority), 13U);
  EXPECT_EQ(SlotOf(&QsThreadManagerIntf::ThreadAdded), 2U);
  EXPECT_EQ(SlotOf(&QsThreadManagerIntf::ThreadRemoved), 3U);
}

TEST(QsThread, DoesNotRunBeforeCreate) {
  std::atomic<bool> ran{false};
  TestManager manager;
  const LogCapture log;
  TestThread thread([&](TestThread&) { ran = true; }, "a name", &manager);
  EXPECT_EQ(thread.GetName(), "a name");
  EXPECT_EQ(thread.GetThreadManager(), &manager);
  EXPECT_FALSE(thread.InWorkerFunction());
  EXPECT_FALSE(thread.Terminated());
  EXPECT_THAT(log.Texts(), IsEmpty());
  EXPECT_EQ(thread.ThreadId(), 0);
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread(a name) not initialized (QsThread::ThreadId)"));
  EXPECT_THAT(Flags(log), ElementsAre(kError));
  EXPECT_FALSE(ran);
}

TEST(QsThread, RunsItsBodyOnAThreadOfItsOwn) {
  std::atomic<int> id{0};
  TestThread thread([&](TestThread&) { id = QsGetCurrentThreadId(); });
  EXPECT_EQ(thread.GetThreadManager(), nullptr);
  thread.CreateAndWait();
  EXPECT_NE(id, QsGetCurrentThreadId());
  EXPECT_EQ(thread.ThreadId(), id);
}

TEST(QsThread, CreateReturnsInsideTheBody) {
  for (int round = 0; round < 200; ++round) {
    Gate gate;
    TestThread thread([&](TestThread&) { gate.Pass(); });
    thread.Create();
    EXPECT_TRUE(thread.InWorkerFunction());
    EXPECT_NE(thread.ThreadId(), 0);
    gate.Open();
    EXPECT_EQ(thread.WaitFor(-1), 0U);
  }
}

TEST(QsThread, CreateReturnsWhenTheBodyWasShort) {
  for (int round = 0; round < 500; ++round) {
    TestThread thread;
    thread.CreateAndWait();
    EXPECT_NE(thread.ThreadId(), 0);
  }
}

TEST(QsThread, SpeaksOfItsLifeFromLogLevelFour) {
  const LevelScope level(4);
  const LogCapture log;
  int id = 0;
  {
    TestThread thread({}, "50%d");
    thread.CreateAndWait();
    id = thread.ThreadId();
  }
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread '50%d' created", "Creating Thread '50%d'",
                                       "Created Thread '50%d' (" + Number(id) + ")", "Deleting Thread '50%d'",
                                       "Thread '50%d' deleted"));
  EXPECT_THAT(Flags(log), ElementsAre(kVerbose, kVerbose, kVerbose, kVerbose, kVerbose));
}

TEST(QsThread, IsSilentBelowLogLevelFour) {
  const LevelScope level(3);
  const LogCapture log;
  { TestThread().CreateAndWait(); }
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST(QsThread, RunsOnce) {
  std::atomic<int> runs{0};
  const LogCapture log;
  TestThread thread([&](TestThread&) { ++runs; }, "%s");
  thread.CreateAndWait();
  thread.Create();
  EXPECT_EQ(runs, 1);
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::Create (%s) - QsThread already initialized"));
  EXPECT_THAT(Flags(log), ElementsAre(kError));
}

TEST(QsThread, OfManyCreatesAtOnceOneStartsIt) {
  std::atomic<int> runs{0};
  const LogCapture log;
  TestThread thread([&](TestThread&) { ++runs; });
  std::vector<std::thread> creators;
  for (int i = 0; i < 4; ++i) {
    creators.emplace_back([&] { thread.Create(); });
  }
  for (std::thread& creator : creators) {
    creator.join();
  }
  EXPECT_EQ(thread.WaitFor(-1), 0U);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(log.Texts().size(), 3U);
}

TEST(QsThread, WarnsWhenItHasRunButHasNoHandle) {
  const LogCapture log;
  TestThread thread;
  thread.Impl().created = true;
  thread.CreateAndWait();
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::Create (w) - QsThread already created"));
  EXPECT_THAT(Flags(log), ElementsAre(kWarning));
}

#ifndef _WIN32  // nothing makes Windows refuse a thread

/// Makes the system refuse new threads: their stacks have no room.
class NoThreads {
 public:
  NoThreads() {
    pthread_getattr_default_np(&_before);
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, std::size_t{1} << 47U);
    EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
    pthread_attr_destroy(&huge);
  }
  ~NoThreads() {
    EXPECT_EQ(pthread_setattr_default_np(&_before), 0);
    pthread_attr_destroy(&_before);
  }
  NoThreads(const NoThreads&) = delete;
  NoThreads& operator=(const NoThreads&) = delete;

 private:
  pthread_attr_t _before;
};

TEST(QsThread, TellsWhenTheSystemStartsNone) {
  const LogCapture log;
  TestThread thread({}, "n%d");
  {
    const NoThreads refused;
    EXPECT_EQ(ErrorOf<ExBase>([&] { thread.Create(); }), "Error creating thread n%d");
  }
  EXPECT_EQ(thread.WaitFor(-1), 0U);
  EXPECT_EQ(thread.Kill(), kFailed);
  EXPECT_FALSE(thread.InWorkerFunction());
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::InternalCreate(n%d) " + QsErrorMessage(EAGAIN),
                                       "QsThread::WaitFor(n%d) called without prior thread creation",
                                       "QsThread not initialized (QsThread::WaitFor (n%d))"));
  EXPECT_THAT(Flags(log), ElementsAre(kError, kError, kError));
}

TEST(QsThread, MayBeCreatedAgainAfterAFailure) {
  TestThread thread;
  {
    const NoThreads refused;
    EXPECT_THROW(thread.Create(), ExBase);
  }
  const LogCapture log;
  thread.CreateAndWait();
  EXPECT_TRUE(thread.Terminated());
  EXPECT_THAT(log.Texts(), IsEmpty());
}

#endif

TEST(QsThread, TellsWhenMemoryIsShort) {
  const auto construct = [] {
    const std::string name = "w";
    failNextAllocation = true;
    const TestThread thread({}, name);
  };
  EXPECT_EQ(ErrorOf<ExMemoryAllocation>(construct),
            "Memory allocation error: QsThreadImpl (file .\\QSbase/thread/qsthreadimpl_common, line 108");
  EXPECT_FALSE(failNextAllocation);
  std::map<int, std::string> list;
  QsGetThreadList(list);
  EXPECT_THAT(list, IsEmpty());
}

TEST(QsThread, WithoutItsStateThrowsOrDoesNothing) {
  TestThread thread;
  thread.LoseImpl();
  const auto error = [](auto call) { return ErrorOf<ExPrecondition>(call); };
  EXPECT_EQ(error([&] { thread.Create(); }), "QsThread::Create: _impl is NULL!");
  EXPECT_EQ(error([&] { thread.Terminate(); }), "QsThread::Terminate: _impl is NULL!");
  EXPECT_EQ(error([&] { thread.InWorkerFunction(); }), "QsThread::InWorkerFunction: _impl is NULL!");
  EXPECT_EQ(error([&] { thread.ThreadId(); }), "QsThread::ThreadId: _impl is NULL!");
  EXPECT_EQ(error([&] { thread.GetName(); }), "QsThread::GetName: _impl is NULL!");
  EXPECT_EQ(error([&] { thread.Priority(QsThreadPriority::Normal); }), "QsThread::Priority: _impl is NULL!");
  EXPECT_EQ(error([&] { thread.GetPriority(); }), "QsThread::GetPriority: _impl is NULL!");
  EXPECT_TRUE(thread.Terminated());
  EXPECT_EQ(thread.WaitFor(-1), 0U);
  EXPECT_EQ(thread.Kill(), 0U);
}

TEST(QsThread, WithoutItsStateIsDestroyedWithAnError) {
  const LogCapture log;
  TestThread().LoseImpl();
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::~QsThread: _impl is NULL!"));
  EXPECT_THAT(Flags(log), ElementsAre(kError));
}

TEST(QsThread, ItsWorkerFunctionTakesNoNull) {
  const LogCapture log;
  qsbase::detail::WorkerFunction(nullptr);
  EXPECT_THAT(log.Texts(), ElementsAre("WorkerFunction: invalid thread data"));
  EXPECT_THAT(Flags(log), ElementsAre(kError));
}

TEST(QsThread, IsDestroyedWithoutMemory) {
  {
    const TestThread thread({}, "a name that takes memory of its own");
    failNextAllocation = true;
  }
  failNextAllocation = false;
  std::map<int, std::string> list;
  QsGetThreadList(list);
  EXPECT_THAT(list, IsEmpty());
}

void ThrowingCallback(unsigned int, const char*) { throw ExBase("from the callback"); }

/// A host whose log callback throws.
class ThrowingLog {
 public:
  ThrowingLog() { SetLogCallback(&ThrowingCallback); }
  ~ThrowingLog() { DisableLogCallback(&ThrowingCallback); }
  ThrowingLog(const ThrowingLog&) = delete;
  ThrowingLog& operator=(const ThrowingLog&) = delete;
};

TEST(QsThread, WhatTheLogCallbackThrowsLeavesNothingBehind) {
  const LevelScope level(4);
  {
    const ThrowingLog log;
    EXPECT_THROW(TestThread(), ExBase);
  }
  std::map<int, std::string> list;
  QsGetThreadList(list);
  EXPECT_THAT(list, IsEmpty());
  TestThread thread([](TestThread&) { throw 1; });
  {
    const ThrowingLog log;
    EXPECT_THROW(thread.Create(), ExBase);
  }
  thread.CreateAndWait();
}

TEST(QsThread, WhatTheLogCallbackThrowsDoesNotLeaveThreadOrDestructor) {
  const ThrowingLog log;
  TestThread thread([](TestThread&) { throw std::runtime_error("x"); });
  thread.CreateAndWait();
  Gate started;
  Gate gate;
  Gate ended;
  TestManager manager;
  manager.removed = [&](int) { ended.Open(); };
  {
    TestThread running(
        [&](TestThread&) {
          Gate& afterwards = gate;  // the function object will be gone
          started.Open();
          afterwards.Pass();
        },
        "w", &manager);
    running.Create();
    started.Pass();
  }
  gate.Open();
  ended.Pass();
}

// ---- the body -------------------------------------------------------------------------------------------------------

std::string State(const QsThread& thread) {
  return std::string(thread.InWorkerFunction() ? "in" : "out") + (thread.Terminated() ? " set" : " not set");
}

TEST(QsThread, GoesThroughItsStepsInOrder) {
  Events events;
  TestManager manager;
  TestThread thread([&](TestThread& self) { events.Add("body " + State(self)); }, "w", &manager);
  thread.atTermination = [&](TestThread& self) { events.Add("end " + State(self)); };
  std::atomic<int> addedId{0};
  std::atomic<int> removedId{0};
  manager.added = [&](int id) {
    addedId = id;
    events.Add("added " + State(thread));
  };
  manager.removed = [&](int id) {
    removedId = id;
    events.Add("removed " + State(thread));
  };
  thread.CreateAndWait();
  EXPECT_THAT(events.Get(), ElementsAre("added in not set", "body in not set", "end in not set", "removed in set"));
  EXPECT_EQ(State(thread), "out set");
  EXPECT_EQ(addedId, thread.ThreadId());
  EXPECT_EQ(removedId, thread.ThreadId());
}

TEST(QsThread, TerminateSetsTheFlagThatTheBodyPolls) {
  TestThread thread([](TestThread& self) {
    while (!self.Terminated()) {
      std::this_thread::yield();
    }
  });
  thread.Create();
  EXPECT_FALSE(thread.Terminated());
  thread.Terminate();
  EXPECT_TRUE(thread.Terminated());
  EXPECT_EQ(thread.WaitFor(-1), 0U);
}

TEST(QsThread, MayBeTerminatedBeforeItRuns) {
  std::atomic<bool> terminated{false};
  TestThread thread([&](TestThread& self) { terminated = self.Terminated(); });
  thread.Terminate();
  thread.CreateAndWait();
  EXPECT_TRUE(terminated);
}

enum class Thrown { ExBase, Standard, Other };

void Throw(Thrown thrown) {
  switch (thrown) {
    case Thrown::ExBase: {
      ExInvalidRange error("boom");
      error.PrependContext("There %s");
      throw error;
    }
    case Thrown::Standard:
      throw std::runtime_error("boom %d");
    case Thrown::Other:
      throw 1;
  }
}

std::string TextOf(Thrown thrown) {
  switch (thrown) {
    case Thrown::ExBase:
      return "There %s >>> boom";
    case Thrown::Standard:
      return "std::exception: boom %d";
    case Thrown::Other:
      return "unknown exception";
  }
  return "";
}

class QsThreadExceptions : public ::testing::TestWithParam<Thrown> {
 protected:
  /// What is logged for a thread one of whose steps throws. Whichever: the others are run.
  std::vector<std::string> Run(const std::string& throwing) {
    const LogCapture log;
    const auto step = [&](const std::string& name) {
      events.Add(name);
      if (name == throwing) {
        Throw(GetParam());
      }
    };
    TestManager manager;
    manager.added = [&](int) { step("added"); };
    manager.removed = [&](int) { step("removed"); };
    TestThread thread([&](TestThread&) { step("body"); }, "w", &manager);
    thread.atTermination = [&](TestThread&) { step("end"); };
    thread.CreateAndWait();
    EXPECT_EQ(State(thread), "out set");
    EXPECT_THAT(events.Get(), ElementsAre("added", "body", "end", "removed"));
    EXPECT_THAT(Flags(log), ElementsAre(kError));
    return log.Texts();
  }

  std::string Text() const { return TextOf(GetParam()); }

  Events events;
};

TEST_P(QsThreadExceptions, OfTheBodyAreLogged) {
  EXPECT_THAT(Run("body"), ElementsAre("Thread Execution (w)  >>> " + Text()));
}

TEST_P(QsThreadExceptions, OfAtTerminationAreLogged) {
  EXPECT_THAT(Run("end"), ElementsAre("Thread Termination (w)  >>> " + Text()));
}

TEST_P(QsThreadExceptions, OfTheManagersFirstOperationAreLogged) {
  EXPECT_THAT(Run("added"), ElementsAre("Thread added to Manager (w)  >>> " + Text()));
}

TEST_P(QsThreadExceptions, OfTheManagersSecondOperationAreLogged) {
  EXPECT_THAT(Run("removed"), ElementsAre("Thread removed from Manager (w)  >>> " + Text()));
}

INSTANTIATE_TEST_SUITE_P(Types, QsThreadExceptions, ::testing::Values(Thrown::ExBase, Thrown::Standard, Thrown::Other));

#ifndef _WIN32  // which has neither

/// The events of a thread that \p end ends from inside its body. Its state ends as always, but without AtTermination().
std::vector<std::string> EventsOfOneEndedBy(const std::function<void()>& end) {
  Events events;
  const LogCapture log;
  TestManager manager;
  manager.added = [&](int) { events.Add("added"); };
  TestThread thread([&](TestThread&) { end(); }, "w", &manager);
  manager.removed = [&](int) { events.Add("removed " + State(thread)); };
  thread.atTermination = [&](TestThread&) { events.Add("end"); };
  thread.CreateAndWait();
  EXPECT_EQ(State(thread), "out set");
  EXPECT_THAT(log.Texts(), IsEmpty());
  return events.Get();
}

TEST(QsThread, LetsAThreadExitFromInside) {
  EXPECT_THAT(EventsOfOneEndedBy([] { pthread_exit(nullptr); }), ElementsAre("added", "removed in set"));
}

TEST(QsThread, LetsItsManagerExitTheThread) {
  Events events;
  TestManager manager;
  manager.added = [](int) { pthread_exit(nullptr); };
  manager.removed = [&](int) { events.Add("removed"); };
  TestThread entered([&](TestThread&) { events.Add("body"); }, "w", &manager);
  entered.CreateAndWait();
  EXPECT_EQ(State(entered), "out set");
  EXPECT_THAT(events.Get(), ElementsAre("removed"));

  manager.added = [](int) {};
  manager.removed = [](int) { pthread_exit(nullptr); };
  TestThread left({}, "w", &manager);
  left.CreateAndWait();
  EXPECT_EQ(State(left), "out set");
}

TEST(QsThread, LetsTheHostCancelTheThread) {
  EXPECT_THAT(EventsOfOneEndedBy([] {
                pthread_cancel(pthread_self());
                qsbase::testing::StackIsAboutToGo();
                pthread_testcancel();
              }),
              ElementsAre("added", "removed in set"));
}

TEST(QsThread, LetsTheHostCancelTheThreadInItsSleep) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "ThreadSanitizer's sleep loses its bookkeeping when the thread is cancelled in it";
#endif
  EXPECT_THAT(EventsOfOneEndedBy([] {
                pthread_cancel(pthread_self());
                QsSleep(100000);
              }),
              ElementsAre("added", "removed in set"));
}

TEST(QsThread, ACancellationInItsLastStepsIsTooLate) {
  Events events;
  TestManager manager;
  manager.removed = [&](int) {
    pthread_cancel(pthread_self());
    qsbase::testing::StackIsAboutToGo();
    pthread_testcancel();
    events.Add("removed");
  };
  TestThread thread([](TestThread&) { throw ExBase("x"); }, "w", &manager);
  thread.CreateAndWait();
  EXPECT_THAT(events.Get(), ElementsAre("removed"));
}

#endif

// ---- objects that go before their thread ----------------------------------------------------------------------------

TEST(QsThread, DestroyedWhileItRunsSaysSoAndDoesNotWait) {
  const LogCapture log;
  Gate started;
  Gate gate;
  Gate ended;
  TestManager manager;
  manager.removed = [&](int) { ended.Open(); };
  auto thread = std::make_unique<TestThread>(
      [&](TestThread&) {
        Gate& afterwards = gate;  // the function object will be gone
        started.Open();
        afterwards.Pass();
      },
      "%s", &manager);
  thread->Create();
  started.Pass();
  thread.reset();
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::~QsThread(%s): thread is still running (termination flag is not set "
                                       "/ has not been waited for)"));
  EXPECT_THAT(Flags(log), ElementsAre(kError));
  gate.Open();
  ended.Pass();
  ASSERT_EQ(log.Texts().size(), 2U);
  EXPECT_EQ(log.Texts().back(), "Thread Termination (%s)  >>> Thread owner is null - cannot call attermination!");
}

TEST(QsThread, DestroyedBeforeItsBodyCallsNeitherStep) {
  const LogCapture log;
  Gate gate;
  Gate ended;
  TestManager manager;
  manager.added = [&](int) { gate.Pass(); };
  manager.removed = [&](int) { ended.Open(); };
  auto thread = std::make_unique<TestThread>([](TestThread&) { ADD_FAILURE(); }, "w", &manager);
  thread->Create();
  thread->Terminate();
  thread->Impl().waitedFor = true;
  thread.reset();
  gate.Open();
  ended.Pass();
  EXPECT_THAT(
      log.Texts(),
      ElementsAre("QsThread::~QsThread(w): thread is still running (termination flag is set / has been waited for)",
                  "Thread Execution (w)  >>> Thread owner is null - cannot call execute!",
                  "Thread Termination (w)  >>> Thread owner is null - cannot call attermination!"));
}

TEST(QsThread, MayDeleteItselfAtTheEndOfItsBody) {
  for (int round = 0; round < 100; ++round) {
    const LogCapture log;
    Gate ended;
    TestManager manager;
    manager.removed = [&](int) { ended.Open(); };
    (new TestThread([](TestThread& self) { delete &self; }, "w", &manager))->Create();
    ended.Pass();
    EXPECT_THAT(log.Texts(), ElementsAre(StartsWith("QsThread::~QsThread(w): thread is still running"),
                                         HasSubstr("cannot call attermination!")));
  }
}

TEST(QsThread, MayDeleteItselfInAtTermination) {
  for (int round = 0; round < 100; ++round) {
    const LogCapture log;
    Gate ended;
    TestManager manager;
    manager.removed = [&](int) { ended.Open(); };
    auto* const thread = new TestThread({}, "w", &manager);
    thread->atTermination = [](TestThread& self) { delete &self; };
    thread->Create();
    ended.Pass();
    EXPECT_THAT(log.Texts(), ElementsAre(StartsWith("QsThread::~QsThread(w): thread is still running")));
  }
}

// ---- waiting --------------------------------------------------------------------------------------------------------

TEST(QsThread, IsNotWaitedForBeforeCreate) {
  const LogCapture log;
  TestThread thread({}, "%d");
  EXPECT_EQ(thread.WaitFor(-1), 0U);
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::WaitFor(%d) called without prior thread creation"));
  EXPECT_THAT(Flags(log), ElementsAre(kError));
  EXPECT_FALSE(thread.Impl().waitedFor);
}

TEST(QsThread, IsNotWaitedForWithoutHandle) {
  const LogCapture log;
  TestThread thread({}, "%d");
  thread.Impl().created = true;
  EXPECT_EQ(thread.WaitFor(-1), kFailed);
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::WaitFor(%d) - not initialized"));
  EXPECT_THAT(Flags(log), ElementsAre(kError));
}

TEST(QsThread, IsNotWaitedForWhenItsBodyHasEnded) {
  Gate gate;
  TestThread thread([&](TestThread&) { gate.Pass(); });
  thread.Create();
  thread.Impl().inWorker = false;  // as if it had
  EXPECT_EQ(thread.WaitFor(-1), 0U);
  EXPECT_TRUE(thread.Impl().waitedFor);
  EXPECT_EQ(thread.Impl().thread.Wait(0), kTimeout);
  gate.Open();
  EXPECT_EQ(thread.Impl().thread.Wait(-1), 0U);
}

TEST(QsThread, WaitingEndsWithTheTime) {
  Gate gate;
  const LogCapture log;
  TestThread thread([&](TestThread&) { gate.Pass(); });
  thread.Create();
  EXPECT_EQ(thread.WaitFor(0), kTimeout);
  EXPECT_EQ(thread.WaitFor(20), kTimeout);
  EXPECT_FALSE(thread.Impl().waitedFor);
  gate.Open();
  EXPECT_EQ(thread.WaitFor(2147483647), 0U);
  EXPECT_TRUE(thread.Impl().waitedFor);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST(QsThread, SeveralThreadsMayWaitForIt) {
  for (int round = 0; round < 50; ++round) {
    Gate gate;
    TestThread thread([&](TestThread&) { gate.Pass(); });
    thread.Create();
    std::vector<std::thread> waiters;
    for (int timeout : {-1, 2147483647, -1, 60000, -2147483647, 60000}) {
      waiters.emplace_back([&thread, timeout] { EXPECT_EQ(thread.WaitFor(timeout), 0U); });
    }
    gate.Open();
    for (std::thread& waiter : waiters) {
      waiter.join();
    }
    EXPECT_EQ(thread.WaitFor(-1), 0U);
  }
}

TEST(QsThread, MayWaitForAnother) {
  TestThread first([](TestThread&) { QsSleep(5); });
  TestThread second([&](TestThread&) { EXPECT_EQ(first.WaitFor(-1), 0U); });
  first.Create();
  second.Create();
  EXPECT_EQ(second.WaitFor(-1), 0U);
}

TEST(QsThread, WaitingForItselfEndsWithTheTime) {
  std::atomic<unsigned int> result{0};
  TestThread thread([&](TestThread& self) {
    while (!self.Impl().created) {
      std::this_thread::yield();
    }
    result = self.WaitFor(10);
  });
  thread.CreateAndWait();
  EXPECT_EQ(result, kTimeout);
}

#ifndef _WIN32  // where thread-local variables are destroyed inside a lock of the system

/// A thread-local variable whose destructor waits.
struct LateGate {
  ~LateGate() {
    if (gate != nullptr) {
      reached->Open();
      gate->Pass();
    }
  }
  Gate* gate = nullptr;
  Gate* reached = nullptr;
};

thread_local LateGate lateGate;

TEST(QsThread, WhatFollowsTheBodyIsNotWaitedForAfterIt) {
  Gate gate;
  Gate reached;
  TestThread thread([&](TestThread&) {
    lateGate.reached = &reached;
    lateGate.gate = &gate;
  });
  thread.Create();
  reached.Pass();
  EXPECT_EQ(thread.WaitFor(-1), 0U);
  EXPECT_TRUE(thread.Impl().waitedFor);
  EXPECT_EQ(thread.Impl().thread.Wait(0), kTimeout);
  gate.Open();
  EXPECT_EQ(thread.Impl().thread.Wait(-1), 0U);
}

TEST(QsThread, WaitersShareTheJoin) {
  Gate gate;
  Gate reached;
  TestThread thread([&](TestThread&) {
    lateGate.reached = &reached;
    lateGate.gate = &gate;
  });
  thread.Create();
  reached.Pass();
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&] { EXPECT_EQ(thread.Impl().thread.Wait(5), kTimeout); });
    waiters.emplace_back([&] { EXPECT_EQ(thread.Impl().thread.Wait(-1), 0U); });
  }
  for (std::size_t i = 0; i < waiters.size(); i += 2) {
    waiters[i].join();
  }
  gate.Open();
  for (std::size_t i = 1; i < waiters.size(); i += 2) {
    waiters[i].join();
  }
}

std::size_t EntriesIn(const std::string& folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(QsThread, LeavesNoThreadAndNoDescriptorBehind) {
  TestThread().CreateAndWait();
  const std::size_t threads = EntriesIn("/proc/self/task");
  const std::size_t descriptors = EntriesIn("/proc/self/fd");
  for (int round = 0; round < 300; ++round) {
    TestThread thread;
    thread.CreateAndWait();
  }
  EXPECT_EQ(EntriesIn("/proc/self/fd"), descriptors);
  while (EntriesIn("/proc/self/task") > threads) {  // one that was not waited for to the very end
    std::this_thread::yield();
  }
}

#endif

TEST(QsThread, ManyComeAndGoAtOnce) {
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    while (!stop) {
      std::map<int, std::string> list;
      QsGetThreadList(list);
      std::string name = "none";
      QsGetThreadName(1, name);
    }
  });
  std::atomic<int> runs{0};
  std::vector<std::thread> makers;
  for (int maker = 0; maker < 4; ++maker) {
    makers.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        TestThread first([&](TestThread&) { ++runs; });
        TestThread second([&](TestThread&) { ++runs; });
        first.Create();
        second.Create();
        first.WaitFor(-1);
        second.WaitFor(-1);
      }
    });
  }
  for (std::thread& maker : makers) {
    maker.join();
  }
  stop = true;
  reader.join();
  EXPECT_EQ(runs, 400);
}

// ---- the list of threads --------------------------------------------------------------------------------------------

/// A thread that stays in its body while the test looks.
class Resident {
 public:
  explicit Resident(const std::string& name) : thread([this](TestThread&) { _gate.Pass(); }, name) { thread.Create(); }
  ~Resident() {
    _gate.Open();
    EXPECT_EQ(thread.WaitFor(-1), 0U);
  }
  Resident(const Resident&) = delete;
  Resident& operator=(const Resident&) = delete;

 private:
  Gate _gate;

 public:
  TestThread thread;
};

std::string NameOf(int threadId) {
  std::string name = "unchanged";
  QsGetThreadName(threadId, name);
  return name;
}

TEST(ThreadNames, AreFoundById) {
  const LogCapture log;
  Resident first("first %s");
  Resident second("second");
  EXPECT_EQ(NameOf(first.thread.ThreadId()), "first %s");
  EXPECT_EQ(NameOf(second.thread.ThreadId()), "second");
  EXPECT_EQ(NameOf(-1), "unchanged");
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST(ThreadNames, AreForgottenWithTheObject) {
  int id = 0;
  {
    TestThread thread;
    thread.CreateAndWait();
    id = thread.ThreadId();
    EXPECT_EQ(NameOf(id), "w");
  }
  EXPECT_EQ(NameOf(id), "unchanged");
}

TEST(ThreadNames, TheLastOfSeveralMatchesCounts) {
  Resident first("first");
  Resident second("second");
  Resident third("third");
  second.thread.Impl().threadId = first.thread.ThreadId();
  EXPECT_EQ(NameOf(first.thread.ThreadId()), "second");
  std::map<int, std::string> list;
  QsGetThreadList(list);
  EXPECT_THAT(list,
              UnorderedElementsAre(Pair(first.thread.ThreadId(), "second"), Pair(third.thread.ThreadId(), "third")));
}

TEST(ThreadNames, OfThreadsThatWereNotCreatedAreLogged) {
  const TestThread first({}, "%d");
  const TestThread second({}, "second");
  const LogCapture log;
  EXPECT_EQ(NameOf(1 << 30), "unchanged");
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread(%d) not initialized (QsThread::ThreadId)",
                                       "QsThread(second) not initialized (QsThread::ThreadId)"));
  EXPECT_EQ(NameOf(0), "second");
  std::map<int, std::string> list;
  QsGetThreadList(list);
  EXPECT_THAT(list, ElementsAre(Pair(0, "second")));
  EXPECT_EQ(log.Texts().size(), 6U);
}

TEST(ThreadNames, TheListIsAddedTo) {
  Resident thread("resident");
  std::map<int, std::string> list = {{-5, "kept"}, {thread.thread.ThreadId(), "replaced"}};
  QsGetThreadList(list);
  EXPECT_THAT(list, ElementsAre(Pair(-5, "kept"), Pair(thread.thread.ThreadId(), "resident")));
}

void ListThreads(unsigned int, const char*) {
  std::map<int, std::string> list;
  DisableLogCallback(&ListThreads);
  QsGetThreadList(list);
  EXPECT_EQ(list.size(), 1U);
}

TEST(ThreadNames, MayBeAskedForWhereTheListLogs) {
  const TestThread thread;
  SetLogCallback(&ListThreads);
  EXPECT_EQ(NameOf(1 << 30), "unchanged");
}

TEST(ThreadNames, TheListTakesNoNull) {
  const LogCapture log;
  qsbase::detail::AddThread(nullptr, nullptr);
  qsbase::detail::RemoveThread(nullptr);
  EXPECT_THAT(log.Texts(), ElementsAre("AddThread: invalid thread", "RemoveThread: invalid thread"));
  EXPECT_THAT(Flags(log), ElementsAre(kError, kError));
}

#ifndef _WIN32

std::string CommOf(int threadId) {
  std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

TEST(ThreadNames, AreTheSystemsToo) {
  EXPECT_EQ(CommOf(Resident("short").thread.ThreadId()), "short");
  EXPECT_EQ(CommOf(Resident("fifteen letters").thread.ThreadId()), "fifteen letters");
  EXPECT_EQ(CommOf(Resident("fifteen letters and more").thread.ThreadId()), "fifteen letters");
}

TEST(ThreadNames, MayBeAskedForInAForkedChild) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "the allocators of the sanitizers have locks of their own, which a child may inherit held";
#endif
  std::atomic<bool> stop{false};
  Resident resident("resident");
  std::thread reader([&] {
    while (!stop) {
      NameOf(1);
    }
  });
  for (int round = 0; round < 200; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(30);
      _exit(NameOf(resident.thread.ThreadId()) == "resident" ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  stop = true;
  reader.join();
}

#else

TEST(ThreadNames, AreTheSystemsToo) {
  using GetDescription = HRESULT(WINAPI*)(HANDLE, wchar_t**);
  const FARPROC found = GetProcAddress(GetModuleHandleA("kernel32.dll"), "GetThreadDescription");
  ASSERT_NE(found, nullptr);
  std::wstring name;
  TestThread thread(
      [&](TestThread&) {
        wchar_t* text = nullptr;
        reinterpret_cast<GetDescription>(reinterpret_cast<void*>(found))(GetCurrentThread(), &text);
        name = text == nullptr ? L"" : text;
        LocalFree(text);
      },
      "more than fifteen \xE4");
  thread.CreateAndWait();
  EXPECT_EQ(name, L"more than fifteen \x00E4");
}

#endif

// ---- priorities -----------------------------------------------------------------------------------------------------

/// They are told from the plain one, which the tests may not have been started with.
class ThreadPriorities : public ::testing::Test {
#ifndef _WIN32
 protected:
  void SetUp() override {
    if (getpriority(PRIO_PROCESS, 0) != 0 && setpriority(PRIO_PROCESS, 0, 0) != 0) {
      GTEST_SKIP() << "this process was started with a nice value, and may not take it back";
    }
  }
#endif
};

TEST_F(ThreadPriorities, HaveNamesInAnyCase) {
  const std::vector<std::pair<QsThreadPriority, std::string>> names = {
      {QsThreadPriority::Idle, "Idle"},
      {QsThreadPriority::Lowest, "Lowest"},
      {QsThreadPriority::BelowNormal, "BelowNormal"},
      {QsThreadPriority::Normal, "Normal"},
      {QsThreadPriority::AboveNormal, "AboveNormal"},
      {QsThreadPriority::Highest, "Highest"},
      {QsThreadPriority::TimeCritical, "TimeCritical"}};
  for (const auto& [priority, name] : names) {
    EXPECT_EQ(QsThread::QsThreadPriorityFromString(name), priority);
    EXPECT_EQ(QsThread::QsThreadPriorityToString(priority), name);
  }
  EXPECT_EQ(static_cast<int>(QsThread::QsThreadPriorityFromString("highest")), 2);
  EXPECT_EQ(static_cast<int>(QsThread::QsThreadPriorityFromString("TIMECRITICAL")), 15);
  EXPECT_EQ(static_cast<int>(QsThread::QsThreadPriorityFromString("iDLE")), -15);
}

TEST_F(ThreadPriorities, OtherTextsAndValuesThrow) {
  const auto fromString = [](const std::string& text) {
    return ErrorOf<ExBase>([&] { QsThread::QsThreadPriorityFromString(text); });
  };
  const std::string prefix = "QsThread::QsThreadPriorityFromString found invalid priority string: ";
  EXPECT_EQ(fromString(""), prefix);
  EXPECT_EQ(fromString("Normal "), prefix + "Normal ");
  EXPECT_EQ(fromString("Norma"), prefix + "Norma");
  EXPECT_EQ(fromString("0"), prefix + "0");
  const auto toString = [](int value) {
    return ErrorOf<ExBase>([&] { QsThread::QsThreadPriorityToString(static_cast<QsThreadPriority>(value)); });
  };
  EXPECT_EQ(toString(3), "QsThread::QsStringFromThreadPriority found invalid priority: 3");
  EXPECT_EQ(toString(-16), "QsThread::QsStringFromThreadPriority found invalid priority: -16");
}

QsThreadPriority Current() {
  QsThreadPriority priority = QsThreadPriority::TimeCritical;
  EXPECT_TRUE(QsGetThreadPriority(priority));
  return priority;
}

TEST_F(ThreadPriorities, CanBeLowered) {
  const LogCapture log;
  TestThread thread([](TestThread& self) {
    EXPECT_EQ(Current(), QsThreadPriority::Normal);
    for (const QsThreadPriority priority :
         {QsThreadPriority::Normal, QsThreadPriority::BelowNormal, QsThreadPriority::Lowest}) {
      QsSetThreadPriority(priority);
      EXPECT_EQ(Current(), priority);
      EXPECT_EQ(self.GetPriority(), priority);
    }
    self.Priority(QsThreadPriority::Idle);
    EXPECT_EQ(Current(), QsThreadPriority::Idle);
  });
  thread.CreateAndWait();
  EXPECT_EQ(Current(), QsThreadPriority::Normal);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(ThreadPriorities, CanBeSetFromOutside) {
  const LogCapture log;
  Resident resident("w");
  EXPECT_EQ(resident.thread.GetPriority(), QsThreadPriority::Normal);
  resident.thread.Priority(QsThreadPriority::BelowNormal);
  EXPECT_EQ(resident.thread.GetPriority(), QsThreadPriority::BelowNormal);
  EXPECT_EQ(Current(), QsThreadPriority::Normal);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(ThreadPriorities, OfOtherValuesAreRefused) {
  const std::string failed = " failed (" + QsErrorMessage(kInvalidParameter) + ")";
  Resident resident("w");
  const LogCapture log;
  resident.thread.Priority(static_cast<QsThreadPriority>(3));
  QsSetThreadPriority(static_cast<QsThreadPriority>(3));
  EXPECT_THAT(log.Texts(), ElementsAre("QsThread::Priority() for thread " + Number(resident.thread.ThreadId()) + failed,
                                       "QsSetThreadPriority() for thread " + Number(QsGetCurrentThreadId()) + failed));
  EXPECT_THAT(Flags(log), ElementsAre(kError, kError));
}

TEST_F(ThreadPriorities, NeedAThread) {
  const LogCapture log;
  TestThread thread({}, "%s");
  EXPECT_EQ(ErrorOf<ExPrecondition>([&] { thread.GetPriority(); }),
            "QsThread not initialized (QsThread::GetPriority (%s))");
  EXPECT_THAT(log.Texts(), IsEmpty());
  thread.Priority(QsThreadPriority::Normal);
  EXPECT_THAT(log.Texts(), ElementsAre(StartsWith("QsThread::Priority() for thread 0 failed (")));
  EXPECT_THAT(Flags(log), ElementsAre(kError));
}

#ifndef _WIN32

TEST_F(ThreadPriorities, AreNotToldWhenTheSystemDoesNot) {
  std::atomic<bool> isForbidden{false};
  const LogCapture log;
  TestThread thread([&](TestThread& self) {
    isForbidden = qsbase::testing::ForbidSystemCall(SYS_getpriority, EPERM);
    if (!isForbidden) {
      return;
    }
    QsThreadPriority priority = QsThreadPriority::Highest;
    EXPECT_FALSE(QsGetThreadPriority(priority));
    EXPECT_EQ(priority, QsThreadPriority::Highest);
    EXPECT_EQ(static_cast<int>(self.GetPriority()), 0x7FFFFFFF);
  });
  thread.CreateAndWait();
  if (!isForbidden) {
    GTEST_SKIP() << qsbase::testing::kForbidsNoCalls;
  }
  const std::string error =
      "QsGetThreadPriority() for thread " + Number(thread.ThreadId()) + " failed (" + QsErrorMessage(EPERM) + ")";
  EXPECT_THAT(log.Texts(), ElementsAre(error, error));
  EXPECT_THAT(Flags(log), ElementsAre(kError, kError));
}

TEST_F(ThreadPriorities, OfAnEndedThreadAreNot) {
  TestThread thread;
  thread.CreateAndWait();
  const LogCapture log;
  const std::string failed = " for thread " + Number(thread.ThreadId()) + " failed (" + QsErrorMessage(ESRCH) + ")";
  EXPECT_EQ(static_cast<int>(thread.GetPriority()), 0x7FFFFFFF);
  thread.Priority(QsThreadPriority::Lowest);
  EXPECT_THAT(log.Texts(), ElementsAre("QsGetThreadPriority()" + failed, "QsThread::Priority()" + failed));
  EXPECT_THAT(Flags(log), ElementsAre(kError, kError));
}

int Nice(int threadId) { return getpriority(PRIO_PROCESS, static_cast<id_t>(threadId)); }

TEST_F(ThreadPriorities, AreNiceValues) {
  Resident resident("w");
  const int id = resident.thread.ThreadId();
  EXPECT_EQ(Nice(id), 0);
  resident.thread.Priority(QsThreadPriority::BelowNormal);
  EXPECT_EQ(Nice(id), 5);
  resident.thread.Priority(QsThreadPriority::Lowest);
  EXPECT_EQ(Nice(id), 10);
  resident.thread.Priority(QsThreadPriority::Idle);
  EXPECT_EQ(Nice(id), 19);
  EXPECT_EQ(Nice(getpid()), 0);
}

/// What is read back for a nice value, in a thread of its own.
QsThreadPriority PriorityOfNice(int nice) {
  QsThreadPriority priority{};
  TestThread([&](TestThread&) {
    EXPECT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(QsGetCurrentThreadId()), nice), 0);
    priority = Current();
  }).CreateAndWait();
  return priority;
}

TEST_F(ThreadPriorities, AreReadAsTheNearest) {
  for (int nice = 0; nice <= 2; ++nice) {
    EXPECT_EQ(PriorityOfNice(nice), QsThreadPriority::Normal) << nice;
  }
  for (int nice = 3; nice <= 7; ++nice) {
    EXPECT_EQ(PriorityOfNice(nice), QsThreadPriority::BelowNormal) << nice;
  }
  for (int nice = 8; nice <= 14; ++nice) {
    EXPECT_EQ(PriorityOfNice(nice), QsThreadPriority::Lowest) << nice;
  }
  for (int nice = 15; nice <= 19; ++nice) {
    EXPECT_EQ(PriorityOfNice(nice), QsThreadPriority::Idle) << nice;
  }
}

/// Whether this process may raise priorities.
bool MayRaise() {
  bool raised = false;
  std::thread([&] { raised = setpriority(PRIO_PROCESS, static_cast<id_t>(QsGetCurrentThreadId()), -20) == 0; }).join();
  return raised;
}

constexpr const char* kMayNotRaise = "only root may raise priorities";

TEST_F(ThreadPriorities, AboveTheNormalAreReadAsTheNearest) {
  if (!MayRaise()) {
    GTEST_SKIP() << kMayNotRaise;
  }
  EXPECT_EQ(PriorityOfNice(-1), QsThreadPriority::Normal);  // also what the system call gives on failure
  EXPECT_EQ(PriorityOfNice(-2), QsThreadPriority::Normal);
  EXPECT_EQ(PriorityOfNice(-3), QsThreadPriority::AboveNormal);
  EXPECT_EQ(PriorityOfNice(-7), QsThreadPriority::AboveNormal);
  EXPECT_EQ(PriorityOfNice(-8), QsThreadPriority::Highest);
  EXPECT_EQ(PriorityOfNice(-15), QsThreadPriority::Highest);
  EXPECT_EQ(PriorityOfNice(-16), QsThreadPriority::TimeCritical);
  EXPECT_EQ(PriorityOfNice(-20), QsThreadPriority::TimeCritical);
}

TEST_F(ThreadPriorities, CanBeRaisedByRoot) {
  if (!MayRaise()) {
    GTEST_SKIP() << kMayNotRaise;
  }
  Resident resident("w");
  const int id = resident.thread.ThreadId();
  resident.thread.Priority(QsThreadPriority::AboveNormal);
  EXPECT_EQ(Nice(id), -5);
  resident.thread.Priority(QsThreadPriority::Highest);
  EXPECT_EQ(Nice(id), -10);
  resident.thread.Priority(QsThreadPriority::TimeCritical);
  EXPECT_EQ(Nice(id), -20);
}

/// Takes the right to raise priorities from the calling thread alone.
void GiveUpTheRightToRaise() {
  const rlimit none{0, 0};
  EXPECT_EQ(setrlimit(RLIMIT_NICE, &none), 0);
  constexpr unsigned int kNobody = 65534;
  if (geteuid() == 0) {
    EXPECT_EQ(syscall(SYS_setresuid, kNobody, kNobody, kNobody), 0);
  }
}

TEST_F(ThreadPriorities, CannotBeRaisedWithoutTheRight) {
  const LogCapture log;
  TestThread thread([](TestThread& self) {
    GiveUpTheRightToRaise();
    QsSetThreadPriority(QsThreadPriority::Highest);
    self.Priority(QsThreadPriority::AboveNormal);
    EXPECT_EQ(self.GetPriority(), QsThreadPriority::Normal);
  });
  thread.CreateAndWait();
  const std::string failed = " for thread " + Number(thread.ThreadId()) + " failed (" + QsErrorMessage(EACCES) + ")";
  EXPECT_THAT(log.Texts(), ElementsAre("QsSetThreadPriority()" + failed, "QsThread::Priority()" + failed));
  EXPECT_THAT(Flags(log), ElementsAre(kError, kError));
}

#else

TEST_F(ThreadPriorities, CanBeRaised) {
  Resident resident("w");
  for (const QsThreadPriority priority :
       {QsThreadPriority::AboveNormal, QsThreadPriority::Highest, QsThreadPriority::TimeCritical}) {
    resident.thread.Priority(priority);
    EXPECT_EQ(resident.thread.GetPriority(), priority);
  }
}

#endif

}  // namespace
