#include <QSbase/sync/event.h>

#include <common/failingallocation.h>
#include <common/logcapture.h>
#include <common/sanitized.h>
#include <common/waiter.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace {

using qsbase::testing::failingAllocation;
using qsbase::testing::kSeesSleep;
using qsbase::testing::LogCapture;
using qsbase::testing::Waiter;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kNoLimit = -1;
constexpr bool kManual = true;
constexpr bool kAuto = false;

template <class Call>
milliseconds::rep TimeOf(Call call) {
  const auto start = steady_clock::now();
  call();
  return std::chrono::floor<milliseconds>(steady_clock::now() - start).count();
}

TEST(WaitResult, HasTheNumbersOfItsInterface) {
  EXPECT_EQ(static_cast<int>(WaitResult::Signaled), 0);
  EXPECT_EQ(static_cast<int>(WaitResult::Timeout), 1);
  EXPECT_EQ(static_cast<int>(WaitResult::Abandoned), 2);
  EXPECT_EQ(static_cast<int>(WaitResult::Failed), 3);
}

TEST(QsEvent, StartsAsAsked) {
  for (const bool manual : {kManual, kAuto}) {
    QsEvent clear(manual, false);
    EXPECT_TRUE(clear.IsInit());
    EXPECT_FALSE(clear.IsSet());
    QsEvent set(manual, true);
    EXPECT_TRUE(set.IsInit());
    EXPECT_TRUE(set.IsSet());
  }
}

TEST(QsEvent, ManualResetStaysSignalledUntilReset) {
  QsEvent event(kManual, false);
  event.SetEvent();
  EXPECT_EQ(event.WaitFor(0), WaitResult::Signaled);
  EXPECT_EQ(event.WaitFor(10), WaitResult::Signaled);
  EXPECT_EQ(event.WaitFor(kNoLimit), WaitResult::Signaled);
  EXPECT_TRUE(event.IsSet());
  EXPECT_TRUE(event.IsSet());
  event.ResetEvent();
  EXPECT_FALSE(event.IsSet());
  event.ResetEvent();
  EXPECT_EQ(event.WaitFor(0), WaitResult::Timeout);
}

TEST(QsEvent, IsSetTakesTheSignalOfAnAutoResetEvent) {
  QsEvent event(kAuto, true);
  EXPECT_TRUE(event.IsSet());
  EXPECT_FALSE(event.IsSet());
}

TEST(QsEvent, TwoSignalsOfAnAutoResetEventReleaseOne) {
  QsEvent event(kAuto, false);
  event.SetEvent();
  event.SetEvent();
  EXPECT_EQ(event.WaitFor(kNoLimit), WaitResult::Signaled);
  EXPECT_EQ(event.WaitFor(0), WaitResult::Timeout);
}

TEST(QsEvent, ResetTakesTheSignalOfAnAutoResetEventBack) {
  QsEvent event(kAuto, false);
  event.SetEvent();
  event.ResetEvent();
  EXPECT_EQ(event.WaitFor(0), WaitResult::Timeout);
}

TEST(QsEvent, TimesOutNotEarlierThanAsked) {
  for (const bool manual : {kManual, kAuto}) {
    QsEvent event(manual, false);
    for (const int timeout : {1, 7, 20}) {
      EXPECT_GE(TimeOf([&] { EXPECT_EQ(event.WaitFor(timeout), WaitResult::Timeout); }), timeout);
    }
  }
}

TEST(QsEvent, ANegativeTimeHasNoLimit) {
  for (const int timeout : {-1, -5, std::numeric_limits<int>::min()}) {
    QsEvent event(kAuto, false);
    WaitResult result = WaitResult::Failed;
    Waiter waiter([&] { result = event.WaitFor(timeout); });
    waiter.UntilAsleep();
    std::this_thread::sleep_for(milliseconds(10));
    EXPECT_FALSE(waiter.HasEnded());
    event.SetEvent();
    waiter.Join();
    EXPECT_EQ(result, WaitResult::Signaled);
  }
}

TEST(QsEvent, TheLongestTimeIsNotOver) {
  QsEvent event(kAuto, false);
  WaitResult result = WaitResult::Failed;
  Waiter waiter([&] { result = event.WaitFor(std::numeric_limits<int>::max()); });
  waiter.UntilAsleep();
  std::this_thread::sleep_for(milliseconds(10));
  EXPECT_FALSE(waiter.HasEnded());
  event.SetEvent();
  waiter.Join();
  EXPECT_EQ(result, WaitResult::Signaled);
}

/// Ten threads that wait for one event.
class Crowd {
 public:
  explicit Crowd(QsEvent& event) {
    for (std::unique_ptr<Waiter>& waiter : _waiters) {
      waiter = std::make_unique<Waiter>([this, &event] {
        if (event.WaitFor(kNoLimit) == WaitResult::Signaled) {
          ++_released;
        }
      });
      waiter->UntilAsleep();
    }
  }

  int Released() const { return _released; }
  int All() const { return static_cast<int>(_waiters.size()); }

  void UntilReleased(int count) const {
    while (_released < count) {
      std::this_thread::yield();
    }
  }

  void Join() {
    for (const std::unique_ptr<Waiter>& waiter : _waiters) {
      waiter->Join();
    }
  }

 private:
  std::atomic<int> _released{0};
  std::array<std::unique_ptr<Waiter>, 10> _waiters;
};

TEST(QsEvent, ManualResetReleasesAll) {
  QsEvent event(kManual, false);
  Crowd crowd(event);
  event.SetEvent();
  crowd.Join();
  EXPECT_EQ(crowd.Released(), crowd.All());
}

TEST(QsEvent, AutoResetReleasesOneAtATime) {
  QsEvent event(kAuto, false);
  Crowd crowd(event);
  for (int i = 1; i <= crowd.All(); ++i) {
    event.SetEvent();
    crowd.UntilReleased(i);
    std::this_thread::sleep_for(milliseconds(2));
    EXPECT_EQ(crowd.Released(), i);
  }
  EXPECT_FALSE(event.IsSet());
}

// Where nobody sees whether a thread sleeps already, the signal is given again until all are out.
TEST(QsEvent, AManualResetEventThatIsResetAtOnceReleasesAllThatWait) {
  QsEvent event(kManual, false);
  Crowd crowd(event);
  do {
    event.SetEvent();
    event.ResetEvent();
    std::this_thread::sleep_for(milliseconds(kSeesSleep ? 0 : 5));
  } while (!kSeesSleep && crowd.Released() < crowd.All());
  EXPECT_FALSE(event.IsSet());
  crowd.Join();
  EXPECT_EQ(crowd.Released(), crowd.All());
}

TEST(QsEvent, NoSignalIsLostBetweenTwoThreads) {
  QsEvent ping(kAuto, false);
  QsEvent pong(kAuto, false);
  int ball = 0;  // plain: the events order its uses
  std::thread partner([&] {
    for (int i = 0; i < 20000; ++i) {
      ping.WaitFor(kNoLimit);
      ++ball;
      pong.SetEvent();
    }
  });
  for (int i = 0; i < 20000; ++i) {
    ping.SetEvent();
    ASSERT_EQ(pong.WaitFor(kNoLimit), WaitResult::Signaled);
    ASSERT_EQ(ball, i + 1);
  }
  partner.join();
}

TEST(QsEvent, WaitersThatGiveUpTakeNoSignalWithThem) {
  QsEvent event(kAuto, false);
  std::atomic<int> taken{0};
  std::atomic<bool> over{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, timeout = i % 2] {
      while (!over) {
        taken += event.WaitFor(timeout) == WaitResult::Signaled ? 1 : 0;
      }
    });
  }
  for (int i = 1; i <= 2000; ++i) {
    event.SetEvent();
    while (taken < i) {
      std::this_thread::yield();
    }
  }
  over = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(taken, 2000);
}

// What was written before a signal is seen by who takes it, also when the event was signalled already.
TEST(QsEvent, ASecondSignalHandsOverToo) {
  for (int i = 0; i < 200; ++i) {
    QsEvent event(kAuto, false);
    std::array<int, 2> data{};
    std::atomic<int> done{0};
    std::array<std::thread, 2> threads;
    for (std::size_t n = 0; n < threads.size(); ++n) {
      threads[n] = std::thread([&, n] {
        data[n] = 1;
        event.SetEvent();
        done.fetch_add(1, std::memory_order_relaxed);
      });
    }
    while (done.load(std::memory_order_relaxed) < 2) {
      std::this_thread::yield();
    }
    ASSERT_EQ(event.WaitFor(kNoLimit), WaitResult::Signaled);
    ASSERT_EQ(data[0] + data[1], 2);
    ASSERT_FALSE(event.IsSet());
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
}

TEST(QsEvent, MayBeDestroyedByWhomItReleased) {
  for (int i = 0; i < 500; ++i) {
    auto event = std::make_unique<QsEvent>(i % 2 == 0, false);
    QsEvent& shared = *event;
    std::thread waiter([&] {
      event->WaitFor(kNoLimit);
      event.reset();
    });
    shared.SetEvent();
    waiter.join();
  }
}

struct Missing {
  const char* what;
  int allocation;
};

// The state, and the system's part of it.
constexpr std::array kMissing{Missing{"state", 1}, Missing{"system object", 2}};

TEST(QsEvent, WithoutASystemObjectEveryCallFailsAndLogs) {
  for (const Missing& missing : kMissing) {
    SCOPED_TRACE(missing.what);
    failingAllocation = missing.allocation;
    QsEvent event(kManual, true);
    ASSERT_EQ(failingAllocation, 0);
    const LogCapture log;
    EXPECT_FALSE(event.IsInit());
    event.SetEvent();
    event.ResetEvent();
    EXPECT_EQ(event.WaitFor(kNoLimit), WaitResult::Failed);
    EXPECT_FALSE(event.IsSet());
    EXPECT_THAT(log.Texts(), ElementsAre("QsEvent::SetEvent: impl is zero", "QsEvent::ResetEvent: impl is zero",
                                         "QsEvent::WaitFor: impl is zero", "QsEvent::WaitFor: impl is zero"));
    for (const LogCapture::Message& message : log.Messages()) {
      EXPECT_EQ(message.flags, 0x40000000U);
    }
  }
}

#ifndef _WIN32

// Both sleep; the kernel wakes the first that came.
TEST(QsEvent, AKilledWaiterPassesOnItsSignal) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "the sanitizers wait for good for a thread that was killed";
#endif
  for (int i = 0; i < 100; ++i) {
    QsEvent event(kAuto, false);
    std::atomic<int> released{0};
    const auto wait = [&] { released += event.WaitFor(kNoLimit) == WaitResult::Signaled ? 1 : 0; };
    Waiter first(wait);
    first.UntilAsleep();
    Waiter second(wait);
    second.UntilAsleep();
    first.AskToEnd();
    event.SetEvent();
    first.Join();
    second.Join();
    EXPECT_FALSE(first.HasEnded());
    EXPECT_TRUE(second.HasEnded());
    ASSERT_EQ(released, 1);
    ASSERT_FALSE(event.IsSet());
  }
}

TEST(QsEvent, AKilledWaiterLeavesTheEventUsable) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "the sanitizers wait for good for a thread that was killed";
#endif
  for (const bool manual : {kManual, kAuto}) {
    QsEvent event(manual, false);
    Waiter waiter([&] { event.WaitFor(kNoLimit); });
    waiter.UntilAsleep();
    waiter.AskToEnd();
    waiter.Interrupt();
    waiter.Join();
    EXPECT_FALSE(waiter.HasEnded());
    event.SetEvent();
    EXPECT_TRUE(event.IsSet());
  }
}

TEST(QsEvent, GoesOnAfterASignalToTheProcess) {
  QsEvent event(kManual, false);
  WaitResult result = WaitResult::Failed;
  Waiter waiter([&] { result = event.WaitFor(kNoLimit); });
  for (int i = 0; i < 20; ++i) {
    waiter.UntilAsleep();
    waiter.Interrupt();
  }
  waiter.UntilAsleep();
  EXPECT_FALSE(waiter.HasEnded());
  event.SetEvent();
  waiter.Join();
  EXPECT_EQ(result, WaitResult::Signaled);
}

TEST(QsEvent, ASignalToTheProcessEndsNoTimeEarlier) {
  QsEvent event(kAuto, false);
  milliseconds::rep time = 0;
  Waiter waiter([&] { time = TimeOf([&] { EXPECT_EQ(event.WaitFor(30), WaitResult::Timeout); }); });
  while (!waiter.HasEnded()) {
    waiter.Interrupt();
    std::this_thread::sleep_for(milliseconds(1));
  }
  waiter.Join();
  EXPECT_GE(time, 30);
}

#endif

// Across processes: tests/integration/namedevent_test.cpp.
TEST(QsNamedEvent, WithoutMemoryForItsRecordDoesNothing) {
  const LogCapture log;
  failingAllocation = 1;
  QsNamedEvent event(kManual, true, "qsbase unit test", true);
  ASSERT_EQ(failingAllocation, 0);
  EXPECT_FALSE(event.IsInit());
  EXPECT_EQ(event.GetName(), "");
  event.SetEvent();
  event.ResetEvent();
  EXPECT_EQ(event.WaitFor(kNoLimit), WaitResult::Failed);
  EXPECT_FALSE(event.IsSet());
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST(QsNamedEvent, WithoutMemoryForItsEventLogsItsName) {
  for (const int allocation : {2, 3}) {  // the event, its state
    const LogCapture log;
    failingAllocation = allocation;
    QsNamedEvent event(kManual, true, "qsbase unit test", true);
    ASSERT_EQ(failingAllocation, 0);
    EXPECT_FALSE(event.IsInit());
    EXPECT_EQ(event.GetName(), "qsbase unit test");
    event.SetEvent();
    EXPECT_FALSE(event.IsSet());
    EXPECT_THAT(log.Texts(), ElementsAre("Could not not initialise QsNamedEvent (name=qsbase unit test)",
                                         "QsNamedEvent::SetEvent: not initialised (name=qsbase unit test)",
                                         "QsNamedEvent::IsSet: not initialised (name=qsbase unit test)"));
  }
}

TEST(QsEvent, LogsNothingOtherwise) {
  const LogCapture log;
  {
    QsEvent event(kAuto, true);
    event.ResetEvent();
    event.WaitFor(0);
    event.SetEvent();
    event.IsSet();
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
}

}  // namespace
