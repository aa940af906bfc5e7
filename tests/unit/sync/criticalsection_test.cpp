#include <QSbase/errors.h>
#include <QSbase/sync/criticalsection.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
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
  return std::malloc(size);
}
void* operator new(std::size_t size) {
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

constexpr const char* kMissing = "QsCriticalSection::Enter - _impl is invalid";

/// Whether another thread can enter within 50 ms; it leaves again. The lock must outlive that thread.
bool IsFree(QsCriticalSection& section) {
  const auto entered = std::make_shared<std::atomic<bool>>(false);
  std::thread([&section, entered] {
    section.Enter();
    section.Leave();
    *entered = true;
  }).detach();
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
  while (!*entered && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  return *entered;
}

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
  static QsCriticalSection section;  // outlives the thread that waits for it
  section.Enter();
  section.Enter();
  section.Enter();
  section.Leave();
  section.Leave();
  EXPECT_FALSE(IsFree(section));
  section.Leave();
  EXPECT_TRUE(IsFree(section));
}

TEST(QsCriticalSection, LeavingWithoutOwningDoesNothing) {
  static QsCriticalSection section;
  section.Leave();
  section.Enter();
  std::thread([] { section.Leave(); }).join();
  EXPECT_FALSE(IsFree(section));
  section.Leave();
  section.Leave();
  EXPECT_TRUE(IsFree(section));
}

TEST(QsCriticalSection, WithoutItsStateEnterAndLeaveThrowTheSameText) {
  failNextAllocation = true;
  QsCriticalSection section;
  ASSERT_FALSE(failNextAllocation);
  EXPECT_EQ(ErrorOf([&] { section.Enter(); }), kMissing);
  EXPECT_EQ(ErrorOf([&] { section.Leave(); }), kMissing);
}

TEST(QsCriticalSectionAutoPtr, HoldsTheLockForTheBlock) {
  static QsCriticalSection section;
  {
    const QsCriticalSectionAutoPtr outer(&section);
    { const QsCriticalSectionAutoPtr inner(&section); }
    EXPECT_FALSE(IsFree(section));
  }
  EXPECT_TRUE(IsFree(section));
}

TEST(QsCriticalSectionAutoPtr, LeavesWhenAnExceptionPasses) {
  static QsCriticalSection section;
  try {
    const QsCriticalSectionAutoPtr guard(&section);
    throw ExBase("x");
  } catch (const ExBase&) {
  }
  EXPECT_TRUE(IsFree(section));
}

TEST(QsCriticalSectionAutoPtr, NullDoesNothing) { EXPECT_NO_THROW(QsCriticalSectionAutoPtr(nullptr)); }

TEST(QsCriticalSectionAutoPtr, EnteringALockWithoutStateThrows) {
  failNextAllocation = true;
  QsCriticalSection section;
  EXPECT_EQ(ErrorOf([&] { const QsCriticalSectionAutoPtr guard(&section); }), kMissing);
}

}  // namespace
