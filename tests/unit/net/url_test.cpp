#include <QSbase/net/url.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <boost/regex.hpp>

#include <common/logcapture.h>
#include <common/memorylimit.h>
#include <common/sanitized.h>

#ifdef QSBASE_TESTS_SANITIZED
// Boost.Regex hands its working memory from thread to thread by atomics in its own library, which ThreadSanitizer does
// not see. What is written there first is such a record, always.
extern "C" const char* __tsan_default_suppressions() { return "race:boost::re_detail_*::saved_\n"; }
#endif

using namespace std::string_literals;
using qsbase::testing::kNoLimit;
using qsbase::testing::largestAllocation;
using qsbase::testing::LogCapture;

namespace {

#ifdef QSBASE_TESTS_SANITIZED
constexpr int kRandomTexts = 20000;
#else
constexpr int kRandomTexts = 200000;
#endif

std::string Host(std::string host, unsigned int size = 64) {
  host.resize(64);
  EXPECT_TRUE(DecodeNumberFormatHostname(host.data(), size)) << host;
  return host.c_str();
}

// What CompressUrlPath leaves in a buffer of this size, with an end of its own.
std::string Path(const std::string& path, unsigned int size = 256) {
  std::vector<char> buffer(std::max<std::size_t>(size, path.size() + 1) + 1, '\xAA');
  std::copy(path.c_str(), path.c_str() + path.size() + 1, buffer.begin());
  CompressUrlPath(buffer.data(), size);
  EXPECT_EQ(buffer.back(), '\xAA') << "written beyond the buffer";
  const auto end = std::find(buffer.begin(), buffer.begin() + size, '\0');
  return {buffer.begin(), end};
}

struct Cracked {
  QsUrlComponents parts{};
  bool result = false;

  explicit Cracked(const std::string& url) { result = QsInternetCrackUrl(url.c_str(), parts); }
};

// The fields as one text, so that a failure shows all of them.
std::string Show(const QsUrlComponents& parts) {
  return std::to_string(parts.scheme) + "|" + parts.schemeName + "|" + parts.userName + "|" + parts.password + "|" +
         parts.hostName + "|" + std::to_string(parts.port) + "|" + parts.urlPath + "|" + parts.extraInfo + "|" +
         parts.siteUrl;
}

std::string Crack(const std::string& url) {
  const Cracked cracked(url);
  EXPECT_TRUE(cracked.result) << url;
  return Show(cracked.parts);
}

// A record without a single zero byte: whoever reads a text of it runs off its end.
QsUrlComponents Unterminated() {
  QsUrlComponents parts;
  std::memset(&parts, 'x', sizeof parts);
  return parts;
}

bool IsUntouched(const void* field, std::size_t size) {
  const auto* bytes = static_cast<const char*>(field);
  return std::all_of(bytes, bytes + size, [](char c) { return c == 'x'; });
}

// Texts of what URLs are made of, long enough for several of each.
class RandomTexts {
 public:
  explicit RandomTexts(std::vector<std::string> pieces) : _pieces(std::move(pieces)) {}

  std::string Next(std::size_t most = 14) {
    std::string text;
    for (std::size_t count = _random() % most; count > 0; --count) {
      text += _pieces[_random() % _pieces.size()];
    }
    return text;
  }

 private:
  std::vector<std::string> _pieces;
  std::mt19937 _random{20130213};  // NOLINT(cert-msc51-cpp): the same texts in every run
};

const std::vector<std::string> kUrlPieces = {"http", "://", ":", "/",    "//", "/",   ".",   "..",
                                             "?",    "#",   ";", "@",    "%",  "%41", "%2f", "%3F",
                                             "a",    "Bc",  "7", "0x1F", "\n", " ",   "-",   "\xE9"};

}  // namespace

// ---- UrlEncode ----

TEST(UrlEncode, EscapesAllButLettersAndDigits) {
  EXPECT_EQ(UrlEncode("a b-c"), "a%20b%2Dc");
  EXPECT_EQ(UrlEncode("-._~/"), "%2D%2E%5F%7E%2F");
  EXPECT_EQ(UrlEncode("AZaz09"), "AZaz09");
  EXPECT_EQ(UrlEncode("a+b"), "a%2Bb");
  EXPECT_EQ(UrlEncode(""), "");
  EXPECT_EQ(UrlEncode(nullptr), "");
}

TEST(UrlEncode, EveryByteIsAsTheFormatSays) {
  for (int byte = 1; byte < 256; ++byte) {
    const char text[] = {static_cast<char>(byte), '\0'};
    char escape[4];
    std::snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned int>(byte));
    const bool isPlain = byte < 128 && std::isalnum(byte) != 0;
    EXPECT_EQ(UrlEncode(text), isPlain ? text : escape) << byte;
    EXPECT_EQ(UrlDecode(UrlEncode(text).c_str()), text) << byte;
  }
}

// ---- UrlDecode ----

TEST(UrlDecode, TurnsEscapesIntoBytes) {
  EXPECT_EQ(UrlDecode("a%20b%2Dc%2d"), "a b-c-");
  EXPECT_EQ(UrlDecode("%E9%e9"), "\xE9\xE9");
  EXPECT_EQ(UrlDecode("a+b"), "a+b");
  EXPECT_EQ(UrlDecode("a%00b"), "a\0b"s);
  EXPECT_EQ(UrlDecode(""), "");
  EXPECT_EQ(UrlDecode(nullptr), "");
}

TEST(UrlDecode, CopiesWhatIsNoEscape) {
  EXPECT_EQ(UrlDecode("%"), "%");
  EXPECT_EQ(UrlDecode("a%4"), "a%4");
  EXPECT_EQ(UrlDecode("%zz1"), "%zz1");
  EXPECT_EQ(UrlDecode("%41%"), "A%");
  EXPECT_EQ(UrlDecode("%4g%g4"), "%4g%g4");
}

TEST(UrlDecode, ABadEscapeTakesTheTwoCharactersBehindItAlong) {
  EXPECT_EQ(UrlDecode("%%41"), "%%41");
  EXPECT_EQ(UrlDecode("%4%41"), "%4%41");
  EXPECT_EQ(UrlDecode("%%%41"), "%%%41");
  EXPECT_EQ(UrlDecode("%%%%41"), "%%%A");
}

namespace {

std::string SlowlyDecoded(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == '%' && i + 2 < text.size()) {
      const std::string pair = text.substr(i + 1, 2);
      const bool isHex = pair.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
      out += isHex ? std::string(1, static_cast<char>(std::stoi(pair, nullptr, 16))) : "%" + pair;
      i += 3;
    } else {
      out += text[i++];
    }
  }
  return out;
}

}  // namespace

TEST(UrlDecode, AgreesWithASlowReading) {
  RandomTexts texts({"%", "%4", "%41", "%e9", "4", "1", "g", "+", "\xFF", "F"});
  for (int i = 0; i < kRandomTexts; ++i) {
    const std::string text = texts.Next();
    ASSERT_EQ(UrlDecode(text.c_str()), SlowlyDecoded(text)) << text;
  }
}

// ---- DecodeNumberFormatHostname ----

TEST(DecodeNumberFormatHostname, WritesNumbersInDecimal) {
  EXPECT_EQ(Host("0x7F000001"), "127.0.0.1");
  EXPECT_EQ(Host("2130706433"), "127.0.0.1");
  EXPECT_EQ(Host("017700000001"), "127.0.0.1");
  EXPECT_EQ(Host("0x7f.1"), "127.1");
  EXPECT_EQ(Host("0X7F.0.0.1"), "127.0.0.1");
  EXPECT_EQ(Host("010.1"), "8.1");
  EXPECT_EQ(Host("1.2.3.4"), "1.2.3.4");
  EXPECT_EQ(Host("1..2"), "1.0.2");
  EXPECT_EQ(Host(".1"), "0.1");
  EXPECT_EQ(Host("256.1"), "256.1");
  EXPECT_EQ(Host("0"), "0.0.0.0");
}

TEST(DecodeNumberFormatHostname, LeavesNames) {
  for (const char* host : {"", ".", "..", "example.org", "h", "1.2.3.", "09.1", "1.2.3.4.5", "1x.2", "1.2.3.4x", "1.x2",
                           "0x.1", "x1", "www.1", "1.2.3.4 ", "[::1]", "\xB2.\xB2", "\xB2"}) {
    EXPECT_EQ(Host(host), host);
    EXPECT_EQ(Host(host, 1), host) << "the size does not matter";
  }
}

TEST(DecodeNumberFormatHostname, NumbersAreReadAsTheRuntimeReadsThem) {
  EXPECT_EQ(Host(" 1.2"), "1.2");
  EXPECT_EQ(Host("\t\n\v\f\r+1.2"), "1.2");
  EXPECT_EQ(Host("-1.2"), "4294967295.2");
  EXPECT_EQ(Host("-4294967295.2"), "1.2");
  EXPECT_EQ(Host("0x10.020.3"), "16.16.3");
  EXPECT_EQ(Host(" .1"), " .1") << "no number";
  EXPECT_EQ(Host("-.1"), "-.1") << "no number";
  EXPECT_EQ(Host("3com"), "0.0.0.3") << "what follows a single number is ignored";
  EXPECT_EQ(Host("09"), "0.0.0.0") << "an octal number ends at the 9";
  EXPECT_EQ(Host("0x"), "0.0.0.0") << "a zero, and an x behind it";
}

TEST(DecodeNumberFormatHostname, HugeNumbersStopAtThirtyTwoBits) {
  EXPECT_EQ(Host("4294967295"), "255.255.255.255");
  EXPECT_EQ(Host("4294967296"), "255.255.255.255");
  EXPECT_EQ(Host("0xFFFFFFFFF"), "255.255.255.255");
  EXPECT_EQ(Host("18446744073709551617"), "255.255.255.255") << "2^64 + 1";
  EXPECT_EQ(Host("1.99999999999999999999"), "1.4294967295");
  EXPECT_EQ(Host("-4294967296.1"), "4294967295.1");
  EXPECT_EQ(Host("0040000000000.1"), "4294967295.1") << "2^32";
}

TEST(DecodeNumberFormatHostname, NeedsSixteenBytes) {
  for (const char* number : {"0x7F000001", "1", "1.2", "1.2.3.4"}) {
    std::string host(number);
    EXPECT_FALSE(DecodeNumberFormatHostname(host.data(), 15)) << number;
    EXPECT_EQ(host, number) << "stays";
    EXPECT_EQ(Host(number, 16), Host(number)) << number;
  }
}

TEST(DecodeNumberFormatHostname, DoesNotWriteBeyondItsBuffer) {
  // 43 characters
  const std::string longest = "4294967295.4294967295.4294967295.4294967295";
  std::string host = "-1.-1.-1.-1";
  EXPECT_EQ(Host(host), host) << "the last part begins with no digit";
  host = "-1.-1.-1.037777777777";
  EXPECT_EQ(Host(host, 44), longest);
  host.resize(64);
  EXPECT_FALSE(DecodeNumberFormatHostname(host.data(), 43));
  EXPECT_STREQ(host.c_str(), "-1.-1.-1.037777777777");
  EXPECT_FALSE(DecodeNumberFormatHostname(nullptr, 64));
}

// ---- CompressUrlPath ----

TEST(CompressUrlPath, RemovesDotSegments) {
  EXPECT_EQ(Path("a/b/../c?x=/../"), "/a/c?x=/../");
  EXPECT_EQ(Path("../../x"), "/x");
  EXPECT_EQ(Path("/a/b"), "/a/b");
  EXPECT_EQ(Path("a"), "/a");
  EXPECT_EQ(Path("./././x"), "/x");
  EXPECT_EQ(Path("./../x"), "/x");
  EXPECT_EQ(Path("x/../../y"), "/../y");
  EXPECT_EQ(Path("a/b/../../c"), "/c");
  EXPECT_EQ(Path("a/b/.."), "/a/");
  EXPECT_EQ(Path("a/.."), "/");
  EXPECT_EQ(Path("/.."), "/..");
  EXPECT_EQ(Path("/"), "/");
  EXPECT_EQ(Path("..a/../b"), "/b");
  EXPECT_EQ(Path("?x"), "/?x");
  EXPECT_EQ(Path("?"), "/?");
  EXPECT_EQ(Path("\xE9/../\xFF"), "/\xFF");
}

TEST(CompressUrlPath, EachStepIsTakenOnce) {
  EXPECT_EQ(Path("a///b"), "/a//b");
  EXPECT_EQ(Path("a/././b"), "/a/./b");
  EXPECT_EQ(Path(".././././x"), "/./x") << "./ goes before ../";
  EXPECT_EQ(Path("a/b/."), "/a/b/.");
  EXPECT_EQ(Path("a/..b/../c"), "/a/..b/../c") << "ends at a longer name";
  EXPECT_EQ(Path("a/../b/..c/d/.."), "/b/..c/d/..");
  EXPECT_EQ(Path("a///../b"), "/a/b") << "an empty segment is one";
}

TEST(CompressUrlPath, FillsItsBufferWithoutAZero) {
  EXPECT_EQ(Path("abc", 5), "/abc");
  EXPECT_EQ(Path("abc", 4), "/abc");
  EXPECT_EQ(Path("abc", 3), "/ab");
  EXPECT_EQ(Path("a/b/../c", 4), "/a/c");
  EXPECT_EQ(Path("abc", 1), "/");
  char path[] = {'a', 'b', 'c', '\0', 'z'};
  CompressUrlPath(path, 4);
  EXPECT_EQ(std::string_view(path, sizeof path), "/abcz") << "no zero, and nothing behind the buffer";
}

TEST(CompressUrlPath, DoesNothingWithoutAPath) {
  CompressUrlPath(nullptr, 10);
  char path[] = "a/../b";
  CompressUrlPath(path, 0);
  EXPECT_STREQ(path, "a/../b");
  char empty[] = {'\0', 'z', '\0'};
  CompressUrlPath(empty, 3);
  EXPECT_EQ(std::string_view(empty, 3), "\0z\0"s);
}

namespace {

void ReplaceAll(std::string& text, const std::string& what, const std::string& with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
}

// By searching and erasing, from the beginning each time.
std::string SlowlyCompressed(std::string path) {
  if (path.empty()) {
    return path;
  }
  std::string query;
  if (const std::size_t mark = path.find('?'); mark != std::string::npos) {
    query = path.substr(mark);
    path.erase(mark);
  }
  ReplaceAll(path, "//", "/");
  ReplaceAll(path, "/./", "/");
  for (const char* prefix : {"/", "./", "../"}) {
    while (path.compare(0, std::strlen(prefix), prefix) == 0) {
      path.erase(0, std::strlen(prefix));
    }
  }
  for (std::size_t dots; (dots = path.find("/..")) != std::string::npos;) {
    const std::size_t end = dots + 3;
    if (end < path.size() && path[end] != '/') {
      break;
    }
    const std::size_t slash = dots == 0 ? std::string::npos : path.rfind('/', dots - 1);
    const std::size_t begin = slash == std::string::npos ? 0 : slash + 1;
    path.erase(begin, std::min(end + 1, path.size()) - begin);
  }
  return "/" + path + query;
}

}  // namespace

TEST(CompressUrlPath, AgreesWithASlowOne) {
  RandomTexts texts({"/", "/", ".", "..", "a", "bc", "?", "/..", "/../"});
  for (int i = 0; i < kRandomTexts; ++i) {
    const std::string text = texts.Next(20);
    ASSERT_EQ(Path(text), SlowlyCompressed(text)) << text;
  }
}

// A test that does not end is what a search from the beginning for each of a million segments would be.
TEST(CompressUrlPath, AMillionSegmentsAreNoMatter) {
  std::string path;
  for (int i = 0; i < 500000; ++i) {
    path += "a/b/../../";
  }
  EXPECT_EQ(Path(path, 16), "/");
  std::string climbing;
  for (int i = 0; i < 500000; ++i) {
    climbing += "a/";
  }
  for (int i = 0; i < 500000; ++i) {
    climbing += "../";
  }
  EXPECT_EQ(Path(climbing, 16), "/");
}

// ---- QsInternetCrackUrl ----

TEST(QsInternetCrackUrl, TakesAUrlApart) {
  EXPECT_EQ(Crack("http://u:p@Host:8080/p/q?z"), "80|http|u|p|Host|8080|/p/q|z|http://u:p@Host:8080");
  EXPECT_EQ(Crack("http://u:p@Host/p/q?z"), "80|http|u|p|Host|80|/p/q|z|http://u:p@Host");
  EXPECT_EQ(Crack("http://h/p;a?b"), "80|http|||h|80|/p|a?b|http://h");
  EXPECT_EQ(Crack("http://h?x=/y"), "80|http|||h|80||x=/y|http://h");
  EXPECT_EQ(Crack("http://h"), "80|http|||h|80|||http://h");
  EXPECT_EQ(Crack("http://a:b:c@h/"), "80|http|a:b|c|h|80|/||http://a:b:c@h");
  EXPECT_EQ(Crack("http://0x7f.1/"), "80|http|||127.1|80|/||http://0x7f.1");
  EXPECT_EQ(Crack("http://2130706433:81/"), "80|http|||127.0.0.1|81|/||http://2130706433:81");
  EXPECT_EQ(Crack("localhost:8080/x"), "0|localhost|||0.0.31.144|0|/x||localhost:8080");
  EXPECT_EQ(Crack("mailto:joe@x.org"), "-4|mailto|joe||x.org|0|||mailto:joe@x.org");
  EXPECT_EQ(Crack("ftp://h/a#b"), "21|ftp|||h|21|/a#b||ftp://h");
}

TEST(QsInternetCrackUrl, UserAndPassword) {
  EXPECT_EQ(Crack("http://u@h/"), "80|http|u||h|80|/||http://u@h");
  EXPECT_EQ(Crack("http://u:@h/"), "80|http|u||h|80|/||http://u:@h");
  EXPECT_EQ(Crack("http://:p@h/"), "80|http||p|h|80|/||http://:p@h");
  EXPECT_EQ(Crack("http://a@b:c@h/"), "80|http|a@b|c|h|80|/||http://a@b:c@h") << "the last @ counts";
  EXPECT_EQ(Crack("http://h/a@b"), "80|http|||h|80|/a@b||http://h");
  EXPECT_EQ(Crack("http://u;x@h/"), "80|http|||u|80||x@h/|http://u") << "the host section ends at the ;";
  EXPECT_EQ(Crack("http://%41:%42@h/"), "80|http|%41|%42|h|80|/||http://%41:%42@h") << "escapes stay";
}

TEST(QsInternetCrackUrl, Ports) {
  EXPECT_EQ(Crack("http://h:/"), "80|http|||h|0|/||http://h:");
  EXPECT_EQ(Crack("HTTPS://H:1x/"), "443|HTTPS|||H|1|/||HTTPS://H:1x");
  EXPECT_EQ(Crack("https://h"), "443|https|||h|443|||https://h");
  EXPECT_EQ(Crack("http://h:-5/"), "80|http|||h|-5|/||http://h:-5");
  EXPECT_EQ(Crack("http://h: +7/"), "80|http|||h|7|/||http://h: +7");
  EXPECT_EQ(Crack("http://h:2147483647"), "80|http|||h|2147483647|||http://h:2147483647");
  EXPECT_EQ(Crack("http://h:2147483648"), "80|http|||h|2147483647|||http://h:2147483648");
  EXPECT_EQ(Crack("http://h:-99999999999999999999"), "80|http|||h|-2147483648|||http://h:-99999999999999999999");
  EXPECT_EQ(Crack("http://[::1]:80/"), "80|http|||[::1]|80|/||http://[::1]:80");
  EXPECT_EQ(Crack("http://[::1]/"), "80|http|||[:|1|/||http://[::1]") << "the last : counts";
}

TEST(QsInternetCrackUrl, Schemes) {
  const struct {
    const char* name;
    int code;
  } rows[] = {{"ftp", 21}, {"gopher", -1}, {"http", 80},   {"https", 443}, {"file", -2}, {"news", -3}, {"mailto", -4},
              {"FTP", 21}, {"hTtPs", 443}, {"MAILTO", -4}, {"ft", 21},     {"go", -1},   {"ht", 80},   {"HTT", 80},
              {"fi", -2},  {"ne", -3},     {"mail", -4},   {"httpsx", 0},  {"httpx", 0}, {"xhttp", 0}, {"tp", 0},
              {"ttp", 0},  {"h2", 0},      {"22", 0},      {"gopher9", 0}, {"ma", -4}};
  for (const auto& row : rows) {
    const Cracked cracked(row.name + "://h/"s);
    EXPECT_EQ(cracked.parts.scheme, row.code) << row.name;
    EXPECT_EQ(cracked.parts.port, std::max(row.code, 0)) << row.name;
    EXPECT_STREQ(cracked.parts.schemeName, row.name);
  }
}

TEST(QsInternetCrackUrl, UpToThreeSlashesLeadToTheHost) {
  EXPECT_EQ(Crack("http:h/p"), "80|http|||h|80|/p||http:h");
  EXPECT_EQ(Crack("http:/h/p"), "80|http|||h|80|/p||http:/h");
  EXPECT_EQ(Crack("file:///x/y"), "-2|file|||x|0|/y||file:///x");
  EXPECT_EQ(Crack("http:////h"), "80|http||||80|/h||http:///");
  EXPECT_EQ(Crack("http:"), "80|http||||80|||http:");
  EXPECT_EQ(Crack("http://"), "80|http||||80|||http://");
}

TEST(QsInternetCrackUrl, NothingBehindTheMarkLeavesItInThePath) {
  EXPECT_EQ(Crack("http://h/a?"), "80|http|||h|80|/a?||http://h");
  EXPECT_EQ(Crack("http://h/a;"), "80|http|||h|80|/a;||http://h");
  EXPECT_EQ(Crack("http://h?"), "80|http|||h|80|?||http://h");
  EXPECT_EQ(Crack("a/b?"),
            "0||||"
            "|0|a/b?||");
}

TEST(QsInternetCrackUrl, APathEndsAtALineFeedUnlessExtraInfoEndsIt) {
  EXPECT_EQ(Crack("http://h/a\nb"), "80|http|||h|80|/a||http://h");
  EXPECT_EQ(Crack("http://h/a\nb?c"), "80|http|||h|80|/a\nb|c|http://h");
  EXPECT_EQ(Crack("http://h/a\nb?"), "80|http|||h|80|/a||http://h");
  EXPECT_EQ(Crack("a/b\nc"), "0|||||0|a/b||");
}

TEST(QsInternetCrackUrl, WithoutASchemeAllIsPath) {
  EXPECT_EQ(Crack("/a/b?c"), "0|||||0|/a/b|c|");
  EXPECT_EQ(Crack("www.example.org/a"), "0|||||0|www.example.org/a||");
  EXPECT_EQ(Crack("a:b"), "0|||||0|a:b||") << "one letter is no scheme";
  EXPECT_EQ(Crack("x+y://h/"), "0|||||0|x+y://h/||");
  EXPECT_EQ(Crack("://h"), "0|||||0|://h||");
  EXPECT_EQ(Crack("abc?x"), "0|||||0|abc|x|");
  EXPECT_EQ(Crack("\xE9\xE9://h"), "0|||||0|\xE9\xE9://h||") << "letters are ASCII's";
}

TEST(QsInternetCrackUrl, LettersOnlyFillNothing) {
  for (const char* url : {"", "a", "abc", "http", "123", "h2"}) {
    QsUrlComponents parts = Unterminated();
    EXPECT_TRUE(QsInternetCrackUrl(url, parts)) << url;
    EXPECT_TRUE(IsUntouched(&parts, sizeof parts)) << url;
  }
}

TEST(QsInternetCrackUrl, NullIsRefused) {
  QsUrlComponents parts = Unterminated();
  EXPECT_FALSE(QsInternetCrackUrl(nullptr, parts));
  EXPECT_TRUE(IsUntouched(&parts, sizeof parts));
}

TEST(QsInternetCrackUrl, WhatTheUrlLacksKeepsItsContent) {
  QsUrlComponents parts = Unterminated();
  ASSERT_TRUE(QsInternetCrackUrl("http://h", parts));
  EXPECT_STREQ(parts.schemeName, "http");
  EXPECT_STREQ(parts.hostName, "h");
  EXPECT_STREQ(parts.urlPath, "");
  EXPECT_STREQ(parts.siteUrl, "http://h");
  EXPECT_TRUE(IsUntouched(parts.userName, sizeof parts.userName));
  EXPECT_TRUE(IsUntouched(parts.password, sizeof parts.password));
  EXPECT_TRUE(IsUntouched(parts.extraInfo, sizeof parts.extraInfo));

  ASSERT_TRUE(QsInternetCrackUrl("http://u@h/a?", parts));
  EXPECT_STREQ(parts.userName, "u");
  EXPECT_TRUE(IsUntouched(parts.password, sizeof parts.password));
  EXPECT_STREQ(parts.extraInfo, "") << "it is there, with nothing in it";
}

// The host of an earlier URL, or of none, is not looked at, nor is an earlier extraInfo.
TEST(QsInternetCrackUrl, ReadsNothingOfAnEarlierUrl) {
  QsUrlComponents parts = Unterminated();
  parts.hostName[0] = '1';
  ASSERT_TRUE(QsInternetCrackUrl("a/b", parts));
  EXPECT_EQ(parts.hostName[0], '1');
  EXPECT_TRUE(IsUntouched(parts.hostName + 1, sizeof parts.hostName - 1));
  EXPECT_TRUE(IsUntouched(parts.schemeName, sizeof parts.schemeName));
  EXPECT_TRUE(IsUntouched(&parts.port, sizeof parts.port));
  EXPECT_TRUE(IsUntouched(&parts.scheme, sizeof parts.scheme));
  EXPECT_STREQ(parts.urlPath, "a/b");

  ASSERT_TRUE(QsInternetCrackUrl("http://0x7f000001/a?old", parts));
  ASSERT_TRUE(QsInternetCrackUrl("http://new/b\nc", parts));
  EXPECT_STREQ(parts.urlPath, "/b") << "the old extraInfo says nothing about this path";
  EXPECT_STREQ(parts.extraInfo, "old");
  EXPECT_STREQ(parts.hostName, "new");
}

TEST(QsInternetCrackUrl, CutsWhatIsTooLong) {
  const std::string x(5000, 'x');
  const Cracked cracked(x + "://" + x + ":" + x + "@" + x + ":7/" + x + "?" + x);
  EXPECT_TRUE(cracked.result);
  EXPECT_EQ(cracked.parts.schemeName, x.substr(0, 63));
  EXPECT_EQ(cracked.parts.userName, x.substr(0, 63));
  EXPECT_EQ(cracked.parts.password, x.substr(0, 63));
  EXPECT_EQ(cracked.parts.hostName, x.substr(0, 1023));
  EXPECT_EQ(cracked.parts.urlPath, "/" + x.substr(0, 2046));
  EXPECT_EQ(cracked.parts.extraInfo, x.substr(0, 2047));
  EXPECT_EQ(cracked.parts.siteUrl, x.substr(0, 1023));
  EXPECT_EQ(cracked.parts.port, 7);
  EXPECT_EQ(cracked.parts.scheme, 0);
}

TEST(QsInternetCrackUrl, TheLongestTextsAreWhole) {
  const auto x = [](std::size_t length) { return std::string(length, 'x'); };
  EXPECT_STREQ(Cracked(x(63) + "://h").parts.schemeName, x(63).c_str());
  EXPECT_STREQ(Cracked("http://" + x(63) + "@h").parts.userName, x(63).c_str());
  EXPECT_STREQ(Cracked("http://:" + x(63) + "@h").parts.password, x(63).c_str());
  EXPECT_STREQ(Cracked("http://" + x(1023)).parts.hostName, x(1023).c_str());
  EXPECT_STREQ(Cracked("http://h/" + x(2046)).parts.urlPath, ("/" + x(2046)).c_str());
  EXPECT_STREQ(Cracked("/?" + x(2047)).parts.extraInfo, x(2047).c_str());
  EXPECT_STREQ(Cracked("http://" + x(1016) + "/").parts.siteUrl, ("http://" + x(1016)).c_str());
}

// Numbers have their turn with what is left of a host that was cut.
TEST(QsInternetCrackUrl, ANumberThatIsCutIsStillANumber) {
  const Cracked cracked("http://" + std::string(2000, '1') + "/");
  EXPECT_TRUE(cracked.result);
  EXPECT_STREQ(cracked.parts.hostName, "255.255.255.255");
}

TEST(QsInternetCrackUrl, TheRecordIsPlain) {
  EXPECT_TRUE(std::is_trivial_v<QsUrlComponents>);
  EXPECT_TRUE(std::is_standard_layout_v<QsUrlComponents>);
  EXPECT_EQ(sizeof(QsUrlComponents), 6344U);
  EXPECT_EQ(offsetof(QsUrlComponents, schemeName), 8U);
  EXPECT_EQ(offsetof(QsUrlComponents, siteUrl), 5320U);
}

namespace {

// Step by step, on strings.
QsUrlComponents SlowlyCracked(const std::string& url) {
  QsUrlComponents parts{};
  const auto set = [](char* field, const std::string& text) { std::strcpy(field, text.c_str()); };
  const std::string symbols = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  const std::size_t stop = url.find_first_not_of(symbols);
  if (stop == std::string::npos) {
    return parts;
  }
  const std::size_t mark = url.find_first_of(";?", stop);
  const std::string extra = mark == std::string::npos ? "" : url.substr(mark + 1);
  set(parts.extraInfo, extra);
  std::size_t pathBegin = 0;
  if (url[stop] == ':' && stop >= 2) {
    const std::string scheme = url.substr(0, stop);
    parts.scheme = scheme == "http" ? 80 : scheme == "ftp" ? 21 : 0;
    set(parts.schemeName, scheme);
    std::size_t begin = stop + 1;
    while (begin < url.size() && begin < stop + 4 && url[begin] == '/') {
      ++begin;
    }
    pathBegin = std::min({url.find('/', begin), mark, url.size()});
    std::string host = url.substr(begin, pathBegin - begin);
    if (const std::size_t at = host.rfind('@'); at != std::string::npos) {
      const std::string user = host.substr(0, at);
      host = host.substr(at + 1);
      set(parts.userName, user.substr(0, user.rfind(':')));
      if (user.find(':') != std::string::npos) {
        set(parts.password, user.substr(user.rfind(':') + 1));
      }
    }
    parts.port = std::max(parts.scheme, 0);
    if (const std::size_t colon = host.rfind(':'); colon != std::string::npos) {
      parts.port = std::atoi(host.c_str() + colon + 1);
      host.erase(colon);
    }
    set(parts.hostName, host);
    DecodeNumberFormatHostname(parts.hostName, sizeof parts.hostName);
    set(parts.siteUrl, url.substr(0, pathBegin));
  }
  const std::size_t feed = url.find('\n', pathBegin);
  const std::size_t end = std::min(extra.empty() ? feed : mark, url.size());
  set(parts.urlPath, url.substr(pathBegin, end - pathBegin));
  return parts;
}

}  // namespace

TEST(QsInternetCrackUrl, AgreesWithASlowReading) {
  RandomTexts texts({"http", "ftp", "://", ":",    "/", "/",  "?", ";", "@",    "a",
                     "Bc",   "7",   "99",  "0x1F", ".", "\n", " ", "-", "\xE9", "%41"});
  for (int i = 0; i < kRandomTexts; ++i) {
    const std::string text = texts.Next();
    ASSERT_EQ(Crack(text), Show(SlowlyCracked(text))) << text;
  }
}

TEST(QsInternetCrackUrl, MegabytesOfAnythingAreNoMatter) {
  for (const char* piece : {"/", ":", "@", "a", "9", "?", "a@:", "http://", "%", "."}) {
    std::string url = "http://";
    while (url.size() < 2'000'000) {
      url += piece;
    }
    QsUrlComponents parts{};
    EXPECT_TRUE(QsInternetCrackUrl(url.c_str(), parts)) << piece;
    EXPECT_STREQ(parts.schemeName, "http");
  }
}

// ---- NormalizeUrl ----

TEST(NormalizeUrl, MakesOneTextOfUrlsThatMeanTheSame) {
  const struct {
    const char* url;
    const char* normal;
  } rows[] = {
      {" HTTP://Example.COM/a/./b/../c d?Q=%41#f ", "http://example.com/a/c%20d?q=%41"},
      {"http://example.com./X", "http://example.com/x"},
      {"http://h:80/a/../B", "http://h:80/a/../b"},
      {"http://h/a/%2e%2e/b", "http://h/b"},
      {"http://h/%2541", "http://h/%41"},
      {"http://h/a%2Fb", "http://h/a/b"},
      {"http://h/\xE9", "http://h/%e9"},
      {"http://h/%E9", "http://h/%e9"},
      {"http://h/?", "http://h/"},
      {"http://h/a&b[1]", "http://h/a%26b%5b1%5d"},
      {"http://h/a?B=C D#E", "http://h/a?b=c d"},
      {"HTTP://H/A?B", "http://h/a?b"},
      {"", ""},
      {" \t\r\n ", ""},
      {"#f", ""},
      {" #f", ""},
      {"?", ""},
      {"?Q", "?q"},
      {"a", "a"},
      {"http://h/a%253fb c", "http://h/a?b c"},      // a "?" that is none of the query, but ends the escaping
      {"http://h/a%253Fb c", "http://h/a%3fb%20c"},  // only "%3f" becomes one
      {"http://h/a%3fb c", "http://h/a?b c"},
      {"http://h/a%23b c", "http://h/a#b c"},
      {"http://h/a%00b", "http://h/a%00b"},
      {"http://u@h/a/../b", "http://u@h/a/../b"},
      {"www.example.com/a/../b", "www.example.com/a/../b"},
      {"http://h/?\xC9", "http://h/?\xE9"},  // lower-cased as Windows-1252, not escaped
      {"http://h//a", "http://h//a"},
      {"http:/a/../b", "http:/b"},
      {"http:a/../b", "http:a/../b"},
      {"http://h", "http://h"},
      {"http://h.", "http://h"},
      {"http://h%2e/", "http://h/"},
      {"http://h/a%", "http://h/a%"},
      {"http://h/a+b~c", "http://h/a+b~c"},
      {"http://h/a\tb\x7F", "http://h/a%09b%7f"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(NormalizeUrl(row.url), row.normal) << row.url;
  }
}

TEST(NormalizeUrl, ZeroBytesStayApart) {
  EXPECT_EQ(NormalizeUrl("http://h/a\0b"s), "http://h/a%00b");
  EXPECT_EQ(NormalizeUrl("http://h/a?b\0C"s), "http://h/a?b\0c"s);
}

TEST(NormalizeUrl, LongUrlsAreLikeShortOnes) {
  const std::string x(5000, 'X');
  const std::string path = "/" + x + "/../ " + x;
  EXPECT_EQ(NormalizeUrl("http://h" + path), "http://h/%20" + std::string(5000, 'x'));
  EXPECT_EQ(NormalizeUrl("http://h/" + std::string(100000, '\xFF')).size(), 9U + 300000);
}

TEST(NormalizeUrl, LogsNothing) {
  const LogCapture capture;
  NormalizeUrl("http://h/a/../\xFF%");
  NormalizeUrl(std::string(100000, '%'));
  EXPECT_TRUE(capture.Messages().empty());
}

TEST(NormalizeUrl, WithoutMemoryTheDecodedTextIsKept) {
  const std::string url = "HTTP://H/a/../%42/" + std::string(3000, 'c') + "?Q";
  const LogCapture capture;
  std::string normal;
  largestAllocation = 4000;  // enough for the text, not for the buffer of three times its length
  normal = NormalizeUrl(url);
  largestAllocation = kNoLimit;
  EXPECT_EQ(normal, "http://h/a/../b/" + std::string(3000, 'c') + "?q");
  ASSERT_EQ(capture.Messages().size(), 1U);
  EXPECT_EQ(capture.Messages()[0].flags, 0x20000000U);
  EXPECT_EQ(capture.Messages()[0].text,
            "[107038] Error in InternetCanonicalizeUrl call: The URL could not be canonicalized due to insufficient "
            "memory.");
}

namespace {

bool IsSymbol(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// State by state, the path as a list of segments.
std::string SlowlySimplified(const std::string& in) {
  if (in.size() < 2 || !IsSymbol(in[0]) || !IsSymbol(in[1])) {
    return in;
  }
  std::size_t i = in.find(':', 2);
  if (i == std::string::npos) {
    return in;
  }
  std::string out = in.substr(0, ++i);
  if (in.substr(i, 2) == "//") {
    out += "//";
    i += 2;
    if (i == in.size() || !(IsSymbol(in[i]) || in[i] == '-')) {
      return in;
    }
    for (; i < in.size() && (IsSymbol(in[i]) || std::strchr("- .", in[i]) != nullptr); ++i) {
      const std::string next = in.substr(i + 1, 1);
      out += in[i] == '.' && (next.empty() || next == "/" || next == "?") ? "" : in.substr(i, 1);
    }
  }
  if (i == in.size() || in[i] != '/') {
    return out + in.substr(i);
  }
  std::vector<std::string> segments;
  ++i;
  for (std::size_t slash; (slash = in.find('/', i)) != std::string::npos; i = slash + 1) {
    const std::string segment = in.substr(i, slash + 1 - i);
    if (segment == "../") {
      segments.resize(segments.size() - std::min<std::size_t>(segments.size(), 1));
    } else if (segment != "./") {
      segments.push_back(segment);
    }
  }
  out += "/";
  for (const std::string& segment : segments) {
    out += segment;
  }
  return out + in.substr(i);
}

std::string SlowlyEscaped(const std::string& in) {
  std::string out;
  const std::size_t end = std::min(in.find_first_of("#?"), in.size());
  for (const char c : in.substr(0, end)) {
    const auto byte = static_cast<unsigned char>(c);
    char escape[4];
    std::snprintf(escape, sizeof escape, "%%%02X", byte);
    const bool isUnsafe = byte < 32 || byte > 126 || std::string(" \"&<>[\\]^`{|}").find(c) != std::string::npos;
    out += isUnsafe ? escape : std::string(1, c);
  }
  return out + in.substr(end);
}

std::string SlowlyNormalized(const std::string& url) {
  std::string text = url.substr(0, url.find('#'));
  const std::string blanks = "\t\n\v\f\r ";
  text.erase(0, std::min(text.find_first_not_of(blanks), text.size()));
  text.erase(text.find_last_not_of(blanks) + 1);
  const std::size_t mark = text.find('?');
  const std::string query = mark == std::string::npos ? "" : text.substr(mark + 1);
  text = SlowlyDecoded(text.substr(0, mark));
  ReplaceAll(text, "%3f", "?");
  text = SlowlyEscaped(SlowlySimplified(text)) + (query.empty() ? "" : "?" + query);
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return text;
}

}  // namespace

TEST(NormalizeUrl, AgreesWithASlowOne) {
  RandomTexts texts({"http", "://", ":",   "h",  ".",   "/",   "/", "..", "../", "./", "a", "B7",  "[",
                     "%20",  "%",   "%25", "3f", "%2e", "%23", "?", "#",  " ",   "\t", "-", "\xE9"});
  for (int i = 0; i < kRandomTexts; ++i) {
    const std::string text = (i % 2 == 0 ? "http://h" : "") + texts.Next();
    ASSERT_EQ(NormalizeUrl(text), SlowlyNormalized(text)) << text;
  }
}

TEST(NormalizeUrl, AMillionSegmentsAreNoMatter) {
  std::string url = "http://h/";
  for (int i = 0; i < 500000; ++i) {
    url += "a/";
  }
  for (int i = 0; i < 500000; ++i) {
    url += "../";
  }
  EXPECT_EQ(NormalizeUrl(url), "http://h/");
}

// ---- QsIsValidURL ----

TEST(QsIsValidURL, KnowsTheStrictForm) {
  for (const char* url : {"http://u@h/",
                          "http://h:80",
                          "http://h/?x=1",
                          "http://h",
                          "https://h",
                          "HTTP://H",
                          "HTTP://WWW.EXAMPLE.ORG/A%20B",
                          "http://h/",
                          "http://h/a/b/c",
                          "http://h/a//b",
                          "http://h/a/?",
                          "http://h/$-_.+!*'(),;:@&=",
                          "http://1.2.3.4",
                          "http://a-b.c-d",
                          "http://@",
                          "http://h:0123456789",
                          "http://h/?a=%C3%a9",
                          "http://1.2.3.4.5:6/",
                          "http://a--b",
                          "http://h/..;x/",
                          "http://h/?",
                          "https://localhost"}) {
    EXPECT_TRUE(QsIsValidURL(url)) << url;
  }
}

TEST(QsIsValidURL, RefusesTheRest) {
  for (const char* url : {"",
                          "http://u:p@h/",
                          "http://h/~x",
                          "https://h?x=1",
                          "http://h:/",
                          "http://h.",
                          "http://a_b/",
                          "http://h/#f",
                          "ftp://h/",
                          "FTP://h/a",
                          "http:/h",
                          "http:h",
                          "http://",
                          "http:///",
                          "http://-h",
                          "http://h-",
                          "http://.h",
                          "http://h..i",
                          "http://h/%",
                          "http://h/%4",
                          "http://h/%4g",
                          "http://h/ ",
                          " http://h",
                          "http://h ",
                          "http://h\n",
                          "http://h/\n",
                          "\nhttp://h",
                          "http://[::1]/",
                          "http://h/\xE9",
                          "http://\xE9/",
                          "http://h/?a?b",
                          "http://h/?a/b",
                          "h",
                          "httpss://h",
                          "xhttp://h",
                          "http://h:80a",
                          "http://h:80:80",
                          "http://h/\"",
                          "http://h/a\\b",
                          "http://h/{x}"}) {
    EXPECT_FALSE(QsIsValidURL(url)) << url;
  }
  EXPECT_FALSE(QsIsValidURL("http://h/\0"s));
  EXPECT_FALSE(QsIsValidURL("http://h\0"s));
}

namespace {

// The same expression as the matcher has it, over the URL as it is.
bool IsMatched(const std::string& url) {
  static const boost::basic_regex<char, boost::regex_traits<char, boost::cpp_regex_traits<char>>> expression(
      R"(^(?:https?://(?:(?:(?:(?:(?:[a-z@\d](?:(?:[a-z@\d]|-)*[a-z@\d])?)\.)*(?:[a-z@\d](?:(?:[a-z@\d]|-)*[a-z@\d])?)))"
      R"(|(?:(?:\d+)(?:\.(?:\d+)){3}))(?::(?:\d+))?)(?:/(?:(?:(?:(?:[a-z\d$\-_.+!*'(),]|(?:%[a-f\d]{2}))|[;:@&=])*))"
      R"((?:/(?:(?:(?:[a-z\d$\-_.+!*'(),]|(?:%[a-f\d]{2}))|[;:@&=])*))*)(?:\?(?:(?:(?:[a-z\d$\-_.+!*'(),])"
      R"(|(?:%[a-f\d]{2}))|[;:@&=])*))?)?)$)",
      boost::regex_constants::perl | boost::regex_constants::icase);
  return boost::regex_match(url, expression);
}

// The form by hand.
bool IsOf(char c, const char* further) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         (c != '\0' && std::strchr(further, c) != nullptr);
}

bool IsLabel(const std::string& label) {
  const auto isOf = [](const char* further) { return [further](char c) { return IsOf(c, further); }; };
  return !label.empty() && IsOf(label.front(), "@") && IsOf(label.back(), "@") &&
         std::all_of(label.begin(), label.end(), isOf("@-"));
}

bool IsHost(std::string host) {
  if (const std::size_t colon = host.find(':'); colon != std::string::npos) {
    const std::string port = host.substr(colon + 1);
    if (port.empty() || port.find_first_not_of("0123456789") != std::string::npos) {
      return false;
    }
    host.erase(colon);
  }
  for (std::size_t dot; (dot = host.find('.')) != std::string::npos; host.erase(0, dot + 1)) {
    if (!IsLabel(host.substr(0, dot))) {
      return false;
    }
  }
  return IsLabel(host);
}

bool IsPath(const std::string& path, const char* further) {
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] == '%') {
      const std::string pair = path.substr(i + 1, 2);
      if (pair.size() != 2 || pair.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
      }
      i += 2;
    } else if (!IsOf(path[i], further)) {
      return false;
    }
  }
  return true;
}

bool IsFormed(const std::string& url) {
  const std::size_t begin = url.find("://");
  std::string scheme = url.substr(0, begin);
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  if (begin == std::string::npos || (scheme != "http" && scheme != "https")) {
    return false;
  }
  const std::size_t slash = std::min(url.find('/', begin + 3), url.size());
  const std::size_t mark = std::min(url.find('?', slash), url.size());
  return IsHost(url.substr(begin + 3, slash - begin - 3)) &&
         IsPath(url.substr(slash, mark - slash), "/$-_.+!*'(),;:@&=") &&
         IsPath(url.substr(std::min(mark + 1, url.size())), "$-_.+!*'(),;:@&=");
}

}  // namespace

TEST(QsIsValidURL, AgreesWithTheMatcherAndWithTheFormByHand) {
  RandomTexts texts({"/", "/", "//", "a", "b-", "7", ".", ":", ":8", "@", "?", "%4", "%4f", "%", "-", "~", "x=1"});
  int valid = 0;
  for (int i = 0; i < kRandomTexts / 4; ++i) {
    const std::string url = (i % 7 == 0 ? "HTTPS://a" : i % 11 == 0 ? "htt://a" : "http://a") + texts.Next(8);
    ASSERT_EQ(QsIsValidURL(url), IsMatched(url)) << url;
    ASSERT_EQ(QsIsValidURL(url), IsFormed(url)) << url;
    valid += QsIsValidURL(url) ? 1 : 0;
  }
  EXPECT_GT(valid, kRandomTexts / 100) << "too few to tell anything";
}

TEST(QsIsValidURL, EveryByteInEveryPlace) {
  for (const char* url :
       {"_http://a.b:1/c?d", "http://_a.b:1/c?d", "http://a_.b:1/c?d", "http://a.b_:1/c?d", "http://a.b:1_/c?d",
        "http://a.b:1/_c?d", "http://a.b:1/c?_d", "http://a.b:1/c?d_", "http_://a"}) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string text(url);
      text[text.find('_')] = static_cast<char>(byte);
      ASSERT_EQ(QsIsValidURL(text), IsFormed(text)) << text;
    }
  }
}

// Boost's time for these would grow with the square of their number, and its memory would not do.
TEST(QsIsValidURL, ManySegmentsAreNoMatter) {
  std::string url = "http://h";
  for (int i = 0; i < 100000; ++i) {
    url += "/ab";
  }
  EXPECT_TRUE(QsIsValidURL(url));
  EXPECT_TRUE(QsIsValidURL(url + "?x"));
  EXPECT_FALSE(QsIsValidURL(url + "?x/y"));
  EXPECT_FALSE(QsIsValidURL(url + "~"));
}

TEST(QsIsValidURL, OneMegabyteIsNoMatter) {
  const std::string x(1 << 20, 'x');
  EXPECT_TRUE(QsIsValidURL("http://h/" + x));
  EXPECT_TRUE(QsIsValidURL("http://h/?" + x));
  EXPECT_FALSE(QsIsValidURL("http://h/" + x + "~"));
  EXPECT_FALSE(QsIsValidURL("http://" + x + "_"));
  EXPECT_FALSE(QsIsValidURL("http://" + std::string(1 << 20, '-')));
}

// The matcher keeps a place for each label of a host, and has memory for so many only.
TEST(QsIsValidURL, WhatTheMatcherCannotDoIsNotValid) {
  std::string url = "http://";
  for (int i = 0; i < 500000; ++i) {
    url += "ab.";
  }
  EXPECT_FALSE(QsIsValidURL(url + "a/"));
  EXPECT_TRUE(QsIsValidURL("http://h/")) << "and then all is as before";
}

TEST(QsIsValidURL, WithoutMemoryNothingIsValid) {
  const std::string url = "http://www.example.org/a/path/that/needs/memory";
  largestAllocation = 0;
  const bool first = QsIsValidURL(url);
  const bool second = QsIsValidURL(url);
  largestAllocation = kNoLimit;
  EXPECT_FALSE(first) << "the expression could not be made";
  EXPECT_FALSE(second);
  EXPECT_TRUE(QsIsValidURL(url)) << "made when there is memory";
}

TEST(QsIsValidURL, TheFirstCallMayComeFromManyThreads) {
  std::array<bool, 16> results{};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < results.size(); ++i) {
    threads.emplace_back([&results, i] {
      bool isRight = true;
      for (int round = 0; round < 50; ++round) {
        isRight = QsIsValidURL("http://h/a/b?c") && !QsIsValidURL("http://h/~") && isRight;
      }
      results[i] = isRight;
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(std::count(results.begin(), results.end(), true), 16);
}

// ---- Pieces ----

TEST(SplitPartialUrl, CutsBehindEachSlash) {
  using Pieces = std::vector<std::string>;
  const struct {
    const char* path;
    Pieces pieces;
  } rows[] = {{"/a/b/c.txt", {"a/", "b/", "c.txt"}},
              {"a/b/", {"a/", "b/"}},
              {"a", {"a"}},
              {"/", {}},
              {"", {}},
              {"//a", {"/", "a"}},
              {"a//b", {"a/", "/", "b"}},
              {"/a?b/c", {"a?b/", "c"}}};
  for (const auto& row : rows) {
    Pieces pieces = {"old"};
    EXPECT_EQ(SplitPartialUrl(row.path, pieces), static_cast<int>(row.pieces.size())) << row.path;
    EXPECT_EQ(pieces, row.pieces) << row.path;
  }
}

TEST(SplitPartialUrl, MayCutAPieceOfItsOwn) {
  std::vector<std::string> pieces = {"x", "a/b/a-name-beyond-the-string-itself"};
  EXPECT_EQ(SplitPartialUrl(pieces[1], pieces), 3);
  EXPECT_EQ(pieces, (std::vector<std::string>{"a/", "b/", "a-name-beyond-the-string-itself"}));
}

TEST(SplitPartialUrl, WithoutMemoryThePiecesStay) {
  std::vector<std::string> pieces = {"old"};
  const std::string path(100, '/');
  bool isThrown = false;
  largestAllocation = 500;
  try {
    SplitPartialUrl(path, pieces);
  } catch (const std::bad_alloc&) {
    isThrown = true;
  }
  largestAllocation = kNoLimit;
  EXPECT_TRUE(isThrown);
  EXPECT_EQ(pieces, std::vector<std::string>{"old"});
}

TEST(QsExtract, FileNameIsWhatFollowsTheLastSlash) {
  EXPECT_EQ(QsExtractFileNameFromUrl("http://h/a/b.txt"), "b.txt");
  EXPECT_EQ(QsExtractFileNameFromUrl("http://h/a/b%20c?x"), "b%20c?x");
  EXPECT_EQ(QsExtractFileNameFromUrl("http://h/a/"), "");
  EXPECT_EQ(QsExtractFileNameFromUrl("http://h"), "h");
  EXPECT_EQ(QsExtractFileNameFromUrl("a.txt"), "");
  EXPECT_EQ(QsExtractFileNameFromUrl(""), "");
}

TEST(QsExtract, PathIsWhatStandsBeforeIt) {
  EXPECT_EQ(QsExtractUrlPath("http://h/a/b.txt", true), "http://h/a/");
  EXPECT_EQ(QsExtractUrlPath("http://h/a/b.txt", false), "http://h/a");
  EXPECT_EQ(QsExtractUrlPath("/a", true), "/");
  EXPECT_EQ(QsExtractUrlPath("/a", false), "");
  EXPECT_EQ(QsExtractUrlPath("a.txt", true), "");
  EXPECT_EQ(QsExtractUrlPath("", false), "");
}

// ---- ProtocolTable ----

TEST(ProtocolTable, KnowsPortsAndNames) {
  const ProtocolTable table;
  EXPECT_EQ(table.GetPort("http"), 80);
  EXPECT_EQ(table.GetPort("HTTPS"), 443);
  EXPECT_EQ(table.GetPort("Ftp"), 21);
  EXPECT_EQ(table.GetPort("gopher"), -1);
  EXPECT_EQ(table.GetPort("ht"), -1) << "no shortened names here";
  EXPECT_EQ(table.GetPort(""), -1);
  EXPECT_EQ(table.GetProtocol(80), "http");
  EXPECT_EQ(table.GetProtocol(443), "https");
  EXPECT_EQ(table.GetProtocol(21), "ftp");
  EXPECT_EQ(table.GetProtocol(0), "");
  EXPECT_EQ(table.GetProtocol(-1), "");
}

TEST(ProtocolTable, CanBeDerivedFromAndCopied) {
  struct Derived : ProtocolTable {
    explicit Derived(bool& gone) : _gone(gone) {}
    Derived(const Derived&) = delete;
    Derived& operator=(const Derived&) = delete;
    ~Derived() override { _gone = true; }
    int GetPort(const std::string& name) const override { return name == "nntp" ? 119 : ProtocolTable::GetPort(name); }

   private:
    bool& _gone;
  };
  bool gone = false;
  auto derived = std::make_unique<Derived>(gone);
  ProtocolTable& table = *derived;
  table.Reserved();
  EXPECT_EQ(table.GetPort("nntp"), 119);
  EXPECT_EQ(table.GetPort("http"), 80);
  ProtocolTable copy(table);
  EXPECT_EQ(copy.GetPort("nntp"), -1);
  copy = table;
  EXPECT_EQ(copy.GetProtocol(80), "http");
  std::unique_ptr<ProtocolTable> base = std::move(derived);
  base.reset();
  EXPECT_TRUE(gone);
}

// ---- All of them ----

// Only that none of them reads or writes where it may not: for the sanitizers.
TEST(Urls, AnyTextIsTaken) {
  RandomTexts texts(kUrlPieces);
  QsUrlComponents parts = Unterminated();
  std::vector<std::string> pieces;
  for (int i = 0; i < kRandomTexts / 4; ++i) {
    const std::string text = texts.Next(30);
    QsInternetCrackUrl(text.c_str(), parts);
    NormalizeUrl(text);
    SplitPartialUrl(text, pieces);
    std::string joined;
    for (const std::string& piece : pieces) {
      joined += piece;
    }
    ASSERT_EQ((text.substr(0, 1) == "/" ? "/" : "") + joined, text);
    ASSERT_EQ(UrlDecode(UrlEncode(text.c_str()).c_str()), text);
    const std::string path = QsExtractUrlPath(text, true);
    ASSERT_TRUE(path.empty() || path + QsExtractFileNameFromUrl(text) == text);
    Path(text, 1 + static_cast<unsigned int>(i) % 40);
  }
}
