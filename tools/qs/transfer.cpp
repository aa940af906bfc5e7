#include "transfer.h"

#include <QSbase/errors.h>
#include <QSbase/export.h>
#include <QSbase/log/log.h>
#include <QSbase/net/http.h>
#include <QSbase/net/url.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/text/qsstring.h>

#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "interrupt.h"
#include "streamos.h"
#include "text.h"

namespace qs {
namespace {

constexpr int kPartialFile = 18;
constexpr int kPartialContent = 206;
constexpr int kRangeError = 33;
constexpr unsigned int kInfo = 0x10000000;
constexpr int kHeaderLogLevel = 4;

// What the callbacks of one transfer share.
struct Watch {
  Progress* progress;
  std::FILE* stream;
  std::uint64_t total = 0;
  std::uint64_t offset = 0;
  std::string errorText;
  std::size_t headerSeen = 0;  // bytes of the header text that were looked at
  std::string block;           // the last of its blocks so far
};

// More than libcurl takes for headers: lines behind a chunked body, of which it takes, and holds, any number.
constexpr std::size_t kLongestHeaders = 400000;

constexpr char kHeadersLost[] = "not enough memory for the header lines";

// Thrown through the library, which hands on nothing more of the answer then.
struct Refusal {
  const char* reason;
  bool again;  // all of the file may be had
};

std::uint64_t NumberAfter(const std::string& text, const char* what) {
  const char* found = stristr(text.c_str(), what);
  if (found == nullptr) {
    return 0;
  }
  const std::int64_t number = AsciiToInt64(found + std::char_traits<char>::length(what));
  return number > 0 ? static_cast<std::uint64_t>(number) : 0;
}

// The status of the last header block.
int LastStatus(const std::string& headers) {
  int status = 0;
  for (LineReader lines(headers); lines.Next();) {
    const std::size_t blank = lines.Line().find(' ');
    if (StartsWith(lines.Line(), "HTTP/") && blank != std::string_view::npos) {
      status = AsciiToInt(std::string(lines.Line().substr(blank)).c_str());
    }
  }
  return status;
}

// The value of the first "Content-Range", if there is one.
std::optional<std::string> ContentRange(const std::string& headers) {
  constexpr char name[] = "\nContent-Range:";
  const char* const found = stristr(headers.c_str(), name);
  if (found == nullptr) {
    return std::nullopt;
  }
  const std::string_view value(found + sizeof name - 1);
  return std::string(value.substr(0, value.find_first_of("\r\n")));
}

// Whether 2xx comes with another part of the file than the one from `offset` on, or does not tell which. libcurl takes
// some of those for the right one, and others for one that was there already.
bool IsOtherPart(const std::string& block, std::uint64_t offset) {
  const int status = LastStatus(block);
  if (status < 200 || status > 299) {
    return false;
  }
  const std::optional<std::string> range = ContentRange(block);
  if (!range.has_value()) {
    return status == kPartialContent;
  }
  const std::size_t begin = range->find_first_of("-0123456789");
  return begin == std::string::npos || !StartsWith(range->substr(begin), std::to_string(offset) + "-");
}

// Only what is new: looking at all of it for every line would take a hostile header's length squared.
void NoteHeader(const std::string& lines, Watch& watch) {
  watch.headerSeen += lines.size();
  const std::uint64_t length = watch.total == 0 ? NumberAfter(lines, "Content-Length: ") : 0;
  watch.total += length > 0 ? length + watch.offset : 0;
  if (StartsWith(lines, "HTTP/")) {
    watch.block.clear();
  }
  watch.block += lines;
  if (watch.offset > 0 && (lines == "\r\n" || lines == "\n") && IsOtherPart(watch.block, watch.offset)) {
    throw Refusal{"the server sent a part that was not asked for", true};
  }
  if (watch.headerSeen > kLongestHeaders) {
    throw Refusal{"the server sent header lines without end", false};
  }
}

// The library hands over status lines ("D ..."), the header text so far, and at the end the reason of a failure, which
// may begin with "HTTP/", too, but has no line break. A header line that finds no memory takes those before it along,
// and the text begins anew.
void NoteText(const char* text, void* user) {
  Watch& watch = *static_cast<Watch*>(user);
  const char* const end = std::strchr(text, '\n');
  if (end == nullptr) {
    watch.errorText = StartsWith(text, "D ") ? watch.errorText : text;
    return;
  }
  const bool isFirstLine = end[1] == '\0';
  if (!StartsWith(text, "HTTP/") || (isFirstLine && watch.headerSeen > 0)) {
    throw Refusal{kHeadersLost, false};
  }
  NoteHeader(text + watch.headerSeen, watch);
}

bool ShallAbort(void* user) {
  const Watch& watch = *static_cast<Watch*>(user);
  const std::int64_t bytes = StreamPosition(watch.stream);
  if (bytes > 0) {
    watch.progress->Update(static_cast<std::uint64_t>(bytes), watch.total);
  }
  return Interrupted();
}

// A transfer that was cut off in its body reports no status itself.
int StatusOf(const QsInetHttpResponse& response) {
  return response.httpCode != 0 ? response.httpCode : LastStatus(response.headers);
}

// Whether an empty line ends the last header block: libcurl takes what ends in front of it for a whole answer. What
// follows it are lines behind a chunked body.
bool HasWholeHeaders(const std::string& headers) {
  bool isWhole = false;
  for (LineReader lines(headers); lines.Next();) {
    isWhole = lines.Line().empty() || (isWhole && !StartsWith(lines.Line(), "HTTP/"));
  }
  return isWhole;
}

// The whole length in "Content-Range: bytes 5-9/10" or "bytes */10", 0 when it is unknown.
std::uint64_t TotalOf(const std::string& headers) { return NumberAfter(ContentRange(headers).value_or(""), "/"); }

std::string OneLine(const std::string& headers) {
  std::string line;
  for (LineReader lines(headers); lines.Next();) {
    line += lines.Line().empty() ? "" : (line.empty() ? "" : "; ") + Printable(lines.Line());
  }
  return line;
}

std::string LocationOf(const std::string& headers) {
  const char* found = stristr(headers.c_str(), "Location: ");
  if (found == nullptr) {
    return {};
  }
  const std::string_view rest(found + 10);
  return std::string(rest.substr(0, rest.find_first_of("\r\n")));
}

std::string StatusProblem(int status, const std::string& headers) {
  std::string problem = status == 0 ? "no HTTP status" : "HTTP status " + std::to_string(status);
  if (status >= 300 && status < 400 && !LocationOf(headers).empty()) {
    problem += ", see " + DisplayUrl(LocationOf(headers));
  }
  return problem;
}

std::string FailureText(const QsInetHttpResponse& response, const Watch& watch) {
  std::string text = watch.errorText.empty() ? response.errorText : watch.errorText;
  if (text.empty()) {
    text = "transfer failed";
  }
  text += " (code " + std::to_string(response.curlCode) + ")";
  return Printable(text) + (response.retryable ? ", worth another try" : "");
}

QsInetHttpRequest RequestFor(const std::string& url, const TransferOptions& options, std::FILE* stream) {
  QsInetHttpRequest request;
  request.url = url;
  request.userAgent = "qs/" QSBASE_VERSION_STRING;
  request.httpUser = options.user;
  request.httpPassword = options.password;
  request.proxyServer = options.proxy;
  request.proxyUser = options.proxyUser;
  request.proxyPassword = options.proxyPassword;
  request.connectTimeout = options.connectTimeout;
  request.caInfoFile = options.caFile;
  request.verifyPeer = !options.insecure;
  request.verifyHost = !options.insecure;
  request.outputFile = stream;
  return request;
}

// The URL as libcurl is to have it, empty for one that is of another scheme. No stricter than that: many that servers
// answer are not of a strict form. What has no scheme is HTTP, and is told to be: libcurl would take
// "ftp.example.org/x" for FTP. "host:8080/x" and "user:password@host" seem to have one, but no "/" follows their ":".
std::string HttpUrl(const std::string& url) {
  QsUrlComponents parts{};
  QsInternetCrackUrl(url.c_str(), parts);
  const std::string scheme = QsString::ToLower(parts.schemeName);
  if (scheme == "http" || scheme == "https") {
    return url;
  }
  const std::size_t mark = url.find_first_of("/?#");
  const bool hasScheme = mark != std::string::npos && mark > 0 && url.compare(mark - 1, 2, ":/") == 0;
  if (hasScheme || scheme == "mailto") {
    return {};
  }
  return mark == 0 ? url : "http://" + url;  // "http:///x" would be the host x
}

}  // namespace

Download::Download(const std::string& partPath) : _partPath(partPath) {}

Download::~Download() {
  if (_partPath.empty() || !_part.IsOpen()) {
    return;
  }
  try {
    if (!_keep || Size() <= 0) {
      Restart();  // what cannot be removed is empty then: nobody goes on with it
      _part.Close();
      QsDeleteFile(_partPath, false);
    }
  } catch (const std::bad_alloc&) {
    return;  // no memory for the name
  }
}

std::FILE* Download::Stream() { return _partPath.empty() ? _temporary.get() : static_cast<std::FILE*>(_part); }

std::int64_t Download::Size() { return SeekToEnd(Stream()); }

bool Download::Open() {
  if (_partPath.empty()) {
    _temporary.reset(OpenTemporaryStream());
    return _temporary != nullptr && HoldNothingBack(Stream());
  }
  return _part.Open(_partPath.c_str(), "a+b") && HoldNothingBack(Stream());
}

bool Download::Restart() {
  if (_partPath.empty()) {
    return Open();
  }
  _part.Close();
  return _part.Open(_partPath.c_str(), "w+b") && HoldNothingBack(Stream());
}

std::string Download::Run(const std::string& url, const TransferOptions& options, Progress& progress) {
  const std::string httpUrl = HttpUrl(url);
  if (httpUrl.empty()) {
    return "only http and https URLs are fetched";
  }
  if (!Open()) {
    return "cannot open a file for the download (" + QsErrorMessage(QsGetLastError()) + ")";
  }
  bool again = false;
  std::string problem = RunOnce(httpUrl, options, progress, again);
  if (again) {
    if (!Restart()) {
      return "cannot start the download over (" + QsErrorMessage(QsGetLastError()) + ")";
    }
    problem = RunOnce(httpUrl, options, progress, again);
  }
  _keep = _keep && !problem.empty();
  return problem;
}

std::string Download::RunOnce(const std::string& url, const TransferOptions& options, Progress& progress, bool& again) {
  again = false;
  const std::int64_t have = Size();
  if (have < 0 || have > std::numeric_limits<std::uint32_t>::max()) {
    again = have > 0;
    return "the partial file is too long to go on with";
  }
  QsInetHttpRequest request = RequestFor(url, options, Stream());
  request.resume = have > 0;
  request.resumeFrom = static_cast<std::uint32_t>(have);
  QsInetHttpResponse response;
  Watch watch{&progress, Stream(), 0, static_cast<std::uint64_t>(have), {}, 0, {}};
  bool performed = false;
  try {
    performed = QsInetHttp(request, response, &NoteText, &watch, &ShallAbort, &watch, 0);
  } catch (const Refusal& refusal) {
    again = refusal.again;
    _keep = have > 0;
    return refusal.reason;
  }
  if (QsGetLogLevel() >= kHeaderLogLevel) {
    QsLogMsg(kInfo | kHeaderLogLevel, "Response of " + DisplayUrl(url) + ": " + OneLine(response.headers));
  }
  const int status = StatusOf(response);
  const std::uint64_t total = TotalOf(response.headers);
  _keep = have > 0 || (status >= 200 && status < 300);
  if (response.headers.size() != watch.headerSeen || (watch.headerSeen == 0 && Size() != have)) {
    _keep = false;  // nobody has looked which part it is
    return kHeadersLost;
  }
  if (Interrupted()) {
    return "interrupted";
  }
  if (!performed) {
    return FailureText(response, watch);
  }
  if (std::ferror(Stream()) != 0) {
    _keep = false;  // something is missing from its middle
    return "cannot write the download";
  }
  if (have > 0 && status == 416) {
    again = total != static_cast<std::uint64_t>(have);
    return again ? StatusProblem(status, response.headers) : "";
  }
  if (status < 200 || status >= 300) {
    return StatusProblem(status, response.headers);
  }
  if (response.curlCode == kRangeError) {
    again = have > 0;
    return "the server does not serve the rest of the file";
  }
  if (response.curlCode == kPartialFile || !HasWholeHeaders(response.headers)) {
    return "the connection ended before the whole file was there";
  }
  if (status == kPartialContent && (have == 0 || (total > 0 && total != static_cast<std::uint64_t>(Size())))) {
    again = have > 0;
    _keep = false;
    return "the server sent a part that was not asked for";
  }
  return {};
}

// Not by QsInternetCrackUrl: it would leave the beginning of a password that holds a ":" or ";".
std::string DisplayUrl(const std::string& url) {
  std::string shown = url;
  const std::size_t scheme = shown.find("://");
  const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t slash = shown.find_first_of("/?#", start);
  const std::size_t at = shown.rfind('@', slash == std::string::npos ? shown.size() : slash);
  if (at != std::string::npos && at >= start) {
    const std::size_t colon = shown.find(':', start);
    if (colon < at) {
      shown.replace(colon + 1, at - colon - 1, "***");
    }
  }
  return Printable(shown);
}

std::string UrlFileName(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  const std::size_t scheme = path.find("://");
  path.erase(0, scheme == std::string::npos ? 0 : scheme + 3);
  return UrlDecode(QsExtractFileNameFromUrl(path).c_str());
}

}  // namespace qs
