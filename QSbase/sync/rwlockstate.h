/// \file
/// How the reader/writer lock works (internal), written over the primitives it stands on, so that a test can run this
/// very code through every order in which threads may take its steps.
///
/// `writeLock` lets one writer, or one thread that begins to read, in at a time. All else stands under `spin`: who
/// holds it sees slots, counts, flags and the event agree. Order: `writeLock` before `spin`, never in reverse.
#ifndef QSBASE_SYNC_RWLOCKSTATE_H
#define QSBASE_SYNC_RWLOCKSTATE_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>

namespace qsbase::detail {

/// `System` supplies
/// - Section, a recursive lock, with Enter(Section&), Leave(Section&) and IsOwned(const Section&),
/// - Event, a manual-reset event, not signalled at first, with SetEvent(), ResetEvent() and WaitFor(int),
/// - Spin, a lock with Acquire(int thread) and Release(),
/// - ThreadId(), never 0,
/// - HoldBackKill() and AllowKill(), called when the calling thread becomes a reader and when it is one no more.
template <typename System>
struct RWLockState {
  /// A thread that reads, and how often; thread 0 for a free slot.
  struct Slot {
    std::int32_t threadId = 0;
    std::int32_t count = 0;
  };

  static constexpr std::int32_t kFirstSlots = 4;
  static constexpr std::int32_t kMoreSlots = 3;

  typename System::Section writeLock;  ///< held by the writer for the whole write
  typename System::Event noReaders;    ///< signalled to the waiting writer when nobody else reads
  std::int32_t readerCount = 0;        ///< reads, each counted; while a write is active how deep it is
  std::int32_t savedReaderCount = 0;   ///< the writer's own reads, while its write is active
  std::int32_t slotCount = kFirstSlots;
  std::unique_ptr<Slot[]> slots = std::make_unique<Slot[]>(kFirstSlots);
  std::int32_t waitingWriter = 0;  ///< the thread that waits for readers to end; 0 for none
  typename System::Spin spin;
  bool writeActive = false;  ///< changed under both locks, so either one is enough to look at it

  void BeginRead();
  void EndRead();
  void BeginWrite();
  void EndWrite();

 private:
  class SpinGuard;
  class SectionGuard;

  Slot* FindSlot(std::int32_t threadId);
  bool OnlyWaitingWriterReads() const;
  bool ReadAgain(std::int32_t self);
  [[gnu::noinline]] void ReadFirst(std::int32_t self);
  bool TakeFreeSlot(std::int32_t self);
  void AddSlots(std::int32_t self);
  bool StartWriting(std::int32_t self);
};

template <typename System>
class RWLockState<System>::SpinGuard {
 public:
  SpinGuard(typename System::Spin& spin, std::int32_t self) : _spin(spin) { _spin.Acquire(self); }
  ~SpinGuard() { _spin.Release(); }
  SpinGuard(const SpinGuard&) = delete;
  SpinGuard& operator=(const SpinGuard&) = delete;

 private:
  typename System::Spin& _spin;
};

template <typename System>
class RWLockState<System>::SectionGuard {
 public:
  explicit SectionGuard(typename System::Section& section) : _section(section) { System::Enter(_section); }
  ~SectionGuard() { System::Leave(_section); }
  SectionGuard(const SectionGuard&) = delete;
  SectionGuard& operator=(const SectionGuard&) = delete;

 private:
  typename System::Section& _section;
};

template <typename System>
void RWLockState<System>::BeginRead() {
  const std::int32_t self = System::ThreadId();
  if (!ReadAgain(self)) {
    ReadFirst(self);
  }
}

template <typename System>
void RWLockState<System>::ReadFirst(std::int32_t self) {
  const SectionGuard entered(writeLock);
  if (writeActive) {
    return;  // the writer's own reads are not counted
  }
  while (!TakeFreeSlot(self)) {
    AddSlots(self);
  }
}

template <typename System>
bool RWLockState<System>::ReadAgain(std::int32_t self) {
  const SpinGuard guard(spin, self);
  Slot* const slot = FindSlot(self);
  if (slot != nullptr && !writeActive) {
    ++readerCount;
    ++slot->count;
  }
  return slot != nullptr;
}

/// Makes the calling thread a reader, unless all slots are taken. It owns `writeLock`, so nobody else takes one.
template <typename System>
bool RWLockState<System>::TakeFreeSlot(std::int32_t self) {
  const SpinGuard guard(spin, self);
  Slot* const slot = FindSlot(0);
  if (slot == nullptr) {
    return false;
  }
  *slot = {self, 1};
  ++readerCount;
  System::HoldBackKill();
  return true;
}

/// The calling thread owns `writeLock`, so the number of slots stays.
template <typename System>
void RWLockState<System>::AddSlots(std::int32_t self) {
  const std::int32_t newCount = slotCount + kMoreSlots;
  auto more = std::make_unique<Slot[]>(static_cast<std::size_t>(newCount));
  const SpinGuard guard(spin, self);
  std::copy_n(slots.get(), slotCount, more.get());
  slots.swap(more);
  slotCount = newCount;
}

template <typename System>
void RWLockState<System>::EndRead() {
  const std::int32_t self = System::ThreadId();
  const SpinGuard guard(spin, self);
  Slot* const slot = FindSlot(self);
  if (writeActive || slot == nullptr) {
    return;
  }
  --readerCount;
  if (--slot->count == 0) {
    slot->threadId = 0;
    System::AllowKill();
  }
  if (OnlyWaitingWriterReads()) {  // without a writer nobody asks the event, which is not cheap
    noReaders.SetEvent();
  }
}

template <typename System>
void RWLockState<System>::BeginWrite() {
  const std::int32_t self = System::ThreadId();
  System::Enter(writeLock);  // until EndWrite()
  if (writeActive) {
    ++readerCount;  // all but the writer leave it alone meanwhile
    return;
  }
  while (!StartWriting(self)) {
    noReaders.WaitFor(-1);
  }
}

/// False while another thread reads; the event tells of the last one's end. New ones cannot come: who has no slot yet
/// awaits `writeLock`.
template <typename System>
bool RWLockState<System>::StartWriting(std::int32_t self) {
  const SpinGuard guard(spin, self);
  waitingWriter = self;
  if (!OnlyWaitingWriterReads()) {
    noReaders.ResetEvent();  // it may still tell of readers who have ended long since
    return false;
  }
  savedReaderCount = readerCount;
  readerCount = 1;
  waitingWriter = 0;
  writeActive = true;
  return true;
}

template <typename System>
void RWLockState<System>::EndWrite() {
  if (!System::IsOwned(writeLock)) {
    return;  // not the writer
  }
  {
    const SpinGuard guard(spin, System::ThreadId());
    if (--readerCount == 0) {
      readerCount = savedReaderCount;
      savedReaderCount = 0;
      writeActive = false;
    }
  }
  System::Leave(writeLock);
}

template <typename System>
typename RWLockState<System>::Slot* RWLockState<System>::FindSlot(std::int32_t threadId) {
  for (Slot& slot : std::span(slots.get(), static_cast<std::size_t>(slotCount))) {
    if (slot.threadId == threadId) {
      return &slot;
    }
  }
  return nullptr;
}

template <typename System>
bool RWLockState<System>::OnlyWaitingWriterReads() const {
  return waitingWriter != 0 && std::all_of(slots.get(), slots.get() + slotCount, [this](const Slot& slot) {
           return slot.threadId == 0 || slot.threadId == waitingWriter;
         });
}

}  // namespace qsbase::detail

#endif
