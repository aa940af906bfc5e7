#include <gtest/gtest.h>

#include <string>

#include "article.h"
#include "mimename.h"

namespace {

using qs::ArticlePart;
using qs::ParseArticle;
using qs::Transfer;

TEST(MimeName, ParameterForms) {
  struct Case {
    const char* why;
    const char* field;
    const char* expected;
  };
  const Case cases[] = {
      {"plain", "attachment; filename=a.txt", "a.txt"},
      {"quoted", "attachment; filename=\"a b;c.txt\"", "a b;c.txt"},
      {"quoted pair", "attachment; filename=\"a\\\"b\\\\c\"", "a\"b\\c"},
      {"blanks around", "attachment ;  FileName = \"a.txt\" ; size=3", "a.txt"},
      {"comment", "attachment; filename=a.txt (a; comment)", "a.txt"},
      {"extended", "attachment; filename*=utf-8'en'Gr%C3%BC%c3%9fe.txt", "Grüße.txt"},
      {"extended, another charset", "attachment; filename*=iso-8859-1''Gr%FC%DFe.txt", "Grüße.txt"},
      {"Windows' quotes", "attachment; filename*=windows-1252''%84a%93", "„a“"},
      {"extended without charset", "attachment; filename*=a%20b", "a b"},
      {"continued", "attachment; filename*0=\"long-\"; filename*1=name.txt", "long-name.txt"},
      {"continued out of order", "attachment; filename*1=b; filename*0=a", "ab"},
      {"continued with a gap", "attachment; filename*0=a; filename*2=c", "a"},
      {"continued and extended", "attachment; filename*0*=utf-8''%C3; filename*1*=%BC; filename*2=%41", "ü%41"},
      {"extended beats plain", "attachment; filename=x; filename*=utf-8''y", "y"},
      {"extended beats plain, other order", "attachment; filename*=utf-8''y; filename=x", "y"},
      {"no value", "attachment; filename", ""},
      {"empty value", "attachment; filename=", ""},
      {"open quote", "attachment; filename=\"a.txt", "a.txt"},
      {"escape cut at the end", "attachment; filename*=utf-8''a%4", "a%4"},
  };
  for (const Case& test : cases) {
    const qs::FieldValue value = qs::ParseFieldValue(test.field);
    EXPECT_EQ(value.value, "attachment") << test.why;
    EXPECT_EQ(value.Parameter("filename"), test.expected) << test.why;
  }
}

TEST(MimeName, FieldWithoutParameters) {
  EXPECT_EQ(qs::ParseFieldValue(" Text/PLAIN ").value, "text/plain");
  EXPECT_EQ(qs::ParseFieldValue("").value, "");
  EXPECT_EQ(qs::ParseFieldValue("text/plain;").Parameter("charset"), "");
}

// The words were made with Python's email.header.
TEST(MimeName, ParametersBeyondFourThousandAreLeftOut) {
  std::string field = "a/b";
  for (int i = 0; i < 3999; ++i) {
    field += ";x" + std::to_string(i) + "=";
  }
  const qs::FieldValue value = qs::ParseFieldValue(field + ";last=1;behind=2");
  EXPECT_EQ(value.parameters.size(), 4000U);
  EXPECT_EQ(value.Parameter("last"), "1");
  EXPECT_EQ(value.Parameter("behind"), "");
}

TEST(MimeName, EncodedWords) {
  EXPECT_EQ(qs::DecodeWords("=?iso-8859-1?q?Gr=F6=DFe_=DCbersicht?="), "Größe Übersicht");
  EXPECT_EQ(qs::DecodeWords("=?utf-8?b?R3LDtsOfZQ==?="), "Größe");
  EXPECT_EQ(qs::DecodeWords("a =?utf-8?Q?b?= c"), "a b c");
  EXPECT_EQ(qs::DecodeWords("=?utf-8?Q?a?= \t =?utf-8?Q?b?="), "ab") << "blanks between encoded words vanish";
  EXPECT_EQ(qs::DecodeWords("=?utf-8?Q?a=20?=  b"), "a   b") << "other blanks stay";
  EXPECT_EQ(qs::DecodeWords("=?utf-8*en?Q?=C3=BC?="), "ü") << "with a language";
  EXPECT_EQ(qs::DecodeWords("=?utf-8?Q?a=0D?= b =?utf-8?Q?c=0D=0A?="), "a\r b c\r\n") << "a break at the end stays";
  EXPECT_EQ(qs::DecodeWords("=?utf-8?Q?a_?=b"), "a b");
  EXPECT_EQ(qs::DecodeWords("=?utf-8?Q?a=?=b"), "a=b") << "half an escape stays";
}

TEST(MimeName, WhatIsNoEncodedWordStays) {
  for (const char* text : {"", "=?", "=?utf-8", "=?utf-8?", "=?utf-8?Q", "=?utf-8?Q?abc", "=?utf-8?X?abc?=", "a=b?c"}) {
    EXPECT_EQ(qs::DecodeWords(text), text);
  }
}

TEST(MimeName, BeginningsWithoutEndsTakeNoQuadraticTime) {
  std::string text;
  for (int i = 0; i < 100000; ++i) {
    text += "=?a?Q? ";
  }
  EXPECT_EQ(qs::DecodeWords(text), text);
}

TEST(Article, SinglePart) {
  const std::string text =
      "Subject: =?utf-8?B?R3LDtsOfZQ==?=\r\nMIME-Version: 1.0\r\nContent-Type: application/pdf;\r\n\tname=\"a "
      "b.pdf\"\r\n"
      "Content-Transfer-Encoding: BASE64\r\nContent-Disposition: attachment\r\n\r\nQUJD\r\n";
  const auto article = ParseArticle(text);
  ASSERT_TRUE(article);
  EXPECT_EQ(article->subject, "Größe");
  ASSERT_EQ(article->parts.size(), 1U);
  const ArticlePart& part = article->parts[0];
  EXPECT_EQ(part.mediaType, "application/pdf");
  EXPECT_EQ(part.fileName, "a b.pdf");
  EXPECT_TRUE(part.attachment);
  EXPECT_EQ(part.transfer, Transfer::Base64);
  EXPECT_EQ(part.body, "QUJD\r\n");
  EXPECT_TRUE(part.complete);
}

TEST(Article, WhatIsNoArticle) {
  EXPECT_FALSE(ParseArticle(""));
  EXPECT_FALSE(ParseArticle("just text\n"));
  EXPECT_FALSE(ParseArticle("\nSubject: a\nFrom: b\n\nbody"));
  EXPECT_FALSE(ParseArticle("Subject: a\n\nbody")) << "one common word and a colon are no article";
  EXPECT_FALSE(ParseArticle("Subject: a\nFrom: b\nprose begins at once\n\n"));
  EXPECT_FALSE(ParseArticle("key: value\nother: value\n\nbody"));
  EXPECT_FALSE(ParseArticle(std::string("\x89PNG\r\n\x1a\n\0\0", 10)));
}

TEST(Article, HeaderForms) {
  EXPECT_TRUE(ParseArticle("Subject: a\nFrom: b\n\nbody")) << "LF only";
  EXPECT_TRUE(ParseArticle("Subject: a\r\nFrom: b")) << "no body at all";
  EXPECT_TRUE(ParseArticle("Message-ID: <a@b>\n\n"));
  const auto mailbox = ParseArticle("From ada Sat Nov 21\nSubject: a\nFrom: b\n\nbody\n");
  ASSERT_TRUE(mailbox) << "the separator line of a mailbox file in front";
  EXPECT_EQ(mailbox->parts.at(0).body, "body\n");
  EXPECT_EQ(mailbox->parts.at(0).mediaType, "text/plain");
}

TEST(Article, OfEachHeaderTheFirstCounts) {
  const auto article = ParseArticle(
      "X: 1\n folded\nSubject: a\n b\nX: 2\nsubject: c\n d\nDate: e\nContent-Type: image/png;\n name=f\nX: 3\n ; "
      "name=g\n"
      "Content-Type: text/html\n\n");
  ASSERT_TRUE(article);
  EXPECT_EQ(article->subject, "a b");
  EXPECT_EQ(article->parts.at(0).mediaType, "image/png");
  EXPECT_EQ(article->parts.at(0).fileName, "f");
}

TEST(Article, EncodedWordInAParameter) {
  const auto article = ParseArticle("Content-Type: image/png; name=\"=?iso-8859-1?q?Gr=F6=DFe?=.png\"\n\nx");
  ASSERT_TRUE(article);
  EXPECT_EQ(article->parts.at(0).fileName, "Größe.png");
}

TEST(Article, DispositionNameBeatsTypeName) {
  const auto article = ParseArticle(
      "Content-Type: image/png; name=type.png\nContent-Disposition: inline; filename=disposition.png\n\nx");
  ASSERT_TRUE(article);
  EXPECT_EQ(article->parts.at(0).fileName, "disposition.png");
  EXPECT_FALSE(article->parts.at(0).attachment);
}

std::string Nested(const std::string& breaks) {
  std::string text =
      "Content-Type: multipart/mixed; boundary=\"outer one\"\n\npreamble\n--outer one\n\nhello\n\n--outer one  \n"
      "Content-Type: multipart/alternative; boundary=inner\n\n--inner\nContent-Type: text/html\n\n<p>\n"
      "--inner\nContent-Type: image/png; name=a.png\nContent-Transfer-Encoding: quoted-printable\n\nabc\n--inner--\n"
      "epilogue\n--outer one\nContent-Type: message/rfc822\n\nSubject: inside\nContent-Type: text/x-a\n\nforwarded\n"
      "--outer one--\nepilogue\n--outer one\n\nnot a part\n";
  for (std::size_t at = 0; breaks != "\n" && (at = text.find('\n', at)) != std::string::npos; at += breaks.size()) {
    text.replace(at, 1, breaks);
  }
  return text;
}

TEST(Article, NestedMultipart) {
  for (const std::string breaks : {"\n", "\r\n"}) {
    const std::string text = Nested(breaks);
    const auto article = ParseArticle(text);
    ASSERT_TRUE(article);
    ASSERT_EQ(article->parts.size(), 4U);
    EXPECT_EQ(article->parts[0].body, "hello" + breaks) << "the break in front of the boundary belongs to it";
    EXPECT_EQ(article->parts[1].mediaType, "text/html");
    EXPECT_EQ(article->parts[1].body, "<p>");
    EXPECT_EQ(article->parts[2].fileName, "a.png");
    EXPECT_EQ(article->parts[2].transfer, Transfer::QuotedPrintable);
    EXPECT_EQ(article->parts[3].mediaType, "text/x-a");
    EXPECT_EQ(article->parts[3].body, "forwarded");
    for (const ArticlePart& part : article->parts) {
      EXPECT_TRUE(part.complete);
    }
  }
}

TEST(Article, MissingClosingBoundary) {
  const auto article = ParseArticle(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b\nContent-Type: image/png\n\ntwo\nthree");
  ASSERT_TRUE(article);
  ASSERT_EQ(article->parts.size(), 2U);
  EXPECT_TRUE(article->parts[0].complete);
  EXPECT_FALSE(article->parts[1].complete);
  EXPECT_EQ(article->parts[1].body, "two\nthree");
}

TEST(Article, MultipartWithoutBoundaryIsOnePart) {
  const auto none = ParseArticle("Content-Type: multipart/mixed\n\nbody");
  ASSERT_TRUE(none);
  EXPECT_EQ(none->parts.at(0).body, "body");
  const auto absent = ParseArticle("Content-Type: multipart/mixed; boundary=b\n\nbody --b\n");
  ASSERT_TRUE(absent);
  EXPECT_EQ(absent->parts.at(0).body, "body --b\n");
}

TEST(Article, LongerBoundaryIsAnotherOne) {
  const auto article = ParseArticle("Content-Type: multipart/mixed; boundary=b\n\n--b\n\n--bb\n--b-\n--b--\n");
  ASSERT_TRUE(article);
  ASSERT_EQ(article->parts.size(), 1U);
  EXPECT_EQ(article->parts[0].body, "--bb\n--b-");
}

TEST(Article, DeepNestingEnds) {
  std::string text;
  for (int depth = 0; depth < 5000; ++depth) {
    text += "Content-Type: message/rfc822\n\n";
  }
  const auto article = ParseArticle(text);
  ASSERT_TRUE(article);
  EXPECT_EQ(article->parts.size(), 1U);
}

TEST(Article, SaysThatItsPartsAreTooDeep) {
  std::string text = "Content-Type: text/plain\n\nx";
  for (int depth = 0; depth < 20; ++depth) {
    const std::string boundary = "b" + std::to_string(depth);
    text = "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + "\n" + text + "\n--" +
           boundary + "--\n";
  }
  EXPECT_TRUE(ParseArticle(text)->complete);
  EXPECT_FALSE(ParseArticle("Content-Type: message/rfc822\n\n" + text)->complete);
}

TEST(Article, SaysThatItHasTooManyParts) {
  const std::string head = "Content-Type: multipart/mixed; boundary=b\n\n";
  std::string parts;
  for (int i = 0; i < 10000; ++i) {
    parts += "--b\n\nx\n";
  }
  const auto most = ParseArticle(head + parts + "--b--\n");
  EXPECT_TRUE(most->complete);
  EXPECT_EQ(most->parts.size(), 10000U);
  const std::string longer = head + parts + "--b\n\nthe rest\n--b--\n";
  const auto tooMany = ParseArticle(longer);
  EXPECT_FALSE(tooMany->complete);
  ASSERT_EQ(tooMany->parts.size(), 10001U);
  EXPECT_FALSE(tooMany->parts.back().complete);
  EXPECT_EQ(tooMany->parts.back().body, "the rest\n--b--\n");
}

TEST(Article, DigestPartsAreMessages) {
  const auto article = ParseArticle(
      "Content-Type: multipart/digest; boundary=b\n\n--b\n\nContent-Type: image/gif; name=a.gif\n\nx\n--b--\n");
  ASSERT_TRUE(article);
  EXPECT_EQ(article->parts.at(0).fileName, "a.gif");
}

TEST(Article, UnwrapsNntpAnswers) {
  std::string plain;
  ASSERT_TRUE(qs::UnwrapNntp("220 1 <a@b> article\r\nA: b\r\n\r\n..dot\r\n.x\r\nend\r\n.\r\nbehind\r\n", plain));
  EXPECT_EQ(plain, "A: b\r\n\r\n.dot\r\nx\r\nend\r\n");
  ASSERT_TRUE(qs::UnwrapNntp("222 0 <a@b>\r\nno terminator", plain));
  EXPECT_EQ(plain, "no terminator");
  EXPECT_FALSE(qs::UnwrapNntp("2200 is a number", plain));
  EXPECT_FALSE(qs::UnwrapNntp("Subject: a\r\n", plain));
}

}  // namespace
