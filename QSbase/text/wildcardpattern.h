/// \file
/// Name patterns of "*" and "?", without an expression (internal).
#ifndef QSBASE_TEXT_WILDCARDPATTERN_H
#define QSBASE_TEXT_WILDCARDPATTERN_H

#include <QSbase/text/chartables.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qsbase::detail {

/// What most names that do not match fail at: a length and the bytes at both ends.
class WildcardSummary {
 public:
  /// Lets every name pass.
  WildcardSummary() = default;
  /// Zero where the byte does not matter.
  WildcardSummary(std::size_t minLength, char first, char last)
      : _minLength(minLength), _ends(Pack(first, last)), _mask(Pack(first == 0 ? 0 : '\xFF', last == 0 ? 0 : '\xFF')) {}

  /// Both ends of a name as one number; of an empty one, 0.
  static unsigned int EndsOf(std::string_view name) { return name.empty() ? 0 : Pack(name.front(), name.back()); }

  bool MayMatch(std::size_t length, unsigned int ends) const { return length >= _minLength && (ends & _mask) == _ends; }

 private:
  static unsigned int Pack(char first, char last) {
    return static_cast<unsigned char>(first) * 256u + static_cast<unsigned char>(last);
  }

  std::size_t _minLength = 0;
  unsigned int _ends = 0;
  unsigned int _mask = 0;
};

/// One pattern: "*" stands for any number of bytes, "?" for any byte, line feeds and zero bytes among them. Immutable,
/// so safe from several threads.
class WildcardPattern {
 public:
  /// `pattern` is not empty. Without `anchored` it may stand anywhere in a name. `fold` maps bytes of a kind to one.
  WildcardPattern(std::string_view pattern, bool anchored, const CharMap& fold);

  /// `name` went through the same map. Takes no more steps than the lengths of pattern and name multiplied.
  bool Matches(std::string_view name) const;

  /// False for it means false for Matches.
  WildcardSummary Summary() const;

 private:
  // What stands between two "*"; not empty.
  struct Segment {
    std::size_t offset;
    std::size_t length;
    std::size_t firstFixed;  ///< Of its bytes, the first that is no "?"; `length` when there is none.
    bool isFixed;            ///< It holds no "?".
  };

  void AddSegment(std::size_t offset, std::size_t length);
  bool StandsAt(const Segment& segment, const char* place) const;
  std::size_t Find(const Segment& segment, std::string_view name) const;

  std::string _text;
  std::vector<Segment> _segments;
  std::size_t _minLength = 0;
  bool _openStart;
  bool _openEnd;
};

}  // namespace qsbase::detail

#endif
