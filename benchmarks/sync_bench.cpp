// Locks and events beside the standard library's.
#include <QSbase/sync/criticalsection.h>
#include <QSbase/sync/event.h>
#include <QSbase/sync/rwlock.h>
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <thread>

namespace {

// Uncontended, each in a process that has had a second thread, as the C library takes a short cut before that.
void StartThreads() {
  static const bool started = [] {
    std::thread([] {}).join();
    return true;
  }();
  benchmark::DoNotOptimize(started);
}

void SectionEnterLeave(benchmark::State& state) {
  StartThreads();
  QsCriticalSection section;
  for (auto _ : state) {
    section.Enter();
    section.Leave();
  }
}

void StdRecursiveMutex(benchmark::State& state) {
  StartThreads();
  std::recursive_mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}

void FirstRead(benchmark::State& state) {
  StartThreads();
  const QsRWLock lock;
  for (auto _ : state) {
    lock.BeginRead();
    lock.EndRead();
  }
}

void ReadAgain(benchmark::State& state) {
  StartThreads();
  const QsRWLock lock;
  lock.BeginRead();
  for (auto _ : state) {
    lock.BeginRead();
    lock.EndRead();
  }
  lock.EndRead();
}

void StdSharedMutex(benchmark::State& state) {
  StartThreads();
  std::shared_mutex mutex;
  for (auto _ : state) {
    mutex.lock_shared();
    mutex.unlock_shared();
  }
}

/// What an auto-reset event is made of where there is none.
class StdEvent {
 public:
  void SetEvent() {
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      _set = true;
    }
    _changed.notify_one();
  }

  void Wait() {
    std::unique_lock<std::mutex> lock(_mutex);
    _changed.wait(lock, [this] { return _set; });
    _set = false;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _set = false;
};

class Event {
 public:
  void SetEvent() { _event.SetEvent(); }
  void Wait() { _event.WaitFor(-1); }

 private:
  QsEvent _event{false, false};
};

/// There and back: two signals, two threads that wake.
template <typename Kind>
void PingPong(benchmark::State& state) {
  Kind ping;
  Kind pong;
  bool stop = false;  // handed over by ping
  std::thread partner([&] {
    for (;;) {
      ping.Wait();
      if (stop) {
        return;
      }
      pong.SetEvent();
    }
  });
  for (auto _ : state) {
    ping.SetEvent();
    pong.Wait();
  }
  stop = true;
  ping.SetEvent();
  partner.join();
}

BENCHMARK(SectionEnterLeave);
BENCHMARK(StdRecursiveMutex);
BENCHMARK(ReadAgain);
BENCHMARK(FirstRead);
BENCHMARK(StdSharedMutex);
BENCHMARK_TEMPLATE(PingPong, Event)->UseRealTime();
BENCHMARK_TEMPLATE(PingPong, StdEvent)->UseRealTime();

}  // namespace
