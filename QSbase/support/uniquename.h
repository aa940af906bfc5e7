/// \file
/// Free file names beside names that are taken: "report (2).txt".
#ifndef QSBASE_SUPPORT_UNIQUENAME_H
#define QSBASE_SUPPORT_UNIQUENAME_H

#include <map>
#include <memory>
#include <string>

#include <QSbase/export.h>
#include <QSbase/sync/criticalsection.h>

/// Turns a wanted path that is taken (by a file or a directory) into a free one, by a counter between base name and
/// extension. It can remember the next counter of each wanted path, so that repeated requests do not probe from 1.
///
/// The name is free when it is looked for; nothing is created. Two callers get different names for the same wanted
/// path only when both use the same manager, ask it to remember, and it has the flag 1.
///
/// Threads: with flag 1, GetUniquePath with remember set may be called from several threads at once. Everything else
/// needs the manager for one thread at a time.
///
///     CUniqueFilenameManager names(1, " (", ")");
///     std::string path;
///     names.GetUniquePath("C:\\inbox\\report.txt", path, true);   // "C:\inbox\report (1).txt" if that is free
class QSBASE_API CUniqueFilenameManager {
 public:
  /// \param flags   1 guards the remembered counters with a lock; other bits have no meaning
  /// \param prefix  written between base name and counter
  /// \param suffix  written between counter and extension
  CUniqueFilenameManager(int flags, const std::string& prefix, const std::string& suffix);

  /// No lock, and names like "name (1).ext".
  CUniqueFilenameManager();

  CUniqueFilenameManager(const CUniqueFilenameManager&) = delete;
  CUniqueFilenameManager& operator=(const CUniqueFilenameManager&) = delete;
  virtual ~CUniqueFilenameManager();

  /// Replaces the flags. Takes no lock.
  void SetFlags(int flags);

  /// Forgets all counters: the next request for any path probes from 1. Takes no lock. Returns 0.
  int Reset();

  /// Gives in `result` the wanted path itself if it is free (nothing is then remembered), else the first free
  /// base + prefix + counter + suffix + "." + extension. The dot stands there without an extension too: "C:\dir\readme"
  /// gives "C:\dir\readme (1).".
  ///
  /// With `remember` the count begins where the last request for exactly this text ended, and goes on there the next
  /// time, whether or not the names given were ever used. `wanted` and `result` may be the same object. Both "\" and
  /// "/" end the directory part; the separators stay as they are. Returns 0.
  int GetUniquePath(const std::string& wanted, std::string& result, bool remember);

 protected:
  /// The search itself, without a look at the wanted path and without the lock. Returns 0.
  int GetUniquePathInternal(const std::string& wanted, std::string& result, bool remember);

 private:
  int _flags;
  std::string _prefix;
  std::string _suffix;
  std::unique_ptr<std::map<std::string, int>> _counters;
  QsCriticalSection _lock;
};

/// One search that remembers nothing, with names like "data_1.bin". Gives the wanted path itself if it is free.
/// Returns 0.
QSBASE_API int CAL_GetUniquePath(const std::string& wanted, std::string& result);

#endif
