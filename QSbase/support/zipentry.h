/// \file
/// The entries of an archive (internal): their records, their names and their content. Any thread may call; an archive
/// is used by one at a time.
#ifndef QSBASE_SUPPORT_ZIPENTRY_H
#define QSBASE_SUPPORT_ZIPENTRY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <minizip/unzip.h>
#include <zlib.h>

#include <QSbase/support/zipio.h>

namespace qsbase::detail {

/// Names of so many bytes, or more, are never extracted.
inline constexpr std::size_t kEntryNameSize = 4096;

struct ZipEntry {
  unz_file_info64 info{};
  std::string name;            ///< of a longer one the first kEntryNameSize bytes
  std::string extra;           ///< of a longer extra field the beginning
  std::uint64_t position = 0;  ///< of its local record in the file; known for an OpenedArchive of the library's own
};

/// An archive that a host or the library has opened.
struct OpenedArchive {
  unzFile handle = nullptr;
  const UnzipArchive* own = nullptr;  ///< null for a host's
};

/// Reads the record of the archive's current entry; minizip's result. Sizes and positions of 4 GiB and more (zip64) are
/// those of the extra field: minizip does not see them where `long` has 64 bits, and of a host's archive it then reads
/// only what begins within the first 4 GiB.
int ReadEntry(const OpenedArchive& archive, ZipEntry& entry);

/// Makes the entry of that name the current one. False if there is none; the current entry then stays. With case; on
/// Windows ASCII letters match in either case.
bool LocateEntry(unzFile archive, std::string_view name);

/// Whether the name ends in a separator.
bool IsDirectoryEntry(std::string_view name);

/// What of the name stands before its last separator.
std::string_view EntryFolder(std::string_view name);

/// Whether a path below a folder can be made of the name: none that has "..", a zero byte or 4096 bytes and more, on
/// Windows none that the system would take for something else.
bool IsSafeEntryName(const ZipEntry& entry);

/// Whether a link stands at `folder` + `path` or on the way there from `folder`, which ends in a separator.
bool HasLinkBelow(const std::string& folder, std::string_view path);

/// Reads the content of an archive's current entry, which is stored or deflated. What the archive states of it is
/// checked: no more bytes than stated are given out, and fewer or more are an error.
class EntryReader {
 public:
  EntryReader(const OpenedArchive& archive, const ZipEntry& entry);
  ~EntryReader();
  EntryReader(const EntryReader&) = delete;
  EntryReader& operator=(const EntryReader&) = delete;

  bool Open();

  /// Gives the next bytes: as many as asked for, fewer only at the end. -1 if they are damaged.
  int Read(char* out, std::size_t size);

  /// To be called when Read has given 0: 0 if all is as the archive states, -8 wrong checksum, -5 more bytes, -7
  /// another failure.
  int Close();

 private:
  bool IsDeflated() const { return _info.compression_method == Z_DEFLATED; }
  bool OpenOwn();
  std::size_t ReadRaw(unsigned char* out, std::size_t size);
  bool Inflate(unsigned char* out, std::size_t size);
  bool InflateStep();
  bool EndsHere();

  const OpenedArchive& _archive;
  const unz_file_info64& _info;
  std::uint64_t _position;  // of the library's own archive: what comes next of the file
  std::uint64_t _rawLeft;
  std::uint64_t _left;
  bool _hostOpen = false;
  bool _inflating = false;
  bool _ended = false;
  uLong _crc = 0;
  z_stream _stream{};
  std::array<unsigned char, 65536> _input;
};

}  // namespace qsbase::detail

#endif
