#include <QSbase/support/diros.h>

#include <QSbase/support/fileos.h>
#include <QSbase/support/win32/filedata.h>
#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

// The path for a system call, or false (with the last error set) if a C string cannot carry it.
bool SystemPath(const std::string& path, std::string& native) {
  if (path.find('\0') != std::string::npos) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return false;
  }
  native = path.empty() ? "." : NativePath(path);
  return true;
}

// Behind a trailing separator the system would follow a link. That of a drive's root is part of its name.
std::string WithoutTrailingSeparators(std::string path) {
  while (path.size() > 1 && IsSeparator(path.back()) && path[path.size() - 2] != ':') {
    path.pop_back();
  }
  return path;
}

// "C:" alone is the current directory of the drive, which a separator would turn into its root.
std::string EverythingIn(const std::string& dir) {
  const bool joined = IsSeparator(dir.back()) || dir.back() == ':';
  return dir + (joined ? "*" : "\\*");
}

bool IsLinkItself(const std::string& path) {
  FileData data;
  return ReadFileData(WithoutTrailingSeparators(path), data) && data.IsLink();
}

void Describe(const FileData& data, DirEntry& entry) {
  entry.isDirectory = data.IsDirectory();
  entry.isLink = data.IsLink();
  entry.isReadOnly = data.IsReadOnly() && !entry.isLink;
  entry.size = data.Has(FILE_ATTRIBUTE_DIRECTORY) || entry.isLink ? 0 : data.size;
  entry.created = ToFileTime(data.created).seconds;
  entry.accessed = ToFileTime(data.accessed).seconds;
  entry.written = ToFileTime(data.written).seconds;
}

// The last component as the directory has it: in its own case, the long name for a short one, without the dots and
// blanks that the system drops. As given where no directory has it (a root), or where it would be taken for a pattern.
std::string StoredName(const std::string& path) {
  const std::string given = path.substr(path.find_last_of("\\/:") + 1);
  if (given.empty() || given == "." || given == ".." || given.find_first_of("*?") != std::string::npos) {
    return given;
  }
  const LastErrorGuard keep;
  WIN32_FIND_DATAA found;
  const HANDLE search = FindFirstFileA(path.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) {
    return given;
  }
  FindClose(search);
  return found.cFileName;
}

FileData DataOf(const WIN32_FIND_DATAA& found) {
  FileData data;
  Fill(found, data);
  data.tag = data.Has(FILE_ATTRIBUTE_REPARSE_POINT) ? found.dwReserved0 : 0;
  return data;
}

}  // namespace

struct DirReader::Stream {
  Stream() = default;
  ~Stream() {
    const LastErrorGuard keep;
    if (handle != INVALID_HANDLE_VALUE) {
      FindClose(handle);
    }
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  HANDLE handle = INVALID_HANDLE_VALUE;
  bool first = true;     // the search brought its first entry along
  bool current = false;  // the record holds the entry that Next gave last
  WIN32_FIND_DATAA record;
};

DirReader::DirReader(const std::string& dir, LinkRule rule) : _stream(std::make_unique<Stream>()) {
  std::string path;
  if (!SystemPath(dir, path)) {
    return;
  }
  if (rule == LinkRule::Refuse && IsLinkItself(path)) {
    SetLastError(ERROR_DIRECTORY);
    return;
  }
  _stream->handle = FindFirstFileA(EverythingIn(path).c_str(), &_stream->record);
}

DirReader::~DirReader() = default;

bool DirReader::Next(std::string& name) {
  if (_stream->handle == INVALID_HANDLE_VALUE) {
    return false;
  }
  _stream->current = _stream->first || FindNextFileA(_stream->handle, &_stream->record) != 0;
  _stream->first = false;
  if (_stream->current) {
    name = _stream->record.cFileName;
  }
  return _stream->current;
}

bool DirReader::IsDirectory() const { return _stream->current && DataOf(_stream->record).IsDirectory(); }

bool DirReader::Describe(DirEntry& entry) const {
  if (!_stream->current) {
    return false;
  }
  entry.name = _stream->record.cFileName;
  detail::Describe(DataOf(_stream->record), entry);
  return true;
}

bool DescribePath(const std::string& path, DirEntry& entry) {
  std::string native;
  if (!SystemPath(path, native)) {
    return false;
  }
  native = WithoutTrailingSeparators(native);
  FileData data;
  if (!ReadFileData(native, data)) {
    return false;
  }
  entry.name = StoredName(native);
  Describe(data, entry);
  return true;
}

std::string SystemTempDirectory() {
  char buffer[MAX_PATH + 1];
  const DWORD length = GetTempPathA(sizeof buffer, buffer);
  return length < sizeof buffer ? std::string(buffer, length) : std::string();
}

}  // namespace qsbase::detail
