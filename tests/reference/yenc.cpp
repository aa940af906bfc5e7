#include <reference/yenc.h>

#include <algorithm>
#include <vector>

namespace qsbase::reference {

namespace {

constexpr int kHeader = 0x1000;
constexpr int kPlainTabAndDot = 0x4000;

bool IsEscaped(int value, int flags) {
  if (value == '\t' || value == '.') {
    return (flags & kPlainTabAndDot) == 0;
  }
  return value == 0 || value == '\n' || value == '\r' || value == '=';
}

std::string Lines(std::string_view data, std::uint32_t lineLength, int flags) {
  std::string text;
  std::uint32_t column = 0;
  for (char c : data) {
    const int value = (static_cast<unsigned char>(c) + 42) % 256;
    const bool isEscaped = IsEscaped(value, flags);
    text +=
        isEscaped ? std::string{'=', static_cast<char>((value + 64) % 256)} : std::string(1, static_cast<char>(value));
    column += isEscaped ? 2 : 1;
    if (column >= lineLength) {
      text += "\r\n";
      column = 0;
    }
  }
  return column == 0 ? text : text + "\r\n";
}

template <class Number>
std::string Field(const char* name, Number value) {
  return std::string(" ") + name + "=" + std::to_string(value);
}

std::string HeaderOf(std::size_t length, const YEncFields& fields) {
  std::string text = "=ybegin";
  text += fields.part >= 0 ? Field("part", fields.part) : "";
  text += fields.total >= 0 ? Field("total", fields.total) : "";
  text += Field("line", fields.line);
  text += Field("size", fields.size != 0 ? fields.size : length);
  text += fields.name.empty() ? "" : " name=" + fields.name;
  text += "\r\n";
  if (fields.part >= 0) {
    text += "=ypart" + Field("begin", fields.begin) + Field("end", fields.end) + "\r\n";
  }
  return text;
}

std::string TrailerOf(std::string_view data, const YEncFields& fields) {
  std::string text = "=yend" + Field("size", data.size());
  text += fields.part >= 0 ? Field("part", fields.part) + " pcrc32=" : " crc32=";
  const std::uint32_t crc = Crc32(data);
  for (int shift = 28; shift >= 0; shift -= 4) {
    text += "0123456789abcdef"[crc >> shift & 15u];
  }
  return text + "\r\n";
}

bool BeginsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

struct Line {
  std::size_t start;
  std::string_view text;
};

std::vector<Line> LinesOf(std::string_view text) {
  std::vector<Line> lines;
  std::size_t start = text.find_first_not_of("\r\n");
  while (start != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of("\r\n", start), text.size());
    lines.push_back({start, text.substr(start, end - start)});
    start = text.find_first_not_of("\r\n", end);
  }
  return lines;
}

std::size_t LineThatBeginsWith(const std::vector<Line>& lines, std::size_t from, std::string_view prefix) {
  while (from < lines.size() && !BeginsWith(lines[from].text, prefix)) {
    ++from;
  }
  return from;
}

/// What stands behind a name, up to a blank or the end of a line; nothing without the name.
std::string ValueOf(std::string_view text, std::string_view name) {
  const std::size_t place = text.find(name);
  if (place == std::string_view::npos) {
    return "";
  }
  const std::string_view rest = text.substr(place + name.size());
  return std::string(rest.substr(0, rest.find_first_of(" \r\n")));
}

long long NumberOf(std::string_view text, std::string_view name, long long otherwise) {
  const std::string digits = ValueOf(text, name);
  return digits.empty() ? otherwise : std::stoll(digits);
}

/// Up to the next "=y" or the header's end, without white space and then without double quotes around it.
std::string NameOf(std::string_view header) {
  const std::size_t place = header.find("name=");
  if (place == std::string_view::npos) {
    return "";
  }
  std::string name(header.substr(place + 5));
  name = name.substr(0, name.find("=y"));
  for (const char* around : {" \t\n\v\f\r", "\""}) {
    name.erase(0, name.find_first_not_of(around));
    name.erase(name.find_last_not_of(around) + 1);
  }
  return name;
}

}  // namespace

std::uint32_t Crc32(std::string_view data) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (char c : data) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
  }
  return ~crc;
}

std::string YEncEncode(std::string_view data, const YEncFields& fields, int flags) {
  if (data.empty()) {
    return "";
  }
  const std::string lines = Lines(data, fields.line, flags);
  return (flags & kHeader) == 0 ? lines : HeaderOf(data.size(), fields) + lines + TrailerOf(data, fields);
}

Result YEncDecode(std::string_view text) {
  Result result;
  std::size_t i = 0;
  for (; i < text.size() && text[i] != '\0'; ++i) {
    int value = static_cast<unsigned char>(text[i]);
    if (value == '\r' || value == '\n') {
      continue;
    }
    if (value == '=') {
      if (i + 1 < text.size() && text[i + 1] == '\0') {
        break;
      }
      if (i + 1 == text.size()) {
        continue;
      }
      ++i;
      value = static_cast<unsigned char>(text[i]) - 64;
    }
    result.data += static_cast<char>((value - 42 + 256) % 256);
  }
  result.parsed = i;
  return result;
}

YEncBlock FindYEncBlock(std::string_view text) {
  const std::vector<Line> lines = LinesOf(text);
  const std::size_t first = LineThatBeginsWith(lines, 0, "=ybegin ");
  const std::size_t last = LineThatBeginsWith(lines, first + 1, "=yend ");
  if (last >= lines.size()) {
    return {-7};
  }
  std::size_t data = first + 1;
  while (data < last && BeginsWith(lines[data].text, "=y")) {
    ++data;
  }
  const std::size_t end = last + 1 < lines.size() ? lines[last + 1].start : text.size();
  return {0, lines[first].start, end, lines[data].start, lines[last].start - lines[data].start};
}

YEncFields FieldsOfYEncBlock(std::string_view text) {
  const YEncBlock block = FindYEncBlock(text);
  const std::string_view header = text.substr(block.begin, block.data - block.begin);
  const std::size_t trailerStart = block.data + block.dataLength;
  const std::string_view trailer = text.substr(trailerStart, block.end - trailerStart);
  YEncFields fields;
  fields.line = static_cast<std::uint32_t>(NumberOf(header, " line=", 0));
  fields.size = static_cast<std::uint32_t>(NumberOf(header, " size=", 0));
  fields.part = static_cast<std::int32_t>(NumberOf(header, " part=", -1));
  fields.total = static_cast<std::int32_t>(NumberOf(header, " total=", -1));
  fields.begin = static_cast<std::uint32_t>(NumberOf(header, " begin=", 0));
  fields.end = static_cast<std::uint32_t>(NumberOf(header, " end=", 0));
  fields.name = NameOf(header);
  fields.endSize = static_cast<std::uint32_t>(NumberOf(trailer, " size=", 0));
  fields.crc = ValueOf(trailer, "crc32=");
  return fields;
}

}  // namespace qsbase::reference
