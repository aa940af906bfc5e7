#include <QSbase/codec/binhex.h>
#include <QSbase/codec/encodedecode.h>
#include <reference/binhex.h>

#include "agreement.h"
#include "levels.h"

namespace qsbase::differential {

namespace {

constexpr int kHeaderOnly = 0x20000;

/// The fields in words.
std::string FieldsOf(const std::string& name, std::uint32_t type, std::uint32_t creator, std::uint32_t flags,
                     std::uint32_t dataSize) {
  return std::to_string(type) + " " + std::to_string(creator) + " " + std::to_string(flags) + " " +
         std::to_string(dataSize) + " " + name;
}

std::string FieldsOf(const reference::BinHexFile& file) {
  return FieldsOf(file.name, file.type, file.creator, file.flags, file.dataSize);
}

std::string FieldsOf(const CBinHexDecoder& decoder) {
  return FieldsOf(decoder.GetFilename(), decoder.GetType(), decoder.GetCreator(), decoder.GetFlags(),
                  decoder.GetDataSize());
}

}  // namespace

std::string CompareBinHexDecode(std::string_view text, bool headerOnly, std::size_t alignment) {
  const reference::BinHexFile file = reference::BinHexDecode(text, headerOnly);
  const Outcome expected{file.status, file.data};
  const int flags = (headerOnly ? kHeaderOnly : 0) | (alignment % 2 == 0 ? 0 : kArrays);
  const std::string with = headerOnly ? "BinHex header" : "BinHex decode";
  Block block(text, alignment);
  // No rule says what stands in the fields of a header that is cut; but all levels say the same.
  std::string fields = file.isHeaderWhole ? FieldsOf(file) : "";
  return OnLevels([&] {
    CBinHexDecoder decoder;
    std::string difference =
        CompareBuffer(block, text, expected, flags, with, [&](char** output, unsigned int& length) {
          return Outcome{CEncodeDecode::DecodeBinHex(block.Data(), block.Size(), output, length, flags, &decoder)};
        });
    fields = fields.empty() ? FieldsOf(decoder) : fields;
    if (difference.empty() && FieldsOf(decoder) != fields) {
      difference = Report("buffer", "a field of the header", text, with);
    }
    return difference;
  });
}

}  // namespace qsbase::differential
