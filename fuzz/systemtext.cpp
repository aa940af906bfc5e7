// Texts of the system that a user may have written: the hosts file, and what Linux says of itself.
#include <QSbase/net/posix/hostsfile.h>
#include <QSbase/support/posix/sysinfotext.h>

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "bounds.h"
#include "target.h"

using namespace qsbase;
using namespace qsbase::detail;

namespace {

std::vector<std::string> Split(const std::string& text, const std::string& separators) {
  std::vector<std::string> pieces(1);
  for (const char c : text) {
    if (separators.find(c) != std::string::npos) {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  return pieces;
}

std::string Lower(std::string text) {
  for (char& c : text) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  }
  return text;
}

std::string Trimmed(const std::string& text) {
  const char* const blanks = " \t\n\v\f\r";
  const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
  return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

// ---- hosts ----

std::vector<std::string> WordsOf(const std::string& line) {
  std::vector<std::string> words = Split(line.substr(0, line.find('#')).c_str(), " \t\r\n\v\f");
  words.erase(std::remove(words.begin(), words.end(), std::string()), words.end());
  return words;
}

std::vector<std::uint32_t> SlowAddresses(const std::string& hosts, const std::string& name) {
  std::vector<std::uint32_t> addresses;
  for (const std::string& line : Split(hosts, "\n")) {
    constexpr std::size_t kLongest = 16382;
    in_addr address{};
    const std::vector<std::string> words = line.size() > kLongest ? std::vector<std::string>() : WordsOf(line.c_str());
    const bool hasName = std::any_of(words.begin() + (words.empty() ? 0 : 1), words.end(),
                                     [&](const std::string& word) { return Lower(word) == Lower(name); });
    if (hasName && inet_pton(AF_INET, words[0].c_str(), &address) == 1 && addresses.size() < 19) {
      addresses.push_back(address.s_addr);
    }
  }
  return addresses;
}

void CompareHosts(std::string hosts, const std::string& name) {
  const std::vector<std::uint32_t> expected = SlowAddresses(hosts, name);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fmemopen(hosts.data(), hosts.size(), "r"), &std::fclose);
  std::vector<DnsRecord> records;
  ReadHostsFile(file.get(), name + ".", records);
  std::vector<std::uint32_t> addresses;
  for (const DnsRecord& record : records) {
    fuzz::Demand(record.type == kDnsAddress && record.dataLength == 4 && record.inAnswer ? "" : "a record of a host");
    addresses.push_back(record.address);
  }
  fuzz::Demand(addresses == expected ? "" : "the addresses of the hosts file");
}

/// The first name that stands on its own in the text, else one that does not.
std::string SomeName(const std::string& hosts) {
  for (const std::string& line : Split(hosts.substr(0, 1000), "\n")) {
    if (const std::vector<std::string> words = WordsOf(line.c_str()); words.size() > 1) {
      return words.back();
    }
  }
  return "localhost";
}

// ---- the system ----

std::string SlowValue(const std::vector<std::string>& lines, char separator, const std::string& wanted) {
  for (const std::string& line : lines) {
    const std::size_t end = std::min(line.find(separator), line.size());
    if (Trimmed(line.substr(0, end)) == wanted) {
      return Trimmed(line.substr(std::min(end + 1, line.size())));
    }
  }
  return {};
}

std::uint64_t SlowNumber(const std::vector<std::string>& lines, const std::string& wanted) {
  std::uint64_t number = 0;
  const std::string value = SlowValue(lines, ':', wanted);
  const auto result = std::from_chars(value.data(), value.data() + value.size(), number);
  return result.ec == std::errc() ? number : 0;
}

std::string Unescaped(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string digits = text.substr(i + 1, 3);
    const bool isCode =
        text[i] == '\\' && digits.size() == 3 && digits.find_first_not_of("01234567") == std::string::npos;
    plain += isCode ? static_cast<char>(std::stoi(digits, nullptr, 8)) : text[i];
    i += isCode ? 3 : 0;
  }
  return plain;
}

std::vector<Mount> SlowMounts(const std::string& text) {
  std::vector<Mount> mounts;
  for (const std::string& line : Split(text, "\n")) {
    const std::size_t separator = line.find(" - ");
    std::vector<std::string> words = Split(line, " ");
    words.resize(std::max<std::size_t>(words.size(), 5));
    const std::string mountPoint = Unescaped(words[4]);
    if (separator == std::string::npos || mountPoint.empty()) {
      continue;
    }
    std::erase_if(mounts, [&](const Mount& mount) { return mount.mountPoint == mountPoint; });
    mounts.push_back({words[2], mountPoint, Split(line.substr(separator + 3), " ").front()});
  }
  return mounts;
}

void CompareMounts(const std::string& text) {
  const std::vector<Mount> expected = SlowMounts(text);
  const std::vector<Mount> mounts = ReadMounts(text);
  const auto isSame = [](const Mount& a, const Mount& b) {
    return a.device == b.device && a.mountPoint == b.mountPoint && a.type == b.type;
  };
  fuzz::Demand(std::equal(mounts.begin(), mounts.end(), expected.begin(), expected.end(), isSame) ? "" : "the mounts");
}

void CompareSystem(const std::string& text) {
  const std::vector<std::string> lines = Split(text, "\n");
  const MemoryReport memory = ReadMemoryReport(text);
  const bool tellsAvailable = !SlowValue(lines, ':', "MemAvailable").empty();
  fuzz::Demand(memory.total == SlowNumber(lines, "MemTotal") ? "" : "MemTotal");
  fuzz::Demand(memory.free == SlowNumber(lines, tellsAvailable ? "MemAvailable" : "MemFree") ? "" : "free memory");
  fuzz::Demand(memory.swapTotal == SlowNumber(lines, "SwapTotal") ? "" : "SwapTotal");
  fuzz::Demand(memory.swapFree == SlowNumber(lines, "SwapFree") ? "" : "SwapFree");
  fuzz::DemandEqual(SlowValue(lines, ':', "model name"), ReadCpuDescription(text).name, "the processor's name");
  fuzz::Demand(ReadSystemName(text).size() <= SlowValue(lines, '=', "PRETTY_NAME").size() ? "" : "a longer name");
}

/// As os-release(5) wants a name to be written.
void QuoteAndBack(const std::string& text) {
  std::string quoted;
  for (const char c : text) {
    if (c != '\n') {
      quoted += std::string("\"\\$`").find(c) != std::string::npos ? std::string("\\") + c : std::string(1, c);
    }
  }
  std::string plain = text;
  std::erase(plain, '\n');
  fuzz::DemandEqual(plain, ReadSystemName("ID=x\nPRETTY_NAME=\"" + quoted + "\"\nNAME=y\n"), "a quoted name");
}

// ---- bounds ----

/// As long as a text, each mount at a place of its own.
std::string ManyMounts(std::size_t size) {
  std::string mountinfo;
  for (std::size_t i = 0; mountinfo.size() < size; ++i) {
    mountinfo += "1 2 0:1 / /mount/" + std::to_string(i) + " rw - x x\n";
  }
  return mountinfo;
}

void DemandBounds(std::string_view text) {
  fuzz::DemandBounds(
      "ReadMounts", text,
      [](const std::string& mountinfo) {
        const std::string many = ManyMounts(mountinfo.size());
        return many.capacity() + 8 * sizeof(Mount) * (ReadMounts(mountinfo).size() + ReadMounts(many).size());
      },
      std::size_t{1} << 18);
  fuzz::DemandBounds("the descriptions", text, [](const std::string& description) {
    ReadMemoryReport(description);
    return ReadCpuDescription(description).name.size() + ReadSystemName(description).size();
  });
  fuzz::DemandBounds("ReadHostsFile", text, [](std::string hosts) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fmemopen(hosts.data(), hosts.size(), "r"), &std::fclose);
    std::vector<DnsRecord> records;
    ReadHostsFile(file.get(), "box.example", records);
    return hosts.size();
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!text.empty()) {
    CompareHosts(text, SomeName(text));
    CompareHosts(text, "box.example");
    DemandBounds(text);
  }
  CompareSystem(text);
  CompareMounts(text);
  QuoteAndBack(text.substr(0, 500));
  return 0;
}
