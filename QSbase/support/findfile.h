/// \file
/// CQsFindFile, the wildcard enumerator over one directory, and the listing functions.
///
/// An object belongs to one thread at a time; different objects need no locking. The functions keep no state.
#ifndef QSBASE_SUPPORT_FINDFILE_H
#define QSBASE_SUPPORT_FINDFILE_H

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

/// Enumerates the entries of one directory whose names match a pattern.
///
/// The pattern stands in the last component of the path only: "*" is any run of characters, "?" one character
/// (strings are single-byte: one byte), ASCII letters match in either case, on Windows all letters of Windows-1252, and
/// "*.*" is the same as "*". On Windows the system's further rules hold: "?" also stands for nothing before a dot and
/// at the end of a name, a "." before "?" or "*" for nothing at the end ("a*.*" is "a*"), and "*." names what has no
/// extension; only the short aliases that a volume may keep of long names do not count.
///
/// A last component without wildcard means the one object of that name, which Windows compares without case and
/// delivers as it is stored. "." and ".." are delivered like any other name. Names that no path of this library can
/// name are left out: on Linux those that hold a "\", on Windows those with characters that the ANSI code page lacks.
///
/// FindFirst takes a snapshot: what appears, changes or vanishes later does not show. Entries come in the operating
/// system's order. A symbolic link is described itself, not its target: it is no directory and has the size 0.
///
/// All operations are virtual, so that an application may put its own enumerator in place. Nothing throws.
///
///     CQsFindFile find("C:\\logs", "*.log", 0);
///     for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
///       if (!find.IsDir()) { Use(find.Filename(), find.FileSize()); }
///     }
class QSBASE_API CQsFindFile {
 public:
  /// Searches the path `pattern`. The attribute mask is stored but not applied: every entry that matches is
  /// delivered, hidden ones included.
  CQsFindFile(const std::string& pattern, unsigned attributes);

  /// Searches QsAppendFileslash(dir) + pattern.
  CQsFindFile(const std::string& dir, const std::string& pattern, unsigned attributes);

  CQsFindFile(const CQsFindFile&) = delete;
  CQsFindFile& operator=(const CQsFindFile&) = delete;

  /// Ends the search.
  virtual ~CQsFindFile();

  /// Starts the search, or starts it again, and moves to the first entry. Returns a handle without further use; -1
  /// when nothing matches, the pattern is empty or the directory cannot be read; 0 when the object could not get its
  /// memory at construction.
  virtual long FindFirst();

  /// Moves to the next entry: 0; -1 at the end (the last entry then stays the current one) or when no search runs.
  virtual int FindNext();

  /// Whether the current entry is a directory. This and the other accessors give false, empty or 0 while there is no
  /// current entry.
  virtual bool IsDir() const;

  /// Whether the current entry is read-only; on Linux: its owner's write bit is missing.
  virtual bool IsReadOnly() const;

  /// The current entry's name without directory.
  virtual std::string Filename() const;

  /// The size of a regular file in bytes, 64 bits; 0 for anything else.
  virtual std::uint64_t FileSize() const;

  /// The time of the last write, in seconds since 1970-01-01 00:00 UTC.
  virtual std::int64_t FileLastWriteTime() const;

  /// Whether the current entry is "." or "..".
  virtual bool IsThisDir_PrevDir() const;

  /// The time of the last write as local date and time, milliseconds 0; beyond the years 1 to 9999 their first or last
  /// second. The unset date-time (0.0) while there is no current entry.
  virtual QsDateTime FileDate() const;

 private:
  struct Record;
  std::unique_ptr<Record> _record;
};

/// Appends to `files` the full path, QsAppendFileslash(dir) + name, of every entry of dir that matches the pattern and
/// is not a directory. Not recursive; symbolic links count as files; `attributes` has no effect. Returns 0, also when
/// nothing is found.
QSBASE_API int GetAllFiles(const std::string& dir, const std::string& pattern, std::list<std::string>& files,
                           unsigned attributes);

/// The same for the directories; "." and ".." are left out.
QSBASE_API int GetAllDirs(const std::string& dir, const std::string& pattern, std::list<std::string>& dirs,
                          unsigned attributes);

/// Both in one enumeration.
QSBASE_API int GetAllFilesAndDirs(const std::string& dir, const std::string& pattern, std::list<std::string>& files,
                                  std::list<std::string>& dirs, unsigned attributes);

#endif
