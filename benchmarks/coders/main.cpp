// The coders of the library, its kernels and other libraries, each job beside its peers.
//
// usage: bench_coders --check FOLDER      compares all outputs at several sizes; writes the texts that the peers in
//                                         other languages take, job.data and job.text each
//        bench_coders [Google Benchmark's options]
//
// A measurement is named job/contestant/bytes of data.
#include <QSbase/codec/encodedecode.h>
#include <QSbase/simd/level.h>
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "../inputs.h"
#include "coders.h"

namespace qsbase::benchmarks {
namespace {

/// A job's data and text for a size.
struct Case {
  Case(const Job& what, std::size_t bytes) : job(what), data(MakeData(what.data, bytes)), text(what.text(data)) {}
  const std::string& Input() const { return job.decodes ? text : data; }
  const std::string& Result() const { return job.decodes ? data : text; }
  std::size_t Room() const { return data.size() * 4 + 4096; }

  const Job& job;
  std::string data;
  std::string text;
};

std::string WithoutBreaks(std::string_view text) {
  std::string result(text);
  std::erase_if(result, [](char c) { return c == '\r' || c == '\n'; });
  return result;
}

std::string Back(std::string_view job, const std::string& text) {
  const int flags = job.starts_with("yenc") ? 0x800 : job.starts_with("uu") ? 0x4 : job.starts_with("qp") ? 0x2 : 0x1;
  CEncodeDecode coder(75, 76);
  std::string data;
  coder.Decode(text, data, flags);
  return data;
}

bool Agrees(const Case& checked, Agreement agreement, std::string_view output) {
  switch (agreement) {
    case Agreement::kEqual:
      return output == checked.Result();
    case Agreement::kButBreaks:
      return WithoutBreaks(output) == WithoutBreaks(checked.Result());
    case Agreement::kBackButBreaks:
      return WithoutBreaks(Back(checked.job.name, std::string(output))) == WithoutBreaks(checked.data);
    default:
      return Back(checked.job.name, std::string(output)) == checked.data;
  }
}

void Write(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// Returns how many outputs differ.
int CheckJob(const Job& job, std::size_t size, const std::vector<Contestant>& all) {
  detail::UseSimdLevel(detail::SimdLevel::kScalar);
  const Case checked(job, size);
  Output output(checked.Room());
  int differing = 0;
  for (const Contestant& contestant : all) {
    if (std::string_view(contestant.job) != job.name) {
      continue;
    }
    output.Release();
    contestant.run(checked.Input(), output);
    detail::UseSimdLevel(detail::SimdLevel::kScalar);
    if (!Agrees(checked, contestant.agreement, output.Text())) {
      std::fprintf(stderr, "%s of %zu bytes by %s: the outputs differ\n", job.name, size, contestant.name.c_str());
      ++differing;
    }
  }
  return differing;
}

int Check(const std::filesystem::path& folder, const std::vector<Contestant>& all) {
  int differing = 0;
  for (const Job& job : Jobs()) {
    for (const std::size_t size : {std::size_t{64}, std::size_t{1000}, std::size_t{100'003}, kInputSize}) {
      differing += CheckJob(job, size, all);
    }
    const Case written(job, kInputSize);
    Write(folder / (std::string(job.name) + ".data"), written.data);
    Write(folder / (std::string(job.name) + ".text"), written.text);
  }
  return differing == 0 ? 0 : 1;
}

struct Measured : Case {
  Measured(const Job& what, std::size_t bytes) : Case(what, bytes), output(Room()) {}
  Output output;
};

/// That of the last call is kept: Google Benchmark comes several times for each measurement.
Measured& MeasuredOf(const Job& job, std::size_t size) {
  static std::unique_ptr<Measured> kept;
  if (kept == nullptr || &kept->job != &job || kept->data.size() != size) {
    kept.reset();
    detail::UseSimdLevel(detail::HighestSimdLevel());
    kept = std::make_unique<Measured>(job, size);
  }
  kept->output.Release();
  return *kept;
}

void Measure(benchmark::State& state, const Job& job, const Contestant& contestant) {
  Measured& measured = MeasuredOf(job, static_cast<std::size_t>(state.range(0)));
  Output& output = measured.output;
  contestant.run(measured.Input(), output);  // memory that the C library keeps for the next call is there then
  for (auto _ : state) {
    contestant.run(measured.Input(), output);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Register(const std::vector<Contestant>& all) {
  for (const Job& job : Jobs()) {
    for (std::int64_t size = 64; size <= 256 << 20; size *= 4) {
      for (const Contestant& contestant : all) {
        if (std::string_view(contestant.job) == job.name) {
          const std::string name = std::string(job.name) + "/" + contestant.name;
          benchmark::RegisterBenchmark(name.c_str(), [&](benchmark::State& state) {
            Measure(state, job, contestant);
          })->Arg(size);
        }
      }
    }
  }
}

}  // namespace
}  // namespace qsbase::benchmarks

int main(int argc, char** argv) {
  using namespace qsbase::benchmarks;
  std::vector<Contestant> all;
  AddInterface(all);
  AddKernels(all);
  AddPeers(all);
  if (argc == 3 && std::string_view(argv[1]) == "--check") {
    return Check(argv[2], all);
  }
  // Where the C library's allocator gets by itself after some calls, at the latest: memory up to 32 MiB is kept.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  Register(all);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
