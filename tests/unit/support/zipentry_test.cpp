#include <gtest/gtest.h>

#include <string>

#include <common/platform.h>
#include <common/tempdir.h>
#include <common/zipbuilder.h>

#include <QSbase/support/zipentry.h>
#include <QSbase/support/zipio.h>

namespace {

using namespace qsbase::detail;
using namespace qsbase::testing;

bool IsSafe(const std::string& name) {
  ZipEntry entry;
  entry.info.size_filename = static_cast<uLong>(name.size());
  entry.name = name.substr(0, kEntryNameSize);
  return IsSafeEntryName(entry);
}

TEST(ZipEntryName, Directories) {
  EXPECT_TRUE(IsDirectoryEntry("a/"));
  EXPECT_TRUE(IsDirectoryEntry("a\\"));
  EXPECT_TRUE(IsDirectoryEntry("a/b\\"));
  EXPECT_TRUE(IsDirectoryEntry("/"));
  EXPECT_FALSE(IsDirectoryEntry("a"));
  EXPECT_FALSE(IsDirectoryEntry("a/b"));
  EXPECT_FALSE(IsDirectoryEntry(""));
}

TEST(ZipEntryName, Folders) {
  EXPECT_EQ(EntryFolder("a"), "");
  EXPECT_EQ(EntryFolder("/a"), "");
  EXPECT_EQ(EntryFolder("a/b"), "a");
  EXPECT_EQ(EntryFolder("a/b/"), "a/b");
  EXPECT_EQ(EntryFolder("a\\b/c"), "a\\b");
  EXPECT_EQ(EntryFolder("a/b\\c"), "a/b");
  EXPECT_EQ(EntryFolder(""), "");
}

TEST(ZipEntryName, SafeOnes) {
  for (const char* name : {"a", "a/b", "a\\b", "/a", "//a//b", "./a", "a/./b", "...a", "a..b", "..a", ".a", "/", "a/",
                           "a b", "\xc3\xa4"}) {
    EXPECT_TRUE(IsSafe(name)) << name;
  }
  EXPECT_TRUE(IsSafe(std::string(4095, 'a')));
}

TEST(ZipEntryName, UnsafeOnes) {
  for (const char* name :
       {"..", "../a", "..\\a", "a/..", "a/../b", "a\\..\\b", "a/..\\b", "/..", "/../a", "a/../", "\\..", "./../a"}) {
    EXPECT_FALSE(IsSafe(name)) << name;
  }
  EXPECT_FALSE(IsSafe(std::string(4096, 'a')));
  EXPECT_FALSE(IsSafe(std::string("a\0b", 3)));
  EXPECT_FALSE(IsSafe(std::string("a\0", 2)));
}

// Nothing of that means anything to Linux.
TEST(ZipEntryName, WhatWindowsTakesForSomethingElse) {
  for (const char* name : {"c:", "c:a", "c:\\a", "a:stream", "a/c:/b", "nul", "a/COM1.txt", "a/.. /b", "a/... ",
                           "a../b", "b.", "a /b", "a?b", "a\tb"}) {
    EXPECT_EQ(IsSafe(name), !kOnWindows) << name;
  }
}

class ZipEntries : public ::testing::Test {
 protected:
  void Open(const ZipBuilder& archiveBytes) { ASSERT_TRUE(archive.Open(dir.Write("a.zip", archiveBytes.Bytes()))); }

  std::string Current() {
    ZipEntry entry;
    EXPECT_EQ(ReadEntry({archive.Handle(), &archive}, entry), UNZ_OK);
    return entry.name;
  }

  const TempDir dir;
  UnzipArchive archive;
};

TEST_F(ZipEntries, AreFoundByName) {
  const std::string longName(300, 'n');
  Open(ZipBuilder().Add(Stored("a", "1")).Add(Stored(longName, "2")).Add(Stored("c", "3")));
  EXPECT_TRUE(LocateEntry(archive.Handle(), "c"));
  EXPECT_EQ(Current(), "c");
  EXPECT_TRUE(LocateEntry(archive.Handle(), longName));
  EXPECT_EQ(Current(), longName);
  EXPECT_TRUE(LocateEntry(archive.Handle(), "a"));
  EXPECT_EQ(Current(), "a");
}

TEST_F(ZipEntries, ANameThatIsNotThereMovesNothing) {
  Open(ZipBuilder().Add(Stored("a", "1")).Add(Stored("b", "2")).Add(Stored("c", "3")));
  ASSERT_TRUE(LocateEntry(archive.Handle(), "b"));
  EXPECT_FALSE(LocateEntry(archive.Handle(), "d"));
  EXPECT_FALSE(LocateEntry(archive.Handle(), "cc"));
  EXPECT_FALSE(LocateEntry(archive.Handle(), "a/"));
  EXPECT_EQ(Current(), "b");
}

TEST_F(ZipEntries, NamesHaveCaseOnLinux) {
  Open(ZipBuilder().Add(Stored("Read.Me", "1")));
  EXPECT_EQ(LocateEntry(archive.Handle(), "read.mE"), kOnWindows);
  EXPECT_TRUE(LocateEntry(archive.Handle(), "Read.Me"));
}

TEST_F(ZipEntries, ANameIsReadUpToItsLimit) {
  Open(ZipBuilder().Add(Stored(std::string(4095, 'a'), "")).Add(Stored(std::string(5000, 'b'), "")));
  EXPECT_EQ(Current(), std::string(4095, 'a'));
  ASSERT_EQ(unzGoToNextFile(archive.Handle()), UNZ_OK);
  EXPECT_EQ(Current(), std::string(4096, 'b'));
  EXPECT_FALSE(LocateEntry(archive.Handle(), std::string(4096, 'b')));
}

TEST(ZipLinks, AreSeenOnTheWay) {
  const TempDir dir;
  dir.Write("in/sub/file", "");
  dir.Write("out/sub/file", "");
  if (!MakeDirectoryLink(dir / "out", dir / "in/link")) {
    GTEST_SKIP() << kNoLinks;
  }
  const std::string folder = dir / "in/";
  EXPECT_TRUE(HasLinkBelow(folder, "link"));
  EXPECT_TRUE(HasLinkBelow(folder, "link/sub"));
  EXPECT_TRUE(HasLinkBelow(folder, "link\\sub\\new"));
  EXPECT_TRUE(HasLinkBelow(folder, "/link/sub"));
  EXPECT_TRUE(HasLinkBelow(folder, "sub/../link/new"));
  EXPECT_FALSE(HasLinkBelow(folder, "sub"));
  EXPECT_FALSE(HasLinkBelow(folder, "sub/new/link"));
  EXPECT_FALSE(HasLinkBelow(folder, "new"));
  EXPECT_FALSE(HasLinkBelow(folder, ""));
  EXPECT_FALSE(HasLinkBelow(dir / "in/link/", "sub"));  // what the caller names is the caller's
#ifdef _WIN32
  if (IsWine()) {
    std::remove((dir / "in/link").c_str());
  }
#endif
}

}  // namespace
