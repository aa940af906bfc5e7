#include "decodestatus.h"

#include <limits>

namespace qs {

std::string StatusText(int status) {
  switch (status) {
    case -3:
      return "out of memory";
    case -6:
      return "a line does not have the length that it announces";
    case -7:
      return "the block is incomplete";
    case -8:
      return "a character outside the alphabet";
    case -9:
    case -10:
      return "the end is missing";
    default:
      return "the decoder gave " + std::to_string(status);
  }
}

bool FitsCoder(std::string_view text, Attachment& result) {
  if (text.size() <= std::numeric_limits<unsigned int>::max()) {
    return true;
  }
  result.problem = "longer than 4 GiB";
  return false;
}

void Report(Attachment& attachment, const std::string& problem) {
  if (attachment.problem.empty()) {
    attachment.problem = problem;
  }
}

bool DecodeInto(Attachment& result, const CodedText& coded, CEncodeDecode& coder, int flags) {
  const int status = coded.Decode(coder, flags, result.data);
  if (status != 0) {
    Report(result, StatusText(status));
  }
  return status == 0;
}

}  // namespace qs
