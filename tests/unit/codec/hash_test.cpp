#include <QSbase/codec/hash.h>
#include <QSbase/codec/md5.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#ifndef _WIN32
#include <unistd.h>
#endif

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "common/platform.h"
#include "common/sanitized.h"
#include "common/tempdir.h"

using qsbase::testing::TempDir;

namespace {

const unsigned char* Bytes(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.data()); }

unsigned int SizeOf(const std::string& text) { return static_cast<unsigned int>(text.size()); }

std::string Hex(const unsigned char* bytes, std::size_t count = 16) {
  static const char digits[] = "0123456789ABCDEF";
  std::string hex;
  for (std::size_t i = 0; i < count; ++i) {
    hex += digits[bytes[i] >> 4];
    hex += digits[bytes[i] & 15];
  }
  return hex;
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'F' ? char(c + 32) : c; });
  return text;
}

std::string OtherMd5(const std::string& data) {
  unsigned char digest[16];
  unsigned int length = 0;
  EVP_Digest(data.data(), data.size(), digest, &length, EVP_md5(), nullptr);
  return Hex(digest);
}

std::string OtherHmac(const std::string& key, const std::string& data) {
  unsigned char digest[16];
  unsigned int length = 0;
  HMAC(EVP_md5(), key.data(), static_cast<int>(key.size()), Bytes(data), data.size(), digest, &length);
  return Hex(digest);
}

std::string HmacClass(const std::string& key, const std::string& data) {
  CHMACMD5 hmac;
  hmac.Calculate(Bytes(data), static_cast<int>(data.size()), Bytes(key), static_cast<int>(key.size()));
  unsigned char digest[16];
  hmac.CopyDigest(digest);
  return Hex(digest);
}

std::string HmacFunction(const std::string& key, const std::string& data) {
  unsigned char digest[16];
  hmac_md5(Bytes(data), static_cast<int>(data.size()), Bytes(key), static_cast<int>(key.size()), digest);
  return Hex(digest);
}

std::string HmacDefaultKey(const std::string& data) {
  CHMACMD5 hmac;
  hmac.Calculate(Bytes(data), static_cast<int>(data.size()));
  unsigned char digest[16];
  hmac.CopyDigest(digest);
  return Hex(digest);
}

std::string Random(std::size_t size, unsigned int seed) {
  std::mt19937 random(seed);
  std::string data(size, '\0');
  for (char& c : data) {
    c = static_cast<char>(random());
  }
  return data;
}

const std::string kZeroHex(32, '0');

TEST(Md5, MatchesTheSuiteOfRfc1321) {
  const std::vector<std::pair<std::string, std::string>> suite = {
      {"", "D41D8CD98F00B204E9800998ECF8427E"},
      {"a", "0CC175B9C0F1B6A831C399E269772661"},
      {"abc", "900150983CD24FB0D6963F7D28E17F72"},
      {"message digest", "F96B697D7CB7938D525A2F31AAF161D0"},
      {"abcdefghijklmnopqrstuvwxyz", "C3FCD3D76192E4007DFB496CCA67E13B"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "D174AB98D277D9F5A5611C2C9F419D9F"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57EDF4A22BE3C955AC49DA2E2107B67A"}};
  for (const auto& [text, digest] : suite) {
    EXPECT_EQ(QsCalcMD5(text.data(), SizeOf(text)), digest) << text;
  }
}

TEST(Md5, EveryLengthAndAlignmentMatchesAnotherImplementation) {
  const std::string data = Random(400, 1);
  for (unsigned int length = 0; length <= 300; ++length) {
    for (unsigned int start = 0; start < 8; ++start) {
      EXPECT_EQ(QsCalcMD5(data.data() + start, length), OtherMd5(data.substr(start, length)));
    }
  }
}

TEST(Md5, EverySplitGivesTheSameDigest) {
  const std::string data = Random(200, 2);
  const std::string expected = OtherMd5(data);
  for (unsigned int first = 0; first <= 200; ++first) {
    for (unsigned int second : {0u, 1u, 63u, 64u, 65u}) {
      const unsigned int middle = std::min(second, 200 - first);
      QsMD5 md5;
      md5.Init();
      md5.Update(Bytes(data), first);
      md5.Update(Bytes(data) + first, middle);
      md5.Update(Bytes(data) + first + middle, 200 - first - middle);
      unsigned char digest[16];
      md5.Final(digest);
      ASSERT_EQ(Hex(digest), expected) << first << " " << second;
    }
  }
}

TEST(Md5, CountsBitsBeyond32Bits) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "half a gigabyte takes ThreadSanitizer minutes; the code is that of the other tests";
#endif
  // 2^29 bytes and 5 more: the bit count needs 33 bits. The blocks are zeros, so that the reference can be fed alike.
  const std::vector<unsigned char> zeros(1 << 20);
  qsbase::detail::Md5State state;
  qsbase::detail::md5_init(&state);
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> other(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  EVP_DigestInit_ex(other.get(), EVP_md5(), nullptr);
  for (int i = 0; i < 512; ++i) {
    qsbase::detail::md5_append(&state, zeros.data(), zeros.size());
    EVP_DigestUpdate(other.get(), zeros.data(), zeros.size());
  }
  qsbase::detail::md5_append(&state, zeros.data(), 5);
  EVP_DigestUpdate(other.get(), zeros.data(), 5);
  EXPECT_EQ(state.bitCount, (std::uint64_t{1} << 32) + 40);
  unsigned char ours[16];
  unsigned char theirs[16];
  qsbase::detail::md5_finish(&state, ours);
  EVP_DigestFinal_ex(other.get(), theirs, nullptr);
  EXPECT_EQ(Hex(ours), Hex(theirs));
}

TEST(Md5, StateIs88BytesAndWipedAtTheEnd) {
  EXPECT_EQ(sizeof(QsMD5), 88u);
  const unsigned char zeros[sizeof(QsMD5)] = {};
  QsMD5 md5;
  EXPECT_EQ(std::memcmp(static_cast<const void*>(&md5), zeros, sizeof(md5)), 0);
  md5.Init();
  md5.Update(Bytes("secret"), 6);
  EXPECT_NE(std::memcmp(static_cast<const void*>(&md5), zeros, sizeof(md5)), 0);
  unsigned char digest[16];
  md5.Final(digest);
  EXPECT_EQ(std::memcmp(static_cast<const void*>(&md5), zeros, sizeof(md5)), 0);
  md5.Calculate("secret", 6, digest);
  EXPECT_EQ(std::memcmp(static_cast<const void*>(&md5), zeros, sizeof(md5)), 0);
}

TEST(Md5, WipeZeroesAllOfItAndNothingElse) {
  std::vector<unsigned char> memory(64, 0xAA);
  qsbase::detail::WipeMemory(memory.data() + 8, 48);
  for (std::size_t i = 0; i < memory.size(); ++i) {
    EXPECT_EQ(memory[i], i >= 8 && i < 56 ? 0 : 0xAA) << i;
  }
}

TEST(Md5, MemoryFormsWithNothing) {
  unsigned char digest[16];
  std::memset(digest, 0x55, sizeof(digest));
  QsCalcMD5("abc", 0, digest);
  QsCalcMD5(nullptr, 3, digest);
  QsCalcMD5("abc", 3, nullptr);
  EXPECT_EQ(Hex(digest), std::string(32, '5'));
  QsCalcMD5("abc", 3, digest);
  EXPECT_EQ(Hex(digest), "900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(QsCalcMD5("abc", 0), "D41D8CD98F00B204E9800998ECF8427E");
  EXPECT_EQ(QsCalcMD5(nullptr, 0), "");
  EXPECT_EQ(QsCalcMD5(nullptr, 3), "");
  EXPECT_EQ(QsMD5().Calculate(nullptr, 5, digest), 0);
  EXPECT_EQ(Hex(digest), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST(Md5, UpdateWithNothingChangesNothing) {
  QsMD5 md5;
  md5.Init();
  md5.Update(Bytes("abc"), 3);
  md5.Update(nullptr, 0);
  md5.Update(nullptr, 9);
  md5.Update(Bytes("abc"), 0);
  unsigned char digest[16];
  md5.Final(digest);
  EXPECT_EQ(Hex(digest), "900150983CD24FB0D6963F7D28E17F72");
}

TEST(Md5, FileFromAnyOffset) {
  const TempDir dir;
  const std::string content = Random(4096 * 3 + 17, 3);
  const std::string path = dir.Write("data.bin", content);
  for (unsigned int offset : {0u, 1u, 4095u, 4096u, 4097u, 12304u, 12305u, 99999u}) {
    const std::string rest = offset < content.size() ? content.substr(offset) : "";
    EXPECT_EQ(CalcMD5(path.c_str(), offset), OtherMd5(rest)) << offset;
    std::string hex = "before";
    EXPECT_EQ(CalcMD5(path.c_str(), hex, offset), 0);
    EXPECT_EQ(hex, OtherMd5(rest));
    unsigned char digest[16];
    EXPECT_EQ(QsMD5().Calculate(path.c_str(), digest, offset), 0);
    EXPECT_EQ(Hex(digest), OtherMd5(rest));
  }
  std::string hex;
  EXPECT_EQ(CalcMD5(path.c_str(), hex), 0);
  EXPECT_EQ(hex, OtherMd5(content));
  EXPECT_EQ(CalcMD5(path.c_str()), OtherMd5(content));
  unsigned char digest[16];
  EXPECT_EQ(QsMD5().Calculate(path.c_str(), digest), 0);
  EXPECT_EQ(Hex(digest), OtherMd5(content));
  EXPECT_EQ(QsMD5().Calculate(path.c_str(), hex), 0);
}

TEST(Md5, FileIsReadInBinary) {
  const TempDir dir;
  const std::string content = "a\r\nb\n\r\x1A z\r";
  EXPECT_EQ(CalcMD5(dir.Write("t.txt", content).c_str()), OtherMd5(content));
}

TEST(Md5, FilePathTakesEitherSeparator) {
  const TempDir dir;
  std::string path = dir.Write("sub/data.bin", "abc");
  std::replace(path.begin(), path.end(), '/', '\\');
  EXPECT_EQ(CalcMD5(path.c_str()), "900150983CD24FB0D6963F7D28E17F72");
}

TEST(Md5, FileFailures) {
  const TempDir dir;
  unsigned char digest[16];
  const std::vector<std::pair<std::string, int>> cases = {{"", -1}, {dir / "absent", -2}, {dir.Path(), -2}};
  for (const auto& [path, status] : cases) {
    std::memset(digest, 0x55, sizeof(digest));
    EXPECT_EQ(QsMD5().Calculate(path.c_str(), digest), status) << path;
    EXPECT_EQ(Hex(digest), kZeroHex);
    std::string hex = "before";
    EXPECT_EQ(CalcMD5(path.c_str(), hex), status);
    EXPECT_EQ(hex, "before");
    EXPECT_EQ(CalcMD5(path.c_str()), "");
  }
  std::memset(digest, 0x55, sizeof(digest));
  EXPECT_EQ(QsMD5().Calculate(static_cast<const char*>(nullptr), digest), -1);
  EXPECT_EQ(Hex(digest), kZeroHex);
  EXPECT_EQ(CalcMD5(nullptr), "");
}

// A pipe opens and reads, but knows no positions.
TEST(Md5, FileThatCannotBePositioned) {
#ifdef _WIN32
  const qsbase::testing::PipeReader pipe("qsbase-test-md5");
  const std::string path = pipe.Path();
#else
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string path = "/proc/self/fd/" + std::to_string(ends[0]);
#endif
  unsigned char digest[16];
  std::memset(digest, 0x55, sizeof(digest));
  EXPECT_EQ(QsMD5().Calculate(path.c_str(), digest, 1u), -3);
  EXPECT_EQ(Hex(digest), kZeroHex);
#ifndef _WIN32
  close(ends[0]);
  close(ends[1]);
#endif
}

// The whole of such a file would take seconds: only what lies behind the offset is read.
TEST(Md5, OffsetsBeyond31Bits) {
  const TempDir dir;
  const std::string path = dir.Write("large.bin", "");
  const std::string tail = "0123456789abcdefghijklmno";
  const struct {
    std::int64_t tailAt;
    unsigned int offset;
  } rows[] = {{0x7FFFFFFA, 0x7FFFFFFE}, {0x7FFFFFFA, 0x7FFFFFFF}, {0x7FFFFFFA, 0x80000000}, {0x7FFFFFFA, 0x80000005},
              {0xFFFFFFF9, 0xFFFFFFFD}, {0xFFFFFFF9, 0xFFFFFFFE}, {0xFFFFFFF9, 0xFFFFFFFF}};
  for (const auto& row : rows) {
    qsbase::testing::Resize(path, 0);
    qsbase::testing::WriteAt(path, row.tailAt, tail);
    const std::string rest = tail.substr(static_cast<std::size_t>(row.offset - row.tailAt));
    EXPECT_EQ(CalcMD5(path.c_str(), row.offset), OtherMd5(rest)) << row.offset;
  }
}

TEST(HmacMd5, MatchesRfc2202) {
  struct Row {
    std::string key, data, digest;
  };
  std::string counting;
  for (char c = 1; c <= 0x19; ++c) {
    counting += c;
  }
  const std::vector<Row> rows = {
      {std::string(16, '\x0B'), "Hi There", "9294727A3638BB1C13F48EF8158BFC9D"},
      {"Jefe", "what do ya want for nothing?", "750C783E6AB0B503EAA86E310A5DB738"},
      {std::string(16, '\xAA'), std::string(50, '\xDD'), "56BE34521D144C88DBB8C733F0E8B3F6"},
      {counting, std::string(50, '\xCD'), "697EAF0ACA3A3AEA3A75164746FFAA79"},
      {std::string(16, '\x0C'), "Test With Truncation", "56461EF2342EDC00F9BAB995690EFD4C"},
      {std::string(80, '\xAA'), "Test Using Larger Than Block-Size Key - Hash Key First",
       "6B1AB7FE4BD7BF8F0B62E6CE61B9D0CD"},
      {std::string(80, '\xAA'), "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
       "6F630FAD67CDA0EE1FB1F562DB3AA53E"}};
  for (const Row& row : rows) {
    EXPECT_EQ(HmacClass(row.key, row.data), row.digest) << row.data;
    EXPECT_EQ(HmacFunction(row.key, row.data), row.digest) << row.data;
  }
}

TEST(HmacMd5, EveryKeyAndTextLengthMatchesAnotherImplementation) {
  const std::string pool = Random(300, 4);
  for (std::size_t keyLength = 1; keyLength <= 130; ++keyLength) {
    for (unsigned int length : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 128u, 200u}) {
      const std::string key = pool.substr(0, keyLength);
      const std::string data = pool.substr(50, length);
      const std::string expected = OtherHmac(key, data);
      ASSERT_EQ(HmacFunction(key, data), expected) << keyLength << " " << length;
      ASSERT_EQ(HmacClass(key, data), expected) << keyLength << " " << length;
    }
  }
}

TEST(HmacMd5, KeyOf65BytesIsItsDigest) {
  const std::string key = Random(65, 5);
  unsigned char digest[16];
  QsCalcMD5(key.data(), 65, digest);
  const std::string shortKey(reinterpret_cast<const char*>(digest), 16);
  EXPECT_EQ(HmacClass(key, "text"), HmacClass(shortKey, "text"));
  EXPECT_EQ(HmacFunction(key, "text"), HmacFunction(shortKey, "text"));
  EXPECT_NE(HmacFunction(key.substr(0, 64), "text"), HmacFunction(shortKey, "text"));
}

TEST(HmacMd5, FunctionWithNothing) {
  unsigned char digest[16];
  const unsigned char byte = 1;
  auto run = [&](const unsigned char* text, int length, const unsigned char* key, int keyLength) {
    std::memset(digest, 0x55, sizeof(digest));
    hmac_md5(text, length, key, keyLength, digest);
    return Hex(digest);
  };
  EXPECT_EQ(run(nullptr, 1, &byte, 1), kZeroHex);
  EXPECT_EQ(run(&byte, 1, nullptr, 1), kZeroHex);
  EXPECT_EQ(run(&byte, 1, &byte, 0), kZeroHex);
  EXPECT_EQ(run(&byte, 1, &byte, -1), kZeroHex);
  EXPECT_EQ(run(&byte, -1, &byte, 1), kZeroHex);
  EXPECT_EQ(run(&byte, 0, &byte, 1), OtherHmac(std::string(1, '\1'), ""));
  hmac_md5(&byte, 1, &byte, 1, nullptr);
}

TEST(HmacMd5, ObjectStepByStep) {
  CHMACMD5 hmac;
  unsigned char digest[16];
  hmac.CopyDigest(digest);
  EXPECT_EQ(Hex(digest), kZeroHex);
  hmac.Final();  // without Init
  hmac.CopyDigest(digest);
  EXPECT_EQ(Hex(digest), kZeroHex);
  hmac.Init(Bytes("Jefe"), 4);
  hmac.Update(Bytes("what do ya want "), 16);
  hmac.Update(nullptr, 4);
  hmac.Update(Bytes("x"), 0);
  hmac.Update(Bytes("x"), -1);
  hmac.Update(Bytes("for nothing?"), 12);
  hmac.Final();
  hmac.CopyDigest(digest);
  EXPECT_EQ(Hex(digest), "750C783E6AB0B503EAA86E310A5DB738");
  hmac.Final();
  hmac.CopyDigest(digest);
  EXPECT_EQ(Hex(digest), "750C783E6AB0B503EAA86E310A5DB738");
}

TEST(HmacMd5, NoKeyIsTheEmptyKey) {
  CHMACMD5 hmac;
  hmac.Calculate(Bytes("abc"), 3, nullptr, 5);
  unsigned char digest[16];
  hmac.CopyDigest(digest);
  EXPECT_EQ(Hex(digest), OtherHmac(std::string(64, '\0'), "abc"));
}

TEST(HmacMd5, MemoryFormKeepsItsDigestAndTheKey) {
  unsigned char key[64];
  for (std::size_t i = 0; i < 64; ++i) {
    key[i] = static_cast<unsigned char>(i);
  }
  unsigned char before[64];
  std::memcpy(before, key, 64);
  QsCalcHMAC_MD5("abc", 3, key);
  EXPECT_EQ(std::memcmp(before, key, 64), 0);
  QsCalcHMAC_MD5(nullptr, 3, key);
  QsCalcHMAC_MD5("abc", 0, key);
  QsCalcHMAC_MD5("abc", 3, nullptr);
  EXPECT_EQ(std::memcmp(before, key, 64), 0);
}

TEST(HmacMd5, StringFormIs32Zeros) {
  EXPECT_EQ(QsCalcHMAC_MD5("abc", 3), kZeroHex);
  EXPECT_EQ(QsCalcHMAC_MD5("abc", 0), kZeroHex);
  EXPECT_EQ(QsCalcHMAC_MD5(nullptr, 3), "");
}

TEST(HmacMd5, FileIsReadAsText) {
  const TempDir dir;
  const std::vector<std::pair<std::string, std::string>> cases = {{"", ""},
                                                                  {"abc", "abc"},
                                                                  {"a\r\nb\r\n", "a\nb\n"},
                                                                  {"a\nb\n", "a\nb\n"},
                                                                  {"a\rb\r", "a\rb\r"},
                                                                  {"\r\r\n", "\r\n"},
                                                                  {"\r\n\r\n", "\n\n"},
                                                                  {"\r", "\r"},
                                                                  {"\n\r", "\n\r"}};
  for (const auto& [content, text] : cases) {
    std::string hex = "before";
    EXPECT_EQ(CalcHMAC_MD5(dir.Write("t.txt", content).c_str(), hex), 0);
    EXPECT_EQ(hex, Lower(HmacDefaultKey(text)));
    EXPECT_EQ(CalcHMAC_MD5((dir / "t.txt").c_str()), hex);
  }
}

// On Windows Ctrl-Z ends a text.
TEST(HmacMd5, FileIsReadAsTheSystemReadsText) {
  const TempDir dir;
  const std::string text = qsbase::testing::kOnWindows ? "ab\n"
                                                       : "ab\n\x1A"
                                                         "cd\n";
  EXPECT_EQ(CalcHMAC_MD5(dir.Write("t.txt",
                                   "ab\r\n\x1A"
                                   "cd\r\n")
                             .c_str()),
            Lower(HmacDefaultKey(text)));
}

TEST(HmacMd5, LineBreakAcrossABlockBorder) {
  const TempDir dir;
  for (std::size_t before = 8185; before <= 8197; ++before) {
    const std::string start(before, 'x');
    for (const std::string end : {"\r\ny", "\ry", "\r", "\r\r\ny"}) {
      const std::string content = start + end + std::string(8192, 'z') + end;
      std::string text;
      for (std::size_t i = 0; i < content.size(); ++i) {
        if (content.compare(i, 2, "\r\n") != 0) {
          text += content[i];
        }
      }
      ASSERT_EQ(CalcHMAC_MD5(dir.Write("t.txt", content).c_str()), Lower(HmacDefaultKey(text))) << before;
    }
  }
}

TEST(HmacMd5, FileFailures) {
  const TempDir dir;
  for (const std::string& path : {std::string(), dir / "absent", dir.Path()}) {
    std::string hex = "before";
    EXPECT_EQ(CalcHMAC_MD5(path.c_str(), hex), -1) << path;
    EXPECT_EQ(hex, "before");
    EXPECT_EQ(CalcHMAC_MD5(path.c_str()), "");
  }
  EXPECT_EQ(CalcHMAC_MD5(nullptr), "");
}

TEST(KeyedMd5, KnownValue) {
  unsigned char key[64];
  for (std::size_t i = 0; i < 64; ++i) {
    key[i] = static_cast<unsigned char>(i + 1);
  }
  unsigned char digest[16];
  qsbase::detail::KeyedMd5("abc", key, 64, digest);
  EXPECT_EQ(Hex(digest), "BA3608159DCFAFE05133B0D3570C7EAF");
  EXPECT_NE(HmacFunction(std::string(reinterpret_cast<char*>(key), 64), "abc"), Hex(digest));
}

TEST(KeyedMd5, TwoZeroBytesSetItApartFromHmac) {
  const std::string key = Random(64, 6);
  std::string inner = key;
  std::string outer = key;
  for (std::size_t i = 0; i < 64; ++i) {
    inner[i] = static_cast<char>(inner[i] ^ 0x36);
    outer[i] = static_cast<char>(outer[i] ^ 0x5C);
  }
  for (const std::string& text : {std::string(), std::string("x"), std::string(200, 'y')}) {
    unsigned char hash[16];
    const std::string first = inner + text + '\0';
    EVP_Digest(first.data(), first.size(), hash, nullptr, EVP_md5(), nullptr);
    const std::string second = outer + std::string(reinterpret_cast<char*>(hash), 16) + '\0';
    unsigned char digest[16];
    qsbase::detail::KeyedMd5(text.c_str(), Bytes(key), 64, digest);
    EXPECT_EQ(Hex(digest), OtherMd5(second));
  }
}

TEST(KeyedMd5, WithoutAProperKeyTakesTheDefaultOne) {
  const std::string key = Random(65, 7);
  unsigned char none[16];
  unsigned char other[16];
  qsbase::detail::KeyedMd5("abc", nullptr, 64, none);
  for (std::size_t length : {std::size_t{0}, std::size_t{63}, std::size_t{65}}) {
    qsbase::detail::KeyedMd5("abc", Bytes(key), length, other);
    EXPECT_EQ(Hex(other), Hex(none));
  }
  qsbase::detail::KeyedMd5("abc", Bytes(key), 64, other);
  EXPECT_NE(Hex(other), Hex(none));
}

TEST(KeyedMd5, TextForms) {
  unsigned char digest[16];
  std::memset(digest, 0x55, sizeof(digest));
  QsCalcPeLM_HMAC("", digest);
  EXPECT_EQ(Hex(digest), kZeroHex);
  std::memset(digest, 0x55, sizeof(digest));
  QsCalcPeLM_HMAC(nullptr, digest);
  EXPECT_EQ(Hex(digest), kZeroHex);
  QsCalcPeLM_HMAC("abc", nullptr);
  QsCalcPeLM_HMAC("abc", digest);
  EXPECT_NE(Hex(digest), kZeroHex);
  EXPECT_EQ(QsCalcPeLM_HMAC("abc"), Hex(digest));
  EXPECT_NE(QsCalcPeLM_HMAC("abd"), Hex(digest));
  EXPECT_EQ(QsCalcPeLM_HMAC(""), kZeroHex);
  EXPECT_EQ(QsCalcPeLM_HMAC(nullptr), "");
  unsigned char defaultKeyed[16];
  qsbase::detail::KeyedMd5("abc", nullptr, 0, defaultKeyed);
  EXPECT_NE(Hex(defaultKeyed), Hex(digest));
}

std::uint32_t SlowCrc(const std::string& data) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (char c : data) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) {
      crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
    }
  }
  return ~crc;
}

TEST(Crc32, OfMemory) {
  EXPECT_EQ(QsCalcCRC32("123456789", 9), 0xCBF43926u);
  EXPECT_EQ(QsCalcCRC32(nullptr, 9), 0u);
  EXPECT_EQ(QsCalcCRC32("1", 0), 0u);
  EXPECT_EQ(QsCalcCRC32(nullptr, 0), 0u);
  const std::string data = Random(600, 8);
  for (unsigned int length = 0; length < 600; length += 7) {
    EXPECT_EQ(QsCalcCRC32(data.data(), length), SlowCrc(data.substr(0, length)));
  }
}

TEST(Crc32, OfText) {
  EXPECT_EQ(QsTextToCRC32("1a2b3c4d"), 0x1A2B3C4Du);
  EXPECT_EQ(QsTextToCRC32("1A2B3C4D"), 0x1A2B3C4Du);
  EXPECT_EQ(QsTextToCRC32("FFFFFFFF"), 0xFFFFFFFFu);
  EXPECT_EQ(QsTextToCRC32("00000001"), 1u);
  EXPECT_EQ(QsTextToCRC32("0000000g"), 0u);
  for (const char* text : {"", "1", "1234567", "123456789", " 1234567", "0x123456", "1234567 ", "-1234567"}) {
    EXPECT_EQ(QsTextToCRC32(text), 0u) << text;
  }
  EXPECT_EQ(QsTextToCRC32("1234567890123456789012345678901234567890"), 0u);
  EXPECT_EQ(QsTextToCRC32(nullptr), 0u);
  std::mt19937 random(9);
  for (int i = 0; i < 1000; ++i) {
    const std::uint32_t value = static_cast<std::uint32_t>(random());
    char text[9];
    std::snprintf(text, sizeof(text), "%08x", value);
    EXPECT_EQ(QsTextToCRC32(text), value);
  }
}

TEST(HexChecks, LeadingRun) {
  EXPECT_TRUE(QsIsValidHex("", 0));
  EXPECT_TRUE(QsIsValidHex("g", 0));
  EXPECT_TRUE(QsIsValidHex("12g", 2));
  EXPECT_TRUE(QsIsValidHex("0123456789abcdefABCDEF", 22));
  EXPECT_FALSE(QsIsValidHex("12g", 1));
  EXPECT_FALSE(QsIsValidHex("12g", 3));
  EXPECT_FALSE(QsIsValidHex("12", 3));
  EXPECT_FALSE(QsIsValidHex("12", std::numeric_limits<unsigned int>::max()));
  EXPECT_FALSE(QsIsValidHex(nullptr, 0));
  for (int c = 1; c < 256; ++c) {
    const char text[] = {static_cast<char>(c), '\0'};
    const bool isHex = std::strchr("0123456789abcdefABCDEF", c) != nullptr;
    EXPECT_EQ(QsIsValidHex(text, 1), isHex) << c;
    EXPECT_EQ(QsIsValidHex(text, 0), !isHex) << c;
  }
}

TEST(HexChecks, ReadNothingBehindTheText) {
  for (std::size_t length = 0; length < 45; ++length) {
    const std::unique_ptr<char[]> text(new char[length + 1]);
    std::memset(text.get(), 'a', length);
    text[length] = '\0';
    EXPECT_EQ(QsIsValidMD5(text.get()), length == 32);
    EXPECT_EQ(QsIsValidSHA1(text.get()), length == 40);
    EXPECT_EQ(QsIsValidCRC32(text.get()), length == 8);
    EXPECT_FALSE(QsIsValidHex(text.get(), 1000));
  }
}

TEST(HexChecks, OneWrongCharacterAnywhere) {
  struct Check {
    std::size_t length;
    bool (*isValid)(const char*);
  };
  for (const Check& check : {Check{32, QsIsValidMD5}, Check{40, QsIsValidSHA1}, Check{8, QsIsValidCRC32}}) {
    EXPECT_FALSE(check.isValid(nullptr));
    for (std::size_t i = 0; i < check.length; ++i) {
      std::string text(check.length, 'F');
      EXPECT_TRUE(check.isValid(text.c_str()));
      text[i] = 'g';
      EXPECT_FALSE(check.isValid(text.c_str()));
    }
  }
}

}  // namespace
