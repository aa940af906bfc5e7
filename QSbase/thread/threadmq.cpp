#include <QSbase/thread/threadmq.h>

#include <QSbase/allocationerror.h>
#include <QSbase/thread/messagequeue.h>
#include <QSbase/thread/qsthreadimpl.h>

using qsbase::detail::MessageQueue;

QsThreadMQ::QsThreadMQ(const std::string& name, QsThreadManagerIntf* manager) : QsThread(name, manager) {
  _impl->queue = MessageQueue::Make();
  if (!_impl->queue) {
    // Kept: the text names this place, wherever it stands.
    qsbase::detail::ThrowAllocationError("QsThreadMQ::QsThreadMQ QsThreadMQImpl",
                                         ".\\QSbase/thread/qsthreadimpl_common", 342);
  }
}

QsThreadMQ::~QsThreadMQ() = default;

bool QsThreadMQ::GetMsg(QsMSG& msg, int filterMin, int filterMax) {
  msg = {};
  return MessageQueue::Get(msg, filterMin, filterMax);
}

bool QsThreadMQ::PeekMsg(QsMSG& msg, int filterMin, int filterMax, bool remove) {
  msg = {};
  return MessageQueue::Peek(msg, filterMin, filterMax, remove);
}

bool QsThreadMQ::PostMsg(int message, unsigned int wParam, long lParam) {
  return _impl && _impl->queue->Post({message, wParam, lParam});
}

void QsThreadMQ::TerminateAndQuit() {
  Terminate();
  PostMsg(qsbase::detail::kQuitMessage, 0, 0);
}

QsThreadCheckedMQ::QsThreadCheckedMQ(const std::string& name, unsigned int maxQueueSize, QsThreadManagerIntf* manager)
    : QsThreadMQ(name, manager), _maxQueueSize(static_cast<std::int32_t>(maxQueueSize)) {}

QsThreadCheckedMQ::~QsThreadCheckedMQ() = default;

bool QsThreadCheckedMQ::GetMsg(QsMSG& msg, int filterMin, int filterMax) {
  if (!QsThreadMQ::GetMsg(msg, filterMin, filterMax)) {
    return false;
  }
  --_queueSize;
  return true;
}

bool QsThreadCheckedMQ::PeekMsg(QsMSG& msg, int filterMin, int filterMax, bool remove) {
  if (!QsThreadMQ::PeekMsg(msg, filterMin, filterMax, remove)) {
    return false;
  }
  if (remove) {
    --_queueSize;
  }
  return true;
}

bool QsThreadCheckedMQ::PostMsg(int message, unsigned int wParam, long lParam) {
  if (_queueSize >= _maxQueueSize) {
    return false;
  }
  ++_queueSize;
  if (!QsThreadMQ::PostMsg(message, wParam, lParam)) {
    --_queueSize;
    return false;
  }
  return true;
}

long QsThreadCheckedMQ::GetMaxQueueSize() const { return _maxQueueSize; }

long QsThreadCheckedMQ::GetQueueSize() const { return _queueSize; }
