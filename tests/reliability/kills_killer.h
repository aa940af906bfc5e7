/// \file
/// Starts the processes of an operation, kills one of them and has another one look.
#ifndef QSBASE_TESTS_RELIABILITY_KILLS_KILLER_H
#define QSBASE_TESTS_RELIABILITY_KILLS_KILLER_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kills_scene.h"

namespace kills {

/// Of one operation and one way to choose the moments.
struct Tally {
  std::string operation;
  std::string moments;
  unsigned kills = 0;
  unsigned before = 0;  // nothing was begun
  unsigned during = 0;
  unsigned after = 0;  // all that was begun had returned
  unsigned failures = 0;
  unsigned strays = 0;
  double seconds = 0;
};

class Killer {
 public:
  explicit Killer(std::uint64_t seed) : _random(seed) {}

  /// Whether the system lets a process trace its child: not every container does.
  static bool MayTrace();

  /// So many kills, each after a delay that is drawn from the measured length of the operation.
  Tally AtRandom(const Operation& operation, unsigned count);
  /// A kill before each system call of one step, and one after each write that was let through by half. Needs MayTrace.
  Tally AtSystemCalls(const Operation& operation);
  /// A kill after each of so many instructions, evenly spread over one step. Needs MayTrace.
  Tally AtInstructions(const Operation& operation, unsigned count);

 private:
  std::mt19937_64 _random;
};

}  // namespace kills

#endif
