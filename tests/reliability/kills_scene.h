/// \file
/// One process that is killed, and what those around it see of it: the memory that they share, and the interface of the
/// operations in which processes are killed.
#ifndef QSBASE_TESTS_RELIABILITY_KILLS_SCENE_H
#define QSBASE_TESTS_RELIABILITY_KILLS_SCENE_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kills {

constexpr std::size_t kTracks = 8;

/// What all processes of a scene share. It outlives each of them, so that a kill loses nothing that stands in it.
struct Shared {
  std::atomic<bool> ready;                                // the victim is about to begin
  std::atomic<bool> killed;                               // the victim is about to be killed, or was
  std::atomic<std::int32_t> victim;                       // its process
  std::array<std::atomic<std::uint64_t>, kTracks> begun;  // the number of the last operation that was begun...
  std::array<std::atomic<std::uint64_t>, kTracks> done;   // ...and that has returned, for each thread of the victim
  std::array<std::atomic<std::uint64_t>, kTracks> notes;  // the operation's own
  std::atomic<unsigned> present;                          // companions that are at work
  std::atomic<unsigned> strays;                           // temporary files that were left behind
  std::atomic<unsigned> textLength;
  std::array<char, 4000> text;  // what was found wrong
};

enum class Manner {
  Repeated,  // again and again until it is killed
  Once,      // between two stops by SIGSTOP, traced by its parent
};

class Scene {
 public:
  Scene(std::string ownFolder, Shared& memory, unsigned variantNumber, Manner how)
      : folder(std::move(ownFolder)), shared(memory), variant(variantNumber), manner(how) {}

  const std::string folder;  // for this scene alone
  Shared& shared;
  const unsigned variant;
  const Manner manner;

  /// In the victim: runs the step for 1, 2, 3... until it is killed, or once.
  void Run(const std::function<void(std::uint64_t)>& step) const;
  /// The same with so many threads, each of which has numbers of its own.
  void RunInThreads(unsigned count, const std::function<void(unsigned, std::uint64_t)>& step) const;

  std::uint64_t Begun(std::size_t track = 0) const { return shared.begun[track]; }
  std::uint64_t Done(std::size_t track = 0) const { return shared.done[track]; }

  /// Notes that something is wrong; any process.
  void Fail(const std::string& text) const;
  bool Expect(bool isRight, const std::string& text) const;
  bool HasFailed() const { return shared.textLength != 0; }

 private:
  void Step(unsigned track, std::uint64_t number, const std::function<void(unsigned, std::uint64_t)>& step) const;
};

/// Waits until the condition holds, but not for ever.
bool Await(const std::function<bool()>& condition, std::chrono::milliseconds limit = std::chrono::seconds(20));

/// What is done when the kill comes. Every function but the last two runs in a process of its own, so that no state of
/// the library is shared but what the system keeps.
class Operation {
 public:
  virtual ~Operation() = default;

  virtual std::string Name() const = 0;
  /// Forms of the operation, which take turns.
  virtual std::vector<std::string> Variants() const { return {""}; }

  virtual void Prepare(const Scene&) const {}
  /// Never returns when repeated.
  virtual void Work(const Scene& scene) const = 0;
  /// Others that are at it at the same time, until they are killed after Check(). They count themselves as present.
  virtual void Accompany(const Scene&, unsigned) const {}
  virtual void Check(const Scene& scene) const = 0;
  /// When the companions are gone, too.
  virtual void CheckAtTheEnd(const Scene&) const {}

  virtual unsigned Companions(unsigned /*variant*/) const { return 0; }
  /// How many steps the delay before the kill is drawn from.
  virtual unsigned Span() const { return 3; }
  /// How long a step takes; 0 to have it measured.
  virtual std::chrono::microseconds Length() const { return {}; }
  /// Whether every system call of one step is a moment to kill at, and every instruction.
  virtual bool IsTraced() const { return true; }
  virtual bool IsTracedByInstruction(unsigned /*variant*/) const { return false; }
};

using Operations = std::vector<std::unique_ptr<Operation>>;

std::unique_ptr<Operation> AtomicSave();
std::unique_ptr<Operation> BackupAndRestore();
std::unique_ptr<Operation> Rotation();
std::unique_ptr<Operation> HeldMutex();
std::unique_ptr<Operation> NamedEvent();
/// \param program the path of qs. Its server stands as long as the object.
std::unique_ptr<Operation> Fetch(const std::string& program);

// ---- files, behind the library's back ----

/// A content that tells its number; from 100 bytes to about 200 kB.
std::string Content(std::uint64_t number);

constexpr std::int64_t kNoFile = -1;
constexpr std::int64_t kTorn = -2;

/// The number of the whole content in the file.
std::int64_t NumberIn(const std::string& path);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
std::vector<std::string> NamesIn(const std::string& folder);

/// Whether the name is another one, a dot and digits: a temporary file of the library.
bool IsTemporaryOf(const std::string& name, const std::string& other);

}  // namespace kills

#endif
