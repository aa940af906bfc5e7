// Interning 1,000,000 strings beside std::unordered_map with a vector of its keys.
#include <QSbase/text/stringcache.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

constexpr std::size_t kStrings = 1000000;

/// Distinct, 12 to 40 characters, in no order.
const std::vector<std::string>& Strings() {
  static const std::vector<std::string> strings = [] {
    std::mt19937 random(20261121);
    std::vector<std::string> made;
    for (std::size_t i = 0; i < kStrings; ++i) {
      std::string text = std::to_string(i) + "@";
      for (std::size_t length = 12 + random() % 28; text.size() < length;) {
        text.insert(text.begin(), static_cast<char>('a' + random() % 26));
      }
      made.push_back(text);
    }
    std::shuffle(made.begin(), made.end(), random);
    return made;
  }();
  return strings;
}

/// The same strings in another order.
const std::vector<std::string>& Queries() {
  static const std::vector<std::string> queries = [] {
    std::vector<std::string> shuffled = Strings();
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
    return shuffled;
  }();
  return queries;
}

class HashCache {
 public:
  bool GetID(const std::string& text, unsigned int& id) {
    const auto [place, added] = _ids.try_emplace(text, static_cast<unsigned int>(_strings.size()));
    if (added) {
      _strings.push_back(&place->first);
    }
    id = place->second;
    return true;
  }

  bool GetString(unsigned int id, std::string& text) const {
    text = *_strings[id];
    return true;
  }

 private:
  std::unordered_map<std::string, unsigned int> _ids;
  std::vector<const std::string*> _strings;
};

template <typename Cache>
void Fill(Cache& cache) {
  unsigned int id = 0;
  for (const std::string& text : Strings()) {
    cache.GetID(text, id);
  }
}

void CountStrings(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kStrings));
}

template <typename Cache>
void Insert(benchmark::State& state) {
  Strings();
  for (auto _ : state) {
    auto cache = std::make_unique<Cache>();
    Fill(*cache);
    state.PauseTiming();
    cache.reset();
    state.ResumeTiming();
  }
  CountStrings(state);
}

template <typename Cache>
void LookUp(benchmark::State& state) {
  Cache cache;
  Fill(cache);
  unsigned int id = 0;
  std::uint64_t sum = 0;
  for (auto _ : state) {
    for (const std::string& text : Queries()) {
      cache.GetID(text, id);
      sum += id;
    }
  }
  benchmark::DoNotOptimize(sum);
  CountStrings(state);
}

template <typename Cache>
void StringOfId(benchmark::State& state) {
  Cache cache;
  Fill(cache);
  std::string text;
  for (auto _ : state) {
    for (unsigned int id = 0; id < kStrings; ++id) {
      cache.GetString(id, text);
      if (text.size() != Strings()[id].size()) {
        throw std::runtime_error("another string");
      }
    }
  }
  CountStrings(state);
}

BENCHMARK_TEMPLATE(Insert, StringCache)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Insert, HashCache)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(LookUp, StringCache)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(LookUp, HashCache)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(StringOfId, StringCache)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(StringOfId, HashCache)->Unit(benchmark::kMillisecond);

}  // namespace
