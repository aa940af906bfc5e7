// Many threads log through rotation. Every line can be told from its thread and number; all are read back, from the
// backups in the order of their names and then from the log file.
#include <reliability/load.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <QSbase/log/filelog.h>
#include <QSbase/log/log.h>

namespace qsbase::testing {

namespace {

namespace fs = std::filesystem;

constexpr unsigned kInfo = 0x10000000;
constexpr std::size_t kThreads = 8;
constexpr std::uint32_t kFileSize = 1 << 20;
constexpr std::uint32_t kKeepAll = 1000000;

// What SetEnabledLog() itself logs, with a blank for each level.
constexpr const char* kLast = "    Set FileLogging to Enabled";

// The text is as long as the number says, from 20 to about 100 characters, and of letters that it says too.
std::string TextOf(std::size_t thread, std::int64_t number) {
  std::string text = "thread " + std::to_string(thread) + " line " + std::to_string(number) + " ";
  text.append(static_cast<std::size_t>(number % 79), static_cast<char>('a' + number % 26));
  return text + "|";
}

std::int64_t ShareOf(std::size_t thread, std::int64_t lines) {
  const auto threads = static_cast<std::int64_t>(kThreads);
  return lines / threads + (static_cast<std::int64_t>(thread) < lines % threads ? 1 : 0);
}

void LogFromAllThreads(std::int64_t lines) {
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, share = ShareOf(thread, lines)] {
      for (std::int64_t number = 0; number < share; ++number) {
        QsLogMsg(kInfo, TextOf(thread, number));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

// "2013-02-13_10_11_12.250_load.log", and when that was taken "2013-02-13_10_11_12.250_2_load.log".
std::pair<std::string, int> OrderOf(const fs::path& backup) {
  constexpr std::size_t kTimeLength = 23;
  const std::string name = backup.filename().string();
  Require(name.size() > kTimeLength + 1, "a backup has the name " + name);
  const int attempt = std::atoi(name.c_str() + kTimeLength + 1);
  return {name.substr(0, kTimeLength), std::max(attempt, 1)};
}

std::vector<fs::path> FilesInOrder(const std::string& dir) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(dir + "/old")) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end(), [](const fs::path& a, const fs::path& b) { return OrderOf(a) < OrderOf(b); });
  files.emplace_back(dir + "/load.log");
  return files;
}

/// Whether the numbers of each thread follow each other, in lines that are whole.
class Reader {
 public:
  /// With \p fromStart every thread begins with its line 0, else where the first line of it that is left says.
  explicit Reader(bool fromStart) { _next.fill(fromStart ? 0 : kUnknown); }

  void Read(const fs::path& path) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
      Take(line, path.filename().string());
    }
  }

  std::int64_t Lines() const { return _lines; }
  std::int64_t Sum(std::size_t thread) const { return _sums[thread]; }
  std::int64_t Next(std::size_t thread) const { return _next[thread]; }
  /// Whether its last line was seen, or none: it may have ended before all that is left.
  bool HasEnded(std::size_t thread, std::int64_t lines) const {
    return _next[thread] == kUnknown || _next[thread] == ShareOf(thread, lines);
  }
  bool HasSeenTheLast() const { return _seenTheLast; }

 private:
  static constexpr std::int64_t kUnknown = -1;

  void Take(const std::string& line, const std::string& file) {
    Require(!_seenTheLast, "something stands behind the last line: " + line);
    const std::string text = TextIn(line, file);
    if (text == kLast) {
      _seenTheLast = true;
      return;
    }
    std::size_t thread = kThreads;
    long long number = 0;
    Require(std::sscanf(text.c_str(), "thread %zu line %lld", &thread, &number) == 2 && thread < kThreads,
            "a torn line in " + file + ": " + line);
    Require(text == TextOf(thread, number), "a torn line in " + file + ": " + line);
    Follow(thread, number, file);
  }

  void Follow(std::size_t thread, std::int64_t number, const std::string& file) {
    if (_next[thread] != kUnknown) {
      RequireEqual(number, _next[thread], "the next line of thread " + std::to_string(thread) + " in " + file);
    }
    _next[thread] = number + 1;
    _sums[thread] += number;
    ++_lines;
  }

  // Time, type, text, level, thread id and what the line feed became, with tabs between them.
  static std::string TextIn(const std::string& line, const std::string& file) {
    Require(std::count(line.begin(), line.end(), '\t') == 4 && line.back() == ' ',
            "a torn line in " + file + ": " + line);
    const std::size_t type = line.find('\t');
    const std::size_t text = line.find('\t', type + 1) + 1;
    Require(type == 23 && line.compare(type, 3, "\tI\t") == 0, "a torn line in " + file + ": " + line);
    return line.substr(text, line.find('\t', text) - text);
  }

  std::array<std::int64_t, kThreads> _next;
  std::array<std::int64_t, kThreads> _sums{};
  std::int64_t _lines = 0;
  bool _seenTheLast = false;
};

void RequireEveryLine(const Reader& reader, std::int64_t lines) {
  RequireEqual(reader.Lines(), lines, "lines");
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    const std::int64_t share = ShareOf(thread, lines);
    RequireEqual(reader.Next(thread), share, "lines of thread " + std::to_string(thread));
    RequireEqual(reader.Sum(thread), share * (share - 1) / 2, "sum of the numbers of thread " + std::to_string(thread));
  }
}

FileLoggingConfig Config(const std::string& dir, std::uint32_t backups) {
  FileLoggingConfig config;
  config.enabled = true;
  config.logDirectory = dir;
  config.logFileName = "load.log";
  config.backupDirectory = dir + "/old";
  config.maxBackupFiles = backups;
  config.maxFileSize = kFileSize;
  return config;
}

// At the level 0, which flushes each line, or at a higher one, which leaves that to the stream.
void Log(const char* what, std::int64_t lines, const FileLoggingConfig& config, int level) {
  QsSetLogLevel(level);
  InitLogConfig(config, false);
  Measure(what, lines, [lines] { LogFromAllThreads(lines); });
  SetEnabledLog(false, false);
  QsSetLogLevel(0);
  SetEnabledLog(true, false);  // logs the last line, which is flushed with all before it
}

void LogAndReadAll(const char* what, std::int64_t lines, const std::string& dir, int level) {
  Log(what, lines, Config(dir, kKeepAll), level);
  Reader reader(true);
  const std::vector<fs::path> files = FilesInOrder(dir);
  for (const fs::path& file : files) {
    reader.Read(file);
  }
  RequireEveryLine(reader, lines);
  Require(reader.HasSeenTheLast(), "the last line is missing");
  Require(lines < 100000 || files.size() > 2, "nothing was rotated");
}

}  // namespace

void LogLines(std::int64_t lines, const std::string& dir) { LogAndReadAll("8 threads log", lines, dir, 1); }

void LogLinesFlushed(std::int64_t lines, const std::string& dir) {
  LogAndReadAll("8 threads log, each line flushed", lines, dir, 0);
}

// What is left are the newest lines, all of them: each thread's numbers run on to its last.
void LogLinesTrimmed(std::int64_t lines, const std::string& dir) {
  constexpr std::uint32_t kBackups = 3;
  Log("8 threads log, 3 backups stay", lines, Config(dir, kBackups), 1);
  Reader reader(false);
  const std::vector<fs::path> files = FilesInOrder(dir);
  for (const fs::path& file : files) {
    reader.Read(file);
  }
  Require(reader.HasSeenTheLast(), "the last line is missing");
  Require(reader.Lines() > 0 && reader.Lines() < lines, "all or nothing was trimmed");
  // A rotation leaves 3 and adds its own.
  RequireEqual(static_cast<std::int64_t>(files.size()), kBackups + 2, "files");
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    Require(reader.HasEnded(thread, lines), "the last lines of thread " + std::to_string(thread) + " are missing");
  }
}

}  // namespace qsbase::testing
