#include <QSbase/support/zipentry.h>

#include <algorithm>
#include <limits>

#include <QSbase/support/fileos.h>
#include <QSbase/support/paths.h>

namespace qsbase::detail {

namespace {

constexpr const char* kSeparators = "/\\";
constexpr std::uint64_t kIn64Bits = 0xFFFFFFFF;  // what stands in 32 bits for a number that has more

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

std::uint64_t Number(const char* bytes, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i > 0; --i) {
    value = value << 8 | static_cast<unsigned char>(bytes[i - 1]);
  }
  return value;
}

// The extra field is left to a host's archive where minizip gets it right: where `long` has 32 bits it seeks 4 GiB too
// far when it is asked for a name as well.
int ReadRecord(unzFile archive, ZipEntry& entry, std::string* extra) {
  entry.name.resize(kEntryNameSize);
  const int result = unzGetCurrentFileInfo64(
      archive, &entry.info, entry.name.data(), static_cast<uLong>(kEntryNameSize),
      extra == nullptr ? nullptr : extra->data(), static_cast<uLong>(extra == nullptr ? 0 : extra->size()), nullptr, 0);
  entry.name.resize(result == UNZ_OK ? std::min<std::size_t>(entry.info.size_filename, kEntryNameSize) : 0);
  return result;
}

// The content of the extra field that holds what has no room in 32 bits.
std::string_view Zip64Field(std::string_view extra) {
  constexpr std::uint64_t kZip64 = 1;
  while (extra.size() >= 4) {
    const std::uint64_t id = Number(extra.data(), 2);
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(Number(extra.data() + 2, 2), extra.size() - 4));
    if (id == kZip64) {
      return extra.substr(4, size);
    }
    extra.remove_prefix(4 + size);
  }
  return {};
}

// What a record states in 32 bits, and in its extra field where that is too few.
struct Stated {
  std::uint64_t compressedSize;
  std::uint64_t size;
  std::uint64_t position;

  void TakeZip64(std::string_view field) {
    for (std::uint64_t* value : {&size, &compressedSize, &position}) {
      if (*value == kIn64Bits && field.size() >= 8) {
        *value = Number(field.data(), 8);
        field.remove_prefix(8);
      }
    }
  }
};

// Reads anew, from the record itself, what minizip may misread. What an archive has in front of it (a program that
// extracts it) counts in no position within it.
bool ReadOwnRecord(const UnzipArchive& archive, ZipEntry& entry) {
  constexpr std::size_t kSize = 46;
  const std::uint64_t record = archive.FirstSeek().value_or(0);
  const std::uint64_t front = record - unzGetOffset64(archive.Handle());
  char bytes[kSize];
  std::string extra(entry.info.size_file_extra, '\0');
  if (archive.ReadAt(record, bytes, kSize) != kSize ||
      archive.ReadAt(record + kSize + entry.info.size_filename, extra.data(), extra.size()) != extra.size()) {
    return false;
  }
  Stated stated = {Number(bytes + 20, 4), Number(bytes + 24, 4), Number(bytes + 42, 4)};
  stated.TakeZip64(Zip64Field(extra));
  entry.info.compressed_size = stated.compressedSize;
  entry.info.uncompressed_size = stated.size;
  entry.position = stated.position + front;
  return true;
}

int ReadHostRecord(unzFile archive, ZipEntry& entry) {
  constexpr bool kMinizipReadsZip64 = sizeof(long) == 4;
  if (kMinizipReadsZip64) {
    return ReadRecord(archive, entry, nullptr);
  }
  constexpr std::size_t kExtraSize = 4096;
  std::string extra(kExtraSize, '\0');
  const int result = ReadRecord(archive, entry, &extra);
  if (result == UNZ_OK) {
    Stated stated = {entry.info.compressed_size, entry.info.uncompressed_size, 0};
    stated.TakeZip64(Zip64Field(std::string_view(extra).substr(0, entry.info.size_file_extra)));
    entry.info.compressed_size = stated.compressedSize;
    entry.info.uncompressed_size = stated.size;
  }
  return result;
}

}  // namespace

int ReadEntry(const OpenedArchive& archive, ZipEntry& entry) {
  if (archive.own == nullptr) {
    return ReadHostRecord(archive.handle, entry);
  }
  archive.own->ForgetSeek();
  const int result = ReadRecord(archive.handle, entry, nullptr);
  return result == UNZ_OK && !ReadOwnRecord(*archive.own, entry) ? UNZ_ERRNO : result;
}

bool LocateEntry(unzFile archive, std::string_view name) {
  unz64_file_pos before;
  const bool hadEntry = unzGetFilePos64(archive, &before) == UNZ_OK;
  ZipEntry entry;
  for (int result = unzGoToFirstFile(archive); result == UNZ_OK; result = unzGoToNextFile(archive)) {
    if (ReadRecord(archive, entry, nullptr) != UNZ_OK) {
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

EntryReader::EntryReader(const OpenedArchive& archive, const ZipEntry& entry)
    : _archive(archive),
      _info(entry.info),
      _position(entry.position),
      _rawLeft(entry.info.compressed_size),
      _left(entry.info.uncompressed_size) {}

EntryReader::~EntryReader() {
  if (_inflating) {
    inflateEnd(&_stream);
  }
  if (_hostOpen) {
    unzCloseCurrentFile(_archive.handle);
  }
}

// The content is decoded here: minizip stops at the size that the archive states, says neither that there would be more
// nor that there was less, and has its limit at 4 GiB.
bool EntryReader::Open() {
  if (_archive.own != nullptr) {
    if (!OpenOwn()) {
      return false;
    }
  } else {
    constexpr int kRaw = 1;
    int method = 0;
    int level = 0;
    _hostOpen = unzOpenCurrentFile2(_archive.handle, &method, &level, kRaw) == UNZ_OK;
    if (!_hostOpen) {
      return false;
    }
  }
  _inflating = IsDeflated() && inflateInit2(&_stream, -MAX_WBITS) == Z_OK;
  return _inflating == IsDeflated();
}

// Goes to the data, behind a local record that says the same as the one at the end of the archive.
bool EntryReader::OpenOwn() {
  constexpr std::size_t kSize = 30;
  constexpr std::uint64_t kSignature = 0x04034b50;
  constexpr std::uint64_t kSizesFollow = 1U << 3;
  char record[kSize];
  if (_archive.own->ReadAt(_position, record, kSize) != kSize || Number(record, 4) != kSignature ||
      Number(record + 8, 2) != _info.compression_method || Number(record + 26, 2) != _info.size_filename) {
    return false;
  }
  const auto isStated = [](std::uint64_t here, std::uint64_t there) { return here == kIn64Bits || here == there; };
  const bool same = Number(record + 14, 4) == _info.crc && isStated(Number(record + 18, 4), _info.compressed_size) &&
                    isStated(Number(record + 22, 4), _info.uncompressed_size);
  if (!same && (Number(record + 6, 2) & kSizesFollow) == 0) {
    return false;
  }
  _position += kSize + Number(record + 26, 2) + Number(record + 28, 2);
  return true;
}

int EntryReader::Read(char* out, std::size_t size) {
  constexpr std::size_t kMost = std::numeric_limits<int>::max();
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>({size, _left, kMost}));
  auto* const bytes = reinterpret_cast<unsigned char*>(out);
  if (wanted == 0) {
    return 0;
  }
  if (!(IsDeflated() ? Inflate(bytes, wanted) : ReadRaw(bytes, wanted) == wanted)) {
    return -1;
  }
  _crc = crc32(_crc, bytes, static_cast<uInt>(wanted));
  _left -= wanted;
  return static_cast<int>(wanted);
}

int EntryReader::Close() {
  if (_crc != _info.crc) {
    return -8;
  }
  if (!(IsDeflated() ? EndsHere() : _rawLeft == 0)) {
    return -5;
  }
  const bool closed = !_hostOpen || unzCloseCurrentFile(_archive.handle) == UNZ_OK;
  _hostOpen = false;
  return closed ? 0 : -7;
}

// The next bytes as they stand in the archive. Fewer only at the entry's end, and when they cannot be read.
std::size_t EntryReader::ReadRaw(unsigned char* out, std::size_t size) {
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(size, _rawLeft));
  std::size_t count = 0;
  if (_archive.own != nullptr) {
    count = _archive.own->ReadAt(_position, out, wanted);
    _position += count;
  } else {
    const int result = unzReadCurrentFile(_archive.handle, out, static_cast<unsigned>(wanted));
    count = result > 0 ? static_cast<std::size_t>(result) : 0;
  }
  _rawLeft -= count;
  return count;
}

bool EntryReader::Inflate(unsigned char* out, std::size_t size) {
  _stream.next_out = out;
  _stream.avail_out = static_cast<uInt>(size);
  while (_stream.avail_out != 0) {
    if (_ended || !InflateStep()) {
      return false;
    }
  }
  return true;
}

bool EntryReader::InflateStep() {
  if (_stream.avail_in == 0) {
    _stream.next_in = _input.data();
    _stream.avail_in = static_cast<uInt>(ReadRaw(_input.data(), _input.size()));
  }
  const int result = inflate(&_stream, Z_NO_FLUSH);
  _ended = result == Z_STREAM_END;
  return _ended || result == Z_OK;
}

bool EntryReader::EndsHere() {
  if (_info.uncompressed_size == 0 && _info.compressed_size == 0) {
    return true;  // some writers leave the empty stream out
  }
  unsigned char more = 0;
  _stream.next_out = &more;
  _stream.avail_out = 1;
  while (!_ended && _stream.avail_out != 0) {
    if (!InflateStep()) {
      return false;
    }
  }
  return _stream.avail_out != 0;
}

}  // namespace qsbase::detail
