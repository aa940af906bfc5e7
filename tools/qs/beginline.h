/// \file
/// The line in front of UU, XX and "begin-base64" data. Thread-safe: no state.
#ifndef QS_BEGINLINE_H
#define QS_BEGINLINE_H

#include <string>
#include <string_view>

namespace qs {

/// What a "begin" line says.
struct BeginLine {
  std::string name;  ///< decoded where the line says that it is encoded
  bool base64 = false;
  bool encodedName = false;
};

/// Reads one of these lines:
///     begin 644 name
///     begin-base64 644 name
///     begin-base64-encoded 644 bmFtZQ==
/// \returns whether the line is one; begin is overwritten either way.
bool ParseBeginLine(std::string_view line, BeginLine& begin);

}  // namespace qs

#endif
