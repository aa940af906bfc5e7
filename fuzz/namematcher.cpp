#include <QSbase/errors.h>
#include <QSbase/text/namematcher.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <optional>
#include <vector>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

// On Windows the user's code page has further letters.
#ifdef _WIN32
constexpr unsigned int kCharacters = 0x7F;
#else
constexpr unsigned int kCharacters = 0xFF;
#endif

std::string Characters(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    c = static_cast<char>(static_cast<unsigned char>(c) & kCharacters);
  }
  return result;
}

char Folded(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

// Whether each beginning of the name matches each beginning of the pattern, one after the other.
bool MatchesSlowly(std::string pattern, const std::string& name, bool anchored) {
  pattern = anchored ? pattern : '*' + pattern + '*';
  std::vector<bool> row(name.size() + 1, false);
  row[0] = true;
  for (const char c : pattern) {
    std::vector<bool> next(name.size() + 1, false);
    next[0] = c == '*' && row[0];
    for (std::size_t i = 0; i < name.size(); ++i) {
      const bool isSame = c == '?' || Folded(c) == Folded(name[i]);
      next[i + 1] = c == '*' ? row[i + 1] || next[i] : row[i] && isSame;
    }
    row.swap(next);
  }
  return row.back();
}

std::vector<std::string> PatternsOf(const std::string& list) {
  std::vector<std::string> patterns;
  std::string rest = list + ';';
  for (std::size_t end; (end = rest.find(';')) != std::string::npos; rest.erase(0, end + 1)) {
    const std::string pattern = rest.substr(0, end);
    if (*pattern.c_str() != '\0') {
      patterns.push_back(pattern);
    }
  }
  return patterns;
}

std::optional<unsigned int> FindSlowly(const std::vector<std::string>& patterns, const std::string& name,
                                       bool anchored) {
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    if (MatchesSlowly(patterns[i].c_str(), name, anchored)) {
      return static_cast<unsigned int>(i);
    }
  }
  return std::nullopt;
}

void CheckWildcards(const std::string& list, const std::string& name, bool anchored) {
  const std::vector<std::string> patterns = PatternsOf(list);
  CNameMatcher matcher(nullptr, anchored);
  fuzz::Demand(matcher.CompilePatterns(list, anchored) == 0 ? "" : "CompilePatterns fails");
  fuzz::Demand(matcher.IsInit() == !patterns.empty() ? "" : "patterns, or none");
  unsigned int index = 0xFFFFFFFF;
  const bool matches = matcher.MatchName(name, index) == 1;
  const std::optional<unsigned int> expected = FindSlowly(patterns, name, anchored);
  fuzz::Demand(matches == expected.has_value() && index == expected.value_or(0xFFFFFFFF) ? "" : "a wildcard");
  fuzz::DemandEqual(list, matcher.GetOriginalPatterns(), "the list");
  for (std::size_t i = 0; i <= patterns.size(); ++i) {
    fuzz::DemandEqual(i < patterns.size() ? patterns[i] : "", matcher.GetOriginalPattern(static_cast<unsigned int>(i)),
                      "a pattern");
  }
}

// Nothing but that it ends: what an expression means is Boost's matter.
void TryExpression(const std::string& list, const std::string& name) {
  constexpr std::size_t kMost = 48;  // more may take seconds of a sanitizer, though its steps are limited
  const CNameMatcher matcher(list.substr(0, kMost).c_str(), false);
  unsigned int index = 0;
  if (matcher.MatchName(name.substr(0, kMost), index) == 1) {
    fuzz::Demand(!matcher.GetOriginalPattern(index).empty() ? "" : "an index beyond the list");
  }
}

// ---- The expression of a pattern ----

std::string ExpressionOf(const std::string& pattern, bool anchored) {
  if (pattern.front() == '#') {
    return pattern.substr(1);
  }
  std::string expression;
  for (const char c : pattern) {
    expression += c == '*'                                                    ? ".*"
                  : c == '?'                                                  ? "."
                  : std::string("$()+.[\\]^{|}").find(c) == std::string::npos ? std::string(1, c)
                                                                              : std::string("\\") + c;
  }
  return anchored ? '^' + expression + '$' : expression;
}

void CheckExpression(const std::string& pattern, bool anchored, std::size_t room) {
  const std::string expected = ExpressionOf(pattern, anchored);
  std::vector<char> buffer(room, 'x');
  try {
    PrepareWildcardString(pattern.c_str(), buffer.data(), static_cast<int>(room), anchored);
    const std::string shown = pattern.front() == '#' ? expected.substr(0, room - 1) : expected;
    fuzz::DemandEqual(shown, std::string(buffer.data()), "the expression");
  } catch (const ExBase&) {
    fuzz::Demand(expected.size() >= room && (room == 0 || buffer[0] == '\0') ? "" : "a refused expression");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLongestList = 512;  // the slow way multiplies the lengths
  fuzz::Input input(data, size);
  const unsigned int bits = input.Parameter();
  const std::size_t room = input.Parameter();
  const std::string text = Characters(input.Rest());
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string list = text.substr(0, std::min(end, kLongestList));
  const std::string name = text.substr(std::min(end + 1, text.size()));
  const bool anchored = (bits & 1) != 0;
  if (bits >= 0xF0) {
    TryExpression(list, name);
  }
  if (!std::string(list.c_str()).empty()) {
    CheckExpression(list.c_str(), anchored, room);
    CheckExpression(list.c_str(), anchored, 2 * list.size() + 3);
  }
  std::replace(list.begin(), list.end(), '#', '+');
  CheckWildcards(list, name, anchored);
  const CNameMatcher matcher(list.substr(0, 64).c_str(), anchored);
  fuzz::DemandBounds("MatchName", name, [&](const std::string& in) { return matcher.MatchName(in) == 1 ? 1 : 0; });
  return 0;
}
