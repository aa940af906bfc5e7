// The encoded texts come from sharutils 4.15.2 (UU, begin-base64), Python (Base64, CRC-32, MD5, CRC-16) and the yEnc
// and XX alphabets themselves; the articles of examples/data from the tools that its README names.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <common/tempdir.h>

#include "attachment.h"
#include "store.h"
#include "table.h"

namespace {

using qs::Attachment;
using qs::Encoding;
using qs::ExtractAttachments;
using qs::FindEncodedBlocks;
using qsbase::testing::TempDir;

const std::string kUuCat = "begin 644 cat.txt\n#0V%T\n`\nend\n";
const std::string kYEncAbc = "=ybegin line=128 size=3 name=abc.bin\r\n\x8B\x8C\x8D\r\n=yend size=3 crc32=352441c2\r\n";
const std::string kBinHex =
    "(This file must be converted with BinHex 4.0)\r\n\r\n"
    ":#@KPE'a[,R4iG!\"849K8G(4iG!!!!!!!&J!!!!\"+NNKPE'a[,#\"#D@j)CAJJN!!\r\nJGfpbE'3+[SJ!!!:\r\n";
const std::string kBinHexData = "Hello, BinHex \x90 world\n";

Attachment Only(const std::vector<Attachment>& found) {
  EXPECT_EQ(found.size(), 1U);
  return found.empty() ? Attachment() : found.front();
}

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  const std::size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return at == std::string::npos ? text : text.replace(at, what.size(), with);
}

TEST(Blocks, Uu) {
  const Attachment found = Only(FindEncodedBlocks("prose\n" + kUuCat + "more prose\n"));
  EXPECT_EQ(found.encoding, Encoding::UU);
  EXPECT_EQ(found.name, "cat.txt");
  EXPECT_EQ(found.data, "Cat");
  EXPECT_EQ(found.problem, "");
}

TEST(Blocks, UuDamage) {
  EXPECT_EQ(Only(FindEncodedBlocks("begin 644 cat.txt\n#0V%T\n`\n")).problem, "the end is missing") << "no end";
  EXPECT_EQ(Only(FindEncodedBlocks("begin 644 cat.txt\n#0V%T\nend\n")).problem, "the end is missing")
      << "no terminator line";
  EXPECT_NE(Only(FindEncodedBlocks("begin 644 cat.txt\n#0V%T\n#0V\n`\nend\n")).problem, "") << "a line cut short";
  EXPECT_NE(Only(FindEncodedBlocks("begin 644 cat.txt\n#0V%\x7f\n`\nend\n")).problem, "") << "a foreign character";
}

TEST(Blocks, UuOfPythonWithBlanksForZero) {
  const std::string text =
      "begin 600 d.bin\nM  $\" P0%!@<(\"0H+# T.#Q 1$A,4%187&!D:&QP='A\\@(2(C)\"4F)R@I*BLL\n/+2XO,#$R,S0U-C<X.3H[\n "
      "\nend\n";
  const Attachment found = Only(FindEncodedBlocks(text));
  EXPECT_EQ(found.problem, "");
  std::string expected;
  for (char c = 0; c < 60; ++c) {
    expected += c;
  }
  EXPECT_EQ(found.data, expected);
}

TEST(Blocks, EmptyUuFile) {
  const Attachment found = Only(FindEncodedBlocks("begin 644 empty\n`\nend\n"));
  EXPECT_EQ(found.name, "empty");
  EXPECT_EQ(found.data, "");
  EXPECT_EQ(found.problem, "");
}

TEST(Blocks, Xx) {
  const Attachment found = Only(FindEncodedBlocks("begin 644 cat.txt\r\n1Eq3o\r\n+\r\n\r\nend\r\n"));
  EXPECT_EQ(found.encoding, Encoding::XX);
  EXPECT_EQ(found.data, "Cat");
  EXPECT_EQ(found.problem, "");
}

TEST(Blocks, ProseIsNoBlock) {
  EXPECT_TRUE(FindEncodedBlocks("begin 100 times over\nand then stop\nend\n").empty());
  EXPECT_TRUE(FindEncodedBlocks("begin 644\n#0V%T\n`\nend\n").empty()) << "no name";
  EXPECT_TRUE(FindEncodedBlocks("beginning\n=yend size=3\n(This file\n").empty());
  EXPECT_TRUE(FindEncodedBlocks("").empty());
}

TEST(Blocks, BeginBase64) {
  Attachment found = Only(FindEncodedBlocks("begin-base64 644 cat.txt\nQ2F0\n====\n"));
  EXPECT_EQ(found.encoding, Encoding::Base64);
  EXPECT_EQ(found.name, "cat.txt");
  EXPECT_EQ(found.data, "Cat");
  EXPECT_EQ(found.problem, "");
  found = Only(FindEncodedBlocks("begin-base64-encoded 644 YSBiLnR4dA==\nQ2F0\n====\n"));
  EXPECT_EQ(found.name, "a b.txt");
  EXPECT_EQ(Only(FindEncodedBlocks("begin-base64 644 cat.txt\nQ2F0\n")).problem, "the end is missing");
}

TEST(Blocks, YEnc) {
  const Attachment found = Only(FindEncodedBlocks(kYEncAbc));
  EXPECT_EQ(found.encoding, Encoding::YEnc);
  EXPECT_EQ(found.name, "abc.bin");
  EXPECT_EQ(found.data, "abc");
  EXPECT_EQ(found.problem, "");
  EXPECT_FALSE(found.part);
}

TEST(Blocks, YEncDamage) {
  struct Case {
    const char* why;
    const char* what;
    const char* with;
  };
  const Case cases[] = {{"a byte changed", "\x8B", "\x8A"},
                        {"a byte lost", "\x8B", ""},
                        {"another size in the trailer", "=yend size=3", "=yend size=4"},
                        {"another size in the header", "128 size=3", "128 size=4"},
                        {"no size in the trailer", "=yend size=3", "=yend"},
                        {"another CRC", "352441c2", "352441c3"},
                        {"a CRC that is none", "352441c2", "z"},
                        {"the trailer is missing", "=yend", "=yemd"}};
  for (const Case& test : cases) {
    const Attachment found = Only(FindEncodedBlocks(Replaced(kYEncAbc, test.what, test.with)));
    EXPECT_NE(found.problem, "") << test.why;
    EXPECT_EQ(found.name, "abc.bin") << test.why;
  }
}

TEST(Blocks, YEncWithoutCrcIsCheckedBySize) {
  EXPECT_EQ(Only(FindEncodedBlocks(Replaced(kYEncAbc, " crc32=352441c2", ""))).problem, "");
}

// CRC-32 of "x3238388" is 00000191.
TEST(Blocks, YEncCrcWithoutLeadingZeros) {
  std::string data;
  for (const char c : std::string("x3238388")) {
    data += static_cast<char>(c + 42);
  }
  const std::string text = "=ybegin line=128 size=8 name=a\r\n" + data + "\r\n=yend size=8 crc32=191\r\n";
  EXPECT_EQ(Only(FindEncodedBlocks(text)).problem, "");
  EXPECT_NE(Only(FindEncodedBlocks(Replaced(text, "=191", "=192"))).problem, "");
}

TEST(Blocks, YEncPart) {
  const std::string text =
      "=ybegin part=2 total=2 line=128 size=6 name=a b.bin\r\n=ypart begin=4 end=6\r\n\x8E\x8F\x90\r\n"
      "=yend size=3 part=2 pcrc32=0cc4e161 crc32=4b8e39ef\r\n";
  const Attachment found = Only(FindEncodedBlocks(text));
  EXPECT_EQ(found.problem, "");
  EXPECT_EQ(found.name, "a b.bin");
  EXPECT_EQ(found.data, "def");
  ASSERT_TRUE(found.part);
  EXPECT_EQ(found.part->number, 2);
  EXPECT_EQ(found.part->total, 2);
  EXPECT_EQ(found.part->begin, 4U);
  EXPECT_EQ(found.part->end, 6U);
  EXPECT_EQ(found.part->size, 6U);
  EXPECT_EQ(found.part->fileCrc, "4B8E39EF");
  EXPECT_NE(Only(FindEncodedBlocks(Replaced(text, "0cc4e161", "0cc4e162"))).problem, "");
  EXPECT_NE(Only(FindEncodedBlocks(Replaced(text, "begin=4", "begin=5"))).problem, "");
  EXPECT_NE(Only(FindEncodedBlocks(Replaced(text, "begin=4 end=6", "begin=5 end=7"))).problem, "") << "past the size";
  EXPECT_NE(Only(FindEncodedBlocks(Replaced(text, "begin=4 end=6", "begin=0 end=2"))).problem, "");
  EXPECT_EQ(Only(FindEncodedBlocks(Replaced(text, "pcrc32=0cc4e161 crc32=4b8e39ef", "crc32=4b8e39ef"))).problem, "")
      << "the CRC of the whole file says nothing about the part";
  EXPECT_EQ(Only(FindEncodedBlocks(Replaced(text, "pcrc32=0cc4e161 crc32=4b8e39ef", "crc32=4b8e39ef pcrc32=0cc4e161")))
                .problem,
            "")
      << "the other order";
}

TEST(Blocks, BinHex) {
  const Attachment found = Only(FindEncodedBlocks("prose\r\n\r\n" + kBinHex + "prose: more\r\n"));
  EXPECT_EQ(found.encoding, Encoding::BinHex);
  EXPECT_EQ(found.name, "hello.txt");
  EXPECT_EQ(found.data, kBinHexData);
  EXPECT_EQ(found.problem, "");
}

TEST(Blocks, BinHexDamage) {
  EXPECT_NE(Only(FindEncodedBlocks(Replaced(kBinHex, "!!!:", "!!!"))).problem, "") << "the colon is missing";
  EXPECT_EQ(Only(FindEncodedBlocks(Replaced(kBinHex, "[SJ", "[SN"))).problem, "CRC-16 mismatch") << "in the CRC";
  EXPECT_EQ(Only(FindEncodedBlocks(Replaced(kBinHex, "JGfpb", "JGfpc"))).problem, "CRC-16 mismatch") << "in the data";
  EXPECT_NE(Only(FindEncodedBlocks(Replaced(kBinHex, "JGfpb", "JG.pb"))).problem, "") << "outside the alphabet";
}

TEST(Blocks, SeveralInOneText) {
  const std::vector<Attachment> found =
      FindEncodedBlocks("a\n" + kUuCat + "b\n" + kYEncAbc + kYEncAbc + kBinHex + kUuCat);
  ASSERT_EQ(found.size(), 5U);
  const Encoding expected[] = {Encoding::UU, Encoding::YEnc, Encoding::YEnc, Encoding::BinHex, Encoding::UU};
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(found[i].encoding, expected[i]);
    EXPECT_EQ(found[i].problem, "");
  }
}

TEST(Blocks, ACutBlockDoesNotSwallowTheNext) {
  std::string cut = kYEncAbc.substr(0, kYEncAbc.find("=yend"));
  std::vector<Attachment> found = FindEncodedBlocks(cut + kYEncAbc);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].problem, "the end is missing");
  EXPECT_EQ(found[1].problem, "");
  found = FindEncodedBlocks("begin 644 cut.txt\n#0V%T\n" + kUuCat);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].problem, "the end is missing");
  EXPECT_EQ(found[1].data, "Cat");
  EXPECT_EQ(found[1].problem, "");
}

// Each takes memory by itself: 25 times as much as these lines.
TEST(Blocks, MoreThanTenThousandAreReportedNotRead) {
  std::string text;
  for (int i = 0; i < 10000; ++i) {
    text += "begin 644 a\n`\nend\n";
  }
  EXPECT_EQ(FindEncodedBlocks(text + "some prose").size(), 10000U);
  const std::vector<Attachment> found = FindEncodedBlocks(text + text);
  ASSERT_EQ(found.size(), 10001U);
  EXPECT_EQ(found[9999].name, "a");
  EXPECT_EQ(found[9999].problem, "");
  EXPECT_EQ(found[10000].encoding, Encoding::None);
  EXPECT_EQ(found[10000].problem, "more parts or attachments than are looked at");
}

TEST(Extract, WhatAnArticleHasTooMuchOfIsReported) {
  const std::string part = "--b\nContent-Disposition: attachment; filename=a\n\nx\n";
  const std::string block = "--b\n\nbegin 644 a\n`\nend\nbegin 644 b\n`\nend\n";
  for (const std::string& each : {part, block}) {
    std::string article = "Content-Type: multipart/mixed; boundary=b\n\n";
    for (int i = 0; i < 10001; ++i) {
      article += each;
    }
    const std::vector<Attachment> found = ExtractAttachments(article + "--b--\n", "post.txt");
    EXPECT_LE(found.size(), 10003U);
    EXPECT_EQ(found.back().problem, "more parts or attachments than are looked at");
  }
}

TEST(Base64, WholeTexts) {
  EXPECT_EQ(qs::DecodeBase64Text("Q2F0").data, "Cat");
  EXPECT_EQ(qs::DecodeBase64Text(" Q2\r\nF0 \t\r\n").problem, "") << "breaks and blanks do not matter";
  EXPECT_EQ(qs::DecodeBase64Text("Q2E=\r\n").data, "Ca");
  EXPECT_EQ(qs::DecodeBase64Text("Q2E=\r\n").problem, "");
  EXPECT_EQ(qs::DecodeBase64Text("Qw==").problem, "");
  EXPECT_EQ(qs::DecodeBase64Text("").problem, "");
  EXPECT_EQ(qs::DecodeBase64Text("Q2*F0").problem, "1 character outside the alphabet");
  EXPECT_EQ(qs::DecodeBase64Text("Q2E").problem, "the last group is incomplete") << "padding lost";
  EXPECT_EQ(qs::DecodeBase64Text("Q2F0Q").problem, "the last group is incomplete");
  EXPECT_EQ(qs::DecodeBase64Text("Q2E=Q2E=").problem, "more text behind the padding");
}

TEST(UU, BeginLinesWithoutDataTakeNoQuadraticTime) {
  std::string text;
  for (int i = 0; i < 200000; ++i) {
    text += "begin 644 x\n";
  }
  EXPECT_TRUE(qs::FindEncodedBlocks(text).empty());
}

TEST(QuotedPrintable, WholeTexts) {
  const auto decode = [](const char* text) { return qs::DecodeQuotedPrintableText(text); };
  EXPECT_EQ(decode("a=20b").data, "a b");
  EXPECT_EQ(decode("a=41").data, "aA") << "an escape at the very end";
  EXPECT_EQ(decode("a=41").problem, "");
  EXPECT_EQ(decode("a=\nb").data, "ab");
  EXPECT_EQ(decode("a=\r\nb\r\n").data, "ab\r\n");
  EXPECT_EQ(decode("a=\n\nb").data, "a\nb") << "only the soft break goes, not the empty line behind it";
  EXPECT_EQ(decode("a=\r\n\r\nb").data, "a\r\nb");
  EXPECT_EQ(decode("a=  \nb  \nc").data, "ab\nc") << "blanks at the end of a line are none of the text";
  EXPECT_EQ(decode("a\nb=").data, "a\nb") << "a soft break without a line behind it";
  EXPECT_EQ(decode("=G3").problem, "1 escape without hex digits");
  EXPECT_EQ(decode("").problem, "");
}

TEST(BareBase64, Recognition) {
  const std::string line(76, 'Q');
  EXPECT_TRUE(qs::IsBareBase64(line + "\r\n" + line + "\r\nQUI=\r\n"));
  EXPECT_TRUE(qs::IsBareBase64(line + "\n" + line));
  EXPECT_TRUE(qs::IsBareBase64(line.substr(0, 75) + "="));
  EXPECT_FALSE(qs::IsBareBase64(line)) << "one line without padding may be any word";
  EXPECT_FALSE(qs::IsBareBase64("QUI="));
  EXPECT_FALSE(qs::IsBareBase64(line + "\nQUI\n")) << "no multiple of four";
  EXPECT_FALSE(qs::IsBareBase64(line + "\nQUI=\n" + line)) << "a short line in the middle";
  EXPECT_FALSE(qs::IsBareBase64(line + "\n\n" + line));
  EXPECT_FALSE(qs::IsBareBase64(line + "\n" + line + "QUJD\n")) << "a longer line";
  EXPECT_FALSE(qs::IsBareBase64(line + "\nplain text here\n"));
  const std::string digest = "d41d8cd98f00b204e9800998ecf8427ed41d8cd9";
  EXPECT_FALSE(qs::IsBareBase64(digest + "\n" + digest + "\n")) << "a list of digests";
  EXPECT_FALSE(qs::IsBareBase64(""));
}

TEST(Extract, NothingInPlainContent) {
  EXPECT_TRUE(ExtractAttachments("", "a").empty());
  EXPECT_TRUE(ExtractAttachments("plain text\n", "a.txt").empty());
  EXPECT_TRUE(ExtractAttachments("Subject: a\nFrom: b\n\nplain mail\n", "a.eml").empty());
  EXPECT_TRUE(ExtractAttachments(std::string(1000, '\0'), "a.bin").empty());
}

TEST(Extract, NamesWhatHasNoName) {
  const std::string mail = "Content-Type: application/pdf\nContent-Transfer-Encoding: base64\n\nQ2F0\n";
  EXPECT_EQ(Only(ExtractAttachments(mail, "post.eml")).name, "post.pdf");
  EXPECT_EQ(Only(ExtractAttachments("begin-base64 644 x\nQ2F0\n====\n", "post.txt")).name, "x");
  EXPECT_EQ(Only(ExtractAttachments("Q2F0", "photo.png.b64")).name, "photo.png");
  EXPECT_EQ(Only(ExtractAttachments("Q2F0", "photo.b64")).name, "photo.bin");
  EXPECT_EQ(Only(ExtractAttachments("#0V%T\n`\n", "photo.uue")).data, "Cat");
}

TEST(Extract, BlockInACodedMessage) {
  // printf 'begin 644 cat.txt\n#0V%%T\n`\nend\n' | base64
  const std::string mail =
      "Content-Type: text/plain\nContent-Transfer-Encoding: base64\n\nYmVnaW4gNjQ0IGNhdC50eHQKIzBWJVQKYAplbmQK\n";
  const Attachment found = Only(ExtractAttachments(mail, "post.eml"));
  EXPECT_EQ(found.encoding, Encoding::UU);
  EXPECT_EQ(found.data, "Cat");
}

TEST(Extract, OnlyAttachmentsOfAMultipart) {
  const std::string mail =
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Transfer-Encoding: quoted-printable\n\nhello=20\n"
      "--b\nContent-Type: text/html\n\n<p>\n--b\nContent-Type: text/plain; name=note.txt\n\nplain note\n"
      "--b\nContent-Type: image/png\nContent-Transfer-Encoding: base64\n\nQ2F0\n--b\n\n" +
      kUuCat + "--b--\n";
  const std::vector<Attachment> found = ExtractAttachments(mail, "post.eml");
  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].name, "note.txt");
  EXPECT_EQ(found[0].data, "plain note");
  EXPECT_EQ(found[0].encoding, Encoding::None);
  EXPECT_EQ(found[1].name, "post.png");
  EXPECT_EQ(found[2].name, "cat.txt");
}

TEST(Extract, DamageSeenByTheArticle) {
  const std::string cut =
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: image/png; name=a.png\n"
      "Content-Transfer-Encoding: base64\n\nQ2F0\n";
  EXPECT_EQ(Only(ExtractAttachments(cut, "post.eml")).problem, "the closing boundary is missing");
  const std::string mail =
      "Content-Type: image/png; name=a.png\nContent-Transfer-Encoding: base64\n"
      "Content-MD5: lvMKUpLHYAnmLvt67uj79g==\n\nSGVsbG8sIGF0dGFjaG1lbnQK\n";
  EXPECT_EQ(Only(ExtractAttachments(mail, "post.eml")).problem, "");
  EXPECT_EQ(Only(ExtractAttachments(Replaced(mail, "SGVs", "SGVt"), "post.eml")).problem, "MD5 mismatch (Content-MD5)");
}

TEST(Extract, NntpAnswerWithDots) {
  // "..." in front of a line of data stands for ".."
  const std::string text = "222 0 <a@b>\r\n=ybegin line=128 size=4 name=a\r\n..abc\r\n=yend size=4\r\n.\r\n";
  const Attachment found = Only(ExtractAttachments(text, "a"));
  EXPECT_EQ(found.problem, "");
  EXPECT_EQ(found.data, std::string({'.' - 42, 'a' - 42, 'b' - 42, 'c' - 42}));
}

TEST(Extract, HostileTextsDoNoHarm) {
  for (const std::string& text : {kUuCat, kYEncAbc, kBinHex}) {
    for (std::size_t length = 0; length <= text.size(); ++length) {
      for (const Attachment& found : ExtractAttachments(text.substr(0, length), "a")) {
        EXPECT_LE(found.data.size(), text.size());
      }
      std::string changed = text;
      if (length < text.size()) {
        changed[length] = static_cast<char>(changed[length] ^ 0x55);
        ExtractAttachments(changed, "a.uue");
      }
    }
  }
}

// digest  bytes  article  file name
struct Expected {
  std::string md5;
  std::string bytes;
  std::string name;
};

std::multimap<std::string, Expected> ReadExpected() {
  std::multimap<std::string, Expected> expected;
  std::ifstream list(QS_TEST_EXAMPLES "/data.md5");
  for (std::string line; std::getline(list, line);) {
    std::istringstream fields(line);
    Expected entry;
    std::string article;
    fields >> entry.md5 >> entry.bytes >> article >> std::ws;
    std::getline(fields, entry.name);
    expected.emplace(article, entry);
  }
  return expected;
}

TEST(Examples, EveryArticleGivesWhatItsMakerPutIn) {
  const auto expected = ReadExpected();
  ASSERT_FALSE(expected.empty());
  for (auto it = expected.begin(); it != expected.end(); it = expected.upper_bound(it->first)) {
    const std::string& article = it->first;
    if (article.find("-1of3") != std::string::npos) {
      continue;  // one part is no file
    }
    const auto found = ExtractAttachments(TempDir::Read(QS_TEST_EXAMPLES "/data/" + article), article);
    ASSERT_EQ(found.size(), expected.count(article)) << article;
    auto wanted = it;
    for (const Attachment& attachment : found) {
      EXPECT_EQ(attachment.problem, "") << article;
      qs::Outcome outcome;
      qs::SetFigures(outcome, attachment.data);
      EXPECT_EQ(outcome.md5, wanted->second.md5) << article;
      EXPECT_EQ(outcome.bytes, wanted->second.bytes) << article;
      if (!wanted->second.name.empty()) {
        EXPECT_EQ(attachment.name, wanted->second.name) << article;
      }
      ++wanted;
    }
  }
}

TEST(Examples, EveryDamagedArticleIsReported) {
  int looked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(QS_TEST_EXAMPLES "/data")) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("damaged-", 0) != 0) {
      continue;
    }
    ++looked;
    const auto found = ExtractAttachments(TempDir::Read(entry.path().string()), name);
    ASSERT_FALSE(found.empty()) << name;
    const bool isLonePart = found.front().part && found.front().part->number != 1;
    EXPECT_TRUE(!found.front().problem.empty() || isLonePart) << name;
  }
  EXPECT_GT(looked, 0);
}

}  // namespace
