/// \file
/// Compression of buffers and strings (zlib, RFC 1950), and zip archives: writing entries, listing, extraction.
///
/// An archive handle is minizip's `unzFile` or `zipFile`, passed as `void*`; one is used by one thread at a time. Apart
/// from that nothing keeps state, and any thread may call. Failures are result codes with a logged message; only the
/// string forms of QsCompress and QsUncompress throw by themselves. Whatever an archive says of itself is checked:
/// memory grows with what is decoded, and nothing is written outside the folder asked for.
///
/// Paths are those of filesupport.h. Names of entries are bytes, with "/" or "\" between their parts; one that ends in
/// a separator is a directory.
///
/// \code
/// QsWrite2Zip("notes.zip", text, QsDateTime::Now(), true, "2024/notes.txt");
/// int code = QsExtractWholeFile("notes.zip", "out", nullptr, nullptr);
/// if (code != 0) {
///   std::string why;
///   QsGetZLibErrorMessageWholeFile(code, why);
/// }
/// \endcode
#ifndef QSBASE_SUPPORT_ZLIBSUPPORT_H
#define QSBASE_SUPPORT_ZLIBSUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

/// What QsExtractWholeFile asks and tells its caller, on the caller's thread.
class QSBASE_API QsProgressAndAbortHandler {
 public:
  virtual ~QsProgressAndAbortHandler();
  /// Asked after every entry: true ends the extraction with -8.
  virtual bool IsAborted() = 0;
  /// Percent of the entries that are done; never falls, and the last entry is 99. About twenty calls an archive.
  virtual void OnProgress(int percent) = 0;
};

// ---- Buffers and strings. Results are zlib's: 0 (Z_OK), -2 (a null length), -3 (damaged data), -4 (no memory), -5
// ----
// ---- (the buffer is too small). ----

/// Sets the text to "1.2.5", the version of zlib's interface that this library is written against: a constant.
QSBASE_API void QsGetZlibVersion(std::string& version);

/// Compresses a buffer. `destLen` is the room in `dest` before and what was produced after; srcLen + srcLen/1000 + 64
/// is always enough room.
QSBASE_API int QsCompress(unsigned char* dest, unsigned long* destLen, const unsigned char* src, unsigned long srcLen);

/// Compresses a string, which may be `out` itself. `out` gets what was produced, also after a failure.
/// \throws ExMemoryAllocation if there is no memory for the result.
QSBASE_API int QsCompress(std::string& out, const std::string& in);

/// Uncompresses a buffer. `destLen` is the room in `dest` before and what was produced after, also after a failure.
QSBASE_API int QsUncompress(unsigned char* dest, unsigned long* destLen, const unsigned char* src,
                            unsigned long srcLen);

/// The same with `srcLen` becoming the bytes consumed: what stands behind the compressed data is left alone. After a
/// failure both lengths are as they were. -3 for data that ends early, too.
QSBASE_API int QsUncompress(unsigned char* dest, unsigned long* destLen, const unsigned char* src,
                            unsigned long* srcLen);

/// Uncompresses a string, which may be `out` itself, of which it is known that it gives at most `size` bytes. `out`
/// gets what was produced, also after a failure.
/// \throws ExMemoryAllocation if there is no memory for `size` bytes.
QSBASE_API int QsUncompress(std::string& out, unsigned long size, const std::string& in);

/// Uncompresses only as much as fits into `dest`: reads the head of a long text. `destLen` becomes what was produced
/// and `srcLen` what was consumed (zlib reads a little ahead). -3 also if the data end before `dest` is full. After a
/// failure both lengths are as they were.
QSBASE_API int QsUncompress_Part(unsigned char* dest, unsigned long* destLen, const unsigned char* src,
                                 unsigned long* srcLen);

// ---- Writing ----

/// Adds an entry to an open archive (`zipFile`): deflated, at zlib's default level.
///
/// \param zipFile    where the handle is; false if it or the pointer to it is null.
/// \param content    the bytes; zip64 is used from about 4 GiB on.
/// \param time       local date and time of the entry, kept in steps of two seconds; before 1980 (also the unset time)
///                   it is 1980-01-01 00:00, after 2107 the last second of that year.
/// \param nameInZip  stored as it is, at most 65535 bytes; marked as UTF-8 if it is that and not ASCII. A null pointer
///                   is "-". The name is not looked for: an archive may get two entries of one name.
/// \returns false if the entry could not be written whole.
QSBASE_API bool QsWrite2Zip(void** zipFile, const std::string& content, const QsDateTime& time, const char* nameInZip);

/// Opens the archive, adds the entry and closes it. Without `append`, and if there is no archive or an empty one, it is
/// written anew; an archive that is appended to loses its comment. False for a null or empty path, if the archive
/// cannot be opened or not everything be written: the old archive then is as it was, and without one there is none. (A
/// link or device is written to itself, and so is an old archive that has a further name or, on Linux, another owner,
/// or where no file can be made beside it: it is lost then when it was to be written anew. One that nothing can take
/// the place of is copied over; if that breaks off, the new one is left beside it. An old archive that is added to is
/// lost when the disk refuses also what is to be written back.)
///
/// Of two calls that make one archive at the same time, where none was, one returns false. Two that append to one
/// archive must not run at the same time.
QSBASE_API bool QsWrite2Zip(const char* zipPath, const std::string& content, const QsDateTime& time, bool append,
                            const char* nameInZip);

// ---- Extraction of one entry ----

/// Extracts an entry of an open archive (`unzFile`). On Linux minizip reaches no entry of a handle that begins behind
/// the first 4 GiB (-2); the functions that open the archive themselves do. The checks are made in the order of the
/// table, down to -2.
///
/// | code | meaning                                                                            |
/// |------|------------------------------------------------------------------------------------|
/// | 0    | extracted                                                                          |
/// | 1    | only the size was asked for                                                        |
/// | -12  | the handle is null                                                                 |
/// | -11  | the name is empty                                                                  |
/// | -1   | there is no such entry                                                             |
/// | -10  | nothing to extract to, or a buffer without a size                                  |
/// | -4   | the entry's record is damaged; no memory; more bytes than an `int` counts          |
/// | -13  | neither stored nor deflated                                                        |
/// | -14  | encrypted                                                                          |
/// | -2   | the entry cannot be opened: its two records differ, or the archive is cut          |
/// | -3   | the file cannot be created                                                         |
/// | -5   | the data are damaged, or give more or fewer bytes than the archive says            |
/// | -6   | the file cannot be written                                                         |
/// | -7   | the entry cannot be closed                                                         |
/// | -8   | the checksum is wrong                                                              |
/// | -9   | unknown                                                                            |
///
/// \param nameInZip  null for the archive's current entry. Compared with case; on Windows ASCII letters match in either
///                   case. On success the entry is the current one.
/// \param destPath   the file to write. Its folder is made when missing. A regular file that stands there is replaced
///                   when everything is there and right; after a failure it is as it was, and no new file is left.
///                   (Written over directly, and so lost, where no file can be made beside it. One that nothing can
///                   take the place of is copied over; if that breaks off, the new one is left beside it.) A link or
///                   device is written to itself.
/// \param buffer     used without `destPath`: gets the content, which the caller releases with free(), also that of an
///                   empty entry. Null after a failure, unless it is -12, -11 or -1.
/// \param size       gets the number of bytes in `buffer`, 0 after a failure as there. Alone, without `destPath` and
///                   `buffer`: gets the size that the archive states, unverified; the result then is 1.
/// \param chunkSize  bytes that are decoded in one step to a file, at least 65536.
QSBASE_API int QsExtractFile(void* unzFile, const char* nameInZip, const char* destPath, char** buffer, int* size,
                             int chunkSize);

/// QsExtractFile with opening and closing of the archive. Also -101 for a null or empty `zipPath`, -102 if there is
/// nothing, -103 (logged: "error opening archive: ...") if it cannot be opened; kept as minizip has it, also an archive
/// of 22 bytes that has no entry. A null name is the first entry.
QSBASE_API int QsExtractFileSimple(const char* zipPath, const char* nameInZip, const char* destPath, char** buffer,
                                   int* size, int chunkSize);

/// The same; the written file is brought to the disk before it counts.
QSBASE_API int QsExtractFileSimpleFlush(const char* zipPath, const char* nameInZip, const char* destPath, char** buffer,
                                        int* size, int chunkSize);

/// The text of a code of QsExtractFile, such as "CRC error"; empty for 0 and every number without one, such as -101.
QSBASE_API void QsGetZLibErrorMessage(int code, std::string& text);

// ---- Whole archives ----

/// Counts, measures and lists the entries of an archive. Each of the outputs may be null, but not all. An archive that
/// states 65535 entries, as minizip writes for more, too, is walked to its end, here and in QsExtractWholeFile.
///
/// \param fileCount         entries that are no directories.
/// \param uncompressedSize  the sum of the sizes that the archive states, unverified; at most 2^63-1.
/// \param names             the entries that are no directories, in the archive's order. Of a name of 4096 bytes or
///                          more (which is never extracted) the first 4096.
/// \returns 0; -1 nothing asked for, -2 no archive name, -3 the walk failed, -4 the archive cannot be opened, -5 there
/// is none, -6 the record of an entry and -7 that of the archive cannot be read. Count and size are then 0 and the
/// names empty; but -2 leaves all as it was.
QSBASE_API int QsGetZipInfo(const char* zipPath, int* fileCount, std::int64_t* uncompressedSize,
                            std::vector<std::string>* names);

/// QsGetZipInfo for the count alone.
QSBASE_API int QsGetNumOfFilesInZip(const char* zipPath, int* fileCount);

/// QsGetZipInfo for the sum of the sizes alone.
QSBASE_API int QsGetUncompressedSize(const char* zipPath, std::int64_t* uncompressedSize);

/// QsGetZipInfo for the names alone.
QSBASE_API int QsGetFilesInZip(const char* zipPath, std::vector<std::string>* names);

/// Extracts every entry below a folder, which is made when missing.
///
/// An entry that would leave the folder is refused, and ends the extraction with -1 (-7 if it is a directory): one with
/// a component "..", one behind a link that stands in the folder, a name that holds a zero byte or has 4096 bytes or
/// more, on Windows a component that cannot be a name there (a drive, a colon, a device). An absolute name lands below
/// the folder. Links are never made; one that stands where a file belongs is replaced by the file. Files that are there
/// are replaced as QsExtractFile does it. A pipe or device that stands there is not opened, and ends it with -1.
///
/// \param extracted  if not null, gets the path of each entry appended, also of directories: the translated folder,
///                   with its separator, and the name as it is in the archive.
/// \param handler    may be null.
/// \returns 0; -1 an entry could not be extracted, -2 no archive name, -3 no folder name, -4 the archive cannot be
/// opened, -5 there is none, -6 the folder cannot be made, -7 a directory below it cannot be made, -8 aborted, -9 the
/// walk failed, -10 the record of an entry and -11 that of the archive cannot be read. What was extracted by then
/// stays.
QSBASE_API int QsExtractWholeFile(const char* zipPath, const char* destDir, std::vector<std::string>* extracted,
                                  QsProgressAndAbortHandler* handler);

/// The text of a code of QsExtractWholeFile; empty for 0 and every number without one. True if the code is -8, aborted.
QSBASE_API bool QsGetZLibErrorMessageWholeFile(int code, std::string& text);

#endif
