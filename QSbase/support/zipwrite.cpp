// Writing of archives.
#include <QSbase/support/zlibsupport.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include <QSbase/errors.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/zipio.h>
#include <QSbase/text/utf8.h>

using namespace qsbase::detail;

namespace {

constexpr std::size_t kLongestName = 65535;

// An entry whose data might get 4 GiB has to say so before they are written.
constexpr std::uint64_t kZip64Size = std::uint64_t{0xFFFFFFFF} - (std::uint64_t{1} << 24);

// A DOS date knows the years 1980 to 2107. What is no time at all becomes the first of them, too.
QsDateTime DosTime(const QsDateTime& time) {
  const QsDateTime first(1980, 1, 1, 0, 0, 0, 0);
  const QsDateTime last(2107, 12, 31, 23, 59, 59, 0);
  return time >= first ? std::min<double>(time, last) : static_cast<double>(first);
}

zip_fileinfo FileInfo(const QsDateTime& time) {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  const QsDateTime dosTime = DosTime(time);
  dosTime.GetDatePart(&year, &month, &day);
  dosTime.GetTimePart(&hour, &minute, &second, nullptr);
  zip_fileinfo info{};
  info.tmz_date.tm_year = static_cast<uInt>(year - 1900);
  info.tmz_date.tm_mon = static_cast<uInt>(month - 1);
  info.tmz_date.tm_mday = static_cast<uInt>(day);
  info.tmz_date.tm_hour = static_cast<uInt>(hour);
  info.tmz_date.tm_min = static_cast<uInt>(minute);
  info.tmz_date.tm_sec = static_cast<uInt>(second);
  return info;
}

// An ASCII name needs no mark.
bool IsMarkedUtf8(const char* name) {
  const std::string text = name == nullptr ? "" : name;
  return !QsIsUTF8StringUsAscii(text) && QsIsValidUTF8(text);
}

// The content, deflated piece by piece.
class Deflater {
 public:
  explicit Deflater(const std::string& content) : _rest(content) {
    _open = deflateInit2(&_stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY) ==
            Z_OK;
  }
  ~Deflater() {
    if (_open) {
      deflateEnd(&_stream);
    }
  }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  // Makes the next piece; false if there is none.
  bool Next() {
    if (!_open || _ended) {
      return false;
    }
    _stream.next_out = _piece.data();
    _stream.avail_out = static_cast<uInt>(_piece.size());
    while (!_ended && _stream.avail_out > 0) {
      TakeInput();
      _ended = deflate(&_stream, _rest.empty() ? Z_FINISH : Z_NO_FLUSH) != Z_OK;
    }
    return true;
  }

  const unsigned char* Piece() const { return _piece.data(); }
  unsigned Size() const { return static_cast<unsigned>(_piece.size() - _stream.avail_out); }

  // What zlib takes the content for; known from the first piece on.
  bool IsText() const { return _stream.data_type == Z_TEXT; }

 private:
  void TakeInput() {
    constexpr std::size_t kMost = std::size_t{1} << 30;
    if (_stream.avail_in > 0) {
      return;
    }
    const std::string_view input = _rest.substr(0, kMost);
    _rest.remove_prefix(input.size());
    // zlib's type; nothing is written to it
    _stream.next_in = reinterpret_cast<unsigned char*>(const_cast<char*>(input.data()));
    _stream.avail_in = static_cast<uInt>(input.size());
  }

  std::string_view _rest;
  z_stream _stream{};
  bool _open = false;
  bool _ended = false;
  std::array<unsigned char, 65536> _piece;
};

// Raw: what is written is deflated already. Where minizip deflates, a write that fails while the entry is closed is
// forgotten, and the entry counts as good.
bool OpenEntry(zipFile zip, const char* name, const QsDateTime& time, std::uint64_t size, bool isText) {
  constexpr uLong kUtf8 = 1U << 11;
  // Some programs take what DOS has made for a name in its code page, even a marked one; hence NTFS.
  constexpr uLong kNtfs = 10U << 8 | 20U;
  zip_fileinfo info = FileInfo(time);
  info.internal_fa = isText ? 1 : 0;  // minizip's own mark, where it deflates
  const bool utf8 = IsMarkedUtf8(name);
  const int zip64 = size >= kZip64Size ? 1 : 0;
  constexpr int kRaw = 1;
  return zipOpenNewFileInZip4_64(zip, name, &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, Z_DEFAULT_COMPRESSION,
                                 kRaw, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, utf8 ? kNtfs : 0,
                                 utf8 ? kUtf8 : 0, zip64) == ZIP_OK;
}

}  // namespace

bool QsWrite2Zip(void** archive, const std::string& content, const QsDateTime& time, const char* nameInZip) {
  if (archive == nullptr || *archive == nullptr || (nameInZip != nullptr && std::strlen(nameInZip) > kLongestName)) {
    return false;
  }
  Deflater deflater(content);
  if (!deflater.Next() || !OpenEntry(*archive, nameInZip, time, content.size(), deflater.IsText())) {
    return false;
  }
  bool written = true;
  do {
    written = zipWriteInFileInZip(*archive, deflater.Piece(), deflater.Size()) == ZIP_OK;
  } while (written && deflater.Next());
  const uLong checksum = crc32_z(0, reinterpret_cast<const unsigned char*>(content.data()), content.size());
  // The last of the data is written here.
  return zipCloseFileInZipRaw64(*archive, content.size(), checksum) == ZIP_OK && written;
}

bool QsWrite2Zip(const char* zipPath, const std::string& content, const QsDateTime& time, bool append,
                 const char* nameInZip) {
  if (zipPath == nullptr || *zipPath == '\0') {
    return false;
  }
  const std::string path = QsTranslateFilename(zipPath);
  std::int64_t size = 0;
  if (append && QsGetFileSize64(path.c_str(), size) != 0 && !OsErrorMeansMissing(QsGetLastError())) {
    return false;  // an archive may well be there: to write it anew would be its end
  }
  ZipArchive archive;
  if (!archive.Open(path, size >= 1 ? ZipArchive::Writing::Append : ZipArchive::Writing::Anew)) {
    return false;
  }
  void* handle = archive.Handle();
  const bool written = QsWrite2Zip(&handle, content, time, nameInZip);
  return written && archive.Close();
}
