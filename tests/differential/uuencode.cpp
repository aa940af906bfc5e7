#include <QSbase/codec/encodedecode.h>
#include <reference/uuencode.h>

#include "agreement.h"
#include "levels.h"

namespace qsbase::differential {

namespace {

Outcome OutcomeOf(const CEncodeDecode& coder, int status) {
  return {status, {}, coder.GetNumberIllegalChars(), coder.GetNumberParsedChars()};
}

std::string CompareUuSearches(std::string_view text, int kind, std::size_t dataStart, Block& block,
                              const std::string& with) {
  CEncodeDecode coder(75, 76);
  const int actualKind = coder.IsUueOrXxe(block.Data(), block.Size());
  if (actualKind != kind) {
    return Report("guess", std::to_string(kind) + " expected but is " + std::to_string(actualKind), text, with);
  }
  const char* start = nullptr;
  const int status = coder.SkipUueHeader(block.Data(), block.Size(), start);
  if (status != 0 || start != block.Data() + dataStart) {
    return Report("header", "start of the data, " + std::to_string(dataStart) + " expected", text, with);
  }
  return "";
}

}  // namespace

std::string CompareUuEncode(std::string_view data, int flags, std::size_t alignment) {
  const std::string text = reference::UuEncode(data, flags);
  const Outcome expected{0, text, 0, data.size()};
  flags |= alignment % 2 == 0 ? 0 : kArrays;
  const std::string with = "UU encode, flags " + std::to_string(flags);
  Block block(data, alignment);
  CEncodeDecode coder(75, 76);
  return OnLevels([&] {
    std::string difference =
        CompareBuffer(block, data, expected, flags, with, [&](char** output, unsigned int& length) {
          const int status = coder.EncodeUUE(block.Data(), block.Size(), output, length, flags);
          return OutcomeOf(coder, status);
        });
    if (difference.empty() && alignment % 8 == 0) {
      difference = CompareString(data, expected, with, [&](const std::string& input, std::string& output) {
        return coder.EncodeUUE(input, output, flags);
      });
    }
    return difference;
  });
}

std::string CompareUuDecode(std::string_view text, int flags, std::size_t alignment) {
  const reference::Result result = reference::UuDecode(text, flags);
  const int kind = reference::UuOrXx(text);
  const std::size_t dataStart = reference::UuDataStart(text);
  Outcome expected{result.status, result.data, result.illegal, result.parsed};
  flags |= alignment % 2 == 0 ? 0 : kArrays;
  const std::string with = "UU decode, flags " + std::to_string(flags);
  Block block(text, alignment);
  CEncodeDecode coder(75, 76);
  bool isFirst = true;
  // No rule says how far a failed decode looked; but all levels say the same.
  const auto outcome = [&](int status) {
    if (status != 0 && isFirst) {
      expected.parsed = coder.GetNumberParsedChars();
    }
    isFirst = false;
    return OutcomeOf(coder, status);
  };
  return OnLevels([&] {
    std::string difference =
        CompareBuffer(block, text, expected, flags, with, [&](char** output, unsigned int& length) {
          return outcome(coder.DecodeUUE(block.Data(), block.Size(), output, length, flags));
        });
    if (difference.empty()) {
      difference = CompareInline(block, text, expected, with, [&](unsigned int& length) {
        return outcome(coder.DecodeUUEInline(block.Data(), block.Size(), length, flags));
      });
    }
    if (difference.empty()) {
      difference = CompareUuSearches(text, kind, dataStart, block, with);
    }
    if (difference.empty() && alignment % 8 == 0) {
      difference = CompareString(text, expected, with, [&](const std::string& input, std::string& output) {
        return coder.DecodeUUE(input, output, flags);
      });
    }
    return difference;
  });
}

}  // namespace qsbase::differential
