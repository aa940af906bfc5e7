// Mapped files, reads at offsets and buffered writes beside the system's calls and the C library's streams.
#include <QSbase/support/bufferedfile.h>
#include <QSbase/support/mapfile.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "inputs.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFileSize = std::size_t{1} << 30;
constexpr std::size_t kWritten = std::size_t{64} << 20;
constexpr unsigned kBufferSize = 65536;

/// A folder that is gone at the end.
class Folder {
 public:
  Folder() : _path(fs::temp_directory_path() / "qsbase-mapfile-bench") {
    fs::remove_all(_path);
    fs::create_directories(_path);
    const std::string bytes = qsbase::benchmarks::RandomBytes(qsbase::benchmarks::kInputSize);
    std::ofstream big(Name("big"), std::ios::binary);
    for (std::size_t size = 0; size < kFileSize; size += bytes.size()) {
      big.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
  }
  ~Folder() { fs::remove_all(_path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string Name(const char* file) const { return (_path / file).string(); }

 private:
  const fs::path _path;
};

std::string Name(const char* file) {
  static const Folder folder;
  return folder.Name(file);
}

std::uint64_t Sum(const void* bytes, std::size_t size) {
  const auto* const words = static_cast<const std::uint64_t*>(bytes);
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < size / sizeof *words; ++i) {
    sum += words[i];
  }
  return sum;
}

void CountBytes(benchmark::State& state, std::size_t size) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(size));
}

// ---- the whole file as memory ----

std::uint64_t SumByMapFile() {
  QsMapFile file;
  file.Open(Name("big"), true);
  return Sum(file.Ptr(), file.Size());
}

std::uint64_t SumByMmap() {
  const int descriptor = open(Name("big").c_str(), O_RDONLY | O_CLOEXEC);
  void* const view = mmap(nullptr, kFileSize, PROT_READ, MAP_SHARED, descriptor, 0);
  const std::uint64_t sum = Sum(view, kFileSize);
  munmap(view, kFileSize);
  close(descriptor);
  return sum;
}

void MapFile(benchmark::State& state) {
  if (SumByMapFile() != SumByMmap()) {
    return state.SkipWithError("the bytes differ");
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(SumByMapFile());
  }
  CountBytes(state, kFileSize);
}

void Mmap(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(SumByMmap());
  }
  CountBytes(state, kFileSize);
}

// ---- reads at offsets ----

/// Goes through the whole file in blocks of state.range(0) bytes, those that lie far apart after each other.
template <class Read>
void ReadBlocks(benchmark::State& state, Read read) {
  const auto block = static_cast<unsigned>(state.range(0));
  const unsigned count = static_cast<unsigned>(kFileSize / block);
  const auto buffer = std::make_unique<char[]>(block);
  for (auto _ : state) {
    unsigned at = 0;
    for (unsigned i = 0; i < count; ++i) {
      at = (at + 4099) % count;
      if (!read(at * block, buffer.get(), block)) {
        return state.SkipWithError("a block was not read");
      }
      benchmark::DoNotOptimize(buffer[0]);
    }
  }
  CountBytes(state, kFileSize);
}

void SharedIORead(benchmark::State& state) {
  QsSharedIOFile file;
  file.Open(Name("big"), true);
  char bytes[16] = {};
  QsMapFile map;
  map.Open(Name("big"), true);
  if (!file.Read(12345678, bytes, 16) || std::memcmp(bytes, static_cast<char*>(map.Ptr()) + 12345678, 16) != 0) {
    return state.SkipWithError("the bytes differ");
  }
  ReadBlocks(state, [&](unsigned offset, char* buffer, unsigned size) { return file.Read(offset, buffer, size); });
}

void Pread(benchmark::State& state) {
  const int descriptor = open(Name("big").c_str(), O_RDONLY | O_CLOEXEC);
  ReadBlocks(state, [&](unsigned offset, char* buffer, unsigned size) {
    return pread(descriptor, buffer, size, offset) == static_cast<ssize_t>(size);
  });
  close(descriptor);
}

// ---- many small writes ----

const char kRecord[] = "a record of the length that many a log line has, some sixty bytes or more, or more than that";

bool WriteBuffered(const std::string& path, unsigned size) {
  QsWriteBufferedFile file(path.c_str(), kBufferSize, 0);
  bool written = true;
  for (std::size_t done = 0; done < kWritten; done += size) {
    written = file.Write(kRecord, size, 1) == 1 && written;
  }
  return file.Close() == 0 && written;
}

bool WriteStream(const std::string& path, unsigned size) {
  std::FILE* const file = std::fopen(path.c_str(), "wbe");
  std::setvbuf(file, nullptr, _IOFBF, kBufferSize);
  bool written = true;
  for (std::size_t done = 0; done < kWritten; done += size) {
    written = std::fwrite(kRecord, size, 1, file) == 1 && written;
  }
  return std::fclose(file) == 0 && written;
}

std::string ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

template <class Write>
void WriteSmall(benchmark::State& state, const char* target, Write write) {
  const auto size = static_cast<unsigned>(state.range(0));
  if (!WriteBuffered(Name("a"), size) || !WriteStream(Name("b"), size) ||
      ContentOf(Name("a")) != ContentOf(Name("b"))) {
    return state.SkipWithError("the contents differ");
  }
  const std::string path = target == nullptr ? Name("a") : target;
  for (auto _ : state) {
    if (!write(path, size)) {
      return state.SkipWithError("not all was written");
    }
  }
  CountBytes(state, kWritten);
}

void BufferedWrites(benchmark::State& state) { WriteSmall(state, nullptr, WriteBuffered); }
void StreamWrites(benchmark::State& state) { WriteSmall(state, nullptr, WriteStream); }
void BufferedWritesToNowhere(benchmark::State& state) { WriteSmall(state, "/dev/null", WriteBuffered); }
void StreamWritesToNowhere(benchmark::State& state) { WriteSmall(state, "/dev/null", WriteStream); }

BENCHMARK(MapFile)->Unit(benchmark::kMillisecond);
BENCHMARK(Mmap)->Unit(benchmark::kMillisecond);
BENCHMARK(SharedIORead)->Arg(4096)->Arg(65536)->Unit(benchmark::kMillisecond);
BENCHMARK(Pread)->Arg(4096)->Arg(65536)->Unit(benchmark::kMillisecond);
BENCHMARK(BufferedWrites)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(StreamWrites)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(BufferedWritesToNowhere)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(StreamWritesToNowhere)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond);

}  // namespace
