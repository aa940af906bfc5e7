#include <QSbase/errors.h>
#include <QSbase/text/guid.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

bool IsHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// Whether a text is one, and of which bytes, by its characters one after the other.
bool ReadSlowly(std::string text, bool withBraces, unsigned char (&bytes)[16]) {
  constexpr const char* kWhite = " \t\n\v\f\r";
  text.erase(0, text.find_first_not_of(kWhite));
  text.erase(text.find_last_not_of(kWhite) + 1);
  const std::size_t braces = withBraces ? 1 : 0;
  if (text.size() != 36 + 2 * braces || (withBraces && (text.front() != '{' || text.back() != '}'))) {
    return false;
  }
  std::string digits;
  for (std::size_t i = 0; i < 36; ++i) {
    const char c = text[braces + i];
    const bool isDash = i == 8 || i == 13 || i == 18 || i == 23;
    if (!IsHex(c) && !(isDash && c == '-')) {
      return false;
    }
    digits += isDash ? "" : std::string(1, c);
  }
  for (std::size_t i = 0; i < 16; ++i) {
    bytes[i] = static_cast<unsigned char>(std::strtoul(digits.substr(2 * i, 2).c_str(), nullptr, 16));
  }
  return true;
}

// False when it throws, which it does in the stated words.
bool Read(const std::string& text, bool withBraces, QsGUID& id) {
  try {
    withBraces ? id.FromString(text) : id.FromStringNoBraces(text);
    return true;
  } catch (const ExBase& error) {
    const std::string function = withBraces ? "QsGUID::FromString" : "QsGUID::FromStringNoBraces";
    fuzz::DemandEqual(function + ": Given value is no UUID: '" + text + "'", error.GetErrorText(), "the message");
    return false;
  }
}

void CheckText(const std::string& text, bool withBraces) {
  unsigned char bytes[16] = {};
  const bool isOne = ReadSlowly(text, withBraces, bytes);
  QsGUID id;
  fuzz::Demand(Read(text, withBraces, id) == isOne ? "" : "taken for one, or not taken for one");
  fuzz::Demand(QsGUID::IsValidGUID(text, withBraces) == isOne && id.IsValid() == isOne ? "" : "two opinions");
  unsigned char nothing[16] = {};
  fuzz::Demand(std::memcmp(id.GetData(), isOne ? bytes : nothing, 16) == 0 ? "" : "other bytes");
}

void CheckBytes(const std::string& bytes, bool isUpper) {
  std::string text;
  for (std::size_t i = 0; i < 16; ++i) {
    char pair[3];
    std::snprintf(pair, sizeof pair, isUpper ? "%02X" : "%02x",
                  static_cast<unsigned int>(static_cast<unsigned char>(bytes[i])));
    text.append(i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "").append(pair);
  }
  QsGUID id;
  id.FromStringNoBraces(text);
  fuzz::DemandEqual(bytes, {reinterpret_cast<const char*>(id.GetData()), 16}, "the bytes");
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return static_cast<char>(std::toupper(c)); });
  fuzz::DemandEqual(text, id.ToStringNoBraces(), "the text");
  fuzz::DemandEqual('{' + text + '}', id.ToString(), "the text in braces");
  QsGUID again;
  again.FromString(id.ToString());
  fuzz::Demand(again == id && !(again < id) && !(id < again) ? "" : "it does not equal itself");
  fuzz::Demand(id.IsNULLGuid() == (bytes == std::string(16, '\0')) ? "" : "null, or not");
}

void CheckOrder(const std::string& one, const std::string& other) {
  QsGUID a;
  QsGUID b;
  if (Read(one, false, a) && Read(other, false, b)) {
    fuzz::Demand((a < b) + (b < a) + (a == b) == 1 ? "" : "no order");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned int bits = input.Parameter();
  const std::string text(input.Rest());
  CheckText(text, (bits & 1) != 0);
  CheckText('{' + text + '}', true);
  std::string bytes = text.substr(0, 16);
  bytes.resize(16);
  CheckBytes(bytes, (bits & 2) != 0);
  CheckOrder(text.substr(0, 36), text.substr(std::min<std::size_t>(36, text.size())));
  fuzz::DemandBounds("IsValidGUID", text, [](const std::string& in) { return QsGUID::IsValidGUID(in, true) ? 1 : 0; });
  return 0;
}
