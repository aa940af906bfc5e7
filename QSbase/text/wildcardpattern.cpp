#include <QSbase/text/wildcardpattern.h>

#include <algorithm>
#include <cstring>

namespace qsbase::detail {

WildcardPattern::WildcardPattern(std::string_view pattern, bool anchored, const CharMap& fold)
    : _text(pattern), _openStart(!anchored || pattern.front() == '*'), _openEnd(!anchored || pattern.back() == '*') {
  for (char& c : _text) {
    c = static_cast<char>(fold[static_cast<unsigned char>(c)]);
  }
  std::size_t start = 0;
  while (start < pattern.size()) {
    const std::size_t end = std::min(pattern.find('*', start), pattern.size());
    if (end > start) {
      AddSegment(start, end - start);
    }
    start = end + 1;
  }
}

void WildcardPattern::AddSegment(std::size_t offset, std::size_t length) {
  const std::string_view text = std::string_view(_text).substr(offset, length);
  const std::size_t firstFixed = std::min(text.find_first_not_of('?'), length);
  const bool isFixed = text.find('?') == std::string_view::npos;
  _segments.push_back({offset, length, firstFixed, isFixed});
  _minLength += length;
}

WildcardSummary WildcardPattern::Summary() const {
  const char first = _openStart || _text.front() == '?' ? '\0' : _text.front();
  const char last = _openEnd || _text.back() == '?' ? '\0' : _text.back();
  return {_minLength, first, last};
}

bool WildcardPattern::StandsAt(const Segment& segment, const char* place) const {
  const char* const text = _text.data() + segment.offset;
  if (segment.isFixed) {
    return std::memcmp(text, place, segment.length) == 0;
  }
  for (std::size_t i = segment.firstFixed; i < segment.length; ++i) {
    if (text[i] != place[i] && text[i] != '?') {
      return false;
    }
  }
  return true;
}

// Where the segment first stands in the name, or npos.
std::size_t WildcardPattern::Find(const Segment& segment, std::string_view name) const {
  if (name.size() < segment.length) {
    return std::string_view::npos;
  }
  if (segment.firstFixed == segment.length) {
    return 0;
  }
  const char fixed = _text[segment.offset + segment.firstFixed];
  const char* place = name.data();
  const char* const end = name.data() + (name.size() - segment.length) + 1;
  while (place < end) {
    const void* const found = std::memchr(place + segment.firstFixed, fixed, static_cast<std::size_t>(end - place));
    if (found == nullptr) {
      return std::string_view::npos;
    }
    place = static_cast<const char*>(found) - segment.firstFixed;
    if (StandsAt(segment, place)) {
      return static_cast<std::size_t>(place - name.data());
    }
    ++place;
  }
  return std::string_view::npos;
}

// The segments between the two ends stand wherever they first fit: any later place leaves less room to the others.
bool WildcardPattern::Matches(std::string_view name) const {
  if (name.size() < _minLength) {
    return false;
  }
  auto first = _segments.begin();
  auto last = _segments.end();
  if (!_openEnd) {
    --last;
    if (!StandsAt(*last, name.data() + name.size() - last->length)) {
      return false;
    }
    if (first == last) {
      return _openStart || name.size() == last->length;
    }
    name.remove_suffix(last->length);
  }
  if (!_openStart) {
    if (!StandsAt(*first, name.data())) {
      return false;
    }
    name.remove_prefix(first->length);
    ++first;
  }
  for (; first != last; ++first) {
    const std::size_t at = Find(*first, name);
    if (at == std::string_view::npos) {
      return false;
    }
    name.remove_prefix(at + first->length);
  }
  return true;
}

}  // namespace qsbase::detail
