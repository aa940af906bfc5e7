#include <QSbase/errors.h>
#include <QSbase/text/nameexpression.h>
#include <QSbase/text/namematcher.h>
#include <QSbase/text/qsstring.h>
#include <QSbase/text/wildcardpattern.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

using namespace qsbase::detail;

// ---- Kinds and expressions ----

EWCTYPE GetWildcardStringType(const std::string& pattern) {
  if (!pattern.empty() && pattern.front() == '#') {
    return WCTYPE_EXPRESSION;
  }
  return pattern.find_first_of("*?") != std::string::npos ? WCTYPE_WILDCARD : WCTYPE_PLAIN;
}

namespace {

// Writes into a buffer of a caller's; the zero byte behind the text always has room.
class BoundedWriter {
 public:
  BoundedWriter(char* buffer, int size) : _next(buffer), _room(buffer == nullptr ? 0 : size) {
    Need(1);
    *_next = '\0';
  }

  void Append(char c) {
    Need(2);
    *_next++ = c;
    *_next = '\0';
    --_room;
  }

  // As much as fits.
  void AppendCut(const char* text) {
    const std::size_t length = std::min(std::strlen(text), static_cast<std::size_t>(_room - 1));
    std::memcpy(_next, text, length);
    _next[length] = '\0';
  }

 private:
  void Need(int room) const {
    if (_room < room) {
      throw ExBase("PrepareWildcardString: buffer to small");
    }
  }

  char* _next;
  int _room;
};

void AppendTranslated(BoundedWriter& out, char c) {
  switch (c) {
    case '*':
      out.Append('.');
      out.Append('*');
      return;
    case '?':
      out.Append('.');
      return;
    default:
      if (std::strchr("$()+.[\\]^{|}", c) != nullptr) {
        out.Append('\\');
      }
      out.Append(c);
  }
}

void WriteExpression(BoundedWriter& out, const char* pattern, bool anchored) {
  if (anchored) {
    out.Append('^');
  }
  for (; *pattern != '\0'; ++pattern) {
    AppendTranslated(out, *pattern);
  }
  if (anchored) {
    out.Append('$');
  }
}

}  // namespace

void PrepareWildcardString(const char* pattern, char* buffer, int size, bool anchored) {
  if (pattern == nullptr || *pattern == '\0') {
    throw ExBase("PrepareWildcardString: invalid or empty expression");
  }
  BoundedWriter out(buffer, size);
  if (*pattern == '#') {
    out.AppendCut(pattern + 1);
    return;
  }
  try {
    WriteExpression(out, pattern, anchored);
  } catch (const ExBase&) {
    *buffer = '\0';
    throw;
  }
}

// ---- The list ----

namespace qsbase::detail {

/// Immutable once it is made.
class NamePatternList {
 public:
  /// Throws std::bad_alloc.
  NamePatternList(const std::vector<std::string>& texts, bool anchored) : _fold(NameFoldMap()) {
    for (const std::string& text : texts) {
      Add(text, anchored);
    }
  }

  bool IsEmpty() const { return _patterns.empty(); }

  std::string TextOf(unsigned int index) const { return index < _patterns.size() ? _patterns[index].text : ""; }

  /// The first pattern that matches.
  std::optional<unsigned int> Find(const std::string& name) const {
    // Wildcards take the folded name; most names fit in a buffer on the stack.
    std::array<char, 512> buffer;
    std::string longName;
    char* folded = buffer.data();
    if (name.size() > buffer.size()) {
      longName.resize(name.size());
      folded = longName.data();
    }
    std::transform(name.begin(), name.end(), folded,
                   [this](char c) { return static_cast<char>(_fold[static_cast<unsigned char>(c)]); });
    return Find(name, std::string_view(folded, name.size()));
  }

 private:
  using Matcher = std::variant<WildcardPattern, std::unique_ptr<const NameExpression>>;

  struct Pattern {
    std::string text;
    Matcher matcher;
  };

  void Add(const std::string& text, bool anchored) {
    const char* const pattern = text.c_str();  // ends at a zero byte
    if (*pattern == '\0') {
      return;
    }
    if (*pattern != '#') {
      WildcardPattern wildcard(pattern, anchored, _fold);
      _summaries.push_back(wildcard.Summary());
      _patterns.push_back({text, std::move(wildcard)});
    } else if (auto expression = NameExpression::Compile(pattern + 1)) {
      _summaries.emplace_back();
      _patterns.push_back({text, std::move(expression)});
    }
  }

  std::optional<unsigned int> Find(const std::string& name, std::string_view folded) const {
    const unsigned int ends = WildcardSummary::EndsOf(folded);
    for (std::size_t i = 0; i < _summaries.size(); ++i) {
      if (_summaries[i].MayMatch(folded.size(), ends) && Matches(_patterns[i].matcher, name, folded)) {
        return static_cast<unsigned int>(i);
      }
    }
    return std::nullopt;
  }

  static bool Matches(const Matcher& matcher, const std::string& name, std::string_view folded) {
    const auto* const wildcard = std::get_if<WildcardPattern>(&matcher);
    return wildcard != nullptr ? wildcard->Matches(folded) : std::get<1>(matcher)->IsIn(name);
  }

  const CharMap _fold;
  std::vector<Pattern> _patterns;
  std::vector<WildcardSummary> _summaries;  ///< Of each pattern, close together.
};

}  // namespace qsbase::detail

namespace {

std::shared_ptr<const NamePatternList> CompileList(const std::string& patterns, bool anchored) {
  std::vector<std::string> texts;
  SplitString(patterns, ";", texts, false);
  auto list = std::make_shared<const NamePatternList>(texts, anchored);
  return list->IsEmpty() ? nullptr : list;
}

}  // namespace

CNameMatcher::CNameMatcher(const char* patterns, bool anchored) {
  if (patterns == nullptr) {
    return;
  }
  try {
    CompilePatterns(patterns, anchored);
  } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): the copy of the text; no pattern then either
  }
}

CNameMatcher::CNameMatcher(const CNameMatcher& other) = default;
CNameMatcher& CNameMatcher::operator=(const CNameMatcher& other) {
  CNameMatcher copy(other);
  _patterns.swap(copy._patterns);
  _originalPatterns.swap(copy._originalPatterns);
  return *this;
}
CNameMatcher::~CNameMatcher() = default;

int CNameMatcher::CompilePatterns(const std::string& patterns, bool anchored) {
  try {
    std::string original(patterns);
    _patterns = CompileList(original, anchored);
    _originalPatterns.swap(original);
    return 0;
  } catch (const std::bad_alloc&) {
    return -2;
  } catch (const std::length_error&) {
    return -2;
  }
}

int CNameMatcher::MatchName(const std::string& name) const {
  unsigned int index = 0;
  return MatchName(name, index);
}

int CNameMatcher::MatchName(const std::string& name, unsigned int& index) const {
  const auto found = _patterns == nullptr ? std::nullopt : _patterns->Find(name);
  if (!found.has_value()) {
    return 0;
  }
  index = *found;
  return 1;
}

const std::string& CNameMatcher::GetOriginalPatterns() const { return _originalPatterns; }

std::string CNameMatcher::GetOriginalPattern(unsigned int index) const {
  return _patterns == nullptr ? std::string() : _patterns->TextOf(index);
}

bool CNameMatcher::IsInit() const { return _patterns != nullptr; }

void CNameMatcher::Clear() {
  _patterns.reset();
  _originalPatterns.clear();
}
