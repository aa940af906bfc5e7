// Many threads that transfer at once, plain and over TLS: every byte arrives, and nothing piles up.
#include <QSbase/net/http.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <malloc.h>

#include <common/sanitized.h>
#include <common/tempdir.h>
#include <integration/common/holdings.h>
#include <integration/common/loopback.h>
#include <integration/common/server.h>
#include <integration/common/transfer.h>

using namespace qsbase::testing;

namespace {

constexpr int kThreads = 64;
constexpr int kTransfers = 10000;
constexpr int kFailures = 2000;

// What is allocated on first use, and caches, are full by then.
constexpr int kWarmUp = 640;

// The C library keeps the stacks of ended threads. How many there are, and how deep they were used, is another thing in
// each run: by as much the resident memory may differ without a leak.
[[maybe_unused]] constexpr std::int64_t kStacks = kThreads * (std::int64_t{128} << 10);

bool AbortAtOnce(void* /*user*/) { return true; }

class HttpSoak : public ::testing::Test {
 protected:
  HttpSoak() : _content(Noise(20000)), _nginx(Serving(_dir, _content), ""), _otherCa(_dir, "other") {
    mallopt(M_ARENA_MAX, 2);  // of which each takes many addresses when it is first used
    InitQsInetHttp(1);
    QsInitOpenSSLSynchronization();
  }
  ~HttpSoak() override {
    QsDeinitOpenSSLSynchronization();
    InitQsInetHttp(2);
  }

  /// Over HTTP and HTTPS, the certificate looked at or not, into memory and into a file. Whether all was right.
  bool Succeeds(int number, std::FILE* file) const {
    QsInetHttpRequest request = Get(number % 2 == 0 ? _nginx.Url("/data") : _nginx.TlsUrl("/data"));
    request.verifyPeer = request.verifyHost = number % 4 == 1;
    request.caInfoFile = _nginx.CaFile();
    request.outputFile = number % 8 < 4 ? nullptr : file;
    const Outcome outcome = Fetch(request);
    const std::string body = request.outputFile == nullptr ? outcome.response.body : ContentOf(file);
    return outcome.result && outcome.response.httpCode == 200 && body == _content;
  }

  /// Nobody listens, a certificate of somebody else, an abort, a page that is missing. Whether it failed as it should.
  bool Fails(int number, std::FILE* /*file*/) const {
    QsInetHttpRequest request = Get(number % 4 == 3 ? _nginx.Url("/missing") : _nginx.TlsUrl("/data"));
    request.verifyPeer = number % 4 == 1;
    request.caInfoFile = _otherCa.CertificateFile();
    if (number % 4 == 0) {
      request.url = "http://127.0.0.1:" + std::to_string(PortOf(_closed));
    }
    QsInetHttpResponse response;
    const bool result =
        QsInetHttp(request, response, nullptr, nullptr, number % 4 == 2 ? &AbortAtOnce : nullptr, nullptr, 0);
    constexpr int kCodes[] = {7, 60, 42, 0};
    return response.curlCode == kCodes[number % 4] && result == (number % 4 == 3) &&
           (number % 4 != 3 || response.httpCode == 404);
  }

  /// How many of so many transfers, shared by the threads, were right.
  template <class Transfer>
  int Run(int transfers, Transfer transfer) const {
    std::atomic<int> next{0};
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        for (int number = next++; number < transfers; number = next++) {
          const FilePtr file(std::tmpfile(), &std::fclose);
          right += file != nullptr && transfer(number, file.get()) ? 1 : 0;
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    return right;
  }

  /// Runs a few to warm up and then all, and compares what the process holds in between and at the end.
  template <class Transfer>
  void ExpectNothingPilesUp(int transfers, Transfer transfer) const {
    Held();  // waits from now on for threads that are more than at first
    EXPECT_EQ(Run(kWarmUp, transfer), kWarmUp);
    const Holdings before = Held();
    EXPECT_EQ(Run(transfers, transfer), transfers);
    const Holdings after = Held();
    SCOPED_TRACE(::testing::Message() << "before: " << before << "\nafter: " << after);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.handles, before.handles);
#ifndef QSBASE_TESTS_SANITIZED  // their allocators keep what is freed for a while; AddressSanitizer tells leaks itself
    EXPECT_LT(after.heap, before.heap + transfers * 16);
    EXPECT_LT(after.resident, before.resident + transfers * std::int64_t{1024} + kStacks);
    EXPECT_LT(after.addresses, before.addresses + (std::int64_t{64} << 20));
#endif
  }

  /// How many requests the server has answered.
  std::int64_t Answered() const {
    const std::string log = TempDir::Read(_dir / "access.log");
    return std::count(log.begin(), log.end(), '\n');
  }

  TempDir _dir;
  const std::string _content;
  const Nginx _nginx;
  const ThrowAwayCa _otherCa;
  const Socket _closed = BoundSocket();

 private:
  static const TempDir& Serving(const TempDir& dir, const std::string& content) {
    dir.Write("www/data", content);
    return dir;
  }

  static std::string ContentOf(std::FILE* file) {
    std::rewind(file);
    std::string content(1 << 15, '\0');
    content.resize(std::fread(content.data(), 1, content.size(), file));
    return content;
  }
};

}  // namespace

TEST_F(HttpSoak, NothingPilesUp) {
  ExpectNothingPilesUp(kTransfers, [this](int number, std::FILE* file) { return Succeeds(number, file); });
  EXPECT_EQ(Answered(), kWarmUp + kTransfers);
}

TEST_F(HttpSoak, NorDoesItWhenTransfersFail) {
  ExpectNothingPilesUp(kFailures, [this](int number, std::FILE* file) { return Fails(number, file); });
}
