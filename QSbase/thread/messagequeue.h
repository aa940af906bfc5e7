/// \file
/// The message queue of one thread (internal). Twins: posix/messagequeue.cpp, win32/messagequeue.cpp.
#ifndef QSBASE_THREAD_MESSAGEQUEUE_H
#define QSBASE_THREAD_MESSAGEQUEUE_H

#include <memory>

struct QsMSG;

namespace qsbase::detail {

/// Made with a QsThreadMQ, opened by its thread before that enters its body, closed when the body has ended or was
/// killed. Post() and Close() may be called from any thread.
class MessageQueue {
 public:
  /// Null when memory is short.
  static std::shared_ptr<MessageQueue> Make();
  virtual ~MessageQueue() = default;

  /// Makes it the queue of the calling thread; from now on posts arrive.
  virtual void Open() = 0;

  /// Refuses posts from now on and forgets what was posted. Called on the queue's own thread, or after its death.
  virtual void Close() = 0;

  /// False when the queue is not open, or the system refuses.
  virtual bool Post(const QsMSG& message) = 0;

  /// The next message of the calling thread's queue whose id is in the range (0 and 0: all; the quit message always
  /// is), waited for without limit. False when the system fails.
  static bool Get(QsMSG& message, int filterMin, int filterMax);

  /// The same without waiting: false when there is none. It stays in the queue unless \p remove.
  static bool Peek(QsMSG& message, int filterMin, int filterMax, bool remove);
};

}  // namespace qsbase::detail

#endif
