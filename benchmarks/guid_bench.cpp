// GUIDs and their text beside libuuid's.
#include <QSbase/text/guid.h>
#include <benchmark/benchmark.h>
#include <uuid/uuid.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kCount = 1024;

struct Sample {
  QsGUID guid;
  std::array<unsigned char, 16> data{};  // the same for libuuid
  std::string text;
};

std::vector<Sample> MakeSamples() {
  std::vector<Sample> samples(kCount);
  for (Sample& sample : samples) {
    sample.guid.Create();
    std::memcpy(sample.data.data(), sample.guid.GetData(), sample.data.size());
    sample.text = sample.guid.ToStringNoBraces();
  }
  return samples;
}

// Both ways, each by the other.
bool Agree(const Sample& sample) {
  char text[UUID_STR_LEN];
  uuid_unparse_upper(sample.data.data(), text);
  QsGUID read;
  read.FromStringNoBraces(text);
  uuid_t data;
  return sample.text == text && read == sample.guid && uuid_parse(sample.text.c_str(), data) == 0 &&
         std::memcmp(data, sample.data.data(), sizeof(data)) == 0;
}

const std::vector<Sample>& Samples() {
  static const std::vector<Sample> samples = MakeSamples();
  for (const Sample& sample : samples) {
    if (!Agree(sample)) {
      std::puts("the outputs differ");
      std::exit(1);
    }
  }
  return samples;
}

template <typename Function>
void ForEachSample(benchmark::State& state, Function function) {
  const std::vector<Sample>& samples = Samples();
  std::size_t i = 0;
  for (auto _ : state) {
    function(samples[i++ % kCount]);
  }
}

void ToText(benchmark::State& state) {
  ForEachSample(state, [](const Sample& sample) { benchmark::DoNotOptimize(sample.guid.ToStringNoBraces()); });
}

// Into a buffer of the caller's: no memory is asked for.
void UuidToText(benchmark::State& state) {
  ForEachSample(state, [](const Sample& sample) {
    char text[UUID_STR_LEN];
    uuid_unparse_upper(sample.data.data(), text);
    benchmark::DoNotOptimize(text);
  });
}

void UuidToString(benchmark::State& state) {
  ForEachSample(state, [](const Sample& sample) {
    char text[UUID_STR_LEN];
    uuid_unparse_upper(sample.data.data(), text);
    benchmark::DoNotOptimize(std::string(text));
  });
}

void FromText(benchmark::State& state) {
  QsGUID guid;
  ForEachSample(state, [&](const Sample& sample) {
    guid.FromStringNoBraces(sample.text);
    benchmark::DoNotOptimize(guid);
  });
}

void UuidFromText(benchmark::State& state) {
  ForEachSample(state, [](const Sample& sample) {
    uuid_t data;
    benchmark::DoNotOptimize(uuid_parse(sample.text.c_str(), data));
    benchmark::DoNotOptimize(data);
  });
}

void Create(benchmark::State& state) {
  QsGUID guid;
  for (auto _ : state) {
    guid.Create();
    benchmark::DoNotOptimize(guid);
  }
}

void UuidCreate(benchmark::State& state) {
  uuid_t data;
  for (auto _ : state) {
    uuid_generate_random(data);
    benchmark::DoNotOptimize(data);
  }
}

BENCHMARK(ToText);
BENCHMARK(UuidToText);
BENCHMARK(UuidToString);
BENCHMARK(FromText);
BENCHMARK(UuidFromText);
BENCHMARK(Create);
BENCHMARK(UuidCreate);

}  // namespace
