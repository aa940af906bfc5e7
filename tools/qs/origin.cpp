#include "origin.h"

#include <QSbase/errors.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/text/qschar.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

#include "loopbackos.h"
#include "text.h"

namespace qs {
namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr int kBacklog = 16;
constexpr int kPeerSeconds = 5;
constexpr std::size_t kMaxRequest = 16384;

std::string PercentEncode(const std::string& name) {
  std::string encoded;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (QsChar::IsAsciiAlphaNumeric(byte) || c == '-' || c == '.' || c == '_' || c == '~') {
      encoded += c;
    } else {
      encoded += "%" + Byte2Hex(byte);
    }
  }
  return encoded;
}

std::string HeaderValue(std::string_view request, std::string_view name) {
  LineReader lines(request);
  while (lines.Next()) {
    if (StartsWithNoCase(lines.Line(), name)) {
      return std::string(Trim(lines.Line().substr(name.size())));
    }
  }
  return {};
}

bool ParseNumber(std::string_view text, std::uint64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

struct ByteRange {
  std::size_t first;
  std::size_t length;
};

enum class RangeKind { None, Served, Impossible };

// "bytes=5-9", "bytes=5-" and "bytes=-5"; any other form is no range, and the whole file is sent.
RangeKind ParseRange(std::string_view value, std::size_t size, ByteRange& range) {
  if (!StartsWith(value, "bytes=")) {
    return RangeKind::None;
  }
  value.remove_prefix(6);
  const std::size_t dash = value.find('-');
  if (dash == std::string_view::npos) {
    return RangeKind::None;
  }
  const std::string_view from = value.substr(0, dash);
  const std::string_view to = value.substr(dash + 1);
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  if (from.empty()) {
    if (!ParseNumber(to, last)) {
      return RangeKind::None;
    }
    range.length = static_cast<std::size_t>(std::min<std::uint64_t>(last, size));
    range.first = size - range.length;
    return range.length > 0 ? RangeKind::Served : RangeKind::Impossible;
  }
  if (!ParseNumber(from, first) || (!to.empty() && (!ParseNumber(to, last) || last < first))) {
    return RangeKind::None;
  }
  if (first >= size) {
    return RangeKind::Impossible;
  }
  last = to.empty() ? size - 1 : std::min<std::uint64_t>(last, size - 1);
  range.first = static_cast<std::size_t>(first);
  range.length = static_cast<std::size_t>(last - first) + 1;
  return RangeKind::Served;
}

// As Read(), and -1 for a peer that says nothing.
int ReadInTime(QsSocket& connection, char* buffer, int size) {
  return connection.WaitForData(kPeerSeconds) == 1 ? connection.Read(buffer, size) : -1;
}

// Until the peer is gone or does not read.
void Send(QsSocket& connection, std::string_view data) {
  constexpr std::size_t kMost = std::numeric_limits<int>::max();
  while (!data.empty()) {
    const int sent = connection.Write(data.data(), static_cast<int>(std::min(data.size(), kMost)));
    if (sent <= 0) {
      return;
    }
    data.remove_prefix(static_cast<std::size_t>(sent));
  }
}

std::string Response(const char* status, const std::string& headers, const std::string& body, bool withBody) {
  return "HTTP/1.1 " + std::string(status) + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n\r\n" + (withBody ? body : "");
}

}  // namespace

Origin::Origin(std::map<std::string, std::string> files) : _files(std::move(files)) {}

Origin::~Origin() {
  _stop = true;
  if (_thread.joinable()) {
    QsSocket().Connect(kLoopback, _port, 0);  // it need not wait for its time to end
    _thread.join();
  }
}

std::string Origin::Start() {
  if (_listener.Bind(kLoopback, 0) != 0 || _listener.Listen(kBacklog) != 0) {
    return "cannot listen on 127.0.0.1 (" + QsErrorMessage(QsGetLastError()) + ")";
  }
  _port = PortOf(_listener.GetSocket());
  _thread = std::thread([this] { Serve(); });
  return {};
}

std::string Origin::UrlOf(const std::string& name) const {
  return "http://127.0.0.1:" + std::to_string(_port) + "/" + PercentEncode(name);
}

void Origin::Serve() {
  while (!_stop) {
    QsSocket connection;
    if (_listener.WaitForData(1) == 1 && _listener.Accept(connection) == 0) {
      Answer(connection);
    }
  }
}

void Origin::Answer(QsSocket& connection) const {
  LimitWrites(connection.GetSocket(), kPeerSeconds * 1000);
  std::string request;
  std::array<char, 2048> block{};
  while (request.find("\r\n\r\n") == std::string::npos) {
    const int count = ReadInTime(connection, block.data(), static_cast<int>(block.size()));
    if (count <= 0 || request.size() > kMaxRequest) {
      return;
    }
    request.append(block.data(), static_cast<std::size_t>(count));
  }
  Send(connection, ResponseTo(request));
}

std::string Origin::ResponseTo(std::string_view request) const {
  const std::string_view line = request.substr(0, request.find("\r\n"));
  const std::size_t first = line.find(' ');
  const std::size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
  if (second == std::string_view::npos) {
    return Response("400 Bad Request", "", "", true);
  }
  const std::string_view method = line.substr(0, first);
  if (method != "GET" && method != "HEAD") {
    return Response("405 Method Not Allowed", "Allow: GET, HEAD\r\n", "", true);
  }
  const bool withBody = method == "GET";
  std::string name(line.substr(first + 1, second - first - 1));
  name = name.substr(std::min<std::size_t>(name.size(), 1), name.find('?') - 1);
  name = PercentDecode(name);
  const auto found = _files.find(name);
  if (found == _files.end()) {
    return Response("404 Not Found", "", "There is no such article.\n", withBody);
  }
  const std::string content = LoadBinaryFile(found->second);
  const std::string size = std::to_string(content.size());
  ByteRange range{};
  switch (ParseRange(HeaderValue(request, "Range:"), content.size(), range)) {
    case RangeKind::Impossible:
      return Response("416 Range Not Satisfiable", "Content-Range: bytes */" + size + "\r\n", "", withBody);
    case RangeKind::Served: {
      const std::string span = std::to_string(range.first) + "-" + std::to_string(range.first + range.length - 1);
      return Response("206 Partial Content", "Content-Range: bytes " + span + "/" + size + "\r\n",
                      content.substr(range.first, range.length), withBody);
    }
    case RangeKind::None:
      break;
  }
  return Response("200 OK", "Accept-Ranges: bytes\r\nContent-Type: application/octet-stream\r\n", content, withBody);
}

}  // namespace qs
