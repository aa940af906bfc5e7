// Kills processes in the middle of what they do, has others look at what is left, and prints a table of it. Exit code 1
// when a promise was broken; else 77 when the moments within a step were left out, as no process may be traced here.
//
//     reliability_kills [--short] [--kills N] [--seed N] [--qs PATH] [OPERATION...]
//
// An operation is named by a part of its name, without regard to case, "-" for a blank: atomic-save, namedevent.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "kills_killer.h"
#include "kills_scene.h"

namespace {

using kills::Killer;
using kills::Operation;
using kills::Operations;
using kills::Tally;

struct Options {
  unsigned kills = 500;
  unsigned instructions = 300;
  std::uint64_t seed = std::random_device()();
  std::string qs;
  std::vector<std::string> operations;
};

Options Parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const char* const value = i + 1 < argc ? argv[i + 1] : "";
    if (word == "--short") {
      options.kills = 25;
      options.instructions = 40;
    } else if (word == "--kills") {
      options.kills = static_cast<unsigned>(std::atoi(value));
      ++i;
    } else if (word == "--seed") {
      options.seed = std::strtoull(value, nullptr, 10);
      ++i;
    } else if (word == "--qs") {
      options.qs = value;
      ++i;
    } else {
      options.operations.push_back(word);
    }
  }
  return options;
}

std::string AsWord(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](char c) {
    return c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  });
  return name;
}

bool IsWanted(const Options& options, const std::string& name) {
  bool isWanted = options.operations.empty();
  for (const std::string& operation : options.operations) {
    isWanted = isWanted || AsWord(name).find(AsWord(operation)) != std::string::npos;
  }
  return isWanted;
}

bool Print(const Tally& tally) {
  std::printf("| %s | %s | %u | %u | %u | %u | %u | %u | %.1f |\n", tally.operation.c_str(), tally.moments.c_str(),
              tally.kills, tally.before, tally.during, tally.after, tally.failures, tally.strays, tally.seconds);
  std::fflush(stdout);
  return tally.failures == 0;
}

constexpr int kSkipped = 77;

bool RunTraced(Killer& killer, const Operation& operation, const Options& options) {
  bool isGood = !operation.IsTraced() || Print(killer.AtSystemCalls(operation));
  bool isByInstruction = false;
  for (unsigned variant = 0; variant < operation.Variants().size(); ++variant) {
    isByInstruction = isByInstruction || operation.IsTracedByInstruction(variant);
  }
  if (isByInstruction) {
    isGood = Print(killer.AtInstructions(operation, options.instructions)) && isGood;
  }
  return isGood;
}

int RunAll(const Options& options) {
  std::printf("seed %llu\n\n", static_cast<unsigned long long>(options.seed));
  std::printf("| operation | moments | kills | before | during | after | failures | strays | seconds |\n");
  std::printf("|---|---|---|---|---|---|---|---|---|\n");
  std::fflush(stdout);
  Operations operations;
  operations.push_back(kills::AtomicSave());
  operations.push_back(kills::BackupAndRestore());
  operations.push_back(kills::Rotation());
  operations.push_back(kills::HeldMutex());
  operations.push_back(kills::NamedEvent());
  if (!options.qs.empty() && IsWanted(options, "qs fetch")) {
    operations.push_back(kills::Fetch(options.qs));
  }
  bool isGood = true;
  bool isAny = false;
  const bool mayTrace = Killer::MayTrace();
  Killer killer(options.seed);
  for (const auto& operation : operations) {
    if (IsWanted(options, operation->Name())) {
      isAny = true;
      isGood = Print(killer.AtRandom(*operation, options.kills)) && isGood;
      isGood = (!mayTrace || RunTraced(killer, *operation, options)) && isGood;
    }
  }
  if (!isAny) {
    throw std::runtime_error("no such operation");
  }
  return !isGood ? 1 : mayTrace ? 0 : kSkipped;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return RunAll(Parse(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
