#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

// ---- Splitting ----

std::vector<std::string> SplitSlowly(const std::string& text, const std::string& separator, bool keepEmpty) {
  if (text.empty() || separator.empty()) {
    return {};
  }
  if (separator.size() > text.size()) {
    return {text};
  }
  const bool endsWithSeparator = text.compare(text.size() - separator.size(), separator.size(), separator) == 0;
  std::vector<std::string> parts;
  std::string rest = text + (keepEmpty || !endsWithSeparator ? separator : "");
  for (std::size_t end; (end = rest.find(separator)) != std::string::npos; rest.erase(0, end + separator.size())) {
    parts.push_back(rest.substr(0, end));
  }
  if (!keepEmpty) {
    parts.erase(std::remove(parts.begin(), parts.end(), ""), parts.end());
  }
  return parts;
}

void CheckSplit(const std::string& text, const std::string& separator) {
  for (const bool keepEmpty : {false, true}) {
    std::vector<std::string> parts;
    const unsigned int count = SplitString(text, separator, parts, keepEmpty);
    fuzz::Demand(parts == SplitSlowly(text, separator, keepEmpty) && count == parts.size() ? "" : "SplitString");
    if (keepEmpty && separator.size() == 1 && !parts.empty()) {
      std::string joined = parts.front();
      std::for_each(parts.begin() + 1, parts.end(), [&](const std::string& part) { joined += separator + part; });
      fuzz::DemandEqual(text, joined, "a split text");
    }
  }
  if (!separator.empty()) {
    std::string before;
    std::string after;
    SeparateString(text, separator[0], before, after);
    const bool isThere = text.find(separator[0]) != std::string::npos;
    fuzz::DemandEqual(text, before + (isThere ? separator.substr(0, 1) : "") + after, "a separated text");
    fuzz::Demand(before.find(separator[0]) == std::string::npos ? "" : "separated too late");
  }
}

// ---- Searching and replacing ----

std::string ReplacedSlowly(const std::string& text, const std::string& what, const std::string& with,
                           bool caseSensitive, int& count) {
  const auto folded = [caseSensitive](const std::string& s) { return caseSensitive ? s : QsString::ToLower(s); };
  std::string result;
  count = 0;
  for (std::size_t at = 0; at < text.size();) {
    const bool isMatch = !what.empty() && folded(text.substr(at, what.size())) == folded(what);
    result += isMatch ? with : text.substr(at, 1);
    at += isMatch ? what.size() : 1;
    count += isMatch ? 1 : 0;
  }
  return result;
}

void CheckReplaced(const std::string& text, const std::string& what, const std::string& with) {
  for (const bool caseSensitive : {false, true}) {
    int count = 0;
    const std::string expected = ReplacedSlowly(text, what, with, caseSensitive, count);
    std::string inPlace(text);
    fuzz::Demand(QsReplaceStringInPlace(inPlace, what, with, caseSensitive) == count ? "" : "a count of replacements");
    fuzz::DemandEqual(expected, inPlace, "QsReplaceStringInPlace");
    fuzz::DemandEqual(expected, QsReplaceString(text, what, with, caseSensitive), "QsReplaceString");
    fuzz::Demand(QsStringFind(text, what, caseSensitive) == (count != 0 || what.empty()) ? "" : "QsStringFind");
  }
}

char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

void CheckFound(const std::string& text, const std::string& what) {
  const auto isSame = [](char a, char b) { return AsciiLower(a) == AsciiLower(b); };
  const auto found = std::search(text.begin(), text.end(), what.begin(), what.end(), isSame);
  const char* const place = stristr(text.c_str(), what.c_str());
  const bool isThere = found != text.end() || what.empty();
  fuzz::Demand(isThere == (place != nullptr) && (!isThere || place - text.c_str() == found - text.begin()) ? ""
                                                                                                           : "stristr");
}

// ---- Numbers ----

std::int64_t Int64Slowly(const std::string& text) {
  const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (!isHex) {
    return std::strtoll(text.c_str(), nullptr, 10);
  }
  const std::string digits = text.substr(2);
  const bool areDigits =
      std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
  const std::string last = digits.substr(digits.size() - std::min<std::size_t>(16, digits.size()));
  return areDigits ? static_cast<std::int64_t>(std::strtoull(last.c_str(), nullptr, 16)) : 0;
}

void CheckIntegers(const std::string& text) {
  const std::int64_t value = AsciiToInt64(text.c_str());
  fuzz::Demand(value == Int64Slowly(text) ? "" : "AsciiToInt64");
  const std::int64_t least = std::numeric_limits<std::int32_t>::min();
  const int expected = value > 0xFFFFFFFFLL ? std::numeric_limits<std::int32_t>::max()
                                            : static_cast<int>(static_cast<std::uint32_t>(std::max(value, least)));
  fuzz::Demand(AsciiToInt(text.c_str()) == expected ? "" : "AsciiToInt");
}

std::string TakeDigits(const char*& at, std::size_t most) {
  std::string digits;
  for (; std::isdigit(static_cast<unsigned char>(*at)) != 0; ++at) {
    digits += digits.size() < most ? std::string(1, *at) : "";
  }
  return digits;
}

// The number as the C library reads what counts of the text.
double DoubleSlowly(const char* at) {
  std::string number;
  at += std::strspn(at, " ");
  number += *at == '-' ? "-" : "";
  at += *at == '-' || *at == '+' ? 1 : 0;
  number += '0' + TakeDigits(at, std::string::npos);
  if (*at == '.' || *at == ',') {
    number += '.' + TakeDigits(++at, 10) + '0';
  }
  if (*at != '\0' && std::strchr("eEdD", *at) != nullptr) {
    ++at;
    number += *at == '-' ? "e-" : "e";
    at += *at == '-' || *at == '+' ? 1 : 0;
    number += '0' + TakeDigits(at, std::string::npos);
  }
  return std::strtod(number.c_str(), nullptr);
}

// But for what the last digits of a number, and the ends of the range, become on the way.
void CheckDouble(const std::string& text) {
  const double value = AsciiToDouble(text.c_str());
  const double expected = DoubleSlowly(text.c_str());
  fuzz::Demand(!std::isnan(value) ? "" : "AsciiToDouble gives no number");
  const bool isOrdinary = std::abs(expected) > 1e-200 && std::abs(expected) < 1e200;
  fuzz::Demand(!isOrdinary || std::abs(value / expected - 1) < 1e-12 || std::strpbrk(text.c_str(), "eEdD") != nullptr
                   ? ""
                   : "AsciiToDouble");
  fuzz::Demand(std::signbit(value) == std::signbit(expected) || value == 0 ? "" : "AsciiToDouble turns the sign");
}

// ---- Names, hexadecimal digits, cutting ----

void CheckSymbol(const std::string& text) {
  const std::string symbol = MakeSymbolicName(text);
  const bool isSymbol = std::all_of(symbol.begin(), symbol.end(),
                                    [](unsigned char c) { return c < 128 && (std::isalnum(c) != 0 || c == '_'); });
  fuzz::Demand(isSymbol && std::isdigit(static_cast<unsigned char>(symbol[0])) == 0 ? "" : "no symbol: " + symbol);
  fuzz::DemandEqual(text.empty() ? "Unnamed_Object" : text, SymbolicNameToString(symbol), "MakeSymbolicName");
  fuzz::Demand(SymbolicNameToString(text).size() <= text.size() ? "" : "SymbolicNameToString");
}

void CheckHex(const std::string& text) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::string spaced = Bytes2Hex(bytes, static_cast<int>(text.size()), true);
  fuzz::Demand(spaced.size() == (text.empty() ? 0 : 3 * text.size() - 1) ? "" : "spaced digits");
  std::string digits(spaced);
  std::erase(digits, ' ');
  fuzz::DemandEqual(digits, Bytes2Hex(bytes, static_cast<int>(text.size()), false), "digits");
  std::vector<unsigned char> out(text.size() + 1);
  HexStringToByteString(reinterpret_cast<const unsigned char*>(digits.c_str()),
                        static_cast<unsigned int>(digits.size()), out.data());
  fuzz::DemandEqual(text, {reinterpret_cast<const char*>(out.data()), text.size()}, "bytes");
}

void CheckCut(const std::string& text, unsigned int width) {
  fuzz::Demand(AlignText(text, width, true, '.').size() == width ? "" : "AlignText");
  fuzz::DemandEqual((text + std::string(width, '.')).substr(0, width), AlignText(text, width, true, '.'), "AlignText");
  std::vector<char> buffer(width + 1, 'x');
  const int written = Qs_snprintf(buffer.data(), width, "%s", text.c_str());
  const std::size_t length = std::strlen(text.c_str());
  fuzz::Demand(written == (length < width ? static_cast<int>(length) : -1) ? "" : "Qs_snprintf");
  fuzz::Demand(std::memcmp(buffer.data(), text.c_str(), std::min<std::size_t>(length, width)) == 0 &&
                       buffer[width] == 'x'
                   ? ""
                   : "Qs_snprintf writes something else");
  fuzz::DemandEqual(std::string(text.c_str()).substr(0, 32767), strprintf("%s", text.c_str()), "strprintf");
}

void CheckTrimmed(const std::string& text, char c) {
  std::string trimmed(text);
  QsString::TrimChar_Inplace(trimmed, c);
  const std::size_t at = text.find_first_not_of(c);
  const std::size_t end = text.find_last_not_of(c) + 1;
  fuzz::DemandEqual(at == std::string::npos ? "" : text.substr(at, end - at), trimmed, "TrimChar_Inplace");
  std::string blanks(text);
  ReplaceCRLFHT(blanks);
  fuzz::Demand(blanks.find_first_of("\r\n\t") == std::string::npos && blanks.size() == text.size() ? ""
                                                                                                   : "ReplaceCRLFHT");
}

// ---- Bounds ----

std::size_t Split(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  SplitString(text, separator, parts, true);
  std::size_t size = 3 * sizeof(std::string) * parts.size();  // while the vector grows
  for (const std::string& part : parts) {
    size += part.size() < 16 ? 0 : part.capacity() + 1 + 64;
  }
  return size;
}

void CheckBounds(const std::string& text, const std::string& what, const std::string& with) {
  fuzz::DemandBounds("SplitString", text, [&](const std::string& in) { return Split(in, what); });
  for (const bool caseSensitive : {false, true}) {
    // A result that is not longer than the text is made within a copy of it.
    fuzz::DemandBounds("QsReplaceString", text, [&](const std::string& in) {
      return QsReplaceString(in, what, with, caseSensitive).capacity();
    });
    fuzz::DemandBounds("QsStringFind", text,
                       [&](const std::string& in) { return QsStringFind(in, what + "x", caseSensitive) ? 1 : 0; });
  }
  fuzz::DemandBounds("MakeSymbolicName", text, [](const std::string& in) { return MakeSymbolicName(in).size(); });
  fuzz::DemandBounds("SymbolicNameToString", text,
                     [](const std::string& in) { return SymbolicNameToString(in).size(); });
  fuzz::DemandBounds("AsciiToDouble", text,
                     [](const std::string& in) { return AsciiToDouble(in.c_str()), sizeof(double); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t lengths = input.Parameter();
  const unsigned int width = input.Parameter();
  const std::string whole(input.Rest());
  const std::string what = whole.substr(0, lengths % 8);
  const std::string with = whole.substr(what.size(), lengths / 8 % 8);
  const std::string text = whole.substr(std::min(whole.size(), what.size() + with.size()));
  CheckSplit(text, what);
  CheckReplaced(text, what, with);
  CheckFound(text.c_str(), what.c_str());
  CheckIntegers(whole.c_str());
  CheckDouble(whole.c_str());
  CheckSymbol(text);
  CheckHex(text);
  CheckCut(text, width);
  CheckTrimmed(text, static_cast<char>(width));
  CheckBounds(text, what, with);
  return 0;
}
