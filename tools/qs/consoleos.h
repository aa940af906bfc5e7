/// \file
/// What the program asks the operating system about its standard streams. Any thread may call.
/// Twins: posix/consoleos.cpp, win32/consoleos.cpp.
#ifndef QS_CONSOLEOS_H
#define QS_CONSOLEOS_H

#include <cstdio>

namespace qs {

/// True when the stream is a terminal; false also when that cannot be told. Never fails.
bool IsTerminal(std::FILE* stream);

/// Bytes pass through the stream unchanged from now on. Call before the first byte. Does nothing where streams have no
/// text mode.
void SetBinaryMode(std::FILE* stream);

/// While it lives, a console shows what the program writes as UTF-8. Does nothing where a terminal's encoding is the
/// user's own business.
class Utf8Console {
 public:
  Utf8Console();
  ~Utf8Console();  // NOLINT(performance-trivially-destructible): it is not where a console has a code page
  Utf8Console(const Utf8Console&) = delete;
  Utf8Console& operator=(const Utf8Console&) = delete;

 private:
  [[maybe_unused]] unsigned int _codePageBefore = 0;  // 0: nothing was changed
};

}  // namespace qs

#endif
