#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <limits>
#include <list>
#include <string>
#include <vector>

#include <common/logcapture.h>
#include <common/memorylimit.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/support/findentries.h>
#include <QSbase/support/findfile.h>
#include <QSbase/support/paths.h>

namespace {

using qsbase::detail::MatchesDosWildcard;
using qsbase::detail::MatchesWildcard;
using qsbase::testing::kNoLimit;
using qsbase::testing::kNoLinks;
using qsbase::testing::kOnWindows;
using qsbase::testing::kSecond;
using qsbase::testing::largestAllocation;
using qsbase::testing::LogCapture;
using qsbase::testing::MakeDirectoryLink;
using qsbase::testing::MakeLink;
using qsbase::testing::Resize;
using qsbase::testing::SetEnvironment;
using qsbase::testing::SetReadOnly;
using qsbase::testing::SetTimes;
using qsbase::testing::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<std::string> Names(CQsFindFile& find) {
  std::vector<std::string> names;
  for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
    names.push_back(find.Filename());
  }
  return names;
}

std::vector<std::string> Names(const std::string& dir, const std::string& pattern) {
  CQsFindFile find(dir, pattern, 0);
  return Names(find);
}

// The definition read literally, in exponential time.
bool SlowMatch(const std::string& pattern, const std::string& name) {
  if (pattern.empty()) {
    return name.empty();
  }
  if (pattern[0] == '*') {
    return SlowMatch(pattern.substr(1), name) || (!name.empty() && SlowMatch(pattern, name.substr(1)));
  }
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return !name.empty() && (pattern[0] == '?' || lower(pattern[0]) == lower(name[0])) &&
         SlowMatch(pattern.substr(1), name.substr(1));
}

// The rules of Windows read literally: whether what the pattern holds from p on matches what the name holds from n on.
bool SlowDosMatch(const std::string& pattern, std::size_t p, const std::string& name, std::size_t n) {
  if (p == pattern.size()) {
    return n == name.size();
  }
  const std::string rest = pattern.substr(p);
  const bool atEnd = n == name.size();
  if (rest == "*.") {
    return name.find('.', n) == std::string::npos;
  }
  if (rest[0] == '*') {
    return SlowDosMatch(pattern, p + 1, name, n) || (!atEnd && SlowDosMatch(pattern, p, name, n + 1));
  }
  if (rest[0] == '?' && (atEnd || name[n] == '.')) {
    return SlowDosMatch(pattern, p + 1, name, n);
  }
  const bool optionalDot = rest[0] == '.' && rest.size() > 1 && (rest[1] == '*' || rest[1] == '?');
  if (atEnd) {
    return optionalDot && SlowDosMatch(pattern, p + 1, name, n);
  }
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return (rest[0] == '?' || lower(rest[0]) == lower(name[n])) && SlowDosMatch(pattern, p + 1, name, n + 1);
}

// Every text over the alphabet of at most this length.
std::vector<std::string> AllTexts(const std::string& alphabet, std::size_t longest) {
  std::vector<std::string> texts = {""};
  for (std::size_t done = 0, length = 0; length < longest; ++length) {
    const std::size_t end = texts.size();
    for (; done < end; ++done) {
      for (const char c : alphabet) {
        texts.push_back(texts[done] + c);
      }
    }
  }
  return texts;
}

TEST(Wildcard, AgreesWithTheDefinition) {
  const std::vector<std::string> names = AllTexts("aBb.", 4);
  for (const std::string& pattern : AllTexts("ab.*?", 4)) {
    for (const std::string& name : names) {
      const bool dos = SlowDosMatch(pattern, 0, name, 0);
      const bool expected = pattern == "*.*" || (kOnWindows ? dos : SlowMatch(pattern, name));
      ASSERT_EQ(MatchesWildcard(pattern, name), expected) << pattern << " on " << name;
      ASSERT_EQ(MatchesDosWildcard(pattern, name), dos) << pattern << " on " << name;
    }
  }
}

TEST(Wildcard, OfWindowsHasRulesOfItsOwnForDotsAndQuestionMarks) {
  EXPECT_TRUE(MatchesDosWildcard("a*.*", "ab"));
  EXPECT_TRUE(MatchesDosWildcard("report?.txt", "report.txt"));
  EXPECT_TRUE(MatchesDosWildcard("report?.txt", "report1.txt"));
  EXPECT_FALSE(MatchesDosWildcard("report?.txt", "report12.txt"));
  EXPECT_TRUE(MatchesDosWildcard("????????.???", "name"));
  EXPECT_TRUE(MatchesDosWildcard("????????.???", "name.c"));
  EXPECT_FALSE(MatchesDosWildcard("????????.???", "name.html"));
  EXPECT_TRUE(MatchesDosWildcard("*.", "readme"));
  EXPECT_FALSE(MatchesDosWildcard("*.", "readme.txt"));
  EXPECT_FALSE(MatchesDosWildcard("?a", "a"));  // one before anything else than a dot
  EXPECT_FALSE(MatchesDosWildcard("*.txt", "name.txtx"));
  EXPECT_TRUE(MatchesDosWildcard("*.t?", "name.TX"));
}

TEST(FindFile, ReadsThePatternAsTheSystemDoes) {
  const TempDir dir;
  for (const char* name : {"log", "log.txt", "log1.txt", "logs.old"}) {
    dir.Write(name, "");
  }
  const std::size_t onWindows = kOnWindows ? 1 : 0;
  EXPECT_EQ(Names(dir.Path(), "log*.*").size(), 3 + onWindows);
  EXPECT_EQ(Names(dir.Path(), "log?.txt").size(), 1 + onWindows);
  EXPECT_EQ(Names(dir.Path(), "log*.").size(), onWindows);
}

TEST(Wildcard, FoldsTheLettersOfTheSystem) {
  EXPECT_TRUE(MatchesWildcard("*.TXT", "readme.txt"));
  EXPECT_TRUE(MatchesWildcard("ReadMe.*", "rEADmE.md"));
  EXPECT_EQ(MatchesWildcard("\xC4*", "\xE4.txt"), kOnWindows);  // umlauts there; parts of UTF-8 characters elsewhere
  EXPECT_FALSE(MatchesWildcard("\xD7*", "\xF7.txt"));           // the signs of times and division, 32 apart
  EXPECT_TRUE(MatchesWildcard("\xC4*", "\xC4.txt"));
  EXPECT_FALSE(MatchesWildcard("[a]", "{a}"));  // 32 apart, but no letters
  EXPECT_FALSE(MatchesWildcard("@*", "`x"));
}

TEST(Wildcard, StarDotStarIsStar) {
  EXPECT_TRUE(MatchesWildcard("*.*", "noextension"));
  EXPECT_TRUE(MatchesWildcard("*.*", ""));
  EXPECT_EQ(MatchesWildcard("a*.*", "ab"), kOnWindows);
}

TEST(Wildcard, ManyStarsTakeNoTimeToSpeakOf) {
  std::string pattern;
  for (int i = 0; i < 200; ++i) {
    pattern += "*a";
  }
  pattern += "b";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(MatchesWildcard(pattern, std::string(5000, 'a')));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(FindFile, SearchesTheJoinedPath) {
  const TempDir dir;
  dir.Write("a.txt", "");
  dir.Write("B.TXT", "");
  dir.Write("c.txtx", "");
  dir.Write("sub/d.txt", "");
  EXPECT_THAT(Names(dir.Path(), "*.txt"), UnorderedElementsAre("a.txt", "B.TXT"));
  EXPECT_THAT(Names(dir.Path() + "/", "*.txt"), UnorderedElementsAre("a.txt", "B.TXT"));
  EXPECT_THAT(Names(QsTranslateFilename(dir.Path()) + "\\", "*.txt"), UnorderedElementsAre("a.txt", "B.TXT"));
  EXPECT_THAT(Names(dir.Path(), "?.txt"), UnorderedElementsAre("a.txt", "B.TXT"));
  EXPECT_THAT(Names(dir.Path(), "sub\\*"), UnorderedElementsAre(".", "..", "d.txt"));
  CQsFindFile find(dir.Path() + "\\*.txtx", 0);
  EXPECT_THAT(Names(find), ElementsAre("c.txtx"));
}

TEST(FindFile, DeliversTheDotEntriesAndHiddenNames) {
  const TempDir dir;
  dir.Write(".hidden", "");
  dir.Write("plain", "");
  EXPECT_THAT(Names(dir.Path(), "*"), UnorderedElementsAre(".", "..", ".hidden", "plain"));
  EXPECT_THAT(Names(dir.Path(), "*.*"), UnorderedElementsAre(".", "..", ".hidden", "plain"));
  EXPECT_EQ(Names(dir.Path(), "p*.*").size(), kOnWindows ? 1U : 0U);
  CQsFindFile find(dir.Path(), "*", 0);
  for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
    const bool dot = find.Filename() == "." || find.Filename() == "..";
    EXPECT_EQ(find.IsThisDir_PrevDir(), dot);
    EXPECT_EQ(find.IsDir(), dot);
  }
}

TEST(FindFile, WithoutWildcardFindsThatOneName) {
  const TempDir dir;
  dir.Write("Name.txt", "four");
  dir.Write("name.txt2", "");
  CQsFindFile find(dir.Path(), "Name.txt", 0);
  EXPECT_NE(find.FindFirst(), -1);
  EXPECT_EQ(find.Filename(), "Name.txt");
  EXPECT_EQ(find.FileSize(), 4U);
  EXPECT_EQ(find.FindNext(), -1);
  EXPECT_THAT(Names(dir.Path(), "NAME.TXT").empty(), !kOnWindows);
  EXPECT_THAT(Names(dir.Path(), "missing"), IsEmpty());
  EXPECT_THAT(Names(dir.Path(), ".."), ElementsAre(".."));
}

TEST(FindFile, PatternCountsInTheLastComponentOnly) {
  const TempDir dir;
  dir.Write("sub/x.txt", "");
  EXPECT_THAT(Names(dir.Path() + "/s*", "*.txt"), IsEmpty());
#ifndef _WIN32
  dir.Write("s*/y.txt", "");
  EXPECT_THAT(Names(dir.Path() + "/s*", "*.txt"), ElementsAre("y.txt"));
#endif
}

TEST(FindFile, FindsNothing) {
  const TempDir dir;
  CQsFindFile empty("", 0);
  EXPECT_EQ(empty.FindFirst(), -1);
  EXPECT_EQ(empty.FindNext(), -1);
  EXPECT_THAT(Names(dir.Path(), ""), IsEmpty());
  EXPECT_THAT(Names(dir / "missing", "*"), IsEmpty());
  EXPECT_THAT(Names(dir.Write("file", "x"), "*"), IsEmpty());
  EXPECT_THAT(Names(dir.Path() + std::string("\0x", 2), "*"), IsEmpty());
  LogCapture log;
  EXPECT_THAT(Names(std::string(3000, 'a'), "*"), IsEmpty());
  EXPECT_EQ(log.Messages().size(), 1U);
}

TEST(FindFile, AccessorsWithoutACurrentEntry) {
  const TempDir dir;
  CQsFindFile find(dir.Path(), "*", 0);
  EXPECT_EQ(find.FindNext(), -1);
  EXPECT_EQ(find.Filename(), "");
  EXPECT_FALSE(find.IsDir());
  EXPECT_FALSE(find.IsReadOnly());
  EXPECT_FALSE(find.IsThisDir_PrevDir());
  EXPECT_EQ(find.FileSize(), 0U);
  EXPECT_EQ(find.FileLastWriteTime(), 0);
  EXPECT_EQ(find.FileDate(), QsDateTime());
}

TEST(FindFile, TakesASnapshotAtFindFirst) {
  const TempDir dir;
  dir.Write("fa", "1");
  dir.Write("fb", "2");
  CQsFindFile find(dir.Path(), "f*", 0);
  ASSERT_NE(find.FindFirst(), -1);
  dir.Write("fc", "3");
  std::filesystem::remove(dir / "fa");
  std::filesystem::remove(dir / "fb");
  std::vector<std::string> names = {find.Filename()};
  while (find.FindNext() == 0) {
    names.push_back(find.Filename());
    EXPECT_EQ(find.FileSize(), 1U);
  }
  EXPECT_THAT(names, UnorderedElementsAre("fa", "fb"));
  EXPECT_THAT(Names(find), ElementsAre("fc"));
}

TEST(FindFile, SizesAre64BitsAndDirectoriesHaveNone) {
  const TempDir dir;
  const std::string big = dir.Write("big", "");
  std::filesystem::create_directory(dir / "sub");
  for (const std::int64_t size : {std::int64_t{0x7FFFFFFF}, std::int64_t{0x80000000}, std::int64_t{0xFFFFFFFF},
                                  std::int64_t{0x100000000}, std::int64_t{0x140000007}}) {
    Resize(big, size);
    for (const char* const pattern : {"big", "b*"}) {
      CQsFindFile find(dir.Path(), pattern, 0);
      ASSERT_NE(find.FindFirst(), -1);
      EXPECT_EQ(find.FileSize(), static_cast<std::uint64_t>(size));
    }
  }
  CQsFindFile sub(dir.Path(), "sub", 0);
  ASSERT_NE(sub.FindFirst(), -1);
  EXPECT_TRUE(sub.IsDir());
  EXPECT_EQ(sub.FileSize(), 0U);
}

TEST(FindFile, ReadOnlyFilesAreToldApart) {
  const TempDir dir;
  SetReadOnly(dir.Write("fixed", ""), true);
  dir.Write("free", "");
  for (const char* const pattern : {"f*", "fixed", "free"}) {
    CQsFindFile find(dir.Path(), pattern, 0);
    for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
      EXPECT_EQ(find.IsReadOnly(), find.Filename() == "fixed");
    }
  }
}

#ifndef _WIN32
TEST(FindFile, ReadOnlyIsAMissingOwnerWriteBit) {
  const TempDir dir;
  for (unsigned mode = 0; mode < 0777; mode += 0011) {
    ASSERT_EQ(chmod(dir.Write("f", "").c_str(), mode), 0);
    CQsFindFile find(dir.Path(), "f", 0);
    ASSERT_NE(find.FindFirst(), -1);
    EXPECT_EQ(find.IsReadOnly(), (mode & 0200) == 0) << std::oct << mode;
    ASSERT_EQ(chmod((dir / "f").c_str(), 0600), 0);
  }
}
#endif

TEST(FindFile, DescribesALinkItself) {
  const TempDir dir;
  dir.Write("target/file", "content");
  if (!MakeDirectoryLink(dir / "target", dir / "todir") || !MakeLink(dir / "target/file", dir / "tofile") ||
      !MakeLink(dir / "nowhere", dir / "tonothing")) {
    GTEST_SKIP() << kNoLinks;
  }
  CQsFindFile find(dir.Path(), "to*", 0);
  std::vector<std::string> names;
  for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
    names.push_back(find.Filename());
    EXPECT_FALSE(find.IsDir());
    EXPECT_FALSE(find.IsReadOnly());
    EXPECT_EQ(find.FileSize(), 0U);
  }
  EXPECT_THAT(names, UnorderedElementsAre("todir", "tofile", "tonothing"));
  EXPECT_THAT(Names(dir / "todir", "*"), UnorderedElementsAre(".", "..", "file"));
}

TEST(FindFile, WriteTimeIsLocalInFileDate) {
  SetEnvironment("TZ", "IST-5:30");
  const TempDir dir;
  const std::string path = dir.Write("f", "");
  SetTimes(path, 1000000000 * kSecond + 999000000);
  CQsFindFile find(path, 0);
  ASSERT_NE(find.FindFirst(), -1);
  EXPECT_EQ(find.FileLastWriteTime(), 1000000000);
  // 2001-09-09 01:46:40 UTC
  EXPECT_EQ(find.FileDate(), QsDateTime(2001, 9, 9, 7, 16, 40, 0));
}

TEST(FindFile, SummerTimeOfTheFileCountsNotOfToday) {
  SetEnvironment("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
  const TempDir dir;
  const std::string path = dir.Write("f", "");
  SetTimes(path, 1720000000 * kSecond);  // 2024-07-03 09:46:40 UTC
  CQsFindFile find(path, 0);
  ASSERT_NE(find.FindFirst(), -1);
  EXPECT_EQ(find.FileDate(), QsDateTime(2024, 7, 3, 11, 46, 40, 0));
  SetTimes(path, 1705000000 * kSecond);  // 2024-01-11 19:06:40 UTC
  ASSERT_NE(find.FindFirst(), -1);
  EXPECT_EQ(find.FileDate(), QsDateTime(2024, 1, 11, 20, 6, 40, 0));
}

// Times of file systems that keep 64 bits, tried without one.
TEST(FindFile, ATimeThatNoDateHoldsIsTheFirstOrLastSecond) {
  SetEnvironment("TZ", "UTC0");
  const QsDateTime first(1, 1, 1, 0, 0, 0, 0);
  const QsDateTime last(9999, 12, 31, 23, 59, 59, 0);
  constexpr std::int64_t kEndOf9999 = 253402300799;
  constexpr std::int64_t kStartOf1 = -62135596800;
  constexpr std::int64_t kLargestYear = 67768036191676799;    // its year is INT_MAX: 1900 more than tm_year can take
  constexpr std::int64_t kSmallestYear = -67768040609740800;  // tm_year is INT_MIN
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  const auto date = [](std::int64_t written) {
    qsbase::detail::DirEntry entry;
    entry.written = written;
    return qsbase::detail::EntryDate(entry);
  };
  for (const std::int64_t late : {kEndOf9999, kEndOf9999 + 1, kLargestYear, kLargestYear + 1, kMax}) {
    EXPECT_EQ(date(late), last) << late;
  }
  for (const std::int64_t early : {kStartOf1, kStartOf1 - 1, kSmallestYear, kSmallestYear - 1, kMin}) {
    EXPECT_EQ(date(early), first) << early;
  }
  EXPECT_EQ(date(kEndOf9999 - 1), QsDateTime(9999, 12, 31, 23, 59, 58, 0));
  EXPECT_EQ(date(kStartOf1 + 1), QsDateTime(1, 1, 1, 0, 0, 1, 0));
  EXPECT_EQ(date(-1), QsDateTime(1969, 12, 31, 23, 59, 59, 0));
}

TEST(FindFile, TheLastEntryStaysCurrentAtTheEnd) {
  const TempDir dir;
  dir.Write("only.txt", "four");
  CQsFindFile find(dir.Path(), "*.txt", 0);
  ASSERT_NE(find.FindFirst(), -1);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(find.FindNext(), -1);
    EXPECT_EQ(find.Filename(), "only.txt");
    EXPECT_EQ(find.FileSize(), 4U);
  }
  std::filesystem::remove(dir / "only.txt");
  EXPECT_EQ(find.FindFirst(), -1);
  EXPECT_EQ(find.Filename(), "");
}

TEST(FindFile, WildcardsFoldWhatNamesFold) {
  const TempDir dir;
  dir.Write("\xE4.txt", "");
  EXPECT_EQ(Names(dir.Path(), "\xC4*").size(), kOnWindows ? 1U : 0U);
  EXPECT_EQ(Names(dir.Path(), "\xC4.txt").size(), kOnWindows ? 1U : 0U);
}

TEST(FindFile, NamesNeedNoEncoding) {
  const TempDir dir;
  const std::string name = kOnWindows ? "\xff\xfe \x80&%.txt" : "\xff\xfe \x80\n:.txt";
  dir.Write(name, "x");
  EXPECT_THAT(Names(dir.Path(), "*.txt"), ElementsAre(name));
  EXPECT_THAT(Names(dir.Path(), "\xff??\x80*"), ElementsAre(name));
  EXPECT_THAT(Names(dir.Path(), name), ElementsAre(name));
}

#ifdef _WIN32
TEST(FindFile, ADriveNeedsNoSeparator) {
  const TempDir dir;
  dir.Write("name.txt", "x");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path());
  const std::string drive = dir.Path().substr(0, 2);
  CQsFindFile wild(drive + "*.txt", 0);
  EXPECT_THAT(Names(wild), ElementsAre("name.txt"));
  CQsFindFile plain(drive + "name.txt", 0);
  EXPECT_THAT(Names(plain), ElementsAre("name.txt"));
  std::filesystem::current_path(before);
}

TEST(FindFile, ADrivesRootCanBeListed) {
  const std::string drive = TempDir().Path().substr(0, 2);
  EXPECT_FALSE(Names(drive + "\\", "*").empty());
  EXPECT_FALSE(Names(drive + "/", "*.*").empty());
}

TEST(FindFile, WithoutWildcardCaseIsNoDifference) {
  const TempDir dir;
  dir.Write("Name.txt", "four");
  CQsFindFile find(dir.Path(), "NAME.TXT", 0);
  ASSERT_NE(find.FindFirst(), -1);
  EXPECT_EQ(find.FileSize(), 4U);
}

TEST(FindFile, DevicePathsAreFollowed) {
  const TempDir dir;
  dir.Write("name.txt", "x");
  EXPECT_THAT(Names("\\\\?\\" + QsTranslateFilename(dir.Path()), "*.txt"), ElementsAre("name.txt"));
  EXPECT_THAT(Names("\\\\.\\" + QsTranslateFilename(dir.Path()), "*.txt"), ElementsAre("name.txt"));
}
#else
TEST(FindFile, AColonIsAPlainCharacter) {
  const TempDir dir;
  dir.Write("12:30.log", "x");
  dir.Write("a:b/c", "x");
  EXPECT_THAT(Names(dir.Path(), "12:*"), ElementsAre("12:30.log"));
  EXPECT_THAT(Names(dir / "a:b", "c*"), ElementsAre("c"));
}

TEST(FindFile, SkipsNamesThatNoPathCanName) {
  const TempDir dir;
  dir.Write("..\\evil", "x");
  dir.Write("a\\b", "x");
  dir.Write("good", "x");
  EXPECT_THAT(Names(dir.Path(), "*"), UnorderedElementsAre(".", "..", "good"));
  EXPECT_THAT(Names(dir.Path(), "a?b"), IsEmpty());
}
#endif

TEST(FindFile, WithoutMemoryItIsAnEmptySearch) {
  const std::string pattern = "*";
  const std::string dir = "a directory with a long name";
  largestAllocation = 0;
  CQsFindFile find(pattern, 0);
  CQsFindFile joined(dir, pattern, 0);
  largestAllocation = kNoLimit;
  for (CQsFindFile* object : {&find, &joined}) {
    EXPECT_EQ(object->FindFirst(), 0);
    EXPECT_EQ(object->FindNext(), -1);
    EXPECT_FALSE(object->IsDir());
    EXPECT_FALSE(object->IsReadOnly());
    EXPECT_FALSE(object->IsThisDir_PrevDir());
    EXPECT_EQ(object->Filename(), "");
    EXPECT_EQ(object->FileSize(), 0U);
    EXPECT_EQ(object->FileLastWriteTime(), 0);
    EXPECT_EQ(object->FileDate(), QsDateTime());
  }
}

TEST(FindFile, TheRootCanBeListed) {
  EXPECT_FALSE(Names("\\", "*").empty());
  EXPECT_FALSE(Names("/", "*.*").empty());
}

TEST(GetAll, SortsEntriesByKindAndAppends) {
  const TempDir dir;
  dir.Write("a.txt", "");
  dir.Write("b.bin", "");
  dir.Write("sub.txt/c.txt", "");
  const std::string prefix = dir.Path() + "\\";
  std::list<std::string> files = {"kept"};
  std::list<std::string> dirs = {"kept"};
  EXPECT_EQ(GetAllFiles(dir.Path(), "*.txt", files, 0), 0);
  EXPECT_THAT(files, UnorderedElementsAre("kept", prefix + "a.txt"));
  EXPECT_EQ(files.front(), "kept");
  EXPECT_EQ(GetAllDirs(dir.Path(), "*", dirs, 0x10), 0);
  EXPECT_THAT(dirs, ElementsAre("kept", prefix + "sub.txt"));
}

TEST(GetAll, ALinkToADirectoryIsAFile) {
  const TempDir dir;
  dir.Write("sub/c", "");
  if (!MakeDirectoryLink(dir / "sub", dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  const std::string prefix = dir.Path() + "\\";
  std::list<std::string> files;
  std::list<std::string> dirs;
  EXPECT_EQ(GetAllFilesAndDirs(dir.Path(), "*", files, dirs, 0), 0);
  EXPECT_THAT(files, ElementsAre(prefix + "link"));
  EXPECT_THAT(dirs, ElementsAre(prefix + "sub"));
}

TEST(GetAll, BothKindsInOneCall) {
  const TempDir dir;
  dir.Write("a", "");
  dir.Write(".b", "");
  dir.Write("sub/c", "");
  const std::string prefix = dir.Path() + "/";
  std::list<std::string> files;
  std::list<std::string> dirs;
  EXPECT_EQ(GetAllFilesAndDirs(prefix, "*.*", files, dirs, 0), 0);
  EXPECT_THAT(files, UnorderedElementsAre(prefix + "a", prefix + ".b"));
  EXPECT_THAT(dirs, ElementsAre(prefix + "sub"));
  EXPECT_EQ(GetAllFilesAndDirs(dir / "missing", "*", files, dirs, 0), 0);
  EXPECT_EQ(files.size(), 2U);
  EXPECT_EQ(dirs.size(), 1U);
}

}  // namespace
