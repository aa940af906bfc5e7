#include "yencblock.h"

#include <QSbase/codec/encodedecode.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "coderflags.h"
#include "crctext.h"
#include "decodestatus.h"
#include "text.h"

namespace qs {
namespace {

// The value of "key" in a yEnc line, the key standing behind a blank.
std::string YEncValue(std::string_view line, std::string_view key) {
  const std::string wanted = " " + std::string(key) + "=";
  const std::size_t found = line.find(wanted);
  if (found == std::string_view::npos) {
    return {};
  }
  const std::string_view value = line.substr(found + wanted.size());
  return std::string(value.substr(0, value.find_first_of(" \t\r\n")));
}

// The last line that begins with "=yend ". Searched from the end, where it stands unless the block is damaged.
std::string_view Trailer(std::string_view block) {
  std::size_t found = block.rfind("=yend ");
  while (found != std::string_view::npos && found > 0 && block[found - 1] != '\n') {
    found = block.rfind("=yend ", found - 1);
  }
  return found == std::string_view::npos ? std::string_view() : block.substr(found, block.find('\n', found) - found);
}

YEncPart PartOf(const CYEncData& header, const std::string& fileCrc) {
  YEncPart part;
  part.number = header.part;
  part.total = header.total;
  part.begin = header.begin;
  part.end = header.end;
  part.size = header.size;
  part.fileCrc = fileCrc.empty() ? fileCrc : NormalCrc(fileCrc);
  return part;
}

void CheckYEncSizes(Attachment& result, const CYEncData& header) {
  if (result.data.size() != header.endSize) {
    Report(result, "size " + std::to_string(result.data.size()) + " instead of " + std::to_string(header.endSize));
  }
  if (!result.part) {
    if (header.size != header.endSize) {
      Report(result, "the sizes of =ybegin and =yend differ");
    }
    return;
  }
  if (header.begin < 1 || header.end < header.begin || header.end > header.size) {
    Report(result, "begin and end of the part are impossible");
  } else if (std::uint64_t{header.end} - header.begin + 1 != result.data.size()) {
    Report(result, "begin and end do not fit the part's size");
  }
}

// The checksums that a yEnc trailer announces. That of a part stands as "pcrc32", the plain "crc32" is the whole
// file's.
struct YEncCrcs {
  explicit YEncCrcs(std::string_view trailer) : part(YEncValue(trailer, "pcrc32")), file(YEncValue(trailer, "crc32")) {}

  std::string part;
  std::string file;
};

void CheckYEncCrc(Attachment& result, const YEncCrcs& crcs, const CYEncData& header) {
  const std::string& expected = result.part || crcs.file.empty() ? crcs.part : crcs.file;
  if (expected.empty()) {
    return;
  }
  // The decoder has computed it wherever it saw one itself.
  const std::string computed = header.computedCrcText.empty() ? Crc32Hex(result.data) : header.computedCrcText;
  if (NormalCrc(expected) != computed) {
    Report(result, "CRC-32 mismatch (" + Printable(NormalCrc(expected)) + " announced)");
  }
}

// The name in the first line of a block that is damaged otherwise.
std::string YEncName(std::string_view block) {
  const std::string_view firstLine = block.substr(0, block.find('\n'));
  const std::size_t name = firstLine.find(" name=");
  return name == std::string_view::npos ? std::string() : std::string(Trim(firstLine.substr(name + 6)));
}

}  // namespace

Attachment DecodeYEnc(const CodedText& coded) {
  Attachment result;
  result.encoding = Encoding::YEnc;
  if (!FitsCoder(coded.View(), result)) {
    return result;
  }
  const YEncCrcs crcs(Trailer(coded.View()));
  result.name = YEncName(coded.View());
  CEncodeDecode coder(75, 76);
  CYEncData header;
  const int status = coded.Decode(coder, kFlagYEncFindBlock, result.data, &header);
  if (status != 0) {
    Report(result, status == -7 ? "the end is missing" : StatusText(status));
    return result;
  }
  result.name = header.name;
  if (header.part >= 0) {
    result.part.emplace();
  }
  CheckYEncSizes(result, header);
  CheckYEncCrc(result, crcs, header);
  if (result.part) {
    result.part = PartOf(header, crcs.file);
  }
  return result;
}

Attachment DecodeRawYEnc(const CodedText& coded) {
  Attachment result;
  result.encoding = Encoding::YEnc;
  if (!FitsCoder(coded.View(), result)) {
    return result;
  }
  CEncodeDecode coder(75, 76);
  DecodeInto(result, coded, coder, kFlagYEnc);
  return result;
}

}  // namespace qs
