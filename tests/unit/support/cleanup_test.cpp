#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <common/logcapture.h>
#include <common/matchers.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/log/log.h>
#include <QSbase/support/cleanup.h>
#include <QSbase/support/dirwalk.h>
#include <QSbase/support/paths.h>

namespace {

namespace fs = std::filesystem;
using qsbase::testing::IsWine;
using qsbase::testing::kLinksStay;
using qsbase::testing::kNoLinks;
using qsbase::testing::kOnWindows;
using qsbase::testing::kSecond;
using qsbase::testing::LogCapture;
using qsbase::testing::MakeDirectoryLink;
using qsbase::testing::MakeLink;
using qsbase::testing::MatchesPattern;
using qsbase::testing::ScopedCurrentDirectory;
using qsbase::testing::SetEnvironment;
using qsbase::testing::SetReadOnly;
using qsbase::testing::SetTimes;
using qsbase::testing::TempDir;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;
using Aged = std::multimap<QsDateTime, std::string>;

std::vector<std::string> List(const std::string& dir, const std::string& pattern, int flags, int max = -1) {
  std::vector<std::string> names = {"from before"};
  QsBuildFileList(dir, pattern, names, flags, max);
  return names;
}

std::string Numbered(std::string name, int number) {
  name += std::to_string(number);
  return name;
}

std::vector<std::string> Values(const Aged& files) {
  std::vector<std::string> names;
  for (const auto& file : files) {
    names.push_back(file.second);
  }
  return names;
}

void SetAge(const std::string& path, std::int64_t minutes) {
  SetTimes(path, (std::int64_t{std::time(nullptr)} - minutes * 60) * kSecond);
}

std::string WriteAged(const TempDir& dir, const std::string& name, std::int64_t minutes) {
  const std::string path = dir.Write(name, name);
  SetAge(path, minutes);
  return path;
}

bool Exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

#ifndef _WIN32
// Runs in a child that is not root, so that the system refuses what its modes forbid. The result is the child's.
bool WithoutRoot(const std::function<bool()>& check) {
  const pid_t child = fork();
  if (child == 0) {
    const bool dropped = geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0);
    _exit(dropped && check() ? 0 : 1);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
#endif

class Tree : public ::testing::Test {
 protected:
  Tree() { SetEnvironment("TZ", "UTC0"); }

  const TempDir dir;
};

using FileList = Tree;
using AgedList = Tree;
using CleanupDir = Tree;
using CleanupDirectory = Tree;
using DeleteRecurse = Tree;
using Count = Tree;

// ---------------------------------------------------------------------------------------------------------------- list

TEST_F(FileList, NeedsFilesOrDirectories) {
  dir.Write("sub/a", "");
  for (const int flags : {0, 4, 8, 12, 16, 32, 4 | 8 | 16 | 32}) {
    EXPECT_THAT(List(dir.Path(), "*", flags), IsEmpty()) << flags;
  }
}

TEST_F(FileList, ListsByKind) {
  dir.Write("a", "");
  dir.Write(".b", "");
  dir.Write("sub/c", "");
  dir.Write("sub/deep/d", "");
  EXPECT_THAT(List(dir.Path(), "*", 1), UnorderedElementsAre("a", ".b"));
  EXPECT_THAT(List(dir.Path(), "*", 2), ElementsAre("sub"));
  EXPECT_THAT(List(dir.Path(), "*", 3), UnorderedElementsAre("a", ".b", "sub"));
  EXPECT_THAT(List(dir.Path(), "*", 5), UnorderedElementsAre("a", ".b", "sub\\c", "sub\\deep\\d"));
  EXPECT_THAT(List(dir.Path(), "*", 6), ElementsAre("sub", "sub\\deep"));
  EXPECT_THAT(List(dir.Path(), "*", 7), UnorderedElementsAre("a", ".b", "sub", "sub\\c", "sub\\deep", "sub\\deep\\d"));
}

TEST_F(FileList, HiddenAndSystemFlagsChangeNothing) {
  dir.Write("a", "");
  dir.Write(".b", "");
  for (const int extra : {0, 16, 32, 48}) {
    EXPECT_THAT(List(dir.Path(), "*", 1 | extra), UnorderedElementsAre("a", ".b"));
  }
}

TEST_F(FileList, StarDotStarIsStar) {
  dir.Write("noextension", "");
  dir.Write("with.extension", "");
  dir.Write("sub/x", "");
  for (int flags = 0; flags < 16; ++flags) {
    EXPECT_EQ(List(dir.Path(), "*.*", flags), List(dir.Path(), "*", flags)) << flags;
  }
  EXPECT_THAT(List(dir.Path(), "*.*", 1), SizeIs(2));
}

TEST_F(FileList, EitherSeparatorAndATrailingOne) {
  dir.Write("sub/x", "");
  const std::string canonical = QsTranslateFilename(dir.Path());
  for (const std::string& path : {dir.Path(), dir.Path() + "/", canonical, canonical + "\\"}) {
    EXPECT_THAT(List(path, "*", 5), ElementsAre("sub\\x")) << path;
  }
}

TEST_F(FileList, LeavesOutDotNamesButDescends) {
  dir.Write(".hidden", "");
  dir.Write("plain", "");
  dir.Write("sub/.x", "");
  dir.Write("sub/y", "");
  dir.Write(".git/config", "");
  dir.Write(".git/.lock", "");
  EXPECT_THAT(List(dir.Path(), "*", 1 | 8), ElementsAre("plain"));
  EXPECT_THAT(List(dir.Path(), "*", 1 | 4 | 8), UnorderedElementsAre("plain", "sub\\y", ".git\\config"));
  EXPECT_THAT(List(dir.Path(), "*", 2 | 8), ElementsAre("sub"));
  EXPECT_THAT(List(dir.Path(), "*", 1 | 2 | 4 | 8), UnorderedElementsAre("plain", "sub", "sub\\y", ".git\\config"));
}

TEST_F(FileList, EndsAtTheLimit) {
  for (int i = 0; i < 10; ++i) {
    dir.Write(Numbered("file", i), "");
    dir.Write(Numbered("sub/deep/file", i), "");
  }
  const std::vector<std::string> all = List(dir.Path(), "*", 7);
  ASSERT_THAT(all, SizeIs(22));
  EXPECT_THAT(List(dir.Path(), "*", 1, 3), SizeIs(3));
  EXPECT_THAT(List(dir.Path(), "*", 1, 10), SizeIs(10));
  EXPECT_THAT(List(dir.Path(), "*", 1, 11), SizeIs(10));
  for (int max = 0; max <= 22; ++max) {
    EXPECT_EQ(List(dir.Path(), "*", 7, max), std::vector<std::string>(all.begin(), all.begin() + max)) << max;
  }
  const std::vector<std::string> matching = List(dir.Path(), "file*", 5);
  ASSERT_THAT(matching, SizeIs(20));
  for (int max = 0; max <= 20; ++max) {
    EXPECT_EQ(List(dir.Path(), "file*", 5, max), std::vector<std::string>(matching.begin(), matching.begin() + max));
  }
}

TEST_F(FileList, PatternIsTriedInEverySubDirectory) {
  dir.Write("a.log", "");
  dir.Write("a.txt", "");
  dir.Write("sub/b.LOG", "");
  dir.Write("sub/deep/c.log", "");
  dir.Write("sub/deep/.d.log", "");
  EXPECT_THAT(List(dir.Path(), "*.log", 1), ElementsAre("a.log"));
  EXPECT_THAT(List(dir.Path(), "*.log", 5),
              UnorderedElementsAre("a.log", "sub\\b.LOG", "sub\\deep\\c.log", "sub\\deep\\.d.log"));
  EXPECT_THAT(List(dir.Path(), "*.log", 13), UnorderedElementsAre("a.log", "sub\\b.LOG", "sub\\deep\\c.log"));
  EXPECT_THAT(List(dir.Path(), "deep", 6), ElementsAre("sub\\deep"));
  EXPECT_THAT(List(dir.Path(), "a.log", 5), ElementsAre("a.log"));
  EXPECT_THAT(List(dir.Path(), "", 5), IsEmpty());
}

TEST_F(FileList, ASubDirectoryThatMatchesShowsItsEntriesTwice) {
  dir.Write("x1/x2", "");
  dir.Write("x1/other", "");
  EXPECT_THAT(List(dir.Path(), "x*", 1), IsEmpty());
  EXPECT_THAT(List(dir.Path(), "x*", 5), ElementsAre("x1\\x2", "x1\\x2"));
}

TEST_F(FileList, NeverFollowsALinkBelow) {
  dir.Write("outside/secret", "");
  dir.Write("top/file", "");
  if (!MakeDirectoryLink("../outside", dir / "top/link") || !MakeDirectoryLink(".", dir / "top/loop")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_THAT(List(dir / "top", "*", 5), UnorderedElementsAre("file", "link", "loop"));
  EXPECT_THAT(List(dir / "top", "*", 6), IsEmpty());
  EXPECT_THAT(List(dir / "top", "l*", 5), UnorderedElementsAre("link", "loop"));
  EXPECT_THAT(List(dir / "top/link", "*", 5), ElementsAre("secret"));
}

TEST_F(FileList, NamesNeedNoEncoding) {
  dir.Write("\xff\xfe/\x80", "");
  EXPECT_THAT(List(dir.Path(), "*", 5), ElementsAre("\xff\xfe\\\x80"));
}

#ifndef _WIN32
TEST_F(FileList, BackslashesInNamesAreLeftOut) {
  dir.Write("good/x", "");
  dir.Write("a\\b", "");
  dir.Write("c\\d/e", "");
  EXPECT_THAT(List(dir.Path(), "*", 5), ElementsAre("good\\x"));
}
#endif

TEST_F(FileList, NothingToListGivesAnEmptyList) {
  EXPECT_THAT(List(dir.Path(), "*", 7), IsEmpty());
  EXPECT_THAT(List(dir / "missing", "*", 7), IsEmpty());
  EXPECT_THAT(List(dir.Write("file", ""), "*", 7), IsEmpty());
}

TEST_F(FileList, AnOverLongDirectoryIsNotTheCurrentOne) {
  dir.Write("file", "");
  const ScopedCurrentDirectory here(dir.Path());
  LogCapture log;
  EXPECT_THAT(List(std::string(3000, 'a'), "*", 7), IsEmpty());
  EXPECT_EQ(QsGetDirEntryCount(std::string(3000, 'a')), 0U);
  EXPECT_EQ(QsGetDirFileCount(std::string(3000, 'a')), 0U);
  EXPECT_THAT(List("", "*", 7), ElementsAre("file"));
}

#ifndef _WIN32
TEST_F(FileList, AnUnreadableSubDirectoryIsSkipped) {
  dir.Write("open/a", "");
  dir.Write("shut/b", "");
  ASSERT_EQ(chmod((dir / "shut").c_str(), 0), 0);
  EXPECT_TRUE(WithoutRoot([this] { return List(dir.Path(), "*", 5) == std::vector<std::string>{"open\\a"}; }));
}
#endif

// -----------------------------------------------------------------------------------------------------------
// age-sorted

TEST_F(AgedList, IsOldestFirst) {
  WriteAged(dir, "middle", 20);
  WriteAged(dir, "sub/oldest", 30);
  WriteAged(dir, "youngest", 10);
  Aged files = {{QsDateTime(), "from before"}};
  QsBuildFileListTimeAgeSorted(dir.Path(), "*", files, 5, 0);
  EXPECT_THAT(Values(files), ElementsAre("sub\\oldest", "middle", "youngest"));
  QsBuildFileListTimeAgeSorted(dir.Path(), "*", files, 4, 0);
  EXPECT_THAT(files, IsEmpty());
  QsBuildFileListTimeAgeSorted(dir.Path(), "m*", files, 5, 0);
  EXPECT_THAT(Values(files), ElementsAre("middle"));
}

TEST_F(AgedList, KeyIsTheLocalWriteTime) {
  SetEnvironment("TZ", "NPT-5:45");
  SetTimes(dir.Write("f", ""), 1000000000 * kSecond + 500);
  Aged files;
  QsBuildFileListTimeAgeSorted(dir.Path(), "*", files, 1, 0);
  ASSERT_THAT(files, SizeIs(1));
  EXPECT_EQ(files.begin()->first, QsDateTime(2001, 9, 9, 7, 31, 40, 0));  // 01:46:40 UTC + 05:45
}

TEST_F(AgedList, EqualTimesKeepTheOrderFound) {
  for (int i = 0; i < 50; ++i) {
    SetTimes(dir.Write(Numbered("f", i), ""), 1000000000 * kSecond + i * 100);
  }
  Aged files;
  QsBuildFileListTimeAgeSorted(dir.Path(), "*", files, 1, 0);
  EXPECT_EQ(Values(files), List(dir.Path(), "*", 1));
}

TEST_F(AgedList, EndsAtTheLimit) {
  for (int i = 0; i < 10; ++i) {
    WriteAged(dir, Numbered("f", i), i);
  }
  Aged files;
  for (unsigned max = 0; max <= 12; ++max) {
    QsBuildFileListTimeAgeSorted(dir.Path(), "*", files, 1, max);
    EXPECT_THAT(files, SizeIs(max == 0 ? 10 : std::min(max, 10U))) << max;
  }
}

TEST_F(AgedList, AsksWhetherToGoOn) {
  for (int i = 0; i < 5; ++i) {
    dir.Write(Numbered("f", i), "");
  }
  Aged files;
  int asked = 0;
  qsbase::detail::BuildFileListTimeAgeSorted(dir.Path(), "*", files, 1, 0, [&asked] { return ++asked <= 3; });
  EXPECT_EQ(asked, 4);
  EXPECT_THAT(files, SizeIs(3));
  qsbase::detail::BuildFileListTimeAgeSorted(dir.Path(), "f*", files, 5, 0, [] { return false; });
  EXPECT_THAT(files, IsEmpty());
}

TEST_F(AgedList, AsksBeforeEachSubDirectory) {
  dir.Write("sub/a", "");
  Aged files;
  int asked = 0;
  qsbase::detail::BuildFileListTimeAgeSorted(dir.Path(), "*", files, 5, 0, [&asked] { return ++asked > 0; });
  EXPECT_EQ(asked, 3);  // the entry "sub", going down into it, the entry "a"
  asked = 0;
  qsbase::detail::BuildFileListTimeAgeSorted(dir.Path(), "*", files, 5, 0, [&asked] { return ++asked < 2; });
  EXPECT_THAT(files, IsEmpty());
}

// --------------------------------------------------------------------------------------------------------- clean-up by
// age

TEST_F(CleanupDir, DeletesWhatIsOlderAnywhereAndKeepsDirectories) {
  WriteAged(dir, "old", 91);
  WriteAged(dir, "young", 89);
  WriteAged(dir, "sub/deep/old", 10000);
  WriteAged(dir, "sub/deep/young", 1);
  SetReadOnly(WriteAged(dir, "only/readonly", 500), true);
  QsCleanupDir(dir.Path(), "", 90);
  EXPECT_THAT(List(dir.Path(), "*", 7), UnorderedElementsAre("young", "sub", "sub\\deep", "sub\\deep\\young", "only"));
}

TEST_F(CleanupDir, SparesTheOmittedTreeWithATrailingSeparator) {
  const std::string canonical = QsTranslateFilename(dir.Path());
  const std::string spared[][2] = {
      {canonical + "\\", canonical + "\\keep"},
      {canonical + "\\", canonical + "\\keep\\"},
      {dir.Path() + "/", dir.Path() + "/keep"},
      {dir.Path() + "/", dir.Path() + "/keep/"},
      {dir.Path() + "/", canonical + "\\keep"},
      {canonical + "\\", dir.Path() + "/keep"},
      {dir.Path() + "/", "keep"},
  };
  for (const auto& [top, omit] : spared) {
    WriteAged(dir, "a", 5);
    WriteAged(dir, "keepsake/b", 5);
    WriteAged(dir, "keep/c", 5);
    WriteAged(dir, "keep/deep/d", 5);
    QsCleanupDir(top, omit, 0);
    EXPECT_THAT(List(dir.Path(), "*", 5), UnorderedElementsAre("keep\\c", "keep\\deep\\d")) << top << " " << omit;
  }
}

TEST_F(CleanupDir, AShortRelativeOmitSparesWithoutTheTrailingSeparatorToo) {
  WriteAged(dir, "a", 5);
  WriteAged(dir, "keep/c", 5);
  QsCleanupDir(dir.Path(), "keep", 0);
  EXPECT_THAT(List(dir.Path(), "*", 5), ElementsAre("keep\\c"));
}

TEST_F(CleanupDir, AnEmptyDirectoryIsTheCurrentOne) {
  WriteAged(dir, "a", 5);
  WriteAged(dir, "keep/c", 5);
  const ScopedCurrentDirectory here(dir.Path());
  QsCleanupDir("", "keep", 0);
  EXPECT_THAT(List(dir.Path(), "*", 5), ElementsAre("keep\\c"));
  EXPECT_EQ(QsCleanupDirectory("keep", 0, "*", false), 1U);
  EXPECT_EQ(QsCleanupDirectory("", 0, "*", false), 0U);
}

TEST_F(CleanupDir, TheLongestAgeDeletesNothing) {
  WriteAged(dir, "a", 500000);
  QsCleanupDir(dir.Path(), "", 4294967295U);
  EXPECT_THAT(List(dir.Path(), "*", 5), ElementsAre("a"));
}

TEST_F(CleanupDir, SparesADeepTreeGivenWithSlashes) {
  WriteAged(dir, "a/keep/c", 5);
  WriteAged(dir, "a/d", 5);
  QsCleanupDir(dir.Path() + "/", dir.Path() + "/a/keep", 0);
  EXPECT_THAT(List(dir.Path(), "*", 5), ElementsAre("a\\keep\\c"));
}

TEST_F(CleanupDir, SparesNothingWithoutTheTrailingSeparatorOrOutside) {
  const std::string canonical = QsTranslateFilename(dir.Path());
  const std::string cases[][2] = {
      {canonical, canonical + "\\keep"},
      {dir.Path(), dir.Path() + "/keep"},
      {canonical + "\\", canonical},
      {canonical + "\\", canonical + "\\"},
      {canonical + "\\", "\\somewhere\\else\\far\\away\\from\\every\\temporary\\folder\\that\\there\\is\\keep"},
  };
  for (const auto& [top, omit] : cases) {
    WriteAged(dir, "a", 5);
    WriteAged(dir, "keep/c", 5);
    QsCleanupDir(top, omit, 0);
    EXPECT_THAT(List(dir.Path(), "*", 5), IsEmpty()) << top << " " << omit;
  }
}

TEST_F(CleanupDir, RemovesAnOldLinkNotItsTarget) {
  if (IsWine()) {
    GTEST_SKIP() << kLinksStay;
  }
  WriteAged(dir, "outside/old", 500);
  fs::create_directories(dir / "top");
  if (!MakeDirectoryLink(dir / "outside", dir / "top/link")) {
    GTEST_SKIP() << kNoLinks;
  }
  SetAge(dir / "top/link", 500);
  QsCleanupDir(dir / "top", "", 90);
  EXPECT_FALSE(Exists(dir / "top/link"));
  EXPECT_TRUE(Exists(dir / "outside/old"));
}

TEST_F(CleanupDir, NeverFollowsALink) {
  WriteAged(dir, "outside/old", 500);
  WriteAged(dir, "top/old", 500);
  if (!MakeDirectoryLink(dir / "outside", dir / "top/link")) {
    GTEST_SKIP() << kNoLinks;
  }
  QsCleanupDir(dir / "top", "", 90);
  EXPECT_FALSE(Exists(dir / "top/old"));
  EXPECT_TRUE(Exists(dir / "outside/old"));
}

TEST_F(CleanupDir, LogsAtLevelFourOnly) {
  WriteAged(dir, "young", 1);
  WriteAged(dir, "keep/old%s", 500);
  const std::string top = QsTranslateFilename(dir.Path()) + "\\";
  QsSetLogLevel(3);
  LogCapture log;
  QsCleanupDir(top, top + "keep", 90);
  EXPECT_THAT(log.Messages(), IsEmpty());
  QsSetLogLevel(4);
  log.Clear();
  QsCleanupDir(top, top + "keep", 90);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_THAT(texts, SizeIs(3));
  const std::string start = "Cleaning up directory " + top + ", deleting files last modified before ";
  ASSERT_EQ(texts[0].substr(0, start.size()), start);
  EXPECT_THAT(texts[0].substr(start.size(), 23),
              MatchesPattern("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3}"));
  EXPECT_EQ(texts[0].substr(start.size() + 23), " or within " + top + "keep\\");
  EXPECT_EQ(texts[1], "Cleaning up directory " + top + ", file 'keep\\old%s' is ignored!");
  EXPECT_EQ(texts[2], "Cleaning up directory " + top + ", file 'young' is ignored!");
  for (const LogCapture::Message& message : log.Messages()) {
    EXPECT_EQ(message.flags, 0x10000004U);
  }
}

TEST_F(CleanupDir, SaysThatEverythingIsOmittedAndDeletesAllTheSame) {
  WriteAged(dir, "old", 500);
  const std::string top = QsTranslateFilename(dir.Path());
  QsSetLogLevel(4);
  LogCapture log;
  QsCleanupDir(top, top, 90);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_THAT(texts, SizeIs(2));
  EXPECT_EQ(texts[0], "Cleaning up directory " + top + "\\: nothing to do because every file will be omitted!");
  EXPECT_THAT(texts[1], HasSubstr(", deleting files last modified before "));
  EXPECT_THAT(texts[1], ::testing::Not(HasSubstr(" or within ")));
  EXPECT_FALSE(Exists(dir / "old"));
}

TEST_F(CleanupDir, AMissingDirectoryIsNoError) {
  QsCleanupDir(dir / "missing", "", 0);
  EXPECT_THAT(List(dir.Path(), "*", 7), IsEmpty());
}

// ------------------------------------------------------------------------------------------------------- clean-up by
// count

TEST_F(CleanupDirectory, DeletesTheOldestUntilKeepRemain) {
  for (int i = 1; i <= 8; ++i) {
    WriteAged(dir, Numbered("f", i) + ".log", i);
  }
  WriteAged(dir, "other.txt", 100);
  WriteAged(dir, "sub/deep.log", 100);
  EXPECT_EQ(QsCleanupDirectory(dir.Path(), 5, "*.log", false), 3U);
  EXPECT_THAT(List(dir.Path(), "*", 5),
              UnorderedElementsAre("f1.log", "f2.log", "f3.log", "f4.log", "f5.log", "other.txt", "sub\\deep.log"));
}

TEST_F(CleanupDirectory, OfFilesOfOneSecondTheOldestGo) {
  constexpr std::int64_t kMillisecond = kSecond / 1000;
  for (int i = 0; i < 50; ++i) {
    SetTimes(dir.Write(Numbered("f", i * 7 % 50), ""), 1000000000 * kSecond + (i * 7 % 50) * kMillisecond);
  }
  SetTimes(dir.Write("before", ""), 999999999 * kSecond + 900 * kMillisecond);
  EXPECT_EQ(QsCleanupDirectory(dir.Path(), 3, "*", false), 48U);
  EXPECT_THAT(List(dir.Path(), "*", 1), UnorderedElementsAre("f47", "f48", "f49"));
}

// Local time says the same hour twice then.
TEST_F(CleanupDirectory, TheOldestGoAlsoWhenClocksAreTurnedBack) {
  SetEnvironment("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
  constexpr std::int64_t kTurnedBack = 1792890000;  // 2026-10-25 01:00 UTC
  SetTimes(dir.Write("before", ""), (kTurnedBack - 20 * 60) * kSecond);
  SetTimes(dir.Write("after", ""), (kTurnedBack + 20 * 60) * kSecond);
  EXPECT_EQ(QsCleanupDirectory(dir.Path(), 1, "*", false), 1U);
  EXPECT_THAT(List(dir.Path(), "*", 1), ElementsAre("after"));
}

TEST_F(CleanupDirectory, DeletesNoneWhenThereAreFew) {
  for (int i = 0; i < 4; ++i) {
    WriteAged(dir, std::to_string(i) + ".log", i);
  }
  EXPECT_EQ(QsCleanupDirectory(dir.Path(), 5, "*.log", false), 0U);
  EXPECT_EQ(QsCleanupDirectory(dir.Path(), 4, "*.log", false), 0U);
  EXPECT_EQ(QsCleanupDirectory(dir / "missing", 0, "*", false), 0U);
  EXPECT_THAT(List(dir.Path(), "*", 1), SizeIs(4));
}

TEST_F(CleanupDirectory, KeepZeroTriesEveryMatchingFile) {
  for (int i = 0; i < 4; ++i) {
    WriteAged(dir, std::to_string(i) + ".log", i);
  }
  EXPECT_EQ(QsCleanupDirectory(dir.Path() + "/", 0, "*.*", true), 4U);
  EXPECT_THAT(List(dir.Path(), "*", 1), IsEmpty());
}

TEST_F(CleanupDirectory, LogsEachDeletionAtLevelFour) {
  WriteAged(dir, "old 50%s", 5);
  QsSetLogLevel(4);
  LogCapture log;
  EXPECT_EQ(QsCleanupDirectory(dir.Path(), 0, "*", false), 1U);
  ASSERT_THAT(log.Messages(), SizeIs(1));
  EXPECT_EQ(log.Messages()[0].flags, 0x10000004U);
  EXPECT_EQ(log.Messages()[0].text, "QsCleanupDirectory deleted file '" + dir.Path() + "\\old 50%s'");
}

#ifdef _WIN32
TEST_F(CleanupDirectory, WarnsOfWhatCannotBeDeleted) {
  SetReadOnly(WriteAged(dir, "fixed", 9), true);
  const std::ifstream inUse(WriteAged(dir, "in use", 8));
  WriteAged(dir, "young", 1);
  LogCapture log;
  EXPECT_EQ(QsCleanupDirectory(dir.Path(), 1, "*", false), 0U);
  EXPECT_THAT(log.Texts(), ElementsAre("QsCleanupDirectory could not delete file '" + dir.Path() +
                                           "\\fixed', error: '" + QsErrorMessage(5) + "'",
                                       "QsCleanupDirectory could not delete file '" + dir.Path() +
                                           "\\in use', error: '" + QsErrorMessage(32) + "'"));
  for (const LogCapture::Message& message : log.Messages()) {
    EXPECT_EQ(message.flags, 0x20000000U);
  }
  EXPECT_EQ(QsCleanupDirectory(dir.Path(), 0, "*", true), 2U);  // what is in use stays
  EXPECT_THAT(List(dir.Path(), "*", 1), ElementsAre("in use"));
}
#else
TEST_F(CleanupDirectory, WarnsOfWhatCannotBeDeleted) {
  WriteAged(dir, "shut/older", 9);
  WriteAged(dir, "shut/young", 1);
  ASSERT_EQ(chmod((dir / "shut").c_str(), 0555), 0);
  EXPECT_TRUE(WithoutRoot([this] {
    QsSetLogLevel(0);
    LogCapture log;
    const bool none = QsCleanupDirectory(dir / "shut", 1, "*", false) == 0;
    const std::vector<LogCapture::Message> messages = log.Messages();
    return none && messages.size() == 1 && messages[0].flags == 0x20000000U &&
           messages[0].text.find("QsCleanupDirectory could not delete file '" + dir.Path() +
                                 "/shut\\older', error: 'Permission denied") == 0;
  }));
  EXPECT_THAT(List(dir / "shut", "*", 1), SizeIs(2));
}
#endif

// ---------------------------------------------------------------------------------------------------------- whole
// trees

TEST_F(DeleteRecurse, EmptiesTheTreeAndLeavesTheTop) {
  dir.Write("top/a", "");
  dir.Write("top/.b", "");
  dir.Write("top/sub/deep/c", "");
  EXPECT_TRUE(QsDeleteDirectoryRecurse(dir / "top", false, -1, true, nullptr, false));
  EXPECT_THAT(List(dir.Path(), "*", 7), ElementsAre("top"));
}

TEST_F(DeleteRecurse, RemovesTheTopToo) {
  dir.Write("top/\xff/a", "");
  EXPECT_TRUE(QsDeleteDirectoryRecurse(QsTranslateFilename(dir / "top") + "\\", true, 0, false, nullptr, false));
  EXPECT_THAT(List(dir.Path(), "*", 7), IsEmpty());
  EXPECT_FALSE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, false));
  EXPECT_FALSE(QsDeleteDirectoryRecurse("", true, -1, true, nullptr, true));
}

TEST_F(DeleteRecurse, NeverFollowsALink) {
  dir.Write("outside/precious", "x");
  dir.Write("top/sub/a", "");
  if (!MakeDirectoryLink(dir / "outside", dir / "top/sub/link") || !MakeDirectoryLink("..", dir / "top/sub/loop") ||
      !MakeDirectoryLink(dir / "outside", dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  // Wine does not remove the links.
  EXPECT_EQ(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, true), !IsWine());
  EXPECT_FALSE(Exists(dir / "top/sub/a"));
  EXPECT_FALSE(QsDeleteDirectoryRecurse(dir / "link", false, -1, true, nullptr, true));
  EXPECT_EQ(TempDir::Read(dir / "outside/precious"), "x");
}

TEST_F(DeleteRecurse, RemovesLinksNotTheirTargets) {
  if (IsWine()) {
    GTEST_SKIP() << kLinksStay;
  }
  dir.Write("outside/precious", "x");
  dir.Write("top/sub/a", "");
  if (!MakeDirectoryLink(dir / "outside", dir / "top/sub/link") || !MakeDirectoryLink("..", dir / "top/sub/loop") ||
      !MakeLink(dir / "outside/precious", dir / "top/filelink") || !MakeLink("nowhere", dir / "top/dangling")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_TRUE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, false));
  EXPECT_FALSE(Exists(dir / "top"));
  EXPECT_EQ(TempDir::Read(dir / "outside/precious"), "x");
}

TEST_F(DeleteRecurse, ATopThatIsALinkIsNotEntered) {
  if (IsWine()) {
    GTEST_SKIP() << kLinksStay;
  }
  dir.Write("outside/precious", "x");
  for (const std::string tail : {"", "/", "\\", "//"}) {
    if (!MakeDirectoryLink(dir / "outside", dir / "link")) {
      GTEST_SKIP() << kNoLinks;
    }
    EXPECT_FALSE(QsDeleteDirectoryRecurse((dir / "link") + tail, false, -1, true, nullptr, true));
    EXPECT_TRUE(Exists(dir / "link"));
    EXPECT_TRUE(QsDeleteDirectoryRecurse((dir / "link") + tail, true, -1, true, nullptr, false));
    EXPECT_FALSE(Exists(dir / "link"));
    EXPECT_EQ(TempDir::Read(dir / "outside/precious"), "x");
  }
}

#ifndef _WIN32
TEST_F(DeleteRecurse, ANameWithABackslashCannotLeadOutOfTheTree) {
  dir.Write("precious", "x");
  dir.Write("top/..\\precious", "");
  dir.Write("top/a", "");
  EXPECT_FALSE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, false));
  EXPECT_EQ(TempDir::Read(dir / "precious"), "x");
  EXPECT_FALSE(Exists(dir / "top/a"));
  EXPECT_TRUE(Exists(dir / "top/..\\precious"));
}
#endif

int asked = 0;
int goOnUntil = 0;
bool MayGoOn() { return ++asked <= goOnUntil; }

// It counts as empty.
TEST_F(DeleteRecurse, ATopThatCannotBeLookedAt) {
  const std::string top = dir / std::string(300, 'n');
  EXPECT_TRUE(QsDeleteDirectoryRecurse(top, false, -1, true, nullptr, false));
  EXPECT_FALSE(QsDeleteDirectoryRecurse(top, true, -1, true, nullptr, false));
}

TEST_F(DeleteRecurse, AsksOncePerDirectoryAfterItsSubDirectories) {
  dir.Write("top/sub/a", "");
  dir.Write("top/b", "");
  asked = 0;
  goOnUntil = 1;
  EXPECT_FALSE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, &MayGoOn, false));
  EXPECT_EQ(asked, 2);
  EXPECT_THAT(List(dir.Path(), "*", 7), UnorderedElementsAre("top", "top\\b"));
  asked = 0;
  goOnUntil = 0;
  EXPECT_FALSE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, &MayGoOn, false));
  EXPECT_TRUE(Exists(dir / "top/b"));
  asked = 0;
  goOnUntil = 9;
  EXPECT_TRUE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, &MayGoOn, false));
  EXPECT_EQ(asked, 1);
}

TEST_F(DeleteRecurse, PausesInEveryDirectory) {
  dir.Write("top/sub/a", "");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(QsDeleteDirectoryRecurse(dir / "top", true, 15, true, nullptr, false));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

#ifdef _WIN32
TEST_F(DeleteRecurse, ContinueOnErrorDeletesWhatItCan) {
  dir.Write("top/open/a", "");
  SetReadOnly(dir.Write("top/shut/b", ""), true);
  dir.Write("top/c", "");
  EXPECT_FALSE(QsDeleteDirectoryRecurse(dir / "top", true, -1, false, nullptr, true));
  EXPECT_THAT(List(dir.Path(), "*", 7), UnorderedElementsAre("top", "top\\shut", "top\\shut\\b"));
  EXPECT_TRUE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, false));
  EXPECT_FALSE(Exists(dir / "top"));
}

TEST_F(DeleteRecurse, StopsAtTheFirstErrorOtherwise) {
  dir.Write("top/c", "");
  {
    const std::ifstream inUse(dir.Write("top/shut/b", ""));
    EXPECT_FALSE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, false));
    EXPECT_EQ(QsGetLastError(), 32);
  }
  EXPECT_TRUE(Exists(dir / "top/c"));
  EXPECT_TRUE(Exists(dir / "top/shut/b"));
}

TEST_F(DeleteRecurse, ForceClearsTheReadOnlyAttributeOfDirectories) {
  if (IsWine()) {
    GTEST_SKIP() << "Wine removes read-only directories";
  }
  fs::create_directories(dir / "top/sub");
  SetReadOnly(dir / "top/sub", true);
  EXPECT_FALSE(QsDeleteDirectoryRecurse(dir / "top", true, -1, false, nullptr, false));
  EXPECT_TRUE(Exists(dir / "top/sub"));
  EXPECT_TRUE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, false));
  EXPECT_FALSE(Exists(dir / "top"));
}
#else
TEST_F(DeleteRecurse, ContinueOnErrorDeletesWhatItCan) {
  dir.Write("top/open/a", "");
  dir.Write("top/shut/b", "");
  dir.Write("top/c", "");
  for (const char* const name : {"top", "top/open"}) {
    ASSERT_EQ(chmod((dir / name).c_str(), 0777), 0);
  }
  ASSERT_EQ(chmod((dir / "top/shut").c_str(), 0555), 0);
  EXPECT_TRUE(WithoutRoot([this] { return !QsDeleteDirectoryRecurse(dir / "top", true, -1, false, nullptr, true); }));
  EXPECT_THAT(List(dir.Path(), "*", 7), UnorderedElementsAre("top", "top\\shut", "top\\shut\\b"));
}

TEST_F(DeleteRecurse, StopsAtTheFirstErrorOtherwise) {
  dir.Write("top/shut/b", "");
  dir.Write("top/c", "");
  ASSERT_EQ(chmod((dir / "top").c_str(), 0777), 0);
  ASSERT_EQ(chmod((dir / "top/shut").c_str(), 0555), 0);
  EXPECT_TRUE(WithoutRoot([this] { return !QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, false); }));
  EXPECT_TRUE(Exists(dir / "top/c"));
  EXPECT_TRUE(Exists(dir / "top/shut/b"));
}
#endif

// On Windows as far as a path without a prefix goes: 259 characters.
TEST_F(DeleteRecurse, GoesDownFarEnough) {
  constexpr int kDepth = kOnWindows ? 80 : 400;
  std::string name = "top";
  for (int depth = 0; depth < kDepth; ++depth) {
    name += "/d";
  }
  dir.Write(name + "/f", "");
  EXPECT_TRUE(QsDeleteDirectoryRecurse(dir / "top", true, -1, true, nullptr, false));
  EXPECT_FALSE(Exists(dir / "top"));
}

TEST_F(DeleteRecurse, FailsQuietlyBeyondTheLongestPath) {
  std::string name = "top";
  for (int depth = 0; depth < 12; ++depth) {
    name += "/" + std::string(200, 'd');
  }
  fs::create_directories(dir.Unlimited(name));
  const ScopedCurrentDirectory here(dir.Path());
  dir.Write("bystander", "x");
  LogCapture log;
  EXPECT_FALSE(QsDeleteDirectoryRecurse("top", true, -1, true, nullptr, true));
  EXPECT_EQ(TempDir::Read(dir / "bystander"), "x");
}

// -------------------------------------------------------------------------------------------------------------
// counting

TEST_F(Count, EntriesAndFiles) {
  EXPECT_EQ(QsGetDirEntryCount(dir.Path()), 0U);
  EXPECT_EQ(QsGetDirFileCount(dir.Path()), 0U);
  dir.Write("a", "");
  dir.Write(".b", "");
  dir.Write("sub/c", "");
#ifndef _WIN32
  dir.Write("x\\y", "");
#endif
  const std::string canonical = QsTranslateFilename(dir.Path()) + "\\";
  for (const std::string& path : {dir.Path(), dir.Path() + "/", canonical}) {
    EXPECT_EQ(QsGetDirEntryCount(path), 3U);
    EXPECT_EQ(QsGetDirFileCount(path), 2U);
  }
  EXPECT_EQ(QsGetDirEntryCount(dir / "missing"), 0U);
  EXPECT_EQ(QsGetDirFileCount(dir / "missing"), 0U);
  EXPECT_EQ(QsGetDirEntryCount(dir / "a"), 0U);
}

TEST_F(Count, ALinkIsAFile) {
  dir.Write("sub/c", "");
  if (!MakeDirectoryLink(dir / "sub", dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_EQ(QsGetDirEntryCount(dir.Path()), 2U);
  EXPECT_EQ(QsGetDirFileCount(dir.Path()), 1U);
}

TEST_F(Count, WithinATimeThatSuffices) {
  dir.Write("a", "");
  bool timedOut = true;
  EXPECT_EQ(QsGetDirFileCount(dir.Path(), 5, timedOut), 1U);
  EXPECT_FALSE(timedOut);
  timedOut = true;
  EXPECT_EQ(QsGetDirFileCount(dir.Path(), 0, timedOut), 1U);
  EXPECT_FALSE(timedOut);
  timedOut = true;
  EXPECT_EQ(QsGetDirFileCount(dir / "missing", 5, timedOut), 0U);
  EXPECT_FALSE(timedOut);
}

TEST_F(Count, GivesUpWhenMoreTimeHasPassed) {
  for (int i = 0; i < 350; ++i) {
    dir.Write(std::to_string(i), "");
  }
  std::int64_t now = 1000;
  const auto clock = [&now] { return now++; };  // looked at once at the start, then after every 100 entries
  bool timedOut = false;
  EXPECT_EQ(qsbase::detail::CountFilesWithin(dir.Path(), 3, clock, timedOut), 350U);
  EXPECT_FALSE(timedOut);
  EXPECT_EQ(now, 1004);
  now = 1000;
  const unsigned count = qsbase::detail::CountFilesWithin(dir.Path(), 1, clock, timedOut);
  EXPECT_TRUE(timedOut);
  EXPECT_GE(count, 198U);  // "." and ".." may be among the first 200 entries
  EXPECT_LE(count, 200U);
}

}  // namespace
