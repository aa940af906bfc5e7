// Threads and their message queues: QsThreadMQ beside POCO's NotificationQueue, one poster and one reader; QsThread
// from creation to end beside std::thread.
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <QSbase/thread/threadmq.h>
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <thread>

namespace {

constexpr int kMessage = 2000;
constexpr int kQuit = 18;
constexpr long kBatch = 100000;

// ---- messages -------------------------------------------------------------------------------------------------------

/// What the reader does with the messages: it sees to it that they are complete and in order, and tells after each
/// batch.
class Receipt {
 public:
  void Take(const QsMSG& msg) {
    if (msg.message != kMessage || msg.wParam != static_cast<unsigned int>(_next) || msg.lParam != _next) {
      std::cerr << "message " << _next << " is lost or another\n";
      std::abort();
    }
    if (++_next % kBatch == 0) {
      const std::lock_guard<std::mutex> lock(_mutex);
      ++_batches;
      _changed.notify_one();
    }
  }

  void Await(long batches) {
    std::unique_lock<std::mutex> lock(_mutex);
    _changed.wait(lock, [&] { return _batches == batches; });
  }

 private:
  long _next = 0;  // the reader's
  std::mutex _mutex;
  std::condition_variable _changed;
  long _batches = 0;
};

class Library {
 public:
  Library() { _reader.Create(); }
  ~Library() {
    _reader.TerminateAndQuit();
    _reader.WaitFor(-1);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  void Post(long number) { _reader.PostMsg(kMessage, static_cast<unsigned int>(number), number); }
  void Await(long batches) { _reader.receipt.Await(batches); }

 private:
  struct Reader : QsThreadMQ {
    Reader() : QsThreadMQ("reader", nullptr) {}
    void Execute() override {
      QsMSG msg;
      while (GetMsg(msg, 0, 0) && msg.message != kQuit) {
        receipt.Take(msg);
      }
    }
    Receipt receipt;
  };

  Reader _reader;
};

class Poco {
 public:
  Poco()
      : _reader([this] {
          for (;;) {
            const ::Poco::Notification::Ptr next = _queue.waitDequeueNotification();
            const QsMSG& msg = static_cast<const Message&>(*next).msg;
            if (msg.message == kQuit) {
              return;
            }
            _receipt.Take(msg);
          }
        }) {}
  ~Poco() {
    _queue.enqueueNotification(new Message({kQuit, 0, 0}));
    _reader.join();
  }
  Poco(const Poco&) = delete;
  Poco& operator=(const Poco&) = delete;

  void Post(long number) {
    _queue.enqueueNotification(new Message({kMessage, static_cast<unsigned int>(number), number}));
  }
  void Await(long batches) { _receipt.Await(batches); }

 private:
  struct Message : ::Poco::Notification {
    explicit Message(const QsMSG& message) : msg(message) {}
    QsMSG msg;
  };

  ::Poco::NotificationQueue _queue;
  Receipt _receipt;
  std::thread _reader;  // the last: it uses the others
};

/// From the first post of a batch until its last message was read.
template <class Queue>
void Messages(benchmark::State& state) {
  Queue queue;
  long posted = 0;
  long batches = 0;
  for (auto _ : state) {
    for (long i = 0; i < kBatch; ++i) {
      queue.Post(posted++);
    }
    queue.Await(++batches);
  }
  state.SetItemsProcessed(posted);
}

BENCHMARK(Messages<Library>)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Messages<Poco>)->UseRealTime()->Unit(benchmark::kMillisecond);

// ---- threads --------------------------------------------------------------------------------------------------------

std::atomic<long> bodies{0};

void CompareBodies(const benchmark::State& state, long before) {
  if (bodies - before != static_cast<long>(state.iterations())) {
    std::cerr << "not every thread ran\n";
    std::abort();
  }
}

/// A body that does next to nothing. "slept" is the share of threads that had not arrived in their body while Create()
/// gave up the processor for them, so that it slept, 5 ms at least; "others_us" the average of the others: the rest of
/// the time is what the polling of Create() costs.
void QsThreadCreateWait(benchmark::State& state) {
  struct Thread : QsThread {
    Thread() : QsThread("bench", nullptr) {}
    void Execute() override { ++bodies; }
  };
  using Clock = std::chrono::steady_clock;
  const long before = bodies;
  Clock::duration others{};
  long slept = 0;
  for (auto _ : state) {
    const Clock::time_point start = Clock::now();
    Clock::time_point created;
    {
      Thread thread;
      thread.Create();
      created = Clock::now();
      thread.WaitFor(-1);
    }
    if (created - start >= std::chrono::milliseconds(5)) {
      ++slept;
    } else {
      others += Clock::now() - start;
    }
  }
  CompareBodies(state, before);
  const auto threads = static_cast<double>(state.iterations());
  const auto sleepers = static_cast<double>(slept);
  state.counters["slept"] = sleepers / threads;
  state.counters["others_us"] = std::chrono::duration<double, std::micro>(others).count() / (threads - sleepers);
}

void StdThreadJoin(benchmark::State& state) {
  const long before = bodies;
  for (auto _ : state) {
    std::thread([] { ++bodies; }).join();
  }
  CompareBodies(state, before);
}

BENCHMARK(QsThreadCreateWait)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(StdThreadJoin)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
