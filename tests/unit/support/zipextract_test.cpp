#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <common/logcapture.h>
#include <common/memorylimit.h>
#include <common/platform.h>
#include <common/sanitized.h>
#include <common/tempdir.h>
#include <common/zipbuilder.h>

#include <minizip/unzip.h>

#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/zlibsupport.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <common/forbiddencall.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#endif

namespace {

using namespace qsbase::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

std::string Lines(std::size_t size) {
  std::string text;
  for (unsigned i = 0; text.size() < size; ++i) {
    text += std::to_string(i * 7919) + "\n";
  }
  text.resize(size);
  return text;
}

class ZipExtraction : public ::testing::Test {
 protected:
  ~ZipExtraction() override { largestAllocation = kNoLimit; }

  void Make(const RawZipEntry& entry) { Make(ZipBuilder().Add(entry).Bytes()); }
  void Make(const std::string& bytes) { dir.Write("a.zip", bytes); }

  int ToFile(const char* name, const std::string& target, int chunk = 0) const {
    return QsExtractFileSimple(path.c_str(), name, target.c_str(), nullptr, nullptr, chunk);
  }

  // The content goes to `content`, which a failure leaves empty.
  int ToMemory(const char* name) {
    char marker = 0;
    char* buffer = &marker;
    int size = 77;
    const int code = QsExtractFileSimple(path.c_str(), name, nullptr, &buffer, &size, 0);
    content.clear();
    if (code == 0) {
      EXPECT_NE(buffer, nullptr);
      content.assign(buffer, static_cast<std::size_t>(size));
      std::free(buffer);
    } else {
      EXPECT_EQ(buffer, code == -1 || code == -11 || code < -100 ? &marker : nullptr);
      EXPECT_EQ(size, code == -1 || code == -11 || code < -100 ? 77 : 0);
    }
    return code;
  }

  // Of an extraction to memory, to a new file and to one that is there: the same code, and nothing is left or lost.
  int Everywhere(const char* name) {
    const int code = ToMemory(name);
    EXPECT_NE(code, 0);
    EXPECT_EQ(ToFile(name, dir / "new/file"), code);
    EXPECT_EQ(QsGetFSObjectType(dir / "new/file"), FSO_NOTHING);
    dir.Write("old", "old content");
    EXPECT_EQ(ToFile(name, dir / "old"), code);
    EXPECT_EQ(TempDir::Read(dir / "old"), "old content");
    EXPECT_EQ(QsExtractFileSimpleFlush(path.c_str(), name, (dir / "old").c_str(), nullptr, nullptr, 0), code);
    EXPECT_EQ(TempDir::Read(dir / "old"), "old content");
    for (const std::string& left : NamesIn(dir.Path())) {
      EXPECT_TRUE(left == "a.zip" || left == "old" || left == "new") << left;
    }
    return code;
  }

  const TempDir dir;
  const std::string path = dir / "a.zip";
  std::string content;
};

TEST_F(ZipExtraction, StoredAndDeflatedToMemory) {
  const std::string text = Lines(3000000);
  Make(ZipBuilder().Add(Stored("s", text)).Add(DeflatedEntry("d", text)).Bytes("a comment"));
  EXPECT_EQ(ToMemory("s"), 0);
  EXPECT_EQ(content == text, true);
  EXPECT_EQ(ToMemory("d"), 0);
  EXPECT_EQ(content == text, true);
}

TEST_F(ZipExtraction, SizesAroundTheBlocks) {
  for (const std::size_t size :
       {1u, 8191u, 8192u, 8193u, 16384u, 65535u, 65536u, 65537u, 1048575u, 1048576u, 1048577u}) {
    const std::string text = Lines(size);
    Make(ZipBuilder().Add(Stored("s", text)).Add(DeflatedEntry("d", text)).Bytes());
    for (const char* name : {"s", "d"}) {
      EXPECT_EQ(ToMemory(name), 0);
      EXPECT_EQ(content == text, true) << size;
      EXPECT_EQ(ToFile(name, dir / "out"), 0);
      EXPECT_EQ(TempDir::Read(dir / "out") == text, true) << size;
    }
  }
}

TEST_F(ZipExtraction, AnyChunkSize) {
  const std::string text = Lines(200000);
  Make(ZipBuilder().Add(Stored("s", text)).Add(DeflatedEntry("d", text)).Bytes());
  for (const int chunk : {INT_MIN, -1, 0, 1, 3, 8192, 65535, 65536, 65537, 1000000}) {
    for (const char* name : {"s", "d"}) {
      ASSERT_EQ(ToFile(name, dir / "out", chunk), 0) << chunk;
      EXPECT_EQ(TempDir::Read(dir / "out") == text, true) << chunk;
    }
  }
}

TEST_F(ZipExtraction, EmptyEntries) {
  RawZipEntry noStream = DeflatedEntry("none", "");
  noStream.data.clear();
  noStream.dataSize = 0;
  Make(ZipBuilder().Add(Stored("s", "")).Add(DeflatedEntry("d", "")).Add(noStream).Bytes());
  for (const char* name : {"s", "d", "none"}) {
    EXPECT_EQ(ToMemory(name), 0) << name;
    EXPECT_EQ(content, "");
    EXPECT_EQ(ToFile(name, dir / name), 0) << name;
    EXPECT_EQ(QsGetFSObjectType(dir / name), FSO_FILE);
    int size = 77;
    EXPECT_EQ(QsExtractFileSimple(path.c_str(), name, nullptr, nullptr, &size, 0), 1);
    EXPECT_EQ(size, 0);
  }
}

TEST_F(ZipExtraction, SizeAlone) {
  Make(DeflatedEntry("x", Lines(12345)));
  int size = 0;
  EXPECT_EQ(QsExtractFileSimple(path.c_str(), "x", nullptr, nullptr, &size, 0), 1);
  EXPECT_EQ(size, 12345);
}

TEST_F(ZipExtraction, AFileGoesBeforeABuffer) {
  Make(Stored("x", "text"));
  char marker = 0;
  char* buffer = &marker;
  int size = 77;
  EXPECT_EQ(QsExtractFileSimple(path.c_str(), "x", (dir / "out").c_str(), &buffer, &size, 0), 0);
  EXPECT_EQ(buffer, &marker);
  EXPECT_EQ(size, 77);
  EXPECT_EQ(TempDir::Read(dir / "out"), "text");
}

TEST_F(ZipExtraction, ANullNameIsTheCurrentEntry) {
  Make(ZipBuilder().Add(Stored("first", "1")).Add(Stored("second", "2")).Bytes());
  EXPECT_EQ(ToMemory(nullptr), 0);
  EXPECT_EQ(content, "1");
}

TEST_F(ZipExtraction, AHandleOfTheHost) {
  Make(ZipBuilder().Add(Stored("first", "1")).Add(DeflatedEntry("second", Lines(100000))).Bytes());
  unzFile archive = unzOpen(path.c_str());
  ASSERT_NE(archive, nullptr);
  char* buffer = nullptr;
  int size = 0;
  EXPECT_EQ(QsExtractFile(archive, "second", nullptr, &buffer, &size, 0), 0);
  EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(size)), Lines(100000));
  std::free(buffer);
  EXPECT_EQ(QsExtractFile(archive, nullptr, nullptr, nullptr, &size, 0), 1);  // it is the current one now
  EXPECT_EQ(size, 100000);
  EXPECT_EQ(QsExtractFile(archive, "third", nullptr, nullptr, &size, 0), -1);
  EXPECT_EQ(QsExtractFile(archive, "first", (dir / "out").c_str(), nullptr, nullptr, 0), 0);
  EXPECT_EQ(TempDir::Read(dir / "out"), "1");
  EXPECT_EQ(unzClose(archive), UNZ_OK);
}

TEST_F(ZipExtraction, LongNamesAreFound) {
  const std::string name(4095, 'n');
  Make(Stored(name, "text"));
  EXPECT_EQ(ToMemory(name.c_str()), 0);
  EXPECT_EQ(content, "text");
  EXPECT_EQ(ToMemory((name + "n").c_str()), -1);
}

TEST_F(ZipExtraction, ChecksComeInTheirOrder) {
  RawZipEntry entry = Stored("x", "text");
  entry.method = 14;  // LZMA
  entry.flags = 1;
  Make(entry);
  int size = 77;
  EXPECT_EQ(QsExtractFile(nullptr, "", nullptr, nullptr, nullptr, 0), -12);
  unzFile archive = unzOpen(path.c_str());
  EXPECT_EQ(QsExtractFile(archive, "", nullptr, nullptr, nullptr, 0), -11);
  EXPECT_EQ(QsExtractFile(archive, "y", nullptr, nullptr, nullptr, 0), -1);
  EXPECT_EQ(QsExtractFile(archive, "x", nullptr, nullptr, nullptr, 0), -10);
  char* buffer = nullptr;
  EXPECT_EQ(QsExtractFile(archive, "x", nullptr, &buffer, nullptr, 0), -10);
  EXPECT_EQ(QsExtractFile(archive, "x", nullptr, nullptr, &size, 0), -13);
  EXPECT_EQ(QsExtractFile(archive, "x", nullptr, &buffer, &size, 0), -13);
  EXPECT_EQ(size, 0);
  EXPECT_EQ(unzClose(archive), UNZ_OK);
}

TEST_F(ZipExtraction, ARecordThatIsDamagedComesBeforeTheMethod) {
  RawZipEntry entry = Stored("x", "text");
  entry.method = 14;
  const std::string bytes = ZipBuilder().Add(entry).Add(Stored("a", std::string(1 << 20, 'a'))).Bytes();
  dir.Write("a.zip", bytes);
  unzFile archive = unzOpen(path.c_str());
  // It reads the entry's beginning, so that no buffer holds the record any more.
  ASSERT_EQ(unzOpenCurrentFile(archive), UNZ_BADZIPFILE);
  WriteAt(path, static_cast<std::int64_t>(bytes.find("PK\1\2")), "XX");
  int size = 77;
  EXPECT_EQ(QsExtractFile(archive, nullptr, nullptr, nullptr, &size, 0), -4);
  EXPECT_EQ(unzClose(archive), UNZ_OK);
}

TEST_F(ZipExtraction, EmptyArchivesHaveNoEntry) {
  const LogCapture quiet;
  int size = 77;
  Make(ZipBuilder().Bytes());  // minizip takes the end record at the very start for none
  EXPECT_EQ(QsExtractFileSimple(path.c_str(), nullptr, nullptr, nullptr, &size, 0), -103);
  Make("-" + ZipBuilder().Bytes());
  EXPECT_EQ(QsExtractFileSimple(path.c_str(), nullptr, nullptr, nullptr, &size, 0), -4);
  EXPECT_EQ(ToMemory("x"), -1);
}

TEST_F(ZipExtraction, SimpleFormsCheckTheArchive) {
  int size = 77;
  const LogCapture log;
  EXPECT_EQ(QsExtractFileSimple(nullptr, "x", nullptr, nullptr, &size, 0), -101);
  EXPECT_EQ(QsExtractFileSimple("", "x", nullptr, nullptr, &size, 0), -101);
  EXPECT_EQ(QsExtractFileSimple((dir / "none.zip").c_str(), "x", nullptr, nullptr, &size, 0), -102);
  EXPECT_THAT(log.Texts(), IsEmpty());
  Make(std::string(1000, 'x'));
  EXPECT_EQ(QsExtractFileSimple(path.c_str(), "x", nullptr, nullptr, &size, 0), -103);
  EXPECT_EQ(QsExtractFileSimpleFlush(path.c_str(), "x", nullptr, nullptr, &size, 0), -103);
  EXPECT_EQ(QsExtractFileSimple(dir.Path().c_str(), "x", nullptr, nullptr, &size, 0), -103);
  const std::string text = "error opening archive: ";
  EXPECT_THAT(log.Texts(), ElementsAre(text + QsTranslateFilename(path), text + QsTranslateFilename(path),
                                       text + QsTranslateFilename(dir.Path())));
  EXPECT_EQ(log.Messages()[0].flags, 0x40000000U);
  EXPECT_EQ(size, 77);
}

TEST_F(ZipExtraction, UnknownMethodsAndPasswords) {
  RawZipEntry bzip2 = Stored("bzip2", "text");
  bzip2.method = 12;
  RawZipEntry locked = DeflatedEntry("locked", "text");
  locked.flags = 1;
  RawZipEntry aes = DeflatedEntry("aes", "text");
  aes.flags = 0x80;
  Make(ZipBuilder().Add(bzip2).Add(locked).Add(aes).Bytes());
  EXPECT_EQ(Everywhere("bzip2"), -13);
  EXPECT_EQ(Everywhere("locked"), -14);
  EXPECT_EQ(Everywhere("aes"), -14);
  EXPECT_EQ(QsGetFSObjectType(dir / "new"), FSO_NOTHING);
  int size = 77;
  EXPECT_EQ(QsExtractFileSimple(path.c_str(), "locked", nullptr, nullptr, &size, 0), -14);
  EXPECT_EQ(size, 77);
}

TEST_F(ZipExtraction, RecordsThatDiffer) {
  std::string bytes = ZipBuilder().Add(DeflatedEntry("x", "text")).Bytes();
  bytes[22] = 99;  // the size in the record before the data
  Make(bytes);
  EXPECT_EQ(Everywhere("x"), -2);
}

TEST_F(ZipExtraction, WrongSums) {
  RawZipEntry stored = Stored("s", Lines(100000));
  stored.crc ^= 1;
  RawZipEntry deflated = DeflatedEntry("d", Lines(100000));
  deflated.crc ^= 0x80000000;
  Make(ZipBuilder().Add(stored).Add(deflated).Bytes());
  EXPECT_EQ(Everywhere("s"), -8);
  EXPECT_EQ(Everywhere("d"), -8);
}

TEST_F(ZipExtraction, DamagedData) {
  RawZipEntry entry = DeflatedEntry("x", Lines(100000));
  entry.data[entry.data.size() / 2] = static_cast<char>(entry.data[entry.data.size() / 2] ^ 0x55);
  Make(entry);
  const int code = Everywhere("x");
  EXPECT_TRUE(code == -5 || code == -8) << code;
  RawZipEntry nonsense = DeflatedEntry("x", Lines(100000));
  nonsense.data.assign(nonsense.data.size(), '\xff');
  Make(nonsense);
  EXPECT_EQ(Everywhere("x"), -5);
}

TEST_F(ZipExtraction, FewerBytesThanStated) {
  RawZipEntry entry = DeflatedEntry("x", Lines(100000));
  entry.size += 1;
  Make(entry);
  EXPECT_EQ(Everywhere("x"), -5);
  entry.size = INT_MAX;
  Make(entry);
  EXPECT_EQ(Everywhere("x"), -5);
  entry.size = 0xFFFFFFFE;
  Make(entry);
  EXPECT_EQ(ToFile("x", dir / "file"), -5);
}

TEST_F(ZipExtraction, MoreBytesThanStated) {
  const std::string text = Lines(100000);
  for (const std::size_t stated : {std::size_t{0}, std::size_t{1}, std::size_t{65536}, std::size_t{99999}}) {
    RawZipEntry entry = DeflatedEntry("x", text);
    entry.size = static_cast<std::uint32_t>(stated);
    Make(entry);
    EXPECT_EQ(Everywhere("x"), -8) << stated;  // the sum is that of all
    entry.crc = Crc32Of(text.substr(0, stated));
    Make(entry);
    EXPECT_EQ(Everywhere("x"), -5) << stated;
  }
}

TEST_F(ZipExtraction, StoredSizesThatDiffer) {
  for (const int lie : {-1, 1}) {
    RawZipEntry entry = Stored("x", Lines(1000));
    entry.size = static_cast<std::uint32_t>(1000 + lie);
    entry.crc = Crc32Of(Lines(1000).substr(0, entry.size));
    Make(entry);
    EXPECT_EQ(Everywhere("x"), -5) << lie;
  }
}

TEST_F(ZipExtraction, StreamsThatDoNotEnd) {
  RawZipEntry entry = DeflatedEntry("x", Lines(100000));
  entry.data.resize(entry.data.size() / 2);
  entry.dataSize = static_cast<std::uint32_t>(entry.data.size());
  Make(entry);
  EXPECT_EQ(Everywhere("x"), -5);
}

// Every archive that ends early fails to open or in one of its entries, and never otherwise.
TEST_F(ZipExtraction, CutArchives) {
  const std::string bytes = ZipBuilder().Add(DeflatedEntry("x", Lines(500))).Add(Stored("y", "text")).Bytes();
  const LogCapture quiet;
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    Make(bytes.substr(0, size));
    EXPECT_EQ(ToMemory("x"), -103) << size;
  }
  Make(bytes);
  EXPECT_EQ(ToMemory("x"), 0);
}

// A byte less at the front moves everything: minizip finds the directory from the end.
TEST_F(ZipExtraction, ArchivesWithoutTheirBeginning) {
  const std::string bytes = ZipBuilder().Add(Stored("x", std::string(1000, 'x'))).Bytes();
  const LogCapture quiet;
  Make(bytes.substr(500));
  EXPECT_NE(ToMemory("x"), 0);
  Make("#!/bin/sh\n" + bytes);  // but more at the front is what self-extracting archives have
  EXPECT_EQ(ToMemory("x"), 0);
}

// No byte of an archive, whatever becomes of it, may do harm (the sanitizers watch).
TEST_F(ZipExtraction, AnyByteMayBeWrong) {
  const std::string text = Lines(300);
  const std::string bytes = ZipBuilder().Add(DeflatedEntry("x", text)).Add(Stored("y", text)).Bytes("comment");
  const LogCapture quiet;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::string damaged = bytes;
    damaged[i] = static_cast<char>(damaged[i] ^ (i % 2 == 0 ? 0xff : 0x80));
    Make(damaged);
    for (const char* name : {"x", "y"}) {
      if (ToMemory(name) == 0) {
        EXPECT_EQ(content == text, true) << i;
      }
    }
  }
}

TEST_F(ZipExtraction, MissingFoldersAreMade) {
  Make(Stored("x", "text"));
  EXPECT_EQ(ToFile("x", dir / "a/b/c/file"), 0);
  EXPECT_EQ(TempDir::Read(dir / "a/b/c/file"), "text");
}

TEST_F(ZipExtraction, PlacesThatCannotBeWritten) {
  Make(Stored("x", "text"));
  dir.Write("file", "kept");
  EXPECT_EQ(ToFile("x", dir / "file/below"), -3);
  EXPECT_EQ(ToFile("x", dir.Path()), -3);
  EXPECT_EQ(ToFile("x", ""), -3);
  EXPECT_EQ(TempDir::Read(dir / "file"), "kept");
}

TEST_F(ZipExtraction, AFileThatIsThereIsReplaced) {
  Make(Stored("x", "new"));
  const std::string target = dir.Write("file", "a longer old content");
  EXPECT_EQ(ToFile("x", target), 0);
  EXPECT_EQ(TempDir::Read(target), "new");
  EXPECT_EQ(QsExtractFileSimpleFlush(path.c_str(), "x", target.c_str(), nullptr, nullptr, 0), 0);
  EXPECT_EQ(TempDir::Read(target), "new");
  EXPECT_THAT(NamesIn(dir.Path()), UnorderedElementsAre("a.zip", "file"));
}

#ifdef _WIN32
TEST_F(ZipExtraction, AFileThatIsReadIsWrittenOver) {
  Make(Stored("x", "new"));
  const std::string target = dir.Write("file", "old content");
  std::FILE* const reader = std::fopen(target.c_str(), "rb");  // shared for all but its removal
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(ToFile("x", target), 0);
  EXPECT_EQ(QsExtractFileSimpleFlush(path.c_str(), "x", target.c_str(), nullptr, nullptr, 0), 0);
  std::fclose(reader);
  EXPECT_EQ(TempDir::Read(target), "new");
  EXPECT_THAT(NamesIn(dir.Path()), UnorderedElementsAre("a.zip", "file"));
}

TEST_F(ZipExtraction, AFileThatIsNotSharedForWritingStays) {
  Make(Stored("x", "new"));
  const std::string target = dir.Write("file", "old content");
  const HANDLE reader = CreateFileA(target.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(reader, INVALID_HANDLE_VALUE);
  EXPECT_EQ(ToFile("x", target), -6);
  CloseHandle(reader);
  EXPECT_EQ(TempDir::Read(target), "old content");
  EXPECT_THAT(NamesIn(dir.Path()), UnorderedElementsAre("a.zip", "file"));
}
#else
// Extracts in a thread that may replace no file, as in a folder where everybody may remove their own files only. What
// else it may not do comes first. False if a thread cannot be forbidden anything.
template <class Forbid, class Extract>
bool WithoutReplacing(Forbid forbid, Extract extract) {
  bool forbidden = false;
  std::thread([&] {
    forbidden = forbid() && ForbidSystemCall(SYS_rename, EPERM);
    if (forbidden) {
      extract();
    }
  }).join();
  return forbidden;
}

TEST_F(ZipExtraction, AFileThatCannotBeReplacedIsWrittenOver) {
  Make(Stored("x", "new"));
  const std::string target = dir.Write("file", "old content");
  ASSERT_EQ(chmod(target.c_str(), 0640), 0);
  int code = -99;
  int flushed = -99;
  if (!WithoutReplacing([] { return true; },
                        [&] {
                          code = ToFile("x", target);
                          flushed = QsExtractFileSimpleFlush(path.c_str(), "x", target.c_str(), nullptr, nullptr, 0);
                        })) {
    GTEST_SKIP() << kForbidsNoCalls;
  }
  EXPECT_EQ(code, 0);
  EXPECT_EQ(flushed, 0);
  EXPECT_EQ(TempDir::Read(target), "new");
  EXPECT_THAT(NamesIn(dir.Path()), UnorderedElementsAre("a.zip", "file"));
  struct stat status;
  ASSERT_EQ(stat(target.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640U);
}

TEST_F(ZipExtraction, AFileThatCanNeitherBeReplacedNorOpenedStays) {
  Make(Stored("x", "new"));
  const std::string target = dir.Write("file", "old content");
  int code = -99;
  if (!WithoutReplacing([] { return ForbidSystemCall(SYS_openat, 2, O_ACCMODE | O_EXCL, O_WRONLY, EACCES); },
                        [&] { code = ToFile("x", target); })) {
    GTEST_SKIP() << kForbidsNoCalls;
  }
  EXPECT_EQ(code, -6);
  EXPECT_EQ(TempDir::Read(target), "old content");
  EXPECT_THAT(NamesIn(dir.Path()), UnorderedElementsAre("a.zip", "file"));
}

// The copy reads blocks of a size that nothing else has here.
TEST_F(ZipExtraction, WhatWasExtractedStaysBesideAFileThatWasLost) {
  Make(Stored("x", "new"));
  const std::string target = dir.Write("file", "old content");
  constexpr unsigned kBlockOfTheCopy = 32768;
  int code = -99;
  if (!WithoutReplacing(
          [] {
            return ForbidSystemCall(SYS_copy_file_range, EIO) &&
                   ForbidSystemCall(SYS_read, 2, ~0U, kBlockOfTheCopy, EIO);
          },
          [&] { code = ToFile("x", target); })) {
    GTEST_SKIP() << kForbidsNoCalls;
  }
  EXPECT_EQ(code, -6);
  EXPECT_EQ(TempDir::Read(target), "") << "half a file must not pass for a whole one";
  const std::vector<std::string> names = NamesIn(dir.Path());
  ASSERT_THAT(names, UnorderedElementsAre("a.zip", "file", StartsWith("file.")));
  for (const std::string& name : names) {
    EXPECT_TRUE(name == "a.zip" || name == "file" || TempDir::Read(dir / name) == "new") << name;
  }
}

// A whole archive writes through no link, not even where it cannot replace it.
TEST_F(ZipExtraction, ALinkThatCannotBeReplacedIsNotWrittenThrough) {
  Make(Stored("x", "new"));
  const std::string elsewhere = dir.Write("elsewhere", "old");
  std::filesystem::create_symlink(elsewhere, dir.Path() + "/x");
  int code = -99;
  if (!WithoutReplacing([] { return true; },
                        [&] { code = QsExtractWholeFile(path.c_str(), dir.Path().c_str(), nullptr, nullptr); })) {
    GTEST_SKIP() << kForbidsNoCalls;
  }
  EXPECT_EQ(code, -1);
  EXPECT_EQ(TempDir::Read(elsewhere), "old");
  EXPECT_THAT(NamesIn(dir.Path()), UnorderedElementsAre("a.zip", "elsewhere", "x"));
}
#endif

TEST_F(ZipExtraction, AReadOnlyFileRefuses) {
  if (!ReadOnlyRefusesWriting(dir / "try")) {
    GTEST_SKIP() << (kOnWindows ? kReadOnlyIsWritten : "root may write to read-only files");
  }
  Make(Stored("x", "new"));
  const std::string target = dir.Write("file", "old");
  SetReadOnly(target, true);
  EXPECT_EQ(ToFile("x", target), -3);
  EXPECT_EQ(TempDir::Read(target), "old");
}

#ifndef _WIN32  // no such permissions and devices there
TEST_F(ZipExtraction, PermissionsOfTheReplacedFileStay) {
  Make(Stored("x", "new"));
  const std::string target = dir.Write("file", "old");
  ASSERT_EQ(chmod(target.c_str(), 0751), 0);
  ASSERT_EQ(ToFile("x", target), 0);
  struct stat status;
  ASSERT_EQ(stat(target.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0751U);
}

TEST_F(ZipExtraction, DevicesAreWrittenTo) {
  Make(Stored("x", "new"));
  EXPECT_EQ(ToFile("x", "/dev/null"), 0);
  EXPECT_EQ(ToFile("x", "/dev/full"), -6);
  RawZipEntry wrong = Stored("x", "new");
  wrong.crc ^= 1;
  Make(wrong);
  EXPECT_EQ(ToFile("x", "/dev/null"), -8);
  EXPECT_EQ(QsGetFSObjectType("/dev/null"), FSO_CHARDEVICE);
}
#endif

TEST_F(ZipExtraction, ALinkThatTheCallerNamesIsWrittenThrough) {
  Make(Stored("x", "new"));
  const std::string target = dir.Write("target", "old");
  if (!MakeLink(target, dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_EQ(ToFile("x", dir / "link"), 0);
  EXPECT_EQ(TempDir::Read(target), "new");
}

TEST_F(ZipExtraction, NoMemoryForTheChunk) {
  Make(DeflatedEntry("x", Lines(100000)));
  const std::string old = dir.Write("old", "old content");
  largestAllocation = 60000;
  EXPECT_EQ(ToFile("x", dir / "file"), -4);
  EXPECT_EQ(ToFile("x", old), -4);
  largestAllocation = kNoLimit;
  EXPECT_THAT(NamesIn(dir.Path()), UnorderedElementsAre("a.zip", "old"));
  EXPECT_EQ(TempDir::Read(old), "old content");
}

TEST_F(ZipExtraction, MoreThanAnIntCounts) {
  RawZipEntry entry = DeflatedEntry("x", "text");
  entry.size = 0x80000000;
  Make(entry);
  EXPECT_EQ(ToMemory("x"), -4);
  int size = 77;
  EXPECT_EQ(QsExtractFileSimple(path.c_str(), "x", nullptr, nullptr, &size, 0), -4);
  EXPECT_EQ(size, 0);
  entry.size = 0x7FFFFFFF;
  Make(entry);
  EXPECT_EQ(QsExtractFileSimple(path.c_str(), "x", nullptr, nullptr, &size, 0), 1);
  EXPECT_EQ(size, INT_MAX);
}

#ifndef _WIN32  // no limit of a process's memory there
TEST_F(ZipExtraction, MemoryGrowsWithWhatIsDecodedOnly) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "the sanitizers take more address space than there is";
#else
  Make(ZipBuilder()
           .Add([] {
             RawZipEntry entry = DeflatedEntry("lie", "text");
             entry.size = INT_MAX;
             return entry;
           }())
           .Add(DeflatedEntry("bomb", std::string(160 << 20, '\0')))
           .Bytes());
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
  rlimit limit = before;
  limit.rlim_cur = rlim_t{128} << 20;
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  const int lie = ToMemory("lie");
  const int bomb = ToMemory("bomb");
  ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
  EXPECT_EQ(lie, -5);
  EXPECT_EQ(bomb, -4);
#endif
}
#endif

// Sizes and positions beyond 4 GiB, in a file that is a hole but for its ends.
TEST_F(ZipExtraction, Zip64BeyondFourGiB) {
  constexpr std::int64_t kGap = (std::int64_t{5} << 30) + 123;
  const std::string entry = ZipBuilder().Add(DeflatedEntry("x", Lines(1000))).Bytes();
  const std::size_t entrySize = entry.find("PK\1\2");
  try {
    Resize(dir.Write("a.zip", ""), kGap);
  } catch (const std::runtime_error&) {
    GTEST_SKIP() << "this file system has no files of 5 GiB";
  }
  std::string record = entry.substr(entrySize, entry.rfind("PK\5\6") - entrySize);
  record.replace(30, 2, ZipBuilder::Number(12, 2));          // length of the extra field
  record.replace(42, 4, ZipBuilder::Number(0xFFFFFFFF, 4));  // where the entry is: see there
  record += ZipBuilder::Number(1, 2) + ZipBuilder::Number(8, 2) + ZipBuilder::Number(kGap, 8);
  const std::uint64_t start = static_cast<std::uint64_t>(kGap) + entrySize;
  const std::string end64 = "PK\6\6" + ZipBuilder::Number(44, 8) + ZipBuilder::Number(45, 2) +
                            ZipBuilder::Number(45, 2) + ZipBuilder::Number(0, 8) + ZipBuilder::Number(1, 8) +
                            ZipBuilder::Number(1, 8) + ZipBuilder::Number(record.size(), 8) +
                            ZipBuilder::Number(start, 8);
  const std::string locator =
      "PK\6\7" + ZipBuilder::Number(0, 4) + ZipBuilder::Number(start + record.size(), 8) + ZipBuilder::Number(1, 4);
  const std::string end = "PK\5\6" + ZipBuilder::Number(0, 4) + ZipBuilder::Number(0xFFFF, 2) +
                          ZipBuilder::Number(0xFFFF, 2) + ZipBuilder::Number(0xFFFFFFFF, 4) +
                          ZipBuilder::Number(0xFFFFFFFF, 4) + ZipBuilder::Number(0, 2);
  WriteAt(path, kGap, entry.substr(0, entrySize) + record + end64 + locator + end);
  EXPECT_EQ(ToMemory("x"), 0);
  EXPECT_EQ(content, Lines(1000));
}

}  // namespace
