/// \file
/// File-name style patterns ("*" and "?") and regular expressions, matched against names.
///
/// A pattern is one of three kinds:
/// - plain text;
/// - with wildcards: "*" stands for any number of characters, "?" for one character;
/// - with a "#" in front, the rest is a regular expression in Perl's syntax, as Boost.Regex has it.
///
/// Case is always ignored: by the global C++ locale on Linux (as long as the host sets none: A-Z and a-z alike), by the
/// user's ANSI code page on Windows, as either is when the patterns are compiled. Names and patterns are bytes; the
/// line feed and the zero byte in a name are characters like others, for "." in an expression too, and "^" and "$" are
/// the ends of the whole name.
#ifndef QSBASE_TEXT_NAMEMATCHER_H
#define QSBASE_TEXT_NAMEMATCHER_H

#include <memory>
#include <string>

#include <QSbase/export.h>

namespace qsbase::detail {
class NamePatternList;
}

/// What kind of pattern a text is.
enum EWCTYPE {
  WCTYPE_PLAIN = 0,       ///< No wildcard in it.
  WCTYPE_EXPRESSION = 1,  ///< Begins with "#".
  WCTYPE_WILDCARD = 2     ///< Holds a "*" or "?".
};

/// The kind of a pattern: 1 when it begins with "#", else 2 when it holds "*" or "?", else 0. Safe from any thread.
QSBASE_API EWCTYPE GetWildcardStringType(const std::string& pattern);

/// Writes the regular expression for `pattern` into `buffer` of `size` bytes, with a zero byte at its end. "*" becomes
/// ".*", "?" becomes ".", and what has a meaning in an expression gets a backslash; `anchored` puts "^" and "$" around
/// it. What follows a "#" in front is an expression already: it is copied as it is, without anchors, and cut at `size`
/// minus 1 characters.
///
/// Throws ExBase "PrepareWildcardString: invalid or empty expression" for a null or empty pattern (the buffer is left
/// alone) and "PrepareWildcardString: buffer to small" when the expression and its zero byte do not fit; the buffer
/// then holds an empty text, unless it is null or `size` is below 1. Safe from any thread.
///
/// \code
/// char buffer[64];
/// PrepareWildcardString("*.txt", buffer, sizeof buffer, true);   // ^.*\.txt$
/// PrepareWildcardString("*.txt", buffer, sizeof buffer, false);  // .*\.txt
/// \endcode
QSBASE_API void PrepareWildcardString(const char* pattern, char* buffer, int size, bool anchored);

/// A list of patterns, compiled once, and the question whether a name matches one of them.
///
/// Names may come from strangers: a wildcard pattern takes no more steps than the lengths of pattern and name
/// multiplied, and an expression that needs too many steps or too much memory on a name does not match it. Expressions
/// themselves are the host's; one that refers to itself many times may be slow to compile. One that would take the
/// whole stack to compile (a thousand "$", "\<" or "\>" in a row) or endless time (a look-behind with more than a
/// thousand ways through it; more than nine "|" in or behind one that holds a set) is skipped like one that is not
/// valid.
///
/// The const members may be called by several threads at once, while none changes the object. Copies share the compiled
/// patterns.
/// \code
/// const CNameMatcher matcher("*.TXT;*.log;#^part[0-9]+$", true);
/// unsigned int index = 0;
/// matcher.MatchName("x.LOG", index);  // 1, index is 1
/// \endcode
class QSBASE_API CNameMatcher {
 public:
  /// As CompilePatterns; no pattern for a null pointer, and when there is no memory.
  CNameMatcher(const char* patterns, bool anchored);
  CNameMatcher(const CNameMatcher& other);
  /// Without memory this matcher stays as it was.
  CNameMatcher& operator=(const CNameMatcher& other);
  ~CNameMatcher();

  /// Replaces the patterns by those of a list with ";" between them. Empty ones do not count; blanks do. A pattern that
  /// is no valid regular expression is skipped and has no index; a pattern with a zero byte in it ends there.
  ///
  /// With `anchored` a name must match as a whole, else the pattern may be found anywhere in it: "*.txt" then matches
  /// a.txt.bak, too. Regular expressions are always found anywhere; "^" and "$" are theirs to use.
  /// Returns 0, or -2 when there is no memory; everything is then as it was. `patterns` may be GetOriginalPatterns().
  int CompilePatterns(const std::string& patterns, bool anchored);

  /// 1 when some pattern matches the name, else 0. Throws std::bad_alloc when there is no memory for a copy of a name
  /// of more than 512 bytes.
  int MatchName(const std::string& name) const;
  /// As above; `index` gets the position of the first pattern that matches, and stays as it is when none does.
  int MatchName(const std::string& name, unsigned int& index) const;

  /// The list as it was last given; empty after Clear().
  const std::string& GetOriginalPatterns() const;
  /// The text of one pattern, with its "#". Empty when there is none of this index.
  std::string GetOriginalPattern(unsigned int index) const;
  /// True when there is a compiled pattern.
  bool IsInit() const;
  /// Drops all patterns.
  void Clear();

 private:
  std::shared_ptr<const qsbase::detail::NamePatternList> _patterns;  ///< Null without patterns.
  std::string _originalPatterns;
};

#endif
