#include <QSbase/sync/semaphore.h>

#include <common/failingallocation.h>
#include <common/logcapture.h>
#include <common/sanitized.h>
#include <common/waiter.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace {

using qsbase::testing::failingAllocation;
using qsbase::testing::LogCapture;
using qsbase::testing::Waiter;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;

constexpr int kNoLimit = -1;
constexpr int kLargest = std::numeric_limits<int>::max();
constexpr const char* kMissing = "QsSemaphore::WaitFor: impl is zero ";

/// Takes what there is and says how much.
int Drain(QsSemaphore& semaphore) {
  int count = 0;
  while (semaphore.WaitFor(0) == WaitResult::Signaled) {
    ++count;
  }
  return count;
}

struct Start {
  int initial;
  int maximum;
  int count;
  const char* why;
};

constexpr std::array kStarts{
    Start{0, 0, 1, "both are raised"},
    Start{-3, 10, 1, "the initial count is raised"},
    Start{1, -1, 1, "the maximum is raised"},
    Start{3, 5, 3, "as it stands"},
    Start{5, 5, 5, "full"},
    Start{2, kLargest, 2, "the largest maximum"},
};

TEST(QsSemaphore, StartsWithAtLeastOne) {
  for (const Start& start : kStarts) {
    SCOPED_TRACE(start.why);
    QsSemaphore semaphore(start.initial, start.maximum);
    EXPECT_TRUE(semaphore.IsInit());
    EXPECT_EQ(Drain(semaphore), start.count);
  }
}

TEST(QsSemaphore, HoldsNoMoreThanItsMaximum) {
  QsSemaphore raised(0, 0);
  EXPECT_FALSE(raised.Release(1, nullptr));
  EXPECT_EQ(Drain(raised), 1);
  EXPECT_TRUE(raised.Release(1, nullptr));

  QsSemaphore semaphore(2, 5);
  EXPECT_FALSE(semaphore.Release(4, nullptr));
  EXPECT_TRUE(semaphore.Release(3, nullptr));
  EXPECT_FALSE(semaphore.Release(1, nullptr));
  EXPECT_EQ(Drain(semaphore), 5);
}

TEST(QsSemaphore, AnInitialCountAboveTheMaximumMakesNone) {
  const LogCapture log;
  QsSemaphore semaphore(5, 2);
  EXPECT_FALSE(semaphore.IsInit());
  EXPECT_EQ(semaphore.WaitFor(kNoLimit), WaitResult::Failed);
  EXPECT_THAT(log.Texts(), ElementsAre(kMissing));
  int previous = 77;
  EXPECT_FALSE(semaphore.Release(1, &previous));
  EXPECT_EQ(previous, 77);
  EXPECT_EQ(log.Messages().size(), 1U);
}

TEST(QsSemaphore, WithoutASystemObjectWaitingFailsAndLogs) {
  for (const int allocation : {1, 2}) {  // the state, the system's part of it
    failingAllocation = allocation;
    QsSemaphore semaphore(1, 1);
    ASSERT_EQ(failingAllocation, 0);
    const LogCapture log;
    EXPECT_FALSE(semaphore.IsInit());
    EXPECT_EQ(semaphore.WaitFor(0), WaitResult::Failed);
    EXPECT_EQ(semaphore.WaitFor(kNoLimit), WaitResult::Failed);
    EXPECT_FALSE(semaphore.Release(1, nullptr));
    EXPECT_THAT(log.Texts(), ElementsAre(kMissing, kMissing));
    EXPECT_EQ(log.Messages().front().flags, 0x40000000U);
  }
}

TEST(QsSemaphore, ReleaseTellsTheCountBefore) {
  QsSemaphore semaphore(1, 10);
  int previous = 77;
  EXPECT_TRUE(semaphore.Release(1, &previous));
  EXPECT_EQ(previous, 1);
  EXPECT_TRUE(semaphore.Release(5, &previous));
  EXPECT_EQ(previous, 2);
  Drain(semaphore);
  EXPECT_TRUE(semaphore.Release(10, &previous));
  EXPECT_EQ(previous, 0);
}

TEST(QsSemaphore, ReleaseOfWhatDoesNotFitChangesNothing) {
  QsSemaphore semaphore(3, 5);
  for (const int count : {0, -1, std::numeric_limits<int>::min(), 3, kLargest}) {
    int previous = 77;
    EXPECT_FALSE(semaphore.Release(count, &previous)) << count;
    EXPECT_EQ(previous, 77) << count;
  }
  EXPECT_EQ(Drain(semaphore), 3);
}

TEST(QsSemaphore, CountsUpToTheLargestNumber) {
  QsSemaphore semaphore(kLargest, kLargest);
  EXPECT_FALSE(semaphore.Release(1, nullptr));
  EXPECT_EQ(semaphore.WaitFor(0), WaitResult::Signaled);
  int previous = 0;
  EXPECT_FALSE(semaphore.Release(kLargest, nullptr));
  EXPECT_TRUE(semaphore.Release(1, &previous));
  EXPECT_EQ(previous, kLargest - 1);
}

TEST(QsSemaphore, TimesOutNotEarlierThanAsked) {
  QsSemaphore semaphore(1, 1);
  Drain(semaphore);
  for (const int timeout : {1, 7, 20}) {
    const auto start = steady_clock::now();
    EXPECT_EQ(semaphore.WaitFor(timeout), WaitResult::Timeout);
    EXPECT_GE(steady_clock::now() - start, milliseconds(timeout));
  }
}

TEST(QsSemaphore, ANegativeAndTheLongestTimeAreNotOver) {
  for (const int timeout : {-1, -5, std::numeric_limits<int>::min(), kLargest}) {
    QsSemaphore semaphore(1, 1);
    Drain(semaphore);
    WaitResult result = WaitResult::Failed;
    Waiter waiter([&] { result = semaphore.WaitFor(timeout); });
    waiter.UntilAsleep();
    std::this_thread::sleep_for(milliseconds(10));
    EXPECT_FALSE(waiter.HasEnded());
    EXPECT_TRUE(semaphore.Release(1, nullptr));
    waiter.Join();
    EXPECT_EQ(result, WaitResult::Signaled);
  }
}

TEST(QsSemaphore, ReleaseLetsAsManyGoOnAsItAdds) {
  QsSemaphore semaphore(1, 10);
  Drain(semaphore);
  std::atomic<int> through{0};
  std::array<std::unique_ptr<Waiter>, 10> waiters;
  for (std::unique_ptr<Waiter>& waiter : waiters) {
    waiter = std::make_unique<Waiter>([&] { through += semaphore.WaitFor(kNoLimit) == WaitResult::Signaled ? 1 : 0; });
    waiter->UntilAsleep();
  }
  int expected = 0;
  for (const int count : {1, 3, 6}) {
    EXPECT_TRUE(semaphore.Release(count, nullptr));
    expected += count;
    while (through < expected) {
      std::this_thread::yield();
    }
    std::this_thread::sleep_for(milliseconds(5));
    EXPECT_EQ(through, expected);
  }
}

TEST(QsSemaphore, LetsNoMoreInThanItsCount) {
  constexpr int kPlaces = 3;
  QsSemaphore semaphore(kPlaces, kPlaces);
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 2000; ++n) {
        semaphore.WaitFor(kNoLimit);
        const int now = ++inside;
        int before = most;
        while (before < now && !most.compare_exchange_weak(before, now)) {
        }
        --inside;
        semaphore.Release(1, nullptr);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_LE(most, kPlaces);
  EXPECT_EQ(Drain(semaphore), kPlaces);
}

TEST(QsSemaphore, AsALockItOrdersWhatItGuards) {
  QsSemaphore semaphore(1, 1);
  int counter = 0;  // plain: the semaphore orders its uses
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, timeout = i % 2 == 0 ? kNoLimit : 1] {
      for (int n = 0; n < 2000;) {
        if (semaphore.WaitFor(timeout) == WaitResult::Signaled) {
          ++counter;
          ++n;
          semaphore.Release(1, nullptr);
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, 8000);
}

TEST(QsSemaphore, MayBeDestroyedByWhomItLetGoOn) {
  for (int i = 0; i < 500; ++i) {
    auto semaphore = std::make_unique<QsSemaphore>(1, 1);
    semaphore->WaitFor(0);
    QsSemaphore& shared = *semaphore;
    std::thread waiter([&] {
      semaphore->WaitFor(kNoLimit);
      semaphore.reset();
    });
    shared.Release(1, nullptr);
    waiter.join();
  }
}

#ifndef _WIN32

// Both sleep; the kernel wakes the first that came.
TEST(QsSemaphore, AKilledWaiterPassesOnItsTurn) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "the sanitizers wait for good for a thread that was killed";
#endif
  for (int i = 0; i < 100; ++i) {
    QsSemaphore semaphore(1, 5);
    Drain(semaphore);
    std::atomic<int> through{0};
    const auto wait = [&] { through += semaphore.WaitFor(kNoLimit) == WaitResult::Signaled ? 1 : 0; };
    Waiter first(wait);
    first.UntilAsleep();
    Waiter second(wait);
    second.UntilAsleep();
    first.AskToEnd();
    ASSERT_TRUE(semaphore.Release(1, nullptr));
    first.Join();
    second.Join();
    EXPECT_FALSE(first.HasEnded());
    ASSERT_EQ(through, 1);
    ASSERT_EQ(Drain(semaphore), 0);
  }
}

TEST(QsSemaphore, GoesOnAfterASignalToTheProcess) {
  QsSemaphore semaphore(1, 1);
  Drain(semaphore);
  WaitResult result = WaitResult::Failed;
  Waiter waiter([&] { result = semaphore.WaitFor(kNoLimit); });
  for (int i = 0; i < 20; ++i) {
    waiter.UntilAsleep();
    waiter.Interrupt();
  }
  waiter.UntilAsleep();
  EXPECT_FALSE(waiter.HasEnded());
  semaphore.Release(1, nullptr);
  waiter.Join();
  EXPECT_EQ(result, WaitResult::Signaled);
}

#endif

}  // namespace
