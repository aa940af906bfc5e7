#include <QSbase/errors.h>
#include <QSbase/sync/lock.h>

#include <common/sanitized.h>
#include <common/waiter.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using qsbase::detail::Lock;
using qsbase::testing::Waiter;

constinit Lock staticLock;

TEST(Lock, KeepsThreadsApart) {
  long counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 20000; ++n) {
        const std::lock_guard<Lock> guard(staticLock);
        ++counter;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, 80000);
}

TEST(Lock, ATryTakesItWhenItIsFree) {
  Lock lock;
  EXPECT_TRUE(lock.try_lock());
  bool taken = true;
  std::thread([&] { taken = lock.try_lock(); }).join();
  EXPECT_FALSE(taken);
  lock.unlock();
  EXPECT_TRUE(lock.try_lock());
  lock.unlock();
}

TEST(Lock, EveryWaiterGetsIn) {
  Lock lock;
  std::atomic<int> in{0};
  std::vector<std::unique_ptr<Waiter>> waiters;
  lock.lock();
  for (int i = 0; i < 3; ++i) {
    waiters.push_back(std::make_unique<Waiter>([&] {
      const std::lock_guard<Lock> guard(lock);
      ++in;
    }));
    waiters.back()->UntilAsleep();
  }
  EXPECT_EQ(in, 0);
  lock.unlock();
  waiters.clear();
  EXPECT_EQ(in, 3);
}

TEST(Lock, MayBeDestroyedByWhomItLetIn) {
  for (int i = 0; i < 2000; ++i) {
    auto lock = std::make_unique<Lock>();
    Lock& shared = *lock;
    shared.lock();
    std::thread waiter([&] {
      lock->lock();
      lock->unlock();
      lock.reset();
    });
    shared.unlock();
    waiter.join();
  }
}

TEST(Lock, LeavesTheLastErrorAlone) {
  Lock lock;
  QsSetLastError(77);
  lock.lock();
  EXPECT_EQ(QsGetLastError(), 77);
  Waiter waiter([&] {
    QsSetLastError(78);
    const std::lock_guard<Lock> guard(lock);
    EXPECT_EQ(QsGetLastError(), 78);
  });
  waiter.UntilAsleep();
  QsSetLastError(77);
  lock.unlock();
  EXPECT_EQ(QsGetLastError(), 77);
}

#ifndef _WIN32

TEST(Lock, AKilledWaiterLeavesItUsable) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  Lock lock;
  lock.lock();
  const auto wait = [&] { const std::lock_guard<Lock> guard(lock); };
  Waiter killed(wait);
  killed.UntilAsleep();
  Waiter other(wait);
  other.UntilAsleep();
  killed.AskToEnd();
  killed.Interrupt();
  killed.Join();
  EXPECT_FALSE(killed.HasEnded());
  lock.unlock();
  other.Join();
  EXPECT_TRUE(lock.try_lock());
  lock.unlock();
}

// The first of two sleepers is asked to end and woken by the lock's own wake-up.
TEST(Lock, AWaiterThatIsToEndTakesNoWakeUpWithIt) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  for (int i = 0; i < 100; ++i) {
    Lock lock;
    lock.lock();
    const auto wait = [&] { const std::lock_guard<Lock> guard(lock); };
    Waiter first(wait);
    first.UntilAsleep();
    Waiter second(wait);
    second.UntilAsleep();
    first.AskToEnd();
    lock.unlock();
    first.Join();
    second.Join();
    EXPECT_FALSE(first.HasEnded());
    ASSERT_TRUE(second.HasEnded());
  }
}

TEST(Lock, ItsOwnerEndsWhenItHasLeft) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  Lock lock;
  std::atomic<bool> owns{false};
  std::atomic<bool> asked{false};
  std::atomic<bool> stillOwned{false};
  Waiter owner([&] {
    lock.lock();
    owns = true;
    while (!asked) {
      std::this_thread::yield();
    }
    stillOwned = true;
    lock.unlock();
  });
  while (!owns) {
    std::this_thread::yield();
  }
  owner.AskToEnd();
  asked = true;
  owner.Join();
  EXPECT_TRUE(stillOwned);
  EXPECT_FALSE(owner.HasEnded());
  EXPECT_TRUE(lock.try_lock());
  lock.unlock();
}

#endif

}  // namespace
