#include <QSbase/net/url.h>
#include <QSbase/net/urlescape.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

bool IsIn(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsLetterOrDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// ---- Escapes ----

std::string DecodedSlowly(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string digits = text.substr(i + 1, 2);
    if (text[i] != '%') {
      decoded += text[i];
    } else if (digits.size() == 2 && std::isxdigit(static_cast<unsigned char>(digits[0])) != 0 &&
               std::isxdigit(static_cast<unsigned char>(digits[1])) != 0) {
      decoded += static_cast<char>(std::strtoul(digits.c_str(), nullptr, 16));
      i += 2;
    } else {
      decoded += '%' + digits;
      i += digits.size();
    }
  }
  return decoded;
}

void CheckEncoding(const std::string& text) {
  const std::string encoded = UrlEncode(text.c_str());
  fuzz::DemandEqual(text, UrlDecode(encoded.c_str()), "UrlEncode");
  fuzz::Demand(std::all_of(encoded.begin(), encoded.end(), [](char c) { return IsLetterOrDigit(c) || c == '%'; })
                   ? ""
                   : "UrlEncode leaves " + encoded);
  fuzz::DemandEqual(DecodedSlowly(text), UrlDecode(text.c_str()), "UrlDecode");
}

// Into a block of just that size.
std::string Escaped(const std::string& text, unsigned int flags) {
  unsigned int size = 0;
  fuzz::Demand(detail::QsUrlEscape(text, size, nullptr, flags) ? "QsUrlEscape writes without room" : "");
  std::vector<char> out(size);
  fuzz::Demand(detail::QsUrlEscape(text, size, out.data(), flags) && size + 1 == out.size() ? ""
                                                                                            : "QsUrlEscape needs more");
  return {out.data(), size};
}

std::string Unescaped(std::string text, unsigned int flags) {
  unsigned int size = 0;
  if (!detail::QsUrlUnescape(flags, text.data(), nullptr, size)) {
    std::vector<char> out(size);
    fuzz::Demand(detail::QsUrlUnescape(flags, text.data(), out.data(), size) ? "" : "QsUrlUnescape needs more");
    std::string inPlace(text);
    detail::QsUrlUnescape(flags | detail::kUrlUnescapeInplace, inPlace.data(), nullptr, size);
    fuzz::DemandEqual(std::string(out.data()), std::string(inPlace.c_str()), "QsUrlUnescape in place");
    return {out.data(), size};
  }
  return {};
}

void CheckEscaping(const std::string& text, unsigned int bits) {
  const unsigned int flags = ((bits & 1) != 0 ? detail::kUrlEscapeSegmentOnly : 0U) |
                             ((bits & 2) != 0 ? detail::kUrlDontEscapeExtraInfo : 0U) |
                             ((bits & 4) != 0 ? detail::kUrlEscapeSpacesOnly : 0U);
  Escaped(text, flags);
  Unescaped(text, flags & detail::kUrlDontEscapeExtraInfo);
  const unsigned int all = detail::kUrlEscapePercent | detail::kUrlEscapeSegmentOnly;
  fuzz::DemandEqual(text, Unescaped(Escaped(text, all), 0), "QsUrlEscape");
}

// ---- Parts ----

template <std::size_t size>
std::string FieldOf(const char (&field)[size]) {
  fuzz::Demand(std::memchr(field, '\0', size) != nullptr ? "" : "a part has no end");
  return field;
}

void CheckParts(const std::string& url) {
  QsUrlComponents parts{};
  QsInternetCrackUrl(url.c_str(), parts);
  for (const std::string& part : {FieldOf(parts.schemeName), FieldOf(parts.userName), FieldOf(parts.password),
                                  FieldOf(parts.urlPath), FieldOf(parts.extraInfo)}) {
    fuzz::Demand(url.find(part) != std::string::npos ? "" : "a part that the URL has not: " + part);
  }
  const std::string host = FieldOf(parts.hostName);
  const bool isNumbers = std::all_of(host.begin(), host.end(), [](char c) { return IsDigit(c) || c == '.'; });
  fuzz::Demand(isNumbers || url.find(host) != std::string::npos ? "" : "a host that the URL has not: " + host);
  const std::string site = FieldOf(parts.siteUrl);
  fuzz::DemandEqual(url.substr(0, site.size()), site, "the site");
  if (!site.empty() && site.size() + 1 < sizeof parts.siteUrl) {
    const std::string path = FieldOf(parts.urlPath);
    fuzz::DemandEqual(url.substr(site.size(), path.size()), path, "the path");
  }
  fuzz::Demand(parts.scheme >= -4 && parts.scheme <= 443 ? "" : "a scheme without a code");
}

// One number of a host, by the C library.
bool TakeNumber(const char*& text, std::string& out) {
  char* end = nullptr;
  const char* sign = text + std::strspn(text, " \t\n\v\f\r");
  const bool isNegative = *sign == '-';
  const char* const digits = isNegative ? sign + 1 : sign;
  const unsigned long long magnitude = std::strtoull(digits, &end, 0);
  // Between a sign and its number the C library takes more than one of 32 bits would.
  if (end == digits || (isNegative && !IsDigit(*digits))) {
    return false;
  }
  std::uint32_t value = 0xFFFFFFFF;
  if (magnitude <= value) {
    value = static_cast<std::uint32_t>(isNegative ? 0 - magnitude : magnitude);
  }
  out += std::to_string(value);
  text = end;
  return true;
}

// Of a host of one to four such numbers; empty for any other, and where it has no number in some place.
std::string DottedSlowly(const char* text) {
  std::string out;
  for (int i = 0; i < 4; ++i) {
    const char* const begin = text;
    if (!TakeNumber(text, out) || text == begin) {
      return {};
    }
    if (*text == '\0') {
      return i == 0 ? std::string() : out;
    }
    if (*text++ != '.') {
      return {};
    }
    out += '.';
  }
  return {};
}

std::string DecodedHost(const std::string& host, std::size_t room) {
  std::vector<char> buffer(std::max(room, host.size() + 1));
  std::memcpy(buffer.data(), host.c_str(), host.size() + 1);
  const bool isDone = DecodeNumberFormatHostname(buffer.data(), static_cast<unsigned int>(buffer.size()));
  fuzz::Demand(isDone || host == buffer.data() ? "" : "a host that was refused has changed");
  return buffer.data();
}

void CheckHost(const std::string& host) {
  const std::string decoded = DecodedHost(host, host.size() + 64);
  fuzz::DemandEqual(decoded, DecodedHost(decoded, decoded.size() + 64), "a decoded host");
  DecodedHost(host, 0);
  const std::string expected = DottedSlowly(host.c_str());
  const std::size_t dot = host.rfind('.');
  if (!expected.empty() && IsDigit(host[dot + 1])) {
    fuzz::DemandEqual(expected, decoded, "a host in numbers");
  }
}

// ---- Paths ----

void ReplaceOnce(std::string& text, const std::string& what) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; ++at) {
    text.replace(at, what.size(), "/");
  }
}

void DropLeading(std::string& text, const std::string& what) {
  while (text.compare(0, what.size(), what) == 0) {
    text.erase(0, what.size());
  }
}

// As the header says, with a search from the beginning after each removal.
std::string CompressedSlowly(const std::string& path) {
  const std::size_t query = std::min(path.find('?'), path.size());
  std::string text = path.substr(0, query);
  ReplaceOnce(text, "//");
  ReplaceOnce(text, "/./");
  for (const char* const what : {"/", "./", "../"}) {
    DropLeading(text, what);
  }
  for (std::size_t at; (at = text.find("/..")) != std::string::npos;) {
    const std::size_t end = at + 3;
    if (end < text.size() && text[end] != '/') {
      break;
    }
    const std::size_t slash = at == 0 ? std::string::npos : text.rfind('/', at - 1);
    const std::size_t begin = slash == std::string::npos ? 0 : slash + 1;
    text.erase(begin, end + 1 - begin);
  }
  return '/' + text + path.substr(query);
}

std::string Compressed(const std::string& path, std::size_t room) {
  std::vector<char> buffer(std::max(room, path.size() + 1));
  std::memcpy(buffer.data(), path.c_str(), path.size() + 1);
  CompressUrlPath(buffer.data(), static_cast<unsigned int>(room));
  return {buffer.data(), std::find(buffer.data(), buffer.data() + room, '\0')};
}

void CheckPath(const std::string& path, std::size_t room) {
  if (path.empty()) {
    return;
  }
  const std::string whole = CompressedSlowly(path);
  fuzz::DemandEqual(whole, Compressed(path, path.size() + 2), "CompressUrlPath");
  room = std::min(room, path.size() + 1);
  if (room != 0) {
    fuzz::DemandEqual(whole.substr(0, room), Compressed(path, room), "CompressUrlPath without room");
  }
}

void CheckPieces(const std::string& path) {
  std::vector<std::string> pieces;
  const int count = SplitPartialUrl(path, pieces);
  std::string joined(path.substr(0, path.substr(0, 1) == "/" ? 1 : 0));
  for (const std::string& piece : pieces) {
    fuzz::Demand(piece.find('/') >= piece.size() - 1 && !piece.empty() ? "" : "a piece of two");
    joined += piece;
  }
  fuzz::DemandEqual(path, joined, "SplitPartialUrl");
  fuzz::Demand(static_cast<std::size_t>(count) == pieces.size() ? "" : "a wrong number of pieces");
  if (path.find('/') != std::string::npos) {
    fuzz::DemandEqual(path, QsExtractUrlPath(path, true) + QsExtractFileNameFromUrl(path), "path and name");
  }
}

// ---- The canonical form and the check ----

void CheckNormalized(const std::string& url) {
  const std::string normalized = NormalizeUrl(url);
  fuzz::DemandEqual(QsString::ToLower(normalized), normalized, "lower case");
  fuzz::Demand(normalized.size() <= 3 * url.size() ? "" : "NormalizeUrl gives too much");
  if (url.find('#') == std::string::npos) {
    fuzz::DemandEqual(normalized, NormalizeUrl("\t " + url + " #" + url), "what does not count");
  }
}

bool IsLabel(const std::string& label) {
  return !label.empty() && label.front() != '-' && label.back() != '-' &&
         std::all_of(label.begin(), label.end(), [](char c) { return IsLetterOrDigit(c) || c == '-' || c == '@'; });
}

bool AreLabels(std::string host) {
  host += '.';
  for (std::size_t dot; (dot = host.find('.')) != std::string::npos; host.erase(0, dot + 1)) {
    if (!IsLabel(host.substr(0, dot))) {
      return false;
    }
  }
  return true;
}

bool IsPathOrQuery(const std::string& text, std::string_view more) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEscape = text[i] == '%' && i + 2 < text.size() &&
                          std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                          std::isxdigit(static_cast<unsigned char>(text[i + 2]));
    if (!isEscape && !IsLetterOrDigit(text[i]) && !IsIn(text[i], "$-_.+!*'(),;:@&=") && !IsIn(text[i], more)) {
      return false;
    }
    i += isEscape ? 2 : 0;
  }
  return true;
}

// By hand instead of by one expression.
bool IsValidSlowly(const std::string& url) {
  const std::string lower = QsString::ToLower(url);
  const std::size_t begin = lower.rfind("http://", 0) == 0 ? 7 : lower.rfind("https://", 0) == 0 ? 8 : 0;
  const std::size_t path = std::min(url.find('/', begin), url.size());
  const std::size_t query = std::min(url.find('?', path), url.size());
  std::string host = url.substr(begin, path - begin);
  const std::size_t colon = host.find(':');
  const std::string port = colon == std::string::npos ? "0" : host.substr(colon + 1);
  host.resize(std::min(colon, host.size()));
  return begin != 0 && AreLabels(host) && !port.empty() && std::all_of(port.begin(), port.end(), &IsDigit) &&
         IsPathOrQuery(url.substr(path, query - path), "/") &&
         IsPathOrQuery(url.substr(std::min(query + 1, url.size())), "");
}

void CheckValidator(const std::string& url) {
  fuzz::Demand(QsIsValidURL(url) == IsValidSlowly(url) ? "" : "QsIsValidURL");
}

// ---- Bounds ----

// In place: in a copy, which the test takes.
std::size_t Compress(const std::string& text) {
  const std::size_t length = std::strlen(text.c_str());
  std::vector<char> path(length + 2);
  std::memcpy(path.data(), text.data(), length);
  CompressUrlPath(path.data(), static_cast<unsigned int>(path.size()));
  return 2 * path.size();
}

std::size_t Split(const std::string& text) {
  std::vector<std::string> pieces;
  SplitPartialUrl(text, pieces);
  return text.size() + 3 * sizeof(std::string) * pieces.size();  // while the vector grows
}

std::size_t Crack(const std::string& text) {
  QsUrlComponents parts{};
  QsInternetCrackUrl(text.c_str(), parts);
  return sizeof parts;
}

void CheckBounds(std::string_view text) {
  constexpr std::size_t kForExpression = std::size_t{1} << 18;
  constexpr std::size_t kStatesOfBoost = std::size_t{5} << 20;  // as many as it ever has
  fuzz::DemandBounds("UrlEncode", text, [](const std::string& in) { return UrlEncode(in.c_str()).size(); });
  fuzz::DemandBounds("UrlDecode", text, [](const std::string& in) { return UrlDecode(in.c_str()).size(); });
  // Its buffer takes the longest result that there may be, beside the text and a copy.
  fuzz::DemandBounds("NormalizeUrl", text,
                     [](const std::string& in) { return NormalizeUrl(in).size() + 4 * in.size(); });
  fuzz::DemandBounds("QsInternetCrackUrl", text, &Crack);
  fuzz::DemandBounds("CompressUrlPath", text, &Compress);
  fuzz::DemandBounds("SplitPartialUrl", text, &Split);
  for (const char* const begin : {"", "http://", "http://h/"}) {
    fuzz::DemandBounds(
        "QsIsValidURL", text,
        [begin](const std::string& in) { return kStatesOfBoost + (QsIsValidURL(begin + in) ? 1 : 0); }, kForExpression);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned int bits = input.Parameter();
  const std::size_t room = input.Parameter();
  const std::string whole(input.Rest());
  const std::string text(whole.c_str());  // up to a zero
  CheckEncoding(text);
  CheckEscaping(text, bits);
  CheckParts(text);
  CheckHost(text);
  CheckPath(text, room);
  CheckPieces(whole);
  CheckNormalized(whole);
  CheckValidator(whole);
  CheckValidator("http://" + whole);
  CheckBounds(input.Rest());
  return 0;
}
