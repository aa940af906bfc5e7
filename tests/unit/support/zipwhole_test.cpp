#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <common/logcapture.h>
#include <common/platform.h>
#include <common/tempdir.h>
#include <common/zipbuilder.h>

#include <QSbase/log/log.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/zlibsupport.h>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

using namespace qsbase::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class ZipWhole : public ::testing::Test {
 protected:
  ~ZipWhole() override { QsSetLogLevel(0); }

  void Make(const ZipBuilder& builder, int countLie = 0) { dir.Write("a.zip", builder.Bytes("", countLie)); }

  int Extract(std::vector<std::string>* extracted = nullptr, QsProgressAndAbortHandler* handler = nullptr) const {
    return QsExtractWholeFile(path.c_str(), out.c_str(), extracted, handler);
  }

  std::string Read(const std::string& name) const { return TempDir::Read(out + "/" + name); }
  std::vector<std::string> Names() const { return NamesIn(dir.Path()); }

  const TempDir dir;
  const std::string path = dir / "a.zip";
  const std::string out = dir / "out";
  const std::string shownPath = QsTranslateFilename(path);
  const std::string shownOut = QsTranslateFilename(out) + "\\";
};

// ---- listing ----

TEST_F(ZipWhole, DirectoriesAreNotCounted) {
  Make(ZipBuilder().Add(Stored("a/", "")).Add(Stored("a/x.txt", "12345")).Add(Stored("b\\", "123")));
  int count = -1;
  std::int64_t size = -1;
  std::vector<std::string> names = {"old"};
  EXPECT_EQ(QsGetZipInfo(path.c_str(), &count, &size, &names), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(size, 8);
  EXPECT_THAT(names, ElementsAre("a/x.txt"));
}

TEST_F(ZipWhole, EachOutputAlone) {
  Make(ZipBuilder().Add(Stored("x", "12345")).Add(DeflatedEntry("y", std::string(1000, 'y'))));
  int count = -1;
  EXPECT_EQ(QsGetNumOfFilesInZip(path.c_str(), &count), 0);
  EXPECT_EQ(count, 2);
  std::int64_t size = -1;
  EXPECT_EQ(QsGetUncompressedSize(path.c_str(), &size), 0);
  EXPECT_EQ(size, 1005);
  std::vector<std::string> names;
  EXPECT_EQ(QsGetFilesInZip(path.c_str(), &names), 0);
  EXPECT_THAT(names, ElementsAre("x", "y"));
}

TEST_F(ZipWhole, AnEmptyArchiveHasNothing) {
  dir.Write("a.zip", "-" + ZipBuilder().Bytes());  // at the very start minizip takes the end record for none
  int count = -1;
  std::int64_t size = -1;
  std::vector<std::string> names = {"old"};
  EXPECT_EQ(QsGetZipInfo(path.c_str(), &count, &size, &names), 0);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(size, 0);
  EXPECT_THAT(names, IsEmpty());
  EXPECT_EQ(Extract(), 0);
  EXPECT_THAT(NamesIn(out), IsEmpty());
}

TEST_F(ZipWhole, ListingNamesItsFailures) {
  int count = 7;
  std::int64_t size = 7;
  std::vector<std::string> names = {"old"};
  EXPECT_EQ(QsGetZipInfo(nullptr, &count, &size, &names), -2);
  EXPECT_EQ(QsGetZipInfo("", &count, &size, &names), -2);
  EXPECT_EQ(count, 7);
  EXPECT_EQ(size, 7);
  EXPECT_THAT(names, ElementsAre("old"));
  EXPECT_EQ(QsGetZipInfo(path.c_str(), nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(QsGetNumOfFilesInZip(path.c_str(), nullptr), -1);
  EXPECT_EQ(QsGetZipInfo(path.c_str(), &count, &size, &names), -5);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(size, 0);
  EXPECT_THAT(names, IsEmpty());
  dir.Write("a.zip", "no archive");
  const LogCapture log;
  EXPECT_EQ(QsGetZipInfo(path.c_str(), &count, &size, &names), -4);
  EXPECT_THAT(log.Texts(), ElementsAre("error opening archive: " + shownPath));
}

TEST_F(ZipWhole, ACountTooLargeFailsTheWalk) {
  Make(ZipBuilder().Add(Stored("x", "1")), 1);
  int count = 7;
  std::int64_t size = 7;
  std::vector<std::string> names = {"old"};
  const LogCapture log;
  EXPECT_EQ(QsGetZipInfo(path.c_str(), &count, &size, &names), -3);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(size, 0);
  EXPECT_THAT(names, IsEmpty());
  EXPECT_EQ(Extract(), -9);
  const std::string text = "unzGoToNextFile failed (-1) in file " + shownPath;
  EXPECT_THAT(log.Texts(), ElementsAre(text, text));
  EXPECT_EQ(Read("x"), "1");
}

TEST_F(ZipWhole, ACountTooSmallEndsTheWalk) {
  Make(ZipBuilder().Add(Stored("x", "1")).Add(Stored("y", "2")), -1);
  std::vector<std::string> names;
  EXPECT_EQ(QsGetFilesInZip(path.c_str(), &names), 0);
  EXPECT_THAT(names, ElementsAre("x"));
}

// The field for the count ends at 65535, which minizip writes for more, too.
TEST_F(ZipWhole, MoreEntriesThanTheCountHoldsAllComeOut) {
  constexpr int kEntries = 65600;
  ZipBuilder many;
  for (int i = 2; i < kEntries; ++i) {
    many.Add(Stored("d/", ""));
  }
  Make(many.Add(Stored("d/a", "1")).Add(Stored("d/last", "2")), 65535 - kEntries);
  std::vector<std::string> names;
  EXPECT_EQ(QsGetFilesInZip(path.c_str(), &names), 0);
  EXPECT_THAT(names, ElementsAre("d/a", "d/last"));
  EXPECT_EQ(Extract(), 0);
  EXPECT_EQ(Read("d/last"), "2");
}

TEST_F(ZipWhole, ExactlyAsManyEntriesAsTheCountHolds) {
  ZipBuilder many;
  for (int i = 1; i < 65535; ++i) {
    many.Add(Stored("d/", ""));
  }
  Make(many.Add(Stored("d/last", "2")));
  std::int64_t size = 0;
  int count = 0;
  EXPECT_EQ(QsGetZipInfo(path.c_str(), &count, &size, nullptr), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(size, 1);
}

TEST_F(ZipWhole, AnEntryWithoutARecord) {
  std::string bytes = ZipBuilder().Add(Stored("x", "1")).Bytes();
  bytes[bytes.find("PK\1\2")] = 'X';
  dir.Write("a.zip", bytes);
  int count = 7;
  const LogCapture log;
  EXPECT_EQ(QsGetNumOfFilesInZip(path.c_str(), &count), -6);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(Extract(), -10);
  ASSERT_EQ(log.Texts().size(), 2U);
  EXPECT_EQ(log.Texts()[0].find("unzGetCurrentFileInfo failed (-"), 0U) << log.Texts()[0];
}

TEST_F(ZipWhole, TheSumOfSizesStopsAtItsLimit) {
  RawZipEntry huge = Stored("x", "1");
  huge.size = 0xFFFFFFFF;
  huge.centralExtra = ZipBuilder::Number(1, 2) + ZipBuilder::Number(8, 2) + std::string(8, '\xff');
  Make(ZipBuilder().Add(huge).Add(huge));
  std::int64_t size = 0;
  EXPECT_EQ(QsGetUncompressedSize(path.c_str(), &size), 0);
  EXPECT_EQ(size, std::numeric_limits<std::int64_t>::max());
}

// ---- extraction ----

TEST_F(ZipWhole, EverythingComesOut) {
  Make(ZipBuilder()
           .Add(Stored("x", "1"))
           .Add(Stored("a/", ""))
           .Add(DeflatedEntry("a/y.txt", "22"))
           .Add(Stored("b/c/z", "333"))
           .Add(Stored("d\\e\\w", "4444"))
           .Add(Stored("a/b/", "")));
  std::vector<std::string> extracted = {"old"};
  EXPECT_EQ(Extract(&extracted), 0);
  EXPECT_EQ(Read("x"), "1");
  EXPECT_EQ(Read("a/y.txt"), "22");
  EXPECT_EQ(Read("b/c/z"), "333");
  EXPECT_EQ(Read("d/e/w"), "4444");
  EXPECT_EQ(QsGetFSObjectType(out + "/a/b"), FSO_DIRECTORY);
  EXPECT_THAT(extracted, ElementsAre("old", shownOut + "x", shownOut + "a/", shownOut + "a/y.txt", shownOut + "b/c/z",
                                     shownOut + "d\\e\\w", shownOut + "a/b/"));
}

TEST_F(ZipWhole, FilesThatAreThereAreReplaced) {
  Make(ZipBuilder().Add(Stored("x", "new")));
  dir.Write("out/x", "old content");
  dir.Write("out/y", "kept");
  EXPECT_EQ(Extract(), 0);
  EXPECT_EQ(Read("x"), "new");
  EXPECT_EQ(Read("y"), "kept");
  EXPECT_THAT(NamesIn(out), UnorderedElementsAre("x", "y"));
}

TEST_F(ZipWhole, AFailureKeepsTheOldFileAndWhatIsDone) {
  RawZipEntry wrong = DeflatedEntry("b", "new");
  wrong.crc ^= 1;
  Make(ZipBuilder().Add(Stored("a", "1")).Add(wrong).Add(Stored("c", "3")));
  dir.Write("out/b", "old");
  const LogCapture log;
  std::vector<std::string> extracted;
  EXPECT_EQ(Extract(&extracted), -1);
  EXPECT_THAT(log.Texts(), ElementsAre("An error (CRC error) occured during the extraction of b in " + shownPath));
  EXPECT_EQ(log.Messages()[0].flags, 0x40000000U);
  EXPECT_THAT(extracted, ElementsAre(shownOut + "a"));
  EXPECT_THAT(NamesIn(out), UnorderedElementsAre("a", "b"));
  EXPECT_EQ(Read("b"), "old");
}

TEST_F(ZipWhole, ChecksItsArguments) {
  EXPECT_EQ(QsExtractWholeFile(nullptr, nullptr, nullptr, nullptr), -2);
  EXPECT_EQ(QsExtractWholeFile("", "", nullptr, nullptr), -2);
  EXPECT_EQ(QsExtractWholeFile("x", nullptr, nullptr, nullptr), -3);
  EXPECT_EQ(QsExtractWholeFile("x", "", nullptr, nullptr), -3);
  EXPECT_EQ(Extract(), -5);
  EXPECT_THAT(Names(), IsEmpty());
  const LogCapture log;
  dir.Write("a.zip", "no archive");
  EXPECT_EQ(QsExtractWholeFile(path.c_str(), std::string(3000, 'x').c_str(), nullptr, nullptr), -6);
  EXPECT_EQ(QsExtractWholeFile(path.c_str(), (path + "/below").c_str(), nullptr, nullptr), -6);
  EXPECT_EQ(Extract(), -4);
  EXPECT_EQ(log.Texts().back(), "error opening archive: " + shownPath);
}

TEST_F(ZipWhole, SaysWhatItDoesAtLevel4) {
  Make(ZipBuilder().Add(Stored("x", "1")));
  {
    const LogCapture quiet;
    EXPECT_EQ(Extract(), 0);
    EXPECT_THAT(quiet.Texts(), IsEmpty());
  }
  QsSetLogLevel(4);
  const LogCapture log;
  EXPECT_EQ(Extract(), 0);
  EXPECT_THAT(log.Texts(), ElementsAre("extracting " + shownPath + " to " + shownOut));
  EXPECT_EQ(log.Messages()[0].flags, 0x10000004U);
}

// ---- entries that would leave the folder ----

class ZipEscape : public ZipWhole {
 protected:
  // The entry is refused, the one before it stays, and nothing but the folder has come to be.
  void ExpectRefused(const RawZipEntry& entry, int expected) {
    Make(ZipBuilder().Add(Stored("first", "1")).Add(entry).Add(Stored("last", "3")));
    const LogCapture log;
    EXPECT_EQ(Extract(), expected) << entry.name;
    EXPECT_THAT(Names(), UnorderedElementsAre("a.zip", "out")) << entry.name;
    EXPECT_THAT(NamesIn(out), ElementsAre("first")) << entry.name;
    ASSERT_EQ(log.Texts().size(), 1U);
    const std::string shown = std::string(entry.name.c_str()).substr(0, 100);
    EXPECT_NE(log.Texts()[0].find(shown), std::string::npos) << log.Texts()[0];
    EXPECT_EQ(log.Texts()[0].find(expected == -1 ? "An error (Could not create new file) occured during the extraction"
                                                 : "Could not create directory "),
              0U)
        << log.Texts()[0];
  }
};

TEST_F(ZipEscape, ParentsAreRefused) {
  for (const char* name : {"../evil", "..\\evil", "a/../../evil", "a\\..\\..\\evil", "a/..\\../evil", "/../evil",
                           "./../evil", "a/../evil", ".."}) {
    ExpectRefused(Stored(name, "2"), -1);
  }
}

TEST_F(ZipEscape, ParentsOfDirectoriesAreRefused) {
  for (const char* name : {"../evil/", "..\\evil\\", "a/../../evil/", "../", "a/../"}) {
    ExpectRefused(Stored(name, ""), -7);
  }
}

TEST_F(ZipEscape, ZeroBytesAndLongNamesAreRefused) {
  ExpectRefused(Stored(std::string("evil\0.txt", 9), "2"), -1);
  ExpectRefused(Stored(std::string("evil\0/", 6), ""), -7);
  ExpectRefused(Stored(std::string(4096, 'n'), "2"), -1);
  ExpectRefused(Stored(std::string(60000, 'n'), "2"), -1);
  ExpectRefused(Stored(std::string(4095, 'n') + "/x", "2"), -7);  // its beginning ends like a directory
}

#ifdef _WIN32  // plain names elsewhere
TEST_F(ZipEscape, NamesOfWindowsAreRefused) {
  for (const char* name :
       {"c:evil", "c:\\evil", "c:/evil", "first:stream", "a/c:/evil", "nul", "COM1.txt", ".. /evil"}) {
    ExpectRefused(Stored(name, "2"), -1);
  }
}
#endif

TEST_F(ZipWhole, AnAbsoluteNameLandsBelow) {
  Make(ZipBuilder().Add(Stored("/qsbase-absolute/x", "1")).Add(Stored("\\y", "2")).Add(Stored("//s/share/z", "3")));
  EXPECT_EQ(Extract(), 0);
  EXPECT_EQ(Read("qsbase-absolute/x"), "1");
  EXPECT_EQ(Read("y"), "2");
  EXPECT_EQ(Read("s/share/z"), "3");
  EXPECT_EQ(QsGetFSObjectType("/qsbase-absolute"), FSO_NOTHING);
}

TEST_F(ZipWhole, AnEmptyNameIsAnError) {
  Make(ZipBuilder().Add(Stored("", "1")));
  const LogCapture quiet;
  EXPECT_EQ(Extract(), -1);
}

class ZipLinks : public ZipWhole {
 protected:
  void SetUp() override {
    if (IsWine()) {
      GTEST_SKIP() << kLinksStay;
    }
    dir.Write("outside/file", "outside");
    dir.Write("out/file", "inside");
    if (!MakeDirectoryLink(dir / "outside", out + "/link") || !MakeLink(dir / "outside/file", out + "/filelink")) {
      GTEST_SKIP() << kNoLinks;
    }
  }
};

TEST_F(ZipLinks, AreNotFollowedOut) {
  const LogCapture quiet;
  Make(ZipBuilder().Add(Stored("link/file", "evil")));
  EXPECT_EQ(Extract(), -1);
  Make(ZipBuilder().Add(Stored("link/new/file", "evil")));
  EXPECT_EQ(Extract(), -1);
  Make(ZipBuilder().Add(Stored("link/new/", "")));
  EXPECT_EQ(Extract(), -7);
  EXPECT_THAT(NamesIn(dir / "outside"), ElementsAre("file"));
  EXPECT_EQ(TempDir::Read(dir / "outside/file"), "outside");
}

TEST_F(ZipLinks, GiveWayToAFile) {
  Make(ZipBuilder().Add(Stored("filelink", "new")));
  EXPECT_EQ(Extract(), 0);
  EXPECT_EQ(TempDir::Read(dir / "outside/file"), "outside");
  EXPECT_EQ(Read("filelink"), "new");
}

TEST_F(ZipLinks, StayWhenTheFileIsBad) {
  RawZipEntry wrong = Stored("filelink", "new");
  wrong.crc ^= 1;
  Make(ZipBuilder().Add(wrong));
  const LogCapture quiet;
  EXPECT_EQ(Extract(), -1);
  EXPECT_EQ(Read("filelink"), "outside");
  EXPECT_THAT(NamesIn(out), UnorderedElementsAre("file", "filelink", "link"));
}

#ifndef _WIN32  // no pipes in folders there
TEST_F(ZipWhole, APipeInTheFolderIsNotWaitedFor) {
  Make(ZipBuilder().Add(Stored("pipe", "new")));
  dir.Write("out/file", "");
  ASSERT_EQ(mkfifo((out + "/pipe").c_str(), 0600), 0);
  // Opened for reading, it would take what it must not get; without a reader its writer would wait.
  const int reader = open((out + "/pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_NE(reader, -1);
  const LogCapture log;
  EXPECT_EQ(Extract(), -1);
  EXPECT_THAT(
      log.Texts(),
      ElementsAre("An error (Could not create new file) occured during the extraction of pipe in " + shownPath));
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), 0);
  close(reader);
  EXPECT_EQ(QsGetFSObjectType(out + "/pipe"), FSO_PIPE);
}
#endif

// ---- progress and abort ----

class Recorder : public QsProgressAndAbortHandler {
 public:
  explicit Recorder(int abortAt = 0) : _abortAt(abortAt) {}
  bool IsAborted() override { return ++asked == _abortAt; }
  void OnProgress(int percent) override { percents.push_back(percent); }

  std::vector<int> percents;
  int asked = 0;

 private:
  int _abortAt;
};

class ZipProgress : public ZipWhole {
 protected:
  void MakeMany(int count) {
    ZipBuilder builder;
    for (int i = 0; i < count; ++i) {
      builder.Add(Stored(std::to_string(i), ""));
    }
    Make(builder);
  }

  std::vector<int> Percents(int count) {
    MakeMany(count);
    Recorder recorder;
    EXPECT_EQ(Extract(nullptr, &recorder), 0);
    EXPECT_EQ(recorder.asked, count);
    return recorder.percents;
  }
};

TEST_F(ZipProgress, IsThePartOfTheEntries) {
  EXPECT_THAT(Percents(1), ElementsAre(99));
  EXPECT_THAT(Percents(3), ElementsAre(33, 66, 99));
  EXPECT_THAT(Percents(4), ElementsAre(25, 50, 75, 99));
  EXPECT_THAT(Percents(20), ElementsAre(5, 10, 15, 20, 25, 30, 35, 40, 45, 50, 55, 60, 65, 70, 75, 80, 85, 90, 95, 99));
  // Every second of 45, which are 22: the last is not among them.
  EXPECT_THAT(Percents(45),
              ElementsAre(4, 8, 13, 17, 22, 26, 31, 35, 40, 44, 48, 53, 57, 62, 66, 71, 75, 80, 84, 88, 93, 97));
}

TEST_F(ZipProgress, NeverFalls) {
  for (const int count : {2, 19, 21, 22, 99, 100, 101, 399}) {
    const std::vector<int> percents = Percents(count);
    EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end())) << count;
    EXPECT_GE(percents.front(), 0);
    EXPECT_LE(percents.back(), 99);
    EXPECT_LT(percents.size(), 41U);
  }
}

// The field for the count ends at 65535.
TEST_F(ZipProgress, CountsTheEntriesWhereTheArchiveDoesNotSay) {
  const auto percents = [this](int count) {
    ZipBuilder many;
    for (int i = 0; i < count; ++i) {
      many.Add(Stored("d/", ""));
    }
    Make(many, 65535 - count);
    Recorder recorder;
    EXPECT_EQ(Extract(nullptr, &recorder), 0);
    EXPECT_EQ(recorder.asked, count);
    return recorder.percents;
  };
  EXPECT_THAT(percents(65600),
              ElementsAre(5, 10, 15, 20, 25, 30, 35, 40, 45, 50, 55, 60, 65, 70, 75, 80, 85, 90, 95, 99));
  EXPECT_THAT(percents(65535),
              ElementsAre(4, 9, 14, 19, 24, 29, 34, 39, 44, 49, 54, 59, 64, 69, 74, 79, 84, 89, 94, 99));
}

TEST_F(ZipProgress, AnAbortEndsAfterItsEntry) {
  MakeMany(30);
  QsSetLogLevel(4);
  const LogCapture log;
  Recorder recorder(4);
  std::vector<std::string> extracted;
  EXPECT_EQ(Extract(&extracted, &recorder), -8);
  EXPECT_EQ(recorder.percents.back(), 13);
  EXPECT_EQ(extracted.size(), 3U);
  EXPECT_EQ(NamesIn(out).size(), 4U);
  EXPECT_EQ(log.Texts().back(), "File extraction (" + shownPath + ") stopped due to abort signal!");
  EXPECT_EQ(log.Messages().back().flags, 0x10000004U);
}

TEST_F(ZipProgress, AnAbortReportsAtOnce) {
  MakeMany(100);
  Recorder recorder(3);  // a report comes every fifth time
  EXPECT_EQ(Extract(nullptr, &recorder), -8);
  EXPECT_THAT(recorder.percents, ElementsAre(3));
}

TEST_F(ZipProgress, AnAbortAtTheLastEntryIsOne) {
  MakeMany(2);
  Recorder recorder(2);
  EXPECT_EQ(Extract(nullptr, &recorder), -8);
  EXPECT_THAT(recorder.percents, ElementsAre(50, 99));
}

TEST_F(ZipProgress, AThrowingHandlerLeavesNoHandleOpen) {
  class Thrower : public QsProgressAndAbortHandler {
   public:
    bool IsAborted() override { throw 5; }
    void OnProgress(int) override {}
  };
  MakeMany(2);
  Thrower thrower;
  EXPECT_THROW(Extract(nullptr, &thrower), int);
  EXPECT_TRUE(QsDeleteFile(path, false));  // Windows refuses while it is open
}

}  // namespace
