/// \file
/// A whole file as memory, and a file read at positions.
///
/// Both open files that exist and are regular; a directory, a pipe or a device is refused at once, so that nothing
/// waits. Paths may hold "\" and "/". Child processes inherit nothing.
///
/// What others may do with the file meanwhile is what the system keeps to. Windows: while it is open here with
/// \p readOnly others may open it for reading only, and it cannot be opened so while somebody may write it; without
/// \p readOnly others may read and write. Nobody can delete or rename it. Linux: nobody is kept from anything.
#ifndef QSBASE_SUPPORT_MAPFILE_H
#define QSBASE_SUPPORT_MAPFILE_H

#include <cstdint>
#include <memory>
#include <string>

#include <QSbase/export.h>

/// Maps a whole existing file into memory, for reading or for writing: what is written to Ptr() reaches the file.
///
/// The mapping is as long as the file was when it was opened; what is appended later is not seen. When another process
/// shortens a mapped file on Linux, touching what lies behind the new end (from the next page on) raises SIGBUS, which
/// ends the program; the last page reads as zeros from the new end on. So do not map what others may shorten, or read
/// it through QsSharedIOFile. Windows refuses to shorten a mapped file.
///
/// An object belongs to one thread at a time; the bytes may be used by any.
///
/// \code
/// QsMapFile file;
/// file.Open("C:\\data\\index.dat", true);
/// const auto* const bytes = static_cast<const unsigned char*>(file.Ptr());
/// QsCalcCRC32(bytes, file.Size());
/// \endcode
class QSBASE_API QsMapFile {
 public:
  /// Without a file. Throws ExMemoryAllocation.
  QsMapFile();
  QsMapFile(const QsMapFile&) = delete;
  /// Does nothing: each keeps its own file, a mapping is never shared.
  QsMapFile& operator=(const QsMapFile& other);
  /// Closes. What fails then is logged as Close() does, and nothing is thrown.
  ~QsMapFile();

  /// Closes what is open, then maps the file: for reading only, so that writing to the memory is a fault, or for
  /// reading and writing. Throws ExBase, and the object is closed then:
  /// - "Unable to open file: %s (%s)": the path and the system's text.
  /// - "Unable to create mapping for file: %s (%s)": also for an empty file.
  /// - "Unable to create map file into memory": no room in the address space, say. The path and the system's text are
  ///   logged as error "Unable to create map file into memory: %s (%s)".
  /// - what Close() throws.
  ///
  /// The last-error code of the first three is that of the step that failed. What does not close then is logged as
  /// error "QsMapFileImpl::Open: Unable to close file handle (%s)" or
  /// "QsMapFileImpl::Open: Unable to close mapped file handle (%s)".
  void Open(const std::string& name, bool readOnly);

  /// Gives the memory back and closes the file; does nothing when closed. What was written is in the file for all
  /// processes, on the disk when the system writes it. Every failure is logged as an error with the system's text:
  /// "Unable to unmap file from memory (%s)", "QsMapFileImpl::Close: Unable to close mapped file handle (%s)",
  /// "QsMapFileImpl::Close: Unable to close file handle (%s)". After the last step ExBase "Unable to unmap file from
  /// memory" is thrown. The object is closed in any case.
  void Close();

  /// The first byte; null when closed. The memory is gone after Close().
  void* Ptr() const;

  /// The file's size in bytes when it was opened, 0 when closed. Of a file of 4 GiB and more the low 32 bits, though
  /// all of it is mapped.
  unsigned long Size() const;

  /// The path as it was given to Open(); empty when closed.
  std::string Name() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

/// Reads an existing file at any offset below 4 GiB.
///
/// Read() may be called by several threads at once on one object; the rest is for one thread at a time, and not during
/// a Read().
///
/// \code
/// QsSharedIOFile file;
/// file.Open("C:\\data\\articles.dat", true);
/// char header[64];
/// if (file.Read(4096, header, sizeof header)) { ... }
/// \endcode
class QSBASE_API QsSharedIOFile {
 public:
  /// Without a file.
  QsSharedIOFile();
  QsSharedIOFile(const QsSharedIOFile&) = delete;
  QsSharedIOFile& operator=(const QsSharedIOFile&) = delete;
  /// Closes.
  ~QsSharedIOFile();

  /// Opens the file; what was open before is closed when the new one is open. With \p readOnly false the file must be
  /// writable, and others may write it on Windows. Throws ExBase "Unable to open file: %s (%s)" with the path and the
  /// system's text; the last-error code has its number, and what was open before still is.
  void Open(const std::string& name, bool readOnly);

  /// Closes; does nothing when closed. A failure is logged as error
  /// "QsSharedIOFile::Close: unable to close file handle (%s)". Does not throw.
  void Close();

  /// Reads exactly \p length bytes that begin at \p offset. False when closed, when the file ends before them (the
  /// last-error code need not say so), when they do not lie below 4 GiB altogether, or when the system fails; the
  /// buffer then holds anything. Reading no bytes of an open file is true, wherever.
  bool Read(unsigned offset, char* buffer, unsigned length) const;

  /// The file's size in bytes when it was opened, 0 when closed; of a file of 4 GiB and more the low 32 bits.
  unsigned long Size() const;

 private:
  std::intptr_t _file;
  std::uint32_t _size;
};

#endif
