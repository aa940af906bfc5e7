/// \file
/// Opening and closing of archives (internal). minizip reads and writes through the library's own file layer, so that
/// paths are those of every other file operation and positions have 64 bits on every target. An object is used by one
/// thread at a time; its handle goes where minizip's does.
#ifndef QSBASE_SUPPORT_ZIPIO_H
#define QSBASE_SUPPORT_ZIPIO_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <minizip/unzip.h>
#include <minizip/zip.h>

namespace qsbase::detail {

/// An archive to read.
class UnzipArchive {
 public:
  UnzipArchive();
  ~UnzipArchive();
  UnzipArchive(const UnzipArchive&) = delete;
  UnzipArchive& operator=(const UnzipArchive&) = delete;

  /// Opens a regular file that is an archive; once. False if it cannot be, or there is no memory.
  bool Open(const std::string& path);

  unzFile Handle() const { return _handle; }

  /// Reads from an absolute position of the file. How many bytes; fewer at its end and where it cannot be read.
  std::size_t ReadAt(std::uint64_t position, void* out, std::size_t size) const;

  /// Forgets where minizip went, and tells where it went first since then: nothing if it went nowhere.
  void ForgetSeek() const;
  std::optional<std::uint64_t> FirstSeek() const;

  /// Closes what was opened; minizip's result.
  int Close();

 private:
  class Input;
  std::unique_ptr<Input> _input;
  unzFile _handle = nullptr;
};

/// An archive to write. Until it is closed as a whole one the old archive can be had back: a new one is written beside
/// it, and what an added entry overwrites is remembered. A link or device, and an archive with a further name or, on
/// Linux, another owner, is written to itself, and so is what stands where no file can be made beside it. What nothing
/// can take the place of is copied over.
class ZipArchive {
 public:
  ZipArchive();
  /// Without Close() before: gives the old archive back, or nothing where none was.
  ~ZipArchive();
  ZipArchive(const ZipArchive&) = delete;
  ZipArchive& operator=(const ZipArchive&) = delete;

  enum class Writing { Anew, Append };

  /// Opens an archive; once. What cannot be appended to stays as it is.
  bool Open(const std::string& path, Writing writing);

  zipFile Handle() const { return _handle; }

  /// Writes the archive's own records and closes it. False if they, or anything before, could not be written: the old
  /// archive is there again then.
  bool Close();

 private:
  class Output;
  std::unique_ptr<Output> _output;
  zipFile _handle = nullptr;
};

}  // namespace qsbase::detail

#endif
