// String functions beside what the standard library offers for the same job.
#include <QSbase/text/datetime.h>
#include <QSbase/text/qsstring.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "inputs.h"

namespace {

const std::string& Text() {
  static const std::string text = qsbase::benchmarks::MailText(std::size_t{1} << 20);
  return text;
}

void CountBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(Text().size()));
}

void Split(benchmark::State& state) {
  std::vector<std::string> parts;
  for (auto _ : state) {
    benchmark::DoNotOptimize(SplitString(Text(), "\r\n", parts, true));
  }
  CountBytes(state);
}

void StdSplit(benchmark::State& state) {
  std::vector<std::string> parts;
  for (auto _ : state) {
    parts.clear();
    std::size_t start = 0;
    for (std::size_t at; (at = Text().find("\r\n", start)) != std::string::npos; start = at + 2) {
      parts.emplace_back(Text(), start, at - start);
    }
    parts.emplace_back(Text(), start);
    benchmark::DoNotOptimize(parts);
  }
  CountBytes(state);
}

void Replace(benchmark::State& state) {
  for (auto _ : state) {
    std::string text = Text();
    benchmark::DoNotOptimize(QsReplaceStringInPlace(text, "harbour", "port", true));
  }
  CountBytes(state);
}

void StdReplace(benchmark::State& state) {
  for (auto _ : state) {
    std::string text = Text();
    for (std::size_t at = 0; (at = text.find("harbour", at)) != std::string::npos; at += 4) {
      text.replace(at, 7, "port");
    }
    benchmark::DoNotOptimize(text);
  }
  CountBytes(state);
}

void Trim(benchmark::State& state) {
  const std::string text = "   \t a line of a header, say, with blanks around it \r\n";
  for (auto _ : state) {
    benchmark::DoNotOptimize(QsString::Trim(text, 0x20));
  }
}

void ReadInteger(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(AsciiToInt64("1234567890123"));
  }
}

void StdReadInteger(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::strtoll("1234567890123", nullptr, 10));
  }
}

void DateToText(benchmark::State& state) {
  const QsDateTime time(2026, 11, 21, 10, 11, 12, 250);
  for (auto _ : state) {
    benchmark::DoNotOptimize(DateTime2string(time, true, true));
  }
}

BENCHMARK(Split);
BENCHMARK(StdSplit);
BENCHMARK(Replace);
BENCHMARK(StdReplace);
BENCHMARK(Trim);
BENCHMARK(ReadInteger);
BENCHMARK(StdReadInteger);
BENCHMARK(DateToText);

}  // namespace
