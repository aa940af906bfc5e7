#include <QSbase/errors.h>
#include <QSbase/sync/criticalsection.h>

#include <common/failingallocation.h>
#include <common/sanitized.h>
#include <common/waiter.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using qsbase::testing::failingAllocation;
using qsbase::testing::Waiter;

constexpr const char* kMissing = "QsCriticalSection::Enter - _impl is invalid";

/// Another thread that enters a lock and leaves it again. At its end the lock must be free.
class Visitor {
 public:
  explicit Visitor(QsCriticalSection& section)
      : _thread([this, &section] {
          section.Enter();
          _entered = true;
          section.Leave();
        }) {}
  ~Visitor() { _thread.join(); }
  Visitor(const Visitor&) = delete;
  Visitor& operator=(const Visitor&) = delete;

  /// Whether it gets in within 50 ms.
  bool Enters() const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    while (!_entered && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
    }
    return _entered;
  }

 private:
  std::atomic<bool> _entered{false};
  std::thread _thread;
};

template <typename Call>
std::string ErrorOf(Call call) {
  try {
    call();
  } catch (const ExPrecondition& error) {
    return error.GetErrorText();
  }
  return "threw nothing";
}

TEST(QsCriticalSection, KeepsThreadsApart) {
  QsCriticalSection section;
  long counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 20000; ++n) {
        section.Enter();
        ++counter;
        section.Leave();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, 80000);
}

TEST(QsCriticalSection, TheOwnerMayEnterAgainAndMustLeaveAsOften) {
  QsCriticalSection section;
  section.Enter();
  section.Enter();
  section.Enter();
  section.Leave();
  section.Leave();
  const Visitor visitor(section);
  EXPECT_FALSE(visitor.Enters());
  section.Leave();
}

TEST(QsCriticalSection, LeavingWithoutOwningDoesNothing) {
  QsCriticalSection section;
  section.Leave();
  section.Enter();
  std::thread([&section] { section.Leave(); }).join();
  const Visitor visitor(section);
  EXPECT_FALSE(visitor.Enters());
  section.Leave();
  section.Leave();
}

TEST(QsCriticalSection, LeavesTheLastErrorAlone) {
  QsCriticalSection section;
  QsSetLastError(77);
  {
    const QsCriticalSectionAutoPtr outer(&section);
    EXPECT_EQ(QsGetLastError(), 77);
    const QsCriticalSectionAutoPtr inner(&section);
    EXPECT_EQ(QsGetLastError(), 77);
  }
  EXPECT_EQ(QsGetLastError(), 77);
  section.Leave();  // of no owner
  EXPECT_EQ(QsGetLastError(), 77);
}

TEST(QsCriticalSection, WithoutItsStateEnterAndLeaveThrowTheSameText) {
  failingAllocation = 1;
  QsCriticalSection section;
  ASSERT_EQ(failingAllocation, 0);
  EXPECT_EQ(ErrorOf([&] { section.Enter(); }), kMissing);
  EXPECT_EQ(ErrorOf([&] { section.Leave(); }), kMissing);
}

TEST(QsCriticalSection, EveryWaiterGetsIn) {
  QsCriticalSection section;
  std::atomic<int> in{0};
  std::vector<std::unique_ptr<Waiter>> waiters;
  section.Enter();
  for (int i = 0; i < 3; ++i) {
    waiters.push_back(std::make_unique<Waiter>([&] {
      const QsCriticalSectionAutoPtr guard(&section);
      ++in;
    }));
    waiters.back()->UntilAsleep();
  }
  EXPECT_EQ(in, 0);
  section.Leave();
  waiters.clear();
  EXPECT_EQ(in, 3);
}

#ifndef _WIN32

// The child has the copy of a lock that its thread owns, under another system thread id.
TEST(QsCriticalSection, StaysTheForkingThreadsOwn) {
  QsCriticalSection section;
  section.Enter();
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    section.Enter();  // would wait for ever
    section.Leave();
    section.Leave();
    Visitor(section).Enters();  // waits for it
    _exit(7);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
  section.Leave();
}

TEST(QsCriticalSection, AKilledWaiterLeavesItUsable) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  QsCriticalSection section;
  section.Enter();
  Waiter waiter([&] { const QsCriticalSectionAutoPtr guard(&section); });
  waiter.UntilAsleep();
  waiter.AskToEnd();
  waiter.Interrupt();
  waiter.Join();
  EXPECT_FALSE(waiter.HasEnded());
  section.Leave();
  Visitor(section).Enters();  // waits for it
}

TEST(QsCriticalSection, ItsOwnerEndsWhenItHasLeftForGood) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  QsCriticalSection section;
  std::atomic<bool> owns{false};
  std::atomic<bool> asked{false};
  std::atomic<int> left{0};
  Waiter owner([&] {
    section.Enter();
    section.Enter();
    owns = true;
    while (!asked) {
      std::this_thread::yield();
    }
    for (; left < 2; ++left) {
      section.Leave();
    }
  });
  while (!owns) {
    std::this_thread::yield();
  }
  owner.AskToEnd();
  asked = true;
  owner.Join();
  EXPECT_EQ(left, 1);
  EXPECT_FALSE(owner.HasEnded());
  Visitor(section).Enters();  // waits for it
}

#endif

TEST(QsCriticalSectionAutoPtr, HoldsTheLockForTheBlock) {
  QsCriticalSection section;
  std::unique_ptr<Visitor> visitor;
  {
    const QsCriticalSectionAutoPtr outer(&section);
    { const QsCriticalSectionAutoPtr inner(&section); }
    visitor = std::make_unique<Visitor>(section);
    EXPECT_FALSE(visitor->Enters());
  }
}

TEST(QsCriticalSectionAutoPtr, LeavesWhenAnExceptionPasses) {
  QsCriticalSection section;
  try {
    const QsCriticalSectionAutoPtr guard(&section);
    throw ExBase("x");
  } catch (const ExBase&) {
  }
  const Visitor visitor(section);  // waits for it
}

TEST(QsCriticalSectionAutoPtr, NullDoesNothing) { EXPECT_NO_THROW(QsCriticalSectionAutoPtr(nullptr)); }

TEST(QsCriticalSectionAutoPtr, EnteringALockWithoutStateThrows) {
  failingAllocation = 1;
  QsCriticalSection section;
  EXPECT_EQ(ErrorOf([&] { const QsCriticalSectionAutoPtr guard(&section); }), kMissing);
}

}  // namespace
