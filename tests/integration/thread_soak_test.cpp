// Many threads with message queues, made and ended again and again: every message arrives, and nothing piles up.
#include <QSbase/process.h>
#include <QSbase/thread/threadmq.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>

#include <psapi.h>
#else
#include <malloc.h>
#include <unistd.h>
#endif

namespace {

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

/// What the process holds. In bytes: the heap in use, the memory that is there, the addresses taken.
struct Holdings {
  std::int64_t threads = 0;
  std::int64_t handles = 0;
  std::int64_t heap = 0;
  std::int64_t resident = 0;
  std::int64_t addresses = 0;
};

std::ostream& operator<<(std::ostream& out, const Holdings& held) {
  return out << held.threads << " threads, " << held.handles << " handles, heap " << held.heap << ", resident "
             << held.resident << ", addresses " << held.addresses;
}

#ifdef _WIN32

Holdings Held() {
  Holdings held;
  DWORD handles = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  held.handles = handles;  // of the threads, too
  PROCESS_MEMORY_COUNTERS_EX memory{};
  K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory), sizeof memory);
  held.resident = static_cast<std::int64_t>(memory.WorkingSetSize);
  held.addresses = static_cast<std::int64_t>(memory.PrivateUsage);
  return held;
}

#else

std::int64_t EntriesOf(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

/// What was joined stays in the system's list for a moment; how many threads are left when those are gone, unless that
/// takes strangely long.
std::int64_t ThreadsLeft() {
  static const std::int64_t atFirst = EntriesOf("/proc/self/task");
  std::int64_t threads = 0;
  for (int i = 0; i < 1000 && (threads = EntriesOf("/proc/self/task")) > atFirst; ++i) {
    QsSleep(10);
  }
  return threads;
}

Holdings Held() {
  Holdings held;
  held.threads = ThreadsLeft();
  held.handles = EntriesOf("/proc/self/fd");
  const struct mallinfo2 heap = mallinfo2();
  held.heap = static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
  std::ifstream("/proc/self/statm") >> held.addresses >> held.resident;  // in pages
  held.addresses *= getpagesize();
  held.resident *= getpagesize();
  return held;
}

#endif

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
