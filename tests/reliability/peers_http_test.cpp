// Servers and proxies that say nothing, too much or the wrong thing: what a transfer makes of it, how long it takes and
// how much memory. The lines "figure:" of the output stand in docs/reliability.md.
#include <QSbase/net/http.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <common/tempdir.h>
#include <integration/common/scriptedserver.h>
#include <integration/common/transfer.h>
#include <reliability/common/peers.h>

using namespace qsbase::testing;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

namespace {

using Script = ScriptedServer::Script;

constexpr milliseconds kPause{20};
constexpr const char* kChunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

struct Met : Outcome {
  Cost cost;
};

// Asked during the transfer, it ends it after that time.
struct Patience {
  Clock::time_point end;
  static bool IsOver(void* patience) { return Clock::now() > static_cast<Patience*>(patience)->end; }
};

Met Transfer(const QsInetHttpRequest& request, milliseconds patience = kPatience) {
  Met met;
  met.cost = CostOf([&] {
    Patience limit{Clock::now() + patience};
    met.result = QsInetHttp(request, met.response, nullptr, nullptr, &Patience::IsOver, &limit, 0);
  });
  return met;
}

void TellAndCheck(const std::string& peer, const Met& met) {
  Tell(peer, met.cost, (met.result ? "true, " : "false, ") + std::to_string(met.response.curlCode));
  ExpectBounded(peer, met.cost);
}

Met Meet(const std::string& peer, const Script& script, QsInetHttpRequest request = {},
         milliseconds patience = kPatience) {
  const ScriptedServer server(script);
  request.url = server.Url();
  Met met = Transfer(request, patience);
  TellAndCheck(peer, met);
  return met;
}

Script Once(const std::string& answer) {
  return [answer](Connection& connection) { connection.Send(answer); };
}

Script ForEver(const std::string& begin, const std::string& piece) {
  return [=](Connection& connection) { connection.Send(begin) && (connection.SendForEver(piece), true); };
}

Script Drip(const std::string& begin, const std::string& piece, milliseconds pause) {
  return [=](Connection& connection) {
    connection.Send(begin);
    while (connection.SendSlowly(piece, pause)) {
    }
  };
}

Script Silence(const std::string& begin = "") {
  return [begin](Connection& connection) {
    connection.Send(begin);
    connection.WaitForClose();
  };
}

using PeersHttp = PeerTest;

}  // namespace

// ---- too much ----

TEST_F(PeersHttp, EndlessHeadersAreRefused) {
  const struct {
    const char* name;
    std::string begin;
    std::string piece;
  } rows[] = {
      {"endless status line", "HTTP/1.1 200 ", "x"},
      {"endless header line", "HTTP/1.1 200 OK\r\nX: ", "x"},
      {"endless header lines", "HTTP/1.1 200 OK\r\n", "X: yyyyyyyyyyyyyyyyyy\r\n"},
      {"endless short header lines", "HTTP/1.1 200 OK\r\n", "a:\r\n"},
      {"endless continuation lines", "HTTP/1.1 200 OK\r\nX: y\r\n", " zzzzzzzzzzzzzzzzzz\r\n"},
      {"endless answers of 100", "", "HTTP/1.1 100 Continue\r\n\r\n"},
      {"endless answers of 103", "", "HTTP/1.1 103 Early\r\nLink: x\r\n\r\n"},
      {"endless empty lines before the answer", "", "\r\n"},
      {"endless digits of a chunk's size", kChunked, "0"},
      {"endless line behind the body", std::string(kChunked) + "0\r\nX: ", "x"},
  };
  for (const auto& row : rows) {
    const Met met = Meet(row.name, ForEver(row.begin, row.piece));
    EXPECT_FALSE(met.result) << row.name;
    // Their numbers differ between libcurl's versions.
    EXPECT_THAT(met.response.curlCode, AnyOf(1, 8, 23, 27, 56, 100)) << row.name;
    EXPECT_EQ(met.response.retryable, met.response.curlCode == 56) << row.name;
    EXPECT_EQ(met.response.httpCode, 0) << row.name;
    EXPECT_NE(met.response.errorText, "") << row.name;
    EXPECT_LE(met.response.headers.size(), std::size_t{512} << 10) << row.name;
    EXPECT_EQ(met.response.body, "") << row.name;
  }
}

// What keeps coming, nothing but the caller ends.
TEST_F(PeersHttp, EndlessContentEndsByTheAbortCheckAndTakesNoMemory) {
  const FilePtr sink = OpenFile("/dev/null", "wb");
  QsInetHttpRequest request;
  request.outputFile = sink.get();
  const struct {
    const char* name;
    std::string begin;
    std::string piece;
  } rows[] = {
      {"endless body into a file", "HTTP/1.1 200 OK\r\n\r\n", "x"},
      {"endless chunks of one byte into a file", kChunked, "1\r\nx\r\n"},
      {"endless extension of a chunk", std::string(kChunked) + "5;x", "y"},
      {"endless body behind a length of 2^63-1", "HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775807\r\n\r\n", "x"},
  };
  for (const auto& row : rows) {
    const Met met = Meet(row.name, ForEver(row.begin, row.piece), request, milliseconds(500));
    EXPECT_FALSE(met.result) << row.name;
    EXPECT_EQ(met.response.curlCode, 42) << row.name;
    EXPECT_FALSE(met.response.retryable) << row.name;
  }
}

// Of libcurl some versions hold any number of them, beside what is kept here; others refuse them (100).
TEST_F(PeersHttp, EndlessLinesBehindTheBodyEndByTheAbortCheck) {
  for (const std::string line : {"X: yyyyyyyyyyyyyyyyyy\r\n", "a:\r\n"}) {
    const ScriptedServer server(ForEver(std::string(kChunked) + "2\r\nok\r\n0\r\n", line));
    const Met met = Transfer(Get(server.Url()), milliseconds(500));
    Tell("endless behind the body: " + line, met.cost, std::to_string(met.response.curlCode));
    EXPECT_FALSE(met.result);
    EXPECT_THAT(met.response.curlCode, AnyOf(42, 100));
    EXPECT_FALSE(met.response.retryable);
    EXPECT_LE(met.response.headers.size(), std::size_t{512} << 10);
    EXPECT_EQ(met.response.body, "ok");
  }
}

TEST_F(PeersHttp, AnAnnouncementOfFourGibibytesTakesNoMemory) {
  const TempDir dir;
  for (const char* header :
       {"Content-Length: 4294967296\r\n\r\n", "Content-Length: 9223372036854775807\r\n\r\n",
        "Transfer-Encoding: chunked\r\n\r\n100000000\r\n", "Transfer-Encoding: chunked\r\n\r\n7FFFFFFFFFFFFFFF\r\n"}) {
    for (const std::string body : {"", "few"}) {
      const std::string peer =
          std::string(header, std::string(header).find('\r')) + " and " + std::to_string(body.size()) + " bytes";
      const Script script = Once("HTTP/1.1 200 OK\r\n" + (header + body));
      const Met inMemory = Meet(peer, script);
      ExpectNothingReserved(peer, inMemory.cost);
      EXPECT_TRUE(inMemory.result) << peer;
      EXPECT_EQ(inMemory.response.curlCode, 18) << peer;
      EXPECT_EQ(inMemory.response.body, body) << peer;
      EXPECT_EQ(inMemory.response.contentLength, body.size()) << peer;
      const FilePtr file = OpenFile(dir / "out", "wb");
      QsInetHttpRequest request;
      request.outputFile = file.get();
      const Met inFile = Meet(peer + ", into a file", script, request);
      ExpectNothingReserved(peer, inFile.cost);
      EXPECT_EQ(inFile.response.curlCode, 18) << peer;
      EXPECT_EQ(TempDir::Read(dir / "out"), body) << peer;
      EXPECT_EQ(inFile.response.contentLength, header[0] == 'C' ? 2147483647u : 0u) << "the most that is told";
    }
  }
}

TEST_F(PeersHttp, FourGibibytesArriveInAFile) {
  const std::uint64_t size = (std::uint64_t{1} << 32) + 7;
  const FilePtr sink = OpenFile("/dev/null", "wb");
  QsInetHttpRequest request;
  request.outputFile = sink.get();
  std::uint64_t sent = 0;
  const Met met = Meet(
      "4 GiB and 7 bytes into a file",
      [&](Connection& connection) {
        const std::string piece(1 << 20, 'x');
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
        while (sent < size && connection.Send(std::string_view(piece).substr(0, size - sent))) {
          sent += std::min<std::uint64_t>(piece.size(), size - sent);
        }
      },
      request);
  EXPECT_EQ(met.response.curlCode, 0);
  EXPECT_EQ(met.response.contentLength, 2147483647u);
  EXPECT_EQ(sent, size);
}

// Some hundred bytes that would be some hundred megabytes, had anybody asked for them in that form.
TEST_F(PeersHttp, NothingIsInflated) {
  std::string coded("\x1F\x8B\x08\0\0\0\0\0\2\3", 10);
  coded += std::string(100000, '\0');
  for (const char* name : {"Content-Encoding: ", "Transfer-Encoding: "}) {
    for (const char* codings : {"gzip", "gzip, gzip, gzip, gzip", "br", "deflate", "unheard-of"}) {
      const std::string line = std::string(name) + codings;
      const Met met = Meet(line, Once("HTTP/1.1 200 OK\r\n" + line + "\r\n\r\n" + coded));
      EXPECT_EQ(met.response.curlCode, 0) << line << ": " << met.response.errorText;
      EXPECT_EQ(met.response.body, coded) << line;
    }
  }
}

// ---- too little ----

// By the rule of 512 bytes a second for a minute, whatever the peer is at. All at once, since each takes that minute.
TEST_F(PeersHttp, SlowPeersAreGivenUpAfterAMinute) {
  const struct {
    const char* name;
    Script script;
    const char* body;  // a regular expression
  } rows[] = {
      {"says nothing", Silence(), ""},
      {"says nothing more in the body", Silence("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc"), "abc"},
      {"one byte a second of a status line", Drip("", "HTTP/1.1 200 OK and so on", seconds(1)), ""},
      {"one byte a second of headers", Drip("HTTP/1.1 200 OK\r\n", "X: y\r\n", seconds(1)), ""},
      {"one byte a second of chunk sizes", Drip(kChunked, "1\r\nx\r\n", seconds(1)), "x+"},
      {"one byte a second of a body", Drip("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n", "x", seconds(1)), "x+"},
      {"one byte a second behind the body", Drip(std::string(kChunked) + "0\r\n", "X: y\r\n", seconds(1)), ""},
  };
  std::vector<std::thread> clients;
  for (const auto& row : rows) {
    clients.emplace_back([&row] {
      const ScriptedServer server(row.script);
      Met met;
      met.cost = CostOf([&] { static_cast<Outcome&>(met) = Fetch(server.Url()); });
      Tell(row.name, met.cost, std::to_string(met.response.curlCode));
      EXPECT_FALSE(met.result) << row.name;
      EXPECT_EQ(met.response.curlCode, 28) << row.name;
      EXPECT_TRUE(met.response.retryable) << row.name;
      EXPECT_THAT(met.response.body, MatchesRegex(row.body)) << row.name;
      EXPECT_GE(met.cost.time, seconds(58)) << row.name;
      EXPECT_LT(met.cost.time, seconds(180)) << row.name;
    });
  }
  for (std::thread& client : clients) {
    client.join();
  }
}

TEST_F(PeersHttp, TheAbortCheckEndsWaitsForSlowPeers) {
  const struct {
    const char* name;
    Script script;
  } rows[] = {
      {"aborted: says nothing", Silence()},
      {"aborted: a slow status line", Drip("", "HTTP/1.1 200 OK and so on", kPause)},
      {"aborted: slow headers", Drip("HTTP/1.1 200 OK\r\n", "X: y\r\n", kPause)},
      {"aborted: a slow body", Drip("HTTP/1.1 200 OK\r\n\r\n", "x", kPause)},
      {"aborted: a slow extension of a chunk", Drip(std::string(kChunked) + "5;", "x", kPause)},
  };
  for (const auto& row : rows) {
    const Met met = Meet(row.name, row.script, {}, milliseconds(300));
    EXPECT_FALSE(met.result) << row.name;
    EXPECT_EQ(met.response.curlCode, 42) << row.name;
    EXPECT_FALSE(met.response.retryable) << row.name;
  }
}

// ---- an end in every place ----

namespace {

// An answer in pieces, each of them content or not.
struct Piece {
  std::string bytes;
  bool isContent;
};

class Answer {
 public:
  enum class End { Told, ToldByAnEmptyLine, OfTheConnection };

  Answer(std::string headers, std::vector<Piece> pieces, End end)
      : _headers(std::move(headers)), _pieces(std::move(pieces)), _end(end) {}

  std::string Whole() const {
    std::string all = _headers;
    for (const Piece& piece : _pieces) {
      all += piece.bytes;
    }
    return all;
  }

  // The lines that are whole in so many bytes.
  std::string HeadersOf(std::size_t size) const {
    const std::string sent = _headers.substr(0, size);
    return sent.substr(0, sent.rfind('\n') + 1);
  }

  std::string ContentOf(std::size_t size) const {
    std::string content;
    std::size_t left = size - std::min(size, _headers.size());
    for (const Piece& piece : _pieces) {
      content += piece.isContent ? piece.bytes.substr(0, left) : "";
      left -= std::min(left, piece.bytes.size());
    }
    return content;
  }

  // libcurl's code when the connection ends there in good order.
  int CodeOf(std::size_t size) const {
    if (HeadersOf(size).empty()) {
      return 52;
    }
    const std::string lines = HeadersOf(size);
    const bool hasLength = lines.find("Length: ") != std::string::npos || lines.find("chunked") != std::string::npos;
    return size >= WholeFrom() || (size < _headers.size() && !hasLength) ? 0 : 18;
  }

  // Nothing that comes then has a say.
  bool IsOver(std::size_t size) const { return _end != End::OfTheConnection && size == Whole().size(); }

 private:
  std::size_t WholeFrom() const {
    if (_end == End::OfTheConnection) {
      return _headers.size();
    }
    return Whole().size() - (_end == End::ToldByAnEmptyLine ? 1 : 0);  // without its LF the line is empty enough
  }

  std::string _headers;
  std::vector<Piece> _pieces;
  End _end;
};

std::vector<Answer> Answers(const std::string& status) {
  return {
      {status + "X: y\r\nContent-Length: 20\r\n\r\n", {{"0123456789abcdefghij", true}}, Answer::End::Told},
      {status + "Content-Length: 20\r\nConnection: close\r\n\r\n", {{"0123456789abcdefghij", true}}, Answer::End::Told},
      {status + "Transfer-Encoding: chunked\r\n\r\n",
       {{"a\r\n", false},
        {"0123456789", true},
        {"\r\n0A;x=y\r\n", false},
        {"abcdefghij", true},
        {"\r\n0\r\n\r\n", false}},
       Answer::End::ToldByAnEmptyLine},
      {status + "X: y\r\n\r\n", {{"0123456789abcdefghij", true}}, Answer::End::OfTheConnection},
  };
}

Script EndingAfter(const std::string& answer, std::size_t size, bool reset) {
  return [=](Connection& connection) {
    connection.EndAfter(size, reset);
    connection.Send(answer + "!");  // one more than the answer, so that the connection ends in every case
  };
}

void CheckEnd(const Answer& answer, std::size_t size, bool reset, const Outcome& outcome) {
  const int code = reset && !answer.IsOver(size) ? 56 : answer.CodeOf(size);
  EXPECT_EQ(outcome.response.curlCode, code);
  EXPECT_EQ(outcome.result, code == 0 || code == 18);
  EXPECT_EQ(outcome.response.retryable, code == 56);
  EXPECT_EQ(outcome.response.hostNotFound, false);
  EXPECT_EQ(outcome.response.headers, answer.HeadersOf(size));
  EXPECT_EQ(outcome.response.httpCode == 0, !outcome.result);
}

// Calls it for every answer, every place in it and both ends.
template <class Check>
void ForEveryEnd(const char* status, Check check) {
  for (const Answer& answer : Answers(status)) {
    const std::string bytes = answer.Whole();
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
      for (const bool reset : {false, true}) {
        SCOPED_TRACE(bytes.substr(0, size) + (reset ? "<reset>" : "<end>"));
        const ScriptedServer server(EndingAfter(bytes, size, reset));
        check(answer, size, reset, server);
        if (::testing::Test::HasFailure()) {
          return;
        }
      }
    }
  }
}

}  // namespace

TEST_F(PeersHttp, AnEndAtEveryByteIntoMemory) {
  Tell("an end at every byte", CostOf([] {
         ForEveryEnd("HTTP/1.1 200 OK\r\n",
                     [](const Answer& answer, std::size_t size, bool reset, const ScriptedServer& server) {
                       const Outcome outcome = Fetch(server.Url());
                       CheckEnd(answer, size, reset, outcome);
                       EXPECT_EQ(outcome.response.body, answer.ContentOf(size));
                     });
       }),
       "");
}

TEST_F(PeersHttp, AnEndAtEveryByteIntoAFile) {
  const TempDir dir;
  ForEveryEnd("HTTP/1.1 200 OK\r\n",
              [&](const Answer& answer, std::size_t size, bool reset, const ScriptedServer& server) {
                const FilePtr file = OpenFile(dir / "out", "wb");
                QsInetHttpRequest request = Get(server.Url());
                request.outputFile = file.get();
                CheckEnd(answer, size, reset, Fetch(request));
                EXPECT_EQ(TempDir::Read(dir / "out"), answer.ContentOf(size)) << "while the stream is open";
              });
}

TEST_F(PeersHttp, AnEndAtEveryByteOfTheRest) {
  const TempDir dir;
  ForEveryEnd("HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 6-25/26\r\n",
              [&](const Answer& answer, std::size_t size, bool reset, const ScriptedServer& server) {
                const FilePtr file = OpenFile(dir.Write("out", "before"), "ab");
                QsInetHttpRequest request = Get(server.Url());
                request.outputFile = file.get();
                request.resume = true;
                request.resumeFrom = 6;
                CheckEnd(answer, size, reset, Fetch(request));
                EXPECT_EQ(TempDir::Read(dir / "out"), "before" + answer.ContentOf(size));
                EXPECT_THAT(server.Requests(), Each(HasSubstr("\r\nRange: bytes=6-\r\n")));
              });
}

// ---- what is not so ----

// libcurl's rules: the last length counts, its digits as far as they go, chunks before any length, and a length beyond
// 2^63 is none.
TEST_F(PeersHttp, WrongLengths) {
  const std::string chunks = "Transfer-Encoding: chunked\r\n";
  const struct {
    std::string lines;
    std::string sent;
    int code;
    std::string body;
  } rows[] = {
      {"Content-Length: 3\r\n", "abcdef", 0, "abc"},
      {"Content-Length: 20\r\n", "abc", 18, "abc"},
      {"Content-Length: 0\r\n", "abc", 0, ""},
      {"Content-Length: -5\r\n", "abc", 8, ""},
      {"Content-Length: abc\r\n", "abc", 8, ""},
      {"Content-Length:\r\n", "abc", 8, ""},
      {"Content-Length: 0x3\r\n", "abc", 0, ""},
      {"Content-Length: 2147483648\r\n", "abc", 18, "abc"},
      {"Content-Length: 4294967296\r\n", "abc", 18, "abc"},
      {"Content-Length: 4294967299\r\n", "abc", 18, "abc"},
      {"Content-Length: 9223372036854775807\r\n", "abc", 18, "abc"},
      {"Content-Length: 9223372036854775808\r\n", "abc", 0, "abc"},
      {"Content-Length: 18446744073709551619\r\n", "abc", 0, "abc"},
      {"Content-Length: 99999999999999999999999999\r\n", "abc", 0, "abc"},
      {"Content-Length: 3\r\nContent-Length: 5\r\n", "abcde", 0, "abcde"},
      {"Content-Length: 5\r\nContent-Length: 3\r\n", "abcde", 0, "abc"},
      {"Content-Length: 3, 5\r\n", "abcde", 0, "abc"},
      {"Content-Length: 2\r\n" + chunks, "5\r\nabcde\r\n0\r\n\r\n", 0, "abcde"},
      {chunks + "Content-Length: 2\r\n", "5\r\nabcde\r\n0\r\n\r\n", 0, "abcde"},
      {chunks, "-3\r\nabc\r\n0\r\n\r\n", 56, ""},
      {chunks, "xyz\r\nabc\r\n0\r\n\r\n", 56, ""},
      {chunks, "7FFFFFFFFFFFFFFF\r\nabc", 18, "abc"},
      {chunks, "FFFFFFFFFFFFFFFF\r\nabc", 56, ""},
      {chunks, "10000000000000003\r\nabc", 56, ""},
      {chunks, "3\r\nabcdef\r\n0\r\n\r\n", 56, "abc"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.lines + row.sent);
    const ScriptedServer server("HTTP/1.1 200 OK\r\n" + row.lines + "\r\n" + row.sent);
    const Met met = Transfer(Get(server.Url()));
    ExpectBounded(row.lines, met.cost);
    EXPECT_EQ(met.response.curlCode, row.code) << met.response.errorText;
    EXPECT_EQ(met.result, row.code == 0 || row.code == 18);
    EXPECT_EQ(met.response.retryable, row.code == 56);
    EXPECT_EQ(met.response.body, row.body);
    EXPECT_EQ(met.response.contentLength, row.body.size());
    EXPECT_EQ(met.response.httpCode, met.result ? 200 : 0);
  }
}

TEST_F(PeersHttp, OddHeadersAndStatusLines) {
  const std::string nul(1, '\0');
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const struct {
    std::string headers;
    bool result;
    int status;
  } rows[] = {
      {ok + "X" + nul + "Y: a\r\n", false, 0},
      {ok + "X: a" + nul + "b\r\n", false, 0},
      {ok + "no colon\r\n", false, 0},
      {ok + " continues nothing\r\n", false, 0},
      {ok + "X: a\rb\r\n", true, 200},
      {"HTTP/1.1 200 OK\rX: y\r\n", true, 200},
      {ok + ": no name\r\n", true, 200},
      {ok + "X: a\r\n b\r\n\tc\r\n", true, 200},
      {ok + "X\xFF\x01: \xFE\x7F\r\n", true, 200},
      {"HTTP/1.1\r\n", false, 0},
      {"HTTP/1.1 abc OK\r\n", false, 0},
      {"HTTP/1.1 20 OK\r\n", false, 0},
      {"HTTP/1.1 000 OK\r\n", false, 0},
      {"HTTP/1.1 -200 OK\r\n", false, 0},
      {"HTTP/1.1 99999 OK\r\n", false, 0},
      {"HTTP/1.1 999 OK\r\n", true, 999},
      {"HTTP/1.1 200OK\r\n", true, 200},
      {"HTTP/1.1 " + nul + "200 OK\r\n", false, 0},
      {"HTTP/0.9 200 OK\r\n", false, 0},
      {"HTTP/9.9 200 OK\r\n", false, 0},
      {"HTTP/3 200 OK\r\n", false, 0},
      {"ICY 200 OK\r\n", false, 0},
      {" HTTP/1.1 200 OK\r\n", false, 0},
      {"\r\nHTTP/1.1 200 OK\r\n", false, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.headers);
    const ScriptedServer server(row.headers + "Content-Length: 2\r\n\r\nok");
    const Met met = Transfer(Get(server.Url()));
    ExpectBounded(row.headers, met.cost);
    EXPECT_EQ(met.result, row.result) << met.response.errorText;
    EXPECT_EQ(met.response.httpCode, row.status);
    EXPECT_THAT(met.response.curlCode, row.result ? ::testing::Matcher<int>(0) : AnyOf(1, 8));
    EXPECT_FALSE(met.response.retryable);
    EXPECT_EQ(met.response.body, row.result ? "ok" : "");
  }
}

// ---- redirections ----

namespace {

// What a peer redirects to; the bait must never be asked.
std::vector<std::string> Targets(const std::string& bait, const std::string& file) {
  return {"/",
          "http://" + bait + "/",
          "http://user:secret@" + bait + "/",
          "//" + bait + "/",
          "ftp://" + bait + "/",
          "gopher://" + bait + "/_hello",
          "dict://" + bait + "/d:x",
          "file://" + file,
          "file:///etc/passwd",
          "http://127.0.0.1/\rX: y",
          std::string(100000, 'x')};
}

}  // namespace

TEST_F(PeersHttp, NoRedirectionIsFollowed) {
  const TempDir dir;
  const ScriptedServer bait("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nbait!");
  for (const std::string& target : Targets(bait.Host(), dir.Write("file", "bait!"))) {
    for (const int status : {300, 301, 302, 303, 307, 308}) {
      for (const char* post : {"", "content"}) {
        SCOPED_TRACE(target.substr(0, 100));
        const ScriptedServer server("HTTP/1.1 " + std::to_string(status) + " Elsewhere\r\nLocation: " + target +
                                    "\r\nRefresh: 0; url=" + target + "\r\nContent-Length: 2\r\n\r\nno");
        QsInetHttpRequest request = Get(server.Url());
        request.postData = post;
        request.httpUser = "joe";
        const Met outcome = Transfer(request);
        ExpectBounded(target.substr(0, 100), outcome.cost);
        EXPECT_TRUE(outcome.result) << outcome.response.errorText;
        EXPECT_EQ(outcome.response.httpCode, status);
        EXPECT_EQ(outcome.response.body, "no");
        EXPECT_FALSE(outcome.response.retryable);
        EXPECT_THAT(server.Requests(), SizeIs(1)) << "a loop ends with its first turn";
      }
    }
  }
  EXPECT_THAT(bait.Requests(), IsEmpty());
}

// ---- the rest of a file ----

// libcurl's rules: a range that begins elsewhere is refused, and so is none; one that it cannot read is taken; and a
// length that is the offset means that all is there already. `qs` is stricter.
TEST_F(PeersHttp, TheRestOfAFile) {
  const struct {
    std::string headers;
    std::string sent;
    int code;
    int status;
    std::string content;
  } rows[] = {
      {"206 Partial Content\r\nContent-Range: bytes 5-9/10\r\nContent-Length: 5\r\n", "fghij", 0, 206, "fghij"},
      {"206 Partial Content\r\nContent-Range: bytes 0-4/10\r\nContent-Length: 5\r\n", "abcde", 0, 206, ""},
      {"206 Partial Content\r\nContent-Range: bytes 6-9/10\r\nContent-Length: 4\r\n", "ghij", 33, 206, ""},
      {"206 Partial Content\r\nContent-Range: bytes 4294967301-4294967305/9\r\nContent-Length: 5\r\n", "fghij", 0, 206,
       ""},
      {"206 Partial Content\r\nContent-Range: bytes -5\r\nContent-Length: 5\r\n", "fghij", 0, 206, "fghij"},
      {"206 Partial Content\r\nContent-Range: nonsense\r\nContent-Length: 5\r\n", "fghij", 0, 206, "fghij"},
      {"206 Partial Content\r\nContent-Length: 5\r\n", "fghij", 0, 206, ""},
      {"206 Partial Content\r\nContent-Length: 7\r\n", "fghijkl", 33, 206, ""},
      {"206 Partial Content\r\n", "fghij", 33, 206, ""},
      {"206 Partial Content\r\nTransfer-Encoding: chunked\r\n", "5\r\nfghij\r\n0\r\n\r\n", 33, 206, ""},
      {"200 OK\r\nContent-Length: 10\r\n", "abcdefghij", 33, 200, ""},
      {"200 OK\r\n", "abcdefghij", 33, 200, ""},
      {"200 OK\r\nContent-Range: nonsense\r\n", "abcdefghij", 0, 200, "abcdefghij"},
      {"200 OK\r\nContent-Length: 5\r\n", "abcde", 0, 200, ""},  // the whole file is there
      {"416 No\r\nContent-Range: bytes */5\r\nContent-Length: 2\r\n", "no", 0, 416, ""},
      {"206 Partial Content\r\nContent-Range: bytes 5-9/10\r\nContent-Length: 9\r\n", "fghij", 18, 206, "fghij"},
      {"206 Partial Content\r\nContent-Range: bytes 5-9/10\r\nContent-Length: 5\r\n", "fghijklm", 0, 206, "fghij"},
  };
  const TempDir dir;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.headers);
    const ScriptedServer server("HTTP/1.1 " + row.headers + "\r\n" + row.sent);
    const FilePtr file = OpenFile(dir.Write("out", "abcde"), "ab");
    QsInetHttpRequest request = Get(server.Url());
    request.outputFile = file.get();
    request.resume = true;
    request.resumeFrom = 5;
    const Met outcome = Transfer(request);
    ExpectBounded(row.headers, outcome.cost);
    EXPECT_TRUE(outcome.result);
    EXPECT_EQ(outcome.response.curlCode, row.code);
    EXPECT_EQ(outcome.response.httpCode, row.status);
    EXPECT_EQ(TempDir::Read(dir / "out"), "abcde" + row.content);
  }
}

// ---- proxies ----

namespace {

Met MeetProxy(const std::string& peer, const Script& script, int connectTimeout = 0) {
  const ScriptedServer proxy(script);
  QsInetHttpRequest request = Get("https://origin.invalid/");
  request.proxyServer = proxy.Host();
  request.connectTimeout = connectTimeout;
  const Met met = Transfer(request);
  TellAndCheck(peer, met);
  EXPECT_FALSE(met.result) << peer;
  EXPECT_EQ(met.response.httpCode, 0) << peer;
  EXPECT_EQ(met.response.body, "") << peer;
  EXPECT_LE(met.response.headers.size(), std::size_t{512} << 10) << peer;
  for (const std::string& sent : proxy.Requests()) {
    EXPECT_THAT(sent, HasSubstr("CONNECT origin.invalid:443 HTTP/1.1\r\n")) << peer;
  }
  return met;
}

}  // namespace

TEST_F(PeersHttp, ProxiesThatAnswerNonsense) {
  const std::string opened = "HTTP/1.1 200 Opened\r\n\r\n";
  for (const std::string answer :
       {"", "garbage\r\n\r\n", "HTTP/1.1", "HTTP/1.1 200 Op", "HTTP/1.1 500 No\r\n\r\n",
        "HTTP/1.1 302 Go\r\nLocation: http://127.0.0.1:1/\r\n\r\n",
        "HTTP/1.1 407 Who\r\nProxy-Authenticate: Basic\r\n\r\n", "HTTP/1.1 200 Opened\r\nContent-Length: -1\r\n\r\n"}) {
    const Met met = MeetProxy("CONNECT: " + answer.substr(0, answer.find('\r')), Once(answer));
    EXPECT_THAT(met.response.curlCode, AnyOf(8, 35, 43, 52, 56)) << answer;
  }
  for (const std::string& tunnelled : {std::string(), std::string("garbage"), std::string(100000, '\0')}) {
    const Met met = MeetProxy("CONNECT, then " + std::to_string(tunnelled.size()) + " bytes", Once(opened + tunnelled));
    EXPECT_EQ(met.response.curlCode, 35) << met.response.errorText;
    EXPECT_TRUE(met.response.retryable);
  }
}

TEST_F(PeersHttp, ProxiesThatAnswerWithoutEnd) {
  const struct {
    const char* name;
    std::string begin;
    std::string piece;
  } rows[] = {
      {"CONNECT: endless header line", "HTTP/1.1 200 OK\r\nX: ", "x"},
      {"CONNECT: endless header lines", "HTTP/1.1 200 OK\r\n", "X: yyyyyyyyyyyyyyyyyy\r\n"},
      {"CONNECT: endless answers of 100", "", "HTTP/1.1 100 Continue\r\n\r\n"},
      {"CONNECT: endless bytes in the tunnel", "HTTP/1.1 200 OK\r\n\r\n", "x"},
  };
  for (const auto& row : rows) {
    const Met met = MeetProxy(row.name, ForEver(row.begin, row.piece));
    EXPECT_THAT(met.response.curlCode, AnyOf(27, 35, 56, 100)) << met.response.errorText;
  }
}

// The answer to CONNECT is part of connecting.
TEST_F(PeersHttp, ProxiesThatLetWaitEndByTheTimeOutOfConnecting) {
  const struct {
    const char* name;
    Script script;
  } rows[] = {
      {"CONNECT: says nothing", Silence()},
      {"CONNECT: slow headers", Drip("HTTP/1.1 200 OK\r\n", "X: y\r\n", kPause)},
      {"CONNECT: silence in the tunnel",
       [](Connection& connection) {
         connection.Send("HTTP/1.1 200 OK\r\n\r\n");
         connection.WaitForClose();
       }},
  };
  for (const auto& row : rows) {
    const Met met = MeetProxy(row.name, row.script, 1);
    EXPECT_EQ(met.response.curlCode, 28) << row.name << met.response.errorText;
    EXPECT_TRUE(met.response.retryable) << row.name;
  }
}
