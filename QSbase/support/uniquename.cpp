#include <QSbase/support/uniquename.h>

#include <cstddef>

#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>

namespace {

constexpr int kFlagLock = 1;

bool IsTaken(const std::string& path) {
  const FSOType type = QsGetFSObjectType(path);
  return type == FSO_FILE || type == FSO_DIRECTORY;
}

// Base name and extension, cut where the translated text says, so that a dot before a "/" is no extension.
void CutExtension(const std::string& path, std::string& base, std::string& extension) {
  const std::string translated = QsTranslateFilename(path);
  const std::string& guide = translated.empty() ? path : translated;
  base = path.substr(0, CAL_GetFileBaseName(guide).size());
  extension = CAL_GetFileExtension(guide);
}

}  // namespace

CUniqueFilenameManager::CUniqueFilenameManager(int flags, const std::string& prefix, const std::string& suffix)
    : _flags(flags), _prefix(prefix), _suffix(suffix), _counters(std::make_unique<std::map<std::string, int>>()) {}

CUniqueFilenameManager::CUniqueFilenameManager() : CUniqueFilenameManager(0, " (", ")") {}

CUniqueFilenameManager::~CUniqueFilenameManager() = default;

void CUniqueFilenameManager::SetFlags(int flags) { _flags = flags; }

int CUniqueFilenameManager::Reset() {
  _counters->clear();
  return 0;
}

int CUniqueFilenameManager::GetUniquePath(const std::string& wanted, std::string& result, bool remember) {
  result = wanted;
  if (!IsTaken(wanted)) {
    return 0;
  }
  if (remember && (_flags & kFlagLock) != 0) {
    QsCriticalSectionAutoPtr guard(&_lock);
    return GetUniquePathInternal(wanted, result, true);
  }
  return GetUniquePathInternal(wanted, result, remember);
}

int CUniqueFilenameManager::GetUniquePathInternal(const std::string& wanted, std::string& result, bool remember) {
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the result may be the same object
  const std::string path = wanted;
  int counter = 1;
  if (remember) {
    const auto known = _counters->find(path);
    counter = known == _counters->end() ? 1 : known->second;
  }
  std::string base;
  std::string extension;
  CutExtension(path, base, extension);
  do {
    result = base + _prefix + std::to_string(counter) + _suffix + "." + extension;
    ++counter;
  } while (IsTaken(result));
  if (remember) {
    (*_counters)[path] = counter;
  }
  return 0;
}

int CAL_GetUniquePath(const std::string& wanted, std::string& result) {
  CUniqueFilenameManager names(0, "_", "");
  return names.GetUniquePath(wanted, result, false);
}
