#include <gtest/gtest.h>
#include <reference/binhex.h>

#include <string>

#include "agreement.h"
#include "inputs.h"

namespace qsbase::differential {
namespace {

const std::string kSpecials("!:\"7 \t\r\n\0~wgK\x7F\x80\xFF", 16);

std::string Data(Random& random, std::size_t size) {
  return random.OneIn(3) ? random.Bytes(size) : random.Runs(std::string("\x90\0\x90", 3), size);
}

reference::BinHexFile File(Random& random, std::size_t size) {
  reference::BinHexFile file;
  file.name = Data(random, random.OneIn(4) ? random.Below(256) : 5);
  file.type = static_cast<std::uint32_t>(random.Below(4000000000));
  file.creator = random.OneIn(4) ? 0x90909090 : 0x41424344;
  file.flags = static_cast<std::uint32_t>(random.Below(65536));
  file.data = Data(random, size);
  return file;
}

std::string Stream(Random& random, std::size_t size) {
  const std::string resource = random.OneIn(3) ? Data(random, random.Size()) : "";
  return reference::BinHexRuns(reference::BinHexStream(File(random, size), resource), 1 + random.Below(4));
}

std::string Text(Random& random, std::size_t size) {
  return reference::BinHexText(Stream(random, size), random.OneIn(3) ? 1 + random.Below(130) : 64);
}

TEST(DifferentialBinHex, TheReferenceReadsWhatAnotherEncoderWrote) {
  // Made by binhex of macutils 2.0b3, its first line replaced by the format's marker.
  const reference::BinHexFile file = reference::BinHexDecode(R"hqx((This file must be converted with BinHex 4.0)

:#(*eER-ZBQPZ!&4C8%9$8N9"!!!!!!6i!!!!!!f(!!%#!`3&"JF)#3S,$!d1$a!
4%K-8&4BA'"ND'a`G(KmJ)5)M*#8Q*bJT+LXX,5i[-$%b-c3e0MFi16Sl2$dq2d"
"3N0%48C(5%P+5da06Np389*69&9@9eKC@PYFA9jIB'&LBf4PCQGSD@TVE'eZEh"
aFR0dGAChH(PkHhapIRq!JB+$K)@'KiL*LSZ-MBk2N!#4NT18PCDAQ*QDQjbGRTq
JSD+MT+@QTkLTUUZXVDk[X,'bXl5eYVHiZEUl[,fq[m$"`X2%aFE(b-R+bmc0cXr
3dG,6e0A@epMCfY[FhGlIi1(Liq6PjZISkHVVl1hZlr$am[2dpIEhq2Rkqrcpr[p
KN2pKN#f3!*!!N!#3!*!!BT!!Bf0MC'53!!#3r`#3r`#3[Q9ZC&#!!!!:
)hqx",
                                                             false);
  EXPECT_EQ(file.status, 0);
  EXPECT_EQ(file.name, "runs.bin");
  EXPECT_EQ(file.data.size(), 1272u);
  EXPECT_EQ(file.data.substr(256, 301), std::string(300, 'a') + '\x90');
  EXPECT_EQ(file.data.substr(file.data.size() - 5), std::string("\0\0end", 5));
}

TEST(DifferentialBinHex, DecodesEverySizeAtEveryAlignment) {
  Random random(51);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareBinHexDecode(Text(random, size), random.OneIn(16), alignment);
  });
}

TEST(DifferentialBinHex, DecodesEveryByteAtEveryPlace) {
  Random random(52);
  EveryByteAtEveryPlace(Text(random, 120),
                        [&](const std::string& text) { return CompareBinHexDecode(text, false, random.Below(64)); });
}

TEST(DifferentialBinHex, DecodesWhatIsCutAnywhere) {
  Random random(53);
  CutEverywhere(Text(random, 700),
                [&](const std::string& text) { return CompareBinHexDecode(text, random.OneIn(4), random.Below(64)); });
}

TEST(DifferentialBinHex, DecodesDamagedTexts) {
  Random random(54);
  Times(60000, [&] {
    return CompareBinHexDecode(random.Damaged(Text(random, random.Size()), kSpecials, random.OneIn(2)),
                               random.OneIn(16), random.Below(64));
  });
}

TEST(DifferentialBinHex, DecodesDamagedStreams) {
  Random random(55);
  const std::string marks("\x90\0\x90\x01\x02\xFF", 6);
  Times(60000, [&] {
    const std::string stream = Stream(random, random.Size());
    const std::size_t header = 24 + static_cast<unsigned char>(stream[0]);
    const bool isHeaderSpared = stream.size() > header && !random.OneIn(4);
    const std::size_t spared = isHeaderSpared ? header : 0;
    const std::string damaged = stream.substr(0, spared) + random.Damaged(stream.substr(spared), marks);
    const std::string text = reference::BinHexText(damaged, 64);
    return CompareBinHexDecode(random.OneIn(3) ? random.Damaged(text, " \t\r\n!") : text, false, random.Below(64));
  });
}

TEST(DifferentialBinHex, LongInputs) {
  Random random(56);
  Times(6, [&] {
    const std::string text = Text(random, 65536 + random.Below(1000000));
    return CompareBinHexDecode(random.OneIn(2) ? random.Damaged(text, " \r\n\t", true) : text, false, random.Below(64));
  });
}

}  // namespace
}  // namespace qsbase::differential
