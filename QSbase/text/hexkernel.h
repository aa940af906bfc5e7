/// \file
/// The inner loops of hex text (internal). No state: any thread may call.
#ifndef QSBASE_TEXT_HEXKERNEL_H
#define QSBASE_TEXT_HEXKERNEL_H

#include <QSbase/simd/level.h>

#include <cstddef>

namespace qsbase::detail {

/// One level's kernels.
struct HexKernels {
  /// Writes two upper-case digits a byte. Input and output do not overlap.
  void (*encode)(const unsigned char* bytes, std::size_t length, unsigned char* out);

  /// Decodes pairs of digits as far as they are such. Returns how many; nothing is written behind them. `out` may be
  /// `hex`, otherwise they do not overlap.
  std::size_t (*decode)(const unsigned char* hex, std::size_t pairs, unsigned char* out);
};

const HexKernels& HexKernelsOf(SimdLevel level);

/// The scalar level, which also ends what the vector kernels begin.
void EncodeHex(const unsigned char* bytes, std::size_t length, unsigned char* out);
std::size_t DecodeHex(const unsigned char* hex, std::size_t pairs, unsigned char* out);

}  // namespace qsbase::detail

#endif
