// Extraction of one entry.
#include <QSbase/support/zipextract.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>

#include <QSbase/lasterrorguard.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/support/filedetail.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/zlibsupport.h>

namespace qsbase::detail {

namespace {

constexpr std::uint64_t kMostBytes = std::numeric_limits<int>::max();

// The file that an entry goes to. One that was there before is replaced when everything has been written.
class TargetFile {
 public:
  explicit TargetFile(const EntryTarget& target) : _target(target), _path(target.path) {}
  TargetFile(const TargetFile&) = delete;
  TargetFile& operator=(const TargetFile&) = delete;

  ~TargetFile() {
    const LastErrorGuard keep;
    try {
      Drop();
    } catch (const std::bad_alloc&) {
      return;  // for the file's name: it stays, empty
    }
  }

  bool Open() { return OpenOnce() || (ForceCreateDirectories(ExtractFilePath(_path)) && OpenOnce()); }

  bool Write(const char* bytes, std::size_t size) { return _file.Write(bytes, size); }

  // Everything is there.
  bool Finish() {
    if ((_target.flush && !_file.Flush()) || !_file.Close() || (!_temporary.empty() && !TakePlace())) {
      return false;
    }
    _state = State::Done;
    return true;
  }

 private:
  enum class State { Closed, Made, Overwriting, Done };

  bool OpenOnce() {
    switch (_file.CreateNew(_path, kDefaultPermissions)) {
      case OsFile::Creation::Created:
        _state = State::Made;
        return true;
      case OsFile::Creation::Exists:
        return Replace();
      case OsFile::Creation::Failed:
        break;
    }
    return false;
  }

  bool Replace() {
    FileStatus old;
    if (!OsGetStatus(_path, LinkView::Itself, old)) {
      return false;
    }
    const bool isFile = old.kind == FileKind::Regular;
    const bool isLink = old.kind == FileKind::Link;
    if (_target.onlyFiles && !isFile && !isLink) {
      return false;  // a pipe would wait for its reader
    }
    if (isFile && !OsHasAccess(_path, AccessKind::Write)) {
      return false;
    }
    if ((isFile || (isLink && _target.onlyFiles)) && MakeBeside(old, isFile)) {
      return true;
    }
    return !(isLink && _target.onlyFiles) && Overwrite();
  }

  bool MakeBeside(const FileStatus& old, bool isFile) {
    const unsigned permissions = isFile ? old.permissions : kDefaultPermissions;
    if (CreateBeside(_path, permissions, _file, _temporary) != OsFile::Creation::Created) {
      _temporary.clear();
      return false;
    }
    if (isFile) {
      _file.SetPermissions(permissions);
    }
    _state = State::Made;
    return true;
  }

  bool Overwrite() {
    if (!_file.OpenWrite(_path, OsFile::Writing::Truncate)) {
      return false;
    }
    _state = State::Overwriting;
    return true;
  }

  // A file that nothing can take the name of is written over: on Windows one that somebody reads, on Linux another's in
  // a folder where everybody may remove their own only. Never what has become a link.
  bool TakePlace() {
    if (OsMove(_temporary, _path, true) == MoveResult::Done) {
      return true;
    }
    FileStatus old;
    if (!OsGetStatus(_path, LinkView::Itself, old) || old.kind != FileKind::Regular) {
      return false;
    }
    if (!CopyOver(old.size)) {
      return false;
    }
    OsRemoveFile(_temporary);
    return true;
  }

  // If that breaks off, the old file is lost, and the new one stays under its temporary name.
  bool CopyOver(std::int64_t oldSize) {
    if (QsCopyFile(_temporary, _path, false, false)) {
      return !_target.flush || FlushTarget();
    }
    const LastErrorGuard keep;
    FileStatus now;
    if (!OsGetStatus(_path, LinkView::Itself, now) || now.size != oldSize) {
      _state = State::Done;
    }
    return false;
  }

  bool FlushTarget() {
    OsFile file;
    return file.OpenWrite(_path, OsFile::Writing::Keep) && file.Flush();
  }

  // Half a file must not pass for a whole one. What another hand made, such as a link or a device, is not removed.
  void Drop() {
    if (_state == State::Overwriting || _state == State::Made) {
      _file.Truncate();  // also where it cannot be removed
    }
    if (_state == State::Made) {
      _file.Close();  // some systems remove no open file
      QsDeleteFile(_temporary.empty() ? _path : _temporary, true);
    }
  }

  const EntryTarget& _target;
  const std::string _path;
  OsFile _file;
  std::string _temporary;
  State _state = State::Closed;
};

// In blocks of the chunk's size, or larger ones where it is small: each costs a call of the decoder and of the system.
int CopyToFile(EntryReader& reader, TargetFile& file, int chunkSize) {
  constexpr int kLeastBlock = 65536;
  const auto size = static_cast<std::size_t>(std::max(chunkSize, kLeastBlock));
  const std::unique_ptr<char[]> block(new (std::nothrow) char[size]);
  if (!block) {
    return -4;
  }
  int count = 0;
  while ((count = reader.Read(block.get(), size)) > 0) {
    if (!file.Write(block.get(), static_cast<std::size_t>(count))) {
      return -6;
    }
  }
  return count < 0 ? -5 : reader.Close();
}

int ExtractToFile(EntryReader& reader, const EntryTarget& target) {
  TargetFile file(target);
  if (!file.Open()) {
    return -3;
  }
  const int result = CopyToFile(reader, file, target.chunkSize);
  if (result != 0) {
    return result;
  }
  return file.Finish() ? 0 : -6;
}

// Memory for free(), which grows with what is decoded: a size that the archive states costs nothing by itself.
class GrowingBuffer {
 public:
  explicit GrowingBuffer(std::size_t limit) : _limit(limit) {}
  ~GrowingBuffer() { std::free(_bytes); }
  GrowingBuffer(const GrowingBuffer&) = delete;
  GrowingBuffer& operator=(const GrowingBuffer&) = delete;

  // Makes room, unless there is some or the limit is reached.
  bool Grow() {
    constexpr std::size_t kFirst = std::size_t{1} << 20;
    if (_bytes != nullptr && (_used < _capacity || _capacity == _limit)) {
      return true;
    }
    const std::size_t capacity = std::min(_limit, std::max(kFirst, _capacity * 2));
    char* const bytes = static_cast<char*>(std::realloc(_bytes, std::max<std::size_t>(capacity, 1)));
    if (bytes == nullptr) {
      return false;
    }
    _bytes = bytes;
    _capacity = capacity;
    return true;
  }

  char* Free() { return _bytes + _used; }
  std::size_t FreeSize() const { return _capacity - _used; }
  void Use(std::size_t count) { _used += count; }

  char* Release() {
    char* const bytes = _bytes;
    _bytes = nullptr;
    return bytes;
  }

 private:
  const std::size_t _limit;
  char* _bytes = nullptr;
  std::size_t _used = 0;
  std::size_t _capacity = 0;
};

int ExtractToMemory(EntryReader& reader, std::uint64_t size, const EntryTarget& target) {
  if (size > kMostBytes) {
    return -4;
  }
  GrowingBuffer content(static_cast<std::size_t>(size));
  int count = 0;
  do {
    if (!content.Grow()) {
      return -4;
    }
    count = reader.Read(content.Free(), content.FreeSize());
    if (count < 0) {
      return -5;
    }
    content.Use(static_cast<std::size_t>(count));
  } while (count > 0);
  const int result = reader.Close();
  if (result == 0) {
    *target.buffer = content.Release();
    *target.size = static_cast<int>(size);
  }
  return result;
}

int StateSize(std::uint64_t size, const EntryTarget& target) {
  if (size > kMostBytes) {
    *target.size = 0;
    return -4;
  }
  *target.size = static_cast<int>(size);
  return 1;
}

// Whether there is anything to extract to. A buffer is empty from then on.
bool PrepareTarget(const EntryTarget& target) {
  if (target.path != nullptr) {
    return true;
  }
  if (target.size == nullptr) {
    return false;
  }
  if (target.buffer != nullptr) {
    *target.buffer = nullptr;
    *target.size = 0;
  }
  return true;
}

int Extract(const OpenedArchive& archive, const char* nameInZip, const EntryTarget& target) {
  if (archive.handle == nullptr) {
    return -12;
  }
  if (nameInZip != nullptr && *nameInZip == '\0') {
    return -11;
  }
  if (nameInZip != nullptr && !LocateEntry(archive.handle, nameInZip)) {
    return -1;
  }
  if (!PrepareTarget(target)) {
    return -10;
  }
  ZipEntry entry;
  return ReadEntry(archive, entry) == UNZ_OK ? ExtractEntry(archive, entry, target) : -4;
}

int ExtractFromPath(const char* zipPath, const char* nameInZip, const EntryTarget& target) {
  if (zipPath == nullptr || *zipPath == '\0') {
    return -101;
  }
  const std::string path = QsTranslateFilename(zipPath);
  if (!DirExists(path)) {
    return -102;
  }
  UnzipArchive archive;
  if (!OpenArchive(archive, path)) {
    return -103;
  }
  const int result = Extract({archive.Handle(), &archive}, nameInZip, target);
  CloseArchive(archive, path);
  return result;
}

}  // namespace

int ExtractEntry(const OpenedArchive& archive, const ZipEntry& entry, const EntryTarget& target) {
  constexpr uLong kEncrypted = 1U << 0 | 1U << 7;
  constexpr uLong kStored = 0;
  const unz_file_info64& info = entry.info;
  if (info.compression_method != kStored && info.compression_method != Z_DEFLATED) {
    return -13;
  }
  if ((info.flag & kEncrypted) != 0) {
    return -14;
  }
  if (target.path == nullptr && target.buffer == nullptr) {
    return StateSize(info.uncompressed_size, target);
  }
  EntryReader reader(archive, entry);
  if (!reader.Open()) {
    return -2;
  }
  return target.path != nullptr ? ExtractToFile(reader, target)
                                : ExtractToMemory(reader, info.uncompressed_size, target);
}

bool OpenArchive(UnzipArchive& archive, const std::string& path) {
  if (archive.Open(path)) {
    return true;
  }
  QsLogMsg(kLogError, "error opening archive: %s", path.c_str());
  return false;
}

void CloseArchive(UnzipArchive& archive, const std::string& path) {
  const int result = archive.Close();
  if (result != UNZ_OK) {
    QsLogMsg(kLogError, "Could not close archive %s (%d)", path.c_str(), result);
  }
}

}  // namespace qsbase::detail

using namespace qsbase::detail;

int QsExtractFile(void* archive, const char* nameInZip, const char* destPath, char** buffer, int* size, int chunkSize) {
  return Extract({archive}, nameInZip, {destPath, buffer, size, chunkSize});
}

int QsExtractFileSimple(const char* zipPath, const char* nameInZip, const char* destPath, char** buffer, int* size,
                        int chunkSize) {
  return ExtractFromPath(zipPath, nameInZip, {destPath, buffer, size, chunkSize});
}

int QsExtractFileSimpleFlush(const char* zipPath, const char* nameInZip, const char* destPath, char** buffer, int* size,
                             int chunkSize) {
  return ExtractFromPath(zipPath, nameInZip, {destPath, buffer, size, chunkSize, true});
}
