/// \file
/// Threads that serve a queue of small messages, with and without a bound on its size.
///
/// PostMsg() and TerminateAndQuit() may be called from any thread, GetMsg() and PeekMsg() are called on the thread
/// itself: they read the queue of whoever calls.
#ifndef QSBASE_THREAD_THREADMQ_H
#define QSBASE_THREAD_THREADMQ_H

#include <atomic>
#include <cstdint>
#include <string>

#include <QSbase/export.h>
#include <QSbase/thread/qsthread.h>

/// A message: exactly what was given to PostMsg(). Id 18 asks the thread to quit. Ids from 1024 to 49151 are free for
/// the program's own use; Windows has a meaning for others, and may do more with them than carry them.
struct QsMSG {
  int message;
  unsigned int wParam;
  long lParam;
};

/// A thread whose Execute(), supplied by a subclass, serves a message queue. The queue is there when Create() returns
/// and ends with the thread; what was not read by then is dropped.
///
/// On Windows it is the system's own message queue of the thread: what the host posts with `PostThreadMessage` arrives
/// too, and the system bounds it (10,000 messages unless configured otherwise). On Linux memory is the bound.
///
/// \code
/// class Worker : public QsThreadMQ {
///  public:
///   Worker() : QsThreadMQ("worker", nullptr) {}
///   void Execute() override {
///     QsMSG msg;
///     while (GetMsg(msg, 0, 0) && msg.message != 18) { ... }
///   }
/// };
///
/// Worker worker;
/// worker.Create();
/// worker.PostMsg(1024, 1, 2);
/// worker.TerminateAndQuit();
/// worker.WaitFor(-1);
/// \endcode
class QSBASE_API QsThreadMQ : public QsThread {
 public:
  /// As QsThread's.
  /// \throws ExMemoryAllocation naming QsThreadMQ::QsThreadMQ when memory is short.
  QsThreadMQ(const std::string& name, QsThreadManagerIntf* manager);
  ~QsThreadMQ() override;

  /// Waits without limit for the next message whose id is from \p filterMin to \p filterMax (compared as unsigned
  /// numbers; 0 and 0: any) and takes it out of the calling thread's queue. The others stay, in their order. True for
  /// every message, the quit message (18) too: look at \p msg. False, with \p msg all 0, only when the system fails; on
  /// Linux also, at once, on a thread that has no queue: nobody could post to it.
  ///
  /// The quit message passes every filter on Linux. On Windows one that was posted passes those that hold 18, and one
  /// of `PostQuitMessage` passes all.
  virtual bool GetMsg(QsMSG& msg, int filterMin, int filterMax);

  /// The same without waiting: false, with \p msg all 0, when there is no such message. Without \p remove the message
  /// stays in the queue.
  virtual bool PeekMsg(QsMSG& msg, int filterMin, int filterMax, bool remove);

  /// Puts a message at the end of the thread's queue. False when it was not: before Create(), after the thread has
  /// ended or was killed, when memory is short or the system's bound is reached.
  virtual bool PostMsg(int message, unsigned int wParam, long lParam);

  /// Terminate(), and posts the quit message, so that a body that waits in GetMsg() wakes up.
  virtual void TerminateAndQuit();
};

/// A QsThreadMQ that refuses messages while so many have been posted that were not read. Posters that race may exceed
/// the maximum by as many as they are (kept: the size is compared first and counted then).
///
/// Every message counts, the quit message of TerminateAndQuit() too, which a full queue therefore refuses: then only
/// Terminated() tells the body to end.
class QSBASE_API QsThreadCheckedMQ : public QsThreadMQ {
 public:
  /// \p maxQueueSize beyond 2147483647 becomes a negative maximum: every post is refused.
  QsThreadCheckedMQ(const std::string& name, unsigned int maxQueueSize, QsThreadManagerIntf* manager);
  ~QsThreadCheckedMQ() override;

  /// On success the size goes down by one.
  bool GetMsg(QsMSG& msg, int filterMin, int filterMax) override;

  /// On success and with \p remove the size goes down by one.
  bool PeekMsg(QsMSG& msg, int filterMin, int filterMax, bool remove) override;

  /// False, too, when the size has reached the maximum. The size goes up by one; when the message could not be posted,
  /// it goes back.
  bool PostMsg(int message, unsigned int wParam, long lParam) override;

  long GetMaxQueueSize() const;

  /// How many messages were posted and not read yet. Those that the thread left unread when it ended stay counted. On
  /// Windows what came past PostMsg() is counted down when it is read, but never up: the size may become negative.
  long GetQueueSize() const;

 private:
  std::int32_t _maxQueueSize;
  std::atomic<std::int32_t> _queueSize{0};
};

#endif
