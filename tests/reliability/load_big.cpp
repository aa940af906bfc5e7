// Sizes that 32 bits do not count: a file and an entry of an archive beyond 4 GiB, an archive with more entries than 16
// bits count.
#include <reliability/load.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <minizip/zip.h>

#include <QSbase/codec/hash.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/zlibsupport.h>

#include <common/platform.h>
#include <common/tempdir.h>

namespace qsbase::testing {

namespace {

namespace fs = std::filesystem;

// ---- a file ---------------------------------------------------------------------------------------------------------

constexpr std::int64_t kMiB = 1 << 20;
constexpr std::int64_t kMarkLength = 12;

std::string MarkAt(std::int64_t position) {
  const std::string digits = std::to_string(1000 + position % 1000);
  return "<a mark " + digits.substr(1) + ">";
}

/// Where the file holds something else than zeros: at both ends and across 2 and 4 GiB.
std::vector<std::int64_t> Marks(std::int64_t size) {
  std::vector<std::int64_t> marks;
  for (const std::int64_t position : {std::int64_t{0}, (std::int64_t{1} << 31) - 6, (std::int64_t{1} << 32) - 6}) {
    if (position + kMarkLength <= size) {
      marks.push_back(position);
    }
  }
  marks.push_back(size - kMarkLength);
  return marks;
}

struct KnownDigest {
  std::int64_t mebibytes;
  const char* md5;  // of the file with its marks, by md5sum
};
constexpr KnownDigest kDigests[] = {{46, "D36507C4CDE5B12FD97F5CA455BCBB1F"},
                                    {460, "B21C3AA6D0760418877B62EDA0E83425"},
                                    {4608, "2142DD0759112A35A126A2011F72BED0"}};

std::string DigestOf(std::int64_t mebibytes) {
  for (const KnownDigest& known : kDigests) {
    if (known.mebibytes == mebibytes) {
      return known.md5;
    }
  }
  Require(false, "the size must be 46, 460 or 4608 MiB");
  return {};
}

std::string MakeMarkedFile(const std::string& path, std::int64_t size) {
  std::ofstream(path, std::ios::binary).close();
  Resize(path, size);
  for (const std::int64_t position : Marks(size)) {
    WriteAt(path, position, MarkAt(position));
  }
  return path;
}

std::string BytesAt(const std::string& path, std::int64_t position) {
  std::ifstream file(path, std::ios::binary);
  file.seekg(position);
  std::string bytes(static_cast<std::size_t>(kMarkLength), '\0');
  file.read(bytes.data(), kMarkLength);
  return bytes.substr(0, static_cast<std::size_t>(file.gcount()));
}

void LookAtSize(const std::string& path, std::int64_t size) {
  RequireEqual(QsGetFileSize64(path.c_str()), size, "size");
  const std::int64_t most = std::numeric_limits<long>::max();
  RequireEqual(QsGetFileSize(path.c_str()), std::min(size, most), "size as a long");
}

void LoadWhole(const std::string& path, std::int64_t mebibytes) {
  const std::int64_t size = mebibytes * kMiB;
  Measure("LoadBinaryFile", mebibytes, [&] {
    const std::string content = LoadBinaryFile(path);
    RequireEqual(static_cast<std::int64_t>(content.size()), size, "loaded bytes");
    for (const std::int64_t position : Marks(size)) {
      Require(content.compare(static_cast<std::size_t>(position), kMarkLength, MarkAt(position)) == 0,
              "a mark is missing at " + std::to_string(position));
    }
  });
}

// Offsets have 32 bits: what lies behind is out of reach for a part.
void LoadParts(const std::string& path, std::int64_t size) {
  for (const std::int64_t position : Marks(size)) {
    std::string part;
    if (position <= std::numeric_limits<unsigned>::max()) {
      Require(QsLoadFilePart(path, static_cast<unsigned>(position), kMarkLength, part), "a part was not loaded");
      Require(part == MarkAt(position), "another part was loaded than that at " + std::to_string(position));
    }
  }
}

// A buffer's length has 32 bits: a file that is too long for it is refused, and costs nothing.
void LoadToBuffer(const std::string& path, std::int64_t mebibytes) {
  constexpr int kTooLong = -11;
  constexpr std::int64_t kLimit = (std::int64_t{1} << 32) - 1;
  const std::int64_t size = mebibytes * kMiB;
  char* buffer = nullptr;
  unsigned read = 0;
  int code = 0;
  Measure("CAL_ReadFileToBuffer", mebibytes, [&] {
    code = CAL_ReadFileToBuffer(path.c_str(), &buffer, read, std::numeric_limits<unsigned>::max(), true, 1);
  });
  const std::unique_ptr<char[]> owner(buffer);
  RequireEqual(code, size < kLimit ? 0 : kTooLong, "result of CAL_ReadFileToBuffer");
  RequireEqual(read, size < kLimit ? size : 0, "bytes in the buffer");
  Require((buffer != nullptr) == (size < kLimit), "a buffer");
}

void Append(const std::string& path, std::int64_t size) {
  Require(AppendBinaryFile(path, MarkAt(7)), "nothing was appended");
  RequireEqual(QsGetFileSize64(path.c_str()), size + kMarkLength, "size after appending");
  Require(BytesAt(path, size) == MarkAt(7), "something else was appended");
  Require(BytesAt(path, size - kMarkLength) == MarkAt(size - kMarkLength), "appending changed what was there");
}

void Compare(const std::string& path, const std::string& other, std::int64_t mebibytes) {
  constexpr int kOther = -11;
  constexpr int kOtherSize = -10;
  const std::int64_t size = mebibytes * kMiB;
  MakeMarkedFile(other, size);
  Measure("CAL_CompareFile", mebibytes, [&] {
    RequireEqual(CAL_CompareFile(path.c_str(), other.c_str(), 0, kMiB), 0, "a comparison of equal files");
  });
  WriteAt(other, size - 1, "x");
  RequireEqual(CAL_CompareFile(path.c_str(), other.c_str(), 0, kMiB), kOther, "a comparison of files that differ");
  WriteAt(other, size, "x");
  RequireEqual(CAL_CompareFile(path.c_str(), other.c_str(), 0, kMiB), kOtherSize, "a comparison of other sizes");
}

// ---- archives -------------------------------------------------------------------------------------------------------

constexpr std::int64_t kEntriesInFolder = 500;

std::string EntryName(std::int64_t number) {
  return "folder-" + std::to_string(number / kEntriesInFolder) + "/entry-" + std::to_string(number) + ".txt";
}

std::string EntryContent(std::int64_t number) {
  std::string content;
  for (std::int64_t i = 0; i < number % 5; ++i) {
    content += EntryName(number);
  }
  return content;
}

const QsDateTime kTime(2026, 1, 2, 3, 4, 6, 0);

void WriteEntries(const std::string& path, std::int64_t entries) {
  void* zip = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
  Require(zip != nullptr, "no archive");
  for (std::int64_t number = 0; number < entries; ++number) {
    Require(QsWrite2Zip(&zip, EntryContent(number), kTime, EntryName(number).c_str()), "an entry was not written");
  }
  RequireEqual(zipClose(zip, nullptr), ZIP_OK, "closing the archive");
}

void ListEntries(const std::string& path, std::int64_t entries) {
  int count = 0;
  std::int64_t size = 0;
  std::vector<std::string> names;
  Measure("an archive listed", entries,
          [&] { RequireEqual(QsGetZipInfo(path.c_str(), &count, &size, &names), 0, "QsGetZipInfo"); });
  RequireEqual(count, entries, "entries");
  RequireEqual(static_cast<std::int64_t>(names.size()), entries, "names");
  std::int64_t expected = 0;
  for (std::int64_t number = 0; number < entries; ++number) {
    expected += static_cast<std::int64_t>(EntryContent(number).size());
    Require(names[static_cast<std::size_t>(number)] == EntryName(number), "a name is another");
  }
  RequireEqual(size, expected, "uncompressed size");
}

void ExtractEntries(const std::string& path, std::int64_t entries, const std::string& out) {
  Measure("an archive extracted", entries,
          [&] { RequireEqual(QsExtractWholeFile(path.c_str(), out.c_str(), nullptr, nullptr), 0, "extraction"); });
  std::int64_t files = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(out)) {
    files += entry.is_regular_file() ? 1 : 0;
  }
  RequireEqual(files, entries, "extracted files");
  for (std::int64_t number = 0; number < entries; ++number) {
    Require(TempDir::Read(out + "/" + EntryName(number)) == EntryContent(number), EntryName(number) + " is another");
  }
}

// To one that has many.
void AppendEntry(const std::string& path, std::int64_t entries) {
  Measure("an entry appended to an archive of so many", entries,
          [&] { Require(QsWrite2Zip(path.c_str(), "last", kTime, true, "last.txt"), "nothing was appended"); });
  int count = 0;
  RequireEqual(QsGetNumOfFilesInZip(path.c_str(), &count), 0, "counting");
  RequireEqual(count, entries + 1, "entries after appending");
  char* buffer = nullptr;
  int size = 0;
  Measure("the last entry of so many extracted", entries, [&] {
    RequireEqual(QsExtractFileSimple(path.c_str(), "last.txt", nullptr, &buffer, &size, 65536), 0, "extraction");
  });
  const std::unique_ptr<char, decltype(&std::free)> owner(buffer, &std::free);
  Require(std::string(buffer, static_cast<std::size_t>(size)) == "last", "the last entry is another");
}

std::string LargeContent(std::int64_t size) {
  std::string content(static_cast<std::size_t>(size), '\0');
  for (const std::int64_t position : Marks(size)) {
    content.replace(static_cast<std::size_t>(position), kMarkLength, MarkAt(position));
  }
  return content;
}

// A buffer's length is an int.
void ExtractLargeToBuffer(const std::string& path, std::int64_t mebibytes) {
  constexpr int kTooLarge = -4;
  const std::int64_t bytes = mebibytes * kMiB;
  const bool fits = bytes <= std::numeric_limits<int>::max();
  char* buffer = nullptr;
  int size = 0;
  int code = 0;
  Measure("a large entry extracted to memory", mebibytes,
          [&] { code = QsExtractFileSimple(path.c_str(), "large", nullptr, &buffer, &size, 65536); });
  const std::unique_ptr<char, decltype(&std::free)> owner(buffer, &std::free);
  RequireEqual(code, fits ? 0 : kTooLarge, "result of an extraction to memory");
  RequireEqual(size, fits ? bytes : 0, "bytes extracted to memory");
  for (const std::int64_t position : Marks(bytes)) {
    Require(!fits || std::memcmp(buffer + position, MarkAt(position).data(), kMarkLength) == 0, "a mark is missing");
  }
}

}  // namespace

void HandleBigFile(std::int64_t mebibytes, const std::string& dir) {
  const std::int64_t size = mebibytes * kMiB;
  const std::string expected = DigestOf(mebibytes);
  const std::string path = MakeMarkedFile(dir + "/big", size);
  LookAtSize(path, size);
  Measure("CalcMD5 of a file", mebibytes, [&] { Require(CalcMD5(path.c_str()) == expected, "another MD5"); });
  LoadWhole(path, mebibytes);
  LoadParts(path, size);
  LoadToBuffer(path, mebibytes);
  Compare(path, dir + "/other", mebibytes);
  Append(path, size);
}

void HandleManyEntries(std::int64_t entries, const std::string& dir) {
  const std::string path = dir + "/many.zip";
  Measure("an archive written", entries, [&] { WriteEntries(path, entries); });
  ListEntries(path, entries);
  ExtractEntries(path, entries, dir + "/out");
  AppendEntry(path, entries);
}

void HandleLargeEntry(std::int64_t mebibytes, const std::string& dir) {
  const std::string path = dir + "/large.zip";
  {
    const std::string content = LargeContent(mebibytes * kMiB);
    Measure("a large entry written", mebibytes,
            [&] { Require(QsWrite2Zip(path.c_str(), content, kTime, false, "large"), "the entry was not written"); });
  }
  std::int64_t size = 0;
  RequireEqual(QsGetUncompressedSize(path.c_str(), &size), 0, "QsGetUncompressedSize");
  RequireEqual(size, mebibytes * kMiB, "uncompressed size");
  ExtractLargeToBuffer(path, mebibytes);
#ifndef _WIN32
  Measure("a large entry extracted to a device", mebibytes, [&] {
    RequireEqual(QsExtractFileSimple(path.c_str(), "large", "/dev/null", nullptr, nullptr, 65536), 0, "extraction");
  });
#endif
}

}  // namespace qsbase::testing
