#include <QSbase/errors.h>
#include <QSbase/sync/rwlock.h>
#include <QSbase/sync/rwlockimpl.h>

#include <common/sanitized.h>
#include <common/waiter.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#ifndef _WIN32
#include <linux/seccomp.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

/// Which of this thread's allocations from now on fails: 1 is the next. Back at 0 when it has.
thread_local int failingAllocation = 0;

}  // namespace

// Every form that the lock uses: what the sanitizers put in the place of the others does not come here.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (failingAllocation > 0 && --failingAllocation == 0) {
    return nullptr;
  }
  return std::malloc(size);
}

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (void* const memory = ::operator new(size, std::nothrow)) {
    return memory;
  }
  throw std::bad_alloc();
}

[[gnu::noinline]] void* operator new[](std::size_t size) { return ::operator new(size); }

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using qsbase::testing::Waiter;

void Until(const std::function<bool()>& condition) {
  while (!condition()) {
    std::this_thread::yield();
  }
}

/// What is below `spin`, at one moment.
struct Look {
  std::int32_t readerCount = 0;
  std::int32_t savedReaderCount = 0;
  std::int32_t slotCount = 0;
  std::int32_t waitingWriter = 0;
  bool writeActive = false;
  std::vector<std::int32_t> reads;  // of the slots that are taken

  bool operator==(const Look&) const = default;
};

Look At(QsRWLockImpl& lock) {
  lock.spin.Acquire(1);
  Look look{lock.readerCount, lock.savedReaderCount, lock.slotCount, lock.waitingWriter, lock.writeActive, {}};
  for (std::int32_t i = 0; i < lock.slotCount; ++i) {
    const auto& slot = lock.slots[static_cast<std::size_t>(i)];
    if (slot.threadId != 0) {
      look.reads.push_back(slot.count);
    }
  }
  lock.spin.Release();
  return look;
}

bool IsFree(QsRWLockImpl& lock) {
  Look free;
  free.slotCount = At(lock).slotCount;
  return At(lock) == free;
}

void UntilAWriterWaits(QsRWLockImpl& lock) {
  Until([&] { return At(lock).waitingWriter != 0; });
}

/// A thread that does one call after another when told to.
class Actor {
 public:
  Actor() : _thread([this] { Run(); }) {}
  ~Actor() {
    Start(nullptr);
    _thread.join();
  }
  Actor(const Actor&) = delete;
  Actor& operator=(const Actor&) = delete;

  void Start(std::function<void()> call) {
    Join();
    _call = std::move(call);
    _busy = true;
  }
  void Join() const {
    Until([this] { return !_busy; });
  }
  /// Returns when the call has; a call that blocks for ever makes the test run out of time.
  void Do(std::function<void()> call) {
    Start(std::move(call));
    Join();
  }
  /// Whether the call that was started has not returned 30 ms later.
  bool Blocks() const {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    return _busy;
  }

 private:
  void Run() {
    for (;;) {
      Until([this] { return _busy.load(); });
      if (!_call) {
        return;
      }
      _call();
      _busy = false;
    }
  }

  std::function<void()> _call;
  std::atomic<bool> _busy{false};
  std::thread _thread;
};

/// The steps of an actor under one lock.
class Party : public Actor {
 public:
  explicit Party(QsRWLockImpl& lock) : _lock(lock) {}

  void BeginRead() {
    Do([this] { _lock.BeginRead(); });
  }
  void EndRead() {
    Do([this] { _lock.EndRead(); });
  }
  void BeginWrite() {
    Do([this] { _lock.BeginWrite(); });
  }
  void EndWrite() {
    Do([this] { _lock.EndWrite(); });
  }
  void StartBeginRead() {
    Start([this] { _lock.BeginRead(); });
  }
  void StartBeginWrite() {
    Start([this] { _lock.BeginWrite(); });
  }

 private:
  QsRWLockImpl& _lock;
};

TEST(QsRWLock, ReadersShareIt) {
  QsRWLockImpl lock;
  Party one(lock);
  Party other(lock);
  one.BeginRead();
  other.BeginRead();
  EXPECT_EQ(At(lock).readerCount, 2);
  one.EndRead();
  other.EndRead();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, AWriterKeepsReadersAndWritersOut) {
  QsRWLockImpl lock;
  Party writer(lock);
  Party reader(lock);
  Party otherWriter(lock);
  writer.BeginWrite();
  reader.StartBeginRead();
  otherWriter.StartBeginWrite();
  EXPECT_TRUE(reader.Blocks());
  EXPECT_TRUE(otherWriter.Blocks());
  writer.EndWrite();
  // In either order, and one after the other.
  std::thread leaves([&] {
    reader.Join();
    reader.EndRead();
  });
  otherWriter.Join();
  otherWriter.EndWrite();
  leaves.join();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, AReaderKeepsWritersOut) {
  QsRWLockImpl lock;
  Party reader(lock);
  Party writer(lock);
  reader.BeginRead();
  writer.StartBeginWrite();
  UntilAWriterWaits(lock);
  EXPECT_TRUE(writer.Blocks());
  reader.EndRead();
  writer.Join();
  EXPECT_TRUE(At(lock).writeActive);
  writer.EndWrite();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, AWriterWaitsForTheLastReader) {
  QsRWLockImpl lock;
  Party one(lock);
  Party other(lock);
  Party writer(lock);
  one.BeginRead();
  one.BeginRead();
  other.BeginRead();
  writer.StartBeginWrite();
  UntilAWriterWaits(lock);
  one.EndRead();
  other.EndRead();
  EXPECT_TRUE(writer.Blocks());
  one.EndRead();
  writer.Join();
  writer.EndWrite();
}

TEST(QsRWLock, NewReadersWaitBehindAWaitingWriter) {
  QsRWLockImpl lock;
  Party reader(lock);
  Party writer(lock);
  Party late(lock);
  reader.BeginRead();
  writer.StartBeginWrite();
  UntilAWriterWaits(lock);
  late.StartBeginRead();
  EXPECT_TRUE(late.Blocks());
  reader.EndRead();
  writer.Join();
  EXPECT_TRUE(late.Blocks());
  writer.EndWrite();
  late.Join();
  late.EndRead();
}

TEST(QsRWLock, ReadingAgainDoesNotWaitBehindAWaitingWriter) {
  QsRWLockImpl lock;
  Party reader(lock);
  Party writer(lock);
  reader.BeginRead();
  writer.StartBeginWrite();
  UntilAWriterWaits(lock);
  reader.BeginRead();
  EXPECT_EQ(At(lock).reads, std::vector<std::int32_t>{2});
  reader.EndRead();
  reader.EndRead();
  writer.Join();
  writer.EndWrite();
}

TEST(QsRWLock, AWriterDoesNotWaitForItsOwnReads) {
  QsRWLockImpl lock;
  lock.BeginRead();
  lock.BeginRead();
  lock.BeginWrite();
  EXPECT_EQ(At(lock).readerCount, 1);
  EXPECT_EQ(At(lock).savedReaderCount, 2);
  lock.EndWrite();
  EXPECT_EQ(At(lock).readerCount, 2);
  EXPECT_EQ(At(lock).savedReaderCount, 0);
  Party writer(lock);
  writer.StartBeginWrite();
  UntilAWriterWaits(lock);
  lock.EndRead();
  EXPECT_TRUE(writer.Blocks());
  lock.EndRead();
  writer.Join();
  writer.EndWrite();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, AnUpgradingReaderWaitsForTheOthersOnly) {
  QsRWLockImpl lock;
  Party upgrader(lock);
  Party other(lock);
  upgrader.BeginRead();
  other.BeginRead();
  upgrader.StartBeginWrite();
  UntilAWriterWaits(lock);
  EXPECT_TRUE(upgrader.Blocks());
  other.EndRead();
  upgrader.Join();
  upgrader.EndWrite();
  upgrader.EndRead();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, AReadInsideTheWriteIsNotCounted) {
  QsRWLockImpl lock;
  lock.BeginWrite();
  const Look writing = At(lock);
  lock.BeginRead();
  EXPECT_EQ(At(lock), writing);
  lock.EndRead();
  EXPECT_EQ(At(lock), writing);
  lock.EndWrite();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, AnUpgradersReadsInsideTheWriteAreNotCountedEither) {
  QsRWLockImpl lock;
  lock.BeginRead();
  lock.BeginWrite();
  const Look writing = At(lock);
  lock.BeginRead();
  EXPECT_EQ(At(lock), writing);
  lock.EndRead();
  EXPECT_EQ(At(lock), writing);
  lock.EndWrite();
  EXPECT_EQ(At(lock).reads, std::vector<std::int32_t>{1});
  lock.EndRead();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, AReadBegunInsideAWriteEndsWithIt) {
  QsRWLockImpl lock;
  lock.BeginWrite();
  lock.BeginRead();
  lock.EndWrite();
  EXPECT_TRUE(IsFree(lock));
  Party writer(lock);
  writer.BeginWrite();
  lock.EndRead();
  writer.EndWrite();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, WritingTwiceEndsTwice) {
  QsRWLockImpl lock;
  Party writer(lock);
  Party reader(lock);
  writer.BeginWrite();
  writer.BeginWrite();
  EXPECT_EQ(At(lock).readerCount, 2);
  reader.StartBeginRead();
  writer.EndWrite();
  EXPECT_TRUE(reader.Blocks());
  writer.EndWrite();
  reader.Join();
  reader.EndRead();
  EXPECT_TRUE(IsFree(lock));
}

/// That many threads that read at once.
std::vector<std::unique_ptr<Party>> Readers(QsRWLockImpl& lock, int count) {
  std::vector<std::unique_ptr<Party>> readers;
  for (int i = 0; i < count; ++i) {
    readers.push_back(std::make_unique<Party>(lock));
    readers.back()->BeginRead();
  }
  return readers;
}

TEST(QsRWLock, SlotsGrowByThreeAndNeverShrink) {
  QsRWLockImpl lock;
  struct Row {
    int readers;
    int slots;
  };
  for (const Row row : {Row{1, 4}, Row{4, 4}, Row{5, 7}, Row{7, 7}, Row{8, 10}, Row{10, 10}, Row{1, 10}}) {
    const auto readers = Readers(lock, row.readers);
    EXPECT_EQ(At(lock).slotCount, row.slots) << row.readers;
    EXPECT_EQ(At(lock).readerCount, row.readers);
    EXPECT_EQ(At(lock).reads, std::vector<std::int32_t>(static_cast<std::size_t>(row.readers), 1));
    for (const auto& reader : readers) {
      reader->EndRead();
    }
    EXPECT_TRUE(IsFree(lock));
  }
}

TEST(QsRWLock, AFreedSlotIsTakenAgain) {
  QsRWLockImpl lock;
  const auto readers = Readers(lock, 4);
  readers[1]->EndRead();
  lock.BeginRead();
  EXPECT_EQ(At(lock).slotCount, 4);
  lock.EndRead();
  for (const auto& reader : readers) {
    reader->EndRead();
  }
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, WithoutMemoryForOneMoreReaderNothingChanges) {
  QsRWLockImpl lock;
  const auto readers = Readers(lock, 4);
  const Look before = At(lock);
  failingAllocation = 1;
  EXPECT_THROW(lock.BeginRead(), std::bad_alloc);
  ASSERT_EQ(failingAllocation, 0);
  EXPECT_EQ(At(lock), before);
  readers[0]->EndRead();
  readers[0]->BeginRead();  // what new readers pass is free
  lock.BeginRead();
  EXPECT_EQ(At(lock).slotCount, 7);
}

TEST(QsRWLock, EndingAReadThatWasNotBegunDoesNothing) {
  QsRWLockImpl lock;
  lock.EndRead();
  EXPECT_TRUE(IsFree(lock));
  Party reader(lock);
  reader.BeginRead();
  const Look reading = At(lock);
  lock.EndRead();
  EXPECT_EQ(At(lock), reading);
  Party writer(lock);
  writer.StartBeginWrite();
  UntilAWriterWaits(lock);
  lock.EndRead();
  EXPECT_TRUE(writer.Blocks());
  reader.EndRead();
  writer.Join();
  const Look writing = At(lock);
  lock.EndRead();
  EXPECT_EQ(At(lock), writing);
  writer.EndWrite();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, EndingAWriteThatWasNotBegunDoesNothing) {
  QsRWLockImpl lock;
  lock.EndWrite();
  EXPECT_TRUE(IsFree(lock));
  lock.BeginRead();
  const Look reading = At(lock);
  lock.EndWrite();
  EXPECT_EQ(At(lock), reading);
  lock.EndRead();
  Party writer(lock);
  writer.BeginWrite();
  const Look writing = At(lock);
  lock.EndWrite();
  EXPECT_EQ(At(lock), writing);
  Party reader(lock);
  reader.StartBeginRead();
  EXPECT_TRUE(reader.Blocks());
  writer.EndWrite();
  reader.Join();
  reader.EndRead();
  writer.EndWrite();
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, LeavesTheLastErrorAlone) {
  QsRWLock lock;
  QsSetLastError(77);
  lock.BeginRead();
  EXPECT_EQ(QsGetLastError(), 77);
  lock.BeginWrite();
  EXPECT_EQ(QsGetLastError(), 77);
  lock.EndWrite();
  EXPECT_EQ(QsGetLastError(), 77);
  lock.EndRead();
  EXPECT_EQ(QsGetLastError(), 77);
}

// ---- what the steps, each on its own, would get wrong ---------------------------------------------------------------

// A writer that reads waits for another reader. The signal that let it in must not let it in again.
TEST(QsRWLock, TheSignalOfAnEarlierUpgradeLetsNoWriterIn) {
  QsRWLockImpl lock;
  Party upgrader(lock);
  Party other(lock);
  upgrader.BeginRead();
  for (int round = 0; round < 3; ++round) {
    other.BeginRead();
    upgrader.StartBeginWrite();
    UntilAWriterWaits(lock);
    EXPECT_TRUE(upgrader.Blocks());
    other.EndRead();
    upgrader.Join();
    upgrader.EndWrite();
  }
  upgrader.EndRead();
  EXPECT_TRUE(IsFree(lock));
}

/// Two calls that begin at the same moment: both come as far as the spin lock.
void AtOnce(QsRWLockImpl& lock, Party& one, const std::function<void()>& first, Party& other,
            const std::function<void()>& second) {
  lock.spin.Acquire(1);
  one.Start(first);
  other.Start(second);
  std::this_thread::yield();
  lock.spin.Release();
}

// Beside the end of one read another begins. The end must not signal that nobody reads.
TEST(QsRWLock, ALateSignalOfAReaderLetsNoWriterIn) {
  QsRWLockImpl lock;
  Party one(lock);
  Party other(lock);
  Party writer(lock);
  for (int round = 0; round < 200; ++round) {
    one.BeginRead();
    AtOnce(
        lock, one, [&] { lock.EndRead(); }, other, [&] { lock.BeginRead(); });
    one.Join();
    other.Join();
    writer.StartBeginWrite();
    UntilAWriterWaits(lock);
    std::this_thread::yield();
    ASSERT_FALSE(At(lock).writeActive);
    other.EndRead();
    writer.Join();
    writer.EndWrite();
  }
  EXPECT_TRUE(IsFree(lock));
}

// Beside the end of a read a write begins. Its count must be of one moment with the slots.
TEST(QsRWLock, AWriteBesideTheEndOfAReadLosesNoCount) {
  QsRWLockImpl lock;
  Party reader(lock);
  Party writer(lock);
  for (int round = 0; round < 500; ++round) {
    reader.BeginRead();
    AtOnce(
        lock, reader, [&] { lock.EndRead(); }, writer, [&] { lock.BeginWrite(); });
    reader.Join();
    writer.Join();
    ASSERT_EQ(At(lock).savedReaderCount, 0);
    ASSERT_EQ(At(lock).readerCount, 1);
    writer.EndWrite();
    ASSERT_TRUE(IsFree(lock));
  }
}

// ---- many at once ---------------------------------------------------------------------------------------------------

/// Plain: only the lock orders its uses. Both halves agree whenever nobody writes.
struct Shared {
  long half = 0;
  long other = 0;

  void Change() {
    ++half;
    std::this_thread::yield();
    ++other;
  }
  bool IsWhole() const { return half == other; }
};

class Stress {
 public:
  void Read() {
    const QsReadSyncer outer(&_lock);
    Check();
    const QsReadSyncer inner(&_lock);
    Check();
  }

  void Write() {
    const QsWriteSyncer outer(&_lock);
    Check();
    _shared.Change();
    const QsReadSyncer reading(&_lock);
    const QsWriteSyncer inner(&_lock);
    _shared.Change();
    Check();
  }

  /// One thread only may do that, and no other may write.
  void Upgrade() {
    const QsReadSyncer reading(&_lock);
    const long seen = _shared.half;
    Check();
    const QsWriteSyncer writing(&_lock);
    _broken = _broken || seen != _shared.half;
    _shared.Change();
  }

  const Shared& Result() const { return _shared; }
  bool IsBroken() const { return _broken; }

 private:
  void Check() { _broken = _broken || !_shared.IsWhole(); }

  QsRWLock _lock;
  Shared _shared;
  std::atomic<bool> _broken{false};
};

void InThreads(const std::vector<std::function<void()>>& calls, int rounds) {
  std::vector<std::thread> threads;
  for (const auto& call : calls) {
    threads.emplace_back([&call, rounds] {
      for (int i = 0; i < rounds; ++i) {
        call();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(QsRWLockStress, ReadersAndWriters) {
  Stress stress;
  const auto read = [&] { stress.Read(); };
  const auto write = [&] { stress.Write(); };
  InThreads({read, write, read, write, read, read}, 3000);
  EXPECT_FALSE(stress.IsBroken());
  EXPECT_EQ(stress.Result().half, 2 * 2 * 3000);
  EXPECT_TRUE(stress.Result().IsWhole());
}

TEST(QsRWLockStress, ReadersAndOneThatUpgrades) {
  Stress stress;
  const auto read = [&] { stress.Read(); };
  InThreads({read, read, read, [&] { stress.Upgrade(); }, read, read}, 3000);
  EXPECT_FALSE(stress.IsBroken());
  EXPECT_EQ(stress.Result().half, 3000);
  EXPECT_TRUE(stress.Result().IsWhole());
}

TEST(QsRWLockStress, WritersOnly) {
  Stress stress;
  const auto write = [&] { stress.Write(); };
  InThreads({write, write, write}, 3000);
  EXPECT_FALSE(stress.IsBroken());
  EXPECT_EQ(stress.Result().half, 2 * 3 * 3000);
}

// ---- without a state ------------------------------------------------------------------------------------------------

// Every allocation of the constructor fails once.
TEST(QsRWLock, WithoutItsStateDoesNothing) {
  int failed = 0;
  for (bool whole = false; !whole; ++failed) {
    failingAllocation = failed + 1;
    QsRWLock lock;
    whole = failingAllocation != 0;
    failingAllocation = 0;
    if (whole) {
      break;
    }
    lock.BeginWrite();
    std::thread([&] {
      lock.BeginWrite();  // would wait for ever
      lock.BeginRead();
      lock.EndRead();
      lock.EndWrite();
    }).join();
    lock.EndWrite();
    const QsReadSyncer reading(&lock);
    const QsWriteSyncer writing(&lock);
  }
  EXPECT_GE(failed, 4);  // the state, its slots, its lock, its event
}

// ---- guards ---------------------------------------------------------------------------------------------------------

TEST(QsReadSyncer, NullDoesNothing) { EXPECT_NO_THROW(QsReadSyncer(nullptr)); }

TEST(QsWriteSyncer, NullDoesNothing) { EXPECT_NO_THROW(QsWriteSyncer(nullptr)); }

TEST(QsReadSyncer, ReadsForTheBlock) {
  QsRWLock lock;
  Actor writer;
  {
    const QsReadSyncer reading(&lock);
    const QsReadSyncer again(&lock);
    writer.Start([&] { lock.BeginWrite(); });
    EXPECT_TRUE(writer.Blocks());
  }
  writer.Join();
  writer.Do([&] { lock.EndWrite(); });
}

TEST(QsWriteSyncer, WritesForTheBlock) {
  QsRWLock lock;
  Actor reader;
  {
    const QsWriteSyncer writing(&lock);
    const QsWriteSyncer again(&lock);
    reader.Start([&] { lock.BeginRead(); });
    EXPECT_TRUE(reader.Blocks());
  }
  reader.Join();
  reader.Do([&] { lock.EndRead(); });
}

TEST(QsRWLock, GuardsEndWhenAnExceptionPasses) {
  QsRWLock lock;
  try {
    const QsReadSyncer reading(&lock);
    const QsWriteSyncer writing(&lock);
    throw std::runtime_error("x");
  } catch (const std::runtime_error&) {
  }
  std::thread([&] { const QsWriteSyncer writing(&lock); }).join();  // waits for it
}

TEST(QsRWLock, GuardsMayBeDestroyedThroughABaseAndLetNothingOut) {
  static_assert(std::has_virtual_destructor_v<QsReadSyncer> && std::is_nothrow_destructible_v<QsReadSyncer>);
  static_assert(std::has_virtual_destructor_v<QsWriteSyncer> && std::is_nothrow_destructible_v<QsWriteSyncer>);
  static_assert(!std::is_copy_constructible_v<QsReadSyncer> && !std::is_copy_constructible_v<QsWriteSyncer>);
  static_assert(std::is_constructible_v<QsReadSyncer, const QsRWLock*> && std::is_nothrow_constructible_v<QsRWLock>);
}

// ---- spinning and killing -------------------------------------------------------------------------------------------

#ifndef _WIN32

TEST(QsRWLock, LongSpinsEndInASleep) {
  QsRWLockImpl lock;
  lock.spin.Acquire(1);
  Waiter waiter([&] {
    QsSetLastError(77);
    lock.BeginRead();
    EXPECT_EQ(QsGetLastError(), 77);
    lock.EndRead();
  });
  waiter.UntilAsleep();
  EXPECT_FALSE(waiter.HasEnded());
  lock.spin.Release();
  waiter.Join();
  EXPECT_TRUE(waiter.HasEnded());
}

// Where it would sleep, the exception of a cancellation could not get out.
TEST(QsRWLock, ACancelledThreadIsNotStoppedInALongSpin) {
  QsRWLockImpl lock;
  lock.spin.Acquire(1);
  Waiter waiter([&] {
    pthread_cancel(pthread_self());
    lock.BeginRead();
    lock.EndRead();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  });
  waiter.UntilAsleep();
  lock.spin.Release();
  waiter.Join();
  EXPECT_TRUE(waiter.HasEnded());
}

TEST(QsRWLock, AKilledWaiterLeavesItUsable) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  QsRWLock lock;
  lock.BeginWrite();
  Waiter reader([&] { const QsReadSyncer reading(&lock); });
  Waiter writer([&] { const QsWriteSyncer writing(&lock); });
  for (Waiter* const waiter : {&reader, &writer}) {
    waiter->UntilAsleep();
    waiter->AskToEnd();
    waiter->Interrupt();
    waiter->Join();
    EXPECT_FALSE(waiter->HasEnded());
  }
  lock.EndWrite();
  std::thread([&] { const QsWriteSyncer writing(&lock); }).join();
}

/// Asks a thread to end when it has done the first step; true when it came to its last one and did not return from it.
bool IsSparedBetween(const std::function<void()>& begin, const std::function<void()>& end) {
  std::atomic<bool> begun{false};
  std::atomic<bool> asked{false};
  std::atomic<bool> ends{false};
  Waiter thread([&] {
    begin();
    begun = true;
    Until([&] { return asked.load(); });
    ends = true;
    end();
  });
  Until([&] { return begun.load(); });
  thread.AskToEnd();
  asked = true;
  thread.Join();
  return ends && !thread.HasEnded();
}

TEST(QsRWLock, AReaderEndsWhenItHasEndedItsLastRead) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  QsRWLockImpl lock;
  const auto begin = [&] {
    lock.BeginRead();
    lock.BeginRead();
    lock.EndRead();
  };
  EXPECT_TRUE(IsSparedBetween(begin, [&] { lock.EndRead(); }));
  EXPECT_TRUE(IsFree(lock));
}

TEST(QsRWLock, AWriterEndsWhenItHasEndedItsWrite) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer waits for the end of a thread that was killed";
#endif
  QsRWLockImpl lock;
  EXPECT_TRUE(IsSparedBetween([&] { lock.BeginWrite(); }, [&] { lock.EndWrite(); }));
  EXPECT_TRUE(IsFree(lock));
  std::thread([&] {
    lock.BeginWrite();
    lock.EndWrite();
  }).join();
}

// ---- system calls ---------------------------------------------------------------------------------------------------

/// What the end of a child says that makes the calls where every system call but the one to end is deadly.
int WithoutSystemCalls(void (*calls)(const QsRWLock&)) {
  const QsRWLock lock;
  const pid_t child = fork();
  if (child == 0) {
    lock.BeginRead();
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
      _exit(2);
    }
    calls(lock);
    syscall(SYS_exit, 0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

TEST(QsRWLock, ReadingAgainMakesNoSystemCall) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "a sanitizer makes system calls, and its own thread outlives the end of the child's";
#endif
  const int caught = WithoutSystemCalls([](const QsRWLock&) { syscall(SYS_getppid); });
  if (WIFEXITED(caught) && WEXITSTATUS(caught) == 2) {
    GTEST_SKIP() << "this kernel or container lets no process forbid its own system calls";
  }
  ASSERT_TRUE(WIFSIGNALED(caught) && WTERMSIG(caught) == SIGKILL) << caught;
  const int status = WithoutSystemCalls([](const QsRWLock& lock) {
    for (int i = 0; i < 10000; ++i) {
      lock.BeginRead();
      lock.BeginRead();
      lock.EndRead();
      lock.EndRead();
    }
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

#endif

}  // namespace
