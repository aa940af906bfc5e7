/// \file
/// The slow reference of yEnc; see result.h. The flags are those of `CEncodeDecode`.
#ifndef QSBASE_TESTS_REFERENCE_YENC_H
#define QSBASE_TESTS_REFERENCE_YENC_H

#include <reference/result.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qsbase::reference {

/// The fields of a header, as `CYEncData` has them.
struct YEncFields {
  std::uint32_t line = 128;
  std::uint32_t size = 0;
  std::uint32_t endSize = 0;
  std::int32_t part = -1;
  std::int32_t total = -1;
  std::uint32_t begin = 0;
  std::uint32_t end = 0;
  std::string name;
  std::string crc;
};

/// Where a block was found.
struct YEncBlock {
  int status = 0;
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t data = 0;
  std::size_t dataLength = 0;
};

/// Bit by bit.
std::uint32_t Crc32(std::string_view data);

std::string YEncEncode(std::string_view data, const YEncFields& fields, int flags);

/// Decodes data, not a block; `parsed` is the consumed length.
Result YEncDecode(std::string_view text);

YEncBlock FindYEncBlock(std::string_view text);

/// The fields of the block that is there, each written once and as the format has it: digits only, the name last.
YEncFields FieldsOfYEncBlock(std::string_view text);

}  // namespace qsbase::reference

#endif
