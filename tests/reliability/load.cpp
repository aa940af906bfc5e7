// reliability_load ITEM COUNT: one item of load.h in a folder of its own below the system's one for temporary files.
// Without arguments the items. Exits with 1 when something is wrong.
#include <reliability/load.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

#ifndef _WIN32
#include <malloc.h>
#endif

#include <common/tempdir.h>

namespace qsbase::testing {

namespace {

struct Item {
  const char* name;
  const char* unit;
  void (*run)(std::int64_t count, const std::string& dir);
};

constexpr Item kItems[] = {
    {"log", "lines", &LogLines},
    {"log-flushed", "lines", &LogLinesFlushed},
    {"log-trimmed", "lines", &LogLinesTrimmed},
    {"messages", "messages", &SendMessages},
    {"day", "seconds of a clock", &RunADay},
    {"clean-up", "files", &CleanUp},
    {"list", "names", &ListNames},
    {"unique", "names", &MakeUniqueNames},
    {"tree", "levels", &WalkDeepTree},
    {"big-file", "MiB (46, 460 or 4608)", &HandleBigFile},
    {"zip-entries", "entries", &HandleManyEntries},
    {"zip-large", "MiB", &HandleLargeEntry},
};

#ifdef _WIN32
void ForgetPeak() {}
std::int64_t StatusKiB(const char* /*field*/) { return 0; }
#else
// Free memory goes back to the system first, so that what is used again counts.
void ForgetPeak() {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";
}

std::int64_t StatusKiB(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string name; status >> name;) {
    if (name == field) {
      std::int64_t value = 0;
      status >> value;
      return value;
    }
    status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return 0;
}
#endif

int Usage() {
  std::fputs("usage: reliability_load ITEM COUNT\n", stderr);
  for (const Item& item : kItems) {
    std::fprintf(stderr, "  %-14s COUNT %s\n", item.name, item.unit);
  }
  return 2;
}

int Run(const Item& item, std::int64_t count) {
  try {
    const TempDir dir;
    item.run(count, dir.Path());
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s %lld: %s\n", item.name, static_cast<long long>(count), error.what());
    return 1;
  }
}

}  // namespace

void Require(bool condition, const std::string& what) {
  if (!condition) {
    throw std::runtime_error(what);
  }
}

void RequireEqual(std::int64_t actual, std::int64_t expected, const std::string& what) {
  if (actual != expected) {
    throw std::runtime_error(what + ": " + std::to_string(actual) + " instead of " + std::to_string(expected));
  }
}

std::int64_t HeapInUse() {
#ifdef __GLIBC__
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
#else
  return 0;
#endif
}

void Measure(const std::string& what, std::int64_t count, const std::function<void()>& work) {
  ForgetPeak();
  const std::int64_t resident = StatusKiB("VmRSS:");
  const std::int64_t heap = HeapInUse();
  const std::clock_t start = std::clock();
  work();
  const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  const std::int64_t kept = HeapInUse() - heap;
  const std::int64_t peak = StatusKiB("VmHWM:");
  std::printf("%s\t%lld\t%.4f\t%lld\t%lld\t%lld\n", what.c_str(), static_cast<long long>(count), seconds,
              static_cast<long long>(peak), static_cast<long long>(peak - resident),
              static_cast<long long>(kept / 1024));
  std::fflush(stdout);
}

// SplitMix64.
std::int64_t Dice::Below(std::int64_t bound) {
  std::uint64_t mixed = _state += 0x9E3779B97F4A7C15;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
  mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
  return static_cast<std::int64_t>((mixed ^ (mixed >> 31)) % static_cast<std::uint64_t>(bound));
}

}  // namespace qsbase::testing

int main(int argc, char** argv) {
  const std::string wanted = argc == 3 ? argv[1] : "";
  for (const qsbase::testing::Item& item : qsbase::testing::kItems) {
    if (item.name == wanted) {
      return qsbase::testing::Run(item, std::strtoll(argv[2], nullptr, 10));
    }
  }
  return qsbase::testing::Usage();
}
