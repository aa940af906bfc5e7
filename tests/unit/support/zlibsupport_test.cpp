#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <zlib.h>

#include <common/sanitized.h>

#include <QSbase/errors.h>
#include <QSbase/support/zlibpieces.h>
#include <QSbase/support/zlibsupport.h>

namespace {

using qsbase::detail::DeflateAll;
using qsbase::detail::InflateAll;
using qsbase::detail::InflateHead;
using qsbase::detail::ZBuffers;

using Buffer = std::vector<unsigned char>;

// What python3 -c "import zlib; print(zlib.compress(b'QSbase' * 100).hex())" gives.
const unsigned char kHundredNames[] = {0x78, 0x9c, 0x0b, 0x0c, 0x4e, 0x4a, 0x2c, 0x4e, 0x0d, 0x1c,
                                       0x25, 0x47, 0x49, 0xaa, 0x92, 0x00, 0x92, 0xc9, 0xe0, 0x9d};

std::string Repeated(const std::string& text, int count) {
  std::string out;
  for (int i = 0; i < count; ++i) {
    out += text;
  }
  return out;
}

std::string RandomText(std::size_t size, unsigned alphabet) {
  std::mt19937 random(1234);
  std::string text(size, '\0');
  std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random() % alphabet); });
  return text;
}

std::string ZlibCompressed(const std::string& text) {
  Buffer out(compressBound(static_cast<uLong>(text.size())));
  uLong size = static_cast<uLong>(out.size());
  EXPECT_EQ(compress(out.data(), &size, reinterpret_cast<const Bytef*>(text.data()), static_cast<uLong>(text.size())),
            Z_OK);
  return std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(size));
}

const unsigned char* Bytes(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

unsigned long Size(const std::string& text) { return static_cast<unsigned long>(text.size()); }

TEST(Zlib, VersionIsAConstant) {
  std::string version = "old";
  QsGetZlibVersion(version);
  EXPECT_EQ(version, "1.2.5");
}

TEST(Zlib, ReadsWhatAnotherProgramWrote) {
  const std::string in(reinterpret_cast<const char*>(kHundredNames), sizeof kHundredNames);
  std::string out;
  EXPECT_EQ(QsUncompress(out, 600, in), Z_OK);
  EXPECT_EQ(out, Repeated("QSbase", 100));
}

TEST(Zlib, StringsComeBack) {
  for (const std::size_t size : {0u, 1u, 2u, 100u, 65535u, 65536u, 1000000u}) {
    for (const unsigned alphabet : {1U, 4U, 256U}) {
      const std::string text = RandomText(size, alphabet);
      std::string packed = "old";
      ASSERT_EQ(QsCompress(packed, text), Z_OK);
      EXPECT_EQ(packed, ZlibCompressed(text));
      std::string out = "old";
      ASSERT_EQ(QsUncompress(out, Size(text), packed), Z_OK);
      EXPECT_EQ(out, text);
    }
  }
}

TEST(Zlib, AStringMayReplaceItself) {
  const std::string text = RandomText(5000, 4);
  std::string both = text;
  ASSERT_EQ(QsCompress(both, both), Z_OK);
  EXPECT_EQ(both, ZlibCompressed(text));
  ASSERT_EQ(QsUncompress(both, 5000, both), Z_OK);
  EXPECT_EQ(both, text);
}

TEST(Zlib, StringsReportWhatZlibReports) {
  const std::string text = RandomText(5000, 4);
  const std::string packed = ZlibCompressed(text);
  std::string damaged = packed;
  damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 0x55);
  std::string wrongSum = packed;
  wrongSum.back() = static_cast<char>(wrongSum.back() ^ 1);
  const std::string inputs[] = {packed,
                                packed.substr(0, packed.size() - 1),
                                packed.substr(0, 100),
                                damaged,
                                wrongSum,
                                "",
                                "nothing of the kind",
                                "\x78\xbb\1\2\3\4zz"};
  for (const std::string& in : inputs) {
    for (const unsigned long room : {0UL, 1UL, 4999UL, 5000UL, 6000UL}) {
      Buffer expected(std::max(room, 1UL));
      uLong size = room;
      const int code = uncompress(expected.data(), &size, Bytes(in), Size(in));
      std::string out = "old";
      EXPECT_EQ(QsUncompress(out, room, in), code) << in.size() << " into " << room;
      if (code == Z_OK) {
        EXPECT_EQ(out, text);
      }
      EXPECT_LE(out.size(), room);
      EXPECT_EQ(text.compare(0, out.size(), out) == 0 || in == damaged, true);
    }
  }
}

TEST(Zlib, ASizeBeyondMemoryThrows) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "the sanitizers end the program instead";
#else
  if (sizeof(void*) == 8 && sizeof(long) == 4) {
    GTEST_SKIP() << "an unsigned long asks for less than this machine has";
  }
  std::string out = "old";
  try {
    QsUncompress(out, ULONG_MAX, "");
    FAIL() << "4 GiB or more were there";
  } catch (const ExMemoryAllocation& error) {
    const std::string text = "Memory allocation error: QsUncompress (file QSbase/support/zlibsupport, line ";
    EXPECT_EQ(error.GetErrorText().substr(0, text.size()), text);
  }
  EXPECT_EQ(out, "old");
#endif
}

TEST(Zlib, BuffersComeBack) {
  const std::string text = RandomText(10000, 4);
  Buffer packed(text.size() + text.size() / 1000 + 64);
  unsigned long packedSize = static_cast<unsigned long>(packed.size());
  ASSERT_EQ(QsCompress(packed.data(), &packedSize, Bytes(text), Size(text)), Z_OK);
  EXPECT_EQ(std::string(packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(packedSize)),
            ZlibCompressed(text));
  Buffer out(10001);
  unsigned long size = 10001;
  ASSERT_EQ(QsUncompress(out.data(), &size, packed.data(), packedSize), Z_OK);
  EXPECT_EQ(std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(size)), text);
}

TEST(Zlib, ABufferThatIsTooSmallSaysSo) {
  const std::string text = RandomText(10000, 256);
  const std::string packed = ZlibCompressed(text);
  Buffer out(9999);
  unsigned long size = 100;
  EXPECT_EQ(QsCompress(out.data(), &size, Bytes(text), Size(text)), Z_BUF_ERROR);
  size = 9999;
  EXPECT_EQ(QsUncompress(out.data(), &size, Bytes(packed), Size(packed)), Z_BUF_ERROR);
}

TEST(Zlib, NullLengthsAreRefused) {
  unsigned char byte = 0;
  unsigned long length = 1;
  EXPECT_EQ(QsCompress(&byte, nullptr, &byte, 1), Z_STREAM_ERROR);
  EXPECT_EQ(QsUncompress(&byte, nullptr, &byte, 1UL), Z_STREAM_ERROR);
  EXPECT_EQ(QsUncompress(&byte, nullptr, &byte, &length), Z_STREAM_ERROR);
  EXPECT_EQ(QsUncompress(&byte, &length, &byte, static_cast<unsigned long*>(nullptr)), Z_STREAM_ERROR);
  EXPECT_EQ(QsUncompress_Part(&byte, nullptr, &byte, &length), Z_STREAM_ERROR);
  EXPECT_EQ(QsUncompress_Part(&byte, &length, &byte, nullptr), Z_STREAM_ERROR);
}

TEST(Zlib, UncompressTellsWhatItConsumed) {
  const std::string text = RandomText(3000, 4);
  const std::string packed = ZlibCompressed(text);
  const std::string in = packed + "what follows";
  Buffer out(4000);
  unsigned long size = 4000;
  unsigned long consumed = Size(in);
  ASSERT_EQ(QsUncompress(out.data(), &size, Bytes(in), &consumed), Z_OK);
  EXPECT_EQ(size, 3000U);
  EXPECT_EQ(consumed, packed.size());
  EXPECT_EQ(std::string(out.begin(), out.begin() + 3000), text);
}

TEST(Zlib, UncompressWithConsumedInputNamesItsFailures) {
  const std::string packed = ZlibCompressed(RandomText(3000, 256));
  Buffer out(3000);
  const auto run = [&out](const std::string& in, unsigned long room) {
    unsigned long size = room;
    unsigned long consumed = Size(in);
    const int code = QsUncompress(out.data(), &size, Bytes(in), &consumed);
    EXPECT_EQ(size, room);
    EXPECT_EQ(consumed, in.size());
    return code;
  };
  EXPECT_EQ(run(packed.substr(0, 2000), 3000), Z_DATA_ERROR);  // cut
  EXPECT_EQ(run("", 3000), Z_DATA_ERROR);
  EXPECT_EQ(run(packed, 2000), Z_BUF_ERROR);  // no room, input left
  EXPECT_EQ(run("no stream at all", 3000), Z_DATA_ERROR);
  EXPECT_EQ(run("\x78\xbb\1\2\3\4zz", 3000), Z_DATA_ERROR);  // wants a dictionary
}

TEST(Zlib, APartIsTheHead) {
  const std::string text = RandomText(100000, 4);
  const std::string packed = ZlibCompressed(text);
  Buffer out(100000);
  for (const unsigned long room : {1UL, 2UL, 1000UL, 99999UL, 100000UL}) {
    unsigned long size = room;
    unsigned long consumed = Size(packed);
    ASSERT_EQ(QsUncompress_Part(out.data(), &size, Bytes(packed), &consumed), Z_OK) << room;
    EXPECT_EQ(size, room);
    EXPECT_LE(consumed, packed.size());
    EXPECT_EQ(std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(room)), text.substr(0, room));
  }
}

TEST(Zlib, APartOfTheInputIsEnoughForItsHead) {
  const std::string text = RandomText(100000, 4);
  const std::string packed = ZlibCompressed(text);
  Buffer out(1000);
  unsigned long size = 1000;
  unsigned long consumed = 5000;
  ASSERT_EQ(QsUncompress_Part(out.data(), &size, Bytes(packed), &consumed), Z_OK);
  EXPECT_EQ(size, 1000U);
  EXPECT_LT(consumed, 5000U);
}

TEST(Zlib, APartNamesItsFailures) {
  const std::string packed = ZlibCompressed(RandomText(3000, 256));
  Buffer out(4000);
  const auto run = [&out](const std::string& in, unsigned long room) {
    unsigned long size = room;
    unsigned long consumed = Size(in);
    const int code = QsUncompress_Part(out.data(), &size, Bytes(in), &consumed);
    if (code != Z_OK) {
      EXPECT_EQ(size, room);
      EXPECT_EQ(consumed, in.size());
    }
    return code;
  };
  EXPECT_EQ(run(packed.substr(0, 2000), 3000), Z_DATA_ERROR);  // the data end before the room does
  EXPECT_EQ(run(packed, 4000), Z_OK);                          // the stream ends first
  EXPECT_EQ(run("", 10), Z_BUF_ERROR);
  EXPECT_EQ(run("no stream at all", 10), Z_DATA_ERROR);
  EXPECT_EQ(run("\x78\xbb\1\2\3\4zz", 10), Z_NEED_DICT);
}

// What is larger than zlib takes at once is fed in pieces; here the pieces are small instead.
class ZlibPieces : public ::testing::TestWithParam<std::size_t> {};

TEST_P(ZlibPieces, GiveTheSameStream) {
  const std::string text = RandomText(20000, 4);
  Buffer out(compressBound(20000));
  ZBuffers buffers{out.data(), out.size(), Bytes(text), text.size()};
  ASSERT_EQ(DeflateAll(buffers, GetParam()), Z_OK);
  EXPECT_EQ(buffers.srcLen, text.size());
  std::string back;
  ASSERT_EQ(
      QsUncompress(back, 20000, std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(buffers.destLen))),
      Z_OK);
  EXPECT_EQ(back, text);
}

TEST_P(ZlibPieces, ReportAFullBuffer) {
  const std::string text = RandomText(20000, 256);
  Buffer out(1000);
  ZBuffers buffers{out.data(), out.size(), Bytes(text), text.size()};
  EXPECT_EQ(DeflateAll(buffers, GetParam()), Z_BUF_ERROR);
  EXPECT_LE(buffers.destLen, 1000U);
}

TEST_P(ZlibPieces, InflateAll) {
  const std::string text = RandomText(20000, 4);
  const std::string packed = ZlibCompressed(text) + "rest";
  Buffer out(20000);
  ZBuffers buffers{out.data(), out.size(), Bytes(packed), packed.size()};
  ASSERT_EQ(InflateAll(buffers, GetParam()), Z_STREAM_END);
  EXPECT_EQ(buffers.srcLen, packed.size() - 4);
  EXPECT_EQ(std::string(out.begin(), out.end()), text);
  ZBuffers small{out.data(), 19999, Bytes(packed), packed.size()};
  EXPECT_EQ(InflateAll(small, GetParam()), Z_BUF_ERROR);
  EXPECT_EQ(small.destLen, 19999U);
  ZBuffers cut{out.data(), 20000, Bytes(packed), 3000};
  EXPECT_EQ(InflateAll(cut, GetParam()), Z_BUF_ERROR);
  EXPECT_EQ(cut.srcLen, 3000U);
}

TEST_P(ZlibPieces, InflateTheHead) {
  const std::string text = RandomText(20000, 4);
  const std::string packed = ZlibCompressed(text);
  for (const std::size_t room : {std::size_t{1}, std::size_t{6000}, std::size_t{6001}, std::size_t{19999}}) {
    Buffer out(room);
    ZBuffers buffers{out.data(), room, Bytes(packed), packed.size()};
    ASSERT_EQ(InflateHead(buffers, GetParam()), Z_OK) << room;
    EXPECT_EQ(buffers.destLen, room);
    EXPECT_EQ(std::string(out.begin(), out.end()), text.substr(0, room));
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, ZlibPieces, ::testing::Values(1, 2, 7, 1000, 6000, 65536));

TEST(ZipMessages, EntryCodes) {
  const char* const texts[] = {"",
                               "No open unzFile object or file not found in archive",
                               "Could not open file in archive",
                               "Could not create new file",
                               "Could not allocate buffer for file extraction",
                               "Could not read compressed file",
                               "Could not write uncompressed file",
                               "Could not close file",
                               "CRC error",
                               "Unknown error during extraction",
                               "No extraction possible. All destination paramters are NULL",
                               "Filename is empty",
                               "Invalid unzFile object",
                               "unsupported compression method",
                               "file is password-protected",
                               ""};
  for (int i = 0; i < 16; ++i) {
    std::string text = "old";
    QsGetZLibErrorMessage(-i, text);
    EXPECT_EQ(text, texts[i]) << -i;
  }
  for (const int code : {1, -101, -102, -103, INT_MIN, INT_MAX}) {
    std::string text = "old";
    QsGetZLibErrorMessage(code, text);
    EXPECT_EQ(text, "") << code;
  }
}

TEST(ZipMessages, ArchiveCodes) {
  const char* const texts[] = {"",
                               "Extraction error",
                               "Parameter 'filename' is empty",
                               "Parameter 'folder' is empty",
                               "Could not open file",
                               "File does not exist",
                               "Could not create output directory",
                               "Could not create a subdirectory",
                               "Aborted by user request",
                               "unzGoToNextFile failed",
                               "unzGetCurrentFileInfo failed",
                               "unzGetGlobalInfo failed",
                               ""};
  for (int i = 0; i < 13; ++i) {
    std::string text = "old";
    EXPECT_EQ(QsGetZLibErrorMessageWholeFile(-i, text), i == 8) << -i;
    EXPECT_EQ(text, texts[i]) << -i;
  }
  std::string text = "old";
  EXPECT_FALSE(QsGetZLibErrorMessageWholeFile(8, text));
  EXPECT_EQ(text, "");
}

}  // namespace
