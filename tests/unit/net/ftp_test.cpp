#include <QSbase/net/ftp.h>

#include <climits>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QSbase/net/ftptransfer.h>
#include <QSbase/net/http.h>
#include <QSbase/net/httptransfer.h>
#include <QSbase/net/url.h>
#include <common/curlmemory.h>
#include <common/logcapture.h>
#include <common/tempdir.h>

using namespace qsbase::detail;
using qsbase::testing::curlAllocationsLeft;
using qsbase::testing::LogCapture;
using qsbase::testing::StartCurlOfCountedAllocations;
using qsbase::testing::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// libcurl refuses the blank in it, so that nothing is sent.
constexpr char malformedHost[] = "h h";

std::string MalformedUrlText() { return curl_easy_strerror(CURLE_URL_MALFORMAT); }

QsFTPServer ServerOf(const std::string& host) {
  QsFTPServer server;
  server.host = host;
  return server;
}

QueueItem Item(const std::string& localFile, const std::string& remoteName = "", const std::string& remoteDir = "") {
  QueueItem item;
  item.localFile = localFile;
  item.remoteName = remoteName;
  item.remoteDir = remoteDir;
  return item;
}

std::vector<std::string> LocalFiles(const std::vector<QueueItem>& queue) {
  std::vector<std::string> names;
  for (const QueueItem& item : queue) {
    names.push_back(item.localFile);
  }
  return names;
}

// Notes every call and answers as the test says.
class Recorder : public QsFTPQueueCallback {
 public:
  int OnQueueEvent(int direction, int event, const char* localFile, const char* remoteName,
                   const char* errorText) override {
    EXPECT_EQ(direction, 2);
    calls.push_back(std::to_string(event) + " " + localFile + " " + remoteName + " " +
                    (errorText == nullptr ? "null" : "'" + std::string(errorText) + "'"));
    return answer ? answer(event, localFile) : 0;
  }

  std::vector<std::string> calls;
  std::function<int(int event, const std::string& localFile)> answer;
};

std::vector<std::string> Names(const std::string& listing) {
  std::vector<std::string> names = {"old"};
  SplitListing(listing, names);
  return names;
}

class FtpTest : public ::testing::Test {
 protected:
  FtpTest() { InitQsInetHttp(1); }
  ~FtpTest() override { InitQsInetHttp(2); }

  std::string Missing() const { return dir / "missing"; }

  const TempDir dir;
  Recorder recorder;
};

}  // namespace

// ---- the URL ----

TEST(FtpListing, IsTakenUpToItsLimit) {
  using namespace qsbase::detail;
  Listing listing;
  std::string bytes(16, 'x');
  EXPECT_EQ(TakeListing(bytes.data(), 1, bytes.size(), &listing), bytes.size());
  EXPECT_EQ(listing.body.Bytes(), bytes);
  listing.body.output = std::tmpfile();  // counts, and keeps nothing
  ASSERT_NE(listing.body.output, nullptr);
  listing.body.held = longestListing - 8;
  EXPECT_EQ(TakeListing(bytes.data(), 1, 9, &listing), 0u);
  EXPECT_EQ(TakeListing(bytes.data(), 2, 4, &listing), 8u);
  EXPECT_EQ(TakeListing(bytes.data(), 1, 1, &listing), 0u);
  listing.body.held = 0;
  listing.names = mostNames - 2;
  bytes = "a\nb\nc";
  EXPECT_EQ(TakeListing(bytes.data(), 1, 5, &listing), 5u);
  EXPECT_EQ(TakeListing(bytes.data(), 1, 2, &listing), 0u) << "one name too many";
  std::fclose(listing.body.output);
}

TEST(FtpListing, IsRefusedWhereThereIsNoMemory) {
  using namespace qsbase::detail;
  Listing listing;
  std::string bytes = "a\nb\n";
  listing.body.growthStep = 16;
  EXPECT_EQ(TakeListing(bytes.data(), 1, bytes.size(), &listing), bytes.size());
  listing.body.capacity = bytes.size();
  listing.body.reallocate = [](void*, std::size_t) -> void* { return nullptr; };
  EXPECT_EQ(TakeListing(bytes.data(), 1, bytes.size(), &listing), 0u);
}

TEST(FtpUrl, OfServers) {
  const struct {
    const char* host;
    const char* port;
    const char* user;
    const char* password;
    const char* directory;
    const char* url;
    const char* reason;
  } rows[] = {
      {"h", "", "a b", "", "x/y", "ftp://a%20b@h/x%2Fy/", "user without password, two levels"},
      {"h", "", "", "", "", "ftp://h/", "an empty directory"},
      {"h", "", "", "secret", "", "ftp://h/", "a password without user is ignored"},
      {"h", "2121", "u", "p", "d", "ftp://u:p@h:2121/d/", "everything"},
      {"h", "", "u", "p:@/", "", "ftp://u:p%3A%40%2F@h/", "what has a meaning in URLs is escaped"},
      {"h", "", "joe@x.org", "", "", "ftp://joe%40x%2Eorg@h/", "all but letters and digits is escaped"},
      {"H.example-1.org", "", "", "", "", "ftp://H.example-1.org/", "the host as given"},
      {"[::1]", "21", "", "", "", "ftp://[::1]:21/", "an address of version 6"},
      {"h h/@", " x", "", "", "", "ftp://h h/@: x/", "host and port are not validated"},
      {"", "", "", "", "", "ftp:///", "nothing at all"},
      {"h", "", "", "", "/", "ftp://h/%2F/", "the root"},
      {"h", "", "\xE9", "\xC3\xA9", "\xFF", "ftp://%E9:%C3%A9@h/%FF/", "any bytes"},
  };
  for (const auto& row : rows) {
    QsFTPServer server;
    server.host = row.host;
    server.port = row.port;
    server.user = row.user;
    server.password = row.password;
    server.directory = row.directory;
    EXPECT_EQ(BuildFTPString(server), row.url) << row.reason;
  }
}

TEST(FtpRecords, AreOfStringsInThisOrder) {
  const QsFTPServer server{"host", "port", "user", "password", "directory"};
  EXPECT_EQ(server.host + server.port + server.user + server.password + server.directory,
            "hostportuserpassworddirectory");
  const QsInetFTPUpload job{server, {"localFile", "remoteName", "remoteDir"}};
  EXPECT_EQ(job.server.user, "user");
  EXPECT_EQ(job.item.localFile + job.item.remoteName + job.item.remoteDir, "localFileremoteNameremoteDir");
  static_assert(std::is_abstract_v<QsFTPQueueCallback> && std::has_virtual_destructor_v<QsFTPQueueCallback>);
  static_assert(std::is_copy_constructible_v<QsFTP> && std::is_copy_assignable_v<QsFTP>);
}

// ---- the pieces ----

TEST(FtpListing, GivesOneNameALine) {
  EXPECT_THAT(Names("a\r\nb c\r\n"), ElementsAre("a", "b c"));
  EXPECT_THAT(Names("a\nb c\n"), ElementsAre("a", "b c"));
  EXPECT_THAT(Names("a\r\nb\nc"), ElementsAre("a", "b", "c")) << "mixed, and the last line open";
  EXPECT_THAT(Names("a\r\n\r\n\nb\r\n"), ElementsAre("a", "b")) << "empty lines are no names";
  EXPECT_THAT(Names("\r\n"), IsEmpty());
  EXPECT_THAT(Names("a"), ElementsAre("a"));
  EXPECT_THAT(Names("a\rb\r\n"), ElementsAre("a\rb"));
  EXPECT_THAT(Names("a\r\r\n"), ElementsAre("a\r")) << "one carriage return belongs to the line end";
  EXPECT_THAT(Names(std::string("a\0b\r\n", 5)), ElementsAre(std::string("a\0b", 3)));
  EXPECT_THAT(Names("\xE9\xFF\n"), ElementsAre("\xE9\xFF"));
}

TEST(FtpReadStream, HandsOverTheFile) {
  const TempDir dir;
  const std::string path = dir.Write("f", std::string("a\r\n\0\x1A\n", 6) + "rest");
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  ASSERT_NE(file, nullptr);
  char buffer[8] = {};
  EXPECT_EQ(ReadStream(buffer, 2, 3, file), 6u);
  EXPECT_EQ(std::string(buffer, 6), std::string("a\r\n\0\x1A\n", 6));
  EXPECT_EQ(ReadStream(buffer, 1, 8, file), 4u);
  EXPECT_EQ(std::string(buffer, 4), "rest");
  EXPECT_EQ(ReadStream(buffer, 1, 8, file), 0u);
  std::fclose(file);
}

TEST(FtpReadStream, AStreamThatHasFailedOrIsGoneAbortsTheTransfer) {
  const TempDir dir;
  std::FILE* const file = std::fopen(dir.Write("f", "content").c_str(), "rb");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(std::fputc('x', file), EOF);  // makes it fail
  ASSERT_NE(std::ferror(file), 0);
  char buffer[8];
  EXPECT_EQ(ReadStream(buffer, 1, 8, file), std::size_t{CURL_READFUNC_ABORT});
  std::fclose(file);
  EXPECT_EQ(ReadStream(buffer, 1, 8, nullptr), std::size_t{CURL_READFUNC_ABORT});
}

// ---- transfers that send nothing ----

TEST_F(FtpTest, UploadOfNothingIsRefusedWithoutAWord) {
  const LogCapture log;
  QsFTP ftp(ServerOf(malformedHost), nullptr);
  for (const std::string& file : {std::string(), Missing(), dir.Path()}) {
    std::string errorText = "old";
    EXPECT_FALSE(ftp.Upload(Item(file), errorText)) << file;
    EXPECT_EQ(errorText, "");
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
  EXPECT_EQ(ftp.GetFTPLog(), "");
}

TEST_F(FtpTest, AFailedUploadIsLoggedByItsFileName) {
  const std::string file = dir.Write("100%s.txt", "content");
  const LogCapture log;
  QsFTP ftp(ServerOf(malformedHost), nullptr);
  std::string errorText = "old";
  EXPECT_FALSE(ftp.Upload(Item(file, "other name"), errorText));
  EXPECT_EQ(errorText, MalformedUrlText());
  ASSERT_EQ(log.Messages().size(), 1u);
  EXPECT_EQ(log.Messages()[0].flags, 0x40000000u);
  EXPECT_EQ(log.Messages()[0].text, "QsFTP::Upload error performing '100%s.txt': '" + MalformedUrlText() + "'");
}

TEST_F(FtpTest, AFailedListingIsNotLogged) {
  const LogCapture log;
  QsFTP ftp(ServerOf(malformedHost), nullptr);
  std::vector<std::string> lines = {"old"};
  std::string errorText = "old";
  EXPECT_FALSE(ftp.List("d", lines, errorText));
  EXPECT_EQ(errorText, MalformedUrlText());
  EXPECT_THAT(lines, ElementsAre("old"));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(FtpTest, ANameThatDoesNotFitIntoAUrlIsRefused) {
  const std::string file = dir.Write("f", "content");
  const LogCapture log;
  QsFTP ftp(ServerOf("127.0.0.1"), nullptr);
  std::string errorText;
  EXPECT_FALSE(ftp.Upload(Item(file, std::string(8000001, 'a')), errorText));
  EXPECT_EQ(errorText, curl_easy_strerror(CURLE_BAD_FUNCTION_ARGUMENT));
  EXPECT_THAT(log.Texts(), ElementsAre("QsFTP::Upload error performing 'f': '" + errorText + "'"));
}

TEST_F(FtpTest, WithoutHostNothingIsTried) {
  const LogCapture log;
  QsInetFTPUpload job;
  job.item.localFile = dir.Write("f", "content");
  std::string errorText = "old";
  EXPECT_FALSE(QsFTPUpload(job, errorText));
  EXPECT_EQ(errorText, "");
  job.server.host = malformedHost;
  job.item.localFile.clear();
  EXPECT_FALSE(QsFTPUpload(job, errorText));
  EXPECT_EQ(errorText, "");
  std::vector<std::string> lines = {"old"};
  errorText = "old";
  EXPECT_FALSE(QsFTPList(QsFTPServer(), "d", lines, errorText));
  EXPECT_EQ(errorText, "");
  EXPECT_THAT(lines, ElementsAre("old"));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(FtpTest, TheFreeFunctionsGiveLibcurlsText) {
  QsInetFTPUpload job;
  job.server = ServerOf(malformedHost);
  job.item.localFile = dir.Write("f", "content");
  std::string errorText;
  EXPECT_FALSE(QsFTPUpload(job, errorText));
  EXPECT_EQ(errorText, MalformedUrlText());
  std::vector<std::string> lines;
  errorText.clear();
  EXPECT_FALSE(QsFTPList(job.server, "", lines, errorText));
  EXPECT_EQ(errorText, MalformedUrlText());
}

// ---- the queues ----

TEST_F(FtpTest, TheQueuesAreTwo) {
  QsFTP ftp(ServerOf("h"), nullptr);
  ftp.QueueForUpload(Item("u1"));
  ftp.QueueForUpload(Item("u2"));
  ftp.QueueForDownload(Item("d1"));
  EXPECT_THAT(LocalFiles(ftp.GetUploadQueue()), ElementsAre("u1", "u2"));
  EXPECT_THAT(LocalFiles(ftp.GetDownloadQueue()), ElementsAre("d1"));
  ftp.ClearUploadQueue();
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
  EXPECT_THAT(LocalFiles(ftp.GetDownloadQueue()), ElementsAre("d1"));
  ftp.ClearDownloadQueue();
  EXPECT_THAT(ftp.GetDownloadQueue(), IsEmpty());
}

TEST_F(FtpTest, AnEmptyQueueRunsWell) {
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  EXPECT_TRUE(ftp.StartUploadQueue());
  EXPECT_THAT(recorder.calls, IsEmpty());
}

TEST_F(FtpTest, ARunTellsOfEveryStep) {
  const std::string file = dir.Write("f", "content");
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  ftp.QueueForUpload(Item(Missing(), "name"));
  ftp.QueueForUpload(Item(file));
  ftp.QueueForDownload(Item("d"));
  EXPECT_FALSE(ftp.StartUploadQueue());
  EXPECT_THAT(recorder.calls, ElementsAre("1 " + Missing() + " name null", "3 " + Missing() + " name ''",
                                          "1 " + file + "  null", "3 " + file + "  '" + MalformedUrlText() + "'"));
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
  EXPECT_THAT(LocalFiles(ftp.GetDownloadQueue()), ElementsAre("d"));
}

TEST_F(FtpTest, RunsWithoutACallback) {
  QsFTP ftp(ServerOf(malformedHost), nullptr);
  ftp.QueueForUpload(Item(Missing()));
  EXPECT_FALSE(ftp.StartUploadQueue());
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
  EXPECT_TRUE(ftp.StartUploadQueue());
}

TEST_F(FtpTest, AnItemIsSkippedWhenTheCallbackSaysSo) {
  recorder.answer = [](int event, const std::string&) { return event == 1 ? 3 : 0; };
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  ftp.QueueForUpload(Item("a"));
  ftp.QueueForUpload(Item("b"));
  EXPECT_TRUE(ftp.StartUploadQueue()) << "what is skipped does not fail";
  EXPECT_THAT(recorder.calls, ElementsAre("1 a  null", "1 b  null"));
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
}

TEST_F(FtpTest, ToSkipAfterAnUploadGoesOn) {
  recorder.answer = [](int event, const std::string&) { return event == 3 ? 3 : 1; };
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  ftp.QueueForUpload(Item(Missing() + "1"));
  ftp.QueueForUpload(Item(Missing() + "2"));
  EXPECT_FALSE(ftp.StartUploadQueue());
  EXPECT_EQ(recorder.calls.size(), 4u);
}

TEST_F(FtpTest, ARunIsStoppedBeforeAnUpload) {
  recorder.answer = [](int, const std::string& file) { return file == "b" ? 2 : 3; };
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  for (const char* name : {"a", "b", "c"}) {
    ftp.QueueForUpload(Item(name));
  }
  EXPECT_TRUE(ftp.StartUploadQueue());
  EXPECT_THAT(recorder.calls, ElementsAre("1 a  null", "1 b  null"));
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty()) << "what was not reached is dropped";
}

TEST_F(FtpTest, ARunIsStoppedAfterAnUpload) {
  recorder.answer = [](int event, const std::string&) { return event == 3 ? 2 : 0; };
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  ftp.QueueForUpload(Item(Missing()));
  ftp.QueueForUpload(Item("b"));
  EXPECT_FALSE(ftp.StartUploadQueue());
  EXPECT_EQ(recorder.calls.size(), 2u);
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
}

TEST_F(FtpTest, TheCallbackMayAppendToTheQueue) {
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  int more = 100;
  recorder.answer = [&](int event, const std::string&) {
    if (event == 1 && more > 0) {
      ftp.QueueForUpload(Item("added " + std::to_string(more--)));
    }
    return event == 1 ? 3 : 0;
  };
  ftp.QueueForUpload(Item("first"));
  EXPECT_TRUE(ftp.StartUploadQueue());
  EXPECT_EQ(recorder.calls.size(), 101u);
  EXPECT_EQ(recorder.calls.back(), "1 added 1  null");
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
}

TEST_F(FtpTest, TheCallbackMayClearTheQueue) {
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  recorder.answer = [&](int event, const std::string&) {
    ftp.ClearUploadQueue();
    return event == 1 ? 0 : 1;
  };
  ftp.QueueForUpload(Item(Missing(), "name"));
  ftp.QueueForUpload(Item("b"));
  EXPECT_FALSE(ftp.StartUploadQueue());
  EXPECT_THAT(recorder.calls, ElementsAre("1 " + Missing() + " name null", "3 " + Missing() + " name ''"));
}

TEST_F(FtpTest, TheCallbackMayReplaceTheQueue) {
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  recorder.answer = [&](int, const std::string& file) {
    if (file == "first") {
      ftp.ClearUploadQueue();
      ftp.QueueForUpload(Item("new 1"));
      ftp.QueueForUpload(Item("new 2"));
    }
    return 3;
  };
  ftp.QueueForUpload(Item("first"));
  ftp.QueueForUpload(Item("second"));
  EXPECT_TRUE(ftp.StartUploadQueue());
  EXPECT_THAT(recorder.calls, ElementsAre("1 first  null", "1 new 1  null", "1 new 2  null"));
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
}

TEST_F(FtpTest, ARunInsideARunTakesWhatIsLeft) {
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  recorder.answer = [&](int, const std::string& file) {
    EXPECT_TRUE(file != "a" || ftp.StartUploadQueue());
    return 3;
  };
  ftp.QueueForUpload(Item("a"));
  ftp.QueueForUpload(Item("b"));
  EXPECT_TRUE(ftp.StartUploadQueue());
  EXPECT_THAT(recorder.calls, ElementsAre("1 a  null", "1 b  null"));
}

TEST_F(FtpTest, AnExceptionOfTheCallbackLeavesTheRun) {
  recorder.answer = [](int, const std::string&) -> int { throw std::runtime_error("from the callback"); };
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  ftp.QueueForUpload(Item("a"));
  ftp.QueueForUpload(Item("b"));
  EXPECT_THROW(ftp.StartUploadQueue(), std::runtime_error);
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
  EXPECT_EQ(recorder.calls.size(), 1u);

  recorder.calls.clear();
  recorder.answer = [](int event, const std::string&) {
    return event == 1 ? 0 : throw std::runtime_error("after the upload");
  };
  ftp.QueueForUpload(Item(Missing()));
  ftp.QueueForUpload(Item("b"));
  EXPECT_THROW(ftp.StartUploadQueue(), std::runtime_error);
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
  EXPECT_EQ(recorder.calls.size(), 2u);

  recorder.calls.clear();
  recorder.answer = nullptr;
  ftp.QueueForUpload(Item(Missing()));
  EXPECT_FALSE(ftp.StartUploadQueue());
  EXPECT_EQ(recorder.calls.size(), 2u) << "the next run begins at the front";
}

// ---- copies ----

TEST_F(FtpTest, ACopyHasQueuesOfItsOwn) {
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  ftp.QueueForUpload(Item(Missing()));
  ftp.QueueForDownload(Item("d"));
  auto copy = std::make_unique<QsFTP>(ftp);
  ftp.ClearUploadQueue();
  ftp.QueueForDownload(Item("d2"));
  EXPECT_THAT(LocalFiles(copy->GetUploadQueue()), ElementsAre(Missing()));
  EXPECT_THAT(LocalFiles(copy->GetDownloadQueue()), ElementsAre("d"));
  EXPECT_FALSE(copy->StartUploadQueue());
  EXPECT_EQ(recorder.calls.size(), 2u) << "the callback is the same";
  copy.reset();
  std::vector<std::string> lines;
  std::string errorText;
  EXPECT_FALSE(ftp.List("", lines, errorText));
  EXPECT_EQ(errorText, MalformedUrlText()) << "the handle did not go with the copy";
}

TEST_F(FtpTest, AssignmentTakesServerCallbackAndQueues) {
  const std::string file = dir.Write("f", "content");
  QsFTP ftp(ServerOf(malformedHost), &recorder);
  ftp.QueueForUpload(Item(file));
  QsFTP other(ServerOf(""), nullptr);
  other.QueueForUpload(Item("x"));
  other.QueueForDownload(Item("y"));
  other = ftp;
  EXPECT_THAT(other.GetDownloadQueue(), IsEmpty());
  EXPECT_FALSE(other.StartUploadQueue());
  EXPECT_THAT(recorder.calls, ElementsAre("1 " + file + "  null", "3 " + file + "  '" + MalformedUrlText() + "'"));
  EXPECT_THAT(LocalFiles(ftp.GetUploadQueue()), ElementsAre(file));
  QsFTP& self = ftp;
  ftp = self;
  EXPECT_THAT(LocalFiles(ftp.GetUploadQueue()), ElementsAre(file));
}

// ---- without memory ----

namespace {

class FtpMemoryTest : public ::testing::Test {
 protected:
  FtpMemoryTest() { StartCurlOfCountedAllocations(); }
  ~FtpMemoryTest() override {
    curlAllocationsLeft = INT_MAX;
    InitQsInetHttp(2);
  }

  const TempDir dir;
};

}  // namespace

TEST_F(FtpMemoryTest, WithoutAHandleEveryTransferIsRefused) {
  const std::string file = dir.Write("f", "content");
  const LogCapture log;
  curlAllocationsLeft = 0;
  QsFTP ftp(ServerOf(malformedHost), nullptr);
  const QsFTP copy(ftp);
  curlAllocationsLeft = INT_MAX;
  std::string errorText = "old";
  EXPECT_FALSE(ftp.Upload(Item(file), errorText));
  EXPECT_EQ(errorText, "");
  std::vector<std::string> lines = {"old"};
  errorText = "old";
  EXPECT_FALSE(ftp.List("", lines, errorText));
  EXPECT_EQ(errorText, "");
  EXPECT_THAT(lines, ElementsAre("old"));
  ftp.QueueForUpload(Item(file));
  EXPECT_FALSE(ftp.StartUploadQueue());
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(FtpMemoryTest, EveryAllocationOfTheHandleMayFail) {
  const std::string file = dir.Write("f", "content");
  int refused = 0;
  int lacking = 0;
  std::string errorText;
  for (int allocations = 0; errorText != MalformedUrlText(); ++allocations) {
    ASSERT_LT(allocations, 1000);
    curlAllocationsLeft = allocations;
    QsFTP ftp(ServerOf(malformedHost), nullptr);
    EXPECT_FALSE(ftp.Upload(Item(file), errorText));
    curlAllocationsLeft = INT_MAX;
    refused += errorText.empty() ? 1 : 0;
    lacking += errorText == curl_easy_strerror(CURLE_OUT_OF_MEMORY) ? 1 : 0;
  }
  EXPECT_GT(refused, 0);
  EXPECT_GT(lacking, 0);
}
