#include "beginline.h"

#include <cstddef>

#include "mimebody.h"
#include "text.h"

namespace qs {
namespace {

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

}  // namespace

bool ParseBeginLine(std::string_view line, BeginLine& begin) {
  begin = {};
  if (!StartsWithNoCase(line, "begin")) {
    return false;
  }
  line.remove_prefix(5);
  if (StartsWith(line, "-base64")) {
    line.remove_prefix(7);
    begin.base64 = true;
  }
  if (StartsWith(line, "-encoded")) {
    line.remove_prefix(8);
    begin.encodedName = true;
  }
  if (line.empty() || line.front() != ' ') {
    return false;
  }
  line = Trim(line);
  std::size_t digits = 0;
  while (digits < line.size() && IsOctal(line[digits])) {
    ++digits;
  }
  if (digits < 3 || digits > 4 || digits >= line.size() || line[digits] != ' ') {
    return false;
  }
  begin.name = std::string(Trim(line.substr(digits)));
  if (begin.encodedName) {
    begin.name = DecodeBase64(std::string_view(begin.name)).data;
  }
  return !begin.name.empty();
}

}  // namespace qs
