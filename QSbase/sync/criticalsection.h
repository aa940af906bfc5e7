/// \file
/// The recursive in-process lock and its scope guard. A QsCriticalSection is made to be used by several threads; a
/// guard belongs to the block that declares it.
#ifndef QSBASE_SYNC_CRITICALSECTION_H
#define QSBASE_SYNC_CRITICALSECTION_H

#include <memory>

#include <QSbase/export.h>

namespace qsbase::detail {
struct RWLockSystem;
}

/// A recursive mutual-exclusion lock: the thread that owns it may enter again and must leave as often. Leaves the
/// last-error code alone. QsThread::Kill spares the owner on Linux until it has left.
///
/// \code
/// QsCriticalSection section;
/// {
///   QsCriticalSectionAutoPtr guard(&section);
///   ++shared;
/// }
/// \endcode
class QSBASE_API QsCriticalSection {
 public:
  /// Makes a free lock. Does not throw: when its state cannot be allocated, Enter() and Leave() throw instead.
  QsCriticalSection() noexcept;
  /// The lock must be free: destroying it while a thread owns or awaits it is undefined.
  ~QsCriticalSection();
  QsCriticalSection(const QsCriticalSection&) = delete;
  QsCriticalSection& operator=(const QsCriticalSection&) = delete;

  /// Waits, without time limit, until the calling thread owns the lock.
  /// \throws ExPrecondition "QsCriticalSection::Enter - _impl is invalid" when the lock has no state.
  void Enter();

  /// Gives up one Enter() of the calling thread; the last one frees the lock. Does nothing in a thread that does not
  /// own the lock.
  /// \throws ExPrecondition "QsCriticalSection::Enter - _impl is invalid" when the lock has no state (kept: the text
  /// names Enter here too).
  void Leave();

 private:
  friend struct qsbase::detail::RWLockSystem;
  struct Impl;

  /// By the calling thread.
  bool IsOwned() const noexcept;

  std::unique_ptr<Impl> _impl;
};

/// Enters a lock for the length of a block.
class QSBASE_API QsCriticalSectionAutoPtr {
 public:
  /// Enters \p section, which must outlive the guard; null does nothing. Throws what Enter() throws.
  explicit QsCriticalSectionAutoPtr(QsCriticalSection* section);
  /// Leaves it; an exception from leaving is swallowed.
  ~QsCriticalSectionAutoPtr();
  QsCriticalSectionAutoPtr(const QsCriticalSectionAutoPtr&) = delete;
  QsCriticalSectionAutoPtr& operator=(const QsCriticalSectionAutoPtr&) = delete;

 private:
  QsCriticalSection* _section;
};

#endif
