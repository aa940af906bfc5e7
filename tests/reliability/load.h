/// \file
/// Large amounts of work for the library, and what they take. Every item looks at what came out; it throws when
/// something is wrong. load.cpp is the program, load (a script) runs it at several sizes.
#ifndef QSBASE_TESTS_RELIABILITY_LOAD_H
#define QSBASE_TESTS_RELIABILITY_LOAD_H

#include <cstdint>
#include <functional>
#include <string>

namespace qsbase::testing {

/// Throws std::runtime_error with this text unless the condition holds.
void Require(bool condition, const std::string& what);

/// The same for two numbers, which the text of the error names.
void RequireEqual(std::int64_t actual, std::int64_t expected, const std::string& what);

/// Does the work and prints a line of fields with tabs between them: what, count, seconds of the processor, the
/// process's peak of resident memory in KiB, by how much that is more than at the beginning, and by how much more heap
/// is in use at the end. The last three are 0 where the system does not tell.
void Measure(const std::string& what, std::int64_t count, const std::function<void()>& work);

/// Bytes of heap in use; 0 where the C library does not tell.
std::int64_t HeapInUse();

/// Uniform numbers, the same ones in each run.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : _state(seed) {}

  /// From 0 to below \p bound.
  std::int64_t Below(std::int64_t bound);

 private:
  std::uint64_t _state;
};

// The items: how much, in the unit that load.cpp names, and an empty folder.
void LogLines(std::int64_t lines, const std::string& dir);
void LogLinesFlushed(std::int64_t lines, const std::string& dir);
void LogLinesTrimmed(std::int64_t lines, const std::string& dir);
void SendMessages(std::int64_t messages, const std::string& dir);
void RunADay(std::int64_t seconds, const std::string& dir);
void CleanUp(std::int64_t files, const std::string& dir);
void ListNames(std::int64_t names, const std::string& dir);
void MakeUniqueNames(std::int64_t names, const std::string& dir);
void WalkDeepTree(std::int64_t levels, const std::string& dir);
void HandleBigFile(std::int64_t mebibytes, const std::string& dir);
void HandleManyEntries(std::int64_t entries, const std::string& dir);
void HandleLargeEntry(std::int64_t mebibytes, const std::string& dir);

}  // namespace qsbase::testing

#endif
