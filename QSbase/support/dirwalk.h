/// \file
/// The walk behind the directory lists and counts (internal). Any thread may call; no state is kept.
#ifndef QSBASE_SUPPORT_DIRWALK_H
#define QSBASE_SUPPORT_DIRWALK_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include <QSbase/support/diros.h>
#include <QSbase/support/findentries.h>
#include <QSbase/text/datetime.h>

namespace qsbase::detail {

/// The flags of the directory lists.
enum ListFlags {
  ListFiles = 1,
  ListDirs = 2,
  ListDescend = 4,
  ListNoDotNames = 8,
};

/// Walks dir as QsBuildFileList describes and hands each chosen entry to `take`, with its name relative to dir; `take`
/// ends the walk by giving false. The detail says how much of the entry is filled in. `mayGoOn`, if there is one, is
/// asked before each sub-directory and each entry and ends the walk by giving false.
void WalkDirectory(const std::string& dir, const std::string& pattern, int flags, EntryDetail detail,
                   const std::function<bool(const std::string& name, const DirEntry& entry)>& take,
                   const std::function<bool()>& mayGoOn);

/// QsBuildFileListTimeAgeSorted with a question whether to go on (may be empty); what was found until the answer "no"
/// stays in out.
void BuildFileListTimeAgeSorted(const std::string& dir, const std::string& pattern,
                                std::multimap<QsDateTime, std::string>& out, int flags, unsigned max,
                                const std::function<bool()>& mayGoOn);

/// QsGetDirFileCount by a given clock (whole seconds, any epoch).
unsigned CountFilesWithin(const std::string& dir, unsigned maxSeconds, const std::function<std::int64_t()>& seconds,
                          bool& timedOut);

}  // namespace qsbase::detail

#endif
