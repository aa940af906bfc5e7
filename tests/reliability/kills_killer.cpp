#include "kills_killer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kills {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::nanoseconds;

constexpr unsigned kCheckSeconds = 60;  // nothing that is looked at may wait for ever

// ---- processes ----

class Process {
 public:
  Process() = default;
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  Process(Process&& other) noexcept : _id(std::exchange(other._id, 0)), _status(other._status) {}
  ~Process() { Kill(); }

  // Forks: this program has not used the library, so each child starts with the library as it is after the start.
  explicit Process(const std::function<void()>& work) : _id(fork()) {
    if (_id < 0) {
      throw std::runtime_error("fork failed");
    }
    if (_id == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      Become(work);
    }
  }

  pid_t Id() const { return _id; }

  int Wait() {
    if (_id != 0) {
      while (waitpid(_id, &_status, 0) == -1 && errno == EINTR) {
      }
      _id = 0;
    }
    return _status;
  }

  // What was its state at the kill.
  int Kill() {
    if (_id != 0) {
      kill(_id, SIGKILL);
    }
    return Wait();
  }

 private:
  [[noreturn]] static void Become(const std::function<void()>& work) {
    try {
      work();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
      _exit(98);
    } catch (...) {
      _exit(99);
    }
    _exit(0);
  }

  pid_t _id = 0;
  int _status = 0;
};

/// Memory that forked processes share.
class SharedMemory {
 public:
  SharedMemory() {
    void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      throw std::runtime_error("no shared memory");
    }
    _shared = new (memory) Shared();
  }
  ~SharedMemory() { munmap(_shared, sizeof(Shared)); }
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  Shared& Get() const { return *_shared; }

 private:
  Shared* _shared;
};

class Folder {
 public:
  Folder() : _path((std::filesystem::temp_directory_path() / "qsbase-kills-XXXXXX").string()) {
    if (mkdtemp(_path.data()) == nullptr) {
      throw std::runtime_error("no temporary folder");
    }
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& Path() const { return _path; }

 private:
  std::string _path;
};

void SleepUntil(Clock::time_point time) {
  constexpr microseconds kRest(200);  // a sleep is never so exact
  const nanoseconds left = time - Clock::now() - kRest;
  if (left.count() > 0) {
    const timespec pause = {left.count() / 1000000000, left.count() % 1000000000};
    nanosleep(&pause, nullptr);
  }
  while (Clock::now() < time) {
  }
}

// ---- one kill ----

/// A folder, the shared memory, and the processes around the one that is killed.
class Stage {
 public:
  Stage(const Operation& operation, unsigned variant, Manner manner)
      : _operation(operation), _scene(_folder.Path(), _memory.Get(), variant, manner) {
    InAnotherProcess("preparing", [&] { _operation.Prepare(_scene); });
    const unsigned count = _operation.Companions(variant);
    for (unsigned i = 0; i < count; ++i) {
      _companions.emplace_back([this, i] { _operation.Accompany(_scene, i); });
    }
    _scene.Expect(Await([&] { return _scene.shared.present == count; }), "the companions did not come");
  }

  // What nobody looked at leaves nothing behind either.
  ~Stage() {
    if (!_isChecked) {
      CheckTheEnd();
    }
  }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  const Scene& Get() const { return _scene; }

  Process StartVictim() {
    Process victim([this] { _operation.Work(_scene); });
    _scene.shared.victim = victim.Id();
    return victim;
  }

  void Check() {
    InAnotherProcess("the look at it", [&] { _operation.Check(_scene); });
    CheckTheEnd();
  }

  // Adds the kill to the tally; prints what was wrong.
  void CountIn(Tally& tally, const std::string& moment) const {
    const Shared& shared = _scene.shared;
    std::uint64_t begun = 0;
    bool during = false;
    for (std::size_t i = 0; i < kTracks; ++i) {
      begun += shared.begun[i];
      during = during || shared.begun[i] != shared.done[i];
    }
    ++tally.kills;
    ++(begun == 0 ? tally.before : during ? tally.during : tally.after);
    tally.strays += shared.strays;
    if (_scene.HasFailed()) {
      ++tally.failures;
      std::fprintf(stderr, "%s (%s), killed %s:\n%s", tally.operation.c_str(),
                   _operation.Variants()[_scene.variant].c_str(), moment.c_str(), shared.text.data());
    }
  }

 private:
  void CheckTheEnd() {
    _isChecked = true;
    _companions.clear();
    InAnotherProcess("the last look at it", [&] { _operation.CheckAtTheEnd(_scene); });
  }

  void InAnotherProcess(const char* what, const std::function<void()>& work) {
    Process process([&] {
      alarm(kCheckSeconds);
      work();
    });
    const int status = process.Wait();
    _scene.Expect(status == 0, std::string(what) + " ended with the status " + std::to_string(status));
  }

  const Operation& _operation;
  const Folder _folder;
  const SharedMemory _memory;
  const Scene _scene;
  std::vector<Process> _companions;
  bool _isChecked = false;
};

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// ---- random moments ----

microseconds MeasuredLength(const Operation& operation, unsigned variant) {
  Stage stage(operation, variant, Manner::Repeated);
  const Shared& shared = stage.Get().shared;
  Process victim = stage.StartVictim();
  Await([&] { return shared.ready.load(); });
  const Clock::time_point start = Clock::now();
  Await([&] { return shared.done[0] >= 3 && Clock::now() - start > std::chrono::milliseconds(60); },
        std::chrono::seconds(5));
  const auto passed = std::chrono::duration_cast<microseconds>(Clock::now() - start);
  victim.Kill();
  return passed / static_cast<std::int64_t>(std::max<std::uint64_t>(shared.done[0], 1));
}

/// How long a step takes: that of the slowest variant. The better of two measurements: other programs may be at work.
microseconds LengthOf(const Operation& operation) {
  if (operation.Length() != microseconds(0)) {
    return operation.Length();
  }
  microseconds longest(1);
  for (unsigned variant = 0; variant < operation.Variants().size(); ++variant) {
    longest = std::max(longest, std::min(MeasuredLength(operation, variant), MeasuredLength(operation, variant)));
  }
  return longest;
}

void KillAfter(Stage& stage, microseconds delay) {
  const Scene& scene = stage.Get();
  Process victim = stage.StartVictim();
  if (!scene.Expect(Await([&] { return scene.shared.ready.load(); }), "the victim did not begin")) {
    return;
  }
  SleepUntil(Clock::now() + delay);
  scene.shared.killed = true;
  const int status = victim.Kill();
  if (WIFEXITED(status)) {
    scene.shared.done[0] = scene.shared.begun[0].load();
  }
  const bool was = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  scene.Expect(was || (WIFEXITED(status) && WEXITSTATUS(status) == 0), "the victim failed before it was killed");
}

// ---- moments by counting ----

/// A victim that stands still before its step, traced.
class Traced {
 public:
  explicit Traced(Process process) : _process(std::move(process)) {
    Stopped();
    ptrace(PTRACE_SETOPTIONS, _process.Id(), nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  }

  /// Lets it run to the next stop of that kind (PTRACE_SYSCALL, PTRACE_SINGLESTEP); false when the step has ended.
  bool Go(decltype(PTRACE_SYSCALL) request) {
    for (int signal = 0;;) {
      ptrace(request, _process.Id(), nullptr, signal);
      const int stop = Stopped();
      if (stop == SIGSTOP || stop == 0) {
        return false;
      }
      if (stop == (SIGTRAP | 0x80) || (stop == SIGTRAP && request == PTRACE_SINGLESTEP)) {
        return true;
      }
      signal = stop;
    }
  }

  /// At the entry of a call that writes: makes it write half. False for other calls.
  bool HalveWrite() {
    user_regs_struct registers;
    ptrace(PTRACE_GETREGS, _process.Id(), nullptr, &registers);
    unsigned long long* const length = LengthOfWrite(registers);
    if (length == nullptr || *length < 2) {
      return false;
    }
    *length = registers.orig_rax == SYS_copy_file_range ? kPartOfCopy : *length / 2;
    ptrace(PTRACE_SETREGS, _process.Id(), nullptr, &registers);
    return true;
  }

  void Kill() { _process.Kill(); }

 private:
  // The signal that it stopped for, 0 when it has ended.
  int Stopped() {
    int status = 0;
    const pid_t id = waitpid(_process.Id(), &status, 0);
    return id == _process.Id() && WIFSTOPPED(status) ? WSTOPSIG(status) : 0;
  }

  static constexpr unsigned kPartOfCopy = 1000;  // more is asked for than there is

  static unsigned long long* LengthOfWrite(user_regs_struct& registers) {
    switch (registers.orig_rax) {
      case SYS_write:
      case SYS_pwrite64:
        return &registers.rdx;
      case SYS_copy_file_range:
        return &registers.r8;
      default:
        return nullptr;
    }
  }

  Process _process;
};

enum class Cut { Before, InTheMiddle };

/// False when the step has fewer system calls than that; killed tells whether there was anything to kill at.
bool KillAtCall(Stage& stage, unsigned call, Cut cut, bool& killed) {
  Traced victim(stage.StartVictim());
  for (unsigned i = 0; i < call; ++i) {
    if (!victim.Go(PTRACE_SYSCALL) || (i + 1 < call && !victim.Go(PTRACE_SYSCALL))) {
      return false;
    }
  }
  killed = cut == Cut::Before || (victim.HalveWrite() && victim.Go(PTRACE_SYSCALL));
  stage.Get().shared.killed = true;
  victim.Kill();
  return true;
}

unsigned StepsOf(const Operation& operation, unsigned variant) {
  Stage stage(operation, variant, Manner::Once);
  Traced victim(stage.StartVictim());
  unsigned steps = 0;
  while (victim.Go(PTRACE_SINGLESTEP)) {
    ++steps;
  }
  return steps;
}

void KillAtInstruction(Stage& stage, unsigned number) {
  Traced victim(stage.StartVictim());
  for (unsigned i = 0; i < number && victim.Go(PTRACE_SINGLESTEP); ++i) {
  }
  stage.Get().shared.killed = true;
  victim.Kill();
}

void KillAtAllCalls(const Operation& operation, unsigned variant, Cut cut, Tally& tally) {
  for (unsigned call = 1;; ++call) {
    Stage stage(operation, variant, Manner::Once);
    bool killed = false;
    if (!KillAtCall(stage, call, cut, killed)) {
      return;
    }
    if (killed) {
      stage.Check();
      stage.CountIn(
          tally, (cut == Cut::Before ? "before system call " : "half-way through system call ") + std::to_string(call));
    }
  }
}

}  // namespace

bool Killer::MayTrace() {
  Process process([] {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
      _exit(1);
    }
  });
  return process.Wait() == 0;
}

Tally Killer::AtRandom(const Operation& operation, unsigned count) {
  const Clock::time_point start = Clock::now();
  const auto variants = static_cast<unsigned>(operation.Variants().size());
  const microseconds window = LengthOf(operation) * operation.Span();
  std::uniform_int_distribution<std::int64_t> draw(0, window.count());
  Tally tally{operation.Name(), "random, within " + std::to_string(window.count()) + " us"};
  for (unsigned i = 0; i < count; ++i) {
    const microseconds delay(draw(_random));
    Stage stage(operation, i % variants, Manner::Repeated);
    KillAfter(stage, delay);
    stage.Check();
    stage.CountIn(tally, "after " + std::to_string(delay.count()) + " us (" + std::to_string(i) + ")");
  }
  tally.seconds = Since(start);
  return tally;
}

Tally Killer::AtSystemCalls(const Operation& operation) {
  const Clock::time_point start = Clock::now();
  Tally tally{operation.Name(), "every system call, half of every write"};
  for (unsigned variant = 0; variant < operation.Variants().size(); ++variant) {
    KillAtAllCalls(operation, variant, Cut::Before, tally);
    KillAtAllCalls(operation, variant, Cut::InTheMiddle, tally);
  }
  tally.seconds = Since(start);
  return tally;
}

Tally Killer::AtInstructions(const Operation& operation, unsigned count) {
  const Clock::time_point start = Clock::now();
  Tally tally{operation.Name(), "instructions"};
  unsigned steps = 0;
  for (unsigned variant = 0; variant < operation.Variants().size(); ++variant) {
    if (!operation.IsTracedByInstruction(variant)) {
      continue;
    }
    const unsigned all = StepsOf(operation, variant);
    steps += all;
    const unsigned kills = std::min(count, all);
    for (unsigned i = 0; i < kills; ++i) {
      const auto number = static_cast<unsigned>(std::uint64_t{all} * i / kills);
      Stage stage(operation, variant, Manner::Once);
      KillAtInstruction(stage, number);
      stage.Check();
      stage.CountIn(tally, "after instruction " + std::to_string(number));
    }
  }
  tally.moments = "spread over " + std::to_string(steps) + " instructions";
  tally.seconds = Since(start);
  return tally;
}

}  // namespace kills
