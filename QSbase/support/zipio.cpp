#include <QSbase/support/zipio.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include <QSbase/lasterrorguard.h>
#include <QSbase/support/filedetail.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/filesupport.h>

namespace qsbase::detail {

namespace {

// minizip reads the archive's records byte by byte, in turn those at the end and those before the entries: each of the
// two has its window into the file.
constexpr std::size_t kWindow = 16384;

// Of an archive that is added to: more than the records of millions of entries.
constexpr std::int64_t kLongestTail = std::int64_t{1} << 30;

// The absolute position that minizip means; nothing if that would be before the start. A step back comes as an
// unsigned number.
std::optional<std::uint64_t> Target(std::uint64_t position, std::uint64_t size, ZPOS64_T offset, int origin) {
  const std::uint64_t base = origin == ZLIB_FILEFUNC_SEEK_CUR ? position : origin == ZLIB_FILEFUNC_SEEK_END ? size : 0;
  const std::uint64_t target = base + offset;
  return target <= INT64_MAX ? std::optional<std::uint64_t>(target) : std::nullopt;
}

}  // namespace

class UnzipArchive::Input {
 public:
  bool Open(const std::string& path) {
    FileStatus status;
    if (!_file.OpenRead(path) || !_file.Describe(status)) {
      return false;
    }
    _size = static_cast<std::uint64_t>(status.size);
    return true;
  }

  std::size_t Read(char* out, std::size_t size) {
    if (size >= kWindow) {
      return ReadFile(out, size);
    }
    std::size_t done = 0;
    while (done < size) {
      const Window* const window = FindWindow();
      if (window == nullptr) {
        _failed = true;  // minizip would take what is missing for zeros
        break;
      }
      const std::size_t skipped = static_cast<std::size_t>(_position - window->start);
      const std::size_t count = std::min(size - done, window->size - skipped);
      std::memcpy(out + done, window->bytes.data() + skipped, count);
      done += count;
      _position += count;
    }
    return done;
  }

  ZPOS64_T Tell() const { return _position; }

  bool Seek(ZPOS64_T offset, int origin) {
    const std::optional<std::uint64_t> target = Target(_position, _size, offset, origin);
    firstSeek = firstSeek ? firstSeek : target;
    _position = target.value_or(_position);
    return target.has_value();
  }

  bool IsFailed() const { return _failed; }

  bool Close() { return _file.Close(); }

  std::optional<std::uint64_t> firstSeek;

  static zlib_filefunc64_def Functions(Input& input) {
    zlib_filefunc64_def functions{};
    functions.zopen64_file = [](voidpf opaque, const void* path, int) -> voidpf {
      return static_cast<Input*>(opaque)->Open(*static_cast<const std::string*>(path)) ? opaque : nullptr;
    };
    functions.zread_file = [](voidpf, voidpf stream, void* buffer, uLong size) {
      return static_cast<uLong>(static_cast<Input*>(stream)->Read(static_cast<char*>(buffer), size));
    };
    functions.zwrite_file = [](voidpf, voidpf, const void*, uLong) { return uLong{0}; };
    functions.ztell64_file = [](voidpf, voidpf stream) { return static_cast<Input*>(stream)->Tell(); };
    functions.zseek64_file = [](voidpf, voidpf stream, ZPOS64_T offset, int origin) {
      return static_cast<Input*>(stream)->Seek(offset, origin) ? 0L : -1L;
    };
    functions.zclose_file = [](voidpf, voidpf stream) { return static_cast<Input*>(stream)->Close() ? 0 : EOF; };
    functions.zerror_file = [](voidpf, voidpf stream) { return static_cast<Input*>(stream)->IsFailed() ? 1 : 0; };
    functions.opaque = &input;
    return functions;
  }

 private:
  struct Window {
    std::uint64_t start = 0;
    std::size_t size = 0;
    std::array<char, kWindow> bytes;

    bool Holds(std::uint64_t position) const { return position >= start && position - start < size; }
  };

  // The window that holds the current position; null at the end of the file and if it cannot be read.
  const Window* FindWindow() {
    if (!_windows[_recent].Holds(_position)) {
      _recent = 1 - _recent;
    }
    Window& window = _windows[_recent];
    if (!window.Holds(_position)) {
      window.start = _position;
      window.size = ReadFile(window.bytes.data(), kWindow);
      _position = window.start;
    }
    return window.size == 0 ? nullptr : &window;
  }

  std::size_t ReadFile(char* out, std::size_t size) {
    if (_position != _filePosition && !_file.Seek(_position)) {
      _failed = true;
      return 0;
    }
    const std::ptrdiff_t count = _file.Read(out, size);
    if (count < 0) {
      _failed = true;
      _filePosition = kUnknown;
      return 0;
    }
    _position += static_cast<std::uint64_t>(count);
    _filePosition = _position;
    return static_cast<std::size_t>(count);
  }

  static constexpr std::uint64_t kUnknown = UINT64_MAX;

  OsFile _file;
  std::uint64_t _size = 0;
  std::uint64_t _position = 0;      // minizip's
  std::uint64_t _filePosition = 0;  // the system's
  bool _failed = false;
  std::array<Window, 2> _windows;
  std::size_t _recent = 0;
};

UnzipArchive::UnzipArchive() = default;

UnzipArchive::~UnzipArchive() {
  const LastErrorGuard keep;
  Close();
}

bool UnzipArchive::Open(const std::string& path) {
  _input.reset(new (std::nothrow) Input);
  if (!_input) {
    return false;
  }
  zlib_filefunc64_def functions = Input::Functions(*_input);
  _handle = unzOpen2_64(&path, &functions);
  if (_handle == nullptr) {
    const LastErrorGuard keep;
    _input.reset();
  }
  return _handle != nullptr;
}

std::size_t UnzipArchive::ReadAt(std::uint64_t position, void* out, std::size_t size) const {
  return _input->Seek(position, ZLIB_FILEFUNC_SEEK_SET) ? _input->Read(static_cast<char*>(out), size) : 0;
}

void UnzipArchive::ForgetSeek() const { _input->firstSeek.reset(); }

std::optional<std::uint64_t> UnzipArchive::FirstSeek() const { return _input->firstSeek; }

int UnzipArchive::Close() {
  const int result = _handle == nullptr ? UNZ_OK : unzClose(_handle);
  _handle = nullptr;
  _input.reset();
  return result;
}

class ZipArchive::Output {
 public:
  ~Output() {
    Close();
    if (!_kept) {
      GiveBack();
    }
  }

  bool Open(const std::string& path, int mode) noexcept {
    try {
      _path = path;
      return (mode & ZLIB_FILEFUNC_MODE_CREATE) != 0 ? OpenAnew() : OpenOld();
    } catch (const std::bad_alloc&) {
      return false;
    }
  }

  // What was written is the archive from now on.
  bool Keep() {
    _kept = Close() && CutOldRest() && (_made.empty() || TakePlace());
    return _kept;
  }

  std::size_t Read(void* buffer, std::size_t size) { return std::fread(buffer, 1, size, _stream); }

  std::size_t Write(const void* bytes, std::size_t size) {
    if (_failed || (_saves && !SaveTail())) {
      _failed = true;
      return size;  // Close() tells: minizip loses memory where it is told at an entry's beginning
    }
    const std::size_t count = std::fwrite(bytes, 1, size, _stream);
    _failed = _failed || count != size;
    return count;
  }

  ZPOS64_T Tell() const { return static_cast<ZPOS64_T>(OsTell(_stream)); }

  // What the stream holds back is written now, and may fail.
  bool Seek(ZPOS64_T offset, int origin) {
    constexpr ZPOS64_T kMax = INT64_MAX;
    const int whence = origin == ZLIB_FILEFUNC_SEEK_CUR   ? SEEK_CUR
                       : origin == ZLIB_FILEFUNC_SEEK_END ? SEEK_END
                                                          : SEEK_SET;
    const bool done = offset <= kMax && OsSeek(_stream, static_cast<std::int64_t>(offset), whence);
    _failed = _failed || !done;
    return done;
  }

  bool Close() {
    if (std::FILE* const stream = std::exchange(_stream, nullptr); stream != nullptr) {
      _end = OsTell(stream);                          // minizip writes the end of the records last
      const bool written = std::ferror(stream) == 0;  // also what was written when it moved
      _failed = OsCloseStream(stream) != 0 || !written || _failed;
    }
    return !_failed;
  }

  bool IsFailed() const { return _failed || (_stream != nullptr && std::ferror(_stream) != 0); }

  static zlib_filefunc64_def Functions(Output& output) {
    zlib_filefunc64_def functions{};
    functions.zopen64_file = [](voidpf opaque, const void* path, int mode) -> voidpf {
      return static_cast<Output*>(opaque)->Open(*static_cast<const std::string*>(path), mode) ? opaque : nullptr;
    };
    functions.zread_file = [](voidpf, voidpf stream, void* buffer, uLong size) {
      return static_cast<uLong>(static_cast<Output*>(stream)->Read(buffer, size));
    };
    functions.zwrite_file = [](voidpf, voidpf stream, const void* bytes, uLong size) {
      return static_cast<uLong>(static_cast<Output*>(stream)->Write(bytes, size));
    };
    functions.ztell64_file = [](voidpf, voidpf stream) { return static_cast<Output*>(stream)->Tell(); };
    functions.zseek64_file = [](voidpf, voidpf stream, ZPOS64_T offset, int origin) {
      return static_cast<Output*>(stream)->Seek(offset, origin) ? 0L : -1L;
    };
    functions.zclose_file = [](voidpf, voidpf stream) { return static_cast<Output*>(stream)->Close() ? 0 : EOF; };
    functions.zerror_file = [](voidpf, voidpf stream) { return static_cast<Output*>(stream)->IsFailed() ? 1 : 0; };
    functions.opaque = &output;
    return functions;
  }

 private:
  bool OpenAnew() {
    OsFile file;
    if (!MakeBeside(file)) {
      return false;
    }
    const bool closed = file.Close();  // some systems open no file twice
    _stream = closed ? OsOpenStream(_made.empty() ? _path : _made, "wb") : nullptr;
    return _stream != nullptr;
  }

  // Also where nothing stands: of two that make an archive there at once, one must not remove or write over the
  // other's. False if no file can be made, or what stands there must not be written. Without a new file that is written
  // to itself.
  bool MakeBeside(OsFile& file) {
    std::string name;
    FileStatus old;
    _replaces = OsGetStatus(_path, LinkView::Itself, old);
    if (!_replaces) {
      if (CreateBeside(TemporaryBase(_path), kDefaultPermissions, file, name) != OsFile::Creation::Created) {
        return false;
      }
      _made.swap(name);
      return true;
    }
    if (old.kind != FileKind::Regular) {
      return true;
    }
    OsFile given;
    if (!given.OpenWrite(_path, OsFile::Writing::Keep)) {
      return false;
    }
    if (CreateBeside(TemporaryBase(_path), old.permissions, file, name) != OsFile::Creation::Created) {
      return true;
    }
    if (given.MayGiveWayTo(file)) {
      file.SetPermissions(old.permissions);
      _made.swap(name);
    } else {
      file.Close();  // some systems remove no open file
      OsRemoveFile(name);
    }
    return true;
  }

  // The records of the old archive may have been longer, by a comment.
  bool CutOldRest() { return _tail.empty() || (_end >= 0 && _old.Truncate(static_cast<std::uint64_t>(_end))); }

  // Where nothing can take the old archive's name, as on Windows while somebody reads it, it is written over. If that
  // breaks off, the new one stays under its own name.
  bool TakePlace() {
    if (OsMove(_made, _path, _replaces) == MoveResult::Done) {
      return true;
    }
    if (!_replaces) {
      return false;  // somebody else has made one meanwhile
    }
    if (!QsCopyFile(_made, _path, false, false)) {
      if (QsGetFileSize64(_path.c_str()) <= 0) {
        _made.clear();
      }
      return false;
    }
    OsRemoveFile(_made);
    return true;
  }

  bool OpenOld() {
    _stream = OsOpenStream(_path, "r+b");
    _saves = _stream != nullptr;
    return _saves;
  }

  // What is behind the position of the first write: the old archive's records.
  bool SaveTail() noexcept {
    _saves = false;
    const std::int64_t start = OsTell(_stream);
    if (start < 0 || !OsSeek(_stream, 0, SEEK_END)) {
      return false;
    }
    const std::int64_t size = OsTell(_stream) - start;
    if (size < 0 || size > kLongestTail) {
      return false;
    }
    try {
      std::string tail(static_cast<std::size_t>(size), '\0');
      // Not by its name, which may be another file's by now.
      if (!_old.OpenSame(_stream) || !OsSeek(_stream, start, SEEK_SET) ||
          Read(tail.data(), tail.size()) != tail.size() || !OsSeek(_stream, start, SEEK_SET)) {
        return false;
      }
      _tail.swap(tail);
    } catch (const std::exception&) {
      return false;
    }
    _tailStart = static_cast<std::uint64_t>(start);
    return true;
  }

  void GiveBack() noexcept {
    if (!_tail.empty() && _old.Seek(_tailStart) && _old.Write(_tail.data(), _tail.size())) {
      _old.Truncate(_tailStart + _tail.size());
    }
    try {
      if (!_made.empty()) {
        OsRemoveFile(_made);
      }
    } catch (const std::exception&) {
      return;  // no memory for its name: nobody is there to be told
    }
  }

  std::string _path;
  std::string _made;  // the new file, if there is one
  std::string _tail;  // of the old archive, if it is written to
  OsFile _old;        // to put it back, for which there may be neither memory nor descriptor later
  std::uint64_t _tailStart = 0;
  std::FILE* _stream = nullptr;
  std::int64_t _end = -1;  // where the last write ended
  bool _replaces = true;   // something stood at the path
  bool _saves = false;     // the next write is the first to the old archive
  bool _failed = false;
  bool _kept = false;
};

ZipArchive::ZipArchive() = default;

ZipArchive::~ZipArchive() {
  const LastErrorGuard keep;
  if (_handle != nullptr) {
    zipClose(_handle, "");  // releases minizip's memory
  }
}

bool ZipArchive::Open(const std::string& path, Writing writing) {
  _output.reset(new (std::nothrow) Output);
  if (!_output) {
    return false;
  }
  zlib_filefunc64_def functions = Output::Functions(*_output);
  const int status = writing == Writing::Append ? APPEND_STATUS_ADDINZIP : APPEND_STATUS_CREATE;
  _handle = zipOpen2_64(&path, status, nullptr, &functions);
  if (_handle == nullptr) {
    const LastErrorGuard keep;
    _output.reset();
  }
  return _handle != nullptr;
}

bool ZipArchive::Close() {
  if (_handle == nullptr) {
    return true;
  }
  const int result = zipClose(std::exchange(_handle, nullptr), "");  // whatever is thrown: not twice
  const bool closed = result == ZIP_OK && !_output->IsFailed() && _output->Keep();
  const LastErrorGuard keep;
  _output.reset();
  return closed;
}

}  // namespace qsbase::detail
