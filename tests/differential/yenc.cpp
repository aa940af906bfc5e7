#include <QSbase/codec/encodedecode.h>
#include <reference/yenc.h>

#include "agreement.h"
#include "levels.h"

namespace qsbase::differential {

namespace {

constexpr int kFind = 0x2000;

CYEncData HeaderOf(const reference::YEncFields& fields) {
  CYEncData header;
  header.lineLength = fields.line;
  header.size = fields.size;
  header.part = fields.part;
  header.total = fields.total;
  header.begin = fields.begin;
  header.end = fields.end;
  header.name = fields.name;
  return header;
}

/// The eight upper-case digits of a text's CRC-32.
std::string CrcOf(std::string_view data) {
  std::string text;
  for (int shift = 28; shift >= 0; shift -= 4) {
    text += "0123456789ABCDEF"[reference::Crc32(data) >> shift & 15u];
  }
  return text;
}

std::string CompareMeasure(Block& block, std::string_view data, std::size_t size, const CYEncData& header, int flags,
                           const std::string& with) {
  unsigned int measured = 77;
  const int status = CEncodeDecode::CalcEncodedMemoryYEnc(block.Data(), block.Size(), measured, header, flags);
  return status == 0 && measured == size ? "" : Report("measured", std::to_string(measured), data, with);
}

std::string ComparePlaces(const reference::YEncBlock& expected, Block& block, std::string_view text,
                          CYEncData* header) {
  const char* places[3] = {"x", "x", "x"};
  unsigned int length = 77;
  const int status =
      CEncodeDecode::FindYEncDataBlock(block.Data(), block.Size(), places[0], places[1], places[2], length, header);
  bool agrees = status == expected.status;
  if (agrees && status == 0) {
    agrees = places[0] == block.Data() + expected.begin && places[1] == block.Data() + expected.end &&
             places[2] == block.Data() + expected.data && length == expected.dataLength;
  } else if (agrees) {
    agrees = places[0] == nullptr && places[1] == nullptr && places[2] == nullptr && length == 0;
  }
  return agrees ? ""
                : Report("block", "status or places", text, "yEnc, expected status " + std::to_string(expected.status));
}

bool HasFields(const CYEncData& header, const reference::YEncFields& fields) {
  return header.lineLength == fields.line && header.size == fields.size && header.endSize == fields.endSize &&
         header.part == fields.part && header.total == fields.total && header.begin == fields.begin &&
         header.end == fields.end && header.name == fields.name && header.crcText == fields.crc;
}

}  // namespace

std::string CompareYEncEncode(std::string_view data, const reference::YEncFields& fields, int flags,
                              std::size_t alignment) {
  const std::string text = reference::YEncEncode(data, fields, flags);
  const Outcome expected{0, text};
  flags |= alignment % 2 == 0 ? 0 : kArrays;
  const std::string with = "yEnc encode, line " + std::to_string(fields.line) + ", flags " + std::to_string(flags);
  const CYEncData header = HeaderOf(fields);
  Block block(data, alignment);
  return OnLevels([&] {
    std::string difference =
        CompareBuffer(block, data, expected, flags, with, [&](char** output, unsigned int& length) {
          return Outcome{CEncodeDecode::EncodeYEnc(block.Data(), block.Size(), output, length, header, flags)};
        });
    if (difference.empty()) {
      difference = CompareMeasure(block, data, text.size(), header, flags, with);
    }
    if (difference.empty() && alignment % 8 == 0) {
      difference = CompareString(data, expected, with, [&](const std::string& input, std::string& output) {
        return CEncodeDecode::EncodeYEnc(input, output, header, flags);
      });
    }
    return difference;
  });
}

std::string CompareYEncDecode(std::string_view text, std::size_t alignment) {
  const reference::Result result = reference::YEncDecode(text);
  const Outcome expected{0, result.data, 0, result.parsed};
  const int flags = alignment % 2 == 0 ? 0 : kArrays;
  const std::string with = "yEnc decode";
  Block block(text, alignment);
  return OnLevels([&] {
    CYEncData header;
    std::string difference =
        CompareBuffer(block, text, expected, flags, with, [&](char** output, unsigned int& length) {
          const int status = CEncodeDecode::DecodeYEnc(block.Data(), block.Size(), output, length, flags, &header);
          return Outcome{status, {}, 0, header.consumedLength};
        });
    if (difference.empty()) {
      difference = CompareInline(block, text, expected, with, [&](unsigned int& length) {
        const int status = CEncodeDecode::DecodeYEncInline(block.Data(), block.Size(), length, flags, &header);
        return Outcome{status, {}, 0, header.consumedLength};
      });
    }
    if (difference.empty() && alignment % 8 == 0) {
      difference = CompareString(text, expected, with, [&](const std::string& input, std::string& output) {
        return CEncodeDecode::DecodeYEnc(input, output, flags, nullptr);
      });
    }
    return difference;
  });
}

std::string CompareYEncBlock(std::string_view text, std::size_t alignment) {
  const reference::YEncBlock place = reference::FindYEncBlock(text);
  const reference::Result result = reference::YEncDecode(text.substr(place.data, place.dataLength));
  const int status = text.empty() ? 0 : place.status;  // decoding nothing succeeds
  const Outcome expected{status, status == 0 ? std::string_view(result.data) : std::string_view(), 0, 0};
  const int flags = kFind | (alignment % 2 == 0 ? 0 : kArrays);
  const std::string with = "yEnc block";
  const std::string crc = CrcOf(result.data);
  Block block(text, alignment);
  return OnLevels([&] {
    CYEncData header;
    std::string difference = ComparePlaces(place, block, text, alignment % 4 == 0 ? nullptr : &header);
    if (difference.empty()) {
      difference = CompareBuffer(block, text, expected, flags, with, [&](char** output, unsigned int& length) {
        return Outcome{CEncodeDecode::DecodeYEnc(block.Data(), block.Size(), output, length, flags, &header)};
      });
    }
    if (difference.empty() && place.status == 0 &&
        (header.computedCrcText != (header.HasCRC() ? crc : "") || header.consumedLength != result.parsed)) {
      difference = Report("block", "CRC or consumed length", text, with);
    }
    if (difference.empty()) {
      difference = CompareInline(block, text, expected, with, [&](unsigned int& length) {
        return Outcome{CEncodeDecode::DecodeYEncInline(block.Data(), block.Size(), length, flags, nullptr)};
      });
    }
    return difference;
  });
}

std::string CompareYEncFields(std::string_view text) {
  const reference::YEncBlock place = reference::FindYEncBlock(text);
  const reference::YEncFields fields = reference::FieldsOfYEncBlock(text);
  Block block(text, 1);
  return OnLevels([&] {
    CYEncData header;
    std::string difference = ComparePlaces(place, block, text, &header);
    if (difference.empty() &&
        (!HasFields(header, fields) || header.blockOffset != place.begin || header.blockEndOffset != place.end)) {
      difference = Report("fields", "a field", text, "yEnc");
    }
    return difference;
  });
}

}  // namespace qsbase::differential
