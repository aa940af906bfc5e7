// QsCompress and QsUncompress beside zlib's own functions.
#include <QSbase/support/zlibsupport.h>
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "inputs.h"

namespace {

constexpr std::size_t kSize = std::size_t{16} << 20;

const std::string& Text() {
  static const std::string text = qsbase::benchmarks::MailText(kSize);
  return text;
}

const Bytef* Bytes(const std::string& text) { return reinterpret_cast<const Bytef*>(text.data()); }

// As a user of zlib would write it: a buffer of the largest size, and a string of what came.
std::string ZlibCompress(const std::string& text) {
  uLong size = compressBound(text.size());
  const std::unique_ptr<Bytef[]> buffer(new Bytef[size]);
  compress(buffer.get(), &size, Bytes(text), text.size());
  return std::string(reinterpret_cast<const char*>(buffer.get()), size);
}

std::string ZlibUncompress(const std::string& packed) {
  uLong size = kSize;
  const std::unique_ptr<Bytef[]> buffer(new Bytef[size]);
  uncompress(buffer.get(), &size, Bytes(packed), packed.size());
  return std::string(reinterpret_cast<const char*>(buffer.get()), size);
}

std::string QsCompressed(const std::string& text) {
  std::string out;
  QsCompress(out, text);
  return out;
}

std::string QsUncompressed(const std::string& packed) {
  std::string out;
  QsUncompress(out, kSize, packed);
  return out;
}

const std::string& Packed() {
  static const std::string packed = ZlibCompress(Text());
  return packed;
}

const bool compared = [] {
  if (QsCompressed(Text()) != Packed() || QsUncompressed(Packed()) != Text() || ZlibUncompress(Packed()) != Text()) {
    std::fputs("zlib_bench: outputs differ\n", stderr);
    std::exit(1);
  }
  return true;
}();

void Measure(benchmark::State& state, std::string (*run)(const std::string&), const std::string& input) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(run(input));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kSize));
}

BENCHMARK_CAPTURE(Measure, compress_qs, &QsCompressed, Text())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, compress_zlib, &ZlibCompress, Text())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, uncompress_qs, &QsUncompressed, Packed())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Measure, uncompress_zlib, &ZlibUncompress, Packed())->Unit(benchmark::kMillisecond);

}  // namespace
