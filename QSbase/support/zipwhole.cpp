// Listing and extraction of whole archives.
#include <QSbase/support/zlibsupport.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/zipextract.h>

using namespace qsbase::detail;

namespace {

constexpr int kVerboseLevel = 4;

// What the two walks call the same failures.
struct WalkCodes {
  int noGlobalInfo;
  int noEntry;
  int noNext;
};

constexpr WalkCodes kListCodes = {-7, -6, -3};
constexpr WalkCodes kExtractCodes = {-11, -10, -9};

// What the end record has of the number of entries, in 16 bits, when there are so many or more. Another record should
// tell then how many, but some writers, minizip among them, leave it out.
constexpr std::uint64_t kOpenCount = 0xFFFF;

// Whether minizip, asked for the next entry, went to what stands behind the last one: one of the end records.
bool IsBehindLast(const UnzipArchive& archive) {
  const std::optional<std::uint64_t> position = archive.FirstSeek();
  char mark[4];
  if (!position || archive.ReadAt(*position, mark, sizeof mark) != sizeof mark) {
    return false;
  }
  const std::string_view found(mark, sizeof mark);
  return found == "PK\5\6" || found == "PK\6\6" || found == "PK\5\5";
}

// Moves on, with UNZ_END_OF_LIST_OF_FILE behind the last entry also where the count is open and minizip sees no end.
int GoToNext(const UnzipArchive& archive, std::uint64_t number, std::uint64_t count) {
  archive.ForgetSeek();
  const int result = unzGoToNextFile(archive.Handle());
  const bool maybeLast = result != UNZ_OK && count == kOpenCount && number >= kOpenCount;
  return maybeLast && IsBehindLast(archive) ? UNZ_END_OF_LIST_OF_FILE : result;
}

// How many entries there are. Where the count is open they are counted, as far as they can be found.
std::uint64_t CountEntries(const UnzipArchive& archive) {
  unz_global_info64 global{};
  unzGetGlobalInfo64(archive.Handle(), &global);
  if (global.number_entry != kOpenCount) {
    return global.number_entry;
  }
  std::uint64_t number = 1;
  while (GoToNext(archive, number, kOpenCount) == UNZ_OK) {
    ++number;
  }
  unzGoToFirstFile(archive.Handle());
  return std::max(number, kOpenCount);
}

// Visits each entry with its number, from 1. What the visitor returns other than 0 ends the walk and is its result.
template <class Visit>
int WalkEntries(const UnzipArchive& archive, const std::string& path, const WalkCodes& codes, Visit visit) {
  unz_global_info64 global;
  int result = unzGetGlobalInfo64(archive.Handle(), &global);
  if (result != UNZ_OK) {
    QsLogMsg(kLogError, "unzGetGlobalInfo failed (%d) for %s", result, path.c_str());
    return codes.noGlobalInfo;
  }
  const std::uint64_t count = global.number_entry;
  ZipEntry entry;
  for (std::uint64_t number = 1; number <= count || count == kOpenCount; ++number) {
    result = ReadEntry({archive.Handle(), &archive}, entry);
    if (result != UNZ_OK) {
      QsLogMsg(kLogError, "unzGetCurrentFileInfo failed (%d) for %s in %s", result, entry.name.c_str(), path.c_str());
      return codes.noEntry;
    }
    const int verdict = visit(entry, number);
    if (verdict != 0) {
      return verdict;
    }
    result = GoToNext(archive, number, count);
    if (result == UNZ_END_OF_LIST_OF_FILE) {
      break;
    }
    if (result != UNZ_OK) {
      QsLogMsg(kLogError, "unzGoToNextFile failed (%d) in file %s", result, path.c_str());
      return codes.noNext;
    }
  }
  return 0;
}

// ---- listing ----

struct ZipSummary {
  int* fileCount;
  std::int64_t* size;
  std::vector<std::string>* names;

  void Clear() const {
    if (fileCount != nullptr) {
      *fileCount = 0;
    }
    if (size != nullptr) {
      *size = 0;
    }
    if (names != nullptr) {
      names->clear();
    }
  }

  void Add(const ZipEntry& entry) const {
    if (size != nullptr) {
      constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
      const std::uint64_t room = kMost - static_cast<std::uint64_t>(*size);
      *size += static_cast<std::int64_t>(std::min<std::uint64_t>(entry.info.uncompressed_size, room));
    }
    if (IsDirectoryEntry(entry.name)) {
      return;
    }
    if (fileCount != nullptr) {
      ++*fileCount;
    }
    if (names != nullptr) {
      names->push_back(entry.name);
    }
  }
};

int Summarize(const std::string& path, const ZipSummary& summary) {
  if (!DirExists(path)) {
    return -5;
  }
  UnzipArchive archive;
  if (!OpenArchive(archive, path)) {
    return -4;
  }
  const int result = WalkEntries(archive, path, kListCodes, [&](const ZipEntry& entry, std::uint64_t) {
    summary.Add(entry);
    return 0;
  });
  CloseArchive(archive, path);
  return result;
}

// ---- extraction ----

class WholeExtraction {
 public:
  WholeExtraction(const std::string& archivePath, const std::string& folder, std::vector<std::string>* extracted,
                  QsProgressAndAbortHandler* handler)
      : _archivePath(archivePath), _folder(folder), _extracted(extracted), _handler(handler) {}

  int Run() {
    UnzipArchive archive;
    if (!OpenArchive(archive, _archivePath)) {
      return -4;
    }
    if (QsGetLogLevel() >= kVerboseLevel) {
      QsLogMsg(kLogInfo4, "extracting %s to %s", _archivePath.c_str(), _folder.c_str());
    }
    _count = _handler == nullptr ? 0 : CountEntries(archive);
    const int result =
        WalkEntries(archive, _archivePath, kExtractCodes,
                    [&](const ZipEntry& entry, std::uint64_t number) { return Visit(archive, entry, number); });
    CloseArchive(archive, _archivePath);
    return result;
  }

 private:
  int Visit(const UnzipArchive& archive, const ZipEntry& entry, std::uint64_t number) {
    const int result = IsDirectoryEntry(entry.name) ? MakeDirectory(entry) : ExtractFile(archive, entry);
    if (result != 0) {
      return result;
    }
    if (_handler != nullptr && !MayGoOn(number)) {
      return -8;
    }
    if (_extracted != nullptr) {
      _extracted->push_back(_folder + entry.name);
    }
    return 0;
  }

  int MakeDirectory(const ZipEntry& entry) {
    const std::string_view path = EntryFolder(entry.name);
    return IsInside(entry, path) && EnsureFolder(path) ? 0 : FailToMake(_folder + entry.name);
  }

  int ExtractFile(const UnzipArchive& archive, const ZipEntry& entry) {
    const std::string_view path = EntryFolder(entry.name);
    constexpr int kNoFile = -3;
    if (!IsInside(entry, path)) {
      return FailToExtract(entry, kNoFile);
    }
    if (!EnsureFolder(path)) {
      return FailToMake(_folder + std::string(path));
    }
    const std::string target = _folder + entry.name;
    EntryTarget file;
    file.path = target.c_str();
    file.onlyFiles = true;
    const int code = ExtractEntry({archive.Handle(), &archive}, entry, file);
    return code == 0 ? 0 : FailToExtract(entry, code);
  }

  // Whether what the name says lies below the folder, also when links are followed.
  bool IsInside(const ZipEntry& entry, std::string_view path) const {
    return IsSafeEntryName(entry) && (path == _lastFolder || !HasLinkBelow(_folder, path));
  }

  // Entries of one folder mostly follow each other.
  bool EnsureFolder(std::string_view path) {
    if (path == _lastFolder) {
      return true;
    }
    const bool made = path.empty() || ForceCreateDirectories(_folder + std::string(path));
    _lastFolder = made ? path : std::string_view();
    return made;
  }

  int FailToMake(const std::string& directory) const {
    QsLogMsg(kLogError, "Could not create directory %s (%s)", directory.c_str(), _archivePath.c_str());
    return -7;
  }

  int FailToExtract(const ZipEntry& entry, int code) const {
    std::string why;
    QsGetZLibErrorMessage(code, why);
    QsLogMsg(kLogError, "An error (%s) occured during the extraction of %s in %s", why.c_str(), entry.name.c_str(),
             _archivePath.c_str());
    return -1;
  }

  bool MayGoOn(std::uint64_t number) const {
    constexpr std::uint64_t kReports = 20;
    const bool stops = _handler->IsAborted();
    if (stops && QsGetLogLevel() >= kVerboseLevel) {
      QsLogMsg(kLogInfo4, "File extraction (%s) stopped due to abort signal!", _archivePath.c_str());
    }
    const std::uint64_t step = _count > kReports ? _count / kReports : 1;
    if (stops || number % step == 0) {
      constexpr int kLast = 99;
      _handler->OnProgress(number >= _count ? kLast : static_cast<int>(number * 100 / _count));
    }
    return !stops;
  }

  const std::string& _archivePath;
  const std::string& _folder;
  std::vector<std::string>* const _extracted;
  QsProgressAndAbortHandler* const _handler;
  std::uint64_t _count = 0;  // of the entries, where there is a handler
  std::string _lastFolder;   // below the folder; there is nothing to make for the empty one
};

}  // namespace

int QsGetZipInfo(const char* zipPath, int* fileCount, std::int64_t* uncompressedSize, std::vector<std::string>* names) {
  if (zipPath == nullptr || *zipPath == '\0') {
    return -2;
  }
  const ZipSummary summary = {fileCount, uncompressedSize, names};
  if (fileCount == nullptr && uncompressedSize == nullptr && names == nullptr) {
    return -1;
  }
  const std::string path = QsTranslateFilename(zipPath);  // before the names go: it may be one of them
  summary.Clear();
  const int result = Summarize(path, summary);
  if (result != 0) {
    summary.Clear();
  }
  return result;
}

int QsGetNumOfFilesInZip(const char* zipPath, int* fileCount) {
  return QsGetZipInfo(zipPath, fileCount, nullptr, nullptr);
}

int QsGetUncompressedSize(const char* zipPath, std::int64_t* uncompressedSize) {
  return QsGetZipInfo(zipPath, nullptr, uncompressedSize, nullptr);
}

int QsGetFilesInZip(const char* zipPath, std::vector<std::string>* names) {
  return QsGetZipInfo(zipPath, nullptr, nullptr, names);
}

int QsExtractWholeFile(const char* zipPath, const char* destDir, std::vector<std::string>* extracted,
                       QsProgressAndAbortHandler* handler) {
  if (zipPath == nullptr || *zipPath == '\0') {
    return -2;
  }
  if (destDir == nullptr || *destDir == '\0') {
    return -3;
  }
  const std::string path = QsTranslateFilename(zipPath);
  if (!DirExists(path)) {
    return -5;
  }
  const std::string folder = QsAppendFileslash(QsTranslateFilename(destDir));
  if (folder.empty() || !ForceCreateDirectories(folder)) {  // empty: a path too long for the library
    return -6;
  }
  return WholeExtraction(path, folder, extracted, handler).Run();
}
