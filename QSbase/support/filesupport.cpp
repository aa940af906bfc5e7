#include <QSbase/support/filesupport.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <exception>
#include <limits>
#include <vector>

#include <QSbase/errors.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/log/log.h>
#include <QSbase/support/filedetail.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/findentries.h>
#include <QSbase/support/findfile.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/qsfile.h>
#include <QSbase/text/timeos.h>

namespace qsbase::detail {

void ClearReadOnlyIfSet(const std::string& path, LinkView view) {
  FileStatus status;
  if (OsGetStatus(path, view, status) && status.isReadOnly) {
    OsClearReadOnly(path);
  }
}

}  // namespace qsbase::detail

using namespace qsbase::detail;

namespace {

constexpr std::size_t kMaxCreatedPath = 259;
constexpr int kMaxRenameNumber = 999999;

// What RenameFile puts before its number and DeleteRenamedFiles looks for.
constexpr const char* kRenameSuffix = "_";

bool Exists(const std::string& path) {
  const FSOType type = QsGetFSObjectType(path);
  return type == FSO_FILE || type == FSO_DIRECTORY;
}

// One trailing separator less; a lone root separator stays.
std::string WithoutTrailingSeparator(const std::string& translated) {
  return translated.size() > 1 ? QsRemoveTerminatingFileslash(translated) : translated;
}

template <class Integer>
Integer Saturated(std::int64_t value) {
  return static_cast<Integer>(std::min<std::int64_t>(value, std::numeric_limits<Integer>::max()));
}

bool HasAccess(const char* name, AccessKind kind) {
  return name != nullptr && *name != '\0' && OsHasAccess(QsTranslateFilename(name), kind);
}

FSOType TypeOf(FileKind kind) {
  switch (kind) {
    case FileKind::Regular:
      return FSO_FILE;
    case FileKind::Directory:
      return FSO_DIRECTORY;
    case FileKind::CharDevice:
      return FSO_CHARDEVICE;
    case FileKind::Pipe:
      return FSO_PIPE;
    default:
      return FSO_NOTHING;
  }
}

// Seconds since 1970; negative for what lies before, and for parts that are no local time.
std::int64_t UtcSeconds(const QsDateTime& time) {
  int year = 0;
  int month = 0;
  int day = 0;
  std::tm parts{};
  time.GetDatePart(&year, &month, &day);
  time.GetTimePart(&parts.tm_hour, &parts.tm_min, &parts.tm_sec, nullptr);
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_isdst = -1;
  return MakeLocal(parts);
}

// A bare drive or the root: always there.
bool IsDriveOrRoot(const std::string& translated) {
  return translated == "\\" || (translated.size() == 2 && translated[1] == ':');
}

// The path without trailing separators, down to a lone root separator.
std::string Trimmed(std::string path) {
  while (path.size() > 1 && path.back() == '\\') {
    path.pop_back();
  }
  return path;
}

// Whether another process has made the directory. The last error stays that of the attempt to make it.
bool AppearedMeanwhile(const std::string& path) {
  const LastErrorGuard keep;
  return QsGetFSObjectType(path) == FSO_DIRECTORY;
}

bool CreateWithParents(const std::string& path) {
  if (path.empty() || IsDriveOrRoot(path) || Exists(path)) {
    return true;
  }
  const std::string parent = DirectoryPart(path);
  if (parent == path) {
    return true;
  }
  if (!CreateWithParents(Trimmed(parent))) {
    return false;
  }
  return QsCreateDirectory(path.c_str()) || AppearedMeanwhile(path);
}

bool ClearReadOnlyForRetry(const std::string& path) {
  FileStatus status;
  return OsGetStatus(path, LinkView::Itself, status) && (!status.isReadOnly || OsClearReadOnly(path));
}

// Force: where the first attempt fails, the read-only attribute is cleared and one more made.
bool Remove(const std::string& path, bool force, bool (*remove)(const std::string&)) {
  if (path.empty()) {
    return false;
  }
  const std::string translated = QsTranslateFilename(path);
  if (remove(translated)) {
    return true;
  }
  return force && ClearReadOnlyForRetry(translated) && remove(translated);
}

std::vector<std::string> FilesMatching(const std::string& pattern) {
  std::vector<std::string> names;
  CQsFindFile find(pattern, 0);
  for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
    if (!find.IsDir() && !find.IsThisDir_PrevDir() && !find.Filename().empty()) {
      names.push_back(find.Filename());
    }
  }
  return names;
}

std::string NumberedPath(const std::string& dir, const std::string& name, const std::string& ext, int number) {
  return ConstructPath(dir, name + kRenameSuffix + std::to_string(number), ext);
}

// The first free path; empty if all numbers are taken.
std::string FreeNumberedPath(const std::string& dir, const std::string& name, const std::string& ext) {
  for (int number = 1; number <= kMaxRenameNumber; ++number) {
    std::string candidate = NumberedPath(dir, name, ext, number);
    if (!Exists(candidate)) {
      return candidate;
    }
  }
  return std::string();
}

bool MoveAside(const std::string& dir, const std::string& name, const std::string& ext) {
  const std::string current = ConstructPath(dir, name, ext);
  if (!Exists(current) || NumberedPath(dir, name, ext, 1) == current) {
    return false;  // the number would fall with what stands behind a dot in the name: nothing is free, ever
  }
  const std::string candidate = FreeNumberedPath(dir, name, ext);
  if (candidate.empty()) {
    return false;
  }
  if (!QsMoveFile(current, candidate, false, false)) {
    QsLogMsg(kLogError, "RenameFile: error renaming file " + current + " to " + candidate + ": " + LastErrorText());
    return false;
  }
  return true;
}

}  // namespace

QsFileDeleter::QsFileDeleter(const std::string& path) : _path(path) {}

QsFileDeleter::~QsFileDeleter() {
  try {
    QsDeleteFile(_path, true);
  } catch (...) {
    // nobody is there to be told
  }
}

// ---- Sizes, permissions, types, times ----

long QsGetFileSize(const char* name) {
  long size = 0;
  QsGetFileSize(name, size);
  return size;
}

std::int64_t QsGetFileSize64(const char* name) {
  std::int64_t size = 0;
  QsGetFileSize64(name, size);
  return size;
}

int QsGetFileSize(const char* name, long& size) {
  std::int64_t wide = 0;
  const int result = QsGetFileSize64(name, wide);
  size = Saturated<long>(wide);
  return result;
}

int QsGetFileSize64(const char* name, std::int64_t& size) {
  size = 0;
  if (name == nullptr || *name == '\0') {
    return -3;
  }
  FileStatus status;
  if (!OsGetStatus(QsTranslateFilename(name), LinkView::Target, status)) {
    return -2;
  }
  size = status.size;
  return 0;
}

bool QsHasFileReadPermission(const char* name) { return HasAccess(name, AccessKind::Read); }

bool QsHasFileWritePermission(const char* name) { return HasAccess(name, AccessKind::Write); }

FSOType QsGetFSObjectType(const std::string& path) {
  if (path.empty()) {
    return FSO_NOTHING;
  }
  const std::string translated = WithoutTrailingSeparator(QsTranslateFilename(path));
  FileStatus status;
  errno = 0;  // not the last error, which Windows keeps apart
  const bool known = OsGetStatus(translated, LinkView::Target, status);
  if (known && TypeOf(status.kind) != FSO_NOTHING) {
    return TypeOf(status.kind);
  }
  const int error = known ? 0 : QsGetLastError();
  if (!OsErrorMeansMissing(error)) {
    QsLogMsg(kLogWarning, "Cannot get status of file '" + translated + "', error is '" + QsErrorMessage(error) + "'");
  }
  return FSO_NOTHING;
}

bool DirExists(const std::string& path) { return Exists(path); }

bool FileDate(const std::string& path, QsDateTime& date) {
  FileStatus status;
  if (!OsGetStatus(QsTranslateFilename(path), LinkView::Target, status)) {
    return false;
  }
  DirEntry entry;
  entry.written = status.modified.seconds;
  RefreshTimeZone();
  date = EntryDate(entry);
  return true;
}

bool QsSetFileAccModTime(const std::string& path, const QsDateTime& time) {
  const std::int64_t seconds = UtcSeconds(time);
  return seconds >= 0 && OsSetTimes(QsTranslateFilename(path), seconds);
}

bool QsTouchFile(const std::string& path) { return OsTouch(QsTranslateFilename(path)); }

bool QsDiskFree(const char* path, std::int64_t& freeBytes, int* percentFree, std::int64_t* totalBytes) {
  freeBytes = 0;
  if (path == nullptr || *path == '\0') {
    return false;
  }
  std::int64_t total = 0;
  if (!OsDiskFree(DirectoryPart(path), freeBytes, total)) {
    return false;
  }
  if (percentFree != nullptr && total / 100 != 0) {
    *percentFree = Saturated<int>(freeBytes / (total / 100));
  }
  if (totalBytes != nullptr) {
    *totalBytes = total;
  }
  return true;
}

// ---- Directories ----

bool QsCreateDirectory(const char* path) {
  return path != nullptr && *path != '\0' && OsMakeDirectory(QsTranslateFilename(path));
}

bool ForceCreateDirectories(const std::string& path) {
  if (path.empty()) {
    return true;
  }
  return path.size() <= kMaxCreatedPath && CreateWithParents(Trimmed(QsTranslateFilename(path)));
}

bool QsRemoveDir(const std::string& path, bool force) { return Remove(path, force, &OsRemoveDirectory); }

bool QsRenameDir(const std::string& from, const std::string& to) { return OsMove(from, to, false) == MoveResult::Done; }

// ---- Delete and rename ----

bool QsDeleteFile(const std::string& path, bool force) { return Remove(path, force, &OsRemoveFile); }

unsigned QsDeleteFiles(const std::string& pattern, bool force) {
  const std::string translated = QsTranslateFilename(pattern);
  if (translated.empty()) {
    return 0;
  }
  const std::string dir = DirectoryPart(translated);
  unsigned deleted = 0;
  for (const std::string& name : FilesMatching(translated)) {
    deleted += QsDeleteFile(dir + name, force) ? 1 : 0;
  }
  return deleted;
}

bool RenameFile(const std::string& dir, const std::string& name, const std::string& ext) {
  try {
    return MoveAside(QsTranslateFilename(dir), name, ext);
  } catch (const ExBase&) {
    return false;
  } catch (const std::exception&) {
    return false;
  }
}

bool RenameFile(const std::string& pathWithoutExt, const std::string& ext) {
  return RenameFile(ExtractFilePath(pathWithoutExt), ExtractFileName(pathWithoutExt), ext);
}

void DeleteRenamedFiles(const std::string& dir, const std::string& name, const std::string& ext) {
  QsDeleteFiles(ConstructPath(dir, name + kRenameSuffix + "*", ext), false);
}

void DeleteRenamedFiles(const std::string& pathWithoutExt, const std::string& ext) {
  DeleteRenamedFiles(ExtractFilePath(pathWithoutExt), ExtractFileName(pathWithoutExt), ext);
}

void DeleteRenamedFiles(const std::string& pattern) { QsDeleteFiles(pattern, false); }

bool TestCreateFile(const std::string& path) {
  const QsFile file(QsTranslateFilename(path).c_str(), "a");
  return file.IsOpen();
}
