/// \file
/// An event in a futex word, which may lie in shared memory.
///
/// The word holds the signal in its lowest bit and above it how often the signal has been taken away. A waiter for a
/// manual-reset event notes the word at its start: any other word says that it was released, though the signal may be
/// gone again. The signal of an auto-reset event is taken by who takes it away.
#ifndef QSBASE_SYNC_POSIX_FUTEXEVENT_H
#define QSBASE_SYNC_POSIX_FUTEXEVENT_H

#include <QSbase/sync/eventos.h>
#include <QSbase/sync/posix/futex.h>

namespace qsbase::detail {

/// The word of an event that nobody has used yet.
constexpr std::uint32_t FreshEventWord(bool initialState) { return initialState ? 1 : 0; }

class FutexEvent : public EventOs {
 public:
  /// \p word must stay for as long as the event.
  FutexEvent(FutexWord& word, bool manualReset, FutexScope scope) noexcept
      : _word(word), _manualReset(manualReset), _scope(scope) {}

  void Set() noexcept override;
  void Reset() noexcept override;
  WaitResult Wait(int timeoutMs) noexcept override;

 private:
  bool TryTake(std::uint32_t& seen) noexcept;

  FutexWord& _word;
  const bool _manualReset;
  const FutexScope _scope;
  FutexWord _waiters{0};
};

}  // namespace qsbase::detail

#endif
