/// \file
/// The message queue of one thread (internal). Twins: posix/messagequeue.cpp, win32/messagequeue.cpp.
#ifndef QSBASE_THREAD_MESSAGEQUEUE_H
#define QSBASE_THREAD_MESSAGEQUEUE_H

#include <memory>

struct QsMSG;

namespace qsbase::detail {

/// The id of the message that asks a thread to quit: the system's own on Windows.
inline constexpr int kQuitMessage = 18;

/// Made with a QsThreadMQ, opened by its thread before that enters its body, closed when the body has ended or was
/// killed. Post() and Close() may be called from any thread.
///
/// Windows has such a queue for every thread, which others post to as well; this is then a name for that one. Elsewhere
/// only threads that opened a queue have one, and it takes any number of messages that memory holds.
class MessageQueue {
 public:
  /// Null when memory is short.
  static std::shared_ptr<MessageQueue> Make() noexcept;
  MessageQueue() = default;
  virtual ~MessageQueue() = default;
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;

  /// Makes it the queue of the calling thread; from now on posts arrive. A thread has one queue, opened once.
  virtual void Open() = 0;

  /// Refuses posts from now on and forgets what was posted. Called on the queue's own thread, or after its death.
  virtual void Close() = 0;

  /// False when the queue is not open, memory is short or the system refuses. Wakes the queue's thread if it waits.
  virtual bool Post(const QsMSG& message) = 0;

  /// The next message of the calling thread's queue whose id, taken without sign, is in the range (0 and 0: all),
  /// waited for without limit. The others stay, in their order. False when the system fails, and where a thread has no
  /// queue: nobody could post to it.
  ///
  /// The quit message passes every filter; on Windows one that was posted passes as the system decides.
  static bool Get(QsMSG& message, int filterMin, int filterMax);

  /// The same without waiting: false when there is none. It stays in the queue unless \p remove. A failure leaves
  /// \p message alone.
  static bool Peek(QsMSG& message, int filterMin, int filterMax, bool remove);
};

}  // namespace qsbase::detail

#endif
