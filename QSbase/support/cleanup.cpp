#include <QSbase/support/cleanup.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/process.h>
#include <QSbase/support/dirwalk.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findentries.h>
#include <QSbase/support/paths.h>
#include <QSbase/text/timeos.h>

namespace qsbase::detail {

namespace {

constexpr unsigned kEntriesPerClockLook = 100;

class Walker {
 public:
  using Take = std::function<bool(const std::string&, const DirEntry&)>;
  using MayGoOn = std::function<bool()>;

  Walker(int flags, EntryDetail detail, const Take& take, const MayGoOn& mayGoOn)
      : _flags(flags), _detail(detail), _take(take), _mayGoOn(mayGoOn) {}

  // One directory with a pattern, and (under the flag) the sub-directories that match it. False ends the whole walk.
  bool Walk(const std::string& dir, const std::string& prefix, const std::string& pattern, LinkRule rule) const {
    std::vector<DirEntry> entries;
    FindEntries(dir + pattern, rule, _detail, entries);
    for (const DirEntry& entry : entries) {
      if (!entry.name.empty() && !IsDotEntry(entry.name) && !Visit(dir, prefix, pattern, entry)) {
        return false;
      }
    }
    return true;
  }

 private:
  bool Visit(const std::string& dir, const std::string& prefix, const std::string& pattern,
             const DirEntry& entry) const {
    if (!GoesOn() || (IsChosen(entry) && !_take(prefix + entry.name, entry))) {
      return false;
    }
    if (!entry.isDirectory || (_flags & ListDescend) == 0) {
      return true;
    }
    return GoesOn() && Walk(dir + entry.name + '\\', prefix + entry.name + '\\', pattern, LinkRule::Refuse);
  }

  bool GoesOn() const { return !_mayGoOn || _mayGoOn(); }

  bool IsChosen(const DirEntry& entry) const {
    const bool hidden = (_flags & ListNoDotNames) != 0 && entry.name[0] == '.';
    return !hidden && (_flags & (entry.isDirectory ? ListDirs : ListFiles)) != 0;
  }

  int _flags;
  EntryDetail _detail;
  const Take& _take;
  const MayGoOn& _mayGoOn;
};

std::vector<std::string> AllSubDirectories(const std::string& dir, const std::function<bool()>& mayGoOn) {
  std::vector<std::string> found;
  const auto take = [&found](const std::string& name, const DirEntry&) {
    found.push_back(name);
    return true;
  };
  WalkDirectory(dir, "*", ListDirs | ListDescend, EntryDetail::Kind, take, mayGoOn);
  return found;
}

// "." and ".." and what the library cannot name do not count.
bool Counts(const std::string& name) { return !IsDotEntry(name) && IsAddressable(name); }

// The directory to read for a translated path, or false if the path is over-long.
bool ReadablePath(const std::string& dir, std::string& path) {
  path = QsTranslateFilename(dir);
  return dir.empty() == path.empty();
}

}  // namespace

void WalkDirectory(const std::string& dir, const std::string& pattern, int flags, EntryDetail detail,
                   const std::function<bool(const std::string& name, const DirEntry& entry)>& take,
                   const std::function<bool()>& mayGoOn) {
  std::string top;
  if ((flags & (ListFiles | ListDirs)) == 0 || !ReadablePath(dir, top)) {
    return;
  }
  QsAppendFileslashInPlace(top);
  const bool everything = pattern == "*" || pattern == "*.*";
  const std::string wanted = everything ? "*" : pattern;
  if (!Walker(flags, detail, take, mayGoOn).Walk(top, "", wanted, LinkRule::Follow) || everything ||
      (flags & ListDescend) == 0) {
    return;
  }
  const Walker oneLevel(flags & ~ListDescend, detail, take, mayGoOn);
  for (const std::string& sub : AllSubDirectories(top, mayGoOn)) {
    if ((mayGoOn && !mayGoOn()) || !oneLevel.Walk(top + sub + '\\', sub + '\\', wanted, LinkRule::Refuse)) {
      return;
    }
  }
}

void BuildFileListTimeAgeSorted(const std::string& dir, const std::string& pattern,
                                std::multimap<QsDateTime, std::string>& out, int flags, unsigned max,
                                const std::function<bool()>& mayGoOn) {
  out.clear();
  const auto take = [&out, max](const std::string& name, const DirEntry& entry) {
    out.emplace(EntryDate(entry), name);
    return max == 0 || out.size() < max;
  };
  WalkDirectory(dir, pattern, flags, EntryDetail::All, take, mayGoOn);
}

unsigned CountFilesWithin(const std::string& dir, unsigned maxSeconds, const std::function<std::int64_t()>& seconds,
                          bool& timedOut) {
  timedOut = false;
  std::string path;
  if (!ReadablePath(dir, path)) {
    return 0;
  }
  const std::int64_t start = maxSeconds == 0 ? 0 : seconds();
  unsigned looked = 0;
  unsigned files = 0;
  DirReader reader(path, LinkRule::Follow);
  for (std::string name; reader.Next(name);) {
    files += Counts(name) && !reader.IsDirectory() ? 1 : 0;
    if (maxSeconds != 0 && ++looked % kEntriesPerClockLook == 0 && seconds() - start > maxSeconds) {
      timedOut = true;
      break;
    }
  }
  return files;
}

}  // namespace qsbase::detail

namespace {

using qsbase::detail::DirEntry;
using qsbase::detail::kLogInfo4;
using qsbase::detail::kLogWarning;
using qsbase::detail::LastErrorText;

void LogDetail(const std::string& text) {
  if (QsGetLogLevel() >= 4) {
    QsLogMsg(kLogInfo4, text);
  }
}

bool BeginsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

// What is to be spared, relative to the directory; empty for nothing. `dir` is compared as it was given: without its
// trailing separator it never fits. Kept: callers rely on it.
std::string RelativeOmit(const std::string& dir, const std::string& dirSlash, const std::string& omitDir) {
  const std::string omit = QsAppendFileslash(omitDir);
  if (omit.size() < dirSlash.size()) {
    return omit;
  }
  return omit.substr(0, dirSlash.size()) == dir ? omit.substr(dirSlash.size()) : std::string();
}

// The present as the files' dates show it: on Windows they go by the C runtime's zone, which the variable TZ can set
// apart from that of the system's clock. Files would be hours too old.
QsDateTime Present() {
  constexpr double kMsPerDay = 86400000;
  const std::int64_t now = qsbase::detail::CurrentUtcMilliseconds();
  DirEntry entry;
  entry.written = now / 1000;
  return qsbase::detail::EntryDate(entry) + static_cast<double>(now % 1000) / kMsPerDay;
}

// In these steps, since the date-time is a binary fraction of a day.
QsDateTime CutOff(unsigned ageMinutes) {
  double time = Present();
  for (unsigned hour = 0; hour < ageMinutes / 60; ++hour) {
    time -= 1.0 / 24.0;
  }
  for (unsigned minute = 0; minute < ageMinutes % 60; ++minute) {
    time -= 1.0 / 1440.0;
  }
  return QsDateTime(time);
}

void LogCleanup(const std::string& dir, const std::string& omit, const QsDateTime& cutOff) {
  std::string text =
      "Cleaning up directory " + dir + ", deleting files last modified before " + DateTime2string(cutOff, true, true);
  if (!omit.empty()) {
    text += " or within " + dir + omit;
  }
  LogDetail(text);
}

// Oldest first. The lists of files do not part what was written within one second, and go by local time, which says one
// hour twice when clocks are turned back; here the file system's own time counts, or a log that rotates then, or
// several times a second, would lose its newest files and keep older ones.
using FilesByAge = std::multimap<std::pair<std::int64_t, std::int32_t>, std::string>;

FilesByAge ListByAge(const std::string& dir, const std::string& pattern) {
  FilesByAge files;
  const auto take = [&files](const std::string& name, const DirEntry& entry) {
    files.emplace(std::make_pair(entry.written, entry.writtenNanoseconds), name);
    return true;
  };
  qsbase::detail::WalkDirectory(dir, pattern, qsbase::detail::ListFiles, qsbase::detail::EntryDetail::All, take,
                                nullptr);
  return files;
}

bool DeleteOldest(const std::string& path, bool force) {
  if (QsDeleteFile(path, force)) {
    LogDetail("QsCleanupDirectory deleted file '" + path + "'");
    return true;
  }
  const std::string error = LastErrorText();
  QsLogMsg(kLogWarning, "QsCleanupDirectory could not delete file '" + path + "', error: '" + error + "'");
  return false;
}

enum class Sight { Link, NoLink, Unknown };

Sight LookAt(const std::string& dir) {
  DirEntry entry;
  if (qsbase::detail::DescribePath(QsTranslateFilename(dir), entry)) {
    return entry.isLink ? Sight::Link : Sight::NoLink;
  }
  return qsbase::detail::OsErrorMeansMissing(QsGetLastError()) ? Sight::NoLink : Sight::Unknown;
}

std::string WithoutSeparators(std::string path) {
  while (path.size() > 1 && (path.back() == '\\' || path.back() == '/')) {
    path.pop_back();
  }
  return path;
}

std::int64_t MonotonicSeconds() {
  using std::chrono::duration_cast;
  return duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Deletes a directory tree with one set of options.
class TreeDeleter {
 public:
  TreeDeleter(int sleepMs, bool force, bool (*mayGoOn)(), bool continueOnError)
      : _sleepMs(sleepMs), _force(force), _mayGoOn(mayGoOn), _continueOnError(continueOnError) {}

  bool Delete(const std::string& dir, bool removeDir) const {
    if (dir.empty()) {
      return false;
    }
    const Sight sight = LookAt(dir);
    if (sight == Sight::Link) {
      return removeDir && QsDeleteFile(WithoutSeparators(dir), _force);
    }
    const std::string base = QsAppendFileslash(dir);
    // What cannot be looked at may be a link too: what is behind it must not be taken for a part of the tree.
    const bool looksInside = sight == Sight::NoLink;
    bool ok = !looksInside ||
              DeleteAll(base, qsbase::detail::ListDirs, [this](const std::string& sub) { return Delete(sub, true); });
    if ((!ok && !_continueOnError) || (_mayGoOn != nullptr && !_mayGoOn())) {
      return false;
    }
    if (_sleepMs >= 0) {
      QsSleep(static_cast<unsigned int>(_sleepMs));
    }
    ok = (!looksInside || DeleteAll(base, qsbase::detail::ListFiles,
                                    [this](const std::string& file) { return QsDeleteFile(file, _force); })) &&
         ok;
    return ok && removeDir ? QsRemoveDir(dir, _force) : ok;
  }

 private:
  // Deletes what the directory holds of one kind. False if something could not be deleted.
  template <typename DeleteOne>
  bool DeleteAll(const std::string& base, int kind, DeleteOne deleteOne) const {
    std::vector<std::string> names;
    QsBuildFileList(base, "*", names, kind, -1);
    bool ok = true;
    for (const std::string& name : names) {
      if (!ok && !_continueOnError) {
        break;
      }
      ok = deleteOne(base + name) && ok;
    }
    return ok;
  }

  int _sleepMs;
  bool _force;
  bool (*_mayGoOn)();
  bool _continueOnError;
};

}  // namespace

void QsBuildFileList(const std::string& dir, const std::string& pattern, std::vector<std::string>& out, int flags,
                     int max) {
  out.clear();
  if (max == 0) {
    return;
  }
  const auto take = [&out, max](const std::string& name, const DirEntry&) {
    out.push_back(name);
    return max < 0 || out.size() < static_cast<std::size_t>(max);
  };
  qsbase::detail::WalkDirectory(dir, pattern, flags, qsbase::detail::EntryDetail::Kind, take, nullptr);
}

void QsBuildFileListTimeAgeSorted(const std::string& dir, const std::string& pattern,
                                  std::multimap<QsDateTime, std::string>& out, int flags, unsigned max) {
  qsbase::detail::BuildFileListTimeAgeSorted(dir, pattern, out, flags, max, nullptr);
}

void QsCleanupDir(const std::string& dir, const std::string& omitDir, unsigned ageMinutes) {
  std::multimap<QsDateTime, std::string> files;
  QsBuildFileListTimeAgeSorted(dir, "*", files, qsbase::detail::ListFiles | qsbase::detail::ListDescend, 0);
  const QsDateTime cutOff = CutOff(ageMinutes);
  const std::string given = QsTranslateFilename(dir);
  const std::string top = QsAppendFileslash(given);
  const std::string omitted = QsTranslateFilename(omitDir);
  if (top == QsAppendFileslash(omitted)) {
    LogDetail("Cleaning up directory " + top + ": nothing to do because every file will be omitted!");
  }
  const std::string omit = RelativeOmit(given, top, omitted);
  LogCleanup(top, omit, cutOff);
  for (const auto& [time, name] : files) {
    const bool spared = !omit.empty() && BeginsWith(name, omit);
    if (time < cutOff && !spared) {
      QsDeleteFile(top + name, true);
    } else {
      // NOLINTNEXTLINE(performance-inefficient-string-concatenation): one line of text for a file
      LogDetail("Cleaning up directory " + top + ", file '" + name + "' is ignored!");
    }
  }
}

unsigned QsCleanupDirectory(const std::string& dir, unsigned keep, const std::string& pattern, bool force) {
  FilesByAge files = ListByAge(dir, pattern);
  unsigned deleted = 0;
  while (files.size() > keep) {
    deleted += DeleteOldest(ConstructPath(dir, files.begin()->second), force) ? 1 : 0;
    files.erase(files.begin());
  }
  return deleted;
}

bool QsDeleteDirectoryRecurse(const std::string& dir, bool removeDir, int sleepMs, bool force, bool (*mayGoOn)(),
                              bool continueOnError) {
  return TreeDeleter(sleepMs, force, mayGoOn, continueOnError).Delete(dir, removeDir);
}

unsigned QsGetDirEntryCount(const std::string& dir) {
  std::string path;
  if (!qsbase::detail::ReadablePath(dir, path)) {
    return 0;
  }
  unsigned count = 0;
  qsbase::detail::DirReader reader(path, qsbase::detail::LinkRule::Follow);
  for (std::string name; reader.Next(name);) {
    count += qsbase::detail::Counts(name) ? 1 : 0;
  }
  return count;
}

unsigned QsGetDirFileCount(const std::string& dir) {
  bool timedOut = false;
  return QsGetDirFileCount(dir, 0, timedOut);
}

unsigned QsGetDirFileCount(const std::string& dir, unsigned maxSeconds, bool& timedOut) {
  return qsbase::detail::CountFilesWithin(dir, maxSeconds, MonotonicSeconds, timedOut);
}
