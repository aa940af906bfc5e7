#include <QSbase/codec/encodedecode.h>
#include <reference/base64.h>

#include "agreement.h"
#include "levels.h"

namespace qsbase::differential {

namespace {

Outcome OutcomeOf(const CEncodeDecode& coder, int status) {
  return {status, {}, coder.GetNumberIllegalChars(), coder.GetNumberParsedChars()};
}

Outcome Expected(const reference::Result& result) {
  return {result.status, result.data, result.illegal, result.parsed};
}

}  // namespace

std::string CompareBase64Encode(std::string_view data, std::uint32_t lineLength, std::size_t alignment) {
  const std::string text = reference::Base64Encode(data, lineLength);
  const Outcome expected{0, text, 0, data.size()};
  const int flags = alignment % 2 == 0 ? 0 : kArrays;
  const std::string with = "Base64 encode, line " + std::to_string(lineLength);
  Block block(data, alignment);
  CEncodeDecode coder(75, lineLength);
  return OnLevels([&] {
    std::string difference =
        CompareBuffer(block, data, expected, flags, with, [&](char** output, unsigned int& length) {
          const int status = coder.EncodeBase64(block.Data(), block.Size(), output, length, flags);
          return OutcomeOf(coder, status);
        });
    if (difference.empty() && alignment % 8 == 0) {
      difference = CompareString(data, expected, with, [&](const std::string& input, std::string& output) {
        return coder.EncodeBase64(input, output, flags);
      });
    }
    return difference;
  });
}

std::string CompareBase64Decode(std::string_view text, std::size_t alignment) {
  const reference::Result result = reference::Base64Decode(text);
  const Outcome expected = Expected(result);
  const int flags = alignment % 2 == 0 ? 0 : kArrays;
  const std::string with = "Base64 decode";
  Block block(text, alignment);
  CEncodeDecode coder(75, 76);
  return OnLevels([&] {
    std::string difference =
        CompareBuffer(block, text, expected, flags, with, [&](char** output, unsigned int& length) {
          const int status = coder.DecodeBase64(block.Data(), block.Size(), output, length, flags);
          return OutcomeOf(coder, status);
        });
    if (difference.empty()) {
      difference = CompareInline(block, text, expected, with, [&](unsigned int& length) {
        const int status = coder.DecodeBase64Inline(block.Data(), block.Size(), length, flags);
        return OutcomeOf(coder, status);
      });
    }
    if (difference.empty() && alignment % 8 == 0) {
      difference = CompareString(text, expected, with, [&](const std::string& input, std::string& output) {
        return coder.DecodeBase64(input, output, flags);
      });
    }
    return difference;
  });
}

}  // namespace qsbase::differential
