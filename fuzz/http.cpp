// What an HTTP or FTP server says: headers, status lines, bodies, listings, and what libcurl tells about them.
#include <QSbase/net/ftptransfer.h>
#include <QSbase/net/httptransfer.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "bounds.h"
#include "choices.h"
#include "target.h"

using namespace qsbase;
using namespace qsbase::detail;

namespace {

// ---- the same once more, slow and obviously right ----

bool IsWhite(char c) { return std::string_view(" \t\n\v\f\r").find(c) != std::string_view::npos; }

std::int32_t SlowInt(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && IsWhite(text[at])) {
    ++at;
  }
  const char sign = at < text.size() && (text[at] == '-' || text[at] == '+') ? text[at++] : '+';
  std::string digits;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    digits = digits == "0" ? "" : digits;
    digits += text[at];
  }
  const bool isLong = digits.size() > 10;
  const long long size = isLong ? std::numeric_limits<long long>::max() : std::strtoll(digits.c_str(), nullptr, 10);
  const long long most = sign == '-' ? 2147483648LL : 2147483647LL;
  const long long value = size > most ? most : size;
  return static_cast<std::int32_t>(sign == '-' ? -value : value);
}

std::string Lower(std::string_view text) {
  std::string lower;
  for (const char c : text) {
    lower += c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  }
  return lower;
}

std::int32_t SlowLength(std::string_view headers) {
  const std::string lower = Lower(headers.substr(0, headers.find('\0')));
  const std::string name = "content-length: ";
  const std::size_t found = lower.find(name);
  const std::int32_t length = found == std::string::npos ? 0 : SlowInt(std::string_view(lower).substr(found + 16));
  return length < 0 ? 0 : length;
}

struct StatusLine {
  std::int32_t status = 0;
  bool hasNext = false;
};

StatusLine SlowStatusLine(std::string& headers) {
  StatusLine line;
  const std::size_t name = headers.find("HTTP/");
  headers.erase(0, name);
  const std::size_t blank = name == std::string::npos ? name : headers.find(' ');
  if (blank == std::string::npos) {
    return line;
  }
  headers.erase(0, blank + 1);
  line.status = SlowInt(headers.substr(0, headers.find(' ')));
  line.hasNext = headers.find("HTTP/") != std::string::npos;
  return line;
}

std::int32_t SlowStatus(std::string headers) {
  const StatusLine first = SlowStatusLine(headers);
  return first.status == 100 && first.hasNext ? SlowStatusLine(headers).status : first.status;
}

/// The lines that are not empty.
std::vector<std::string> SlowLines(std::string_view text) {
  std::vector<std::string> lines(1);
  for (const char c : text) {
    if (c == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += c;
    }
  }
  std::erase(lines, std::string());
  return lines;
}

// ---- receiving ----

/// The allocator of the sinks: the n-th call finds no memory.
int callsUntilFailure = 0;

void* Reallocate(void* memory, std::size_t size) {
  return --callsUntilFailure == 0 ? nullptr : std::realloc(memory, size);
}

void Prepare(TransferSink& sink, unsigned int failure) {
  callsUntilFailure = static_cast<int>(failure);
  sink.reallocate = &Reallocate;
}

std::string told;

void Remember(const char* text, void*) { told = text; }

void Refuse(const char*, void*) { throw std::runtime_error("refused"); }

std::size_t Give(std::size_t (*receive)(char*, std::size_t, std::size_t, void*), std::string piece,
                 TransferSink& sink) {
  return receive(piece.data(), 1, piece.size(), &sink);
}

void ComparePieces(const TransferSink& sink, const std::string& expected) {
  fuzz::DemandEqual(expected, sink.Bytes(), "what was received");
  fuzz::Demand(sink.data == nullptr || sink.data.get()[sink.held] == '\0' ? "" : "what was received has no end");
  fuzz::Demand(sink.capacity >= sink.held ? "" : "more is held than there is room for");
}

// The header text: what was announced is known after every piece; without memory it begins anew.
void ReceiveHeaders(const std::vector<std::string_view>& pieces, unsigned int failure) {
  TransferSink header;
  Prepare(header, failure);
  header.textCallback = &Remember;
  std::string expected;
  for (const std::string_view piece : pieces) {
    const std::size_t taken = Give(&ReceiveHeader, std::string(piece), header);
    fuzz::Demand(taken == piece.size() ? "" : "a piece of the header was refused");
    expected = header.data == nullptr ? "" : expected.append(piece);
    ComparePieces(header, expected);
    if (header.data != nullptr) {
      fuzz::Demand(header.contentLength == SlowLength(expected) ? "" : "another length in pieces than as a whole");
      fuzz::DemandEqual(expected.substr(0, expected.find('\0')), told, "the header told to the callback");
    }
  }
}

void RefuseHeader(const std::string& text) {
  TransferSink header;
  header.textCallback = &Refuse;
  const bool isRefused = text.empty() || (Give(&ReceiveHeader, text, header) == 0 && header.error != nullptr);
  fuzz::Demand(isRefused ? "" : "what a callback threw did not end the transfer");
}

// Without memory what is held goes, the piece is dropped and the transfer goes on.
void ReceiveBodies(const std::vector<std::string_view>& pieces, std::size_t growth, unsigned int failure) {
  TransferSink body;
  Prepare(body, failure);
  body.growthStep = growth;
  std::string expected;
  for (const std::string_view piece : pieces) {
    const std::size_t taken = Give(&ReceiveBody, std::string(piece), body);
    fuzz::Demand(taken == piece.size() ? "" : "a piece of the body was refused");
    expected = body.data == nullptr ? "" : expected.append(piece);
    ComparePieces(body, expected);
    fuzz::Demand(body.capacity <= expected.size() + growth + piece.size() ? "" : "the body takes too much room");
  }
}

void CompareWhole(const std::string& text) {
  fuzz::Demand(AnnouncedLength(text) == SlowLength(text) ? "" : "AnnouncedLength");
  fuzz::Demand(HttpStatus(text) == SlowStatus(text) ? "" : "HttpStatus");
  fuzz::Demand(SaturatingInt(text) == SlowInt(text) ? "" : "SaturatingInt");
}

void CompareReader(const std::string& text, const std::vector<std::string_view>& pieces) {
  LengthReader reader;
  std::int32_t length = 0;
  std::string soFar;
  for (const std::string_view piece : pieces) {
    soFar += piece;
    length = reader.Read(soFar);
  }
  fuzz::Demand(text.empty() || length == AnnouncedLength(text) ? "" : "LengthReader");
}

// ---- what is told ----

void CompareDiagnostics(const std::vector<std::string_view>& records) {
  Diagnostics diagnostics;
  std::string expected;
  bool isFirst = true;
  for (const std::string_view record : records) {
    diagnostics.Add(record);
    for (std::string line : SlowLines(record)) {
      while (!line.empty() && IsWhite(line.back())) {
        line.pop_back();
      }
      while (!line.empty() && IsWhite(line.front())) {
        line.erase(0, 1);
      }
      expected += isFirst ? line : "; " + line;
      isFirst = false;
    }
  }
  fuzz::DemandEqual(expected, diagnostics.Text(), "the diagnostics");
}

void CompareListing(std::string_view text) {
  std::vector<std::string> expected;
  for (std::string line : SlowLines(text)) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    if (!line.empty()) {
      expected.push_back(line);
    }
  }
  std::vector<std::string> names;
  SplitListing(text, names);
  fuzz::Demand(names == expected ? "" : "the names of a listing");
}

void CompareStatusLines(unsigned int announced, fuzz::Choices choices) {
  TransferSink header;
  header.contentLength = static_cast<std::int32_t>(announced * 0x808080U & 0x7FFFFFFFU);
  TransferSink body;
  body.headerSink = &header;
  std::int64_t now = 1;
  for (int i = 0; i < 8; ++i) {
    now += static_cast<std::int64_t>(choices.Below(3));
    body.held += choices.Below(std::size_t{1} << 24) << choices.Below(8);
    const std::optional<std::string> line = DueStatusLine(body, now);
    const bool isWhole = !line || (line->starts_with("D Downloaded: ") && line->find("\tDownload finished: ") < 120);
    fuzz::Demand(isWhole ? "" : "a status line is cut");
  }
}

// ---- bounds ----

std::size_t SizeOf(const std::vector<std::string>& texts) {
  std::size_t size = 0;
  for (const std::string& text : texts) {
    size += text.capacity();
  }
  return size + texts.size() * sizeof(std::string);
}

/// Each line by itself, as libcurl gives them.
std::size_t ReceiveLines(const std::string& text) {
  TransferSink header;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    Give(&ReceiveHeader, text.substr(begin, end - begin), header);
    begin = end;
  }
  return static_cast<std::size_t>(header.held) * 2;  // both texts while the memory moves
}

std::size_t ReceivePieces(const std::string& text) {
  TransferSink body;
  body.growthStep = text.size() / 8 + 1;
  for (std::size_t begin = 0; begin < text.size(); begin += 1000) {
    Give(&ReceiveBody, text.substr(begin, 1000), body);
  }
  return static_cast<std::size_t>(body.held) * 2;
}

void DemandBounds(std::string_view text) {
  fuzz::DemandBounds("reading headers", text, [](const std::string& headers) {
    AnnouncedLength(headers);
    HttpStatus(headers);
    SaturatingInt(headers);
    return std::size_t{0};
  });
  fuzz::DemandBounds("receiving headers", text, &ReceiveLines, std::size_t{1} << 18);  // libcurl's limit is 300 KiB
  fuzz::DemandBounds("receiving a body", text, &ReceivePieces);
  fuzz::DemandBounds("a listing", text, [](const std::string& listing) {
    std::vector<std::string> names;
    SplitListing(listing, names);
    const auto lines = static_cast<std::size_t>(std::count(listing.begin(), listing.end(), '\n')) + 1;
    // The vector grows, and holds lines of a CR alone for a while; the text is copied first.
    return 3 * lines * sizeof(std::string) + 2 * listing.size() + SizeOf(names);
  });
  fuzz::DemandBounds("diagnostics", text, [](const std::string& record) {
    Diagnostics diagnostics;
    diagnostics.Add(record);
    const auto lines = static_cast<std::size_t>(std::count(record.begin(), record.end(), '\n')) + 1;
    return 3 * lines * sizeof(std::string) + 3 * record.size() + 2 * diagnostics.Text().capacity();
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned int seed = input.Parameter();
  const std::size_t longest = input.Parameter() + 1;
  const unsigned int failure = input.Parameter() % 64;
  const std::string text(input.Rest());
  fuzz::Choices choices(seed);
  const std::vector<std::string_view> pieces = choices.Pieces(text, longest);
  CompareWhole(text);
  CompareReader(text, pieces);
  if (text.size() < 1024) {  // the slow ones look at everything again after each piece
    ReceiveHeaders(pieces, failure);
  }
  RefuseHeader(text);
  ReceiveBodies(pieces, std::size_t{seed} * 16, failure);
  CompareDiagnostics(pieces);
  CompareListing(text);
  CompareStatusLines(seed, choices);
  DemandBounds(text);
  return 0;
}
