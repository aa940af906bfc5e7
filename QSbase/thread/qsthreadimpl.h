/// \file
/// What a QsThread and its running body share (internal). Flags are atomic: one thread writes, others poll.
#ifndef QSBASE_THREAD_QSTHREADIMPL_H
#define QSBASE_THREAD_QSTHREADIMPL_H

#include <QSbase/thread/messagequeue.h>

#include <atomic>
#include <memory>
#include <string>

class QsThread;

struct QsThreadImpl {
  std::atomic<int> threadId{0};
  std::atomic<bool> starting{true};
  std::atomic<bool> inWorker{false};
  std::atomic<bool> created{false};
  std::atomic<bool> waitedFor{false};
  std::atomic<QsThread*> owner{nullptr};
  std::atomic<bool> terminated{false};
  std::string name;
  /// Of a QsThreadMQ; null for other threads. The body opens it before inWorker is set.
  std::shared_ptr<qsbase::detail::MessageQueue> queue;
};

#endif
