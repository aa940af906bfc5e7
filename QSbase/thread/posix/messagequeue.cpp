#include <QSbase/thread/messagequeue.h>

#include <QSbase/killguard.h>
#include <QSbase/sync/lock.h>
#include <QSbase/sync/posix/futex.h>
#include <QSbase/thread/threadmq.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <new>

namespace qsbase::detail {

namespace {

using Messages = std::deque<QsMSG>;

/// An emptied store that held more gives its memory back.
constexpr std::size_t kKeptSize = 4096;

class Filter {
 public:
  Filter(int least, int most) : _least(static_cast<unsigned int>(least)), _most(static_cast<unsigned int>(most)) {}

  bool Passes(const QsMSG& message) const {
    const unsigned int id = static_cast<unsigned int>(message.message);
    return (_least == 0 && _most == 0) || (id >= _least && id <= _most) || message.message == kQuitMessage;
  }

 private:
  unsigned int _least;
  unsigned int _most;
};

/// A search for the first message that passes; `taken` and `posted` are how many of each store have not.
struct Search {
  Filter filter;
  bool remove;
  std::size_t taken = 0;
  std::size_t posted = 0;
};

bool Find(Messages& messages, std::size_t& searched, const Search& search, QsMSG& message) {
  const auto passes = [&search](const QsMSG& candidate) { return search.filter.Passes(candidate); };
  const auto start = messages.begin() + static_cast<std::ptrdiff_t>(searched);
  const auto found = std::find_if(start, messages.end(), passes);
  if (found == messages.end()) {
    searched = messages.size();
    return false;
  }
  message = *found;
  if (search.remove && found == messages.begin()) {
    messages.pop_front();  // the usual case, and several times as fast
  } else if (search.remove) {
    messages.erase(found);
  }
  return true;
}

/// Posters fill one store. The thread empties another without a lock, and takes over the first when its own is empty.
/// Whoever touches a store holds back a kill, so that none is left half changed.
class ThreadQueue : public MessageQueue {
 public:
  void Open() override;
  void Close() override;
  bool Post(const QsMSG& message) override;

  /// On the queue's own thread. False, when not to \p wait, if there is none.
  bool Next(Search search, QsMSG& message, bool wait);

 private:
  bool Store(const QsMSG& message);
  void TakeOver();
  void ShrinkTaken() noexcept;

  Lock _lock;
  // Under the lock; the word is slept on without it.
  bool _isOpen = false;
  bool _isAwaited = false;
  Messages _posted;
  FutexWord _wakeUps{0};
  // The thread's own: what is older than all of _posted, and how much it was.
  Messages _taken;
  std::size_t _takenSize = 0;
};

constinit thread_local ThreadQueue* ownQueue = nullptr;

void ThreadQueue::Open() {
  const KillGuard guard;
  const std::lock_guard lock(_lock);
  _isOpen = true;
  ownQueue = this;
}

void ThreadQueue::Close() {
  const KillGuard guard;
  const std::lock_guard lock(_lock);
  _isOpen = false;
  _posted.clear();
  _taken.clear();
  if (ownQueue == this) {
    ownQueue = nullptr;
  }
}

bool ThreadQueue::Post(const QsMSG& message) {
  const KillGuard guard;
  {
    const std::lock_guard lock(_lock);
    if (!_isOpen || !Store(message)) {
      return false;
    }
    if (!_isAwaited) {
      return true;
    }
    _isAwaited = false;
    _wakeUps.fetch_add(1, std::memory_order_relaxed);
  }
  FutexWake(_wakeUps, 1);
  return true;
}

bool ThreadQueue::Store(const QsMSG& message) {
  try {
    _posted.push_back(message);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool ThreadQueue::Next(Search search, QsMSG& message, bool wait) {
  const KillGuard guard;
  for (;;) {
    if (Find(_taken, search.taken, search, message)) {
      return true;
    }
    std::unique_lock lock(_lock);
    if (_taken.empty() && !_posted.empty()) {
      TakeOver();
      continue;
    }
    if (Find(_posted, search.posted, search, message)) {
      return true;
    }
    if (!wait) {
      return false;
    }
    _isAwaited = true;
    const std::uint32_t wakeUps = _wakeUps.load(std::memory_order_relaxed);
    lock.unlock();
    FutexWait(_wakeUps, wakeUps);
    if (IsKillDue()) {
      EndKilledThread();
    }
  }
}

void ThreadQueue::TakeOver() {
  if (_takenSize > kKeptSize) {
    ShrinkTaken();
  }
  _taken.swap(_posted);
  _takenSize = _taken.size();
}

void ThreadQueue::ShrinkTaken() noexcept {
  try {
    Messages().swap(_taken);
  } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): then it keeps what it has
  }
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
  return ownQueue != nullptr && ownQueue->Next({{filterMin, filterMax}, true}, message, true);
}

bool MessageQueue::Peek(QsMSG& message, int filterMin, int filterMax, bool remove) {
  return ownQueue != nullptr && ownQueue->Next({{filterMin, filterMax}, remove}, message, false);
}

}  // namespace qsbase::detail
