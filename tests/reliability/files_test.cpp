// What the file operations promise when any call that they make of the system fails, comes back short or is
// interrupted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <common/noise.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <reliability/common/faults.h>
#include <reliability/common/sweep.h>

#include <QSbase/errors.h>
#include <QSbase/support/bufferedfile.h>
#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findfile.h>
#include <QSbase/support/mapfile.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/qsfile.h>
#include <QSbase/support/uniquename.h>

namespace {

namespace fs = std::filesystem;
using qsbase::testing::Fault;
using qsbase::testing::FaultKind;
using qsbase::testing::kFileBlows;
using qsbase::testing::MakeDirectoryLink;
using qsbase::testing::NamesIn;
using qsbase::testing::Noise;
using qsbase::testing::Outcome;
using qsbase::testing::SetReadOnly;
using qsbase::testing::SetTimes;
using qsbase::testing::TempDir;
using qsbase::testing::Trial;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSubsetOf;
using ::testing::IsSupersetOf;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

const std::string kOld = "old content " + Noise(70000);
const std::string kNew = "new content " + Noise(90000);

// What a text stream gives of the bytes: on Windows line feeds alone, up to the character that ends a text.
std::string AsText(std::string bytes) {
#ifdef _WIN32
  for (std::size_t end = bytes.find("\r\n"); end != std::string::npos; end = bytes.find("\r\n", end)) {
    bytes.erase(end, 1);
  }
  bytes.resize(std::min(bytes.find('\x1A'), bytes.size()));
#endif
  return bytes;
}

bool IsPrefix(const std::string& part, const std::string& whole) { return whole.compare(0, part.size(), part) == 0; }

// Of the library's own memory; what the C library could not get it reports as ENOMEM.
bool LacksMemory(const Fault& fault) { return fault.kind == FaultKind::Allocate; }

// What could take a temporary file away again is refused too.
bool NobodyCanDelete(const Fault& fault) {
  return fault.kind == FaultKind::Unlink || (LacksMemory(fault) && fault.count != 1);
}

class FileFaults : public ::testing::Test {
 protected:
  // Puts these files into the empty folder.
  void Fill(const std::map<std::string, std::string>& files) const {
    for (const std::string& name : NamesIn(_dir.Path())) {
      fs::remove_all(_dir / name);
    }
    for (const auto& [name, content] : files) {
      _dir.Write(name, content);
    }
  }

  std::string Content(const std::string& name) const { return TempDir::Read(_dir / name); }
  bool IsThere(const std::string& name) const { return fs::exists(_dir / name); }
  std::vector<std::string> Names() const { return NamesIn(_dir.Path()); }

  template <class Prepare, class Run, class Check>
  static void Sweep(const std::string& name, Prepare prepare, Run run, Check check) {
    Trial(name, prepare, run, check).Sweep(kFileBlows);
  }

  TempDir _dir;
  const std::string _file = _dir / "file";
};

// True results that may be trusted: without a fault that may be noticed the operation succeeds, with one it either does
// or says that it does not.
void ExpectSuccessUnlessAllowed(const Outcome<bool>& outcome) {
  if (!outcome.allowed) {
    EXPECT_EQ(outcome.result, true);
  }
}

bool Succeeded(const Outcome<bool>& outcome) { return outcome.result.value_or(false); }

// The reason, for who asks, of an operation that reports failure by its result.
void ExpectReason(const Outcome<bool>& outcome) {
  if (outcome.result == false && !LacksMemory(outcome.fault)) {
    EXPECT_EQ(outcome.error, outcome.fault.error);
  }
}

// ---- loading ----

TEST_F(FileFaults, LoadingGivesTheWholeFileOrNothing) {
  Sweep(
      "LoadBinaryFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] { return LoadBinaryFile(_file); },
      [this](const Outcome<std::string>& outcome) {
        EXPECT_EQ(Content("file"), kOld);
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, kOld);
        }
        if (outcome.result == "") {
          EXPECT_EQ(outcome.error, outcome.fault.error);
          EXPECT_TRUE(outcome.Logged());
        } else if (outcome.result) {
          EXPECT_EQ(outcome.result, kOld);
        }
      });
}

TEST_F(FileFaults, LoadingAPartGivesItOrSaysThatItDoesNot) {
  Sweep(
      "QsLoadFilePart",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] {
        std::string part = "rest of before";
        const bool loaded = QsLoadFilePart(_file, 5, 40000, part);
        return std::make_pair(loaded, part);
      },
      [](const Outcome<std::pair<bool, std::string>>& outcome) {
        if (!outcome.allowed) {
          EXPECT_TRUE(outcome.result && outcome.result->first);
        }
        if (outcome.result) {
          EXPECT_EQ(outcome.result->second, outcome.result->first ? kOld.substr(5, 40000) : "");
        }
      });
}

TEST_F(FileFaults, ReadingIntoABufferGivesTheWholeFileOrACode) {
  struct Read {
    int code;
    std::unique_ptr<char[]> buffer;
    unsigned size;
  };
  for (const bool binary : {true, false}) {
    Sweep(
        binary ? "CAL_ReadFileToBuffer binary" : "CAL_ReadFileToBuffer text",
        [this] {
          Fill({{"file", kOld}});
        },
        [this, binary] {
          char* buffer = nullptr;
          Read read{};
          read.code = CAL_ReadFileToBuffer(_file.c_str(), &buffer, read.size, 60000, binary, 1);
          read.buffer.reset(buffer);
          return read;
        },
        [binary](const Outcome<Read>& outcome) {
          if (!outcome.result) {
            EXPECT_EQ(outcome.thrown, "std::bad_alloc");
            return;
          }
          if (!outcome.allowed) {
            EXPECT_EQ(outcome.result->code, 0);
          }
          if (outcome.result->code != 0) {
            EXPECT_THAT(outcome.result->code, AnyOf(-2, -3, -5, -6));
            EXPECT_EQ(outcome.result->buffer, nullptr);
            EXPECT_EQ(outcome.result->size, 0U);
          } else if (binary) {
            EXPECT_EQ(std::string(outcome.result->buffer.get(), 60000), kOld.substr(0, 60000));
          } else {
            const std::string text = AsText(kOld.substr(0, 1000));
            EXPECT_EQ(std::string(outcome.result->buffer.get(), text.size()), text);
          }
        });
  }
}

TEST_F(FileFaults, ComparingNeverTakesDifferentFilesForEqual) {
  for (const bool equal : {true, false}) {
    Sweep(
        equal ? "CAL_CompareFile equal" : "CAL_CompareFile different",
        [this, equal] {
          std::string other = kOld;
          other.back() = static_cast<char>(equal ? other.back() : ~other.back());
          Fill({{"a", kOld}, {"b", other}});
        },
        [this] { return CAL_CompareFile((_dir / "a").c_str(), (_dir / "b").c_str(), 0, 4096); },
        [equal](const Outcome<int>& outcome) {
          if (!outcome.allowed) {
            EXPECT_EQ(outcome.result, equal ? 0 : -11);
          }
          if (outcome.result) {
            EXPECT_THAT(*outcome.result, AnyOf(equal ? 0 : -11, -2, -3, -4, -5, -6, -10, -11));
          }
        });
  }
}

TEST_F(FileFaults, TheContentOfAStreamIsWholeOrEmpty) {
  Sweep(
      "GetFileContent",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] {
        QsFile file(_file.c_str(), "rb");
        std::FILE* stream = file;
        return std::make_pair(file.IsOpen(), GetFileContent(stream));
      },
      [](const Outcome<std::pair<bool, std::string>>& outcome) {
        if (!outcome.hit || outcome.fault.error == qsbase::testing::kShort) {
          ASSERT_TRUE(outcome.result);
          EXPECT_EQ(outcome.result->second, kOld);
        } else if (outcome.result) {
          EXPECT_TRUE(IsPrefix(outcome.result->second, kOld));
        }
      });
}

// ---- saving ----

// True only for the new content, whole; else the old one, or the start of the new one.
void ExpectSaved(const Outcome<bool>& outcome, const std::string& content) {
  ExpectSuccessUnlessAllowed(outcome);
  ExpectReason(outcome);
  if (Succeeded(outcome)) {
    EXPECT_EQ(content, kNew);
    return;
  }
  EXPECT_TRUE(content == kOld || IsPrefix(content, kNew));
  if (!LacksMemory(outcome.fault)) {
    EXPECT_TRUE(outcome.Logged());
  }
}

TEST_F(FileFaults, SavingSaysSoWhenItIsNotWhole) {
  Sweep(
      "SaveBinaryFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] { return SaveBinaryFile(_file, kNew, true); },
      [this](const Outcome<bool>& outcome) {
        ExpectSaved(outcome, Content("file"));
        EXPECT_THAT(Names(), ElementsAre("file"));
      });
}

TEST_F(FileFaults, AppendingLeavesTheOldContentAtTheStart) {
  Sweep(
      "AppendBinaryFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] { return AppendBinaryFile(_file, kNew); },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        ExpectReason(outcome);
        const std::string content = Content("file");
        EXPECT_TRUE(Succeeded(outcome) ? content == kOld + kNew
                                       : IsPrefix(kOld, content) && IsPrefix(content, kOld + kNew));
      });
}

TEST_F(FileFaults, ClearingLeavesTheFileWholeOrEmpty) {
  Sweep(
      "ClearBinaryFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] { return ClearBinaryFile(_file); },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        ExpectReason(outcome);
        const std::string content = Content("file");
        EXPECT_TRUE(content.empty() || (content == kOld && !Succeeded(outcome)));
      });
}

TEST_F(FileFaults, ABufferIsWrittenWholeOrACodeSaysSo) {
  Sweep(
      "CAL_WriteBufferToFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] { return CAL_WriteBufferToFile(_file.c_str(), kNew.data(), static_cast<unsigned>(kNew.size())); },
      [this](const Outcome<int>& outcome) {
        const std::string content = Content("file");
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, 0);
        }
        EXPECT_TRUE(outcome.result == 0 ? content == kNew : content == kOld || IsPrefix(content, kNew));
        EXPECT_TRUE(!outcome.result || *outcome.result == 0 || *outcome.result == -2);
      });
}

TEST_F(FileFaults, SavingWithALineBreakThrowsWhatItsTextSays) {
  Sweep(
      "SaveFileWithCRLF", [this] { Fill({}); },
      [this] {
        SaveFileWithCRLF(_dir / "a/b/file", kNew, true);
        return true;
      },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        const std::string content = Content("a/b/file");
        EXPECT_TRUE(outcome.result ? content == kNew + "\r\n" : IsPrefix(content, kNew + "\r\n"));
        if (!outcome.result) {
          EXPECT_THAT(outcome.thrown,
                      AnyOf(StartsWith("Cannot create directory: "), StartsWith("Cannot save to file:"),
                            StartsWith("Cannot save complete filecontents:"), StartsWith("std::bad_alloc")));
        }
      });
}

// At most one temporary file is left, and only after a failure: "file." and a number, with the start of the content.
void ExpectAtomic(const Outcome<bool>& outcome, const TempDir& dir, const std::string& before) {
  ExpectSuccessUnlessAllowed(outcome);
  ExpectReason(outcome);
  if (outcome.allowed && outcome.fault.kind == FaultKind::Flush && outcome.fault.first == 1) {
    EXPECT_FALSE(Succeeded(outcome)) << "though the content may not be on the disk";
  }
  std::vector<std::string> strays;
  for (const std::string& name : NamesIn(dir.Path())) {
    if (name != "file") {
      strays.push_back(name);
    }
  }
  EXPECT_EQ(TempDir::Read(dir / "file"), Succeeded(outcome) ? kNew : before);
  EXPECT_LE(strays.size(), Succeeded(outcome) ? 0U : 1U) << ::testing::PrintToString(strays);
  for (const std::string& name : strays) {
    EXPECT_TRUE(IsPrefix("file.", name)) << name;
    EXPECT_TRUE(IsPrefix(TempDir::Read(dir / name), kNew)) << name;
  }
}

TEST_F(FileFaults, AnAtomicSaveIsTheOldContentOrTheNewOne) {
  Sweep(
      "QsAtomicSaveBinaryFile over a file",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] { return QsAtomicSaveBinaryFile(_file, kNew, true); },
      [this](const Outcome<bool>& outcome) { ExpectAtomic(outcome, _dir, kOld); });
}

TEST_F(FileFaults, AnAtomicSaveOfANewFileIsWholeOrNotThere) {
  Sweep(
      "QsAtomicSaveBinaryFile of a new file", [this] { Fill({}); },
      [this] { return QsAtomicSaveBinaryFile(_file, kNew, false); },
      [this](const Outcome<bool>& outcome) {
        ExpectAtomic(outcome, _dir, "");
        EXPECT_EQ(IsThere("file"), Succeeded(outcome));
      });
}

// ---- load with backup ----

TEST_F(FileFaults, ABackupOrItsOriginalIsAlwaysWhole) {
  Sweep(
      "FileLoadAndBackup",
      [this] {
        Fill({{"file", kNew}, {"file.bak", kOld}});
      },
      [this] { return FileLoadAndBackup(_file, true); },
      [this](const Outcome<std::string>& outcome) {
        const std::string original = Content("file");
        const std::string backup = Content("file.bak");
        EXPECT_TRUE(original == kNew || backup == kOld);
        EXPECT_TRUE(original == kNew || original == kOld);
        EXPECT_TRUE(backup == kNew || backup == kOld);
        EXPECT_TRUE(NobodyCanDelete(outcome.fault) || Names().size() == 2);
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, kNew);
          EXPECT_EQ(backup, kNew);
        }
        if (outcome.result) {
          EXPECT_TRUE(outcome.result == kNew || outcome.result == kOld);
        }
      });
}

TEST_F(FileFaults, AFirstBackupIsWholeOrNotThere) {
  Sweep(
      "FileLoadAndBackup, first",
      [this] {
        Fill({{"file", kNew}});
      },
      [this] { return FileLoadAndBackup(_file, false); },
      [this](const Outcome<std::string>& outcome) {
        EXPECT_EQ(Content("file"), kNew);
        if (IsThere("file.bak")) {
          EXPECT_EQ(Content("file.bak"), kNew);
        }
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, kNew);
          EXPECT_EQ(Content("file.bak"), kNew);
        }
      });
}

TEST_F(FileFaults, ALostFileIsRestoredFromItsBackupOrTheBackupStays) {
  Sweep(
      "FileLoadAndBackupToDir restoring",
      [this] {
        Fill({{"backup/file", kOld}});
      },
      [this] { return FileLoadAndBackupToDir(_file, _dir / "backup", true); },
      [this](const Outcome<std::string>& outcome) {
        EXPECT_EQ(Content("backup/file"), kOld);
        if (IsThere("file")) {
          EXPECT_EQ(Content("file"), kOld);
        }
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, kOld);
          EXPECT_EQ(Content("file"), kOld);
        }
        if (outcome.result) {
          EXPECT_EQ(outcome.result, kOld);
        }
      });
}

// ---- copy, move, rename ----

TEST_F(FileFaults, ACopyIsWholeOrNotThere) {
  Sweep(
      "QsCopyFile to a new name",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] { return QsCopyFile(_file, _dir / "copy", true, false); },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        ExpectReason(outcome);
        EXPECT_EQ(Content("file"), kOld);
        EXPECT_EQ(IsThere("copy"), Succeeded(outcome));
        EXPECT_TRUE(!IsThere("copy") || Content("copy") == kOld);
      });
}

TEST_F(FileFaults, ACopyOverAFileIsWholeOrEmptyOrDidNotBegin) {
  Sweep(
      "QsCopyFile over a file",
      [this] {
        Fill({{"file", kNew}, {"copy", kOld}});
      },
      [this] { return QsCopyFile(_file, _dir / "copy", false, true); },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        EXPECT_EQ(Content("file"), kNew);
        const std::string copy = Content("copy");
        EXPECT_TRUE(Succeeded(outcome) ? copy == kNew : copy == kOld || copy.empty());
      });
}

TEST_F(FileFaults, AMovedFileIsAtOneOfItsNames) {
  Sweep(
      "QsMoveFile to a new name",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] { return QsMoveFile(_file, _dir / "moved", false, false); },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        ExpectReason(outcome);
        const std::string where = Succeeded(outcome) ? "moved" : "file";
        EXPECT_THAT(Names(), ElementsAre(where));
        EXPECT_EQ(Content(where), kOld);
      });
}

TEST_F(FileFaults, AMoveOverAFileReplacesItOrLeavesBoth) {
  Sweep(
      "QsMoveFile over a read-only file",
      [this] {
        if (IsThere("target")) {
          SetReadOnly(_dir / "target", false);
        }
        Fill({{"file", kNew}, {"target", kOld}});
        SetReadOnly(_dir / "target", true);
      },
      [this] { return QsMoveFile(_file, _dir / "target", true, true); },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        EXPECT_EQ(Content("target"), Succeeded(outcome) ? kNew : kOld);
        EXPECT_EQ(IsThere("file"), !Succeeded(outcome));
      });
}

#ifndef _WIN32
TEST_F(FileFaults, AMoveToAnotherVolumeLosesNothing) {
  char other[] = "/dev/shm/qsbase-test-XXXXXX";
  if (mkdtemp(other) == nullptr || fs::space(other).capacity == fs::space(_dir.Path()).capacity) {
    GTEST_SKIP() << "/dev/shm is no file system of its own here";
  }
  const std::string target = std::string(other) + "/target";
  Sweep(
      "QsMoveFile to another volume",
      [&] {
        fs::remove_all(other);
        fs::create_directory(other);
        Fill({{"file", kNew}});
        std::ofstream(target) << kOld;
      },
      [&] { return QsMoveFile(_file, target, true, false); },
      [&](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        EXPECT_EQ(TempDir::Read(target), Succeeded(outcome) ? kNew : kOld);
        EXPECT_TRUE(Succeeded(outcome) || IsThere("file"));
        EXPECT_TRUE(!IsThere("file") || Content("file") == kNew);
        EXPECT_TRUE(NobodyCanDelete(outcome.fault) || NamesIn(other).size() == 1);
      });
  fs::remove_all(other);
}
#endif

TEST_F(FileFaults, AFileRenamedAsideIsAtOneOfItsNames) {
  Sweep(
      "RenameFile",
      [this] {
        Fill({{"file.txt", kNew}, {"file_1.txt", kOld}});
      },
      [this] { return RenameFile(_dir / "file", ".txt"); },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        const std::string where = Succeeded(outcome) ? "file_2.txt" : "file.txt";
        EXPECT_THAT(Names(), UnorderedElementsAre("file_1.txt", where));
        EXPECT_EQ(Content(where), kNew);
        EXPECT_EQ(Content("file_1.txt"), kOld);
        if (outcome.fault.kind == FaultKind::Rename && outcome.hit) {
          EXPECT_TRUE(outcome.Logged());
        }
      });
}

TEST_F(FileFaults, FoldersAreMadeAndRenamedAndRemoved) {
  Sweep(
      "ForceCreateDirectories, QsRenameDir, QsRemoveDir", [this] { Fill({}); },
      [this] {
        return ForceCreateDirectories(_dir / "a/b/c") && QsRenameDir(_dir / "a/b", _dir / "a/d") &&
               QsRemoveDir(_dir / "a/d/c", true);
      },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        EXPECT_THAT(Names(), IsSubsetOf({"a"}));
        if (Succeeded(outcome)) {
          EXPECT_THAT(NamesIn(_dir / "a"), ElementsAre("d"));
          EXPECT_THAT(NamesIn(_dir / "a/d"), IsEmpty());
        }
      });
}

// ---- deleting ----

TEST_F(FileFaults, DeletingCountsWhatIsGone) {
  Sweep(
      "QsDeleteFiles",
      [this] {
        Fill({{"1.tmp", "x"}, {"2.tmp", "x"}, {"keep", kOld}});
      },
      [this] { return QsDeleteFiles(_dir / "*.tmp", true); },
      [this](const Outcome<unsigned>& outcome) {
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, 2U);
        }
        EXPECT_TRUE(!outcome.result || *outcome.result == 3 - Names().size());
        EXPECT_EQ(Content("keep"), kOld);
      });
}

TEST_F(FileFaults, TrimmingAFolderSparesTheNewest) {
  Sweep(
      "QsCleanupDirectory",
      [this] {
        Fill({{"1", "x"}, {"2", "x"}, {"3", "x"}, {"4", "x"}});
        for (int age = 1; age <= 4; ++age) {
          SetTimes(_dir / std::to_string(age), (1000000000 + age * 100) * qsbase::testing::kSecond);
        }
      },
      [this] { return QsCleanupDirectory(_dir.Path() + "/", 2, "*", true); },
      [this](const Outcome<unsigned>& outcome) {
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, 2U);
        }
        EXPECT_TRUE(!outcome.result || *outcome.result == 4 - Names().size());
        EXPECT_THAT(Names(), IsSupersetOf({"4"}));
        EXPECT_GE(Names().size(), 2U);
      });
}

TEST_F(FileFaults, CleaningUpSparesWhatIsYoungOrOmitted) {
  Sweep(
      "QsCleanupDir",
      [this] {
        Fill({{"old", "x"}, {"young", kNew}, {"sub/old", "x"}, {"keep/old", kOld}});
        for (const char* const name : {"old", "sub/old", "keep/old"}) {
          SetTimes(_dir / name, 1000000000 * qsbase::testing::kSecond);
        }
      },
      [this] {
        QsCleanupDir(_dir.Path() + "/", _dir / "keep", 60);
        return true;
      },
      [this](const Outcome<bool>& outcome) {
        EXPECT_EQ(Content("young"), kNew);
        EXPECT_EQ(Content("keep/old"), kOld);
        if (!outcome.allowed) {
          EXPECT_FALSE(IsThere("old") || IsThere("sub/old"));
        }
      });
}

TEST_F(FileFaults, DeletingATreeLeavesWhatIsBesideItAndSaysWhatIsLeft) {
  const TempDir elsewhere;
  const std::string outside = elsewhere.Write("outside", kOld);
  const bool links = !qsbase::testing::IsWine() && MakeDirectoryLink(elsewhere.Path(), _dir / "probe");
  Sweep(
      "QsDeleteDirectoryRecurse",
      [&] {
        Fill({{"tree/a/1", "x"}, {"tree/a/2", "x"}, {"tree/b/c/3", "x"}, {"beside", kNew}});
        if (links) {
          MakeDirectoryLink(elsewhere.Path(), _dir / "tree/link");
        }
      },
      [this] { return QsDeleteDirectoryRecurse(_dir / "tree", true, -1, true, nullptr, true); },
      [&](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        EXPECT_EQ(IsThere("tree"), !Succeeded(outcome));
        EXPECT_EQ(Content("beside"), kNew);
        EXPECT_EQ(TempDir::Read(outside), kOld);
      });
}

TEST_F(FileFaults, DeletingALinkToAFolderLeavesTheFolder) {
  const TempDir elsewhere;
  if (qsbase::testing::IsWine() || !MakeDirectoryLink(elsewhere.Path(), _dir / "probe")) {
    GTEST_SKIP() << qsbase::testing::kNoLinks;
  }
  const std::string outside = elsewhere.Write("outside", kOld);
  Sweep(
      "QsDeleteDirectoryRecurse of a link",
      [&] {
        Fill({});
        MakeDirectoryLink(elsewhere.Path(), _dir / "link");
      },
      [this] { return QsDeleteDirectoryRecurse(_dir / "link", true, -1, true, nullptr, true); },
      [&](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        EXPECT_EQ(TempDir::Read(outside), kOld);
        EXPECT_EQ(Names().size(), Succeeded(outcome) ? 0U : 1U);
      });
}

TEST_F(FileFaults, ListsHoldNothingThatIsNotThere) {
  Sweep(
      "QsBuildFileList, GetAllFiles, QsGetDirFileCount",
      [this] {
        Fill({{"1", "x"}, {"2", "x"}, {"sub/3", "x"}, {"sub/4", "x"}});
      },
      [this] {
        std::vector<std::string> names;
        QsBuildFileList(_dir.Path(), "*", names, 5, -1);
        std::list<std::string> files;
        GetAllFiles(_dir.Path(), "*", files, 0);
        for (const std::string& file : files) {
          names.push_back(file.substr(file.size() - 1));
        }
        return std::make_pair(names, QsGetDirFileCount(_dir.Path()));
      },
      [](const Outcome<std::pair<std::vector<std::string>, unsigned>>& outcome) {
        if (!outcome.allowed) {
          ASSERT_TRUE(outcome.result);
          EXPECT_THAT(outcome.result->first, UnorderedElementsAre("1", "1", "2", "2", "sub\\3", "sub\\4"));
          EXPECT_EQ(outcome.result->second, 2U);
        } else if (outcome.result) {
          EXPECT_THAT(outcome.result->first, Each(AnyOf("1", "2", "sub\\3", "sub\\4", "sub")));
          EXPECT_LE(outcome.result->second, 3U);
        }
      });
}

// ---- names ----

TEST_F(FileFaults, AUniqueNameIsFreeOrAWarningSaysThatItCouldNotBeSeen) {
  Sweep(
      "CUniqueFilenameManager",
      [this] {
        Fill({{"file.txt", "x"}, {"file (1).txt", "x"}});
      },
      [this] {
        CUniqueFilenameManager names;
        std::string unique;
        names.GetUniquePath(_dir / "file.txt", unique, true);
        return unique;
      },
      [this](const Outcome<std::string>& outcome) {
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, _dir / "file (2).txt");
        }
        if (outcome.result && fs::exists(*outcome.result)) {
          EXPECT_TRUE(outcome.Logged());
        }
        EXPECT_EQ(Names().size(), 2U);
      });
}

TEST_F(FileFaults, TimesAndRightsAndSizesAreRightOrMissing) {
  Sweep(
      "QsGetFileSize64, QsSetFileAccModTime, QsTouchFile, TestCreateFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] {
        std::int64_t size = -1;
        return QsGetFileSize64(_file.c_str(), size) == 0 && size == static_cast<std::int64_t>(kOld.size()) &&
               QsHasFileReadPermission(_file.c_str()) &&
               QsSetFileAccModTime(_file, QsDateTime(2020, 1, 2, 3, 4, 5, 0)) && QsTouchFile(_file) &&
               TestCreateFile(_dir / "made");
      },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        ExpectReason(outcome);
        EXPECT_EQ(Content("file"), kOld);
      });
}

// ---- open files ----

// The C library makes no call again that a signal interrupted, and says so (no file on a disk lets one be interrupted).
bool IsInterruption(const Fault& fault) { return fault.error == qsbase::testing::kInterrupted; }

TEST_F(FileFaults, AStreamSaysWhenWhatItWroteIsNotThere) {
  Sweep(
      "QsFile writing", [this] { Fill({}); },
      [this] {
        QsFile file(_file.c_str(), "wb");
        bool done = file.IsOpen();
        for (int part = 0; part < 9; ++part) {
          done = file.Write(kNew.substr(static_cast<std::size_t>(part) * 10000, 10000)) == 1 && done;
        }
        done = file.PutString("end") >= 0 && done;
        done = file.Flush() == 0 && done;
        done = file.PutChar('.') == '.' && done;
        return file.Close() == 0 && done;
      },
      [this](const Outcome<bool>& outcome) {
        if (!IsInterruption(outcome.fault)) {
          ExpectSuccessUnlessAllowed(outcome);
        }
        if (Succeeded(outcome)) {
          EXPECT_EQ(Content("file"), kNew.substr(0, 90000) + "end.");
        }
      });
}

TEST_F(FileFaults, AStreamSaysWhenItCannotRead) {
  Sweep(
      "QsFile reading",
      [this] {
        Fill({{"file", "first line\r\nsecond\n" + kOld}});
      },
      [this] {
        QsFile file(_file.c_str(), "rb");
        std::string first;
        std::string second;
        if (!file.IsOpen() || file.GetSize() != static_cast<long>(19 + kOld.size())) {
          return false;
        }
        file.GetLine(first);
        file.GetLine(second);
        std::string rest(kOld.size(), '\0');
        const bool read = file.Read(rest.data(), static_cast<unsigned>(rest.size()), 1) == 1;
        const bool right = first == "first line" && second == "second" && rest == kOld;
        return (read && right) || !file.IsError();
      },
      [this](const Outcome<bool>& outcome) {
        if (!IsInterruption(outcome.fault)) {
          ExpectSuccessUnlessAllowed(outcome);
        }
        EXPECT_EQ(Content("file").size(), 19 + kOld.size());
      });
}

TEST_F(FileFaults, ABufferedFileIsWholeOrSaysThatItIsNot) {
  Sweep(
      "QsWriteBufferedFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] {
        QsWriteBufferedFile file;
        bool done = file.Open(_file.c_str(), 8192, 0);
        done = file.Write(kNew.data(), 1, 5000) == 5000 && done;
        done = file.Write(kNew.data() + 5000, 1, static_cast<unsigned>(kNew.size() - 5000)) != 0 && done;
        return file.Close() == 0 && done;
      },
      [this](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        EXPECT_TRUE(!Succeeded(outcome) || Content("file") == kNew);
      });
}

TEST_F(FileFaults, AMappedFileShowsTheFileOrThrows) {
  Sweep(
      "QsMapFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] {
        QsMapFile file;
        file.Open(_file, true);
        const bool same = kOld.compare(0, kOld.size(), static_cast<const char*>(file.Ptr()), file.Size()) == 0;
        file.Close();
        return same;
      },
      [](const Outcome<bool>& outcome) {
        ExpectSuccessUnlessAllowed(outcome);
        EXPECT_NE(outcome.result, false);
        if (!outcome.result && !LacksMemory(outcome.fault)) {
          EXPECT_THAT(outcome.thrown, StartsWith("Unable to "));
        }
      });
}

TEST_F(FileFaults, ASharedFileReadsWhatIsThereOrFails) {
  Sweep(
      "QsSharedIOFile",
      [this] {
        Fill({{"file", kOld}});
      },
      [this] {
        QsSharedIOFile file;
        file.Open(_file, true);
        std::string part(30000, '\0');
        const bool read = file.Read(100, part.data(), 30000);
        return read ? part : std::string();
      },
      [](const Outcome<std::string>& outcome) {
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result, kOld.substr(100, 30000));
        }
        if (outcome.result) {
          EXPECT_THAT(*outcome.result, AnyOf("", kOld.substr(100, 30000)));
        }
      });
}

}  // namespace
