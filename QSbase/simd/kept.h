/// \file
/// The table by which vector kernels drop bytes (internal; constant, so safe from any thread).
#ifndef QSBASE_SIMD_KEPT_H
#define QSBASE_SIMD_KEPT_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace qsbase::detail {

/// For every choice of eight bytes, one bit each: the places of those that are kept, in order; 0x80 behind them, which
/// a byte shuffle takes for a zero. The second half of the table tells the places of the upper eight of sixteen.
using KeptPlaces = std::array<std::array<std::uint8_t, 8>, 512>;

constexpr KeptPlaces MakeKeptPlaces() {
  KeptPlaces table{};
  for (std::size_t kept = 0; kept < table.size(); ++kept) {
    const std::size_t start = kept / 256 * 8;
    table[kept].fill(0x80);
    std::size_t count = 0;
    for (std::size_t place = 0; place < 8; ++place) {
      if ((kept >> place & 1) != 0) {
        table[kept][count++] = static_cast<std::uint8_t>(start + place);
      }
    }
  }
  return table;
}

alignas(64) inline constexpr KeptPlaces kKeptPlaces = MakeKeptPlaces();

}  // namespace qsbase::detail

#endif
