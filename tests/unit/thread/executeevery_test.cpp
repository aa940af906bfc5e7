#include <QSbase/thread/executeevery.h>

#include <common/failingallocation.h>
#include <common/logcapture.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/thread/wallclock.h>

namespace {

using qsbase::detail::wallClock;
using qsbase::testing::failingAllocation;
using qsbase::testing::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::int64_t kStart = 1000000000;

std::atomic<std::int64_t> testTime = kStart;

// What a callback is called with, and what it is to do.
struct Calls {
  int count = 0;
  const ExecuteEvery* object = nullptr;
  std::int64_t duration = 0;
  bool throws = false;
  ExecuteEvery* checksAgain = nullptr;
};

void Note(const ExecuteEvery* object, void* userData) {
  Calls& calls = *static_cast<Calls*>(userData);
  ++calls.count;
  calls.object = object;
  testTime += calls.duration;
  if (calls.throws) {
    throw std::runtime_error("refused");
  }
  if (calls.checksAgain != nullptr) {
    calls.checksAgain->Check();
  }
}

class ExecuteEveryTest : public ::testing::Test {
 protected:
  ExecuteEveryTest() : _before(wallClock.exchange([] { return testTime.load(); })) { testTime = kStart; }
  ~ExecuteEveryTest() override { wallClock = _before; }

  // Checks at these seconds after the start; those at which the callback ran.
  std::vector<int> RunsAt(ExecuteEvery& object, const std::vector<int>& seconds) {
    std::vector<int> runs;
    for (const int second : seconds) {
      testTime = kStart + second;
      const int before = _calls.count;
      object.Check();
      if (_calls.count != before) {
        runs.push_back(second);
      }
    }
    return runs;
  }

  Calls _calls;

 private:
  qsbase::detail::WallClock _before;
};

static_assert(std::has_virtual_destructor_v<ExecuteEvery>);
static_assert(!std::is_copy_constructible_v<ExecuteEvery>);

TEST_F(ExecuteEveryTest, RunsOnceMoreThanTheIntervalHasPassed) {
  ExecuteEvery object("x", 10, &Note, &_calls);
  EXPECT_THAT(RunsAt(object, {0, 10, 11}), ElementsAre(11));
  EXPECT_THAT(RunsAt(object, {11, 20, 21, 22, 22, 33}), ElementsAre(22, 33));
}

TEST_F(ExecuteEveryTest, TheFirstCheckStartsTheClock) {
  ExecuteEvery object("x", 10, &Note, &_calls);
  EXPECT_THAT(RunsAt(object, {500, 510, 511}), ElementsAre(511));
}

TEST_F(ExecuteEveryTest, HandsOverItselfAndTheUserData) {
  ExecuteEvery object("x", 1, &Note, &_calls);
  EXPECT_THAT(RunsAt(object, {0, 2}), ElementsAre(2));
  EXPECT_EQ(_calls.object, &object);
}

TEST_F(ExecuteEveryTest, CountsFromTheEndOfTheLastRun) {
  ExecuteEvery object("x", 10, &Note, &_calls);
  _calls.duration = 5;
  EXPECT_THAT(RunsAt(object, {0, 11, 22, 26, 27}), ElementsAre(11, 27));
}

TEST_F(ExecuteEveryTest, AClockThatWentBackMakesItDueAtOnce) {
  ExecuteEvery object("x", 10, &Note, &_calls);
  EXPECT_THAT(RunsAt(object, {0, -1, -1, 9, 10}), ElementsAre(-1, 10));
}

TEST_F(ExecuteEveryTest, NeverRunsWithoutAnInterval) {
  for (const int interval : {0, -1, std::numeric_limits<int>::min()}) {
    ExecuteEvery object("x", interval, &Note, &_calls);
    EXPECT_THAT(RunsAt(object, {0, 1, 1000000, -5}), IsEmpty()) << interval;
  }
}

TEST_F(ExecuteEveryTest, NeverRunsWithoutACallback) {
  ExecuteEvery object("x", 1, nullptr, &_calls);
  EXPECT_THAT(RunsAt(object, {0, 2, 4}), IsEmpty());
}

TEST_F(ExecuteEveryTest, TakesTheLongestInterval) {
  ExecuteEvery object("x", std::numeric_limits<int>::max(), &Note, &_calls);
  EXPECT_THAT(RunsAt(object, {0, std::numeric_limits<int>::max()}), IsEmpty());
  testTime += 1;
  object.Check();
  EXPECT_EQ(_calls.count, 1);
}

TEST_F(ExecuteEveryTest, AnnouncesItsRunsFromLevel5On) {
  ExecuteEvery object("100% x", 10, &Note, &_calls);
  LogCapture log;
  EXPECT_THAT(RunsAt(object, {0, 11}), ElementsAre(11));
  EXPECT_THAT(log.Texts(), IsEmpty());
  QsSetLogLevel(5);
  log.Clear();
  EXPECT_THAT(RunsAt(object, {12, 22}), ElementsAre(22));
  ASSERT_EQ(log.Messages().size(), 1u);
  EXPECT_EQ(log.Messages()[0].text, "ExecuteEvery( 100% x ) is invoking callback...");
  EXPECT_EQ(log.Messages()[0].flags, 0x10000005u);
}

TEST_F(ExecuteEveryTest, AnExceptionPassesOnAndNotesNoRun) {
  ExecuteEvery object("x", 10, &Note, &_calls);
  EXPECT_THAT(RunsAt(object, {0}), IsEmpty());
  _calls.throws = true;
  testTime = kStart + 11;
  EXPECT_THROW(object.Check(), std::runtime_error);
  EXPECT_THROW(object.Check(), std::runtime_error);
  _calls.throws = false;
  std::thread([&object] { object.Check(); }).join();  // the lock is free for others
  EXPECT_EQ(_calls.count, 3);
  EXPECT_THAT(RunsAt(object, {21, 22}), ElementsAre(22));
}

TEST_F(ExecuteEveryTest, ACheckFromTheCallbackDoesNothing) {
  ExecuteEvery object("x", 10, &Note, &_calls);
  _calls.checksAgain = &object;
  _calls.duration = 100;
  EXPECT_THAT(RunsAt(object, {0, 11, 122}), ElementsAre(11, 122));
  EXPECT_EQ(_calls.count, 2);
}

TEST_F(ExecuteEveryTest, TheCallbackMayCheckAnotherObject) {
  Calls otherCalls;
  ExecuteEvery other("other", 10, &Note, &otherCalls);
  other.Check();
  ExecuteEvery object("x", 10, &Note, &_calls);
  _calls.checksAgain = &other;
  EXPECT_THAT(RunsAt(object, {0, 11}), ElementsAre(11));
  EXPECT_EQ(otherCalls.count, 1);
}

TEST_F(ExecuteEveryTest, WithoutMemoryForItsLockACheckThrows) {
  failingAllocation = 1;
  ExecuteEvery object("x", 1, &Note, &_calls);
  ASSERT_EQ(failingAllocation, 0);
  EXPECT_THROW(object.Check(), ExPrecondition);
  failingAllocation = 1;
  ExecuteEvery idle("x", 0, &Note, &_calls);
  ASSERT_EQ(failingAllocation, 0);
  EXPECT_NO_THROW(idle.Check());
}

// A callback that lets its thread be overtaken as long as somebody is there to do so.
struct Overtaken {
  std::atomic<bool> runs = false;
  std::atomic<int> checking = 0;
  int count = 0;  // guarded by the object alone
};

void LetOthersIn(const ExecuteEvery*, void* userData) {
  Overtaken& overtaken = *static_cast<Overtaken*>(userData);
  EXPECT_FALSE(overtaken.runs.exchange(true));
  ++overtaken.count;
  while (overtaken.checking < 2) {
    std::this_thread::yield();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  overtaken.runs = false;
}

TEST_F(ExecuteEveryTest, RunsInOneThreadAtATime) {
  Overtaken overtaken;
  ExecuteEvery object("x", 10, &LetOthersIn, &overtaken);
  object.Check();
  testTime = kStart + 11;
  const auto check = [&] {
    ++overtaken.checking;
    object.Check();
    EXPECT_FALSE(overtaken.runs);  // who comes second has waited for the first
  };
  std::thread first(check);
  std::thread second(check);
  first.join();
  second.join();
  EXPECT_EQ(overtaken.count, 1);
}

TEST_F(ExecuteEveryTest, RunsAsOftenAsItIsDueWithManyThreads) {
  constexpr int kRounds = 1000;
  ExecuteEvery object("x", 1, &Note, &_calls);
  object.Check();
  std::atomic<bool> done = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!done) {
        object.Check();
      }
    });
  }
  for (int round = 0; round < kRounds; ++round) {
    testTime += 2;
    object.Check();
  }
  done = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(_calls.count, kRounds);
}

TEST(ExecuteEvery, GoesByTheWallClock) {
  const std::int64_t before = std::time(nullptr);
  const std::int64_t now = wallClock.load()();
  const std::int64_t after = std::time(nullptr);
  EXPECT_GE(now, before);
  EXPECT_LE(now, after);
}

}  // namespace
