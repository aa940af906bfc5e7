#include <reference/uuencode.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace qsbase::reference {

namespace {

constexpr int kXx = 0x8;
constexpr int kDetect = 0x10;
constexpr int kSkipHeader = 0x100;

const std::string kXxDigits = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

char DigitOf(unsigned int value, bool isXx) {
  if (isXx) {
    return kXxDigits[value];
  }
  return value == 0 ? '`' : static_cast<char>(value + 32);
}

/// -1 for what is no XX digit.
int XxValue(char c) {
  const std::size_t value = c == '\0' ? 0 : kXxDigits.find(c);
  return value == std::string::npos ? -1 : static_cast<int>(value);
}

/// The count that a line's first character declares; far from every count for what is no XX digit.
int CountOf(char c, bool isXx) {
  if (!isXx) {
    return static_cast<unsigned char>(c) - 32;
  }
  return XxValue(c) < 0 ? -1000 : XxValue(c);
}

/// How many bytes a line has room for.
int RoomOf(std::string_view line) { return static_cast<int>((line.size() - 1) / 4 * 3); }

bool IsNear(int count, int room) { return std::abs(count - room) <= 2; }

/// Takes the next line that is not empty, or nothing at the end of the text. `position` is then at the line's end.
std::string_view NextLine(std::string_view text, std::size_t& position) {
  const std::size_t start = std::min(text.find_first_not_of("\r\n", position), text.size());
  position = std::min(text.find_first_of("\r\n", start), text.size());
  return text.substr(start, position - start);
}

/// The six-bit values of a line's data.
std::vector<unsigned int> ValuesOf(std::string_view characters, bool isXx, std::size_t& illegal) {
  std::vector<unsigned int> values;
  for (char c : characters) {
    const int value = isXx ? XxValue(c) : (static_cast<unsigned char>(c) + 32) % 64;  // less 32, in six bits
    if (value < 0) {
      ++illegal;
    } else {
      values.push_back(static_cast<unsigned int>(value));
    }
  }
  return values;
}

/// So many bytes of the values; values that are missing count as 0.
std::string BytesOf(std::vector<unsigned int> values, int count) {
  values.resize(std::max<std::size_t>(values.size(), (static_cast<std::size_t>(count) + 2) / 3 * 4));
  std::string bytes;
  for (std::size_t i = 0; bytes.size() < static_cast<std::size_t>(count); i += 4) {
    const unsigned int bits = values[i] * 262144 + values[i + 1] * 4096 + values[i + 2] * 64 + values[i + 3];
    bytes += static_cast<char>(bits / 65536);
    bytes += static_cast<char>(bits / 256 % 256);
    bytes += static_cast<char>(bits % 256);
  }
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

/// Decodes one line, which `behind` bytes follow.
void DecodeLine(std::string_view line, std::size_t behind, bool isXx, Result& result) {
  if (line.size() % 4 != 1 && behind >= 5) {
    result.status = -6;
    return;
  }
  const int room = RoomOf(line);
  if (room == 0) {
    return;
  }
  const int count = CountOf(line[0], isXx);
  if (!IsNear(count, room)) {
    result.status = -6;
    return;
  }
  result.data += BytesOf(ValuesOf(line.substr(1), isXx, result.illegal), count);
}

Result DecodeLines(std::string_view text, bool isXx) {
  Result result;
  bool isDropping = false;
  std::size_t position = 0;
  int number = 0;
  for (std::string_view line = NextLine(text, position); !line.empty() && result.status == 0;
       line = NextLine(text, position)) {
    ++number;
    if (number <= 4) {
      isDropping = (line.size() - 1) % 4 == 1 && line.back() == 'z' - (number - 1);
    }
    line.remove_suffix(isDropping ? 1 : 0);
    if (!line.empty()) {
      DecodeLine(line, text.size() - position, isXx, result);
    }
  }
  return result;
}

bool BeginsWithBegin(std::string_view line) {
  static const std::string kLower = "begin ";
  static const std::string kUpper = "BEGIN ";
  for (std::size_t i = 0; i < kLower.size(); ++i) {
    if (i >= line.size() || (line[i] != kLower[i] && line[i] != kUpper[i])) {
      return false;
    }
  }
  return true;
}

bool IsHeader(std::string_view line) {
  if (!BeginsWithBegin(line)) {
    return false;
  }
  line = line.substr(std::min(line.find_first_not_of(' ', 6), line.size()));
  const std::size_t digits = std::min(line.find_first_not_of("01234567"), line.size());
  return (digits == 3 || digits == 4) && digits < line.size() && line[digits] == ' ';
}

}  // namespace

std::string UuEncode(std::string_view data, int flags) {
  const bool isXx = (flags & kXx) != 0;
  std::string text;
  for (std::size_t start = 0; start < data.size(); start += 45) {
    const std::string_view line = data.substr(start, 45);
    text += DigitOf(static_cast<unsigned int>(line.size()), isXx);
    for (std::size_t i = 0; i < line.size(); i += 3) {
      unsigned int bits = 0;
      for (std::size_t k = i; k < i + 3; ++k) {
        bits = bits * 256 + (k < line.size() ? static_cast<unsigned char>(line[k]) : 0u);
      }
      for (unsigned int divisor : {262144u, 4096u, 64u, 1u}) {
        text += DigitOf(bits / divisor % 64, isXx);
      }
    }
    text += "\r\n";
  }
  return data.empty() ? "" : text + DigitOf(0, isXx) + "\r\n";
}

int UuOrXx(std::string_view text) {
  std::size_t position = 0;
  const std::string_view line = NextLine(text, position);
  if (line.empty()) {
    return 0;
  }
  if (IsNear(CountOf(line[0], true), RoomOf(line))) {
    return 2;
  }
  return IsNear(CountOf(line[0], false), RoomOf(line)) ? 1 : 0;
}

std::size_t UuDataStart(std::string_view text) {
  std::size_t position = 0;
  for (std::string_view line = NextLine(text, position); !line.empty(); line = NextLine(text, position)) {
    if (IsHeader(line)) {
      return std::min(text.find_first_not_of("\r\n", position), text.size());
    }
  }
  return text.size();
}

Result UuDecode(std::string_view text, int flags) {
  const std::string_view data = (flags & kSkipHeader) != 0 ? text.substr(UuDataStart(text)) : text;
  const bool isXx = (flags & kXx) != 0 || ((flags & kDetect) != 0 && UuOrXx(data) == 2);
  Result result = DecodeLines(data, isXx);
  if (result.status != 0) {
    result.data.clear();
  } else {
    result.parsed = text.size();
  }
  return result;
}

}  // namespace qsbase::reference
