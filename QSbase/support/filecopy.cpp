// Copying and moving of files.
#include <QSbase/support/filesupport.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>

#include <QSbase/errors.h>
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
    // NOLINTNEXTLINE(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe): no secret, and the C library locks it
    name = target + "." + std::to_string(std::rand());
    result = file.CreateNew(name, permissions);
  }
  return result;
}

std::string TemporaryBase(const std::string& target) {
  constexpr std::size_t kKept = 200;
  return target.substr(0, DirectoryPart(target).size() + kKept);
}

}  // namespace qsbase::detail

using namespace qsbase::detail;

namespace {

constexpr std::size_t kCopyBlock = 32768;
constexpr unsigned kPrivatePermissions = 0600;  // until the source's are known

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
  } else if (!to.Truncate()) {  // closing has failed, which has closed it
    to.OpenWrite(target, OsFile::Writing::Truncate);
  }
}

// A copy under a temporary name. Unless it is done it is taken away again, also where an exception ends it.
class CopyInWork {
 public:
  CopyInWork(const std::string& name, OsFile& file) noexcept : _name(name), _file(file) {}
  ~CopyInWork() {
    if (_done) {
      return;
    }
    try {
      DropCopy(_name, _file, true);
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): no memory for the path; then it stays
    }
  }
  CopyInWork(const CopyInWork&) = delete;
  CopyInWork& operator=(const CopyInWork&) = delete;

  void Done() noexcept { _done = true; }

 private:
  const std::string& _name;
  OsFile& _file;
  bool _done = false;
};

// Only while the name still stands for what was copied: of a directory that is mounted twice, source and target may be
// one name, and another process may have put a new file there.
void RemoveSource(const std::string& source, OsFile& copied) {
  const LastErrorGuard keep;
  try {
    OsFile now;
    const bool unchanged = now.OpenRead(source) && now.IsSameAs(copied);
    now.Close();
    copied.Close();
    if (unchanged) {
      OsRemoveFile(source);
    }
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): without memory for the path the source stays
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
  CopyInWork copy(temporary, to);
  if (!CopyInto(from, status, to) || !to.Flush() || !to.Close() ||
      OsMove(temporary, target, replace) != MoveResult::Done) {
    return false;
  }
  copy.Done();
  RemoveSource(source, from);
  return true;
}

enum class Step { Done, Failed, NotPossible };

// On the disk before it takes the target's place, as far as the system lets that be asked for: Windows wants the right
// to write, which a copy that is read-only like its source does not give.
void BringToDisk(const std::string& path) {
  const LastErrorGuard keep;
  OsFile file;
  if (file.OpenWrite(path, OsFile::Writing::Keep) || file.OpenRead(path)) {
    file.Flush();
  }
}

// Whether a file may take the target's place. Never where it is the source: what is written to that meanwhile would be
// lost.
bool MayReplace(const std::string& source, const std::string& target, const OsFile& file) {
  OsFile old;
  if (!old.OpenRead(target)) {
    return OsErrorMeansMissing(QsGetLastError());
  }
  OsFile copied;
  return old.MayGiveWayTo(file) && !(copied.OpenRead(source) && copied.IsSameAs(old));
}

bool HasAtLeast(const std::string& path, std::size_t bytes) {
  FileStatus status;
  return OsGetStatus(path, LinkView::Itself, status) && static_cast<std::uint64_t>(status.size) >= bytes;
}

Step CopyAndReplace(const std::string& from, const std::string& to, bool failIfExists, std::size_t least) {
  OsFile file;
  std::string temporary;
  if (CreateBeside(TemporaryBase(to), kPrivatePermissions, file, temporary) != OsFile::Creation::Created) {
    return Step::NotPossible;
  }
  CopyInWork copy(temporary, file);
  if (!MayReplace(from, to, file)) {
    return Step::NotPossible;
  }
  file.Close();
  if (!QsCopyFile(from, temporary, false, false) || !HasAtLeast(temporary, least)) {
    return Step::Failed;
  }
  BringToDisk(temporary);
  if (!MoveOnto(temporary, to, !failIfExists)) {
    ClearReadOnlyIfSet(temporary, LinkView::Itself);  // Windows removes nothing that has it
    return Step::NotPossible;
  }
  copy.Done();
  return Step::Done;
}

// A link would be lost, and what is no file stays.
bool MayBeReplaced(const std::string& target, bool failIfExists) {
  FileStatus status;
  if (!OsGetStatus(target, LinkView::Itself, status)) {
    return true;
  }
  return !failIfExists && status.kind == FileKind::Regular;
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

namespace qsbase::detail {

bool MoveOnto(const std::string& from, const std::string& to, bool replace) {
  if (QsMoveFile(from, to, replace, false)) {
    return true;
  }
  {
    const LastErrorGuard keep;
    FileStatus status;
    if (!OsGetStatus(to, LinkView::Itself, status) || !status.isReadOnly) {
      return false;
    }
  }
  return QsMoveFile(from, to, replace, true);
}

bool CopyInOneStep(const std::string& from, const std::string& to, bool failIfExists, std::size_t least) {
  const Step step = MayBeReplaced(to, failIfExists) ? CopyAndReplace(from, to, failIfExists, least) : Step::NotPossible;
  return step == Step::NotPossible ? QsCopyFile(from, to, failIfExists, true) : step == Step::Done;
}

}  // namespace qsbase::detail
