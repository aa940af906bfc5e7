// Bit arrays of 1,000,000 bits beside Boost's and the standard library's.
#include <QSbase/text/bitaccessor.h>
#include <benchmark/benchmark.h>

#include <bitset>
#include <boost/dynamic_bitset.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr unsigned int kBits = 1000000;

// One of the three under one name each.
class Qs {
 public:
  void Set(unsigned int index) { _bits.Set(index); }
  bool IsSet(unsigned int index) const { return _bits.IsSet(index); }
  unsigned int First() const { return _bits.First(true); }
  unsigned int Next(unsigned int index) const { return _bits.Next(index, true); }
  void Or(const Qs& other) { _bits |= other._bits; }
  void And(const Qs& other) { _bits &= other._bits; }

 private:
  BitAccessor _bits{kBits};
};

class Boost {
 public:
  void Set(unsigned int index) { _bits.set(index); }
  bool IsSet(unsigned int index) const { return _bits.test(index); }
  unsigned int First() const { return static_cast<unsigned int>(_bits.find_first()); }
  unsigned int Next(unsigned int index) const { return static_cast<unsigned int>(_bits.find_next(index)); }
  void Or(const Boost& other) { _bits |= other._bits; }
  void And(const Boost& other) { _bits &= other._bits; }

 private:
  boost::dynamic_bitset<> _bits{kBits};
};

class Std {
 public:
  void Set(unsigned int index) { _bits->set(index); }
  bool IsSet(unsigned int index) const { return _bits->test(index); }
  unsigned int First() const { return Index(_bits->_Find_first()); }
  unsigned int Next(unsigned int index) const { return Index(_bits->_Find_next(index)); }
  void Or(const Std& other) { *_bits |= *other._bits; }
  void And(const Std& other) { *_bits &= *other._bits; }

 private:
  static unsigned int Index(std::size_t index) {
    return index == kBits ? 0xFFFFFFFF : static_cast<unsigned int>(index);
  }

  std::unique_ptr<std::bitset<kBits>> _bits = std::make_unique<std::bitset<kBits>>();
};

// Every `gap`-th bit in the middle, by chance.
std::vector<unsigned int> Indices(unsigned int gap) {
  std::mt19937 random(gap);
  std::vector<unsigned int> indices;
  for (unsigned int i = 0; i < kBits; ++i) {
    if (random() % gap == 0) {
      indices.push_back(i);
    }
  }
  return indices;
}

template <typename Bits>
void Fill(Bits& bits, unsigned int gap) {
  for (const unsigned int index : Indices(gap)) {
    bits.Set(index);
  }
}

template <typename Bits>
Bits Filled(unsigned int gap) {
  Bits bits;
  Fill(bits, gap);
  return bits;
}

template <typename Bits>
std::vector<unsigned int> Found(const Bits& bits) {
  std::vector<unsigned int> found;
  for (unsigned int i = bits.First(); i != 0xFFFFFFFF; i = bits.Next(i)) {
    found.push_back(i);
  }
  return found;
}

template <typename Bits>
std::vector<std::vector<unsigned int>> Outputs() {
  std::vector<std::vector<unsigned int>> outputs;
  for (const unsigned int gap : {1U, 2U, 20U, 1000U, 500000U}) {
    outputs.push_back(Found(Filled<Bits>(gap)));
  }
  Bits either = Filled<Bits>(2);
  either.Or(Filled<Bits>(3));
  outputs.push_back(Found(either));
  Bits both = Filled<Bits>(2);
  both.And(Filled<Bits>(3));
  outputs.push_back(Found(both));
  return outputs;
}

void CompareOutputs() {
  static const bool same = Outputs<Qs>() == Outputs<Boost>() && Outputs<Qs>() == Outputs<Std>();
  if (!same) {
    std::puts("the outputs differ");
    std::exit(1);
  }
}

// All set bits; the argument is their mean distance.
template <typename Bits>
void Walk(benchmark::State& state) {
  CompareOutputs();
  const auto bits = Filled<Bits>(static_cast<unsigned int>(state.range(0)));
  for (auto _ : state) {
    unsigned int sum = 0;
    for (unsigned int i = bits.First(); i != 0xFFFFFFFF; i = bits.Next(i)) {
      sum += i;
    }
    benchmark::DoNotOptimize(sum);
  }
}

// The last bit is the only one.
template <typename Bits>
void FindLast(benchmark::State& state) {
  CompareOutputs();
  Bits bits;
  bits.Set(kBits - 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(bits.First());
  }
}

// Allocated one behind the other: the distance of the two in memory decides on the speed, so it is the same for all.
template <typename Bits>
struct Pair {
  Pair() {
    Fill(left, 3);
    Fill(right, 2);
  }

  Bits left;
  Bits right;
};

template <typename Bits>
void Or(benchmark::State& state) {
  CompareOutputs();
  Pair<Bits> pair;
  for (auto _ : state) {
    pair.left.Or(pair.right);
    benchmark::ClobberMemory();
  }
}

template <typename Bits>
void And(benchmark::State& state) {
  CompareOutputs();
  Pair<Bits> pair;
  for (auto _ : state) {
    pair.left.And(pair.right);
    benchmark::ClobberMemory();
  }
}

// Every bit asked for in turn.
template <typename Bits>
void Test(benchmark::State& state) {
  CompareOutputs();
  const Bits bits = Filled<Bits>(2);
  for (auto _ : state) {
    unsigned int count = 0;
    for (unsigned int i = 0; i < kBits; ++i) {
      count += bits.IsSet(i) ? 1 : 0;
    }
    benchmark::DoNotOptimize(count);
  }
}

#define BENCHMARK_ALL(name, ...)               \
  BENCHMARK_TEMPLATE(name, Qs) __VA_ARGS__;    \
  BENCHMARK_TEMPLATE(name, Boost) __VA_ARGS__; \
  BENCHMARK_TEMPLATE(name, Std) __VA_ARGS__

BENCHMARK_ALL(Walk, ->Arg(1)->Arg(2)->Arg(20)->Arg(1000));
BENCHMARK_ALL(FindLast);
BENCHMARK_ALL(Or);
BENCHMARK_ALL(And);
BENCHMARK_ALL(Test);

}  // namespace
