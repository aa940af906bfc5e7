// Copying and moving of files.
#include <QSbase/support/filesupport.h>

#include <array>
#include <cstddef>
#include <cstdlib>

#include <QSbase/lasterrorguard.h>
#include <QSbase/support/filedetail.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/findentries.h>
#include <QSbase/support/paths.h>

namespace qsbase::detail {

OsFile::Creation CreateBeside(const std::string& target, unsigned permissions, OsFile& file, std::string& name) {
  constexpr int kAttempts = 100;
  OsFile::Creation result = OsFile::Creation::Exists;
  for (int attempt = 0; attempt < kAttempts && result == OsFile::Creation::Exists; ++attempt) {
    name = target + "." + std::to_string(std::rand());
    result = file.CreateNew(name, permissions);
  }
  return result;
}

}  // namespace qsbase::detail

using namespace qsbase::detail;

namespace {

constexpr std::size_t kCopyBlock = 32768;

bool CopyContent(OsFile& from, OsFile& to) {
  to.CopyInSystem(from);
  std::array<char, kCopyBlock> block;
  std::ptrdiff_t count = 0;
  while ((count = from.Read(block.data(), block.size())) > 0) {
    if (!to.Write(block.data(), static_cast<std::size_t>(count))) {
      return false;
    }
  }
  return count == 0;
}

// Content, permissions and modification time. The permissions come first, so that a private content is never readable
// for others; a file system that keeps neither them nor the time still gets its copy.
bool CopyInto(OsFile& from, const FileStatus& status, OsFile& to) {
  to.SetPermissions(status.permissions);
  if (!CopyContent(from, to)) {
    return false;
  }
  to.SetModified(status.modified);
  return true;
}

// Opens the target empty, unless it is the source itself.
bool OpenTarget(const std::string& target, const FileStatus& source, bool failIfExists, const OsFile& from, OsFile& to,
                bool& created) {
  const OsFile::Creation creation = to.CreateNew(target, source.permissions);
  created = creation == OsFile::Creation::Created;
  if (creation != OsFile::Creation::Exists) {
    return created;
  }
  return !failIfExists && to.OpenWrite(target, OsFile::Writing::Keep) && !to.IsSameAs(from) && to.Truncate();
}

// Half a copy must not pass for a whole one.
void DropCopy(const std::string& target, OsFile& to, bool created) {
  const LastErrorGuard keep;
  if (created) {
    to.Close();  // some systems remove no open file
    OsRemoveFile(target);
  } else {
    to.Truncate();
  }
}

// What temporary names begin with. A name as long as the file system allows leaves room for the number.
std::string TemporaryBase(const std::string& target) {
  constexpr std::size_t kKept = 200;
  return target.substr(0, DirectoryPart(target).size() + kKept);
}

// Only while the name still stands for what was copied: of a directory that is mounted twice, source and target may be
// one name, and another process may have put a new file there.
void RemoveSource(const std::string& source, OsFile& copied) {
  const LastErrorGuard keep;
  OsFile now;
  const bool unchanged = now.OpenRead(source) && now.IsSameAs(copied);
  now.Close();
  copied.Close();
  if (unchanged) {
    OsRemoveFile(source);
  }
}

// Copies beside the target first: the target is always the old file or the whole new one.
bool MoveAcrossVolumes(const std::string& source, const std::string& target, bool replace) {
  OsFile from;
  OsFile to;
  FileStatus status;
  std::string temporary;
  if (!from.OpenRead(source) || !from.Describe(status) ||
      CreateBeside(TemporaryBase(target), status.permissions, to, temporary) != OsFile::Creation::Created) {
    return false;
  }
  const bool copied = CopyInto(from, status, to) && to.Flush() && to.Close();
  if (!copied || OsMove(temporary, target, replace) != MoveResult::Done) {
    DropCopy(temporary, to, true);
    return false;
  }
  RemoveSource(source, from);
  return true;
}

bool CopyByReading(const std::string& source, const std::string& target, bool failIfExists) {
  OsFile in;
  OsFile out;
  FileStatus status;
  bool created = false;
  if (!in.OpenRead(source) || !in.Describe(status) || !OpenTarget(target, status, failIfExists, in, out, created)) {
    return false;
  }
  if (CopyInto(in, status, out) && out.Close()) {
    return true;
  }
  DropCopy(target, out, created);
  return false;
}

}  // namespace

bool QsCopyFile(const std::string& from, const std::string& to, bool failIfExists, bool clearReadOnly) {
  const std::string source = QsTranslateFilename(from);
  const std::string target = QsTranslateFilename(to);
  if (clearReadOnly) {
    ClearReadOnlyIfSet(target, LinkView::Target);
  }
  const CopyResult result = OsCopyFile(source, target, failIfExists);
  return result == CopyResult::NotOffered ? CopyByReading(source, target, failIfExists) : result == CopyResult::Done;
}

bool QsLinkFile(const std::string& from, const std::string& to, bool) { return QsCopyFile(from, to, true, false); }

bool QsMoveFile(const std::string& from, const std::string& to, bool replace, bool clearReadOnly) {
  const std::string source = QsTranslateFilename(from);
  const std::string target = QsTranslateFilename(to);
  if (clearReadOnly) {
    ClearReadOnlyIfSet(target, LinkView::Itself);
  }
  const MoveResult result = OsMove(source, target, replace);
  return result == MoveResult::OtherVolume ? MoveAcrossVolumes(source, target, replace) : result == MoveResult::Done;
}
