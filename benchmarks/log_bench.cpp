// Log lines into a file: the library's file log beside spdlog's synchronous file sink, flushed after every line and
// not. Both write a time stamp, a level and the text.
#include <QSbase/log/filelog.h>
#include <QSbase/log/log.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <filesystem>
#include <string>

namespace {

std::string LogFolder() {
  static const std::string folder = [] {
    std::string path = (std::filesystem::temp_directory_path() / "qsbase-log-bench").string();
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    return path;
  }();
  return folder;
}

void StartFileLog() {
  static const bool started = [] {
    FileLoggingConfig config;
    config.enabled = true;
    config.logDirectory = LogFolder();
    config.logFileName = "library.log";
    config.backupDirectory = ConstructPath(LogFolder(), "backup");
    config.maxBackupFiles = 2;
    config.maxFileSize = 0xFFFFFFFFu;
    InitLogConfig(config, false);
    return true;
  }();
  benchmark::DoNotOptimize(started);
}

// The lines: a text that is ready, one with numbers and a word, one with a fraction.
enum class Line { Text, Numbers, Fraction };

const std::string& ReadyText() {
  static const std::string text = "fetched article 17 of news.example.net: stored";
  return text;
}

void LibraryLine(Line line, int count) {
  switch (line) {
    case Line::Text:
      return QsLogMsg(0x10000000, ReadyText());
    case Line::Numbers:
      return QsLogMsg(0x10000000, "fetched article %d of %s: %d KiB/s", count, "news.example.net", 812);
    case Line::Fraction:
      return QsLogMsg(0x10000000, "fetched article %d of %s: %.1f KiB/s", count, "news.example.net", 812.5);
  }
}

void SpdlogLine(spdlog::logger& logger, Line line, int count) {
  switch (line) {
    case Line::Text:
      return logger.info(ReadyText());
    case Line::Numbers:
      return logger.info("fetched article {} of {}: {} KiB/s", count, "news.example.net", 812);
    case Line::Fraction:
      return logger.info("fetched article {} of {}: {:.1f} KiB/s", count, "news.example.net", 812.5);
  }
}

void Library(benchmark::State& state, Line line, int level) {
  StartFileLog();
  QsSetLogLevel(level);
  int count = 0;
  for (auto _ : state) {
    LibraryLine(line, ++count);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void Spdlog(benchmark::State& state, Line line, spdlog::level::level_enum flushLevel) {
  auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(LogFolder() + "/spdlog.log", true);
  spdlog::logger logger("bench", sink);
  logger.flush_on(flushLevel);
  logger.set_pattern("%Y-%m-%d %H:%M:%S.%e\t%L\t%v\t0\t%t");
  int count = 0;
  for (auto _ : state) {
    SpdlogLine(logger, line, ++count);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

#define QSBASE_LOG_BENCHMARK(name, line)                                 \
  BENCHMARK_CAPTURE(Library, name##_flushed, line, 0);                   \
  BENCHMARK_CAPTURE(Spdlog, name##_flushed, line, spdlog::level::trace); \
  BENCHMARK_CAPTURE(Library, name##_buffered, line, 3);                  \
  BENCHMARK_CAPTURE(Spdlog, name##_buffered, line, spdlog::level::off)

QSBASE_LOG_BENCHMARK(text, Line::Text);
QSBASE_LOG_BENCHMARK(numbers, Line::Numbers);
QSBASE_LOG_BENCHMARK(fraction, Line::Fraction);

}  // namespace
