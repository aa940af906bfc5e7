#include <QSbase/errors.h>
#include <QSbase/sync/criticalsection.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

thread_local bool failNextAllocation = false;

}  // namespace

// The lock allocates its state with the form that returns null.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (failNextAllocation) {
    failNextAllocation = false;
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace {

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
  failNextAllocation = true;
  QsCriticalSection section;
  ASSERT_FALSE(failNextAllocation);
  EXPECT_EQ(ErrorOf([&] { section.Enter(); }), kMissing);
  EXPECT_EQ(ErrorOf([&] { section.Leave(); }), kMissing);
}

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
  failNextAllocation = true;
  QsCriticalSection section;
  EXPECT_EQ(ErrorOf([&] { const QsCriticalSectionAutoPtr guard(&section); }), kMissing);
}

}  // namespace
