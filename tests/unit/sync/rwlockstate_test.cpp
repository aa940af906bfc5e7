// Runs the reader/writer lock's own code through every order in which a few threads can take its steps.
//
// A program is a string for each thread: R and r begin and end a read, W and w a write. Threads are contexts of one
// thread; they stop before each use of a primitive, where the explorer chooses who goes on. It starts again from the
// beginning for each choice, depth first, and leaves a run that comes to a state it has seen.
//
// Not on Windows: it has other contexts, and the code under test is the same.
#ifndef _WIN32

#include <QSbase/sync/rwlockstate.h>

#include <common/sanitized.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ucontext.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;

/// Leaves a thread of a run that is given up.
struct Abandoned {};

/// One run of a program.
class World {
 public:
  using Condition = std::function<bool()>;

  struct Thread {
    ucontext_t context{};
    std::unique_ptr<char[]> stack = std::make_unique<char[]>(kStack);
    std::function<void()> body;
    Condition ready;
    std::string place;  // the stops since its last begin or end
    bool done = false;
    bool started = false;
  };

  /// The run that is under way.
  static World& Get() { return *current; }

  explicit World(std::size_t threads) : _threads(threads) { current = this; }

  void Start(std::size_t number, std::function<void()> body) {
    Thread& thread = _threads[number];
    thread.body = std::move(body);
    thread.ready = [] { return true; };
    thread.place.clear();
    thread.done = false;
    thread.started = false;
    getcontext(&thread.context);
    thread.context.uc_stack.ss_sp = thread.stack.get();
    thread.context.uc_stack.ss_size = kStack;
    thread.context.uc_link = &_explorer;
    makecontext(&thread.context, &World::RunCurrent, 0);
  }

  /// Lets a thread go on to its next stop.
  void Continue(std::size_t number) {
    _running = number;
    _threads[number].started = true;
    swapcontext(&_explorer, &_threads[number].context);
  }

  /// Stops the running thread until it is chosen; it can be while \p ready. With a false \p mayLeave, in a destructor,
  /// it goes on when the run is given up.
  void Stop(char place, Condition ready, bool mayLeave = true) {
    if (!_givenUp) {
      Thread& thread = _threads[_running];
      thread.place += place;
      thread.ready = std::move(ready);
      swapcontext(&thread.context, &_explorer);
    }
    if (_givenUp && mayLeave) {
      throw Abandoned();
    }
  }

  void Stop(char place) {
    Stop(place, [] { return true; });
  }

  /// Ends every thread without a further step.
  void GiveUp() {
    _givenUp = true;
    for (std::size_t number = 0; number < _threads.size(); ++number) {
      if (_threads[number].started && !_threads[number].done) {
        Continue(number);
      }
    }
    _givenUp = false;
  }

  void NewPlace() { _threads[_running].place.clear(); }

  int Running() const { return static_cast<int>(_running) + 1; }
  const std::vector<Thread>& Threads() const { return _threads; }

  std::vector<std::size_t> Ready() const {
    std::vector<std::size_t> ready;
    for (std::size_t number = 0; number < _threads.size(); ++number) {
      if (!_threads[number].done && _threads[number].ready()) {
        ready.push_back(number);
      }
    }
    return ready;
  }

  bool IsDone() const {
    return std::all_of(_threads.begin(), _threads.end(), [](const Thread& thread) { return thread.done; });
  }

 private:
  static constexpr std::size_t kStack = 65536;

  static void RunCurrent() {
    Thread& thread = current->_threads[current->_running];
    try {
      thread.body();
    } catch (const Abandoned&) {
    }
    thread.done = true;
  }

  static inline World* current = nullptr;

  ucontext_t _explorer{};
  std::vector<Thread> _threads;
  std::size_t _running = 0;
  bool _givenUp = false;
};

// ---- the primitives -------------------------------------------------------------------------------------------------

struct ModelSection {
  int owner = 0;
  int depth = 0;
};

struct ModelEvent {
  void SetEvent() {
    World::Get().Stop('S');
    releases += set ? 0 : 1;
    set = true;
  }
  void ResetEvent() {
    World::Get().Stop('s');
    set = false;
  }
  void WaitFor(int) {
    World::Get().Stop('v');
    World::Get().Stop('V', [this, seen = releases] { return set || releases != seen; });
  }

  bool set = false;
  int releases = 0;
};

// No stop at the release: what follows it touches nothing that another thread could see before its next stop.
struct ModelSpin {
  void Acquire(int thread) {
    World::Get().Stop('A', [this] { return holder == 0; });
    holder = thread;
  }
  void Release() { holder = 0; }

  int holder = 0;
};

struct Model {
  using Section = ModelSection;
  using Event = ModelEvent;
  using Spin = ModelSpin;

  static void Enter(Section& section) {
    World::Get().Stop('E', [&section, self = ThreadId()] { return section.owner == 0 || section.owner == self; });
    section.owner = ThreadId();
    ++section.depth;
  }
  static void Leave(Section& section) {
    World::Get().Stop(
        'L', [] { return true; }, false);
    if (--section.depth == 0) {
      section.owner = 0;
    }
  }
  static bool IsOwned(const Section& section) { return section.owner == ThreadId(); }
  static int ThreadId() { return World::Get().Running(); }
  static void HoldBackKill() {}
  static void AllowKill() {}
};

using Shipped = qsbase::detail::RWLockState<Model>;

/// What a lock may get wrong that is made of steps, each right on its own.
struct Defects {
  bool countApart = false;   ///< a slot and its count change one after the other
  bool signalApart = false;  ///< a reader that finds itself the last one signals later
  bool signalKept = false;   ///< a writer takes an old signal for its own
};

/// The lock with such defects.
template <Defects defects>
struct Defective {
  using Slot = Shipped::Slot;

  ModelSection writeLock;
  ModelEvent noReaders;
  int readerCount = 0;
  int savedReaderCount = 0;
  int slotCount = 4;
  std::array<Slot, 4> slots{};
  int waitingWriter = 0;
  ModelSpin spin;
  bool writeActive = false;

  /// Others may come between. \p local: what the thread goes on with.
  static void Pause(bool local = false) { World::Get().Stop(local ? '1' : '0'); }

  void PauseInside() {
    spin.Release();
    Pause();
    spin.Acquire(Model::ThreadId());
  }

  Slot* Find(int thread) {
    Slot* const found =
        std::find_if(slots.begin(), slots.end(), [=](const Slot& slot) { return slot.threadId == thread; });
    return found == slots.end() ? nullptr : found;
  }

  bool OnlyOwnReads() const {
    return waitingWriter != 0 && std::all_of(slots.begin(), slots.end(), [this](const Slot& slot) {
             return slot.threadId == 0 || slot.threadId == waitingWriter;
           });
  }

  void BeginRead() {
    const int self = Model::ThreadId();
    spin.Acquire(self);
    Slot* const own = Find(self);
    if (own != nullptr && !writeActive) {
      ++readerCount;
      ++own->count;
    }
    spin.Release();
    if (own != nullptr) {
      return;
    }
    Model::Enter(writeLock);
    if (!writeActive) {
      FirstRead(self);
    }
    Model::Leave(writeLock);
  }

  void FirstRead(int self) {
    spin.Acquire(self);
    if (++readerCount == 1) {
      noReaders.ResetEvent();
    }
    if (defects.countApart) {
      PauseInside();
    }
    *Find(0) = {self, 1};
    spin.Release();
  }

  void EndRead() {
    if (writeActive) {
      return;
    }
    spin.Acquire(Model::ThreadId());
    Slot* const own = Find(Model::ThreadId());
    if (--own->count == 0) {
      own->threadId = 0;
    }
    if (defects.countApart) {
      PauseInside();
    }
    const bool signal = --readerCount == 0 || OnlyOwnReads();
    if (defects.signalApart) {
      spin.Release();
      Pause(signal);
      spin.Acquire(Model::ThreadId());
    }
    if (signal) {
      noReaders.SetEvent();
    }
    spin.Release();
  }

  void BeginWrite() {
    Model::Enter(writeLock);
    if (writeActive) {
      ++readerCount;
      return;
    }
    bool waits = !MayWrite();
    while (waits) {
      noReaders.WaitFor(-1);
      waits = !defects.signalKept && !defects.signalApart && !MayWrite();
    }
    savedReaderCount = readerCount;
    readerCount = 1;
    waitingWriter = 0;
    writeActive = true;
  }

  bool MayWrite() {
    spin.Acquire(Model::ThreadId());
    waitingWriter = Model::ThreadId();
    const bool may = OnlyOwnReads();
    if (!may && !defects.signalKept) {
      noReaders.ResetEvent();
    }
    spin.Release();
    return may;
  }

  void EndWrite() {
    if (--readerCount == 0) {
      readerCount = savedReaderCount;
      savedReaderCount = 0;
      writeActive = false;
    }
    Model::Leave(writeLock);
  }
};

// ---- the explorer ---------------------------------------------------------------------------------------------------

using Program = std::vector<std::string>;

/// What went wrong, each with the first order in which it did.
using Failures = std::map<std::string, std::string>;

constexpr const char* kNotAlone = "a writer is not alone";
constexpr const char* kNotFree = "the lock is not free at the end";
constexpr const char* kDeadlock = "each waits for another";

/// What a thread has, by the interface's own words.
struct Holds {
  int reads = 0;
  int writes = 0;
  std::size_t next = 0;  // of its calls
};

template <typename Lock>
class Explorer {
 public:
  explicit Explorer(Program program) : _program(std::move(program)), _world(_program.size()) {}

  /// Threads that are not part of the program read from the start on and never end.
  Explorer& WithOtherReaders(int count) {
    _otherReaders = count;
    return *this;
  }

  /// Tries all orders; one in which something goes wrong no further.
  Failures Run() {
    do {
      RunOnce();
      _world.GiveUp();
    } while (NextChoice());
    return _failures;
  }

  std::size_t States() const { return _seen.size(); }

  /// How many slots the lock had at the end of a run.
  const std::set<int>& SlotCounts() const { return _slotCounts; }

 private:
  struct Choice {
    std::vector<std::size_t> ready;
    std::size_t taken = 0;
  };

  void RunOnce() {
    Prepare();
    for (std::size_t depth = 0; depth < _choices.size() || ChooseHere(); ++depth) {
      _world.Continue(_choices[depth].ready[_choices[depth].taken]);
      if (!IsExclusive()) {
        return Fail(kNotAlone);
      }
    }
  }

  void Prepare() {
    _lock = std::make_unique<Lock>();
    for (int i = 0; i < _otherReaders; ++i) {
      _lock->slots[static_cast<std::size_t>(i)] = {100 + i, 1};
      ++_lock->readerCount;
    }
    _holds.assign(_program.size(), {});
    for (std::size_t number = 0; number < _program.size(); ++number) {
      _world.Start(number, [this, number] { Perform(_program[number], _holds[number]); });
    }
  }

  void Perform(const std::string& calls, Holds& holds) {
    for (; holds.next < calls.size(); ++holds.next) {
      _world.NewPlace();
      _world.Stop('.');  // what it holds shows here
      Call(calls[holds.next], holds);
    }
  }

  void Call(char call, Holds& holds) {
    switch (call) {
      case 'R':
        _lock->BeginRead();
        holds.reads += holds.writes == 0 ? 1 : 0;
        break;
      case 'r':
        holds.reads -= holds.writes == 0 && holds.reads > 0 ? 1 : 0;
        _lock->EndRead();
        break;
      case 'W':
        _lock->BeginWrite();
        ++holds.writes;
        break;
      default:
        holds.writes -= holds.writes > 0 ? 1 : 0;
        _lock->EndWrite();
    }
  }

  /// Whether the run goes on: not at its end, nor in a state from which all has been tried.
  bool ChooseHere() {
    if (!_seen.insert(State()).second) {
      return false;
    }
    Choice choice{_world.Ready()};
    if (!choice.ready.empty()) {
      _choices.push_back(std::move(choice));
      return true;
    }
    if (!_world.IsDone()) {
      Fail(kDeadlock);
    } else if (!IsFree()) {
      Fail(kNotFree);
    } else {
      _slotCounts.insert(_lock->slotCount);
    }
    return false;
  }

  bool NextChoice() {
    while (!_choices.empty() && ++_choices.back().taken == _choices.back().ready.size()) {
      _choices.pop_back();
    }
    return !_choices.empty();
  }

  std::string State() const {
    std::string state;
    const auto add = [&state](int number) { state += static_cast<char>(number); };
    for (const int number : {_lock->readerCount, _lock->savedReaderCount, _lock->slotCount, _lock->waitingWriter,
                             _lock->spin.holder, _lock->writeLock.owner, _lock->writeLock.depth}) {
      add(number);
    }
    add(_lock->writeActive ? 1 : 0);
    add(_lock->noReaders.set ? 1 : 0);
    for (int i = 0; i < _lock->slotCount; ++i) {
      add(_lock->slots[static_cast<std::size_t>(i)].threadId);
      add(_lock->slots[static_cast<std::size_t>(i)].count);
    }
    for (std::size_t number = 0; number < _program.size(); ++number) {
      const World::Thread& thread = _world.Threads()[number];
      add(static_cast<int>(_holds[number].next));
      add(thread.done ? 2 : (thread.ready() ? 1 : 0));
      state += thread.place + ' ';
    }
    return state;
  }

  bool IsExclusive() const {
    const auto writes = [](const Holds& holds) { return holds.writes > 0; };
    const auto has = [](const Holds& holds) { return holds.writes > 0 || holds.reads > 0; };
    return std::none_of(_holds.begin(), _holds.end(), writes) ||
           std::count_if(_holds.begin(), _holds.end(), has) + _otherReaders == 1;
  }

  /// Of all but the other readers.
  bool IsFree() const {
    int taken = 0;
    for (int i = 0; i < _lock->slotCount; ++i) {
      taken += _lock->slots[static_cast<std::size_t>(i)].threadId != 0 ? 1 : 0;
    }
    return _lock->readerCount == _otherReaders && taken == _otherReaders && _lock->savedReaderCount == 0 &&
           _lock->waitingWriter == 0 && !_lock->writeActive && _lock->writeLock.depth == 0 && _lock->spin.holder == 0;
  }

  /// Notes the threads in the order in which they went on.
  void Fail(const char* what) {
    std::string order;
    for (const Choice& choice : _choices) {
      order += static_cast<char>('1' + choice.ready[choice.taken]);
    }
    _failures.emplace(what, order);
  }

  Program _program;
  int _otherReaders = 0;
  World _world;
  std::unique_ptr<Lock> _lock;
  std::vector<Holds> _holds;
  std::vector<Choice> _choices;
  std::unordered_set<std::string> _seen;
  std::set<int> _slotCounts;
  Failures _failures;
};

std::string Named(const Program& program) {
  std::string name;
  for (const std::string& calls : program) {
    name += calls + ' ';
  }
  return name;
}

Failures FailuresOf(const Program& program) { return Explorer<Shipped>(program).Run(); }

template <Defects defects>
Failures FailuresWith(const Program& program) {
  return Explorer<Defective<defects>>(program).Run();
}

class RWLockSchedules : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef QSBASE_TESTS_SANITIZED
    GTEST_SKIP() << "it changes stacks by itself, which the sanitizers do not follow";
#endif
  }
};

// ---- the explorer finds defects, and the lock has none of them ------------------------------------------------------

// The steps one by one have all three.
constexpr Defects kNone{};
constexpr Defects kAll{.countApart = true, .signalApart = true, .signalKept = true};
constexpr Defects kSignalKept{.signalKept = true};
constexpr Defects kSignalApart{.signalApart = true};
constexpr Defects kCountApart{.countApart = true};

// 1 reads and upgrades, having waited for 2; 2 reads again; 1 writes beside it, let in by the old signal.
TEST_F(RWLockSchedules, TheSignalOfAnEarlierUpgrade) {
  const Program program{"RWwWwr", "RrRr"};
  EXPECT_THAT(FailuresWith<kSignalKept>(program), Contains(Key(kNotAlone)));
  EXPECT_THAT(FailuresWith<kAll>(program), Contains(Key(kNotAlone)));
  EXPECT_THAT(FailuresWith<kNone>(program), IsEmpty());
  EXPECT_THAT(FailuresOf(program), IsEmpty());
}

// 1 has counted down to 0; 2 begins to read; 1 signals; 3 writes beside 2.
TEST_F(RWLockSchedules, TheLateSignalOfAReader) {
  const Program program{"Rr", "Rr", "Ww"};
  EXPECT_THAT(FailuresWith<kSignalApart>(program), Contains(Key(kNotAlone)));
  EXPECT_THAT(FailuresWith<kAll>(program), Contains(Key(kNotAlone)));
  EXPECT_THAT(FailuresWith<kNone>(program), IsEmpty());
  EXPECT_THAT(FailuresOf(program), IsEmpty());
}

// 1 has freed its slot, and its count still stands; 2 parks that count, and 1 lowers the writer's.
TEST_F(RWLockSchedules, TheCountThatIsParkedTooHigh) {
  const Program program{"Rr", "Ww"};
  EXPECT_THAT(FailuresWith<kCountApart>(program), Contains(Key(kNotFree)));
  EXPECT_THAT(FailuresWith<kAll>(program), Contains(Key(kNotFree)));
  EXPECT_THAT(FailuresWith<kNone>(program), IsEmpty());
  EXPECT_THAT(FailuresOf(program), IsEmpty());
}

TEST_F(RWLockSchedules, OneThreadAloneSeesNoDefect) {
  for (const char* calls : {"Rr", "RRrr", "WRrw", "RWwr", "WWwwRr"}) {
    EXPECT_THAT(FailuresWith<kAll>({calls}), IsEmpty()) << calls;
  }
}

// ---- the lock -------------------------------------------------------------------------------------------------------

/// Every choice of three, in which the same may come twice.
template <typename Call>
void ForEachThree(const std::vector<std::string>& from, Call call) {
  for (std::size_t i = 0; i < from.size(); ++i) {
    for (std::size_t k = i; k < from.size(); ++k) {
      for (std::size_t m = k; m < from.size(); ++m) {
        call(Program{from[i], from[k], from[m]});
      }
    }
  }
}

TEST_F(RWLockSchedules, ThreeThreads) {
  std::size_t states = 0;
  ForEachThree({"Rr", "RRrr", "Ww", "WWww", "WRrw", "RrWw", "r", "w"}, [&](const Program& program) {
    Explorer<Shipped> explorer(program);
    EXPECT_THAT(explorer.Run(), IsEmpty()) << Named(program);
    states += explorer.States();
  });
  EXPECT_GT(states, 50000U);  // all those orders were there to be tried
}

TEST_F(RWLockSchedules, OneUpgradesAndTwoRead) {
  for (const char* upgrader : {"RWwr", "RWwWwr", "RWRrwr", "RRWwrr", "RWrwr", "RWWwwr"}) {
    for (const char* reader : {"Rr", "RRrr"}) {
      for (const char* other : {"Rr", "r", "w"}) {
        const Program program{upgrader, reader, other};
        EXPECT_THAT(FailuresOf(program), IsEmpty()) << Named(program);
      }
    }
  }
}

TEST_F(RWLockSchedules, SlotsGrowBesideReadersThatEnd) {
  Explorer<Shipped> explorer({"Rr", "RRrr", "RrRr"});
  EXPECT_THAT(explorer.WithOtherReaders(3).Run(), IsEmpty());
  EXPECT_EQ(explorer.SlotCounts(), (std::set<int>{4, 7}));
}

TEST_F(RWLockSchedules, WhatNoSuchLockCanDo) {
  EXPECT_THAT(FailuresOf({"RWwr", "RWwr"}), ElementsAre(Key(kDeadlock)));
  EXPECT_THAT(FailuresOf({"RWwr", "Ww"}), ElementsAre(Key(kDeadlock)));
}

}  // namespace

#endif
