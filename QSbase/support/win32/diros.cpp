#include <QSbase/support/diros.h>

#include <algorithm>

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
  const FileTime written = ToFileTime(data.written);
  entry.written = written.seconds;
  entry.writtenNanoseconds = written.nanoseconds;
}

// Listings come in Unicode: in the code page, what it lacks would show as another character that looks alike, and
// deleting what was listed would delete the file that has that name.
UINT FileCodePage() { return AreFileApisANSI() != 0 ? CP_ACP : CP_OEMCP; }

// False if the code page lacks a character of the name.
bool ToCodePage(const wchar_t* name, std::string& out) {
  const UINT codePage = FileCodePage();
  CPINFOEXA info;
  const bool utf8 = GetCPInfoExA(codePage, 0, &info) != 0 && info.CodePage == CP_UTF8;
  const DWORD flags = utf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
  char bytes[4 * MAX_PATH];
  BOOL lacks = FALSE;
  const int size =
      WideCharToMultiByte(codePage, flags, name, -1, bytes, sizeof bytes, nullptr, utf8 ? nullptr : &lacks);
  if (size <= 0 || lacks != FALSE) {
    return false;
  }
  out = bytes;
  return true;
}

HANDLE FindFirst(const std::string& pattern, WIN32_FIND_DATAW& found) {
  const UINT codePage = FileCodePage();
  const auto length = static_cast<int>(pattern.size());
  std::wstring wide(pattern.size(), L'\0');  // never more characters than bytes
  wide.resize(static_cast<std::size_t>(
      std::max(MultiByteToWideChar(codePage, 0, pattern.data(), length, wide.data(), length), 0)));
  return FindFirstFileW(wide.c_str(), &found);
}

// The last component as the directory has it: in its own case, the long name for a short one, without the dots and
// blanks that the system drops. As given where no directory has it (a root), or where it would be taken for a pattern.
std::string StoredName(const std::string& path) {
  const std::string given = path.substr(path.find_last_of("\\/:") + 1);
  if (given.empty() || given == "." || given == ".." || given.find_first_of("*?") != std::string::npos) {
    return given;
  }
  const LastErrorGuard keep;
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirst(path, found);
  if (search == INVALID_HANDLE_VALUE) {
    return given;
  }
  FindClose(search);
  std::string stored;
  return ToCodePage(found.cFileName, stored) ? stored : given;
}

// A dot or blank at the end of a name is dropped from a path, which then names another file. A path that says that it
// is to be taken as it is keeps it.
bool EndIsDropped(const std::string& name) {
  return name != "." && name != ".." && (name.back() == '.' || name.back() == ' ');
}

bool IsTakenAsItIs(const std::string& path) { return path.compare(0, 4, "\\\\?\\") == 0; }

FileData DataOf(const WIN32_FIND_DATAW& found) {
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
  bool anyEnd = false;   // of a name: the path takes them all
  WIN32_FIND_DATAW record;
  std::string name;  // the record's

  bool Step() {
    current = first || FindNextFileW(handle, &record) != 0;
    first = false;
    return current;
  }

  bool CanBeNamed() { return ToCodePage(record.cFileName, name) && !name.empty() && (anyEnd || !EndIsDropped(name)); }
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
  _stream->anyEnd = IsTakenAsItIs(path);
  _stream->handle = FindFirst(EverythingIn(path), _stream->record);
}

DirReader::~DirReader() = default;

bool DirReader::Next(std::string& name) {
  if (_stream->handle == INVALID_HANDLE_VALUE) {
    return false;
  }
  while (_stream->Step()) {
    if (_stream->CanBeNamed()) {
      name = _stream->name;
      return true;
    }
  }
  return false;
}

bool DirReader::IsDirectory() const { return _stream->current && DataOf(_stream->record).IsDirectory(); }

bool DirReader::Describe(DirEntry& entry) const {
  if (!_stream->current) {
    return false;
  }
  entry.name = _stream->name;
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
