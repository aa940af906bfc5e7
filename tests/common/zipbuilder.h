/// \file
/// Makes zip archives byte by byte (APPNOTE 6.3), also such as no honest program writes.
#ifndef QSBASE_TESTS_COMMON_ZIPBUILDER_H
#define QSBASE_TESTS_COMMON_ZIPBUILDER_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <zlib.h>

namespace qsbase::testing {

inline std::uint32_t Crc32Of(const std::string& text) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const unsigned char*>(text.data()), static_cast<uInt>(text.size())));
}

/// A bare deflate stream (RFC 1951).
inline std::string Deflated(const std::string& text) {
  z_stream stream{};
  if (deflateInit2(&stream, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("deflateInit2");
  }
  std::string out(deflateBound(&stream, static_cast<uLong>(text.size())), '\0');
  stream.next_in = reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<unsigned char*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(out.size() - stream.avail_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) {
    throw std::runtime_error("deflate");
  }
  return out;
}

/// An entry as its two records describe it.
struct RawZipEntry {
  std::string name;
  std::string data;  ///< as it stands in the archive
  std::uint16_t method = 0;
  std::uint16_t flags = 0;
  std::uint32_t crc = 0;
  std::uint32_t size = 0;
  std::uint32_t dataSize = 0;
  std::string centralExtra;  ///< extra field of the record at the end
};

inline RawZipEntry Stored(const std::string& name, const std::string& content) {
  const auto size = static_cast<std::uint32_t>(content.size());
  return {name, content, 0, 0, Crc32Of(content), size, size, {}};
}

inline RawZipEntry DeflatedEntry(const std::string& name, const std::string& content) {
  RawZipEntry entry = {name, Deflated(content), 8, 0, Crc32Of(content), 0, 0, {}};
  entry.size = static_cast<std::uint32_t>(content.size());
  entry.dataSize = static_cast<std::uint32_t>(entry.data.size());
  return entry;
}

class ZipBuilder {
 public:
  ZipBuilder& Add(const RawZipEntry& entry) {
    const std::size_t offset = _entries.size();
    _entries += "PK\3\4" + Number(20, 2) + Common(entry) + Number(0, 2) + entry.name + entry.data;
    _directory += "PK\1\2" + Number(20, 2) + Number(20, 2) + Common(entry) + Number(entry.centralExtra.size(), 2) +
                  Number(0, 2) + Number(0, 2) + Number(0, 2) + Number(0, 4) + Number(offset, 4) + entry.name +
                  entry.centralExtra;
    ++_count;
    return *this;
  }

  /// The archive. It may state another number of entries than it has.
  std::string Bytes(const std::string& comment = "", int countLie = 0) const {
    const auto count = static_cast<std::uint64_t>(_count + countLie);
    return _entries + _directory + "PK\5\6" + Number(0, 2) + Number(0, 2) + Number(count, 2) + Number(count, 2) +
           Number(_directory.size(), 4) + Number(_entries.size(), 4) + Number(comment.size(), 2) + comment;
  }

  static std::string Number(std::uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) {
      text += static_cast<char>(value >> (8 * i) & 0xFF);
    }
    return text;
  }

 private:
  // What both records hold alike: flags to the length of the name. The date is 1998-07-25 12:34:56.
  static std::string Common(const RawZipEntry& entry) {
    return Number(entry.flags, 2) + Number(entry.method, 2) + Number(12 << 11 | 34 << 5 | 28, 2) +
           Number(18 << 9 | 7 << 5 | 25, 2) + Number(entry.crc, 4) + Number(entry.dataSize, 4) + Number(entry.size, 4) +
           Number(entry.name.size(), 2);
  }

  std::string _entries;
  std::string _directory;
  int _count = 0;
};

}  // namespace qsbase::testing

#endif
