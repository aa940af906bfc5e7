// QsFTP against a real server and against scripted peers that misbehave.
#include <QSbase/net/ftp.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QSbase/log/log.h>
#include <QSbase/net/ftptransfer.h>
#include <QSbase/net/http.h>
#include <QSbase/net/url.h>

#include <common/curlmemory.h>
#include <common/logcapture.h>
#include <common/platform.h>
#include <common/tempdir.h>
#include <integration/common/ftpserver.h>
#include <integration/common/transfer.h>

using namespace qsbase::testing;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

namespace {

struct Result {
  bool done = false;
  std::string errorText;
};

Result Upload(QsFTP& ftp, const std::string& localFile, const std::string& remoteName = "",
              const std::string& remoteDir = "") {
  Result result;
  result.done = ftp.Upload({localFile, remoteName, remoteDir}, result.errorText);
  return result;
}

void PrintTo(const Result& result, std::ostream* out) { *out << result.done << " '" << result.errorText << "'"; }

struct Listing : Result {
  std::vector<std::string> lines = {"old"};
};

void PrintTo(const Listing& listing, std::ostream* out) { PrintTo(static_cast<const Result&>(listing), out); }

Listing List(QsFTP& ftp, const std::string& dir = "") {
  Listing listing;
  listing.done = ftp.List(dir, listing.lines, listing.errorText);
  return listing;
}

MATCHER(Succeeds, "is true without a text") { return arg.done && arg.errorText.empty(); }
MATCHER_P(FailsWith, what, "is false and tells " + ::testing::PrintToString(what)) {
  return !arg.done && !arg.errorText.empty() && arg.errorText.find(what) != std::string::npos;
}

class Recorder : public QsFTPQueueCallback {
 public:
  int OnQueueEvent(int, int event, const char*, const char* remoteName, const char*) override {
    calls.push_back(std::to_string(event) + " " + remoteName);
    return answer ? answer(event, remoteName) : 0;
  }

  std::vector<std::string> calls;
  std::function<int(int event, const std::string& remoteName)> answer;
};

class Curl {
 public:
  Curl() { InitQsInetHttp(1); }
  ~Curl() { InitQsInetHttp(2); }
  Curl(const Curl&) = delete;
  Curl& operator=(const Curl&) = delete;
};

}  // namespace

// ---- the real server ----

namespace {

class FtpServerTest : public ::testing::Test {
 protected:
  FtpServer& Start() {
    server = std::make_unique<FtpServer>(dir);
    return *server;
  }

  const Curl curl;
  const TempDir dir;
  const LogCapture log;
  std::unique_ptr<FtpServer> server;
};

}  // namespace

TEST_F(FtpServerTest, UploadsIntoMissingDirectories) {
  Start();
  const std::string content = Noise(100000);
  const std::string file = dir.Write("out/data.bin", content);
  QsSetLogLevel(4);
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(Upload(ftp, file, "", "new/deep er/level"), Succeeds());
  EXPECT_EQ(TempDir::Read(server->File("in/new/deep er/level/data.bin")), content);
  EXPECT_THAT(ftp.GetFTPLog(), AllOf(HasSubstr("220 Here is the server\r\n"), HasSubstr("226 ")));
  ASSERT_THAT(log.Messages(), SizeIs(2)) << "the level's own message first";
  EXPECT_EQ(log.Messages()[1].flags, 0x10000004u);
  EXPECT_EQ(log.Messages()[1].text, "QsFTP::Upload successfully performed 'data.bin'");
}

TEST_F(FtpServerTest, LogsNoSuccessBelowLevelFour) {
  Start();
  QsSetLogLevel(3);
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", "content")), Succeeds());
  EXPECT_THAT(log.Texts(), ElementsAre("Setting Log Level to 3"));
}

TEST_F(FtpServerTest, WithoutRemoteNameTheFileKeepsItsName) {
  Start();
  dir.Write("out/f.txt", "content");
  dir.Write("out/empty", "");
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Path() + "\\out\\f.txt"), Succeeds());
  EXPECT_THAT(Upload(ftp, dir / "out/f.txt", "other.txt"), Succeeds());
  EXPECT_THAT(Upload(ftp, dir / "out/empty"), Succeeds());
  EXPECT_EQ(TempDir::Read(server->File("in/f.txt")), "content");
  EXPECT_EQ(TempDir::Read(server->File("in/other.txt")), "content");
  EXPECT_THAT(List(*std::make_unique<QsFTP>(server->Login("in"), nullptr)).lines,
              UnorderedElementsAre("readme.txt", "f.txt", "other.txt", "empty"));
  EXPECT_EQ(TempDir::Read(server->File("in/empty")), "");
}

TEST_F(FtpServerTest, AnUploadReplacesTheFile) {
  Start();
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", "first and longer")), Succeeds());
  EXPECT_THAT(Upload(ftp, dir.Write("f", "second")), Succeeds());
  EXPECT_EQ(TempDir::Read(server->File("in/f")), "second");
}

TEST_F(FtpServerTest, ListsOneNameAnEntry) {
  dir.Write("ftp/in/with blank.txt", "");
  dir.Write("ftp/in/caf\xC3\xA9", "");
  dir.Write("ftp/in/sub/inner", "");
  Start();
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(List(ftp).lines, UnorderedElementsAre("in", "closed"));
  const Listing in = List(ftp, "in");
  EXPECT_THAT(in, Succeeds());
  EXPECT_THAT(in.lines, UnorderedElementsAre("readme.txt", "with blank.txt", "caf\xC3\xA9", "sub"));
  EXPECT_THAT(List(ftp, "in/sub").lines, ElementsAre("inner"));
  EXPECT_THAT(List(ftp).lines, UnorderedElementsAre("in", "closed")) << "back at the top";
  EXPECT_THAT(ftp.GetFTPLog(), HasSubstr("226 "));
  EXPECT_THAT(log.Texts(), IsEmpty());
  EXPECT_EQ(server->Logged("OK LOGIN"), 1u);
}

TEST_F(FtpServerTest, AnEmptyDirectoryLeavesTheLinesAlone) {
  Start();
  mkdir(server->File("in/empty").c_str(), 0755);
  QsFTP ftp(server->Login("in"), nullptr);
  const Listing listing = List(ftp, "empty");
  EXPECT_THAT(listing, Succeeds());
  EXPECT_THAT(listing.lines, ElementsAre("old"));
}

TEST_F(FtpServerTest, AListingAfterAnUploadIsRefused) {
  Start();
  const std::string file = dir.Write("f", "content");
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(List(ftp), Succeeds());
  EXPECT_THAT(Upload(ftp, file, "1"), Succeeds()) << "an upload after a listing is one";
  const Listing listing = List(ftp);
  EXPECT_THAT(listing, FailsWith("Uploading to a URL without a file name"));
  EXPECT_THAT(listing.lines, ElementsAre("old"));
  EXPECT_THAT(Upload(ftp, file, "2"), Succeeds());
  QsFTP other(server->Login("in"), nullptr);
  EXPECT_THAT(List(other).lines, UnorderedElementsAre("readme.txt", "1", "2"));
}

TEST_F(FtpServerTest, AnUploadThatFoundNoLocalFileLeavesListingsAlone) {
  Start();
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_FALSE(Upload(ftp, dir / "missing").done);
  EXPECT_THAT(List(ftp), Succeeds());
}

TEST_F(FtpServerTest, ARefusedLoginIsLogged) {
  Start();
  QsFTPServer stranger = server->Login("in");
  stranger.password = "guess";
  QsFTP ftp(stranger, nullptr);
  const Result result = Upload(ftp, dir.Write("f", "content"));
  EXPECT_THAT(result, FailsWith("530"));
  EXPECT_THAT(log.Texts(), ElementsAre("QsFTP::Upload error performing 'f': '" + result.errorText + "'"));
  EXPECT_THAT(ftp.GetFTPLog(), HasSubstr("530 Login incorrect.\r\n"));
  EXPECT_THAT(List(ftp), FailsWith("530"));
  EXPECT_EQ(server->Logged("OK LOGIN"), 0u);
}

TEST_F(FtpServerTest, AForbiddenDirectoryTakesNothing) {
  Start();
  const std::string file = dir.Write("f", "content");
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(Upload(ftp, file, "", "closed"), FailsWith("553"));
  EXPECT_THAT(Upload(ftp, file, "", "closed/new"), FailsWith("550"));
  EXPECT_THAT(Upload(ftp, file, "", "in"), Succeeds()) << "the connection is still good";
  QsFTP lister(server->Login(), nullptr);
  EXPECT_THAT(List(lister, "nowhere"), FailsWith("denied"));
  EXPECT_THAT(List(lister, "closed").lines, ElementsAre("there"));
}

TEST_F(FtpServerTest, AFullDiskFailsTheUpload) {
  dir.Write("ftp/in/x", "");
  if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("small", (dir / "ftp/in").c_str(), "tmpfs", 0, "size=64k,mode=0777") != 0) {
    GTEST_SKIP() << "only root can mount a small file system, and not in every container";
  }
  dir.Write("ftp/in/readme.txt", "");
  Start();
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("large", Noise(1000000))), FailsWith(""));
  EXPECT_THAT(Upload(ftp, dir.Write("small", "content"), "small"), Not(Succeeds())) << "it is still full";
  EXPECT_THAT(ftp.GetFTPLog(), Not(HasSubstr("226 ")));
  server.reset();
  umount2((dir / "ftp/in").c_str(), MNT_DETACH);
}

TEST_F(FtpServerTest, TakesALargeFile) {
  Start();
  constexpr std::size_t size = 150 << 20;
  std::string content = Noise(size / 50);
  {
    const FilePtr file = OpenFile(dir / "large", "wb");
    for (int part = 0; part < 50; ++part) {
      content[0] = static_cast<char>(part);
      ASSERT_EQ(std::fwrite(content.data(), 1, content.size(), file.get()), content.size());
    }
  }
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(Upload(ftp, dir / "large"), Succeeds());
  RunTool(dir, {"cmp", dir / "large", server->File("in/large")});
}

TEST_F(FtpServerTest, NamesGoIntoTheUrlAsTheyAre) {
  Start();
  const std::string file = dir.Write("with blank", "content");
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(Upload(ftp, file), FailsWith("")) << "a blank is no part of a URL";
  EXPECT_THAT(Upload(ftp, file, "also blank"), FailsWith(""));
  EXPECT_THAT(Upload(ftp, file, "%41%20b"), Succeeds()) << "an escape is read";
  EXPECT_THAT(Upload(ftp, file, "cut#off"), Succeeds()) << "what follows # is no name";
  EXPECT_THAT(Upload(ftp, file, "caf\xC3\xA9"), Succeeds()) << "UTF-8";
  EXPECT_THAT(Upload(ftp, file, "made/on the way"), FailsWith(""));
  EXPECT_THAT(Upload(ftp, file, "made/on-the-way"), Succeeds()) << "a slash leads into a directory";
  for (const char* name : {"1 blank", "2%41", "3#", "4?x", "5;type=a", "6caf\xC3\xA9", "7-_.~&=+"}) {
    EXPECT_THAT(Upload(ftp, file, UrlEncode(name)), Succeeds()) << name;
  }
  QsFTP lister(server->Login("in"), nullptr);
  EXPECT_THAT(List(lister).lines, UnorderedElementsAre("readme.txt", "A b", "cut", "caf\xC3\xA9", "made", "1 blank",
                                                       "2%41", "3#", "4?x", "5;type=a", "6caf\xC3\xA9", "7-_.~&=+"));
  EXPECT_THAT(List(lister, "made").lines, ElementsAre("on-the-way"));
}

TEST_F(FtpServerTest, NoNameReachesTheServerAsACommand) {
  Start();
  QsFTP ftp(server->Login("in"), nullptr);
  const std::string file = dir.Write("f", "content");
  EXPECT_FALSE(Upload(ftp, file, "a%0D%0ADELE readme.txt").done);
  EXPECT_FALSE(Upload(ftp, file, "a%0D%0ADELE%20readme.txt").done);
  EXPECT_FALSE(Upload(ftp, file, UrlEncode("a\r\nDELE readme.txt")).done);
  EXPECT_FALSE(Upload(ftp, file, "a", "b\r\nDELE readme.txt").done);
  for (std::string QsFTPServer::*part :
       {&QsFTPServer::host, &QsFTPServer::port, &QsFTPServer::user, &QsFTPServer::password, &QsFTPServer::directory}) {
    QsFTPServer login = server->Login("in");
    login.*part += "\r\nDELE readme.txt";
    QsFTP other(login, nullptr);
    EXPECT_THAT(Upload(other, file), FailsWith(""));
    QsFTP lister(login, nullptr);
    EXPECT_THAT(List(lister), FailsWith(""));
  }
  EXPECT_EQ(server->Logged("DELE"), 0u);
  EXPECT_EQ(TempDir::Read(server->File("in/readme.txt")), "in\n");
}

TEST_F(FtpServerTest, AFileThatCannotBeReadToItsEndIsNoSuccess) {
  Start();
  QsFTP ftp(server->Login("in"), nullptr);
  const Result result = Upload(ftp, "/proc/self/mem", "memory");  // opens, but its first page cannot be read
  EXPECT_THAT(result, FailsWith("abort"));
  EXPECT_THAT(Upload(ftp, dir.Write("f", "content")), Succeeds());
}

TEST_F(FtpServerTest, AQueueGoesOverOneConnection) {
  Start();
  const std::string file = dir.Write("f", "content");
  Recorder recorder;
  recorder.answer = [](int event, const std::string& name) { return event == 1 && name == "skipped" ? 3 : 0; };
  {
    QsFTP ftp(server->Login("in"), &recorder);
    for (const char* name : {"1", "skipped", "2"}) {
      ftp.QueueForUpload({file, name, "a"});
    }
    ftp.QueueForUpload({dir / "missing", "gone", ""});
    ftp.QueueForUpload({file, "3", "b/c"});
    EXPECT_FALSE(ftp.StartUploadQueue());
    EXPECT_THAT(recorder.calls, ElementsAre("1 1", "2 1", "1 skipped", "1 2", "2 2", "1 gone", "3 gone", "1 3", "2 3"));
    EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
  }
  EXPECT_EQ(server->Logged("OK LOGIN"), 1u);
  EXPECT_EQ(server->Logged("OK UPLOAD"), 3u);
  EXPECT_EQ(server->Logged("FTP command: Client \"127.0.0.1\", \"QUIT\""), 1u) << "the destructor logs out";
  EXPECT_EQ(TempDir::Read(server->File("in/b/c/3")), "content");
}

TEST_F(FtpServerTest, AStoppedRunUploadsNoMore) {
  Start();
  const std::string file = dir.Write("f", "content");
  Recorder recorder;
  recorder.answer = [](int event, const std::string& name) { return event == 2 && name == "2" ? 2 : 0; };
  QsFTP ftp(server->Login("in"), &recorder);
  for (const char* name : {"1", "2", "3"}) {
    ftp.QueueForUpload({file, name, ""});
  }
  EXPECT_TRUE(ftp.StartUploadQueue());
  EXPECT_THAT(recorder.calls, ElementsAre("1 1", "2 1", "1 2", "2 2"));
  EXPECT_THAT(ftp.GetUploadQueue(), IsEmpty());
  EXPECT_EQ(server->Logged("OK UPLOAD"), 2u);
}

TEST_F(FtpServerTest, ACopyLogsInForItself) {
  Start();
  const std::string file = dir.Write("f", "content");
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(Upload(ftp, file, "1"), Succeeds());
  QsFTP copy(ftp);
  EXPECT_EQ(copy.GetFTPLog(), ftp.GetFTPLog());
  EXPECT_THAT(List(copy), Succeeds()) << "the upload's option did not come along";
  EXPECT_THAT(Upload(ftp, file, "2"), Succeeds());
  EXPECT_EQ(server->Logged("OK LOGIN"), 2u);
  ftp = copy;
  EXPECT_THAT(List(ftp), Succeeds());
  EXPECT_EQ(server->Logged("OK LOGIN"), 3u);
}

TEST_F(FtpServerTest, OneCallUploadsAndLists) {
  Start();
  QsInetFTPUpload job;
  job.server = server->Login("in");
  job.item = {dir.Write("f", "content"), "", "new"};
  std::string errorText = "old";
  EXPECT_TRUE(QsFTPUpload(job, errorText)) << errorText;
  EXPECT_EQ(errorText, "");
  std::vector<std::string> lines;
  EXPECT_TRUE(QsFTPList(job.server, "new", lines, errorText)) << errorText;
  EXPECT_THAT(lines, ElementsAre("f"));
  EXPECT_FALSE(QsFTPList(job.server, "nowhere", lines, errorText));
  EXPECT_NE(errorText, "");
}

TEST_F(FtpServerTest, TheProxiesOfTheEnvironmentHaveNoSay) {
  Start();
  for (const char* name : {"ftp_proxy", "FTP_PROXY", "all_proxy", "ALL_PROXY"}) {
    setenv(name, "http://127.0.0.1:1", 1);
  }
  QsFTP ftp(server->Login("in"), nullptr);
  EXPECT_THAT(List(ftp), Succeeds());
}

// ---- scripted peers ----

namespace {

class FtpPeerTest : public ::testing::Test {
 protected:
  // The script may run on until the server goes, after the test's own variables: it has copies of them.
  void Serve(ScriptedFtpServer::Script script) { server = std::make_unique<ScriptedFtpServer>(std::move(script)); }

  const Curl curl;
  const TempDir dir;
  const LogCapture log;
  std::unique_ptr<ScriptedFtpServer> server;
};

// Serves the first connection by the one script and all later ones well.
ScriptedFtpServer::Script FirstOnly(ScriptedFtpServer::Script first) {
  const auto served = std::make_shared<int>(0);
  return [first, served](FtpConnection& client) { (*served)++ == 0 ? first(client) : client.ServeToTheEnd(); };
}

// More than two sockets hold.
constexpr std::size_t muchContent = 64 << 20;

}  // namespace

TEST_F(FtpPeerTest, ListingsWithEitherLineEndGiveTheSameNames) {
  for (const char* listing : {"a\r\nb c\r\n\xE9\r\n", "a\nb c\n\xE9\n", "a\r\nb c\n\xE9"}) {
    Serve([=](FtpConnection& client) {
      client.listing = listing;
      client.ServeToTheEnd();
    });
    QsFTP ftp(server->Login(), nullptr);
    const Listing got = List(ftp);
    EXPECT_THAT(got, Succeeds()) << listing;
    EXPECT_THAT(got.lines, ElementsAre("a", "b c", "\xE9")) << listing;
  }
}

TEST_F(FtpPeerTest, SendsTheCommandsOfTransfers) {
  Serve([](FtpConnection& client) {
    client.listing = "a\r\n";
    client.ServeToTheEnd();
  });
  QsFTPServer login = server->Login();
  login.user = "joe b";
  login.password = "p:@/ ";
  login.directory = "x/y";
  {
    QsFTP ftp(login, nullptr);
    EXPECT_THAT(List(ftp), Succeeds());
    EXPECT_THAT(Upload(ftp, dir.Write("f", "content"), "name", "d/e"), Succeeds());
  }
  QsFTP next(server->Login(), nullptr);
  EXPECT_THAT(List(next), Succeeds()) << "served when the one before is gone";
  EXPECT_THAT(server->Stored(), ElementsAre("content"));
  std::vector<std::string> commands = server->Commands();
  commands.erase(std::remove(commands.begin(), commands.end(), "PWD"), commands.end());
  EXPECT_THAT(commands, ElementsAre("USER joe b", "PASS p:@/ ", "CWD x", "CWD y", "EPSV", "TYPE A", "NLST", "CWD /",
                                    "CWD x", "CWD y", "CWD d", "CWD e", "EPSV", "TYPE I", "STOR name", "QUIT"));
}

TEST_F(FtpPeerTest, AnUploadWhoseControlConnectionClosesKeepsTheLog) {
  Serve(FirstOnly([](FtpConnection& client) {
    if (client.ServeUntil("STOR")) {
      client.Say("150 Send it");
      std::string ignored;
      Connection data = client.Data();
      data.Receive(ignored);
      client.Say("421 Going down");
    }
  }));
  const std::string file = dir.Write("f", Noise(muchContent));
  {
    QsFTP ftp(server->Login(), nullptr);
    const Result result = Upload(ftp, file);
    EXPECT_THAT(result, FailsWith(""));
    EXPECT_THAT(log.Texts(), ElementsAre("QsFTP::Upload error performing 'f': '" + result.errorText + "'"));
    const std::string before = ftp.GetFTPLog();
    EXPECT_THAT(before, AllOf(HasSubstr("220 Scripted\r\n"), HasSubstr("150 Send it\r\n")));
    EXPECT_THAT(Upload(ftp, dir.Write("g", "content")), Succeeds()) << "by a new connection";
    EXPECT_EQ(ftp.GetFTPLog().substr(0, before.size()), before);
    EXPECT_THAT(ftp.GetFTPLog().substr(before.size()), AllOf(HasSubstr("220 Scripted\r\n"), HasSubstr("226 Stored")));
  }
}

TEST_F(FtpPeerTest, AControlConnectionThatClosesAtOnceIsAFailure) {
  Serve([](FtpConnection&) {});
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", "content")), FailsWith(""));
  EXPECT_THAT(List(ftp), FailsWith(""));
  EXPECT_EQ(ftp.GetFTPLog(), "");
}

TEST_F(FtpPeerTest, EveryReplyMayBeTheLast) {
  const std::string file = dir.Write("f", "content");
  for (const char* last : {"USER", "PASS", "PWD", "CWD", "EPSV", "TYPE", "STOR", "NLST"}) {
    Serve([=](FtpConnection& client) { client.ServeUntil(last); });
    QsFTP lister(server->Login(), nullptr);
    QsFTP uploader(server->Login(), nullptr);
    const bool ofUploads = std::string(last) == "STOR";
    const bool ofListings = std::string(last) == "NLST";
    if (!ofUploads) {
      EXPECT_THAT(List(lister, "d"), FailsWith("")) << last;
      EXPECT_THAT(lister.GetFTPLog(), HasSubstr("220 Scripted\r\n"));
    }
    if (!ofListings) {
      EXPECT_THAT(Upload(uploader, file, "", "d"), FailsWith("")) << last;
      EXPECT_THAT(uploader.GetFTPLog(), HasSubstr("220 Scripted\r\n"));
    }
  }
}

TEST_F(FtpPeerTest, AnUploadThatTheServerBreaksOffIsAFailure) {
  Serve(FirstOnly([](FtpConnection& client) {
    if (client.ServeUntil("STOR")) {
      client.Say("150 Send it");
      Connection data = client.Data();
      std::string ignored;
      data.Receive(ignored);
      data.Reset();
      client.Say("426 Broken off");
      client.ServeToTheEnd();
    }
  }));
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", Noise(muchContent))), FailsWith(""));
  EXPECT_THAT(Upload(ftp, dir.Write("f", "content")), Succeeds());
}

TEST_F(FtpPeerTest, AnUploadThatTheServerDoesNotKeepIsAFailure) {
  Serve([](FtpConnection& client) {
    while (client.ServeUntil("STOR")) {
      client.Say("150 Send it");
      Connection data = client.Data();
      data.WaitForClose();
      client.Say("452 Disk full");
    }
  });
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", "content")), FailsWith(""));
  EXPECT_THAT(ftp.GetFTPLog(), HasSubstr("452 Disk full\r\n"));
}

TEST_F(FtpPeerTest, AListingThatIsCutOffGivesWhatCame) {
  Serve([](FtpConnection& client) {
    if (client.ServeUntil("NLST")) {
      client.Say("150 Here it comes");
      client.Data().Send("a\r\nb\r\nhal");
      client.Say("426 Broken off");
      client.ServeToTheEnd();
    }
  });
  QsFTP ftp(server->Login(), nullptr);
  const Listing listing = List(ftp);
  EXPECT_THAT(listing, FailsWith("426"));
  EXPECT_THAT(listing.lines, ElementsAre("a", "b", "hal"));
}

TEST_F(FtpPeerTest, AServerThatTakesNothingIsGivenUp) {
  const ShortPatience patience;
  Serve(FirstOnly([](FtpConnection& client) {
    if (client.ServeUntil("STOR")) {
      client.Say("150 Send it");
      Connection data = client.Data();
      client.Control().WaitForClose();
    }
  }));
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", Noise(muchContent))), FailsWith("too slow"));
  EXPECT_THAT(Upload(ftp, dir.Write("f", "content")), Succeeds());
}

TEST_F(FtpPeerTest, AServerThatListsNothingIsGivenUp) {
  const ShortPatience patience;
  Serve([](FtpConnection& client) {
    if (client.ServeUntil("NLST")) {
      client.Say("150 Here it comes");
      Connection data = client.Data();
      data.Send("a\r\n");
      client.Control().WaitForClose();
    }
  });
  QsFTP ftp(server->Login(), nullptr);
  const Listing listing = List(ftp);
  EXPECT_THAT(listing, FailsWith("too slow"));
  EXPECT_THAT(listing.lines, ElementsAre("a"));
}

TEST_F(FtpPeerTest, LongRepliesAreKept) {
  std::string greeting;
  for (int line = 0; line < 3000; ++line) {
    greeting += "220-line " + std::to_string(line) + " of a long greeting\r\n";
  }
  Serve([=](FtpConnection& client) {
    client.Control().Send(greeting);
    if (client.ServeUntil("STOR")) {
      client.Say("150 " + std::string(100000, 'x'));
      client.Data().WaitForClose();
      client.Say("226 Stored");
      client.ServeToTheEnd();
    }
  });
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", "content")), Succeeds());
  EXPECT_EQ(ftp.GetFTPLog().substr(0, greeting.size()), greeting);
  EXPECT_THAT(ftp.GetFTPLog(), AllOf(HasSubstr("\r\n220 Scripted\r\n"), HasSubstr("\r\n226 Stored\r\n")));
}

TEST_F(FtpPeerTest, ManyTransfersGoOverOneConnection) {
  constexpr std::size_t count = 12;
  std::string longReply;
  for (int line = 0; line < 30; ++line) {
    longReply += "150-" + std::string(1000, 'x') + "\r\n";
  }
  longReply += "150 Send it";
  Serve([=](FtpConnection& client) {
    while (client.ServeUntil("STOR")) {
      client.Say(longReply);
      client.Data().WaitForClose();
      client.Say("226 Stored");
    }
  });
  const std::string file = dir.Write("f", "content");
  auto ftp = std::make_unique<QsFTP>(server->Login(), nullptr);
  EXPECT_THAT(Upload(*ftp, file), Succeeds());
  const std::size_t descriptors = NamesIn("/proc/self/fd").size();
  for (std::size_t number = 1; number < count; ++number) {
    ftp->QueueForUpload({file, std::to_string(number), ""});
  }
  EXPECT_TRUE(ftp->StartUploadQueue());
  EXPECT_EQ(NamesIn("/proc/self/fd").size(), descriptors);
  EXPECT_GT(ftp->GetFTPLog().size(), std::size_t{300 << 10}) << "more than libcurl takes for one transfer";
  ftp = std::make_unique<QsFTP>(server->Login(), nullptr);
  EXPECT_THAT(List(*ftp), Succeeds()) << "served when the one before is gone";
  const std::vector<std::string> commands = server->Commands();
  EXPECT_EQ(std::count(commands.begin(), commands.end(), "PASS secret"), 1);
}

TEST_F(FtpPeerTest, AThousandTransfersLeaveNoDescriptor) {
  const std::string file = dir.Write("f", "content");
  const auto transfers = [&](int count) {
    Serve([](FtpConnection& client) {
      client.listing = "a\r\n";
      client.ServeToTheEnd();
    });
    std::vector<std::string> lines;
    std::string errorText;
    QsFTPServer unreachable = server->Login();
    unreachable.port = "1";
    for (int number = 0; number < count; ++number) {
      EXPECT_TRUE(QsFTPUpload({server->Login(), {file, "", "d"}}, errorText)) << errorText;
      EXPECT_FALSE(QsFTPUpload({server->Login(), {file, "a%0Ab", ""}}, errorText));
      EXPECT_TRUE(QsFTPList(server->Login(), "", lines, errorText)) << errorText;
      EXPECT_FALSE(QsFTPList(unreachable, "", lines, errorText));
    }
    server.reset();
    return NamesIn("/proc/self/fd").size();
  };
  const std::size_t before = transfers(1);
  EXPECT_EQ(transfers(250), before);
}

TEST_F(FtpPeerTest, ObjectsOfDifferentThreadsAreIndependent) {
  constexpr int count = 50;
  const std::string file = dir.Write("f", "content");
  std::atomic<int> done{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&] {
      const ScriptedFtpServer own([](FtpConnection& client) {
        client.listing = "a\r\nb\r\n";
        client.ServeToTheEnd();
      });
      QsFTP ftp(own.Login(), nullptr);
      for (int transfer = 0; transfer < count; ++transfer) {
        done += List(ftp).lines.size() == 2 ? 1 : 0;
      }
      for (int transfer = 0; transfer < count; ++transfer) {
        done += Upload(ftp, file).done ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(done, 4 * 2 * count);
}

// Between any two pieces of a listing a signal comes whose handler does not restart what it interrupts.
TEST_F(FtpPeerTest, SignalsDoNotEndATransfer) {
  static std::atomic<int> signals;
  signals = 0;
  struct sigaction before;
  struct sigaction counting = {};
  counting.sa_handler = [](int) { ++signals; };
  sigaction(SIGUSR1, &counting, &before);
  Serve([client = pthread_self()](FtpConnection& connection) {
    const auto interrupt = [client] {
      const int seen = signals;
      pthread_kill(client, SIGUSR1);
      while (signals == seen) {
        sched_yield();
      }
    };
    connection.ServeUntil("PASS");
    interrupt();
    connection.Say("230 Logged in");
    connection.ServeUntil("NLST");
    interrupt();
    connection.Say("150 Here it comes");
    {
      Connection data = connection.Data();
      for (int piece = 0; piece < 100; ++piece) {
        interrupt();
        data.Send("name\r\n");
      }
    }
    interrupt();
    connection.Say("226 Listed");
    connection.ServeToTheEnd();
  });
  {
    QsFTP ftp(server->Login(), nullptr);
    const Listing listing = List(ftp);
    EXPECT_THAT(listing, Succeeds());
    EXPECT_THAT(listing.lines, SizeIs(100));
  }
  server.reset();
  EXPECT_EQ(signals, 103);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(FtpPeerTest, AReplyWithoutEndIsRefused) {
  for (const std::string& piece : {std::string("220-and so on\r\n"), std::string(5000, 'x')}) {
    Serve([=](FtpConnection& client) {
      while (client.Control().Send(piece)) {
      }
    });
    QsFTP ftp(server->Login(), nullptr);
    EXPECT_THAT(Upload(ftp, dir.Write("f", "content")), FailsWith(""));
    EXPECT_LT(ftp.GetFTPLog().size(), 1000000u);
  }
}

TEST_F(FtpPeerTest, GiantListingsAreTaken) {
  std::string listing;
  for (int line = 0; line < 500000; ++line) {
    listing += "name " + std::to_string(line) + "\r\n";
  }
  Serve([=](FtpConnection& client) {
    client.listing = listing + std::string(5 << 20, 'x');
    client.ServeToTheEnd();
  });
  QsFTP ftp(server->Login(), nullptr);
  const Listing got = List(ftp);
  EXPECT_THAT(got, Succeeds());
  ASSERT_EQ(got.lines.size(), 500001u);
  EXPECT_EQ(got.lines[499999], "name 499999");
  EXPECT_EQ(got.lines[500000].size(), std::size_t{5 << 20});
}

// However late the farewell is seen: here it comes as the reply to the first command.
TEST_F(FtpPeerTest, AFarewellInThePlaceOfTheFirstReplyMakesTheConnectionAnew) {
  Serve(FirstOnly([](FtpConnection& client) {
    if (client.ServeUntil("STOR")) {
      client.Say("150 Send it");
      client.Data().WaitForClose();
      client.Say("226 Stored");
      client.Hear();
      client.Say("421 Too idle");
    }
  }));
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", "first")), Succeeds());
  EXPECT_THAT(Upload(ftp, dir.Write("f", "second")), Succeeds());
}

TEST_F(FtpPeerTest, AFarewellToANewConnectionIsAFailure) {
  Serve([](FtpConnection& client) { client.Say("421 Not today"); });
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_FALSE(Upload(ftp, dir.Write("f", "first")).done);
}

TEST_F(FtpPeerTest, AConnectionThatWentMeanwhileIsMadeAnew) {
  Serve(FirstOnly([](FtpConnection& client) {
    if (client.ServeUntil("STOR")) {
      client.Say("150 Send it");
      client.Data().WaitForClose();
      client.Say("226 Stored");
      client.Say("421 Too idle");
    }
  }));
  QsFTP ftp(server->Login(), nullptr);
  EXPECT_THAT(Upload(ftp, dir.Write("f", "first")), Succeeds());
  EXPECT_THAT(Upload(ftp, dir.Write("f", "second")), Succeeds());
}

TEST_F(FtpPeerTest, LogsOutOfAConnectionThatIsGone) {
  const std::string goodbye = std::string(1 << 20, '2') + "\r\n";
  const std::vector<std::pair<const char*, std::function<void(FtpConnection&)>>> endings = {
      {"closes", [](FtpConnection&) {}},
      {"closes at QUIT", [](FtpConnection& client) { client.ServeUntil("QUIT"); }},
      {"resets at QUIT",
       [](FtpConnection& client) {
         client.ServeUntil("QUIT");
         client.Control().Reset();
       }},
      {"says much", [goodbye](FtpConnection& client) { client.ServeUntil("QUIT") && client.Control().Send(goodbye); }},
  };
  for (const auto& ending : endings) {
    Serve([end = ending.second](FtpConnection& client) {
      client.ServeUntil("STOR");
      client.Say("150 Send it");
      client.Data().WaitForClose();
      client.Say("226 Stored");
      end(client);
    });
    auto ftp = std::make_unique<QsFTP>(server->Login(), nullptr);
    EXPECT_THAT(Upload(*ftp, dir.Write("f", "content")), Succeeds()) << ending.first;
    ftp.reset();  // a SIGPIPE would end the program
  }
}

TEST_F(FtpPeerTest, NothingLentToATransferIsUsedAfterIt) {
  Serve(FirstOnly([](FtpConnection& client) {
    if (client.ServeUntil("STOR")) {
      client.Say("150 Send it");
      client.Data().WaitForClose();
      client.Say("226 Stored");
      for (int line = 0; line < 1000; ++line) {
        client.Say("200 Gossip");
      }
      client.ServeToTheEnd();
    }
  }));
  auto ftp = std::make_unique<QsFTP>(server->Login(), nullptr);
  EXPECT_THAT(Upload(*ftp, dir.Write("f", "content")), Succeeds());
  EXPECT_THAT(List(*ftp), FailsWith("without a file name"));
  EXPECT_THAT(Upload(*ftp, dir.Write("g", "more")), Succeeds());
  const std::string said = ftp->GetFTPLog();
  EXPECT_THAT(Upload(*ftp, dir / "missing"), Not(Succeeds()));
  EXPECT_EQ(ftp->GetFTPLog(), said);
  ftp.reset();
}

// ---- allocations ----

TEST(FtpMemory, EveryAllocationOfATransferMayFail) {
  StartCurlOfCountedAllocations();
  const TempDir dir;
  const LogCapture log;
  const std::string file = dir.Write("f", "content");
  const ScriptedFtpServer server([](FtpConnection& client) { client.ServeToTheEnd(); });
  Result result;
  int failed = 0;
  for (int allocations = 0; !result.done; ++allocations) {
    ASSERT_LT(allocations, 3000);
    curlAllocationsLeft = allocations;
    QsFTP ftp(server.Login(), nullptr);
    result = Upload(ftp, file, "name", "d");
    curlAllocationsLeft = INT_MAX;
    EXPECT_TRUE(!result.done || result.errorText.empty());
    failed += result.done ? 0 : 1;
  }
  EXPECT_GT(failed, 10);
  InitQsInetHttp(2);
}
