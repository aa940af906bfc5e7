// The machine-wide mutex and the named event.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <string>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QSbase/sync/event.h>
#include <QSbase/sync/globalmutex.h>
#include <QSbase/sync/posix/sharedrecord.h>

#include "kills_scene.h"

namespace kills {

namespace {

std::string NameFor(const Scene& scene) { return std::filesystem::path(scene.folder).filename().string(); }

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

/// The file that stands for the name, wherever the library has put it; empty when there is none. The mutex has the name
/// in upper case.
std::string SharedFileOf(const Scene& scene) {
  const std::string wanted = Upper(NameFor(scene));
  for (const char* folder : {"/dev/shm", "/tmp"}) {
    for (const std::string& name : NamesIn(folder)) {
      if (name.size() > wanted.size() && name.starts_with("qsbase-") && Upper(name).ends_with(wanted)) {
        return std::string(folder) + "/" + name;
      }
    }
  }
  return {};
}

unsigned ModeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// ---- the mutex ----

class HeldMutexOperation : public Operation {
 public:
  std::string Name() const override { return "GlobalMutex"; }

  std::vector<std::string> Variants() const override {
    return {"held", "taken and left in turn", "taken and left by three at a time"};
  }

  unsigned Companions(unsigned variant) const override { return variant == kByThree ? 2 : 0; }

  void Work(const Scene& scene) const override {
    if (scene.manner == Manner::Once) {
      return scene.Run([&](std::uint64_t) { TakeAndLeave(scene); });
    }
    if (scene.variant != kHeld) {
      return scene.Run([&](std::uint64_t) { TakeAndLeave(scene); });
    }
    GlobalMutex mutex(NameFor(scene));
    scene.Expect(mutex.Enter(), "a free name was not given");
    scene.Run([&](std::uint64_t) { usleep(100); });
  }

  void Accompany(const Scene& scene, unsigned) const override {
    ++scene.shared.present;
    for (;;) {
      TakeAndLeave(scene);
      ++scene.shared.notes[kTurns];
    }
  }

  void Check(const Scene& scene) const override {
    const std::string file = SharedFileOf(scene);
    struct stat status {};
    const bool isThere = !file.empty() && stat(file.c_str(), &status) == 0;
    scene.Expect(!isThere || (status.st_size == 0 && (status.st_mode & 07777) == 0666),
                 "the file of the name is not as it should be");
    GlobalMutex mutex(NameFor(scene));
    if (scene.variant != kByThree) {
      scene.Expect(mutex.Enter(), "the name of a killed process is not free at once");
      return;
    }
    scene.Expect(Await([&] { return mutex.Enter(); }), "nobody else gets the name");
    mutex.Leave();
    const std::uint64_t turns = scene.shared.notes[kTurns];
    scene.Expect(Await([&] { return scene.shared.notes[kTurns] > turns + 2; }), "the others do not get the name");
  }

  void CheckAtTheEnd(const Scene& scene) const override {
    GlobalMutex mutex(NameFor(scene));
    scene.Expect(mutex.Enter(), "the name is not free at the end");
    GlobalMutex second(NameFor(scene));
    scene.Expect(!second.Enter(), "two have the name");
    scene.Expect(ModeOf(SharedFileOf(scene)) == 0666, "not everyone may use the name");
    scene.Expect(mutex.Leave(), "it cannot be left");
    const std::string file = SharedFileOf(scene);
    scene.Expect(file.empty(), "the file of the name has stayed: " + file);
  }

 private:
  static constexpr unsigned kHeld = 0;
  static constexpr unsigned kByThree = 2;
  static constexpr std::size_t kOwner = 0;
  static constexpr std::size_t kTurns = 1;

  // Who has the name stands in the shared memory, where nobody but a killed process may be found.
  static void TakeAndLeave(const Scene& scene) {
    GlobalMutex mutex(NameFor(scene));
    while (!mutex.Enter()) {
      usleep(10);
    }
    std::atomic<std::uint64_t>& owner = scene.shared.notes[kOwner];
    const auto self = static_cast<std::uint64_t>(getpid());
    const std::uint64_t before = owner.exchange(self);
    const auto victim = static_cast<std::uint64_t>(scene.shared.victim.load());
    scene.Expect(before == 0 || (before == victim && scene.shared.killed), "two had the name at a time");
    scene.Expect(owner.exchange(0) == self, "two had the name at the same time");
    scene.Expect(mutex.Leave(), "it cannot be left");
  }
};

// ---- the event ----

constexpr bool kManual = true;

class NamedEventOperation : public Operation {
 public:
  std::string Name() const override { return "QsNamedEvent"; }

  std::vector<std::string> Variants() const override {
    return {"waited for", "set", "set and reset, manual", "made and left"};
  }

  unsigned Companions(unsigned variant) const override { return variant == kWaitedFor ? 2 : 1; }
  bool IsTracedByInstruction(unsigned variant) const override { return variant != kMadeAndLeft; }

  void Work(const Scene& scene) const override {
    if (scene.variant == kMadeAndLeft) {
      return scene.Run([&](std::uint64_t) { MakeAndLeave(scene); });
    }
    QsNamedEvent event(IsManual(scene), false, NameFor(scene).c_str(), false);
    switch (scene.variant) {
      case kWaitedFor:
        return scene.Run([&](std::uint64_t) { WaitAsVictim(scene, event); });
      case kSet:
        return scene.Run([&](std::uint64_t number) { SetAndAwait(scene, event, number); });
      default:
        return scene.Run([&](std::uint64_t number) { SetAndReset(scene, event, number); });
    }
  }

  void Accompany(const Scene& scene, unsigned index) const override {
    if (scene.variant == kMadeAndLeft) {
      ++scene.shared.present;
      for (;;) {
        MakeAndLeave(scene);
      }
    }
    QsNamedEvent event(IsManual(scene), false, NameFor(scene).c_str(), false);
    scene.Expect(event.IsInit(), "a companion has no event");
    ++scene.shared.present;
    if (index == 1) {
      SetForEver(scene, event);
    }
    WaitForEver(scene, event);
  }

  void Check(const Scene& scene) const override {
    QsNamedEvent event(IsManual(scene), false, NameFor(scene).c_str(), false);
    if (!scene.Expect(event.IsInit(), "the event cannot be opened")) {
      return;
    }
    switch (scene.variant) {
      case kWaitedFor:
        return CheckThatWaitersWake(scene);
      case kSet:
        return CheckAfterSet(scene, event);
      case kSetAndReset:
        return CheckAfterSetAndReset(scene, event);
      default:
        event.SetEvent();
        scene.Expect(event.WaitFor(10000) == WaitResult::Signaled, "a signal does not come");
    }
  }

  // All are gone, also the one that looked: the name starts afresh.
  void CheckAtTheEnd(const Scene& scene) const override {
    {
      QsNamedEvent event(kManual, true, NameFor(scene).c_str(), false);
      scene.Expect(event.IsInit() && event.IsSet() && event.IsSet(), "the event does not start afresh");
      scene.Expect(ModeOf(SharedFileOf(scene)) == 0666, "not everyone may use the event");
    }
    const std::string file = SharedFileOf(scene);
    scene.Expect(file.empty(), "the file of the event has stayed: " + file);
  }

 private:
  static constexpr unsigned kWaitedFor = 0;
  static constexpr unsigned kSet = 1;
  static constexpr unsigned kSetAndReset = 2;
  static constexpr unsigned kMadeAndLeft = 3;
  static constexpr std::size_t kWoken = 0;   // how often the companion has come out of its wait
  static constexpr std::size_t kTaken = 1;   // how often the victim has
  static constexpr std::size_t kUnseen = 2;  // signals that nobody has taken in time
  static constexpr std::size_t kAgain = 3;   // how often the companion has seen the event reset

  static bool IsManual(const Scene& scene) { return scene.variant == kSetAndReset; }
  static std::uint64_t Note(const Scene& scene, std::size_t note) { return scene.shared.notes[note]; }

  // Traced: the signal is its own, unless the companion is faster.
  static void WaitAsVictim(const Scene& scene, QsNamedEvent& event) {
    if (scene.manner == Manner::Once) {
      event.SetEvent();
      event.WaitFor(1);
      return;
    }
    scene.Expect(event.WaitFor(-1) == WaitResult::Signaled, "a wait failed");
    ++scene.shared.notes[kTaken];
  }

  static void SetAndAwait(const Scene& scene, QsNamedEvent& event, std::uint64_t number) {
    event.SetEvent();
    if (scene.manner == Manner::Repeated) {
      scene.Expect(Await([&] { return Note(scene, kWoken) >= number; }), "a signal was lost");
    }
  }

  static void SetAndReset(const Scene& scene, QsNamedEvent& event, std::uint64_t number) {
    event.SetEvent();
    if (scene.manner == Manner::Repeated) {
      scene.Expect(Await([&] { return Note(scene, kWoken) >= number; }), "a signal was lost");
    }
    event.ResetEvent();
    if (scene.manner == Manner::Repeated) {
      scene.Expect(Await([&] { return Note(scene, kAgain) >= number; }), "a reset was lost");
    }
  }

  static void MakeAndLeave(const Scene& scene) {
    QsNamedEvent event(kManual, false, NameFor(scene).c_str(), false);
    scene.Expect(event.IsInit(), "the event cannot be made");
    event.SetEvent();
    event.ResetEvent();
  }

  static void WaitForEver(const Scene& scene, QsNamedEvent& event) {
    for (;;) {
      scene.Expect(event.WaitFor(-1) == WaitResult::Signaled, "a wait failed");
      ++scene.shared.notes[kWoken];
      while (IsManual(scene) && event.IsSet()) {
        usleep(10);
      }
      ++scene.shared.notes[kAgain];
    }
  }

  // One signal at a time. The one that the victim took as it was killed is not to be seen.
  static void SetForEver(const Scene& scene, QsNamedEvent& event) {
    constexpr std::chrono::milliseconds kLate(500);
    for (;;) {
      const std::uint64_t before = Note(scene, kWoken) + Note(scene, kTaken);
      event.SetEvent();
      if (!Await([&] { return Note(scene, kWoken) + Note(scene, kTaken) > before; }, kLate)) {
        ++scene.shared.notes[kUnseen];
      }
    }
  }

  static void CheckThatWaitersWake(const Scene& scene) {
    const std::uint64_t woken = Note(scene, kWoken);
    scene.Expect(Await([&] { return Note(scene, kWoken) > woken + 3; }), "the others do not wake any more");
    scene.Expect(Note(scene, kUnseen) <= 1, "more signals are lost than the one that the killed process had taken");
  }

  static void ExpectThreeToWake(const Scene& scene, QsNamedEvent& event) {
    for (int i = 0; i < 3; ++i) {
      const std::uint64_t woken = Note(scene, kWoken);
      event.SetEvent();
      scene.Expect(Await([&] { return Note(scene, kWoken) > woken; }), "a new signal does not wake");
      if (IsManual(scene)) {
        event.ResetEvent();
      }
      scene.Expect(Await([&] { return Note(scene, kAgain) == Note(scene, kWoken); }), "the event is stuck");
    }
    scene.Expect(Await([&] { return Note(scene, kWoken) >= scene.Done() + 3; }), "a signal was lost");
    scene.Expect(Note(scene, kWoken) <= scene.Begun() + 3, "a signal woke twice");
  }

  // Whether a signal is there, without taking it.
  static bool HasSignal(const Scene& scene) {
    const std::string bytes = ReadFile(SharedFileOf(scene));
    constexpr std::size_t kWord = offsetof(qsbase::detail::EventRecord, word);
    return scene.Expect(bytes.size() > kWord, "the event has no record") && (bytes[kWord] & 1) != 0;
  }

  // A signal of the killed process was given wholly or not at all.
  static void CheckAfterSet(const Scene& scene, QsNamedEvent& event) {
    scene.Expect(Await([&] { return Note(scene, kWoken) >= scene.Done(); }), "a signal was lost");
    scene.Expect(Await([&] { return !HasSignal(scene); }), "a signal is there that wakes nobody");
    ExpectThreeToWake(scene, event);
  }

  static void CheckAfterSetAndReset(const Scene& scene, QsNamedEvent& event) {
    if (event.IsSet()) {
      scene.Expect(Await([&] { return Note(scene, kWoken) >= scene.Begun(); }), "a signal is there that wakes nobody");
      event.ResetEvent();
    }
    scene.Expect(Await([&] { return Note(scene, kWoken) >= scene.Done(); }), "a signal was lost");
    scene.Expect(Await([&] { return Note(scene, kAgain) == Note(scene, kWoken); }), "a reset was lost");
    ExpectThreeToWake(scene, event);
  }
};

}  // namespace

std::unique_ptr<Operation> HeldMutex() { return std::make_unique<HeldMutexOperation>(); }

std::unique_ptr<Operation> NamedEvent() { return std::make_unique<NamedEventOperation>(); }

}  // namespace kills
