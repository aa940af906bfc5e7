#include <QSbase/codec/encodedecode.h>
#include <reference/quotedprintable.h>

#include "agreement.h"
#include "levels.h"

namespace qsbase::differential {

namespace {

Outcome OutcomeOf(const CEncodeDecode& coder, int status) {
  return {status, {}, coder.GetNumberIllegalChars(), coder.GetNumberParsedChars()};
}

std::string With(const char* what, std::uint32_t lineLength, int flags) {
  return std::string("QP ") + what + ", line " + std::to_string(lineLength) + ", flags " + std::to_string(flags);
}

std::string CompareNumber(const char* what, std::size_t expected, std::size_t actual, std::string_view input,
                          const std::string& with) {
  return expected == actual
             ? ""
             : Report(what, std::to_string(expected) + " expected but is " + std::to_string(actual), input, with);
}

}  // namespace

std::string CompareQpEncode(std::string_view data, std::uint32_t lineLength, int flags, std::size_t alignment) {
  const std::string text = reference::QpEncode(data, lineLength, flags);
  const std::size_t size = reference::QpSize(data, lineLength, flags);
  const Outcome expected{0, text, 0, data.size()};
  flags |= alignment % 2 == 0 ? 0 : kArrays;
  const std::string with = With("encode", lineLength, flags);
  Block block(data, alignment);
  CEncodeDecode coder(lineLength, 76);
  return OnLevels([&] {
    std::string difference =
        CompareBuffer(block, data, expected, flags, with, [&](char** output, unsigned int& length) {
          const int status = coder.EncodeQP(block.Data(), block.Size(), output, length, flags);
          return OutcomeOf(coder, status);
        });
    if (difference.empty()) {
      unsigned int measured = 77;
      coder.CalcEncodedMemoryQP(block.Data(), block.Size(), measured, flags);
      difference = CompareNumber("measured", size, measured, data, with);
    }
    if (difference.empty() && alignment % 8 == 0) {
      difference = CompareString(data, expected, with, [&](const std::string& input, std::string& output) {
        return coder.EncodeQP(input, output, flags);
      });
    }
    return difference;
  });
}

std::string CompareQpFitting(std::string_view data, std::uint32_t lineLength, std::uint32_t room, int flags,
                             std::size_t alignment) {
  const std::size_t fitting = reference::QpFitting(data, lineLength, room, flags);
  const std::string with = With("fitting", lineLength, flags) + ", room " + std::to_string(room);
  Block block(data, alignment);
  CEncodeDecode coder(lineLength, 76);
  return OnLevels([&] {
    unsigned int count = 77;
    const int status = coder.CalcMaxCharsQP(block.Data(), block.Size(), room, count, flags);
    return status != 0 ? Report("fitting", "status", data, with) : CompareNumber("fitting", fitting, count, data, with);
  });
}

std::string CompareQpDecode(std::string_view text, std::size_t alignment) {
  const reference::Result result = reference::QpDecode(text);
  const Outcome expected{result.status, result.data, result.illegal, result.parsed};
  const int flags = alignment % 2 == 0 ? 0 : kArrays;
  const std::string with = "QP decode";
  Block block(text, alignment);
  CEncodeDecode coder(75, 76);
  return OnLevels([&] {
    std::string difference =
        CompareBuffer(block, text, expected, flags, with, [&](char** output, unsigned int& length) {
          const int status = coder.DecodeQP(block.Data(), block.Size(), output, length, flags);
          return OutcomeOf(coder, status);
        });
    if (difference.empty()) {
      difference = CompareInline(block, text, expected, with, [&](unsigned int& length) {
        const int status = coder.DecodeQPInline(block.Data(), block.Size(), length, flags);
        return OutcomeOf(coder, status);
      });
    }
    if (difference.empty() && alignment % 8 == 0) {
      difference = CompareString(text, expected, with, [&](const std::string& input, std::string& output) {
        return coder.DecodeQP(input, output, flags);
      });
    }
    return difference;
  });
}

}  // namespace qsbase::differential
