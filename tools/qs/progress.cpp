#include "progress.h"

#include <QSbase/text/qsstring.h>

#include <cstdio>

#include "consoleos.h"

namespace qs {
namespace {

constexpr std::chrono::milliseconds kTerminalPause(200);
constexpr std::chrono::seconds kPlainPause(2);
constexpr std::size_t kMaxTitle = 50;

std::string Amount(std::uint64_t bytes) { return MemoryString(static_cast<std::int64_t>(bytes)); }

std::string Figures(std::uint64_t bytes, std::uint64_t total) {
  if (total == 0) {
    return Amount(bytes);
  }
  const double percent = 100.0 * static_cast<double>(bytes) / static_cast<double>(total);
  return Amount(bytes) + " of " + Amount(total) + strprintf(" (%.0f %%)", percent);
}

// The end of a URL says more than its beginning.
std::string Shorten(const std::string& title) {
  return title.size() <= kMaxTitle ? title : "..." + title.substr(title.size() - kMaxTitle + 3);
}

}  // namespace

Progress::Progress(bool quiet) : _quiet(quiet), _terminal(IsTerminal(stderr)) {}

Progress::~Progress() { End(); }

void Progress::Begin(const std::string& title) {
  _title = title;
  _lastTime = std::chrono::steady_clock::now();
  Show(_terminal ? Shorten(title) : title);
}

void Progress::Update(std::uint64_t bytes, std::uint64_t total) { ShowSometimes(Figures(bytes, total)); }

void Progress::UpdatePercent(int percent) { ShowSometimes(std::to_string(percent) + " %"); }

void Progress::ShowSometimes(const std::string& figures) {
  const auto now = std::chrono::steady_clock::now();
  const auto pause = _terminal ? std::chrono::milliseconds(kTerminalPause) : std::chrono::milliseconds(kPlainPause);
  if (now - _lastTime < pause) {
    return;
  }
  _lastTime = now;
  Show((_terminal ? Shorten(_title) : _title) + ": " + figures);
}

void Progress::End() {
  if (_terminal && _shown > 0) {
    std::fprintf(stderr, "\r%*s\r", static_cast<int>(_shown), "");
    std::fflush(stderr);
  }
  _shown = 0;
}

void Progress::Show(const std::string& text) {
  if (_quiet) {
    return;
  }
  if (!_terminal) {
    std::fprintf(stderr, "%s\n", text.c_str());
    return;
  }
  const std::size_t rest = _shown > text.size() ? _shown - text.size() : 0;
  std::fprintf(stderr, "\r%s%*s", text.c_str(), static_cast<int>(rest), "");
  std::fflush(stderr);
  _shown = text.size();
}

}  // namespace qs
