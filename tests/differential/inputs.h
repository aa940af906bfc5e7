/// \file
/// The inputs of the differential tests: random ones of fixed seeds, and systematic ones.
///
/// The environment variable QSBASE_DIFFERENTIAL_SCALE multiplies their number (1 by default); the sanitizers, which
/// take several times as long for each, see a part of them.
#ifndef QSBASE_TESTS_DIFFERENTIAL_INPUTS_H
#define QSBASE_TESTS_DIFFERENTIAL_INPUTS_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace qsbase::differential {

/// Random texts. The same ones on every platform: nothing of the standard library's distributions is used.
class Random {
 public:
  explicit Random(std::uint32_t seed) : _engine(seed) {}

  /// From 0 up to, but without, the limit.
  std::size_t Below(std::size_t limit) { return _engine() % limit; }
  bool OneIn(std::size_t count) { return Below(count) == 0; }

  template <class Value>
  const Value& Of(const std::vector<Value>& values) {
    return values[Below(values.size())];
  }

  /// Mostly up to 300, sometimes up to 3000; every eighth near a multiple of 64.
  std::size_t Size();

  std::string Bytes(std::size_t size);
  std::string From(std::string_view pool, std::size_t size);

  /// Runs of single bytes out of the pool or of all.
  std::string Runs(std::string_view pool, std::size_t size);

  /// Replaces, inserts, drops, doubles and cuts: some places, now and then many. `isSizeKept`: replaces only.
  std::string Damaged(std::string text, std::string_view specials, bool isSizeKept = false);

  /// Puts line breaks between characters: of one kind and length or of many.
  std::string Broken(std::string_view text);

 private:
  void DamageOnce(std::string& text, std::string_view specials, bool isSizeKept);

  std::mt19937 _engine;
};

/// The line lengths of the tests, with those around a whole number of vectors or groups.
const std::vector<std::uint32_t>& LineLengths();

/// Counts the inputs of one test and prints their number when it ends.
class Tally {
 public:
  Tally() = default;
  ~Tally();
  Tally(const Tally&) = delete;
  Tally& operator=(const Tally&) = delete;

  /// Fails the test for a difference. Returns whether there was none.
  bool Agrees(const std::string& difference);

 private:
  std::size_t _count = 0;
};

/// How often something is to be done that would be done `count` times at scale 1.
std::size_t Scaled(std::size_t count);

/// Whether a sanitizer should leave the case with this number out.
bool IsLeftOut(std::size_t number);

/// Calls compare() until it returns a difference, `count` times at scale 1.
template <class Compare>
void Times(std::size_t count, Compare compare) {
  Tally tally;
  for (std::size_t left = Scaled(count); left > 0; --left) {
    if (!tally.Agrees(compare())) {
      return;
    }
  }
}

/// Calls compare(size, alignment) for the sizes from 0 to 300 and all alignments.
template <class Compare>
void EverySizeAndAlignment(Compare compare) {
  Tally tally;
  std::size_t number = 0;
  for (std::size_t size = 0; size <= 300; ++size) {
    for (std::size_t alignment = 0; alignment < 64; ++alignment) {
      if (!IsLeftOut(number++) && !tally.Agrees(compare(size, alignment))) {
        return;
      }
    }
  }
}

/// Calls compare(text) with every byte value at every place of a text.
template <class Compare>
void EveryByteAtEveryPlace(const std::string& text, Compare compare) {
  Tally tally;
  std::size_t number = 0;
  std::string changed = text;
  for (std::size_t at = 0; at < text.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      changed[at] = static_cast<char>(value);
      if (!IsLeftOut(number++) && !tally.Agrees(compare(changed))) {
        return;
      }
    }
    changed[at] = text[at];
  }
}

/// Calls compare(text) with the text cut at every place.
template <class Compare>
void CutEverywhere(const std::string& text, Compare compare) {
  Tally tally;
  for (std::size_t size = 0; size <= text.size(); ++size) {
    if (!tally.Agrees(compare(text.substr(0, size)))) {
      return;
    }
  }
}

}  // namespace qsbase::differential

#endif
