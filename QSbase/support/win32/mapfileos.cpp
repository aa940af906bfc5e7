#include <QSbase/support/mapfileos.h>

#include <QSbase/support/win32/filedata.h>
#include <QSbase/support/win32/openregular.h>
#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

namespace {

/// One read of a file that is open for overlapped ones; how many bytes came, 0 at the end of the file and on an error.
DWORD ReadOnce(HANDLE file, HANDLE event, std::uint64_t position, char* bytes, DWORD length) {
  OVERLAPPED overlapped{};
  overlapped.Offset = static_cast<DWORD>(position & 0xFFFFFFFF);
  overlapped.OffsetHigh = static_cast<DWORD>(position >> 32U);
  overlapped.hEvent = event;
  DWORD count = 0;
  if (ReadFile(file, bytes, length, nullptr, &overlapped) == 0 && GetLastError() != ERROR_IO_PENDING) {
    return 0;
  }
  return GetOverlappedResult(file, &overlapped, &count, TRUE) != 0 ? count : 0;
}

}  // namespace

std::intptr_t OsOpenExisting(const std::string& path, bool readOnly, FileUse use, std::uint64_t& size) {
  const DWORD access = readOnly ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  const DWORD share = readOnly ? FILE_SHARE_READ : FILE_SHARE_READ | FILE_SHARE_WRITE;
  const DWORD flags = use == FileUse::AtOffsets ? FILE_FLAG_OVERLAPPED : 0;
  const std::intptr_t file = OpenRegular(path, access, share, OPEN_EXISTING, flags);
  if (file == kNoHandle) {
    return kNoHandle;
  }
  LARGE_INTEGER native;
  if (GetFileSizeEx(ToHandle(file), &native) == 0) {
    const HandleCloser closer(ToHandle(file));
    return kNoHandle;
  }
  size = static_cast<std::uint64_t>(native.QuadPart);
  return file;
}

bool OsCloseFile(std::intptr_t file) { return CloseHandle(ToHandle(file)) != 0; }

std::intptr_t OsCreateMapping(std::intptr_t file, bool readOnly, std::uint64_t /*size*/) {
  const DWORD protection = readOnly ? PAGE_READONLY : PAGE_READWRITE;
  const HANDLE mapping = CreateFileMappingA(ToHandle(file), nullptr, protection, 0, 0, nullptr);
  return mapping == nullptr ? kNoHandle : reinterpret_cast<std::intptr_t>(mapping);
}

bool OsCloseMapping(std::intptr_t mapping) { return CloseHandle(ToHandle(mapping)) != 0; }

void* OsMapView(std::intptr_t mapping, bool readOnly, std::uint64_t /*size*/) {
  return MapViewOfFile(ToHandle(mapping), readOnly ? FILE_MAP_READ : FILE_MAP_WRITE, 0, 0, 0);
}

bool OsUnmapView(void* view, std::uint64_t /*size*/) { return UnmapViewOfFile(view) != 0; }

bool OsReadAt(std::intptr_t file, std::uint64_t position, void* buffer, std::uint32_t length) {
  // An event of its own for each call: the file's one would not tell the reads of several threads apart.
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) {
    return false;
  }
  const HandleCloser closer(event);
  char* const bytes = static_cast<char*>(buffer);
  std::uint32_t done = 0;
  while (done < length) {
    const DWORD count = ReadOnce(ToHandle(file), event, position + done, bytes + done, length - done);
    if (count == 0) {
      return false;
    }
    done += count;
  }
  return true;
}

}  // namespace qsbase::detail
