/// \file
/// What the tests with hostile peers share: how long a call takes, how much memory it takes at its worst, and whether
/// it leaves anything behind.
#ifndef QSBASE_TESTS_RELIABILITY_COMMON_PEERS_H
#define QSBASE_TESTS_RELIABILITY_COMMON_PEERS_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include <QSbase/net/http.h>

#include <common/sanitized.h>
#include <integration/common/holdings.h>

namespace qsbase::testing {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// Of the process, from the first page on: resident "VmRSS" now, "VmHWM" at its worst; asked for, if touched or not,
/// "VmSize" now, "VmPeak" at its worst.
inline std::int64_t MemoryOf(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, name.size() + 1, name + ":") == 0) {
      return std::stoll(line.substr(name.size() + 1)) * 1024;
    }
  }
  return 0;
}

struct Cost {
  milliseconds time{};
  std::int64_t memory = 0;    ///< bytes that came to be resident at the worst moment, the peer's own among them
  std::int64_t reserved = 0;  ///< bytes asked for beyond the worst moment of all calls before, stacks among them
};

/// Where the system does not let the peak begin anew, the memory is what exceeds that of all calls before.
inline Cost CostOf(const std::function<void()>& call) {
  std::ofstream("/proc/self/clear_refs") << "5";
  const std::int64_t before = MemoryOf("VmHWM");
  const std::int64_t reserved = MemoryOf("VmPeak");
  const Clock::time_point start = Clock::now();
  call();
  Cost cost;
  cost.time = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
  cost.memory = MemoryOf("VmHWM") - before;
  cost.reserved = MemoryOf("VmPeak") - reserved;
  return cost;
}

/// One line of the figures.
inline void Tell(std::string peer, const Cost& cost, const std::string& outcome) {
  std::replace_if(
      peer.begin(), peer.end(), [](char c) { return c >= 0 && c < ' '; }, '~');
  std::cout << "figure: " << std::left << std::setw(46) << peer << std::right << std::setw(8) << cost.time.count()
            << " ms" << std::setw(8) << cost.memory / 1024 << " KiB  " << outcome << std::endl;
}

/// Against a peer that keeps sending or says nothing. A machine that does much else may take its time.
constexpr seconds kPatience{60};

/// More than a transfer needs for itself, and little beside what the peers announce or send.
constexpr std::int64_t kMemory = std::int64_t{16} << 20;

inline void ExpectBounded(const std::string& peer, const Cost& cost, std::int64_t memory = kMemory) {
  EXPECT_LT(cost.time, kPatience) << peer;
#ifndef QSBASE_TESTS_SANITIZED  // which keep what is freed
  EXPECT_LT(cost.memory, memory) << peer;
#else
  static_cast<void>(memory);
#endif
}

/// Against a peer that announces 2 GiB or more: memory that nobody touches is not resident, but asked for. Threads have
/// heaps and stacks of their own, some hundred MiB of addresses.
inline void ExpectNothingReserved(const std::string& peer, const Cost& cost) {
#ifndef QSBASE_TESTS_SANITIZED
  EXPECT_LT(cost.reserved, std::int64_t{1} << 30) << peer;
#else
  static_cast<void>(peer);
  static_cast<void>(cost);
#endif
}

/// A test that leaves no descriptor and no thread behind.
class PeerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    InitQsInetHttp(1);
    _before = Held();
  }
  void TearDown() override {
    const Holdings after = Held();
    EXPECT_EQ(after.handles, _before.handles);
    EXPECT_EQ(after.threads, _before.threads);
    InitQsInetHttp(2);
  }

 private:
  Holdings _before;
};

}  // namespace qsbase::testing

#endif
