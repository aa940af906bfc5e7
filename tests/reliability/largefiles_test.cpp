// Files beyond what 31 and 32 bits can count, on every target: those of 32 bits count in them. They are holes. What one
// class of the library does with such a file is in its unit test; here is what takes a file over minutes.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include <QSbase/support/bufferedfile.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/platform.h"
#include "common/tempdir.h"
#include "reliability/common/rotatinglog.h"

namespace {

using qsbase::testing::Resize;
using qsbase::testing::TempDir;

constexpr std::int64_t kGiB = std::int64_t{1} << 30;
constexpr unsigned int kInfo = 0x10000000;
const std::string kLineEnd = qsbase::testing::kOnWindows ? "\r\n" : "\n";

std::int64_t SizeOf(const std::string& path) { return static_cast<std::int64_t>(std::filesystem::file_size(path)); }

/// The last bytes of a file.
std::string Tail(const std::string& path, std::size_t count) {
  std::string bytes(count, '\0');
  std::FILE* const file = std::fopen(path.c_str(), "rb");
#ifdef _WIN32
  _fseeki64(file, -static_cast<std::int64_t>(count), SEEK_END);
#else
  fseeko(file, -static_cast<off_t>(count), SEEK_END);
#endif
  bytes.resize(std::fread(bytes.data(), 1, count, file));
  std::fclose(file);
  return bytes;
}

class LargeLog : public ::testing::Test {
 protected:
  LargeLog() {
    _log.Init(3U << 30U);
    Log("first");
  }

  static void Log(const std::string& text) { QsLogMsg(kInfo, text); }

  /// As if lines had been written for days. The log asks the system for the size again within 50 microseconds.
  void GrowTo(std::int64_t size) const {
    Resize(_log.Path(), size);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  TempDir _dir;
  const qsbase::testing::RotatingLog _log{_dir};
};

TEST_F(LargeLog, GoesOnBeyond2GiB) {
  GrowTo(2 * kGiB + 100);
  Log("second");
  EXPECT_EQ(SizeOf(_log.Path()), 2 * kGiB + 100 + static_cast<std::int64_t>(("second" + kLineEnd).size()));
  EXPECT_EQ(Tail(_log.Path(), kLineEnd.size() + 7), std::string(1, '\0') + "second" + kLineEnd);
  Log("third");
  EXPECT_THAT(_log.Backups(), ::testing::IsEmpty());
}

TEST_F(LargeLog, RotatesWhenASizeBeyond2GiBIsReached) {
  GrowTo(3 * kGiB - 1);
  Log("leaves it full");
  Log("finds it full");
  EXPECT_THAT(_log.Backups(), ::testing::IsEmpty());
  Log("rotates");
  ASSERT_EQ(_log.Backups().size(), 1U);
  const std::string lines = "leaves it full" + kLineEnd + "finds it full" + kLineEnd;
  const std::string backup = _log.Backups()[0];
  EXPECT_EQ(SizeOf(backup), 3 * kGiB - 1 + static_cast<std::int64_t>(lines.size()));
  EXPECT_EQ(Tail(backup, lines.size()), lines);
  EXPECT_EQ(TempDir::Read(_log.Path()), "rotates" + kLineEnd);
}

TEST(LargeFile, IsWrittenThroughABufferBeyond4GiB) {
  const TempDir dir;
  const std::string path = dir / "file";
  QsWriteBufferedFile file(path.c_str(), 16, 0);
  EXPECT_EQ(file.Write("start", 1, 5), 5U);
  EXPECT_EQ(file.Seek(kGiB, SEEK_SET), 0);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(file.Seek(kGiB, SEEK_CUR), 0);
  }
  const std::string end = "behind the first five GiB";
  EXPECT_EQ(file.Write(end.data(), 1, static_cast<unsigned>(end.size())), end.size());
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(SizeOf(path), 5 * kGiB + static_cast<std::int64_t>(end.size()));
  EXPECT_EQ(Tail(path, end.size()), end);
}

}  // namespace
