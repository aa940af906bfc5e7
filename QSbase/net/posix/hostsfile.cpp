#include <QSbase/net/posix/hostsfile.h>

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <string>

namespace qsbase::detail {

namespace {

constexpr std::size_t kLongestLine = 16384;
constexpr std::size_t kMostAddresses = 19;
constexpr const char* kBlanks = " \t\r\n\v\f";

/// Takes the next word off the line; empty at its end.
std::string_view NextWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
  line.remove_prefix(word.size());
  return word;
}

bool IsSameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Whether the line, an address and its names, is one of IPv4 that has this name.
bool IsLineOf(std::string_view line, std::string_view name, in_addr& address) {
  line = line.substr(0, line.find('#'));
  const std::string number(NextWord(line));
  if (inet_pton(AF_INET, number.c_str(), &address) != 1) {
    return false;
  }
  std::string_view word = NextWord(line);
  while (!word.empty() && !IsSameName(word, name)) {
    word = NextWord(line);
  }
  return !word.empty();
}

/// The next line that fits; false at the end of the file.
bool ReadLine(std::FILE* file, char (&line)[kLongestLine]) {
  constexpr std::size_t kLast = kLongestLine - 1;
  bool whole = true;
  // The end is marked, because the length does not tell that the array was filled: zero bytes may stand in the line.
  for (line[kLast] = '\n'; std::fgets(line, kLongestLine, file) != nullptr; line[kLast] = '\n') {
    const bool wasWhole = whole;
    whole = line[kLast] != '\0' || line[kLast - 1] == '\n';
    if (whole && wasWhole) {
      return true;
    }
  }
  return false;
}

}  // namespace

void ReadHostsFile(std::FILE* file, std::string_view name, std::vector<DnsRecord>& records) {
  if (!name.empty() && name.back() == '.') {
    name.remove_suffix(1);
  }
  char line[kLongestLine];
  for (std::size_t count = 0; count < kMostAddresses && ReadLine(file, line);) {
    in_addr address{};
    if (IsLineOf(line, name, address)) {
      records.push_back({kDnsAddress, sizeof address.s_addr, true, address.s_addr});
      ++count;
    }
  }
}

}  // namespace qsbase::detail
