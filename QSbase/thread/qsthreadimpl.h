/// \file
/// What a QsThread and its running body share (internal). Flags are atomic: one thread writes, others poll.
#ifndef QSBASE_THREAD_QSTHREADIMPL_H
#define QSBASE_THREAD_QSTHREADIMPL_H

#include <QSbase/thread/messagequeue.h>
#include <QSbase/thread/threados.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>

class QsThread;
class QsThreadManagerIntf;

struct QsThreadImpl {
  explicit QsThreadImpl(std::string threadName) : name(std::move(threadName)) {}

  /// Whether there is a handle, as the operations call it: from Create() on, also when the thread has ended.
  bool HasHandle() const noexcept { return thread.IsStarted(); }

  qsbase::detail::OsThread thread;
  std::atomic<int> threadId{0};
  std::atomic<bool> starting{true};
  std::atomic<bool> inWorker{false};
  std::atomic<bool> created{false};
  std::atomic<bool> waitedFor{false};
  /// Null when the object is gone, which the body may outlive.
  std::atomic<QsThread*> owner{nullptr};
  std::atomic<bool> terminated{false};
  const std::string name;
  /// Of a QsThreadMQ; null for other threads. The body opens it before inWorker is set.
  std::shared_ptr<qsbase::detail::MessageQueue> queue;

  /// Set by Create() for the body.
  QsThreadManagerIntf* manager = nullptr;
  /// Taken by the one Create() that starts the thread.
  std::atomic<bool> startClaimed{false};
  /// The body's share of this object, and whether nobody has taken it back yet.
  std::shared_ptr<QsThreadImpl> bodyShare;
  std::atomic<bool> bodyHasShare{false};
};

namespace qsbase::detail {

/// The body of every QsThread: a QsThreadImpl.
void WorkerFunction(void* impl);

/// The list of all threads, in order of construction.
void AddThread(QsThread* thread, const std::shared_ptr<QsThreadImpl>& impl);
void RemoveThread(QsThread* thread);

}  // namespace qsbase::detail

#endif
