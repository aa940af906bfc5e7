#include <QSbase/thread/messagequeue.h>

#include <QSbase/thread/threadmq.h>
#include <QSbase/win32/windowsapi.h>

#include <atomic>
#include <new>

namespace qsbase::detail {

namespace {

/// The system keeps the queue and ends it with its thread; this is only whose it is.
class ThreadQueue : public MessageQueue {
 public:
  void Open() override;
  void Close() override { _thread = 0; }
  bool Post(const QsMSG& message) override;

 private:
  std::atomic<DWORD> _thread{0};
};

void ThreadQueue::Open() {
  // The first question makes the queue.
  MSG message;
  PeekMessageA(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
  _thread = GetCurrentThreadId();
}

bool ThreadQueue::Post(const QsMSG& message) {
  const DWORD thread = _thread;
  return thread != 0 &&
         PostThreadMessageA(thread, static_cast<UINT>(message.message), message.wParam, message.lParam) != 0;
}

QsMSG ToQsMSG(const MSG& message) {
  return {static_cast<int>(message.message), static_cast<unsigned int>(message.wParam),
          static_cast<long>(message.lParam)};
}

}  // namespace

std::shared_ptr<MessageQueue> MessageQueue::Make() noexcept {
  try {
    return std::make_shared<ThreadQueue>();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool MessageQueue::Get(QsMSG& message, int filterMin, int filterMax) {
  constexpr BOOL kFailure = -1;  // 0 is the quit message, a message like others here
  MSG next;
  if (GetMessageA(&next, nullptr, static_cast<UINT>(filterMin), static_cast<UINT>(filterMax)) == kFailure) {
    return false;
  }
  message = ToQsMSG(next);
  return true;
}

bool MessageQueue::Peek(QsMSG& message, int filterMin, int filterMax, bool remove) {
  MSG next;
  if (PeekMessageA(&next, nullptr, static_cast<UINT>(filterMin), static_cast<UINT>(filterMax),
                   remove ? PM_REMOVE : PM_NOREMOVE) == 0) {
    return false;
  }
  message = ToQsMSG(next);
  return true;
}

}  // namespace qsbase::detail
