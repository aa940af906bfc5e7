#include <QSbase/thread/threadmq.h>

#include <QSbase/errors.h>
#include <QSbase/process.h>

#include <common/failingallocation.h>
#include <common/sanitized.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#endif

namespace {

using qsbase::testing::throwingAllocation;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;

constexpr int kQuit = 18;
// Below 1024 Windows has messages of its own.
constexpr int kFirst = 2000;
constexpr int kNoLimit = -1;

constexpr QsMSG kGarbage{-1, 77, 77};

bool IsZero(const QsMSG& msg) { return msg.message == 0 && msg.wParam == 0 && msg.lParam == 0; }

/// A thread of either class whose body is given. Ends it when it is destroyed.
template <class Base>
class Thread : public Base {
 public:
  using Body = std::function<void(Thread&)>;

  explicit Thread(Body body) : Base("worker", nullptr), _body(std::move(body)) {}
  Thread(unsigned int maxQueueSize, Body body) : Base("worker", maxQueueSize, nullptr), _body(std::move(body)) {}
  ~Thread() override {
    if (this->InWorkerFunction() && !_killed) {
      this->TerminateAndQuit();
      this->WaitFor(kNoLimit);
    }
  }

  void Execute() override { _body(*this); }
  void AtTermination() override { _atTermination(); }
  unsigned int Kill() override {
    _killed = true;
    return Base::Kill();
  }

  void SetAtTermination(std::function<void()> body) { _atTermination = std::move(body); }

 private:
  Body _body;
  std::function<void()> _atTermination = [] {};
  bool _killed = false;
};

using Plain = Thread<QsThreadMQ>;
using Checked = Thread<QsThreadCheckedMQ>;

void Nothing(QsThreadMQ&) {}

/// A body that reads until it is to quit.
void Serve(QsThreadMQ& self) {
  QsMSG msg;
  while (self.GetMsg(msg, 0, 0) && msg.message != kQuit) {
  }
}

/// Holds a body until it is opened.
class Gate {
 public:
  void Open() { _open = true; }
  void Await() {
    while (!_open) {
      QsSleep(1);
    }
  }

 private:
  std::atomic<bool> _open{false};
};

/// Creates the thread, posts, and waits for its end.
template <class Base>
void RunWith(Thread<Base>& thread, const std::vector<QsMSG>& messages) {
  thread.Create();
  for (const QsMSG& msg : messages) {
    EXPECT_TRUE(thread.PostMsg(msg.message, msg.wParam, msg.lParam));
  }
  EXPECT_EQ(thread.WaitFor(kNoLimit), 0U);
}

// ---- the classes ----

TEST(QsMSG, IsAPlainStructure) {
  static_assert(std::is_trivially_copyable_v<QsMSG> && std::is_standard_layout_v<QsMSG>);
  static_assert(std::is_same_v<decltype(QsMSG::message), int>);
  static_assert(std::is_same_v<decltype(QsMSG::wParam), unsigned int>);
  static_assert(std::is_same_v<decltype(QsMSG::lParam), long>);
  EXPECT_LT(offsetof(QsMSG, message), offsetof(QsMSG, wParam));
  EXPECT_LT(offsetof(QsMSG, wParam), offsetof(QsMSG, lParam));
}

/// Which entry of the table of virtual functions it is; the destructor has two.
template <class Function>
std::size_t SlotOf(Function function) {
  std::size_t offset = 0;
  std::memcpy(&offset, &function, sizeof offset);
  return (offset - 1) / sizeof(void*);
}

TEST(QsThreadMQ, AppendsItsOperations) {
  EXPECT_EQ(SlotOf(&QsThreadMQ::GetMsg), 14U);
  EXPECT_EQ(SlotOf(&QsThreadMQ::PeekMsg), 15U);
  EXPECT_EQ(SlotOf(&QsThreadMQ::PostMsg), 16U);
  EXPECT_EQ(SlotOf(&QsThreadMQ::TerminateAndQuit), 17U);
}

/// What constructing one throws when that allocation fails; "nothing" when it does not come to it.
std::string ErrorWithout(int allocation) {
  throwingAllocation = allocation;
  std::string text = "nothing";
  try {
    const Plain thread{Plain::Body()};
  } catch (const ExMemoryAllocation& error) {
    throwingAllocation = 0;
    text = error.GetErrorText();
  }
  throwingAllocation = 0;
  return text;
}

TEST(QsThreadMQ, WithoutMemoryTheConstructorThrows) {
  std::vector<std::string> errors;
  for (std::string error; (error = ErrorWithout(static_cast<int>(errors.size()) + 1)) != "nothing";) {
    errors.push_back(error);
  }
  ASSERT_THAT(errors, Not(IsEmpty()));
  EXPECT_THAT(errors.front(), HasSubstr("QsThreadImpl"));
  EXPECT_EQ(
      errors.back(),
      "Memory allocation error: QsThreadMQ::QsThreadMQ QsThreadMQImpl (file .\\QSbase/thread/qsthreadimpl_common, "
      "line 342");
  std::map<int, std::string> threads;
  QsGetThreadList(threads);
  EXPECT_THAT(threads, IsEmpty());
}

// ---- QsThreadMQ::PostMsg ----

TEST(QsThreadMQ, PostMsgFailsBeforeCreate) {
  Plain thread(&Serve);
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
}

/// A thread without its state.
template <class Base>
class Stateless : public Base {
 public:
  template <class... Args>
  explicit Stateless(Args... args) : Base("worker", args...) {
    this->_impl.reset();
  }
  void Execute() override {}
};

TEST(QsThreadMQ, PostMsgFailsWithoutItsState) {
  Stateless<QsThreadMQ> thread(nullptr);
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_THROW(thread.TerminateAndQuit(), ExPrecondition);
  Stateless<QsThreadCheckedMQ> checked(1U, nullptr);
  EXPECT_FALSE(checked.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(checked.GetQueueSize(), 0);
}

TEST(QsThreadMQ, TheQueueIsThereWhenCreateReturns) {
  for (int i = 0; i < 50; ++i) {
    std::vector<int> ids;
    Plain thread([&ids](Plain& self) {
      QsMSG msg;
      while (self.GetMsg(msg, 0, 0) && msg.message != kQuit) {
        ids.push_back(msg.message);
      }
    });
    thread.Create();
    ASSERT_TRUE(thread.PostMsg(kFirst + i, 0, 0));
    thread.TerminateAndQuit();
    ASSERT_EQ(thread.WaitFor(kNoLimit), 0U);
    ASSERT_THAT(ids, ElementsAre(kFirst + i));
  }
}

TEST(QsThreadMQ, TheBodyMayPostToItself) {
  QsMSG msg = kGarbage;
  Plain thread([&msg](Plain& self) {
    EXPECT_TRUE(self.PostMsg(kFirst, 1, 2));
    EXPECT_TRUE(self.GetMsg(msg, 0, 0));
  });
  RunWith(thread, {});
  EXPECT_EQ(msg.message, kFirst);
}

TEST(QsThreadMQ, PostMsgFailsAfterTheBodyHasEnded) {
  Plain thread(&Nothing);
  thread.Create();
  thread.WaitFor(kNoLimit);
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
  thread.TerminateAndQuit();
}

TEST(QsThreadMQ, TheQueueIsThereInAtTermination) {
  QsMSG msg = kGarbage;
  Plain thread(&Nothing);
  thread.SetAtTermination([&] {
    EXPECT_TRUE(thread.PostMsg(kFirst, 1, 2));
    EXPECT_TRUE(thread.PeekMsg(msg, 0, 0, true));
  });
  RunWith(thread, {});
  EXPECT_EQ(msg.message, kFirst);
}

TEST(QsThreadMQ, SeveralMayPost) {
  constexpr int kPosters = 4;
  constexpr long kCount = 1000;
  std::vector<long> next(kPosters, 0);
  Plain thread([&next](Plain& self) {
    QsMSG msg;
    while (self.GetMsg(msg, 0, 0) && msg.message != kQuit) {
      EXPECT_EQ(msg.lParam, next[msg.wParam]++);
    }
  });
  thread.Create();
  std::vector<std::thread> posters;
  for (unsigned int poster = 0; poster < kPosters; ++poster) {
    posters.emplace_back([&thread, poster] {
      for (long i = 0; i < kCount; ++i) {
        EXPECT_TRUE(thread.PostMsg(kFirst, poster, i));
      }
    });
  }
  for (std::thread& poster : posters) {
    poster.join();
  }
  thread.TerminateAndQuit();
  thread.WaitFor(kNoLimit);
  EXPECT_THAT(next, ::testing::Each(kCount));
}

// ---- QsThreadMQ::GetMsg, PeekMsg, TerminateAndQuit ----

TEST(QsThreadMQ, GetMsgGivesWhatWasPosted) {
  constexpr unsigned int kLargest = std::numeric_limits<unsigned int>::max();
  constexpr long kLeast = std::numeric_limits<long>::min();
  std::vector<QsMSG> messages(3, kGarbage);
  Plain thread([&messages](Plain& self) {
    for (QsMSG& msg : messages) {
      EXPECT_TRUE(self.GetMsg(msg, 0, 0));
    }
  });
  RunWith(thread, {{kFirst, 1, -2}, {kFirst + 1, kLargest, kLeast}, {kQuit, 3, 4}});
  EXPECT_EQ(messages[0].message, kFirst);
  EXPECT_EQ(messages[0].wParam, 1U);
  EXPECT_EQ(messages[0].lParam, -2);
  EXPECT_EQ(messages[1].message, kFirst + 1);
  EXPECT_EQ(messages[1].wParam, kLargest);
  EXPECT_EQ(messages[1].lParam, kLeast);
  EXPECT_EQ(messages[2].message, kQuit);
  EXPECT_EQ(messages[2].wParam, 3U);
  EXPECT_EQ(messages[2].lParam, 4);
}

TEST(QsThreadMQ, GetMsgTakesFromTheRange) {
  std::vector<int> ids;
  Plain thread([&ids](Plain& self) {
    QsMSG msg;
    EXPECT_TRUE(self.GetMsg(msg, kFirst + 3, kFirst + 4));
    ids.push_back(msg.message);
    while (ids.size() < 4 && self.GetMsg(msg, 0, 0)) {
      ids.push_back(msg.message);
    }
  });
  RunWith(thread, {{kFirst + 2, 0, 0}, {kFirst + 1, 0, 0}, {kFirst + 4, 0, 0}, {kFirst + 3, 0, 0}});
  EXPECT_THAT(ids, ElementsAre(kFirst + 4, kFirst + 2, kFirst + 1, kFirst + 3));
}

TEST(QsThreadMQ, PeekMsgWithoutAMessageGivesZeroes) {
  QsMSG msg = kGarbage;
  bool found = true;
  Plain thread([&](Plain& self) { found = self.PeekMsg(msg, 0, 0, true); });
  RunWith(thread, {});
  EXPECT_FALSE(found);
  EXPECT_TRUE(IsZero(msg));
}

TEST(QsThreadMQ, PeekMsgTakesOutOnlyWhenAsked) {
  Plain thread([](Plain& self) {
    QsMSG msg = kGarbage;
    EXPECT_TRUE(self.GetMsg(msg, kFirst + 1, kFirst + 1));  // both are there
    for (const bool remove : {false, true}) {
      EXPECT_TRUE(self.PeekMsg(msg, 0, 0, remove));
      EXPECT_EQ(msg.message, kFirst);
      EXPECT_EQ(msg.wParam, 5U);
      EXPECT_EQ(msg.lParam, 6);
    }
    EXPECT_FALSE(self.PeekMsg(msg, 0, 0, true));
    EXPECT_TRUE(IsZero(msg));
  });
  RunWith(thread, {{kFirst, 5, 6}, {kFirst + 1, 0, 0}});
}

TEST(QsThreadMQ, PeekMsgOfAnEmptyRangeGivesZeroes) {
  Plain thread([](Plain& self) {
    QsMSG msg = kGarbage;
    EXPECT_TRUE(self.GetMsg(msg, kFirst + 1, kFirst + 1));
    EXPECT_FALSE(self.PeekMsg(msg, kFirst + 1, kFirst + 2, true));
    EXPECT_TRUE(IsZero(msg));
    EXPECT_TRUE(self.PeekMsg(msg, kFirst, kFirst, true));
  });
  RunWith(thread, {{kFirst, 0, 0}, {kFirst + 1, 0, 0}});
}

TEST(QsThreadMQ, TheQueueReadIsTheCallers) {
  Plain other(&Serve);
  other.Create();
  QsMSG msg = kGarbage;
  Plain thread([&](Plain&) { EXPECT_TRUE(other.GetMsg(msg, 0, 0)); });
  RunWith(thread, {{kFirst, 0, 0}});
  EXPECT_EQ(msg.message, kFirst);
  msg = kGarbage;
  EXPECT_FALSE(other.PeekMsg(msg, 0, 0, true));
  EXPECT_TRUE(IsZero(msg));
#ifndef _WIN32  // where every thread has a queue, and waits
  msg = kGarbage;
  EXPECT_FALSE(other.GetMsg(msg, 0, 0));
  EXPECT_TRUE(IsZero(msg));
#endif
}

TEST(QsThreadMQ, TerminateAndQuitWakesTheBody) {
  QsMSG msg = kGarbage;
  bool got = false;
  bool terminated = false;
  Plain thread([&](Plain& self) {
    got = self.GetMsg(msg, 0, 0);
    terminated = self.Terminated();
  });
  thread.Create();
  EXPECT_FALSE(thread.Terminated());
  thread.TerminateAndQuit();
  EXPECT_TRUE(thread.Terminated());
  EXPECT_EQ(thread.WaitFor(kNoLimit), 0U);
  EXPECT_TRUE(got);
  EXPECT_TRUE(terminated);
  EXPECT_EQ(msg.message, kQuit);
  EXPECT_EQ(msg.wParam, 0U);
  EXPECT_EQ(msg.lParam, 0);
}

TEST(QsThreadMQ, TerminateAndQuitBeforeCreateOnlySetsTheFlag) {
  Plain thread(&Serve);
  thread.TerminateAndQuit();
  EXPECT_TRUE(thread.Terminated());
}

TEST(QsThreadMQ, TheQuitMessageIsPostedByTheOverride) {
  class Recorder : public Plain {
   public:
    using Plain::Plain;
    bool PostMsg(int message, unsigned int wParam, long lParam) override {
      posted.push_back(message);
      return Plain::PostMsg(message, wParam, lParam);
    }
    std::vector<int> posted;
  };
  Recorder thread(&Serve);
  thread.Create();
  thread.TerminateAndQuit();
  thread.WaitFor(kNoLimit);
  EXPECT_THAT(thread.posted, ElementsAre(kQuit));
}

#ifdef _WIN32

TEST(QsThreadMQ, TheHostMayPostToTheThread) {
  QsMSG msg = kGarbage;
  Plain thread([&msg](Plain& self) { EXPECT_TRUE(self.GetMsg(msg, 0, 0)); });
  thread.Create();
  EXPECT_NE(PostThreadMessageA(static_cast<DWORD>(thread.ThreadId()), kFirst, 7, -8), 0);
  thread.WaitFor(kNoLimit);
  EXPECT_EQ(msg.message, kFirst);
  EXPECT_EQ(msg.wParam, 7U);
  EXPECT_EQ(msg.lParam, -8);
}

TEST(QsThreadMQ, TheHostMayReadTheQueue) {
  MSG message{};
  Plain thread([&message](Plain&) { EXPECT_NE(GetMessageA(&message, nullptr, 0, 0), 0); });
  RunWith(thread, {{kFirst, 7, -8}});
  EXPECT_EQ(message.message, static_cast<UINT>(kFirst));
  EXPECT_EQ(message.wParam, 7U);
  EXPECT_EQ(message.lParam, -8);
}

TEST(QsThreadMQ, TheHostMayAskTheThreadToQuit) {
  QsMSG msg = kGarbage;
  Plain thread([&msg](Plain& self) {
    PostQuitMessage(9);
    EXPECT_TRUE(self.GetMsg(msg, 0, 0));
  });
  RunWith(thread, {});
  EXPECT_EQ(msg.message, kQuit);
  EXPECT_EQ(msg.wParam, 9U);
}

#else

TEST(QsThreadMQ, TheQuitMessagePassesEveryFilter) {
  std::vector<int> ids;
  Plain thread([&ids](Plain& self) {
    QsMSG msg;
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(self.GetMsg(msg, kFirst + 1, kFirst + 1));
      ids.push_back(msg.message);
    }
  });
  RunWith(thread, {{kFirst, 0, 0}, {kQuit, 0, 0}, {kFirst + 1, 0, 0}});
  EXPECT_THAT(ids, ElementsAre(kQuit, kFirst + 1));
}

#endif

TEST(QsThreadMQ, MayBeKilledWhileItWaitsForAMessage) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  for (int i = 0; i < 50; ++i) {
    Plain thread(&Serve);
    thread.Create();
    ASSERT_TRUE(thread.PostMsg(kFirst, 0, 0));
    if (i % 2 == 0) {
      QsSleep(2);  // usually it waits by then
    }
    ASSERT_EQ(thread.Kill(), 0U);
    ASSERT_FALSE(thread.PostMsg(kFirst, 0, 0));
    ASSERT_EQ(thread.WaitFor(kNoLimit), 0U);
  }
}

#ifndef _WIN32  // which ends a thread wherever it is

TEST(QsThreadMQ, WhoIsKilledWhilePostingLeavesTheQueueUsable) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  Plain server(&Serve);
  server.Create();
  for (int i = 0; i < 50; ++i) {
    Plain poster([&server](Plain&) {
      while (server.PostMsg(kFirst, 0, 0)) {
      }
    });
    poster.Create();
    ASSERT_EQ(poster.Kill(), 0U);
    ASSERT_TRUE(server.PostMsg(kFirst, 0, 0));
  }
}

#endif

// ---- QsThreadCheckedMQ ----

TEST(QsThreadCheckedMQ, RefusesMessagesBeyondItsMaximum) {
  Gate read;
  Gate readOn;
  Checked thread(2, [&](Checked& self) {
    QsMSG msg;
    read.Await();
    self.GetMsg(msg, 0, 0);
    readOn.Await();
  });
  EXPECT_EQ(thread.GetMaxQueueSize(), 2);
  EXPECT_EQ(thread.GetQueueSize(), 0);
  thread.Create();
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(thread.GetQueueSize(), 1);
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(thread.GetQueueSize(), 2);
  read.Open();
  while (thread.GetQueueSize() == 2) {
    QsSleep(1);
  }
  EXPECT_EQ(thread.GetQueueSize(), 1);
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(thread.GetQueueSize(), 2);
  readOn.Open();
}

TEST(QsThreadCheckedMQ, CountsWhatIsTakenOut) {
  Gate posted;
  std::vector<long> sizes;
  Checked thread(10, [&](Checked& self) {
    posted.Await();
    QsMSG msg;
    const auto note = [&](bool found) {
      EXPECT_TRUE(found);
      sizes.push_back(self.GetQueueSize());
    };
    note(self.PeekMsg(msg, 0, 0, false));
    note(self.PeekMsg(msg, 0, 0, true));
    note(self.GetMsg(msg, 0, 0));
    note(self.GetMsg(msg, 0, 0));
    EXPECT_EQ(msg.message, kQuit);
    EXPECT_FALSE(self.PeekMsg(msg, 0, 0, true));
    EXPECT_TRUE(IsZero(msg));
    EXPECT_FALSE(self.PeekMsg(msg, 0, 0, false));
    sizes.push_back(self.GetQueueSize());
  });
  thread.Create();
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  thread.TerminateAndQuit();
  EXPECT_EQ(thread.GetQueueSize(), 3);
  posted.Open();
  thread.WaitFor(kNoLimit);
  EXPECT_THAT(sizes, ElementsAre(3, 2, 1, 0, 0));
}

TEST(QsThreadCheckedMQ, AFailedPostIsNotCounted) {
  Checked thread(10, &Nothing);
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(thread.GetQueueSize(), 0);
  thread.Create();
  thread.WaitFor(kNoLimit);
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(thread.GetQueueSize(), 0);
}

TEST(QsThreadCheckedMQ, WhatWasNotReadStaysCounted) {
  Gate posted;
  Checked thread(10, [&posted](Checked&) { posted.Await(); });
  thread.Create();
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  posted.Open();
  thread.WaitFor(kNoLimit);
  EXPECT_EQ(thread.GetQueueSize(), 2);
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(thread.GetQueueSize(), 2);
}

TEST(QsThreadCheckedMQ, AFullQueueRefusesTheQuitMessage) {
  Gate posted;
  std::vector<int> ids;
  Checked thread(1, [&](Checked& self) {
    posted.Await();
    QsMSG msg;
    while (self.PeekMsg(msg, 0, 0, true)) {
      ids.push_back(msg.message);
    }
  });
  thread.Create();
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  thread.TerminateAndQuit();
  EXPECT_TRUE(thread.Terminated());
  EXPECT_EQ(thread.GetQueueSize(), 1);
  posted.Open();
  thread.WaitFor(kNoLimit);
  EXPECT_THAT(ids, ElementsAre(kFirst));
}

TEST(QsThreadCheckedMQ, AMaximumOfNothingRefusesEverything) {
  for (const unsigned int maximum : {0U, 0x80000000U, 0xFFFFFFFFU}) {
    Gate end;
    Checked thread(maximum, [&end](Checked&) { end.Await(); });
    thread.Create();
    EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
    EXPECT_EQ(thread.GetQueueSize(), 0);
    EXPECT_EQ(thread.GetMaxQueueSize(), static_cast<int>(maximum));
    end.Open();
    thread.WaitFor(kNoLimit);
  }
  EXPECT_EQ(Checked(0x7FFFFFFFU, &Nothing).GetMaxQueueSize(), 0x7FFFFFFF);
}

TEST(QsThreadCheckedMQ, RacingPostersExceedTheMaximumByAtMostThemselves) {
  constexpr int kPosters = 4;
  constexpr unsigned int kMaximum = 500;
  Gate end;
  Checked thread(kMaximum, [&end](Checked&) { end.Await(); });
  thread.Create();
  std::atomic<long> posted{0};
  std::vector<std::thread> posters;
  for (int i = 0; i < kPosters; ++i) {
    posters.emplace_back([&] {
      while (thread.PostMsg(kFirst, 0, 0)) {
        ++posted;
      }
    });
  }
  for (std::thread& poster : posters) {
    poster.join();
  }
  EXPECT_EQ(thread.GetQueueSize(), posted);
  EXPECT_THAT(thread.GetQueueSize(), AllOf(Ge(500), Le(503)));
  end.Open();
  thread.WaitFor(kNoLimit);
}

TEST(QsThreadCheckedMQ, PostersAndReaderAgreeOnTheSize) {
  constexpr int kPosters = 4;
  constexpr int kCount = 2000;
  int read = 0;
  Checked thread(50, [&read](Checked& self) {
    QsMSG msg;
    while (read < kPosters * kCount && self.GetMsg(msg, 0, 0)) {
      ++read;
    }
  });
  thread.Create();
  std::vector<std::thread> posters;
  for (int i = 0; i < kPosters; ++i) {
    posters.emplace_back([&thread] {
      for (int posted = 0; posted < kCount;) {
        if (thread.PostMsg(kFirst, 0, 0)) {
          ++posted;
        } else {
          std::this_thread::yield();
        }
      }
    });
  }
  for (std::thread& poster : posters) {
    poster.join();
  }
  thread.WaitFor(kNoLimit);
  EXPECT_EQ(read, kPosters * kCount);
  EXPECT_EQ(thread.GetQueueSize(), 0);
}

#ifdef _WIN32

TEST(QsThreadCheckedMQ, WhatTheHostPostsIsCountedDownOnly) {
  Checked thread(1, [](Checked& self) {
    QsMSG msg;
    EXPECT_TRUE(self.GetMsg(msg, 0, 0));
  });
  thread.Create();
  EXPECT_NE(PostThreadMessageA(static_cast<DWORD>(thread.ThreadId()), kFirst, 0, 0), 0);
  thread.WaitFor(kNoLimit);
  EXPECT_EQ(thread.GetQueueSize(), -1);
}

#else  // where GetMsg() fails for a reason that a test can give

TEST(QsThreadCheckedMQ, AFailedGetMsgIsNotCounted) {
  Checked thread(10, &Nothing);
  QsMSG msg = kGarbage;
  EXPECT_FALSE(thread.GetMsg(msg, 0, 0));
  EXPECT_TRUE(IsZero(msg));
  EXPECT_EQ(thread.GetQueueSize(), 0);
}

#endif

TEST(QsThreadCheckedMQ, AfterAKillTheSizeGoesBack) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  Checked thread(10, [](Checked& self) {
    QsMSG msg;
    self.GetMsg(msg, kFirst + 1, kFirst + 1);
  });
  thread.Create();
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_TRUE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(thread.Kill(), 0U);
  EXPECT_EQ(thread.GetQueueSize(), 2);
  EXPECT_FALSE(thread.PostMsg(kFirst, 0, 0));
  EXPECT_EQ(thread.GetQueueSize(), 2);
}

}  // namespace
