#include <QSbase/thread/executeevery.h>

#include <chrono>

#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/thread/wallclock.h>

namespace {

constexpr int kAnnouncingLevel = 5;

// Not std::time, whose seconds have 32 bits on some targets.
std::int64_t MachineClock() {
  using namespace std::chrono;
  return floor<seconds>(system_clock::now()).time_since_epoch().count();
}

// True for the length of a block.
class Flag {
 public:
  explicit Flag(bool& flag) : _flag(flag) { _flag = true; }
  ~Flag() { _flag = false; }
  Flag(const Flag&) = delete;
  Flag& operator=(const Flag&) = delete;

 private:
  bool& _flag;
};

}  // namespace

namespace qsbase::detail {

constinit std::atomic<WallClock> wallClock = &MachineClock;

}  // namespace qsbase::detail

ExecuteEvery::ExecuteEvery(const std::string& name, int intervalSeconds, Callback callback, void* userData)
    : _name(name), _userData(userData), _interval(intervalSeconds), _last(0), _callback(callback), _isRunning(false) {}

ExecuteEvery::~ExecuteEvery() = default;

void ExecuteEvery::Check() {
  if (!(_interval > 0) || _callback == nullptr) {
    return;
  }
  QsCriticalSectionAutoPtr guard(&_lock);
  if (!_isRunning && IsDue()) {  // it runs only when this thread is inside it
    Run();
  }
}

bool ExecuteEvery::IsDue() {
  const std::int64_t now = qsbase::detail::wallClock.load()();
  if (_last == 0) {
    _last = now;
    return false;
  }
  return now < _last || static_cast<double>(now - _last) > _interval;
}

void ExecuteEvery::Run() {
  const Flag running(_isRunning);
  if (QsGetLogLevel() >= kAnnouncingLevel) {
    QsLogMsg(qsbase::detail::kLogInfo5, "ExecuteEvery( " + _name + " ) is invoking callback...");
  }
  _callback(this, _userData);
  _last = qsbase::detail::wallClock.load()();
}
