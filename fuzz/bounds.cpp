#include "bounds.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "heap.h"
#include "target.h"

namespace qsbase::fuzz {

namespace {

constexpr std::size_t kGrowth = 8;        // how much more text
constexpr double kMostGrowthOfTime = 24;  // the geometric middle of linear and quadratic
constexpr std::clock_t kWorthALook = CLOCKS_PER_SEC / 100;
constexpr int kMeasurements = 5;

bool IsRepeated([[maybe_unused]] std::string_view text) {
#ifdef QSBASE_FUZZ_REPLAY
  return true;
#else
  constexpr std::uint64_t kRepeatedShare = 1000;  // libFuzzer's speed has to last for the rest
  std::uint64_t hash = 0xcbf29ce484222325;        // FNV-1a: the same inputs in every run
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  }
  return hash % kRepeatedShare == 0;
#endif
}

void DemandMemory(const char* what, const std::string& text, const Operation& operation) {
  std::size_t result = 0;
  std::size_t peak = 0;
  {
    const HeapMeter meter;
    result = operation(text);
    peak = meter.Peak();
  }
  if (peak > text.size() + result + kRoom) {
    Demand(std::string(what) + " took " + std::to_string(peak) + " bytes for a text of " + std::to_string(text.size()) +
           " and a result of " + std::to_string(result));
  }
}

std::clock_t TimeOf(const std::string& text, const Operation& operation) {
  const std::clock_t begin = std::clock();
  operation(text);
  return std::clock() - begin;
}

void DemandLinearTime(const char* what, const std::string& few, const std::string& many, const Operation& operation) {
  std::clock_t timeOfFew = TimeOf(few, operation);
  std::clock_t timeOfMany = TimeOf(many, operation);
  const auto isLinear = [&] {
    return timeOfMany < kWorthALook ||
           static_cast<double>(timeOfMany) < kMostGrowthOfTime * static_cast<double>(timeOfFew);
  };
  for (int i = 1; i < kMeasurements && !isLinear(); ++i) {
    timeOfFew = std::min(timeOfFew, TimeOf(few, operation));
    timeOfMany = std::min(timeOfMany, TimeOf(many, operation));
  }
  if (!isLinear()) {
    Demand(std::string(what) + " took " + std::to_string(timeOfFew) + " us for " + std::to_string(few.size()) +
           " bytes, but " + std::to_string(timeOfMany) + " us for " + std::to_string(many.size()));
  }
}

}  // namespace

std::string Repeated(std::string_view text, std::size_t size) {
  if (text.empty()) {
    text = " ";
  }
  std::string repeated;
  repeated.reserve(size);
  while (repeated.size() < size) {
    repeated.append(text.substr(0, size - repeated.size()));
  }
  return repeated;
}

void DemandBounds(const char* what, std::string_view text, const Operation& operation, std::size_t longest) {
  DemandMemory(what, std::string(text), operation);
  if (!IsRepeated(text)) {
    return;
  }
  if (std::getenv("QSBASE_FUZZ_TIME") != nullptr) {  // NOLINT(concurrency-mt-unsafe): nothing sets it meanwhile
    DemandLinearTime(what, Repeated(text, longest / 4 / kGrowth), Repeated(text, longest / 4), operation);
  }
  DemandMemory(what, Repeated(text, longest), operation);
}

}  // namespace qsbase::fuzz
