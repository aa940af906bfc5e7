// A million messages from several threads, and a day of a callback that runs every so many seconds.
#include <reliability/load.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <QSbase/thread/executeevery.h>
#include <QSbase/thread/threadmq.h>
#include <QSbase/thread/wallclock.h>

#include <common/platform.h>

namespace qsbase::testing {

namespace {

// ---- messages -------------------------------------------------------------------------------------------------------

constexpr std::size_t kSenders = 4;
constexpr int kFirstId = 1024;
constexpr int kQuit = 18;
constexpr unsigned kBound = 1000;
constexpr unsigned kMixer = 2654435761U;

long PayloadOf(std::size_t sender, unsigned number) {
  return static_cast<long>((number * kMixer + static_cast<unsigned>(sender)) >> 4);
}

/// What the receiving thread saw.
struct Received {
  std::array<std::int64_t, kSenders> next{};
  std::int64_t wrong = 0;
  long mostWaiting = 0;
};

template <class Queue>
class Receiver : public Queue {
 public:
  template <class... Arguments>
  explicit Receiver(Arguments... arguments) : Queue("receiver", arguments..., nullptr) {}

  void Execute() override {
    while (!_open.load()) {
      std::this_thread::yield();
    }
    QsMSG message;
    while (this->GetMsg(message, 0, 0) && message.message != kQuit) {
      Take(message);
    }
  }

  /// Until then it reads nothing.
  void Open() { _open = true; }

  const Received& What() const { return _received; }

 private:
  void Take(const QsMSG& message) {
    const auto sender = static_cast<std::size_t>(message.message - kFirstId);
    if (sender >= kSenders || message.wParam != _received.next[sender] ||
        message.lParam != PayloadOf(sender, message.wParam)) {
      ++_received.wrong;
      return;
    }
    ++_received.next[sender];
    if constexpr (std::is_same_v<Queue, QsThreadCheckedMQ>) {
      _received.mostWaiting = std::max(_received.mostWaiting, this->GetQueueSize());
    }
  }

  std::atomic<bool> _open{false};
  Received _received;
};

void Post(QsThreadMQ& receiver, int id, unsigned number, long payload) {
  while (!receiver.PostMsg(id, number, payload)) {
    std::this_thread::yield();
  }
}

void Send(QsThreadMQ& receiver, std::int64_t messages) {
  std::vector<std::thread> senders;
  for (std::size_t sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([&receiver, sender, share = messages / static_cast<std::int64_t>(kSenders)] {
      for (unsigned number = 0; number < share; ++number) {
        Post(receiver, kFirstId + static_cast<int>(sender), number, PayloadOf(sender, number));
      }
    });
  }
  for (std::thread& sender : senders) {
    sender.join();
  }
}

void RequireAll(const Received& received, std::int64_t messages) {
  RequireEqual(received.wrong, 0, "messages out of order or changed");
  for (std::size_t sender = 0; sender < kSenders; ++sender) {
    RequireEqual(received.next[sender], messages / static_cast<std::int64_t>(kSenders),
                 "messages of sender " + std::to_string(sender));
  }
}

// Of the 16 bytes and more that each message took. While the queue lives it keeps the list of the blocks that they were
// in, less than a byte for each; in the end nothing.
void RequireHeapAsBefore(std::int64_t before, std::int64_t kept) {
  constexpr std::int64_t kOther = 65536;
  Require(HeapInUse() <= before + kOther + kept, "messages that are gone still take memory");
}

template <class Queue>
void Finish(Receiver<Queue>& receiver, std::int64_t messages) {
  Post(receiver, kQuit, 0, 0);
  RequireEqual(receiver.WaitFor(-1), 0, "wait");
  RequireAll(receiver.What(), messages);
}

void SendBounded(std::int64_t messages) {
  Receiver<QsThreadCheckedMQ> receiver(kBound);
  receiver.Create();
  const std::int64_t heap = HeapInUse();
  Measure("messages, at most 1000 waiting", messages, [&] {
    receiver.Open();
    Send(receiver, messages);
    Finish(receiver, messages);
  });
  RequireEqual(receiver.GetQueueSize(), 0, "messages that wait");
  // Senders that race may exceed the maximum by as many as they are; the one that is being looked at does not count.
  Require(receiver.What().mostWaiting <= static_cast<long>(kBound + kSenders), "more messages wait than may");
  RequireHeapAsBefore(heap, 0);
}

// All of them wait before the first is read. (Windows bounds every queue; there it is read at once.)
void SendUnbounded(std::int64_t messages) {
  Receiver<QsThreadMQ> receiver;
  receiver.Create();
  const std::int64_t heap = HeapInUse();
  Measure("messages, all waiting at once", messages, [&] {
#ifdef _WIN32
    receiver.Open();
#endif
    Send(receiver, messages);
    receiver.Open();
    Finish(receiver, messages);
  });
  RequireHeapAsBefore(heap, messages);
}

// ---- a day ----------------------------------------------------------------------------------------------------------

using qsbase::detail::wallClock;

constexpr std::int64_t kHour = 3600;
constexpr std::array<int, 5> kIntervals = {1, 7, 60, 3600, 10000};

std::atomic<std::int64_t> clockTime{0};

class FakeClock {
 public:
  explicit FakeClock(std::int64_t start) : _before(wallClock.exchange([] { return clockTime.load(); })) {
    clockTime = start;
  }
  ~FakeClock() { wallClock = _before; }
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

 private:
  qsbase::detail::WallClock _before;
};

/// The seconds at which one interval's callback ran.
using Runs = std::vector<std::int64_t>;

void Note(const ExecuteEvery* /*object*/, void* userData) { static_cast<Runs*>(userData)->push_back(clockTime); }

/// Lets the clock go on from its present time by so many seconds, with several checks in each. `shift` tells by how
/// much it is set in a second.
template <class Shift>
void PassTime(ExecuteEvery& object, std::int64_t seconds, Shift shift) {
  constexpr int kChecks = 4;
  for (std::int64_t second = 0; second < seconds; ++second) {
    clockTime += shift(second);
    for (int check = 0; check < kChecks; ++check) {
      object.Check();
    }
    clockTime += 1;
  }
}

Runs RunsOf(int interval, std::int64_t start, std::int64_t seconds,
            const std::function<std::int64_t(std::int64_t)>& shift) {
  const FakeClock clock(start);
  Runs runs;
  ExecuteEvery object("load", interval, &Note, &runs);
  PassTime(object, seconds, shift);
  return runs;
}

std::int64_t NoShift(std::int64_t /*second*/) { return 0; }

// A run every interval + 1 seconds ("more than"), for ever at the same distance.
void RequireSteady(const Runs& runs, int interval, std::int64_t start, std::int64_t seconds) {
  const std::int64_t period = interval + 1;
  const std::string what = "every " + std::to_string(interval) + " s";
  RequireEqual(static_cast<std::int64_t>(runs.size()), (seconds - 1) / period, "runs " + what);
  for (std::size_t run = 0; run < runs.size(); ++run) {
    RequireEqual(runs[run] - start, static_cast<std::int64_t>(run + 1) * period, "a run " + what);
  }
}

void RunSteadily(std::int64_t start, std::int64_t seconds) {
  for (const int interval : kIntervals) {
    RequireSteady(RunsOf(interval, start, seconds, &NoShift), interval, start, seconds);
  }
}

// Half through, the clock is set. Whatever the interval, the callback is due at once, once; and from then on in steps
// of the new time. An hour forward is less than the longest interval, whose run then comes that much earlier.
void RunWithClockSet(std::int64_t start, std::int64_t seconds, std::int64_t by) {
  const std::int64_t half = seconds / 2;
  for (const int interval : kIntervals) {
    const std::int64_t period = interval + 1;
    const Runs runs =
        RunsOf(interval, start, seconds, [&](std::int64_t second) { return second == half ? by : std::int64_t{0}; });
    const std::int64_t lastBefore = (half - 1) / period * period;
    const std::int64_t clockAtHalf = half + by;
    const std::int64_t first =
        clockAtHalf < lastBefore || clockAtHalf - lastBefore >= period ? clockAtHalf : lastBefore + period;
    const std::int64_t end = seconds - 1 + by;
    const std::int64_t after = first > end ? 0 : (end - first) / period + 1;
    const std::string what = "every " + std::to_string(interval) + " s, the clock set by " + std::to_string(by);
    RequireEqual(static_cast<std::int64_t>(runs.size()), lastBefore / period + after, "runs " + what);
    for (std::int64_t run = 0; run < after; ++run) {
      const auto index = static_cast<std::size_t>(lastBefore / period + run);
      RequireEqual(runs[index] - start, first + run * period, "a run " + what);
    }
  }
}

}  // namespace

void SendMessages(std::int64_t messages, const std::string& /*dir*/) {
  const std::int64_t heap = HeapInUse();
  SendBounded(messages);
  SendUnbounded(messages);
  RequireHeapAsBefore(heap, 0);
}

void RunADay(std::int64_t seconds, const std::string& /*dir*/) {
  constexpr std::int64_t kMidnightOfTheLastSundayInMarch = 1774738800;  // 2026-03-29 00:00 in Berlin
  SetEnvironment("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
  Measure("a day with a change to summer time, 5 intervals", seconds,
          [seconds] { RunSteadily(kMidnightOfTheLastSundayInMarch, seconds); });
  RemoveEnvironment("TZ");
  constexpr std::int64_t kStart = 1000000000;
  Measure("a day, the clock set back and forward", seconds, [seconds] {
    for (const std::int64_t by : {-kHour, kHour, std::int64_t{-1}, 24 * kHour, -365 * 24 * kHour}) {
      RunWithClockSet(kStart, seconds, by);
    }
  });
}

}  // namespace qsbase::testing
