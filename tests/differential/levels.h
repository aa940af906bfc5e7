/// \file
/// What the comparisons share: the levels, blocks of exact size, and the words for a difference.
#ifndef QSBASE_TESTS_DIFFERENTIAL_LEVELS_H
#define QSBASE_TESTS_DIFFERENTIAL_LEVELS_H

#include <QSbase/simd/level.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace qsbase::differential {

inline constexpr int kArrays = 0x10000000;

/// A copy of a text on the heap that ends where its block ends (without AddressSanitizer: with bytes behind it that a
/// decoder would gladly take), at an address of the given remainder modulo 64.
class Block {
 public:
  Block(std::string_view content, std::size_t alignment);

  char* Data() { return _memory.get() + _before; }
  unsigned int Size() const { return static_cast<unsigned int>(_size); }

  /// Writes the content anew.
  void Fill(std::string_view content);

  /// Whether the bytes around the content are what they were.
  bool IsIntactAround() const;

 private:
  struct Release {
    void operator()(char* memory) const;
  };

  std::unique_ptr<char[], Release> _memory;
  std::size_t _before;
  std::size_t _size;
};

/// What one call of the library gave.
struct Outcome {
  int status = 0;
  std::string_view data = {};
  std::size_t illegal = 0;
  std::size_t parsed = 0;
};

/// What differs between two outcomes, in words; empty without a difference.
std::string Difference(const Outcome& expected, const Outcome& actual);

/// The words for a difference: in which form and for which input.
std::string Report(const char* form, const std::string& difference, std::string_view input, const std::string& with);

/// Calls compare() on each level up to the first that it returns a text for. Returns that text and the level's name.
template <class Compare>
std::string OnLevels(Compare compare) {
  static constexpr const char* kNames[] = {"scalar", "sse4", "avx2", "avx512"};
  const detail::SimdLevel before = detail::CurrentSimdLevel();
  std::string difference;
  for (int level = 0; level <= static_cast<int>(detail::HighestSimdLevel()) && difference.empty(); ++level) {
    detail::UseSimdLevel(static_cast<detail::SimdLevel>(level));
    difference = compare();
    difference += difference.empty() ? "" : std::string("; level ") + kNames[level];
  }
  detail::UseSimdLevel(before);
  return difference;
}

/// A buffer of the library's, released at the end of the scope.
class Output {
 public:
  explicit Output(int flags) : _flags(flags) {}
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  char** Place() { return &_data; }
  unsigned int& Length() { return _length; }
  std::string_view View() const { return {_data == nullptr ? "" : _data, _length}; }

  /// A zero byte stands behind a buffer; there is none after a failure.
  bool IsWellFormed(int status) const;

 private:
  char _sentinel = 'x';
  char* _data = &_sentinel;
  unsigned int _length = 77;
  int _flags;
};

/// Runs a coder's buffer form: call(output, length, flags) gives its status.
template <class Call>
std::string CompareBuffer(Block& block, std::string_view input, const Outcome& expected, int flags,
                          const std::string& with, Call call) {
  Output output(flags);
  Outcome actual = call(output.Place(), output.Length());
  actual.data = output.View();
  std::string difference = Difference(expected, actual);
  if (difference.empty() && !output.IsWellFormed(actual.status)) {
    difference = "no zero byte behind the buffer, or a buffer where there is none";
  }
  if (difference.empty() && (!block.IsIntactAround() || std::string_view(block.Data(), block.Size()) != input)) {
    difference = "changed its input";
  }
  return difference.empty() ? "" : Report("buffer", difference, input, with);
}

/// Runs a decoder's inline form: call(length) gives its status.
template <class Call>
std::string CompareInline(Block& block, std::string_view input, const Outcome& expected, const std::string& with,
                          Call call) {
  block.Fill(input);
  unsigned int length = 77;
  Outcome actual = call(length);
  if (actual.status != 0 || length > block.Size()) {
    length = 0;
  }
  actual.data = {block.Data(), length};
  std::string difference = Difference(expected, actual);
  if (difference.empty() && !block.IsIntactAround()) {
    difference = "wrote outside its buffer";
  }
  const std::string report = difference.empty() ? "" : Report("inline", difference, input, with);
  block.Fill(input);
  return report;
}

/// Runs a coder's string form: call(input, output) gives its status. Into another string, and onto the input.
template <class Call>
std::string CompareString(std::string_view input, const Outcome& expected, const std::string& with, Call call) {
  const std::string text(input);
  std::string output = "x";
  std::string self = text;
  const bool agrees = call(text, output) == expected.status && output == "x" + std::string(expected.data) &&
                      call(self, self) == expected.status && self == text + std::string(expected.data);
  return agrees ? "" : Report("string", "status or text", input, with);
}

}  // namespace qsbase::differential

#endif
