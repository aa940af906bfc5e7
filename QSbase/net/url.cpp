#include <QSbase/net/url.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <limits>
#include <string_view>

#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/net/urlescape.h>
#include <QSbase/text/chartables.h>
#include <QSbase/text/qsstring.h>

using namespace qsbase::detail;

// ---- Escapes ----

namespace {

constexpr std::size_t kNone = std::string_view::npos;

std::string Encoded(std::string_view text) {
  const auto plain = static_cast<std::size_t>(std::count_if(text.begin(), text.end(), &IsLetterOrDigit));
  std::string encoded(plain + 3 * (text.size() - plain), '\0');
  char* out = encoded.data();
  for (const char c : text) {
    out = WriteByte(c, !IsLetterOrDigit(c), out);
  }
  return encoded;
}

}  // namespace

std::string UrlEncode(const char* text) { return text == nullptr ? std::string() : Encoded(text); }

std::string UrlDecode(const char* text) {
  std::string decoded(text == nullptr ? "" : text);
  DecodeUrl(decoded);
  return decoded;
}

// ---- Paths ----

namespace {

std::string_view WithoutLeading(std::string_view text, std::string_view prefix) {
  while (text.substr(0, prefix.size()) == prefix) {
    text.remove_prefix(prefix.size());
  }
  return text;
}

// Drops the "/.." that ends the path, and the segment before it.
void DropLastSegment(std::string& path) {
  const std::size_t end = path.size() - 3;
  const std::size_t slash = end == 0 ? kNone : path.rfind('/', end - 1);
  path.resize(slash == kNone ? 0 : slash + 1);
}

// One walk does what searching from the beginning after each removal would: nothing that is removed leaves an earlier
// "/.." behind. The result has room for so many characters more.
std::string WithoutDotDots(std::string_view path, std::size_t room) {
  constexpr std::string_view dots = "/..";
  std::string out;
  out.reserve(path.size() + room);
  std::size_t at = 0;
  while (at < path.size()) {
    out += path[at++];
    if (path[at - 1] != '.' || !std::string_view(out).ends_with(dots)) {
      continue;
    }
    if (at < path.size() && path[at] != '/') {
      break;
    }
    DropLastSegment(out);
    at += at < path.size() ? 1 : 0;
  }
  out.append(path.substr(at));
  return out;
}

std::string Compressed(std::string_view path) {
  const std::size_t query = std::min(path.find('?'), path.size());
  std::string work(path.substr(0, query));
  QsReplaceStringInPlace(work, "//", "/", true);
  QsReplaceStringInPlace(work, "/./", "/", true);
  std::string_view rest = WithoutLeading(work, "/");
  rest = WithoutLeading(rest, "./");
  rest = WithoutLeading(rest, "../");
  const std::string_view tail = path.substr(query);
  std::string result = WithoutDotDots(rest, tail.size() + 1);
  result.append(tail).insert(0, 1, '/');
  return result;
}

}  // namespace

void CompressUrlPath(char* path, unsigned int size) {
  if (path == nullptr || *path == '\0' || size == 0) {
    return;
  }
  const std::string result = Compressed(path);
  // kept: a result that fills the buffer has no zero behind it
  std::memcpy(path, result.c_str(), std::min<std::size_t>(result.size() + 1, size));
}

int SplitPartialUrl(const std::string& path, std::vector<std::string>& pieces) {
  std::vector<std::string> found;  // the path may be one of the pieces
  std::string_view rest(path);
  rest.remove_prefix(!rest.empty() && rest.front() == '/' ? 1 : 0);
  while (!rest.empty()) {
    const std::size_t slash = rest.find('/');
    const std::size_t length = slash == kNone ? rest.size() : slash + 1;
    found.emplace_back(rest.substr(0, length));
    rest.remove_prefix(length);
  }
  pieces.swap(found);
  return static_cast<int>(std::min<std::size_t>(pieces.size(), std::numeric_limits<int>::max()));
}

std::string QsExtractFileNameFromUrl(const std::string& url) {
  const std::size_t slash = url.rfind('/');
  return slash == kNone ? std::string() : url.substr(slash + 1);
}

std::string QsExtractUrlPath(const std::string& url, bool withSlash) {
  const std::size_t slash = url.rfind('/');
  return slash == kNone ? std::string() : url.substr(0, slash + (withSlash ? 1 : 0));
}

// ---- The canonical form ----

namespace {

void Canonicalize(std::string& url) {
  constexpr std::size_t longest = (std::numeric_limits<unsigned int>::max() - 1) / 3;
  const std::size_t room = url.size() > longest ? 0 : 3 * url.size() + 1;
  UrlBuffer buffer(room);
  if (room == 0 || buffer.Data() == nullptr) {
    QsLogMsg(kLogWarning,
             "[107038] Error in InternetCanonicalizeUrl call: The URL could not be canonicalized due to insufficient "
             "memory.");
    return;
  }
  auto size = static_cast<unsigned int>(room);
  if (!QsUrlCanonicalize(url, buffer.Data(), size, kIcuEscape | kIcuNoEncode)) {
    QsLogMsg(kLogWarning, "[107038] Error in InternetCanonicalizeUrl call: The URL could not be canonicalized.");
    return;
  }
  url.assign(buffer.Data(), size);
}

}  // namespace

std::string NormalizeUrl(const std::string& url) {
  const std::string_view whole(url);
  const std::string_view text = Trimmed(whole.substr(0, whole.find('#')), kWhiteSpace);
  if (text.empty()) {
    return {};
  }
  const std::size_t mark = std::min(text.find('?'), text.size());
  const std::string_view query = text.substr(std::min(mark + 1, text.size()));
  std::string result(text.substr(0, mark));
  DecodeUrl(result);
  QsReplaceStringInPlace(result, "%3f", "?", true);
  Canonicalize(result);
  if (!query.empty()) {
    result.append(1, '?').append(query);
  }
  QsString::ToLower_Inplace(result);
  return result;
}

// ---- Schemes ----

ProtocolTable::ProtocolTable() : _ports{{"http", 80}, {"https", 443}, {"ftp", 21}} {}
ProtocolTable::ProtocolTable(const ProtocolTable& other) = default;
ProtocolTable& ProtocolTable::operator=(const ProtocolTable& other) = default;
ProtocolTable::~ProtocolTable() = default;

void ProtocolTable::Reserved() {}

int ProtocolTable::GetPort(const std::string& name) const {
  const auto found = _ports.find(QsString::ToLower(name));
  return found == _ports.end() ? -1 : found->second;
}

std::string ProtocolTable::GetProtocol(int port) const {
  try {
    const auto found =
        std::find_if(_ports.begin(), _ports.end(), [port](const auto& entry) { return entry.second == port; });
    return found == _ports.end() ? std::string() : found->first;
  } catch (const std::exception&) {
    return {};
  }
}
