#include "../consoleos.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <fcntl.h>
#include <io.h>

namespace qs {

// Not _isatty: it takes every character device for a terminal, NUL too.
bool IsTerminal(std::FILE* stream) {
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  DWORD mode = 0;
  return GetConsoleMode(handle, &mode) != 0;
}

void SetBinaryMode(std::FILE* stream) { _setmode(_fileno(stream), _O_BINARY); }

// The code page belongs to the console, not to the process: the shell gets it back.
Utf8Console::Utf8Console() {
  const UINT before = GetConsoleOutputCP();
  if (before != 0 && before != CP_UTF8 && SetConsoleOutputCP(CP_UTF8) != 0) {
    _codePageBefore = before;
  }
}

Utf8Console::~Utf8Console() {
  if (_codePageBefore != 0) {
    SetConsoleOutputCP(_codePageBefore);
  }
}

}  // namespace qs
