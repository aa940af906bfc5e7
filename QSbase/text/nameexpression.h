/// \file
/// Regular expressions for names (internal): Boost.Regex, kept to one source file and to limits.
#ifndef QSBASE_TEXT_NAMEEXPRESSION_H
#define QSBASE_TEXT_NAMEEXPRESSION_H

#include <QSbase/text/chartables.h>

#include <memory>
#include <string_view>

namespace qsbase::detail {

/// A compiled Perl expression. Case is ignored as the process has it where the expression is made: by the global C++
/// locale on Linux, by the user's code page on Windows. "^" and "$" are the ends of the name, line feeds are characters
/// like others.
class NameExpression {
 public:
  virtual ~NameExpression() = default;

  /// Null when it is no valid expression, or one that would take the whole stack or endless time to compile: a thousand
  /// "$", "\<" or "\>" in a row, or a look-behind with a thousand ways through it. Throws std::bad_alloc.
  static std::unique_ptr<const NameExpression> Compile(const char* expression);

  /// True when the expression is found anywhere in the name. A search that takes too many steps or too much memory
  /// has not found it; it throws nothing. May run in several threads at once.
  virtual bool IsIn(std::string_view name) const noexcept = 0;
};

/// The byte that stands for a byte wherever expressions made now ignore case.
CharMap NameFoldMap();

}  // namespace qsbase::detail

#endif
