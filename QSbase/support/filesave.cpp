// Saving of files, and loading with a backup.
#include <QSbase/support/filesupport.h>

#include <exception>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/support/filedetail.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/findentries.h>
#include <QSbase/support/paths.h>

using namespace qsbase::detail;

namespace {

// A failed save with the last error it met: throwing may change that (a program's first exception does on Windows).
class SaveError : public ExBase {
 public:
  SaveError(const std::string& text, int code) : ExBase(text), _code(code) {}
  int Code() const { return _code; }

 private:
  int _code;
};

[[noreturn]] void Fail(const char* what, const std::string& path) {
  const int code = QsGetLastError();
  throw SaveError(what + path + " (" + QsErrorMessage(code) + ")", code);
}

[[noreturn]] void FailToOpen(const std::string& path) { Fail("Cannot open file:", path); }

[[noreturn]] void FailToSave(const std::string& path) { Fail("Cannot save complete filecontents:", path); }

void LogError(const ExBase& error) { QsLogMsg(kLogError, "SaveBinaryFile >>> " + error.GetErrorText()); }

// Runs a save that throws on failure; what it throws is logged.
template <class Saving>
bool LogFailure(Saving save) {
  try {
    return save();
  } catch (const SaveError& error) {
    LogError(error);
    QsSetLastError(error.Code());
  } catch (const ExBase& error) {
    LogError(error);
  } catch (const std::exception& error) {
    QsLogMsg(kLogError, std::string("SaveBinaryFile >>> std::exception: ") + error.what());
  }
  return false;
}

void Save(const std::string& path, const std::string& content, bool clearReadOnly, OsFile::Writing writing) {
  const std::string translated = QsTranslateFilename(path);
  if (clearReadOnly) {
    ClearReadOnlyIfSet(translated, LinkView::Target);
  }
  OsFile file;
  if (!file.OpenWrite(translated, writing)) {
    FailToOpen(translated);
  }
  if ((!content.empty() && !file.Write(content.data(), content.size())) || !file.Close()) {
    FailToSave(translated);
  }
}

bool LoggedSave(const std::string& path, const std::string& content, bool clearReadOnly, OsFile::Writing writing) {
  return LogFailure([&] {
    Save(path, content, clearReadOnly, writing);
    return true;
  });
}

// Makes the temporary file with the target's permissions, or the process's for a new target.
OsFile::Creation CreateTemporary(const std::string& target, OsFile& file, std::string& name) {
  FileStatus status;
  const bool replaces = OsGetStatus(target, LinkView::Target, status) && status.kind == FileKind::Regular;
  const OsFile::Creation result = CreateBeside(target, replaces ? status.permissions : kDefaultPermissions, file, name);
  if (result == OsFile::Creation::Created && replaces) {
    file.SetPermissions(status.permissions);
  }
  return result;
}

// On the disk before the move: after a crash the target must not be a name without its content.
void WriteThrough(OsFile& file, const std::string& name, const std::string& content) {
  if ((!content.empty() && !file.Write(content.data(), content.size())) || !file.Flush() || !file.Close()) {
    FailToSave(name);
  }
}

// The content is safe; where the system cannot, or has no memory for it, the new name may come late.
void BringNameToDisk(const std::string& target) {
  try {
    OsSyncDirectory(DirectoryPart(target));
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the save is done all the same
  }
}

bool AtomicSave(const std::string& target, const std::string& content, bool replace) {
  OsFile file;
  std::string temporary;
  switch (CreateTemporary(target, file, temporary)) {
    case OsFile::Creation::Failed:
      FailToOpen(temporary);
    case OsFile::Creation::Exists:
      return SaveBinaryFile(target, content, replace);
    case OsFile::Creation::Created:
      break;
  }
  WriteThrough(file, temporary, content);
  if (!MoveOnto(temporary, target, replace)) {
    return false;
  }
  BringNameToDisk(target);
  return true;
}

bool EndsWithoutLineBreak(const std::string& content) {
  return !content.empty() && content.back() != '\n' && content.back() != '\r';
}

// Copies after a good load, restores after a bad one; an empty original counts as lost.
std::string LoadWithBackup(const std::string& original, const std::string& backup, bool overwriteBackup) {
  std::string content = LoadBinaryFile(original);
  if (!content.empty()) {
    CopyInOneStep(original, backup, !overwriteBackup, content.size());
    return content;
  }
  content = LoadBinaryFile(backup);
  if (content.empty()) {
    throw ExBase("File loading error! Could not load original file nor backup file!");
  }
  CopyInOneStep(backup, original, !overwriteBackup, content.size());
  return content;
}

}  // namespace

bool SaveBinaryFile(const std::string& path, const std::string& content, bool clearReadOnly) {
  return LoggedSave(path, content, clearReadOnly, OsFile::Writing::Truncate);
}

bool AppendBinaryFile(const std::string& path, const std::string& content) {
  return LoggedSave(path, content, true, OsFile::Writing::Append);
}

bool ClearBinaryFile(const std::string& path) {
  return LoggedSave(path, std::string(), true, OsFile::Writing::Truncate);
}

bool QsAtomicSaveBinaryFile(const std::string& path, const std::string& content, bool replace) {
  const std::string target = QsTranslateFilename(path);
  if (target.empty()) {
    return SaveBinaryFile(target, content, replace);  // fails, and says so
  }
  return LogFailure([&] { return AtomicSave(target, content, replace); });
}

void SaveFileWithCRLF(const std::string& path, const std::string& content, bool createDirs) {
  const std::string translated = QsTranslateFilename(path);
  const std::string directory = DirectoryPart(translated);
  if (createDirs && !ForceCreateDirectories(directory)) {
    throw ExBase("Cannot create directory: " + directory);
  }
  OsFile file;
  if (!file.OpenWrite(translated, OsFile::Writing::Truncate)) {
    throw ExBase("Cannot save to file:" + translated);
  }
  const bool written = content.empty() || file.Write(content.data(), content.size());
  if (!written || (EndsWithoutLineBreak(content) && !file.Write("\r\n", 2)) || !file.Close()) {
    throw ExBase("Cannot save complete filecontents:" + translated);
  }
}

std::string FileLoadAndBackup(const std::string& path, bool overwriteBackup) {
  const std::string original = QsTranslateFilename(path);
  return LoadWithBackup(original, original + ".bak", overwriteBackup);
}

std::string FileLoadAndBackupToDir(const std::string& path, const std::string& backupDir, bool overwriteBackup) {
  const std::string original = QsTranslateFilename(path);
  if (!ForceCreateDirectories(backupDir)) {
    throw ExBase("cannot create directory " + backupDir);
  }
  return LoadWithBackup(original, QsAppendFileslash(backupDir) + ExtractFileName(original), overwriteBackup);
}

int CAL_WriteBufferToFile(const char* name, const char* buffer, unsigned length) {
  if (name == nullptr || buffer == nullptr) {
    return -4;
  }
  OsFile file;
  if (!file.OpenWrite(QsTranslateFilename(name), OsFile::Writing::Truncate)) {
    return -2;
  }
  return (length == 0 || file.Write(buffer, length)) && file.Close() ? 0 : -2;
}
