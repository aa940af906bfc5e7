#include <QSbase/net/httptransfer.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

#include <QSbase/text/qschar.h>
#include <QSbase/text/qsstring.h>
#include <QSbase/text/timeos.h>

namespace qsbase::detail {

namespace {

constexpr std::size_t fieldLimit = 256;  // bytes, the terminator included
constexpr unsigned int whiteSpace = 0x20;
constexpr char lengthName[] = "Content-Length: ";
constexpr std::size_t lengthNameSize = sizeof lengthName - 1;

// Makes room for `capacity` bytes and a NUL. Without memory all that was held is given up.
bool Resize(TransferSink& sink, std::size_t capacity) {
  char* grown = nullptr;
  if (capacity < std::numeric_limits<std::size_t>::max()) {
    grown = static_cast<char*>(sink.reallocate(sink.data.get(), capacity + 1));
  }
  if (grown == nullptr) {
    sink.data.reset();
    sink.held = 0;
    sink.capacity = 0;
    return false;
  }
  static_cast<void>(sink.data.release());
  sink.data.reset(grown);
  sink.capacity = capacity;
  return true;
}

// a + b, or the largest value, which no allocation takes.
std::size_t SaturatingAdd(std::size_t a, std::size_t b) {
  const std::size_t most = std::numeric_limits<std::size_t>::max();
  return b > most - a ? most : a + b;
}

void Append(TransferSink& sink, const char* bytes, std::size_t count) {
  const auto held = static_cast<std::size_t>(sink.held);
  std::memcpy(sink.data.get() + held, bytes, count);
  sink.data.get()[held + count] = '\0';
  sink.held += count;
}

// A chunk that finds no memory is dropped and the transfer goes on (kept: the status still reaches the caller).
void KeepBody(TransferSink& sink, const char* bytes, std::size_t count) {
  const auto held = static_cast<std::size_t>(sink.held);
  if (count > sink.capacity - held) {
    const std::size_t growth = std::max(sink.growthStep, count);
    if (!Resize(sink, SaturatingAdd(sink.capacity, growth))) {
      return;
    }
  }
  Append(sink, bytes, count);
}

// By the half at once: where memory moves when it grows, a million short lines would cost the square of their number.
bool MakeRoomForHeader(TransferSink& sink, std::size_t count) {
  const auto held = static_cast<std::size_t>(sink.held);
  return count <= sink.capacity - held || Resize(sink, SaturatingAdd(held + held / 2, count));
}

std::size_t WriteOut(TransferSink& sink, const char* bytes, std::size_t count) {
  const std::size_t written = std::fwrite(bytes, 1, count, sink.output);
  std::fflush(sink.output);
  sink.held += count;
  return written;
}

void ReportProgress(TransferSink& body) {
  if (body.textCallback == nullptr) {
    return;
  }
  if (const std::optional<std::string> line = DueStatusLine(body, CurrentUtcMilliseconds() / 1000)) {
    body.textCallback(line->c_str(), body.textUser);
  }
}

std::string StatusLine(std::uint64_t held, std::int32_t total, double speed, double percent) {
  char line[128];
  std::snprintf(line, sizeof line, "D Downloaded: %llu\tTotal size: %d\tDownload Speed: %.3f\tDownload finished: %g",
                static_cast<unsigned long long>(held), total, speed, percent);
  return line;
}

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The status of the status line at or after `from`, which is moved behind it.
std::int32_t StatusAfter(std::string_view headers, std::size_t& from) {
  const std::size_t line = headers.find("HTTP/", from);
  const std::size_t blank = line == std::string_view::npos ? line : headers.find(' ', line);
  if (blank == std::string_view::npos) {
    return 0;
  }
  from = blank + 1;
  const std::size_t end = std::min(headers.find(' ', from), headers.size());
  return SaturatingInt(headers.substr(from, end - from));
}

}  // namespace

std::string_view TransferSink::Bytes() const {
  return data == nullptr ? std::string_view() : std::string_view(data.get(), static_cast<std::size_t>(held));
}

std::size_t ReceiveBody(char* data, std::size_t size, std::size_t count, void* sink) noexcept {
  TransferSink& body = *static_cast<TransferSink*>(sink);
  const std::size_t bytes = size * count;
  if (bytes == 0) {
    return 0;
  }
  try {
    std::size_t taken = bytes;
    if (body.output != nullptr) {
      taken = WriteOut(body, data, bytes);
    } else {
      KeepBody(body, data, bytes);
    }
    ReportProgress(body);
    return taken;
  } catch (...) {
    body.error = std::current_exception();
    return 0;
  }
}

std::size_t ReceiveHeader(char* data, std::size_t size, std::size_t count, void* sink) noexcept {
  TransferSink& header = *static_cast<TransferSink*>(sink);
  const std::size_t bytes = size * count;
  if (bytes == 0) {
    return bytes;
  }
  const std::size_t kept = std::min(bytes, longestHeaderText - static_cast<std::size_t>(header.held));
  if (kept == 0) {
    return bytes;
  }
  if (!MakeRoomForHeader(header, kept)) {
    header.length = LengthReader();  // the text begins anew
    return bytes;
  }
  Append(header, data, kept);
  try {
    if (header.textCallback != nullptr) {
      header.textCallback(header.data.get(), header.textUser);
    }
    header.contentLength = header.length.Read(header.Bytes());
    return bytes;
  } catch (...) {
    header.error = std::current_exception();
    return 0;
  }
}

std::optional<std::string> DueStatusLine(TransferSink& body, std::int64_t now) {
  const std::int32_t announced = body.headerSink == nullptr ? 0 : body.headerSink->contentLength;
  const std::int32_t total = announced == 0 ? 1 : announced;
  if (body.firstData == 0) {
    body.firstData = now;
    body.lastLine = now;
    body.finalLineSent = false;
  }
  if (now <= body.firstData) {
    return std::nullopt;
  }
  const auto held = static_cast<double>(body.held);
  const double speed = held / static_cast<double>(now - body.firstData) / 1024.0;
  const double percent = held * 100.0 / total;
  if (now > body.lastLine + 1) {
    body.lastLine = now;
    return StatusLine(body.held, total, speed, percent);
  }
  if (percent < 100.0 || total == 1 || body.finalLineSent) {
    return std::nullopt;
  }
  body.finalLineSent = true;
  return StatusLine(body.held, total, speed, percent);
}

std::int32_t SaturatingInt(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) {
    text.remove_prefix(1);
  }
  const bool negative = !text.empty() && text.front() == '-';
  if (!text.empty() && (negative || text.front() == '+')) {
    text.remove_prefix(1);
  }
  const std::int64_t limit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + (negative ? 1 : 0);
  std::int64_t value = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') {
      break;
    }
    value = std::min(limit, value * 10 + (digit - '0'));
  }
  return static_cast<std::int32_t>(negative ? -value : value);
}

std::int32_t LengthReader::Read(std::string_view text) {
  if (!_closed && !_found) {
    Find(text);
  }
  if (_closed || !_found) {
    return _length;
  }
  while (_next < text.size() && IsSpace(text[_next])) {
    ++_next;
  }
  const std::string_view number = text.substr(_next);
  _length = std::max(0, SaturatingInt(number));
  _closed = number.find_first_not_of("+-0123456789") != std::string_view::npos;
  return _length;
}

void LengthReader::Find(std::string_view text) {
  const char* const from = text.data() + _next;
  const char* const found = stristr(from, lengthName);
  if (found != nullptr) {
    _found = true;
    _next = static_cast<std::size_t>(found - text.data()) + lengthNameSize;
    return;
  }
  _closed = std::memchr(from, '\0', text.size() - _next) != nullptr;
  if (text.size() >= lengthNameSize) {
    _next = std::max(_next, text.size() - lengthNameSize + 1);  // the name may have begun
  }
}

std::int32_t AnnouncedLength(const std::string& headers) { return LengthReader().Read(headers); }

std::int32_t HttpStatus(std::string_view headers) {
  std::size_t from = 0;
  const std::int32_t first = StatusAfter(headers, from);
  if (first != 100 || headers.find("HTTP/", from) == std::string_view::npos) {
    return first;
  }
  return StatusAfter(headers, from);
}

std::optional<std::string> Credentials(const std::string& user, const std::string& password) {
  if (user.size() + password.size() + 2 > fieldLimit) {
    return std::nullopt;
  }
  return password.empty() ? user : user + ":" + password;
}

bool ProxyFits(const std::string& proxy) { return proxy.size() + 1 <= fieldLimit; }

std::string AfterSlash(const std::string& text) {
  const std::size_t slash = text.find('/');
  return slash == std::string::npos ? text : text.substr(slash + 1);
}

void Diagnostics::Add(std::string_view record) {
  std::vector<std::string> lines;
  SplitString(std::string(record), "\n", lines, false);
  for (const std::string& line : lines) {
    _text += _started ? "; " : "";
    _text += QsString::Trim(line, whiteSpace);
    _started = true;
  }
}

}  // namespace qsbase::detail
