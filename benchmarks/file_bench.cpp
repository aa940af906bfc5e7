// Whole files and directory listings beside the standard library's streams and iterators.
#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findfile.h>
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "inputs.h"

namespace {

namespace fs = std::filesystem;

const std::string& Content() {
  static const std::string bytes = qsbase::benchmarks::RandomBytes(qsbase::benchmarks::kInputSize);
  return bytes;
}

const std::string& Folder() {
  static const std::string folder = [] {
    const fs::path path = fs::temp_directory_path() / "qsbase-file-bench";
    fs::remove_all(path);
    fs::create_directories(path / "many");
    for (int number = 0; number < 2000; ++number) {
      std::ofstream(path / "many" / ("file-" + std::to_string(number) + ".txt")) << number;
    }
    std::ofstream(path / "big", std::ios::binary) << Content();
    return path.string();
  }();
  return folder;
}

void CountBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(Content().size()));
}

void Load(benchmark::State& state) {
  const std::string path = Folder() + "/big";
  if (LoadBinaryFile(path) != Content()) {
    return state.SkipWithError("the contents differ");
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(LoadBinaryFile(path));
  }
  CountBytes(state);
}

void StdLoad(benchmark::State& state) {
  const std::string path = Folder() + "/big";
  for (auto _ : state) {
    std::ifstream stream(path, std::ios::binary);
    std::string content(fs::file_size(path), '\0');
    stream.read(content.data(), static_cast<std::streamsize>(content.size()));
    benchmark::DoNotOptimize(content);
  }
  CountBytes(state);
}

void Save(benchmark::State& state) {
  for (auto _ : state) {
    SaveBinaryFile(Folder() + "/saved", Content(), false);
  }
  CountBytes(state);
}

void AtomicSave(benchmark::State& state) {
  for (auto _ : state) {
    QsAtomicSaveBinaryFile(Folder() + "/saved", Content(), true);
  }
  CountBytes(state);
}

void StdSave(benchmark::State& state) {
  for (auto _ : state) {
    std::ofstream stream(Folder() + "/saved", std::ios::binary | std::ios::trunc);
    stream.write(Content().data(), static_cast<std::streamsize>(Content().size()));
  }
  CountBytes(state);
}

void List(benchmark::State& state) {
  for (auto _ : state) {
    std::list<std::string> files;
    GetAllFiles(Folder() + "/many", "*", files, 0);
    if (files.size() != 2000) {
      return state.SkipWithError("not all files were listed");
    }
  }
}

void ListByAge(benchmark::State& state) {
  for (auto _ : state) {
    std::multimap<QsDateTime, std::string> files;
    QsBuildFileListTimeAgeSorted(Folder() + "/many", "*", files, 1, 0);
    benchmark::DoNotOptimize(files);
  }
}

void StdList(benchmark::State& state) {
  for (auto _ : state) {
    std::list<std::string> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(Folder() + "/many")) {
      if (entry.is_regular_file()) {
        files.push_back(entry.path().string());
      }
    }
    benchmark::DoNotOptimize(files);
  }
}

BENCHMARK(Load);
BENCHMARK(StdLoad);
BENCHMARK(Save);
BENCHMARK(StdSave);
BENCHMARK(AtomicSave);
BENCHMARK(List);
BENCHMARK(StdList);
BENCHMARK(ListByAge);

}  // namespace
