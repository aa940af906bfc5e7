/// \file
/// The reader/writer lock and its scope guards. A QsRWLock is made to be used by several threads; a guard belongs to
/// the block that declares it.
#ifndef QSBASE_SYNC_RWLOCK_H
#define QSBASE_SYNC_RWLOCK_H

#include <memory>

#include <QSbase/export.h>

struct QsRWLockImpl;

/// A lock that many readers share or one writer has alone, recursive both ways.
///
/// - A thread that reads may read again: it never waits, not even behind a waiting writer.
/// - The writer may write again and may read. A read begun inside a write ends with that write at the latest.
/// - A reader may begin to write. It waits for the other readers, not for itself.
/// - Every begin has its end, on the same thread. An end without its begin does nothing.
/// - A lock whose state cannot be allocated does nothing at all.
///
/// What no lock of this kind can do: two readers that both want to write wait for each other for ever, and so does a
/// reader that wants to write while another writer waits for it to stop reading. Let at most one of the threads
/// upgrade, or end the read first. Holding the lock while the process forks leaves the child's copy with readers that
/// nobody can end.
///
/// Leaves the last-error code alone. On Linux QsThread::Kill spares a thread that reads, writes, or is about to write.
///
/// \code
/// QsRWLock lock;
/// {
///   const QsReadSyncer reading(&lock);
///   Show(cache);
/// }
/// {
///   const QsWriteSyncer writing(&lock);
///   cache.clear();
/// }
/// \endcode
class QSBASE_API QsRWLock {
 public:
  /// Makes a free lock. Does not throw.
  QsRWLock() noexcept;
  /// The lock must be free: destroying it while a thread has or awaits it is undefined.
  ~QsRWLock();
  QsRWLock(const QsRWLock&) = delete;
  QsRWLock& operator=(const QsRWLock&) = delete;

  /// Waits, without time limit, until no other thread writes or waits to write, unless the calling thread reads
  /// already. \throws std::bad_alloc when there is no memory for one more reader; then nothing has changed.
  void BeginRead() const;

  /// Ends one BeginRead() of the calling thread.
  void EndRead() const;

  /// Waits, without time limit, until no other thread reads or writes.
  void BeginWrite();

  /// Ends one BeginWrite() of the calling thread; the last one lets the others in.
  void EndWrite();

 private:
  std::unique_ptr<QsRWLockImpl> _impl;
};

/// Reads for the length of a block.
class QSBASE_API QsReadSyncer {
 public:
  /// Begins to read under \p lock, which must outlive the guard; null does nothing. Throws what BeginRead() throws.
  explicit QsReadSyncer(const QsRWLock* lock);
  /// Ends it; an exception from ending is swallowed.
  virtual ~QsReadSyncer();
  QsReadSyncer(const QsReadSyncer&) = delete;
  QsReadSyncer& operator=(const QsReadSyncer&) = delete;

 private:
  const QsRWLock* _lock;
};

/// Writes for the length of a block.
class QSBASE_API QsWriteSyncer {
 public:
  /// Begins to write under \p lock, which must outlive the guard; null does nothing.
  explicit QsWriteSyncer(QsRWLock* lock);
  /// Ends it; an exception from ending is swallowed.
  virtual ~QsWriteSyncer();
  QsWriteSyncer(const QsWriteSyncer&) = delete;
  QsWriteSyncer& operator=(const QsWriteSyncer&) = delete;

 private:
  QsRWLock* _lock;
};

#endif
