/// \file
/// The slow reference of the BinHex decoder, and an encoder for its tests; see result.h.
#ifndef QSBASE_TESTS_REFERENCE_BINHEX_H
#define QSBASE_TESTS_REFERENCE_BINHEX_H

#include <cstdint>
#include <string>
#include <string_view>

namespace qsbase::reference {

struct BinHexFile {
  int status = 0;
  std::string data;  ///< The data fork; empty after a failure.
  std::string name;
  std::uint32_t type = 0;
  std::uint32_t creator = 0;
  std::uint32_t flags = 0;
  std::uint32_t dataSize = 0;
  bool isHeaderWhole = false;  ///< All of the header was there to be read.
};

/// After a failure in the header the fields are not to be relied on.
BinHexFile BinHexDecode(std::string_view text, bool headerOnly);

/// The text of a stream of bytes as it stands: neither run lengths nor sizes nor CRCs are made. The marker and the
/// colons are; CR LF behind every `columns` characters.
std::string BinHexText(std::string_view stream, std::size_t columns);

/// Codes every 0x90, and the runs longer than `shortest`.
std::string BinHexRuns(std::string_view stream, std::size_t shortest);

/// The stream of a file without its run lengths; the CRCs are not computed, since nobody checks them.
std::string BinHexStream(const BinHexFile& file, std::string_view resource);

}  // namespace qsbase::reference

#endif
