#include <QSbase/support/posix/sysinfotext.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>

#include <QSbase/text/chartables.h>
#include <QSbase/text/qsstring.h>

namespace qsbase::detail {

namespace {

/// Cuts the text at the separator and takes the first piece away from it.
std::string_view NextPiece(std::string_view& text, char separator) {
  const std::size_t end = text.find(separator);
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return piece;
}

/// Calls visit(name, value) for each line "name<separator>value" until that returns true.
template <typename Visit>
void ForEachEntry(std::string_view text, char separator, Visit visit) {
  while (!text.empty()) {
    std::string_view value = NextPiece(text, '\n');
    const std::string_view name = Trimmed(NextPiece(value, separator), kWhiteSpace);
    if (visit(name, Trimmed(value, kWhiteSpace))) {
      return;
    }
  }
}

/// The value that follows a name first.
std::string_view ValueOf(std::string_view text, char separator, std::string_view wanted) {
  std::string_view found;
  ForEachEntry(text, separator, [&](std::string_view name, std::string_view value) {
    if (name == wanted) {
      found = value;
    }
    return name == wanted;
  });
  return found;
}

std::uint64_t NumberOf(std::string_view text, std::string_view wanted) {
  const std::string_view value = ValueOf(text, ':', wanted);
  std::uint64_t number = 0;
  std::from_chars(value.data(), value.data() + value.size(), number);
  return number;
}

bool IsOctalDigit(char c) { return c >= '0' && c <= '7'; }

/// The kernel writes blanks, tabs, line feeds and backslashes as a backslash and three octal digits.
std::string WithoutOctalEscapes(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string_view digits = text.substr(i + 1, 3);
    if (text[i] != '\\' || digits.size() != 3 || !std::all_of(digits.begin(), digits.end(), IsOctalDigit)) {
      out.push_back(text[i]);
      continue;
    }
    out.push_back(static_cast<char>((digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0')));
    i += digits.size();
  }
  return out;
}

/// As a shell reads the assignment of one word.
std::string WithoutQuotes(std::string_view text) {
  const char quote = text.empty() ? '\0' : text.front();
  if (quote == '\'' || quote == '"') {
    text.remove_prefix(1);
    text.remove_suffix(!text.empty() && text.back() == quote ? 1 : 0);
  }
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEscape = text[i] == '\\' && quote != '\'' && i + 1 < text.size();
    i += isEscape ? 1 : 0;
    out.push_back(text[i]);
  }
  return out;
}

/// "36 35 98:0 /root /mount/point options [optional fields] - type source options"
bool ReadMount(std::string_view line, Mount& mount) {
  const std::size_t separator = line.find(" - ");
  if (separator == std::string_view::npos) {
    return false;
  }
  std::string_view rest = line.substr(separator + 3);
  mount.type = NextPiece(rest, ' ');
  NextPiece(line, ' ');
  NextPiece(line, ' ');
  mount.device = NextPiece(line, ' ');
  NextPiece(line, ' ');
  mount.mountPoint = WithoutOctalEscapes(NextPiece(line, ' '));
  return !mount.mountPoint.empty();
}

}  // namespace

Processors ReadCpuDescription(std::string_view cpuinfo) {
  Processors processors;
  processors.name = ValueOf(cpuinfo, ':', "model name");
  processors.mhz = AsciiToDouble(std::string(ValueOf(cpuinfo, ':', "cpu MHz")).c_str());
  return processors;
}

MemoryReport ReadMemoryReport(std::string_view meminfo) {
  const bool tellsAvailable = !ValueOf(meminfo, ':', "MemAvailable").empty();
  MemoryReport report;
  report.total = NumberOf(meminfo, "MemTotal");
  report.free = NumberOf(meminfo, tellsAvailable ? "MemAvailable" : "MemFree");
  report.swapTotal = NumberOf(meminfo, "SwapTotal");
  report.swapFree = NumberOf(meminfo, "SwapFree");
  return report;
}

std::vector<Mount> ReadMounts(std::string_view mountinfo) {
  std::vector<Mount> mounts;
  std::unordered_map<std::string, std::size_t> visible;  // where the last one at each place stands
  while (!mountinfo.empty()) {
    Mount mount;
    if (!ReadMount(NextPiece(mountinfo, '\n'), mount)) {
      continue;
    }
    const auto [place, isNew] = visible.try_emplace(mount.mountPoint, mounts.size());
    if (!isNew) {
      mounts[std::exchange(place->second, mounts.size())].mountPoint.clear();
    }
    mounts.push_back(std::move(mount));
  }
  std::erase_if(mounts, [](const Mount& mount) { return mount.mountPoint.empty(); });
  return mounts;
}

std::string ReadSystemName(std::string_view osRelease) { return WithoutQuotes(ValueOf(osRelease, '=', "PRETTY_NAME")); }

}  // namespace qsbase::detail
