#include <QSbase/support/zipentry.h>

#include <algorithm>
#include <limits>

#include <QSbase/support/fileos.h>
#include <QSbase/support/paths.h>

namespace qsbase::detail {

namespace {

constexpr const char* kSeparators = "/\\";

char Folded(char c) {
#ifdef _WIN32  // where names of files have no case
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
#else
  return c;
#endif
}

bool IsSameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Folded(x) == Folded(y); });
}

bool IsSafeComponent(std::string_view component) {
#ifdef _WIN32  // the system cuts blanks and dots off the end, and "nul", "a:b" and "c:" are no files
  const std::string name(component);
  return component == "." || QsMakeCompatibleFilename(name) == name;
#else
  return component != "..";
#endif
}

}  // namespace

int ReadEntry(unzFile archive, ZipEntry& entry) {
  entry.name.resize(kEntryNameSize);
  const int result = unzGetCurrentFileInfo64(archive, &entry.info, entry.name.data(),
                                             static_cast<uLong>(entry.name.size()), nullptr, 0, nullptr, 0);
  entry.name.resize(result == UNZ_OK ? std::min<std::size_t>(entry.info.size_filename, kEntryNameSize) : 0);
  return result;
}

bool LocateEntry(unzFile archive, std::string_view name) {
  unz64_file_pos before;
  const bool hadEntry = unzGetFilePos64(archive, &before) == UNZ_OK;
  ZipEntry entry;
  for (int result = unzGoToFirstFile(archive); result == UNZ_OK; result = unzGoToNextFile(archive)) {
    if (ReadEntry(archive, entry) != UNZ_OK) {
      break;
    }
    if (entry.info.size_filename == name.size() && IsSameName(entry.name, name)) {
      return true;
    }
  }
  if (hadEntry) {
    unzGoToFilePos64(archive, &before);
  }
  return false;
}

bool IsDirectoryEntry(std::string_view name) {
  return !name.empty() && name.find_last_of(kSeparators) == name.size() - 1;
}

std::string_view EntryFolder(std::string_view name) {
  const std::size_t end = name.find_last_of(kSeparators);
  return end == std::string_view::npos ? std::string_view() : name.substr(0, end);
}

bool IsSafeEntryName(const ZipEntry& entry) {
  const std::string_view name = entry.name;
  if (entry.info.size_filename >= kEntryNameSize || name.find('\0') != std::string_view::npos) {
    return false;
  }
  for (std::size_t start = 0; start <= name.size();) {
    const std::size_t end = std::min(name.find_first_of(kSeparators, start), name.size());
    if (!IsSafeComponent(name.substr(start, end - start))) {
      return false;
    }
    start = end + 1;
  }
  return true;
}

bool HasLinkBelow(const std::string& folder, std::string_view path) {
  std::size_t end = 0;
  while (end < path.size()) {
    end = std::min(path.find_first_of(kSeparators, end + 1), path.size());
    FileStatus status;
    if (!OsGetStatus(folder + std::string(path.substr(0, end)), LinkView::Itself, status)) {
      return false;  // nor can there be anything behind it
    }
    if (status.kind == FileKind::Link) {
      return true;
    }
  }
  return false;
}

EntryReader::EntryReader(unzFile archive, const unz_file_info64& info)
    : _archive(archive), _info(info), _left(info.uncompressed_size) {}

EntryReader::~EntryReader() {
  if (_inflating) {
    inflateEnd(&_stream);
  }
  if (_open) {
    unzCloseCurrentFile(_archive);
  }
}

// Deflated content is inflated here: minizip stops at the size that the archive states and does not say whether that
// is all.
bool EntryReader::Open() {
  constexpr int kRaw = 1;
  int method = 0;
  int level = 0;
  const int result = IsDeflated() ? unzOpenCurrentFile2(_archive, &method, &level, kRaw) : unzOpenCurrentFile(_archive);
  _open = result == UNZ_OK;
  _inflating = _open && IsDeflated() && inflateInit2(&_stream, -MAX_WBITS) == Z_OK;
  return _open && _inflating == IsDeflated();
}

int EntryReader::Read(char* out, std::size_t size) {
  constexpr std::size_t kMost = std::numeric_limits<int>::max();
  const std::uint64_t wanted = std::min<std::uint64_t>({size, _left, kMost});
  if (!IsDeflated()) {
    const bool whole = _info.compressed_size == _info.uncompressed_size;
    const int count = whole ? unzReadCurrentFile(_archive, out, static_cast<unsigned>(wanted)) : -1;
    _left -= count > 0 ? static_cast<std::uint64_t>(count) : 0;
    return count < 0 || static_cast<std::uint64_t>(count) != wanted ? -1 : count;
  }
  _stream.next_out = reinterpret_cast<unsigned char*>(out);
  _stream.avail_out = static_cast<uInt>(wanted);
  while (_stream.avail_out != 0) {
    if (_ended || Inflate() != Z_OK) {
      return -1;
    }
  }
  _crc = crc32(_crc, reinterpret_cast<const unsigned char*>(out), static_cast<uInt>(wanted));
  _left -= wanted;
  return static_cast<int>(wanted);
}

int EntryReader::Close() {
  if (IsDeflated() && _crc != _info.crc) {
    return -8;
  }
  if (IsDeflated() && !EndsHere()) {
    return -5;
  }
  _open = false;
  const int result = unzCloseCurrentFile(_archive);
  return result == UNZ_CRCERROR ? -8 : result == UNZ_OK ? 0 : -7;
}

bool EntryReader::Fill() {
  const int count = unzReadCurrentFile(_archive, _input.data(), static_cast<unsigned>(_input.size()));
  _stream.next_in = _input.data();
  _stream.avail_in = count > 0 ? static_cast<uInt>(count) : 0;
  return count > 0;
}

// One step. Z_OK also at the end of the stream.
int EntryReader::Inflate() {
  if (_stream.avail_in == 0 && !Fill()) {
    return Z_BUF_ERROR;
  }
  const int result = inflate(&_stream, Z_NO_FLUSH);
  _ended = result == Z_STREAM_END;
  return _ended ? Z_OK : result;
}

bool EntryReader::EndsHere() {
  if (_info.uncompressed_size == 0 && _info.compressed_size == 0) {
    return true;  // some writers leave the empty stream out
  }
  unsigned char more = 0;
  _stream.next_out = &more;
  _stream.avail_out = 1;
  while (!_ended && _stream.avail_out != 0) {
    if (Inflate() != Z_OK) {
      return false;
    }
  }
  return _stream.avail_out != 0;
}

}  // namespace qsbase::detail
