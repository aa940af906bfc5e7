#include "archive.h"

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/process.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findfile.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/zlibsupport.h>
#include <QSbase/text/qsstring.h>

#include <minizip/zip.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "fetch.h"
#include "interrupt.h"
#include "progress.h"
#include "text.h"

namespace qs {
namespace {

// ---- zip ----

struct Member {
  std::string path;
  std::string name;  // in the archive; a folder's ends in "/"
  std::uint64_t size = 0;
  QsDateTime time;
};

// What a path is called in an archive: below nothing, and with "/".
std::string NameInArchive(const std::string& path) {
  std::string name;
  const std::string whole = QsTranslateFilename(path);
  const std::string rest = whole.substr(ExtractFileDrive(whole).size());
  for (std::size_t start = 0; start < rest.size();) {
    const std::size_t end = std::min(rest.find('\\', start), rest.size());
    const std::string part = rest.substr(start, end - start);
    if (part == "..") {
      name.clear();
    } else if (!part.empty() && part != ".") {
      name += (name.empty() ? "" : "/") + part;
    }
    start = end + 1;
  }
  return name;
}

class Packer {
 public:
  explicit Packer(const ZipOptions& options)
      : _options(options),
        _temporary(options.archive + ".part" + std::to_string(QsGetCurrentProcessId())),
        _progress(options.quiet) {}

  int Run() {
    for (const std::string& input : _options.inputs) {
      if (!Collect(input)) {
        return Fail("no such file or folder: '" + Printable(input) + "'");
      }
    }
    const QsFileDeleter deleter(_temporary);
    const std::string problem = Write();
    if (Interrupted()) {
      return InterruptExitCode();
    }
    if (problem.empty() && !QsMoveFile(_temporary, _options.archive, true, false)) {
      return Fail("cannot write '" + Printable(_options.archive) + "': " + QsErrorMessage(QsGetLastError()));
    }
    return problem.empty() ? LeftOut() : Fail(problem);
  }

 private:
  // The archive stands, but its user learns what it lacks.
  int LeftOut() const {
    for (const std::string& line : _leftOut) {
      PrintError("left out: " + line);
    }
    return _leftOut.empty() ? kExitGood : kExitFailed;
  }

  bool Collect(const std::string& input) {
    const FSOType type = QsGetFSObjectType(input);
    if (type != FSO_FILE && type != FSO_DIRECTORY) {
      return false;
    }
    const std::string name = NameInArchive(input);
    if (type == FSO_DIRECTORY) {
      CollectFolder(input, name);
      return true;
    }
    Member member = {input, name, static_cast<std::uint64_t>(QsGetFileSize64(input.c_str())), QsDateTime()};
    FileDate(input, member.time);
    Add(member);
    return true;
  }

  // Links to folders are not entered, so that there is an end.
  void CollectFolder(const std::string& path, const std::string& name) {
    const std::string prefix = name.empty() ? "" : name + "/";
    if (!name.empty()) {
      Member member = {path, prefix, 0, QsDateTime()};
      FileDate(path, member.time);
      Add(member);
    }
    CQsFindFile find(path, "*", 0);
    constexpr int kNothingThere = 2;  // on both systems; an empty drive of Windows, too
    constexpr int kEndOfList = 18;    // of every list on Windows
    QsSetLastError(0);
    long found = find.FindFirst();
    const int error = QsGetLastError();  // also when the list broke off behind its first entries
    if (error != 0 && error != kNothingThere && error != kEndOfList) {
      _leftOut.push_back("'" + Printable(path) + "': " + QsErrorMessage(error));
    }
    for (; found != -1 && !Interrupted(); found = find.FindNext()) {
      const std::string below = ConstructPath(path, find.Filename());
      if (find.IsThisDir_PrevDir() || IsArchive(below)) {
        continue;
      }
      if (find.IsDir()) {
        CollectFolder(below, prefix + find.Filename());
      } else if (QsGetFSObjectType(below) == FSO_FILE) {
        Add({below, prefix + find.Filename(), find.FileSize(), find.FileDate()});
      } else {
        _leftOut.push_back("'" + Printable(below) + "': neither a file nor a folder of its own");
      }
    }
  }

  // Whatever the two are called. Of a name that the standard library does not take, the name decides.
  bool IsArchive(const std::string& path) const {
    std::error_code noneIsThere;
    try {
      return std::filesystem::equivalent(QsNativePath(path), QsNativePath(_options.archive), noneIsThere);
    } catch (const std::filesystem::filesystem_error&) {
      return NameInArchive(path) == NameInArchive(_options.archive);
    }
  }

  void Add(const Member& member) {
    _members.push_back(member);
    _total += member.size;
  }

  // What went wrong; empty for success, and when interrupted.
  std::string Write() {
    void* archive = zipOpen(QsNativePath(_temporary).c_str(), APPEND_STATUS_CREATE);
    if (archive == nullptr) {
      return "cannot write '" + Printable(_options.archive) + "': " + QsErrorMessage(QsGetLastError());
    }
    _progress.Begin(Printable(_options.archive));
    std::string problem;
    std::uint64_t done = 0;
    for (std::size_t i = 0; i < _members.size() && problem.empty() && !Interrupted(); ++i) {
      problem = WriteMember(archive, _members[i]);
      done += _members[i].size;
      _progress.Update(done, _total);
    }
    _progress.End();
    if (zipClose(archive, nullptr) != ZIP_OK && problem.empty()) {
      problem = "cannot write '" + Printable(_options.archive) + "'";
    }
    return problem;
  }

  static std::string WriteMember(void* archive, const Member& member) {
    std::string content;
    const bool isFile = member.name.empty() || member.name.back() != '/';
    if (isFile && !QsLoadFilePart(member.path, 0, -1, content)) {
      return "cannot read '" + Printable(member.path) + "': " + QsErrorMessage(QsGetLastError());
    }
    return QsWrite2Zip(&archive, content, member.time, member.name.c_str())
               ? ""
               : "cannot write the entry '" + Printable(member.name) + "'";
  }

  const ZipOptions& _options;
  const std::string _temporary;
  Progress _progress;
  std::vector<Member> _members;
  std::vector<std::string> _leftOut;
  std::uint64_t _total = 0;
};

// ---- unzip ----

// The library's last error message while it lives: it names the entry.
class LastLoggedError {
 public:
  LastLoggedError() {
    Text().clear();
    SetLogCallback(&Receive);
  }
  ~LastLoggedError() { DisableLogCallback(&Receive); }
  LastLoggedError(const LastLoggedError&) = delete;
  LastLoggedError& operator=(const LastLoggedError&) = delete;

  static std::string& Text() {
    static std::string text;
    return text;
  }

 private:
  static void Receive(unsigned int flags, const char* text) {
    constexpr unsigned int kError = 0x40000000;
    if ((flags & kError) != 0) {
      Text() = text;
    }
  }
};

class UnzipHandler : public QsProgressAndAbortHandler {
 public:
  explicit UnzipHandler(const UnzipOptions& options) : _progress(options.quiet) {
    _progress.Begin(Printable(options.archive));
  }
  bool IsAborted() override { return Interrupted(); }
  void OnProgress(int percent) override { _progress.UpdatePercent(percent); }

 private:
  Progress _progress;
};

int ListArchive(const UnzipOptions& options) {
  int count = 0;
  std::int64_t size = 0;
  std::vector<std::string> names;
  const LastLoggedError error;
  const int code = QsGetZipInfo(options.archive.c_str(), &count, &size, &names);
  if (code != 0) {
    return Fail(code == -5 ? "no such file: '" + Printable(options.archive) + "'" : Printable(error.Text()));
  }
  for (const std::string& name : names) {
    std::printf("%s\n", Printable(name).c_str());
  }
  std::printf("%s, %lld bytes\n", Count(static_cast<std::size_t>(count), "file").c_str(), static_cast<long long>(size));
  return kExitGood;
}

}  // namespace

int RunZip(const ZipOptions& options) { return Packer(options).Run(); }

int RunUnzip(const UnzipOptions& options) {
  if (options.list) {
    return ListArchive(options);
  }
  int code = 0;
  const LastLoggedError error;
  {
    UnzipHandler handler(options);
    code = QsExtractWholeFile(options.archive.c_str(), options.outputFolder.c_str(), nullptr, &handler);
  }
  std::string why;
  if (QsGetZLibErrorMessageWholeFile(code, why)) {
    return InterruptExitCode();
  }
  if (code != 0) {
    return Fail("'" + Printable(options.archive) + "': " + why +
                (error.Text().empty() ? "" : " (" + Printable(error.Text()) + ")"));
  }
  return kExitGood;
}

}  // namespace qs
