// Taking a URL apart.
#include <QSbase/net/url.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

#include <QSbase/net/urlescape.h>
#include <QSbase/text/chartables.h>

using namespace qsbase::detail;

namespace {

constexpr std::size_t kNone = std::string_view::npos;

// ---- Numbers as strtoul and atoi of 32 bits read them, the same on every target ----

bool IsDigit(char c) { return HasClass(c, kNumeric); }

// Skips white space and a sign, and tells whether that was "-".
bool SkipSign(std::string_view& text) {
  text = TrimmedLeft(text, kWhiteSpace);
  const bool hasSign = !text.empty() && (text.front() == '-' || text.front() == '+');
  const bool isNegative = hasSign && text.front() == '-';
  text.remove_prefix(hasSign ? 1 : 0);
  return isNegative;
}

struct Digits {
  std::uint32_t value = 0;  ///< The highest one when there were too many.
  bool fits = true;
  std::size_t count = 0;
};

Digits ReadDigits(std::string_view text, unsigned int base) {
  Digits digits;
  std::uint64_t value = 0;
  for (; digits.count < text.size(); ++digits.count) {
    const unsigned int digit = kHexValues[static_cast<unsigned char>(text[digits.count])];
    if (digit >= base) {
      break;
    }
    value = std::min<std::uint64_t>(value * base + digit, std::uint64_t{1} << 32);
  }
  digits.fits = value <= std::numeric_limits<std::uint32_t>::max();
  digits.value = digits.fits ? static_cast<std::uint32_t>(value) : std::numeric_limits<std::uint32_t>::max();
  return digits;
}

bool HasHexPrefix(std::string_view text) {
  return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && HasClass(text[2], kHexDigit);
}

// strtoul in base 0. Takes the number off the text; nothing when there is none.
std::uint32_t TakeUnsigned(std::string_view& text) {
  std::string_view rest(text);
  const bool isNegative = SkipSign(rest);
  unsigned int base = !rest.empty() && rest.front() == '0' ? 8 : 10;
  if (HasHexPrefix(rest)) {
    rest.remove_prefix(2);
    base = 16;
  }
  const Digits digits = ReadDigits(rest, base);
  if (digits.count != 0) {
    text = rest.substr(digits.count);
  }
  return isNegative && digits.fits ? 0 - digits.value : digits.value;
}

// atoi.
std::int32_t ReadSigned(std::string_view text) {
  constexpr std::int64_t least = std::numeric_limits<std::int32_t>::min();
  constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
  const bool isNegative = SkipSign(text);
  const std::int64_t value = ReadDigits(text, 10).value;
  return static_cast<std::int32_t>(std::clamp(isNegative ? -value : value, least, most));
}

// ---- Hosts ----

constexpr std::size_t kMaxNumbers = 4;
constexpr unsigned int kAddressSize = 16;  // "255.255.255.255" and a zero

using Numbers = std::array<std::uint32_t, kMaxNumbers>;

// One to four numbers with "." between them; how many, 0 when there is anything else.
std::size_t ReadDotted(std::string_view host, Numbers& numbers) {
  for (std::size_t count = 0; count < kMaxNumbers; ++count) {
    numbers[count] = TakeUnsigned(host);
    if (host.empty()) {
      return count + 1;
    }
    if (host.front() != '.') {
      return 0;
    }
    host.remove_prefix(1);
  }
  return 0;
}

// What a host in numbers is to be written as, 0 for a name.
std::size_t ReadNumbers(std::string_view host, Numbers& numbers) {
  const std::size_t dot = host.rfind('.');
  const std::string_view last = host.substr(dot == kNone ? 0 : dot + 1);
  if (last.empty() || !IsDigit(last.front())) {
    return 0;
  }
  if (dot != kNone) {
    return ReadDotted(host, numbers);
  }
  const std::uint32_t value = TakeUnsigned(host);
  for (std::size_t i = 0; i < kMaxNumbers; ++i) {
    numbers[i] = value >> (8 * (kMaxNumbers - 1 - i)) & 0xFFU;
  }
  return kMaxNumbers;
}

// ---- The parts ----

struct Scheme {
  std::string_view name;
  std::int32_t code;
};

constexpr Scheme kSchemes[] = {{"ftp", 21},  {"gopher", -1}, {"http", 80},  {"https", 443},
                               {"file", -2}, {"news", -3},   {"mailto", -4}};

// kept: a shortened name is the first that begins so
std::int32_t SchemeDefaultPort(std::string_view name) {
  const auto isShort = [name](const Scheme& scheme) {
    const auto isSame = [](char a, char b) { return static_cast<char>(kLowerMap[static_cast<unsigned char>(a)]) == b; };
    return name.size() <= scheme.name.size() && std::equal(name.begin(), name.end(), scheme.name.begin(), isSame);
  };
  const auto* const found = std::find_if(std::begin(kSchemes), std::end(kSchemes), isShort);
  return found == std::end(kSchemes) ? 0 : found->code;
}

template <std::size_t size>
void SetText(char (&field)[size], std::string_view text) {
  field[text.copy(field, size - 1)] = '\0';
}

bool BeginsExtra(char c) { return c == ';' || c == '?'; }

// What separates, relative to the beginning of a URL's text.
struct Layout {
  std::size_t schemeEnd;  ///< Or where the scheme would have ended.
  std::size_t extra;      ///< The ";" or "?", the end of the text when there is none.
  bool hasScheme;
};

Layout FindLayout(std::string_view url) {
  const auto* const end = url.data() + url.size();
  const auto* const schemeEnd = std::find_if_not(url.data(), end, &IsLetterOrDigit);
  const auto length = static_cast<std::size_t>(schemeEnd - url.data());
  const bool hasScheme = schemeEnd != end && *schemeEnd == ':' && length >= 2;
  return {length, static_cast<std::size_t>(std::find_if(schemeEnd, end, &BeginsExtra) - url.data()), hasScheme};
}

// The user's part of a host section; gives what is behind it.
std::string_view SetUser(std::string_view section, QsUrlComponents& parts) {
  const std::size_t at = section.rfind('@');
  if (at == kNone) {
    return section;
  }
  const std::string_view user = section.substr(0, at);
  const std::size_t colon = user.rfind(':');
  SetText(parts.userName, user.substr(0, colon));
  if (colon != kNone) {
    SetText(parts.password, user.substr(colon + 1));
  }
  return section.substr(at + 1);
}

void SetHost(std::string_view host, QsUrlComponents& parts) {
  const std::size_t colon = host.rfind(':');
  SetText(parts.hostName, host.substr(0, colon));
  parts.port = colon == kNone ? std::max(parts.scheme, 0) : ReadSigned(host.substr(colon + 1));
}

// Scheme, user and host of a URL that has a scheme; gives where they end.
std::size_t SetSite(std::string_view url, const Layout& layout, QsUrlComponents& parts) {
  const std::string_view scheme = url.substr(0, layout.schemeEnd);
  parts.scheme = SchemeDefaultPort(scheme);
  SetText(parts.schemeName, scheme);
  std::size_t begin = scheme.size() + 1;
  for (int slashes = 0; slashes < 3 && begin < url.size() && url[begin] == '/'; ++slashes) {
    ++begin;
  }
  const std::size_t end = std::min(url.find('/', begin), layout.extra);
  SetHost(SetUser(url.substr(begin, end - begin), parts), parts);
  return end;
}

void SetPath(std::string_view url, std::size_t begin, const Layout& layout, QsUrlComponents& parts) {
  const std::string_view extra = url.substr(std::min(layout.extra + 1, url.size()));
  if (layout.extra != url.size()) {
    SetText(parts.extraInfo, extra);
  }
  // kept: nothing behind the ";" or "?" leaves it in the path
  const std::size_t end = extra.empty() ? url.find('\n', begin) : layout.extra;
  SetText(parts.urlPath, url.substr(begin, end == kNone ? kNone : end - begin));
}

}  // namespace

bool DecodeNumberFormatHostname(char* host, unsigned int size) {
  if (host == nullptr) {
    return false;
  }
  Numbers numbers;
  const std::size_t count = ReadNumbers(host, numbers);
  if (count == 0) {
    return true;
  }
  std::string text = std::to_string(numbers[0]);
  for (std::size_t i = 1; i < count; ++i) {
    text.append(1, '.').append(std::to_string(numbers[i]));
  }
  if (size < kAddressSize || text.size() >= size) {
    return false;
  }
  std::memcpy(host, text.c_str(), text.size() + 1);
  return true;
}

bool QsInternetCrackUrl(const char* url, QsUrlComponents& parts) {
  if (url == nullptr) {
    return false;
  }
  const std::string_view text(url);
  const Layout layout = FindLayout(text);
  if (layout.schemeEnd == text.size()) {
    return true;
  }
  const std::size_t pathBegin = layout.hasScheme ? SetSite(text, layout, parts) : 0;
  SetText(parts.siteUrl, text.substr(0, pathBegin));
  SetPath(text, pathBegin, layout, parts);
  return !layout.hasScheme || DecodeNumberFormatHostname(parts.hostName, sizeof parts.hostName);
}
