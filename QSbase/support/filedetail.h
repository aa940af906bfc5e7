/// \file
/// Pieces that the file operations share (internal). Any thread may call; no state is kept.
#ifndef QSBASE_SUPPORT_FILEDETAIL_H
#define QSBASE_SUPPORT_FILEDETAIL_H

#include <cstddef>
#include <string>

#include <QSbase/log/logwords.h>
#include <QSbase/support/fileos.h>

namespace qsbase::detail {

/// The file's topic in the texts of ExMemoryAllocation.
constexpr const char* kFileTopic = "QSbase/support/filesupport";

/// Clears the read-only attribute of what the path names, if it is there and has it. Failure is ignored. A symbolic
/// link looked at itself is never read-only.
void ClearReadOnlyIfSet(const std::string& path, LinkView view);

/// Makes a new file in the target's directory, named target + "." + decimal(rand()), and opens it for writing. Exists
/// if 100 names in a row were taken; the last error tells why it failed.
OsFile::Creation CreateBeside(const std::string& target, unsigned permissions, OsFile& file, std::string& name);

/// What names for CreateBeside begin with where the target's own name may be as long as the file system allows: leaves
/// room for the number.
std::string TemporaryBase(const std::string& target);

/// QsMoveFile(from, to, replace, true), but gives up the target's read-only attribute only where the system replaces no
/// file that has it: who is killed in between leaves the target without it.
bool MoveOnto(const std::string& from, const std::string& to, bool replace);

/// QsCopyFile(from, to, failIfExists, true) of a file that has had `least` bytes, in one step: who is killed leaves the
/// old target or the new one, whole. The copy is made beside the target and brought to the disk first; one of fewer
/// bytes, as of a file that is being saved anew, is given up and the old target stays. A target that is a symbolic
/// link, has a further name or, on Linux, another owner, or cannot be opened for reading is written in place, and so is
/// one whose directory takes no new file, has all the names that are tried, or does not let the new file replace the
/// old.
bool CopyInOneStep(const std::string& from, const std::string& to, bool failIfExists, std::size_t least);

}  // namespace qsbase::detail

#endif
