#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <common/failingallocation.h>
#include <common/platform.h>
#include <common/tempdir.h>
#include <common/zipbuilder.h>

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/zipio.h>
#include <QSbase/support/zlibsupport.h>

namespace {

using namespace qsbase::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const QsDateTime kTime(2024, 2, 29, 13, 14, 16, 0);

class ZipWriting : public ::testing::Test {
 protected:
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    EXPECT_EQ(QsGetFilesInZip(path.c_str(), &names), 0);
    return names;
  }

  std::string Content(const char* name) const {
    char* buffer = nullptr;
    int size = -1;
    EXPECT_EQ(QsExtractFileSimple(path.c_str(), name, nullptr, &buffer, &size, 0), 0) << name;
    const std::string content = buffer == nullptr ? "" : std::string(buffer, static_cast<std::size_t>(size));
    std::free(buffer);
    return content;
  }

  // Two bytes of the first entry's local record.
  unsigned Field(std::size_t offset) const {
    const std::string bytes = TempDir::Read(path);
    return bytes.size() < offset + 2
               ? 0
               : static_cast<unsigned char>(bytes[offset]) + 256U * static_cast<unsigned char>(bytes[offset + 1]);
  }

  // The date and time of the first entry, as DOS has them.
  std::string DosTimeOf(const QsDateTime& time) const {
    EXPECT_TRUE(QsWrite2Zip(path.c_str(), "x", time, false, "x"));
    const unsigned dosTime = Field(10);
    const unsigned date = Field(12);
    char text[64];
    std::snprintf(text, sizeof text, "%u-%02u-%02u %02u:%02u:%02u", 1980 + (date >> 9), date >> 5 & 15, date & 31,
                  dosTime >> 11, dosTime >> 5 & 63, (dosTime & 31) * 2);
    return text;
  }

  const TempDir dir;
  const std::string path = dir / "a.zip";
};

TEST_F(ZipWriting, AnEntryComesBack) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "content", kTime, false, "sub/x.txt"));
  EXPECT_THAT(Names(), ElementsAre("sub/x.txt"));
  EXPECT_EQ(Content("sub/x.txt"), "content");
}

TEST_F(ZipWriting, AppendingToNothingCreates) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, true, "x"));
  EXPECT_THAT(Names(), ElementsAre("x"));
}

TEST_F(ZipWriting, AppendingToAnEmptyFileCreates) {
  dir.Write("a.zip", "");
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, true, "x"));
  EXPECT_THAT(Names(), ElementsAre("x"));
}

TEST_F(ZipWriting, AppendingKeepsWhatIsThere) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "22", kTime, true, "y"));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "333", kTime, true, "z"));
  EXPECT_THAT(Names(), ElementsAre("x", "y", "z"));
  EXPECT_EQ(Content("x"), "1");
  EXPECT_EQ(Content("y"), "22");
  EXPECT_EQ(Content("z"), "333");
}

TEST_F(ZipWriting, AnewMeansAnew) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "2", kTime, false, "y"));
  EXPECT_THAT(Names(), ElementsAre("y"));
}

TEST_F(ZipWriting, AppendingDropsTheComment) {
  dir.Write("a.zip", ZipBuilder().Add(Stored("x", "1")).Bytes("a comment"));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "2", kTime, true, "y"));
  EXPECT_THAT(Names(), ElementsAre("x", "y"));
  EXPECT_EQ(TempDir::Read(path).find("a comment"), std::string::npos);
}

TEST_F(ZipWriting, AppendingLeavesNothingOfALongComment) {
  dir.Write("a.zip", ZipBuilder().Add(Stored("x", "1")).Bytes(std::string(60000, 'c')));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "2", kTime, true, "y"));
  EXPECT_THAT(Names(), ElementsAre("x", "y"));
  const std::string bytes = TempDir::Read(path);
  EXPECT_EQ(bytes.rfind("PK\5\6"), bytes.size() - 22) << "the end record is the end";
}

TEST_F(ZipWriting, WhatIsNoArchiveIsNotAppendedTo) {
  const std::string text(1000, 'x');
  dir.Write("a.zip", text);
  EXPECT_FALSE(QsWrite2Zip(path.c_str(), "1", kTime, true, "x"));
  EXPECT_EQ(TempDir::Read(path), text);
}

TEST_F(ZipWriting, EmptyAndBinaryContent) {
  const std::string binary("\0\1\xff\r\n\0", 6);
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "", kTime, false, "empty"));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), binary, kTime, true, "binary"));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "", kTime, true, "dir/"));
  EXPECT_EQ(Content("empty"), "");
  EXPECT_EQ(Content("binary"), binary);
  int count = 0;
  std::int64_t size = 0;
  ASSERT_EQ(QsGetZipInfo(path.c_str(), &count, &size, nullptr), 0);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(size, 6);
}

TEST_F(ZipWriting, LargeContent) {
  std::string content;
  for (int i = 0; content.size() < 3000000; ++i) {
    content += std::to_string(i) + "\n";
  }
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), content, kTime, false, "x"));
  EXPECT_EQ(Content("x"), content);
  EXPECT_LT(QsGetFileSize64(path.c_str()), 1500000);
}

// With the mark for texts, by which other programs change line ends.
TEST_F(ZipWriting, AnArchiveIsToTheByteWhatMinizipWrites) {
  std::string text;
  std::string noise;
  for (unsigned i = 0; i < 300000; ++i) {
    text += "line " + std::to_string(i * 7919 % 100003) + "\r\n";
    noise += static_cast<char>(i * i * 2654435761U >> 24);
  }
  for (const std::string& content : {std::string(), std::string("text\n"), std::string("\0\1", 2), std::string("\xe4"),
                                     text, noise, text + noise, noise + text}) {
    ASSERT_TRUE(QsWrite2Zip(path.c_str(), content, kTime, false, "x"));
    const std::string other = dir / "other.zip";
    const zipFile zip = zipOpen64(other.c_str(), APPEND_STATUS_CREATE);
    zip_fileinfo info{};
    info.tmz_date = {16, 14, 13, 29, 1, 124};
    ASSERT_EQ(zipOpenNewFileInZip64(zip, "x", &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, -1, 0), ZIP_OK);
    ASSERT_EQ(zipWriteInFileInZip(zip, content.data(), static_cast<unsigned>(content.size())), ZIP_OK);
    ASSERT_EQ(zipClose(zip, ""), ZIP_OK);
    EXPECT_TRUE(TempDir::Read(path) == TempDir::Read(other)) << content.size() << " bytes";
  }
}

// As other users of a shared archive see it.
TEST_F(ZipWriting, AnewChangesTheFileBehindAllItsNames) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
  std::filesystem::create_hard_link(path, dir / "other.zip");
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "2", kTime, false, "y"));
  EXPECT_THAT(Names(), ElementsAre("y"));
  EXPECT_EQ(TempDir::Read(dir / "other.zip"), TempDir::Read(path));
  EXPECT_THAT(NamesIn(dir.Path()), UnorderedElementsAre("a.zip", "other.zip"));
}

// Windows gives the name of a file that is open to no other.
TEST_F(ZipWriting, AnewWhileSomebodyReads) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
  std::FILE* const reader = std::fopen(path.c_str(), "rb");
  ASSERT_NE(reader, nullptr);
  EXPECT_TRUE(QsWrite2Zip(path.c_str(), "2", kTime, false, "y"));
  EXPECT_EQ(std::fclose(reader), 0);
  EXPECT_THAT(Names(), ElementsAre("y"));
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a.zip"));
}

// An entry begins; it is not ended, or the archive not closed, by who lets go of it.
void BeginEntry(const qsbase::detail::ZipArchive& archive) {
  ASSERT_EQ(zipOpenNewFileInZip(archive.Handle(), "z", nullptr, nullptr, 0, nullptr, 0, nullptr, 0, 0), ZIP_OK);
}

using Archive = qsbase::detail::ZipArchive;

TEST_F(ZipWriting, OfTwoThatMakeOneArchiveTheFirstIsKept) {
  Archive late;
  ASSERT_TRUE(late.Open(path, Archive::Writing::Anew));
  BeginEntry(late);
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
  EXPECT_EQ(zipCloseFileInZip(late.Handle()), ZIP_OK);
  EXPECT_FALSE(late.Close());
  EXPECT_THAT(Names(), ElementsAre("x"));
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a.zip"));
}

TEST_F(ZipWriting, WhoGivesUpRemovesNoArchiveOfAnother) {
  {
    Archive late;
    ASSERT_TRUE(late.Open(path, Archive::Writing::Anew));
    ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
  }
  EXPECT_THAT(Names(), ElementsAre("x"));
  EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a.zip"));
}

#ifndef _WIN32  // there no other file takes the name of one that is open
TEST_F(ZipWriting, WhoGivesUpAppendingWritesToNoArchiveOfAnother) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
  {
    Archive late;
    ASSERT_TRUE(late.Open(path, Archive::Writing::Append));
    ASSERT_TRUE(QsWrite2Zip(path.c_str(), std::string(1000, '2'), kTime, false, "y"));
    BeginEntry(late);
  }
  EXPECT_THAT(Names(), ElementsAre("y"));
  EXPECT_EQ(Content("y"), std::string(1000, '2'));
}
#endif

// Anything but false or an exception, and the old archive: such as what is let go of twice.
TEST_F(ZipWriting, EveryLackOfMemoryIsReportedOrThrown) {
  for (const bool append : {false, true}) {
    bool written = false;
    for (int n = 1; !written; ++n) {
      ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
      const std::string before = TempDir::Read(path);
      throwingAllocation = n;
      try {
        written = QsWrite2Zip(path.c_str(), "2", kTime, append, "y");
      } catch (const std::bad_alloc&) {
      }
      written = written && throwingAllocation != 0;
      if (std::exchange(throwingAllocation, 0) == 0) {
        EXPECT_TRUE(TempDir::Read(path) == before) << "at allocation " << n;
        EXPECT_THAT(NamesIn(dir.Path()), ElementsAre("a.zip")) << "at allocation " << n;
      }
      ASSERT_LT(n, 1000);
    }
  }
}

TEST_F(ZipWriting, AnewWithTheLongestName) {
  // Windows counts the whole path.
  const std::size_t most = kOnWindows ? std::size_t{258} - dir.Path().size() : 255;
  const std::string longest = dir / (std::string(most - 4, 'n') + ".zip");
  EXPECT_TRUE(QsWrite2Zip(longest.c_str(), "1", kTime, false, "x"));
  EXPECT_TRUE(QsWrite2Zip(longest.c_str(), "2", kTime, false, "y"));
  std::vector<std::string> names;
  EXPECT_EQ(QsGetFilesInZip(longest.c_str(), &names), 0);
  EXPECT_THAT(names, ElementsAre("y"));
}

TEST_F(ZipWriting, TimesAreDosTimes) {
  EXPECT_EQ(DosTimeOf(kTime), "2024-02-29 13:14:16");
  EXPECT_EQ(DosTimeOf(QsDateTime(1999, 12, 31, 23, 59, 59, 999)), "1999-12-31 23:59:58");
  EXPECT_EQ(DosTimeOf(QsDateTime(1980, 1, 1, 0, 0, 2, 0)), "1980-01-01 00:00:02");
}

TEST_F(ZipWriting, TimesThatDosDoesNotKnow) {
  EXPECT_EQ(DosTimeOf(QsDateTime(1979, 12, 31, 23, 59, 59, 0)), "1980-01-01 00:00:00");
  EXPECT_EQ(DosTimeOf(QsDateTime()), "1980-01-01 00:00:00");
  EXPECT_EQ(DosTimeOf(QsDateTime(-1e9)), "1980-01-01 00:00:00");
  EXPECT_EQ(DosTimeOf(QsDateTime(std::numeric_limits<double>::quiet_NaN())), "1980-01-01 00:00:00");
  EXPECT_EQ(DosTimeOf(QsDateTime(2108, 1, 1, 0, 0, 0, 0)), "2107-12-31 23:59:58");
  EXPECT_EQ(DosTimeOf(QsDateTime(9999, 1, 1, 0, 0, 0, 0)), "2107-12-31 23:59:58");
}

TEST_F(ZipWriting, NamesThatAreUtf8AreMarked) {
  constexpr unsigned kUtf8 = 0x800;
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "\xc3\xa4.txt"));
  EXPECT_EQ(Field(6) & kUtf8, kUtf8);
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "\xe4.txt"));
  EXPECT_EQ(Field(6) & kUtf8, 0U);
  EXPECT_THAT(Names(), ElementsAre("\xe4.txt"));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "a.txt"));
  EXPECT_EQ(Field(6) & kUtf8, 0U);
}

TEST_F(ZipWriting, LongNames) {
  const std::string longest(65535, 'n');
  EXPECT_FALSE(QsWrite2Zip(path.c_str(), "1", kTime, false, (longest + "n").c_str()));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, longest.c_str()));
  EXPECT_THAT(Names(), ElementsAre(std::string(4096, 'n')));
}

TEST_F(ZipWriting, ANullNameIsADash) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, nullptr));
  EXPECT_THAT(Names(), ElementsAre("-"));
}

TEST_F(ZipWriting, OneNameTwice) {
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "1", kTime, false, "x"));
  ASSERT_TRUE(QsWrite2Zip(path.c_str(), "2", kTime, true, "x"));
  EXPECT_THAT(Names(), ElementsAre("x", "x"));
}

TEST_F(ZipWriting, MissingArguments) {
  EXPECT_FALSE(QsWrite2Zip(static_cast<const char*>(nullptr), "1", kTime, false, "x"));
  EXPECT_FALSE(QsWrite2Zip("", "1", kTime, false, "x"));
  EXPECT_FALSE(QsWrite2Zip(static_cast<void**>(nullptr), "1", kTime, "x"));
  void* none = nullptr;
  EXPECT_FALSE(QsWrite2Zip(&none, "1", kTime, "x"));
}

TEST_F(ZipWriting, PlacesThatCannotBeWritten) {
  EXPECT_FALSE(QsWrite2Zip((dir / "missing/a.zip").c_str(), "1", kTime, false, "x"));
  EXPECT_FALSE(QsWrite2Zip(dir.Path().c_str(), "1", kTime, false, "x"));
  EXPECT_FALSE(QsWrite2Zip(dir.Path().c_str(), "1", kTime, true, "x"));
  EXPECT_THAT(NamesIn(dir.Path()), IsEmpty());
}

TEST_F(ZipWriting, ADiskThatIsFullIsReported) {
#ifdef _WIN32
  GTEST_SKIP() << "no device here is always full";
#else
  EXPECT_FALSE(QsWrite2Zip("/dev/full", "1", kTime, false, "x"));
  EXPECT_FALSE(QsWrite2Zip("/dev/full", std::string(1000000, 'x'), kTime, false, "x"));
#endif
}

TEST_F(ZipWriting, BothSeparatorsInThePath) {
  dir.Write("sub/file", "");
  ASSERT_TRUE(QsWrite2Zip((dir.Path() + "\\sub/b.zip").c_str(), "1", kTime, false, "x"));
  EXPECT_EQ(QsGetFSObjectType(dir / "sub/b.zip"), FSO_FILE);
}

TEST_F(ZipWriting, AHandleOfTheHostTakesEntries) {
  zipFile handle = zipOpen(path.c_str(), APPEND_STATUS_CREATE);
  ASSERT_NE(handle, nullptr);
  EXPECT_TRUE(QsWrite2Zip(&handle, "1", kTime, "x"));
  EXPECT_TRUE(QsWrite2Zip(&handle, "", kTime, "y/"));
  EXPECT_TRUE(QsWrite2Zip(&handle, "3", kTime, "y/z"));
  ASSERT_EQ(zipClose(handle, nullptr), ZIP_OK);
  EXPECT_THAT(Names(), ElementsAre("x", "y/z"));
  EXPECT_EQ(Content("y/z"), "3");
}

}  // namespace
