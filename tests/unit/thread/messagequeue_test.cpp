#include <QSbase/thread/messagequeue.h>

#include <QSbase/thread/threadmq.h>

#include <common/memorylimit.h>
#include <common/sanitized.h>
#include <common/waiter.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#else
#include <malloc.h>
#endif

namespace {

using qsbase::detail::MessageQueue;
using qsbase::testing::kNoLimit;
using qsbase::testing::largestAllocation;
using qsbase::testing::Waiter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kQuit = 18;
// Below 1024 Windows has messages of its own.
constexpr int kFirst = 2000;

using Fields = std::tuple<int, unsigned int, long>;

std::optional<Fields> Get(int filterMin = 0, int filterMax = 0) {
  QsMSG message;
  if (!MessageQueue::Get(message, filterMin, filterMax)) {
    return std::nullopt;
  }
  return Fields(message.message, message.wParam, message.lParam);
}

/// The id, or 0 if there is none.
int PeekId(int filterMin, int filterMax, bool remove) {
  QsMSG message{};
  return MessageQueue::Peek(message, filterMin, filterMax, remove) ? message.message : 0;
}

int GetId(int filterMin, int filterMax) {
  const std::optional<Fields> message = Get(filterMin, filterMax);
  return message ? std::get<0>(*message) : 0;
}

/// The ids of what is left, taken out.
std::vector<int> Rest() {
  std::vector<int> ids;
  while (const int id = PeekId(0, 0, true)) {
    ids.push_back(id);
  }
  return ids;
}

#ifndef _WIN32
std::size_t MemoryInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}
#endif

/// The queue is the test's own thread's.
class MessageQueueTest : public ::testing::Test {
 protected:
  MessageQueueTest() { queue->Open(); }
  ~MessageQueueTest() override {
    queue->Close();
    Rest();  // Windows keeps it
  }

  bool Post(int id, unsigned int wParam = 0, long lParam = 0) { return queue->Post({id, wParam, lParam}); }

  const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
};

TEST(MessageQueue, TakesNothingBeforeItIsOpen) {
  const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
  ASSERT_TRUE(queue);
  EXPECT_FALSE(queue->Post({kFirst, 0, 0}));
}

TEST(MessageQueue, OfAThreadWithoutOneIsEmpty) {
  EXPECT_EQ(PeekId(0, 0, true), 0);
#ifndef _WIN32  // where every thread has one, and waits
  EXPECT_EQ(Get(), std::nullopt);
#endif
}

TEST(MessageQueue, IsNotMadeWhenMemoryIsShort) {
  largestAllocation = 0;
  const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
  largestAllocation = kNoLimit;
  EXPECT_FALSE(queue);
}

TEST_F(MessageQueueTest, CarriesTheFieldsInOrder) {
  constexpr unsigned int kLargest = std::numeric_limits<unsigned int>::max();
  EXPECT_TRUE(Post(kFirst, 1, 2));
  EXPECT_TRUE(Post(kFirst + 1, kLargest, std::numeric_limits<long>::max()));
  EXPECT_TRUE(Post(kFirst, 0, std::numeric_limits<long>::min()));
  EXPECT_EQ(Get(), Fields(kFirst, 1, 2));
  EXPECT_EQ(Get(), Fields(kFirst + 1, kLargest, std::numeric_limits<long>::max()));
  EXPECT_EQ(Get(), Fields(kFirst, 0, std::numeric_limits<long>::min()));
  EXPECT_EQ(PeekId(0, 0, true), 0);
}

TEST_F(MessageQueueTest, PeekTakesOutOnlyWhenAsked) {
  Post(kFirst);
  EXPECT_EQ(PeekId(0, 0, false), kFirst);
  EXPECT_EQ(PeekId(0, 0, false), kFirst);
  EXPECT_EQ(PeekId(kFirst, kFirst, false), kFirst);
  EXPECT_EQ(PeekId(0, 0, true), kFirst);
  EXPECT_EQ(PeekId(0, 0, true), 0);
}

TEST_F(MessageQueueTest, GivesTheQuitMessageLikeOthers) {
  Post(kFirst);
  Post(kQuit, 5, 6);
  Post(kFirst + 1);
  EXPECT_EQ(GetId(0, 0), kFirst);
  EXPECT_EQ(Get(), Fields(kQuit, 5, 6));
  EXPECT_EQ(GetId(0, 0), kFirst + 1);
}

TEST_F(MessageQueueTest, WhatAFilterSkipsKeepsItsOrder) {
  for (const int id : {3, 1, 4, 1, 5, 9, 2, 6}) {
    Post(kFirst + id);
  }
  EXPECT_EQ(PeekId(kFirst + 4, kFirst + 6, false), kFirst + 4);
  EXPECT_EQ(GetId(kFirst + 4, kFirst + 6), kFirst + 4);
  EXPECT_EQ(GetId(kFirst + 9, kFirst + 9), kFirst + 9);
  EXPECT_EQ(PeekId(kFirst + 7, kFirst + 8, true), 0);
  Post(kFirst + 7);  // behind those that were skipped
  EXPECT_EQ(GetId(kFirst + 6, kFirst + 7), kFirst + 6);
  EXPECT_THAT(Rest(), ElementsAre(kFirst + 3, kFirst + 1, kFirst + 1, kFirst + 5, kFirst + 2, kFirst + 7));
}

TEST_F(MessageQueueTest, AFilterLooksAtWhatCameSinceItSkipped) {
  Post(kFirst);
  EXPECT_EQ(PeekId(kFirst + 1, kFirst + 1, true), 0);
  Post(kFirst + 1);
  Post(kFirst + 2);
  EXPECT_EQ(GetId(kFirst + 2, kFirst + 2), kFirst + 2);
  EXPECT_EQ(PeekId(kFirst + 1, kFirst + 1, true), kFirst + 1);
  EXPECT_THAT(Rest(), ElementsAre(kFirst));
}

#ifdef _WIN32

TEST_F(MessageQueueTest, APostedQuitMessagePassesFiltersThatHoldIt) {
  Post(kFirst);
  Post(kQuit);
  EXPECT_EQ(PeekId(kFirst + 1, kFirst + 1, true), 0);
  EXPECT_EQ(PeekId(kQuit, kQuit, true), kQuit);
  EXPECT_THAT(Rest(), ElementsAre(kFirst));
}

TEST_F(MessageQueueTest, AQuitMessageOfTheSystemPassesEveryFilter) {
  Post(kFirst);
  PostQuitMessage(7);
  EXPECT_EQ(Get(kFirst + 1, kFirst + 1), Fields(kQuit, 7, 0));
  EXPECT_THAT(Rest(), ElementsAre(kFirst));
}

TEST_F(MessageQueueTest, TakesWhatOthersPostToTheThread) {
  ASSERT_NE(PostThreadMessageA(GetCurrentThreadId(), kFirst, 1, -2), 0);
  EXPECT_EQ(Get(), Fields(kFirst, 1, -2));
}

#else

TEST_F(MessageQueueTest, TheQuitMessagePassesEveryFilter) {
  Post(kFirst);
  Post(kQuit);
  Post(kFirst + 1);
  EXPECT_EQ(PeekId(kFirst + 1, kFirst + 1, false), kQuit);
  EXPECT_EQ(GetId(kFirst + 1, kFirst + 1), kQuit);
  EXPECT_EQ(GetId(kFirst + 1, kFirst + 1), kFirst + 1);
  Post(kQuit);
  EXPECT_EQ(GetId(19, 20), kQuit);
  Post(kQuit);
  EXPECT_EQ(GetId(20, 19), kQuit);
  EXPECT_THAT(Rest(), ElementsAre(kFirst));
}

TEST_F(MessageQueueTest, IdsAreComparedWithoutSign) {
  constexpr int kLeast = std::numeric_limits<int>::min();
  Post(-1);
  Post(0);
  Post(kLeast);
  EXPECT_EQ(GetId(1, -2), kLeast);
  EXPECT_EQ(GetId(1, -1), -1);
  EXPECT_EQ(Get(0, 1), Fields(0, 0, 0));
}

TEST_F(MessageQueueTest, RefusesAPostWhenMemoryIsShort) {
  largestAllocation = 0;
  int posted = 0;
  while (posted < 1000 && Post(kFirst + posted)) {
    ++posted;
  }
  largestAllocation = kNoLimit;
  EXPECT_LT(posted, 1000);
  EXPECT_TRUE(Post(kFirst + posted));
  EXPECT_EQ(Rest().size(), static_cast<std::size_t>(posted) + 1);
}

TEST_F(MessageQueueTest, GivesBackTheMemoryOfABurst) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer's allocator does not tell what is in use";
#endif
  const std::size_t before = MemoryInUse();
  constexpr int kBurst = 1000000;
  for (int i = 0; i < kBurst; ++i) {
    Post(kFirst);
  }
  EXPECT_GT(MemoryInUse(), before + kBurst * sizeof(QsMSG));
  EXPECT_EQ(Rest().size(), std::size_t{kBurst});
  Post(kFirst);
  EXPECT_EQ(Rest().size(), 1U);
  EXPECT_LT(MemoryInUse(), before + 10000);
}

#endif

TEST_F(MessageQueueTest, TakesAndForgetsAllWhenItIsClosed) {
  Post(kFirst);
  Post(kFirst + 1);
  EXPECT_EQ(GetId(0, 0), kFirst);
  Post(kFirst + 2);
  queue->Close();
  EXPECT_FALSE(Post(kFirst + 3));
#ifndef _WIN32  // where the thread keeps its queue, and the messages are forgotten with both
  EXPECT_THAT(Rest(), IsEmpty());
#endif
}

TEST(MessageQueue, RefusesPostsAfterItsThread) {
  const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
  std::thread([&] { queue->Open(); }).join();
  queue->Close();
  EXPECT_FALSE(queue->Post({kFirst, 0, 0}));
}

TEST(MessageQueue, APostWakesWhoWaits) {
  const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
  Waiter reader([&] {
    queue->Open();
    for (int i = 0; i < 100; ++i) {
      EXPECT_EQ(Get(), Fields(kFirst + i, 0, 0));
    }
    queue->Close();
  });
  for (int i = 0; i < 100; ++i) {
    do {
      reader.UntilAsleep();
    } while (!queue->Post({kFirst + i, 0, 0}));  // until it is open
  }
}

TEST(MessageQueue, WaitsUntilAMessageComesThatPasses) {
  const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
  std::vector<int> rest;
  int got = 0;
  std::atomic<bool> isOpen{false};
  Waiter reader([&] {
    queue->Open();
    isOpen = true;
    got = GetId(kFirst + 90, kFirst + 99);
    rest = Rest();
    queue->Close();
  });
  while (!isOpen) {
    std::this_thread::yield();
  }
  for (const int id : {1, 2, 3}) {
    reader.UntilAsleep();
    EXPECT_FALSE(reader.HasEnded());
    EXPECT_TRUE(queue->Post({kFirst + id, 0, 0}));
  }
  reader.UntilAsleep();
  EXPECT_FALSE(reader.HasEnded());
  EXPECT_TRUE(queue->Post({kFirst + 95, 0, 0}));
  reader.Join();
  EXPECT_EQ(got, kFirst + 95);
  EXPECT_THAT(rest, ElementsAre(kFirst + 1, kFirst + 2, kFirst + 3));
}

// Each poster's messages come in its order; none is lost, none comes twice. Every fourth look has a filter.
TEST(MessageQueue, SeveralMayPost) {
  constexpr int kPosters = 4;
  constexpr long kCount = 2000;
  const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
  std::vector<long> next(kPosters, 0);
  std::atomic<bool> isOpen{false};
  std::thread reader([&] {
    queue->Open();
    isOpen = true;
    for (long i = 0; i < kPosters * kCount; ++i) {
      const int wanted = static_cast<int>(i / 4 % kPosters);
      const bool filters = i % 4 == 0 && next[static_cast<std::size_t>(wanted)] < kCount;
      const int filter = filters ? kFirst + wanted : 0;
      const std::optional<Fields> message = Get(filter, filter);
      ASSERT_TRUE(message);
      const int poster = std::get<0>(*message) - kFirst;
      ASSERT_TRUE(!filters || poster == wanted);
      ASSERT_EQ(std::get<2>(*message), next[static_cast<std::size_t>(poster)]++);
    }
    EXPECT_EQ(PeekId(0, 0, true), 0);
    queue->Close();
  });
  while (!isOpen) {
    std::this_thread::yield();
  }
  std::vector<std::thread> posters;
  for (int poster = 0; poster < kPosters; ++poster) {
    posters.emplace_back([&queue, poster] {
      for (long i = 0; i < kCount; ++i) {
        EXPECT_TRUE(queue->Post({kFirst + poster, 0, i}));
      }
    });
  }
  for (std::thread& poster : posters) {
    poster.join();
  }
  reader.join();
  EXPECT_THAT(next, ::testing::Each(kCount));
}

TEST(MessageQueue, MayBeClosedWhileOthersPost) {
  for (int i = 0; i < 200; ++i) {
    const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
    queue->Open();
    std::thread poster([&queue] {
      while (queue->Post({kFirst, 0, 0})) {
      }
    });
    Get();
    queue->Close();
    poster.join();
    Rest();
  }
}

#ifndef _WIN32

TEST(MessageQueue, AKilledReaderLeavesItUsable) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  const std::shared_ptr<MessageQueue> queue = MessageQueue::Make();
  Waiter reader([&] {
    queue->Open();
    Get(kFirst + 1, kFirst + 1);
  });
  while (!queue->Post({kFirst, 0, 0})) {
  }
  reader.UntilAsleep();
  reader.AskToEnd();
  EXPECT_TRUE(queue->Post({kFirst, 0, 0}));
  reader.Join();
  EXPECT_FALSE(reader.HasEnded());
  EXPECT_TRUE(queue->Post({kFirst, 0, 0}));
  queue->Close();
  EXPECT_FALSE(queue->Post({kFirst, 0, 0}));
}

#endif

}  // namespace
