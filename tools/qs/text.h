/// \file
/// Small helpers over text: lines, ASCII case, blanks. Stateless but for LineReader; every function is thread-safe.
#ifndef QS_TEXT_H
#define QS_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qs {

/// Walks a text line by line. A line ends with LF or the end of the text; a CR before the LF belongs to the break.
class LineReader {
 public:
  explicit LineReader(std::string_view text);

  /// Moves to the next line; false behind the last one.
  bool Next() {
    if (_end >= _text.size()) {
      return false;
    }
    _begin = _end;
    const std::size_t feed = _text.find('\n', _begin);
    const bool isBroken = feed != std::string_view::npos;
    const bool hasReturn = isBroken && feed > _begin && _text[feed - 1] == '\r';
    _end = isBroken ? feed + 1 : _text.size();
    _line = _text.substr(_begin, (isBroken ? feed - (hasReturn ? 1 : 0) : _end) - _begin);
    return true;
  }
  /// The line without its break.
  std::string_view Line() const { return _line; }
  /// Where the line begins in the text.
  std::size_t Begin() const { return _begin; }
  /// Where the next line begins.
  std::size_t End() const { return _end; }
  /// Goes on reading at this offset, which must be the beginning of a line.
  void Seek(std::size_t offset) { _end = offset; }

 private:
  std::string_view _text;
  std::string_view _line;
  std::size_t _begin = 0;
  std::size_t _end = 0;
};

bool IsBlank(char c);
std::string_view Trim(std::string_view text);
std::string_view TrimRight(std::string_view text);
std::string ToLowerAscii(std::string_view text);
bool StartsWith(std::string_view text, std::string_view prefix);
bool EndsWith(std::string_view text, std::string_view suffix);
/// The same without regard to ASCII case.
bool StartsWithNoCase(std::string_view text, std::string_view prefix);
/// What stands in front of the last line break of the text, when there is one at its end.
std::string_view WithoutLastBreak(std::string_view text);
/// Replaces every "%" and two hex digits by the byte that they stand for; any other "%" stays.
std::string PercentDecode(std::string_view text);
/// "1 line", "2 lines".
std::string Count(std::size_t number, const std::string& what);
/// Bytes that a terminal might obey are replaced by "?".
std::string Printable(std::string_view text);

}  // namespace qs

#endif
