// Many threads with message queues, made and ended again and again: every message arrives, and nothing piles up.
#include <QSbase/thread/threadmq.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <integration/common/holdings.h>

namespace {

using qsbase::testing::Held;
using qsbase::testing::Holdings;

constexpr int kQuit = 18;
constexpr int kNoLimit = -1;
constexpr int kFirst = 2000;

// Threads are made by several others, as Create() sleeps a little each time.
constexpr int kMakers = 10;

#ifdef _WIN32
// Under Wine a message takes a hundred times as long.
constexpr int kThreadsOfAMaker = 5;
constexpr int kRounds = 10;
constexpr long kMessages = 200;
#else
constexpr int kThreadsOfAMaker = 20;
constexpr int kRounds = 50;
constexpr long kMessages = 1000;
#endif

// What is allocated on first use, and caches, are full by then.
constexpr int kWarmUpRounds = kRounds / 5;

/// Counts what comes in the right order until it is to quit.
class Counter : public QsThreadMQ {
 public:
  Counter() : QsThreadMQ("counter", nullptr) {}

  void Execute() override {
    QsMSG msg;
    while (GetMsg(msg, 0, 0) && msg.message != kQuit) {
      inOrder += msg.lParam == inOrder ? 1 : 0;
    }
  }

  long inOrder = 0;
};

void MakePostAndEnd() {
  std::vector<std::unique_ptr<Counter>> counters(kThreadsOfAMaker);
  for (std::unique_ptr<Counter>& counter : counters) {
    counter = std::make_unique<Counter>();
    counter->Create();
  }
  for (long i = 0; i < kMessages; ++i) {
    for (const std::unique_ptr<Counter>& counter : counters) {
      EXPECT_TRUE(counter->PostMsg(kFirst, 0, i));
    }
  }
  for (const std::unique_ptr<Counter>& counter : counters) {
    counter->TerminateAndQuit();
    EXPECT_EQ(counter->WaitFor(kNoLimit), 0U);
    EXPECT_EQ(counter->inOrder, kMessages);
  }
}

void OneRound() {
  std::vector<std::thread> makers;
  for (int i = 0; i < kMakers; ++i) {
    makers.emplace_back(&MakePostAndEnd);
  }
  for (std::thread& maker : makers) {
    maker.join();
  }
}

TEST(ThreadSoak, NothingPilesUp) {
#ifndef _WIN32
  mallopt(M_ARENA_MAX, 2);  // of which each takes many addresses when it is first used
#endif
  const std::int64_t threadsAtFirst = Held().threads;
  for (int i = 0; i < kWarmUpRounds; ++i) {
    OneRound();
  }
  const Holdings before = Held();
  for (int i = kWarmUpRounds; i < kRounds; ++i) {
    OneRound();
  }
  const Holdings after = Held();
  SCOPED_TRACE(::testing::Message() << "before: " << before << "\nafter: " << after);

  EXPECT_EQ(after.threads, threadsAtFirst);
  EXPECT_EQ(after.handles, before.handles);
  // Less than what would be 16 bytes for each thread, a page for each, and the stacks of a few.
  constexpr std::int64_t kThreads = std::int64_t{kMakers} * kThreadsOfAMaker * (kRounds - kWarmUpRounds);
  EXPECT_LT(after.heap, before.heap + kThreads * 16);
  EXPECT_LT(after.resident, before.resident + kThreads * 4096);
  EXPECT_LT(after.addresses, before.addresses + (std::int64_t{64} << 20));
  std::map<int, std::string> threads;
  QsGetThreadList(threads);
  EXPECT_THAT(threads, ::testing::IsEmpty());
}

}  // namespace
