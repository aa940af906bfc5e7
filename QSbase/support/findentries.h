/// \file
/// The enumeration behind CQsFindFile and the directory listings (internal). Any thread may call; no state is kept.
#ifndef QSBASE_SUPPORT_FINDENTRIES_H
#define QSBASE_SUPPORT_FINDENTRIES_H

#include <string>
#include <string_view>
#include <vector>

#include <QSbase/support/diros.h>
#include <QSbase/text/datetime.h>

namespace qsbase::detail {

/// Whether the whole name matches: "*" is any run of bytes, "?" one byte, ASCII letters match in either case (on
/// Windows those of Windows-1252), and the pattern "*.*" is "*". On Windows with the rules of MatchesDosWildcard. Takes
/// at most pattern times name steps.
bool MatchesWildcard(std::string_view pattern, std::string_view name);

/// How Windows compares a name: "?" also stands for nothing before a dot and at the end of the name, a "." before "?"
/// or "*" for nothing at the end, and a final "*." is a run without the name's last dot: "*." names what has no
/// extension. Short aliases of long names, which a volume may or may not keep, are not looked at.
bool MatchesDosWildcard(std::string_view pattern, std::string_view name);

/// "." or "..".
bool IsDotEntry(std::string_view name);

/// Whether the library can address the name: one that holds a "\" would read as a path. On Windows also not where it
/// holds any other character that no name can hold.
bool IsAddressable(std::string_view name);

/// The directory part of a path or pattern with its trailing separator, as FindEntries cuts it: on Linux a colon is a
/// plain character of a name. Empty if there is none. The path is translated first.
std::string DirectoryPart(const std::string& path);

/// What a caller needs to know of each entry.
enum class EntryDetail {
  Kind,  ///< name and isDirectory only: mostly without asking for each entry
  All,
};

/// Takes a snapshot of what a path with a pattern as its last component matches, in the operating system's order, "."
/// and ".." included; out is cleared first. A last component without wildcard names one object, in its own case. The
/// rule says what to do when the directory itself is a symbolic link. Nothing is found for an empty or over-long path,
/// an empty last component or a directory that cannot be read.
void FindEntries(const std::string& path, LinkRule rule, EntryDetail detail, std::vector<DirEntry>& out);

/// The write time as local date and time, milliseconds 0; what a date-time cannot hold is its first or last second.
QsDateTime EntryDate(const DirEntry& entry);

}  // namespace qsbase::detail

#endif
