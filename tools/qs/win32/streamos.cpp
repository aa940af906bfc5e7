#include "../streamos.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <QSbase/errors.h>
#include <QSbase/support/paths.h>

namespace qs {
namespace {

// The system deletes the file with its last handle.
std::FILE* OpenToVanish(const char* path) {
  constexpr int kFlags = _O_RDWR | _O_BINARY | _O_TEMPORARY | _O_SHORT_LIVED | _O_NOINHERIT;
  int descriptor = -1;
  if (_sopen_s(&descriptor, path, kFlags, _SH_DENYNO, _S_IREAD | _S_IWRITE) != 0) {
    return nullptr;
  }
  std::FILE* stream = _fdopen(descriptor, "w+b");
  if (stream == nullptr) {
    _close(descriptor);
  }
  return stream;
}

}  // namespace

// Not std::tmpfile: it wants to write into the root of the drive, where only administrators may.
std::FILE* OpenTemporaryStream() {
  char path[MAX_PATH];
  if (GetTempFileNameA(QsGetSysTempPath().c_str(), "qs", 0, path) == 0) {
    return nullptr;
  }
  std::FILE* stream = OpenToVanish(path);
  if (stream == nullptr) {
    const int error = QsGetLastError();
    DeleteFileA(path);
    QsSetLastError(error);
  }
  return stream;
}

bool HoldNothingBack(std::FILE* /*stream*/) { return true; }

std::int64_t StreamPosition(std::FILE* stream) { return _ftelli64(stream); }

std::int64_t SeekToEnd(std::FILE* stream) { return _fseeki64(stream, 0, SEEK_END) == 0 ? _ftelli64(stream) : -1; }

}  // namespace qs
