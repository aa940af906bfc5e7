/// \file
/// Files that stand for names known to every process of the machine: what Windows has kernel objects for (internal).
///
/// They lie side by side in one folder that all users share and that does not move with TMPDIR: /dev/shm, or /tmp where
/// that is none. Both let everybody make files and only the owner remove them. Any thread may call these functions;
/// they report failures through `errno`.
#ifndef QSBASE_SYNC_POSIX_SHAREDFILE_H
#define QSBASE_SYNC_POSIX_SHAREDFILE_H

#include <string>

namespace qsbase::detail {

/// Whose names they are: one file a name on the machine, or one for each (effective) user.
enum class SharedFileScope { Machine, User };

/// The modes that go with the scopes: everyone's file, and the user's own.
inline constexpr unsigned kMachineFileMode = 0666;
inline constexpr unsigned kUserFileMode = 0600;

/// What becomes of the permissions of one's own file that is there already.
enum class SharedFileModes { AsAsked, AsTheyAre };

/// The path of the file that stands for \p name, which may have any bytes and any length. \p kind, made of letters,
/// keeps the names of one class apart from those of others. Two names have one path only when they are equal, or when
/// both are long and their MD5 digests are equal.
std::string SharedFilePath(const std::string& kind, const std::string& name,
                           SharedFileScope scope = SharedFileScope::Machine);

/// Opens the regular file at \p path for reading and writing, or makes it with exactly the permissions of \p mode,
/// whatever the umask. A file that is made appears with them, where the file system can make files without a name.
/// One's own file that is there already gets them too, unless \p existing says otherwise.
///
/// Follows no link, waits for nothing, is not inherited by programs that are started, and refuses what another user
/// may have put in the way: anything but a regular file (EINVAL, or the error of opening it), one with a second name
/// (EMLINK), and, with a mode for the user alone, one that belongs to another user (EACCES).
/// Returns the descriptor, or -1.
int OpenSharedFile(const std::string& path, unsigned mode, SharedFileModes existing = SharedFileModes::AsAsked);

/// The same, but makes no file (ENOENT).
int OpenExistingSharedFile(const std::string& path, unsigned mode, SharedFileModes existing = SharedFileModes::AsAsked);

/// Whether \p path still names the file behind \p descriptor. With false the file has been removed, and may have been
/// made anew by somebody who knows nothing of the locks on this one.
bool IsStillAt(int descriptor, const std::string& path);

}  // namespace qsbase::detail

#endif
