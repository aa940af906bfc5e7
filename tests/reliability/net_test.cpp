// What transfers, sockets and the helpers over XML promise when any call that is made for them fails, comes back short
// or is interrupted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <libxml/parser.h>
#include <libxml/xmlmemory.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <common/noise.h>
#include <common/tempdir.h>
#include <integration/common/ftpserver.h>
#include <integration/common/loopback.h>
#include <integration/common/scriptedserver.h>
#include <reliability/common/faults.h>
#include <reliability/common/peerprocess.h>
#include <reliability/common/sweep.h>

#include <QSbase/net/ftp.h>
#include <QSbase/net/http.h>
#include <QSbase/net/socket.h>
#include <QSbase/net/socketerror.h>
#include <QSbase/support/libxmlsupport.h>

namespace {

using qsbase::testing::Blow;
using qsbase::testing::Connection;
using qsbase::testing::Fault;
using qsbase::testing::FaultInjection;
using qsbase::testing::FaultKind;
using qsbase::testing::FtpConnection;
using qsbase::testing::kFileBlows;
using qsbase::testing::NoFaults;
using qsbase::testing::Noise;
using qsbase::testing::Outcome;
using qsbase::testing::PeerProcess;
using qsbase::testing::ShortPatience;
using qsbase::testing::Socket;
using qsbase::testing::TempDir;
using qsbase::testing::Trial;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string kContent = Noise(150000);  // several pieces of what libcurl takes at once

// What connections meet, and the files that their content comes from or goes to.
const std::vector<Blow> kNetBlows = {
    {FaultKind::Open, EMFILE, true},
    {FaultKind::Connect, ECONNREFUSED, true},
    {FaultKind::Connect, ETIMEDOUT, true},
    {FaultKind::Send, ECONNRESET, true},
    {FaultKind::Receive, ECONNRESET, true},
    {FaultKind::Receive, ETIMEDOUT, true},
    {FaultKind::Read, EIO, true},
    {FaultKind::Write, ENOSPC, true},
    {FaultKind::Stat, EIO, true},
    {FaultKind::Close, EIO, true},
    {FaultKind::Allocate, ENOMEM, true},
    {FaultKind::Send, EINTR, false},
    {FaultKind::Receive, EINTR, false},
    {FaultKind::Send, qsbase::testing::kShort, false},
    {FaultKind::Read, qsbase::testing::kShort, false},
    {FaultKind::Write, qsbase::testing::kShort, false},
    {FaultKind::Receive, qsbase::testing::kShort, false},
};

bool IsNetwork(const Fault& fault) {
  return fault.kind == FaultKind::Connect || fault.kind == FaultKind::Send || fault.kind == FaultKind::Receive;
}

// ---- HTTP ----

std::string Answer(const std::string& status, const std::string& headers, const std::string& body) {
  return "HTTP/1.1 " + status + "\r\nConnection: close\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// A POST gets its content back, a GET the file, or its rest.
std::string AnswerTo(const std::string& request) {
  if (request.starts_with("POST")) {
    return Answer("200 OK", "", request.substr(request.find("\r\n\r\n") + 4));
  }
  const std::string range = "\r\nRange: bytes=";
  const std::size_t found = request.find(range);
  if (found == std::string::npos) {
    return Answer("200 OK", "", kContent);
  }
  const std::size_t start = std::strtoul(request.c_str() + found + range.size(), nullptr, 10);
  return Answer("206 Partial Content",
                "Content-Range: bytes " + std::to_string(start) + "-" + std::to_string(kContent.size() - 1) + "/" +
                    std::to_string(kContent.size()) + "\r\n",
                kContent.substr(start));
}

struct Got {
  bool result = false;
  QsInetHttpResponse response;
  bool stored = true;  ///< the stream and its end took all
};

class HttpFaults : public ::testing::Test {
 protected:
  HttpFaults() { InitQsInetHttp(1); }
  ~HttpFaults() override { InitQsInetHttp(2); }

  QsInetHttpRequest Request() const {
    QsInetHttpRequest request;
    request.url = "http://127.0.0.1:" + std::to_string(_peer.Port()) + "/file";
    return request;
  }

  static Got Transfer(const QsInetHttpRequest& request) {
    Got got;
    got.result = QsInetHttp(request, got.response, nullptr, nullptr, nullptr, nullptr, 0);
    return got;
  }

  // Into the file, by a stream as a host opens it.
  Got Download(QsInetHttpRequest request, const char* mode) const {
    std::FILE* const stream = std::fopen(_file.c_str(), mode);
    if (stream == nullptr) {
      return {};
    }
    request.outputFile = stream;
    Got got;
    try {
      got = Transfer(request);
    } catch (...) {
      std::fclose(stream);
      throw;
    }
    got.stored = std::ferror(stream) == 0;
    return std::fclose(stream) == 0 ? got : (got.stored = false, got);
  }

  static bool IsWhole(const Outcome<Got>& outcome) {
    return outcome.result && outcome.result->result && outcome.result->response.curlCode == 0 &&
           outcome.result->response.httpCode / 100 == 2 && outcome.result->stored;
  }

  // The code and the text that tell of the fault.
  static void ExpectReport(const Outcome<Got>& outcome) {
    if (!outcome.allowed) {
      EXPECT_TRUE(IsWhole(outcome)) << outcome.result->response.curlCode << ' ' << outcome.result->response.errorText;
    }
    if (!outcome.result || !outcome.hit || outcome.fault.kind == FaultKind::Allocate) {
      return;
    }
    if (outcome.result->result) {
      EXPECT_TRUE(!IsNetwork(outcome.fault) || IsWhole(outcome)) << outcome.result->response.curlCode;
      return;
    }
    const QsInetHttpResponse& response = outcome.result->response;
    EXPECT_EQ(response.httpCode, 0);
    if (outcome.fault.kind == FaultKind::Connect) {
      EXPECT_EQ(response.curlCode, outcome.fault.error == ETIMEDOUT ? 28 : 7);
    } else if (outcome.fault.kind == FaultKind::Send) {
      EXPECT_EQ(response.curlCode, 55);
    } else if (outcome.fault.kind == FaultKind::Receive) {
      EXPECT_EQ(response.curlCode, 56);
    } else if (outcome.fault.kind == FaultKind::Write) {
      EXPECT_EQ(response.curlCode, 23);
    }
    if (IsNetwork(outcome.fault)) {
      EXPECT_THAT(response.errorText, HasSubstr(QsErrorMessage(outcome.fault.error)));
      EXPECT_EQ(response.retryable, response.curlCode != 55);
    }
  }

  // A body that finds no memory is let go, and the transfer goes on: its length tells.
  static void ExpectBody(const Outcome<Got>& outcome, const std::string& whole) {
    if (!outcome.result) {
      return;
    }
    const QsInetHttpResponse& response = outcome.result->response;
    EXPECT_EQ(response.contentLength, response.body.size());
    if (outcome.fault.kind == FaultKind::Allocate && response.body.size() != whole.size()) {
      EXPECT_TRUE(response.body.size() < whole.size() && whole.find(response.body) != std::string::npos);
    } else if (IsWhole(outcome)) {
      EXPECT_TRUE(response.body == whole) << response.body.size();
    } else {
      EXPECT_TRUE(whole.starts_with(response.body)) << response.body.size();
    }
  }

  // What stands in the file after a download of which `before` was there.
  void ExpectFile(const Outcome<Got>& outcome, const std::string& before) const {
    const std::string now = TempDir::Read(_file);
    if (IsWhole(outcome)) {
      EXPECT_TRUE(now == kContent) << now.size();
    } else if (outcome.fault.kind == FaultKind::Write && outcome.result && outcome.result->result) {
      EXPECT_FALSE(outcome.result->stored) << "a flush that failed, which only the stream tells of";
      EXPECT_THAT(now, StartsWith(before));
    } else {
      EXPECT_TRUE(now.starts_with(before) && kContent.starts_with(now)) << now.size();
    }
  }

  const PeerProcess _peer{[](Socket accepted) {
    Connection connection(std::move(accepted));
    connection.Send(AnswerTo(connection.ReceiveRequest()));
  }};
  const TempDir _dir;
  const std::string _file = _dir / "file";
};

TEST_F(HttpFaults, ADownloadToMemoryIsWholeOrReported) {
  const QsInetHttpRequest request = Request();
  Trial(
      "QsInetHttp, to memory", [] {}, [&request] { return Transfer(request); },
      [](const Outcome<Got>& outcome) {
        ExpectReport(outcome);
        ExpectBody(outcome, kContent);
      })
      .Sweep(kNetBlows);
}

TEST_F(HttpFaults, ADownloadToAFileIsWholeOrItsBeginning) {
  const QsInetHttpRequest request = Request();
  Trial(
      "QsInetHttp, to a file", [this] { std::remove(_file.c_str()); },
      [this, &request] { return Download(request, "wb"); },
      [this](const Outcome<Got>& outcome) {
        ExpectReport(outcome);
        ExpectFile(outcome, "");
      })
      .Sweep(kNetBlows);
}

TEST_F(HttpFaults, ADownloadThatGoesOnIsWholeOrItsBeginning) {
  const std::string half = kContent.substr(0, 70000);
  QsInetHttpRequest request = Request();
  request.resume = true;
  request.resumeFrom = static_cast<std::uint32_t>(half.size());
  Trial(
      "QsInetHttp, resumed", [this, &half] { _dir.Write("file", half); },
      [this, &request] { return Download(request, "ab"); },
      [this, &half](const Outcome<Got>& outcome) {
        ExpectReport(outcome);
        ExpectFile(outcome, half);
      })
      .Sweep(kNetBlows);
}

TEST_F(HttpFaults, APostIsSentWholeOrReported) {
  QsInetHttpRequest request = Request();
  request.postData = "posted" + kContent;
  request.extraHeaders = "X-One: 1\r\nX-Two: 2";
  Trial(
      "QsInetHttp, POST", [] {}, [&request] { return Transfer(request); },
      [&request](const Outcome<Got>& outcome) {
        ExpectReport(outcome);
        ExpectBody(outcome, request.postData);
      })
      .Sweep(kNetBlows);
}

// ---- FTP ----

struct Sent {
  bool done = false;
  std::string errorText;
  std::vector<std::string> names;
};

class FtpFaults : public ::testing::Test {
 protected:
  FtpFaults() { InitQsInetHttp(1); }
  ~FtpFaults() override { InitQsInetHttp(2); }

  QsFTPServer Server() const { return {"127.0.0.1", std::to_string(_peer.Port()), "joe", "secret", ""}; }

  // Takes an upload into the file before it says that it is stored.
  void ServeFtp(Socket accepted) const {
    FtpConnection connection(std::move(accepted));
    connection.listing = "one\r\ntwo\r\nthree\r\n";
    while (connection.ServeUntil("STOR")) {
      connection.Say("150 Send it");
      std::string content;
      for (Connection data = connection.Data(); data.Receive(content);) {
      }
      _dir.Write("stored", content);
      connection.Say("226 Stored");
    }
  }

  // A refused local file has no text, as the header says, and what there was no memory for may have none.
  static void ExpectReport(const Outcome<Sent>& outcome) {
    if (!outcome.allowed) {
      EXPECT_TRUE(outcome.result->done) << outcome.result->errorText;
    }
    if (!outcome.result) {
      return;
    }
    const auto& [done, errorText, names] = *outcome.result;
    if (done) {
      EXPECT_EQ(errorText, "");
    } else if (IsNetwork(outcome.fault)) {
      EXPECT_NE(errorText, "");
    }
  }

  const ShortPatience _patience;
  const TempDir _dir;
  const std::string _file = _dir.Write("file", kContent);
  const PeerProcess _peer{[this](Socket accepted) { ServeFtp(std::move(accepted)); }};
};

TEST_F(FtpFaults, AnUploadIsWholeOrReported) {
  Trial(
      "QsFTP, upload", [this] { std::remove((_dir / "stored").c_str()); },
      [this] {
        Sent sent;
        QsFTP ftp(Server(), nullptr);
        sent.done = ftp.Upload({_file, "name", "d"}, sent.errorText);
        return sent;
      },
      [this](const Outcome<Sent>& outcome) {
        ExpectReport(outcome);
        if (outcome.result && outcome.result->done) {
          EXPECT_TRUE(TempDir::Read(_dir / "stored") == kContent);
        } else if (outcome.result && !outcome.result->errorText.empty() && outcome.fault.kind != FaultKind::Allocate) {
          ASSERT_FALSE(outcome.log.empty());
          EXPECT_EQ(outcome.log.back().text,
                    "QsFTP::Upload error performing 'file': '" + outcome.result->errorText + "'");
        }
      })
      .Sweep(kNetBlows);
}

TEST_F(FtpFaults, AListingIsWholeOrReported) {
  Trial(
      "QsFTP, listing", [] {},
      [this] {
        Sent sent;
        QsFTP ftp(Server(), nullptr);
        sent.done = ftp.List("d", sent.names, sent.errorText);
        return sent;
      },
      [](const Outcome<Sent>& outcome) {
        ExpectReport(outcome);
        if (outcome.result && outcome.result->done) {
          EXPECT_THAT(outcome.result->names, ElementsAre("one", "two", "three"));
        }
      })
      .Sweep(kNetBlows);
}

// ---- sockets ----

struct Talk {
  int connected = 0;
  int transferred = 0;  ///< the result of the last write or read
  int error = 0;        ///< the last error behind it
  std::string echo;
};

class SocketFaults : public ::testing::Test {
 protected:
  static int WriteAll(QsSocket& socket, const std::string& text) {
    int done = 0;
    int count = 1;
    while (done < static_cast<int>(text.size()) && count > 0) {
      count = socket.Write(text.data() + done, static_cast<int>(text.size()) - done);
      done += count;
    }
    return count;
  }

  static int ReadAll(QsSocket& socket, std::string& text, std::size_t size) {
    char buffer[4096];
    int count = 1;
    while (text.size() < size && count > 0) {
      count = socket.Read(buffer, sizeof buffer);
      text.append(buffer, static_cast<std::size_t>(count > 0 ? count : 0));
    }
    return count;
  }

  Talk Echo() const {
    Talk talk;
    QsSocket socket;
    talk.connected = socket.Connect("127.0.0.1", _peer.Port(), 0);
    talk.transferred = talk.connected == 0 ? WriteAll(socket, kSaid) : -1;
    if (talk.transferred > 0) {
      talk.transferred = ReadAll(socket, talk.echo, kSaid.size());
    }
    talk.error = QsGetLastError();
    return talk;
  }

  static void ExpectReport(const Outcome<Talk>& outcome) {
    const Fault& fault = outcome.fault;
    const Talk& talk = *outcome.result;
    EXPECT_EQ(talk.connected, fault.kind == FaultKind::Connect || fault.kind == FaultKind::Open ? -1 : 0);
    EXPECT_EQ(talk.transferred, -1);
    EXPECT_EQ(talk.error, fault.error);
    if (fault.kind == FaultKind::Send || fault.kind == FaultKind::Receive) {
      const std::string action = fault.kind == FaultKind::Send ? "write to" : "read from";
      const int code = qsbase::detail::SocketErrorFrom(fault.error);
      ASSERT_FALSE(outcome.log.empty());
      EXPECT_EQ(outcome.log.back().text, action + " socket failed (" + qsbase::detail::SocketErrorText(code) + ")");
    }
  }

  inline static const std::string kSaid = Noise(20000);

  const PeerProcess _peer{[](Socket accepted) {
    Connection connection(std::move(accepted));
    for (std::string piece; connection.Receive(piece); piece.clear()) {
      connection.Send(piece);
    }
  }};
};

TEST_F(SocketFaults, BytesArriveWholeOrTheFailureIsReported) {
  Trial(
      "QsSocket", [] {}, [this] { return Echo(); },
      [](const Outcome<Talk>& outcome) {
        if (!outcome.result) {
          return;
        }
        EXPECT_TRUE(kSaid.starts_with(outcome.result->echo));
        const FaultKind kind = outcome.fault.kind;
        if (!outcome.allowed) {
          EXPECT_EQ(outcome.result->echo.size(), kSaid.size());
        } else if (kind == FaultKind::Open || IsNetwork(outcome.fault)) {
          ExpectReport(outcome);
        }
      })
      .Sweep(kNetBlows);
}

// ---- XML ----

const std::string kXml = [] {
  std::string xml = "<books>";
  for (int i = 0; i < 20; ++i) {
    xml += "<book n='" + std::to_string(i) + "'><title>A title &amp; more</title><!--c--></book>";
  }
  return xml + "</books>";
}();

const std::string kTitles = [] {
  std::string titles;
  for (int i = 0; i < 20; ++i) {
    titles += "<title>A title &amp; more</title>";
  }
  return titles;
}();

// The memory of libxml2, which ends the process at some of its allocations, is spared; its blocks are counted.
void SpareLibxml() {
  const auto allocate = [](std::size_t size) -> void* {
    const NoFaults spared;
    return std::malloc(size);
  };
  const auto reallocate = [](void* memory, std::size_t size) -> void* {
    const NoFaults spared;
    return std::realloc(memory, size);
  };
  const auto duplicate = [](const char* text) -> char* {
    const NoFaults spared;
    return strdup(text);
  };
  xmlMemSetup(&std::free, allocate, reallocate, duplicate);
}

class XmlFaults : public ::testing::Test {
 protected:
  template <class Prepare, class Run>
  static void Sweep(const std::string& name, const std::string& whole, Prepare prepare, Run run) {
    SpareLibxml();
    Trial(name, prepare, run, [&whole](const Outcome<std::string>& outcome) {
      if (!outcome.allowed) {
        EXPECT_EQ(outcome.result, whole);
      } else if (outcome.result) {
        EXPECT_THAT(*outcome.result, AnyOf("", whole));
      }
    }).Sweep(kFileBlows);
  }

  const TempDir _dir;
  const std::string _file = _dir.Write("a.xml", kXml);
};

TEST_F(XmlFaults, WhatAFileHoldsIsFoundWholeOrNot) {
  Sweep(
      "GetXPathStringFromFile", kTitles, [] {}, [this] { return GetXPathStringFromFile(_file, "//title"); });
}

TEST_F(XmlFaults, WhatATextHoldsIsFoundWholeOrNot) {
  Sweep(
      "GetXPathStringFromString", kTitles, [] {}, [] { return GetXPathStringFromString(kXml, "//title"); });
}

TEST_F(XmlFaults, ADocumentIsSavedWholeOrNot) {
  SpareLibxml();
  xmlDoc* document = xmlReadMemory(kXml.data(), static_cast<int>(kXml.size()), nullptr, nullptr, XML_PARSE_NONET);
  const XmlDocAutoPtr guard(document);
  const std::string whole = QsXmlDocSaveToString(document, true);
  ASSERT_THAT(whole, HasSubstr("<book n=\"19\"><title>A title &amp; more</title><!--c--></book></books>"));
  Sweep(
      "QsXmlDocSaveToString", whole, [] {}, [document] { return QsXmlDocSaveToString(document, true); });
  Sweep(
      "QsXmlDocDumpFormatXML", QsXmlDocDumpFormatXML(document, true), [] {},
      [document] { return QsXmlDocDumpFormatXML(document, true); });
}

// What a process came to in which an allocation failed, libxml2's among them.
enum class Ending { Untouched, Right, Wrong, Killed };

Ending FindIn(const std::string& file, unsigned first) {
  const pid_t child = fork();
  if (child == 0) {
    std::string found;
    bool hit = false;
    try {
      const FaultInjection injection({.kind = FaultKind::Allocate, .error = ENOMEM, .first = first});
      found = GetXPathStringFromFile(file, "//title");
      hit = injection.Hits() != 0;
    } catch (...) {
      hit = true;
    }
    const Ending right = hit ? Ending::Right : Ending::Untouched;
    _exit(static_cast<int>(found == kTitles || (hit && kTitles.starts_with(found)) ? right : Ending::Wrong));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? static_cast<Ending>(WEXITSTATUS(status)) : Ending::Killed;
}

// Nodes that libxml2 finds no memory for in its set of them it leaves out without a word: those at the end.
TEST_F(XmlFaults, NoAllocationThatFailsMakesAWrongResult) {
  xmlMemSetup(&std::free, &std::malloc, &std::realloc, &strdup);
  unsigned killed = 0;
  unsigned first = 1;
  for (; first < 10000; ++first) {
    SCOPED_TRACE("allocation " + std::to_string(first));
    const Ending ending = FindIn(_file, first);
    if (ending == Ending::Untouched) {
      break;
    }
    EXPECT_NE(ending, Ending::Wrong);
    killed += ending == Ending::Killed ? 1 : 0;
  }
  std::printf("swept: GetXPathStringFromFile with libxml2: %u allocations, %u end the process\n", first - 1, killed);
  EXPECT_LT(first, 10000U);
  EXPECT_LT(killed * 10, first) << "libxml2 ends the process at few of its allocations";
}

}  // namespace
