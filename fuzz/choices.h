/// \file
/// Choices that a fuzz target makes by itself, the same for the same input: sizes of pieces, orders.
#ifndef QSBASE_FUZZ_CHOICES_H
#define QSBASE_FUZZ_CHOICES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace qsbase::fuzz {

class Choices {
 public:
  explicit Choices(std::uint32_t seed) : _state(seed * 2654435761U + 1) {}

  /// A number below `end`, which is above 0.
  std::size_t Below(std::size_t end) {
    _state = _state * 1664525U + 1013904223U;
    return (_state >> 8) % end;
  }

  /// The text in pieces of 1 to `longest` bytes.
  std::vector<std::string_view> Pieces(std::string_view text, std::size_t longest) {
    std::vector<std::string_view> pieces;
    while (!text.empty()) {
      pieces.push_back(text.substr(0, 1 + Below(longest)));
      text.remove_prefix(pieces.back().size());
    }
    return pieces;
  }

  template <class Container>
  void Shuffle(Container& values) {
    for (std::size_t i = values.size(); i > 1; --i) {
      std::swap(values[i - 1], values[Below(i)]);
    }
  }

 private:
  std::uint32_t _state;
};

}  // namespace qsbase::fuzz

#endif
