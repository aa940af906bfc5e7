#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/errors.h>
#include <QSbase/text/qsstring.h>
#include <reference/hextext.h>

#include <vector>

#include "agreement.h"
#include "levels.h"

namespace qsbase::differential {

namespace {

const unsigned char* Bytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

/// Calls convert() and gives its bytes, or the text of its exception.
template <class Convert>
reference::HexBytes Converted(Convert convert) {
  try {
    return {convert(), ""};
  } catch (const ExBase& exception) {
    return {"", exception.GetErrorText()};
  }
}

std::string CompareConverted(const char* form, const reference::HexBytes& expected, const reference::HexBytes& actual,
                             std::string_view input) {
  if (expected.error != actual.error) {
    return Report(form, "'" + expected.error + "' expected but is '" + actual.error + "'", input, "hex decode");
  }
  const std::string difference = Difference({0, expected.data}, {0, actual.data});
  return difference.empty() ? "" : Report(form, difference, input, "hex decode");
}

/// The digits of the bytes with a blank between them.
std::string Spaced(const std::string& digits) {
  std::string text;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    text += (i == 0 ? "" : " ") + digits.substr(i, 2);
  }
  return text;
}

/// The bytes that HexStringToByteString writes: none behind the first zero byte.
std::string BytesBeforeZero(std::string_view text) {
  const std::string_view digits = text.substr(0, text.find('\0'));
  const std::vector<char> zeroEnded = [&] {
    std::vector<char> copy(digits.begin(), digits.end());
    copy.push_back('\0');
    return copy;
  }();
  std::vector<unsigned char> bytes(digits.size() / 2);
  HexStringToByteString(Bytes(zeroEnded.data()), static_cast<unsigned int>(digits.size()), bytes.data());
  return std::string(bytes.begin(), bytes.end());
}

bool AreEscapesWhole(std::string_view text, char escape) {
  for (std::size_t i = text.find(escape); i != std::string_view::npos; i = text.find(escape, i + 3)) {
    if (i + 2 < text.size() && reference::LeadingHexDigits(text.substr(i + 1, 2)) != 2) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::string CompareHexEncode(std::string_view data, std::size_t alignment) {
  const std::string digits = reference::HexEncode(data);
  const std::string spaced = Spaced(digits);
  const std::string text(data);
  const std::string zeroEnded = digits + '\0';
  Block block(data, alignment);
  Block output(std::string(zeroEnded.size(), 'x'), alignment / 8);
  return OnLevels([&] {
    ByteStringToHexString(Bytes(block.Data()), block.Size(), reinterpret_cast<unsigned char*>(output.Data()));
    std::string difference = Difference({0, zeroEnded}, {0, {output.Data(), output.Size()}});
    if (difference.empty() && !output.IsIntactAround()) {
      difference = "wrote outside its buffer";
    }
    if (difference.empty()) {
      difference = Difference({0, digits}, {0, String2Hex(text)});
    }
    const int size = static_cast<int>(block.Size());
    if (difference.empty() && (Bytes2Hex(Bytes(block.Data()), size, false) != digits ||
                               Bytes2Hex(Bytes(block.Data()), size, true) != spaced)) {
      difference = "Bytes2Hex";
    }
    return difference.empty() ? "" : Report("text", difference, data, "hex encode");
  });
}

std::string CompareHexDecode(std::string_view text, std::size_t alignment) {
  const reference::HexBytes expected = reference::HexDecode(text);
  const std::string_view beforeZero = text.substr(0, text.find('\0'));
  const reference::HexBytes expectedBeforeZero = reference::HexDecode(beforeZero);
  const std::size_t leading = reference::LeadingHexDigits(text);
  const std::string input(text);
  Block block(input + '\0', alignment);
  return OnLevels([&] {
    std::string difference = CompareConverted("string", expected, Converted([&] { return Hex2String(input); }), text);
    if (difference.empty()) {
      difference =
          CompareConverted("bytes", expectedBeforeZero, Converted([&] { return BytesBeforeZero(text); }), text);
    }
    for (std::size_t length = leading == 0 ? 0 : leading - 1; length <= leading + 1 && difference.empty(); ++length) {
      if (QsIsValidHex(block.Data(), static_cast<unsigned int>(length)) != (length == leading)) {
        difference = Report("leading digits", std::to_string(leading), text, "hex");
      }
    }
    return difference;
  });
}

std::string CompareUnescapeHex(std::string_view text, char escape) {
  const bool areWhole = AreEscapesWhole(text, escape);
  std::string expected = areWhole ? reference::UnescapeHex(text, escape) : "";
  bool isFirst = !areWhole;
  return OnLevels([&] {
    std::string actual(text);
    const int status = CEncodeDecode::UnescapeHexString(actual, static_cast<unsigned char>(escape));
    if (isFirst) {
      expected = actual;
      isFirst = false;
    }
    const std::string difference = Difference({0, expected}, {status, actual});
    return difference.empty() ? "" : Report("string", difference, text, "hex unescape");
  });
}

}  // namespace qsbase::differential
