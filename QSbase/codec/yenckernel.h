/// \file
/// The inner loops of yEnc (internal). No function keeps anything between calls.
#ifndef QSBASE_CODEC_YENCKERNEL_H
#define QSBASE_CODEC_YENCKERNEL_H

#include <cstddef>
#include <cstdint>

namespace qsbase::detail {

/// How many bytes of the input an encoder has to escape.
std::uint64_t YEncCountEscapes(const unsigned char* input, std::size_t length, bool plainTabDot);

/// The exact size of the encoded lines, with their breaks. `lineLength` is above 0.
std::uint64_t YEncMeasure(const unsigned char* input, std::size_t length, std::uint32_t lineLength, bool plainTabDot);

/// Encodes into lines, each with its CR LF. Returns the bytes written, `YEncMeasure` of them; eight more behind them
/// may be scratched. `lineLength` is above 0.
std::size_t YEncEncode(const unsigned char* input, std::size_t length, unsigned char* output, std::uint32_t lineLength,
                       bool plainTabDot);

struct YEncDecoded {
  std::size_t consumed;
  std::size_t written;
};

/// Decodes up to the end or to a NUL byte, which is not consumed, nor is a "=" before it. `output` is the input itself,
/// or other memory with room for the input's length.
YEncDecoded YEncDecode(const unsigned char* input, std::size_t length, unsigned char* output);

}  // namespace qsbase::detail

#endif
