/// \file
/// Directory listing and clean-up: flat and age-sorted lists, deletion by age, by count and of whole trees, counting.
///
/// Names in lists are relative to the listed directory, those of sub-directories with "\": "sub\name". A symbolic link
/// is never followed below the directory that the caller names: it is listed, counted and removed itself, as a file.
/// An entry that no path of this library can name is left out (see CQsFindFile), so that no deletion can leave its
/// tree. An empty dir is the current directory, but for QsDeleteDirectoryRecurse, which refuses it. Paths end at 2047
/// characters (QsTranslateFilename): what lies deeper is neither listed nor deleted.
///
/// Nothing throws but for want of memory; a directory that is missing or unreadable lists as empty and counts as 0. No
/// locks and no state: any thread may call. What appears or vanishes while a call runs is found or not; a file that is
/// gone when its deletion is tried counts as a failed deletion. Info messages have level 4 and are logged only when
/// QsGetLogLevel() is 4 or more.
#ifndef QSBASE_SUPPORT_CLEANUP_H
#define QSBASE_SUPPORT_CLEANUP_H

#include <map>
#include <string>
#include <vector>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

/// Lists dir into out, which is cleared first. The order is that of the operating system; nothing is sorted.
///
/// \param pattern  as in CQsFindFile; "*.*" is the same as "*". With flag 4, entries below a sub-directory whose own
///                 name matches a pattern other than "*" appear twice. It should hold no separator: names
///                 found by "sub\*.log" come without the "sub\".
/// \param flags    1 files; 2 directories; 4 descend into sub-directories, also into those that are not listed
///                 themselves; 8 leave out names that begin with "." (they are still descended into); 16 and 32
///                 (hidden, system) change nothing: such entries are always listed. Without 1 and 2 the list stays
///                 empty.
/// \param max      the listing ends as soon as the list holds so many names; negative for no limit.
QSBASE_API void QsBuildFileList(const std::string& dir, const std::string& pattern, std::vector<std::string>& out,
                                int flags, int max);

/// The same list keyed by the time of the last write (local, whole seconds): iteration is oldest first, entries of
/// equal time in the order in which they were found. Here a max of 0 means no limit.
QSBASE_API void QsBuildFileListTimeAgeSorted(const std::string& dir, const std::string& pattern,
                                             std::multimap<QsDateTime, std::string>& out, int flags, unsigned max);

/// Deletes every file in the whole tree of dir that was last written more than ageMinutes minutes ago, read-only ones
/// too, sparing the sub-tree omitDir. Directories stay. Failed deletions are not reported.
///
/// omitDir is a full path below dir, or a path relative to it that is shorter than dir. A full path spares its sub-tree
/// only when dir is given with its trailing separator: with "C:\logs" and "C:\logs\keep" nothing is spared. An omitDir
/// outside of dir, and one equal to dir, spare nothing either. "/" and "\" are equal here.
///
/// The age is counted in the local clock, as the write times are: after daylight-saving time began or ended it is an
/// hour off.
///
///     QsCleanupDir("C:\\logs\\", "C:\\logs\\keep", 7 * 24 * 60);
QSBASE_API void QsCleanupDir(const std::string& dir, const std::string& omitDir, unsigned ageMinutes);

/// Deletes the oldest files of dir that match the pattern until `keep` of them remain; does not descend. The file
/// system's own times tell which, also within one second and while clocks are turned back. `force` also deletes
/// read-only ones (QsDeleteFile). A file that cannot be deleted is logged as a warning, "QsCleanupDirectory could not
/// delete file '%s', error: '%s'", and counts as gone: no younger one is deleted in its place. Returns how many files
/// were deleted.
QSBASE_API unsigned QsCleanupDirectory(const std::string& dir, unsigned keep, const std::string& pattern, bool force);

/// Deletes everything below dir, bottom-up, and then dir itself if removeDir is set.
///
/// \param sleepMs          pause before the files of each directory, in milliseconds; negative for none
/// \param force            read-only files and directories too (QsDeleteFile, QsRemoveDir)
/// \param mayGoOn          asked once for each directory, after its sub-directories; false makes that directory fail
///                         at once, which stops the whole deletion unless continueOnError is set.
///                         May be null.
/// \param continueOnError  go on after a failure and delete whatever can be deleted
/// \return true if everything that was to go is gone. False for an empty dir, and when stopped.
///
/// A directory is removed only when everything in it went. A dir that is itself a symbolic link is never entered: with
/// removeDir the link goes; without, nothing is done and the result is false. Another process that swaps a directory
/// of the tree for a link while this runs is not guarded against.
QSBASE_API bool QsDeleteDirectoryRecurse(const std::string& dir, bool removeDir, int sleepMs, bool force,
                                         bool (*mayGoOn)(), bool continueOnError);

/// How many entries dir holds, directories included, "." and ".." not; not recursive.
QSBASE_API unsigned QsGetDirEntryCount(const std::string& dir);

/// How many entries of dir are not directories; not recursive.
QSBASE_API unsigned QsGetDirFileCount(const std::string& dir);

/// The same, given up once more than maxSeconds whole seconds have passed (looked at after every 100 entries):
/// timedOut is then true and the result the count so far. timedOut is false otherwise. 0 means no limit.
QSBASE_API unsigned QsGetDirFileCount(const std::string& dir, unsigned maxSeconds, bool& timedOut);

#endif
