// What the coders give when memory runs out at any of their allocations, and the digests of files when a file does not
// let itself be read: the whole result or the status, and nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <common/noise.h>
#include <common/tempdir.h>
#include <reliability/common/faults.h>
#include <reliability/common/sweep.h>

#include <QSbase/codec/binhex.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>

namespace {

using qsbase::testing::Blow;
using qsbase::testing::FaultKind;
using qsbase::testing::kDenied;
using qsbase::testing::kDeviceError;
using qsbase::testing::kNoMemory;
using qsbase::testing::kTooManyOpen;
using qsbase::testing::NoFaults;
using qsbase::testing::Noise;
using qsbase::testing::Outcome;
using qsbase::testing::TempDir;
using qsbase::testing::Trial;

const std::vector<Blow> kMemoryBlows = {{FaultKind::Allocate, kNoMemory, true}};
const std::vector<Blow> kReadBlows = {{FaultKind::Open, kTooManyOpen, true},
                                      {FaultKind::Open, kDenied, true},
                                      {FaultKind::Read, kDeviceError, true},
                                      {FaultKind::Allocate, kNoMemory, true}};

constexpr int kBase64 = 0x1;
constexpr int kQP = 0x2;
constexpr int kUU = 0x4;
constexpr int kXX = 0x8;
constexpr int kYEnc = 0x800;
constexpr int kArrayBuffers = 0x10000000;
constexpr int kStatusNoMemory = -3;

// Long enough for every buffer that grows to do so.
const std::string kData = Noise(300000) + ".";  // at its very end QP decodes no "=" with digits

std::string Coded(int encoding) {
  std::string text;
  CEncodeDecode(75, 76).Encode(kData, text, encoding);
  return text;
}

using Result = std::pair<int, std::string>;  // status, and what was given

// By the buffer form, which gives nothing after a failure.
template <class Code>
Result InBuffer(const std::string& input, int flags, Code code) {
  char* output = nullptr;
  unsigned int length = 0;
  const int status = code(input.data(), static_cast<unsigned int>(input.size()), &output, length);
  const NoFaults spared;
  const std::string result = output == nullptr ? std::string() : std::string(output, length);
  EXPECT_TRUE(status == 0 || (output == nullptr && length == 0));
  CEncodeDecode::FreeBuffer(output, flags);
  return {status, result};
}

void ExpectWholeOrNoMemory(const Outcome<Result>& outcome, const std::string& whole) {
  if (!outcome.hit) {
    ASSERT_TRUE(outcome.result.has_value());
    EXPECT_EQ(outcome.result->first, 0);
  }
  if (!outcome.result) {
    EXPECT_EQ(outcome.thrown, "std::bad_alloc");
  } else if (outcome.result->first == 0) {
    EXPECT_TRUE(outcome.result->second == whole) << outcome.result->second.size();
  } else {
    EXPECT_EQ(outcome.result->first, kStatusNoMemory);
    EXPECT_EQ(outcome.result->second, "");
  }
}

template <class Run>
void SweepMemory(const std::string& name, const std::string& whole, Run run) {
  Trial(
      name, [] {}, run, [&whole](const Outcome<Result>& outcome) { ExpectWholeOrNoMemory(outcome, whole); })
      .Sweep(kMemoryBlows);
}

class CoderFaults : public ::testing::TestWithParam<std::tuple<int, int>> {
 protected:
  const int _flags = std::get<0>(GetParam()) | std::get<1>(GetParam());
  const std::string _text = Coded(std::get<0>(GetParam()));
  CEncodeDecode _coder{75, 76};
};

TEST_P(CoderFaults, ABufferIsWholeOrThereIsNone) {
  SweepMemory("encoded into a buffer", _text, [this] {
    return InBuffer(kData, _flags, [this](const char* data, unsigned int size, char** output, unsigned int& length) {
      return _coder.Encode(data, 0, size, output, length, _flags);
    });
  });
  SweepMemory("decoded into a buffer", kData, [this] {
    return InBuffer(_text, _flags, [this](const char* data, unsigned int size, char** output, unsigned int& length) {
      return _coder.Decode(data, 0, size, output, length, _flags);
    });
  });
}

// Appending to it may throw instead.
TEST_P(CoderFaults, AStringIsWholeOrEmpty) {
  SweepMemory("encoded into a string", _text, [this] {
    Result coded;
    coded.first = _coder.Encode(kData, coded.second, _flags);
    return coded;
  });
  SweepMemory("decoded into a string", kData, [this] {
    Result coded;
    coded.first = _coder.Decode(_text, coded.second, _flags);
    return coded;
  });
}

INSTANTIATE_TEST_SUITE_P(All, CoderFaults,
                         ::testing::Combine(::testing::Values(kBase64, kQP, kUU, kXX, kYEnc),
                                            ::testing::Values(0, kArrayBuffers)),
                         [](const auto& tested) {
                           const std::string name = std::get<0>(tested.param) == kBase64 ? "Base64"
                                                    : std::get<0>(tested.param) == kQP   ? "QP"
                                                    : std::get<0>(tested.param) == kUU   ? "UU"
                                                    : std::get<0>(tested.param) == kXX   ? "XX"
                                                                                         : "YEnc";
                           return name + (std::get<1>(tested.param) == 0 ? "" : "Arrays");
                         });

TEST(BinHexFaults, TheDataForkIsWholeOrThereIsNone) {
  const std::string article = TempDir::Read(std::string(QS_TEST_EXAMPLES) + "/data/binhex-drawing.txt");
  const std::string text = article.substr(article.find("(This file must be converted with BinHex"));
  const auto decode = [](const char* data, unsigned int size, char** output, unsigned int& length) {
    CBinHexDecoder decoder;
    return decoder.Decode(data, size, output, length, 0);
  };
  const Result whole = InBuffer(text, 0, decode);
  ASSERT_EQ(whole.first, 0);
  Trial(
      "decoded from BinHex", [] {}, [&text, &decode] { return InBuffer(text, 0, decode); },
      [&whole](const Outcome<Result>& outcome) {
        ASSERT_TRUE(outcome.result.has_value()) << outcome.thrown;
        EXPECT_EQ(outcome.hit, outcome.result->first != 0) << outcome.result->first;
        EXPECT_TRUE(outcome.result->first != 0 || *outcome.result == whole);
      })
      .Sweep(kMemoryBlows);
}

// The digest of a file, or a status and what the text held.
template <class Calculate>
void SweepDigest(const std::string& name, const std::string& digest, Calculate calculate) {
  const TempDir dir;
  const std::string path = dir.Write("file", kData);
  Trial(
      name, [] {},
      [&] {
        Result result{0, "before"};
        result.first = calculate(path.c_str(), result.second);
        return result;
      },
      [&digest](const Outcome<Result>& outcome) {
        if (!outcome.result) {
          EXPECT_EQ(outcome.thrown, "std::bad_alloc");
          return;
        }
        const bool succeeded = outcome.result->first == 0;
        EXPECT_TRUE(succeeded || outcome.hit);
        EXPECT_EQ(outcome.result->second, succeeded ? digest : "before");
      })
      .Sweep(kReadBlows);
}

TEST(DigestFaults, AFileThatBreaksOffHasNone) {
  SweepDigest("MD5 of a file", QsCalcMD5(kData.data(), static_cast<unsigned int>(kData.size())),
              [](const char* path, std::string& hex) { return CalcMD5(path, hex); });
  const TempDir dir;
  const std::string hmac = CalcHMAC_MD5(dir.Write("file", kData).c_str());
  ASSERT_EQ(hmac.size(), 32U);
  SweepDigest("HMAC-MD5 of a file", hmac, [](const char* path, std::string& hex) { return CalcHMAC_MD5(path, hex); });
}

}  // namespace
